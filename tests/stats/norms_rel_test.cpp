// keliNormRel: every member against the model of its quotient over a short sweep, the table of
// divisors of zero with its exact not-a-number, and the check order.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "keli.h"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "kit/sweep.hpp"
#include "reference/norms.hpp"

namespace {

using reference::Norm;
using reference::View;

constexpr double kCanary = -12345.678;
constexpr std::uint64_t kNothingOverNothing = 0xFFF8000000000000ull;

std::uint64_t bits(double x)
{
    std::uint64_t b;
    std::memcpy(&b, &x, sizeof b);
    return b;
}

template <class T> using RelFn = KelStatus (*)(const T*, int, const T*, int, KeliSize, Kel64f*);
using RelHFn = KelStatus (*)(const Kel32f*, int, const Kel32f*, int, KeliSize, Kel64f*, KelHintAlgorithm);
template <class T> using Member = std::function<KelStatus(View<T>, View<T>, int, double*)>;

template <class T> Member<T> rel(RelFn<T> f)
{
    return [f](View<T> a, View<T> b, int, double* o) { return f(a.base, a.step, b.base, b.step, {a.width, a.height}, o); };
}
Member<Kel32f> rel(RelHFn f)
{
    // The enumeration has a full 32-bit base, so any hint value, listed or not, converts to it.
    return [f](View<Kel32f> a, View<Kel32f> b, int h, double* o) {
        return f(a.base, a.step, b.base, b.step, {a.width, a.height}, o, static_cast<KelHintAlgorithm>(h));
    };
}

template <class T> struct Case {
    Norm kind;
    int channels;
    Member<T> fn;
};

#define KELI_REL(T, K, TT)                                                                                         \
    Case<T>{Norm::K, 1, rel(keliNormRel_##K##_##TT##_C1R)}, Case<T>{Norm::K, 3, rel(keliNormRel_##K##_##TT##_C3R)}, \
        Case<T>{Norm::K, 4, rel(keliNormRel_##K##_##TT##_C4R)}
#define KELI_REL_ALL(T, TT) std::vector<Case<T>>{KELI_REL(T, Inf, TT), KELI_REL(T, L1, TT), KELI_REL(T, L2, TT)}

template <class T> std::vector<Case<T>> cases();
template <> std::vector<Case<Kel8u>> cases() { return KELI_REL_ALL(Kel8u, 8u); }
template <> std::vector<Case<Kel16u>> cases() { return KELI_REL_ALL(Kel16u, 16u); }
template <> std::vector<Case<Kel16s>> cases() { return KELI_REL_ALL(Kel16s, 16s); }
template <> std::vector<Case<Kel32f>> cases() { return KELI_REL_ALL(Kel32f, 32f); }

// The quotient per channel from the two totals, with the table of divisors of zero.
template <class T> KelStatus model(Norm k, View<T> a, View<T> b, int hint, double* out)
{
    double num[4], den[4];
    reference::total(k, a, b, hint, num);
    reference::total(k, b, View<T>{}, hint, den);
    KelStatus s = kelStatusOk;
    const double tiny = std::numeric_limits<double>::min();
    for (int c = 0; c < a.channels; ++c) {
        const bool zeroDen = std::is_same_v<T, Kel32f> ? den[c] < tiny : den[c] == 0;
        const bool zeroNum = std::is_same_v<T, Kel32f> ? num[c] < tiny : num[c] == 0;
        if (zeroDen) {
            s = kelStatusDivByZeroWarn;
            if (zeroNum) std::memcpy(&out[c], &kNothingOverNothing, 8);
            else out[c] = std::numeric_limits<double>::infinity();
        } else {
            out[c] = k == Norm::L2 ? std::sqrt(num[c] / den[c]) : num[c] / den[c];
        }
    }
    return s;
}

template <class T> T draw(kit::Rng& rng, bool zeros)
{
    if (zeros && rng.below(4)) return T(0);
    if constexpr (std::is_same_v<T, Kel32f>) return std::ldexp(rng.any<float>(), rng.below(20) - 10);
    else return rng.any<T>();
}

template <class T> void sweep_type(std::vector<int> hints)
{
    kit::Rng rng;
    kit::SweepOptions o;
    o.maxWidth = 24;
    o.elementBytes = sizeof(T);
    for (const Case<T>& cs : cases<T>())
        kit::sweep(o, [&](const kit::Geometry& g) {
            SCOPED_TRACE(g.describe() + " kind " + std::to_string(int(cs.kind)) + " channels " + std::to_string(cs.channels));
            // Some second images are all zero, so that the table of zero divisors shows too.
            const bool zeroB = g.width % 5 == 0, sameA = g.width % 10 == 0;
            kit::Image<T> a(g.width, g.height, cs.channels, g.src), b(g.width, g.height, cs.channels, g.dst);
            b.fill([&] { return zeroB ? T(0) : draw<T>(rng, false); });
            a.fill([&] { return sameA ? T(0) : draw<T>(rng, true); });
            const View<T> va{a.data(), a.step(), g.width, g.height, cs.channels}, vb{b.data(), b.step(), g.width, g.height, cs.channels};
            for (int hint : (cs.kind == Norm::Inf ? std::vector<int>{0} : hints)) {
                double want[4], out[5] = {kCanary, kCanary, kCanary, kCanary, kCanary};
                const KelStatus ws = model(cs.kind, va, vb, hint, want);
                ASSERT_EQ(cs.fn(va, vb, hint, out), ws) << "hint " << hint;
                for (int c = 0; c < cs.channels; ++c)
                    ASSERT_EQ(bits(out[c]), bits(want[c])) << "hint " << hint << " channel " << c << ": " << out[c] << " want " << want[c];
                ASSERT_EQ(out[cs.channels], kCanary);
            }
        });
}

TEST(NormRel, MembersMatchTheModelOverTheSweep)
{
    sweep_type<Kel8u>({0});
    sweep_type<Kel16u>({0});
    sweep_type<Kel16s>({0});
    sweep_type<Kel32f>({kelAlgHintFast, kelAlgHintAccurate, 9});
}

TEST(NormRel, DivisorsOfZero)
{
    const Kel8u zero[4] = {0, 0, 0, 0}, some[4] = {0, 3, 0, 4};
    double v = 0;
    ASSERT_EQ(keliNormRel_L2_8u_C1R(zero, 4, zero, 4, {4, 1}, &v), kelStatusDivByZeroWarn);
    EXPECT_EQ(bits(v), kNothingOverNothing);
    ASSERT_EQ(keliNormRel_L2_8u_C1R(some, 4, zero, 4, {4, 1}, &v), kelStatusDivByZeroWarn);
    EXPECT_EQ(v, std::numeric_limits<double>::infinity());
    ASSERT_EQ(keliNormRel_L2_8u_C1R(zero, 4, some, 4, {4, 1}, &v), kelStatusOk);
    EXPECT_EQ(v, 1.0);

    // One channel of four without a divisor: the warning, and every channel written.
    double four[4] = {kCanary, kCanary, kCanary, kCanary};
    const Kel16s px[4] = {2, 0, -3, 4}, ref[4] = {1, 0, 0, 2};
    ASSERT_EQ(keliNormRel_L1_16s_C4R(px, 8, ref, 8, {1, 1}, four), kelStatusDivByZeroWarn);
    EXPECT_EQ(four[0], 1.0);
    EXPECT_EQ(bits(four[1]), kNothingOverNothing);
    EXPECT_EQ(four[2], std::numeric_limits<double>::infinity());
    EXPECT_EQ(four[3], 1.0);

    // 32f squares of 1e-30 vanish in 32-bit floats but not in 64-bit ones: the fast path has no
    // divisor, the accurate path has one.
    const Kel32f tinyA[2] = {2e-30f, 0}, tinyB[2] = {1e-30f, 0};
    ASSERT_EQ(keliNormRel_L2_32f_C1R(tinyA, 8, tinyB, 8, {2, 1}, &v, kelAlgHintFast), kelStatusDivByZeroWarn);
    EXPECT_EQ(bits(v), kNothingOverNothing);
    ASSERT_EQ(keliNormRel_L2_32f_C1R(tinyA, 8, tinyB, 8, {2, 1}, &v, kelAlgHintAccurate), kelStatusOk);
    EXPECT_NEAR(v, 1.0, 1e-6);
    const Kel32f nan[1] = {std::numeric_limits<float>::quiet_NaN()}, one[1] = {1.0f};
    ASSERT_EQ(keliNormRel_Inf_32f_C1R(nan, 4, one, 4, {1, 1}, &v), kelStatusOk);
    EXPECT_TRUE(std::isnan(v));
}

template <class T> void check_order(const Case<T>& cs)
{
    T img[64] = {};
    const View<T> ok{img, 16 * int(sizeof(T)), 2, 2, cs.channels};
    auto run = [&](View<T> a, View<T> b, bool nullOut) {
        double out[4] = {kCanary, kCanary, kCanary, kCanary};
        const KelStatus s = cs.fn(a, b, 0, nullOut ? nullptr : out);
        for (double x : out) EXPECT_EQ(x, kCanary);
        return s;
    };
    View<T> nul = ok, badSize = ok, badStep = ok, both = ok;
    nul.base = nullptr;
    nul.width = 0;
    badSize.height = 0;
    badStep.step = -2;
    both.width = -1;
    both.step = 0;
    EXPECT_EQ(run(nul, ok, false), kelStatusNullPtr);
    EXPECT_EQ(run(ok, nul, false), kelStatusNullPtr);
    EXPECT_EQ(run(badSize, ok, true), kelStatusNullPtr);
    EXPECT_EQ(run(badSize, ok, false), kelStatusBadSize);
    EXPECT_EQ(run(ok, badStep, false), kelStatusBadStep);
    const KelStatus stepOrSize = std::is_same_v<T, Kel16u> ? kelStatusBadStep : kelStatusBadSize;
    EXPECT_EQ(run(both, ok, false), stepOrSize);
}

TEST(NormRel, ChecksInOrderWriteNothing)
{
    for (const auto& cs : cases<Kel8u>()) check_order(cs);
    for (const auto& cs : cases<Kel16u>()) check_order(cs);
    for (const auto& cs : cases<Kel16s>()) check_order(cs);
    for (const auto& cs : cases<Kel32f>()) check_order(cs);
}

}  // namespace
