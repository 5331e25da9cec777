// keliSqr, keliSqrt, keliLn and keliExp.
//
//   keliSqr:   a * a, scaled by 2^-n with ties to even and saturated, exactly as keliMul(a, a)
//   keliSqrt:  the square root, scaled and rounded half to even      (rows/elementary.hpp)
//   keliLn:    the natural logarithm, scaled and rounded half up
//   keliExp:   the exponential, scaled and rounded half up
//
// Checks: pointers, the size, then the steps. Sqrt of a negative element warns, as does Ln of a
// zero or a negative one; within a row a zero outranks a negative, and the call keeps the status
// of the first row that warned while it goes on over all the others.
#pragma once

#include <cstddef>
#include <cstdint>

#include "arith/binary_image.hpp"
#include "arith/mul.hpp"
#include "arith/rows/elementary.hpp"
#include "frame/ac4.hpp"
#include "frame/check.hpp"
#include "frame/driver.hpp"

namespace keli {

namespace elementary_detail {

// The status of a row from the flags its colour elements raised.
struct Warnings {
    KelStatus zero = kelStatusOk, negative = kelStatusOk;
    KelStatus of(rows::Flags f) const
    {
        return f.zero && zero != kelStatusOk ? zero : f.negative ? negative : kelStatusOk;
    }
};

template <class T, Layout L> inline KelStatus checks(const T* pSrc, int srcStep, const T* pDst, int dstStep, KeliSize roi)
{
    return check::first({check::pointers(pSrc, pDst), check::size(roi), check::steps(srcStep, dstStep)});
}

// Every row through `run(src, dst, elements) -> Flags`; AC4 rows skip the alpha elements. Rows
// are never joined into one run, even where they follow each other without a gap: the status is
// that of the first row that warns, and a later row's zero must not outrank its negative.
template <Layout L, class T, class Run>
KelStatus flagged_rows(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, Warnings w, Run run)
{
    const std::size_t pixels = static_cast<std::size_t>(roi.width);
    return walk_rows(
        roi.height,
        [&](const T* s, T* d) { return w.of(run(s, d, pixels * channels<L>)); }, row_ptr(pSrc, srcStep),
        row_ptr(pDst, dstStep));
}

template <Layout L, class Op, class T = typename Op::T>
KelStatus op_rows(const Op& op, const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, Warnings w)
{
    return flagged_rows<L>(pSrc, srcStep, pDst, dstStep, roi, w, [&](const T* s, T* d, std::size_t n) {
        return rows::flagged_run<has_alpha<L>>(op, s, d, n);
    });
}

template <Layout L>
KelStatus table_rows(const rows::ByteTable& t, const Kel8u* pSrc, int srcStep, Kel8u* pDst, int dstStep, KeliSize roi,
                     Warnings w)
{
    return flagged_rows<L>(pSrc, srcStep, pDst, dstStep, roi, w, [&](const Kel8u* s, Kel8u* d, std::size_t n) {
        return rows::table_run<has_alpha<L>>(t, s, d, n);
    });
}

}  // namespace elementary_detail

template <class T, Layout L>
KelStatus sqr_image(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, int scaleFactor = 0)
{
    if (KelStatus s = elementary_detail::checks<T, L>(pSrc, srcStep, pDst, dstStep, roi)) return s;
    // The square is the product of the element with itself: the same ops, bounds and short cuts.
    return arith::run_binary<mul_detail::Family, T, L>(pSrc, srcStep, pSrc, srcStep, pDst, dstStep, roi, scaleFactor);
}

// Scale factors from which every square root rounds to 0: sqrt(255) / 32 and sqrt(65535) / 512
// lie below a half. 16s has no such fill, since its negative elements must still be seen to warn.
template <class T> constexpr int kSqrtZeroFrom = sizeof(T) == 1 ? 5 : 9;

template <class T, Layout L>
KelStatus sqrt_image(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, int n = 0)
{
    using namespace elementary_detail;
    if (KelStatus s = checks<T, L>(pSrc, srcStep, pDst, dstStep, roi)) return s;
    const Warnings w{kelStatusOk, kelStatusSqrtNegArg};
    if constexpr (std::is_same_v<T, Kel32f>) {
        return op_rows<L>(rows::SqrtFloatOp{}, pSrc, srcStep, pDst, dstStep, roi, w);
    } else {
        if (std::is_unsigned_v<T> && n >= kSqrtZeroFrom<T>) {
            arith::fill_region<T, L>(T(0), pDst, dstStep, roi);
            return kelStatusOk;
        }
        if constexpr (std::is_same_v<T, Kel8u>) return op_rows<L>(rows::SqrtByteOp(n), pSrc, srcStep, pDst, dstStep, roi, w);
        else return op_rows<L>(rows::SqrtIntOp<T>(n), pSrc, srcStep, pDst, dstStep, roi, w);
    }
}

template <class T, Layout L>
KelStatus ln_image(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, int n = 0)
{
    using namespace elementary_detail;
    if (KelStatus s = checks<T, L>(pSrc, srcStep, pDst, dstStep, roi)) return s;
    const Warnings w{kelStatusLnZeroArg, kelStatusLnNegArg};
    if constexpr (std::is_same_v<T, Kel32f>) return op_rows<L>(rows::LnFloatOp{}, pSrc, srcStep, pDst, dstStep, roi, w);
    else if constexpr (std::is_same_v<T, Kel8u>) return table_rows<L>(rows::ln_table(n), pSrc, srcStep, pDst, dstStep, roi, w);
    else return op_rows<L>(rows::LnIntOp<T>(n), pSrc, srcStep, pDst, dstStep, roi, w);
}

template <class T, Layout L>
KelStatus exp_image(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, int n = 0)
{
    using namespace elementary_detail;
    if (KelStatus s = checks<T, L>(pSrc, srcStep, pDst, dstStep, roi)) return s;
    if constexpr (std::is_same_v<T, Kel32f>) return op_rows<L>(rows::ExpFloatOp{}, pSrc, srcStep, pDst, dstStep, roi, {});
    else return op_rows<L>(rows::ExpIntOp<T>(n), pSrc, srcStep, pDst, dstStep, roi, {});
}

}  // namespace keli
