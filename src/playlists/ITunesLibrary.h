#pragma once
#include <QHash>
#include <QString>
#include <QVariantList>

#include <optional>

// What the importer keeps of an iTunes library file: each track's "Location"
// by its track ID, and the playlists ("Name" and "Playlist Items" of each).
// Everything else in the file is skipped while streaming through it, so a
// library of tens of thousands of tracks reads in little memory.
struct ITunesLibrary {
    QHash<QString, QString> locations;
    QVariantList playlists;

    // Nothing, and a message, when the file is missing, is not an XML
    // property list, declares entities or nests too deeply.
    static std::optional<ITunesLibrary> read(const QString& path, QString* error = nullptr);
    // The same for the bytes of such a file.
    static std::optional<ITunesLibrary> parse(const char* data, qsizetype length, QString* error = nullptr);
};
