#pragma once
// Little helpers for laying out on-disc structures in a byte buffer.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace bytes {

inline constexpr std::uint32_t kSectorSize = 2048;

inline void le16(std::uint8_t* p, std::uint16_t v)
{
    p[0] = std::uint8_t(v);
    p[1] = std::uint8_t(v >> 8);
}
inline void le32(std::uint8_t* p, std::uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        p[i] = std::uint8_t(v >> (8 * i));
}
inline void le64(std::uint8_t* p, std::uint64_t v)
{
    for (int i = 0; i < 8; ++i)
        p[i] = std::uint8_t(v >> (8 * i));
}
inline void be16(std::uint8_t* p, std::uint16_t v)
{
    p[0] = std::uint8_t(v >> 8);
    p[1] = std::uint8_t(v);
}
inline void be32(std::uint8_t* p, std::uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        p[i] = std::uint8_t(v >> (8 * (3 - i)));
}
// ISO 9660 stores many numbers twice: little-endian, then big-endian.
inline void both16(std::uint8_t* p, std::uint16_t v)
{
    le16(p, v);
    be16(p + 2, v);
}
inline void both32(std::uint8_t* p, std::uint32_t v)
{
    le32(p, v);
    be32(p + 4, v);
}
inline void text(std::uint8_t* p, std::string_view s)
{
    std::memcpy(p, s.data(), s.size());
}
// A text field padded with blanks to its full width, cut when too long.
inline void padded(std::uint8_t* p, std::size_t width, std::string_view s)
{
    std::memset(p, ' ', width);
    std::memcpy(p, s.data(), s.size() < width ? s.size() : width);
}

inline std::uint64_t sectorsFor(std::uint64_t byteCount)
{
    return (byteCount + kSectorSize - 1) / kSectorSize;
}

}  // namespace bytes
