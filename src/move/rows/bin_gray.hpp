// Rows between one-bit images and gray ones. Pixel i of a row is bit (offset + i) of the row's
// bit stream, bits counted from the low bit of each byte upward. A row runs bit by bit up to a
// byte boundary of that stream, then a whole byte (eight pixels) a vector step, then bit by
// bit again; the vector step and the single bits compute the same test.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "simd/sse.hpp"

namespace keli::rows {

// ---- one bit to gray -----------------------------------------------------------------------------

template <class D> struct BitExpand {
    D lo, hi;
    D pixel(unsigned bit) const { return bit ? hi : lo; }
    // Eight pixels from the bits of one byte, lowest bit first.
    void byte(unsigned b, D* d) const
    {
        if constexpr (sizeof(D) == 1) {
            const __m128i bits = _mm_setr_epi8(1, 2, 4, 8, 16, 32, 64, -128, 0, 0, 0, 0, 0, 0, 0, 0);
            const __m128i set = _mm_cmpeq_epi8(_mm_and_si128(_mm_set1_epi8(char(b)), bits), bits);
            const __m128i v = _mm_blendv_epi8(_mm_set1_epi8(char(lo)), _mm_set1_epi8(char(hi)), set);
            _mm_storel_epi64(reinterpret_cast<__m128i*>(d), v);
        } else if constexpr (sizeof(D) == 2) {
            const __m128i bits = _mm_setr_epi16(1, 2, 4, 8, 16, 32, 64, 128);
            const __m128i set = _mm_cmpeq_epi16(_mm_and_si128(_mm_set1_epi16(short(b)), bits), bits);
            const __m128i v = _mm_blendv_epi8(_mm_set1_epi16(short(lo)), _mm_set1_epi16(short(hi)), set);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(d), v);
        } else {
            const __m128i all = _mm_set1_epi32(int(b));
            const __m128i b0 = _mm_setr_epi32(1, 2, 4, 8), b1 = _mm_setr_epi32(16, 32, 64, 128);
            const __m128 s0 = _mm_castsi128_ps(_mm_cmpeq_epi32(_mm_and_si128(all, b0), b0));
            const __m128 s1 = _mm_castsi128_ps(_mm_cmpeq_epi32(_mm_and_si128(all, b1), b1));
            _mm_storeu_ps(d, _mm_blendv_ps(_mm_set1_ps(lo), _mm_set1_ps(hi), s0));
            _mm_storeu_ps(d + 4, _mm_blendv_ps(_mm_set1_ps(lo), _mm_set1_ps(hi), s1));
        }
    }
};

template <class D> inline void bin_to_gray_row(const Kel8u* src, unsigned offset, D* dst, std::size_t n, const BitExpand<D>& e)
{
    std::size_t i = 0;
    unsigned bit = offset;
    for (; i < n && bit != 0; ++i) {
        dst[i] = e.pixel((*src >> bit) & 1u);
        if (++bit == 8) bit = 0, ++src;
    }
    for (; i + 8 <= n; i += 8) e.byte(*src++, dst + i);
    for (; i < n; ++i, ++bit) dst[i] = e.pixel((*src >> bit) & 1u);
}

// ---- gray to one bit -----------------------------------------------------------------------------

// bit = x > threshold, in the element's own signedness (or in 32f, where not-a-number gives 0).
template <class S> struct BitThreshold {
    S t;
    bool pixel(S x) const { return x > t; }
    unsigned byte(const S* s) const
    {
        if constexpr (sizeof(S) == 1) {
            const __m128i flip = _mm_set1_epi8(char(0x80));
            const __m128i x = _mm_xor_si128(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(s)), flip);
            const __m128i th = _mm_xor_si128(_mm_set1_epi8(char(t)), flip);
            return unsigned(_mm_movemask_epi8(_mm_cmpgt_epi8(x, th))) & 0xFFu;
        } else if constexpr (sizeof(S) == 2) {
            const __m128i flip = _mm_set1_epi16(std::is_signed_v<S> ? 0 : short(-32768));
            const __m128i x = _mm_xor_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s)), flip);
            const __m128i th = _mm_xor_si128(_mm_set1_epi16(short(t)), flip);
            const __m128i m = _mm_cmpgt_epi16(x, th);
            return unsigned(_mm_movemask_epi8(_mm_packs_epi16(m, m))) & 0xFFu;
        } else {
            const __m128 th = _mm_set1_ps(t);
            const unsigned lo = unsigned(_mm_movemask_ps(_mm_cmpgt_ps(_mm_loadu_ps(s), th)));
            const unsigned hi = unsigned(_mm_movemask_ps(_mm_cmpgt_ps(_mm_loadu_ps(s + 4), th)));
            return lo | hi << 4;
        }
    }
};

template <class S> inline void gray_to_bin_row(const S* src, Kel8u* dst, unsigned offset, std::size_t n, const BitThreshold<S>& th)
{
    auto put = [](Kel8u* d, unsigned bit, bool on) {
        *d = static_cast<Kel8u>(on ? (*d | (1u << bit)) : (*d & ~(1u << bit)));
    };
    std::size_t i = 0;
    unsigned bit = offset;
    for (; i < n && bit != 0; ++i) {
        put(dst, bit, th.pixel(src[i]));
        if (++bit == 8) bit = 0, ++dst;
    }
    for (; i + 8 <= n; i += 8) *dst++ = static_cast<Kel8u>(th.byte(src + i));
    for (; i < n; ++i, ++bit) put(dst, bit, th.pixel(src[i]));
}

}  // namespace keli::rows
