#pragma once
#include "tabs/UniqueNames.h"

#include <QString>
#include <QVariantList>
#include <QVariantMap>

// How the Rip tab names what it makes: file names from the disc information
// and a file name format, folders for artist, album and format, the user's
// character changes, and a free name in the end.
namespace RipNaming {

// The names of one track; "Artist Missing", "Album Missing" and "Title Missing"
// stand in for what the disc information lacks. A slash in a name would make a
// folder of it: it is shown as a colon, as the desktop shows it.
struct TrackNames {
    QString artist;
    QString album;
    QString title;
    int track = 0;

    // info: a track info of the CD info (may be empty); number: the track's number on the disc.
    static TrackNames from(const QVariantMap& info, int number);
};

// The file name format (0-6, values above 6 act as 0) filled in, followed by
// the extension; format 6 is the custom format, which brings its own extension.
QString namedFile(const TrackNames& names, int format, const QString& customFormat, const QString& extension);
// The custom format's tokens replaced everywhere, in their order: [Track] [track]
// [TRACK], then [Artist] as it is, [artist] lower and [ARTIST] upper case, the
// same for Album, Title and Ext.
QString customName(const QString& format, const TrackNames& names, const QString& extension);
// Each change {"replace", "with"} in list order; one without "replace" is skipped.
QString applyCharChanges(const QString& name, const QVariantList& changes);
// "artist/album" when the sub-folder option is on, else empty.
QString subPath(const TrackNames& names, const QVariantMap& settings);
// The folders under the save folder: the sub-path, then the type with the
// type-folder option; lower case and without blanks when those options say so.
QString folderPart(const QString& subPath, const QString& type, const QVariantMap& settings);

// Everything uniqueFilename() needs for one target.
struct Target {
    QString namedFile;     // from namedFile()
    QString saveFolder;    // the folder the user chose
    QString subPath;       // artist/album, or empty
    QString type;          // the format name as the extension: "mp3", "m4a", ..., "clp" for a rip's clip
    QString sourcePath;    // the track file; its name makes the numbered names
    QVariantMap settings;  // the format's rip settings (folder options, character changes)
    bool replace = false;  // an existing file is overwritten
};
// The path of the file to make, its folder made (Reserve) or only worked out
// (Preview); the name is reserved in Reserve mode unless it replaces a file.
QString uniqueFilename(const Target& target, UniqueNames::Mode mode = UniqueNames::Mode::Reserve);

}  // namespace RipNaming
