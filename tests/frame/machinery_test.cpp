// The shared machinery on its own: the wide layer's path choice, chunking and status rule,
// the driver's warning rule and element steps, the store choice, spec-buffer alignment, the
// floating-point guard and the core library's processor queries.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "frame/driver.hpp"
#include "frame/fp_guard.hpp"
#include "frame/spec_buffer.hpp"
#include "frame/store_choice.hpp"
#include "frame/wide.hpp"
#include "kelcore.h"

namespace {

using keli::wide::run;

struct Chunk {
    std::int64_t y, x, n;
};

TEST(Wide, SmallCallsTakeTheNarrowBodyWithItsChecks)
{
    int narrowCalls = 0;
    KeliSize seen{};
    auto narrow = [&](KeliSize s) { ++narrowCalls; seen = s; return KelStatus(kelStatusBadSize); };
    auto never = [](std::int64_t, std::int64_t, std::int64_t) { ADD_FAILURE(); return KelStatus(0); };
    // A negative size with small steps still goes narrow and gets its status there.
    EXPECT_EQ(run({64, 64}, {5, -1}, 1, narrow, never), kelStatusBadSize);
    EXPECT_EQ(narrowCalls, 1);
    EXPECT_EQ(seen.height, -1);
    // The product limit counts bytes: 0x7FFFFFFE bytes still fit, 0x7FFFFFFF do not.
    EXPECT_TRUE(keli::wide::fits_narrow({1}, {0x3FFFFFFF, 2}, 1));
    EXPECT_FALSE(keli::wide::fits_narrow({1}, {0x3FFFFFFF, 2}, 2));
    EXPECT_TRUE(keli::wide::fits_narrow({-0x7FFFFFFE}, {1, 1}, 4));
    EXPECT_FALSE(keli::wide::fits_narrow({-0x7FFFFFFF}, {1, 1}, 4));
    EXPECT_FALSE(keli::wide::fits_narrow({64}, {INT64_MAX, INT64_MAX}, 1));
}

TEST(Wide, LargeCallsWalkChunksAndKeepTheLastStatus)
{
    auto narrow = [](KeliSize) { ADD_FAILURE(); return KelStatus(0); };
    // Negative height with a step that does not fit: accepted, nothing done.
    EXPECT_EQ(run({std::int64_t(1) << 32}, {5, -1}, 1, narrow,
                  [](std::int64_t, std::int64_t, std::int64_t) { ADD_FAILURE(); return KelStatus(0); }),
              kelStatusOk);

    // 3e9 pixels of 8u: three chunks per row, the last shorter.
    std::vector<Chunk> chunks;
    const std::int64_t width = 3000000000ll;
    KelStatus s = run({width}, {width, 2}, 1, narrow, [&](std::int64_t y, std::int64_t x, std::int64_t n) {
        chunks.push_back({y, x, n});
        return KelStatus(chunks.size() == 2 ? kelStatusDivByZeroWarn : kelStatusOk);
    });
    EXPECT_EQ(s, kelStatusOk) << "a warning of an earlier chunk does not survive the last chunk";
    ASSERT_EQ(chunks.size(), 6u);
    EXPECT_EQ(chunks[1].x, 0x3FFFFFFF);
    EXPECT_EQ(chunks[2].n, width - 2 * 0x3FFFFFFFll);
    EXPECT_EQ(chunks[3].y, 1);

    // 16-bit C3 pixels: chunks of whole pixels below 2^30 bytes; an error stops the walk at once.
    int calls = 0;
    s = run({0x80000000ll}, {0x20000000, 3}, 6, narrow, [&](std::int64_t, std::int64_t x, std::int64_t n) {
        ++calls;
        EXPECT_EQ(n, x == 0 ? 0x3FFFFFFF / 6 : n);
        return KelStatus(calls == 2 ? kelStatusNullPtr : kelStatusDivByZeroWarn);
    });
    EXPECT_EQ(s, kelStatusNullPtr);
    EXPECT_EQ(calls, 2);
}

TEST(Driver, KeepsTheFirstWarningAndVisitsEveryRow)
{
    int visited = 0;
    std::uint8_t buffer[4] = {};
    KelStatus s = keli::walk_rows(
        4, [&](std::uint8_t*) { ++visited; return KelStatus(visited == 2 ? 3 : visited == 3 ? 7 : 0); },
        keli::row_ptr(buffer, 1));
    EXPECT_EQ(s, 3);
    EXPECT_EQ(visited, 4);

    // Element steps drop the low bits of the byte step; byte steps do not.
    Kel16s data[8];
    auto elements = keli::row_ptr<keli::StepRule::Elements>(data, 5);
    elements.next();
    EXPECT_EQ(elements.p, data + 2);
    auto bytes = keli::row_ptr(reinterpret_cast<std::uint8_t*>(data + 4), -3);
    bytes.next();
    EXPECT_EQ(bytes.p, reinterpret_cast<std::uint8_t*>(data + 4) - 3);
}

TEST(Machinery, StoreChoiceAndSpecAlignment)
{
    EXPECT_FALSE(keli::use_nontemporal(0x80000));  // at the gate: never asks
    int cache = 0;
    if (kelGetMaxCacheSizeB(&cache) == kelStatusOk) {
        EXPECT_TRUE(keli::use_nontemporal(std::uint64_t(cache) + 0x80000));
        if (cache > 0x80001) {
            EXPECT_FALSE(keli::use_nontemporal(std::uint64_t(cache) - 1));
        }
    }
    alignas(64) unsigned char block[192];
    for (int off = 0; off < 64; ++off) {
        unsigned char* p = keli::spec::aligned(block + off);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 64, 0u);
        EXPECT_EQ(p, off == 0 ? block : block + 64);
    }
    const std::uint32_t id = 0x4B617389;
    std::memcpy(block + 64, &id, 4);
    EXPECT_TRUE(keli::spec::has_identifier(block + 64, 0x4B617389));
    EXPECT_FALSE(keli::spec::has_identifier(block + 64, 0x4B61738A));
}

