// Plain models of the box filter and the window sums: the window read pixel by pixel through the
// edge model, integer sums in 64 bits, the f32 mean rule, the float sums in their fixed order.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "reference/filter.hpp"

namespace reference {

// Pixel (x, y, c) of the window model: `get(x, y, c)` reads the image (margin included).
template <class T, class Get>
T box_pixel(Get get, int border, Window w, int width, int height, const T* value, std::int64_t x, std::int64_t y, int c)
{
    const auto at = edge_source(border, w, width, height, x, y);
    return at.inside ? get(at.x, at.y, c) : value[c];
}

// The exact sum of the window of output (x, y), channel c.
template <class T, class Get>
std::int64_t box_sum(Get get, int border, Window w, int width, int height, const T* value, int x, int y, int c)
{
    std::int64_t s = 0;
    for (int j = 0; j < w.kh; ++j)
        for (int i = 0; i < w.kw; ++i)
            s += box_pixel(get, border, w, width, height, value, x - w.ax + i, y - w.ay + j, c);
    return s;
}

// The float sum: each column of the window top to bottom, then the columns left to right.
template <class Get>
float box_sum_f32(Get get, int border, Window w, int width, int height, const float* value, int x, int y, int c)
{
    float s = 0;
    for (int i = 0; i < w.kw; ++i) {
        float col = box_pixel(get, border, w, width, height, value, x - w.ax + i, y - w.ay, c);
        for (int j = 1; j < w.kh; ++j) col += box_pixel(get, border, w, width, height, value, x - w.ax + i, y - w.ay + j, c);
        s = i == 0 ? col : s + col;
    }
    return s;
}

// The integer mean: floor((float)S * (1.0f / area) + 0.5f), saturated.
template <class T> T box_mean(std::int64_t s, int area)
{
    const float inv = 1.0f / static_cast<float>(area);
    const double m = std::floor(static_cast<float>(static_cast<float>(s) * inv + 0.5f));
    const double lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
    return static_cast<T>(m < lo ? lo : m > hi ? hi : m);
}

}  // namespace reference
