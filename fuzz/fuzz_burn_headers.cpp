// Feeds arbitrary bytes to the audio-CD producer's WAV/AIFF header parser, then
// pulls every block it promises.
#include "disc/AIFFTrackProducer.h"

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const int fd = memfd_create("burn-header", 0);
    if (fd < 0 || ::write(fd, data, size) != ssize_t(size)) {
        if (fd >= 0)
            ::close(fd);
        return 0;
    }
    AIFFTrackProducer::FileInfo info;
    if (AIFFTrackProducer::parseFile(fd, &info)) {
        AIFFTrackProducer producer(QStringLiteral("/proc/self/fd/%1").arg(fd));
        QString error;
        if (producer.prepareTrack(&error)) {
            QByteArray buffer(2352 * 4, '\0');
            qint64 total = 0;
            for (qint64 got; (got = producer.produceData(buffer.data(), buffer.size())) > 0;) {
                total += got;
                // One input byte at least for each output frame of 4 bytes.
                if (got > buffer.size() || got % 4 != 0 || total > 4 * qint64(size))
                    std::abort();
            }
            producer.cleanupTrackAfterBurn();
        }
    }
    ::close(fd);
    return 0;
}
