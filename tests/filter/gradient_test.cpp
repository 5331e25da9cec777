// Gradient vectors and the Sobel magnitude against the plain model: every member over widths 1
// to 40, both masks (Prewitt and Scharr given 5x5 must run 3x3), every border kind with random
// in-memory flags, both norms, random subsets of null outputs, three-channel images whose
// channels tie in energy with opposite signs; a scratch buffer of exactly the queried size at an
// odd address; guard elements around every output; angles against atan2 in double.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "filter/rows/gradient.hpp"
#include "keli.h"
#include "kit/framed.hpp"
#include "kit/random.hpp"
#include "reference/gradient.hpp"

namespace {

using kit::canary;
using kit::Framed;
using kit::same_bits;

template <class S, class D, class V> struct Member {
    const char* name;
    KelStatus (*fn)(const S*, int, D*, int, D*, int, D*, int, Kel32f*, int, KeliSize, KeliMaskSize, KelNormType,
                    KeliBorderType, V, Kel8u*);
    int codeX, codeY;
    bool five;
};

template <class T> constexpr KelDataType type_of = std::is_same_v<T, Kel8u>    ? kel8u
                                                   : std::is_same_v<T, Kel16u> ? kel16u
                                                   : std::is_same_v<T, Kel16s> ? kel16s
                                                                               : kel32f;

template <class T> T pixel(kit::Rng& random)
{
    if constexpr (std::is_floating_point_v<T>) return random.any<T>();
    return random.any<T>();
}

// The same pixel's value with the opposite derivatives: equal energy, other signs.
template <class T> T opposite(T v)
{
    if constexpr (std::is_floating_point_v<T>) return -v;
    else if constexpr (std::is_signed_v<T>) return static_cast<T>(-1 - v);
    else return static_cast<T>(std::numeric_limits<T>::max() - v);
}

template <class S, class D, class V, int C> void sweep(const Member<S, D, V>& m)
{
    kit::Rng random;
    const int heights[] = {1, 2, 3, 4, 6, 9, 30};
    const int bases[] = {1, 3, 6, 240};
    for (int n = 0; n < 60; ++n) {
        const int w = n < 40 ? 1 + n : 1 + random.below(40), h = heights[random.below(7)];
        const KeliMaskSize mask = random.below(2) ? kelMaskSize5x5 : kelMaskSize3x3;
        const int k = m.five && mask == kelMaskSize5x5 ? 5 : 3;
        const int base = bases[random.below(4)];
        const int border = base == 240 ? 240 : base | random.below(16) << 4;
        const KelNormType norm = random.below(2) ? kelNormL1 : kelNormL2;
        const int present = 1 + random.below(15);  // which of gx, gy, magnitude, angle
        Framed<S> img(w, h, C, 5, random.below(4));
        for (auto& v : img.data) v = pixel<S>(random);
        if (C == 3 && random.below(2))
            for (std::size_t i = 0; i + 2 < img.data.size(); i += 3) img.data[i + 1] = opposite(img.data[i]);
        S value[3];
        for (auto& v : value) v = pixel<S>(random);
        Framed<D> gx(w, h, 1), gy(w, h, 1), mag(w, h, 1);
        Framed<Kel32f> ang(w, h, 1);
        for (Framed<D>* o : {&gx, &gy, &mag})
            for (auto& v : o->data) v = canary<D>();
        for (auto& v : ang.data) v = canary<Kel32f>();

        int size = -1;
        ASSERT_EQ(keliGradientVectorGetBufferSize({w, h}, mask, type_of<S>, C, &size), kelStatusOk);
        const int off = 1 + random.below(15);
        std::vector<Kel8u> buffer(off + size + 64, 0xA5);
        const std::string where = std::string(m.name) + " w " + std::to_string(w) + " h " + std::to_string(h) +
                                  " mask " + std::to_string(mask) + " border " + std::to_string(border) + " norm " +
                                  std::to_string(norm) + " outputs " + std::to_string(present);
        V v;
        if constexpr (C == 1) v = value[0];
        else v = value;
        const auto pick = [&](auto& o, int bit) { return present >> bit & 1 ? o.region() : nullptr; };
        ASSERT_EQ(m.fn(img.region(), int(img.step()), pick(gx, 0), int(gx.step()), pick(gy, 1), int(gy.step()),
                       pick(mag, 2), int(mag.step()), pick(ang, 3), int(ang.step()), {w, h}, mask, norm,
                       KeliBorderType(border), v, buffer.data() + off),
                  kelStatusOk)
            << where;
        for (std::size_t i = off + size; i < buffer.size(); ++i)
            ASSERT_EQ(buffer[i], 0xA5) << "scratch beyond the queried size written, " << where;
        const auto get = [&](std::int64_t px, std::int64_t py, int c) { return img.at(px, py, c); };
        for (int y = -gx.margin; y < h + gx.margin; ++y)
            for (int x = -gx.margin; x < w + gx.margin; ++x) {
                const bool in = gx.inside(x, y);
                const auto p = in ? reference::gradient_pair<S, D>(get, m.codeX, m.codeY, k, border, w, h, value, C, x, y)
                                  : reference::GradientPair<D>{};
                const auto at = [&](int bit, auto want, auto& o) {
                    if (!(present >> bit & 1) || !in) want = canary<std::decay_t<decltype(want)>>();
                    ASSERT_TRUE(same_bits(o.at(x, y, 0), want))
                        << where << " output " << bit << " at " << x << "," << y << ": " << +o.at(x, y, 0) << " want " << +want;
                };
                at(0, p.gx, gx);
                at(1, p.gy, gy);
                D want;
                if constexpr (std::is_same_v<D, Kel16s>) want = reference::magnitude16(p.gx, p.gy, norm);
                else want = reference::magnitude32(p.gx, p.gy, norm);
                at(2, want, mag);
                if ((present >> 3 & 1) && in) {
                    const double a = std::atan2(double(p.gy), double(p.gx));
                    ASSERT_NEAR(ang.at(x, y, 0), a, 1e-6) << where << " angle at " << x << "," << y;
                } else {
                    ASSERT_TRUE(same_bits(ang.at(x, y, 0), canary<Kel32f>())) << where << " angle written at " << x << "," << y;
                }
            }
    }
}

#define KELI_GRADIENT(f, n, s, d, cx, cy, five)                                                                   \
    sweep<Kel##s, Kel##d, Kel##s, 1>(Member<Kel##s, Kel##d, Kel##s>{#f "_" #n "_C1R", keliGradientVector##f##_##n##_C1R, \
                                                                    cx, cy, five}),                               \
        sweep<Kel##s, Kel##d, const Kel##s*, 3>(                                                                  \
            Member<Kel##s, Kel##d, const Kel##s*>{#f "_" #n "_C3C1R", keliGradientVector##f##_##n##_C3C1R, cx, cy, five})
