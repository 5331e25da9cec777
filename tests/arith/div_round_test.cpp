// keliDiv_Round: every member in every rounding mode against the exact quotient over a geometry
// sweep (every head and tail length, offsets, padded rows, in place, guard bytes, untouched
// alpha) with zero divisors and the warning they raise; every 8u pair through the vector body and
// the scalar loop; halves and scale factors at their bounds; the caller's control register left
// as it was; the check order.
#include <gtest/gtest.h>
#include <xmmintrin.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "arith/rows/div_round.hpp"
#include "arith_sweep.hpp"
#include "keli.h"
#include "kit/arith.hpp"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "reference/mul_div.hpp"

namespace {

using kit::arith::edgy;

template <class T> struct RoundMember {
    const char* name;
    int channels;
    bool alpha;
    KelStatus (*r)(const T*, int, const T*, int, T*, int, KeliSize, KelRoundMode, int);
    KelStatus (*ir)(const T*, int, T*, int, KeliSize, KelRoundMode, int);
};

#define KELI_RND(T, L, C, A)                                                                                           \
    RoundMember<Kel##T>{"Div_Round_" #T "_" #L, C, A, keliDiv_Round_##T##_##L##RSfs, keliDiv_Round_##T##_##L##IRSfs}
#define KELI_RND_ALL(T) {KELI_RND(T, C1, 1, false), KELI_RND(T, C3, 3, false), KELI_RND(T, C4, 4, false), KELI_RND(T, AC4, 4, true)}

template <class T> std::vector<RoundMember<T>> members();
template <> std::vector<RoundMember<Kel8u>> members() { return KELI_RND_ALL(8u); }
template <> std::vector<RoundMember<Kel16u>> members() { return KELI_RND_ALL(16u); }
template <> std::vector<RoundMember<Kel16s>> members() { return KELI_RND_ALL(16s); }

// The members of one element type, for the walks over every type.
constexpr auto kMembers = [](auto type) { return members<decltype(type)>(); };

// Scale factors inside the float path, at and past both bounds, and the extremes.
template <class T> std::vector<int> scale_factors()
{
    const auto b = keli::rows::kDivRoundShortCuts<T>;
    return {0, 1, 5, b.zeroFrom - 1, b.zeroFrom, INT_MAX, -1, -6, b.patternTo + 1, b.patternTo, INT_MIN};
}

template <class T> void sweep_member(const RoundMember<T>& m, kit::Rng& rng)
{
    const arith_sweep::Layout l{m.channels, m.alpha};
    const arith_sweep::NewFailures failures;
    for (int mode = 0; mode <= 2; ++mode) {
        const auto rm = KelRoundMode(mode);
        // The steps are checked, so images are stored top down.
        const std::string what = std::string(m.name) + " mode " + std::to_string(mode);
        const auto check = [&](const arith_sweep::Step& s, int n) {
            auto a = s.image<T>(l.channels, 0), b = s.image<T>(l.channels, 1);
            auto d = s.image<T>(l.channels, 2);
            // Divisors without a zero in about half of the images, so that both statuses occur.
            const bool zeros = (s.width + s.salt) % 2 == 0;
            a.fill([&] {
                T v = edgy<T>(rng);
                return v == 0 && !zeros ? T(3) : v;
            });
            arith_sweep::fill_edgy(rng, b, d);
            bool anyZero = false;
            for (int y = 0; y < s.height; ++y)
                for (int x = 0; x < s.width; ++x)
                    for (int c = 0; c < l.processed(); ++c) anyZero |= a.at(x, y, c) == 0;
            kit::Image<T> io = b;
            arith_sweep::check_forms<T>(
                l, {&a, &b}, d, io, anyZero ? kelStatusDivByZeroWarn : kelStatusOk,
                [&] { return m.r(a.data(), a.step(), b.data(), b.step(), d.data(), d.step(), a.size(), rm, n); },
                [&] { return m.ir(a.data(), a.step(), io.data(), io.step(), a.size(), rm, n); },
                [&](int x, int y, int c) { return reference::div_round(b.at(x, y, c), a.at(x, y, c), mode, n); });
        };
        arith_sweep::each_step(what, scale_factors<T>(), m.channels == 1 ? 60 : 24, mode, true, check);
        if (failures.any()) return;
    }
}

TEST(DivRound, EveryMemberMatchesTheExactQuotientInEveryMode)
{
    const auto sweep = [](auto, const auto& m, kit::Rng& rng) { sweep_member(m, rng); };
    arith_sweep::each_member<Kel8u, Kel16u, Kel16s>(kMembers, sweep);
}

TEST(DivRound, EveryBytePairThroughBothPaths)
{
    std::vector<Kel8u> a(65536), b(65536), d(65536);
    for (int i = 0; i < 65536; ++i) a[i] = Kel8u(i & 255), b[i] = Kel8u(i >> 8);
    for (int mode = 0; mode <= 2; ++mode)
        for (int n : {0, 1, -1, 4, 8, -8, -15}) {
            // One long row (the vector body), then rows of 16 (below the vector threshold).
            for (int w : {65536, 16}) {
                std::fill(d.begin(), d.end(), Kel8u(0x5A));
                ASSERT_EQ(keliDiv_Round_8u_C1RSfs(a.data(), w, b.data(), w, d.data(), w, {w, 65536 / w},
                                                  KelRoundMode(mode), n),
                          kelStatusDivByZeroWarn);
                for (int i = 0; i < 65536; ++i)
                    ASSERT_EQ(d[i], reference::div_round(b[i], a[i], mode, n))
                        << int(b[i]) << " / " << int(a[i]) << " mode " << mode << " n " << n << " width " << w;
            }
        }
}

template <class T, class F> T one(F f, T divisor, T dividend, int mode, int n, KelStatus want = kelStatusOk)
{
    return arith_sweep::one_element<T>(want, f, divisor, dividend, KelRoundMode(mode), n);
}

TEST(DivRound, HalvesZeroDivisorsAndBounds)
{
    // 5 / 2 in the three modes, and the same with the sign flipped.
    EXPECT_EQ(one<Kel8u>(keliDiv_Round_8u_C1RSfs, 2, 5, kelRndFinancial, 0), 3);
    EXPECT_EQ(one<Kel8u>(keliDiv_Round_8u_C1RSfs, 2, 5, kelRndZero, 0), 2);
    EXPECT_EQ(one<Kel8u>(keliDiv_Round_8u_C1RSfs, 2, 5, kelRndNear, 0), 2);
    EXPECT_EQ(one<Kel8u>(keliDiv_Round_8u_C1RSfs, 2, 7, kelRndNear, 0), 4);
    EXPECT_EQ(one<Kel16s>(keliDiv_Round_16s_C1RSfs, 2, -5, kelRndFinancial, 0), -3);
    EXPECT_EQ(one<Kel16s>(keliDiv_Round_16s_C1RSfs, -2, 5, kelRndNear, 0), -2);
    EXPECT_EQ(one<Kel16s>(keliDiv_Round_16s_C1RSfs, 3, -8, kelRndZero, 0), -2);
    EXPECT_EQ(one<Kel16s>(keliDiv_Round_16s_C1RSfs, 3, -8, kelRndFinancial, 0), -3);  // -2.67
    // Zero divisors: the saturated sign of the dividend and the warning.
    EXPECT_EQ(one<Kel8u>(keliDiv_Round_8u_C1RSfs, 0, 5, kelRndZero, 0, kelStatusDivByZeroWarn), 255);
    EXPECT_EQ(one<Kel8u>(keliDiv_Round_8u_C1RSfs, 0, 0, kelRndNear, 0, kelStatusDivByZeroWarn), 0);
    EXPECT_EQ(one<Kel16s>(keliDiv_Round_16s_C1RSfs, 0, -1, kelRndFinancial, 40, kelStatusDivByZeroWarn), -32768);
    EXPECT_EQ(one<Kel16u>(keliDiv_Round_16u_C1RSfs, 0, 9, kelRndFinancial, -40, kelStatusDivByZeroWarn), 65535);
    // Scale factors: 255 / 1 at 8 is 0.996; -32768 / 1 at 16 is minus a half, which only the
    // financial mode sends away from zero; 1 / 255 at -15 is 128.502, the last factor before
    // every quotient saturates.
    EXPECT_EQ(one<Kel8u>(keliDiv_Round_8u_C1RSfs, 1, 255, kelRndZero, 8), 0);
    EXPECT_EQ(one<Kel8u>(keliDiv_Round_8u_C1RSfs, 1, 255, kelRndNear, 8), 1);
    EXPECT_EQ(one<Kel8u>(keliDiv_Round_8u_C1RSfs, 1, 255, kelRndNear, 9), 0);
    EXPECT_EQ(one<Kel16s>(keliDiv_Round_16s_C1RSfs, 1, -32768, kelRndFinancial, 16), -1);
    EXPECT_EQ(one<Kel16s>(keliDiv_Round_16s_C1RSfs, 1, -32768, kelRndNear, 16), 0);
    EXPECT_EQ(one<Kel16s>(keliDiv_Round_16s_C1RSfs, 1, -32768, kelRndFinancial, 17), 0);
    EXPECT_EQ(one<Kel8u>(keliDiv_Round_8u_C1RSfs, 255, 1, kelRndZero, -15), 128);
    EXPECT_EQ(one<Kel8u>(keliDiv_Round_8u_C1RSfs, 255, 1, kelRndNear, -15), 129);
    EXPECT_EQ(one<Kel8u>(keliDiv_Round_8u_C1RSfs, 2, 255, kelRndNear, 0), 128);  // 127.5 to even
    EXPECT_EQ(one<Kel8u>(keliDiv_Round_8u_C1RSfs, 2, 253, kelRndNear, 0), 126);  // 126.5 to even
    EXPECT_EQ(one<Kel8u>(keliDiv_Round_8u_C1RSfs, 255, 1, kelRndZero, -16), 255);
    EXPECT_EQ(one<Kel16s>(keliDiv_Round_16s_C1RSfs, -3, 5, kelRndZero, -30), -32768);
}

TEST(DivRound, TheCallersControlRegisterStaysAsItWas)
{
    const unsigned before = _mm_getcsr();
    const unsigned caller = (before & ~0x6000u) | 0x2000u;  // round down
    std::vector<Kel16s> x(40), y(40), d(40);
    for (int i = 0; i < 40; ++i) x[i] = Kel16s(i % 7 - 3), y[i] = Kel16s(5 * i - 101);
    unsigned seen[3];
    std::vector<Kel16s> got[3];
    _mm_setcsr(caller);
    for (int mode = 0; mode <= 2; ++mode) {
        keliDiv_Round_16s_C1RSfs(x.data(), 80, y.data(), 80, d.data(), 80, {40, 1}, KelRoundMode(mode), 1);
        got[mode] = d;
        seen[mode] = _mm_getcsr();
    }
    _mm_setcsr(before);
    for (int mode = 0; mode <= 2; ++mode) {
        EXPECT_EQ(seen[mode], caller) << "mode " << mode;
        for (int i = 0; i < 40; ++i) EXPECT_EQ(got[mode][i], reference::div_round(y[i], x[i], mode, 1)) << i;
    }
}

TEST(DivRound, ChecksRunInOrderAndWriteNothing)
{
    Kel8u src[64], dst[64];
    std::memset(src, 1, sizeof src);
    std::memset(dst, 0xA5, sizeof dst);
    struct Case {
        const Kel8u *s1, *s2;
        Kel8u* d;
        KeliSize size;
        int step, mode;
        KelStatus want;
    } cases[] = {
        // Pointers, then the size, then the steps, then the mode.
        {nullptr, src, dst, {0, 0}, 0, 3, kelStatusNullPtr},
        {src, nullptr, dst, {-1, 1}, 0, 3, kelStatusNullPtr},
        {src, src, nullptr, {0, 1}, -4, 3, kelStatusNullPtr},
        {src, src, dst, {0, 4}, 0, 3, kelStatusBadSize},
        {src, src, dst, {4, -2}, -16, 3, kelStatusBadSize},
        {src, src, dst, {4, 2}, 0, 3, kelStatusBadStep},
        {src, src, dst, {4, 2}, -16, 3, kelStatusBadStep},
        {src, src, dst, {4, 2}, 16, 3, kelStatusBadRoundMode},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(int(&c - cases));
        const auto rm = KelRoundMode(c.mode);
        EXPECT_EQ(keliDiv_Round_8u_C1RSfs(c.s1, 16, c.s2, c.step, c.d, 16, c.size, rm, 0), c.want);
        EXPECT_EQ(keliDiv_Round_8u_AC4RSfs(c.s1, c.step, c.s2, 16, c.d, 16, c.size, rm, 0), c.want);
        EXPECT_EQ(keliDiv_Round_8u_C3IRSfs(c.s1, 16, c.s2 ? c.d : nullptr, c.step, c.size, rm, 99), c.want);
        for (Kel8u v : dst) ASSERT_EQ(v, 0xA5);
    }
}

}  // namespace
