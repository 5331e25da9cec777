// keliSet: every pixel of the region (or of its mask, or one channel of it) set to a value.
//
// Checks: the value pointer where there is one, the destination, the mask, then the size. The
// step is never checked: a step of 0 sets one row over and over.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/check.hpp"
#include "frame/layout.hpp"
#include "frame/store_choice.hpp"
#include "move/rows/fill.hpp"
#include "move/rows/masked.hpp"

namespace keli {

namespace set_detail {

template <class T> inline T* advance(T* p, std::int64_t step)
{
    return reinterpret_cast<T*>(reinterpret_cast<unsigned char*>(p) + step);
}

}  // namespace set_detail

// C1R, C3R, C4R: the pattern fill, one run for an unpadded region, non-temporal stores when the
// bytes written reach the largest cache.
template <class T, Layout L> KelStatus set_pixel(const T* pValue, T* pDst, int dstStep, KeliSize roi)
{
    if (KelStatus s = check::first({check::pointers(pValue, pDst), check::size(roi)})) return s;
    constexpr int C = static_cast<int>(channels<L>);
    if constexpr (has_alpha<L>) {
        // Three colour elements a pixel in a plain loop; the alpha element is never written.
        for (std::int64_t y = 0; y < roi.height; ++y, pDst = set_detail::advance(pDst, dstStep))
            for (std::int64_t x = 0; x < roi.width; ++x) {
                pDst[4 * x + 0] = pValue[0];
                pDst[4 * x + 1] = pValue[1];
                pDst[4 * x + 2] = pValue[2];
            }
    } else {
        const rows::FillPattern pattern = rows::make_fill_pattern(pValue, C);
        std::int64_t rowBytes = std::int64_t(roi.width) * C * std::int64_t(sizeof(T));
        std::int64_t height = roi.height;
        if (dstStep == rowBytes) rowBytes *= height, height = 1;
        const bool nt = use_nontemporal(std::uint64_t(rowBytes) * std::uint64_t(height));
        for (std::int64_t y = 0; y < height; ++y, pDst = set_detail::advance(pDst, dstStep))
            rows::fill_run(pDst, static_cast<std::size_t>(rowBytes), pattern, nt);
    }
    return kelStatusOk;
}

template <class T> KelStatus set_value(T value, T* pDst, int dstStep, KeliSize roi)
{
    if (KelStatus s = check::first({check::pointers(pDst), check::size(roi)})) return s;
    return set_pixel<T, Layout::C1>(&value, pDst, dstStep, roi);
}

// C3CR, C4CR: the channel the pointer addresses, in a plain loop.
template <class T, int C> KelStatus set_channel(T value, T* pDst, int dstStep, KeliSize roi)
{
    if (KelStatus s = check::first({check::pointers(pDst), check::size(roi)})) return s;
    for (std::int64_t y = 0; y < roi.height; ++y, pDst = set_detail::advance(pDst, dstStep))
        for (std::int64_t x = 0; x < roi.width; ++x) pDst[C * x] = value;
    return kelStatusOk;
}

// Masked: the value (three colour elements for AC4) where the mask is non-zero.
template <class T, Layout L>
KelStatus set_masked(const T* pValue, T* pDst, int dstStep, KeliSize roi, const Kel8u* pMask, int maskStep)
{
    if (KelStatus s = check::first({check::pointers(pValue, pDst, pMask), check::size(roi)})) return s;
    constexpr int C = static_cast<int>(channels<L>);
    constexpr std::size_t P = C * sizeof(T);
    constexpr std::size_t Colour = (has_alpha<L> ? 3 : C) * sizeof(T);
    T pixel[4] = {};
    for (int c = 0; c < (has_alpha<L> ? 3 : C); ++c) pixel[c] = pValue[c];
    const rows::FillPattern pattern = rows::make_fill_pattern(pixel, C);
    const rows::MaskSpread<P> spread;
    for (std::int64_t y = 0; y < roi.height; ++y, pDst = set_detail::advance(pDst, dstStep), pMask += maskStep)
        rows::masked_row<P, Colour>(rows::MaskedFromPattern{&pattern}, reinterpret_cast<unsigned char*>(pDst), pMask,
                                    static_cast<std::size_t>(roi.width), spread);
    return kelStatusOk;
}

template <class T>
KelStatus set_masked_value(T value, T* pDst, int dstStep, KeliSize roi, const Kel8u* pMask, int maskStep)
{
    if (KelStatus s = check::first({check::pointers(pDst, pMask), check::size(roi)})) return s;
    return set_masked<T, Layout::C1>(&value, pDst, dstStep, roi, pMask, maskStep);
}

}  // namespace keli
