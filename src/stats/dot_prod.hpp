// keliDotProd: per channel, the sum over the region of the products of two images' elements.
// 8u and 16-bit elements multiply exactly in integer lanes, tile by tile as in the norms, each
// tile's total going to a 64-bit float; 32f, 32s and 32u elements are widened to 64-bit floats
// before they are multiplied, and each row's total is added to a running 64-bit float.
// keliDotProdCol: a linear combination of vectors, taken three at a time.
#pragma once

#include <algorithm>
#include <cstdint>
#include <type_traits>

#include "frame/check.hpp"
#include "frame/layout.hpp"
#include "keli_types.h"
#include "stats/norms.hpp"
#include "stats/rows/dot_prod.hpp"

namespace keli {

namespace dot_detail {

// 33025 products of 255 stay below 2^31 in 32-bit lanes; 2147549185 products of 16-bit
// magnitudes within 2^63 in 64-bit lanes (16u products read unsigned, 16s products signed).
template <class T> constexpr std::int64_t kTileLimit = sizeof(T) == 1 ? 33025 : 2147549185LL;

template <class T>
using IntAcc = std::conditional_t<sizeof(T) == 1, rows::AccAdd32, rows::AccAdd64<std::is_same_v<T, Kel16s>>>;

// Rows of 64-bit float products: one channel two rows at a time, the row totals added in row
// order; several channels row by row.
template <class T, int C> inline void wide_total(norm_detail::Pair<T> im, KeliSize roi, double* out)
{
    const std::size_t w = static_cast<std::size_t>(roi.width);
    double acc[4] = {};
    int y = 0;
    if constexpr (C == 1) {
        for (; roi.height - y >= 2; y += 2) {
            const T* a[2] = {im.rowA(y), im.rowA(y + 1)};
            const T* b[2] = {im.rowB(y), im.rowB(y + 1)};
            double t[2];
            rows::dot64_c1_rows<T, 2>(a, b, w, t);
            acc[0] += t[0];
            acc[0] += t[1];
        }
        for (; y < roi.height; ++y) {
            const T* a[1] = {im.rowA(y)};
            const T* b[1] = {im.rowB(y)};
            double t[1];
            rows::dot64_c1_rows<T, 1>(a, b, w, t);
            acc[0] += t[0];
        }
    } else {
        for (; y < roi.height; ++y) rows::dot64_cn_row<T, C>(im.rowA(y), im.rowB(y), w, acc);
    }
    std::copy(acc, acc + C, out);
}

}  // namespace dot_detail

template <class T, Layout L>
KelStatus dot_prod(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, KeliSize roi, Kel64f* pDp)
{
    // A zero step is refused with the size status; any other step is taken as it stands.
    const bool badSize = roi.width < 1 || roi.height < 1 || src1Step == 0 || src2Step == 0;
    if (KelStatus s = check::first({check::pointers(pSrc1, pSrc2, pDp), badSize ? kelStatusBadSize : kelStatusOk}))
        return s;
    // AC4 reads the alpha products with the rest and reports the colour channels only.
    constexpr int C = int(channels<L>), Taken = has_alpha<L> ? 3 : C;
    const norm_detail::Pair<T> im{pSrc1, src1Step, pSrc2, src2Step};
    double out[C];
    if constexpr (sizeof(T) <= 2)
        norm_detail::tiled_sum<T, C, rows::TermProd, dot_detail::IntAcc<T>>(im, roi, dot_detail::kTileLimit<T>, out);
    else
        dot_detail::wide_total<T, C>(im, roi, out);
    std::copy(out, out + Taken, pDp);
    return kelStatusOk;
}

// pDst[i] = sum over k of pCoeffs[k] * ppVectors[k][i], in groups of three vectors in list
// order: the first group's sum sets pDst, each further group adds its own sum to it.
template <class F> KelStatus dot_prod_col(const F* const* ppVectors, const F* pCoeffs, int count, F* pDst, int length)
{
    if (KelStatus s = check::pointers(ppVectors, pCoeffs, pDst)) return s;
    for (int k = 0; k < count; ++k)
        if (!ppVectors[k]) return kelStatusNullPtr;
    if (length < 1 || count < 1) return kelStatusBadSize;
    for (int k = 0; k < count; k += 3) {
        rows::CombGroup<F> g{{ppVectors[k], ppVectors[k], ppVectors[k]}, {pCoeffs[k], F(0), F(0)}, std::min(3, count - k), k == 0};
        for (int j = 1; j < g.n; ++j) {
            g.v[j] = ppVectors[k + j];
            g.c[j] = pCoeffs[k + j];
        }
        rows::comb_run(g, pDst, static_cast<std::size_t>(length));
    }
    return kelStatusOk;
}

}  // namespace keli
