#pragma once
#include <QString>

#include <optional>

// The audio of a file apart from its tags, so that a tag write can prove it
// kept the audio byte for byte before the new file replaces the old one:
// MPEG audio frames (the bytes between the leading ID3v2 tags and the trailing
// ID3v1 and APE tags), Ogg packets after the three Vorbis headers with their
// granule positions (the pages around them may be laid out anew, so only the
// positions both sides carry, and each stream's last, are compared), and the
// samples of every MP4 track in order, found through the sample tables (so a
// chunk-offset table that points elsewhere shows, not only a moved "mdat").
namespace AudioPayload {

enum class Format { Mpeg, Ogg, Mp4 };

// Why the audio of a file cannot be told apart from its tags: "" when it can.
QString unreadable(Format format, const QString& path);

// Why the audio of `after` is not that of `before`: "" when it is byte for byte.
QString difference(Format format, const QString& before, const QString& after);

// Where the MPEG audio frames of a file lie, between its leading and trailing
// tags; nullopt (and why) when there is none or a tag runs past the end.
struct ByteRange {
    qint64 offset = 0;
    qint64 length = 0;
};
std::optional<ByteRange> mpegFrames(const QString& path, QString* why = nullptr);

} // namespace AudioPayload
