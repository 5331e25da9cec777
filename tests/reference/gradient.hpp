// Plain model of the gradient vectors: each channel's derivative pair from the derivative model,
// the strongest channel by exact (integer sources to 16s) or f32 energy, ties to the lower
// channel, and the magnitudes by their rules.
#pragma once

#include <cmath>
#include <cstdint>
#include <type_traits>

#include "reference/derivative.hpp"

namespace reference {

template <class D> struct GradientPair {
    D gx, gy;
};

// (gx, gy) at (x, y) for masks codeX, codeY of size k over C channels; `get(x, y, c)` reads the
// image, `value[c]` is the constant border.
template <class T, class D, class Get>
GradientPair<D> gradient_pair(Get get, int codeX, int codeY, int k, int border, int width, int height, const T* value,
                              int channels, int x, int y)
{
    GradientPair<D> best{};
    double bestEnergy = -1;
    for (int c = 0; c < channels; ++c) {
        const auto plane = [&](std::int64_t px, std::int64_t py) { return get(px, py, c); };
        GradientPair<D> p;
        double energy;
        if constexpr (std::is_same_v<T, float>) {
            p = {derivative_sum_f32(plane, codeX, k, border, width, height, value[c], x, y),
                 derivative_sum_f32(plane, codeY, k, border, width, height, value[c], x, y)};
            energy = p.gx * p.gx + p.gy * p.gy;  // f32
        } else {
            const std::int64_t gx = derivative_sum<T>(plane, codeX, k, border, width, height, value[c], x, y);
            const std::int64_t gy = derivative_sum<T>(plane, codeY, k, border, width, height, value[c], x, y);
            p = {static_cast<D>(gx), static_cast<D>(gy)};
            if constexpr (std::is_same_v<D, float>) energy = p.gx * p.gx + p.gy * p.gy;  // f32
            else energy = double(gx * gx + gy * gy);
        }
        if (c == 0 || energy > bestEnergy) best = p, bestEnergy = energy;
    }
    return best;
}

// The 16-bit magnitudes: |gx| + |gy| wrapped to 16 bits; the integer nearest to the exact root,
// saturated.
inline std::int16_t magnitude16(std::int16_t gx, std::int16_t gy, int norm)
{
    const std::int64_t ax = gx < 0 ? -std::int64_t(gx) : gx, ay = gy < 0 ? -std::int64_t(gy) : gy;
    if (norm == 2) return static_cast<std::int16_t>(static_cast<std::uint16_t>(ax + ay));
    const std::int64_t e = ax * ax + ay * ay;
    std::int64_t r = static_cast<std::int64_t>(std::sqrt(static_cast<double>(e)));
    while (r * r > e) --r;
    while ((r + 1) * (r + 1) <= e) ++r;
    if (e > r * r + r) ++r;  // above (r + 1/2)^2 = r^2 + r + 1/4
    return static_cast<std::int16_t>(r > 32767 ? 32767 : r);
}

inline float magnitude32(float gx, float gy, int norm)
{
    if (norm == 2) return std::fabs(gx) + std::fabs(gy);
    const float e = gx * gx + gy * gy;
    return std::sqrt(e);
}

}  // namespace reference
