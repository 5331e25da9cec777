// The drivers of the two-operand arithmetic (add, subtract, multiply, divide and their constant
// forms): everything between a family's argument checks and its row kernels.
//
// A family describes itself by a policy deriving from FamilyBase:
//
//     struct SomeFamily : arith::FamilyBase {
//         static constexpr bool kSwap = ...;  // the op's left operand is the second image
//         template <class T> static Plan plan_binary(int n);
//         template <class T, Layout L, bool InPlace> static Plan plan_constant(const T* value, int n);
//         template <class T, class Visit> static void with_op(int n, Visit&& visit);        // images
//         template <class T, class Visit> static void with_const_op(int n, Visit&& visit);  // constant
//     };
//
// and the drivers here do the rest the same way for all: the plan picks a fill, a copy or the
// kernel once per call; the rows are walked one by one; the wide members hand what fits to the
// 32-bit body and cut the rest into chunks. An op that watches for zero divisors (see
// rows::WatchesZeros) reports a zero element of its right operand as kelStatusDivByZeroWarn;
// the first row with one sets the call's status (the wide chunks keep the last chunk's, as the
// wide layer does).
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <type_traits>
#include <utility>

#include "arith/rows/run.hpp"
#include "frame/driver.hpp"
#include "frame/layout.hpp"
#include "frame/store_choice.hpp"
#include "frame/wide.hpp"
#include "move/copy.hpp"
#include "move/rows/copy_run.hpp"
#include "move/rows/fill.hpp"
#include "move/set.hpp"

