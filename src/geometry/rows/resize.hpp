// Row kernels of the linear and nearest resize. A horizontal kernel turns one source row into a
// row of intermediate values at the destination's columns (Q6 integers for 8u in fixed point,
// f32 or f64 otherwise); a vertical kernel blends two such rows into a destination row. The
// index slices are rebased to the tile, so the kernels only add them to their row pointer.
#pragma once

#include <smmintrin.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "keli_types.h"

namespace keli::resize::rows {

// ---- 8u fixed point ----------------------------------------------------------------------------

inline int pair16(const Kel8u* p)
{
    std::uint16_t v;
    std::memcpy(&v, p, 2);
    return v;
}

// h = (c0 a + c1 b + 128) >> 8: Q14 weights times bytes, kept as Q6 so that two rows fit one
// 16-bit multiply-add in the vertical pass.
inline std::int16_t q6(int c0, int c1, int a, int b)
{
    const int h = (c0 * a + c1 * b + 128) >> 8;
    return static_cast<std::int16_t>(std::clamp(h, -32768, 32767));
}

// pairs: (16384 - F, F) for each column; n columns of C channels.
template <int C>
void horizontal_q14(const Kel8u* row, const std::int32_t* index, const std::uint16_t* pairs, int n, std::int16_t* out)
{
    const __m128i round = _mm_set1_epi32(128);
    int x = 0;
    if constexpr (C == 1) {
        // Both taps of a column are adjacent bytes: one 16-bit lane a column, eight columns.
        for (; x + 8 <= n; x += 8) {
            const std::int32_t* i = index + x;
            __m128i both = _mm_cvtsi32_si128(pair16(row + i[0]));
            both = _mm_insert_epi16(both, pair16(row + i[1]), 1);
            both = _mm_insert_epi16(both, pair16(row + i[2]), 2);
            both = _mm_insert_epi16(both, pair16(row + i[3]), 3);
            both = _mm_insert_epi16(both, pair16(row + i[4]), 4);
            both = _mm_insert_epi16(both, pair16(row + i[5]), 5);
            both = _mm_insert_epi16(both, pair16(row + i[6]), 6);
            both = _mm_insert_epi16(both, pair16(row + i[7]), 7);
            const __m128i lo = _mm_cvtepu8_epi16(both), hi = _mm_cvtepu8_epi16(_mm_srli_si128(both, 8));
            const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pairs + 2 * x));
            const __m128i d = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pairs + 2 * x + 8));
            const __m128i s0 = _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(lo, c), round), 8);
            const __m128i s1 = _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(hi, d), round), 8);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x), _mm_packs_epi32(s0, s1));
        }
    } else {
        // a0 b0 a1 b1 ... as zero-extended words, from the pixel pair a0..a3 b0..b3.
        const __m128i interleave = _mm_setr_epi8(0, -1, 4, -1, 1, -1, 5, -1, 2, -1, 6, -1, 3, -1, 7, -1);
        // Three channels: the two pixels' results packed together without their empty fourth lane.
        const __m128i squeeze = _mm_setr_epi8(0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, 6, 7, 14, 15);
        const auto pixel = [&](int j) {
            const Kel8u* p = row + static_cast<std::ptrdiff_t>(index[j]) * C;
            std::uint32_t a = 0, b = 0, c = 0;
            std::memcpy(&a, p, C);
            std::memcpy(&b, p + C, C);
            std::memcpy(&c, pairs + 2 * j, 4);
            const __m128i ab = _mm_shuffle_epi8(_mm_cvtsi64_si128(static_cast<long long>(a | (std::uint64_t{b} << 32))), interleave);
            return _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(ab, _mm_set1_epi32(static_cast<int>(c))), round), 8);
        };
        for (; x + 2 <= n; x += 2) {
            __m128i both = _mm_packs_epi32(pixel(x), pixel(x + 1));
            if constexpr (C == 3) {
                // Six values and two spare lanes: the next pair overwrites the spare ones, and the
                // last pair of a row stays inside the row buffer's padding.
                _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 3 * x), _mm_shuffle_epi8(both, squeeze));
            } else {
                _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 4 * x), both);
            }
        }
    }
    for (; x < n; ++x) {
        const Kel8u* p = row + static_cast<std::ptrdiff_t>(index[x]) * C;
        for (int k = 0; k < C; ++k) out[x * C + k] = q6(pairs[2 * x], pairs[2 * x + 1], p[k], p[C + k]);
    }
}

