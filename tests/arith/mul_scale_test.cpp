// keliMulScale, keliMulCScale: every member against the truncated quotient of the exact product
// by the largest value, over a geometry sweep (every head and tail length, offsets, padded rows,
// in place, guard bytes, untouched alpha); every 8u pair and the 16u products at and beside the
// multiples of 65535 through both the vector body and the scalar loop; the check order.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "arith_sweep.hpp"
#include "keli.h"
#include "kit/arith.hpp"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "reference/mul_div.hpp"

namespace {

template <class T> struct NormMember {
    const char* name;
    int channels;
    bool alpha;
    KelStatus (*r)(const T*, int, const T*, int, T*, int, KeliSize);
    KelStatus (*ir)(const T*, int, T*, int, KeliSize);
    KelStatus (*cr)(const T*, int, const T*, T*, int, KeliSize);  // C1 constants by pointer too
    KelStatus (*cir)(const T*, T*, int, KeliSize);
};

template <class T, auto F> KelStatus byValue(const T* s, int ss, const T* v, T* d, int ds, KeliSize z)
{
    return F(s, ss, *v, d, ds, z);
}
template <class T, auto F> KelStatus byValueI(const T* v, T* d, int ds, KeliSize z) { return F(*v, d, ds, z); }

#define KELI_NORM(T, L, C, A)                                                                                          \
    NormMember<Kel##T>{"MulScale_" #T "_" #L, C, A, keliMulScale_##T##_##L##R, keliMulScale_##T##_##L##IR,             \
                       keliMulCScale_##T##_##L##R, keliMulCScale_##T##_##L##IR}
#define KELI_NORM_ALL(T)                                                                                               \
    NormMember<Kel##T>{"MulScale_" #T "_C1", 1, false, keliMulScale_##T##_C1R, keliMulScale_##T##_C1IR,               \
                       byValue<Kel##T, keliMulCScale_##T##_C1R>, byValueI<Kel##T, keliMulCScale_##T##_C1IR>},         \
        KELI_NORM(T, C3, 3, false), KELI_NORM(T, C4, 4, false), KELI_NORM(T, AC4, 4, true)

template <class T> std::vector<NormMember<T>> members();
template <> std::vector<NormMember<Kel8u>> members() { return {KELI_NORM_ALL(8u)}; }
template <> std::vector<NormMember<Kel16u>> members() { return {KELI_NORM_ALL(16u)}; }

// The members of one element type, for the walks over every type.
constexpr auto kMembers = [](auto type) { return members<decltype(type)>(); };

template <class T> void sweep_member(const NormMember<T>& m, kit::Rng& rng)
{
    const arith_sweep::Layout l{m.channels, m.alpha};
    // The family refuses steps below 1, so its images are never stored bottom up.
    const auto check = [&](const arith_sweep::Step& s, int) {
        const arith_sweep::NewFailures failures;
        auto a = s.image<T>(l.channels, 0), b = s.image<T>(l.channels, 1);
        auto d = s.image<T>(l.channels, 2);
        arith_sweep::fill_edgy(rng, a, b, d);
        T value[4];
        for (T& v : value) v = kit::arith::edgy<T>(rng);

        kit::Image<T> io = b;
        arith_sweep::check_forms<T>(
            l, {&a, &b}, d, io, kelStatusOk,
            [&] { return m.r(a.data(), a.step(), b.data(), b.step(), d.data(), d.step(), a.size()); },
            [&] { return m.ir(a.data(), a.step(), io.data(), io.step(), a.size()); },
            [&](int x, int y, int c) { return reference::mul_norm(a.at(x, y, c), b.at(x, y, c)); });
        if (failures.any()) return;

        kit::Image<T> dc = d, ioc = a;
        arith_sweep::check_forms<T>(
            l, {&a}, dc, ioc, kelStatusOk,
            [&] { return m.cr(a.data(), a.step(), value, dc.data(), dc.step(), a.size()); },
            [&] { return m.cir(value, ioc.data(), ioc.step(), a.size()); },
            [&](int x, int y, int c) { return reference::mul_norm(a.at(x, y, c), value[c]); });
    };
    arith_sweep::each_step(m.name, {0}, m.channels == 1 ? 90 : 36, 0, true, check);
}

TEST(MulScale, EveryMemberMatchesTheModelOverTheSweep)
{
    const auto sweep = [](auto, const auto& m, kit::Rng& rng) { sweep_member(m, rng); };
    arith_sweep::each_member<Kel8u, Kel16u>(kMembers, sweep);
}

// The pairs x[i], y[i] through the vector body (one long row) and through the scalar loop (rows
// shorter than the vector threshold), each compared with the model.
template <class T> void both_paths(const std::vector<T>& x, const std::vector<T>& y)
{
    const int n = int(x.size());
    std::vector<T> d(x.size());
    KelStatus s;
    if constexpr (sizeof(T) == 1) s = keliMulScale_8u_C1R(x.data(), n, y.data(), n, d.data(), n, {n, 1});
    else s = keliMulScale_16u_C1R(x.data(), 2 * n, y.data(), 2 * n, d.data(), 2 * n, {n, 1});
    ASSERT_EQ(s, kelStatusOk);
    for (int i = 0; i < n; ++i) ASSERT_EQ(d[i], reference::mul_norm(x[i], y[i])) << x[i] << " * " << y[i];
    // Rows of 8 elements: below every vector threshold, so all of it goes through the scalar apply.
    ASSERT_EQ(n % 8, 0);
    std::fill(d.begin(), d.end(), T(0x5A));
    const int step = 8 * sizeof(T);
    if constexpr (sizeof(T) == 1) s = keliMulScale_8u_C1R(x.data(), step, y.data(), step, d.data(), step, {8, n / 8});
    else s = keliMulScale_16u_C1R(x.data(), step, y.data(), step, d.data(), step, {8, n / 8});
    ASSERT_EQ(s, kelStatusOk);
    for (int i = 0; i < n; ++i) ASSERT_EQ(d[i], reference::mul_norm(x[i], y[i])) << "scalar " << x[i] << " * " << y[i];
}

TEST(MulScale, EveryBytePairAndThe16BitQuotientBoundaries)
{
    std::vector<Kel8u> a(65536), b(65536);
    for (int i = 0; i < 65536; ++i) a[i] = Kel8u(i & 255), b[i] = Kel8u(i >> 8);
    both_paths(a, b);
    // The constant form on every pair too: each value against a row of every byte.
    std::vector<Kel8u> row(256), out(256);
    for (int i = 0; i < 256; ++i) row[i] = Kel8u(i);
    for (int v = 0; v < 256; ++v) {
        ASSERT_EQ(keliMulCScale_8u_C1R(row.data(), 256, Kel8u(v), out.data(), 256, {256, 1}), kelStatusOk);
        for (int i = 0; i < 256; ++i) ASSERT_EQ(out[i], reference::mul_norm(Kel8u(i), Kel8u(v))) << i << " * " << v;
    }

    // 65535 = 3 * 5 * 17 * 257: products of multiples of 257 and of 255 are multiples of 65535,
    // and a neighbour of either factor moves the product just below or above one.
    std::vector<Kel16u> x, y;
    for (int m = 1; m <= 255; m += 2)
        for (int k = 1; k <= 257; k += 8)
            for (int dx = -1; dx <= 1; ++dx)
                for (int dy = -1; dy <= 1; ++dy)
                    if (257 * m + dx <= 65535 && 255 * k + dy <= 65535)
                        x.push_back(Kel16u(257 * m + dx)), y.push_back(Kel16u(255 * k + dy));
    for (int v = 0; v < 65536; v += 3) {
        x.push_back(65535), y.push_back(Kel16u(v));  // exact multiples
        x.push_back(65534), y.push_back(Kel16u(v));  // every remainder just below one
    }
    kit::Rng rng;
    while (x.size() % 8 != 0 || x.size() < 200000) x.push_back(rng.any<Kel16u>()), y.push_back(rng.any<Kel16u>());
    both_paths(x, y);
}

TEST(MulScale, OneStandsForTheLargestValue)
{
    auto one8 = [](Kel8u a, Kel8u b) {
        Kel8u d = 7;
        EXPECT_EQ(keliMulScale_8u_C1R(&a, 1, &b, 1, &d, 1, {1, 1}), kelStatusOk);
        return d;
    };
    EXPECT_EQ(one8(255, 255), 255);
    EXPECT_EQ(one8(128, 255), 128);
    EXPECT_EQ(one8(0, 255), 0);
    EXPECT_EQ(one8(254, 1), 0);
    EXPECT_EQ(one8(128, 128), 64);  // 16384 / 255 = 64.25
    Kel16u a = 65535, d = 1;
    ASSERT_EQ(keliMulCScale_16u_C1IR(65535, &a, 2, {1, 1}), kelStatusOk);
    EXPECT_EQ(a, 65535);
    const Kel16u s = 32768;
    ASSERT_EQ(keliMulCScale_16u_C1R(&s, 2, 65534, &d, 2, {1, 1}), kelStatusOk);
    EXPECT_EQ(d, 32767);  // 32768 * 65534 / 65535 = 32767.5
}

TEST(MulScale, ChecksRunInOrderAndWriteNothing)
{
    Kel8u src[64] = {}, dst[64];
    std::memset(dst, 0xA5, sizeof dst);
    const Kel8u values[3] = {1, 2, 3};
    struct Case {
        const Kel8u *s1, *s2;
        Kel8u* d;
        int step1, step2;
        KeliSize size;
        KelStatus want;
    } cases[] = {
        // Pointers come first, then the steps, then the size.
        {nullptr, src, dst, 0, 0, {0, 0}, kelStatusNullPtr},
        {src, nullptr, dst, -4, 4, {-1, 1}, kelStatusNullPtr},
        {src, src, nullptr, 4, 0, {0, 1}, kelStatusNullPtr},
        {src, src, dst, 0, 16, {0, 0}, kelStatusBadStep},
        {src, src, dst, 16, -16, {4, -2}, kelStatusBadStep},
        {src, src, dst, 16, 16, {0, 4}, kelStatusBadSize},
        {src, src, dst, 16, 16, {4, -2}, kelStatusBadSize},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(int(&c - cases));
        EXPECT_EQ(keliMulScale_8u_C4R(c.s1, 16, c.s2, c.step2, c.d, c.step1, c.size), c.want);
        EXPECT_EQ(keliMulScale_8u_C1R(c.s1, c.step1, c.s2, c.step2, c.d, 16, c.size), c.want);
        EXPECT_EQ(keliMulScale_8u_AC4IR(c.s1, c.step2, c.s2 ? c.d : nullptr, c.step1, c.size), c.want);
        EXPECT_EQ(keliMulCScale_8u_C3R(c.s1, c.step1, c.s2 ? values : nullptr, c.d, c.step2, c.size), c.want);
        EXPECT_EQ(keliMulCScale_8u_C1IR(0, c.s1 && c.s2 ? c.d : nullptr, c.step1 < 1 ? c.step1 : c.step2, c.size),
                  c.want);
        for (Kel8u v : dst) ASSERT_EQ(v, 0xA5);
    }
    Kel16u wide[16];
    std::memset(wide, 0x5A, sizeof wide);
    EXPECT_EQ(keliMulCScale_16u_AC4IR(nullptr, wide, 8, {1, 1}), kelStatusNullPtr);
    EXPECT_EQ(keliMulScale_16u_C3IR(wide, 0, wide, 8, {1, 1}), kelStatusBadStep);
    for (Kel16u v : wide) ASSERT_EQ(v, 0x5A5A);
}

}  // namespace
