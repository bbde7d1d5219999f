#pragma once
#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVariantList>

// The answers of a CDDB server over HTTP, taken apart line by line.
namespace FreeDBAnswers {

// UTF-8; an answer that is not valid UTF-8 (old servers send Latin-1) is read as Latin-1.
QString decode(const QByteArray& data);
// Lines end at "\r\n"; a bare "\n" ends one too.
QStringList lines(const QString& text);
// The first word of the first line.
QString statusCode(const QStringList& lines);

// The answer of cmd=sites: one server record {"host", "port", "cgi", "location"}
// per line whose second word is "http".
QVariantList serverList(const QStringList& lines);

struct Matches {
    QVariantList albums;   // album matches {"genre", "discid", "title", "cdpath"}
    QString readArgument;  // "genre+discid" of the match to read next; empty for none
};
// Status 200: every line of at least four words is a match (the status line too).
Matches exactMatches(const QStringList& lines, const QString& cdpath);
// Status 210 or 211: every line of more than three words that is not a status
// line; a title already taken is dropped, yet the last line is the one read.
Matches inexactMatches(const QStringList& lines, const QString& cdpath);

// The xmcd entry of cmd=cddb read as the CD info: one track info {"title",
// "artist", "album", "year", "genre", "track", "cdpath"} per track.
QVariantList cdInfo(const QStringList& lines, const QString& cdpath);

// "Artist / Album" as its two parts; one part is the artist alone.
QStringList artistAndAlbum(const QString& title);

}  // namespace FreeDBAnswers
