// dvda-author as the audio-DVD burner runs it, and its authoring library with
// a small AOB limit: WAVs made by sox go in, and what comes out is read back
// by a demuxer of this test's own (pack headers, private-stream-1 packets,
// the LPCM sample order) and compared with the WAVs' samples.
#include "Author.h"
#include "common/TestSupport.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdint>
#include <map>
#include <vector>

using testsupport::builtProgram;
using testsupport::readFile;

namespace {

constexpr int kSector = 2048;
constexpr std::uint32_t kSamgSectors = 64;

std::uint32_t be16(const QByteArray& b, qsizetype at)
{
    return (std::uint8_t(b[at]) << 8) | std::uint8_t(b[at + 1]);
}

std::uint32_t be32(const QByteArray& b, qsizetype at)
{
    return (be16(b, at) << 16) | be16(b, at + 2);
}

struct Source {
    QString path;
    int rate, channels, bits;
    // Codes the private header and the IFOs give this format.
    int quantization, rateCode, assignment;
    QByteArray samples;  // the WAV's data chunk
    qint64 frames() const { return samples.size() / (channels * bits / 8); }
};

QByteArray dataChunk(const QByteArray& wav)
{
    for (qsizetype at = 12; at + 8 <= wav.size();) {
        const std::uint32_t length = std::uint8_t(wav[at + 4]) | (std::uint8_t(wav[at + 5]) << 8) |
                                     (std::uint8_t(wav[at + 6]) << 16) | (std::uint32_t(std::uint8_t(wav[at + 7])) << 24);
        if (wav.mid(at, 4) == "data")
            return wav.mid(at + 8, length);
        at += 8 + length + (length & 1);
    }
    return {};
}

// Different tones per channel, so a swapped or shifted channel shows.
Source makeSource(const QTemporaryDir& dir, const QString& name, int rate, int channels, int bits, const QString& length,
                  int quantization, int rateCode, int assignment)
{
    Source s{dir.filePath(name), rate, channels, bits, quantization, rateCode, assignment, {}};
    // Rate and channels given for the input too, so sox synthesises rather than resamples.
    QStringList args{"-r", QString::number(rate), "-c", QString::number(channels), "-n", "-b", QString::number(bits),
                     s.path, "synth", length};
    for (int c = 0; c < channels; ++c)
        args << "sine" << QString::number(220 + 110 * c);
    args << "vol" << "0.8";
    EXPECT_EQ(testsupport::run("sox", args), 0) << name.toStdString();
    s.samples = dataChunk(readFile(s.path));
    return s;
}

testsupport::Outcome runAuthor(const QStringList& arguments)
{
    return testsupport::runApart(builtProgram("dvda-author"), arguments);
}

// One LPCM packet as the demuxer found it.
struct Packet {
    int sector;
    std::uint64_t scr;  // 27 MHz
    int quantization, rateCode, assignment;
    bool hasPts;
    std::uint64_t pts;
    qsizetype unitOffset;  // where in `audio` the access unit the PTS belongs to starts
    QByteArray audio;
};

// Walks every pack of the concatenated AOBs.
std::vector<Packet> demux(const QByteArray& aob)
{
    std::vector<Packet> packets;
    EXPECT_EQ(aob.size() % kSector, 0);
    for (qsizetype sector = 0; sector * kSector < aob.size(); ++sector) {
        const QByteArray pack = aob.mid(sector * kSector, kSector);
        EXPECT_EQ(be32(pack, 0), 0x1BAu) << "pack " << sector;
        if (be32(pack, 0) != 0x1BA)
            return packets;
        const auto h = [&](int i) { return std::uint64_t(std::uint8_t(pack[4 + i])); };
        const std::uint64_t scrBase = ((h(0) >> 3) & 7) << 30 | (h(0) & 3) << 28 | h(1) << 20 | (h(2) >> 3) << 15 |
                                      (h(2) & 3) << 13 | h(3) << 5 | h(4) >> 3;
        const std::uint64_t scr = scrBase * 300 + ((h(4) & 3) << 7 | h(5) >> 1);
        qsizetype at = 14 + (pack[13] & 7);
        while (at + 6 <= pack.size()) {
            const std::uint32_t code = be32(pack, at);
            const qsizetype length = be16(pack, at + 4);
            EXPECT_LE(at + 6 + length, pack.size()) << "pack " << sector;
            if (code == 0x1BD) {
                const int headerLength = std::uint8_t(pack[at + 8]);
                const qsizetype payload = at + 9 + headerLength;
                Packet p{int(sector), scr, 0, 0, 0, (pack[at + 7] & 0x80) != 0, 0, 0, {}};
                if (p.hasPts) {
                    const auto b = [&](int i) { return std::uint64_t(std::uint8_t(pack[at + 9 + i])); };
                    p.pts = ((b(0) >> 1) & 7) << 30 | b(1) << 22 | (b(2) >> 1) << 15 | b(3) << 7 | b(4) >> 1;
                }
                EXPECT_EQ(std::uint8_t(pack[payload]), 0xA0);
                const int privateLength = std::uint8_t(pack[payload + 3]);
                p.quantization = std::uint8_t(pack[payload + 7]);
                p.rateCode = std::uint8_t(pack[payload + 8]);
                p.assignment = std::uint8_t(pack[payload + 10]);
                // The pointer counts from its own last byte.
                p.unitOffset = payload + 5 + be16(pack, payload + 4) - (payload + 4 + privateLength);
                const qsizetype audio = payload + 4 + privateLength;
                p.audio = pack.mid(audio, at + 6 + length - audio);
                packets.push_back(p);
            } else {
                EXPECT_TRUE(code == 0x1BB || code == 0x1BE) << std::hex << code;
            }
            at += 6 + length;
        }
        EXPECT_EQ(at, pack.size()) << "pack " << sector << " is not filled exactly";
    }
    return packets;
}

// Back to little-endian interleaved WAV samples.
QByteArray fromDvdOrder(const QByteArray& dvd, int channels, int bits)
{
    QByteArray wav(dvd.size(), '\0');
    if (bits == 16) {
        for (qsizetype i = 0; i + 1 < dvd.size(); i += 2) {
            wav[i] = dvd[i + 1];
            wav[i + 1] = dvd[i];
        }
        return wav;
    }
    const int samples = 2 * channels, pair = samples * 3;
    for (qsizetype p = 0; p + pair <= dvd.size(); p += pair)
        for (int s = 0; s < samples; ++s) {
            wav[p + 3 * s + 2] = dvd[p + 2 * s];
            wav[p + 3 * s + 1] = dvd[p + 2 * s + 1];
            wav[p + 3 * s] = dvd[p + 2 * samples + s];
        }
    return wav;
}

struct TrackEntry {
    std::uint32_t firstPts, lengthPts, firstSector, lastSector;
};

// The tracks of the ATSI's title table.
std::vector<TrackEntry> titleTracks(const QByteArray& atsi)
{
    const qsizetype table = kSector;
    const qsizetype title = table + be32(atsi, table + 12);
    const int count = std::uint8_t(atsi[title + 2]);
    const qsizetype sectors = title + be16(atsi, title + 10);
    std::vector<TrackEntry> tracks;
    for (int i = 0; i < count; ++i) {
        const qsizetype t = title + 16 + 20 * i, s = sectors + 12 * i;
        EXPECT_EQ(std::uint8_t(atsi[t + 2]), i + 1);
        tracks.push_back({be32(atsi, t + 4), be32(atsi, t + 8), be32(atsi, s + 4), be32(atsi, s + 8)});
    }
    return tracks;
}

// Everything a folder authored from `sources` must satisfy: the IFOs agree
// with each other and with the AOBs, and every track's audio is the WAV's.
void checkAuthored(const QString& dir, const std::vector<Source>& sources, std::uint32_t ppSector,
                   std::uint32_t aobLimitSectors)
{
    const QString ts = dir + "/AUDIO_TS/";
    QByteArray aob;
    int aobFiles = 0;
    for (int n = 1; QFileInfo::exists(ts + QString("ATS_01_%1.AOB").arg(n)); ++n, ++aobFiles) {
        const QByteArray part = readFile(ts + QString("ATS_01_%1.AOB").arg(n));
        EXPECT_LE(part.size(), qsizetype(aobLimitSectors) * kSector);
        if (QFileInfo::exists(ts + QString("ATS_01_%1.AOB").arg(n + 1))) {
            EXPECT_EQ(part.size(), qsizetype(aobLimitSectors) * kSector) << "only the last AOB may be short";
        }
        aob += part;
    }
    ASSERT_GT(aobFiles, 0);
    const std::uint32_t aobSectors = std::uint32_t(aob.size() / kSector);

    const QByteArray amg = readFile(ts + "AUDIO_TS.IFO"), samg = readFile(ts + "AUDIO_PP.IFO"),
                     atsi = readFile(ts + "ATS_01_0.IFO");
    EXPECT_EQ(readFile(ts + "AUDIO_TS.BUP"), amg);
    EXPECT_EQ(readFile(ts + "ATS_01_0.BUP"), atsi);
    ASSERT_EQ(amg.left(12), "DVDAUDIO-AMG");
    ASSERT_EQ(samg.left(12), "DVDAUDIOSAPP");
    ASSERT_EQ(atsi.left(12), "DVDAUDIO-ATS");
    const std::uint32_t amgSectors = std::uint32_t(amg.size() / kSector), atsiSectors = std::uint32_t(atsi.size() / kSector);
    EXPECT_EQ(be32(amg, 28), amgSectors - 1);
    EXPECT_EQ(be32(amg, 12), 2 * amgSectors + kSamgSectors - 1) << "sectors before the title set";
    EXPECT_EQ(samg.size(), qsizetype(kSamgSectors) * kSector);
    EXPECT_EQ(be32(atsi, 28), atsiSectors - 1);
    EXPECT_EQ(be32(atsi, 196), atsiSectors) << "the AOBs follow the ATSI";
    EXPECT_EQ(be32(atsi, 12), 2 * atsiSectors + aobSectors - 1) << "last sector of the title set";

    const std::vector<TrackEntry> tracks = titleTracks(atsi);
    ASSERT_EQ(tracks.size(), sources.size());
    ASSERT_EQ(be16(samg, 12), sources.size());
    for (int copy = 1; copy < 8; ++copy)
        EXPECT_EQ(samg.mid(copy * 16384, 16384), samg.left(16384)) << "copy " << copy;

    const std::vector<Packet> packets = demux(aob);
    ASSERT_EQ(packets.size(), aobSectors) << "one LPCM packet per pack";
    for (size_t i = 0; i < packets.size(); ++i) {
        if (i > 0) {
            EXPECT_GT(packets[i].scr, packets[i - 1].scr) << "pack " << i;
        }
        if (packets[i].hasPts) {
            EXPECT_LT(packets[i].scr, packets[i].pts * 300) << "pack " << i << " arrives after it is due";
        }
    }
    std::uint32_t nextSector = 0, nextPts = 585;
    for (size_t i = 0; i < sources.size(); ++i) {
        SCOPED_TRACE(sources[i].path.toStdString());
        const Source& s = sources[i];
        const TrackEntry& t = tracks[i];
        EXPECT_EQ(t.firstSector, nextSector);
        EXPECT_EQ(t.firstPts, nextPts);
        EXPECT_EQ(t.lengthPts, std::uint32_t((s.frames() * 90000 + s.rate / 2) / s.rate));
        nextSector = t.lastSector + 1;
        nextPts = t.firstPts + t.lengthPts;

        const qsizetype record = 16 + 52 * qsizetype(i);
        EXPECT_EQ(be32(samg, record + 4), t.firstPts);
        EXPECT_EQ(be32(samg, record + 8), t.lengthPts);
        const std::uint32_t aobStart = ppSector + kSamgSectors + atsiSectors;
        EXPECT_EQ(be32(samg, record + 40), aobStart + t.firstSector);
        EXPECT_EQ(be32(samg, record + 48), aobStart + t.lastSector);

        QByteArray audio;
        bool first = true;
        for (const Packet& p : packets) {
            if (p.sector < int(t.firstSector) || p.sector > int(t.lastSector))
                continue;
            if (p.hasPts) {
                // Access units last 40 samples at 44.1/48 kHz, 80 at 88.2/96 kHz.
                const qint64 unitSamples = 40 * (s.rate % 44100 == 0 ? s.rate / 44100 : s.rate / 48000);
                const qint64 sample = (audio.size() + p.unitOffset) / (s.channels * s.bits / 8);
                EXPECT_EQ(sample % unitSamples, 0) << "pack " << p.sector;
                EXPECT_EQ(p.pts, t.firstPts + std::uint64_t((sample * 90000 + s.rate / 2) / s.rate)) << "pack " << p.sector;
            }
            if (first) {
                EXPECT_TRUE(p.hasPts);
                EXPECT_EQ(p.pts, t.firstPts);
                first = false;
            }
            EXPECT_EQ(p.quantization, s.quantization);
            EXPECT_EQ(p.rateCode, s.rateCode);
            EXPECT_EQ(p.assignment, s.assignment);
            EXPECT_EQ(p.audio.size() % (2 * s.channels * s.bits / 8), 0) << "packs hold whole sample pairs";
            audio += p.audio;
        }
        const QByteArray samples = fromDvdOrder(audio, s.channels, s.bits);
        ASSERT_GE(samples.size(), s.samples.size());
        EXPECT_TRUE(samples.left(s.samples.size()) == s.samples) << "the AOB's samples differ from the WAV's";
        EXPECT_EQ(samples.mid(s.samples.size()).count('\0'), samples.size() - s.samples.size());
        EXPECT_LT(samples.size() - s.samples.size(), 2 * s.channels * s.bits / 8);
    }
    EXPECT_EQ(nextSector, aobSectors);
}

class DvdaAuthorTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        // An odd frame count leaves the last sample pair half full.
        sources = {makeSource(dir, "a.wav", 44100, 2, 16, "1", 0x0F, 0x8F, 1),
                   makeSource(dir, "b.wav", 96000, 2, 24, "48001s", 0x2F, 0x1F, 1),
                   makeSource(dir, "c.wav", 48000, 6, 16, "1", 0x00, 0x00, 12)};
        ASSERT_EQ(sources[1].frames() % 2, 1);
    }
    QStringList files() const
    {
        QStringList list;
        for (const Source& s : sources)
            list << s.path;
        return list;
    }

    QTemporaryDir dir;
    std::vector<Source> sources;
};

