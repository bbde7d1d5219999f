#pragma once
#include "Wav.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace dvda {

// The LPCM stream DVD-Audio carries for one track, and its codes in the
// AOB's private header and the IFO tables.
struct LpcmFormat {
    unsigned rate = 0;
    unsigned channels = 0;
    unsigned bits = 0;
    unsigned assignment = 0;      // DVD-Audio channel assignment index
    unsigned group1Channels = 0;  // the rest form channel group 2

    // Group 1 in the high nibble, group 2 in the low one (0xF: no group 2).
    std::uint8_t quantizationCode() const;
    std::uint8_t rateCode() const;
    // Samples come in pairs of frames; a pack holds whole pairs only.
    unsigned pairBytes() const { return 2 * channels * (bits / 8); }
    // An access unit ("audio frame") lasts 40 samples at 44.1/48 kHz, 80 at
    // 88.2/96 kHz, 160 at 176.4/192 kHz.
    unsigned frameSamples() const { return 40 * (rate % 44100 == 0 ? rate / 44100 : rate / 48000); }
    bool operator==(const LpcmFormat&) const = default;
};

// Why DVD-Audio cannot carry audio of this format, in plain words (e.g.
// "8-bit samples; DVD-Audio takes 16- or 24-bit"); empty when it can.
std::string refusalFor(const WavFormat& format);

// The stream for an accepted format. Channels keep the WAV's order: each
// assignment used lists its speakers in the order WAV files store them.
LpcmFormat lpcmFormatFor(const WavFormat& format);

// Rewrites `pairs` pairs of little-endian interleaved WAV frames into
// DVD-Audio order: 16-bit samples big-endian; 24-bit samples of a pair as the
// upper two bytes (big-endian) of every sample of both frames, then the low
// byte of every sample of both frames.
void toDvdOrder(const std::uint8_t* wav, std::size_t pairs, unsigned channels, unsigned bits, std::uint8_t* out);

} // namespace dvda