#define KELI_FAMILY(f, cx, cy, five)                                                                            \
    KELI_GRADIENT(f, 8u16s, 8u, 16s, cx, cy, five), KELI_GRADIENT(f, 16u32f, 16u, 32f, cx, cy, five),           \
        KELI_GRADIENT(f, 16s32f, 16s, 32f, cx, cy, five), KELI_GRADIENT(f, 32f, 32f, 32f, cx, cy, five)

TEST(GradientVector, SobelMatchesTheModel) { KELI_FAMILY(Sobel, 0, 1, true); }
TEST(GradientVector, PrewittMatchesTheModel) { KELI_FAMILY(Prewitt, 4, 5, false); }
TEST(GradientVector, ScharrMatchesTheModel) { KELI_FAMILY(Scharr, 2, 3, false); }

// keliFilterSobel gives the Sobel gradient's magnitude, and the 8u16s gradient's gx and gy are
// the derivative filters' outputs.
TEST(GradientVector, SobelMagnitudeAndDerivativesAgreeWithTheirFilters)
{
    kit::Rng random;
    const int w = 37, h = 11;
    std::vector<Kel8u> img(w * h);
    for (auto& v : img) v = random.any<Kel8u>();
    for (KeliMaskSize mask : {kelMaskSize3x3, kelMaskSize5x5})
        for (KelNormType norm : {kelNormL1, kelNormL2}) {
            int size, sobelSize, derivSize;
            ASSERT_EQ(keliGradientVectorGetBufferSize({w, h}, mask, kel8u, 1, &size), kelStatusOk);
            ASSERT_EQ(keliFilterSobelGetBufferSize({w, h}, mask, norm, kel8u, kel16s, 1, &sobelSize), kelStatusOk);
            EXPECT_EQ(size, sobelSize);
            ASSERT_EQ(keliFilterSobelVertBorderGetBufferSize({w, h}, mask, kel8u, kel16s, 1, &derivSize), kelStatusOk);
            std::vector<Kel8u> buffer(std::max(size, derivSize));
            std::vector<Kel16s> gx(w * h), gy(w * h), mag(w * h), filtered(w * h), vert(w * h), horiz(w * h);
            const auto border = KeliBorderType(kelBorderMirror);
            ASSERT_EQ(keliGradientVectorSobel_8u16s_C1R(img.data(), w, gx.data(), w * 2, gy.data(), w * 2, mag.data(), w * 2,
                                                        nullptr, 4, {w, h}, mask, norm, border, 0, buffer.data()),
                      kelStatusOk);
            ASSERT_EQ(keliFilterSobel_8u16s_C1R(img.data(), w, filtered.data(), w * 2, {w, h}, mask, norm, border, 0,
                                                buffer.data()),
                      kelStatusOk);
            ASSERT_EQ(keliFilterSobelVertBorder_8u16s_C1R(img.data(), w, vert.data(), w * 2, {w, h}, mask, border, 0,
                                                          buffer.data()),
                      kelStatusOk);
            ASSERT_EQ(keliFilterSobelHorizBorder_8u16s_C1R(img.data(), w, horiz.data(), w * 2, {w, h}, mask, border, 0,
                                                           buffer.data()),
                      kelStatusOk);
            EXPECT_EQ(mag, filtered);
            EXPECT_EQ(gx, vert);
            EXPECT_EQ(gy, horiz);
        }
}

