// Histogram row kernels: counter tables for the integer types, the uniform direct bin formula
// of small 16-bit images, and the bin searches of 32f.
//
// Integer pixels are never searched: each one increments its counter, and bins are sums of
// counter ranges afterwards. Consecutive pixels often have the same value, and a run of
// increments of one counter waits on itself through memory; counting alternate pixels into
// separate sets of counters keeps those chains short.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "simd/sse.hpp"
#include "stats/histogram_spec.hpp"

namespace keli::hist::rows {

// ---- 8u counting -------------------------------------------------------------------------------

// Counts one row of C-channel 8u pixels. `sets[k]` are 256 * C counters each, channel-major;
// pixel p goes to set p % Sets.
template <int C, int Sets> struct Count8u {
    static void run(const Kel8u* s, std::size_t pixels, u32_any* const* sets)
    {
        u32_any* set[Sets];
        for (int k = 0; k < Sets; ++k) set[k] = sets[k];
        std::size_t p = 0;
        if constexpr (C == 1 || C == 4) {
            // Sixteen bytes a load: 16 C1 pixels or 4 C4 pixels, whose bytes leave the two
            // halves of the register one by one. Byte b of a load belongs to pixel b / C.
            for (; p + 16 / C <= pixels; p += 16 / C) {
                const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + C * p));
                count_word<0>(static_cast<std::uint64_t>(_mm_cvtsi128_si64(v)), set, std::make_index_sequence<8>());
                count_word<8>(static_cast<std::uint64_t>(_mm_extract_epi64(v, 1)), set, std::make_index_sequence<8>());
            }
        } else {
            // Two pixels an iteration, one into each set.
            for (; p + 2 <= pixels; p += 2) {
                const Kel8u* q = s + C * p;
                for (int c = 0; c < C; ++c) ++set[0][256 * c + q[c]];
                for (int c = 0; c < C; ++c) ++set[1 % Sets][256 * c + q[C + c]];
            }
        }
        for (; p < pixels; ++p)
            for (int c = 0; c < C; ++c) ++set[p % Sets][256 * c + s[C * p + c]];
    }

private:
    // The eight bytes of one half: byte At + B of the load is channel (At + B) % C of pixel
    // (At + B) / C, counted in that pixel's set. Every index is known at compile time.
    template <int At, std::size_t... B>
    static void count_word(std::uint64_t w, u32_any* const* set, std::index_sequence<B...>)
    {
        static_assert(16 / C % Sets == 0, "a load must start a new round of sets");
        ((++set[(At + B) / C % Sets][256 * ((At + B) % C) + ((w >> (8 * B)) & 0xFF)]), ...);
    }
};

// ---- 16-bit counting ---------------------------------------------------------------------------

// Counter index of a 16-bit element: 16s is offset by 32768 so that -32768 is counter 0.
inline std::uint32_t counter_index(Kel16u v) { return v; }
inline std::uint32_t counter_index(Kel16s v) { return static_cast<std::uint16_t>(v) ^ 0x8000u; }

template <class T, int C> inline void count16(const T* s, std::size_t pixels, u32_any* counters)
{
    std::size_t p = 0;
    if constexpr (C == 1) {
        for (; p + 8 <= pixels; p += 8) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + p));
            std::uint64_t lo = static_cast<std::uint64_t>(_mm_cvtsi128_si64(v));
            std::uint64_t hi = static_cast<std::uint64_t>(_mm_extract_epi64(v, 1));
            for (int k = 0; k < 4; ++k, lo >>= 16) ++counters[counter_index(static_cast<T>(lo & 0xFFFF))];
            for (int k = 0; k < 4; ++k, hi >>= 16) ++counters[counter_index(static_cast<T>(hi & 0xFFFF))];
        }
    }
    for (; p < pixels; ++p)
        for (int c = 0; c < C; ++c) ++counters[65536 * c + counter_index(s[C * p + c])];
}

