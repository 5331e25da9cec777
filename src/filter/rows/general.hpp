// Row kernels of the general kernel filter: each computes one row segment of a correlation with
// the caller's kernel over kh source rows (see filter/edge_driver.hpp for the row contract).
//
//   IntegerRows  8u and 16s data, 16-bit kernel: exact 32-bit sums by 16-bit multiply-add over
//                pixel pairs, then the divisor and the rounding mode (IntegerResult).
//   FloatRows    8u, 16s, 16u, 32f data, f32 kernel: one f32 accumulator per output, products
//                added rows top to bottom and left to right within a row; integer outputs are
//                saturated in f32 and rounded (FloatResult).
//                64f data and kernel take the same order in f64.
//
// The vector body and the scalar tail of a kernel compute the same function, so a segment's
// split between them never shows: in the integer kernels every step is exact, and the float
// kernels add the same products in the same order. The caller keeps the SSE rounding control
// at nearest for the whole call.
#pragma once

#include <nmmintrin.h>

#include <cstdint>
#include <limits>
#include <type_traits>

#include "keli_types.h"

namespace keli::filter::rows {

template <class T> constexpr std::int32_t lowest = std::numeric_limits<T>::min();
template <class T> constexpr std::int32_t highest = std::numeric_limits<T>::max();

template <class T> inline T saturate(std::int64_t v)
{
    return static_cast<T>(v < lowest<T> ? lowest<T> : v > highest<T> ? highest<T> : v);
}

// ---- From an integer sum to the output: the dividend, then the exact rounded quotient --------

// The dividend is the sum taken through f32 with the offset (integers past 2^24 lose their low
// bits there), truncated; it stays inside 32 bits, where every output has long saturated.
constexpr float kDividendLimit = 2147483520.0f;  // the largest f32 below 2^31

struct IntegerResult {
    std::int32_t divisor;
    std::uint32_t kind;   // 0: no division, 1: a power of two, 2: any other divisor
    float scale;          // 2^-shift for kind 1
    float offset;
    int mode;             // KelRoundMode
    bool plainSum;        // no offset and every sum below 2^24: the dividend is the sum

    std::int32_t dividend(std::int32_t sum) const
    {
        float f = static_cast<float>(sum) + offset;
        f = f < -kDividendLimit ? -kDividendLimit : f > kDividendLimit ? kDividendLimit : f;
        return static_cast<std::int32_t>(f);
    }

    // dividend / divisor, exactly, rounded by the mode: zero truncates, near goes to the nearest
    // with ties to even, financial to the nearest with ties away from zero, for either sign.
    std::int64_t quotient(std::int32_t n) const
    {
        const std::int64_t a = n < 0 ? -std::int64_t(n) : n, d = divisor < 0 ? -std::int64_t(divisor) : divisor;
        std::int64_t u = a / d;
        const std::int64_t twice = 2 * (a - u * d);
        if (mode == kelRndFinancial) u += twice >= d;
        else if (mode == kelRndNear) u += twice > d || (twice == d && (u & 1));
        return (n < 0) != (divisor < 0) ? -u : u;
    }

