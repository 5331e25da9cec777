// Median filters against the sort model: every border member over every method (the networks,
// the sliding histogram at all its mask sizes, the selection), widths across the register
// boundaries, the replicated, constant and in-memory borders, in place and apart, a scratch
// buffer of exactly the queried size at an odd address with guard bytes behind it, and guard
// pixels around everything written. Then floats where the order bites, the anchored forms, the
// cross, colour and weighted medians, the checks in their order and the size formulas.
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
#include "reference/median.hpp"

namespace {

using kit::canary;
using kit::Framed;
using kit::same_bits;

// Floats: one in five a value where the order bites (NaNs of both signs, zeros of both signs,
// infinities), the rest small numbers that tie often. Integers: the full range, or a narrow one.
template <class T> T random_pixel(kit::Rng& random, bool narrow)
{
    if constexpr (std::is_floating_point_v<T>) {
        if (random.below(5) == 0) {
            const std::uint32_t special[] = {0x7FC00000u, 0xFFC00001u, 0x80000000u, 0x00000000u, 0xFF800000u, 0x7F800000u};
            float v;
            std::memcpy(&v, &special[random.below(6)], 4);
            return T(v);
        }
        return T(random.below(41) - 20) / T(4);
    }
    if (narrow) return T(random.below(7) + (std::is_signed_v<T> ? -3 : 250));
    return random.any<T>();
}

template <class T, int C> using Filter = std::conditional_t<
    C == 1, KelStatus (*)(const T*, int, T*, int, KeliSize, KeliSize, KeliBorderType, T, Kel8u*),
    KelStatus (*)(const T*, int, T*, int, KeliSize, KeliSize, KeliBorderType, const T*, Kel8u*)>;

template <class T, int C, bool Alpha> struct Member {
    Filter<T, C> fn;
    KelDataType type;

    KelStatus operator()(const T* s, int ss, T* d, int ds, KeliSize roi, KeliSize mask, int border, const T* value,
                         Kel8u* buffer) const
    {
        if constexpr (C == 1) return fn(s, ss, d, ds, roi, mask, KeliBorderType(border), *value, buffer);
        else return fn(s, ss, d, ds, roi, mask, KeliBorderType(border), value, buffer);
    }
};

// One call with the queried scratch at an odd address, out of place or in place, every element
// of the output frame compared with the model (or the canary, outside the region and on alpha).
template <class T, int C, bool Alpha>
void check_one(const Member<T, C, Alpha>& m, kit::Rng& random, int w, int h, KeliSize mask, int border, bool inPlace)
{
    constexpr int L = Alpha ? 4 : C;
    Framed<T> img(w, h, L);
    const bool narrow = random.below(2);
    for (auto& v : img.data) v = random_pixel<T>(random, narrow);
    T value[4];
    for (auto& v : value) v = random_pixel<T>(random, narrow);
    Framed<T> out(w, h, L);
    if (inPlace) out = img;
    for (int y = -out.margin; y < h + out.margin; ++y)
        for (int x = -out.margin; x < w + out.margin; ++x)
            for (int c = 0; c < L; ++c)
                if (!inPlace || !out.inside(x, y) || (Alpha && c == 3)) out.at(x, y, c) = canary<T>();
    const Framed<T> before = out;
    Framed<T> source = inPlace ? out : img;

    int size = -1;
    ASSERT_EQ(keliFilterMedianBorderGetBufferSize({w, h}, mask, m.type, L, &size), kelStatusOk);
    const int off = 1 + 2 * random.below(8);
    std::vector<Kel8u> buffer(off + size + 64, 0xA5);
    const std::string where = "C" + std::to_string(L) + " w " + std::to_string(w) + " h " + std::to_string(h) +
                              " mask " + std::to_string(mask.width) + "x" + std::to_string(mask.height) + " border " +
                              std::to_string(border) + (inPlace ? " in place" : "");
    T* src = inPlace ? out.region() : img.region();
    ASSERT_EQ(m(src, int(inPlace ? out.step() : img.step()), out.region(), int(out.step()), {w, h}, mask, border, value,
                buffer.data() + off),
              kelStatusOk)
        << where;
    for (std::size_t i = off + size; i < buffer.size(); ++i)
        ASSERT_EQ(buffer[i], 0xA5) << "scratch beyond the queried size written, " << where;
    const auto get = [&](std::int64_t px, std::int64_t py, int pc) { return source.at(px, py, pc); };
    for (int y = -out.margin; y < h + out.margin; ++y)
        for (int x = -out.margin; x < w + out.margin; ++x)
            for (int c = 0; c < L; ++c) {
                const bool written = out.inside(x, y) && !(Alpha && c == 3);
                const T want = written ? reference::border_median(get, border, mask.width, mask.height, w, h, value, x, y, c)
                                       : const_cast<Framed<T>&>(before).at(x, y, c);
                ASSERT_TRUE(same_bits(out.at(x, y, c), want))
                    << where << " at " << x << "," << y << "," << c << ": " << +out.at(x, y, c) << " want " << +want;
            }
}

// Every method: the networks, the per-window methods (5x3, 3x5, 7x7 ...) and for 8u the
// sliding histogram's three count widths; the flags only where the frame's margin holds the reach.
template <class T, int C, bool Alpha> void sweep(const Member<T, C, Alpha>& m)
{
    kit::Rng random;
    const KeliSize masks[] = {{1, 1}, {1, 3}, {1, 5}, {3, 1}, {5, 1}, {3, 3}, {5, 5}, {5, 3}, {3, 5}, {7, 1}, {1, 7}, {7, 7}, {9, 3}};
    const int widths[] = {1, 2, 3, 5, 7, 8, 9, 15, 16, 17, 31, 33, 41};
    const int heights[] = {1, 2, 3, 6, 11};
    for (int n = 0; n < 70; ++n) {
        const int w = widths[random.below(13)], h = heights[random.below(5)];
        const int base = random.below(3);
        const int border = base == 2 ? 240 : (base ? 6 : 1) | random.below(16) << 4;
        check_one(m, random, w, h, masks[random.below(13)], border, random.below(3) == 0);
        if (::testing::Test::HasFatalFailure()) return;
    }
}

#define KELI_MEDIAN(t, l, c, a) sweep(Member<Kel##t, c, a>{keliFilterMedianBorder_##t##_##l##R, kel##t})

TEST(FilterMedianBorder, EveryMemberMatchesTheSortModel)
{
    KELI_MEDIAN(8u, C1, 1, false), KELI_MEDIAN(8u, C3, 3, false), KELI_MEDIAN(8u, C4, 4, false);
    KELI_MEDIAN(8u, AC4, 3, true);
    KELI_MEDIAN(16u, C1, 1, false), KELI_MEDIAN(16u, C3, 3, false), KELI_MEDIAN(16u, C4, 4, false);
    KELI_MEDIAN(16u, AC4, 3, true);
    KELI_MEDIAN(16s, C1, 1, false), KELI_MEDIAN(16s, C3, 3, false), KELI_MEDIAN(16s, C4, 4, false);
    KELI_MEDIAN(16s, AC4, 3, true);
    KELI_MEDIAN(32f, C1, 1, false);
}

// The large masks: 8u histograms of every count width (M of 15, 17 and 257), 32f windows on
// both sides of 51 and 625 elements, masks larger than the region, wide rows.
TEST(FilterMedianBorder, LargeMasksAndWideRows)
{
    kit::Rng random;
    const Member<Kel8u, 1, false> u8{keliFilterMedianBorder_8u_C1R, kel8u};
    const Member<Kel32f, 1, false> f32{keliFilterMedianBorder_32f_C1R, kel32f};
    const Member<Kel16s, 3, false> s16{keliFilterMedianBorder_16s_C3R, kel16s};
    for (bool inPlace : {false, true}) {
        for (KeliSize mask : {KeliSize{15, 1}, KeliSize{17, 1}, KeliSize{1, 17}, KeliSize{257, 1}, KeliSize{17, 17}})
            for (int border : {1, 6}) check_one(u8, random, 40, 20, mask, border, inPlace);
        for (KeliSize mask : {KeliSize{7, 7}, KeliSize{17, 3}, KeliSize{89, 7}, KeliSize{25, 25}})
            check_one(f32, random, 30, 9, mask, 1, inPlace);
        check_one(u8, random, 133, 4, {3, 3}, 1 | 64 | 128, inPlace);
        check_one(u8, random, 133, 4, {11, 5}, 6 | 16, inPlace);
        check_one(s16, random, 70, 5, {9, 9}, 6, inPlace);
        // Rows of more than one stretch of shared sorted columns (512 elements).
        check_one(Member<Kel8u, 4, true>{keliFilterMedianBorder_8u_AC4R, kel8u}, random, 150, 4, {3, 3}, 1, inPlace);
        check_one(f32, random, 530, 6, {5, 5}, 6 | 32, inPlace);
    }
}

// Windows where the float order bites: -0.0 below +0.0, NaNs at the end of their sign, on a row
// short enough for the scalar path and one long enough for the vector path; and a constant image
// stays itself in every method.
TEST(FilterMedianBorder, FloatOrderAndConstantImages)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    Kel8u buffer[1 << 16];
    const auto flagged = KeliBorderType(kelBorderRepl | kelBorderInMemLeft | kelBorderInMemRight);
    for (int w : {3, 20}) {
        std::vector<float> row(w + 2, 5.0f), out(w);
        row[0] = 0.0f, row[1] = -0.0f, row[2] = -0.0f, row[3] = nan, row[4] = -nan;
        if (w > 3) row[5] = nan;
        ASSERT_EQ(keliFilterMedianBorder_32f_C1R(row.data() + 1, (w + 2) * 4, out.data(), w * 4, {w, 1}, {3, 1}, flagged,
                                                 0.0f, buffer),
                  kelStatusOk);
        EXPECT_TRUE(out[0] == 0.0f && std::signbit(out[0]));   // +0, -0, -0
        EXPECT_TRUE(out[1] == 0.0f && std::signbit(out[1]));   // -0, -0, NaN
        EXPECT_TRUE(out[2] == 0.0f && std::signbit(out[2]));   // -0, NaN, -NaN: -NaN lowest
        if (w > 3) EXPECT_TRUE(std::isnan(out[3]) && !std::signbit(out[3]));  // NaN, -NaN, NaN
    }
    for (KeliSize mask : {KeliSize{1, 3}, KeliSize{5, 1}, KeliSize{3, 3}, KeliSize{5, 5}, KeliSize{5, 3}, KeliSize{9, 9}}) {
        std::vector<Kel16u> img(21 * 7, 40000), out(21 * 7, 1);
        ASSERT_EQ(keliFilterMedianBorder_16u_C1R(img.data(), 42, out.data(), 42, {21, 7}, mask, kelBorderRepl, 7, buffer),
                  kelStatusOk);
        for (Kel16u v : out) ASSERT_EQ(v, 40000);
        std::vector<Kel8u> b(21 * 7, 9), ob(21 * 7, 1);
        ASSERT_EQ(keliFilterMedianBorder_8u_C1R(b.data(), 21, ob.data(), 21, {21, 7}, mask, kelBorderRepl, 0, buffer),
                  kelStatusOk);
        for (Kel8u v : ob) ASSERT_EQ(v, 9);
    }
}

