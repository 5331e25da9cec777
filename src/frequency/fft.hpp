// Two-dimensional FFT of 2^orderX by 2^orderY images: size queries, Init, and the real
// (packed spectrum) and complex transforms.
//
// Passes. The real forward transform runs the rows (source to destination), then column 0, the
// complex middle column pairs and column W-1 in place on the destination. The inverse runs the
// columns first, gathering from the source (it is const) and scattering into the destination,
// then the rows in place on the destination. Complex images: rows, then columns. Columns are
// gathered into the work buffer as lanes, eight complex columns at a time where both sides are
// at least 512 (a whole cache line of neighbours is used per fetch), then four, and a last
// partial group of four.
//
// Signs: forward uses e^(-2*pi*i*ux/W), inverse e^(+2*pi*i*ux/W), as the usual peers do, so
// spectra can be exchanged with them.
//
// Accuracy is that of single-precision rounding along log2(W*H) stages; the bits are fixed
// inside the library: a column gets the same bits by the 8-, 4- or 1-lane route, an in-place
// call equals the out-of-place one, and each channel of C3, C4, AC4 equals C1 on that plane.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/check.hpp"
#include "frame/layout.hpp"
#include "frequency/fft_spec.hpp"
#include "frequency/rows/fft_row.hpp"
#include "keli_types.h"

