// keliAdd, keliSub, keliAddC, keliSubC: every member against the scalar model over a geometry
// sweep for every kind of scale factor, the values where rounding and saturation bite, the short
// cuts that leave the sources unread, the check order, and the wide members' own paths.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "add_sub_members.hpp"
#include "arith/rows/add_sub.hpp"
#include "arith_sweep.hpp"
#include "keli.h"
#include "kit/arith.hpp"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "reference/add_sub.hpp"

namespace {

using keli::rows::AddSub;

using namespace kit::arith;
using add_sub_members::images_model;
using add_sub_members::model;

template <class T> using Member = add_sub_members::Member<T, int, KeliSize>;
template <class T> std::vector<Member<T>> members() { return add_sub_members::members<T, int, KeliSize>(); }

// The members of one element type, for the walks over every type.
constexpr auto kMembers = [](auto type) { return members<decltype(type)>(); };

// Scale factors of every kind: saturating, halving, general, at and past the zero bound, left
// shifts, at and past the pattern bound, and the extremes.
template <class T> std::vector<int> scale_factors(AddSub k)
{
    if constexpr (kFloat<T>) {
        return {0};
    } else {
        const auto b = k == AddSub::Add ? keli::rows::kAddSubShortCuts<AddSub::Add, T>
                                        : keli::rows::kAddSubShortCuts<AddSub::Sub, T>;
        return {0, 1, 2, 3, 5, b.zeroFrom - 1, b.zeroFrom, b.zeroFrom + 9, INT_MAX, -1, -3,
                b.patternTo + 1, b.patternTo, b.patternTo - 20, INT_MIN};
    }
}

// Every member against the model: two images, in place into a copy of the second; an image and
// a constant, in place into a copy of the image.
template <class T> void sweep_member(const Member<T>& m, kit::Rng& rng)
{
    arith_sweep::sweep_scaled<T>(
        m, rng, scale_factors<T>(m.kind), m.channels == 1 ? 100 : 40,
        [&](const arith_sweep::Step& s) { return s.width % 7 == 0 ? T(0) : edgy<T>(rng); },
        [&](T s1, T s2, int n) { return images_model(m.kind, s1, s2, n); },
        [&](T s, T v, int n) { return model(m.kind, s, v, n); });
}

TEST(AddSub, EveryMemberMatchesTheModelOverTheSweep)
{
    const auto sweep = [](auto, const auto& m, kit::Rng& rng) { sweep_member(m, rng); };
    arith_sweep::each_member<Kel8u, Kel16u, Kel16s, Kel32f>(kMembers, sweep);
}

// The short-cut bounds sit exactly where the rule turns constant: one step inside them some
// result still depends on the scale factor, at them and beyond none does.
template <class T> void check_bounds(AddSub k, keli::scale::ShortCuts b)
{
    const std::int64_t lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
    auto results = [&](int n, auto&& pred) {
        bool all = true;
        for (std::int64_t x = lo; x <= hi; x += (hi - lo) / 509 + 1)
            for (std::int64_t y : {lo, lo + 1, std::int64_t(0), std::int64_t(1), hi - 1, hi, x / 2, x - 1, x + 1}) {
                const T a = T(x), c = T(y);  // neighbours wrap around the range
                const T r = model(k, a, c, n);
                const std::int64_t exact = k == AddSub::Add ? std::int64_t(a) + c : std::int64_t(a) - c;
                all = all && pred(r, exact);
            }
        return all;
    };
    auto zero = [](T r, std::int64_t) { return r == 0; };
    auto sign = [&](T r, std::int64_t e) { return r == (e > 0 ? hi : e < 0 ? (lo < 0 ? lo : 0) : 0); };
    EXPECT_FALSE(results(b.zeroFrom - 1, zero)) << "zero bound too high";
    for (int n : {b.zeroFrom, b.zeroFrom + 1, 31, 64}) EXPECT_TRUE(results(n, zero)) << n;
    // (16s saturates every non-zero result from a shift of 15 on; its bound keeps the left shift
    // there all the same.)
    if (std::is_unsigned_v<T>) {
        EXPECT_FALSE(results(b.patternTo + 1, sign)) << "pattern bound too low";
    }
    for (int n : {b.patternTo, b.patternTo - 1, -31, -64}) EXPECT_TRUE(results(n, sign)) << n;
}

TEST(AddSub, ShortCutBoundsAreWhereTheRuleTurnsConstant)
{
    using keli::rows::kAddSubShortCuts;
    check_bounds<Kel8u>(AddSub::Add, kAddSubShortCuts<AddSub::Add, Kel8u>);
    check_bounds<Kel8u>(AddSub::Sub, kAddSubShortCuts<AddSub::Sub, Kel8u>);
    check_bounds<Kel16u>(AddSub::Add, kAddSubShortCuts<AddSub::Add, Kel16u>);
    check_bounds<Kel16u>(AddSub::Sub, kAddSubShortCuts<AddSub::Sub, Kel16u>);
    check_bounds<Kel16s>(AddSub::Add, kAddSubShortCuts<AddSub::Add, Kel16s>);
    check_bounds<Kel16s>(AddSub::Sub, kAddSubShortCuts<AddSub::Sub, Kel16s>);
}

// One element through a C1 member.
template <class T, class F> T one(F f, T a, T b, int n) { return arith_sweep::one_element<T>(kelStatusOk, f, a, b, n); }

TEST(AddSub, RoundingAndSaturationWhereTheyBite)
{
    EXPECT_EQ(one<Kel8u>(keliAdd_8u_C1RSfs, 200, 100, 0), 255);
    EXPECT_EQ(one<Kel8u>(keliAdd_8u_C1RSfs, 3, 0, 1), 2);  // 1.5 to even
    EXPECT_EQ(one<Kel8u>(keliAdd_8u_C1RSfs, 1, 0, 1), 0);  // 0.5 to even
    EXPECT_EQ(one<Kel8u>(keliAdd_8u_C1RSfs, 5, 0, 1), 2);  // 2.5 to even
    EXPECT_EQ(one<Kel8u>(keliAdd_8u_C1RSfs, 7, 5, 3), 2);  // 1.5 to even with a general shift
    EXPECT_EQ(one<Kel8u>(keliAdd_8u_C1RSfs, 255, 255, 9), 1);
    EXPECT_EQ(one<Kel8u>(keliAdd_8u_C1RSfs, 255, 255, 10), 0);
    EXPECT_EQ(one<Kel8u>(keliSub_8u_C1RSfs, 10, 3, 0), 0);  // src2 - src1 below zero
    EXPECT_EQ(one<Kel8u>(keliSub_8u_C1RSfs, 3, 10, 0), 7);
    EXPECT_EQ(one<Kel8u>(keliSub_8u_C1RSfs, 10, 3, -8), 0);  // clamped before scaling
    EXPECT_EQ(one<Kel8u>(keliAdd_8u_C1RSfs, 1, 0, -8), 255);
    EXPECT_EQ(one<Kel8u>(keliAdd_8u_C1RSfs, 0, 0, -8), 0);
    EXPECT_EQ(one<Kel8u>(keliAdd_8u_C1RSfs, 1, 0, -3), 8);
    EXPECT_EQ(one<Kel8u>(keliAdd_8u_C1RSfs, 16, 15, -3), 248);
    EXPECT_EQ(one<Kel8u>(keliAdd_8u_C1RSfs, 16, 16, -3), 255);
    EXPECT_EQ(one<Kel16s>(keliAdd_16s_C1RSfs, -32768, -32768, 1), -32768);
    EXPECT_EQ(one<Kel16s>(keliAdd_16s_C1RSfs, -32768, -32768, 16), -1);
    EXPECT_EQ(one<Kel16s>(keliAdd_16s_C1RSfs, -32768, -32768, 17), 0);
    EXPECT_EQ(one<Kel16s>(keliSub_16s_C1RSfs, -32768, 32767, 1), 32767);  // 32767.5 rounds up, saturates
    EXPECT_EQ(one<Kel16s>(keliSub_16s_C1RSfs, 1, 0, -15), -32768);
    EXPECT_EQ(one<Kel16s>(keliSub_16s_C1RSfs, 0, 1, -15), 32767);
    EXPECT_EQ(one<Kel16s>(keliAdd_16s_C1RSfs, -1, 0, -40), -32768);
    EXPECT_EQ(one<Kel16u>(keliAdd_16u_C1RSfs, 65535, 65535, 17), 1);
    EXPECT_EQ(one<Kel16u>(keliAdd_16u_C1RSfs, 65535, 65534, 1), 65534);  // 65534.5 to even
    EXPECT_EQ(one<Kel16u>(keliAdd_16u_C1RSfs, 1, 0, -15), 32768);
    EXPECT_TRUE(std::isnan(one<Kel32f>(bin32f<keliAdd_32f_C1R>, INFINITY, -INFINITY, 0)));
}

template <class T> void check_unread_sources(const Member<T>& m, int zeroFrom, int patternTo)
{
    SCOPED_TRACE(m.name);
    arith_sweep::check_zero_bound_unread<T>(m, zeroFrom, [](const T*, kit::Image<T>&, int) {});
    if (m.kind == AddSub::Add && std::is_unsigned_v<T>) {
        // A non-zero addend with a shift out of reach: the largest value, the source unread.
        const T values[4] = {1, 1, 1, T(m.alpha ? 0 : 1)};  // AC4 ignores the fourth value
        arith_sweep::check_fills_unread<T>(
            {m.channels, m.alpha}, {patternTo, INT_MIN}, std::numeric_limits<T>::max(),
            [&](const T* src, kit::Image<T>& d, int n) {
                ASSERT_EQ(m.cr(src, 64, values, d.data(), d.step(), d.size(), n), kelStatusOk);
            });
    }
}

TEST(AddSub, ShortCutsLeaveTheSourcesUnread)
{
    using keli::rows::kAddSubShortCuts;
    for (const auto& m : members<Kel8u>())
        check_unread_sources(m, m.kind == AddSub::Add ? 10 : 9, -8);
    for (const auto& m : members<Kel16u>())
        check_unread_sources(m, m.kind == AddSub::Add ? 18 : 17, -16);
    for (const auto& m : members<Kel16s>()) check_unread_sources(m, 17, -16);

    // Adding zero in place without a scale factor touches nothing at all.
    const Unreadable page;
    EXPECT_EQ(keliAddC_8u_C1IRSfs(0, page.as<Kel8u>(), 64, {16, 4}, 0), kelStatusOk);
    EXPECT_EQ(keliSubC_16s_C1IRSfs(0, page.as<Kel16s>(), 64, {16, 4}, 0), kelStatusOk);
    EXPECT_EQ(keliAddC_16u_C1IRSfs_L(0, page.as<Kel16u>(), 64, {16, 4}, 0), kelStatusOk);
}

TEST(AddSub, ZeroOperandCopiesAndAlphaStaysOverWideRows)
{
    // keliAddC with 0 and no scale copies the source; keliSubC the same.
    kit::Image<Kel16s> src(300, 2, 1), dst(300, 2, 1);
    kit::Rng rng;
    src.fill([&] { return rng.any<Kel16s>(); });
    ASSERT_EQ(keliSubC_16s_C1RSfs(src.data(), src.step(), 0, dst.data(), dst.step(), src.size(), 0), kelStatusOk);
    for (int x = 0; x < 300; ++x) ASSERT_EQ(dst.at(x, 1), src.at(x, 1));

    // 300 AC4 pixels: every destination alpha stays, with both image and constant operands.
    kit::Image<Kel8u> a(300, 2, 4), b(300, 2, 4), d(300, 2, 4);
    a.fill([&] { return rng.any<Kel8u>(); });
    b.fill([&] { return rng.any<Kel8u>(); });
    d.fill([&] { return rng.any<Kel8u>(); });
    const kit::Image<Kel8u> before = d;
    const Kel8u values[3] = {10, 20, 30};
    for (int n : {0, 1, 4, -2, -9}) {
        ASSERT_EQ(keliAdd_8u_AC4RSfs(a.data(), a.step(), b.data(), b.step(), d.data(), d.step(), a.size(), n), 0);
        for (int y = 0; y < 2; ++y)
            for (int x = 0; x < 300; ++x) ASSERT_EQ(d.at(x, y, 3), before.at(x, y, 3)) << n;
        ASSERT_EQ(keliSubC_8u_AC4IRSfs(values, d.data(), d.step(), d.size(), n), 0);
        for (int y = 0; y < 2; ++y)
            for (int x = 0; x < 300; ++x) ASSERT_EQ(d.at(x, y, 3), before.at(x, y, 3)) << n;
    }
}

TEST(AddSub, StepsAreTakenAsTheyStand)
{
    arith_sweep::check_steps_as_given<Kel8u>(
        keliSub_8u_C1RSfs, 1, [](Kel8u s1, Kel8u s2, int n) { return reference::sub(s2, s1, n); },  // s2 - s1
        keliAdd_8u_C1RSfs, 2, [](Kel8u s1, Kel8u s2, int n) { return reference::add(s1, s2, n); });
}

TEST(AddSub, ChecksRunInOrderAndWriteNothing)
{
    const Kel16u values[3] = {1, 2, 3};
    arith_sweep::check_pointers_before_size(
        values, {keliSub_16u_C4RSfs, 3, keliAdd_16u_AC4IRSfs, keliAdd_16u_C1RSfs_L, keliAddC_16u_C3RSfs,
                 keliSubC_16u_AC4IRSfs_L, keliAddC_16u_C1RSfs, keliSubC_16u_C1IRSfs});
    // The wide members' own rule for sizes that do not fit the 32-bit members: accepted, no work.
    Kel8u src[64] = {}, dst[64];
    std::memset(dst, 0xA5, sizeof dst);
    const std::int64_t huge = std::int64_t(1) << 32;
    EXPECT_EQ(keliAdd_8u_C1RSfs_L(nullptr, huge, nullptr, huge, nullptr, huge, {5, -1}, 0), kelStatusOk);
    EXPECT_EQ(keliAdd_8u_C1RSfs_L(src, 64, src, 64, dst, 64, {5, -1}, 0), kelStatusBadSize);
    for (Kel8u v : dst) ASSERT_EQ(v, 0xA5);
}

}  // namespace
