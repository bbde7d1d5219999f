#include "encode/ExportJobs.h"

#include "EncodeTestSupport.h"
#include "core/Defaults.h"
#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "core/TaskManager.h"
#include "platform/AppPaths.h"
#include "platform/FileNames.h"
#include "platform/SafeFile.h"

#include <QDir>
#include <QRegularExpression>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>

using encodetest::makeTone;
using encodetest::probe;

namespace {

class ExportJobsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir_.isValid());
        jobs_ = std::make_unique<ExportJobs>();
        // What the LAME locator tells the MP3 job at start-up.
        post(VLLameFoundNewNotification, QVariantMap {{"lamepath", "/usr/bin/lame"}, {"lameversion", "LAME"}});
    }
    void TearDown() override
    {
        SafeFile::setFaultInjector({});
        jobs_.reset();
        taskManager::sharedInstance().setMaxTasks(2 * taskManager::getNumberOfCPUCores());
    }

    static void post(const char* name, const QVariant& object = {})
    {
        NotificationCenter::defaultCenter().post(name, object);
    }
    QString path(const QString& name) const { return dir_.filePath(name); }
    // Everything left in the folder but the given names (temporary files included).
    QStringList leftovers(const QStringList& expected) const
    {
        QStringList names = QDir(dir_.path()).entryList(QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot);
        for (const QString& name : expected)
            names.removeAll(name);
        return names;
    }

    QTemporaryDir dir_;
    std::unique_ptr<ExportJobs> jobs_;
};

TEST_F(ExportJobsTest, WavStageDecodesAndResamplesThroughTheLink)
{
    ASSERT_TRUE(makeTone(path("tone.flac"), 1, 22050, 1));
    post(VLWAVExportNotification, QVariantMap {{"sourcepath", path("tone.flac")},
                                               {"destinationpath", path("out.wav")},
                                               {"resamplerate", "48000"}});
    const auto result = probe(path("out.wav"));
    EXPECT_EQ(result.codec, "pcm_s16le");
    EXPECT_EQ(result.sampleRate, 48000);
    EXPECT_EQ(result.channels, 1);
    EXPECT_TRUE(QDir(AppPaths::workingFolder()).entryList(QDir::System | QDir::Files).isEmpty());

    // Without a rate the stored choice decides.
    Defaults::standard().setInteger("mTSPResampleStored", 0);
    post(VLWAVExportNotification, QVariantMap {{"sourcepath", path("tone.flac")}, {"destinationpath", path("b.wav")}});
    EXPECT_EQ(probe(path("b.wav")).sampleRate, 44100);
}

TEST_F(ExportJobsTest, WavStageFallsBackToMqpWhenFfmpegFails)
{
    // A stand-in ffmpeg that logs its arguments and fails.
    const QString bin = path("bin");
    QDir().mkpath(bin);
    testsupport::writeFile(bin + "/ffmpeg", QStringLiteral("#!/bin/sh\necho \"$@\" >> '%1'\nexit 1\n")
                                                .arg(path("ffmpeg.log")).toUtf8());
    QFile::setPermissions(bin + "/ffmpeg", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const QByteArray oldPath = qgetenv("PATH");
    qputenv("PATH", bin.toUtf8() + ':' + oldPath);
    ASSERT_TRUE(makeTone(path("tone.flac"), 1, 22050, 2));
    Defaults::standard().setInteger("mTSPResampleStored", 1);
    post(VLWAVExportNotification, QVariantMap {{"sourcepath", path("tone.flac")}, {"destinationpath", path("out.wav")}});
    Defaults::standard().setInteger("mTSPResampleStored", 0);
    qputenv("PATH", oldPath);

    // ffmpeg was told to write through a link of its own, which is gone again.
    const QString log = QString::fromUtf8(testsupport::readFile(path("ffmpeg.log")));
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^-i %1 -ar 48000 %2-\\d+-\\d+\\.wav\n$")
                                       .arg(QRegularExpression::escape(path("tone.flac")),
                                            QRegularExpression::escape(AppPaths::workingFolder() +
                                                                       "/com.dorvane.velmora")))
                    .match(log)
                    .hasMatch())
        << log.toStdString();
    EXPECT_TRUE(QDir(AppPaths::workingFolder()).entryList(QDir::System | QDir::Files).isEmpty());
    const auto result = probe(path("out.wav"));
    EXPECT_EQ(result.codec, "pcm_s16le");
    EXPECT_EQ(result.sampleRate, 48000);
}

