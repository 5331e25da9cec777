// Comparison row kernels: element relations of each type, and one row loop that turns them
// into an 8-bit mask of one byte a pixel.
//
// A row is taken 16 pixels at a time. The relation gives a mask lane per element; the lanes
// are packed down to bytes (16-bit lanes once, 32-bit lanes twice), and the channels of each
// pixel are ANDed together into one byte: 16 whole pixel results a store. Pixels after the
// last whole block go through the scalar form of the same relation, which compares operand
// for operand as the vector one does, so a not-a-number gives false in both.
#pragma once

#include <cstddef>
#include <type_traits>

#include "simd/sse.hpp"

namespace keli::rows {

// Greater and greater-or-equal are less and less-or-equal with the operands exchanged.
enum class Relation { Less, LessEq, Eq };

template <class T> struct Relations;

// Unsigned bytes and words have no ordered compare: a <= b is min(a, b) == a, and a < b is
// the complement of max(a, b) == a.
template <> struct Relations<Kel8u> {
    using V = __m128i;
    static V less(V a, V b) { return _mm_xor_si128(_mm_cmpeq_epi8(_mm_max_epu8(a, b), a), _mm_set1_epi8(-1)); }
    static V less_eq(V a, V b) { return _mm_cmpeq_epi8(_mm_min_epu8(a, b), a); }
    static V eq(V a, V b) { return _mm_cmpeq_epi8(a, b); }
};

template <> struct Relations<Kel16u> {
    using V = __m128i;
    static V less(V a, V b) { return _mm_xor_si128(_mm_cmpeq_epi16(_mm_max_epu16(a, b), a), _mm_set1_epi16(-1)); }
    static V less_eq(V a, V b) { return _mm_cmpeq_epi16(_mm_min_epu16(a, b), a); }
    static V eq(V a, V b) { return _mm_cmpeq_epi16(a, b); }
};

template <> struct Relations<Kel16s> {
    using V = __m128i;
    static V less(V a, V b) { return _mm_cmpgt_epi16(b, a); }
    static V less_eq(V a, V b) { return _mm_xor_si128(_mm_cmpgt_epi16(a, b), _mm_set1_epi16(-1)); }
    static V eq(V a, V b) { return _mm_cmpeq_epi16(a, b); }
};

// The ordered float compares are false on a not-a-number, which every relation needs.
template <> struct Relations<Kel32f> {
    using V = __m128;
    static __m128i less(V a, V b) { return _mm_castps_si128(_mm_cmplt_ps(a, b)); }
    static __m128i less_eq(V a, V b) { return _mm_castps_si128(_mm_cmple_ps(a, b)); }
    static __m128i eq(V a, V b) { return _mm_castps_si128(_mm_cmpeq_ps(a, b)); }
};

template <class T, Relation R> struct RelationOp {
    using V = simd::reg_t<T>;
    __m128i vec(V a, V b) const
    {
        if constexpr (R == Relation::Less) return Relations<T>::less(a, b);
        else if constexpr (R == Relation::LessEq) return Relations<T>::less_eq(a, b);
        else return Relations<T>::eq(a, b);
    }
    bool one(T a, T b) const
    {
        if constexpr (R == Relation::Less) return a < b;
        else if constexpr (R == Relation::LessEq) return a <= b;
        else return a == b;
    }
};

// |a - b| <= eps in 32f, the absolute value taken by clearing the sign bit. A not-a-number
// difference (a not-a-number operand, or infinities of one sign) compares false.
struct EqualEpsOp {
    __m128 eps;
    float epsValue;
    explicit EqualEpsOp(float e) : eps(_mm_set1_ps(e)), epsValue(e) {}
    __m128i vec(__m128 a, __m128 b) const
    {
        const __m128 magnitude = _mm_and_ps(_mm_sub_ps(a, b), _mm_castsi128_ps(_mm_set1_epi32(0x7FFFFFFF)));
        return _mm_castps_si128(_mm_cmple_ps(magnitude, eps));
    }
    bool one(float a, float b) const
    {
        const float d = a - b;
        return (d < 0 ? -d : d) <= epsValue;
    }
};

// A per-channel constant as vectors of the repeating channel pattern: a vector starting at
// element e of a run holds channel (e + j) % C in lane j, so it takes phase e % C.
template <class T, std::size_t C> struct ConstPattern {
    T value[C];
    simd::reg_t<T> phase[C];

    // `v` holds one element per processed channel; an unprocessed alpha lane holds zero.
    ConstPattern(const T* v, std::size_t processed)
    {
        constexpr std::size_t L = simd::lanes<T>;
        for (std::size_t c = 0; c < C; ++c) value[c] = c < processed ? v[c] : T(0);
        for (std::size_t r = 0; r < C; ++r) {
            alignas(16) T lanes[L];
            for (std::size_t j = 0; j < L; ++j) lanes[j] = value[(r + j) % C];
            phase[r] = simd::loada(lanes);
        }
    }
};

// The two operands of a row: two images, or an image and a constant (ConstFirst puts the
// constant on the left, for greater relations of the constant forms).
template <class T, class Op> struct ImagePair {
    const T* a;
    const T* b;
    Op op;
    __m128i vec(std::size_t e) const { return op.vec(simd::loadu(a + e), simd::loadu(b + e)); }
    bool one(std::size_t e, std::size_t) const { return op.one(a[e], b[e]); }
};

template <class T, class Op, std::size_t C, bool ConstFirst> struct ImageConst {
    const T* a;
    const ConstPattern<T, C>* k;
    Op op;
    __m128i vec(std::size_t e) const
    {
        const auto v = simd::loadu(a + e);
        return ConstFirst ? op.vec(k->phase[e % C], v) : op.vec(v, k->phase[e % C]);
    }
    bool one(std::size_t e, std::size_t c) const
    {
        return ConstFirst ? op.one(k->value[c], a[e]) : op.one(a[e], k->value[c]);
    }
};

namespace detail {

// The 16-byte mask of 16 elements starting at element e: lanes packed down to bytes.
template <class T, class Row> inline __m128i element_bytes(const Row& row, std::size_t e)
{
    if constexpr (sizeof(T) == 1) {
        return row.vec(e);
    } else if constexpr (sizeof(T) == 2) {
        return _mm_packs_epi16(row.vec(e), row.vec(e + 8));
    } else {
        const __m128i low = _mm_packs_epi32(row.vec(e), row.vec(e + 4));
        const __m128i high = _mm_packs_epi32(row.vec(e + 8), row.vec(e + 12));
        return _mm_packs_epi16(low, high);
    }
}

// Pixel bytes from the element bytes of 16 pixels of three channels. t[i] = s[i] & s[i+1] &
// s[i+2] over the 48-byte stream makes t[3p] the result of pixel p; three byte shuffles
// gather every third byte.
inline __m128i pixels_of_three(__m128i v0, __m128i v1, __m128i v2)
{
    const __m128i t0 = _mm_and_si128(v0, _mm_and_si128(_mm_alignr_epi8(v1, v0, 1), _mm_alignr_epi8(v1, v0, 2)));
    const __m128i t1 = _mm_and_si128(v1, _mm_and_si128(_mm_alignr_epi8(v2, v1, 1), _mm_alignr_epi8(v2, v1, 2)));
    const __m128i t2 = _mm_and_si128(v2, _mm_and_si128(_mm_srli_si128(v2, 1), _mm_srli_si128(v2, 2)));
    const __m128i g0 = _mm_setr_epi8(0, 3, 6, 9, 12, 15, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
    const __m128i g1 = _mm_setr_epi8(-1, -1, -1, -1, -1, -1, 2, 5, 8, 11, 14, -1, -1, -1, -1, -1);
    const __m128i g2 = _mm_setr_epi8(-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 1, 4, 7, 10, 13);
    return _mm_or_si128(_mm_or_si128(_mm_shuffle_epi8(t0, g0), _mm_shuffle_epi8(t1, g1)), _mm_shuffle_epi8(t2, g2));
}

// Pixel bytes from the element bytes of 16 pixels of four channels: a pixel holds when its
// 32-bit lane is all ones. With Alpha the fourth byte is set first, so it never decides.
template <bool Alpha> inline __m128i pixels_of_four(const __m128i (&v)[4])
{
    const __m128i ones = _mm_set1_epi8(-1);
    const __m128i alpha = _mm_set1_epi32(static_cast<int>(0xFF000000u));
    __m128i lane[4];
    for (int k = 0; k < 4; ++k) lane[k] = _mm_cmpeq_epi32(Alpha ? _mm_or_si128(v[k], alpha) : v[k], ones);
    return _mm_packs_epi16(_mm_packs_epi32(lane[0], lane[1]), _mm_packs_epi32(lane[2], lane[3]));
}

template <class T, std::size_t C, bool Alpha, class Row> inline __m128i pixel_mask16(const Row& row, std::size_t e)
{
    if constexpr (C == 1) {
        return element_bytes<T>(row, e);
    } else if constexpr (C == 3) {
        return pixels_of_three(element_bytes<T>(row, e), element_bytes<T>(row, e + 16),
                               element_bytes<T>(row, e + 32));
    } else {
        const __m128i v[4] = {element_bytes<T>(row, e), element_bytes<T>(row, e + 16), element_bytes<T>(row, e + 32),
                              element_bytes<T>(row, e + 48)};
        return pixels_of_four<Alpha>(v);
    }
}

}  // namespace detail

// One row of `width` pixels of C channels into `dst`, 255 where the relation holds in every
// processed channel and 0 elsewhere. With Stream the whole blocks go past the cache; the
// caller has made sure that `dst` is 16-byte aligned then, and fences once at the end.
template <class T, std::size_t C, bool Alpha, bool Stream, class Row>
inline void mask_row(const Row& row, Kel8u* dst, std::size_t width)
{
    constexpr std::size_t processed = Alpha ? 3 : C;
    std::size_t x = 0;
    auto store = [dst](std::size_t at, __m128i m) {
        if constexpr (Stream) simd::stream(dst + at, m);
        else simd::storeu(dst + at, m);
    };
    // One-byte pixels are cheap enough that the loop itself would cost as much as the
    // comparison: 64 of them a turn, a whole cache line of mask.
    if constexpr (sizeof(T) * C == 1) {
        for (; x + 64 <= width; x += 64) {
            const __m128i m0 = detail::pixel_mask16<T, C, Alpha>(row, x);
            const __m128i m1 = detail::pixel_mask16<T, C, Alpha>(row, x + 16);
            const __m128i m2 = detail::pixel_mask16<T, C, Alpha>(row, x + 32);
            const __m128i m3 = detail::pixel_mask16<T, C, Alpha>(row, x + 48);
            store(x, m0);
            store(x + 16, m1);
            store(x + 32, m2);
            store(x + 48, m3);
        }
    }
    for (; x + 16 <= width; x += 16) {
        store(x, detail::pixel_mask16<T, C, Alpha>(row, x * C));
    }
    for (; x < width; ++x) {
        bool hit = true;
        for (std::size_t c = 0; c < processed && hit; ++c) hit = row.one(x * C + c, c);
        dst[x] = hit ? 255 : 0;
    }
}

}  // namespace keli::rows
