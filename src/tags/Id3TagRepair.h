#pragma once
#include <QByteArray>

#include <functional>
#include <optional>

// ID3v2 tags as real files carry them. TagLib stops reading a tag at the first
// frame it cannot take (a size of 0, a size past the end of the tag, an
// identifier that is not capital letters and digits) and so loses every frame
// behind it, which a write then drops for good. Here the frames are walked the
// way TagLib walks them, a frame that cannot be read is stepped over, and a tag
// of the frames that can be read is made for TagLib to parse instead.
namespace Id3TagRepair {

// Up to `length` bytes of the file from `offset`; fewer at its end.
using Reader = std::function<QByteArray(qint64 offset, qint64 length)>;

struct Repaired {
    QByteArray tag;       // header and the frames that can be read, without padding
    qint64 replaces = 0;  // the bytes of the old tag at the start of the file
    int dropped = 0;      // the frames left out
};

// The tag at the start of a file of `fileSize` bytes with the frames TagLib
// would stop at left out; nothing when the file does not begin with an ID3v2
// tag or TagLib reads every frame of it by itself.
std::optional<Repaired> repairLeadingTag(const Reader& read, qint64 fileSize);

}  // namespace Id3TagRepair
