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
#include <cmath>
#include <cstdint>
#include <limits>

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
