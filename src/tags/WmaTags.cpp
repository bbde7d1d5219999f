#include "tags/WmaTags.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <vector>

namespace {

constexpr unsigned char kHeaderObject[16] = {0x30, 0x26, 0xB2, 0x75, 0x8E, 0x66, 0xCF, 0x11,
                                             0xA6, 0xD9, 0x00, 0xAA, 0x00, 0x62, 0xCE, 0x6C};
constexpr unsigned char kFilePropertiesObject[16] = {0xA1, 0xDC, 0xAB, 0x8C, 0x47, 0xA9, 0xCF, 0x11,
                                                     0x8E, 0xE4, 0x00, 0xC0, 0x0C, 0x20, 0x53, 0x65};
constexpr unsigned char kContentDescriptionObject[16] = {0x33, 0x26, 0xB2, 0x75, 0x8E, 0x66, 0xCF, 0x11,
                                                         0xA6, 0xD9, 0x00, 0xAA, 0x00, 0x62, 0xCE, 0x6C};
constexpr unsigned char kExtendedContentDescriptionObject[16] = {0x40, 0xA4, 0xD0, 0xD2, 0x07, 0xE3, 0xD2, 0x11,
                                                                 0x97, 0xF0, 0x00, 0xA0, 0xC9, 0x5E, 0xA8, 0x50};
constexpr int kObjectHeaderLength = 24;

uint16_t le16(const char* p)
{
    return uint16_t(uint8_t(p[0]) | (uint8_t(p[1]) << 8));
}
uint32_t le32(const char* p)
{
    return uint32_t(le16(p)) | (uint32_t(le16(p + 2)) << 16);
}
uint64_t le64(const char* p)
{
    return uint64_t(le32(p)) | (uint64_t(le32(p + 4)) << 32);
}
// The writer of these files put the 16-bit lengths of the content description
// and the descriptor count one byte early and big-endian: the value at byte
// `at` is read as (byte[at] << 8) | byte[at + 1]. Byte 23 is the top byte of
// the object size, so lengths below 256 come out right.
int earlyBigEndian16(const QByteArray& object, qsizetype at)
{
    if (at + 2 > object.size())
        return 0;
    return (uint8_t(object[at]) << 8) | uint8_t(object[at + 1]);
}

// `characters` UTF-16LE units at `offset`, as far as the buffer holds them.
QString utf16Text(const QByteArray& bytes, qsizetype offset, qsizetype characters)
{
    if (offset < 0 || characters <= 0 || offset >= bytes.size())
        return {};
    characters = std::min(characters, (bytes.size() - offset) / 2);
    if (characters == 0)
        return {};
    std::vector<char16_t> units(static_cast<size_t>(characters));
    std::memcpy(units.data(), bytes.constData() + offset, size_t(characters) * 2);
    if constexpr (std::endian::native == std::endian::big)
        swap_bytes(units.data(), units.size() * 2);
    return QString::fromUtf16(units.data(), characters);
}

void insertNonEmpty(QVariantMap& record, const char* key, const QString& value)
{
    if (!value.isEmpty())
        record.insert(QLatin1String(key), value);
}

const char* keyForAttribute(const QString& name)
{
    if (name == QLatin1String("WM/Year"))
        return "year";
    if (name == QLatin1String("WM/Genre"))
        return "genre";
    if (name == QLatin1String("WM/AlbumTitle"))
        return "album";
    if (name == QLatin1String("WM/TrackNumber"))
        return "track";
    return nullptr;
}

void readContentDescription(const QByteArray& object, QVariantMap& record)
{
    const int titleLength = earlyBigEndian16(object, 23);
    const int authorLength = earlyBigEndian16(object, 25);
    // The counted terminator stays part of each text.
    insertNonEmpty(record, "title", utf16Text(object, 34, titleLength / 2));
    insertNonEmpty(record, "artist", utf16Text(object, 34 + titleLength, authorLength / 2));
}

void readExtendedContentDescription(const QByteArray& object, QVariantMap& record)
{
    const int count = earlyBigEndian16(object, 23);
    qsizetype at = 26;
    for (int i = 0; i < count; ++i) {
        if (at + 2 > object.size())
            return;
        const int nameLength = le16(object.constData() + at);
        at += 2;
        if (at + nameLength + 4 > object.size())
            return;
        const QString name = utf16Text(object, at, nameLength / 2 - 1);
        at += nameLength;
        const int type = le16(object.constData() + at);
        const int valueLength = le16(object.constData() + at + 2);
        at += 4;
        if (at + valueLength > object.size())
            return;
        std::optional<QString> value;
        if (type == 0)
            value = utf16Text(object, at, valueLength / 2 - 1);
        else if (type == 3 && valueLength >= 4)
            value = QString::asprintf("%ld", long(int32_t(le32(object.constData() + at))));
        at += valueLength;

        const char* key = keyForAttribute(name);
        if (!key)
            continue;
        if (!value)
            throw WmaAttributeError(QStringLiteral("%1 has a value of type %2").arg(name).arg(type).toStdString());
        insertNonEmpty(record, key, *value);
    }
}

// The whole object that starts `kObjectHeaderLength` bytes back, cut at the end of the file.
QByteArray readObject(QIODevice& device, uint64_t size)
{
    const qint64 start = device.pos() - kObjectHeaderLength;
    const uint64_t left = uint64_t(std::max<qint64>(device.size() - start, 0));
    const qint64 length = qint64(std::min(size, left));
    if (!device.seek(start))
        return {};
    return device.read(length);
}

} // namespace

