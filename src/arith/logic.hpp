// keliAnd, keliOr, keliXor, their constant forms, keliNot, keliLShiftC, keliRShiftC,
// keliComplement, keliMaxEvery and keliMinEvery.
//
//   keliAnd/Or/Xor:  dst = src1 op src2          in place: srcDst = srcDst op src
//   keliAndC/...:    dst = src op value          (one value a colour channel)
//   keliNot:         keliXorC with all bits set, through the same kernel
//   keliLShiftC:     dst = src << count          keliRShiftC: dst = src >> count
//   keliComplement:  two's complement to sign and magnitude
//   keliMaxEvery:    dst = max(src1, src2)       in place: srcDst = max(src, srcDst)
//
// Checks: the bit operations, shifts, Not and Complement test pointers, steps, then the size;
// Max and Min test pointers, the size, then steps. AC4 forms never write the destination alpha.
#pragma once

#include <cstdint>

#include "arith/binary_image.hpp"
#include "arith/rows/logic.hpp"
#include "frame/check.hpp"
#include "frame/unary_image.hpp"
#include "move/copy.hpp"

namespace keli {

using rows::Bit;
using rows::Extremum;
using rows::Shift;

namespace logic_detail {

template <Bit K> struct BitFamily : arith::FamilyBase {
    template <class T, Layout, bool> static arith::Plan plan_constant(const T*, int) { return arith::Plan::Kernel; }
    template <class T, class Visit> static void with_op(int, Visit&& visit) { visit(rows::BitOp<K, T>{}); }
    template <class T, class Visit> static void with_const_op(int, Visit&& visit) { visit(rows::BitOp<K, T>{}); }
};

template <Extremum K> struct ExtremumFamily : arith::FamilyBase {
    template <class T, class Visit> static void with_op(int, Visit&& visit) { visit(rows::ExtremumOp<K, T>{}); }
};

}  // namespace logic_detail

template <Bit K, class T, Layout L>
KelStatus bit_image(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst, int dstStep, KeliSize roi)
{
    if (KelStatus s = check::first({check::pointers(pSrc1, pSrc2, pDst), check::steps(src1Step, src2Step, dstStep),
                                    check::size(roi)}))
        return s;
    return arith::run_binary<logic_detail::BitFamily<K>, T, L>(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roi, 0);
}

template <Bit K, class T, Layout L>
KelStatus bit_const_image(const T* pSrc, int srcStep, const T* pValue, T* pDst, int dstStep, KeliSize roi)
{
    if (KelStatus s = check::first(
            {check::pointers(pSrc, pValue, pDst), check::steps(srcStep, dstStep), check::size(roi)}))
        return s;
    return arith::run_constant<logic_detail::BitFamily<K>, T, L, false>(pSrc, srcStep, pValue, pDst, dstStep, roi, 0);
}

template <class T, Layout L> KelStatus not_image(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi)
{
    const T ones[4] = {T(~T(0)), T(~T(0)), T(~T(0)), T(~T(0))};
    return bit_const_image<Bit::Xor, T, L>(pSrc, srcStep, ones, pDst, dstStep, roi);
}

template <Extremum K, class T, Layout L>
KelStatus extremum_image(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst, int dstStep,
                         KeliSize roi)
{
    if (KelStatus s = check::first({check::pointers(pSrc1, pSrc2, pDst), check::size(roi),
                                    check::steps(src1Step, src2Step, dstStep)}))
        return s;
    return arith::run_binary<logic_detail::ExtremumFamily<K>, T, L>(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep,
                                                                    roi, 0);
}

template <class T, Layout L> KelStatus complement_image(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::steps(srcStep, dstStep), check::size(roi)}))
        return s;
    unary_image<rows::ComplementOp<T>, L, StepRule::Bytes>(pSrc, srcStep, pDst, dstStep, roi);
    return kelStatusOk;
}

// keliLShiftC, keliRShiftC: `pCount` holds one count a colour channel, each any uint32. When all
// channels agree, a count of 0 copies (in place: nothing to do) and a count that pushes every bit
// out fills with 0 without reading the source; a signed right shift has no such fill, as it leaves
// the sign. Counts that differ are each applied by the rule in their own channel.
template <Shift K, class T, Layout L, bool InPlace = false>
KelStatus shift_image(const T* pSrc, int srcStep, const Kel32u* pCount, T* pDst, int dstStep, KeliSize roi)
{
    if (KelStatus s = check::first(
            {check::pointers(pSrc, pCount, pDst), check::steps(srcStep, dstStep), check::size(roi)}))
        return s;
    constexpr std::size_t C = has_alpha<L> ? 3 : channels<L>;
    bool same = true;
    for (std::size_t c = 1; c < C; ++c) same = same && pCount[c] == pCount[0];
    if (same) {
        const Kel32u count = pCount[0];
        if (count == 0) return InPlace ? kelStatusOk : copy_image<T, L>(pSrc, srcStep, pDst, dstStep, roi);
        if ((K == Shift::Left || std::is_unsigned_v<T>) && count >= rows::kBits<T>) {
            arith::fill_region<T, L>(T(0), pDst, dstStep, roi);
            return kelStatusOk;
        }
    }
    const T channel[4] = {0, 1, 2, 3};
    std::size_t pixels = static_cast<std::size_t>(roi.width);
    std::int64_t height = roi.height;
    arith::join_rows<T, L>(pixels, height, {srcStep, dstStep});
    auto walk = [&](const auto& op) {
        walk_rows(
            height, [&](const T* a, T* d) { arith::constant_pixels<L>(op, a, channel, d, pixels); },
            row_ptr(pSrc, srcStep), row_ptr(pDst, dstStep));
    };
    if (same) walk(rows::UniformShiftOp<K, T>(pCount[0]));
    else walk(rows::ChannelShiftOp<K, T>(pCount, C));
    return kelStatusOk;
}

}  // namespace keli
