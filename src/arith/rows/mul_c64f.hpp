// Multiplication by 64f constants: the ops and the row loop of keliMulC64f. Each element is
// widened to 64f exactly, multiplied by its channel's constant in 64f, clamped to the range of
// the destination type and brought back to it:
//
//   FinancialOp  integers: 0.5 with the sign of the clamped product is added and the sum is
//                truncated, so halves go away from zero; no control state is read, which keeps
//                this the cheap kernel.
//   GeneralOp    integers: converted with the processor's rounding field, which the body sets to
//                toward zero or to nearest-even for the call (the product itself is rounded
//                under the same field); 32f: the product converted to 32f the same way.
//
// The clamp takes min(product, top) first: a not-a-number product (a not-a-number or infinite
// constant) compares false, min returns its second operand, and an integer destination gets
// the largest value. A 32f destination clamps to the finite range with the operands the other
// way round, so that not-a-number stays not-a-number while infinities become the largest
// finite values.
//
// The scalar applies run the same instructions on one lane (the _sd forms), so head, body and
// tail agree bit for bit.
#pragma once

#include <cfloat>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "simd/sse.hpp"

namespace keli::rows {

namespace mul_c64f_detail {

template <class T> constexpr bool kFloat = std::is_same_v<T, Kel32f>;
template <class T> constexpr double kTop = kFloat<T> ? double(FLT_MAX) : double(std::numeric_limits<T>::max());
template <class T> constexpr double kBottom = kFloat<T> ? -double(FLT_MAX) : double(std::numeric_limits<T>::min());

// Lanes 0-3, 4-7, ... of an integer register as 32-bit lanes.
template <class T> inline __m128i quad(__m128i v, int k)
{
    if constexpr (std::is_same_v<T, Kel8u>) {
        switch (k) {
        case 0: return _mm_cvtepu8_epi32(v);
        case 1: return _mm_cvtepu8_epi32(_mm_srli_si128(v, 4));
        case 2: return _mm_cvtepu8_epi32(_mm_srli_si128(v, 8));
        default: return _mm_cvtepu8_epi32(_mm_srli_si128(v, 12));
        }
    } else if constexpr (std::is_same_v<T, Kel16u>) {
        return k == 0 ? _mm_cvtepu16_epi32(v) : _mm_cvtepu16_epi32(_mm_srli_si128(v, 8));
    } else {
        return k == 0 ? _mm_cvtepi16_epi32(v) : _mm_cvtepi16_epi32(_mm_srli_si128(v, 8));
    }
}

// Quads of 32-bit lanes already within the range of T back into one register.
template <class T> inline __m128i pack(const __m128i* q)
{
    if constexpr (std::is_same_v<T, Kel8u>)
        return _mm_packus_epi16(_mm_packs_epi32(q[0], q[1]), _mm_packs_epi32(q[2], q[3]));
    else if constexpr (std::is_same_v<T, Kel16u>) return _mm_packus_epi32(q[0], q[1]);
    else return _mm_packs_epi32(q[0], q[1]);
}

template <class T> inline __m128d clamp(__m128d p)
{
    const __m128d top = _mm_set1_pd(kTop<T>), bottom = _mm_set1_pd(kBottom<T>);
    if constexpr (kFloat<T>) return _mm_max_pd(bottom, _mm_min_pd(top, p));  // not-a-number passes
    else return _mm_max_pd(_mm_min_pd(p, top), bottom);                      // not-a-number -> top
}

template <class T> inline __m128d clamp_sd(__m128d p)
{
    const __m128d top = _mm_set_sd(kTop<T>), bottom = _mm_set_sd(kBottom<T>);
    if constexpr (kFloat<T>) return _mm_max_sd(bottom, _mm_min_sd(top, p));
    else return _mm_max_sd(_mm_min_sd(p, top), bottom);
}

// 0.5 with the sign of each lane.
inline __m128d signed_half(__m128d v)
{
    const __m128d sign = _mm_set1_pd(-0.0);
    return _mm_or_pd(_mm_and_pd(v, sign), _mm_set1_pd(0.5));
}

}  // namespace mul_c64f_detail

// Integer destinations: two clamped products to two 32-bit integers in the low half.
struct FinancialRound {
    static __m128i pd(__m128d v) { return _mm_cvttpd_epi32(_mm_add_pd(v, mul_c64f_detail::signed_half(v))); }
    static int sd(__m128d v) { return _mm_cvttsd_si32(_mm_add_sd(v, mul_c64f_detail::signed_half(v))); }
};
struct ControlRound {
    static __m128i pd(__m128d v) { return _mm_cvtpd_epi32(v); }
    static int sd(__m128d v) { return _mm_cvtsd_si32(v); }
};

// One op for every element type; Round picks the integer conversion (32f always converts with
// the control field).
template <class E, class Round> struct MulC64fOp {
    using T = E;
    static constexpr std::size_t kVectorFrom = mul_c64f_detail::kFloat<T> ? 8 : 32 / sizeof(T) - 1;

    // x: one register of elements; c: the constants of its lanes, two a __m128d, 16-byte aligned.
    simd::reg_t<T> apply(simd::reg_t<T> x, const double* c) const
    {
        using namespace mul_c64f_detail;
        if constexpr (kFloat<T>) {
            const __m128d lo = clamp<T>(_mm_mul_pd(_mm_cvtps_pd(x), _mm_load_pd(c)));
            const __m128d hi = clamp<T>(_mm_mul_pd(_mm_cvtps_pd(_mm_movehl_ps(x, x)), _mm_load_pd(c + 2)));
            return _mm_movelh_ps(_mm_cvtpd_ps(lo), _mm_cvtpd_ps(hi));
        } else {
            constexpr int K = 4 / int(sizeof(T));
            __m128i q[4];
            for (int k = 0; k < K; ++k) {
                const __m128i a = quad<T>(x, k);
                const __m128d lo = clamp<T>(_mm_mul_pd(_mm_cvtepi32_pd(a), _mm_load_pd(c + 4 * k)));
                const __m128d hi =
                    clamp<T>(_mm_mul_pd(_mm_cvtepi32_pd(_mm_srli_si128(a, 8)), _mm_load_pd(c + 4 * k + 2)));
                q[k] = _mm_unpacklo_epi64(Round::pd(lo), Round::pd(hi));
            }
            return pack<T>(q);
        }
    }

    T apply(T x, double c) const
    {
        using namespace mul_c64f_detail;
        const __m128d p = clamp_sd<T>(_mm_mul_sd(_mm_set_sd(double(x)), _mm_set_sd(c)));
        if constexpr (kFloat<T>) return _mm_cvtss_f32(_mm_cvtsd_ss(_mm_setzero_ps(), p));
        else return static_cast<T>(Round::sd(p));
    }
};

// dst[i] = op(x[i], constant[i % C]) for i < n, C = 1, 3 or 4: scalar up to the destination's
// 16-byte boundary, then whole registers with aligned stores, then a scalar tail. The constants
// of a register's lanes come from a pattern of P registers' worth (three for three channels,
// one otherwise) that repeats on a register boundary.
template <std::size_t C, class Op, class T = typename Op::T>
inline void mul_c64f_run(const Op& op, const T* x, const double* constant, T* d, std::size_t n)
{
    constexpr std::size_t L = simd::lanes<T>;
    constexpr std::size_t P = C == 3 ? 3 : 1;
    std::size_t i = 0, c = 0;  // c == i % C
    auto scalar = [&](std::size_t end) {
        for (; i < end; ++i) {
            d[i] = op.apply(x[i], constant[c]);
            c = c + 1 == C ? 0 : c + 1;
        }
    };
    if (n >= Op::kVectorFrom) {
        std::size_t head = simd::head_to_align(d);
        const bool alignedDst = head != simd::npos;
        if (!alignedDst) head = 0;
        scalar(head);
        alignas(16) double lane[P * L];
        for (std::size_t e = 0; e < P * L; ++e) lane[e] = constant[(c + e) % C];
        const std::size_t body = head + (n - head) / L * L;
        std::size_t p = 0;
        if (alignedDst) {
            for (; i < body; i += L, p = p + 1 == P ? 0 : p + 1)
                simd::storea(d + i, op.apply(simd::loadu(x + i), lane + p * L));
        } else {
            for (; i < body; i += L, p = p + 1 == P ? 0 : p + 1)
                simd::storeu(d + i, op.apply(simd::loadu(x + i), lane + p * L));
        }
        c = i % C;
    }
    scalar(n);
}

}  // namespace keli::rows
