// One-dimensional passes of the FFT over a contiguous row: complex rows of 2^n values, and real
// rows of 2^o values to and from the packed layout.
//
// A complex row of N = 4M values is four interleaved subsequences x[4m + r]. Loading four
// neighbours gives one lane element, so the lane engine transforms the four subsequences at
// once (length M), and a last radix-4 pass joins them:
//     X[k + qM] = sum_r (-i)^(rq) * w_N^(rk) * Y_r[k].
// The inverse runs the forward engine on swapped real and imaginary parts: swapping, the
// forward transform and swapping again give the unscaled inverse.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frequency/rows/fft_lanes.hpp"

namespace keli::fft {

using simd::evens4;
using simd::interleave_hi4;
using simd::interleave_lo4;
using simd::load4;
using simd::odds4;
using simd::reverse4;
using simd::set4;
using simd::store4;

constexpr int kShortRowOrder = 4;  // rows below this order run on one lane

// Four lane factors w_N^(step*(k0 + i)), i = 0..3.
inline void lane_factors(const Twiddles& tw, std::uint32_t k0, std::uint32_t step, F4& c, F4& s)
{
    float cv[4], sv[4];
    for (int i = 0; i < 4; ++i) tw.at(step * (k0 + i), cv[i], sv[i]);
    c = set4(cv[0], cv[1], cv[2], cv[3]);
    s = set4(sv[0], sv[1], sv[2], sv[3]);
}

// Bytes of work a complex row of order n needs from the caller's buffer.
inline std::size_t row_work_bytes(int n) { return n < kShortRowOrder ? 0 : std::size_t(8) << n; }

// Complex transform of `in` (2^n interleaved values) into `out`; the two may be the same.
// `work`: row_work_bytes(n), 16-byte aligned. The output is multiplied by `scale` unless it is
// 1: an unscaled direction leaves the values exactly as the stages made them.
template <bool Inverse>
void transform_row(const float* in, float* out, int n, const Twiddles& tw, float scale, float* work)
{
    const std::size_t len = std::size_t(1) << n;
    const bool scaled = scale != 1.0f;
    if (n < kShortRowOrder) {
        Cx<float> x[1 << kShortRowOrder];
        for (std::size_t i = 0; i < len; ++i) {
            const float re = in[2 * i], im = in[2 * i + 1];
            x[reverse_bits(static_cast<std::uint32_t>(i), n)] = Inverse ? Cx<float>{im, re} : Cx<float>{re, im};
        }
        transform_lanes(x, n, tw);
        for (std::size_t i = 0; i < len; ++i) {
            float re = Inverse ? x[i].im : x[i].re, im = Inverse ? x[i].re : x[i].im;
            if (scaled) re *= scale, im *= scale;
            out[2 * i] = re;
            out[2 * i + 1] = im;
        }
        return;
    }
    const int m = n - 2;
    const std::size_t lanesLen = len / 4;
    auto* y = reinterpret_cast<Cx<F4>*>(work);
    for (std::size_t k = 0; k < lanesLen; ++k) {
        const F4 a = load4(in + 8 * k), b = load4(in + 8 * k + 4);
        const F4 re = evens4(a, b), im = odds4(a, b);
        y[reverse_bits(static_cast<std::uint32_t>(k), m)] = Inverse ? Cx<F4>{im, re} : Cx<F4>{re, im};
    }
    transform_lanes(y, m, tw);
    const F4 s = simd::splat4(scale);
    for (std::size_t k = 0; k < lanesLen; k += 4) {
        // Transposed, vector r holds Y_r[k..k+3].
        Cx<F4> v[4] = {y[k], y[k + 1], y[k + 2], y[k + 3]};
        simd::transpose4(v[0].re, v[1].re, v[2].re, v[3].re);
        simd::transpose4(v[0].im, v[1].im, v[2].im, v[3].im);
        for (int r = 1; r < 4; ++r) {
            F4 c, si;
            lane_factors(tw, static_cast<std::uint32_t>(k), r, c, si);
            v[r] = cmul(v[r], c, si);
        }
        dft4(v[0], v[1], v[2], v[3]);
        for (int q = 0; q < 4; ++q) {
            F4 re = Inverse ? v[q].im : v[q].re, im = Inverse ? v[q].re : v[q].im;
            if (scaled) re = re * s, im = im * s;
            float* o = out + 2 * (k + q * lanesLen);
            store4(o, interleave_lo4(re, im));
            store4(o + 4, interleave_hi4(re, im));
        }
    }
}

// The same transform without work memory, in place on `x`, one lane: for rows longer than the
// caller's buffer holds.
template <bool Inverse> void transform_row_in_place(float* data, int n, const Twiddles& tw, float scale)
{
    const std::size_t len = std::size_t(1) << n;
    auto* x = reinterpret_cast<Cx<float>*>(data);
    for (std::size_t i = 0; i < len; ++i) {
        const std::size_t j = reverse_bits(static_cast<std::uint32_t>(i), n);
        if (i < j) {
            const Cx<float> t = x[i];
            x[i] = x[j];
            x[j] = t;
        }
    }
    if (Inverse)
        for (std::size_t i = 0; i < len; ++i) x[i] = {x[i].im, x[i].re};
    transform_lanes(x, n, tw);
    const bool scaled = scale != 1.0f;
    for (std::size_t i = 0; i < len; ++i) {
        float re = Inverse ? x[i].im : x[i].re, im = Inverse ? x[i].re : x[i].im;
        if (scaled) re *= scale, im *= scale;
        x[i] = {re, im};
    }
}

// ---- Real rows. A real row of W = 2^o values is read as W/2 complex values z[n] = x[2n] +
// i x[2n+1]; its transform Z gives the spectrum by the split
//     X[k] = (E - P) / 2,  X[W/2 - k] = conj(E + P) / 2,
//     E = Z[k] + conj Z[W/2 - k],  O = Z[k] - conj Z[W/2 - k],  P = i w_W^k O,
// and X[0], X[W/2] = Re Z[0] +- Im Z[0]. The inverse undoes it:
//     Fe = X[k] + conj X[W/2 - k],  Fo = (X[k] - conj X[W/2 - k]) conj(w_W^k),
//     Z[k] = Fe + i Fo,  Z[W/2 - k] = conj(Fe - i Fo).

inline std::size_t real_row_work_bytes(int o) { return o < 1 ? 0 : (std::size_t(4) << o) + row_work_bytes(o - 1); }

struct SplitOut {
    F4 kre, kim, jre, jim;
};

template <class V> inline void split_pair(V are, V aim, V bre, V bim, V c, V s, V half, V& xkre, V& xkim, V& xjre, V& xjim)
{
    // b is Z[j] already conjugated.
    const V ere = are + bre, eim = aim + bim, ore = are - bre, oim = aim - bim;
    const V wre = ore * c - oim * s, wim = ore * s + oim * c;  // w * O
    const V pre = wim * splat<V>(-1.0f), pim = wre;             // P = i w O
    xkre = (ere - pre) * half;
    xkim = (eim - pim) * half;
    xjre = (ere + pre) * half;
    xjim = (eim + pim) * (half * splat<V>(-1.0f));
}

// Packs the spectrum of z (Nc = W/2 values) into out (W floats).
inline void split_forward(const float* z, float* out, int o, const SplitTwiddles& st, float scale)
{
    const std::size_t nc = std::size_t(1) << (o - 1);
    const float hs = 0.5f * scale;
    out[0] = (z[0] + z[1]) * scale;
    out[2 * nc - 1] = (z[0] - z[1]) * scale;
    std::size_t k = 1;
    const F4 half4 = simd::splat4(hs);
    for (; 2 * k + 6 < nc; k += 4) {
        const std::size_t j0 = nc - k - 3;  // lowest j of the four
        const F4 a0 = load4(z + 2 * k), a1 = load4(z + 2 * k + 4);
        const F4 b0 = load4(z + 2 * j0), b1 = load4(z + 2 * j0 + 4);
        const F4 bre = reverse4(evens4(b0, b1)), bim = reverse4(odds4(b0, b1)) * simd::splat4(-1.0f);
        float cv[4], sv[4];
        for (int i = 0; i < 4; ++i) st.at(static_cast<std::uint32_t>(k + i), cv[i], sv[i]);
        F4 xkre, xkim, xjre, xjim;
        split_pair<F4>(evens4(a0, a1), odds4(a0, a1), bre, bim, set4(cv[0], cv[1], cv[2], cv[3]),
                       set4(sv[0], sv[1], sv[2], sv[3]), half4, xkre, xkim, xjre, xjim);
        store4(out + 2 * k - 1, interleave_lo4(xkre, xkim));
        store4(out + 2 * k + 3, interleave_hi4(xkre, xkim));
        xjre = reverse4(xjre);
        xjim = reverse4(xjim);
        store4(out + 2 * j0 - 1, interleave_lo4(xjre, xjim));
        store4(out + 2 * j0 + 3, interleave_hi4(xjre, xjim));
    }
    for (; 2 * k <= nc; ++k) {
        const std::size_t j = nc - k;
        float c, s, xkre, xkim, xjre, xjim;
        st.at(static_cast<std::uint32_t>(k), c, s);
        split_pair<float>(z[2 * k], z[2 * k + 1], z[2 * j], -z[2 * j + 1], c, s, hs, xkre, xkim, xjre, xjim);
        out[2 * k - 1] = xkre;
        out[2 * k] = xkim;
        out[2 * j - 1] = xjre;
        out[2 * j] = xjim;
    }
}

template <class V> inline void unsplit_pair(V kre, V kim, V jre, V jim, V c, V s, V& zkre, V& zkim, V& zjre, V& zjim)
{
    // j is X[j] already conjugated; the factor is conj(w) = c - i s.
    const V fere = kre + jre, feim = kim + jim, dre = kre - jre, dim = kim - jim;
    const V fore = dre * c + dim * s, foim = dim * c - dre * s;
    zkre = fere - foim;
    zkim = feim + fore;
    zjre = fere + foim;
    zjim = fore - feim;
}

// Unpacks a packed row (W floats) into the half-length complex sequence z.
inline void split_inverse(const float* in, float* z, int o, const SplitTwiddles& st)
{
    const std::size_t nc = std::size_t(1) << (o - 1);
    const float x0 = in[0], xn = in[2 * nc - 1];
    z[0] = x0 + xn;
    z[1] = x0 - xn;
    std::size_t k = 1;
    for (; 2 * k + 6 < nc; k += 4) {
        const std::size_t j0 = nc - k - 3;
        const F4 a0 = load4(in + 2 * k - 1), a1 = load4(in + 2 * k + 3);
        const F4 b0 = load4(in + 2 * j0 - 1), b1 = load4(in + 2 * j0 + 3);
        const F4 jre = reverse4(evens4(b0, b1)), jim = reverse4(odds4(b0, b1)) * simd::splat4(-1.0f);
        float cv[4], sv[4];
        for (int i = 0; i < 4; ++i) st.at(static_cast<std::uint32_t>(k + i), cv[i], sv[i]);
        F4 zkre, zkim, zjre, zjim;
        unsplit_pair<F4>(evens4(a0, a1), odds4(a0, a1), jre, jim, set4(cv[0], cv[1], cv[2], cv[3]),
                         set4(sv[0], sv[1], sv[2], sv[3]), zkre, zkim, zjre, zjim);
        store4(z + 2 * k, interleave_lo4(zkre, zkim));
        store4(z + 2 * k + 4, interleave_hi4(zkre, zkim));
        zjre = reverse4(zjre);
        zjim = reverse4(zjim);
        store4(z + 2 * j0, interleave_lo4(zjre, zjim));
        store4(z + 2 * j0 + 4, interleave_hi4(zjre, zjim));
    }
    for (; 2 * k <= nc; ++k) {
        const std::size_t j = nc - k;
        float c, s, zkre, zkim, zjre, zjim;
        st.at(static_cast<std::uint32_t>(k), c, s);
        unsplit_pair<float>(in[2 * k - 1], in[2 * k], in[2 * j - 1], -in[2 * j], c, s, zkre, zkim, zjre, zjim);
        z[2 * k] = zkre;
        z[2 * k + 1] = zkim;
        z[2 * j] = zjre;
        z[2 * j + 1] = zjim;
    }
}

// Real row of 2^o floats to the packed layout; `in` and `out` may be the same.
// `work`: real_row_work_bytes(o), 16-byte aligned.
inline void real_row_forward(const float* in, float* out, const Plan& p, float scale, float* work)
{
    const int o = p.order;
    if (o == 0) {
        out[0] = scale != 1.0f ? in[0] * scale : in[0];
        return;
    }
    float* z = work;
    transform_row<false>(in, z, o - 1, p.cplx, 1.0f, work + (std::size_t(1) << o));
    split_forward(z, out, o, p.split, scale);
}

// Packed row back to 2^o real floats, unnormalised but for `scale`.
inline void real_row_inverse(const float* in, float* out, const Plan& p, float scale, float* work)
{
    const int o = p.order;
    if (o == 0) {
        out[0] = scale != 1.0f ? in[0] * scale : in[0];
        return;
    }
    float* z = work;
    split_inverse(in, z, o, p.split);
    transform_row<true>(z, out, o - 1, p.cplx, scale, work + (std::size_t(1) << o));
}

}  // namespace keli::fft
