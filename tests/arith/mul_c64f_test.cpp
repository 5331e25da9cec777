// keliMulC64f: every member in every rounding mode against the model over a geometry sweep
// (every head and tail length, offsets, padded and bottom-up rows, in place, guard bytes); the
// halves, the clamps and not-a-number; a product that only the toward-zero field truncates
// correctly; the caller's control register left as it was; the check order.
#include <gtest/gtest.h>
#include <xmmintrin.h>

#include <cfloat>
#include <cmath>
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

using kit::arith::edgy;

template <class T> struct C64Member {
    const char* name;
    int channels;
    KelStatus (*r)(const T*, int, const Kel64f*, T*, int, KeliSize, KelHintAlgorithm, KelRoundMode);
    KelStatus (*ir)(const Kel64f*, T*, int, KeliSize, KelHintAlgorithm, KelRoundMode);
};

#define KELI_C64(T, L, C) C64Member<Kel##T>{"MulC64f_" #T "_" #L, C, keliMulC64f_##T##_##L##R, keliMulC64f_##T##_##L##IR}
#define KELI_C64_ALL(T) {KELI_C64(T, C1, 1), KELI_C64(T, C3, 3), KELI_C64(T, C4, 4)}

template <class T> std::vector<C64Member<T>> members();
template <> std::vector<C64Member<Kel8u>> members() { return KELI_C64_ALL(8u); }
template <> std::vector<C64Member<Kel16u>> members() { return KELI_C64_ALL(16u); }
template <> std::vector<C64Member<Kel16s>> members() { return KELI_C64_ALL(16s); }
template <> std::vector<C64Member<Kel32f>> members() { return KELI_C64_ALL(32f); }

// The members of one element type, for the walks over every type.
constexpr auto kMembers = [](auto type) { return members<decltype(type)>(); };

// Constants that land products on halves, saturate, shrink, flip signs, and now and then are
// not finite.
double constant(kit::Rng& rng)
{
    static const double picks[] = {0.5, -0.5, 1.5, 1.0 / 3, -2.75, 255.5, 1e-3, 0.0, 2.0, -1.0, 1e6, 0.999999999};
    switch (rng.below(16)) {
    case 0: return NAN;
    case 1: return rng.below(2) ? INFINITY : -INFINITY;
    default: return rng.below(2) ? picks[rng.below(12)] : double(rng.any<float>()) / 250.0;
    }
}

// Bit equality, but any not-a-number matches another.
struct SameOrBothNaN {
    template <class T> bool operator()(T got, T want) const
    {
        if constexpr (std::is_same_v<T, float>)
            if (std::isnan(got) && std::isnan(want)) return true;
        return kit::arith::same(got, want);
    }
};

template <class T> void sweep_member(const C64Member<T>& m, kit::Rng& rng)
{
    const arith_sweep::Layout l{m.channels, false};
    const arith_sweep::NewFailures failures;
    for (int mode = 0; mode <= 2; ++mode) {
        const auto rm = KelRoundMode(mode);
        const std::string what = std::string(m.name) + " mode " + std::to_string(mode);
        const auto check = [&](const arith_sweep::Step& s, int) {
            auto a = s.image<T>(l.channels, 0), d = s.image<T>(l.channels, 1);
            arith_sweep::fill_edgy(rng, a, d);
            double c[4];
            for (double& v : c) v = constant(rng);
            const auto hint = KelHintAlgorithm(s.width % 3);
            kit::Image<T> io = a;
            arith_sweep::check_forms<T>(
                l, {&a}, d, io, kelStatusOk,
                [&] { return m.r(a.data(), a.step(), c, d.data(), d.step(), a.size(), hint, rm); },
                [&] { return m.ir(c, io.data(), io.step(), a.size(), hint, rm); },
                [&](int x, int y, int ch) { return reference::mul_c64f(a.at(x, y, ch), c[ch], mode); },
                SameOrBothNaN{});
        };
        arith_sweep::each_step(what, {0}, m.channels == 1 ? 72 : 30, mode, false, check);
        if (failures.any()) return;
    }
}

TEST(MulC64f, EveryMemberMatchesTheModelInEveryMode)
{
    const auto sweep = [](auto, const auto& m, kit::Rng& rng) { sweep_member(m, rng); };
    arith_sweep::each_member<Kel8u, Kel16u, Kel16s, Kel32f>(kMembers, sweep);
}

// One element through the C1 member in a mode.
template <class T> T one(T a, double c, int mode)
{
    const std::vector<C64Member<T>> all = members<T>();
    T d = T(77);
    EXPECT_EQ(all[0].r(&a, 64, &c, &d, 64, {1, 1}, kelAlgHintNone, KelRoundMode(mode)), kelStatusOk);
    return d;
}

