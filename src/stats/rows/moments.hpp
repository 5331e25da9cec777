// Moment row kernel: the four power sums of one row, per channel, in 64-bit floats:
// S0 = sum v, S1 = sum x v, S2 = sum x^2 v, S3 = sum x^3 v, x counted from the row's start.
//
// The elements of a run are converted to doubles in order, two to a register, so each lane of
// a register holds a known channel and a known x, read from a table of the chunk of the row
// it lies in. A run of C channels repeats its lane layout
// every P registers (one for C1, three for C3, two for four-channel pixels), and each of the P
// positions keeps its own four sums; the lanes are sorted into channels once a row. C1 keeps
// two such sets so that consecutive registers do not wait on each other's additions.
#pragma once

#include <cstddef>
#include <utility>

#include "simd/sse.hpp"

namespace keli::rows {

template <std::size_t C> constexpr std::size_t kMomentPhases = C == 1 ? 2 : C == 3 ? 3 : 2;

namespace detail {

// 16 elements of a run as eight registers of two doubles, in element order.
inline void to_doubles16(const Kel8u* p, __m128d (&d)[8])
{
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    for (int k = 0; k < 4; ++k) {
        // Four bytes at a time: shift them to the bottom, widen to 32-bit, convert by pairs.
        const __m128i w = _mm_cvtepu8_epi32(k == 0 ? v : k == 1 ? _mm_srli_si128(v, 4) : k == 2 ? _mm_srli_si128(v, 8) : _mm_srli_si128(v, 12));
        d[2 * k] = _mm_cvtepi32_pd(w);
        d[2 * k + 1] = _mm_cvtepi32_pd(_mm_srli_si128(w, 8));
    }
}

inline void to_doubles16(const Kel16u* p, __m128d (&d)[8])
{
    for (int h = 0; h < 2; ++h) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 8 * h));
        const __m128i lo = _mm_cvtepu16_epi32(v), hi = _mm_cvtepu16_epi32(_mm_srli_si128(v, 8));
        d[4 * h] = _mm_cvtepi32_pd(lo);
        d[4 * h + 1] = _mm_cvtepi32_pd(_mm_srli_si128(lo, 8));
        d[4 * h + 2] = _mm_cvtepi32_pd(hi);
        d[4 * h + 3] = _mm_cvtepi32_pd(_mm_srli_si128(hi, 8));
    }
}

inline void to_doubles16(const Kel32f* p, __m128d (&d)[8])
{
    for (int q = 0; q < 4; ++q) {
        const __m128 v = _mm_loadu_ps(p + 4 * q);
        d[2 * q] = _mm_cvtps_pd(v);
        d[2 * q + 1] = _mm_cvtps_pd(_mm_movehl_ps(v, v));
    }
}

struct PowerSums {
    __m128d s[4];
};

// Adds v, v x, v x^2, v x^3 to the sums: x powers formed by repeated multiplication.
inline void accumulate(PowerSums& a, __m128d v, __m128d x)
{
    const __m128d t1 = _mm_mul_pd(v, x);
    const __m128d t2 = _mm_mul_pd(t1, x);
    const __m128d t3 = _mm_mul_pd(t2, x);
    a.s[0] = _mm_add_pd(a.s[0], v);
    a.s[1] = _mm_add_pd(a.s[1], t1);
    a.s[2] = _mm_add_pd(a.s[2], t2);
    a.s[3] = _mm_add_pd(a.s[3], t3);
}

// Eight registers from register `Base` of a block, each into the sums of its phase, with the
// x of its lanes read from the chunk's table (`u` at the block's first element). The phases
// are constants, so the sums stay in registers.
template <std::size_t P, std::size_t Base, std::size_t... K>
inline void feed(const __m128d (&d)[8], PowerSums (&acc)[P], const double* u, std::index_sequence<K...>)
{
    (accumulate(acc[(Base + K) % P], d[K], _mm_load_pd(u + 2 * (Base + K))), ...);
}

