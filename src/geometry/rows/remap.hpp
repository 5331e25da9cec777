// keliRemap's row kernels: one destination row from its two map rows.
//
// Nearest and Linear with f32 maps run four map positions at a time: the window test, indices,
// fractions and weights are vector arithmetic, the taps are gathered by scalar loads (a map can
// point anywhere), and the interpolation is vector arithmetic again: four pixels in the lanes
// for one channel, or the channels of one pixel in the lanes for three and four. Pixels that
// fail the test are never read nor written. Every other kind, the smooth mode, the f64 maps and
// the last width % 4 pixels run the scalar pixel of the model, which gives the same results.
// Cubic of one channel runs the same way, sixteen taps a pixel.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "geometry/remap_pixel.hpp"
#include "simd/sse.hpp"

namespace keli::remap::rows {

// The window as vectors, for the test and the index limits.
// Byte offsets of taps are computed in 32-bit lanes, which holds when the window's last byte
// lies within 2^31 of the image start; larger images take the scalar row.
struct WindowV {
    __m128 x0, x1, y0, y1;
    __m128i ix0, ix1, iy0, iy1, step, pixelBytes;
    WindowV(const Window& w, std::ptrdiff_t rowStep, int bytes)
        : x0(_mm_set1_ps(float(w.x0))), x1(_mm_set1_ps(float(w.x1))), y0(_mm_set1_ps(float(w.y0))),
          y1(_mm_set1_ps(float(w.y1))), ix0(_mm_set1_epi32(w.x0)), ix1(_mm_set1_epi32(w.x1)),
          iy0(_mm_set1_epi32(w.y0)), iy1(_mm_set1_epi32(w.y1)), step(_mm_set1_epi32(static_cast<int>(rowStep))),
          pixelBytes(_mm_set1_epi32(bytes))
    {
    }
    static bool fits(const Window& w, std::ptrdiff_t rowStep, int bytes)
    {
        return static_cast<std::int64_t>(w.y1) * rowStep + static_cast<std::int64_t>(w.x1 + 1) * bytes < (std::int64_t(1) << 31);
    }
    __m128i offset(__m128i x, __m128i y) const
    {
        return _mm_add_epi32(_mm_mullo_epi32(y, step), _mm_mullo_epi32(x, pixelBytes));
    }
    // Lanes whose position lies in the window; NaN fails every ordered compare.
    int test(__m128 mx, __m128 my) const
    {
        const __m128 inX = _mm_and_ps(_mm_cmpge_ps(mx, x0), _mm_cmple_ps(mx, x1));
        const __m128 inY = _mm_and_ps(_mm_cmpge_ps(my, y0), _mm_cmple_ps(my, y1));
        return _mm_movemask_ps(_mm_and_ps(inX, inY));
    }
};

template <class T, Layout L> inline void copy_pixel(const T* p, T* d)
{
    for (int c = 0; c < kWritten<L>; ++c) d[c] = p[c];
}

template <class T, Layout L>
inline void nearest_row(const Source<T, L>& s, const Window& w, const float* xm, const float* ym, T* d, int width)
{
    constexpr int P = kStride<L> * sizeof(T);
    int x = 0;
    if (WindowV::fits(w, s.step, P)) {
        const WindowV v(w, s.step, P);
        const __m128 half = _mm_set1_ps(0.5f);
        alignas(16) int at[4];
        for (; x + 4 <= width; x += 4) {
            const __m128 mx = _mm_loadu_ps(xm + x), my = _mm_loadu_ps(ym + x);
            const int bits = v.test(mx, my);
            if (bits == 0) continue;
            const __m128i ix = _mm_min_epi32(_mm_cvttps_epi32(_mm_add_ps(mx, half)), v.ix1);
            const __m128i iy = _mm_min_epi32(_mm_cvttps_epi32(_mm_add_ps(my, half)), v.iy1);
            _mm_store_si128(reinterpret_cast<__m128i*>(at), v.offset(ix, iy));
            T* out = d + static_cast<std::ptrdiff_t>(x) * kStride<L>;
            for (int j = 0; j < 4; ++j)
                if (bits >> j & 1) copy_pixel<T, L>(reinterpret_cast<const T*>(s.base + at[j]), out + j * kStride<L>);
        }
    }
    scalar_row(Kind::Nearest, false, s, w, xm, ym, d, x, width);
}

// Taps and weights of four Linear positions, as the model's linear_taps and linear_q14 give
// them: the index held below the last one, the taps clamped into the window; each tap as its
// byte offset from the image start.
struct LinearQuad {
    int bits;
    alignas(16) int o00[4], o01[4], o10[4], o11[4];
    alignas(16) float fx[4], fy[4];
    alignas(16) int wx[4], wy[4];  // 8u: Q14 pairs (16384 - F) | F << 16, for 16-bit multiply-add
    __m128 vfx, vfy;
    __m128i vwx, vwy;
};

inline __m128i q14_pairs(__m128 f)
{
    const __m128i F = _mm_cvtps_epi32(_mm_mul_ps(f, _mm_set1_ps(16384.0f)));
    return _mm_or_si128(_mm_sub_epi32(_mm_set1_epi32(16384), F), _mm_slli_epi32(F, 16));
}

template <bool Fixed> inline bool linear_quad(const WindowV& v, const float* xm, const float* ym, LinearQuad& q)
{
    const __m128 mx = _mm_loadu_ps(xm), my = _mm_loadu_ps(ym);
    q.bits = v.test(mx, my);
    if (q.bits == 0) return false;
    const __m128i one = _mm_set1_epi32(1);
    const __m128i ix = _mm_min_epi32(_mm_cvttps_epi32(mx), _mm_sub_epi32(v.ix1, one));
    const __m128i iy = _mm_min_epi32(_mm_cvttps_epi32(my), _mm_sub_epi32(v.iy1, one));
    q.vfx = _mm_sub_ps(mx, _mm_cvtepi32_ps(ix));
    q.vfy = _mm_sub_ps(my, _mm_cvtepi32_ps(iy));
    const __m128i x0 = _mm_mullo_epi32(_mm_max_epi32(ix, v.ix0), v.pixelBytes);
    const __m128i x1 = _mm_mullo_epi32(_mm_min_epi32(_mm_add_epi32(ix, one), v.ix1), v.pixelBytes);
    const __m128i y0 = _mm_mullo_epi32(_mm_max_epi32(iy, v.iy0), v.step);
    const __m128i y1 = _mm_mullo_epi32(_mm_min_epi32(_mm_add_epi32(iy, one), v.iy1), v.step);
    _mm_store_si128(reinterpret_cast<__m128i*>(q.o00), _mm_add_epi32(y0, x0));
    _mm_store_si128(reinterpret_cast<__m128i*>(q.o01), _mm_add_epi32(y0, x1));
    _mm_store_si128(reinterpret_cast<__m128i*>(q.o10), _mm_add_epi32(y1, x0));
    _mm_store_si128(reinterpret_cast<__m128i*>(q.o11), _mm_add_epi32(y1, x1));
    if constexpr (Fixed) {
        q.vwx = q14_pairs(q.vfx);
        q.vwy = q14_pairs(q.vfy);
        _mm_store_si128(reinterpret_cast<__m128i*>(q.wx), q.vwx);
        _mm_store_si128(reinterpret_cast<__m128i*>(q.wy), q.vwy);
    } else {
        _mm_store_ps(q.fx, q.vfx);
        _mm_store_ps(q.fy, q.vfy);
    }
    return true;
}

// 8u: each row's pair of taps is one 32-bit lane (left tap low, right tap high), so one
// multiply-add gives a row's sum; the two row results pair up the same way for the second.
inline __m128i linear_8u(__m128i top, __m128i bottom, __m128i wx, __m128i wy)
{
    const __m128i h0 = _mm_srai_epi32(_mm_madd_epi16(top, wx), 8);
    const __m128i h1 = _mm_srai_epi32(_mm_madd_epi16(bottom, wx), 8);
    const __m128i sum = _mm_madd_epi16(_mm_or_si128(h0, _mm_slli_epi32(h1, 16)), wy);
    return _mm_srai_epi32(_mm_add_epi32(sum, _mm_set1_epi32(33)), 20);
}

// The product form, operation for operation as the scalar model computes it.
inline __m128 linear_product(__m128 p00, __m128 p01, __m128 p10, __m128 p11, __m128 fx, __m128 fy)
{
    const __m128 one = _mm_set1_ps(1.0f);
    const __m128 gx = _mm_sub_ps(one, fx), gy = _mm_sub_ps(one, fy);
    const __m128 top = _mm_add_ps(_mm_mul_ps(p00, gx), _mm_mul_ps(p01, fx));
    const __m128 bottom = _mm_add_ps(_mm_mul_ps(p10, gx), _mm_mul_ps(p11, fx));
    return _mm_add_ps(_mm_mul_ps(top, gy), _mm_mul_ps(bottom, fy));
}

// Four results as elements of T: 8u from the fixed-point sums (already in 0..255), 16-bit types
// rounded to nearest even and saturated, 32f as they are.
template <class T> inline void results(__m128 vf, __m128i vi, T* out)
{
    if constexpr (std::is_same_v<T, Kel8u>) {
        const auto packed = static_cast<std::uint32_t>(_mm_cvtsi128_si32(_mm_packus_epi16(_mm_packus_epi32(vi, vi), vi)));
        std::memcpy(out, &packed, 4);
        (void)vf;
    } else if constexpr (std::is_same_v<T, Kel16u>) {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi32(_mm_cvtps_epi32(vf), vi));
    } else if constexpr (std::is_same_v<T, Kel16s>) {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packs_epi32(_mm_cvtps_epi32(vf), vi));
    } else {
        _mm_storeu_ps(out, vf);
        (void)vi;
    }
}

