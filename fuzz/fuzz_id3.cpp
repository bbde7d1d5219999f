// Feeds arbitrary bytes to the in-process ID3 frame lister (as the start of a
// file and as its last 128 bytes), to the mending of ID3v2 tags TagLib would
// give up on, and, as a file in memory, to the MP3 tag reader built on both.
#include "tags/Id3FrameLister.h"
#include "tags/Id3TagRepair.h"
#include "tags/TagAPI.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

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

    // One file in memory, rewritten for each input: the reader takes a path.
    static const int fd = memfd_create("fuzz-id3", MFD_CLOEXEC);
    static const QString path = QStringLiteral("/proc/self/fd/%1").arg(fd);
    if (fd < 0 || ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != ssize_t(size))
        std::abort();
    TagAPI& tags = TagAPI::forThisThread();
    if (tags.examineFile(path)) {
        tags.getTitle();
        tags.getArtist();
        tags.getAlbum();
        tags.getTrack();
        tags.getYear();
        tags.getGenreNames();
        tags.getTotalNumberTracks();
        tags.getDuration();
    }
    tags.releaseFile();
    return 0;
}
