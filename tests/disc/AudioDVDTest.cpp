#include "common/BurnFixtures.h"
#include "common/TestSupport.h"
#include "disc/AudioDVDWrapper.h"
#include "disc/LibburnDrives.h"
#include "encode/ExportJobs.h"
#include "platform/AppPaths.h"

#include <QDir>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using namespace burnfixtures;

namespace {

TEST(AudioDVDListing, AudioPPSectorIsTheNumberAfterTheNearestBracket)
{
    const struct {
        const char* listing;
        int sector;
    } cases[] = {
        {"----------   0    0    0         2048 Nov 23 2026 [    281 00]  AUDIO_PP.IFO;1\n", 281},
        {"d---------   0 0 0 2048 Nov 23 2026 [     20 02]  .\n"
         "----------   0 0 0 2048 Nov 23 2026 [    279 00]  AUDIO_TS.IFO;1\n"
         "----------   0 0 0 2048 Nov 23 2026 [ 1234 00] audio_pp.ifo;1\n",
         1234},
        {"[ 17 00]  Audio_Pp.Ifo;1", 17},
        // Only the bracket before the name counts, even on an earlier line.
        {"[ 300 00] AUDIO_TS.IFO;1\nAUDIO_PP.IFO;1", 300},
        {"[    281 00]  AUDIO_TS.IFO;1\n[    290 00]  ATS_01_0.IFO;1\n", 0},
        {"AUDIO_PP.IFO;1 [ 12 00]", 0},
        {"[ xx 00] AUDIO_PP.IFO;1", 0},
        {"[ 99999999999 00] AUDIO_PP.IFO;1", 0},
        {"", 0},
    };
    for (const auto& [listing, sector] : cases)
        EXPECT_EQ(AudioDVDWrapper::audioPPInfoSectorInListing(listing), sector) << listing;
}

TEST(AudioDVDListing, ProgressLinesOfTheTools)
{
    const struct {
        const char* line;
        std::optional<int> percent;
    } cases[] = {
        {"Progress: 37%", 37},          {"Progress: 0%\r", 0},
        {"Progress: 100%", 100},        {"Progress: 101%", std::nullopt},
        {"Progress: %", std::nullopt},  {"Wrote AUDIO_TS/ATS_01_1.AOB 123", std::nullopt},
        {"progress: 5%", std::nullopt}, {"Progress: 5% done", std::nullopt},
    };
    for (const auto& [line, percent] : cases)
        EXPECT_EQ(AudioDVDWrapper::progressInLine(line), percent) << line;
}

TEST(AudioDVDListing, TheFileListIsCutAfterTheNameThatCrossesTheLimit)
{
    // Names of 1000 bytes take 1003 with their quotes and blank: 202 of them
    // stay under the limit, the 203rd crosses it and is the last one passed.
    QStringList files;
    for (int i = 0; i < 210; ++i)
        files << QStringLiteral("/%1").arg(i, 999, 10, QChar('a'));
    QStringList leftOut;
    const QStringList passed = AudioDVDWrapper::filesWithinLimit(files, &leftOut);
    EXPECT_EQ(passed, files.mid(0, 203));
    EXPECT_EQ(leftOut, files.mid(203));

    // Bytes count, not characters: 501 letters of 1000 bytes reach it as soon.
    QStringList wide;
    for (int i = 0; i < 210; ++i)
        wide << QStringLiteral("/%1").arg(i, 500, 10, QChar(0xE9));
    leftOut.clear();
    EXPECT_EQ(AudioDVDWrapper::filesWithinLimit(wide, &leftOut), wide.mid(0, 203));
    EXPECT_EQ(leftOut.size(), 7);

    // A name that would not fit the buffer is not passed, and neither is any after it.
    QStringList overflowing = files.mid(0, 202);
    overflowing << QStringLiteral("/") + QString(2499, QChar('b')) << QStringLiteral("/short.wav");
    leftOut.clear();
    EXPECT_EQ(AudioDVDWrapper::filesWithinLimit(overflowing, &leftOut), files.mid(0, 202));
    EXPECT_EQ(leftOut, overflowing.mid(202));
}

TEST(AudioDVDFiles, ProtectedFilesAreDroppedAndOnlyWavFilesTheToolTakesStayAsTheyAre)
{
    QTemporaryDir dir(testsupport::homeDir() + "/dvd-files-XXXXXX");
    const auto path = [&](const char* name) { return dir.filePath(QLatin1String(name)); };
    ASSERT_TRUE(testsupport::writeFile(path("a.wav"), wavFile(PcmPlan())));
    ASSERT_EQ(
        testsupport::run("ffmpeg", {"-v", "error", "-i", path("a.wav"), "-c:a", "wmav2", "-f", "asf", path("b.WMA")}),
        0);
    ASSERT_TRUE(testsupport::writeFile(path("c.mid"), wavFile(PcmPlan())));
    ASSERT_TRUE(testsupport::writeFile(path("d.M4P"), "protected"));
    ASSERT_TRUE(makeMp3(path("a.wav"), path("e.mp3"), "E", "Band"));
    ASSERT_TRUE(testsupport::writeFile(path("f.wav"), "no sound in here"));

    const QStringList files = {path("a.wav"), path("b.WMA"), path("c.mid"),
                               path("d.M4P"), path("e.mp3"), path("f.wav")};
    const QList<AudioDVDWrapper::Track> tracks = AudioDVDWrapper::receivedTracks(files);
    QStringList kept;
    QList<bool> marks;
    for (const AudioDVDWrapper::Track& track : tracks) {
        kept << track.path;
        marks << track.needtomakewav;
    }
    EXPECT_EQ(kept, (QStringList{path("a.wav"), path("b.WMA"), path("c.mid"), path("e.mp3"), path("f.wav")}));
    EXPECT_EQ(marks, (QList<bool>{false, true, true, true, true}));
}

class AudioDVD : public ::testing::Test {
protected:
    QTemporaryDir dir{testsupport::homeDir() + "/audio-dvd-XXXXXX"};

