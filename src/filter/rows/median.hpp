// Row kernels of the median filters.
//
// Every kernel orders values by one total order, the order of their keys: integers are their
// own keys, and a float's key is its bit pattern with every bit but the sign flipped when the
// sign is set, compared as a signed integer. So -0.0 sorts below +0.0, a NaN with the sign set
// below -inf and one without above +inf: the median of a window is then one definite element,
// whatever the method, the mask or the lane it is computed in. The key map is its own inverse,
// so a key turns back into the very bits it came from.
//
// A kernel is called per output row segment as kernel(rows, out, n): rows[j] is the first
// element of window row j for the first output pixel, out the first output element, n the
// pixels. C1, C3, C4 and AC4 share each kernel: the tap step is the channel count, and AC4
// leaves the fourth element of every output pixel as it stood.
#pragma once

#include <smmintrin.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "filter/rows/median_networks.hpp"
#include "frame/layout.hpp"
#include "keli_types.h"
#include "simd/sse.hpp"

namespace keli::rows::median {

// Scalar element access that makes no assumption on alignment (the scratch rows sit wherever the
// caller's buffer starts).
template <class T> inline T load1(const T* p)
{
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
template <class T> inline void store1(T* p, T v) { std::memcpy(p, &v, sizeof v); }

// The keys of one element type: the scalar key K, the vector of keys, and their order.
template <class T> struct Keys;

template <class T, class K> struct IntegerKeys {
    using Key = K;
    static Key key(T v) { return Key(v); }
    static T value(Key k) { return T(k); }
    static __m128i load(const T* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
    static __m128i unkey(__m128i v) { return v; }
};

template <> struct Keys<Kel8u> : IntegerKeys<Kel8u, int> {
    static __m128i lo(__m128i a, __m128i b) { return _mm_min_epu8(a, b); }
    static __m128i hi(__m128i a, __m128i b) { return _mm_max_epu8(a, b); }
};
template <> struct Keys<Kel16u> : IntegerKeys<Kel16u, int> {
    static __m128i lo(__m128i a, __m128i b) { return _mm_min_epu16(a, b); }
    static __m128i hi(__m128i a, __m128i b) { return _mm_max_epu16(a, b); }
};
template <> struct Keys<Kel16s> : IntegerKeys<Kel16s, int> {
    static __m128i lo(__m128i a, __m128i b) { return _mm_min_epi16(a, b); }
    static __m128i hi(__m128i a, __m128i b) { return _mm_max_epi16(a, b); }
};

template <> struct Keys<Kel32f> {
    using Key = std::int32_t;
    static Key key(Kel32f v)
    {
        Key b;
        std::memcpy(&b, &v, 4);
        return b ^ ((b >> 31) & 0x7FFFFFFF);
    }
    static Kel32f value(Key k)
    {
        k ^= (k >> 31) & 0x7FFFFFFF;
        Kel32f v;
        std::memcpy(&v, &k, 4);
        return v;
    }
    static __m128i unkey(__m128i v)
    {
        return _mm_xor_si128(v, _mm_and_si128(_mm_srai_epi32(v, 31), _mm_set1_epi32(0x7FFFFFFF)));
    }
    static __m128i load(const Kel32f* p) { return unkey(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))); }
    static __m128i lo(__m128i a, __m128i b) { return _mm_min_epi32(a, b); }
    static __m128i hi(__m128i a, __m128i b) { return _mm_max_epi32(a, b); }
};

template <> struct Keys<Kel64f> {
    using Key = std::int64_t;
    static Key key(Kel64f v)
    {
        Key b;
        std::memcpy(&b, &v, 8);
        return b ^ ((b >> 63) & INT64_MAX);
    }
    static Kel64f value(Key k)
    {
        k ^= (k >> 63) & INT64_MAX;
        Kel64f v;
        std::memcpy(&v, &k, 8);
        return v;
    }
    static __m128i unkey(__m128i v)
    {
        const __m128i negative = _mm_cmpgt_epi64(_mm_setzero_si128(), v);
        return _mm_xor_si128(v, _mm_and_si128(negative, _mm_set1_epi64x(INT64_MAX)));
    }
    static __m128i load(const Kel64f* p) { return unkey(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))); }
    static __m128i lo(__m128i a, __m128i b) { return _mm_blendv_epi8(a, b, _mm_cmpgt_epi64(a, b)); }
    static __m128i hi(__m128i a, __m128i b) { return _mm_blendv_epi8(b, a, _mm_cmpgt_epi64(a, b)); }
};

