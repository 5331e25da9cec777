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

#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <utility>

#include "arith/rows/add_sub.hpp"
#include "arith/rows/run.hpp"
#include "frame/check.hpp"
#include "frame/driver.hpp"
#include "frame/layout.hpp"
#include "frame/store_choice.hpp"
#include "frame/wide.hpp"
#include "move/copy.hpp"
#include "move/rows/copy_run.hpp"
#include "move/rows/fill.hpp"
#include "move/set.hpp"

namespace keli {

using rows::AddSub;

namespace add_sub_detail {

template <class T> constexpr bool kScaled = !std::is_same_v<T, Kel32f>;

// One row (or one chunk of a wide row) of `pixels` pixels with two image operands. The 32f AC4
// form computes the three colour elements of each pixel in a plain loop and never touches the
// alpha; the integer AC4 kernels merge the old alpha back under a mask.
template <Layout L, class Op, class T>
inline void binary_pixels(const Op& op, const T* x, const T* y, T* d, std::size_t pixels)
{
    if constexpr (has_alpha<L> && !kScaled<T>) {
        for (std::size_t p = 0; p < 4 * pixels; p += 4)
            for (std::size_t c = 0; c < 3; ++c) d[p + c] = op.apply(x[p + c], y[p + c]);
    } else {
        rows::binary_run<has_alpha<L>>(op, x, y, d, pixels * channels<L>);
    }
}

// The same with a constant of one value a channel (AC4: three values and a zero).
template <Layout L, class Op, class T>
inline void constant_pixels(const Op& op, const T* x, const T* value, T* d, std::size_t pixels)
{
    if constexpr (has_alpha<L> && !kScaled<T>) {
        for (std::size_t p = 0; p < 4 * pixels; p += 4)
            for (std::size_t c = 0; c < 3; ++c) d[p + c] = op.apply(x[p + c], value[c]);
    } else {
        rows::constant_run<channels<L>, has_alpha<L>>(op, x, value, d, pixels * channels<L>);
    }
}

// The whole region set to one value in every colour element, by keliSet's fill.
template <class T, Layout L> inline void fill_region(T value, T* dst, int dstStep, KeliSize roi)
{
    const T pixel[4] = {value, value, value, value};
    set_pixel<T, L>(pixel, dst, dstStep, roi);
}

// The fill of a chunk of a wide row: the pattern run, or the colour elements of AC4 pixels.
template <class T, Layout L> inline void fill_pixels(T value, T* dst, std::size_t pixels, bool nonTemporal)
{
    if constexpr (has_alpha<L>) {
        for (std::size_t p = 0; p < 4 * pixels; p += 4) dst[p] = dst[p + 1] = dst[p + 2] = value;
    } else {
        const T pixel[4] = {value, value, value, value};
        rows::fill_run(dst, pixels * channels<L> * sizeof(T), rows::make_fill_pattern(pixel, channels<L>),
                       nonTemporal);
    }
}

// Whether the fill of a wide call bypasses the caches: the bytes written reach the largest cache.
template <class T, Layout L> inline bool wide_fill_streams(KeliSizeL roi)
{
    const double bytes = double(roi.width) * double(roi.height) * double(channels<L> * sizeof(T));
    return use_nontemporal(bytes >= 1.8e19 ? ~std::uint64_t(0) : static_cast<std::uint64_t>(bytes));
}

// What a call does, decided once from the scale factor and the constant.
enum class Plan { Kernel, Zero, Largest, Copy, Nothing };

template <AddSub K, class T> inline Plan plan_binary(int n)
{
    if constexpr (kScaled<T>) {
        if (n >= rows::kAddSubShortCuts<K, T>.zeroFrom) return Plan::Zero;
    }
    return Plan::Kernel;
}

template <AddSub K, class T, Layout L, bool InPlace> inline Plan plan_constant(const T* value, int n)
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

// Calls visit(op) with the call's op.
template <AddSub K, class T, class Visit> inline void with_op(int n, Visit&& visit)
{
    if constexpr (kScaled<T>) rows::with_scale_op<K, T>(n, visit);
    else visit(rows::FloatOp<K>{});
}

// The constant of a call: one value a processed channel, the slots a layout does not use
// repeating the first value, and AC4's alpha slot 0.
template <class T, Layout L> struct Constant {
    T v[4];
    explicit Constant(const T* value)
    {
        // AC4 callers pass three values: the fourth is never read.
        constexpr std::size_t given = has_alpha<L> ? 3 : channels<L>;
        for (std::size_t c = 0; c < 4; ++c) v[c] = value[c < given ? c : 0];
        if constexpr (has_alpha<L>) v[3] = 0;
    }
};

// The rows of a call through its op: one instance per member serves the 32-bit body and the
// chunks of the wide path alike.
template <AddSub K, class T, Layout L>
void binary_rows(const T* x, std::ptrdiff_t xs, const T* y, std::ptrdiff_t ys, T* d, std::ptrdiff_t ds,
                 std::size_t pixels, std::int64_t height, int n)
{
    with_op<K, T>(n, [&](const auto& op) {
        walk_rows(
            height, [&](const T* a, const T* b, T* c) { binary_pixels<L>(op, a, b, c, pixels); }, row_ptr(x, xs),
            row_ptr(y, ys), row_ptr(d, ds));
    });
}

template <AddSub K, class T, Layout L>
void constant_rows(const T* x, std::ptrdiff_t xs, const T* value, T* d, std::ptrdiff_t ds, std::size_t pixels,
                   std::int64_t height, int n)
{
    with_op<K, T>(n, [&](const auto& op) {
        walk_rows(
            height, [&](const T* a, T* c) { constant_pixels<L>(op, a, value, c, pixels); }, row_ptr(x, xs),
            row_ptr(d, ds));
    });
}

template <class T> inline const T* at(const T* base, std::int64_t step, std::int64_t y, std::int64_t x, std::int64_t P)
{
    return wide::at(base, step, y, x, P);
}

}  // namespace add_sub_detail

// keliAdd, keliSub: x op y with x = src1, y = src2 for addition and x = src2, y = src1 for
// subtraction. 32f members have no scale factor.
template <AddSub K, class T, Layout L>
KelStatus add_sub_image(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst, int dstStep,
                        KeliSize roi, int scaleFactor = 0)
{
    using namespace add_sub_detail;
    if (KelStatus s = check::first({check::pointers(pSrc1, pSrc2, pDst), check::size(roi)})) return s;
    const bool swap = K == AddSub::Sub;
    const T* x = swap ? pSrc2 : pSrc1;
    const T* y = swap ? pSrc1 : pSrc2;
    const int xs = swap ? src2Step : src1Step, ys = swap ? src1Step : src2Step;
    if (plan_binary<K, T>(scaleFactor) == Plan::Zero) {
        fill_region<T, L>(T(0), pDst, dstStep, roi);
        return kelStatusOk;
    }
    binary_rows<K, T, L>(x, xs, y, ys, pDst, dstStep, static_cast<std::size_t>(roi.width), roi.height, scaleFactor);
    return kelStatusOk;
}

// keliAddC, keliSubC: src op value. `pValue` holds one value a processed channel (C1: the one
// value); `InPlace` marks the I forms, whose zero operand returns at once.
template <AddSub K, class T, Layout L, bool InPlace = false>
KelStatus add_sub_const_image(const T* pSrc, int srcStep, const T* pValue, T* pDst, int dstStep, KeliSize roi,
                              int scaleFactor = 0)
{
    using namespace add_sub_detail;
    if (KelStatus s = check::first({check::pointers(pSrc, pValue, pDst), check::size(roi)})) return s;
    const Constant<T, L> value(pValue);
    switch (plan_constant<K, T, L, InPlace>(value.v, scaleFactor)) {
    case Plan::Nothing: return kelStatusOk;
    case Plan::Copy: return copy_image<T, Layout::C1>(pSrc, srcStep, pDst, dstStep, roi);
    case Plan::Zero: fill_region<T, L>(T(0), pDst, dstStep, roi); return kelStatusOk;
    case Plan::Largest: fill_region<T, L>(std::numeric_limits<T>::max(), pDst, dstStep, roi); return kelStatusOk;
    case Plan::Kernel: break;
    }
    constant_rows<K, T, L>(pSrc, srcStep, value.v, pDst, dstStep, static_cast<std::size_t>(roi.width), roi.height,
                           scaleFactor);
    return kelStatusOk;
}

// Wide members. What fits the 32-bit members goes there with all their checks; anything larger
// walks the rows with 64-bit steps in chunks, each chunk testing its pointers and count as a row
// kernel does (so a null pointer is found on the first chunk).
template <AddSub K, class T, Layout L>
KelStatus add_sub_image_L(const T* pSrc1, std::int64_t src1Step, const T* pSrc2, std::int64_t src2Step, T* pDst,
                          std::int64_t dstStep, KeliSizeL roi, int scaleFactor = 0)
{
    using namespace add_sub_detail;
    constexpr std::int64_t P = channels<L> * sizeof(T);
    const Plan plan = plan_binary<K, T>(scaleFactor);
    bool streamFill = false;
    if (plan == Plan::Zero && !wide::fits_narrow({src1Step, src2Step, dstStep}, roi, P))
        streamFill = wide_fill_streams<T, L>(roi);
    return wide::run(
        {src1Step, src2Step, dstStep}, roi, P,
        [&](KeliSize narrow) {
            return add_sub_image<K, T, L>(pSrc1, static_cast<int>(src1Step), pSrc2, static_cast<int>(src2Step), pDst,
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
            const T* a = at(pSrc1, src1Step, y, x0, P);
            const T* b = at(pSrc2, src2Step, y, x0, P);
            if (K == AddSub::Sub) std::swap(a, b);
            binary_rows<K, T, L>(a, 0, b, 0, d, 0, pixels, 1, scaleFactor);
            return kelStatusOk;
        });
}

template <AddSub K, class T, Layout L, bool InPlace = false>
KelStatus add_sub_const_image_L(const T* pSrc, std::int64_t srcStep, const T* pValue, T* pDst, std::int64_t dstStep,
                                KeliSizeL roi, int scaleFactor = 0)
{
    using namespace add_sub_detail;
    constexpr std::int64_t P = channels<L> * sizeof(T);
    const bool narrow = wide::fits_narrow({srcStep, dstStep}, roi, P);
    Plan plan = Plan::Kernel;
    T value[4] = {};
    bool streamFill = false;
    if (!narrow && pValue) {
        const Constant<T, L> c(pValue);
        for (int i = 0; i < 4; ++i) value[i] = c.v[i];
        plan = plan_constant<K, T, L, InPlace>(value, scaleFactor);
        if (plan == Plan::Zero || plan == Plan::Largest) streamFill = wide_fill_streams<T, L>(roi);
    }
    return wide::run(
        {srcStep, dstStep}, roi, P,
        [&](KeliSize size) {
            return add_sub_const_image<K, T, L, InPlace>(pSrc, static_cast<int>(srcStep), pValue, pDst,
                                                         static_cast<int>(dstStep), size, scaleFactor);
        },
        [&](std::int64_t y, std::int64_t x0, std::int64_t n) -> KelStatus {
            if (!pSrc || !pValue || !pDst) return kelStatusNullPtr;
            if (n < 1) return kelStatusBadSize;
            T* d = wide::at(pDst, dstStep, y, x0, P);
            const std::size_t pixels = static_cast<std::size_t>(n);
            switch (plan) {
            case Plan::Nothing: return kelStatusOk;
            case Plan::Copy: rows::copy_bytes(at(pSrc, srcStep, y, x0, P), d, pixels * sizeof(T)); return kelStatusOk;
            case Plan::Zero: fill_pixels<T, L>(T(0), d, pixels, streamFill); return kelStatusOk;
            case Plan::Largest:
                fill_pixels<T, L>(std::numeric_limits<T>::max(), d, pixels, streamFill);
                return kelStatusOk;
            case Plan::Kernel: break;
            }
            const T* s = at(pSrc, srcStep, y, x0, P);
            constant_rows<K, T, L>(s, 0, value, d, 0, pixels, 1, scaleFactor);
            return kelStatusOk;
        });
}

}  // namespace keli