TEST_F(ExportJobsTest, Mp3FromFlacCarriesTagsAndCleansUp)
{
    ASSERT_TRUE(makeTone(path("song.flac"), 2, 44100, 2));
    Defaults::standard().setInteger("mTSPBitrateStored", 5);
    Defaults::standard().setInteger("mTSPMonoStored", 1);
    const QVariantMap tags {{"title", "A Title"}, {"artist", "Some Band"}, {"album", "Record"},
                            {"track", "4"},       {"genre", "jazz"},       {"year", "1987"}};
    post(VLMP3ExportNotification, QVariantMap {{"sourcepath", path("song.flac")},
                                               {"destinationpath", path("song.MP3")},
                                               {"wavpath", path("cache.WAV")},
                                               {"riptags", tags}});
    const auto result = probe(path("song.MP3"));
    EXPECT_EQ(result.codec, "mp3");
    EXPECT_EQ(result.sampleRate, 44100);
    EXPECT_EQ(result.channels, 1);
    EXPECT_EQ(result.tags.value("title").toString(), "A Title");
    EXPECT_EQ(result.tags.value("artist").toString(), "Some Band");
    EXPECT_EQ(result.tags.value("album").toString(), "Record");
    EXPECT_EQ(result.tags.value("genre").toString(), "Jazz");
    EXPECT_EQ(result.tags.value("track").toString(), "4");
    EXPECT_EQ(result.tags.value("date").toString(), "1987");
    EXPECT_EQ(leftovers({"song.flac", "song.MP3"}), QStringList());
    Defaults::standard().setInteger("mTSPMonoStored", 0);
}

TEST_F(ExportJobsTest, WavSourcesAreEncodedDirectlyAndOtherCleanersKeepTheWav)
{
    ASSERT_TRUE(makeTone(path("deep.wav"), 1, 44100, 2, {"-b", "24"}));
    post(VLMP3ExportNotification, QVariantMap {{"sourcepath", path("deep.wav")},
                                               {"destinationpath", path("deep.mp3")},
                                               {"wavpath", path("never.WAV")}});
    EXPECT_EQ(probe(path("deep.mp3")).codec, "mp3");
    EXPECT_FALSE(QFileInfo::exists(path("never.WAV")));
    EXPECT_TRUE(QFileInfo::exists(path("deep.wav")));

    // A file named .wav that is not a WAV goes through the WAV stage; another job cleans up.
    ASSERT_TRUE(makeTone(path("fake.flac"), 1));
    ASSERT_TRUE(QFile::rename(path("fake.flac"), path("fake.wav")));
    post(VLMP2ExportNotification, QVariantMap {{"sourcepath", path("fake.wav")},
                                               {"destinationpath", path("fake.mp2")},
                                               {"wavpath", path("shared.WAV")},
                                               {"wavcleanup", "OGG"}});
    EXPECT_EQ(probe(path("fake.mp2")).codec, "mp2");
    EXPECT_TRUE(QFileInfo::exists(path("shared.WAV")));
}

