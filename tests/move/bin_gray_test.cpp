// keliBinToGray and keliGrayToBin against the bit model: every width up to a few bytes past the
// vector step, every bit offset (and offsets past 7, of which only the low bits count), bits of
// the destination outside the row kept, the strict threshold, and the check order.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <vector>

#include "keli.h"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "reference/convert_bits.hpp"

namespace {

template <class D> using ToGrayFn = KelStatus (*)(const Kel8u*, int, int, D*, int, KeliSize, D, D);
template <class S> using ToBinFn = KelStatus (*)(const S*, int, Kel8u*, int, int, KeliSize, S);

template <class D> void to_gray_member(ToGrayFn<D> fn, D lo, D hi)
{
    kit::Rng rng;
    for (int width = 1; width <= 45; ++width)
        for (int offset : {0, 1, 3, 7, 8, 13}) {
            const int height = 2, srcStep = 8;
            std::vector<Kel8u> src(srcStep * height);
            for (auto& b : src) b = Kel8u(rng.below(256));
            kit::Image<D> dst(width, height, 1, {width % (16 / int(sizeof(D))), 8, false});
            const auto before = dst.snapshot();
            ASSERT_EQ(fn(src.data(), srcStep, offset, dst.data(), dst.step(), dst.size(), lo, hi), kelStatusOk);
            ASSERT_EQ(kit::first_stray_write(dst, before, kit::any_element), -1);
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x)
                    ASSERT_EQ(dst.at(x, y), reference::bit_of(&src[y * srcStep], offset, x) ? hi : lo)
                        << "width " << width << " offset " << offset << " x " << x << " y " << y;
        }
}

template <class S> void to_bin_member(ToBinFn<S> fn, std::vector<S> values, S threshold)
{
    kit::Rng rng;
    for (int width = 1; width <= 45; ++width)
        for (int offset : {0, 2, 5, 7, 9}) {
            const int height = 2, dstStep = 9;
            kit::Image<S> src(width, height, 1, {width % 5, 4, false});
            src.fill([&] { return values[rng.below(int(values.size()))]; });
            std::vector<Kel8u> dst(dstStep * height + 4);
            for (auto& b : dst) b = Kel8u(rng.below(256));
            std::vector<Kel8u> want = dst;
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x) reference::set_bit(&want[y * dstStep], offset, x, src.at(x, y) > threshold);
            ASSERT_EQ(fn(src.data(), src.step(), dst.data(), dstStep, offset, src.size(), threshold), kelStatusOk);
            ASSERT_EQ(dst, want) << "width " << width << " offset " << offset;
        }
}

TEST(BinGray, BitsToGrayFromTheLowBitUp)
{
    to_gray_member<Kel8u>(keliBinToGray_1u8u_C1R, 3, 250);
    to_gray_member<Kel16u>(keliBinToGray_1u16u_C1R, 65535, 7);
    to_gray_member<Kel16s>(keliBinToGray_1u16s_C1R, -32768, 32767);
    to_gray_member<Kel32f>(keliBinToGray_1u32f_C1R, -0.5f, 1e30f);
    const Kel8u byte = 0b00000101;
    Kel8u out[8];
    ASSERT_EQ(keliBinToGray_1u8u_C1R(&byte, 1, 0, out, 8, {8, 1}, 0, 9), kelStatusOk);
    EXPECT_EQ(std::vector<Kel8u>(out, out + 8), (std::vector<Kel8u>{9, 0, 9, 0, 0, 0, 0, 0}));
}

TEST(BinGray, GrayToBitsStrictlyAboveTheThreshold)
{
    to_bin_member<Kel8u>(keliGrayToBin_8u1u_C1R, {0, 99, 100, 101, 128, 255}, 100);
    to_bin_member<Kel8u>(keliGrayToBin_8u1u_C1R, {0, 127, 128, 200, 255}, 200);
    to_bin_member<Kel16u>(keliGrayToBin_16u1u_C1R, {0, 1000, 32767, 32768, 40000, 40001, 65535}, 40000);
    to_bin_member<Kel16s>(keliGrayToBin_16s1u_C1R, {-32768, -2, -1, 0, 1, 32767}, -1);
    to_bin_member<Kel32f>(keliGrayToBin_32f1u_C1R,
                          {-1.0f, 0.25f, 0.5f, 0.75f, std::numeric_limits<float>::quiet_NaN(),
                           std::numeric_limits<float>::infinity()},
                          0.5f);
    const Kel8u eq = 7;
    Kel8u bit = 0xFF;
    ASSERT_EQ(keliGrayToBin_8u1u_C1R(&eq, 1, &bit, 1, 0, {1, 1}, 7), kelStatusOk);
    EXPECT_EQ(bit, 0xFE);  // equal to the threshold: a clear bit, the other seven kept
}

TEST(BinGray, ChecksRunInOrderAndWriteNothing)
{
    const Kel8u src[4] = {1, 2, 3, 4};
    Kel8u dst[8];
    std::memset(dst, kit::kCanary, sizeof dst);
    EXPECT_EQ(keliBinToGray_1u8u_C1R(nullptr, 0, -1, dst, 0, {0, 0}, 0, 1), kelStatusNullPtr);
    EXPECT_EQ(keliBinToGray_1u8u_C1R(src, 0, -1, dst, 0, {0, 1}, 0, 1), kelStatusBadSize);
    EXPECT_EQ(keliBinToGray_1u8u_C1R(src, 0, -1, dst, 4, {4, 1}, 0, 1), kelStatusBadStep);
    EXPECT_EQ(keliBinToGray_1u8u_C1R(src, 1, -1, dst, 4, {4, 1}, 0, 1), kelStatusBadSize);
    EXPECT_EQ(keliGrayToBin_8u1u_C1R(src, 4, nullptr, 1, -1, {4, 1}, 0), kelStatusNullPtr);
    EXPECT_EQ(keliGrayToBin_8u1u_C1R(src, 4, dst, 1, -1, {4, 0}, 0), kelStatusBadSize);
    EXPECT_EQ(keliGrayToBin_8u1u_C1R(src, 4, dst, -1, -1, {4, 1}, 0), kelStatusBadStep);
    EXPECT_EQ(keliGrayToBin_8u1u_C1R(src, 4, dst, 1, -1, {4, 1}, 0), kelStatusBadSize);
    for (Kel8u v : dst) ASSERT_EQ(v, kit::kCanary);
}

}  // namespace
