// keliRemap's scalar pixel: the formula of each kind applied to one destination pixel, and the
// smooth edge band. The row kernels fall back to it for heads, tails and every kind without a
// vector kernel.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "frame/layout.hpp"
#include "geometry/remap_model.hpp"

namespace keli::remap {

enum class Kind : std::uint32_t { Nearest = 1, Linear = 2, Lagrange = 4, Cubic = 6, Lanczos = 16 };

// Elements a pixel carries in memory, and those the call writes (AC4 keeps its fourth).
template <Layout L> constexpr int kStride = static_cast<int>(channels<L>);
template <Layout L> constexpr int kWritten = L == Layout::AC4 ? 3 : kStride<L>;

// The source image as the taps see it: pixel (x, y) in image coordinates.
template <class T, Layout L> struct Source {
    const std::uint8_t* base;
    std::ptrdiff_t step;
    const T* row(int y) const { return reinterpret_cast<const T*>(base + step * y); }
    const T* at(int x, int y) const { return row(y) + static_cast<std::ptrdiff_t>(x) * kStride<L>; }
};

// Maps of the 64f members are f64, all others f32.
template <class T> using MapValue = std::conditional_t<std::is_same_v<T, Kel64f>, Kel64f, Kel32f>;

// Rows filtered by the x weights, then the row results by the y weights, one channel at a time.
template <class T, Layout L, int N, class W>
inline void separable(const Source<T, L>& s, const int* ix, const W* wx, const int* iy, const W* wy, T* d)
{
    for (int c = 0; c < kWritten<L>; ++c) {
        W acc = 0;
        for (int r = 0; r < N; ++r) {
            const T* row = s.row(iy[r]);
            W h = static_cast<W>(row[ix[0] * kStride<L> + c]) * wx[0];
            for (int k = 1; k < N; ++k) h += static_cast<W>(row[ix[k] * kStride<L> + c]) * wx[k];
            acc = r == 0 ? h * wy[0] : acc + h * wy[r];
        }
        d[c] = store_value<T>(acc);
    }
}

// One pixel whose position passed the window test. `floating` asks the 8u members for the
// floating-point formula of their kind, which the smooth mode uses for every pixel so that the
// inside and the faded band are computed alike: for Linear that is the f32 product form of the
// 16-bit members (rounded to even, saturated), for Lagrange the f32 polynomials.
template <class T, Layout L, class M>
inline void pixel(Kind kind, bool floating, const Source<T, L>& s, const Window& w, M mx, M my, T* d)
{
    using W = Real<T>;
    constexpr bool fixed8u = std::is_same_v<T, Kel8u>;
    switch (kind) {
    case Kind::Nearest: {
        const T* p = s.at(nearest_index(mx, w.x1), nearest_index(my, w.y1));
        for (int c = 0; c < kWritten<L>; ++c) d[c] = p[c];
        return;
    }
    case Kind::Linear: {
        const auto tx = linear_taps(mx, w.x0, w.x1), ty = linear_taps(my, w.y0, w.y1);
        const T *p00 = s.at(tx.i0, ty.i0), *p01 = s.at(tx.i1, ty.i0);
        const T *p10 = s.at(tx.i0, ty.i1), *p11 = s.at(tx.i1, ty.i1);
        for (int c = 0; c < kWritten<L>; ++c) {
            if constexpr (std::is_same_v<T, Kel64f>) {
                d[c] = linear_lerp(p00[c], p01[c], p10[c], p11[c], tx.f, ty.f);
            } else {
                if (fixed8u && !floating)
                    d[c] = static_cast<T>(linear_8u(p00[c], p01[c], p10[c], p11[c], linear_q14(tx.f), linear_q14(ty.f)));
                else
                    d[c] = store_value<T>(linear_product(p00[c], p01[c], p10[c], p11[c], tx.f, ty.f));
            }
        }
        return;
    }
    case Kind::Lagrange: {
        const auto tx = lagrange_taps(mx, w.x0, w.x1), ty = lagrange_taps(my, w.y0, w.y1);
        if (fixed8u && !floating) {
            const auto wx = lagrange_q14(static_cast<float>(tx.f)), wy = lagrange_q14(static_cast<float>(ty.f));
            for (int c = 0; c < kWritten<L>; ++c) {
                int acc = 0;
                for (int r = 0; r < 4; ++r) {
                    const T* row = s.row(ty.index[r]);
                    int h = 0;
                    for (int k = 0; k < 4; ++k) h += row[tx.index[k] * kStride<L> + c] * wx[k];
                    acc += (h >> 8) * wy[r];
                }
                d[c] = static_cast<T>(std::min(std::max((acc + 0x80000) >> 20, 0), 255));
            }
        } else {
            const auto wx = lagrange_weights(static_cast<W>(tx.f)), wy = lagrange_weights(static_cast<W>(ty.f));
            separable<T, L, 4>(s, tx.index, wx.data(), ty.index, wy.data(), d);
        }
        return;
    }
    case Kind::Cubic: {
        const auto tx = centred_taps<4>(mx, 1, w.x0, w.x1), ty = centred_taps<4>(my, 1, w.y0, w.y1);
        const auto wx = cubic_weights(static_cast<W>(tx.f)), wy = cubic_weights(static_cast<W>(ty.f));
        separable<T, L, 4>(s, tx.index, wx.data(), ty.index, wy.data(), d);
        return;
    }
    case Kind::Lanczos: {
        const auto tx = centred_taps<6>(mx, 2, w.x0, w.x1), ty = centred_taps<6>(my, 2, w.y0, w.y1);
        const auto fx = lanczos_weights(static_cast<float>(tx.f)), fy = lanczos_weights(static_cast<float>(ty.f));
        W wx[6], wy[6];
        for (int k = 0; k < 6; ++k) wx[k] = fx[k], wy[k] = fy[k];
        separable<T, L, 6>(s, tx.index, wx, ty.index, wy, d);
        return;
    }
    }
}

template <class M> inline bool inside(M mx, M my, const Window& w)
{
    return mx >= M(w.x0) && mx <= M(w.x1) && my >= M(w.y0) && my <= M(w.y1);
}

// One pixel of a smooth-edged call: inside the window by its kind's floating formula, in the
// band around it a blend of the nearest edge pixel and the old destination value.
template <class T, Layout L, class M>
inline void smooth_pixel(Kind kind, const Source<T, L>& s, const Window& w, M mx, M my, T* d)
{
    if (inside(mx, my, w)) return pixel(kind, true, s, w, mx, my, d);
    if (!(mx >= M(w.x0) - 1 && mx <= M(w.x1) + 1 && my >= M(w.y0) - 1 && my <= M(w.y1) + 1)) return;
    using W = Real<T>;
    const auto band = band_tap(mx, my, w);
    const T* p = s.at(band.c, band.r);
    for (int c = 0; c < kWritten<L>; ++c) {
        const W S = static_cast<W>(p[c]), D = static_cast<W>(d[c]);
        d[c] = store_value<T>(S + (D - S) * static_cast<W>(band.w));
    }
}

// The scalar row: pixels [x0, x1) of one destination row.
template <class T, Layout L, class M>
inline void scalar_row(Kind kind, bool smooth, const Source<T, L>& s, const Window& w, const M* xm, const M* ym, T* d,
                       int x0, int x1)
{
    for (int x = x0; x < x1; ++x) {
        T* out = d + static_cast<std::ptrdiff_t>(x) * kStride<L>;
        if (smooth) smooth_pixel(kind, s, w, xm[x], ym[x], out);
        else if (inside(xm[x], ym[x], w)) pixel(kind, false, s, w, xm[x], ym[x], out);
    }
}

}  // namespace keli::remap
