// mqp as the player engine and the export jobs drive it: command lines on
// standard input for playing, "-e SOURCE -c SETTINGS DEST" for converting.
#include "common/TestSupport.h"
#include "platform/ResourceLocator.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

using testsupport::builtProgram;
using testsupport::run;

namespace {

QString mqp()
{
    return builtProgram("mqp");
}

// A test signal made by sox: "sox -n -r RATE -c CHANNELS path synth SECONDS KIND".
QString makeSignal(const QTemporaryDir& dir, const QString& name, double seconds, int rate = 44100,
                   int channels = 2, const QStringList& kind = {"pinknoise"})
{
    const QString path = dir.filePath(name);
    const QStringList arguments{"-n", "-r", QString::number(rate), "-c", QString::number(channels), "-b", "16",
                                path, "synth", QString::number(seconds)};
    const int status = run("sox", arguments + kind);
    EXPECT_EQ(status, 0) << "sox could not make " << name.toStdString();
    return path;
}

struct StreamInfo {
    QString codec;
    int rate = 0;
    int channels = 0;
    long long bitRate = 0;
    QString container;
};

StreamInfo probe(const QString& path)
{
    QByteArray out;
    run("ffprobe", {"-v", "error", "-select_streams", "a:0", "-show_entries",
                    "stream=codec_name,sample_rate,channels,bit_rate:format=format_name", "-of",
                    "default=noprint_wrappers=1", path},
        &out);
    StreamInfo info;
    for (const QByteArray& line : out.split('\n')) {
        const int equals = line.indexOf('=');
        if (equals < 0)
            continue;
        const QByteArray key = line.left(equals), value = line.mid(equals + 1).trimmed();
        if (key == "codec_name")
            info.codec = value;
        else if (key == "sample_rate")
            info.rate = value.toInt();
        else if (key == "channels")
            info.channels = value.toInt();
        else if (key == "bit_rate")
            info.bitRate = value.toLongLong();
        else if (key == "format_name")
            info.container = value;
    }
    return info;
}

int convert(const QString& source, const QString& settings, const QString& destination, QByteArray* output = nullptr)
{
    return run(mqp(), {"-e", source, "-c", settings, destination}, output);
}

// A player child process with the fake, real-time audio sink.
class PlayerProcess {
public:
    explicit PlayerProcess(const QString& file)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("MQP_AUDIO_SINK", "fakesink sync=true");
        process.setProcessEnvironment(environment);
        process.setProcessChannelMode(QProcess::SeparateChannels);
        process.start(mqp(), {file});
        process.waitForStarted(10000);
    }
    ~PlayerProcess()
    {
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished();
        }
    }
    void send(const QByteArray& line) { process.write(line + '\n'); process.waitForBytesWritten(); }
    // Sends a question and returns the answer line as a number; -1 when none came.
    int ask(const QByteArray& question)
    {
        send(question);
        QElapsedTimer timer;
        timer.start();
        while (!process.canReadLine() && process.state() == QProcess::Running && timer.elapsed() < 10000)
            process.waitForReadyRead(200);
        if (!process.canReadLine())
            return -1;
        bool ok = false;
        const int value = process.readLine().trimmed().toInt(&ok);
        return ok ? value : -2;
    }
    QProcess process;
};

