// Division with a rounding mode: the ops of keliDiv_Round. With a the dividend, b the divisor and
// n the scale factor, q = a * 2^-n / b in 64f, where 2^-n is a 32f built straight from its
// exponent field, so that the product is exact. Clamped to the type's range, q becomes an
// integer by the mode's conversion (a signed half added and truncated for the financial mode,
// the processor's rounding field, set by the body, for the others).
//
// The 64f quotient never lands on the wrong side of a whole or a half: below the clamp |q| is
// under 2^16, whose unit in the last place is 2^-37 at most, while a quotient that is not a whole
// or a half lies at least 1 / (2 b 2^n) >= 2^-33 away from the nearest one. So each mode rounds
// the exact quotient, whatever the rounding of the division itself.
//
// A zero divisor element is found on the element itself and gives the saturated sign of the
// dividend; its lane divides by 1 instead, so that no division by zero is ever executed. The
// scale factors out of reach use keliDiv's ops: from `zeroFrom` on every quotient with a non-zero
// divisor is below a half (for 16s even in the financial mode, so the bound there is one above
// keliDiv's), from `patternTo` down every non-zero quotient saturates.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "arith/rows/add_sub.hpp"
#include "arith/rows/div.hpp"
#include "arith/rows/mul_c64f.hpp"
#include "arith/rows/scale.hpp"
#include "simd/sse.hpp"

namespace keli::rows {

// 8u: 255 / 2^9 is below a half; 2^16 / 255 saturates. 16u: 65535 / 2^17 is below a half; 2^32 /
// 65535 saturates. 16s: 32768 / 2^17 is a quarter; 2^30 / 32768 reaches the limits.
template <class T> constexpr scale::ShortCuts kDivRoundShortCuts{0, 0};
template <> constexpr scale::ShortCuts kDivRoundShortCuts<Kel8u>{9, -16};
template <> constexpr scale::ShortCuts kDivRoundShortCuts<Kel16u>{17, -32};
template <> constexpr scale::ShortCuts kDivRoundShortCuts<Kel16s>{17, -30};

namespace div_round_detail {

// 2^-n as a 32f from its exponent field (n within the bounds above, so the float is normal).
inline double power_of_two(int n)
{
    const std::uint32_t bits = std::uint32_t(127 - n) << 23;
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return double(f);
}

}  // namespace div_round_detail

// patternTo < n < zeroFrom.
template <class E, class Round> struct DivRoundOp : WatchesDivisor<E> {
    using T = E;
    static constexpr std::size_t kVectorFrom = rows::kVectorFrom<T, true>;

    explicit DivRoundOp(int n) : f_(div_round_detail::power_of_two(n)) {}

    __m128i apply(__m128i x, __m128i y) const
    {
        using namespace mul_c64f_detail;
        constexpr int K = 4 / int(sizeof(T));
        const __m128d f = _mm_set1_pd(f_);
        __m128i q[4];
        for (int k = 0; k < K; ++k) {
            const __m128i a = quad<T>(x, k), b0 = quad<T>(y, k);
            const __m128i b = _mm_sub_epi32(b0, _mm_cmpeq_epi32(b0, _mm_setzero_si128()));  // 0 -> 1
            const __m128d lo = _mm_div_pd(_mm_mul_pd(_mm_cvtepi32_pd(a), f), _mm_cvtepi32_pd(b));
            const __m128d hi = _mm_div_pd(_mm_mul_pd(_mm_cvtepi32_pd(_mm_srli_si128(a, 8)), f),
                                          _mm_cvtepi32_pd(_mm_srli_si128(b, 8)));
            q[k] = _mm_unpacklo_epi64(Round::pd(clamp<T>(lo)), Round::pd(clamp<T>(hi)));
        }
        return _mm_blendv_epi8(pack<T>(q), by_zero_elements<T>(x), this->zero_mask(y));
    }

    T apply(T x, T y) const
    {
        if (y == 0) return div_detail::by_zero(x);
        if (x == 0) return T(0);
        const __m128d q = _mm_div_sd(_mm_mul_sd(_mm_set_sd(double(x)), _mm_set_sd(f_)), _mm_set_sd(double(y)));
        return static_cast<T>(Round::sd(mul_c64f_detail::clamp_sd<T>(q)));
    }

private:
    double f_;
};

// Calls visit(op) with keliDiv_Round's op for scale factor n.
template <class T, class Round, class Visit> inline void with_div_round_op(int n, Visit&& visit)
{
    constexpr scale::ShortCuts b = kDivRoundShortCuts<T>;
    if (n >= b.zeroFrom) visit(DivZeroOp<T>{});
    else if (n <= b.patternTo) visit(DivSignOp<T>{});
    else visit(DivRoundOp<T, Round>{n});
}

}  // namespace keli::rows
