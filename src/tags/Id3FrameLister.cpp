#include "tags/Id3FrameLister.h"

#include <QFile>
#include <QHash>
#include <QStringDecoder>
#include <QVector>
#include <QtEndian>

#include <algorithm>

namespace {
// The descriptions id3lib gives its frames; ID3v2.2 identifiers share those of their 2.3 forms.
const QHash<QByteArray, const char*>& frameDescriptions()
{
    static const QHash<QByteArray, const char*> descriptions = {
        {"TIT2", "Title/songname/content description"}, {"TT2", "Title/songname/content description"},
        {"TPE1", "Lead performer(s)/Soloist(s)"}, {"TP1", "Lead performer(s)/Soloist(s)"},
        {"TALB", "Album/Movie/Show title"}, {"TAL", "Album/Movie/Show title"},
        {"TRCK", "Track number/Position in set"}, {"TRK", "Track number/Position in set"},
        {"TYER", "Year"}, {"TYE", "Year"},
        {"TCON", "Content type"}, {"TCO", "Content type"},
        {"COMM", "Comments"}, {"COM", "Comments"},
        {"TLEN", "Length"}, {"TLE", "Length"},
        {"TSSE", "Software/Hardware and settings used for encoding"}, {"TSS", "Software/Hardware and settings used for encoding"},
        {"TENC", "Encoded by"}, {"TEN", "Encoded by"},
        {"TCOM", "Composer"}, {"TCM", "Composer"},
        {"TPE2", "Band/orchestra/accompaniment"}, {"TP2", "Band/orchestra/accompaniment"},
        {"TPE3", "Conductor/performer refinement"}, {"TP3", "Conductor/performer refinement"},
        {"TPOS", "Part of a set"}, {"TPA", "Part of a set"},
        {"TCOP", "Copyright message"}, {"TCR", "Copyright message"},
        {"TPUB", "Publisher"}, {"TPB", "Publisher"},
        {"TBPM", "BPM (beats per minute)"}, {"TBP", "BPM (beats per minute)"},
        {"TIT1", "Content group description"}, {"TT1", "Content group description"},
        {"TIT3", "Subtitle/Description refinement"}, {"TT3", "Subtitle/Description refinement"},
        {"TXXX", "User defined text information"}, {"TXX", "User defined text information"},
        {"TDRC", "Recording time"}, {"APIC", "Attached picture"}, {"PIC", "Attached picture"},
        {"USLT", "Unsynchronized lyric/text transcription"}, {"ULT", "Unsynchronized lyric/text transcription"},
        {"WXXX", "User defined URL link"}, {"WXX", "User defined URL link"},
        {"PRIV", "Private frame"}, {"UFID", "Unique file identifier"}, {"UFI", "Unique file identifier"},
        {"GEOB", "General encapsulated object"}, {"GEO", "General encapsulated object"},
        {"PCNT", "Play counter"}, {"CNT", "Play counter"}, {"POPM", "Popularimeter"}, {"POP", "Popularimeter"},
        {"MCDI", "Music CD identifier"}, {"MCI", "Music CD identifier"},
    };
    return descriptions;
}

QString decodeText(quint8 encoding, const QByteArray& bytes)
{
    switch (encoding) {
    case 1:  // UTF-16 with a byte-order mark
    case 2:  // UTF-16 big-endian
    {
        QStringDecoder decoder(encoding == 2 ? QStringDecoder::Utf16BE : QStringDecoder::Utf16);
        return decoder.decode(bytes);
    }
    case 3:
        return QString::fromUtf8(bytes);
    default:
        return QString::fromLatin1(bytes);
    }
}

// Splits off the first string of a text field; the terminator is one zero byte,
// two (aligned) for UTF-16.
QByteArray takeString(quint8 encoding, QByteArray* field)
{
    const bool wide = encoding == 1 || encoding == 2;
    qsizetype end = -1;
    if (wide) {
        for (qsizetype i = 0; i + 1 < field->size(); i += 2) {
            if ((*field)[i] == 0 && (*field)[i + 1] == 0) {
                end = i;
                break;
            }
        }
    } else {
        end = field->indexOf('\0');
    }
    if (end < 0) {
        QByteArray all = *field;
        field->clear();
        return all;
    }
    QByteArray first = field->left(end);
    *field = field->mid(end + (wide ? 2 : 1));
    return first;
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

quint32 syncsafe(const char* bytes)
{
    const auto* b = reinterpret_cast<const quint8*>(bytes);
    return (quint32(b[0] & 0x7F) << 21) | (quint32(b[1] & 0x7F) << 14) | (quint32(b[2] & 0x7F) << 7) | (b[3] & 0x7F);
}

QString frameValue(const QByteArray& id, const QByteArray& data)
{
    if (data.isEmpty())
        return QString();
    const quint8 encoding = quint8(data[0]);
    if (id.startsWith('T') && id != "TXXX" && id != "TXX") {
        QByteArray field = data.mid(1);
        return decodeText(encoding, takeString(encoding, &field));
    }
    if (id == "COMM" || id == "COM" || id == "USLT" || id == "ULT") {
        if (data.size() < 4)
            return QString();
        const QString language = QString::fromLatin1(data.mid(1, 3));
        QByteArray field = data.mid(4);
        const QString description = decodeText(encoding, takeString(encoding, &field));
        const QString text = decodeText(encoding, takeString(encoding, &field));
        return QStringLiteral("(%1)[%2]: %3").arg(description, language, text);
    }
    if (id == "TXXX" || id == "TXX" || id == "WXXX" || id == "WXX") {
        QByteArray field = data.mid(1);
        const QString description = decodeText(encoding, takeString(encoding, &field));
        const QString text = id.startsWith('W') ? QString::fromLatin1(takeString(0, &field))
                                                : decodeText(encoding, takeString(encoding, &field));
        return QStringLiteral("(%1): %2").arg(description, text);
    }
    if (id.startsWith('W'))
        return QString::fromLatin1(data.left(data.indexOf('\0') < 0 ? data.size() : data.indexOf('\0')));
    if (id == "APIC" || id == "PIC") {
        QByteArray field = data.mid(1);
        QString mimeType;
        if (id == "PIC") {
            mimeType = QString::fromLatin1(field.left(3));
            field = field.mid(3);
        } else {
            mimeType = QString::fromLatin1(takeString(0, &field));
        }
        if (field.isEmpty())
            return QString();
        const int type = quint8(field[0]);
        field = field.mid(1);
        const QString description = decodeText(encoding, takeString(encoding, &field));
        return QStringLiteral("(%1)[, %2]: %3, %4 bytes").arg(description).arg(type).arg(mimeType).arg(field.size());
    }
    return QString();
}

struct Frame {
    QByteArray id;
    QString value;
};

bool isFrameIdCharacter(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

// The frames of an ID3v2 tag at the start of `head`; reading stops at the
// first frame that does not fit in what is left of the tag.
QVector<Frame> readId3v2(const QByteArray& head)
{
    QVector<Frame> frames;
    if (head.size() < 10 || !head.startsWith("ID3"))
        return frames;
    const int major = quint8(head[3]);
    const quint8 flags = quint8(head[5]);
    if (major < 2 || major > 4)
        return frames;
    for (int i = 6; i < 10; ++i) {
        if (quint8(head[i]) & 0x80)
            return frames;
    }
    if (major == 2 && (flags & 0x40))
        return frames;  // compressed ID3v2.2 tags cannot be read
    const quint32 declared = syncsafe(head.constData() + 6);
    QByteArray body = head.mid(10, qsizetype(qMin<quint64>(declared, quint64(head.size() - 10))));
    if ((flags & 0x80) && major < 4)
        body = removeUnsynchronisation(body);
    qsizetype at = 0;
    if (major >= 3 && (flags & 0x40)) {
        if (body.size() < 4)
            return frames;
        const quint32 extended = major == 3 ? qFromBigEndian<quint32>(body.constData()) + 4 : syncsafe(body.constData());
        if (extended > quint64(body.size()))
            return frames;
        at = qsizetype(extended);
    }
    const int idLength = major == 2 ? 3 : 4;
    const int headerLength = major == 2 ? 6 : 10;
    while (body.size() - at >= headerLength) {
        const QByteArray id = body.mid(at, idLength);
        if (!std::all_of(id.begin(), id.end(), isFrameIdCharacter))
            break;  // padding or garbage
        const char* sizeBytes = body.constData() + at + idLength;
        quint32 size = 0;
        quint16 frameFlags = 0;
        if (major == 2) {
            const auto* b = reinterpret_cast<const quint8*>(sizeBytes);
            size = (quint32(b[0]) << 16) | (quint32(b[1]) << 8) | b[2];
        } else {
            size = major == 3 ? qFromBigEndian<quint32>(sizeBytes) : syncsafe(sizeBytes);
            frameFlags = qFromBigEndian<quint16>(body.constData() + at + 8);
        }
        at += headerLength;
        if (quint64(size) > quint64(body.size() - at))
            break;  // runs past the tag
        QByteArray data = body.mid(at, qsizetype(size));
        at += qsizetype(size);
        bool readable = true;
        if (major == 3) {
            readable = !(frameFlags & 0x00C0);  // compressed or encrypted
            if (frameFlags & 0x0020)
                data = data.mid(1);  // group identifier
        } else if (major == 4) {
            readable = !(frameFlags & 0x000C);
            if (frameFlags & 0x0040)
                data = data.mid(1);
            if (frameFlags & 0x0002)
                data = removeUnsynchronisation(data);
            if (frameFlags & 0x0001)
                data = data.mid(4);  // data length indicator
        }
        frames.append({id, readable ? frameValue(id, data) : QString()});
    }
    return frames;
}

QByteArray trimmedField(const QByteArray& tail, int offset, int length)
{
    QByteArray field = tail.mid(offset, length);
    const qsizetype zero = field.indexOf('\0');
    if (zero >= 0)
        field.truncate(zero);
    while (field.endsWith(' '))
        field.chop(1);
    return field;
}

QVector<Frame> readId3v1(const QByteArray& tail)
{
    QVector<Frame> frames;
    if (tail.size() != 128 || !tail.startsWith("TAG"))
        return frames;
    auto add = [&](const char* id, const QString& value) {
        if (!value.isEmpty())
            frames.append({QByteArray(id), value});
    };
    add("TIT2", QString::fromLatin1(trimmedField(tail, 3, 30)));
    add("TPE1", QString::fromLatin1(trimmedField(tail, 33, 30)));
    add("TALB", QString::fromLatin1(trimmedField(tail, 63, 30)));
    add("TYER", QString::fromLatin1(trimmedField(tail, 93, 4)));
    const bool hasTrack = tail[125] == 0 && tail[126] != 0;
    if (hasTrack)
        add("TRCK", QString::number(quint8(tail[126])));
    const QString comment = QString::fromLatin1(trimmedField(tail, 97, hasTrack ? 28 : 30));
    if (!comment.isEmpty())
        add("COMM", QStringLiteral("(ID3v1 Comment)[XXX]: ") + comment);
    if (quint8(tail[127]) != 0xFF)
        add("TCON", QStringLiteral("(%1)").arg(quint8(tail[127])));
    return frames;
}
} // namespace

QByteArray id3infoOutputForBytes(const QString& displayName, const QByteArray& head, const QByteArray& tail)
{
    QVector<Frame> frames = readId3v2(head);
    for (const Frame& extra : readId3v1(tail)) {
        const bool present = std::any_of(frames.begin(), frames.end(), [&](const Frame& f) { return f.id == extra.id; });
        if (!present)
            frames.append(extra);
    }
    QByteArray out = "\n*** Tag information for " + displayName.toUtf8() + '\n';
    const auto& descriptions = frameDescriptions();
    for (const Frame& frame : frames) {
        out += "=== " + frame.id + " (" + descriptions.value(frame.id, "") + "): " + frame.value.toUtf8() + '\n';
    }
    return out;
}

QByteArray id3infoOutput(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return id3infoOutputForBytes(path, {}, {});
    QByteArray head = file.read(10);
    if (head.size() == 10 && head.startsWith("ID3")) {
        const quint32 size = syncsafe(head.constData() + 6);
        head += file.read(qMin<qint64>(size, file.size() - 10));
    }
    QByteArray tail;
    if (file.size() >= 128 && file.seek(file.size() - 128))
        tail = file.read(128);
    return id3infoOutputForBytes(path, head, tail);
}
