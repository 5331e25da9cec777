// Row kernels of the sums. Integer runs are summed in narrow vector lanes over blocks short
// enough that no lane can overflow, and every block is flushed into 64-bit totals, so integer
// totals are exact. The 32f kernels fix the order of their additions, because the rounding of a
// float sum depends on it and callers get the same bits on every machine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "simd/sse.hpp"

namespace keli::rows {

// One element through memcpy: rows of a 16- or 32-bit image may start at any byte when the
// caller's step is not a multiple of the element size.
template <class T> inline T load1(const T* p)
{
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// Two floats into the low lanes, zeros above.
inline __m128 load2f(const Kel32f* p)
{
    std::uint64_t bits;
    std::memcpy(&bits, p, sizeof bits);
    return _mm_castsi128_ps(_mm_cvtsi64_si128(static_cast<long long>(bits)));
}

// Adds x to the two low lanes of a and leaves the high lanes as they were, bit for bit (adding
// a zero would turn a -0 lane into +0 in some rounding modes).
inline __m128 add_low2(__m128 a, __m128 x)
{
    return _mm_castpd_ps(_mm_move_sd(_mm_castps_pd(a), _mm_castps_pd(_mm_add_ps(a, x))));
}

inline __m128 add_lane0(__m128 a, Kel32f x) { return _mm_add_ss(a, _mm_set_ss(x)); }

// ---- 8u, one channel: sums of absolute differences against zero -------------------------------

// The vector meaning adds the 16 bytes into two 64-bit lanes; the scalar meaning adds one byte
// to the 64-bit accumulator of the unaligned head and the tail.
struct SumSad8uOp {
    static __m128i apply(__m128i acc, __m128i x) { return _mm_add_epi64(acc, _mm_sad_epu8(x, _mm_setzero_si128())); }
    static std::uint64_t apply(std::uint64_t acc, Kel8u x) { return acc + x; }
};

struct Sum8uC1State {
    __m128i lanes = _mm_setzero_si128();
    std::uint64_t scalar = 0;  // head and tail bytes of every row
};

// The bytes before the first 16-byte boundary and after the last whole group go to the scalar
// accumulator; the aligned groups in between to the vector lanes.
inline void sum8u_c1_run(const Kel8u* p, std::size_t n, Sum8uC1State& s)
{
    using Op = SumSad8uOp;
    std::size_t head = (0 - reinterpret_cast<std::uintptr_t>(p)) & 15;
    if (head > n) head = n;
    std::uint64_t sc = s.scalar;
    std::size_t i = 0;
    for (; i < head; ++i) sc = Op::apply(sc, p[i]);
    __m128i a0 = s.lanes, a1 = _mm_setzero_si128(), a2 = _mm_setzero_si128(), a3 = _mm_setzero_si128();
    for (; i + 64 <= n; i += 64) {
        simd::read_ahead(p + i);
        a0 = Op::apply(a0, simd::loada(p + i));
        a1 = Op::apply(a1, simd::loada(p + i + 16));
        a2 = Op::apply(a2, simd::loada(p + i + 32));
        a3 = Op::apply(a3, simd::loada(p + i + 48));
    }
    for (; i + 16 <= n; i += 16) a0 = Op::apply(a0, simd::loada(p + i));
    for (; i < n; ++i) sc = Op::apply(sc, p[i]);
    s.lanes = _mm_add_epi64(_mm_add_epi64(a0, a1), _mm_add_epi64(a2, a3));
    s.scalar = sc;
}

// Vector lanes plus the low 32 bits of the scalar accumulator: the scalar part wraps at 2^32,
// which only a huge number of short rows can reach.
inline std::int64_t sum8u_c1_total(const Sum8uC1State& s)
{
    alignas(16) std::uint64_t lanes[2];
    _mm_store_si128(reinterpret_cast<__m128i*>(lanes), s.lanes);
    return static_cast<std::int64_t>(lanes[0] + lanes[1] + static_cast<std::uint32_t>(s.scalar));
}

// ---- Integer channels through wider lanes -----------------------------------------------------

// Widening ops: the low and high halves of a vector in lanes twice as wide, their sum, and the
// scalar meaning of one element. Lanes hold unsigned values for 8u and 16u, signed for 16s.
template <class T> struct WidenSumOp;

template <> struct WidenSumOp<Kel8u> {
    using Wide = std::uint16_t;
    static __m128i lo(__m128i x) { return _mm_unpacklo_epi8(x, _mm_setzero_si128()); }
    static __m128i hi(__m128i x) { return _mm_unpackhi_epi8(x, _mm_setzero_si128()); }
    static __m128i add(__m128i a, __m128i b) { return _mm_add_epi16(a, b); }
    static std::int64_t apply(std::int64_t acc, Kel8u x) { return acc + x; }
};

template <> struct WidenSumOp<Kel16u> {
    using Wide = std::uint32_t;
    static __m128i lo(__m128i x) { return _mm_unpacklo_epi16(x, _mm_setzero_si128()); }
    static __m128i hi(__m128i x) { return _mm_unpackhi_epi16(x, _mm_setzero_si128()); }
    static __m128i add(__m128i a, __m128i b) { return _mm_add_epi32(a, b); }
    static std::int64_t apply(std::int64_t acc, Kel16u x) { return acc + x; }
};

template <> struct WidenSumOp<Kel16s> {
    using Wide = std::int32_t;
    static __m128i lo(__m128i x) { return _mm_cvtepi16_epi32(x); }
    static __m128i hi(__m128i x) { return _mm_cvtepi16_epi32(_mm_srli_si128(x, 8)); }
    static __m128i add(__m128i a, __m128i b) { return _mm_add_epi32(a, b); }
    static std::int64_t apply(std::int64_t acc, Kel16s x) { return acc + x; }
};

// Pixels summed in narrow lanes before a flush. A lane takes two additions per period (the
// halves of one or two vectors), so for 8u C4 512 pixels make 256 additions of at most 255:
// 65280 still fits 16 bits; 8u C3 uses 1024 pixels (128 additions). 16-bit types use pieces of
// 32768 pixels: at most 32768 additions of 65535, below 2^31.
template <class T, int C> constexpr std::size_t kSumBlockPixels = sizeof(T) == 1 ? (C == 3 ? 1024 : 512) : 32768;

// Adds a run of n elements (C interleaved channels, starting on a pixel) to tot[0..C-1].
// A period is the smallest whole number of vectors in which each lane keeps its channel: one
// vector for one or four channels, three for three channels. Lanes of half h of a period take
// channel (h * wideLanes + j) % C, and halves h and h + 3 agree, so three accumulators do.
template <class T, int C> inline void sum_widen_run(const T* p, std::size_t n, std::int64_t* tot)
{
    using Op = WidenSumOp<T>;
    using Wide = typename Op::Wide;
    constexpr std::size_t L = simd::lanes<T>, P = C == 3 ? 3 : 1, period = P * L, WL = L / 2;
    constexpr std::size_t blockPeriods = kSumBlockPixels<T, C> * C / period;
    std::size_t i = 0;
    while (n - i >= period) {
        const std::size_t left = (n - i) / period;
        const std::size_t periods = left < blockPeriods ? left : blockPeriods;
        __m128i acc[3] = {_mm_setzero_si128(), _mm_setzero_si128(), _mm_setzero_si128()};
        for (std::size_t k = 0; k < periods; ++k, i += period) {
            const __m128i x0 = simd::loadu(p + i);
            if constexpr (std::is_same_v<T, Kel16s> && C == 1) {
                // One channel: neighbouring pairs multiplied by one and added in one step.
                acc[0] = _mm_add_epi32(acc[0], _mm_madd_epi16(x0, _mm_set1_epi16(1)));
            } else if constexpr (P == 1) {
                acc[0] = Op::add(acc[0], Op::add(Op::lo(x0), Op::hi(x0)));
            } else {
                const __m128i x1 = simd::loadu(p + i + L), x2 = simd::loadu(p + i + 2 * L);
                acc[0] = Op::add(acc[0], Op::add(Op::lo(x0), Op::hi(x1)));
                acc[1] = Op::add(acc[1], Op::add(Op::hi(x0), Op::lo(x2)));
                acc[2] = Op::add(acc[2], Op::add(Op::lo(x1), Op::hi(x2)));
            }
        }
        alignas(16) Wide lanes[3 * WL];
        for (std::size_t a = 0; a < P; ++a) _mm_store_si128(reinterpret_cast<__m128i*>(lanes + a * WL), acc[a]);
        for (std::size_t j = 0; j < P * WL; ++j) tot[j % C] += lanes[j];
    }
    for (; i < n; ++i) tot[i % C] = Op::apply(tot[i % C], load1(p + i));
}

// ---- 32f, fast: each row in 32-bit floats, row totals in 64-bit floats -------------------------

struct AddF32Op {
    static __m128 apply(__m128 a, __m128 x) { return _mm_add_ps(a, x); }
    static Kel32f apply(Kel32f a, Kel32f x) { return a + x; }
};

// The 32f row sums read their terms through a source: the elements of the row as they stand
// here, their absolute values, squares or differences in the norms. A source gives a term
// vector at element i (aligned on its first row or not), two terms in the low lanes with zeros
// above, one term, and the same terms formed in 64-bit floats for the accurate path. Every
// source holds the address of its first row, which decides the alignment head.
struct PlainF32 {
    const Kel32f* p;
    const void* addr() const { return p; }
    PlainF32 at(std::size_t i) const { return {p + i}; }
    template <bool Aligned> __m128 v(std::size_t i) const { return Aligned ? _mm_load_ps(p + i) : _mm_loadu_ps(p + i); }
    __m128 v2(std::size_t i) const { return load2f(p + i); }
    Kel32f s(std::size_t i) const { return load1(p + i); }
    __m128d d2(std::size_t i) const { return _mm_cvtps_pd(load2f(p + i)); }
    double d1(std::size_t i) const { return static_cast<double>(load1(p + i)); }
};

// One channel. Four vectors A, B, C, D. A row whose address is a multiple of 4 but not of 16
// first puts two elements into the low lanes of A and one into lane 0 of B (as many of these
// as the row has, up to its boundary). From there groups of 16 add to A, B, C, D in turn; a
// remaining 8 to A and B, 4 to C, 2 to the low lanes of D and 1 to lane 0 of C. The row total
// is (A + B) + (C + D), its high two lanes added onto its low two, which are widened and added
// to acc. A row at an address that is not a multiple of 4 takes no head and loads unaligned.
template <bool Aligned, class Src>
inline void sum32f_c1_body(const Src& p, std::size_t m, __m128& A, __m128& B, __m128& C, __m128& D)
{
    using Op = AddF32Op;
    std::size_t i = 0;
    for (; m - i >= 16; i += 16) {
        simd::read_ahead(static_cast<const char*>(p.addr()) + 4 * i);
        A = Op::apply(A, p.template v<Aligned>(i));
        B = Op::apply(B, p.template v<Aligned>(i + 4));
        C = Op::apply(C, p.template v<Aligned>(i + 8));
        D = Op::apply(D, p.template v<Aligned>(i + 12));
    }
    const std::size_t r = m - i;
    if (r & 8) {
        A = Op::apply(A, p.template v<Aligned>(i));
        B = Op::apply(B, p.template v<Aligned>(i + 4));
        i += 8;
    }
    if (r & 4) {
        C = Op::apply(C, p.template v<Aligned>(i));
        i += 4;
    }
    if (r & 2) {
        D = add_low2(D, p.v2(i));
        i += 2;
    }
    if (r & 1) C = add_lane0(C, p.s(i));
}

template <class Src> inline void sum32f_c1_fast_row(const Src& p, std::size_t n, __m128d& acc)
{
    __m128 A = _mm_setzero_ps(), B = A, C = A, D = A;
    const std::uintptr_t addr = reinterpret_cast<std::uintptr_t>(p.addr());
    if (addr % 4 == 0) {
        std::size_t h = ((0 - addr) & 15) / 4, i = 0;
        if (h > n) h = n;
        if (h & 2) {
            A = add_low2(A, p.v2(0));
            i = 2;
        }
        if (h & 1) B = add_lane0(B, p.s(i));
        sum32f_c1_body<true>(p.at(h), n - h, A, B, C, D);
    } else {
        sum32f_c1_body<false>(p, n, A, B, C, D);
    }
    const __m128 s = _mm_add_ps(_mm_add_ps(A, B), _mm_add_ps(C, D));
    acc = _mm_add_pd(acc, _mm_cvtps_pd(_mm_add_ps(s, _mm_movehl_ps(s, s))));
}

inline void sum32f_c1_fast_row(const Kel32f* p, std::size_t n, __m128d& acc) { sum32f_c1_fast_row(PlainF32{p}, n, acc); }

// Four channels: one vector for the even pixels and one for the odd, added at the row's end;
// channels 0, 1 and 2, 3 widen into two 64-bit accumulators.
template <class Src> inline void sum32f_c4_fast_row(const Src& p, std::size_t width, __m128d& acc01, __m128d& acc23)
{
    using Op = AddF32Op;
    __m128 even = _mm_setzero_ps(), odd = even;
    std::size_t x = 0;
    for (; x + 2 <= width; x += 2) {
        even = Op::apply(even, p.template v<false>(4 * x));
        odd = Op::apply(odd, p.template v<false>(4 * x + 4));
    }
    if (x < width) even = Op::apply(even, p.template v<false>(4 * x));
    const __m128 s = _mm_add_ps(even, odd);
    acc01 = _mm_add_pd(acc01, _mm_cvtps_pd(s));
    acc23 = _mm_add_pd(acc23, _mm_cvtps_pd(_mm_movehl_ps(s, s)));
}

inline void sum32f_c4_fast_row(const Kel32f* p, std::size_t width, __m128d& acc01, __m128d& acc23)
{
    sum32f_c4_fast_row(PlainF32{p}, width, acc01, acc23);
}

// Three channels: groups of four pixels (three vectors P0, P1, P2) accumulate lane by lane.
// At the row's end each channel adds its four lanes in lane order (channel c holds the lanes
// j of the twelve with j % 3 == c), then the remaining pixels one by one, and the channel
// totals go to the 64-bit accumulators.
template <class Src> inline void sum32f_c3_fast_row(const Src& p, std::size_t width, double* acc)
{
    using Op = AddF32Op;
    __m128 v0 = _mm_setzero_ps(), v1 = v0, v2 = v0;
    std::size_t x = 0;
    for (; x + 4 <= width; x += 4) {
        v0 = Op::apply(v0, p.template v<false>(3 * x));
        v1 = Op::apply(v1, p.template v<false>(3 * x + 4));
        v2 = Op::apply(v2, p.template v<false>(3 * x + 8));
    }
    alignas(16) Kel32f lanes[12];
    _mm_store_ps(lanes, v0);
    _mm_store_ps(lanes + 4, v1);
    _mm_store_ps(lanes + 8, v2);
    for (int c = 0; c < 3; ++c) {
        Kel32f s = lanes[c];
        for (int j = c + 3; j < 12; j += 3) s = Op::apply(s, lanes[j]);
        for (std::size_t k = x; k < width; ++k) s = Op::apply(s, p.s(3 * k + c));
        acc[c] += static_cast<double>(s);
    }
}

inline void sum32f_c3_fast_row(const Kel32f* p, std::size_t width, double* acc) { sum32f_c3_fast_row(PlainF32{p}, width, acc); }

// ---- 32f, accurate: every element widened to 64-bit float before it is added -------------------

// One channel: two 64-bit lanes over the whole image, the even elements of each row in lane 0
// and the odd in lane 1; the caller adds the lanes at the end.
template <class Src> inline void sum32f_c1_accurate_row(const Src& p, std::size_t n, __m128d& acc)
{
    std::size_t i = 0;
    for (; i + 2 <= n; i += 2) acc = _mm_add_pd(acc, p.d2(i));
    if (i < n) acc = _mm_add_sd(acc, _mm_set_sd(p.d1(i)));
}

inline void sum32f_c1_accurate_row(const Kel32f* p, std::size_t n, __m128d& acc) { sum32f_c1_accurate_row(PlainF32{p}, n, acc); }

// Several channels: one 64-bit lane per channel, pixel after pixel.
template <int C, class Src> inline void sum32f_accurate_row(const Src& p, std::size_t width, __m128d& acc01, __m128d& acc23)
{
    for (std::size_t x = 0, i = 0; x < width; ++x, i += C) {
        acc01 = _mm_add_pd(acc01, p.d2(i));
        if constexpr (C == 4) acc23 = _mm_add_pd(acc23, p.d2(i + 2));
        else acc23 = _mm_add_sd(acc23, _mm_set_sd(p.d1(i + 2)));
    }
}

template <int C> inline void sum32f_accurate_row(const Kel32f* p, std::size_t width, __m128d& acc01, __m128d& acc23)
{
    sum32f_accurate_row<C>(PlainF32{p}, width, acc01, acc23);
}

}  // namespace keli::rows
