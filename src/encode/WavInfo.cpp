#include "encode/WavInfo.h"

#include <QFile>

namespace {
quint32 le32(const char* bytes)
{
    const auto* b = reinterpret_cast<const unsigned char*>(bytes);
    return quint32(b[0]) | quint32(b[1]) << 8 | quint32(b[2]) << 16 | quint32(b[3]) << 24;
}
quint16 le16(const char* bytes)
{
    const auto* b = reinterpret_cast<const unsigned char*>(bytes);
    return quint16(b[0] | b[1] << 8);
}
} // namespace

bool getWAVInfo(const QString& path, int* sampleBits)
{
    if (sampleBits)
        *sampleBits = 0;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    char header[12];
    if (file.read(header, 12) != 12 || qstrncmp(header, "RIFF", 4) != 0 ||
        qstrncmp(header + 8, "WAVE", 4) != 0)
        return false;
    // Walk the chunks up to the format chunk; each size is checked against the file.
    const qint64 size = file.size();
    qint64 position = 12;
    while (position + 8 <= size) {
        char chunk[8];
        if (!file.seek(position) || file.read(chunk, 8) != 8)
            break;
        const quint32 length = le32(chunk + 4);
        if (qstrncmp(chunk, "fmt ", 4) == 0) {
            char format[16];
            if (length >= 16 && position + 8 + 16 <= size && file.read(format, 16) == 16 && sampleBits)
                *sampleBits = le16(format + 14);
            break;
        }
        position += 8 + qint64(length) + (length & 1);
    }
    return true;
}
