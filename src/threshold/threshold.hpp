// keliThreshold*: replace the elements beyond a threshold, channel by channel.
//
// The members differ in their checks, not in their arithmetic: the plain forms check the
// images first and cmpOp last, the value forms cmpOp first, the two-sided forms the order of
// their thresholds last. All of them end in one driver that hands each row to the shared
// kernel of their rule; a single "greater" flag picks the side, so keliThreshold_GT and
// keliThreshold with kelCmpGreater are one computation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "frame/check.hpp"
#include "frame/driver.hpp"
#include "frame/layout.hpp"
#include "kelcore.h"
#include "threshold/rows/threshold.hpp"

namespace keli {

namespace threshold_detail {

using rows::Rule;

// cmpOp accepts exactly less (0) and greater (4).
inline KelStatus cmp_op(int cmpOp)
{
    return (cmpOp & ~4) != 0 ? kelStatusUnsupportedMode : kelStatusOk;
}

// Channels that carry a threshold: AC4 has three, its fourth is alpha.
template <Layout L> constexpr std::size_t processed = L == Layout::AC4 ? 3 : channels<L>;

// The 16u C1, C3 and C4 members stream their stores past the cache when the image is large
// against the cache and the call is not in place. The byte count is the one the family has
// always used: 32-bit, wrapping, compared as signed, so a huge image simply stays on ordinary
// stores.
template <class T, Layout L> inline bool streams(const void* src, const void* dst, KeliSize roi)
{
    if constexpr (!std::is_same_v<T, Kel16u> || L == Layout::AC4) {
        (void)src, (void)dst, (void)roi;
        return false;
    } else {
        const std::uint32_t wrapped = static_cast<std::uint32_t>(roi.width) * static_cast<std::uint32_t>(roi.height) *
                                      static_cast<std::uint32_t>(channels<L>) * 2u;
        const std::int32_t bytes = static_cast<std::int32_t>(wrapped);
        if (bytes < 0x40001) return false;
        std::int32_t cacheBytes = 0;
        if (kelGetMaxCacheSizeB(&cacheBytes) != kelStatusOk) return false;
        return src != dst && bytes > cacheBytes / 2;
    }
}

// Walks the rows of one call. Row steps are in bytes; a threshold or value array holds one
// element per processed channel (a null array stands for a rule that does not use it).
template <Rule R, Layout L, class T>
void run(const T* src, int srcStep, T* dst, int dstStep, KeliSize roi, const T* t, const T* v, const T* t2, const T* v2)
{
    constexpr std::size_t C = channels<L>;
    constexpr bool alpha = has_alpha<L>;
    rows::Pattern<T, C> pattern;
    for (std::size_t c = 0; c < C; ++c) {
        const bool used = c < processed<L>;
        pattern.channel[c] = {used ? t[c] : T(0), used && v ? v[c] : T(0), used && t2 ? t2[c] : T(0),
                              used && v2 ? v2[c] : T(0)};
    }
    pattern.build();
    using Op = rows::ThresholdOp<T, R>;
    const std::size_t n = static_cast<std::size_t>(roi.width) * C;
    if (streams<T, L>(src, dst, roi)) {
        walk_rows(
            roi.height, [&](const T* s, T* d) { rows::threshold_run<Op, C, alpha, true>(s, d, n, pattern); },
            row_ptr(src, srcStep), row_ptr(dst, dstStep));
        simd::fence();
    } else {
        walk_rows(
            roi.height, [&](const T* s, T* d) { rows::threshold_run<Op, C, alpha, false>(s, d, n, pattern); },
            row_ptr(src, srcStep), row_ptr(dst, dstStep));
    }
}

template <Layout L, class T>
void run_side(bool greater, const T* src, int srcStep, T* dst, int dstStep, KeliSize roi, const T* t)
{
    if (greater) run<Rule::Gt, L, T>(src, srcStep, dst, dstStep, roi, t, nullptr, nullptr, nullptr);
    else run<Rule::Lt, L, T>(src, srcStep, dst, dstStep, roi, t, nullptr, nullptr, nullptr);
}

template <Layout L, class T>
void run_val_side(bool greater, const T* src, int srcStep, T* dst, int dstStep, KeliSize roi, const T* t, const T* v)
{
    if (greater) run<Rule::GtVal, L, T>(src, srcStep, dst, dstStep, roi, t, v, nullptr, nullptr);
    else run<Rule::LtVal, L, T>(src, srcStep, dst, dstStep, roi, t, v, nullptr, nullptr);
}

}  // namespace threshold_detail

// keliThreshold: the side comes from cmpOp, checked last.
template <class T, Layout L>
KelStatus threshold_cmp(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, const T* threshold, int cmpOp)
{
    using namespace threshold_detail;
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::size(roi), check::steps(srcStep, dstStep),
                                    check::pointers(threshold), cmp_op(cmpOp)}))
        return s;
    run_side<L>(cmpOp == kelCmpGreater, pSrc, srcStep, pDst, dstStep, roi, threshold);
    return kelStatusOk;
}

// keliThreshold_GT and keliThreshold_LT.
template <class T, Layout L, bool Greater>
KelStatus threshold_side(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, const T* threshold)
{
    using namespace threshold_detail;
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::size(roi), check::steps(srcStep, dstStep),
                                    check::pointers(threshold)}))
        return s;
    run_side<L>(Greater, pSrc, srcStep, pDst, dstStep, roi, threshold);
    return kelStatusOk;
}

// keliThreshold_Val: cmpOp comes before everything else.
template <class T, Layout L>
KelStatus threshold_val_cmp(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, const T* threshold,
                            const T* value, int cmpOp)
{
    using namespace threshold_detail;
    if (KelStatus s = check::first({cmp_op(cmpOp), check::pointers(pSrc, pDst), check::size(roi),
                                    check::steps(srcStep, dstStep), check::pointers(threshold, value)}))
        return s;
    run_val_side<L>(cmpOp == kelCmpGreater, pSrc, srcStep, pDst, dstStep, roi, threshold, value);
    return kelStatusOk;
}

// keliThreshold_GTVal and keliThreshold_LTVal.
template <class T, Layout L, bool Greater>
KelStatus threshold_val_side(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, const T* threshold,
                             const T* value)
{
    using namespace threshold_detail;
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::size(roi), check::steps(srcStep, dstStep),
                                    check::pointers(threshold, value)}))
        return s;
    run_val_side<L>(Greater, pSrc, srcStep, pDst, dstStep, roi, threshold, value);
    return kelStatusOk;
}

// keliThreshold_LTValGTVal. The order test comes after the array test, which it depends on;
// on 32f a not-a-number threshold passes it, as the comparison is false.
template <class T, Layout L>
KelStatus threshold_two_sided(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, const T* thresholdLT,
                              const T* valueLT, const T* thresholdGT, const T* valueGT)
{
    using namespace threshold_detail;
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::size(roi), check::steps(srcStep, dstStep),
                                    check::pointers(thresholdLT, valueLT, thresholdGT, valueGT)}))
        return s;
    for (std::size_t c = 0; c < processed<L>; ++c)
        if (thresholdLT[c] > thresholdGT[c]) return kelStatusThresholdOrder;
    run<Rule::LtGt, L, T>(pSrc, srcStep, pDst, dstStep, roi, thresholdLT, valueLT, thresholdGT, valueGT);
    return kelStatusOk;
}

}  // namespace keli
