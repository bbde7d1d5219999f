#pragma once
// Byte builders and tool-made files for the WMA and MP4 tests.
#include <QByteArray>
#include <QString>
#include <QStringList>

#include <cstdint>

namespace fixtures {

// --- MP4 atoms -----------------------------------------------------------
QByteArray be16(uint16_t value);
QByteArray be32(uint32_t value);
QByteArray be64(uint64_t value);
// An atom with a 32-bit size.
QByteArray atom(const QByteArray& type, const QByteArray& payload);
// A "data" atom of an iTunes item: class, 4 reserved bytes, payload.
QByteArray dataAtom(uint32_t dataClass, const QByteArray& payload);
// "ftyp" of an M4A file.
QByteArray ftyp();
// "mvhd" version 0 with a time scale and duration.
QByteArray mvhd(uint32_t timeScale, uint32_t duration);
// ftyp + moov(mvhd, udta(meta(hdlr, ilst(items)))) + a small mdat.
QByteArray m4aWithItems(const QByteArray& items, uint32_t timeScale = 1000, uint32_t duration = 61500);

// --- ASF objects ---------------------------------------------------------
QByteArray le16(uint16_t value);
QByteArray le32(uint32_t value);
QByteArray le64(uint64_t value);
QByteArray utf16(const QString& text, bool terminator = true);
// An object with its GUID and a size that counts the 24-byte header.
QByteArray asfObject(const unsigned char (&guid)[16], const QByteArray& body);
QByteArray headerObject(const QList<QByteArray>& children);
QByteArray filePropertiesObject(uint64_t playDuration100ns);
QByteArray contentDescriptionObject(const QByteArray& title, const QByteArray& author);
struct Descriptor {
    QString name;
    uint16_t type;
    QByteArray value;
};
QByteArray extendedContentDescriptionObject(const QList<Descriptor>& descriptors);
Descriptor textDescriptor(const QString& name, const QString& value);
Descriptor dwordDescriptor(const QString& name, uint32_t value);

extern const unsigned char kHeaderGuid[16];
extern const unsigned char kFilePropertiesGuid[16];
extern const unsigned char kContentDescriptionGuid[16];
extern const unsigned char kExtendedContentDescriptionGuid[16];
extern const unsigned char kOtherGuid[16];

// --- Tool-made files -----------------------------------------------------
// Runs ffmpeg with a 2-second sine as input and the given output options.
bool makeWithFfmpeg(const QString& output, const QStringList& outputOptions, double seconds = 2.0);
// A tagged M4A (AAC) file.
bool makeTaggedM4a(const QString& output);
// A small picture written to disk ("png" or "jpg").
bool makePicture(const QString& path, const char* format, int width = 16, int height = 12);
// MD5 of the decoded-free audio stream (copied packets), from ffmpeg.
QByteArray audioStreamMd5(const QString& path);

} // namespace fixtures
