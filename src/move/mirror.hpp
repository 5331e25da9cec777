// keliMirror: an image reversed about an axis, in place or to another image.
//
// Out of place, a call onto itself (same pointer, same step) is the in-place form, with that
// form's checks. Then the pointers. The diagonal axes check the steps, the size and the overlap
// of the two images, in that order, since they read across rows; the other axes check the size
// and then that the axis is one of the five. In place: pointers, size, axis among the first
// three. Steps are never checked by the row-order axes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/check.hpp"
#include "frame/layout.hpp"
#include "frame/store_choice.hpp"
#include "move/rows/copy_ac4.hpp"
#include "move/rows/copy_run.hpp"
#include "move/rows/mirror.hpp"
#include "move/rows/transpose.hpp"

namespace keli {

namespace mirror_detail {

using rows::Byte;

template <class T, Layout L> using Policy = rows::PixelStore<T, channels<L>, has_alpha<L>>;

template <class T> inline const Byte* bytes(const T* p) { return reinterpret_cast<const Byte*>(p); }
template <class T> inline Byte* bytes(T* p) { return reinterpret_cast<Byte*>(p); }

// Whether the row copy of a flip about the horizontal axis streams past the caches. One-channel
// images count the bytes written and decide without asking; four-channel images count both
// directions and ask for the cache size past their gate.
template <Layout L> inline bool stream_rows(std::uint64_t pixelBytes, std::uint64_t pixels)
{
    if constexpr (L == Layout::C1) return pixels * pixelBytes >= 0x200001;
    else if constexpr (L == Layout::C4) return use_nontemporal(2 * pixels * pixelBytes, 0x100000);
    else return false;
}

// Whether two images, each a run of rows, touch: a row of either meets the span of the other,
// a span running from the first byte of the first row to the last byte of the last row.
inline bool images_overlap(const Byte* a, std::int64_t aStep, std::int64_t aRowBytes, std::int64_t aRows,
                           const Byte* b, std::int64_t bStep, std::int64_t bRowBytes, std::int64_t bRows)
{
    const auto start = [](const Byte* p) { return static_cast<std::int64_t>(reinterpret_cast<std::uintptr_t>(p)); };
    auto rows_meet = [&](const Byte* p, std::int64_t step, std::int64_t rowBytes, std::int64_t n, const Byte* q,
                         std::int64_t qStep, std::int64_t qRowBytes, std::int64_t qRows) {
        const std::int64_t lo = start(q), hi = start(q) + (qRows - 1) * qStep + qRowBytes;
        for (std::int64_t y = 0; y < n; ++y) {
            const std::int64_t r = start(p) + y * step;
            if (r < hi && lo < r + rowBytes) return true;
        }
        return false;
    };
    return rows_meet(a, aStep, aRowBytes, aRows, b, bStep, bRowBytes, bRows) ||
           rows_meet(b, bStep, bRowBytes, bRows, a, aStep, aRowBytes, aRows);
}

// In-place flips of a region. A pair of rows mirrored about the middle is handled together;
// the middle row of an odd height is reversed within itself for the flip about both axes.
template <class Pol> inline void flip_inplace(Byte* p, std::int64_t step, std::size_t width, std::int64_t height,
                                              KeliAxis flip)
{
    auto row = [p, step](std::int64_t y) { return p + y * step; };
    if (flip == kelAxisVertical) {
        for (std::int64_t y = 0; y < height; ++y) rows::reverse_pixels_inplace<Pol>(row(y), width);
        return;
    }
    for (std::int64_t y = 0; y < height / 2; ++y) {
        if (flip == kelAxisHorizontal) rows::swap_pixels<Pol>(row(y), row(height - 1 - y), width);
        else rows::reverse_swap_pixels<Pol>(row(y), row(height - 1 - y), width);
    }
    // A single row flipped about both axes is still reversed, so that the in-place result equals
    // the out-of-place one.
    if (flip == kelAxisBoth && height % 2) rows::reverse_pixels_inplace<Pol>(row(height / 2), width);
}

// dst(x, y) = src(y, x), then for the other diagonal the result turned by half a turn:
// dst(x, y) = src(H - 1 - y, W - 1 - x) with W, H the destination's size.
template <class T, Layout L>
inline void flip_diagonal(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, KeliAxis flip)
{
    using Pol = Policy<T, L>;
    rows::transpose_region<Pol>(bytes(pSrc), srcStep, bytes(pDst), dstStep, static_cast<std::size_t>(roi.height),
                                static_cast<std::size_t>(roi.width), Pol::store);
    if (flip == kelAxisDiag135)
        flip_inplace<Pol>(bytes(pDst), dstStep, static_cast<std::size_t>(roi.width), roi.height, kelAxisBoth);
}

}  // namespace mirror_detail

template <class T, Layout L> KelStatus mirror_inplace(T* pSrcDst, int step, KeliSize roi, KeliAxis flip)
{
    // The diagonal axes would need a second image, so in place only the first three exist.
    if (KelStatus s = check::first({check::pointers(pSrcDst), check::size(roi),
                                    static_cast<unsigned>(flip) > 2u ? kelStatusBadAxis : kelStatusOk}))
        return s;
    mirror_detail::flip_inplace<mirror_detail::Policy<T, L>>(mirror_detail::bytes(pSrcDst), step,
                                                             static_cast<std::size_t>(roi.width), roi.height, flip);
    return kelStatusOk;
}

template <class T, Layout L>
KelStatus mirror_image(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, KeliAxis flip)
{
    using namespace mirror_detail;
    using Pol = Policy<T, L>;
    constexpr std::int64_t P = static_cast<std::int64_t>(Pol::pixelBytes);
    if (pSrc == pDst && srcStep == dstStep) return mirror_inplace<T, L>(pDst, dstStep, roi, flip);
    if (KelStatus s = check::pointers(pSrc, pDst)) return s;
    if (flip == kelAxisDiag45 || flip == kelAxisDiag135) {
        // Reading down columns needs whole elements in every row: steps of at least one element
        // and a multiple of its size. The source is roi.height wide and roi.width high.
        const bool stepsUsable = srcStep >= 1 && dstStep >= 1 && srcStep % int(sizeof(T)) == 0 &&
                                 dstStep % int(sizeof(T)) == 0;
        if (!stepsUsable) return kelStatusBadStep;
        if (KelStatus s = check::size(roi)) return s;
        if (images_overlap(bytes(pSrc), srcStep, roi.height * P, roi.width, bytes(pDst), dstStep, roi.width * P,
                           roi.height))
            return kelStatusUnsupportedMode;
        flip_diagonal<T, L>(pSrc, srcStep, pDst, dstStep, roi, flip);
        return kelStatusOk;
    }
    if (KelStatus s = check::first({check::size(roi), static_cast<unsigned>(flip) > 4u ? kelStatusBadAxis : kelStatusOk}))
        return s;
    const auto width = static_cast<std::size_t>(roi.width);
    const std::int64_t height = roi.height;
    const Byte* s = bytes(pSrc);
    Byte* d = bytes(pDst);
    if (flip == kelAxisHorizontal) {
        // The source is read top down and the destination written bottom up: reading runs in
        // the direction the prefetchers (and the copy's own read-ahead) follow, and the stores
        // need no reading ahead when they stream past the caches.
        d += (height - 1) * std::int64_t(dstStep);
        if constexpr (has_alpha<L>) {
            for (std::int64_t y = 0; y < height; ++y, s += srcStep, d -= dstStep)
                rows::copy_ac4_row(reinterpret_cast<const T*>(s), reinterpret_cast<T*>(d), width);
        } else {
            const std::size_t rowBytes = width * std::size_t(P);
            const bool nt = stream_rows<L>(std::uint64_t(P), std::uint64_t(width) * std::uint64_t(height));
            for (std::int64_t y = 0; y < height; ++y, s += srcStep, d -= dstStep) {
                if (nt) rows::copy_bytes_nt(s, d, rowBytes);
                else rows::copy_bytes(s, d, rowBytes);
            }
            if (nt) simd::fence();
        }
        return kelStatusOk;
    }
    // Each row reversed; for both axes read from the last row up, as one walk with a negative step.
    std::int64_t sStep = srcStep;
    if (flip == kelAxisBoth) s += (height - 1) * sStep, sStep = -sStep;
    for (std::int64_t y = 0; y < height; ++y, s += sStep, d += dstStep) rows::reverse_pixels<Pol>(s, d, width);
    return kelStatusOk;
}

}  // namespace keli
