#include "disc/AIFFTrackProducer.h"
#include "disc/QuenlorFileProducer.h"
#include "common/BurnFixtures.h"
#include "common/TestSupport.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace burnfixtures;

namespace {

class BurnProducers : public ::testing::Test {
protected:
    QTemporaryDir dir {testsupport::homeDir() + "/producers-XXXXXX"};

    QString file(const QString& name, const QByteArray& bytes)
    {
        const QString path = dir.filePath(name);
        testsupport::writeFile(path, bytes);
        return path;
    }
    // Everything the producer hands out, asked for in requests of `request` bytes.
    static QByteArray produceAll(AudioTrackProducer& producer, qint64 request = 2352 * 3)
    {
        QString error;
        EXPECT_TRUE(producer.prepareTrack(&error)) << qPrintable(error);
        QByteArray all;
        QByteArray buffer(request, '\0');
        for (qint64 got; (got = producer.produceData(buffer.data(), request)) > 0;)
            all += buffer.left(got);
        producer.cleanupTrackAfterBurn();
        return all;
    }
};

PcmPlan plan(int channels, qint64 frames, quint32 rate = 44100, int bits = 16)
{
    PcmPlan p;
    p.channels = channels;
    p.frames = frames;
    p.rate = rate;
    p.bits = bits;
    return p;
}

TEST_F(BurnProducers, HeadersGiveTheLengthOrTheReason)
{
    PcmPlan lying = plan(2, 588 * 6);
    lying.declaredDataBytes = 588 * 4 * 100;  // far more than the file holds
    PcmPlan aiffShort = plan(2, 588 * 6);
    aiffShort.declaredDataBytes = 588 * 4 * 50;
    QByteArray listFirst = wavFile(plan(2, 588 * 4));
    // A LIST chunk before "fmt " is stepped over by its size read big-endian.
    listFirst.insert(12, QByteArray("LIST\x04\x00\x00\x00" "abcd", 12));
    QByteArray noFrames = aiffFile(plan(2, 0));

    const struct {
        const char* name;
        QByteArray bytes;
        qint64 blocks;     // -1: refused
        const char* why;   // the reason, when refused
    } rows[] = {
        // WAV leaves out its first 8 bytes (2 frames): 5980 - 2 frames are 10 whole blocks.
        {"stereo.wav", wavFile(plan(2, 588 * 10 + 100)), 10, ""},
        {"exact.wav", wavFile(plan(2, 588 * 10)), 9, ""},
        {"stereo.aiff", aiffFile(plan(2, 588 * 10 + 100)), 10, ""},
        {"mono.wav", wavFile(plan(1, 588 * 20)), 19, ""},
        {"six.aiff", aiffFile(plan(6, 588 * 7)), 7, ""},
        {"eight-bit.wav", wavFile(plan(2, 588 * 8 + 4, 44100, 8)), 8, ""},
        // 22,050 Hz AIFF is taken, as if it were 44,100 Hz.
        {"half-rate.aiff", aiffFile(plan(2, 588 * 5, 22050)), 5, ""},
        {"lying.wav", wavFile(lying), 5, ""},
        {"short.aiff", aiffFile(aiffShort), 6, ""},
        {"no-frames.aiff", noFrames, 0, ""},
        {"five.wav", wavFile(plan(5, 588)), -1, "invalid number of channels (5)"},
        {"48k.wav", wavFile(plan(2, 588, 48000)), -1, "invalid sample frequency ($0000BB80)"},
        {"half-rate.wav", wavFile(plan(2, 588, 22050)), -1, "invalid sample frequency ($00005622)"},
        {"list.wav", listFirst, -1, "no format chunk"},
        {"text.wav", QByteArray(64, 'x'), -1, "neither a WAV nor an AIFF"},
    };
    for (const auto& row : rows) {
        const QString path = file(row.name, row.bytes);
        AIFFTrackProducer::FileInfo info;
        QString why;
        const bool parsed = AIFFTrackProducer::parseFileAtPath(path, &info, &why);
        EXPECT_EQ(parsed, row.blocks >= 0) << row.name;
        if (parsed)
            EXPECT_EQ(AIFFTrackProducer(path).length(), row.blocks) << row.name;
        else
            EXPECT_TRUE(why.contains(QLatin1String(row.why))) << row.name << " " << qPrintable(why);
    }
}

TEST_F(BurnProducers, ChannelsAreMixedToLittleEndianStereo)
{
    // Each channel holds one value all along: 300, 600, 900, ...
    auto constant = [](qint64, int channel) { return quint32(300 * (channel + 1)); };
    const struct {
        const char* name;
        bool aiff;
        int channels;
        quint16 left, right;
    } rows[] = {
        {"mono.aiff", true, 1, 300, 300},
        {"stereo.aiff", true, 2, 300, 600},
        {"stereo.wav", false, 2, 300, 600},
        // A mono WAV is read byte-swapped like the rest: 0x012C becomes 0x2C01.
        {"mono.wav", false, 1, 0x2C01, 0x2C01},
        {"three.aiff", true, 3, 200 + 600, 400 + 600},
        {"four.aiff", true, 4, 200 + 800, 600 + 800},
        {"six.aiff", true, 6, 400 + 1200, 1200 + 1200},
    };
    for (const auto& row : rows) {
        PcmPlan p = plan(row.channels, 588 * 3);
        p.sample = constant;
        const QString path = file(row.name, row.aiff ? aiffFile(p) : wavFile(p));
        AIFFTrackProducer producer(path);
        const QByteArray out = produceAll(producer);
        ASSERT_GE(out.size(), 8) << row.name;
        EXPECT_EQ(out.size() % 4, 0) << row.name;
        const auto* bytes = reinterpret_cast<const unsigned char*>(out.constData()) + out.size() - 4;
        EXPECT_EQ(bytes[0] | bytes[1] << 8, row.left) << row.name;
        EXPECT_EQ(bytes[2] | bytes[3] << 8, row.right) << row.name;
    }
}

TEST_F(BurnProducers, WavSamplesPassThroughAfterEightBytesWithoutPadding)
{
    const QByteArray wav = wavFile(plan(2, 588 * 3 + 5));
    const QString path = file("song.wav", wav);
    for (const qint64 request : {qint64(4), qint64(2352), qint64(1000 * 4)}) {
        AIFFTrackProducer producer(path);
        // Every frame after the first 8 bytes, the part block included: the burner cuts to the length.
        EXPECT_EQ(produceAll(producer, request), wav.mid(44 + 8)) << request;
    }
    AIFFTrackProducer producer(path);
    QFile::remove(path);
    QString error;
    EXPECT_FALSE(producer.prepareTrack(&error));
    EXPECT_FALSE(error.isEmpty());
}

// An MPEG frame header and a body, after an ID3v2 tag of `tagBytes` in all.
QByteArray mp3Bytes(int tagBytes, const QByteArray& tail = {})
{
    QByteArray out;
    if (tagBytes > 0) {
        const int size = tagBytes - 10;
        out = QByteArray("ID3\x03\x00\x00", 6);
        for (int shift : {21, 14, 7, 0})
            out.append(char((size >> shift) & 0x7F));
        // One title frame, then padding.
        const QByteArray title("\x00Title Here", 11);
        out += "TIT2";
        for (int shift : {24, 16, 8, 0})
            out.append(char(title.size() >> shift));
        out += QByteArray(2, '\0') + title;
        out += QByteArray(tagBytes - out.size(), '\0');
    }
    out += QByteArray("\xFF\xFB\x90\x64", 4) + QByteArray(5000, 'm');
    return out + tail;
}

// Reads the disc file as the image writer does: requests of `request` bytes, each at the next address.
QByteArray discFile(QuenlorFileProducer& producer, qint64 request)
{
    QByteArray all;
    QByteArray buffer(request, '\0');
    while (all.size() < producer.calculateSizeOfFile()) {
        const qint64 got = producer.produceFile(buffer.data(), request, all.size());
        if (got <= 0)
            break;
        all += buffer.left(got);
    }
    return all.left(producer.calculateSizeOfFile());
}

TEST_F(BurnProducers, MusicFilesOnDataDiscs)
{
    const QByteArray tagged = mp3Bytes(4096);
    QByteArray v1("TAG");
    v1 += QByteArray(125, 'z');
    const struct {
        const char* name;
        QByteArray bytes;
        bool strip, append;
        qint64 size;
        QByteArray start;  // the disc file's first bytes
        bool tagged;       // ends in a made ID3v1 tag
    } rows[] = {
        {"strip-append.mp3", tagged, true, true, tagged.size() - 4096 + 128, "\xFF\xFB", true},
        {"strip.mp3", tagged, true, false, tagged.size() - 4096, "\xFF\xFB", false},
        {"append.mp3", tagged, false, true, tagged.size() + 128, "ID3", true},
        {"has-v1.mp3", mp3Bytes(4096, v1), true, true, tagged.size() - 4096 + 128, "\xFF\xFB", false},
        // No ID3v2 tag: nothing to strip, no frames for an ID3v1 tag.
        {"bare.mp3", mp3Bytes(0), true, true, mp3Bytes(0).size(), "\xFF\xFB", false},
    };
    for (const auto& row : rows) {
        const QString path = file(row.name, row.bytes);
        QuenlorFileProducer producer(path);
        producer.setPreferences(row.strip, row.append);
        producer.setFileIndex("002");
        ASSERT_TRUE(producer.prepareFileForBurn()) << row.name;
        EXPECT_EQ(producer.diskName(), QStringLiteral("002") + row.name);
        EXPECT_EQ(producer.calculateSizeOfFile(), row.size) << row.name;
        const QByteArray disc = discFile(producer, 1 << 20);
        EXPECT_TRUE(disc.startsWith(row.start)) << row.name;
        const QByteArray audio = row.bytes.mid(int(producer.skip()));
        EXPECT_EQ(disc.left(audio.size()), audio) << row.name;
        if (row.tagged) {
            EXPECT_TRUE(disc.right(128).startsWith("TAGTitle Here")) << row.name;
            EXPECT_EQ(disc.right(128).mid(97, 16), QByteArray("Velmora Converte")) << row.name;
        }
    }
    QuenlorNoID3FileProducer plain(file("plain.mp3", tagged));
    plain.setPreferences(true, true);
    ASSERT_TRUE(plain.prepareFileForBurn());
    EXPECT_EQ(discFile(plain, 4096), tagged.mid(4096));
}

TEST_F(BurnProducers, ATagSplitOverTwoRequestsStartsAgainFromItsFirstByte)
{
    // The producer lowers its count by the room left after the copy, not by
    // the bytes copied, so the second part of a split tag is its beginning again.
    const QString path = file("split.mp3", mp3Bytes(4096));
    QuenlorFileProducer producer(path);
    producer.setPreferences(true, true);
    ASSERT_TRUE(producer.prepareFileForBurn());
    const qint64 audio = producer.calculateSizeOfFile() - 128;
    QByteArray buffer(256, '\0');
    EXPECT_EQ(producer.produceFile(buffer.data(), 100, audio - 40), 100);  // 40 of audio, 60 of tag
    EXPECT_EQ(buffer.mid(40, 3), QByteArray("TAG"));
    EXPECT_EQ(producer.produceFile(buffer.data(), 68, audio + 60), 68);
    EXPECT_EQ(buffer.left(3), QByteArray("TAG"));
    // Asked for the whole tail at once, the tag comes whole.
    ASSERT_TRUE(producer.prepareFileForVerification());
    EXPECT_EQ(producer.produceFile(buffer.data(), 168, audio - 40), 168);
    EXPECT_EQ(buffer.mid(40, 13), QByteArray("TAGTitle Here"));
}

}  // namespace
