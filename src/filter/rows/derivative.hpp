// Row kernels of the derivative masks, as edge-driver kernels: each call gets the window's rows
// for one output segment (rows[j] at the source pixel (x - ax, y - ay + j) of the segment's first
// output) and writes n outputs.
//
// Every mask but Roberts is the outer product of a column weight vector (down the window) and a
// row weight vector (along it). A window's value is formed in one order everywhere: each
// column's weighted sum top to bottom, then those column sums weighted left to right, a zero
// weight being no tap at all. Integer sums are exact, so the order only matters for 32f, where
// keeping it fixed makes the vector lanes, the scalar tails and the edge strips agree bit for bit.
//
// Lanes: 8u sources sum in 16-bit lanes (a 5x5 sum reaches at most 96 * 255 = 24480, so nothing
// wraps), 16s sources in 32-bit lanes saturated to 16 bits on store, 32f in f32.
//
// The vector loop keeps the column sums of the next block in a register and carries them over,
// so each source pixel is loaded once per output row; the last block of a segment overlaps the
// one before it; a segment shorter than a block (an edge strip) takes the scalar path, which
// computes every output in the same order as a vector lane.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>
#include <utility>

#include "keli_types.h"
#include "simd/sse.hpp"

namespace keli::rows::derivative {

// The filter codes, in the order the masks are numbered.
enum Code {
    kSobelVert = 0,
    kSobelHoriz = 1,
    kScharrVert = 2,
    kScharrHoriz = 3,
    kPrewittVert = 4,
    kPrewittHoriz = 5,
    kRobertsDown = 6,
    kRobertsUp = 7,
    kSobelVertSecond = 8,
    kSobelHorizSecond = 9,
    kSobelNegVert = 10,
};

// The weights of a separable mask: col[j] multiplies window row j, row[i] window column i.
// The vertical-edge masks take left minus right (Sobel, Prewitt) or right minus left (Scharr,
// Sobel negative); the horizontal-edge masks take bottom minus top.
struct Weights {
    int k;  // 3 or 5
    int col[5], row[5];
};

constexpr Weights weights(int code, int k)
{
    if (k == 5) switch (code) {
        case kSobelVert: return {5, {1, 4, 6, 4, 1}, {1, 2, 0, -2, -1}};
        case kSobelHoriz: return {5, {-1, -2, 0, 2, 1}, {1, 4, 6, 4, 1}};
        case kSobelVertSecond: return {5, {1, 4, 6, 4, 1}, {1, 0, -2, 0, 1}};
        case kSobelHorizSecond: return {5, {1, 0, -2, 0, 1}, {1, 4, 6, 4, 1}};
        default: return {5, {1, 4, 6, 4, 1}, {-1, -2, 0, 2, 1}};  // Sobel negative vertical
        }
    switch (code) {
    case kSobelVert: return {3, {1, 2, 1}, {1, 0, -1}};
    case kSobelHoriz: return {3, {-1, 0, 1}, {1, 2, 1}};
    case kScharrVert: return {3, {3, 10, 3}, {-1, 0, 1}};
    case kScharrHoriz: return {3, {-1, 0, 1}, {3, 10, 3}};
    case kPrewittVert: return {3, {1, 1, 1}, {1, 0, -1}};
    case kPrewittHoriz: return {3, {-1, 0, 1}, {1, 1, 1}};
    case kSobelVertSecond: return {3, {1, 2, 1}, {1, -2, 1}};
    case kSobelHorizSecond: return {3, {1, -2, 1}, {1, 2, 1}};
    default: return {3, {1, 2, 1}, {-1, 0, 1}};  // Sobel negative vertical
    }
}

// ---- lanes ------------------------------------------------------------------------------------

// What each source type sums in and how a block of B outputs is loaded and stored, by source
// and destination type: 8u to 16s, 16s to 16s (saturated), 16u or 16s to 32f (exact integers,
// each sum below 2^24 in magnitude), 32f to 32f.
template <class T, class D> struct Lanes;

template <> struct Lanes<Kel8u, Kel16s> {
    using D = Kel16s;
    using Acc = std::int32_t;
    static constexpr bool kExact = true;  // integer lanes: every order gives the same sum
    using V = __m128i;
    static constexpr int B = 8;
    static V load(const Kel8u* p) { return _mm_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))); }
    static V splat(int w) { return _mm_set1_epi16(static_cast<short>(w)); }
    static V mul(V a, V w) { return _mm_mullo_epi16(a, w); }
    static V add(V a, V b) { return _mm_add_epi16(a, b); }
    static V sub(V a, V b) { return _mm_sub_epi16(a, b); }
    static V neg(V a) { return _mm_sub_epi16(_mm_setzero_si128(), a); }
    template <int I> static V shifted(V lo, V hi)
    {
        if constexpr (I == 0) return lo;
        else return _mm_alignr_epi8(hi, lo, 2 * I);
    }
    static void store(D* d, V v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(d), v); }
    static D finish(Acc s) { return static_cast<D>(s); }
};

