// keliFilterBorder and keliFilter_64f_C1R: the general kernel filter over the edge driver.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <type_traits>

#include "filter/edge_driver.hpp"
#include "filter/general_spec.hpp"
#include "filter/rows/general.hpp"
#include "frame/check.hpp"
#include "frame/fp_guard.hpp"
#include "frame/layout.hpp"
#include "move/border.hpp"

namespace keli {
namespace filter_detail {

using filter::GeneralSpec;

// The row kernels round and convert under the SSE control register's nearest mode, and f32
// sums must not lose their denormals: the call runs with that state and gives the caller's back.
inline void fixed_fp_state(FpControlGuard& guard)
{
    guard.set_rounding(0);
    guard.set_flush_to_zero(false);
}

template <class T> constexpr bool path_fits(std::uint32_t path)
{
    if constexpr (std::is_same_v<T, Kel8u>) return path == filter::kPath8uInt || path == filter::kPath8uFloat;
    else if constexpr (std::is_same_v<T, Kel16s>) return path == filter::kPath16sInt || path == filter::kPath16sFloat;
    else if constexpr (std::is_same_v<T, Kel16u>) return path == filter::kPath16uFloat;
    else if constexpr (std::is_same_v<T, Kel32f>) return path == filter::kPath32f;
    else return path == filter::kPath64f;
}

template <class T> filter::rows::IntegerRows<T> integer_rows(const GeneralSpec& s, int C)
{
    const std::int64_t N = std::int64_t(s.kernelWidth) * s.kernelHeight;
    const Kel16s* last = s.reversed16s + N - 1;
    std::int64_t absSum = 0;
    for (std::int64_t i = 0; i < N; ++i) absSum += std::abs(std::int32_t(s.reversed16s[i]));
    const std::int64_t largestPixel = std::is_same_v<T, Kel8u> ? 255 : 32768;
    // Every loop forms the exact rounded quotient of the same dividend, so the accurate flag
    // beside the mode has nothing left to change: only the mode itself is read.
    filter::rows::IntegerResult r{s.divisor, s.divisorKind, s.divisorReciprocal, s.offsetF32,
                                  int(s.roundMode & 3), s.offsetF32 == 0.0f && absSum * largestPixel < (1 << 24)};
    const bool vector = s.pairTableUsable && (s.divisorKind != filter::kDivExact ||
                                              filter::rows::IntegerResultVector<T>::fits(s.divisor));
    return {s.kernelWidth, s.kernelHeight, C, s.pairs, last, r, vector};
}

}  // namespace filter_detail

template <class T, Layout L>
KelStatus filter_border(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, KeliBorderType border,
                        const T* borderValue, const KeliFilterBorderSpec* pSpec, Kel8u* pBuffer)
{
    constexpr int C = static_cast<int>(channels<L>);
    // The constant's value counts among the pointers, so it is tested right behind them.
    if (KelStatus s = check::pointers(pSrc, pDst, pSpec, pBuffer)) return s;
    if (border::base_kind(border) == kelBorderConst && !borderValue) return kelStatusNullPtr;
    if (KelStatus s = check::size(roi)) return s;
    // The destination step is held against one channel's row only, and the source step against
    // nothing: both are leniencies callers rely on.
    if (srcStep < 1 || std::int64_t(dstStep) < std::int64_t(roi.width) * std::int64_t(sizeof(T))) return kelStatusBadStep;
    if (!border::filter_accepts(border)) return kelStatusBadBorder;

    const filter::GeneralSpec& s = *filter::spec_record(pSpec);
    // Code 2 is never written; it stands for the 16u float path.
    const std::uint32_t path = s.pathCode == filter::kPath16uIntUnused ? filter::kPath16uFloat : s.pathCode;
    if (!filter_detail::path_fits<T>(path)) return kelStatusSpecMismatch;

    FpControlGuard guard;
    filter_detail::fixed_fp_state(guard);
    const KeliSize kernel{s.kernelWidth, s.kernelHeight};
    const filter::ScratchLayout scratch = filter::general_scratch(pBuffer, kernel, roi, int(sizeof(T)), C);
    const filter::EdgeJob<T, T> job{pSrc, srcStep, pDst, dstStep, roi.width, roi.height,
                                    filter::centred(kernel.width, kernel.height), border, borderValue,
                                    scratch.border, reinterpret_cast<const void**>(scratch.work)};
    const filter::EdgeDriver<T, L> driver(job);
    const std::int64_t N = std::int64_t(kernel.width) * kernel.height;
    if constexpr (std::is_same_v<T, Kel64f>) {
        driver.run(filter::rows::FloatRows<Kel64f>{kernel.width, kernel.height, 1, s.reversed64f + N - 1, {}});
    } else {
        if constexpr (std::is_same_v<T, Kel8u> || std::is_same_v<T, Kel16s>) {
            if (path == filter::kPath8uInt || path == filter::kPath16sInt) {
                driver.run(filter_detail::integer_rows<T>(s, C));
                return kelStatusOk;
            }
        }
        const filter::rows::FloatResult result{s.offsetF32, int(s.roundMode & 3)};
        driver.run(filter::rows::FloatRows<T>{kernel.width, kernel.height, C, s.reversed32f + N - 1, result});
    }
    return kelStatusOk;
}

// A true convolution with the caller's anchor and no border: the window around each output
// pixel must lie in the caller's memory. Walking the window down and right meets the kernel
// from its last coefficient backwards. Checks follow the frame's common order (pointers, sizes,
// steps), then the anchor, which must lie inside the kernel.
inline KelStatus filter_64f(const Kel64f* pSrc, int srcStep, Kel64f* pDst, int dstStep, KeliSize roi,
                            const Kel64f* pKernel, KeliSize kernelSize, KeliPoint anchor, Kel8u* pBuffer)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pDst, pKernel, pBuffer), check::size(roi),
                                    check::size(kernelSize), check::steps(srcStep, dstStep)}))
        return s;
    if (anchor.x < 0 || anchor.x >= kernelSize.width || anchor.y < 0 || anchor.y >= kernelSize.height)
        return kelStatusBadAnchor;
    FpControlGuard guard;
    filter_detail::fixed_fp_state(guard);
    const filter::Footprint fp{kernelSize.width, kernelSize.height, kernelSize.width - 1 - anchor.x,
                               kernelSize.height - 1 - anchor.y};
    const filter::EdgeJob<Kel64f, Kel64f> job{pSrc, srcStep, pDst, dstStep, roi.width, roi.height, fp,
                                              kelBorderInMem, nullptr, nullptr, reinterpret_cast<const void**>(pBuffer)};
    const std::int64_t N = std::int64_t(kernelSize.width) * kernelSize.height;
    filter::EdgeDriver<Kel64f, Layout::C1>(job).run(
        filter::rows::FloatRows<Kel64f>{kernelSize.width, kernelSize.height, 1, pKernel + N - 1, {}});
    return kelStatusOk;
}

}  // namespace keli
