// Row kernels of the quality index. A row of one image is turned into 32-bit floats with its
// mean taken off, one plane per colour channel, into 16-byte aligned row buffers; the centred
// planes are then reduced in 32-bit floats in the fixed order of the 32f row sums: the dot
// product of two planes and the sum of squares of one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "simd/sse.hpp"
#include "stats/rows/norm_32f.hpp"
#include "stats/rows/sums_extrema_sum.hpp"

namespace keli::rows {

// ---- Elements to 32-bit floats ------------------------------------------------------------------

// Four elements into one float vector, and one element alone; every conversion is exact.
template <class T> struct ToF32;

template <> struct ToF32<Kel8u> {
    static __m128 four(const Kel8u* p)
    {
        std::int32_t bits;
        std::memcpy(&bits, p, sizeof bits);
        return _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_cvtsi32_si128(bits)));
    }
    static Kel32f one(const Kel8u* p) { return static_cast<Kel32f>(*p); }
};

template <> struct ToF32<Kel16u> {
    static __m128 four(const Kel16u* p)
    {
        return _mm_cvtepi32_ps(_mm_cvtepu16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))));
    }
    static Kel32f one(const Kel16u* p) { return static_cast<Kel32f>(load1(p)); }
};

template <> struct ToF32<Kel32f> {
    static __m128 four(const Kel32f* p) { return _mm_loadu_ps(p); }
    static Kel32f one(const Kel32f* p) { return load1(p); }
};

// The centring of one element: the mean subtracted in 32-bit floats, or, for a mean of zero,
// the element copied as it stands.
template <bool Sub> struct CentreOp {
    static __m128 apply(__m128 x, __m128 m) { return Sub ? _mm_sub_ps(x, m) : x; }
    static Kel32f apply(Kel32f x, Kel32f m) { return Sub ? x - m : x; }
};

// ---- Channels into planes -----------------------------------------------------------------------

// Four pixels of C interleaved channels, as C float vectors in memory order, into one vector
// per channel.
template <int C> inline void deinterleave4(__m128* v);

template <> inline void deinterleave4<3>(__m128* v)
{
    // v0 = a0 b0 c0 a1, v1 = b1 c1 a2 b2, v2 = c2 a3 b3 c3.
    const __m128 a = _mm_blend_ps(_mm_blend_ps(v[0], v[1], 0x4), v[2], 0x2);  // a0 a3 a2 a1
    const __m128 b = _mm_blend_ps(_mm_blend_ps(v[0], v[1], 0x9), v[2], 0x4);  // b1 b0 b3 b2
    const __m128 c = _mm_blend_ps(_mm_blend_ps(v[0], v[1], 0x2), v[2], 0x9);  // c2 c1 c0 c3
    v[0] = _mm_shuffle_ps(a, a, _MM_SHUFFLE(1, 2, 3, 0));
    v[1] = _mm_shuffle_ps(b, b, _MM_SHUFFLE(2, 3, 0, 1));
    v[2] = _mm_shuffle_ps(c, c, _MM_SHUFFLE(3, 0, 1, 2));
}

template <> inline void deinterleave4<4>(__m128* v) { _MM_TRANSPOSE4_PS(v[0], v[1], v[2], v[3]); }

// One row of `width` pixels with C channels in memory (3 or 4) into `Planes` float planes with
// the channel's mean taken off (the fourth channel of four is read and dropped). Four pixels
// a turn through the vector meaning, the remaining pixels through the scalar one.
template <bool Sub, class T, int C, int Planes>
inline void centre_planes(const T* src, std::size_t width, const Kel32f* mean, Kel32f* const* planes)
{
    using Op = CentreOp<Sub>;
    using W = ToF32<T>;
    __m128 m[Planes];
    for (int c = 0; c < Planes; ++c) m[c] = _mm_set1_ps(mean[c]);
    std::size_t x = 0;
    for (; width - x >= 4; x += 4) {
        __m128 v[4];
        for (int k = 0; k < C; ++k) v[k] = W::four(src + x * C + 4 * k);
        if constexpr (C == 1) {
            _mm_store_ps(planes[0] + x, Op::apply(v[0], m[0]));
        } else {
            deinterleave4<C>(v);
            for (int c = 0; c < Planes; ++c) _mm_store_ps(planes[c] + x, Op::apply(v[c], m[c]));
        }
    }
    for (; x < width; ++x)
        for (int c = 0; c < Planes; ++c) planes[c][x] = Op::apply(W::one(src + x * C + c), mean[c]);
}

// ---- Reductions of centred planes ----------------------------------------------------------------

// The products of two planes as the term source of the 32f row sums.
struct ProdSrc {
    const Kel32f* p;
    const Kel32f* q;
    const void* addr() const { return p; }
    ProdSrc at(std::size_t i) const { return {p + i, q + i}; }
    template <bool Aligned> __m128 v(std::size_t i) const
    {
        const __m128 a = Aligned ? _mm_load_ps(p + i) : _mm_loadu_ps(p + i);
        return _mm_mul_ps(a, _mm_loadu_ps(q + i));
    }
    __m128 v2(std::size_t i) const { return _mm_mul_ps(load2f(p + i), load2f(q + i)); }
    Kel32f s(std::size_t i) const { return load1(p + i) * load1(q + i); }
};

// A row's total in the order of the 32f row sums, as the one-row sum gives it in 64-bit float.
template <class Src> inline double row_total(const Src& src, std::size_t n)
{
    __m128d acc = _mm_setzero_pd();
    sum32f_c1_fast_row(src, n, acc);
    alignas(16) double lanes[2];
    _mm_store_pd(lanes, acc);
    return lanes[0] + lanes[1];
}

inline double plane_dot(const Kel32f* a, const Kel32f* b, std::size_t n) { return row_total(ProdSrc{a, b}, n); }
inline double plane_sum_sq(const Kel32f* a, std::size_t n) { return row_total(NormSrc<NormSqOp>{a}, n); }

}  // namespace keli::rows
