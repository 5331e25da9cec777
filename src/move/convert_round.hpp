// keliConvert, the members that round: floats to integers in a chosen rounding mode, the scaled
// (Sfs) members that multiply by 2^-scaleFactor first, and the clamped-sign (C1Rs) members.
//
// Rounding modes: 0 truncates, 1 goes to the nearest integer with ties to even, and every other
// value goes to the nearest with ties away from zero. No member refuses a mode.
//
// The float members set the processor's rounding field for the whole call and restore the
// caller's control word on return: truncation for mode 0; nearest for mode 1, with the
// denormals-are-zero bit cleared so that tiny inputs scaled up keep their value; and truncation,
// that bit cleared as well, for the ties-away mode, which adds a signed half first (under
// truncation that addition cannot itself round up past the next integer).
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "frame/ac4.hpp"
#include "frame/check.hpp"
#include "frame/driver.hpp"
#include "frame/fp_guard.hpp"
#include "frame/layout.hpp"
#include "frame/store_choice.hpp"
#include "move/rows/convert_round.hpp"
#include "move/rows/fill.hpp"

namespace keli {

namespace convert_detail {

enum class Rounding { Zero, Near, Financial };

inline Rounding rounding_of(KelRoundMode mode)
{
    const int m = static_cast<int>(mode);
    return m == 0 ? Rounding::Zero : m == 1 ? Rounding::Near : Rounding::Financial;
}

// The control word a float member runs under.
inline void set_control(FpControlGuard& guard, Rounding r)
{
    constexpr unsigned kKeep = 0x9FBF;  // all but the rounding field and denormals-are-zero
    const unsigned saved = guard.saved();
    switch (r) {
    case Rounding::Zero: _mm_setcsr((saved & ~0x6000u) | 0x6000u); break;
    case Rounding::Near: _mm_setcsr(saved & kKeep); break;
    case Rounding::Financial: _mm_setcsr((saved & kKeep) | 0x6000u); break;
    }
}

// `run(s, d, count)` over every row, or once over the whole region when neither image has a
// gap between its rows.
template <class S, class D, class Run>
inline void convert_rows(const S* pSrc, int srcStep, D* pDst, int dstStep, std::size_t rowElems, int height, Run&& run)
{
    if (static_cast<std::size_t>(srcStep) == rowElems * sizeof(S) &&
        static_cast<std::size_t>(dstStep) == rowElems * sizeof(D)) {
        run(pSrc, pDst, rowElems * static_cast<std::size_t>(height));
        return;
    }
    walk_rows(height, [&](const S* s, D* d) { run(s, d, rowElems); }, row_ptr(pSrc, srcStep), row_ptr(pDst, dstStep));
}

template <class S, class D, Layout L, bool Scaled, bool Financial>
inline void float_rows(const S* pSrc, int srcStep, D* pDst, int dstStep, KeliSize roi, int n)
{
    const rows::FloatToIntOp<S, D, Scaled, Financial> op(n);
    const std::size_t width = static_cast<std::size_t>(roi.width);
    if constexpr (has_alpha<L>) {
        walk_rows(
            roi.height,
            [&](const S* s, D* d) {
                ac4_row(d, width, [&](std::size_t x, std::size_t k, D* scratch) { rows::round_run(op, s + 4 * x, scratch, 4 * k); });
            },
            row_ptr(pSrc, srcStep), row_ptr(pDst, dstStep));
    } else {
        convert_rows(pSrc, srcStep, pDst, dstStep, width * channels<L>, roi.height,
                     [&](const S* s, D* d, std::size_t k) { rows::round_run(op, s, d, k); });
    }
}

template <class S, class D, Layout L, bool Scaled>
inline KelStatus float_body(const S* pSrc, int srcStep, D* pDst, int dstStep, KeliSize roi, KelRoundMode mode, int n)
{
    FpControlGuard guard;
    const Rounding r = rounding_of(mode);
    set_control(guard, r);
    if (r == Rounding::Financial) float_rows<S, D, L, Scaled, true>(pSrc, srcStep, pDst, dstStep, roi, n);
    else float_rows<S, D, L, Scaled, false>(pSrc, srcStep, pDst, dstStep, roi, n);
    return kelStatusOk;
}

// From this scale factor on an integer member's result is 0 and its source is not read: the
// magnitude is below 2^(bits - 1), half of the divisor. 16u to 8s takes the fill one step
// earlier, from 16.
template <class S, class D> constexpr int kZeroFrom = 8 * sizeof(S) + 1;
template <> constexpr int kZeroFrom<Kel16u, Kel8s> = 16;

template <class D> inline void zero_fill(D* pDst, int dstStep, KeliSize roi)
{
    const std::size_t rowBytes = static_cast<std::size_t>(roi.width) * sizeof(D);
    const bool nt = use_nontemporal(static_cast<std::uint64_t>(rowBytes) * static_cast<std::uint64_t>(roi.height));
    const rows::FillPattern zero = rows::make_fill_pattern<Kel8u>(0);
    auto d = row_ptr(pDst, dstStep);
    for (int y = 0; y < roi.height; ++y, d.next()) rows::fill_run(d.p, rowBytes, zero, nt);
    if (nt) simd::fence();
}

template <class S, class D, rows::IntScale K>
inline void int_rows(const S* pSrc, int srcStep, D* pDst, int dstStep, KeliSize roi, int n)
{
    const rows::IntScaleOp<S, D, K> op(n);
    convert_rows(pSrc, srcStep, pDst, dstStep, static_cast<std::size_t>(roi.width), roi.height,
                 [&](const S* s, D* d, std::size_t k) { rows::round_run(op, s, d, k); });
}

}  // namespace convert_detail

// Floats to integers: C1R, C3R, C4R, AC4R (the destination's alpha kept).
template <class S, class D, Layout L>
KelStatus convert_round_image(const S* pSrc, int srcStep, D* pDst, int dstStep, KeliSize roi, KelRoundMode mode)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::size(roi), check::steps(srcStep, dstStep)}))
        return s;
    return convert_detail::float_body<S, D, L, false>(pSrc, srcStep, pDst, dstStep, roi, mode, 0);
}

