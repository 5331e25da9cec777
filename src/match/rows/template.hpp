// Row kernels of template matching. Each has a 128-bit loop and a scalar tail that computes
// the same expression in the same order, so every element gets the same bits on either path.
#pragma once

#include <nmmintrin.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "keli_types.h"

namespace keli::match::rows {

// ---- Source elements to f32

inline __m128 four_f32(const Kel8u* p)
{
    std::int32_t v;
    std::memcpy(&v, p, 4);
    return _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_cvtsi32_si128(v)));
}
inline __m128 four_f32(const Kel16u* p)
{
    return _mm_cvtepi32_ps(_mm_cvtepu16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))));
}
inline __m128 four_f32(const Kel32f* p) { return _mm_loadu_ps(p); }

template <class T> void to_f32(const T* src, float* dst, std::size_t n)
{
    std::size_t i = 0;
    for (; i + 4 <= n; i += 4) _mm_storeu_ps(dst + i, four_f32(src + i));
    for (; i < n; ++i) dst[i] = static_cast<float>(src[i]);
}

inline void zero_f32(float* dst, std::size_t n)
{
    if (n) std::memset(dst, 0, n * sizeof(float));
}

// ---- Spectrum product

// s[k] *= conj(t[k]) over `pairs` interleaved complex values: (a + ib)(c - id) =
// (ac + bd) + i(bc - ad).
inline void multiply_conj_pairs(float* s, const float* t, std::size_t pairs)
{
    const __m128 oddSign = _mm_castsi128_ps(_mm_setr_epi32(0, INT32_MIN, 0, INT32_MIN));
    std::size_t k = 0;
    for (; k + 2 <= pairs; k += 2) {
        const __m128 ab = _mm_loadu_ps(s + 2 * k), cd = _mm_loadu_ps(t + 2 * k);
        const __m128 cc = _mm_moveldup_ps(cd), dd = _mm_movehdup_ps(cd);
        const __m128 ba = _mm_shuffle_ps(ab, ab, _MM_SHUFFLE(2, 3, 0, 1));
        // (a c, b c) + (b d, -(a d))
        const __m128 r = _mm_add_ps(_mm_mul_ps(ab, cc), _mm_xor_ps(_mm_mul_ps(ba, dd), oddSign));
        _mm_storeu_ps(s + 2 * k, r);
    }
    for (; k < pairs; ++k) {
        const float a = s[2 * k], b = s[2 * k + 1], c = t[2 * k], d = t[2 * k + 1];
        s[2 * k] = a * c + b * d;
        s[2 * k + 1] = b * c + -(a * d);
    }
}

// One complex value split over two rows of a real column of the packed layout.
inline void multiply_conj_split(float& re, float& im, float c, float d)
{
    const float a = re, b = im;
    re = a * c + b * d;
    im = b * c + -(a * d);
}

// The product of a packed real spectrum (fx x fy, rows of fx floats) with the conjugate of
// another, element by element in the packed layout: the middle column pairs are complex in
// every row; columns 0 and fx - 1 are real columns packed down the column (rows 0 and fy - 1
// real, rows 2k - 1 and 2k a complex value). fx and fy are at least 2.
inline void multiply_conj_packed(float* s, const float* t, std::size_t fx, std::size_t fy)
{
    for (std::size_t y = 0; y < fy; ++y) multiply_conj_pairs(s + y * fx + 1, t + y * fx + 1, (fx - 2) / 2);
    for (std::size_t col : {std::size_t(0), fx - 1}) {
        s[col] *= t[col];
        s[(fy - 1) * fx + col] *= t[(fy - 1) * fx + col];
        for (std::size_t y = 1; y + 1 < fy; y += 2)
            multiply_conj_split(s[y * fx + col], s[(y + 1) * fx + col], t[y * fx + col], t[(y + 1) * fx + col]);
    }
}

// ---- Outputs

// out = den == 0 ? 0 : corr / den; out may be corr.
inline void divide(const float* corr, const float* den, float* out, std::size_t n)
{
    const __m128 zero = _mm_setzero_ps();
    std::size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        const __m128 d = _mm_loadu_ps(den + i);
        const __m128 q = _mm_div_ps(_mm_loadu_ps(corr + i), d);
        _mm_storeu_ps(out + i, _mm_and_ps(q, _mm_cmpneq_ps(d, zero)));
    }
    for (; i < n; ++i) out[i] = den[i] != 0.0f ? corr[i] / den[i] : 0.0f;
}

