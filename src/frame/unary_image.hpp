// The driver of element-wise operations with one source: each row is one run of
// width * channels elements, and AC4 rows go through the scratch rule.
#pragma once

#include <cstddef>

#include "frame/ac4.hpp"
#include "frame/driver.hpp"
#include "frame/layout.hpp"
#include "frame/row_loop.hpp"

namespace keli {

template <class Op, Layout L, StepRule R, class T = typename Op::T>
inline void unary_image(const T* src, int srcStep, T* dst, int dstStep, KeliSize roi)
{
    const std::size_t width = static_cast<std::size_t>(roi.width);
    walk_rows(
        roi.height,
        [width](const T* s, T* d) {
            if constexpr (has_alpha<L>) {
                ac4_row(d, width, [s](std::size_t x, std::size_t n, T* scratch) {
                    unary_run<Op>(s + 4 * x, scratch, 4 * n);
                });
            } else {
                unary_run<Op>(s, d, width * channels<L>);
            }
        },
        row_ptr<R>(src, srcStep), row_ptr<R>(dst, dstStep));
}

}  // namespace keli
