// Row kernels of the minimum and maximum filters and of the 3x3 64f erosion and dilation.
//
// Every extremum is a direct scan with one fold rule, the operand order of minps and maxps:
//
//     min: acc = (acc < x) ? acc : x        max: acc = (acc > x) ? acc : x
//
// with the running value first, so that vector and scalar code give the same bits even for
// floats that do not compare: a NaN tap after the first replaces the running value (x wins when
// the test fails), a NaN running value is replaced by the next tap, and of two equal zeros of
// opposite sign the later one stays. The fold runs over the mask's taps left to right, then over
// those row extrema top to bottom; every route of the edge driver keeps that order, so the strips,
// the interior and any region cut into pieces give the same pixels.
//
// The scans are direct on purpose: for the short masks this family serves, a running extremum
// costs more in bookkeeping than it saves, and the cost of a direct scan is known in advance.
#pragma once

#include <smmintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "filter/edge_driver.hpp"
#include "frame/layout.hpp"
#include "keli_types.h"
#include "simd/sse.hpp"

namespace keli::rows::min_max {

using simd::reg_t;

// The fold rule of one element type, scalar and four-to-sixteen lanes at a time.
template <class T, bool Max> struct Pick {
    static T one(T acc, T x)
    {
        if constexpr (Max) return acc > x ? acc : x;
        else return acc < x ? acc : x;
    }
    static reg_t<T> many(reg_t<T> acc, reg_t<T> x)
    {
        if constexpr (std::is_same_v<T, Kel8u>) return Max ? _mm_max_epu8(acc, x) : _mm_min_epu8(acc, x);
        else if constexpr (std::is_same_v<T, Kel16u>) return Max ? _mm_max_epu16(acc, x) : _mm_min_epu16(acc, x);
        else if constexpr (std::is_same_v<T, Kel16s>) return Max ? _mm_max_epi16(acc, x) : _mm_min_epi16(acc, x);
        else if constexpr (std::is_same_v<T, Kel32f>) return Max ? _mm_max_ps(acc, x) : _mm_min_ps(acc, x);
        else return Max ? _mm_max_pd(acc, x) : _mm_min_pd(acc, x);
    }
};

// A store that leaves the fourth channel of every pixel as it stood (AC4), or a plain one.
template <class T, bool KeepAlpha> struct Put {
    static __m128i alpha_bytes()
    {
        if (!KeepAlpha) return _mm_setzero_si128();
        alignas(16) std::uint8_t m[16];
        for (int b = 0; b < 16; ++b) m[b] = (b / int(sizeof(T))) % 4 == 3 ? 0xFF : 0;
        return _mm_load_si128(reinterpret_cast<const __m128i*>(m));
    }
    static void many(T* p, reg_t<T> v, __m128i alpha)
    {
        if constexpr (KeepAlpha) {
            if constexpr (std::is_same_v<T, Kel32f>)
                v = _mm_castsi128_ps(_mm_blendv_epi8(_mm_castps_si128(v), _mm_castps_si128(simd::loadu(p)), alpha));
            else
                v = _mm_blendv_epi8(v, simd::loadu(p), alpha);
        }
        simd::storeu(p, v);
    }
    static void one(T* p, std::int64_t k, T v)
    {
        if (!KeepAlpha || k % 4 != 3) p[k] = v;
    }
};

// out[k] = fold of src[k + i * C], i = 0 .. kw - 1, for k < count; with Into, out[k] is folded
// with that value instead (the running value first). A count of at least one register ends with
// a register that overlaps the previous one: it recomputes the same values, so nothing is lost.
template <class T, bool Max, int C, bool KeepAlpha, bool Into, int Taps>
void row_pass_taps(const T* src, int taps, T* out, std::int64_t count)
{
    const int kw = Taps ? Taps : taps;
    using P = Pick<T, Max>;
    constexpr std::int64_t V = simd::lanes<T>;
    const __m128i alpha = Put<T, KeepAlpha>::alpha_bytes();
    if (count < V) {
        for (std::int64_t k = 0; k < count; ++k) {
            T acc = src[k];
            for (int i = 1; i < kw; ++i) acc = P::one(acc, src[k + std::int64_t(i) * C]);
            if (Into) acc = P::one(out[k], acc);
            Put<T, KeepAlpha>::one(out, k, acc);
        }
        return;
    }
    for (std::int64_t k = 0;; k += V) {
        if (k > count - V) k = count - V;
        reg_t<T> acc = simd::loadu(src + k);
        for (int i = 1; i < kw; ++i) acc = P::many(acc, simd::loadu(src + k + std::int64_t(i) * C));
        if (Into) acc = P::many(simd::loadu(out + k), acc);
        Put<T, KeepAlpha>::many(out + k, acc, alpha);
        if (k == count - V) break;
    }
}

// out[k] = fold of rows[j][k], j = 0 .. kh - 1, for k < count; two registers at a time, so that
// two chains of folds overlap.
template <class T, bool Max, bool KeepAlpha, int Taps>
void column_pass_taps(const T* const* rows, int taps, T* out, std::int64_t count)
{
    const int kh = Taps ? Taps : taps;
    using P = Pick<T, Max>;
    constexpr std::int64_t V = simd::lanes<T>;
    const __m128i alpha = Put<T, KeepAlpha>::alpha_bytes();
    if (count < V) {
        for (std::int64_t k = 0; k < count; ++k) {
            T acc = rows[0][k];
            for (int j = 1; j < kh; ++j) acc = P::one(acc, rows[j][k]);
            Put<T, KeepAlpha>::one(out, k, acc);
        }
        return;
    }
    std::int64_t k = 0;
    for (; k + 2 * V <= count; k += 2 * V) {
        reg_t<T> a = simd::loadu(rows[0] + k), b = simd::loadu(rows[0] + k + V);
        for (int j = 1; j < kh; ++j) {
            a = P::many(a, simd::loadu(rows[j] + k));
            b = P::many(b, simd::loadu(rows[j] + k + V));
        }
        Put<T, KeepAlpha>::many(out + k, a, alpha);
        Put<T, KeepAlpha>::many(out + k + V, b, alpha);
    }
    while (k < count) {
        if (k > count - V) k = count - V;
        reg_t<T> a = simd::loadu(rows[0] + k);
        for (int j = 1; j < kh; ++j) a = P::many(a, simd::loadu(rows[j] + k));
        Put<T, KeepAlpha>::many(out + k, a, alpha);
        k += V;
    }
}

// The passes with the tap count known to the compiler for the short masks this family serves,
// so that their loops unroll into straight lines of loads and folds.
template <class T, bool Max, int C, bool KeepAlpha = false, bool Into = false>
void row_pass(const T* src, int kw, T* out, std::int64_t count)
{
    switch (kw) {
    case 2: return row_pass_taps<T, Max, C, KeepAlpha, Into, 2>(src, kw, out, count);
    case 3: return row_pass_taps<T, Max, C, KeepAlpha, Into, 3>(src, kw, out, count);
    case 5: return row_pass_taps<T, Max, C, KeepAlpha, Into, 5>(src, kw, out, count);
    default: return row_pass_taps<T, Max, C, KeepAlpha, Into, 0>(src, kw, out, count);
    }
}

template <class T, bool Max, bool KeepAlpha>
void column_pass(const T* const* rows, int kh, T* out, std::int64_t count)
{
    switch (kh) {
    case 2: return column_pass_taps<T, Max, KeepAlpha, 2>(rows, kh, out, count);
    case 3: return column_pass_taps<T, Max, KeepAlpha, 3>(rows, kh, out, count);
    case 5: return column_pass_taps<T, Max, KeepAlpha, 5>(rows, kh, out, count);
    default: return column_pass_taps<T, Max, KeepAlpha, 0>(rows, kh, out, count);
    }
}

// The edge-driver kernel of one member. The row extrema of the window's rows live in a ring of
// kh rows of `stride` elements; when a segment is the one below the previous (same width, the
// window's rows shifted by one), only the entering row is scanned. A mask taller than the
// driver's stack table folds each row's extrema straight into one accumulating row instead, so
// that the ring's room beyond that row can hold the driver's row table.
template <class T, Layout L, bool Max> class Kernel {
public:
    static constexpr int C = int(channels<L>);
    static constexpr bool kAlpha = has_alpha<L>;

    Kernel(int kw, int kh, T* ring, std::int64_t stride) : kw_(kw), kh_(kh), ring_(ring), stride_(stride) {}

    // Rows the ring holds: all of the window's, or the accumulating one.
    static bool folds(int kh) { return kh > filter::kStackRows; }

    void operator()(const T* const* rows, T* out, std::int64_t n) const
    {
        const std::int64_t count = n * C;
        if (kh_ == 1) return row_pass<T, Max, C, kAlpha>(rows[0], kw_, out, count);
        if (kw_ == 1) return column_pass<T, Max, kAlpha>(rows, kh_, out, count);
        if (folds(kh_)) {
            row_pass<T, Max, C>(rows[0], kw_, ring_, count);
            for (int j = 1; j < kh_; ++j) row_pass<T, Max, C, false, true>(rows[j], kw_, ring_, count);
            const T* acc = ring_;
            return column_pass<T, Max, kAlpha>(&acc, 1, out, count);
        }
        bool below = n == lastN_;
        for (int j = 0; below && j + 1 < kh_; ++j) below = rows[j] == window_[j + 1];
        if (below) {
            row_pass<T, Max, C>(rows[kh_ - 1], kw_, slot(0), count);  // the leaving row's slot
            base_ = (base_ + 1) % kh_;
        } else {
            base_ = 0;
            for (int j = 0; j < kh_; ++j) row_pass<T, Max, C>(rows[j], kw_, slot(j), count);
        }
        lastN_ = n;
        for (int j = 0; j < kh_; ++j) window_[j] = rows[j], order_[j] = slot(j);
        column_pass<T, Max, kAlpha>(order_, kh_, out, count);
    }

private:
    T* slot(int j) const { return ring_ + ((base_ + j) % kh_) * stride_; }

    int kw_, kh_;
    T* ring_;
    std::int64_t stride_;
    mutable std::int64_t lastN_ = -1;
    mutable int base_ = 0;                                // ring slot of the window's top row
    mutable const T* window_[filter::kStackRows];  // the rows of the last segment (read once lastN_ is set)
    mutable const T* order_[filter::kStackRows];   // their extrema, top to bottom
};

// One output row of the 3x3 64f erosion or dilation: rows[j] points at the pixel left of the
// first output in window row j; the taps fold left to right, then the rows top to bottom.
template <bool Max> void window3x3_64f(const Kel64f* const rows[3], Kel64f* out, std::int64_t n)
{
    using P = Pick<Kel64f, Max>;
    std::int64_t x = 0;
    const auto three = [&](const Kel64f* r) { return P::many(P::many(simd::loadu(r + x), simd::loadu(r + x + 1)), simd::loadu(r + x + 2)); };
    for (; x + 2 <= n; x += 2) simd::storeu(out + x, P::many(P::many(three(rows[0]), three(rows[1])), three(rows[2])));
    for (; x < n; ++x) {
        Kel64f acc = 0;
        for (int j = 0; j < 3; ++j) {
            const Kel64f h = P::one(P::one(rows[j][x], rows[j][x + 1]), rows[j][x + 2]);
            acc = j == 0 ? h : P::one(acc, h);
        }
        out[x] = acc;
    }
}

}  // namespace keli::rows::min_max