// The channels of one pixel in the lanes, widened to 32 bits (the fourth lane unused for three).
template <class T, int Channels> inline __m128i channels_i32(const T* p)
{
    if constexpr (std::is_same_v<T, Kel8u>) {
        std::uint32_t bits;
        if constexpr (Channels == 4) std::memcpy(&bits, p, 4);
        else bits = p[0] | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16;
        return _mm_cvtepu8_epi32(_mm_cvtsi32_si128(static_cast<int>(bits)));
    } else if constexpr (Channels == 4) {
        const __m128i raw = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
        return std::is_same_v<T, Kel16u> ? _mm_cvtepu16_epi32(raw) : _mm_cvtepi16_epi32(raw);
    } else {
        return _mm_setr_epi32(p[0], p[1], p[2], 0);
    }
}

template <class T, int Channels> inline __m128 channels_f32(const T* p)
{
    if constexpr (std::is_same_v<T, Kel32f>) return Channels == 4 ? _mm_loadu_ps(p) : _mm_setr_ps(p[0], p[1], p[2], 0.0f);
    else return _mm_cvtepi32_ps(channels_i32<T, Channels>(p));
}

// One channel: four pixels in the lanes. Lanes that failed the test read nothing. The taps go
// straight into registers: a detour through memory would stall on store forwarding.
template <class T, bool All> inline void linear_lanes_c1(const std::uint8_t* base, const LinearQuad& q, T* out)
{
    auto tap = [base, &q](const int* o, int j) { return All || (q.bits >> j & 1) ? *reinterpret_cast<const T*>(base + o[j]) : T(0); };
    alignas(16) T lanes[4];
    if constexpr (std::is_same_v<T, Kel8u>) {
        auto pair = [&](const int* left, const int* right, int j) { return tap(left, j) | tap(right, j) << 16; };
        const __m128i top = _mm_setr_epi32(pair(q.o00, q.o01, 0), pair(q.o00, q.o01, 1), pair(q.o00, q.o01, 2), pair(q.o00, q.o01, 3));
        const __m128i bottom = _mm_setr_epi32(pair(q.o10, q.o11, 0), pair(q.o10, q.o11, 1), pair(q.o10, q.o11, 2), pair(q.o10, q.o11, 3));
        results<T>(_mm_setzero_ps(), linear_8u(top, bottom, q.vwx, q.vwy), lanes);
    } else {
        auto quad = [&](const int* o) {
            return _mm_setr_ps(static_cast<float>(tap(o, 0)), static_cast<float>(tap(o, 1)), static_cast<float>(tap(o, 2)),
                               static_cast<float>(tap(o, 3)));
        };
        results<T>(linear_product(quad(q.o00), quad(q.o01), quad(q.o10), quad(q.o11), q.vfx, q.vfy), _mm_setzero_si128(), lanes);
    }
    if (All) std::memcpy(out, lanes, sizeof lanes);
    else
        for (int j = 0; j < 4; ++j)
            if (q.bits >> j & 1) out[j] = lanes[j];
}

