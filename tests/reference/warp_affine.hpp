// Plain model of the affine warp: the destination-to-source matrix, the row intervals of a
// mapped rectangle (each row crossed with the unclipped quadrangle's edges), the spec sizes,
// and every destination pixel by its rule, one at a time in double and float scalars.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <vector>

#include "keli_types.h"

namespace reference {

struct WarpRow {
    int first = 1, last = 0;  // no pixel unless first <= last
    bool crossed = false;     // the row meets the quadrangle inside the columns, pixel or not
};

struct WarpGeometry {
    double toSource[6];
    double toDest[6];
};

inline bool warp_invert(const double m[6], double out[6])
{
    const double d = m[0] * m[4] - m[1] * m[3];
    if (std::fabs(d) < 2.220446049250313e-16) return false;
    out[0] = m[4] / d;
    out[1] = -m[1] / d;
    out[2] = (m[1] * m[5] - m[4] * m[2]) / d;
    out[3] = -m[3] / d;
    out[4] = m[0] / d;
    out[5] = (m[3] * m[2] - m[0] * m[5]) / d;
    return true;
}

inline WarpGeometry warp_geometry(const double coeffs[6], int direction)
{
    WarpGeometry g{};
    if (direction == 0) {
        std::copy(coeffs, coeffs + 6, g.toDest);
        warp_invert(coeffs, g.toSource);
    } else {
        std::copy(coeffs, coeffs + 6, g.toSource);
        warp_invert(coeffs, g.toDest);
    }
    return g;
}

// The rows of [x0, x1] x [y0, y1] (source) mapped into a dw x dh destination.
inline std::vector<WarpRow> warp_rows(const double toDest[6], double x0, double y0, double x1, double y1, int dw,
                                      int dh)
{
    double q[4][2];
    const double cs[4][2] = {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}};
    for (int i = 0; i < 4; ++i) {
        q[i][0] = toDest[0] * cs[i][0] + toDest[1] * cs[i][1] + toDest[2];
        q[i][1] = toDest[3] * cs[i][0] + toDest[4] * cs[i][1] + toDest[5];
    }
    std::vector<WarpRow> rows(dh);
    for (int y = 0; y < dh; ++y) {
        double xl = INFINITY, xr = -INFINITY;
        for (int i = 0; i < 4; ++i) {
            const double* a = q[i];
            const double* b = q[(i + 1) % 4];
            if (a[1] > b[1]) std::swap(a, b);
            if (y < a[1] || y > b[1]) continue;
            double x;
            if (a[1] == b[1]) {
                xl = std::min({xl, a[0], b[0]});
                xr = std::max({xr, a[0], b[0]});
                continue;
            }
            x = y == a[1] ? a[0] : y == b[1] ? b[0] : a[0] + (y - a[1]) * (b[0] - a[0]) / (b[1] - a[1]);
            xl = std::min(xl, x);
            xr = std::max(xr, x);
        }
        if (!(xl <= xr) || xr < 0 || xl > dw - 1) continue;
        rows[y].crossed = true;
        xl = std::max(xl, 0.0);
        xr = std::min(xr, double(dw - 1));
        double f = std::ceil(xl), l = std::floor(xr);
        if (f - xl > 1 - 1e-13) f -= 1;
        if (xr - l > 1 - 1e-13) l += 1;
        rows[y].first = int(f);
        rows[y].last = int(l);
    }
    return rows;
}

// Rows of the conversion minus one: from the first row that crosses to the last; 0 if none.
inline long warp_reach(const std::vector<WarpRow>& rows)
{
    int first = -1, last = -2;
    for (int y = 0; y < int(rows.size()); ++y)
        if (rows[y].crossed) {
            if (first < 0) first = y;
            last = y;
        }
    return first < 0 ? 0 : last - first;
}

template <class T> T warp_saturate(double v)
{
    if constexpr (std::is_floating_point_v<T>) {
        return T(v);
    } else {
        const double r = std::nearbyint(v);
        return T(std::clamp(r, double(std::numeric_limits<T>::min()), double(std::numeric_limits<T>::max())));
    }
}

inline double warp_round_half_up(double v)
{
    const double r = std::nearbyint(v);
    return v - r == 0.5 ? std::nearbyint(v + 0.5) : r;
}

