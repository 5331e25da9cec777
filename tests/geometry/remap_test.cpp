// keliRemap*: every member, kind and smooth flag against the plain model over widths that reach
// every head and tail of the vector kernels, misaligned and padded rows, windows at and away
// from the origin, windows narrower than a kind's reach, small sources that change the kind,
// NaN and edge map values; then the check order, the window write-back and the cases where a
// rule bites.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "keli.h"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "kit/sweep.hpp"
#include "reference/remap.hpp"

namespace {

template <class T> using MapOf = std::conditional_t<std::is_same_v<T, Kel64f>, Kel64f, Kel32f>;
template <class T>
using RemapFn = KelStatus (*)(const T*, KeliSize, int, KeliRect*, const MapOf<T>*, int, const MapOf<T>*, int, T*, int,
                              KeliSize, Kel32u);

template <class T> struct Member {
    const char* name;
    RemapFn<T> fn;
    int stride;
    int written;
};

#define KELI_REMAP_MEMBERS(T)                                                                            \
    std::vector<Member<Kel##T>>                                                                          \
    {                                                                                                    \
        {"keliRemap_" #T "_C1R", keliRemap_##T##_C1R, 1, 1}, {"keliRemap_" #T "_C3R", keliRemap_##T##_C3R, 3, 3}, \
            {"keliRemap_" #T "_C4R", keliRemap_##T##_C4R, 4, 4},                                        \
            {"keliRemap_" #T "_AC4R", keliRemap_##T##_AC4R, 4, 3},                                      \
    }

template <class T> std::vector<Member<T>> members();
template <> std::vector<Member<Kel8u>> members() { return KELI_REMAP_MEMBERS(8u); }
template <> std::vector<Member<Kel16u>> members() { return KELI_REMAP_MEMBERS(16u); }
template <> std::vector<Member<Kel16s>> members() { return KELI_REMAP_MEMBERS(16s); }
template <> std::vector<Member<Kel32f>> members() { return KELI_REMAP_MEMBERS(32f); }
template <> std::vector<Member<Kel64f>> members() { return KELI_REMAP_MEMBERS(64f); }

constexpr Kel32u kSmooth = 0x80000000u;
const int kKinds[] = {kelNearest, kelLinear, kelCubicLagrange, kelCubic, kelLanczos};

struct Case {
    KeliSize srcSize;
    KeliRect roi;  // as passed; the call trims it
    kit::Geometry g;
    Kel32u interpolation;
};

// A map value: mostly inside the window, some on the band around it or beyond, exact integers,
// halves, the window's edges and NaN.
template <class M> M map_value(kit::Rng& rng, int lo, int hi)
{
    switch (rng.below(10)) {
    case 0: return M(lo + rng.below(hi - lo + 1));
    case 1: return M(lo + rng.below(hi - lo + 1)) + M(0.5);
    case 2: return M(rng.below(2) ? hi : lo);
    case 3: return rng.below(2) ? M(lo) - M(rng.below(200)) / 100 : M(hi) + M(rng.below(200)) / 100;
    case 4: return std::numeric_limits<M>::quiet_NaN();
    default: return M(lo) - M(0.2) + (M(hi - lo) + M(0.4)) * M(rng.below(100001)) / 100000;
    }
}

template <class T> T pixel_value(kit::Rng& rng)
{
    if constexpr (std::is_integral_v<T>) {
        // Extremes often, so the negative lobes saturate.
        const int pick = rng.below(4);
        return pick == 0 ? std::numeric_limits<T>::min() : pick == 1 ? std::numeric_limits<T>::max() : rng.any<T>();
    } else {
        return rng.any<T>();
    }
}

template <class T> void check_case(const Member<T>& m, const Case& cs, kit::Rng& rng)
{
    using M = MapOf<T>;
    const kit::Geometry& g = cs.g;
    kit::Image<T> src(cs.srcSize.width, cs.srcSize.height, m.stride, g.src);
    src.fill([&] { return pixel_value<T>(rng); });
    kit::Image<T> dst(g.width, g.height, m.stride, g.dst);
    dst.fill([&] { return pixel_value<T>(rng); });
    kit::Image<M> xMap(g.width, g.height, 1, {g.src.offsetElements % 4, int(sizeof(M)) * (g.width % 3), false});
    kit::Image<M> yMap(g.width, g.height, 1, {g.dst.offsetElements % 4, 0, false});
    const int X1 = std::min(cs.roi.x + cs.roi.width, cs.srcSize.width) - 1;
    const int Y1 = std::min(cs.roi.y + cs.roi.height, cs.srcSize.height) - 1;
    xMap.fill([&] { return map_value<M>(rng, cs.roi.x, X1); });
    yMap.fill([&] { return map_value<M>(rng, cs.roi.y, Y1); });

    kit::Image<T> expected = dst;
    const reference::RemapWindow w{cs.roi.x, cs.roi.y, X1, Y1};
    const int kind = reference::remap_kind(int(cs.interpolation & ~kSmooth), cs.srcSize.width, cs.srcSize.height);
    const bool smooth = (cs.interpolation & kSmooth) != 0;
    auto read = [&](int x, int y, int c) { return src.at(x, y, c); };
    for (int y = 0; y < g.height; ++y)
        for (int x = 0; x < g.width; ++x)
            for (int c = 0; c < m.written; ++c)
                expected.at(x, y, c) =
                    reference::remap_element(kind, smooth, read, w, xMap.at(x, y), yMap.at(x, y), c, dst.at(x, y, c));

    KeliRect roi = cs.roi;
    const auto srcBefore = src.snapshot();
    ASSERT_EQ(m.fn(src.data(), cs.srcSize, src.step(), &roi, xMap.data(), xMap.step(), yMap.data(), yMap.step(),
                   dst.data(), dst.step(), {g.width, g.height}, cs.interpolation),
              kelStatusOk);
    EXPECT_EQ(roi.width, X1 - cs.roi.x + 1);
    EXPECT_EQ(roi.height, Y1 - cs.roi.y + 1);
    ASSERT_EQ(src.bytes(), srcBefore);
    if (dst.bytes() == expected.bytes()) return;
    for (int y = 0; y < g.height; ++y)
        for (int x = 0; x < g.width; ++x)
            for (int c = 0; c < m.stride; ++c)
                if (std::memcmp(&dst.at(x, y, c), &expected.at(x, y, c), sizeof(T)) != 0)
                    FAIL() << m.name << " interpolation " << std::hex << cs.interpolation << std::dec << " at (" << x
                           << ", " << y << ") channel " << c << ": got " << double(dst.at(x, y, c)) << " expected "
                           << double(expected.at(x, y, c)) << " map (" << double(xMap.at(x, y)) << ", "
                           << double(yMap.at(x, y)) << ") src " << cs.srcSize.width << "x" << cs.srcSize.height;
    FAIL() << m.name << ": a byte outside the pixels changed";
}

// Widths 1..70 at every alignment over a 9x8 source with the window at the origin and away
// from it, every kind plain and smooth.
template <class T> void sweep_member(const Member<T>& m)
{
    kit::Rng rng;
    kit::SweepOptions o;
    o.maxWidth = 70;
    o.elementBytes = sizeof(T);
    int n = 0;
    kit::sweep(o, [&](const kit::Geometry& g) {
        if (g.dst.offsetElements % 4 != 0 && g.width > 20) return;  // alignments are covered up to 20
        const int kind = kKinds[n % 5];
        const Kel32u smooth = (n / 5) % 2 ? kSmooth : 0;
        const KeliRect roi = n % 3 ? KeliRect{2, 1, 5, 6} : KeliRect{0, 0, 9, 8};
        ++n;
        SCOPED_TRACE(g.describe());
        check_case(m, {{9, 8}, roi, g, Kel32u(kind) | smooth}, rng);
    });
}

// Small sources (the kind falls back) and windows narrower than the kind's reach, at the
// image's edges and inside it.
template <class T> void small_member(const Member<T>& m)
{
    kit::Rng rng;
    const KeliSize sizes[] = {{1, 7}, {7, 1}, {3, 5}, {4, 4}, {5, 9}, {6, 6}, {3, 3}, {8, 4}};
    const KeliRect windows[] = {{0, 0, 1, 1}, {0, 0, 2, 2}, {1, 1, 1, 3}, {2, 0, 3, 2}, {0, 1, 40, 40}, {3, 2, 1, 1}};
    for (KeliSize s : sizes)
        for (KeliRect r : windows) {
            if (r.x >= s.width || r.y >= s.height) continue;
            for (int kind : kKinds)
                for (Kel32u smooth : {0u, kSmooth}) {
                    kit::Geometry g{11 + rng.below(9), 3, {}, {}};
                    g.dst.offsetElements = rng.below(3);
                    check_case(m, {s, r, g, Kel32u(kind) | smooth}, rng);
                    if (::testing::Test::HasFatalFailure()) return;
                }
        }
}

template <class T> void all_members()
{
    for (const auto& m : members<T>()) {
        SCOPED_TRACE(m.name);
        sweep_member(m);
        small_member(m);
    }
}

TEST(Remap, MatchesTheModel8u) { all_members<Kel8u>(); }
TEST(Remap, MatchesTheModel16u) { all_members<Kel16u>(); }
TEST(Remap, MatchesTheModel16s) { all_members<Kel16s>(); }
TEST(Remap, MatchesTheModel32f) { all_members<Kel32f>(); }
TEST(Remap, MatchesTheModel64f) { all_members<Kel64f>(); }

// One-channel 8u call on a 6x5 source; returns the destination.
struct Call8u {
    std::vector<Kel8u> src = std::vector<Kel8u>(30);
    KeliRect roi{0, 0, 6, 5};
    std::vector<Kel8u> run(std::vector<float> xs, std::vector<float> ys, Kel32u interpolation, Kel8u old = 7,
                           KeliSize srcSize = {6, 5})
    {
        std::vector<Kel8u> dst(xs.size(), old);
        const int n = int(xs.size());
        EXPECT_EQ(keliRemap_8u_C1R(src.data(), srcSize, srcSize.width, &roi, xs.data(), 4 * n, ys.data(), 4 * n,
                                   dst.data(), n, {n, 1}, interpolation),
                  kelStatusOk);
        return dst;
    }
};

TEST(Remap, RulesBiteWhereStated)
{
    Call8u c;
    for (int i = 0; i < 30; ++i) c.src[i] = Kel8u(10 * i);
    // Nearest adds the half in f32: 0.49999997f + 0.5f rounds to 1. Halves go up.
    EXPECT_EQ(c.run({0.49999997f, 0.4999999f, 1.5f, 2.5f}, {0, 0, 0, 0}, kelNearest),
              (std::vector<Kel8u>{10, 0, 20, 30}));
    // Linear at the last column: index X1 - 1 with fraction 1 gives the last column exactly.
    EXPECT_EQ(c.run({5.0f, 5.0f}, {0.0f, 4.0f}, kelLinear), (std::vector<Kel8u>{50, 34}));
    // Outside, NaN: untouched. Half a pixel left of the window, smooth: the blend (0 + 7) / 2 -> 4 (even).
    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(c.run({-0.5f, nan, 2.0f}, {0.0f, 0.0f, nan}, kelLinear), (std::vector<Kel8u>{7, 7, 7}));
    EXPECT_EQ(c.run({-0.5f, -1.0f, -1.01f}, {0.0f, 0.0f, 0.0f}, kelLinear | kSmooth, 7),
              (std::vector<Kel8u>{4, 7, 7}));
    // The corner band: both distances count.
    c.src[0] = 200;
    EXPECT_EQ(c.run({-0.5f}, {-0.5f}, kelNearest | kSmooth, 0), (std::vector<Kel8u>{50}));
    // 8u Linear truncates: halfway between 1 and 2 gives 1; the floating formula of the smooth
    // mode rounds 1.5 to 2.
    c.src[0] = 1, c.src[1] = 2;
    EXPECT_EQ(c.run({0.5f}, {0.0f}, kelLinear), (std::vector<Kel8u>{1}));
    EXPECT_EQ(c.run({0.5f}, {0.0f}, kelLinear | kSmooth), (std::vector<Kel8u>{2}));
}

TEST(Remap, SmallSourcesChangeTheKind)
{
    kit::Rng rng;
    std::vector<Kel8u> src(3 * 5);
    for (auto& v : src) v = rng.any<Kel8u>();
    std::vector<float> xs(64), ys(64);
    for (int i = 0; i < 64; ++i) xs[i] = rng.below(2001) / 1000.0f, ys[i] = rng.below(4001) / 1000.0f;
    auto run = [&](KeliSize size, Kel32u interpolation) {
        std::vector<Kel8u> dst(64, 0);
        KeliRect roi{0, 0, size.width, size.height};
        EXPECT_EQ(keliRemap_8u_C1R(src.data(), size, size.width, &roi, xs.data(), 256, ys.data(), 256, dst.data(), 64,
                                   {64, 1}, interpolation),
                  kelStatusOk);
        return dst;
    };
    EXPECT_EQ(run({3, 5}, kelLanczos), run({3, 5}, kelLinear));
    EXPECT_EQ(run({3, 5}, kelCubic), run({3, 5}, kelLinear));
    EXPECT_NE(run({3, 5}, kelNearest), run({3, 5}, kelLinear));
    EXPECT_EQ(run({1, 5}, kelLanczos), run({1, 5}, kelNearest));
    EXPECT_EQ(run({3, 1}, kelCubicLagrange), run({3, 1}, kelNearest));
}

TEST(Remap, ChecksRunInOrderAndWriteNothing)
{
    std::vector<Kel16u> src(8 * 6, 1);
    std::vector<float> map(4 * 3, 1.0f);
    std::vector<Kel16u> dst(4 * 3, 0xA5A5);
    struct Args {
        const Kel16u* src = nullptr;
        KeliSize srcSize{8, 6};
        int srcStep = 16;
        KeliRect roi{0, 0, 8, 6};
        bool roiNull = false;
        const float* xMap = nullptr;
        int xStep = 16;
        const float* yMap = nullptr;
        int yStep = 16;
        Kel16u* dst = nullptr;
        int dstStep = 8;
        KeliSize dstSize{4, 3};
        Kel32u interpolation = kelLinear;
    };
    Args ok;
    ok.src = src.data(), ok.xMap = map.data(), ok.yMap = map.data(), ok.dst = dst.data();
    struct Row {
        std::string what;
        KelStatus status;
        void (*breakArgs)(Args&);
    };
    const std::vector<Row> rows = {
        {"src null", kelStatusNullPtr, [](Args& a) { a.src = nullptr, a.srcSize.width = 0; }},
        {"xMap null", kelStatusNullPtr, [](Args& a) { a.xMap = nullptr, a.interpolation = 3; }},
        {"yMap null", kelStatusNullPtr, [](Args& a) { a.yMap = nullptr; }},
        {"dst null", kelStatusNullPtr, [](Args& a) { a.dst = nullptr, a.dstStep = 0; }},
        {"roi null", kelStatusNullPtr, [](Args& a) { a.roiNull = true; }},
        {"src width", kelStatusBadSize, [](Args& a) { a.srcSize.width = 0, a.interpolation = 5; }},
        {"src height", kelStatusBadSize, [](Args& a) { a.srcSize.height = -1; }},
        {"roi x negative", kelStatusBadSize, [](Args& a) { a.roi.x = -1, a.srcStep = 0; }},
        {"roi y negative", kelStatusBadSize, [](Args& a) { a.roi.y = -3; }},
        {"roi width", kelStatusBadSize, [](Args& a) { a.roi.width = 0; }},
        {"roi height", kelStatusBadSize, [](Args& a) { a.roi.height = 0; }},
        {"dst width", kelStatusBadSize, [](Args& a) { a.dstSize.width = 0; }},
        {"dst height", kelStatusBadSize, [](Args& a) { a.dstSize.height = -5; }},
        {"kind 0", kelStatusBadInterpolation, [](Args& a) { a.interpolation = 0, a.xStep = 0; }},
        {"kind 3", kelStatusBadInterpolation, [](Args& a) { a.interpolation = 3; }},
        {"kind super", kelStatusBadInterpolation, [](Args& a) { a.interpolation = kelSuper; }},
        {"kind 17", kelStatusBadInterpolation, [](Args& a) { a.interpolation = 17; }},
        {"kind 18 smooth", kelStatusBadInterpolation, [](Args& a) { a.interpolation = 0x80000012u; }},
        {"kind 32 + 2", kelStatusBadInterpolation, [](Args& a) { a.interpolation = 0x40000002u; }},
        {"src step", kelStatusBadStep, [](Args& a) { a.srcStep = 0, a.roi.x = 8; }},
        {"dst step", kelStatusBadStep, [](Args& a) { a.dstStep = -8; }},
        {"x map step", kelStatusBadStep, [](Args& a) { a.xStep = 0; }},
        {"y map step", kelStatusBadStep, [](Args& a) { a.yStep = -16; }},
        {"roi x at width", kelStatusRoiOutsideSrc, [](Args& a) { a.roi.x = 8; }},
        {"roi y at height", kelStatusRoiOutsideSrc, [](Args& a) { a.roi.y = 6, a.roi.width = 100; }},
    };
    for (const Row& r : rows) {
        Args a = ok;
        r.breakArgs(a);
        const KeliRect roiBefore = a.roi;
        const KelStatus s = keliRemap_16u_C1R(a.src, a.srcSize, a.srcStep, a.roiNull ? nullptr : &a.roi, a.xMap, a.xStep,
                                              a.yMap, a.yStep, a.dst, a.dstStep, a.dstSize, a.interpolation);
        EXPECT_EQ(s, r.status) << r.what;
        EXPECT_EQ(std::memcmp(&a.roi, &roiBefore, sizeof roiBefore), 0) << r.what;
        EXPECT_EQ(dst, std::vector<Kel16u>(12, 0xA5A5)) << r.what;
    }
    // Valid kinds with the smooth bit pass; a window past the image is trimmed and written back.
    for (Kel32u k : {1u, 2u, 4u, 6u, 16u, 0x80000001u, 0x80000010u}) {
        Args a = ok;
        a.roi = {3, 2, 100, 50};
        a.interpolation = k;
        EXPECT_EQ(keliRemap_16u_C1R(a.src, a.srcSize, a.srcStep, &a.roi, a.xMap, a.xStep, a.yMap, a.yStep, a.dst,
                                    a.dstStep, a.dstSize, a.interpolation),
                  kelStatusOk)
            << k;
        EXPECT_TRUE(a.roi.x == 3 && a.roi.y == 2 && a.roi.width == 5 && a.roi.height == 4) << k;
    }
}

}  // namespace
