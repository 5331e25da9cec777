// Row kernels of the Laplace, high-pass and sharpen filters, as edge-driver kernels: each call
// gets the mask's K rows for one output segment (rows[j] at the pixel one reach left of the
// segment's first output) and writes n output pixels.
//
// The elements of a segment form one run of n * C outputs over (n + K - 1) * C columns, the
// neighbour of an element in the next pixel being C elements further: the channels never mix
// and one loop serves C1, C3, C4 and AC4 (whose alpha lanes are computed and then discarded: the
// destination's alpha is put back from memory, so it keeps the value it held).
//
// Working lanes: 8u in 16-bit lanes (every sum and partial sum of these masks stays within
// 88 * 255), 16s in 32-bit lanes, 32f in f32. Integer sums are exact, so any order of additions
// gives the same value; f32 sums follow one fixed order in vector and scalar code alike:
//
// * centre minus column sums (Laplace and high-pass 3x3, high-pass 5x5, sharpen): a column sum
//   adds the K rows top to bottom; the result is Weight * centre minus the K column sums of the
//   window, left to right.
// * Laplace 5x5 on 32f: each row filter (-1 -3 -4 -3 -1), (-3 0 6 0 -3), (-4 6 20 6 -4) taken
//   left to right, then r2(y-1) + r2(y+1) + r1(y-2) + r1(y+2) + r3(y) in that order. A zero
//   coefficient reads nothing, so an infinity the mask does not cover cannot turn the result
//   into a NaN, and a -1 is a change of sign.
//
// The vector loops carry the column sums of the blocks ahead in registers, so each source
// element is loaded once per output row (Laplace 5x5 on 32f excepted: its row filters reload
// their taps); the outputs that the carried blocks cannot reach run the scalar form of the same
// arithmetic.
#pragma once

#include <smmintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "frame/layout.hpp"
#include "keli_types.h"
#include "simd/sse.hpp"

namespace keli::rows::laplace {

// ---- working lanes ----------------------------------------------------------------------------

// The lanes of each element type: G elements a register, loaded widened, and the scalar type
// (S) of the tail, with the same arithmetic.
template <class T> struct Lanes;

// Sharpen's division by 8, rounded half to even: the low three bits decide, a remainder of
// exactly 4 goes to the even quotient. Arithmetic shifts, so negative sums round alike.
inline std::int32_t eighth(std::int32_t v) { return (v + 3 + ((v >> 3) & 1)) >> 3; }
inline float eighth(float v) { return v * 0.125f; }

template <> struct Lanes<Kel8u> {
    using V = __m128i;
    using S = std::int32_t;
    static constexpr int G = 8;
    static V load(const Kel8u* p) { return _mm_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))); }
    static V add(V a, V b) { return _mm_add_epi16(a, b); }
    static V sub(V a, V b) { return _mm_sub_epi16(a, b); }
    static V mul(int k, V a) { return _mm_mullo_epi16(_mm_set1_epi16(static_cast<short>(k)), a); }
    // Lanes r .. r + G - 1 of the pair (lo, hi).
    template <int R> static V shift(V lo, V hi) { return _mm_alignr_epi8(hi, lo, R * 2); }
    static V eighth(V v)
    {
        const __m128i odd = _mm_and_si128(_mm_srai_epi16(v, 3), _mm_set1_epi16(1));
        return _mm_srai_epi16(_mm_add_epi16(_mm_add_epi16(v, _mm_set1_epi16(3)), odd), 3);
    }
    template <bool KeepAlpha> static void put(Kel8u* d, V v)
    {
        __m128i p = _mm_packus_epi16(v, v);
        if constexpr (KeepAlpha)
            p = _mm_blendv_epi8(p, _mm_loadl_epi64(reinterpret_cast<const __m128i*>(d)),
                                _mm_set_epi32(0, 0, int(0xFF000000u), int(0xFF000000u)));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(d), p);
    }
    static Kel8u finish(S v) { return static_cast<Kel8u>(std::clamp(v, 0, 255)); }
};

template <> struct Lanes<Kel16s> {
    using V = __m128i;
    using S = std::int32_t;
    static constexpr int G = 4;
    static V load(const Kel16s* p) { return _mm_cvtepi16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))); }
    static V add(V a, V b) { return _mm_add_epi32(a, b); }
    static V sub(V a, V b) { return _mm_sub_epi32(a, b); }
    static V mul(int k, V a) { return _mm_mullo_epi32(_mm_set1_epi32(k), a); }
    template <int R> static V shift(V lo, V hi) { return _mm_alignr_epi8(hi, lo, R * 4); }
    static V eighth(V v)
    {
        const __m128i odd = _mm_and_si128(_mm_srai_epi32(v, 3), _mm_set1_epi32(1));
        return _mm_srai_epi32(_mm_add_epi32(_mm_add_epi32(v, _mm_set1_epi32(3)), odd), 3);
    }
    template <bool KeepAlpha> static void put(Kel16s* d, V v)
    {
        __m128i p = _mm_packs_epi32(v, v);
        if constexpr (KeepAlpha) p = _mm_blend_epi16(p, _mm_loadl_epi64(reinterpret_cast<const __m128i*>(d)), 0x08);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(d), p);
    }
    static Kel16s finish(S v) { return static_cast<Kel16s>(std::clamp(v, -32768, 32767)); }
};