TEST_F(ExportJobsTest, WmaAiffAndCopyMembers)
{
    ASSERT_TRUE(makeTone(path("t.wav"), 1, 44100, 2));
    Defaults::standard().setInteger("mTSPBitrateStored", 7);
    post(VLWMAExportNotification, QVariantMap {{"sourcepath", path("t.wav")},
                                               {"destinationpath", path("t.WMA")},
                                               {"rippanelsettings", QVariantMap {{"wma", QVariantMap {{"bitrate", 5}, {"mono", 1}}}}}});
    auto result = probe(path("t.WMA"));
    EXPECT_EQ(result.codec, "wmav2");
    EXPECT_EQ(result.channels, 1);
    EXPECT_EQ(result.sampleRate, 44100);

    post(VLAIFExportNotification, QVariantMap {{"sourcepath", path("t.wav")},
                                               {"destinationpath", path("t.AIFF")},
                                               {"resamplerate", "48000"}});
    result = probe(path("t.AIFF"));
    EXPECT_EQ(result.codec, "pcm_s16be");
    EXPECT_EQ(result.sampleRate, 48000);

    QDir().mkpath(path("flash"));
    post(VLCOPYExportNotification, QVariantMap {{"sourcepath", path("t.wav")}, {"destinationpath", path("flash/t.WAV")}});
    EXPECT_EQ(testsupport::readFile(path("flash/t.WAV")), testsupport::readFile(path("t.wav")));
    testsupport::writeFile(path("._t.wav"), "fork");
    post(VLCOPYExportNotification, QVariantMap {{"sourcepath", path("._t.wav")}, {"destinationpath", path("flash/._t.WAV")}});
    EXPECT_FALSE(QFileInfo::exists(path("flash/._t.WAV")));
    // An existing file is replaced only when the flash settings say so.
    testsupport::writeFile(path("other.wav"), "other");
    post(VLCOPYExportNotification, QVariantMap {{"sourcepath", path("other.wav")}, {"destinationpath", path("flash/t.WAV")}});
    EXPECT_EQ(testsupport::readFile(path("flash/t.WAV")), testsupport::readFile(path("t.wav")));
    post(VLCOPYExportNotification, QVariantMap {{"sourcepath", path("other.wav")}, {"destinationpath", path("flash/t.WAV")},
                                                {"flashpanelsettings", QVariantMap {{"replace", true}}}});
    EXPECT_EQ(testsupport::readFile(path("flash/t.WAV")), QByteArray("other"));
}

TEST_F(ExportJobsTest, OggFilesAreEncodedInProcessSideBySide)
{
    ASSERT_TRUE(makeTone(path("song.flac"), 2));
    const QVariantMap tags {{"title", "Ogg Song"}, {"track", "9"}, {"genre", "Weird Folk"}, {"year", "2011"}};
    const QVariantMap rip {{"ogg", QVariantMap {{"bitrate", 3}, {"mono", 1}}}};
    for (int i = 0; i < 3; ++i)
        post(VLOGGExportNotification, QVariantMap {{"sourcepath", path("song.flac")},
                                                   {"destinationpath", path(QStringLiteral("song%1.ogg").arg(i))},
                                                   {"wavpath", path(QStringLiteral("w%1.wav").arg(i))},
                                                   {"ripinbackground", true}, {"riptags", tags},
                                                   {"rippanelsettings", rip}});
    jobs_->waitForBackgroundWork();
    for (int i = 0; i < 3; ++i) {
        const auto result = probe(path(QStringLiteral("song%1.ogg").arg(i)));
        EXPECT_EQ(result.codec, "vorbis");
        EXPECT_EQ(result.channels, 1);
        EXPECT_NEAR(result.duration, 2.0, 0.1);
        EXPECT_EQ(result.tags.value("title").toString(), "Ogg Song");
        EXPECT_EQ(result.tags.value("track").toString(), "9");
        EXPECT_EQ(result.tags.value("genre").toString(), "Weird Folk");  // Ogg genres are free text
    }
    EXPECT_EQ(leftovers({"song.flac", "song0.ogg", "song1.ogg", "song2.ogg"}), QStringList());
    EXPECT_EQ(taskManager::sharedInstance().count(), 0);
}

