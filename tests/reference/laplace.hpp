// Plain models of the Laplace, high-pass and sharpen filters: one output from its window, read
// pixel by pixel, with the integer sums in 64 bits and the rounding from the exact quotient, and
// the f32 sums in their stated order.
#pragma once

#include <cstdint>

#include "reference/filter.hpp"

namespace reference {

enum class FixedMask { Laplace3, Laplace5, Hipass5, Sharpen3 };

inline int fixed_mask_side(FixedMask m) { return m == FixedMask::Laplace3 || m == FixedMask::Sharpen3 ? 3 : 5; }

// Coefficient (i, j) of the mask, column i, row j, before sharpen's division by 8.
inline int fixed_mask_coefficient(FixedMask m, int i, int j)
{
    static const int laplace5[5][5] = {
        {-1, -3, -4, -3, -1}, {-3, 0, 6, 0, -3}, {-4, 6, 20, 6, -4}, {-3, 0, 6, 0, -3}, {-1, -3, -4, -3, -1}};
    const int k = fixed_mask_side(m), centre = i == k / 2 && j == k / 2;
    switch (m) {
    case FixedMask::Laplace3: return centre ? 8 : -1;
    case FixedMask::Sharpen3: return centre ? 16 : -1;
    case FixedMask::Hipass5: return centre ? 24 : -1;
    case FixedMask::Laplace5: return laplace5[j][i];
    }
    return 0;
}

// `px(i, j)` is the window's pixel in column i, row j. Integers: the exact sum; sharpen divides
// it by 8 to the nearest, ties to even; then saturation to [lo, hi].
template <class Px> std::int64_t fixed_mask_integer(FixedMask m, Px px, std::int64_t lo, std::int64_t hi)
{
    const int k = fixed_mask_side(m);
    std::int64_t s = 0;
    for (int j = 0; j < k; ++j)
        for (int i = 0; i < k; ++i) s += fixed_mask_coefficient(m, i, j) * std::int64_t(px(i, j));
    if (m == FixedMask::Sharpen3) s = rounded_quotient(s, 8, 1);
    return clamp64(s, lo, hi);
}

// f32: Laplace 5x5 as its three row filters taken left to right over the nonzero coefficients,
// then rows 1, 3, 0, 4, 2 added in that order; the others as weight times the centre minus the
// column sums (each top to bottom) from left to right, sharpen then times 0.125.
template <class Px> float fixed_mask_f32(FixedMask m, Px px)
{
    const int k = fixed_mask_side(m);
    if (m == FixedMask::Laplace5) {
        const auto row = [&](int j) {
            float acc = 0;
            bool first = true;
            for (int i = 0; i < 5; ++i) {
                const int c = fixed_mask_coefficient(m, i, j);
                if (c == 0) continue;
                const float t = float(c) * px(i, j);
                acc = first ? t : acc + t;
                first = false;
            }
            return acc;
        };
        return (((row(1) + row(3)) + row(0)) + row(4)) + row(2);
    }
    const float weight = m == FixedMask::Laplace3 ? 9.0f : m == FixedMask::Sharpen3 ? 17.0f : 25.0f;
    float v = weight * px(k / 2, k / 2);
    for (int i = 0; i < k; ++i) {
        float col = px(i, 0);
        for (int j = 1; j < k; ++j) col += px(i, j);
        v -= col;
    }
    return m == FixedMask::Sharpen3 ? v * 0.125f : v;
}

}  // namespace reference
