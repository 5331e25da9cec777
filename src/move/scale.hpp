// keliScale (one type's range stretched over another's) and keliScaleC (x * m + a between any
// two types).
//
// keliScale checks the value range of its float members first, before the pointers, then
// pointers, size and steps. keliScaleC with m == 1 and a == 0 (within the double epsilon) is a
// plain conversion and hands the call, checks and all, to the copy or the matching conversion.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "frame/ac4.hpp"
#include "frame/check.hpp"
#include "frame/driver.hpp"
#include "frame/fp_guard.hpp"
#include "frame/layout.hpp"
#include "move/convert.hpp"
#include "move/convert_round.hpp"
#include "move/copy.hpp"
#include "move/rows/scale.hpp"
#include "move/rows/scale_c.hpp"

namespace keli {

namespace scale_detail {

// Images that fill their rows without gaps run as one, while the element count stays an int.
template <class S, class D>
inline bool contiguous(int srcStep, int dstStep, std::size_t rowElems, int height)
{
    return static_cast<std::size_t>(srcStep) == rowElems * sizeof(S) &&
           static_cast<std::size_t>(dstStep) == rowElems * sizeof(D) &&
           static_cast<double>(rowElems) * height < 2147483647.0;
}

// Streams its stores (no cache query) from `ntGate` pixels on; 0 never streams.
template <Layout L, class Op, class S, class D>
inline void scale_rows(const Op& op, const S* pSrc, int srcStep, D* pDst, int dstStep, KeliSize roi, std::int64_t ntGate)
{
    const std::size_t width = static_cast<std::size_t>(roi.width);
    if constexpr (has_alpha<L>) {
        walk_rows(
            roi.height,
            [&](const S* s, D* d) {
                ac4_row(d, width, [&](std::size_t x, std::size_t k, D* scratch) { rows::round_run(op, s + 4 * x, scratch, 4 * k); });
            },
            row_ptr(pSrc, srcStep), row_ptr(pDst, dstStep));
    } else {
        const bool nt = ntGate > 0 && std::int64_t(roi.width) * roi.height >= ntGate;
        const std::size_t rowElems = width * channels<L>;
        if (contiguous<S, D>(srcStep, dstStep, rowElems, roi.height)) {
            rows::round_run(op, pSrc, pDst, rowElems * static_cast<std::size_t>(roi.height), nt);
            return;
        }
        walk_rows(roi.height, [&](const S* s, D* d) { rows::round_run(op, s, d, rowElems, nt); }, row_ptr(pSrc, srcStep),
                  row_ptr(pDst, dstStep));
    }
}

template <class S, class D> constexpr std::int64_t kScaleStreamGate = sizeof(S) == 4 || sizeof(D) == 4 ? 838860 : 1398101;

inline KelStatus check_range(Kel32f vMin, Kel32f vMax)
{
    const volatile float span = vMax - vMin;  // the difference as a 32f value
    return span <= 0.0f ? kelStatusBadScaleRange : kelStatusOk;
}

}  // namespace scale_detail

// 8u to 16u, 16s, 32s: exact, no hint.
template <class D, Layout L> KelStatus scale_widen(const Kel8u* pSrc, int srcStep, D* pDst, int dstStep, KeliSize roi)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::size(roi), check::steps(srcStep, dstStep)}))
        return s;
    scale_detail::scale_rows<L>(rows::ScaleWidenOp<D>{}, pSrc, srcStep, pDst, dstStep, roi,
                                scale_detail::kScaleStreamGate<Kel8u, D>);
    return kelStatusOk;
}

// 16u, 16s, 32s to 8u: the accurate hint rounds (x + offset) / 257 (or / 16843009) under the
// nearest mode; any other hint takes the top byte.
template <class S, Layout L>
KelStatus scale_narrow(const S* pSrc, int srcStep, Kel8u* pDst, int dstStep, KeliSize roi, KelHintAlgorithm hint)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::size(roi), check::steps(srcStep, dstStep)}))
        return s;
    constexpr std::int64_t gate = scale_detail::kScaleStreamGate<S, Kel8u>;
    if (hint == kelAlgHintAccurate) {
        FpControlGuard guard;
        guard.set_rounding(0);
        scale_detail::scale_rows<L>(rows::ScaleNarrowAccurateOp<S>{}, pSrc, srcStep, pDst, dstStep, roi, gate);
    } else {
        scale_detail::scale_rows<L>(rows::ScaleNarrowFastOp<S>{}, pSrc, srcStep, pDst, dstStep, roi, gate);
    }
    return kelStatusOk;
}

// 8u to 32f: vMin + x * ((vMax - vMin) / 255), the factor formed in 32f.
template <Layout L>
KelStatus scale_8u32f(const Kel8u* pSrc, int srcStep, Kel32f* pDst, int dstStep, KeliSize roi, Kel32f vMin, Kel32f vMax)
{
    if (KelStatus s = check::first({scale_detail::check_range(vMin, vMax), check::pointers(pSrc, pDst), check::size(roi),
                                    check::steps(srcStep, dstStep)}))
        return s;
    const volatile float span = vMax - vMin;
    const rows::Scale8u32fOp op{span * 0.003921569f, vMin};
    scale_detail::scale_rows<L>(op, pSrc, srcStep, pDst, dstStep, roi, 0);
    return kelStatusOk;
}

