// The histogram spec: a caller-owned block whose fields the caller may read. It is used where
// it lies (no alignment step): an 80-byte header, then each channel's levels one after another.
//
//   offset  0  dataType      KelDataType of the image
//           4  numChannels   1, 3 or 4
//           8  uniform       1 after the uniform init, 0 after the init with explicit levels
//          12  id            the bytes "hist"
//          16  nLevels[4]    levels per channel, 0 for a channel the image lacks
//          32  pLevels[4]    each channel's levels inside this block
//          64  step[4]       distance between two levels of a uniform spec
//          80  levels        32-bit floats for a 32f spec, 32-bit signed integers otherwise
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "keli_types.h"

namespace keli::hist {

constexpr std::uint32_t kId = 0x74736968u;  // "hist" read as a little-endian word
constexpr int kHeaderBytes = 80;
constexpr int kMaxChannels = 4;

struct Header {
    std::int32_t dataType;
    std::int32_t numChannels;
    std::int32_t uniform;
    std::uint32_t id;
    std::int32_t nLevels[kMaxChannels];
    const void* pLevels[kMaxChannels];
    float step[kMaxChannels];
};
static_assert(sizeof(Header) == kHeaderBytes, "the header size is part of the interface");
static_assert(offsetof(Header, id) == 12 && offsetof(Header, pLevels) == 32 && offsetof(Header, step) == 64,
              "field offsets are part of the interface");

// The caller's block may sit at any address, so the header moves through memcpy and levels
// and counters are read through types that allow any alignment (plain moves on this target).
typedef std::int32_t i32_any __attribute__((aligned(1)));
typedef std::uint32_t u32_any __attribute__((aligned(1)));
typedef float f32_any __attribute__((aligned(1)));

inline Header read_header(const Kel8u* spec)
{
    Header h;
    std::memcpy(&h, spec, sizeof h);
    return h;
}

inline void write_header(Kel8u* spec, const Header& h) { std::memcpy(spec, &h, sizeof h); }

inline bool valid_type(int t) { return t == kel8u || t == kel16u || t == kel16s || t == kel32f; }
inline bool valid_channels(int c) { return c == 1 || c == 3 || c == 4; }

// A channel's levels: floats in a 32f spec, integers otherwise.
inline const i32_any* int_levels(const Header& h, int c) { return static_cast<const i32_any*>(h.pLevels[c]); }
inline const f32_any* float_levels(const Header& h, int c) { return static_cast<const f32_any*>(h.pLevels[c]); }

template <class T> constexpr int data_type_of()
{
    if constexpr (std::is_same_v<T, Kel8u>) return kel8u;
    else if constexpr (std::is_same_v<T, Kel16u>) return kel16u;
    else if constexpr (std::is_same_v<T, Kel16s>) return kel16s;
    else return kel32f;
}

}  // namespace keli::hist
