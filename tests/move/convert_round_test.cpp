// keliConvert members that round: floats to integers in every mode and layout, the scaled (Sfs)
// members over their scale factors, 32f to 32u, the clamped-sign members with overlap, the
// control word kept for the caller, and the check order.
#include <gtest/gtest.h>
#include <xmmintrin.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "keli.h"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "kit/sweep.hpp"
#include "reference/convert_round.hpp"

namespace {

// Floats where rounding and saturation bite, relative to the destination's range.
template <class S, class D> S edgy_float(kit::Rng& rng)
{
    const double lo = double(std::numeric_limits<D>::min()), hi = double(std::numeric_limits<D>::max());
    switch (rng.below(8)) {
    case 0: return S(std::floor(lo + rng.below(2000) / 4.0 - 200));  // integers and halves below
    case 1: return S(hi - 200 + rng.below(1600) / 4.0);               // and around the top
    case 2: {
        const S special[] = {std::numeric_limits<S>::quiet_NaN(), std::numeric_limits<S>::infinity(),
                             -std::numeric_limits<S>::infinity(), S(-0.0), S(0.5), S(-0.5), S(1.5), S(-2.5),
                             std::numeric_limits<S>::denorm_min(), S(0.49999997), S(8388609.0), S(-8388609.0)};
        return special[rng.below(12)];
    }
    case 3: return S((rng.below(2000) - 1000) / 2.0);  // halves
    default: return S(rng.any<float>() * (rng.below(2) ? 1 : 100));
    }
}

template <class S> S edgy_int(kit::Rng& rng)
{
    using L = std::numeric_limits<S>;
    const std::int64_t edges[] = {L::min(), L::min() + 1, -129, -128, -3, -2, -1, 0, 1, 2, 3, 5, 6, 127, 128, 255,
                                  256, 383, 384, 32767, 32768, 65535, L::max() - 1, L::max()};
    if (rng.below(2) == 0) {
        const std::int64_t e = edges[rng.below(24)];
        if (e >= std::int64_t(L::min()) && e <= std::int64_t(L::max())) return static_cast<S>(e);
    }
    return rng.any<S>();
}

template <class T> bool same_bits(T a, T b) { return std::memcmp(&a, &b, sizeof(T)) == 0; }

// One member over the geometry sweep: `call` runs it, `model` gives each element.
template <class S, class D>
void sweep_member(int channels, bool alpha, int maxWidth, const std::function<S(kit::Rng&)>& gen,
                  const std::function<KelStatus(const S*, int, D*, int, KeliSize)>& call,
                  const std::function<D(S)>& model)
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
        srcShape.offsetElements %= int(16 / sizeof(S));
        kit::Image<S> src(g.width, g.height, channels, srcShape);
        kit::Image<D> dst(g.width, g.height, channels, g.dst);
        src.fill([&] { return gen(rng); });
        dst.fill([&] { return static_cast<D>(rng.below(100)); });
        const auto before = dst.snapshot();
        ASSERT_EQ(call(src.data(), src.step(), dst.data(), dst.step(), src.size()), kelStatusOk);
        ASSERT_EQ(kit::first_stray_write(dst, before, colour), -1) << "write outside the colour elements";
        for (int y = 0; y < g.height; ++y)
            for (int x = 0; x < g.width; ++x)
                for (int c = 0; c < channels; ++c)
                    if (colour(x, y, c)) {
                        ASSERT_EQ(+dst.at(x, y, c), +model(src.at(x, y, c)))
                            << "at x " << x << " y " << y << " c " << c << " source " << +src.at(x, y, c);
                    }
    });
}

template <class D> using RoundFn = KelStatus (*)(const Kel32f*, int, D*, int, KeliSize, KelRoundMode);

