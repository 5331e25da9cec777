// Plain model of the minimum and maximum filters: the window read pixel by pixel through the edge
// model, each row's taps folded left to right, then the row results top to bottom, with the fold
// rule acc = (acc < x) ? acc : x (minimum) or (acc > x) ? acc : x (maximum).
#pragma once

#include <cstdint>

#include "reference/box.hpp"

namespace reference {

template <class T> T fold_extremum(bool max, T acc, T x) { return max ? (acc > x ? acc : x) : (acc < x ? acc : x); }

// Channel c of output (x, y); `get(x, y, c)` reads the image, margin included.
template <class T, class Get>
T window_extremum(bool max, Get get, int border, Window w, int width, int height, const T* value, std::int64_t x,
                  std::int64_t y, int c)
{
    T result{};
    for (int j = 0; j < w.kh; ++j) {
        T row{};
        for (int i = 0; i < w.kw; ++i) {
            const T v = box_pixel(get, border, w, width, height, value, x - w.ax + i, y - w.ay + j, c);
            row = i == 0 ? v : fold_extremum(max, row, v);
        }
        result = j == 0 ? row : fold_extremum(max, result, row);
    }
    return result;
}

}  // namespace reference
