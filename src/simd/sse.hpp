// Thin SSE4.2 layer: the register type of each element type, loads and stores, and the few
// helpers the row kernels share. This is the only place where `_mm_*` names are spelled out
// for generic code; kernels of one element type may still call intrinsics directly.
#pragma once

#include <nmmintrin.h>  // SSE4.2 and everything below it

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "keli_types.h"

namespace keli::simd {

constexpr std::size_t kVectorBytes = 16;

// The register that holds 16 bytes of T: __m128 for 32f, __m128d for 64f, __m128i otherwise.
template <class T> struct Reg { using type = __m128i; };
template <> struct Reg<Kel32f> { using type = __m128; };
template <> struct Reg<Kel64f> { using type = __m128d; };
template <class T> using reg_t = typename Reg<T>::type;

template <class T> constexpr std::size_t lanes = kVectorBytes / sizeof(T);

template <class T> inline reg_t<T> loadu(const T* p)
{
    if constexpr (std::is_same_v<T, Kel32f>) return _mm_loadu_ps(p);
    else if constexpr (std::is_same_v<T, Kel64f>) return _mm_loadu_pd(p);
    else return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

template <class T> inline reg_t<T> loada(const T* p)
{
    if constexpr (std::is_same_v<T, Kel32f>) return _mm_load_ps(p);
    else if constexpr (std::is_same_v<T, Kel64f>) return _mm_load_pd(p);
    else return _mm_load_si128(reinterpret_cast<const __m128i*>(p));
}

template <class T> inline void storeu(T* p, reg_t<T> v)
{
    if constexpr (std::is_same_v<T, Kel32f>) _mm_storeu_ps(p, v);
    else if constexpr (std::is_same_v<T, Kel64f>) _mm_storeu_pd(p, v);
    else _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
}

template <class T> inline void storea(T* p, reg_t<T> v)
{
    if constexpr (std::is_same_v<T, Kel32f>) _mm_store_ps(p, v);
    else if constexpr (std::is_same_v<T, Kel64f>) _mm_store_pd(p, v);
    else _mm_store_si128(reinterpret_cast<__m128i*>(p), v);
}

// Non-temporal store: the destination must be 16-byte aligned. A run of these ends with fence().
template <class T> inline void stream(T* p, reg_t<T> v)
{
    if constexpr (std::is_same_v<T, Kel32f>) _mm_stream_ps(p, v);
    else if constexpr (std::is_same_v<T, Kel64f>) _mm_stream_pd(p, v);
    else _mm_stream_si128(reinterpret_cast<__m128i*>(p), v);
}

inline void fence() { _mm_sfence(); }

// Distance at which streaming loops ask for the lines they will touch next. Prefetching the
// destination as well as the source matters: an ordinary store to a line not in cache first
// has to read it, and asking early hides that read behind the work on earlier lines.
constexpr std::size_t kPrefetchBytes = 1024;
inline void prefetch_ahead(const void* p)
{
    _mm_prefetch(static_cast<const char*>(p) + kPrefetchBytes, _MM_HINT_T0);
}

// Reductions and long copies ask from twice as far: their loops run through a line faster
// than a loop that computes, so from memory the nearer distance leaves them waiting.
constexpr std::size_t kReadAheadBytes = 2048;
inline void read_ahead(const void* p)
{
    _mm_prefetch(static_cast<const char*>(p) + kReadAheadBytes, _MM_HINT_T0);
}

inline bool aligned16(const void* p) { return (reinterpret_cast<std::uintptr_t>(p) & 15) == 0; }

// Elements to handle one by one before `p` reaches a 16-byte boundary, or `npos` when it never
// can (the address is not a multiple of the element size).
constexpr std::size_t npos = ~std::size_t(0);
template <class T> inline std::size_t head_to_align(const T* p)
{
    const std::uintptr_t bytes = (0 - reinterpret_cast<std::uintptr_t>(p)) & 15;
    return bytes % sizeof(T) ? npos : bytes / sizeof(T);
}

}  // namespace keli::simd
