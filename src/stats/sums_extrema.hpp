// keliSum, keliMean, keliMin, keliMax, keliMinMax, keliMinIndx, keliMaxIndx, keliBlockMinMax:
// reductions of an image to per-channel sums, means and extrema, with the checks of each family
// at the top of its body. Rows are visited first to last; the source step is taken as it
// stands (zero and negative steps included), except in keliBlockMinMax, which tests it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "frame/check.hpp"
#include "frame/layout.hpp"
#include "keli_types.h"
#include "stats/rows/sums_extrema_ext.hpp"
#include "stats/rows/sums_extrema_sum.hpp"

namespace keli {

namespace sums_detail {

template <class T> inline const T* row_at(const T* base, int step, std::int64_t y)
{
    return reinterpret_cast<const T*>(reinterpret_cast<const char*>(base) + y * step);
}

// A 64-bit total seen as a signed 32-bit integer, as the 8u several-channel paths keep it.
inline double as_i32(std::int64_t v) { return static_cast<double>(static_cast<std::int32_t>(static_cast<std::uint32_t>(v))); }

// Pixel count as a signed 32-bit product.
inline std::int32_t count32(KeliSize roi)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(roi.width) * static_cast<std::uint32_t>(roi.height));
}

// The largest pixel count whose 8u total (255 a pixel) stays below 2^31.
constexpr std::int64_t kSum8uExactPixels = 0x808080;

template <class T, Layout L> inline void sum_integer(const T* src, int step, KeliSize roi, Kel64f* out)
{
    constexpr int C = static_cast<int>(channels<L>);
    const std::size_t width = static_cast<std::size_t>(roi.width);
    if constexpr (sizeof(T) == 1 && C == 1) {
        // A row that ends where the next one starts is summed as one run.
        rows::Sum8uC1State st;
        if (step == roi.width) {
            rows::sum8u_c1_run(src, std::size_t(std::uint32_t(roi.width) * std::uint32_t(roi.height)), st);
        } else {
            for (int y = 0; y < roi.height; ++y) rows::sum8u_c1_run(row_at(src, step, y), width, st);
        }
        out[0] = static_cast<double>(rows::sum8u_c1_total(st));
    } else if constexpr (sizeof(T) == 1) {
        // Small images total in 32 bits; larger ones add each row's 32-bit total to a double,
        // so a single row of more than 0x808080 pixels wraps.
        const bool small = std::int64_t(roi.width) * roi.height <= kSum8uExactPixels;
        std::int64_t total[C] = {};
        double acc[C] = {};
        for (int y = 0; y < roi.height; ++y) {
            std::int64_t row[C] = {};
            rows::sum_widen_run<T, C>(row_at(src, step, y), width * C, row);
            for (int c = 0; c < C; ++c) {
                if (small) total[c] += row[c];
                else acc[c] += as_i32(row[c]);
            }
        }
        for (int c = 0; c < C; ++c) out[c] = small ? as_i32(total[c]) : acc[c];
    } else {
        // 16-bit totals are exact in 64 bits and below 2^53.
        std::int64_t total[C] = {};
        for (int y = 0; y < roi.height; ++y) rows::sum_widen_run<T, C>(row_at(src, step, y), width * C, total);
        for (int c = 0; c < C; ++c) out[c] = static_cast<double>(total[c]);
    }
}

// The hint arrives from C callers as any 32-bit value, most of which a C++ enumeration of three
// values cannot hold; it is read as the integer it is.
inline std::int32_t hint_value(const KelHintAlgorithm& hint)
{
    static_assert(sizeof(KelHintAlgorithm) == sizeof(std::int32_t));
    std::int32_t v;
    std::memcpy(&v, &hint, sizeof v);
    return v;
}

