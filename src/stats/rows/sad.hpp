// Row kernels of the sum of absolute differences of a template over every position of an image.
//
// One output is the sum over the template of |src(x + i, y + j) - tpl(i, j)|. A kernel computes a
// run of neighbouring outputs of one destination row at once: for each template row, and in it
// for each template column, the template element meets the source elements of all outputs of the
// run in one vector. Every op holds a vector form (a run of outputs) and a scalar form (one
// output); the row loop takes whole runs with the first and the outputs left over with the second.
//
// Integer sums live in 32-bit lanes and wrap instead of saturating, so any order of addition gives
// the same bits, and the vector and scalar forms agree by arithmetic. The 32f sums follow one
// fixed order in both forms: per template row, four partial sums over the columns taken four at a
// time, folded as (p0 + p2) + (p1 + p3) and added to the running sum, then the columns left over
// added to the running sum one by one. The vector form keeps one output per lane and does in each
// lane exactly what the scalar form does.
//
// No load reaches outside the source rows: a run of outputs x .. x + n - 1 reads source columns
// x .. x + n - 1 + tplWidth - 1, and the last output of a row reads the row's last column.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "simd/sse.hpp"

namespace keli::rows {

// The template and the steps a kernel needs; the source pointer of a run is passed apart.
struct SadWindow {
    const std::uint8_t* tpl;
    std::ptrdiff_t tplStep;
    std::ptrdiff_t srcStep;
    int width, height;  // template size in elements
};

template <class T> inline T sad_elem(const std::uint8_t* p)
{
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

inline __m128i sad_load32(const std::uint8_t* p)
{
    std::int32_t v;
    std::memcpy(&v, p, sizeof v);
    return _mm_cvtsi32_si128(v);
}

inline __m128i sad_loadl(const std::uint8_t* p) { return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)); }
inline __m128i sad_loadu(const std::uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }

// ---- 8u: byte differences summed by psadbw ------------------------------------------------------
//
// A run is four outputs. For template widths of eight and more each output takes the template row
// in 16- and 8-byte pieces through psadbw, whose two 64-bit lanes each hold the sum of eight
// absolute differences; a last piece of fewer than eight columns is read as the eight bytes that
// end at the template row's end, with the columns already counted masked off on both sides.
// Narrower templates broadcast each template byte against four source bytes widened to 32 bits.
struct Sad8u {
    using Elem = Kel8u;
    static constexpr int run = 4;

    static void vec(const SadWindow& w, const std::uint8_t* s, __m128i* out)
    {
        if (w.width < 8) {
            out[0] = narrow(w, s);
            return;
        }
        const int full16 = w.width & ~15;
        const bool piece8 = (w.width & 8) != 0;
        const int rest = w.width & 7;
        // Keeps the last `rest` bytes of an 8-byte piece.
        const __m128i restMask = _mm_slli_epi64(_mm_set_epi32(0, 0, -1, -1), 8 * (8 - rest));
        __m128i a0 = _mm_setzero_si128(), a1 = a0, a2 = a0, a3 = a0;
        for (int j = 0; j < w.height; ++j) {
            const std::uint8_t* sr = s + j * w.srcStep;
            const std::uint8_t* tr = w.tpl + j * w.tplStep;
            int i = 0;
            for (; i < full16; i += 16) {
                const __m128i t = sad_loadu(tr + i);
                a0 = _mm_add_epi32(a0, _mm_sad_epu8(sad_loadu(sr + i), t));
                a1 = _mm_add_epi32(a1, _mm_sad_epu8(sad_loadu(sr + i + 1), t));
                a2 = _mm_add_epi32(a2, _mm_sad_epu8(sad_loadu(sr + i + 2), t));
                a3 = _mm_add_epi32(a3, _mm_sad_epu8(sad_loadu(sr + i + 3), t));
            }
            if (piece8) {
                const __m128i t = sad_loadl(tr + i);
                a0 = _mm_add_epi32(a0, _mm_sad_epu8(sad_loadl(sr + i), t));
                a1 = _mm_add_epi32(a1, _mm_sad_epu8(sad_loadl(sr + i + 1), t));
                a2 = _mm_add_epi32(a2, _mm_sad_epu8(sad_loadl(sr + i + 2), t));
                a3 = _mm_add_epi32(a3, _mm_sad_epu8(sad_loadl(sr + i + 3), t));
            }
            if (rest) {
                const int at = w.width - 8;
                const __m128i t = _mm_and_si128(sad_loadl(tr + at), restMask);
                a0 = _mm_add_epi32(a0, _mm_sad_epu8(_mm_and_si128(sad_loadl(sr + at), restMask), t));
                a1 = _mm_add_epi32(a1, _mm_sad_epu8(_mm_and_si128(sad_loadl(sr + at + 1), restMask), t));
                a2 = _mm_add_epi32(a2, _mm_sad_epu8(_mm_and_si128(sad_loadl(sr + at + 2), restMask), t));
                a3 = _mm_add_epi32(a3, _mm_sad_epu8(_mm_and_si128(sad_loadl(sr + at + 3), restMask), t));
            }
        }
        // Each accumulator holds its output's two half sums in dwords 0 and 2: gather the four
        // outputs' first halves and second halves and add them.
        const __m128i t01 = _mm_or_si128(a0, _mm_slli_epi64(a1, 32));  // h0a h1a h0b h1b
        const __m128i t23 = _mm_or_si128(a2, _mm_slli_epi64(a3, 32));  // h2a h3a h2b h3b
        out[0] = _mm_add_epi32(_mm_unpacklo_epi64(t01, t23), _mm_unpackhi_epi64(t01, t23));
    }

