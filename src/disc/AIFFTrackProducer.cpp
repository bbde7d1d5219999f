#include "disc/AIFFTrackProducer.h"

#include <QFile>
#include <QtDebug>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

uint32_t bigEndian32(const unsigned char* p)
{
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}
uint32_t littleEndian32(const unsigned char* p)
{
    return uint32_t(p[3]) << 24 | uint32_t(p[2]) << 16 | uint32_t(p[1]) << 8 | p[0];
}
uint16_t bigEndian16(const unsigned char* p)
{
    return uint16_t(p[0] << 8 | p[1]);
}
uint16_t littleEndian16(const unsigned char* p)
{
    return uint16_t(p[1] << 8 | p[0]);
}

bool readAt(int fd, qint64 offset, unsigned char* buffer, size_t length)
{
    size_t got = 0;
    while (got < length) {
        const ssize_t n = ::pread(fd, buffer + got, length - got, off_t(offset + qint64(got)));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        got += size_t(n);
    }
    return true;
}

// Steps through the chunk headers from offset 12 until one with either id: each
// step goes from the end of the header just read by that chunk's size, read in
// the given byte order. The offset of the chunk found, or -1.
qint64 findChunk(int fd, const char* id, const char* otherId, bool sizeBigEndian)
{
    qint64 position = 12;
    for (;;) {
        unsigned char header[8];
        if (position > qint64(UINT32_MAX) - 26 || !readAt(fd, position, header, sizeof header))
            return -1;
        if (std::memcmp(header, id, 4) == 0 || std::memcmp(header, otherId, 4) == 0)
            return position;
        position += 8 + qint64(sizeBigEndian ? bigEndian32(header + 4) : littleEndian32(header + 4));
    }
}

bool refuse(QString* why, const QString& text)
{
    qInfo().noquote() << text;
    if (why)
        *why = text;
    return false;
}

}  // namespace

AIFFTrackProducer::AIFFTrackProducer(QString path) : path_(std::move(path))
{
    if (parseFileAtPath(path_, &info_, &problem_)) {
        length_ = lengthOf(info_);
        if (length_ == 0)
            problem_ = QStringLiteral("it holds less than one CD block of sound");
    }
}

AIFFTrackProducer::~AIFFTrackProducer()
{
    cleanupTrackAfterBurn();
}

bool AIFFTrackProducer::parseFileAtPath(const QString& path, FileInfo* info, QString* why)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        *info = FileInfo();
        return refuse(why, QString::fromLocal8Bit(std::strerror(errno)));
    }
    const bool parsed = parseFile(fd, info, why);
    ::close(fd);
    return parsed;
}

bool AIFFTrackProducer::parseFile(int fd, FileInfo* info, QString* why)
{
    *info = FileInfo();
    unsigned char head[24];
    if (!readAt(fd, 0, head, sizeof head)
        || (std::memcmp(head, "RIFF", 4) != 0 && std::memcmp(head, "FORM", 4) != 0)
        || (std::memcmp(head + 8, "WAVE", 4) != 0 && std::memcmp(head + 8, "AIFF", 4) != 0))
        return refuse(why, QStringLiteral("it is neither a WAV nor an AIFF file"));

    // The format chunk is looked for with big-endian sizes in both formats.
    const qint64 format = findChunk(fd, "fmt ", "COMM", true);
    unsigned char chunk[26];
    if (format < 0 || !readAt(fd, format, chunk, sizeof chunk))
        return refuse(why, QStringLiteral("it has no format chunk"));
    FileInfo found;
    if (std::memcmp(chunk, "fmt ", 4) == 0) {
        if (littleEndian32(chunk + 4) != 16) {
            qInfo("invalid common chunk size (BE=%ld / LE=%ld)... ignoring", long(bigEndian32(chunk + 4)),
                  long(littleEndian32(chunk + 4)));
        }
        found.channels = littleEndian16(chunk + 10);
        found.sampleRate = littleEndian32(chunk + 12);
        found.bitsPerSample = littleEndian16(chunk + 22);
    } else {
        if (bigEndian32(chunk + 10) == 0) {
            qInfo("No samples in the file... aborting");
            return true;
        }
        found.channels = bigEndian16(chunk + 8);
        found.bitsPerSample = bigEndian16(chunk + 14);
        found.sampleRate = bigEndian32(chunk + 16);
        found.aiff = 1;
    }
    found.bytesPerSample = (found.bitsPerSample + 7) / 8;

    switch (found.channels) {
    case 1: case 2: case 3: case 4: case 6:
        break;
    default:
        return refuse(why, QString::asprintf("invalid number of channels (%ld)", long(found.channels)));
    }
    // AIFF's 80-bit rates of 44,100 and 22,050 Hz; the latter is played as if it were 44,100.
    const bool rateOk = found.aiff ? (found.sampleRate == 0x400EAC44 || found.sampleRate == 0x400DAC44)
                                   : found.sampleRate == 44100;
    if (!rateOk)
        return refuse(why, QString::asprintf("invalid sample frequency ($%08X)", unsigned(found.sampleRate)));
    if (found.bitsPerSample < 1 || found.bitsPerSample > 128)
        return refuse(why, QString::asprintf("invalid sample size (%ld bits)", long(found.bitsPerSample)));

    const qint64 samples = findChunk(fd, "data", "SSND", found.aiff != 0);
    unsigned char sampleHeader[16];
    if (samples < 0 || !readAt(fd, samples, sampleHeader, sizeof sampleHeader))
        return refuse(why, QStringLiteral("it has no sample data"));
    const uint32_t start = uint32_t(samples);
    if (found.aiff) {
        found.dataStart = start + 16 + bigEndian32(sampleHeader + 8);
        found.dataEnd = start + 8 + bigEndian32(sampleHeader + 4);
    } else {
        found.dataStart = start + 16;
        found.dataEnd = found.dataStart + littleEndian32(sampleHeader + 4) - 8;
    }
    if (bigEndian32(sampleHeader + 4) > 7) {
        struct stat status {};
        if (::fstat(fd, &status) == 0 && status.st_size < qint64(found.dataEnd))
            found.dataEnd = uint32_t(status.st_size);
    } else {
        found.dataEnd = start + 16;
    }
    *info = found;
    return true;
}

