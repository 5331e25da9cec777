// keliFilterBoxBorder (the mean of a rectangular window), keliSumWindow (its sum) and their
// buffer size queries.
//
// Both are border filters: the window's anchor is ax = (maskWidth - 1) >> 1,
// ay = (maskHeight - 1) >> 1, so an even mask reaches one pixel further right and down, and
// pixels beyond the region come from the border rule or, on a flagged side, from the caller's
// memory. The edge driver walks the region; the kernels of rows/box.hpp sum exactly (integers)
// or in one fixed order (32f), so the interior, the edge strips and the in-place ring all give
// the same pixels, and so does any region cut into pieces.
//
// Checks, in order: src, dst, buffer null; a step below 1; the region; the mask
// (kelStatusBadMaskSize); the border; a constant border with no value, last, so that a call
// with a bad border and no value reports the border. dstStep is not compared with the row.
//
// In place (src == dst, same element type) runs the driver's ring of extended rows; a mask one
// row high needs no ring: each row is filtered into the scratch and copied back. AC4 leaves
// the destination's alpha as it stood. The caller's buffer holds the driver's scratch, then the
// column sums, then, for masks taller than the driver's stack table, the row table; it needs
// no alignment and fits in the queried size.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "filter/box_size.hpp"
#include "filter/edge_driver.hpp"
#include "filter/rows/box.hpp"
#include "frame/check.hpp"
#include "frame/layout.hpp"
#include "move/border.hpp"

