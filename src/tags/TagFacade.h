#pragma once
#include <QString>
#include <QVariantList>
#include <QVariantMap>

#include <optional>

// The one entry point through which the system reads and writes tags.
// A track record maps "title", "artist", "album", "year", "comment", "track",
// "genre" and "duration" to strings; a key that could not be filled is absent.

// The track record of a file; nothing when the path does not exist or is a folder.
std::optional<QVariantMap> getComments(const QString& path);
// Writes a track record and artwork records into a file; true if a writer ran.
bool updateTags(const QString& path, const QVariantMap& tags, const QVariantList& images);
