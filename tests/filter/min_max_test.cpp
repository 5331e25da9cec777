// Minimum and maximum filters against the window model: every member over widths across the
// register and ring-row boundaries, masks from 1x1 to 15x15 and larger than the region, even
// sides, every border kind with random in-memory flags, 32f with NaN, infinities and signed zeros,
// a scratch buffer of exactly the queried size at an odd address and guard bytes around everything
// written. Then the checks in order, the size formula, the 64f erosion and dilation.
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
#include "reference/min_max.hpp"

namespace {

using kit::canary;
using kit::Framed;
using kit::same_bits;
using reference::Window;

// Floats: one in six a value where the fold rule bites (NaN of two payloads, zeros of both signs,
// infinities), the rest small numbers that tie often.
// With `ties`, floats are only -1, 1 and zeros of both signs: no NaN, so that two output rows
// may share the fold of their common rows, and every tie between zeros shows the fold order.
template <class T> T random_pixel(kit::Rng& random, bool ties = false)
{
    if constexpr (std::is_floating_point_v<T>) {
        if (ties) {
            const T values[] = {T(-0.0), T(0.0), T(-1), T(1)};
            return values[random.below(4)];
        }
        if (random.below(6) == 0) {
            const std::uint32_t special[] = {0x7FC00000u, 0xFFA00001u, 0x80000000u, 0x00000000u, 0xFF800000u, 0x7F800000u};
            T v;
            std::memcpy(&v, &special[random.below(6)], sizeof v);
            return v;
        }
        return T(random.below(201) - 100) / T(4);
    }
    return random.any<T>();
}

template <class T, int C> using Filter = std::conditional_t<
    C == 1, KelStatus (*)(const T*, int, T*, int, KeliSize, KeliSize, KeliBorderType, T, Kel8u*),
    KelStatus (*)(const T*, int, T*, int, KeliSize, KeliSize, KeliBorderType, const T*, Kel8u*)>;

// One member: the export, its size query, its type, and whether it takes the maximum.
template <class T, int C, bool Alpha> struct Member {
    Filter<T, C> fn;
    KelStatus (*query)(KeliSize, KeliSize, KelDataType, int, int*);
    KelDataType type;
    bool max;

    KelStatus operator()(const T* s, int ss, T* d, int ds, KeliSize roi, KeliSize mask, int border, const T* value,
                         Kel8u* buffer) const
    {
        if constexpr (C == 1) return fn(s, ss, d, ds, roi, mask, KeliBorderType(border), *value, buffer);
        else return fn(s, ss, d, ds, roi, mask, KeliBorderType(border), value, buffer);
    }
};

// Runs one call with exactly the queried scratch at an odd address and compares every element of
// the output frame with the model (or the canary, outside the region and on AC4 alpha).
template <class T, int C, bool Alpha>
void check_one(const Member<T, C, Alpha>& m, kit::Rng& random, int w, int h, KeliSize mask, int border,
               bool ties = false)
{
    constexpr int L = Alpha ? 4 : C;
    const Window win{mask.width, mask.height, (mask.width - 1) >> 1, (mask.height - 1) >> 1};
    Framed<T> img(w, h, L);
    for (auto& v : img.data) v = random_pixel<T>(random, ties);
    T value[4];
    for (auto& v : value) v = random_pixel<T>(random);
    Framed<T> out(w, h, L);
    for (auto& v : out.data) v = canary<T>();

    int size = -1;
    ASSERT_EQ(m.query({w, h}, mask, m.type, L, &size), kelStatusOk);
    const int off = 1 + 2 * random.below(8);
    std::vector<Kel8u> buffer(off + size + 64, 0xA5);
    const std::string where = std::string(m.max ? "max" : "min") + " C" + std::to_string(L) + " w " +
                              std::to_string(w) + " h " + std::to_string(h) + " mask " + std::to_string(mask.width) +
                              "x" + std::to_string(mask.height) + " border " + std::to_string(border);
    ASSERT_EQ(m(img.region(), img.step(), out.region(), out.step(), {w, h}, mask, border, value, buffer.data() + off),
              kelStatusOk)
        << where;
    for (std::size_t i = off + size; i < buffer.size(); ++i)
        ASSERT_EQ(buffer[i], 0xA5) << "scratch beyond the queried size written, " << where;
    const auto get = [&](std::int64_t px, std::int64_t py, int pc) { return img.at(px, py, pc); };
    for (int y = -out.margin; y < h + out.margin; ++y)
        for (int x = -out.margin; x < w + out.margin; ++x)
            for (int c = 0; c < L; ++c) {
                const bool written = out.inside(x, y) && !(Alpha && c == 3);
                const T want = written ? reference::window_extremum(m.max, get, border, win, w, h, value, x, y, c)
                                       : canary<T>();
                ASSERT_TRUE(same_bits(out.at(x, y, c), want))
                    << where << " at " << x << "," << y << "," << c << ": " << +out.at(x, y, c) << " want " << +want;
            }
}

template <class T, int C, bool Alpha> void sweep(const Member<T, C, Alpha>& m)
{
    kit::Rng random;
    const KeliSize masks[] = {{1, 1}, {2, 2}, {3, 3}, {5, 5}, {4, 6}, {1, 5}, {6, 1}, {15, 15}, {9, 2}, {3, 1}, {1, 2}};
    const int widths[] = {1, 2, 3, 5, 7, 8, 9, 15, 16, 17, 31, 32, 33, 41};
    const int heights[] = {1, 2, 3, 6, 11};
    const int bases[] = {1, 3, 6, 240};
    for (int n = 0; n < 60; ++n) {
        const int w = widths[random.below(14)], h = heights[random.below(5)];
        const int base = bases[random.below(4)];
        const int border = base == 240 ? 240 : base | random.below(16) << 4;
        check_one(m, random, w, h, masks[random.below(11)], border);
        if (::testing::Test::HasFatalFailure()) return;
    }
}

#define KELI_MINMAX(t, l, c, a)                                                                                      \
    sweep(Member<Kel##t, c, a>{keliFilterMinBorder_##t##_##l##R, keliFilterMinBorderGetBufferSize, kel##t, false}); \
    sweep(Member<Kel##t, c, a>{keliFilterMaxBorder_##t##_##l##R, keliFilterMaxBorderGetBufferSize, kel##t, true})

TEST(FilterMinMaxBorder, EveryMemberMatchesTheWindowModel)
{
    KELI_MINMAX(8u, C1, 1, false), KELI_MINMAX(8u, C3, 3, false), KELI_MINMAX(8u, C4, 4, false);
    KELI_MINMAX(8u, AC4, 3, true);
    KELI_MINMAX(16u, C1, 1, false), KELI_MINMAX(16u, C3, 3, false), KELI_MINMAX(16u, C4, 4, false);
    KELI_MINMAX(16u, AC4, 3, true);
    KELI_MINMAX(16s, C1, 1, false), KELI_MINMAX(16s, C3, 3, false), KELI_MINMAX(16s, C4, 4, false);
    KELI_MINMAX(16s, AC4, 3, true);
    KELI_MINMAX(32f, C1, 1, false), KELI_MINMAX(32f, C3, 3, false), KELI_MINMAX(32f, C4, 4, false);
    KELI_MINMAX(32f, AC4, 3, true);
}

// Regions well past the ring's 32-element rows and the register width, every border, and a mask
// taller than the driver's stack table of rows (its extrema fold into one accumulating row).
TEST(FilterMinMaxBorder, WideRegionsAndTallMasks)
{
    kit::Rng random;
    const Member<Kel32f, 1, false> min32{keliFilterMinBorder_32f_C1R, keliFilterMinBorderGetBufferSize, kel32f, false};
    const Member<Kel8u, 4, false> max8{keliFilterMaxBorder_8u_C4R, keliFilterMaxBorderGetBufferSize, kel8u, true};
    for (int border : {1, 3, 6, 1 | 16 | 64, 3 | 32 | 128, 6 | 64, 240}) {
        check_one(min32, random, 67, 9, {5, 4}, border);
        check_one(max8, random, 70, 7, {2, 3}, border);
    }
    // Signed zeros without NaNs: rows are folded two outputs at a time, and a tie taken in the
    // wrong order shows.
    const Member<Kel32f, 3, false> max32{keliFilterMaxBorder_32f_C3R, keliFilterMaxBorderGetBufferSize, kel32f, true};
    for (KeliSize mask : {KeliSize{3, 4}, KeliSize{5, 5}, KeliSize{2, 7}, KeliSize{15, 15}})
        for (int border : {1, 3 | 16, 6}) {
            check_one(min32, random, 41, 12, mask, border, true);
            check_one(max32, random, 19, 11, mask, border, true);
        }
    const Member<Kel16s, 1, false> min16{keliFilterMinBorder_16s_C1R, keliFilterMinBorderGetBufferSize, kel16s, false};
    check_one(min16, random, 9, 530, {3, 514}, 3);
    check_one(min16, random, 9, 520, {1, 513}, 6);  // no flag: the margin holds 9 rows, not 256
    check_one(min16, random, 4, 300, {3, 600}, 1);
}

// The fold rule where it bites, on a row long enough for the vector path and one short enough for
// the scalar one: a NaN after the first tap wins, a NaN running value gives way, the later of two
// zeros stays.
TEST(FilterMinMaxBorder, FloatsFoldRunningValueFirst)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (int w : {3, 20}) {
        std::vector<float> row(w + 2, 5.0f), out(w);
        row[0] = nan, row[2] = 1.0f, row[3] = -0.0f, row[4] = 0.0f;
        Kel8u buffer[4096];
        // Window of output x: row[x .. x + 2], read through the flagged sides.
        ASSERT_EQ(keliFilterMinBorder_32f_C1R(row.data() + 1, (w + 2) * 4, out.data(), w * 4, {w, 1}, {3, 1},
                                              KeliBorderType(kelBorderRepl | kelBorderInMemLeft | kelBorderInMemRight),
                                              0.0f, buffer),
                  kelStatusOk);
        EXPECT_EQ(out[0], 1.0f);                                     // NaN, 5, 1: the NaN gives way to 5
        EXPECT_TRUE(std::signbit(out[1]) && out[1] == 0.0f);         // 5, 1, -0
        EXPECT_TRUE(!std::signbit(out[2]) && out[2] == 0.0f);        // 1, -0, +0: +0 is the later zero
        row.assign(w + 2, 5.0f);
        row[2] = nan;
        ASSERT_EQ(keliFilterMaxBorder_32f_C1R(row.data() + 1, (w + 2) * 4, out.data(), w * 4, {w, 1}, {3, 1},
                                              KeliBorderType(kelBorderRepl | kelBorderInMemLeft | kelBorderInMemRight),
                                              0.0f, buffer),
                  kelStatusOk);
        EXPECT_TRUE(std::isnan(out[0]));  // 5, 5, NaN: the NaN tap comes last and wins
        EXPECT_EQ(out[1], 5.0f);          // 5, NaN, 5: the NaN replaces 5, then gives way to 5
        EXPECT_EQ(out[2], 5.0f);          // NaN, 5, 5: a NaN running value gives way
    }
}

// Checks in their order, nothing written; the size query's own order, formula and overflow.
TEST(FilterMinMaxBorder, ChecksRunInOrder)
{
    Kel8u src[64] = {}, dst[64], buffer[4096];
    std::memset(dst, 0x77, sizeof dst);
    const KeliSize ok{4, 4}, mask{3, 3};
    const auto call = [&](const Kel8u* s, Kel8u* d, Kel8u* b, KeliSize roi, KeliSize m, int border, const Kel8u* v) {
        return keliFilterMinBorder_8u_C3R(s, 4, d, 4, roi, m, KeliBorderType(border), v, b);
    };
    const Kel8u v[3] = {1, 2, 3};
    EXPECT_EQ(call(nullptr, dst, buffer, {0, 0}, {0, 0}, 999, nullptr), kelStatusNullPtr);
    EXPECT_EQ(call(src, nullptr, buffer, {0, 0}, {0, 0}, 999, nullptr), kelStatusNullPtr);
    EXPECT_EQ(call(src, dst, nullptr, ok, mask, 1, v), kelStatusNullPtr);
    EXPECT_EQ(call(src, dst, buffer, {4, 0}, {0, 0}, 999, nullptr), kelStatusBadSize);
    EXPECT_EQ(call(src, dst, buffer, ok, {0, 3}, 999, nullptr), kelStatusBadMaskSize);
    for (int bad : {0, 2, 4, 5, 7, 256, 16, 0x1F0, -1})
        EXPECT_EQ(call(src, dst, buffer, ok, mask, bad, nullptr), kelStatusBadBorder) << bad;
    EXPECT_EQ(call(src, dst, buffer, ok, mask, kelBorderConst | kelBorderInMemTop, nullptr), kelStatusNullPtr);
    EXPECT_EQ(call(src, dst, buffer, ok, {1, 1}, kelBorderConst, nullptr), kelStatusNullPtr);
    for (Kel8u b : dst) ASSERT_EQ(b, 0x77);
    // No step is checked: a 1x1 mask copies whatever the steps say.
    EXPECT_EQ(keliFilterMaxBorder_8u_C1R(src, 0, dst, -3, {1, 1}, {1, 1}, kelBorderMirror, 0, buffer), kelStatusOk);

    int size = 5;
    EXPECT_EQ(keliFilterMaxBorderGetBufferSize(ok, mask, kel8u, 1, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliFilterMaxBorderGetBufferSize({0, 4}, {0, 3}, kel64f, 2, &size), kelStatusBadSize);
    EXPECT_EQ(keliFilterMaxBorderGetBufferSize(ok, {3, 0}, kel64f, 2, &size), kelStatusBadMaskSize);
    EXPECT_EQ(keliFilterMaxBorderGetBufferSize(ok, mask, kel64f, 2, &size), kelStatusBadChannelCount);
    EXPECT_EQ(keliFilterMinBorderGetBufferSize(ok, mask, kel64f, 1, &size), kelStatusBadDataType);
    EXPECT_EQ(size, 5);
    // 10x10, 3x3, 8u C1: t = max(3 * 12, 3 * 12) = 36 -> 64 + 32 * 3 + 32 + 32.
    EXPECT_EQ(keliFilterMinBorderGetBufferSize({10, 10}, {3, 3}, kel8u, 1, &size), kelStatusOk);
    EXPECT_EQ(size, 224);
    // 4x4, 5x5, 32f C3 (mask not smaller): t = 8 * 8 -> 768 + 64 * 5 + 64 + 64 + 32.
    EXPECT_EQ(keliFilterMaxBorderGetBufferSize({4, 4}, {5, 5}, kel32f, 3, &size), kelStatusOk);
    EXPECT_EQ(size, 1248);
    // 10x1, 1x1 8u C1: no strips (a = b = 0) -> 32 + 32 + 32.
    EXPECT_EQ(keliFilterMinBorderGetBufferSize({10, 2}, {1, 1}, kel8u, 1, &size), kelStatusOk);
    EXPECT_EQ(size, 96);
    EXPECT_EQ(keliFilterMinBorderGetBufferSize({0x04000000, 1}, {1, 1}, kel32f, 4, &size), kelStatusSizeOverflow);
    EXPECT_EQ(size, 0);
}

// The 64f pair against the 3x3 fold over the caller's pixels one around the region, NaN included;
// nothing around the region written; checks in their order.
TEST(Morphology3x3_64f, MatchesTheWindowModel)
{
    kit::Rng random;
    using Fn = KelStatus (*)(const Kel64f*, int, Kel64f*, int, KeliSize);
    for (int n = 0; n < 40; ++n) {
        const bool max = n % 2;
        const Fn fn = max ? keliDilate3x3_64f_C1R : keliErode3x3_64f_C1R;
        const int w = 1 + random.below(19), h = 1 + random.below(6);
        Framed<Kel64f> img(w, h, 1, 1), out(w, h, 1);
        for (auto& v : img.data)
            v = random.below(8) == 0 ? std::numeric_limits<double>::quiet_NaN()
                : random.below(8) == 0 ? -0.0 : double(random.below(41) - 20) / 8;
        for (auto& v : out.data) v = canary<Kel64f>();
        ASSERT_EQ(fn(img.region(), img.step(), out.region(), out.step(), {w, h}), kelStatusOk);
        for (int y = -out.margin; y < h + out.margin; ++y)
            for (int x = -out.margin; x < w + out.margin; ++x) {
                double want = canary<Kel64f>();
                if (out.inside(x, y))
                    for (int j = 0; j < 3; ++j) {
                        double r = img.at(x - 1, y - 1 + j, 0);
                        for (int i = 1; i < 3; ++i) r = reference::fold_extremum(max, r, img.at(x - 1 + i, y - 1 + j, 0));
                        want = j == 0 ? r : reference::fold_extremum(max, want, r);
                    }
                ASSERT_TRUE(same_bits(out.at(x, y, 0), want)) << w << "x" << h << " at " << x << "," << y;
            }
    }
    Kel64f a[16] = {}, b[16];
    for (auto& v : b) v = 7;
    EXPECT_EQ(keliErode3x3_64f_C1R(nullptr, 0, nullptr, 0, {0, 0}), kelStatusNullPtr);
    EXPECT_EQ(keliErode3x3_64f_C1R(a, 0, nullptr, 0, {0, 0}), kelStatusNullPtr);
    EXPECT_EQ(keliDilate3x3_64f_C1R(a, 0, b, 8, {0, 0}), kelStatusBadStep);
    EXPECT_EQ(keliDilate3x3_64f_C1R(a, 24, b, 8, {0, 1}), kelStatusBadSize);
    EXPECT_EQ(keliDilate3x3_64f_C1R(a + 5, 31, b, 8, {2, 1}), kelStatusStepTooSmall);
    EXPECT_EQ(keliDilate3x3_64f_C1R(a + 5, 32, b, 15, {2, 1}), kelStatusStepTooSmall);
    for (double v : b) ASSERT_EQ(v, 7);
    EXPECT_EQ(keliDilate3x3_64f_C1R(a + 5, 32, b, 16, {2, 1}), kelStatusOk);
}

}  // namespace
