// keliFilterMedianBorder and its size query: the median of an odd rectangular window, pixels
// beyond the region given by the replicated or constant border, or read from the caller's memory
// on a flagged side.
//
// The median is element N >> 1 of the window's N elements in ascending order (floats in the key
// order of rows/median.hpp). The method follows the mask: compare networks for 1x3, 1x5, 3x1,
// 5x1, 3x3 and 5x5; a sliding histogram for every other 8u mask; a selection among the window's
// keys for the other 16-bit and 32f masks. All of them give that one element.
//
// The walk keeps a ring of mh rows of the extended image (each row with its left and right
// border, w + mw - 1 pixels), built from the source before the output row that overwrites it is
// written. Every output row is filtered from the ring, so a call in place is the same walk as
// one apart, and gives the same pixels.
//
// Checks, in order: src, dst, buffer null; the region; the mask (not positive or an even side,
// kelStatusBadMaskSize); the border (above 255, or neither 240 nor the replicated or constant
// kind with any flags: kelStatusBadBorder, so the mirrored kind is refused); then a constant
// border with no value, last, so that a call with a bad border and no value reports the border.
// No step is checked.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "filter/box.hpp"
#include "filter/rows/median.hpp"
#include "frame/check.hpp"
#include "frame/layout.hpp"
#include "move/border.hpp"