// out = (F' h0 + F h1 + 2^19) >> 20 in 32 bits, clamped to a byte.
inline void vertical_q14(const std::int16_t* h0, const std::int16_t* h1, int F, Kel8u* dst, int count)
{
    const __m128i w = _mm_set1_epi32(static_cast<int>((static_cast<std::uint32_t>(F) << 16) | static_cast<std::uint32_t>(16384 - F)));
    const __m128i round = _mm_set1_epi32(1 << 19);
    const auto eight = [&](int i) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(h0 + i));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(h1 + i));
        const __m128i lo = _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(_mm_unpacklo_epi16(a, b), w), round), 20);
        const __m128i hi = _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(_mm_unpackhi_epi16(a, b), w), round), 20);
        return _mm_packs_epi32(lo, hi);
    };
    int i = 0;
    for (; i + 16 <= count; i += 16)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), _mm_packus_epi16(eight(i), eight(i + 8)));
    for (; i < count; ++i) {
        const int v = ((16384 - F) * h0[i] + F * h1[i] + (1 << 19)) >> 20;
        dst[i] = static_cast<Kel8u>(std::clamp(v, 0, 255));
    }
}

// ---- Floating point ----------------------------------------------------------------------------

template <class T> inline T saturate_rounded(float v)
{
    if constexpr (std::is_same_v<T, Kel32f>) {
        return v;
    } else {
        // The caller's guard holds the rounding mode at nearest-even.
        const float r = std::nearbyint(v);
        return static_cast<T>(std::clamp(r, static_cast<float>(std::numeric_limits<T>::min()),
                                         static_cast<float>(std::numeric_limits<T>::max())));
    }
}

// A pixel's channels as f32 lanes (the fourth lane zero for three channels).
template <class T, int C> inline __m128 pixel_f32(const T* p)
{
    if constexpr (std::is_same_v<T, Kel32f>) {
        if constexpr (C == 4) return _mm_loadu_ps(p);
        else return _mm_setr_ps(p[0], p[1], p[2], 0.0f);
    } else {
        std::uint64_t bits = 0;
        std::memcpy(&bits, p, sizeof(T) * C);
        const __m128i v = _mm_cvtsi64_si128(static_cast<long long>(bits));
        if constexpr (std::is_same_v<T, Kel8u>) return _mm_cvtepi32_ps(_mm_cvtepu8_epi32(v));
        else if constexpr (std::is_same_v<T, Kel16u>) return _mm_cvtepi32_ps(_mm_cvtepu16_epi32(v));
        else return _mm_cvtepi32_ps(_mm_cvtepi16_epi32(v));
    }
}

