// The lookup-table spec: a 224-byte header on the first 64-byte boundary of the caller's block,
// then the curve data. Integer types keep one finished table per channel (256 bytes for 8u,
// 65536 16-bit entries for 16u and 16s), so that a lookup is one load per element. 32f keeps
// the levels and values as floats and, for linear and cubic curves, per-segment coefficients
// in doubles.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "frame/spec_buffer.hpp"
#include "keli_types.h"

namespace keli::lut {

constexpr std::uint32_t kNearestC1Id = 0x1234567u;
constexpr int kHeaderBytes = 224;
constexpr int kMaxCurves = 4;

enum class Kind : std::int32_t { Nearest = 0, Linear = 1, Cubic = 2 };

// Layout codes inside the identifier; `channels` 9 of the size query and init means AC4.
inline int channel_code(int channels) { return channels == 1 ? 0 : channels == 3 ? 1 : channels == 4 ? 2 : 3; }
inline bool valid_channels(int channels) { return channels == 1 || channels == 3 || channels == 4 || channels == 9; }
// Curves of a layout: AC4 has none for its alpha.
inline int curves_of(int channels) { return channels == 1 ? 1 : channels == 4 ? 4 : 3; }

template <class T> constexpr int type_code()
{
    return std::is_same_v<T, Kel8u> ? 0 : std::is_same_v<T, Kel16u> ? 1 : std::is_same_v<T, Kel16s> ? 2 : 3;
}

inline bool valid_interpolation(int i) { return i == kelNearest || i == kelLinear || i == kelCubic; }

inline std::uint32_t identifier(int typeCode, int channelCode, int interpolation)
{
    const std::uint32_t kind = interpolation == kelLinear ? 16 : interpolation == kelCubic ? 32 : 0;
    return kNearestC1Id + 4u * typeCode + channelCode + kind;
}

// Accepts a spec of the member's type and layout, whatever its curve kind.
inline bool identifier_matches(std::uint32_t id, int typeCode, int channelCode)
{
    const std::uint32_t d = id - identifier(typeCode, channelCode, kelNearest);
    return d == 0 || d == 16 || d == 32;
}

struct Header {
    std::uint32_t id;
    std::int32_t curves;
    std::int32_t nLevels[kMaxCurves];
    Kind kind[kMaxCurves];            // the kind each curve was built as (cubic may become linear)
    void* table[kMaxCurves];          // integer types: the finished table of each curve
    const float* levels[kMaxCurves];  // 32f: the curve's levels, values and coefficients
    const float* values[kMaxCurves];
    const double* coeffs[kMaxCurves];
};
static_assert(sizeof(Header) <= kHeaderBytes, "the header must fit its fixed room");

// Doubles a cubic segment keeps: its polynomial's three coefficients, already divided by the
// determinant. A linear segment keeps its slope alone.
constexpr int kCubicCoeffs = 3;

// The spec size of the size query, from the levels of the processed curves.
inline std::int64_t spec_bytes(int interpolation, int dataType, int channels, const int* nLevels)
{
    const int curves = curves_of(channels);
    const std::int64_t n = nLevels[0];
    std::int64_t N = 0;
    bool anyBelowFour = false;
    for (int c = 0; c < curves; ++c) {
        N += nLevels[c];
        anyBelowFour = anyBelowFour || nLevels[c] < 4;
    }
    auto A = [](std::int64_t x) { return (8 * x + 63) & ~std::int64_t(63); };
    const bool c1 = channels == 1, c4 = channels == 4;
    if (dataType == kel8u) return 288 + 256 * curves;
    if (dataType == kel16u || dataType == kel16s) {
        const std::int64_t tables = 0x20000 * std::int64_t(curves);
        if (interpolation != kelNearest) return 288 + tables;
        if (c1) return 288 + 8 * n + tables;
        if (c4) return 288 + tables;
        if (channels == 3) return 288 + A(N) + tables;
        return 288 + tables;  // AC4
    }
    // 32f
    const bool linearSized = interpolation == kelLinear || (interpolation == kelCubic && anyBelowFour);
    if (interpolation == kelNearest) return c1 ? 288 + 8 * n : 288 + A(N);
    if (linearSized) {
        if (c1) return 280 + A(n) + 8 * n;
        if (c4) return 256 + A(N) + 8 * N;
        return 264 + A(N) + 8 * N;
    }
    if (c1) return A(n) + 24 * n + 264;
    if (c4) return 216 + A(N) + 24 * (N - 1);
    return 216 + A(N) + 24 * N;
}

inline Header* header(Kel8u* spec) { return spec::aligned<Header>(spec); }
inline const Header* header(const Kel8u* spec) { return spec::aligned<Header>(spec); }
inline Kel8u* body(Kel8u* spec) { return spec::aligned<Kel8u>(spec) + kHeaderBytes; }

}  // namespace keli::lut
