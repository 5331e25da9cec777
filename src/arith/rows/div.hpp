// Division: the ops of keliDiv and keliDivC. An op's apply(x, y) divides x by y; the divisor is
// always the right operand.
//
// keliDiv on integers works in 32f. With a the dividend, b the divisor and n the scale factor,
// the quotient is a * 2^-n / b: the power of two goes to the dividend for n < 0 and to the
// divisor for n > 0, both exactly (a 16-bit value scaled by a power of two is a float). The
// division itself is the reciprocal estimate refined by one Newton step,
//
//     r = rcp(d);  r = r * (2 - d * r);  q = a * r
//
// which is within a few units of the last place of the true quotient, and the quotient is then
// rounded to the nearest integer, ties to even, and saturated. Near a tie the estimate may fall
// on the other side of it (7 / 2 gives 3.4999998, so 3): that is the rule of these members, and
// the scalar applies reach the same bits by running the same steps on one lane (rcpss is rcpps
// on one element). The steps run with the rounding field set to nearest for the call, so the
// conversion to integers rounds by itself and the caller's mode changes no bit. A zero divisor
// is found by comparing the divisor element itself with 0, never through the float result, and
// gives the largest value for a positive dividend, the smallest for a negative one and 0 for 0.
//
// The row loop notes the zero divisors as it reads them (WatchesDivisor), so the warning costs
// no second pass over the divisor.
//
// Two bounds per type take the float path out of the way: from `zeroFrom` on no quotient
// reaches a half, so every element with a non-zero divisor is 0; from `patternTo` down every
// non-zero quotient saturates, so the result is the saturated sign of the quotient. Both still
// read the divisor, for the zero-divisor rule.
//
// keliDivC on integers is exact: the constant is never zero, and the quotient a * 2^-n / v is
// formed in 64f, whose correctly rounded division lands on a tie exactly when the true quotient
// is one and otherwise stays on the true quotient's side of every half; rounding that to the
// nearest integer, ties to even, is the scale-factor rule.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "arith/rows/add_sub.hpp"
#include "arith/rows/scale.hpp"
#include "frame/fp_guard.hpp"
#include "simd/sse.hpp"

