// Row kernels of the colour keys.
//
// key_run: a pixel of src1 whose every element equals the key is replaced by the src2 pixel.
// Equality is of bits, so the 16s and 16u kernels are one. One channel compares element by
// element, four channels compare a whole pixel as one 32- or 64-bit lane; three channels take
// 48 bytes at a time (16 or 8 pixels), gather each pixel's three equalities into one byte, AND
// them and spread the result back over the pixel's elements.
//
// key_comp_pixels: AlphaCompColorKey on AC4 8u pixels with constant alphas. The exact integer
// numerator of each colour (below 2^24, so exact in 32f) is scaled by 1/255 in 32f once per
// division, rounded to nearest even and limited to 255; keyed pixels take src2's colour. The
// alpha element is never written.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "arith/rows/alpha_rule.hpp"
#include "simd/sse.hpp"

namespace keli::rows::color_key {

template <class T, std::size_t C> inline bool keyed(const T* p, const T* key)
{
    for (std::size_t c = 0; c < C; ++c)
        if (p[c] != key[c]) return false;
    return true;
}

namespace detail {

// pshufb tables of the three-channel kernel for E-byte elements: gather[k][ch] takes, from the
// equality mask of vector k, one byte of channel ch of each pixel that lies in it; spread[k]
// gives each byte of vector k the mask byte of its pixel.
template <std::size_t E> struct Three {
    static constexpr std::size_t lanes = 16 / E, pixels = lanes;  // 48 bytes hold `lanes` pixels
    std::array<std::array<std::array<std::int8_t, 16>, 3>, 3> gather{};
    std::array<std::array<std::int8_t, 16>, 3> spread{};
    constexpr Three()
    {
        for (std::size_t k = 0; k < 3; ++k) {
            for (std::size_t ch = 0; ch < 3; ++ch)
                for (std::size_t p = 0; p < 16; ++p) {
                    const std::size_t e = 3 * p + ch;
                    gather[k][ch][p] = p < pixels && e / lanes == k ? std::int8_t((e % lanes) * E) : std::int8_t(-128);
                }
            for (std::size_t b = 0; b < 16; ++b) spread[k][b] = std::int8_t((k * lanes + b / E) / 3);
        }
    }
};
template <std::size_t E> constexpr Three<E> kThree{};

inline __m128i table(const std::array<std::int8_t, 16>& t)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(t.data()));
}

template <std::size_t E> inline __m128i equal(__m128i x, __m128i y)
{
    if constexpr (E == 1) return _mm_cmpeq_epi8(x, y);
    else return _mm_cmpeq_epi16(x, y);
}

}  // namespace detail

// Pixels of C elements (1, 3 or 4).
template <class T, std::size_t C> inline void key_run(const T* s1, const T* s2, T* d, std::size_t pixels, const T* key)
{
    constexpr std::size_t E = sizeof(T), lanes = 16 / E;
    alignas(16) T pattern[3 * lanes];
    for (std::size_t i = 0; i < 3 * lanes; ++i) pattern[i] = key[i % C];
    std::size_t p = 0;
    if constexpr (C == 1 || C == 4) {
        constexpr std::size_t P = lanes / C;
        const __m128i k = simd::loada(pattern);
        for (; p + P <= pixels; p += P) {
            const __m128i x = simd::loadu(s1 + C * p), y = simd::loadu(s2 + C * p);
            __m128i m;
            if constexpr (C == 1) m = detail::equal<E>(x, k);
            else if constexpr (E == 1) m = _mm_cmpeq_epi32(x, k);
            else m = _mm_cmpeq_epi64(x, k);
            simd::storeu(d + C * p, _mm_blendv_epi8(x, y, m));
        }
    } else {
        constexpr auto& t = detail::kThree<E>;
        constexpr std::size_t P = detail::Three<E>::pixels;
        __m128i k[3], gather[3][3], spread[3];
        for (std::size_t v = 0; v < 3; ++v) {
            k[v] = simd::loada(pattern + v * lanes);
            spread[v] = detail::table(t.spread[v]);
            for (std::size_t ch = 0; ch < 3; ++ch) gather[v][ch] = detail::table(t.gather[v][ch]);
        }
        for (; p + P <= pixels; p += P) {
            __m128i x[3], eq[3];
            for (std::size_t v = 0; v < 3; ++v) {
                x[v] = simd::loadu(s1 + 3 * p + v * lanes);
                eq[v] = detail::equal<E>(x[v], k[v]);
            }
            __m128i all = _mm_set1_epi8(-1);
            for (std::size_t ch = 0; ch < 3; ++ch) {
                const __m128i g = _mm_or_si128(_mm_or_si128(_mm_shuffle_epi8(eq[0], gather[0][ch]),
                                                            _mm_shuffle_epi8(eq[1], gather[1][ch])),
                                               _mm_shuffle_epi8(eq[2], gather[2][ch]));
                all = _mm_and_si128(all, g);
            }
            for (std::size_t v = 0; v < 3; ++v) {
                const __m128i y = simd::loadu(s2 + 3 * p + v * lanes);
                simd::storeu(d + 3 * p + v * lanes, _mm_blendv_epi8(x[v], y, _mm_shuffle_epi8(all, spread[v])));
            }
        }
    }
    for (; p < pixels; ++p) {
        const T* from = keyed<T, C>(s1 + C * p, key) ? s2 + C * p : s1 + C * p;
        for (std::size_t c = 0; c < C; ++c) d[C * p + c] = from[c];
    }
}

