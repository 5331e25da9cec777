// keliConvert, exact and saturating members: element type changes that need no rounding.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/ac4.hpp"
#include "frame/check.hpp"
#include "frame/driver.hpp"
#include "frame/layout.hpp"
#include "frame/store_choice.hpp"
#include "move/rows/convert.hpp"

namespace keli {

// Widenings large enough to leave the cache bypass it on the way out. The pixel gate keeps the
// cache query away from calls whose traffic is plainly below any cache.
template <class S, class D> constexpr std::int64_t kConvertStreamGate = 0;  // 0: never streams
template <> constexpr std::int64_t kConvertStreamGate<Kel16s, Kel32f> = 87382;
template <> constexpr std::int64_t kConvertStreamGate<Kel16u, Kel32f> = 87382;
template <> constexpr std::int64_t kConvertStreamGate<Kel8s, Kel32f> = 104858;
template <> constexpr std::int64_t kConvertStreamGate<Kel8s, Kel32s> = 104858;

template <class S, class D, Layout L>
KelStatus convert_image(const S* pSrc, int srcStep, D* pDst, int dstStep, KeliSize roi)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::size(roi), check::steps(srcStep, dstStep)}))
        return s;
    using Op = rows::ConvertOp<S, D>;
    const std::size_t width = static_cast<std::size_t>(roi.width);
    bool nontemporal = false;
    if constexpr (kConvertStreamGate<S, D> > 0 && !has_alpha<L>) {
        const std::int64_t pixels = std::int64_t(roi.width) * roi.height;
        nontemporal = pixels >= kConvertStreamGate<S, D> &&
                      use_nontemporal(static_cast<std::uint64_t>(pixels) * channels<L> * (sizeof(S) + sizeof(D)));
    }
    walk_rows(
        roi.height,
        [width, nontemporal](const S* s, D* d) {
            if constexpr (has_alpha<L>) {
                ac4_row(d, width, [s](std::size_t x, std::size_t n, D* scratch) {
                    rows::convert_run<Op>(s + 4 * x, scratch, 4 * n);
                });
            } else {
                rows::convert_run<Op>(s, d, width * channels<L>, nontemporal);
            }
        },
        row_ptr(pSrc, srcStep), row_ptr(pDst, dstStep));
    return kelStatusOk;
}

}  // namespace keli
