// Natural logarithm and exponential of four floats at a time, accurate to a few units in the last
// place. Single elements go through the same code in one lane, so that the heads and tails of a
// row give the bits the vector body gives.
//
// Logarithm: x = m 2^e with m in [sqrt(1/2), sqrt(2)), ln x = ln m + e ln 2, ln m through
// atanh, and ln 2 split into a part exact in a few bits and a small rest so that e ln 2 adds no
// rounding error of its own. Exponential: x = k ln 2 + r with |r| <= ln 2 / 2,
// e^r by a polynomial, and 2^k applied as one exact power, or near the ends of the range as two
// so that results below the normal range are rounded once.
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

// ln x for positive normal lanes, whose exponent field is then lowered by `shift`. The
// exponent split is made in the integers: e = floor(log2(x / sqrt(1/2))), m = x 2^-e in
// [sqrt(1/2), sqrt(2)), f = m - 1 exact. With s = f / (2 + f), ln(1 + f) = 2 atanh(s) =
// f - (f^2/2 - s (f^2/2 + R(s^2))): the leading term f carries no rounding, and the division's
// error only reaches the small correction. R is a fitted cubic in s^2 (|s| <= 0.1716).
inline __m128 log_normal(__m128 x, __m128i shift)
{
    const __m128i bits = _mm_castps_si128(x);
    const __m128i e = _mm_srai_epi32(_mm_sub_epi32(bits, _mm_set1_epi32(0x3F3504F3)), 23);
    const __m128 m = _mm_castsi128_ps(_mm_sub_epi32(bits, _mm_slli_epi32(e, 23)));
    const __m128 f = _mm_sub_ps(m, splat(1.0f));
    const __m128 s = _mm_div_ps(f, _mm_add_ps(f, splat(2.0f)));
    const __m128 z = _mm_mul_ps(s, s);
    const __m128 r = _mm_mul_ps(
        z, _mm_add_ps(_mm_mul_ps(_mm_add_ps(_mm_mul_ps(splat(0x1.31eebep-2f), z), splat(0x1.995e34p-2f)), z),
                      splat(0x1.55557ap-1f)));
    const __m128 hfsq = _mm_mul_ps(_mm_mul_ps(f, f), splat(0.5f));
    const __m128 ef = _mm_cvtepi32_ps(_mm_sub_epi32(e, shift));
    const __m128 lo = _mm_add_ps(_mm_mul_ps(s, _mm_add_ps(hfsq, r)), _mm_mul_ps(ef, splat(-2.12194440e-4f)));
    return _mm_add_ps(_mm_sub_ps(f, _mm_sub_ps(hfsq, lo)), _mm_mul_ps(ef, splat(0.693359375f)));
}

// Whether every lane is a positive normal finite number: the common case, which needs neither
// the special values' blends nor any flag of a zero or negative argument. One integer compare
// decides it: the bits plus 2^23 exceed 2^24 - 1 for exactly these lanes. Zeros and numbers
// below the normal range stay below; infinity, not-a-number and the negative numbers carry the
// sign bit, except the negative not-a-numbers from 0xFF800000, which wrap to below 2^23.
inline bool all_normal(__m128 x)
{
    const __m128i t = _mm_add_epi32(_mm_castps_si128(x), _mm_set1_epi32(0x00800000));
    return _mm_movemask_ps(_mm_castsi128_ps(_mm_cmpgt_epi32(t, _mm_set1_epi32(0x00FFFFFF)))) == 15;
}

inline __m128 log_ps(__m128 x)
{
    if (all_normal(x)) return log_normal(x, _mm_setzero_si128());
    // Numbers below the normal range are brought into it first: times 2^25, exponent less 25.
    const __m128 tiny = _mm_cmplt_ps(x, splat(FLT_MIN));
    const __m128 scaled = _mm_blendv_ps(x, _mm_mul_ps(x, splat(33554432.0f)), tiny);
    // Lanes that the blends below replace compute the logarithm of 1, so that no garbage bits
    // (a negative number's exponent, say) make subnormal operands that would slow the vector.
    const __m128 usable = _mm_and_ps(_mm_cmpge_ps(scaled, splat(FLT_MIN)), _mm_cmple_ps(scaled, splat(FLT_MAX)));
    __m128 r = log_normal(_mm_blendv_ps(splat(1.0f), scaled, usable), _mm_and_si128(_mm_castps_si128(tiny), _mm_set1_epi32(25)));
    // ln 0 = -inf (either zero), ln of a negative number is not-a-number, ln inf = inf, and
    // not-a-number stays itself.
    r = _mm_blendv_ps(r, splat(-INFINITY), _mm_cmpeq_ps(x, _mm_setzero_ps()));
    r = _mm_blendv_ps(r, splat(NAN), _mm_cmplt_ps(x, _mm_setzero_ps()));
    return _mm_blendv_ps(r, x, _mm_or_ps(_mm_cmpunord_ps(x, x), _mm_cmpeq_ps(x, splat(INFINITY))));
}

