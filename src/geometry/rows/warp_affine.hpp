// Row kernels of the affine warp: one span of destination pixels whose source positions start
// at (X, Y) and advance by (dx, dy) per pixel.
//
// The positions come from repeated f64 addition, a chain that only a scalar loop can follow
// bit for bit; four rows' chains advance side by side so that their latencies overlap, each
// filling a chunk of positions, and the vector code takes over from there: the
// rounding or flooring of both coordinates, the limits, the fractions, and after the taps are
// gathered, the interpolation, rounding and saturation of four elements at a time. The scalar
// tails use the same f32 operations in the same order, so every element equals the scalar rule.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "keli_types.h"
#include "simd/sse.hpp"

namespace keli {
namespace warp {

// The source as the kernels read it: pixel (x, y) at base + y * step + x * C * sizeof(T).
template <class T> struct Source {
    const unsigned char* base;
    std::int64_t step;
    std::int32_t width, height;
    const T* row(std::int64_t y) const { return reinterpret_cast<const T*>(base + y * step); }
};

// 32f arithmetic except for 64f, which interpolates in f64.
template <class T> using Real = std::conditional_t<std::is_same_v<T, Kel64f>, double, float>;

// Nearest with ties upward: rint, and rint(v + 0.5) when v lies exactly halfway. (Adding 0.5
// and flooring would round 0.49999999999999994 up, since that sum rounds to 1.)
inline double round_half_up(double v)
{
    const double r = std::nearbyint(v);
    return v - r == 0.5 ? std::nearbyint(v + 0.5) : r;
}

// Floor by rounding: an integer stays, anything else is rint(v - 0.5).
inline double floor_by_rounding(double v)
{
    return std::nearbyint(v) == v ? v : std::nearbyint(v - 0.5);
}

template <class T> inline T saturate(Real<T> v)
{
    if constexpr (std::is_floating_point_v<T>) {
        return T(v);
    } else {
        const Real<T> r = std::nearbyint(v);  // to nearest even: the caller holds that rounding mode
        const Real<T> lo = Real<T>(std::numeric_limits<T>::min()), hi = Real<T>(std::numeric_limits<T>::max());
        return T(r < lo ? lo : r > hi ? hi : r);
    }
}

// Four consecutive bytes widened to four f32 lanes.
inline __m128 widen4(const Kel8u* p)
{
    std::int32_t v;
    std::memcpy(&v, p, 4);
    return _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_cvtsi32_si128(v)));
}

// The 8u form interpolates vertically first, on purpose: it matches its f32 index arithmetic.
inline float lerp_vertical_first(float p00, float p01, float p10, float p11, float fx, float fy)
{
    const float left = p00 + (p10 - p00) * fy;
    const float right = p01 + (p11 - p01) * fy;
    return left + (right - left) * fx;
}

template <class R> inline R lerp_horizontal_first(R p00, R p01, R p10, R p11, R fx, R fy)
{
    const R top = p00 + (p01 - p00) * fx;
    return top + ((p10 - top) + (p11 - p10) * fx) * fy;
}

template <class T> inline Real<T> interpolate(Real<T> p00, Real<T> p01, Real<T> p10, Real<T> p11, Real<T> fx, Real<T> fy)
{
    if constexpr (std::is_same_v<T, Kel8u>) return lerp_vertical_first(p00, p01, p10, p11, fx, fy);
    else return lerp_horizontal_first(p00, p01, p10, p11, fx, fy);
}