template <Layout L> inline void sum_32f(const Kel32f* src, int step, KeliSize roi, Kel64f* out, std::int32_t hint)
{
    constexpr int C = static_cast<int>(channels<L>);
    const std::size_t width = static_cast<std::size_t>(roi.width);
    alignas(16) double lanes[4];
    __m128d a = _mm_setzero_pd(), b = _mm_setzero_pd();
    if (hint == kelAlgHintAccurate) {
        for (int y = 0; y < roi.height; ++y) {
            if constexpr (C == 1) rows::sum32f_c1_accurate_row(row_at(src, step, y), width, a);
            else rows::sum32f_accurate_row<C>(row_at(src, step, y), width, a, b);
        }
    } else if constexpr (C == 3) {
        double acc[3] = {};
        for (int y = 0; y < roi.height; ++y) rows::sum32f_c3_fast_row(row_at(src, step, y), width, acc);
        for (int c = 0; c < 3; ++c) out[c] = acc[c];
        return;
    } else {
        for (int y = 0; y < roi.height; ++y) {
            if constexpr (C == 1) rows::sum32f_c1_fast_row(row_at(src, step, y), width, a);
            else rows::sum32f_c4_fast_row(row_at(src, step, y), width, a, b);
        }
    }
    _mm_store_pd(lanes, a);
    _mm_store_pd(lanes + 2, b);
    if constexpr (C == 1) out[0] = lanes[0] + lanes[1];
    else
        for (int c = 0; c < C; ++c) out[c] = lanes[c];
}

}  // namespace sums_detail

// ---- Sum and mean ----------------------------------------------------------------------------

template <class T, Layout L> KelStatus sum_image(const T* pSrc, int srcStep, KeliSize roi, Kel64f* pSum)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pSum), check::size(roi)})) return s;
    sums_detail::sum_integer<T, L>(pSrc, srcStep, roi, pSum);
    return kelStatusOk;
}

template <Layout L>
KelStatus sum_image_32f(const Kel32f* pSrc, int srcStep, KeliSize roi, Kel64f* pSum, const KelHintAlgorithm& hint)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pSum), check::size(roi)})) return s;
    sums_detail::sum_32f<L>(pSrc, srcStep, roi, pSum, sums_detail::hint_value(hint));
    return kelStatusOk;
}

// One channel divides by the count; several channels multiply by its reciprocal, computed once,
// so that a channel's mean may differ from the one-channel mean in the last bit.
template <Layout L> inline void divide_sums(const Kel64f* sums, KeliSize roi, Kel64f* pMean)
{
    const std::int32_t count = sums_detail::count32(roi);
    if constexpr (L == Layout::C1) {
        pMean[0] = sums[0] / count;
    } else {
        const double r = 1.0 / count;
        for (std::size_t c = 0; c < channels<L>; ++c) pMean[c] = sums[c] * r;
    }
}

template <class T, Layout L> KelStatus mean_image(const T* pSrc, int srcStep, KeliSize roi, Kel64f* pMean)
{
    if (KelStatus s = check::pointers(pMean)) return s;
    Kel64f sums[4];
    if (KelStatus s = sum_image<T, L>(pSrc, srcStep, roi, sums)) return s;
    divide_sums<L>(sums, roi, pMean);
    return kelStatusOk;
}

template <Layout L>
KelStatus mean_image_32f(const Kel32f* pSrc, int srcStep, KeliSize roi, Kel64f* pMean, const KelHintAlgorithm& hint)
{
    if (KelStatus s = check::pointers(pMean)) return s;
    Kel64f sums[4];
    if (KelStatus s = sum_image_32f<L>(pSrc, srcStep, roi, sums, hint)) return s;
    divide_sums<L>(sums, roi, pMean);
    return kelStatusOk;
}

// ---- Min, Max, MinMax ------------------------------------------------------------------------

// Lane layout of the extrema walk: two vectors, or three for three channels so that every
// lane keeps one channel.
template <Layout L> constexpr int kExtremaVectors = channels<L> == 3 ? 3 : 2;
template <Layout L> constexpr int kColourChannels = has_alpha<L> ? 3 : static_cast<int>(channels<L>);

