// Normalising multiplication: the op of keliMulScale and keliMulCScale, which read the largest
// value of the type as 1.0. With r = a * b exact in 32 bits the result is
//
//     8u:  (r + 1 + (r >> 8)) >> 8          16u: (r + 1 + (r >> 16)) >> 16
//
// r + (r >> k) is r * (1 + 2^-k), the first two terms of r / (2^k - 1) = r * 2^-k * (1 + 2^-k +
// 2^-2k + ...), and the extra 1 makes up for the dropped terms: the result is exactly the
// truncated quotient r / 255 (r / 65535), reached without a multiplication or a division. The
// largest value times the largest value is the largest value again, anything times 0 is 0, and
// no result can exceed the type, so nothing saturates.
// Neither sum leaves its lane: 65025 + 1 + 254 < 2^16 and (2^16 - 1)^2 + 1 + 65533 < 2^32.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "arith/rows/add_sub.hpp"
#include "arith/rows/scale.hpp"
#include "simd/sse.hpp"

namespace keli::rows {

template <class E> struct MulNormOp {
    static_assert(std::is_same_v<E, Kel8u> || std::is_same_v<E, Kel16u>);
    using T = E;
    static constexpr std::size_t kVectorFrom = rows::kVectorFrom<T, true>;

    __m128i apply(__m128i x, __m128i y) const
    {
        if constexpr (std::is_same_v<T, Kel8u>) {
            // Products of bytes in 16-bit lanes; the sum stays below 2^16, so logical shifts
            // treat it as unsigned and the quotients (at most 255) pack as they are.
            const __m128i one = _mm_set1_epi16(1);
            const __m128i p0 = _mm_mullo_epi16(scale::widen_lo_epu8(x), scale::widen_lo_epu8(y));
            const __m128i p1 = _mm_mullo_epi16(scale::widen_hi_epu8(x), scale::widen_hi_epu8(y));
            const __m128i q0 = _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(p0, one), _mm_srli_epi16(p0, 8)), 8);
            const __m128i q1 = _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(p1, one), _mm_srli_epi16(p1, 8)), 8);
            return _mm_packus_epi16(q0, q1);
        } else {
            // In 16-bit lanes: r = hi * 2^16 + lo, so r >> 16 is hi and (r + 1 + hi) >> 16 is hi
            // plus the carry out of lo + (hi + 1). hi is at most 65534, so hi + 1 does not wrap and
            // is never 0: the sum wraps below lo exactly when it carries.
            const __m128i lo = _mm_mullo_epi16(x, y), hi = _mm_mulhi_epu16(x, y);
            const __m128i sum = _mm_add_epi16(lo, _mm_add_epi16(hi, _mm_set1_epi16(1)));
            const __m128i carry = _mm_cmpeq_epi16(_mm_max_epu16(sum, lo), lo);  // all ones where it wrapped
            return _mm_sub_epi16(hi, carry);
        }
    }

    T apply(T x, T y) const
    {
        constexpr int k = 8 * int(sizeof(T));
        const std::uint32_t r = std::uint32_t(x) * std::uint32_t(y);
        return static_cast<T>((r + 1 + (r >> k)) >> k);
    }
};

}  // namespace keli::rows
