// Derivative masks against the plain model: every member over widths 1 to 40 and both masks,
// every border kind with random in-memory flags, random and extreme pixels (16s saturation, the
// largest 8u sums), misaligned images, a scratch buffer of exactly the queried size at an odd
// address, guard elements around everything written; rows closer than a vector (the scalar
// kernels) and negative steps; the checks in their order with nothing written.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "keli.h"
#include "kit/framed.hpp"
#include "kit/random.hpp"
#include "reference/derivative.hpp"

namespace {

using kit::canary;
using kit::Framed;
using kit::same_bits;

template <class S, class D> struct Member {
    const char* name;
    KelStatus (*fn)(const S*, int, D*, int, KeliSize, KeliMaskSize, KeliBorderType, S, Kel8u*);
    KelStatus (*query)(KeliSize, KeliMaskSize, KelDataType, KelDataType, int, int*);
    int code;
    bool five;
};

template <class T> constexpr KelDataType type_of = std::is_same_v<T, Kel8u> ? kel8u : std::is_same_v<T, Kel16s> ? kel16s : kel32f;

// Random pixels, or only the two extremes, where sums reach their limits and 16s saturates.
template <class T> T pixel(kit::Rng& random, bool extreme)
{
    if constexpr (std::is_floating_point_v<T>) {
        if (extreme) return random.below(2) ? T(3.0e5) : T(-1.0e-3);
        return random.any<T>();
    } else {
        if (extreme) return random.below(2) ? std::numeric_limits<T>::max() : std::numeric_limits<T>::min();
        return random.any<T>();
    }
}

template <class S, class D> D model(const Member<S, D>& m, Framed<S>& img, int k, int border, S value, int x, int y)
{
    const auto get = [&](std::int64_t px, std::int64_t py) { return img.at(px, py, 0); };
    if constexpr (std::is_same_v<D, Kel32f>) {
        return reference::derivative_sum_f32(get, m.code, k, border, img.width, img.height, value, x, y);
    } else {
        const std::int64_t s = reference::derivative_sum<S>(get, m.code, k, border, img.width, img.height, value, x, y);
        return static_cast<D>(s < -32768 ? -32768 : s > 32767 ? 32767 : s);
    }
}

template <class S, class D> void sweep(const Member<S, D>& m)
{
    kit::Rng random;
    const int heights[] = {1, 2, 3, 4, 5, 7, 12, 41, 90};
    const int bases[] = {1, 3, 6, 240};
    for (int n = 0; n < 88; ++n) {
        // Regions narrower than the mask and tall run in bands of rows: 8 of those, then random.
        const int w = n < 40 ? 1 + n : n < 48 ? 2 + 2 * (n % 2) : 1 + random.below(40);
        const int h = n >= 40 && n < 48 ? 90 + n : heights[random.below(9)];
        const int k = m.five && random.below(2) ? 5 : 3;
        // The narrow ones read no side from memory, so that the whole bordered region is copied.
        const bool narrow = n >= 40 && n < 48;
        const int base = bases[random.below(narrow ? 3 : 4)];
        const int border = base == 240 ? 240 : base | random.below(narrow ? 4 : 16) << 4;
        const bool extreme = random.below(3) == 0;
        Framed<S> img(w, h, 1, 5, random.below(4));
        for (auto& v : img.data) v = pixel<S>(random, extreme);
        const S value = pixel<S>(random, extreme);
        Framed<D> out(w, h, 1, 3, random.below(4));
        for (auto& v : out.data) v = canary<D>();

        int size = -1;
        ASSERT_EQ(m.query({w, h}, KeliMaskSize(k * 11), type_of<S>, type_of<D>, 1, &size), kelStatusOk);
        const int off = 1 + random.below(15);
        std::vector<Kel8u> buffer(off + size + 64, 0xA5);
        const std::string where = std::string(m.name) + " w " + std::to_string(w) + " h " + std::to_string(h) +
                                  " mask " + std::to_string(k) + " border " + std::to_string(border);
        ASSERT_EQ(m.fn(img.region(), int(img.step()), out.region(), int(out.step()), {w, h}, KeliMaskSize(k * 11),
                       KeliBorderType(border), value, buffer.data() + off),
                  kelStatusOk)
            << where;
        for (std::size_t i = off + size; i < buffer.size(); ++i)
            ASSERT_EQ(buffer[i], 0xA5) << "scratch beyond the queried size written, " << where;
        for (int y = -out.margin; y < h + out.margin; ++y)
            for (int x = -out.margin; x < w + out.margin; ++x) {
                const D want = out.inside(x, y) ? model(m, img, k, border, value, x, y) : canary<D>();
                ASSERT_TRUE(same_bits(out.at(x, y, 0), want))
                    << where << " at " << x << "," << y << ": " << +out.at(x, y, 0) << " want " << +want;
            }
    }
}

// Rows packed closer than 16 bytes run the scalar kernels; a negative step walks the image
// upwards. Both give the model's values.
template <class S, class D> void tight_and_negative_steps(const Member<S, D>& m)
{
    kit::Rng random;
    const int widest = int(16 / sizeof(S)) - 1;
    for (int w = 1; w <= widest; ++w)
        for (int k : {3, 5}) {
            if (k == 5 && !m.five) continue;
            const int h = 1 + random.below(9), border = random.below(2) ? kelBorderMirror : kelBorderConst;
            Framed<S> img(w, h, 1);
            for (auto& v : img.data) v = pixel<S>(random, false);
            std::vector<S> packed(std::size_t(w) * h), flipped(std::size_t(w) * h);
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x) packed[y * w + x] = flipped[(h - 1 - y) * w + x] = img.at(x, y, 0);
            const S value = pixel<S>(random, false);
            int size;
            ASSERT_EQ(m.query({w, h}, KeliMaskSize(k * 11), type_of<S>, type_of<D>, 1, &size), kelStatusOk);
            std::vector<Kel8u> buffer(size);
            const int step = w * int(sizeof(S));
            for (bool negative : {false, true}) {
                std::vector<D> out(std::size_t(w) * h, canary<D>());
                const S* src = negative ? flipped.data() + std::size_t(h - 1) * w : packed.data();
                ASSERT_EQ(m.fn(src, negative ? -step : step, out.data(), w * int(sizeof(D)), {w, h}, KeliMaskSize(k * 11),
                               KeliBorderType(border), value, buffer.data()),
                          kelStatusOk);
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < w; ++x)
                        ASSERT_TRUE(same_bits(out[y * w + x], model(m, img, k, border, value, x, y)))
                            << m.name << " w " << w << " mask " << k << (negative ? " negative" : " tight") << " at " << x
                            << "," << y;
            }
        }
}

