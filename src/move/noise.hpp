// keliAddRandUniform and keliAddRandGauss: pseudo-random noise added to an image in place.
//
// Checks: the pointers (image, seed), the size, the step. Neither family refuses low > high or
// a negative deviation: the formulas run with them.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "frame/check.hpp"
#include "frame/fp_guard.hpp"
#include "frame/layout.hpp"
#include "move/rows/mirror.hpp"
#include "move/rows/noise.hpp"

namespace keli {

namespace noise_image_detail {

template <class T, Layout L> using Policy = rows::PixelStore<T, channels<L>, has_alpha<L>>;

constexpr std::size_t kChunkElements = 1024;

// Walks the rows in blocks of at most 1,024 elements (whole pixels); `values(v, n, colour)`
// fills the values of a block in element order, drawing only for the elements where
// colour(i) holds, so that the alpha of AC4 pixels takes no value from the sequence.
template <class T, Layout L, class Values> inline void add_to_rows(T* p, int step, KeliSize roi, Values&& values)
{
    constexpr std::size_t C = channels<L>;
    constexpr std::size_t chunk = kChunkElements / C * C;
    alignas(16) double v[kChunkElements];
    const std::size_t n = static_cast<std::size_t>(roi.width) * C;
    for (std::int64_t y = 0; y < roi.height; ++y) {
        T* row = reinterpret_cast<T*>(reinterpret_cast<rows::Byte*>(p) + y * std::int64_t(step));
        for (std::size_t x = 0; x < n; x += chunk) {
            const std::size_t m = std::min(chunk, n - x);
            values(v, m);
            rows::add_noise_run<T, Policy<T, L>>(row + x, v, m);
        }
    }
}

template <Layout L> inline bool draws(std::size_t i) { return !has_alpha<L> || i % 4 != 3; }

}  // namespace noise_image_detail

// Uniform noise: n = rint(out * ((high - low) * 2^-32) + (high + low) / 2) for each element in
// row order, channel by channel. The sum and difference of the bounds are taken in the
// element's arithmetic type as C computes it (int for the integers, float for 32f).
template <class T, Layout L>
KelStatus add_rand_uniform(T* pSrcDst, int step, KeliSize roi, T low, T high, Kel32u* pSeed)
{
    using namespace noise_image_detail;
    if (KelStatus s = check::first({check::pointers(pSrcDst, pSeed), check::size(roi), check::steps(step)})) return s;
    FpControlGuard fp;
    fp.set_rounding(0);
    const double scale = static_cast<double>(high - low) * 2.3283064365387e-10;
    const double mid = static_cast<double>(high + low) * 0.5;
    rows::NoiseGenerator gen(*pSeed);
    alignas(16) std::int32_t words[kChunkElements];
    add_to_rows<T, L>(pSrcDst, step, roi, [&](double* v, std::size_t n) {
        if constexpr (!has_alpha<L>) {
            gen.fill(words, n);
        } else {
            // Whole pixels: three words a pixel, spread out with the alpha's left at zero.
            alignas(16) std::int32_t colour[kChunkElements];
            gen.fill(colour, n / 4 * 3);
            for (std::size_t i = 0, j = 0; i < n; ++i) words[i] = draws<L>(i) ? colour[j++] : 0;
        }
        rows::uniform_values(words, v, n, scale, mid);
    });
    *pSeed = gen.seed();
    return kelStatusOk;
}

// Gaussian noise by the polar method. A round takes two consecutive words a0, b0; the pair is
// refused while w = a^2 + b^2 is not inside (0, 1). The first element takes a * stDev * f +
// mean, the next b * stDev * f + mean: pairs run over the call's element sequence, across row
// ends, and the b of a last unfinished pair is dropped.
template <class T, Layout L>
KelStatus add_rand_gauss(T* pSrcDst, int step, KeliSize roi, T mean, T stDev, Kel32u* pSeed)
{
    using namespace noise_image_detail;
    if (KelStatus s = check::first({check::pointers(pSrcDst, pSeed), check::size(roi), check::steps(step)})) return s;
    FpControlGuard fp;
    fp.set_rounding(0);
    rows::NoiseGenerator gen(*pSeed);
    rows::GaussStream stream(gen, static_cast<double>(mean), static_cast<double>(stDev));
    add_to_rows<T, L>(pSrcDst, step, roi, [&](double* v, std::size_t n) {
        if constexpr (!has_alpha<L>) {
            stream.fill(v, n);
        } else {
            // Whole pixels: three values a pixel, spread out with the alpha's left at zero.
            alignas(16) double colour[kChunkElements];
            stream.fill(colour, n / 4 * 3);
            for (std::size_t i = 0, j = 0; i < n; ++i) v[i] = draws<L>(i) ? colour[j++] : 0.0;
        }
    });
    *pSeed = gen.seed();
    return kelStatusOk;
}

}  // namespace keli
