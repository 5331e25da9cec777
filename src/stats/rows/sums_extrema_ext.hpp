// Row kernels of the extrema: minimum and maximum ops, the lane walk shared by Min, Max,
// MinMax and the row pass of the index searches, the first-index kernel of the 32f one-channel
// maximum, the column search, and the block kernels.
//
// The float ops keep the accumulator on the left: `acc < x ? acc : x`. A not-a-number element
// is therefore copied into its lane and replaced again by the next element of that lane, and
// a lane that only sees +inf keeps its starting value FLT_MAX. Because of this the lane that
// each element goes to is part of the result, and the walk below fixes it.
#pragma once

#include <cfloat>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "simd/sse.hpp"
#include "stats/rows/sums_extrema_sum.hpp"

namespace keli::rows {

template <class T> struct MinOp;
template <class T> struct MaxOp;

template <> struct MinOp<Kel8u> {
    static constexpr Kel8u seed = 255, bound = 0;
    static __m128i apply(__m128i a, __m128i x) { return _mm_min_epu8(a, x); }
    static Kel8u apply(Kel8u a, Kel8u x) { return a < x ? a : x; }
};
template <> struct MaxOp<Kel8u> {
    static constexpr Kel8u seed = 0, bound = 255;
    static __m128i apply(__m128i a, __m128i x) { return _mm_max_epu8(a, x); }
    static Kel8u apply(Kel8u a, Kel8u x) { return a > x ? a : x; }
};
template <> struct MinOp<Kel16u> {
    static constexpr Kel16u seed = 65535, bound = 0;
    static __m128i apply(__m128i a, __m128i x) { return _mm_min_epu16(a, x); }
    static Kel16u apply(Kel16u a, Kel16u x) { return a < x ? a : x; }
};
template <> struct MaxOp<Kel16u> {
    static constexpr Kel16u seed = 0, bound = 65535;
    static __m128i apply(__m128i a, __m128i x) { return _mm_max_epu16(a, x); }
    static Kel16u apply(Kel16u a, Kel16u x) { return a > x ? a : x; }
};
template <> struct MinOp<Kel16s> {
    static constexpr Kel16s seed = 32767, bound = -32768;
    static __m128i apply(__m128i a, __m128i x) { return _mm_min_epi16(a, x); }
    static Kel16s apply(Kel16s a, Kel16s x) { return a < x ? a : x; }
};
template <> struct MaxOp<Kel16s> {
    static constexpr Kel16s seed = -32768, bound = 32767;
    static __m128i apply(__m128i a, __m128i x) { return _mm_max_epi16(a, x); }
    static Kel16s apply(Kel16s a, Kel16s x) { return a > x ? a : x; }
};
// minps and maxps return their second operand unless the first compares strictly better,
// exactly as the scalar expressions do, not-a-number and signed zeros included.
template <> struct MinOp<Kel32f> {
    static constexpr Kel32f seed = FLT_MAX;
    static __m128 apply(__m128 a, __m128 x) { return _mm_min_ps(a, x); }
    static Kel32f apply(Kel32f a, Kel32f x) { return a < x ? a : x; }
};
template <> struct MaxOp<Kel32f> {
    static constexpr Kel32f seed = -FLT_MAX;
    static __m128 apply(__m128 a, __m128 x) { return _mm_max_ps(a, x); }
    static Kel32f apply(Kel32f a, Kel32f x) { return a > x ? a : x; }
};

// Is a strictly better than b for the op's direction?
template <class Op, class T> inline bool better(T a, T b)
{
    return std::is_same_v<Op, MinOp<T>> ? a < b : a > b;
}

// ---- The lane walk ---------------------------------------------------------------------------

// K vectors of lanes, K * L lanes in all, kept in memory between runs so that the scalar head
// and tail can update single lanes. Element i of a run goes to lane (q0 + i) % (K * L).
// One-channel runs align on the source: q0 is the element's address in elements, so the head
// up to the 16-byte boundary is scalar and the body loads aligned. Several-channel runs keep
// every lane on one channel instead: q0 is 0 and the body loads unaligned.
template <class T, int K> struct Lanes {
    static constexpr std::size_t count = K * simd::lanes<T>;
    alignas(16) T v[count];
    void fill(T value)
    {
        for (T& x : v) x = value;
    }
};

// Walks one run with the min op into mn and the max op into mx (either may be null at compile
// time through the flags).
template <class T, int K, bool DoMin, bool DoMax, bool Aligned>
inline std::size_t extrema_body(const T* p, std::size_t i, std::size_t n, std::size_t q0, T* mn, T* mx)
{
    using V = simd::reg_t<T>;
    constexpr std::size_t L = simd::lanes<T>;
    std::size_t nv = (n - i) / L;
    if (nv == 0) return i;
    auto ld = [](const T* q) { return Aligned ? simd::loada(q) : simd::loadu(q); };
    // Register j holds lane group (k0 + j) % K, so that the loop always starts on register 0
    // and the registers are never indexed at run time.
    const std::size_t k0 = (q0 + i) / L % K;
    V amn[K], amx[K];
    for (int j = 0; j < K; ++j) {
        const std::size_t g = (k0 + j) % K * L;
        if constexpr (DoMin) amn[j] = simd::loada(mn + g);
        if constexpr (DoMax) amx[j] = simd::loada(mx + g);
    }
    auto step = [&](V& a, V& b, const T* q) {
        const V x = ld(q);
        if constexpr (DoMin) a = MinOp<T>::apply(a, x);
        if constexpr (DoMax) b = MaxOp<T>::apply(b, x);
    };
    for (; nv >= 2 * K; nv -= 2 * K, i += 2 * K * L) {
        simd::read_ahead(p + i);
        for (int j = 0; j < 2 * K; ++j) step(amn[j % K], amx[j % K], p + i + j * L);
    }
#pragma GCC unroll 8
    for (int j = 0; j < 2 * K - 1; ++j, --nv, i += L) {
        if (nv == 0) break;
        step(amn[j % K], amx[j % K], p + i);
    }
    for (int j = 0; j < K; ++j) {
        const std::size_t g = (k0 + j) % K * L;
        if constexpr (DoMin) simd::storea(mn + g, amn[j]);
        if constexpr (DoMax) simd::storea(mx + g, amx[j]);
    }
    return i;
}

template <class T, int K, bool DoMin, bool DoMax>
inline void extrema_run(const T* p, std::size_t n, bool alignOnSource, T* mn, T* mx)
{
    constexpr std::size_t N = K * simd::lanes<T>;
    const std::uintptr_t addr = reinterpret_cast<std::uintptr_t>(p);
    auto scalar = [&](std::size_t lane, T x) {
        if constexpr (DoMin) mn[lane] = MinOp<T>::apply(mn[lane], x);
        if constexpr (DoMax) mx[lane] = MaxOp<T>::apply(mx[lane], x);
    };
    std::size_t i = 0, q0 = 0;
    if (alignOnSource && addr % sizeof(T) == 0) {
        q0 = addr / sizeof(T) % N;
        std::size_t head = ((0 - addr) & 15) / sizeof(T);
        if (head > n) head = n;
        for (; i < head; ++i) scalar((q0 + i) % N, load1(p + i));
        i = extrema_body<T, K, DoMin, DoMax, true>(p, i, n, q0, mn, mx);
    } else {
        i = extrema_body<T, K, DoMin, DoMax, false>(p, i, n, q0, mn, mx);
    }
    for (; i < n; ++i) scalar((q0 + i) % N, load1(p + i));
}

// Folds the lanes of channel c (those with lane % C == c) in lane order with the op.
template <class Op, class T, int K> inline T fold_lanes(const Lanes<T, K>& s, int c, int C)
{
    T r = s.v[c];
    for (std::size_t j = c + C; j < Lanes<T, K>::count; j += C) r = Op::apply(r, s.v[j]);
    return r;
}

// Lowest column of a row of C-channel pixels whose channel c equals v, or -1.
template <class T> inline int find_column(const T* row, int width, int C, int c, T v)
{
    for (int x = 0; x < width; ++x)
        if (load1(row + static_cast<std::size_t>(x) * C + c) == v) return x;
    return -1;
}

// ---- First index of the maximum in a 32f row --------------------------------------------------

// Rows shorter than this are scanned one element at a time.
constexpr std::size_t kMaxIndexScalarBelow = 34;
constexpr std::size_t kMaxIndexBlock = 2048;

// Maximum of a block whose length is a positive multiple of 8: two vectors start from its
// first eight elements and follow the lane rule; the eight lanes fold in lane order.
inline Kel32f max32f_block(const Kel32f* p, std::size_t n, bool aligned)
{
    using Op = MaxOp<Kel32f>;
    auto ld = [aligned](const Kel32f* q) { return aligned ? _mm_load_ps(q) : _mm_loadu_ps(q); };
    __m128 a0 = ld(p), a1 = ld(p + 4);
    for (std::size_t i = 8; i < n; i += 8) {
        if (i % 16 == 8) simd::read_ahead(p + i);
        a0 = Op::apply(a0, ld(p + i));
        a1 = Op::apply(a1, ld(p + i + 4));
    }
    alignas(16) Kel32f lanes[8];
    _mm_store_ps(lanes, a0);
    _mm_store_ps(lanes + 4, a1);
    Kel32f r = lanes[0];
    for (int j = 1; j < 8; ++j) r = Op::apply(r, lanes[j]);
    return r;
}

// Carries the running maximum m and its column through one row. Short rows, the head up to
// the 16-byte boundary and the last fewer-than-8 elements compare one by one (strictly). The
// rest goes in blocks of up to 2048 elements: only a block whose maximum beats m is searched,
// for its first element equal to the new maximum. Returns true when m changed in this row.
inline bool max32f_first_index_row(const Kel32f* p, std::size_t n, Kel32f& m, std::size_t& column)
{
    bool changed = false;
    auto single = [&](std::size_t i) {
        const Kel32f x = load1(p + i);
        if (x > m) {
            m = x;
            column = i;
            changed = true;
        }
    };
    std::size_t i = 0;
    if (n < kMaxIndexScalarBelow) {
        for (; i < n; ++i) single(i);
        return changed;
    }
    const std::uintptr_t addr = reinterpret_cast<std::uintptr_t>(p);
    const bool aligned = addr % 4 == 0;
    if (aligned)
        for (std::size_t head = ((0 - addr) & 15) / 4; i < head; ++i) single(i);
    const std::size_t body = i + (n - i) / 8 * 8;
    while (i < body) {
        const std::size_t len = body - i < kMaxIndexBlock ? body - i : kMaxIndexBlock;
        const Kel32f b = max32f_block(p + i, len, aligned);
        if (b > m) {
            m = b;
            std::size_t j = 0;
            while (j < len && !(load1(p + i + j) == b)) ++j;
            column = i + j;
            changed = true;
        }
        i += len;
    }
    for (; i < n; ++i) single(i);
    return changed;
}

// ---- Blocks ----------------------------------------------------------------------------------

// Horizontal fold of one vector to lane 0 by halving shifts.
template <class Op, class T> inline T fold_vector(simd::reg_t<T> v)
{
    if constexpr (std::is_same_v<T, Kel32f>) {
        v = Op::apply(v, _mm_movehl_ps(v, v));
        v = Op::apply(v, _mm_shuffle_ps(v, v, 1));
        return _mm_cvtss_f32(v);
    } else {
        v = Op::apply(v, _mm_srli_si128(v, 8));
        v = Op::apply(v, _mm_srli_si128(v, 4));
        v = Op::apply(v, _mm_srli_si128(v, 2));
        if constexpr (sizeof(T) == 1) v = Op::apply(v, _mm_srli_si128(v, 1));
        return static_cast<T>(_mm_cvtsi128_si32(v));
    }
}

// Min and max of a block of `rows` rows of n elements. The scalar rule starts from the first
// element and replaces on ties (`x <= m`, `m <= x`); for everything but signed zeros and
// not-a-number any order gives the same bits. For a zero result the rule keeps the sign of the
// last zero of the block, which the fix-up looks for.
template <class T> struct BlockResult {
    T mn, mx;
};

template <class T> inline T last_zero(const char* base, std::ptrdiff_t step, std::size_t rows, std::size_t n)
{
    for (std::size_t y = rows; y-- > 0;) {
        const T* row = reinterpret_cast<const T*>(base + static_cast<std::ptrdiff_t>(y) * step);
        for (std::size_t x = n; x-- > 0;) {
            const T v = load1(row + x);
            if (v == 0) return v;
        }
    }
    return T(0);
}

template <class T>
inline BlockResult<T> block_extrema(const char* base, std::ptrdiff_t step, std::size_t rows, std::size_t n)
{
    using V = simd::reg_t<T>;
    using Mn = MinOp<T>;
    using Mx = MaxOp<T>;
    constexpr std::size_t L = simd::lanes<T>;
    const T first = load1(reinterpret_cast<const T*>(base));
    T smn = first, smx = first;
    const std::size_t body = n / L * L;
    if (body) {
        V vmn = simd::loadu(reinterpret_cast<const T*>(base)), vmx = vmn;
        for (std::size_t y = 0; y < rows; ++y) {
            const T* row = reinterpret_cast<const T*>(base + static_cast<std::ptrdiff_t>(y) * step);
            for (std::size_t x = 0; x < body; x += L) {
                const V v = simd::loadu(row + x);
                vmn = Mn::apply(vmn, v);
                vmx = Mx::apply(vmx, v);
            }
            for (std::size_t x = body; x < n; ++x) {
                const T v = load1(row + x);
                smn = Mn::apply(smn, v);
                smx = Mx::apply(smx, v);
            }
        }
        smn = Mn::apply(smn, fold_vector<Mn, T>(vmn));
        smx = Mx::apply(smx, fold_vector<Mx, T>(vmx));
    } else {
        for (std::size_t y = 0; y < rows; ++y) {
            const T* row = reinterpret_cast<const T*>(base + static_cast<std::ptrdiff_t>(y) * step);
            for (std::size_t x = 0; x < n; ++x) {
                const T v = load1(row + x);
                smn = v <= smn ? v : smn;
                smx = smx <= v ? v : smx;
            }
        }
    }
    if constexpr (std::is_same_v<T, Kel32f>) {
        if (smn == 0 || smx == 0) {
            const T z = last_zero<T>(base, step, rows, n);
            if (smn == 0) smn = z;
            if (smx == 0) smx = z;
        }
    }
    return {smn, smx};
}

// The 16 x 16 block: 16 rows of 16 elements, one to four vectors a row.
template <class T> inline BlockResult<T> block_extrema_16x16(const char* base, std::ptrdiff_t step)
{
    using V = simd::reg_t<T>;
    using Mn = MinOp<T>;
    using Mx = MaxOp<T>;
    constexpr std::size_t L = simd::lanes<T>, VR = 16 / L;
    V vmn[VR], vmx[VR];
    const T* row = reinterpret_cast<const T*>(base);
    for (std::size_t k = 0; k < VR; ++k) vmn[k] = vmx[k] = simd::loadu(row + k * L);
    for (int y = 1; y < 16; ++y) {
        row = reinterpret_cast<const T*>(base + static_cast<std::ptrdiff_t>(y) * step);
        for (std::size_t k = 0; k < VR; ++k) {
            const V v = simd::loadu(row + k * L);
            vmn[k] = Mn::apply(vmn[k], v);
            vmx[k] = Mx::apply(vmx[k], v);
        }
    }
    for (std::size_t k = 1; k < VR; ++k) {
        vmn[0] = Mn::apply(vmn[0], vmn[k]);
        vmx[0] = Mx::apply(vmx[0], vmx[k]);
    }
    T smn = fold_vector<Mn, T>(vmn[0]), smx = fold_vector<Mx, T>(vmx[0]);
    if constexpr (std::is_same_v<T, Kel32f>) {
        if (smn == 0 || smx == 0) {
            const T z = last_zero<T>(base, step, 16, 16);
            if (smn == 0) smn = z;
            if (smx == 0) smx = z;
        }
    }
    return {smn, smx};
}

}  // namespace keli::rows
