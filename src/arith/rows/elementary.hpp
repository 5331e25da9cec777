// Ops of the square root, natural logarithm and exponential.
//
// Integer members are defined by formulas in double precision, with f = 2^-n:
//
//   Sqrt  saturate(round_half_even(sqrt(a) * f))           a < 0 (16s): 0, flagged negative
//   Ln    trunc(min(ln(a) * f + 0.5, largest))              a == 0: 0, flagged zero; a < 0: 0, negative
//   Exp   trunc(min(exp(a) * f + 0.5, largest))
//
// Sqrt rounds half to even like every scale factor of the arithmetic; Ln and Exp round half up
// (the truncation of the value plus a half). The square root in double precision, scaled by a
// power of two and rounded, is the exactly rounded value for every 16-bit input: single
// precision is not (it misses ties by a few units for scale factors of -4 and below).
//
// How the vector code reaches the same bits:
//   Sqrt 16u/16s  the formula itself, two lanes of double at a time.
//   Ln 16u/16s    the logarithm in single precision, and the formula in double for the lanes whose
//                 value lies so near a rounding boundary that single precision cannot decide.
//   Exp           exp(a) f grows by e per step of a, so at most a dozen consecutive inputs give a
//                 result that is neither 0 nor the largest value: a table of 16 results from the
//                 formula, looked up with a byte shuffle, covers every input.
//   8u Sqrt       the square root in single precision, which decides every 8-bit input.
//   8u Ln         a table of the 256 results, built once a call.
// 32f members use the vector logarithm and exponential, one lane at a time in heads and tails.
#pragma once

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "arith/rows/add_sub.hpp"
#include "arith/rows/elementary_run.hpp"
#include "arith/rows/float_math.hpp"
#include "simd/sse.hpp"