TEST_F(ExportJobsTest, UndecodableSourceLeavesNothingBehind)
{
    testsupport::writeFile(path("noise.xyz"), QByteArray(5000, '\x5a'));
    for (const char* name : {VLMP3ExportNotification, VLWMAExportNotification, VLMP2ExportNotification,
                             VLOGGExportNotification, VLM4AExportNotification}) {
        post(name, QVariantMap {{"sourcepath", path("noise.xyz")}, {"destinationpath", path("noise.out")},
                                {"wavpath", path("noise.WAV")}});
        EXPECT_EQ(leftovers({"noise.xyz"}), QStringList()) << name;
        // The job failed, and says which source and why.
        const auto job = exportJobFor(path("noise.out"));
        ASSERT_TRUE(job) << name;
        EXPECT_EQ(job->result().outcome, JobResult::Outcome::Failed) << name;
        EXPECT_TRUE(job->result().error.contains(path("noise.xyz"))) << name << qPrintable(job->result().error);
        EXPECT_TRUE(job->result().error.contains("No decoder could read")) << qPrintable(job->result().error);
    }
}

TEST_F(ExportJobsTest, MissingLameProducesNoFileAndSaysSo)
{
    ASSERT_TRUE(makeTone(path("t.wav"), 1));
    post(VLLameFoundNewNotification, QVariantMap {{"lamepath", ""}});
    post(VLMP3ExportNotification, QVariantMap {{"sourcepath", path("t.wav")}, {"destinationpath", path("t.mp3")}});
    EXPECT_FALSE(QFileInfo::exists(path("t.mp3")));
    EXPECT_TRUE(exportJobFor(path("t.mp3"))->result().error.contains("LAME"));
}

TEST_F(ExportJobsTest, ForegroundCancelStopsTheEncoderWithoutPartialOutput)
{
    ASSERT_TRUE(makeTone(path("long.wav"), 240));
    std::thread canceller([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        NotificationCenter::defaultCenter().post(VLMP3ExportCancelNotification);
    });
    const auto started = std::chrono::steady_clock::now();
    post(VLMP3ExportNotification, QVariantMap {{"sourcepath", path("long.wav")}, {"destinationpath", path("long.mp3")}});
    canceller.join();
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
    EXPECT_EQ(leftovers({"long.wav"}), QStringList());
}

TEST_F(ExportJobsTest, CancelWhileDecodingLeavesNoIntermediate)
{
    ASSERT_TRUE(makeTone(path("long.flac"), 300));
    std::thread canceller([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(80));
        NotificationCenter::defaultCenter().post(VLMP3ExportCancelNotification);
    });
    post(VLMP3ExportNotification, QVariantMap {{"sourcepath", path("long.flac")}, {"destinationpath", path("long.mp3")},
                                               {"wavpath", path("cache.WAV")}, {"wavcleanup", "MP3"}});
    canceller.join();
    EXPECT_EQ(leftovers({"long.flac"}), QStringList());
}

TEST_F(ExportJobsTest, CancelInABackgroundBatchFreesEverySlot)
{
    taskManager::sharedInstance().setMaxTasks(1);
    QStringList outputs;
    for (int i = 0; i < 6; ++i) {
        const QString source = path(QStringLiteral("b%1.wav").arg(i));
        ASSERT_TRUE(makeTone(source, 20));
        outputs << path(QStringLiteral("b%1.mp3").arg(i));
    }
    for (int i = 0; i < 6; ++i)
        post(VLMP3ExportNotification, QVariantMap {{"sourcepath", path(QStringLiteral("b%1.wav").arg(i))},
                                                   {"destinationpath", outputs[i]},
                                                   {"ripinbackground", true}});
    for (int waited = 0; waited < 500 && taskManager::sharedInstance().count() == 0; ++waited)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(taskManager::sharedInstance().count(), 1);
    post(VLMP3ExportCancelNotification);
    jobs_->waitForBackgroundWork();
    EXPECT_EQ(taskManager::sharedInstance().count(), 0);
    int made = 0;
    for (const QString& output : outputs) {
        if (!QFileInfo::exists(output))
            continue;
        ++made;
        const auto result = probe(output);  // a running encoder finishes its file
        EXPECT_EQ(result.codec, "mp3");
        EXPECT_NEAR(result.duration, 20.0, 0.2);
    }
    EXPECT_GE(made, 1);
    EXPECT_LT(made, 6);
    for (const QString& name : leftovers({}))
        EXPECT_TRUE(name.endsWith(".wav") || name.endsWith(".mp3")) << qPrintable(name);
}

