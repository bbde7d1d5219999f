// Feeds arbitrary bytes to the in-process ID3 frame lister (as the start of a
// file and as its last 128 bytes) and to the mending of ID3v2 tags TagLib would
// give up on. The MP3 tag reader built on TagLib has a target of its own
// (fuzz_mp3_tags): TagLib's search for MPEG frames makes it far slower.
#include "tags/Id3FrameLister.h"
#include "tags/Id3TagRepair.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char*>(data), qsizetype(size));
    id3infoOutputForBytes(QStringLiteral("fuzz.mp3"), bytes, bytes.right(128));

    const auto read = [&](qint64 offset, qint64 length) { return bytes.mid(offset, length); };
    if (const auto repaired = Id3TagRepair::repairLeadingTag(read, bytes.size())) {
        // A mended tag's size is what it holds.
        const QByteArray& tag = repaired->tag;
        const qint64 body = (qint64(tag[6]) << 21) | (qint64(tag[7]) << 14) | (qint64(tag[8]) << 7) | tag[9];
        if (repaired->replaces < 10 || !tag.startsWith("ID3") || body != tag.size() - 10)
            std::abort();
    }
    return 0;
}