namespace keli {

namespace median_detail {

constexpr std::int64_t a32(std::int64_t v) { return (v + 31) & ~std::int64_t(31); }
constexpr std::int64_t a64(std::int64_t v) { return (v + 63) & ~std::int64_t(63); }

inline bool is_network(int kw, int kh)
{
    return (kw == 1 && (kh == 3 || kh == 5)) || (kh == 1 && (kw == 3 || kw == 5)) || (kw == kh && (kw == 3 || kw == 5));
}

// The rows of a window held in a ring of kh rows, the window's top row in slot `first`.
template <class T> struct RingRows {
    const unsigned char* ring;
    std::int64_t slotBytes;
    int first, kh;
    const T* operator[](int j) const
    {
        int s = first + j;
        if (s >= kh) s -= kh;
        return reinterpret_cast<const T*>(ring + s * slotBytes);
    }
};

// The rows of a window read straight from the caller's image.
template <class T> struct ImageRows {
    const unsigned char* top;
    std::int64_t step;
    const T* operator[](int j) const { return reinterpret_cast<const T*>(top + j * step); }
};

template <class T, Layout L> constexpr std::int64_t pixel_bytes = std::int64_t(channels<L> * sizeof(T));

template <class T> const unsigned char* bytes(const T* p) { return reinterpret_cast<const unsigned char*>(p); }

// The walk over the ring: slot k holds extended row r with r = k mod kh, its floats turned into
// keys as it is built, so that no window turns them again. A row the border rule
// takes from above the region is built before any output; one taken from below is built after
// output row y only when it lies below y, or is the replicated last row, which is written last.
template <class T, Layout L, class Kernel>
void ring_walk(const T* src, int srcStep, T* dst, int dstStep, KeliSize roi, KeliSize mask, int border, const T* value,
               unsigned char* ring, const Kernel& kernel)
{
    constexpr std::int64_t P = pixel_bytes<T, L>;
    const std::int64_t W = roi.width, H = roi.height, kw = mask.width, kh = mask.height;
    const std::int64_t ax = kw >> 1, ay = kh >> 1, rx = kw - 1 - ax, ry = kh - 1 - ay;
    const bool top = border::in_memory(border, kelBorderInMemTop), bottom = border::in_memory(border, kelBorderInMemBottom);
    const bool left = border::in_memory(border, kelBorderInMemLeft), right = border::in_memory(border, kelBorderInMemRight);
    // The image the border rule extends: the region grown by the window's reach on each flagged side.
    const std::int64_t bx0 = left ? -ax : 0, by0 = top ? -ay : 0;
    const std::int64_t bw = W + (right ? rx : 0) - bx0, bh = H + (bottom ? ry : 0) - by0;
    const bool constant = border::base_kind(border) == kelBorderConst;
    const std::int64_t ww = W + kw - 1, slotBytes = ww * P;
    // The constant pixel: the caller's values hold the processed channels only (three for AC4).
    unsigned char pixel[P] = {};
    if (constant)
        for (std::size_t c = 0; c < (has_alpha<L> ? 3 : channels<L>); ++c) std::memcpy(pixel + c * sizeof(T), value + c, sizeof(T));
    // Extended row r into `to`, byte by byte: the scratch rows need no alignment. The pixels of
    // the grown image are copied in one run; a column beyond it is its nearest edge column
    // (replicated) or the constant, and so is a row beyond it.
    const auto build = [&](std::int64_t r, std::int64_t slot) {
        unsigned char* to = ring + slot * slotBytes;
        const std::int64_t br = r - by0;
        if (constant && (br < 0 || br >= bh)) {
            for (std::int64_t i = 0; i < ww; ++i) std::memcpy(to + i * P, pixel, P);
        } else {
            const std::int64_t sy = std::clamp<std::int64_t>(br, 0, bh - 1) + by0;
            const unsigned char* row = bytes(src) + sy * srcStep;
            const std::int64_t origin = -ax - bx0;  // column of the grown image at ring column 0
            const std::int64_t lo = std::clamp<std::int64_t>(-origin, 0, ww), hi = std::clamp<std::int64_t>(bw - origin, lo, ww);
            std::memcpy(to + lo * P, row + (origin + lo + bx0) * P, static_cast<std::size_t>((hi - lo) * P));
            for (std::int64_t i = 0; i < lo; ++i) std::memcpy(to + i * P, constant ? pixel : row + bx0 * P, P);
            for (std::int64_t i = hi; i < ww; ++i) std::memcpy(to + i * P, constant ? pixel : row + (bw - 1 + bx0) * P, P);
        }
        rows::median::to_keys<T>(to, ww * std::int64_t(channels<L>));
    };
    for (std::int64_t j = 0; j < kh; ++j) build(j - ay, j);
    int first = 0;
    for (std::int64_t y = 0; y < H; ++y) {
        kernel(RingRows<T>{ring, slotBytes, first, int(kh)}, reinterpret_cast<T*>(reinterpret_cast<unsigned char*>(dst) + y * dstStep), W);
        if (y + 1 < H) {
            build(y + ry + 1, first);
            first = first + 1 == kh ? 0 : first + 1;
        }
    }
}

// Runs `body(kernel)` with the kernel the mask and type call for. `work` is the scratch of the
// selection kernel: kw * kh keys.
// With Keyed the rows hold keys rather than elements (floats turned once, when a row is built).
template <class T, Layout L, bool Keyed, class Body> void with_kernel(KeliSize mask, unsigned char* work, Body body)
{
    namespace rm = rows::median;
    const int kw = mask.width, kh = mask.height;
    if (kw == 1 && kh == 3) return body(rm::NetworkKernel<T, L, 1, 3, Keyed>{});
    if (kw == 1 && kh == 5) return body(rm::NetworkKernel<T, L, 1, 5, Keyed>{});
    if (kw == 3 && kh == 1) return body(rm::NetworkKernel<T, L, 3, 1, Keyed>{});
    if (kw == 5 && kh == 1) return body(rm::NetworkKernel<T, L, 5, 1, Keyed>{});
    if (kw == 3 && kh == 3) return body(rm::SortedColumnsKernel<T, L, 3, Keyed>{});
    if (kw == 5 && kh == 5) return body(rm::SortedColumnsKernel<T, L, 5, Keyed>{});
    if constexpr (std::is_same_v<T, Kel8u>) return body(rm::HistogramKernel<L>{kw, kh});
    else {
        using K = typename rm::Keys<T>::Key;
        return body(rm::SelectKernel<T, L, Keyed>{kw, kh, reinterpret_cast<K*>(work)});
    }
}

inline bool odd_mask(KeliSize m) { return m.width >= 1 && m.height >= 1 && (m.width & 1) && (m.height & 1); }

inline bool median_border_accepts(int border)
{
    if (border < 0 || border > 255) return false;
    const int k = border::base_kind(border);
    return border == kelBorderInMem || k == kelBorderConst || k == kelBorderRepl;
}

}  // namespace median_detail

template <class T, Layout L>
KelStatus filter_median_border(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, KeliSize mask,
                               KeliBorderType border, const T* pBorderValue, Kel8u* pBuffer)
{
    using namespace median_detail;
    if (KelStatus s = check::first({check::pointers(pSrc, pDst, pBuffer), check::size(roi),
                                    odd_mask(mask) ? kelStatusOk : kelStatusBadMaskSize,
                                    median_border_accepts(border) ? kelStatusOk : kelStatusBadBorder,
                                    border::base_kind(border) == kelBorderConst && !pBorderValue ? kelStatusNullPtr
                                                                                                : kelStatusOk}))
        return s;
    // A 1x1 window is the pixel itself: the pixels move unchanged, or stay where they are.
    if (mask.width == 1 && mask.height == 1) {
        box_detail::copy_region<T, L>(pSrc, srcStep, pDst, dstStep, roi);
        return kelStatusOk;
    }
    // A window one pixel wide never reaches beside the region, one pixel high never above or
    // below it: those sides need no border.
    int b = border;
    if (mask.width == 1) b |= kelBorderInMemLeft | kelBorderInMemRight;
    if (mask.height == 1) b |= kelBorderInMemTop | kelBorderInMemBottom;
    // The ring first (any alignment: the kernels read it as bytes or unaligned), then the
    // selection keys, aligned for their width.
    const std::int64_t ringBytes = std::int64_t(mask.height) * (roi.width + mask.width - 1) * pixel_bytes<T, L>;
    unsigned char* work = box_detail::align_up(pBuffer + ringBytes, 8);
    with_kernel<T, L, true>(mask, work, [&](const auto& kernel) {
        ring_walk<T, L>(pSrc, srcStep, pDst, dstStep, roi, mask, b, pBorderValue, pBuffer, kernel);
    });
    return kelStatusOk;
}

// The scratch size. Checks: the output pointer, the region, the mask, the type against the
// channel count (kelStatusBadDataType), the channel count; a size past 2^31 - 1 is 0 with
// kelStatusSizeOverflow. The walk uses the ring (mh extended rows) and the selection keys, which
// the formula's terms cover with room to spare for any alignment of the buffer.
inline KelStatus filter_median_border_buffer_size(KeliSize roi, KeliSize mask, KelDataType dataType, int numChannels,
                                                  int* pBufferSize)
{
    using median_detail::a32;
    using median_detail::a64;
    if (!pBufferSize) return kelStatusNullPtr;
    if (roi.width < 1 || roi.height < 1) return kelStatusBadSize;
    if (!median_detail::odd_mask(mask)) return kelStatusBadMaskSize;
    const bool integer = dataType == kel8u || dataType == kel16u || dataType == kel16s;
    if ((numChannels == 3 || numChannels == 4) && !integer) return kelStatusBadDataType;
    if (numChannels == 1 && !integer && dataType != kel32f) return kelStatusBadDataType;
    if (numChannels != 1 && numChannels != 3 && numChannels != 4) return kelStatusBadChannelCount;
    const std::int64_t e = dataType == kel8u ? 1 : dataType == kel32f ? 4 : 2;
    const std::int64_t w = roi.width, h = roi.height, mw = mask.width, mh = mask.height, c = numChannels;
    const std::int64_t N = mw * mh, hm = mh >> 1, wm = mw >> 1, M = std::max(mw, mh);
    const bool small = w <= mw || h <= mh;
    // The area of the extended image the border strips cover, in elements of one channel.
    const std::int64_t area = small ? (mh + h - 1) * (mw + w - 1)
                                    : std::max((hm + mh) * (w + mw - 1), (wm + mw) * (h + mh - 1));
    std::int64_t bytes;
    if (c == 1) {
        std::int64_t work = 0;
        if (!(mw < 6 && mh < 6 && (mw == 1 || mh == 1 || mw == mh))) {
            if (dataType == kel32f && mw > 1 && mh > 1)
                work = N > 624 ? ((N * 8 + 120) & ~std::int64_t(127)) + 28672 : a64(M * 4) + a64(N * 4) * 3;
            else
                work = N * e * 4;
        }
        if (dataType == kel32f && N >= 51 && N <= 624) work += N + N * 4 + 20480;
        work = a32(work);
        const std::int64_t strips = small ? 0 : 64 * (((h * e * wm * 2 + 62) >> 6) + ((hm * w * e * 2 + 62) >> 6));
        const std::int64_t hist = dataType != kel8u ? work
                                  : M >= 257        ? (mw + w) << 10
                                  : M >= 17         ? (mw + w) << 9
                                  : M >= 7          ? (mw + w) << 8
                                                    : work;
        bytes = strips + a32(e * w) * mh * 2 + a32(area * e) + hist;
    } else if (dataType == kel8u) {
        bytes = a32(area * c);
    } else {
        bytes = a32(area * c * 2) + (mw < 6 && hm < 3 && mw + mh != 8 ? 0 : mh * mw * 8);
    }
    if (bytes > 0x7FFFFFFF) {
        *pBufferSize = 0;
        return kelStatusSizeOverflow;
    }
    *pBufferSize = static_cast<int>(bytes);
    return kelStatusOk;
}

}  // namespace keli
