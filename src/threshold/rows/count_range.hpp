// Range counting row kernels: per channel, the number of elements with lower <= v <= upper.
//
// Counts live in vector lanes while a row runs and are folded into 64-bit totals per channel;
// the caller keeps the low 32 bits, so the count wraps at that size whatever the image.
// Bytes count in 8-bit lanes, folded every 255 vectors so that no lane can overflow; floats
// count in 32-bit lanes, which wrap exactly as the 32-bit result does.
#pragma once

#include <cstddef>
#include <cstdint>

#include "simd/sse.hpp"

namespace keli::rows {

// Vectors that make one turn of the channel pattern: three channels take three vectors before
// a vector starts on channel 0 again, one and four channels take one.
template <std::size_t C> constexpr std::size_t kPatternVectors = C == 3 ? 3 : 1;

// Bounds and channel selectors laid out as the repeating channel pattern.
template <class T, std::size_t C> struct RangePattern {
    static constexpr std::size_t G = kPatternVectors<C>;
    static constexpr std::size_t L = simd::lanes<T>;
    T lower[C], upper[C];
    simd::reg_t<T> lo[G], hi[G];
    __m128i select[G][3];  // all ones on the lanes of channel c in vector g of the turn

    RangePattern(const T* lowerBound, const T* upperBound, std::size_t processed)
    {
        for (std::size_t c = 0; c < C; ++c) {
            lower[c] = c < processed ? lowerBound[c] : T(0);
            upper[c] = c < processed ? upperBound[c] : T(0);
        }
        for (std::size_t g = 0; g < G; ++g) {
            alignas(16) T l[L], h[L];
            alignas(16) std::int8_t sel[3][16];
            for (std::size_t j = 0; j < L; ++j) {
                const std::size_t c = (g * L + j) % C;
                l[j] = lower[c];
                h[j] = upper[c];
                for (std::size_t k = 0; k < 3; ++k)
                    for (std::size_t b = 0; b < sizeof(T); ++b) sel[k][j * sizeof(T) + b] = c == k ? -1 : 0;
            }
            lo[g] = simd::loada(l);
            hi[g] = simd::loada(h);
            for (std::size_t k = 0; k < 3; ++k) select[g][k] = simd::loada(sel[k]);
        }
    }
};

namespace detail {

inline std::uint64_t sum_u64_lanes(__m128i v)
{
    return static_cast<std::uint64_t>(_mm_cvtsi128_si64(v)) + static_cast<std::uint64_t>(_mm_extract_epi64(v, 1));
}

inline std::uint32_t sum_u32_lanes(__m128i v, std::size_t first, std::size_t count)
{
    alignas(16) std::uint32_t lane[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(lane), v);
    std::uint32_t s = 0;
    for (std::size_t j = first; j < first + count; ++j) s += lane[j];
    return s;
}

}  // namespace detail

// Adds the counts of one row of n elements (whole pixels of C channels) to total[0..processed).
template <std::size_t C, std::size_t Processed>
inline void count_range_row(const Kel8u* src, std::size_t n, const RangePattern<Kel8u, C>& p, std::uint64_t* total)
{
    constexpr std::size_t G = kPatternVectors<C>;
    constexpr std::size_t turn = 16 * G;
    std::size_t i = 0;
    while (i + turn <= n) {
        __m128i count[G];
        for (auto& c : count) c = _mm_setzero_si128();
        // At most 255 turns before the byte lanes are folded.
        const std::size_t stop = i + turn * ((n - i) / turn < 255 ? (n - i) / turn : 255);
        for (; i < stop; i += turn) {
            simd::prefetch_ahead(src + i);
            for (std::size_t g = 0; g < G; ++g) {
                const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i + 16 * g));
                const __m128i clamped = _mm_min_epu8(_mm_max_epu8(v, p.lo[g]), p.hi[g]);
                count[g] = _mm_sub_epi8(count[g], _mm_cmpeq_epi8(clamped, v));
            }
        }
        for (std::size_t g = 0; g < G; ++g)
            for (std::size_t c = 0; c < Processed; ++c) {
                const __m128i own = C == 1 ? count[g] : _mm_and_si128(count[g], p.select[g][c]);
                total[c] += detail::sum_u64_lanes(_mm_sad_epu8(own, _mm_setzero_si128()));
            }
    }
    for (; i < n; ++i) {
        const std::size_t c = i % C;
        if (c < Processed) total[c] += p.lower[c] <= src[i] && src[i] <= p.upper[c];
    }
}

// Floats: in range when lower <= v and v <= upper, both false on a not-a-number.
template <std::size_t C, std::size_t Processed>
inline void count_range_row(const Kel32f* src, std::size_t n, const RangePattern<Kel32f, C>& p, std::uint64_t* total)
{
    constexpr std::size_t G = kPatternVectors<C>;
    constexpr std::size_t turn = 4 * G;
    __m128i count[G];
    for (auto& c : count) c = _mm_setzero_si128();
    std::size_t i = 0;
    for (; i + turn <= n; i += turn) {
        simd::prefetch_ahead(src + i);
        for (std::size_t g = 0; g < G; ++g) {
            const __m128 v = _mm_loadu_ps(src + i + 4 * g);
            const __m128 in = _mm_and_ps(_mm_cmple_ps(p.lo[g], v), _mm_cmple_ps(v, p.hi[g]));
            count[g] = _mm_sub_epi32(count[g], _mm_castps_si128(in));
        }
    }
    for (std::size_t g = 0; g < G; ++g)
        for (std::size_t j = 0; j < 4; ++j) {
            const std::size_t c = (4 * g + j) % C;
            if (c < Processed) total[c] += detail::sum_u32_lanes(count[g], j, 1);
        }
    for (; i < n; ++i) {
        const std::size_t c = i % C;
        if (c < Processed) total[c] += p.lower[c] <= src[i] && src[i] <= p.upper[c];
    }
}

}  // namespace keli::rows
