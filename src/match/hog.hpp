// Histogram of oriented gradients: the bodies of keliHOG_* and the size queries.
//
// A call works in two passes. The first computes, once for the whole (cut) region, each pixel's
// bin pair and two votes into the caller's buffer; the second gathers, for each window, its
// blocks' histograms from those planes and normalises them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "frame/check.hpp"
#include "frame/fp_guard.hpp"
#include "keli_types.h"
#include "match/hog_spec.hpp"
#include "match/rows/hog.hpp"
#include "move/border.hpp"

namespace keli::hog {

// Pixels a run of gradients covers at once: three rows of (run + 5) pixels of up to three f32
// channels stay within a few kilobytes of stack.
constexpr int kRunPixels = 256;
constexpr int kRowFloats = (kRunPixels + 6) * 3;

// The source as the gradient sees it: the cut region R, w x h, and where the neighbours beyond
// its edges come from. Past R's right and bottom edges the border rule applies even where the
// caller's region has more pixels: the gradients belong to R alone.
template <class T, int C> class GradientSource {
public:
    GradientSource(const T* src, int step, int w, int h, int border, const T* value)
        : src_(reinterpret_cast<const unsigned char*>(src)), step_(step), w_(w), h_(h),
          kind_(base_kind(border)), top_(border::in_memory(border, kelBorderInMemTop)),
          bottom_(border::in_memory(border, kelBorderInMemBottom)),
          left_(border::in_memory(border, kelBorderInMemLeft)), right_(border::in_memory(border, kelBorderInMemRight))
    {
        for (int c = 0; c < C; ++c) value_[c] = kind_ == border::Kind::Const && value ? static_cast<float>(value[c]) : 0.0f;
    }

    // Row `y` (-1 .. h) at positions x0 - 1 .. x0 + n, widened to f32, into `dst` (index = position - x0 + 1).
    void row(float* dst, int y, int x0, int n) const
    {
        int sy = y;
        if ((y < 0 && !top_) || (y >= h_ && !bottom_)) {
            if (kind_ == border::Kind::Const) {
                for (int i = 0; i < n + 2; ++i)
                    for (int c = 0; c < C; ++c) dst[C * i + c] = value_[c];
                return;
            }
            sy = static_cast<int>(border::source_index(kind_, y, h_));
        }
        const T* s = reinterpret_cast<const T*>(src_ + std::ptrdiff_t(sy) * step_);
        // Positions read straight from memory: inside R, and one pixel beyond a side whose flag is set.
        const int first = std::max(x0 - 1, left_ ? -1 : 0), last = std::min(x0 + n, right_ ? w_ : w_ - 1);
        widen(s + std::ptrdiff_t(C) * first, dst + C * (first - x0 + 1), std::size_t(C) * (last - first + 1));
        if (first > x0 - 1) edge_pixel(s, -1, dst);
        if (last < x0 + n) edge_pixel(s, w_, dst + C * (n + 1));
    }

private:
    static border::Kind base_kind(int border)
    {
        const int k = border::base_kind(border);
        return k == kelBorderConst ? border::Kind::Const : k == kelBorderMirror ? border::Kind::Mirror : border::Kind::Repl;
    }

    void edge_pixel(const T* s, int x, float* dst) const
    {
        if (kind_ == border::Kind::Const) {
            for (int c = 0; c < C; ++c) dst[c] = value_[c];
            return;
        }
        const std::int64_t sx = border::source_index(kind_, x, w_);
        for (int c = 0; c < C; ++c) dst[c] = static_cast<float>(s[C * sx + c]);
    }

    static void widen(const T* s, float* d, std::size_t n)
    {
        std::size_t i = 0;
        for (; i + 4 <= n; i += 4) simd::store4(d + i, simd::widen4(s + i));
        for (; i < n; ++i) d[i] = static_cast<float>(s[i]);
    }

    const unsigned char* src_;
    std::ptrdiff_t step_;
    int w_, h_;
    border::Kind kind_;
    bool top_, bottom_, left_, right_;
    float value_[3];
};

// Pass one: bins and votes of every pixel of R, in runs of columns, each run walking down the
// rows with three widened rows in turn.
template <class T, int C>
void gradient_planes(const GradientSource<T, C>& source, int w, int h, const rows::BinRule& rule, rows::VotePlanes planes)
{
    alignas(16) float ring[3][kRowFloats] = {};
    for (int x0 = 0; x0 < w; x0 += kRunPixels) {
        const int n = std::min(kRunPixels, w - x0);
        source.row(ring[0], -1, x0, n);
        source.row(ring[1], 0, x0, n);
        for (int y = 0; y < h; ++y) {
            source.row(ring[(y + 2) % 3], y + 1, x0, n);
            const std::size_t at = std::size_t(y) * w + x0;
            rows::gradient_run<C>(ring[y % 3], ring[(y + 1) % 3], ring[(y + 2) % 3], n, rule,
                                  {planes.bins + at, planes.first + at, planes.second + at});
        }
    }
}

// Histograms of N blocks of a window, from block number `first` in row-major order, normalised
// into their places in the descriptor.
template <int N>
void window_blocks(const Header& h, const float* weights, rows::VotePlanes planes, int w, KeliPoint p, int blocksX,
                   int blocksY, int first, float* out)
{
    const KeliHOGConfig& c = h.config;
    alignas(16) float store[N][4 * 16];
    float* hist[N];
    rows::VotePlanes at[N];
    for (int k = 0; k < N; ++k) {
        const int bx = (first + k) % blocksX, by = (first + k) / blocksX;
        const std::size_t offset = std::size_t(p.y + by * c.blockStride) * w + p.x + bx * c.blockStride;
        at[k] = {planes.bins + offset, planes.first + offset, planes.second + offset};
        hist[k] = store[k];
    }
    rows::block_histograms<N>(at, w, c.blockSize, weights, c.nbins, hist);
    for (int k = 0; k < N; ++k) {
        const int bx = (first + k) % blocksX, by = (first + k) / blocksX;
        const int index = c.blockOrderColumnMajor ? bx * blocksY + by : by * blocksX + bx;
        rows::normalise_block(hist[k], c.nbins, c.l2Threshold, out + std::size_t(index) * h.blockHistogramLength);
    }
}

// Pass two: the descriptors of the windows that lie inside R, in the given order; four blocks
// at a time.
inline void window_descriptors(const Header& h, const float* weights, rows::VotePlanes planes, int w, int rh,
                               const KeliPoint* locations, int nLocations, float* out)
{
    const KeliHOGConfig& c = h.config;
    const int blocksX = blocks_along(c.winWidth, c.blockSize, c.blockStride);
    const int blocksY = blocks_along(c.winHeight, c.blockSize, c.blockStride);
    const int blocks = blocksX * blocksY;
    const KeliPoint origin = {0, 0};
    for (int i = 0; i < nLocations; ++i) {
        const KeliPoint p = locations ? locations[i] : origin;
        if (p.x < 0 || p.y < 0 || std::int64_t(p.x) + c.winWidth > w || std::int64_t(p.y) + c.winHeight > rh) continue;
        int b = 0;
        for (; b + 4 <= blocks; b += 4) window_blocks<4>(h, weights, planes, w, p, blocksX, blocksY, b, out);
        for (; b < blocks; ++b) window_blocks<1>(h, weights, planes, w, p, blocksX, blocksY, b, out);
        out += h.descriptorLength;
    }
}

// The region R: each side loses (size - block) modulo the stride at its far end. A stride of 0
// leaves it whole.
inline int cut_side(int size, int block, int stride) { return stride == 0 ? size : size - (size - block) % stride; }

template <class T, int C>
KelStatus hog(const T* pSrc, int srcStep, KeliSize roi, const KeliPoint* locations, int nLocations, Kel32f* pDst,
              const KeliHOGSpec* pSpec, KeliBorderType border, const T* borderValue, bool valuePresent, Kel8u* pBuffer)
{
    if (KelStatus s = check::pointers(pSpec, pSrc, pDst, pBuffer)) return s;
    const Header h = read_header(pSpec);
    if (h.id != kSpecId) return kelStatusSpecMismatch;
    if (KelStatus s = check::steps(srcStep)) return s;
    const KeliHOGConfig& c = h.config;
    if (c.winWidth > roi.width || c.winHeight > roi.height) return kelStatusBadSize;
    if (nLocations < 1) return kelStatusBadArg;
    if (!locations && nLocations != 1) return kelStatusNullPtr;
    if (!border::filter_accepts(border)) return kelStatusBadBorder;
    // The value is looked at only once the border is known to be valid, and only where a side
    // is synthesised from it: with all four sides in memory the base kind plays no part.
    const bool constant = border::base_kind(border) == kelBorderConst && !border::no_border(border);
    if (constant && !valuePresent) return kelStatusNullPtr;

    FpControlGuard guard;  // results independent of the caller's rounding and flush modes
    guard.set_rounding(0);
    guard.set_flush_to_zero(false);
    const int w = cut_side(roi.width, c.blockSize, c.blockStride), rh = cut_side(roi.height, c.blockSize, c.blockStride);
    const std::size_t plane = std::size_t(w) * rh;
    const rows::VotePlanes planes = {reinterpret_cast<std::uint32_t*>(pBuffer),
                                     reinterpret_cast<float*>(pBuffer) + plane,
                                     reinterpret_cast<float*>(pBuffer) + 2 * plane};
    const rows::BinRule rule = {static_cast<float>(c.nbins * 0.3183098861837907), c.nbins};
    gradient_planes(GradientSource<T, C>(pSrc, srcStep, w, rh, border, borderValue), w, rh, rule, planes);
    window_descriptors(h, block_weights(pSpec), planes, w, rh, locations, nLocations, pDst);
    return kelStatusOk;
}

template <class T>
KelStatus hog_c1(const T* pSrc, int srcStep, KeliSize roi, const KeliPoint* locations, int nLocations, Kel32f* pDst,
                 const KeliHOGSpec* pSpec, KeliBorderType border, T borderValue, Kel8u* pBuffer)
{
    return hog<T, 1>(pSrc, srcStep, roi, locations, nLocations, pDst, pSpec, border, &borderValue, true, pBuffer);
}

template <class T>
KelStatus hog_c3(const T* pSrc, int srcStep, KeliSize roi, const KeliPoint* locations, int nLocations, Kel32f* pDst,
                 const KeliHOGSpec* pSpec, KeliBorderType border, const T* borderValue, Kel8u* pBuffer)
{
    return hog<T, 3>(pSrc, srcStep, roi, locations, nLocations, pDst, pSpec, border, borderValue, borderValue != nullptr,
                     pBuffer);
}

}  // namespace keli::hog
