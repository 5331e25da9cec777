// Plain models of the norms: element by element in wide integers or doubles. Integer totals are
// kept per tile (rows and columns from the width and the tile limit) and each tile's exact total
// becomes a double; 32f sums reuse the models of the float row sums on an image of the terms
// laid out at the same addresses modulo 16, so that the row heads fall where they fall.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>
#include <vector>

#include "reference/sums_extrema.hpp"

namespace reference {

enum class Norm { Inf, L1, L2 };

// The term of an element or of a pair in exact integers.
template <class T> inline std::int64_t int_term(Norm k, std::int64_t a, std::int64_t b)
{
    const std::int64_t d = a - b;
    return k == Norm::L2 ? d * d : d < 0 ? -d : d;
}

inline std::int64_t tile_limit(Norm k, int elementBytes)
{
    if (k == Norm::L2) return elementBytes == 1 ? 33025 : 2147549185LL;
    return elementBytes == 1 ? 0x808080 : 32768;
}

// Per-channel total of an integer norm (no square root), of a or of a - b (b.base null: a alone).
template <class T> inline void int_total(Norm k, View<T> a, View<T> b, double* out)
{
    const bool pair = b.base != nullptr;
    auto term = [&](int x, int y, int c) { return int_term<T>(k, a.at(x, y, c), pair ? b.at(x, y, c) : 0); };
    for (int c = 0; c < a.channels; ++c) {
        if (k == Norm::Inf) {
            std::int64_t m = 0;
            for (int y = 0; y < a.height; ++y)
                for (int x = 0; x < a.width; ++x) m = std::max(m, term(x, y, c));
            out[c] = double(std::int32_t(m));
            continue;
        }
        const std::int64_t limit = tile_limit(k, sizeof(T));
        const std::int64_t rows = std::min<std::int64_t>(std::max<std::int64_t>(limit / a.width, 1), a.height);
        const std::int64_t cols = std::min<std::int64_t>(std::max<std::int64_t>(limit / rows, 1), a.width);
        double acc = 0;
        for (std::int64_t y0 = 0; y0 < a.height; y0 += rows)
            for (std::int64_t x0 = 0; x0 < a.width; x0 += cols) {
                std::uint64_t t = 0;
                for (std::int64_t y = y0; y < std::min<std::int64_t>(y0 + rows, a.height); ++y)
                    for (std::int64_t x = x0; x < std::min<std::int64_t>(x0 + cols, a.width); ++x) t += term(int(x), int(y), c);
                acc += double(t);
            }
        out[c] = acc;
    }
}

// The float term of an element or a pair on the fast path, and in doubles on the accurate one.
inline float f32_term(Norm k, float a, float b, bool pair)
{
    const float d = pair ? a - b : a;
    return k == Norm::L2 ? d * d : std::fabs(d);
}
inline double f64_term(Norm k, float a, float b, bool pair)
{
    const double d = pair ? double(a) - double(b) : double(a);
    return k == Norm::L2 ? d * d : std::fabs(d);
}

// Per-channel total of a 32f norm (no square root).
inline void f32_total(Norm k, View<Kel32f> a, View<Kel32f> b, int hint, double* out)
{
    const bool pair = b.base != nullptr;
    const int C = a.channels;
    if (k == Norm::Inf) {
        for (int c = 0; c < C; ++c) {
            double m = 0;
            bool nan = false;
            for (int y = 0; y < a.height; ++y)
                for (int x = 0; x < a.width; ++x) {
                    const float d = pair ? a.at(x, y, c) - b.at(x, y, c) : a.at(x, y, c);
                    if (std::isnan(d)) nan = true;
                    m = std::max(m, double(std::fabs(d)));
                }
            out[c] = nan ? std::numeric_limits<double>::quiet_NaN() : m;
        }
        return;
    }
    if (hint == 2) {
        for (int c = 0; c < C; ++c) {
            double lane[2] = {0, 0};
            for (int y = 0; y < a.height; ++y)
                for (int x = 0; x < a.width; ++x)
                    lane[C == 1 ? x % 2 : 0] += f64_term(k, a.at(x, y, c), pair ? b.at(x, y, c) : 0.0f, pair);
            out[c] = C == 1 ? lane[0] + lane[1] : lane[0];
        }
        return;
    }
    // The terms at the same addresses modulo 16 and with the same step as the first image.
    const std::int64_t rowFloats = std::int64_t(a.width) * C;
    const std::int64_t span = std::int64_t(a.step) * (a.height - 1) + rowFloats * 4;
    std::vector<unsigned char> store(std::size_t(span) + 32);
    const std::uintptr_t want = reinterpret_cast<std::uintptr_t>(a.base) & 15;
    std::uintptr_t at = reinterpret_cast<std::uintptr_t>(store.data());
    at += (want - at) & 15;
    unsigned char* base = reinterpret_cast<unsigned char*>(at);
    for (int y = 0; y < a.height; ++y)
        for (int x = 0; x < a.width; ++x)
            for (int c = 0; c < C; ++c) {
                const float t = f32_term(k, a.at(x, y, c), pair ? b.at(x, y, c) : 0.0f, pair);
                std::memcpy(base + std::int64_t(y) * a.step + (std::int64_t(x) * C + c) * 4, &t, 4);
            }
    sum_32f(View<Kel32f>{reinterpret_cast<const Kel32f*>(base), a.step, a.width, a.height, C}, hint, out);
}

template <class T> inline void total(Norm k, View<T> a, View<T> b, int hint, double* out)
{
    if constexpr (std::is_same_v<T, Kel32f>) f32_total(k, a, b, hint, out);
    else int_total(k, a, b, out);
}

// The norm of a (b.base null) or of a - b. 8u L2 of one or four channels wider than 32768
// columns: strips of 32768 columns, each strip's norm squared and added, one last root.
template <class T> inline void norm(Norm k, View<T> a, View<T> b, int hint, double* out)
{
    if (std::is_same_v<T, Kel8u> && k == Norm::L2 && b.base == nullptr && a.channels != 3 && a.width > 32768) {
        double sum[4] = {};
        for (int x0 = 0; x0 < a.width; x0 += 32768) {
            View<T> strip{a.base + std::size_t(x0) * a.channels, a.step, std::min(32768, a.width - x0), a.height, a.channels};
            double s[4];
            norm(k, strip, b, hint, s);
            for (int c = 0; c < a.channels; ++c) sum[c] += s[c] * s[c];
        }
        for (int c = 0; c < a.channels; ++c) out[c] = std::sqrt(sum[c]);
        return;
    }
    total(k, a, b, hint, out);
    if (k == Norm::L2)
        for (int c = 0; c < a.channels; ++c) out[c] = std::sqrt(out[c]);
}

}  // namespace reference
