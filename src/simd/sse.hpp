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
// has to read it, and asking early hides that read behind the work on earlier lines. Eight
// lines ahead: at sixteen, loops over three streams ran 10-20% slower out of cache on a
// processor with a deep hardware prefetcher, and two-stream loops gained nothing.
constexpr std::size_t kPrefetchBytes = 512;
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

// Four lanes of f32 as a value type with the arithmetic the transforms spell out. The same
// templates run on `float` for one lane, so a lane computes the same operations, in the same
// order, whatever the width: results agree bit for bit across widths.
struct F4 {
    __m128 v;
    F4() = default;
    F4(__m128 x) : v(x) {}
};
inline F4 operator+(F4 a, F4 b) { return _mm_add_ps(a.v, b.v); }
inline F4 operator-(F4 a, F4 b) { return _mm_sub_ps(a.v, b.v); }
inline F4 operator*(F4 a, F4 b) { return _mm_mul_ps(a.v, b.v); }
inline F4 operator-(F4 a) { return _mm_xor_ps(a.v, _mm_set1_ps(-0.0f)); }
inline F4 splat4(float x) { return _mm_set1_ps(x); }
inline F4 load4(const float* p) { return _mm_loadu_ps(p); }
inline F4 loada4(const float* p) { return _mm_load_ps(p); }
inline void store4(float* p, F4 a) { _mm_storeu_ps(p, a.v); }
inline void storea4(float* p, F4 a) { _mm_store_ps(p, a.v); }
inline F4 set4(float a, float b, float c, float d) { return _mm_setr_ps(a, b, c, d); }
inline F4 reverse4(F4 a) { return _mm_shuffle_ps(a.v, a.v, _MM_SHUFFLE(0, 1, 2, 3)); }
// Lanes 0 and 2 of a, then of b; lanes 1 and 3 of a, then of b: the real and imaginary parts
// of four interleaved complex numbers held in two registers.
inline F4 evens4(F4 a, F4 b) { return _mm_shuffle_ps(a.v, b.v, _MM_SHUFFLE(2, 0, 2, 0)); }
inline F4 odds4(F4 a, F4 b) { return _mm_shuffle_ps(a.v, b.v, _MM_SHUFFLE(3, 1, 3, 1)); }
// Back to interleaved pairs: (a0 b0 a1 b1) and (a2 b2 a3 b3).
inline F4 interleave_lo4(F4 a, F4 b) { return _mm_unpacklo_ps(a.v, b.v); }
inline F4 interleave_hi4(F4 a, F4 b) { return _mm_unpackhi_ps(a.v, b.v); }
inline void transpose4(F4& a, F4& b, F4& c, F4& d) { _MM_TRANSPOSE4_PS(a.v, b.v, c.v, d.v); }

// Four lanes of f32 with compares, selects and rounding to integers: the pieces a kernel needs
// to branch per lane. Compares give all-ones lanes where true.
inline F4 operator/(F4 a, F4 b) { return _mm_div_ps(a.v, b.v); }
inline F4 sqrt4(F4 a) { return _mm_sqrt_ps(a.v); }
// The lane of a where a < b, else the lane of b (so b where either is not a number).
inline F4 min4(F4 a, F4 b) { return _mm_min_ps(a.v, b.v); }
inline F4 less4(F4 a, F4 b) { return _mm_cmplt_ps(a.v, b.v); }
inline F4 less_equal4(F4 a, F4 b) { return _mm_cmple_ps(a.v, b.v); }
inline F4 greater4(F4 a, F4 b) { return _mm_cmpgt_ps(a.v, b.v); }
inline F4 ordered4(F4 a) { return _mm_cmpord_ps(a.v, a.v); }
inline F4 and4(F4 a, F4 b) { return _mm_and_ps(a.v, b.v); }
// The lane of `yes` where `mask` is set, else the lane of `no`.
inline F4 select4(F4 mask, F4 yes, F4 no) { return _mm_blendv_ps(no.v, yes.v, mask.v); }
inline F4 floor4(F4 a) { return _mm_floor_ps(a.v); }
// Lanes sum as (l0 + l1) + (l2 + l3).
inline float pair_sum4(F4 a)
{
    const __m128 swapped = _mm_shuffle_ps(a.v, a.v, _MM_SHUFFLE(2, 3, 0, 1));
    const __m128 pairs = _mm_add_ps(a.v, swapped);  // l0+l1, l1+l0, l2+l3, l3+l2
    return _mm_cvtss_f32(_mm_add_ss(pairs, _mm_movehl_ps(pairs, pairs)));
}

