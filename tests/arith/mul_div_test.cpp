// keliMul, keliMulC: every member against the scalar model over a geometry sweep for every kind
// of scale factor, the values where rounding and saturation bite, the short cuts that leave the
// sources unread, the check order, and the wide members' own chunked path.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "arith/rows/mul.hpp"
#include "arith_sweep.hpp"
#include "keli.h"
#include "kit/arith.hpp"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "mul_div_members.hpp"
#include "reference/mul_div.hpp"

namespace {

using namespace kit::arith;

template <class T> std::vector<Member<T>> members() { return mul_div_members::mul<T>(); }

// The members of one element type, for the walks over every type.
constexpr auto kMembers = [](auto type) { return members<decltype(type)>(); };

// Scale factors of every kind: saturating, halving, general, the 16-bit high-half cases, at and
// past the zero bound, left shifts, at and past the pattern bound, and the extremes.
template <class T> std::vector<int> scale_factors()
{
    if constexpr (kFloat<T>) {
        return {0};
    } else {
        const auto b = keli::rows::kMulShortCuts<T>;
        return {0, 1, 2, 3, 7, 8, 15, 16, b.zeroFrom - 2, b.zeroFrom - 1, b.zeroFrom, INT_MAX, -1, -3,
                b.patternTo + 1, b.patternTo, INT_MIN};
    }
}

template <class T> void sweep_member(const Member<T>& m, kit::Rng& rng)
{
    const auto mul = [](T a, T b, int n) { return reference::mul(a, b, n); };
    const auto value = [&](const arith_sweep::Step& s) {
        return s.width % 7 == 0 ? T(0) : s.width % 11 == 0 ? T(1) : edgy<T>(rng);
    };
    arith_sweep::sweep_scaled<T>(m, rng, scale_factors<T>(), m.channels == 1 ? 90 : 36, value, mul, mul);
}

TEST(Mul, EveryMemberMatchesTheModelOverTheSweep)
{
    const auto sweep = [](auto, const auto& m, kit::Rng& rng) { sweep_member(m, rng); };
    arith_sweep::each_member<Kel8u, Kel16u, Kel16s, Kel32f>(kMembers, sweep);
}

// Every pair of 8u operands and every 16-bit rounding case near the high-half boundaries.
TEST(Mul, ExhaustiveBytesAndHighHalfTies)
{
    std::vector<Kel8u> a(65536), b(65536), d(65536);
    for (int i = 0; i < 65536; ++i) a[i] = Kel8u(i & 255), b[i] = Kel8u(i >> 8);
    for (int n : {0, 1, 4, 8, 15, 16, 17, -1, -7, -8}) {
        ASSERT_EQ(keliMul_8u_C1RSfs(a.data(), 0, b.data(), 0, d.data(), 0, {65536, 1}, n), kelStatusOk);
        for (int i = 0; i < 65536; ++i) ASSERT_EQ(d[i], reference::mul(a[i], b[i], n)) << i << " n " << n;
    }
    // 16u products just around 2^31 + k 2^16 and their neighbours for the 16 and 32 cases.
    std::vector<Kel16u> x, y;
    for (Kel16u p : {Kel16u(32768), Kel16u(65535), Kel16u(46341), Kel16u(256), Kel16u(255), Kel16u(257)})
        for (int q = 0; q < 65536; q += 97) x.push_back(p), y.push_back(Kel16u(q));
    for (int q = 32760; q < 32780; ++q)
        for (Kel16u p : {Kel16u(65535), Kel16u(65534), Kel16u(2), Kel16u(1)}) x.push_back(p), y.push_back(Kel16u(q));
    std::vector<Kel16u> r(x.size());
    const int w = int(x.size());
    for (int n : {15, 16, 17, 31, 32, 33}) {
        ASSERT_EQ(keliMul_16u_C1RSfs(x.data(), 0, y.data(), 0, r.data(), 0, {w, 1}, n), kelStatusOk);
        for (int i = 0; i < w; ++i) ASSERT_EQ(r[i], reference::mul(x[i], y[i], n)) << x[i] << " * " << y[i] << " n " << n;
    }
}

template <class T, class F> T one(F f, T a, T b, int n) { return arith_sweep::one_element<T>(kelStatusOk, f, a, b, n); }

TEST(Mul, RoundingAndSaturationWhereTheyBite)
{
    EXPECT_EQ(one<Kel8u>(keliMul_8u_C1RSfs, 16, 16, 0), 255);
    EXPECT_EQ(one<Kel8u>(keliMul_8u_C1RSfs, 16, 16, 8), 1);
    EXPECT_EQ(one<Kel8u>(keliMul_8u_C1RSfs, 3, 1, 1), 2);    // 1.5 to even
    EXPECT_EQ(one<Kel8u>(keliMul_8u_C1RSfs, 5, 1, 1), 2);    // 2.5 to even
    EXPECT_EQ(one<Kel8u>(keliMul_8u_C1RSfs, 128, 1, 8), 0);  // 0.5 to even
    EXPECT_EQ(one<Kel8u>(keliMul_8u_C1RSfs, 128, 3, 8), 2);  // 1.5 to even
    EXPECT_EQ(one<Kel8u>(keliMul_8u_C1RSfs, 255, 255, 16), 1);
    EXPECT_EQ(one<Kel8u>(keliMul_8u_C1RSfs, 128, 128, 15), 0);  // 16384 / 32768, a half, to even
    EXPECT_EQ(one<Kel8u>(keliMul_8u_C1RSfs, 2, 3, -8), 255);
    EXPECT_EQ(one<Kel8u>(keliMul_8u_C1RSfs, 0, 3, -8), 0);
    EXPECT_EQ(one<Kel8u>(keliMul_8u_C1RSfs, 2, 3, -5), 192);
    EXPECT_EQ(one<Kel8u>(keliMul_8u_C1RSfs, 2, 4, -5), 255);
    EXPECT_EQ(one<Kel16s>(keliMul_16s_C1RSfs, -32768, -32768, 30), 1);
    EXPECT_EQ(one<Kel16s>(keliMul_16s_C1RSfs, -32768, 32767, 0), -32768);
    EXPECT_EQ(one<Kel16s>(keliMul_16s_C1RSfs, -32768, -32768, 15), 32767);
    EXPECT_EQ(one<Kel16s>(keliMul_16s_C1RSfs, -3, 1, 1), -2);  // -1.5 to even
    EXPECT_EQ(one<Kel16s>(keliMul_16s_C1RSfs, -1, 5, -15), -32768);
    EXPECT_EQ(one<Kel16s>(keliMul_16s_C1RSfs, -1, -5, -40), 32767);
    EXPECT_EQ(one<Kel16s>(keliMul_16s_C1RSfs, 0, -5, -40), 0);
    EXPECT_EQ(one<Kel16u>(keliMul_16u_C1RSfs, 65535, 65535, 32), 1);
    EXPECT_EQ(one<Kel16u>(keliMul_16u_C1RSfs, 32768, 65535, 32), 0);  // just below a half
    EXPECT_EQ(one<Kel16u>(keliMul_16u_C1RSfs, 32768, 1, 16), 0);      // a half, to even
    EXPECT_EQ(one<Kel16u>(keliMul_16u_C1RSfs, 32768, 3, 16), 2);      // 1.5 to even
    EXPECT_EQ(one<Kel16u>(keliMul_16u_C1RSfs, 65535, 65535, 16), 65534);
    EXPECT_EQ(one<Kel16u>(keliMul_16u_C1RSfs, 65535, 65535, 0), 65535);
    EXPECT_EQ(one<Kel16u>(keliMul_16u_C1RSfs, 3, 1, -15), 65535);
    EXPECT_EQ(one<Kel16u>(keliMul_16u_C1RSfs, 1, 1, -15), 32768);
    EXPECT_TRUE(std::isnan(one<Kel32f>(bin32f<keliMul_32f_C1R, int, KeliSize>, INFINITY, 0.0f, 0)));
    // A 32f constant of 0 is multiplied like any other.
    float inf = INFINITY, out = 1;
    ASSERT_EQ(keliMulC_32f_C1R(&inf, 4, 0.0f, &out, 4, {1, 1}), kelStatusOk);
    EXPECT_TRUE(std::isnan(out));
}

template <class T> void check_unread_sources(const Member<T>& m, int zeroFrom)
{
    SCOPED_TRACE(m.name);
    arith_sweep::check_zero_bound_unread<T>(m, zeroFrom, [&](const T* src, kit::Image<T>& d, int n) {
        ASSERT_EQ(m.rL(src, 0, src, -64, d.data(), d.step(), {37, 3}, n), kelStatusOk);
    });
    if (m.channels == 1) {
        // A C1 constant of 0 fills whatever the scale factor; 1 without a shift copies, and in
        // place does nothing at all.
        const T zero = 0, oneValue = 1;
        arith_sweep::check_fills_unread<T>({1, false}, {0, -30, 3, INT_MIN}, T(0),
                                           [&](const T* src, kit::Image<T>& d, int n) {
                                               ASSERT_EQ(m.cr(src, 64, &zero, d.data(), d.step(), d.size(), n),
                                                         kelStatusOk);
                                           });
        const Unreadable page;
        const KeliSize size{37, 3};
        ASSERT_EQ(m.cir(&oneValue, page.template as<T>(), 64, size, 0), kelStatusOk);
        ASSERT_EQ(m.cirL(&oneValue, page.template as<T>(), 64, {37, 3}, 0), kelStatusOk);
        kit::Image<T> s(37, 3, 1), c(37, 3, 1);
        kit::Rng rng;
        s.fill([&] { return rng.any<T>(); });
        ASSERT_EQ(m.cr(s.data(), s.step(), &oneValue, c.data(), c.step(), size, 0), kelStatusOk);
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 37; ++x) ASSERT_EQ(c.at(x, y), s.at(x, y));
    }
}

