// keliScaleC row kernel: dst = saturate(round(src * m + a)) between any two element types.
//
// Elements go four at a time: brought to the working float (64f on the accurate path, where
// every integer source is exact; 32f on the fast path, where a 32-bit source rounds), multiplied
// and added, limited to the destination's range as max(lo, min(hi, y)) (a not-a-number passes
// through: a float destination keeps it, an integer one gets its smallest value from the
// conversion), converted to the nearest (the body forces that mode) and narrowed. The last
// few elements of a run go through the very same code on a copy padded to four, so every
// element takes one path of arithmetic.
#pragma once

#include <cfloat>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "move/rows/convert_round.hpp"
#include "simd/sse.hpp"

namespace keli::rows {

template <class S, class D, bool Accurate> struct ScaleCOp {
    using W = std::conditional_t<Accurate, double, float>;
    W m, a;

    // The destination's range in the working float; 32s on the fast path stops at 2^31 and
    // lanes that reach it become the largest value.
    static constexpr W lo()
    {
        if constexpr (std::is_same_v<D, Kel32f>) return W(-FLT_MAX);
        else if constexpr (std::is_same_v<D, Kel64f>) return Accurate ? W(-DBL_MAX) : W(0);
        else return W(rnd::lo<D>);
    }
    static constexpr W hi()
    {
        if constexpr (std::is_same_v<D, Kel32f>) return W(FLT_MAX);
        else if constexpr (std::is_same_v<D, Kel64f>) return Accurate ? W(DBL_MAX) : W(0);
        else if constexpr (std::is_same_v<D, Kel32s>) return Accurate ? W(2147483647.0) : W(2147483648.0);
        else return W(rnd::hi<D>);
    }

    // Four source elements as 32-bit integer lanes (integer sources) or floats.
    static __m128i ints4(const S* s)
    {
        if constexpr (sizeof(S) == 1) {
            std::int32_t w;
            std::memcpy(&w, s, 4);
            const __m128i v = _mm_cvtsi32_si128(w);
            return std::is_signed_v<S> ? _mm_cvtepi8_epi32(v) : _mm_cvtepu8_epi32(v);
        } else if constexpr (sizeof(S) == 2) {
            const __m128i v = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(s));
            return std::is_signed_v<S> ? _mm_cvtepi16_epi32(v) : _mm_cvtepu16_epi32(v);
        } else {
            return _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
        }
    }

    // y = x * m + a for four elements, limited to the destination's range; in 64f as two halves.
    struct Work {
        __m128d lo, hi;  // accurate
        __m128 f;        // fast
    };
    Work compute(const S* s) const
    {
        Work w{};
        if constexpr (Accurate) {
            if constexpr (std::is_same_v<S, Kel64f>) {
                w.lo = _mm_loadu_pd(s), w.hi = _mm_loadu_pd(s + 2);
            } else if constexpr (std::is_same_v<S, Kel32f>) {
                const __m128 v = _mm_loadu_ps(s);
                w.lo = _mm_cvtps_pd(v), w.hi = _mm_cvtps_pd(_mm_movehl_ps(v, v));
            } else {
                const __m128i v = ints4(s);
                w.lo = _mm_cvtepi32_pd(v), w.hi = _mm_cvtepi32_pd(_mm_srli_si128(v, 8));
            }
            const __m128d mm = _mm_set1_pd(m), aa = _mm_set1_pd(a), l = _mm_set1_pd(lo()), h = _mm_set1_pd(hi());
            w.lo = _mm_max_pd(l, _mm_min_pd(h, _mm_add_pd(_mm_mul_pd(w.lo, mm), aa)));
            w.hi = _mm_max_pd(l, _mm_min_pd(h, _mm_add_pd(_mm_mul_pd(w.hi, mm), aa)));
        } else {
            __m128 x;
            if constexpr (std::is_same_v<S, Kel64f>) x = _mm_movelh_ps(_mm_cvtpd_ps(_mm_loadu_pd(s)), _mm_cvtpd_ps(_mm_loadu_pd(s + 2)));
            else if constexpr (std::is_same_v<S, Kel32f>) x = _mm_loadu_ps(s);
            else x = _mm_cvtepi32_ps(ints4(s));
            x = _mm_add_ps(_mm_mul_ps(x, _mm_set1_ps(m)), _mm_set1_ps(a));
            if constexpr (!std::is_same_v<D, Kel64f>) x = _mm_max_ps(_mm_set1_ps(lo()), _mm_min_ps(_mm_set1_ps(hi()), x));
            w.f = x;
        }
        return w;
    }

    // Four results stored at d.
    void four(const S* s, D* d) const
    {
        const Work w = compute(s);
        if constexpr (std::is_same_v<D, Kel64f>) {
            if constexpr (Accurate) _mm_storeu_pd(d, w.lo), _mm_storeu_pd(d + 2, w.hi);
            else _mm_storeu_pd(d, _mm_cvtps_pd(w.f)), _mm_storeu_pd(d + 2, _mm_cvtps_pd(_mm_movehl_ps(w.f, w.f)));
        } else if constexpr (std::is_same_v<D, Kel32f>) {
            if constexpr (Accurate) _mm_storeu_ps(d, _mm_movelh_ps(_mm_cvtpd_ps(w.lo), _mm_cvtpd_ps(w.hi)));
            else _mm_storeu_ps(d, w.f);
        } else {
            __m128i v;
            if constexpr (Accurate) {
                v = _mm_unpacklo_epi64(_mm_cvtpd_epi32(w.lo), _mm_cvtpd_epi32(w.hi));
            } else {
                v = _mm_cvtps_epi32(w.f);
                if constexpr (std::is_same_v<D, Kel32s>)
                    v = _mm_blendv_epi8(v, _mm_set1_epi32(0x7FFFFFFF), _mm_castps_si128(_mm_cmpge_ps(w.f, _mm_set1_ps(hi()))));
            }
            if constexpr (sizeof(D) == 4) {
                _mm_storeu_si128(reinterpret_cast<__m128i*>(d), v);
            } else if constexpr (sizeof(D) == 2) {
                v = std::is_signed_v<D> ? _mm_packs_epi32(v, v) : _mm_packus_epi32(v, v);
                _mm_storel_epi64(reinterpret_cast<__m128i*>(d), v);
            } else {
                v = _mm_packs_epi32(v, v);
                v = std::is_signed_v<D> ? _mm_packs_epi16(v, v) : _mm_packus_epi16(v, v);
                const std::int32_t bytes = _mm_cvtsi128_si32(v);
                std::memcpy(d, &bytes, 4);
            }
        }
    }

    // n elements, in place allowed (each group of four is read before it is written).
    void run(const S* s, D* d, std::size_t n) const
    {
        std::size_t i = 0;
        for (; i + 4 <= n; i += 4) four(s + i, d + i);
        if (i < n) {
            S in[4] = {};
            D out[4];
            std::memcpy(in, s + i, (n - i) * sizeof(S));
            four(in, out);
            std::memcpy(d + i, out, (n - i) * sizeof(D));
        }
    }
};

}  // namespace keli::rows
