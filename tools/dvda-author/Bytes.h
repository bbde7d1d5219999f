#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

// Big-endian stores into a byte buffer, as every DVD structure is laid out.
namespace dvda {

using Bytes = std::vector<std::uint8_t>;

inline void put16(std::uint8_t* p, unsigned value)
{
    p[0] = static_cast<std::uint8_t>(value >> 8);
    p[1] = static_cast<std::uint8_t>(value);
}

inline void put32(std::uint8_t* p, std::uint32_t value)
{
    p[0] = static_cast<std::uint8_t>(value >> 24);
    p[1] = static_cast<std::uint8_t>(value >> 16);
    p[2] = static_cast<std::uint8_t>(value >> 8);
    p[3] = static_cast<std::uint8_t>(value);
}

constexpr std::size_t kSector = 2048;

} // namespace dvda
