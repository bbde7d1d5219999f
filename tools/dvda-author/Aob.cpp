#include "Aob.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>

namespace dvda {
namespace {

// The DVD mux rate, 10.08 Mbit/s, in units of 50 bytes/s.
constexpr std::uint32_t kMuxRate = 25200;
// How long one pack takes to arrive at the mux rate, in 27 MHz ticks (rounded up).
constexpr std::uint64_t kPackTicks27 = (kSector * 8 * 27'000'000ull + kMuxRate * 400 - 1) / (kMuxRate * 400);

constexpr std::size_t kPackHeader = 14;
constexpr std::size_t kSystemHeader = 18;
// 00 00 01 BD, the packet length, and the two flag bytes and header length of a PES header.
constexpr std::size_t kPesFixed = 9;
constexpr std::size_t kPts = 5;
// PES extension flags and the P-STD buffer size, in a track's first packet.
constexpr std::size_t kPesExtension = 3;
// Sub-stream id, two ISRC bytes, the private header length, and the 8 bytes it counts without stuffing.
constexpr std::size_t kPrivateHeader = 12;
// A pack's spare room goes into the private header as stuffing while it is a
// few bytes, else into a padding packet (whose own header takes 6).
constexpr std::size_t kMaxStuffing = 7;
constexpr std::size_t kPaddingHeader = 6;

std::size_t capacity(bool first, bool pts)
{
    return kSector - kPackHeader - (first ? kSystemHeader + kPesExtension : 0) - kPesFixed - (pts ? kPts : 0) -
           kPrivateHeader;
}

void putScr(std::uint8_t* p, std::uint64_t scr27)
{
    const std::uint64_t base = scr27 / 300, ext = scr27 % 300;
    p[0] = static_cast<std::uint8_t>(0x44 | ((base >> 27) & 0x38) | ((base >> 28) & 0x03));
    p[1] = static_cast<std::uint8_t>(base >> 20);
    p[2] = static_cast<std::uint8_t>(((base >> 12) & 0xF8) | 0x04 | ((base >> 13) & 0x03));
    p[3] = static_cast<std::uint8_t>(base >> 5);
    p[4] = static_cast<std::uint8_t>(((base << 3) & 0xF8) | 0x04 | ((ext >> 7) & 0x03));
    p[5] = static_cast<std::uint8_t>((ext << 1) | 0x01);
}

void putPts(std::uint8_t* p, std::uint64_t pts)
{
    p[0] = static_cast<std::uint8_t>(0x21 | ((pts >> 29) & 0x0E));
    p[1] = static_cast<std::uint8_t>(pts >> 22);
    p[2] = static_cast<std::uint8_t>(((pts >> 14) & 0xFE) | 0x01);
    p[3] = static_cast<std::uint8_t>(pts >> 7);
    p[4] = static_cast<std::uint8_t>(((pts << 1) & 0xFE) | 0x01);
}

// 90 kHz ticks of `samples` at `rate`, rounded to the nearest tick.
std::uint64_t ticks(std::uint64_t samples, unsigned rate)
{
    return (samples * 90000 + rate / 2) / rate;
}

std::runtime_error writeError(const std::string& path)
{
    return std::runtime_error(path + ": " + std::strerror(errno));
}

} // namespace

AobWriter::AobWriter(std::string folder, std::uint32_t sectorLimit)
    : folder_(std::move(folder)), sectorLimit_(sectorLimit ? sectorLimit : 1)
{
    buffer_.reserve(256 * kSector);
}

AobWriter::~AobWriter()
{
    if (fd_ >= 0)
        ::close(fd_);
}

void AobWriter::beginTrack(const LpcmFormat& format, std::uint64_t frames)
{
    track_ = TrackPlacement{};
    track_.format = format;
    track_.frames = frames;
    track_.firstPts = nextTrackPts_;
    track_.firstSector = sectors_;
    pending_.clear();
    pendingStart_ = 0;
    bytesPacked_ = 0;
    firstPackOfTrack_ = true;
}

void AobWriter::add(const std::uint8_t* pairs, std::size_t bytes)
{
    pending_.insert(pending_.end(), pairs, pairs + bytes);
    const std::size_t pair = track_.format.pairBytes();
    for (;;) {
        const std::size_t full = capacity(firstPackOfTrack_, true) / pair * pair;
        // Keep a full pack back until more audio or the track's end says whether it is the last.
        if (pending_.size() - pendingStart_ <= full)
            break;
        emitPack(full);
    }
    if (pendingStart_ > (1u << 20)) {
        pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(pendingStart_));
        pendingStart_ = 0;
    }
}

