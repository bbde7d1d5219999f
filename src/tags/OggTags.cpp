#include "tags/OggTags.h"

#include "core/Defaults.h"
#include "platform/SafeFile.h"
#include "tags/AudioPayload.h"
#include "tags/Base64.h"
#include "tags/ID3Tables.h"
#include "tags/ImageCoding.h"
#include "tags/LegacyTags.h"
#include "tags/vcedit.h"

#include <QFile>
#include <QImage>
#include <QtEndian>

#include <vorbis/vorbisfile.h>

#include <cstdio>
#include <memory>

namespace {
// The rewritten stream reaches the new file in blocks of this many bytes.
constexpr qsizetype kWriteBlock = 1 << 20;

struct FileCloser {
    void operator()(FILE* file) const
    {
        if (file)
            std::fclose(file);
    }
};
using FileHandle = std::unique_ptr<FILE, FileCloser>;

struct StateCloser {
    void operator()(vcedit_state* state) const { vcedit_clear(state); }
};
using EditorHandle = std::unique_ptr<vcedit_state, StateCloser>;

FileHandle openFile(const QString& path, const char* mode)
{
    return FileHandle(std::fopen(QFile::encodeName(path).constData(), mode));
}

// The granule position of the stream's last page, found in the last bytes of
// the file; -1 when no page of the stream is there.
ogg_int64_t lastGranule(FILE* file, long serial)
{
    constexpr long kTail = 65536;
    if (std::fseek(file, 0, SEEK_END) != 0)
        return -1;
    const long size = std::ftell(file);
    const long start = size > kTail ? size - kTail : 0;
    if (size <= 0 || std::fseek(file, start, SEEK_SET) != 0)
        return -1;
    ogg_sync_state sync;
    ogg_sync_init(&sync);
    char* buffer = ogg_sync_buffer(&sync, size - start);
    const size_t read = std::fread(buffer, 1, size_t(size - start), file);
    ogg_sync_wrote(&sync, long(read));
    ogg_int64_t granule = -1;
    ogg_page page;
    int result = 0;
    while ((result = ogg_sync_pageout(&sync, &page)) != 0) {
        if (result > 0 && ogg_page_serialno(&page) == serial && ogg_page_granulepos(&page) >= 0)
            granule = ogg_page_granulepos(&page);
    }
    ogg_sync_clear(&sync);
    return granule;
}

// The play time in whole seconds: the last granule position over the sample
// rate, as the Vorbis file decoder counts it for a stream that starts at zero;
// the decoder itself when the end of the file holds no page of the stream.
long playSeconds(const QString& path, FILE* file, vcedit_state* editor)
{
    const vorbis_info* info = vcedit_info(editor);
    const ogg_int64_t granule = lastGranule(file, vcedit_serial(editor));
    if (granule >= 0 && info && info->rate > 0)
        return long(granule / info->rate);
    OggVorbis_File vorbisFile;
    if (ov_fopen(QFile::encodeName(path).constData(), &vorbisFile) != 0)
        return -1;
    const double seconds = ov_time_total(&vorbisFile, -1);
    ov_clear(&vorbisFile);
    return seconds >= 0 ? long(seconds) : -1;
}

// The comment entries of a Vorbis file and, when asked, its play time; false
// (with a message) when it is not one.
bool readEntries(const QString& path, QList<QByteArray>* entries, long* seconds = nullptr)
{
    FileHandle file = openFile(path, "rb");
    if (!file)
        return false;
    EditorHandle editor(vcedit_new_state());
    if (vcedit_open(editor.get(), file.get()) < 0) {
        std::fprintf(stderr, "Failed to open file as vorbis: %s\n", vcedit_error(editor.get()));
        return false;
    }
    const vorbis_comment* comments = vcedit_comments(editor.get());
    for (int i = 0; i < comments->comments; ++i)
        entries->append(QByteArray(comments->user_comments[i], comments->comment_lengths[i]));
    if (seconds)
        *seconds = playSeconds(path, file.get(), editor.get());
    return true;
}

void appendJoined(QVariantMap& record, const QString& key, const QString& value)
{
    const auto existing = record.constFind(key);
    record.insert(key, existing == record.constEnd() ? value : existing->toString() + QLatin1Char(' ') + value);
}

void appendBigEndian(QByteArray& block, quint32 value)
{
    char bytes[4];
    qToBigEndian(value, bytes);
    block.append(bytes, 4);
}

QByteArray pictureBlock(const QVariantMap& record, const QImage& image, const QByteArray& data)
{
    const QByteArray mimeType = record.value(QStringLiteral("Mime Type")).toString().toUtf8();
    const QByteArray description = record.value(QStringLiteral("Description")).toString().toUtf8();
    QByteArray block;
    block.reserve(32 + mimeType.size() + description.size() + data.size());
    appendBigEndian(block, quint32(encodeImageType(record.value(QStringLiteral("Picture Type")).toString())));
    appendBigEndian(block, quint32(mimeType.size()));
    block.append(mimeType);
    appendBigEndian(block, quint32(description.size()));
    block.append(description);
    appendBigEndian(block, quint32(image.width()));
    appendBigEndian(block, quint32(image.height()));
    appendBigEndian(block, quint32(image.depth()));
    appendBigEndian(block, 0);
    appendBigEndian(block, quint32(data.size()));
    block.append(data);
    return block;
}

// Reads a picture block; every length is checked against the bytes left.
bool readPictureBlock(const QByteArray& block, QVariantMap* record)
{
    qsizetype at = 0;
    auto number = [&](quint32* value) {
        if (block.size() - at < 4)
            return false;
        *value = qFromBigEndian<quint32>(block.constData() + at);
        at += 4;
        return true;
    };
    auto bytes = [&](quint32 length, QByteArray* out) {
        if (quint64(block.size() - at) < length)
            return false;
        *out = block.mid(at, qsizetype(length));
        at += qsizetype(length);
        return true;
    };
    quint32 type = 0, mimeLength = 0, descriptionLength = 0, unused = 0, dataLength = 0;
    QByteArray mimeType, description, data;
    if (!number(&type) || !number(&mimeLength) || !bytes(mimeLength, &mimeType) || !number(&descriptionLength)
        || !bytes(descriptionLength, &description))
        return false;
    for (int i = 0; i < 4; ++i) {  // width, height, depth, colours
        if (!number(&unused))
            return false;
    }
    if (!number(&dataLength) || !bytes(dataLength, &data))
        return false;
    QImage image;
    if (!image.loadFromData(data))
        return false;
    *record = ImageCoding::artworkRecord(decodeImageType(int(type > 20 ? 21 : type)),
                                         QString::fromUtf8(description), QString::fromUtf8(mimeType), image);
    return true;
}

// An entry "KEY=value" split at its first "=", the key trimmed and lower-cased.
bool splitEntry(const QByteArray& entry, QString* key, QString* value)
{
    const qsizetype equals = entry.indexOf('=');
    if (equals < 0)
        return false;
    *key = QString::fromUtf8(entry.left(equals)).trimmed().toLower();
    *value = QString::fromUtf8(entry.mid(equals + 1)).trimmed();
    return true;
}
} // namespace

