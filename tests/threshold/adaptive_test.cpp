// Adaptive thresholds against the window model: regions narrower and wider than the mask, masks
// on both sides of the kernels' direct-sum limit, every accepted border with random in-memory
// flags, deltas at the exact rational ties, out of place and in place, with a scratch buffer of
// exactly the queried size at an odd address and guard bytes around everything written.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "keli.h"
#include "kit/framed.hpp"
#include "kit/random.hpp"
#include "reference/adaptive.hpp"

namespace {

using kit::Framed;

constexpr Kel8u kGT = 200, kLE = 7, kGuard = 0x5A;

struct Case {
    int w, h, m, border;
    float delta;
    bool gauss;
    float sigma;
    std::string where() const
    {
        return std::string(gauss ? "gauss" : "box") + " w " + std::to_string(w) + " h " + std::to_string(h) + " m " +
               std::to_string(m) + " border " + std::to_string(border) + " delta " + std::to_string(delta);
    }
};

// The scratch (and spec) of exactly the queried size at an odd address, with guard bytes after.
struct Scratch {
    int size = 0, off;
    std::vector<Kel8u> bytes;
    Scratch(int n, int offset) : size(n), off(offset), bytes(offset + n + 64, 0xA5) {}
    Kel8u* get() { return bytes.data() + off; }
    bool tail_intact() const
    {
        for (std::size_t i = off + size; i < bytes.size(); ++i)
            if (bytes[i] != 0xA5) return false;
        return true;
    }
};

// Runs one case out of place and in place; both must equal the model, with nothing written
// around the region or past the scratch.
void check(const Case& k, Framed<Kel8u>& img, Kel8u value, kit::Rng& random)
{
    const KeliSize roi{k.w, k.h}, mask{k.m, k.m};
    int bufSize = 0, specSize = 0;
    if (k.gauss)
        ASSERT_EQ(keliThresholdAdaptiveGaussGetBufferSize(roi, mask, kel8u, 1, &specSize, &bufSize), kelStatusOk);
    else
        ASSERT_EQ(keliThresholdAdaptiveBoxGetBufferSize(roi, mask, kel8u, 1, &bufSize), kelStatusOk);
    Scratch buffer(bufSize, 1 + random.below(15)), spec(specSize, 1 + random.below(15));
    if (k.gauss) {
        ASSERT_EQ(keliThresholdAdaptiveGaussInit(roi, mask, kel8u, 1, k.sigma, spec.get()), kelStatusOk);
    }
    const auto weights = reference::adaptive_gauss_weights(k.m, k.sigma);
    const auto run = [&](const Kel8u* src, std::int64_t sStep, Kel8u* dst, std::int64_t dStep) {
        const auto b = KeliBorderType(k.border);
        return k.gauss ? keliThresholdAdaptiveGauss_8u_C1R(src, int(sStep), dst, int(dStep), roi, k.delta, kGT, kLE, b,
                                                           value, spec.get(), buffer.get())
                       : keliThresholdAdaptiveBox_8u_C1R(src, int(sStep), dst, int(dStep), roi, mask, k.delta, kGT, kLE,
                                                         b, value, buffer.get());
    };
    const auto get = [&](std::int64_t x, std::int64_t y) { return img.at(x, y, 0); };
    const auto want = [&](int x, int y) {
        const int s = reference::adaptive_shortcut(k.delta, k.m);
        const bool above = s >= 0 ? s == 1
                           : k.gauss ? reference::adaptive_gauss_above(get, k.border, weights, k.w, k.h, value, x, y, k.delta)
                                     : reference::adaptive_box_above(get, k.border, k.m, k.w, k.h, value, x, y, k.delta);
        return above ? kGT : kLE;
    };

    Framed<Kel8u> out(k.w, k.h, 1, 3, random.below(16));
    std::fill(out.data.begin(), out.data.end(), kGuard);
    ASSERT_EQ(run(img.region(), img.step(), out.region(), out.step()), kelStatusOk) << k.where();
    ASSERT_TRUE(buffer.tail_intact()) << "scratch past its size written, " << k.where();
    for (int y = -out.margin; y < k.h + out.margin; ++y)
        for (int x = -out.margin; x < k.w + out.margin; ++x)
            ASSERT_EQ(out.at(x, y, 0), out.inside(x, y) ? want(x, y) : kGuard) << k.where() << " at " << x << "," << y;

    Framed<Kel8u> same = img;
    ASSERT_EQ(run(same.region(), same.step(), same.region(), same.step()), kelStatusOk) << k.where();
    ASSERT_TRUE(buffer.tail_intact()) << "in place: scratch past its size written, " << k.where();
    for (int y = -same.margin; y < k.h + same.margin; ++y)
        for (int x = -same.margin; x < k.w + same.margin; ++x)
            ASSERT_EQ(same.at(x, y, 0), same.inside(x, y) ? out.at(x, y, 0) : img.at(x, y, 0))
                << "in place, " << k.where() << " at " << x << "," << y;
}

// Deltas where the box rule bites: integers, exact ninths and 25ths, values just off them.
float random_delta(kit::Rng& random, int m)
{
    switch (random.below(5)) {
    case 0: return float(random.below(9) - 4);
    case 1: return float(random.below(41) - 20) / float(m * m);
    case 2: return std::nextafter(float(random.below(9) - 4), random.below(2) ? 10.0f : -10.0f);
    default: return float(random.below(2001) - 1000) / 128.0f;
    }
}

void sweep(bool gauss)
{
    kit::Rng random;
    const int widths[] = {1, 2, 3, 5, 8, 15, 16, 17, 31, 33, 40};
    const int heights[] = {1, 2, 4, 7, 12};
    const int masks[] = {3, 5, 7, 9, 15, 17, 19};
    const int bases[] = {kelBorderRepl, kelBorderConst, kelBorderInMem};
    for (int n = 0; n < 90; ++n) {
        Case k{widths[random.below(11)], heights[random.below(5)], masks[random.below(7)], 0, 0, gauss, 0};
        const int base = bases[random.below(3)];
        k.border = base == kelBorderInMem ? base : base | random.below(16) << 4;
        if (k.m / 2 > kit::kMargin) k.border &= 15;
        k.delta = random_delta(random, k.m);
        k.sigma = random.below(3) ? 0.0f : float(random.below(40) + 1) / 8.0f;
        // Pixels near a level, so the mean lands close to them and the rule is tested at its edge.
        Framed<Kel8u> img(k.w, k.h, 1, 5, random.below(16));
        const int level = random.below(3) == 0 ? 250 : 100;
        for (auto& v : img.data) v = Kel8u(level + random.below(6));
        check(k, img, Kel8u(level + random.below(6)), random);
    }
}

TEST(ThresholdAdaptiveBox, MatchesTheExactModelOnEveryRoute) { sweep(false); }
TEST(ThresholdAdaptiveGauss, MatchesTheF32ModelOnEveryRoute) { sweep(true); }

// Wide images run the vector kernels over long segments: both masks around the direct-sum
// limit, and a mask as wide as the image takes the bordered copy.
TEST(ThresholdAdaptive, LongRowsAndMasksLargerThanTheRegion)
{
    kit::Rng random;
    for (const bool gauss : {false, true})
        for (const Case k : {Case{301, 9, 15, kelBorderRepl, 0.5f, gauss, 0}, Case{301, 9, 17, kelBorderConst, -1.0f, gauss, 0},
                             Case{130, 6, 19, kelBorderRepl | kelBorderInMemTop, 2.0f / 361, gauss, 3.0f},
                             Case{130, 50, 41, kelBorderConst, 2.0f / 1681, gauss, 0},
                             Case{7, 5, 9, kelBorderConst, 0.0f, gauss, 0}, Case{4, 3, 21, kelBorderRepl, 1.0f, gauss, 0}}) {
            Framed<Kel8u> img(k.w, k.h, 1);
            for (auto& v : img.data) v = Kel8u(random.below(256));
            check(k, img, 77, random);
        }
}

// The shortcuts: a constant image against delta 0 and 1, delta past the range (no source read:
// a null-free but unreadable source would fault, so the source here is all guard), mask 1.
TEST(ThresholdAdaptive, ShortcutsAndConstantImages)
{
    kit::Rng random;
    for (const bool gauss : {false, true})
        for (const float delta : {0.0f, 1.0f, 256.0f, -255.0f, std::numeric_limits<float>::quiet_NaN()}) {
            Framed<Kel8u> img(19, 6, 1);
            std::fill(img.data.begin(), img.data.end(), Kel8u(90));
            check(Case{19, 6, 5, kelBorderRepl, delta, gauss, 0}, img, 90, random);
            check(Case{19, 6, 1, kelBorderConst, delta, gauss, 0}, img, 3, random);
        }
}

TEST(ThresholdAdaptiveGaussInit, StoresTheDefaultSigmaAndNormalisedWeights)
{
    alignas(8) Kel8u spec[4 * 5 + 40 + 8];
    for (int shift = 0; shift < 8; ++shift) {
        Kel8u* at = spec + shift;
        ASSERT_EQ(keliThresholdAdaptiveGaussInit({8, 8}, {5, 5}, kel8u, 1, 0.0f, at), kelStatusOk);
        ASSERT_GE(at[0], 1);
        ASSERT_LE(at[0], 8);
        ASSERT_EQ(reinterpret_cast<std::uintptr_t>(at + at[0]) % 8, 0u);
        float sigma, w[5];
        std::memcpy(&sigma, at + at[0] + 16, 4);
        std::memcpy(w, at + at[0] + 32, sizeof w);
        EXPECT_EQ(sigma, 1.1f);
        const auto model = reference::adaptive_gauss_weights(5, 1.1f);
        for (int i = 0; i < 5; ++i) EXPECT_EQ(w[i], model[i]);
        EXPECT_EQ(w[0], w[4]);
    }
}

TEST(ThresholdAdaptive, ChecksInOrderWriteNothing)
{
    const KeliSize roi{8, 8}, m3{3, 3};
    int size = -1, spec = -1;
    EXPECT_EQ(keliThresholdAdaptiveBoxGetBufferSize(roi, m3, kel8u, 1, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliThresholdAdaptiveBoxGetBufferSize({0, 8}, {2, 2}, kel16u, 3, &size), kelStatusBadSize);
    for (const KeliSize bad : {KeliSize{2, 2}, KeliSize{3, 5}, KeliSize{0, 0}, KeliSize{-1, -1}})
        EXPECT_EQ(keliThresholdAdaptiveBoxGetBufferSize(roi, bad, kel16u, 3, &size), kelStatusBadMaskSize);
    EXPECT_EQ(keliThresholdAdaptiveBoxGetBufferSize(roi, m3, kel16u, 3, &size), kelStatusBadDataType);
    EXPECT_EQ(keliThresholdAdaptiveBoxGetBufferSize(roi, m3, kel8u, 3, &size), kelStatusBadChannelCount);
    EXPECT_EQ(size, -1);
    EXPECT_EQ(keliThresholdAdaptiveGaussGetBufferSize(roi, m3, kel8u, 1, nullptr, &size), kelStatusNullPtr);
    EXPECT_EQ(keliThresholdAdaptiveGaussGetBufferSize(roi, m3, kel8u, 1, &spec, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliThresholdAdaptiveBoxGetBufferSize({40000, 40000}, {40001, 40001}, kel8u, 1, &size), kelStatusSizeOverflow);
    EXPECT_EQ(size, 0);
    ASSERT_EQ(keliThresholdAdaptiveGaussGetBufferSize(roi, m3, kel8u, 1, &spec, &size), kelStatusOk);
    EXPECT_EQ(spec, 52);
    // The size formula at a few points: strips, and the bordered copy for a mask past the region.
    EXPECT_EQ((keliThresholdAdaptiveBoxGetBufferSize({100, 50}, {5, 5}, kel8u, 1, &size), size), 3200 + 256 + 448 + 640);
    EXPECT_EQ((keliThresholdAdaptiveBoxGetBufferSize({4, 50}, {5, 5}, kel8u, 1, &size), size), 416 + 448);

    std::vector<Kel8u> src(64, 1), dst(64, kGuard), buffer(4096), specBytes(64);
    const auto box = [&](const Kel8u* s, Kel8u* d, KeliSize r, KeliSize m, int border, Kel8u* b) {
        return keliThresholdAdaptiveBox_8u_C1R(s, 8, d, 8, r, m, 1.0f, 1, 2, KeliBorderType(border), 0, b);
    };
    EXPECT_EQ(box(nullptr, dst.data(), {0, 0}, {2, 2}, 999, buffer.data()), kelStatusNullPtr);
    EXPECT_EQ(box(src.data(), dst.data(), roi, m3, kelBorderRepl, nullptr), kelStatusNullPtr);
    EXPECT_EQ(box(src.data(), dst.data(), {0, 8}, {2, 2}, 999, buffer.data()), kelStatusBadSize);
    EXPECT_EQ(box(src.data(), dst.data(), roi, {3, 1}, 999, buffer.data()), kelStatusBadMaskSize);
    for (const int border : {256, -1, int(kelBorderMirror), kelBorderMirror | 16, 0, 16, int(kelBorderWrap), kelBorderInMem | 4})
        EXPECT_EQ(box(src.data(), dst.data(), roi, m3, border, buffer.data()), kelStatusBadBorder) << border;

    ASSERT_EQ(keliThresholdAdaptiveGaussInit(roi, m3, kel8u, 1, 1.0f, specBytes.data()), kelStatusOk);
    const auto gauss = [&](KeliSize r, int border, const Kel8u* s) {
        return keliThresholdAdaptiveGauss_8u_C1R(src.data(), 8, dst.data(), 8, r, 1.0f, 1, 2, KeliBorderType(border), 0,
                                                 s, buffer.data());
    };
    EXPECT_EQ(gauss({0, 0}, 999, nullptr), kelStatusNullPtr);
    EXPECT_EQ(gauss({0, 0}, 999, specBytes.data()), kelStatusBadSize);
    EXPECT_EQ(gauss(roi, kelBorderMirror, specBytes.data()), kelStatusBadBorder);
    std::vector<Kel8u> wrong = specBytes;
    wrong[wrong[0]] ^= 1;  // the identifier
    EXPECT_EQ(gauss(roi, kelBorderRepl, wrong.data()), kelStatusSpecMismatch);
    wrong = specBytes, wrong[0] = 9;
    EXPECT_EQ(gauss(roi, kelBorderRepl, wrong.data()), kelStatusSpecMismatch);
    wrong = specBytes, wrong[wrong[0] + 12] = 4;  // an even mask
    EXPECT_EQ(gauss(roi, kelBorderRepl, wrong.data()), kelStatusSpecMismatch);
    EXPECT_EQ(keliThresholdAdaptiveGaussInit(roi, m3, kel8u, 1, 1.0f, nullptr), kelStatusNullPtr);
    for (Kel8u v : dst) ASSERT_EQ(v, kGuard);
}

}  // namespace
