// keliNorm and keliNormDiff: every member against the models over the sweep, the tiles and
// strips of the integer sums, the values where the rules bite, and the check order.
#include <gtest/gtest.h>

#include <cmath>
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

template <class T> using NormFn = KelStatus (*)(const T*, int, KeliSize, Kel64f*);
template <class T> using DiffFn = KelStatus (*)(const T*, int, const T*, int, KeliSize, Kel64f*);
using NormHFn = KelStatus (*)(const Kel32f*, int, KeliSize, Kel64f*, KelHintAlgorithm);
using DiffHFn = KelStatus (*)(const Kel32f*, int, const Kel32f*, int, KeliSize, Kel64f*, KelHintAlgorithm);

// A C caller may pass any int as the hint; the enumeration has a full 32-bit base, so every
// such value converts to it.
KelStatus with_hint(NormHFn fn, const Kel32f* s, int step, KeliSize size, Kel64f* out, int hint)
{
    return fn(s, step, size, out, static_cast<KelHintAlgorithm>(hint));
}
KelStatus with_hint(DiffHFn fn, const Kel32f* a, int sa, const Kel32f* b, int sb, KeliSize size, Kel64f* out, int hint)
{
    return fn(a, sa, b, sb, size, out, static_cast<KelHintAlgorithm>(hint));
}

bool same_bits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b)); }

// One member seen uniformly: (a, b or null, hint, out) -> status.
template <class T> using Member = std::function<KelStatus(View<T>, View<T>, int, double*)>;

template <class T> Member<T> plain(NormFn<T> f)
{
    return [f](View<T> a, View<T>, int, double* o) { return f(a.base, a.step, {a.width, a.height}, o); };
}
template <class T> Member<T> diff(DiffFn<T> f)
{
    return [f](View<T> a, View<T> b, int, double* o) { return f(a.base, a.step, b.base, b.step, {a.width, a.height}, o); };
}
Member<Kel32f> plain(NormHFn f)
{
    return [f](View<Kel32f> a, View<Kel32f>, int h, double* o) { return with_hint(f, a.base, a.step, {a.width, a.height}, o, h); };
}
Member<Kel32f> diff(DiffHFn f)
{
    return [f](View<Kel32f> a, View<Kel32f> b, int h, double* o) {
        return with_hint(f, a.base, a.step, b.base, b.step, {a.width, a.height}, o, h);
    };
}

// Norm and NormDiff of one kind, element type and layout.
template <class T> struct Case {
    Norm kind;
    int channels;
    Member<T> norm, diff;
};