TEST_F(DvdaAuthorTest, AuthorsThreeFormatsThatReadBackExactly)
{
    const QString out = dir.filePath("DVD");
    QDir().mkpath(out + "/AUDIO_TS");
    testsupport::writeFile(out + "/AUDIO_TS/STALE.AOB", "old");  // replaced, not merged
    const testsupport::Outcome run = runAuthor(QStringList{"-pp", "1234", "-o", out, "-g"} << files());
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_TRUE(run.err.isEmpty());

    int lastPercent = -1;
    QStringList wrote;
    for (const QByteArray& line : run.out.split('\n')) {
        if (line.startsWith("Progress: ")) {
            const int percent = line.mid(10).chopped(1).toInt();
            EXPECT_GT(percent, lastPercent) << "one line per change";
            lastPercent = percent;
        } else if (line.startsWith("Wrote ")) {
            const QList<QByteArray> parts = line.split(' ');
            ASSERT_EQ(parts.size(), 3) << line.toStdString();
            EXPECT_EQ(QFileInfo(out + '/' + parts[1]).size(), parts[2].toLongLong()) << line.toStdString();
            wrote << QString(parts[1]).mid(9);
        } else {
            EXPECT_TRUE(line.isEmpty()) << line.toStdString();
        }
    }
    EXPECT_EQ(lastPercent, 100);
    EXPECT_EQ(wrote, (QStringList{"AUDIO_TS.IFO", "AUDIO_TS.BUP", "AUDIO_PP.IFO", "ATS_01_0.IFO", "ATS_01_1.AOB",
                                  "ATS_01_0.BUP"}));
    QStringList onDisk = QDir(out + "/AUDIO_TS").entryList(QDir::Files);
    wrote.sort();
    EXPECT_EQ(onDisk, wrote);
    EXPECT_EQ(QDir(out).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden), QStringList{"AUDIO_TS"});
    checkAuthored(out, sources, 1234, dvda::kAobSectorLimit);
}

