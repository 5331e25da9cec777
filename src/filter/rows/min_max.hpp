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

// Four registers a step: each register's taps fold in one chain of dependent min/max, so four
// chains side by side keep the unit busy while each waits for its previous result.
constexpr std::int64_t kChains = 4;

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
    std::int64_t k = 0;
    for (; k + kChains * V <= count; k += kChains * V) {
        reg_t<T> acc[kChains];
        for (int r = 0; r < kChains; ++r) acc[r] = simd::loadu(src + k + r * V);
        for (int i = 1; i < kw; ++i)
            for (int r = 0; r < kChains; ++r) acc[r] = P::many(acc[r], simd::loadu(src + k + r * V + std::int64_t(i) * C));
        for (int r = 0; r < kChains; ++r) {
            if (Into) acc[r] = P::many(simd::loadu(out + k + r * V), acc[r]);
            Put<T, KeepAlpha>::many(out + k + r * V, acc[r], alpha);
        }
    }
    while (k < count) {
        if (k > count - V) k = count - V;
        reg_t<T> acc = simd::loadu(src + k);
        for (int i = 1; i < kw; ++i) acc = P::many(acc, simd::loadu(src + k + std::int64_t(i) * C));
        if (Into) acc = P::many(simd::loadu(out + k), acc);
        Put<T, KeepAlpha>::many(out + k, acc, alpha);
        k += V;
    }
}

// out[k] = fold of rows[j][k], j = 0 .. kh - 1, for k < count, in four chains like the row pass.
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
    for (; k + kChains * V <= count; k += kChains * V) {
        reg_t<T> acc[kChains];
        for (int r = 0; r < kChains; ++r) acc[r] = simd::loadu(rows[0] + k + r * V);
        for (int j = 1; j < kh; ++j)
            for (int r = 0; r < kChains; ++r) acc[r] = P::many(acc[r], simd::loadu(rows[j] + k + r * V));
        for (int r = 0; r < kChains; ++r) Put<T, KeepAlpha>::many(out + k + r * V, acc[r], alpha);
    }
    while (k < count) {
        if (k > count - V) k = count - V;
        reg_t<T> a = simd::loadu(rows[0] + k);
        for (int j = 1; j < kh; ++j) a = P::many(a, simd::loadu(rows[j] + k));
        Put<T, KeepAlpha>::many(out + k, a, alpha);
        k += V;
    }
}

// Two output rows from kh + 1 ring rows: m = fold of rows[1 .. kh), out0 = fold(rows[0], m),
// and m goes to out1 for close_pass() to fold with the row below. Grouping the shared rows
// first keeps the sequence order, so it gives the left fold's bits whenever no shared row holds
// a NaN: without NaNs the fold picks the last of the extreme elements (ties go to the later),
// however the sequence is grouped. A NaN running value is replaced by the next element, so for
// floats the caller pairs rows only when the shared ones are free of NaNs.
template <class T, bool Max, bool KeepAlpha>
void pair_pass(const T* const* rows, int kh, T* out0, T* out1, std::int64_t count)
{
    using P = Pick<T, Max>;
    constexpr std::int64_t V = simd::lanes<T>;
    const __m128i alpha = Put<T, KeepAlpha>::alpha_bytes();
    if (count < V) {
        for (std::int64_t k = 0; k < count; ++k) {
            T m = rows[1][k];
            for (int j = 2; j < kh; ++j) m = P::one(m, rows[j][k]);
            Put<T, KeepAlpha>::one(out0, k, P::one(rows[0][k], m));
            Put<T, KeepAlpha>::one(out1, k, m);
        }
        return;
    }
    std::int64_t k = 0;
    for (; k + kChains * V <= count; k += kChains * V) {
        reg_t<T> m[kChains];
        for (int r = 0; r < kChains; ++r) m[r] = simd::loadu(rows[1] + k + r * V);
        for (int j = 2; j < kh; ++j)
            for (int r = 0; r < kChains; ++r) m[r] = P::many(m[r], simd::loadu(rows[j] + k + r * V));
        for (int r = 0; r < kChains; ++r) {
            Put<T, KeepAlpha>::many(out0 + k + r * V, P::many(simd::loadu(rows[0] + k + r * V), m[r]), alpha);
            Put<T, KeepAlpha>::many(out1 + k + r * V, m[r], alpha);
        }
    }
    while (k < count) {
        if (k > count - V) k = count - V;
        reg_t<T> m = simd::loadu(rows[1] + k);
        for (int j = 2; j < kh; ++j) m = P::many(m, simd::loadu(rows[j] + k));
        Put<T, KeepAlpha>::many(out0 + k, P::many(simd::loadu(rows[0] + k), m), alpha);
        Put<T, KeepAlpha>::many(out1 + k, m, alpha);
        k += V;
    }
}

// out[k] = fold(out[k], row[k]): the last step of the second row of a pair. A last register that
// overlaps the one before folds the row into values that already hold it, which changes nothing
// for NaN-free running values.
template <class T, bool Max, bool KeepAlpha> void close_pass(T* out, const T* row, std::int64_t count)
{
    const T* rows[2] = {out, row};
    column_pass_taps<T, Max, KeepAlpha, 2>(rows, 2, out, count);
}

// Whether any of count elements is a NaN (never, for integer elements).
template <class T> bool has_nan(const T* p, std::int64_t count)
{
    if constexpr (!std::is_floating_point_v<T>) {
        return false;
    } else {
        static_assert(std::is_same_v<T, Kel32f>);
        std::int64_t k = 0;
        __m128 any = _mm_setzero_ps();
        for (; k + 4 <= count; k += 4) {
            const __m128 x = _mm_loadu_ps(p + k);
            any = _mm_or_ps(any, _mm_cmpunord_ps(x, x));
        }
        bool nan = _mm_movemask_ps(any) != 0;
        for (; k < count; ++k) nan = nan || p[k] != p[k];
        return nan;
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

// The edge-driver kernel of the windows the fold route (filter/min_max_rows.hpp) leaves out:
// one pixel wide (a column pass straight over the source rows), and taller than the driver's
// stack table, where each row's extrema fold straight into one accumulating row so that the
// ring's room beyond that row can hold the driver's row table.
template <class T, Layout L, bool Max> class Kernel {
public:
    static constexpr int C = int(channels<L>);
    static constexpr bool kAlpha = has_alpha<L>;

    Kernel(int kw, int kh, T* acc) : kw_(kw), kh_(kh), acc_(acc) {}

    static bool folds(int kh) { return kh > filter::kStackRows; }

    void operator()(const T* const* rows, T* out, std::int64_t n) const
    {
        const std::int64_t count = n * C;
        if (kw_ == 1) return column_pass<T, Max, kAlpha>(rows, kh_, out, count);
        row_pass<T, Max, C>(rows[0], kw_, acc_, count);
        for (int j = 1; j < kh_; ++j) row_pass<T, Max, C, false, true>(rows[j], kw_, acc_, count);
        const T* acc = acc_;
        column_pass<T, Max, kAlpha>(&acc, 1, out, count);
    }

private:
    int kw_, kh_;
    T* acc_;
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
