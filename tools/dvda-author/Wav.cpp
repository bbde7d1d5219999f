#include "Wav.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <sys/stat.h>

namespace dvda {
namespace {

unsigned le16(const unsigned char* p)
{
    return p[0] | (p[1] << 8);
}

std::uint32_t le32(const unsigned char* p)
{
    return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}

// The tail shared by the PCM and IEEE-float subformat GUIDs of an extensible header.
constexpr unsigned char kGuidTail[14] = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80,
                                         0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};

struct File {
    std::FILE* f;
    explicit File(const std::string& path) : f(std::fopen(path.c_str(), "rb")) {}
    ~File()
    {
        if (f)
            std::fclose(f);
    }
};

} // namespace

WavProbe probeWav(const std::string& path)
{
    WavProbe probe;
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        probe.unreadable = errno != ENOENT;
        probe.reason = errno == ENOENT ? "no such file" : std::string("cannot be read: ") + std::strerror(errno);
        return probe;
    }
    if (!S_ISREG(info.st_mode)) {
        probe.reason = "not a regular file";
        return probe;
    }
    File file(path);
    if (!file.f) {
        probe.unreadable = true;
        probe.reason = std::string("cannot be read: ") + std::strerror(errno);
        return probe;
    }
    const std::uint64_t size = static_cast<std::uint64_t>(info.st_size);
    unsigned char riff[12];
    if (std::fread(riff, 1, 12, file.f) != 12 || std::memcmp(riff, "RIFF", 4) != 0 || std::memcmp(riff + 8, "WAVE", 4) != 0) {
        probe.reason = "not a WAV file";
        return probe;
    }

    WavFormat& format = probe.format;
    bool haveFormat = false;
    std::uint64_t at = 12;
    while (at + 8 <= size) {
        unsigned char head[8];
        if (std::fseek(file.f, static_cast<long>(at), SEEK_SET) != 0 || std::fread(head, 1, 8, file.f) != 8)
            break;
        const std::uint64_t length = le32(head + 4);
        const std::uint64_t body = at + 8;
        if (std::memcmp(head, "fmt ", 4) == 0) {
            unsigned char fmt[40] = {};
            if (length < 16 || length > size - body || std::fread(fmt, 1, length < 40 ? length : 40, file.f) < 16) {
                probe.reason = "damaged WAV header (format chunk)";
                return probe;
            }
            format.formatTag = le16(fmt);
            format.channels = le16(fmt + 2);
            format.rate = le32(fmt + 4);
            const unsigned blockAlign = le16(fmt + 12);
            format.bits = le16(fmt + 14);
            unsigned tag = format.formatTag;
            if (tag == 0xFFFE) {
                if (length < 40) {
                    probe.reason = "damaged WAV header (extensible format too short)";
                    return probe;
                }
                format.channelMask = le32(fmt + 20);
                if (std::memcmp(fmt + 26, kGuidTail, sizeof kGuidTail) != 0) {
                    probe.reason = "compressed audio (unknown subformat); DVD-Audio takes uncompressed PCM";
                    return probe;
                }
                tag = le16(fmt + 24);
            }
            if (tag == 3) {
                format.floatingPoint = true;
            } else if (tag != 1) {
                char text[96];
                std::snprintf(text, sizeof text, "compressed audio (format 0x%04X); DVD-Audio takes uncompressed PCM", tag);
                probe.reason = text;
                return probe;
            }
            if (format.channels == 0 || format.rate == 0 || format.bits == 0 || format.bits % 8 != 0 ||
                blockAlign != format.channels * format.bits / 8) {
                probe.reason = "damaged WAV header (inconsistent sample sizes)";
                return probe;
            }
            haveFormat = true;
        } else if (std::memcmp(head, "data", 4) == 0) {
            if (!haveFormat) {
                probe.reason = "damaged WAV header (audio before its format)";
                return probe;
            }
            if (length > size - body) {
                probe.reason = "cut short: the header promises more audio than the file holds";
                return probe;
            }
            format.dataOffset = body;
            format.dataBytes = length - length % format.frameBytes();
            if (format.dataBytes == 0)
                probe.reason = "holds no audio";
            return probe;
        }
        at = body + length + (length & 1);
    }
    probe.reason = haveFormat ? "holds no audio (no data chunk)" : "damaged WAV header (no format chunk)";
    return probe;
}

WavReader::WavReader(const std::string& path, const WavFormat& format)
    : file_(std::fopen(path.c_str(), "rb")), path_(path), format_(format), left_(format.frames())
{
    if (!file_ || std::fseek(file_, static_cast<long>(format.dataOffset), SEEK_SET) != 0)
        throw std::runtime_error(path + ": cannot be read: " + std::strerror(errno));
}

WavReader::~WavReader()
{
    if (file_)
        std::fclose(file_);
}

std::size_t WavReader::read(std::uint8_t* out, std::size_t frames)
{
    if (frames > left_)
        frames = static_cast<std::size_t>(left_);
    if (frames == 0)
        return 0;
    const std::size_t bytes = frames * format_.frameBytes();
    if (std::fread(out, 1, bytes, file_) != bytes)
        throw std::runtime_error(path_ + ": " + (std::ferror(file_) ? std::strerror(errno) : "ended before its audio did"));
    left_ -= frames;
    return frames;
}

} // namespace dvda
