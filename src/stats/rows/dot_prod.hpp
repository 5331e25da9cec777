// Row kernels of the dot products whose elements are multiplied in 64-bit floats (32f, 32s and
// 32u), and of the linear combination of vectors. The dot products of 8u and 16-bit elements
// use the exact integer term runs of the norms, with a product term per pair of elements.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "simd/sse.hpp"

namespace keli::rows {

// Elements widened to 64-bit floats: four into two vectors, two into one, and one alone. Every
// widening is exact, so the product of two widened 32f elements is exact as well.
template <class T> struct Widen64;

template <> struct Widen64<Kel32f> {
    static void four(const Kel32f* p, __m128d& lo, __m128d& hi)
    {
        const __m128 x = _mm_loadu_ps(p);
        lo = _mm_cvtps_pd(x);
        hi = _mm_cvtps_pd(_mm_movehl_ps(x, x));
    }
    static __m128d two(const Kel32f* p)
    {
        std::int64_t bits;
        std::memcpy(&bits, p, sizeof bits);
        return _mm_cvtps_pd(_mm_castsi128_ps(_mm_cvtsi64_si128(bits)));
    }
    static double one(const Kel32f* p)
    {
        Kel32f v;
        std::memcpy(&v, p, sizeof v);
        return v;
    }
};

template <> struct Widen64<Kel32s> {
    static void four(const Kel32s* p, __m128d& lo, __m128d& hi)
    {
        const __m128i x = simd::loadu(p);
        lo = _mm_cvtepi32_pd(x);
        hi = _mm_cvtepi32_pd(_mm_srli_si128(x, 8));
    }
    static __m128d two(const Kel32s* p) { return _mm_cvtepi32_pd(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))); }
    static double one(const Kel32s* p)
    {
        Kel32s v;
        std::memcpy(&v, p, sizeof v);
        return v;
    }
};

// Unsigned: converted as signed, then 2^32 added where the sign bit was set; exact.
template <> struct Widen64<Kel32u> {
    static __m128d low2(__m128i x)
    {
        const __m128d s = _mm_cvtepi32_pd(x);
        const __m128d neg = _mm_castsi128_pd(_mm_cvtepi32_epi64(_mm_srai_epi32(x, 31)));
        return _mm_add_pd(s, _mm_and_pd(neg, _mm_set1_pd(4294967296.0)));
    }
    static void four(const Kel32u* p, __m128d& lo, __m128d& hi)
    {
        const __m128i x = simd::loadu(p);
        lo = low2(x);
        hi = low2(_mm_srli_si128(x, 8));
    }
    static __m128d two(const Kel32u* p) { return low2(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))); }
    static double one(const Kel32u* p)
    {
        Kel32u v;
        std::memcpy(&v, p, sizeof v);
        return v;
    }
};

// One product added to a running sum: the vector meaning on two lanes, the scalar one on one.
struct DotF64Op {
    static __m128d apply(__m128d acc, __m128d a, __m128d b) { return _mm_add_pd(acc, _mm_mul_pd(a, b)); }
    static double apply(double acc, double a, double b) { return acc + a * b; }
};

// One channel, R rows side by side. Each row keeps its own two accumulators: elements 4k and
// 4k+1 go to the lanes of the first, 4k+2 and 4k+3 to those of the second. The row's total is
// lane 0 plus lane 1 of their sum, then the remaining elements one by one. The rows share
// nothing, so walking two at once only gives the processor independent chains to overlap.
template <class T, int R> inline void dot64_c1_rows(const T* const* a, const T* const* b, std::size_t n, double* out)
{
    using W = Widen64<T>;
    using Op = DotF64Op;
    __m128d s0[R], s1[R];
    for (int r = 0; r < R; ++r) s0[r] = s1[r] = _mm_setzero_pd();
    std::size_t i = 0;
    // Out of cache the processor's own prefetcher cannot keep 2R streams in flight: every row
    // asks for its lines ahead, once a cache line of elements.
    constexpr std::size_t kLine = 64 / sizeof(T);
    for (; n - i >= 4; i += 4)
        for (int r = 0; r < R; ++r) {
            if (i % kLine == 0) simd::read_ahead(a[r] + i), simd::read_ahead(b[r] + i);
            __m128d la, ha, lb, hb;
            W::four(a[r] + i, la, ha);
            W::four(b[r] + i, lb, hb);
            s0[r] = Op::apply(s0[r], la, lb);
            s1[r] = Op::apply(s1[r], ha, hb);
        }
    for (int r = 0; r < R; ++r) {
        alignas(16) double l[2];
        _mm_store_pd(l, _mm_add_pd(s0[r], s1[r]));
        double t = l[0] + l[1];
        for (std::size_t j = i; j < n; ++j) t = Op::apply(t, W::one(a[r] + j), W::one(b[r] + j));
        out[r] = t;
    }
}

