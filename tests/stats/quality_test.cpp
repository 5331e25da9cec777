// keliQualityIndex and its buffer size: every member against the model over the sweep with a
// scratch buffer of exactly the queried size at every offset, the values where the rule bites
// (identical images, flat and black images, a mean of zero), the size formulas and the checks.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "keli.h"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "kit/sweep.hpp"
#include "reference/quality.hpp"

namespace {

using reference::View;

template <class T> using QualityFn = KelStatus (*)(const T*, int, const T*, int, KeliSize, Kel32f*, Kel8u*);

constexpr float kCanary = -777.25f;

bool same_bits(float a, float b) { return std::memcmp(&a, &b, sizeof a) == 0; }

template <class T> constexpr KelDataType type_of()
{
    return std::is_same_v<T, Kel8u> ? kel8u : std::is_same_v<T, Kel16u> ? kel16u : kel32f;
}

// Scratch of exactly the queried size at a given offset from a 64-byte boundary, with guard
// bytes behind it that must stay as they were.
struct Scratch {
    std::vector<Kel8u> bytes;
    int offset, size;
    Scratch(int size_, int offset_) : bytes(size_ + offset_ + 128, 0x5A), offset(offset_), size(size_) {}
    Kel8u* data()
    {
        auto at = reinterpret_cast<std::uintptr_t>(bytes.data());
        return bytes.data() + ((64 - at % 64) % 64) + offset;
    }
    bool guard_intact()
    {
        const Kel8u* end = data() + size;
        for (const Kel8u* p = end; p < bytes.data() + bytes.size(); ++p)
            if (*p != 0x5A) return false;
        return true;
    }
};

template <class T> int buffer_size(int channelsArg, KeliSize roi)
{
    int size = -1;
    EXPECT_EQ(keliQualityIndexGetBufferSize(type_of<T>(), channelsArg, roi, &size), kelStatusOk);
    return size;
}

// Runs one member on a and b with the queried scratch and compares with the model.
template <class T>
void check_member(QualityFn<T> fn, int channelsArg, const View<T>& va, const View<T>& vb, int scratchOffset)
{
    const int colours = va.channels == 1 ? 1 : 3;
    const KeliSize roi{va.width, va.height};
    Scratch scratch(buffer_size<T>(channelsArg, roi), scratchOffset);
    float want[3], out[4] = {kCanary, kCanary, kCanary, kCanary};
    const bool failed = reference::quality(va, vb, colours, want);
    ASSERT_EQ(fn(va.base, va.step, vb.base, vb.step, roi, out, scratch.data()), failed ? kelStatusZeroDenominator : kelStatusOk);
    for (int c = 0; c < colours; ++c) ASSERT_TRUE(same_bits(out[c], want[c])) << "channel " << c << ": " << out[c] << " want " << want[c];
    ASSERT_TRUE(same_bits(out[colours], kCanary));
    ASSERT_TRUE(scratch.guard_intact());
}

template <class T> T draw(kit::Rng& rng)
{
    if constexpr (std::is_same_v<T, Kel32f>) return rng.any<float>() * 0.01f + (rng.below(8) == 0 ? 100.0f : 0.0f);
    else return rng.any<T>();
}

// C1, C3, AC4 of one element type.
template <class T> void sweep_type(const QualityFn<T> (&fn)[3], int maxWidth)
{
    const int mem[3] = {1, 3, 4}, arg[3] = {1, 3, 9};
    kit::Rng rng;
    kit::SweepOptions o;
    o.maxWidth = maxWidth;
    o.elementBytes = sizeof(T);
    for (int f = 0; f < 3; ++f)
        kit::sweep(o, [&](const kit::Geometry& g) {
            SCOPED_TRACE(g.describe() + " form " + std::to_string(f));
            kit::Image<T> a(g.width, g.height, mem[f], g.src), b(g.width, g.height, mem[f], g.dst);
            a.fill([&] { return draw<T>(rng); });
            b.fill([&] { return draw<T>(rng); });
            const View<T> va{a.data(), a.step(), g.width, g.height, mem[f]}, vb{b.data(), b.step(), g.width, g.height, mem[f]};
            check_member(fn[f], arg[f], va, vb, g.dst.offsetElements * 4 % 64);
        });
}

#define KELI_QUALITY(TT) {keliQualityIndex_##TT##_C1R, keliQualityIndex_##TT##_C3R, keliQualityIndex_##TT##_AC4R}

TEST(QualityIndex, MembersMatchTheModelOverTheSweep)
{
    sweep_type<Kel8u>(KELI_QUALITY(8u32f), 40);
    sweep_type<Kel16u>(KELI_QUALITY(16u32f), 24);
    sweep_type<Kel32f>(KELI_QUALITY(32f), 24);
}

TEST(QualityIndex, TallImagesAddRowByRow)
{
    // Many rows of floats: each row's sums are rounded to 32 bits before they join the totals.
    kit::Rng rng;
    for (int w : {1, 7, 33}) {
        kit::Image<Kel32f> a(w, 150, 3), b(w, 150, 3);
        a.fill([&] { return rng.any<float>(); });
        b.fill([&] { return rng.any<float>() * 0.5f + 3.0f; });
        check_member<Kel32f>(keliQualityIndex_32f_C3R, 3, {a.data(), a.step(), w, 150, 3}, {b.data(), b.step(), w, 150, 3}, 0);
    }
}

TEST(QualityIndex, IdenticalFlatBlackAndCentredImages)
{
    kit::Rng rng;
    kit::Image<Kel8u> a(21, 5, 1), zero(21, 5, 3);
    a.fill([&] { return Kel8u(rng.below(256)); });
    zero.fill([] { return Kel8u(0); });
    Scratch s(buffer_size<Kel8u>(3, {21, 5}), 0);
    float q[3] = {kCanary, kCanary, kCanary};

    // The same picture twice: 1 within rounding.
    ASSERT_EQ(keliQualityIndex_8u32f_C1R(a.data(), a.step(), a.data(), a.step(), {21, 5}, q, s.data()), kelStatusOk);
    EXPECT_NEAR(q[0], 1.0f, 1e-5f);

    // Black images have no index: the negative quiet not-a-number in every channel.
    ASSERT_EQ(keliQualityIndex_8u32f_C3R(zero.data(), zero.step(), zero.data(), zero.step(), {21, 5}, q, s.data()),
              kelStatusZeroDenominator);
    for (float v : q) EXPECT_TRUE(same_bits(v, -std::numeric_limits<float>::quiet_NaN())) << v;

    // One flat channel fails alone; the others are still computed.
    kit::Image<Kel8u> c(21, 5, 3), d(21, 5, 3);
    c.fill([&] { return Kel8u(rng.below(256)); });
    d.fill([&] { return Kel8u(rng.below(256)); });
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 21; ++x) c.at(x, y, 1) = d.at(x, y, 1) = 9;
    float want[3];
    EXPECT_TRUE(reference::quality<Kel8u>({c.data(), c.step(), 21, 5, 3}, {d.data(), d.step(), 21, 5, 3}, 3, want));
    ASSERT_EQ(keliQualityIndex_8u32f_C3R(c.data(), c.step(), d.data(), d.step(), {21, 5}, q, s.data()), kelStatusZeroDenominator);
    EXPECT_TRUE(same_bits(q[1], want[1]));
    EXPECT_TRUE(same_bits(q[0], want[0]) && same_bits(q[2], want[2]) && std::isfinite(q[0]) && std::isfinite(q[2]));

