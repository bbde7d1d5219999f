// Interim WMA and MP4 readers on TagLib until the container parsers land.
#include "tags/Mp4Tags.h"
#include "tags/TagFacade.h"
#include "tags/WmaTags.h"

std::optional<QVariantMap> getWMAComments(const QString& path)
{
    return getComments(path);
}

std::optional<QVariantMap> getAACComments(const QString& path)
{
    return getComments(path);
}

QVariantList getAACAlbumArt(const QString&)
{
    return {};
}

bool updateAACTags(const QString& path, const QVariantMap& tags, const QVariantList& images)
{
    return updateTags(path, tags, images);
}
