// The first picture of an MP3, sketched from its frames before it is decoded:
// its shape against the decoded peaks, damaged files, and stale work cancelled.
#include "tabs/ClipSourcesWrapper.h"
#include "tabs/Waveform.h"

#include "common/PlayerFixtures.h"
#include "common/TestSupport.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

namespace {

constexpr int kColumns = 60;

// Makes folder/name from pieces of sox synth arguments played one after the
// other (the same noise every run, no dither, so that silence stays digital),
// encoded by lame with the options given. "" when a tool failed.
QString makeMp3(const QString& folder, const QString& name, const QList<QStringList>& pieces,
                const QStringList& lameOptions)
{
    QStringList joined;
    for (int i = 0; i < pieces.size(); ++i) {
        const QString piece = QStringLiteral("%1/%2.piece%3.wav").arg(folder, name).arg(i);
        if (testsupport::run("sox",
                             QStringList{"-R", "-D", "-n", "-r", "44100", "-c", "2", "-b", "16", piece} + pieces[i]))
            return {};
        joined << piece;
    }
    const QString wav = folder + '/' + name + ".wav", mp3 = folder + '/' + name;
    if (testsupport::run("sox", QStringList{"-D"} + joined + QStringList{wav}) ||
        testsupport::run("lame", QStringList{"--quiet"} + lameOptions + QStringList{wav, mp3}))
        return {};
    return mp3;
}

QStringList noise(double seconds, double level)
{
    return {"synth", QString::number(seconds), "pinknoise", "vol", QString::number(level)};
}

QStringList silence(double seconds)
{
    return {"trim", "0", QString::number(seconds)};
}

// The mean height of columns [from, to).
double meanHeight(const WaveformPeaks& peaks, int from, int to)
{
    double sum = 0;
    for (int column = from; column < to; ++column)
        sum += peaks.maximum[column] - peaks.minimum[column];
    return sum / (to - from);
}

bool firstHalfLouder(const WaveformPeaks& peaks)
{
    return meanHeight(peaks, 0, peaks.columns() / 2) > meanHeight(peaks, peaks.columns() / 2, peaks.columns());
}

}  // namespace

TEST(WaveformSketch, ShowsTheLoudQuietAndSilentStretchesOfTheDecodedPeaks)
{
    // Two seconds loud, two silent, two at a tenth of the level: ten columns a
    // second. Stereo and mono, constant and variable bit rate (with its Info
    // frame), MPEG 1 and the half-rate MPEG 2, behind an ID3v2 tag.
    QTemporaryDir dir;
    const QList<QStringList> options = {{"-b", "128"},
                                        {"-V", "2"},
                                        {"-m", "m", "-b", "64"},
                                        {"--resample", "22.05", "-b", "64"},
                                        {"--id3v2-only", "--tt", "A title", "--ta", "An artist"}};
    const std::atomic<bool> cancel{false};
    for (int i = 0; i < options.size(); ++i) {
        SCOPED_TRACE(qPrintable(options[i].join(' ')));
        const QString mp3 = makeMp3(dir.path(), QStringLiteral("shape%1.mp3").arg(i),
                                    {noise(2, 0.6), silence(2), noise(2, 0.06)}, options[i]);
        ASSERT_FALSE(mp3.isEmpty());
        const WaveformPeaks sketch = Waveform::sketchMp3(mp3, kColumns, cancel);
        const WaveformPeaks decoded = Waveform::compute(mp3, kColumns, cancel);
        ASSERT_EQ(sketch.columns(), kColumns);
        ASSERT_TRUE(decoded.complete());
        EXPECT_TRUE(sketch.estimated);
        EXPECT_FALSE(sketch.complete());
        EXPECT_NEAR(sketch.seconds, decoded.seconds, 0.1);
        for (const WaveformPeaks* peaks : {&sketch, &decoded}) {
            SCOPED_TRACE(peaks == &sketch ? "sketch" : "decoded");
            const double loud = meanHeight(*peaks, 2, 18), silent = meanHeight(*peaks, 22, 38),
                         quiet = meanHeight(*peaks, 42, 58);
            EXPECT_LT(quiet, loud / 3);
            EXPECT_LT(silent, quiet / 3);
        }
    }

    // A plucked string's noisy attack, then a steady tone: the quantiser's step
    // alone would make the tone look hundreds of times quieter than it is.
    const QString plucked = makeMp3(dir.path(), "plucked.mp3", {{"synth", "6", "pluck", "220", "sine", "330"}}, {});
    ASSERT_FALSE(plucked.isEmpty());
    const WaveformPeaks sketch = Waveform::sketchMp3(plucked, kColumns, cancel);
    ASSERT_EQ(sketch.columns(), kColumns);
    EXPECT_GT(meanHeight(sketch, 10, 50), 0.5);
}

