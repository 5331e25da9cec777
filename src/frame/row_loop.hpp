// Row loops: one run of elements through an op struct.
//
// An op holds both meanings of an operation, the vector one and the scalar one:
//
//     struct SomeOp {
//         using T = Kel16s;                                  // element type of the run
//         static simd::reg_t<T> apply(simd::reg_t<T> a);     // 16 bytes at a time
//         static T apply(T a);                               // one element
//     };
//
// The loop handles the elements before the destination's 16-byte boundary with the scalar
// apply, runs the vector apply with aligned stores (with a separate loop for aligned and
// unaligned sources), and finishes with the scalar apply. Head, body and tail therefore agree
// element for element by construction, and no element is ever written twice, so in-place runs
// of operations that are not idempotent stay correct.
#pragma once

#include <cstddef>

#include "simd/sse.hpp"

namespace keli {

// Runs shorter than this many vectors go straight to the scalar loop: the alignment head
// would cost more than the vectors save.
constexpr std::size_t kScalarBelowVectors = 2;

template <class Op, class T = typename Op::T>
inline void unary_run(const T* src, T* dst, std::size_t n)
{
    constexpr std::size_t L = simd::lanes<T>;
    std::size_t i = 0;
    std::size_t head = simd::head_to_align(dst);
    if (n >= kScalarBelowVectors * L + L && head != simd::npos) {
        for (; i < head; ++i) dst[i] = Op::apply(src[i]);
        const std::size_t body = head + (n - head) / L * L;
        if (simd::aligned16(src + i)) {
            for (; i < body; i += L) simd::storea(dst + i, Op::apply(simd::loada(src + i)));
        } else {
            for (; i < body; i += L) simd::storea(dst + i, Op::apply(simd::loadu(src + i)));
        }
    } else if (n >= kScalarBelowVectors * L) {
        // The destination can never be aligned (an address that is not a multiple of the
        // element size): unaligned stores all along.
        for (; i + L <= n; i += L) simd::storeu(dst + i, Op::apply(simd::loadu(src + i)));
    }
    for (; i < n; ++i) dst[i] = Op::apply(src[i]);
}

template <class Op, class T = typename Op::T>
inline void binary_run(const T* a, const T* b, T* dst, std::size_t n)
{
    constexpr std::size_t L = simd::lanes<T>;
    std::size_t i = 0;
    std::size_t head = simd::head_to_align(dst);
    if (n >= kScalarBelowVectors * L + L && head != simd::npos) {
        for (; i < head; ++i) dst[i] = Op::apply(a[i], b[i]);
        const std::size_t body = head + (n - head) / L * L;
        if (simd::aligned16(a + i) && simd::aligned16(b + i)) {
            for (; i < body; i += L)
                simd::storea(dst + i, Op::apply(simd::loada(a + i), simd::loada(b + i)));
        } else {
            for (; i < body; i += L)
                simd::storea(dst + i, Op::apply(simd::loadu(a + i), simd::loadu(b + i)));
        }
    } else if (n >= kScalarBelowVectors * L) {
        for (; i + L <= n; i += L)
            simd::storeu(dst + i, Op::apply(simd::loadu(a + i), simd::loadu(b + i)));
    }
    for (; i < n; ++i) dst[i] = Op::apply(a[i], b[i]);
}

}  // namespace keli
