// keliCompare*, keliCompareEqualEps* and keliCountInRange*: every member against the scalar
// model over the geometry sweep, the not-a-number rules, the streamed path, the 32-bit wrap
// of the count, and the check orders.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include "keli.h"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "kit/sweep.hpp"
#include "reference/compare.hpp"

namespace {

// What a member gets: two images (or one image and a constant array), the mask, and the
// relation (a cmpOp, or the tolerance of the eps forms).
template <class T> struct Args {
    const T* a;
    int aStep;
    const T* b;
    int bStep;
    const T* value;
    Kel8u* dst;
    int dstStep;
    KeliSize size;
    int cmp;
    float eps;
};

template <class T> struct Member {
    std::string name;
    int channels;
    bool alpha, constant, eps;
    std::function<KelStatus(const Args<T>&)> call;
    int processed() const { return alpha ? 3 : channels; }
};

template <class T> using PairFn = KelStatus (*)(const T*, int, const T*, int, Kel8u*, int, KeliSize, KelCmpOp);
template <class T> using ConstFn = KelStatus (*)(const T*, int, const T*, Kel8u*, int, KeliSize, KelCmpOp);
template <class T> using ConstC1Fn = KelStatus (*)(const T*, int, T, Kel8u*, int, KeliSize, KelCmpOp);
using EpsFn = KelStatus (*)(const float*, int, const float*, int, Kel8u*, int, KeliSize, float);
using EpsCFn = KelStatus (*)(const float*, int, const float*, Kel8u*, int, KeliSize, float);
using EpsC1Fn = KelStatus (*)(const float*, int, float, Kel8u*, int, KeliSize, float);

template <class T> Member<T> pair(const char* name, PairFn<T> f, int ch, bool alpha)
{
    return {name, ch, alpha, false, false,
            [f](const Args<T>& a) { return f(a.a, a.aStep, a.b, a.bStep, a.dst, a.dstStep, a.size, KelCmpOp(a.cmp)); }};
}
template <class T> Member<T> constant(const char* name, ConstFn<T> f, int ch, bool alpha)
{
    return {name, ch, alpha, true, false,
            [f](const Args<T>& a) { return f(a.a, a.aStep, a.value, a.dst, a.dstStep, a.size, KelCmpOp(a.cmp)); }};
}
template <class T> Member<T> constant(const char* name, ConstC1Fn<T> f, int, bool)
{
    return {name, 1, false, true, false,
            [f](const Args<T>& a) { return f(a.a, a.aStep, *a.value, a.dst, a.dstStep, a.size, KelCmpOp(a.cmp)); }};
}
Member<float> eps_pair(const char* name, EpsFn f, int ch, bool alpha)
{
    return {name, ch, alpha, false, true,
            [f](const Args<float>& a) { return f(a.a, a.aStep, a.b, a.bStep, a.dst, a.dstStep, a.size, a.eps); }};
}
Member<float> eps_const(const char* name, EpsCFn f, int ch, bool alpha)
{
    return {name, ch, alpha, true, true,
            [f](const Args<float>& a) { return f(a.a, a.aStep, a.value, a.dst, a.dstStep, a.size, a.eps); }};
}
Member<float> eps_const(const char* name, EpsC1Fn f, int, bool)
{
    return {name, 1, false, true, true,
            [f](const Args<float>& a) { return f(a.a, a.aStep, *a.value, a.dst, a.dstStep, a.size, a.eps); }};
}

#define KC_FORMS(MAKE, F, T)                                                                               \
    MAKE(#F "_" #T "_C1R", F##_##T##_C1R, 1, false), MAKE(#F "_" #T "_C3R", F##_##T##_C3R, 3, false),       \
        MAKE(#F "_" #T "_C4R", F##_##T##_C4R, 4, false), MAKE(#F "_" #T "_AC4R", F##_##T##_AC4R, 4, true)
#define KC_MEMBERS(T)                                                                                           \
    std::vector<Member<Kel##T>> members_##T()                                                                   \
    {                                                                                                           \
        return {KC_FORMS(pair<Kel##T>, keliCompare, T), KC_FORMS(constant<Kel##T>, keliCompareC, T)};           \
    }
KC_MEMBERS(8u)
KC_MEMBERS(16u)
KC_MEMBERS(16s)

std::vector<Member<Kel32f>> members_32f()
{
    return {KC_FORMS(pair<Kel32f>, keliCompare, 32f), KC_FORMS(constant<Kel32f>, keliCompareC, 32f),
            KC_FORMS(eps_pair, keliCompareEqualEps, 32f), KC_FORMS(eps_const, keliCompareEqualEpsC, 32f)};
}

template <class T> std::vector<Member<T>> members()
{
    if constexpr (std::is_same_v<T, Kel8u>) return members_8u();
    else if constexpr (std::is_same_v<T, Kel16u>) return members_16u();
    else if constexpr (std::is_same_v<T, Kel16s>) return members_16s();
    else return members_32f();
}

// Values that make relations interesting: the type's ends, and for 32f the specials.
template <class T> T edge(kit::Rng& rng)
{
    if constexpr (std::is_floating_point_v<T>) {
        static const T specials[] = {NAN, INFINITY, -INFINITY, 0.0f, -0.0f, 1.5f, -2.0f, 1e-40f};
        return specials[rng.below(8)];
    } else {
        static const T ends[] = {std::numeric_limits<T>::min(), T(std::numeric_limits<T>::min() + 1), T(0), T(1),
                                 T(std::numeric_limits<T>::max() - 1), std::numeric_limits<T>::max()};
        return ends[rng.below(6)];
    }
}

// A partner for `b`: mostly equal or next to it, so that every channel of a pixel holds often.
template <class T> T near(kit::Rng& rng, T b)
{
    switch (rng.below(6)) {
    case 0:
    case 1: return b;
    case 2: return T(b + T(1));
    case 3: return T(b - T(1));
    case 4: return edge<T>(rng);
    default: return std::is_floating_point_v<T> ? T(b + T(0.25)) : rng.any<T>();
    }
}

template <class T> bool model(const Member<T>& m, int cmp, float eps, T a, T b)
{
    if constexpr (std::is_floating_point_v<T>)
        if (m.eps) return reference::equal_eps(a, b, eps);
    return reference::relation(cmp, a, b);
}

template <class T> void sweep_member(const Member<T>& m, int cmp, float eps)
{
    kit::Rng rng;
    kit::SweepOptions o;
    o.elementBytes = sizeof(T);
    o.maxWidth = 52;  // three 16-pixel blocks and every tail length
    kit::sweep(o, [&](const kit::Geometry& g) {
        SCOPED_TRACE(m.name + " cmp " + std::to_string(cmp) + " eps " + std::to_string(eps) + " " + g.describe());
        kit::Image<T> a(g.width, g.height, m.channels, g.src), b(g.width, g.height, m.channels, g.dst);
        kit::Image<Kel8u> dst(g.width, g.height, 1, g.dst);
        T value[4];
        for (T& v : value) v = rng.below(4) ? T(rng.below(9) - 4 + (std::is_signed_v<T> ? 0 : 5)) : edge<T>(rng);
        for (int y = 0; y < g.height; ++y)
            for (int x = 0; x < g.width; ++x)
                for (int c = 0; c < m.channels; ++c) {
                    b.at(x, y, c) = rng.below(3) ? T(rng.below(9)) : rng.any<T>();
                    a.at(x, y, c) = near(rng, m.constant ? value[c] : b.at(x, y, c));
                }
        dst.fill([&] { return Kel8u(rng.any<Kel8u>() | 1); });  // neither 0 nor 255
        const auto aBefore = a.snapshot(), bBefore = b.snapshot(), dstBefore = dst.snapshot();
        const Args<T> args{a.data(), a.step(), b.data(), b.step(), value, dst.data(), dst.step(), a.size(), cmp, eps};
        ASSERT_EQ(m.call(args), kelStatusOk);
        EXPECT_EQ(a.bytes(), aBefore) << "source changed";
        EXPECT_EQ(b.bytes(), bBefore) << "source changed";
        EXPECT_EQ(kit::first_stray_write(dst, dstBefore, kit::any_element), -1) << "write outside the mask";
        for (int y = 0; y < g.height; ++y)
            for (int x = 0; x < g.width; ++x) {
                bool hit = true;
                for (int c = 0; c < m.processed(); ++c)
                    hit = hit && model(m, cmp, eps, a.at(x, y, c), m.constant ? value[c] : b.at(x, y, c));
                ASSERT_EQ(dst.at(x, y), hit ? 255 : 0) << "at x " << x << " y " << y;
            }
    });
}

template <class T> void sweep_all()
{
    for (const Member<T>& m : members<T>()) {
        if (m.eps) {
            for (float eps : {0.0f, 1.0f, 0.3f, INFINITY}) sweep_member(m, 0, eps);
        } else {
            for (int cmp = kelCmpLess; cmp <= kelCmpGreater; ++cmp) sweep_member(m, cmp, 0.0f);
        }
    }
}

TEST(Compare, EveryMemberMatchesTheModelOverTheSweep8u) { sweep_all<Kel8u>(); }
TEST(Compare, EveryMemberMatchesTheModelOverTheSweep16u) { sweep_all<Kel16u>(); }
TEST(Compare, EveryMemberMatchesTheModelOverTheSweep16s) { sweep_all<Kel16s>(); }
TEST(Compare, EveryMemberMatchesTheModelOverTheSweep32f) { sweep_all<Kel32f>(); }

TEST(Compare, ListsEveryMemberOnce)
{
    std::vector<std::string> names;
    for (auto& m : members<Kel8u>()) names.push_back(m.name);
    for (auto& m : members<Kel16u>()) names.push_back(m.name);
    for (auto& m : members<Kel16s>()) names.push_back(m.name);
    for (auto& m : members<Kel32f>()) names.push_back(m.name);
    std::sort(names.begin(), names.end());
    EXPECT_EQ(std::unique(names.begin(), names.end()), names.end());
    EXPECT_EQ(names.size(), 40u);
}

// Every pair of byte values, and pairs of words at and around the ends of their range, in one
// long row each: a compare of the wrong signedness or a wrapping difference shows here.
template <class T> void every_value_pair()
{
    constexpr long lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
    std::vector<long> values;
    if (sizeof(T) == 1) {
        for (long v = lo; v <= hi; ++v) values.push_back(v);
    } else {
        for (long v : {lo, lo + 1, lo + 2, -2L, -1L, 0L, 1L, 2L, hi / 2, hi / 2 + 1, hi - 1, hi})
            if (v >= lo && v <= hi) values.push_back(v);
    }
    std::vector<T> a, b;
    for (long x : values)
        for (long y : values) a.push_back(T(x)), b.push_back(T(y));
    std::vector<Kel8u> dst(a.size());
    const int step = int(a.size() * sizeof(T));
    const KeliSize size{int(a.size()), 1};
    for (int cmp = kelCmpLess; cmp <= kelCmpGreater; ++cmp) {
        ASSERT_EQ(members<T>()[0].call({a.data(), step, b.data(), step, nullptr, dst.data(), step, size, cmp, 0}),
                  kelStatusOk);
        for (std::size_t i = 0; i < a.size(); ++i)
            ASSERT_EQ(dst[i], reference::relation(cmp, a[i], b[i]) ? 255 : 0)
                << "cmp " << cmp << " " << long(a[i]) << " " << long(b[i]);
    }
}

TEST(Compare, IntegerRelationsHoldOverTheWholeRange)
{
    every_value_pair<Kel8u>();
    every_value_pair<Kel16u>();
    every_value_pair<Kel16s>();
}

TEST(Compare, NotANumberMakesEveryRelationFalse)
{
    // 40 pixels: the vector blocks and the scalar tail both meet it.
    std::vector<float> nan(40, NAN), one(40, 1.0f), inf(40, INFINITY);
    std::vector<Kel8u> dst(40);
    const KeliSize size{40, 1};
    auto all = [&](Kel8u want, const char* what, int cmp) {
        for (Kel8u d : dst) ASSERT_EQ(d, want) << what << " cmp " << cmp;
    };
    for (int cmp = kelCmpLess; cmp <= kelCmpGreater; ++cmp) {
        const KelCmpOp op = KelCmpOp(cmp);
        ASSERT_EQ(keliCompare_32f_C1R(nan.data(), 160, one.data(), 160, dst.data(), 40, size, op), kelStatusOk);
        all(0, "nan first", cmp);
        ASSERT_EQ(keliCompare_32f_C1R(one.data(), 160, nan.data(), 160, dst.data(), 40, size, op), kelStatusOk);
        all(0, "nan second", cmp);
        ASSERT_EQ(keliCompareC_32f_C1R(nan.data(), 160, 1.0f, dst.data(), 40, size, op), kelStatusOk);
        all(0, "nan image", cmp);
        ASSERT_EQ(keliCompareC_32f_C1R(one.data(), 160, NAN, dst.data(), 40, size, op), kelStatusOk);
        all(0, "nan value", cmp);
    }
    // Equal infinities are equal; their difference is not-a-number, so no eps admits them.
    ASSERT_EQ(keliCompare_32f_C1R(inf.data(), 160, inf.data(), 160, dst.data(), 40, size, kelCmpEq), kelStatusOk);
    all(255, "inf == inf", kelCmpEq);
    ASSERT_EQ(keliCompareEqualEps_32f_C1R(inf.data(), 160, inf.data(), 160, dst.data(), 40, size, INFINITY),
              kelStatusOk);
    all(0, "inf within eps", kelCmpEq);
    ASSERT_EQ(keliCompareEqualEpsC_32f_C1R(one.data(), 160, 1.0f, dst.data(), 40, size, NAN), kelStatusOk);
    all(0, "nan eps", kelCmpEq);
    ASSERT_EQ(keliCompareEqualEps_32f_C1R(one.data(), 160, one.data(), 160, dst.data(), 40, size, 0.0f), kelStatusOk);
    all(255, "zero eps", kelCmpEq);
}

TEST(Compare, MultiChannelNeedsEveryProcessedChannel)
{
    // Two channels less and one equal fail less; a differing fourth element of AC4 is ignored.
    const Kel8u a3[3] = {1, 2, 3}, b3[3] = {2, 3, 3};
    Kel8u d = 7;
    ASSERT_EQ(keliCompare_8u_C3R(a3, 3, b3, 3, &d, 1, {1, 1}, kelCmpLess), kelStatusOk);
    EXPECT_EQ(d, 0);
    ASSERT_EQ(keliCompare_8u_C3R(a3, 3, b3, 3, &d, 1, {1, 1}, kelCmpLessEq), kelStatusOk);
    EXPECT_EQ(d, 255);
    std::vector<Kel8u> a(4 * 20), b(4 * 20), mask(20);
    for (int i = 0; i < 80; ++i) a[i] = b[i] = Kel8u(i), b[i] = i % 4 == 3 ? Kel8u(~i) : b[i];
    ASSERT_EQ(keliCompare_8u_AC4R(a.data(), 80, b.data(), 80, mask.data(), 20, {20, 1}, kelCmpEq), kelStatusOk);
    for (Kel8u m : mask) EXPECT_EQ(m, 255);
    ASSERT_EQ(keliCompare_8u_C4R(a.data(), 80, b.data(), 80, mask.data(), 20, {20, 1}, kelCmpEq), kelStatusOk);
    for (Kel8u m : mask) EXPECT_EQ(m, 0);
}

TEST(Compare, StreamedMaskEqualsTheModel)
{
    // Every pointer and step a multiple of 16 and over a megabyte of rows: the mask goes past
    // the cache, whole blocks streamed and the tail of each row stored normally.
    const int width = 1000, height = 400;
    kit::Image<Kel16s> a(width, height, 3, {0, 16, false}), b(width, height, 3, {0, 16, false});
    kit::Image<Kel8u> dst(width, height, 1, {0, 8, false});
    ASSERT_EQ(a.step() % 16, 0);
    ASSERT_EQ(dst.step() % 16, 0);
    kit::Rng rng;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width * 3; ++x) {
            b.at(0, y, x) = Kel16s(rng.below(3));
            a.at(0, y, x) = Kel16s(rng.below(3));
        }
    const auto before = dst.snapshot();
    ASSERT_EQ(keliCompare_16s_C3R(a.data(), a.step(), b.data(), b.step(), dst.data(), dst.step(), a.size(),
                                  kelCmpGreaterEq),
              kelStatusOk);
    EXPECT_EQ(kit::first_stray_write(dst, before, kit::any_element), -1);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const bool hit = a.at(x, y, 0) >= b.at(x, y, 0) && a.at(x, y, 1) >= b.at(x, y, 1) &&
                             a.at(x, y, 2) >= b.at(x, y, 2);
            ASSERT_EQ(dst.at(x, y), hit ? 255 : 0) << x << " " << y;
        }
}

TEST(Compare, UnknownRelationWritesNothingAndSucceeds)
{
    Kel8u d[8];
    std::memset(d, 0x5A, sizeof d);
    const Kel16u s16[16] = {};
    const float f[16] = {};
    for (int cmp : {-1, 5, 1000}) {
        const KelCmpOp op = KelCmpOp(cmp);
        EXPECT_EQ(keliCompare_8u_C1R(d, 8, d, 8, d, 8, {8, 1}, op), kelStatusOk);
        EXPECT_EQ(keliCompare_32f_AC4R(f, 64, f, 64, d, 8, {4, 1}, op), kelStatusOk);
        EXPECT_EQ(keliCompareC_16u_C1R(s16, 32, 0, d, 8, {8, 1}, op), kelStatusOk);
        EXPECT_EQ(keliCompareC_16u_C3R(s16, 32, s16, d, 8, {4, 1}, op), kelStatusOk);
        EXPECT_EQ(keliCompareC_32f_C4R(f, 64, f, d, 8, {4, 1}, op), kelStatusOk);
        for (Kel8u b : d) ASSERT_EQ(b, 0x5A) << cmp;
    }
}

// Each case breaks the checks up to one, in order; the status must be that check's, and
// nothing may be written.
TEST(Compare, ChecksRunInTheFamilysOrderAndWriteNothing)
{
    const Kel8u src[64] = {};
    const float f[64] = {};
    Kel8u dst[64];
    std::memset(dst, 0x5A, sizeof dst);
    const KeliSize ok{4, 2}, bad{0, 2}, neg{4, -1};
    int counts[3] = {-7, -7, -7};
    const Kel8u lo[3] = {1, 2, 3}, hi[3] = {1, 2, 2};
    const float flo[3] = {NAN, 0, 0}, fhi[3] = {0, 0, -1};
    struct Case {
        KelStatus got, want;
    };
    const Case cases[] = {
        // Compare and CompareC: pointers, steps, size; the relation is never checked.
        {keliCompare_8u_C1R(nullptr, 0, src, 0, dst, 0, bad, KelCmpOp(9)), kelStatusNullPtr},
        {keliCompare_8u_C3R(src, 0, nullptr, 0, dst, 0, bad, kelCmpLess), kelStatusNullPtr},
        {keliCompare_16s_C4R(nullptr, 0, nullptr, 0, nullptr, 0, bad, kelCmpLess), kelStatusNullPtr},
        {keliCompare_8u_C1R(src, 16, src, 16, nullptr, 16, ok, kelCmpLess), kelStatusNullPtr},
        {keliCompare_8u_C1R(src, 0, src, 16, dst, 16, bad, kelCmpLess), kelStatusBadStep},
        {keliCompare_8u_C1R(src, 16, src, -16, dst, 16, neg, kelCmpLess), kelStatusBadStep},
        {keliCompare_32f_AC4R(f, 64, f, 64, dst, 0, bad, kelCmpLess), kelStatusBadStep},
        {keliCompare_8u_C1R(src, 16, src, 16, dst, 16, bad, KelCmpOp(9)), kelStatusBadSize},
        {keliCompare_8u_C1R(src, 16, src, 16, dst, 16, neg, kelCmpLess), kelStatusBadSize},
        {keliCompareC_8u_C3R(src, 16, nullptr, dst, 16, bad, kelCmpLess), kelStatusNullPtr},
        {keliCompareC_8u_C1R(nullptr, 16, 1, dst, 16, bad, kelCmpLess), kelStatusNullPtr},
        {keliCompareC_16u_AC4R(nullptr, 0, nullptr, dst, 0, bad, kelCmpLess), kelStatusNullPtr},
        {keliCompareC_8u_C4R(src, 0, src, dst, 16, bad, kelCmpLess), kelStatusBadStep},
        {keliCompareC_32f_C1R(f, 16, 0, dst, 0, bad, kelCmpLess), kelStatusBadStep},
        {keliCompareC_32f_C1R(f, 16, 0, dst, 16, {2, 0}, kelCmpLess), kelStatusBadSize},
        // The eps forms: the same three, then the tolerance.
        {keliCompareEqualEps_32f_C1R(f, 16, nullptr, 16, dst, 16, bad, -1), kelStatusNullPtr},
        {keliCompareEqualEps_32f_C3R(f, 16, f, 0, dst, 16, bad, -1), kelStatusBadStep},
        {keliCompareEqualEps_32f_C4R(f, 16, f, 16, dst, 16, bad, -1), kelStatusBadSize},
        {keliCompareEqualEps_32f_AC4R(f, 64, f, 64, dst, 16, ok, -1e-30f), kelStatusNegativeEps},
        {keliCompareEqualEpsC_32f_C3R(f, 16, nullptr, dst, 16, bad, -1), kelStatusNullPtr},
        {keliCompareEqualEpsC_32f_C1R(f, 16, 0, dst, -4, bad, -1), kelStatusBadStep},
        {keliCompareEqualEpsC_32f_AC4R(f, 64, f, dst, 16, neg, -1), kelStatusBadSize},
        {keliCompareEqualEpsC_32f_C1R(f, 16, 0, dst, 16, ok, -INFINITY), kelStatusNegativeEps},
    };
    for (std::size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
        EXPECT_EQ(cases[i].got, cases[i].want) << "case " << i;
        for (Kel8u b : dst) ASSERT_EQ(b, 0x5A) << "case " << i;
    }

    // CountInRange: pointers (the bound arrays too), step, size, then each channel's order.
    const Case counting[] = {
        {keliCountInRange_8u_C3R(src, 0, bad, counts, nullptr, hi), kelStatusNullPtr},
        {keliCountInRange_8u_AC4R(src, 0, bad, counts, lo, nullptr), kelStatusNullPtr},
        {keliCountInRange_32f_C1R(f, 0, bad, nullptr, 0, -1), kelStatusNullPtr},
        {keliCountInRange_8u_C1R(nullptr, 16, ok, counts, 1, 0), kelStatusNullPtr},
        {keliCountInRange_8u_C1R(src, 0, bad, counts, 1, 0), kelStatusBadStep},
        {keliCountInRange_32f_C3R(f, 16, neg, counts, fhi, flo), kelStatusBadSize},
        {keliCountInRange_8u_C1R(src, 16, ok, counts, 10, 9), kelStatusBadRange},
        {keliCountInRange_8u_C3R(src, 16, ok, counts, lo, hi), kelStatusBadRange},  // the third channel
        {keliCountInRange_32f_C3R(f, 16, ok, counts, flo, fhi), kelStatusBadRange},
    };
    for (std::size_t i = 0; i < sizeof counting / sizeof counting[0]; ++i) {
        EXPECT_EQ(counting[i].got, counting[i].want) << "counting case " << i;
        for (int c : counts) ASSERT_EQ(c, -7) << "counting case " << i;
    }
    // A not-a-number bound passes the order test and counts nothing in its channel.
    const float fhi2[3] = {0, 0, 0};
    EXPECT_EQ(keliCountInRange_32f_C3R(f, 12, {4, 1}, counts, flo, fhi2), kelStatusOk);
    EXPECT_EQ(counts[0], 0);
    EXPECT_EQ(counts[1], 4);
    EXPECT_EQ(counts[2], 4);
}

// ---- CountInRange

template <class T> using CountFn1 = KelStatus (*)(const T*, int, KeliSize, int*, T, T);
template <class T> using CountFnN = KelStatus (*)(const T*, int, KeliSize, int*, const T*, const T*);

template <class T> struct Counter {
    const char* name;
    int channels;
    bool alpha;
    std::function<KelStatus(const T*, int, KeliSize, int*, const T*, const T*)> call;
};

template <class T> Counter<T> counter(const char* name, CountFn1<T> f, int, bool)
{
    return {name, 1, false, [f](const T* s, int st, KeliSize z, int* c, const T* lo, const T* hi) {
                return f(s, st, z, c, *lo, *hi);
            }};
}
template <class T> Counter<T> counter(const char* name, CountFnN<T> f, int ch, bool alpha)
{
    return {name, ch, alpha, f};
}

template <class T> std::vector<Counter<T>> counters()
{
    if constexpr (std::is_same_v<T, Kel8u>)
        return {counter<T>("keliCountInRange_8u_C1R", keliCountInRange_8u_C1R, 1, false),
                counter<T>("keliCountInRange_8u_C3R", keliCountInRange_8u_C3R, 3, false),
                counter<T>("keliCountInRange_8u_AC4R", keliCountInRange_8u_AC4R, 4, true)};
    else
        return {counter<T>("keliCountInRange_32f_C1R", keliCountInRange_32f_C1R, 1, false),
                counter<T>("keliCountInRange_32f_C3R", keliCountInRange_32f_C3R, 3, false),
                counter<T>("keliCountInRange_32f_AC4R", keliCountInRange_32f_AC4R, 4, true)};
}

// The geometry sweep, plus rows long enough for the byte lanes to be folded several times.
template <class T> void count_sweep()
{
    kit::Rng rng;
    for (const Counter<T>& m : counters<T>()) {
        const int processed = m.alpha ? 3 : m.channels;
        auto check = [&](int width, int height, kit::Shape shape) {
            SCOPED_TRACE(std::string(m.name) + " width " + std::to_string(width) + " height " +
                         std::to_string(height) + " offset " + std::to_string(shape.offsetElements));
            T lo[3], hi[3];
            for (int c = 0; c < 3; ++c) {
                lo[c] = T(rng.below(12)), hi[c] = T(lo[c] + rng.below(12));
                if (rng.below(8) == 0) lo[c] = hi[c];
            }
            kit::Image<T> src(width, height, m.channels, shape);
            src.fill([&] { return rng.below(8) == 0 ? edge<T>(rng) : T(rng.below(26)); });
            std::uint32_t want[3] = {};
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x)
                    for (int c = 0; c < processed; ++c) want[c] += reference::in_range(src.at(x, y, c), lo[c], hi[c]);
            int got[3] = {-1, -1, -1};
            ASSERT_EQ(m.call(src.data(), src.step(), src.size(), got, lo, hi),
                      kelStatusOk);
            for (int c = 0; c < processed; ++c) ASSERT_EQ(std::uint32_t(got[c]), want[c]) << "channel " << c;
            for (int c = processed; c < 3; ++c) ASSERT_EQ(got[c], -1) << "count written beyond the channels";
        };
        kit::SweepOptions o;
        o.elementBytes = sizeof(T);
        o.maxWidth = 70;
        kit::sweep(o, [&](const kit::Geometry& g) { check(g.width, g.height, g.src); });
        check(4500, 3, {1, 8, false});  // 8u: 255 vectors and 255 three-vector turns a fold
    }
}

TEST(CountInRange, MatchesTheModelOverTheSweep8u) { count_sweep<Kel8u>(); }
TEST(CountInRange, MatchesTheModelOverTheSweep32f) { count_sweep<Kel32f>(); }

TEST(CountInRange, BoundsAreInclusiveAndTheCountWrapsAt32Bits)
{
    int count = 0;
    const Kel8u pixel = 200;
    ASSERT_EQ(keliCountInRange_8u_C1R(&pixel, 1, {1, 1}, &count, 200, 200), kelStatusOk);
    EXPECT_EQ(count, 1);
    // 2^20 + 3 rows of 4096 bytes read with a step of one byte: 2^32 + 12288 elements in range.
    const int width = 4096, height = (1 << 20) + 3;
    std::vector<Kel8u> bytes(std::size_t(width) + height, 7);
    ASSERT_EQ(keliCountInRange_8u_C1R(bytes.data(), 1, {width, height}, &count, 7, 7), kelStatusOk);
    EXPECT_EQ(count, 12288);
}

}  // namespace
