// Plain model of the quality index: the means from the models of the sums, each row's centred
// elements one by one in 32-bit floats, their products and squares summed in the order of the
// float row sums (on a copy at a 16-byte boundary, where the scratch planes start), and the
// final quotient in doubles.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <vector>

#include "reference/sums_extrema.hpp"

namespace reference {

// Per colour channel (the first `colours` of the view's channels): the index, or the
// not-a-number 0xFFC00000 where the denominator is too small; returns whether any channel had.
template <class T> inline bool quality(View<T> a, View<T> b, int colours, float* out)
{
    const int C = a.channels;
    double mean[2][4];
    const View<T> v[2] = {a, b};
    for (int k = 0; k < 2; ++k) {
        double s[4];
        if constexpr (std::is_same_v<T, Kel32f>) sum_32f(v[k], 1, s);
        else sum_int(v[k], s);
        const std::int32_t count = std::int32_t(std::uint32_t(a.width) * std::uint32_t(a.height));
        for (int c = 0; c < C; ++c) mean[k][c] = C == 1 ? s[c] / count : s[c] * (1.0 / count);
    }
    std::vector<float> store(std::size_t(a.width) + 8);
    float* row = store.data();
    while (reinterpret_cast<std::uintptr_t>(row) % 16) ++row;
    auto row_sum = [&](auto term) {
        for (int x = 0; x < a.width; ++x) row[x] = term(x);
        return sum_32f_c1_fast(View<Kel32f>{row, 0, a.width, 1, 1});
    };
    bool failed = false;
    for (int c = 0; c < colours; ++c) {
        const float m1 = float(mean[0][c]), m2 = float(mean[1][c]);
        float sxy = 0, sq1 = 0, sq2 = 0;
        for (int y = 0; y < a.height; ++y) {
            auto d1 = [&](int x) { return float(a.at(x, y, c)) - m1; };
            auto d2 = [&](int x) { return float(b.at(x, y, c)) - m2; };
            sxy += float(row_sum([&](int x) { return d1(x) * d2(x); }));
            const float n1 = float(std::sqrt(row_sum([&](int x) { return d1(x) * d1(x); })));
            const float n2 = float(std::sqrt(row_sum([&](int x) { return d2(x) * d2(x); })));
            sq1 += n1 * n1;
            sq2 += n2 * n2;
        }
        const double den = (mean[1][c] * mean[1][c] + mean[0][c] * mean[0][c]) * (double(sq1) + double(sq2));
        if (den >= 1.1920928955078125e-7) {
            out[c] = float(mean[0][c] * mean[1][c] * double(4.0f * sxy) / den);
        } else {
            const std::uint32_t nan = 0xFFC00000u;
            std::memcpy(&out[c], &nan, sizeof nan);
            failed = true;
        }
    }
    return failed;
}

}  // namespace reference