QVariantMap getOGGComments(const QString& path)
{
    QVariantMap record;
    QList<QByteArray> entries;
    long seconds = -1;
    if (!readEntries(path, &entries, &seconds))
        return record;
    for (const QByteArray& entry : entries) {
        QString key, value;
        if (!splitEntry(entry, &key, &value))
            continue;
        if (key == QLatin1String("tracknumber"))
            key = QStringLiteral("track");
        else if (key == QLatin1String("date"))
            key = QStringLiteral("year");
        appendJoined(record, key, value);
    }
    if (seconds >= 0)
        record.insert(QStringLiteral("duration"), QString::number(seconds));
    return record;
}

bool updateOGGTags(const QString& path, const QVariantMap& tags, const QVariantList& images, QString* error)
{
    return writeOGGTags(path, tags, &images, error);
}

bool writeOGGTags(const QString& path, const QVariantMap& tags, const QVariantList* images, QString* error)
{
    auto fail = [&](const QString& text) {
        if (error)
            *error = text;
        return false;
    };
    if (const QString refused = SafeFile::refusalToReplace(path); !refused.isEmpty())
        return fail(refused);
    FileHandle in = openFile(path, "rb");
    if (!in)
        return fail(QStringLiteral("\"%1\" cannot be read.").arg(path));
    EditorHandle editor(vcedit_new_state());
    if (vcedit_open(editor.get(), in.get()) < 0) {
        std::fprintf(stderr, "Failed to open file as vorbis: %s\n", vcedit_error(editor.get()));
        return fail(QStringLiteral("\"%1\" cannot be read as Ogg Vorbis: %2").arg(path, vcedit_error(editor.get())));
    }
    vorbis_comment* comments = vcedit_comments(editor.get());
    QList<QByteArray> pictureEntries;  // kept as they are stored when no pictures are given
    for (int i = 0; i < comments->comments && !images; ++i) {
        const QByteArray entry(comments->user_comments[i], comments->comment_lengths[i]);
        const QByteArray key = entry.left(entry.indexOf('=')).trimmed().toLower();
        if (key == "metadata_block_picture" || key == "coverart" || key == "coverartmime")
            pictureEntries.append(entry);
    }
    vorbis_comment_clear(comments);
    vorbis_comment_init(comments);
    QList<QByteArray> written;
    auto addBytes = [&](QByteArray bytes) {
        vorbis_comment_add(comments, bytes.data());
        written.append(QByteArray(bytes.constData()));  // the entry ends at a zero byte
    };
    auto add = [&](const QString& entry) { addBytes(entry.toUtf8()); };
    // A value missing from the record is written the way formatting a missing object prints it.
    auto value = [&](const char* key) {
        const auto found = tags.constFind(QLatin1String(key));
        return found == tags.constEnd() ? QStringLiteral("(null)") : found->toString();
    };
    add(QStringLiteral("ALBUM=") + value("album"));
    add(QStringLiteral("ARTIST=") + value("artist"));
    add(QStringLiteral("TITLE=") + value("title"));
    add(QStringLiteral("GENRE=") + value("genre"));
    add(QStringLiteral("YEAR=") + value("year"));
    add(QStringLiteral("TRACKNUMBER=") + value("track"));

    for (const QByteArray& entry : pictureEntries)
        addBytes(entry);
    const bool coverArtEntries = Defaults::standard().integerForKey(QStringLiteral("prefsuseCoverartStored")) == 1;
    ImageCoding::Format format = ImageCoding::Format::Tiff;
    for (const QVariant& entry : images ? *images : QVariantList()) {
        const QVariantMap record = entry.toMap();
        const QString mimeType = record.value(QStringLiteral("Mime Type")).toString();
        format = ImageCoding::formatForMimeType(mimeType, format);
        const QImage image = record.value(QStringLiteral("Image")).value<QImage>();
        const QByteArray data = ImageCoding::encode(image, format);
        if (data.isEmpty())
            continue;
        if (coverArtEntries) {
            add(QStringLiteral("COVERARTMIME=") + mimeType);
            add(QStringLiteral("COVERART=") + Base64::base64Encoding(data));
        } else {
            add(QStringLiteral("METADATA_BLOCK_PICTURE=") + Base64::base64Encoding(pictureBlock(record, image, data)));
        }
    }

    // The stream goes into a new file beside the old one, a few pages at a time.
    SafeFile::Replacement replacement(path);
    if (!replacement.create())
        return fail(replacement.errorString());
    QByteArray pending;
    auto flush = [&] {
        const bool ok = replacement.write(pending);
        pending.clear();
        return ok;
    };
    const vcedit_sink sink = [&](const unsigned char* bytes, long length) {
        pending.append(reinterpret_cast<const char*>(bytes), qsizetype(length));
        return pending.size() < kWriteBlock || flush();
    };
    if (vcedit_write(editor.get(), sink) < 0 || !flush()) {
        const QString why = replacement.errorString();
        return fail(why.isEmpty() ? QStringLiteral("Cannot write \"%1\": %2").arg(path, vcedit_error(editor.get()))
                                  : why);
    }
    in.reset();
    const bool placed = replacement.commit([&](const QString& made) -> QString {
        if (!AudioPayload::difference(AudioPayload::Format::Ogg, replacement.target(), made).isEmpty())
            return QStringLiteral("\"%1\": the audio would have changed; the file was left as it was.").arg(path);
        QList<QByteArray> readBack;
        if (!readEntries(made, &readBack) || readBack != written)
            return QStringLiteral("The new version of \"%1\" did not read back as written; the file was left as it "
                                  "was.")
                .arg(path);
        return {};
    });
    return placed || fail(replacement.errorString());
}

