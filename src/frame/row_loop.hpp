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

// Vector bodies: a cache line a turn with the lines ahead prefetched, then single vectors.
// `i` runs from the aligned start to `end`; the destination is 16-byte aligned.
template <class Op, class T, class Load>
inline void unary_body(const T* src, T* dst, std::size_t& i, std::size_t end, Load load)
{
    constexpr std::size_t L = simd::lanes<T>;
    for (; i + 4 * L <= end; i += 4 * L) {
        simd::prefetch_ahead(src + i);
        simd::prefetch_ahead(dst + i);
        for (std::size_t k = 0; k < 4 * L; k += L) simd::storea(dst + i + k, Op::apply(load(src + i + k)));
    }
    for (; i < end; i += L) simd::storea(dst + i, Op::apply(load(src + i)));
}

template <class Op, class T, class Load>
inline void binary_body(const T* a, const T* b, T* dst, std::size_t& i, std::size_t end, Load load)
{
    constexpr std::size_t L = simd::lanes<T>;
    for (; i + 4 * L <= end; i += 4 * L) {
        simd::prefetch_ahead(a + i);
        simd::prefetch_ahead(b + i);
        simd::prefetch_ahead(dst + i);
        for (std::size_t k = 0; k < 4 * L; k += L)
            simd::storea(dst + i + k, Op::apply(load(a + i + k), load(b + i + k)));
    }
    for (; i < end; i += L) simd::storea(dst + i, Op::apply(load(a + i), load(b + i)));
}

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
            unary_body<Op>(src, dst, i, body, [](const T* p) { return simd::loada(p); });
        } else {
            unary_body<Op>(src, dst, i, body, [](const T* p) { return simd::loadu(p); });
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
            binary_body<Op>(a, b, dst, i, body, [](const T* p) { return simd::loada(p); });
        } else {
            binary_body<Op>(a, b, dst, i, body, [](const T* p) { return simd::loadu(p); });
        }
    } else if (n >= kScalarBelowVectors * L) {
        for (; i + L <= n; i += L)
            simd::storeu(dst + i, Op::apply(simd::loadu(a + i), simd::loadu(b + i)));
    }
    for (; i < n; ++i) dst[i] = Op::apply(a[i], b[i]);
}

}  // namespace keli