// The left and right taps of four single-channel columns, as f32 lanes.
template <class T> inline void taps4(const T* row, const std::int32_t* i, __m128& a, __m128& b)
{
    if constexpr (std::is_same_v<T, Kel32f>) {
        const __m128 lo = _mm_loadh_pi(_mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(row + i[0])),
                                       reinterpret_cast<const __m64*>(row + i[1]));
        const __m128 hi = _mm_loadh_pi(_mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(row + i[2])),
                                       reinterpret_cast<const __m64*>(row + i[3]));
        a = _mm_shuffle_ps(lo, hi, _MM_SHUFFLE(2, 0, 2, 0));
        b = _mm_shuffle_ps(lo, hi, _MM_SHUFFLE(3, 1, 3, 1));
    } else if constexpr (std::is_same_v<T, Kel8u>) {
        __m128i v = _mm_cvtsi32_si128(pair16(row + i[0]));
        v = _mm_insert_epi16(v, pair16(row + i[1]), 1);
        v = _mm_insert_epi16(v, pair16(row + i[2]), 2);
        v = _mm_insert_epi16(v, pair16(row + i[3]), 3);
        v = _mm_shuffle_epi8(v, _mm_setr_epi8(0, 2, 4, 6, 1, 3, 5, 7, -1, -1, -1, -1, -1, -1, -1, -1));
        a = _mm_cvtepi32_ps(_mm_cvtepu8_epi32(v));
        b = _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_srli_si128(v, 4)));
    } else {
        const auto pair = [](const T* p) {
            std::int32_t v;
            std::memcpy(&v, p, 4);
            return v;
        };
        __m128i v = _mm_cvtsi32_si128(pair(row + i[0]));
        v = _mm_insert_epi32(v, pair(row + i[1]), 1);
        v = _mm_insert_epi32(v, pair(row + i[2]), 2);
        v = _mm_insert_epi32(v, pair(row + i[3]), 3);
        v = _mm_shuffle_epi8(v, _mm_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15));
        const __m128i hi = _mm_srli_si128(v, 8);
        if constexpr (std::is_same_v<T, Kel16u>) {
            a = _mm_cvtepi32_ps(_mm_cvtepu16_epi32(v));
            b = _mm_cvtepi32_ps(_mm_cvtepu16_epi32(hi));
        } else {
            a = _mm_cvtepi32_ps(_mm_cvtepi16_epi32(v));
            b = _mm_cvtepi32_ps(_mm_cvtepi16_epi32(hi));
        }
    }
}

// h = a + (b - a) f in f32, one column per fraction.
template <class T, int C>
void horizontal_f32(const T* row, const std::int32_t* index, const float* f, int n, float* out)
{
    int x = 0;
    if constexpr (C == 1) {
        for (; x + 4 <= n; x += 4) {
            __m128 va, vb;
            taps4(row, index + x, va, vb);
            _mm_storeu_ps(out + x, _mm_add_ps(va, _mm_mul_ps(_mm_sub_ps(vb, va), _mm_loadu_ps(f + x))));
        }
    } else {
        // Three channels store four lanes and let the next pixel overwrite the spare one; the
        // last pixel goes to the scalar loop so that the row buffer is never overrun.
        const int vectorEnd = C == 4 ? n : n - 1;
        for (; x < vectorEnd; ++x) {
            const T* p = row + static_cast<std::ptrdiff_t>(index[x]) * C;
            const __m128 va = pixel_f32<T, C>(p), vb = pixel_f32<T, C>(p + C);
            _mm_storeu_ps(out + C * x, _mm_add_ps(va, _mm_mul_ps(_mm_sub_ps(vb, va), _mm_set1_ps(f[x]))));
        }
    }
    for (; x < n; ++x) {
        const T* p = row + static_cast<std::ptrdiff_t>(index[x]) * C;
        for (int k = 0; k < C; ++k) {
            const float a = static_cast<float>(p[k]), b = static_cast<float>(p[C + k]);
            out[x * C + k] = a + (b - a) * f[x];
        }
    }
}

// Four lanes rounded to nearest even (the mode the caller's guard set) and stored saturated.
template <class T> inline void store_f32_4x4(T* dst, __m128 v0, __m128 v1, __m128 v2, __m128 v3)
{
    if constexpr (std::is_same_v<T, Kel32f>) {
        _mm_storeu_ps(dst, v0);
        _mm_storeu_ps(dst + 4, v1);
        _mm_storeu_ps(dst + 8, v2);
        _mm_storeu_ps(dst + 12, v3);
    } else {
        const __m128i i0 = _mm_cvtps_epi32(v0), i1 = _mm_cvtps_epi32(v1), i2 = _mm_cvtps_epi32(v2), i3 = _mm_cvtps_epi32(v3);
        if constexpr (std::is_same_v<T, Kel8u>) {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dst),
                             _mm_packus_epi16(_mm_packs_epi32(i0, i1), _mm_packs_epi32(i2, i3)));
        } else if constexpr (std::is_same_v<T, Kel16u>) {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm_packus_epi32(i0, i1));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 8), _mm_packus_epi32(i2, i3));
        } else {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm_packs_epi32(i0, i1));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 8), _mm_packs_epi32(i2, i3));
        }
    }
}

