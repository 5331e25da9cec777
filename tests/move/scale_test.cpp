// keliScale and keliScaleC: every member against the scalar model over the geometry sweep, the
// ends of the ranges, the forwarding of a scale by 1 plus 0, the streaming path and the checks.
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
#include "reference/scale_range.hpp"

namespace {

template <class T> T value(kit::Rng& rng)
{
    if constexpr (std::is_floating_point_v<T>) {
        switch (rng.below(10)) {
        case 0: return std::numeric_limits<T>::quiet_NaN();
        case 1: return T(rng.below(2) ? 1 : -1) * std::numeric_limits<T>::infinity();
        case 2: return T(rng.below(4000) - 2000) / 2;
        case 3: return T(rng.below(2) ? 3e9 : -3e9);
        default: return rng.any<T>();
        }
    } else {
        using L = std::numeric_limits<T>;
        const std::int64_t edges[] = {L::min(), L::max(), 0, 1, -1, 127, 128, 255, 256};
        if (rng.below(3) == 0) {
            const std::int64_t e = edges[rng.below(9)];
            if (e >= std::int64_t(L::min()) && e <= std::int64_t(L::max())) return static_cast<T>(e);
        }
        return rng.any<T>();
    }
}

template <class T> bool same_value(T a, T b)
{
    if constexpr (std::is_floating_point_v<T>) {
        if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
        return std::memcmp(&a, &b, sizeof a) == 0;
    } else {
        return a == b;
    }
}

// One member over the sweep; `call` runs it on (src, srcStep, dst, dstStep, size).
template <class S, class D>
void sweep_member(int channels, bool alpha, int maxWidth,
                  const std::function<KelStatus(const S*, int, D*, int, KeliSize)>& call, const std::function<D(S)>& model)
{
    kit::Rng rng;
    kit::SweepOptions o;
    o.maxWidth = maxWidth;
    o.elementBytes = sizeof(D);
    auto colour = [&](int, int, int c) { return !(alpha && c == 3); };
    kit::sweep(o, [&](const kit::Geometry& g) {
        SCOPED_TRACE(g.describe());
        kit::Shape srcShape = g.src;
        srcShape.padBytes = (srcShape.padBytes + int(sizeof(S)) - 1) / int(sizeof(S)) * int(sizeof(S));
        kit::Image<S> src(g.width, g.height, channels, srcShape);
        kit::Image<D> dst(g.width, g.height, channels, g.dst);
        src.fill([&] { return value<S>(rng); });
        dst.fill([&] { return static_cast<D>(rng.below(100)); });
        const auto before = dst.snapshot();
        ASSERT_EQ(call(src.data(), src.step(), dst.data(), dst.step(), src.size()), kelStatusOk);
        ASSERT_EQ(kit::first_stray_write(dst, before, colour), -1) << "write outside the colour elements";
        for (int y = 0; y < g.height; ++y)
            for (int x = 0; x < g.width; ++x)
                for (int c = 0; c < channels; ++c) {
                    if (!colour(x, y, c)) continue;
                    ASSERT_TRUE(same_value(dst.at(x, y, c), model(src.at(x, y, c))))
                        << "at x " << x << " y " << y << " c " << c << " source " << +src.at(x, y, c) << " got "
                        << +dst.at(x, y, c) << " want " << +model(src.at(x, y, c));
                }
    });
}

template <class S, class D, class Fn, class Model> void layouts(Fn c1, Fn c3, Fn c4, Fn ac4, Model model)
{
    sweep_member<S, D>(1, false, 72, c1, model);
    sweep_member<S, D>(3, false, 20, c3, model);
    sweep_member<S, D>(4, false, 18, c4, model);
    sweep_member<S, D>(4, true, 18, ac4, model);
}

#define KELI_SCALE_LAYOUTS(pair, ...)                                                                                   \
    [&](auto s, int ss, auto d, int ds, KeliSize r) { return keliScale_##pair##_C1R(s, ss, d, ds, r __VA_ARGS__); },    \
        [&](auto s, int ss, auto d, int ds, KeliSize r) { return keliScale_##pair##_C3R(s, ss, d, ds, r __VA_ARGS__); }, \
        [&](auto s, int ss, auto d, int ds, KeliSize r) { return keliScale_##pair##_C4R(s, ss, d, ds, r __VA_ARGS__); }, \
        [&](auto s, int ss, auto d, int ds, KeliSize r) { return keliScale_##pair##_AC4R(s, ss, d, ds, r __VA_ARGS__); }

template <class S, class D> using Call = std::function<KelStatus(const S*, int, D*, int, KeliSize)>;

template <class S, class D, class A, class B, class C, class E, class Model>
void layouts_of(A a, B b, C c, E e, Model model)
{
    layouts<S, D, Call<S, D>>(Call<S, D>(a), Call<S, D>(b), Call<S, D>(c), Call<S, D>(e), std::function<D(S)>(model));
}

TEST(Scale, IntegerMembersMatchTheModelOverTheSweep)
{
    layouts_of<Kel8u, Kel16u>(KELI_SCALE_LAYOUTS(8u16u), reference::scale_widen<Kel16u>);
    layouts_of<Kel8u, Kel16s>(KELI_SCALE_LAYOUTS(8u16s), reference::scale_widen<Kel16s>);
    layouts_of<Kel8u, Kel32s>(KELI_SCALE_LAYOUTS(8u32s), reference::scale_widen<Kel32s>);
    for (KelHintAlgorithm hint : {kelAlgHintNone, kelAlgHintFast, kelAlgHintAccurate, KelHintAlgorithm(3)}) {
        SCOPED_TRACE("hint " + std::to_string(int(hint)));
        const bool accurate = hint == kelAlgHintAccurate;
        layouts_of<Kel16u, Kel8u>(KELI_SCALE_LAYOUTS(16u8u, , hint), [&](Kel16u x) { return reference::scale_narrow(x, accurate); });
        layouts_of<Kel16s, Kel8u>(KELI_SCALE_LAYOUTS(16s8u, , hint), [&](Kel16s x) { return reference::scale_narrow(x, accurate); });
        layouts_of<Kel32s, Kel8u>(KELI_SCALE_LAYOUTS(32s8u, , hint), [&](Kel32s x) { return reference::scale_narrow(x, accurate); });
    }
    // The ends of each range, and the accurate quotient against the exact one for 16 bits.
    Kel16s w16[2];
    const Kel8u ends[2] = {0, 255};
    ASSERT_EQ(keliScale_8u16s_C1R(ends, 2, w16, 4, {2, 1}), kelStatusOk);
    EXPECT_EQ(w16[0], -32768);
    EXPECT_EQ(w16[1], 32767);
    Kel32s w32[2];
    ASSERT_EQ(keliScale_8u32s_C1R(ends, 2, w32, 8, {2, 1}), kelStatusOk);
    EXPECT_EQ(w32[0], INT32_MIN);
    EXPECT_EQ(w32[1], INT32_MAX);
    std::vector<Kel16u> all(65536);
    for (int i = 0; i < 65536; ++i) all[i] = Kel16u(i);
    std::vector<Kel8u> out(all.size());
    ASSERT_EQ(keliScale_16u8u_C1R(all.data(), 512, out.data(), 256, {256, 256}, kelAlgHintAccurate), kelStatusOk);
    for (int i = 0; i < 65536; ++i) ASSERT_EQ(out[i], Kel8u((i + 128) / 257)) << i;
    ASSERT_EQ(keliScale_16u8u_C1R(all.data(), 512, out.data(), 256, {256, 256}, kelAlgHintFast), kelStatusOk);
    for (int i = 0; i < 65536; ++i) ASSERT_EQ(out[i], Kel8u(i >> 8)) << i;
}

TEST(Scale, FloatMembersMatchTheModelOverTheSweep)
{
    const float ranges[][2] = {{0.0f, 1.0f}, {-100.5f, 300.25f}, {1e-3f, 2e-3f}};
    for (const auto& r : ranges) {
        const float lo = r[0], hi = r[1];
        SCOPED_TRACE("range " + std::to_string(lo) + " " + std::to_string(hi));
        layouts_of<Kel8u, Kel32f>(KELI_SCALE_LAYOUTS(8u32f, , lo, hi), [&](Kel8u x) { return reference::scale_8u32f(x, lo, hi); });
        layouts_of<Kel32f, Kel8u>(KELI_SCALE_LAYOUTS(32f8u, , lo, hi), [&](Kel32f x) { return reference::scale_32f8u(x, lo, hi); });
    }
    // Values at and past the range ends, and not-a-number at the low end.
    const float in[] = {-5.0f, 0.0f, 0.5f, 1.0f, 7.0f, std::numeric_limits<float>::quiet_NaN()};
    Kel8u o[6];
    ASSERT_EQ(keliScale_32f8u_C1R(in, 24, o, 6, {6, 1}, 0.0f, 1.0f), kelStatusOk);
    EXPECT_EQ(std::vector<Kel8u>(o, o + 6), (std::vector<Kel8u>{0, 0, 128, 255, 255, 0}));
}

TEST(Scale, LargeImagesStreamWithTheSameResults)
{
    const int width = 1500, height = 1000;  // past both pixel gates
    kit::Rng rng;
    std::vector<Kel8u> src(std::size_t(width) * height);
    for (auto& v : src) v = Kel8u(rng.below(256));
    std::vector<Kel16s> d16(src.size() + 8);
    ASSERT_EQ(keliScale_8u16s_C1R(src.data(), width, d16.data() + 1, width * 2, {width, height}), kelStatusOk);
    for (std::size_t i = 0; i < src.size(); ++i) ASSERT_EQ(d16[i + 1], reference::scale_widen<Kel16s>(src[i])) << i;
    std::vector<Kel8u> back(src.size());
    ASSERT_EQ(keliScale_16s8u_C1R(d16.data() + 1, width * 2, back.data(), width, {width, height}, kelAlgHintFast), kelStatusOk);
    EXPECT_EQ(back, src);
    ASSERT_EQ(keliScale_16s8u_C1R(d16.data() + 1, width * 2, back.data(), width, {width, height}, kelAlgHintAccurate),
              kelStatusOk);
    EXPECT_EQ(back, src);
}

TEST(Scale, RangeIsCheckedBeforePointersThenPointersSizeSteps)
{
    Kel8u d[16];
    std::memset(d, kit::kCanary, sizeof d);
    const Kel32f f[4] = {1, 2, 3, 4};
    EXPECT_EQ(keliScale_8u32f_C1R(nullptr, 0, nullptr, 0, {0, 0}, 2.0f, 2.0f), kelStatusBadScaleRange);
    EXPECT_EQ(keliScale_32f8u_AC4R(nullptr, 0, nullptr, 0, {0, 0}, 3.0f, 2.0f), kelStatusBadScaleRange);
    EXPECT_EQ(keliScale_32f8u_C1R(nullptr, 16, d, 4, {4, 1}, 0.0f, 1.0f), kelStatusNullPtr);
    EXPECT_EQ(keliScale_32f8u_C1R(f, 16, d, 4, {0, 1}, 0.0f, 1.0f), kelStatusBadSize);
    EXPECT_EQ(keliScale_32f8u_C1R(f, 0, d, 4, {4, 1}, 0.0f, 1.0f), kelStatusBadStep);
    EXPECT_EQ(keliScale_16s8u_C3R(reinterpret_cast<const Kel16s*>(f), 6, nullptr, 3, {1, 1}, kelAlgHintAccurate), kelStatusNullPtr);
    EXPECT_EQ(keliScale_16s8u_C3R(reinterpret_cast<const Kel16s*>(f), 6, d, 3, {1, -2}, kelAlgHintAccurate), kelStatusBadSize);
    EXPECT_EQ(keliScale_16s8u_C3R(reinterpret_cast<const Kel16s*>(f), 6, d, -3, {1, 1}, kelAlgHintAccurate), kelStatusBadStep);
    EXPECT_EQ(keliScale_8u16u_C1R(d, 0, reinterpret_cast<Kel16u*>(d), 8, {4, 1}), kelStatusBadStep);
    for (Kel8u v : d) ASSERT_EQ(v, kit::kCanary);
}

// ---- keliScaleC ----------------------------------------------------------------------------------

template <class S, class D> using ScaleCFn = KelStatus (*)(const S*, int, Kel64f, Kel64f, D*, int, KeliSize, KelHintAlgorithm);

template <class S, class D> void scale_c_member(ScaleCFn<S, D> fn)
{
    const double factors[][2] = {{0.75, -3.25}, {-1000.5, 0.5}, {1e-7, 1e9}, {1.0000001, 0.0}};
    for (const auto& f : factors)
        for (KelHintAlgorithm hint : {kelAlgHintFast, kelAlgHintAccurate}) {
            const double m = f[0], a = f[1];
            SCOPED_TRACE("m " + std::to_string(m) + " a " + std::to_string(a) + " hint " + std::to_string(int(hint)));
            const bool accurate = hint == kelAlgHintAccurate;
            sweep_member<S, D>(
                1, false, sizeof(S) == 8 || sizeof(D) == 8 ? 12 : 20,
                [&](const S* s, int ss, D* d, int ds, KeliSize r) { return fn(s, ss, m, a, d, ds, r, hint); },
                [&](S x) {
                    return accurate ? reference::scale_c<D, double>(x, m, a) : reference::scale_c<D, float>(x, m, a);
                });
        }
}

template <class T> using ScaleCIFn = KelStatus (*)(T*, int, Kel64f, Kel64f, KeliSize, KelHintAlgorithm);

template <class T> void scale_c_inplace(ScaleCIFn<T> fn)
{
    kit::Rng rng;
    for (KelHintAlgorithm hint : {kelAlgHintNone, kelAlgHintAccurate}) {
        kit::Image<T> img(37, 3, 1, {3, 8, false});
        img.fill([&] { return value<T>(rng); });
        const kit::Image<T> before = img;
        ASSERT_EQ(fn(img.data(), img.step(), -2.5, 7.0, img.size(), hint), kelStatusOk);
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 37; ++x) {
                const T want = hint == kelAlgHintAccurate ? reference::scale_c<T, double>(before.at(x, y), -2.5, 7.0)
                                                          : reference::scale_c<T, float>(before.at(x, y), -2.5, 7.0);
                ASSERT_TRUE(same_value(img.at(x, y), want)) << x << " " << y;
            }
    }
}

#define KELI_SCALEC_FROM(S)                                                                                   \
    scale_c_member<Kel##S, Kel8u>(keliScaleC_##S##8u_C1R);                                                     \
    scale_c_member<Kel##S, Kel8s>(keliScaleC_##S##8s_C1R);                                                     \
    scale_c_member<Kel##S, Kel16u>(keliScaleC_##S##16u_C1R);                                                   \
    scale_c_member<Kel##S, Kel16s>(keliScaleC_##S##16s_C1R);                                                   \
    scale_c_member<Kel##S, Kel32s>(keliScaleC_##S##32s_C1R);                                                   \
    scale_c_member<Kel##S, Kel32f>(keliScaleC_##S##32f_C1R);                                                   \
    scale_c_member<Kel##S, Kel64f>(keliScaleC_##S##64f_C1R);

// The same-type member is spelled with one token: map S##S to it.
#define keliScaleC_8u8u_C1R keliScaleC_8u_C1R
#define keliScaleC_8s8s_C1R keliScaleC_8s_C1R
#define keliScaleC_16u16u_C1R keliScaleC_16u_C1R
#define keliScaleC_16s16s_C1R keliScaleC_16s_C1R
#define keliScaleC_32s32s_C1R keliScaleC_32s_C1R
#define keliScaleC_32f32f_C1R keliScaleC_32f_C1R
#define keliScaleC_64f64f_C1R keliScaleC_64f_C1R

TEST(ScaleC, EveryPairMatchesTheModelOnBothPaths)
{
    KELI_SCALEC_FROM(8u)
    KELI_SCALEC_FROM(8s)
    KELI_SCALEC_FROM(16u)
    KELI_SCALEC_FROM(16s)
    KELI_SCALEC_FROM(32s)
    KELI_SCALEC_FROM(32f)
    KELI_SCALEC_FROM(64f)
}

TEST(ScaleC, InPlaceMembers)
{
    scale_c_inplace<Kel8u>(keliScaleC_8u_C1IR);
    scale_c_inplace<Kel8s>(keliScaleC_8s_C1IR);
    scale_c_inplace<Kel16u>(keliScaleC_16u_C1IR);
    scale_c_inplace<Kel16s>(keliScaleC_16s_C1IR);
    scale_c_inplace<Kel32s>(keliScaleC_32s_C1IR);
    scale_c_inplace<Kel32f>(keliScaleC_32f_C1IR);
    scale_c_inplace<Kel64f>(keliScaleC_64f_C1IR);
}

TEST(ScaleC, OneAndZeroForwardToCopyOrConversion)
{
    // A copy takes any step, zero included; the computed path would refuse it.
    const Kel8u row[4] = {1, 2, 3, 250};
    Kel8u out[8] = {};
    ASSERT_EQ(keliScaleC_8u_C1R(row, 0, 1.0, 0.0, out, 4, {4, 2}, kelAlgHintFast), kelStatusOk);
    EXPECT_EQ(std::vector<Kel8u>(out, out + 8), (std::vector<Kel8u>{1, 2, 3, 250, 1, 2, 3, 250}));
    EXPECT_EQ(keliScaleC_8u_C1R(row, 0, 1.0 + 1e-12, 0.0, out, 4, {4, 2}, kelAlgHintFast), kelStatusBadStep);
    // 32f to 8u forwards to the conversion, where not-a-number gives 255; computed, it gives 0.
    const float f[3] = {std::numeric_limits<float>::quiet_NaN(), 2.5f, 3.5f};
    Kel8u b[3];
    ASSERT_EQ(keliScaleC_32f8u_C1R(f, 12, 1.0, 1e-17, b, 3, {3, 1}, kelAlgHintAccurate), kelStatusOk);
    EXPECT_EQ(std::vector<Kel8u>(b, b + 3), (std::vector<Kel8u>{255, 2, 4}));
    ASSERT_EQ(keliScaleC_32f8u_C1R(f, 12, 1.0 + 1e-9, 0.0, b, 3, {3, 1}, kelAlgHintAccurate), kelStatusOk);
    EXPECT_EQ(std::vector<Kel8u>(b, b + 3), (std::vector<Kel8u>{0, 3, 4}));
    // Clamped sign: the negative values become 0 and overlap is allowed.
    Kel8s s8[4] = {-5, 5, -128, 127};
    ASSERT_EQ(keliScaleC_8s8u_C1R(s8, 4, 1.0, 0.0, reinterpret_cast<Kel8u*>(s8), 4, {4, 1}, kelAlgHintFast), kelStatusOk);
    EXPECT_EQ(std::vector<Kel8u>(reinterpret_cast<Kel8u*>(s8), reinterpret_cast<Kel8u*>(s8) + 4),
              (std::vector<Kel8u>{0, 5, 0, 127}));
    // A pair with no conversion member computes: 64f to 32f rounds the same way.
    const double dd[2] = {0.1, 1e300};
    float ff[2];
    ASSERT_EQ(keliScaleC_64f32f_C1R(dd, 16, 1.0, 0.0, ff, 8, {2, 1}, kelAlgHintAccurate), kelStatusOk);
    EXPECT_EQ(ff[0], 0.1f);
    EXPECT_EQ(ff[1], std::numeric_limits<float>::max());
}

TEST(ScaleC, ChecksRunInOrderAndWriteNothing)
{
    const Kel16s src[4] = {1, 2, 3, 4};
    Kel32f dst[4];
    std::memset(dst, kit::kCanary, sizeof dst);
    EXPECT_EQ(keliScaleC_16s32f_C1R(nullptr, 0, 2.0, 0.0, dst, 0, {0, 0}, kelAlgHintFast), kelStatusNullPtr);
    EXPECT_EQ(keliScaleC_16s32f_C1R(src, 0, 2.0, 0.0, dst, 0, {0, 1}, kelAlgHintFast), kelStatusBadSize);
    EXPECT_EQ(keliScaleC_16s32f_C1R(src, 0, 2.0, 0.0, dst, 16, {4, 1}, kelAlgHintFast), kelStatusBadStep);
    EXPECT_EQ(keliScaleC_16s32f_C1R(src, 8, 2.0, 0.0, dst, -16, {4, 1}, kelAlgHintAccurate), kelStatusBadStep);
    // Forwarded: the conversion's checks, in the same order.
    EXPECT_EQ(keliScaleC_16s32f_C1R(src, 0, 1.0, 0.0, dst, 16, {4, 1}, kelAlgHintFast), kelStatusBadStep);
    EXPECT_EQ(keliScaleC_16s_C1IR(nullptr, 8, 3.0, 0.0, {4, 1}, kelAlgHintFast), kelStatusNullPtr);
    for (std::size_t i = 0; i < sizeof dst; ++i) ASSERT_EQ(reinterpret_cast<Kel8u*>(dst)[i], kit::kCanary);
}

}  // namespace
