// keliMulScale and keliMulCScale: multiplication of 8u and 16u images that reads the largest
// value of the type as 1.0, so that 255 * x / 255 is x again.
//
//   keliMulScale:  dst = src1 * src2 / max     in place: srcDst = srcDst * src / max
//   keliMulCScale: dst = src * value / max     (C3, C4, AC4: one value a colour channel)
//
// Checks: pointers in argument order, the row steps (below 1 is an error), then the size. No
// value is a short cut: every call runs the kernel, which always reads its sources. AC4 keeps
// the destination's alpha as it stood.
#pragma once

#include "arith/binary_image.hpp"
#include "arith/rows/mul_scale.hpp"
#include "frame/check.hpp"

namespace keli {

namespace mul_scale_detail {

struct Family : arith::FamilyBase {
    template <class T, Layout L, bool> static arith::Plan plan_constant(const T*, int) { return arith::Plan::Kernel; }
    template <class T, class Visit> static void with_op(int, Visit&& visit) { visit(rows::MulNormOp<T>{}); }
    template <class T, class Visit> static void with_const_op(int, Visit&& visit) { visit(rows::MulNormOp<T>{}); }
};

}  // namespace mul_scale_detail

template <class T, Layout L>
KelStatus mul_scale_image(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst, int dstStep,
                          KeliSize roi)
{
    if (KelStatus s = check::first({check::pointers(pSrc1, pSrc2, pDst), check::steps(src1Step, src2Step, dstStep),
                                    check::size(roi)}))
        return s;
    return arith::run_binary<mul_scale_detail::Family, T, L>(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roi, 0);
}

template <class T, Layout L, bool InPlace = false>
KelStatus mul_scale_const_image(const T* pSrc, int srcStep, const T* pValue, T* pDst, int dstStep, KeliSize roi)
{
    if (KelStatus s = check::first(
            {check::pointers(pSrc, pValue, pDst), check::steps(srcStep, dstStep), check::size(roi)}))
        return s;
    return arith::run_constant<mul_scale_detail::Family, T, L, InPlace>(pSrc, srcStep, pValue, pDst, dstStep, roi, 0);
}

}  // namespace keli