namespace keli::arith {

template <class T> constexpr bool kScaled = !std::is_same_v<T, Kel32f>;

// What a call does, decided once from the scale factor and the constant.
enum class Plan { Kernel, Zero, Largest, Copy, Nothing };

// Defaults of a family policy.
struct FamilyBase {
    static constexpr bool kSwap = false;
    template <class T> static Plan plan_binary(int) { return Plan::Kernel; }
    // The constant forms' own test of the constant, made after the common checks (and by every
    // chunk of a wide call).
    template <class T, Layout L> static KelStatus check_constant(const T*) { return kelStatusOk; }
    // The constant as the kernel takes it, set up once a call after the plan has seen it.
    template <class T> static void prepare_constant(T*) {}
};

// One row (or one chunk of a wide row) of `pixels` pixels with two image operands. The 32f AC4
// form computes the three colour elements of each pixel in a plain loop and never touches the
// alpha; the integer AC4 kernels merge the old alpha back under a mask.
template <Layout L, class Op, class T>
inline KelStatus binary_pixels(const Op& op, const T* x, const T* y, T* d, std::size_t pixels)
{
    bool zeroMet = false;
    if constexpr (has_alpha<L> && !kScaled<T>) {
        for (std::size_t p = 0; p < 4 * pixels; p += 4)
            for (std::size_t c = 0; c < 3; ++c) {
                if constexpr (rows::WatchesZeros<Op>::value) zeroMet |= Op::is_zero(y[p + c]);
                d[p + c] = op.apply(x[p + c], y[p + c]);
            }
    } else {
        zeroMet = rows::binary_run<has_alpha<L>>(op, x, y, d, pixels * channels<L>);
    }
    return zeroMet ? kelStatusDivByZeroWarn : kelStatusOk;
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
    // A negative side (a call that then does nothing) counts as no bytes: a negative double has
    // no unsigned value.
    const double bytes = double(roi.width) * double(roi.height) * double(channels<L> * sizeof(T));
    if (!(bytes > 0)) return false;
    return use_nontemporal(bytes >= 1.8e19 ? ~std::uint64_t(0) : static_cast<std::uint64_t>(bytes));
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

// Rows that follow each other without a gap on every side run as one: the ops work element by
// element and every pattern restarts on a pixel boundary, so only the loop's overhead changes.
template <class T, Layout L>
inline void join_rows(std::size_t& pixels, std::int64_t& height, std::initializer_list<std::ptrdiff_t> steps)
{
    const std::ptrdiff_t rowBytes = static_cast<std::ptrdiff_t>(pixels * channels<L> * sizeof(T));
    for (std::ptrdiff_t s : steps)
        if (s != rowBytes) return;
    pixels *= static_cast<std::size_t>(height);
    height = 1;
}

// The rows of a call through its op: one instance per member serves the 32-bit body and the
// chunks of the wide path alike.
template <class F, class T, Layout L>
KelStatus binary_rows(const T* x, std::ptrdiff_t xs, const T* y, std::ptrdiff_t ys, T* d, std::ptrdiff_t ds,
                      std::size_t pixels, std::int64_t height, int n)
{
    join_rows<T, L>(pixels, height, {xs, ys, ds});
    KelStatus status = kelStatusOk;
    F::template with_op<T>(n, [&](const auto& op) {
        status = walk_rows(
            height, [&](const T* a, const T* b, T* c) { return binary_pixels<L>(op, a, b, c, pixels); },
            row_ptr(x, xs), row_ptr(y, ys), row_ptr(d, ds));
    });
    return status;
}

template <class F, class T, Layout L>
void constant_rows(const T* x, std::ptrdiff_t xs, const T* value, T* d, std::ptrdiff_t ds, std::size_t pixels,
                   std::int64_t height, int n)
{
    join_rows<T, L>(pixels, height, {xs, ds});
    F::template with_const_op<T>(n, [&](const auto& op) {
        walk_rows(
            height, [&](const T* a, T* c) { constant_pixels<L>(op, a, value, c, pixels); }, row_ptr(x, xs),
            row_ptr(d, ds));
    });
}

// The 32-bit bodies after the family's checks. The two images come in argument order; the
// policy's kSwap makes the second one the op's left operand.
template <class F, class T, Layout L>
KelStatus run_binary(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst, int dstStep, KeliSize roi,
                     int n)
{
    if (F::template plan_binary<T>(n) == Plan::Zero) {
        fill_region<T, L>(T(0), pDst, dstStep, roi);
        return kelStatusOk;
    }
    const T* x = F::kSwap ? pSrc2 : pSrc1;
    const T* y = F::kSwap ? pSrc1 : pSrc2;
    const int xs = F::kSwap ? src2Step : src1Step, ys = F::kSwap ? src1Step : src2Step;
    return binary_rows<F, T, L>(x, xs, y, ys, pDst, dstStep, static_cast<std::size_t>(roi.width), roi.height, n);
}

template <class F, class T, Layout L, bool InPlace>
KelStatus run_constant(const T* pSrc, int srcStep, const T* pValue, T* pDst, int dstStep, KeliSize roi, int n)
{
    Constant<T, L> value(pValue);
    switch (F::template plan_constant<T, L, InPlace>(value.v, n)) {
    case Plan::Nothing: return kelStatusOk;
    case Plan::Copy: return copy_image<T, Layout::C1>(pSrc, srcStep, pDst, dstStep, roi);
    case Plan::Zero: fill_region<T, L>(T(0), pDst, dstStep, roi); return kelStatusOk;
    case Plan::Largest: fill_region<T, L>(std::numeric_limits<T>::max(), pDst, dstStep, roi); return kelStatusOk;
    case Plan::Kernel: break;
    }
    F::template prepare_constant<T>(value.v);
    constant_rows<F, T, L>(pSrc, srcStep, value.v, pDst, dstStep, static_cast<std::size_t>(roi.width), roi.height, n);
    return kelStatusOk;
}

// Wide members. What fits the 32-bit members goes to `narrow` (the 32-bit body with all its
// checks); anything larger walks the rows with 64-bit steps in chunks, each chunk testing its
// pointers and count as a row kernel does (so a null pointer is found on the first chunk).
template <class F, class T, Layout L, class Narrow>
KelStatus run_binary_L(const T* pSrc1, std::int64_t src1Step, const T* pSrc2, std::int64_t src2Step, T* pDst,
                       std::int64_t dstStep, KeliSizeL roi, int n, Narrow&& narrow)
{
    constexpr std::int64_t P = channels<L> * sizeof(T);
    const Plan plan = F::template plan_binary<T>(n);
    bool streamFill = false;
    if (plan == Plan::Zero && !wide::fits_narrow({src1Step, src2Step, dstStep}, roi, P))
        streamFill = wide_fill_streams<T, L>(roi);
    auto chunk = [&](std::int64_t y, std::int64_t x0, std::int64_t count) -> KelStatus {
        if (!pSrc1 || !pSrc2 || !pDst) return kelStatusNullPtr;
        if (count < 1) return kelStatusBadSize;
        T* d = wide::at(pDst, dstStep, y, x0, P);
        const std::size_t pixels = static_cast<std::size_t>(count);
        if (plan == Plan::Zero) {
            fill_pixels<T, L>(T(0), d, pixels, streamFill);
            return kelStatusOk;
        }
        const T* a = wide::at(pSrc1, src1Step, y, x0, P);
        const T* b = wide::at(pSrc2, src2Step, y, x0, P);
        if (F::kSwap) std::swap(a, b);
        return binary_rows<F, T, L>(a, 0, b, 0, d, 0, pixels, 1, n);
    };
    return wide::run({src1Step, src2Step, dstStep}, roi, P, narrow, chunk);
}

template <class F, class T, Layout L, bool InPlace, class Narrow>
KelStatus run_constant_L(const T* pSrc, std::int64_t srcStep, const T* pValue, T* pDst, std::int64_t dstStep,
                         KeliSizeL roi, int n, Narrow&& narrow)
{
    constexpr std::int64_t P = channels<L> * sizeof(T);
    Plan plan = Plan::Kernel;
    T value[4] = {};
    bool streamFill = false;
    KelStatus valueStatus = kelStatusOk;
    if (!wide::fits_narrow({srcStep, dstStep}, roi, P) && pValue) {
        const Constant<T, L> c(pValue);
        for (int i = 0; i < 4; ++i) value[i] = c.v[i];
        valueStatus = F::template check_constant<T, L>(pValue);
        plan = F::template plan_constant<T, L, InPlace>(value, n);
        F::template prepare_constant<T>(value);
        if (plan == Plan::Zero || plan == Plan::Largest) streamFill = wide_fill_streams<T, L>(roi);
    }
    auto chunk = [&](std::int64_t y, std::int64_t x0, std::int64_t count) -> KelStatus {
        if (!pSrc || !pValue || !pDst) return kelStatusNullPtr;
        if (count < 1) return kelStatusBadSize;
        if (valueStatus != kelStatusOk) return valueStatus;
        T* d = wide::at(pDst, dstStep, y, x0, P);
        const std::size_t pixels = static_cast<std::size_t>(count);
        switch (plan) {
        case Plan::Nothing: return kelStatusOk;
        case Plan::Copy: rows::copy_bytes(wide::at(pSrc, srcStep, y, x0, P), d, pixels * sizeof(T)); return kelStatusOk;
        case Plan::Zero: fill_pixels<T, L>(T(0), d, pixels, streamFill); return kelStatusOk;
        case Plan::Largest: fill_pixels<T, L>(std::numeric_limits<T>::max(), d, pixels, streamFill); return kelStatusOk;
        case Plan::Kernel: break;
        }
        constant_rows<F, T, L>(wide::at(pSrc, srcStep, y, x0, P), 0, value, d, 0, pixels, 1, n);
        return kelStatusOk;
    };
    return wide::run({srcStep, dstStep}, roi, P, narrow, chunk);
}

}  // namespace keli::arith