void swap_bytes(void* buffer, size_t length)
{
    auto* bytes = static_cast<unsigned char*>(buffer);
    for (size_t i = 0; i + 1 < length; i += 2)
        std::swap(bytes[i], bytes[i + 1]);
}

QByteArray getWMAValue(const void* units, size_t unitCount)
{
    char buffer[132] = {};
    const auto* bytes = static_cast<const unsigned char*>(units);
    for (size_t i = 0; units && i < std::min<size_t>(unitCount, 128); ++i) {
        int16_t unit;
        std::memcpy(&unit, bytes + 2 * i, 2);
        buffer[i] = char(unit / 256);
        if (buffer[i] == 0)
            break;
    }
    return QByteArray(buffer);
}

const void* WMAmemmem(const void* haystack, size_t haystackLength, const void* needle, size_t needleLength)
{
    if (!haystack || !needle || haystackLength == 0 || needleLength == 0 || needleLength > haystackLength)
        return nullptr;
    const auto* start = static_cast<const unsigned char*>(haystack);
    const auto* wanted = static_cast<const unsigned char*>(needle);
    const auto* found = std::search(start, start + haystackLength, wanted, wanted + needleLength);
    return found == start + haystackLength ? nullptr : found;
}

QVariantMap getWMAComments(QIODevice& device)
{
    QVariantMap record;
    QByteArray extendedContentDescription;
    // Until the header object gives the number of objects, walk to the end of the file.
    int64_t objectsLeft = std::numeric_limits<int64_t>::max();
    char header[kObjectHeaderLength];
    while (device.read(header, kObjectHeaderLength) == kObjectHeaderLength) {
        const uint64_t size = le64(header + 16);
        if (std::memcmp(header, kHeaderObject, 8) == 0) {
            char count[6];
            if (device.read(count, 6) != 6)
                break;
            objectsLeft = le32(count);
        } else if (std::memcmp(header, kFilePropertiesObject, 16) == 0) {
            const QByteArray object = readObject(device, size);
            if (object.size() >= 72)
                record.insert(QStringLiteral("duration"),
                              QString::asprintf("%d", int(le64(object.constData() + 64) / 10000000ULL)));
        } else if (std::memcmp(header, kContentDescriptionObject, 16) == 0) {
            readContentDescription(readObject(device, size), record);
        } else if (std::memcmp(header, kExtendedContentDescriptionObject, 16) == 0) {
            extendedContentDescription = readObject(device, size);
        } else {
            // A size below the header's own would walk backwards forever.
            if (size < kObjectHeaderLength || size - kObjectHeaderLength > uint64_t(device.size() - device.pos()))
                break;
            if (!device.seek(device.pos() + qint64(size - kObjectHeaderLength)))
                break;
        }
        if (--objectsLeft < 0)
            break;
    }
    readExtendedContentDescription(extendedContentDescription, record);
    return record;
}