// out = h0 + (h1 - h0) f in f32; integers rounded to nearest even and saturated.
template <class T> void vertical_f32(const float* h0, const float* h1, float f, T* dst, int count)
{
    const __m128 vf = _mm_set1_ps(f);
    const auto lerp = [&](int i) {
        const __m128 a = _mm_loadu_ps(h0 + i), b = _mm_loadu_ps(h1 + i);
        return _mm_add_ps(a, _mm_mul_ps(_mm_sub_ps(b, a), vf));
    };
    int i = 0;
    for (; i + 16 <= count; i += 16) store_f32_4x4(dst + i, lerp(i), lerp(i + 4), lerp(i + 8), lerp(i + 12));
    for (; i < count; ++i) dst[i] = saturate_rounded<T>(h0[i] + (h1[i] - h0[i]) * f);
}

// ---- Double precision --------------------------------------------------------------------------

template <int C>
void horizontal_f64(const Kel64f* row, const std::int32_t* index, const double* f, int n, double* out)
{
    int x = 0;
    if constexpr (C == 1) {
        for (; x + 2 <= n; x += 2) {
            const Kel64f* p = row + index[x];
            const Kel64f* q = row + index[x + 1];
            const __m128d a = _mm_setr_pd(p[0], q[0]), b = _mm_setr_pd(p[1], q[1]);
            _mm_storeu_pd(out + x, _mm_add_pd(a, _mm_mul_pd(_mm_sub_pd(b, a), _mm_loadu_pd(f + x))));
        }
    } else {
        for (; x < n; ++x) {
            const Kel64f* p = row + static_cast<std::ptrdiff_t>(index[x]) * C;
            const __m128d vf = _mm_set1_pd(f[x]);
            for (int k = 0; k + 2 <= C; k += 2) {
                const __m128d a = _mm_loadu_pd(p + k), b = _mm_loadu_pd(p + C + k);
                _mm_storeu_pd(out + x * C + k, _mm_add_pd(a, _mm_mul_pd(_mm_sub_pd(b, a), vf)));
            }
            if constexpr (C == 3) out[x * C + 2] = p[2] + (p[C + 2] - p[2]) * f[x];
        }
    }
    for (; x < n; ++x) {
        const Kel64f* p = row + static_cast<std::ptrdiff_t>(index[x]) * C;
        for (int k = 0; k < C; ++k) out[x * C + k] = p[k] + (p[C + k] - p[k]) * f[x];
    }
}

inline void vertical_f64(const double* h0, const double* h1, double f, Kel64f* dst, int count)
{
    const __m128d vf = _mm_set1_pd(f);
    int i = 0;
    for (; i + 4 <= count; i += 4) {
        const __m128d a0 = _mm_loadu_pd(h0 + i), b0 = _mm_loadu_pd(h1 + i);
        const __m128d a1 = _mm_loadu_pd(h0 + i + 2), b1 = _mm_loadu_pd(h1 + i + 2);
        _mm_storeu_pd(dst + i, _mm_add_pd(a0, _mm_mul_pd(_mm_sub_pd(b0, a0), vf)));
        _mm_storeu_pd(dst + i + 2, _mm_add_pd(a1, _mm_mul_pd(_mm_sub_pd(b1, a1), vf)));
    }
    for (; i < count; ++i) dst[i] = h0[i] + (h1[i] - h0[i]) * f;
}

// ---- 16-bit halving -----------------------------------------------------------------------------