#define KELI_MEMBER(f, n, s, d, code, five) \
    Member<Kel##s, Kel##d>{#f "_" #n, keliFilter##f##Border_##n##_C1R, keliFilter##f##BorderGetBufferSize, code, five}

template <class F> void every_member(F f)
{
    f(KELI_MEMBER(SobelVert, 8u16s, 8u, 16s, 0, true)), f(KELI_MEMBER(SobelVert, 16s, 16s, 16s, 0, true));
    f(KELI_MEMBER(SobelVert, 32f, 32f, 32f, 0, true));
    f(KELI_MEMBER(SobelHoriz, 8u16s, 8u, 16s, 1, true)), f(KELI_MEMBER(SobelHoriz, 16s, 16s, 16s, 1, true));
    f(KELI_MEMBER(SobelHoriz, 32f, 32f, 32f, 1, true));
    f(KELI_MEMBER(ScharrVertMask, 8u16s, 8u, 16s, 2, false)), f(KELI_MEMBER(ScharrVertMask, 16s, 16s, 16s, 2, false));
    f(KELI_MEMBER(ScharrVertMask, 32f, 32f, 32f, 2, false));
    f(KELI_MEMBER(ScharrHorizMask, 8u16s, 8u, 16s, 3, false)), f(KELI_MEMBER(ScharrHorizMask, 16s, 16s, 16s, 3, false));
    f(KELI_MEMBER(ScharrHorizMask, 32f, 32f, 32f, 3, false));
    f(KELI_MEMBER(PrewittVert, 8u16s, 8u, 16s, 4, false)), f(KELI_MEMBER(PrewittVert, 16s, 16s, 16s, 4, false));
    f(KELI_MEMBER(PrewittVert, 32f, 32f, 32f, 4, false));
    f(KELI_MEMBER(PrewittHoriz, 8u16s, 8u, 16s, 5, false)), f(KELI_MEMBER(PrewittHoriz, 16s, 16s, 16s, 5, false));
    f(KELI_MEMBER(PrewittHoriz, 32f, 32f, 32f, 5, false));
    f(KELI_MEMBER(RobertsDown, 8u16s, 8u, 16s, 6, false)), f(KELI_MEMBER(RobertsDown, 16s, 16s, 16s, 6, false));
    f(KELI_MEMBER(RobertsDown, 32f, 32f, 32f, 6, false));
    f(KELI_MEMBER(RobertsUp, 8u16s, 8u, 16s, 7, false)), f(KELI_MEMBER(RobertsUp, 16s, 16s, 16s, 7, false));
    f(KELI_MEMBER(RobertsUp, 32f, 32f, 32f, 7, false));
    f(KELI_MEMBER(SobelVertSecond, 8u16s, 8u, 16s, 8, true)), f(KELI_MEMBER(SobelVertSecond, 32f, 32f, 32f, 8, true));
    f(KELI_MEMBER(SobelHorizSecond, 8u16s, 8u, 16s, 9, true)), f(KELI_MEMBER(SobelHorizSecond, 32f, 32f, 32f, 9, true));
    f(KELI_MEMBER(SobelNegVert, 8u16s, 8u, 16s, 10, true)), f(KELI_MEMBER(SobelNegVert, 32f, 32f, 32f, 10, true));
}