// Loads of keys from rows that hold elements, or from rows already turned into keys (the scratch
// rows of the border filters, turned once when they are built rather than at every window).
template <class T, bool Turned> struct Load {
    using K = typename Keys<T>::Key;
    static constexpr bool Keyed = Turned && !std::is_integral_v<T>;  // integers are their own keys
    static __m128i many(const T* p)
    {
        if constexpr (Keyed) return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        else return Keys<T>::load(p);
    }
    static K one(const T* p)
    {
        if constexpr (Keyed) {
            K k;
            std::memcpy(&k, p, sizeof k);
            return k;
        } else {
            return Keys<T>::key(load1(p));
        }
    }
};

// Turns `count` elements into their keys in place (or back: the map is its own inverse).
template <class T> inline void to_keys(unsigned char* p, std::int64_t count)
{
    if constexpr (!std::is_integral_v<T>) {
        constexpr std::int64_t V = simd::lanes<T>;
        std::int64_t k = 0;
        for (; k + V <= count; k += V) {
            auto* q = reinterpret_cast<__m128i*>(p + k * std::int64_t(sizeof(T)));
            _mm_storeu_si128(q, Keys<T>::unkey(_mm_loadu_si128(q)));
        }
        for (; k < count; ++k) {
            unsigned char* q = p + k * std::int64_t(sizeof(T));
            const typename Keys<T>::Key key = Keys<T>::key(load1(reinterpret_cast<const T*>(q)));
            std::memcpy(q, &key, sizeof key);
        }
    }
}

// The compare-exchange of the networks, on vectors of keys and on scalar keys.
template <class T> struct VectorOrder {
    static __m128i lo(__m128i a, __m128i b) { return Keys<T>::lo(a, b); }
    static __m128i hi(__m128i a, __m128i b) { return Keys<T>::hi(a, b); }
    static void sort(__m128i& a, __m128i& b)
    {
        const __m128i t = lo(a, b);
        b = hi(a, b);
        a = t;
    }
};
template <class K> struct ScalarOrder {
    static K lo(K a, K b) { return b < a ? b : a; }
    static K hi(K a, K b) { return b < a ? a : b; }
    static void sort(K& a, K& b)
    {
        const K t = lo(a, b);
        b = hi(a, b);
        a = t;
    }
};

// Byte mask of the fourth element of each pixel in a register (AC4 stores blend it back).
template <class T> inline __m128i alpha_bytes()
{
    alignas(16) std::uint8_t m[16];
    for (int b = 0; b < 16; ++b) m[b] = (b / int(sizeof(T))) % 4 == 3 ? 0xFF : 0;
    return _mm_load_si128(reinterpret_cast<const __m128i*>(m));
}

// Runs `one(k, lanes...)` for the elements [0, count) of a row, a register at a time: `vec(k)`
// computes the keys of elements k .. k + V - 1 and `one(k)` the key of element k alone; both
// are stored with the AC4 rule. A row of at least one register ends with a register that
// overlaps the one before; it recomputes the same elements.
template <class T, bool KeepAlpha, class Vec, class One>
inline void for_row(T* out, std::int64_t count, Vec vec, One one)
{
    constexpr std::int64_t V = simd::lanes<T>;
    if (count < V) {
        for (std::int64_t k = 0; k < count; ++k)
            if (!KeepAlpha || k % 4 != 3) store1(out + k, Keys<T>::value(one(k)));
        return;
    }
    const __m128i alpha = KeepAlpha ? alpha_bytes<T>() : _mm_setzero_si128();
    for (std::int64_t k = 0;; k += V) {
        if (k > count - V) k = count - V;
        __m128i v = Keys<T>::unkey(vec(k));
        auto* p = reinterpret_cast<__m128i*>(out + k);
        if (KeepAlpha) v = _mm_blendv_epi8(v, _mm_loadu_si128(p), alpha);
        _mm_storeu_si128(p, v);
        if (k == count - V) break;
    }
}

