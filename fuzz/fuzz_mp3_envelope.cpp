// Feeds arbitrary bytes, as a file in memory, to the scan of MP3 frames' side
// information behind the Clip tab's first waveform, and checks what it tells.
#include "tabs/Mp3Envelope.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // One file in memory, rewritten for each input: the scan takes a path.
    static const int fd = memfd_create("fuzz-mp3-envelope", MFD_CLOEXEC);
    static const QString path = QStringLiteral("/proc/self/fd/%1").arg(fd);
    if (fd < 0 || ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != ssize_t(size))
        std::abort();
    const std::atomic<bool> cancel{false};
    const auto envelope = Mp3Envelope::read(path, cancel);
    if (!envelope)
        return 0;
    // Every granule stands for at least 576 samples of a frame at least 24 bytes long.
    if (envelope->rate < 8000 || envelope->rate > 48000 || envelope->loudness.empty() ||
        envelope->loudness.size() > size / 24)
        std::abort();
    for (const float loudness : envelope->loudness)
        if (!std::isfinite(loudness) || loudness < 0)
            std::abort();
    return 0;
}
