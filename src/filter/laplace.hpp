// keliFilterLaplaceBorder, keliFilterHipassBorder and keliFilterSharpenBorder (fixed 3x3 and
// 5x5 masks centred on the pixel) and their buffer size queries.
//
// Masks: Laplace 3x3 is -1 all round with 8 in the centre, and high-pass 3x3 is the same mask on
// the same path; high-pass 5x5 is -1 all round with 24 in the centre; Laplace 5x5 is
// -1 -3 -4 -3 -1 / -3 0 6 0 -3 / -4 6 20 6 -4 / -3 0 6 0 -3 / -1 -3 -4 -3 -1; sharpen (3x3 only) is
// -1 all round with 16 in the centre, divided by 8. 8u and 16s sums are exact in 32 bits and
// saturate on store; sharpen divides its exact sum by 8 rounding half to even, as every scale by
// a power of two in the library does, so a constant image comes back unchanged. 32f is not
// clamped and adds in the one order of rows/laplace.hpp.
//
// Pixels beyond the region come from the border: replicated or the constant, with any of the
// in-memory flags, or 240 for none. A mirrored border is refused (kelStatusBadBorder), though
// the derivative filters beside these take it.
//
// Checks, in order: src, dst, buffer null; the region; the mask (kelStatusBadMaskSize); the
// border (kelStatusBadBorder); then a constant border with no value (kelStatusNullPtr), last,
// so that a call with a bad border and no value reports the border. No step is checked: a row
// step is an address difference, and any value, zero or negative, names rows the caller owns.
// The one-channel members take the border value itself, the others one value a processed
// channel.
//
// In place (src == dst) runs the edge driver's ring of extended rows with the same result; the
// kernels keep their sums in registers, so the caller's buffer holds only the driver's scratch,
// which always fits in the queried size whatever its alignment. AC4 leaves the destination's
// alpha as it stood.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "filter/box.hpp"
#include "filter/edge_driver.hpp"
#include "filter/rows/laplace.hpp"
#include "frame/check.hpp"
#include "frame/layout.hpp"
#include "move/border.hpp"

