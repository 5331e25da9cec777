// keliImageJaehne and keliImageRamp: synthetic images.
//
// Checks: the pointer, the step (below one byte), the size.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "frame/check.hpp"
#include "frame/fp_guard.hpp"
#include "frame/layout.hpp"
#include "move/rows/copy_ac4.hpp"
#include "move/rows/copy_run.hpp"
#include "move/rows/elements.hpp"
#include "move/rows/fill.hpp"
#include "move/rows/mirror.hpp"
#include "move/rows/test_images.hpp"

namespace keli {

namespace test_image_detail {

using rows::Byte;

template <class T, Layout L> using Policy = rows::PixelStore<T, channels<L>, has_alpha<L>>;

constexpr std::size_t kChunk = 256;  // pixels computed at a time on the stack

template <class T> inline T* row_at(T* p, std::int64_t y, int step)
{
    return reinterpret_cast<T*>(reinterpret_cast<Byte*>(p) + y * std::int64_t(step));
}

// Pixels x0 ... x0 + n - 1 of a row from a function filling n float values: made elements, then
// spread over the channels.
template <class T, Layout L, class Values> inline void put_pixels(T* row, std::size_t x0, std::size_t n, Values&& values)
{
    alignas(16) float v[kChunk];
    alignas(16) T e[kChunk];
    constexpr std::size_t C = channels<L>;
    for (std::size_t x = x0; x < x0 + n; x += kChunk) {
        const std::size_t m = std::min(kChunk, x0 + n - x);
        values(v, x, m);
        if constexpr (C == 1) {
            rows::round_saturate(v, row + x, m);
        } else {
            rows::round_saturate(v, e, m);
            rows::spread_channels<T, C, Policy<T, L>>(e, row + x * C, m);
        }
    }
}

// Row `from` of the image copied onto row `to`.
template <class T, Layout L> inline void copy_row(const T* from, T* to, std::size_t width)
{
    if constexpr (has_alpha<L>) rows::copy_ac4_row(from, to, width);
    else rows::copy_bytes(from, to, width * channels<L> * sizeof(T));
}

// The element form of the rings: v * scale + bias with v in [-1, 1].
template <class T> struct JaehneScale;
template <> struct JaehneScale<Kel32f> { static constexpr float scale = 0.5f, bias = 0.5f; };
template <> struct JaehneScale<Kel8u> { static constexpr float scale = 128.0f, bias = 128.0f; };
template <> struct JaehneScale<Kel16s> { static constexpr float scale = 16384.0f, bias = 16384.0f; };
template <> struct JaehneScale<Kel16u> { static constexpr float scale = 32768.0f, bias = 32768.0f; };

}  // namespace test_image_detail

// Concentric rings of rising frequency. The image is symmetric about its centre: the upper-left
// quarter is computed (ceil(H / 2) rows, ceil(W / 2) pixels of each), the rest of each row is
// its first half reversed, and the lower rows are copies of the upper ones, so the four
// quarters are exact mirrors of each other.
template <class T, Layout L> KelStatus image_jaehne(T* pDst, int dstStep, KeliSize roi)
{
    using namespace test_image_detail;
    if (KelStatus s = check::first({check::pointers(pDst), check::steps(dstStep), check::size(roi)})) return s;
    FpControlGuard fp;
    fp.set_rounding(0);
    const auto W = static_cast<std::size_t>(roi.width);
    const std::int64_t H = roi.height;
    rows::JaehneRow ring{};
    ring.cx = static_cast<float>(roi.width - 1) * 0.5f;
    ring.invH = 1.0f / static_cast<float>(roi.height);
    ring.scale = JaehneScale<T>::scale, ring.bias = JaehneScale<T>::bias;
    const float cy = static_cast<float>(roi.height - 1) * 0.5f;
    constexpr std::size_t P = Policy<T, L>::pixelBytes;
    for (std::int64_t y = 0; y < (H + 1) / 2; ++y) {
        const float yc = static_cast<float>(y) - cy;
        ring.yc2 = yc * yc;
        T* row = row_at(pDst, y, dstStep);
        put_pixels<T, L>(row, 0, (W + 1) / 2, [&ring](float* v, std::size_t x, std::size_t n) {
            ring.values(v, static_cast<std::int32_t>(x), n);
        });
        auto* bytes = reinterpret_cast<Byte*>(row);
        rows::reverse_pixels<Policy<T, L>>(bytes, bytes + (W + 1) / 2 * P, W / 2);
    }
    for (std::int64_t y = (H + 1) / 2; y < H; ++y)
        copy_row<T, L>(row_at(pDst, H - 1 - y, dstStep), row_at(pDst, y, dstStep), W);
    return kelStatusOk;
}

// A ramp along x (axis 0), along y (axis 1), or of the product x * y (any other axis):
// value * slope + offset in 32f, integers rounded to nearest and saturated.
template <class T, Layout L>
KelStatus image_ramp(T* pDst, int dstStep, KeliSize roi, float offset, float slope, KeliAxis axis)
{
    using namespace test_image_detail;
    if (KelStatus s = check::first({check::pointers(pDst), check::steps(dstStep), check::size(roi)})) return s;
    FpControlGuard fp;
    fp.set_rounding(0);
    const auto W = static_cast<std::size_t>(roi.width);
    const std::int64_t H = roi.height;
    if (axis == kelAxisHorizontal) {
        // One row computed, then copied down.
        put_pixels<T, L>(pDst, 0, W, [&](float* v, std::size_t x, std::size_t n) {
            rows::ramp_values(v, static_cast<std::int32_t>(x), n, 1, slope, offset);
        });
        for (std::int64_t y = 1; y < H; ++y) copy_row<T, L>(pDst, row_at(pDst, y, dstStep), W);
    } else if (axis == kelAxisVertical) {
        // One value a row: a patterned fill.
        for (std::int64_t y = 0; y < H; ++y) {
            const T value = rows::round_saturate<T>(rows::ramp_at(y, slope, offset));
            T* row = row_at(pDst, y, dstStep);
            if constexpr (has_alpha<L>) {
                alignas(16) T e[kChunk];
                std::fill(e, e + kChunk, value);
                for (std::size_t x = 0; x < W; x += kChunk)
                    rows::spread_channels<T, 4, Policy<T, L>>(e, row + 4 * x, std::min(kChunk, W - x));
            } else {
                T pixel[4] = {value, value, value, value};
                rows::fill_run(row, W * channels<L> * sizeof(T), rows::make_fill_pattern(pixel, int(channels<L>)), false);
            }
        }
    } else {
        for (std::int64_t y = 0; y < H; ++y)
            put_pixels<T, L>(row_at(pDst, y, dstStep), 0, W, [&](float* v, std::size_t x, std::size_t n) {
                rows::ramp_values(v, static_cast<std::int32_t>(x), n, static_cast<std::int32_t>(y), slope, offset);
            });
    }
    return kelStatusOk;
}

}  // namespace keli
