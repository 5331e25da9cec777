// Runs of 32f values made elements, and elements spread over the channels of a pixel: the
// last steps of the synthetic images.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

#include "keli_types.h"
#include "move/rows/mirror.hpp"
#include "simd/sse.hpp"

namespace keli::rows {

// An integer element from a 32f value: limited to the element's range (a not-a-number counts
// as the lower limit, as the vector maximum has it), then rounded to nearest, ties to even,
// under the rounding mode the caller of the kernel has set. 32f values pass unchanged.
template <class T> inline T round_saturate(float v)
{
    if constexpr (std::is_same_v<T, Kel32f>) {
        return v;
    } else {
        const float lo = float(std::numeric_limits<T>::min()), hi = float(std::numeric_limits<T>::max());
        v = v > lo ? v : lo;
        v = v < hi ? v : hi;
        return static_cast<T>(std::lrintf(v));
    }
}

template <class T> inline __m128i round_saturate_int32(__m128 v)
{
    const __m128 lo = _mm_set1_ps(float(std::numeric_limits<T>::min()));
    const __m128 hi = _mm_set1_ps(float(std::numeric_limits<T>::max()));
    return _mm_cvtps_epi32(_mm_min_ps(_mm_max_ps(v, lo), hi));
}

template <class T> inline void round_saturate(const float* v, T* out, std::size_t n)
{
    std::size_t i = 0;
    if constexpr (std::is_same_v<T, Kel32f>) {
        std::memcpy(out, v, n * sizeof(float));
        return;
    } else if constexpr (sizeof(T) == 1) {
        for (; i + 16 <= n; i += 16) {
            const __m128i a = round_saturate_int32<T>(_mm_loadu_ps(v + i));
            const __m128i b = round_saturate_int32<T>(_mm_loadu_ps(v + i + 4));
            const __m128i c = round_saturate_int32<T>(_mm_loadu_ps(v + i + 8));
            const __m128i d = round_saturate_int32<T>(_mm_loadu_ps(v + i + 12));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i),
                             _mm_packus_epi16(_mm_packs_epi32(a, b), _mm_packs_epi32(c, d)));
        }
    } else {
        for (; i + 8 <= n; i += 8) {
            const __m128i a = round_saturate_int32<T>(_mm_loadu_ps(v + i));
            const __m128i b = round_saturate_int32<T>(_mm_loadu_ps(v + i + 4));
            const __m128i packed = std::is_signed_v<T> ? _mm_packs_epi32(a, b) : _mm_packus_epi32(a, b);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), packed);
        }
    }
    for (; i < n; ++i) out[i] = round_saturate<T>(v[i]);
}

// Each of n values becomes a pixel of C channels holding it in every channel the policy writes
// (all of them, or the colour of an AC4 pixel). A vector of values becomes C vectors of pixels
// by byte shuffles.
template <class T, std::size_t C, class Policy> inline void spread_channels(const T* v, T* dst, std::size_t n)
{
    constexpr std::size_t E = sizeof(T), perVector = 16 / E;
    struct Tables {
        alignas(16) signed char masks[C][16];
    };
    static constexpr Tables tables = [] {
        Tables t{};
        for (std::size_t k = 0; k < C; ++k)
            for (std::size_t i = 0; i < 16; ++i) {
                const std::size_t out = 16 * k + i;
                t.masks[k][i] = static_cast<signed char>(out / E / C * E + out % E);
            }
        return t;
    }();
    auto* d = reinterpret_cast<Byte*>(dst);
    std::size_t i = 0;
    for (; i + perVector <= n; i += perVector) {
        const __m128i in = _mm_loadu_si128(reinterpret_cast<const __m128i*>(v + i));
        for (std::size_t k = 0; k < C; ++k)
            Policy::store(d + (i * C * E) + 16 * k,
                          _mm_shuffle_epi8(in, _mm_load_si128(reinterpret_cast<const __m128i*>(tables.masks[k]))));
    }
    for (; i < n; ++i)
        for (std::size_t c = 0; c < Policy::movedBytes / E; ++c) dst[i * C + c] = v[i];
}

}  // namespace keli::rows
