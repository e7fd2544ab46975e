// Byte rules of the archive stream, in one place.
// Byte order: little-endian; integers are 1, 2 or 4 raw bytes, no header, no padding.
// Count prefix: a count up to 0xFFFE is 16 bits; a larger one is 0xFFFF then 32 bits.
// String length prefix: below 255 one byte; up to 0xFFFD the byte 0xFF then 16 bits;
// otherwise 0xFF, 0xFFFF, then 32 bits. On reading, 16 bits of 0xFFFE mark a wide
// string: a second prefix follows and the byte count is twice its length.
#pragma once

#include <cstddef>
#include <cstdint>

namespace wire {

constexpr std::uint16_t kCountEscape = 0xFFFF;
constexpr std::uint8_t kStrLenByteEscape = 0xFF;
constexpr std::uint16_t kStrLenWordEscape = 0xFFFF;
constexpr std::uint16_t kStrWideMarker = 0xFFFE;

constexpr std::size_t kMaxCountBytes = 6;
constexpr std::size_t kMaxStrLenBytes = 7;

inline void PutU16(unsigned char* p, std::uint16_t v) {
    p[0] = static_cast<unsigned char>(v);
    p[1] = static_cast<unsigned char>(v >> 8);
}

inline void PutU32(unsigned char* p, std::uint32_t v) {
    p[0] = static_cast<unsigned char>(v);
    p[1] = static_cast<unsigned char>(v >> 8);
    p[2] = static_cast<unsigned char>(v >> 16);
    p[3] = static_cast<unsigned char>(v >> 24);
}

inline std::uint16_t GetU16(const unsigned char* p) {
    return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}

inline std::uint32_t GetU32(const unsigned char* p) {
    return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
           (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}

// Writes the count prefix into `out` (room for kMaxCountBytes); returns its length.
inline std::size_t EncodeCount(std::uint32_t count, unsigned char* out) {
    if (count < kCountEscape) {
        PutU16(out, static_cast<std::uint16_t>(count));
        return 2;
    }
    PutU16(out, kCountEscape);
    PutU32(out + 2, count);
    return 6;
}

// Writes the string length prefix into `out` (room for kMaxStrLenBytes); returns its length.
inline std::size_t EncodeStringLength(std::uint32_t length, unsigned char* out) {
    if (length < kStrLenByteEscape) {
        out[0] = static_cast<unsigned char>(length);
        return 1;
    }
    out[0] = kStrLenByteEscape;
    if (length < kStrWideMarker) {
        PutU16(out + 1, static_cast<std::uint16_t>(length));
        return 3;
    }
    PutU16(out + 1, kStrLenWordEscape);
    PutU32(out + 3, length);
    return 7;
}

// `Source` offers operator>> for unsigned char, unsigned short and unsigned int.
template <class Source>
std::uint32_t ReadCount(Source& src) {
    unsigned short w = 0;
    src >> w;
    if (w != kCountEscape) return w;
    unsigned int dw = 0;
    src >> dw;
    return dw;
}

// Length in characters; `wide` tells whether each character takes two bytes.
template <class Source>
std::uint32_t ReadStringLength(Source& src, bool& wide) {
    wide = false;
    unsigned char b = 0;
    src >> b;
    if (b < kStrLenByteEscape) return b;
    unsigned short w = 0;
    src >> w;
    if (w == kStrWideMarker) {
        wide = true;
        src >> b;
        if (b < kStrLenByteEscape) return b;
        src >> w;
    }
    if (w < kStrLenWordEscape) return w;
    unsigned int dw = 0;
    src >> dw;
    return dw;
}

}  // namespace wire
