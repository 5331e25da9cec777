// The resize spec: a record at the first 64-byte boundary of the caller's block, followed by the
// position and weight tables of both axes, computed once for the whole image so that any tile
// only selects a slice of them.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>

#include "frame/spec_buffer.hpp"
#include "keli_types.h"

namespace keli::resize {

// Plain specs (32-bit sizes) and wide specs carry different identifiers whatever the element
// type, 64f included: the identifier tells which interface made the spec, the path field tells
// the element arithmetic, and each work function tests both.
constexpr std::uint32_t kPlainId = 0x4B617389u;
constexpr std::uint32_t kWideId = 0x4B61738Cu;

// Arithmetic of the tables: Q14 pairs for 8u, f32 fractions, f64 fractions.
enum Path : std::uint32_t { kFixed = 7, kSingle = 13, kDouble = 19 };
enum Kind : std::uint32_t { kNone = 0, kNearest = 1, kLinear = 2, kCubic = 6, kSuper = 8, kLanczos = 16 };
enum Mode : std::uint32_t { kModeFixed = 1, kModeFloat = 2 };

constexpr int kOne = 16384;                            // 1.0 in Q14
constexpr std::int64_t kWideLengthLimit = 0x2000000;   // wide lengths stay below 2^25
constexpr std::int64_t kPlainSizeLimit = 0x7FFFFFFE;   // the largest size a 32-bit query returns

struct Axis {
    std::uint32_t srcLen, dstLen, srcReduced, dstReduced;
    std::int32_t* index;      // dstLen left taps
    float* coefF32;
    double* coefF64;
    std::uint16_t* coefQ14;   // rows: F; columns: pairs (16384 - F, F)
    void* extra;
    std::uint32_t lowCount, highCount, period;
};

struct Record {
    std::uint32_t id, path, interpolation, lobesX, lobesY, antialiasing;
    std::int32_t borderSize[4];
    Axis rows, columns;
    std::uint32_t mode;
    std::int64_t srcWidth, srcHeight, dstWidth, dstHeight;
    std::uint32_t dataType;
    float b, c;
    void* initBuffer;
    std::uint32_t lobes;
};

// The tables start right behind the fixed part, which keeps them on 64-byte boundaries.
constexpr std::size_t kFixedBytes = 256;
static_assert(sizeof(Record) <= kFixedBytes, "the fixed part outgrew its slot");

inline std::int64_t a32(std::int64_t n) { return (n + 31) & ~std::int64_t{31}; }

inline Record* record(void* spec) { return spec::aligned<Record>(spec); }
inline const Record* record(const void* spec) { return spec::aligned<Record>(spec); }

inline std::uint32_t greatest_common_divisor(std::uint32_t a, std::uint32_t b)
{
    while (b != 0) {
        const std::uint32_t t = a % b;
        a = b;
        b = t;
    }
    return a;
}

// ---- Tables ---------------------------------------------------------------------------------

// Positions on the last bit matter: the tile logic reads the table, so the body and the tail
// keep their different orders of multiplication. The -1e-10 sends a position that falls on an
// integer to the lower pixel, so 2:1 takes pixels 0, 2, 4.
inline void nearest_table(Axis& a)
{
    const double inv = 1.0 / a.dstLen, src = a.srcLen, step = inv * src;
    const std::uint32_t body = a.dstLen & ~3u;
    for (std::uint32_t i = 0; i < body; ++i) a.index[i] = static_cast<std::int32_t>((i + 0.5) * step - 1e-10);
    for (std::uint32_t i = body; i < a.dstLen; ++i) a.index[i] = static_cast<std::int32_t>(((i + 0.5) * src) * inv - 1e-10);
    a.lowCount = a.highCount = 0;
}

// Pixel centres correspond: pos = (i + 0.5) scale - 0.5. The border counts say how many
// positions at each end have a tap outside the source.
inline void linear_table(Axis& a, Path path, bool pairs)
{
    const double scale = static_cast<double>(a.srcReduced) / a.dstReduced;
    const double last = static_cast<double>(a.srcLen) - 1.0;
    std::uint32_t low = 0, high = 0;
    for (std::uint32_t i = 0; i < a.dstLen; ++i) {
        const double pos = (i + 0.5) * scale - 0.5;
        const double whole = std::floor(pos);
        const double f = pos - whole;
        a.index[i] = static_cast<std::int32_t>(whole);
        low += pos < 0.0;
        high += pos >= last;
        if (path == kFixed) {
            const auto F = static_cast<std::uint16_t>(static_cast<std::int32_t>(f * kOne + 1e-7));
            if (pairs) {
                a.coefQ14[2 * i] = static_cast<std::uint16_t>(kOne - F);
                a.coefQ14[2 * i + 1] = F;
            } else {
                a.coefQ14[i] = F;
            }
        } else if (path == kSingle) {
            a.coefF32[i] = static_cast<float>(f);
        } else {
            a.coefF64[i] = f;
        }
    }
    a.lowCount = low;
    a.highCount = high;
}

inline void set_axis(Axis& a, std::int64_t src, std::int64_t dst)
{
    const auto s = static_cast<std::uint32_t>(src), d = static_cast<std::uint32_t>(dst);
    const std::uint32_t g = greatest_common_divisor(s, d);
    a.srcLen = s;
    a.dstLen = d;
    a.srcReduced = s / g;
    a.dstReduced = d / g;
}

// Index tables first (rows, columns), then the coefficients of the path, each table padded to
// 32 entries so that every one starts on a 64-byte boundary.
inline void place_tables(Record& r)
{
    auto* p = reinterpret_cast<unsigned char*>(&r) + kFixedBytes;
    const std::int64_t h = a32(r.dstHeight), w = a32(r.dstWidth);
    r.rows.index = reinterpret_cast<std::int32_t*>(p);
    p += 4 * h;
    r.columns.index = reinterpret_cast<std::int32_t*>(p);
    p += 4 * w;
    if (r.interpolation != kLinear) return;
    if (r.path == kFixed) {
        r.rows.coefQ14 = reinterpret_cast<std::uint16_t*>(p);
        r.columns.coefQ14 = reinterpret_cast<std::uint16_t*>(p + 2 * h);
    } else if (r.path == kSingle) {
        r.rows.coefF32 = reinterpret_cast<float*>(p);
        r.columns.coefF32 = reinterpret_cast<float*>(p + 4 * h);
    } else {
        r.rows.coefF64 = reinterpret_cast<double*>(p);
        r.columns.coefF64 = reinterpret_cast<double*>(p + 8 * h);
    }
}

// Fills a Nearest or Linear spec from scratch; the arguments are checked by the caller.
inline void build(void* spec, std::uint32_t id, std::int64_t sw, std::int64_t sh, std::int64_t dw, std::int64_t dh,
                  Kind kind, Path path, std::uint32_t dataType)
{
    Record* r = record(spec);
    std::memset(static_cast<void*>(r), 0, kFixedBytes);
    r->id = id;
    r->path = path;
    r->interpolation = kind;
    r->lobesX = r->lobesY = kind == kLinear ? 1 : 0;
    for (auto& b : r->borderSize) b = static_cast<std::int32_t>(r->lobesX);
    r->mode = path == kFixed ? kModeFixed : kModeFloat;
    r->srcWidth = sw;
    r->srcHeight = sh;
    r->dstWidth = dw;
    r->dstHeight = dh;
    r->dataType = dataType;
    set_axis(r->rows, sh, dh);
    set_axis(r->columns, sw, dw);
    place_tables(*r);
    if (kind == kNearest) {
        nearest_table(r->rows);
        nearest_table(r->columns);
    } else {
        linear_table(r->rows, path, false);
        linear_table(r->columns, path, true);
    }
}

// ---- Size of the spec -------------------------------------------------------------------------

struct SpecSizes {
    std::int64_t spec, init;
};

// Each kind's spec and init sizes with antialiasing off. is64f picks the double-precision row.
inline SpecSizes plain_sizes(Kind kind, std::int64_t sw, std::int64_t sh, std::int64_t dw, std::int64_t dh, bool is64f)
{
    const std::int64_t S = a32(dw) + a32(dh);
    switch (kind) {
    case kNearest: return {4 * S + 400, 64};
    case kLinear: return is64f ? SpecSizes{12 * S + 384, 64} : SpecSizes{8 * S + 400, 64};
    case kCubic:
        return {((16 * dh + 508) & ~std::int64_t{127}) + ((16 * dw + 508) & ~std::int64_t{127}) + 4 * S + 400, 4 * S + 64};
    case kLanczos:
        return {((24 * dh + 764) & ~std::int64_t{127}) + ((24 * dw + 764) & ~std::int64_t{127}) + 4 * S + 400, 4 * S + 64};
    default: {  // Super: one period of taps per axis, padded by the remainder's extra taps
        const auto period = [](std::int64_t src, std::int64_t dst) {
            const std::int64_t g = greatest_common_divisor(static_cast<std::uint32_t>(src), static_cast<std::uint32_t>(dst));
            const std::int64_t s = src / g, d = dst / g, rem = s % d;
            return (s / d + (rem == 0 ? 0 : rem == 1 ? 1 : 2) + 1) * d;
        };
        const std::int64_t P = period(sw, dw), Q = period(sh, dh);
        return {((4 * Q + 124) & ~std::int64_t{127}) + ((4 * P + 124) & ~std::int64_t{127}) + 4 * (P + Q) + 400, 64};
    }
    }
}

// Antialiasing stretches the kernel by the reduction, so its tables grow with the ratio.
inline SpecSizes antialiasing_sizes(Kind kind, std::int64_t sw, std::int64_t sh, std::int64_t dw, std::int64_t dh, bool is64f)
{
    const std::int64_t S = a32(dw) + a32(dh);
    const double t = kind == kLinear ? 2 : kind == kCubic ? 4 : 6;
    const double sx = static_cast<double>(sw) / dw, sy = static_cast<double>(sh) / dh;
    const auto taps = [t](double s) { return static_cast<std::int64_t>(s > 1.0 ? 2 * std::ceil(t * s) : t); };
    const std::int64_t e = is64f ? 8 : 4;
    std::int64_t spec = a32(e * taps(sx) * dw) + a32(e * taps(sy) * dh) + 4 * S + 400;
    if (kind == kLinear && sx <= 1.0) spec += a32(e * dw);
    return {spec, 8 * S + 64};
}

// The size query's checks after the sizes, the kind and the wide forms' own tests. Lengths
// are already known to be positive.
inline KelStatus kind_sizes(Kind kind, bool antialiasing, std::int64_t sw, std::int64_t sh, std::int64_t dw, std::int64_t dh,
                            bool is64f, SpecSizes& out)
{
    if (kind == kNone) return kelStatusUnsupportedMode;
    if (kind == kLinear && (sw < 2 || sh < 2)) return kelStatusBadSize;
    if ((kind == kCubic || kind == kLanczos) && (sw < 4 || sh < 4)) return kelStatusBadSize;
    if (kind == kSuper && (sw < dw || sh < dh)) return kelStatusBadSize;
    const bool stretched = antialiasing && kind != kNearest && kind != kSuper;
    out = stretched ? antialiasing_sizes(kind, sw, sh, dw, dh, is64f) : plain_sizes(kind, sw, sh, dw, dh, is64f);
    return antialiasing && !stretched ? kelStatusNoAntialiasing : kelStatusOk;
}

inline bool known_kind(std::uint32_t k) { return k == 0 || k == 1 || k == 2 || k == 6 || k == 8 || k == 16; }

inline KelStatus lengths(std::int64_t sw, std::int64_t sh, std::int64_t dw, std::int64_t dh)
{
    if (sw == 0 || sh == 0 || dw == 0 || dh == 0) return kelStatusNoOperation;
    if (sw < 1 || sh < 1 || dw < 1 || dh < 1) return kelStatusBadSize;
    return kelStatusOk;
}

inline bool too_long(std::int64_t sw, std::int64_t sh, std::int64_t dw, std::int64_t dh)
{
    return sw >= kWideLengthLimit || sh >= kWideLengthLimit || dw >= kWideLengthLimit || dh >= kWideLengthLimit;
}

// keliResizeGetSize_T: 8u, 16u, 16s and 32f all size the single-precision tables; 64f knows
// only Linear.
inline KelStatus get_size(KeliSize src, KeliSize dst, Kel32u interpolation, Kel32u antialiasing, bool is64f,
                          int* pSpecSize, int* pInitSize)
{
    if (pSpecSize == nullptr || pInitSize == nullptr) return kelStatusNullPtr;
    if (KelStatus s = lengths(src.width, src.height, dst.width, dst.height)) return s;
    if (!known_kind(interpolation)) return kelStatusBadInterpolation;
    if (is64f && interpolation != kLinear) return kelStatusUnsupportedMode;
    SpecSizes sizes{};
    const KelStatus s = kind_sizes(static_cast<Kind>(interpolation), antialiasing != 0, src.width, src.height, dst.width,
                                   dst.height, is64f, sizes);
    if (s < 0) return s;
    if (sizes.spec > kPlainSizeLimit || sizes.init > kPlainSizeLimit) return kelStatusSizeOverflow;
    *pSpecSize = static_cast<int>(sizes.spec);
    *pInitSize = static_cast<int>(sizes.init);
    return s;
}

inline bool known_type(std::int32_t t) { return t == kel8u || t == kel16u || t == kel16s || t == kel32f || t == kel64f; }

inline KelStatus get_size_wide(KeliSizeL src, KeliSizeL dst, KelDataType dataType, Kel32u interpolation,
                               Kel32u antialiasing, KelSizeL* pSpecSize, KelSizeL* pInitSize)
{
    if (pSpecSize == nullptr || pInitSize == nullptr) return kelStatusNullPtr;
    if (KelStatus s = lengths(src.width, src.height, dst.width, dst.height)) return s;
    if (!known_kind(interpolation)) return kelStatusBadInterpolation;
    // 64f tables exist for Linear only, so any other kind is a type this query cannot size.
    if (!known_type(dataType) || (dataType == kel64f && interpolation != kLinear)) return kelStatusBadDataType;
    if (dataType == kel64f && antialiasing == 1) return kelStatusUnsupportedMode;
    if (too_long(src.width, src.height, dst.width, dst.height)) return kelStatusSizeOverflow;
    SpecSizes sizes{};
    const KelStatus s = kind_sizes(static_cast<Kind>(interpolation), antialiasing != 0, src.width, src.height, dst.width,
                                   dst.height, dataType == kel64f, sizes);
    if (s < 0) return s;
    *pSpecSize = sizes.spec;
    *pInitSize = sizes.init;
    return s;
}

// ---- Init and mode switch ----------------------------------------------------------------------

inline KelStatus init_checks(const void* spec, std::int64_t sw, std::int64_t sh, std::int64_t dw, std::int64_t dh, Kind kind)
{
    if (spec == nullptr) return kelStatusNullPtr;
    if (KelStatus s = lengths(sw, sh, dw, dh)) return s;
    // Two taps need two source pixels; a destination of one pixel is fine.
    if (kind == kLinear && (sw < 2 || sh < 2)) return kelStatusBadSize;
    return kelStatusOk;
}

// Plain Inits: 8u Linear starts in fixed point; the other element types share single-precision
// tables and record the 16-bit type, 64f its own.
inline KelStatus init_plain(KeliSize src, KeliSize dst, KeliResizeSpec* spec, Kind kind, Path path, std::uint32_t dataType)
{
    if (KelStatus s = init_checks(spec, src.width, src.height, dst.width, dst.height, kind)) return s;
    build(spec, kPlainId, src.width, src.height, dst.width, dst.height, kind, path, dataType);
    return kelStatusOk;
}

inline KelStatus init_wide(KeliSizeL src, KeliSizeL dst, KelDataType dataType, KeliResizeSpec* spec, Kind kind)
{
    if (KelStatus s = init_checks(spec, src.width, src.height, dst.width, dst.height, kind)) return s;
    const bool typeOk = dataType == kel8u || dataType == kel16u || dataType == kel16s || dataType == kel32f ||
                        (kind == kLinear && dataType == kel64f);
    if (!typeOk) return kelStatusBadDataType;
    if (too_long(src.width, src.height, dst.width, dst.height)) return kelStatusSizeOverflow;
    const Path path = kind == kNearest ? kSingle : dataType == kel8u ? kFixed : dataType == kel64f ? kDouble : kSingle;
    build(spec, kWideId, src.width, src.height, dst.width, dst.height, kind, path, dataType);
    return kelStatusOk;
}

inline KelStatus init_8u_wide(KeliSizeL src, KeliSizeL dst, Kel32u mode, KeliResizeSpec* spec)
{
    if (KelStatus s = init_checks(spec, src.width, src.height, dst.width, dst.height, kLinear)) return s;
    if (too_long(src.width, src.height, dst.width, dst.height)) return kelStatusSizeOverflow;
    build(spec, kWideId, src.width, src.height, dst.width, dst.height, kLinear, mode == kModeFloat ? kSingle : kFixed, kel8u);
    return kelStatusOk;
}

// Rebuilds the tables of the other 8u arithmetic in place, keeping the identifier and sizes.
// Both table sets fit the Linear spec size, so nothing moves.
inline KelStatus set_mode(int mode, KeliResizeSpec* spec)
{
    if (mode != kModeFixed && mode != kModeFloat) return kelStatusUnsupportedMode;
    if (spec == nullptr) return kelStatusNullPtr;
    const Record* r = record(spec);
    if (r->mode == static_cast<std::uint32_t>(mode)) return kelStatusOk;
    if (r->interpolation != kLinear) return kelStatusUnsupportedMode;
    if (mode == kModeFixed && r->dataType != kel8u) return kelStatusUnsupportedMode;
    build(spec, r->id, r->srcWidth, r->srcHeight, r->dstWidth, r->dstHeight, kLinear,
          mode == kModeFixed ? kFixed : kSingle, r->dataType);
    return kelStatusOk;
}

// ---- Spec tests shared by the queries and the work functions ------------------------------------

enum class Form { Plain, Plain64, Wide };

// Queries: plain forms accept the 8u and single paths (64f: the double path); wide forms test
// only the identifier.
inline bool query_accepts(const Record& r, Form form)
{
    switch (form) {
    case Form::Plain: return r.id == kPlainId && (r.path == kFixed || r.path == kSingle);
    case Form::Plain64: return r.id == kPlainId && r.path == kDouble;
    default: return r.id == kWideId;
    }
}

}  // namespace keli::resize