// Checks in their order, nothing written; a 1x1 mask copies, or leaves the image in place.
TEST(FilterMedianBorder, ChecksRunInOrder)
{
    Kel8u src[64] = {}, dst[64], buffer[4096];
    std::memset(dst, 0x77, sizeof dst);
    const KeliSize ok{4, 4}, mask{3, 3};
    const auto call = [&](const Kel8u* s, Kel8u* d, Kel8u* b, KeliSize roi, KeliSize m, int border, const Kel8u* v) {
        return keliFilterMedianBorder_8u_C3R(s, 12, d, 12, roi, m, KeliBorderType(border), v, b);
    };
    const Kel8u v[3] = {1, 2, 3};
    EXPECT_EQ(call(nullptr, dst, buffer, {0, 0}, {0, 0}, 999, nullptr), kelStatusNullPtr);
    EXPECT_EQ(call(src, nullptr, buffer, {0, 0}, {0, 0}, 999, nullptr), kelStatusNullPtr);
    EXPECT_EQ(call(src, dst, nullptr, ok, mask, 1, v), kelStatusNullPtr);
    EXPECT_EQ(call(src, dst, buffer, {4, 0}, {0, 0}, 999, nullptr), kelStatusBadSize);
    EXPECT_EQ(call(src, dst, buffer, ok, {0, 3}, 999, nullptr), kelStatusBadMaskSize);
    EXPECT_EQ(call(src, dst, buffer, ok, {2, 3}, 999, nullptr), kelStatusBadMaskSize);
    EXPECT_EQ(call(src, dst, buffer, ok, {16, 1}, 999, nullptr), kelStatusBadMaskSize);
    for (int bad : {0, 2, 3, 3 | 16, 4, 5, 7, 256, 257, 16, 0x1F0, -1})
        EXPECT_EQ(call(src, dst, buffer, ok, mask, bad, nullptr), kelStatusBadBorder) << bad;
    EXPECT_EQ(call(src, dst, buffer, ok, mask, kelBorderConst | kelBorderInMemTop, nullptr), kelStatusNullPtr);
    for (Kel8u b : dst) ASSERT_EQ(b, 0x77);
    // 1x1: a copy, whatever the border (240 included); in place nothing changes.
    for (int i = 0; i < 64; ++i) src[i] = Kel8u(i * 7);
    EXPECT_EQ(keliFilterMedianBorder_8u_C1R(src, 8, dst, 8, {8, 8}, {1, 1}, kelBorderInMem, 0, buffer), kelStatusOk);
    EXPECT_EQ(std::memcmp(src, dst, 64), 0);
    EXPECT_EQ(keliFilterMedianBorder_8u_C1R(src, 8, src, 8, {8, 8}, {1, 1}, kelBorderRepl, 0, buffer), kelStatusOk);
    EXPECT_EQ(std::memcmp(src, dst, 64), 0);
}

