// The fixed-mask medians without border handling: keliFilterMedianCross, keliFilterMedianColor
// and keliFilterMedianWeightedCenter3x3_8u_C1R. Their windows are centred on the output pixel and
// read the caller's pixels one (3x3 masks) or two (5x5) around the region.
//
// Checks, in order: src, dst null; the region; a step below 1; then the mask (kelMaskSize3x3 or
// kelMaskSize5x5, else kelStatusBadMaskSize) or the weight (below 1, kelStatusBadWeight).
#pragma once

#include <cstdint>

#include "filter/box.hpp"
#include "filter/median.hpp"
#include "filter/rows/median.hpp"
#include "frame/check.hpp"
#include "frame/fp_guard.hpp"
#include "frame/layout.hpp"

namespace keli {

namespace median_detail {

inline KelStatus check_fixed(const void* src, int srcStep, const void* dst, int dstStep, KeliSize roi)
{
    return check::first({check::pointers(src, dst), check::size(roi), check::steps(srcStep, dstStep)});
}

inline KelStatus check_fixed_mask(KeliMaskSize mask)
{
    return mask == kelMaskSize3x3 || mask == kelMaskSize5x5 ? kelStatusOk : kelStatusBadMaskSize;
}

// Output row y from `kernel(first source pixel of the row, srcStep, out, width)`.
template <class T, Layout L, class Kernel>
void fixed_rows(const T* src, int srcStep, T* dst, int dstStep, KeliSize roi, std::int64_t shift, const Kernel& kernel)
{
    for (std::int64_t y = 0; y < roi.height; ++y)
        kernel(reinterpret_cast<const T*>(bytes(src) + y * srcStep + shift), srcStep,
               reinterpret_cast<T*>(reinterpret_cast<unsigned char*>(dst) + y * dstStep), roi.width);
}

}  // namespace median_detail

// The median of the row and column arms through each pixel, per channel (five elements for
// kelMaskSize3x3, nine for kelMaskSize5x5).
template <class T, Layout L>
KelStatus filter_median_cross(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, KeliMaskSize mask)
{
    using namespace median_detail;
    if (KelStatus s = check::first({check_fixed(pSrc, srcStep, pDst, dstStep, roi), check_fixed_mask(mask)})) return s;
    if (mask == kelMaskSize3x3) fixed_rows<T, L>(pSrc, srcStep, pDst, dstStep, roi, 0, rows::median::CrossKernel<T, L, 1>{});
    else fixed_rows<T, L>(pSrc, srcStep, pDst, dstStep, roi, 0, rows::median::CrossKernel<T, L, 2>{});
    return kelStatusOk;
}

// The colour median: each pixel becomes the pixel of its 3x3 or 5x5 window whose colour lies
// nearest to all the others (least sum of L1 distances; row-major first on a tie). The f32 sums
// run with round-to-nearest and no flushing, whatever the caller's setting.
template <class T, Layout L>
KelStatus filter_median_colour(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, KeliMaskSize mask)
{
    using namespace median_detail;
    if (KelStatus s = check::first({check_fixed(pSrc, srcStep, pDst, dstStep, roi), check_fixed_mask(mask)})) return s;
    FpControlGuard guard;
    guard.set_rounding(0);
    guard.set_flush_to_zero(false);
    constexpr std::int64_t P = pixel_bytes<T, L>;
    if (mask == kelMaskSize3x3)
        fixed_rows<T, L>(pSrc, srcStep, pDst, dstStep, roi, -srcStep - P, rows::median::ColourKernel<T, L, 3>{});
    else
        fixed_rows<T, L>(pSrc, srcStep, pDst, dstStep, roi, -2 * std::int64_t(srcStep) - 2 * P,
                         rows::median::ColourKernel<T, L, 5>{});
    return kelStatusOk;
}

// The 3x3 median with the centre counted `weight` times. An even weight is lowered by one and
// the call ends with the warning kelStatusEvenWeight; from 9 on the centre outnumbers the eight
// neighbours, so the result is the source itself.
inline KelStatus filter_median_weighted_centre(const Kel8u* pSrc, int srcStep, Kel8u* pDst, int dstStep, KeliSize roi,
                                               int weight)
{
    using namespace median_detail;
    if (KelStatus s = check::first({check_fixed(pSrc, srcStep, pDst, dstStep, roi),
                                    weight < 1 ? kelStatusBadWeight : kelStatusOk}))
        return s;
    const KelStatus status = weight % 2 == 0 ? kelStatusEvenWeight : kelStatusOk;
    const int odd = weight % 2 == 0 ? weight - 1 : weight;
    namespace rm = rows::median;
    switch (odd) {
    case 1: fixed_rows<Kel8u, Layout::C1>(pSrc, srcStep, pDst, dstStep, roi, 0, rm::WeightedCentreKernel<0>{}); break;
    case 3: fixed_rows<Kel8u, Layout::C1>(pSrc, srcStep, pDst, dstStep, roi, 0, rm::WeightedCentreKernel<1>{}); break;
    case 5: fixed_rows<Kel8u, Layout::C1>(pSrc, srcStep, pDst, dstStep, roi, 0, rm::WeightedCentreKernel<2>{}); break;
    case 7: fixed_rows<Kel8u, Layout::C1>(pSrc, srcStep, pDst, dstStep, roi, 0, rm::WeightedCentreKernel<3>{}); break;
    default: box_detail::copy_region<Kel8u, Layout::C1>(pSrc, srcStep, pDst, dstStep, roi);
    }
    return status;
}

}  // namespace keli
