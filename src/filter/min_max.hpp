// keliFilterMinBorder and keliFilterMaxBorder (the extremum of a rectangular window), their
// buffer size queries, and keliErode3x3_64f_C1R / keliDilate3x3_64f_C1R.
//
// The window's anchor is ax = (maskWidth - 1) >> 1, ay = (maskHeight - 1) >> 1: even sides are
// accepted and reach one pixel further right and down. Pixels beyond the region come from the
// border rule (replicated, mirrored or the constant) or, on a flagged side, from the caller's
// memory. Windows more than a pixel wide fold every extended row once along x into a ring and
// the ring's rows down (min_max_rows.hpp); one pixel wide, or taller than the driver's row
// table, they go through the edge driver. Both fold the taps left to right and the rows top to
// bottom with the minps/maxps operand order, so the route never shows in the pixels.
//
// Checks, in order: src, dst, buffer null; the region; the mask (kelStatusBadMaskSize); the
// border; then a constant border with no value, last, so that a call with a bad border and no
// value reports the border. No step is checked. The one-channel members take the border value
// by value, as their single element; the others point at one value per channel.
//
// In place (src == dst) is a caller error: the buffer holds no delay rows, so the window would
// read rows the call has already overwritten. AC4 leaves the destination's alpha as it stood.
//
// The caller's buffer holds the driver's scratch (edge strips, or one row of the constant; the
// fold route assembles its edge pieces there), then the ring of row extrema, mh rows of ((C * width * e + 31) & ~31) bytes; for a mask taller than
// the driver's stack table the ring's first row accumulates and the rest holds the row table.
// It needs no alignment and fits in the queried size.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "filter/box.hpp"
#include "filter/edge_driver.hpp"
#include "filter/min_max_rows.hpp"
#include "filter/rows/min_max.hpp"
#include "frame/check.hpp"
#include "frame/layout.hpp"
#include "move/border.hpp"