// 16-bit sources in 32-bit lanes.
inline __m128i widen4(const Kel16s* p) { return _mm_cvtepi16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))); }
inline __m128i widen4(const Kel16u* p) { return _mm_cvtepu16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))); }

template <class T> struct Lanes32 {
    using Acc = std::int32_t;
    static constexpr bool kExact = true;
    using V = __m128i;
    static constexpr int B = 4;
    static V load(const T* p) { return widen4(p); }
    static V splat(int w) { return _mm_set1_epi32(w); }
    static V mul(V a, V w) { return _mm_mullo_epi32(a, w); }
    static V add(V a, V b) { return _mm_add_epi32(a, b); }
    static V sub(V a, V b) { return _mm_sub_epi32(a, b); }
    static V neg(V a) { return _mm_sub_epi32(_mm_setzero_si128(), a); }
    template <int I> static V shifted(V lo, V hi)
    {
        if constexpr (I == 0) return lo;
        else return _mm_alignr_epi8(hi, lo, 4 * I);
    }
};

template <> struct Lanes<Kel16s, Kel16s> : Lanes32<Kel16s> {
    using D = Kel16s;
    static void store(D* d, V v) { _mm_storel_epi64(reinterpret_cast<__m128i*>(d), _mm_packs_epi32(v, v)); }
    static D finish(Acc s) { return static_cast<D>(std::clamp<Acc>(s, -32768, 32767)); }
};

template <class T> struct Lanes32To32f : Lanes32<T> {
    using D = Kel32f;
    static void store(D* d, __m128i v) { _mm_storeu_ps(d, _mm_cvtepi32_ps(v)); }
    static D finish(std::int32_t s) { return static_cast<D>(s); }
};
template <> struct Lanes<Kel16s, Kel32f> : Lanes32To32f<Kel16s> {};
template <> struct Lanes<Kel16u, Kel32f> : Lanes32To32f<Kel16u> {};

template <> struct Lanes<Kel32f, Kel32f> {
    using D = Kel32f;
    using Acc = float;
    static constexpr bool kExact = false;
    using V = __m128;
    static constexpr int B = 4;
    static V load(const Kel32f* p) { return _mm_loadu_ps(p); }
    static V splat(int w) { return _mm_set1_ps(static_cast<float>(w)); }
    static V mul(V a, V w) { return _mm_mul_ps(a, w); }
    static V add(V a, V b) { return _mm_add_ps(a, b); }
    static V sub(V a, V b) { return _mm_sub_ps(a, b); }
    static V neg(V a) { return _mm_xor_ps(a, _mm_set1_ps(-0.0f)); }
    template <int I> static V shifted(V lo, V hi)
    {
        if constexpr (I == 0) return lo;
        else return _mm_castsi128_ps(_mm_alignr_epi8(_mm_castps_si128(hi), _mm_castps_si128(lo), 4 * I));
    }
    static void store(D* d, V v) { _mm_storeu_ps(d, v); }
    static D finish(Acc s) { return s; }
};

