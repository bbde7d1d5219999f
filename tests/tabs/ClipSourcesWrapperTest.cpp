// The Clip tab's logic: the clamping of the clip parameters, its own drop zone
// and scan lock, and which jobs a save runs.
#include "tabs/ClipSourcesWrapper.h"

#include "common/BurnFixtures.h"
#include "common/PlayerFixtures.h"
#include "common/TestSupport.h"
#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "core/Preferences.h"
#include "encode/ExportJobs.h"

#include <gtest/gtest.h>

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>

namespace {

QVariantMap parameters(const char* start, const char* length, const char* fadeIn, const char* fadeOut,
                       const char* volume)
{
    return {{"clipstart", start}, {"cliplength", length}, {"fadein", fadeIn}, {"fadeout", fadeOut}, {"volume", volume}};
}

}  // namespace

TEST(ClipParameters, AreClampedToTheSongAndTheClip)
{
    const struct {
        QVariantMap typed;
        double song;
        QVariantMap expected;
    } cases[] = {
        // Negative times become 0; a negative gain stays.
        {parameters("-3", "-1", "-2", "-1", "-6"), 10, parameters("0", "0", "0", "0", "-6")},
        // A start past the end is the end, and leaves no length.
        {parameters("12", "5", "1", "1", "0"), 10, parameters("10", "0", "0", "0", "0")},
        // The length stops at the song's end; the fades share the clip.
        {parameters("7.5", "5", "2", "3", "0"), 10, parameters("7.5", "2.5", "2", "0.5", "0")},
        {parameters("1", "4", "9", "1", "100"), 10, parameters("1", "4", "4", "0", "60")},
        // An unknown length bounds nothing but the fades.
        {parameters("400", "30", "5", "5", "0"), 0, parameters("400", "30", "5", "5", "0")},
    };
    for (const auto& example : cases)
        EXPECT_EQ(ClipSourcesWrapper::clamped(example.typed, example.song), example.expected)
            << qPrintable(example.typed.value("clipstart").toString());
    EXPECT_EQ(ClipSourcesWrapper::defaultParameters({{"duration", "215"}}), parameters("0", "215", "0", "0", "0"));
    EXPECT_EQ(ClipSourcesWrapper::defaultParameters({}).value("cliplength"), "0");
}

TEST(ClipSources, DropsAreItsOwnAndASecondScanIsDropped)
{
    QTemporaryDir dir;
    const QString song = playerfixtures::makeSong(dir.path(), "a.wav", 3);
    PlaySourcesWrapper play;
    ClipSourcesWrapper clip;
    QSignalSpy songs(&clip, &ClipSourcesWrapper::songsChanged);
    NotificationCenter::defaultCenter().post(VLCSWFileDropNotification, QVariantMap{{"filearray", QStringList{song}}});
    // The drop zone's scan runs: another request waits for nothing and is dropped.
    ASSERT_TRUE(clip.browser().isLoading());
    EXPECT_FALSE(clip.selectSource(0));
    ASSERT_TRUE(songs.wait(10000));
    EXPECT_EQ(clip.browser().songs(), QStringList{song});
    EXPECT_TRUE(play.sources().last().title.endsWith("(0)"));  // the Play tab's drop zone stays empty
    EXPECT_TRUE(clip.selectSource(0));

    // Edits are clamped by the song's length as the waveform measured it.
    clip.showWaveform(0, 200);
    ASSERT_TRUE(QTest::qWaitFor([&] { return clip.waveform().complete() && clip.waveform().columns() == 200; }, 10000));
    EXPECT_NEAR(clip.songSeconds(0), 3.0, 0.001);
    clip.setClipValue(0, "clipstart", 2);
    EXPECT_EQ(clip.clipParameters(0).value("cliplength"), "1");

    // Playing the clip plays its second and stops, before the song's end.
    playerfixtures::useFakeAudio();
    clip.setClipValue(0, "clipstart", 0);
    clip.setClipValue(0, "cliplength", 1);
    clip.playClip(0);
    EXPECT_EQ(clip.browser().state(), PlaySourcesWrapper::State::Playing);
    EXPECT_TRUE(clip.isPlayingClip());
    QTest::qWait(500);
    EXPECT_EQ(clip.browser().state(), PlaySourcesWrapper::State::Playing);
    EXPECT_TRUE(QTest::qWaitFor([&] { return clip.browser().state() == PlaySourcesWrapper::State::Stopped; }, 1500));
    EXPECT_FALSE(clip.isPlayingClip());
}

