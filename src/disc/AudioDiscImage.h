#pragma once
#include "disc/AudioTrackProducer.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <memory>
#include <vector>

class Job;

// The tracks of an audio CD in disc order, with their CD-Text.
struct AudioDiscLayout {
    struct Track {
        std::unique_ptr<AudioTrackProducer> producer;
        QString title;
        QString performer;
    };
    QString title;
    QString performer;
    std::vector<Track> tracks;

    qint64 blocks() const;
};

// An audio CD written as a BIN/CUE pair (the cue sheet with CD-Text lines) and
// read back with cd-paranoia to check it holds what was sent.
namespace AudioDiscImage {

// The BIN beside a cue sheet: the same name ending in ".bin", which is what
// libcdio and cd-paranoia read.
QString binPathFor(const QString& cuePath);
QByteArray cueText(const AudioDiscLayout& layout, const QString& binName);

// Pulls every track from its producer into the BIN (whole blocks), writes the
// cue sheet, each through a new file renamed into place. digests receives one
// SHA-1 per track of the bytes written. An empty string on success, else why not.
QString write(Job& job, AudioDiscLayout& layout, const QString& cuePath, QList<QByteArray>* digests);

// Reads each track back and compares it with digests: "verified", or the
// reason the disc is not what was sent ("track 2 differs from what was written").
QString verify(Job& job, const QString& device, const QList<QByteArray>& digests, bool* same);

}  // namespace AudioDiscImage