// Reduction of e^c: c = k ln 2 + r with k the nearest integer to c / ln 2, so |r| <= ln 2 / 2
// (a tie either way keeps that), and e^r = 1 + r + r^2 P(r) with P a fitted quartic: its
// relative error, 2^-27.8 over the interval, leaves the rounding of the float operations as
// the only one that shows.
inline __m128 exp_polynomial(__m128 c, __m128i& k)
{
    // Rounded by the instruction's own mode, not the caller's: k must be the nearest integer.
    const __m128 kf = _mm_round_ps(_mm_mul_ps(c, splat(1.44269504088896341f)), _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
    k = _mm_cvtps_epi32(kf);
    __m128 r = _mm_sub_ps(c, _mm_mul_ps(kf, splat(0.693359375f)));
    r = _mm_sub_ps(r, _mm_mul_ps(kf, splat(-2.12194440e-4f)));
    const __m128 z = _mm_mul_ps(r, r);
    // By pairs of terms (Estrin's scheme): a short dependency chain, so that a row's vectors
    // overlap instead of waiting on one another.
    const __m128 a0 = _mm_add_ps(_mm_mul_ps(splat(0x1.55549p-3f), r), splat(0x1.fffffcp-2f));
    const __m128 a1 = _mm_add_ps(_mm_mul_ps(splat(0x1.123a6cp-7f), r), splat(0x1.5558f4p-5f));
    const __m128 p = _mm_add_ps(a0, _mm_mul_ps(z, _mm_add_ps(a1, _mm_mul_ps(splat(0x1.6a234ap-10f), z))));
    return _mm_add_ps(_mm_add_ps(_mm_mul_ps(p, z), r), splat(1.0f));
}

// e^c for c in [-87, 88]: k stays in [-126, 127], so one power of two applies it exactly.
inline __m128 exp_normal(__m128 c)
{
    __m128i k;
    const __m128 y = exp_polynomial(c, k);
    return _mm_mul_ps(y, power_of_two(k));
}

// e^c for c in [-104, 89]: 2^k as 2^(k/2) 2^(k - k/2), both halves in the normal range down to
// k = -150, so that results below the normal range are rounded once. Where both forms give a
// normal result they are the same exact product.
inline __m128 exp_reduced(__m128 c)
{
    __m128i k;
    const __m128 y = exp_polynomial(c, k);
    const __m128i k1 = _mm_srai_epi32(k, 1);
    return _mm_mul_ps(_mm_mul_ps(y, power_of_two(k1)), power_of_two(_mm_sub_epi32(k, k1)));
}

inline __m128 exp_ps(__m128 x)
{
    // x in [-87, 88] as |x - 0.5| <= 87.5, both exact: one compare, false for not-a-number.
    const __m128 normal = _mm_cmple_ps(_mm_andnot_ps(splat(-0.0f), _mm_sub_ps(x, splat(0.5f))), splat(87.5f));
    if (_mm_movemask_ps(normal) == 15) return exp_normal(x);
    // The lanes in range take the same path as above, whatever their neighbours; the results
    // near the top and below the normal range take the two powers, where some lane needs them,
    // so that other arguments never pay for the slow arithmetic of subnormal numbers. Arguments
    // below -103.97 give 0, above 88.72 infinity.
    __m128 y = exp_normal(_mm_min_ps(_mm_max_ps(x, splat(-87.0f)), splat(88.0f)));
    const __m128 edge = _mm_andnot_ps(normal, _mm_and_ps(_mm_cmple_ps(x, splat(88.72283935546875f)),
                                                         _mm_cmpge_ps(x, splat(-103.972084045410156f))));
    if (_mm_movemask_ps(edge) != 0)
        y = _mm_blendv_ps(y, exp_reduced(_mm_min_ps(_mm_max_ps(x, splat(-104.0f)), splat(89.0f))), edge);
    y = _mm_blendv_ps(y, splat(INFINITY), _mm_cmpgt_ps(x, splat(88.72283935546875f)));
    y = _mm_blendv_ps(y, _mm_setzero_ps(), _mm_cmplt_ps(x, splat(-103.972084045410156f)));
    return _mm_blendv_ps(y, x, _mm_cmpunord_ps(x, x));
}

// One element through the vector code.
inline float log1(float x) { return _mm_cvtss_f32(log_ps(_mm_set1_ps(x))); }
inline float exp1(float x) { return _mm_cvtss_f32(exp_ps(_mm_set1_ps(x))); }

}  // namespace keli::rows::fmath
