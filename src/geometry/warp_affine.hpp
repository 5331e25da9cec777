// keliWarpAffine{Nearest,Linear,Cubic}: the work functions. One body serves all members: the checks in
// the family's order, the whole-pixel shift route, and the row walk that hands each row's
// interval to the row kernels and the rest of the ROI to the border rule.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "frame/fp_guard.hpp"
#include "frame/layout.hpp"
#include "geometry/rows/warp_affine.hpp"
#include "geometry/warp_affine_init.hpp"
#include "geometry/warp_affine_spec.hpp"
#include "move/rows/fill.hpp"

namespace keli {
namespace warp {

template <class T> constexpr std::uint32_t data_type_of()
{
    if constexpr (std::is_same_v<T, Kel8u>) return kel8u;
    else if constexpr (std::is_same_v<T, Kel16u>) return kel16u;
    else if constexpr (std::is_same_v<T, Kel16s>) return kel16s;
    else if constexpr (std::is_same_v<T, Kel32f>) return kel32f;
    else return kel64f;
}

// The border value as the element type holds it: to nearest even and saturated.
template <class T> T border_element(double v)
{
    if constexpr (std::is_floating_point_v<T>) {
        return T(v);
    } else {
        if (std::isnan(v)) return T(0);
        const double r = std::nearbyint(v);
        return T(std::clamp(r, double(std::numeric_limits<T>::min()), double(std::numeric_limits<T>::max())));
    }
}

inline Interval load_interval(const Interval* table, std::int64_t i)
{
    Interval v;
    std::memcpy(&v, reinterpret_cast<const unsigned char*>(table) + i * std::int64_t(sizeof v), sizeof v);
    return v;
}

// One run of the ROI: destination rows y0..y1, columns x0..x1 (inclusive, destination coordinates).
template <class T, int C> struct Job {
    Source<T> src;
    unsigned char* dst;  // the ROI's first pixel
    std::int64_t dstStep;
    std::int64_t x0, y0, x1, y1;
    T value[4];
    T* at(std::int64_t x, std::int64_t y) const
    {
        return reinterpret_cast<T*>(dst + (y - y0) * dstStep) + (x - x0) * C;
    }
};

// Pixels x0..x1 of row y set to the border value, whose pattern p was made once per call.
template <class T, int C>
void fill_span(const Job<T, C>& j, const rows::FillPattern& p, std::int64_t x0, std::int64_t x1, std::int64_t y)
{
    if (x0 > x1) return;
    if constexpr (C * sizeof(T) > 16 && C != 3) {
        // A 32-byte pixel (64f, four channels) repeats beyond the fill's 16-byte pattern.
        for (std::int64_t x = x0; x <= x1; ++x) std::memcpy(j.at(x, y), j.value, sizeof(T) * C);
    } else {
        const std::size_t n = std::size_t((x1 - x0 + 1) * C) * sizeof(T);
        if constexpr (16 % (C * sizeof(T)) == 0) {
            // A pixel that divides 16 bytes: the pattern's 16 bytes are right at any pixel
            // boundary, so a strip of 16 bytes or more takes whole copies of them, the last flush
            // with its end, with none of the general fill's phase arithmetic.
            if (n >= 16) {
                auto* d = reinterpret_cast<unsigned char*>(j.at(x0, y));
                for (std::size_t i = 0; i + 16 < n; i += 16) std::memcpy(d + i, p.bytes, 16);
                std::memcpy(d + n - 16, p.bytes, 16);
                return;
            }
        }
        rows::fill_run(j.at(x0, y), n, p, false);
    }
}

template <class T, int C> void fill_rect(const Job<T, C>& j, std::int64_t x0, std::int64_t y0, std::int64_t x1,
                                         std::int64_t y1)
{
    if (x0 > x1 || y0 > y1) return;
    const rows::FillPattern p = rows::make_fill_pattern(j.value, C);
    for (std::int64_t y = y0; y <= y1; ++y) fill_span(j, p, x0, x1, y);
}

// The whole-pixel shift: a copy where the shifted source lies, the border elsewhere.
template <class T, int C> KelStatus run_translation(const Job<T, C>& j, const Translation& t, std::uint32_t border)
{
    const std::uint32_t base = border & 15u;
    const bool constant = border != kInMemAll && base == kelBorderConst;
    const bool repl = border != kInMemAll && base == kelBorderRepl;
    const std::int64_t cx0 = std::max(j.x0, t.xFirst), cx1 = std::min(j.x1, t.xLast);
    const std::int64_t cy0 = std::max(j.y0, t.yFirst), cy1 = std::min(j.y1, t.yLast);
    const bool meets = cx0 <= cx1 && cy0 <= cy1;
    if (!meets && !constant && !repl) return kelStatusNoIntersection;
    if (constant && meets) {
        // The rows beside the copy: each strip is widened into the copied span to at least 16
        // bytes where the ROI allows, so that a narrow strip costs two wide stores and not a
        // byte loop; the copy, which follows, then overwrites the widened part.
        const rows::FillPattern p = rows::make_fill_pattern(j.value, C);
        constexpr std::int64_t reach = (16 + C * std::int64_t(sizeof(T)) - 1) / (C * std::int64_t(sizeof(T)));
        const std::size_t bytes = std::size_t((cx1 - cx0 + 1) * C) * sizeof(T);
        const unsigned char* from = reinterpret_cast<const unsigned char*>(j.src.row(cy0 - t.ty) + (cx0 - t.tx) * C);
        unsigned char* to = reinterpret_cast<unsigned char*>(j.at(cx0, cy0));
        const std::int64_t srcStep = j.src.step, dstStep = j.dstStep;
        for (std::int64_t y = cy0; y <= cy1; ++y, from += srcStep, to += dstStep) {
            if (j.x0 < cx0) fill_span(j, p, j.x0, std::min(cx1, std::max(cx0 - 1, j.x0 + reach - 1)), y);
            if (cx1 < j.x1) fill_span(j, p, std::max(cx0, std::min(cx1 + 1, j.x1 - reach + 1)), j.x1, y);
            std::memmove(to, from, bytes);
        }
        fill_rect(j, j.x0, j.y0, j.x1, cy0 - 1);
        fill_rect(j, j.x0, cy1 + 1, j.x1, j.y1);
        return kelStatusOk;
    }
    if (meets) {
        const std::size_t bytes = std::size_t((cx1 - cx0 + 1) * C) * sizeof(T);
        for (std::int64_t y = cy0; y <= cy1; ++y)
            std::memmove(j.at(cx0, y), j.src.row(y - t.ty) + (cx0 - t.tx) * C, bytes);
    }
    if (constant) {
        fill_rect(j, j.x0, j.y0, j.x1, j.y1);
    } else if (repl) {
        for (std::int64_t y = j.y0; y <= j.y1; ++y) {
            const T* row = j.src.row(std::clamp<std::int64_t>(y - t.ty, 0, j.src.height - 1));
            for (std::int64_t x = j.x0; x <= j.x1; ++x) {
                if (meets && y >= cy0 && y <= cy1 && x >= cx0 && x <= cx1) continue;
                const T* p = row + std::clamp<std::int64_t>(x - t.tx, 0, j.src.width - 1) * C;
                T* d = j.at(x, y);
                for (int c = 0; c < C; ++c) d[c] = p[c];
            }
        }
    }
    return kelStatusOk;
}

template <class T, int C, int Kind> struct General {
    const Job<T, C>& j;
    const Spec& s;
    const Separable* sep;  // scale-only route, or null
    Separable table;
    CubicRule<Real<T>> rule;
    bool cubicTables;  // Cubic: the ROI covers enough of the table's rectangle to use it

    // One Cubic pixel of the scale-only route: indexes and weights from the tables.
    void cubic_table_pixel(std::int64_t x, std::int64_t y) const
    {
        static const bool kIn[4] = {true, true, true, true};
        std::int32_t xi, yi;
        alignas(16) float wx[4], wy[4];
        std::memcpy(&xi, table.xIndex + (x - table.x0), sizeof xi);
        std::memcpy(&yi, table.yIndex + (y - table.y0), sizeof yi);
        std::memcpy(wx, table.xWeights + 4 * (x - table.x0), sizeof wx);
        std::memcpy(wy, table.yWeights + 4 * (y - table.y0), sizeof wy);
        std::int64_t tx[4], ty[4];
        cubic_taps(xi, j.src.width, s.border & kelBorderInMemLeft, s.border & kelBorderInMemRight, tx);
        cubic_taps(yi, j.src.height, s.border & kelBorderInMemTop, s.border & kelBorderInMemBottom, ty);
        if constexpr (!std::is_same_v<T, Kel64f>) cubic_pixel<T, C>(j.src, j.at(x, y), tx, ty, wx, wy, kIn, kIn, nullptr);
    }

    // Pixels beyond the interval. Repl computes each from its own position m00 x + row start;
    // the Const band steps from its first pixel, except on the scale-only route, where each
    // pixel takes its own position too so that tiles equal the whole run there.
    void border_span(std::int64_t y, std::int64_t a, std::int64_t b, double rx, double ry, bool band) const
    {
        const double* m = s.toSource;
        const bool direct = !band || sep;
        double X = m[0] * double(a) + rx, Y = m[3] * double(a) + ry;
        for (std::int64_t x = a; x <= b; ++x, X += m[0], Y += m[3]) {
            if (direct) X = m[0] * double(x) + rx, Y = m[3] * double(x) + ry;
            if constexpr (Kind == kelNearest) {
                nearest_clamped<T, C>(j.src, j.at(x, y), X, Y);
            } else if constexpr (Kind == kelCubic) {
                cubic_border_pixel<T, C>(j.src, j.at(x, y), X, Y, band, rule, j.value);
            } else if (band) {
                linear_border_pixel<T, C>(j.src, j.at(x, y), const_tap<T>(X, j.src.width),
                                          const_tap<T>(Y, j.src.height), j.value);
            } else {
                linear_border_pixel<T, C>(j.src, j.at(x, y), repl_tap<T>(X, j.src.width),
                                          repl_tap<T>(Y, j.src.height), j.value);
            }
        }
    }

    // One row of the ROI: its interval cut by the ROI (empty when a > b) and its row start.
    struct RowSpan {
        std::int64_t a, b;
        double rx, ry;
    };

    // The table routes: per row, no stepping.
    void table_span(std::int64_t y, std::int64_t a, std::int64_t b) const
    {
        if constexpr (Kind == kelCubic) {
            for (std::int64_t x = a; x <= b; ++x) cubic_table_pixel(x, y);
        } else {
            std::int32_t yi;
            float fy;
            std::memcpy(&yi, table.yIndex + (y - table.y0), sizeof yi);
            std::memcpy(&fy, table.yFraction + (y - table.y0), sizeof fy);
            if constexpr (!std::is_same_v<T, Kel64f>)
                separable_span<T, C>(j.src, j.at(a, y), int(b - a + 1), table.xIndex + (a - table.x0),
                                     table.xFraction + (a - table.x0), yi, fy);
        }
    }

    // The intervals of up to four rows from y on. The stepped kernels walk the rows together,
    // so that the rows' chains of additions overlap.
    void interval_spans(std::int64_t y, int rows, const RowSpan* row) const
    {
        const bool tables = Kind == kelCubic ? cubicTables : sep != nullptr;
        if (tables) {
            for (int r = 0; r < rows; ++r)
                if (row[r].a <= row[r].b) table_span(y + r, row[r].a, row[r].b);
            return;
        }
        const double* m = s.toSource;
        kernel::SpanStart span[4] = {};
        for (int r = 0; r < rows; ++r)
            if (row[r].a <= row[r].b)
                span[r] = kernel::SpanStart{m[0] * double(row[r].a) + row[r].rx, m[3] * double(row[r].a) + row[r].ry,
                                    int(row[r].b - row[r].a + 1)};
        kernel::walk_spans(span, m[0], m[3], [&](int r, int first, int n, const double* xs, const double* ys) {
            T* d = j.at(row[r].a + first, y + r);
            if constexpr (Kind == kelNearest) nearest_chunk<T, C>(j.src, d, n, xs, ys);
            else if constexpr (Kind == kelLinear) linear_chunk<T, C>(j.src, d, n, xs, ys);
            else cubic_chunk<T, C>(j.src, d, n, xs, ys, rule, s.border & kInMemAll);
        });
    }

    // Walks the ROI's rows, four at a time; returns whether any pixel was written.
    bool run() const
    {
        const std::uint32_t base = s.border & 15u;
        const bool constant = s.border != kInMemAll && base == kelBorderConst;
        const bool repl = s.border != kInMemAll && base == kelBorderRepl;
        const double* m = s.toSource;
        // Row starts accumulate from the ROI's first row; a tile at another row reaches its
        // start by other additions, which is why only the special routes promise tile identity.
        double rx = m[1] * double(j.y0) + m[2], ry = m[4] * double(j.y0) + m[5];
        bool wrote = false;
        for (std::int64_t y0 = j.y0; y0 <= j.y1; y0 += 4) {
            const int rows = int(std::min<std::int64_t>(4, j.y1 - y0 + 1));
            RowSpan row[4];
            for (int r = 0; r < rows; ++r, rx += m[1], ry += m[4]) {
                const std::int64_t y = y0 + r;
                // The scale-only route has no turn: its row start is computed afresh, tile or not.
                if (sep) rx = m[1] * double(y) + m[2], ry = m[4] * double(y) + m[5];
                row[r] = RowSpan{1, 0, rx, ry};  // the interval cut by the ROI, empty by default
                if (y >= s.rowFirst && y <= s.rowLast) {
                    const Interval iv = load_interval(s.intervals, y - s.rowFirst);
                    row[r].a = std::max<std::int64_t>(iv.first, j.x0);
                    row[r].b = std::min<std::int64_t>(iv.last, j.x1);
                }
                wrote = wrote || row[r].a <= row[r].b;
            }
            interval_spans(y0, rows, row);
            for (int r = 0; r < rows; ++r) {
                const std::int64_t y = y0 + r, a = row[r].a, b = row[r].b;
                const double rowX = row[r].rx, rowY = row[r].ry;
                if (repl) {
                    if (a <= b) {
                        border_span(y, j.x0, a - 1, rowX, rowY, false);
                        border_span(y, b + 1, j.x1, rowX, rowY, false);
                    } else {
                        border_span(y, j.x0, j.x1, rowX, rowY, false);
                    }
                } else if (constant && y >= s.extRowFirst && y <= s.extRowLast) {
                    const Interval ev = load_interval(s.extIntervals, y - s.extRowFirst);
                    const std::int64_t ea = std::max<std::int64_t>(ev.first, j.x0);
                    const std::int64_t eb = std::min<std::int64_t>(ev.last, j.x1);
                    if (a <= b) {
                        border_span(y, ea, std::min(eb, a - 1), rowX, rowY, true);
                        border_span(y, std::max(ea, b + 1), eb, rowX, rowY, true);
                    } else {
                        border_span(y, ea, eb, rowX, rowY, true);
                    }
                }
            }
        }
        return wrote || constant || repl;  // Const and Repl write every ROI pixel: never a miss
    }
};

// The smooth-edge pass. Each edge of the source's quadrangle is walked along its major axis,
// one pixel a step; where the edge passes between a pixel A that the interval holds and its
// neighbour B across the edge that it does not, B takes A's share: B' wB + A wA, each weight
// the distance from the edge to that pixel's centre, so a neighbour that the edge almost
// reaches becomes almost A. Integer results are truncated after adding 0.5.
template <class T, int C> void smooth_edges(const Job<T, C>& j, const Spec& s)
{
    const double* q = s.quad;
    const double cx = (q[0] + q[2] + q[4] + q[6]) / 4, cy = (q[1] + q[3] + q[5] + q[7]) / 4;
    auto inside = [&](std::int64_t x, std::int64_t y) {
        if (y < s.rowFirst || y > s.rowLast) return false;
        const Interval iv = load_interval(s.intervals, y - s.rowFirst);
        return x >= iv.first && x <= iv.last;
    };
    auto in_roi = [&](std::int64_t x, std::int64_t y) { return x >= j.x0 && x <= j.x1 && y >= j.y0 && y <= j.y1; };
    std::int64_t lastX = -1, lastY = -1;
    for (int e = 0; e < 4; ++e) {
        const double px = q[2 * e], py = q[2 * e + 1], qx = q[(2 * e + 2) & 7], qy = q[(2 * e + 3) & 7];
        const bool alongX = std::fabs(qx - px) >= std::fabs(qy - py);
        // Major axis u, minor axis v: v(u) by linear interpolation along the edge.
        const double u0 = alongX ? px : py, u1 = alongX ? qx : qy, v0 = alongX ? py : px, v1 = alongX ? qy : qx;
        const double centre = alongX ? cy : cx;
        if (std::fabs(u1 - u0) < 1e-10) continue;
        const std::int64_t lo = std::max<std::int64_t>(std::int64_t(std::ceil(std::min(u0, u1))), alongX ? j.x0 : j.y0);
        const std::int64_t hi = std::min<std::int64_t>(std::int64_t(std::floor(std::max(u0, u1))), alongX ? j.x1 : j.y1);
        for (std::int64_t u = lo; u <= hi; ++u) {
            const double v = v0 + (double(u) - u0) * (v1 - v0) / (u1 - u0);
            const double fl = std::floor(v);
            if (fl == v) continue;
            const double a = centre > v ? fl + 1 : fl, b = centre > v ? fl : fl + 1;
            const std::int64_t ax = alongX ? u : std::int64_t(a), ay = alongX ? std::int64_t(a) : u;
            const std::int64_t bx = alongX ? u : std::int64_t(b), by = alongX ? std::int64_t(b) : u;
            if (!in_roi(ax, ay) || !in_roi(bx, by) || !inside(ax, ay) || inside(bx, by)) continue;
            if (bx == lastX && by == lastY) continue;
            lastX = bx, lastY = by;
            const double wA = std::fabs(v - a), wB = std::fabs(v - b);
            const T* pa = j.at(ax, ay);
            T* pb = j.at(bx, by);
            for (int c = 0; c < C; ++c) {
                const double sum = double(pb[c]) * wB + double(pa[c]) * wA;
                if constexpr (std::is_floating_point_v<T>) pb[c] = T(sum);
                else pb[c] = T(std::trunc(sum + 0.5));
            }
        }
    }
}

template <class T, Layout L, int Kind>
KelStatus warp_affine(const T* pSrc, std::int64_t srcStep, T* pDst, std::int64_t dstStep, std::int64_t offX,
                      std::int64_t offY, std::int64_t width, std::int64_t height, const KeliWarpSpec* pSpec,
                      const Kel8u* pBuffer, bool wide)
{
    constexpr int C = int(channels<L>);
    if (!pSrc || !pDst || !pSpec || !pBuffer) return kelStatusNullPtr;
    if (width == 0 || height == 0) return kelStatusNoOperation;
    Spec s;
    std::memcpy(&s, pSpec, sizeof s);  // the caller's address need not suit the record's alignment
    if (s.identifier != (wide ? kAffineIdWide : kAffineId) || s.transformKind != 0 ||
        s.dataType != data_type_of<T>() || s.interpolation != std::uint32_t(Kind) || s.numChannels != std::uint32_t(C))
        return kelStatusSpecMismatch;
    if (width < 1 || height < 1) return kelStatusBadSize;
    if (offX < 0 || offY < 0 || offX >= s.dstWidth || offY >= s.dstHeight) return kelStatusOutOfRange;
    KelStatus status = kelStatusOk;
    if (offX + width > s.dstWidth || offY + height > s.dstHeight) {
        width = std::min<std::int64_t>(width, s.dstWidth - offX);
        height = std::min<std::int64_t>(height, s.dstHeight - offY);
        status = kelStatusRoiTrimmed;
    }
    if (s.state != 0) return KelStatus(s.state);

    FpControlGuard fp;
    fp.set_rounding(0);  // every rounding below is to nearest even, whatever the caller had set

    Job<T, C> j{Source<T>{reinterpret_cast<const unsigned char*>(pSrc), srcStep, s.srcWidth, s.srcHeight},
                reinterpret_cast<unsigned char*>(pDst),  // the ROI's first pixel, as a tile of the destination
                dstStep,
                offX,
                offY,
                offX + width - 1,
                offY + height - 1,
                {}};
    const std::uint32_t base = s.border & 15u;
    const bool constant = s.border != kInMemAll && base == kelBorderConst;
    if (constant)
        for (int c = 0; c < C; ++c) j.value[c] = border_element<T>(s.borderValue[c]);

    if (s.translation) {
        Translation t;
        std::memcpy(&t, s.translation, sizeof t);
        const KelStatus st = run_translation(j, t, s.border);
        return st != kelStatusOk ? st : status;  // a miss outranks the trimmed ROI
    }
    if (Kind == kelCubic) fp.set_flush_to_zero(true);  // denormal products of tiny weights cost much and add nothing
    if (constant) fill_rect(j, j.x0, j.y0, j.x1, j.y1);
    General<T, C, Kind> g{j, s, s.separable, {}, CubicRule<Real<T>>::make(s.cubicB, s.cubicC), false};
    if (s.separable) {
        std::memcpy(&g.table, s.separable, sizeof g.table);
        // The table pass pays off only over a large enough piece of its rectangle; smaller
        // pieces take the general route, tile or whole image alike.
        const std::int64_t w = std::min<std::int64_t>(j.x1, g.table.x0 + g.table.width - 1) - std::max<std::int64_t>(j.x0, g.table.x0) + 1;
        const std::int64_t h = std::min<std::int64_t>(j.y1, g.table.y0 + g.table.height - 1) - std::max<std::int64_t>(j.y0, g.table.y0) + 1;
        g.cubicTables = Kind == kelCubic && w >= 32 && h >= 32;
    }
    const bool wrote = g.run();
    if (s.smoothEdge && wrote) smooth_edges(j, s);
    return wrote ? status : kelStatusNoIntersection;  // nothing written says more than a trimmed ROI
}

template <class T, Layout L, int Kind>
KelStatus warp_affine_image(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliPoint dstRoiOffset,
                            KeliSize dstRoiSize, const KeliWarpSpec* pSpec, Kel8u* pBuffer)
{
    return warp_affine<T, L, Kind>(pSrc, srcStep, pDst, dstStep, dstRoiOffset.x, dstRoiOffset.y, dstRoiSize.width,
                                   dstRoiSize.height, pSpec, pBuffer, false);
}

template <class T, Layout L, int Kind>
KelStatus warp_affine_image(const T* pSrc, std::int64_t srcStep, T* pDst, std::int64_t dstStep,
                            KeliPointL dstRoiOffset, KeliSizeL dstRoiSize, const KeliWarpSpec* pSpec,
                            Kel8u* pBuffer)
{
    return warp_affine<T, L, Kind>(pSrc, srcStep, pDst, dstStep, dstRoiOffset.x, dstRoiOffset.y, dstRoiSize.width,
                                   dstRoiSize.height, pSpec, pBuffer, true);
}

}  // namespace warp
}  // namespace keli