TEST(Machinery, FloatingPointGuardRestoresTheControlRegister)
{
    const unsigned before = _mm_getcsr();
    {
        keli::FpControlGuard guard;
        guard.set_rounding(3);
        guard.set_flush_to_zero(true);
        EXPECT_NE(_mm_getcsr(), before);
    }
    EXPECT_EQ(_mm_getcsr(), before);
}

TEST(Core, AnswersFromTheProcessor)
{
    EXPECT_EQ(kelGetMaxCacheSizeB(nullptr), kelStatusNullPtr);
    int cache = 0;
    const KelStatus s = kelGetMaxCacheSizeB(&cache);
    if (s == kelStatusOk) {
        EXPECT_GE(cache, 32 * 1024);  // no x86 processor with SSE4.2 has less
    } else {
        EXPECT_EQ(s, kelStatusUnsupportedMode);
    }
    int line = 0;
    ASSERT_EQ(kel_get_cache_line_size(&line), kelStatusOk);
    EXPECT_GE(line, 32);
    EXPECT_EQ(line & (line - 1), 0);
    EXPECT_NE(ownGetFeature(kelCpuSSE42 | kelCpuSSE41 | kelCpuSSE2), 0);
    EXPECT_EQ(ownGetFeature(0), 0);

    void* p = kelMalloc(100);
    void* q = kelMalloc_L(5000);
    ASSERT_NE(p, nullptr);
    ASSERT_NE(q, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 64, 0u);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(q) % 64, 0u);
    kelFree(p);
    kelFree(q);
    EXPECT_EQ(kelMalloc(0), nullptr);
    EXPECT_EQ(kelMalloc(-1), nullptr);
}

}  // namespace