// 32f to 8u: the value limited to [vMin, vMax], then x * (255 / (vMax - vMin)) - vMin * that,
// rounded to nearest under the mode forced for the call.
template <Layout L>
KelStatus scale_32f8u(const Kel32f* pSrc, int srcStep, Kel8u* pDst, int dstStep, KeliSize roi, Kel32f vMin, Kel32f vMax)
{
    if (KelStatus s = check::first({scale_detail::check_range(vMin, vMax), check::pointers(pSrc, pDst), check::size(roi),
                                    check::steps(srcStep, dstStep)}))
        return s;
    FpControlGuard guard;
    guard.set_rounding(0);
    const volatile float span = vMax - vMin;
    const volatile float factor = 255.0f / span;
    const volatile float offset = -vMin * factor;
    const rows::Scale32f8uOp op{vMin, vMax, factor, offset};
    scale_detail::scale_rows<L>(op, pSrc, srcStep, pDst, dstStep, roi, 0);
    return kelStatusOk;
}

namespace scale_detail {

enum class Forward { None, Copy, Exact, Round, Scaled, ClampSign };

template <class S, class D, class A, class B> constexpr bool pair_is = std::is_same_v<S, A> && std::is_same_v<D, B>;

// The conversion member that does the same job as a scale by 1 plus 0.
template <class S, class D> constexpr Forward forward_kind()
{
    if constexpr (std::is_same_v<S, D>) return Forward::Copy;
    else if constexpr (pair_is<S, D, Kel8u, Kel16u> || pair_is<S, D, Kel8u, Kel16s> || pair_is<S, D, Kel8u, Kel32s> ||
                       pair_is<S, D, Kel8u, Kel32f> || pair_is<S, D, Kel8s, Kel16s> || pair_is<S, D, Kel8s, Kel32s> ||
                       pair_is<S, D, Kel8s, Kel32f> || pair_is<S, D, Kel8s, Kel64f> || pair_is<S, D, Kel16u, Kel32s> ||
                       pair_is<S, D, Kel16u, Kel32f> || pair_is<S, D, Kel16s, Kel32s> || pair_is<S, D, Kel16s, Kel32f> ||
                       pair_is<S, D, Kel32s, Kel32f> || pair_is<S, D, Kel16u, Kel8u> || pair_is<S, D, Kel16s, Kel8u> ||
                       pair_is<S, D, Kel32s, Kel8u> || pair_is<S, D, Kel32s, Kel8s>)
        return Forward::Exact;
    else if constexpr (std::is_same_v<S, Kel32f> && sizeof(D) <= 2) return Forward::Round;
    else if constexpr (pair_is<S, D, Kel8u, Kel8s> || pair_is<S, D, Kel16u, Kel8s> || pair_is<S, D, Kel16s, Kel8s> ||
                       pair_is<S, D, Kel16u, Kel16s> || pair_is<S, D, Kel32s, Kel16s> || pair_is<S, D, Kel32s, Kel16u> ||
                       pair_is<S, D, Kel32f, Kel32s> || (std::is_same_v<S, Kel64f> && sizeof(D) <= 2))
        return Forward::Scaled;
    else if constexpr (pair_is<S, D, Kel8s, Kel8u> || pair_is<S, D, Kel8s, Kel16u> || pair_is<S, D, Kel16s, Kel16u>)
        return Forward::ClampSign;
    else return Forward::None;
}

constexpr double kEpsilon = 2.220446049250313e-16;

}  // namespace scale_detail

// keliScaleC_<S><D>_C1R and the same-type C1R and C1IR members.
template <class S, class D>
KelStatus scale_c(const S* pSrc, int srcStep, Kel64f mVal, Kel64f aVal, D* pDst, int dstStep, KeliSize roi,
                  KelHintAlgorithm hint)
{
    using namespace scale_detail;
    constexpr Forward fwd = forward_kind<S, D>();
    if (fwd != Forward::None && std::fabs(mVal - 1.0) < kEpsilon && std::fabs(aVal) < kEpsilon) {
        if constexpr (fwd == Forward::Copy) return copy_image<S, Layout::C1>(pSrc, srcStep, pDst, dstStep, roi);
        else if constexpr (fwd == Forward::Exact) return convert_image<S, D, Layout::C1>(pSrc, srcStep, pDst, dstStep, roi);
        else if constexpr (fwd == Forward::Round)
            return convert_round_image<S, D, Layout::C1>(pSrc, srcStep, pDst, dstStep, roi, kelRndNear);
        else if constexpr (fwd == Forward::Scaled) return convert_sfs<S, D>(pSrc, srcStep, pDst, dstStep, roi, kelRndNear, 0);
        else if constexpr (fwd == Forward::ClampSign) return convert_clamp_sign<S, D>(pSrc, srcStep, pDst, dstStep, roi);
    }
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::size(roi), check::steps(srcStep, dstStep)}))
        return s;
    FpControlGuard guard;
    guard.set_rounding(0);
    auto run = [&](const auto& op) {
        const std::size_t width = static_cast<std::size_t>(roi.width);
        if (contiguous<S, D>(srcStep, dstStep, width, roi.height)) {
            op.run(pSrc, pDst, width * static_cast<std::size_t>(roi.height));
            return;
        }
        walk_rows(roi.height, [&](const S* s, D* d) { op.run(s, d, width); }, row_ptr(pSrc, srcStep), row_ptr(pDst, dstStep));
    };
    if (hint == kelAlgHintAccurate) {
        run(rows::ScaleCOp<S, D, true>{mVal, aVal});
    } else {
        // Both constants rounded to 32f first, under the nearest mode just set.
        const volatile double m = mVal, a = aVal;
        run(rows::ScaleCOp<S, D, false>{static_cast<float>(m), static_cast<float>(a)});
    }
    return kelStatusOk;
}

template <class T>
KelStatus scale_c_inplace(T* pSrcDst, int srcDstStep, Kel64f mVal, Kel64f aVal, KeliSize roi, KelHintAlgorithm hint)
{
    return scale_c<T, T>(pSrcDst, srcDstStep, mVal, aVal, pSrcDst, srcDstStep, roi, hint);
}

}  // namespace keli
