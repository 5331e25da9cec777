// Row kernels of the synthetic images: the rings of keliImageJaehne and the values of
// keliImageRamp, in 32f, four at a time, with scalar twins that do the same operations in the
// same order, so that every pixel is the same whichever path computed it.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "simd/sse.hpp"

namespace keli::rows {

// The sine of the library: the argument reduced by multiples of pi in 64f, with pi in two
// parts of which the first has short enough a mantissa that k * first is exact for every k a
// 32f argument of the images can reach; then an odd polynomial (Taylor to the 17th power,
// 4e-14 at pi / 2) and the sign of the half turn. The result is far closer to the true sine
// than the 32f rounding it goes through after, so the images are within an ulp of the sine.
namespace sine {
constexpr double kInvPi = 0.318309886183790671538;
constexpr double kPiHigh = 3.14159265346825122834;  // 33 significant bits
constexpr double kPiLow = 1.21542010130123844986e-10;
constexpr double kC3 = -1.0 / 6, kC5 = 1.0 / 120, kC7 = -1.0 / 5040, kC9 = 1.0 / 362880, kC11 = -1.0 / 39916800,
                 kC13 = 1.0 / 6227020800.0, kC15 = -1.0 / 1307674368000.0, kC17 = 1.0 / 355687428096000.0;
}  // namespace sine

inline double sin64(double a)
{
    using namespace sine;
    const double k = std::nearbyint(a * kInvPi);
    const double r = (a - k * kPiHigh) - k * kPiLow;
    const double r2 = r * r;
    const double p = r + r * (r2 * (kC3 + r2 * (kC5 + r2 * (kC7 + r2 * (kC9 + r2 * (kC11 + r2 * (kC13 + r2 * (kC15 + r2 * kC17))))))));
    return (static_cast<std::int64_t>(k) & 1) ? -p : p;
}

inline __m128d sin64(__m128d a)
{
    using namespace sine;
    auto c = [](double x) { return _mm_set1_pd(x); };
    const __m128d k = _mm_round_pd(_mm_mul_pd(a, c(kInvPi)), _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
    const __m128d r = _mm_sub_pd(_mm_sub_pd(a, _mm_mul_pd(k, c(kPiHigh))), _mm_mul_pd(k, c(kPiLow)));
    const __m128d r2 = _mm_mul_pd(r, r);
    __m128d p = c(kC17);
    for (double coefficient : {kC15, kC13, kC11, kC9, kC7, kC5, kC3}) p = _mm_add_pd(c(coefficient), _mm_mul_pd(r2, p));
    p = _mm_add_pd(r, _mm_mul_pd(r, _mm_mul_pd(r2, p)));
    // The parity of k in the sign bit of each lane.
    const __m128i ki = _mm_cvtpd_epi32(k);
    const __m128i odd = _mm_slli_epi64(_mm_unpacklo_epi32(ki, ki), 63);
    return _mm_xor_pd(p, _mm_castsi128_pd(odd));
}

// The ring pattern of one row: for x = x0 ... x0 + n - 1,
//   v = sin(((xc * xc + yc2) * 1.5707964f) * invH) in 32f, xc = x - cx, out = v * scale + bias.
struct JaehneRow {
    float cx, yc2, invH, scale, bias;

    float at(std::int32_t x) const
    {
        const float xc = static_cast<float>(x) - cx;
        const float arg = ((xc * xc + yc2) * 1.5707964f) * invH;
        const float v = static_cast<float>(sin64(static_cast<double>(arg)));
        return v * scale + bias;
    }

    void values(float* out, std::int32_t x0, std::size_t n) const
    {
        std::size_t i = 0;
        const __m128i step = _mm_set_epi32(3, 2, 1, 0);
        for (; i + 4 <= n; i += 4) {
            const __m128 x = _mm_cvtepi32_ps(_mm_add_epi32(_mm_set1_epi32(x0 + std::int32_t(i)), step));
            const __m128 xc = _mm_sub_ps(x, _mm_set1_ps(cx));
            const __m128 arg = _mm_mul_ps(_mm_mul_ps(_mm_add_ps(_mm_mul_ps(xc, xc), _mm_set1_ps(yc2)), _mm_set1_ps(1.5707964f)),
                                          _mm_set1_ps(invH));
            const __m128 lo = _mm_cvtpd_ps(sin64(_mm_cvtps_pd(arg)));
            const __m128 hi = _mm_cvtpd_ps(sin64(_mm_cvtps_pd(_mm_movehl_ps(arg, arg))));
            const __m128 v = _mm_movelh_ps(lo, hi);
            _mm_storeu_ps(out + i, _mm_add_ps(_mm_mul_ps(v, _mm_set1_ps(scale)), _mm_set1_ps(bias)));
        }
        for (; i < n; ++i) out[i] = at(x0 + std::int32_t(i));
    }
};

// Ramp values: out = float(x * factor) * slope + offset for x = x0 ... x0 + n - 1, the product
// an exact integer (factor 1 along x, the row index for the product of both).
inline float ramp_at(std::int64_t product, float slope, float offset)
{
    return static_cast<float>(product) * slope + offset;
}

inline void ramp_values(float* out, std::int32_t x0, std::size_t n, std::int32_t factor, float slope, float offset)
{
    std::size_t i = 0;
    // Four products at a time while they fit 32 bits, where the conversion is the same.
    const std::int64_t last = (std::int64_t(x0) + std::int64_t(n)) * factor;
    if (last <= INT32_MAX) {
        const __m128i step = _mm_set_epi32(3, 2, 1, 0);
        for (; i + 4 <= n; i += 4) {
            const __m128i x = _mm_add_epi32(_mm_set1_epi32(x0 + std::int32_t(i)), step);
            const __m128 p = _mm_cvtepi32_ps(_mm_mullo_epi32(x, _mm_set1_epi32(factor)));
            _mm_storeu_ps(out + i, _mm_add_ps(_mm_mul_ps(p, _mm_set1_ps(slope)), _mm_set1_ps(offset)));
        }
    }
    for (; i < n; ++i) out[i] = ramp_at((std::int64_t(x0) + std::int64_t(i)) * factor, slope, offset);
}

}  // namespace keli::rows