template <class D> void float_layouts(RoundFn<D> c1, RoundFn<D> c3, RoundFn<D> c4, RoundFn<D> ac4)
{
    for (int mode : {0, 1, 2, 3}) {
        SCOPED_TRACE("mode " + std::to_string(mode));
        const struct {
            RoundFn<D> fn;
            int channels;
            bool alpha;
            int maxWidth;
        } forms[] = {{c1, 1, false, 72}, {c3, 3, false, 20}, {c4, 4, false, 18}, {ac4, 4, true, 18}};
        for (const auto& f : forms) {
            SCOPED_TRACE("channels " + std::to_string(f.channels) + (f.alpha ? " alpha" : ""));
            sweep_member<Kel32f, D>(
                f.channels, f.alpha, f.maxWidth, edgy_float<Kel32f, D>,
                [&](const Kel32f* s, int ss, D* d, int ds, KeliSize r) { return f.fn(s, ss, d, ds, r, KelRoundMode(mode)); },
                [&](Kel32f x) { return reference::round_convert<D>(x, 0, mode); });
        }
    }
}

#define KELI_ROUND_LAYOUTS(pair) keliConvert_##pair##_C1R, keliConvert_##pair##_C3R, keliConvert_##pair##_C4R, keliConvert_##pair##_AC4R

TEST(ConvertRound, FloatToIntegerMatchesTheModelInEveryModeAndLayout)
{
    float_layouts<Kel8u>(KELI_ROUND_LAYOUTS(32f8u));
    float_layouts<Kel8s>(KELI_ROUND_LAYOUTS(32f8s));
    float_layouts<Kel16u>(KELI_ROUND_LAYOUTS(32f16u));
    float_layouts<Kel16s>(KELI_ROUND_LAYOUTS(32f16s));
}

template <class S, class D> using SfsFn = KelStatus (*)(const S*, int, D*, int, KeliSize, KelRoundMode, int);

// A scaled member over the sweep for a few scale factors and modes, and over every scale
// factor from well below to well above its range on one long row (vector body and tail).
template <class S, class D> void sfs_member(SfsFn<S, D> fn, std::function<S(kit::Rng&)> gen, std::vector<int> sweepFactors,
                                            int lowest, int highest, int special16u8s = 0)
{
    auto model = [&](S x, int n, int mode) {
        if (special16u8s && n >= 16) return D(0);
        return reference::round_convert<D>(x, n, mode);
    };
    for (int n : sweepFactors)
        for (int mode : {0, 1, 2}) {
            SCOPED_TRACE("n " + std::to_string(n) + " mode " + std::to_string(mode));
            sweep_member<S, D>(
                1, false, 40, gen,
                [&](const S* s, int ss, D* d, int ds, KeliSize r) { return fn(s, ss, d, ds, r, KelRoundMode(mode), n); },
                [&](S x) { return model(x, n, mode); });
        }
    kit::Rng rng;
    std::vector<S> row(301);
    for (auto& v : row) v = gen(rng);
    std::vector<D> out(row.size() + 1);
    for (int n = lowest; n <= highest; ++n)
        for (int mode : {0, 1, 2, 3}) {
            ASSERT_EQ(fn(row.data(), int(sizeof(S) * row.size()), out.data() + 1, int(sizeof(D) * row.size()),
                         {int(row.size()), 1}, KelRoundMode(mode), n),
                      kelStatusOk);
            for (std::size_t i = 0; i < row.size(); ++i)
                ASSERT_EQ(+out[i + 1], +model(row[i], n, mode)) << "n " << n << " mode " << mode << " source " << +row[i];
        }
}

// Integer sources shifted by the extreme factors: every non-zero value saturates at the most
// negative factor as it does at -64, and everything rounds as at 64 at the largest.
template <class S, class D> void extreme_factors(SfsFn<S, D> fn, std::function<S(kit::Rng&)> gen)
{
    kit::Rng rng;
    std::vector<S> row(37);
    for (auto& v : row) v = gen(rng);
    std::vector<D> got(row.size()), want(row.size());
    const int w = int(row.size());
    for (int mode : {0, 1, 2, 3})
        for (auto [extreme, near] : {std::pair{std::numeric_limits<int>::min(), -64}, std::pair{std::numeric_limits<int>::max(), 64}}) {
            ASSERT_EQ(fn(row.data(), w * int(sizeof(S)), got.data(), w * int(sizeof(D)), {w, 1}, KelRoundMode(mode), extreme), kelStatusOk);
            ASSERT_EQ(fn(row.data(), w * int(sizeof(S)), want.data(), w * int(sizeof(D)), {w, 1}, KelRoundMode(mode), near), kelStatusOk);
            ASSERT_EQ(got, want) << "mode " << mode << " factor " << extreme;
        }
}

