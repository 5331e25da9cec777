// Plain models of the median filters: each window collected pixel by pixel, sorted, and its
// middle element taken. Floats sort by their key, the bit pattern with all bits but the sign
// flipped when the sign is set, compared as a signed integer (-0.0 below +0.0, NaNs at the ends
// by sign). The colour model sums distances in row-major order, in 64 bits or in f32.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <vector>

#include "reference/box.hpp"

namespace reference {

template <class T> std::int64_t median_key(T v)
{
    if constexpr (std::is_same_v<T, float>) {
        std::int32_t b;
        std::memcpy(&b, &v, 4);
        return b < 0 ? std::int64_t(b ^ 0x7FFFFFFF) : b;
    } else if constexpr (std::is_same_v<T, double>) {
        std::int64_t b;
        std::memcpy(&b, &v, 8);
        return b < 0 ? b ^ INT64_MAX : b;
    } else {
        return std::int64_t(v);
    }
}

// Element size() >> 1 of the values in key order.
template <class T> T middle(std::vector<T> v)
{
    std::sort(v.begin(), v.end(), [](T a, T b) { return median_key(a) < median_key(b); });
    return v[v.size() >> 1];
}

// Channel c of output (x, y) of the border filter: the window centred on the pixel, read
// through the edge model (`get(x, y, c)` reads the image, margin included).
template <class T, class Get>
T border_median(Get get, int border, int kw, int kh, int width, int height, const T* value, std::int64_t x,
                std::int64_t y, int c)
{
    const Window w{kw, kh, kw >> 1, kh >> 1};
    std::vector<T> v;
    for (int j = 0; j < kh; ++j)
        for (int i = 0; i < kw; ++i) v.push_back(box_pixel(get, border, w, width, height, value, x - w.ax + i, y - w.ay + j, c));
    return middle(v);
}

// The anchored median: the window's top-left at (x - ax, y - ay), read straight from the image.
template <class T, class Get> T anchored_median(Get get, int kw, int kh, int ax, int ay, std::int64_t x, std::int64_t y, int c)
{
    std::vector<T> v;
    for (int j = 0; j < kh; ++j)
        for (int i = 0; i < kw; ++i) v.push_back(get(x - ax + i, y - ay + j, c));
    return middle(v);
}

// The cross of reach r: the row arm and the column arm through (x, y).
template <class T, class Get> T cross_median(Get get, int r, std::int64_t x, std::int64_t y, int c)
{
    std::vector<T> v;
    for (int i = -r; i <= r; ++i) v.push_back(get(x + i, y, c));
    for (int j = -r; j <= r; ++j)
        if (j != 0) v.push_back(get(x, y + j, c));
    return middle(v);
}

// The 3x3 window with the centre `weight` times (weight odd).
template <class T, class Get> T weighted_median(Get get, int weight, std::int64_t x, std::int64_t y)
{
    std::vector<T> v;
    for (int j = -1; j <= 1; ++j)
        for (int i = -1; i <= 1; ++i)
            if (i || j) v.push_back(get(x + i, y + j, 0));
    for (int k = 0; k < weight; ++k) v.push_back(get(x, y, 0));
    return middle(v);
}

// The colour median of the side x side window centred on (x, y): the window position (i, j),
// row-major, of least distance sum; returns its offset from the centre.
template <class T, class Get> std::pair<int, int> colour_median(Get get, int side, std::int64_t x, std::int64_t y)
{
    using Sum = std::conditional_t<std::is_same_v<T, float>, float, std::int64_t>;
    const int r = side / 2;
    int bi = 0, bj = 0;
    Sum best = 0;
    for (int j = 0; j < side; ++j)
        for (int i = 0; i < side; ++i) {
            Sum s = 0;
            for (int q = 0; q < side; ++q)
                for (int p = 0; p < side; ++p) {
                    Sum d = 0;
                    for (int c = 0; c < 3; ++c) {
                        const Sum a = Sum(get(x - r + i, y - r + j, c)), b = Sum(get(x - r + p, y - r + q, c));
                        d = d + (a > b ? a - b : b - a);
                    }
                    s = s + d;
                }
            if ((i == 0 && j == 0) || s < best) best = s, bi = i, bj = j;
        }
    return {bi - r, bj - r};
}

}  // namespace reference