// The compare networks of the smallest rectangles: KW x KH in {1x3, 1x5, 3x1, 5x1, 3x3, 5x5}.
template <class T, Layout L, int KW, int KH, bool Keyed = false> struct NetworkKernel {
    static constexpr int C = int(channels<L>), N = KW * KH;
    using K = typename Keys<T>::Key;

    template <class R, class Rows, class Get> static R select(const Rows& rows, Get get)
    {
        R v[N];
        for (int j = 0; j < KH; ++j)
            for (int i = 0; i < KW; ++i) v[j * KW + i] = get(rows[j] + i * C);
        using O = std::conditional_t<std::is_integral_v<R>, ScalarOrder<K>, VectorOrder<T>>;
        if constexpr (N == 3) median3<O>(v);
        else if constexpr (N == 5) median5<O>(v);
        else if constexpr (N == 9) median9<O>(v);
        else median25<O>(v);
        return v[N >> 1];
    }

    template <class Rows> void operator()(const Rows& rows, T* out, std::int64_t n) const
    {
        const T* r[KH];
        for (int j = 0; j < KH; ++j) r[j] = rows[j];
        for_row<T, has_alpha<L>>(
            out, n * C,
            [&](std::int64_t k) {
                const T* at[KH];
                for (int j = 0; j < KH; ++j) at[j] = r[j] + k;
                return select<__m128i>(at, [](const T* p) { return Load<T, Keyed>::many(p); });
            },
            [&](std::int64_t k) {
                const T* at[KH];
                for (int j = 0; j < KH; ++j) at[j] = r[j] + k;
                return select<K>(at, [](const T* p) { return Load<T, Keyed>::one(p); });
            });
    }
};

// The square networks with their columns shared: the Side x Side window of output k is Side
// columns of Side elements, and each column serves Side neighbouring windows. The columns of a
// stretch of the row are sorted once into a stack area, then each window runs the network that
// takes ascending columns (12 operations instead of 30 for 3x3, 168 instead of 202 for 5x5).
template <class T, Layout L, int Side, bool Keyed = false> struct SortedColumnsKernel {
    static constexpr int C = int(channels<L>), N = Side * Side;
    static constexpr std::int64_t V = simd::lanes<T>, Stretch = 512, Reach = (Side - 1) * C;

    template <class Rows> void operator()(const Rows& rows, T* out, std::int64_t n) const
    {
        const std::int64_t count = n * C;
        if (count < V) return NetworkKernel<T, L, Side, Side, Keyed>{}(rows, out, n);
        alignas(16) unsigned char sorted[Side][(Stretch + 16) * sizeof(T)];
        const T* r[Side];
        for (int j = 0; j < Side; ++j) r[j] = rows[j];
        const __m128i alpha = has_alpha<L> ? alpha_bytes<T>() : _mm_setzero_si128();
        for (std::int64_t k0 = 0; k0 < count; k0 += Stretch) {
            // A last stretch shorter than a register starts earlier and recomputes a few outputs.
            const std::int64_t start = std::min(k0, count - V), m = std::min(Stretch, count - start), span = m + Reach;
            for (std::int64_t e = 0;; e += V) {
                if (e > span - V) e = span - V;
                __m128i c[Side];
                for (int j = 0; j < Side; ++j) c[j] = Load<T, Keyed>::many(r[j] + start + e);
                if constexpr (Side == 3) sort3<VectorOrder<T>>(c);
                else sort5<VectorOrder<T>>(c);
                for (int j = 0; j < Side; ++j) _mm_storeu_si128(reinterpret_cast<__m128i*>(sorted[j] + e * sizeof(T)), c[j]);
                if (e == span - V) break;
            }
            for (std::int64_t k = 0;; k += V) {
                if (k > m - V) k = m - V;
                __m128i v[N];
                for (int j = 0; j < Side; ++j)
                    for (int i = 0; i < Side; ++i)
                        v[j * Side + i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(sorted[j] + (k + i * C) * sizeof(T)));
                if constexpr (Side == 3) median9_sorted_columns<VectorOrder<T>>(v);
                else median25_sorted_columns<VectorOrder<T>>(v);
                __m128i res = Keys<T>::unkey(v[N >> 1]);
                auto* p = reinterpret_cast<__m128i*>(out + start + k);
                if (has_alpha<L>) res = _mm_blendv_epi8(res, _mm_loadu_si128(p), alpha);
                _mm_storeu_si128(p, res);
                if (k == m - V) break;
            }
        }
    }
};