std::optional<QVariantMap> getWMAComments(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QVariantMap();
    return getWMAComments(file);
}

namespace {

// The attribute names the older reader looks for, cut to 12 characters, with the
// distance from the match to the value: the full name, its terminator, and the
// 16-bit type and length.
struct OldAttribute {
    const char* prefix;
    const char* key;
    int valueOffset;
};
constexpr OldAttribute kOldAttributes[] = {
    {"WM/AlbumArti", "artist", 34}, {"WM/AlbumTitl", "album", 32}, {"WM/TrackNumb", "track", 34},
    {"WM/Genre", "genre", 22},      {"WM/Year", "year", 20},
};

QByteArray utf16LittleEndian(const char* text)
{
    QByteArray bytes;
    for (const char* c = text; *c; ++c)
        bytes.append(*c).append('\0');
    return bytes;
}

QByteArray valueAt(const QByteArray& head, qsizetype offset)
{
    if (offset < 0 || offset >= head.size())
        return {};
    return getWMAValue(head.constData() + offset, size_t(head.size() - offset) / 2);
}

void insertIfAbsent(QVariantMap& record, const char* key, const QString& value)
{
    if (!record.contains(QLatin1String(key)) && !value.isEmpty())
        record.insert(QLatin1String(key), value);
}

} // namespace

QVariantMap wmatag_wrapper::commentsFromHead(const QByteArray& head, const QString& path)
{
    QVariantMap record;
    static const char kContentDescriptionPrefix[6] = {0x33, 0x26, char(0xB2), 0x75, char(0x8E), 0x66};
    if (const void* found = memmem(head.constData(), size_t(head.size()), kContentDescriptionPrefix, 6)) {
        const qsizetype object = static_cast<const char*>(found) - head.constData();
        const QByteArray rest = head.mid(object);
        insertNonEmpty(record, "title", QString::fromLatin1(valueAt(rest, 34)));
        insertNonEmpty(record, "artist", QString::fromLatin1(valueAt(rest, 34 + earlyBigEndian16(rest, 23))));
    }
    bool foundAttribute = false;
    for (const OldAttribute& attribute : kOldAttributes) {
        const QByteArray needle = utf16LittleEndian(attribute.prefix);
        const void* found = memmem(head.constData(), size_t(head.size()), needle.constData(), size_t(needle.size()));
        if (!found)
            continue;
        foundAttribute = true;
        const qsizetype at = static_cast<const char*>(found) - head.constData();
        const QString value = QString::fromLatin1(valueAt(head, at + attribute.valueOffset));
        if (!value.isEmpty())
            record.insert(QLatin1String(attribute.key), value);
    }
    if (!foundAttribute) {
        // Names like "Artist-Album-Track-Title[-Genre]", split at each bare hyphen.
        const QStringList pieces = QFileInfo(path).completeBaseName().split(QLatin1Char('-'));
        if (pieces.size() > 3) {
            insertIfAbsent(record, "artist", pieces[0]);
            insertIfAbsent(record, "album", pieces[1]);
            insertIfAbsent(record, "track", pieces[2]);
            insertIfAbsent(record, "title", pieces[3]);
        }
        if (pieces.size() == 5)
            insertIfAbsent(record, "genre", pieces[4]);
    }
    return record;
}

QVariantMap wmatag_wrapper::getComments(const QString& path)
{
    QFile file(path);
    QByteArray head;
    if (file.open(QIODevice::ReadOnly))
        head = file.read(65536);
    return commentsFromHead(head, path);
}
