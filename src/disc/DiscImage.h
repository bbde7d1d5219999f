#pragma once
#include "disc/CueSheet.h"

#include <QString>

#include <optional>

struct DiscTable;

// A cue sheet and the BIN file it names, checked against each other: one
// BINARY file of 2352-byte sectors holding every track, at least one of them
// audio, each starting inside the file. That is what libcdio and cd-paranoia
// read as a disc.
class DiscImage {
public:
    // Cue sheets are small; anything larger is not one.
    static constexpr qint64 kMaxCueBytes = 8 << 20;

    // Empty, with the reason in *error, when the pair cannot be read as a disc.
    static std::optional<DiscImage> open(const QString& cuePath, QString* error = nullptr);

    QString cuePath() const { return cuePath_; }
    QString binPath() const { return binPath_; }
    qint64 sectors() const { return sectors_; }  // whole sectors in the BIN
    const CueSheet& sheet() const { return sheet_; }

    // libcdio reads the BIN named like the cue sheet itself, whatever its FILE
    // line says: this writes a cue sheet of the same layout (".disc.cue") and a
    // link to the BIN beside it (".disc.bin") into folder. Returns the new cue
    // sheet's path; empty, with the reason in *error, when they cannot be made.
    QString writeReadableCopy(const QString& folder, QString* error = nullptr) const;

    // Lays the cue sheet's CD-Text over a table read from it.
    void addCdText(DiscTable& table) const;

private:
    QString cuePath_;
    QString binPath_;
    qint64 sectors_ = 0;
    CueSheet sheet_;
};
