#pragma once
#include <QByteArray>
#include <QIODevice>
#include <QString>
#include <QVariantMap>

#include <cstddef>
#include <optional>
#include <stdexcept>

// Windows Media Audio (ASF) files are read, never written.

// A mapped attribute ("WM/Year", "WM/Genre", "WM/AlbumTitle", "WM/TrackNumber")
// whose value is neither text nor a 32-bit integer.
class WmaAttributeError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The track record of a WMA file: "title" and "artist" from the content
// description (their terminating U+0000 kept), "album", "year", "genre",
// "track" from the last extended content description, "duration" from the
// file properties. A file that cannot be opened gives an empty record. Throws
// WmaAttributeError; the tag dispatcher catches it and falls back to the file name.
std::optional<QVariantMap> getWMAComments(const QString& path);
// The same over an open, seekable device.
QVariantMap getWMAComments(QIODevice& device);

// Exchanges the two bytes of each of the length/2 16-bit units of a buffer.
void swap_bytes(void* buffer, size_t length);
// Narrows UTF-16 units (machine order) the way the older reader does: each unit,
// as a signed value divided by 256, is one character; copying stops after the
// first zero quotient or after 128 units, and never reads past `unitCount`.
QByteArray getWMAValue(const void* units, size_t unitCount);
// The first occurrence of `needle` in `haystack`, or nullptr (also for empty or
// missing buffers and a needle longer than the haystack).
const void* WMAmemmem(const void* haystack, size_t haystackLength, const void* needle, size_t needleLength);

// The older reader, which searches the first 64 KiB of the file for the
// content description and the attribute names. The tag dispatcher does not use it.
class wmatag_wrapper {
public:
    static QVariantMap getComments(const QString& path);
    // `head`: the first bytes of the file; `path` names it for the file-name fallback.
    static QVariantMap commentsFromHead(const QByteArray& head, const QString& path);
    static QByteArray getValue(const void* units, size_t unitCount) { return getWMAValue(units, unitCount); }
    static const void* memmem(const void* haystack, size_t haystackLength, const void* needle, size_t needleLength)
    {
        return WMAmemmem(haystack, haystackLength, needle, needleLength);
    }
};