TEST_F(ExportJobsTest, BackgroundBatchStaysWithinTheSlotLimit)
{
    taskManager::sharedInstance().setMaxTasks(2);
    for (int i = 0; i < 5; ++i)
        ASSERT_TRUE(makeTone(path(QStringLiteral("s%1.wav").arg(i)), 10));
    std::atomic<bool> done {false};
    std::atomic<int> most {0};
    std::thread watcher([&] {
        while (!done) {
            most = std::max(most.load(), taskManager::sharedInstance().count());
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    });
    for (int i = 0; i < 5; ++i)
        post(VLMP3ExportNotification, QVariantMap {{"sourcepath", path(QStringLiteral("s%1.wav").arg(i))},
                                                   {"destinationpath", path(QStringLiteral("o%1.mp3").arg(i))},
                                                   {"ripinbackground", true}});
    jobs_->waitForBackgroundWork();
    done = true;
    watcher.join();
    EXPECT_EQ(most.load(), 2);
    EXPECT_EQ(taskManager::sharedInstance().count(), 0);
    for (int i = 0; i < 5; ++i)
        EXPECT_NEAR(probe(path(QStringLiteral("o%1.mp3").arg(i))).duration, 10.0, 0.1) << i;
    for (const QString& name : leftovers({}))
        EXPECT_TRUE(name.endsWith(".wav") || name.endsWith(".mp3")) << qPrintable(name);
}

TEST_F(ExportJobsTest, CdparanoiaFailureIsRememberedForLaterTracks)
{
    // A stand-in cd-paranoia that logs its arguments and fails, as with no drive.
    const QString bin = path("bin");
    QDir().mkpath(bin);
    testsupport::writeFile(bin + "/cd-paranoia", QStringLiteral("#!/bin/sh\necho \"$@\" >> '%1'\nexit 1\n")
                                                     .arg(path("paranoia.log")).toUtf8());
    QFile::setPermissions(bin + "/cd-paranoia", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const QByteArray oldPath = qgetenv("PATH");
    qputenv("PATH", bin.toUtf8() + ':' + oldPath);

    ASSERT_TRUE(makeTone(path("track.flac"), 1));
    testsupport::writeFile(path("01 Audio Track.cdda"), "device=/dev/velmora-none\n");
    for (int track : {1, 2}) {
        const QString source = track == 1 ? path("01 Audio Track.cdda") : path("track.flac");
        post(VLWAVExportNotification, QVariantMap {{"sourcepath", source},
                                                   {"destinationpath", path(QStringLiteral("t%1.wav").arg(track))},
                                                   {"riptrack", track},
                                                   {"rippanelsettings", QVariantMap {{"maxspeed", true}}}});
    }
    qputenv("PATH", oldPath);
    // Only the first track asked the drive, writing into a private folder beside the destination.
    const QString log = QString::fromUtf8(testsupport::readFile(path("paranoia.log")));
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^-d /dev/velmora-none -Z 1 %1/\\.velmora-\\w{6}/t1\\.wav\n$")
                                       .arg(QRegularExpression::escape(dir_.path())))
                    .match(log)
                    .hasMatch())
        << log.toStdString();
    EXPECT_TRUE(jobs_->wav().cdparanoiaFailed());
    EXPECT_FALSE(QFileInfo::exists(path("t1.wav")));  // the descriptor is no audio for ffmpeg
    EXPECT_EQ(probe(path("t2.wav")).codec, "pcm_s16le");
}

