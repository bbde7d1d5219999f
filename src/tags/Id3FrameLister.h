#pragma once
#include <QByteArray>
#include <QString>

// The frame listing of id3info, made in-process: a blank line, "*** Tag
// information for PATH", then one line per frame,
//   "=== TIT2 (Title/songname/content description): text"
// with the frame identifiers as stored (TT2 in ID3v2.2 tags, TIT2 in 2.3/2.4).
// ID3v1 fields missing from the ID3v2 tag follow as TIT2, TPE1, TALB, TYER,
// TRCK, COMM and TCON lines, as id3lib merges them. Texts are UTF-8. Damaged
// tags give the frames read before the damage. Every reader of id3info output
// goes through this function.
QByteArray id3infoOutput(const QString& path);

// The same for tag bytes already in memory (the start and the last 128 bytes of a file).
QByteArray id3infoOutputForBytes(const QString& displayName, const QByteArray& head, const QByteArray& tail);