    // A float image of mean zero is taken as it stands; its index has the sign of the product
    // of the means and vanishes with it.
    kit::Image<Kel32f> e(16, 2, 1), f(16, 2, 1);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 16; ++x) {
            e.at(x, y) = (x % 2 ? -1.0f : 1.0f) * float(x / 2 + 1);
            f.at(x, y) = float(x + y);
        }
    check_member<Kel32f>(keliQualityIndex_32f_C1R, 1, {e.data(), e.step(), 16, 2, 1}, {f.data(), f.step(), 16, 2, 1}, 8);
    Scratch s1(buffer_size<Kel32f>(1, {16, 2}), 0);
    ASSERT_EQ(keliQualityIndex_32f_C1R(e.data(), e.step(), f.data(), f.step(), {16, 2}, q, s1.data()), kelStatusOk);
    EXPECT_EQ(q[0], 0.0f);
}

TEST(QualityIndex, BufferSizesAndChecksInOrder)
{
    struct Case { KelDataType type; int channels, width, want; };
    const Case cases[] = {
        {kel8u, 1, 1, 192},   {kel16u, 1, 16, 192},  {kel32f, 1, 17, 320},  {kel8u, 1, 100, 960},
        {kel8u, 3, 1, 496},   {kel8u, 9, 17, 928},   {kel16u, 3, 16, 544},  {kel16u, 9, 33, 1504},
        {kel32f, 3, 16, 448}, {kel32f, 9, 100, 2752},
    };
    for (const Case& c : cases) {
        int size = -1;
        ASSERT_EQ(keliQualityIndexGetBufferSize(c.type, c.channels, {c.width, 3}, &size), kelStatusOk);
        EXPECT_EQ(size, c.want) << c.type << " " << c.channels << " " << c.width;
    }
    int size = -1;
    EXPECT_EQ(keliQualityIndexGetBufferSize(kel16s, 2, {0, 1}, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliQualityIndexGetBufferSize(kel16s, 2, {0, 1}, &size), kelStatusBadSize);
    EXPECT_EQ(keliQualityIndexGetBufferSize(kel16s, 2, {1, 0}, &size), kelStatusBadSize);
    EXPECT_EQ(keliQualityIndexGetBufferSize(kel16s, 2, {1, 1}, &size), kelStatusBadDataType);
    EXPECT_EQ(keliQualityIndexGetBufferSize(kel8u, 4, {1, 1}, &size), kelStatusBadChannel);
    EXPECT_EQ(size, -1);

    Kel16u img[64] = {};
    Kel8u buf[4096];
    float q[3] = {kCanary, kCanary, kCanary};
    auto run = [&](const Kel16u* a, int sa, const Kel16u* b, int sb, KeliSize r, float* o, Kel8u* p) {
        return keliQualityIndex_16u32f_C3R(a, sa, b, sb, r, o, p);
    };
    EXPECT_EQ(run(nullptr, 0, img, 0, {0, 0}, q, buf), kelStatusNullPtr);
    EXPECT_EQ(run(img, 0, nullptr, 0, {0, 0}, q, buf), kelStatusNullPtr);
    EXPECT_EQ(run(img, 0, img, 0, {0, 0}, nullptr, buf), kelStatusNullPtr);
    EXPECT_EQ(run(img, 0, img, 0, {0, 0}, q, nullptr), kelStatusNullPtr);
    EXPECT_EQ(run(img, 0, img, 0, {0, 2}, q, buf), kelStatusBadSize);
    EXPECT_EQ(run(img, 0, img, 0, {2, -1}, q, buf), kelStatusBadSize);
    EXPECT_EQ(run(img, 0, img, 12, {2, 2}, q, buf), kelStatusBadStep);
    EXPECT_EQ(run(img, 12, img, -12, {2, 2}, q, buf), kelStatusBadStep);
    for (float v : q) EXPECT_TRUE(same_bits(v, kCanary));
}

}  // namespace