// The size query: its order, the formula on hand-worked cases, overflow.
TEST(FilterMedianBorder, SizeQuery)
{
    int size = 5;
    const KeliSize ok{10, 10}, mask{3, 3};
    EXPECT_EQ(keliFilterMedianBorderGetBufferSize(ok, mask, kel8u, 1, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliFilterMedianBorderGetBufferSize({0, 4}, {2, 3}, kel64f, 2, &size), kelStatusBadSize);
    EXPECT_EQ(keliFilterMedianBorderGetBufferSize(ok, {3, 4}, kel64f, 2, &size), kelStatusBadMaskSize);
    EXPECT_EQ(keliFilterMedianBorderGetBufferSize(ok, mask, kel32f, 3, &size), kelStatusBadDataType);
    EXPECT_EQ(keliFilterMedianBorderGetBufferSize(ok, mask, kel64f, 1, &size), kelStatusBadDataType);
    EXPECT_EQ(keliFilterMedianBorderGetBufferSize(ok, mask, kel32f, 2, &size), kelStatusBadChannelCount);
    EXPECT_EQ(size, 5);
    // 10x10, 3x3, 8u C1: strips 64 * (1 + 1), delay 32 * 3 * 2, v = max(4 * 12, 4 * 12) = 48 -> 64.
    EXPECT_EQ(keliFilterMedianBorderGetBufferSize(ok, mask, kel8u, 1, &size), kelStatusOk);
    EXPECT_EQ(size, 128 + 192 + 64);
    // 10x10, 5x3 16s C1: work 15 * 2 * 4 = 120 -> 128; strips 64 * (2 + 1); delay 32 * 3 * 2;
    // v = max(4 * 14, 7 * 12) * 2 = 168 -> 192.
    EXPECT_EQ(keliFilterMedianBorderGetBufferSize(ok, {5, 3}, kel16s, 1, &size), kelStatusOk);
    EXPECT_EQ(size, 192 + 192 + 192 + 128);
    // 10x10, 7x7 32f C1: N = 49: work a64(28) + a64(196) * 3 = 64 + 768; strips 64 * (4 + 4);
    // delay 64 * 7 * 2; v = max(10 * 16, 10 * 16) * 4 = 640 (7 < 10: not the small case).
    EXPECT_EQ(keliFilterMedianBorderGetBufferSize(ok, {7, 7}, kel32f, 1, &size), kelStatusOk);
    EXPECT_EQ(size, 512 + 896 + 640 + 832);
    // 10x10, 7x1 8u C1: hist (7 + 10) << 8; strips 64 * (1 + 0); delay 32 * 2; v = max(16, 10 * 10).
    EXPECT_EQ(keliFilterMedianBorderGetBufferSize(ok, {7, 1}, kel8u, 1, &size), kelStatusOk);
    EXPECT_EQ(size, 64 + 64 + 128 + 17 * 256);
    // 4x4, 5x5 16u C3 (small): v = 8 * 8 -> a32(64 * 3 * 2) = 384; 5x5: no extra.
    EXPECT_EQ(keliFilterMedianBorderGetBufferSize({4, 4}, {5, 5}, kel16u, 3, &size), kelStatusOk);
    EXPECT_EQ(size, 384);
    // 4x4, 3x5 8u C4 (small): v = 8 * 6 -> a32(192) = 192.
    EXPECT_EQ(keliFilterMedianBorderGetBufferSize({4, 4}, {3, 5}, kel8u, 4, &size), kelStatusOk);
    EXPECT_EQ(size, 192);
    EXPECT_EQ(keliFilterMedianBorderGetBufferSize({0x4000000, 4}, {3, 3}, kel16u, 4, &size), kelStatusSizeOverflow);
    EXPECT_EQ(size, 0);
}

// The anchored forms: the window's top-left at (x - anchor.x, y - anchor.y), read from the
// caller's image; networks and the general selection; NaN and signed zeros in the windows.
template <class T, int C>
void anchored(KelStatus (*fn)(const T*, int, T*, int, KeliSize, KeliSize, KeliPoint, Kel8u*),
              KelStatus (*query)(KeliSize, KeliSize, int, int*))
{
    kit::Rng random;
    const KeliSize masks[] = {{1, 3}, {1, 5}, {3, 1}, {5, 1}, {3, 3}, {5, 5}, {7, 3}, {1, 9}, {9, 9}};
    for (int n = 0; n < 40; ++n) {
        const int w = n == 0 ? 520 : 1 + random.below(20), h = 1 + random.below(5);
        const KeliSize mask = n == 0 ? KeliSize{5, 5} : masks[random.below(9)];
        const KeliPoint anchor{random.below(mask.width), random.below(mask.height)};
        Framed<T> img(w, h, C), out(w, h, C);
        for (auto& v : img.data) v = random_pixel<T>(random, false);
        for (auto& v : out.data) v = canary<T>();
        int size = 0;
        ASSERT_EQ(query({w, h}, mask, C, &size), kelStatusOk);
        std::vector<Kel8u> buffer(size + 1);
        ASSERT_EQ(fn(img.region(), int(img.step()), out.region(), int(out.step()), {w, h}, mask, anchor, buffer.data() + 1),
                  kelStatusOk);
        const auto get = [&](std::int64_t px, std::int64_t py, int pc) { return img.at(px, py, pc); };
        for (int y = -out.margin; y < h + out.margin; ++y)
            for (int x = -out.margin; x < w + out.margin; ++x)
                for (int c = 0; c < C; ++c) {
                    const T want = out.inside(x, y)
                                       ? reference::anchored_median<T>(get, mask.width, mask.height, anchor.x, anchor.y, x, y, c)
                                       : canary<T>();
                    ASSERT_TRUE(same_bits(out.at(x, y, c), want)) << w << "x" << h << " at " << x << "," << y;
                }
    }
}

TEST(FilterMedianAnchored, MatchesTheSortModel)
{
    anchored<Kel32f, 3>(keliFilterMedian_32f_C3R, keliFilterMedianGetBufferSize_32f);
    anchored<Kel32f, 4>(keliFilterMedian_32f_C4R, keliFilterMedianGetBufferSize_32f);
    anchored<Kel64f, 1>(keliFilterMedian_64f_C1R, keliFilterMedianGetBufferSize_64f);
}

TEST(FilterMedianAnchored, ChecksRunInOrder)
{
    float src[256] = {}, dst[256];
    Kel8u buffer[4096];
    for (auto& v : dst) v = 3.0f;
    const KeliSize ok{4, 4}, mask{3, 3};
    const auto call = [&](const float* s, int ss, float* d, int ds, KeliSize roi, KeliSize m, KeliPoint a, Kel8u* b) {
        return keliFilterMedian_32f_C3R(s, ss, d, ds, roi, m, a, b);
    };
    EXPECT_EQ(call(nullptr, 0, dst, 0, {0, 0}, {0, 0}, {9, 9}, buffer), kelStatusNullPtr);
    EXPECT_EQ(call(src, 0, dst, 0, {0, 0}, {0, 0}, {9, 9}, nullptr), kelStatusNullPtr);
    EXPECT_EQ(call(src, 0, dst, 0, {4, 0}, {0, 0}, {9, 9}, buffer), kelStatusBadSize);
    EXPECT_EQ(call(src, 0, dst, 48, ok, {0, 0}, {9, 9}, buffer), kelStatusBadStep);
    EXPECT_EQ(call(src, 72, dst, -1, ok, {0, 0}, {9, 9}, buffer), kelStatusBadStep);
    EXPECT_EQ(call(src, 1, dst, 48, ok, {2, 3}, {9, 9}, buffer), kelStatusBadMaskSize);
    EXPECT_EQ(call(src, 1, dst, 48, ok, mask, {3, 0}, buffer), kelStatusBadAnchor);
    EXPECT_EQ(call(src, 1, dst, 48, ok, mask, {0, -1}, buffer), kelStatusBadAnchor);
    EXPECT_EQ(call(src, 71, dst, 48, ok, mask, {1, 1}, buffer), kelStatusBadStep);  // (3 + 4 - 1) * 12 = 72
    for (float v : dst) ASSERT_EQ(v, 3.0f);
    EXPECT_EQ(keliFilterMedian_32f_C4R(src + 100, 96, dst, 64, {2, 2}, mask, {1, 1}, buffer), kelStatusOk);
    // 64f: no step test against the row beyond a positive step.
    EXPECT_EQ(keliFilterMedian_64f_C1R(reinterpret_cast<const double*>(src) + 20, 8, reinterpret_cast<double*>(dst), 8,
                                       {1, 2}, mask, {1, 1}, buffer),
              kelStatusOk);

    int size = 5;
    EXPECT_EQ(keliFilterMedianGetBufferSize_32f(ok, mask, 1, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliFilterMedianGetBufferSize_32f({0, 1}, {2, 2}, 2, &size), kelStatusBadSize);
    EXPECT_EQ(keliFilterMedianGetBufferSize_64f(ok, {2, 3}, 2, &size), kelStatusBadMaskSize);
    EXPECT_EQ(keliFilterMedianGetBufferSize_64f(ok, mask, 2, &size), kelStatusBadChannelCount);
    EXPECT_EQ(size, 5);
    EXPECT_EQ(keliFilterMedianGetBufferSize_32f(ok, {5, 3}, 3, &size), kelStatusOk);
    EXPECT_EQ(size, ((15 * 136) & ~15) + 208);
}

// Cross, colour and weighted centre against their models, every member, both masks; nothing
// written around the region.
template <class T, int C, bool Alpha, class Fn, class Model>
void fixed_sweep(Fn fn, Model model, const std::vector<int>& params, bool narrow)
{
    constexpr int L = Alpha ? 4 : C;
    kit::Rng random;
    for (int n = 0; n < 24; ++n) {
        const int w = 1 + random.below(37), h = 1 + random.below(5);
        const int param = params[random.below(int(params.size()))];
        Framed<T> img(w, h, L), out(w, h, L);
        for (auto& v : img.data) v = random_pixel<T>(random, narrow);
        for (auto& v : out.data) v = canary<T>();
        const KelStatus st = fn(img.region(), int(img.step()), out.region(), int(out.step()), KeliSize{w, h}, param);
        ASSERT_EQ(st, param % 2 == 0 ? kelStatusEvenWeight : kelStatusOk);
        const auto get = [&](std::int64_t px, std::int64_t py, int pc) { return img.at(px, py, pc); };
        for (int y = -out.margin; y < h + out.margin; ++y)
            for (int x = -out.margin; x < w + out.margin; ++x)
                for (int c = 0; c < L; ++c) {
                    const bool written = out.inside(x, y) && !(Alpha && c == 3);
                    const T want = written ? model(get, param, x, y, c) : canary<T>();
                    ASSERT_TRUE(same_bits(out.at(x, y, c), want))
                        << "param " << param << " " << w << "x" << h << " at " << x << "," << y << "," << c << ": "
                        << +out.at(x, y, c) << " want " << +want;
                }
    }
}

template <class T, int C, bool Alpha>
void cross(KelStatus (*fn)(const T*, int, T*, int, KeliSize, KeliMaskSize))
{
    const auto call = [fn](const T* s, int ss, T* d, int ds, KeliSize roi, int m) { return fn(s, ss, d, ds, roi, KeliMaskSize(m)); };
    const auto model = [](auto get, int m, std::int64_t x, std::int64_t y, int c) {
        return reference::cross_median<T>(get, m == kelMaskSize3x3 ? 1 : 2, x, y, c);
    };
    fixed_sweep<T, C, Alpha>(call, model, {kelMaskSize3x3, kelMaskSize5x5}, false);
    fixed_sweep<T, C, Alpha>(call, model, {kelMaskSize3x3, kelMaskSize5x5}, true);
}

template <class T, bool Alpha> void colour(KelStatus (*fn)(const T*, int, T*, int, KeliSize, KeliMaskSize))
{
    const auto call = [fn](const T* s, int ss, T* d, int ds, KeliSize roi, int m) { return fn(s, ss, d, ds, roi, KeliMaskSize(m)); };
    const auto model = [](auto get, int m, std::int64_t x, std::int64_t y, int c) {
        const auto at = reference::colour_median<T>(get, m == kelMaskSize3x3 ? 3 : 5, x, y);
        return get(x + at.first, y + at.second, c);
    };
    fixed_sweep<T, 3, Alpha>(call, model, {kelMaskSize3x3, kelMaskSize5x5}, false);
    fixed_sweep<T, 3, Alpha>(call, model, {kelMaskSize3x3, kelMaskSize5x5}, true);
}

TEST(FilterMedianFixed, CrossColourWeightedMatchTheirModels)
{
    cross<Kel8u, 1, false>(keliFilterMedianCross_8u_C1R), cross<Kel8u, 3, false>(keliFilterMedianCross_8u_C3R);
    cross<Kel8u, 3, true>(keliFilterMedianCross_8u_AC4R);
    cross<Kel16u, 1, false>(keliFilterMedianCross_16u_C1R), cross<Kel16u, 3, false>(keliFilterMedianCross_16u_C3R);
    cross<Kel16u, 3, true>(keliFilterMedianCross_16u_AC4R);
    cross<Kel16s, 1, false>(keliFilterMedianCross_16s_C1R), cross<Kel16s, 3, false>(keliFilterMedianCross_16s_C3R);
    cross<Kel16s, 3, true>(keliFilterMedianCross_16s_AC4R);
    colour<Kel8u, false>(keliFilterMedianColor_8u_C3R), colour<Kel8u, true>(keliFilterMedianColor_8u_AC4R);
    colour<Kel16s, false>(keliFilterMedianColor_16s_C3R), colour<Kel16s, true>(keliFilterMedianColor_16s_AC4R);
    colour<Kel32f, false>(keliFilterMedianColor_32f_C3R), colour<Kel32f, true>(keliFilterMedianColor_32f_AC4R);
    const auto weighted = [](auto get, int weight, std::int64_t x, std::int64_t y, int) {
        const int odd = weight % 2 ? weight : weight - 1;
        return odd >= 9 ? get(x, y, 0) : reference::weighted_median<Kel8u>(get, odd, x, y);
    };
    for (bool narrow : {false, true})
        fixed_sweep<Kel8u, 1, false>(keliFilterMedianWeightedCenter3x3_8u_C1R, weighted, {1, 2, 3, 4, 5, 7, 8, 9, 10, 200},
                                     narrow);
}

TEST(FilterMedianFixed, ChecksRunInOrder)
{
    Kel8u src[64] = {}, dst[64];
    std::memset(dst, 0x77, sizeof dst);
    EXPECT_EQ(keliFilterMedianCross_8u_C1R(nullptr, 0, dst, 0, {0, 0}, KeliMaskSize(1)), kelStatusNullPtr);
    EXPECT_EQ(keliFilterMedianCross_8u_C1R(src, 0, nullptr, 0, {0, 0}, KeliMaskSize(1)), kelStatusNullPtr);
    EXPECT_EQ(keliFilterMedianCross_16u_C3R(reinterpret_cast<Kel16u*>(src), 0, reinterpret_cast<Kel16u*>(dst), 0, {1, 0},
                                            KeliMaskSize(1)),
              kelStatusBadSize);
    EXPECT_EQ(keliFilterMedianCross_8u_C1R(src, 0, dst, 8, {1, 1}, KeliMaskSize(1)), kelStatusBadStep);
    EXPECT_EQ(keliFilterMedianCross_8u_C1R(src + 9, 8, dst, 8, {1, 1}, kelMaskSize1x3), kelStatusBadMaskSize);
    EXPECT_EQ(keliFilterMedianColor_8u_C3R(src + 30, 12, dst, -12, {1, 1}, kelMaskSize3x1), kelStatusBadStep);
    EXPECT_EQ(keliFilterMedianColor_8u_C3R(src + 30, 12, dst, 12, {1, 1}, kelMaskSize5x1), kelStatusBadMaskSize);
    EXPECT_EQ(keliFilterMedianWeightedCenter3x3_8u_C1R(src + 9, 8, dst, 0, {1, 1}, 0), kelStatusBadStep);
    EXPECT_EQ(keliFilterMedianWeightedCenter3x3_8u_C1R(src + 9, 8, dst, 8, {1, 1}, 0), kelStatusBadWeight);
    EXPECT_EQ(keliFilterMedianWeightedCenter3x3_8u_C1R(src + 9, 8, dst, 8, {1, 1}, -3), kelStatusBadWeight);
    for (Kel8u b : dst) ASSERT_EQ(b, 0x77);
}

}  // namespace
