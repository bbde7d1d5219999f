#include "../encode/EncodeTestSupport.h"
#include "core/Defaults.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <vector>

namespace {

class ExportCliTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir_.isValid());
        // A tagged two-second stereo Ogg Vorbis source at 22,050 Hz.
        source_ = dir_.filePath("source song.ogg");
        ASSERT_EQ(testsupport::run("ffmpeg", {"-v", "error", "-f", "lavfi", "-i", "sine=frequency=440:duration=2:sample_rate=22050",
                                              "-ac", "2", "-c:a", "libvorbis", "-metadata", "title=Tone Title", "-metadata", "artist=The Band",
                                              "-metadata", "album=Tones", "-metadata", "genre=Jazz", "-metadata", "track=3",
                                              "-metadata", "date=2004", source_}),
                  0);
    }
    int exportTo(const QStringList& arguments, QByteArray* output)
    {
        return testsupport::run(testsupport::builtProgram("velmora-cli"), QStringList {"export"} + arguments, output);
    }
    // Everything in a folder, hidden entries included.
    static QStringList entries(const QString& folder)
    {
        return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                                      QDir::Name);
    }
    static QStringList cachedIntermediates()
    {
        return QDir(testsupport::homeDir() + "/.cache/Velmora").entryList({"musiccache*"}, QDir::Files);
    }

    QTemporaryDir dir_;
    QString source_;
};

// WMA files carry no tags: the tag facade writes nothing into them.
struct Expectation {
    const char* type;
    const char* codec;
    bool tagged;
};

TEST_F(ExportCliTest, EveryChildProcessTypeMakesTheRightFile)
{
    const Expectation rows[] = {{"MP3", "mp3", true},  {"MP2", "mp2", false}, {"WMA", "wmav2", false},
                                {"WAV", "pcm_s16le", false}, {"AAC", "aac", true}, {"M4A", "aac", true},
                                {"M4B", "aac", true},  {"M4R", "aac", true}, {"OGG", "vorbis", true}};
    for (const Expectation& row : rows) {
        const QString destination = dir_.filePath(QStringLiteral("out.%1").arg(row.type));
        QByteArray output;
        ASSERT_EQ(exportTo({"--to", row.type, "--mono", "--resample", "48000", "--bitrate-index", "11", source_, destination},
                           &output),
                  0)
            << row.type << output.constData();
        // Standard output ends with the destination (the Ogg encoder may warn first).
        EXPECT_TRUE(output.trimmed().endsWith(destination.toUtf8())) << output.constData();
        const auto result = encodetest::probe(destination);
        EXPECT_EQ(result.codec, row.codec) << row.type;
        EXPECT_EQ(result.sampleRate, 48000) << row.type;
        // The WAV stage keeps the channels; the encoders downmix.
        EXPECT_EQ(result.channels, QString(row.type) == "WAV" ? 2 : 1) << row.type;
        EXPECT_NEAR(result.duration, 2.0, 0.1) << row.type;
        if (row.tagged) {
            EXPECT_EQ(result.tags.value("title").toString(), "Tone Title") << row.type;
            EXPECT_EQ(result.tags.value("artist").toString(), "The Band") << row.type;
            EXPECT_EQ(result.tags.value("album").toString(), "Tones") << row.type;
        }
    }
    EXPECT_EQ(encodetest::probe(dir_.filePath("out.MP3")).tags.value("genre").toString(), "Jazz");

    // AIFF copies and plain copies of the WAV just made.
    const QString wav = dir_.filePath("out.WAV");
    QByteArray output;
    ASSERT_EQ(exportTo({"--to", "AIFF", "--resample", "44100", wav, dir_.filePath("out.aiff")}, &output), 0) << output.constData();
    const auto aiff = encodetest::probe(dir_.filePath("out.aiff"));
    EXPECT_EQ(aiff.codec, "pcm_s16be");
    EXPECT_EQ(aiff.sampleRate, 44100);
    ASSERT_EQ(exportTo({"--to", "COPY", source_, dir_.filePath("flash/copy.OGG")}, &output), 0);
    EXPECT_EQ(testsupport::readFile(dir_.filePath("flash/copy.OGG")), testsupport::readFile(source_));
    // Nothing is left in the cache.
    EXPECT_FALSE(QFileInfo::exists(testsupport::homeDir() + "/.cache/Velmora/musiccache.WAV"));
}