    template <class T> T scalar(std::int32_t sum) const { return saturate<T>(quotient(dividend(sum))); }
};

// The vector form of IntegerResult for 4 sums. Kind 1 scales in f32, which is exact for a
// dividend that came out of f32; kind 2 estimates the quotient of the magnitudes in f32 and
// corrects it against the dividend with integer products, then rounds from the remainder.
template <class T> class IntegerResultVector {
public:
    // Quotients whose magnitude passes `kLimit` saturate whatever their exact value.
    static constexpr std::int32_t kLimit = (highest<T> > -lowest<T> ? highest<T> : -lowest<T>) + 1;

    // Whether a divisor is small enough for the estimate's products to stay inside 32 bits.
    static bool fits(std::int32_t divisor)
    {
        const std::int64_t d = divisor < 0 ? -std::int64_t(divisor) : divisor;
        return (std::int64_t(kLimit) + 3) * d < (std::int64_t(1) << 31);
    }

    explicit IntegerResultVector(const IntegerResult& r)
        : r_(r), offset_(_mm_set1_ps(r.offset)), scale_(_mm_set1_ps(r.scale)),
          reciprocal_(_mm_set1_ps(1.0f / static_cast<float>(r.divisor < 0 ? -std::int64_t(r.divisor) : r.divisor))),
          d_(_mm_set1_epi32(r.divisor < 0 ? -r.divisor : r.divisor)),
          dLess1_(_mm_sub_epi32(d_, _mm_set1_epi32(1)))
    {
    }

    __m128i operator()(__m128i sum) const
    {
        __m128i n = sum;
        if (!r_.plainSum) {
            __m128 f = _mm_add_ps(_mm_cvtepi32_ps(sum), offset_);
            f = _mm_max_ps(_mm_min_ps(f, _mm_set1_ps(kDividendLimit)), _mm_set1_ps(-kDividendLimit));
            n = _mm_cvttps_epi32(f);
        }
        if (r_.kind == 0) return n;
        if (r_.kind == 1) return scaled(n);
        return divided(n);
    }

private:
    __m128i scaled(__m128i n) const
    {
        const __m128 z = _mm_mul_ps(_mm_cvtepi32_ps(n), scale_);
        if (r_.mode == kelRndNear) return _mm_cvtps_epi32(z);
        __m128i t = _mm_cvttps_epi32(z);
        if (r_.mode == kelRndZero) return t;
        const __m128 frac = _mm_sub_ps(z, _mm_cvtepi32_ps(t));
        t = _mm_sub_epi32(t, _mm_castps_si128(_mm_cmpge_ps(frac, _mm_set1_ps(0.5f))));
        return _mm_add_epi32(t, _mm_castps_si128(_mm_cmple_ps(frac, _mm_set1_ps(-0.5f))));
    }

    __m128i divided(__m128i n) const
    {
        const __m128i a = _mm_abs_epi32(n);
        const __m128 estimate = _mm_min_ps(_mm_mul_ps(_mm_cvtepi32_ps(a), reciprocal_), _mm_set1_ps(float(kLimit)));
        __m128i u = _mm_cvttps_epi32(estimate);
        __m128i r = _mm_sub_epi32(a, _mm_mullo_epi32(u, d_));
        // The estimate is off by at most one either way.
        const __m128i over = _mm_cmplt_epi32(r, _mm_setzero_si128());
        u = _mm_add_epi32(u, over);
        r = _mm_add_epi32(r, _mm_and_si128(over, d_));
        const __m128i under = _mm_cmpgt_epi32(r, dLess1_);
        u = _mm_sub_epi32(u, under);
        r = _mm_sub_epi32(r, _mm_and_si128(under, d_));
        const __m128i twice = _mm_add_epi32(r, r);
        if (r_.mode == kelRndFinancial) {
            u = _mm_sub_epi32(u, _mm_cmpgt_epi32(twice, dLess1_));
        } else if (r_.mode == kelRndNear) {
            const __m128i odd = _mm_cmpeq_epi32(_mm_and_si128(u, _mm_set1_epi32(1)), _mm_set1_epi32(1));
            const __m128i up = _mm_or_si128(_mm_cmpgt_epi32(twice, d_), _mm_and_si128(_mm_cmpeq_epi32(twice, d_), odd));
            u = _mm_sub_epi32(u, up);
        }
        const __m128i q = _mm_sign_epi32(u, n);
        return r_.divisor < 0 ? _mm_sub_epi32(_mm_setzero_si128(), q) : q;
    }

    IntegerResult r_;
    __m128 offset_, scale_, reciprocal_;
    __m128i d_, dLess1_;
};

// ---- Integer kernels --------------------------------------------------------------------------

// `pairs` holds, per kernel row, ceil(kw / 2) registers of (k[i], k[i + 1]) four times over (an
// odd last coefficient pairs with 0); `last` is the last entry of the reversed kernel, so that
// walking back from it meets the coefficients in the caller's order. The
// vector body needs pair products that fit 32 bits, which a coefficient of -32768 (or 32767
// with 16s data) could break: `vector` is false then.
template <class T> struct IntegerRows {
    int kw, kh, C;
    const Kel16s* pairs;
    const Kel16s* last;
    IntegerResult result;
    bool vector;

    void operator()(const T* const* rows, T* out, std::int64_t n) const
    {
        const std::int64_t m = n * C;
        constexpr std::int64_t B = std::is_same_v<T, Kel8u> ? 16 : 8;
        if (!vector || m < B) {
            for (std::int64_t x = 0; x < m; ++x) out[x] = result.scalar<T>(sum(rows, x));
            return;
        }
        const IntegerResultVector<T> finish(result);
        for (std::int64_t x = 0; x + B <= m; x += B) block(rows, out + x, x, finish);
        // The last block overlaps the one before: it recomputes those outputs from the same
        // rows, which are never the destination, so they come out the same.
        if (m % B) block(rows, out + m - B, m - B, finish);
    }

private:
    // Exact modulo 2^32, as the vector sums are.
    std::int32_t sum(const T* const* rows, std::int64_t x) const
    {
        std::uint32_t s = 0;
        for (int j = 0; j < kh; ++j)
            for (int i = 0; i < kw; ++i)
                s += std::uint32_t(std::int32_t(last[-(j * kw + i)]) * std::int32_t(rows[j][x + i * C]));
        return static_cast<std::int32_t>(s);
    }

    void block(const T* const* rows, T* out, std::int64_t x, const IntegerResultVector<T>& finish) const
    {
        const int perRow = (kw + 1) / 2;
        const __m128i zero = _mm_setzero_si128();
        const __m128i* k = reinterpret_cast<const __m128i*>(pairs);
        if constexpr (std::is_same_v<T, Kel8u>) {
            __m128i s0 = zero, s1 = zero, s2 = zero, s3 = zero;
            for (int j = 0; j < kh; ++j) {
                const T* r = rows[j] + x;
                for (int p = 0; p < perRow; ++p, ++k) {
                    const __m128i kk = _mm_load_si128(k);
                    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(r + 2 * p * C));
                    const __m128i b = 2 * p + 1 < kw ? _mm_loadu_si128(reinterpret_cast<const __m128i*>(r + (2 * p + 1) * C)) : zero;
                    const __m128i lo = _mm_unpacklo_epi8(a, b), hi = _mm_unpackhi_epi8(a, b);
                    s0 = _mm_add_epi32(s0, _mm_madd_epi16(_mm_unpacklo_epi8(lo, zero), kk));
                    s1 = _mm_add_epi32(s1, _mm_madd_epi16(_mm_unpackhi_epi8(lo, zero), kk));
                    s2 = _mm_add_epi32(s2, _mm_madd_epi16(_mm_unpacklo_epi8(hi, zero), kk));
                    s3 = _mm_add_epi32(s3, _mm_madd_epi16(_mm_unpackhi_epi8(hi, zero), kk));
                }
            }
            const __m128i lo = _mm_packs_epi32(finish(s0), finish(s1)), hi = _mm_packs_epi32(finish(s2), finish(s3));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(lo, hi));
        } else {
            __m128i s0 = zero, s1 = zero;
            for (int j = 0; j < kh; ++j) {
                const T* r = rows[j] + x;
                for (int p = 0; p < perRow; ++p, ++k) {
                    const __m128i kk = _mm_load_si128(k);
                    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(r + 2 * p * C));
                    const __m128i b = 2 * p + 1 < kw ? _mm_loadu_si128(reinterpret_cast<const __m128i*>(r + (2 * p + 1) * C)) : zero;
                    s0 = _mm_add_epi32(s0, _mm_madd_epi16(_mm_unpacklo_epi16(a, b), kk));
                    s1 = _mm_add_epi32(s1, _mm_madd_epi16(_mm_unpackhi_epi16(a, b), kk));
                }
            }
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_packs_epi32(finish(s0), finish(s1)));
        }
    }
};