TEST_F(ExportJobsTest, SourcesOnThePlayingDiscAreLeftAlone)
{
    QDir().mkpath(path("disc"));
    ASSERT_TRUE(makeTone(path("disc/1.flac"), 1));
    post(VLEjectableMediaPlayingNotification, QVariantMap {{"mThisCDIsPlaying", path("disc")}});
    post(VLWAVExportNotification, QVariantMap {{"sourcepath", path("disc/1.flac")}, {"destinationpath", path("1.wav")}});
    EXPECT_FALSE(QFileInfo::exists(path("1.wav")));
    post(VLEjectableMediaPlayingNotification, QVariantMap {{"mThisCDIsPlaying", ""}});
    post(VLWAVExportNotification, QVariantMap {{"sourcepath", path("disc/1.flac")}, {"destinationpath", path("1.wav")}});
    EXPECT_TRUE(QFileInfo::exists(path("1.wav")));
}

TEST_F(ExportJobsTest, ClipsAreCutWithSoxAndEncodedBesideTheTrack)
{
    ASSERT_TRUE(makeTone(path("song.flac"), 3));
    post(VLCLPWAVExportNotification, QVariantMap {{"wavpath", path("song.flac")}, {"clpwavpath", path("no.wav")}});
    EXPECT_FALSE(QFileInfo::exists(path("no.wav")));  // clips are cut from WAV files only

    const QVariantMap clip {{"mRipClipStored", 1}, {"mRipClipStartStored", "1"}, {"mRipClipDurationStored", "1.5"},
                            {"mRipClipFadeInStored", "0.2"}, {"mRipClipFadeOutStored", "0.2"}};
    post(VLMP3ExportNotification, QVariantMap {{"sourcepath", path("song.flac")}, {"destinationpath", path("song.mp3")},
                                               {"wavpath", path("cache.wav")}, {"clpwavpath", path("cache.clp.wav")},
                                               {"clipsettings", clip}, {"wavcleanup", "MP3"}});
    EXPECT_NEAR(probe(path("song.mp3")).duration, 3.0, 0.15);
    EXPECT_NEAR(probe(path("song.clp.mp3")).duration, 1.5, 0.15);
    EXPECT_EQ(leftovers({"song.flac", "song.mp3", "song.clp.mp3"}), QStringList());

    // The Clip tab's way: the cut WAV is prepared first and stands in for a WAV song.
    ASSERT_TRUE(makeTone(path("whole.wav"), 3));
    post(VLCLPWAVExportNotification, QVariantMap {{"wavpath", path("whole.wav")}, {"clpwavpath", path("cut.wav")},
                                                  {"clipstart", "0.5"}, {"cliplength", "1"}});
    post(VLM4RExportNotification, QVariantMap {{"sourcepath", path("whole.wav")}, {"destinationpath", path("ring.M4R")},
                                               {"wavpath", path("cut.wav")}, {"riptags", QVariantMap()}});
    const auto ring = probe(path("ring.M4R"));
    EXPECT_EQ(ring.codec, "aac");
    EXPECT_NEAR(ring.duration, 1.0, 0.15);
    EXPECT_FALSE(QFileInfo::exists(path("cut.wav")));
}

} // namespace

TEST_F(ExportJobsTest, AFailedRenameKeepsTheOldFileWhicheverMemberWrites)
{
    ASSERT_TRUE(makeTone(path("song.wav"), 1, 44100, 2, {"-b", "16"}));
    ASSERT_TRUE(makeTone(path("song.flac"), 1));
    struct Row {
        const char* notification;
        const char* source;
        const char* destination;
        QVariantMap extra;
    };
    const Row rows[] = {
        {VLMP3ExportNotification, "song.wav", "old.mp3", {}},  // a tool's work folder
        {VLOGGExportNotification, "song.wav", "old.ogg", {}},  // the in-process encoder's replacement
        {VLWMAExportNotification, "song.wav", "old.wma", {}},
        {VLWAVExportNotification, "song.flac", "old.wav", {}},
        {VLAIFExportNotification, "song.wav", "old.aiff", {}},
        {VLCOPYExportNotification, "song.wav", "old.WAV", {{"flashpanelsettings", QVariantMap{{"replace", true}}}}},
    };
    for (const Row& row : rows) {
        const QString destination = path(row.destination);
        testsupport::writeFile(destination, "the older file");
        SafeFile::setFaultInjector([&](SafeFile::Step step, const QString& target) {
            return step == SafeFile::Step::Rename && QFileInfo(target).fileName() == row.destination;
        });
        QVariantMap request{
            {"sourcepath", path(row.source)}, {"destinationpath", destination}, {"wavpath", path("cache.WAV")}};
        request.insert(row.extra);
        post(row.notification, request);
        SafeFile::setFaultInjector({});
        EXPECT_EQ(testsupport::readFile(destination), QByteArray("the older file")) << row.notification;
        const auto job = exportJobFor(destination);
        ASSERT_TRUE(job) << row.notification;
        EXPECT_EQ(job->result().outcome, JobResult::Outcome::Failed) << row.notification;
        EXPECT_TRUE(job->result().error.startsWith("Cannot replace")) << qPrintable(job->result().error);
        EXPECT_EQ(leftovers({"song.wav", "song.flac", row.destination}), QStringList()) << row.notification;
        QFile::remove(destination);
    }
}

