// keliThreshold*: every member against the scalar model over the geometry sweep, every value
// pair where the comparisons bite, the not-a-number contract of 32f, the streaming path of
// 16u, and the three check orders.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "keli.h"
#include "kelcore.h"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "kit/sweep.hpp"
#include "reference/threshold.hpp"

namespace {

using reference::ThresholdRule;

template <class T> bool same_bits(T a, T b) { return std::memcmp(&a, &b, sizeof(T)) == 0; }

// What a member gets: images, then up to four per-channel arrays (threshold, value, second
// threshold, second value, in the order the member takes them) and a cmpOp.
template <class T> struct Args {
    const T* src;
    int srcStep;
    T* dst;
    int dstStep;
    KeliSize size;
    const T* arr[4];
    KelCmpOp cmp;
};

// The k-th trailing argument of a member: the cmpOp, an array, or an array's first element.
template <class A, class T> A pick(const Args<T>& a, std::size_t k)
{
    if constexpr (std::is_same_v<A, KelCmpOp>) return a.cmp;
    else if constexpr (std::is_pointer_v<A>) return a.arr[k];
    else return a.arr[k][0];
}

template <class T> struct Member {
    std::string name;
    ThresholdRule rule;  // with a cmpOp: the rule of kelCmpLess
    bool hasCmp;
    int channels;
    bool alpha, inPlace;
    std::function<KelStatus(const Args<T>&)> call;

    ThresholdRule rule_for(KelCmpOp cmp) const
    {
        if (!hasCmp || cmp == kelCmpLess) return rule;
        return rule == ThresholdRule::Lt ? ThresholdRule::Gt : ThresholdRule::GtVal;
    }
};

template <class T, class... A, std::size_t... I>
KelStatus call_with(KelStatus (*f)(const T*, int, T*, int, KeliSize, A...), const Args<T>& a, std::index_sequence<I...>)
{
    return f(a.src, a.srcStep, a.dst, a.dstStep, a.size, pick<A>(a, I)...);
}

template <class T, class... A, std::size_t... I>
KelStatus call_with(KelStatus (*f)(T*, int, KeliSize, A...), const Args<T>& a, std::index_sequence<I...>)
{
    return f(a.dst, a.dstStep, a.size, pick<A>(a, I)...);
}

template <class T, class... A>
Member<T> member(const char* name, KelStatus (*f)(const T*, int, T*, int, KeliSize, A...), ThresholdRule rule, int ch,
                 bool alpha)
{
    return {name, rule, (std::is_same_v<A, KelCmpOp> || ...), ch, alpha, false,
            [f](const Args<T>& a) { return call_with(f, a, std::index_sequence_for<A...>{}); }};
}

template <class T, class... A>
Member<T> member(const char* name, KelStatus (*f)(T*, int, KeliSize, A...), ThresholdRule rule, int ch, bool alpha)
{
    return {name, rule, (std::is_same_v<A, KelCmpOp> || ...), ch, alpha, true,
            [f](const Args<T>& a) { return call_with(f, a, std::index_sequence_for<A...>{}); }};
}

#define KT_FORM(F, T, RULE, L, C, A)                                                 \
    member(#F "_" #T "_" #L "R", F##_##T##_##L##R, ThresholdRule::RULE, C, A),       \
        member(#F "_" #T "_" #L "IR", F##_##T##_##L##IR, ThresholdRule::RULE, C, A)
#define KT_SIX(F, T, RULE) \
    KT_FORM(F, T, RULE, C1, 1, false), KT_FORM(F, T, RULE, C3, 3, false), KT_FORM(F, T, RULE, AC4, 4, true)
#define KT_MEMBERS(T)                                                                                             \
    std::vector<Member<Kel##T>> members_##T()                                                                     \
    {                                                                                                             \
        return {KT_SIX(keliThreshold, T, Lt),        KT_SIX(keliThreshold_GT, T, Gt),                             \
                KT_SIX(keliThreshold_LT, T, Lt),     KT_SIX(keliThreshold_Val, T, LtVal),                         \
                KT_SIX(keliThreshold_GTVal, T, GtVal), KT_FORM(keliThreshold_GTVal, T, GtVal, C4, 4, false),      \
                KT_SIX(keliThreshold_LTVal, T, LtVal), KT_FORM(keliThreshold_LTVal, T, LtVal, C4, 4, false),      \
                KT_SIX(keliThreshold_LTValGTVal, T, LtGt)};                                                       \
    }
KT_MEMBERS(8u)
KT_MEMBERS(16u)
KT_MEMBERS(16s)
KT_MEMBERS(32f)

template <class T> std::vector<Member<T>> members()
{
    if constexpr (std::is_same_v<T, Kel8u>) return members_8u();
    else if constexpr (std::is_same_v<T, Kel16u>) return members_16u();
    else if constexpr (std::is_same_v<T, Kel16s>) return members_16s();
    else return members_32f();
}

// Values that make comparisons interesting: the type's ends, and for 32f the specials.
template <class T> T edge(kit::Rng& rng)
{
    if constexpr (std::is_floating_point_v<T>) {
        static const T specials[] = {NAN, -NAN, INFINITY, -INFINITY, 0.0f, -0.0f, 1.5f, -2.0f};
        return specials[rng.below(8)];
    } else {
        static const T ends[] = {std::numeric_limits<T>::min(), T(std::numeric_limits<T>::min() + 1), T(0), T(1),
                                 T(std::numeric_limits<T>::max() - 1), std::numeric_limits<T>::max()};
        return ends[rng.below(6)];
    }
}

template <class T> T small_or_edge(kit::Rng& rng)
{
    if (rng.below(5) == 0) return edge<T>(rng);
    if constexpr (std::is_floating_point_v<T>) return T(rng.below(9) - 4);
    else return rng.any<T>();
}

// The arrays of one call: thresholds in order per channel (LtGt needs t <= t2).
template <class T> struct Consts {
    T a[4][4];
    void draw(kit::Rng& rng, ThresholdRule rule)
    {
        for (int c = 0; c < 4; ++c) {
            for (auto& arr : a) arr[c] = small_or_edge<T>(rng);
            if (rule == ThresholdRule::LtGt && a[0][c] > a[2][c]) std::swap(a[0][c], a[2][c]);
        }
    }
    // A source element near the thresholds of its channel, so equality is met often.
    T source(kit::Rng& rng, int c) const
    {
        switch (rng.below(6)) {
        case 0: return a[0][c];
        case 1: return a[2][c];
        case 2: return edge<T>(rng);
        case 3: return T(a[0][c] + T(1));
        case 4: return T(a[0][c] - T(1));
        default: return small_or_edge<T>(rng);
        }
    }
};

template <class T> void sweep_member(const Member<T>& m, KelCmpOp cmp)
{
    const ThresholdRule rule = m.rule_for(cmp);
    kit::Rng rng;
    kit::SweepOptions o;
    o.elementBytes = sizeof(T);
    auto colour = [&](int, int, int c) { return !(m.alpha && c == 3); };
    kit::sweep(o, [&](const kit::Geometry& g) {
        SCOPED_TRACE(m.name + " cmp " + std::to_string(cmp) + " " + g.describe());
        Consts<T> k;
        k.draw(rng, rule);
        kit::Image<T> src(g.width, g.height, m.channels, m.inPlace ? g.dst : g.src);
        kit::Image<T> dst(g.width, g.height, m.channels, g.dst);
        for (int y = 0; y < g.height; ++y)
            for (int x = 0; x < g.width; ++x)
                for (int c = 0; c < m.channels; ++c) {
                    src.at(x, y, c) = k.source(rng, c);
                    dst.at(x, y, c) = rng.any<T>();
                }
        kit::Image<T>& out = m.inPlace ? src : dst;
        const kit::Image<T> before = out;
        const auto srcBefore = src.snapshot(), outBefore = out.snapshot();

        const Args<T> args{src.data(), src.step(), out.data(), out.step(), src.size(),
                           {k.a[0], k.a[1], k.a[2], k.a[3]}, cmp};
        ASSERT_EQ(m.call(args), kelStatusOk);
        if (!m.inPlace) {
            EXPECT_EQ(src.bytes(), srcBefore) << "source changed";
        }
        EXPECT_EQ(kit::first_stray_write(out, outBefore, colour), -1) << "write outside the processed channels";
        for (int y = 0; y < g.height; ++y)
            for (int x = 0; x < g.width; ++x)
                for (int c = 0; c < (m.alpha ? 3 : m.channels); ++c) {
                    const T s = m.inPlace ? before.at(x, y, c) : src.at(x, y, c);
                    const T want = reference::threshold(rule, s, k.a[0][c], k.a[1][c], k.a[2][c], k.a[3][c]);
                    ASSERT_TRUE(same_bits(out.at(x, y, c), want)) << "at x " << x << " y " << y << " c " << c;
                }
    });
}

template <class T> void sweep_all()
{
    for (const Member<T>& m : members<T>()) {
        sweep_member(m, kelCmpLess);
        if (m.hasCmp) sweep_member(m, kelCmpGreater);
    }
}

TEST(Threshold, EveryMemberMatchesTheModelOverTheSweep8u) { sweep_all<Kel8u>(); }
TEST(Threshold, EveryMemberMatchesTheModelOverTheSweep16u) { sweep_all<Kel16u>(); }
TEST(Threshold, EveryMemberMatchesTheModelOverTheSweep16s) { sweep_all<Kel16s>(); }
TEST(Threshold, EveryMemberMatchesTheModelOverTheSweep32f) { sweep_all<Kel32f>(); }

TEST(Threshold, ListsEveryMemberOnce)
{
    // 46 forms for each of the four element types; a forgotten or doubled entry in the lists
    // above would let a member escape the sweep.
    std::vector<std::string> names;
    for (auto& m : members<Kel8u>()) names.push_back(m.name);
    for (auto& m : members<Kel16u>()) names.push_back(m.name);
    for (auto& m : members<Kel16s>()) names.push_back(m.name);
    for (auto& m : members<Kel32f>()) names.push_back(m.name);
    std::sort(names.begin(), names.end());
    EXPECT_EQ(std::unique(names.begin(), names.end()), names.end());
    EXPECT_EQ(names.size(), 184u);
}

// Every source value of the integer types against thresholds at and next to both ends of the
// range, through every C1 member: here a wrapping subtraction or a comparison of the wrong
// signedness shows. For 8u every threshold is tried. One long row runs mostly vectors, its
// start and end the scalar code.
template <class T> void every_value_pair()
{
    constexpr long lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
    std::vector<T> src, dst(hi - lo + 1 + 7);
    for (long s = lo; s <= hi; ++s) src.push_back(T(s));
    src.resize(dst.size(), T(0));
    std::vector<long> thresholds = {lo, lo + 1, -1, 0, 1, hi / 2, hi - 1, hi};
    if (sizeof(T) == 1) {
        thresholds.clear();
        for (long t = lo; t <= hi; ++t) thresholds.push_back(t);
    }
    const int step = int(src.size() * sizeof(T));
    for (long tl : thresholds) {
        const T t = T(tl), v = T(hi - tl / 3), t2 = T(std::max(long(t), hi - 2)), v2 = T(lo + 5);
        for (const Member<T>& m : members<T>()) {
            if (m.channels != 1 || m.inPlace) continue;
            for (KelCmpOp cmp : {kelCmpLess, kelCmpGreater}) {
                if (cmp == kelCmpGreater && !m.hasCmp) continue;
                const ThresholdRule rule = m.rule_for(cmp);
                const Args<T> args{src.data(), step, dst.data(), step, {int(src.size()), 1}, {&t, &v, &t2, &v2}, cmp};
                ASSERT_EQ(m.call(args), kelStatusOk);
                for (std::size_t i = 0; i < src.size(); ++i)
                    ASSERT_EQ(dst[i], reference::threshold(rule, src[i], t, v, t2, v2))
                        << m.name << " cmp " << cmp << " threshold " << tl << " source " << long(src[i]);
            }
        }
    }
}

TEST(Threshold, IntegerComparisonsHoldOverTheWholeRange)
{
    every_value_pair<Kel8u>();
    every_value_pair<Kel16u>();
    every_value_pair<Kel16s>();
}

TEST(Threshold, EqualityIsNeverAHit)
{
    // Every element equals its threshold: nothing changes, whatever the rule and value.
    Kel16s src[40], dst[40];
    for (int i = 0; i < 40; ++i) src[i] = Kel16s(i % 3 == 0 ? -7 : i % 3 == 1 ? 0 : 9);
    const Kel16s t[3] = {-7, 0, 9}, v[3] = {100, 100, 100};
    const KeliSize size{40 / 3, 1};
    auto unchanged = [&] {
        for (int i = 0; i < 39; ++i) ASSERT_EQ(dst[i], src[i]) << i;
    };
    ASSERT_EQ(keliThreshold_16s_C3R(src, 80, dst, 80, size, t, kelCmpLess), kelStatusOk);
    unchanged();
    ASSERT_EQ(keliThreshold_Val_16s_C3R(src, 80, dst, 80, size, t, v, kelCmpGreater), kelStatusOk);
    unchanged();
    ASSERT_EQ(keliThreshold_LTValGTVal_16s_C3R(src, 80, dst, 80, size, t, v, t, v), kelStatusOk);
    unchanged();

    // Both thresholds equal: everything but that value is replaced, on each side by its value.
    std::vector<Kel8u> row(256), out(256);
    for (int i = 0; i < 256; ++i) row[i] = Kel8u(i);
    ASSERT_EQ(keliThreshold_LTValGTVal_8u_C1R(row.data(), 256, out.data(), 256, {256, 1}, 77, 1, 77, 254), kelStatusOk);
    for (int i = 0; i < 256; ++i) ASSERT_EQ(out[i], i < 77 ? 1 : i > 77 ? 254 : 77) << i;
}

TEST(Threshold, NotANumberFollowsEachRuleOfThe32fForms)
{
    // 40 elements: the vector body and the scalar ends both meet a not-a-number with a payload.
    const std::uint32_t payload = 0x7FC0BEEFu;
    float nan;
    std::memcpy(&nan, &payload, 4);
    std::vector<float> src(40, nan), dst(40);
    const int step = 160;
    const KeliSize size{40, 1};
    auto all = [&](float want) {
        for (float d : dst) ASSERT_TRUE(same_bits(d, want)) << d;
    };
    ASSERT_EQ(keliThreshold_LT_32f_C1R(src.data(), step, dst.data(), step, size, 3.0f), kelStatusOk);
    all(3.0f);
    ASSERT_EQ(keliThreshold_32f_C1R(src.data(), step, dst.data(), step, size, -3.0f, kelCmpGreater), kelStatusOk);
    all(-3.0f);
    ASSERT_EQ(keliThreshold_LTVal_32f_C1R(src.data(), step, dst.data(), step, size, 3.0f, 8.0f), kelStatusOk);
    all(8.0f);
    ASSERT_EQ(keliThreshold_Val_32f_C1R(src.data(), step, dst.data(), step, size, 3.0f, 8.0f, kelCmpGreater), kelStatusOk);
    all(nan);  // the greater value form keeps it, payload and all
    ASSERT_EQ(keliThreshold_GTVal_32f_C1R(src.data(), step, dst.data(), step, size, 3.0f, 8.0f), kelStatusOk);
    all(nan);
    ASSERT_EQ(keliThreshold_LTValGTVal_32f_C1R(src.data(), step, dst.data(), step, size, 3.0f, 8.0f, 5.0f, 9.0f),
              kelStatusOk);
    all(8.0f);

    // A not-a-number threshold passes the order test; a lower one then replaces everything,
    // an upper one nothing.
    std::fill(src.begin(), src.end(), 4.0f);
    ASSERT_EQ(keliThreshold_LTValGTVal_32f_C1R(src.data(), step, dst.data(), step, size, NAN, 8.0f, 1.0f, 9.0f),
              kelStatusOk);
    all(8.0f);
    ASSERT_EQ(keliThreshold_LTValGTVal_32f_C1R(src.data(), step, dst.data(), step, size, 1.0f, 8.0f, NAN, 9.0f),
              kelStatusOk);
    all(4.0f);
}

TEST(Threshold, StreamingStoresOf16uGiveTheSameResult)
{
    // Large enough against the largest cache for the 16u members to bypass it; the rows start
    // off alignment so every vector row has a scalar head and tail around the streamed body.
    std::int32_t cache = 0;
    if (kelGetMaxCacheSizeB(&cache) != kelStatusOk) cache = 1 << 20;
    const int width = 1021, height = std::max(64, cache / 2 / (width * 2 * 3) + 8);
    kit::Shape src{3, 16, false}, dst{5, 32, false};
    kit::Image<Kel16u> in(width, height, 3, src), out(width, height, 3, dst);
    kit::Rng rng;
    in.fill([&] { return rng.any<Kel16u>(); });
    const Kel16u t[3] = {1000, 30000, 65000}, v[3] = {7, 8, 9};
    ASSERT_EQ(keliThreshold_GTVal_16u_C3R(in.data(), in.step(), out.data(), out.step(), in.size(), t, v), kelStatusOk);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < 3; ++c)
                ASSERT_EQ(out.at(x, y, c), reference::threshold(ThresholdRule::GtVal, in.at(x, y, c), t[c], v[c]))
                    << x << " " << y;
}

// Argument checks: each case breaks the checks up to one, in order; the status must be that
// check's, and nothing may be written.
TEST(Threshold, ChecksRunInEachFamilysOrderAndWriteNothing)
{
    Kel8u src[64] = {}, dst[64];
    std::memset(dst, 0x5A, sizeof dst);
    const Kel8u t[4] = {1, 2, 3, 4}, v[4] = {9, 9, 9, 9};
    const KeliSize ok{4, 2}, bad{0, 2}, neg{4, -1};
    const KelCmpOp badCmp = KelCmpOp(5), lessEq = kelCmpLessEq;
    auto nothing_written = [&] {
        for (Kel8u b : dst) ASSERT_EQ(b, 0x5A);
    };
    struct Case {
        KelStatus got, want;
    };
    const Case cases[] = {
        // Plain forms: images, then the threshold array, then cmpOp last.
        {keliThreshold_8u_C1R(nullptr, 16, dst, 16, bad, 1, badCmp), kelStatusNullPtr},
        {keliThreshold_8u_C3R(src, 16, nullptr, 16, bad, nullptr, badCmp), kelStatusNullPtr},
        {keliThreshold_8u_C3R(src, 0, dst, 16, neg, nullptr, badCmp), kelStatusBadSize},
        {keliThreshold_8u_AC4R(src, 16, dst, 0, ok, nullptr, badCmp), kelStatusBadStep},
        {keliThreshold_8u_AC4R(src, 16, dst, 16, ok, nullptr, badCmp), kelStatusNullPtr},
        {keliThreshold_8u_C3R(src, 16, dst, 16, ok, t, lessEq), kelStatusUnsupportedMode},
        {keliThreshold_8u_C1IR(dst, 16, ok, 1, kelCmpGreaterEq), kelStatusUnsupportedMode},
        // Any 32-bit operation code is a status, never undefined behaviour (found by fuzzing).
        {keliThreshold_8u_C1R(src, 16, dst, 16, ok, 1, KelCmpOp(30)), kelStatusUnsupportedMode},
        {keliThreshold_8u_C1R(src, 16, dst, 16, ok, 1, KelCmpOp(INT32_MIN)), kelStatusUnsupportedMode},
        {keliThreshold_GT_8u_C3IR(nullptr, 16, bad, nullptr), kelStatusNullPtr},
        {keliThreshold_LT_8u_C3IR(dst, -16, ok, nullptr), kelStatusBadStep},
        {keliThreshold_LT_8u_AC4IR(dst, 16, ok, nullptr), kelStatusNullPtr},
        // Value forms with cmpOp: cmpOp before everything else.
        {keliThreshold_Val_8u_C1R(nullptr, 0, nullptr, 0, bad, 1, 2, badCmp), kelStatusUnsupportedMode},
        {keliThreshold_Val_8u_C3IR(nullptr, 0, bad, nullptr, nullptr, KelCmpOp(2)), kelStatusUnsupportedMode},
        {keliThreshold_Val_8u_C3R(src, 16, nullptr, 16, bad, nullptr, nullptr, kelCmpGreater), kelStatusNullPtr},
        {keliThreshold_Val_8u_AC4R(src, 16, dst, 16, bad, nullptr, nullptr, kelCmpLess), kelStatusBadSize},
        {keliThreshold_Val_8u_AC4R(src, 0, dst, 16, ok, nullptr, nullptr, kelCmpLess), kelStatusBadStep},
        {keliThreshold_Val_8u_C3R(src, 16, dst, 16, ok, nullptr, v, kelCmpLess), kelStatusNullPtr},
        {keliThreshold_Val_8u_C3R(src, 16, dst, 16, ok, t, nullptr, kelCmpLess), kelStatusNullPtr},
        // Value forms without cmpOp: images, then the arrays.
        {keliThreshold_GTVal_8u_C4R(nullptr, 16, dst, 16, bad, nullptr, nullptr), kelStatusNullPtr},
        {keliThreshold_GTVal_8u_C4R(src, 16, dst, 16, bad, nullptr, nullptr), kelStatusBadSize},
        {keliThreshold_LTVal_8u_C4IR(dst, 0, ok, nullptr, nullptr), kelStatusBadStep},
        {keliThreshold_LTVal_8u_C4IR(dst, 16, ok, t, nullptr), kelStatusNullPtr},
        {keliThreshold_LTVal_8u_C1IR(dst, 0, ok, 1, 2), kelStatusBadStep},
        // Two-sided: images, the four arrays, then the order of each channel's thresholds.
        {keliThreshold_LTValGTVal_8u_C3R(src, 16, nullptr, 16, bad, t, v, t, v), kelStatusNullPtr},
        {keliThreshold_LTValGTVal_8u_C3R(src, 16, dst, 16, neg, nullptr, v, t, v), kelStatusBadSize},
        {keliThreshold_LTValGTVal_8u_C3R(src, 16, dst, 0, ok, nullptr, v, t, v), kelStatusBadStep},
        {keliThreshold_LTValGTVal_8u_C3R(src, 16, dst, 16, ok, t, v, t, nullptr), kelStatusNullPtr},
        {keliThreshold_LTValGTVal_8u_AC4IR(dst, 16, ok, t, nullptr, t, v), kelStatusNullPtr},
        {keliThreshold_LTValGTVal_8u_C1R(src, 16, dst, 16, ok, 5, 0, 4, 0), kelStatusThresholdOrder},
    };
    for (std::size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
        EXPECT_EQ(cases[i].got, cases[i].want) << "case " << i;
        nothing_written();
    }

    // The order is tested on every processed channel, the third included, and on no fourth.
    const Kel16s lo[4] = {0, 0, 10, 99}, hi[4] = {1, 1, 9, -99}, hi2[4] = {1, 1, 10, -99}, any[4] = {};
    Kel16s d16[8] = {5, 5, 5, 5, 5, 5, 5, 5};
    EXPECT_EQ(keliThreshold_LTValGTVal_16s_C3IR(d16, 16, {2, 1}, lo, any, hi, any), kelStatusThresholdOrder);
    for (Kel16s e : d16) ASSERT_EQ(e, 5);
    EXPECT_EQ(keliThreshold_LTValGTVal_16s_AC4IR(d16, 16, {2, 1}, lo, any, hi2, any), kelStatusOk);
    EXPECT_EQ(d16[2], 0);  // below 10
    EXPECT_EQ(d16[3], 5);  // alpha
    EXPECT_EQ(d16[7], 5);

    // 32f: the order test on a not-a-number is false, so it passes; a true inversion fails.
    float f[3] = {1, 2, 3};
    const float nanT[3] = {NAN, 0, 0}, top[3] = {0, 0, 0}, low[3] = {0, 1, 0};
    EXPECT_EQ(keliThreshold_LTValGTVal_32f_C3IR(f, 12, {1, 1}, top, top, low, top), kelStatusOk);
    EXPECT_EQ(keliThreshold_LTValGTVal_32f_C3IR(f, 12, {1, 1}, low, top, top, top), kelStatusThresholdOrder);
    EXPECT_EQ(keliThreshold_LTValGTVal_32f_C3IR(f, 12, {1, 1}, nanT, top, top, top), kelStatusOk);
}

}  // namespace