namespace kernel {

constexpr int kChunk = 64;  // pixels per chunk of positions

// Up to four spans (one a row) stepped together, a chunk of each per turn. Each span's positions
// are its own chain X, X + dx, (X + dx) + dx, ... exactly as a lone scalar loop adds them, but a
// single chain waits out the latency of every addition; four independent chains, advanced in
// the same loop, overlap theirs. `chunk(r, first, m, xs, ys)` then runs the kernel on span r's
// pixels first .. first + m - 1.
struct SpanStart {
    double X, Y;
    int n;  // pixels in the span, 0 for none
};

template <class Chunk> inline void walk_spans(SpanStart (&span)[4], double dx, double dy, Chunk&& chunk)
{
    alignas(16) double xs[4][kChunk], ys[4][kChunk];
    for (int done = 0;; done += kChunk) {
        int m[4], common = kChunk, most = 0;
        for (int r = 0; r < 4; ++r) {
            m[r] = std::max(0, std::min(kChunk, span[r].n - done));
            common = std::min(common, m[r]);
            most = std::max(most, m[r]);
        }
        if (most == 0) return;
        for (int k = 0; k < common; ++k)
            for (int r = 0; r < 4; ++r) {
                xs[r][k] = span[r].X;
                ys[r][k] = span[r].Y;
                span[r].X += dx;
                span[r].Y += dy;
            }
        for (int r = 0; r < 4; ++r)
            for (int k = common; k < m[r]; ++k) {
                xs[r][k] = span[r].X;
                ys[r][k] = span[r].Y;
                span[r].X += dx;
                span[r].Y += dy;
            }
        for (int r = 0; r < 4; ++r)
            if (m[r] > 0) chunk(r, done, m[r], xs[r], ys[r]);
    }
}

// Nearest indexes of a chunk, four at a time; the clamp to the image never bites inside the
// intervals and keeps every read inside the source whatever the rounding of the chain did.
// The conversion to integers rounds to nearest even (the caller holds that mode), which is
// rint; at a tie v = r + 0.5 exactly, so v + 0.5 = r + 1 is an integer, held exactly below
// 2^53: rint(v + 0.5) is r + 1, one integer step instead of a second rounding. Positions
// inside the intervals lie well within the i32 range, where converting first and clamping
// after equals clamping in f64.
inline void nearest_indexes(const double* xs, const double* ys, int n, std::int32_t xMax, std::int32_t yMax,
                            std::int32_t* ix, std::int32_t* iy)
{
    const __m128d half = _mm_set1_pd(0.5);
    const __m128i zero = _mm_setzero_si128(), xHi = _mm_set1_epi32(xMax), yHi = _mm_set1_epi32(yMax);
    auto round = [&](const double* v, __m128i hi) {
        const __m128d v0 = _mm_load_pd(v), v1 = _mm_load_pd(v + 2);
        const __m128i r0 = _mm_cvtpd_epi32(v0), r1 = _mm_cvtpd_epi32(v1);
        const __m128d tie0 = _mm_cmpeq_pd(_mm_sub_pd(v0, _mm_cvtepi32_pd(r0)), half);
        const __m128d tie1 = _mm_cmpeq_pd(_mm_sub_pd(v1, _mm_cvtepi32_pd(r1)), half);
        const __m128i ties = _mm_castps_si128(_mm_shuffle_ps(_mm_castpd_ps(tie0), _mm_castpd_ps(tie1), _MM_SHUFFLE(2, 0, 2, 0)));
        const __m128i r = _mm_sub_epi32(_mm_unpacklo_epi64(r0, r1), ties);  // a true mask is -1
        return _mm_min_epi32(_mm_max_epi32(r, zero), hi);
    };
    int k = 0;
    for (; k + 4 <= n; k += 4) {
        _mm_store_si128(reinterpret_cast<__m128i*>(ix + k), round(xs + k, xHi));
        _mm_store_si128(reinterpret_cast<__m128i*>(iy + k), round(ys + k, yHi));
    }
    for (; k < n; ++k) {
        ix[k] = std::int32_t(std::clamp(round_half_up(xs[k]), 0.0, double(xMax)));
        iy[k] = std::int32_t(std::clamp(round_half_up(ys[k]), 0.0, double(yMax)));
    }
}

// 8u indexes: the position in f32, truncated, capped at the last pair (so the fraction reaches
// 1 on the last column), the fraction in f32. Four positions a turn.
inline void linear_indexes_f32(const double* xs, const double* ys, int n, std::int32_t xCap, std::int32_t yCap,
                               std::int32_t* ix, std::int32_t* iy, float* fx, float* fy)
{
    const __m128i zero = _mm_setzero_si128(), xc = _mm_set1_epi32(xCap), yc = _mm_set1_epi32(yCap);
    auto one = [&](const double* p, __m128i cap, std::int32_t* idx, float* frac) {
        const __m128 v = _mm_movelh_ps(_mm_cvtpd_ps(_mm_loadu_pd(p)), _mm_cvtpd_ps(_mm_loadu_pd(p + 2)));
        const __m128i i = _mm_max_epi32(_mm_min_epi32(_mm_cvttps_epi32(v), cap), zero);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(idx), i);
        _mm_storeu_ps(frac, _mm_sub_ps(v, _mm_cvtepi32_ps(i)));
    };
    int k = 0;
    for (; k + 4 <= n; k += 4) {
        one(xs + k, xc, ix + k, fx + k);
        one(ys + k, yc, iy + k, fy + k);
    }
    for (; k < n; ++k) {
        const float x = float(xs[k]), y = float(ys[k]);
        ix[k] = std::max(std::min(std::int32_t(x), xCap), 0);
        iy[k] = std::max(std::min(std::int32_t(y), yCap), 0);
        fx[k] = x - float(ix[k]);
        fy[k] = y - float(iy[k]);
    }
}

