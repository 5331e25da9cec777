// Plain models of keliScale and keliScaleC, written as ordinary C++ arithmetic in the types the
// rules name (each float operation rounds once, in the default nearest mode), with explicit
// clamping and rounding to the nearest integer, ties to even.
#pragma once

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace reference {

// 8u over the whole range of 16u, 16s or 32s.
template <class D> D scale_widen(std::uint8_t x)
{
    const std::int64_t lo = std::numeric_limits<D>::min(), hi = std::numeric_limits<D>::max();
    return static_cast<D>(lo + (hi - lo) / 255 * x);
}

// 16u, 16s, 32s to 8u: fast takes the top byte of the value moved onto an unsigned range;
// accurate rounds the 32f quotient.
template <class S> std::uint8_t scale_narrow(S x, bool accurate)
{
    const std::int64_t lo = std::numeric_limits<S>::min();
    const std::int64_t u = std::int64_t(x) - lo;
    if (!accurate) return static_cast<std::uint8_t>(u >> (8 * sizeof(S) - 8));
    const float offset = float(-lo);
    const float factor = sizeof(S) == 2 ? 0.0038910505827516317f : float(1.0 / 16843009.0);
    const float y = (float(x) + offset) * factor;
    return static_cast<std::uint8_t>(std::nearbyint(y));
}

inline float scale_8u32f(std::uint8_t x, float vMin, float vMax)
{
    const float factor = (vMax - vMin) * 0.003921569f;
    const float product = float(x) * factor;
    return product + vMin;
}

inline std::uint8_t scale_32f8u(float x, float vMin, float vMax)
{
    const float factor = 255.0f / (vMax - vMin);
    const float offset = -vMin * factor;
    if (std::isnan(x) || x < vMin) x = vMin;
    if (x > vMax) x = vMax;
    const float product = x * factor;
    const float y = std::nearbyint(product + offset);
    return static_cast<std::uint8_t>(y < 0 ? 0 : y > 255 ? 255 : y);
}

// x * m + a in the working type W, clamped to D's range (not-a-number passing), rounded to the
// nearest; an integer destination takes its smallest value for not-a-number.
template <class D, class W, class S> D scale_c(S x, double mVal, double aVal)
{
    const W m = W(mVal), a = W(aVal);
    const W product = W(x) * m;
    W y = product + a;
    if constexpr (std::is_floating_point_v<D>) {
        if (std::is_same_v<W, float> && std::is_same_v<D, double>) return D(y);
        const W lim = std::is_same_v<D, float> ? W(FLT_MAX) : W(DBL_MAX);
        if (y > lim) y = lim;
        if (y < -lim) y = -lim;
        return D(y);
    } else {
        if (std::isnan(y)) return std::numeric_limits<D>::min();
        const long double r = std::nearbyint(static_cast<long double>(y));
        const long double lo = std::numeric_limits<D>::min(), hi = std::numeric_limits<D>::max();
        return static_cast<D>(r < lo ? lo : r > hi ? hi : r);
    }
}

}  // namespace reference