// Four lanes of i32.
struct I4 {
    __m128i v;
    I4() = default;
    I4(__m128i x) : v(x) {}
};
inline I4 splat4i(std::int32_t x) { return _mm_set1_epi32(x); }
inline I4 operator+(I4 a, I4 b) { return _mm_add_epi32(a.v, b.v); }
inline I4 operator-(I4 a, I4 b) { return _mm_sub_epi32(a.v, b.v); }
inline I4 operator&(I4 a, I4 b) { return _mm_and_si128(a.v, b.v); }
inline I4 operator|(I4 a, I4 b) { return _mm_or_si128(a.v, b.v); }
inline I4 greater4i(I4 a, I4 b) { return _mm_cmpgt_epi32(a.v, b.v); }
inline I4 equal4i(I4 a, I4 b) { return _mm_cmpeq_epi32(a.v, b.v); }
inline I4 shift_left4i(I4 a, int n) { return _mm_slli_epi32(a.v, n); }
inline void storeu4i(std::int32_t* p, I4 a) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), a.v); }
// Lanes of a whole-valued f32 as i32 (out of range or not a number: INT32_MIN).
inline I4 to_int4(F4 a) { return _mm_cvttps_epi32(a.v); }
inline F4 to_float4(I4 a) { return _mm_cvtepi32_ps(a.v); }
inline F4 as_float4(I4 a) { return _mm_castsi128_ps(a.v); }
inline I4 as_int4(F4 a) { return _mm_castps_si128(a.v); }

// Four consecutive elements of T, widened exactly to f32 (integers up to 16 bits).
template <class T> inline F4 widen4(const T* p)
{
    if constexpr (std::is_same_v<T, Kel32f>) {
        return _mm_loadu_ps(p);
    } else if constexpr (std::is_same_v<T, Kel8u>) {
        std::int32_t bits;
        __builtin_memcpy(&bits, p, 4);
        return _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_cvtsi32_si128(bits)));
    } else {
        const __m128i v = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
        if constexpr (std::is_same_v<T, Kel16s>) return _mm_cvtepi32_ps(_mm_cvtepi16_epi32(v));
        else return _mm_cvtepi32_ps(_mm_cvtepu16_epi32(v));
    }
}

// Twelve interleaved f32 (four pixels of three channels) split into the three channels.
inline void deinterleave3(const float* p, F4& c0, F4& c1, F4& c2)
{
    const __m128 a = _mm_loadu_ps(p), b = _mm_loadu_ps(p + 4), c = _mm_loadu_ps(p + 8);
    // a = p0c0 p0c1 p0c2 p1c0, b = p1c1 p1c2 p2c0 p2c1, c = p2c2 p3c0 p3c1 p3c2
    const __m128 t0 = _mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 2, 3, 0));      // p0c0 p1c0 p2c0 p2c0
    c0 = _mm_insert_ps(t0, c, (1 << 6) | (3 << 4));                       // lane 3 <- p3c0
    const __m128 t1 = _mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 0, 1, 1));      // p0c1 p0c1 p1c1 p2c1
    const __m128 t1s = _mm_shuffle_ps(t1, t1, _MM_SHUFFLE(3, 3, 2, 0));   // p0c1 p1c1 p2c1 p2c1
    c1 = _mm_insert_ps(t1s, c, (2 << 6) | (3 << 4));                      // lane 3 <- p3c1
    const __m128 t2 = _mm_shuffle_ps(a, b, _MM_SHUFFLE(1, 1, 2, 2));      // p0c2 p0c2 p1c2 p1c2
    c2 = _mm_shuffle_ps(t2, c, _MM_SHUFFLE(3, 0, 2, 0));                  // p0c2 p1c2 p2c2 p3c2
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
