// Row pieces of the border builders: a run of one repeated pixel (plain or colour-only), and
// a run that walks a source row backwards pixel by pixel. Forward runs are the byte-run copy
// and the AC4 row copy of keliCopy; fills are its pattern fill.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "move/rows/copy_ac4.hpp"
#include "move/rows/copy_run.hpp"
#include "move/rows/fill.hpp"
#include "simd/sse.hpp"

namespace keli::rows {

// The fill pattern of one pixel of P bytes. Pixels of 1, 2, 4, 8 or 16 bytes tile 16 bytes and
// are broadcast with one register; three-channel pixels take the general builder.
template <std::size_t P> inline FillPattern pixel_pattern(const void* pixel)
{
    if constexpr (16 % P != 0) {
        FillPattern p;
        p.length = 48;
        for (std::size_t at = 0; at < sizeof p.bytes; at += P) std::memcpy(p.bytes + at, pixel, P);
        return p;
    } else {
        FillPattern p;
        p.length = 16;
        __m128i v;
        if constexpr (P == 1) {
            v = _mm_set1_epi8(*static_cast<const char*>(pixel));
        } else if constexpr (P == 2) {
            std::int16_t e;
            std::memcpy(&e, pixel, 2);
            v = _mm_set1_epi16(e);
        } else if constexpr (P == 4) {
            std::int32_t e;
            std::memcpy(&e, pixel, 4);
            v = _mm_set1_epi32(e);
        } else if constexpr (P == 8) {
            long long e;
            std::memcpy(&e, pixel, 8);
            v = _mm_set1_epi64x(e);
        } else {
            v = _mm_loadu_si128(static_cast<const __m128i*>(pixel));
        }
        for (std::size_t at = 0; at < sizeof p.bytes; at += 16)
            _mm_store_si128(reinterpret_cast<__m128i*>(p.bytes + at), v);
        return p;
    }
}

// One pixel of P bytes (P dividing 16) broadcast to a register.
template <std::size_t P> inline __m128i pixel_vector(const void* pixel)
{
    static_assert(16 % P == 0, "the pixel must tile 16 bytes");
    if constexpr (P == 16) return _mm_loadu_si128(static_cast<const __m128i*>(pixel));
    std::int64_t e = 0;
    std::memcpy(&e, pixel, P);
    if constexpr (P == 1) return _mm_set1_epi8(static_cast<char>(e));
    else if constexpr (P == 2) return _mm_set1_epi16(static_cast<short>(e));
    else if constexpr (P == 4) return _mm_set1_epi32(static_cast<int>(e));
    else return _mm_set1_epi64x(e);
}

// `bytes` bytes (a whole number of P-byte pixels) of the pixel in v, P dividing 16. Every store
// starts a whole number of pixels into the run, 16-byte stores from the front and one that ends
// the run, so the register needs no realigning; short runs take two overlapping smaller stores.
template <std::size_t P> inline void repeat_run(unsigned char* d, std::size_t bytes, __m128i v)
{
    if (bytes >= 16) {
        std::size_t i = 0;
        for (; i + 16 < bytes; i += 16) _mm_storeu_si128(reinterpret_cast<__m128i*>(d + i), v);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d + bytes - 16), v);
    } else if (bytes >= 8) {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(d), v);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(d + bytes - 8), v);
    } else if (bytes >= 4) {
        const int w = _mm_cvtsi128_si32(v);
        std::memcpy(d, &w, 4);
        std::memcpy(d + bytes - 4, &w, 4);
    } else if (bytes >= 2) {
        const auto w = static_cast<std::uint16_t>(_mm_cvtsi128_si32(v));
        std::memcpy(d, &w, 2);
        std::memcpy(d + bytes - 2, &w, 2);
    } else if (bytes == 1) {
        d[0] = static_cast<unsigned char>(_mm_cvtsi128_si32(v));
    }
}

// Colour-only fill of `pixels` AC4 pixels from a 16-byte pattern: each 16-byte block of the
// destination is read and merged under the colour mask, so alpha elements keep their values.
template <class T> inline void fill_ac4_run(T* dst, const FillPattern& p, std::size_t pixels)
{
    constexpr std::size_t kPixelsPerVector = 16 / (4 * sizeof(T));
    const __m128i colour = ac4_colour_mask<T>();
    const __m128i value = _mm_load_si128(reinterpret_cast<const __m128i*>(p.bytes));
    std::size_t x = 0;
    for (; x + kPixelsPerVector <= pixels; x += kPixelsPerVector) {
        auto* d = reinterpret_cast<__m128i*>(dst + 4 * x);
        _mm_storeu_si128(d, _mm_blendv_epi8(_mm_loadu_si128(d), value, colour));
    }
    const T* v = reinterpret_cast<const T*>(p.bytes);
    for (; x < pixels; ++x) dst[4 * x + 0] = v[0], dst[4 * x + 1] = v[1], dst[4 * x + 2] = v[2];
}

// Reverses whole pixels of P bytes within 16 bytes; pixels that do not tile 16 bytes (three
// channels) have no vector form and take the scalar apply throughout.
template <std::size_t P> struct ReversePixels {
    static constexpr bool kVector = 16 % P == 0;
    static constexpr std::size_t kGroup = kVector ? 16 / P : 1;  // pixels a vector

    static __m128i pattern()
    {
        alignas(16) signed char m[16];
        for (std::size_t i = 0; i < 16; ++i) m[i] = static_cast<signed char>((kGroup - 1 - i / P) * P + i % P);
        return _mm_load_si128(reinterpret_cast<const __m128i*>(m));
    }
    // Vector: the group of pixels ending at `last` (inclusive), stored in reverse order.
    static void apply(const unsigned char* last, unsigned char* d, __m128i order)
    {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(last - (kGroup - 1) * P));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_shuffle_epi8(v, order));
    }
    // Scalar: one pixel.
    static void apply(const unsigned char* last, unsigned char* d) { std::memcpy(d, last, P); }
};

// Destination pixel i takes the source pixel `i` places before `last`: n pixels of a row walked
// backwards, by vector groups with a last group that overlaps the one before it (its pixels
// are written twice with the same values; source and destination never overlap). Pixels that
// do not tile 16 bytes, and runs shorter than a group, go one by one.
template <std::size_t P> inline void reverse_run(const void* lastPixel, void* dst, std::size_t n)
{
    using Op = ReversePixels<P>;
    auto* s = static_cast<const unsigned char*>(lastPixel);
    auto* d = static_cast<unsigned char*>(dst);
    if constexpr (Op::kVector) {
        if (n >= Op::kGroup) {
            const __m128i order = Op::pattern();
            std::size_t i = 0;
            for (; i + Op::kGroup < n; i += Op::kGroup) Op::apply(s - i * P, d + i * P, order);
            i = n - Op::kGroup;
            Op::apply(s - i * P, d + i * P, order);
            return;
        }
    }
    for (std::size_t i = 0; i < n; ++i) Op::apply(s - i * P, d + i * P);
}

}  // namespace keli::rows
