// Natural logarithm and exponential of four floats at a time, accurate to a few units in the last
// place. Single elements go through the same code in one lane, so that the heads and tails of a
// row give the bits the vector body gives.
//
// Logarithm: x = m 2^e with m in [sqrt(1/2), sqrt(2)), ln x = ln m + e ln 2, ln(1 + t) by a
// polynomial in t = m - 1, and ln 2 split into a part exact in a few bits and a small rest so
// that e ln 2 adds no rounding error of its own. Exponential: x = k ln 2 + r with |r| <= ln 2 / 2,
// e^r by a polynomial, and 2^k applied as two exact powers so that results below the normal range
// are rounded once.
#pragma once

#include <cfloat>
#include <cmath>

#include "simd/sse.hpp"

namespace keli::rows::fmath {

inline __m128 splat(float v) { return _mm_set1_ps(v); }

// 2^k for integer lanes k in [-126, 127], built from the exponent field.
inline __m128 power_of_two(__m128i k)
{
    return _mm_castsi128_ps(_mm_slli_epi32(_mm_add_epi32(k, _mm_set1_epi32(127)), 23));
}

inline __m128 log_ps(__m128 x)
{
    // Numbers below the normal range are brought into it first: times 2^25, exponent less 25.
    const __m128 tiny = _mm_cmplt_ps(x, splat(FLT_MIN));
    const __m128 scaled = _mm_blendv_ps(x, _mm_mul_ps(x, splat(33554432.0f)), tiny);
    const __m128i bits = _mm_castps_si128(scaled);
    __m128i e = _mm_sub_epi32(_mm_srli_epi32(bits, 23), _mm_set1_epi32(126));
    e = _mm_sub_epi32(e, _mm_and_si128(_mm_castps_si128(tiny), _mm_set1_epi32(25)));
    // m in [0.5, 1), then into [sqrt(1/2), sqrt(2)) by doubling the small ones.
    __m128 m = _mm_castsi128_ps(_mm_or_si128(_mm_and_si128(bits, _mm_set1_epi32(0x007FFFFF)), _mm_set1_epi32(0x3F000000)));
    const __m128 small = _mm_cmplt_ps(m, splat(0.707106781186547524f));
    e = _mm_add_epi32(e, _mm_castps_si128(small));  // all ones: minus one
    const __m128 t = _mm_sub_ps(_mm_add_ps(m, _mm_and_ps(m, small)), splat(1.0f));
    const __m128 ef = _mm_cvtepi32_ps(e);
    const __m128 z = _mm_mul_ps(t, t);
    // The polynomial by pairs of terms (Estrin's scheme): seven dependent steps instead of
    // eighteen, so that a row's vectors overlap instead of waiting on one another.
    const __m128 z2 = _mm_mul_ps(z, z);
    const __m128 a0 = _mm_add_ps(_mm_mul_ps(splat(-2.4999993993e-1f), t), splat(3.3333331174e-1f));
    const __m128 a1 = _mm_add_ps(_mm_mul_ps(splat(-1.6668057665e-1f), t), splat(2.0000714765e-1f));
    const __m128 a2 = _mm_add_ps(_mm_mul_ps(splat(-1.2420140846e-1f), t), splat(1.4249322787e-1f));
    const __m128 a3 = _mm_add_ps(_mm_mul_ps(splat(-1.1514610310e-1f), t), splat(1.1676998740e-1f));
    const __m128 b0 = _mm_add_ps(a0, _mm_mul_ps(a1, z));
    const __m128 b1 = _mm_add_ps(a2, _mm_mul_ps(a3, z));
    const __m128 p = _mm_add_ps(b0, _mm_mul_ps(z2, _mm_add_ps(b1, _mm_mul_ps(splat(7.0376836292e-2f), z2))));
    __m128 y = _mm_mul_ps(_mm_mul_ps(p, t), z);
    y = _mm_add_ps(y, _mm_mul_ps(ef, splat(-2.12194440e-4f)));
    y = _mm_sub_ps(y, _mm_mul_ps(z, splat(0.5f)));
    __m128 r = _mm_add_ps(_mm_add_ps(t, y), _mm_mul_ps(ef, splat(0.693359375f)));
    // ln 0 = -inf (either zero), ln of a negative number is not-a-number, ln inf = inf, and
    // not-a-number stays itself.
    r = _mm_blendv_ps(r, splat(-INFINITY), _mm_cmpeq_ps(x, _mm_setzero_ps()));
    r = _mm_blendv_ps(r, splat(NAN), _mm_cmplt_ps(x, _mm_setzero_ps()));
    return _mm_blendv_ps(r, x, _mm_or_ps(_mm_cmpunord_ps(x, x), _mm_cmpeq_ps(x, splat(INFINITY))));
}

// e^c for c in [-104, 89]: the polynomial of the reduced argument times 2^k.
inline __m128 exp_reduced(__m128 c)
{
    const __m128 k = _mm_floor_ps(_mm_add_ps(_mm_mul_ps(c, splat(1.44269504088896341f)), splat(0.5f)));
    __m128 r = _mm_sub_ps(c, _mm_mul_ps(k, splat(0.693359375f)));
    r = _mm_sub_ps(r, _mm_mul_ps(k, splat(-2.12194440e-4f)));
    const __m128 z = _mm_mul_ps(r, r);
    // By pairs of terms, as in the logarithm.
    const __m128 a0 = _mm_add_ps(_mm_mul_ps(splat(1.6666665459e-1f), r), splat(5.0000001201e-1f));
    const __m128 a1 = _mm_add_ps(_mm_mul_ps(splat(8.3334519073e-3f), r), splat(4.1665795894e-2f));
    const __m128 a2 = _mm_add_ps(_mm_mul_ps(splat(1.9875691500e-4f), r), splat(1.3981999507e-3f));
    const __m128 p = _mm_add_ps(a0, _mm_mul_ps(z, _mm_add_ps(a1, _mm_mul_ps(a2, z))));
    const __m128 y = _mm_add_ps(_mm_add_ps(_mm_mul_ps(p, z), r), splat(1.0f));
    // 2^k as 2^(k/2) 2^(k - k/2): both halves stay in the normal range down to k = -150.
    const __m128i ki = _mm_cvtps_epi32(k);
    const __m128i k1 = _mm_srai_epi32(ki, 1);
    return _mm_mul_ps(_mm_mul_ps(y, power_of_two(k1)), power_of_two(_mm_sub_epi32(ki, k1)));
}

inline __m128 exp_ps(__m128 x)
{
    // Arguments held at -87 and above give normal results only. Results below the normal range
    // are computed where some lane needs one, so that other arguments never pay for the slow
    // arithmetic of subnormal numbers; arguments below -103.97 are 0 in any case.
    __m128 y = exp_reduced(_mm_min_ps(_mm_max_ps(x, splat(-87.0f)), splat(89.0f)));
    const __m128 subnormal = _mm_and_ps(_mm_cmplt_ps(x, splat(-87.0f)), _mm_cmpge_ps(x, splat(-103.972084045410156f)));
    if (_mm_movemask_ps(subnormal) != 0) y = _mm_blendv_ps(y, exp_reduced(x), subnormal);
    y = _mm_blendv_ps(y, splat(INFINITY), _mm_cmpgt_ps(x, splat(88.72283935546875f)));
    y = _mm_blendv_ps(y, _mm_setzero_ps(), _mm_cmplt_ps(x, splat(-103.972084045410156f)));
    return _mm_blendv_ps(y, x, _mm_cmpunord_ps(x, x));
}

// One element through the vector code.
inline float log1(float x) { return _mm_cvtss_f32(log_ps(_mm_set1_ps(x))); }
inline float exp1(float x) { return _mm_cvtss_f32(exp_ps(_mm_set1_ps(x))); }

}  // namespace keli::rows::fmath
