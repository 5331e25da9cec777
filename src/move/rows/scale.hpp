// keliScale row ops: one type's whole range stretched over another's. Each op follows the
// shape of the round ops (an object with block() for the vector body and apply() for single
// elements) and runs through rows::round_run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "move/rows/convert_round.hpp"
#include "simd/sse.hpp"

namespace keli::rows {

// 8u to 16u, 16s or 32s: the byte repeated over the destination's width, which maps 0 and 255
// to the ends of the unsigned range exactly; the signed ones then flip their top bit, which
// moves that range down by half onto the signed one.
template <class D_> struct ScaleWidenOp {
    using S = Kel8u;
    using D = D_;
    static constexpr std::size_t kBlock = 16;
    template <class Load, class Store> void block(const S* s, D* d, Load load, Store store) const
    {
        const __m128i v = load(s);
        if constexpr (sizeof(D) == 2) {
            const __m128i flip = _mm_set1_epi16(std::is_signed_v<D> ? short(-32768) : 0);
            store(d, _mm_xor_si128(_mm_unpacklo_epi8(v, v), flip));
            store(d + 8, _mm_xor_si128(_mm_unpackhi_epi8(v, v), flip));
        } else {
            const __m128i lo = _mm_unpacklo_epi8(v, v), hi = _mm_unpackhi_epi8(v, v);
            const __m128i flip = _mm_set1_epi32(INT32_MIN);
            store(d, _mm_xor_si128(_mm_unpacklo_epi16(lo, lo), flip));
            store(d + 4, _mm_xor_si128(_mm_unpackhi_epi16(lo, lo), flip));
            store(d + 8, _mm_xor_si128(_mm_unpacklo_epi16(hi, hi), flip));
            store(d + 12, _mm_xor_si128(_mm_unpackhi_epi16(hi, hi), flip));
        }
    }
    D apply(S x) const
    {
        if constexpr (std::is_same_v<D, Kel16u>) return static_cast<D>(x * 257);
        else if constexpr (std::is_same_v<D, Kel16s>) return static_cast<D>(x * 257 - 32768);
        else return static_cast<D>(std::int64_t(x) * 0x01010101 - 2147483648LL);
    }
};

// Narrowing to 8u, fast: the top byte of the value moved onto an unsigned range (the sign bit
// of the signed types flipped).
template <class S_> struct ScaleNarrowFastOp {
    using S = S_;
    using D = Kel8u;
    static constexpr std::size_t kBlock = 16;
    template <class Load, class Store> void block(const S* s, D* d, Load load, Store store) const
    {
        if constexpr (sizeof(S) == 2) {
            const __m128i flip = _mm_set1_epi16(std::is_signed_v<S> ? short(-32768) : 0);
            const __m128i a = _mm_srli_epi16(_mm_xor_si128(load(s), flip), 8);
            const __m128i b = _mm_srli_epi16(_mm_xor_si128(load(s + 8), flip), 8);
            store(d, _mm_packus_epi16(a, b));
        } else {
            const __m128i flip = _mm_set1_epi32(INT32_MIN);
            __m128i q[4];
            for (int k = 0; k < 4; ++k) q[k] = _mm_srli_epi32(_mm_xor_si128(load(s + 4 * k), flip), 24);
            store(d, _mm_packus_epi16(_mm_packs_epi32(q[0], q[1]), _mm_packs_epi32(q[2], q[3])));
        }
    }
    D apply(S x) const
    {
        if constexpr (std::is_same_v<S, Kel16u>) return static_cast<D>(x >> 8);
        else if constexpr (std::is_same_v<S, Kel16s>) return static_cast<D>((x + 32768) >> 8);
        else return static_cast<D>((std::int64_t(x) + 2147483648LL) >> 24);
    }
};

// Narrowing to 8u, accurate: (x + offset) * (255 / range) in 32f under the nearest mode, the
// sum and the product each rounded once, then converted to the nearest integer.
template <class S_> struct ScaleNarrowAccurateOp {
    using S = S_;
    using D = Kel8u;
    static constexpr std::size_t kBlock = 16;
    static constexpr float kOffset = std::is_same_v<S, Kel16u> ? 0.0f : std::is_same_v<S, Kel16s> ? 32768.0f : 2147483648.0f;
    static constexpr float kFactor = sizeof(S) == 2 ? 0.0038910505827516317f : float(1.0 / 16843009.0);

    static __m128i ints(__m128i x)
    {
        const __m128 y = _mm_mul_ps(_mm_add_ps(_mm_cvtepi32_ps(x), _mm_set1_ps(kOffset)), _mm_set1_ps(kFactor));
        return _mm_cvtps_epi32(y);
    }
    template <class Load, class Store> void block(const S* s, D* d, Load load, Store store) const
    {
        __m128i q[4];
        if constexpr (sizeof(S) == 2) {
            for (int h = 0; h < 2; ++h) {
                const __m128i v = load(s + 8 * h);
                const __m128i hi = _mm_srli_si128(v, 8);
                q[2 * h] = std::is_signed_v<S> ? _mm_cvtepi16_epi32(v) : _mm_cvtepu16_epi32(v);
                q[2 * h + 1] = std::is_signed_v<S> ? _mm_cvtepi16_epi32(hi) : _mm_cvtepu16_epi32(hi);
            }
        } else {
            for (int k = 0; k < 4; ++k) q[k] = load(s + 4 * k);
        }
        for (auto& v : q) v = ints(v);
        store(d, _mm_packus_epi16(_mm_packs_epi32(q[0], q[1]), _mm_packs_epi32(q[2], q[3])));
    }
    D apply(S x) const
    {
        const float y = _mm_cvtss_f32(_mm_mul_ss(_mm_add_ss(_mm_cvtsi32_ss(_mm_setzero_ps(), std::int32_t(x)), _mm_set_ss(kOffset)),
                                                 _mm_set_ss(kFactor)));
        return rnd::clamp_to<D>(_mm_cvtss_si32(_mm_set_ss(y)));
    }
};

// 8u to 32f: vMin + x * factor, the product and the sum each rounded in the current mode.
struct Scale8u32fOp {
    using S = Kel8u;
    using D = Kel32f;
    static constexpr std::size_t kBlock = 16;
    float factor, offset;
    template <class Load, class Store> void block(const S* s, D* d, Load load, Store store) const
    {
        const __m128i v = load(s);
        for (int k = 0; k < 4; ++k) {
            const __m128 x = _mm_cvtepi32_ps(rnd::widen_quarter_epu8(v, k));
            store(d + 4 * k, _mm_add_ps(_mm_mul_ps(x, _mm_set1_ps(factor)), _mm_set1_ps(offset)));
        }
    }
    D apply(S x) const
    {
        const __m128 v = _mm_cvtsi32_ss(_mm_setzero_ps(), x);
        return _mm_cvtss_f32(_mm_add_ss(_mm_mul_ss(v, _mm_set_ss(factor)), _mm_set_ss(offset)));
    }
};

// 32f to 8u: the value limited to [vMin, vMax] (not-a-number becomes vMin), then
// x * factor + offset, converted to the nearest integer under the mode the body sets.
struct Scale32f8uOp {
    using S = Kel32f;
    using D = Kel8u;
    static constexpr std::size_t kBlock = 16;
    float vMin, vMax, factor, offset;
    __m128i ints(__m128 x) const
    {
        x = _mm_min_ps(_mm_max_ps(x, _mm_set1_ps(vMin)), _mm_set1_ps(vMax));
        return _mm_cvtps_epi32(_mm_add_ps(_mm_mul_ps(x, _mm_set1_ps(factor)), _mm_set1_ps(offset)));
    }
    template <class Load, class Store> void block(const S* s, D* d, Load load, Store store) const
    {
        const __m128i a = _mm_packs_epi32(ints(load(s)), ints(load(s + 4)));
        const __m128i b = _mm_packs_epi32(ints(load(s + 8)), ints(load(s + 12)));
        store(d, _mm_packus_epi16(a, b));
    }
    D apply(S x) const
    {
        __m128 v = _mm_min_ss(_mm_max_ss(_mm_set_ss(x), _mm_set_ss(vMin)), _mm_set_ss(vMax));
        v = _mm_add_ss(_mm_mul_ss(v, _mm_set_ss(factor)), _mm_set_ss(offset));
        return rnd::clamp_to<D>(_mm_cvtss_si32(v));
    }
};

}  // namespace keli::rows
