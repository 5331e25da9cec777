// Lookup row kernels. Integer lookups and palettes are one table load per element: the
// index is the element, offset and masked, and the entry is copied out; SSE4.2 has no gather,
// so these are scalar loops shaped for the load ports. 32f lookups find the
// segment of each element by a walk over the levels and evaluate its curve.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "simd/sse.hpp"
#include "stats/lut_spec.hpp"

namespace keli::lut::rows {

// ---- integer lookups ---------------------------------------------------------------------------

// How an element finds its entry: index = (element as unsigned + offset) & mask. A lookup
// table of 16s uses offset 32768 so that -32768 reads entry 0; a palette uses the mask of its
// bit size.
struct Index {
    std::uint32_t offset, mask;
    template <class S> std::uint32_t operator()(S v) const
    {
        using U = std::make_unsigned_t<S>;
        return (static_cast<std::uint32_t>(static_cast<U>(v)) + offset) & mask;
    }
};

// One row: `width` pixels of `Mem` elements in memory, of which the first `Curves` are looked
// up in tables[c]; an entry is `Wide` destination elements copied as a unit (three bytes in
// the 24u palettes). Alpha elements of AC4 are neither read for output nor written.
template <class S, class D, int Wide, int Mem, int Curves>
inline void lookup_scalar(const S* s, D* d, std::size_t from, std::size_t to, const D* const* tables, Index idx)
{
    for (std::size_t p = from; p < to; ++p)
        for (int c = 0; c < Curves; ++c) {
            const D* entry = tables[c] + Wide * std::size_t(idx(s[Mem * p + c]));
            D* out = d + Wide * (Mem * p + c);
            if constexpr (Wide == 1) *out = *entry;
            else std::memcpy(out, entry, Wide * sizeof(D));
        }
}

// 8u to 8u, C1, C3 and C4: sixteen pixels a round, fully unrolled so that the channel of every
// byte, and with it its table, is a constant. There is no gather below AVX2: one table load per
// element is the whole cost, and eight results are loaded before they are stored so that the
// loads of a group never wait on its stores (the bytes may alias the tables).
//
// A mask of all eight bits is left out of the loop altogether.
template <int C> struct Lookup8u {
    static void run(const Kel8u* s, Kel8u* d, std::size_t width, const Kel8u* const* tables, Index idx)
    {
        if (idx.mask == 0xFF) run_masked<0xFF>(s, d, width, tables, idx);
        else run_masked<0>(s, d, width, tables, idx);
    }

private:
    // Mask 0xFF fixes the mask at compile time; 0 takes it from `idx`.
    template <std::uint32_t Fixed>
    static void run_masked(const Kel8u* s, Kel8u* d, std::size_t width, const Kel8u* const* tables, Index idx)
    {
        const Kel8u* t[C];
        for (int c = 0; c < C; ++c) t[c] = tables[c];
        const std::uint32_t mask = Fixed ? Fixed : idx.mask;
        std::size_t p = 0;
        for (; p + 16 <= width; p += 16) round(s + C * p, d + C * p, t, mask, std::make_index_sequence<2 * C>());
        lookup_scalar<Kel8u, Kel8u, 1, C, C>(s, d, p, width, tables, idx);
    }

    template <std::size_t... G>
    static void round(const Kel8u* in, Kel8u* out, const Kel8u* const* t, std::uint32_t mask, std::index_sequence<G...>)
    {
        (group<8 * G>(in, out, t, mask, std::make_index_sequence<8>()), ...);
    }

    template <std::size_t At, std::size_t... B>
    static void group(const Kel8u* in, Kel8u* out, const Kel8u* const* t, std::uint32_t mask, std::index_sequence<B...>)
    {
        const Kel8u v[8] = {t[(At + B) % C][in[At + B] & mask]...};
        ((out[At + B] = v[B]), ...);
    }
};

// ---- 32f curves --------------------------------------------------------------------------------

// One curve of a 32f spec. Segment i holds levels[i] <= v < levels[i + 1]; the first such i
// in level order is the one that counts, and an element in none keeps its value.
struct Curve32f {
    const float* L;
    const float* V;
    const double* k;
    int n;
    Kind kind;

