#include "disc/DiscID.h"

#include <QList>

#include <algorithm>
#include <cstdint>
#include <cstdio>

int cddb_sum(long n)
{
    int sum = 0;
    for (; n > 0; n /= 10)
        sum += int(n % 10);
    return sum;
}

bool isCDDevice(const QString& path, const std::function<bool(const QString& device)>& isDrive)
{
    const QString prefix = QStringLiteral("/dev/");
    if (!path.startsWith(prefix))
        return false;
    return isDrive(prefix + path.mid(prefix.size()).left(5));
}

namespace {

constexpr int kHeaderBytes = 4;
constexpr int kDescriptorBytes = 11;

struct TocBytes {
    const QByteArray& bytes;

    int at(qsizetype offset) const { return offset < bytes.size() ? quint8(bytes[offset]) : 0; }
    qsizetype descriptor(long index) const { return kHeaderBytes + qsizetype(index) * kDescriptorBytes; }
    int point(long index) const { return index < 0 ? 0 : at(descriptor(index) + 3); }
    // Frames from the start of the lead-in; a descriptor outside the bytes reads as zero.
    long frames(long index) const
    {
        if (index < 0)
            return 0;
        const qsizetype d = descriptor(index);
        return (long(at(d + 8)) * 60 + at(d + 9)) * 75 + at(d + 10);
    }
};

}  // namespace

int cd_discid_main(const QByteArray& toc, QByteArray& out)
{
    // The table is copied into a buffer of its own size, all but its last byte:
    // the P frame of the last descriptor stays zero.
    QByteArray buffer(toc.size(), '\0');
    if (!toc.isEmpty())
        std::copy(toc.constBegin(), toc.constEnd() - 1, buffer.begin());
    const TocBytes bytes{buffer};

    const long length = (long(bytes.at(0)) << 8) | bytes.at(1);
    // As many descriptors as the length field gives and the bytes hold.
    const long present = buffer.size() > kHeaderBytes ? long(buffer.size() - kHeaderBytes) / kDescriptorBytes : 0;
    const long count = std::min(length >= 2 ? (length - 2) / kDescriptorBytes : 0, present);
    long sum = 0;
    int tracks = 0;
    long first = 1;  // index of track 1's descriptor
    QList<long> offsets;
    for (long i = 0; i < count; ++i) {
        if (bytes.point(i) > 99)
            continue;
        sum += cddb_sum(bytes.frames(i) / 75);
        ++tracks;
        offsets << bytes.frames(i);
        if (bytes.point(i) == 1)
            first = i;
    }
    // The lead-out is the descriptor just before track 1's: 0xA2 in a
    // single-session table (0xA0, 0xA1, 0xA2, then the tracks). Without any
    // descriptor both ends are descriptor 1.
    const long leadoutIndex = count == 0 ? 1 : first - 1;
    const long leadoutSeconds = bytes.frames(leadoutIndex) / 75;
    const uint32_t discid =
        (uint32_t(sum % 255) << 24) | (uint32_t(leadoutSeconds - bytes.frames(first) / 75) << 8) | uint32_t(tracks);

    char number[32];
    std::snprintf(number, sizeof number, "%08lx", static_cast<unsigned long>(discid));
    out = number;
    out += '+' + QByteArray::number(tracks);
    for (long offset : offsets)
        out += '+' + QByteArray::number(qint64(offset));
    out += '+' + QByteArray::number(qint64(leadoutSeconds));
    return int(out.size());
}
