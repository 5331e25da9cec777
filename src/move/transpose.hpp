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
constexpr std::size_t kTile = 64;

// The path for large aligned one-channel images of 8 and 16 bits: blocks of 512 x 512 pixels
// whose destination rows are written with non-temporal stores, every store on a 16-byte
// boundary since the destination and its step are on 64 bytes and tiles start at multiples
// of 64 pixels. The cache query's own status is not looked at: a failed query leaves the size
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

// Images larger than the caches: 64 x 64 tiles, in blocks of 512 x 512 pixels whose source
// stays in the second-level cache. Each tile is transposed into a buffer in the first-level
// cache, then every destination row of it leaves whole with non-temporal stores, so that no
// cache line is written in pieces from far apart in time. While a tile is worked on, the
// source lines of the next one are asked for, a few per block, so that the memory reads
// overlap the shuffles instead of stalling each block in turn. The rows and columns that whole
// tiles leave go the general way.
template <class T>
inline void transpose_blocked(const T* src, int srcStep, T* dst, int dstStep, std::size_t width, std::size_t height)
{
    using namespace transpose_detail;
    constexpr std::size_t P = sizeof(T);
    constexpr std::size_t K = rows::TransposeBlock<P>::K;
    constexpr std::size_t kRowBytes = kTile * P;
    alignas(64) rows::Byte tile[kTile * kRowBytes];
    const rows::Byte* s = bytes(src);
    rows::Byte* d = bytes(dst);
    const std::size_t fullW = width / kTile * kTile, fullH = height / kTile * kTile;
    for (std::size_t by = 0; by < fullH; by += kBlockSide)
        for (std::size_t bx = 0; bx < fullW; bx += kBlockSide) {
            const std::size_t yEnd = by + kBlockSide < fullH ? by + kBlockSide : fullH;
            const std::size_t xEnd = bx + kBlockSide < fullW ? bx + kBlockSide : fullW;
            for (std::size_t ty = by; ty < yEnd; ty += kTile)
                for (std::size_t tx = bx; tx < xEnd; tx += kTile) {
                    auto ahead = rows::TileLookahead::after(s, srcStep, P, (kTile / K) * (kTile / K), tx, ty, kTile,
                                                            bx, xEnd, yEnd);
                    for (std::size_t y = 0; y < kTile; y += K)
                        for (std::size_t x = 0; x < kTile; x += K) {
                            ahead.next_block();
                            rows::transpose_block<P>(s + std::ptrdiff_t(ty + y) * srcStep + (tx + x) * P, srcStep,
                                                     tile + x * kRowBytes + y * P, kRowBytes, store_plain);
                        }
                    for (std::size_t r = 0; r < kTile; ++r) {
                        rows::Byte* out = d + std::ptrdiff_t(tx + r) * dstStep + ty * P;
                        for (std::size_t b = 0; b < kRowBytes; b += 16)
                            store_stream(out + b, _mm_load_si128(reinterpret_cast<const __m128i*>(tile + r * kRowBytes + b)));
                    }
                }
        }
    simd::fence();
    // The source columns right of the whole tiles, then the rows below them.
    rows::transpose_region<rows::WholePixel<P>>(s + fullW * P, srcStep, d + std::ptrdiff_t(fullW) * dstStep, dstStep,
                                                width - fullW, height, store_plain);
    rows::transpose_region<rows::WholePixel<P>>(s + std::ptrdiff_t(fullH) * srcStep, srcStep, d + fullH * P, dstStep,
                                                fullW, height - fullH, store_plain);
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