namespace keli::rows {

// 8u: 255 / 2^9 is below a half; 2^16 / 255 is above 255 while 2^15 / 255 is not. 16u: 65535 /
// 2^17 is below a half; 2^32 / 65535 saturates, 2^31 / 65535 does not. 16s: |a| / 2^16 is at most
// a half, the tie going to the even 0; 2^30 / 32768 reaches the limits, 2^29 / 32768 does not.
template <class T> constexpr scale::ShortCuts kDivShortCuts{0, 0};
template <> constexpr scale::ShortCuts kDivShortCuts<Kel8u>{9, -16};
template <> constexpr scale::ShortCuts kDivShortCuts<Kel16u>{17, -32};
template <> constexpr scale::ShortCuts kDivShortCuts<Kel16s>{16, -30};

namespace div_detail {

// The result for a zero divisor.
template <class T> constexpr T by_zero(T a) { return T(a > 0 ? scale::highest<T> : a < 0 ? scale::lowest<T> : 0); }

// The same for 32-bit lanes holding dividends.
template <class T> inline __m128i by_zero_epi32(__m128i a)
{
    const __m128i zero = _mm_setzero_si128();
    const __m128i high = _mm_and_si128(_mm_cmpgt_epi32(a, zero), _mm_set1_epi32(scale::highest<T>));
    if constexpr (std::is_signed_v<T>)
        return _mm_or_si128(high, _mm_and_si128(_mm_cmpgt_epi32(zero, a), _mm_set1_epi32(scale::lowest<T>)));
    else return high;
}

// The elements of a register as 32-bit lanes: four quarters (8u) or two halves (16-bit types).
template <class T> inline void widen(__m128i v, __m128i* q)
{
    const __m128i zero = _mm_setzero_si128();
    if constexpr (std::is_same_v<T, Kel8u>) {
        const __m128i lo = _mm_unpacklo_epi8(v, zero), hi = _mm_unpackhi_epi8(v, zero);
        q[0] = _mm_unpacklo_epi16(lo, zero);
        q[1] = _mm_unpackhi_epi16(lo, zero);
        q[2] = _mm_unpacklo_epi16(hi, zero);
        q[3] = _mm_unpackhi_epi16(hi, zero);
    } else if constexpr (std::is_same_v<T, Kel16u>) {
        q[0] = _mm_unpacklo_epi16(v, zero);
        q[1] = _mm_unpackhi_epi16(v, zero);
    } else {
        q[0] = _mm_cvtepi16_epi32(v);
        q[1] = _mm_srai_epi32(_mm_unpackhi_epi16(v, v), 16);
    }
}

// Quarters or halves of 32-bit lanes, each already within the range of T, back into one register.
template <class T> inline __m128i narrow(const __m128i* q)
{
    if constexpr (std::is_same_v<T, Kel8u>) return _mm_packus_epi16(_mm_packs_epi32(q[0], q[1]), _mm_packs_epi32(q[2], q[3]));
    else if constexpr (std::is_same_v<T, Kel16u>) return _mm_packus_epi32(q[0], q[1]);
    else return _mm_packs_epi32(q[0], q[1]);
}

// Runs f on each group of four elements of x and y as 32-bit lanes and packs the results.
template <class T, class F> inline __m128i by_quads(__m128i x, __m128i y, F&& f)
{
    constexpr int K = 4 / int(sizeof(T));
    __m128i a[4], b[4], q[4];
    widen<T>(x, a);
    widen<T>(y, b);
    for (int k = 0; k < K; ++k) q[k] = f(a[k], b[k]);
    return narrow<T>(q);
}

constexpr int kNearest = _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC;

}  // namespace div_detail

// What a zero divisor element is, for the ops that warn of one: the row loop ORs the masks of
// the divisor elements it reads, so the warning costs no second pass over the divisor.
template <class T> struct WatchesDivisor {
    static constexpr bool kWatchesZeros = true;
    static __m128i zero_mask(simd::reg_t<T> y)
    {
        if constexpr (std::is_same_v<T, Kel32f>) return _mm_castps_si128(_mm_cmpeq_ps(y, _mm_setzero_ps()));
        else if constexpr (sizeof(T) == 1) return _mm_cmpeq_epi8(y, _mm_setzero_si128());
        else return _mm_cmpeq_epi16(y, _mm_setzero_si128());
    }
    static bool is_zero(T y) { return y == T(0); }
};


// The results for zero divisors of a register of dividends: the largest value where the
// dividend is positive, the smallest where it is negative, 0 where it is 0.
template <class T> inline __m128i by_zero_elements(__m128i x)
{
    if constexpr (sizeof(T) == 1) return scale::nonzero_epu8(x);
    else if constexpr (std::is_signed_v<T>) return scale::saturated_sign_epi16(x);
    else return scale::nonzero_epu16(x);
}

// patternTo < n < zeroFrom: the quotient by the refined reciprocal. It runs with the rounding
// field set to nearest (with_div_op sees to it), so the conversion rounds ties to even. Packing
// saturates what the conversion leaves in range; only quotients that could leave the 32-bit
// range are clamped in float first, and from above only: a quotient below -2^31 converts to the
// smallest integer, which saturates the same way.
//
// A scale factor is a power of two on one side: Side 0 for none, +1 on the dividend (n < 0),
// -1 on the divisor (n > 0), fixed at compile time so the loop carries no test for it.
template <class E, int Side> struct DivQuotientOp : WatchesDivisor<E> {
    using T = E;
    static constexpr std::size_t kVectorFrom = rows::kVectorFrom<T, true>;

    explicit DivQuotientOp(int n) : scale_(float(std::uint64_t(1) << (n < 0 ? -n : n))) {}

    __m128i apply(__m128i x, __m128i y) const
    {
        const __m128 scale = _mm_set1_ps(scale_), two = _mm_set1_ps(2.0f);
        const __m128i q = div_detail::by_quads<T>(x, y, [&](__m128i a, __m128i b) {
            __m128 num = _mm_cvtepi32_ps(a), den = _mm_cvtepi32_ps(b);
            if constexpr (Side > 0) num = _mm_mul_ps(num, scale);
            if constexpr (Side < 0) den = _mm_mul_ps(den, scale);
            __m128 r = _mm_rcp_ps(den);
            r = _mm_mul_ps(r, _mm_sub_ps(two, _mm_mul_ps(den, r)));
            __m128 v = _mm_mul_ps(num, r);
            if constexpr (kClamps) v = _mm_min_ps(v, _mm_set1_ps(float(scale::highest<T>)));
            return _mm_cvtps_epi32(v);
        });
        // Zero divisors, decided on the elements themselves after the packing.
        return _mm_blendv_epi8(q, by_zero_elements<T>(x), this->zero_mask(y));
    }

    T apply(T x, T y) const
    {
        if (y == 0) return div_detail::by_zero(x);
        float num = float(x), den = float(y);
        if constexpr (Side > 0) num *= scale_;
        if constexpr (Side < 0) den *= scale_;
        float r = _mm_cvtss_f32(_mm_rcp_ss(_mm_set_ss(den)));
        r = r * (2.0f - den * r);
        __m128 v = _mm_set_ss(num * r);
        if constexpr (kClamps) v = _mm_min_ss(v, _mm_set_ss(float(scale::highest<T>)));
        const std::int32_t q = _mm_cvtss_si32(v);
        return static_cast<T>(q < scale::lowest<T> ? scale::lowest<T> : q > scale::highest<T> ? scale::highest<T> : q);
    }

private:
    // Only 16-bit quotients with n < 0 can leave the 32-bit range.
    static constexpr bool kClamps = sizeof(T) == 2 && Side > 0;
    float scale_;
};

// n >= zeroFrom: 0 where the divisor is not zero.
template <class E> struct DivZeroOp : WatchesDivisor<E> {
    using T = E;
    static constexpr std::size_t kVectorFrom = rows::kVectorFrom<T, false>;
    __m128i apply(__m128i x, __m128i y) const
    {
        return _mm_and_si128(by_zero_elements<T>(x), this->zero_mask(y));
    }
    T apply(T x, T y) const { return y == 0 ? div_detail::by_zero(x) : T(0); }
};

// n <= patternTo: the saturated sign of the quotient. Unsigned that is the largest value for
// any non-zero dividend, whatever the divisor; 16s takes the sign of the divisor where it is
// not zero.
template <class E> struct DivSignOp : WatchesDivisor<E> {
    using T = E;
    static constexpr std::size_t kVectorFrom = rows::kVectorFrom<T, false>;
    __m128i apply(__m128i x, __m128i y) const
    {
        if constexpr (std::is_same_v<T, Kel8u>) return scale::nonzero_epu8(x);
        else if constexpr (std::is_same_v<T, Kel16u>) return scale::nonzero_epu16(x);
        else {
            // The sign of the dividend (-1, 0 or 1), flipped where the divisor is negative; y | 1
            // has the divisor's sign and is never zero, so a zero divisor keeps the dividend's.
            const __m128i one = _mm_set1_epi16(1);
            const __m128i flipped = _mm_sign_epi16(_mm_sign_epi16(one, x), _mm_or_si128(y, one));
            return scale::saturated_sign_epi16(flipped);
        }
    }
    T apply(T x, T y) const
    {
        if constexpr (std::is_unsigned_v<T>) {
            return x != 0 ? T(scale::highest<T>) : T(0);
        } else {
            const std::int32_t sign = y < 0 ? -std::int32_t(x) : std::int32_t(x);
            return scale::saturated_sign<T>(sign);
        }
    }
};

// keliDivC, patternTo < n < zeroFrom: the exact quotient by the constant, in 64f.
template <class E> struct DivConstOp {
    using T = E;
    static constexpr std::size_t kVectorFrom = rows::kVectorFrom<T, true>;

    explicit DivConstOp(int n) : up_(n < 0 ? double(std::uint64_t(1) << -n) : 1.0 / double(std::uint64_t(1) << n)) {}

    __m128i apply(__m128i x, __m128i y) const
    {
        return div_detail::by_quads<T>(x, y, [&](__m128i a, __m128i b) {
            const __m128i lo = quotients(a, b), hi = quotients(_mm_srli_si128(a, 8), _mm_srli_si128(b, 8));
            return _mm_unpacklo_epi64(lo, hi);
        });
    }
    T apply(T x, T y) const
    {
        return static_cast<T>(_mm_cvtsi128_si32(quotients(_mm_cvtsi32_si128(x), _mm_cvtsi32_si128(y))));
    }

private:
    // The two low 32-bit lanes of a over those of b, rounded and saturated, in the two low lanes.
    __m128i quotients(__m128i a, __m128i b) const
    {
        // A power of two times a 16-bit value is exact; so is a quotient that is a tie.
        const __m128d q = _mm_div_pd(_mm_mul_pd(_mm_cvtepi32_pd(a), _mm_set1_pd(up_)), _mm_cvtepi32_pd(b));
        const __m128d clamped = _mm_min_pd(_mm_max_pd(q, _mm_set1_pd(scale::lowest<T>)), _mm_set1_pd(scale::highest<T>));
        return _mm_cvttpd_epi32(_mm_round_pd(clamped, div_detail::kNearest));
    }
    double up_;
};

// 32f: one IEEE division an element, in the caller's rounding mode; a zero divisor gives an
// infinity or not-a-number as the standard has it, and a warning.
struct DivFloatOp : WatchesDivisor<Kel32f> {
    using T = Kel32f;
    static constexpr std::size_t kVectorFrom = 12;
    __m128 apply(__m128 x, __m128 y) const { return _mm_div_ps(x, y); }
    T apply(T x, T y) const { return x / y; }
};

// Calls visit(op) with keliDiv's op for scale factor n.
template <class T, class Visit> inline void with_div_op(int n, Visit&& visit)
{
    constexpr scale::ShortCuts b = kDivShortCuts<T>;
    if (n >= b.zeroFrom) visit(DivZeroOp<T>{});
    else if (n <= b.patternTo) visit(DivSignOp<T>{});
    else {
        FpControlGuard nearest;
        nearest.set_rounding(0);
        if (n < 0) visit(DivQuotientOp<T, 1>{n});
        else if (n > 0) visit(DivQuotientOp<T, -1>{n});
        else visit(DivQuotientOp<T, 0>{n});
    }
}

// Calls visit(op) with keliDivC's op for scale factor n below the zero bound (the constant is
// never zero, so the sign op's zero rule never applies).
template <class T, class Visit> inline void with_div_const_op(int n, Visit&& visit)
{
    if (n <= kDivShortCuts<T>.patternTo) visit(DivSignOp<T>{});
    else visit(DivConstOp<T>{n});
}

}  // namespace keli::rows
