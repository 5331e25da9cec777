// Patterned fill: a run of bytes set to a pattern that repeats every 16 bytes (one channel, or
// four channels of up to 32 bits) or every 48 bytes (three channels). keliSet builds on it, and
// so does every family whose result is a constant image.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "simd/sse.hpp"

namespace keli::rows {

// The pattern twice over, so that 16 bytes read at any phase below its length are contiguous.
struct FillPattern {
    alignas(16) unsigned char bytes[96];
    std::size_t length;  // 16 or 48
};

// The pattern of a pixel of `channels` elements of T (1, 3 or 4 channels).
template <class T> inline FillPattern make_fill_pattern(const T* pixel, int channels)
{
    FillPattern p;
    p.length = channels == 3 ? 48 : 16;
    const std::size_t pixelBytes = sizeof(T) * static_cast<std::size_t>(channels);
    for (std::size_t at = 0; at < sizeof p.bytes; at += pixelBytes)
        std::memcpy(p.bytes + at, pixel, pixelBytes);
    return p;
}

template <class T> inline FillPattern make_fill_pattern(T value) { return make_fill_pattern(&value, 1); }

// Writes n bytes, byte i being bytes[i % length]. Runs of 16 bytes or more store their first
// and last 16 bytes unaligned (each read at its own phase of the pattern) and the bytes between
// on 16-byte boundaries, 64 bytes a turn; the overlapping stores write the same values twice,
// which spares short runs (frames a few pixels wide) any byte-by-byte tail. With `nonTemporal`
// the aligned stores bypass the caches and a store fence follows them.
inline void fill_run(void* dst, std::size_t n, const FillPattern& p, bool nonTemporal)
{
    auto* d = static_cast<unsigned char*>(dst);
    auto at_phase = [&p](std::size_t i) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p.bytes + i % p.length));
    };
    if (n < 16) {
        if (n >= 8) {
            std::memcpy(d, p.bytes, 8);
            std::memcpy(d + n - 8, p.bytes + (n - 8) % p.length, 8);
        } else {
            for (std::size_t i = 0; i < n; ++i) d[i] = p.bytes[i];
        }
        return;
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), at_phase(0));
    std::size_t i = (0 - reinterpret_cast<std::uintptr_t>(d)) & 15;
    // The three vectors that follow each other from this phase on; with a 16-byte pattern all
    // three are the same. Each store moves the window on by one vector.
    __m128i v0 = at_phase(i), v1 = at_phase(i + 16), v2 = at_phase(i + 32);
    auto run = [&](auto store) {
        for (; i + 64 <= n; i += 64) {
            store(d + i, v0), store(d + i + 16, v1), store(d + i + 32, v2), store(d + i + 48, v0);
            const __m128i t = v0;  // four stores move a three-vector window on by one
            v0 = v1, v1 = v2, v2 = t;
        }
        for (; i + 16 <= n; i += 16) {
            store(d + i, v0);
            const __m128i t = v0;
            v0 = v1, v1 = v2, v2 = t;
        }
    };
    if (nonTemporal) {
        run([](unsigned char* q, __m128i v) { _mm_stream_si128(reinterpret_cast<__m128i*>(q), v); });
        simd::fence();
    } else {
        run([](unsigned char* q, __m128i v) { _mm_store_si128(reinterpret_cast<__m128i*>(q), v); });
    }
    if (i < n) _mm_storeu_si128(reinterpret_cast<__m128i*>(d + n - 16), at_phase(n - 16));
}

}  // namespace keli::rows