// Three or four channels: the channels of each pixel in the lanes, its weights broadcast.
template <class T, Layout L> inline void linear_lanes_cn(const std::uint8_t* base, const LinearQuad& q, T* out)
{
    constexpr int C = kStride<L>, loaded = C == 3 ? 3 : 4;
    auto at = [base](int offset) { return reinterpret_cast<const T*>(base + offset); };
    alignas(16) T lanes[4];
    for (int j = 0; j < 4; ++j) {
        if (!(q.bits >> j & 1)) continue;
        const T *p00 = at(q.o00[j]), *p01 = at(q.o01[j]), *p10 = at(q.o10[j]), *p11 = at(q.o11[j]);
        if constexpr (std::is_same_v<T, Kel8u>) {
            const __m128i top = _mm_or_si128(channels_i32<T, loaded>(p00), _mm_slli_epi32(channels_i32<T, loaded>(p01), 16));
            const __m128i bottom = _mm_or_si128(channels_i32<T, loaded>(p10), _mm_slli_epi32(channels_i32<T, loaded>(p11), 16));
            results<T>(_mm_setzero_ps(), linear_8u(top, bottom, _mm_set1_epi32(q.wx[j]), _mm_set1_epi32(q.wy[j])), lanes);
        } else {
            results<T>(linear_product(channels_f32<T, loaded>(p00), channels_f32<T, loaded>(p01),
                                      channels_f32<T, loaded>(p10), channels_f32<T, loaded>(p11), _mm_set1_ps(q.fx[j]),
                                      _mm_set1_ps(q.fy[j])),
                       _mm_setzero_si128(), lanes);
        }
        T* o = out + j * C;
        if constexpr (L == Layout::C4) std::memcpy(o, lanes, sizeof lanes);
        else o[0] = lanes[0], o[1] = lanes[1], o[2] = lanes[2];
    }
}