struct WarpCase {
    int sw, sh, dw, dh, channels;
    int kind;  // 1 nearest, 2 linear
    std::uint32_t border;
    double coeffs[6];
    int direction;
    double borderValue[4];
    bool smooth = false;
    double B = 0, C = 0;  // Cubic
};

// Cubic weights of the taps -1, 0, 1, 2 at fraction t, in R, with constants of B and C
// computed in double.
template <class R> void warp_cubic_weights(double B, double C, R t, R w[4])
{
    const R a = std::fabs(t);
    if (a <= R(1e-16)) t = 0;
    const R t2 = a <= R(1e-8) ? R(0) : t * t;
    const R t3 = a <= R(4.6416e-6) ? R(0) : t2 * t;
    w[0] = R(B / 6) - t * R(B / 2 + C) + t2 * R(2 * C + B / 2) + t3 * R(-B / 6 - C);
    w[1] = R(1 - B / 3) + t2 * R(C - 3 + 2 * B) + t3 * R(2 - C - 1.5 * B);
    w[2] = R(B / 6) + t * R(B / 2 + C) - t2 * R(2 * C - 3 + 2.5 * B) - t3 * R(2 - C - 1.5 * B);
    w[3] = t3 * R(B / 6 + C) - t2 * R(C);
}

// The source rectangle of the interval table and of the Const band, by kind and border.
inline void warp_rects(int kind, std::uint32_t border, int sw, int sh, double core[4], bool& hasExt, double ext[4])
{
    const std::uint32_t base = border & 15u;
    const double W = sw, H = sh;
    double c[4] = {0, 0, W - 1, H - 1}, e[4] = {0, 0, 0, 0};
    hasExt = false;
    if (kind != 6) {
        if (border != 0xF0 && base == 6) {
            hasExt = true;
            const double r = kind == 1 ? 0.5 : 1;
            e[0] = -r, e[1] = -r, e[2] = W - 1 + r, e[3] = H - 1 + r;
        }
    } else if (border != 0xF0 && base == 7) {
        c[0] = border & 64 ? 0 : 1, c[1] = border & 16 ? 0 : 1, c[2] = border & 128 ? W - 1 : W - 2;
        c[3] = border & 32 ? H - 1 : H - 2;
    } else if (border != 0xF0) {
        c[0] = 1, c[1] = 1, c[2] = W - 2, c[3] = H - 2;
        if (base == 6) hasExt = true, e[0] = -2, e[1] = -2, e[2] = W + 1, e[3] = H + 1;
    }
    std::copy(c, c + 4, core);
    std::copy(e, e + 4, ext);
}

// The smooth-edge pass over the ROI: for each quadrangle edge and each whole step along its
// longer axis, the pixel just outside the edge (B) blends with the one just inside (A).
template <class T>
void warp_smooth_model(const WarpCase& k, const std::vector<WarpRow>& core, const double cr[4], T* dst, long dstStride,
                       int x0, int y0, int w, int h)
{
    const WarpGeometry g = warp_geometry(k.coeffs, k.direction);
    const double cs[4][2] = {{cr[0], cr[1]}, {cr[2], cr[1]}, {cr[2], cr[3]}, {cr[0], cr[3]}};
    double q[4][2];
    for (int i = 0; i < 4; ++i) {
        q[i][0] = g.toDest[0] * cs[i][0] + g.toDest[1] * cs[i][1] + g.toDest[2];
        q[i][1] = g.toDest[3] * cs[i][0] + g.toDest[4] * cs[i][1] + g.toDest[5];
    }
    const double cx = (q[0][0] + q[1][0] + q[2][0] + q[3][0]) / 4, cy = (q[0][1] + q[1][1] + q[2][1] + q[3][1]) / 4;
    auto held = [&](long x, long y) { return y >= 0 && y < k.dh && x >= core[y].first && x <= core[y].last; };
    auto roi = [&](long x, long y) { return x >= x0 && x < x0 + w && y >= y0 && y < y0 + h; };
    long lastX = -1, lastY = -1;
    for (int e = 0; e < 4; ++e) {
        const double* p = q[e];
        const double* r = q[(e + 1) % 4];
        const int major = std::fabs(r[0] - p[0]) >= std::fabs(r[1] - p[1]) ? 0 : 1, minor = 1 - major;
        if (std::fabs(r[major] - p[major]) < 1e-10) continue;
        const double centre = minor == 1 ? cy : cx;
        for (long u = long(std::ceil(std::min(p[major], r[major]))); u <= long(std::floor(std::max(p[major], r[major]))); ++u) {
            const double v = p[minor] + (u - p[major]) * (r[minor] - p[minor]) / (r[major] - p[major]);
            if (std::floor(v) == v) continue;
            const double a = centre > v ? std::floor(v) + 1 : std::floor(v), b = centre > v ? std::floor(v) : std::floor(v) + 1;
            const long ax = major == 0 ? u : long(a), ay = major == 0 ? long(a) : u;
            const long bx = major == 0 ? u : long(b), by = major == 0 ? long(b) : u;
            if (!roi(ax, ay) || !roi(bx, by) || !held(ax, ay) || held(bx, by) || (bx == lastX && by == lastY)) continue;
            lastX = bx, lastY = by;
            for (int c = 0; c < k.channels; ++c) {
                T& out = dst[(by - y0) * dstStride + (bx - x0) * k.channels + c];
                const double sum = double(out) * std::fabs(v - b) +
                                   double(dst[(ay - y0) * dstStride + (ax - x0) * k.channels + c]) * std::fabs(v - a);
                out = std::is_floating_point_v<T> ? T(sum) : T(std::trunc(sum + 0.5));
            }
        }
    }
}

