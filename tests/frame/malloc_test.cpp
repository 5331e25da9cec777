// Image allocation: step formulas, the limits where a row or an image stops fitting, the
// wrap-around rules of both forms, and the version record.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "keli.h"

namespace {

bool aligned64(const void* p) { return (reinterpret_cast<std::uintptr_t>(p) & 63) == 0; }

TEST(Malloc, StepsRoundRowsUpTo64BytesAndMemoryIsUsable)
{
    struct Case {
        void* (*alloc)(int, int, int*);
        int width, height, step;
    };
    const Case cases[] = {
        {[](int w, int h, int* s) -> void* { return keliMalloc_8u_C1(w, h, s); }, 1, 1, 64},
        {[](int w, int h, int* s) -> void* { return keliMalloc_8u_C3(w, h, s); }, 22, 1, 128},
        {[](int w, int h, int* s) -> void* { return keliMalloc_16s_AC4(w, h, s); }, 8, 3, 64},
        {[](int w, int h, int* s) -> void* { return keliMalloc_32f_C3(w, h, s); }, 6, 2, 128},
        {[](int w, int h, int* s) -> void* { return keliMalloc_32fc_C2(w, h, s); }, 5, 7, 128},
        {[](int w, int h, int* s) -> void* { return keliMalloc_32sc_AC4(w, h, s); }, 3, 1, 128},
    };
    for (const Case& c : cases) {
        int step = -1;
        void* p = c.alloc(c.width, c.height, &step);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(step, c.step);
        EXPECT_TRUE(aligned64(p));
        std::memset(p, 0x5A, static_cast<std::size_t>(step) * c.height);  // the whole image is ours
        keliFree(p);
    }
    keliFree(nullptr);  // passed on like any pointer
}

TEST(Malloc, RefusalsLeaveTheStepTheRuleSays)
{
    int step = 77;
    EXPECT_EQ(keliMalloc_8u_C1(0, 5, &step), nullptr);
    EXPECT_EQ(step, 0);
    step = 77;
    EXPECT_EQ(keliMalloc_8u_C1(5, 0, &step), nullptr);
    EXPECT_EQ(step, 0);
    // The step is written before the size of the whole image is refused.
    EXPECT_EQ(keliMalloc_8u_C1(0x40000000, 2, &step), nullptr);
    EXPECT_EQ(step, 0x40000000);
    EXPECT_EQ(keliMalloc_8u_C4(0x1FFFFFF0, 2, &step), nullptr);
    EXPECT_EQ(step, 0x7FFFFFC0);
    // Widest rows: a row of 2^31 - 1 bytes passes the width test, but rounding it up wraps
    // in 32 bits and the wrapped step is refused before it is written.
    EXPECT_EQ(keliMalloc_8u_C3(0x2AAAAAAA, 1, &step), nullptr);
    EXPECT_EQ(step, 0);
    step = 77;
    EXPECT_EQ(keliMalloc_8u_C3(0x2AAAAAAB, 1, &step), nullptr);  // row above 2^31 - 1 bytes
    EXPECT_EQ(step, 0);
    step = 77;
    EXPECT_EQ(keliMalloc_16s_C4(0x10000000, 1, &step), nullptr);
    EXPECT_EQ(step, 0);
    EXPECT_EQ(keliMalloc_8u_C1(-3, 4, &step), nullptr);
    // A null step pointer: null result, nothing to write to.
    EXPECT_EQ(keliMalloc_8u_C1(64, 5, nullptr), nullptr);
}

TEST(Malloc, WideFormsTestTheProductInHalves)
{
    Kel64s step = -1;
    void* p = keliMalloc_16s_C3_L(22, 2, &step);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(step, 192);
    keliFree(p);

    struct Case {
        Kel64s width, height, step;
    };
    const Case refused[] = {
        {0, 5, 0},
        {5, -1, 0},
        {0x7FFFFFFFFFFFFFF0ll, 1, 0},                     // rounding wraps to a step below the width
        {Kel64s(1) << 48, Kel64s(1) << 48, Kel64s(1) << 48},  // high halves multiply past 32 bits
        {Kel64s(1) << 34, Kel64s(1) << 30, Kel64s(1) << 34},  // low half of height times high half of row
        {0x7FFFFFC0, Kel64s(3) << 32, 0x7FFFFFC0},           // low half of step times high half of height
    };
    for (const Case& c : refused) {
        step = -1;
        EXPECT_EQ(keliMalloc_8u_C1_L(c.width, c.height, &step), nullptr) << c.width << " x " << c.height;
        EXPECT_EQ(step, c.step) << c.width << " x " << c.height;
    }
    EXPECT_EQ(keliMalloc_8u_C1_L(64, 5, nullptr), nullptr);
}

TEST(Version, IsOneConstantRecord)
{
    const KelLibraryVersion* v = keliGetLibVersion();
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(v, keliGetLibVersion());
    EXPECT_EQ(v->major, 2022);
    EXPECT_EQ(v->minor, 3);
    EXPECT_EQ(v->majorBuild, 0);
    EXPECT_EQ(v->build, 264276913);
    EXPECT_EQ(std::memcmp(v->targetCpu, "w7\0\0", 4), 0);
    EXPECT_STREQ(v->Name, "kelIP SSE4.2 (w7)");
    EXPECT_STREQ(v->Version, "2022.3.0 (r0x0fc08bb1)");
    EXPECT_STREQ(v->BuildDate, "Sep 19 2025");
}

}  // namespace
