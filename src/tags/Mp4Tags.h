#pragma once
#include <QString>
#include <QVariantList>
#include <QVariantMap>

#include <optional>

// MP4/AAC files (M4A, M4B, M4R, M4P, AAC): the track record, the artwork
// records, and writing both back.
std::optional<QVariantMap> getAACComments(const QString& path);
QVariantList getAACAlbumArt(const QString& path);
bool updateAACTags(const QString& path, const QVariantMap& tags, const QVariantList& images);
