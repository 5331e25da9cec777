// keliNorm, keliNormDiff, keliNormRel: the largest absolute value, the sum of absolute values
// and the square root of the sum of squares of each channel, of one image or of the difference
// of two; the relative forms divide the norm of the difference by the norm of the second image.
//
// Integer sums are exact: the image is walked in tiles whose size follows from the width so that
// no integer lane can overflow inside a tile, and each tile's total goes to a 64-bit float.
// The 32f sums add each row in 32-bit floats in the order of the 32f row sums and the row
// totals in 64-bit floats, unless the caller asks for accuracy, which widens every element.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "frame/check.hpp"
#include "frame/layout.hpp"
#include "keli_types.h"
#include "stats/rows/norm_32f.hpp"
#include "stats/rows/norm_int.hpp"
#include "stats/sums_extrema.hpp"

namespace keli {

enum class NormKind { Inf, L1, L2 };

namespace norm_detail {

template <class T> inline const T* row_at(const T* base, int step, std::int64_t y)
{
    return reinterpret_cast<const T*>(reinterpret_cast<const char*>(base) + y * step);
}

// Two images walked together; `b` is null for a norm of one image.
template <class T> struct Pair {
    const T* a;
    int stepA;
    const T* b;
    int stepB;
    const T* rowA(std::int64_t y) const { return row_at(a, stepA, y); }
    const T* rowB(std::int64_t y) const { return b ? row_at(b, stepB, y) : nullptr; }
};

// Tile limits: the pixels a tile may hold so that its integer lanes cannot overflow.
// 33025 squares of 255 stay below 2^31 in 32-bit lanes; 2147549185 squares of 65535 within
// 2^63 in 64-bit lanes; 32768 absolute values of 65535 within 32 bits; 0x808080 bytes of 255
// below 2^31.
template <class T, NormKind K> constexpr std::int64_t kTileLimit =
    K == NormKind::L2 ? (sizeof(T) == 1 ? 33025 : 2147549185LL) : (sizeof(T) == 1 ? 0x808080 : 32768);

// Sums the terms of an image (or image pair) tile by tile: rowsPerTile rows from the width,
// colsPerTile columns from that, integer totals in each tile, each tile's totals to doubles.
template <class T, int C, class Term, class Acc>
inline void tiled_sum(Pair<T> im, KeliSize roi, std::int64_t limit, double* out)
{
    const std::int64_t w = roi.width, h = roi.height;
    const std::int64_t rowsPerTile = std::min(std::max<std::int64_t>(limit / w, 1), h);
    const std::int64_t colsPerTile = std::min(std::max<std::int64_t>(limit / rowsPerTile, 1), w);
    double acc[C] = {};
    for (std::int64_t y0 = 0; y0 < h; y0 += rowsPerTile) {
        const std::int64_t y1 = std::min(y0 + rowsPerTile, h);
        for (std::int64_t x0 = 0; x0 < w; x0 += colsPerTile) {
            const std::size_t cols = static_cast<std::size_t>(std::min(colsPerTile, w - x0));
            typename Acc::Total tot[C] = {};
            for (std::int64_t y = y0; y < y1; ++y) {
                const T* b = im.rowB(y);
                rows::term_run<T, C, Term, Acc>(im.rowA(y) + x0 * C, b ? b + x0 * C : nullptr, cols * C, tot);
            }
            for (int c = 0; c < C; ++c) acc[c] += static_cast<double>(tot[c]);
        }
    }
    for (int c = 0; c < C; ++c) out[c] = acc[c];
}

// Integer forms: the largest absolute value (a 32-bit integer, so -32768 gives 32768), the sum
// of absolute values or the sum of squares, per channel.
template <NormKind K, class T, int C> inline void int_total(Pair<T> im, KeliSize roi, double* out)
{
    const std::size_t n = static_cast<std::size_t>(roi.width) * C;
    const bool pair = im.b != nullptr;
    if constexpr (K == NormKind::Inf) {
        std::uint64_t m[C] = {};
        for (int y = 0; y < roi.height; ++y) {
            if (pair) rows::term_run<T, C, rows::TermAbsDiff, rows::AccMax>(im.rowA(y), im.rowB(y), n, m);
            else rows::term_run<T, C, rows::TermAbs, rows::AccMax>(im.rowA(y), nullptr, n, m);
        }
        for (int c = 0; c < C; ++c) out[c] = static_cast<double>(static_cast<std::int32_t>(m[c]));
    } else if constexpr (K == NormKind::L1 && sizeof(T) == 1 && C == 1) {
        // Bytes against zero or against each other need no tile: the lanes are 64 bits.
        std::uint64_t t = 0;
        for (int y = 0; y < roi.height; ++y)
            t += pair ? rows::sad8u_run<true>(im.rowA(y), im.rowB(y), n) : rows::sad8u_run<false>(im.rowA(y), nullptr, n);
        out[0] = static_cast<double>(t);
    } else {
        using Acc = std::conditional_t<K == NormKind::L2 && sizeof(T) == 2, rows::AccAdd64<false>, rows::AccAdd32>;
        constexpr std::int64_t limit = kTileLimit<T, K>;
        if (K == NormKind::L1) {
            if (pair) tiled_sum<T, C, rows::TermAbsDiff, Acc>(im, roi, limit, out);
            else tiled_sum<T, C, rows::TermAbs, Acc>(im, roi, limit, out);
        } else {
            if (pair) tiled_sum<T, C, rows::TermSqDiff, Acc>(im, roi, limit, out);
            else tiled_sum<T, C, rows::TermSq, Acc>(im, roi, limit, out);
        }
    }
}

// 32f sums of terms in the order of the 32f row sums; `Src` builds the term source of a row.
template <int C, class MakeSrc> inline void f32_sum(MakeSrc make, KeliSize roi, std::int32_t hint, double* out)
{
    const std::size_t w = static_cast<std::size_t>(roi.width);
    __m128d a = _mm_setzero_pd(), b = _mm_setzero_pd();
    if (hint == kelAlgHintAccurate) {
        for (int y = 0; y < roi.height; ++y) {
            if constexpr (C == 1) rows::sum32f_c1_accurate_row(make(y), w, a);
            else rows::sum32f_accurate_row<C>(make(y), w, a, b);
        }
    } else if constexpr (C == 3) {
        double acc[3] = {};
        for (int y = 0; y < roi.height; ++y) rows::sum32f_c3_fast_row(make(y), w, acc);
        for (int c = 0; c < 3; ++c) out[c] = acc[c];
        return;
    } else {
        for (int y = 0; y < roi.height; ++y) {
            if constexpr (C == 1) rows::sum32f_c1_fast_row(make(y), w, a);
            else rows::sum32f_c4_fast_row(make(y), w, a, b);
        }
    }
    alignas(16) double lanes[4];
    _mm_store_pd(lanes, a);
    _mm_store_pd(lanes + 2, b);
    if constexpr (C == 1) out[0] = lanes[0] + lanes[1];
    else
        for (int c = 0; c < C; ++c) out[c] = lanes[c];
}

// 32f forms: the largest absolute value (not-a-number if any element is one), the sum of
// absolute values or the sum of squares, per channel.
template <NormKind K, int C> inline void f32_total(Pair<Kel32f> im, KeliSize roi, std::int32_t hint, double* out)
{
    const bool pair = im.b != nullptr;
    if constexpr (K == NormKind::Inf) {
        const std::size_t n = static_cast<std::size_t>(roi.width) * C;
        rows::InfF32State<C> st;
        float m[C] = {};
        bool nan[C] = {};
        for (int y = 0; y < roi.height; ++y) {
            if (pair) rows::inf32f_run<C, true>(im.rowA(y), im.rowB(y), n, st, m, nan);
            else rows::inf32f_run<C, false>(im.rowA(y), nullptr, n, st, m, nan);
        }
        rows::inf32f_fold<C>(st, m, nan);
        for (int c = 0; c < C; ++c) out[c] = nan[c] ? std::numeric_limits<double>::quiet_NaN() : static_cast<double>(m[c]);
    } else {
        using Op = std::conditional_t<K == NormKind::L1, rows::NormAbsOp, rows::NormSqOp>;
        if (pair)
            f32_sum<C>([&](int y) { return rows::NormDiffSrc<Op>{im.rowA(y), im.rowB(y)}; }, roi, hint, out);
        else
            f32_sum<C>([&](int y) { return rows::NormSrc<Op>{im.rowA(y)}; }, roi, hint, out);
    }
}

// The per-channel total of a norm before its square root: the largest absolute value, the sum
// of absolute values, or the sum of squares.
template <NormKind K, class T, int C> inline void total(Pair<T> im, KeliSize roi, std::int32_t hint, double* out)
{
    if constexpr (std::is_same_v<T, Kel32f>) f32_total<K, C>(im, roi, hint, out);
    else int_total<K, T, C>(im, roi, out);
}

template <NormKind K, class T, int C> inline void norm_value(Pair<T> im, KeliSize roi, std::int32_t hint, double* out)
{
    // Wide one- and four-channel 8u images take their L2 norm strip by strip, 32768 columns at a
    // time, each strip's norm squared again and added up before the last square root. This
    // loses a little against one sum of squares, and callers see exactly this rounding.
    constexpr std::int32_t kStrip = 32768;
    if constexpr (K == NormKind::L2 && sizeof(T) == 1 && C != 3) {
        if (roi.width > kStrip && im.b == nullptr) {
            double sum[C] = {};
            for (std::int32_t x0 = 0; x0 < roi.width; x0 += kStrip) {
                const KeliSize strip{std::min(kStrip, roi.width - x0), roi.height};
                double s[C];
                norm_value<K, T, C>(Pair<T>{im.a + std::size_t(x0) * C, im.stepA, nullptr, 0}, strip, hint, s);
                for (int c = 0; c < C; ++c) sum[c] += s[c] * s[c];
            }
            for (int c = 0; c < C; ++c) out[c] = std::sqrt(sum[c]);
            return;
        }
    }
    total<K, T, C>(im, roi, hint, out);
    if constexpr (K == NormKind::L2)
        for (int c = 0; c < C; ++c) out[c] = std::sqrt(out[c]);
}

// Checks of the norms: pointers, size, steps; the 16u members test the steps before the size.
template <class T, class... P> inline KelStatus check_norm(KeliSize roi, std::initializer_list<int> steps, const P*... p)
{
    KelStatus stepStatus = kelStatusOk;
    for (int s : steps)
        if (s < 1) stepStatus = kelStatusBadStep;
    if constexpr (std::is_same_v<T, Kel16u>) return check::first({check::pointers(p...), stepStatus, check::size(roi)});
    else return check::first({check::pointers(p...), check::size(roi), stepStatus});
}

// The quotient of a relative norm, with its divisor of zero: for integers a divisor of exactly
// zero, for 32f one below the smallest normal double. Nothing over nothing is the not-a-number
// 0xFFF8000000000000, something over nothing is infinity, and both warn.
template <class T> inline bool relative(double num, double den, double& out)
{
    constexpr double kTiny = std::numeric_limits<double>::min();
    const bool zeroDen = std::is_same_v<T, Kel32f> ? den < kTiny : den == 0.0;
    const bool zeroNum = std::is_same_v<T, Kel32f> ? num < kTiny : num == 0.0;
    if (!zeroDen) {
        out = num / den;
        return false;
    }
    if (zeroNum) {
        const std::uint64_t bits = 0xFFF8000000000000ull;
        std::memcpy(&out, &bits, sizeof out);
    } else {
        out = std::numeric_limits<double>::infinity();
    }
    return true;
}

}  // namespace norm_detail

template <NormKind K, class T, Layout L>
KelStatus norm_image(const T* pSrc, int srcStep, KeliSize roi, Kel64f* pValue, std::int32_t hint = kelAlgHintNone)
{
    if (KelStatus s = norm_detail::check_norm<T>(roi, {srcStep}, pSrc, pValue)) return s;
    norm_detail::norm_value<K, T, int(channels<L>)>({pSrc, srcStep, nullptr, 0}, roi, hint, pValue);
    return kelStatusOk;
}

template <NormKind K, class T, Layout L>
KelStatus norm_image_hint(const T* pSrc, int srcStep, KeliSize roi, Kel64f* pValue, const KelHintAlgorithm& hint)
{
    return norm_image<K, T, L>(pSrc, srcStep, roi, pValue, sums_detail::hint_value(hint));
}

template <NormKind K, class T, Layout L>
KelStatus norm_diff(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, KeliSize roi, Kel64f* pValue,
                    std::int32_t hint = kelAlgHintNone)
{
    if (KelStatus s = norm_detail::check_norm<T>(roi, {src1Step, src2Step}, pSrc1, pSrc2, pValue)) return s;
    norm_detail::norm_value<K, T, int(channels<L>)>({pSrc1, src1Step, pSrc2, src2Step}, roi, hint, pValue);
    return kelStatusOk;
}

template <NormKind K, class T, Layout L>
KelStatus norm_diff_hint(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, KeliSize roi, Kel64f* pValue,
                         const KelHintAlgorithm& hint)
{
    return norm_diff<K, T, L>(pSrc1, src1Step, pSrc2, src2Step, roi, pValue, sums_detail::hint_value(hint));
}

// The relative norm: both totals first, then one quotient per channel; the L2 form takes one
// square root of the quotient of the sums of squares.
template <NormKind K, class T, Layout L>
KelStatus norm_rel(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, KeliSize roi, Kel64f* pValue,
                   std::int32_t hint = kelAlgHintNone)
{
    constexpr int C = int(channels<L>);
    if (KelStatus s = norm_detail::check_norm<T>(roi, {src1Step, src2Step}, pSrc1, pSrc2, pValue)) return s;
    double num[C], den[C];
    norm_detail::total<K, T, C>({pSrc1, src1Step, pSrc2, src2Step}, roi, hint, num);
    norm_detail::total<K, T, C>({pSrc2, src2Step, nullptr, 0}, roi, hint, den);
    KelStatus status = kelStatusOk;
    for (int c = 0; c < C; ++c) {
        if (norm_detail::relative<T>(num[c], den[c], pValue[c])) status = kelStatusDivByZeroWarn;
        else if (K == NormKind::L2) pValue[c] = std::sqrt(pValue[c]);
    }
    return status;
}

template <NormKind K, class T, Layout L>
KelStatus norm_rel_hint(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, KeliSize roi, Kel64f* pValue,
                        const KelHintAlgorithm& hint)
{
    return norm_rel<K, T, L>(pSrc1, src1Step, pSrc2, src2Step, roi, pValue, sums_detail::hint_value(hint));
}

}  // namespace keli
