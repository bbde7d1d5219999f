// Feeds arbitrary bytes, as a file in memory, to the MP3 tag reader: the ID3v2
// mending in front of TagLib, the stream that shows TagLib the mended tag, and
// the getters over what TagLib made of it.
#include "tags/TagAPI.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // One file in memory, rewritten for each input: the reader takes a path.
    static const int fd = memfd_create("fuzz-mp3-tags", MFD_CLOEXEC);
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
