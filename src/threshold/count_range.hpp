// keliCountInRange*: per channel, how many elements lie in [lowerBound, upperBound], both ends
// included. The count is 32 bits wide and wraps at that size.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/check.hpp"
#include "frame/driver.hpp"
#include "frame/layout.hpp"
#include "threshold/rows/count_range.hpp"

namespace keli {

// The bound arrays count as pointers and are checked with the image; the C1 entry passes the
// addresses of its scalar bounds. On 32f a not-a-number bound passes the order test (the
// comparison is false) and then counts nothing in its channel.
template <class T, Layout L>
KelStatus count_in_range(const T* pSrc, int srcStep, KeliSize roi, int* pCounts, const T* lowerBound,
                         const T* upperBound)
{
    constexpr std::size_t C = channels<L>;
    constexpr std::size_t processed = L == Layout::AC4 ? 3 : C;
    if (KelStatus s = check::first({check::pointers(pSrc, pCounts, lowerBound, upperBound), check::steps(srcStep),
                                    check::size(roi)}))
        return s;
    for (std::size_t c = 0; c < processed; ++c)
        if (lowerBound[c] > upperBound[c]) return kelStatusBadRange;

    const rows::RangePattern<T, C> pattern(lowerBound, upperBound, processed);
    std::uint64_t total[processed] = {};
    const std::size_t n = static_cast<std::size_t>(roi.width) * C;
    walk_rows(
        roi.height, [&](const T* row) { rows::count_range_row<C, processed>(row, n, pattern, total); },
        row_ptr(pSrc, srcStep));
    for (std::size_t c = 0; c < processed; ++c) pCounts[c] = static_cast<int>(static_cast<std::uint32_t>(total[c]));
    return kelStatusOk;
}

}  // namespace keli