// Moves sums taken about x = 0 to the origin -x0 and adds them to `total`: the binomial
// expansion of (x + x0)^k in Horner form.
inline void shift_into(PowerSums& total, const PowerSums& local, __m128d x0)
{
    const __m128d l0 = local.s[0], l1 = local.s[1], l2 = local.s[2], l3 = local.s[3];
    const __m128d two = _mm_set1_pd(2), three = _mm_set1_pd(3);
    total.s[0] = _mm_add_pd(total.s[0], l0);
    total.s[1] = _mm_add_pd(total.s[1], _mm_add_pd(l1, _mm_mul_pd(x0, l0)));
    total.s[2] = _mm_add_pd(total.s[2], _mm_add_pd(l2, _mm_mul_pd(x0, _mm_add_pd(_mm_mul_pd(two, l1), _mm_mul_pd(x0, l0)))));
    const __m128d inner = _mm_add_pd(_mm_mul_pd(three, l1), _mm_mul_pd(x0, l0));
    total.s[3] = _mm_add_pd(total.s[3], _mm_add_pd(l3, _mm_mul_pd(x0, _mm_add_pd(_mm_mul_pd(three, l2), _mm_mul_pd(x0, inner)))));
}

// The x of every element of a chunk, counted from the chunk's first pixel. A row is walked in
// chunks so that x comes from this table instead of being counted up in the loop; each
// chunk's sums are then moved to its place in the row. For integer images every term is an
// integer, so while the sums stay below 2^53 they are exact either way.
template <std::size_t C> struct ChunkX {
    static constexpr std::size_t kPixels = C == 1 ? 256 : 128;
    static constexpr std::size_t kElements = kPixels * C;
    alignas(16) double x[kElements];
    constexpr ChunkX() : x()
    {
        for (std::size_t e = 0; e < kElements; ++e) x[e] = double(e / C);
    }
};
template <std::size_t C> inline constexpr ChunkX<C> kChunkX{};

}  // namespace detail

// Sums of one row of `width` pixels of C channels into sums[c][k] (set, not added), for the
// first `Processed` channels. Rows narrower than four pixels take the scalar loop alone.
template <std::size_t C, std::size_t Processed, class T>
inline void moment_row(const T* src, std::size_t width, double (&sums)[3][4])
{
    constexpr std::size_t P = kMomentPhases<C>;
    for (auto& ch : sums)
        for (double& s : ch) s = 0;
    const std::size_t n = width * C;
    std::size_t i = 0;
    if (width >= 4) {
        detail::PowerSums acc[P];
        for (auto& a : acc)
            for (auto& s : a.s) s = _mm_setzero_pd();
        // A block is a whole number of turns: 16 elements, or 48 for three channels; a chunk
        // a whole number of blocks.
        constexpr std::size_t B = C == 3 ? 48 : 16;
        constexpr std::size_t chunk = detail::ChunkX<C>::kElements;
        static_assert(chunk % B == 0 && chunk % C == 0, "chunks hold whole blocks and pixels");
        const double* u = detail::kChunkX<C>.x;
        __m128d d[8];
        while (n - i >= B) {
            const std::size_t start = i;
            const std::size_t end = start + ((n - start) / B * B < chunk ? (n - start) / B * B : chunk);
            detail::PowerSums local[P];
            for (auto& a : local)
                for (auto& s : a.s) s = _mm_setzero_pd();
            for (; i < end; i += B) {
                simd::read_ahead(src + i);
                const double* ub = u + (i - start);
                detail::to_doubles16(src + i, d);
                detail::feed<P, 0>(d, local, ub, std::make_index_sequence<8>{});
                if constexpr (C == 3) {
                    detail::to_doubles16(src + i + 16, d);
                    detail::feed<P, 8>(d, local, ub, std::make_index_sequence<8>{});
                    detail::to_doubles16(src + i + 32, d);
                    detail::feed<P, 16>(d, local, ub, std::make_index_sequence<8>{});
                }
            }
            const __m128d x0 = _mm_set1_pd(double(start / C));
            for (std::size_t g = 0; g < P; ++g) detail::shift_into(acc[g], local[g], x0);
        }
        for (std::size_t g = 0; g < P; ++g) {
            alignas(16) double lane[4][2];
            for (int k = 0; k < 4; ++k) _mm_store_pd(lane[k], acc[g].s[k]);
            for (std::size_t j = 0; j < 2; ++j) {
                const std::size_t c = (2 * g + j) % C;
                if (c < Processed)
                    for (int k = 0; k < 4; ++k) sums[c][k] += lane[k][j];
            }
        }
    }
    for (; i < n; ++i) {
        const std::size_t c = i % C;
        if (c >= Processed) continue;
        const double v = double(src[i]), xd = double(i / C);
        const double t1 = v * xd, t2 = t1 * xd, t3 = t2 * xd;
        sums[c][0] += v;
        sums[c][1] += t1;
        sums[c][2] += t2;
        sums[c][3] += t3;
    }
}

}  // namespace keli::rows