// The angle on the axes, the signs of Sobel and Scharr gx, and the largest 8u magnitude.
// The 16-bit L2 root on both sides of every half way (r - 1/2)^2 and (r + 1/2)^2, at every
// square, and at the wrapped 2^31 of (-32768, -32768): the integer nearest, saturated.
TEST(GradientVector, NearestRootOnBothSidesOfEveryHalfWay)
{
    const auto nearest = [](std::int64_t e) {
        std::int64_t r = static_cast<std::int64_t>(std::sqrt(static_cast<double>(e)));
        while (r * r > e) --r;
        while ((r + 1) * (r + 1) <= e) ++r;
        return std::min<std::int64_t>(e > r * r + r ? r + 1 : r, 32767);
    };
    const auto check = [&](const std::int64_t (&e)[4]) {
        __m128i v = _mm_setr_epi32(std::int32_t(std::uint32_t(e[0])), std::int32_t(std::uint32_t(e[1])),
                                   std::int32_t(std::uint32_t(e[2])), std::int32_t(std::uint32_t(e[3])));
        alignas(16) std::int16_t got[8];
        _mm_store_si128(reinterpret_cast<__m128i*>(got), _mm_packs_epi32(keli::rows::gradient::nearest_root(v), v));
        for (int i = 0; i < 4; ++i) ASSERT_EQ(got[i], nearest(e[i])) << "energy " << e[i];
    };
    for (std::int64_t r = 1; r <= 46341; ++r) {
        const std::int64_t lo = r * r - r, hi = r * r + r;
        check({std::min<std::int64_t>(lo, 1ll << 31), std::min<std::int64_t>(lo + 1, 1ll << 31),
               std::min<std::int64_t>(hi, 1ll << 31), std::min<std::int64_t>(hi + 1, 1ll << 31)});
        check({0, r * r, std::min<std::int64_t>(r * r - 1, 1ll << 31), 1ll << 31});
    }
}

TEST(GradientVector, AnglesAtTheAxesAndSaturatedMagnitude)
{
    Kel8u buffer[1024];
    // A replicated single pixel has no gradient: angle 0, magnitude 0.
    const Kel32f p = 5.0f;
    Kel32f angle = 1.0f, mag = 1.0f;
    ASSERT_EQ(keliGradientVectorSobel_32f_C1R(&p, 4, nullptr, 4, nullptr, 4, &mag, 4, &angle, 4, {1, 1}, kelMaskSize3x3,
                                              kelNormL2, kelBorderRepl, 0, buffer),
              kelStatusOk);
    EXPECT_EQ(angle, 0.0f);
    EXPECT_EQ(mag, 0.0f);
    // A bright pixel left of a dark one: gx > 0 (left minus right), gy = 0: angle 0; Scharr's gx
    // has the other sign: angle pi.
    const Kel32f row[2] = {10.0f, 0.0f};
    Kel32f angles[2];
    ASSERT_EQ(keliGradientVectorSobel_32f_C1R(row, 8, nullptr, 4, nullptr, 4, nullptr, 4, angles, 8, {2, 1},
                                              kelMaskSize3x3, kelNormL2, kelBorderRepl, 0, buffer),
              kelStatusOk);
    EXPECT_EQ(angles[0], 0.0f);
    ASSERT_EQ(keliGradientVectorScharr_32f_C1R(row, 8, nullptr, 4, nullptr, 4, nullptr, 4, angles, 8, {2, 1},
                                               kelMaskSize3x3, kelNormL2, kelBorderRepl, 0, buffer),
              kelStatusOk);
    EXPECT_EQ(angles[0], 3.14159274f);
    // The largest 5x5 first derivative of 8u data: both norms give it exactly.
    const Kel8u edge[4] = {255, 255, 0, 0};
    Kel16s l1[4], l2[4];
    ASSERT_EQ(keliFilterSobel_8u16s_C1R(edge, 4, l1, 8, {4, 1}, kelMaskSize5x5, kelNormL1, kelBorderRepl, 0, buffer),
              kelStatusOk);
    ASSERT_EQ(keliFilterSobel_8u16s_C1R(edge, 4, l2, 8, {4, 1}, kelMaskSize5x5, kelNormL2, kelBorderRepl, 0, buffer),
              kelStatusOk);
    EXPECT_EQ(l1[1], 16 * 3 * 255);  // the step between columns 1 and 2, gy = 0
    EXPECT_EQ(l2[1], 16 * 3 * 255);
}

