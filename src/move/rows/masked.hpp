// Masked rows: pixel i of the destination takes its new value where mask[i] is non-zero and
// keeps its old one elsewhere. The mask is read 16 bytes at a time; a group of 16 pixels whose
// mask is all zero is skipped, one whose mask is all set is stored whole, and only mixed groups
// are merged: the mask bytes are spread over each pixel's bytes with pshufb and blended. Pixels
// of one and two bytes are merged group by group without those tests.
//
// The new values come from a source image (copy) or from a fill pattern (set). For AC4 only
// the colour bytes of a pixel are ever changed.
#pragma once

#include <cstddef>
#include <cstring>

#include "move/rows/fill.hpp"
#include "simd/sse.hpp"

namespace keli::rows {

// Lane j of spread vector k selects mask byte (16k + j) / P: the owner of that destination byte.
template <std::size_t P> struct MaskSpread {
    __m128i v[P];
    MaskSpread()
    {
        alignas(16) unsigned char lanes[16];
        for (std::size_t k = 0; k < P; ++k) {
            for (std::size_t j = 0; j < 16; ++j) lanes[j] = static_cast<unsigned char>((16 * k + j) / P);
            v[k] = _mm_load_si128(reinterpret_cast<const __m128i*>(lanes));
        }
    }
};

// New values read from an image.
struct MaskedFromImage {
    const unsigned char* src;
    std::size_t pixelBytes;
    __m128i vec(std::size_t i, std::size_t k) const
    {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i * pixelBytes + 16 * k));
    }
    const unsigned char* pixel(std::size_t i) const { return src + i * pixelBytes; }
    void prefetch(std::size_t i) const { simd::prefetch_ahead(pixel(i)); }
};

// New values from a pattern. A group of 16 pixels spans a whole number of pattern lengths, so
// each group starts at phase 0.
struct MaskedFromPattern {
    const FillPattern* pattern;
    __m128i vec(std::size_t, std::size_t k) const
    {
        return _mm_load_si128(reinterpret_cast<const __m128i*>(pattern->bytes + 16 * k % pattern->length));
    }
    const unsigned char* pixel(std::size_t) const { return pattern->bytes; }
    void prefetch(std::size_t) const {}
};

// P: bytes a pixel; ColourBytes: bytes of it that may change (P, or 3/4 of it for AC4).
template <std::size_t P, std::size_t ColourBytes, class Source>
inline void masked_row(const Source& src, unsigned char* dst, const unsigned char* mask, std::size_t n,
                       const MaskSpread<P>& spread)
{
    constexpr bool kAlpha = ColourBytes < P;
    // For AC4 pixels of 1, 2 or 4-byte elements the alpha bytes repeat every 16 bytes; they
    // always keep their old value.
    __m128i alpha = _mm_setzero_si128();
    if constexpr (kAlpha) {
        alignas(16) unsigned char lanes[16];
        for (std::size_t j = 0; j < 16; ++j) lanes[j] = j % P < ColourBytes ? 0 : 0xFF;
        alpha = _mm_load_si128(reinterpret_cast<const __m128i*>(lanes));
    }
    std::size_t i = 0;
    if constexpr (P <= 2) {
        // Groups of one- and two-byte pixels are merged whatever their mask, a destination line
        // a turn: a blend of one or two vectors costs less than a branch that skips it and
        // mispredicts on a mask of short runs. Bytes that keep their value are stored back as
        // they were.
        constexpr std::size_t G = 4 / P;
        for (; i + 16 * G <= n; i += 16 * G) {
            simd::prefetch_ahead(mask + i);
            src.prefetch(i);
            simd::prefetch_ahead(dst + i * P);
            for (std::size_t g = i; g < i + 16 * G; g += 16) {
                const __m128i off = _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(mask + g)),
                                                   _mm_setzero_si128());
                for (std::size_t k = 0; k < P; ++k) {
                    auto* q = reinterpret_cast<__m128i*>(dst + g * P + 16 * k);
                    const __m128i old = P == 1 ? off : _mm_shuffle_epi8(off, spread.v[k]);
                    _mm_storeu_si128(q, _mm_blendv_epi8(src.vec(g, k), _mm_loadu_si128(q), old));
                }
            }
        }
    }
    for (; i + 16 <= n; i += 16) {
        // Lines ahead are asked for once per line of each stream, so that loads in flight
        // survive a mispredicted group branch out of cache.
        if (i % 64 == 0) simd::prefetch_ahead(mask + i);
        if (P >= 4 || i % 64 == 0) {
            src.prefetch(i);
            simd::prefetch_ahead(dst + i * P);
        }
        const __m128i off = _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(mask + i)),
                                           _mm_setzero_si128());
        const int offBits = _mm_movemask_epi8(off);
        if (offBits == 0xFFFF) continue;
        unsigned char* d = dst + i * P;
        if (offBits == 0 && !kAlpha) {
            for (std::size_t k = 0; k < P; ++k) _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 16 * k), src.vec(i, k));
            continue;
        }
        for (std::size_t k = 0; k < P; ++k) {
            auto* q = reinterpret_cast<__m128i*>(d + 16 * k);
            // The bytes that keep their old value: those of pixels whose mask byte is 0, and
            // alpha. One-byte pixels own one mask byte each: the mask is its own spread.
            __m128i old = P == 1 ? off : _mm_shuffle_epi8(off, spread.v[k]);
            if constexpr (kAlpha) old = _mm_or_si128(old, alpha);
            _mm_storeu_si128(q, _mm_blendv_epi8(src.vec(i, k), _mm_loadu_si128(q), old));
        }
    }
    for (; i < n; ++i)
        if (mask[i]) std::memcpy(dst + i * P, src.pixel(i), ColourBytes);
}

}  // namespace keli::rows