TrackPlacement AobWriter::endTrack()
{
    while (pending_.size() > pendingStart_) {
        const std::size_t pair = track_.format.pairBytes();
        const std::size_t full = capacity(firstPackOfTrack_, true) / pair * pair;
        emitPack(std::min(full, pending_.size() - pendingStart_));
    }
    track_.lastSector = sectors_ - 1;
    track_.lengthPts = static_cast<std::uint32_t>(ticks(track_.frames, track_.format.rate));
    nextTrackPts_ = track_.firstPts + track_.lengthPts;
    return track_;
}

void AobWriter::emitPack(std::size_t audioBytes)
{
    const LpcmFormat& f = track_.format;
    const std::size_t frameBytes = std::size_t{f.frameSamples()} * f.channels * (f.bits / 8);
    const std::size_t sampleBytes = std::size_t{f.channels} * (f.bits / 8);
    const bool first = firstPackOfTrack_;

    // The first access unit (audio frame) that starts in this pack carries the PTS.
    const std::uint64_t frameStart = (bytesPacked_ + frameBytes - 1) / frameBytes * frameBytes;
    const bool hasPts = first || frameStart < bytesPacked_ + audioBytes;
    const std::size_t room = capacity(first, hasPts) - audioBytes;
    const std::size_t stuffing = room <= kMaxStuffing ? room : 0;
    const std::size_t padding = room <= kMaxStuffing ? 0 : room;

    // The system clock reference: when the pack enters the decoder, never
    // sooner after the last one than the mux rate allows.
    const std::uint64_t audioClock =
        std::uint64_t{track_.firstPts - kFirstPts} * 300 + bytesPacked_ / sampleBytes * 27'000'000ull / f.rate;
    std::uint64_t scr = anyPack_ ? lastScr_ + kPackTicks27 : 0;
    if (audioClock > scr)
        scr = audioClock;
    lastScr_ = scr;
    anyPack_ = true;

    std::uint8_t pack[kSector] = {};
    std::uint8_t* p = pack;
    p[2] = 0x01;
    p[3] = 0xBA;
    putScr(p + 4, scr);
    p[10] = static_cast<std::uint8_t>(kMuxRate >> 14);
    p[11] = static_cast<std::uint8_t>(kMuxRate >> 6);
    p[12] = static_cast<std::uint8_t>((kMuxRate << 2) | 0x03);
    p[13] = 0xF8;  // no pack stuffing
    p += kPackHeader;

    if (first) {
        // System header: rate bound at the mux rate, one audio stream, audio
        // locked to the clock, buffer bounds for all audio streams (8 KiB) and
        // private stream 1 (10 KiB).
        const std::uint8_t system[kSystemHeader] = {
            0x00, 0x00, 0x01, 0xBB, 0x00, 0x0C,
            static_cast<std::uint8_t>(0x80 | (kMuxRate >> 15)), static_cast<std::uint8_t>(kMuxRate >> 7),
            static_cast<std::uint8_t>((kMuxRate << 1) | 0x01),
            0x04, 0xA0, 0x7F, 0xB8, 0xC0, 0x40, 0xBD, 0xE0, 0x0A};
        std::memcpy(p, system, kSystemHeader);
        p += kSystemHeader;
    }

    const std::size_t headerData = (hasPts ? kPts : 0) + (first ? kPesExtension : 0);
    const std::size_t pesLength = 3 + headerData + kPrivateHeader + stuffing + audioBytes;
    p[0] = 0x00;
    p[1] = 0x00;
    p[2] = 0x01;
    p[3] = 0xBD;
    put16(p + 4, static_cast<unsigned>(pesLength));
    p[6] = 0x81;  // MPEG-2, original
    p[7] = static_cast<std::uint8_t>((hasPts ? 0x80 : 0x00) | (first ? 0x01 : 0x00));
    p[8] = static_cast<std::uint8_t>(headerData);
    p += kPesFixed;
    std::size_t unitOffset = 0;
    if (hasPts) {
        unitOffset = static_cast<std::size_t>(frameStart - bytesPacked_);
        putPts(p, track_.firstPts + ticks(frameStart / sampleBytes, f.rate));
        p += kPts;
    }
    if (first) {
        p[0] = 0x1E;  // P-STD buffer size follows
        p[1] = 0x60;  // scale 1024 bytes ...
        p[2] = 0x0A;  // ... times 10
        p += kPesExtension;
    }

    p[0] = 0xA0;  // LPCM sub-stream
    p[1] = 0x00;  // no ISRC
    p[2] = 0x00;
    p[3] = static_cast<std::uint8_t>(8 + stuffing);
    // From the last byte of this pointer to the first byte of the access unit.
    put16(p + 4, hasPts ? static_cast<unsigned>(6 + stuffing + 1 + unitOffset) : 0);
    p[6] = 0x10;  // no emphasis, no down-mix
    p[7] = f.quantizationCode();
    p[8] = f.rateCode();
    p[9] = 0x00;  // multichannel type
    p[10] = static_cast<std::uint8_t>(f.assignment);
    p[11] = 0x80;  // dynamic range: unity gain
    p += kPrivateHeader + stuffing;

    std::memcpy(p, pending_.data() + pendingStart_, audioBytes);
    p += audioBytes;
    if (padding) {
        p[0] = 0x00;
        p[1] = 0x00;
        p[2] = 0x01;
        p[3] = 0xBE;
        put16(p + 4, static_cast<unsigned>(padding - kPaddingHeader));
        std::memset(p + kPaddingHeader, 0xFF, padding - kPaddingHeader);
    }

    pendingStart_ += audioBytes;
    bytesPacked_ += audioBytes;
    firstPackOfTrack_ = false;
    writePack(pack);
}