TEST(FilterDerivative, EveryMemberMatchesTheModel)
{
    every_member([](auto m) { sweep(m); });
}

TEST(FilterDerivative, TightAndNegativeStepsMatchTheModel)
{
    every_member([](auto m) { tight_and_negative_steps(m); });
}

// A step edge (255 left of column 8, 0 from it) seen by the vertical masks: Sobel and Prewitt
// are positive (left minus right), Scharr and Sobel negative take the other sign; a constant
// image gives 0 everywhere, 5x5 included.
TEST(FilterDerivative, StepEdgeSignsAndConstantImages)
{
    const int w = 16, h = 6;
    std::vector<Kel8u> img(w * h), flat(w * h, 77);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) img[y * w + x] = x < 8 ? 255 : 0;
    std::vector<Kel16s> out(w * h);
    std::vector<Kel8u> buffer(4096);
    struct Edge {
        KelStatus (*fn)(const Kel8u*, int, Kel16s*, int, KeliSize, KeliMaskSize, KeliBorderType, Kel8u, Kel8u*);
        KeliMaskSize mask;
        int at7, at8;  // the outputs either side of the edge
    };
    const Edge edges[] = {
        {keliFilterSobelVertBorder_8u16s_C1R, kelMaskSize3x3, 1020, 1020},
        {keliFilterPrewittVertBorder_8u16s_C1R, kelMaskSize3x3, 765, 765},
        {keliFilterScharrVertMaskBorder_8u16s_C1R, kelMaskSize3x3, -4080, -4080},
        {keliFilterSobelNegVertBorder_8u16s_C1R, kelMaskSize3x3, -1020, -1020},
        {keliFilterSobelVertBorder_8u16s_C1R, kelMaskSize5x5, 16 * 3 * 255, 16 * 3 * 255},
        {keliFilterSobelVertSecondBorder_8u16s_C1R, kelMaskSize3x3, -4 * 255, 4 * 255},
        {keliFilterRobertsDownBorder_8u16s_C1R, kelMaskSize3x3, 0, -255},
    };
    for (const Edge& e : edges) {
        ASSERT_EQ(e.fn(img.data(), w, out.data(), w * 2, {w, h}, e.mask, kelBorderRepl, 0, buffer.data()), kelStatusOk);
        for (int y = 0; y < h; ++y) {
            EXPECT_EQ(out[y * w + 7], e.at7) << e.mask;
            EXPECT_EQ(out[y * w + 8], e.at8) << e.mask;
            EXPECT_EQ(out[y * w + 2], 0);
        }
        ASSERT_EQ(e.fn(flat.data(), w, out.data(), w * 2, {w, h}, e.mask, kelBorderMirror, 0, buffer.data()), kelStatusOk);
        for (Kel16s v : out) EXPECT_EQ(v, 0);
    }
}

