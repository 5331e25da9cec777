// keliImageJaehne and keliImageRamp: every member against plain models over odd sizes, padded
// rows and alpha; the library's sine against the C library's; the four quarters of the rings
// as mirrors of each other; ramps at their saturation; the checks.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "keli.h"
#include "kit/image.hpp"
#include "move/rows/test_images.hpp"
#include "reference/test_images.hpp"

namespace {

template <class T> struct Images {
    std::vector<KelStatus (*)(T*, int, KeliSize)> jaehne;
    std::vector<KelStatus (*)(T*, int, KeliSize, float, float, KeliAxis)> ramp;
};
#define KELI_IMAGES(t)                                                                                        \
    Images<Kel##t> images_##t()                                                                               \
    {                                                                                                         \
        return {{keliImageJaehne_##t##_C1R, keliImageJaehne_##t##_C3R, keliImageJaehne_##t##_C4R,             \
                 keliImageJaehne_##t##_AC4R},                                                                 \
                {keliImageRamp_##t##_C1R, keliImageRamp_##t##_C3R, keliImageRamp_##t##_C4R,                   \
                 keliImageRamp_##t##_AC4R}};                                                                  \
    }
KELI_IMAGES(8u)
KELI_IMAGES(16u)
KELI_IMAGES(16s)
KELI_IMAGES(32f)
#undef KELI_IMAGES

constexpr int kChannels[] = {1, 3, 4, 4};

// Calls `fill(im)` on images of several sizes and shapes and compares with model(x, y) in
// every written channel; AC4 alpha and guard bytes must stay.
template <class T, class Fill, class Model> void image_sweep(int form, Fill&& fill, Model&& model, const std::string& what)
{
    const int C = kChannels[form];
    const bool alpha = form == 3;
    for (KeliSize size : {KeliSize{1, 1}, KeliSize{2, 2}, KeliSize{1, 6}, KeliSize{7, 1}, KeliSize{5, 4},
                          KeliSize{33, 9}, KeliSize{64, 17}, KeliSize{301, 6}, KeliSize{600, 3}}) {
        kit::Image<T> im(size.width, size.height, C, {size.width % 4, 16 * (size.height % 2), false});
        im.fill([] { return T(7); });
        kit::Image<T> expected = im;
        for (int y = 0; y < size.height; ++y)
            for (int x = 0; x < size.width; ++x)
                for (int c = 0; c < C - alpha; ++c) expected.at(x, y, c) = model(x, y, size);
        ASSERT_EQ(fill(im), kelStatusOk);
        for (int y = 0; y < size.height; ++y)
            for (int x = 0; x < size.width; ++x)
                for (int c = 0; c < C; ++c)
                    ASSERT_EQ(std::memcmp(&im.at(x, y, c), &expected.at(x, y, c), sizeof(T)), 0)
                        << what << " form " << form << " " << size.width << "x" << size.height << " at " << x << ","
                        << y << "," << c << ": " << double(im.at(x, y, c)) << " want " << double(expected.at(x, y, c));
        ASSERT_EQ(im.bytes(), expected.bytes()) << what << " guard bytes";
    }
}

template <class T> void images_members(const Images<T>& m)
{
    double (*sine)(double) = keli::rows::sin64;
    for (int form = 0; form < 4; ++form) {
        image_sweep<T>(form, [&](kit::Image<T>& im) { return m.jaehne[form](im.data(), im.step(), im.size()); },
                       [&](int x, int y, KeliSize s) { return reference::jaehne<T>(x, y, s.width, s.height, sine); },
                       "jaehne");
        const struct {
            float offset, slope;
        } ramps[] = {{1.0f, 2.0f}, {-3.5f, 0.75f}, {100.25f, -1.5f}, {0.5f, 1.0f}, {-0.0f, 1e30f}};
        for (const auto& r : ramps)
            for (int axis : {0, 1, 2, 7}) {
                image_sweep<T>(form, [&](kit::Image<T>& im) {
                    return m.ramp[form](im.data(), im.step(), im.size(), r.offset, r.slope, KeliAxis(axis));
                }, [&](int x, int y, KeliSize) { return reference::ramp<T>(x, y, r.offset, r.slope, axis); },
                               "ramp axis " + std::to_string(axis) + " slope " + std::to_string(r.slope));
            }
    }
}

TEST(ImageJaehne, EveryMemberMatchesTheModel)
{
    images_members(images_8u());
    images_members(images_16u());
    images_members(images_16s());
    images_members(images_32f());
}

TEST(ImageJaehne, SineWithinFourUlpOfTheCLibrary)
{
    // Every argument of a 3840 x 2160 image's upper-left quarter, a row in seven.
    const int W = 3840, H = 2160;
    long checked = 0;
    for (int y = 0; y < H / 2; y += 7)
        for (int x = 0; x < W / 2; ++x) {
            const float arg = reference::jaehne_argument(x, y, W, H);
            const float got = static_cast<float>(keli::rows::sin64(double(arg)));
            const float want = static_cast<float>(std::sin(double(arg)));
            const float ulp = std::nextafter(std::fabs(want), 2.0f) - std::fabs(want);
            ASSERT_LE(std::fabs(got - want), 4 * ulp) << "argument " << arg;
            ++checked;
        }
    EXPECT_GT(checked, 200000);
}

TEST(ImageJaehne, QuartersAreMirrors)
{
    for (KeliSize s : {KeliSize{9, 7}, KeliSize{10, 8}, KeliSize{257, 130}}) {
        kit::Image<float> im(s.width, s.height, 1);
        ASSERT_EQ(keliImageJaehne_32f_C1R(im.data(), im.step(), s), kelStatusOk);
        for (int y = 0; y < s.height; ++y)
            for (int x = 0; x < s.width; ++x) {
                ASSERT_EQ(im.at(x, y), im.at(s.width - 1 - x, y));
                ASSERT_EQ(im.at(x, y), im.at(x, s.height - 1 - y));
            }
    }
    kit::Image<float> two(2, 2, 1);
    ASSERT_EQ(keliImageJaehne_32f_C1R(two.data(), two.step(), two.size()), kelStatusOk);
    EXPECT_EQ(two.at(0, 0), two.at(1, 1));
    EXPECT_EQ(two.at(1, 0), two.at(0, 1));
    EXPECT_EQ(two.at(0, 0), two.at(1, 0));
}

TEST(ImageRamp, ValuesAndSaturation)
{
    kit::Image<float> f(5, 2, 1);
    ASSERT_EQ(keliImageRamp_32f_C1R(f.data(), f.step(), f.size(), 1.0f, 2.0f, kelAxisHorizontal), kelStatusOk);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 5; ++x) EXPECT_EQ(f.at(x, y), 1.0f + 2.0f * x);
    kit::Image<Kel8u> b(300, 1, 1);
    ASSERT_EQ(keliImageRamp_8u_C1R(b.data(), b.step(), b.size(), 0.0f, 1.0f, kelAxisHorizontal), kelStatusOk);
    EXPECT_EQ(b.at(254, 0), 254);
    EXPECT_EQ(b.at(255, 0), 255);
    EXPECT_EQ(b.at(299, 0), 255);
    // Ties go to even.
    ASSERT_EQ(keliImageRamp_8u_C1R(b.data(), b.step(), b.size(), 0.5f, 1.0f, kelAxisHorizontal), kelStatusOk);
    EXPECT_EQ(b.at(0, 0), 0);
    EXPECT_EQ(b.at(1, 0), 2);
    EXPECT_EQ(b.at(2, 0), 2);
}

TEST(ImageJaehne, ChecksInOrderWriteNothing)
{
    kit::Image<Kel8u> im(3, 3, 1);
    const auto before = im.snapshot();
    EXPECT_EQ(keliImageJaehne_8u_C1R(nullptr, 0, KeliSize{0, 0}), kelStatusNullPtr);
    EXPECT_EQ(keliImageJaehne_8u_C1R(im.data(), 0, KeliSize{0, 0}), kelStatusBadStep);
    EXPECT_EQ(keliImageJaehne_8u_C1R(im.data(), -3, KeliSize{3, 3}), kelStatusBadStep);
    EXPECT_EQ(keliImageJaehne_8u_C1R(im.data(), 3, KeliSize{3, 0}), kelStatusBadSize);
    EXPECT_EQ(keliImageRamp_8u_C1R(nullptr, 0, KeliSize{0, 0}, 0, 1, kelAxisBoth), kelStatusNullPtr);
    EXPECT_EQ(keliImageRamp_8u_C1R(im.data(), 0, KeliSize{0, 0}, 0, 1, kelAxisBoth), kelStatusBadStep);
    EXPECT_EQ(keliImageRamp_8u_C1R(im.data(), 3, KeliSize{-1, 3}, 0, 1, kelAxisBoth), kelStatusBadSize);
    EXPECT_EQ(im.bytes(), before);
}

}  // namespace
