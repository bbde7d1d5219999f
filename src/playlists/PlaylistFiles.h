#pragma once
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>

#include <optional>

// The files of the playlist store and what they hold: playlist group records
// ({"Group": name, "Entries": [full paths and nested groups]}) in ".cd3"
// files, media sets ({"playlists": [playlist paths]}), and the folders under
// the application folder where they live.
namespace PlaylistFiles {

inline constexpr char kRootGroupName[] = "OVRoot";

QString appFolder();       // "~/Library/Velmora" of this desktop
QString playlistFolder();  // appFolder()/Playlists
QString iTunesFolder();    // appFolder()/iTunes
QString mediaFolder();     // appFolder()/Media
QString m3uFolder();       // appFolder()/M3U

QVariantMap makeGroup(const QString& name, const QVariantList& entries);
// True for a dictionary with a string "Group" and an "Entries" array whose
// elements are strings or groups of the same form, at any depth.
bool isGroupRecord(const QVariant& value);
// The group record of a ".cd3" file; nothing (and a message in *error) when
// the file is missing, is not an XML property list or holds the wrong types.
std::optional<QVariantMap> readGroup(const QString& path, QString* error = nullptr);
// Writes a new file beside the old one and renames it over: a failure leaves
// the old file as it was, is reported (reportFailure) and returns false.
bool writeGroup(const QString& path, const QVariantMap& group, QString* error = nullptr);
// The leaves of a group in playlist order, descending into sub-groups.
void gatherLeaves(const QVariantMap& group, QStringList& leaves);

// A media-set file as a dictionary; empty when the file is empty, unreadable
// or its "playlists" is not an array of strings.
QVariantMap readMediaSet(const QString& path);
QStringList mediaSetPlaylists(const QVariantMap& mediaSet);
// Written and reported as writeGroup() writes playlists.
bool writeMediaSet(const QString& path, const QVariantMap& mediaSet, QString* error = nullptr);

// Moves a file to a new name in one step, never over a file already there.
bool moveWithoutReplacing(const QString& from, const QString& to, QString* error = nullptr);

// A write or rename that failed: on standard error, and as a failed job that
// the window's job list shows until the user dismisses it.
void reportFailure(const QString& title, const QString& error);

// Every file and folder under a folder, recursively, in the file system's
// order, as paths relative to it; entries whose relative path begins with "."
// are left out.
QStringList walk(const QString& folder);

// Path arithmetic in the manner of the desktop's string path methods.
QString lastPathComponent(const QString& path);
QString pathExtension(const QString& path);          // "" when none
QString deletingPathExtension(const QString& path);
QString replacingPathExtension(const QString& path, const QString& extension);
QString appendingPathComponent(const QString& base, const QString& component);
QString displayName(const QString& path);            // last component without extension

} // namespace PlaylistFiles
