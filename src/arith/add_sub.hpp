// keliAdd, keliSub, keliAddC, keliSubC and their wide members.
//
//   keliAdd:  dst = src1 + src2     in place: srcDst = srcDst + src
//   keliSub:  dst = src2 - src1     in place: srcDst = srcDst - src
//   keliAddC: dst = src + value     keliSubC: dst = src - value
//
// Checks: pointers in argument order, then the size. Steps are not checked (zero and negative
// steps are taken as they stand) and every scale factor is legal. The scale factor picks the
// op once per call; where it makes the result a constant the sources are not read at all and
// the destination is filled the way keliSet fills. Rows are walked one by one, never merged.
#pragma once

#include <cstdint>
#include <type_traits>

#include "arith/binary_image.hpp"
#include "arith/rows/add_sub.hpp"
#include "frame/check.hpp"

namespace keli {

using rows::AddSub;

namespace add_sub_detail {

using arith::kScaled;
using arith::Plan;

template <AddSub K> struct Family : arith::FamilyBase {
    // Subtraction takes the second image minus the first.
    static constexpr bool kSwap = K == AddSub::Sub;

    template <class T> static Plan plan_binary(int n)
    {
        if constexpr (kScaled<T>) {
            if (n >= rows::kAddSubShortCuts<K, T>.zeroFrom) return Plan::Zero;
        }
        return Plan::Kernel;
    }

    template <class T, Layout L, bool InPlace> static Plan plan_constant(const T* value, int n)
    {
        if constexpr (kScaled<T>) {
            constexpr scale::ShortCuts b = rows::kAddSubShortCuts<K, T>;
            if (n >= b.zeroFrom) return Plan::Zero;
            // Adding or subtracting zero without a scale factor copies; in place there is nothing to do.
            if constexpr (L == Layout::C1)
                if (n == 0 && value[0] == 0) return InPlace ? Plan::Nothing : Plan::Copy;
            // A non-zero unsigned addend saturates every element once the shift is out of reach.
            if constexpr (K == AddSub::Add && std::is_unsigned_v<T>) {
                bool allNonZero = true;
                for (std::size_t c = 0; c < (has_alpha<L> ? 3 : 4); ++c) allNonZero = allNonZero && value[c] != 0;
                if (n <= b.patternTo && allNonZero) return Plan::Largest;
            }
        }
        return Plan::Kernel;
    }

    template <class T, class Visit> static void with_op(int n, Visit&& visit)
    {
        if constexpr (kScaled<T>) rows::with_scale_op<K, T>(n, visit);
        else visit(rows::FloatOp<K>{});
    }
    template <class T, class Visit> static void with_const_op(int n, Visit&& visit) { with_op<T>(n, visit); }
};

}  // namespace add_sub_detail

// keliAdd, keliSub: x op y with x = src1, y = src2 for addition and x = src2, y = src1 for
// subtraction. 32f members have no scale factor.
template <AddSub K, class T, Layout L>
KelStatus add_sub_image(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst, int dstStep,
                        KeliSize roi, int scaleFactor = 0)
{
    if (KelStatus s = check::first({check::pointers(pSrc1, pSrc2, pDst), check::size(roi)})) return s;
    return arith::run_binary<add_sub_detail::Family<K>, T, L>(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roi,
                                                              scaleFactor);
}

// keliAddC, keliSubC: src op value. `pValue` holds one value a processed channel (C1: the one
// value); `InPlace` marks the I forms, whose zero operand returns at once.
template <AddSub K, class T, Layout L, bool InPlace = false>
KelStatus add_sub_const_image(const T* pSrc, int srcStep, const T* pValue, T* pDst, int dstStep, KeliSize roi,
                              int scaleFactor = 0)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pValue, pDst), check::size(roi)})) return s;
    return arith::run_constant<add_sub_detail::Family<K>, T, L, InPlace>(pSrc, srcStep, pValue, pDst, dstStep, roi,
                                                                         scaleFactor);
}

// Wide members: what fits goes to the 32-bit members with all their checks; anything larger
// walks the rows in chunks.
template <AddSub K, class T, Layout L>
KelStatus add_sub_image_L(const T* pSrc1, std::int64_t src1Step, const T* pSrc2, std::int64_t src2Step, T* pDst,
                          std::int64_t dstStep, KeliSizeL roi, int scaleFactor = 0)
{
    return arith::run_binary_L<add_sub_detail::Family<K>, T, L>(
        pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roi, scaleFactor, [&](KeliSize narrow) {
            return add_sub_image<K, T, L>(pSrc1, static_cast<int>(src1Step), pSrc2, static_cast<int>(src2Step), pDst,
                                          static_cast<int>(dstStep), narrow, scaleFactor);
        });
}

template <AddSub K, class T, Layout L, bool InPlace = false>
KelStatus add_sub_const_image_L(const T* pSrc, std::int64_t srcStep, const T* pValue, T* pDst, std::int64_t dstStep,
                                KeliSizeL roi, int scaleFactor = 0)
{
    return arith::run_constant_L<add_sub_detail::Family<K>, T, L, InPlace>(
        pSrc, srcStep, pValue, pDst, dstStep, roi, scaleFactor, [&](KeliSize narrow) {
            return add_sub_const_image<K, T, L, InPlace>(pSrc, static_cast<int>(srcStep), pValue, pDst,
                                                         static_cast<int>(dstStep), narrow, scaleFactor);
        });
}

}  // namespace keli
