// keliMulC64f: dst = round(src * constant) with a 64f constant a channel, computed in 64f and
// clamped to the destination's range (32f: the product converted to 32f, clamped to the finite
// range).
//
// Checks: pointers in argument order, the size, then the rounding mode (above kelRndFinancial is
// an error). Steps are not checked and are taken as they stand. The financial mode has a kernel
// of its own that adds a signed half and truncates, without touching the control state. The
// other modes, and every mode of 32f, run the general kernel, which converts with the
// processor's rounding field: the body sets it for the call (toward zero, or nearest-even for
// kelRndNear and for 32f in the financial mode, which has no ties-away field) and restores the
// whole control register on return. Both kernels give results of the same precision whatever
// the hint, so the hint changes nothing.
#pragma once

#include <cstddef>
#include <cstdint>

#include "arith/binary_image.hpp"
#include "arith/rows/mul_c64f.hpp"
#include "frame/check.hpp"
#include "frame/driver.hpp"
#include "frame/fp_guard.hpp"
#include "frame/layout.hpp"

namespace keli {

namespace mul_c64f_detail {

template <class Op, class T, Layout L>
void rows_of(const Op& op, const T* pSrc, int srcStep, const double* constant, T* pDst, int dstStep, KeliSize roi)
{
    std::size_t pixels = static_cast<std::size_t>(roi.width);
    std::int64_t height = roi.height;
    arith::join_rows<T, L>(pixels, height, {srcStep, dstStep});
    walk_rows(
        height, [&](const T* a, T* b) { rows::mul_c64f_run<channels<L>>(op, a, constant, b, pixels * channels<L>); },
        row_ptr(pSrc, srcStep), row_ptr(pDst, dstStep));
}

}  // namespace mul_c64f_detail

template <class T, Layout L>
KelStatus mul_c64f_image(const T* pSrc, int srcStep, const Kel64f* pConstants, T* pDst, int dstStep, KeliSize roi,
                         KelHintAlgorithm, KelRoundMode roundMode)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pConstants, pDst), check::size(roi)})) return s;
    const unsigned mode = static_cast<unsigned>(roundMode);
    if (mode > kelRndFinancial) return kelStatusBadRoundMode;

    double constant[4];
    for (std::size_t c = 0; c < 4; ++c) constant[c] = pConstants[c < channels<L> ? c : 0];
    if (mode == kelRndFinancial && !std::is_same_v<T, Kel32f>) {
        mul_c64f_detail::rows_of<rows::MulC64fOp<T, rows::FinancialRound>, T, L>({}, pSrc, srcStep, constant, pDst,
                                                                               dstStep, roi);
        return kelStatusOk;
    }
    FpControlGuard guard;
    guard.set_rounding(mode == kelRndZero ? 3u : 0u);
    mul_c64f_detail::rows_of<rows::MulC64fOp<T, rows::ControlRound>, T, L>({}, pSrc, srcStep, constant, pDst, dstStep,
                                                                         roi);
    return kelStatusOk;
}

}  // namespace keli
