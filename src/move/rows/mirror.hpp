// Pixel-order reversal of runs: the row kernels of keliMirror, also used by the test images to
// mirror a computed half row. A pixel is P bytes (1 to 16: one to four channels of 8, 16 or 32
// bits). A block of 16 bytes (P divides 16) or 48 bytes (three-channel pixels) is reversed in
// registers with byte shuffles; the pixels that do not fill a block move one at a time.
//
// A store policy says which bytes of a pixel a kernel writes: all of them, or only the colour
// of an AC4 pixel, whose alpha then keeps its value at its address.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "simd/sse.hpp"

namespace keli::rows {

using Byte = unsigned char;

// All P bytes of a pixel.
template <std::size_t P> struct WholePixel {
    static constexpr std::size_t pixelBytes = P;
    static constexpr std::size_t movedBytes = P;
    static __m128i merge(__m128i, __m128i v) { return v; }
    static void store(Byte* d, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(d), v); }
};

// The three colour elements (of E bytes each) of an AC4 pixel; the fourth stays as it was.
template <std::size_t E> struct ColourOnly {
    static constexpr std::size_t pixelBytes = 4 * E;
    static constexpr std::size_t movedBytes = 3 * E;
    static __m128i colour()
    {
        if constexpr (E == 1) return _mm_set1_epi32(0x00FFFFFF);
        else if constexpr (E == 2) return _mm_set_epi16(0, -1, -1, -1, 0, -1, -1, -1);
        else return _mm_set_epi32(0, -1, -1, -1);
    }
    static __m128i merge(__m128i old, __m128i v) { return _mm_blendv_epi8(old, v, colour()); }
    static void store(Byte* d, __m128i v)
    {
        auto* q = reinterpret_cast<__m128i*>(d);
        _mm_storeu_si128(q, merge(_mm_loadu_si128(q), v));
    }
};

// The store policy of a pixel of `Channels` elements of T, the fourth being an alpha to keep
// when `Alpha` holds.
template <class T, std::size_t Channels, bool Alpha>
using PixelStore = std::conditional_t<Alpha, ColourOnly<sizeof(T)>, WholePixel<Channels * sizeof(T)>>;

// Shuffle tables that reverse the pixel order of one block.
template <std::size_t P> struct BlockReverse {
    static constexpr std::size_t blockBytes = 16 % P == 0 ? 16 : 48;
    static constexpr std::size_t vectors = blockBytes / 16;
    static constexpr std::size_t pixels = blockBytes / P;

    // masks[j][k]: the bytes of output vector j that come from input vector k (0x80 elsewhere).
    struct Tables {
        alignas(16) signed char masks[vectors][vectors][16];
    };
    static constexpr Tables make()
    {
        Tables t{};
        for (std::size_t j = 0; j < vectors; ++j)
            for (std::size_t i = 0; i < 16; ++i) {
                const std::size_t out = 16 * j + i;
                const std::size_t from = (pixels - 1 - out / P) * P + out % P;
                for (std::size_t k = 0; k < vectors; ++k)
                    t.masks[j][k][i] = static_cast<signed char>(from / 16 == k ? from % 16 : 0x80);
            }
        return t;
    }
    static constexpr Tables tables = make();

    static void load(const Byte* s, __m128i v[vectors])
    {
        for (std::size_t k = 0; k < vectors; ++k) v[k] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 16 * k));
    }
    // out = the block `in` with its pixels in reverse order.
    static void apply(const __m128i in[vectors], __m128i out[vectors])
    {
        for (std::size_t j = 0; j < vectors; ++j) {
            __m128i r = _mm_setzero_si128();
            for (std::size_t k = 0; k < vectors; ++k) {
                const __m128i m = _mm_load_si128(reinterpret_cast<const __m128i*>(tables.masks[j][k]));
                r = _mm_or_si128(r, _mm_shuffle_epi8(in[k], m));
            }
            out[j] = r;
        }
    }
};

namespace mirror_detail {

template <class Policy> inline void move_pixel(Byte* d, const Byte* s) { std::memcpy(d, s, Policy::movedBytes); }

// N bytes at a and at b change places. Both are read before either is written, as the vector
// kernels do: a step below the row's length makes rows (and so the two pixels) overlap, and the
// result must then still be defined, the same whichever path a pixel takes.
template <std::size_t N> inline void swap_bytes(Byte* a, Byte* b)
{
    Byte ta[N], tb[N];
    std::memcpy(ta, a, N);
    std::memcpy(tb, b, N);
    std::memcpy(a, tb, N);
    std::memcpy(b, ta, N);
}

template <class Policy> inline void swap_pixel(Byte* a, Byte* b) { swap_bytes<Policy::movedBytes>(a, b); }

}  // namespace mirror_detail

