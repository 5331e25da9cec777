// The noise generator and the row kernels that add its values to elements.
//
// The generator is a subtract-with-borrow sequence added to a linear congruential one, all in
// uint32 arithmetic with wrap-around. Each word depends on the borrow of the one before, so the
// words come one at a time; what follows them (scaling, rounding, the saturating add) runs on
// vectors over a block of words.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "keli_types.h"
#include "move/rows/mirror.hpp"
#include "simd/sse.hpp"

namespace keli::rows {

struct NoiseGenerator {
    std::uint32_t x0, x1, x2, u, borrow;

    explicit NoiseGenerator(std::uint32_t seed)
        : x0(seed), x1(seed * 69069u + 1013904243u), x2(seed * 475559465u + 924302730u), u(1131199209u),
          borrow(0xFFFFFFFFu)
    {
    }

    std::int32_t next()
    {
        const std::uint32_t u2 = u * 69069u;
        const std::uint32_t r = subtract_step();
        u = u2 + 1013904243u;
        return static_cast<std::int32_t>(r + u2 + 1013904243u);
    }

    // The next n words. The subtractive chain runs word by word; the congruential one, which
    // each word only adds, runs four words a step as a jump of four: u * 69069^4 + the sum of
    // the constant's first four images, all mod 2^32.
    void fill(std::int32_t* out, std::size_t n)
    {
        std::size_t k = 0;
        if (n >= 8) {
            alignas(16) std::uint32_t first[4];
            std::uint32_t v = u;
            for (auto& f : first) f = v = v * 69069u + 1013904243u;  // the u each of the four words adds
            __m128i lcg = _mm_load_si128(reinterpret_cast<const __m128i*>(first));
            const __m128i mul4 = _mm_set1_epi32(static_cast<int>(kMul4)), add4 = _mm_set1_epi32(static_cast<int>(kAdd4));
            __m128i used = lcg;
            for (; k + 4 <= n; k += 4) {
                alignas(16) std::uint32_t r[4];
                for (auto& w : r) w = subtract_step();
                _mm_storeu_si128(reinterpret_cast<__m128i*>(out + k),
                                 _mm_add_epi32(_mm_load_si128(reinterpret_cast<const __m128i*>(r)), lcg));
                used = lcg;
                lcg = _mm_add_epi32(_mm_mullo_epi32(lcg, mul4), add4);
            }
            u = static_cast<std::uint32_t>(_mm_extract_epi32(used, 3));  // what the last word left
        }
        for (; k < n; ++k) out[k] = next();
    }

    // The seed a following call continues from: the last word of the subtractive chain.
    std::uint32_t seed() const { return x0; }

private:
    std::uint32_t subtract_step()
    {
        // The sign spread over the word is the borrow: no branch, whose outcome is a coin toss.
        const std::uint32_t d = x1 - x2 + borrow;
        borrow = static_cast<std::uint32_t>(static_cast<std::int32_t>(d) >> 31);
        const std::uint32_t r = d - (borrow & 18u);
        x2 = x1, x1 = x0, x0 = r;
        return r;
    }

