#pragma once
#include <QString>

#include <optional>

struct DiscTable;
struct DiscTrack;

// A disc as a folder of the working folder: one small descriptor file per
// audio track ("01 Audio Track.cdda": the drive or image to read, the track
// number, its first sector and its length in sectors), which the WAV stage
// hands to cd-paranoia. The folder is the disc's "cdpath".
namespace DiscFolder {

// "Audio CD", or the album title the disc's CD-Text gives.
QString folderName(const QString& cdTextTitle);
// "01 Audio Track.cdda", or "01 " and the track's CD-Text title.
QString trackFileName(const DiscTrack& track);

// Makes a new folder for a disc in parent under folderName(cdTextTitle) (" 2",
// " 3", ... added while the name is taken) and marks it as this process's.
// Empty, with the reason in *error, when it cannot.
QString create(const QString& parent, const QString& cdTextTitle, QString* error = nullptr);
// Writes the descriptor of every audio track; device is what cd-paranoia reads.
bool writeTracks(const QString& folder, const DiscTable& table, const QString& device, QString* error = nullptr);
// Removes what create() and writeTracks() made (and an image's readable copy), then the folder.
void remove(const QString& folder);
// Removes the disc folders in parent whose process has ended.
void removeAbandoned(const QString& parent);
// Whether path is a disc folder made by create().
bool isDiscFolder(const QString& path);

struct TrackFile {
    QString device;
    int track = 0;
    qint64 firstSector = 0;
    qint64 length = 0;
};
// The descriptor a track file holds; empty when path is not one.
std::optional<TrackFile> readTrackFile(const QString& path);

}  // namespace DiscFolder
