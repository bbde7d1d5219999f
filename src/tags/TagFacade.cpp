#include "tags/TagFacade.h"

#include <QFileInfo>

#include <taglib/fileref.h>
#include <taglib/tag.h>

namespace {
void putText(QVariantMap& record, const char* key, const TagLib::String& value)
{
    if (!value.isEmpty())
        record.insert(key, QString::fromStdWString(value.toWString()));
}
void putNumber(QVariantMap& record, const char* key, unsigned value)
{
    if (value != 0)
        record.insert(key, QString::number(value));
}
} // namespace

std::optional<QVariantMap> getComments(const QString& path)
{
    const QFileInfo info(path);
    if (!info.exists() || info.isDir())
        return std::nullopt;
    QVariantMap record;
    TagLib::FileRef file(QFile::encodeName(path).constData());
    if (!file.isNull() && file.tag()) {
        const TagLib::Tag* tag = file.tag();
        putText(record, "title", tag->title());
        putText(record, "artist", tag->artist());
        putText(record, "album", tag->album());
        putText(record, "comment", tag->comment());
        putText(record, "genre", tag->genre());
        putNumber(record, "track", tag->track());
        putNumber(record, "year", tag->year());
    }
    if (!file.isNull() && file.audioProperties())
        putNumber(record, "duration", unsigned(file.audioProperties()->lengthInSeconds()));
    return record;
}

bool updateTags(const QString& path, const QVariantMap& tags, const QVariantList&)
{
    const QFileInfo info(path);
    if (!info.exists() || info.isDir())
        return false;
    TagLib::FileRef file(QFile::encodeName(path).constData());
    if (file.isNull() || !file.tag())
        return false;
    TagLib::Tag* tag = file.tag();
    auto text = [&](const char* key) { return TagLib::String(tags.value(key).toString().toStdWString()); };
    tag->setTitle(text("title"));
    tag->setArtist(text("artist"));
    tag->setAlbum(text("album"));
    tag->setComment(text("comment"));
    tag->setGenre(text("genre"));
    tag->setTrack(tags.value("track").toString().toUInt());
    tag->setYear(tags.value("year").toString().toUInt());
    return file.save();
}