// ---- Float kernels ------------------------------------------------------------------------------

// f32 sum to an integer output: the offset added, saturated in f32 against the type's limits
// (compare-and-select as the vector min and max do it), then rounded by the mode.
struct FloatResult {
    float offset;
    int mode;

    template <class T> T scalar(float s) const
    {
        float x = s + offset;
        const float lo = float(lowest<T>), hi = float(highest<T>);
        x = x > lo ? x : lo;
        x = x < hi ? x : hi;
        const float t = static_cast<float>(static_cast<std::int32_t>(x));
        const float frac = x - t;
        std::int32_t q = static_cast<std::int32_t>(t);
        if (mode == kelRndFinancial) q += (frac >= 0.5f) - (frac <= -0.5f);
        else if (mode == kelRndNear) {
            const bool odd = q & 1;
            q += (frac > 0.5f || (frac == 0.5f && odd)) - (frac < -0.5f || (frac == -0.5f && odd));
        }
        return static_cast<T>(q);
    }

    template <class T> __m128i vector(__m128 s) const
    {
        __m128 x = _mm_add_ps(s, _mm_set1_ps(offset));
        x = _mm_max_ps(x, _mm_set1_ps(float(lowest<T>)));
        x = _mm_min_ps(x, _mm_set1_ps(float(highest<T>)));
        if (mode == kelRndNear) return _mm_cvtps_epi32(x);
        __m128i t = _mm_cvttps_epi32(x);
        if (mode == kelRndZero) return t;
        const __m128 frac = _mm_sub_ps(x, _mm_cvtepi32_ps(t));
        t = _mm_sub_epi32(t, _mm_castps_si128(_mm_cmpge_ps(frac, _mm_set1_ps(0.5f))));
        return _mm_add_epi32(t, _mm_castps_si128(_mm_cmple_ps(frac, _mm_set1_ps(-0.5f))));
    }
};

