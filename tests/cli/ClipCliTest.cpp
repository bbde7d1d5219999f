#include "encode/EncodeTestSupport.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>

#include <signal.h>

namespace {

struct CliRun : testsupport::Outcome {
    QStringList printed;  // standard output, one file a line
};

CliRun clip(const QStringList& arguments)
{
    CliRun result;
    static_cast<testsupport::Outcome&>(result) =
        testsupport::runApart(testsupport::builtProgram("velmora-cli"), QStringList{"clip"} + arguments, 240000);
    result.printed = QString::fromUtf8(result.out).split('\n', Qt::SkipEmptyParts);
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
    } formats[] = {{"WAV", "pcm_s16le"}, {"MP3", "mp3"}, {"OGG", "vorbis"}, {"M4R", "aac"}};
    for (const auto& format : formats) {
        SCOPED_TRACE(format.type);
        const QString out = dir_.filePath(QStringLiteral("out-%1").arg(format.type));
        const CliRun run = clip({"--start", "1.5", "--length", "2.25", "--to", format.type, "--out", out, wav_});
        ASSERT_EQ(run.exitCode, 0) << qPrintable(run.err);
        ASSERT_EQ(run.printed, QStringList{out + "/song." + format.type});
        const encodetest::Probe made = encodetest::probe(run.printed.first());
        EXPECT_EQ(made.codec, format.codec);
        // As played: the decoders drop the encoders' priming and padding (ffmpeg
        // plays an MP4's last AAC frame whole, up to 23 ms more than its edit list says).
        EXPECT_NEAR(encodetest::measureTone(run.printed.first()).seconds, 2.25, 0.02);
        if (made.codec == "aac") {
            EXPECT_NEAR(made.duration, 2.25, 0.001);
        }
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

TEST_F(ClipCliTest, InterruptCancelsLeavingOnlyWholeClips)
{
    // Three songs of two minutes: each clip takes long enough that the interrupt
    // lands while the second is being made, however loaded the machine.
    const QString longSong = dir_.filePath("a.wav");
    ASSERT_EQ(testsupport::run("sox", {"-n", "-r", "44100", "-c", "2", "-b", "16", longSong, "synth", "120", "sine",
                                       "440", "vol", "0.3"}),
              0);
    const QStringList songs{longSong, dir_.filePath("b.wav"), dir_.filePath("c.wav")};
    for (const QString& copy : songs.mid(1))
        ASSERT_TRUE(QFile::copy(longSong, copy));
    const QString out = dir_.filePath("out");
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XDG_CACHE_HOME", dir_.filePath("cache"));
    process.setProcessEnvironment(environment);
    process.start(testsupport::builtProgram("velmora-cli"),
                  QStringList{"clip", "--start", "0", "--length", "120", "--to", "MP3", "--out", out} + songs);
    ASSERT_TRUE(process.waitForStarted());
    process.setReadChannel(QProcess::StandardError);  // wake on progress lines, not on files made
    QByteArray err;
    while (!err.contains("Clip of b.wav") && process.waitForReadyRead(60000))
        err += process.readAllStandardError();
    ASSERT_TRUE(err.contains("Clip of b.wav")) << err.constData();
    ::kill(pid_t(process.processId()), SIGINT);
    ASSERT_TRUE(process.waitForFinished(120000));
    err += process.readAllStandardError();
    EXPECT_EQ(process.exitCode(), 130) << err.constData();
    const QStringList printed = QString::fromUtf8(process.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    EXPECT_LT(printed.size(), 3) << err.constData();
    // What was printed is whole, and nothing else is left: no partial clip, no intermediate.
    QStringList left;
    for (const QString& folder : {out, dir_.filePath("cache")}) {
        QDirIterator files(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        while (files.hasNext())
            left << files.next();
    }
    EXPECT_EQ(left, printed) << err.constData();
    for (const QString& file : printed)
        EXPECT_NEAR(encodetest::probe(file).duration, 120.0, 0.1) << qPrintable(file);
}