namespace keli {

namespace box_detail {

inline unsigned char* align_up(unsigned char* p, std::uintptr_t a)
{
    const auto v = reinterpret_cast<std::uintptr_t>(p);
    return p + ((a - v % a) % a);
}

template <class T> const unsigned char* bytes(const T* p) { return reinterpret_cast<const unsigned char*>(p); }

// The checks every border member shares, in their order.
template <class T, class D>
KelStatus check_border(const T* src, int srcStep, const D* dst, int dstStep, KeliSize roi, KeliSize mask, int border,
                const T* value, const Kel8u* buffer)
{
    return check::first({check::pointers(src, dst, buffer), check::steps(srcStep, dstStep), check::size(roi),
                         mask.width < 1 || mask.height < 1 ? kelStatusBadMaskSize : kelStatusOk,
                         border::filter_accepts(border) ? kelStatusOk : kelStatusBadBorder,
                         border::base_kind(border) == kelBorderConst && !value ? kelStatusNullPtr : kelStatusOk});
}

// Runs `make(col)`'s kernel over the region with the driver. `colBytes` is the kernel's scratch
// per column sum entry.
template <class T, Layout L, class D, class Make>
void drive(const T* src, int srcStep, D* dst, int dstStep, KeliSize roi, KeliSize mask, int border, const T* value,
           Kel8u* buffer, Make make)
{
    constexpr std::int64_t C = channels<L>, P = C * sizeof(T);
    using Driver = filter::EdgeDriver<T, L, D>;
    const std::int64_t W = roi.width, H = roi.height, ww = W + mask.width - 1;
    const filter::Footprint fp = filter::centred(mask.width, mask.height);
    const bool inPlace = std::is_same_v<T, D> && bytes(src) == bytes(dst);
    const bool rowWise = inPlace && mask.height == 1;

    // Scratch of the driver, the row-wise output row, the column sums, the row table.
    std::size_t driverBytes = inPlace && !rowWise ? Driver::scratch_bytes_in_place(W, fp)
                              : rowWise           ? Driver::scratch_bytes(W, 1, fp, border)
                                                  : Driver::scratch_bytes(W, H, fp, border);
    // The caller's buffer may sit at any address; the strips hold elements, read as such.
    unsigned char* scratch = align_up(buffer, 8);
    unsigned char* outRow = scratch + driverBytes;
    unsigned char* col = align_up(outRow + (rowWise ? W * C * sizeof(D) : 0), 16);
    unsigned char* table = align_up(col + (ww * C + 1) * 4, 8);  // one column sum of slack
    auto kernel = make(col);

    filter::EdgeJob<T, D> job{src, srcStep, dst, dstStep, W, H, fp, border, value, scratch,
                              mask.height > filter::kStackRows ? reinterpret_cast<const void**>(table) : nullptr};
    if (!inPlace) {
        Driver(job).run(kernel);
        return;
    }
    if (!rowWise) {
        Driver(job).run_in_place(kernel);
        return;
    }
    // One row at a time: filtered from the intact source row into the scratch row (which holds
    // the destination's alpha, left untouched by the kernel), then copied over the row.
    for (std::int64_t y = 0; y < H; ++y) {
        const T* row = reinterpret_cast<const T*>(bytes(src) + y * std::int64_t(srcStep));
        D* out = reinterpret_cast<D*>(reinterpret_cast<unsigned char*>(dst) + y * std::int64_t(dstStep));
        std::memcpy(outRow, out, static_cast<std::size_t>(W * P));
        filter::EdgeJob<T, D> one = job;
        one.src = row, one.dst = reinterpret_cast<D*>(outRow), one.dstStep = W * P, one.height = 1;
        Driver(one).run(kernel);
        std::memcpy(out, outRow, static_cast<std::size_t>(W * P));
    }
}

template <class T, Layout L> void copy_region(const T* src, int srcStep, T* dst, int dstStep, KeliSize roi)
{
    if (bytes(src) == bytes(dst)) return;
    constexpr int C = int(channels<L>);
    for (int y = 0; y < roi.height; ++y) {
        const T* s = reinterpret_cast<const T*>(bytes(src) + std::int64_t(y) * srcStep);
        T* d = reinterpret_cast<T*>(reinterpret_cast<unsigned char*>(dst) + std::int64_t(y) * dstStep);
        if constexpr (has_alpha<L>) {
            for (int x = 0; x < roi.width; ++x) std::memcpy(d + x * C, s + x * C, 3 * sizeof(T));
        } else {
            std::memcpy(d, s, std::size_t(roi.width) * C * sizeof(T));
        }
    }
}

}  // namespace box_detail

// The mean of the window.
template <class T, Layout L>
KelStatus filter_box_border(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, KeliSize mask,
                            KeliBorderType border, const T* pBorderValue, Kel8u* pBuffer)
{
    using namespace box_detail;
    if (KelStatus s = check_border(pSrc, srcStep, pDst, dstStep, roi, mask, border, pBorderValue, pBuffer)) return s;
    // A 1x1 mask is the identity: the pixels move unchanged, not-a-number payloads included.
    if (mask.width == 1 && mask.height == 1) {
        copy_region<T, L>(pSrc, srcStep, pDst, dstStep, roi);
        return kelStatusOk;
    }
    const double area = double(mask.width) * double(mask.height);
    if constexpr (std::is_same_v<T, Kel32f>) {
        const float inv = 1.0f / static_cast<float>(area);
        drive<T, L, T>(pSrc, srcStep, pDst, dstStep, roi, mask, border, pBorderValue, pBuffer, [&](unsigned char* col) {
            return rows::box::FloatKernel<L>(mask.width, mask.height, reinterpret_cast<float*>(col), inv, false);
        });
    } else {
        const rows::box::MeanOf<T> mean{1.0f / static_cast<float>(area)};
        drive<T, L, T>(pSrc, srcStep, pDst, dstStep, roi, mask, border, pBorderValue, pBuffer, [&](unsigned char* col) {
            return rows::box::IntegerKernel<T, L, rows::box::MeanOf<T>>(
                mask.width, mask.height, dstStep, reinterpret_cast<std::uint32_t*>(col), mean);
        });
    }
    return kelStatusOk;
}

// The sum of the window: 8u32s exact (wrapping past 32 bits), 16u32f and 16s32f the exact sum
// rounded once to f32, 32f summed in the fixed order.
template <class T, class D, Layout L>
KelStatus sum_window(const T* pSrc, int srcStep, D* pDst, int dstStep, KeliSize roi, KeliSize mask,
                     KeliBorderType border, const T* pBorderValue, Kel8u* pBuffer)
{
    using namespace box_detail;
    if (KelStatus s = check_border(pSrc, srcStep, pDst, dstStep, roi, mask, border, pBorderValue, pBuffer)) return s;
    if constexpr (std::is_same_v<T, Kel32f>) {
        if (mask.width == 1 && mask.height == 1) {
            copy_region<T, L>(pSrc, srcStep, pDst, dstStep, roi);
            return kelStatusOk;
        }
        drive<T, L, D>(pSrc, srcStep, pDst, dstStep, roi, mask, border, pBorderValue, pBuffer, [&](unsigned char* col) {
            return rows::box::FloatKernel<L>(mask.width, mask.height, reinterpret_cast<float*>(col), 1.0f, true);
        });
    } else {
        using Finish = std::conditional_t<std::is_same_v<D, Kel32s>, rows::box::SumAs32s, rows::box::SumAs32f>;
        drive<T, L, D>(pSrc, srcStep, pDst, dstStep, roi, mask, border, pBorderValue, pBuffer, [&](unsigned char* col) {
            return rows::box::IntegerKernel<T, L, Finish>(mask.width, mask.height, dstStep,
                                                          reinterpret_cast<std::uint32_t*>(col), Finish{});
        });
    }
    return kelStatusOk;
}

}  // namespace keli
