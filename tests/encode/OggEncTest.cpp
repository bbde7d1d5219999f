// The in-process Ogg Vorbis encoder called as the Ogg export job calls it, its
// files checked with the vorbis-tools (ogginfo, oggdec, vorbiscomment) and sox.
#include "encode/OggEnc.h"

#include "common/TestSupport.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <unistd.h>

#include <barrier>
#include <string>
#include <thread>
#include <vector>

using testsupport::run;

// libvorbisenc loses a residue set-up block for more than two channels
// (xiph/vorbis issue 91); the leak is in the library, not in the encoder.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:vorbis_encode_residue_setup\nleak:vorbis_encode_setup_init\n";
}

namespace {

// Calls the encoder with an argument vector whose program-name slot is empty.
int encode(const QStringList& arguments, std::string* messages = nullptr)
{
    std::vector<std::string> storage{""};
    for (const QString& argument : arguments)
        storage.push_back(argument.toStdString());
    std::vector<char*> argv;
    for (std::string& s : storage)
        argv.push_back(s.data());
    argv.push_back(nullptr);
    if (messages)
        testing::internal::CaptureStderr();
    const int status = oggenc_main(int(storage.size()), argv.data());
    if (messages)
        *messages = testing::internal::GetCapturedStderr();
    return status;
}

QString makeSound(const QTemporaryDir& dir, const QString& name, const QStringList& format, double seconds = 1.5,
                  int channels = 2)
{
    const QString path = dir.filePath(name);
    QStringList arguments{"-n", "-r", "44100", "-c", QString::number(channels)};
    arguments << format << path << "synth" << QString::number(seconds) << "sine" << "300-2000";
    EXPECT_EQ(run("sox", arguments), 0) << name.toStdString();
    return path;
}

long long samplesOf(const QString& path)
{
    QByteArray out;
    run("sox", {"--i", "-s", path}, &out);
    return out.trimmed().toLongLong();
}

int channelsOf(const QString& path)
{
    QByteArray out;
    run("sox", {"--i", "-c", path}, &out);
    return out.trimmed().toInt();
}

// ogginfo's verdict and its report.
bool oggInfoPasses(const QString& path, QByteArray* report = nullptr)
{
    QByteArray out;
    const int status = run("ogginfo", {path}, &out);
    if (report)
        *report = out;
    return status == 0 && !out.contains("WARNING") && !out.contains("ERROR");
}

// Decodes an Ogg file to a WAV with oggdec; the WAV's path, "" on failure.
QString decode(const QString& ogg)
{
    const QString wav = ogg + ".decoded.wav";
    return run("oggdec", {"-Q", "-o", wav, ogg}) == 0 ? wav : QString();
}

QStringList commentsOf(const QString& path)
{
    QByteArray out;
    run("vorbiscomment", {"-l", path}, &out);
    return QString::fromUtf8(out).split('\n', Qt::SkipEmptyParts);
}

TEST(OggEnc, EncodesEveryInputFormatToItsFullLength)
{
    QTemporaryDir dir;
    struct Case {
        QString name;
        QStringList format;
        int channels;
    } cases[] = {
        {"u8.wav", {"-b", "8", "-e", "unsigned"}, 2},
        {"s16.wav", {"-b", "16"}, 2},
        {"s24.wav", {"-b", "24"}, 2},
        {"s32.wav", {"-b", "32"}, 1},
        {"float.wav", {"-b", "32", "-e", "float"}, 2},
        {"six.wav", {"-b", "16"}, 6},
        {"s8.aiff", {"-b", "8"}, 2},
        {"s16.aiff", {"-b", "16"}, 2},
        {"s24.aiff", {"-b", "24"}, 1},
        {"six.aiff", {"-b", "16"}, 6},
        {"s16.aifc", {"-b", "16"}, 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name.toStdString());
        const QString input = makeSound(dir, c.name, c.format, 1.5, c.channels);
        const QString output = dir.filePath(c.name + ".ogg");
        std::string messages;
        ASSERT_EQ(encode({"-Q", "-b", "128", "-o", output, input}, &messages), 0) << messages;
        EXPECT_TRUE(messages.find(c.name.endsWith(".wav") ? "Opening with wav module: WAV file reader\n"
                                                          : "Opening with aiff module: AIFF/AIFC file reader\n") !=
                    std::string::npos)
            << messages;
        QByteArray report;
        EXPECT_TRUE(oggInfoPasses(output, &report)) << report.toStdString();
        const QString decoded = decode(output);
        ASSERT_FALSE(decoded.isEmpty());
        EXPECT_EQ(samplesOf(decoded), samplesOf(input));
        EXPECT_EQ(channelsOf(decoded), c.channels);
    }
}

TEST(OggEnc, DecodedAudioMatchesTheInput)
{
    // Wrongly decoded samples (byte order, sign, scale) would still make a valid
    // file of the right length; compare the signals themselves.
    QTemporaryDir dir;
    for (const QStringList& format : {QStringList{"-b", "16"}, QStringList{"-b", "24"}, QStringList{"-b", "32", "-e", "float"}}) {
        for (const QString extension : {"wav", "aiff"}) {
            if (format.contains("float") && extension == "aiff")
                continue;
            const QString input = makeSound(dir, "in." + extension, format, 1.0, 2);
            const QString output = dir.filePath("out.ogg");
            ASSERT_EQ(encode({"-Q", "-b", "192", "-o", output, input}), 0);
            const QString decoded = decode(output);
            ASSERT_FALSE(decoded.isEmpty());
            // The difference of input and decoded output, as sox measures it.
            const QString difference = dir.filePath("difference.wav");
            ASSERT_EQ(run("sox", {"-m", "-v", "1", input, "-v", "-1", decoded, "-b", "16", difference}), 0);
            QByteArray stats;
            run("sox", {difference, "-n", "stat"}, &stats);
            const QRegularExpression rms("RMS\\s+amplitude:\\s+([0-9.]+)");
            const auto match = rms.match(QString::fromUtf8(stats));
            ASSERT_TRUE(match.hasMatch()) << stats.toStdString();
            EXPECT_LT(match.captured(1).toDouble(), 0.02) << format.join(' ').toStdString() << " " << extension.toStdString();
        }
    }
}

TEST(OggEnc, BitrateModeIsAnAverageWithoutLimitsAndTagsAreWritten)
{
    QTemporaryDir dir;
    const QString input = makeSound(dir, "in.wav", {"-b", "16"}, 2);
    const QString output = dir.filePath("deeper/still/out.ogg"); // folders are made
    ASSERT_EQ(encode({"-Q", "-t", "Übermut", "-a", "Ärzte", "-l", "Album", "-N", "7", "-G", "Rock", "-d", "1999", "-b",
                      "160", "-o", output, input}),
              0);
    QByteArray report;
    ASSERT_TRUE(oggInfoPasses(output, &report)) << report.toStdString();
    EXPECT_TRUE(report.contains("Nominal bitrate: 160")) << report.toStdString();
    EXPECT_TRUE(report.contains("Upper bitrate not set")) << report.toStdString();
    EXPECT_TRUE(report.contains("Lower bitrate not set")) << report.toStdString();
    EXPECT_EQ(commentsOf(output), (QStringList{"title=Übermut", "artist=Ärzte", "album=Album", "tracknumber=7",
                                               "genre=Rock", "date=1999"}));

    // Rate management is off, exactly as oggenc's "-b" sets it up: the nominal rate
    // only picks the quality, so the streams come out the same size.
    const QString noise = dir.filePath("noise.wav");
    ASSERT_EQ(run("sox", {"-n", "-r", "44100", "-c", "2", "-b", "16", noise, "synth", "3", "pinknoise"}), 0);
    const QString ours = dir.filePath("ours.ogg"), theirs = dir.filePath("theirs.ogg");
    ASSERT_EQ(encode({"-Q", "-b", "160", "-o", ours, noise}), 0);
    ASSERT_EQ(run("oggenc", {"-Q", "-b", "160", "-o", theirs, noise}), 0);
    EXPECT_NEAR(double(QFileInfo(ours).size()), double(QFileInfo(theirs).size()), QFileInfo(theirs).size() * 0.01);

    // Without a bit rate the quality mode is used.
    const QString quality = dir.filePath("quality.ogg");
    ASSERT_EQ(encode({"-Q", "-o", quality, input}), 0);
    ASSERT_TRUE(oggInfoPasses(quality, &report));
    EXPECT_FALSE(report.contains("Nominal bitrate: 160")) << report.toStdString();
}

TEST(OggEnc, DownmixAndItsRefusal)
{
    QTemporaryDir dir;
    const QString stereo = makeSound(dir, "stereo.wav", {"-b", "16"});
    const QString mono = makeSound(dir, "mono.wav", {"-b", "16"}, 1, 1);
    const QString output = dir.filePath("out.ogg");
    std::string messages;
    ASSERT_EQ(encode({"--downmix", "-Q", "-b", "96", "-o", output, stereo}, &messages), 0);
    EXPECT_NE(messages.find("Downmixing stereo to mono\n"), std::string::npos) << messages;
    const QString decoded = decode(output);
    EXPECT_EQ(channelsOf(decoded), 1);
    EXPECT_EQ(samplesOf(decoded), samplesOf(stereo));

    const QString refused = dir.filePath("refused.ogg");
    EXPECT_NE(encode({"-Q", "--downmix", "-b", "96", "-o", refused, mono}, &messages), 0);
    EXPECT_NE(messages.find("ERROR: Can't downmix except from stereo to mono\n"), std::string::npos) << messages;
    EXPECT_FALSE(QFile::exists(refused));
}

TEST(OggEnc, CommandLineAndFileErrors)
{
    QTemporaryDir dir;
    const QString input = makeSound(dir, "in.wav", {"-b", "16"}, 0.5);
    const QString output = dir.filePath("out.ogg");
    std::string messages;

    EXPECT_NE(encode({"-Q", "-b", "128"}, &messages), 0);
    EXPECT_NE(messages.find("ERROR: No input files specified. Use -h for help.\n"), std::string::npos) << messages;

    EXPECT_NE(encode({"-Q", "-o", output, input, input}, &messages), 0);
    EXPECT_EQ(messages, "ERROR: Multiple input files with specified output filename: suggest using -n\n");
    EXPECT_NE(encode({"-Q", input, "-"}, &messages), 0);
    EXPECT_EQ(messages, "ERROR: Multiple files specified when using stdin\n");

    EXPECT_NE(encode({"-Q", "-b", "128", "-M", "200", "-o", output, input}, &messages), 0);
    EXPECT_NE(messages.find("Requesting a minimum or maximum bitrate requires --managed\n"), std::string::npos);
    EXPECT_FALSE(QFile::exists(output));

    EXPECT_NE(encode({"-Q", "-b", "5000", "-o", output, input}, &messages), 0);
    EXPECT_NE(messages.find("Mode initialisation failed: invalid parameters for bitrate\n"), std::string::npos)
        << messages;
    EXPECT_FALSE(QFile::exists(output));

    const QString missing = dir.filePath("missing.wav");
    EXPECT_NE(encode({"-Q", "-o", output, missing}, &messages), 0);
    EXPECT_EQ(messages, "ERROR: Cannot open input file \"" + missing.toStdString() + "\": No such file or directory\n");

    const QString text = dir.filePath("text.wav");
    ASSERT_TRUE(testsupport::writeFile(text, "not a sound file at all"));
    EXPECT_NE(encode({"-Q", "-o", output, text}, &messages), 0);
    EXPECT_EQ(messages, "ERROR: Input file \"" + text.toStdString() + "\" is not a supported format\n");

    // More channels than Vorbis can carry.
    QByteArray wide("RIFF\0\0\0\0WAVEfmt \x10\0\0\0\x01\0\0\x01\x44\xac\0\0\0\0\0\0\0\x02\x10\0data\0\x08\0\0", 44);
    wide += QByteArray(2048, '\0');
    const QString wideWav = dir.filePath("wide.wav");
    ASSERT_TRUE(testsupport::writeFile(wideWav, wide));
    EXPECT_NE(encode({"-Q", "-o", output, wideWav}, &messages), 0);
    EXPECT_NE(messages.find("255 channels should be enough for anyone. (Sorry, vorbis doesn't support more)\n"),
              std::string::npos)
        << messages;
    EXPECT_FALSE(QFile::exists(output));

    // A folder of the output path is a file.
    const QString blocked = dir.filePath("file/out.ogg");
    ASSERT_TRUE(testsupport::writeFile(dir.filePath("file"), "x"));
    EXPECT_NE(encode({"-Q", "-o", blocked, input}, &messages), 0);
    EXPECT_NE(messages.find("ERROR: Could not create required subdirectories for output filename \"" +
                            blocked.toStdString() + "\"\n"),
              std::string::npos)
        << messages;

    const QString unwritable = dir.filePath("ro");
    ASSERT_TRUE(QDir().mkpath(unwritable));
    QFile::setPermissions(unwritable, QFileDevice::ReadOwner | QFileDevice::ExeOwner);
    if (::access(unwritable.toLocal8Bit().constData(), W_OK) != 0) { // not when running as root
        EXPECT_NE(encode({"-Q", "-o", unwritable + "/out.ogg", input}, &messages), 0);
        EXPECT_NE(messages.find("ERROR: Cannot open output file \"" + unwritable.toStdString() +
                                "/out.ogg\": Permission denied\n"),
                  std::string::npos)
            << messages;
    }

    // Unknown options are refused by the option parser.
    EXPECT_NE(encode({"-Q", "--frobnicate", "-o", output, input}, &messages), 0);
}

TEST(OggEnc, SeveralInputsGetTheirOwnFilesAndStreams)
{
    QTemporaryDir dir;
    const QString first = makeSound(dir, "first.wav", {"-b", "16"}, 0.5);
    const QString second = makeSound(dir, "second.aiff", {"-b", "16"}, 0.7);
    std::string messages;
    ASSERT_EQ(encode({"-t", "One", "-t", "Two", "-b", "112", first, second}, &messages), 0);
    // Without -Q progress and statistics are shown.
    EXPECT_NE(messages.find("Done encoding file"), std::string::npos) << messages;
    const QString firstOgg = dir.filePath("first.ogg"), secondOgg = dir.filePath("second.ogg");
    ASSERT_TRUE(oggInfoPasses(firstOgg));
    ASSERT_TRUE(oggInfoPasses(secondOgg));
    EXPECT_EQ(commentsOf(firstOgg), QStringList{"title=One"});
    EXPECT_EQ(commentsOf(secondOgg), QStringList{"title=Two"});
    EXPECT_NE(testsupport::readFile(firstOgg).mid(14, 4), testsupport::readFile(secondOgg).mid(14, 4));
}

TEST(OggEnc, WavWithALyingDataLengthIsEncodedToItsRealEnd)
{
    QTemporaryDir dir;
    const QString honest = makeSound(dir, "honest.wav", {"-b", "16"}, 1.0);
    QByteArray bytes = testsupport::readFile(honest);
    const int data = bytes.indexOf("data");
    ASSERT_GT(data, 0);
    const long long realSamples = (bytes.size() - data - 8) / 4;
    // A header that claims far more than the file holds.
    bytes[data + 4] = char(0xf0), bytes[data + 5] = char(0xff), bytes[data + 6] = char(0xff), bytes[data + 7] = 0x7f;
    const QString lying = dir.filePath("lying.wav");
    ASSERT_TRUE(testsupport::writeFile(lying, bytes));
    const QString output = dir.filePath("out.ogg");
    ASSERT_EQ(encode({"-Q", "-b", "128", "-o", output, lying}), 0);
    EXPECT_TRUE(oggInfoPasses(output));
    EXPECT_EQ(samplesOf(decode(output)), realSamples);
}

TEST(OggEnc, EncodesStartedTogetherKeepTheirOwnOptions)
{
    QTemporaryDir dir;
    const QString input = makeSound(dir, "in.wav", {"-b", "16"}, 1.0);
    const int jobs = 4;
    for (int round = 0; round < 3; ++round) {
        std::barrier start(jobs);
        std::vector<int> results(jobs, -1);
        std::vector<std::thread> threads;
        for (int job = 0; job < jobs; ++job) {
            threads.emplace_back([&, job] {
                QStringList arguments{"-Q", "-t", QString("Title %1").arg(job), "-b", QString::number(64 + 32 * job),
                                      "-o", dir.filePath(QString("out%1.ogg").arg(job))};
                if (job % 2)
                    arguments.prepend("--downmix");
                arguments << input;
                start.arrive_and_wait();
                results[size_t(job)] = encode(arguments);
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        for (int job = 0; job < jobs; ++job) {
            SCOPED_TRACE(job);
            const QString output = dir.filePath(QString("out%1.ogg").arg(job));
            EXPECT_EQ(results[size_t(job)], 0);
            QByteArray report;
            ASSERT_TRUE(oggInfoPasses(output, &report)) << report.toStdString();
            EXPECT_TRUE(report.contains(QString("Nominal bitrate: %1").arg(64 + 32 * job).toUtf8()))
                << report.toStdString();
            EXPECT_TRUE(report.contains(job % 2 ? "Channels: 1" : "Channels: 2")) << report.toStdString();
            EXPECT_EQ(commentsOf(output), QStringList{QString("title=Title %1").arg(job)});
        }
    }
}

} // namespace
