// keliTranspose: rows become columns. `roiSize` is the source's; the destination is `height`
// wide and `width` high.
//
// Checks: pointers, size; the in-place forms also refuse a region that is not square. Steps are
// never checked.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/check.hpp"
#include "frame/layout.hpp"
#include "kelcore.h"
#include "move/rows/mirror.hpp"
#include "move/rows/transpose.hpp"

namespace keli {

namespace transpose_detail {

template <class T> inline const rows::Byte* bytes(const T* p) { return reinterpret_cast<const rows::Byte*>(p); }
template <class T> inline rows::Byte* bytes(T* p) { return reinterpret_cast<rows::Byte*>(p); }

inline void store_plain(rows::Byte* d, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(d), v); }
inline void store_stream(rows::Byte* d, __m128i v) { _mm_stream_si128(reinterpret_cast<__m128i*>(d), v); }

constexpr std::size_t kBlockSide = 512;

// The path for large aligned one-channel images of 8 and 16 bits: blocks of 512 x 512 pixels
// whose destination rows are written with non-temporal stores, every store on a 16-byte
// boundary since the destination and its step are on 64 bytes and blocks start at multiples
// of 16 pixels. The cache query's own status is not looked at: a failed query leaves the size
// at zero and so takes this path, which is right for the sizes that reach it.
template <class T> inline bool takes_blocked_path(const T* src, int srcStep, const T* dst, int dstStep, KeliSize roi)
{
    if (roi.width < 1025 || roi.width % 64 || roi.height % 64 || srcStep % 16 || dstStep % 64) return false;
    if (reinterpret_cast<std::uintptr_t>(src) % 16 || reinterpret_cast<std::uintptr_t>(dst) % 64) return false;
    int cacheBytes = 0;
    (void)kelGetMaxCacheSizeB(&cacheBytes);
    return std::int64_t(roi.width) * roi.height * 2 > cacheBytes;
}

}  // namespace transpose_detail

template <class T>
inline void transpose_blocked(const T* src, int srcStep, T* dst, int dstStep, std::size_t width, std::size_t height)
{
    using namespace transpose_detail;
    constexpr std::size_t P = sizeof(T);
    for (std::size_t by = 0; by < height; by += kBlockSide)
        for (std::size_t bx = 0; bx < width; bx += kBlockSide) {
            const std::size_t w = width - bx < kBlockSide ? width - bx : kBlockSide;
            const std::size_t h = height - by < kBlockSide ? height - by : kBlockSide;
            rows::transpose_region<rows::WholePixel<P>>(bytes(src) + std::ptrdiff_t(by) * srcStep + bx * P, srcStep,
                                                        bytes(dst) + std::ptrdiff_t(bx) * dstStep + by * P, dstStep,
                                                        w, h, store_stream);
        }
    simd::fence();
}

template <class T, Layout L> KelStatus transpose_inplace(T* pSrcDst, int step, KeliSize roi)
{
    if (KelStatus s = check::first({check::pointers(pSrcDst), check::size(roi)})) return s;
    if (roi.width != roi.height) return kelStatusBadSize;
    rows::transpose_square_inplace<channels<L> * sizeof(T)>(transpose_detail::bytes(pSrcDst), step,
                                                             static_cast<std::size_t>(roi.width));
    return kelStatusOk;
}

template <class T, Layout L> KelStatus transpose_image(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi)
{
    // A call onto itself is the in-place transpose, with that form's checks.
    if (pSrc == pDst && srcStep == dstStep) return transpose_inplace<T, L>(pDst, dstStep, roi);
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::size(roi)})) return s;
    constexpr std::size_t P = channels<L> * sizeof(T);
    const auto w = static_cast<std::size_t>(roi.width), h = static_cast<std::size_t>(roi.height);
    if constexpr (L == Layout::C1 && sizeof(T) <= 2) {
        if (transpose_detail::takes_blocked_path(pSrc, srcStep, pDst, dstStep, roi)) {
            transpose_blocked(pSrc, srcStep, pDst, dstStep, w, h);
            return kelStatusOk;
        }
    }
    rows::transpose_region<rows::WholePixel<P>>(transpose_detail::bytes(pSrc), srcStep, transpose_detail::bytes(pDst),
                                                dstStep, w, h, transpose_detail::store_plain);
    return kelStatusOk;
}

}  // namespace keli