TEST_F(DvdaAuthorTest, SplitsTheAudioIntoAobsAtTheLimit)
{
    dvda::AuthorOptions options;
    options.outputDir = dir.filePath("split").toStdString();
    for (const Source& s : sources)
        options.inputs.push_back(s.path.toStdString());
    options.aobSectorLimit = 97;
    const dvda::AuthorResult result = dvda::author(options);
    ASSERT_EQ(result.status, dvda::AuthorResult::Written) << result.message;
    EXPECT_TRUE(QFileInfo::exists(dir.filePath("split/AUDIO_TS/ATS_01_2.AOB")));
    std::map<std::string, std::uint64_t> claimed(result.files.begin(), result.files.end());
    for (const auto& [name, size] : claimed)
        EXPECT_EQ(QFileInfo(dir.filePath("split/") + QString::fromStdString(name)).size(), qint64(size)) << name;
    checkAuthored(dir.filePath("split"), sources, 0, 97);
}

TEST_F(DvdaAuthorTest, RefusesWhatDvdAudioCannotCarryBeforeWritingAnything)
{
    struct Case {
        const char* name;
        QStringList soxFormat;  // empty: the file is not made
        const char* reason;
    };
    const Case cases[] = {
        {"eight.wav", {"-r", "44100", "-c", "2", "-b", "8"}, "8-bit samples; DVD-Audio takes 16- or 24-bit"},
        {"float.wav", {"-r", "48000", "-c", "2", "-e", "floating-point", "-b", "32"}, "32-bit floating-point samples"},
        {"surround192.wav", {"-r", "192000", "-c", "6", "-b", "16"}, "6 channels at 192 kHz"},
        {"surround96.wav", {"-r", "96000", "-c", "6", "-b", "24"}, "at most 9.6 Mbit/s"},
        {"missing.wav", {}, "no such file"},
    };
    const QString out = dir.filePath("refused");
    QDir().mkpath(out + "/AUDIO_TS");
    testsupport::writeFile(out + "/AUDIO_TS/KEEP", "earlier disc");
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const QString bad = dir.filePath(c.name);
        if (!c.soxFormat.isEmpty()) {
            const QStringList args = QStringList{"-n"} + c.soxFormat + QStringList{bad, "synth", "0.1", "sine", "440"};
            ASSERT_EQ(testsupport::run("sox", args), 0);
        }
        const testsupport::Outcome run = runAuthor({"-o", out, "-g", sources[0].path, bad});
        EXPECT_EQ(run.exitCode, 2);
        EXPECT_EQ(run.err.count('\n'), 1) << run.err.toStdString();
        EXPECT_TRUE(run.err.startsWith("dvda-author: " + bad + ": ")) << run.err.toStdString();
        EXPECT_TRUE(run.err.contains(c.reason)) << run.err.toStdString();
        EXPECT_FALSE(run.out.contains("Wrote"));
        EXPECT_EQ(QDir(out).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden), QStringList{"AUDIO_TS"});
        EXPECT_EQ(QDir(out + "/AUDIO_TS").entryList(QDir::Files), QStringList{"KEEP"});

        const QString fresh = dir.filePath("never-made");
        EXPECT_EQ(runAuthor({"-o", fresh, "-g", bad}).exitCode, 2);
        EXPECT_FALSE(QFileInfo::exists(fresh)) << "the output folder is made only for audio that will be written";
    }
}

// A failure half-way (here: more AOB files than a title set may have) keeps the
// earlier AUDIO_TS and leaves nothing of the new one behind.
TEST_F(DvdaAuthorTest, AFailureKeepsTheEarlierFolder)
{
    const QString out = dir.filePath("failed");
    testsupport::writeFile(out + "/AUDIO_TS/KEEP", "earlier disc");
    dvda::AuthorOptions options;
    options.outputDir = out.toStdString();
    for (const Source& s : sources)
        options.inputs.push_back(s.path.toStdString());
    options.aobSectorLimit = 5;
    const dvda::AuthorResult result = dvda::author(options);
    EXPECT_EQ(result.status, dvda::AuthorResult::Failed);
    EXPECT_NE(result.message.find("more than 9 AOB files"), std::string::npos) << result.message;
    EXPECT_TRUE(result.files.empty());
    EXPECT_EQ(QDir(out).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden), QStringList{"AUDIO_TS"});
    EXPECT_EQ(QDir(out + "/AUDIO_TS").entryList(QDir::Files), QStringList{"KEEP"});
}

} // namespace
