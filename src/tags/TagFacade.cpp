#include "tags/TagFacade.h"

#include "core/StringUtils.h"
#include "tags/MediaDuration.h"
#include "tags/Mp4Tags.h"
#include "tags/OggTags.h"
#include "tags/TagAPI.h"
#include "tags/WmaTags.h"

#include <QFileInfo>

#include <cstdio>
#include <exception>

namespace {
bool isExistingFile(const QString& path)
{
    const QFileInfo info(path);
    return info.exists() && !info.isDir();
}

bool isMp4Extension(const QString& extension)
{
    return extension == QLatin1String("m4a") || extension == QLatin1String("m4p") || extension == QLatin1String("m4b")
        || extension == QLatin1String("m4r") || extension == QLatin1String("aac");
}

// The thread's tag object, let go of its file when the operation ends.
class ExaminedFile {
public:
    explicit ExaminedFile(const QString& path, TagAPI::Length length = TagAPI::Length::Read)
        : tags_(TagAPI::forThisThread()), open_(tags_.examineFile(path, length))
    {
    }
    ~ExaminedFile() { tags_.releaseFile(); }
    ExaminedFile(const ExaminedFile&) = delete;
    ExaminedFile& operator=(const ExaminedFile&) = delete;
    bool isOpen() const { return open_; }
    TagAPI* operator->() const { return &tags_; }

private:
    TagAPI& tags_;
    bool open_;
};

void setIfAbsent(QVariantMap& record, const char* key, const QString& value)
{
    const QString key16 = QLatin1String(key);
    if (!record.contains(key16) && !value.isEmpty())
        record.insert(key16, value);
}

std::optional<QVariantMap> readByExtension(const QString& path, const QString& extension)
{
    if (extension == QLatin1String("mp3"))
        return getMP3Comments(path);
    if (extension == QLatin1String("ogg"))
        return getOGGComments(path);
    if (extension == QLatin1String("wma"))
        return getWMAComments(path);
    if (isMp4Extension(extension))
        return getAACComments(path);
    return std::nullopt;
}

bool writeByExtension(const QString& path, const QVariantMap& tags, const QVariantList* images, QString* error)
{
    const QString extension = QFileInfo(path).suffix().toLower();
    if (extension == QLatin1String("mp3"))
        return updateMP3Tags(path, tags, images, error);
    if (extension == QLatin1String("ogg"))
        return writeOGGTags(path, tags, images, error);
    if (isMp4Extension(extension))
        return writeAACTags(path, tags, images, error);
    *error = QStringLiteral("%1: tags of .%2 files cannot be written").arg(path, QFileInfo(path).suffix());
    return false;
}
} // namespace

namespace {
// The reader's record; nothing when it gave none or failed (the reason goes to the log).
std::optional<QVariantMap> guardedRead(const QString& path)
{
    try {
        return readByExtension(path, QFileInfo(path).suffix().toLower());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "Reading the tags of %s failed: %s\n", qPrintable(path), error.what());
    } catch (...) {
        std::fprintf(stderr, "Reading the tags of %s failed\n", qPrintable(path));
    }
    return std::nullopt;
}
} // namespace

std::optional<QVariantMap> getComments(const QString& path)
{
    if (!isExistingFile(path))
        return std::nullopt;
    QVariantMap result = guardedRead(path).value_or(QVariantMap());
    filenameTags(path, result);
    return result;
}

std::optional<QVariantMap> getFileTags(const QString& path)
{
    if (!isExistingFile(path))
        return std::nullopt;
    std::optional<QVariantMap> record = guardedRead(path);
    if (record)
        record->remove(QStringLiteral("duration"));
    return record;
}

TagWriteResult writeTags(const QString& path, const QVariantMap& tags, const QVariantList* images)
{
    TagWriteResult result;
    const QFileInfo info(path);
    if (!info.exists())
        result.error = QStringLiteral("%1: no such file").arg(path);
    else if (info.isDir())
        result.error = QStringLiteral("%1: is a folder").arg(path);
    else
        result.written = writeByExtension(path, tags, images, &result.error);
    if (result.written)
        result.error.clear();
    else if (result.error.isEmpty())
        result.error = QStringLiteral("%1: the tags could not be written").arg(path);
    return result;
}

bool updateTags(const QString& path, const QVariantMap& tags, const QVariantList& images)
{
    return writeTags(path, tags, &images).written;
}

