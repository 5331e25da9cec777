// Box filter and window sums against the window model: every member over regions narrower and
// wider than the mask, masks from 1x1 to 15x15 and larger than the region, every border kind
// with random in-memory flags, out of place and in place, with a scratch buffer of exactly the
// queried size at an odd address and guard bytes around everything written.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "keli.h"
#include "kit/framed.hpp"
#include "kit/random.hpp"
#include "reference/box.hpp"

namespace {

using kit::canary;
using kit::Framed;
using kit::same_bits;
using reference::Window;

template <class T> T random_pixel(kit::Rng& random)
{
    if constexpr (std::is_floating_point_v<T>) return T(random.below(20001) - 10000) / T(16);
    return random.any<T>();
}

// One member: the export, its source type for the size query, and the model of one output.
template <class T, class D, int C, bool Alpha> struct Member {
    KelStatus (*fn)(const T*, int, D*, int, KeliSize, KeliSize, KeliBorderType, const T*, Kel8u*);
    KelStatus (*query)(KeliSize, KeliSize, KelDataType, int, int*);
    KelDataType type;
    bool sum;  // window sum rather than mean
};

template <class T, class D, int C, bool Alpha> D model(const Member<T, D, C, Alpha>& m, Framed<T>& img, int border,
                                                       Window w, const T* value, int x, int y, int c)
{
    const auto get = [&](std::int64_t px, std::int64_t py, int pc) { return img.at(px, py, pc); };
    if constexpr (std::is_same_v<T, Kel32f>) {
        const float s = reference::box_sum_f32(get, border, w, img.width, img.height, value, x, y, c);
        return m.sum ? s : s * (1.0f / static_cast<float>(w.kw * w.kh));
    } else {
        const std::int64_t s = reference::box_sum(get, border, w, img.width, img.height, value, x, y, c);
        if (!m.sum) return static_cast<D>(reference::box_mean<T>(s, w.kw * w.kh));
        if constexpr (std::is_same_v<D, Kel32s>) return static_cast<Kel32s>(static_cast<std::uint32_t>(s));
        return static_cast<D>(s);
    }
}

template <class T, class D, int C, bool Alpha> void sweep(const Member<T, D, C, Alpha>& m)
{
    kit::Rng random;
    constexpr int L = Alpha ? 4 : C;
    const KeliSize masks[] = {{1, 1}, {2, 2}, {3, 3}, {5, 5}, {7, 7}, {4, 6}, {1, 4}, {6, 1}, {15, 15}, {9, 2}};
    const int widths[] = {1, 2, 3, 5, 7, 8, 9, 16, 17, 23, 40};
    const int heights[] = {1, 2, 3, 6, 11};
    const int bases[] = {1, 3, 6, 240};
    for (int n = 0; n < 70; ++n) {
        const int w = widths[random.below(11)], h = heights[random.below(5)];
        const KeliSize mask = masks[random.below(10)];
        const int base = bases[random.below(4)];
        const int border = base == 240 ? 240 : base | random.below(16) << 4;
        const Window win{mask.width, mask.height, (mask.width - 1) >> 1, (mask.height - 1) >> 1};
        Framed<T> img(w, h, L);
        for (auto& v : img.data) v = random_pixel<T>(random);
        std::vector<T> values(C);  // one a processed channel, exactly: nothing may read past them
        for (auto& v : values) v = random_pixel<T>(random);
        const T* value = values.data();
        Framed<D> out(w, h, L);
        for (auto& v : out.data) v = canary<D>();

        int size = -1;
        ASSERT_EQ(m.query({w, h}, mask, m.type, L, &size), kelStatusOk);
        const int off = 1 + random.below(15);
        std::vector<Kel8u> buffer(off + size + 64, 0xA5);
        const auto tail = [&] {
            for (std::size_t i = off + size; i < buffer.size(); ++i)
                if (buffer[i] != 0xA5) return false;
            return true;
        };
        const std::string where = "w " + std::to_string(w) + " h " + std::to_string(h) + " mask " +
                                  std::to_string(mask.width) + "x" + std::to_string(mask.height) + " border " +
                                  std::to_string(border);
        ASSERT_EQ(m.fn(img.region(), img.step(), out.region(), out.step(), {w, h}, mask, KeliBorderType(border), value,
                       buffer.data() + off),
                  kelStatusOk)
            << where;
        ASSERT_TRUE(tail()) << "scratch beyond the queried size written, " << where;
        for (int y = -out.margin; y < h + out.margin; ++y)
            for (int x = -out.margin; x < w + out.margin; ++x)
                for (int c = 0; c < L; ++c) {
                    const bool written = out.inside(x, y) && !(Alpha && c == 3);
                    const D want = written ? model(m, img, border, win, value, x, y, c) : canary<D>();
                    ASSERT_TRUE(same_bits(out.at(x, y, c), want))
                        << where << " at " << x << "," << y << "," << c << ": " << +out.at(x, y, c) << " want " << +want;
                }
        if constexpr (std::is_same_v<T, D>) {
            // In place: the same bits in the region, nothing written around it.
            Framed<T> same = img;
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x)
                    if (Alpha) same.at(x, y, 3) = canary<T>();
            ASSERT_EQ(m.fn(same.region(), same.step(), same.region(), same.step(), {w, h}, mask, KeliBorderType(border),
                           value, buffer.data() + off),
                      kelStatusOk);
            ASSERT_TRUE(tail()) << "in place: scratch beyond the queried size written, " << where;
            for (int y = -same.margin; y < h + same.margin; ++y)
                for (int x = -same.margin; x < w + same.margin; ++x)
                    for (int c = 0; c < L; ++c) {
                        const T want = same.inside(x, y) ? out.at(x, y, c) : img.at(x, y, c);
                        ASSERT_TRUE(same_bits(same.at(x, y, c), want)) << "in place, " << where << " at " << x << "," << y;
                    }
        }
    }
}

