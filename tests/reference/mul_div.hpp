// Plain models of multiplication and division with a scale factor.
//
// Multiplication: the exact product in 64 bits through the long-hand scale rule.
//
// Division of two images (keliDiv): the quotient a * 2^-n / b in single precision through the
// reciprocal estimate of the divisor and one Newton step, clamped and rounded to nearest, with
// no short cut: a scale factor beyond +-40 changes no result, so it is taken as +-40 and the
// float path runs for every n. A zero divisor gives the saturated sign of the dividend.
//
// Division by a constant (keliDivC): exact, by 128-bit integer division with the remainder
// compared against a half.
#pragma once

#include <xmmintrin.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "reference/scale.hpp"

namespace reference {

template <class T> T mul(T a, T b, int n) { return scale<T>(std::int64_t(a) * std::int64_t(b), n); }
inline float mul(float a, float b, int) { return a * b; }

template <class T> T by_zero(T a)
{
    return a > 0 ? std::numeric_limits<T>::max() : a < 0 ? std::numeric_limits<T>::min() : T(0);
}

template <class T> T div(T a, T b, int n)
{
    if (b == 0) return by_zero(a);
    n = std::clamp(n, -40, 40);
    const float num = std::ldexp(float(a), n < 0 ? -n : 0);
    const float den = std::ldexp(float(b), n > 0 ? n : 0);
    float r = _mm_cvtss_f32(_mm_rcp_ss(_mm_set_ss(den)));
    r = r * (2.0f - den * r);
    const float lo = float(std::numeric_limits<T>::min()), hi = float(std::numeric_limits<T>::max());
    return static_cast<T>(std::nearbyint(std::min(std::max(num * r, lo), hi)));
}
inline float div(float a, float b, int) { return a / b; }

template <class T> T div_const(T a, T v, int n)
{
    n = std::clamp(n, -40, 40);
    const __int128 one = 1;
    __int128 num = __int128(a) * (one << (n < 0 ? -n : 0)), den = __int128(v) * (one << (n > 0 ? n : 0));
    if (den < 0) num = -num, den = -den;
    __int128 q = num / den, rem = num % den;
    if (rem < 0) q -= 1, rem += den;  // floor division
    if (2 * rem > den || (2 * rem == den && (q & 1))) q += 1;
    const __int128 lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
    return static_cast<T>(q < lo ? lo : q > hi ? hi : q);
}
inline float div_const(float a, float v, int) { return a * (1.0f / v); }

}  // namespace reference

namespace reference {

// Multiplication that reads the largest value of the type as 1.0: the exact product divided by
// that value, truncated.
template <class T> T mul_norm(T a, T b)
{
    constexpr std::uint64_t top = std::numeric_limits<T>::max();
    return static_cast<T>(std::uint64_t(a) * std::uint64_t(b) / top);
}

}  // namespace reference

namespace reference {

// Multiplication by a 64f constant, clamped and rounded by mode (0 toward zero, 1 nearest-even,
// 2 ties away from zero; 32f converts to nearest in modes 1 and 2). The toward-zero mode rounds the product itself toward zero as well:
// fma gives the exact error of the nearest product, and a product that overshot in magnitude
// steps back by one unit. Integer destinations take their largest value for a not-a-number
// product; 32f keeps it and clamps to the finite range.
template <class T> T mul_c64f(T a, double c, int mode)
{
    double p = double(a) * c;
    const bool toZero = mode == 0;
    if (toZero && std::isfinite(p)) {
        const double e = std::fma(double(a), c, -p);
        if ((p > 0 && e < 0) || (p < 0 && e > 0)) p = std::nextafter(p, 0.0);
    }
    if constexpr (std::is_same_v<T, float>) {
        if (std::isnan(p)) return float(p);
        const double v = std::min(std::max(p, -double(FLT_MAX)), double(FLT_MAX));
        float f = float(v);
        if (toZero && std::fabs(double(f)) > std::fabs(v)) f = std::nextafter(f, 0.0f);
        return f;
    } else {
        const double top = std::numeric_limits<T>::max(), bottom = std::numeric_limits<T>::min();
        const double v = std::isnan(p) ? top : std::min(std::max(p, bottom), top);
        if (mode == 0) return static_cast<T>(std::trunc(v));
        if (mode == 1) return static_cast<T>(std::nearbyint(v));
        // A half with the product's sign, added in 64f and truncated: halves go away from zero
        // (the addition itself may round a product a hair below a half up to a whole).
        return static_cast<T>(std::trunc(v + std::copysign(0.5, v)));
    }
}

}  // namespace reference

namespace reference {

// Division with a rounding mode (0 toward zero, 1 nearest-even, 2 halves away from zero): exact,
// by 128-bit integer division of a * 2^-n by b, saturated. A zero divisor gives the saturated sign
// of the dividend.
template <class T> T div_round(T a, T b, int mode, int n)
{
    if (b == 0) return by_zero(a);
    n = std::clamp(n, -40, 40);
    const __int128 one = 1;
    __int128 num = __int128(a) * (one << (n < 0 ? -n : 0)), den = __int128(b) * (one << (n > 0 ? n : 0));
    if (den < 0) num = -num, den = -den;
    const bool negative = num < 0;
    const __int128 mag = negative ? -num : num;
    __int128 q = mag / den;
    const __int128 twice = 2 * (mag % den);
    if ((mode == 1 && (twice > den || (twice == den && (q & 1)))) || (mode == 2 && twice >= den)) q += 1;
    if (negative) q = -q;
    const __int128 lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
    return static_cast<T>(q < lo ? lo : q > hi ? hi : q);
}

}  // namespace reference
