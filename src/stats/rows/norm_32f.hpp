// Row kernels of the 32f norms. The sums of absolute values and of squares run through the row
// sums of the sums family, so that they add in the same fixed order; what they add is read
// through the sources below: the absolute value, the square, and the same of a difference.
// The largest absolute value is exact in any order, and a not-a-number is remembered per lane
// on the side so that it reaches the result whatever comes after it.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>

#include "stats/rows/sums_extrema_sum.hpp"

namespace keli::rows {

inline __m128 abs_ps(__m128 x) { return _mm_andnot_ps(_mm_set1_ps(-0.0f), x); }
inline __m128d abs_pd(__m128d x) { return _mm_andnot_pd(_mm_set1_pd(-0.0), x); }

// The term of each element, in 32-bit floats (fast path) and in 64-bit floats (accurate path).
struct NormAbsOp {
    static __m128 apply(__m128 x) { return abs_ps(x); }
    static Kel32f apply(Kel32f x) { return std::fabs(x); }
    static __m128d apply(__m128d x) { return abs_pd(x); }
    static double apply(double x) { return std::fabs(x); }
};

struct NormSqOp {
    static __m128 apply(__m128 x) { return _mm_mul_ps(x, x); }
    static Kel32f apply(Kel32f x) { return x * x; }
    static __m128d apply(__m128d x) { return _mm_mul_pd(x, x); }
    static double apply(double x) { return x * x; }
};

// One image: the op applied to each element.
template <class Op> struct NormSrc {
    const Kel32f* p;
    const void* addr() const { return p; }
    NormSrc at(std::size_t i) const { return {p + i}; }
    template <bool Aligned> __m128 v(std::size_t i) const { return Op::apply(PlainF32{p}.v<Aligned>(i)); }
    __m128 v2(std::size_t i) const { return Op::apply(load2f(p + i)); }
    Kel32f s(std::size_t i) const { return Op::apply(load1(p + i)); }
    __m128d d2(std::size_t i) const { return Op::apply(_mm_cvtps_pd(load2f(p + i))); }
    double d1(std::size_t i) const { return Op::apply(static_cast<double>(load1(p + i))); }
};

// Two images: the op applied to the difference, formed in 32-bit floats on the fast path and
// of the widened elements on the accurate one. Alignment follows the first image.
template <class Op> struct NormDiffSrc {
    const Kel32f* p;
    const Kel32f* q;
    const void* addr() const { return p; }
    NormDiffSrc at(std::size_t i) const { return {p + i, q + i}; }
    template <bool Aligned> __m128 v(std::size_t i) const
    {
        return Op::apply(_mm_sub_ps(PlainF32{p}.v<Aligned>(i), _mm_loadu_ps(q + i)));
    }
    __m128 v2(std::size_t i) const { return Op::apply(_mm_sub_ps(load2f(p + i), load2f(q + i))); }
    Kel32f s(std::size_t i) const { return Op::apply(Kel32f(load1(p + i) - load1(q + i))); }
    __m128d d2(std::size_t i) const { return Op::apply(_mm_sub_pd(_mm_cvtps_pd(load2f(p + i)), _mm_cvtps_pd(load2f(q + i)))); }
    double d1(std::size_t i) const { return Op::apply(static_cast<double>(load1(p + i)) - static_cast<double>(load1(q + i))); }
};

// ---- Largest absolute value ---------------------------------------------------------------------

// Per lane the largest absolute value and a mask of the lanes that met a not-a-number. Lanes
// keep one channel each (a period of three vectors for three channels).
template <int C> struct InfF32State {
    static constexpr int P = C == 3 ? 3 : 1;
    __m128 mx[P], nan[P];
    InfF32State()
    {
        for (int k = 0; k < P; ++k) mx[k] = nan[k] = _mm_setzero_ps();
    }
};

// a alone (b null) or the difference a - b, n elements from a pixel boundary. The scalar tail
// keeps its own per-channel values in m and nanSeen.
template <int C, bool Pair>
inline void inf32f_run(const Kel32f* a, const Kel32f* b, std::size_t n, InfF32State<C>& st, float* m, bool* nanSeen)
{
    constexpr std::size_t P = InfF32State<C>::P;
    std::size_t i = 0;
    for (; n - i >= 4 * P;)
        for (std::size_t k = 0; k < P; ++k, i += 4) {
            __m128 x = _mm_loadu_ps(a + i);
            if constexpr (Pair) x = _mm_sub_ps(x, _mm_loadu_ps(b + i));
            st.nan[k] = _mm_or_ps(st.nan[k], _mm_cmpunord_ps(x, x));
            st.mx[k] = _mm_max_ps(st.mx[k], abs_ps(x));
        }
    for (; i < n; ++i) {
        const Kel32f x = Pair ? Kel32f(load1(a + i) - load1(b + i)) : load1(a + i);
        const std::size_t c = i % C;
        if (std::isnan(x)) nanSeen[c] = true;
        else if (std::fabs(x) > m[c]) m[c] = std::fabs(x);
    }
}

// Folds the lanes into the per-channel values.
template <int C> inline void inf32f_fold(const InfF32State<C>& st, float* m, bool* nanSeen)
{
    constexpr int P = InfF32State<C>::P;
    alignas(16) float mx[4 * P], nan[4 * P];
    for (int k = 0; k < P; ++k) {
        _mm_store_ps(mx + 4 * k, st.mx[k]);
        _mm_store_ps(nan + 4 * k, st.nan[k]);
    }
    for (int j = 0; j < 4 * P; ++j) {
        std::uint32_t bits;
        std::memcpy(&bits, nan + j, sizeof bits);
        if (bits) nanSeen[j % C] = true;
        if (mx[j] > m[j % C]) m[j % C] = mx[j];
    }
}

}  // namespace keli::rows