// The general 8u rectangle: one 256-bin histogram per channel slides along the row. Stepping a
// pixel takes the leaving column out and puts the entering one in; the median of the previous
// pixel is kept with its count of smaller elements, so it moves up or down from where it was
// instead of scanning from zero.
template <Layout L> struct HistogramKernel {
    static constexpr int C = int(channels<L>), Used = has_alpha<L> ? 3 : C;
    int kw, kh;

    template <class Rows> void operator()(const Rows& rows, Kel8u* out, std::int64_t n) const
    {
        const std::int64_t half = (std::int64_t(kw) * kh) >> 1;
        for (int c = 0; c < Used; ++c) {
            std::uint32_t hist[256] = {};
            for (int j = 0; j < kh; ++j) {
                const Kel8u* p = rows[j] + c;
                for (int i = 0; i < kw; ++i) ++hist[p[i * C]];
            }
            int med = 0;
            std::int64_t below = 0;  // elements smaller than med
            for (; below + hist[med] <= half; ++med) below += hist[med];
            out[c] = Kel8u(med);
            for (std::int64_t x = 1; x < n; ++x) {
                const std::int64_t gone = (x - 1) * C + c, come = (x + kw - 1) * C + c;
                for (int j = 0; j < kh; ++j) {
                    const Kel8u* p = rows[j];
                    const int a = p[gone], b = p[come];
                    --hist[a], ++hist[b];
                    below += (b < med) - (a < med);
                }
                while (below > half) below -= hist[--med];
                while (below + hist[med] <= half) below += hist[med++];
                out[x * C + c] = Kel8u(med);
            }
        }
    }
};

// The general rectangle of the wider types: each window's keys are copied to the work area and
// the middle one selected. `work` holds kw * kh keys.
template <class T, Layout L, bool Keyed = false> struct SelectKernel {
    static constexpr int C = int(channels<L>), Used = has_alpha<L> ? 3 : C;
    using K = typename Keys<T>::Key;
    int kw, kh;
    K* work;

    template <class Rows> void operator()(const Rows& rows, T* out, std::int64_t n) const
    {
        const std::int64_t N = std::int64_t(kw) * kh;
        for (std::int64_t x = 0; x < n; ++x)
            for (int c = 0; c < Used; ++c) {
                K* w = work;
                for (int j = 0; j < kh; ++j) {
                    const T* p = rows[j] + x * C + c;
                    for (int i = 0; i < kw; ++i) *w++ = Load<T, Keyed>::one(p + i * C);
                }
                std::nth_element(work, work + (N >> 1), work + N);
                store1(out + x * C + c, Keys<T>::value(work[N >> 1]));
            }
    }
};

// The cross: the row arm and the column arm through the centre, Reach pixels each way (five
// elements for a reach of one, nine for two). `centre` is the row of the first output pixel and
// `step` the source row step in bytes.
template <class T, Layout L, int Reach> struct CrossKernel {
    static constexpr int C = int(channels<L>), N = 4 * Reach + 1;
    using K = typename Keys<T>::Key;

    template <class R, class Get> static R select(const T* p, std::int64_t step, Get get)
    {
        const auto row = [&](int dy) { return reinterpret_cast<const T*>(reinterpret_cast<const unsigned char*>(p) + dy * step); };
        R v[N];
        int m = 0;
        for (int i = -Reach; i <= Reach; ++i) v[m++] = get(p + i * C);
        for (int d = 1; d <= Reach; ++d) v[m++] = get(row(-d)), v[m++] = get(row(d));
        using O = std::conditional_t<std::is_integral_v<R>, ScalarOrder<K>, VectorOrder<T>>;
        if constexpr (N == 5) median5<O>(v);
        else median9<O>(v);
        return v[N >> 1];
    }

    void operator()(const T* centre, std::int64_t step, T* out, std::int64_t n) const
    {
        for_row<T, has_alpha<L>>(
            out, n * C,
            [&](std::int64_t k) { return select<__m128i>(centre + k, step, [](const T* p) { return Keys<T>::load(p); }); },
            [&](std::int64_t k) {
                return select<K>(centre + k, step, [](const T* p) { return Keys<T>::key(load1(p)); });
            });
    }
};