TEST(ConvertRound, ScaledIntegerMembersMatchTheModelForEveryScaleFactor)
{
    extreme_factors<Kel16u, Kel16s>(keliConvert_16u16s_C1RSfs, edgy_int<Kel16u>);
    extreme_factors<Kel16s, Kel8s>(keliConvert_16s8s_C1RSfs, edgy_int<Kel16s>);
    extreme_factors<Kel32u, Kel8s>(keliConvert_32u8s_C1RSfs, edgy_int<Kel32u>);
    extreme_factors<Kel32u, Kel32s>(keliConvert_32u32s_C1RSfs, edgy_int<Kel32u>);
    sfs_member<Kel8u, Kel8s>(keliConvert_8u8s_C1RSfs, edgy_int<Kel8u>, {-1, 1, 3}, -10, 12);
    sfs_member<Kel16u, Kel8s>(keliConvert_16u8s_C1RSfs, edgy_int<Kel16u>, {-2, 2, 9}, -10, 20, 1);
    sfs_member<Kel16s, Kel8s>(keliConvert_16s8s_C1RSfs, edgy_int<Kel16s>, {-1, 1, 8}, -10, 20);
    sfs_member<Kel16u, Kel16s>(keliConvert_16u16s_C1RSfs, edgy_int<Kel16u>, {-1, 1, 4}, -18, 20);
    sfs_member<Kel32s, Kel16s>(keliConvert_32s16s_C1RSfs, edgy_int<Kel32s>, {-3, 2, 17}, -18, 36);
    sfs_member<Kel32s, Kel16u>(keliConvert_32s16u_C1RSfs, edgy_int<Kel32s>, {-3, 1, 16}, -18, 36);
    sfs_member<Kel32u, Kel8u>(keliConvert_32u8u_C1RSfs, edgy_int<Kel32u>, {-1, 2, 24}, -10, 36);
    sfs_member<Kel32u, Kel8s>(keliConvert_32u8s_C1RSfs, edgy_int<Kel32u>, {-1, 3, 25}, -10, 36);
    sfs_member<Kel32u, Kel16u>(keliConvert_32u16u_C1RSfs, edgy_int<Kel32u>, {-1, 5, 16}, -18, 36);
    sfs_member<Kel32u, Kel16s>(keliConvert_32u16s_C1RSfs, edgy_int<Kel32u>, {-1, 1, 17}, -18, 36);
    sfs_member<Kel32u, Kel32s>(keliConvert_32u32s_C1RSfs, edgy_int<Kel32u>, {-1, 1, 31}, -34, 36);
}

TEST(ConvertRound, ScaledFloatMembersMatchTheModelForEveryScaleFactor)
{
    auto f32 = [](auto d) {
        return std::function<Kel32f(kit::Rng&)>([](kit::Rng& r) { return edgy_float<Kel32f, decltype(d)>(r); });
    };
    auto f64 = [](auto d) {
        return std::function<Kel64f(kit::Rng&)>([](kit::Rng& r) { return edgy_float<Kel64f, decltype(d)>(r); });
    };
    sfs_member<Kel32f, Kel8u>(keliConvert_32f8u_C1RSfs, f32(Kel8u()), {-2, 0, 3}, -160, 160);
    sfs_member<Kel32f, Kel8s>(keliConvert_32f8s_C1RSfs, f32(Kel8s()), {-1, 2}, -160, 160);
    sfs_member<Kel32f, Kel16u>(keliConvert_32f16u_C1RSfs, f32(Kel16u()), {-1, 2}, -160, 160);
    sfs_member<Kel32f, Kel16s>(keliConvert_32f16s_C1RSfs, f32(Kel16s()), {-1, 2}, -160, 160);
    sfs_member<Kel32f, Kel32s>(keliConvert_32f32s_C1RSfs, f32(Kel32s()), {-1, 0, 2}, -160, 160);
    sfs_member<Kel64f, Kel8u>(keliConvert_64f8u_C1RSfs, f64(Kel8u()), {-2, 0, 3}, -40, 40);
    sfs_member<Kel64f, Kel8s>(keliConvert_64f8s_C1RSfs, f64(Kel8s()), {1}, -40, 40);
    sfs_member<Kel64f, Kel16u>(keliConvert_64f16u_C1RSfs, f64(Kel16u()), {1}, -40, 40);
    sfs_member<Kel64f, Kel16s>(keliConvert_64f16s_C1RSfs, f64(Kel16s()), {-1}, -40, 40);
}