// Indexes of the other types: floor by rounding, limited to [0, last], one less at the last;
// the fraction is the f64 difference (rounded to f32 where the arithmetic is f32).
template <class F>
inline void linear_indexes_f64(const double* xs, const double* ys, int n, std::int32_t xLast, std::int32_t yLast,
                               std::int32_t* ix, std::int32_t* iy, F* fx, F* fy)
{
    const __m128d half = _mm_set1_pd(0.5), zero = _mm_setzero_pd();
    auto one = [&](const double* p, std::int32_t last, std::int32_t* idx, F* frac) {
        const __m128d v = _mm_loadu_pd(p);
        const __m128d whole = _mm_round_pd(v, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
        const __m128d down = _mm_round_pd(_mm_sub_pd(v, half), _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
        __m128d i = _mm_blendv_pd(down, v, _mm_cmpeq_pd(whole, v));
        const __m128d hi = _mm_set1_pd(last);
        i = _mm_min_pd(_mm_max_pd(i, zero), hi);
        i = _mm_sub_pd(i, _mm_and_pd(_mm_cmpeq_pd(i, hi), _mm_set1_pd(1.0)));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(idx), _mm_cvttpd_epi32(i));
        const __m128d f = _mm_sub_pd(v, i);
        if constexpr (std::is_same_v<F, double>) _mm_storeu_pd(frac, f);
        else _mm_storel_pi(reinterpret_cast<__m64*>(frac), _mm_cvtpd_ps(f));
    };
    int k = 0;
    for (; k + 2 <= n; k += 2) {
        one(xs + k, xLast, ix + k, fx + k);
        one(ys + k, yLast, iy + k, fy + k);
    }
    for (; k < n; ++k) {
        double i = std::clamp(floor_by_rounding(xs[k]), 0.0, double(xLast));
        if (i == xLast) i -= 1;
        double j = std::clamp(floor_by_rounding(ys[k]), 0.0, double(yLast));
        if (j == yLast) j -= 1;
        ix[k] = std::int32_t(i);
        iy[k] = std::int32_t(j);
        fx[k] = F(xs[k] - i);
        fy[k] = F(ys[k] - j);
    }
}

// Four results rounded to nearest even and saturated, stored as T.
template <class T> inline void store4(T* d, __m128 v)
{
    if constexpr (std::is_same_v<T, Kel32f>) {
        _mm_storeu_ps(d, v);
    } else {
        const __m128i i = _mm_cvtps_epi32(v);
        if constexpr (std::is_same_v<T, Kel8u>) {
            const int packed = _mm_cvtsi128_si32(_mm_packus_epi16(_mm_packs_epi32(i, i), i));
            std::memcpy(d, &packed, 4);
        } else if constexpr (std::is_same_v<T, Kel16u>) {
            _mm_storel_epi64(reinterpret_cast<__m128i*>(d), _mm_packus_epi32(i, i));
        } else {
            _mm_storel_epi64(reinterpret_cast<__m128i*>(d), _mm_packs_epi32(i, i));
        }
    }
}

// Interpolates e elements from the four tap arrays and the per-element fractions.
template <class T>
inline void interpolate_run(const Real<T>* a00, const Real<T>* a01, const Real<T>* a10, const Real<T>* a11,
                            const Real<T>* fx, const Real<T>* fy, int e, T* d)
{
    int i = 0;
    if constexpr (std::is_same_v<T, Kel64f>) {
        for (; i + 2 <= e; i += 2) {
            const __m128d p00 = _mm_loadu_pd(a00 + i), p01 = _mm_loadu_pd(a01 + i);
            const __m128d p10 = _mm_loadu_pd(a10 + i), p11 = _mm_loadu_pd(a11 + i);
            const __m128d x = _mm_loadu_pd(fx + i), y = _mm_loadu_pd(fy + i);
            const __m128d top = _mm_add_pd(p00, _mm_mul_pd(_mm_sub_pd(p01, p00), x));
            const __m128d rest = _mm_add_pd(_mm_sub_pd(p10, top), _mm_mul_pd(_mm_sub_pd(p11, p10), x));
            _mm_storeu_pd(d + i, _mm_add_pd(top, _mm_mul_pd(rest, y)));
        }
    } else {
        for (; i + 4 <= e; i += 4) {
            const __m128 p00 = _mm_loadu_ps(a00 + i), p01 = _mm_loadu_ps(a01 + i);
            const __m128 p10 = _mm_loadu_ps(a10 + i), p11 = _mm_loadu_ps(a11 + i);
            const __m128 x = _mm_loadu_ps(fx + i), y = _mm_loadu_ps(fy + i);
            __m128 out;
            if constexpr (std::is_same_v<T, Kel8u>) {
                const __m128 left = _mm_add_ps(p00, _mm_mul_ps(_mm_sub_ps(p10, p00), y));
                const __m128 right = _mm_add_ps(p01, _mm_mul_ps(_mm_sub_ps(p11, p01), y));
                out = _mm_add_ps(left, _mm_mul_ps(_mm_sub_ps(right, left), x));
            } else {
                const __m128 top = _mm_add_ps(p00, _mm_mul_ps(_mm_sub_ps(p01, p00), x));
                const __m128 rest = _mm_add_ps(_mm_sub_ps(p10, top), _mm_mul_ps(_mm_sub_ps(p11, p10), x));
                out = _mm_add_ps(top, _mm_mul_ps(rest, y));
            }
            store4(d + i, out);
        }
    }
    for (; i < e; ++i) d[i] = saturate<T>(interpolate<T>(a00[i], a01[i], a10[i], a11[i], fx[i], fy[i]));
}

// Separable pass of the scale-only route: horizontal lerps of two rows, then the vertical one,
// each a + (b - a) f in f32, rounded and saturated once at the end.
template <class T>
inline void separable_run(const float* h0a, const float* h0b, const float* h1a, const float* h1b, const float* fx,
                          float fy, int e, T* d)
{
    int i = 0;
    const __m128 y = _mm_set1_ps(fy);
    for (; i + 4 <= e; i += 4) {
        const __m128 x = _mm_loadu_ps(fx + i);
        const __m128 a = _mm_loadu_ps(h0a + i), c = _mm_loadu_ps(h1a + i);
        const __m128 h0 = _mm_add_ps(a, _mm_mul_ps(_mm_sub_ps(_mm_loadu_ps(h0b + i), a), x));
        const __m128 h1 = _mm_add_ps(c, _mm_mul_ps(_mm_sub_ps(_mm_loadu_ps(h1b + i), c), x));
        store4(d + i, _mm_add_ps(h0, _mm_mul_ps(_mm_sub_ps(h1, h0), y)));
    }
    for (; i < e; ++i) {
        const float h0 = h0a[i] + (h0b[i] - h0a[i]) * fx[i];
        const float h1 = h1a[i] + (h1b[i] - h1a[i]) * fx[i];
        d[i] = saturate<T>(h0 + (h1 - h0) * fy);
    }
}

}  // namespace kernel