qint64 AIFFTrackProducer::lengthOf(const FileInfo& info)
{
    const uint32_t frameBytes = info.channels * info.bytesPerSample;
    if (frameBytes == 0 || info.dataEnd <= info.dataStart)
        return 0;
    const qint64 frames = (info.dataEnd - info.dataStart) / frameBytes;
    return frames * 4 / kBlockBytes;
}

bool AIFFTrackProducer::prepareTrack(QString* error)
{
    cleanupTrackAfterBurn();
    fd_ = ::open(QFile::encodeName(path_).constData(), O_RDONLY | O_CLOEXEC);
    if (fd_ < 0) {
        if (error)
            *error = QString::fromLocal8Bit(std::strerror(errno));
        return false;
    }
    // Read once, front to back: keep the file out of the page cache's way.
    ::posix_fadvise(fd_, 0, 0, POSIX_FADV_SEQUENTIAL);
    ::posix_fadvise(fd_, 0, 0, POSIX_FADV_NOREUSE);
    FileInfo info;
    if (!parseFile(fd_, &info, error)) {
        cleanupTrackAfterBurn();
        return false;
    }
    // The file may have changed since the layout was made; the burn takes it as it is now.
    info_ = info;
    length_ = lengthOf(info_);
    position_ = info_.dataStart;
    sampleMask_ = info_.bitsPerSample >= 32 ? 0 : 0xFFFF0000u >> info_.bitsPerSample;
    return true;
}

qint64 AIFFTrackProducer::produceData(char* buffer, qint64 length)
{
    if (fd_ < 0)
        return 0;
    const uint32_t frameBytes = info_.channels * info_.bytesPerSample;
    if (frameBytes == 0 || position_ >= info_.dataEnd)
        return 0;
    const qint64 framesWanted = length / 4;
    const qint64 bytesToRead = std::min<qint64>(framesWanted * frameBytes, info_.dataEnd - position_);
    const bool inPlace = frameBytes == 4 && info_.bytesPerSample == 2;
    unsigned char* in = reinterpret_cast<unsigned char*>(buffer);
    if (!inPlace) {
        // One byte more than read: an 8-bit sample's word takes the next byte too.
        scratch_.resize(bytesToRead + 1);
        in = reinterpret_cast<unsigned char*>(scratch_.data());
    }
    ssize_t got;
    do {
        got = ::pread(fd_, in, size_t(bytesToRead), off_t(position_));
    } while (got < 0 && errno == EINTR);
    if (got <= 0)
        return 0;
    if (!inPlace)
        in[got] = 0;
    position_ += uint32_t(got);
    const qint64 frames = got / frameBytes;

    const uint32_t mask = sampleMask_;
    const uint32_t step = info_.bytesPerSample;
    auto swapped = [&](const unsigned char* p) { return (uint32_t(p[0]) << 8 | p[1]) & mask; };
    auto third = [](uint32_t x) { return 2 * x / 3; };
    unsigned char* out = reinterpret_cast<unsigned char*>(buffer);
    auto put = [&](qint64 frame, uint32_t left, uint32_t right) {
        unsigned char* o = out + frame * 4;
        o[0] = uint8_t(left);
        o[1] = uint8_t(left >> 8);
        o[2] = uint8_t(right);
        o[3] = uint8_t(right >> 8);
    };
    for (qint64 frame = 0; frame < frames; ++frame) {
        const unsigned char* s = in + frame * frameBytes;
        switch (info_.channels) {
        case 1: {
            const uint32_t v = swapped(s);
            put(frame, v, v);
            break;
        }
        case 2:
            if (info_.aiff)
                put(frame, swapped(s), swapped(s + step));
            else if (!inPlace)
                put(frame, (uint32_t(s[1]) << 8 | s[0]) & mask, (uint32_t(s[step + 1]) << 8 | s[step]) & mask);
            // A 16-bit stereo WAV frame is already what the disc takes.
            break;
        case 3: {
            const uint32_t c = third(swapped(s + 2 * step));
            put(frame, third(swapped(s)) + c, third(swapped(s + step)) + c);
            break;
        }
        case 4: {
            const uint32_t c = third(third(swapped(s + step)) + third(swapped(s + 3 * step)));
            put(frame, third(swapped(s)) + c, third(swapped(s + 2 * step)) + c);
            break;
        }
        case 6: {
            const uint32_t c = third(third(swapped(s + 2 * step)) + third(swapped(s + 5 * step)));
            put(frame, third(third(swapped(s)) + third(swapped(s + step))) + c,
                third(third(swapped(s + 3 * step)) + third(swapped(s + 4 * step))) + c);
            break;
        }
        }
    }
    return 4 * frames;
}

void AIFFTrackProducer::cleanupTrackAfterBurn()
{
    if (fd_ >= 0)
        ::close(fd_);
    fd_ = -1;
}
