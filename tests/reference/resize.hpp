// Plain model of the nearest and linear resize: one destination pixel at a time over the whole
// image, from the position formulas, with no tables shared with the library and no tiles.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <type_traits>
#include <vector>

namespace ref::resize {

enum class Arith { Q14, F32, F64 };

struct Axis {
    std::vector<std::int64_t> idx;
    std::vector<double> f;
    std::vector<double> pos;
};

inline std::int64_t gcd(std::int64_t a, std::int64_t b) { return b == 0 ? a : gcd(b, a % b); }

inline Axis linear_axis(std::int64_t src, std::int64_t dst)
{
    const std::int64_t g = gcd(src, dst);
    const double scale = static_cast<double>(src / g) / static_cast<double>(dst / g);
    Axis a;
    for (std::int64_t i = 0; i < dst; ++i) {
        const double pos = (static_cast<double>(i) + 0.5) * scale - 0.5;
        const double fl = std::floor(pos);
        a.pos.push_back(pos);
        a.idx.push_back(static_cast<std::int64_t>(fl));
        a.f.push_back(pos - fl);
    }
    return a;
}

// The body positions multiply by the step inv * src, the last dst mod 4 by src then inv.
inline std::vector<std::int64_t> nearest_axis(std::int64_t src, std::int64_t dst)
{
    std::vector<std::int64_t> out;
    const double inv = 1.0 / static_cast<double>(dst), s = static_cast<double>(src);
    for (std::int64_t i = 0; i < dst; ++i) {
        const double p = i < (dst / 4) * 4 ? (i + 0.5) * (inv * s) - 1e-10 : ((i + 0.5) * s) * inv - 1e-10;
        out.push_back(static_cast<std::int64_t>(std::trunc(p)));
    }
    return out;
}

// Source element (x, y, channel) at any coordinate the rule may read.
template <class T> using Source = std::function<T(std::int64_t, std::int64_t, int)>;

template <class T>
std::vector<T> nearest(const Source<T>& src, std::int64_t sw, std::int64_t sh, std::int64_t dw, std::int64_t dh, int C)
{
    const auto ix = nearest_axis(sw, dw), iy = nearest_axis(sh, dh);
    std::vector<T> out;
    for (std::int64_t y = 0; y < dh; ++y)
        for (std::int64_t x = 0; x < dw; ++x)
            for (int k = 0; k < C; ++k) out.push_back(src(ix[x], iy[y], k));
    return out;
}

template <class T> T round_saturate(double v)
{
    if constexpr (std::is_floating_point_v<T>) {
        return static_cast<T>(v);
    } else {
        const double r = std::nearbyint(v);  // the default mode: nearest, ties to even
        return static_cast<T>(std::clamp(r, static_cast<double>(std::numeric_limits<T>::min()),
                                         static_cast<double>(std::numeric_limits<T>::max())));
    }
}

// border: the word as the caller passes it (MirrorR already folded into Repl by the caller of
// the model, as the rule says it behaves so).
template <class T>
std::vector<T> linear(const Source<T>& src, std::int64_t sw, std::int64_t sh, std::int64_t dw, std::int64_t dh, int C,
                      std::uint32_t border, Arith arith)
{
    const Axis ax = linear_axis(sw, dw), ay = linear_axis(sh, dh);
    const bool mirror = (border & 15u) == 3, mt = border & 16u, mb = border & 32u, ml = border & 64u, mr = border & 128u;
    const auto tap = [mirror](std::int64_t i, std::int64_t len, bool memLow, bool memHigh) {
        if (i < 0 && !memLow) return mirror ? -i : std::int64_t{0};
        if (i > len - 1 && !memHigh) return mirror ? 2 * (len - 1) - i : len - 1;
        return i;
    };
    const auto q14 = [](double f) { return static_cast<std::int64_t>(std::trunc(f * 16384 + 1e-7)); };
    const auto round14 = [](std::int64_t s) { return (s + 8192 + ((s >> 14) & 1)) >> 14; };
    std::vector<T> out;
    for (std::int64_t y = 0; y < dh; ++y) {
        for (std::int64_t x = 0; x < dw; ++x) {
            const bool edge = (ay.pos[y] < 0 && !mt) || (ay.pos[y] >= sh - 1 && !mb) || (ax.pos[x] < 0 && !ml) ||
                              (ax.pos[x] >= sw - 1 && !mr);
            std::int64_t x0 = ax.idx[x], x1 = x0 + 1, y0 = ay.idx[y], y1 = y0 + 1;
            if (edge) {
                x0 = tap(x0, sw, ml, mr);
                x1 = tap(x1, sw, ml, mr);
                y0 = tap(y0, sh, mt, mb);
                y1 = tap(y1, sh, mt, mb);
            }
            for (int k = 0; k < C; ++k) {
                if (arith == Arith::Q14) {
                    const std::int64_t F = q14(ay.f[y]), G = q14(ax.f[x]);
                    const std::int64_t a = static_cast<std::int64_t>(src(x0, y0, k)), b = static_cast<std::int64_t>(src(x1, y0, k));
                    const std::int64_t c = static_cast<std::int64_t>(src(x0, y1, k)), d = static_cast<std::int64_t>(src(x1, y1, k));
                    std::int64_t v;
                    if (edge) {
                        const std::int64_t r0 = round14((16384 - G) * a + G * b), r1 = round14((16384 - G) * c + G * d);
                        v = round14(r0 * 16384 + (r1 - r0) * F);
                    } else {
                        const std::int64_t h0 = ((16384 - G) * a + G * b + 128) >> 8;
                        const std::int64_t h1 = ((16384 - G) * c + G * d + 128) >> 8;
                        v = ((16384 - F) * h0 + F * h1 + (1 << 19)) >> 20;
                    }
                    out.push_back(static_cast<T>(std::clamp<std::int64_t>(v, 0, 255)));
                } else if (arith == Arith::F32) {
                    const float fx = static_cast<float>(ax.f[x]), fy = static_cast<float>(ay.f[y]);
                    const auto v = [&](std::int64_t xx, std::int64_t yy) { return static_cast<float>(src(xx, yy, k)); };
                    const auto lerp = [](float a, float b, float f) { return a + (b - a) * f; };
                    float r;
                    if (edge && y0 == y1) r = lerp(v(x0, y0), v(x1, y0), fx);
                    else if (edge && x0 == x1) r = lerp(v(x0, y0), v(x0, y1), fy);
                    else r = lerp(lerp(v(x0, y0), v(x1, y0), fx), lerp(v(x0, y1), v(x1, y1), fx), fy);
                    out.push_back(round_saturate<T>(r));
                } else {
                    const double fx = ax.f[x], fy = ay.f[y];
                    const auto v = [&](std::int64_t xx, std::int64_t yy) { return static_cast<double>(src(xx, yy, k)); };
                    const auto lerp = [](double a, double b, double f) { return a + (b - a) * f; };
                    double r;
                    if (edge && y0 == y1) r = lerp(v(x0, y0), v(x1, y0), fx);
                    else if (edge && x0 == x1) r = lerp(v(x0, y0), v(x0, y1), fy);
                    else r = lerp(lerp(v(x0, y0), v(x1, y0), fx), lerp(v(x0, y1), v(x1, y1), fx), fy);
                    out.push_back(static_cast<T>(r));
                }
            }
        }
    }
    return out;
}

}  // namespace ref::resize