// Nearest over a chunk of m pixels of C channels at the given positions.
template <class T, int C> void nearest_chunk(const Source<T>& s, T* d, int m, const double* xs, const double* ys)
{
    alignas(16) std::int32_t ix[kernel::kChunk], iy[kernel::kChunk];
    kernel::nearest_indexes(xs, ys, m, s.width - 1, s.height - 1, ix, iy);
    // The source's base and step in locals: the element stores may alias any memory, and
    // would otherwise have them read again for every pixel.
    const unsigned char* const base = s.base;
    const std::int64_t step = s.step;
    for (int k = 0; k < m; ++k, d += C) {
        const T* p = reinterpret_cast<const T*>(base + iy[k] * step) + std::int64_t(ix[k]) * C;
        for (int c = 0; c < C; ++c) d[c] = p[c];
    }
}

// Linear over a chunk of m pixels of C channels inside the interval: all four taps lie in the
// image by the index limits.
template <class T, int C> void linear_chunk(const Source<T>& s, T* d, int m, const double* xs, const double* ys)
{
    using R = Real<T>;
    constexpr int E = kernel::kChunk * C;
    alignas(16) std::int32_t ix[kernel::kChunk], iy[kernel::kChunk];
    alignas(16) R fx[kernel::kChunk], fy[kernel::kChunk];
    if constexpr (std::is_same_v<T, Kel8u>)
        kernel::linear_indexes_f32(xs, ys, m, s.width - 2, s.height - 2, ix, iy, fx, fy);
    else
        kernel::linear_indexes_f64<R>(xs, ys, m, s.width - 1, s.height - 1, ix, iy, fx, fy);
    if constexpr (std::is_same_v<T, Kel8u> && C == 4) {
        // A four-channel byte pixel is one 32-bit load: each tap widens straight into the
        // four lanes, and the lanes are the channels, with no gather through the arrays.
        for (int k = 0; k < m; ++k, d += 4) {
            const T* top = s.row(iy[k]) + std::int64_t(ix[k]) * 4;
            const T* bottom = s.row(iy[k] + 1) + std::int64_t(ix[k]) * 4;
            const __m128 p00 = widen4(top), p01 = widen4(top + 4), p10 = widen4(bottom), p11 = widen4(bottom + 4);
            const __m128 x = _mm_set1_ps(fx[k]), y = _mm_set1_ps(fy[k]);
            const __m128 left = _mm_add_ps(p00, _mm_mul_ps(_mm_sub_ps(p10, p00), y));
            const __m128 right = _mm_add_ps(p01, _mm_mul_ps(_mm_sub_ps(p11, p01), y));
            kernel::store4(d, _mm_add_ps(left, _mm_mul_ps(_mm_sub_ps(right, left), x)));
        }
    } else {
        alignas(16) R a00[E], a01[E], a10[E], a11[E], ex[E], ey[E];
        for (int k = 0; k < m; ++k) {
            const T* top = s.row(iy[k]) + std::int64_t(ix[k]) * C;
            const T* bottom = s.row(iy[k] + 1) + std::int64_t(ix[k]) * C;
            for (int c = 0; c < C; ++c) {
                const int e = k * C + c;
                a00[e] = R(top[c]);
                a01[e] = R(top[c + C]);
                a10[e] = R(bottom[c]);
                a11[e] = R(bottom[c + C]);
                ex[e] = fx[k];
                ey[e] = fy[k];
            }
        }
        kernel::interpolate_run<T>(a00, a01, a10, a11, ex, ey, m * C, d);
    }
}