TEST(ClipSave, AWavClipIsCutBySoxAloneAndOtherTypesAreEncoded)
{
    QTemporaryDir dir;
    const QString song = playerfixtures::makeSong(dir.path(), "a.wav", 4);
    ExportJobs exports;
    QStringList titles;
    QObject context;
    QObject::connect(
        &JobList::shared(), &JobList::jobAdded, &context,
        [&](quint64 id) {
            if (const auto job = JobList::shared().job(id))
                titles << job->title();
        },
        Qt::DirectConnection);
    for (const char* type : {"WAV", "OGG"}) {
        titles.clear();
        const QVariantMap request{{"selectedfiles", QStringList{song}},
                                  {"clipsettings", QVariantList{parameters("1", "2", "0", "0", "0")}},
                                  {"destinationfolder", dir.filePath(type)},
                                  {"type", type}};
        const JobResult result = ClipSourcesWrapper::makeSaveJob(request)->run();
        ASSERT_TRUE(result.ok()) << qPrintable(result.error);
        EXPECT_EQ(result.files, QStringList{dir.filePath(QStringLiteral("%1/a.%1").arg(type))});
        QStringList expected{QStringLiteral("Saving %1 clips").arg(type),
                             QStringLiteral("Clip of a.wav as %1").arg(type)};
        if (QLatin1String(type) != QLatin1String("WAV"))
            expected << QStringLiteral("Converting a.wav to %1").arg(type);
        EXPECT_EQ(titles, expected);
    }
}

TEST(Waveform, ColumnsFollowTheAudioInEveryReader)
{
    // One second of silence, then one second of a tone at half scale: the left
    // half of the picture is flat, the right half reaches about 0.5.
    QTemporaryDir dir;
    const QString wav = dir.filePath("half.wav");
    ASSERT_EQ(testsupport::run("sox", {"-n", "-r", "44100", "-c", "2", "-b", "16", wav, "synth", "1", "sine", "440",
                                       "vol", "0.5", "pad", "1", "0"}),
              0);
    const QString aiff = dir.filePath("half.aiff"), mp3 = dir.filePath("half.mp3"), ogg = dir.filePath("half.ogg");
    ASSERT_EQ(testsupport::run("sox", {wav, "-b", "24", aiff}), 0);
    ASSERT_EQ(testsupport::run("lame", {"--quiet", wav, mp3}), 0);
    ASSERT_EQ(testsupport::run("oggenc", {"-Q", wav, "-o", ogg}), 0);
    const std::atomic<bool> cancel{false};
    for (const QString& path : {wav, aiff, mp3, ogg}) {
        SCOPED_TRACE(qPrintable(path));
        const WaveformPeaks peaks = Waveform::compute(path, 100, cancel);
        ASSERT_TRUE(peaks.complete());
        ASSERT_EQ(peaks.columns(), 100);
        EXPECT_NEAR(peaks.seconds, 2.0, 0.03);
        EXPECT_LT(peaks.maximum[20] - peaks.minimum[20], 0.02);
        EXPECT_NEAR(peaks.maximum[80], 0.5, 0.05);
        EXPECT_NEAR(peaks.minimum[80], -0.5, 0.05);
    }
}

TEST(ClipSources, AFlashPlayerIsShownAsThePreferenceSaysAndEjectedUnlessInUse)
{
    QTemporaryDir dir;
    playerfixtures::makeSong(dir.path(), "a.wav", 1);
    const struct {
        int autoClip;
        bool inUse;
    } cases[] = {{0, false}, {1, false}, {1, true}};
    for (const auto& example : cases) {
        SCOPED_TRACE(example.autoClip * 10 + example.inUse);
        Preferences::sharedInstance().setPrefsInt(PrefKeys::AutoClip, example.autoClip);
        ClipSourcesWrapper clip;
        QStringList ejected;
        clip.setMediumInUseCheck([&](const QString& path) { return example.inUse && path == dir.path(); });
        clip.setFlashEjector([&](const QString& mountPoint) { ejected << mountPoint; });
        clip.setFlashPlayers({dir.path()});
        int player = -1;
        const auto rows = clip.browser().sources();
        for (int row = 0; row < rows.size(); ++row)
            if (rows[row].kind == PlaySourcesWrapper::SourceKind::FlashPlayer && rows[row].level == 1)
                player = row;
        ASSERT_GE(player, 0);
        // Inserted while the preference is on, the player's songs are listed at once.
        EXPECT_EQ(clip.browser().selectedSource() == player, example.autoClip == 1);
        if (!example.autoClip) {
            ASSERT_TRUE(clip.selectSource(player));
        }
        ASSERT_TRUE(QTest::qWaitFor([&] { return clip.browser().songs().size() == 1; }, 10000));
        playerfixtures::useFakeAudio();
        clip.playThisSong(0);

        const auto alert = clip.ejectSelectedMedium();
        EXPECT_EQ(alert.has_value(), example.inUse);
        EXPECT_EQ(ejected, example.inUse ? QStringList() : QStringList{dir.path()});
        // Its song stops playing before it goes, not while it stays.
        EXPECT_EQ(clip.browser().state() == PlaySourcesWrapper::State::Stopped, !example.inUse);
        if (alert) {
            EXPECT_EQ(alert->title, "The selected Flash is in use");
            EXPECT_EQ(alert->message, "The Flash may be being updated or may be in use by another application.  To "
                                      "eject Flah that is being updated, use the eject button on the Flash tab.");
        }
    }
    Preferences::sharedInstance().setPrefsInt(PrefKeys::AutoClip, 0);
}