    static constexpr std::uint32_t kMul4 = 69069u * 69069u * 69069u * 69069u;
    static constexpr std::uint32_t kAdd4 = 1013904243u * (69069u * 69069u * 69069u + 69069u * 69069u + 69069u + 1u);
};

// The natural logarithm in 64f, the library's own so that a seed gives the same noise on every
// build: w = m * 2^e with m in [sqrt(1/2), sqrt(2)), and ln m = 2 atanh(s), s = (m - 1) / (m + 1),
// by its odd series to the 21st power (|s| < 0.172, so the next term is below 1e-17).
inline double ln64(double w)
{
    std::uint64_t bits;
    std::memcpy(&bits, &w, sizeof bits);
    int e = static_cast<int>((bits >> 52) & 0x7FF) - 1023;
    bits = (bits & 0x000FFFFFFFFFFFFFull) | 0x3FF0000000000000ull;
    double m;
    std::memcpy(&m, &bits, sizeof m);
    if (m > 1.4142135623730951) m *= 0.5, ++e;
    const double s = (m - 1.0) / (m + 1.0), s2 = s * s;
    const double series =
        s2 * (2.0 / 3 + s2 * (2.0 / 5 + s2 * (2.0 / 7 + s2 * (2.0 / 9 + s2 * (2.0 / 11 + s2 * (2.0 / 13 + s2 * (2.0 / 15 + s2 * (2.0 / 17 + s2 * (2.0 / 19 + s2 * (2.0 / 21))))))))));
    return static_cast<double>(e) * 0.69314718055994530942 + (2.0 * s + s * series);
}

// The logarithm of ln64, two lanes at a time, with the same operations in the same order, so
// that each lane gives ln64's bits.
inline __m128d ln64x2(__m128d w)
{
    const __m128i bits = _mm_castpd_si128(w);
    __m128i e = _mm_sub_epi64(_mm_and_si128(_mm_srli_epi64(bits, 52), _mm_set1_epi64x(0x7FF)), _mm_set1_epi64x(1023));
    __m128d m = _mm_castsi128_pd(_mm_or_si128(_mm_and_si128(bits, _mm_set1_epi64x(0x000FFFFFFFFFFFFFll)),
                                              _mm_set1_epi64x(0x3FF0000000000000ll)));
    const __m128d big = _mm_cmpgt_pd(m, _mm_set1_pd(1.4142135623730951));
    m = _mm_blendv_pd(m, _mm_mul_pd(m, _mm_set1_pd(0.5)), big);
    e = _mm_sub_epi64(e, _mm_castpd_si128(big));  // all ones: plus one
    const __m128d one = _mm_set1_pd(1.0);
    const __m128d s = _mm_div_pd(_mm_sub_pd(m, one), _mm_add_pd(m, one)), s2 = _mm_mul_pd(s, s);
    const auto step = [&](__m128d acc, double c) { return _mm_add_pd(_mm_set1_pd(c), _mm_mul_pd(s2, acc)); };
    __m128d t = _mm_set1_pd(2.0 / 21);
    t = step(t, 2.0 / 19), t = step(t, 2.0 / 17), t = step(t, 2.0 / 15), t = step(t, 2.0 / 13), t = step(t, 2.0 / 11);
    t = step(t, 2.0 / 9), t = step(t, 2.0 / 7), t = step(t, 2.0 / 5), t = step(t, 2.0 / 3);
    const __m128d series = _mm_mul_pd(s2, t);
    const __m128d ed = _mm_cvtepi32_pd(_mm_shuffle_epi32(e, _MM_SHUFFLE(3, 1, 2, 0)));
    return _mm_add_pd(_mm_mul_pd(ed, _mm_set1_pd(0.69314718055994530942)),
                      _mm_add_pd(_mm_mul_pd(_mm_set1_pd(2.0), s), _mm_mul_pd(s, series)));
}

// Gaussian values by the polar method, in the order the elements take them: a, then b of each
// accepted round. The rounds are drawn one at a time, since each word waits on the borrow of
// the last, and only as many as the values asked for need; the logarithms, divisions and
// square roots of the accepted ones then run two lanes at a time. A round's b left over at the
// end of a block waits for the next block.
class GaussStream {
public:
    GaussStream(NoiseGenerator& gen, double mean, double stDev) : gen_(gen), mean_(mean), sd_(stDev) {}

    void fill(double* out, std::size_t n)
    {
        std::size_t i = 0;
        if (pending_ && n > 0) out[i++] = second_, pending_ = false;
        while (i < n) {
            const std::size_t rounds = std::min((n - i + 1) / 2, kRounds);
            alignas(16) double a[kRounds], b[kRounds], w[kRounds];
            // A rejected round is overwritten by the next: the count moves on by the test's
            // outcome, which no branch has to guess (one round in five fails it).
            for (std::size_t k = 0; k < rounds;) {
                a[k] = static_cast<double>(gen_.next()) * 4.656612873077e-10;
                b[k] = static_cast<double>(gen_.next()) * 4.656612873077e-10;
                w[k] = a[k] * a[k] + b[k] * b[k];
                k += static_cast<std::size_t>(w[k] < 1.0) & static_cast<std::size_t>(w[k] != 0.0);
            }
            // f = sqrt(ln(w) * -2 / w), over whole pairs of lanes (a last odd one repeats w).
            for (std::size_t k = 0; k < rounds; k += 2) {
                const __m128d v = k + 1 < rounds ? _mm_load_pd(w + k) : _mm_set1_pd(w[k]);
                const __m128d f = _mm_sqrt_pd(_mm_div_pd(_mm_mul_pd(ln64x2(v), _mm_set1_pd(-2.0)), v));
                if (k + 1 < rounds) _mm_store_pd(w + k, f);
                else w[k] = _mm_cvtsd_f64(f);
            }
            for (std::size_t k = 0; k < rounds; ++k) {
                out[i++] = a[k] * sd_ * w[k] + mean_;
                const double second = b[k] * sd_ * w[k] + mean_;
                if (i < n) out[i++] = second;
                else second_ = second, pending_ = true;
            }
        }
    }

private:
    static constexpr std::size_t kRounds = 128;
    NoiseGenerator& gen_;
    double mean_, sd_;
    bool pending_ = false;
    double second_ = 0;
};

// Values of the uniform noise from generator words: out * scale + mid, in 64f.
inline void uniform_values(const std::int32_t* words, double* out, std::size_t n, double scale, double mid)
{
    std::size_t i = 0;
    const __m128d vs = _mm_set1_pd(scale), vm = _mm_set1_pd(mid);
    for (; i + 2 <= n; i += 2) {
        const __m128d w = _mm_cvtepi32_pd(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(words + i)));
        _mm_storeu_pd(out + i, _mm_add_pd(_mm_mul_pd(w, vs), vm));
    }
    for (; i < n; ++i) out[i] = static_cast<double>(words[i]) * scale + mid;
}