template <class T, Layout L>
inline void linear_row(const Source<T, L>& s, const Window& w, const float* xm, const float* ym, T* d, int width)
{
    constexpr int C = kStride<L>, P = C * sizeof(T);
    int x = 0;
    if (WindowV::fits(w, s.step, P)) {
        const WindowV v(w, s.step, P);
        LinearQuad q;
        for (; x + 4 <= width; x += 4) {
            if (!linear_quad<std::is_same_v<T, Kel8u>>(v, xm + x, ym + x, q)) continue;
            T* out = d + static_cast<std::ptrdiff_t>(x) * C;
            if constexpr (C == 1) {
                if (q.bits == 15) linear_lanes_c1<T, true>(s.base, q, out);
                else linear_lanes_c1<T, false>(s.base, q, out);
            }
            else linear_lanes_cn<T, L>(s.base, q, out);
        }
    }
    scalar_row(Kind::Linear, false, s, w, xm, ym, d, x, width);
}

// Cubic (B = 0, C = 0.5) weights of four positions, operation for operation as the model's
// cubic_weights (halving by a multiply is exact, as the division by two is).
inline void cubic_weights(__m128 t, __m128* w)
{
    const __m128 one = _mm_set1_ps(1.0f), half = _mm_set1_ps(0.5f), three = _mm_set1_ps(3.0f);
    const __m128 tm1 = _mm_sub_ps(t, one), t3t = _mm_mul_ps(_mm_mul_ps(three, t), t);
    const __m128 minusT = _mm_xor_ps(t, _mm_set1_ps(-0.0f));
    w[0] = _mm_mul_ps(_mm_mul_ps(_mm_mul_ps(minusT, tm1), tm1), half);
    w[1] = _mm_add_ps(_mm_mul_ps(_mm_mul_ps(_mm_sub_ps(t3t, _mm_mul_ps(_mm_set1_ps(5.0f), t)), t), half), one);
    w[2] = _mm_mul_ps(_mm_mul_ps(_mm_add_ps(_mm_sub_ps(_mm_mul_ps(_mm_set1_ps(4.0f), t), t3t), one), t), half);
    w[3] = _mm_mul_ps(_mm_mul_ps(_mm_mul_ps(t, t), tm1), half);
}

