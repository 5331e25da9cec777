// keliAbs: every member against the scalar model over the geometry sweep, the values where
// saturation and sign handling bite, the check order, and the element-step rule.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "keli.h"
#include "kit/unary.hpp"
#include "reference/abs.hpp"

namespace {

// Inputs weighted toward the edges of the range, where saturation happens.
Kel16s edgy16s(kit::Rng& rng)
{
    static const Kel16s edges[] = {-32768, -32767, -1, 0, 1, 32767};
    return rng.below(4) == 0 ? edges[rng.below(6)] : rng.any<Kel16s>();
}

Kel32f edgy32f(kit::Rng& rng)
{
    static const Kel32f edges[] = {-0.0f, 0.0f, -INFINITY, INFINITY, -NAN, NAN,
                                   -std::numeric_limits<float>::denorm_min(), -3.5f};
    return rng.below(4) == 0 ? edges[rng.below(8)] : rng.any<Kel32f>();
}

using Abs16s = KelStatus (*)(const Kel16s*, int, Kel16s*, int, KeliSize);
using Abs16sI = KelStatus (*)(Kel16s*, int, KeliSize);
using Abs32f = KelStatus (*)(const Kel32f*, int, Kel32f*, int, KeliSize);
using Abs32fI = KelStatus (*)(Kel32f*, int, KeliSize);

const kit::UnaryLayout kLayouts[] = {{1, false}, {3, false}, {4, false}, {4, true}};

TEST(Abs, EveryMemberMatchesTheModelOverTheSweep)
{
    const Abs16s abs16s[] = {keliAbs_16s_C1R, keliAbs_16s_C3R, keliAbs_16s_C4R, keliAbs_16s_AC4R};
    const Abs16sI abs16sI[] = {keliAbs_16s_C1IR, keliAbs_16s_C3IR, keliAbs_16s_C4IR, keliAbs_16s_AC4IR};
    const Abs32f abs32f[] = {keliAbs_32f_C1R, keliAbs_32f_C3R, keliAbs_32f_C4R, keliAbs_32f_AC4R};
    const Abs32fI abs32fI[] = {keliAbs_32f_C1IR, keliAbs_32f_C3IR, keliAbs_32f_C4IR, keliAbs_32f_AC4IR};
    kit::Rng rng;
    for (int i = 0; i < 4; ++i) {
        SCOPED_TRACE("layout " + std::to_string(i));
        kit::unary_sweep<Kel16s>(kLayouts[i], abs16s[i], abs16sI[i],
                                 [](Kel16s v) { return reference::abs(v); }, [&] { return edgy16s(rng); });
        kit::unary_sweep<Kel32f>(kLayouts[i], abs32f[i], abs32fI[i],
                                 [](Kel32f v) { return reference::abs(v); }, [&] { return edgy32f(rng); });
    }
}

TEST(Abs, SaturatesAndClearsOnlyTheSignBit)
{
    Kel16s s[] = {-32768, -32767, 0, 32767, -1};
    Kel16s d[5];
    ASSERT_EQ(keliAbs_16s_C1R(s, sizeof s, d, sizeof d, {5, 1}), kelStatusOk);
    EXPECT_EQ(d[0], 32767);
    EXPECT_EQ(d[1], 32767);
    EXPECT_EQ(d[2], 0);
    EXPECT_EQ(d[4], 1);

    // A quiet not-a-number with a payload keeps the payload; -0 becomes +0.
    const std::uint32_t nanBits = 0xFFC12345u;
    Kel32f f[2];
    std::memcpy(&f[0], &nanBits, 4);
    f[1] = -0.0f;
    ASSERT_EQ(keliAbs_32f_C1IR(f, sizeof f, {2, 1}), kelStatusOk);
    std::uint32_t bits[2];
    std::memcpy(bits, f, 8);
    EXPECT_EQ(bits[0], 0x7FC12345u);
    EXPECT_EQ(bits[1], 0u);
}

TEST(Abs, Ac4LeavesEveryAlphaOfAWideRow)
{
    // 300 pixels: one full 256-pixel scratch chunk and a tail.
    kit::Image<Kel16s> src(300, 2, 4), dst(300, 2, 4);
    kit::Rng rng;
    src.fill([&] { return rng.any<Kel16s>(); });
    dst.fill([&] { return rng.any<Kel16s>(); });
    const kit::Image<Kel16s> before = dst;
    ASSERT_EQ(keliAbs_16s_AC4R(src.data(), src.step(), dst.data(), dst.step(), src.size()), kelStatusOk);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 300; ++x) {
            ASSERT_EQ(dst.at(x, y, 3), before.at(x, y, 3));
            ASSERT_EQ(dst.at(x, y, 0), reference::abs(src.at(x, y, 0)));
        }
}

TEST(Abs, ChecksRunInOrderAndWriteNothing)
{
    Kel16s src[8] = {-1, -2, -3, -4, -5, -6, -7, -8};
    Kel16s dst[8] = {};
    struct Case {
        const Kel16s* s;
        Kel16s* d;
        int srcStep, dstStep;
        KeliSize size;
        KelStatus want;
    } cases[] = {
        {nullptr, dst, 16, 16, {0, 0}, kelStatusNullPtr},  // pointers before size
        {src, nullptr, 16, 16, {4, 1}, kelStatusNullPtr},
        {src, dst, 0, 0, {0, 1}, kelStatusBadSize},        // size before steps
        {src, dst, 0, 16, {4, -1}, kelStatusBadSize},
        {src, dst, 0, 16, {4, 1}, kelStatusBadStep},
        {src, dst, 16, -16, {4, 1}, kelStatusBadStep},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(keliAbs_16s_C1R(c.s, c.srcStep, c.d, c.dstStep, c.size), c.want);
        for (Kel16s v : dst) ASSERT_EQ(v, 0);
    }
    EXPECT_EQ(keliAbs_32f_AC4IR(nullptr, 16, {1, 1}), kelStatusNullPtr);
    EXPECT_EQ(keliAbs_32f_C3IR(reinterpret_cast<Kel32f*>(dst), 12, {1, 0}), kelStatusBadSize);
    EXPECT_EQ(keliAbs_32f_C3IR(reinterpret_cast<Kel32f*>(dst), 0, {1, 1}), kelStatusBadStep);
    for (Kel16s v : dst) ASSERT_EQ(v, 0);
}

TEST(Abs, OddStepAdvancesByWholeElements)
{
    // A 16s source step of 9 bytes advances by 4 elements (8 bytes): the low bit is dropped.
    Kel16s src[12] = {-1, -2, -3, -4, -5, -6, -7, -8, -9, -10, -11, -12};
    Kel16s dst[9] = {};
    ASSERT_EQ(keliAbs_16s_C1R(src, 9, dst, 6, {3, 3}), kelStatusOk);
    const Kel16s want[9] = {1, 2, 3, 5, 6, 7, 9, 10, 11};
    for (int i = 0; i < 9; ++i) EXPECT_EQ(dst[i], want[i]) << i;
}

}  // namespace