TEST(MulC64f, HalvesClampsAndNotANumber)
{
    // 2.5, 3.5 and -2.5 in the three modes.
    EXPECT_EQ(one<Kel8u>(5, 0.5, 0), 2);
    EXPECT_EQ(one<Kel8u>(5, 0.5, 1), 2);
    EXPECT_EQ(one<Kel8u>(5, 0.5, 2), 3);
    EXPECT_EQ(one<Kel8u>(7, 0.5, 1), 4);
    EXPECT_EQ(one<Kel16s>(-5, 0.5, 0), -2);
    EXPECT_EQ(one<Kel16s>(-5, 0.5, 1), -2);
    EXPECT_EQ(one<Kel16s>(-5, 0.5, 2), -3);
    EXPECT_EQ(one<Kel16s>(-7, 0.5, 1), -4);
    EXPECT_EQ(one<Kel16s>(-3, 0.9, 2), -3);  // -2.7: nearest, not merely shifted by a half
    // Clamps on both sides, before the half is added.
    EXPECT_EQ(one<Kel8u>(200, 2.0, 2), 255);
    EXPECT_EQ(one<Kel8u>(200, -2.0, 1), 0);
    EXPECT_EQ(one<Kel16u>(65535, 1.00001, 2), 65535);
    EXPECT_EQ(one<Kel16s>(-32768, 1.5, 2), -32768);
    EXPECT_EQ(one<Kel16s>(32767, -1e300, 0), -32768);
    // A not-a-number product takes the largest value of an integer type.
    EXPECT_EQ(one<Kel8u>(3, NAN, 2), 255);
    EXPECT_EQ(one<Kel16s>(0, INFINITY, 1), 32767);  // 0 * infinity
    // 32f clamps to the finite range and keeps not-a-number.
    EXPECT_EQ(one<Kel32f>(1e30f, 1e10, 1), FLT_MAX);
    EXPECT_EQ(one<Kel32f>(-INFINITY, 2.0, 0), -FLT_MAX);
    EXPECT_TRUE(std::isnan(one<Kel32f>(NAN, 2.0, 2)));
    EXPECT_EQ(one<Kel32f>(1.0f, 1.0 / 3, 1), 1.0f / 3);
    EXPECT_EQ(one<Kel32f>(1.0f, 1.0 / 3, 0), std::nextafter(1.0f / 3, 0.0f));  // 1/3 in 32f rounds up
    // 3 * (1 - 2^-53) is within a quarter unit of 3: only a product rounded toward zero
    // truncates to 2.
    const double below1 = std::nextafter(1.0, 0.0);
    EXPECT_EQ(one<Kel8u>(3, below1, 0), 2);
    EXPECT_EQ(one<Kel8u>(3, below1, 1), 3);
    EXPECT_EQ(one<Kel16s>(-3, below1, 0), -2);
}

TEST(MulC64f, TheCallersControlRegisterStaysAsItWas)
{
    const unsigned before = _mm_getcsr();
    // Round up with flush-to-zero set: the general kernel forces its own rounding field.
    const unsigned caller = (before & ~0x6000u) | 0x4000u | 0x8040u;
    _mm_setcsr(caller);
    std::vector<Kel16s> src(40), dst(40);
    for (int i = 0; i < 40; ++i) src[i] = Kel16s(2 * i - 41);
    const double c[3] = {0.5, 0.25, -0.5};
    KelStatus s[3];
    std::vector<Kel16s> got[3];
    for (int mode = 0; mode <= 2; ++mode) {
        s[mode] = keliMulC64f_16s_C1R(src.data(), 80, c, dst.data(), 80, {40, 1}, kelAlgHintAccurate, KelRoundMode(mode));
        got[mode] = dst;
        ASSERT_EQ(_mm_getcsr(), caller) << "mode " << mode;
    }
    const KelStatus bad =
        keliMulC64f_16s_C1R(src.data(), 80, c, dst.data(), 80, {40, 1}, kelAlgHintNone, KelRoundMode(3));
    const unsigned after = _mm_getcsr();
    _mm_setcsr(before);
    EXPECT_EQ(after, caller);
    EXPECT_EQ(bad, kelStatusBadRoundMode);
    for (int mode = 0; mode <= 2; ++mode) {
        EXPECT_EQ(s[mode], kelStatusOk);
        for (int i = 0; i < 40; ++i) EXPECT_EQ(got[mode][i], reference::mul_c64f<Kel16s>(src[i], 0.5, mode)) << i;
    }
}

TEST(MulC64f, ChecksRunInOrderAndWriteNothing)
{
    Kel8u src[64] = {}, dst[64];
    std::memset(dst, 0xA5, sizeof dst);
    const double c[4] = {1, 2, 3, 4};
    struct Case {
        const Kel8u* s;
        const double* c;
        Kel8u* d;
        KeliSize size;
        int mode;
        KelStatus want;
    } cases[] = {
        {nullptr, c, dst, {0, 0}, 3, kelStatusNullPtr},
        {src, nullptr, dst, {-1, 1}, 3, kelStatusNullPtr},
        {src, c, nullptr, {0, 1}, 3, kelStatusNullPtr},
        {src, c, dst, {0, 4}, 3, kelStatusBadSize},
        {src, c, dst, {4, -2}, 3, kelStatusBadSize},
        {src, c, dst, {4, 2}, 3, kelStatusBadRoundMode},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(int(&k - cases));
        const auto rm = KelRoundMode(k.mode);
        // Steps are never checked: zero and negative ones change no status.
        EXPECT_EQ(keliMulC64f_8u_C3R(k.s, 0, k.c, k.d, -16, k.size, kelAlgHintNone, rm), k.want);
        EXPECT_EQ(keliMulC64f_8u_C1R(k.s, 16, k.c, k.d, 16, k.size, kelAlgHintAccurate, rm), k.want);
        EXPECT_EQ(keliMulC64f_8u_C4IR(k.c, k.s ? k.d : nullptr, 0, k.size, kelAlgHintFast, rm), k.want);
        for (Kel8u v : dst) ASSERT_EQ(v, 0xA5);
    }
    // Steps of 0 reuse one row: the result is the first row's product in every row.
    Kel16u one[4] = {10, 11, 12, 13}, out[3][4];
    const double half = 0.5;
    ASSERT_EQ(keliMulC64f_16u_C1R(one, 0, &half, out[0], 8, {4, 3}, kelAlgHintNone, kelRndFinancial), kelStatusOk);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x) EXPECT_EQ(out[y][x], (10 + x + 1) / 2);
}

}  // namespace
