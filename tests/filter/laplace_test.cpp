// Laplace, high-pass and sharpen filters against the window model: every member over widths 1
// to 40 (every vector head and tail), small regions from 1x1 to 4x4 under every border and flag
// set, misaligned images and negative steps, out of place and in place, with a scratch buffer of
// exactly the queried size at an odd address and guard bytes around everything written; then
// the values where the rules bite and the checks in their order.
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
#include "reference/laplace.hpp"

namespace {

using kit::canary;
using kit::Framed;
using kit::same_bits;
using reference::FixedMask;

enum class Family { Laplace, Hipass, Sharpen };

template <class T> using Fn = KelStatus (*)(const T*, int, T*, int, KeliSize, KeliMaskSize, KeliBorderType, const T*, Kel8u*);
template <class T> using FnC1 = KelStatus (*)(const T*, int, T*, int, KeliSize, KeliMaskSize, KeliBorderType, T, Kel8u*);
using Query = KelStatus (*)(KeliSize, KeliMaskSize, KelDataType, KelDataType, int, int*);

// One member: the export (one-channel members take the border value itself), its size query.
template <class T, int C, bool Alpha> struct Member {
    Fn<T> fn;
    FnC1<T> fn1;
    Query query;
    KelDataType type;
    Family family;

    KelStatus operator()(const T* s, std::int64_t ss, T* d, std::int64_t ds, KeliSize roi, int mask, int border,
                         const T* value, Kel8u* buffer) const
    {
        const auto m = KeliMaskSize(mask);
        const auto b = KeliBorderType(border);
        if (fn1) return fn1(s, int(ss), d, int(ds), roi, m, b, value ? *value : T(0), buffer);
        return fn(s, int(ss), d, int(ds), roi, m, b, value, buffer);
    }
};

FixedMask mask_of(Family f, int mask)
{
    if (f == Family::Sharpen) return FixedMask::Sharpen3;
    if (mask == kelMaskSize3x3) return FixedMask::Laplace3;
    return f == Family::Laplace ? FixedMask::Laplace5 : FixedMask::Hipass5;
}

// A view of a framed image, optionally upside down (first row last, negative step).
template <class T> struct View {
    Framed<T>* img;
    bool flip;
    T* region() const { return flip ? &img->at(0, img->height - 1, 0) : img->region(); }
    std::int64_t step() const { return flip ? -img->step() : img->step(); }
    T& at(std::int64_t x, std::int64_t y, int c) const { return img->at(x, flip ? img->height - 1 - y : y, c); }
};

template <class T> T model(FixedMask m, const View<T>& v, int border, const T* value, int x, int y, int c)
{
    const int k = reference::fixed_mask_side(m);
    const reference::Window win{k, k, k / 2, k / 2};
    const auto px = [&](int i, int j) {
        const auto s = reference::edge_source(border, win, v.img->width, v.img->height, x - k / 2 + i, y - k / 2 + j);
        return s.inside ? v.at(s.x, s.y, c) : value[c];
    };
    if constexpr (std::is_same_v<T, Kel32f>) return reference::fixed_mask_f32(m, px);
    else return T(reference::fixed_mask_integer(m, px, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
}

template <class T> T random_pixel(kit::Rng& random, bool narrow)
{
    if constexpr (std::is_floating_point_v<T>) return narrow ? T(random.below(9)) : T(random.below(20001) - 10000) / T(16);
    else if constexpr (std::is_signed_v<T>) return narrow ? T(random.below(41) - 20) : random.any<T>();
    else return narrow ? T(random.below(8)) : random.any<T>();
}

// One call out of place and one in place, both against the model.
template <class T, int C, bool Alpha>
void run_case(const Member<T, C, Alpha>& m, kit::Rng& random, int w, int h, int mask, int border)
{
    constexpr int L = Alpha ? 4 : C;
    const bool narrow = random.below(3) == 0, flip = random.below(4) == 0;
    Framed<T> img(w, h, L, 1 + random.below(5), random.below(4));
    for (auto& v : img.data) v = random_pixel<T>(random, narrow);
    std::vector<T> values(C);  // one a processed channel, exactly: nothing may read past them
    for (auto& v : values) v = random_pixel<T>(random, narrow);
    const T* value = values.data();
    Framed<T> out(w, h, L, 3, random.below(4));
    for (auto& v : out.data) v = canary<T>();
    const View<T> src{&img, flip}, dst{&out, flip};

    int size = -1;
    ASSERT_EQ(m.query({w, h}, KeliMaskSize(mask), m.type, m.type, L, &size), kelStatusOk);
    const int off = 1 + random.below(15);
    std::vector<Kel8u> buffer(off + size + 64, 0xA5);
    const auto tail = [&] {
        for (std::size_t i = off + size; i < buffer.size(); ++i)
            if (buffer[i] != 0xA5) return false;
        return true;
    };
    const std::string where = "w " + std::to_string(w) + " h " + std::to_string(h) + " mask " + std::to_string(mask) +
                              " border " + std::to_string(border) + (flip ? " flipped" : "");
    const FixedMask fm = mask_of(m.family, mask);
    ASSERT_EQ(m(src.region(), src.step(), dst.region(), dst.step(), {w, h}, mask, border, value, buffer.data() + off),
              kelStatusOk)
        << where;
    ASSERT_TRUE(tail()) << "scratch beyond the queried size written, " << where;
    for (int y = -out.margin; y < h + out.margin; ++y)
        for (int x = -out.margin; x < w + out.margin; ++x)
            for (int c = 0; c < L; ++c) {
                const bool written = out.inside(x, y) && !(Alpha && c == 3);
                const T want = written ? model(fm, src, border, value, x, y, c) : canary<T>();
                ASSERT_TRUE(same_bits(dst.at(x, y, c), want))
                    << where << " at " << x << "," << y << "," << c << ": " << +dst.at(x, y, c) << " want " << +want;
            }

    // In place: the same values in the region, the alpha and everything around it as they were.
    Framed<T> same = img;
    const View<T> both{&same, flip};
    ASSERT_EQ(m(both.region(), both.step(), both.region(), both.step(), {w, h}, mask, border, value,
                buffer.data() + off),
              kelStatusOk);
    ASSERT_TRUE(tail()) << "in place: scratch beyond the queried size written, " << where;
    for (int y = -same.margin; y < h + same.margin; ++y)
        for (int x = -same.margin; x < w + same.margin; ++x)
            for (int c = 0; c < L; ++c) {
                const bool written = same.inside(x, y) && !(Alpha && c == 3);
                const T want = written ? dst.at(x, y, c) : src.at(x, y, c);
                ASSERT_TRUE(same_bits(both.at(x, y, c), want)) << "in place, " << where << " at " << x << "," << y;
            }
}

template <class T, int C, bool Alpha> void sweep(const Member<T, C, Alpha>& m)
{
    kit::Rng random;
    const auto any_mask = [&] { return m.family == Family::Sharpen || random.below(2) ? kelMaskSize3x3 : kelMaskSize5x5; };
    const auto any_border = [&] {
        const int base = random.below(5);
        return base == 0 ? 240 : (base < 3 ? kelBorderRepl : kelBorderConst) | random.below(16) << 4;
    };
    // Every head and tail of the vector loops, regions of one to seven rows.
    for (int w = 1; w <= 40; ++w) {
        run_case(m, random, w, 1 + random.below(7), any_mask(), any_border());
        if (::testing::Test::HasFatalFailure()) return;
    }
    // The small regions under every border and flag set.
    for (int border = 0; border < 256; ++border) {
        const int base = border & 15;
        if (!(border == 240 || base == kelBorderRepl || base == kelBorderConst)) continue;
        run_case(m, random, 1 + random.below(4), 1 + random.below(4), any_mask(), border);
        if (::testing::Test::HasFatalFailure()) return;
    }
}

#define KELI_ONE(F, f, t) \
    Member<Kel##t, 1, false> { nullptr, keliFilter##F##Border_##t##_C1R, keliFilter##F##BorderGetBufferSize, kel##t, Family::f }
#define KELI_MANY(F, f, t, l, c, a) \
    Member<Kel##t, c, a> { keliFilter##F##Border_##t##_##l##R, nullptr, keliFilter##F##BorderGetBufferSize, kel##t, Family::f }
#define KELI_FAMILY(F, t)                                                                                   \
    sweep(KELI_ONE(F, F, t)), sweep(KELI_MANY(F, F, t, C3, 3, false)), sweep(KELI_MANY(F, F, t, C4, 4, false)), \
        sweep(KELI_MANY(F, F, t, AC4, 3, true))

TEST(FilterLaplaceBorder, EveryMemberMatchesTheWindowModel)
{
    KELI_FAMILY(Laplace, 8u);
    KELI_FAMILY(Laplace, 16s);
    KELI_FAMILY(Laplace, 32f);
}

TEST(FilterHipassBorder, EveryMemberMatchesTheWindowModel)
{
    KELI_FAMILY(Hipass, 8u);
    KELI_FAMILY(Hipass, 16s);
    KELI_FAMILY(Hipass, 32f);
}

TEST(FilterSharpenBorder, EveryMemberMatchesTheWindowModel)
{
    KELI_FAMILY(Sharpen, 8u);
    KELI_FAMILY(Sharpen, 16s);
    KELI_FAMILY(Sharpen, 32f);
}

// Sharpen of one pixel whose 3x3 window is read from memory (border 240): centre c and one
// neighbour n, the rest 0, so v = 16c - n; v / 8 goes to the even quotient at every tie.
TEST(FilterSharpenBorder, TiesGoToTheEvenQuotient)
{
    struct Case {
        int c, n, want;
    };
    Kel8u buffer[256];
    // 8u: v = 4, 12, 20, 28, 36 and their neighbours 3 and 5; negative v saturates to 0.
    for (const Case k : {Case{1, 12, 0}, Case{1, 4, 2}, Case{2, 12, 2}, Case{2, 4, 4}, Case{3, 12, 4}, Case{1, 13, 0},
                         Case{1, 11, 1}, Case{0, 4, 0}, Case{255, 0, 255}}) {
        Kel8u win[9] = {0, 0, 0, 0, Kel8u(k.c), 0, 0, 0, Kel8u(k.n)}, out = 0x5A;
        ASSERT_EQ(keliFilterSharpenBorder_8u_C1R(win + 4, 3, &out, 1, {1, 1}, kelMaskSize3x3, KeliBorderType(240), 0,
                                                 buffer),
                  kelStatusOk);
        EXPECT_EQ(out, k.want) << "c " << k.c << " n " << k.n;
    }
    // 16s: v = -n with c = 0: ties at -4, -12, -20, -28 and +12, +20; the extremes saturate.
    for (const Case k : {Case{0, 4, 0}, Case{0, 12, -2}, Case{0, 20, -2}, Case{0, 28, -4}, Case{0, -12, 2},
                         Case{0, -20, 2}, Case{0, 13, -2}, Case{0, 11, -1}, Case{32767, 0, 32767},
                         Case{-32768, 0, -32768}}) {
        Kel16s win[9] = {0, 0, 0, 0, Kel16s(k.c), 0, 0, 0, Kel16s(k.n)}, out = 0x5A;
        ASSERT_EQ(keliFilterSharpenBorder_16s_C1R(win + 4, 6, &out, 2, {1, 1}, kelMaskSize3x3, KeliBorderType(240), 0,
                                                  buffer),
                  kelStatusOk);
        EXPECT_EQ(out, k.want) << "c " << k.c << " n " << k.n;
    }
}

// Rows of identical pixels, wide enough for the vector loops: every sharpen sum 8k + 4 (k even
// and odd, positive and, on 16s, negative) must meet the model; the test counts that it did.
template <class T> void sharpen_ties(Fn<T> fn, int lo, int hi)
{
    kit::Rng random;
    const int w = 61;
    int ties[2][2] = {};  // [negative][odd quotient]
    for (int n = 0; n < 20; ++n) {
        Framed<T> img(w, 1, 3);
        for (int x = -2; x < w + 2; ++x)
            for (int c = 0; c < 3; ++c) {
                const T v = T(lo + random.below(hi - lo + 1));
                for (int y = -1; y <= 1; ++y) img.at(x, y, c) = v;
            }
        Framed<T> out(w, 1, 3);
        const T value[3] = {};
        Kel8u buffer[8192];
        ASSERT_EQ(fn(img.region(), int(img.step()), out.region(), int(out.step()), {w, 1}, kelMaskSize3x3,
                     KeliBorderType(240), value, buffer),
                  kelStatusOk);
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < 3; ++c) {
                const std::int64_t v = 14 * std::int64_t(img.at(x, 0, c)) - 3 * img.at(x - 1, 0, c) - 3 * img.at(x + 1, 0, c);
                if (((v % 8) + 8) % 8 == 4) ++ties[v < 0][((v - 4) / 8) & 1];
                const auto px = [&](int i, int j) { return img.at(x - 1 + i, j - 1, c); };
                const T want = T(reference::fixed_mask_integer(FixedMask::Sharpen3, px, std::numeric_limits<T>::min(),
                                                               std::numeric_limits<T>::max()));
                ASSERT_EQ(out.at(x, 0, c), want) << "x " << x << " v " << v;
            }
    }
    EXPECT_GT(ties[0][0], 0);
    EXPECT_GT(ties[0][1], 0);
    if (lo < 0) {
        EXPECT_GT(ties[1][0] + ties[1][1], 0);
    }
}

TEST(FilterSharpenBorder, TiesInTheVectorLoops)
{
    sharpen_ties<Kel8u>(keliFilterSharpenBorder_8u_C3R, 0, 40);
    sharpen_ties<Kel16s>(keliFilterSharpenBorder_16s_C3R, -40, 40);
}

// A constant image: sharpen gives it back (integer-valued 32f too), Laplace and high-pass give
// 0, under every border that repeats the constant. Extreme centres saturate at both ends.
TEST(FilterLaplaceBorder, ConstantImagesAndSaturation)
{
    Kel8u buffer[65536];
    const int w = 37, h = 9;
    for (int border : {int(kelBorderRepl), int(kelBorderConst), int(kelBorderRepl) | 0x50}) {
        // The region starts two rows and two pixels in: the flags read the constant around it.
        const int n = w * (h + 4) + 4, at = 2 * w + 2;
        std::vector<Kel8u> a8(n, 201), o8(n);
        std::vector<Kel16s> a16(n, -1234), o16(n);
        std::vector<Kel32f> a32(n, 77.0f), o32(n);
        const Kel8u v8 = 201;
        const Kel16s v16 = -1234;
        const Kel32f v32 = 77.0f;
        const auto b = KeliBorderType(border);
        const KeliSize roi{w, h};
        ASSERT_EQ(keliFilterSharpenBorder_8u_C1R(a8.data() + at, w, o8.data(), w, roi, kelMaskSize3x3, b, v8, buffer), 0);
        ASSERT_EQ(keliFilterSharpenBorder_16s_C1R(a16.data() + at, 2 * w, o16.data(), 2 * w, roi, kelMaskSize3x3, b, v16, buffer), 0);
        ASSERT_EQ(keliFilterSharpenBorder_32f_C1R(a32.data() + at, 4 * w, o32.data(), 4 * w, roi, kelMaskSize3x3, b, v32, buffer), 0);
        for (int i = 0; i < w * h; ++i) ASSERT_TRUE(o8[i] == 201 && o16[i] == -1234 && o32[i] == 77.0f) << i;
        for (int mask : {kelMaskSize3x3, kelMaskSize5x5}) {
            const auto m = KeliMaskSize(mask);
            ASSERT_EQ(keliFilterLaplaceBorder_16s_C1R(a16.data() + at, 2 * w, o16.data(), 2 * w, roi, m, b, v16, buffer), 0);
            ASSERT_EQ(keliFilterHipassBorder_32f_C1R(a32.data() + at, 4 * w, o32.data(), 4 * w, roi, m, b, v32, buffer), 0);
            for (int i = 0; i < w * h; ++i) ASSERT_TRUE(o16[i] == 0 && o32[i] == 0.0f) << i;
        }
    }
    // A bright centre on black and a black centre on white, 3x3 and 5x5, both types.
    for (int mask : {kelMaskSize3x3, kelMaskSize5x5}) {
        Kel8u o8 = 7;
        Kel16s o16 = 7;
        for (const bool bright : {true, false}) {
            const Kel8u c8 = bright ? 255 : 0;
            const Kel16s c16 = bright ? 32767 : -32768;
            ASSERT_EQ(keliFilterLaplaceBorder_8u_C1R(&c8, 1, &o8, 1, {1, 1}, KeliMaskSize(mask), kelBorderConst, Kel8u(255 - c8), buffer), 0);
            ASSERT_EQ(keliFilterLaplaceBorder_16s_C1R(&c16, 2, &o16, 2, {1, 1}, KeliMaskSize(mask), kelBorderConst, Kel16s(-1 - c16), buffer), 0);
            EXPECT_EQ(o8, bright ? 255 : 0);
            EXPECT_EQ(o16, bright ? 32767 : -32768);
        }
    }
}

// A 5x5 zero coefficient reads nothing: an infinity there leaves a finite Laplace, while under a
// nonzero coefficient it gives an infinity, and a NaN anywhere under the mask a NaN.
TEST(FilterLaplaceBorder, InfinityUnderAZeroCoefficient)
{
    Kel8u buffer[4096];
    Kel32f win[25], out = 0;
    const auto run = [&](int at, float v) {
        for (float& p : win) p = 1.0f;
        win[at] = v;
        return keliFilterLaplaceBorder_32f_C1R(win + 12, 20, &out, 4, {1, 1}, kelMaskSize5x5, KeliBorderType(240), 0, buffer);
    };
    const float inf = std::numeric_limits<float>::infinity();
    ASSERT_EQ(run(6, inf), kelStatusOk);  // row 1, column 1: coefficient 0
    EXPECT_EQ(out, 0.0f);
    ASSERT_EQ(run(12, inf), kelStatusOk);  // the centre, 20
    EXPECT_EQ(out, inf);
    ASSERT_EQ(run(0, std::nanf("")), kelStatusOk);
    EXPECT_TRUE(std::isnan(out));
}

// Checks in their order, nothing written; the size query's order and its formula.
TEST(FilterLaplaceBorder, ChecksRunInOrder)
{
    Kel8u src[64] = {}, dst[64], buffer[4096];
    std::memset(dst, 0x77, sizeof dst);
    const KeliSize ok{4, 4};
    const Kel8u v3[3] = {1, 2, 3};
    const auto call = [&](const Kel8u* s, Kel8u* d, Kel8u* b, KeliSize roi, int m, int border, const Kel8u* v) {
        return keliFilterHipassBorder_8u_C3R(s, 4, d, 4, roi, KeliMaskSize(m), KeliBorderType(border), v, b);
    };
    EXPECT_EQ(call(nullptr, dst, buffer, {0, 0}, 0, 999, nullptr), kelStatusNullPtr);
    EXPECT_EQ(call(src, nullptr, buffer, ok, 33, 1, v3), kelStatusNullPtr);
    EXPECT_EQ(call(src, dst, nullptr, ok, 33, 1, v3), kelStatusNullPtr);
    EXPECT_EQ(call(src, dst, buffer, {4, 0}, 0, 999, nullptr), kelStatusBadSize);
    EXPECT_EQ(call(src, dst, buffer, {-1, 4}, 0, 999, nullptr), kelStatusBadSize);
    for (int bad : {0, 13, 31, 15, 51, 34, 5})
        EXPECT_EQ(call(src, dst, buffer, ok, bad, 999, nullptr), kelStatusBadMaskSize) << bad;
    for (int bad : {int(kelBorderMirror), 0, 2, 4, 5, 7, 16, 0x13, 0xF3, 256, 0x106, -1, -250})
        EXPECT_EQ(call(src, dst, buffer, ok, 55, bad, nullptr), kelStatusBadBorder) << bad;
    EXPECT_EQ(call(src, dst, buffer, ok, 33, kelBorderConst | kelBorderInMemTop, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliFilterSharpenBorder_8u_C1R(src, 4, dst, 4, ok, kelMaskSize5x5, kelBorderRepl, 0, buffer),
              kelStatusBadMaskSize);
    for (Kel8u v : dst) ASSERT_EQ(v, 0x77);
    // No step is checked; accepted borders carry any flags.
    EXPECT_EQ(call(src, dst, buffer, ok, 33, kelBorderConst, v3), kelStatusOk);
    EXPECT_EQ(keliFilterLaplaceBorder_8u_C1R(src + 8, 0, dst, 4, {4, 1}, kelMaskSize5x5, KeliBorderType(0xF1), 0, buffer),
              kelStatusOk);
    EXPECT_EQ(keliFilterLaplaceBorder_8u_C1R(src + 60, -4, dst, 4, {4, 4}, kelMaskSize3x3, KeliBorderType(0x26), 9, buffer),
              kelStatusOk);

    int size = 5;
    const auto query = [&](KeliSize roi, int m, KelDataType s, KelDataType d, int c, int* out) {
        return keliFilterLaplaceBorderGetBufferSize(roi, KeliMaskSize(m), s, d, c, out);
    };
    EXPECT_EQ(query(ok, 33, kel8u, kel8u, 1, nullptr), kelStatusNullPtr);
    EXPECT_EQ(query({0, 4}, 0, kel16u, kel8u, 2, &size), kelStatusBadSize);
    EXPECT_EQ(query(ok, 13, kel16u, kel8u, 2, &size), kelStatusBadMaskSize);
    EXPECT_EQ(keliFilterSharpenBorderGetBufferSize(ok, kelMaskSize5x5, kel8u, kel8u, 1, &size), kelStatusBadMaskSize);
    EXPECT_EQ(query(ok, 55, kel8u, kel16s, 2, &size), kelStatusBadDataType);
    EXPECT_EQ(query(ok, 55, kel16u, kel16u, 2, &size), kelStatusBadDataType);
    EXPECT_EQ(query(ok, 55, kel32f, kel32f, 2, &size), kelStatusBadChannelCount);
    EXPECT_EQ(size, 5);
    // Region larger than the mask both ways: k (5x5: k + 1) rows of the longer side; otherwise
    // the bordered region. Working row of column sums, twelve for 5x5; 32 bytes of slack.
    EXPECT_EQ(query({10, 20}, 33, kel8u, kel8u, 1, &size), kelStatusOk);
    EXPECT_EQ(size, 32 + 96 + 32);
    EXPECT_EQ(query({4, 100}, 55, kel32f, kel32f, 3, &size), kelStatusOk);
    EXPECT_EQ(size, 768 + 9984 + 32);
    EXPECT_EQ(keliFilterHipassBorderGetBufferSize({50, 30}, kelMaskSize5x5, kel16s, kel16s, 4, &size), kelStatusOk);
    EXPECT_EQ(size, 9600 + 2592 + 32);
    EXPECT_EQ(query({0x01000000, 4}, 55, kel32f, kel32f, 4, &size), kelStatusSizeOverflow);
    EXPECT_EQ(size, 0);
}

}  // namespace