template <> struct Lanes<Kel32f> {
    using V = __m128;
    using S = float;
    static constexpr int G = 4;
    static V load(const Kel32f* p) { return _mm_loadu_ps(p); }
    static V add(V a, V b) { return _mm_add_ps(a, b); }
    static V sub(V a, V b) { return _mm_sub_ps(a, b); }
    static V mul(int k, V a) { return _mm_mul_ps(_mm_set1_ps(static_cast<float>(k)), a); }
    template <int R> static V shift(V lo, V hi)
    {
        return _mm_castsi128_ps(_mm_alignr_epi8(_mm_castps_si128(hi), _mm_castps_si128(lo), R * 4));
    }
    static V eighth(V v) { return _mm_mul_ps(v, _mm_set1_ps(0.125f)); }
    template <bool KeepAlpha> static void put(Kel32f* d, V v)
    {
        if constexpr (KeepAlpha) v = _mm_blend_ps(v, _mm_loadu_ps(d), 8);
        _mm_storeu_ps(d, v);
    }
    static Kel32f finish(S v) { return v; }
};

// Element I * C of the carried blocks s[0], s[1], ...: block s[q] holds elements q * G onwards.
template <class A, int C, int I, class V> inline V element_at(const V* s)
{
    constexpr int o = I * C, q = o / A::G, r = o % A::G;
    if constexpr (r == 0) return s[q];
    else return A::template shift<r>(s[q], s[q + 1]);
}

// Blocks carried by a loop whose window reaches (K - 1) * C elements past the output.
constexpr int carried_blocks(int K, int C, int G) { return ((K - 1) * C + G - 1) / G + 1; }

// ---- centre minus column sums ------------------------------------------------------------------

// out = Weight * centre - S(x - reach) - ... - S(x + reach), S the column sum of the K rows;
// with Eighth, that value divided by 8 (sharpen). Laplace 3x3 and high-pass 3x3 are Weight 9,
// K 3; sharpen Weight 17, K 3; high-pass 5x5 Weight 25, K 5.
template <class T, Layout L, int K, int Weight, bool Eighth> class CentreMinusSums {
public:
    static constexpr int C = int(channels<L>);

    void operator()(const T* const* rows, T* out, std::int64_t n) const
    {
        using A = Lanes<T>;
        using V = typename A::V;
        constexpr int G = A::G, NB = carried_blocks(K, C, G);
        const std::int64_t outs = n * C, cols = (n + K - 1) * C;
        const T* centre = rows[K / 2] + (K / 2) * C;
        std::int64_t k = 0;
        if (NB * G <= cols) {
            V s[NB];
            for (int b = 0; b + 1 < NB; ++b) s[b] = column(rows, b * G);
            for (; k + NB * G <= cols; k += G) {
                s[NB - 1] = column(rows, k + (NB - 1) * G);
                V v = minus_sums(A::mul(Weight, A::load(centre + k)), s, std::make_index_sequence<K>());
                if constexpr (Eighth) v = A::eighth(v);
                A::template put<has_alpha<L>>(out + k, v);
                for (int b = 0; b + 1 < NB; ++b) s[b] = s[b + 1];
            }
        }
        for (; k < outs; ++k) {
            if (has_alpha<L> && k % 4 == 3) continue;
            typename A::S v = Weight * typename A::S(centre[k]);
            for (int i = 0; i < K; ++i) {
                typename A::S col = rows[0][k + i * C];
                for (int j = 1; j < K; ++j) col += rows[j][k + i * C];
                v -= col;
            }
            if constexpr (Eighth) v = eighth(v);
            out[k] = A::finish(v);
        }
    }

private:
    static typename Lanes<T>::V column(const T* const* rows, std::int64_t m)
    {
        using A = Lanes<T>;
        typename A::V s = A::load(rows[0] + m);
        for (int j = 1; j < K; ++j) s = A::add(s, A::load(rows[j] + m));
        return s;
    }

    template <class V, std::size_t... I> static V minus_sums(V v, const V* s, std::index_sequence<I...>)
    {
        ((v = Lanes<T>::sub(v, element_at<Lanes<T>, C, int(I)>(s))), ...);
        return v;
    }
};

// ---- Laplace 5x5, integer ---------------------------------------------------------------------

