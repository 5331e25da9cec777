// Gradient vectors (Sobel, Prewitt, Scharr) and the Sobel gradient magnitude, with their size
// queries.
//
// gx takes the vertical-edge mask of the family and gy the horizontal-edge one, exactly as the
// derivative filters compute them (Sobel and Prewitt gx are left minus right, Scharr gx right
// minus left; every gy is bottom minus top). From (gx, gy): the magnitude, L1 |gx| + |gy| or L2
// sqrt(gx^2 + gy^2), and the angle atan2(gy, gx) in radians. 8u16s keeps 16-bit integers: L1
// adds in 16 bits without saturation, L2 is the nearest integer to the exact root; the other
// forms work in f32 (16-bit sources give exact integer derivatives). C3C1R reads three
// interleaved channels and keeps, per pixel, the pair of the channel of largest energy.
//
// The edge driver walks the region with one kernel that produces every output of a segment,
// each row in one full-width segment from a ring of extended rows where the buffer holds one.
// On one channel a segment of a vector or more computes gx and gy in one pass and writes them,
// the magnitude and the angle straight into the caller's rows; shorter segments (the edge
// strips) and three channels take blocks of 64 pixels through the stack. The driver's nominal
// destination is a byte image of no height whose address tells the kernel the segment's
// column; the kernel counts the segments to know the row, since the driver visits every row
// once per pass, top to bottom.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "filter/derivative.hpp"
#include "filter/edge_driver.hpp"
#include "filter/rows/derivative.hpp"
#include "filter/rows/gradient.hpp"
#include "filter/rows/gradient_pair.hpp"
#include "frame/layout.hpp"
#include "move/border.hpp"