template <class D> D one_32f(RoundFn<D> fn, float x, int mode)
{
    D d = 0;
    EXPECT_EQ(fn(&x, 4, &d, sizeof(D), {1, 1}, KelRoundMode(mode)), kelStatusOk);
    return d;
}

template <class S, class D> D one_sfs(SfsFn<S, D> fn, S x, int mode, int n)
{
    D d = 0;
    EXPECT_EQ(fn(&x, sizeof(S), &d, sizeof(D), {1, 1}, KelRoundMode(mode), n), kelStatusOk);
    return d;
}

TEST(ConvertRound, ValuesWhereTheRulesBite)
{
    const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
    // Ties: even, away from zero, truncated; a negative value saturates to 0 in every mode.
    EXPECT_EQ(one_32f<Kel8u>(keliConvert_32f8u_C1R, 2.5f, 1), 2);
    EXPECT_EQ(one_32f<Kel8u>(keliConvert_32f8u_C1R, 2.5f, 2), 3);
    EXPECT_EQ(one_32f<Kel8u>(keliConvert_32f8u_C1R, 2.5f, 0), 2);
    EXPECT_EQ(one_32f<Kel8u>(keliConvert_32f8u_C1R, 2.5f, 3), 3);  // any mode above 2 rounds ties away
    EXPECT_EQ(one_32f<Kel8s>(keliConvert_32f8s_C1R, -2.5f, 2), -3);
    EXPECT_EQ(one_32f<Kel8s>(keliConvert_32f8s_C1R, -2.5f, 1), -2);
    for (int mode : {0, 1, 2}) {
        EXPECT_EQ(one_32f<Kel8u>(keliConvert_32f8u_C1R, -0.7f, mode), 0);
        EXPECT_EQ(one_32f<Kel8u>(keliConvert_32f8u_C1R, nan, mode), 255);
        EXPECT_EQ(one_32f<Kel8u>(keliConvert_32f8u_C1R, inf, mode), 255);
        EXPECT_EQ(one_32f<Kel8u>(keliConvert_32f8u_C1R, -inf, mode), 0);
        EXPECT_EQ(one_32f<Kel16s>(keliConvert_32f16s_C1R, nan, mode), 32767);
        EXPECT_EQ(one_32f<Kel16s>(keliConvert_32f16s_C1R, -1e9f, mode), -32768);
        EXPECT_EQ((one_sfs<Kel32f, Kel32s>(keliConvert_32f32s_C1RSfs, nan, mode, 0)), INT32_MAX);
        EXPECT_EQ((one_sfs<Kel32f, Kel32s>(keliConvert_32f32s_C1RSfs, 2147483648.0f, mode, 0)), INT32_MAX);
        EXPECT_EQ((one_sfs<Kel32f, Kel32s>(keliConvert_32f32s_C1RSfs, -inf, mode, 0)), INT32_MIN);
    }
    // Just below a half: the signed half added under truncation cannot carry it up.
    EXPECT_EQ(one_32f<Kel8u>(keliConvert_32f8u_C1R, 0.49999997f, 2), 0);
    EXPECT_EQ((one_sfs<Kel32f, Kel32s>(keliConvert_32f32s_C1RSfs, 8388609.0f, 2, 0)), 8388609);
    EXPECT_EQ((one_sfs<Kel32f, Kel32s>(keliConvert_32f32s_C1RSfs, 8388609.0f, 2, 1)), 4194305);
    // Integer scale factors: 300 / 2 saturates; the zero fill from 16 for 16u to 8s, where the
    // rounding alone would still give 1; 32u to 32s at 32 and 33.
    EXPECT_EQ((one_sfs<Kel16u, Kel8s>(keliConvert_16u8s_C1RSfs, 300, 1, 1)), 127);
    EXPECT_EQ((one_sfs<Kel16u, Kel8s>(keliConvert_16u8s_C1RSfs, 65535, 1, 15)), 2);
    EXPECT_EQ((one_sfs<Kel16u, Kel8s>(keliConvert_16u8s_C1RSfs, 65535, 1, 16)), 0);
    EXPECT_EQ((one_sfs<Kel32u, Kel32s>(keliConvert_32u32s_C1RSfs, 0xFFFFFFFFu, 1, 32)), 1);
    EXPECT_EQ((one_sfs<Kel32u, Kel32s>(keliConvert_32u32s_C1RSfs, 0xFFFFFFFFu, 0, 32)), 0);
    EXPECT_EQ((one_sfs<Kel32u, Kel32s>(keliConvert_32u32s_C1RSfs, 0xFFFFFFFFu, 2, 33)), 0);
    EXPECT_EQ((one_sfs<Kel32u, Kel32s>(keliConvert_32u32s_C1RSfs, 0xFFFFFFFFu, 1, 1)), INT32_MAX);
    EXPECT_EQ((one_sfs<Kel32s, Kel16s>(keliConvert_32s16s_C1RSfs, -6, 0, 2)), -1);
    EXPECT_EQ((one_sfs<Kel32s, Kel16s>(keliConvert_32s16s_C1RSfs, -6, 1, 2)), -2);
    EXPECT_EQ((one_sfs<Kel32s, Kel16s>(keliConvert_32s16s_C1RSfs, -6, 2, 2)), -2);
    EXPECT_EQ((one_sfs<Kel32s, Kel16s>(keliConvert_32s16s_C1RSfs, INT32_MIN, 2, 32)), -1);
    EXPECT_EQ((one_sfs<Kel32s, Kel16s>(keliConvert_32s16s_C1RSfs, INT32_MIN, 1, 32)), 0);
    // 64f takes scale factors from -1008 up: a tiny value stays tiny below that.
    const double tiny = std::ldexp(1.0, -1070);
    EXPECT_EQ((one_sfs<Kel64f, Kel16u>(keliConvert_64f16u_C1RSfs, tiny, 1, -1008)), 0);
    EXPECT_EQ((one_sfs<Kel64f, Kel16u>(keliConvert_64f16u_C1RSfs, tiny, 1, -2000)), 0);
    EXPECT_EQ((one_sfs<Kel64f, Kel16u>(keliConvert_64f16u_C1RSfs, std::ldexp(1.0, -1000), 1, -1008)), 256);
    EXPECT_EQ((one_sfs<Kel64f, Kel16u>(keliConvert_64f16u_C1RSfs, 0.0, 1, -5000)), 0);
    EXPECT_EQ((one_sfs<Kel32f, Kel16u>(keliConvert_32f16u_C1RSfs, std::ldexp(1.0f, -149), 1, -160)), 2048);
    EXPECT_EQ((one_sfs<Kel32f, Kel16u>(keliConvert_32f16u_C1RSfs, 3e38f, 1, 200)), 0);
}

