// Vector alpha composition of 8u elements. Sixteen elements are widened to two registers of
// 16-bit lanes; a two-factor product (at most 65025) and its rounding stay in those lanes, a
// three-factor product (up to 255^3) is formed and rounded in 32-bit lanes. Each term is
// rounded as in the scalar rule, the terms are added in 16-bit lanes (at most 510) and the
// unsigned pack saturates the sum to 255.
#pragma once

#include "arith/rows/alpha_lanes.hpp"
#include "arith/rows/alpha_rule.hpp"
#include "simd/sse.hpp"

namespace keli::rows::alpha {

namespace lanes8u {

inline __m128i lo16(__m128i v) { return _mm_cvtepu8_epi16(v); }
inline __m128i hi16(__m128i v) { return _mm_unpackhi_epi8(v, _mm_setzero_si128()); }

// x / 255 rounded, for a product x of two 8-bit factors: t = x + 128, (t + (t >> 8)) >> 8.
// Every step stays below 2^16, so logical shifts of 16-bit lanes are exact.
inline __m128i m1(__m128i x)
{
    const __m128i t = _mm_add_epi16(x, _mm_set1_epi16(128));
    return _mm_srli_epi16(_mm_add_epi16(t, _mm_srli_epi16(t, 8)), 8);
}

// c * k / 255^2 for c <= 255 and k <= 65025, by t = c * k + 32768, ((t >> 7) + t - (t >> 16))
// >> 16 in 32-bit lanes.
inline __m128i m2_half(__m128i x)
{
    const __m128i t = _mm_add_epi32(x, _mm_set1_epi32(32768));
    return _mm_srli_epi32(_mm_sub_epi32(_mm_add_epi32(_mm_srli_epi32(t, 7), t), _mm_srli_epi32(t, 16)), 16);
}
inline __m128i m2(__m128i c, __m128i k)
{
    const __m128i lo = _mm_mullo_epi16(c, k), hi = _mm_mulhi_epu16(c, k);
    return _mm_packus_epi32(m2_half(_mm_unpacklo_epi16(lo, hi)), m2_half(_mm_unpackhi_epi16(lo, hi)));
}

inline __m128i mul(__m128i x, __m128i y) { return _mm_mullo_epi16(x, y); }
inline __m128i add(__m128i x, __m128i y) { return _mm_add_epi16(x, y); }

// Colour of eight elements in 16-bit lanes (before saturation).
template <int Op> inline __m128i colour(__m128i c1, __m128i a, __m128i c2, __m128i b)
{
    const __m128i one = _mm_set1_epi16(255);
    const __m128i na = _mm_sub_epi16(one, a), nb = _mm_sub_epi16(one, b);
    switch (Op) {
    case 0: return add(m1(mul(c1, a)), m2(c2, mul(b, na)));
    case 1: return m2(c1, mul(a, b));
    case 2: return m2(c1, mul(a, nb));
    case 3: return add(m2(c1, mul(a, b)), m2(c2, mul(b, na)));
    case 4: return add(m2(c1, mul(a, nb)), m2(c2, mul(b, na)));
    case 5: return add(m1(mul(c1, a)), m1(mul(c2, b)));
    case 6: return add(c1, m1(mul(c2, na)));
    case 7: return m1(mul(c1, b));
    case 8: return m1(mul(c1, nb));
    case 9: return add(m1(mul(c1, b)), m1(mul(c2, na)));
    case 10: return add(m1(mul(c1, nb)), m1(mul(c2, na)));
    default: return add(c1, c2);
    }
}

// Xor's alpha term (1 - 2a) b is signed: its product and rounding run in 32-bit lanes with
// arithmetic shifts.
inline __m128i m1_signed_half(__m128i x)
{
    const __m128i t = _mm_add_epi32(x, _mm_set1_epi32(128));
    return _mm_srai_epi32(_mm_add_epi32(t, _mm_srai_epi32(t, 8)), 8);
}

template <int Op> inline __m128i alpha(__m128i a, __m128i b)
{
    const __m128i one = _mm_set1_epi16(255);
    switch (base_op(Op)) {
    case kOver: return add(m1(mul(_mm_sub_epi16(one, a), b)), a);
    case kIn: return m1(mul(a, b));
    case kOut: return m1(mul(_mm_sub_epi16(one, b), a));
    case kATop: return b;
    case kXor: {
        const __m128i s = _mm_sub_epi16(one, _mm_add_epi16(a, a));
        const __m128i lo = _mm_mullo_epi16(s, b), hi = _mm_mulhi_epi16(s, b);
        const __m128i r = _mm_packs_epi32(m1_signed_half(_mm_unpacklo_epi16(lo, hi)),
                                          m1_signed_half(_mm_unpackhi_epi16(lo, hi)));
        return add(r, a);
    }
    default: return add(a, b);
    }
}

// Each pixel's alpha (its fourth byte) in all four of its bytes.
inline __m128i spread_alpha(__m128i v)
{
    return _mm_shuffle_epi8(v, _mm_setr_epi8(3, 3, 3, 3, 7, 7, 7, 7, 11, 11, 11, 11, 15, 15, 15, 15));
}

}  // namespace lanes8u

template <> struct Lanes<Kel8u> {
    static constexpr bool kVector = true;
    using V = __m128i;

    template <int Op> static V colour(V c1, V a, V c2, V b)
    {
        using lanes8u::hi16, lanes8u::lo16;
        return _mm_packus_epi16(lanes8u::colour<Op>(lo16(c1), lo16(a), lo16(c2), lo16(b)),
                                lanes8u::colour<Op>(hi16(c1), hi16(a), hi16(c2), hi16(b)));
    }

    template <int Op> static V alpha(V a, V b)
    {
        using lanes8u::hi16, lanes8u::lo16;
        return _mm_packus_epi16(lanes8u::alpha<Op>(lo16(a), lo16(b)), lanes8u::alpha<Op>(hi16(a), hi16(b)));
    }

    // Four interleaved pixels: colour elements by the operation, the fourth by the alpha rule.
    template <int Op> static V pixels(V s1, V s2)
    {
        using lanes8u::hi16, lanes8u::lo16;
        const V a = lanes8u::spread_alpha(s1), b = lanes8u::spread_alpha(s2);
        auto half = [](V c1, V a, V c2, V b) {
            return _mm_blend_epi16(lanes8u::colour<Op>(c1, a, c2, b), lanes8u::alpha<Op>(a, b), 0x88);
        };
        return _mm_packus_epi16(half(lo16(s1), lo16(a), lo16(s2), lo16(b)), half(hi16(s1), hi16(a), hi16(s2), hi16(b)));
    }

    // Colour lanes of AC4 pixels from `colour`, alpha lanes from `alpha`.
    static V merge_alpha(V colour, V alpha) { return _mm_blendv_epi8(colour, alpha, _mm_set1_epi32(int(0xFF000000u))); }

    // c * m / 255 element by element.
    static V scale(V c, V m)
    {
        using lanes8u::hi16, lanes8u::lo16, lanes8u::m1, lanes8u::mul;
        return _mm_packus_epi16(m1(mul(lo16(c), lo16(m))), m1(mul(hi16(c), hi16(m))));
    }

    // The multipliers of premultiplication: each pixel's alpha for its colour, and 255 for its
    // alpha, which m1 gives back unchanged (255 a / 255 is exact).
    static V premul_factors(V s) { return _mm_or_si128(lanes8u::spread_alpha(s), _mm_set1_epi32(int(0xFF000000u))); }
};

}  // namespace keli::rows::alpha
