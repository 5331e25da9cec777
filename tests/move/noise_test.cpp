// keliAddRandUniform and keliAddRandGauss against plain models of the generator and the two
// formulas: pinned first words, the Gaussian round as two generator steps, every member over
// odd sizes, padded and bottom-up images, the seed handed back, alpha untouched, the checks.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "keli.h"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "move/rows/noise.hpp"
#include "reference/noise.hpp"

namespace {

TEST(Noise, GeneratorWordsArePinned)
{
    // First words of four seeds, worked out by hand from the recurrence.
    const struct {
        std::uint32_t seed;
        std::int32_t words[4];
    } pinned[] = {
        {0, {-2143376656, -1588453546, -1238212167, -415855842}},
        {1, {1676100226, -1588522615, -1713702600, 59565502}},
        {12345, {-852021644, 1853869290, 53130500, 1735112000}},
        {0xFFFFFFFFu, {-1667886260, -1588384478, -762721770, -891277170}},
    };
    for (const auto& p : pinned) {
        keli::rows::NoiseGenerator gen(p.seed);
        reference::Generator model(p.seed), rounds(p.seed);
        for (int i = 0; i < 4; ++i) {
            ASSERT_EQ(gen.next(), p.words[i]) << "seed " << p.seed << " word " << i;
            ASSERT_EQ(model.step(), p.words[i]) << "seed " << p.seed << " word " << i;
        }
        // A Gaussian round of the coupled chains is two steps of the one generator.
        for (int i = 0; i < 4; i += 2) {
            std::int32_t a0, b0;
            rounds.round(a0, b0);
            EXPECT_EQ(a0, p.words[i]);
            EXPECT_EQ(b0, p.words[i + 1]);
        }
        EXPECT_EQ(rounds.x0, gen.seed());
    }
}

TEST(Noise, LogarithmAgreesWithTheLibraryOfC)
{
    kit::Rng rng;
    for (int i = 0; i < 200000; ++i) {
        const double w = std::ldexp(1.0 + rng.below(1 << 30) / double(1 << 30), -rng.below(64) - 1);
        const double want = std::log(w), got = keli::rows::ln64(w);
        ASSERT_LE(std::fabs(got - want), 4e-16 * std::fabs(want) + 1e-300) << w;
        // The two-lane form gives the same bits in either lane.
        alignas(16) double lanes[2];
        _mm_store_pd(lanes, keli::rows::ln64x2(_mm_set_pd(w, 0.5 * w + 0.25)));
        ASSERT_EQ(lanes[1], got) << w;
        ASSERT_EQ(lanes[0], keli::rows::ln64(0.5 * w + 0.25)) << w;
    }
}

template <class T> struct Noise {
    std::vector<KelStatus (*)(T*, int, KeliSize, T, T, Kel32u*)> uniform, gauss;
};
#define KELI_NOISE(t)                                                                                         \
    Noise<Kel##t> noise_##t()                                                                                 \
    {                                                                                                         \
        return {{keliAddRandUniform_##t##_C1IR, keliAddRandUniform_##t##_C3IR, keliAddRandUniform_##t##_C4IR, \
                 keliAddRandUniform_##t##_AC4IR},                                                             \
                {keliAddRandGauss_##t##_C1IR, keliAddRandGauss_##t##_C3IR, keliAddRandGauss_##t##_C4IR,       \
                 keliAddRandGauss_##t##_AC4IR}};                                                              \
    }
KELI_NOISE(8u)
KELI_NOISE(16u)
KELI_NOISE(16s)
KELI_NOISE(32f)
#undef KELI_NOISE

constexpr int kChannels[] = {1, 3, 4, 4};

// Runs one member over sizes and shapes; `model(seed)` gives a function of the element
// sequence (value for the next drawn element) and the seed it leaves.
template <class T, class Fn, class Model>
void noise_sweep(Fn fn, int form, T p0, T p1, Model&& makeModel, const char* what)
{
    kit::Rng rng;
    const int C = kChannels[form];
    const bool alpha = form == 3;
    for (int width : {1, 2, 5, 16, 33, 70, 300}) {
        for (int height : {1, 3}) {
            kit::Image<T> im(width, height, C, {width % 5, 8 * (width % 3), false});
            im.fill([&] { return std::is_same_v<T, float> ? T(rng.below(2000) - 1000) / 8 : T(rng.any<T>()); });
            kit::Image<T> expected = im;
            const Kel32u seed = static_cast<Kel32u>(width * 7919 + height);
            auto model = makeModel(seed);
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x)
                    for (int c = 0; c < C - alpha; ++c) {
                        T& e = expected.at(x, y, c);
                        e = reference::noise_sum(e, model.next());
                    }
            Kel32u s = seed;
            ASSERT_EQ(fn(im.data(), im.step(), im.size(), p0, p1, &s), kelStatusOk);
            ASSERT_EQ(im.bytes(), expected.bytes())
                << what << " form " << form << " width " << width << " height " << height;
            ASSERT_EQ(s, model.seed()) << what << " seed handed back";
        }
    }
}

struct UniformModel {
    reference::Generator gen;
    double scale, mid;
    double next() { return std::nearbyint(double(gen.step()) * scale + mid); }
    Kel32u seed() const { return gen.x0; }
};
struct UniformModel32f : UniformModel {
    double next() { return double(gen.step()) * scale + mid; }
};
struct GaussSeed : reference::GaussModel {
    Kel32u seed() const { return gen.x0; }
};

template <class T> void noise_members(T low, T high, T mean, T stDev)
{
    const Noise<T> n = [] {
        if constexpr (std::is_same_v<T, Kel8u>) return noise_8u();
        else if constexpr (std::is_same_v<T, Kel16u>) return noise_16u();
        else if constexpr (std::is_same_v<T, Kel16s>) return noise_16s();
        else return noise_32f();
    }();
    for (int form = 0; form < 4; ++form) {
        noise_sweep<T>(n.uniform[form], form, low, high, [&](Kel32u seed) {
            const double scale = double(high - low) * 2.3283064365387e-10, mid = double(high + low) * 0.5;
            if constexpr (std::is_same_v<T, float>) return UniformModel32f{{reference::Generator(seed), scale, mid}};
            else return UniformModel{reference::Generator(seed), scale, mid};
        }, "uniform");
        noise_sweep<T>(n.gauss[form], form, mean, stDev, [&](Kel32u seed) {
            GaussSeed g{{reference::Generator(seed), double(mean), double(stDev)}};
            return g;
        }, "gauss");
    }
}

TEST(Noise, EveryMemberMatchesTheModel)
{
    noise_members<Kel8u>(10, 90, 100, 40);
    noise_members<Kel8u>(200, 3, 5, 255);  // low above high, wide deviation: saturation both ways
    noise_members<Kel16u>(0, 60000, 30000, 9000);
    noise_members<Kel16s>(-32768, 32767, -7, 20000);
    noise_members<Kel16s>(-3, 3, 0, 1);
    noise_members<Kel32f>(-2.5f, 7.25f, 1.5f, 3.0f);
    noise_members<Kel32f>(-0.25f, 0.25f, 0.0f, 0.125f);  // narrower than an integer
}

TEST(Noise, SeedsAdvanceAndRepeat)
{
    kit::Image<Kel8u> a(37, 5, 1), b(37, 5, 1);
    a.fill([] { return Kel8u(77); });
    b.fill([] { return Kel8u(77); });
    const auto before = a.snapshot();
    // Zero bounds leave the image alone and yet move the seed by one word an element.
    Kel32u s = 99;
    ASSERT_EQ(keliAddRandUniform_8u_C1IR(a.data(), a.step(), a.size(), 0, 0, &s), kelStatusOk);
    EXPECT_EQ(a.bytes(), before);
    reference::Generator model(99);
    for (int i = 0; i < 37 * 5; ++i) model.step();
    EXPECT_EQ(s, model.x0);
    // The same seed and image give the same noise; the seed handed back goes on with new noise.
    Kel32u sa = 5, sb = 5;
    ASSERT_EQ(keliAddRandGauss_8u_C1IR(a.data(), a.step(), a.size(), 0, 30, &sa), kelStatusOk);
    ASSERT_EQ(keliAddRandGauss_8u_C1IR(b.data(), b.step(), b.size(), 0, 30, &sb), kelStatusOk);
    auto pixels = [](const kit::Image<Kel8u>& im) {
        std::vector<Kel8u> v;
        for (int y = 0; y < im.height(); ++y)
            for (int x = 0; x < im.width(); ++x) v.push_back(im.at(x, y));
        return v;
    };
    EXPECT_EQ(pixels(a), pixels(b));
    EXPECT_EQ(sa, sb);
    EXPECT_NE(a.bytes(), before);
    ASSERT_EQ(keliAddRandGauss_8u_C1IR(b.data(), b.step(), b.size(), 0, 30, &sb), kelStatusOk);
    EXPECT_NE(sa, sb);
}

TEST(Noise, ChecksInOrderWriteNothing)
{
    kit::Image<Kel16s> im(4, 4, 1);
    const auto before = im.snapshot();
    Kel32u seed = 3;
    const KeliSize ok{4, 4}, bad{0, 4};
    for (auto fn : {keliAddRandUniform_16s_C1IR, keliAddRandGauss_16s_C1IR}) {
        EXPECT_EQ(fn(nullptr, 0, bad, 0, 1, &seed), kelStatusNullPtr);
        EXPECT_EQ(fn(im.data(), 0, bad, 0, 1, nullptr), kelStatusNullPtr);
        EXPECT_EQ(fn(im.data(), 0, bad, 0, 1, &seed), kelStatusBadSize);
        EXPECT_EQ(fn(im.data(), 0, ok, 0, 1, &seed), kelStatusBadStep);
        EXPECT_EQ(fn(im.data(), -8, ok, 0, 1, &seed), kelStatusBadStep);
    }
    EXPECT_EQ(im.bytes(), before);
    EXPECT_EQ(seed, 3u);
}

}  // namespace