// The model's result over the ROI (x0, y0, w, h) of dst (element stride dstStride a row), which
// holds the destination's old content. src has srcStride elements a row.
template <class T>
void warp_model(const WarpCase& k, const T* src, long srcStride, T* dst, long dstStride, int x0, int y0, int w, int h)
{
    using R = std::conditional_t<std::is_same_v<T, Kel64f>, double, float>;
    const int C = k.channels;
    const WarpGeometry g = warp_geometry(k.coeffs, k.direction);
    const double* m = g.toSource;
    const std::uint32_t base = k.border & 15u;
    const bool constant = k.border != 0xF0 && base == 6, repl = k.border != 0xF0 && base == 1;
    const bool nearest = k.kind == 1;
    T value[4];
    for (int c = 0; c < C; ++c) value[c] = warp_saturate<T>(k.borderValue[c]);
    auto px = [&](long x, long y, int c) { return R(src[y * srcStride + x * C + c]); };
    auto out = [&](long x, long y) { return dst + (y - y0) * dstStride + (x - x0) * C; };

    // The whole-pixel shift.
    const double* q = k.coeffs;
    if (k.kind != 6 && q[0] == 1 && q[4] == 1 && q[1] == 0 && q[3] == 0 && q[2] == std::nearbyint(q[2]) && q[5] == std::nearbyint(q[5])) {
        const long tx = long(k.direction == 0 ? q[2] : -q[2]), ty = long(k.direction == 0 ? q[5] : -q[5]);
        for (long y = y0; y < y0 + h; ++y)
            for (long x = x0; x < x0 + w; ++x) {
                const long sx = x - tx, sy = y - ty;
                const bool inside = sx >= 0 && sx < k.sw && sy >= 0 && sy < k.sh;
                for (int c = 0; c < C; ++c) {
                    if (inside) out(x, y)[c] = src[sy * srcStride + sx * C + c];
                    else if (constant) out(x, y)[c] = value[c];
                    else if (repl)
                        out(x, y)[c] = src[std::clamp(sy, 0L, long(k.sh - 1)) * srcStride +
                                           std::clamp(sx, 0L, long(k.sw - 1)) * C + c];
                }
            }
        return;
    }

    const bool cubic = k.kind == 6;
    double cr[4], er[4];
    bool hasExt;
    warp_rects(k.kind, k.border, k.sw, k.sh, cr, hasExt, er);
    const auto core = warp_rows(g.toDest, cr[0], cr[1], cr[2], cr[3], k.dw, k.dh);
    std::vector<WarpRow> ext(k.dh);
    if (constant) ext = warp_rows(g.toDest, er[0], er[1], er[2], er[3], k.dw, k.dh);
    const double d = g.toDest[1] == 0 && g.toDest[3] == 0 ? std::min(std::fabs(g.toDest[0]), std::fabs(g.toDest[4])) : -1;
    const bool notWide = !std::is_same_v<T, Kel64f>;
    int cx0 = 1 << 30, cx1 = -1, cy0 = 1 << 30, cy1 = -1;  // the covered rectangle
    for (int y = 0; y < k.dh; ++y) {
        if (core[y].crossed) cy0 = std::min(cy0, y), cy1 = std::max(cy1, y);
        if (core[y].first <= core[y].last) cx0 = std::min(cx0, core[y].first), cx1 = std::max(cx1, core[y].last);
    }
    const bool tables = cy1 >= 0 && cx0 <= cx1 &&
                        ((k.kind == 2 && notWide && !std::is_same_v<T, Kel8u> && d >= 0) ||
                         (cubic && notWide && d >= 2.0 / 3.0));
    const bool separable = tables && k.kind == 2;
    const bool cubicTables = tables && cubic && std::min(x0 + w - 1, cx1) - std::max(x0, cx0) + 1 >= 32 &&
                             std::min(y0 + h - 1, cy1) - std::max(y0, cy0) + 1 >= 32;
    auto cubic_tap_index = [&](long v, int len, bool memLow, bool memHigh) {
        return (!memLow && v < 0) ? 0L : (!memHigh && v > len - 1) ? long(len - 1) : v;
    };
    // 16 taps by the pairwise sums: rows by the x weights first.
    auto cubic_out = [&](T* o, const long* xs, const long* ys, const R* wx, const R* wy, const bool* xin, const bool* yin) {
        for (int c = 0; c < C; ++c) {
            R hsum[4];
            for (int r = 0; r < 4; ++r) {
                R p[4];
                for (int q = 0; q < 4; ++q) p[q] = xin[q] && yin[r] ? px(xs[q], ys[r], c) : R(value[c]);
                hsum[r] = (wx[0] * p[0] + wx[1] * p[1]) + (wx[2] * p[2] + wx[3] * p[3]);
            }
            o[c] = warp_saturate<T>((wy[0] * hsum[0] + wy[1] * hsum[1]) + (wy[2] * hsum[2] + wy[3] * hsum[3]));
        }
    };
    const bool in4[4] = {true, true, true, true};
    auto cubic_interval = [&](T* o, double X, double Y) {
        auto fl = [](double v) { return std::nearbyint(v) == v ? v : std::nearbyint(v - 0.5); };
        const double i = std::clamp(fl(X), 0.0, double(k.sw - 2)), j = std::clamp(fl(Y), 0.0, double(k.sh - 2));
        R wx[4], wy[4];
        warp_cubic_weights<R>(k.B, k.C, R(X - i), wx);
        warp_cubic_weights<R>(k.B, k.C, R(Y - j), wy);
        long xs[4], ys[4];
        for (int q = 0; q < 4; ++q) {
            xs[q] = cubic_tap_index(long(i) + q - 1, k.sw, k.border & 64, k.border & 128);
            ys[q] = cubic_tap_index(long(j) + q - 1, k.sh, k.border & 16, k.border & 32);
        }
        cubic_out(o, xs, ys, wx, wy, in4, in4);
    };
    auto cubic_border = [&](T* o, double X, double Y, bool band) {
        long xs[4], ys[4];
        bool xin[4], yin[4];
        R wx[4], wy[4];
        auto axis = [&](double v, int len, long* t, bool* in, R* wt) {
            const double i = band ? std::floor(v) : std::trunc(v);
            warp_cubic_weights<R>(k.B, k.C, band ? R(v - i) : R(std::max(v - i, 0.0)), wt);
            for (int q = 0; q < 4; ++q) {
                const double at = i + q - 1;
                in[q] = !band || (at >= 0 && at <= len - 1);
                t[q] = long(std::clamp(at, 0.0, double(len - 1)));
            }
        };
        axis(X, k.sw, xs, xin, wx);
        axis(Y, k.sh, ys, yin, wy);
        cubic_out(o, xs, ys, wx, wy, xin, yin);
    };
    auto cubic_table = [&](long di, double scale, double shift, double lo, double hi, int len, long& idx, float* wt) {
        double pos = (double(di) - shift) * (1 / scale);
        pos = std::clamp(pos, lo, hi);
        const double whole = std::min(std::trunc(pos), double(len - 2));
        idx = long(whole);
        warp_cubic_weights<float>(double(float(k.B)), double(float(k.C)), float(pos - whole), wt);
    };

    // Bilinear: 8u steps vertically first, the other types horizontally first.
    auto lerp = [](R p00, R p01, R p10, R p11, R fx, R fy) {
        if constexpr (std::is_same_v<T, Kel8u>) {
            const R left = p00 + (p10 - p00) * fy, right = p01 + (p11 - p01) * fy;
            return left + (right - left) * fx;
        } else {
            const R top = p00 + (p01 - p00) * fx;
            return top + ((p10 - top) + (p11 - p10) * fx) * fy;
        }
    };
    // Pixel rules; each takes the position of the pixel.
    auto interval_pixel = [&](T* o, double X, double Y) {
        if (cubic) return cubic_interval(o, X, Y);
        if (nearest) {
            const long ix = long(warp_round_half_up(X)), iy = long(warp_round_half_up(Y));
            for (int c = 0; c < C; ++c) o[c] = src[iy * srcStride + ix * C + c];
            return;
        }
        long ix, iy;
        R fx, fy;
        if constexpr (std::is_same_v<T, Kel8u>) {
            const float xf = float(X), yf = float(Y);
            ix = std::min(long(std::trunc(xf)), long(k.sw - 2));
            iy = std::min(long(std::trunc(yf)), long(k.sh - 2));
            fx = xf - float(ix);
            fy = yf - float(iy);
        } else {
            auto fl = [](double v) { return std::nearbyint(v) == v ? v : std::nearbyint(v - 0.5); };
            double i = std::clamp(fl(X), 0.0, double(k.sw - 1)), j = std::clamp(fl(Y), 0.0, double(k.sh - 1));
            if (i == k.sw - 1) i -= 1;
            if (j == k.sh - 1) j -= 1;
            ix = long(i), iy = long(j);
            fx = R(X - i), fy = R(Y - j);
        }
        for (int c = 0; c < C; ++c) {
            const R p00 = px(ix, iy, c), p01 = px(ix + 1, iy, c), p10 = px(ix, iy + 1, c), p11 = px(ix + 1, iy + 1, c);
            o[c] = warp_saturate<T>(lerp(p00, p01, p10, p11, fx, fy));
        }
    };
    // Border pixels: Repl (truncated index, clamped taps) or the Const band (floored index,
    // the value outside).
    auto border_pixel = [&](T* o, double X, double Y, bool band) {
        if (cubic) return cubic_border(o, X, Y, band);
        if (nearest) {
            const long ix = long(std::clamp(warp_round_half_up(X), 0.0, double(k.sw - 1)));
            const long iy = long(std::clamp(warp_round_half_up(Y), 0.0, double(k.sh - 1)));
            for (int c = 0; c < C; ++c) o[c] = src[iy * srcStride + ix * C + c];
            return;
        }
        auto axis = [&](double v, int len, long& i0, long& i1, bool& in0, bool& in1, R& f) {
            double i;
            if constexpr (std::is_same_v<T, Kel8u>) {
                const float vf = float(v);
                i = band ? std::floor(vf) : std::trunc(vf);
                f = band ? vf - float(i) : std::max(vf - float(i), 0.0f);
            } else {
                i = band ? std::floor(v) : std::trunc(v);
                f = band ? R(v - i) : R(std::max(v - i, 0.0));
            }
            if (band) {
                in0 = i >= 0 && i <= len - 1;
                in1 = i + 1 >= 0 && i + 1 <= len - 1;
                i0 = long(i), i1 = long(i + 1);
            } else {
                in0 = in1 = true;
                i0 = long(std::clamp(i, 0.0, double(len - 1)));
                i1 = long(std::clamp(i + 1, 0.0, double(len - 1)));
            }
        };
        long x0_, x1_, y0_, y1_;
        bool ix0, ix1, iy0, iy1;
        R fx, fy;
        axis(X, k.sw, x0_, x1_, ix0, ix1, fx);
        axis(Y, k.sh, y0_, y1_, iy0, iy1, fy);
        for (int c = 0; c < C; ++c) {
            const R b = R(value[c]);
            const R p00 = ix0 && iy0 ? px(x0_, y0_, c) : b, p01 = ix1 && iy0 ? px(x1_, y0_, c) : b;
            const R p10 = ix0 && iy1 ? px(x0_, y1_, c) : b, p11 = ix1 && iy1 ? px(x1_, y1_, c) : b;
            o[c] = warp_saturate<T>(lerp(p00, p01, p10, p11, fx, fy));
        }
    };
    // The scale-only route: per-axis tables pos = (d - shift) x (1 / scale) clamped to the image.
    auto table = [&](long dIdx, double scale, double shift, int len, long& i, float& f) {
        double pos = (double(dIdx) - shift) * (1 / scale);
        pos = std::clamp(pos, 0.0, double(len - 1));
        i = long(std::trunc(pos));
        f = float(pos - std::trunc(pos));
    };

    if (constant)
        for (long y = y0; y < y0 + h; ++y)
            for (long x = x0; x < x0 + w; ++x)
                for (int c = 0; c < C; ++c) out(x, y)[c] = value[c];
    double rx = m[1] * y0 + m[2], ry = m[4] * y0 + m[5];
    bool wrote = false;
    for (long y = y0; y < y0 + h; ++y, rx += m[1], ry += m[4]) {
        wrote = wrote || std::max<long>(core[y].first, x0) <= std::min<long>(core[y].last, x0 + w - 1);
        if (tables) rx = m[1] * y + m[2], ry = m[4] * y + m[5];  // no accumulation without a turn
        const long a = std::max<long>(core[y].first, x0), b = std::min<long>(core[y].last, x0 + w - 1);
        double X = m[0] * a + rx, Y = m[3] * a + ry;
        for (long x = a; x <= b; ++x, X += m[0], Y += m[3]) {
            if (cubicTables) {
                long xi, yi;
                float wx[4], wy[4];
                cubic_table(x, g.toDest[0], g.toDest[2], std::min(cr[0], cr[2]), std::max(cr[0], cr[2]), k.sw, xi, wx);
                cubic_table(y, g.toDest[4], g.toDest[5], std::min(cr[1], cr[3]), std::max(cr[1], cr[3]), k.sh, yi, wy);
                long xs[4], ys[4];
                for (int q = 0; q < 4; ++q) {
                    xs[q] = cubic_tap_index(xi + q - 1, k.sw, k.border & 64, k.border & 128);
                    ys[q] = cubic_tap_index(yi + q - 1, k.sh, k.border & 16, k.border & 32);
                }
                if constexpr (std::is_same_v<R, float>) cubic_out(out(x, y), xs, ys, wx, wy, in4, in4);
            } else if (separable) {
                long xi, yi;
                float fx, fy;
                table(x, g.toDest[0], g.toDest[2], k.sw, xi, fx);
                table(y, g.toDest[4], g.toDest[5], k.sh, yi, fy);
                const long xj = std::min<long>(xi + 1, k.sw - 1), yj = std::min<long>(yi + 1, k.sh - 1);
                for (int c = 0; c < C; ++c) {
                    const float h0 = float(px(xi, yi, c)) + (float(px(xj, yi, c)) - float(px(xi, yi, c))) * fx;
                    const float h1 = float(px(xi, yj, c)) + (float(px(xj, yj, c)) - float(px(xi, yj, c))) * fx;
                    out(x, y)[c] = warp_saturate<T>(h0 + (h1 - h0) * fy);
                }
            } else {
                interval_pixel(out(x, y), X, Y);
            }
        }
        if (repl) {
            for (long x = x0; x < x0 + w; ++x)
                if (x < a || x > b) border_pixel(out(x, y), m[0] * x + rx, m[3] * x + ry, false);
        } else if (constant) {
            const long ea = std::max<long>(ext[y].first, x0), eb = std::min<long>(ext[y].last, x0 + w - 1);
            // The band left of the interval, then right of it, each stepping from its first pixel.
            auto band = [&](long from, long to) {
                double Xb = m[0] * from + rx, Yb = m[3] * from + ry;
                for (long x = from; x <= to; ++x, Xb += m[0], Yb += m[3]) {
                    if (tables) Xb = m[0] * x + rx, Yb = m[3] * x + ry;
                    border_pixel(out(x, y), Xb, Yb, true);
                }
            };
            if (a <= b) {
                band(ea, std::min(eb, a - 1));
                band(std::max(ea, b + 1), eb);
            } else {
                band(ea, eb);
            }
        }
    }
    if (k.smooth && wrote) warp_smooth_model(k, core, cr, dst, dstStride, x0, y0, w, h);
}

}  // namespace reference
