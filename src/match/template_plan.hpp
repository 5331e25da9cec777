// Template matching: the algType fields, the argument checks and the tile plan that the size
// queries and the work share, so a buffer sized by the query always fits the call.
//
// The plan chooses a power-of-two f32 tile fx x fy. A tile of the source, taken from the output
// position's window origin, is correlated with the template through the real 2-D FFT; the
// (fx - w + 1) x (fy - h + 1) positions whose windows do not wrap around the tile are valid.
// Small images against the template take one tile for the whole image instead.
#pragma once

#include <algorithm>
#include <cstdint>

#include "frame/check.hpp"
#include "frequency/fft_spec.hpp"
#include "keli_types.h"

namespace keli::match {

enum class Measure { CrossCorr, SqrDistance };
enum class Shape { Full = 0, Valid = 1, Same = 2 };
enum class Norm { None = 0, Energy = 1, Centered = 2 };

constexpr int kNormShift = 8, kShapeShift = 16;

struct AlgType {
    Norm norm;
    Shape shape;
};

inline AlgType decode(int algType)
{
    return {static_cast<Norm>((algType >> kNormShift) & 0xFF), static_cast<Shape>((algType >> kShapeShift) & 0xFF)};
}

// The hint byte is kept for the transforms (they ignore it); the shape and normalisation
// fields must name a mode. The squared distance has no centred mode: any of the bits 0xFE00
// set is refused, so only none and 0x100 pass.
inline KelStatus check_alg_type(Measure m, int algType)
{
    const int hint = algType & 0xFF, norm = (algType >> kNormShift) & 0xFF, shape = (algType >> kShapeShift) & 0xFF;
    if (hint > 2 || shape > 2) return kelStatusBadAlgorithm;
    if (m == Measure::CrossCorr ? norm > 2 : (algType & 0xFE00) != 0) return kelStatusBadAlgorithm;
    return kelStatusOk;
}

inline KelStatus check_sizes(KeliSize src, KeliSize tpl)
{
    if (src.width < 1 || src.height < 1 || tpl.width < 1 || tpl.height < 1) return kelStatusBadSize;
    return tpl.width > src.width || tpl.height > src.height ? kelStatusBadSize : kelStatusOk;
}

// The output of a shape: its size and the source position of its first pixel, (-off.x, -off.y).
struct Output {
    std::int64_t width, height;
    int offX, offY;
};

inline Output output_of(Shape shape, KeliSize src, KeliSize tpl)
{
    const std::int64_t W = src.width, H = src.height, w = tpl.width, h = tpl.height;
    switch (shape) {
    case Shape::Full: return {W + w - 1, H + h - 1, tpl.width - 1, tpl.height - 1};
    case Shape::Same: return {W, H, tpl.width >> 1, tpl.height >> 1};
    default: return {W - w + 1, H - h + 1, 0, 0};
    }
}

// The smallest k >= 1 with 2^k >= n.
inline int order_covering(std::int64_t n)
{
    int k = 1;
    while ((std::int64_t(1) << k) < n) ++k;
    return k;
}

// Tile order along one side for a template side t: twice the template, once more while that
// stays below `limit` and the tile stays at most 128, so a tile keeps to the cache.
inline int tile_order(std::int64_t t, std::int64_t limit)
{
    const int k = order_covering(2 * t);
    return (std::int64_t(1) << k) < limit && k < 7 ? k + 1 : k;
}

struct Plan {
    Output out;
    int orderX = 1, orderY = 1;
    std::int64_t posX = 0, posY = 0;  // valid positions of one tile
    bool whole = false;               // one tile for the whole image
    fft::Sizes fft;                   // spec, init, and the work raised for the energy walk
    std::int64_t tileBytes = 0, energyBytes = 0, total = 0;
    std::int64_t fx() const { return std::int64_t(1) << orderX; }
    std::int64_t fy() const { return std::int64_t(1) << orderY; }
};

constexpr std::int64_t kSizeLimit = 0x7FFFFFFF;

// Fills `p`; a transform order past what the FFT accepts ends with its status.
inline KelStatus make_plan(Measure m, KeliSize src, KeliSize tpl, int algType, Plan& p)
{
    const AlgType a = decode(algType);
    const std::int64_t W = src.width, H = src.height, w = tpl.width, h = tpl.height;
    p.out = output_of(a.shape, src, tpl);
    const bool full = a.shape == Shape::Full, valid = a.shape == Shape::Valid;
    const std::int64_t u = full ? W + w - 1 : W, v = full ? H + h - 1 : H;
    if (m == Measure::CrossCorr) {
        if (valid)
            p.whole = W * H <= 8 * w * h;
        else if (full)
            p.whole = u * v <= 8 * w * h;
        else  // the product taken in 32 bits, as the unsigned multiply reads when signed
            p.whole = static_cast<std::int32_t>(static_cast<std::uint32_t>(src.width) * static_cast<std::uint32_t>(src.height)) < 1;
    }
    if (p.whole) {
        const int extra = a.shape == Shape::Same ? 1 : 0;
        p.orderX = order_covering(u) + extra;
        p.orderY = order_covering(v) + extra;
    } else {
        // The limit is the output's extent in every shape: W - w + 1, W or W + w - 1.
        p.orderX = tile_order(w, p.out.width);
        p.orderY = tile_order(h, p.out.height);
    }
    if (p.orderX > fft::kRealMaxOrder || p.orderY > fft::kComplexMaxOrder) return kelStatusBadFftOrder;
    const bool wholeFull = p.whole && full;
    p.posX = wholeFull ? u : p.fx() - w + 1;
    p.posY = wholeFull ? v : p.fy() - h + 1;
    p.fft = fft::real_2d_sizes(p.orderX, p.orderY);
    if (p.fft.spec > kSizeLimit || p.fft.init > kSizeLimit || p.fft.buffer > kSizeLimit) return kelStatusSizeOverflow;
    const bool energy = m == Measure::SqrDistance || a.norm != Norm::None;
    const std::int64_t perColumn = m == Measure::SqrDistance || a.norm == Norm::Energy ? 8
                                   : a.norm == Norm::Centered                        ? 16
                                                                                     : 0;
    p.fft.buffer = std::max(p.fft.buffer, p.posX * perColumn);
    p.tileBytes = (p.fx() * p.fy() * 8 + 126) & ~std::int64_t(127);
    p.energyBytes = energy ? (p.posX * p.posY * 4 + 63) & ~std::int64_t(63) : 0;
    p.total = p.fft.spec + p.fft.init + p.fft.buffer + p.tileBytes + p.energyBytes + 64;
    return kelStatusOk;
}

// The size query: bufferSize null first, then the sizes, then algType. A total past 2^31 - 1
// is still stored (cut to 32 bits) with kelStatusSizeOverflow; a plan the transform refuses
// stores 0.
inline KelStatus buffer_size(Measure m, KeliSize src, KeliSize tpl, int algType, int* pBufferSize)
{
    if (KelStatus s = check::first({check::pointers(pBufferSize), check_sizes(src, tpl), check_alg_type(m, algType)}))
        return s;
    Plan p;
    if (KelStatus s = make_plan(m, src, tpl, algType, p)) {
        *pBufferSize = 0;
        return s;
    }
    *pBufferSize = static_cast<int>(static_cast<std::uint32_t>(p.total));
    return p.total > kSizeLimit ? kelStatusSizeOverflow : kelStatusOk;
}

}  // namespace keli::match
