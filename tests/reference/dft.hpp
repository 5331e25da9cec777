// Plain f64 model of the two-dimensional DFT and of the packed real layout: direct sums along
// rows and then columns, angles reduced exactly before their sine and cosine.
#pragma once

#include <cmath>
#include <complex>
#include <cstddef>
#include <vector>

namespace ref {

using cd = std::complex<double>;

// e^(sign * 2*pi*i*t/n), with t reduced modulo n first so long lengths keep their accuracy.
inline cd unit_root(long long t, long long n, int sign)
{
    t %= n;
    if (t < 0) t += n;
    const double a = 6.283185307179586476925 * static_cast<double>(t) / static_cast<double>(n);
    return {std::cos(a), sign * std::sin(a)};
}

// 1-D DFT of n values spaced `stride` apart, in place; sign -1 forward, +1 inverse (unscaled).
inline void dft_1d(cd* x, std::size_t n, std::size_t stride, int sign)
{
    std::vector<cd> in(n), roots(n);
    for (std::size_t i = 0; i < n; ++i) in[i] = x[i * stride], roots[i] = unit_root(static_cast<long long>(i), n, sign);
    for (std::size_t k = 0; k < n; ++k) {
        cd s = 0;
        for (std::size_t j = 0; j < n; ++j) s += in[j] * roots[(j * k) % n];
        x[k * stride] = s;
    }
}

// 2-D DFT of a w x h image held row by row.
inline std::vector<cd> dft_2d(std::vector<cd> x, std::size_t w, std::size_t h, int sign)
{
    for (std::size_t y = 0; y < h; ++y) dft_1d(x.data() + y * w, w, 1, sign);
    for (std::size_t u = 0; u < w; ++u) dft_1d(x.data() + u, h, w, sign);
    return x;
}

// One bin of the 1-D DFT of a long real or complex sequence (for lengths too long for dft_1d).
inline cd dft_bin(const std::vector<cd>& x, long long k, int sign)
{
    cd s = 0;
    const long long n = static_cast<long long>(x.size());
    for (long long j = 0; j < n; ++j) s += x[j] * unit_root(j * k, n, sign);
    return s;
}

// The packed real layout of a full spectrum X (w x h, of a real image): rows packed along u,
// columns 0 and w-1 packed again along v, column pairs holding X(k, v) for all v.
inline std::vector<double> pack(const std::vector<cd>& X, std::size_t w, std::size_t h)
{
    std::vector<double> p(w * h);
    auto at = [&](std::size_t u, std::size_t v) { return X[v * w + u]; };
    // A real sequence s(0..n-1) along one axis, written packed through put(index, value).
    auto pack_line = [](std::size_t n, auto get, auto put) {
        put(0, get(0).real());
        for (std::size_t k = 1; 2 * k < n; ++k) {
            put(2 * k - 1, get(k).real());
            put(2 * k, get(k).imag());
        }
        if (n > 1) put(n - 1, get(n / 2).real());
    };
    // Column u of the row-packed image is the transform along v of a real sequence: its
    // values are X(u, v) for the row DFT's real bins (u = 0 and u = w/2).
    auto real_column = [&](std::size_t u, std::size_t col) {
        pack_line(h, [&](std::size_t v) { return at(u, v); }, [&](std::size_t v, double val) { p[v * w + col] = val; });
    };
    real_column(0, 0);
    if (w > 1) real_column(w / 2, w - 1);
    for (std::size_t k = 1; 2 * k < w; ++k)
        for (std::size_t v = 0; v < h; ++v) {
            p[v * w + 2 * k - 1] = at(k, v).real();
            p[v * w + 2 * k] = at(k, v).imag();
        }
    return p;
}

}  // namespace ref
