// keliAbs: absolute value of every element.
#pragma once

#include "frame/check.hpp"
#include "frame/rows/abs.hpp"
#include "frame/unary_image.hpp"

namespace keli {

template <class T, Layout L>
KelStatus abs_image(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::size(roi), check::steps(srcStep, dstStep)}))
        return s;
    // Steps advance in whole elements: the low bits of a step that is not a multiple of the
    // element size are dropped.
    unary_image<rows::AbsOp<T>, L, StepRule::Elements>(pSrc, srcStep, pDst, dstStep, roi);
    return kelStatusOk;
}

}  // namespace keli