    static __m128i narrow(const SadWindow& w, const std::uint8_t* s)
    {
        __m128i acc = _mm_setzero_si128();
        for (int j = 0; j < w.height; ++j) {
            const std::uint8_t* sr = s + j * w.srcStep;
            const std::uint8_t* tr = w.tpl + j * w.tplStep;
            for (int i = 0; i < w.width; ++i) {
                const __m128i t = _mm_set1_epi32(tr[i]);
                const __m128i v = _mm_cvtepu8_epi32(sad_load32(sr + i));
                acc = _mm_add_epi32(acc, _mm_abs_epi32(_mm_sub_epi32(v, t)));
            }
        }
        return acc;
    }

    static std::uint32_t one(const SadWindow& w, const std::uint8_t* s)
    {
        std::uint32_t sum = 0;
        for (int j = 0; j < w.height; ++j) {
            const std::uint8_t* sr = s + j * w.srcStep;
            const std::uint8_t* tr = w.tpl + j * w.tplStep;
            for (int i = 0; i < w.width; ++i) {
                const int d = int(sr[i]) - int(tr[i]);
                sum += static_cast<std::uint32_t>(d < 0 ? -d : d);
            }
        }
        return sum;
    }
};

// ---- 16u and 16s: eight outputs in 16-bit lanes, widened to 32 bits per template element --------
//
// 16u: the unsigned difference |a - b| is exact in 16 bits (the larger minus the smaller).
// 16s: the difference wraps in 16 bits and its absolute value is read without sign, so that
// differences beyond 32767 fold back (30000 against -30000 counts 5536) and -32768 counts 32768.
template <bool Signed> struct Sad16 {
    using Elem = std::conditional_t<Signed, Kel16s, Kel16u>;
    static constexpr int run = 8;

    static __m128i term(__m128i v, __m128i t)
    {
        if constexpr (Signed) return _mm_abs_epi16(_mm_sub_epi16(v, t));
        else return _mm_or_si128(_mm_subs_epu16(v, t), _mm_subs_epu16(t, v));
    }

    static void vec(const SadWindow& w, const std::uint8_t* s, __m128i* out)
    {
        const __m128i zero = _mm_setzero_si128();
        __m128i lo = zero, hi = zero;
        for (int j = 0; j < w.height; ++j) {
            const std::uint8_t* sr = s + j * w.srcStep;
            const std::uint8_t* tr = w.tpl + j * w.tplStep;
            for (int i = 0; i < w.width; ++i) {
                const __m128i t = _mm_set1_epi16(sad_elem<std::int16_t>(tr + 2 * i));
                const __m128i d = term(sad_loadu(sr + 2 * i), t);
                lo = _mm_add_epi32(lo, _mm_unpacklo_epi16(d, zero));
                hi = _mm_add_epi32(hi, _mm_unpackhi_epi16(d, zero));
            }
        }
        out[0] = lo;
        out[1] = hi;
    }

    static std::uint32_t one(const SadWindow& w, const std::uint8_t* s)
    {
        std::uint32_t sum = 0;
        for (int j = 0; j < w.height; ++j) {
            const std::uint8_t* sr = s + j * w.srcStep;
            const std::uint8_t* tr = w.tpl + j * w.tplStep;
            for (int i = 0; i < w.width; ++i) {
                const int a = sad_elem<Elem>(sr + 2 * i), b = sad_elem<Elem>(tr + 2 * i);
                if constexpr (Signed) {
                    const int d = static_cast<std::int16_t>(static_cast<std::uint16_t>(a - b));
                    sum += static_cast<std::uint16_t>(d < 0 ? -d : d);
                } else {
                    sum += static_cast<std::uint32_t>(a > b ? a - b : b - a);
                }
            }
        }
        return sum;
    }
};

// ---- 32f: four outputs, one a lane, in the fixed order of the float sums -------------------------
struct Sad32f {
    using Elem = Kel32f;
    static constexpr int run = 4;

    static __m128 term(const std::uint8_t* p, float t)
    {
        const __m128 sign = _mm_castsi128_ps(_mm_set1_epi32(INT32_MIN));
        return _mm_andnot_ps(sign, _mm_sub_ps(_mm_loadu_ps(reinterpret_cast<const float*>(p)), _mm_set1_ps(t)));
    }

