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

#include <cstddef>
#include <cstdint>
#include <limits>

#include "arith/add_sub.hpp"
#include "arith/rows/mul.hpp"

namespace keli {

namespace mul_detail {

using add_sub_detail::binary_pixels;
using add_sub_detail::constant_pixels;
using add_sub_detail::Constant;
using add_sub_detail::fill_pixels;
using add_sub_detail::fill_region;
using add_sub_detail::kScaled;
using add_sub_detail::Plan;
using add_sub_detail::wide_fill_streams;

template <class T> inline Plan plan_binary(int n)
{
    if constexpr (kScaled<T>) {
        if (n >= rows::kMulShortCuts<T>.zeroFrom) return Plan::Zero;
    }
    return Plan::Kernel;
}

template <class T, Layout L, bool InPlace> inline Plan plan_constant(const T* value, int n)
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

template <class T, class Visit> inline void with_op(int n, Visit&& visit)
{
    if constexpr (kScaled<T>) rows::with_mul_op<T>(n, visit);
    else visit(rows::MulFloatOp{});
}

template <class T, Layout L>
void binary_rows(const T* x, std::ptrdiff_t xs, const T* y, std::ptrdiff_t ys, T* d, std::ptrdiff_t ds,
                 std::size_t pixels, std::int64_t height, int n)
{
    with_op<T>(n, [&](const auto& op) {
        walk_rows(
            height, [&](const T* a, const T* b, T* c) { binary_pixels<L>(op, a, b, c, pixels); }, row_ptr(x, xs),
            row_ptr(y, ys), row_ptr(d, ds));
    });
}

template <class T, Layout L>
void constant_rows(const T* x, std::ptrdiff_t xs, const T* value, T* d, std::ptrdiff_t ds, std::size_t pixels,
                   std::int64_t height, int n)
{
    with_op<T>(n, [&](const auto& op) {
        walk_rows(
            height, [&](const T* a, T* c) { constant_pixels<L>(op, a, value, c, pixels); }, row_ptr(x, xs),
            row_ptr(d, ds));
    });
}

}  // namespace mul_detail

template <class T, Layout L>
KelStatus mul_image(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst, int dstStep, KeliSize roi,
                    int scaleFactor = 0)
{
    using namespace mul_detail;
    if (KelStatus s = check::first({check::pointers(pSrc1, pSrc2, pDst), check::size(roi)})) return s;
    if (plan_binary<T>(scaleFactor) == Plan::Zero) {
        fill_region<T, L>(T(0), pDst, dstStep, roi);
        return kelStatusOk;
    }
    binary_rows<T, L>(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, static_cast<std::size_t>(roi.width),
                      roi.height, scaleFactor);
    return kelStatusOk;
}

template <class T, Layout L, bool InPlace = false>
KelStatus mul_const_image(const T* pSrc, int srcStep, const T* pValue, T* pDst, int dstStep, KeliSize roi,
                          int scaleFactor = 0)
{
    using namespace mul_detail;
    if (KelStatus s = check::first({check::pointers(pSrc, pValue, pDst), check::size(roi)})) return s;
    const Constant<T, L> value(pValue);
    switch (plan_constant<T, L, InPlace>(value.v, scaleFactor)) {
    case Plan::Nothing: return kelStatusOk;
    case Plan::Copy: return copy_image<T, Layout::C1>(pSrc, srcStep, pDst, dstStep, roi);
    case Plan::Zero: fill_region<T, L>(T(0), pDst, dstStep, roi); return kelStatusOk;
    case Plan::Largest:
    case Plan::Kernel: break;
    }
    constant_rows<T, L>(pSrc, srcStep, value.v, pDst, dstStep, static_cast<std::size_t>(roi.width), roi.height,
                        scaleFactor);
    return kelStatusOk;
}

// Wide members: what fits goes to the 32-bit members with all their checks; anything larger
// walks the rows in chunks, each testing its pointers and count as a row kernel does.
template <class T, Layout L>
KelStatus mul_image_L(const T* pSrc1, std::int64_t src1Step, const T* pSrc2, std::int64_t src2Step, T* pDst,
                      std::int64_t dstStep, KeliSizeL roi, int scaleFactor = 0)
{
    using namespace mul_detail;
    constexpr std::int64_t P = channels<L> * sizeof(T);
    const Plan plan = plan_binary<T>(scaleFactor);
    bool streamFill = false;
    if (plan == Plan::Zero && !wide::fits_narrow({src1Step, src2Step, dstStep}, roi, P))
        streamFill = wide_fill_streams<T, L>(roi);
    return wide::run(
        {src1Step, src2Step, dstStep}, roi, P,
        [&](KeliSize narrow) {
            return mul_image<T, L>(pSrc1, static_cast<int>(src1Step), pSrc2, static_cast<int>(src2Step), pDst,
                                   static_cast<int>(dstStep), narrow, scaleFactor);
        },
        [&](std::int64_t y, std::int64_t x0, std::int64_t n) -> KelStatus {
            if (!pSrc1 || !pSrc2 || !pDst) return kelStatusNullPtr;
            if (n < 1) return kelStatusBadSize;
            T* d = wide::at(pDst, dstStep, y, x0, P);
            const std::size_t pixels = static_cast<std::size_t>(n);
            if (plan == Plan::Zero) {
                fill_pixels<T, L>(T(0), d, pixels, streamFill);
                return kelStatusOk;
            }
            binary_rows<T, L>(wide::at(pSrc1, src1Step, y, x0, P), 0, wide::at(pSrc2, src2Step, y, x0, P), 0, d, 0,
                              pixels, 1, scaleFactor);
            return kelStatusOk;
        });
}

template <class T, Layout L, bool InPlace = false>
KelStatus mul_const_image_L(const T* pSrc, std::int64_t srcStep, const T* pValue, T* pDst, std::int64_t dstStep,
                            KeliSizeL roi, int scaleFactor = 0)
{
    using namespace mul_detail;
    constexpr std::int64_t P = channels<L> * sizeof(T);
    const bool narrow = wide::fits_narrow({srcStep, dstStep}, roi, P);
    Plan plan = Plan::Kernel;
    T value[4] = {};
    bool streamFill = false;
    if (!narrow && pValue) {
        const Constant<T, L> c(pValue);
        for (int i = 0; i < 4; ++i) value[i] = c.v[i];
        plan = plan_constant<T, L, InPlace>(value, scaleFactor);
        if (plan == Plan::Zero) streamFill = wide_fill_streams<T, L>(roi);
    }
    return wide::run(
        {srcStep, dstStep}, roi, P,
        [&](KeliSize size) {
            return mul_const_image<T, L, InPlace>(pSrc, static_cast<int>(srcStep), pValue, pDst,
                                                  static_cast<int>(dstStep), size, scaleFactor);
        },
        [&](std::int64_t y, std::int64_t x0, std::int64_t n) -> KelStatus {
            if (!pSrc || !pValue || !pDst) return kelStatusNullPtr;
            if (n < 1) return kelStatusBadSize;
            T* d = wide::at(pDst, dstStep, y, x0, P);
            const std::size_t pixels = static_cast<std::size_t>(n);
            switch (plan) {
            case Plan::Nothing: return kelStatusOk;
            case Plan::Copy:
                rows::copy_bytes(wide::at(pSrc, srcStep, y, x0, P), d, pixels * sizeof(T));
                return kelStatusOk;
            case Plan::Zero: fill_pixels<T, L>(T(0), d, pixels, streamFill); return kelStatusOk;
            case Plan::Largest:
            case Plan::Kernel: break;
            }
            constant_rows<T, L>(wide::at(pSrc, srcStep, y, x0, P), 0, value, d, 0, pixels, 1, scaleFactor);
            return kelStatusOk;
        });
}

}  // namespace keli
