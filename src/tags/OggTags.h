#pragma once
#include <QString>
#include <QVariantList>
#include <QVariantMap>

// Ogg Vorbis tags, read and written through the comment-header editor (vcedit).

// The track record of an Ogg Vorbis file: every comment entry under its
// lower-case key ("tracknumber" as "track", "date" as "year"; repeated entries
// joined with a blank) and "duration". Empty when the file is not Vorbis.
QVariantMap getOGGComments(const QString& path);
// Replaces all comments with the record's album, artist, title, genre, year and
// track entries and the pictures. The stream is written into a new file beside
// the old one, which replaces it only when its comments read back as written
// and its audio packets are the old ones. False, with the reason in *error,
// when the file was left as it was.
bool updateOGGTags(const QString& path, const QVariantMap& tags, const QVariantList& images,
                   QString* error = nullptr);
// The same; images null keeps the picture entries the file has as they are stored.
bool writeOGGTags(const QString& path, const QVariantMap& tags, const QVariantList* images, QString* error);
// The pictures of COVERART and METADATA_BLOCK_PICTURE entries as artwork records.
QVariantList getOGGAlbumArt(const QString& path);

// The older Ogg reader: keys as they stand (lower case), then guesses from the
// file name split at "-".
class vorbiscomment_wrapper {
public:
    static QVariantMap getComments(const QString& path);
};