namespace keli::rows {

template <class T> constexpr double kLargest = double(std::numeric_limits<T>::max());

// 2^-n in double. Beyond +-64 no result of a 16-bit argument changes any more (every non-zero
// result of Sqrt and Ln saturates, or rounds to 0), so the factor stays finite and non-zero, and
// 0 times infinity never arises.
inline double power_of_half(int n) { return std::ldexp(1.0, -std::clamp(n, -64, 64)); }

inline double round_even(double v)
{
    return _mm_cvtsd_f64(_mm_round_sd(_mm_setzero_pd(), _mm_set_sd(v), _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC));
}

template <class T> inline T sqrt_int(T a, double f)
{
    if (a <= 0) return T(0);
    return static_cast<T>(std::min(round_even(std::sqrt(double(a)) * f), kLargest<T>));
}

template <class T> inline T ln_int(T a, double f)
{
    if (a <= 0) return T(0);
    return static_cast<T>(std::min(std::log(double(a)) * f + 0.5, kLargest<T>));
}

// For any n. Where the double formula meets 0 times infinity (exp(a) underflows while 2^-n
// overflows, or the reverse), the result is that of the exact value exp(a - n ln 2), which then
// lies far from every rounding boundary: 0 below a half, the largest value above.
template <class T> inline T exp_int(int a, int n)
{
    const int m = std::clamp(n, -2000, 2000);
    const double v = std::exp(double(a)) * std::ldexp(1.0, -m);
    if (std::isnan(v)) return double(a) - double(n) * 0.693147180559945309 < -0.693147180559945309 ? T(0) : T(kLargest<T>);
    return static_cast<T>(std::min(v + 0.5, kLargest<T>));
}

// ---- 32f ---------------------------------------------------------------------------------------

struct NoFlags {
    template <class R> __m128i zero(R) const { return _mm_setzero_si128(); }
    template <class R> __m128i negative(R) const { return _mm_setzero_si128(); }
    bool zero(Kel32f) const { return false; }
    bool negative(Kel32f) const { return false; }
};

// Minus zero is neither negative for the square root nor anything but a zero for the logarithm;
// not-a-number raises nothing.
struct SqrtFloatOp : NoFlags {
    using T = Kel32f;
    static constexpr std::size_t kVectorFrom = 12;
    using NoFlags::zero;
    __m128 apply(__m128 x) const { return _mm_sqrt_ps(x); }
    T apply(T x) const { return _mm_cvtss_f32(_mm_sqrt_ss(_mm_set_ss(x))); }
    __m128i negative(__m128 x) const { return _mm_castps_si128(_mm_cmplt_ps(x, _mm_setzero_ps())); }
    bool negative(T x) const { return x < 0.0f; }
};

struct LnFloatOp {
    using T = Kel32f;
    static constexpr std::size_t kVectorFrom = 12;
    bool plain(__m128 x) const { return fmath::all_normal(x); }
    __m128 apply_plain(__m128 x) const { return fmath::log_normal(x, _mm_setzero_si128()); }
    __m128 apply(__m128 x) const { return fmath::log_ps(x); }
    T apply(T x) const { return fmath::log1(x); }
    __m128i zero(__m128 x) const { return _mm_castps_si128(_mm_cmpeq_ps(x, _mm_setzero_ps())); }
    bool zero(T x) const { return x == 0.0f; }
    __m128i negative(__m128 x) const { return _mm_castps_si128(_mm_cmplt_ps(x, _mm_setzero_ps())); }
    bool negative(T x) const { return x < 0.0f; }
};

struct ExpFloatOp : NoFlags {
    using T = Kel32f;
    static constexpr std::size_t kVectorFrom = 12;
    __m128 apply(__m128 x) const { return fmath::exp_ps(x); }
    T apply(T x) const { return fmath::exp1(x); }
};

// ---- 16-bit integers ---------------------------------------------------------------------------

namespace elementary_detail {

template <class T> inline __m128i widen_lo(__m128i v)
{
    return std::is_signed_v<T> ? _mm_cvtepi16_epi32(v) : _mm_cvtepu16_epi32(v);
}
template <class T> inline __m128i widen_hi(__m128i v) { return widen_lo<T>(_mm_srli_si128(v, 8)); }

template <class T> inline __m128i narrow(__m128i lo, __m128i hi)
{
    return std::is_signed_v<T> ? _mm_packs_epi32(lo, hi) : _mm_packus_epi32(lo, hi);
}

template <class T> inline __m128i negative_lanes(__m128i x)
{
    if constexpr (std::is_signed_v<T>) return _mm_cmpgt_epi16(_mm_setzero_si128(), x);
    else return _mm_setzero_si128();
}

}  // namespace elementary_detail

template <class E> struct SqrtIntOp {
    using T = E;
    static constexpr std::size_t kVectorFrom = rows::kVectorFrom<T, true>;
    explicit SqrtIntOp(int n) : f_(power_of_half(n)), fv_(_mm_set1_pd(f_)), top_(_mm_set1_pd(kLargest<T>)) {}

    __m128i apply(__m128i x) const
    {
        using namespace elementary_detail;
        const __m128i lo = _mm_max_epi32(widen_lo<T>(x), _mm_setzero_si128());
        const __m128i hi = _mm_max_epi32(widen_hi<T>(x), _mm_setzero_si128());
        return narrow<T>(four(lo), four(hi));
    }
    T apply(T x) const { return sqrt_int(x, f_); }
    __m128i zero(__m128i) const { return _mm_setzero_si128(); }
    bool zero(T) const { return false; }
    __m128i negative(__m128i x) const { return elementary_detail::negative_lanes<T>(x); }
    bool negative(T x) const { return x < 0; }

private:
    __m128i two(__m128i v) const
    {
        __m128d r = _mm_mul_pd(_mm_sqrt_pd(_mm_cvtepi32_pd(v)), fv_);
        r = _mm_min_pd(_mm_round_pd(r, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC), top_);
        return _mm_cvttpd_epi32(r);
    }
    __m128i four(__m128i v) const { return _mm_unpacklo_epi64(two(v), two(_mm_srli_si128(v, 8))); }

    double f_;
    __m128d fv_, top_;
};

// 8u square roots in single precision, sixteen at a time: sqrt(a) 2^-n is rounded once, by
// sqrtps (2^-n scales exactly), by at most 2^-24 of its size. Below 255.5 and off the exact
// halves of the perfect squares, it stays at least 1.9e-6 of its size away from every half
// (the closest: a = 255, n = -4), thirty times that rounding; so the rounding to nearest gives
// the double formula's bits for every element and factor.
struct SqrtByteOp {
    using T = Kel8u;
    static constexpr std::size_t kVectorFrom = rows::kVectorFrom<T, true>;
    explicit SqrtByteOp(int n) : f_(power_of_half(n)), fv_(_mm_set1_ps(float(f_))) {}

