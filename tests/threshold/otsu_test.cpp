// keliComputeThreshold_Otsu_8u_C1R: against the model over the geometry sweep, the ties and
// single levels, the column walk, the skipped levels, and the check order.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "keli.h"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "kit/sweep.hpp"
#include "reference/threshold.hpp"

namespace {

std::vector<std::uint64_t> histogram_of(const kit::Image<Kel8u>& image)
{
    std::vector<std::uint64_t> h(256, 0);
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) ++h[image.at(x, y)];
    return h;
}

int otsu(const Kel8u* src, int step, KeliSize size)
{
    Kel8u t = 0xA5;
    EXPECT_EQ(keliComputeThreshold_Otsu_8u_C1R(src, step, size, &t), kelStatusOk);
    return t;
}

TEST(Otsu, MatchesTheModelOverTheSweep)
{
    kit::Rng rng;
    kit::SweepOptions o;
    o.maxWidth = 40;
    int kind = 0;
    kit::sweep(o, [&](const kit::Geometry& g) {
        SCOPED_TRACE(g.describe());
        kit::Image<Kel8u> image(g.width, g.height, 1, g.src);
        // Uniform noise, a few levels (long runs of equal pixels), and two noisy modes.
        const int lo = rng.below(200), hi = lo + 1 + rng.below(55);
        switch (kind++ % 3) {
        case 0: image.fill([&] { return rng.any<Kel8u>(); }); break;
        case 1: image.fill([&] { return Kel8u(rng.below(3) * 60 + lo / 4); }); break;
        default: image.fill([&] { return Kel8u((rng.below(2) ? lo : hi) + rng.below(3) - 1 + (lo == 0)); }); break;
        }
        const auto before = image.snapshot();
        ASSERT_EQ(otsu(image.data(), image.step(), image.size()), reference::otsu(histogram_of(image)));
        EXPECT_EQ(image.bytes(), before);
    });
}

TEST(Otsu, OneLevelGivesZeroAndTwoLevelsGiveTheLowerOne)
{
    std::vector<Kel8u> pixels(37 * 5);
    for (int level : {0, 1, 128, 254, 255}) {
        std::fill(pixels.begin(), pixels.end(), Kel8u(level));
        EXPECT_EQ(otsu(pixels.data(), 37, {37, 5}), 0) << level;
    }
    // Every level from a to b - 1 separates the two alike; the first maximum stands.
    const int pairs[][2] = {{0, 255}, {10, 11}, {3, 200}, {254, 255}, {0, 1}};
    for (const auto& p : pairs)
        for (int share : {1, 18, 36}) {
            for (std::size_t i = 0; i < pixels.size(); ++i) pixels[i] = Kel8u(int(i % 37) < share ? p[0] : p[1]);
            EXPECT_EQ(otsu(pixels.data(), 37, {37, 5}), p[0]) << p[0] << " " << p[1] << " share " << share;
        }
}

TEST(Otsu, OneColumnEqualsTheTransposedRow)
{
    kit::Rng rng;
    for (int n = 1; n <= 41; ++n) {
        std::vector<Kel8u> column(n * 3);
        for (auto& v : column) v = Kel8u(rng.below(4) * 50 + rng.below(20));
        std::vector<Kel8u> row(n);
        for (int i = 0; i < n; ++i) row[i] = column[i * 3];
        EXPECT_EQ(otsu(column.data(), 3, {1, n}), otsu(row.data(), n, {n, 1})) << n;
    }
}

TEST(Otsu, LevelsOfNegligibleWeightAddNothingToTheClassMean)
{
    // Past 2^23 pixels a lone pixel weighs less than the float epsilon, so its level is
    // skipped. Here that decides between two nearly equal splits: the textbook search that
    // still accumulates the lone pixel's moment picks the other one.
    const int width = 192, height = 43691;  // 2^23 + 64 pixels
    std::vector<Kel8u> image(std::size_t(width) * height);
    const std::size_t a = 2500000, c = 753144;
    for (std::size_t i = 0; i < image.size(); ++i) image[i] = i < a ? 100 : i < image.size() - c ? 150 : 230;
    image[0] = 99;
    std::vector<std::uint64_t> h(256, 0);
    for (Kel8u v : image) ++h[v];
    const int want = reference::otsu(h);
    ASSERT_NE(want, reference::otsu(h, false)) << "the image no longer tells the two searches apart";
    EXPECT_EQ(otsu(image.data(), width, {width, height}), want);
}

TEST(Otsu, ChecksRunInOrderAndWriteNothing)
{
    const Kel8u src[64] = {1, 2, 3};
    Kel8u t = 0x5A;
    struct Case {
        const Kel8u* src;
        int step;
        KeliSize size;
        Kel8u* out;
        KelStatus want;
    } cases[] = {
        {nullptr, 0, {0, 0}, &t, kelStatusNullPtr},  // pointers before size
        {src, 0, {0, 0}, nullptr, kelStatusNullPtr},
        {src, 0, {0, 4}, &t, kelStatusBadSize},      // size before step
        {src, 8, {8, -1}, &t, kelStatusBadSize},
        {src, 7, {8, 4}, &t, kelStatusBadStep},      // a step below the width
        {src, -8, {8, 4}, &t, kelStatusBadStep},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(keliComputeThreshold_Otsu_8u_C1R(c.src, c.step, c.size, c.out), c.want);
        EXPECT_EQ(t, 0x5A);
    }
    // A step equal to the width is enough.
    EXPECT_EQ(keliComputeThreshold_Otsu_8u_C1R(src, 8, {8, 4}, &t), kelStatusOk);
}

}  // namespace