TEST_F(ExportCliTest, VbrAndBitrateReachLame)
{
    QByteArray output;
    ASSERT_EQ(exportTo({"--to", "MP3", "--bitrate-index", "1", source_, dir_.filePath("low.mp3")}, &output), 0);
    ASSERT_EQ(exportTo({"--to", "MP3", "--bitrate-index", "14", source_, dir_.filePath("high.mp3")}, &output), 0);
    EXPECT_LT(QFileInfo(dir_.filePath("low.mp3")).size() * 4, QFileInfo(dir_.filePath("high.mp3")).size());
    // The run's settings are not written into the user's defaults.
    Defaults::standard().reload();
    EXPECT_FALSE(Defaults::standard().hasKey("mTSPBitrateStored"));
}

TEST_F(ExportCliTest, FailuresNameTheSourceOrTheMissingStep)
{
    testsupport::writeFile(dir_.filePath("garbage.ogg"), QByteArray(4096, '\x33'));
    QByteArray output;
    EXPECT_EQ(exportTo({"--to", "MP3", dir_.filePath("garbage.ogg"), dir_.filePath("g.mp3")}, &output), 1);
    EXPECT_TRUE(output.contains(dir_.filePath("garbage.ogg").toUtf8())) << output.constData();
    EXPECT_FALSE(QFileInfo::exists(dir_.filePath("g.mp3")));

    EXPECT_EQ(exportTo({"--to", "WMA", dir_.filePath("absent.flac"), dir_.filePath("a.wma")}, &output), 1);
    EXPECT_TRUE(output.contains("absent.flac")) << output.constData();

    // A chosen tool that does not answer like LAME is not handed to the MP3 job.
    const QString fake = dir_.filePath("fakelame");
    testsupport::writeFile(fake, "#!/bin/sh\necho not an encoder\n");
    QFile::setPermissions(fake, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    Defaults::standard().setObject("LamePath", fake);
    Defaults::standard().synchronize();
    EXPECT_EQ(exportTo({"--to", "MP3", source_, dir_.filePath("f.mp3")}, &output), 1);
    EXPECT_TRUE(output.contains("LAME")) << output.constData();
    EXPECT_FALSE(QFileInfo::exists(dir_.filePath("f.mp3")));
    Defaults::standard().removeObject("LamePath");
    Defaults::standard().synchronize();

    EXPECT_EQ(exportTo({"--to", "FLAC", source_, dir_.filePath("x.flac")}, &output), 2);
    EXPECT_EQ(exportTo({"--to", "MP3", "--resample", "32000", source_, dir_.filePath("x.mp3")}, &output), 2);
}

TEST_F(ExportCliTest, ConcurrentExportsEachKeepTheirOwnSourcesAudio)
{
    // Four runs at once, each decoding its own source to an intermediate WAV:
    // what each one writes is its own source's audio, whole.
    struct Source {
        int frequency;
        int seconds;
    };
    const Source sources[] = {{330, 2}, {550, 3}, {770, 4}, {990, 5}};
    std::vector<std::unique_ptr<QProcess>> runs;
    for (int i = 0; i < 4; ++i) {
        const QString wav = dir_.filePath(QStringLiteral("tone%1.wav").arg(i));
        ASSERT_TRUE(encodetest::makeTone(wav, sources[i].seconds, 44100, 2, {"-b", "16"}, sources[i].frequency));
        ASSERT_EQ(testsupport::run("oggenc", {"-Q", wav, "-o", dir_.filePath(QStringLiteral("tone%1.ogg").arg(i))}), 0);
    }
    for (int i = 0; i < 4; ++i) {
        auto process = std::make_unique<QProcess>();
        process->setProcessChannelMode(QProcess::MergedChannels);
        process->start(testsupport::builtProgram("velmora-cli"),
                       {"export", "--to", "MP3", dir_.filePath(QStringLiteral("tone%1.ogg").arg(i)),
                        dir_.filePath(QStringLiteral("out%1.mp3").arg(i))});
        runs.push_back(std::move(process));
    }
    for (int i = 0; i < 4; ++i) {
        ASSERT_TRUE(runs[i]->waitForFinished(120000));
        EXPECT_EQ(runs[i]->exitCode(), 0) << runs[i]->readAll().constData();
        const encodetest::Tone tone = encodetest::measureTone(dir_.filePath(QStringLiteral("out%1.mp3").arg(i)));
        EXPECT_NEAR(tone.seconds, sources[i].seconds, 0.1) << i;
        EXPECT_NEAR(tone.frequency, sources[i].frequency, sources[i].frequency * 0.02) << i;
    }
    EXPECT_EQ(cachedIntermediates(), QStringList());
}

TEST_F(ExportCliTest, AnExistingDestinationIsReplacedOnlyWhenAsked)
{
    const QString destination = dir_.filePath("kept.mp3");
    testsupport::writeFile(destination, "an older file");
    QByteArray output;
    EXPECT_EQ(exportTo({"--to", "MP3", source_, destination}, &output), 1);
    EXPECT_TRUE(output.contains("exists already")) << output.constData();
    EXPECT_EQ(testsupport::readFile(destination), QByteArray("an older file"));

    ASSERT_EQ(exportTo({"--to", "MP3", "--replace", source_, destination}, &output), 0) << output.constData();
    EXPECT_EQ(encodetest::probe(destination).codec, "mp3");
    ASSERT_EQ(exportTo({"--to", "COPY", "--replace", source_, destination}, &output), 0) << output.constData();
    EXPECT_EQ(testsupport::readFile(destination), testsupport::readFile(source_));
    EXPECT_EQ(entries(dir_.path()), (QStringList{"kept.mp3", "source song.ogg"}));
}

TEST_F(ExportCliTest, AFullDiskFailsTheExportAndLeavesEverythingAsItWas)
{
    // A file size limit stands in for a full disk: every write past 16 kB fails,
    // and some tools still report success with a cut-off file.
    const QString wav = dir_.filePath("ten seconds.wav");
    ASSERT_TRUE(encodetest::makeTone(wav, 10));
    struct Row {
        const char* type;
        QString source;
    };
    const Row rows[] = {{"MP3", wav}, {"MP2", wav}, {"WMA", wav}, {"OGG", wav}, {"WAV", source_}, {"COPY", wav}};
    for (const Row& row : rows) {
        const QString out = dir_.filePath(QStringLiteral("out %1").arg(row.type));
        const QString kept = out + QStringLiteral("/kept.%1").arg(row.type);
        testsupport::writeFile(kept, "the user's older file");
        for (const QString& destination : {out + QStringLiteral("/new.%1").arg(row.type), kept}) {
            QByteArray output;
            EXPECT_EQ(testsupport::run("prlimit",
                                       {"--fsize=16000", testsupport::builtProgram("velmora-cli"), "export",
                                        "--replace", "--to", row.type, row.source, destination},
                                       &output),
                      1)
                << row.type << output.constData();
            EXPECT_TRUE(output.contains(QStringLiteral("no %1 file was made").arg(row.type).toUtf8()))
                << output.constData();
            EXPECT_TRUE(output.contains("the disk is full") || output.contains("largest file size"))
                << row.type << output.constData();
        }
        EXPECT_EQ(testsupport::readFile(kept), QByteArray("the user's older file")) << row.type;
        EXPECT_EQ(entries(out), QStringList{QStringLiteral("kept.%1").arg(row.type)}) << row.type;
    }
    EXPECT_EQ(cachedIntermediates(), QStringList());
}

TEST_F(ExportCliTest, InterruptStopsTheToolAndLeavesNothingBehind)
{
    const QString wav = dir_.filePath("long.wav");
    ASSERT_TRUE(encodetest::makeTone(wav, 180, 44100, 2, {"-b", "16"}));
    const QString destination = dir_.filePath("long.mp3");
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(testsupport::builtProgram("velmora-cli"), {"export", "--to", "MP3", wav, destination});
    QByteArray output;
    while (!output.contains("Encoding") && process.waitForReadyRead(20000))
        output += process.readAll();
    ASSERT_TRUE(output.contains("Encoding")) << output.constData();
    ::kill(pid_t(process.processId()), SIGINT);
    ASSERT_TRUE(process.waitForFinished(10000));
    output += process.readAll();
    EXPECT_EQ(process.exitCode(), 130) << output.constData();
    EXPECT_TRUE(output.contains("cancelled")) << output.constData();
    EXPECT_EQ(entries(dir_.path()), (QStringList{"long.wav", "source song.ogg"}));
}

TEST_F(ExportCliTest, HelpDescribesExport)
{
    QByteArray output;
    ASSERT_EQ(testsupport::run(testsupport::builtProgram("velmora-cli"), {"--help"}, &output), 0);
    EXPECT_TRUE(output.contains("export --to TYPE [--bitrate-index N] [--vbr] [--mono] [--resample 44100|48000] "
                                "[--replace] SOURCE DESTINATION"));
}

} // namespace