// Integer noise beyond this magnitude saturates any 8- or 16-bit element, so values are held
// within it before they become 32-bit integers.
constexpr double kNoiseLimit = 1048576.0;

// element + value: integers add the value rounded to nearest (ties to even, the caller's
// rounding mode being set so) with saturation; 32f adds the value rounded to 32f. The policy
// leaves the alpha of AC4 pixels as it was.
template <class T> inline T add_noise(T element, double value)
{
    if constexpr (std::is_same_v<T, Kel32f>) {
        return element + static_cast<float>(value);
    } else {
        value = value > -kNoiseLimit ? value : -kNoiseLimit;
        value = value < kNoiseLimit ? value : kNoiseLimit;
        const double sum = static_cast<double>(element) + std::nearbyint(value);
        const double lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
        return static_cast<T>(sum < lo ? lo : sum > hi ? hi : sum);
    }
}

namespace noise_detail {

// Four values as rounded, limited 32-bit integers.
inline __m128i rounded4(const double* v)
{
    const __m128d lo = _mm_set1_pd(-kNoiseLimit), hi = _mm_set1_pd(kNoiseLimit);
    const __m128i a = _mm_cvtpd_epi32(_mm_min_pd(_mm_max_pd(_mm_loadu_pd(v), lo), hi));
    const __m128i b = _mm_cvtpd_epi32(_mm_min_pd(_mm_max_pd(_mm_loadu_pd(v + 2), lo), hi));
    return _mm_unpacklo_epi64(a, b);
}

}  // namespace noise_detail

template <class T, class Policy> inline void add_noise_run(T* p, const double* v, std::size_t n)
{
    using noise_detail::rounded4;
    auto* b = reinterpret_cast<Byte*>(p);
    auto load = [b](std::size_t i) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + i * sizeof(T))); };
    std::size_t i = 0;
    if constexpr (std::is_same_v<T, Kel32f>) {
        for (; i + 4 <= n; i += 4) {
            const __m128 noise = _mm_movelh_ps(_mm_cvtpd_ps(_mm_loadu_pd(v + i)), _mm_cvtpd_ps(_mm_loadu_pd(v + i + 2)));
            const __m128 old = _mm_loadu_ps(p + i);
            Policy::store(b + i * 4, Policy::merge(_mm_castps_si128(old), _mm_castps_si128(_mm_add_ps(old, noise))));
        }
    } else if constexpr (sizeof(T) == 1) {
        for (; i + 16 <= n; i += 16) {
            const __m128i old = load(i), zero = _mm_setzero_si128();
            const __m128i lo16 = _mm_unpacklo_epi8(old, zero), hi16 = _mm_unpackhi_epi8(old, zero);
            const __m128i s0 = _mm_add_epi32(_mm_unpacklo_epi16(lo16, zero), rounded4(v + i));
            const __m128i s1 = _mm_add_epi32(_mm_unpackhi_epi16(lo16, zero), rounded4(v + i + 4));
            const __m128i s2 = _mm_add_epi32(_mm_unpacklo_epi16(hi16, zero), rounded4(v + i + 8));
            const __m128i s3 = _mm_add_epi32(_mm_unpackhi_epi16(hi16, zero), rounded4(v + i + 12));
            const __m128i r = _mm_packus_epi16(_mm_packs_epi32(s0, s1), _mm_packs_epi32(s2, s3));
            Policy::store(b + i, Policy::merge(old, r));
        }
    } else {
        for (; i + 8 <= n; i += 8) {
            const __m128i old = load(i);
            __m128i s0, s1;
            if constexpr (std::is_signed_v<T>) {
                s0 = _mm_cvtepi16_epi32(old), s1 = _mm_cvtepi16_epi32(_mm_srli_si128(old, 8));
            } else {
                s0 = _mm_cvtepu16_epi32(old), s1 = _mm_cvtepu16_epi32(_mm_srli_si128(old, 8));
            }
            s0 = _mm_add_epi32(s0, rounded4(v + i)), s1 = _mm_add_epi32(s1, rounded4(v + i + 4));
            const __m128i r = std::is_signed_v<T> ? _mm_packs_epi32(s0, s1) : _mm_packus_epi32(s0, s1);
            Policy::store(b + i * 2, Policy::merge(old, r));
        }
    }
    constexpr std::size_t pixelElements = Policy::pixelBytes / sizeof(T);
    constexpr std::size_t colourElements = Policy::movedBytes / sizeof(T);
    for (; i < n; ++i)
        if (i % pixelElements < colourElements) p[i] = add_noise(p[i], v[i]);
}

}  // namespace keli::rows
