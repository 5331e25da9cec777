// keliCompare*, keliCompareC*, keliCompareEqualEps*: one 8-bit mask byte a pixel, 255 where
// the relation holds in every processed channel, 0 elsewhere.
//
// The family checks pointers, then steps, then size; cmpOp is never refused. Greater and
// greater-or-equal run the less and less-or-equal kernels with the operands exchanged, so on
// 32f a not-a-number in either operand makes all five relations false.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "frame/check.hpp"
#include "frame/driver.hpp"
#include "frame/layout.hpp"
#include "threshold/rows/compare.hpp"

namespace keli {

namespace compare_detail {

using rows::Relation;

// Channels that decide: AC4 has three, its fourth element never takes part.
template <Layout L> constexpr std::size_t processed = L == Layout::AC4 ? 3 : channels<L>;

// Large calls on whole vectors write the mask past the cache. The byte count is the one the
// family has always used, 32-bit and wrapping, compared as signed: a huge call whose count
// wraps negative simply keeps ordinary stores, which changes the speed and never the mask.
inline bool streams(std::initializer_list<const void*> images, std::initializer_list<int> stepsList, int height)
{
    std::uint32_t stepSum = 0;
    for (int s : stepsList) {
        if (s & 15) return false;
        stepSum += static_cast<std::uint32_t>(s);
    }
    for (const void* p : images)
        if (!simd::aligned16(p)) return false;
    return static_cast<std::int32_t>(stepSum * static_cast<std::uint32_t>(height)) >= 0x100001;
}

// Walks the rows; `row(a, b)` builds the operands of one row from its source row pointers.
template <class T, Layout L, class MakeRow>
void run(const T* a, int aStep, const T* b, int bStep, Kel8u* dst, int dstStep, KeliSize roi, bool stream,
         MakeRow make)
{
    constexpr std::size_t C = channels<L>;
    constexpr bool alpha = has_alpha<L>;
    const std::size_t width = static_cast<std::size_t>(roi.width);
    if (stream) {
        walk_rows(
            roi.height,
            [&](const T* ra, const T* rb, Kel8u* d) { rows::mask_row<T, C, alpha, true>(make(ra, rb), d, width); },
            row_ptr(a, aStep), row_ptr(b, bStep), row_ptr(dst, dstStep));
        simd::fence();
    } else {
        walk_rows(
            roi.height,
            [&](const T* ra, const T* rb, Kel8u* d) { rows::mask_row<T, C, alpha, false>(make(ra, rb), d, width); },
            row_ptr(a, aStep), row_ptr(b, bStep), row_ptr(dst, dstStep));
    }
}

template <class T, Layout L, class Op>
void run_pair(const T* a, int aStep, const T* b, int bStep, Kel8u* dst, int dstStep, KeliSize roi, Op op)
{
    const bool stream = streams({a, b, dst}, {aStep, bStep, dstStep}, roi.height);
    run<T, L>(a, aStep, b, bStep, dst, dstStep, roi, stream,
              [op](const T* ra, const T* rb) { return rows::ImagePair<T, Op>{ra, rb, op}; });
}

template <class T, Layout L, bool ConstFirst, class Op>
void run_const(const T* src, int srcStep, const T* value, Kel8u* dst, int dstStep, KeliSize roi, Op op)
{
    const rows::ConstPattern<T, channels<L>> pattern(value, processed<L>);
    const bool stream = streams({src, dst}, {srcStep, dstStep}, roi.height);
    run<T, L>(src, srcStep, src, srcStep, dst, dstStep, roi, stream, [&pattern, op](const T* ra, const T*) {
        return rows::ImageConst<T, Op, channels<L>, ConstFirst>{ra, &pattern, op};
    });
}

template <class T, Relation R> using Rel = rows::RelationOp<T, R>;

}  // namespace compare_detail

// An unknown cmpOp matches no case: nothing is written and the call succeeds. Callers that
// pass an operation through unchecked get a no-op rather than an error, and every member of
// the family, the integer constant forms included, behaves alike here.
template <class T, Layout L>
KelStatus compare(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, Kel8u* pDst, int dstStep, KeliSize roi,
                  int cmpOp)
{
    using namespace compare_detail;
    if (KelStatus s = check::first({check::pointers(pSrc1, pSrc2, pDst), check::steps(src1Step, src2Step, dstStep),
                                    check::size(roi)}))
        return s;
    switch (cmpOp) {
    case kelCmpLess: run_pair<T, L>(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roi, Rel<T, Relation::Less>{}); break;
    case kelCmpLessEq:
        run_pair<T, L>(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roi, Rel<T, Relation::LessEq>{});
        break;
    case kelCmpEq: run_pair<T, L>(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roi, Rel<T, Relation::Eq>{}); break;
    case kelCmpGreaterEq:
        run_pair<T, L>(pSrc2, src2Step, pSrc1, src1Step, pDst, dstStep, roi, Rel<T, Relation::LessEq>{});
        break;
    case kelCmpGreater:
        run_pair<T, L>(pSrc2, src2Step, pSrc1, src1Step, pDst, dstStep, roi, Rel<T, Relation::Less>{});
        break;
    default: break;
    }
    return kelStatusOk;
}

// `value` holds one element per processed channel (the C1 entry passes its scalar's address).
template <class T, Layout L>
KelStatus compare_c(const T* pSrc, int srcStep, const T* value, Kel8u* pDst, int dstStep, KeliSize roi, int cmpOp)
{
    using namespace compare_detail;
    if (KelStatus s = check::first(
            {check::pointers(pSrc, value, pDst), check::steps(srcStep, dstStep), check::size(roi)}))
        return s;
    switch (cmpOp) {
    case kelCmpLess: run_const<T, L, false>(pSrc, srcStep, value, pDst, dstStep, roi, Rel<T, Relation::Less>{}); break;
    case kelCmpLessEq:
        run_const<T, L, false>(pSrc, srcStep, value, pDst, dstStep, roi, Rel<T, Relation::LessEq>{});
        break;
    case kelCmpEq: run_const<T, L, false>(pSrc, srcStep, value, pDst, dstStep, roi, Rel<T, Relation::Eq>{}); break;
    case kelCmpGreaterEq:
        run_const<T, L, true>(pSrc, srcStep, value, pDst, dstStep, roi, Rel<T, Relation::LessEq>{});
        break;
    case kelCmpGreater: run_const<T, L, true>(pSrc, srcStep, value, pDst, dstStep, roi, Rel<T, Relation::Less>{}); break;
    default: break;
    }
    return kelStatusOk;
}

// A negative eps is refused after the image checks; a not-a-number eps passes (the test is
// false) and then matches nothing.
template <Layout L>
KelStatus compare_equal_eps(const Kel32f* pSrc1, int src1Step, const Kel32f* pSrc2, int src2Step, Kel8u* pDst,
                            int dstStep, KeliSize roi, Kel32f eps)
{
    using namespace compare_detail;
    if (KelStatus s = check::first({check::pointers(pSrc1, pSrc2, pDst), check::steps(src1Step, src2Step, dstStep),
                                    check::size(roi), eps < 0 ? kelStatusNegativeEps : kelStatusOk}))
        return s;
    run_pair<Kel32f, L>(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roi, rows::EqualEpsOp(eps));
    return kelStatusOk;
}

template <Layout L>
KelStatus compare_equal_eps_c(const Kel32f* pSrc, int srcStep, const Kel32f* value, Kel8u* pDst, int dstStep,
                              KeliSize roi, Kel32f eps)
{
    using namespace compare_detail;
    if (KelStatus s = check::first({check::pointers(pSrc, value, pDst), check::steps(srcStep, dstStep),
                                    check::size(roi), eps < 0 ? kelStatusNegativeEps : kelStatusOk}))
        return s;
    run_const<Kel32f, L, false>(pSrc, srcStep, value, pDst, dstStep, roi, rows::EqualEpsOp(eps));
    return kelStatusOk;
}

}  // namespace keli