// Calls f(std::integral_constant<int, I>) for I = 0 .. N - 1, unrolled.
template <class F, int... I> inline void unrolled(F f, std::integer_sequence<int, I...>)
{
    (f(std::integral_constant<int, I>{}), ...);
}
template <int N, class F> inline void unrolled(F f) { unrolled(f, std::make_integer_sequence<int, N>{}); }

constexpr int first_tap(const int* w, int k)
{
    for (int i = 0; i < k; ++i)
        if (w[i] != 0) return i;
    return k;
}

// A weighted term, the first standing alone, the next ones added. A weight of +-1 adds or
// subtracts the value itself, +-2 the value doubled by an addition: the same results as the
// products, bit for bit, in every type (doubling is exact in f32 as in integers). O is the
// vector lanes or the scalar arithmetic below.
template <class O, int W, class A> inline A start(A v)
{
    if constexpr (W == 1) return v;
    else if constexpr (W == -1) return O::neg(v);
    else if constexpr (W == 2) return O::add(v, v);
    else if constexpr (W == -2) return O::neg(O::add(v, v));
    else return O::mul(v, O::splat(W));
}
template <class O, int W, class A> inline A plus(A acc, A v)
{
    if constexpr (W == 1) return O::add(acc, v);
    else if constexpr (W == -1) return O::sub(acc, v);
    else if constexpr (W == 2) return O::add(acc, O::add(v, v));
    else if constexpr (W == -2) return O::sub(acc, O::add(v, v));
    else return O::add(acc, O::mul(v, O::splat(W)));
}

template <class Acc> struct ScalarOps {
    static constexpr bool kExact = std::is_integral_v<Acc>;
    static Acc add(Acc a, Acc b) { return Acc(a + b); }
    static Acc sub(Acc a, Acc b) { return Acc(a - b); }
    static Acc neg(Acc a) { return Acc(-a); }
    static Acc mul(Acc a, Acc w) { return Acc(a * w); }
    static Acc splat(int w) { return static_cast<Acc>(w); }
};

constexpr int next_tap(const int* w, int k, int after)
{
    for (int i = after + 1; i < k; ++i)
        if (w[i] != 0) return i;
    return k;
}

// sum over the taps t (zero weights skipped) of W[t] * value(t), in tap order. In integer
// lanes, where every order gives the same sum, a difference -a + b opening the sum is taken
// as b - a, one operation instead of two; f32 keeps the negation (a NaN's sign would differ).
template <class O, const int* W, int K, class A, class Value> inline A weighted_sum(Value value)
{
    constexpr int first = first_tap(W, K), second = next_tap(W, K, first);
    constexpr bool difference = O::kExact && second < K && W[first] == -1 && W[second] == 1;
    A s{};
    unrolled<K>([&](auto t) {
        constexpr int I = decltype(t)::value;
        if constexpr (W[I] != 0) {
            if constexpr (difference && I == first) return;
            else if constexpr (difference && I == second) s = O::sub(value(t), value(std::integral_constant<int, first>{}));
            else if constexpr (I == first) s = start<O, W[I]>(value(t));
            else s = plus<O, W[I]>(s, value(t));
        }
    });
    return s;
}

// ---- the separable kernel ---------------------------------------------------------------------

// The weights of mask `Code` of size K, as constants the kernels unroll over.
template <int Code, int K> struct MaskOf {
    static constexpr Weights w = weights(Code, K);
    static constexpr int col[5] = {w.col[0], w.col[1], w.col[2], w.col[3], w.col[4]};
    static constexpr int row[5] = {w.row[0], w.row[1], w.row[2], w.row[3], w.row[4]};
};