// 8u = saturate(round-to-nearest-even(v * scale)). The clamp runs first in f32, so values past
// the 32-bit integer range saturate too; the conversion rounds by the control register, which
// the body holds at nearest.
inline void scale_to_8u(const float* v, float scale, Kel8u* out, std::size_t n)
{
    const __m128 s = _mm_set1_ps(scale), lo = _mm_setzero_ps(), hi = _mm_set1_ps(255.0f);
    std::size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m128 a = _mm_min_ps(_mm_max_ps(_mm_mul_ps(_mm_loadu_ps(v + i), s), lo), hi);
        const __m128 b = _mm_min_ps(_mm_max_ps(_mm_mul_ps(_mm_loadu_ps(v + i + 4), s), lo), hi);
        const __m128i w = _mm_packs_epi32(_mm_cvtps_epi32(a), _mm_cvtps_epi32(b));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + i), _mm_packus_epi16(w, w));
    }
    for (; i < n; ++i) {
        float x = v[i] * scale;
        x = x > 0.0f ? x : 0.0f;  // as the vector max: NaN goes to 0
        x = x < 255.0f ? x : 255.0f;
        out[i] = static_cast<Kel8u>(_mm_cvtss_si32(_mm_set_ss(x)));
    }
}

// Squared distance E - 2C + nn in f64 (C the correlation, E the window energy); with `norm`,
// divided by sqrt(E) * tplNorm, where E below 2^-23 counts as 0 and a divisor within 2^-23 of
// 0 counts as 2^-23, so the output stays finite.
template <bool Norm>
void sqr_distance(const float* corr, const double* energy, double nn, double tplNorm, float* out, std::size_t n)
{
    const double tiny = 1.1920928955078125e-7;
    const __m128d m2 = _mm_set1_pd(-2.0), vnn = _mm_set1_pd(nn), vt = _mm_set1_pd(tiny), vn = _mm_set1_pd(tplNorm);
    auto row = [&](__m128d c, __m128d e) {
        const __m128d num = _mm_add_pd(_mm_add_pd(_mm_mul_pd(c, m2), e), vnn);
        if (!Norm) return num;
        const __m128d et = _mm_and_pd(e, _mm_cmpge_pd(e, vt));
        __m128d d = _mm_mul_pd(_mm_sqrt_pd(et), vn);
        d = _mm_blendv_pd(d, vt, _mm_cmple_pd(d, vt));
        return _mm_div_pd(num, d);
    };
    std::size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        const __m128 c = _mm_loadu_ps(corr + i);
        const __m128d lo = row(_mm_cvtps_pd(c), _mm_loadu_pd(energy + i));
        const __m128d hi = row(_mm_cvtps_pd(_mm_movehl_ps(c, c)), _mm_loadu_pd(energy + i + 2));
        _mm_storeu_ps(out + i, _mm_movelh_ps(_mm_cvtpd_ps(lo), _mm_cvtpd_ps(hi)));
    }
    for (; i < n; ++i) {
        const double e = energy[i], num = (static_cast<double>(corr[i]) * -2.0 + e) + nn;
        if (!Norm) {
            out[i] = static_cast<float>(num);
            continue;
        }
        const double et = e >= tiny ? e : 0.0;
        double d = std::sqrt(et) * tplNorm;
        d = d <= tiny ? tiny : d;
        out[i] = static_cast<float>(num / d);
    }
}

// ---- Window energies: column sums of squares (and of values) moved down one row

inline __m128d two_f64(const Kel8u* p)
{
    return _mm_cvtepi32_pd(_mm_cvtepu8_epi32(_mm_cvtsi32_si128(p[0] | (p[1] << 8))));
}
inline __m128d two_f64(const Kel16u* p)
{
    std::int32_t v;
    std::memcpy(&v, p, 4);
    return _mm_cvtepi32_pd(_mm_cvtepu16_epi32(_mm_cvtsi32_si128(v)));
}
inline __m128d two_f64(const Kel32f* p)
{
    return _mm_cvtps_pd(_mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))));
}

// sq[c] += x^2 (Sign +1) or -= x^2 (Sign -1), and likewise sum[c] with x when Sums. Squares of
// 8u, 16u and f32 are exact in f64, and so are integer sums: the running sums of integer
// images never drift.
template <int Sign, bool Sums, class T> void add_row(double* sq, double* sum, const T* row, std::size_t n)
{
    std::size_t c = 0;
    for (; c + 2 <= n; c += 2) {
        const __m128d x = two_f64(row + c);
        const __m128d x2 = _mm_mul_pd(x, x);
        _mm_storeu_pd(sq + c, Sign > 0 ? _mm_add_pd(_mm_loadu_pd(sq + c), x2) : _mm_sub_pd(_mm_loadu_pd(sq + c), x2));
        if (Sums)
            _mm_storeu_pd(sum + c, Sign > 0 ? _mm_add_pd(_mm_loadu_pd(sum + c), x) : _mm_sub_pd(_mm_loadu_pd(sum + c), x));
    }
    for (; c < n; ++c) {
        const double x = static_cast<double>(row[c]), x2 = x * x;
        sq[c] = Sign > 0 ? sq[c] + x2 : sq[c] - x2;
        if (Sums) sum[c] = Sign > 0 ? sum[c] + x : sum[c] - x;
    }
}

}  // namespace keli::match::rows
