// keliDiv, keliDivC and their wide members.
//
//   keliDiv:  dst = src2 / src1     in place: srcDst = srcDst / src   (the first image divides)
//   keliDivC: dst = src / value
//
// Checks: pointers in argument order, the size, the steps (below 1 is an error); keliDivC then
// tests its constant, one channel after the other, and a zero (or minus zero) value is an error
// before anything is written. A zero element of a divisor image is no error: the element gets
// its defined result, every other element is computed, and the call reports
// kelStatusDivByZeroWarn from the first row that met one. keliDivC_32f multiplies by the
// reciprocal of each value, computed once a call, and may differ from a true division in the
// last place.
#pragma once

#include <cstddef>
#include <cstdint>

#include "arith/binary_image.hpp"
#include "arith/rows/div.hpp"
#include "arith/rows/mul.hpp"
#include "frame/check.hpp"

namespace keli {

namespace div_detail {

using arith::kScaled;
using arith::Plan;

struct Family : arith::FamilyBase {
    // The second image is the dividend.
    static constexpr bool kSwap = true;

    // keliDiv has no fill: even a shift out of reach reads the divisor for the zero rule.
    template <class T, Layout L, bool> static Plan plan_constant(const T*, int n)
    {
        if constexpr (kScaled<T>) {
            if (n >= rows::kDivShortCuts<T>.zeroFrom) return Plan::Zero;
        }
        return Plan::Kernel;
    }

    template <class T, Layout L> static KelStatus check_constant(const T* value)
    {
        for (std::size_t c = 0; c < (has_alpha<L> ? 3 : channels<L>); ++c)
            if (value[c] == T(0)) return kelStatusDivByZero;
        return kelStatusOk;
    }

    // 32f divides by multiplying with the reciprocal (the AC4 alpha slot holds 0 and is never used).
    template <class T> static void prepare_constant(T* value)
    {
        if constexpr (!kScaled<T>)
            for (int c = 0; c < 4; ++c) value[c] = value[c] != 0.0f ? 1.0f / value[c] : 0.0f;
    }

    template <class T, class Visit> static void with_op(int n, Visit&& visit)
    {
        if constexpr (kScaled<T>) rows::with_div_op<T>(n, visit);
        else visit(rows::DivFloatOp{});
    }
    template <class T, class Visit> static void with_const_op(int n, Visit&& visit)
    {
        if constexpr (kScaled<T>) rows::with_div_const_op<T>(n, visit);
        else visit(rows::MulFloatOp{});
    }
};

}  // namespace div_detail

template <class T, Layout L>
KelStatus div_image(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst, int dstStep, KeliSize roi,
                    int scaleFactor = 0)
{
    if (KelStatus s = check::first({check::pointers(pSrc1, pSrc2, pDst), check::size(roi),
                                    check::steps(src1Step, src2Step, dstStep)}))
        return s;
    return arith::run_binary<div_detail::Family, T, L>(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roi,
                                                       scaleFactor);
}

template <class T, Layout L, bool InPlace = false>
KelStatus div_const_image(const T* pSrc, int srcStep, const T* pValue, T* pDst, int dstStep, KeliSize roi,
                          int scaleFactor = 0)
{
    if (KelStatus s = check::first(
            {check::pointers(pSrc, pValue, pDst), check::size(roi), check::steps(srcStep, dstStep)}))
        return s;
    if (KelStatus s = div_detail::Family::check_constant<T, L>(pValue)) return s;
    return arith::run_constant<div_detail::Family, T, L, InPlace>(pSrc, srcStep, pValue, pDst, dstStep, roi,
                                                                  scaleFactor);
}

// Wide members: what fits goes to the 32-bit members with all their checks; anything larger
// walks the rows in chunks, each testing its pointers, count and constant as a row kernel does.
template <class T, Layout L>
KelStatus div_image_L(const T* pSrc1, std::int64_t src1Step, const T* pSrc2, std::int64_t src2Step, T* pDst,
                      std::int64_t dstStep, KeliSizeL roi, int scaleFactor = 0)
{
    return arith::run_binary_L<div_detail::Family, T, L>(
        pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roi, scaleFactor, [&](KeliSize narrow) {
            return div_image<T, L>(pSrc1, static_cast<int>(src1Step), pSrc2, static_cast<int>(src2Step), pDst,
                                   static_cast<int>(dstStep), narrow, scaleFactor);
        });
}

template <class T, Layout L, bool InPlace = false>
KelStatus div_const_image_L(const T* pSrc, std::int64_t srcStep, const T* pValue, T* pDst, std::int64_t dstStep,
                            KeliSizeL roi, int scaleFactor = 0)
{
    return arith::run_constant_L<div_detail::Family, T, L, InPlace>(
        pSrc, srcStep, pValue, pDst, dstStep, roi, scaleFactor, [&](KeliSize narrow) {
            return div_const_image<T, L, InPlace>(pSrc, static_cast<int>(srcStep), pValue, pDst,
                                                  static_cast<int>(dstStep), narrow, scaleFactor);
        });
}

}  // namespace keli