// The scale-only route over a span: column taps and fractions from the tables, one row pair.
template <class T, int C>
void separable_span(const Source<T>& s, T* d, int n, const std::int32_t* xIndex, const float* xFraction,
                    std::int32_t yIndex, float yFraction)
{
    constexpr int E = kernel::kChunk * C;
    alignas(16) float h0a[E], h0b[E], h1a[E], h1b[E], ex[E];
    const T* r0 = s.row(yIndex);
    const T* r1 = s.row(std::min(yIndex + 1, s.height - 1));
    for (int done = 0; done < n;) {
        const int m = std::min(kernel::kChunk, n - done);
        for (int k = 0; k < m; ++k) {
            std::int32_t i0;
            float f;
            std::memcpy(&i0, xIndex + done + k, sizeof i0);
            std::memcpy(&f, xFraction + done + k, sizeof f);
            const std::int64_t a = std::int64_t(i0) * C, b = std::int64_t(std::min(i0 + 1, s.width - 1)) * C;
            for (int c = 0; c < C; ++c) {
                const int e = k * C + c;
                h0a[e] = float(r0[a + c]);
                h0b[e] = float(r0[b + c]);
                h1a[e] = float(r1[a + c]);
                h1b[e] = float(r1[b + c]);
                ex[e] = f;
            }
        }
        kernel::separable_run<T>(h0a, h0b, h1a, h1b, ex, yFraction, m * C, d);
        d += m * C;
        done += m;
    }
}

// Cubic weights of the taps at -1, 0, 1, 2 for a fraction t, from the constants of B and C
// (computed in f64, kept in R). Powers of t too small to matter are taken as zero, which also
// keeps denormal products out of the sums.
template <class R> struct CubicRule {
    R a0, a1, a2, a3, b0, b2, b3, c0, c1, c2, c3, d3, d2;

    static CubicRule make(double B, double C)
    {
        return CubicRule{R(B / 6),         R(B / 2 + C), R(2 * C + B / 2), R(-B / 6 - C), R(1 - B / 3),
                         R(C - 3 + 2 * B), R(2 - C - 1.5 * B), R(B / 6), R(B / 2 + C), R(2 * C - 3 + 2.5 * B),
                         R(2 - C - 1.5 * B), R(B / 6 + C), R(C)};
    }

    void weights(R t, R w[4]) const
    {
        const R a = t < 0 ? -t : t;
        if (a <= R(1e-16)) t = 0;
        const R t2 = a <= R(1e-8) ? R(0) : t * t;
        const R t3 = a <= R(4.6416e-6) ? R(0) : t2 * t;
        w[0] = a0 - t * a1 + t2 * a2 + t3 * a3;
        w[1] = b0 + t2 * b2 + t3 * b3;
        w[2] = c0 + t * c1 - t2 * c2 - t3 * c3;
        w[3] = t3 * d3 - t2 * d2;
    }
};

// The same rule for four fractions at once, lane for lane the same f32 operations in the same
// order, so each lane equals the scalar weights bit for bit. w[k] holds tap k's weight of the
// four pixels.
struct CubicRule4 {
    __m128 a0, a1, a2, a3, b0, b2, b3, c0, c1, c2, c3, d3, d2;

    explicit CubicRule4(const CubicRule<float>& r)
        : a0(_mm_set1_ps(r.a0)), a1(_mm_set1_ps(r.a1)), a2(_mm_set1_ps(r.a2)), a3(_mm_set1_ps(r.a3)),
          b0(_mm_set1_ps(r.b0)), b2(_mm_set1_ps(r.b2)), b3(_mm_set1_ps(r.b3)), c0(_mm_set1_ps(r.c0)),
          c1(_mm_set1_ps(r.c1)), c2(_mm_set1_ps(r.c2)), c3(_mm_set1_ps(r.c3)), d3(_mm_set1_ps(r.d3)),
          d2(_mm_set1_ps(r.d2))
    {
    }

    void weights(__m128 t, __m128 w[4]) const
    {
        const __m128 a = _mm_andnot_ps(_mm_set1_ps(-0.0f), t);
        t = _mm_andnot_ps(_mm_cmple_ps(a, _mm_set1_ps(float(1e-16))), t);
        const __m128 t2 = _mm_andnot_ps(_mm_cmple_ps(a, _mm_set1_ps(float(1e-8))), _mm_mul_ps(t, t));
        const __m128 t3 = _mm_andnot_ps(_mm_cmple_ps(a, _mm_set1_ps(float(4.6416e-6))), _mm_mul_ps(t2, t));
        w[0] = _mm_add_ps(_mm_add_ps(_mm_sub_ps(a0, _mm_mul_ps(t, a1)), _mm_mul_ps(t2, a2)), _mm_mul_ps(t3, a3));
        w[1] = _mm_add_ps(_mm_add_ps(b0, _mm_mul_ps(t2, b2)), _mm_mul_ps(t3, b3));
        w[2] = _mm_sub_ps(_mm_sub_ps(_mm_add_ps(c0, _mm_mul_ps(t, c1)), _mm_mul_ps(t2, c2)), _mm_mul_ps(t3, c3));
        w[3] = _mm_sub_ps(_mm_mul_ps(t3, d3), _mm_mul_ps(t2, d2));
    }
};

// The cubic sum of 4 x 4 taps: each row by the x weights, then the rows by the y weights,
// each sum taken in pairs, (w0 p0 + w1 p1) + (w2 p2 + w3 p3).
template <class R> inline R cubic_sum(const R p[16], const R wx[4], const R wy[4])
{
    R h[4];
    for (int r = 0; r < 4; ++r) {
        const R* q = p + 4 * r;
        h[r] = (wx[0] * q[0] + wx[1] * q[1]) + (wx[2] * q[2] + wx[3] * q[3]);
    }
    return (wy[0] * h[0] + wy[1] * h[1]) + (wy[2] * h[2] + wy[3] * h[3]);
}

