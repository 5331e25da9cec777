// keliMul, keliMulC and their wide members.
//
//   keliMul:  dst = src1 * src2     in place: srcDst = srcDst * src
//   keliMulC: dst = src * value
//
// Checks: pointers in argument order, then the size. Steps are not checked and every scale
// factor is legal. The scale factor picks the op once per call. Where every result is 0 (a
// shift out of reach, or a C1 constant of 0 whatever the shift) the destination is filled the
// way keliSet fills, without reading the source; a C1 constant of 1 without a shift copies the
// source with keliCopy's row copy. The 32f members multiply every element as IEEE does, so a
// constant of 0 still turns infinities into not-a-number.
#pragma once

#include <cstdint>

#include "arith/binary_image.hpp"
#include "arith/rows/mul.hpp"
#include "frame/check.hpp"

namespace keli {

namespace mul_detail {

using arith::kScaled;
using arith::Plan;

struct Family : arith::FamilyBase {
    template <class T> static Plan plan_binary(int n)
    {
        if constexpr (kScaled<T>) {
            if (n >= rows::kMulShortCuts<T>.zeroFrom) return Plan::Zero;
        }
        return Plan::Kernel;
    }

    template <class T, Layout L, bool InPlace> static Plan plan_constant(const T* value, int n)
    {
        if constexpr (kScaled<T>) {
            if constexpr (L == Layout::C1) {
                // A zero factor is decided before the scale factor is looked at.
                if (value[0] == 0) return Plan::Zero;
                if (value[0] == 1 && n == 0) return InPlace ? Plan::Nothing : Plan::Copy;
            }
            if (n >= rows::kMulShortCuts<T>.zeroFrom) return Plan::Zero;
        }
        return Plan::Kernel;
    }

    template <class T, class Visit> static void with_op(int n, Visit&& visit)
    {
        if constexpr (kScaled<T>) rows::with_mul_op<T>(n, visit);
        else visit(rows::MulFloatOp{});
    }
    template <class T, class Visit> static void with_const_op(int n, Visit&& visit) { with_op<T>(n, visit); }
};

}  // namespace mul_detail

template <class T, Layout L>
KelStatus mul_image(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst, int dstStep, KeliSize roi,
                    int scaleFactor = 0)
{
    if (KelStatus s = check::first({check::pointers(pSrc1, pSrc2, pDst), check::size(roi)})) return s;
    return arith::run_binary<mul_detail::Family, T, L>(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roi,
                                                       scaleFactor);
}

template <class T, Layout L, bool InPlace = false>
KelStatus mul_const_image(const T* pSrc, int srcStep, const T* pValue, T* pDst, int dstStep, KeliSize roi,
                          int scaleFactor = 0)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pValue, pDst), check::size(roi)})) return s;
    return arith::run_constant<mul_detail::Family, T, L, InPlace>(pSrc, srcStep, pValue, pDst, dstStep, roi,
                                                                  scaleFactor);
}

// Wide members: what fits goes to the 32-bit members with all their checks; anything larger
// walks the rows in chunks, each testing its pointers and count as a row kernel does.
template <class T, Layout L>
KelStatus mul_image_L(const T* pSrc1, std::int64_t src1Step, const T* pSrc2, std::int64_t src2Step, T* pDst,
                      std::int64_t dstStep, KeliSizeL roi, int scaleFactor = 0)
{
    return arith::run_binary_L<mul_detail::Family, T, L>(
        pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roi, scaleFactor, [&](KeliSize narrow) {
            return mul_image<T, L>(pSrc1, static_cast<int>(src1Step), pSrc2, static_cast<int>(src2Step), pDst,
                                   static_cast<int>(dstStep), narrow, scaleFactor);
        });
}

template <class T, Layout L, bool InPlace = false>
KelStatus mul_const_image_L(const T* pSrc, std::int64_t srcStep, const T* pValue, T* pDst, std::int64_t dstStep,
                            KeliSizeL roi, int scaleFactor = 0)
{
    return arith::run_constant_L<mul_detail::Family, T, L, InPlace>(
        pSrc, srcStep, pValue, pDst, dstStep, roi, scaleFactor, [&](KeliSize narrow) {
            return mul_const_image<T, L, InPlace>(pSrc, static_cast<int>(srcStep), pValue, pDst,
                                                  static_cast<int>(dstStep), narrow, scaleFactor);
        });
}

}  // namespace keli
