#include "encode/RipChecksums.h"

#include "common/TestSupport.h"

#include <QTemporaryDir>
#include <QtEndian>

#include <gtest/gtest.h>

using namespace RipChecksums;

namespace {

QByteArray frames(qint64 count, quint32 value)
{
    QByteArray bytes(count * 4, Qt::Uninitialized);
    for (qint64 i = 0; i < count; ++i)
        qToLittleEndian(value, bytes.data() + 4 * i);
    return bytes;
}

QByteArray le32(quint32 value)
{
    QByteArray bytes(4, Qt::Uninitialized);
    qToLittleEndian(value, bytes.data());
    return bytes;
}

QByteArray chunk(const char* id, const QByteArray& body)
{
    return QByteArray(id, 4) + le32(quint32(body.size())) + body;
}

// fmt: PCM, channels, 44100 Hz, block align and bits as given.
QByteArray format(quint16 channels, quint16 bits)
{
    QByteArray body(16, '\0');
    qToLittleEndian<quint16>(1, body.data());
    qToLittleEndian<quint16>(channels, body.data() + 2);
    qToLittleEndian<quint32>(44100, body.data() + 4);
    qToLittleEndian<quint32>(44100 * channels * bits / 8, body.data() + 8);
    qToLittleEndian<quint16>(quint16(channels * bits / 8), body.data() + 12);
    qToLittleEndian<quint16>(bits, body.data() + 14);
    return chunk("fmt ", body);
}

QByteArray riff(const QByteArray& chunks)
{
    return "RIFF" + le32(quint32(chunks.size() + 4)) + "WAVE" + chunks;
}

}  // namespace

TEST(RipChecksums, Crc32IsTheZipOneWhateverTheSplit)
{
    const QByteArray check = "123456789";
    const auto* bytes = reinterpret_cast<const unsigned char*>(check.constData());
    EXPECT_EQ(crc32(bytes, 9), 0xCBF43926u);
    EXPECT_EQ(crc32(bytes + 4, 5, crc32(bytes, 4)), 0xCBF43926u);
    const QByteArray many(1000, 'a');  // past the eight-byte steps; zlib gives the same
    EXPECT_EQ(crc32(reinterpret_cast<const unsigned char*>(many.constData()), 1000), 0x9A38DA03u);
}

TEST(RipChecksums, AccurateRipSumsLeaveFiveSectorsOutAtTheDiscsEnds)
{
    // Sums worked out by hand for 6000 frames. Frames of value 1 add their
    // positions; frames of all ones (-1 in both channels) take each position
    // away in v1 and add 0xFFFFFFFF per frame in v2 (high and low words of
    // position * (2^32 - 1) sum to 2^32 - 1).
    struct Case {
        quint32 value;
        bool first, last;
        quint32 v1, v2;
    } cases[] = {
        {1, false, false, 18003000u, 18003000u},                  // 1 + ... + 6000
        {1, true, false, 13682670u, 13682670u},                   // 2940 + ... + 6000
        {1, false, true, 4683330u, 4683330u},                     // 1 + ... + 3060
        {1, true, true, 363000u, 363000u},                        // 2940 + ... + 3060
        {0xFFFFFFFFu, false, false, 0u - 18003000u, 0u - 6000u},  // all 6000 frames
        {0xFFFFFFFFu, true, true, 0u - 363000u, 0u - 121u},       // frames 2940 to 3060
    };
    for (const Case& c : cases) {
        const QByteArray pcm = frames(6000, c.value);
        Accumulator sums(6000, c.first, c.last);
        // In odd pieces, some shorter than a frame, so that frames are cut
        // between calls and a cut frame is filled over several.
        const qsizetype pieces[] = {4099, 1, 2, 1, 3, 2};
        for (qsizetype at = 0, i = 0; at < pcm.size(); at += pieces[i++ % 6])
            sums.add(reinterpret_cast<const unsigned char*>(pcm.constData()) + at,
                     std::size_t(std::min<qsizetype>(pieces[i % 6], pcm.size() - at)));
        const TrackSums result = sums.sums();
        EXPECT_EQ(result.accurateRipV1, c.v1) << c.value << c.first << c.last;
        EXPECT_EQ(result.accurateRipV2, c.v2) << c.value << c.first << c.last;
        EXPECT_EQ(result.frames, 6000);
        EXPECT_EQ(result.crc32, crc32(reinterpret_cast<const unsigned char*>(pcm.constData()), pcm.size()));
    }
}

TEST(RipChecksums, OnlyTheDataChunkOfStereo16BitWavFilesIsSummed)
{
    QTemporaryDir dir;
    const QByteArray pcm = frames(3, 1);
    struct Case {
        const char* name;
        QByteArray bytes;
        bool readable;
    } cases[] = {
        {"plain", riff(format(2, 16) + chunk("data", pcm)), true},
        {"odd chunk first", riff(format(2, 16) + chunk("LIST", "abc") + QByteArray(1, '\0') + chunk("data", pcm)),
         true},
        {"mono", riff(format(1, 16) + chunk("data", pcm)), false},
        {"24 bits", riff(format(2, 24) + chunk("data", pcm)), false},
        {"data cut short", riff(format(2, 16) + chunk("data", pcm)).chopped(2), false},
        {"no format", riff(chunk("data", pcm)), false},
        {"not RIFF", "RIFX" + riff(format(2, 16) + chunk("data", pcm)).mid(4), false},
    };
    for (const Case& c : cases) {
        const QString path = dir.filePath(c.name);
        ASSERT_TRUE(testsupport::writeFile(path, c.bytes));
        const auto sums = forWav(path, false, false);
        ASSERT_EQ(sums.has_value(), c.readable) << c.name;
        if (sums) {
            EXPECT_EQ(sums->accurateRipV1, 6u) << c.name;  // 1 + 2 + 3: not a byte of the header
        }
    }
}
