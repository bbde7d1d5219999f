#pragma once
#include <QByteArray>

#include <functional>
#include <optional>

// ID3v2 tags as real files carry them. TagLib stops reading a tag at the first
// frame it cannot take (a size of 0, an identifier that is not capital letters
// and digits) and so loses every frame behind it, which a write then drops for
// good; it also misses frames behind an ID3v2.3 extended header and at the end
// of a tag with an extended header or a footer. Here the frames are walked as
// they lie, a frame that cannot be read is stepped over, and when TagLib would
// not see them all, a tag of the frames that can be read is made for it to
// parse instead.
namespace Id3TagRepair {

// Up to `length` bytes of the file from `offset`; fewer at its end.
using Reader = std::function<QByteArray(qint64 offset, qint64 length)>;

struct Repaired {
    QByteArray tag;       // header and the frames that can be read, without padding
    qint64 replaces = 0;  // the bytes of the old tag at the start of the file
    int dropped = 0;      // the frames left out
};

// The tag at the start of a file of `fileSize` bytes with the frames TagLib
// would stop at left out, and without extended header and footer; nothing when
// the file does not begin with an ID3v2 tag or TagLib reads every frame of it
// by itself.
std::optional<Repaired> repairLeadingTag(const Reader& read, qint64 fileSize);

}  // namespace Id3TagRepair