// A 1x1 region takes its neighbours from the border: with a constant v around pixel p, Roberts
// gives p - v and the second vertical derivative 4 * (v - p).
TEST(FilterDerivative, OnePixelRegionReadsTheBorder)
{
    Kel8u buffer[256];
    const Kel8u p = 10;
    Kel16s d = 0;
    ASSERT_EQ(keliFilterRobertsDownBorder_8u16s_C1R(&p, 1, &d, 2, {1, 1}, kelMaskSize3x3, kelBorderConst, 200, buffer),
              kelStatusOk);
    EXPECT_EQ(d, 10 - 200);
    ASSERT_EQ(keliFilterSobelVertSecondBorder_8u16s_C1R(&p, 1, &d, 2, {1, 1}, kelMaskSize3x3, kelBorderConst, 200, buffer),
              kelStatusOk);
    EXPECT_EQ(d, 4 * (200 - 10));
    const Kel32f f = 1.5f;
    Kel32f g = 0;
    ASSERT_EQ(keliFilterRobertsUpBorder_32f_C1R(&f, 4, &g, 4, {1, 1}, kelMaskSize3x3, kelBorderRepl, 0, buffer), kelStatusOk);
    EXPECT_EQ(g, 0.0f);
}

// The checks in their order; a failing call writes nothing. Zero and negative steps pass.
TEST(FilterDerivative, ChecksInOrderWriteNothing)
{
    Kel8u src8[64] = {}, buffer[1024];
    Kel16s src16[64] = {}, dst[64];
    Kel32f src32[64] = {}, dst32[64];
    const KeliSize roi{4, 4}, none{0, 4};
    const auto bad = KeliBorderType(256);
    struct Case {
        KelStatus got, want;
    };
    for (auto& v : dst) v = canary<Kel16s>();
    for (auto& v : dst32) v = canary<Kel32f>();
    const auto sv8 = keliFilterSobelVertBorder_8u16s_C1R;
    const auto sv16 = keliFilterSobelVertBorder_16s_C1R;
    const auto sv32 = keliFilterSobelVertBorder_32f_C1R;
    const auto sch = keliFilterScharrVertMaskBorder_16s_C1R;
    const Case cases[] = {
        {sv8(nullptr, 4, dst, 7, none, KeliMaskSize(13), bad, 0, buffer), kelStatusNullPtr},
        {sv8(src8, 4, nullptr, 8, roi, kelMaskSize3x3, kelBorderRepl, 0, buffer), kelStatusNullPtr},
        {sv8(src8, 4, dst, 8, roi, kelMaskSize3x3, kelBorderRepl, 0, nullptr), kelStatusNullPtr},
        {sv8(src8, 4, dst, 7, none, KeliMaskSize(13), bad, 0, buffer), kelStatusBadSize},
        {sv8(src8, 4, dst, 7, roi, KeliMaskSize(13), bad, 0, buffer), kelStatusOddStep},
        {sv16(src16, 7, dst, 8, roi, KeliMaskSize(13), bad, 0, buffer), kelStatusOddStep},
        {sv32(src32, 6, dst32, 16, roi, KeliMaskSize(13), bad, 0, buffer), kelStatusOddStep},
        {sv32(src32, 16, dst32, 18, roi, KeliMaskSize(13), bad, 0, buffer), kelStatusOddStep},
        {sv8(src8, 5, dst, 8, roi, KeliMaskSize(13), bad, 0, buffer), kelStatusBadMaskSize},
        {sch(src16, 8, dst, 8, roi, kelMaskSize5x5, bad, 0, buffer), kelStatusBadMaskSize},
        {sv8(src8, 4, dst, 8, roi, kelMaskSize5x5, bad, 0, buffer), kelStatusBadBorder},
        {sv8(src8, 4, dst, 8, roi, kelMaskSize3x3, KeliBorderType(kelBorderWrap), 0, buffer), kelStatusBadBorder},
        {sv8(src8, 4, dst, 8, roi, kelMaskSize3x3, KeliBorderType(kelBorderDefault), 0, buffer), kelStatusBadBorder},
        {sv8(src8, 4, dst, 8, roi, kelMaskSize3x3, KeliBorderType(kelBorderMirror | 256), 0, buffer), kelStatusBadBorder},
    };
    for (std::size_t i = 0; i < sizeof(cases) / sizeof(cases[0]); ++i) EXPECT_EQ(cases[i].got, cases[i].want) << "case " << i;
    for (Kel16s v : dst) EXPECT_EQ(v, canary<Kel16s>());
    for (Kel32f v : dst32) EXPECT_TRUE(same_bits(v, canary<Kel32f>()));
    // An odd source step is not tested for an 8-bit source; a zero step reads one row for all.
    EXPECT_EQ(sv8(src8, 5, dst, 8, roi, kelMaskSize3x3, kelBorderMirror, 0, buffer), kelStatusOk);
    src16[1] = 9;
    EXPECT_EQ(sv16(src16, 0, dst, 8, roi, kelMaskSize3x3, kelBorderRepl, 0, buffer), kelStatusOk);
    for (int y = 0; y < 4; ++y) EXPECT_EQ(dst[y * 4 + 0], 4 * (0 - 9));
}

