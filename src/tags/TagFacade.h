#pragma once
#include <QString>
#include <QVariantList>
#include <QVariantMap>

#include <optional>

// The one entry point through which the system reads and writes tags.
// A track record maps "title", "artist", "album", "year", "comment", "track",
// "genre" and "duration" to strings; a key that could not be filled is absent.

// The track record of a file, chosen by its extension (mp3, ogg, wma, m4a, m4p,
// m4b, m4r, aac), completed from the file name; nothing when the path does not
// exist or is a folder. Any other extension gives a record from the name only.
std::optional<QVariantMap> getComments(const QString& path);
// What a tag write came to: the new version checked (its tags read back, its
// audio byte for byte the old audio) and in place, or the reason, naming the
// file, why the file was left as it was.
struct TagWriteResult {
    bool written = false;
    QString error;
};
// Writes a track record and the artwork records (an empty list removes the
// pictures; null keeps those the file has) into an MP3, Ogg or MP4/AAC file.
// The file is never written in place: a new version is made beside it,
// checked and renamed over it, keeping its mode; a symbolic link is followed
// to its file. WMA and other types are not writable.
TagWriteResult writeTags(const QString& path, const QVariantMap& tags, const QVariantList* images);
// The same as true or false: true when the file was written.
bool updateTags(const QString& path, const QVariantMap& tags, const QVariantList& images);
// The same, keeping the pictures the file has.
bool updateTags(const QString& path, const QVariantMap& tags);
// Whether updateTags can write this kind of file.
bool canUpdateTags(const QString& path);
// The artwork records of a file (MP3, Ogg, MP4/AAC); empty for other types.
QVariantList getAlbumArt(const QString& path);

// Fills the absent keys of a record from the file's name ("Artist - Album -
// 03 - Title[ - Genre]" or "Artist_Title") and its duration from the audio.
void filenameTags(const QString& path, QVariantMap& record);

// The MP3 reader and writer behind the dispatcher.
QVariantMap getMP3Comments(const QString& path);
// images null: the pictures stay as they are. *error tells why nothing was written.
bool updateMP3Tags(const QString& path, const QVariantMap& tags, const QVariantList* images,
                   QString* error = nullptr);
QVariantList getMP3AlbumArt(const QString& path);
