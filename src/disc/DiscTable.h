#pragma once
#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

// One track of a disc's table of contents.
struct DiscTrack {
    int number = 0;
    qint64 firstSector = 0;  // logical sector; a pressed disc's first track starts at 0
    qint64 length = 0;       // sectors up to the next track or the lead-out
    bool audio = true;
    QString title;  // CD-Text, when the disc carries it
    QString performer;
};

// A disc's table of contents as libcdio reads it from a drive or an image.
struct DiscTable {
    QString source;  // the drive or the cue sheet that was read
    QList<DiscTrack> tracks;
    qint64 leadout = 0;  // logical sector of the lead-out
    QString title;       // CD-Text of the album
    QString performer;

    bool hasAudio() const;
    // The table in the drive's own form: a 4-byte header, then 11-byte descriptors
    // for 0xA0 (first track), 0xA1 (last track), 0xA2 (lead-out) and each track.
    QByteArray toc() const;
};

enum class DiscSource { Drive, Image };

// Reads the table (and, from a drive, the CD-Text) with libcdio. Empty, with a
// reason in *error, when there is no disc or the source cannot be read.
std::optional<DiscTable> readDiscTable(const QString& source, DiscSource kind, QString* error = nullptr);

// The CD drives libcdio finds, and the eject request for one of them.
QStringList libcdioDrives();
bool libcdioEject(const QString& device);