// dst pixel i = src pixel n - 1 - i. Source and destination must not overlap.
template <class Policy> inline void reverse_pixels(const Byte* src, Byte* dst, std::size_t n)
{
    using R = BlockReverse<Policy::pixelBytes>;
    constexpr std::size_t P = Policy::pixelBytes;
    std::size_t i = 0;
    if constexpr (R::vectors == 1) {
        // Four blocks a turn: four independent loads and shuffles in flight.
        for (; i + 4 * R::pixels <= n; i += 4 * R::pixels) {
            __m128i v[4];
            for (std::size_t k = 0; k < 4; ++k) R::load(src + (n - i - (k + 1) * R::pixels) * P, &v[k]);
            for (std::size_t k = 0; k < 4; ++k) {
                __m128i out;
                R::apply(&v[k], &out);
                Policy::store(dst + (i + k * R::pixels) * P, out);
            }
        }
    }
    for (; i + R::pixels <= n; i += R::pixels) {
        __m128i in[R::vectors], out[R::vectors];
        R::load(src + (n - i - R::pixels) * P, in);
        R::apply(in, out);
        for (std::size_t k = 0; k < R::vectors; ++k) Policy::store(dst + i * P + 16 * k, out[k]);
    }
    for (; i < n; ++i) mirror_detail::move_pixel<Policy>(dst + i * P, src + (n - 1 - i) * P);
}

// Reverses a run in place: pixels i and n - 1 - i change places, from both ends toward the
// middle, a block from each end at a time while two whole blocks remain.
template <class Policy> inline void reverse_pixels_inplace(Byte* p, std::size_t n)
{
    using R = BlockReverse<Policy::pixelBytes>;
    constexpr std::size_t P = Policy::pixelBytes;
    std::size_t a = 0, b = n;
    for (; b - a >= 2 * R::pixels; a += R::pixels, b -= R::pixels) {
        __m128i front[R::vectors], back[R::vectors], rf[R::vectors], rb[R::vectors];
        R::load(p + a * P, front);
        R::load(p + (b - R::pixels) * P, back);
        R::apply(front, rf);
        R::apply(back, rb);
        for (std::size_t k = 0; k < R::vectors; ++k) {
            Policy::store(p + a * P + 16 * k, Policy::merge(front[k], rb[k]));
            Policy::store(p + (b - R::pixels) * P + 16 * k, Policy::merge(back[k], rf[k]));
        }
    }
    for (; b - a >= 2; ++a, --b) mirror_detail::swap_pixel<Policy>(p + a * P, p + (b - 1) * P);
}

// Pixel x of run `a` and pixel n - 1 - x of run `b` change places, for every x: two distinct,
// non-overlapping rows mirrored into each other.
template <class Policy> inline void reverse_swap_pixels(Byte* a, Byte* b, std::size_t n)
{
    using R = BlockReverse<Policy::pixelBytes>;
    constexpr std::size_t P = Policy::pixelBytes;
    std::size_t x = 0;
    for (; x + R::pixels <= n; x += R::pixels) {
        Byte* pa = a + x * P;
        Byte* pb = b + (n - x - R::pixels) * P;
        __m128i va[R::vectors], vb[R::vectors], ra[R::vectors], rb[R::vectors];
        R::load(pa, va);
        R::load(pb, vb);
        R::apply(va, ra);
        R::apply(vb, rb);
        for (std::size_t k = 0; k < R::vectors; ++k) {
            Policy::store(pa + 16 * k, Policy::merge(va[k], rb[k]));
            Policy::store(pb + 16 * k, Policy::merge(vb[k], ra[k]));
        }
    }
    for (; x < n; ++x) mirror_detail::swap_pixel<Policy>(a + x * P, b + (n - 1 - x) * P);
}

// Pixel x of run `a` and pixel x of run `b` change places (two distinct, non-overlapping rows).
template <class Policy> inline void swap_pixels(Byte* a, Byte* b, std::size_t n)
{
    constexpr std::size_t P = Policy::pixelBytes;
    const std::size_t bytes = n * P;
    std::size_t i = 0;
    // A 16-byte step covers whole pixels of every layout that keeps an alpha (P = 4, 8, 16), so
    // the colour mask lines up with every vector; plain layouts move bytes regardless of pixels.
    for (; i + 16 <= bytes; i += 16) {
        const __m128i va = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + i));
        const __m128i vb = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + i));
        Policy::store(a + i, Policy::merge(va, vb));
        Policy::store(b + i, Policy::merge(vb, va));
    }
    if constexpr (Policy::movedBytes == P) {
        for (; i < bytes; ++i) {
            const Byte t = a[i];
            a[i] = b[i], b[i] = t;
        }
    } else {
        for (; i < bytes; i += P) mirror_detail::swap_pixel<Policy>(a + i, b + i);
    }
}

}  // namespace keli::rows
