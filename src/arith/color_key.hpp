// keliCompColorKey and keliAlphaCompColorKey: two images merged by a key colour.
//
//   keliCompColorKey:       dst = src1 pixel == colorKey (every element) ? src2 pixel : src1 pixel
//   keliAlphaCompColorKey:  keyed pixels (all four elements equal the key) take src2's colour;
//                           the others the composition with the constant alphas in 32f. The
//                           destination's alpha element is never changed.
//
// Checks: pointers (the key array included), size, steps; then keliAlphaCompColorKey takes
// only the plain operations 0-5.
#pragma once

#include <cstddef>

#include "arith/rows/color_key.hpp"
#include "frame/check.hpp"
#include "frame/driver.hpp"
#include "frame/fp_guard.hpp"

namespace keli {

template <class T, std::size_t C>
KelStatus comp_color_key_image(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst, int dstStep,
                               KeliSize roi, const T* colorKey)
{
    if (KelStatus s = check::first({check::pointers(pSrc1, pSrc2, pDst, colorKey), check::size(roi),
                                    check::steps(src1Step, src2Step, dstStep)}))
        return s;
    const std::size_t width = static_cast<std::size_t>(roi.width);
    walk_rows(
        roi.height, [&](const T* x, const T* y, T* d) { rows::color_key::key_run<T, C>(x, y, d, width, colorKey); },
        row_ptr(pSrc1, src1Step), row_ptr(pSrc2, src2Step), row_ptr(pDst, dstStep));
    return kelStatusOk;
}

inline KelStatus alpha_comp_color_key_image(const Kel8u* pSrc1, int src1Step, Kel8u alpha1, const Kel8u* pSrc2,
                                            int src2Step, Kel8u alpha2, Kel8u* pDst, int dstStep, KeliSize roi,
                                            const Kel8u colorKey[4], int alphaType)
{
    if (KelStatus s = check::first({check::pointers(pSrc1, pSrc2, pDst, colorKey), check::size(roi),
                                    check::steps(src1Step, src2Step, dstStep),
                                    static_cast<unsigned>(alphaType) > 5u ? kelStatusBadAlphaType : kelStatusOk}))
        return s;
    // Nearest-even rounding of the 32f results, whatever the caller's mode.
    FpControlGuard guard;
    guard.set_rounding(0);
    const auto f = rows::color_key::KeyComposition::of(alphaType, alpha1, alpha2);
    const std::size_t width = static_cast<std::size_t>(roi.width);
    walk_rows(
        roi.height,
        [&](const Kel8u* x, const Kel8u* y, Kel8u* d) {
            rows::color_key::key_comp_pixels(f, x, y, d, width, colorKey);
        },
        row_ptr(pSrc1, src1Step), row_ptr(pSrc2, src2Step), row_ptr(pDst, dstStep));
    return kelStatusOk;
}

}  // namespace keli