namespace keli {

namespace gradient_detail {

inline std::int64_t element_bytes(KelDataType t) { return t == kel8u ? 1 : t == kel32f ? 4 : 2; }

// The query's formula: two output rows, and the edge strips of the driver.
inline std::int64_t buffer_bytes(KeliSize roi, int mask, KelDataType type, int C)
{
    const bool five = mask == kelMaskSize5x5;
    const std::int64_t w = roi.width, h = roi.height, c = five ? 2 : 0, l = std::min(w, h);
    const std::int64_t q = five ? (8 <= l ? 2 : l) : (4 <= l ? 1 : l);
    return (w * 2 << (type == kel8u ? 1 : 2)) + (std::max(w, h) + c + 2) * C * (q + c + 2) * element_bytes(type);
}

template <class T> constexpr KelDataType type_of = std::is_same_v<T, Kel8u>    ? kel8u
                                                   : std::is_same_v<T, Kel16u> ? kel16u
                                                   : std::is_same_v<T, Kel16s> ? kel16s
                                                                               : kel32f;

struct Output {
    unsigned char* p;
    std::int64_t step;
};

// The caller's outputs and what to make of them.
template <class D> struct Outputs {
    Output gx, gy, magnitude, angle;
    int normType;
};

constexpr int kBlock = 64;

// T source, D derivative and magnitude type (16s for 8u sources, else 32f), K mask, C channels,
// the masks of gx and gy by their codes.
template <class T, class D, int K, int C, int CodeX, int CodeY> class GradientKernel {
public:
    GradientKernel(const Outputs<D>& out, const unsigned char* base, std::int64_t height)
        : dx_(true), dy_(true), out_(out), base_(base), height_(height)
    {
    }

    void operator()(const T* const* rows, unsigned char* nominal, std::int64_t n) const
    {
        const std::int64_t x0 = (nominal - base_) / C, y = row_;
        row_ = row_ + 1 == height_ ? 0 : row_ + 1;
        if constexpr (C == 1)
            if (n >= Pair::B) {
                // Straight into the caller's rows.
                D *gx = at<D>(out_.gx, y, x0), *gy = at<D>(out_.gy, y, x0), *mag = at<D>(out_.magnitude, y, x0);
                Kel32f* ang = at<Kel32f>(out_.angle, y, x0);
                const bool l1 = out_.normType == kelNormL1;
                if (mag || ang) return Pair::run(rows, n, rows::gradient::Sink<D, true>{gx, gy, mag, ang, l1});
                return Pair::run(rows, n, rows::gradient::Sink<D, false>{gx, gy, mag, ang, l1});
            }
        blocks(rows, x0, y, n);
    }

private:
    // Short segments (the edge strips) and three channels go through blocks on the stack; the
    // lanes past a short run are computed on but never stored, and zeros keep them defined.
    void blocks(const T* const* rows, std::int64_t x0, std::int64_t y, std::int64_t n) const
    {
        alignas(16) D gx[kBlock], gy[kBlock], mag[kBlock];
        alignas(16) Kel32f ang[kBlock];
        for (std::int64_t s = 0; s < n; s += kBlock) {
            const std::int64_t m = std::min<std::int64_t>(kBlock, n - s);
            const std::int64_t padded = (m + 7) & ~std::int64_t(7), x = x0 + s;
            derivatives(rows, s, m, n + K - 1 - s, gx, gy);
            std::fill(gx + m, gx + padded, D());
            std::fill(gy + m, gy + padded, D());
            put(out_.gx, y, x, gx, m);
            put(out_.gy, y, x, gy, m);
            if (out_.magnitude.p) {
                if (out_.normType == kelNormL1) rows::gradient::magnitude_l1(gx, gy, mag, padded);
                else rows::gradient::magnitude_l2(gx, gy, mag, padded);
                put(out_.magnitude, y, x, mag, m);
            }
            if (out_.angle.p) {
                rows::gradient::angle(gx, gy, ang, padded);
                put(out_.angle, y, x, ang, m);
            }
        }
    }

    // gx, gy of the block's m pixels starting at column s; `readable` columns from s may be read.
    void derivatives(const T* const* rows, std::int64_t s, std::int64_t m, std::int64_t readable, D* gx, D* gy) const
    {
        if constexpr (C == 1) {
            const T* at[K];
            for (int j = 0; j < K; ++j) at[j] = rows[j] + s;
            dx_.run(at, gx, m, readable);
            dy_.run(at, gy, m, readable);
        } else {
            // Each channel's window rows, taken apart, then its derivatives.
            constexpr int kCols = kBlock + K - 1;
            T plane[K][kCols];
            alignas(16) D cx[3][kBlock], cy[3][kBlock];
            const std::int64_t cols = m + K - 1;
            const T* at[K];
            for (int c = 0; c < 3; ++c) {
                for (int j = 0; j < K; ++j) {
                    const T* r = rows[j] + s * 3 + c;
                    for (std::int64_t i = 0; i < cols; ++i) plane[j][i] = r[i * 3];
                    at[j] = plane[j];
                }
                dx_.run(at, cx[c], m, cols);
                dy_.run(at, cy[c], m, cols);
                std::fill(cx[c] + m, cx[c] + ((m + 7) & ~std::int64_t(7)), D());
                std::fill(cy[c] + m, cy[c] + ((m + 7) & ~std::int64_t(7)), D());
            }
            const D* xs[3] = {cx[0], cx[1], cx[2]};
            const D* ys[3] = {cy[0], cy[1], cy[2]};
            rows::gradient::strongest(xs, ys, gx, gy, (m + 7) & ~std::int64_t(7));
        }
    }

    using Pair = rows::gradient::PairKernel<T, D, K, CodeX, CodeY>;

    template <class E> static E* at(const Output& o, std::int64_t y, std::int64_t x)
    {
        return o.p ? reinterpret_cast<E*>(o.p + y * o.step) + x : nullptr;
    }

    template <class E> static void put(const Output& o, std::int64_t y, std::int64_t x, const E* v, std::int64_t m)
    {
        if (o.p) std::memcpy(o.p + y * o.step + x * std::int64_t(sizeof(E)), v, static_cast<std::size_t>(m) * sizeof(E));
    }

    rows::derivative::SeparableKernel<T, K, D, CodeX> dx_;
    rows::derivative::SeparableKernel<T, K, D, CodeY> dy_;
    Outputs<D> out_;
    const unsigned char* base_;
    std::int64_t height_;
    mutable std::int64_t row_ = 0;  // the row of the next segment
};

// The derivative masks of each family: gx the vertical-edge one, gy the horizontal-edge one.
enum class Family { Sobel, Prewitt, Scharr };

constexpr int code_x(Family f)
{
    namespace rd = rows::derivative;
    return f == Family::Sobel ? rd::kSobelVert : f == Family::Prewitt ? rd::kPrewittVert : rd::kScharrVert;
}
constexpr int code_y(Family f)
{
    namespace rd = rows::derivative;
    return f == Family::Sobel ? rd::kSobelHoriz : f == Family::Prewitt ? rd::kPrewittHoriz : rd::kScharrHoriz;
}

template <class T, class D, int C, Family F>
void run(int k, const T* src, int srcStep, const Outputs<D>& out, KeliSize roi, int border,
         const T* value, Kel8u* buffer)
{
    const std::int64_t W = roi.width, H = roi.height;
    constexpr Layout L = C == 1 ? Layout::C1 : Layout::C3;
    using Driver = filter::EdgeDriver<T, L, unsigned char>;
    const filter::Footprint fp = filter::centred(k, k);
    // The first element boundary at or after `offset` bytes into the buffer.
    const auto aligned = [&](std::int64_t offset) {
        const auto a = reinterpret_cast<std::uintptr_t>(buffer) + std::uintptr_t(offset);
        return reinterpret_cast<unsigned char*>(a + (sizeof(T) - a % sizeof(T)) % sizeof(T));
    };
    // Where the buffer holds a ring of at least k extended rows, every output row is one
    // segment of the full width, fed from the ring: one pass over the row and no edge strips,
    // whose few columns would each cost a call per row. A ring of up to 32 KiB (more rows than
    // the window when they fit) lets rows enter it in batches. Otherwise the strips lie behind
    // the two rows of the formula's first part.
    const std::int64_t slotBytes = (W + k - 1) * C * std::int64_t(sizeof(T));
    const std::int64_t room = buffer_bytes(roi, k == 5 ? kelMaskSize5x5 : kelMaskSize3x3, type_of<T>, C) -
                              (std::int64_t(sizeof(T)) - 1);
    const std::int64_t slots = std::min(room / slotBytes, std::max<std::int64_t>(k + 1, (32 << 10) / slotBytes));
    const bool banded = slots >= k;
    unsigned char* scratch = aligned(banded ? 0 : W * 2 << (std::is_same_v<T, Kel8u> ? 1 : 2));
    filter::EdgeJob<T, unsigned char> job{src, srcStep, buffer, 0, W, H, fp, border, value, scratch};
    const auto go = [&](auto kernel) {
        if (banded) Driver(job).run_banded(kernel, slots);
        else Driver(job).run(kernel);
    };
    if constexpr (F == Family::Sobel)
        if (k == 5) return go(GradientKernel<T, D, 5, C, code_x(F), code_y(F)>(out, buffer, H));
    go(GradientKernel<T, D, 3, C, code_x(F), code_y(F)>(out, buffer, H));
}

// A step below 1 gives kelStatusBadStep, one that is no multiple of the element kelStatusOddStep.
inline KelStatus step_status(int step, int element)
{
    return step < 1 ? kelStatusBadStep : step % element ? kelStatusOddStep : kelStatusOk;
}

}  // namespace gradient_detail

// keliGradientVector*: checks in the family's own order (border first, the region late, the
// mask last); the Prewitt and Scharr gradients have one mask and run it whatever `mask` says.
// A constant border on three channels reads three values through a pointer; a null pointer is
// refused after every other check, as the filters with a value per channel do.
template <class T, class D, int C, gradient_detail::Family F>
KelStatus gradient_vector(const T* pSrc, int srcStep, D* pGx, int gxStep, D* pGy,
                          int gyStep, D* pMag, int magStep, Kel32f* pAngle, int angleStep, KeliSize roi,
                          KeliMaskSize mask, KelNormType normType, KeliBorderType border, const T* pBorderValue,
                          Kel8u* pBuffer)
{
    using namespace gradient_detail;
    constexpr int e = int(sizeof(T)), d = int(sizeof(D));
    if (!border::filter_accepts(border)) return kelStatusBadBorder;
    if (!pSrc) return kelStatusNullPtr;
    if (KelStatus s = step_status(srcStep, e)) return s;
    if (!pBuffer) return kelStatusNullPtr;
    if (pGx)
        if (KelStatus s = step_status(gxStep, d)) return s;
    if (pGy)
        if (KelStatus s = step_status(gyStep, d)) return s;
    if (pMag) {
        if (KelStatus s = step_status(magStep, d)) return s;
        if (normType != kelNormL1 && normType != kelNormL2) return kelStatusBadArg;
    }
    if (pAngle)
        if (KelStatus s = step_status(angleStep, 4)) return s;
    if (roi.width < 1 || roi.height < 1) return kelStatusBadSize;
    const bool sobel = F == Family::Sobel;
    if (sobel && mask != kelMaskSize3x3 && mask != kelMaskSize5x5) return kelStatusBadMaskSize;
    if (border::base_kind(border) == kelBorderConst && !pBorderValue) return kelStatusNullPtr;
    if (!pGx && !pGy && !pMag && !pAngle) return kelStatusOk;
    const auto out = [](void* p, int step) { return Output{static_cast<unsigned char*>(p), step}; };
    const Outputs<D> outputs{out(pGx, gxStep), out(pGy, gyStep), out(pMag, magStep), out(pAngle, angleStep), normType};
    run<T, D, C, F>(sobel && mask == kelMaskSize5x5 ? 5 : 3, pSrc, srcStep, outputs, roi, border, pBorderValue,
                 pBuffer);
    return kelStatusOk;
}

// keliFilterSobel: the Sobel gradient with its magnitude alone.
template <class T, class D>
KelStatus filter_sobel(const T* pSrc, int srcStep, D* pDst, int dstStep, KeliSize roi, KeliMaskSize mask,
                       KelNormType normType, KeliBorderType border, T borderValue, Kel8u* pBuffer)
{
    using namespace gradient_detail;
    if (!pSrc || !pDst || !pBuffer) return kelStatusNullPtr;
    if (roi.width < 1 || roi.height < 1) return kelStatusBadSize;
    if (std::is_same_v<T, Kel8u> && dstStep % 2) return kelStatusOddStep;
    if (mask != kelMaskSize3x3 && mask != kelMaskSize5x5) return kelStatusBadMaskSize;
    if (normType != kelNormL1 && normType != kelNormL2) return kelStatusBadArg;
    if (!border::filter_accepts(border)) return kelStatusBadBorder;
    const Outputs<D> outputs{{}, {}, Output{reinterpret_cast<unsigned char*>(pDst), dstStep}, {}, normType};
    run<T, D, 1, Family::Sobel>(mask == kelMaskSize5x5 ? 5 : 3, pSrc, srcStep, outputs, roi, border, &borderValue,
                 pBuffer);
    return kelStatusOk;
}

// keliGradientVectorGetBufferSize: the output pointer, the region, the mask, the type, then one
// or three channels.
inline KelStatus gradient_buffer_size(KeliSize roi, KeliMaskSize mask, KelDataType dataType, int numChannels,
                                      int* pBufferSize)
{
    if (!pBufferSize) return kelStatusNullPtr;
    if (roi.width < 1 || roi.height < 1) return kelStatusBadSize;
    if (mask != kelMaskSize3x3 && mask != kelMaskSize5x5) return kelStatusBadMaskSize;
    if (dataType != kel8u && dataType != kel16u && dataType != kel16s && dataType != kel32f) return kelStatusBadDataType;
    if (numChannels != 1 && numChannels != 3) return kelStatusBadChannelCount;
    const std::int64_t bytes = gradient_detail::buffer_bytes(roi, mask, dataType, numChannels);
    if (bytes > 0x7FFFFFFF) {
        *pBufferSize = 0;
        return kelStatusSizeOverflow;
    }
    *pBufferSize = static_cast<int>(bytes);
    return kelStatusOk;
}

// keliFilterSobelGetBufferSize: the gradient's size for the same region, mask and source type on
// one channel, after its own checks: the norm, and a type pair of the four members.
inline KelStatus filter_sobel_buffer_size(KeliSize roi, KeliMaskSize mask, KelNormType normType, KelDataType srcType,
                                          KelDataType dstType, int numChannels, int* pBufferSize)
{
    if (!pBufferSize) return kelStatusNullPtr;
    if (roi.width < 1 || roi.height < 1) return kelStatusBadSize;
    if (mask != kelMaskSize3x3 && mask != kelMaskSize5x5) return kelStatusBadMaskSize;
    if (normType != kelNormL1 && normType != kelNormL2) return kelStatusBadArg;
    const bool pairOk = (srcType == kel8u && dstType == kel16s) ||
                        ((srcType == kel16u || srcType == kel16s || srcType == kel32f) && dstType == kel32f);
    if (!pairOk) return kelStatusBadDataType;
    if (numChannels != 1) return kelStatusBadChannelCount;
    return gradient_buffer_size(roi, mask, srcType, 1, pBufferSize);
}

}  // namespace keli
