#include "disc/AudioDVDWrapper.h"
#include "common/BurnFixtures.h"
#include "common/TestSupport.h"

#include <QTemporaryDir>

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

}  // namespace