bool updateTags(const QString& path, const QVariantMap& tags)
{
    return writeTags(path, tags, nullptr).written;
}

bool canUpdateTags(const QString& path)
{
    const QString extension = QFileInfo(path).suffix().toLower();
    return extension == QLatin1String("mp3") || extension == QLatin1String("ogg") || isMp4Extension(extension);
}

QVariantList getAlbumArt(const QString& path)
{
    if (!isExistingFile(path))
        return {};
    const QString extension = QFileInfo(path).suffix().toLower();
    if (extension == QLatin1String("mp3"))
        return getMP3AlbumArt(path);
    if (extension == QLatin1String("ogg"))
        return getOGGAlbumArt(path);
    if (isMp4Extension(extension))
        return getAACAlbumArt(path);
    return {};
}

void filenameTags(const QString& path, QVariantMap& record)
{
    const QString base = QFileInfo(path).completeBaseName();
    QStringList pieces = base.split(QStringLiteral(" - "));
    if (pieces.size() < 4) {
        pieces = base.split(QLatin1Char('_'));
        if (pieces.size() == 2) {
            setIfAbsent(record, "artist", pieces.at(0).trimmed());
            setIfAbsent(record, "title", pieces.at(1).trimmed());
        }
    } else {
        if (intValue(pieces.at(0).trimmed()) == 0) {
            setIfAbsent(record, "artist", pieces.at(0).trimmed());
            setIfAbsent(record, "album", pieces.at(1).trimmed());
            setIfAbsent(record, "track", pieces.at(2).trimmed());
            setIfAbsent(record, "title", pieces.at(3).trimmed());
        }
        if (pieces.size() == 5)
            setIfAbsent(record, "genre", pieces.at(4).trimmed());
    }
    if (!record.contains(QStringLiteral("duration"))) {
        const int seconds = mediaDurationSeconds(path);
        if (seconds >= 0)
            record.insert(QStringLiteral("duration"), QString::number(seconds));
    }
}

QVariantMap getMP3Comments(const QString& path)
{
    QVariantMap record;
    const ExaminedFile tags(path);
    if (!tags.isOpen())
        return record;
    auto putText = [&](const char* key, const QString& value) {
        if (!value.isEmpty())
            record.insert(QLatin1String(key), value);
    };
    auto putNumber = [&](const char* key, int value) {
        if (value != 0)
            record.insert(QLatin1String(key), QString::number(value));
    };
    putText("title", tags->getTitle());
    putText("artist", tags->getArtist());
    putText("album", tags->getAlbum());
    putNumber("track", tags->getTrack());
    putNumber("year", tags->getYear());
    const QStringList genres = tags->getGenreNames();
    if (!genres.isEmpty())
        record.insert(QStringLiteral("genre"), genres.first());
    putNumber("duration", tags->getDuration());
    return record;
}

bool updateMP3Tags(const QString& path, const QVariantMap& record, const QVariantList* images, QString* error)
{
    const ExaminedFile tags(path, TagAPI::Length::Skip);
    if (!tags.isOpen()) {
        if (error)
            *error = QStringLiteral("%1: cannot be read as an MP3 file").arg(path);
        return false;
    }
    // A value the file already holds is left as it is stored (its frame, its
    // encoding, the ID3v1 copy), so a write changes only what it changes.
    auto text = [&](const char* key) { return record.value(QLatin1String(key)).toString(); };
    auto changes = [&](const char* key, const QString& current) {
        return record.contains(QLatin1String(key)) && text(key) != current;
    };
    if (changes("album", tags->getAlbum()))
        tags->setAlbum(text("album"));
    if (changes("artist", tags->getArtist()))
        tags->setArtist(text("artist"));
    if (changes("title", tags->getTitle()))
        tags->setTitle(text("title"));
    const QStringList genres = tags->getGenreNames();
    if (changes("genre", genres.value(0)))
        tags->setGenreName({text("genre")});
    if (intValue(text("year")) != tags->getYear())
        tags->setYear(intValue(text("year")));
    if (intValue(text("track")) != tags->getTrack())
        tags->setTrack(intValue(text("track")), tags->getTotalNumberTracks());
    if (images)
        tags->setImages(*images);
    return tags->updateFile(error);
}

QVariantList getMP3AlbumArt(const QString& path)
{
    const ExaminedFile tags(path);
    return tags.isOpen() ? tags->getImage() : QVariantList();
}
