// Conversion ops that round: floats to integers, integers scaled by a power of two, and the
// clamped-sign conversions from signed to unsigned types.
//
// These ops carry state (scale factors, shift counts, limits in registers), so they are objects
// and the row loop takes one by reference:
//
//     struct SomeRoundOp {
//         using S = ...; using D = ...;
//         static constexpr std::size_t kBlock = 16 / min(sizeof(S), sizeof(D));
//         template <class Load, class Store> void block(const S*, D*, Load, Store) const;
//         D apply(S) const;                        // one element, the same bits
//     };
//
// The float ops round in the processor's current rounding mode, on both paths: the scalar path
// uses the scalar forms of the very instructions of the vector path, so the two agree in every
// mode the caller's body sets.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "simd/sse.hpp"

namespace keli::rows {

namespace rnd {

template <class T> constexpr std::int64_t lo = std::numeric_limits<T>::min();
template <class T> constexpr std::int64_t hi = std::numeric_limits<T>::max();

template <class D> inline D clamp_to(std::int64_t v) { return static_cast<D>(v < lo<D> ? lo<D> : v > hi<D> ? hi<D> : v); }

// Four registers of 32-bit lanes (or two, or one) packed with saturation into one register of D.
template <class D> inline __m128i pack4(__m128i a, __m128i b, __m128i c, __m128i d)
{
    const __m128i ab = _mm_packs_epi32(a, b), cd = _mm_packs_epi32(c, d);
    if constexpr (std::is_signed_v<D>) return _mm_packs_epi16(ab, cd);
    else return _mm_packus_epi16(ab, cd);
}
template <class D> inline __m128i pack2(__m128i a, __m128i b)
{
    if constexpr (std::is_signed_v<D>) return _mm_packs_epi32(a, b);
    else return _mm_packus_epi32(a, b);
}

// The q-th group of four bytes zero-extended to 32-bit lanes in one shuffle (rather than a
// shift and an extension, both on the shuffle port).
inline __m128i widen_quarter_epu8(__m128i v, int q)
{
    const char b = static_cast<char>(4 * q), z = -1;
    return _mm_shuffle_epi8(v, _mm_setr_epi8(b, z, z, z, char(b + 1), z, z, z, char(b + 2), z, z, z, char(b + 3), z, z, z));
}

// Stores `k` registers of 32-bit lanes (16 / sizeof(D) elements in all) as D.
template <class D, class Store> inline void store_lanes(D* d, const __m128i* r, Store store)
{
    if constexpr (sizeof(D) == 1) store(d, pack4<D>(r[0], r[1], r[2], r[3]));
    else if constexpr (sizeof(D) == 2) store(d, pack2<D>(r[0], r[1]));
    else store(d, r[0]);
}

// 2^e as a float of type F, for |e| within the normal range.
template <class F> inline F pow2(int e) { return static_cast<F>(std::ldexp(F(1), e)); }

}  // namespace rnd

// ---- float to integer --------------------------------------------------------------------------
//
// y = x * 2^-n (two factors, each a normal power of two, so that the product is exact wherever
// it is finite and not tiny), ties-away rounding by adding 0.5 with the sign of y (the caller
// runs it under truncation, so the addition itself cannot round upward), then min(y, top): a
// not-a-number takes `top`, since the minimum returns its second operand when either is not a
// number. The conversion rounds in the current mode and the pack saturates the low end (the
// conversion's out-of-range value is the smallest integer). For a 32s destination `top` is
// 2^31, which no 32-bit integer holds: those lanes become the largest value.
template <class S_, class D_, bool Scaled, bool Financial> struct FloatToIntOp {
    using S = S_;
    using D = D_;
    using R = simd::reg_t<S>;
    static constexpr std::size_t kBlock = 16 / sizeof(D);
    static constexpr bool kDouble = std::is_same_v<S, Kel64f>;
    static constexpr S kTop = std::is_same_v<D, Kel32s> ? S(2147483648.0) : S(rnd::hi<D>);

    S f1 = 1, f2 = 1;

    // Factors of 2^-n, n clamped where the result no longer depends on it (a nonzero finite
    // value is then beyond every destination's range, or below a half).
    explicit FloatToIntOp(int n = 0)
    {
        if constexpr (Scaled) {
            constexpr int maxE = kDouble ? 1008 : 126;  // 2^maxE and 2^-maxE are normal
            // 64f takes scale factors from -1008 up: the single factor 2^1008 stays finite.
            const long e = -static_cast<long>(kDouble && n < -1008 ? -1008 : n);
            const long e1 = e < -maxE ? -maxE : e > maxE ? maxE : e;
            long e2 = e - e1;
            e2 = e2 < -maxE ? -maxE : e2 > maxE ? maxE : e2;
            f1 = rnd::pow2<S>(int(e1));
            f2 = rnd::pow2<S>(int(e2));
        }
    }

    static R set1(S v)
    {
        if constexpr (kDouble) return _mm_set1_pd(v);
        else return _mm_set1_ps(v);
    }

    // The rounded 32-bit integers of one register (two of them in the low half for 64f).
    __m128i vec(R y) const
    {
        if constexpr (kDouble) {
            if constexpr (Scaled) y = _mm_mul_pd(_mm_mul_pd(y, _mm_set1_pd(f1)), _mm_set1_pd(f2));
            if constexpr (Financial)
                y = _mm_add_pd(y, _mm_or_pd(_mm_and_pd(y, _mm_set1_pd(-0.0)), _mm_set1_pd(0.5)));
            return _mm_cvtpd_epi32(_mm_min_pd(y, _mm_set1_pd(kTop)));
        } else {
            if constexpr (Scaled) y = _mm_mul_ps(_mm_mul_ps(y, _mm_set1_ps(f1)), _mm_set1_ps(f2));
            if constexpr (Financial)
                y = _mm_add_ps(y, _mm_or_ps(_mm_and_ps(y, _mm_set1_ps(-0.0f)), _mm_set1_ps(0.5f)));
            y = _mm_min_ps(y, _mm_set1_ps(kTop));
            __m128i v = _mm_cvtps_epi32(y);
            if constexpr (std::is_same_v<D, Kel32s>)
                v = _mm_blendv_epi8(v, _mm_set1_epi32(0x7FFFFFFF),
                                    _mm_castps_si128(_mm_cmpeq_ps(y, _mm_set1_ps(kTop))));
            return v;
        }
    }

    template <class Load, class Store> void block(const S* s, D* d, Load load, Store store) const
    {
        constexpr std::size_t regs = kBlock / 4;  // registers of four 32-bit results
        __m128i r[regs > 0 ? regs : 1];
        for (std::size_t k = 0; k < regs; ++k) {
            if constexpr (kDouble) r[k] = _mm_unpacklo_epi64(vec(load(s + 4 * k)), vec(load(s + 4 * k + 2)));
            else r[k] = vec(load(s + 4 * k));
        }
        rnd::store_lanes(d, r, store);
    }

    D apply(S x) const
    {
        std::int32_t v;
        if constexpr (kDouble) {
            __m128d y = _mm_set_sd(x);
            if constexpr (Scaled) y = _mm_mul_sd(_mm_mul_sd(y, _mm_set_sd(f1)), _mm_set_sd(f2));
            if constexpr (Financial)
                y = _mm_add_sd(y, _mm_or_pd(_mm_and_pd(y, _mm_set_sd(-0.0)), _mm_set_sd(0.5)));
            v = _mm_cvtsd_si32(_mm_min_sd(y, _mm_set_sd(kTop)));
        } else {
            __m128 y = _mm_set_ss(x);
            if constexpr (Scaled) y = _mm_mul_ss(_mm_mul_ss(y, _mm_set_ss(f1)), _mm_set_ss(f2));
            if constexpr (Financial)
                y = _mm_add_ss(y, _mm_or_ps(_mm_and_ps(y, _mm_set_ss(-0.0f)), _mm_set_ss(0.5f)));
            y = _mm_min_ss(y, _mm_set_ss(kTop));
            v = _mm_cvtss_si32(y);
            if constexpr (std::is_same_v<D, Kel32s>)
                if (_mm_cvtss_f32(y) == kTop) v = 0x7FFFFFFF;
        }
        return rnd::clamp_to<D>(v);
    }
};

// 32f to 32u, one element at a time: not-a-number first (it takes the largest value, as in the
// vector kernels), then the ends of the range, then a rounding conversion through 64 bits.
template <bool Financial> struct Float32uOp {
    using S = Kel32f;
    using D = Kel32u;
    float f1 = 1, f2 = 1;
    explicit Float32uOp(int n)
    {
        const FloatToIntOp<Kel32f, Kel32s, true, false> split(n);
        f1 = split.f1, f2 = split.f2;
    }
    D apply(S x) const
    {
        __m128 y = _mm_mul_ss(_mm_mul_ss(_mm_set_ss(x), _mm_set_ss(f1)), _mm_set_ss(f2));
        if (std::isnan(_mm_cvtss_f32(y))) return 0xFFFFFFFFu;
        if (_mm_comilt_ss(y, _mm_setzero_ps())) return 0;
        if (_mm_comige_ss(y, _mm_set_ss(4294967296.0f))) return 0xFFFFFFFFu;
        if constexpr (Financial) y = _mm_add_ss(y, _mm_set_ss(0.5f));
        return static_cast<D>(_mm_cvtss_si64(y));
    }
};

// ---- integers scaled by 2^-n -------------------------------------------------------------------
//
// The value is brought to 32-bit lanes, rounded on its magnitude (each of the three modes is
// symmetric about zero), given its sign back, and packed with saturation. Shifts to the left
// compare against the largest values that still fit before shifting.
enum class IntScale { Saturate, Zero, Near, Financial, Left };

template <class S_, class D_, IntScale K> struct IntScaleOp {
    using S = S_;
    using D = D_;
    static constexpr std::size_t kBlock = 16 / (sizeof(S) < sizeof(D) ? sizeof(S) : sizeof(D));
    static constexpr bool kSigned = std::is_signed_v<S>;
    static constexpr std::uint32_t kTop = static_cast<std::uint32_t>(rnd::hi<D>);

    int n = 0;   // right shift, 1 to 32
    int k = 0;   // left shift, clamped so that any value it saturates is still saturated
    std::uint32_t lowMask = 0;
    std::int64_t hiLimit = 0, loLimit = 0;  // largest and smallest values that fit after << k

    explicit IntScaleOp(int scaleFactor)
    {
        if constexpr (K == IntScale::Left) {
            const int maxK = sizeof(D) == 4 ? 31 : int(8 * sizeof(D));
            // In 64 bits: the most negative factor has no negation in an int.
            const std::int64_t left = -std::int64_t(scaleFactor);
            k = left > maxK ? maxK : int(left);
            hiLimit = rnd::hi<D> >> k;
            loLimit = rnd::lo<D> >> k;
        } else if constexpr (K != IntScale::Saturate) {
            n = scaleFactor;
            lowMask = static_cast<std::uint32_t>((std::uint64_t(1) << (n - 1)) - 1);
        }
    }

    // Source elements of one block as 32-bit lanes.
    template <class Load> static void widen(const S* s, __m128i* w, Load load)
    {
        if constexpr (sizeof(S) == 1) {
            const __m128i v = load(s);
            for (int q = 0; q < int(kBlock / 4); ++q) w[q] = rnd::widen_quarter_epu8(v, q);
        } else if constexpr (sizeof(S) == 2) {
            for (std::size_t h = 0; h < kBlock / 8; ++h) {
                const __m128i v = load(s + 8 * h);
                const __m128i hiHalf = _mm_srli_si128(v, 8);
                w[2 * h] = kSigned ? _mm_cvtepi16_epi32(v) : _mm_cvtepu16_epi32(v);
                w[2 * h + 1] = kSigned ? _mm_cvtepi16_epi32(hiHalf) : _mm_cvtepu16_epi32(hiHalf);
            }
        } else {
            for (std::size_t q = 0; q < kBlock / 4; ++q) w[q] = load(s + 4 * q);
        }
    }

    __m128i lanes(__m128i x) const
    {
        const __m128i one = _mm_set1_epi32(1);
        if constexpr (K == IntScale::Saturate) {
            return kSigned ? x : _mm_min_epu32(x, _mm_set1_epi32(int(kTop)));
        } else if constexpr (K == IntScale::Left) {
            const __m128i shifted = _mm_sll_epi32(x, _mm_cvtsi32_si128(k));
            if constexpr (kSigned) {
                __m128i r = _mm_blendv_epi8(shifted, _mm_set1_epi32(int(rnd::hi<D>)),
                                            _mm_cmpgt_epi32(x, _mm_set1_epi32(int(hiLimit))));
                return _mm_blendv_epi8(r, _mm_set1_epi32(int(rnd::lo<D>)),
                                       _mm_cmpgt_epi32(_mm_set1_epi32(int(loLimit)), x));
            } else {
                const __m128i lim = _mm_set1_epi32(static_cast<int>(hiLimit));
                const __m128i fits = _mm_cmpeq_epi32(_mm_min_epu32(x, lim), x);
                return _mm_blendv_epi8(_mm_set1_epi32(int(kTop)), shifted, fits);
            }
        } else {
            const __m128i m = kSigned ? _mm_abs_epi32(x) : x;
            const __m128i cnt = _mm_cvtsi32_si128(n), cnt1 = _mm_cvtsi32_si128(n - 1);
            __m128i q = _mm_srl_epi32(m, cnt);
            if constexpr (K == IntScale::Financial) {
                q = _mm_add_epi32(q, _mm_and_si128(_mm_srl_epi32(m, cnt1), one));
            } else if constexpr (K == IntScale::Near) {
                const __m128i half = _mm_and_si128(_mm_srl_epi32(m, cnt1), one);
                const __m128i sticky = _mm_andnot_si128(
                    _mm_cmpeq_epi32(_mm_and_si128(m, _mm_set1_epi32(int(lowMask))), _mm_setzero_si128()), one);
                q = _mm_add_epi32(q, _mm_and_si128(half, _mm_or_si128(sticky, _mm_and_si128(q, one))));
            }
            if constexpr (kSigned) return _mm_sign_epi32(q, x);
            return _mm_min_epu32(q, _mm_set1_epi32(int(kTop)));
        }
    }

    template <class Load, class Store> void block(const S* s, D* d, Load load, Store store) const
    {
        __m128i w[kBlock / 4];
        widen(s, w, load);
        for (auto& v : w) v = lanes(v);
        rnd::store_lanes(d, w, store);
    }

    D apply(S x) const
    {
        const std::int64_t v = x;
        if constexpr (K == IntScale::Saturate) {
            return rnd::clamp_to<D>(v);
        } else if constexpr (K == IntScale::Left) {
            if (v > hiLimit) return static_cast<D>(rnd::hi<D>);
            if (v < loLimit) return static_cast<D>(rnd::lo<D>);
            return rnd::clamp_to<D>(v * (std::int64_t(1) << k));
        } else {
            const std::uint64_t m = static_cast<std::uint64_t>(v < 0 ? -v : v);
            std::uint64_t q = m >> n;
            const std::uint64_t half = (m >> (n - 1)) & 1;
            if constexpr (K == IntScale::Financial) q += half;
            if constexpr (K == IntScale::Near) q += half & (((m & lowMask) != 0) | (q & 1));
            return rnd::clamp_to<D>(v < 0 ? -static_cast<std::int64_t>(q) : static_cast<std::int64_t>(q));
        }
    }
};

// ---- clamped sign ------------------------------------------------------------------------------

// Signed to unsigned: negative values become 0, the others keep their value.
template <class S_, class D_> struct ClampSignOp {
    using S = S_;
    using D = D_;
    static constexpr std::size_t kBlock = 16 / sizeof(S);
    template <class Load, class Store> void block(const S* s, D* d, Load load, Store store) const
    {
        __m128i v = load(s);
        if constexpr (sizeof(S) == 1) v = _mm_max_epi8(v, _mm_setzero_si128());
        else if constexpr (sizeof(S) == 2) v = _mm_max_epi16(v, _mm_setzero_si128());
        else v = _mm_max_epi32(v, _mm_setzero_si128());
        if constexpr (sizeof(D) == sizeof(S)) {
            store(d, v);
        } else if constexpr (sizeof(S) == 1 && sizeof(D) == 2) {
            store(d, _mm_cvtepu8_epi16(v));
            store(d + 8, _mm_cvtepu8_epi16(_mm_srli_si128(v, 8)));
        } else if constexpr (sizeof(S) == 1) {
            for (int q = 0; q < 4; ++q) store(d + 4 * q, rnd::widen_quarter_epu8(v, q));
        } else {
            store(d, _mm_cvtepu16_epi32(v));
            store(d + 4, _mm_cvtepu16_epi32(_mm_srli_si128(v, 8)));
        }
    }
    D apply(S x) const { return static_cast<D>(x < 0 ? 0 : x); }
};

// ---- the row loop ------------------------------------------------------------------------------

// n elements through `op`: scalar head to the destination's 16-byte boundary, whole blocks with
// aligned stores, scalar tail. A destination off its element grid runs unaligned stores.
// With `nontemporal` the aligned stores bypass the caches and a store fence ends the run.
template <class Op>
inline void round_run(const Op& op, const typename Op::S* src, typename Op::D* dst, std::size_t n, bool nontemporal = false)
{
    constexpr std::size_t B = Op::kBlock;
    // A private copy of the op: stores of bytes or floats could alias the caller's op and force
    // its factors to be reloaded and broadcast again in every block; this copy's address never
    // escapes, so they stay in registers.
    const Op local = op;
    std::size_t i = 0;
    const std::size_t head = simd::head_to_align(dst);
    auto body = [&](auto load, auto store) {
        const std::size_t end = i + (n - i) / B * B;
        for (; i < end; i += B) {
            simd::prefetch_ahead(src + i);
            local.block(src + i, dst + i, load, store);
        }
    };
    auto loadu = [](const auto* p) { return simd::loadu(p); };
    auto loada = [](const auto* p) { return simd::loada(p); };
    auto storea = [](auto* p, auto v) { simd::storea(p, v); };
    auto storeu = [](auto* p, auto v) { simd::storeu(p, v); };
    auto stream = [](auto* p, auto v) { simd::stream(p, v); };
    if (head != simd::npos && n >= head + 2 * B) {
        for (; i < head; ++i) dst[i] = op.apply(src[i]);
        const bool srcAligned = simd::aligned16(src + i);
        if (nontemporal) {
            if (srcAligned) body(loada, stream);
            else body(loadu, stream);
            simd::fence();
        } else if (srcAligned) {
            body(loada, storea);
        } else {
            body(loadu, storea);
        }
    } else if (head == simd::npos && n >= 2 * B) {
        body(loadu, storeu);
    }
    for (; i < n; ++i) dst[i] = op.apply(src[i]);
}

// The same run one element after the other, for sources and destinations that overlap: each
// element is read before anything at or after it is written, in element order.
template <class Op> inline void ordered_run(const Op& op, const typename Op::S* src, typename Op::D* dst, std::size_t n)
{
    // Byte copies in and out: the two types may alias, and the order must stay as written.
    for (std::size_t i = 0; i < n; ++i) {
        typename Op::S x;
        std::memcpy(&x, src + i, sizeof x);
        const typename Op::D y = op.apply(x);
        std::memcpy(dst + i, &y, sizeof y);
    }
}

}  // namespace keli::rows