TEST_F(ExportJobsTest, JobsGiveTheirReservedNameBackUnlessTheyFilledIt)
{
    ASSERT_TRUE(makeTone(path("short.wav"), 1));
    ASSERT_TRUE(makeTone(path("long.wav"), 120));
    testsupport::writeFile(path("noise.xyz"), QByteArray(5000, '\x5a'));

    // Jobs that succeed leave the job list at once; these are held to be read.
    QList<std::shared_ptr<Job>> held;
    QObject context;
    QObject::connect(
        &JobList::shared(), &JobList::jobAdded, &context, [&](quint64 id) { held << JobList::shared().job(id); },
        Qt::DirectConnection);

    // Made: the reserved name now holds the file, and giving it back keeps it.
    ASSERT_TRUE(FileNames::reserve(path("made.mp3")));
    post(VLMP3ExportNotification,
         QVariantMap{{"sourcepath", path("short.wav")}, {"destinationpath", path("made.mp3")}});
    const auto made = exportJobFor(path("made.mp3"));
    ASSERT_TRUE(made);
    EXPECT_EQ(made->title(), "Converting short.wav to MP3");
    EXPECT_EQ(made->result().files, QStringList{path("made.mp3")});
    FileNames::release(path("made.mp3"));
    EXPECT_EQ(probe(path("made.mp3")).codec, "mp3");

    // Failed: the empty reservation goes.
    ASSERT_TRUE(FileNames::reserve(path("failed.mp3")));
    post(VLMP3ExportNotification, QVariantMap{{"sourcepath", path("noise.xyz")},
                                              {"destinationpath", path("failed.mp3")},
                                              {"wavpath", path("noise.WAV")}});
    EXPECT_FALSE(QFileInfo::exists(path("failed.mp3")));
    EXPECT_FALSE(FileNames::isReserved(path("failed.mp3")));

    // Cancelled from the job list while its encoder runs in the background:
    // the encoder stops, its slot is free, nothing is left.
    ASSERT_TRUE(FileNames::reserve(path("cancelled.mp3")));
    post(VLMP3ExportNotification, QVariantMap{{"sourcepath", path("long.wav")},
                                              {"destinationpath", path("cancelled.mp3")},
                                              {"ripinbackground", true}});
    const auto running = exportJobFor(path("cancelled.mp3"));
    ASSERT_TRUE(running);
    for (int waited = 0; waited < 500 && taskManager::sharedInstance().count() == 0; ++waited)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_TRUE(JobList::shared().jobs().contains(running));
    const auto started = std::chrono::steady_clock::now();
    running->cancel();
    jobs_->waitForBackgroundWork();
    running->wait();
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
    EXPECT_EQ(running->result().outcome, JobResult::Outcome::Cancelled);
    EXPECT_EQ(taskManager::sharedInstance().count(), 0);
    EXPECT_EQ(leftovers({"short.wav", "long.wav", "noise.xyz", "made.mp3"}), QStringList());
}