    __m128i apply(__m128i x) const
    {
        const __m128i z = _mm_setzero_si128();
        const __m128i lo = _mm_unpacklo_epi8(x, z), hi = _mm_unpackhi_epi8(x, z);
        return _mm_packus_epi16(_mm_packus_epi32(four(_mm_unpacklo_epi16(lo, z)), four(_mm_unpackhi_epi16(lo, z))),
                                _mm_packus_epi32(four(_mm_unpacklo_epi16(hi, z)), four(_mm_unpackhi_epi16(hi, z))));
    }
    T apply(T x) const { return sqrt_int(x, f_); }
    __m128i zero(__m128i) const { return _mm_setzero_si128(); }
    bool zero(T) const { return false; }
    __m128i negative(__m128i) const { return _mm_setzero_si128(); }
    bool negative(T) const { return false; }

private:
    // Held at 255 before the conversion, so that large factors saturate instead of overflowing.
    __m128i four(__m128i v) const
    {
        const __m128 r = _mm_mul_ps(_mm_sqrt_ps(_mm_cvtepi32_ps(v)), fv_);
        return _mm_cvttps_epi32(_mm_min_ps(_mm_round_ps(r, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC), _mm_set1_ps(255.0f)));
    }

    double f_;
    __m128 fv_;
};

template <class E> struct LnIntOp {
    using T = E;
    static constexpr std::size_t kVectorFrom = rows::kVectorFrom<T, true>;
    explicit LnIntOp(int n) : f_(power_of_half(n)), fv_(_mm_set1_ps(float(f_))) {}

    __m128i apply(__m128i x) const
    {
        using namespace elementary_detail;
        const __m128i lo = four(widen_lo<T>(x)), hi = four(widen_hi<T>(x));
        return narrow<T>(lo, hi);
    }
    T apply(T x) const { return ln_int(x, f_); }
    __m128i zero(__m128i x) const { return _mm_cmpeq_epi16(x, _mm_setzero_si128()); }
    bool zero(T x) const { return x == 0; }
    __m128i negative(__m128i x) const { return elementary_detail::negative_lanes<T>(x); }
    bool negative(T x) const { return x < 0; }

private:
    // Four 32-bit lanes. The single-precision value t = ln(a) f + 1/2 is within a few units of
    // its last place; where t lies further than eight units from an integer its truncation is
    // that of the double formula, and the other lanes take the formula itself.
    __m128i four(__m128i a) const
    {
        const __m128i positive = _mm_cmpgt_epi32(a, _mm_setzero_si128());
        const __m128 t = _mm_add_ps(_mm_mul_ps(fmath::log_ps(_mm_cvtepi32_ps(_mm_max_epi32(a, _mm_set1_epi32(1)))), fv_),
                                    _mm_set1_ps(0.5f));
        const __m128 top = _mm_set1_ps(float(kLargest<T>));
        const __m128i k = _mm_cvttps_epi32(_mm_min_ps(t, top));
        const __m128 frac = _mm_sub_ps(t, _mm_cvtepi32_ps(k));
        const __m128 tol = _mm_add_ps(_mm_mul_ps(t, _mm_set1_ps(1.0f / 1048576.0f)), _mm_set1_ps(1.0f / 4194304.0f));
        const __m128 unsure = _mm_and_ps(_mm_or_ps(_mm_cmplt_ps(frac, tol), _mm_cmpgt_ps(frac, _mm_sub_ps(_mm_set1_ps(1.0f), tol))),
                                         _mm_cmplt_ps(t, _mm_add_ps(top, _mm_set1_ps(2.0f))));
        __m128i r = _mm_and_si128(k, positive);
        const int redo = _mm_movemask_ps(_mm_and_ps(unsure, _mm_castsi128_ps(positive)));
        if (redo != 0) {
            alignas(16) std::int32_t lanes[4], args[4];
            _mm_store_si128(reinterpret_cast<__m128i*>(lanes), r);
            _mm_store_si128(reinterpret_cast<__m128i*>(args), a);
            for (int j = 0; j < 4; ++j)
                if (redo & (1 << j)) lanes[j] = ln_int(static_cast<T>(args[j]), f_);
            r = _mm_load_si128(reinterpret_cast<const __m128i*>(lanes));
        }
        return r;
    }

    double f_;
    __m128 fv_;
};

// ---- Exp on integers: the window of 16 results ----------------------------------------------

// There is no fill for large scale factors: exp(255) 2^-12 still saturates 8u, and the window
// serves every n at the same cost anyway.

template <class E> struct ExpIntOp {
    using T = E;
    static constexpr std::size_t kVectorFrom = rows::kVectorFrom<T, false>;
    explicit ExpIntOp(int n)
    {
        constexpr int lowest = std::numeric_limits<T>::min(), highest = std::numeric_limits<T>::max();
        // start: the last input whose result is 0, or the smallest input. exp(a) 2^-n reaches a
        // half at a = (n - 1) ln 2; the walks below settle the exact place.
        const double guess = (double(std::clamp(n, -100000, 100000)) - 1.0) * 0.693147180559945309 - 1.0;
        int a = static_cast<int>(std::clamp(guess, double(lowest), double(highest)));
        while (a > lowest && exp_int<T>(a, n) != 0) a = std::max(lowest, a - 4);
        while (a < highest && exp_int<T>(a + 1, n) == 0) ++a;
        start_ = a;
        alignas(16) std::uint8_t low[16], high[16];
        for (int i = 0; i < 16; ++i) {
            const int v = start_ + i <= highest ? int(exp_int<T>(start_ + i, n)) : highest;
            table_[i] = static_cast<T>(v);
            low[i] = static_cast<std::uint8_t>(v & 0xFF);
            high[i] = static_cast<std::uint8_t>((v >> 8) & 0xFF);
        }
        low_ = _mm_load_si128(reinterpret_cast<const __m128i*>(low));
        high_ = _mm_load_si128(reinterpret_cast<const __m128i*>(high));
        if constexpr (sizeof(T) == 1) startv_ = _mm_set1_epi8(static_cast<char>(start_));
        else startv_ = _mm_set1_epi16(static_cast<short>(start_));
    }

    __m128i apply(__m128i x) const
    {
        const __m128i last = sizeof(T) == 1 ? _mm_set1_epi8(15) : _mm_set1_epi16(15);
        if constexpr (sizeof(T) == 1) {
            return _mm_shuffle_epi8(low_, _mm_min_epu8(_mm_subs_epu8(x, startv_), last));
        } else {
            const __m128i i = std::is_signed_v<T>
                                  ? _mm_min_epi16(_mm_max_epi16(_mm_subs_epi16(x, startv_), _mm_setzero_si128()), last)
                                  : _mm_min_epu16(_mm_subs_epu16(x, startv_), last);
            const __m128i index = _mm_or_si128(i, _mm_slli_epi16(i, 8));  // both bytes of a lane
            const __m128i lowByte = _mm_set1_epi16(0x00FF);
            return _mm_or_si128(_mm_and_si128(_mm_shuffle_epi8(low_, index), lowByte),
                                _mm_andnot_si128(lowByte, _mm_shuffle_epi8(high_, index)));
        }
    }
    T apply(T x) const { return table_[std::clamp(int(x) - start_, 0, 15)]; }
    __m128i zero(__m128i) const { return _mm_setzero_si128(); }
    bool zero(T) const { return false; }
    __m128i negative(__m128i) const { return _mm_setzero_si128(); }
    bool negative(T) const { return false; }

private:
    int start_;
    T table_[16];
    __m128i low_, high_, startv_;
};

// ---- 8u tables ---------------------------------------------------------------------------------

// The 16u op on the inputs 0 to 255, limited to 255: truncation commutes with the limit, so each
// entry is the 8u formula's, at the cost of the vector logarithm instead of 256 in double.
inline ByteTable ln_table(int n)
{
    ByteTable t;
    const LnIntOp<Kel16u> op(n);
    for (int a = 0; a < 256; a += 16) {
        const __m128i lo = _mm_add_epi16(_mm_set1_epi16(static_cast<short>(a)), _mm_setr_epi16(0, 1, 2, 3, 4, 5, 6, 7));
        const __m128i hi = _mm_add_epi16(lo, _mm_set1_epi16(8));
        const __m128i top = _mm_set1_epi16(255);
        const __m128i r = _mm_packus_epi16(_mm_min_epu16(op.apply(lo), top), _mm_min_epu16(op.apply(hi), top));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(t.entry + a), r);
    }
    return t;
}

}  // namespace keli::rows