// The same in f32 vectors: the four row products transposed so that one addition tree gives
// the four row sums at once, then the weighted rows summed pairwise.
inline float cubic_sum_rows(__m128 p0, __m128 p1, __m128 p2, __m128 p3, __m128 wx, __m128 wy)
{
    __m128 r0 = _mm_mul_ps(p0, wx), r1 = _mm_mul_ps(p1, wx), r2 = _mm_mul_ps(p2, wx), r3 = _mm_mul_ps(p3, wx);
    _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
    const __m128 h = _mm_add_ps(_mm_add_ps(r0, r1), _mm_add_ps(r2, r3));
    __m128 m = _mm_mul_ps(h, wy);
    m = _mm_hadd_ps(m, m);
    return _mm_cvtss_f32(_mm_hadd_ps(m, m));
}

inline float cubic_sum_sse(const float p[16], __m128 wx, __m128 wy)
{
    return cubic_sum_rows(_mm_loadu_ps(p), _mm_loadu_ps(p + 4), _mm_loadu_ps(p + 8), _mm_loadu_ps(p + 12), wx, wy);
}

// Tap indexes of one axis: i - 1 .. i + 2, each held inside the image unless that side's
// pixels beyond the edge are memory the caller vouches for. Inside the interval a tap past the
// edge only occurs at a fraction of exactly 0, where its weight is exactly 0: reading the last
// pixel instead gives the same sum and never touches memory outside the image.
inline void cubic_taps(std::int64_t i, std::int32_t len, bool memLow, bool memHigh, std::int64_t out[4])
{
    for (int k = 0; k < 4; ++k) {
        std::int64_t v = i + k - 1;
        if (!memLow && v < 0) v = 0;
        if (!memHigh && v > len - 1) v = len - 1;
        out[k] = v;
    }
}

template <class T, int C>
inline void cubic_pixel(const Source<T>& s, T* d, const std::int64_t xs[4], const std::int64_t ys[4],
                        const Real<T> wx[4], const Real<T> wy[4], const bool xin[4], const bool yin[4], const T* value)
{
    using R = Real<T>;
    const T* rows[4];
    for (int r = 0; r < 4; ++r) rows[r] = s.row(ys[r]);
    for (int c = 0; c < C; ++c) {
        alignas(16) R p[16];
        for (int r = 0; r < 4; ++r)
            for (int k = 0; k < 4; ++k)
                p[4 * r + k] = xin[k] && yin[r] ? R(rows[r][xs[k] * C + c]) : R(value[c]);
        R v;
        if constexpr (std::is_same_v<R, float>) v = cubic_sum_sse(p, _mm_loadu_ps(wx), _mm_loadu_ps(wy));
        else v = cubic_sum(p, wx, wy);
        d[c] = saturate<T>(v);
    }
}

// Four one-channel byte pixels whose 16 taps all lie in the image, one pixel a lane. Each row
// of taps is one 32-bit load per pixel; the four loads share a register, and a byte shuffle
// deals tap k of the four pixels into the lanes of one vector, so every product meets its
// pixel's weight with no transpose, and the sums keep the scalar order:
// h = (w0 p0 + w1 p1) + (w2 p2 + w3 p3) per row, then the same over the rows.
inline __m128 cubic4_8u(const Kel8u* const at[4], std::int64_t step, const __m128 wx[4], const __m128 wy[4])
{
    auto load32 = [](const Kel8u* p) {
        std::int32_t v;
        std::memcpy(&v, p, 4);
        return v;
    };
    const __m128i tap0 = _mm_setr_epi8(0, -1, -1, -1, 4, -1, -1, -1, 8, -1, -1, -1, 12, -1, -1, -1);
    const __m128i one = _mm_set1_epi32(1);
    __m128 h[4];
    for (int r = 0; r < 4; ++r) {
        __m128i v = _mm_cvtsi32_si128(load32(at[0] + r * step));
        v = _mm_insert_epi32(v, load32(at[1] + r * step), 1);
        v = _mm_insert_epi32(v, load32(at[2] + r * step), 2);
        v = _mm_insert_epi32(v, load32(at[3] + r * step), 3);
        const __m128i tap1 = _mm_add_epi8(tap0, one), tap2 = _mm_add_epi8(tap1, one), tap3 = _mm_add_epi8(tap2, one);
        const __m128 p0 = _mm_cvtepi32_ps(_mm_shuffle_epi8(v, tap0)), p1 = _mm_cvtepi32_ps(_mm_shuffle_epi8(v, tap1));
        const __m128 p2 = _mm_cvtepi32_ps(_mm_shuffle_epi8(v, tap2)), p3 = _mm_cvtepi32_ps(_mm_shuffle_epi8(v, tap3));
        h[r] = _mm_add_ps(_mm_add_ps(_mm_mul_ps(wx[0], p0), _mm_mul_ps(wx[1], p1)),
                          _mm_add_ps(_mm_mul_ps(wx[2], p2), _mm_mul_ps(wx[3], p3)));
    }
    return _mm_add_ps(_mm_add_ps(_mm_mul_ps(wy[0], h[0]), _mm_mul_ps(wy[1], h[1])),
                      _mm_add_ps(_mm_mul_ps(wy[2], h[2]), _mm_mul_ps(wy[3], h[3])));
}