    static void vec(const SadWindow& w, const std::uint8_t* s, __m128* out)
    {
        __m128 v = _mm_setzero_ps();
        const int groups = w.width & ~3;
        for (int j = 0; j < w.height; ++j) {
            const std::uint8_t* sr = s + j * w.srcStep;
            const std::uint8_t* tr = w.tpl + j * w.tplStep;
            __m128 p0 = _mm_setzero_ps(), p1 = p0, p2 = p0, p3 = p0;
            int i = 0;
            for (; i < groups; i += 4) {
                p0 = _mm_add_ps(p0, term(sr + 4 * i, sad_elem<float>(tr + 4 * i)));
                p1 = _mm_add_ps(p1, term(sr + 4 * i + 4, sad_elem<float>(tr + 4 * i + 4)));
                p2 = _mm_add_ps(p2, term(sr + 4 * i + 8, sad_elem<float>(tr + 4 * i + 8)));
                p3 = _mm_add_ps(p3, term(sr + 4 * i + 12, sad_elem<float>(tr + 4 * i + 12)));
            }
            v = _mm_add_ps(v, _mm_add_ps(_mm_add_ps(p0, p2), _mm_add_ps(p1, p3)));
            for (; i < w.width; ++i) v = _mm_add_ps(v, term(sr + 4 * i, sad_elem<float>(tr + 4 * i)));
        }
        out[0] = v;
    }

    static float one(const SadWindow& w, const std::uint8_t* s)
    {
        float v = 0.0f;
        const int groups = w.width & ~3;
        for (int j = 0; j < w.height; ++j) {
            const std::uint8_t* sr = s + j * w.srcStep;
            const std::uint8_t* tr = w.tpl + j * w.tplStep;
            float p[4] = {0.0f, 0.0f, 0.0f, 0.0f};
            int i = 0;
            for (; i < groups; i += 4)
                for (int k = 0; k < 4; ++k)
                    p[k] = p[k] + std::fabs(sad_elem<float>(sr + 4 * (i + k)) - sad_elem<float>(tr + 4 * (i + k)));
            v = v + ((p[0] + p[2]) + (p[1] + p[3]));
            for (; i < w.width; ++i) v = v + std::fabs(sad_elem<float>(sr + 4 * i) - sad_elem<float>(tr + 4 * i));
        }
        return v;
    }
};

// ---- Scale of the integer sums -------------------------------------------------------------------
//
// The 32-bit sum, taken as unsigned, is divided by 2^s and rounded to nearest with ties to the
// even result, so that repeated halving stays unbiased: add 2^(s-1) - 1 and the lowest bit that
// survives the shift, then shift. The addition wraps in 32 bits like the sum itself.
struct SadScale {
    int s;  // 0 to 31
    __m128i apply(__m128i sum) const
    {
        if (s == 0) return sum;
        const __m128i count = _mm_cvtsi32_si128(s);
        const __m128i bias = _mm_set1_epi32(static_cast<int>((1u << (s - 1)) - 1u));
        const __m128i odd = _mm_and_si128(_mm_srl_epi32(sum, count), _mm_set1_epi32(1));
        return _mm_srl_epi32(_mm_add_epi32(_mm_add_epi32(sum, bias), odd), count);
    }
    std::uint32_t apply(std::uint32_t sum) const
    {
        if (s == 0) return sum;
        return (sum + ((1u << (s - 1)) - 1u) + ((sum >> s) & 1u)) >> s;
    }
};

// One destination row: whole runs through the vector form, the outputs left over one by one.
// `src` points at the source row of the destination row's first output.
template <class Op>
inline void sad_row_int(const SadWindow& w, const std::uint8_t* src, int count, SadScale scale, Kel32s* dst)
{
    constexpr int n = Op::run;
    constexpr std::size_t es = sizeof(typename Op::Elem);
    int x = 0;
    for (; x + n <= count; x += n) {
        __m128i sums[n / 4];
        Op::vec(w, src + x * es, sums);
        for (int k = 0; k < n / 4; ++k)
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x + 4 * k), scale.apply(sums[k]));
    }
    for (; x < count; ++x) {
        const std::uint32_t v = scale.apply(Op::one(w, src + x * es));
        std::memcpy(dst + x, &v, sizeof v);
    }
}

inline void sad_row_32f(const SadWindow& w, const std::uint8_t* src, int count, Kel32f* dst)
{
    int x = 0;
    for (; x + Sad32f::run <= count; x += Sad32f::run) {
        __m128 v;
        Sad32f::vec(w, src + 4 * x, &v);
        _mm_storeu_ps(dst + x, v);
    }
    for (; x < count; ++x) {
        const float v = Sad32f::one(w, src + 4 * x);
        std::memcpy(dst + x, &v, sizeof v);
    }
}

}  // namespace keli::rows