// Scaled members, C1RSfs: the value times 2^-scaleFactor, rounded by the mode, saturated.
template <class S, class D>
KelStatus convert_sfs(const S* pSrc, int srcStep, D* pDst, int dstStep, KeliSize roi, KelRoundMode mode, int n)
{
    using namespace convert_detail;
    using rows::IntScale;
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::size(roi), check::steps(srcStep, dstStep)}))
        return s;
    if constexpr (std::is_floating_point_v<S>) {
        if (n == 0) return float_body<S, D, Layout::C1, false>(pSrc, srcStep, pDst, dstStep, roi, mode, 0);
        return float_body<S, D, Layout::C1, true>(pSrc, srcStep, pDst, dstStep, roi, mode, n);
    } else {
        const Rounding r = rounding_of(mode);
        // 32u to 32s truncating by 2^32 is 0 as well.
        const bool zero = n >= kZeroFrom<S, D> ||
                          (std::is_same_v<S, Kel32u> && std::is_same_v<D, Kel32s> && n == 32 && r == Rounding::Zero);
        if (zero) {
            zero_fill(pDst, dstStep, roi);
        } else if (n == 0) {
            int_rows<S, D, IntScale::Saturate>(pSrc, srcStep, pDst, dstStep, roi, n);
        } else if (n < 0) {
            int_rows<S, D, IntScale::Left>(pSrc, srcStep, pDst, dstStep, roi, n);
        } else if (r == Rounding::Zero) {
            int_rows<S, D, IntScale::Zero>(pSrc, srcStep, pDst, dstStep, roi, n);
        } else if (r == Rounding::Near) {
            int_rows<S, D, IntScale::Near>(pSrc, srcStep, pDst, dstStep, roi, n);
        } else {
            int_rows<S, D, IntScale::Financial>(pSrc, srcStep, pDst, dstStep, roi, n);
        }
        return kelStatusOk;
    }
}

// 32f to 32u, C1RSfs and its in-place twin (pSrc == pDst): element by element.
inline KelStatus convert_32f32u_sfs(const Kel32f* pSrc, int srcStep, Kel32u* pDst, int dstStep, KeliSize roi,
                                    KelRoundMode mode, int n)
{
    using namespace convert_detail;
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::size(roi), check::steps(srcStep, dstStep)}))
        return s;
    FpControlGuard guard;
    const Rounding r = rounding_of(mode);
    set_control(guard, r);
    const std::size_t width = static_cast<std::size_t>(roi.width);
    auto rows_of = [&](auto op) {
        walk_rows(roi.height, [&](const Kel32f* s, Kel32u* d) { rows::ordered_run(op, s, d, width); },
                  row_ptr(pSrc, srcStep), row_ptr(pDst, dstStep));
    };
    if (r == Rounding::Financial) rows_of(rows::Float32uOp<true>(n));
    else rows_of(rows::Float32uOp<false>(n));
    return kelStatusOk;
}

inline KelStatus convert_32f32u_isfs(Kel32u* pSrcDst, int srcDstStep, KeliSize roi, KelRoundMode mode, int n)
{
    return convert_32f32u_sfs(reinterpret_cast<const Kel32f*>(pSrcDst), srcDstStep, pSrcDst, srcDstStep, roi, mode, n);
}

// Clamped sign, C1Rs: pointers and size are checked, steps are taken as they stand. A row whose
// source and destination overlap runs element by element in order.
template <class S, class D> KelStatus convert_clamp_sign(const S* pSrc, int srcStep, D* pDst, int dstStep, KeliSize roi)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::size(roi)})) return s;
    const rows::ClampSignOp<S, D> op;
    const std::size_t width = static_cast<std::size_t>(roi.width);
    walk_rows(
        roi.height,
        [&](const S* s, D* d) {
            const auto sb = reinterpret_cast<std::uintptr_t>(s), db = reinterpret_cast<std::uintptr_t>(d);
            const bool overlap = sb < db + width * sizeof(D) && db < sb + width * sizeof(S);
            if (overlap && !(sizeof(S) == sizeof(D) && sb == db)) rows::ordered_run(op, s, d, width);
            else rows::round_run(op, s, d, width);
        },
        row_ptr(pSrc, srcStep), row_ptr(pDst, dstStep));
    return kelStatusOk;
}

}  // namespace keli
