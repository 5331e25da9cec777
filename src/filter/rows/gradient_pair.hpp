// The two derivatives of a gradient in one pass over the window, and what is made of them while
// they are still in registers.
//
// gx and gy share the window: each source vector is loaded once and enters both column sums
// (for Sobel the smoothing column 1 2 1 of gx and the difference column -1 0 1 of gy), whose
// row sums then give the two outputs. Each mask keeps its own order, the order of the single
// derivative kernels (every column's weighted sum top to bottom, then the column sums left to
// right), so the pair equals those kernels bit for bit, f32 included. The blocks walk the
// segment as the single kernels do: column sums of the next block carried over, and the blocks
// near the end taken from a block loaded to end there, the last overlapping the one before.
#pragma once

#include <cstdint>
#include <type_traits>

#include "filter/rows/derivative.hpp"
#include "filter/rows/gradient.hpp"
#include "keli_types.h"
#include "simd/sse.hpp"

namespace keli::rows::gradient {

// T source, D derivative type, K mask size, CodeX and CodeY the masks of gx and gy.
template <class T, class D, int K, int CodeX, int CodeY> class PairKernel {
    using X = derivative::Lanes<T, D>;
    using V = typename X::V;
    using MX = derivative::MaskOf<CodeX, K>;
    using MY = derivative::MaskOf<CodeY, K>;

    struct Pair {
        V x, y;
    };

public:
    static constexpr int B = X::B;

    // Calls emit(i, gx, gy) for blocks of B outputs at i covering outputs 0 .. n - 1 (n >= B),
    // from rows whose first n + K - 1 columns may be read.
    template <class Emit> static void run(const T* const* table, std::int64_t n, const Emit& sink)
    {
        // Local copies: the output stores may alias any memory, and would otherwise make every
        // block reload the row pointers and the sink's fields.
        const T* rows[K];
        for (int j = 0; j < K; ++j) rows[j] = table[j];
        const Emit emit = sink;
        const std::int64_t readable = n + K - 1;
        std::int64_t x = 0;
        if (readable >= 2 * B) {
            Pair lo = column_sums(rows, 0);
            for (; x + B <= n && x + 2 * B <= readable; x += B) {
                const Pair hi = column_sums(rows, x + B);
                emit(x, row_sum<MX>(lo.x, hi.x), row_sum<MY>(lo.y, hi.y));
                lo = hi;
            }
        }
        for (; x + B <= n; x += B) ending_block(rows, x, emit);
        if (x < n) ending_block(rows, n - B, emit);
    }

private:
    // Both column sums of columns x .. x + B - 1, from one load of each row.
    static Pair column_sums(const T* const* rows, std::int64_t x)
    {
        V v[K];
        derivative::unrolled<K>([&](auto j) { v[decltype(j)::value] = X::load(rows[decltype(j)::value] + x); });
        const auto at = [&](auto j) { return v[decltype(j)::value]; };
        return {derivative::weighted_sum<X, MX::col, K, V>(at), derivative::weighted_sum<X, MY::col, K, V>(at)};
    }

    template <class M> static V row_sum(V lo, V hi)
    {
        return derivative::weighted_sum<X, M::row, K, V>(
            [&](auto i) { return X::template shifted<decltype(i)::value>(lo, hi); });
    }

    // The block at x reading no column past x + B + K - 1.
    template <class Emit> static void ending_block(const T* const* rows, std::int64_t x, const Emit& emit)
    {
        const Pair lo = column_sums(rows, x), end = column_sums(rows, x + K - 1);
        const V hx = X::template shifted<B - K + 1>(end.x, X::splat(0));
        const V hy = X::template shifted<B - K + 1>(end.y, X::splat(0));
        emit(x, row_sum<MX>(lo.x, hx), row_sum<MY>(lo.y, hy));
    }
};

// The caller's rows of one segment (null where an output is not wanted), fed one vector of
// derivatives at a time: the derivatives themselves and, when Derived, the magnitude and the
// angle. Without them the loop calls nothing and keeps its pointers in registers.
template <class D, bool Derived> struct Sink {
    using R = simd::reg_t<D>;
    D *gx, *gy, *magnitude;
    Kel32f* angle;
    bool l1;

    [[gnu::always_inline]] void operator()(std::int64_t i, R x, R y) const
    {
        if (gx) simd::storeu(gx + i, x);
        if (gy) simd::storeu(gy + i, y);
        if constexpr (Derived) {
            if (magnitude) simd::storeu(magnitude + i, l1 ? magnitude_l1(x, y) : magnitude_l2(x, y));
            if (angle) gradient::angle(x, y, angle + i);
        }
    }

    // Derivatives of 16-bit sources for f32 outputs: exact integers in 32-bit lanes.
    template <class V, class = std::enable_if_t<!std::is_same_v<V, R>>>
    [[gnu::always_inline]] void operator()(std::int64_t i, V x, V y) const
    {
        (*this)(i, _mm_cvtepi32_ps(x), _mm_cvtepi32_ps(y));
    }
};

}  // namespace keli::rows::gradient