// Three or four channels: channels 0 and 1 in the lanes of one accumulator, 2 (and 3) in
// another, pixel after pixel; each channel's row total is added to acc.
template <class T, int C> inline void dot64_cn_row(const T* a, const T* b, std::size_t width, double* acc)
{
    using W = Widen64<T>;
    using Op = DotF64Op;
    __m128d s01 = _mm_setzero_pd(), s23 = s01;
    for (std::size_t x = 0, i = 0; x < width; ++x, i += C) {
        s01 = Op::apply(s01, W::two(a + i), W::two(b + i));
        if constexpr (C == 4) s23 = Op::apply(s23, W::two(a + i + 2), W::two(b + i + 2));
        else s23 = _mm_add_sd(s23, _mm_mul_sd(_mm_set_sd(W::one(a + i + 2)), _mm_set_sd(W::one(b + i + 2))));
    }
    alignas(16) double l[4];
    _mm_store_pd(l, s01);
    _mm_store_pd(l + 2, s23);
    for (int c = 0; c < C; ++c) acc[c] += l[c];
}

// ---- Linear combination of vectors ---------------------------------------------------------------

template <class F> struct CombOps;
template <> struct CombOps<Kel32f> {
    using V = __m128;
    static constexpr std::size_t lanes = 4;
    static V set1(Kel32f x) { return _mm_set1_ps(x); }
    static V load(const Kel32f* p) { return _mm_loadu_ps(p); }
    static V loada(const Kel32f* p) { return _mm_load_ps(p); }
    static void store(Kel32f* p, V v) { _mm_store_ps(p, v); }
    static V add(V a, V b) { return _mm_add_ps(a, b); }
    static V mul(V a, V b) { return _mm_mul_ps(a, b); }
};
template <> struct CombOps<Kel64f> {
    using V = __m128d;
    static constexpr std::size_t lanes = 2;
    static V set1(Kel64f x) { return _mm_set1_pd(x); }
    static V load(const Kel64f* p) { return _mm_loadu_pd(p); }
    static V loada(const Kel64f* p) { return _mm_load_pd(p); }
    static void store(Kel64f* p, V v) { _mm_store_pd(p, v); }
    static V add(V a, V b) { return _mm_add_pd(a, b); }
    static V mul(V a, V b) { return _mm_mul_pd(a, b); }
};

// A group of up to three vectors (n of them) with their coefficients:
// dst[i] = (first ? 0 : dst[i]) + ((c0 * v0[i] + c1 * v1[i]) + c2 * v2[i]). The vector meaning
// holds the coefficients broadcast and agrees with the scalar one term by term.
template <class F> struct CombGroup {
    const F* v[3];
    F c[3];
    int n;
    bool first;

    F apply(std::size_t i, F d) const
    {
        F t = c[0] * v[0][i];
        if (n > 1) t = t + c[1] * v[1][i];
        if (n > 2) t = t + c[2] * v[2][i];
        return first ? t : d + t;
    }
    template <class V> V apply(std::size_t i, V d, const V* cv) const
    {
        using O = CombOps<F>;
        V t = O::mul(cv[0], O::load(v[0] + i));
        if (n > 1) t = O::add(t, O::mul(cv[1], O::load(v[1] + i)));
        if (n > 2) t = O::add(t, O::mul(cv[2], O::load(v[2] + i)));
        return first ? t : O::add(d, t);
    }
};

// A scalar head to the destination's 16-byte boundary, aligned vector stores, a scalar tail. A
// destination that can never reach the boundary runs scalar throughout.
template <class F> inline void comb_run(const CombGroup<F>& g, F* dst, std::size_t n)
{
    using O = CombOps<F>;
    using V = typename O::V;
    const std::size_t align = simd::head_to_align(dst);
    const std::size_t head = align < n ? align : n;
    std::size_t i = 0;
    for (; i < head; ++i) dst[i] = g.apply(i, g.first ? F(0) : dst[i]);
    if (align != simd::npos) {
        const V cv[3] = {O::set1(g.c[0]), O::set1(g.c[1]), O::set1(g.c[2])};
        for (; n - i >= O::lanes; i += O::lanes) O::store(dst + i, g.apply(i, g.first ? V() : O::loada(dst + i), cv));
    }
    for (; i < n; ++i) dst[i] = g.apply(i, g.first ? F(0) : dst[i]);
}

}  // namespace keli::rows
