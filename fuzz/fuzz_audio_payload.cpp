// Feeds arbitrary bytes, as a file in memory, to the readers that tell a file's
// audio from its tags (MPEG, Ogg, MP4), and checks that audio they can find
// compares equal to itself.
#include "tags/AudioPayload.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // One file in memory, rewritten for each input: the readers take a path.
    static const int fd = memfd_create("fuzz-audio", MFD_CLOEXEC);
    static const QString path = QStringLiteral("/proc/self/fd/%1").arg(fd);
    if (fd < 0 || ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != ssize_t(size))
        std::abort();
    using AudioPayload::Format;
    for (Format format : {Format::Mpeg, Format::Ogg, Format::Mp4}) {
        if (AudioPayload::unreadable(format, path).isEmpty() && !AudioPayload::difference(format, path, path).isEmpty())
            std::abort();
    }
    return 0;
}
