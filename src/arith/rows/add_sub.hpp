// Saturating addition and subtraction with a scale factor: the ops of keliAdd, keliSub,
// keliAddC and keliSubC. Each op computes x + y or x - y (the bodies put the operands in
// that order), in one of five forms picked once per call from the scale factor n:
//
//   n == 0                   SatOp      saturating vector add or subtract, no widening
//   n == 1                   HalfOp     halving with ties to even, in the element's own width
//   1 < n < zeroFrom         ScaleOp    divided by 2^n through rounding averages, in the element's width
//   patternTo < n < 0        ShiftOp    saturate, multiply by 2^-n, saturate
//   n <= patternTo           SignOp     the saturated sign of the exact result
//
// n >= zeroFrom has no op: the result is 0 and the bodies fill the destination without
// reading the sources. In the unsigned types a difference below zero becomes 0 before it
// is scaled, so that it can never round to anything else.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "arith/rows/scale.hpp"
#include "simd/sse.hpp"

namespace keli::rows {

enum class AddSub { Add, Sub };

// Where the result stops depending on the scale factor, by family and element type. The
// exact result lies in [0, 510] for 8u addition, [0, 255] for 8u subtraction after the clamp,
// [0, 131070] and [0, 65535] for 16u, and within +-65536 for 16s.
// inline: several bindings include these tables, and each explicit specialisation must be
// one definition for the linker.
template <AddSub K, class T> inline constexpr scale::ShortCuts kAddSubShortCuts{0, 0};
template <> inline constexpr scale::ShortCuts kAddSubShortCuts<AddSub::Add, Kel8u>{10, -8};
template <> inline constexpr scale::ShortCuts kAddSubShortCuts<AddSub::Sub, Kel8u>{9, -8};
template <> inline constexpr scale::ShortCuts kAddSubShortCuts<AddSub::Add, Kel16u>{18, -16};
template <> inline constexpr scale::ShortCuts kAddSubShortCuts<AddSub::Sub, Kel16u>{17, -16};
template <> inline constexpr scale::ShortCuts kAddSubShortCuts<AddSub::Add, Kel16s>{17, -16};
template <> inline constexpr scale::ShortCuts kAddSubShortCuts<AddSub::Sub, Kel16s>{17, -16};

// The exact result in 32 bits, clamped at 0 for unsigned subtraction.
template <AddSub K, class T> constexpr std::int32_t exact(T x, T y)
{
    const std::int32_t r = K == AddSub::Add ? std::int32_t(x) + y : std::int32_t(x) - y;
    return std::is_unsigned_v<T> && r < 0 ? 0 : r;
}

// Saturating add or subtract of whole registers; for unsigned subtraction this is also the
// clamped exact difference.
template <AddSub K, class T> inline __m128i saturating(__m128i x, __m128i y)
{
    if constexpr (std::is_same_v<T, Kel8u>) return K == AddSub::Add ? _mm_adds_epu8(x, y) : _mm_subs_epu8(x, y);
    else if constexpr (std::is_same_v<T, Kel16u>)
        return K == AddSub::Add ? _mm_adds_epu16(x, y) : _mm_subs_epu16(x, y);
    else return K == AddSub::Add ? _mm_adds_epi16(x, y) : _mm_subs_epi16(x, y);
}

// Vector threshold: 8u kernels that stay in 8-bit lanes go to vector code from 47 elements, those
// that widen from 31; the wider types from the same number of bytes.
template <class T, bool Widening> constexpr std::size_t kVectorFrom = (Widening ? 31 : 47) / sizeof(T);

template <AddSub K, class E> struct SatOp {
    using T = E;
    static constexpr std::size_t kVectorFrom = rows::kVectorFrom<T, false>;
    __m128i apply(__m128i x, __m128i y) const { return saturating<K, T>(x, y); }
    T apply(T x, T y) const { return scale::saturate<T>(exact<K, T>(x, y)); }
};

// n == 1. The halves are formed without widening: x + y == 2 (x & y) + (x ^ y) and
// x - y == (x ^ y) - 2 (~x & y), so floor(r / 2) is (x & y) + ((x ^ y) >> 1) or
// ((x ^ y) >> 1) - (~x & y), the dropped bit is (x ^ y) & 1, and a dropped half rounds the floor
// up exactly when the floor is odd.
template <AddSub K, class E> struct HalfOp {
    using T = E;
    static constexpr std::size_t kVectorFrom = rows::kVectorFrom<T, false>;
    __m128i apply(__m128i x, __m128i y) const
    {
        if constexpr (std::is_unsigned_v<T> && K == AddSub::Sub) {
            const __m128i d = saturating<K, T>(x, y);  // max(x - y, 0)
            __m128i h = _mm_srli_epi16(d, 1);
            if constexpr (sizeof(T) == 1) h = _mm_and_si128(h, _mm_set1_epi8(0x7F));
            return add(h, _mm_and_si128(_mm_and_si128(d, h), one()));
        } else {
            const __m128i diff = _mm_xor_si128(x, y);
            if constexpr (std::is_unsigned_v<T>) {
                // The average rounds every dropped half up; it must come down again where that
                // made it odd.
                const __m128i up = sizeof(T) == 1 ? _mm_avg_epu8(x, y) : _mm_avg_epu16(x, y);
                const __m128i down = _mm_and_si128(_mm_and_si128(diff, up), one());
                return sizeof(T) == 1 ? _mm_sub_epi8(up, down) : _mm_sub_epi16(up, down);
            } else {
                const __m128i dropped = _mm_and_si128(diff, one());
                const __m128i floor = K == AddSub::Add
                                          ? _mm_add_epi16(_mm_and_si128(x, y), _mm_srai_epi16(diff, 1))
                                          : _mm_sub_epi16(_mm_srai_epi16(diff, 1), _mm_andnot_si128(x, y));
                return add(floor, _mm_and_si128(dropped, floor));
            }
        }
    }
    T apply(T x, T y) const { return scale::saturate<T>(scale::halve_even(exact<K, T>(x, y))); }

private:
    static __m128i one() { return sizeof(T) == 1 ? _mm_set1_epi8(1) : _mm_set1_epi16(1); }
    // Only a 16s difference of 65535, halved to 32767.5 and rounded up, can leave the range; it
    // saturates.
    static __m128i add(__m128i a, __m128i b)
    {
        if constexpr (sizeof(T) == 1) return _mm_add_epi8(a, b);
        else if constexpr (std::is_same_v<T, Kel16u>) return _mm_add_epi16(a, b);
        else return _mm_adds_epi16(a, b);
    }
};

// 1 < n < zeroFrom, without widening. With h = floor(r / 2) and b the bit that halving drops,
// r = 2h + b, and dividing by 2^n with ties to even,
//
//     (r + 2^(n-1) - 1 + q0) >> n  ==  (h + 2^(n-2) - s) >> (n-1),
//
// where q0 is the lowest bit of the quotient (bit n-1 of h) and s is 1 exactly when b and q0
// are both 0. h fits the element's own width: the rounding average gives it directly, for 16s
// on values biased by 2^15 (bit n-1 of h is then bit n-1 of the biased h, except at n = 16 where
// the bias flips it). The last step is one more average, (h - s + 2^(n-2)) >> 1, and a shift by
// n - 2; h - s saturates at 0 where that changes nothing (2^(n-2) < 2^(n-1)). Every result is
// within the type's range here, so none needs saturating.
template <AddSub K, class E> struct ScaleOp {
    using T = E;
    static constexpr std::size_t kVectorFrom = rows::kVectorFrom<T, false>;
    static constexpr bool kBytes = sizeof(T) == 1;

    explicit ScaleOp(int n) : n_(n), count_(_mm_cvtsi32_si128(n - 2))
    {
        if constexpr (kBytes) {
            one_ = _mm_set1_epi8(1);
            bias_ = _mm_set1_epi8(static_cast<char>((1 << (n - 2)) - 1));
            q0_ = _mm_set1_epi8(static_cast<char>((1 << (n - 1)) & 0xFF));
            keep_ = _mm_set1_epi8(static_cast<char>(0xFF >> (n - 2)));
        } else {
            one_ = _mm_set1_epi16(1);
            bias_ = _mm_set1_epi16(static_cast<short>((1 << (n - 2)) - 1));
            q0_ = _mm_set1_epi16(static_cast<short>((1 << (n - 1)) & 0xFFFF));
            if constexpr (std::is_signed_v<T>) {
                flip_ = _mm_set1_epi16(static_cast<short>(n == 16 ? 0x8000 : 0));
                offset_ = _mm_set1_epi16(static_cast<short>(1 << (16 - n)));
            }
        }
    }

    __m128i apply(__m128i x, __m128i y) const
    {
        __m128i h, b;  // floor(r / 2) and the dropped bit; for 16s h carries the bias 2^15
        if constexpr (std::is_unsigned_v<T> && K == AddSub::Sub) {
            const __m128i d = saturating<K, T>(x, y);  // max(x - y, 0)
            b = _mm_and_si128(d, one_);
            h = kBytes ? _mm_sub_epi8(_mm_avg_epu8(d, _mm_setzero_si128()), b) : _mm_srli_epi16(d, 1);
        } else if constexpr (std::is_unsigned_v<T>) {
            b = _mm_and_si128(_mm_xor_si128(x, y), one_);
            h = kBytes ? _mm_sub_epi8(_mm_avg_epu8(x, y), b) : _mm_sub_epi16(_mm_avg_epu16(x, y), b);
        } else {
            // x + 2^15 and y + 2^15 average to ceil(r / 2) + 2^15; x + 2^15 and 2^15 - 1 - y
            // to floor(r / 2) + 2^15 for the difference.
            const __m128i sign = _mm_set1_epi16(-32768);
            b = _mm_and_si128(_mm_xor_si128(x, y), one_);
            if constexpr (K == AddSub::Add)
                h = _mm_sub_epi16(_mm_avg_epu16(_mm_xor_si128(x, sign), _mm_xor_si128(y, sign)), b);
            else
                h = _mm_avg_epu16(_mm_xor_si128(x, sign), _mm_xor_si128(y, _mm_set1_epi16(0x7FFF)));
        }
        __m128i q0 = std::is_signed_v<T> ? _mm_xor_si128(h, flip_) : h;
        q0 = _mm_and_si128(q0, q0_);
        const __m128i zero = _mm_setzero_si128();
        const __m128i both0 = kBytes ? _mm_cmpeq_epi8(_mm_or_si128(b, q0), zero) : _mm_cmpeq_epi16(_mm_or_si128(b, q0), zero);
        const __m128i s = _mm_and_si128(both0, one_);
        if constexpr (kBytes) {
            const __m128i a = _mm_avg_epu8(_mm_subs_epu8(h, s), bias_);
            return _mm_and_si128(_mm_srl_epi16(a, count_), keep_);
        } else {
            const __m128i a = _mm_srl_epi16(_mm_avg_epu16(_mm_subs_epu16(h, s), bias_), count_);
            return std::is_signed_v<T> ? _mm_sub_epi16(a, offset_) : a;
        }
    }
    T apply(T x, T y) const { return scale::saturate<T>(scale::shift_even(exact<K, T>(x, y), n_)); }

private:
    int n_;
    __m128i count_, one_, bias_, q0_, keep_{}, flip_{}, offset_{};
};

// patternTo < n < 0: multiply the saturated result by 2^-n and saturate again.
template <AddSub K, class E> struct ShiftOp {
    using T = E;
    static constexpr std::size_t kVectorFrom = rows::kVectorFrom<T, false>;
    explicit ShiftOp(int k) : k_(k), shift_(scale::ShiftLeftSaturate::make<T>(k)) {}

    __m128i apply(__m128i x, __m128i y) const
    {
        const __m128i s = saturating<K, T>(x, y);
        if constexpr (std::is_same_v<T, Kel8u>) return shift_.epu8(s);
        else if constexpr (std::is_same_v<T, Kel16u>) return shift_.epu16(s);
        else return shift_.epi16(s);
    }
    T apply(T x, T y) const { return scale::shift_left_saturate<T>(exact<K, T>(x, y), k_); }

private:
    int k_;
    scale::ShiftLeftSaturate shift_;
};

// n <= patternTo: every non-zero result saturates. A saturated sum or difference has the sign
// of the exact one, so the saturating operation decides.
template <AddSub K, class E> struct SignOp {
    using T = E;
    static constexpr std::size_t kVectorFrom = rows::kVectorFrom<T, false>;
    __m128i apply(__m128i x, __m128i y) const
    {
        if constexpr (std::is_same_v<T, Kel8u>)
            return scale::nonzero_epu8(K == AddSub::Add ? _mm_or_si128(x, y) : saturating<K, T>(x, y));
        else if constexpr (std::is_same_v<T, Kel16u>)
            return scale::nonzero_epu16(K == AddSub::Add ? _mm_or_si128(x, y) : saturating<K, T>(x, y));
        else return scale::saturated_sign_epi16(saturating<K, T>(x, y));
    }
    T apply(T x, T y) const { return scale::saturated_sign<T>(exact<K, T>(x, y)); }
};

// 32f: one IEEE addition or subtraction an element, in the caller's rounding mode, with no
// branch on the data.
template <AddSub K> struct FloatOp {
    using T = Kel32f;
    static constexpr std::size_t kVectorFrom = 12;
    __m128 apply(__m128 x, __m128 y) const { return K == AddSub::Add ? _mm_add_ps(x, y) : _mm_sub_ps(x, y); }
    T apply(T x, T y) const { return K == AddSub::Add ? x + y : x - y; }
};

// Calls visit(op) with the op of scale factor n, for n below the family's zero bound.
template <AddSub K, class T, class Visit> inline void with_scale_op(int n, Visit&& visit)
{
    constexpr scale::ShortCuts b = kAddSubShortCuts<K, T>;
    if (n == 0) visit(SatOp<K, T>{});
    else if (n == 1) visit(HalfOp<K, T>{});
    else if (n > 1) visit(ScaleOp<K, T>{n});
    else if (n > b.patternTo) visit(ShiftOp<K, T>{-n});
    else visit(SignOp<K, T>{});
}

}  // namespace keli::rows
