// Plain models of the adaptive thresholds: the window read pixel by pixel through the edge
// model, the box test in wide integers, the Gaussian mean in the stated f32 order.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

#include "reference/filter.hpp"

namespace reference {

// The outcome that needs no window, or -1: delta past the pixel range, a one-pixel mask, or a
// not-a-number delta (no comparison holds). 1 is valGT, 0 valLE.
inline int adaptive_shortcut(float delta, int m)
{
    if (delta > 255.0f) return 1;
    if (delta <= -255.0f) return 0;
    if (m == 1) return delta > 0.0f ? 1 : 0;
    if (std::isnan(delta)) return 0;
    return -1;
}

// src > S / a - delta, decided exactly in rationals: a * src - S > -a * delta.
template <class Get>
bool adaptive_box_above(Get get, int border, int m, int width, int height, std::uint8_t value, int x, int y, float delta)
{
    const Window w{m, m, m / 2, m / 2};
    std::int64_t s = 0;
    for (int j = 0; j < m; ++j)
        for (int i = 0; i < m; ++i) {
            const auto at = edge_source(border, w, width, height, x - w.ax + i, y - w.ay + j);
            s += at.inside ? get(at.x, at.y) : value;
        }
    const std::int64_t a = std::int64_t(m) * m;
    return static_cast<long double>(a * get(x, y) - s) > -static_cast<long double>(a) * delta;
}

inline std::vector<float> adaptive_gauss_weights(int m, float sigma)
{
    if (!(sigma > 0.0f)) sigma = static_cast<float>((m - 1) * 0.15 + 0.5);
    std::vector<float> w(m);
    float sum = 0;
    for (int i = 0; i < m; ++i) {
        const double d = i - m / 2;
        w[i] = static_cast<float>(std::exp(-0.5 * d * d / (double(sigma) * sigma)));
        sum = i == 0 ? w[i] : sum + w[i];
    }
    const float inv = 1.0f / sum;
    for (auto& v : w) v *= inv;
    return w;
}

// Rows filtered along x first, then down the column, each in index order.
template <class Get>
bool adaptive_gauss_above(Get get, int border, const std::vector<float>& w, int width, int height, std::uint8_t value,
                          int x, int y, float delta)
{
    const int m = int(w.size());
    const Window win{m, m, m / 2, m / 2};
    float mean = 0;
    for (int j = 0; j < m; ++j) {
        float row = 0;
        for (int i = 0; i < m; ++i) {
            const auto at = edge_source(border, win, width, height, x - win.ax + i, y - win.ay + j);
            const float p = at.inside ? get(at.x, at.y) : value;
            row = i == 0 ? w[0] * p : row + w[i] * p;
        }
        mean = j == 0 ? w[0] * row : mean + w[j] * row;
    }
    return static_cast<float>(get(x, y)) > mean - delta;
}

}  // namespace reference
