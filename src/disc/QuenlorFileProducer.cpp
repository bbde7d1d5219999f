#include "disc/QuenlorFileProducer.h"

#include "tags/LegacyTags.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool readExactly(int fd, unsigned char* buffer, size_t length, off_t offset)
{
    ssize_t got;
    do {
        got = ::pread(fd, buffer, length, offset);
    } while (got < 0 && errno == EINTR);
    return got == ssize_t(length);
}

}  // namespace

QuenlorFileProducer::QuenlorFileProducer(QString sourcePath) : sourcePath_(std::move(sourcePath)) {}

QuenlorFileProducer::~QuenlorFileProducer() = default;

void QuenlorFileProducer::setPreferences(bool stripID3v2, bool appendID3v1)
{
    strip_ = stripID3v2;
    appendPreference_ = appendID3v1;
}

bool QuenlorFileProducer::prepareFileForBurn()
{
    diskName_ = fileIndex_ + QFileInfo(sourcePath_).fileName();
    const int fd = ::open(QFile::encodeName(sourcePath_).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat status {};
    if (::fstat(fd, &status) != 0) {
        ::close(fd);
        return false;
    }
    fileSize_ = status.st_size;
    if (appendPreference_ && appendsTags()) {
        // A file that already ends in an ID3v1 tag gets no second one.
        unsigned char last[3] = {};
        append_ = !(fileSize_ >= kTagSize && readExactly(fd, last, 3, off_t(fileSize_ - kTagSize))
                    && std::memcmp(last, "TAG", 3) == 0);
        tagBytesLeft_ = kTagSize;
    } else {
        append_ = 0;
        tagBytesLeft_ = 0;
    }
    unsigned char head[10] = {};
    if (!readExactly(fd, head, sizeof head, 0) || std::memcmp(head, "ID3", 3) != 0) {
        // Without an ID3v2 tag there is nothing to leave out, and no frames to make a tag from.
        append_ = 0;
        strip_ = false;
        skip_ = 0;
        tagBytesLeft_ = 0;
    } else {
        const qint64 size = qint64(head[6] & 0x7F) << 21 | qint64(head[7] & 0x7F) << 14 | qint64(head[8] & 0x7F) << 7
                            | qint64(head[9] & 0x7F);
        skip_ = strip_ ? std::min(size + 10, fileSize_) : 0;
        if (append_)
            makeID3v1(sourcePath_);
    }
    ::close(fd);
    return true;
}

bool QuenlorFileProducer::prepareFileForVerification()
{
    tagBytesLeft_ = kTagSize;
    return true;
}

qint64 QuenlorFileProducer::calculateSizeOfFile() const
{
    return fileSize_ - (strip_ ? skip_ : 0) + (append_ ? kTagSize : 0);
}

qint64 QuenlorFileProducer::readSource(char* buffer, qint64 length, qint64 address)
{
    const int fd = ::open(QFile::encodeName(sourcePath_).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return 0;
    ssize_t got;
    do {
        got = ::pread(fd, buffer, size_t(length), off_t(skip_ + address));
    } while (got < 0 && errno == EINTR);
    ::close(fd);
    return std::max<qint64>(got, 0);
}

qint64 QuenlorFileProducer::produceFile(char* buffer, qint64 length, qint64 address)
{
    const qint64 got = readSource(buffer, length, address);
    if (!append_)
        return got;
    if (tagBytesLeft_ < kTagSize) {
        const qint64 owed = std::max<int16_t>(tagBytesLeft_, 0);
        std::memcpy(buffer + got, id3v1_.data() + kTagSize - owed, size_t(std::min(owed, length - got)));
        tagBytesLeft_ = 0;
        return got + std::min(owed, length - got);
    }
    if (got >= length)
        return got;
    const qint64 copied = std::min<qint64>(length - got, kTagSize);
    std::memcpy(buffer + got, id3v1_.data(), size_t(copied));
    // The count goes down by the room left after the copy, not by the bytes
    // copied: a tag split over two requests starts again from its first byte.
    tagBytesLeft_ = int16_t(tagBytesLeft_ - std::min<qint64>(length - (got + copied), kTagSize));
    return got + copied;
}

void QuenlorFileProducer::cleanupFileAfterBurn()
{
    fileIndex_.clear();
    diskName_.clear();
}

void QuenlorFileProducer::makeID3v1(const QString& sourcePath)
{
    MP3Utils utils;
    utils.makeID3v1(sourcePath);
    id3v1_ = utils.id3v1();
}

qint64 QuenlorNoID3FileProducer::calculateSizeOfFile() const
{
    return fileSize_ - skip_;
}

qint64 QuenlorNoID3FileProducer::produceFile(char* buffer, qint64 length, qint64 address)
{
    return readSource(buffer, length, address);
}
