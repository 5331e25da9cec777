// keliRemap*: each destination pixel from the source position that two maps give.
//
// One body serves all members: the checks in the family's order, the source window trimmed to
// the image and written back, the small-source fallback of the kind, and a walk over the
// destination rows that hands each row to the family's row kernel.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "frame/check.hpp"
#include "frame/fp_guard.hpp"
#include "frame/layout.hpp"
#include "geometry/rows/remap.hpp"

namespace keli {

namespace remap_detail {

using remap::Kind;

constexpr std::uint32_t kSmoothBit = 0x80000000u;

// The kind is the low 31 bits; the smooth bit on top is a flag and never makes a kind invalid.
inline KelStatus kind_check(std::uint32_t interpolation)
{
    switch (interpolation & ~kSmoothBit) {
    case 1: case 2: case 4: case 6: case 16: return kelStatusOk;
    default: return kelStatusBadInterpolation;
    }
}

// A negative window origin is a size error here, like the other extents of the call.
inline KelStatus sizes(KeliSize srcSize, const KeliRect& roi, KeliSize dstSize)
{
    const bool bad = srcSize.width < 1 || srcSize.height < 1 || roi.x < 0 || roi.y < 0 || roi.width < 1 ||
                     roi.height < 1 || dstSize.width < 1 || dstSize.height < 1;
    return bad ? kelStatusBadSize : kelStatusOk;
}

// Small sources lose the wide kernels; the image's size decides, not the window's.
inline Kind fallback(Kind kind, KeliSize src)
{
    const int small = std::min(src.width, src.height);
    if (small == 1) return Kind::Nearest;
    if (small < 4 && (kind == Kind::Lanczos || kind == Kind::Lagrange || kind == Kind::Cubic)) return Kind::Linear;
    if (small < 6 && kind == Kind::Lanczos) return Kind::Lagrange;
    return kind;
}

}  // namespace remap_detail

template <class T, Layout L>
KelStatus remap_image(const T* pSrc, KeliSize srcSize, int srcStep, KeliRect* srcRoi, const remap::MapValue<T>* pxMap,
                      int xMapStep, const remap::MapValue<T>* pyMap, int yMapStep, T* pDst, int dstStep,
                      KeliSize dstRoiSize, Kel32u interpolation)
{
    using namespace remap_detail;
    // The window record is read by the size check, so a null one is caught with the pointers.
    if (KelStatus s = check::pointers(pSrc, pxMap, pyMap, pDst, srcRoi)) return s;
    if (KelStatus s = check::first({sizes(srcSize, *srcRoi, dstRoiSize), kind_check(interpolation),
                                    check::steps(srcStep, dstStep, xMapStep, yMapStep)}))
        return s;
    KeliRect roi = *srcRoi;
    if (roi.x >= srcSize.width || roi.y >= srcSize.height) return kelStatusRoiOutsideSrc;
    roi.width = std::min(roi.width, srcSize.width - roi.x);
    roi.height = std::min(roi.height, srcSize.height - roi.y);
    *srcRoi = roi;

    const Kind kind = fallback(static_cast<Kind>(interpolation & ~kSmoothBit), srcSize);
    const bool smooth = (interpolation & kSmoothBit) != 0;
    const remap::Window window{roi.x, roi.y, roi.x + roi.width - 1, roi.y + roi.height - 1};
    const remap::Source<T, L> source{reinterpret_cast<const std::uint8_t*>(pSrc), srcStep};

    // Fractions and integer results round to nearest even whatever mode the caller left set,
    // and denormal map values stay themselves, so the vector and scalar paths agree.
    FpControlGuard guard;
    guard.set_rounding(0);
    guard.set_flush_to_zero(false);

    // The destination is walked in tiles of sixteen rows by 512 pixels: a rotation or a warp
    // reads a slanted band of the source, and a tile's band stays in the cache for all its rows.
    constexpr int kTileRows = 16, kTileColumns = 512;
    const auto byteRow = [](auto* base, int step, int y) {
        using Byte = std::conditional_t<std::is_const_v<std::remove_pointer_t<decltype(base)>>, const std::uint8_t,
                                        std::uint8_t>;
        return reinterpret_cast<decltype(base)>(reinterpret_cast<Byte*>(base) + static_cast<std::ptrdiff_t>(step) * y);
    };
    for (int y0 = 0; y0 < dstRoiSize.height; y0 += kTileRows) {
        const int y1 = std::min(y0 + kTileRows, dstRoiSize.height);
        for (int x0 = 0; x0 < dstRoiSize.width; x0 += kTileColumns) {
            const int n = std::min(kTileColumns, dstRoiSize.width - x0);
            for (int y = y0; y < y1; ++y)
                remap::rows::remap_row(kind, smooth, source, window, byteRow(pxMap, xMapStep, y) + x0,
                                       byteRow(pyMap, yMapStep, y) + x0,
                                       byteRow(pDst, dstStep, y) + static_cast<std::ptrdiff_t>(x0) * remap::kStride<L>, n);
        }
    }
    return kelStatusOk;
}

}  // namespace keli
