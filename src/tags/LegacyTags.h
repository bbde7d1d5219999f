#pragma once
#include <QByteArray>
#include <QString>
#include <QVariantMap>

#include <array>

// The older tag readers built on id3info's frame lines, and the ID3v1 writer
// used when MP3 files are copied to flash players and MP3 discs.

// Fills absent "artist", "album", "track", "title" (more than three pieces) and
// "genre" (exactly five) from the file name split at "-".
void hyphenFilenameTags(const QString& path, QVariantMap& record);

class MP3Utils {
public:
    static constexpr int kTagSize = 128;

    // Assembles an ID3v1.1 tag from the source's ID3 frames into the buffer.
    // WMA, FLAC, Ogg, AIFF and WAV sources leave the buffer as it was.
    void makeID3v1(const QString& sourcePath);
    // Appends an ID3v1 tag made from the source to the target unless the
    // target already ends in one; -1 when the target cannot be opened.
    // A source makeID3v1 skips makes the target's own last 128 bytes repeat,
    // which is how the copies have always come out.
    int writeID3v1IfNeeded(const QString& targetPath, const QString& sourcePath);
    // Every key of a record from id3info's lines; a frame not found gives the
    // first line of the listing.
    static QVariantMap getTags(const QString& path);

    const std::array<unsigned char, kTagSize>& id3v1() const { return id3v1_; }

private:
    std::array<unsigned char, kTagSize> id3v1_ {};
};

class id3tag_wrapper {
public:
    // Keys of the frames found, "(N)" genres named from the ID3v1 table, then
    // guesses from the file name split at "-".
    static QVariantMap getComments(const QString& path);
};

// The same reader as id3tag_wrapper::getComments.
QVariantMap getMP3CommentsOld(const QString& path);
