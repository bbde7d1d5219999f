#include "common/TestSupport.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>

namespace {

class ConvertCliTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(QDir().mkpath(dir_.filePath("in/Disc 1")));
        for (const char* name : {"in/a.wav", "in/Disc 1/b.wav"})
            ASSERT_EQ(testsupport::run("sox", {"-n", "-r", "44100", "-c", "2", "-b", "16", dir_.filePath(name), "synth",
                                               "1", "sine", "440"}),
                      0);
    }
    int convert(const QStringList& arguments, QByteArray* output)
    {
        return testsupport::run(testsupport::builtProgram("velmora-cli"), QStringList{"convert"} + arguments, output);
    }
    QStringList filesUnder(const QString& folder)
    {
        QStringList files;
        QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        while (it.hasNext())
            files << it.next().mid(folder.size() + 1);
        files.sort();
        return files;
    }
    QTemporaryDir dir_;
};

} // namespace

TEST_F(ConvertCliTest, ConvertsFoldersIntoSubFoldersWithUniqueNamesAndASummary)
{
    const QString out = dir_.filePath("out");
    QByteArray output;
    ASSERT_EQ(convert({"--to", "mp3", "--out", out, dir_.filePath("in")}, &output), 0) << output.constData();
    EXPECT_EQ(filesUnder(out), (QStringList{"in/Disc 1/b.MP3", "in/a.MP3"}));
    EXPECT_TRUE(output.contains("2 written, 0 failed")) << output.constData();
    EXPECT_TRUE(output.contains("-> " + out.toUtf8() + "/in/a.MP3")) << output.constData();

    // Again: unique names; flat: side by side.
    ASSERT_EQ(convert({"--to", "MP3", "--out", out, dir_.filePath("in/a.wav")}, &output), 0) << output.constData();
    EXPECT_TRUE(QFileInfo::exists(out + "/a.MP3") || QFileInfo::exists(out + "/a 1.MP3"));
    ASSERT_EQ(convert({"--to", "COPY", "--flat", "--out", out + "/flat", dir_.filePath("in")}, &output), 0);
    EXPECT_EQ(filesUnder(out + "/flat"), (QStringList{"a.WAV", "b.WAV"}));
}

TEST_F(ConvertCliTest, BadSourcesAreReportedAndTheBatchGoesOn)
{
    testsupport::writeFile(dir_.filePath("in/broken.wav"), QByteArray("RIFF\x10\0\0\0WAVEjunkjunk", 20));
    const QString out = dir_.filePath("out");
    QByteArray output;
    EXPECT_EQ(convert({"--to", "MP2", "--out", out, dir_.filePath("in"), dir_.filePath("missing.mp3")}, &output), 1);
    EXPECT_TRUE(output.contains("missing.mp3: no such file or folder")) << output.constData();
    EXPECT_TRUE(output.contains("failed: " + dir_.filePath("in/broken.wav").toUtf8())) << output.constData();
    EXPECT_TRUE(output.contains("2 written, 2 failed")) << output.constData();
    EXPECT_EQ(filesUnder(out), (QStringList{"in/Disc 1/b.MP2", "in/a.MP2"}));

    // A destination that cannot be made: said once, nothing written.
    testsupport::writeFile(dir_.filePath("blocker"), "a file in the way");
    EXPECT_EQ(convert({"--to", "WAV", "--out", dir_.filePath("blocker/out"), dir_.filePath("in")}, &output), 1);
    EXPECT_EQ(output.count("cannot create"), 1) << output.constData();
}

TEST_F(ConvertCliTest, InterruptCancelsAndLeavesNoPartialOutput)
{
    // Enough long files that the batch is still running when interrupted.
    ASSERT_TRUE(QDir().mkpath(dir_.filePath("long")));
    for (int i = 0; i < 6; ++i)
        ASSERT_EQ(testsupport::run("sox", {"-n", "-r", "44100", "-c", "2", "-b", "16",
                                           dir_.filePath(QStringLiteral("long/%1.wav").arg(i)), "synth", "40", "sine", "440"}),
                  0);
    const QString out = dir_.filePath("out");
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(testsupport::builtProgram("velmora-cli"), {"convert", "--to", "MP3", "--out", out, dir_.filePath("long")});
    ASSERT_TRUE(process.waitForStarted());
    QByteArray output;
    while (!output.contains("->") && process.waitForReadyRead(20000))
        output += process.readAll();
    ASSERT_TRUE(output.contains("->")) << output.constData();
    ::kill(pid_t(process.processId()), SIGINT);
    ASSERT_TRUE(process.waitForFinished(60000));
    output += process.readAll();
    EXPECT_EQ(process.exitCode(), 130) << output.constData();
    EXPECT_TRUE(output.contains("cancelled")) << output.constData();
    // Whatever is there is a whole file: ffprobe reads 40 seconds of it.
    for (const QString& file : filesUnder(out)) {
        QByteArray probe;
        testsupport::run("ffprobe", {"-v", "error", "-show_entries", "format=duration", "-of", "csv=p=0", out + '/' + file},
                         &probe);
        EXPECT_NEAR(probe.trimmed().toDouble(), 40.0, 0.5) << file.toStdString();
    }
    EXPECT_LT(filesUnder(out).size(), 6);
}