TEST(ConvertRound, LargeScaleFactorsFillWithZeroWithoutReadingTheSource)
{
    // One source element for a 64 x 64 region: a read beyond it is a fault under the sanitizer.
    const Kel16u one[1] = {65535};
    std::vector<Kel8s> dst(64 * 64, 5);
    EXPECT_EQ(keliConvert_16u8s_C1RSfs(one, 2, dst.data(), 64, {64, 64}, kelRndNear, 16), kelStatusOk);
    for (Kel8s v : dst) ASSERT_EQ(v, 0);
    const Kel32u big[1] = {0xFFFFFFFFu};
    std::vector<Kel32s> dst32(64 * 64, 5);
    EXPECT_EQ(keliConvert_32u32s_C1RSfs(big, 4, dst32.data(), 256, {64, 64}, kelRndZero, 32), kelStatusOk);
    for (Kel32s v : dst32) ASSERT_EQ(v, 0);
    std::fill(dst.begin(), dst.end(), 5);
    EXPECT_EQ(keliConvert_8u8s_C1RSfs(reinterpret_cast<const Kel8u*>(one), 1, dst.data(), 64, {64, 64}, kelRndFinancial, 9),
              kelStatusOk);
    for (Kel8s v : dst) ASSERT_EQ(v, 0);
}

