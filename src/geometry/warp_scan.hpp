// Scan conversion of a convex quadrangle into one pixel interval per destination row.
//
// The quadrangle is trimmed against the destination rectangle one edge after another (left,
// right, top, bottom), vertices a few units in the last place from an edge are put on it, and
// each row from the top vertex down gets the first and last pixel whose centre lies inside.
// Positions within 1e-13 of an integer count as on it, so a corner that the matrix maps to a
// pixel centre up to rounding still covers that pixel.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstddef>
#include <cstring>

namespace keli {
namespace warp {

struct Interval {
    std::int32_t first, last;  // destination columns, inclusive; first > last is an empty row
};

struct RowRange {
    std::int32_t first = -1, last = -2;  // the empty range
    bool empty() const { return first > last; }
    std::int64_t rows() const { return empty() ? 0 : std::int64_t(last) - first + 1; }
};

namespace scan {

struct Point {
    double x, y;
};

// A trimmed convex quadrangle has at most 4 + 4 vertices.
struct Polygon {
    Point p[8];
    int n = 0;
};

inline std::int64_t ordered_bits(double v)
{
    std::int64_t b;
    std::memcpy(&b, &v, sizeof b);
    return b < 0 ? std::int64_t(0x8000000000000000ull) - b : b;  // monotonic in v, -0 and +0 meet
}

// Within three representable doubles of each other.
inline bool ulp_close(double a, double b)
{
    // The difference wraps in unsigned arithmetic: a not-a-number (from a matrix with an infinite
    // coefficient) lies near the ends of the range, where a signed subtraction would overflow.
    const std::uint64_t d = static_cast<std::uint64_t>(ordered_bits(a)) - static_cast<std::uint64_t>(ordered_bits(b));
    return d + 3 <= 6;
}

// One Sutherland-Hodgman step: keeps the side where sign * (coordinate - edge) >= 0. A vertex
// made on the edge gets the edge's coordinate exactly, the other coordinate by interpolation.
inline Polygon trim(const Polygon& in, bool alongX, double edge, double sign)
{
    Polygon out;
    for (int i = 0; i < in.n; ++i) {
        const Point a = in.p[i], b = in.p[(i + 1) % in.n];
        const double ca = alongX ? a.x : a.y, cb = alongX ? b.x : b.y;
        const bool ina = sign * (ca - edge) >= 0, inb = sign * (cb - edge) >= 0;
        if (ina) out.p[out.n++] = a;
        if (ina != inb) {
            const double t = (edge - ca) / (cb - ca);
            Point c;
            if (alongX) c = Point{edge, a.y + (b.y - a.y) * t};
            else c = Point{a.x + (b.x - a.x) * t, edge};
            if (out.n < 8) out.p[out.n++] = c;
        }
    }
    return out;
}

inline Polygon clip(const double quad[8], double right, double bottom)
{
    Polygon p;
    for (int i = 0; i < 4; ++i) p.p[p.n++] = Point{quad[2 * i], quad[2 * i + 1]};
    p = trim(p, true, 0, 1);
    p = trim(p, true, right, -1);
    p = trim(p, false, 0, 1);
    p = trim(p, false, bottom, -1);
    for (int i = 0; i < p.n; ++i) {
        Point& v = p.p[i];
        if (ulp_close(v.x, 0)) v.x = 0;
        if (ulp_close(v.x, right)) v.x = right;
        if (ulp_close(v.y, 0)) v.y = 0;
        if (ulp_close(v.y, bottom)) v.y = bottom;
    }
    Polygon q;  // duplicates dropped, the closing pair too
    for (int i = 0; i < p.n; ++i) {
        const Point v = p.p[i];
        if (q.n > 0 && q.p[q.n - 1].x == v.x && q.p[q.n - 1].y == v.y) continue;
        q.p[q.n++] = v;
    }
    while (q.n > 1 && q.p[0].x == q.p[q.n - 1].x && q.p[0].y == q.p[q.n - 1].y) --q.n;
    return q;
}

// The x where the edge a-b meets row y (a above b), or the endpoint itself on its own row.
inline double edge_x(Point a, Point b, double y)
{
    if (y == a.y) return a.x;
    if (y == b.y) return b.x;
    return a.x + (y - a.y) * (b.x - a.x) / (b.y - a.y);
}

inline std::int32_t first_column(double xl)
{
    double c = std::ceil(xl);
    if (c - xl > 1 - 1e-13) c -= 1;
    return std::int32_t(c);
}

inline std::int32_t last_column(double xr)
{
    double f = std::floor(xr);
    if (xr - f > 1 - 1e-13) f += 1;
    return std::int32_t(f);
}

}  // namespace scan

// The row range of a quadrangle (destination coordinates) inside a dstWidth x dstHeight image;
// empty when they do not meet.
inline RowRange scan_rows(const double quad[8], std::int32_t dstWidth, std::int32_t dstHeight)
{
    const scan::Polygon p = scan::clip(quad, double(dstWidth - 1), double(dstHeight - 1));
    RowRange r;
    if (p.n == 0) return r;
    double lo = p.p[0].y, hi = p.p[0].y;
    for (int i = 1; i < p.n; ++i) {
        lo = std::min(lo, p.p[i].y);
        hi = std::max(hi, p.p[i].y);
    }
    const double first = std::ceil(lo), last = std::floor(hi);
    if (first > last) return r;
    r.first = std::int32_t(first);
    r.last = std::int32_t(last);
    return r;
}

// The intervals of the rows scan_rows gave, one per row from range.first to range.last, stored
// byte-wise (the table may lie at any address). Every edge that spans a row gives a crossing;
// the leftmost and rightmost are the row's ends.
inline void scan_intervals(const double quad[8], std::int32_t dstWidth, std::int32_t dstHeight, RowRange range,
                           void* out)
{
    const scan::Polygon p = scan::clip(quad, double(dstWidth - 1), double(dstHeight - 1));
    for (std::int32_t y = range.first; y <= range.last; ++y) {
        const double fy = double(y);
        double xl = INFINITY, xr = -INFINITY;
        for (int i = 0; i < p.n; ++i) {
            scan::Point a = p.p[i], b = p.p[(i + 1) % p.n];
            if (a.y > b.y) std::swap(a, b);
            if (fy < a.y || fy > b.y) continue;
            if (a.y == b.y) {
                xl = std::min({xl, a.x, b.x});
                xr = std::max({xr, a.x, b.x});
                continue;
            }
            const double x = scan::edge_x(a, b, fy);
            xl = std::min(xl, x);
            xr = std::max(xr, x);
        }
        Interval iv{1, 0};
        if (xl <= xr) iv = Interval{std::max(scan::first_column(xl), 0), std::min(scan::last_column(xr), dstWidth - 1)};
        std::memcpy(static_cast<unsigned char*>(out) + std::size_t(y - range.first) * sizeof iv, &iv, sizeof iv);
    }
}

}  // namespace warp
}  // namespace keli
