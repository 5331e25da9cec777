// The affine warp's size query, Init and work-buffer query.
#include "geometry/warp_affine_init.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "geometry/warp_affine_geometry.hpp"
#include "frame/fp_guard.hpp"
#include "geometry/rows/warp_affine.hpp"
#include "geometry/warp_affine_spec.hpp"

namespace keli {
namespace warp {

namespace {

constexpr std::int64_t kLengthLimit = 0x2000000;

bool data_type_ok(std::uint32_t t) { return t == 1 || t == 5 || t == 7 || t == 13 || t == 19; }

// A legal word is the bare in-memory word, or a Repl, Const or Transp base with any in-memory
// flags beside it.
bool border_word_ok(std::uint32_t border)
{
    const std::uint32_t base = border & 15u;
    return border <= 255 && (border == kInMemAll || base == kelBorderRepl || base == kelBorderConst ||
                             base == kelBorderTransp);
}

std::uint32_t base_of(std::uint32_t border) { return border & 15u; }
bool fills(std::uint32_t border) { return base_of(border) == kelBorderConst || base_of(border) == kelBorderRepl; }

struct Rect {
    double x0, y0, x1, y1;
};

// The source rectangle whose image gets the interval table, and the one of the Const band.
void rectangles(int interpolation, std::uint32_t border, double w, double h, Rect& core, bool& hasExt, Rect& ext)
{
    const std::uint32_t base = base_of(border);
    hasExt = false;
    core = Rect{0, 0, w - 1, h - 1};
    if (interpolation != kelCubic) {
        if (base == kelBorderConst) {
            hasExt = true;
            ext = interpolation == kelNearest ? Rect{-0.5, -0.5, w - 0.5, h - 0.5} : Rect{-1, -1, w, h};
        }
        return;
    }
    if (border == kInMemAll) return;
    if (base == kelBorderTransp) {
        // Each side whose pixels beyond the edge are in memory lets the four taps reach there.
        core = Rect{border & kelBorderInMemLeft ? 0.0 : 1.0, border & kelBorderInMemTop ? 0.0 : 1.0,
                    border & kelBorderInMemRight ? w - 1 : w - 2, border & kelBorderInMemBottom ? h - 1 : h - 2};
        hasExt = true;
        ext = Rect{0, 0, w - 1, h - 1};
        return;
    }
    core = Rect{1, 1, w - 2, h - 2};
    if (base == kelBorderConst) {
        hasExt = true;
        ext = Rect{-2, -2, w + 1, h + 1};
    }
}

bool is_integer(double v) { return std::isfinite(v) && std::nearbyint(v) == v; }

std::int64_t floor32(std::int64_t v) { return v & ~std::int64_t(31); }

// Rows minus one of a scan conversion, 0 when it is empty.
std::int64_t reach(const RowRange& r) { return r.empty() ? 0 : std::int64_t(r.last) - r.first; }

// Lays out the plan: routes, row ranges and sizes. quadCheck asks for the test of the whole
// source rectangle's image.
KelStatus make_plan(std::int64_t sw, std::int64_t sh, std::int64_t dw, std::int64_t dh, std::uint32_t dataType,
                    const double* coeffs, int interpolation, std::uint32_t direction, std::uint32_t border,
                    bool quadCheck, Plan& p)
{
    p = Plan{};
    // An inverse that does not exist leaves zeros, which the quadrangle test then refuses.
    if (direction == 0) {
        std::copy(coeffs, coeffs + 6, p.toDest);
        invert(coeffs, p.toSource);
    } else {
        std::copy(coeffs, coeffs + 6, p.toSource);
        invert(coeffs, p.toDest);
    }
    double whole[8];
    map_rect(p.toDest, 0, 0, double(sw - 1), double(sh - 1), whole);
    if (quadCheck && quad_orientation(whole) == 0) return kelStatusBadCoeffs;

    const double* m = coeffs;
    p.translation = m[0] == 1 && m[4] == 1 && m[1] == 0 && m[3] == 0 && is_integer(m[2]) && is_integer(m[5]);
    if (p.translation) {
        p.tx = std::int64_t(direction == 0 ? m[2] : -m[2]);
        p.ty = std::int64_t(direction == 0 ? m[5] : -m[5]);
    }
    if (p.translation && interpolation != kelCubic) {
        const bool misses = p.tx > dw - 1 || p.tx + sw - 1 < 0 || p.ty > dh - 1 || p.ty + sh - 1 < 0;
        p.noIntersection = misses && !fills(border);
        p.specSize = 416;
        p.initBufSize = 64;
        return kelStatusOk;
    }
    p.translation = false;  // Cubic filters even a whole-pixel shift

    Rect core, ext;
    rectangles(interpolation, border, double(sw), double(sh), core, p.hasExt, ext);
    map_rect(p.toDest, core.x0, core.y0, core.x1, core.y1, p.quad);
    p.orientation = quad_orientation(p.quad);
    p.core = scan_rows(p.quad, std::int32_t(dw), std::int32_t(dh));
    if (p.hasExt) {
        map_rect(p.toDest, ext.x0, ext.y0, ext.x1, ext.y1, p.extQuad);
        p.ext = scan_rows(p.extQuad, std::int32_t(dw), std::int32_t(dh));
    }
    p.noIntersection = p.core.empty() && !fills(border);

    std::int64_t size = (interpolation == kelCubic && m[0] == 1 && m[4] == 1 && m[1] == 0 && m[3] == 0 &&
                         is_integer(m[2]) && is_integer(m[5]))
                            ? 440
                            : 360;
    size += 8 * reach(p.core);
    if (p.hasExt) size += 24 + 8 * reach(p.ext);
    std::int64_t initBuf = 64;

    const double* d = p.toDest;
    const bool f64 = dataType == kel64f;
    double threshold = -1;  // no threshold: the route never applies
    if (interpolation == kelLinear && dataType != kel8u && !f64) threshold = 0;
    if (interpolation == kelCubic && !f64) threshold = 2.0 / 3.0;
    if (threshold >= 0 && d[1] == 0 && d[3] == 0 && std::min(std::fabs(d[0]), std::fabs(d[4])) >= threshold &&
        !p.core.empty()) {
        // The image of an axis-aligned rectangle: every row has the interval of the first.
        Interval row;
        scan_intervals(p.quad, std::int32_t(dw), std::int32_t(dh), RowRange{p.core.first, p.core.first}, &row);
        if (row.first <= row.last) {
            p.separable = true;
            p.sepX0 = row.first;
            p.sepY0 = p.core.first;
            p.sepWidth = row.last - row.first + 1;
            p.sepHeight = std::int32_t(p.core.rows());
            const std::int64_t w = p.sepWidth, h = p.sepHeight;
            const std::int64_t s = (floor32(w - 1) + 32) + (floor32(h - 1) + 32);
            if (interpolation == kelLinear) {
                size += 8 * s + 304;
            } else if (!f64) {
                size += ((16 * h + 508) & ~std::int64_t(127)) + ((16 * w + 508) & ~std::int64_t(127)) + 4 * s + 304;
                initBuf = 4 * s + 64;
            }
        }
    }
    p.specSize = size;
    p.initBufSize = initBuf;
    return size > 0x7FFFFFBE ? kelStatusSizeOverflow : kelStatusOk;
}

KelStatus get_size(std::int64_t sw, std::int64_t sh, std::int64_t dw, std::int64_t dh, KelDataType dataType,
                   const double* coeffs, int interpolation, std::uint32_t direction, std::uint32_t border,
                   bool plain, bool outsNull, std::int64_t& specSize, std::int64_t& initBufSize)
{
    if (!border_word_ok(border)) return kelStatusBadBorder;
    if (outsNull || !coeffs) return kelStatusNullPtr;
    if (sw < 1 || sh < 1 || dw < 1 || dh < 1) return kelStatusBadSize;
    if (sw >= kLengthLimit || sh >= kLengthLimit || dw >= kLengthLimit || dh >= kLengthLimit)
        return kelStatusSizeOverflow;
    if (!data_type_ok(std::uint32_t(dataType))) return kelStatusBadDataType;
    if (interpolation != kelNearest && interpolation != kelLinear && interpolation != kelCubic)
        return kelStatusBadInterpolation;
    if (direction > 1) return kelStatusBadDirection;
    if (singular(coeffs)) return kelStatusBadCoeffs;
    if (sw == 1 || sh == 1) return kelStatusBadSize;
    // Cubic reads a rectangle smaller than the image, whose image may well be degenerate: only
    // the all-in-memory border, which reads the whole image, insists on a proper quadrangle.
    const bool quadCheck = interpolation != kelCubic || (border & kInMemAll) == kInMemAll;
    Plan p;
    const KelStatus st = make_plan(sw, sh, dw, dh, std::uint32_t(dataType), coeffs, interpolation, direction, border,
                                   quadCheck, p);
    if (st < 0) return st;
    if (plain && p.specSize > 0x7FFFFFFE) return kelStatusSizeOverflow;
    specSize = p.specSize;
    initBufSize = p.initBufSize;
    return p.translation && p.noIntersection ? kelStatusNoIntersection : kelStatusOk;
}

// Per-axis table of the scale-only route: pos = (d - shift) x (1 / scale), clamped to [0, last].
void axis_table(std::int32_t first, std::int32_t count, double scale, double shift, std::int32_t srcLen,
                std::int32_t* index, float* fraction, std::int32_t& low, std::int32_t& high)
{
    const double inv = 1 / scale;
    low = high = 0;
    for (std::int32_t i = 0; i < count; ++i) {
        double pos = (double(first + i) - shift) * inv;
        if (pos < 0) {
            pos = 0;
            ++low;
        } else if (pos >= double(srcLen - 1)) {
            pos = double(srcLen - 1);
            ++high;
        }
        const double whole = std::trunc(pos);
        const std::int32_t idx = std::int32_t(whole);
        const float f = float(pos - whole);
        std::memcpy(index + i, &idx, sizeof idx);  // the spec may lie at any address
        std::memcpy(fraction + i, &f, sizeof f);
    }
}

// Per-axis Cubic table: pos = (d - shift) x (1 / scale) held to the source span [lo, hi] that
// the covered rectangle maps from, index trunc(pos) at most len - 2, four weights of the rest.
void cubic_table(std::int32_t first, std::int32_t count, double scale, double shift, double lo, double hi,
                 std::int32_t len, const CubicRule<float>& rule, std::int32_t* index, float* weights,
                 std::int32_t& low, std::int32_t& high)
{
    const double inv = 1 / scale;
    low = high = 0;
    for (std::int32_t i = 0; i < count; ++i) {
        double pos = (double(first + i) - shift) * inv;
        if (pos < lo) {
            pos = lo;
            ++low;
        } else if (pos > hi) {
            pos = hi;
            ++high;
        }
        const double whole = std::min(std::trunc(pos), double(len - 2));
        const std::int32_t idx = std::int32_t(whole);
        float w[4];
        rule.weights(float(pos - whole), w);
        std::memcpy(index + i, &idx, sizeof idx);
        std::memcpy(weights + 4 * i, w, sizeof w);
    }
}

// A pointer into the spec at a byte offset, for byte-wise access; offsets advance in eights.
template <class T> T* at(unsigned char* base, std::size_t& offset, std::size_t count)
{
    T* p = reinterpret_cast<T*>(base + offset);
    offset += (count * sizeof(T) + 7) & ~std::size_t(7);
    return p;
}

}  // namespace

KelStatus affine_get_size(KeliSize src, KeliSize dst, KelDataType dataType, const double* coeffs, int interpolation,
                          std::uint32_t direction, KeliBorderType border, int* specSize, int* initBufSize)
{
    std::int64_t s = 0, b = 0;
    const KelStatus st = get_size(src.width, src.height, dst.width, dst.height, dataType, coeffs, interpolation,
                                  direction, std::uint32_t(border), true, !specSize || !initBufSize, s, b);
    if (st < 0) return st;
    *specSize = int(s);
    *initBufSize = int(b);
    return st;
}

KelStatus affine_get_size(KeliSizeL src, KeliSizeL dst, KelDataType dataType, const double* coeffs,
                          int interpolation, std::uint32_t direction, KeliBorderType border, KelSizeL* specSize,
                          KelSizeL* initBufSize)
{
    std::int64_t s = 0, b = 0;
    const KelStatus st = get_size(src.width, src.height, dst.width, dst.height, dataType, coeffs, interpolation,
                                  direction, std::uint32_t(border), false, !specSize || !initBufSize, s, b);
    if (st < 0) return st;
    *specSize = s;
    *initBufSize = b;
    return st;
}

KelStatus affine_init(const InitArgs& a)
{
    const std::uint32_t border = a.border;
    // Only a word above 255 is refused up front; a wrong base kind is refused later, after the
    // matrix, so that a singular matrix is reported whatever the border says.
    if (border > 255) return kelStatusBadBorder;
    if (!a.spec || !a.coeffs) return kelStatusNullPtr;
    if (a.srcWidth < 1 || a.srcHeight < 1 || a.dstWidth < 1 || a.dstHeight < 1) return kelStatusBadSize;
    if (!data_type_ok(std::uint32_t(a.dataType))) return kelStatusBadDataType;
    if (a.direction > 1) return kelStatusBadDirection;
    if (singular(a.coeffs)) return kelStatusBadCoeffs;
    if (!border_word_ok(border)) return kelStatusBadBorder;
    const std::uint32_t base = base_of(border);
    const bool constant = border != kInMemAll && base == kelBorderConst;
    if (constant && !a.borderValue) return kelStatusNullPtr;
    if (a.numChannels != 1 && a.numChannels != 3 && a.numChannels != 4) return kelStatusBadChannelCount;
    if (a.smoothEdge && border != kInMemAll && (base == kelBorderRepl || base == kelBorderConst))
        return kelStatusUnsupportedMode;
    if (a.srcWidth == 1 || a.srcHeight == 1) return kelStatusBadSize;
    if (a.srcWidth >= kLengthLimit || a.srcHeight >= kLengthLimit || a.dstWidth >= kLengthLimit ||
        a.dstHeight >= kLengthLimit)
        return kelStatusSizeOverflow;
    Plan p;
    const KelStatus st = make_plan(a.srcWidth, a.srcHeight, a.dstWidth, a.dstHeight, std::uint32_t(a.dataType),
                                   a.coeffs, a.interpolation, a.direction, border, true, p);
    if (st < 0) return st;

    // The record is built here and copied in byte-wise at the end: the caller's address need
    // not suit its alignment.
    auto* bytes = reinterpret_cast<unsigned char*>(a.spec);
    Spec s{};
    s.identifier = a.wide ? kAffineIdWide : kAffineId;
    s.srcWidth = s.srcRoiWidth = std::int32_t(a.srcWidth);
    s.srcHeight = s.srcRoiHeight = std::int32_t(a.srcHeight);
    s.dstWidth = std::int32_t(a.dstWidth);
    s.dstHeight = std::int32_t(a.dstHeight);
    s.direction = a.direction;
    s.transformKind = 0;
    s.dataType = std::uint32_t(a.dataType);
    s.interpolation = std::uint32_t(a.interpolation);
    std::copy(p.toSource, p.toSource + 6, s.toSource);
    s.smoothEdge = a.smoothEdge ? 1 : 0;
    s.cubicB = a.cubicB;
    s.cubicC = a.cubicC;
    s.border = border;
    if (constant)
        for (int c = 0; c < a.numChannels; ++c) s.borderValue[c] = a.borderValue[c];
    s.numChannels = std::uint32_t(a.numChannels);
    s.state = p.noIntersection ? std::uint32_t(kelStatusNoIntersection) : 0u;
    s.extRowFirst = s.rowFirst = -1;
    s.extRowLast = s.rowLast = -2;

    std::size_t offset = (sizeof(Spec) + 7) & ~std::size_t(7);
    if (p.translation) {
        const Translation t{p.tx, p.ty, p.tx + a.srcWidth - 1, p.ty + a.srcHeight - 1, 360.0, p.tx, p.ty};
        s.translation = at<Translation>(bytes, offset, 1);
        std::memcpy(s.translation, &t, sizeof t);
        std::memcpy(bytes, &s, sizeof s);
        return p.noIntersection ? kelStatusNoIntersection : kelStatusOk;
    }
    if (!p.core.empty()) {
        s.rowFirst = p.core.first;
        s.rowLast = p.core.last;
        s.intervals = at<Interval>(bytes, offset, std::size_t(p.core.rows()));
        scan_intervals(p.quad, s.dstWidth, s.dstHeight, p.core, s.intervals);
    }
    if (p.hasExt && !p.ext.empty()) {
        s.extRowFirst = p.ext.first;
        s.extRowLast = p.ext.last;
        s.extIntervals = at<Interval>(bytes, offset, std::size_t(p.ext.rows()));
        scan_intervals(p.extQuad, s.dstWidth, s.dstHeight, p.ext, s.extIntervals);
    }
    // The scale-only record: its rectangle and index tables; the rest depends on the kind.
    Separable t{p.sepX0, p.sepY0, p.sepWidth, p.sepHeight, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
    if (p.separable) {
        s.separable = at<Separable>(bytes, offset, 1);
        t.xIndex = at<std::int32_t>(bytes, offset, std::size_t(p.sepWidth));
        t.yIndex = at<std::int32_t>(bytes, offset, std::size_t(p.sepHeight));
    }
    if (p.separable && a.interpolation == kelLinear) {
        t.xFraction = at<float>(bytes, offset, std::size_t(p.sepWidth));
        t.yFraction = at<float>(bytes, offset, std::size_t(p.sepHeight));
        axis_table(p.sepX0, p.sepWidth, p.toDest[0], p.toDest[2], s.srcWidth, t.xIndex, t.xFraction, t.xLow, t.xHigh);
        axis_table(p.sepY0, p.sepHeight, p.toDest[4], p.toDest[5], s.srcHeight, t.yIndex, t.yFraction, t.yLow,
                   t.yHigh);
        std::memcpy(s.separable, &t, sizeof t);
    }
    if (p.separable && a.interpolation == kelCubic) {
        // The table pass takes B and C in f32; denormals flush while its weights are made.
        FpControlGuard fp;
        fp.set_flush_to_zero(true);
        const CubicRule<float> rule = CubicRule<float>::make(double(float(a.cubicB)), double(float(a.cubicC)));
        Rect core, ext;
        bool hasExt;
        rectangles(kelCubic, border, double(a.srcWidth), double(a.srcHeight), core, hasExt, ext);
        t.xWeights = at<float>(bytes, offset, 4 * std::size_t(p.sepWidth));
        t.yWeights = at<float>(bytes, offset, 4 * std::size_t(p.sepHeight));
        cubic_table(p.sepX0, p.sepWidth, p.toDest[0], p.toDest[2], std::min(core.x0, core.x1), std::max(core.x0, core.x1),
                    s.srcWidth, rule, t.xIndex, t.xWeights, t.xLow, t.xHigh);
        cubic_table(p.sepY0, p.sepHeight, p.toDest[4], p.toDest[5], std::min(core.y0, core.y1), std::max(core.y0, core.y1),
                    s.srcHeight, rule, t.yIndex, t.yWeights, t.yLow, t.yHigh);
        std::memcpy(s.separable, &t, sizeof t);
    }
    if (a.smoothEdge) {
        std::copy(p.quad, p.quad + 8, s.quad);
        s.quadOrientation = std::uint32_t(p.orientation);
    }
    std::memcpy(bytes, &s, sizeof s);
    return p.noIntersection ? kelStatusNoIntersection : kelStatusOk;
}

KelStatus buffer_size(const KeliWarpSpec* spec, std::int64_t width, std::int64_t height, bool wide,
                      std::int64_t& size)
{
    Spec s;
    std::memcpy(&s, spec, sizeof s);  // the caller's address need not suit the record's alignment
    if (s.identifier != (wide ? kAffineIdWide : kAffineId)) return kelStatusSpecMismatch;
    if (width < 0 || height < 0) return kelStatusBadSize;
    if (width == 0 || height == 0) return kelStatusNoOperation;
    auto a32 = [](std::int64_t v) { return (v + 31) & ~std::int64_t(31); };
    size = 128;
    if (s.separable) {
        const std::int64_t e = s.dataType == kel64f ? 8 : 4;
        const std::int64_t k = s.interpolation == kelCubic ? 4 : s.interpolation == kelLinear ? 2 : 0;
        size = a32(std::int64_t(s.numChannels) * width * e) * k + a32(4 * height) + a32(4 * width) + 128;
    }
    if (!wide && size > 0x7FFFFFFF) return kelStatusSizeOverflow;
    return width > s.dstWidth || height > s.dstHeight ? kelStatusRoiTrimmed : kelStatusOk;
}

}  // namespace warp
}  // namespace keli
