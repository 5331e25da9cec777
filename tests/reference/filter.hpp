// Plain models of the neighbourhood filters: which source pixel a window reads beyond the
// region, and the general kernel filter's arithmetic, written from the rules with wide integers
// and explicit rounding.
#pragma once

#include <cmath>
#include <cstdint>
#include <functional>

#include "reference/border.hpp"

namespace reference {

struct Window {
    int kw, kh, ax, ay;
    int rx() const { return kw - 1 - ax; }
    int ry() const { return kh - 1 - ay; }
};

// The pixel that window position (x, y), relative to the region's first pixel, reads: a flagged
// side grows the image by the window's reach there, and a coordinate outside the grown image maps
// back into it by the kind, each axis on its own. `inside` is false for the constant.
struct EdgeSource {
    bool inside;
    std::int64_t x, y;
};

inline EdgeSource edge_source(int border, Window w, std::int64_t width, std::int64_t height, std::int64_t x,
                              std::int64_t y)
{
    const int base = border & 15;
    const BorderKind kind = base == 6 ? BorderKind::Const : base == 3 ? BorderKind::Mirror : BorderKind::Repl;
    const auto axis = [&](std::int64_t v, std::int64_t n, bool lowFlag, bool highFlag, int lowReach, int highReach,
                          bool& inside) {
        const std::int64_t lo = lowFlag ? -lowReach : 0, hi = n + (highFlag ? highReach : 0);
        if (v >= lo && v < hi) return v;
        const std::int64_t s = border_source(kind, v - lo, hi - lo);
        if (s < 0) inside = false;
        return s + lo;
    };
    bool inside = true;
    const std::int64_t sx = axis(x, width, border & 64, border & 128, w.ax, w.rx(), inside);
    const std::int64_t sy = axis(y, height, border & 16, border & 32, w.ay, w.ry(), inside);
    return {inside, sx, sy};
}

}  // namespace reference

namespace reference {

// n / d rounded by mode (0 toward zero, 1 nearest with ties to even, 2 nearest with ties away
// from zero), exactly, from the floor quotient and its remainder.
inline std::int64_t rounded_quotient(std::int64_t n, std::int64_t d, int mode)
{
    if (d < 0) n = -n, d = -d;
    std::int64_t fl = n / d, rem = n % d;
    if (rem < 0) fl -= 1, rem += d;  // floor
    if (rem == 0) return fl;
    switch (mode) {
    case 0: return fl < 0 ? fl + 1 : fl;
    case 1: return 2 * rem < d ? fl : 2 * rem > d ? fl + 1 : (fl % 2 == 0 ? fl : fl + 1);
    default: return 2 * rem < d ? fl : 2 * rem > d ? fl + 1 : (fl >= 0 ? fl + 1 : fl);
    }
}

inline std::int64_t clamp64(std::int64_t v, std::int64_t lo, std::int64_t hi) { return v < lo ? lo : v > hi ? hi : v; }

// The integer path: the window's sum modulo 2^32, taken through f32 with the offset and
// truncated (held inside 32 bits), divided and rounded, saturated to [lo, hi].
inline std::int64_t integer_result(std::int64_t wideSum, float offset, int divisor, int mode, std::int64_t lo,
                                   std::int64_t hi)
{
    const auto sum = static_cast<std::int32_t>(static_cast<std::uint32_t>(wideSum));
    double f = static_cast<double>(static_cast<float>(static_cast<float>(sum) + offset));
    f = f < -2147483520.0 ? -2147483520.0 : f > 2147483520.0 ? 2147483520.0 : f;
    return clamp64(rounded_quotient(static_cast<std::int64_t>(f), divisor, mode), lo, hi);
}

// The float path's integer outputs: offset, saturation in f32, rounding in f64.
inline std::int64_t float_result(float sum, float offset, int mode, std::int64_t lo, std::int64_t hi)
{
    float x = sum + offset;
    if (!(x > float(lo))) x = float(lo);
    if (!(x < float(hi))) x = float(hi);
    const double v = x;
    switch (mode) {
    case 0: return static_cast<std::int64_t>(std::trunc(v));
    case 1: return static_cast<std::int64_t>(std::nearbyint(v));
    default: return static_cast<std::int64_t>(v >= 0 ? std::floor(v + 0.5) : std::ceil(v - 0.5));
    }
}

}  // namespace reference