// The checks in their order; a failing call, and a call with no output, write nothing.
TEST(GradientVector, ChecksInOrderWriteNothing)
{
    Kel8u src[64] = {}, buffer[2048];
    Kel16s out[64];
    Kel32f ang[64];
    for (auto& v : out) v = canary<Kel16s>();
    for (auto& v : ang) v = canary<Kel32f>();
    const KeliSize roi{4, 4}, none{0, 4};
    const auto g = keliGradientVectorSobel_8u16s_C1R;
    const auto p3 = keliGradientVectorPrewitt_8u16s_C3C1R;
    const auto rep = KeliBorderType(kelBorderRepl), con = KeliBorderType(kelBorderConst), bad = KeliBorderType(4);
    const KelNormType l2 = kelNormL2, l3 = KelNormType(3);
    const KeliMaskSize m3 = kelMaskSize3x3, m0 = KeliMaskSize(13);
    struct Case {
        KelStatus got, want;
    };
    const Case cases[] = {
        {g(nullptr, 0, out, 1, out, 1, out, 1, ang, 1, none, m0, l3, bad, 0, nullptr), kelStatusBadBorder},
        {g(nullptr, 0, out, 1, out, 1, out, 1, ang, 1, none, m0, l3, rep, 0, nullptr), kelStatusNullPtr},
        {g(src, 0, out, 1, out, 1, out, 1, ang, 1, none, m0, l3, rep, 0, nullptr), kelStatusBadStep},
        {keliGradientVectorSobel_16s32f_C1R(reinterpret_cast<Kel16s*>(src), 9, nullptr, 1, nullptr, 1, nullptr, 1,
                                            nullptr, 1, none, m0, l3, rep, 0, nullptr),
         kelStatusOddStep},
        {g(src, 4, out, 1, out, 1, out, 1, ang, 1, none, m0, l3, rep, 0, nullptr), kelStatusNullPtr},
        {g(src, 4, out, 0, out, 1, out, 1, ang, 1, none, m0, l3, rep, 0, buffer), kelStatusBadStep},
        {g(src, 4, out, 7, out, 1, out, 1, ang, 1, none, m0, l3, rep, 0, buffer), kelStatusOddStep},
        {g(src, 4, nullptr, 7, out, 9, out, 1, ang, 1, none, m0, l3, rep, 0, buffer), kelStatusOddStep},
        {g(src, 4, out, 8, out, 8, out, -2, ang, 1, none, m0, l3, rep, 0, buffer), kelStatusBadStep},
        {g(src, 4, out, 8, out, 8, out, 8, ang, 1, none, m0, l3, rep, 0, buffer), kelStatusBadArg},
        {g(src, 4, out, 8, out, 8, nullptr, 8, ang, 0, none, m0, l3, rep, 0, buffer), kelStatusBadStep},
        {g(src, 4, out, 8, out, 8, out, 8, ang, 6, none, m0, l2, rep, 0, buffer), kelStatusOddStep},
        {g(src, 4, out, 8, out, 8, out, 8, ang, 16, none, m0, l2, rep, 0, buffer), kelStatusBadSize},
        {g(src, 4, out, 8, out, 8, out, 8, ang, 16, roi, m0, l2, rep, 0, buffer), kelStatusBadMaskSize},
        {p3(src, 12, out, 8, out, 8, out, 8, ang, 16, roi, m0, l2, con, nullptr, buffer), kelStatusNullPtr},
        {keliFilterSobel_8u16s_C1R(src, 4, nullptr, 7, none, m0, l3, bad, 0, buffer), kelStatusNullPtr},
        {keliFilterSobel_8u16s_C1R(src, 4, out, 7, none, m0, l3, bad, 0, buffer), kelStatusBadSize},
        {keliFilterSobel_8u16s_C1R(src, 4, out, 7, roi, m0, l3, bad, 0, buffer), kelStatusOddStep},
        {keliFilterSobel_8u16s_C1R(src, 4, out, 8, roi, m0, l3, bad, 0, buffer), kelStatusBadMaskSize},
        {keliFilterSobel_8u16s_C1R(src, 4, out, 8, roi, m3, l3, bad, 0, buffer), kelStatusBadArg},
        {keliFilterSobel_8u16s_C1R(src, 4, out, 8, roi, m3, l2, bad, 0, buffer), kelStatusBadBorder},
        // No output at all: nothing to do, and the norm and output steps are not looked at.
        {g(src, 4, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, roi, m3, l3, rep, 0, buffer), kelStatusOk},
        // Prewitt runs its 3x3 mask whatever the argument says.
        {p3(src, 12, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, roi, m0, l3, rep, nullptr, buffer), kelStatusOk},
    };
    for (std::size_t i = 0; i < sizeof(cases) / sizeof(cases[0]); ++i) EXPECT_EQ(cases[i].got, cases[i].want) << "case " << i;
    for (Kel16s v : out) EXPECT_EQ(v, canary<Kel16s>());
    for (Kel32f v : ang) EXPECT_TRUE(same_bits(v, canary<Kel32f>()));
}