    void SetUp() override
    {
        if (!QFileInfo::exists(testsupport::builtProgram("dvda-author")))
            GTEST_SKIP() << "dvda-author is not built in this tree";
    }
    QString path(const QString& name) const { return dir.filePath(name); }
    // A sine tone made by sox: rate, channels and bits as given.
    QString tone(const QString& name, int rate, int channels, int bits, double seconds = 1.0)
    {
        EXPECT_EQ(testsupport::run("sox", {"-n", "-r", QString::number(rate), "-c", QString::number(channels), "-b",
                                           QString::number(bits), path(name), "synth", QString::number(seconds), "sine",
                                           "440"}),
                  0);
        return path(name);
    }
    QStringList threeFormats()
    {
        return {tone("a.wav", 44100, 2, 16), tone("b.wav", 96000, 2, 24), tone("c.wav", 48000, 6, 16)};
    }
    // File name -> size, as isoinfo lists the image.
    static QMap<QString, qint64> listing(const QString& image)
    {
        QByteArray text;
        EXPECT_EQ(testsupport::run("isoinfo", {"-i", image, "-l"}, &text), 0);
        static const QRegularExpression line(
            QStringLiteral("^\\S+\\s+\\d+\\s+\\d+\\s+\\d+\\s+(\\d+) .*\\]\\s+(\\S+);1\\s*$"),
            QRegularExpression::MultilineOption);
        QMap<QString, qint64> sizes;
        for (const QRegularExpressionMatch& match : line.globalMatch(QString::fromLocal8Bit(text)))
            sizes.insert(match.captured(2), match.captured(1).toLongLong());
        return sizes;
    }
    static JobResult runJob(const std::function<JobResult(Job&)>& body)
    {
        return Job::create(QStringLiteral("test"), body)->run();
    }
};

TEST_F(AudioDVD, TheSecondPassIsAuthoredWithTheSectorTheFirstImageShows)
{
    const QStringList files = threeFormats();
    const QString work = path("work");
    ASSERT_TRUE(QDir().mkpath(work));
    AudioDVDWrapper::ImageBuild build;
    runJob([&](Job& job) {
        build = AudioDVDWrapper::buildDVDImage(job, {{"patharray", files}, {"ppinfosector", 0}}, work);
        EXPECT_EQ(job.percent(), 100);
        return JobResult::succeeded();
    });
    ASSERT_EQ(build.error, QString());
    ASSERT_EQ(build.image, work + "/DVD.img");
    EXPECT_EQ(build.passes, 2);
    EXPECT_GT(build.ppInfoSector, 0);
    EXPECT_EQ(AudioDVDWrapper::getAudioPPInfoSector(build.image), build.ppInfoSector);
    EXPECT_FALSE(QFileInfo::exists(work + "/DVD"));

    const QMap<QString, qint64> listed = listing(build.image);
    ASSERT_TRUE(build.authored.contains("AUDIO_TS/ATS_01_1.AOB"));
    for (auto file = build.authored.cbegin(); file != build.authored.cend(); ++file)
        EXPECT_EQ(listed.value(QFileInfo(file.key()).fileName(), -1), file.value()) << qPrintable(file.key());
}

TEST_F(AudioDVD, BurnsToAnImageFileConvertingWhatTheAuthoringToolCannotRead)
{
    QStringList files = threeFormats();
    ASSERT_EQ(
        testsupport::run("ffmpeg", {"-v", "error", "-i", files.first(), "-c:a", "wmav2", "-f", "asf", path("d.wma")}),
        0);
    ASSERT_TRUE(testsupport::writeFile(path("e.m4p"), "protected"));
    files << path("d.wma") << path("e.m4p");
    wavexportwrapper wavExport;  // the application's WAV stage, which the burner posts its conversions to
    LibburnDrives drives;
    drives.drives();  // as the setup sheet does: a scan must not keep the burn from starting
    AudioDVDWrapper wrapper(&drives);
    BurnSetup setup;
    setup.image = path("disc.iso");
    const auto job = wrapper.burnAudioDVD(files, setup);
    ASSERT_TRUE(job);
    job->wait();
    ASSERT_TRUE(job->result().ok()) << qPrintable(job->result().error);
    EXPECT_EQ(job->result().files, QStringList{setup.image});
    EXPECT_EQ(job->status(), QStringLiteral("Written and checked"));
    EXPECT_EQ(job->messages(), QStringList()) << qPrintable(job->messages().join("\n"));
    const QMap<QString, qint64> listed = listing(setup.image);
    for (const char* name : {"AUDIO_TS.IFO", "AUDIO_PP.IFO", "ATS_01_0.IFO", "ATS_01_1.AOB"})
        EXPECT_GT(listed.value(name), 0) << name;
    // The converted copy and the build went with the burn.
    EXPECT_EQ(QDir(AppPaths::cacheDir()).entryList({"WAV-*"}, QDir::Dirs), QStringList());
}

TEST_F(AudioDVD, AFileTheAuthoringToolRefusesEndsTheBurnWithItsWords)
{
    const QStringList files = {tone("a.wav", 44100, 2, 16), tone("eight.wav", 44100, 2, 8)};
    LibburnDrives drives;
    AudioDVDWrapper wrapper(&drives);
    BurnSetup setup;
    setup.image = path("disc.iso");
    const auto job = wrapper.burnAudioDVD(files, setup);
    ASSERT_TRUE(job);
    job->wait();
    EXPECT_EQ(job->result().outcome, JobResult::Outcome::Failed);
    EXPECT_TRUE(job->result().error.contains(QStringLiteral("eight.wav"))) << qPrintable(job->result().error);
    EXPECT_TRUE(job->result().error.contains(QStringLiteral("8-bit"))) << qPrintable(job->result().error);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
              (QStringList{"a.wav", "eight.wav"}));
}

TEST_F(AudioDVD, CancellingWhileAuthoringStopsBeforeTheImageAndLeavesNoAuthoringFolder)
{
    const QStringList files = {tone("long.wav", 96000, 2, 24, 120.0)};
    const QString work = path("work");
    ASSERT_TRUE(QDir().mkpath(work));
    AudioDVDWrapper::ImageBuild build;
    const auto job = Job::create(QStringLiteral("test"), [&](Job& self) {
        build = AudioDVDWrapper::buildDVDImage(self, {{"patharray", files}, {"ppinfosector", 0}}, work);
        return self.isCancelled() ? JobResult::cancelled() : JobResult::succeeded();
    });
    job->start();
    ASSERT_TRUE(QTest::qWaitFor([&] { return job->status().startsWith("Authoring") && job->percent() > 0; }, 60000));
    job->cancel();
    job->wait();
    EXPECT_EQ(job->result().outcome, JobResult::Outcome::Cancelled);
    EXPECT_EQ(build.passes, 1);
    EXPECT_TRUE(build.image.isEmpty());
    EXPECT_EQ(QDir(work).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden), QStringList());
}

}  // namespace