// Cubic weights of a chunk of fractions: w[k][p] is tap k's weight of pixel p. The f32 rule
// runs four pixels a turn over n rounded up to four (the caller pads the fractions); the f64
// rule of the 64f form goes pixel by pixel.
template <class R>
inline void cubic_weights(const CubicRule<R>& rule, const R* t, int n, R (*w)[kernel::kChunk])
{
    if constexpr (std::is_same_v<R, float>) {
        const CubicRule4 rule4(rule);
        for (int k = 0; k < n; k += 4) {
            __m128 v[4];
            rule4.weights(_mm_load_ps(t + k), v);
            for (int q = 0; q < 4; ++q) _mm_store_ps(w[q] + k, v[q]);
        }
    } else {
        for (int k = 0; k < n; ++k) {
            R v[4];
            rule.weights(t[k], v);
            for (int q = 0; q < 4; ++q) w[q][k] = v[q];
        }
    }
}

// One Cubic pixel inside the interval at tap origin (i, j), with its weights.
template <class T, int C>
inline void cubic_interval_pixel(const Source<T>& s, T* d, std::int64_t i, std::int64_t j, const Real<T> wx[4],
                                 const Real<T> wy[4], std::uint32_t inMem)
{
    static const bool kIn[4] = {true, true, true, true};
    if constexpr (std::is_same_v<T, Kel8u> && C == 1) {
        // All 16 taps inside: each row of four is one load, the same sums follow.
        if (i >= 1 && i <= s.width - 3 && j >= 1 && j <= s.height - 3) {
            const Kel8u* p = s.row(j - 1) + i - 1;
            const float v = cubic_sum_rows(widen4(p), widen4(p + s.step), widen4(p + 2 * s.step), widen4(p + 3 * s.step),
                                           _mm_loadu_ps(wx), _mm_loadu_ps(wy));
            *d = saturate<T>(v);
            return;
        }
    }
    std::int64_t tx[4], ty[4];
    cubic_taps(i, s.width, inMem & kelBorderInMemLeft, inMem & kelBorderInMemRight, tx);
    cubic_taps(j, s.height, inMem & kelBorderInMemTop, inMem & kelBorderInMemBottom, ty);
    cubic_pixel<T, C>(s, d, tx, ty, wx, wy, kIn, kIn, nullptr);
}

// Cubic over a chunk of m pixels inside the interval: index floor(position) held to
// [0, last - 1] (floor by rounding, limited to the last pair, exactly as Linear's wider types
// index), fraction in R.
template <class T, int C>
void cubic_chunk(const Source<T>& s, T* d, int m, const double* xs, const double* ys, const CubicRule<Real<T>>& rule,
                 std::uint32_t inMem)
{
    using R = Real<T>;
    alignas(16) std::int32_t ix[kernel::kChunk], iy[kernel::kChunk];
    alignas(16) R fx[kernel::kChunk], fy[kernel::kChunk];
    alignas(16) R wx[4][kernel::kChunk], wy[4][kernel::kChunk];
    kernel::linear_indexes_f64<R>(xs, ys, m, s.width - 1, s.height - 1, ix, iy, fx, fy);
    for (int k = m; k % 4; ++k) fx[k] = fy[k] = 0;  // the vector weights read whole quads
    cubic_weights(rule, fx, m, wx);
    cubic_weights(rule, fy, m, wy);
    auto one = [&](int k) {
        const R px[4] = {wx[0][k], wx[1][k], wx[2][k], wx[3][k]};
        const R py[4] = {wy[0][k], wy[1][k], wy[2][k], wy[3][k]};
        cubic_interval_pixel<T, C>(s, d + std::int64_t(k) * C, ix[k], iy[k], px, py, inMem);
    };
    int k = 0;
    if constexpr (std::is_same_v<T, Kel8u> && C == 1) {
        const __m128i xHi = _mm_set1_epi32(s.width - 2), yHi = _mm_set1_epi32(s.height - 2);
        const __m128i zero = _mm_setzero_si128();
        for (; k + 4 <= m; k += 4) {
            const __m128i i = _mm_load_si128(reinterpret_cast<const __m128i*>(ix + k));
            const __m128i j = _mm_load_si128(reinterpret_cast<const __m128i*>(iy + k));
            const __m128i in = _mm_and_si128(_mm_and_si128(_mm_cmpgt_epi32(i, zero), _mm_cmplt_epi32(i, xHi)),
                                             _mm_and_si128(_mm_cmpgt_epi32(j, zero), _mm_cmplt_epi32(j, yHi)));
            if (_mm_movemask_ps(_mm_castsi128_ps(in)) != 15) {
                for (int q = 0; q < 4; ++q) one(k + q);
                continue;
            }
            const Kel8u* at[4];
            for (int q = 0; q < 4; ++q) at[q] = s.row(iy[k + q] - 1) + ix[k + q] - 1;
            const __m128 vx[4] = {_mm_load_ps(wx[0] + k), _mm_load_ps(wx[1] + k), _mm_load_ps(wx[2] + k),
                                  _mm_load_ps(wx[3] + k)};
            const __m128 vy[4] = {_mm_load_ps(wy[0] + k), _mm_load_ps(wy[1] + k), _mm_load_ps(wy[2] + k),
                                  _mm_load_ps(wy[3] + k)};
            kernel::store4(d + k, cubic4_8u(at, s.step, vx, vy));
        }
    }
    for (; k < m; ++k) one(k);
}