#define KELI_BOX(t, l, c, a) sweep(Member<Kel##t, Kel##t, c, a>{keliFilterBoxBorder_##t##_##l##R, keliFilterBoxBorderGetBufferSize, kel##t, false})
#define KELI_SUM(s, t, d, l, c, a) \
    sweep(Member<Kel##s, Kel##d, c, a>{keliSumWindow_##t##_##l##R, keliSumWindowGetBufferSize, kel##s, true})

TEST(FilterBoxBorder, EveryMemberMatchesTheWindowModel)
{
    KELI_BOX(8u, C1, 1, false), KELI_BOX(8u, C3, 3, false), KELI_BOX(8u, C4, 4, false), KELI_BOX(8u, AC4, 3, true);
    KELI_BOX(16u, C1, 1, false), KELI_BOX(16u, C3, 3, false), KELI_BOX(16u, C4, 4, false), KELI_BOX(16u, AC4, 3, true);
    KELI_BOX(16s, C1, 1, false), KELI_BOX(16s, C3, 3, false), KELI_BOX(16s, C4, 4, false), KELI_BOX(16s, AC4, 3, true);
    KELI_BOX(32f, C1, 1, false), KELI_BOX(32f, C3, 3, false), KELI_BOX(32f, C4, 4, false), KELI_BOX(32f, AC4, 3, true);
}

TEST(SumWindow, EveryMemberMatchesTheWindowModel)
{
    KELI_SUM(8u, 8u32s, 32s, C1, 1, false), KELI_SUM(8u, 8u32s, 32s, C3, 3, false);
    KELI_SUM(8u, 8u32s, 32s, C4, 4, false), KELI_SUM(8u, 8u32s, 32s, AC4, 3, true);
    KELI_SUM(16u, 16u32f, 32f, C1, 1, false), KELI_SUM(16u, 16u32f, 32f, C3, 3, false);
    KELI_SUM(16u, 16u32f, 32f, C4, 4, false), KELI_SUM(16u, 16u32f, 32f, AC4, 3, true);
    KELI_SUM(16s, 16s32f, 32f, C1, 1, false), KELI_SUM(16s, 16s32f, 32f, C3, 3, false);
    KELI_SUM(16s, 16s32f, 32f, C4, 4, false), KELI_SUM(16s, 16s32f, 32f, AC4, 3, true);
    KELI_SUM(32f, 32f, 32f, C1, 1, false), KELI_SUM(32f, 32f, 32f, C3, 3, false);
    KELI_SUM(32f, 32f, 32f, C4, 4, false), KELI_SUM(32f, 32f, 32f, AC4, 3, true);
}

// Every 8u window sum of areas 9, 25 and 49 gives the fixed-point means (S * 29128 + 2^17) >> 18,
// (S * 671088 + 2^23) >> 24 and (S * 342392 + 2^23) >> 24, and area 82 the f32 rule: a row whose
// pixels climb by one every `area` columns has window sums 0, 1, 2, ... along it.
TEST(FilterBoxBorder, EveryByteSumRoundsAsTheFixedPointMeans)
{
    struct Area {
        int area;
        std::int64_t mul, add, shift;
    };
    for (const Area a : {Area{9, 29128, 1 << 17, 18}, Area{25, 671088, 1 << 23, 24}, Area{49, 342392, 1 << 23, 24},
                         Area{82, 0, 0, 0}}) {
        const int sums = 255 * a.area + 1, width = sums + a.area;
        std::vector<Kel8u> row(width), out(sums);
        for (int i = 0; i < width; ++i) row[i] = Kel8u(std::min(i / a.area, 255));
        int size;
        const KeliSize mask{a.area, 1};
        ASSERT_EQ(keliFilterBoxBorderGetBufferSize({sums, 1}, mask, kel8u, 1, &size), kelStatusOk);
        std::vector<Kel8u> buffer(size);
        // The window of output x starts at pixel x: the region begins ax pixels into the row,
        // and the right side reads the row's own pixels through its flag.
        const int ax = (a.area - 1) >> 1;
        ASSERT_EQ(keliFilterBoxBorder_8u_C1R(row.data() + ax, width, out.data(), sums, {sums, 1}, mask,
                                             KeliBorderType(kelBorderRepl | kelBorderInMemLeft | kelBorderInMemRight),
                                             nullptr, buffer.data()),
                  kelStatusOk);
        for (int s = 0; s < sums; ++s) {
            const int want = a.mul ? int((s * a.mul + a.add) >> a.shift) : reference::box_mean<Kel8u>(s, a.area);
            ASSERT_EQ(out[s], want) << "area " << a.area << " sum " << s;
        }
    }
}

// The rule's corners: a negative 16s mean rounds half up (-2 stays -2), a 1x1 mask gives every
// pixel back (not-a-number payloads and signed zeros included), 32f sums keep their order.
TEST(FilterBoxBorder, NegativeMeansAndTheIdentityMask)
{
    Kel16s s16[2] = {-2, -2}, d16[2] = {0, 0};
    Kel8u buffer[4096];
    ASSERT_EQ(keliFilterBoxBorder_16s_C1R(s16, 4, d16, 4, {2, 1}, {2, 1}, kelBorderRepl, nullptr, buffer), kelStatusOk);
    EXPECT_EQ(d16[0], -2);
    EXPECT_EQ(d16[1], -2);
    Kel16s odd[2] = {-3, -2};  // means -2.5 and -2 (the right pixel replicated): both -2
    ASSERT_EQ(keliFilterBoxBorder_16s_C1R(odd, 4, d16, 4, {2, 1}, {2, 1}, kelBorderRepl, nullptr, buffer), kelStatusOk);
    EXPECT_EQ(d16[0], -2);
    EXPECT_EQ(d16[1], -2);

    std::uint32_t bits[4] = {0x7FA00001u, 0x80000000u, 0xFF800000u, 0x3F800001u};
    Kel32f f[4], g[4];
    std::memcpy(f, bits, 16);
    ASSERT_EQ(keliFilterBoxBorder_32f_C1R(f, 16, g, 16, {4, 1}, {1, 1}, kelBorderMirror, nullptr, buffer), kelStatusOk);
    EXPECT_EQ(std::memcmp(f, g, 16), 0);
    ASSERT_EQ(keliFilterBoxBorder_32f_C1R(f, 16, f, 16, {4, 1}, {1, 1}, kelBorderMirror, nullptr, buffer), kelStatusOk);
    EXPECT_EQ(std::memcmp(f, bits, 16), 0);
}

// Checks in their order, nothing written; the size query's own order and its exact fit.
TEST(FilterBoxBorder, ChecksRunInOrder)
{
    Kel8u src[64] = {}, dst[64], buffer[4096];
    std::memset(dst, 0x77, sizeof dst);
    const KeliSize ok{4, 4}, mask{3, 3};
    const auto call = [&](const Kel8u* s, Kel8u* d, Kel8u* b, int ss, int ds, KeliSize roi, KeliSize m, int border,
                          const Kel8u* v) { return keliFilterBoxBorder_8u_C1R(s, ss, d, ds, roi, m, KeliBorderType(border), v, b); };
    EXPECT_EQ(call(src, nullptr, buffer, 0, 4, {0, 0}, {0, 0}, 999, nullptr), kelStatusNullPtr);
    EXPECT_EQ(call(src, dst, nullptr, 4, 4, ok, mask, 1, nullptr), kelStatusNullPtr);
    EXPECT_EQ(call(src, dst, buffer, 0, 4, {0, 0}, {0, 0}, 999, nullptr), kelStatusBadStep);
    EXPECT_EQ(call(src, dst, buffer, 4, -4, ok, mask, 1, nullptr), kelStatusBadStep);
    EXPECT_EQ(call(src, dst, buffer, 4, 1, {4, 0}, {0, 0}, 999, nullptr), kelStatusBadSize);
    EXPECT_EQ(call(src, dst, buffer, 4, 1, ok, {3, 0}, 999, nullptr), kelStatusBadMaskSize);
    EXPECT_EQ(call(src, dst, buffer, 4, 1, ok, mask, 999, nullptr), kelStatusBadBorder);
    for (int bad : {0, 2, 4, 5, 7, 256, 16, 0x1F0, -1})
        EXPECT_EQ(call(src, dst, buffer, 4, 1, ok, mask, bad, nullptr), kelStatusBadBorder) << bad;
    EXPECT_EQ(call(src, dst, buffer, 4, 1, ok, mask, kelBorderConst | kelBorderInMemTop, nullptr), kelStatusNullPtr);
    for (Kel8u v : dst) ASSERT_EQ(v, 0x77);
    EXPECT_EQ(call(src, dst, buffer, 4, 1, ok, mask, kelBorderRepl, nullptr), kelStatusOk);

    int size = 5;
    EXPECT_EQ(keliSumWindowGetBufferSize(ok, mask, kel8u, 1, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliSumWindowGetBufferSize({0, 4}, {0, 3}, kel64f, 2, &size), kelStatusBadSize);
    EXPECT_EQ(keliSumWindowGetBufferSize(ok, {3, 0}, kel64f, 2, &size), kelStatusBadMaskSize);
    EXPECT_EQ(keliSumWindowGetBufferSize(ok, mask, kel64f, 2, &size), kelStatusBadDataType);
    EXPECT_EQ(keliSumWindowGetBufferSize(ok, mask, kel8u, 2, &size), kelStatusBadChannelCount);
    EXPECT_EQ(size, 5);
    EXPECT_EQ(keliFilterBoxBorderGetBufferSize({0x08000000, 1}, {1, 1}, kel32f, 4, &size), kelStatusSizeOverflow);
    EXPECT_EQ(size, 0);
    // Sides near 2^31 (a fuzzing finding): products past 2^63 must still read as an overflow.
    const int big = 0x7FFFFFFF;
    for (KeliSize roi : {KeliSize{big, 1}, KeliSize{big, big}})
        for (KeliSize m : {KeliSize{1, big}, KeliSize{big, big}}) {
            size = 5;
            EXPECT_EQ(keliFilterBoxBorderGetBufferSize(roi, m, kel16u, 4, &size), kelStatusSizeOverflow);
            EXPECT_EQ(size, 0);
        }
}

// The one-dimensional sums against a plain model: f32 additions in order, the reach read from
// the caller's image on both sides; the anchor is checked unsigned. Rows reach past a few
// vectors and masks past the byte rows' running-sum threshold, for every source type.
template <class T> using WindowFn = KelStatus (*)(const T*, int, Kel32f*, int, KeliSize, int, int);
template <class T> void check_window_sums(const WindowFn<T> (&rows)[3], const WindowFn<T> (&cols)[3])
{
    kit::Rng random;
    for (int n = 0; n < 60; ++n) {
        // Masks up to 19, the anchor placed so that the reach stays within the image's margin.
        const int w = 1 + random.below(n < 30 ? 23 : 70), h = 1 + random.below(5), mask = 1 + random.below(19);
        const int anchor = std::clamp(random.below(mask), mask - 1 - kit::kMargin, kit::kMargin);
        const int C = n % 3 == 0 ? 1 : n % 3 == 1 ? 3 : 4;
        Framed<T> img(w, h, C);
        for (auto& v : img.data) v = random.any<T>();
        Framed<Kel32f> row(w, h, C), col(w, h, C);
        const int k = C == 1 ? 0 : C == 3 ? 1 : 2;
        ASSERT_EQ(rows[k](img.region(), img.step(), row.region(), row.step(), {w, h}, mask, anchor), kelStatusOk);
        ASSERT_EQ(cols[k](img.region(), img.step(), col.region(), col.step(), {w, h}, mask, anchor), kelStatusOk);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                for (int c = 0; c < C; ++c) {
                    float r = img.at(x - anchor, y, c), d = img.at(x, y - anchor, c);
                    for (int i = 1; i < mask; ++i) r += img.at(x - anchor + i, y, c), d += img.at(x, y - anchor + i, c);
                    ASSERT_EQ(row.at(x, y, c), r) << w << "x" << h << " mask " << mask << " at " << x << "," << y;
                    ASSERT_EQ(col.at(x, y, c), d) << w << "x" << h << " mask " << mask << " at " << x << "," << y;
                }
    }
}

TEST(SumWindowRowColumn, SumsInOrderOverTheCallersPixels)
{
    check_window_sums<Kel8u>({keliSumWindowRow_8u32f_C1R, keliSumWindowRow_8u32f_C3R, keliSumWindowRow_8u32f_C4R},
                             {keliSumWindowColumn_8u32f_C1R, keliSumWindowColumn_8u32f_C3R, keliSumWindowColumn_8u32f_C4R});
    check_window_sums<Kel16u>({keliSumWindowRow_16u32f_C1R, keliSumWindowRow_16u32f_C3R, keliSumWindowRow_16u32f_C4R},
                              {keliSumWindowColumn_16u32f_C1R, keliSumWindowColumn_16u32f_C3R,
                               keliSumWindowColumn_16u32f_C4R});
    check_window_sums<Kel16s>({keliSumWindowRow_16s32f_C1R, keliSumWindowRow_16s32f_C3R, keliSumWindowRow_16s32f_C4R},
                              {keliSumWindowColumn_16s32f_C1R, keliSumWindowColumn_16s32f_C3R,
                               keliSumWindowColumn_16s32f_C4R});
    // Destination rows that overlap (a step of one element): each row's sums stand on their
    // own, and the later row's writes remain.
    {
        Framed<Kel8u> img(9, 4, 1);
        kit::Rng random;
        for (auto& v : img.data) v = random.any<Kel8u>();
        Kel32f shared[12];
        ASSERT_EQ(keliSumWindowColumn_8u32f_C1R(img.region(), img.step(), shared, 4, {9, 4}, 8, 3), kelStatusOk);
        for (int k = 0; k < 12; ++k) {
            const int y = std::min(k, 3), x = k - y;
            float d = img.at(x, y - 3, 0);
            for (int i = 1; i < 8; ++i) d += img.at(x, y - 3 + i, 0);
            ASSERT_EQ(shared[k], d) << k;
        }
    }
    Kel8u s[4] = {};
    Kel32f d[4] = {};
    EXPECT_EQ(keliSumWindowRow_8u32f_C1R(s, 4, nullptr, 16, {1, 1}, 3, 1), kelStatusNullPtr);
    EXPECT_EQ(keliSumWindowRow_8u32f_C1R(s, 4, d, 16, {1, 1}, 0, -1), kelStatusBadMaskSize);
    EXPECT_EQ(keliSumWindowColumn_8u32f_C1R(s, 4, d, 16, {1, 1}, 3, 3), kelStatusBadAnchor);
    EXPECT_EQ(keliSumWindowColumn_8u32f_C1R(s, 4, d, 16, {1, 1}, 3, -1), kelStatusBadAnchor);
    EXPECT_EQ(keliSumWindowRow_8u32f_C3R(s, 4, d, 16, {0, -3}, 3, 2), kelStatusOk);
}

// Long masks: bytes in 16-bit lanes up to 257 taps, and 16u sums past 2^24, which round in f32
// and so must follow the left-to-right order exactly.
TEST(SumWindowRowColumn, LongMasksKeepTheOrderedFloatSum)
{
    kit::Rng random;
    for (int mask : {200, 257, 300})
        for (int w : {1, 8, 9, 19, 40}) {
            const int width = w + mask;
            std::vector<Kel8u> bytes(width);
            std::vector<Kel16u> words(width);
            // The widest rows are all 255: the largest sum a 16-bit lane must hold.
            for (auto& v : bytes) v = w == 40 ? 255 : random.any<Kel8u>();
            for (auto& v : words) v = Kel16u(60000 + random.below(5536));
            std::vector<Kel32f> a(w), b(w);
            ASSERT_EQ(keliSumWindowRow_8u32f_C1R(bytes.data() + 7, width, a.data(), w * 4, {w, 1}, mask, 7), kelStatusOk);
            ASSERT_EQ(keliSumWindowRow_16u32f_C1R(words.data() + 7, width * 2, b.data(), w * 4, {w, 1}, mask, 7),
                      kelStatusOk);
            for (int x = 0; x < w; ++x) {
                float sa = bytes[x], sb = words[x];
                for (int i = 1; i < mask; ++i) sa += bytes[x + i], sb += words[x + i];
                ASSERT_EQ(a[x], sa) << "mask " << mask << " at " << x;
                ASSERT_EQ(b[x], sb) << "mask " << mask << " at " << x;
            }
        }
}

// The border-less 64f mean: the window at (x - anchor.x, y - anchor.y), column sums first.
TEST(FilterBox64f, MeansInTheirOrder)
{
    kit::Rng random;
    for (int n = 0; n < 30; ++n) {
        const int w = 1 + random.below(19), h = 1 + random.below(6), kw = 1 + random.below(7), kh = 1 + random.below(7);
        const KeliPoint anchor{random.below(kw), random.below(kh)};
        Framed<Kel64f> img(w + kw, h + kh, 1), out(w, h, 1);
        for (auto& v : img.data) v = random.below(2001) - 1000 + 1.0 / (1 + random.below(7));
        Kel64f* src = &img.at(anchor.x, anchor.y, 0);
        ASSERT_EQ(keliFilterBox_64f_C1R(src, img.step(), out.region(), out.step(), {w, h}, {kw, kh}, anchor), kelStatusOk);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                double s = 0;
                for (int i = 0; i < kw; ++i) {
                    double c = img.at(x + i, y, 0);
                    for (int j = 1; j < kh; ++j) c += img.at(x + i, y + j, 0);
                    s = i == 0 ? c : s + c;
                }
                ASSERT_EQ(out.at(x, y, 0), s * (1.0 / (double(kw) * kh))) << x << "," << y;
            }
    }
    Kel64f a[8] = {}, b[8] = {};
    EXPECT_EQ(keliFilterBox_64f_C1R(a, 16, nullptr, 8, {1, 1}, {1, 1}, {0, 0}), kelStatusNullPtr);
    EXPECT_EQ(keliFilterBox_64f_C1R(a, 16, b, 8, {1, 1}, {0, 1}, {0, 0}), kelStatusBadSize);
    EXPECT_EQ(keliFilterBox_64f_C1R(a, 15, b, 8, {1, 1}, {2, 1}, {0, 0}), kelStatusBadStep);
    EXPECT_EQ(keliFilterBox_64f_C1R(a, 16, b, 7, {1, 1}, {2, 1}, {0, 0}), kelStatusBadStep);
}

}  // namespace