TEST(MqpPlayer, PlaysPausesSeeksAndQuits)
{
    QTemporaryDir dir;
    const QString song = makeSignal(dir, "song.wav", 10, 44100, 2, QStringList{"sine", "440"});
    PlayerProcess player(song);
    ASSERT_EQ(player.process.state(), QProcess::Running);

    // Prerolled but silent until "play".
    EXPECT_EQ(player.ask("length"), 10);
    EXPECT_EQ(player.ask("time"), 0);
    QThread::msleep(1200);
    EXPECT_EQ(player.ask("time"), 0);

    player.send("volume 40");
    player.send("play");
    QThread::msleep(2300);
    const int playing = player.ask("time");
    EXPECT_GE(playing, 1);
    EXPECT_LE(playing, 3);

    // Paused, the position holds; a second pause resumes.
    player.send("pause");
    const int paused = player.ask("time");
    QThread::msleep(1500);
    EXPECT_EQ(player.ask("time"), paused);
    player.send("pause");
    QThread::msleep(1300);
    EXPECT_GT(player.ask("time"), paused);

    player.send("second-time 7");
    EXPECT_EQ(player.ask("time"), 7);
    player.send("time 20"); // percent of the song
    EXPECT_EQ(player.ask("time"), 2);

    // Malformed commands are ignored and the player still answers.
    player.send("volume loud");
    player.send("dance");
    EXPECT_GE(player.ask("time"), 2);

    player.send("quit");
    ASSERT_TRUE(player.process.waitForFinished(5000));
    EXPECT_EQ(player.process.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(player.process.exitCode(), 0);
}

TEST(MqpPlayer, EndOfSongAndEndOfInput)
{
    QTemporaryDir dir;
    const QString song = makeSignal(dir, "short.wav", 1, 22050, 1, QStringList{"sine", "300"});
    PlayerProcess player(song);
    ASSERT_EQ(player.process.state(), QProcess::Running);
    ASSERT_EQ(player.ask("time"), 0); // ready
    player.send("play");
    QThread::msleep(1800);
    // At the end the position stays on the length, and "play" starts over.
    EXPECT_EQ(player.ask("time"), 1);
    player.send("play");
    QThread::msleep(300);
    EXPECT_EQ(player.ask("time"), 0);
    // Closing its input (the parent went away) ends the player.
    player.process.closeWriteChannel();
    ASSERT_TRUE(player.process.waitForFinished(5000));
    EXPECT_EQ(player.process.exitCode(), 0);
}

TEST(MqpPlayer, FileThatCannotBePlayedEndsAtOnce)
{
    QTemporaryDir dir;
    const QString text = dir.filePath("notes.wav");
    ASSERT_TRUE(testsupport::writeFile(text, "these are not samples\n"));
    for (const QString& file : {text, dir.filePath("missing.mp3")}) {
        PlayerProcess player(file);
        // No command is sent: the player must give up on its own.
        ASSERT_TRUE(player.process.waitForFinished(15000)) << file.toStdString();
        EXPECT_NE(player.process.exitCode(), 0);
        EXPECT_FALSE(player.process.readAllStandardError().isEmpty());
    }
}

TEST(MqpConverter, WavSettingsResampleToStereo16Bit)
{
    QTemporaryDir dir;
    const QString mono48k = makeSignal(dir, "mono48k.wav", 2, 48000, 1);
    const QString stereo22k = makeSignal(dir, "stereo22k.wav", 2, 22050, 2);
    struct Case {
        QString source, settings;
        int rate;
    } cases[] = {{mono48k, "Audio44.1k", 44100}, {stereo22k, "Audio48k", 48000}, {stereo22k, "Audio44.1k", 44100}};
    for (const Case& c : cases) {
        const QString settings = ResourceLocator::pathForResource(c.settings);
        ASSERT_FALSE(settings.isEmpty()) << c.settings.toStdString();
        const QString out = dir.filePath("out.wav");
        QFile::remove(out);
        ASSERT_EQ(convert(c.source, settings, out), 0) << c.settings.toStdString();
        const StreamInfo info = probe(out);
        EXPECT_EQ(info.codec, "pcm_s16le");
        EXPECT_EQ(info.rate, c.rate);
        EXPECT_EQ(info.channels, 2);
        // Two seconds of 16-bit stereo plus a header.
        const qint64 expected = 2LL * c.rate * 4;
        EXPECT_NEAR(double(QFileInfo(out).size()), double(expected), expected * 0.01 + 100);
    }
}

TEST(MqpConverter, EveryAacSettingTheJobsNameMakesAacInMp4)
{
    QTemporaryDir dir;
    const QString source = makeSignal(dir, "noise.wav", 1, 44100, 2);
    const char* rates[] = {"032", "040", "048", "056", "064", "080", "096", "112", "128", "160", "192", "224"};
    for (const char* rate : rates) {
        for (const QString mode : {"MONO", "STEREO"}) {
            const QString name = QString("AACSettings/AAC%1BEST%2").arg(rate, mode);
            const QString settings = ResourceLocator::pathForResource(name);
            ASSERT_FALSE(settings.isEmpty()) << name.toStdString();
            const QString out = dir.filePath("out.m4a");
            QFile::remove(out);
            ASSERT_EQ(convert(source, settings, out), 0) << name.toStdString();
            const StreamInfo info = probe(out);
            EXPECT_EQ(info.codec, "aac") << name.toStdString();
            EXPECT_TRUE(info.container.contains("mp4")) << info.container.toStdString();
            EXPECT_EQ(info.rate, 44100);
            EXPECT_EQ(info.channels, mode == "MONO" ? 1 : 2) << name.toStdString();
            const double nominal = QString(rate).toInt() * 1000.0;
            EXPECT_NEAR(double(info.bitRate), nominal, nominal * 0.25) << name.toStdString();
        }
    }
}

TEST(MqpConverter, DecodesCompressedSourcesToWav)
{
    // What the WAV stage hands over when ffmpeg has failed: MP3, AAC in MP4, Ogg.
    QTemporaryDir dir;
    const QString wav = makeSignal(dir, "in.wav", 2, 48000, 1);
    const QString mp3 = dir.filePath("in.mp3"), m4a = dir.filePath("in.m4a"), ogg = dir.filePath("in.ogg");
    ASSERT_EQ(run("lame", {"--quiet", "-b", "128", wav, mp3}), 0);
    ASSERT_EQ(convert(wav, ResourceLocator::pathForResource("AACSettings/AAC128BESTSTEREO"), m4a), 0);
    ASSERT_EQ(run("oggenc", {"-Q", "-o", ogg, wav}), 0);
    for (const QString& source : {mp3, m4a, ogg}) {
        const QString out = dir.filePath("out.wav");
        QFile::remove(out);
        ASSERT_EQ(convert(source, ResourceLocator::pathForResource("Audio44.1k"), out), 0) << source.toStdString();
        const StreamInfo info = probe(out);
        EXPECT_EQ(info.codec, "pcm_s16le");
        EXPECT_EQ(info.rate, 44100);
        EXPECT_EQ(info.channels, 2);
        // Two seconds, give or take the encoders' padding.
        EXPECT_NEAR(double(QFileInfo(out).size()), 2.0 * 44100 * 4, 44100 * 4 * 0.1) << source.toStdString();
    }
}

TEST(MqpConverter, FailuresLeaveNoDestination)
{
    QTemporaryDir dir;
    const QString source = makeSignal(dir, "in.wav", 1);
    const QString out = dir.filePath("out.wav");

    // Settings that are missing, unknown or incomplete.
    const QString bad = dir.filePath("bad");
    for (const QByteArray& text : QList<QByteArray>{"format=flac\n", "format=aac\nchannels=2\n", "rate=44100\n",
                                                     "format=wav\nrate=fast\n", "format=wav\ncolour=blue\n"}) {
        ASSERT_TRUE(testsupport::writeFile(bad, text));
        QByteArray output;
        EXPECT_NE(convert(source, bad, out, &output), 0) << text.toStdString();
        EXPECT_FALSE(output.isEmpty());
        EXPECT_FALSE(QFile::exists(out));
    }
    EXPECT_NE(convert(source, dir.filePath("nowhere"), out), 0);

    // A source that is no audio at all.
    const QString text = dir.filePath("text.wav");
    ASSERT_TRUE(testsupport::writeFile(text, QByteArray(5000, 'x')));
    EXPECT_NE(convert(text, ResourceLocator::pathForResource("Audio44.1k"), out), 0);
    EXPECT_FALSE(QFile::exists(out));

    // Wrong command lines.
    EXPECT_EQ(run(mqp(), {"-e", source, out}), 2);
    EXPECT_EQ(run(mqp(), {}), 2);
}

} // namespace
