// The scale-factor rule of the integer arithmetic, shared by every family that takes a
// `scaleFactor` n: the exact result r of the operation is divided by 2^n (n > 0) with rounding
// to the nearest integer and ties to the even one, or multiplied by 2^-n (n < 0), and then
// saturated to the element type.
//
// Division rounds as (r + (2^(n-1) - 1) + ((r >> n) & 1)) >> n: the bias is one short of a half,
// and the bit that would become the lowest bit of the quotient tops it up to a full half exactly
// when the truncated quotient is odd, so ties go to even and repeated halving stays unbiased.
//
// Every scale factor is legal. A family fixes, per element type, the two bounds beyond which the
// result no longer depends on the shift: from `zeroFrom` on every quotient rounds to 0 (the
// sources need not be read at all), and from `patternTo` down every non-zero r saturates, so the
// result depends only on the sign of r. Shifts out of reach are never executed.
//
// The scalar helpers below are the meaning; the vector helpers compute the same bits 4 or 8
// lanes at a time.
#pragma once

#include <cstdint>
#include <limits>
#include <type_traits>

#include "simd/sse.hpp"

namespace keli::scale {

// ---- bounds ------------------------------------------------------------------------------------

struct ShortCuts {
    int zeroFrom;   // n >= zeroFrom: every result is 0
    int patternTo;  // n <= patternTo: the result is the saturated sign of r
};

template <class T> constexpr std::int32_t lowest = std::numeric_limits<T>::min();
template <class T> constexpr std::int32_t highest = std::numeric_limits<T>::max();

// ---- scalar meaning ----------------------------------------------------------------------------

template <class T, class W> constexpr T saturate(W r)
{
    return static_cast<T>(r < W(lowest<T>) ? W(lowest<T>) : r > W(highest<T>) ? W(highest<T>) : r);
}

// Division by 2 with ties to even: the n == 1 case on its own.
template <class W> constexpr W halve_even(W r) { return (r + ((r >> 1) & 1)) >> 1; }

// Division by 2^n, 1 <= n < bit width of W minus one, ties to even.
template <class W> constexpr W shift_even(W r, int n)
{
    return (r + ((W(1) << (n - 1)) - 1) + ((r >> n) & 1)) >> n;
}

// Multiplication by 2^k, 1 <= k <= 15, saturated to T. Saturating r first changes nothing (a value
// beyond the range stays beyond it when doubled) and keeps the product within 32 bits.
template <class T, class W> constexpr T shift_left_saturate(W r, int k)
{
    return saturate<T>(static_cast<std::int32_t>(saturate<T>(r)) * (std::int32_t(1) << k));
}

// The result once every non-zero r saturates: the largest value, 0, or the smallest value.
template <class T, class W> constexpr T saturated_sign(W r)
{
    return static_cast<T>(r > 0 ? highest<T> : r < 0 ? lowest<T> : 0);
}

// The whole rule for any n, given the family's bounds.
template <class T, class W> constexpr T apply(W r, int n, ShortCuts b)
{
    if (n == 0) return saturate<T>(r);
    if (n >= b.zeroFrom) return T(0);
    if (n == 1) return saturate<T>(halve_even(r));
    if (n > 0) return saturate<T>(shift_even(r, n));
    if (n > b.patternTo) return shift_left_saturate<T>(r, -n);
    return saturated_sign<T>(r);
}

// ---- vector helpers ----------------------------------------------------------------------------

// Division by 2^n with ties to even on 32-bit lanes (any sign) or on 16-bit lanes holding
// non-negative values below 2^15 - 2^(n-1). The bias and the shift count live in registers so
// that one object serves a whole call.
class ShiftEven {
public:
    explicit ShiftEven(int n)
        : count_(_mm_cvtsi32_si128(n)), bias32_(_mm_set1_epi32((1 << (n - 1)) - 1)),
          bias16_(_mm_set1_epi16(static_cast<short>((1 << (n - 1)) - 1)))
    {
    }
    __m128i epi32(__m128i r) const
    {
        const __m128i odd = _mm_and_si128(_mm_srl_epi32(r, count_), _mm_set1_epi32(1));
        return _mm_sra_epi32(_mm_add_epi32(_mm_add_epi32(r, bias32_), odd), count_);
    }
    __m128i epu16(__m128i r) const
    {
        const __m128i odd = _mm_and_si128(_mm_srl_epi16(r, count_), _mm_set1_epi16(1));
        return _mm_srl_epi16(_mm_add_epi16(_mm_add_epi16(r, bias16_), odd), count_);
    }

private:
    __m128i count_, bias32_, bias16_;
};

// Sign extension and zero extension of the low and high halves of a register.
inline __m128i widen_lo_epi16(__m128i v) { return _mm_cvtepi16_epi32(v); }
inline __m128i widen_hi_epi16(__m128i v) { return _mm_srai_epi32(_mm_unpackhi_epi16(v, v), 16); }
inline __m128i widen_lo_epu16(__m128i v) { return _mm_unpacklo_epi16(v, _mm_setzero_si128()); }
inline __m128i widen_hi_epu16(__m128i v) { return _mm_unpackhi_epi16(v, _mm_setzero_si128()); }
inline __m128i widen_lo_epu8(__m128i v) { return _mm_unpacklo_epi8(v, _mm_setzero_si128()); }
inline __m128i widen_hi_epu8(__m128i v) { return _mm_unpackhi_epi8(v, _mm_setzero_si128()); }

// Saturating narrowing of two registers of wider lanes into one of T.
template <class T> inline __m128i narrow(__m128i lo, __m128i hi)
{
    if constexpr (std::is_same_v<T, Kel8u>) return _mm_packus_epi16(lo, hi);
    else if constexpr (std::is_same_v<T, Kel16u>) return _mm_packus_epi32(lo, hi);
    else return _mm_packs_epi32(lo, hi);
}

inline __m128i ones() { return _mm_set1_epi32(-1); }

// Multiplication by 2^k with saturation of lanes that already hold a saturated value of T
// (k from 1 to the width of T minus one). Lanes whose value exceeds the largest one that can be
// doubled k times become the limit; the others are shifted.
class ShiftLeftSaturate {
public:
    template <class T> static ShiftLeftSaturate make(int k)
    {
        ShiftLeftSaturate s;
        s.count_ = _mm_cvtsi32_si128(k);
        if constexpr (std::is_same_v<T, Kel8u>) {
            s.high_ = _mm_set1_epi8(static_cast<char>(255 >> k));
            s.keep_ = _mm_set1_epi8(static_cast<char>((255 << k) & 255));
        } else if constexpr (std::is_same_v<T, Kel16u>) {
            s.high_ = _mm_set1_epi16(static_cast<short>(65535 >> k));
        } else {
            s.high_ = _mm_set1_epi16(static_cast<short>(32767 >> k));
            s.low_ = _mm_set1_epi16(static_cast<short>(-32768 >> k));
        }
        return s;
    }
    __m128i epu8(__m128i s) const
    {
        // Bytes shift inside 16-bit lanes; the bits that cross into the next byte are masked.
        const __m128i shifted = _mm_and_si128(_mm_sll_epi16(s, count_), keep_);
        const __m128i fits = _mm_cmpeq_epi8(_mm_min_epu8(s, high_), s);
        return _mm_or_si128(shifted, _mm_andnot_si128(fits, ones()));
    }
    __m128i epu16(__m128i s) const
    {
        const __m128i fits = _mm_cmpeq_epi16(_mm_min_epu16(s, high_), s);
        return _mm_or_si128(_mm_sll_epi16(s, count_), _mm_andnot_si128(fits, ones()));
    }
    __m128i epi16(__m128i s) const
    {
        __m128i r = _mm_sll_epi16(s, count_);
        r = _mm_blendv_epi8(r, _mm_set1_epi16(32767), _mm_cmpgt_epi16(s, high_));
        return _mm_blendv_epi8(r, _mm_set1_epi16(-32768), _mm_cmpgt_epi16(low_, s));
    }

private:
    __m128i count_{}, high_{}, low_{}, keep_{};
};

// Saturated sign of 16-bit lanes: 32767 above zero, -32768 below, 0 at zero.
inline __m128i saturated_sign_epi16(__m128i s)
{
    const __m128i zero = _mm_setzero_si128();
    return _mm_or_si128(_mm_and_si128(_mm_cmpgt_epi16(s, zero), _mm_set1_epi16(32767)),
                        _mm_and_si128(_mm_cmpgt_epi16(zero, s), _mm_set1_epi16(-32768)));
}

// Largest value where the lane is non-zero, 0 where it is zero (unsigned saturated sign).
inline __m128i nonzero_epu8(__m128i s) { return _mm_andnot_si128(_mm_cmpeq_epi8(s, _mm_setzero_si128()), ones()); }
inline __m128i nonzero_epu16(__m128i s) { return _mm_andnot_si128(_mm_cmpeq_epi16(s, _mm_setzero_si128()), ones()); }

}  // namespace keli::scale
