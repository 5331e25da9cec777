// The affine warp's preparation: the size query, Init and the work-buffer query. The sizes are
// those of a plan that Init lays out exactly, so the two can never disagree.
#pragma once

#include <cstdint>
#include <type_traits>

#include "keli_types.h"

namespace keli {
namespace warp {

KelStatus affine_get_size(KeliSize src, KeliSize dst, KelDataType dataType, const double* coeffs, int interpolation,
                          std::uint32_t direction, KeliBorderType border, int* specSize, int* initBufSize);
KelStatus affine_get_size(KeliSizeL src, KeliSizeL dst, KelDataType dataType, const double* coeffs,
                          int interpolation, std::uint32_t direction, KeliBorderType border, KelSizeL* specSize,
                          KelSizeL* initBufSize);

// Everything an Init member passes on; cubicB and cubicC are zero for Nearest and Linear.
struct InitArgs {
    std::int64_t srcWidth, srcHeight, dstWidth, dstHeight;
    KelDataType dataType;
    const double* coeffs;
    std::uint32_t direction;
    int numChannels;
    double cubicB, cubicC;
    std::uint32_t border;  // as the caller passed it: a malformed word is no valid enumerator
    const double* borderValue;
    std::uint32_t smoothEdge;
    KeliWarpSpec* spec;
    int interpolation;
    bool wide;
};

KelStatus affine_init(const InitArgs& a);

// The Nearest and Linear Init members, plain (KeliSize) and wide (KeliSizeL).
template <int Kind, class Size>
KelStatus affine_kind_init(Size src, Size dst, KelDataType dataType, const double* coeffs, std::uint32_t direction,
                           int numChannels, KeliBorderType border, const double* borderValue, std::uint32_t smoothEdge,
                           KeliWarpSpec* spec)
{
    return affine_init(InitArgs{src.width, src.height, dst.width, dst.height, dataType, coeffs, direction, numChannels,
                                0, 0, std::uint32_t(border), borderValue, smoothEdge, spec, Kind, std::is_same_v<Size, KeliSizeL>});
}

// The Cubic Init members. Its tables are computed in place, so the init buffer is not needed.
template <class Size>
KelStatus affine_cubic_init(Size src, Size dst, KelDataType dataType, const double* coeffs, std::uint32_t direction,
                            int numChannels, double b, double c, KeliBorderType border, const double* borderValue,
                            std::uint32_t smoothEdge, KeliWarpSpec* spec, Kel8u*)
{
    return affine_init(InitArgs{src.width, src.height, dst.width, dst.height, dataType, coeffs, direction, numChannels,
                                b, c, std::uint32_t(border), borderValue, smoothEdge, spec, kelCubic, std::is_same_v<Size, KeliSizeL>});
}

KelStatus buffer_size(const KeliWarpSpec* spec, std::int64_t width, std::int64_t height, bool wide,
                      std::int64_t& size);

// The plain member (KeliSize, int) and the wide one (KeliSizeL, KelSizeL).
template <class Size, class Out> KelStatus warp_get_buffer_size(const KeliWarpSpec* spec, Size dst, Out* bufSize)
{
    if (!spec || !bufSize) return kelStatusNullPtr;
    std::int64_t size = 0;
    const KelStatus st = buffer_size(spec, dst.width, dst.height, std::is_same_v<Size, KeliSizeL>, size);
    if (st < 0 || st == kelStatusNoOperation) return st;
    *bufSize = Out(size);
    return st;
}

}  // namespace warp
}  // namespace keli
