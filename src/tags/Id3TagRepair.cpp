#include "tags/Id3TagRepair.h"

#include <QtGlobal>

#include <utility>
#include <vector>

namespace Id3TagRepair {
namespace {

// Tags up to this size are read in one go; larger ones (pictures) frame header by frame header.
constexpr qint64 kReadWhole = 256 * 1024;

quint32 bigEndian(const QByteArray& bytes, qsizetype at, int count)
{
    quint32 value = 0;
    for (int i = 0; i < count; ++i)
        value = (value << 8) | quint8(bytes[at + i]);
    return value;
}

// A 28-bit syncsafe integer; one with a top bit set is read as a plain
// big-endian integer, as TagLib does for the tags of careless writers.
quint32 syncsafe(const QByteArray& bytes, qsizetype at)
{
    const int count = int(qMin<qsizetype>(4, bytes.size() - at));
    quint32 value = 0;
    for (int i = 0; i < count; ++i) {
        if (quint8(bytes[at + i]) & 0x80)
            return bigEndian(bytes.mid(at, 4).leftJustified(4, '\0'), 0, 4);
        value |= quint32(quint8(bytes[at + i]) & 0x7F) << (7 * (count - 1 - i));
    }
    return value;
}

QByteArray syncsafeBytes(qint64 value)
{
    QByteArray bytes(4, '\0');
    for (int i = 0; i < 4; ++i)
        bytes[i] = char((value >> (7 * (3 - i))) & 0x7F);
    return bytes;
}

QByteArray removeUnsynchronisation(const QByteArray& bytes)
{
    QByteArray out;
    out.reserve(bytes.size());
    for (qsizetype i = 0; i < bytes.size(); ++i) {
        out.append(bytes[i]);
        if (quint8(bytes[i]) == 0xFF && i + 1 < bytes.size() && bytes[i + 1] == 0)
            ++i;
    }
    return out;
}

bool isFrameId(const QByteArray& id)
{
    if (id.isEmpty())
        return false;
    for (const char c : id) {
        if ((c < 'A' || c > 'Z') && (c < '0' || c > '9'))
            return false;
    }
    return true;
}

// The bytes behind a tag's header, as many as the file holds of them.
class Body {
public:
    Body(const Reader& read, qint64 available, bool unsynchronised) : read_(read), size_(available)
    {
        // ID3v2.3 unsynchronisation covers the frame headers too: the whole body is decoded first.
        if (unsynchronised || available <= kReadWhole) {
            whole_ = read(10, available);
            if (unsynchronised)
                whole_ = removeUnsynchronisation(whole_);
            size_ = whole_.size();
            inMemory_ = true;
        }
    }

    qint64 size() const { return size_; }

    // In memory, the bytes are not copied: they stay valid while the body lives.
    QByteArray bytes(qint64 at, qint64 length) const
    {
        if (at < 0 || at >= size_ || length <= 0)
            return {};
        length = qMin(length, size_ - at);
        return inMemory_ ? QByteArray::fromRawData(whole_.constData() + at, length) : read_(10 + at, length);
    }

private:
    const Reader& read_;
    QByteArray whole_;
    qint64 size_;
    bool inMemory_ = false;
};

}  // namespace

std::optional<Repaired> repairLeadingTag(const Reader& read, qint64 fileSize)
{
    const QByteArray header = read(0, 10);
    if (header.size() < 10 || !header.startsWith("ID3"))
        return std::nullopt;
    // TagLib takes no tag whose size bytes are not syncsafe: there is nothing to mend.
    for (int i = 6; i < 10; ++i) {
        if (quint8(header[i]) & 0x80)
            return std::nullopt;
    }
    const int major = quint8(header[3]);
    const quint8 flags = quint8(header[5]);
    const bool footer = flags & 0x10;
    const qint64 tagSize = syncsafe(header, 6);
    const Body body(read, qBound<qint64>(0, fileSize - 10, tagSize), (flags & 0x80) && major <= 3);

    // The frames start behind an extended header (of 4 + n bytes in ID3v2.3,
    // n in ID3v2.4) and end at the end of the tag, a footer lying behind it.
    // TagLib takes every extended header for one of ID3v2.4, counts its size
    // off the end as well, and a footer too: where it looks is worked out
    // beside, and a frame it would not see there is one to mend.
    qint64 position = 0;
    qint64 tagLibStart = 0;
    qint64 tagLibEnd = body.size();
    if (flags & 0x40) {
        const QByteArray extended = body.bytes(0, 4);
        const qint64 tagLibSize = syncsafe(extended, 0);
        if (tagLibSize <= body.size()) {
            tagLibStart = tagLibSize;
            tagLibEnd -= tagLibSize;
        }
        const qint64 size = major == 3 && extended.size() == 4 ? 4 + qint64(bigEndian(extended, 0, 4)) : tagLibSize;
        position = qMin(size, body.size());
    }
    if (footer && tagLibEnd >= 10)
        tagLibEnd -= 10;
    const int headerSize = major < 3 ? 6 : 10;
    const qint64 framesStart = position;

    Repaired repaired;
    repaired.replaces = 10 + tagSize + (footer ? 10 : 0);
    std::vector<std::pair<qint64, qint64>> kept;  // where the frames that can be read lie
    bool tagLibMisses = false;
    while (position + headerSize < body.size()) {
        const QByteArray frameHeader = body.bytes(position, headerSize);
        if (frameHeader.size() < headerSize || frameHeader[0] == '\0')
            break;  // padding
        qint64 size = 0;
        if (major < 3) {
            size = bigEndian(frameHeader, 3, 3);
        } else if (major == 3) {
            size = bigEndian(frameHeader, 4, 4);
        } else {
            size = syncsafe(frameHeader, 4);
            // iTunes writes ID3v2.4 frames with plain sizes: the size that lands on a frame wins.
            if (size > 127 && !isFrameId(body.bytes(position + size + 10, 4))) {
                const qint64 plain = bigEndian(frameHeader, 4, 4);
                const QByteArray next = body.bytes(position + plain + 10, 4);
                if (next.size() == 4 && isFrameId(next))
                    size = plain;
            }
        }
        // A frame that runs past the tag ends the frames, for TagLib as here.
        if (size > body.size() - position)
            break;
        QByteArray id = frameHeader.left(major < 3 ? 3 : 4);
        if (major == 3 && id.endsWith('\0'))
            id.chop(1);  // iTunes puts ID3v2.2 frames into ID3v2.3 tags
        const bool lengthIndicator = major > 3 && (quint8(frameHeader[9]) & 0x01);
        if (!isFrameId(id) || size <= (lengthIndicator ? 4 : 0)) {
            ++repaired.dropped;
        } else {
            kept.emplace_back(position, headerSize + size);
            tagLibMisses = tagLibMisses || repaired.dropped > 0 || tagLibStart != framesStart ||
                           position + headerSize >= tagLibEnd;
        }
        position += headerSize + size;
    }
    if (!tagLibMisses)
        return std::nullopt;
    QByteArray frames;
    for (const auto& [at, length] : kept)
        frames += body.bytes(at, length);

    // The new tag has no extended header and no footer; an ID3v2.3 tag is
    // already decoded, while ID3v2.4 frames keep their own unsynchronisation.
    quint8 newFlags = flags & ~0x50;
    if (major <= 3)
        newFlags &= ~0x80;
    repaired.tag = header.left(5) + char(newFlags) + syncsafeBytes(frames.size()) + frames;
    return repaired;
}

}  // namespace Id3TagRepair