namespace keli {

namespace laplace_detail {

// Below 256, and no border handling at all (240) or a constant or replicated base kind with
// any of the flags. Compared unsigned: a negative value is no border.
constexpr bool accepts_border(int border)
{
    const int k = border::base_kind(border);
    return static_cast<unsigned>(border) < 256 && (border == 240 || k == kelBorderConst || k == kelBorderRepl);
}

enum class Family { Laplace, Hipass, Sharpen };

constexpr bool accepts_mask(Family f, int mask)
{
    return mask == kelMaskSize3x3 || (mask == kelMaskSize5x5 && f != Family::Sharpen);
}

template <class T, Layout L, class Kernel>
void drive(const T* src, int srcStep, T* dst, int dstStep, KeliSize roi, int reach, int border, const T* value,
           Kel8u* buffer, const Kernel& kernel)
{
    using Driver = filter::EdgeDriver<T, L>;
    const filter::Footprint fp = filter::centred(2 * reach + 1, 2 * reach + 1);
    // The strips hold elements, read as such; the buffer may sit at any address.
    filter::EdgeJob<T, T> job{src, srcStep, dst, dstStep, roi.width, roi.height, fp, border, value,
                              box_detail::align_up(buffer, 8)};
    if (box_detail::bytes(src) == box_detail::bytes(dst))
        Driver(job).run_in_place(kernel);
    else
        Driver(job).run(kernel);
}

template <Family F, class T, Layout L>
KelStatus fixed_mask(const T* src, int srcStep, T* dst, int dstStep, KeliSize roi, int mask, int border, const T* value,
                 Kel8u* buffer)
{
    if (KelStatus s = check::first({check::pointers(src, dst, buffer), check::size(roi),
                                    accepts_mask(F, mask) ? kelStatusOk : kelStatusBadMaskSize,
                                    accepts_border(border) ? kelStatusOk : kelStatusBadBorder,
                                    border::base_kind(border) == kelBorderConst && !value ? kelStatusNullPtr
                                                                                          : kelStatusOk}))
        return s;
    namespace k = rows::laplace;
    const auto run = [&](int reach, const auto& kernel) {
        drive<T, L>(src, srcStep, dst, dstStep, roi, reach, border, value, buffer, kernel);
    };
    if constexpr (F == Family::Sharpen) {
        run(1, k::CentreMinusSums<T, L, 3, 17, true>());
    } else if (mask == kelMaskSize3x3) {
        run(1, k::CentreMinusSums<T, L, 3, 9, false>());
    } else if constexpr (F == Family::Hipass) {
        run(2, k::CentreMinusSums<T, L, 5, 25, false>());
    } else if constexpr (std::is_same_v<T, Kel32f>) {
        run(2, k::Laplace5x5Float<L>());
    } else {
        run(2, k::Laplace5x5Integer<T, L>());
    }
    return kelStatusOk;
}

}  // namespace laplace_detail

template <class T, Layout L>
KelStatus filter_laplace_border(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, KeliMaskSize mask,
                                KeliBorderType border, const T* pBorderValue, Kel8u* pBuffer)
{
    using namespace laplace_detail;
    return fixed_mask<Family::Laplace, T, L>(pSrc, srcStep, pDst, dstStep, roi, mask, border, pBorderValue, pBuffer);
}

template <class T, Layout L>
KelStatus filter_hipass_border(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, KeliMaskSize mask,
                               KeliBorderType border, const T* pBorderValue, Kel8u* pBuffer)
{
    using namespace laplace_detail;
    return fixed_mask<Family::Hipass, T, L>(pSrc, srcStep, pDst, dstStep, roi, mask, border, pBorderValue, pBuffer);
}

template <class T, Layout L>
KelStatus filter_sharpen_border(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, KeliMaskSize mask,
                                KeliBorderType border, const T* pBorderValue, Kel8u* pBuffer)
{
    using namespace laplace_detail;
    return fixed_mask<Family::Sharpen, T, L>(pSrc, srcStep, pDst, dstStep, roi, mask, border, pBorderValue, pBuffer);
}

// The scratch size, a formula of the interface: with k the mask side, a bordered copy of the
// region (or, when the region is larger than the mask both ways, k (5x5: k + 1) rows of the
// longer side with their border), a working row of column sums (twelve of them for 5x5), and 32
// bytes of slack for the caller's alignment. Checks: the output pointer, the region, the mask,
// the types (equal, 8u, 16s or 32f), the channel count (1, 3, 4); a size past 2^31 - 1 is an
// overflow, as in the other filters.
inline KelStatus laplace_buffer_size(bool sharpen, KeliSize roi, KeliMaskSize mask, KelDataType srcType,
                                     KelDataType dstType, int numChannels, int* pBufferSize)
{
    using laplace_detail::Family;
    if (!pBufferSize) return kelStatusNullPtr;
    if (roi.width < 1 || roi.height < 1) return kelStatusBadSize;
    if (!laplace_detail::accepts_mask(sharpen ? Family::Sharpen : Family::Laplace, mask)) return kelStatusBadMaskSize;
    if (srcType != dstType || (srcType != kel8u && srcType != kel16s && srcType != kel32f)) return kelStatusBadDataType;
    if (numChannels != 1 && numChannels != 3 && numChannels != 4) return kelStatusBadChannelCount;
    const auto a32 = [](std::int64_t v) { return (v + 31) & ~std::int64_t(31); };
    const bool small = mask == kelMaskSize3x3;
    const std::int64_t w = roi.width, h = roi.height, C = numChannels, k = small ? 3 : 5;
    const std::int64_t e = srcType == kel8u ? 1 : srcType == kel16s ? 2 : 4;
    std::int64_t a, b;
    if (k >= w || k >= h)
        a = w + k - 1, b = h - 1;
    else
        a = k + std::max(w, h) - 1, b = small ? 0 : 1;
    const std::int64_t f = a32(((w + (small ? 2 : 0)) << (srcType == kel8u ? 1 : 2)) * C);
    const std::int64_t bytes = (small ? f : f * 12) + a32((b + k) * a * e * C) + 32;
    if (bytes > 0x7FFFFFFF) {
        *pBufferSize = 0;
        return kelStatusSizeOverflow;
    }
    *pBufferSize = static_cast<int>(bytes);
    return kelStatusOk;
}

}  // namespace keli