    // Level whose value the cubic of segment i is built around.
    int base(int i) const
    {
        const int j = i - 1;
        return (j < 0 ? 0 : j > n - 4 ? n - 4 : j) + 1;
    }

    float eval(float v, int i) const
    {
        const double x = v;
        if (kind == Kind::Nearest) return V[i];
        if (kind == Kind::Linear) return static_cast<float>((x - double(L[i])) * k[i] + double(V[i]));
        const double* q = k + kCubicCoeffs * i;
        if (q[0] != q[0]) return static_cast<float>((x - double(L[i])) * q[2] + double(V[i]));
        const int b = base(i);
        const double t = x - double(L[b]);
        return static_cast<float>(((q[0] * t + q[1]) * t * t + q[2] * t) + double(V[b]));
    }

    // The same for two doubles widened from floats; identical operations, so identical bits.
    __m128d eval(__m128d x, int i) const
    {
        if (kind == Kind::Linear)
            return _mm_add_pd(_mm_mul_pd(_mm_sub_pd(x, _mm_set1_pd(L[i])), _mm_set1_pd(k[i])), _mm_set1_pd(V[i]));
        const double* q = k + kCubicCoeffs * i;
        if (q[0] != q[0])
            return _mm_add_pd(_mm_mul_pd(_mm_sub_pd(x, _mm_set1_pd(L[i])), _mm_set1_pd(q[2])), _mm_set1_pd(V[i]));
        const int b = base(i);
        const __m128d t = _mm_sub_pd(x, _mm_set1_pd(L[b]));
        __m128d y = _mm_add_pd(_mm_mul_pd(_mm_set1_pd(q[0]), t), _mm_set1_pd(q[1]));
        y = _mm_mul_pd(_mm_mul_pd(y, t), t);
        y = _mm_add_pd(y, _mm_mul_pd(_mm_set1_pd(q[2]), t));
        return _mm_add_pd(y, _mm_set1_pd(V[b]));
    }

    __m128 eval(__m128 v, int i) const
    {
        if (kind == Kind::Nearest) return _mm_set1_ps(V[i]);
        const __m128 lo = _mm_cvtpd_ps(eval(_mm_cvtps_pd(v), i));
        const __m128 hi = _mm_cvtpd_ps(eval(_mm_cvtps_pd(_mm_movehl_ps(v, v)), i));
        return _mm_movelh_ps(lo, hi);
    }

    float apply(float v) const
    {
        for (int i = 0; i + 1 < n; ++i)
            if (v >= L[i] && L[i + 1] > v) return eval(v, i);
        return v;
    }

    // Eight elements walk the segments together; each lane takes the first segment that holds
    // it, and the walk stops once every lane has one.
    void apply8(const float* s, float* d) const
    {
        __m128 v[2] = {_mm_loadu_ps(s), _mm_loadu_ps(s + 4)};
        __m128 out[2] = {v[0], v[1]};
        __m128 open[2] = {_mm_castsi128_ps(_mm_set1_epi32(-1)), _mm_castsi128_ps(_mm_set1_epi32(-1))};
        for (int i = 0; i + 1 < n; ++i) {
            const __m128 lo = _mm_set1_ps(L[i]), hi = _mm_set1_ps(L[i + 1]);
            int left = 0;
            for (int h = 0; h < 2; ++h) {
                const __m128 m = _mm_and_ps(open[h], _mm_and_ps(_mm_cmpge_ps(v[h], lo), _mm_cmpgt_ps(hi, v[h])));
                if (_mm_movemask_ps(m)) {
                    out[h] = _mm_blendv_ps(out[h], eval(v[h], i), m);
                    open[h] = _mm_andnot_ps(m, open[h]);
                }
                left |= _mm_movemask_ps(open[h]);
            }
            if (!left) break;
        }
        _mm_storeu_ps(d, out[0]);
        _mm_storeu_ps(d + 4, out[1]);
    }

    // A run of elements; the source and destination may be the same memory.
    void run(const float* s, float* d, std::size_t n8) const
    {
        std::size_t i = 0;
        for (; i + 8 <= n8; i += 8) apply8(s + i, d + i);
        for (; i < n8; ++i) d[i] = apply(s[i]);
    }
};

}  // namespace keli::lut::rows