namespace keli::fft {

KelStatus get_size(bool real, int orderX, int orderY, int flag, int hint, int* pSizeSpec, int* pSizeInit, int* pSizeBuf);
KelStatus init(bool real, int orderX, int orderY, int flag, int hint, Kel8u* pSpec, Kel8u* pMemInit);

// ---- Column lanes

// Complex columns of one channel plane, in floats from a row's start: column c has its real
// part at first + c * stride and its imaginary part imGap further.
struct Columns {
    std::ptrdiff_t first, stride, imGap;
    bool contiguous() const { return stride == 2 && imGap == 1; }
};

template <class V> inline float* lane_floats(V& v) { return reinterpret_cast<float*>(&v); }

inline const float* row_at(const float* base, std::ptrdiff_t step, std::size_t y)
{
    return reinterpret_cast<const float*>(reinterpret_cast<const char*>(base) + step * static_cast<std::ptrdiff_t>(y));
}
inline float* row_at(float* base, std::ptrdiff_t step, std::size_t y)
{
    return reinterpret_cast<float*>(reinterpret_cast<char*>(base) + step * static_cast<std::ptrdiff_t>(y));
}

// Transforms `live` complex columns (from column c0) along their 2^n rows as the lanes of V:
// gathered from src in bit-reversed row order, transformed, scattered into dst.
// `work`: 2^n elements of Cx<V>.
template <class V, bool Inverse>
void column_group(const float* src, std::ptrdiff_t srcStep, float* dst, std::ptrdiff_t dstStep, Columns cols,
                  std::size_t c0, int live, int n, const Twiddles& tw, float scale, Cx<V>* work)
{
    constexpr int kL = kLanes<V>;
    const std::size_t len = std::size_t(1) << n;
    const std::ptrdiff_t base = cols.first + static_cast<std::ptrdiff_t>(c0) * cols.stride;
    const bool vectorMoves = kL >= 4 && live == kL && cols.contiguous();
    for (std::size_t y = 0; y < len; ++y) {
        const float* row = row_at(src, srcStep, y) + base;
        Cx<V>& e = work[reverse_bits(static_cast<std::uint32_t>(y), n)];
        float* re = lane_floats(Inverse ? e.im : e.re);
        float* im = lane_floats(Inverse ? e.re : e.im);
        if (vectorMoves) {
            for (int l = 0; l < kL; l += 4) {
                const F4 a = load4(row + 2 * l), b = load4(row + 2 * l + 4);
                simd::store4(re + l, evens4(a, b));
                simd::store4(im + l, odds4(a, b));
            }
        } else {
            for (int l = 0; l < kL; ++l) {
                re[l] = l < live ? row[l * cols.stride] : 0.0f;
                im[l] = l < live ? row[l * cols.stride + cols.imGap] : 0.0f;
            }
        }
    }
    transform_lanes(work, n, tw);
    const bool scaled = scale != 1.0f;
    const V s = splat<V>(scale);
    for (std::size_t y = 0; y < len; ++y) {
        float* row = row_at(dst, dstStep, y) + base;
        Cx<V> e = work[y];
        if (scaled) e = {e.re * s, e.im * s};
        const float* re = lane_floats(Inverse ? e.im : e.re);
        const float* im = lane_floats(Inverse ? e.re : e.im);
        if (vectorMoves) {
            for (int l = 0; l < kL; l += 4) {
                const F4 r = load4(re + l), i = load4(im + l);
                store4(row + 2 * l, interleave_lo4(r, i));
                store4(row + 2 * l + 4, interleave_hi4(r, i));
            }
        } else {
            for (int l = 0; l < live; ++l) {
                row[l * cols.stride] = re[l];
                row[l * cols.stride + cols.imGap] = im[l];
            }
        }
    }
}

// All `count` columns: groups of eight when `wide`, then of four, then one partial group.
template <bool Inverse>
void transform_columns(const float* src, std::ptrdiff_t srcStep, float* dst, std::ptrdiff_t dstStep, Columns cols,
                       std::size_t count, int n, const Twiddles& tw, float scale, bool wide, void* work)
{
    std::size_t c = 0;
    if (wide)
        for (; c + 8 <= count; c += 8)
            column_group<F8, Inverse>(src, srcStep, dst, dstStep, cols, c, 8, n, tw, scale, static_cast<Cx<F8>*>(work));
    for (; c < count; c += 4) {
        const int live = count - c < 4 ? static_cast<int>(count - c) : 4;
        column_group<F4, Inverse>(src, srcStep, dst, dstStep, cols, c, live, n, tw, scale, static_cast<Cx<F4>*>(work));
    }
}

// Sides from which columns go eight at a time.
constexpr int kWideOrder = 9;

// ---- Transform bodies

inline KelStatus check_transform(const Kel8u* pSpec, std::uint32_t id, const void* pSrc, int srcStep, const void* pDst,
                                 int dstStep, const Kel8u* pBuffer)
{
    if (!pSpec) return kelStatusNullPtr;
    const auto* spec = keli::spec::aligned<Spec2D>(pSpec);
    if (spec->id != id) return kelStatusSpecMismatch;
    return check::first({check::pointers(pSrc, pDst), check::steps(srcStep, dstStep),
                         !pBuffer && spec->bufferSize != 0 ? kelStatusNullPtr : kelStatusOk});
}

// Real row of one channel, through the buffer when the channel is interleaved with others.
template <bool Inverse, std::size_t C>
inline void real_row(const float* in, float* out, const Plan& p, float scale, float* work)
{
    const std::size_t w = std::size_t(1) << p.order;
    if constexpr (C == 1) {
        Inverse ? real_row_inverse(in, out, p, scale, work) : real_row_forward(in, out, p, scale, work);
    } else {
        float* tmp = work;
        float* rest = work + ((w + 3) & ~std::size_t(3));
        for (std::size_t x = 0; x < w; ++x) tmp[x] = in[x * C];
        Inverse ? real_row_inverse(tmp, tmp, p, scale, rest) : real_row_forward(tmp, tmp, p, scale, rest);
        for (std::size_t x = 0; x < w; ++x) out[x * C] = tmp[x];
    }
}

// A real column (column 0 or W-1 of the packed plane) through the buffer.
template <bool Inverse>
inline void real_column(const float* src, std::ptrdiff_t srcStep, float* dst, std::ptrdiff_t dstStep, const Plan& p,
                        float scale, float* work)
{
    const std::size_t h = std::size_t(1) << p.order;
    float* tmp = work;
    float* rest = work + ((h + 3) & ~std::size_t(3));
    for (std::size_t y = 0; y < h; ++y) tmp[y] = *row_at(src, srcStep, y);
    Inverse ? real_row_inverse(tmp, tmp, p, scale, rest) : real_row_forward(tmp, tmp, p, scale, rest);
    for (std::size_t y = 0; y < h; ++y) *row_at(dst, dstStep, y) = tmp[y];
}

template <bool Inverse, Layout L>
KelStatus real_transform(const Kel32f* pSrc, int srcStep, Kel32f* pDst, int dstStep, const Kel8u* pSpec, Kel8u* pBuffer)
{
    if (KelStatus s = check_transform(pSpec, kRealSpecId, pSrc, srcStep, pDst, dstStep, pBuffer)) return s;
    constexpr std::size_t C = channels<L>, kProcessed = has_alpha<L> ? 3 : C;
    const auto* spec = keli::spec::aligned<Spec2D>(pSpec);
    const Plan& pc = *spec->plan[0];
    const Plan& px = *spec->plan[1];
    const Plan& py = spec->plan[2] ? *spec->plan[2] : px;
    const std::size_t w = std::size_t(1) << spec->orderX, h = std::size_t(1) << spec->orderY;
    float* work = spec->bufferSize ? keli::spec::aligned<float>(pBuffer) : nullptr;
    const bool wide = spec->orderX >= kWideOrder && spec->orderY >= kWideOrder;
    const float sx = Inverse ? px.inverse_scale() : px.forward_scale();
    const float sy = Inverse ? py.inverse_scale() : py.forward_scale();
    const float sc = Inverse ? pc.inverse_scale() : pc.forward_scale();
    const std::size_t pairs = w > 2 ? w / 2 - 1 : 0;
    for (std::size_t ch = 0; ch < kProcessed; ++ch) {
        // Pointers below start at the channel; column pair k sits at pixels 2k - 1 and 2k.
        const Columns cols{static_cast<std::ptrdiff_t>(C), static_cast<std::ptrdiff_t>(2 * C), static_cast<std::ptrdiff_t>(C)};
        const float* src = pSrc + ch;
        float* dst = pDst + ch;
        // The forward rows read the source; the inverse rows run last, on the destination.
        const float* rowSrc = Inverse && h > 1 ? dst : src;
        if (!Inverse)
            for (std::size_t y = 0; y < h; ++y) real_row<false, C>(row_at(rowSrc, srcStep, y), row_at(dst, dstStep, y), px, sx, work);
        if (h > 1) {
            const float* colSrc = Inverse ? src : dst;
            const std::ptrdiff_t colStep = Inverse ? srcStep : dstStep;
            real_column<Inverse>(colSrc, colStep, dst, dstStep, py, sy, work);
            transform_columns<Inverse>(colSrc, colStep, dst, dstStep, cols, pairs, spec->orderY, pc.cplx, sc, wide, work);
            if (w > 1) real_column<Inverse>(colSrc + (w - 1) * C, colStep, dst + (w - 1) * C, dstStep, py, sy, work);
        }
        if (Inverse) {
            const std::ptrdiff_t step = h > 1 ? dstStep : srcStep;
            for (std::size_t y = 0; y < h; ++y) real_row<true, C>(row_at(rowSrc, step, y), row_at(dst, dstStep, y), px, sx, work);
        }
    }
    return kelStatusOk;
}

template <bool Inverse>
KelStatus complex_transform(const Kel32fc* pSrc, int srcStep, Kel32fc* pDst, int dstStep, const Kel8u* pSpec, Kel8u* pBuffer)
{
    if (KelStatus s = check_transform(pSpec, kComplexSpecId, pSrc, srcStep, pDst, dstStep, pBuffer)) return s;
    const auto* spec = keli::spec::aligned<Spec2D>(pSpec);
    const Plan& px = *spec->plan[0];
    const Plan& py = spec->plan[1] ? *spec->plan[1] : px;
    const int ox = spec->orderX, oy = spec->orderY;
    const std::size_t w = std::size_t(1) << ox, h = std::size_t(1) << oy;
    const auto* src = reinterpret_cast<const float*>(pSrc);
    auto* dst = reinterpret_cast<float*>(pDst);
    float* work = spec->bufferSize ? keli::spec::aligned<float>(pBuffer) : nullptr;
    const std::size_t usable = spec->bufferSize > 64 ? static_cast<std::size_t>(spec->bufferSize) - 64 : 0;
    const float sx = Inverse ? px.inverse_scale() : px.forward_scale();
    const float sy = Inverse ? py.inverse_scale() : py.forward_scale();
    // Short rows work on the stack; rows longer than the buffer holds go in place on one lane.
    alignas(64) float stackWork[64];
    const std::size_t rowBytes = row_work_bytes(ox);
    float* rowWork = rowBytes <= sizeof stackWork ? stackWork : rowBytes <= usable ? work : nullptr;
    for (std::size_t y = 0; y < h; ++y) {
        const float* in = row_at(src, srcStep, y);
        float* out = row_at(dst, dstStep, y);
        if (rowWork) {
            transform_row<Inverse>(in, out, ox, px.cplx, sx, rowWork);
        } else {
            if (in != out)
                for (std::size_t i = 0; i < 2 * w; ++i) out[i] = in[i];
            transform_row_in_place<Inverse>(out, ox, px.cplx, sx);
        }
    }
    if (h > 1) {
        const bool wide = ox >= kWideOrder && oy >= kWideOrder;
        transform_columns<Inverse>(dst, dstStep, dst, dstStep, Columns{0, 2, 1}, w, oy, py.cplx, sy, wide, work);
    }
    return kelStatusOk;
}

}  // namespace keli::fft