// The 3x3 median whose centre counts `weight` times (1, 3, 5 or 7; weight = 2 * Extra + 1). With
// the eight neighbours sorted as a0 .. a7, the middle of the 8 + weight elements is the centre
// clamped to [a(3 - Extra), a(4 + Extra)]: below a(3 - Extra) the centre's copies and the four
// minus Extra smallest neighbours fill the lower half, above a(4 + Extra) likewise the upper.
template <int Extra> struct WeightedCentreKernel {
    template <class R, class O, class Get> static R select(const Kel8u* p, std::int64_t step, Get get)
    {
        const Kel8u* up = p - step;
        const Kel8u* down = p + step;
        R v[8] = {get(up - 1), get(up), get(up + 1), get(p - 1), get(p + 1), get(down - 1), get(down), get(down + 1)};
        if constexpr (Extra == 0) order8_0<O>(v);
        else if constexpr (Extra == 1) order8_1<O>(v);
        else if constexpr (Extra == 2) order8_2<O>(v);
        else order8_3<O>(v);
        return O::hi(v[3 - Extra], O::lo(get(p), v[4 + Extra]));
    }

    void operator()(const Kel8u* centre, std::int64_t step, Kel8u* out, std::int64_t n) const
    {
        for_row<Kel8u, false>(
            out, n,
            [&](std::int64_t k) {
                return select<__m128i, VectorOrder<Kel8u>>(centre + k, step, [](const Kel8u* p) { return Keys<Kel8u>::load(p); });
            },
            [&](std::int64_t k) { return select<int, ScalarOrder<int>>(centre + k, step, [](const Kel8u* p) { return int(*p); }); });
    }
};

// The colour median: of the window's pixels, the one whose sum of distances to all of them is
// least, the distance being the sum of the absolute differences of the three colour channels.
// Sums run over the window in row-major order (exact integers for 8u and 16s, f32 for 32f, each
// distance added red to blue); the first pixel in row-major order wins a tie. Four candidates
// share a register, each lane adding its own distances in that same order, so the lanes give
// the scalar sums bit for bit.
template <class T, Layout L, int Side> struct ColourKernel {
    static constexpr int C = int(channels<L>), N = Side * Side, Groups = (N + 3) / 4;
    using Acc = std::conditional_t<std::is_same_v<T, Kel32f>, float, std::int32_t>;

    static __m128 vabs(__m128 v) { return _mm_andnot_ps(_mm_set1_ps(-0.0f), v); }
    static __m128i vabs(__m128i v) { return _mm_abs_epi32(v); }
    static __m128 vsub(__m128 a, __m128 b) { return _mm_sub_ps(a, b); }
    static __m128i vsub(__m128i a, __m128i b) { return _mm_sub_epi32(a, b); }
    static __m128 vadd(__m128 a, __m128 b) { return _mm_add_ps(a, b); }
    static __m128i vadd(__m128i a, __m128i b) { return _mm_add_epi32(a, b); }
    static __m128 vload(const float* p) { return _mm_loadu_ps(p); }
    static __m128i vload(const std::int32_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
    static __m128 vsplat(float v) { return _mm_set1_ps(v); }
    static __m128i vsplat(std::int32_t v) { return _mm_set1_epi32(v); }
    static void vstore(float* p, __m128 v) { _mm_storeu_ps(p, v); }
    static void vstore(std::int32_t* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

    // `top` is the window's top-left pixel for the first output pixel.
    void operator()(const T* top, std::int64_t step, T* out, std::int64_t n) const
    {
        alignas(16) Acc ch[3][Groups * 4] = {};
        alignas(16) Acc sum[Groups * 4];
        for (std::int64_t x = 0; x < n; ++x) {
            const T* first = top + x * C;
            for (int j = 0; j < Side; ++j) {
                const T* p = reinterpret_cast<const T*>(reinterpret_cast<const unsigned char*>(first) + j * step);
                for (int i = 0; i < Side; ++i)
                    for (int c = 0; c < 3; ++c) ch[c][j * Side + i] = Acc(load1(p + i * C + c));
            }
            for (int g = 0; g < Groups; ++g) {
                const auto r = vload(ch[0] + 4 * g), gr = vload(ch[1] + 4 * g), b = vload(ch[2] + 4 * g);
                auto s = vsplat(Acc(0));
                for (int m = 0; m < N; ++m) {
                    const auto d = vadd(vadd(vabs(vsub(r, vsplat(ch[0][m]))), vabs(vsub(gr, vsplat(ch[1][m])))),
                                        vabs(vsub(b, vsplat(ch[2][m]))));
                    s = vadd(s, d);
                }
                vstore(sum + 4 * g, s);
            }
            int best = 0;
            for (int m = 1; m < N; ++m)
                if (sum[m] < sum[best]) best = m;
            const T* win = reinterpret_cast<const T*>(reinterpret_cast<const unsigned char*>(first) + (best / Side) * step) +
                           (best % Side) * C;
            for (int c = 0; c < 3; ++c) store1(out + x * C + c, load1(win + c));
        }
    }
};

}  // namespace keli::rows::median
