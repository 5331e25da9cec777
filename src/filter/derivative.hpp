// The derivative masks: Sobel (first and second derivatives, both signs of the vertical one),
// Scharr, Prewitt and Roberts, each a border filter over a fixed 3x3 or 5x5 mask, and their
// buffer size query.
//
// The masks are applied as written over the window centred on the pixel, not reversed, which is
// why the vertical-edge masks do not share a sign: Sobel and Prewitt take left minus right, Scharr
// and Sobel negative right minus left; the horizontal-edge masks take bottom minus top. Roberts
// reads only two pixels, but it is bordered like a 3x3 mask: one pixel is provided on every side.
//
// Checks, in order: src, dst, buffer null; the region; a step that is no multiple of the element
// (8u16s tests dstStep only, the source's element being a byte); the mask; the border. Each
// family keeps this order of its own, steps before mask, rather than the general frame's: a
// zero or negative step is not refused and is taken as it stands.
//
// The edge driver walks the region and builds the border pixels; the kernels are those of
// rows/derivative.hpp, vector ones unless srcStep is below 16 (rows closer than one vector apart)
// where the scalar ones run. Both give the same values, as do the strips and the interior.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "filter/edge_driver.hpp"
#include "filter/rows/derivative.hpp"
#include "frame/check.hpp"
#include "frame/layout.hpp"
#include "move/border.hpp"

