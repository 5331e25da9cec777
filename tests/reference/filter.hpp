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
