// Plain models of the dot products: integer products exact per tile, each tile's total a double;
// wider elements turned into doubles one by one and summed in the row order the rule fixes.
#pragma once

#include <algorithm>
#include <cstdint>

#include "reference/sums_extrema.hpp"

namespace reference {

// Integer elements: exact products summed per tile of `limit` pixels, each tile's total a double.
template <class T> inline void dot_int(View<T> a, View<T> b, int channels, double* out)
{
    const std::int64_t limit = sizeof(T) == 1 ? 33025 : 2147549185LL;
    const std::int64_t rows = std::min<std::int64_t>(std::max<std::int64_t>(limit / a.width, 1), a.height);
    const std::int64_t cols = std::min<std::int64_t>(std::max<std::int64_t>(limit / rows, 1), a.width);
    for (int c = 0; c < channels; ++c) {
        double acc = 0;
        for (std::int64_t y0 = 0; y0 < a.height; y0 += rows)
            for (std::int64_t x0 = 0; x0 < a.width; x0 += cols) {
                std::int64_t t = 0;
                for (std::int64_t y = y0; y < std::min<std::int64_t>(y0 + rows, a.height); ++y)
                    for (std::int64_t x = x0; x < std::min<std::int64_t>(x0 + cols, a.width); ++x)
                        t += std::int64_t(a.at(int(x), int(y), c)) * std::int64_t(b.at(int(x), int(y), c));
                acc += double(t);
            }
        out[c] = acc;
    }
}

// Elements widened to doubles before they multiply. One channel: per row, elements 4k and 4k+1
// go to lanes 0 and 1 of one sum, 4k+2 and 4k+3 to those of another; the row total is the sum
// of the lanes' sums, then the remaining elements; several channels: one double per channel and
// row. Row totals are added in row order.
template <class T> inline void dot_wide(View<T> a, View<T> b, int channels, double* out)
{
    for (int c = 0; c < channels; ++c) out[c] = 0;
    for (int y = 0; y < a.height; ++y) {
        if (a.channels == 1) {
            double s[2][2] = {};
            int x = 0;
            for (; x + 4 <= a.width; x += 4)
                for (int k = 0; k < 4; ++k) s[k / 2][k % 2] += double(a.at(x + k, y, 0)) * double(b.at(x + k, y, 0));
            double t = (s[0][0] + s[1][0]) + (s[0][1] + s[1][1]);
            for (; x < a.width; ++x) t += double(a.at(x, y, 0)) * double(b.at(x, y, 0));
            out[0] += t;
        } else {
            for (int c = 0; c < channels; ++c) {
                double t = 0;
                for (int x = 0; x < a.width; ++x) t += double(a.at(x, y, c)) * double(b.at(x, y, c));
                out[c] += t;
            }
        }
    }
}

// The dot product of the first `channels` channels.
template <class T> inline void dot(View<T> a, View<T> b, int channels, double* out)
{
    if constexpr (sizeof(T) <= 2) dot_int(a, b, channels, out);
    else dot_wide(a, b, channels, out);
}

}  // namespace reference
