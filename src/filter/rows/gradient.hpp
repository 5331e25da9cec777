// Row kernels of the gradient vectors: the choice among three channels, the magnitude and the
// angle of (gx, gy). Each works on runs whose length is a multiple of its vector (the callers
// pad their blocks), so every pixel goes through the same vector arithmetic.
#pragma once

#include <cstdint>

#include "keli_types.h"
#include "simd/sse.hpp"

namespace keli::rows::gradient {

// ---- the strongest of three channels ----------------------------------------------------------

// gx, gy[c] hold channel c's derivatives; the channel of largest energy gx * gx + gy * gy wins
// each pixel, a later channel only when strictly greater, so ties keep the lower channel.
// 16-bit derivatives have exact 32-bit energies (multiply-add of the (gx, gy) pairs); f32
// derivatives have f32 energies. n is a multiple of 8 (16s) or 4 (32f).
inline void strongest(const Kel16s* const gx[3], const Kel16s* const gy[3], Kel16s* ox, Kel16s* oy, std::int64_t n)
{
    for (std::int64_t i = 0; i < n; i += 8) {
        __m128i bx = _mm_loadu_si128(reinterpret_cast<const __m128i*>(gx[0] + i));
        __m128i by = _mm_loadu_si128(reinterpret_cast<const __m128i*>(gy[0] + i));
        __m128i elo = _mm_madd_epi16(_mm_unpacklo_epi16(bx, by), _mm_unpacklo_epi16(bx, by));
        __m128i ehi = _mm_madd_epi16(_mm_unpackhi_epi16(bx, by), _mm_unpackhi_epi16(bx, by));
        for (int c = 1; c < 3; ++c) {
            const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(gx[c] + i));
            const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(gy[c] + i));
            const __m128i lo = _mm_madd_epi16(_mm_unpacklo_epi16(x, y), _mm_unpacklo_epi16(x, y));
            const __m128i hi = _mm_madd_epi16(_mm_unpackhi_epi16(x, y), _mm_unpackhi_epi16(x, y));
            const __m128i takeLo = _mm_cmpgt_epi32(lo, elo), takeHi = _mm_cmpgt_epi32(hi, ehi);
            const __m128i take = _mm_packs_epi32(takeLo, takeHi);
            elo = _mm_blendv_epi8(elo, lo, takeLo), ehi = _mm_blendv_epi8(ehi, hi, takeHi);
            bx = _mm_blendv_epi8(bx, x, take), by = _mm_blendv_epi8(by, y, take);
        }
        _mm_storeu_si128(reinterpret_cast<__m128i*>(ox + i), bx);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(oy + i), by);
    }
}

inline void strongest(const Kel32f* const gx[3], const Kel32f* const gy[3], Kel32f* ox, Kel32f* oy, std::int64_t n)
{
    for (std::int64_t i = 0; i < n; i += 4) {
        __m128 bx = _mm_loadu_ps(gx[0] + i), by = _mm_loadu_ps(gy[0] + i);
        __m128 best = _mm_add_ps(_mm_mul_ps(bx, bx), _mm_mul_ps(by, by));
        for (int c = 1; c < 3; ++c) {
            const __m128 x = _mm_loadu_ps(gx[c] + i), y = _mm_loadu_ps(gy[c] + i);
            const __m128 e = _mm_add_ps(_mm_mul_ps(x, x), _mm_mul_ps(y, y));
            const __m128 take = _mm_cmpgt_ps(e, best);
            best = _mm_blendv_ps(best, e, take);
            bx = _mm_blendv_ps(bx, x, take), by = _mm_blendv_ps(by, y, take);
        }
        _mm_storeu_ps(ox + i, bx);
        _mm_storeu_ps(oy + i, by);
    }
}

// ---- magnitude ----------------------------------------------------------------------------------

// 16s, L1: |gx| + |gy| added in 16 bits, wrapping.
inline __m128i magnitude_l1(__m128i x, __m128i y) { return _mm_add_epi16(_mm_abs_epi16(x), _mm_abs_epi16(y)); }

// 16s, L2: the integer nearest to sqrt(gx * gx + gy * gy), saturated. The energy is exact in 32
// bits: below 2^31 for every pair but (-32768, -32768), whose 2^31 wraps negative and is taken
// as 2^31 - 1 (an unsigned minimum), with the same saturated root. f32 cannot hold energies past
// 2^24, so its root only proposes a candidate r, within 0.01 of the true root and so at most
// one off; exact integer tests then decide: r is the nearest integer exactly when
// r^2 - r < e <= r^2 + r (r >= 1; e = 0 alone gives 0), a square root of an integer never
// being half way between two integers. The candidate is held to 32768, where every product
// stays in 32 bits and the result saturates alike; the three steps cost a fraction of four f64
// square roots.
inline __m128i nearest_root(__m128i energy)
{
    const __m128i e = _mm_min_epu32(energy, _mm_set1_epi32(0x7FFFFFFF));
    const __m128 root = _mm_sqrt_ps(_mm_cvtepi32_ps(e));
    const __m128i r = _mm_min_epi32(_mm_cvttps_epi32(_mm_add_ps(root, _mm_set1_ps(0.5f))), _mm_set1_epi32(32768));
    const __m128i square = _mm_mullo_epi32(r, r);
    const __m128i up = _mm_cmpgt_epi32(e, _mm_add_epi32(square, r));
    const __m128i down = _mm_cmpgt_epi32(_mm_add_epi32(_mm_sub_epi32(square, r), _mm_set1_epi32(1)), e);
    return _mm_max_epi32(_mm_add_epi32(_mm_sub_epi32(r, up), down), _mm_setzero_si128());
}

