// Absolute value ops. 16s saturates: -32768 has no positive twin and becomes 32767.
// 32f clears the sign bit alone, so not-a-number payloads and infinities pass unchanged.
#pragma once

#include <cstdint>
#include <cstring>

#include "simd/sse.hpp"

namespace keli::rows {

template <class T> struct AbsOp;

template <> struct AbsOp<Kel16s> {
    using T = Kel16s;
    static __m128i apply(__m128i a) { return _mm_abs_epi16(_mm_max_epi16(a, _mm_set1_epi16(-32767))); }
    static T apply(T a) { return static_cast<T>(a < 0 ? (a == -32768 ? 32767 : -a) : a); }
};

template <> struct AbsOp<Kel32f> {
    using T = Kel32f;
    static __m128 apply(__m128 a) { return _mm_and_ps(a, _mm_castsi128_ps(_mm_set1_epi32(0x7FFFFFFF))); }
    static T apply(T a)
    {
        std::uint32_t bits;
        std::memcpy(&bits, &a, sizeof bits);
        bits &= 0x7FFFFFFFu;
        std::memcpy(&a, &bits, sizeof bits);
        return a;
    }
};

}  // namespace keli::rows
