#include "Mp4Fixtures.h"

#include "common/TestSupport.h"

#include <QImage>

namespace fixtures {

QByteArray be16(uint16_t value)
{
    return QByteArray(1, char(value >> 8)) + char(value & 0xFF);
}
QByteArray be32(uint32_t value)
{
    return be16(uint16_t(value >> 16)) + be16(uint16_t(value));
}
QByteArray be64(uint64_t value)
{
    return be32(uint32_t(value >> 32)) + be32(uint32_t(value));
}

QByteArray atom(const QByteArray& type, const QByteArray& payload)
{
    return be32(uint32_t(8 + payload.size())) + type + payload;
}

QByteArray dataAtom(uint32_t dataClass, const QByteArray& payload)
{
    return atom("data", be32(dataClass) + be32(0) + payload);
}

QByteArray ftyp()
{
    return atom("ftyp", QByteArray("M4A ") + be32(0) + "M4A mp42isom");
}

QByteArray mvhd(uint32_t timeScale, uint32_t duration)
{
    QByteArray body = be32(0) + be32(0) + be32(0) + be32(timeScale) + be32(duration);
    body += QByteArray(80, '\0');
    return atom("mvhd", body);
}

QByteArray m4aWithItems(const QByteArray& items, uint32_t timeScale, uint32_t duration)
{
    const QByteArray hdlr = atom("hdlr", be32(0) + be32(0) + "mdirappl" + QByteArray(9, '\0'));
    const QByteArray meta = atom("meta", be32(0) + hdlr + atom("ilst", items));
    const QByteArray moov = atom("moov", mvhd(timeScale, duration) + atom("udta", meta));
    return ftyp() + moov + atom("mdat", QByteArray(64, '\x55'));
}

QByteArray le16(uint16_t value)
{
    return QByteArray(1, char(value & 0xFF)) + char(value >> 8);
}
QByteArray le32(uint32_t value)
{
    return le16(uint16_t(value)) + le16(uint16_t(value >> 16));
}
QByteArray le64(uint64_t value)
{
    return le32(uint32_t(value)) + le32(uint32_t(value >> 32));
}

QByteArray utf16(const QString& text, bool terminator)
{
    QByteArray bytes;
    for (QChar c : text)
        bytes += le16(c.unicode());
    if (terminator)
        bytes += le16(0);
    return bytes;
}

const unsigned char kHeaderGuid[16] = {0x30, 0x26, 0xB2, 0x75, 0x8E, 0x66, 0xCF, 0x11,
                                       0xA6, 0xD9, 0x00, 0xAA, 0x00, 0x62, 0xCE, 0x6C};
const unsigned char kFilePropertiesGuid[16] = {0xA1, 0xDC, 0xAB, 0x8C, 0x47, 0xA9, 0xCF, 0x11,
                                               0x8E, 0xE4, 0x00, 0xC0, 0x0C, 0x20, 0x53, 0x65};
const unsigned char kContentDescriptionGuid[16] = {0x33, 0x26, 0xB2, 0x75, 0x8E, 0x66, 0xCF, 0x11,
                                                   0xA6, 0xD9, 0x00, 0xAA, 0x00, 0x62, 0xCE, 0x6C};
const unsigned char kExtendedContentDescriptionGuid[16] = {0x40, 0xA4, 0xD0, 0xD2, 0x07, 0xE3, 0xD2, 0x11,
                                                           0x97, 0xF0, 0x00, 0xA0, 0xC9, 0x5E, 0xA8, 0x50};
const unsigned char kOtherGuid[16] = {0xB5, 0x03, 0xBF, 0x5F, 0x2E, 0xA9, 0xCF, 0x11,
                                      0x8E, 0xE3, 0x00, 0xC0, 0x0C, 0x20, 0x53, 0x65};

QByteArray asfObject(const unsigned char (&guid)[16], const QByteArray& body)
{
    return QByteArray(reinterpret_cast<const char*>(guid), 16) + le64(uint64_t(24 + body.size())) + body;
}

QByteArray headerObject(const QList<QByteArray>& children)
{
    QByteArray body = le32(uint32_t(children.size())) + QByteArray("\x01\x02", 2);
    for (const QByteArray& child : children)
        body += child;
    return asfObject(kHeaderGuid, body);
}

QByteArray filePropertiesObject(uint64_t playDuration100ns)
{
    // File id, size, creation date, packet count: 40 bytes before the play duration.
    QByteArray body(40, '\0');
    body += le64(playDuration100ns) + le64(0) + le64(30000000) + QByteArray(20, '\0');
    return asfObject(kFilePropertiesGuid, body);
}

QByteArray contentDescriptionObject(const QByteArray& title, const QByteArray& author)
{
    const QByteArray body = le16(uint16_t(title.size())) + le16(uint16_t(author.size())) + le16(0) + le16(0)
        + le16(0) + title + author;
    return asfObject(kContentDescriptionGuid, body);
}

QByteArray extendedContentDescriptionObject(const QList<Descriptor>& descriptors)
{
    QByteArray body = le16(uint16_t(descriptors.size()));
    for (const Descriptor& d : descriptors) {
        const QByteArray name = utf16(d.name);
        body += le16(uint16_t(name.size())) + name + le16(d.type) + le16(uint16_t(d.value.size())) + d.value;
    }
    return asfObject(kExtendedContentDescriptionGuid, body);
}

Descriptor textDescriptor(const QString& name, const QString& value)
{
    return {name, 0, utf16(value)};
}

Descriptor dwordDescriptor(const QString& name, uint32_t value)
{
    return {name, 3, le32(value)};
}

bool makeWithFfmpeg(const QString& output, const QStringList& outputOptions, double seconds)
{
    QStringList arguments{"-v", "error", "-y", "-f", "lavfi", "-i",
                          QStringLiteral("sine=frequency=440:duration=%1").arg(seconds)};
    arguments << outputOptions << output;
    return testsupport::run("ffmpeg", arguments) == 0;
}

bool makeTaggedM4a(const QString& output)
{
    return makeWithFfmpeg(output, {"-c:a", "aac", "-b:a", "64k", "-metadata", "title=Morning Song", "-metadata",
                                   "artist=The Tester", "-metadata", "album=First Light", "-metadata",
                                   "date=1999", "-metadata", "genre=Ambient Drone", "-metadata", "track=4/9",
                                   "-f", "mp4"});
}

bool makePicture(const QString& path, const char* format, int width, int height)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(QColor(200, 40, 90));
    for (int x = 0; x < width; ++x)
        image.setPixelColor(x, x % height, Qt::white);
    return image.save(path, format);
}

QByteArray audioStreamMd5(const QString& path)
{
    QByteArray out;
    if (testsupport::run("ffmpeg", {"-v", "error", "-i", path, "-map", "0:a", "-c", "copy", "-f", "md5", "-"}, &out) != 0)
        return {};
    return out.trimmed();
}

} // namespace fixtures
