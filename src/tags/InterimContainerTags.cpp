// Interim WMA and MP4 readers on TagLib until the container parsers land.
#include "tags/Mp4Tags.h"
#include "tags/WmaTags.h"

#include <QFile>

#include <taglib/fileref.h>
#include <taglib/tag.h>

namespace {
QString toQString(const TagLib::String& value)
{
    return QString::fromUtf8(value.toCString(true));
}

std::optional<QVariantMap> readWithFileRef(const QString& path)
{
    TagLib::FileRef file(QFile::encodeName(path).constData());
    if (file.isNull())
        return std::nullopt;
    QVariantMap record;
    if (const TagLib::Tag* tag = file.tag()) {
        auto putText = [&](const char* key, const TagLib::String& value) {
            if (!value.isEmpty())
                record.insert(QLatin1String(key), toQString(value));
        };
        putText("title", tag->title());
        putText("artist", tag->artist());
        putText("album", tag->album());
        putText("comment", tag->comment());
        putText("genre", tag->genre());
        if (tag->track() != 0)
            record.insert(QStringLiteral("track"), QString::number(tag->track()));
        if (tag->year() != 0)
            record.insert(QStringLiteral("year"), QString::number(tag->year()));
    }
    if (file.audioProperties() && file.audioProperties()->lengthInSeconds() > 0)
        record.insert(QStringLiteral("duration"), QString::number(file.audioProperties()->lengthInSeconds()));
    return record;
}
} // namespace

std::optional<QVariantMap> getWMAComments(const QString& path)
{
    return readWithFileRef(path);
}

std::optional<QVariantMap> getAACComments(const QString& path)
{
    return readWithFileRef(path);
}

QVariantList getAACAlbumArt(const QString&)
{
    return {};
}

bool updateAACTags(const QString& path, const QVariantMap& tags, const QVariantList&)
{
    TagLib::FileRef file(QFile::encodeName(path).constData());
    if (file.isNull() || !file.tag())
        return false;
    TagLib::Tag* tag = file.tag();
    auto text = [&](const char* key) {
        return TagLib::String(tags.value(QLatin1String(key)).toString().toStdString(), TagLib::String::UTF8);
    };
    tag->setTitle(text("title"));
    tag->setArtist(text("artist"));
    tag->setAlbum(text("album"));
    tag->setComment(text("comment"));
    tag->setGenre(text("genre"));
    tag->setTrack(tags.value(QStringLiteral("track")).toString().toUInt());
    tag->setYear(tags.value(QStringLiteral("year")).toString().toUInt());
    return file.save();
}