TEST(WaveformSketch, ADamagedFileShowsWhatCanBeRead)
{
    QTemporaryDir dir;
    const QString mp3 = makeMp3(dir.path(), "whole.mp3", {noise(3, 0.6), noise(3, 0.06)}, {"-b", "128"});
    ASSERT_FALSE(mp3.isEmpty());
    const QByteArray bytes = testsupport::readFile(mp3);
    const std::atomic<bool> cancel{false};
    const double whole = Waveform::sketchMp3(mp3, kColumns, cancel).seconds;
    ASSERT_NEAR(whole, 6.0, 0.1);

    // Cut anywhere, in a header or side information too: the frames before the
    // cut count.
    const QString cut = dir.filePath("cut.mp3");
    for (const double fraction : {0.0001, 0.001, 0.003, 0.01, 0.3, 0.55, 0.9999}) {
        SCOPED_TRACE(fraction);
        ASSERT_TRUE(testsupport::writeFile(cut, bytes.left(qsizetype(bytes.size() * fraction))));
        const WaveformPeaks sketch = Waveform::sketchMp3(cut, kColumns, cancel);
        if (fraction < 0.005) {
            EXPECT_EQ(sketch.columns(), 0);
            continue;
        }
        ASSERT_EQ(sketch.columns(), kColumns);
        EXPECT_NEAR(sketch.seconds, whole * fraction, 0.06);
    }

    // Zeros over a stretch of the loud half: the frames on either side still
    // read, the quiet half keeps its place behind them, and the decoder shows them too.
    QByteArray holed = bytes;
    holed.replace(bytes.size() / 4, bytes.size() / 10, QByteArray(bytes.size() / 10, '\0'));
    const QString damaged = dir.filePath("holed.mp3");
    ASSERT_TRUE(testsupport::writeFile(damaged, holed));
    for (const WaveformPeaks& peaks :
         {Waveform::sketchMp3(damaged, kColumns, cancel), Waveform::compute(damaged, kColumns, cancel)}) {
        ASSERT_EQ(peaks.columns(), kColumns);
        EXPECT_LT(peaks.seconds, whole - 0.4);
        EXPECT_GT(peaks.seconds, whole - 0.8);
        EXPECT_TRUE(firstHalfLouder(peaks));
    }

    // Bytes that hold no frame at all give no picture and no error of their own;
    // nor does one stray frame header near their end, with no frame behind it.
    const QString garbage = playerfixtures::makeCorrupt(dir.path(), "garbage.mp3");
    EXPECT_EQ(Waveform::sketchMp3(garbage, kColumns, cancel).columns(), 0);
    const QString stray = dir.filePath("stray.mp3");
    ASSERT_TRUE(testsupport::writeFile(
        stray, QByteArray::fromBase64("zUkjoKAAAP/7EMQAAARIIQgKDQ+I7HpHm3o/NHwyHxKO2ZgURA==")));
    EXPECT_EQ(Waveform::sketchMp3(stray, kColumns, cancel).columns(), 0);
    EXPECT_EQ(Waveform::compute(garbage, kColumns, cancel).columns(), 0);
}

TEST(WaveformSketch, ComesFirstAndStaleWorkIsCancelled)
{
    QTemporaryDir dir;
    const QString loudFirst = makeMp3(dir.path(), "a.mp3", {noise(40, 0.6), noise(40, 0.06)}, {"-b", "128"});
    const QString quietFirst = makeMp3(dir.path(), "b.mp3", {noise(40, 0.06), noise(40, 0.6)}, {"-b", "128"});
    ASSERT_FALSE(loudFirst.isEmpty());
    ASSERT_FALSE(quietFirst.isEmpty());

    // Cancelled as the sketch arrives, the decoding stops and gives nothing.
    std::atomic<bool> cancel{false};
    QList<WaveformPeaks> shown;
    const WaveformPeaks peaks = Waveform::compute(loudFirst, kColumns, cancel, [&](const WaveformPeaks& partial) {
        shown << partial;
        cancel = true;
    });
    EXPECT_EQ(peaks.columns(), 0);
    ASSERT_FALSE(shown.isEmpty());
    EXPECT_TRUE(shown.first().estimated);
    EXPECT_TRUE(firstHalfLouder(shown.first()));

    // The Clip tab shows the first song's sketch, then the second song is
    // selected mid-way: from then on only the second song's pictures show.
    ClipSourcesWrapper clip;
    QSignalSpy songs(&clip, &ClipSourcesWrapper::songsChanged);
    NotificationCenter::defaultCenter().post(VLCSWFileDropNotification,
                                             QVariantMap{{"filearray", QStringList{loudFirst, quietFirst}}});
    ASSERT_TRUE(songs.wait(10000));
    ASSERT_EQ(clip.browser().songs(), (QStringList{loudFirst, quietFirst}));
    bool switched = false;
    QList<bool> loudFirstShown;  // after the switch
    QObject::connect(&clip, &ClipSourcesWrapper::waveformChanged, [&] {
        if (switched && clip.waveform().columns() > 0)
            loudFirstShown << firstHalfLouder(clip.waveform());
    });
    clip.showWaveform(0, kColumns);
    ASSERT_TRUE(QTest::qWaitFor([&] { return clip.waveform().columns() > 0; }, 10000));
    EXPECT_TRUE(clip.waveform().estimated);
    EXPECT_TRUE(firstHalfLouder(clip.waveform()));
    switched = true;
    clip.showWaveform(1, kColumns);
    ASSERT_TRUE(QTest::qWaitFor([&] { return clip.waveform().complete() && clip.waveform().columns() > 0; }, 30000));
    EXPECT_EQ(clip.waveformRow(), 1);
    ASSERT_GE(loudFirstShown.size(), 2);  // the sketch, then the decoded picture
    EXPECT_EQ(loudFirstShown.count(true), 0);
}
