// The affine warp's spec: its fixed record, the tables behind it, and the plan that the size
// query and Init share, so that both always agree on the routes and the sizes.
//
// The spec is used at the address the caller gives, with no alignment step, and its size has
// no slack beyond what the size formulas give: a caller that allocates exactly the size the
// query returned and passes any address must be served. The record therefore holds only
// 8-byte fields at 8-byte offsets from its own start, and the tables behind it need no more.
#pragma once

#include <cstddef>
#include <cstdint>

#include "geometry/warp_scan.hpp"
#include "keli_types.h"

namespace keli {
namespace warp {

constexpr std::uint32_t kAffineId = 0x4B617394u;
constexpr std::uint32_t kAffineIdWide = 0x4B617395u;

constexpr std::uint32_t kInMemAll = 0xF0u;

// The destination rectangle a shifted source covers, and the shift (source to destination).
struct Translation {
    std::int64_t xFirst, yFirst, xLast, yLast;
    double angle;  // 360: no turn
    std::int64_t tx, ty;
};

// Per-axis tables of the scale-only route, over the covered destination rectangle.
struct Separable {
    std::int32_t x0, y0, width, height;  // covered destination rectangle
    std::int32_t xLow, xHigh, yLow, yHigh;  // positions clamped at each end
    std::int32_t* xIndex;
    float* xFraction;
    std::int32_t* yIndex;
    float* yFraction;
    float* xWeights;  // Cubic: four weights a position, taps at index - 1 .. index + 2
    float* yWeights;
};

struct Spec {
    std::uint32_t identifier;
    std::int32_t srcWidth, srcHeight;
    std::int32_t srcRoiX, srcRoiY, srcRoiWidth, srcRoiHeight;
    std::int32_t dstWidth, dstHeight;
    std::uint32_t direction;
    std::uint32_t transformKind;
    std::uint32_t dataType;
    std::uint32_t interpolation;
    double toSource[6];
    std::int32_t extRowFirst, extRowLast;
    std::int32_t rowFirst, rowLast;
    std::uint32_t smoothEdge;
    double cubicB, cubicC;
    std::uint32_t border;
    double borderValue[4];
    std::uint32_t numChannels;
    Interval* extIntervals;
    Interval* intervals;
    std::uint32_t state;
    Separable* separable;
    Translation* translation;
    double quad[8];
    std::uint32_t quadOrientation;
};

// The smallest spec is 360 bytes plus 8 per interval row beyond the first: the record and one
// row must fit in it.
static_assert(sizeof(Spec) + sizeof(Interval) <= 360, "the fixed part outgrew the spec size");
static_assert(sizeof(Spec) + sizeof(Translation) <= 416, "the translation spec outgrew its size");
static_assert(sizeof(Separable) <= 256, "the separable record outgrew its share");

// Everything the size query and Init derive from the arguments.
struct Plan {
    double toSource[6];
    double toDest[6];
    double quad[8];     // the interval rectangle in destination coordinates
    double extQuad[8];  // the extended rectangle, when there is one
    int orientation;
    bool translation;
    std::int64_t tx, ty;
    bool hasExt;
    RowRange core, ext;
    bool separable;
    std::int32_t sepX0, sepY0, sepWidth, sepHeight;
    bool noIntersection;
    std::int64_t specSize, initBufSize;
};

}  // namespace warp
}  // namespace keli