template <class T, Layout L, bool DoMin, bool DoMax>
inline void extrema_image(const T* src, int step, KeliSize roi, T* outMin, T* outMax)
{
    constexpr int C = static_cast<int>(channels<L>), K = kExtremaVectors<L>;
    rows::Lanes<T, K> mn, mx;
    mn.fill(rows::MinOp<T>::seed);
    mx.fill(rows::MaxOp<T>::seed);
    const std::size_t n = static_cast<std::size_t>(roi.width) * C;
    for (int y = 0; y < roi.height; ++y)
        rows::extrema_run<T, K, DoMin, DoMax>(sums_detail::row_at(src, step, y), n, C == 1, mn.v, mx.v);
    for (int c = 0; c < kColourChannels<L>; ++c) {
        if constexpr (DoMin) outMin[c] = rows::fold_lanes<rows::MinOp<T>>(mn, c, C);
        if constexpr (DoMax) outMax[c] = rows::fold_lanes<rows::MaxOp<T>>(mx, c, C);
    }
}

template <class T, Layout L> KelStatus min_image(const T* pSrc, int srcStep, KeliSize roi, T* pMin)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pMin), check::size(roi)})) return s;
    extrema_image<T, L, true, false>(pSrc, srcStep, roi, pMin, nullptr);
    return kelStatusOk;
}

template <class T, Layout L> KelStatus max_image(const T* pSrc, int srcStep, KeliSize roi, T* pMax)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pMax), check::size(roi)})) return s;
    extrema_image<T, L, false, true>(pSrc, srcStep, roi, nullptr, pMax);
    return kelStatusOk;
}

template <class T, Layout L> KelStatus minmax_image(const T* pSrc, int srcStep, KeliSize roi, T* pMin, T* pMax)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pMin, pMax), check::size(roi)})) return s;
    extrema_image<T, L, true, true>(pSrc, srcStep, roi, pMin, pMax);
    return kelStatusOk;
}

// ---- MinIndx, MaxIndx ------------------------------------------------------------------------

// First occurrence in row-major order, in two passes: a row pass that keeps, per channel, the
// first row whose extreme is strictly better than the best so far, and one column search in
// that row. Integer forms start from the type's worst value and stop as soon as every channel
// holds the type's extreme. 32f forms never stop early; the several-channel forms start from the
// first pixel, keliMinIndx_32f_C1R from FLT_MAX (then, when nothing lies below FLT_MAX, the
// column search finds nothing and the column is reported as 0).
template <class Op, class T, Layout L> inline void index_image(const T* src, int step, KeliSize roi, T* val, int* px, int* py)
{
    constexpr int C = static_cast<int>(channels<L>), K = kExtremaVectors<L>, CH = kColourChannels<L>;
    constexpr bool isMin = std::is_same_v<Op, rows::MinOp<T>>;
    constexpr bool isFloat = std::is_same_v<T, Kel32f>;
    T best[4];
    int bestRow[4] = {0, 0, 0, 0};
    for (int c = 0; c < CH; ++c) best[c] = isFloat && C > 1 ? rows::load1(src + c) : Op::seed;
    const std::size_t n = static_cast<std::size_t>(roi.width) * C;
    for (int y = 0; y < roi.height; ++y) {
        rows::Lanes<T, K> lanes;
        lanes.fill(Op::seed);
        rows::extrema_run<T, K, isMin, !isMin>(sums_detail::row_at(src, step, y), n, C == 1, lanes.v, lanes.v);
        bool done = true;
        for (int c = 0; c < CH; ++c) {
            const T r = rows::fold_lanes<Op>(lanes, c, C);
            if (rows::better<Op>(r, best[c])) {
                best[c] = r;
                bestRow[c] = y;
            }
            if constexpr (!isFloat) done = done && best[c] == Op::bound;
        }
        if (!isFloat && done) break;
    }
    for (int c = 0; c < CH; ++c) {
        const int x = rows::find_column(sums_detail::row_at(src, step, bestRow[c]), roi.width, C, c, best[c]);
        val[c] = best[c];
        px[c] = x < 0 ? 0 : x;
        py[c] = bestRow[c];
    }
}

// keliMaxIndx_32f_C1R: seeded with the element at (0, 0), each row carries the running maximum
// through the first-index kernel.
inline void max_index_32f_c1(const Kel32f* src, int step, KeliSize roi, Kel32f* val, int* px, int* py)
{
    Kel32f m = rows::load1(src);
    std::size_t column = 0;
    int row = 0;
    for (int y = 0; y < roi.height; ++y) {
        std::size_t c = 0;
        if (rows::max32f_first_index_row(sums_detail::row_at(src, step, y), static_cast<std::size_t>(roi.width), m, c)) {
            column = c;
            row = y;
        }
    }
    *val = m;
    *px = static_cast<int>(column);
    *py = row;
}

