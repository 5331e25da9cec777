// Plain model of keliRemap: one destination element from the maps, written out formula by
// formula. Integer types widen to int or round through the standard library; floating formulas
// keep the order of operations of the rule, so 32f and 64f results compare exactly.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "keli_types.h"

namespace reference {

struct RemapWindow {
    int x0, y0, x1, y1;  // inclusive
};

// The kind after the small-source fallback.
inline int remap_kind(int kind, int srcWidth, int srcHeight)
{
    const int small = std::min(srcWidth, srcHeight);
    if (small == 1) return 1;
    if (small < 4 && (kind == 4 || kind == 6 || kind == 16)) return 2;
    if (small < 6 && kind == 16) return 4;
    return kind;
}

template <class T, class W> T remap_round(W v)
{
    if constexpr (std::is_floating_point_v<T>) {
        return T(v);
    } else {
        const double r = std::nearbyint(double(v));
        return T(std::clamp(r, double(std::numeric_limits<T>::min()), double(std::numeric_limits<T>::max())));
    }
}

inline int remap_clamp(int i, int lo, int hi) { return i < lo ? lo : i > hi ? hi : i; }

inline float lanczos3_entry(int n)
{
    if (n == 0) return 1.0f;
    if (n >= 300) return 0.0f;
    const double pi = 3.14159265358979323846, x = n / 100.0;
    return float(std::sin(pi * x) / (pi * x) * (std::sin(pi * x / 3) / (pi * x / 3)));
}

inline int lagrange_q14_entry(int u, int tap)
{
    const double f = u / 512.0;
    const double w = tap == 0 ? -(f - 1) * (f - 2) * (f - 3) / 6 : f * (f - 2) * (f - 3) / 2;
    return int(std::nearbyint(w * 16384.0));
}

// Element c of the destination pixel whose map values are (mx, my); `old` is the element the
// destination held. `src(x, y, c)` reads the source in image coordinates.
template <class T, class M, class Src>
T remap_element(int kind, bool smooth, const Src& src, RemapWindow w, M mx, M my, int c, T old)
{
    using W = std::conditional_t<std::is_same_v<T, double>, double, float>;
    const bool in = mx >= M(w.x0) && mx <= M(w.x1) && my >= M(w.y0) && my <= M(w.y1);
    if (!in) {
        if (!smooth || !(mx >= M(w.x0) - 1 && mx <= M(w.x1) + 1 && my >= M(w.y0) - 1 && my <= M(w.y1) + 1))
            return old;
        bool inX = false, inY = false;
        int col, row;
        M dx = 0, dy = 0;
        if (mx < M(w.x0)) { col = w.x0; dx = M(w.x0) - mx; }
        else if (mx > M(w.x1)) { col = w.x1; dx = mx - M(w.x1); }
        else { col = int(mx); inX = true; }
        if (my < M(w.y0)) { row = w.y0; dy = M(w.y0) - my; }
        else if (my > M(w.y1)) { row = w.y1; dy = my - M(w.y1); }
        else { row = int(my); inY = true; }
        const M k = inX ? dy : inY ? dx : (dy - 1) * (1 - dx) + 1;
        const W S = W(src(col, row, c)), D = W(old);
        return remap_round<T>(S + (D - S) * W(k));
    }
    const bool fixed = std::is_same_v<T, Kel8u> && !smooth;
    auto at = [&](int x, int y) { return src(remap_clamp(x, w.x0, w.x1), remap_clamp(y, w.y0, w.y1), c); };

    if (kind == 1) {
        const int ix = std::min(int(mx + M(0.5)), w.x1), iy = std::min(int(my + M(0.5)), w.y1);
        return src(ix, iy, c);
    }
    if (kind == 2) {
        const int ix = std::min(int(mx), w.x1 - 1), iy = std::min(int(my), w.y1 - 1);
        const M fx = mx - M(ix), fy = my - M(iy);
        if constexpr (std::is_same_v<T, double>) {
            const double top = at(ix, iy) + (at(ix + 1, iy) - at(ix, iy)) * fx;
            const double bottom = at(ix, iy + 1) + (at(ix + 1, iy + 1) - at(ix, iy + 1)) * fx;
            return top + (bottom - top) * fy;
        } else {
            if (fixed) {
                const int Fx = int(std::nearbyint(fx * 16384.0f)), Fy = int(std::nearbyint(fy * 16384.0f));
                const int h0 = (int(at(ix, iy)) * (16384 - Fx) + int(at(ix + 1, iy)) * Fx) >> 8;
                const int h1 = (int(at(ix, iy + 1)) * (16384 - Fx) + int(at(ix + 1, iy + 1)) * Fx) >> 8;
                return T(((16384 - Fy) * h0 + Fy * h1 + 33) >> 20);
            }
            const float v = (float(at(ix, iy)) * (1.0f - fx) + float(at(ix + 1, iy)) * fx) * (1.0f - fy) +
                            (float(at(ix, iy + 1)) * (1.0f - fx) + float(at(ix + 1, iy + 1)) * fx) * fy;
            return remap_round<T>(v);
        }
    }
    // Four or six taps: first index and weights per axis.
    int n = kind == 16 ? 6 : 4, ix, iy;
    W wx[6], wy[6];
    auto weights = [&](M m, int lo, int hi, int& first, W* wt) {
        if (kind == 4) {
            int i = std::min(int(m), hi - 2);
            if (i > lo) i -= 1;
            first = i;
            const W f = W(m - M(i));
            wt[0] = -(f - 1) * (f - 2) * (f - 3) / 6;
            wt[1] = f * (f - 2) * (f - 3) / 2;
            wt[2] = -f * (f - 1) * (f - 3) / 2;
            wt[3] = f * (f - 1) * (f - 2) / 6;
        } else if (kind == 6) {
            const int i = int(m + M(1e-7));
            first = i - 1;
            const W t = W(m - M(i));
            wt[0] = -t * (t - 1) * (t - 1) / 2;
            wt[1] = (3 * t * t - 5 * t) * t / 2 + 1;
            wt[2] = (4 * t - 3 * t * t + 1) * t / 2;
            wt[3] = t * t * (t - 1) / 2;
        } else {
            const int i = int(m + M(1e-7));
            first = i - 2;
            const float t = float(m - M(i));
            float v[6], sum = 0;
            for (int k = 0; k < 6; ++k) {
                const float d = std::min(std::fabs(t + 2.0f - float(k)), 3.0f), s = 100.0f * d;
                const int j = int(s);
                v[k] = lanczos3_entry(j) + (lanczos3_entry(j + 1) - lanczos3_entry(j)) * (s - float(j));
                sum += v[k];
            }
            for (int k = 0; k < 6; ++k) wt[k] = W(v[k] / sum);
        }
    };
    weights(mx, w.x0, w.x1, ix, wx);
    weights(my, w.y0, w.y1, iy, wy);
    if (kind == 4 && fixed) {
        auto q14 = [&](M m, int first) {
            const int u = std::clamp(int(std::nearbyint(512.0f * float(m - M(first)))), 0, 1536);
            return std::array<int, 4>{lagrange_q14_entry(u, 0), lagrange_q14_entry(u, 1),
                                      lagrange_q14_entry(1536 - u, 1), lagrange_q14_entry(1536 - u, 0)};
        };
        const auto qx = q14(mx, ix), qy = q14(my, iy);
        long long acc = 0;
        for (int r = 0; r < 4; ++r) {
            long long h = 0;
            for (int k = 0; k < 4; ++k) h += (long long)at(ix + k, iy + r) * qx[k];
            acc += (h >> 8) * qy[r];
        }
        return T(std::clamp<long long>((acc + 0x80000) >> 20, 0, 255));
    }
    W acc = 0;
    for (int r = 0; r < n; ++r) {
        W h = W(at(ix, iy + r)) * wx[0];
        for (int k = 1; k < n; ++k) h += W(at(ix + k, iy + r)) * wx[k];
        acc = r == 0 ? h * wy[0] : acc + h * wy[r];
    }
    return remap_round<T>(acc);
}

}  // namespace reference
