#pragma once
#include <cstdint>
#include <cstdio>
#include <string>

namespace dvda {

// What a WAV file's header says about its samples.
struct WavFormat {
    unsigned rate = 0;
    unsigned channels = 0;
    unsigned bits = 0;
    bool floatingPoint = false;
    unsigned formatTag = 0;         // 1 PCM, 3 float, 0xFFFE extensible (its subformat decides)
    std::uint32_t channelMask = 0;  // speaker bits of an extensible header; 0 when none is given
    std::uint64_t dataOffset = 0;
    std::uint64_t dataBytes = 0;

    unsigned frameBytes() const { return channels * (bits / 8); }
    std::uint64_t frames() const { return frameBytes() ? dataBytes / frameBytes() : 0; }
};

// Reads the RIFF header of `path`. On success `reason` is empty; otherwise it
// says in plain words why the file is not a WAV we can read.
struct WavProbe {
    WavFormat format;
    std::string reason;
    bool unreadable = false;  // the file is there but reading it failed (not a matter of its content)
};
WavProbe probeWav(const std::string& path);

// Sequential reader of a probed file's sample bytes.
class WavReader {
public:
    WavReader(const std::string& path, const WavFormat& format);
    ~WavReader();
    WavReader(const WavReader&) = delete;
    WavReader& operator=(const WavReader&) = delete;

    // Reads up to `frames` whole sample frames into `out`; returns the number
    // read, 0 at the end. Throws std::runtime_error on a read error or when the
    // file ends before its header said it would.
    std::size_t read(std::uint8_t* out, std::size_t frames);

private:
    std::FILE* file_ = nullptr;
    std::string path_;
    WavFormat format_;
    std::uint64_t left_ = 0;
};

} // namespace dvda