TEST(Waveform, ALongSongDecodedInStretchesKeepsItsTimeline)
{
    // 80 seconds, silent but for a tone from 30 s to 50 s: it spans the place
    // where the stretches decoded side by side meet, and must stay where it is,
    // whether libmpg123 (MP3) or ffmpeg (Ogg) decodes them.
    QTemporaryDir dir;
    const QString wav = dir.filePath("long.wav"), mp3 = dir.filePath("long.mp3"), ogg = dir.filePath("long.ogg");
    ASSERT_EQ(testsupport::run("sox", {"-n", "-r", "44100", "-c", "2", "-b", "16", wav, "synth", "20", "sine", "440",
                                       "vol", "0.5", "pad", "30", "30"}),
              0);
    ASSERT_EQ(testsupport::run("lame", {"--quiet", "-b", "128", wav, mp3}), 0);
    ASSERT_EQ(testsupport::run("oggenc", {"-Q", wav, "-o", ogg}), 0);
    const std::atomic<bool> cancel{false};
    for (const QString& path : {mp3, ogg}) {
        SCOPED_TRACE(qPrintable(path));
        const WaveformPeaks peaks = Waveform::compute(path, 160, cancel);  // half a second a column
        ASSERT_TRUE(peaks.complete());
        EXPECT_NEAR(peaks.seconds, 80.0, 0.05);
        for (int column : {0, 58, 101, 159})
            EXPECT_LT(peaks.maximum[column] - peaks.minimum[column], 0.02) << column;
        for (int column : {61, 79, 80, 98})
            EXPECT_NEAR(peaks.maximum[column], 0.5, 0.05) << column;
    }
}

TEST(Waveform, BurstsInAnMp3DecodedInStretchesLandWhereTheWavHasThem)
{
    // 80 seconds of silence with 10 ms bursts on either side of where the two
    // stretches meet (40 s) and deep into the second, at 10 ms a column: a
    // stretch that started a frame early or late (26 ms, 13 at half rate)
    // moves its bursts by more than two columns, as does a picture stretched by
    // the encoder's delay and padding (four columns at the end). Constant and
    // variable bit rate, behind a padded ID3v2 tag, MPEG 2's frames of 576 samples.
    const std::vector<double> bursts = {12.34, 39.98, 40.1, 57.61, 78.9};
    constexpr int kColumns = 8000;
    burnfixtures::PcmPlan plan;
    plan.frames = 80 * 44100;
    plan.sample = [&bursts](qint64 frame, int) {
        const double at = double(frame) / 44100;
        for (double burst : bursts)
            if (at >= burst && at < burst + 0.01)
                return quint32(quint16(qint16(26000 * std::sin(2 * M_PI * 1000 * at))));
        return quint32(0);
    };
    QTemporaryDir dir;
    const QString wav = dir.filePath("bursts.wav");
    ASSERT_TRUE(testsupport::writeFile(wav, burnfixtures::wavFile(plan)));
    const std::atomic<bool> cancel{false};
    const WaveformPeaks expected = Waveform::compute(wav, kColumns, cancel);
    ASSERT_TRUE(expected.complete());
    const QList<QStringList> options = {{"-b", "128"},
                                        {"-V", "2"},
                                        {"--pad-id3v2-size", "3000", "--tt", "A title"},
                                        {"--resample", "22.05", "-b", "64"}};
    for (const QStringList& option : options) {
        SCOPED_TRACE(qPrintable(option.join(' ')));
        const QString mp3 = dir.filePath("bursts.mp3");
        ASSERT_EQ(testsupport::run("lame", QStringList{"--quiet"} + option + QStringList{wav, mp3}), 0);
        const WaveformPeaks decoded = Waveform::compute(mp3, kColumns, cancel);
        ASSERT_TRUE(decoded.complete());
        for (double burst : bursts) {
            // The loudest column near the burst, in each picture.
            const int near = int(burst * 100);
            const auto loudest = [near](const WaveformPeaks& peaks) {
                int best = near - 4;
                for (int column = best; column <= near + 4; ++column)
                    if (peaks.maximum[column] > peaks.maximum[best])
                        best = column;
                return best;
            };
            EXPECT_NEAR(loudest(decoded), loudest(expected), 1) << burst;
        }
    }
}