QVariantList getOGGAlbumArt(const QString& path)
{
    QVariantList pictures;
    QList<QByteArray> entries;
    if (!readEntries(path, &entries))
        return pictures;
    for (const QByteArray& entry : entries) {
        QString key, value;
        if (!splitEntry(entry, &key, &value))
            continue;
        if (key == QLatin1String("coverart")) {
            const QByteArray data = Base64::decode(value.toLatin1());
            QImage image;
            if (!image.loadFromData(data))
                continue;
            pictures.append(ImageCoding::artworkRecord(
                pictures.isEmpty() ? QStringLiteral("Cover (front)") : QStringLiteral("Other"), QString(),
                ImageCoding::mimeTypeOfBytes(data), image));
        } else if (key == QLatin1String("metadata_block_picture")) {
            QVariantMap record;
            if (readPictureBlock(Base64::decode(value.toLatin1()), &record))
                pictures.append(record);
        }
    }
    return pictures;
}

QVariantMap vorbiscomment_wrapper::getComments(const QString& path)
{
    QVariantMap record;
    QList<QByteArray> entries;
    if (readEntries(path, &entries)) {
        for (const QByteArray& entry : entries) {
            const QList<QByteArray> parts = entry.split('=');
            if (parts.size() != 2)
                continue;
            appendJoined(record, QString::fromUtf8(parts.at(0)).toLower(), QString::fromUtf8(parts.at(1)));
        }
    }
    hyphenFilenameTags(path, record);
    return record;
}