#define KELI_CASES(T, K, TT)                                                                                    \
    Case<T>{Norm::K, 1, plain(keliNorm_##K##_##TT##_C1R), diff(keliNormDiff_##K##_##TT##_C1R)},                 \
        Case<T>{Norm::K, 3, plain(keliNorm_##K##_##TT##_C3R), diff(keliNormDiff_##K##_##TT##_C3R)},             \
        Case<T>{Norm::K, 4, plain(keliNorm_##K##_##TT##_C4R), diff(keliNormDiff_##K##_##TT##_C4R)}
#define KELI_ALL(T, TT) std::vector<Case<T>>{KELI_CASES(T, Inf, TT), KELI_CASES(T, L1, TT), KELI_CASES(T, L2, TT)}

template <class T> std::vector<Case<T>> cases();
template <> std::vector<Case<Kel8u>> cases() { return KELI_ALL(Kel8u, 8u); }
template <> std::vector<Case<Kel16u>> cases() { return KELI_ALL(Kel16u, 16u); }
template <> std::vector<Case<Kel16s>> cases() { return KELI_ALL(Kel16s, 16s); }
template <> std::vector<Case<Kel32f>> cases() { return KELI_ALL(Kel32f, 32f); }

// Calls m and compares out[0..n-1] with the model bit for bit; out[n] keeps its canary.
template <class T> void expect_norm(const Member<T>& m, Norm k, View<T> a, View<T> b, int hint, const char* what)
{
    double want[4], out[5] = {kCanary, kCanary, kCanary, kCanary, kCanary};
    reference::norm(k, a, b, hint, want);
    ASSERT_EQ(m(a, b, hint, out), kelStatusOk) << what;
    for (int c = 0; c < a.channels; ++c) ASSERT_TRUE(same_bits(out[c], want[c])) << what << " channel " << c << ": " << out[c] << " want " << want[c];
    ASSERT_EQ(out[a.channels], kCanary) << what << " wrote past its channels";
}

Kel32f spread(kit::Rng& rng) { return std::ldexp(rng.any<float>(), rng.below(30) - 15); }

template <class T> T draw(kit::Rng& rng)
{
    if constexpr (std::is_same_v<T, Kel32f>) return spread(rng);
    else return rng.below(3) ? rng.any<T>() : rng.below(2) ? std::numeric_limits<T>::max() : std::numeric_limits<T>::min();
}

template <class T> void sweep_type(std::vector<int> hints)
{
    kit::Rng rng;
    kit::SweepOptions o;
    o.maxWidth = std::is_same_v<T, Kel32f> ? 40 : 72;
    o.elementBytes = sizeof(T);
    for (const Case<T>& cs : cases<T>()) {
        kit::sweep(o, [&](const kit::Geometry& g) {
            SCOPED_TRACE(g.describe() + " kind " + std::to_string(int(cs.kind)) + " channels " + std::to_string(cs.channels));
            kit::Image<T> a(g.width, g.height, cs.channels, g.src), b(g.width, g.height, cs.channels, g.dst);
            a.fill([&] { return draw<T>(rng); });
            b.fill([&] { return draw<T>(rng); });
            const auto beforeA = a.snapshot(), beforeB = b.snapshot();
            const View<T> va{a.data(), a.step(), g.width, g.height, cs.channels}, vb{b.data(), b.step(), g.width, g.height, cs.channels};
            for (int hint : (cs.kind == Norm::Inf ? std::vector<int>{0} : hints)) {
                SCOPED_TRACE("hint " + std::to_string(hint));
                expect_norm(cs.norm, cs.kind, va, View<T>{}, hint, "norm");
                expect_norm(cs.diff, cs.kind, va, vb, hint, "diff");
            }
            ASSERT_EQ(a.bytes(), beforeA);
            ASSERT_EQ(b.bytes(), beforeB);
        });
    }
}

TEST(Norm, IntegerMembersMatchTheModelOverTheSweep)
{
    sweep_type<Kel8u>({0});
    sweep_type<Kel16u>({0});
    sweep_type<Kel16s>({0});
}

TEST(Norm, FloatMembersMatchTheModelForEveryHint) { sweep_type<Kel32f>({kelAlgHintNone, kelAlgHintFast, kelAlgHintAccurate, 7, -1}); }

TEST(Norm, IntegerSumsStayExactOverLongRowsAndLargeTotals)
{
    // One row far longer than a tile: 32-bit lanes without tiles would wrap.
    const int w = 300000;
    std::vector<Kel8u> hi8(w, 255), lo8(w, 0);
    std::vector<Kel16u> hi16(w, 65535), lo16(w, 0);
    double v = 0;
    ASSERT_EQ(keliNormDiff_L2_8u_C1R(hi8.data(), w, lo8.data(), w, {w, 1}, &v), kelStatusOk);
    EXPECT_EQ(v, std::sqrt(double(w) * 65025));
    ASSERT_EQ(keliNormDiff_L1_16u_C1R(hi16.data(), 2 * w, lo16.data(), 2 * w, {w, 1}, &v), kelStatusOk);
    EXPECT_EQ(v, double(w) * 65535);
    ASSERT_EQ(keliNorm_L1_16s_C1R(reinterpret_cast<const Kel16s*>(hi16.data()), 2 * w, {w, 1}, &v), kelStatusOk);
    EXPECT_EQ(v, double(w));
    std::vector<Kel16s> top16(w, 32767), bottom16(w, -32768);
    ASSERT_EQ(keliNormDiff_L1_16s_C1R(top16.data(), 2 * w, bottom16.data(), 2 * w, {w, 1}, &v), kelStatusOk);
    EXPECT_EQ(v, double(w) * 65535);
    ASSERT_EQ(keliNorm_L1_16s_C1R(bottom16.data(), 2 * w, {w, 1}, &v), kelStatusOk);
    EXPECT_EQ(v, double(w) * 32768);
    double three[3];
    ASSERT_EQ(keliNorm_L1_8u_C3R(hi8.data(), w, {w / 3, 1}, three), kelStatusOk);
    for (double t : three) EXPECT_EQ(t, double(w / 3) * 255);

    // 16u squares beyond 2^53 in a single tile: the tile's exact 64-bit total is rounded once.
    const int tw = 4096, th = 600;
    std::vector<Kel16u> big(std::size_t(tw) * th, 65535);
    big[7] = 65534;
    std::uint64_t exact = 0;
    for (Kel16u x : big) exact += std::uint64_t(x) * x;
    ASSERT_EQ(keliNorm_L2_16u_C1R(big.data(), 2 * tw, {tw, th}, &v), kelStatusOk);
    EXPECT_EQ(v, std::sqrt(double(exact)));
    double want;
    reference::norm(Norm::L2, View<Kel16u>{big.data(), 2 * tw, tw, th, 1}, View<Kel16u>{}, 0, &want);
    EXPECT_EQ(v, want);
}

TEST(Norm, WideByteImagesTakeTheirL2NormInStrips)
{
    kit::Rng rng;
    for (int channels : {1, 4})
        for (int w : {32768, 32769, 70001}) {
            SCOPED_TRACE("width " + std::to_string(w) + " channels " + std::to_string(channels));
            std::vector<Kel8u> img(std::size_t(w) * channels * 2);
            for (auto& x : img) x = rng.any<Kel8u>();
            const View<Kel8u> v{img.data(), w * channels, w, 2, channels};
            double out[4], want[4], single[4];
            const KelStatus s = channels == 1 ? keliNorm_L2_8u_C1R(v.base, v.step, {w, 2}, out) : keliNorm_L2_8u_C4R(v.base, v.step, {w, 2}, out);
            ASSERT_EQ(s, kelStatusOk);
            reference::norm(Norm::L2, v, View<Kel8u>{}, 0, want);
            reference::total(Norm::L2, v, View<Kel8u>{}, 0, single);
            for (int c = 0; c < channels; ++c) {
                EXPECT_EQ(out[c], want[c]);
                if (w == 32768) {
                    EXPECT_EQ(out[c], std::sqrt(single[c]));  // one pass, no strips
                }
            }
        }
}

TEST(Norm, ValuesWhereTheRulesBite)
{
    double v = 0;
    const Kel16s lowest[3] = {-32768, 5, -7}, top[3] = {32767, 5, -7};
    ASSERT_EQ(keliNorm_Inf_16s_C1R(lowest, 6, {3, 1}, &v), kelStatusOk);
    EXPECT_EQ(v, 32768.0);
    ASSERT_EQ(keliNormDiff_Inf_16s_C1R(top, 6, lowest, 6, {3, 1}, &v), kelStatusOk);
    EXPECT_EQ(v, 65535.0);
    ASSERT_EQ(keliNormDiff_L2_16s_C1R(top, 6, lowest, 6, {1, 1}, &v), kelStatusOk);
    EXPECT_EQ(v, 65535.0);

    // A not-a-number anywhere gives a not-a-number, whatever follows it in its lane.
    for (int at : {0, 5, 17, 38}) {
        std::vector<Kel32f> img(40, 2.0f), other(40, 1.0f);
        img[at] = std::numeric_limits<float>::quiet_NaN();
        for (int hint : {0, 2}) {
            for (auto fn : {keliNorm_L1_32f_C1R, keliNorm_L2_32f_C1R}) {
                ASSERT_EQ(fn(img.data(), 160, {40, 1}, &v, KelHintAlgorithm(hint)), kelStatusOk);
                EXPECT_TRUE(std::isnan(v)) << at;
            }
        }
        ASSERT_EQ(keliNorm_Inf_32f_C1R(img.data(), 160, {40, 1}, &v), kelStatusOk);
        EXPECT_TRUE(std::isnan(v)) << at;
        ASSERT_EQ(keliNormDiff_Inf_32f_C1R(other.data(), 160, img.data(), 160, {40, 1}, &v), kelStatusOk);
        EXPECT_TRUE(std::isnan(v)) << at;
        double four[4];
        ASSERT_EQ(keliNorm_Inf_32f_C4R(img.data(), 160, {10, 1}, four), kelStatusOk);
        for (int c = 0; c < 4; ++c) EXPECT_EQ(std::isnan(four[c]), c == at % 4) << at;
    }

    // Fast sums add in 32-bit floats per row: 2^24 and 1 and 1 lose the ones, accurate keeps them.
    alignas(16) Kel32f row[3] = {4096.0f, 1.0f, 1.0f};
    ASSERT_EQ(keliNorm_L2_32f_C1R(row, 12, {3, 1}, &v, kelAlgHintFast), kelStatusOk);
    const double fast = v;
    ASSERT_EQ(keliNorm_L2_32f_C1R(row, 12, {3, 1}, &v, kelAlgHintAccurate), kelStatusOk);
    EXPECT_EQ(v, std::sqrt(16777218.0));
    EXPECT_NE(fast, v);
}

// Every member with its checks broken one at a time, in order; the value keeps its canary.
template <class T> void check_order(const Case<T>& cs)
{
    T img[64] = {};
    const View<T> ok{img, 16 * int(sizeof(T)), 2, 2, cs.channels};
    const bool stepFirst = std::is_same_v<T, Kel16u>;
    for (bool pair : {false, true}) {
        SCOPED_TRACE(pair ? "diff" : "norm");
        auto run = [&](View<T> a, View<T> b, bool nullOut) {
            double out[4] = {kCanary, kCanary, kCanary, kCanary};
            const KelStatus s = pair ? cs.diff(a, b, 0, nullOut ? nullptr : out) : cs.norm(a, View<T>{}, 0, nullOut ? nullptr : out);
            for (double x : out) EXPECT_EQ(x, kCanary);
            return s;
        };
        View<T> nul = ok, badSize = ok, badStep = ok, both = ok;
        nul.base = nullptr;
        badSize.width = 0;
        badStep.step = 0;
        both.height = -1;
        both.step = -4;
        EXPECT_EQ(run(nul, ok, false), kelStatusNullPtr);
        if (pair) {
            EXPECT_EQ(run(ok, nul, false), kelStatusNullPtr);
        }
        EXPECT_EQ(run(ok, ok, true), kelStatusNullPtr);
        View<T> nulBad = nul;
        nulBad.width = 0;
        nulBad.step = 0;
        EXPECT_EQ(run(nulBad, ok, false), kelStatusNullPtr);
        EXPECT_EQ(run(badSize, ok, false), kelStatusBadSize);
        EXPECT_EQ(run(badStep, ok, false), kelStatusBadStep);
        if (pair) {
            EXPECT_EQ(run(ok, badStep, false), kelStatusBadStep);
        }
        EXPECT_EQ(run(both, ok, false), stepFirst ? kelStatusBadStep : kelStatusBadSize);
    }
}

TEST(Norm, ChecksInOrderWriteNothing)
{
    for (const auto& cs : cases<Kel8u>()) check_order(cs);
    for (const auto& cs : cases<Kel16u>()) check_order(cs);
    for (const auto& cs : cases<Kel16s>()) check_order(cs);
    for (const auto& cs : cases<Kel32f>()) check_order(cs);
}

}  // namespace
