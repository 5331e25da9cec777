// The AC4 scratch rule. A kernel that works on plain runs cannot skip every fourth element, so
// an AC4 row is computed into a small stack buffer, 256 pixels at a time, and only the colour
// elements are copied on to the destination. The kernel still reads the source alpha, but its
// result is thrown away: the destination's alpha is never changed.
#pragma once

#include <algorithm>
#include <cstddef>

#include "move/rows/copy_ac4.hpp"

namespace keli {

constexpr std::size_t kAc4ScratchPixels = 256;  // 1,024 elements

// `compute(x0, pixels, scratch)` writes 4 * pixels elements of the row's pixels x0 ... into
// scratch; their colour then lands in dst.
template <class T, class Compute> inline void ac4_row(T* dst, std::size_t width, Compute&& compute)
{
    alignas(16) T scratch[4 * kAc4ScratchPixels];
    for (std::size_t x = 0; x < width; x += kAc4ScratchPixels) {
        const std::size_t n = std::min(kAc4ScratchPixels, width - x);
        compute(x, n, scratch);
        rows::copy_ac4_row(scratch, dst + 4 * x, n);
    }
}

}  // namespace keli