// Bin i of a channel is the sum of the counters of levels[i] ... levels[i + 1] - 1, the levels
// clamped to the counters there are: values below the first level or from the last on fall
// outside every bin.
inline void sum_ranges(const u32_any* counters, std::int64_t counterCount, std::int64_t levelOffset,
                       const i32_any* levels, int nLevels, Kel32u* hist)
{
    auto clamp = [&](std::int64_t level) {
        const std::int64_t k = level + levelOffset;
        return k < 0 ? 0 : k > counterCount ? counterCount : k;
    };
    std::int64_t lo = clamp(levels[0]);
    for (int i = 0; i + 1 < nLevels; ++i) {
        const std::int64_t hi = clamp(levels[i + 1]);
        std::uint32_t sum = 0;
        for (std::int64_t k = lo; k < hi; ++k) sum += counters[k];
        hist[i] = sum;
        lo = hi;
    }
}

// ---- 16-bit direct bins ------------------------------------------------------------------------

// Evenly spaced integer levels of a small image: the bin follows from one division,
// trunc(float(v - first) / float(step)), for first <= v < last. The difference is exact as an
// unsigned 32-bit number and rounds to float once, in both paths.
struct DirectBins {
    std::int32_t first, last;
    float step;
    std::uint32_t lastBin;  // bins - 1: a quotient rounded up to the bin count stays in range

    // Bin of v, or -1 when v is outside [first, last).
    std::int32_t bin(std::int32_t v) const
    {
        if (!(v >= first && v < last)) return -1;
        const std::uint32_t d = static_cast<std::uint32_t>(v) - static_cast<std::uint32_t>(first);
        const float q = _mm_cvtss_f32(_mm_div_ss(_mm_set_ss(static_cast<float>(d)), _mm_set_ss(step)));
        const std::uint32_t b = static_cast<std::uint32_t>(_mm_cvttss_si32(_mm_set_ss(q)));
        return static_cast<std::int32_t>(b < lastBin ? b : lastBin);
    }

    // The same for four values at once; lanes outside the levels give -1.
    __m128i bin(__m128i v) const
    {
        const __m128i first4 = _mm_set1_epi32(first);
        const __m128i inside = _mm_andnot_si128(_mm_cmpgt_epi32(first4, v), _mm_cmpgt_epi32(_mm_set1_epi32(last), v));
        const __m128i d = _mm_sub_epi32(v, first4);
        // Unsigned 32-bit to float with one rounding: the high half times 65536 is exact, and
        // the sum of two exact floats is rounded once.
        const __m128 hi = _mm_mul_ps(_mm_cvtepi32_ps(_mm_srli_epi32(d, 16)), _mm_set1_ps(65536.0f));
        const __m128 df = _mm_add_ps(hi, _mm_cvtepi32_ps(_mm_and_si128(d, _mm_set1_epi32(0xFFFF))));
        const __m128i b = _mm_cvttps_epi32(_mm_div_ps(df, _mm_set1_ps(step)));
        const __m128i clamped = _mm_min_epu32(b, _mm_set1_epi32(static_cast<int>(lastBin)));
        return _mm_or_si128(_mm_and_si128(inside, clamped), _mm_andnot_si128(inside, _mm_set1_epi32(-1)));
    }
};

template <class T> inline __m128i widen_lo(__m128i v)
{
    if constexpr (std::is_same_v<T, Kel16s>) return _mm_cvtepi16_epi32(v);
    else return _mm_cvtepu16_epi32(v);
}

// One C1 run (or one channel of C channels at stride C) through the direct bins.
template <class T, int C> inline void direct16(const T* s, std::size_t pixels, const DirectBins* bins, Kel32u* const* hist)
{
    std::size_t p = 0;
    if constexpr (C == 1) {
        for (; p + 8 <= pixels; p += 8) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + p));
            alignas(16) std::int32_t b[8];
            _mm_store_si128(reinterpret_cast<__m128i*>(b), bins[0].bin(widen_lo<T>(v)));
            _mm_store_si128(reinterpret_cast<__m128i*>(b + 4), bins[0].bin(widen_lo<T>(_mm_unpackhi_epi64(v, v))));
            for (int k = 0; k < 8; ++k)
                if (b[k] >= 0) ++hist[0][b[k]];
        }
    }
    for (; p < pixels; ++p)
        for (int c = 0; c < C; ++c) {
            const std::int32_t b = bins[c].bin(static_cast<std::int32_t>(s[C * p + c]));
            if (b >= 0) ++hist[c][b];
        }
}

// ---- 32f searches ------------------------------------------------------------------------------