TEST(ConvertRound, FloatTo32uIsScalarWithItsInPlaceTwin)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const std::vector<float> in = {0.5f, 1.5f, 2.5f, -0.7f, -1e30f, nan, 4294967296.0f, 4294967040.0f, 1e20f, 7.75f};
    for (int mode : {0, 1, 2, 3})
        for (int n : {0, -1, 2}) {
            std::vector<Kel32u> out(in.size(), 9);
            ASSERT_EQ(keliConvert_32f32u_C1RSfs(in.data(), 8, out.data(), 8, {2, int(in.size() / 2)}, KelRoundMode(mode), n),
                      kelStatusOk);
            std::vector<Kel32u> inplace(in.size());
            std::memcpy(inplace.data(), in.data(), 4 * in.size());
            ASSERT_EQ(keliConvert_32f32u_C1IRSfs(inplace.data(), 8, {2, int(in.size() / 2)}, KelRoundMode(mode), n), kelStatusOk);
            for (std::size_t i = 0; i < in.size(); ++i) {
                const Kel32u want = reference::round_convert<Kel32u>(in[i], n, mode);
                EXPECT_EQ(out[i], want) << in[i] << " mode " << mode << " n " << n;
                EXPECT_EQ(inplace[i], want) << in[i] << " mode " << mode << " n " << n;
            }
        }
}

template <class S, class D> using SignFn = KelStatus (*)(const S*, int, D*, int, KeliSize);

template <class S, class D> void clamp_sign_member(SignFn<S, D> fn)
{
    sweep_member<S, D>(1, false, 64, edgy_int<S>, fn, reference::clamp_sign<D, S>);
    // Overlap: the destination over the source, element by element in order (a wider
    // destination overwrites sources not yet read, as the model does too).
    kit::Rng rng;
    for (int shift : {0, 1, 3}) {
        std::vector<unsigned char> buf(600 * 8), want;
        for (auto& b : buf) b = static_cast<unsigned char>(rng.below(256));
        want = buf;
        const int width = 300;
        auto* s = reinterpret_cast<S*>(buf.data() + 64 * sizeof(D) + shift * sizeof(S));
        auto* d = reinterpret_cast<D*>(buf.data() + 64 * sizeof(D));
        auto* ws = reinterpret_cast<S*>(want.data() + 64 * sizeof(D) + shift * sizeof(S));
        auto* wd = reinterpret_cast<D*>(want.data() + 64 * sizeof(D));
        for (int i = 0; i < width; ++i) {
            S x;
            std::memcpy(&x, ws + i, sizeof x);
            const D r = reference::clamp_sign<D, S>(x);
            std::memcpy(wd + i, &r, sizeof r);
        }
        ASSERT_EQ(fn(s, 0, d, 0, {width, 2}), kelStatusOk);  // a zero step: the same row twice
        // The second pass over the same row reads what the first wrote: run the model again.
        for (int i = 0; i < width; ++i) {
            S x;
            std::memcpy(&x, ws + i, sizeof x);
            const D r = reference::clamp_sign<D, S>(x);
            std::memcpy(wd + i, &r, sizeof r);
        }
        for (std::size_t i = 0; i < buf.size(); ++i)
            ASSERT_EQ(+buf[i], +want[i]) << "byte " << i << " shift " << shift << " sizes " << sizeof(S) << sizeof(D);
    }
}

TEST(ConvertRound, ClampedSignMembersAllowOverlapAndAnyStep)
{
    clamp_sign_member<Kel8s, Kel8u>(keliConvert_8s8u_C1Rs);
    clamp_sign_member<Kel8s, Kel16u>(keliConvert_8s16u_C1Rs);
    clamp_sign_member<Kel8s, Kel32u>(keliConvert_8s32u_C1Rs);
    clamp_sign_member<Kel16s, Kel16u>(keliConvert_16s16u_C1Rs);
    clamp_sign_member<Kel16s, Kel32u>(keliConvert_16s32u_C1Rs);
    clamp_sign_member<Kel32s, Kel32u>(keliConvert_32s32u_C1Rs);
    const Kel8s v[2] = {-1, 127};
    Kel8u out[2] = {9, 9};
    ASSERT_EQ(keliConvert_8s8u_C1Rs(v, -5, out, -7, {2, 1}), kelStatusOk);
    EXPECT_EQ(out[0], 0);
    EXPECT_EQ(out[1], 127);
}

