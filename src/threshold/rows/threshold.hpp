// Threshold row kernels: one op struct per element type and rule, one row loop for all.
//
// The five rules, with s the source element:
//   Lt     s below t becomes t                    (the type's maximum of s and t)
//   Gt     s above t becomes t                    (the type's minimum of s and t)
//   LtVal  s below t becomes v
//   GtVal  s above t becomes v
//   LtGt   s below t becomes v, s above t2 becomes v2
// An element equal to its threshold is never a hit. The 32f forms treat a not-a-number source
// differently by rule, on purpose: Lt, Gt, LtVal and LtGt replace it, GtVal keeps it. Callers
// rely on each of these, so the comparisons below are written in exactly the direction that
// gives that outcome; do not "simplify" `t <= s ? s : v` into `s < t ? v : s`.
#pragma once

#include <cstddef>
#include <type_traits>

#include "simd/sse.hpp"

namespace keli::rows {

enum class Rule { Lt, Gt, LtVal, GtVal, LtGt };

// The constants of one channel, and the same as registers of a channel pattern.
template <class T> struct Consts {
    T t, v, t2, v2;
};
template <class T> struct VConsts {
    simd::reg_t<T> t, v, t2, v2;
};

// Per type: the five rules as vector and scalar code. Unsigned value forms test by saturating
// subtraction: `t - s` saturates to zero exactly when s is not below t.
template <class T> struct Rules;

template <> struct Rules<Kel8u> {
    using T = Kel8u;
    using V = __m128i;
    static V lt(V s, V t) { return _mm_max_epu8(s, t); }
    static V gt(V s, V t) { return _mm_min_epu8(s, t); }
    static V not_below(V s, V t) { return _mm_cmpeq_epi8(_mm_subs_epu8(t, s), _mm_setzero_si128()); }
    static V not_above(V s, V t) { return _mm_cmpeq_epi8(_mm_subs_epu8(s, t), _mm_setzero_si128()); }
    static V lt_val(V s, V t, V v) { return _mm_blendv_epi8(v, s, not_below(s, t)); }
    static V gt_val(V s, V t, V v) { return _mm_blendv_epi8(v, s, not_above(s, t)); }
    static V lt_gt(V s, V t, V v, V t2, V v2)
    {
        return _mm_blendv_epi8(v, _mm_blendv_epi8(v2, s, not_above(s, t2)), not_below(s, t));
    }
};

template <> struct Rules<Kel16u> {
    using T = Kel16u;
    using V = __m128i;
    static V lt(V s, V t) { return _mm_max_epu16(s, t); }
    static V gt(V s, V t) { return _mm_min_epu16(s, t); }
    static V not_below(V s, V t) { return _mm_cmpeq_epi16(_mm_subs_epu16(t, s), _mm_setzero_si128()); }
    static V not_above(V s, V t) { return _mm_cmpeq_epi16(_mm_subs_epu16(s, t), _mm_setzero_si128()); }
    static V lt_val(V s, V t, V v) { return _mm_blendv_epi8(v, s, not_below(s, t)); }
    static V gt_val(V s, V t, V v) { return _mm_blendv_epi8(v, s, not_above(s, t)); }
    static V lt_gt(V s, V t, V v, V t2, V v2)
    {
        return _mm_blendv_epi8(v, _mm_blendv_epi8(v2, s, not_above(s, t2)), not_below(s, t));
    }
};

// Signed saturation does not clamp a negative difference to zero, so the subtraction test of
// the unsigned types has no signed twin; the signed comparison gives the same outcome.
template <> struct Rules<Kel16s> {
    using T = Kel16s;
    using V = __m128i;
    static V lt(V s, V t) { return _mm_max_epi16(s, t); }
    static V gt(V s, V t) { return _mm_min_epi16(s, t); }
    static V lt_val(V s, V t, V v) { return _mm_blendv_epi8(s, v, _mm_cmpgt_epi16(t, s)); }
    static V gt_val(V s, V t, V v) { return _mm_blendv_epi8(s, v, _mm_cmpgt_epi16(s, t)); }
    static V lt_gt(V s, V t, V v, V t2, V v2)
    {
        return _mm_blendv_epi8(_mm_blendv_epi8(s, v2, _mm_cmpgt_epi16(s, t2)), v, _mm_cmpgt_epi16(t, s));
    }
};

// maxps and minps return their second operand when the comparison fails, a not-a-number
// included: s > t ? s : t and s < t ? s : t.
template <> struct Rules<Kel32f> {
    using T = Kel32f;
    using V = __m128;
    static V lt(V s, V t) { return _mm_max_ps(s, t); }
    static V gt(V s, V t) { return _mm_min_ps(s, t); }
    static V lt_val(V s, V t, V v) { return _mm_blendv_ps(v, s, _mm_cmple_ps(t, s)); }
    static V gt_val(V s, V t, V v) { return _mm_blendv_ps(s, v, _mm_cmplt_ps(t, s)); }
    // Kept where t <= s and not t2 < s; a not-a-number fails the first test and becomes v.
    static V lt_gt(V s, V t, V v, V t2, V v2)
    {
        return _mm_blendv_ps(v, _mm_blendv_ps(s, v2, _mm_cmplt_ps(t2, s)), _mm_cmple_ps(t, s));
    }
};

template <class T, Rule R> struct ThresholdOp {
    using V = simd::reg_t<T>;
    static V apply(V s, const VConsts<T>& k)
    {
        using X = Rules<T>;
        if constexpr (R == Rule::Lt) return X::lt(s, k.t);
        else if constexpr (R == Rule::Gt) return X::gt(s, k.t);
        else if constexpr (R == Rule::LtVal) return X::lt_val(s, k.t, k.v);
        else if constexpr (R == Rule::GtVal) return X::gt_val(s, k.t, k.v);
        else return X::lt_gt(s, k.t, k.v, k.t2, k.v2);
    }
    // Integers compare in their own signedness; the float comparisons are the vector ones,
    // operand for operand, so a not-a-number takes the same branch in both paths.
    static T apply(T s, const Consts<T>& k)
    {
        if constexpr (R == Rule::Lt) return s > k.t ? s : k.t;
        else if constexpr (R == Rule::Gt) return s < k.t ? s : k.t;
        else if constexpr (R == Rule::LtVal) return k.t <= s ? s : k.v;
        else if constexpr (R == Rule::GtVal) return k.t < s ? k.v : s;
        else {
            const T high = k.t2 < s ? k.v2 : s;
            return k.t <= s ? high : k.v;
        }
    }
};

// The constants of a run laid out as the repeating channel pattern. A run starts on a pixel,
// so element i belongs to channel i % C, and a vector that starts at element e needs pattern
// phase e % C: lane j of phase r holds channel (r + j) % C. Four channels fit whole into a
// vector and keep one phase along a row; three channels rotate through all three phases.
template <class T, std::size_t C> struct Pattern {
    Consts<T> channel[C];
    VConsts<T> phase[C];
    simd::reg_t<T> colour[C];  // all-ones on the lanes of channels 0-2: the AC4 merge mask

    void build()
    {
        constexpr std::size_t L = simd::lanes<T>;
        for (std::size_t r = 0; r < C; ++r) {
            alignas(16) T t[L], v[L], t2[L], v2[L], mask[L];
            for (std::size_t j = 0; j < L; ++j) {
                const std::size_t c = (r + j) % C;
                t[j] = channel[c].t;
                v[j] = channel[c].v;
                t2[j] = channel[c].t2;
                v2[j] = channel[c].v2;
                // An all-ones element: every bit set, whatever the type.
                unsigned char bits[sizeof(T)];
                for (auto& b : bits) b = c == 3 ? 0 : 0xFF;
                __builtin_memcpy(&mask[j], bits, sizeof(T));
            }
            phase[r] = {simd::loada(t), simd::loada(v), simd::loada(t2), simd::loada(v2)};
            colour[r] = simd::loada(mask);
        }
    }
};

namespace detail {

template <class T> inline simd::reg_t<T> merge_colour(simd::reg_t<T> old, simd::reg_t<T> fresh, simd::reg_t<T> colour)
{
    if constexpr (std::is_same_v<T, Kel32f>) return _mm_blendv_ps(old, fresh, colour);
    else return _mm_blendv_epi8(old, fresh, colour);
}

// The vector body from element i up to `end` (a whole number of vectors past i). P phases
// cycle with each vector; G vectors make one iteration: a whole 64-byte line, or three vectors
// for the three-channel rotation, so that each of its vectors keeps one fixed phase.
template <class Op, bool Alpha, bool Stream, bool AlignedSrc, bool AlignedDst, std::size_t P, class T, class K, class M>
inline void body(const T* src, T* dst, std::size_t i, std::size_t end, const K (&k)[P], const M (&colour)[P])
{
    constexpr std::size_t L = simd::lanes<T>;
    constexpr std::size_t G = P == 3 ? 3 : 4;
    auto one = [&](std::size_t e, std::size_t g) {
        auto r = Op::apply(AlignedSrc ? simd::loada(src + e) : simd::loadu(src + e), k[g % P]);
        if constexpr (Alpha)
            r = merge_colour<T>(AlignedDst ? simd::loada(dst + e) : simd::loadu(dst + e), r, colour[g % P]);
        if constexpr (Stream && AlignedDst) simd::stream(dst + e, r);
        else if constexpr (AlignedDst) simd::storea(dst + e, r);
        else simd::storeu(dst + e, r);
    };
    for (; i + G * L <= end; i += G * L)
        for (std::size_t g = 0; g < G; ++g) one(i + g * L, g);
    for (std::size_t g = 0; i < end; i += L, ++g) one(i, g);
}

}  // namespace detail

// Runs below this many vectors take the scalar loop alone.
constexpr std::size_t kThresholdScalarBelowVectors = 3;

// One run of n elements (a whole number of pixels of C channels). Elements before the
// destination's 16-byte boundary and after the last whole vector go through the scalar apply
// of the same op; the vectors in between are stored aligned, or streamed past the cache when
// Stream is set (the caller then fences once at the end of the call). With Alpha, channel 3
// is never written: the vector path merges the destination's own element back.
template <class Op, std::size_t C, bool Alpha, bool Stream, class T>
inline void threshold_run(const T* src, T* dst, std::size_t n, const Pattern<T, C>& p)
{
    constexpr std::size_t L = simd::lanes<T>;
    constexpr std::size_t P = C == 3 ? 3 : 1;
    std::size_t i = 0, c = 0;  // c: channel of element i
    auto scalar = [&](std::size_t end) {
        for (; i < end; ++i) {
            if (!(Alpha && c == 3)) dst[i] = Op::apply(src[i], p.channel[c]);
            if (++c == C) c = 0;
        }
    };
    if (n >= kThresholdScalarBelowVectors * L) {
        std::size_t head = simd::head_to_align(dst);
        const bool alignable = head != simd::npos;
        scalar(alignable ? head : 0);
        VConsts<T> k[P];
        simd::reg_t<T> colour[P];
        for (std::size_t g = 0; g < P; ++g) {
            k[g] = p.phase[(i + g * L) % C];
            colour[g] = p.colour[(i + g * L) % C];
        }
        const std::size_t end = i + (n - i) / L * L;
        if (!alignable)
            detail::body<Op, Alpha, false, false, false>(src, dst, i, end, k, colour);
        else if (simd::aligned16(src + i))
            detail::body<Op, Alpha, Stream, true, true>(src, dst, i, end, k, colour);
        else
            detail::body<Op, Alpha, Stream, false, true>(src, dst, i, end, k, colour);
        i = end;
        c = i % C;
    }
    scalar(n);
}

}  // namespace keli::rows