// The bin of v among strictly increasing levels, or -1 outside [levels[0], levels[n - 1]):
// a walk from the first bin for few levels, a halving search for many. Both give the same bin.
inline int walk_bin(const f32_any* L, int n, float v)
{
    if (!(v >= L[0] && L[n - 1] > v)) return -1;
    int i = 0;
    while (!(L[i + 1] > v)) ++i;
    return i;
}

inline int halving_bin(const f32_any* L, int n, float v)
{
    if (!(v >= L[0] && L[n - 1] > v)) return -1;
    int lo = 0, hi = n - 1;  // L[lo] <= v < L[hi]
    while (hi - lo > 1) {
        const int mid = lo + (hi - lo) / 2;
        if (L[mid] <= v) lo = mid;
        else hi = mid;
    }
    return lo;
}

// The uniform fast path: t = v * inv - inv * first, bin trunc(t). Where t lies within 0.001
// of an integer, rounding may have moved it across a level, so the bins on both sides are
// tested exactly; a value that fits none of them is not counted.
struct UniformBins {
    const f32_any* L;
    int n;
    float first, last, inv, offset;  // offset = inv * first, rounded once

    UniformBins(const f32_any* levels, int nLevels, float step)
        : L(levels), n(nLevels), first(levels[0]), last(levels[nLevels - 1]),
          inv(_mm_cvtss_f32(_mm_div_ss(_mm_set_ss(1.0f), _mm_set_ss(step)))),
          offset(_mm_cvtss_f32(_mm_mul_ss(_mm_set_ss(inv), _mm_set_ss(first))))
    {
    }

    static constexpr float kLow = 0.001f, kHigh = 0.999f;

    // Bin of one value from its truncated t and the two tests; -1 when not counted.
    int resolve(float v, std::int32_t i, bool inside, bool nearLevel) const
    {
        if (!inside) return -1;
        const int bins = n - 1;
        if (!nearLevel && i >= 0 && i < bins) return i;
        for (int b = i - 1; b <= i + 1; ++b)
            if (b >= 0 && b < bins && L[b] <= v && v < L[b + 1]) return b;
        return -1;
    }

    int bin(float v) const
    {
        const __m128 x = _mm_set_ss(v);
        const __m128 t = _mm_sub_ss(_mm_mul_ss(x, _mm_set_ss(inv)), _mm_set_ss(offset));
        const __m128 frac = _mm_sub_ss(t, _mm_round_ss(t, t, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC));
        const float f = _mm_cvtss_f32(frac);
        return resolve(v, _mm_cvttss_si32(t), v >= first && v < last, f < kLow || f > kHigh);
    }

    // Four values: a multiply, a subtraction and a truncation for all, the exact tests only
    // for the lanes near a level.
    void bins(__m128 x, std::int32_t* out) const
    {
        const __m128 t = _mm_sub_ps(_mm_mul_ps(x, _mm_set1_ps(inv)), _mm_set1_ps(offset));
        const __m128i i = _mm_cvttps_epi32(t);
        const __m128 frac = _mm_sub_ps(t, _mm_round_ps(t, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC));
        const __m128 inside = _mm_and_ps(_mm_cmpge_ps(x, _mm_set1_ps(first)), _mm_cmplt_ps(x, _mm_set1_ps(last)));
        const __m128 nearLevel = _mm_or_ps(_mm_cmplt_ps(frac, _mm_set1_ps(kLow)), _mm_cmpgt_ps(frac, _mm_set1_ps(kHigh)));
        const int insideBits = _mm_movemask_ps(inside), nearBits = _mm_movemask_ps(nearLevel);
        alignas(16) std::int32_t idx[4];
        alignas(16) float v[4];
        _mm_store_si128(reinterpret_cast<__m128i*>(idx), i);
        _mm_store_ps(v, x);
        for (int k = 0; k < 4; ++k) out[k] = resolve(v[k], idx[k], insideBits >> k & 1, nearBits >> k & 1);
    }
};

inline void uniform32f(const Kel32f* s, std::size_t n, const UniformBins& u, Kel32u* hist)
{
    std::size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        std::int32_t b[4];
        u.bins(_mm_loadu_ps(s + i), b);
        for (int k = 0; k < 4; ++k)
            if (b[k] >= 0) ++hist[b[k]];
    }
    for (; i < n; ++i) {
        const int b = u.bin(s[i]);
        if (b >= 0) ++hist[b];
    }
}

}  // namespace keli::hist::rows