template <class T, int K, class D, int Code> class SeparableKernel {
public:
    using X = Lanes<T, D>;
    using V = typename X::V;
    using Acc = typename X::Acc;
    using M = MaskOf<Code, K>;
    static constexpr int B = X::B;

    // `vector` false keeps every output on the scalar path (rows closer than a vector apart).
    explicit SeparableKernel(bool vector) : vector_(vector) {}

    void operator()(const T* const* rows, D* out, std::int64_t n) const { run(rows, out, n, n + K - 1); }

    // n outputs from rows whose first `readable` columns (at least n + K - 1) may be read.
    void run(const T* const* rows, D* out, std::int64_t n, std::int64_t readable) const
    {
        std::int64_t x = 0;
        if (vector_) {
            // Blocks at x read columns up to x + 2B - 1.
            if (n >= B && readable >= 2 * B) {
                V lo = column_sums(rows, 0);
                for (; x + B <= n && x + 2 * B <= readable; x += B) {
                    const V hi = column_sums(rows, x + B);
                    X::store(out + x, row_sum(lo, hi));
                    lo = hi;
                }
            }
            if (n >= B) {
                // Blocks near the end take the K - 1 columns behind them from a block loaded to
                // end there, moved down into place; the last one overlaps the block before.
                for (; x + B <= n; x += B) X::store(out + x, ending_block(rows, x));
                if (x < n) X::store(out + n - B, ending_block(rows, n - B));
                return;
            }
        }
        // Rows closer than a vector, and segments shorter than a block (the edge strips).
        for (; x < n; ++x) out[x] = scalar(rows, x);
    }

    // One output from the window starting at column x, in the order the vector lanes use.
    static D scalar(const T* const* rows, std::int64_t x)
    {
        using S = ScalarOps<Acc>;
        return X::finish(weighted_sum<S, M::row, K, Acc>([&](auto i) {
            return weighted_sum<S, M::col, K, Acc>([&](auto j) { return static_cast<Acc>(rows[j][x + i]); });
        }));
    }

private:
    // Column sums of columns x .. x + B - 1.
    static V column_sums(const T* const* rows, std::int64_t x)
    {
        return weighted_sum<X, M::col, K, V>([&](auto j) { return X::load(rows[decltype(j)::value] + x); });
    }

    // The block at x reading no column past x + B + K - 1.
    static V ending_block(const T* const* rows, std::int64_t x)
    {
        const V hi = X::template shifted<B - K + 1>(column_sums(rows, x + K - 1), X::splat(0));
        return row_sum(column_sums(rows, x), hi);
    }

    // Outputs from column sums lo (columns x ..) and hi (columns x + B ..), left to right.
    static V row_sum(V lo, V hi)
    {
        return weighted_sum<X, M::row, K, V>([&](auto i) { return X::template shifted<decltype(i)::value>(lo, hi); });
    }

    bool vector_;
};

// ---- Roberts ----------------------------------------------------------------------------------

// dst(x, y) = src(x, y) - src(x - 1, y - 1) (down) or src(x, y) - src(x + 1, y - 1) (up): one
// subtraction, exact for integers (saturated for 16s), correctly rounded for 32f.
template <class T, class D = std::conditional_t<std::is_same_v<T, Kel32f>, Kel32f, Kel16s>> class RobertsKernel {
public:
    using X = Lanes<T, D>;
    static constexpr int B = X::B;

    RobertsKernel(bool up, bool vector) : corner_(up ? 2 : 0), vector_(vector) {}

    void operator()(const T* const* rows, D* out, std::int64_t n) const
    {
        const T* above = rows[0] + corner_;
        const T* centre = rows[1] + 1;
        std::int64_t x = 0;
        if (vector_ && n >= B) {
            for (; x + B <= n; x += B) X::store(out + x, X::sub(X::load(centre + x), X::load(above + x)));
            // The last block overlaps the one before; it computes the same outputs again.
            if (x < n) X::store(out + n - B, X::sub(X::load(centre + n - B), X::load(above + n - B)));
            return;
        }
        for (; x < n; ++x) out[x] = scalar(rows, x);
    }

    D scalar(const T* const* rows, std::int64_t x) const
    {
        using Acc = typename X::Acc;
        return X::finish(static_cast<Acc>(static_cast<Acc>(rows[1][x + 1]) - static_cast<Acc>(rows[0][x + corner_])));
    }

private:
    int corner_;
    bool vector_;
};

}  // namespace keli::rows::derivative