TEST(Mul, ShortCutsLeaveTheSourcesUnread)
{
    for (const auto& m : members<Kel8u>()) check_unread_sources(m, 17);
    for (const auto& m : members<Kel16u>()) check_unread_sources(m, 33);
    for (const auto& m : members<Kel16s>()) check_unread_sources(m, 31);
}

TEST(Mul, StepsAreTakenAsTheyStand)
{
    const auto mul = [](Kel16s a, Kel16s b, int n) { return reference::mul(a, b, n); };
    arith_sweep::check_steps_as_given<Kel16s>(keliMul_16s_C1RSfs, 9, mul, keliMul_16s_C1RSfs, 2, mul);
}

TEST(Mul, ChecksRunInOrderAndWriteNothing)
{
    const Kel16u values[3] = {0, 2, 3};
    arith_sweep::check_pointers_before_size(
        values, {keliMul_16u_C4RSfs, 40, keliMul_16u_AC4IRSfs, keliMul_16u_C1RSfs_L, keliMulC_16u_C3RSfs,
                 keliMulC_16u_AC4IRSfs_L, keliMulC_16u_C1RSfs, keliMulC_16u_C1IRSfs});
}

TEST(MulWide, RowsBeyondThe32BitStepsWalkInChunks)
{
    const FarRows mem;
    if (!mem.ok()) GTEST_SKIP() << "no address space for a sparse mapping";
    const auto check = [&](auto type, const auto& m, kit::Rng& rng) {
        using T = decltype(type);
        const std::vector<int> factors = kFloat<T> ? std::vector<int>{0} : std::vector<int>{0, 5, 16, -2, 40, -20};
        const auto mul = [](T a, T b, int n) { return reference::mul(a, b, n); };
        arith_sweep::check_far_rows<T>(mem, {m.name, {m.channels, m.alpha}, m.rL, m.irL, m.crL, m.cirL}, factors,
                                       [&] { return edgy<T>(rng); }, mul, mul);
    };
    arith_sweep::each_member<Kel8u, Kel16u, Kel16s, Kel32f>(kMembers, check);
}

}  // namespace