TEST(ConvertRound, CallersControlWordIsKeptAndDenormalsCountOnTheNearestPath)
{
    const unsigned before = _mm_getcsr();
    // The caller runs rounding upward with flush-to-zero and denormals-are-zero on.
    const unsigned caller = (before & ~0x6000u) | 0x4000u | 0x8040u;
    const float tiny = std::ldexp(1.0f, -140);
    std::vector<float> row(100, tiny);
    std::vector<Kel16u> out(row.size());
    for (int mode : {0, 1, 2, 3}) {
        _mm_setcsr(caller);
        const KelStatus s = keliConvert_32f16u_C1RSfs(row.data(), 400, out.data(), 200, {100, 1}, KelRoundMode(mode), -150);
        const unsigned after = _mm_getcsr();
        _mm_setcsr(before);
        ASSERT_EQ(s, kelStatusOk);
        EXPECT_EQ(after & ~0x3Fu, caller & ~0x3Fu) << "mode " << mode;
        // Truncation keeps the caller's denormals-are-zero; the rounding paths read the value.
        for (Kel16u v : out) ASSERT_EQ(v, mode == 0 ? 0 : 1024) << "mode " << mode;
    }
    _mm_setcsr(caller);
    Kel8u d = 0;
    const float half = 2.5f;
    const KelStatus s = keliConvert_32f8u_C1R(&half, 4, &d, 1, {1, 1}, kelRndNear);
    const KelStatus bad = keliConvert_32f8u_C1R(nullptr, 4, &d, 1, {1, 1}, kelRndNear);
    const unsigned after = _mm_getcsr();
    _mm_setcsr(before);
    EXPECT_EQ(s, kelStatusOk);
    EXPECT_EQ(bad, kelStatusNullPtr);
    EXPECT_EQ(d, 2);
    EXPECT_EQ(after & ~0x3Fu, caller & ~0x3Fu);
}

TEST(ConvertRound, ChecksRunInOrderAndWriteNothing)
{
    const float src[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    Kel8u dst[32];
    std::memset(dst, kit::kCanary, sizeof dst);
    struct Case {
        const float* s;
        Kel8u* d;
        int srcStep, dstStep;
        KeliSize size;
        KelStatus want;
    } cases[] = {
        {nullptr, dst, 0, 0, {0, 0}, kelStatusNullPtr},
        {src, nullptr, 16, 4, {4, 1}, kelStatusNullPtr},
        {src, dst, 0, 0, {0, 1}, kelStatusBadSize},
        {src, dst, 0, 4, {4, -1}, kelStatusBadSize},
        {src, dst, 0, 4, {4, 1}, kelStatusBadStep},
        {src, dst, 16, -4, {4, 1}, kelStatusBadStep},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(keliConvert_32f8u_C1R(c.s, c.srcStep, c.d, c.dstStep, c.size, kelRndNear), c.want);
        EXPECT_EQ(keliConvert_32f8u_AC4R(c.s, c.srcStep, c.d, c.dstStep, c.size, KelRoundMode(3)), c.want);
        EXPECT_EQ(keliConvert_32f8u_C1RSfs(c.s, c.srcStep, c.d, c.dstStep, c.size, kelRndZero, 3), c.want);
        EXPECT_EQ(keliConvert_32u8u_C1RSfs(reinterpret_cast<const Kel32u*>(c.s), c.srcStep, c.d, c.dstStep, c.size,
                                           kelRndZero, 40),
                  c.want);
        EXPECT_EQ(keliConvert_32f32u_C1RSfs(c.s, c.srcStep, reinterpret_cast<Kel32u*>(c.d), c.dstStep, c.size, kelRndNear, 0),
                  c.want);
        for (std::size_t i = 0; i < sizeof dst; ++i) ASSERT_EQ(dst[i], kit::kCanary);
    }
    // Clamped sign checks pointers and size only.
    EXPECT_EQ(keliConvert_16s16u_C1Rs(nullptr, 0, nullptr, 0, {0, 0}), kelStatusNullPtr);
    EXPECT_EQ(keliConvert_16s16u_C1Rs(reinterpret_cast<const Kel16s*>(src), 0, reinterpret_cast<Kel16u*>(dst), 0, {0, 1}),
              kelStatusBadSize);
    Kel32u in32 = 7;
    EXPECT_EQ(keliConvert_32f32u_C1IRSfs(nullptr, 4, {1, 1}, kelRndNear, 0), kelStatusNullPtr);
    EXPECT_EQ(keliConvert_32f32u_C1IRSfs(&in32, 4, {1, 0}, kelRndNear, 0), kelStatusBadSize);
    EXPECT_EQ(keliConvert_32f32u_C1IRSfs(&in32, 0, {1, 1}, kelRndNear, 0), kelStatusBadStep);
    EXPECT_EQ(in32, 7u);
    for (std::size_t i = 0; i < sizeof dst; ++i) ASSERT_EQ(dst[i], kit::kCanary);
}

}  // namespace

