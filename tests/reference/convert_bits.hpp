// Plain model of the one-bit conversions: pixel i of a row is bit (offset % 8 + i) of the row's
// bytes, counted from the low bit of the first byte upward.
#pragma once

#include <cstddef>
#include <cstdint>

namespace reference {

inline bool bit_of(const std::uint8_t* row, int offset, int i)
{
    const int at = offset % 8 + i;
    return (row[at / 8] >> (at % 8)) & 1;
}

inline void set_bit(std::uint8_t* row, int offset, int i, bool on)
{
    const int at = offset % 8 + i;
    const std::uint8_t mask = static_cast<std::uint8_t>(1u << (at % 8));
    row[at / 8] = static_cast<std::uint8_t>(on ? (row[at / 8] | mask) : (row[at / 8] & ~mask));
}

}  // namespace reference
