// Multiplication with a scale factor: the ops of keliMul and keliMulC. The exact product r of
// two elements (at most 65025 for 8u, within 32 signed bits for 16s and 32 unsigned bits for
// 16u) follows the scale-factor rule of the arithmetic, in one of four forms picked once per
// call from the scale factor n:
//
//   n == 0                   MulSatOp     the product saturated
//   0 < n < zeroFrom         MulScaleOp   the product divided by 2^n, ties to even, saturated
//   patternTo < n < 0        MulShiftOp   saturate, multiply by 2^-n, saturate
//   n <= patternTo           MulSignOp    the saturated sign of the product
//
// n >= zeroFrom has no op: every quotient rounds to 0 and the bodies fill the destination.
// The scalar applies compute the product in 64 bits and apply the rule directly; the vector
// applies reach the same bits in the narrowest lanes that hold the product.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "arith/rows/add_sub.hpp"
#include "arith/rows/scale.hpp"
#include "simd/sse.hpp"

namespace keli::rows {

// Where the product stops depending on the scale factor. 8u: 65025 / 2^17 is below a half,
// and a non-zero product is at least 1, which 2^8 saturates. 16s: |r| <= 2^30, a half of 2^31
// at most, which rounds to the even 0; 2^15 saturates any non-zero product. 16u: r < 2^32, so
// r / 2^33 is below a half; 2^16 saturates any non-zero product.
// inline: several bindings include these tables, and each explicit specialisation must be
// one definition for the linker.
template <class T> inline constexpr scale::ShortCuts kMulShortCuts{0, 0};
template <> inline constexpr scale::ShortCuts kMulShortCuts<Kel8u>{17, -8};
template <> inline constexpr scale::ShortCuts kMulShortCuts<Kel16u>{33, -16};
template <> inline constexpr scale::ShortCuts kMulShortCuts<Kel16s>{31, -15};

template <class T> constexpr std::int64_t product(T x, T y) { return std::int64_t(x) * std::int64_t(y); }

namespace mul_detail {

// The two 32-bit halves of the products of 16-bit lanes: elements 0-3 and 4-7.
template <class T> inline void products32(__m128i x, __m128i y, __m128i& p0, __m128i& p1)
{
    const __m128i lo = _mm_mullo_epi16(x, y);
    const __m128i hi = std::is_same_v<T, Kel16s> ? _mm_mulhi_epi16(x, y) : _mm_mulhi_epu16(x, y);
    p0 = _mm_unpacklo_epi16(lo, hi);
    p1 = _mm_unpackhi_epi16(lo, hi);
}

// The products of 8u lanes as two registers of 16-bit lanes (exact: at most 65025).
inline void products16(__m128i x, __m128i y, __m128i& p0, __m128i& p1)
{
    p0 = _mm_mullo_epi16(scale::widen_lo_epu8(x), scale::widen_lo_epu8(y));
    p1 = _mm_mullo_epi16(scale::widen_hi_epu8(x), scale::widen_hi_epu8(y));
}

// The saturated product of a whole register.
template <class T> inline __m128i saturated_product(__m128i x, __m128i y)
{
    if constexpr (std::is_same_v<T, Kel8u>) {
        __m128i p0, p1;
        products16(x, y, p0, p1);
        // packus reads its lanes as signed: products from 32768 on are brought to 255 first.
        const __m128i top = _mm_set1_epi16(255);
        return _mm_packus_epi16(_mm_min_epu16(p0, top), _mm_min_epu16(p1, top));
    } else if constexpr (std::is_same_v<T, Kel16u>) {
        // A non-zero high half means the product is beyond 65535.
        const __m128i hi = _mm_mulhi_epu16(x, y);
        return _mm_or_si128(_mm_mullo_epi16(x, y), scale::nonzero_epu16(hi));
    } else {
        __m128i p0, p1;
        products32<T>(x, y, p0, p1);
        return _mm_packs_epi32(p0, p1);
    }
}

// Unsigned division by 2^n with ties to even, without the sum of the bias ever overflowing the
// lane: the quotient q = r >> n is kept apart and the remainder alone gets the bias and q's
// lowest bit, so the carry out of the remainder is the rounding increment.
class ShiftEvenUnsigned {
public:
    explicit ShiftEvenUnsigned(int n)
        : count_(_mm_cvtsi32_si128(n)), mask32_(_mm_set1_epi32(static_cast<int>((std::uint32_t(1) << n) - 1))),
          bias32_(_mm_set1_epi32((1 << (n - 1)) - 1)),
          mask16_(_mm_set1_epi16(static_cast<short>((1u << (n & 15)) - 1))),
          bias16_(_mm_set1_epi16(static_cast<short>((1 << ((n - 1) & 15)) - 1)))
    {
    }
    // 32-bit lanes, 1 <= n <= 31.
    __m128i epu32(__m128i r) const
    {
        const __m128i q = _mm_srl_epi32(r, count_);
        const __m128i t = _mm_add_epi32(_mm_and_si128(r, mask32_), _mm_add_epi32(bias32_, _mm_and_si128(q, one32())));
        return _mm_add_epi32(q, _mm_srl_epi32(t, count_));
    }
    // 16-bit lanes, 1 <= n <= 15.
    __m128i epu16(__m128i r) const
    {
        const __m128i q = _mm_srl_epi16(r, count_);
        const __m128i t = _mm_add_epi16(_mm_and_si128(r, mask16_), _mm_add_epi16(bias16_, _mm_and_si128(q, one16())));
        return _mm_add_epi16(q, _mm_srl_epi16(t, count_));
    }

private:
    static __m128i one32() { return _mm_set1_epi32(1); }
    static __m128i one16() { return _mm_set1_epi16(1); }
    __m128i count_, mask32_, bias32_, mask16_, bias16_;
};

}  // namespace mul_detail

// n == 0.
template <class E> struct MulSatOp {
    using T = E;
    static constexpr std::size_t kVectorFrom = rows::kVectorFrom<T, true>;
    __m128i apply(__m128i x, __m128i y) const { return mul_detail::saturated_product<T>(x, y); }
    T apply(T x, T y) const { return scale::saturate<T>(product(x, y)); }
};

// 0 < n < zeroFrom.
template <class E> struct MulScaleOp {
    using T = E;
    static constexpr std::size_t kVectorFrom = rows::kVectorFrom<T, true>;
    explicit MulScaleOp(int n) : n_(n), signed_(n < 31 ? n : 1), unsigned_(n < 32 ? n : 1) {}

    __m128i apply(__m128i x, __m128i y) const
    {
        using namespace mul_detail;
        if constexpr (std::is_same_v<T, Kel8u>) {
            __m128i p0, p1;
            products16(x, y, p0, p1);
            if (n_ == 16) {
                // r / 65536 < 1: 1 above a half, and the tie at 32768 goes to the even 0.
                const __m128i half = _mm_set1_epi16(static_cast<short>(32769));
                const __m128i one = _mm_set1_epi16(1);
                p0 = _mm_and_si128(_mm_cmpeq_epi16(_mm_max_epu16(p0, half), p0), one);
                p1 = _mm_and_si128(_mm_cmpeq_epi16(_mm_max_epu16(p1, half), p1), one);
                return _mm_packus_epi16(p0, p1);
            }
            // From n == 1 on every quotient is below 32768, which packus takes as it is.
            return _mm_packus_epi16(unsigned_.epu16(p0), unsigned_.epu16(p1));
        } else if constexpr (std::is_same_v<T, Kel16s>) {
            __m128i p0, p1;
            products32<T>(x, y, p0, p1);
            return _mm_packs_epi32(signed_.epi32(p0), signed_.epi32(p1));
        } else {
            if (n_ == 16) {
                // The high half of the product is the truncated quotient and the low half the
                // remainder: the remainder plus 32767 plus the quotient's lowest bit carries out
                // of 16 bits exactly when the quotient rounds up (never past 65535: the high
                // half of a 16u product is at most 65534).
                const __m128i lo = _mm_mullo_epi16(x, y), hi = _mm_mulhi_epu16(x, y);
                const __m128i add = _mm_add_epi16(_mm_set1_epi16(32767), _mm_and_si128(hi, _mm_set1_epi16(1)));
                const __m128i sum = _mm_add_epi16(lo, add);
                const __m128i noCarry = _mm_cmpeq_epi16(_mm_max_epu16(sum, lo), sum);
                return _mm_sub_epi16(hi, _mm_andnot_si128(noCarry, scale::ones()));
            }
            __m128i p0, p1;
            products32<T>(x, y, p0, p1);
            if (n_ == 32) {
                // r / 2^32 < 1: 1 above a half, the tie at 2^31 to the even 0.
                const __m128i flip = _mm_set1_epi32(static_cast<int>(0x80000000u)), one = _mm_set1_epi32(1);
                p0 = _mm_and_si128(_mm_cmpgt_epi32(_mm_xor_si128(p0, flip), _mm_setzero_si128()), one);
                p1 = _mm_and_si128(_mm_cmpgt_epi32(_mm_xor_si128(p1, flip), _mm_setzero_si128()), one);
                return _mm_packus_epi32(p0, p1);
            }
            // From n == 1 on every quotient is below 2^31, which packus takes as it is.
            return _mm_packus_epi32(unsigned_.epu32(p0), unsigned_.epu32(p1));
        }
    }
    T apply(T x, T y) const { return scale::saturate<T>(scale::shift_even(product(x, y), n_)); }

private:
    int n_;
    scale::ShiftEven signed_;
    mul_detail::ShiftEvenUnsigned unsigned_;
};

// patternTo < n < 0.
template <class E> struct MulShiftOp {
    using T = E;
    static constexpr std::size_t kVectorFrom = rows::kVectorFrom<T, true>;
    explicit MulShiftOp(int k) : k_(k), shift_(scale::ShiftLeftSaturate::make<T>(k)) {}

    __m128i apply(__m128i x, __m128i y) const
    {
        const __m128i s = mul_detail::saturated_product<T>(x, y);
        if constexpr (std::is_same_v<T, Kel8u>) return shift_.epu8(s);
        else if constexpr (std::is_same_v<T, Kel16u>) return shift_.epu16(s);
        else return shift_.epi16(s);
    }
    T apply(T x, T y) const { return scale::shift_left_saturate<T>(product(x, y), k_); }

private:
    int k_;
    scale::ShiftLeftSaturate shift_;
};

// n <= patternTo: 0 where an operand is 0, otherwise the largest value, or for 16s the
// largest value for equal signs and the smallest for differing ones. No product is formed.
template <class E> struct MulSignOp {
    using T = E;
    static constexpr std::size_t kVectorFrom = rows::kVectorFrom<T, false>;
    __m128i apply(__m128i x, __m128i y) const
    {
        if constexpr (std::is_same_v<T, Kel8u>) return _mm_and_si128(scale::nonzero_epu8(x), scale::nonzero_epu8(y));
        else if constexpr (std::is_same_v<T, Kel16u>)
            return _mm_and_si128(scale::nonzero_epu16(x), scale::nonzero_epu16(y));
        else {
            const __m128i zero = _mm_setzero_si128();
            const __m128i differ = _mm_srai_epi16(_mm_xor_si128(x, y), 15);
            const __m128i limit = _mm_xor_si128(differ, _mm_set1_epi16(32767));  // -32768 where the signs differ
            const __m128i anyZero = _mm_or_si128(_mm_cmpeq_epi16(x, zero), _mm_cmpeq_epi16(y, zero));
            return _mm_andnot_si128(anyZero, limit);
        }
    }
    T apply(T x, T y) const { return scale::saturated_sign<T>(product(x, y)); }
};

// 32f: one IEEE multiplication an element, in the caller's rounding mode.
struct MulFloatOp {
    using T = Kel32f;
    static constexpr std::size_t kVectorFrom = 12;
    __m128 apply(__m128 x, __m128 y) const { return _mm_mul_ps(x, y); }
    T apply(T x, T y) const { return x * y; }
};

// Calls visit(op) with the op of scale factor n, for n below the zero bound.
template <class T, class Visit> inline void with_mul_op(int n, Visit&& visit)
{
    constexpr scale::ShortCuts b = kMulShortCuts<T>;
    if (n == 0) visit(MulSatOp<T>{});
    else if (n > 0) visit(MulScaleOp<T>{n});
    else if (n > b.patternTo) visit(MulShiftOp<T>{-n});
    else visit(MulSignOp<T>{});
}

}  // namespace keli::rows