namespace {

// Two threads convert at the same time, each under a control word of its own: every call must
// hand back exactly the word its thread had, whichever mode it ran, on the success path and on
// the early returns, and the results must follow the mode asked for, not the other thread's.
TEST(ConvertRound, ControlWordIsRestoredPerThreadWhileAnotherThreadConverts)
{
    auto worker = [](unsigned word, int rounds, int* failures) {
        _mm_setcsr(word);
        std::vector<float> src(333);
        for (std::size_t i = 0; i < src.size(); ++i) src[i] = float(i) * 0.75f - 20.5f;
        std::vector<Kel8u> out(src.size());
        std::vector<Kel16s> out16(src.size());
        for (int r = 0; r < rounds; ++r) {
            const int mode = r % 4;
            const KelStatus a = keliConvert_32f8u_C1R(src.data(), 4 * 111, out.data(), 111, {111, 3}, KelRoundMode(mode));
            const KelStatus b = keliConvert_32f16s_C1RSfs(src.data(), 4 * 111, out16.data(), 2 * 111, {111, 3},
                                                          KelRoundMode(mode), r % 3 - 1);
            const KelStatus c = keliScale_32f8u_C1R(src.data(), 4 * 111, out.data(), 111, {111, 3}, 0.0f, 100.0f);
            const KelStatus d = keliScaleC_32f16s_C1R(src.data(), 4 * 111, 0.5, 0.25, out16.data(), 2 * 111, {111, 3},
                                                      r % 2 ? kelAlgHintAccurate : kelAlgHintFast);
            const KelStatus e = keliConvert_32f8u_C1R(src.data(), 0, out.data(), 111, {111, 3}, kelRndNear);
            Kel32u inplace[4] = {0x40200000u, 0x3FC00000u, 0x7FC00000u, 0xBF800000u};  // 2.5, 1.5, NaN, -1
            const KelStatus f = keliConvert_32f32u_C1IRSfs(inplace, 16, {4, 1}, KelRoundMode(mode), 0);
            const Kel32u want25 = mode == 0 ? 2u : mode == 1 ? 2u : 3u, want15 = mode == 0 ? 1u : 2u;
            if (a || b || c || d || e != kelStatusBadStep || f) ++*failures;
            if (inplace[0] != want25 || inplace[1] != want15 || inplace[2] != 0xFFFFFFFFu || inplace[3] != 0) ++*failures;
            if ((_mm_getcsr() & ~0x3Fu) != (word & ~0x3Fu)) ++*failures;
        }
    };
    const unsigned base = _mm_getcsr() & ~0x3Fu;
    int failuresA = 0, failuresB = 0;
    std::thread other(worker, (base & ~0x6000u) | 0x2000u | 0x8040u, 400, &failuresB);  // downward, flush, DAZ
    worker((base & ~0x6000u) | 0x4000u, 400, &failuresA);                               // upward
    other.join();
    _mm_setcsr(base);
    EXPECT_EQ(failuresA, 0);
    EXPECT_EQ(failuresB, 0);
}

}  // namespace