// Four f32 results as elements of T, rounded to nearest even and saturated for integers.
template <class T> inline void from_f32(__m128 v, T* out)
{
    if constexpr (std::is_same_v<T, Kel8u>) results<T>(v, _mm_cvtps_epi32(v), out);
    else results<T>(v, _mm_setzero_si128(), out);
}

// Cubic, one channel: four pixels in the lanes, sixteen taps gathered per pixel, rows filtered
// by the x weights and combined by the y weights in the model's order.
template <class T>
inline void cubic_row(const Source<T, Layout::C1>& s, const Window& w, const float* xm, const float* ym, T* d, int width)
{
    int x = 0;
    if (WindowV::fits(w, s.step, sizeof(T))) {
        const WindowV v(w, s.step, sizeof(T));
        const __m128 lift = _mm_set1_ps(1e-7f);
        alignas(16) int col[4][4], row[4][4];
        alignas(16) T taps[4][4][4];  // row, tap, lane
        __m128 wx[4], wy[4];
        for (; x + 4 <= width; x += 4) {
            const __m128 mx = _mm_loadu_ps(xm + x), my = _mm_loadu_ps(ym + x);
            const int bits = v.test(mx, my);
            if (bits == 0) continue;
            const __m128i ix = _mm_cvttps_epi32(_mm_add_ps(mx, lift)), iy = _mm_cvttps_epi32(_mm_add_ps(my, lift));
            cubic_weights(_mm_sub_ps(mx, _mm_cvtepi32_ps(ix)), wx);
            cubic_weights(_mm_sub_ps(my, _mm_cvtepi32_ps(iy)), wy);
            for (int k = 0; k < 4; ++k) {
                const __m128i shift = _mm_set1_epi32(k - 1);
                const __m128i cx = _mm_min_epi32(_mm_max_epi32(_mm_add_epi32(ix, shift), v.ix0), v.ix1);
                const __m128i cy = _mm_min_epi32(_mm_max_epi32(_mm_add_epi32(iy, shift), v.iy0), v.iy1);
                _mm_store_si128(reinterpret_cast<__m128i*>(col[k]), _mm_mullo_epi32(cx, v.pixelBytes));
                _mm_store_si128(reinterpret_cast<__m128i*>(row[k]), _mm_mullo_epi32(cy, v.step));
            }
            if (bits != 15) std::memset(taps, 0, sizeof taps);
            for (int j = 0; j < 4; ++j) {
                if (!(bits >> j & 1)) continue;
                for (int r = 0; r < 4; ++r) {
                    const std::uint8_t* line = s.base + row[r][j];
                    for (int k = 0; k < 4; ++k) taps[r][k][j] = *reinterpret_cast<const T*>(line + col[k][j]);
                }
            }
            __m128 acc = _mm_setzero_ps();
            for (int r = 0; r < 4; ++r) {
                __m128 h = _mm_mul_ps(channels_f32<T, 4>(taps[r][0]), wx[0]);
                for (int k = 1; k < 4; ++k) h = _mm_add_ps(h, _mm_mul_ps(channels_f32<T, 4>(taps[r][k]), wx[k]));
                acc = r == 0 ? _mm_mul_ps(h, wy[0]) : _mm_add_ps(acc, _mm_mul_ps(h, wy[r]));
            }
            alignas(16) T lanes[4];
            from_f32<T>(acc, lanes);
            T* out = d + x;
            if (bits == 15) std::memcpy(out, lanes, sizeof lanes);
            else
                for (int j = 0; j < 4; ++j)
                    if (bits >> j & 1) out[j] = lanes[j];
        }
    }
    scalar_row(Kind::Cubic, false, s, w, xm, ym, d, x, width);
}

template <class T, Layout L, class M>
inline void remap_row(Kind kind, bool smooth, const Source<T, L>& s, const Window& w, const M* xm, const M* ym, T* d,
                      int width)
{
    if constexpr (std::is_same_v<M, float>) {
        if (!smooth && kind == Kind::Nearest) return nearest_row(s, w, xm, ym, d, width);
        if (!smooth && kind == Kind::Linear) return linear_row(s, w, xm, ym, d, width);
        if constexpr (L == Layout::C1)
            if (!smooth && kind == Kind::Cubic) return cubic_row(s, w, xm, ym, d, width);
    }
    scalar_row(kind, smooth, s, w, xm, ym, d, 0, width);
}

}  // namespace keli::remap::rows
