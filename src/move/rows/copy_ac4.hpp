// AC4 row copy: the three colour elements of each pixel move, the destination's alpha stays.
// Used by the AC4 copy itself and by every family that computes AC4 rows through scratch.
#pragma once

#include <cstddef>
#include <cstdint>

#include "simd/sse.hpp"

namespace keli::rows {

// Byte mask of the colour elements in 16 bytes of AC4 pixels of element type T.
template <class T> inline __m128i ac4_colour_mask()
{
    if constexpr (sizeof(T) == 1) return _mm_set1_epi32(0x00FFFFFF);
    else if constexpr (sizeof(T) == 2) return _mm_set_epi16(0, -1, -1, -1, 0, -1, -1, -1);
    else return _mm_set_epi32(0, -1, -1, -1);
}

// Copies the colour of `pixels` AC4 pixels. Each 16-byte block of the destination is read,
// merged under the colour mask and written back, so its alpha elements keep their values.
template <class T> inline void copy_ac4_row(const T* src, T* dst, std::size_t pixels)
{
    constexpr std::size_t kPixelsPerVector = 16 / (4 * sizeof(T));
    const __m128i colour = ac4_colour_mask<T>();
    std::size_t x = 0;
    for (; x + kPixelsPerVector <= pixels; x += kPixelsPerVector) {
        auto* d = reinterpret_cast<__m128i*>(dst + 4 * x);
        const __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 4 * x));
        _mm_storeu_si128(d, _mm_blendv_epi8(_mm_loadu_si128(d), s, colour));
    }
    for (; x < pixels; ++x) {
        dst[4 * x + 0] = src[4 * x + 0];
        dst[4 * x + 1] = src[4 * x + 1];
        dst[4 * x + 2] = src[4 * x + 2];
    }
}

}  // namespace keli::rows
