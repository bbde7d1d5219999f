#include "core/TaskManager.h"

#include "common/TestSupport.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

TEST(TaskManager, SlotsAreBoundedAndFreedAgain)
{
    taskManager& tasks = taskManager::sharedInstance();
    EXPECT_EQ(tasks.maxTasks(), 2 * taskManager::getNumberOfCPUCores());
    tasks.setMaxTasks(4);
    tasks.setMaxTasks(0);   // ignored
    tasks.setMaxTasks(-3);  // ignored
    ASSERT_EQ(tasks.maxTasks(), 4);
    int jobs[5];
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(tasks.addTask(&jobs[i]));
    EXPECT_FALSE(tasks.addTask(&jobs[4]));
    EXPECT_EQ(tasks.count(), 4);
    int stranger = 0;
    tasks.removeTask(&stranger);  // never added: nothing changes
    EXPECT_EQ(tasks.count(), 4);
    tasks.removeTask(&jobs[1]);
    EXPECT_TRUE(tasks.addTask(&jobs[4]));
    for (int i : {0, 2, 3, 4})
        tasks.removeTask(&jobs[i]);
    EXPECT_EQ(tasks.count(), 0);
    tasks.setMaxTasks(2 * taskManager::getNumberOfCPUCores());
}

TEST(TaskManager, SharedWavIsDeletedWhenItsLastTypeEndsUnlessKept)
{
    QTemporaryDir dir;
    wavManager& wavs = wavManager::sharedInstance();
    taskManager& tasks = taskManager::sharedInstance();
    const QString source = "/music/song.mp3";
    wavs.needWavForSource(source, {"MP3", "OGG"}, dir.path());
    // The source's name leads; the rest makes it this process's and this request's own.
    const QString wav = wavs.wavPathForSource(source);
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^%1/song\\.mp3-%2-\\d+\\.WAV$")
                                       .arg(QRegularExpression::escape(dir.path()))
                                       .arg(QCoreApplication::applicationPid()))
                    .match(wav)
                    .hasMatch())
        << qPrintable(wav);
    wavs.needWavForSource(source, {"MP3", "OGG"}, dir.path());
    EXPECT_NE(wavs.wavPathForSource(source), wav);  // asked again: a new name
    const QString longSource = "/music/" + QString(250, 'x') + ".mp3";
    wavs.needWavForSource(longSource, {"MP3"}, dir.path());
    EXPECT_LE(QFileInfo(wavs.wavPathForSource(longSource)).fileName().toUtf8().size(), 255);
    wavs.removeWavForSource(longSource, "MP3");
    wavs.needWavForSource(source, {"MP3", "OGG"}, dir.path());
    const QString shared = wavs.wavPathForSource(source);
    ASSERT_TRUE(testsupport::writeFile(shared, "RIFF"));

    int mp3Job = 0, oggJob = 0;
    ASSERT_TRUE(tasks.addTask(&mp3Job, source, "MP3"));
    ASSERT_TRUE(tasks.addTask(&oggJob, source, "OGG"));
    tasks.removeTask(&mp3Job);
    EXPECT_TRUE(QFile::exists(shared));
    tasks.removeTask(&oggJob);
    EXPECT_FALSE(QFile::exists(shared));
    EXPECT_TRUE(wavs.wavPathForSource(source).isNull());

    // Kept: a later "no" does not clear an earlier "keep".
    const QString kept = dir.path() + "/kept.WAV";
    wavs.needWavForSource(source, {"MP3"}, dir.path());
    wavs.updateWavForSource(source, kept, true);
    wavs.updateWavForSource(source, kept, false);
    ASSERT_TRUE(testsupport::writeFile(kept, "RIFF"));
    wavs.removeWavForSource(source, "MP3");
    EXPECT_TRUE(QFile::exists(kept));
    EXPECT_TRUE(wavs.wavPathForSource(source).isNull());
}
