#include "Lpcm.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <iterator>

namespace dvda {
namespace {

// WAV speaker bits.
constexpr std::uint32_t kL = 0x1, kR = 0x2, kC = 0x4, kLfe = 0x8, kLs = 0x10, kRs = 0x20, kS = 0x100;
constexpr std::uint32_t kSideLeft = 0x200, kSideRight = 0x400;

struct Assignment {
    unsigned index;
    std::uint32_t speakers;
    unsigned group1;
};

// The assignments whose speaker order is the WAV order, so no channel moves.
constexpr Assignment kAssignments[] = {
    {0, kC, 1},
    {1, kL | kR, 2},
    {2, kL | kR | kS, 2},
    {3, kL | kR | kLs | kRs, 2},
    {4, kL | kR | kLfe, 2},
    {5, kL | kR | kLfe | kS, 2},
    {6, kL | kR | kLfe | kLs | kRs, 2},
    {7, kL | kR | kC, 2},
    {8, kL | kR | kC | kS, 2},
    {9, kL | kR | kC | kLs | kRs, 2},
    {10, kL | kR | kC | kLfe, 2},
    {11, kL | kR | kC | kLfe | kS, 2},
    {12, kL | kR | kC | kLfe | kLs | kRs, 2},
};

// The usual layout of a WAV without speaker bits, by channel count.
constexpr std::uint32_t kDefaultLayout[7] = {0,
                                             kC,
                                             kL | kR,
                                             kL | kR | kC,
                                             kL | kR | kLs | kRs,
                                             kL | kR | kC | kLs | kRs,
                                             kL | kR | kC | kLfe | kLs | kRs};

constexpr unsigned kRates[] = {44100, 48000, 88200, 96000, 176400, 192000};
// The LPCM bit-rate ceiling of a DVD-Audio stream.
constexpr std::uint64_t kMaxBitsPerSecond = 9'600'000;

std::uint32_t layoutOf(const WavFormat& format)
{
    std::uint32_t mask = format.channelMask;
    // Side surrounds play where back surrounds do.
    if (mask & (kSideLeft | kSideRight))
        mask = (mask & ~(kSideLeft | kSideRight)) | ((mask & kSideLeft) ? kLs : 0) | ((mask & kSideRight) ? kRs : 0);
    if (mask == 0 || static_cast<unsigned>(std::popcount(mask)) != format.channels)
        return format.channels <= 6 ? kDefaultLayout[format.channels] : 0;
    if (format.channels == 1)
        return kC;
    return mask;
}

const Assignment* assignmentFor(const WavFormat& format)
{
    const std::uint32_t layout = layoutOf(format);
    for (const Assignment& a : kAssignments)
        if (a.speakers == layout)
            return &a;
    return nullptr;
}

std::string khz(unsigned rate)
{
    char text[16];
    if (rate % 1000 == 0)
        std::snprintf(text, sizeof text, "%u kHz", rate / 1000);
    else
        std::snprintf(text, sizeof text, "%.1f kHz", rate / 1000.0);
    return text;
}

} // namespace

std::uint8_t LpcmFormat::quantizationCode() const
{
    const unsigned code = bits == 16 ? 0 : bits == 20 ? 1 : 2;
    return static_cast<std::uint8_t>(code << 4 | (channels > group1Channels ? code : 0xF));
}

std::uint8_t LpcmFormat::rateCode() const
{
    unsigned code = 0;
    switch (rate) {
    case 48000: code = 0x0; break;
    case 96000: code = 0x1; break;
    case 192000: code = 0x2; break;
    case 44100: code = 0x8; break;
    case 88200: code = 0x9; break;
    default: code = 0xA; break;  // 176.4 kHz
    }
    return static_cast<std::uint8_t>(code << 4 | (channels > group1Channels ? code : 0xF));
}

std::string refusalFor(const WavFormat& format)
{
    if (format.floatingPoint)
        return std::to_string(format.bits) + "-bit floating-point samples; DVD-Audio takes 16- or 24-bit integer samples";
    if (format.bits != 16 && format.bits != 24)
        return std::to_string(format.bits) + "-bit samples; DVD-Audio takes 16- or 24-bit";
    if (std::find(std::begin(kRates), std::end(kRates), format.rate) == std::end(kRates))
        return std::to_string(format.rate) + " Hz sampling; DVD-Audio takes 44.1, 48, 88.2, 96, 176.4 or 192 kHz";
    if (format.channels < 1 || format.channels > 6)
        return std::to_string(format.channels) + " channels; DVD-Audio takes 1 to 6";
    if (format.rate > 96000 && format.channels > 2)
        return std::to_string(format.channels) + " channels at " + khz(format.rate) +
               "; DVD-Audio takes at most 2 channels at 176.4 or 192 kHz";
    const std::uint64_t bitRate = std::uint64_t{format.rate} * format.channels * format.bits;
    if (bitRate > kMaxBitsPerSecond) {
        char text[160];
        std::snprintf(text, sizeof text,
                      "%u channels of %u-bit at %s need %.1f Mbit/s; DVD-Audio LPCM carries at most 9.6 Mbit/s",
                      format.channels, format.bits, khz(format.rate).c_str(), bitRate / 1e6);
        return text;
    }
    if (!assignmentFor(format)) {
        char text[128];
        std::snprintf(text, sizeof text, "speaker layout 0x%X has no DVD-Audio channel assignment", format.channelMask);
        return text;
    }
    return {};
}

LpcmFormat lpcmFormatFor(const WavFormat& format)
{
    const Assignment* a = assignmentFor(format);
    return LpcmFormat{format.rate, format.channels, format.bits, a ? a->index : 0, a ? a->group1 : format.channels};
}

void toDvdOrder(const std::uint8_t* wav, std::size_t pairs, unsigned channels, unsigned bits, std::uint8_t* out)
{
    if (bits == 16) {
        for (std::size_t i = 0, n = pairs * 2 * channels; i < n; ++i, wav += 2, out += 2) {
            out[0] = wav[1];
            out[1] = wav[0];
        }
        return;
    }
    const std::size_t samples = 2 * channels;  // per pair
    for (std::size_t p = 0; p < pairs; ++p, wav += samples * 3, out += samples * 3) {
        std::uint8_t* low = out + samples * 2;
        for (std::size_t s = 0; s < samples; ++s) {
            out[2 * s] = wav[3 * s + 2];
            out[2 * s + 1] = wav[3 * s + 1];
            low[s] = wav[3 * s];
        }
    }
}

} // namespace dvda