void AobWriter::writePack(const std::uint8_t* pack)
{
    if (fd_ < 0 || sectorsInFile_ == sectorLimit_) {
        closeFile();
        if (names_.size() == 9)
            throw std::runtime_error("the audio needs more than 9 AOB files");
        const std::string name = "ATS_01_" + std::to_string(names_.size() + 1) + ".AOB";
        const std::string path = folder_ + "/" + name;
        fd_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (fd_ < 0)
            throw writeError(path);
        names_.push_back(name);
        sectorsInFile_ = 0;
    }
    buffer_.insert(buffer_.end(), pack, pack + kSector);
    ++sectorsInFile_;
    ++sectors_;
    if (buffer_.size() >= 256 * kSector)
        flushBuffer();
}

void AobWriter::flushBuffer()
{
    const std::uint8_t* data = buffer_.data();
    std::size_t left = buffer_.size();
    while (left) {
        const ssize_t n = ::write(fd_, data, left);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            throw writeError(folder_ + "/" + names_.back());
        data += n;
        left -= static_cast<std::size_t>(n);
    }
    buffer_.clear();
}

void AobWriter::closeFile()
{
    if (fd_ < 0)
        return;
    flushBuffer();
    const std::string path = folder_ + "/" + names_.back();
    if (::fsync(fd_) != 0) {
        ::close(fd_);
        fd_ = -1;
        throw writeError(path);
    }
    const int status = ::close(fd_);
    fd_ = -1;
    if (status != 0)
        throw writeError(path);
}

void AobWriter::finish()
{
    closeFile();
}

} // namespace dvda