TEST(GradientVector, BufferSizeFormulaAndChecks)
{
    int size = -1;
    const auto q = keliGradientVectorGetBufferSize;
    ASSERT_EQ(q({10, 20}, kelMaskSize3x3, kel8u, 1, &size), kelStatusOk);
    EXPECT_EQ(size, 40 + 22 * 1 * 3 * 1);
    ASSERT_EQ(q({10, 20}, kelMaskSize5x5, kel32f, 3, &size), kelStatusOk);
    EXPECT_EQ(size, 80 + 24 * 3 * 6 * 4);
    ASSERT_EQ(q({3, 20}, kelMaskSize3x3, kel16s, 3, &size), kelStatusOk);
    EXPECT_EQ(size, 24 + 22 * 3 * 5 * 2);
    ASSERT_EQ(q({20, 6}, kelMaskSize5x5, kel16u, 1, &size), kelStatusOk);
    EXPECT_EQ(size, 160 + 24 * 1 * 10 * 2);
    EXPECT_EQ(q({10, 20}, kelMaskSize3x3, kel8u, 1, nullptr), kelStatusNullPtr);
    EXPECT_EQ(q({10, 0}, KeliMaskSize(13), kel8s, 2, &size), kelStatusBadSize);
    EXPECT_EQ(q({10, 20}, KeliMaskSize(13), kel8s, 2, &size), kelStatusBadMaskSize);
    EXPECT_EQ(q({10, 20}, kelMaskSize3x3, kel8s, 2, &size), kelStatusBadDataType);
    EXPECT_EQ(q({10, 20}, kelMaskSize3x3, kel8u, 2, &size), kelStatusBadChannelCount);
    const auto s = keliFilterSobelGetBufferSize;
    EXPECT_EQ(s({10, 20}, kelMaskSize3x3, kelNormL1, kel8u, kel16s, 1, nullptr), kelStatusNullPtr);
    EXPECT_EQ(s({0, 20}, KeliMaskSize(13), KelNormType(1), kel8u, kel8u, 3, &size), kelStatusBadSize);
    EXPECT_EQ(s({10, 20}, KeliMaskSize(13), KelNormType(1), kel8u, kel8u, 3, &size), kelStatusBadMaskSize);
    EXPECT_EQ(s({10, 20}, kelMaskSize3x3, KelNormType(1), kel8u, kel8u, 3, &size), kelStatusBadArg);
    EXPECT_EQ(s({10, 20}, kelMaskSize3x3, kelNormL2, kel8u, kel32f, 3, &size), kelStatusBadDataType);
    EXPECT_EQ(s({10, 20}, kelMaskSize3x3, kelNormL2, kel16u, kel32f, 3, &size), kelStatusBadChannelCount);
    ASSERT_EQ(s({10, 20}, kelMaskSize5x5, kelNormL2, kel16s, kel32f, 1, &size), kelStatusOk);
    EXPECT_EQ(size, 80 + 24 * 6 * 2);
}

}  // namespace
