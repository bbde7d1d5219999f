#pragma once
#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

// A cue sheet read from its text: the image files it names and the tracks laid
// out in them. Only the commands that shape a disc are kept; the rest are
// recognised and passed over.
struct CueSheet {
    struct File {
        QString name;  // as the FILE line gives it
        QString type;  // "BINARY", "WAVE", ...
        int line = 0;
    };
    struct Track {
        int number = 0;
        QString mode;        // "AUDIO", "MODE1/2352", ...
        int sectorSize = 0;  // bytes per sector the mode stores in the file
        bool audio = false;
        int file = -1;       // index into files
        qint64 index0 = -1;  // sectors from the start of its file; -1 when absent
        qint64 index1 = -1;
        QString title;  // CD-Text
        QString performer;
        int line = 0;
    };

    QString title;  // CD-Text of the disc
    QString performer;
    QList<File> files;
    QList<Track> tracks;

    // Text in UTF-8 when it is valid UTF-8, else Latin-1 (older tools write that).
    // Empty with a reason ("line 7: ...") in *error when the text is not a cue
    // sheet of up to 99 tracks numbered from 1 with increasing positions.
    static std::optional<CueSheet> parse(const QByteArray& text, QString* error = nullptr);
};
