#include "encode/RipChecksums.h"

#include <QFile>

#include <algorithm>
#include <array>
#include <cstring>

namespace RipChecksums {

namespace {

constexpr quint32 kSectorFrames = 588;
constexpr quint32 kSkippedFrames = 5 * kSectorFrames;

// Eight tables, so that eight bytes are folded in per step (the reflected
// polynomial of zip and PNG).
using CrcTables = std::array<std::array<quint32, 256>, 8>;

constexpr CrcTables makeTables()
{
    CrcTables tables{};
    for (quint32 i = 0; i < 256; ++i) {
        quint32 c = i;
        for (int k = 0; k < 8; ++k)
            c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
        tables[0][i] = c;
    }
    for (quint32 i = 0; i < 256; ++i) {
        for (int t = 1; t < 8; ++t)
            tables[t][i] = (tables[t - 1][i] >> 8) ^ tables[0][tables[t - 1][i] & 0xFF];
    }
    return tables;
}

constexpr CrcTables kTables = makeTables();

quint32 le32(const unsigned char* p)
{
    return quint32(p[0]) | quint32(p[1]) << 8 | quint32(p[2]) << 16 | quint32(p[3]) << 24;
}

quint16 le16(const unsigned char* p)
{
    return quint16(p[0] | p[1] << 8);
}

}  // namespace

quint32 crc32(const unsigned char* data, std::size_t size, quint32 crc)
{
    crc = ~crc;
    while (size >= 8) {
        const quint32 low = le32(data) ^ crc;
        const quint32 high = le32(data + 4);
        crc = kTables[7][low & 0xFF] ^ kTables[6][(low >> 8) & 0xFF] ^ kTables[5][(low >> 16) & 0xFF] ^
              kTables[4][low >> 24] ^ kTables[3][high & 0xFF] ^ kTables[2][(high >> 8) & 0xFF] ^
              kTables[1][(high >> 16) & 0xFF] ^ kTables[0][high >> 24];
        data += 8;
        size -= 8;
    }
    while (size-- > 0)
        crc = kTables[0][(crc ^ *data++) & 0xFF] ^ (crc >> 8);
    return ~crc;
}

std::optional<PcmSpan> wavData(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return wavData(file);
}

std::optional<PcmSpan> wavData(QFile& file)
{
    if (!file.seek(0))
        return std::nullopt;
    const qint64 fileSize = file.size();
    unsigned char head[12];
    if (file.read(reinterpret_cast<char*>(head), 12) != 12 || std::memcmp(head, "RIFF", 4) != 0 ||
        std::memcmp(head + 8, "WAVE", 4) != 0)
        return std::nullopt;
    bool pcmStereo16 = false;
    qint64 position = 12;
    while (position + 8 <= fileSize) {
        unsigned char chunk[8];
        if (!file.seek(position) || file.read(reinterpret_cast<char*>(chunk), 8) != 8)
            return std::nullopt;
        const qint64 size = le32(chunk + 4);
        const qint64 body = position + 8;
        if (std::memcmp(chunk, "fmt ", 4) == 0) {
            unsigned char format[16];
            if (size < 16 || body + 16 > fileSize || file.read(reinterpret_cast<char*>(format), 16) != 16)
                return std::nullopt;
            // Plain PCM, or the extensible header around it.
            const quint16 tag = le16(format);
            pcmStereo16 = (tag == 1 || tag == 0xFFFE) && le16(format + 2) == 2 && le16(format + 14) == 16;
        } else if (std::memcmp(chunk, "data", 4) == 0) {
            if (!pcmStereo16 || body + size > fileSize)
                return std::nullopt;
            return PcmSpan{body, size};
        }
        position = body + size + (size & 1);
    }
    return std::nullopt;
}

Accumulator::Accumulator(qint64 totalFrames, bool firstTrack, bool lastTrack)
    : from_(firstTrack ? kSkippedFrames : 1),
      to_(lastTrack ? quint32(std::max<qint64>(totalFrames - kSkippedFrames, 0)) : quint32(totalFrames))
{
}

void Accumulator::addFrame(quint32 frame)
{
    if (position_ >= from_ && position_ <= to_) {
        const quint64 product = quint64(frame) * position_;
        v1_ += quint32(product);
        v2_ += quint32(product) + quint32(product >> 32);
    }
    ++position_;
    ++frames_;
}

void Accumulator::add(const unsigned char* data, std::size_t size)
{
    crc_ = crc32(data, size, crc_);
    if (partialSize_ > 0) {
        const std::size_t taken = std::min(4 - partialSize_, size);
        std::memcpy(partial_ + partialSize_, data, taken);
        partialSize_ += taken;
        data += taken;
        size -= taken;
        if (partialSize_ < 4)
            return;  // still short of a frame: keep the bytes for the next call
        addFrame(le32(partial_));
        partialSize_ = 0;
    }
    // Whole frames: only those between from_ and to_ count, so the loop over
    // them runs without a test per frame.
    const std::size_t frames = size / 4;
    const quint64 first = position_;
    const quint64 last = first + frames;  // one past
    const quint64 countFrom = std::clamp<quint64>(from_, first, last);
    const quint64 countTo = std::clamp<quint64>(quint64(to_) + 1, countFrom, last);
    quint32 v1 = v1_;
    quint32 v2 = v2_;
    for (quint64 position = countFrom; position < countTo; ++position) {
        const quint64 product = quint64(le32(data + 4 * (position - first))) * position;
        v1 += quint32(product);
        v2 += quint32(product) + quint32(product >> 32);
    }
    v1_ = v1;
    v2_ = v2;
    position_ = quint32(last);
    frames_ += qint64(frames);
    data += 4 * frames;
    size -= 4 * frames;
    std::memcpy(partial_, data, size);
    partialSize_ = size;
}

TrackSums Accumulator::sums() const
{
    return {crc_, v1_, v2_, frames_};
}

std::optional<TrackSums> forWav(const QString& path, bool firstTrack, bool lastTrack)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return forWav(file, firstTrack, lastTrack);
}

std::optional<TrackSums> forWav(QFile& file, bool firstTrack, bool lastTrack)
{
    const std::optional<PcmSpan> span = wavData(file);
    if (!span || !file.seek(span->offset))
        return std::nullopt;
    Accumulator sums(span->size / 4, firstTrack, lastTrack);
    QByteArray block(1 << 20, Qt::Uninitialized);
    for (qint64 left = span->size; left > 0;) {
        const qint64 got = file.read(block.data(), std::min<qint64>(left, block.size()));
        if (got <= 0)
            return std::nullopt;
        sums.add(reinterpret_cast<const unsigned char*>(block.constData()), std::size_t(got));
        left -= got;
    }
    return sums.sums();
}

}  // namespace RipChecksums
