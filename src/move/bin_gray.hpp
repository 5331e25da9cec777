// keliBinToGray and keliGrayToBin: one-bit images, eight pixels to a byte from the low bit up,
// and gray images of 8u, 16u, 16s or 32f. Only the low three bits of the bit offset count: it
// picks the first pixel's bit in the row's first byte and never moves the row pointer.
//
// Checks: pointers, size, steps, then a negative bit offset (kelStatusBadSize).
#pragma once

#include <cstddef>

#include "frame/check.hpp"
#include "frame/driver.hpp"
#include "move/rows/bin_gray.hpp"

namespace keli {

template <class D>
KelStatus bin_to_gray(const Kel8u* pSrc, int srcStep, int srcBitOffset, D* pDst, int dstStep, KeliSize roi, D loVal, D hiVal)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::size(roi), check::steps(srcStep, dstStep),
                                    srcBitOffset < 0 ? kelStatusBadSize : kelStatusOk}))
        return s;
    const rows::BitExpand<D> e{loVal, hiVal};
    const unsigned offset = static_cast<unsigned>(srcBitOffset) & 7u;
    const std::size_t width = static_cast<std::size_t>(roi.width);
    walk_rows(roi.height, [&](const Kel8u* s, D* d) { rows::bin_to_gray_row(s, offset, d, width, e); },
              row_ptr(pSrc, srcStep), row_ptr(pDst, dstStep));
    return kelStatusOk;
}

template <class S>
KelStatus gray_to_bin(const S* pSrc, int srcStep, Kel8u* pDst, int dstStep, int dstBitOffset, KeliSize roi, S threshold)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::size(roi), check::steps(srcStep, dstStep),
                                    dstBitOffset < 0 ? kelStatusBadSize : kelStatusOk}))
        return s;
    const rows::BitThreshold<S> th{threshold};
    const unsigned offset = static_cast<unsigned>(dstBitOffset) & 7u;
    const std::size_t width = static_cast<std::size_t>(roi.width);
    walk_rows(roi.height, [&](const S* s, Kel8u* d) { rows::gray_to_bin_row(s, d, offset, width, th); },
              row_ptr(pSrc, srcStep), row_ptr(pDst, dstStep));
    return kelStatusOk;
}

}  // namespace keli