// Each output is the mean of a 2 x 2 block rounded half to even: (s + 1 + ((s >> 2) & 1)) >> 2
// with s the block's sum, which is what the two f32 blends give at fractions of one half.
template <class T> inline T mean4(std::int32_t s)
{
    const std::int32_t v = (s + 1 + ((s >> 2) & 1)) >> 2;
    return static_cast<T>(std::clamp<std::int32_t>(v, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
}

// n output pixels of C channels from rows r0, r1 of 2n pixels.
template <class T, int C> void halve(const T* r0, const T* r1, T* dst, int n)
{
    int x = 0;
    if constexpr (C == 1 || C == 4) {
        constexpr bool kSigned = std::is_same_v<T, Kel16s>;
        const auto widen = [](__m128i v, bool high) {
            if (high) v = _mm_srli_si128(v, 8);
            return kSigned ? _mm_cvtepi16_epi32(v) : _mm_cvtepu16_epi32(v);
        };
        const __m128i one = _mm_set1_epi32(1);
        // Eight elements of each row give four outputs of one channel or one of four channels.
        constexpr int kPerStep = C == 1 ? 4 : 1;
        for (; x + 2 * kPerStep <= n; x += 2 * kPerStep) {
            __m128i sums[2];
            for (int half = 0; half < 2; ++half) {
                const int e = (x + half * kPerStep) * 2 * C;
                const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(r0 + e));
                const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(r1 + e));
                __m128i lo = _mm_add_epi32(widen(a, false), widen(b, false));
                __m128i hi = _mm_add_epi32(widen(a, true), widen(b, true));
                // One channel: neighbours are adjacent lanes; four channels: the two halves.
                const __m128i s = C == 1 ? _mm_hadd_epi32(lo, hi) : _mm_add_epi32(lo, hi);
                const __m128i parity = _mm_and_si128(_mm_srai_epi32(s, 2), one);
                sums[half] = _mm_srai_epi32(_mm_add_epi32(_mm_add_epi32(s, one), parity), 2);
            }
            const __m128i packed = kSigned ? _mm_packs_epi32(sums[0], sums[1]) : _mm_packus_epi32(sums[0], sums[1]);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x * C), packed);
        }
    }
    for (; x < n; ++x)
        for (int k = 0; k < C; ++k) {
            const int e = 2 * x * C + k;
            dst[x * C + k] = mean4<T>(std::int32_t{r0[e]} + r0[e + C] + r1[e] + r1[e + C]);
        }
}

// ---- Nearest -----------------------------------------------------------------------------------

// Whole pixels picked by index. Single bytes go through a register, sixteen at a time.
template <class T, int C> void nearest(const T* row, const std::int32_t* index, int n, T* dst)
{
    int x = 0;
    if constexpr (std::is_same_v<T, Kel8u> && C == 1) {
        for (; x + 16 <= n; x += 16) {
            const std::int32_t* i = index + x;
            const __m128i v = _mm_setr_epi8(static_cast<char>(row[i[0]]), static_cast<char>(row[i[1]]), static_cast<char>(row[i[2]]),
                                            static_cast<char>(row[i[3]]), static_cast<char>(row[i[4]]), static_cast<char>(row[i[5]]),
                                            static_cast<char>(row[i[6]]), static_cast<char>(row[i[7]]), static_cast<char>(row[i[8]]),
                                            static_cast<char>(row[i[9]]), static_cast<char>(row[i[10]]), static_cast<char>(row[i[11]]),
                                            static_cast<char>(row[i[12]]), static_cast<char>(row[i[13]]), static_cast<char>(row[i[14]]),
                                            static_cast<char>(row[i[15]]));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x), v);
        }
    }
    for (; x < n; ++x) std::memcpy(dst + static_cast<std::ptrdiff_t>(x) * C, row + static_cast<std::ptrdiff_t>(index[x]) * C, sizeof(T) * C);
}

}  // namespace keli::resize::rows
