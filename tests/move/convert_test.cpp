// keliConvert without rounding: every member against the scalar model over the geometry sweep
// (all layouts, guard bytes, untouched alpha), the values where saturation and float rounding
// bite, the large-image path and the check order.
#include <gtest/gtest.h>

#include <cfenv>
#include <cstring>
#include <limits>
#include <vector>

#include "keli.h"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "kit/sweep.hpp"
#include "reference/convert.hpp"

namespace {

template <class S, class D> using ConvertFn = KelStatus (*)(const S*, int, D*, int, KeliSize);

template <class T> bool same_bits(T a, T b) { return std::memcmp(&a, &b, sizeof(T)) == 0; }

// Inputs weighted toward the ends of the source range and the destination's limits.
template <class S> S edgy(kit::Rng& rng)
{
    using L = std::numeric_limits<S>;
    const std::int64_t edges[] = {L::min(), L::min() + 1, -129, -128, -1, 0, 1, 127, 128, 255, 256,
                                  32767, 32768, 65535, 16777217, L::max() - 1, L::max()};
    if (rng.below(3) == 0) {
        const std::int64_t e = edges[rng.below(17)];
        if (e >= std::int64_t(L::min()) && e <= std::int64_t(L::max())) return static_cast<S>(e);
    }
    return rng.any<S>();
}

struct Layout {
    int channels;
    bool alpha;
};

template <class S, class D> void sweep_member(ConvertFn<S, D> fn, Layout layout, int maxWidth = 72)
{
    kit::Rng rng;
    kit::SweepOptions o;
    o.maxWidth = maxWidth;
    o.elementBytes = sizeof(D);
    auto colour = [&](int, int, int c) { return !(layout.alpha && c == 3); };
    kit::sweep(o, [&](const kit::Geometry& g) {
        SCOPED_TRACE(g.describe());
        // Source rows stay on the source's element grid although the padding is drawn for
        // the destination's element size.
        kit::Shape srcShape = g.src;
        srcShape.padBytes = (srcShape.padBytes + int(sizeof(S)) - 1) / int(sizeof(S)) * int(sizeof(S));
        kit::Image<S> src(g.width, g.height, layout.channels, srcShape);
        kit::Image<D> dst(g.width, g.height, layout.channels, g.dst);
        src.fill([&] { return edgy<S>(rng); });
        dst.fill([&] { return static_cast<D>(rng.below(100)); });
        const auto srcBefore = src.snapshot();
        const auto dstBefore = dst.snapshot();
        kit::Image<D> expected = dst;
        for (int y = 0; y < g.height; ++y)
            for (int x = 0; x < g.width; ++x)
                for (int c = 0; c < layout.channels; ++c)
                    if (colour(x, y, c)) expected.at(x, y, c) = reference::convert<D>(src.at(x, y, c));
        ASSERT_EQ(fn(src.data(), src.step(), dst.data(), dst.step(), src.size()), kelStatusOk);
        ASSERT_EQ(src.bytes(), srcBefore) << "source changed";
        ASSERT_EQ(kit::first_stray_write(dst, dstBefore, colour), -1) << "write outside the colour elements";
        for (int y = 0; y < g.height; ++y)
            for (int x = 0; x < g.width; ++x)
                for (int c = 0; c < layout.channels; ++c)
                    ASSERT_TRUE(same_bits(dst.at(x, y, c), expected.at(x, y, c)))
                        << "at x " << x << " y " << y << " c " << c;
    });
}

template <class S, class D> void sweep_layouts(ConvertFn<S, D> c1, ConvertFn<S, D> c3, ConvertFn<S, D> c4,
                                               ConvertFn<S, D> ac4)
{
    {
        SCOPED_TRACE("C1");
        sweep_member(c1, {1, false});
    }
    {
        SCOPED_TRACE("C3");
        sweep_member(c3, {3, false}, 24);
    }
    {
        SCOPED_TRACE("C4");
        sweep_member(c4, {4, false}, 20);
    }
    {
        SCOPED_TRACE("AC4");
        sweep_member(ac4, {4, true}, 20);
    }
}

#define KELI_LAYOUTS(pair) keliConvert_##pair##_C1R, keliConvert_##pair##_C3R, keliConvert_##pair##_C4R, keliConvert_##pair##_AC4R

TEST(Convert, WideningMembersMatchTheModelOverTheSweep)
{
    sweep_layouts<Kel8u, Kel16u>(KELI_LAYOUTS(8u16u));
    sweep_layouts<Kel8u, Kel16s>(KELI_LAYOUTS(8u16s));
    sweep_layouts<Kel8u, Kel32s>(KELI_LAYOUTS(8u32s));
    sweep_layouts<Kel8u, Kel32f>(KELI_LAYOUTS(8u32f));
    sweep_layouts<Kel8s, Kel32s>(KELI_LAYOUTS(8s32s));
    sweep_layouts<Kel8s, Kel32f>(KELI_LAYOUTS(8s32f));
    sweep_layouts<Kel16u, Kel32s>(KELI_LAYOUTS(16u32s));
    sweep_layouts<Kel16u, Kel32f>(KELI_LAYOUTS(16u32f));
    sweep_layouts<Kel16s, Kel32s>(KELI_LAYOUTS(16s32s));
    sweep_layouts<Kel16s, Kel32f>(KELI_LAYOUTS(16s32f));
    sweep_member<Kel8s, Kel16s>(keliConvert_8s16s_C1R, {1, false});
    sweep_member<Kel8s, Kel64f>(keliConvert_8s64f_C1R, {1, false});
    sweep_member<Kel16u, Kel32u>(keliConvert_16u32u_C1R, {1, false});
    sweep_member<Kel32s, Kel32f>(keliConvert_32s32f_C1R, {1, false});
    sweep_member<Kel32u, Kel32f>(keliConvert_32u32f_C1R, {1, false});
}

TEST(Convert, NarrowingMembersMatchTheModelOverTheSweep)
{
    sweep_layouts<Kel16u, Kel8u>(KELI_LAYOUTS(16u8u));
    sweep_layouts<Kel16s, Kel8u>(KELI_LAYOUTS(16s8u));
    sweep_layouts<Kel32s, Kel8u>(KELI_LAYOUTS(32s8u));
    sweep_layouts<Kel32s, Kel8s>(KELI_LAYOUTS(32s8s));
}

// Rows of 64 elements take the vector body; the same values one by one take the scalar path.
template <class T> struct Same { using type = T; };

template <class S, class D>
std::vector<D> both_paths(ConvertFn<S, D> fn, const typename Same<std::vector<S>>::type& values)
{
    std::vector<S> row(64 * values.size());
    for (std::size_t i = 0; i < row.size(); ++i) row[i] = values[i / 64];
    std::vector<D> out(row.size()), single(values.size());
    EXPECT_EQ(fn(row.data(), int(row.size() * sizeof(S)), out.data(), int(out.size() * sizeof(D)),
                 {int(row.size()), 1}),
              kelStatusOk);
    for (std::size_t k = 0; k < values.size(); ++k) {
        EXPECT_EQ(fn(&values[k], sizeof(S), &single[k], sizeof(D), {1, 1}), kelStatusOk);
        for (int j = 0; j < 64; ++j) EXPECT_TRUE(same_bits(out[64 * k + j], single[k])) << "value " << k;
    }
    return single;
}

TEST(Convert, NarrowingSaturatesAtBothEnds)
{
    // 32768 and above read as negative to a signed pack: they must still give 255.
    EXPECT_EQ(both_paths(keliConvert_16u8u_C1R, {0, 255, 256, 32767, 32768, 65535}),
              (std::vector<Kel8u>{0, 255, 255, 255, 255, 255}));
    EXPECT_EQ(both_paths(keliConvert_16s8u_C1R, {-32768, -1, 0, 255, 256, 32767}),
              (std::vector<Kel8u>{0, 0, 0, 255, 255, 255}));
    // Values beyond 16 bits keep their side of the range through the intermediate pack.
    EXPECT_EQ(both_paths(keliConvert_32s8u_C1R, {INT32_MIN, -65536, -1, 200, 65536, 65791, INT32_MAX}),
              (std::vector<Kel8u>{0, 0, 0, 200, 255, 255, 255}));
    EXPECT_EQ(both_paths(keliConvert_32s8s_C1R, {INT32_MIN, -129, -128, 127, 128, 65535, INT32_MAX}),
              (std::vector<Kel8s>{-128, -128, -128, 127, 127, 127, 127}));
}

TEST(Convert, WideningKeepsSignAndZeroExtension)
{
    EXPECT_EQ(both_paths(keliConvert_8s16s_C1R, {-128, -1, 0, 127}),
              (std::vector<Kel16s>{-128, -1, 0, 127}));
    EXPECT_EQ(both_paths(keliConvert_8u16s_C1R, {255, 128, 0}), (std::vector<Kel16s>{255, 128, 0}));
    EXPECT_EQ(both_paths(keliConvert_16u32s_C1R, {65535, 32768}), (std::vector<Kel32s>{65535, 32768}));
    EXPECT_EQ(both_paths(keliConvert_16s32s_C1R, {-32768, -1}), (std::vector<Kel32s>{-32768, -1}));
    EXPECT_EQ(both_paths(keliConvert_8s64f_C1R, {-128, -1, 127}), (std::vector<Kel64f>{-128, -1, 127}));
}

TEST(Convert, ThirtyTwoBitIntegersRoundInTheCurrentMode)
{
    // Above 2^24 the float grid is coarser than the integers: the result follows the
    // processor's rounding mode, with the vector body and the single elements agreeing.
    const std::vector<Kel32u> u = {16777217u, 16777219u, 0x7FFFFFC0u, 0x80000001u, 0xFFFFFF7Fu, 0xFFFFFF80u,
                                   0xFFFFFFFFu, 33554435u};
    const std::vector<Kel32s> s = {16777217, -16777217, -16777219, INT32_MAX, INT32_MIN, 33554435, -33554435};
    const int modes[] = {FE_TONEAREST, FE_TOWARDZERO, FE_UPWARD, FE_DOWNWARD};
    for (int mode : modes) {
        SCOPED_TRACE("mode " + std::to_string(mode));
        ASSERT_EQ(std::fesetround(mode), 0);
        const std::vector<Kel32f> gotU = both_paths(keliConvert_32u32f_C1R, u);
        const std::vector<Kel32f> gotS = both_paths(keliConvert_32s32f_C1R, s);
        for (std::size_t i = 0; i < u.size(); ++i) EXPECT_EQ(gotU[i], reference::convert<Kel32f>(u[i])) << u[i];
        for (std::size_t i = 0; i < s.size(); ++i) EXPECT_EQ(gotS[i], reference::convert<Kel32f>(s[i])) << s[i];
        std::fesetround(FE_TONEAREST);
    }
    EXPECT_EQ(both_paths(keliConvert_32u32f_C1R, {0xFFFFFFFFu, 16777217u}),
              (std::vector<Kel32f>{4294967296.0f, 16777216.0f}));
    ASSERT_EQ(std::fesetround(FE_TOWARDZERO), 0);
    EXPECT_EQ(both_paths(keliConvert_32u32f_C1R, {0xFFFFFFFFu}), (std::vector<Kel32f>{4294967040.0f}));
    std::fesetround(FE_TONEAREST);
}

TEST(Convert, LargeImagesPastTheStreamingGate)
{
    // Enough pixels to ask about streaming stores: the values must be the same either way.
    const int width = 1031, height = 400;
    kit::Rng rng;
    std::vector<Kel16s> s16(std::size_t(width) * height);
    for (auto& v : s16) v = rng.any<Kel16s>();
    std::vector<Kel32f> f(s16.size() + 1, -1.0f);
    ASSERT_EQ(keliConvert_16s32f_C1R(s16.data(), width * 2, f.data() + 1, width * 4, {width, height}), kelStatusOk);
    EXPECT_EQ(f[0], -1.0f);
    for (std::size_t i = 0; i < s16.size(); ++i) ASSERT_EQ(f[i + 1], Kel32f(s16[i])) << i;
    std::vector<Kel8s> s8(s16.size());
    for (auto& v : s8) v = rng.any<Kel8s>();
    std::vector<Kel32s> i32(s8.size());
    ASSERT_EQ(keliConvert_8s32s_C1R(s8.data(), width, i32.data(), width * 4, {width, height}), kelStatusOk);
    for (std::size_t i = 0; i < s8.size(); ++i) ASSERT_EQ(i32[i], s8[i]) << i;
}

TEST(Convert, ChecksRunInOrderAndWriteNothing)
{
    const Kel16s src[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    Kel32f dst[8];
    std::memset(dst, kit::kCanary, sizeof dst);
    struct Case {
        const Kel16s* s;
        Kel32f* d;
        int srcStep, dstStep;
        KeliSize size;
        KelStatus want;
    } cases[] = {
        {nullptr, dst, 0, 0, {0, 0}, kelStatusNullPtr},  // pointers before size and steps
        {src, nullptr, 16, 32, {4, 1}, kelStatusNullPtr},
        {src, dst, 0, 0, {0, 1}, kelStatusBadSize},      // size before steps
        {src, dst, 0, 32, {4, -1}, kelStatusBadSize},
        {src, dst, 0, 32, {4, 1}, kelStatusBadStep},
        {src, dst, 16, -32, {4, 1}, kelStatusBadStep},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(keliConvert_16s32f_C1R(c.s, c.srcStep, c.d, c.dstStep, c.size), c.want);
        EXPECT_EQ(keliConvert_16s32f_AC4R(c.s, c.srcStep, c.d, c.dstStep, c.size), c.want);
        for (std::size_t i = 0; i < sizeof dst; ++i) ASSERT_EQ(reinterpret_cast<Kel8u*>(dst)[i], kit::kCanary);
    }
    Kel8u small[4] = {};
    EXPECT_EQ(keliConvert_32s8s_C3R(nullptr, 12, reinterpret_cast<Kel8s*>(small), 3, {1, 1}), kelStatusNullPtr);
    EXPECT_EQ(keliConvert_32u32f_C1R(reinterpret_cast<const Kel32u*>(src), 4, dst, 4, {1, 0}), kelStatusBadSize);
    EXPECT_EQ(keliConvert_8s64f_C1R(reinterpret_cast<const Kel8s*>(src), 0, reinterpret_cast<Kel64f*>(dst), 8, {1, 1}),
              kelStatusBadStep);
    for (std::size_t i = 0; i < sizeof dst; ++i) ASSERT_EQ(reinterpret_cast<Kel8u*>(dst)[i], kit::kCanary);
}

}  // namespace
