// The FFT's lane engine: 1, 4 or 8 independent complex sequences transformed at once, one per
// lane of a value type V (float, F4, F8). Element k of the array holds the k-th value of every
// lane: all real parts, then all imaginary parts. Columns of an image map to lanes directly;
// a row maps to lanes as its four interleaved subsequences (see fft_row.hpp).
//
// The transform is a decimation in time: input in bit-reversed order, output in natural order,
// in place. Stages grow the transform size from 1: a first 2-, 4- or 8-point stage without
// factors, then radix-4 stages while the remaining order is not a multiple of 3, then radix 8.
// Every lane runs the same operations in the same order and all factors are shared by the
// lanes (broadcast), so a sequence gets the same bits by any width.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frequency/fft_spec.hpp"
#include "simd/sse.hpp"

namespace keli::fft {

using simd::F4;

struct F8 {
    F4 a, b;
};
inline F8 operator+(F8 x, F8 y) { return {x.a + y.a, x.b + y.b}; }
inline F8 operator-(F8 x, F8 y) { return {x.a - y.a, x.b - y.b}; }
inline F8 operator*(F8 x, F8 y) { return {x.a * y.a, x.b * y.b}; }

template <class V> inline V splat(float x);
template <> inline float splat<float>(float x) { return x; }
template <> inline F4 splat<F4>(float x) { return simd::splat4(x); }
template <> inline F8 splat<F8>(float x) { return {simd::splat4(x), simd::splat4(x)}; }

template <class V> constexpr int kLanes = sizeof(V) / sizeof(float);

template <class V> struct Cx {
    V re, im;
};

template <class V> inline Cx<V> operator+(Cx<V> a, Cx<V> b) { return {a.re + b.re, a.im + b.im}; }
template <class V> inline Cx<V> operator-(Cx<V> a, Cx<V> b) { return {a.re - b.re, a.im - b.im}; }

// a * (c + i s)
template <class V> inline Cx<V> cmul(Cx<V> a, V c, V s) { return {a.re * c - a.im * s, a.re * s + a.im * c}; }
// -i * a
template <class V> inline Cx<V> mul_minus_i(Cx<V> a) { return {a.im, a.re * splat<V>(-1.0f)}; }

// Bit reversal of the low `bits` bits of v.
inline std::uint32_t reverse_bits(std::uint32_t v, int bits)
{
    v = ((v >> 1) & 0x55555555u) | ((v & 0x55555555u) << 1);
    v = ((v >> 2) & 0x33333333u) | ((v & 0x33333333u) << 2);
    v = ((v >> 4) & 0x0F0F0F0Fu) | ((v & 0x0F0F0F0Fu) << 4);
    v = __builtin_bswap32(v);
    return bits ? v >> (32 - bits) : 0;
}

// Four-point DFT of y0..y3 (forward sign), results in natural order.
template <class V> inline void dft4(Cx<V>& y0, Cx<V>& y1, Cx<V>& y2, Cx<V>& y3)
{
    const Cx<V> t0 = y0 + y2, t1 = y0 - y2, t2 = y1 + y3, t3 = mul_minus_i(y1 - y3);
    y0 = t0 + t2;
    y1 = t1 + t3;
    y2 = t0 - t2;
    y3 = t1 - t3;
}

// Eight-point DFT of y[0..7] in place: two four-point DFTs of the even and odd terms joined by
// the factors w8^q.
template <class V> inline void dft8(Cx<V>* y)
{
    Cx<V> e0 = y[0], e1 = y[2], e2 = y[4], e3 = y[6], o0 = y[1], o1 = y[3], o2 = y[5], o3 = y[7];
    dft4(e0, e1, e2, e3);
    dft4(o0, o1, o2, o3);
    const V h = splat<V>(0.70710678118654752f);
    const Cx<V> w1{(o1.re + o1.im) * h, (o1.im - o1.re) * h};  // o1 * (1 - i) / sqrt 2
    const Cx<V> w2 = mul_minus_i(o2);
    const Cx<V> w3{(o3.im - o3.re) * h, (o3.re + o3.im) * splat<V>(-0.70710678118654752f)};  // o3 * (-1 - i) / sqrt 2
    y[0] = e0 + o0;
    y[4] = e0 - o0;
    y[1] = e1 + w1;
    y[5] = e1 - w1;
    y[2] = e2 + w2;
    y[6] = e2 - w2;
    y[3] = e3 + w3;
    y[7] = e3 - w3;
}

// One radix-R stage from sub-transforms of size h to size R*h over the whole array of 2^n
// elements. In a bit-reversed array the sub-block at position p holds the subsequence of residue
// rev(p), so residue r is read from sub-block rev(r) and gets the factor w_{Rh}^(r*j).
template <class V, int R> inline void radix_stage(Cx<V>* x, int n, int s, const Twiddles& tw)
{
    constexpr int kBits = R == 4 ? 2 : 3;
    const std::size_t h = std::size_t(1) << s, len = std::size_t(1) << n, block = h * R;
    const int shift = tw.order - (s + kBits);  // w_{Rh}^t = w_N^(t << shift)
    for (std::size_t j = 0; j < h; ++j) {
        V wc[R], ws[R];
        for (int r = 1; r < R; ++r) {
            float c, si;
            tw.at(static_cast<std::uint32_t>((r * j) << shift), c, si);
            wc[r] = splat<V>(c);
            ws[r] = splat<V>(si);
        }
        for (std::size_t b = j; b < len; b += block) {
            Cx<V> y[R];
            y[0] = x[b];
            for (int r = 1; r < R; ++r) y[r] = cmul(x[b + reverse_bits(r, kBits) * h], wc[r], ws[r]);
            if constexpr (R == 4) {
                dft4(y[0], y[1], y[2], y[3]);
            } else {
                dft8(y);
            }
            for (int q = 0; q < R; ++q) x[b + q * h] = y[q];
        }
    }
}

// The whole transform of 2^n elements per lane, bit-reversed in, natural out, in place.
template <class V> void transform_lanes(Cx<V>* x, int n, const Twiddles& tw)
{
    const std::size_t len = std::size_t(1) << n;
    if (n == 0) return;
    if (n == 1) {
        const Cx<V> a = x[0], b = x[1];
        x[0] = a + b;
        x[1] = a - b;
        return;
    }
    if (n == 3) {
        Cx<V> y[8] = {x[0], x[4], x[2], x[6], x[1], x[5], x[3], x[7]};
        dft8(y);
        for (int q = 0; q < 8; ++q) x[q] = y[q];
        return;
    }
    for (std::size_t b = 0; b < len; b += 4) {
        Cx<V> y0 = x[b], y1 = x[b + 2], y2 = x[b + 1], y3 = x[b + 3];
        dft4(y0, y1, y2, y3);
        x[b] = y0;
        x[b + 1] = y1;
        x[b + 2] = y2;
        x[b + 3] = y3;
    }
    for (int s = 2; s < n;) {
        if ((n - s) % 3) {
            radix_stage<V, 4>(x, n, s, tw);
            s += 2;
        } else {
            radix_stage<V, 8>(x, n, s, tw);
            s += 3;
        }
    }
}

}  // namespace keli::fft
