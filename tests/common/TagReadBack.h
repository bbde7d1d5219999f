#pragma once
// What other programs read from a tagged file, to check the system's writes
// against: ffprobe for MP3, vorbiscomment for Ogg, AtomicParsley for MP4.
#include <QByteArray>
#include <QString>

namespace tagreadback {

// The tool's listing of the file's tags (text; "" when the tool failed).
QString toolTags(const QString& path);
// Whether that listing holds key=value (case-insensitive key, as each tool names it):
// "artist" matches ffprobe's "TAG:artist=", vorbiscomment's "ARTIST=" and
// AtomicParsley's "©ART" line.
bool toolShows(const QString& path, const QString& key, const QString& value);
// Whether the tool sees a picture in the file.
bool toolShowsPicture(const QString& path);
// MD5 of the file's audio packets, copied without decoding (ffmpeg).
QByteArray audioMd5(const QString& path);

} // namespace tagreadback