template <class T, Layout L>
KelStatus min_index_image(const T* pSrc, int srcStep, KeliSize roi, T* pMin, int* pIndexX, int* pIndexY)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pMin, pIndexX, pIndexY), check::size(roi)})) return s;
    index_image<rows::MinOp<T>, T, L>(pSrc, srcStep, roi, pMin, pIndexX, pIndexY);
    return kelStatusOk;
}

template <class T, Layout L>
KelStatus max_index_image(const T* pSrc, int srcStep, KeliSize roi, T* pMax, int* pIndexX, int* pIndexY)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pMax, pIndexX, pIndexY), check::size(roi)})) return s;
    if constexpr (std::is_same_v<T, Kel32f> && L == Layout::C1) max_index_32f_c1(pSrc, srcStep, roi, pMax, pIndexX, pIndexY);
    else index_image<rows::MaxOp<T>, T, L>(pSrc, srcStep, roi, pMax, pIndexX, pIndexY);
    return kelStatusOk;
}

// ---- BlockMinMax -----------------------------------------------------------------------------

template <class T> inline void store_at(T* table, int step, int j, int i, T v)
{
    std::memcpy(reinterpret_cast<char*>(table) + static_cast<std::ptrdiff_t>(j) * step + i * sizeof(T), &v, sizeof v);
}

// The grid starts at the top left; a partial block at the right or bottom edge is a block of
// its own. The global extremes start from the first element and take each block's in block
// order with the same non-strict rule as the blocks themselves.
template <class T>
KelStatus block_minmax(const T* pSrc, int srcStep, KeliSize srcSize, T* pDstMin, int dstMinStep, T* pDstMax,
                       int dstMaxStep, KeliSize blockSize, T* pDstGlobalMin, T* pDstGlobalMax)
{
    constexpr std::int64_t E = sizeof(T);
    if (!pSrc || (!pDstMin && !pDstMax)) return kelStatusNullPtr;
    if (srcSize.width < 1 || srcSize.height < 1 || blockSize.width < 1 || blockSize.height < 1) return kelStatusBadSize;
    if (srcStep < srcSize.width * E) return kelStatusBadStep;
    const int nx = srcSize.width / blockSize.width + (srcSize.width % blockSize.width != 0);
    const int ny = srcSize.height / blockSize.height + (srcSize.height % blockSize.height != 0);
    if (pDstMin && dstMinStep < nx * E) return kelStatusBadStep;
    if (pDstMax && dstMaxStep < nx * E) return kelStatusBadStep;

    const bool kernel16 = blockSize.width == 16 && blockSize.height == 16;
    T gmin = rows::load1(pSrc), gmax = gmin;
    for (int j = 0; j < ny; ++j) {
        const int y0 = j * blockSize.height;
        const int rowsIn = std::min(blockSize.height, srcSize.height - y0);
        for (int i = 0; i < nx; ++i) {
            const int x0 = i * blockSize.width;
            const int n = std::min(blockSize.width, srcSize.width - x0);
            const char* base = reinterpret_cast<const char*>(pSrc) + static_cast<std::ptrdiff_t>(y0) * srcStep + x0 * E;
            const rows::BlockResult<T> r = kernel16 && rowsIn == 16 && n == 16
                                               ? rows::block_extrema_16x16<T>(base, srcStep)
                                               : rows::block_extrema<T>(base, srcStep, rowsIn, n);
            if (pDstMin) store_at(pDstMin, dstMinStep, j, i, r.mn);
            if (pDstMax) store_at(pDstMax, dstMaxStep, j, i, r.mx);
            gmin = r.mn <= gmin ? r.mn : gmin;
            gmax = gmax <= r.mx ? r.mx : gmax;
        }
    }
    if (pDstGlobalMin) *pDstGlobalMin = gmin;
    if (pDstGlobalMax) *pDstGlobalMax = gmax;
    return kelStatusOk;
}

}  // namespace keli
