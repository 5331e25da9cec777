// Byte-run copies: the plain copy that every layout of keliCopy reduces to, its non-temporal
// twin for copies larger than the caches, and the three kinds of keliCopyManaged. A run knows
// nothing of images: a source, a destination and a count of bytes.
//
// None of these fences: a caller that used a non-temporal kind issues one store fence after its
// last run, so that a whole image costs one fence rather than one a row.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "simd/sse.hpp"

namespace keli::rows {

namespace detail {

using Byte = unsigned char;

inline __m128i ld(const Byte* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline __m128i lda(const Byte* p) { return _mm_load_si128(reinterpret_cast<const __m128i*>(p)); }
inline void st(Byte* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
inline void sta(Byte* p, __m128i v) { _mm_store_si128(reinterpret_cast<__m128i*>(p), v); }
inline void stn(Byte* p, __m128i v) { _mm_stream_si128(reinterpret_cast<__m128i*>(p), v); }

inline std::size_t to_boundary(const void* p, std::size_t boundary)
{
    return (0 - reinterpret_cast<std::uintptr_t>(p)) & (boundary - 1);
}

// Copies fewer than 128 bytes in descending powers of two: at most one move of each size.
inline void copy_short(const Byte* s, Byte* d, std::size_t n)
{
    if (n & 64) {
        st(d, ld(s)), st(d + 16, ld(s + 16)), st(d + 32, ld(s + 32)), st(d + 48, ld(s + 48));
        s += 64, d += 64;
    }
    if (n & 32) st(d, ld(s)), st(d + 16, ld(s + 16)), s += 32, d += 32;
    if (n & 16) st(d, ld(s)), s += 16, d += 16;
    if (n & 8) std::memcpy(d, s, 8), s += 8, d += 8;
    if (n & 4) std::memcpy(d, s, 4), s += 4, d += 4;
    if (n & 2) std::memcpy(d, s, 2), s += 2, d += 2;
    if (n & 1) *d = *s;
}

// Moves the bytes before `d` reaches a multiple of `boundary` (a power of two up to 64) with
// moves of 1, 2, 4, 8, 16 and 32 bytes, and advances the pointers and the count past them.
inline void copy_head(const Byte*& s, Byte*& d, std::size_t& n, std::size_t head)
{
    if (head & 1) *d = *s, s += 1, d += 1;
    if (head & 2) std::memcpy(d, s, 2), s += 2, d += 2;
    if (head & 4) std::memcpy(d, s, 4), s += 4, d += 4;
    if (head & 8) std::memcpy(d, s, 8), s += 8, d += 8;
    if (head & 16) st(d, ld(s)), s += 16, d += 16;
    if (head & 32) st(d, ld(s)), st(d + 16, ld(s + 16)), s += 32, d += 32;
    n -= head;
}

// The aligned-destination body: `Turn` bytes a turn (64 or 128) while they last; returns the
// bytes it moved. The store is aligned (ordinary or non-temporal); the source load is aligned
// when the source allows it. Pointers go in by value so that callers keep theirs in registers.
template <std::size_t Turn, bool Stream> inline std::size_t copy_body(const Byte* s, Byte* d, std::size_t n)
{
    static_assert(Turn == 64 || Turn == 128);
    constexpr std::size_t V = Turn / 16;
    auto store = [](Byte* p, __m128i v) { Stream ? stn(p, v) : sta(p, v); };
    const std::size_t body = n / Turn * Turn;
    // Every line of both sides is asked for ahead: an ordinary store to a line not in cache
    // first reads it, and these reads otherwise wait in line behind the loads. Copies ask from
    // as far as reductions do: from memory the nearer distance leaves the loop waiting.
    auto ahead = [](const Byte* from, Byte* to) {
        for (std::size_t k = 0; k < Turn; k += 64) simd::read_ahead(from + k), simd::read_ahead(to + k);
    };
    if (simd::aligned16(s)) {
        for (std::size_t i = 0; i < body; i += Turn) {
            ahead(s + i, d + i);
            __m128i v[V];
            for (std::size_t k = 0; k < V; ++k) v[k] = lda(s + i + 16 * k);
            for (std::size_t k = 0; k < V; ++k) store(d + i + 16 * k, v[k]);
        }
    } else {
        for (std::size_t i = 0; i < body; i += Turn) {
            ahead(s + i, d + i);
            __m128i v[V];
            for (std::size_t k = 0; k < V; ++k) v[k] = ld(s + i + 16 * k);
            for (std::size_t k = 0; k < V; ++k) store(d + i + 16 * k, v[k]);
        }
    }
    return body;
}

}  // namespace detail

// Below this many bytes every copy kind is a plain sequence of short moves.
constexpr std::size_t kShortRunBytes = 64;

// Ordinary copy of n bytes. Runs of 16 bytes and more never move less than a vector at once:
// the first 16 and the last 64 bytes go as unaligned vectors that overlap the aligned body
// (read before anything is written, so a run onto itself stays whole), and the body between
// moves 64 or 128 bytes a turn on the destination's 16-byte boundary. Runs of up to 64 bytes
// are two or four overlapping moves. Source and destination must not overlap otherwise.
inline void copy_bytes(const void* src, void* dst, std::size_t n)
{
    auto* s = static_cast<const detail::Byte*>(src);
    auto* d = static_cast<detail::Byte*>(dst);
    using detail::ld;
    using detail::st;
    if (n < 16) {
        if (n >= 8) {
            std::uint64_t a, b;
            std::memcpy(&a, s, 8), std::memcpy(&b, s + n - 8, 8);
            std::memcpy(d, &a, 8), std::memcpy(d + n - 8, &b, 8);
        } else if (n >= 4) {
            std::uint32_t a, b;
            std::memcpy(&a, s, 4), std::memcpy(&b, s + n - 4, 4);
            std::memcpy(d, &a, 4), std::memcpy(d + n - 4, &b, 4);
        } else {
            for (std::size_t i = 0; i < n; ++i) d[i] = s[i];
        }
        return;
    }
    const __m128i first = ld(s), last = ld(s + n - 16);
    if (n <= 32) {
        st(d, first), st(d + n - 16, last);
        return;
    }
    if (n <= 64) {
        const __m128i second = ld(s + 16), third = ld(s + n - 32);
        st(d, first), st(d + 16, second), st(d + n - 32, third), st(d + n - 16, last);
        return;
    }
    // The last 64 bytes go as four unaligned vectors at the end, over whatever the aligned
    // moves before them left: no loop of single vectors, no count to finish.
    const __m128i end0 = ld(s + n - 64), end1 = ld(s + n - 48), end2 = ld(s + n - 32);
    const std::size_t head = detail::to_boundary(d, 16);
    st(d, first);
    s += head, d += head, n -= head;
    // Long runs take the prefetching body; shorter ones (rows of images that the caches hold,
    // where the prefetches would only cost load slots) go straight to plain moves.
    if (n >= 2048) {
        const std::size_t body = detail::copy_body<128, false>(s, d, n);
        s += body, d += body, n -= body;
    }
    for (; n > 64; s += 64, d += 64, n -= 64) {
        const __m128i a = ld(s), b = ld(s + 16), c = ld(s + 32), e = ld(s + 48);
        detail::sta(d, a), detail::sta(d + 16, b), detail::sta(d + 32, c), detail::sta(d + 48, e);
    }
    st(d + n - 64, end0), st(d + n - 48, end1), st(d + n - 32, end2), st(d + n - 16, last);
}

// Non-temporal copy of n bytes: ordinary moves up to a 64-byte boundary of the destination,
// then 64 bytes a turn with non-temporal stores, then an ordinary tail. Needs a store fence
// after the caller's last run.
inline void copy_bytes_nt(const void* src, void* dst, std::size_t n)
{
    auto* s = static_cast<const detail::Byte*>(src);
    auto* d = static_cast<detail::Byte*>(dst);
    const std::size_t head = detail::to_boundary(d, 64);
    if (n < head + kShortRunBytes) return copy_bytes(s, d, n);  // too short to stream a line
    detail::copy_head(s, d, n, head);
    const std::size_t body = detail::copy_body<64, true>(s, d, n);
    detail::copy_short(s + body, d + body, n - body);
}

// The kinds of keliCopyManaged_8u_C1R.
enum class ManagedCopy { Ordinary, NonTemporalStore, NonTemporalLoad };

// Ordinary or non-temporal stores: a run of at least 64 bytes is aligned on the destination
// (16 bytes) and copied 64 bytes a turn.
template <ManagedCopy K> inline void copy_bytes_managed(const void* src, void* dst, std::size_t n)
{
    auto* s = static_cast<const detail::Byte*>(src);
    auto* d = static_cast<detail::Byte*>(dst);
    if constexpr (K == ManagedCopy::NonTemporalLoad) {
        // Streaming loads need a 16-byte aligned source: align the source on 64 bytes, then read
        // whole cache lines. A destination that is not on 16 bytes gets ordinary unaligned stores.
        const std::size_t head = detail::to_boundary(s, 64);
        if (n >= head + kShortRunBytes) {
            detail::copy_head(s, d, n, head);
            const std::size_t body = n / 64 * 64;
            auto* from = reinterpret_cast<__m128i*>(const_cast<detail::Byte*>(s));
            if (simd::aligned16(d)) {
                for (std::size_t i = 0; i < body; i += 64, from += 4) {
                    const __m128i a = _mm_stream_load_si128(from), b = _mm_stream_load_si128(from + 1);
                    const __m128i c = _mm_stream_load_si128(from + 2), e = _mm_stream_load_si128(from + 3);
                    detail::stn(d + i, a), detail::stn(d + i + 16, b);
                    detail::stn(d + i + 32, c), detail::stn(d + i + 48, e);
                }
            } else {
                for (std::size_t i = 0; i < body; i += 64, from += 4) {
                    const __m128i a = _mm_stream_load_si128(from), b = _mm_stream_load_si128(from + 1);
                    const __m128i c = _mm_stream_load_si128(from + 2), e = _mm_stream_load_si128(from + 3);
                    detail::st(d + i, a), detail::st(d + i + 16, b);
                    detail::st(d + i + 32, c), detail::st(d + i + 48, e);
                }
            }
            s += body, d += body, n -= body;
        }
    } else {
        if (n >= kShortRunBytes) {
            detail::copy_head(s, d, n, detail::to_boundary(d, 16));
            const std::size_t body = detail::copy_body<64, K == ManagedCopy::NonTemporalStore>(s, d, n);
            s += body, d += body, n -= body;
        }
    }
    detail::copy_short(s, d, n);
}

}  // namespace keli::rows