namespace keli {

namespace min_max_detail {

constexpr std::int64_t align32(std::int64_t v) { return (v + 31) & ~std::int64_t(31); }

template <class T, Layout L, bool Max>
KelStatus filter(const T* src, int srcStep, T* dst, int dstStep, KeliSize roi, KeliSize mask, int border,
                 const T* value, Kel8u* buffer)
{
    if (KelStatus s = check::first({check::pointers(src, dst, buffer), check::size(roi),
                                    mask.width < 1 || mask.height < 1 ? kelStatusBadMaskSize : kelStatusOk,
                                    border::filter_accepts(border) ? kelStatusOk : kelStatusBadBorder,
                                    border::base_kind(border) == kelBorderConst && !value ? kelStatusNullPtr
                                                                                          : kelStatusOk}))
        return s;
    // A 1x1 window is the pixel itself under every border: the pixels move unchanged.
    if (mask.width == 1 && mask.height == 1) {
        box_detail::copy_region<T, L>(src, srcStep, dst, dstStep, roi);
        return kelStatusOk;
    }
    constexpr std::int64_t C = channels<L>;
    using Driver = filter::EdgeDriver<T, L>;
    using Kernel = rows::min_max::Kernel<T, L, Max>;
    const filter::Footprint fp = filter::centred(mask.width, mask.height);
    const std::size_t driverBytes = Driver::scratch_bytes(roi.width, roi.height, fp, border);
    const std::int64_t strideBytes = align32(C * roi.width * std::int64_t(sizeof(T)));
    // The caller's buffer may sit at any address; the strips hold elements, read as such.
    unsigned char* scratch = box_detail::align_up(buffer, 8);
    // The driver's scratch is whole pixels, so the ring behind it is aligned for its elements;
    // the passes load it unaligned and need nothing more.
    unsigned char* ring = scratch + driverBytes;
    unsigned char* table = box_detail::align_up(ring + strideBytes, 8);

    filter::EdgeJob<T, T> job{src, srcStep, dst, dstStep, roi.width, roi.height, fp, border, value, scratch,
                              Kernel::folds(mask.height) ? reinterpret_cast<const void**>(table) : nullptr};
    if (mask.width > 1 && !Kernel::folds(mask.height)) {
        filter::FoldRows<T, L, Max>(job, reinterpret_cast<T*>(scratch), reinterpret_cast<T*>(ring),
                                    strideBytes / std::int64_t(sizeof(T)))
            .run();
        return kelStatusOk;
    }
    Driver(job).run(Kernel(mask.width, mask.height, reinterpret_cast<T*>(ring)));
    return kelStatusOk;
}

}  // namespace min_max_detail

template <class T, Layout L>
KelStatus filter_min_border(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, KeliSize mask,
                            KeliBorderType border, const T* pBorderValue, Kel8u* pBuffer)
{
    return min_max_detail::filter<T, L, false>(pSrc, srcStep, pDst, dstStep, roi, mask, border, pBorderValue, pBuffer);
}

template <class T, Layout L>
KelStatus filter_max_border(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, KeliSize mask,
                            KeliBorderType border, const T* pBorderValue, Kel8u* pBuffer)
{
    return min_max_detail::filter<T, L, true>(pSrc, srcStep, pDst, dstStep, roi, mask, border, pBorderValue, pBuffer);
}

// The scratch size: the edge strips (t elements a channel), the ring of mh rows, a row of the
// mask, 64 bytes more for 32f and 32 of slack for the caller's alignment. Checks: the output
// pointer, the region, the mask, the channel count, then the type.
inline KelStatus filter_min_max_buffer_size(KeliSize roi, KeliSize mask, KelDataType dataType, int numChannels,
                                            int* pBufferSize)
{
    using min_max_detail::align32;
    if (!pBufferSize) return kelStatusNullPtr;
    if (roi.width < 1 || roi.height < 1) return kelStatusBadSize;
    if (mask.width < 1 || mask.height < 1) return kelStatusBadMaskSize;
    if (numChannels != 1 && numChannels != 3 && numChannels != 4) return kelStatusBadChannelCount;
    const std::int64_t e = dataType == kel8u                          ? 1
                           : dataType == kel16u || dataType == kel16s ? 2
                           : dataType == kel32f                       ? 4
                                                                      : 0;
    if (e == 0) return kelStatusBadDataType;
    const std::int64_t w = roi.width, h = roi.height, mw = mask.width, mh = mask.height, C = numChannels;
    const std::int64_t a = mh - ((mh - 1) >> 1) - 1, b = mw - ((mw - 1) >> 1) - 1;
    std::int64_t t;
    if (mw < w && mh < h) {
        t = a < 1 ? 0 : (mh - 1 + a) * (mw - 1 + w);
        if (b != 0) t = std::max(t, (mw - 1 + b) * (mh - 1 + h));
    } else {
        t = (mh - 1 + h) * (mw - 1 + w);
    }
    const std::int64_t bytes = align32(t * e * C) + align32(C * w * e) * mh + align32(mw * C * e) + (e == 4 ? 64 : 0) + 32;
    if (bytes > 0x7FFFFFFF) {
        *pBufferSize = 0;
        return kelStatusSizeOverflow;
    }
    *pBufferSize = static_cast<int>(bytes);
    return kelStatusOk;
}

// The 3x3 erosion (Max false) or dilation of a 64f image whose pixels one around the region are
// readable. Checks: src, dst null; a step below 1; the region; then the steps against the row,
// the source's with the pixel on either side (kelStatusStepTooSmall).
template <bool Max>
KelStatus morphology_3x3_64f(const Kel64f* pSrc, int srcStep, Kel64f* pDst, int dstStep, KeliSize roi)
{
    if (KelStatus s = check::first({check::pointers(pSrc), check::pointers(pDst), check::steps(srcStep, dstStep),
                                    check::size(roi)}))
        return s;
    const std::int64_t w = roi.width;
    if (srcStep < w * 8 + 16 || dstStep < w * 8) return kelStatusStepTooSmall;
    const auto* s = reinterpret_cast<const unsigned char*>(pSrc);
    auto* d = reinterpret_cast<unsigned char*>(pDst);
    for (std::int64_t y = 0; y < roi.height; ++y) {
        const unsigned char* mid = s + y * srcStep - 8;
        const Kel64f* rows[3] = {reinterpret_cast<const Kel64f*>(mid - srcStep), reinterpret_cast<const Kel64f*>(mid),
                                 reinterpret_cast<const Kel64f*>(mid + srcStep)};
        rows::min_max::window3x3_64f<Max>(rows, reinterpret_cast<Kel64f*>(d + y * dstStep), w);
    }
    return kelStatusOk;
}

}  // namespace keli
