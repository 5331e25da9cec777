// Histogram of oriented gradients against the plain model: every member over configurations
// of every cell size, bin count and stride, regions that are cut, location lists with windows
// outside, every border kind with random in-memory flags, buffers and specs at odd addresses;
// then the identities the rule implies and the argument checks in their order.
#include <gtest/gtest.h>

#include <xmmintrin.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "keli.h"
#include "kit/framed.hpp"
#include "kit/random.hpp"
#include "reference/hog.hpp"

namespace {

using kit::Framed;
using reference::HogConfig;

KeliHOGConfig to_config(const HogConfig& c)
{
    return {c.columnMajor, c.cell, c.block, c.stride, c.nbins, c.sigma, c.threshold, c.winW, c.winH};
}

// A spec at an odd address: the record is read where the pointer points.
struct Spec {
    std::vector<unsigned char> bytes;
    KeliHOGSpec* get() { return reinterpret_cast<KeliHOGSpec*>(bytes.data() + 3); }
    explicit Spec(const HogConfig& c)
    {
        const KeliHOGConfig k = to_config(c);
        int size = 0;
        EXPECT_EQ(keliHOGGetSize(&k, &size), kelStatusOk);
        bytes.assign(size + 3, 0xCD);
        EXPECT_EQ(keliHOGInit(&k, get()), kelStatusOk);
    }
};

template <class T> T random_pixel(kit::Rng& random)
{
    if constexpr (std::is_floating_point_v<T>) return T(random.below(40001) - 20000) / T(16);
    return random.any<T>();
}

// The members of one element type: C1 takes the border value by value, C3 by pointer.
template <class T> struct Members {
    KelStatus (*c1)(const T*, int, KeliSize, const KeliPoint*, int, Kel32f*, const KeliHOGSpec*, KeliBorderType, T, Kel8u*);
    KelStatus (*c3)(const T*, int, KeliSize, const KeliPoint*, int, Kel32f*, const KeliHOGSpec*, KeliBorderType, const T*,
                    Kel8u*);
    KelStatus call(int channels, const T* src, int step, KeliSize roi, const KeliPoint* at, int n, Kel32f* dst,
                   const KeliHOGSpec* spec, int border, const T* value, Kel8u* buffer) const
    {
        const KeliBorderType b = static_cast<KeliBorderType>(border);
        return channels == 1 ? c1(src, step, roi, at, n, dst, spec, b, value[0], buffer)
                             : c3(src, step, roi, at, n, dst, spec, b, value, buffer);
    }
};

const Members<Kel8u> k8u = {keliHOG_8u32f_C1R, keliHOG_8u32f_C3R};
const Members<Kel16u> k16u = {keliHOG_16u32f_C1R, keliHOG_16u32f_C3R};
const Members<Kel16s> k16s = {keliHOG_16s32f_C1R, keliHOG_16s32f_C3R};
const Members<Kel32f> k32f = {keliHOG_32f_C1R, keliHOG_32f_C3R};

// The model's view of a framed image: inside the cut region R its pixels, beyond each side the
// memory when that side's flag is set, else the border kind over R.
template <class T> reference::HogPixel model_pixels(Framed<T>& img, int w, int h, int border, const T* value)
{
    const int k = border & 15;
    const bool all = (border & 240) == 240;
    const auto kind = k == 6 ? reference::BorderKind::Const : k == 3 ? reference::BorderKind::Mirror : reference::BorderKind::Repl;
    return [&img, w, h, border, value, kind, all](int x, int y, int c) -> float {
        const bool memX = (x < 0 && (all || (border & 64))) || (x >= w && (all || (border & 128)));
        const bool memY = (y < 0 && (all || (border & 16))) || (y >= h && (all || (border & 32)));
        std::int64_t sx = x, sy = y;
        if (x < 0 || x >= w) {
            if (!memX) {
                if (kind == reference::BorderKind::Const) return float(value[c]);
                sx = reference::border_source(kind, x, w);
            }
        }
        if (y < 0 || y >= h) {
            if (!memY) {
                if (kind == reference::BorderKind::Const) return float(value[c]);
                sy = reference::border_source(kind, y, h);
            }
        }
        return float(img.at(sx, sy, c));
    };
}

// Runs one call and its model on the same random image; outputs must agree bit for bit, and
// nothing past the valid windows' descriptors may be written.
template <class T>
void check_call(const Members<T>& m, int channels, const HogConfig& cfg, int roiW, int roiH, int border,
                const std::vector<KeliPoint>& at, bool nullList, kit::Rng& random, const char* what)
{
    Framed<T> img(roiW, roiH, channels, random.below(4), random.below(3));
    for (T& v : img.data) v = random_pixel<T>(random);
    if (random.below(4) == 0)  // ramps whose channels tie: (1, 2) against (2, 1)
        for (int y = 0; y < roiH; ++y)
            for (int x = 0; x < roiW; ++x)
                for (int c = 0; c < channels; ++c) img.at(x, y, c) = T(c ? (2 * x + y) % 7 : (x + 2 * y) % 7);
    T value[3] = {random_pixel<T>(random), random_pixel<T>(random), random_pixel<T>(random)};
    Spec spec(cfg);
    const auto cut = [&](int s) { return cfg.stride == 0 ? s : s - (s - cfg.block) % cfg.stride; };
    const std::vector<float> want =
        reference::hog_descriptors(cfg, model_pixels(img, cut(roiW), cut(roiH), border, value), roiW, roiH, channels,
                                   nullList ? std::vector<KeliPoint>{} : at);
    int bufferSize = 0, descriptorBytes = 0;
    ASSERT_EQ(keliHOGGetBufferSize(spec.get(), {roiW, roiH}, &bufferSize), kelStatusOk);
    ASSERT_EQ(keliHOGGetDescriptorSize(spec.get(), &descriptorBytes), kelStatusOk);
    ASSERT_EQ(descriptorBytes, reference::hog_length(cfg) * 4);
    std::vector<Kel8u> buffer(bufferSize + 1);
    const int n = nullList ? 1 : int(at.size());
    std::vector<float> got(std::size_t(n) * reference::hog_length(cfg) + 7, kit::canary<float>());
    const KelStatus st = m.call(channels, img.region(), int(img.step()), {roiW, roiH}, nullList ? nullptr : at.data(), n,
                                got.data(), spec.get(), border, value, buffer.data() + 1);
    ASSERT_EQ(st, kelStatusOk) << what;
    for (std::size_t i = 0; i < got.size(); ++i) {
        if (i < want.size()) {
            ASSERT_TRUE(kit::same_bits(got[i], want[i]))
                << what << " C" << channels << " border " << border << " cell " << cfg.cell << " bins " << cfg.nbins
                << " stride " << cfg.stride << " roi " << roiW << "x" << roiH << " at " << i << ": " << got[i]
                << " vs " << want[i] << " seed " << random.seed_value();
        } else {
            ASSERT_TRUE(kit::same_bits(got[i], kit::canary<float>())) << what << " wrote past its windows at " << i;
        }
    }
}

// A random configuration: cells 2..16, bins 2..16, stride a cell or two (or 0 with one block).
HogConfig random_config(kit::Rng& random, int maxCell)
{
    HogConfig c{};
    c.columnMajor = random.below(2);
    c.cell = 2 + random.below(maxCell - 1);
    c.block = 2 * c.cell;
    c.nbins = 2 + random.below(15);
    c.sigma = random.below(3) == 0 ? 1e6f : 0.5f + random.below(40) / 8.0f;
    c.threshold = random.below(2) ? 0.2f : 0.05f + random.below(10) / 20.0f;
    const int pick = random.below(5);
    c.stride = pick == 0 ? 0 : pick <= 2 ? c.cell : c.block;
    c.winW = c.block + (c.stride ? c.stride * random.below(3) : 0);
    c.winH = c.block + (c.stride ? c.stride * random.below(3) : 0);
    return c;
}

int random_border(kit::Rng& random)
{
    static const int kinds[] = {1, 3, 6};
    if (random.below(8) == 0) return 240;
    return kinds[random.below(3)] | (random.below(3) == 0 ? 16 * random.below(16) : 0);
}

template <class T> void sweep(const Members<T>& m, const char* what)
{
    kit::Rng random;
    for (int round = 0; round < 60; ++round) {
        const int channels = round % 2 ? 3 : 1;
        const HogConfig cfg = random_config(random, round < 50 ? 8 : 16);
        // Regions from the window itself to a few strides and odd pixels more: R is then cut.
        const int roiW = cfg.winW + random.below(2 * cfg.cell + 300 * (round % 7 == 0));
        const int roiH = cfg.winH + random.below(2 * cfg.cell + 3);
        std::vector<KeliPoint> at;
        for (int i = 0, n = 1 + random.below(4); i < n; ++i)
            at.push_back({random.below(roiW - cfg.winW + 3) - 1, random.below(roiH - cfg.winH + 3) - 1});
        if (random.below(3) == 0) at.push_back({0, 0});
        check_call(m, channels, cfg, roiW, roiH, random_border(random), at, round % 11 == 5, random, what);
        if (::testing::Test::HasFatalFailure()) return;
    }
}

TEST(HOG, EveryMemberMatchesTheModel)
{
    sweep(k8u, "8u32f");
    sweep(k16u, "16u32f");
    sweep(k16s, "16s32f");
    sweep(k32f, "32f");
}

// The common detector shape, wide enough for several vector runs of columns.
TEST(HOG, DetectorWindowOnAWideImage)
{
    kit::Rng random;
    const HogConfig cfg = {0, 8, 16, 8, 9, 4.0f, 0.2f, 64, 128};
    std::vector<KeliPoint> at;
    for (int y = 0; y + 128 <= 140; y += 8)
        for (int x = 0; x + 64 <= 600; x += 48) at.push_back({x, y});
    check_call(k8u, 1, cfg, 600, 140, kelBorderMirror, at, false, random, "8u32f");
    check_call(k8u, 3, cfg, 530, 131, kelBorderRepl | kelBorderInMemLeft, at, false, random, "8u32f");
}

// Not-a-number and infinite pixels reach no bin outside the histogram.
TEST(HOG, NonFiniteGradientsStayInsideTheHistogram)
{
    kit::Rng random;
    const HogConfig cfg = {0, 4, 8, 4, 9, 2.0f, 0.2f, 16, 16};
    Framed<float> img(20, 20, 1);
    for (float& v : img.data) v = random_pixel<float>(random);
    img.at(5, 5, 0) = std::numeric_limits<float>::quiet_NaN();
    img.at(9, 3, 0) = std::numeric_limits<float>::infinity();
    img.at(2, 11, 0) = 3e38f;
    const float value = 0;
    const std::vector<float> want =
        reference::hog_descriptors(cfg, model_pixels(img, 20, 20, kelBorderRepl, &value), 20, 20, 1, {{0, 0}, {4, 4}});
    Spec spec(cfg);
    std::vector<Kel8u> buffer(20 * 20 * 12);
    std::vector<float> got(want.size());
    const KeliPoint at[2] = {{0, 0}, {4, 4}};
    ASSERT_EQ(keliHOG_32f_C1R(img.region(), int(img.step()), {20, 20}, at, 2, got.data(), spec.get(), kelBorderRepl, 0,
                              buffer.data()),
              kelStatusOk);
    for (std::size_t i = 0; i < want.size(); ++i) ASSERT_TRUE(kit::same_bits(got[i], want[i])) << i;
}

// Runs one 8u call on a plain image and returns the descriptors (canaries past the written ones).
struct Call8u {
    HogConfig cfg;
    int w, h, channels;
    std::vector<Kel8u> pixels;
    KelStatus status = kelStatusOk;
    std::vector<float> operator()(const KeliPoint* at, int n, int border = kelBorderRepl, int extra = 0)
    {
        Spec spec(cfg);
        std::vector<Kel8u> buffer(std::size_t(w) * h * 12);
        std::vector<float> out(std::size_t(std::max(n, 1)) * reference::hog_length(cfg) + extra, -7.0f);
        const Kel8u value[3] = {1, 2, 3};
        status = k8u.call(channels, pixels.data(), w * channels, {w, h}, at, n, out.data(), spec.get(), border, value,
                          buffer.data());
        return out;
    }
};

TEST(HOG, IdentitiesOfTheRule)
{
    kit::Rng random;
    const HogConfig cfg = {0, 4, 8, 4, 7, 3.0f, 0.25f, 16, 24};
    const int w = 27, h = 30;
    Call8u gray{cfg, w, h, 1, std::vector<Kel8u>(w * h)};
    for (Kel8u& v : gray.pixels) v = random.any<Kel8u>();
    // Three equal planes give the single plane's descriptor; so do the plane, its complement
    // and the plane again: the complement's gradient ties with the first channel's and loses.
    Call8u colour = gray, mixed = gray;
    colour.channels = mixed.channels = 3;
    colour.pixels.resize(w * h * 3);
    mixed.pixels.resize(w * h * 3);
    for (int i = 0; i < w * h; ++i)
        for (int c = 0; c < 3; ++c) {
            colour.pixels[3 * i + c] = gray.pixels[i];
            mixed.pixels[3 * i + c] = c == 1 ? Kel8u(255 - gray.pixels[i]) : gray.pixels[i];
        }
    const KeliPoint at[3] = {{4, 0}, {200, 0}, {8, 4}};
    const std::vector<float> one = gray(at, 3);
    EXPECT_EQ(colour(at, 3), one);
    EXPECT_EQ(mixed(at, 3), one);
    // The skipped location takes no room: the output equals the two valid ones alone, and
    // nothing follows them.
    const KeliPoint valid[2] = {{4, 0}, {8, 4}};
    std::vector<float> two = gray(valid, 2);
    two.resize(one.size(), -7.0f);
    EXPECT_EQ(one, two);
    // A null list with one location is the location (0, 0).
    const KeliPoint origin = {0, 0};
    EXPECT_EQ(gray(nullptr, 1), gray(&origin, 1));
    // No valid location: success, nothing written.
    const KeliPoint outside[2] = {{-1, 0}, {10, 0}};  // fits the region, not R: 3 columns are cut
    EXPECT_EQ(gray(outside, 2), std::vector<float>(2 * reference::hog_length(cfg), -7.0f));
    EXPECT_EQ(gray.status, kelStatusOk);
    // Column-major order holds the same blocks (each of 4 * nbins values) in the other order.
    Call8u columns = gray;
    columns.cfg.columnMajor = 1;
    const std::vector<float> rowMajor = gray(valid, 1), colMajor = columns(valid, 1);
    const int bx = reference::hog_blocks(cfg.winW, cfg.block, cfg.stride), by = reference::hog_blocks(cfg.winH, cfg.block, cfg.stride);
    const int len = 4 * cfg.nbins;
    for (int j = 0; j < by; ++j)
        for (int i = 0; i < bx; ++i)
            EXPECT_TRUE(std::equal(rowMajor.begin() + (j * bx + i) * len, rowMajor.begin() + (j * bx + i + 1) * len,
                                   colMajor.begin() + (i * by + j) * len));
    // A constant image has no gradient: zeros everywhere, with every border kind.
    Call8u flat = gray;
    std::fill(flat.pixels.begin(), flat.pixels.end(), Kel8u(77));
    std::vector<float> zeros(3 * len * bx * by, -7.0f);
    std::fill(zeros.begin(), zeros.begin() + 2 * len * bx * by, 0.0f);
    for (int border : {int(kelBorderRepl), int(kelBorderMirror)})
        EXPECT_EQ(flat(at, 3, border), zeros);
}

// The caller's rounding and flush modes change nothing and come back as they were.
TEST(HOG, CallerFloatingPointModesDoNotMatter)
{
    kit::Rng random;
    Call8u run{{1, 3, 6, 3, 5, 1.5f, 0.3f, 12, 12}, 17, 15, 1, std::vector<Kel8u>(17 * 15)};
    for (Kel8u& v : run.pixels) v = random.any<Kel8u>();
    const KeliPoint at[2] = {{0, 0}, {3, 3}};
    const std::vector<float> plain = run(at, 2);
    const unsigned saved = _mm_getcsr();
    _mm_setcsr((saved & ~0x6000u) | 0x2000u | 0x8040u);  // round down, flush to zero
    const unsigned odd = _mm_getcsr();
    const std::vector<float> moded = run(at, 2);
    const unsigned after = _mm_getcsr();
    _mm_setcsr(saved);
    EXPECT_EQ(after, odd);
    EXPECT_EQ(plain, moded);
}

TEST(HOG, SpecRecordAndWeights)
{
    const HogConfig cfg = {1, 6, 12, 6, 11, 2.5f, 0.3f, 24, 18};
    Spec spec(cfg);
    const unsigned char* p = spec.bytes.data() + 3;
    std::int32_t words[14];
    std::memcpy(words, p, sizeof words);
    EXPECT_EQ(std::uint32_t(words[0]), 0x4B61738Fu);
    const std::int32_t ints[] = {1, 6, 12, 6, 11};
    EXPECT_TRUE(std::equal(ints, ints + 5, words + 1));
    float sigma, threshold;
    std::memcpy(&sigma, words + 6, 4);
    std::memcpy(&threshold, words + 7, 4);
    EXPECT_EQ(sigma, 2.5f);
    EXPECT_EQ(threshold, 0.3f);
    const std::int32_t rest[] = {24, 18, 2, 2, 44, 3 * 2 * 44};
    EXPECT_TRUE(std::equal(rest, rest + 6, words + 8));
    EXPECT_EQ(spec.bytes.size() - 3, std::size_t(12 * 12 * 16 + 72));
    for (int y = 0; y < 12; ++y)
        for (int x = 0; x < 12; ++x) {
            float want[4], got[4];
            reference::hog_weights(cfg, x, y, want);
            std::memcpy(got, p + 64 + 16 * (y * 12 + x), 16);
            for (int k = 0; k < 4; ++k) ASSERT_TRUE(kit::same_bits(got[k], want[k])) << x << "," << y << "," << k;
        }
    // Nothing past half a cell before the far edges: row and column 9..11 have no first weight.
    float w[4];
    std::memcpy(w, p + 64 + 16 * (9 * 12 + 2), 16);
    EXPECT_EQ(w[0], 0.0f);
    EXPECT_GT(w[1], 0.0f);  // the bottom-left cell's weight is the first weight of (2, 2)
}

TEST(HOG, ConfigurationChecks)
{
    const HogConfig good = {0, 8, 16, 8, 9, 4.0f, 0.2f, 64, 128};
    struct Case {
        HogConfig c;
        KelStatus want;
    };
    const float nan = std::numeric_limits<float>::quiet_NaN();
    std::vector<Case> cases = {
        {good, kelStatusOk},
        {{0, 1, 2, 1, 9, 1, 1, 2, 2}, kelStatusUnsupportedMode},        // cell below 2
        {{0, 17, 34, 17, 9, 1, 1, 34, 34}, kelStatusUnsupportedMode},   // cell above 16
        {{0, 8, 24, 8, 9, 1, 1, 24, 24}, kelStatusUnsupportedMode},     // three cells a block
        {{0, 8, 8, 8, 9, 1, 1, 8, 8}, kelStatusUnsupportedMode},        // one cell a block
        {{0, 8, 16, 4, 9, 1, 1, 16, 16}, kelStatusUnsupportedMode},     // stride not a multiple of the cell
        {{0, 8, 16, -8, 9, 1, 1, 16, 16}, kelStatusUnsupportedMode},    // negative stride
        {{0, 8, 16, 8, 1, 1, 1, 16, 16}, kelStatusUnsupportedMode},     // one bin
        {{0, 8, 16, 8, 17, 1, 1, 16, 16}, kelStatusUnsupportedMode},    // seventeen bins
        {{0, 8, 16, 8, 9, 0, 1, 16, 16}, kelStatusUnsupportedMode},     // sigma 0
        {{0, 8, 16, 8, 9, nan, 1, 16, 16}, kelStatusUnsupportedMode},   // sigma not a number
        {{0, 8, 16, 8, 9, 1, -1, 16, 16}, kelStatusUnsupportedMode},    // threshold negative
        {{0, 8, 16, 8, 9, 1, nan, 16, 16}, kelStatusUnsupportedMode},   // threshold not a number
        {{0, 8, 16, 8, 9, 1, 1, 8, 16}, kelStatusBadSize},              // window narrower than a block
        {{0, 8, 16, 16, 9, 1, 1, 24, 16}, kelStatusBadSize},            // width off the stride
        {{0, 8, 16, 16, 9, 1, 1, 16, 40}, kelStatusBadSize},            // height off the stride
        {{0, 8, 16, 0, 9, 1, 1, 16, 16}, kelStatusOk},                  // stride 0: one block
        {{0, 8, 16, 0, 9, 1, 1, 24, 16}, kelStatusBadSize},             // stride 0 with a larger window
        {{0, 32, 64, 32, 16, 1, 1, 64, 64}, kelStatusUnsupportedMode},  // cell 32
        {{0, 16, 32, 16, 9, 0, 1, 8, 8}, kelStatusUnsupportedMode},     // sigma before the window
    };
    for (const Case& t : cases) {
        const KeliHOGConfig k = to_config(t.c);
        int size = -1;
        EXPECT_EQ(keliHOGGetSize(&k, &size), t.want) << t.c.cell << " " << t.c.block << " " << t.c.stride;
        std::vector<unsigned char> spec(64 * 64 * 16 + 72, 0xCD);
        EXPECT_EQ(keliHOGInit(&k, reinterpret_cast<KeliHOGSpec*>(spec.data())), t.want);
        if (t.want != kelStatusOk) {
            EXPECT_EQ(size, -1);
            EXPECT_EQ(spec, std::vector<unsigned char>(spec.size(), 0xCD));
        }
    }
    const KeliHOGConfig k = to_config(good);
    int size = 0;
    EXPECT_EQ(keliHOGGetSize(&k, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliHOGGetSize(nullptr, &size), kelStatusNullPtr);
    EXPECT_EQ(keliHOGInit(nullptr, reinterpret_cast<KeliHOGSpec*>(&size)), kelStatusNullPtr);
    EXPECT_EQ(keliHOGInit(&k, nullptr), kelStatusNullPtr);
    // Stride 0: one block a window, and the region is not cut.
    Spec one({0, 4, 8, 0, 5, 2, 0.2f, 8, 8});
    EXPECT_EQ(keliHOGGetDescriptorSize(one.get(), &size), kelStatusOk);
    EXPECT_EQ(size, 4 * 5 * 4);
}

TEST(HOG, QueriesCheckInOrder)
{
    Spec spec({0, 4, 8, 4, 6, 2, 0.2f, 16, 12});
    std::vector<unsigned char> wrong(spec.bytes);
    wrong[3] ^= 1;
    KeliHOGSpec* bad = reinterpret_cast<KeliHOGSpec*>(wrong.data() + 3);
    int size = -1;
    EXPECT_EQ(keliHOGGetBufferSize(nullptr, {16, 12}, &size), kelStatusNullPtr);
    EXPECT_EQ(keliHOGGetBufferSize(spec.get(), {16, 12}, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliHOGGetBufferSize(bad, {1, 1}, &size), kelStatusSpecMismatch);
    EXPECT_EQ(keliHOGGetBufferSize(spec.get(), {15, 12}, &size), kelStatusBadSize);
    EXPECT_EQ(keliHOGGetBufferSize(spec.get(), {16, 11}, &size), kelStatusBadSize);
    EXPECT_EQ(keliHOGGetBufferSize(spec.get(), {60000, 3000}, &size), kelStatusSizeOverflow);
    EXPECT_EQ(size, -1);
    EXPECT_EQ(keliHOGGetBufferSize(spec.get(), {17, 13}, &size), kelStatusOk);
    EXPECT_EQ(size, 17 * 13 * 12);
    EXPECT_EQ(keliHOGGetBufferSize(spec.get(), {44739, 4000}, &size), kelStatusOk);  // just below 2^31 bytes
    EXPECT_EQ(keliHOGGetDescriptorSize(nullptr, &size), kelStatusNullPtr);
    EXPECT_EQ(keliHOGGetDescriptorSize(spec.get(), nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliHOGGetDescriptorSize(bad, &size), kelStatusSpecMismatch);
    EXPECT_EQ(keliHOGGetDescriptorSize(spec.get(), &size), kelStatusOk);
    EXPECT_EQ(size, 3 * 2 * 24 * 4);
}

TEST(HOG, ProcessingChecksInOrderWriteNothing)
{
    Spec spec({0, 4, 8, 4, 6, 2, 0.2f, 16, 12});
    std::vector<unsigned char> wrong(spec.bytes);
    wrong[3] ^= 1;
    KeliHOGSpec* bad = reinterpret_cast<KeliHOGSpec*>(wrong.data() + 3);
    // A 20 x 16 region inside a 22 x 18 image: a border read from memory finds pixels there.
    std::vector<Kel8u> image(22 * 18 * 3, 9), buffer(20 * 16 * 12, 0xEE);
    std::vector<float> out(200, -7.0f);
    const KeliPoint at = {0, 0};
    const Kel8u value[3] = {1, 2, 3};
    struct Case {
        const Kel8u* src;
        int step;
        KeliSize roi;
        const KeliPoint* at;
        int n;
        float* dst;
        const KeliHOGSpec* spec;
        int border;
        const Kel8u* value;
        Kel8u* buffer;
        KelStatus want;
    };
    const Kel8u* s = image.data() + 22 * 3 + 3;
    float* d = out.data();
    KeliHOGSpec* g = spec.get();
    Kel8u* b = buffer.data();
    const Case cases[] = {
        {s, 66, {20, 16}, &at, 1, d, nullptr, 1, value, b, kelStatusNullPtr},
        {nullptr, 66, {20, 16}, &at, 1, d, bad, 1, value, b, kelStatusNullPtr},
        {s, 66, {20, 16}, &at, 1, nullptr, bad, 1, value, b, kelStatusNullPtr},
        {s, 66, {20, 16}, &at, 1, d, bad, 1, value, nullptr, kelStatusNullPtr},
        {s, 0, {20, 16}, &at, 1, d, bad, 1, value, b, kelStatusSpecMismatch},
        {s, 0, {1, 1}, &at, 0, d, g, 999, value, b, kelStatusBadStep},
        {s, 66, {15, 16}, &at, 0, d, g, 999, value, b, kelStatusBadSize},
        {s, 66, {20, 11}, &at, 0, d, g, 999, value, b, kelStatusBadSize},
        {s, 66, {20, 16}, nullptr, 0, d, g, 999, value, b, kelStatusBadArg},
        {s, 66, {20, 16}, nullptr, 2, d, g, 999, value, b, kelStatusNullPtr},
        {s, 66, {20, 16}, &at, 1, d, g, 256, value, b, kelStatusBadBorder},
        {s, 66, {20, 16}, &at, 1, d, g, 2, value, b, kelStatusBadBorder},
        {s, 66, {20, 16}, &at, 1, d, g, 0, value, b, kelStatusBadBorder},
        {s, 66, {20, 16}, &at, 1, d, g, 6 | 16, nullptr, b, kelStatusNullPtr},
        {s, 66, {20, 16}, &at, 1, d, g, 6, value, b, kelStatusOk},
        {s, 66, {20, 16}, &at, 1, d, g, 246, nullptr, b, kelStatusOk},  // all sides in memory: no value needed
    };
    for (const Case& t : cases) {
        std::fill(out.begin(), out.end(), -7.0f);
        std::fill(buffer.begin(), buffer.end(), 0xEE);
        const KelStatus st = keliHOG_8u32f_C3R(t.src, t.step, t.roi, t.at, t.n, t.dst, t.spec,
                                               static_cast<KeliBorderType>(t.border), t.value, t.buffer);
        EXPECT_EQ(st, t.want) << "border " << t.border;
        if (st != kelStatusOk) {
            EXPECT_EQ(out, std::vector<float>(200, -7.0f));
            EXPECT_EQ(buffer, std::vector<Kel8u>(buffer.size(), 0xEE));
        }
    }
    // C1 takes its value by value: a constant border needs no pointer.
    EXPECT_EQ(keliHOG_8u32f_C1R(s, 66, {20, 16}, &at, 1, d, g, kelBorderConst, 0, b), kelStatusOk);
}

}  // namespace