inline __m128i magnitude_l2(__m128i x, __m128i y)
{
    const __m128i lo = _mm_unpacklo_epi16(x, y), hi = _mm_unpackhi_epi16(x, y);
    return _mm_packs_epi32(nearest_root(_mm_madd_epi16(lo, lo)), nearest_root(_mm_madd_epi16(hi, hi)));
}

// 32f: |gx| + |gy|, or sqrt(gx * gx + gy * gy), each operation rounded once.
inline __m128 magnitude_l1(__m128 x, __m128 y)
{
    const __m128 sign = _mm_set1_ps(-0.0f);
    return _mm_add_ps(_mm_andnot_ps(sign, x), _mm_andnot_ps(sign, y));
}

inline __m128 magnitude_l2(__m128 x, __m128 y) { return _mm_sqrt_ps(_mm_add_ps(_mm_mul_ps(x, x), _mm_mul_ps(y, y))); }

// The rows of n pixels, n a multiple of the vector (8 for 16s, 4 for 32f).
template <class E, class F> inline void magnitude_rows(const E* gx, const E* gy, E* out, std::int64_t n, F f)
{
    constexpr std::int64_t step = 16 / sizeof(E);
    for (std::int64_t i = 0; i < n; i += step) simd::storeu(out + i, f(simd::loadu(gx + i), simd::loadu(gy + i)));
}

template <class E> inline void magnitude_l1(const E* gx, const E* gy, E* out, std::int64_t n)
{
    magnitude_rows(gx, gy, out, n, [](auto x, auto y) { return magnitude_l1(x, y); });
}

template <class E> inline void magnitude_l2(const E* gx, const E* gy, E* out, std::int64_t n)
{
    magnitude_rows(gx, gy, out, n, [](auto x, auto y) { return magnitude_l2(x, y); });
}

// ---- angle --------------------------------------------------------------------------------------

// atan2(y, x) in radians, in [-pi, pi], within 3e-7 of the true value (1e-6 is the promise).
// The quotient of the smaller and larger magnitude, in [0, 1], is taken above tan(pi/8) to
// (t - 1) / (t + 1) around pi/4, where an odd polynomial of degree 9 fits atan; the octant and
// quadrant are then restored. Signed zeros follow the usual rule: atan2(+0, -0) = pi, and the
// sign of y is the sign of the result.
[[gnu::always_inline]] inline __m128 atan2_4(__m128 y, __m128 x)
{
    const __m128 sign = _mm_set1_ps(-0.0f), one = _mm_set1_ps(1.0f);
    const __m128 ax = _mm_andnot_ps(sign, x), ay = _mm_andnot_ps(sign, y);
    const __m128 hi = _mm_max_ps(ax, ay), lo = _mm_min_ps(ax, ay);
    __m128 t = _mm_div_ps(lo, _mm_blendv_ps(hi, one, _mm_cmpeq_ps(hi, _mm_setzero_ps())));
    const __m128 far = _mm_cmpgt_ps(t, _mm_set1_ps(0.4142135623730950f));
    t = _mm_blendv_ps(t, _mm_div_ps(_mm_sub_ps(t, one), _mm_add_ps(t, one)), far);
    const __m128 z = _mm_mul_ps(t, t);
    __m128 p = _mm_set1_ps(8.05374449538e-2f);
    p = _mm_sub_ps(_mm_mul_ps(p, z), _mm_set1_ps(1.38776856032e-1f));
    p = _mm_add_ps(_mm_mul_ps(p, z), _mm_set1_ps(1.99777106478e-1f));
    p = _mm_sub_ps(_mm_mul_ps(p, z), _mm_set1_ps(3.33329491539e-1f));
    __m128 a = _mm_add_ps(_mm_mul_ps(_mm_mul_ps(p, z), t), t);
    a = _mm_add_ps(a, _mm_and_ps(far, _mm_set1_ps(0.78539816339744831f)));
    a = _mm_blendv_ps(a, _mm_sub_ps(_mm_set1_ps(1.5707963267948966f), a), _mm_cmpgt_ps(ay, ax));
    a = _mm_blendv_ps(a, _mm_sub_ps(_mm_set1_ps(3.14159265358979323846f), a), x);  // x's sign bit
    return _mm_or_ps(a, _mm_and_ps(y, sign));
}

// The angles of one vector of derivatives: 4 from 32f, 8 from 16s (converted to f32, exactly).
[[gnu::always_inline]] inline void angle(__m128 x, __m128 y, Kel32f* out) { _mm_storeu_ps(out, atan2_4(y, x)); }

[[gnu::always_inline]] inline void angle(__m128i x, __m128i y, Kel32f* out)
{
    const auto f32 = [](__m128i v) { return _mm_cvtepi32_ps(_mm_cvtepi16_epi32(v)); };
    _mm_storeu_ps(out, atan2_4(f32(y), f32(x)));
    _mm_storeu_ps(out + 4, atan2_4(f32(_mm_srli_si128(y, 8)), f32(_mm_srli_si128(x, 8))));
}

// Angles of n pixels, n a multiple of the vector.
template <class E> inline void angle(const E* gx, const E* gy, Kel32f* out, std::int64_t n)
{
    constexpr std::int64_t step = 16 / sizeof(E);
    for (std::int64_t i = 0; i < n; i += step) angle(simd::loadu(gx + i), simd::loadu(gy + i), out + i);
}

}  // namespace keli::rows::gradient