// One register of T widened to the accumulator: four elements as f32, or two f64.
template <class T> inline auto load_wide(const T* p)
{
    if constexpr (std::is_same_v<T, Kel64f>) {
        return _mm_loadu_pd(p);
    } else if constexpr (std::is_same_v<T, Kel32f>) {
        return _mm_loadu_ps(p);
    } else if constexpr (std::is_same_v<T, Kel8u>) {
        std::int32_t v;
        __builtin_memcpy(&v, p, 4);
        return _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_cvtsi32_si128(v)));
    } else {
        const __m128i v = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
        return _mm_cvtepi32_ps(std::is_same_v<T, Kel16s> ? _mm_cvtepi16_epi32(v) : _mm_cvtepu16_epi32(v));
    }
}

inline __m128 splat(float k) { return _mm_set1_ps(k); }
inline __m128d splat(double k) { return _mm_set1_pd(k); }
inline __m128 mul(__m128 a, __m128 b) { return _mm_mul_ps(a, b); }
inline __m128d mul(__m128d a, __m128d b) { return _mm_mul_pd(a, b); }
inline __m128 add(__m128 a, __m128 b) { return _mm_add_ps(a, b); }
inline __m128d add(__m128d a, __m128d b) { return _mm_add_pd(a, b); }

// The float kernels: f32 sums for 8u, 16s, 16u and 32f data, f64 sums for 64f.
template <class T> struct FloatRows {
    using Acc = std::conditional_t<std::is_same_v<T, Kel64f>, double, float>;
    static constexpr std::int64_t L = 16 / sizeof(Acc);  // outputs a register holds

    int kw, kh, C;
    const Acc* last;  // the reversed kernel's last entry: walking back meets the window's order
    FloatResult result;

    void operator()(const T* const* rows, T* out, std::int64_t n) const
    {
        const std::int64_t m = n * C;
        std::int64_t x = 0;
        // Eight accumulators keep two additions in flight each cycle despite their latency. The
        // last block overlaps the one before and recomputes its outputs from the same rows.
        if (m >= 8 * L) {
            for (; x + 8 * L <= m; x += 8 * L) block<8>(rows, out + x, x);
            if (x < m) block<8>(rows, out + m - 8 * L, m - 8 * L);
            return;
        }
        for (; x + L <= m; x += L) block<1>(rows, out + x, x);
        if (x < m && m >= L) block<1>(rows, out + m - L, m - L);
        else
            for (; x < m; ++x) {
                Acc s = last[0] * Acc(rows[0][x]);
                for (int j = 0; j < kh; ++j)
                    for (int i = j == 0; i < kw; ++i) s = s + last[-(j * kw + i)] * Acc(rows[j][x + i * C]);
                out[x] = finish(s);
            }
    }

private:
    T finish(Acc s) const
    {
        if constexpr (std::is_floating_point_v<T>) return s;
        else return result.scalar<T>(s);
    }

    template <int V> void block(const T* const* rows, T* out, std::int64_t x) const
    {
        decltype(load_wide(out)) s[V];
        const Acc* k = last;
        {
            const auto c = splat(*k--);
            for (int v = 0; v < V; ++v) s[v] = mul(c, load_wide(rows[0] + x + L * v));
        }
        for (int j = 0; j < kh; ++j) {
            const T* r = rows[j] + x;
            for (int i = j == 0; i < kw; ++i) {
                const auto c = splat(*k--);
                const T* p = r + i * C;
                for (int v = 0; v < V; ++v) s[v] = add(s[v], mul(c, load_wide(p + L * v)));
            }
        }
        for (int v = 0; v < V; ++v) store(out + L * v, s[v]);
    }

    template <class R> void store(T* out, R s) const
    {
        if constexpr (std::is_same_v<T, Kel64f>) {
            _mm_storeu_pd(out, s);
        } else if constexpr (std::is_same_v<T, Kel32f>) {
            _mm_storeu_ps(out, s);
        } else {
            const __m128i q = result.vector<T>(s);
            if constexpr (std::is_same_v<T, Kel8u>) {
                const std::int32_t v = _mm_cvtsi128_si32(_mm_packus_epi16(_mm_packs_epi32(q, q), q));
                __builtin_memcpy(out, &v, 4);
            } else {
                const __m128i p = std::is_same_v<T, Kel16s> ? _mm_packs_epi32(q, q) : _mm_packus_epi32(q, q);
                _mm_storel_epi64(reinterpret_cast<__m128i*>(out), p);
            }
        }
    }
};

}  // namespace keli::filter::rows
