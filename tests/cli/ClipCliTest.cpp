#include "encode/EncodeTestSupport.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>

namespace {

struct CliRun {
    int exitCode = -1;
    QStringList printed;  // standard output, one file a line
    QString err;
};

CliRun clip(const QStringList& arguments)
{
    QProcess process;
    process.start(testsupport::builtProgram("velmora-cli"), QStringList{"clip"} + arguments);
    CliRun result;
    if (!process.waitForStarted(10000) || !process.waitForFinished(240000))
        return result;
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.printed = QString::fromUtf8(process.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    result.err = QString::fromUtf8(process.readAllStandardError());
    return result;
}

// The root mean square of a file's audio (mono, 16 kHz) between two times.
struct Loudness {
    QVector<double> samples;
    double rms(double from, double to) const
    {
        const qsizetype first = qsizetype(from * 16000), last = std::min(qsizetype(to * 16000), samples.size());
        double sum = 0;
        for (qsizetype i = first; i < last; ++i)
            sum += samples[i] * samples[i];
        return last > first ? std::sqrt(sum / double(last - first)) : 0;
    }
    double seconds() const { return double(samples.size()) / 16000; }
};

Loudness loudness(const QString& path)
{
    QByteArray pcm;
    testsupport::run("ffmpeg", {"-v", "error", "-i", path, "-f", "s16le", "-ac", "1", "-ar", "16000", "-"}, &pcm);
    Loudness result;
    for (qsizetype at = 0; at + 1 < pcm.size(); at += 2)
        result.samples << qFromLittleEndian<qint16>(pcm.constData() + at) / 32768.0;
    return result;
}

class ClipCliTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        // A quiet tone, so that 6 dB more does not clip, with tags to copy or leave.
        source_ = dir_.filePath("song.mp3");
        const QString wav = dir_.filePath("song.wav");
        ASSERT_EQ(
            testsupport::run("sox", {"-n", "-r", "44100", "-c", "2", wav, "synth", "8", "sine", "440", "vol", "0.3"}),
            0);
        ASSERT_EQ(testsupport::run("lame", {"--quiet", "-b", "128", "--tt", "Tone", "--ta", "Band", wav, source_}), 0);
        wav_ = wav;
    }
    QTemporaryDir dir_;
    QString source_;
    QString wav_;
};

}  // namespace

TEST_F(ClipCliTest, EveryFormatGetsAClipOfTheRightLength)
{
    const struct {
        const char* type;
        const char* codec;
        double tolerance;  // AAC keeps its encoder's priming in the file's length
    } formats[] = {{"WAV", "pcm_s16le", 0.02}, {"MP3", "mp3", 0.02}, {"OGG", "vorbis", 0.02}, {"M4R", "aac", 0.05}};
    for (const auto& format : formats) {
        SCOPED_TRACE(format.type);
        const QString out = dir_.filePath(QStringLiteral("out-%1").arg(format.type));
        const CliRun run = clip({"--start", "1.5", "--length", "2.25", "--to", format.type, "--out", out, wav_});
        ASSERT_EQ(run.exitCode, 0) << qPrintable(run.err);
        ASSERT_EQ(run.printed, QStringList{out + "/song." + format.type});
        const encodetest::Probe made = encodetest::probe(run.printed.first());
        EXPECT_EQ(made.codec, format.codec);
        // As played: the decoders drop the encoders' padding.
        EXPECT_NEAR(encodetest::measureTone(run.printed.first()).seconds, 2.25, format.tolerance);
        // Nothing but the clip is left in the folder.
        EXPECT_EQ(QDir(out).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot).size(), 1);
    }
    // A ringtone is AAC in an MP4 container.
    QByteArray formatName;
    testsupport::run(
        "ffprobe",
        {"-v", "error", "-show_entries", "format=format_name", "-of", "csv=p=0", dir_.filePath("out-M4R/song.M4R")},
        &formatName);
    EXPECT_TRUE(formatName.contains("mp4")) << formatName.constData();
}

TEST_F(ClipCliTest, FadesAndGainShapeTheClip)
{
    const CliRun plain = clip({"--start", "1", "--length", "4", "--to", "WAV", "--out", dir_.filePath("plain"), wav_});
    const CliRun shaped = clip({"--start", "1", "--length", "4", "--fade-in", "1", "--fade-out", "1", "--volume", "6",
                                "--to", "WAV", "--out", dir_.filePath("shaped"), wav_});
    ASSERT_EQ(plain.exitCode, 0) << qPrintable(plain.err);
    ASSERT_EQ(shaped.exitCode, 0) << qPrintable(shaped.err);
    const Loudness before = loudness(plain.printed.value(0));
    const Loudness after = loudness(shaped.printed.value(0));
    const double middle = after.rms(1.8, 2.2);
    EXPECT_LT(after.rms(0, 0.05), middle * 0.1);
    EXPECT_LT(after.rms(after.seconds() - 0.05, after.seconds()), middle * 0.1);
    // 6 dB is about twice the amplitude.
    EXPECT_NEAR(middle / before.rms(1.8, 2.2), 2.0, 0.05);
}

TEST_F(ClipCliTest, TagsAreCopiedUnlessRefused)
{
    const CliRun tagged = clip({"--start", "0", "--length", "2", "--to", "MP3", "--out", dir_.filePath("t"), source_});
    const CliRun bare =
        clip({"--start", "0", "--length", "2", "--no-tags", "--to", "M4A", "--out", dir_.filePath("b"), source_});
    ASSERT_EQ(tagged.exitCode, 0) << qPrintable(tagged.err);
    ASSERT_EQ(bare.exitCode, 0) << qPrintable(bare.err);
    EXPECT_EQ(encodetest::probe(tagged.printed.value(0)).tags.value("title").toString(), "Tone");
    const QJsonObject none = encodetest::probe(bare.printed.value(0)).tags;
    for (const char* key : {"title", "artist", "album"})
        EXPECT_FALSE(none.contains(key)) << key;
}

TEST_F(ClipCliTest, BadInputIsRefusedWithAReason)
{
    const QString out = dir_.filePath("out");
    // Missing or malformed options: usage.
    EXPECT_EQ(clip({"--length", "2", "--to", "WAV", "--out", out, wav_}).exitCode, 2);
    EXPECT_EQ(clip({"--start", "x", "--length", "2", "--to", "WAV", "--out", out, wav_}).exitCode, 2);
    EXPECT_EQ(clip({"--start", "0", "--length", "2", "--to", "FLAC", "--out", out, wav_}).exitCode, 2);
    // A start past the song's end leaves nothing to cut; a missing file is named.
    const CliRun empty =
        clip({"--start", "30", "--length", "2", "--to", "MP3", "--out", out, wav_, dir_.filePath("missing.wav")});
    EXPECT_EQ(empty.exitCode, 1);
    EXPECT_TRUE(empty.err.contains("would be empty")) << qPrintable(empty.err);
    EXPECT_TRUE(empty.err.contains("missing.wav: no such file")) << qPrintable(empty.err);
    EXPECT_TRUE(empty.printed.isEmpty());
    EXPECT_TRUE(QDir(out).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot));
}
