// Row kernels of the integer norms and dot products. A run of interleaved elements (of one
// image, or of two images element by element) is turned into terms in 32-bit lanes: the
// absolute value, the square, the absolute or squared difference, the product. The terms go to
// an accumulator of 32-bit lanes, of 64-bit lanes, or of maxima. Lanes keep one channel each:
// for one and four channels every vector starts on a pixel, for three channels a period of
// three 16-byte chunks does, and one set of accumulators per chunk of the period keeps the
// lanes apart. At the end of a run the lanes are added to exact integer channel totals.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "simd/sse.hpp"

namespace keli::rows {

template <class T> inline T elem(const T* p)
{
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// ---- Widening: 16 bytes of elements into 32-bit vectors in element order ------------------------

template <class T> struct Widen32;

template <> struct Widen32<Kel8u> {
    static constexpr int count = 4;
    static void apply(__m128i x, __m128i* out)
    {
        out[0] = _mm_cvtepu8_epi32(x);
        out[1] = _mm_cvtepu8_epi32(_mm_srli_si128(x, 4));
        out[2] = _mm_cvtepu8_epi32(_mm_srli_si128(x, 8));
        out[3] = _mm_cvtepu8_epi32(_mm_srli_si128(x, 12));
    }
};

template <> struct Widen32<Kel16u> {
    static constexpr int count = 2;
    static void apply(__m128i x, __m128i* out)
    {
        out[0] = _mm_cvtepu16_epi32(x);
        out[1] = _mm_cvtepu16_epi32(_mm_srli_si128(x, 8));
    }
};

template <> struct Widen32<Kel16s> {
    static constexpr int count = 2;
    static void apply(__m128i x, __m128i* out)
    {
        out[0] = _mm_cvtepi16_epi32(x);
        out[1] = _mm_cvtepi16_epi32(_mm_srli_si128(x, 8));
    }
};

// ---- Terms: what one element, or a pair of elements, contributes -------------------------------

// The vector meaning works on 32-bit lanes of widened elements; the scalar meaning on the same
// values in 64 bits. Every term fits its lane: a square or product of 16-bit values reads as an
// unsigned 32-bit number (65535 * 65535 < 2^32), a signed product as a signed one (at most 2^30).
struct TermAbs {
    static constexpr bool pair = false;
    static __m128i apply(__m128i a, __m128i) { return _mm_abs_epi32(a); }
    static std::int64_t apply(std::int64_t a, std::int64_t) { return a < 0 ? -a : a; }
};

struct TermAbsDiff {
    static constexpr bool pair = true;
    static __m128i apply(__m128i a, __m128i b) { return _mm_abs_epi32(_mm_sub_epi32(a, b)); }
    static std::int64_t apply(std::int64_t a, std::int64_t b) { return a < b ? b - a : a - b; }
};

struct TermSq {
    static constexpr bool pair = false;
    static __m128i apply(__m128i a, __m128i) { return _mm_mullo_epi32(a, a); }
    static std::int64_t apply(std::int64_t a, std::int64_t) { return a * a; }
    // Eight 16-bit values in, four 32-bit sums of two squares out: the one-channel 8u form.
    static __m128i pairs16(__m128i a, __m128i) { return _mm_madd_epi16(a, a); }
};

struct TermSqDiff {
    static constexpr bool pair = true;
    static __m128i apply(__m128i a, __m128i b)
    {
        const __m128i d = _mm_sub_epi32(a, b);
        return _mm_mullo_epi32(d, d);
    }
    static std::int64_t apply(std::int64_t a, std::int64_t b) { return (a - b) * (a - b); }
    static __m128i pairs16(__m128i a, __m128i b)
    {
        const __m128i d = _mm_sub_epi16(a, b);  // -255 to 255
        return _mm_madd_epi16(d, d);
    }
};

struct TermProd {
    static constexpr bool pair = true;
    static __m128i apply(__m128i a, __m128i b) { return _mm_mullo_epi32(a, b); }
    static std::int64_t apply(std::int64_t a, std::int64_t b) { return a * b; }
    static __m128i pairs16(__m128i a, __m128i b) { return _mm_madd_epi16(a, b); }
};

// ---- Accumulators -----------------------------------------------------------------------------

// Sums in 32-bit lanes read as unsigned: the caller bounds a run so that no lane passes 2^32.
struct AccAdd32 {
    using Total = std::uint64_t;
    using Lane = std::uint32_t;
    static constexpr int per = 1;  // accumulator vectors per term vector
    static __m128i zero() { return _mm_setzero_si128(); }
    static void add(__m128i* acc, __m128i t) { acc[0] = _mm_add_epi32(acc[0], t); }
    static Total combine(Total tot, Lane lane) { return tot + lane; }
    static Total scalar(Total tot, std::int64_t t) { return tot + static_cast<Total>(t); }
};

// Sums in 64-bit lanes; every 32-bit term is extended with or without its sign.
template <bool Signed> struct AccAdd64 {
    using Total = std::conditional_t<Signed, std::int64_t, std::uint64_t>;
    using Lane = Total;
    static constexpr int per = 2;
    static __m128i zero() { return _mm_setzero_si128(); }
    static void add(__m128i* acc, __m128i t)
    {
        if constexpr (Signed) {
            acc[0] = _mm_add_epi64(acc[0], _mm_cvtepi32_epi64(t));
            acc[1] = _mm_add_epi64(acc[1], _mm_cvtepi32_epi64(_mm_srli_si128(t, 8)));
        } else {
            acc[0] = _mm_add_epi64(acc[0], _mm_unpacklo_epi32(t, _mm_setzero_si128()));
            acc[1] = _mm_add_epi64(acc[1], _mm_unpackhi_epi32(t, _mm_setzero_si128()));
        }
    }
    static Total combine(Total tot, Lane lane) { return tot + lane; }
    static Total scalar(Total tot, std::int64_t t) { return tot + static_cast<Total>(t); }
};

// The largest term (the terms are absolute values, never negative).
struct AccMax {
    using Total = std::uint64_t;
    using Lane = std::uint32_t;
    static constexpr int per = 1;
    static __m128i zero() { return _mm_setzero_si128(); }
    static void add(__m128i* acc, __m128i t) { acc[0] = _mm_max_epu32(acc[0], t); }
    static Total combine(Total tot, Lane lane) { return tot > lane ? tot : lane; }
    static Total scalar(Total tot, std::int64_t t) { return combine(tot, static_cast<Lane>(t)); }
};

// |a - b| of 16-bit values as unsigned 16-bit values: the larger less the smaller, which wraps
// into the right bits even when the difference passes 32767.
template <class T> inline __m128i abs_diff16(__m128i a, __m128i b)
{
    if constexpr (std::is_signed_v<T>) return _mm_sub_epi16(_mm_max_epi16(a, b), _mm_min_epi16(a, b));
    else return _mm_sub_epi16(_mm_max_epu16(a, b), _mm_min_epu16(a, b));
}

// ---- The run ----------------------------------------------------------------------------------

// Adds the terms of n elements of a (and b for terms of pairs), C interleaved channels from a
// pixel boundary, into tot[0..C-1]. The caller keeps n small enough for the lanes.
template <class T, int C, class Term, class Acc>
inline void term_run(const T* a, const T* b, std::size_t n, typename Acc::Total* tot)
{
    using W = Widen32<T>;
    constexpr std::size_t E = 16 / sizeof(T), R = W::count, P = C == 3 ? 3 : 1, K = R * Acc::per;
    constexpr std::size_t laneCount = 16 / sizeof(typename Acc::Lane);
    __m128i acc[P][K];
    for (auto& row : acc)
        for (auto& v : row) v = Acc::zero();
    std::size_t i = 0;
    if constexpr (C == 1 && sizeof(T) == 1 && !std::is_same_v<Acc, AccMax> && !std::is_same_v<Term, TermAbs> &&
                  !std::is_same_v<Term, TermAbsDiff>) {
        // One channel of bytes: pairs of 16-bit values multiplied and added in one step, the
        // order of the lanes being of no account when every lane holds the same channel. Four
        // vectors a turn into the four accumulators keep the loop's own cost out of the way.
        auto take = [&](std::size_t at, __m128i& lo, __m128i& hi) {
            const __m128i x = simd::loadu(a + at), z = _mm_setzero_si128();
            const __m128i y = Term::pair ? simd::loadu(b + at) : x;
            lo = _mm_add_epi32(lo, Term::pairs16(_mm_unpacklo_epi8(x, z), _mm_unpacklo_epi8(y, z)));
            hi = _mm_add_epi32(hi, Term::pairs16(_mm_unpackhi_epi8(x, z), _mm_unpackhi_epi8(y, z)));
        };
        for (; n - i >= 64; i += 64) {
            // Out of cache the lines are asked for ahead: the loop alone does not keep enough
            // reads in flight to run at the memory's speed.
            simd::read_ahead(a + i);
            if constexpr (Term::pair) simd::read_ahead(b + i);
            take(i, acc[0][0], acc[0][1]);
            take(i + 16, acc[0][2], acc[0][3]);
            take(i + 32, acc[0][0], acc[0][1]);
            take(i + 48, acc[0][2], acc[0][3]);
        }
        for (; n - i >= 16; i += 16) take(i, acc[0][0], acc[0][1]);
    } else if constexpr (C == 1 && sizeof(T) == 2 && std::is_same_v<Acc, AccAdd32> &&
                         (std::is_same_v<Term, TermAbs> || std::is_same_v<Term, TermAbsDiff>)) {
        // One channel of 16-bit values: the absolute value or difference as an unsigned 16-bit
        // value, moved down by 32768 so that the signed multiply-add by ones sums pairs of them
        // into 32-bit lanes; the 32768 of every element goes back when the lanes are added up.
        // A lane moves by at most 65536 a vector, so runs of a tile's length stay far inside it.
        const __m128i bias = _mm_set1_epi16(-32768), ones = _mm_set1_epi16(1);
        auto take = [&](std::size_t at, __m128i& sum) {
            const __m128i x = simd::loadu(a + at);
            __m128i d;
            if constexpr (Term::pair) d = abs_diff16<T>(x, simd::loadu(b + at));
            else d = std::is_signed_v<T> ? _mm_abs_epi16(x) : x;
            sum = _mm_add_epi32(sum, _mm_madd_epi16(_mm_xor_si128(d, bias), ones));
        };
        __m128i s0 = _mm_setzero_si128(), s1 = s0;
        for (; n - i >= 16; i += 16) {
            if (i % 32 == 0) {
                simd::read_ahead(a + i);
                if constexpr (Term::pair) simd::read_ahead(b + i);
            }
            take(i, s0);
            take(i + 8, s1);
        }
        for (; n - i >= 8; i += 8) take(i, s0);
        if (i > 0) {
            alignas(16) std::int32_t lanes[8];
            _mm_store_si128(reinterpret_cast<__m128i*>(lanes), s0);
            _mm_store_si128(reinterpret_cast<__m128i*>(lanes + 4), s1);
            std::int64_t t = 32768 * static_cast<std::int64_t>(i);
            for (std::int32_t l : lanes) t += l;
            tot[0] = Acc::scalar(tot[0], t);
        }
        for (; i < n; ++i) {
            const std::int64_t x = elem(a + i), y = Term::pair ? std::int64_t(elem(b + i)) : x;
            tot[0] = Acc::scalar(tot[0], Term::apply(x, y));
        }
        return;
    } else {
        for (; n - i >= P * E;) {
            simd::read_ahead(a + i);
            if constexpr (Term::pair) simd::read_ahead(b + i);
            for (std::size_t k = 0; k < P; ++k, i += E) {
                __m128i wa[R], wb[R];
                W::apply(simd::loadu(a + i), wa);
                if constexpr (Term::pair) W::apply(simd::loadu(b + i), wb);
                for (std::size_t r = 0; r < R; ++r) Acc::add(&acc[k][r * Acc::per], Term::apply(wa[r], Term::pair ? wb[r] : wa[r]));
            }
        }
    }
    if (i > 0) {
        alignas(16) typename Acc::Lane lanes[K * laneCount];
        for (std::size_t k = 0; k < P; ++k) {
            for (std::size_t q = 0; q < K; ++q) _mm_store_si128(reinterpret_cast<__m128i*>(lanes + q * laneCount), acc[k][q]);
            for (std::size_t j = 0; j < K * laneCount; ++j) {
                const std::size_t c = (k * E + j) % C;
                tot[c] = Acc::combine(tot[c], lanes[j]);
            }
        }
    }
    for (; i < n; ++i) {
        const std::int64_t x = elem(a + i), y = Term::pair ? std::int64_t(elem(b + i)) : x;
        tot[i % C] = Acc::scalar(tot[i % C], Term::apply(x, y));
    }
}

// ---- 8u sums of absolute values through the byte sum of absolute differences -----------------

// One channel: the bytes against zero (one image) or against the other image's bytes, in two
// 64-bit lanes; no lane can overflow.
template <bool Pair> inline std::uint64_t sad8u_run(const Kel8u* a, const Kel8u* b, std::size_t n)
{
    __m128i acc0 = _mm_setzero_si128(), acc1 = acc0;
    std::size_t i = 0;
    for (; n - i >= 32; i += 32) {
        if (i % 64 == 0) {
            simd::read_ahead(a + i);
            if (Pair) simd::read_ahead(b + i);
        }
        const __m128i y0 = Pair ? simd::loadu(b + i) : _mm_setzero_si128();
        const __m128i y1 = Pair ? simd::loadu(b + i + 16) : _mm_setzero_si128();
        acc0 = _mm_add_epi64(acc0, _mm_sad_epu8(simd::loadu(a + i), y0));
        acc1 = _mm_add_epi64(acc1, _mm_sad_epu8(simd::loadu(a + i + 16), y1));
    }
    if (n - i >= 16)
        acc0 = _mm_add_epi64(acc0, _mm_sad_epu8(simd::loadu(a + i), Pair ? simd::loadu(b + i) : _mm_setzero_si128())), i += 16;
    alignas(16) std::uint64_t lanes[2];
    _mm_store_si128(reinterpret_cast<__m128i*>(lanes), _mm_add_epi64(acc0, acc1));
    std::uint64_t t = lanes[0] + lanes[1];
    for (; i < n; ++i) {
        const int d = int(a[i]) - (Pair ? int(b[i]) : 0);
        t += static_cast<std::uint64_t>(d < 0 ? -d : d);
    }
    return t;
}

}  // namespace keli::rows
