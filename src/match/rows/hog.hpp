// Row kernels of the histogram of oriented gradients: one run of gradients turned into bin
// pairs and votes, and one block turned into its normalised histogram.
//
// Every f32 operation is spelled out in a fixed order, with f32 constants, so that a lane of
// these kernels and the plain scalar model in the tests agree bit for bit.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "simd/sse.hpp"

namespace keli::hog::rows {

using simd::F4;
using simd::I4;

// The orientation rule of one call: nbins bins over half a turn, an angle in [0, 2 pi) times
// `scale` = nbins / pi.
struct BinRule {
    float scale;
    int nbins;
};

// The three output planes, from the pixel the run starts at. The caller's buffer may lie at any
// address, so single elements go through memcpy.
struct VotePlanes {
    std::uint32_t* bins;  // low 16 bits the first vote's bin, high 16 bits the second's
    float* first;
    float* second;
};

// Bins and votes of four gradients. The angle is a rational arctangent: on the side where
// |dy| <= |dx|, a = dx dy / (dx^2 + 0.28 dy^2 + eps), else the same with the roles swapped and
// a quarter turn added; a half turn puts it in [0, 2 pi), and nbins/pi folds opposite gradients
// onto one bin. The vote splits linearly between the two bins whose centres enclose the angle.
inline void bin_votes(F4 dx, F4 dy, const BinRule& rule, std::uint32_t* bins, float* first, float* second)
{
    const F4 zero = simd::splat4(0.0f), eps = simd::splat4(2.220446e-16f), k = simd::splat4(0.28f);
    const F4 dx2 = dx * dx, dy2 = dy * dy, mixed = dx * dy;
    const F4 flat = simd::less_equal4(dy2, dx2);
    const F4 aFlat = mixed / ((dx2 + (k * dy) * dy) + eps);
    const F4 aSteep = -mixed / ((dy2 + (k * dx) * dx) + eps);
    const F4 dxNeg = simd::less4(dx, zero), dyNeg = simd::less4(dy, zero);
    const F4 turnFlat = simd::select4(dxNeg, simd::splat4(3.1415927f),
                                      simd::select4(dyNeg, simd::splat4(6.2831855f), zero));
    // 6.2831855f - 1.5707964f is exactly 4.712389f.
    const F4 turnSteep = simd::select4(dyNeg, simd::splat4(4.712389f), simd::splat4(1.5707964f));
    const F4 angle = (simd::select4(flat, aFlat, aSteep) + simd::select4(flat, turnFlat, turnSteep)) *
                     simd::splat4(rule.scale);
    const F4 magnitude = simd::sqrt4(dx2 + dy2);

    const F4 b = angle - simd::splat4(0.5f);
    const F4 low = simd::floor4(b);
    const F4 f = b - low;
    const I4 n = simd::splat4i(rule.nbins), one = simd::splat4i(1), zeroI = simd::splat4i(0);
    I4 lo = simd::to_int4(low);
    lo = lo - (n & simd::greater4i(lo, n - one));
    lo = lo + (n & simd::greater4i(zeroI, lo));
    // A gradient that is not a number has no angle: its index is made safe (bin 0), its votes
    // stay not-a-number.
    lo = lo & simd::greater4i(lo, simd::splat4i(-1)) & simd::greater4i(n, lo);
    I4 hi = lo + one;
    hi = hi - (n & simd::equal4i(hi, n));
    simd::storeu4i(reinterpret_cast<std::int32_t*>(bins), lo | simd::shift_left4i(hi, 16));
    simd::store4(first, magnitude * (simd::splat4(1.0f) - f));
    simd::store4(second, magnitude * f);
}

// Four pixels' gradient of C interleaved channels. Rows hold positions -1 .. n of the run
// (index = position + 1); `up` and `down` are the rows above and below. With three channels
// the channel of the largest dx^2 + dy^2 wins, the earliest one on a tie.
template <int C> inline void gradient4(const float* up, const float* centre, const float* down, F4& dx, F4& dy)
{
    if constexpr (C == 1) {
        dx = simd::load4(centre + 2) - simd::load4(centre);
        dy = simd::load4(down + 1) - simd::load4(up + 1);
    } else {
        F4 l[3], r[3], u[3], d[3];
        simd::deinterleave3(centre, l[0], l[1], l[2]);
        simd::deinterleave3(centre + 6, r[0], r[1], r[2]);
        simd::deinterleave3(up + 3, u[0], u[1], u[2]);
        simd::deinterleave3(down + 3, d[0], d[1], d[2]);
        dx = r[0] - l[0];
        dy = d[0] - u[0];
        F4 best = dx * dx + dy * dy;
        for (int c = 1; c < 3; ++c) {
            const F4 cx = r[c] - l[c], cy = d[c] - u[c];
            const F4 m = cx * cx + cy * cy;
            const F4 wins = simd::greater4(m, best);
            dx = simd::select4(wins, cx, dx);
            dy = simd::select4(wins, cy, dy);
            best = simd::select4(wins, m, best);
        }
    }
}

// n pixels of one row. The rows must be readable three pixels past position n (the last group
// of four is computed whole and only its first pixels are kept).
template <int C>
inline void gradient_run(const float* up, const float* centre, const float* down, std::size_t n, const BinRule& rule,
                         VotePlanes out)
{
    std::size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        F4 dx, dy;
        gradient4<C>(up + C * i, centre + C * i, down + C * i, dx, dy);
        bin_votes(dx, dy, rule, out.bins + i, out.first + i, out.second + i);
    }
    if (i < n) {
        F4 dx, dy;
        gradient4<C>(up + C * i, centre + C * i, down + C * i, dx, dy);
        std::uint32_t bins[4];
        float first[4], second[4];
        bin_votes(dx, dy, rule, bins, first, second);
        const std::size_t rest = n - i;
        std::memcpy(out.bins + i, bins, rest * sizeof *bins);
        std::memcpy(out.first + i, first, rest * sizeof *first);
        std::memcpy(out.second + i, second, rest * sizeof *second);
    }
}