namespace keli {

namespace derivative_detail {

inline std::int64_t align32(std::int64_t v) { return (v + 31) & ~std::int64_t(31); }

// The query's formula: the caller's buffer holds this many bytes.
inline std::int64_t buffer_bytes(KeliSize roi, int mask, KelDataType srcType)
{
    const bool five = mask == kelMaskSize5x5;
    const std::int64_t r = five ? 7 : 3, c = five ? 2 : 0, w = roi.width, h = roi.height;
    const std::int64_t rows = r * (std::max(w, h) + c + 2);
    if (srcType == kel8u) return align32(rows) + 32;
    const int t = srcType == kel16s ? 1 : 2;
    const std::int64_t v = align32(rows << t) + (align32(w * 4) << (five ? 2 : 1)) + align32(((w + h) * 2 << (five ? 1 : 0)) << t);
    return align32(v) + 32;
}

template <class T> constexpr KelDataType type_of = std::is_same_v<T, Kel8u> ? kel8u : std::is_same_v<T, Kel16s> ? kel16s : kel32f;

template <class T> const unsigned char* bytes(const T* p) { return reinterpret_cast<const unsigned char*>(p); }

// Runs `kernel` over the region. The scratch the driver needs fits the buffer, except for a
// region narrower than the mask: then the driver copies the whole bordered region, and the
// region is cut into bands of rows that fit. A band reads the rows beyond its inner edges from
// the caller's image, so every band gives the pixels of the whole; each band but the last
// leaves at least the mask's reach of rows below it.
template <class T, class D, class Kernel>
void drive(const T* src, int srcStep, D* dst, int dstStep, KeliSize roi, int k, int border, T value, Kel8u* buffer,
           const Kernel& kernel)
{
    using Driver = filter::EdgeDriver<T, Layout::C1, D>;
    const filter::Footprint fp = filter::centred(k, k);
    const std::int64_t W = roi.width, H = roi.height, reach = k >> 1;
    // The strips hold elements, read as such: the scratch starts on an 8-byte boundary.
    auto* scratch = buffer + ((8 - reinterpret_cast<std::uintptr_t>(buffer) % 8) % 8);
    const std::int64_t usable = buffer_bytes(roi, k == 5 ? kelMaskSize5x5 : kelMaskSize3x3, type_of<T>) - 7;
    const T constant[1] = {value};
    const auto band = [&](std::int64_t y0, std::int64_t h, int flags) {
        filter::EdgeJob<T, D> job{reinterpret_cast<const T*>(bytes(src) + y0 * srcStep), srcStep,
                                  reinterpret_cast<D*>(reinterpret_cast<unsigned char*>(dst) + y0 * dstStep), dstStep,
                                  W, h, fp, border | flags, constant, scratch};
        Driver(job).run(kernel);
    };
    if (static_cast<std::int64_t>(Driver::scratch_bytes(W, H, fp, border)) <= usable) return band(0, H, 0);
    const std::int64_t perRow = (W + k - 1) * std::int64_t(sizeof(T));
    const std::int64_t tallest = std::max<std::int64_t>(usable / perRow - (k - 1), reach + 1);
    for (std::int64_t y0 = 0; y0 < H;) {
        std::int64_t h = std::min(tallest, H - y0);
        if (y0 + h < H && H - (y0 + h) < reach) h = H - y0 - reach;
        band(y0, h, (y0 > 0 ? kelBorderInMemTop : 0) | (y0 + h < H ? kelBorderInMemBottom : 0));
        y0 += h;
    }
}

// Step checks: whole elements in the steps the family tests.
template <class T, class D> KelStatus steps(int srcStep, int dstStep)
{
    const bool srcOdd = !std::is_same_v<T, Kel8u> && srcStep % int(sizeof(T)) != 0;
    return srcOdd || dstStep % int(sizeof(D)) != 0 ? kelStatusOddStep : kelStatusOk;
}

}  // namespace derivative_detail

// One derivative mask over the region; `Code` is the mask's filter code, `fiveAllowed` whether
// the family has a 5x5 mask.
template <class T, class D, int Code>
KelStatus filter_derivative(bool fiveAllowed, const T* pSrc, int srcStep, D* pDst, int dstStep, KeliSize roi,
                            KeliMaskSize mask, KeliBorderType border, T borderValue, Kel8u* pBuffer)
{
    using namespace derivative_detail;
    namespace rd = rows::derivative;
    const bool maskOk = mask == kelMaskSize3x3 || (fiveAllowed && mask == kelMaskSize5x5);
    if (KelStatus s = check::first({check::pointers(pSrc, pDst, pBuffer), check::size(roi), steps<T, D>(srcStep, dstStep),
                                    maskOk ? kelStatusOk : kelStatusBadMaskSize,
                                    border::filter_accepts(border) ? kelStatusOk : kelStatusBadBorder}))
        return s;
    const bool vector = srcStep >= 16;
    if constexpr (Code == rd::kRobertsDown || Code == rd::kRobertsUp) {
        drive(pSrc, srcStep, pDst, dstStep, roi, 3, border, borderValue, pBuffer,
              rd::RobertsKernel<T>(Code == rd::kRobertsUp, vector));
    } else {
        if (mask == kelMaskSize5x5) {
            if constexpr (Code == rd::kSobelVert || Code == rd::kSobelHoriz || Code == rd::kSobelNegVert ||
                          Code == rd::kSobelVertSecond || Code == rd::kSobelHorizSecond)
                drive(pSrc, srcStep, pDst, dstStep, roi, 5, border, borderValue, pBuffer,
                      rd::SeparableKernel<T, 5, D, Code>(vector));
        } else {
            drive(pSrc, srcStep, pDst, dstStep, roi, 3, border, borderValue, pBuffer,
                  rd::SeparableKernel<T, 3, D, Code>(vector));
        }
    }
    return kelStatusOk;
}

// Checks: the output pointer, the region, the mask, the type pair (8u16s, 16s, 32f), then one
// channel. A 3x3-only family answers for 5x5 as well: the size is the same formula.
inline KelStatus derivative_buffer_size(KeliSize roi, KeliMaskSize mask, KelDataType srcType, KelDataType dstType,
                                        int numChannels, int* pBufferSize)
{
    if (!pBufferSize) return kelStatusNullPtr;
    if (roi.width < 1 || roi.height < 1) return kelStatusBadSize;
    if (mask != kelMaskSize3x3 && mask != kelMaskSize5x5) return kelStatusBadMaskSize;
    const bool typesOk = dstType == kel32f   ? srcType == kel32f
                         : dstType == kel16s ? srcType == kel8u || srcType == kel16s
                                             : false;
    if (!typesOk) return kelStatusBadDataType;
    if (numChannels != 1) return kelStatusBadChannelCount;
    const std::int64_t bytes = derivative_detail::buffer_bytes(roi, mask, srcType);
    if (bytes > 0x7FFFFFFF) {
        *pBufferSize = 0;
        return kelStatusSizeOverflow;
    }
    *pBufferSize = static_cast<int>(bytes);
    return kelStatusOk;
}

}  // namespace keli
