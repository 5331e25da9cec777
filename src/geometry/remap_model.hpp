// keliRemap's scalar model: for one map position, the source taps it reads and their weights,
// one function per interpolation kind, and the pixel formula that combines them. The scalar
// path of every kernel is built from these functions, so the vector kernels are checked
// against exactly this arithmetic.
//
// Positions are image coordinates of the source; taps never leave the source window (the
// trimmed region of interest). Where the window is narrower than a kind's reach, the taps are
// clamped into it: the weights still sum to one, and no pixel outside the window is read.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "keli_types.h"

namespace keli::remap {

// Inclusive bounds of the source window.
struct Window {
    int x0, y0, x1, y1;
};

// Working precision of a member: f64 for the 64f members (whose maps are f64), f32 otherwise.
template <class T> using Real = std::conditional_t<std::is_same_v<T, Kel64f>, double, float>;

inline int clamp_index(int i, int first, int last) { return std::min(std::max(i, first), last); }

// An integer result: round to nearest even (the call runs in that rounding mode), saturate.
template <class T, class W> inline T store_value(W v)
{
    if constexpr (std::is_floating_point_v<T>) {
        return static_cast<T>(v);
    } else {
        const W r = std::nearbyint(v);
        if (!(r > W(std::numeric_limits<T>::min()))) return std::numeric_limits<T>::min();
        if (r > W(std::numeric_limits<T>::max())) return std::numeric_limits<T>::max();
        return static_cast<T>(r);
    }
}

// ---- Nearest ----------------------------------------------------------------------------
// The half is added in the map's own precision, so 0.49999997f goes to 1 in f32. Near 2^23 the
// sum can round up past the last index; the index is held to the window.
template <class M> inline int nearest_index(M m, int last)
{
    return std::min(static_cast<int>(m + M(0.5)), last);
}

// ---- Linear -----------------------------------------------------------------------------
template <class M> struct LinearTaps {
    int i0, i1;
    M f;
};

// The index is held below the window's last index so that both taps lie in it, which gives
// the last pixel with fraction 1 at the last index. In a window one pixel wide both taps clamp
// to its one pixel.
template <class M> inline LinearTaps<M> linear_taps(M m, int first, int last)
{
    const int i = std::min(static_cast<int>(m), last - 1);
    return {std::max(i, first), std::min(i + 1, last), m - static_cast<M>(i)};
}

// 8u: Q14 fractions, a 16-bit multiply-add per row truncated by 8 bits, then rows combined and
// truncated by 20 bits. The +33 is the kernel's historical bias, kept so results stay the same;
// the result is a truncation, not a rounding.
inline int linear_q14(float f) { return static_cast<int>(std::nearbyint(f * 16384.0f)); }

inline int linear_8u(int p00, int p01, int p10, int p11, int fx, int fy)
{
    const int h0 = (p00 * (16384 - fx) + p01 * fx) >> 8;
    const int h1 = (p10 * (16384 - fx) + p11 * fx) >> 8;
    return ((16384 - fy) * h0 + fy * h1 + 33) >> 20;
}

// 16u, 16s, 32f (and the floating formula of 8u): the product form in f32.
inline float linear_product(float p00, float p01, float p10, float p11, float fx, float fy)
{
    const float gx = 1.0f - fx, gy = 1.0f - fy;
    return (p00 * gx + p01 * fx) * gy + (p10 * gx + p11 * fx) * fy;
}

// 64f: the lerp form in f64. It differs from the product form in its last bits on purpose.
inline double linear_lerp(double p00, double p01, double p10, double p11, double fx, double fy)
{
    const double top = p00 + (p01 - p00) * fx;
    const double bottom = p10 + (p11 - p10) * fx;
    return top + (bottom - top) * fy;
}

// ---- Four and six taps ------------------------------------------------------------------
template <class M, int N> struct Taps {
    int index[N];
    M f;  // position relative to the kind's reference index
};

// Cubic Lagrange: the four taps start one before the truncated position, held so that they
// stay inside the window; the fraction then lies in [0, 3]. Both limits are taken relative to
// the window's own first index.
template <class M> inline Taps<M, 4> lagrange_taps(M m, int first, int last)
{
    int i = std::min(static_cast<int>(m), last - 2);
    if (i > first) --i;
    Taps<M, 4> t;
    for (int k = 0; k < 4; ++k) t.index[k] = clamp_index(i + k, first, last);
    t.f = m - static_cast<M>(i);
    return t;
}

template <class W> inline std::array<W, 4> lagrange_weights(W f)
{
    return {-(f - 1) * (f - 2) * (f - 3) / 6, f * (f - 2) * (f - 3) / 2, -f * (f - 1) * (f - 3) / 2,
            f * (f - 1) * (f - 2) / 6};
}

// 8u Lagrange: the fraction in steps of 1/512 and a Q14 table of the first two weights. The
// last two weights are the first two mirrored (w2(f) = w1(3 - f), w3(f) = w0(3 - f)), so one
// table of 1537 entries serves all four taps.
constexpr int kLagrangeSteps = 1536;

namespace detail {
constexpr std::int16_t round_q14(double v)
{
    const double s = v * 16384.0;
    const double fl = static_cast<double>(static_cast<long long>(s < 0 ? s - 1 : s));
    const double lo = fl > s ? fl - 1 : fl;  // floor
    const double frac = s - lo;
    long long r = static_cast<long long>(lo);
    if (frac > 0.5 || (frac == 0.5 && (r & 1))) ++r;
    return static_cast<std::int16_t>(r);
}
struct LagrangeTable {
    std::int16_t w[kLagrangeSteps + 1][2];
};
constexpr LagrangeTable build_lagrange_table()
{
    LagrangeTable t{};
    for (int u = 0; u <= kLagrangeSteps; ++u) {
        const double f = u / 512.0;
        t.w[u][0] = round_q14(-(f - 1) * (f - 2) * (f - 3) / 6);
        t.w[u][1] = round_q14(f * (f - 2) * (f - 3) / 2);
    }
    return t;
}
}  // namespace detail

inline constexpr detail::LagrangeTable kLagrangeQ14 = detail::build_lagrange_table();

inline std::array<int, 4> lagrange_q14(float f)
{
    const int u = std::min(std::max(static_cast<int>(std::nearbyint(512.0f * f)), 0), kLagrangeSteps);
    const auto& a = kLagrangeQ14.w[u];
    const auto& b = kLagrangeQ14.w[kLagrangeSteps - u];
    return {a[0], a[1], b[1], b[0]};
}

// Cubic and Lanczos: N taps starting `before` pixels ahead of the position's pixel. The 1e-7
// lifts positions a hair below an integer onto it, so the fraction t may be slightly negative.
template <int N, class M> inline Taps<M, N> centred_taps(M m, int before, int first, int last)
{
    const int i = static_cast<int>(m + M(1e-7));
    Taps<M, N> t;
    for (int k = 0; k < N; ++k) t.index[k] = clamp_index(i - before + k, first, last);
    t.f = m - static_cast<M>(i);
    return t;
}

// Cubic, B = 0 and C = 0.5: taps i - 1 ... i + 2.
template <class W> inline std::array<W, 4> cubic_weights(W t)
{
    return {-t * (t - 1) * (t - 1) / 2, (3 * t * t - 5 * t) * t / 2 + 1, (4 * t - 3 * t * t + 1) * t / 2,
            t * t * (t - 1) / 2};
}

// Lanczos, three lobes: six taps i - 2 ... i + 3, weights from a table of lanczos3 at steps of
// 1/100, linearly interpolated and divided by their sum. The table and the weights are f32 in
// every member.
constexpr int kLanczosEntries = 302;

inline const float* lanczos_table()
{
    struct Table {
        float v[kLanczosEntries];
        Table()
        {
            const double pi = 3.14159265358979323846;
            v[0] = 1.0f;
            for (int n = 1; n < 300; ++n) {
                const double x = n / 100.0;
                v[n] = static_cast<float>(std::sin(pi * x) / (pi * x) * (std::sin(pi * x / 3) / (pi * x / 3)));
            }
            v[300] = v[301] = 0.0f;
        }
    };
    static const Table table;
    return table.v;
}

inline std::array<float, 6> lanczos_weights(float t)
{
    const float* table = lanczos_table();
    std::array<float, 6> w;
    float sum = 0.0f;
    for (int k = 0; k < 6; ++k) {
        const float d = std::min(std::fabs(t + 2.0f - static_cast<float>(k)), 3.0f);
        const float s = 100.0f * d;
        const int n = static_cast<int>(s);
        w[k] = table[n] + (table[n + 1] - table[n]) * (s - static_cast<float>(n));
        sum += w[k];
    }
    for (float& x : w) x /= sum;
    return w;
}

// ---- Smooth edge band -------------------------------------------------------------------
// Outside the window by at most one pixel: the nearest edge pixel fades into the destination's
// old value over that pixel. `w` is the share the old value keeps.
template <class M> struct BandTap {
    int c, r;
    M w;
};

template <class M> inline BandTap<M> band_tap(M mx, M my, const Window& win)
{
    bool inX = false, inY = false;
    int c, r;
    M dx = 0, dy = 0;
    if (mx < M(win.x0)) c = win.x0, dx = M(win.x0) - mx;
    else if (mx > M(win.x1)) c = win.x1, dx = mx - M(win.x1);
    else c = static_cast<int>(mx), inX = true;
    if (my < M(win.y0)) r = win.y0, dy = M(win.y0) - my;
    else if (my > M(win.y1)) r = win.y1, dy = my - M(win.y1);
    else r = static_cast<int>(my), inY = true;
    const M w = inX ? dy : inY ? dx : (dy - 1) * (1 - dx) + 1;
    return {c, r, w};
}

}  // namespace keli::remap