// The composition of AlphaCompColorKey: numerator = c1 * k1 + c2 * k2 with per-call factors,
// times 1/255 as often as the rule divides.
struct KeyComposition {
    std::int32_t k1, k2;
    bool twice;  // divided by 255^2 (every operation but Plus)

    static KeyComposition of(int op, std::int32_t a1, std::int32_t a2)
    {
        using namespace rows::alpha;
        switch (op) {
        case kOver: return {a1 * 255, a2 * (255 - a1), true};
        case kIn: return {a1 * a2, 0, true};
        case kOut: return {a1 * (255 - a2), 0, true};
        case kATop: return {a1 * a2, a2 * (255 - a1), true};
        case kXor: return {a1 * (255 - a2), a2 * (255 - a1), true};
        default: return {a1, a2, false};
        }
    }
};

// 1/255 as the rule writes it, a single-precision constant.
constexpr float kInv255 = 0.003921569f;

// Rounding follows the control register, which the caller sets to nearest-even for the call.
inline Kel8u key_compose(const KeyComposition& f, Kel8u c1, Kel8u c2)
{
    float v = float(c1 * f.k1 + c2 * f.k2) * kInv255;
    if (f.twice) v = v * kInv255;
    return static_cast<Kel8u>(std::min(std::nearbyint(v), 255.0f));
}

namespace detail {

// The four elements in the low bytes of x and y.
inline __m128i compose4(const KeyComposition& f, __m128i x, __m128i y)
{
    const __m128i c1 = _mm_cvtepu8_epi32(x), c2 = _mm_cvtepu8_epi32(y);
    const __m128i num =
        _mm_add_epi32(_mm_mullo_epi32(c1, _mm_set1_epi32(f.k1)), _mm_mullo_epi32(c2, _mm_set1_epi32(f.k2)));
    __m128 v = _mm_mul_ps(_mm_cvtepi32_ps(num), _mm_set1_ps(kInv255));
    if (f.twice) v = _mm_mul_ps(v, _mm_set1_ps(kInv255));
    return _mm_cvtps_epi32(v);
}

}  // namespace detail

inline void key_comp_pixels(const KeyComposition& f, const Kel8u* s1, const Kel8u* s2, Kel8u* d, std::size_t pixels,
                            const Kel8u* key)
{
    std::uint32_t key32;
    std::memcpy(&key32, key, 4);
    const __m128i k = _mm_set1_epi32(static_cast<int>(key32));
    const __m128i alphaLanes = _mm_set1_epi32(int(0xFF000000u));
    std::size_t p = 0;
    for (; p + 4 <= pixels; p += 4) {
        const __m128i x = simd::loadu(s1 + 4 * p), y = simd::loadu(s2 + 4 * p), old = simd::loadu(d + 4 * p);
        // Pixel i's elements: bytes 4i ... 4i + 3 of x and y.
        const __m128i r0 = detail::compose4(f, x, y);
        const __m128i r1 = detail::compose4(f, _mm_srli_si128(x, 4), _mm_srli_si128(y, 4));
        const __m128i r2 = detail::compose4(f, _mm_srli_si128(x, 8), _mm_srli_si128(y, 8));
        const __m128i r3 = detail::compose4(f, _mm_srli_si128(x, 12), _mm_srli_si128(y, 12));
        // Results are at least 0, so the signed packs only limit them to 255.
        const __m128i composed = _mm_packus_epi16(_mm_packs_epi32(r0, r1), _mm_packs_epi32(r2, r3));
        const __m128i colour = _mm_blendv_epi8(composed, y, _mm_cmpeq_epi32(x, k));
        simd::storeu(d + 4 * p, _mm_blendv_epi8(colour, old, alphaLanes));
    }
    for (; p < pixels; ++p) {
        const Kel8u* x = s1 + 4 * p;
        const Kel8u* y = s2 + 4 * p;
        const bool hit = keyed<Kel8u, 4>(x, key);
        for (int c = 0; c < 3; ++c) d[4 * p + c] = hit ? y[c] : key_compose(f, x[c], y[c]);
    }
}

}  // namespace keli::rows::color_key
