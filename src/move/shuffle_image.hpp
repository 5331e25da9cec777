// The driver of the channel shuffles: walks the rows of one interleaved image or a set of
// planes on each side, or runs the whole region at once when both sides' rows follow each other
// without a gap.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/store_choice.hpp"
#include "keli_types.h"
#include "move/rows/shuffle.hpp"

namespace keli {

// in / out: Cin (or 1) and Cout (or 1) pointers to the first pixel of each plane; all planes of
// one side share that side's step. Non-temporal stores, when asked, end with one store fence.
template <int Cin, int Cout, bool InPlanar, bool OutPlanar>
inline void shuffle_image(const rows::ShufflePlan& plan, const void* const* in, std::int64_t inStep, void* const* out,
                          std::int64_t outStep, KeliSize roi, bool nonTemporal = false)
{
    constexpr int Nin = InPlanar ? Cin : 1;
    constexpr int Nout = OutPlanar ? Cout : 1;
    const rows::Byte* src[Nin];
    rows::Byte* dst[Nout];
    for (int k = 0; k < Nin; ++k) src[k] = static_cast<const rows::Byte*>(in[k]);
    for (int k = 0; k < Nout; ++k) dst[k] = static_cast<rows::Byte*>(out[k]);
    const std::int64_t E = plan.map.elementBytes;
    const std::int64_t inRow = roi.width * (InPlanar ? E : plan.map.in_bytes());
    const std::int64_t outRow = roi.width * (OutPlanar ? E : plan.map.out_bytes());
    std::size_t width = static_cast<std::size_t>(roi.width);
    std::int64_t height = roi.height;
    if (inStep == inRow && outStep == outRow) width *= static_cast<std::size_t>(height), height = 1;
    auto row = nonTemporal ? rows::shuffle_row<Cin, Cout, InPlanar, OutPlanar, true>
                           : rows::shuffle_row<Cin, Cout, InPlanar, OutPlanar, false>;
    for (std::int64_t y = 0; y < height; ++y) {
        row(plan, src, dst, width);
        for (auto& p : src) p += inStep;
        for (auto& p : dst) p += outStep;
    }
    if (nonTemporal) simd::fence();
}

}  // namespace keli