// The histograms of N blocks, hist[bin][cell] (4 * nbins f32 each): each pixel of a block, row
// by row, adds its first vote times its four cell weights to its first bin, then its second vote
// to its second bin. The blocks are independent, so running several side by side keeps each
// block's order of additions and overlaps their chains of dependent adds. `stride` is the
// planes' row length in pixels.
template <int N>
inline void block_histograms(const VotePlanes (&at)[N], std::size_t stride, int B, const float* weights, int nbins,
                             float* (&hist)[N])
{
    for (int k = 0; k < N; ++k)
        for (int j = 0; j < nbins; ++j) simd::store4(hist[k] + 4 * j, simd::splat4(0.0f));
    for (int y = 0; y < B; ++y) {
        const std::size_t row = y * stride;
        for (int x = 0; x < B; ++x) {
            const F4 w = simd::load4(weights + 4 * (y * B + x));
            for (int k = 0; k < N; ++k) {
                std::uint32_t pair;
                float p, q;
                std::memcpy(&pair, at[k].bins + row + x, sizeof pair);
                std::memcpy(&p, at[k].first + row + x, sizeof p);
                std::memcpy(&q, at[k].second + row + x, sizeof q);
                float* lo = hist[k] + 4 * (pair & 0xFFFF);
                float* hi = hist[k] + 4 * (pair >> 16);
                simd::store4(lo, simd::load4(lo) + simd::splat4(p) * w);
                simd::store4(hi, simd::load4(hi) + simd::splat4(q) * w);
            }
        }
    }
}

// Sum of squares of the histogram: lane k (cell k) over the bins in order, then the lanes in pairs.
inline float sum_of_squares(const float* hist, int nbins)
{
    F4 acc = simd::splat4(0.0f);
    for (int j = 0; j < nbins; ++j) {
        const F4 h = simd::load4(hist + 4 * j);
        acc = acc + h * h;
    }
    return simd::pair_sum4(acc);
}

// 1 / sqrt(q + 2 eps), the eps added twice, once to the sum and once under the root; a true
// root and a true division, so that a constant block (q = 0) stays finite and exact.
inline float inverse_norm(float q)
{
    const float eps = 1.1920929e-7f;
    return 1.0f / std::sqrt((q + eps) + eps);
}

// Normalises hist[bin][cell], clips at `threshold`, normalises again and writes the result as
// out[cell * nbins + bin].
inline void normalise_block(float* hist, int nbins, float threshold, float* out)
{
    const F4 i1 = simd::splat4(inverse_norm(sum_of_squares(hist, nbins))), limit = simd::splat4(threshold);
    for (int j = 0; j < nbins; ++j) simd::store4(hist + 4 * j, simd::min4(simd::load4(hist + 4 * j) * i1, limit));
    const F4 i2 = simd::splat4(inverse_norm(sum_of_squares(hist, nbins)));
    for (int j = 0; j < nbins; ++j) {
        alignas(16) float h[4];
        simd::storea4(h, simd::load4(hist + 4 * j) * i2);
        for (int cell = 0; cell < 4; ++cell) out[cell * nbins + j] = h[cell];
    }
}

}  // namespace keli::hog::rows
