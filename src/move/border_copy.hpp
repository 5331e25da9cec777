// keliCopyConstBorder, keliCopyReplicateBorder, keliCopyMirrorBorder, keliCopyWrapBorder.
//
// Checks, in order:
//   (replicate, mirror, wrap) pSrc == pDst: the call is the in-place form with dstStep;
//   pointers; steps below 1; sizes (both sizes positive, top and left not negative, the source
//   inside the destination at its offset); (constant, several channels) pValue.
// The frame may be any number of times wider than the source. Every member, 32-bit or wide,
// runs the one 64-bit body.
#pragma once

#include <cstdint>

#include "frame/check.hpp"
#include "frame/layout.hpp"
#include "keli_types.h"
#include "move/border.hpp"

namespace keli {

namespace border_detail {

inline KeliSizeL widen(KeliSize s) { return KeliSizeL{s.width, s.height}; }

// The source lies inside the destination at (left, top). Written so that no sum overflows.
inline KelStatus sizes(KeliSizeL src, KeliSizeL dst, std::int64_t top, std::int64_t left)
{
    if (src.width < 1 || src.height < 1 || dst.width < 1 || dst.height < 1 || top < 0 || left < 0 ||
        left > dst.width - src.width || top > dst.height - src.height)
        return kelStatusBadSize;
    return kelStatusOk;
}

template <class T, Layout L>
inline void build(border::Kind kind, const T* src, std::int64_t srcStep, KeliSizeL srcRoi, T* dst, std::int64_t dstStep,
                  KeliSizeL dstRoi, std::int64_t top, std::int64_t left, const T* value, bool inPlace)
{
    border::Extender<T, L> e(kind, src, srcStep, srcRoi.width, srcRoi.height, value);
    const std::int64_t rowBytes = dstRoi.width * std::int64_t(channels<L> * sizeof(T));
    if (!inPlace) e.set_streaming(border::stream_window(rowBytes * dstRoi.height, rowBytes));
    e.window(dst, dstStep, -left, -top, dstRoi.width, dstRoi.height, inPlace);
}

// The destination's first pixel of an in-place call: the source sits at (left, top) inside it.
template <class T, Layout L> inline T* frame_origin(T* src, std::int64_t step, std::int64_t top, std::int64_t left)
{
    return reinterpret_cast<T*>(reinterpret_cast<unsigned char*>(src) - top * step -
                                left * std::int64_t(channels<L> * sizeof(T)));
}

}  // namespace border_detail

// Replicate, mirror and wrap, in place: only the frame is written.
template <class T, Layout L, border::Kind K>
KelStatus copy_border_inplace(T* pSrc, std::int64_t step, KeliSizeL srcRoi, KeliSizeL dstRoi, std::int64_t top,
                              std::int64_t left)
{
    if (KelStatus s = check::first({check::pointers(pSrc), check::steps(step),
                                    border_detail::sizes(srcRoi, dstRoi, top, left)}))
        return s;
    border_detail::build<T, L>(K, pSrc, step, srcRoi, border_detail::frame_origin<T, L>(pSrc, step, top, left), step,
                               dstRoi, top, left, nullptr, true);
    return kelStatusOk;
}

template <class T, Layout L, border::Kind K>
KelStatus copy_border(const T* pSrc, std::int64_t srcStep, KeliSizeL srcRoi, T* pDst, std::int64_t dstStep,
                      KeliSizeL dstRoi, std::int64_t top, std::int64_t left)
{
    // The same pointer on both sides names the source inside its destination.
    if (pSrc == pDst) return copy_border_inplace<T, L, K>(pDst, dstStep, srcRoi, dstRoi, top, left);
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::steps(srcStep, dstStep),
                                    border_detail::sizes(srcRoi, dstRoi, top, left)}))
        return s;
    border_detail::build<T, L>(K, pSrc, srcStep, srcRoi, pDst, dstStep, dstRoi, top, left, nullptr, false);
    return kelStatusOk;
}

// The constant frame; pValue holds one element a processed channel. No pSrc == pDst test.
template <class T, Layout L>
KelStatus copy_const_border(const T* pSrc, std::int64_t srcStep, KeliSizeL srcRoi, T* pDst, std::int64_t dstStep,
                            KeliSizeL dstRoi, std::int64_t top, std::int64_t left, const T* pValue)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::steps(srcStep, dstStep),
                                    border_detail::sizes(srcRoi, dstRoi, top, left), check::pointers(pValue)}))
        return s;
    border_detail::build<T, L>(border::Kind::Const, pSrc, srcStep, srcRoi, pDst, dstStep, dstRoi, top, left, pValue,
                               false);
    return kelStatusOk;
}

template <class T, Layout L>
KelStatus copy_const_border_inplace(T* pSrc, std::int64_t step, KeliSizeL srcRoi, KeliSizeL dstRoi, std::int64_t top,
                                    std::int64_t left, const T* pValue)
{
    if (KelStatus s = check::first({check::pointers(pSrc), check::steps(step),
                                    border_detail::sizes(srcRoi, dstRoi, top, left), check::pointers(pValue)}))
        return s;
    border_detail::build<T, L>(border::Kind::Const, pSrc, step, srcRoi,
                               border_detail::frame_origin<T, L>(pSrc, step, top, left), step, dstRoi, top, left,
                               pValue, true);
    return kelStatusOk;
}

}  // namespace keli
