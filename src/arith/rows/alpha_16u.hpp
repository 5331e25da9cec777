// Vector alpha composition of 16u elements. Eight elements are handled as two halves of four
// 32-bit lanes. A two-factor product (below 2^32) and its rounding t = x + 32768,
// (t + (t >> 16)) >> 16 fit unsigned 32-bit lanes: t + (t >> 16) is at most 65535^2 + 32768 +
// 65534 < 2^32. A three-factor product x (below 2^48) is formed in 64f, where it is exact, and
// its half-up quotient floor((x + D/2) / D), D = 65535^2, is taken as the truncated product of
// x + D/2 (exact too) with the 64f reciprocal of D. (x + D/2) / D = (2x + D) / 2D has an odd
// numerator over an even denominator, so it is never an integer and lies at least 1 / 2D
// (1.2e-10) from one; the two roundings of the product move it by less than 2^-36 (1.5e-11) below
// 65536, so the truncation always lands on the exact quotient. The unsigned pack saturates.
#pragma once

#include "arith/rows/alpha_lanes.hpp"
#include "arith/rows/alpha_rule.hpp"
#include "simd/sse.hpp"

namespace keli::rows::alpha {

namespace lanes16u {

// Elements 0-3 and 4-7 in 32-bit lanes.
struct Pair {
    __m128i lo, hi;
};

inline Pair widen(__m128i v) { return {_mm_cvtepu16_epi32(v), _mm_unpackhi_epi16(v, _mm_setzero_si128())}; }
inline __m128i pack(Pair p) { return _mm_packus_epi32(p.lo, p.hi); }
inline Pair add(Pair x, Pair y) { return {_mm_add_epi32(x.lo, y.lo), _mm_add_epi32(x.hi, y.hi)}; }

inline Pair product(__m128i x, __m128i y)
{
    const __m128i lo = _mm_mullo_epi16(x, y), hi = _mm_mulhi_epu16(x, y);
    return {_mm_unpacklo_epi16(lo, hi), _mm_unpackhi_epi16(lo, hi)};
}

inline __m128i m1_half(__m128i x)
{
    const __m128i t = _mm_add_epi32(x, _mm_set1_epi32(32768));
    return _mm_srli_epi32(_mm_add_epi32(t, _mm_srli_epi32(t, 16)), 16);
}
inline Pair m1(Pair x) { return {m1_half(x.lo), m1_half(x.hi)}; }
inline Pair m1(__m128i x, __m128i y) { return m1(product(x, y)); }

// c * k1 * k2 / 65535^2, half up, for the four 32-bit lanes of each argument.
inline __m128i m2_half(__m128i c, __m128i k1, __m128i k2)
{
    const __m128d inverse = _mm_set1_pd(1.0 / (65535.0 * 65535.0)), half = _mm_set1_pd(65535.0 * 65535.0 / 2);
    auto two = [&](__m128i c, __m128i k1, __m128i k2) {
        const __m128d x = _mm_mul_pd(_mm_mul_pd(_mm_cvtepi32_pd(c), _mm_cvtepi32_pd(k1)), _mm_cvtepi32_pd(k2));
        return _mm_cvttpd_epi32(_mm_mul_pd(_mm_add_pd(x, half), inverse));
    };
    auto high = [](__m128i v) { return _mm_shuffle_epi32(v, 0xEE); };
    return _mm_unpacklo_epi64(two(c, k1, k2), two(high(c), high(k1), high(k2)));
}
inline Pair m2(__m128i c, __m128i k1, __m128i k2)
{
    const Pair C = widen(c), K1 = widen(k1), K2 = widen(k2);
    return {m2_half(C.lo, K1.lo, K2.lo), m2_half(C.hi, K1.hi, K2.hi)};
}

template <int Op> inline Pair colour(__m128i c1, __m128i a, __m128i c2, __m128i b)
{
    const __m128i one = _mm_set1_epi16(-1);
    const __m128i na = _mm_sub_epi16(one, a), nb = _mm_sub_epi16(one, b);
    switch (Op) {
    case 0: return add(m1(c1, a), m2(c2, b, na));
    case 1: return m2(c1, a, b);
    case 2: return m2(c1, a, nb);
    case 3: return add(m2(c1, a, b), m2(c2, b, na));
    case 4: return add(m2(c1, a, nb), m2(c2, b, na));
    case 5: return add(m1(c1, a), m1(c2, b));
    case 6: return add(widen(c1), m1(c2, na));
    case 7: return m1(c1, b);
    case 8: return m1(c1, nb);
    case 9: return add(m1(c1, b), m1(c2, na));
    case 10: return add(m1(c1, nb), m1(c2, na));
    default: return add(widen(c1), widen(c2));
    }
}

// Xor's alpha: (1 - 2a) b is signed and reaches 2^32 in magnitude, so its rounding
// t = x + 32768, (t + (t >> 16)) >> 16 runs in 64f, where each step is exact and a shift is a
// floor of a product by 2^-16.
inline __m128i xor_alpha_half(__m128i a, __m128i b)
{
    const __m128d bias = _mm_set1_pd(32768.0), down = _mm_set1_pd(1.0 / 65536);
    const __m128i s = _mm_sub_epi32(_mm_set1_epi32(65535), _mm_add_epi32(a, a));
    auto two = [&](__m128i s, __m128i a, __m128i b) {
        const __m128d t = _mm_add_pd(_mm_mul_pd(_mm_cvtepi32_pd(s), _mm_cvtepi32_pd(b)), bias);
        const __m128d r = _mm_floor_pd(_mm_mul_pd(_mm_add_pd(t, _mm_floor_pd(_mm_mul_pd(t, down))), down));
        return _mm_cvttpd_epi32(_mm_add_pd(r, _mm_cvtepi32_pd(a)));
    };
    auto high = [](__m128i v) { return _mm_shuffle_epi32(v, 0xEE); };
    return _mm_unpacklo_epi64(two(s, a, b), two(high(s), high(a), high(b)));
}

template <int Op> inline __m128i alpha(__m128i a, __m128i b)
{
    const __m128i one = _mm_set1_epi16(-1);
    switch (base_op(Op)) {
    case kOver: return pack(add(m1(_mm_sub_epi16(one, a), b), widen(a)));
    case kIn: return pack(m1(a, b));
    case kOut: return pack(m1(_mm_sub_epi16(one, b), a));
    case kATop: return b;
    case kXor: {
        const Pair A = widen(a), B = widen(b);
        return pack({xor_alpha_half(A.lo, B.lo), xor_alpha_half(A.hi, B.hi)});
    }
    default: return pack(add(widen(a), widen(b)));
    }
}

inline __m128i spread_alpha(__m128i v) { return _mm_shufflehi_epi16(_mm_shufflelo_epi16(v, 0xFF), 0xFF); }
inline __m128i alpha_lanes() { return _mm_set1_epi64x(static_cast<long long>(0xFFFF000000000000ull)); }

}  // namespace lanes16u

template <> struct Lanes<Kel16u> {
    static constexpr bool kVector = true;
    using V = __m128i;

    template <int Op> static V colour(V c1, V a, V c2, V b)
    {
        return lanes16u::pack(lanes16u::colour<Op>(c1, a, c2, b));
    }
    template <int Op> static V alpha(V a, V b) { return lanes16u::alpha<Op>(a, b); }

    // Two interleaved pixels.
    template <int Op> static V pixels(V s1, V s2)
    {
        const V a = lanes16u::spread_alpha(s1), b = lanes16u::spread_alpha(s2);
        return _mm_blend_epi16(colour<Op>(s1, a, s2, b), alpha<Op>(a, b), 0x88);
    }

    static V merge_alpha(V colour, V alpha) { return _mm_blend_epi16(colour, alpha, 0x88); }
    static V scale(V c, V m) { return lanes16u::pack(lanes16u::m1(c, m)); }
    static V premul_factors(V s) { return _mm_or_si128(lanes16u::spread_alpha(s), lanes16u::alpha_lanes()); }
};

}  // namespace keli::rows::alpha