// Cubic beyond the interval: Repl truncates and clamps every tap, the Const band floors and
// gives the taps outside the border value.
template <class T, int C>
void cubic_border_pixel(const Source<T>& s, T* d, double X, double Y, bool band, const CubicRule<Real<T>>& rule,
                        const T* value)
{
    using R = Real<T>;
    std::int64_t tx[4], ty[4];
    bool xin[4], yin[4];
    alignas(16) R wx[4], wy[4];
    auto axis = [&](double v, std::int32_t len, std::int64_t* t, bool* in, R* w) {
        const double i = band ? std::floor(v) : std::trunc(v);
        rule.weights(band ? R(v - i) : R(std::max(v - i, 0.0)), w);
        for (int k = 0; k < 4; ++k) {
            const double at = i + k - 1;
            in[k] = !band || (at >= 0 && at <= len - 1);
            t[k] = std::int64_t(std::clamp(at, 0.0, double(len - 1)));
        }
    };
    axis(X, s.width, tx, xin, wx);
    axis(Y, s.height, ty, yin, wy);
    static const T zeros[4] = {};
    cubic_pixel<T, C>(s, d, tx, ty, wx, wy, xin, yin, value ? value : zeros);
}

// Border pixels, one at a time: beyond the intervals the taps need per-pixel limits.

// Nearest, the index clamped to the image (Repl and the Const band).
template <class T, int C> void nearest_clamped(const Source<T>& s, T* d, double X, double Y)
{
    const double x = std::clamp(round_half_up(X), 0.0, double(s.width - 1));
    const double y = std::clamp(round_half_up(Y), 0.0, double(s.height - 1));
    const T* p = s.row(std::int64_t(y)) + std::int64_t(x) * C;
    for (int c = 0; c < C; ++c) d[c] = p[c];
}

// One axis of a border tap: index, fraction, and whether the two taps lie inside.
template <class R> struct Tap {
    std::int64_t i0, i1;
    bool in0, in1;
    R f;
};

// Repl: i = trunc(position), taps i and i + 1 clamped, fraction max(position - i, 0). The 8u
// form takes the position in f32 like its interval kernel.
template <class T> inline Tap<Real<T>> repl_tap(double v, std::int32_t len)
{
    using R = Real<T>;
    Tap<R> t;
    R f;
    double i;
    if constexpr (std::is_same_v<T, Kel8u>) {
        const float vf = float(v);
        i = double(std::trunc(vf));
        f = std::max(vf - float(i), 0.0f);
    } else {
        i = std::trunc(v);
        f = R(std::max(v - i, 0.0));
    }
    const double lo = std::clamp(i, 0.0, double(len - 1)), hi = std::clamp(i + 1, 0.0, double(len - 1));
    t.i0 = std::int64_t(lo);
    t.i1 = std::int64_t(hi);
    t.in0 = t.in1 = true;
    t.f = f;
    return t;
}

// Const band: i = floor(position), the fraction position - i; taps outside take the value.
template <class T> inline Tap<Real<T>> const_tap(double v, std::int32_t len)
{
    using R = Real<T>;
    Tap<R> t;
    double i;
    if constexpr (std::is_same_v<T, Kel8u>) {
        const float vf = float(v);
        i = double(std::floor(vf));
        t.f = vf - float(i);
    } else {
        i = std::floor(v);
        t.f = R(v - i);
    }
    t.in0 = i >= 0 && i <= len - 1;
    t.in1 = i + 1 >= 0 && i + 1 <= len - 1;
    t.i0 = t.in0 ? std::int64_t(i) : 0;
    t.i1 = t.in1 ? std::int64_t(i + 1) : 0;
    return t;
}

template <class T, int C>
void linear_border_pixel(const Source<T>& s, T* d, const Tap<Real<T>>& x, const Tap<Real<T>>& y, const T* value)
{
    using R = Real<T>;
    const T* top = s.row(y.i0);
    const T* bottom = s.row(y.i1);
    for (int c = 0; c < C; ++c) {
        const R p00 = x.in0 && y.in0 ? R(top[x.i0 * C + c]) : R(value[c]);
        const R p01 = x.in1 && y.in0 ? R(top[x.i1 * C + c]) : R(value[c]);
        const R p10 = x.in0 && y.in1 ? R(bottom[x.i0 * C + c]) : R(value[c]);
        const R p11 = x.in1 && y.in1 ? R(bottom[x.i1 * C + c]) : R(value[c]);
        d[c] = saturate<T>(interpolate<T>(p00, p01, p10, p11, x.f, y.f));
    }
}

}  // namespace warp
}  // namespace keli
