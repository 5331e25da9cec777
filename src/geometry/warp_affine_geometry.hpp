// Affine geometry shared by the warp's size query, its Init and the exported helpers: the
// singularity test, the inverse, the quadrangle check, rotation matrices, and the helpers that
// go between source rectangles, destination quadrangles and matrices.
//
// A matrix is six f64, row-major: m00 m01 m02 / m10 m11 m12; (x, y) maps to
// (m00 x + m01 y + m02, m10 x + m11 y + m12).
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "keli_types.h"

namespace keli {
namespace warp {

// A matrix is singular when m00 m11 and m01 m10 agree to ten digits; the relative test keeps
// tiny but regular scalings usable, and falls back to an absolute one when m00 m11 vanishes.
inline bool singular(const double m[6])
{
    const double a = m[0] * m[4], b = m[1] * m[3];
    const double d = std::fabs(a) <= 1e-200 ? std::fabs(b) : std::fabs((a - b) / a);
    return d <= 1e-10;
}

inline double determinant(const double m[6]) { return m[0] * m[4] - m[1] * m[3]; }

// The inverse, or false (and nothing written) when the determinant is below one f64 epsilon.
inline bool invert(const double m[6], double inv[6])
{
    const double d = determinant(m);
    if (std::fabs(d) < 2.220446049250313e-16) return false;
    inv[0] = m[4] / d;
    inv[1] = -m[1] / d;
    inv[2] = (m[1] * m[5] - m[4] * m[2]) / d;
    inv[3] = -m[3] / d;
    inv[4] = m[0] / d;
    inv[5] = (m[3] * m[2] - m[0] * m[5]) / d;
    return true;
}

inline void map_point(const double m[6], double x, double y, double& ox, double& oy)
{
    ox = m[0] * x + m[1] * y + m[2];
    oy = m[3] * x + m[4] * y + m[5];
}

// The corners (x0, y0), (x1, y0), (x1, y1), (x0, y1) mapped, in that order.
inline void map_rect(const double m[6], double x0, double y0, double x1, double y1, double q[8])
{
    map_point(m, x0, y0, q[0], q[1]);
    map_point(m, x1, y0, q[2], q[3]);
    map_point(m, x1, y1, q[4], q[5]);
    map_point(m, x0, y1, q[6], q[7]);
}

// The turn of a quadrangle: +1 or -1 when it is convex, 0 when any two consecutive edges are
// parallel (degenerate) or the turns disagree (not convex).
inline int quad_orientation(const double q[8])
{
    int positive = 0, negative = 0;
    for (int i = 0; i < 4; ++i) {
        const int j = (i + 1) & 3, k = (i + 2) & 3;
        const double ex = q[2 * j] - q[2 * i], ey = q[2 * j + 1] - q[2 * i + 1];
        const double fx = q[2 * k] - q[2 * j], fy = q[2 * k + 1] - q[2 * j + 1];
        const double cross = ex * fy - ey * fx;
        if (cross == 0) return 0;
        (cross > 0 ? positive : negative)++;
    }
    return positive == 4 ? 1 : negative == 4 ? -1 : 0;
}

// Angles are brought into [0, 360) by whole turns; the four right angles get exact matrices so
// that quarter turns move pixels without any rounding.
inline double normalised_angle(double angle)
{
    double a = angle - std::trunc(angle * 0.002777777777777778) * 360;
    if (a < 0) a += 360;
    return a;
}

inline void rotation(double a, double& c, double& s)
{
    if (a == 0) { c = 1; s = 0; }
    else if (a == 90) { c = 0; s = 1; }
    else if (a == 180) { c = -1; s = 0; }
    else if (a == 270) { c = 0; s = -1; }
    else {
        const double r = a * 0.017453292519943295;
        c = std::cos(r);
        s = std::sin(r);
    }
}

inline KelStatus rotate_transform(double angle, double xShift, double yShift, double* coeffs)
{
    if (!std::isfinite(angle)) return kelStatusOutOfRange;  // before the pointer: the angle is the argument at fault
    if (!coeffs) return kelStatusNullPtr;
    double c, s;
    rotation(normalised_angle(angle), c, s);
    coeffs[0] = c;
    coeffs[1] = s;
    coeffs[2] = xShift;
    coeffs[3] = -s;
    coeffs[4] = c;
    coeffs[5] = yShift;
    return kelStatusOk;
}

inline KelStatus rotate_shift(double xc, double yc, double angle, double* xShift, double* yShift)
{
    if (!xShift || !yShift) return kelStatusNullPtr;
    const double a = normalised_angle(angle);
    if (a == 0) { *xShift = 0; *yShift = 0; }
    else if (a == 90) { *xShift = xc - yc; *yShift = yc + xc; }
    else if (a == 180) { *xShift = 2 * xc; *yShift = 2 * yc; }
    else if (a == 270) { *xShift = xc + yc; *yShift = yc - xc; }
    else {
        double c, s;
        rotation(a, c, s);
        *xShift = xc - (s * yc + c * xc);
        *yShift = yc - c * yc + s * xc;
    }
    return kelStatusOk;
}

// Relative difference of two products of side lengths; absolute when the first vanishes.
inline double side_mismatch(double u, double v) { return std::fabs(u) > 1e-200 ? std::fabs((u - v) / u) : std::fabs(v); }

template <class Rect>
KelStatus affine_transform(const Rect& r, const double* quad, double* coeffs)
{
    if (!quad || !coeffs) return kelStatusNullPtr;
    if (r.x < 0 || r.y < 0 || r.width < 1 || r.height < 1) return kelStatusBadSize;
    if (quad_orientation(quad) == 0) return kelStatusBadQuad;
    const double p0x = quad[0], p0y = quad[1], p1x = quad[2], p1y = quad[3];
    const double p2x = quad[4], p2y = quad[5], p3x = quad[6], p3y = quad[7];
    const double d1 = side_mismatch((p1y - p0y) * (p3x - p2x), (p3y - p2y) * (p1x - p0x));
    const double d2 = side_mismatch((p0y - p3y) * (p2x - p1x), (p2y - p1y) * (p0x - p3x));
    const KelStatus fit = (d1 > 1e-10 || d2 > 1e-10) ? kelStatusNotParallelogram : kelStatusOk;
    if (r.width == 1 || r.height == 1) return kelStatusRectTooSmall;
    const double dx = double(r.width - 1), dy = double(r.height - 1);
    const double x = double(r.x), y = double(r.y);
    coeffs[0] = (p1x - p0x) / dx;
    coeffs[1] = (p2x - p1x) / dy;
    coeffs[3] = (p1y - p0y) / dx;
    coeffs[4] = (p2y - p1y) / dy;
    coeffs[2] = p0x - x * coeffs[0] - y * coeffs[1];
    coeffs[5] = p0y - x * coeffs[3] - y * coeffs[4];
    return fit;  // a quadrangle that is no parallelogram still gets the matrix of its first three corners
}

template <class Rect>
KelStatus affine_quad(const Rect& r, double* quad, const double* coeffs)
{
    if (!quad || !coeffs) return kelStatusNullPtr;
    const double x0 = double(r.x), y0 = double(r.y);
    map_rect(coeffs, x0, y0, x0 + double(r.width) - 1, y0 + double(r.height) - 1, quad);
    return quad_orientation(quad) == 0 ? kelStatusBadCoeffs : kelStatusOk;  // the corners stand either way
}

template <class Rect>
KelStatus affine_bound(const Rect& r, double* bound, const double* coeffs)
{
    if (!bound || !coeffs) return kelStatusNullPtr;
    double q[8];
    const KelStatus st = affine_quad(r, q, coeffs);
    bound[0] = std::min({q[0], q[2], q[4], q[6]});
    bound[1] = std::min({q[1], q[3], q[5], q[7]});
    bound[2] = std::max({q[0], q[2], q[4], q[6]});
    bound[3] = std::max({q[1], q[3], q[5], q[7]});
    return st;
}

namespace srcroi {

// Doubles far beyond any image are held at +-2^62 before becoming integers.
inline std::int64_t to_int(double v) { return std::int64_t(std::clamp(v, -4.611686018427388e18, 4.611686018427388e18)); }

// Start and length that the bound [lo, hi] needs, with a margin of 1e-7 so that a position a
// rounding error past an integer does not pull in one more pixel.
inline void span(double lo, double hi, std::int64_t& first, std::int64_t& count)
{
    first = to_int(std::floor(lo - 1e-7));
    count = to_int(std::ceil(hi + 1e-7)) - first + 1;
}

// One axis of steps 5 and 6: a window no wider than the 2x2 block's image while the other axis
// is wider is grown to that minimal size, kept inside the source.
inline void widen(std::int64_t& x0, std::int64_t& width, std::int64_t minimal, std::int64_t size)
{
    if (x0 > 0 && x0 < size - minimal) {
        x0 = std::max<std::int64_t>(x0 - (minimal - width), 0);
        width = std::min(minimal, size);
    } else if (x0 >= size - minimal) {
        x0 = size - minimal;
        width = size - x0;
    }
}

}  // namespace srcroi

// The source window that an ROI of the destination reads. Sizes are 64-bit throughout; the
// plain member narrows at the end.
inline KelStatus affine_src_roi(std::int64_t srcW, std::int64_t srcH, const double* coeffs, std::uint32_t direction,
                                std::int64_t ox, std::int64_t oy, std::int64_t w, std::int64_t h, bool plain,
                                std::int64_t out[4])
{
    using namespace srcroi;
    if (!coeffs || !out) return kelStatusNullPtr;
    if (ox < 0 || oy < 0) return kelStatusOutOfRange;
    if (srcW < 1 || srcH < 1 || w < 1 || h < 1) return kelStatusBadSize;
    if (direction > 1) return kelStatusBadDirection;
    if (plain && (w > 0x1FFFFFF || h > 0x1FFFFFF)) return kelStatusSizeOverflow;
    double m[6];
    if (direction == 1) {
        if (std::fabs(determinant(coeffs)) < 2.22e-16) return kelStatusBadCoeffs;
        std::copy(coeffs, coeffs + 6, m);
    } else if (std::fabs(determinant(coeffs)) < 2.22e-16 || !invert(coeffs, m)) {
        return kelStatusBadCoeffs;
    }
    double q[8];
    map_rect(m, double(ox), double(oy), double(ox + w - 1), double(oy + h - 1), q);
    std::int64_t x0, width, y0, height;
    span(std::min({q[0], q[2], q[4], q[6]}), std::max({q[0], q[2], q[4], q[6]}), x0, width);
    span(std::min({q[1], q[3], q[5], q[7]}), std::max({q[1], q[3], q[5], q[7]}), y0, height);
    // The clamp of the origin moves the start, not the end: the count is taken from the clamped start.
    if (x0 < 0) { width += x0; x0 = 0; }
    if (y0 < 0) { height += y0; y0 = 0; }
    width = std::min(width, srcW - x0);
    height = std::min(height, srcH - y0);

    double b[8];
    map_rect(m, 0, 0, 1, 1, b);
    std::int64_t bx, minW, by, minH;
    span(std::min({b[0], b[2], b[4], b[6]}), std::max({b[0], b[2], b[4], b[6]}), bx, minW);
    span(std::min({b[1], b[3], b[5], b[7]}), std::max({b[1], b[3], b[5], b[7]}), by, minH);

    if (width < 1) width = minW;
    if (height < 1) height = minH;
    if (x0 + width > srcW) x0 = std::max<std::int64_t>(srcW - width, 0);
    if (y0 + height > srcH) y0 = std::max<std::int64_t>(srcH - height, 0);
    const bool narrow = width <= minW, low = height <= minH;
    if (narrow && !low) widen(x0, width, minW, srcW);
    if (low && !narrow) widen(y0, height, minH, srcH);
    if (x0 + width > srcW || x0 < 0 || y0 + height > srcH || y0 < 0) return kelStatusBadCoeffs;
    out[0] = x0;
    out[1] = y0;
    out[2] = std::min(srcW - x0, width);
    out[3] = std::min(srcH - y0, height);
    return kelStatusOk;
}

inline KelStatus affine_src_roi(KeliSize src, const double* coeffs, std::uint32_t direction, KeliPoint off, KeliSize roi,
                                KeliRect* out)
{
    std::int64_t r[4];
    const KelStatus st = affine_src_roi(src.width, src.height, coeffs, direction, off.x, off.y, roi.width, roi.height,
                                        true, out ? r : nullptr);
    if (st < 0) return st;
    *out = KeliRect{std::int32_t(r[0]), std::int32_t(r[1]), std::int32_t(r[2]), std::int32_t(r[3])};
    return st;
}

inline KelStatus affine_src_roi(KeliSizeL src, const double* coeffs, std::uint32_t direction, KeliPointL off,
                                KeliSizeL roi, KeliRectL* out)
{
    std::int64_t r[4];
    const KelStatus st = affine_src_roi(src.width, src.height, coeffs, direction, off.x, off.y, roi.width, roi.height,
                                        false, out ? r : nullptr);
    if (st < 0) return st;
    *out = KeliRectL{r[0], r[1], r[2], r[3]};
    return st;
}

// The rectangle that stands for "no limit".
inline KeliRect rect_infinite() { return KeliRect{-1073741824, -1073741824, 2147483647, 2147483647}; }

}  // namespace warp
}  // namespace keli
