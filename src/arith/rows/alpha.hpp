// Row kernels of alpha composition and premultiplication: runs of elements or of interleaved
// pixels through Lanes<T> sixteen bytes at a time, the rest through the scalar rule. Vectors
// start at the run's first element and step over whole pixels, so an alpha element always sits
// in the same lane; every vector is read before it is written and nothing is written twice,
// which keeps in-place runs exact.
#pragma once

#include <cstddef>

#include "arith/rows/alpha_16u.hpp"
#include "arith/rows/alpha_32f.hpp"
#include "arith/rows/alpha_8u.hpp"
#include "arith/rows/alpha_lanes.hpp"
#include "arith/rows/alpha_rule.hpp"
#include "simd/sse.hpp"

namespace keli::rows::alpha {

template <class T> constexpr std::size_t kLanes = simd::kVectorBytes / sizeof(T);

// A register of T repeating `pattern` (four elements, a pixel).
template <class T> inline simd::reg_t<T> repeat(const T (&pattern)[4])
{
    alignas(16) T lanes[kLanes<T>];
    for (std::size_t i = 0; i < kLanes<T>; ++i) lanes[i] = pattern[i % 4];
    return simd::loada(lanes);
}
template <class T> inline simd::reg_t<T> splat(T v)
{
    const T pattern[4] = {v, v, v, v};
    return repeat(pattern);
}

// Interleaved pixels of both images: colour by the operation, the fourth element by the alpha
// rule of the two pixels' alphas.
template <class T, int Op> inline void comp_pixels(const T* s1, const T* s2, T* d, std::size_t pixels)
{
    using R = Rule<T>;
    std::size_t i = 0;
    if constexpr (Lanes<T>::kVector) {
        constexpr std::size_t P = kLanes<T> / 4;
        for (; i + P <= pixels; i += P)
            simd::storeu(d + 4 * i, Lanes<T>::template pixels<Op>(simd::loadu(s1 + 4 * i), simd::loadu(s2 + 4 * i)));
    }
    for (; i < pixels; ++i) {
        const T* x = s1 + 4 * i;
        const T* y = s2 + 4 * i;
        const T a = x[3], b = y[3];
        const T out[4] = {R::template colour<Op>(x[0], a, y[0], b), R::template colour<Op>(x[1], a, y[1], b),
                          R::template colour<Op>(x[2], a, y[2], b), R::template alpha<Op>(a, b)};
        for (int c = 0; c < 4; ++c) d[4 * i + c] = out[c];
    }
}

// One colour plane of each image with the alpha planes beside them.
template <class T, int Op>
inline void comp_plane(const T* c1, const T* a, const T* c2, const T* b, T* d, std::size_t n)
{
    std::size_t i = 0;
    if constexpr (Lanes<T>::kVector) {
        for (; i + kLanes<T> <= n; i += kLanes<T>)
            simd::storeu(d + i, Lanes<T>::template colour<Op>(simd::loadu(c1 + i), simd::loadu(a + i),
                                                               simd::loadu(c2 + i), simd::loadu(b + i)));
    }
    for (; i < n; ++i) d[i] = Rule<T>::template colour<Op>(c1[i], a[i], c2[i], b[i]);
}

// Alpha elements alone.
template <class T, int Op> inline void alpha_run(const T* a, const T* b, T* d, std::size_t n)
{
    std::size_t i = 0;
    if constexpr (Lanes<T>::kVector) {
        for (; i + kLanes<T> <= n; i += kLanes<T>)
            simd::storeu(d + i, Lanes<T>::template alpha<Op>(simd::loadu(a + i), simd::loadu(b + i)));
    }
    for (; i < n; ++i) d[i] = Rule<T>::template alpha<Op>(a[i], b[i]);
}

// Colour elements with constant alphas a and b.
template <class T, int Op> inline void comp_const(const T* c1, const T* c2, T* d, std::size_t n, T a, T b)
{
    std::size_t i = 0;
    if constexpr (Lanes<T>::kVector) {
        const auto va = splat(a), vb = splat(b);
        for (; i + kLanes<T> <= n; i += kLanes<T>)
            simd::storeu(d + i, Lanes<T>::template colour<Op>(simd::loadu(c1 + i), va, simd::loadu(c2 + i), vb));
    }
    for (; i < n; ++i) d[i] = Rule<T>::template colour<Op>(c1[i], a, c2[i], b);
}

// Interleaved pixels with constant alphas: colour by the operation, and the alpha rule of the
// two constants in every fourth element.
template <class T, int Op> inline void comp_const_pixels(const T* c1, const T* c2, T* d, std::size_t pixels, T a, T b)
{
    const T alpha = Rule<T>::template alpha<Op>(a, b);
    std::size_t i = 0;
    if constexpr (Lanes<T>::kVector) {
        constexpr std::size_t P = kLanes<T> / 4;
        const auto va = splat(a), vb = splat(b), valpha = splat(alpha);
        for (; i + P <= pixels; i += P) {
            const auto c = Lanes<T>::template colour<Op>(simd::loadu(c1 + 4 * i), va, simd::loadu(c2 + 4 * i), vb);
            simd::storeu(d + 4 * i, Lanes<T>::merge_alpha(c, valpha));
        }
    }
    for (; i < pixels; ++i) {
        for (std::size_t c = 0; c < 3; ++c)
            d[4 * i + c] = Rule<T>::template colour<Op>(c1[4 * i + c], a, c2[4 * i + c], b);
        d[4 * i + 3] = alpha;
    }
}

// d = s * m / one with the multipliers repeating every four elements (a pixel).
template <class T> inline void scale_run(const T* s, T* d, std::size_t n, const T (&m)[4])
{
    std::size_t i = 0;
    if constexpr (Lanes<T>::kVector) {
        const auto vm = repeat(m);
        for (; i + kLanes<T> <= n; i += kLanes<T>) simd::storeu(d + i, Lanes<T>::scale(simd::loadu(s + i), vm));
    }
    for (; i < n; ++i) d[i] = Rule<T>::scale(s[i], m[i % 4]);
}

// A colour plane times its alpha plane.
template <class T> inline void scale_plane(const T* c, const T* a, T* d, std::size_t n)
{
    std::size_t i = 0;
    if constexpr (Lanes<T>::kVector) {
        for (; i + kLanes<T> <= n; i += kLanes<T>)
            simd::storeu(d + i, Lanes<T>::scale(simd::loadu(c + i), simd::loadu(a + i)));
    }
    for (; i < n; ++i) d[i] = Rule<T>::scale(c[i], a[i]);
}

// Interleaved pixels premultiplied by their own alpha, which they keep.
template <class T> inline void premul_pixels(const T* s, T* d, std::size_t pixels)
{
    std::size_t i = 0;
    if constexpr (Lanes<T>::kVector) {
        constexpr std::size_t P = kLanes<T> / 4;
        for (; i + P <= pixels; i += P) {
            const auto v = simd::loadu(s + 4 * i);
            simd::storeu(d + 4 * i, Lanes<T>::scale(v, Lanes<T>::premul_factors(v)));
        }
    }
    for (; i < pixels; ++i) {
        const T a = s[4 * i + 3];
        for (std::size_t c = 0; c < 3; ++c) d[4 * i + c] = Rule<T>::scale(s[4 * i + c], a);
        d[4 * i + 3] = a;
    }
}

}  // namespace keli::rows::alpha