// The size formula at a few points, and the query's checks in order.
TEST(FilterDerivative, BufferSizeFormulaAndChecks)
{
    int size = -1;
    const auto q = keliFilterSobelVertBorderGetBufferSize;
    ASSERT_EQ(q({10, 20}, kelMaskSize3x3, kel8u, kel16s, 1, &size), kelStatusOk);
    EXPECT_EQ(size, 128);  // 3 * (20 + 2) rounded to 32, plus 32
    ASSERT_EQ(q({10, 20}, kelMaskSize5x5, kel32f, kel32f, 1, &size), kelStatusOk);
    EXPECT_EQ(size, 672 + 256 + 480 + 32);
    ASSERT_EQ(keliFilterRobertsUpBorderGetBufferSize({10, 20}, kelMaskSize3x3, kel16s, kel16s, 1, &size), kelStatusOk);
    EXPECT_EQ(size, 160 + 128 + 128 + 32);
    EXPECT_EQ(q({10, 20}, kelMaskSize3x3, kel8u, kel16s, 1, nullptr), kelStatusNullPtr);
    EXPECT_EQ(q({0, 20}, KeliMaskSize(13), kel8u, kel8u, 3, &size), kelStatusBadSize);
    EXPECT_EQ(q({10, 20}, KeliMaskSize(13), kel8u, kel8u, 3, &size), kelStatusBadMaskSize);
    EXPECT_EQ(q({10, 20}, kelMaskSize3x3, kel8u, kel8u, 3, &size), kelStatusBadDataType);
    EXPECT_EQ(q({10, 20}, kelMaskSize3x3, kel8u, kel32f, 3, &size), kelStatusBadDataType);
    EXPECT_EQ(q({10, 20}, kelMaskSize3x3, kel16u, kel16s, 3, &size), kelStatusBadDataType);
    EXPECT_EQ(q({10, 20}, kelMaskSize3x3, kel8u, kel16s, 3, &size), kelStatusBadChannelCount);
}

}  // namespace
