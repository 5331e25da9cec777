// keliDiv_Round: keliDiv with a rounding mode, computed in 64f.
//
//   dst = src2 / src1     in place: srcDst = srcDst / src   (the first image divides)
//
// Checks: pointers in argument order, the size, the steps (below 1 is an error), then the mode:
// above kelRndFinancial is an error. kelRndZero truncates, kelRndNear rounds to nearest-even
// and kelRndFinancial sends halves away from zero, each from the exact quotient scaled by
// 2^-scaleFactor and saturated. The two modes that convert through the processor's rounding
// field set it for the call and restore the whole control register on return; the financial
// kernel adds a signed half and truncates and leaves the register alone. A zero divisor element
// is a warning, as in keliDiv: the element gets the saturated sign of its dividend and the call
// reports kelStatusDivByZeroWarn from the first row that met one.
#pragma once

#include "arith/binary_image.hpp"
#include "arith/rows/div_round.hpp"
#include "frame/check.hpp"
#include "frame/fp_guard.hpp"

namespace keli {

namespace div_round_detail {

template <class Round> struct Family : arith::FamilyBase {
    static constexpr bool kSwap = true;  // the second image is the dividend
    template <class T, class Visit> static void with_op(int n, Visit&& visit)
    {
        rows::with_div_round_op<T, Round>(n, visit);
    }
};

}  // namespace div_round_detail

template <class T, Layout L>
KelStatus div_round_image(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst, int dstStep,
                          KeliSize roi, KelRoundMode roundMode, int scaleFactor)
{
    if (KelStatus s = check::first({check::pointers(pSrc1, pSrc2, pDst), check::size(roi),
                                    check::steps(src1Step, src2Step, dstStep)}))
        return s;
    const unsigned mode = static_cast<unsigned>(roundMode);
    if (mode > kelRndFinancial) return kelStatusBadRoundMode;
    if (mode == kelRndFinancial)
        return arith::run_binary<div_round_detail::Family<rows::FinancialRound>, T, L>(
            pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roi, scaleFactor);
    FpControlGuard guard;
    guard.set_rounding(mode == kelRndZero ? 3u : 0u);
    return arith::run_binary<div_round_detail::Family<rows::ControlRound>, T, L>(pSrc1, src1Step, pSrc2, src2Step,
                                                                                 pDst, dstStep, roi, scaleFactor);
}

}  // namespace keli
