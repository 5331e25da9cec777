// keliSwapChannels: destination channel i takes what dstOrder[i] names; keliDup: one channel
// copied into every channel of a pixel. Both are byte maps run by the shuffle kernel.
//
// SwapChannels checks, unlike the other copies: pointers, then steps that are exactly zero,
// then the size, then the order table, where the forms differ in whether size or steps come
// first. Negative steps are accepted.
#pragma once

#include <cstdint>

#include "frame/check.hpp"
#include "move/rows/shuffle.hpp"
#include "move/shuffle_image.hpp"

namespace keli {

enum class SwapForm { C3, C4, AC4, C3C4, C4C3 };

namespace swap_detail {

constexpr int in_channels(SwapForm f) { return f == SwapForm::C3 || f == SwapForm::C3C4 ? 3 : 4; }
constexpr int out_channels(SwapForm f) { return f == SwapForm::C3 || f == SwapForm::C4C3 ? 3 : 4; }
constexpr int entries(SwapForm f) { return f == SwapForm::C4 || f == SwapForm::C3C4 ? 4 : 3; }
// The forms whose size check comes before their step check.
constexpr bool size_first(SwapForm f) { return f == SwapForm::C3 || f == SwapForm::C3C4 || f == SwapForm::C4C3; }

template <class... S> inline KelStatus zero_steps(S... step)
{
    return ((step == 0) || ...) ? kelStatusBadStep : kelStatusOk;
}

// Source channels an entry may name. AC4 reads four channels but its alpha is no colour: the
// three colour channels are the only legal sources, as in the three-channel forms.
constexpr int legal_sources(SwapForm f) { return f == SwapForm::AC4 ? 3 : in_channels(f); }

// The table: entries compared unsigned against the legal sources. C3C4 differs: 3 is the
// constant, anything above keeps the destination's channel, and only negative entries are refused.
inline KelStatus order(SwapForm f, const int* dstOrder)
{
    for (int i = 0; i < entries(f); ++i) {
        if (f == SwapForm::C3C4 ? dstOrder[i] < 0
                                : static_cast<unsigned>(dstOrder[i]) >= static_cast<unsigned>(legal_sources(f)))
            return kelStatusBadChannelOrder;
    }
    return kelStatusOk;
}

template <class T> inline rows::PixelMap swap_map(SwapForm f, const int* dstOrder, T val)
{
    int source[4];
    for (int i = 0; i < entries(f); ++i) {
        const int o = dstOrder[i];
        source[i] = f != SwapForm::C3C4 ? o : o < 3 ? o : o == 3 ? rows::kConstByte : rows::kKeepByte;
    }
    if (f == SwapForm::AC4) source[3] = rows::kKeepByte;
    return rows::channel_map<T>(in_channels(f), out_channels(f), source, &val);
}

}  // namespace swap_detail

template <class T, SwapForm F>
KelStatus swap_channels(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, const int* dstOrder,
                        T val = T())
{
    using namespace swap_detail;
    const KelStatus steps = zero_steps(srcStep, dstStep);
    const KelStatus size = check::size(roi);
    if (KelStatus s = check::first({check::pointers(pSrc, pDst, dstOrder), size_first(F) ? size : steps,
                                    size_first(F) ? steps : size, dstOrder ? order(F, dstOrder) : kelStatusOk}))
        return s;
    // The same image on both sides runs in place, rows advancing by the destination step.
    if (static_cast<const void*>(pSrc) == static_cast<const void*>(pDst)) srcStep = dstStep;
    const void* in[] = {pSrc};
    void* out[] = {pDst};
    shuffle_image<in_channels(F), out_channels(F), false, false>(rows::make_plan(swap_map(F, dstOrder, val)), in,
                                                                 srcStep, out, dstStep, roi);
    return kelStatusOk;
}

// In place: C3IR tests its order pointer only after the size.
template <int C> KelStatus swap_channels_inplace(Kel8u* pSrcDst, int srcDstStep, KeliSize roi, const int* dstOrder)
{
    using namespace swap_detail;
    constexpr SwapForm F = C == 3 ? SwapForm::C3 : SwapForm::C4;
    const KelStatus pointers = C == 3 ? check::pointers(pSrcDst) : check::pointers(pSrcDst, dstOrder);
    if (KelStatus s = check::first({pointers, zero_steps(srcDstStep), check::size(roi), check::pointers(dstOrder)}))
        return s;
    if (KelStatus s = order(F, dstOrder)) return s;
    const void* in[] = {pSrcDst};
    void* out[] = {pSrcDst};
    shuffle_image<C, C, false, false>(rows::make_plan(swap_map(F, dstOrder, Kel8u())), in, srcDstStep, out,
                                      srcDstStep, roi);
    return kelStatusOk;
}

template <int C> KelStatus dup_channels(const Kel8u* pSrc, int srcStep, Kel8u* pDst, int dstStep, KeliSize roi)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::size(roi)})) return s;
    const int source[] = {0, 0, 0, 0};
    const void* in[] = {pSrc};
    void* out[] = {pDst};
    shuffle_image<1, C, false, false>(rows::make_plan(rows::channel_map<Kel8u>(1, C, source)), in, srcStep, out,
                                      dstStep, roi);
    return kelStatusOk;
}

}  // namespace keli