// Exact sums, so the mask is taken column by column. With P = rows 0 + 4, Q = rows 1 + 3 and
// R = row 2 of a column, its five columns are -c0, c1, c2, c1, -c0 with
// c0 = P + 3Q + 4R, c1 = 6R - 3P, c2 = 20R + 6Q - 4P.
template <class T, Layout L> class Laplace5x5Integer {
public:
    static constexpr int C = int(channels<L>);

    void operator()(const T* const* rows, T* out, std::int64_t n) const
    {
        using A = Lanes<T>;
        using V = typename A::V;
        constexpr int G = A::G, NB = carried_blocks(5, C, G);
        const std::int64_t outs = n * C, cols = (n + 4) * C;
        std::int64_t k = 0;
        if (NB * G <= cols) {
            V c0[NB], c1[NB], c2[NB];
            for (int b = 0; b + 1 < NB; ++b) columns(rows, b * G, c0[b], c1[b], c2[b]);
            for (; k + NB * G <= cols; k += G) {
                columns(rows, k + (NB - 1) * G, c0[NB - 1], c1[NB - 1], c2[NB - 1]);
                V v = A::sub(element_at<A, C, 2>(c2), element_at<A, C, 0>(c0));
                v = A::add(v, A::add(element_at<A, C, 1>(c1), element_at<A, C, 3>(c1)));
                v = A::sub(v, element_at<A, C, 4>(c0));
                A::template put<has_alpha<L>>(out + k, v);
                for (int b = 0; b + 1 < NB; ++b) c0[b] = c0[b + 1], c1[b] = c1[b + 1], c2[b] = c2[b + 1];
            }
        }
        static constexpr int kMask[5][5] = {
            {-1, -3, -4, -3, -1}, {-3, 0, 6, 0, -3}, {-4, 6, 20, 6, -4}, {-3, 0, 6, 0, -3}, {-1, -3, -4, -3, -1}};
        for (; k < outs; ++k) {
            if (has_alpha<L> && k % 4 == 3) continue;
            std::int32_t v = 0;
            for (int j = 0; j < 5; ++j)
                for (int i = 0; i < 5; ++i) v += kMask[j][i] * std::int32_t(rows[j][k + i * C]);
            out[k] = A::finish(v);
        }
    }

private:
    using V = typename Lanes<T>::V;

    static void columns(const T* const* rows, std::int64_t m, V& c0, V& c1, V& c2)
    {
        using A = Lanes<T>;
        const V p = A::add(A::load(rows[0] + m), A::load(rows[4] + m));
        const V q = A::add(A::load(rows[1] + m), A::load(rows[3] + m));
        const V r = A::load(rows[2] + m);
        c0 = A::add(A::add(p, A::mul(3, q)), A::mul(4, r));
        c1 = A::sub(A::mul(6, r), A::mul(3, p));
        c2 = A::sub(A::add(A::mul(20, r), A::mul(6, q)), A::mul(4, p));
    }
};

// ---- Laplace 5x5, 32f -------------------------------------------------------------------------

// One template for the four lanes and the one lane (simd::F4 or float), so that both add in the
// same order. `at(row, i)` loads tap i of a row.
template <class X, class At> inline X laplace5x5_f32(At at)
{
    const auto c = [](float v) {
        if constexpr (std::is_same_v<X, float>) return v;
        else return simd::splat4(v);
    };
    const auto r1 = [&](int j) { return (((-at(j, 0) + c(-3) * at(j, 1)) + c(-4) * at(j, 2)) + c(-3) * at(j, 3)) - at(j, 4); };
    const auto r2 = [&](int j) { return (c(-3) * at(j, 0) + c(6) * at(j, 2)) + c(-3) * at(j, 4); };
    const auto r3 = [&](int j) {
        return (((c(-4) * at(j, 0) + c(6) * at(j, 1)) + c(20) * at(j, 2)) + c(6) * at(j, 3)) + c(-4) * at(j, 4);
    };
    return (((r2(1) + r2(3)) + r1(0)) + r1(4)) + r3(2);
}

template <Layout L> class Laplace5x5Float {
public:
    static constexpr int C = int(channels<L>);

    void operator()(const Kel32f* const* rows, Kel32f* out, std::int64_t n) const
    {
        const std::int64_t outs = n * C;
        std::int64_t k = 0;
        for (; k + 4 <= outs; k += 4) {
            const simd::F4 v = laplace5x5_f32<simd::F4>([&](int j, int i) { return simd::load4(rows[j] + k + i * C); });
            Lanes<Kel32f>::put<has_alpha<L>>(out + k, v.v);
        }
        for (; k < outs; ++k) {
            if (has_alpha<L> && k % 4 == 3) continue;
            out[k] = laplace5x5_f32<float>([&](int j, int i) { return rows[j][k + i * C]; });
        }
    }
};

}  // namespace keli::rows::laplace
