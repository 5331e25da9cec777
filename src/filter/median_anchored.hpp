// keliFilterMedian_32f_C3R, _32f_C4R, _64f_C1R and their size queries: the median of an odd
// rectangle anchored where the caller says, with no border handling. The window of output pixel
// (x, y) has its top-left at (x - anchor.x, y - anchor.y) and is read from the caller's image,
// which must hold every pixel any window touches. Floats order by the key order of
// rows/median.hpp, so -0.0 < +0.0 and NaNs sit at the ends by their sign.
//
// Checks, in order: src, dst, buffer null; the region; a step below 1; the mask (not positive or
// an even side, kelStatusBadMaskSize); the anchor outside the mask (kelStatusBadAnchor); then, in
// the 32f forms, a source step too short for the widest window row, (maskWidth + width - 1)
// pixels (kelStatusBadStep).
#pragma once

#include <cstdint>

#include "filter/box.hpp"
#include "filter/median.hpp"
#include "frame/check.hpp"
#include "frame/layout.hpp"

namespace keli {

template <class T, Layout L>
KelStatus filter_median_anchored(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, KeliSize mask,
                                 KeliPoint anchor, Kel8u* pBuffer)
{
    using namespace median_detail;
    constexpr std::int64_t P = pixel_bytes<T, L>;
    if (KelStatus s = check::first({check::pointers(pSrc, pDst, pBuffer), check::size(roi), check::steps(srcStep, dstStep),
                                    odd_mask(mask) ? kelStatusOk : kelStatusBadMaskSize,
                                    anchor.x < 0 || anchor.x >= mask.width || anchor.y < 0 || anchor.y >= mask.height
                                        ? kelStatusBadAnchor
                                        : kelStatusOk}))
        return s;
    if (std::is_same_v<T, Kel32f> && srcStep < (std::int64_t(mask.width) + roi.width - 1) * P) return kelStatusBadStep;
    unsigned char* work = box_detail::align_up(pBuffer, 8);
    with_kernel<T, L, false>(mask, work, [&](const auto& kernel) {
        for (std::int64_t y = 0; y < roi.height; ++y) {
            const unsigned char* top = bytes(pSrc) + (y - anchor.y) * srcStep - anchor.x * P;
            kernel(ImageRows<T>{top, srcStep}, reinterpret_cast<T*>(reinterpret_cast<unsigned char*>(pDst) + y * dstStep),
                   roi.width);
        }
    });
    return kelStatusOk;
}

// Checks: the output pointer, the region, the mask, the channel count (1, 3 or 4,
// kelStatusBadChannelCount); a size past 2^31 - 1 is 0 with kelStatusSizeOverflow.
inline KelStatus filter_median_anchored_buffer_size(KeliSize roi, KeliSize mask, int numChannels, int* pBufferSize)
{
    if (!pBufferSize) return kelStatusNullPtr;
    if (roi.width < 1 || roi.height < 1) return kelStatusBadSize;
    if (!median_detail::odd_mask(mask)) return kelStatusBadMaskSize;
    if (numChannels != 1 && numChannels != 3 && numChannels != 4) return kelStatusBadChannelCount;
    const std::int64_t bytes = ((std::int64_t(mask.width) * mask.height * 136) & ~std::int64_t(15)) + 208;
    if (bytes > 0x7FFFFFFF) {
        *pBufferSize = 0;
        return kelStatusSizeOverflow;
    }
    *pBufferSize = static_cast<int>(bytes);
    return kelStatusOk;
}

}  // namespace keli
