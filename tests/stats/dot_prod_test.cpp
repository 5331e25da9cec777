// keliDotProd and keliDotProdCol: every member against the models over the sweep (negative steps
// included, since only a zero step is refused), exact integer products at their extremes, the
// groups of three of the linear combination, and the check order.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "keli.h"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "kit/sweep.hpp"
#include "reference/dot_prod.hpp"

namespace {

using reference::View;

constexpr double kCanary = -12345.678;

template <class T> using DotFn = KelStatus (*)(const T*, int, const T*, int, KeliSize, Kel64f*);

bool same_bits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

template <class T> T draw(kit::Rng& rng)
{
    if constexpr (std::is_same_v<T, Kel32f>) return std::ldexp(rng.any<float>(), rng.below(30) - 15);
    else if (rng.below(4) == 0) return rng.below(2) ? std::numeric_limits<T>::max() : std::numeric_limits<T>::min();
    else return rng.any<T>();
}

// C1, C3, C4, AC4 of one element type.
template <class T> void sweep_type(const DotFn<T> (&fn)[4], int maxWidth)
{
    const int mem[4] = {1, 3, 4, 4}, taken[4] = {1, 3, 4, 3};
    kit::Rng rng;
    kit::SweepOptions o;
    o.maxWidth = maxWidth;
    o.elementBytes = sizeof(T);
    o.negativeSteps = true;
    for (int f = 0; f < 4; ++f)
        kit::sweep(o, [&](const kit::Geometry& g) {
            SCOPED_TRACE(g.describe() + " form " + std::to_string(f));
            kit::Image<T> a(g.width, g.height, mem[f], g.src), b(g.width, g.height, mem[f], g.dst);
            a.fill([&] { return draw<T>(rng); });
            b.fill([&] { return draw<T>(rng); });
            const View<T> va{a.data(), a.step(), g.width, g.height, mem[f]}, vb{b.data(), b.step(), g.width, g.height, mem[f]};
            double want[4], out[5] = {kCanary, kCanary, kCanary, kCanary, kCanary};
            reference::dot(va, vb, taken[f], want);
            ASSERT_EQ(fn[f](va.base, va.step, vb.base, vb.step, {g.width, g.height}, out), kelStatusOk);
            for (int c = 0; c < taken[f]; ++c) ASSERT_TRUE(same_bits(out[c], want[c])) << "channel " << c << ": " << out[c] << " want " << want[c];
            ASSERT_EQ(out[taken[f]], kCanary);
        });
}

#define KELI_DOT(TT) {keliDotProd_##TT##_C1R, keliDotProd_##TT##_C3R, keliDotProd_##TT##_C4R, keliDotProd_##TT##_AC4R}

TEST(DotProd, MembersMatchTheModelOverTheSweep)
{
    sweep_type<Kel8u>(KELI_DOT(8u64f), 72);
    sweep_type<Kel16u>(KELI_DOT(16u64f), 40);
    sweep_type<Kel16s>(KELI_DOT(16s64f), 40);
    sweep_type<Kel32u>(KELI_DOT(32u64f), 24);
    sweep_type<Kel32s>(KELI_DOT(32s64f), 24);
    sweep_type<Kel32f>(KELI_DOT(32f64f), 24);
}

// Row totals join the running sum in row order, and integer tiles cut rows and columns: tall
// images of every form and enough rows for several tiles of bytes.
template <class T> void tall_type(const DotFn<T> (&fn)[4], int width, int height)
{
    const int mem[4] = {1, 3, 4, 4}, taken[4] = {1, 3, 4, 3};
    kit::Rng rng;
    for (int f = 0; f < 4; ++f)
        for (int w = width; w < width + 5; ++w) {
            SCOPED_TRACE("width " + std::to_string(w) + " form " + std::to_string(f));
            kit::Image<T> a(w, height, mem[f]), b(w, height, mem[f], kit::Shape{1, 8, false});
            a.fill([&] { return draw<T>(rng); });
            b.fill([&] { return draw<T>(rng); });
            const View<T> va{a.data(), a.step(), w, height, mem[f]}, vb{b.data(), b.step(), w, height, mem[f]};
            double want[4], out[4];
            reference::dot(va, vb, taken[f], want);
            ASSERT_EQ(fn[f](va.base, va.step, vb.base, vb.step, {w, height}, out), kelStatusOk);
            for (int c = 0; c < taken[f]; ++c) ASSERT_TRUE(same_bits(out[c], want[c])) << "channel " << c;
        }
}

TEST(DotProd, TallImagesAndSeveralTiles)
{
    tall_type<Kel8u>(KELI_DOT(8u64f), 300, 300);
    tall_type<Kel16s>(KELI_DOT(16s64f), 3, 40);
    tall_type<Kel32u>(KELI_DOT(32u64f), 5, 40);
    tall_type<Kel32s>(KELI_DOT(32s64f), 5, 40);
    tall_type<Kel32f>(KELI_DOT(32f64f), 5, 40);
}

TEST(DotProd, IntegerProductsStayExactAtTheirExtremes)
{
    const int w = 70000;  // longer than a tile of bytes
    std::vector<Kel8u> b8(w, 255);
    std::vector<Kel16s> lo(w, -32768), hi(w, 32767);
    std::vector<Kel16u> u(w, 65535);
    std::vector<Kel32u> u32(4, 0xFFFFFFFFu);
    double v = 0;
    ASSERT_EQ(keliDotProd_8u64f_C1R(b8.data(), w, b8.data(), w, {w, 1}, &v), kelStatusOk);
    EXPECT_EQ(v, double(w) * 65025);
    ASSERT_EQ(keliDotProd_16s64f_C1R(lo.data(), 2 * w, lo.data(), 2 * w, {w, 1}, &v), kelStatusOk);
    EXPECT_EQ(v, double(w) * 1073741824.0);
    ASSERT_EQ(keliDotProd_16s64f_C1R(lo.data(), 2 * w, hi.data(), 2 * w, {w, 1}, &v), kelStatusOk);
    EXPECT_EQ(v, -double(w) * 1073709056.0);
    ASSERT_EQ(keliDotProd_16u64f_C1R(u.data(), 2 * w, u.data(), 2 * w, {w, 1}, &v), kelStatusOk);
    EXPECT_EQ(v, double(w) * 4294836225.0);
    ASSERT_EQ(keliDotProd_32u64f_C1R(u32.data(), 16, u32.data(), 16, {4, 1}, &v), kelStatusOk);
    EXPECT_EQ(v, 4 * (4294967295.0 * 4294967295.0));
}

TEST(DotProd, ChecksInOrderWriteNothing)
{
    Kel16s img[32] = {};
    double out[4] = {kCanary, kCanary, kCanary, kCanary};
    auto call = [&](const Kel16s* a, int sa, const Kel16s* b, int sb, KeliSize s, double* o) {
        const KelStatus st = keliDotProd_16s64f_C3R(a, sa, b, sb, s, o);
        for (double x : out) EXPECT_EQ(x, kCanary);
        return st;
    };
    EXPECT_EQ(call(nullptr, 0, img, 12, {0, 1}, out), kelStatusNullPtr);
    EXPECT_EQ(call(img, 12, nullptr, 12, {2, 2}, out), kelStatusNullPtr);
    EXPECT_EQ(call(img, 12, img, 12, {2, 2}, nullptr), kelStatusNullPtr);
    EXPECT_EQ(call(img, 12, img, 12, {2, 0}, out), kelStatusBadSize);
    EXPECT_EQ(call(img, 0, img, 12, {2, 2}, out), kelStatusBadSize);
    EXPECT_EQ(call(img, 12, img, 0, {2, 2}, out), kelStatusBadSize);
    // A negative step is taken as it stands.
    EXPECT_EQ(keliDotProd_16s64f_C3R(img + 12, -12, img + 12, -12, {2, 2}, out), kelStatusOk);
    EXPECT_EQ(out[0], 0.0);
}

template <class F> using ColFn = KelStatus (*)(const F* const*, const F*, int, F*, int);

// Groups of three vectors in list order: the first group sets the result, every further group
// adds its own sum of products.
template <class F> std::vector<F> col_model(const std::vector<std::vector<F>>& v, const std::vector<F>& c, int length)
{
    std::vector<F> d(length);
    for (std::size_t k = 0; k < v.size(); k += 3)
        for (int i = 0; i < length; ++i) {
            F t = c[k] * v[k][i];
            if (k + 1 < v.size()) t = t + c[k + 1] * v[k + 1][i];
            if (k + 2 < v.size()) t = t + c[k + 2] * v[k + 2][i];
            d[i] = k == 0 ? t : d[i] + t;
        }
    return d;
}

template <class F> void col_sweep(ColFn<F> fn)
{
    kit::Rng rng;
    for (int count = 1; count <= 8; ++count)
        for (int length = 1; length <= 21; ++length)
            for (int off = 0; off < 4; ++off) {
                std::vector<std::vector<F>> v(count, std::vector<F>(length + 4));
                std::vector<F> c(count);
                std::vector<const F*> ptrs(count);
                for (int k = 0; k < count; ++k) {
                    for (auto& x : v[k]) x = F(std::ldexp(rng.any<float>(), rng.below(40) - 20));
                    c[k] = F(rng.any<float>());
                    ptrs[k] = v[k].data() + (k + off) % 3;
                }
                std::vector<std::vector<F>> shifted(count);
                for (int k = 0; k < count; ++k) shifted[k].assign(ptrs[k], ptrs[k] + length);
                const std::vector<F> want = col_model(shifted, c, length);
                std::vector<F> dst(length + 8, F(-7));
                F* d = dst.data() + off;
                ASSERT_EQ(fn(ptrs.data(), c.data(), count, d, length), kelStatusOk);
                for (int i = 0; i < length; ++i) ASSERT_EQ(std::memcmp(&d[i], &want[i], sizeof(F)), 0) << count << " " << length << " " << i;
                for (int i = 0; i < off; ++i) ASSERT_EQ(dst[i], F(-7));
                for (int i = off + length; i < length + 8; ++i) ASSERT_EQ(dst[i], F(-7));
            }
}

TEST(DotProdCol, GroupsOfThreeInListOrder)
{
    col_sweep<Kel32f>(keliDotProdCol_32f_L2);
    col_sweep<Kel64f>(keliDotProdCol_64f_L2);

    // Grouping shows: 1e8 then 4 and 4 one by one stays 1e8 in floats (each 4 is half a step
    // and ties go to even), while the second group's own sum 8 is a whole step.
    const Kel32f a[1] = {1e8f}, f[1] = {4.0f}, z[1] = {0.0f};
    const Kel32f* ptrs[6] = {a, z, z, f, f, z};
    const Kel32f ones[6] = {1, 1, 1, 1, 1, 1};
    Kel32f d = 5;
    ASSERT_EQ(keliDotProdCol_32f_L2(ptrs, ones, 6, &d, 1), kelStatusOk);
    EXPECT_EQ(d, 100000008.0f);

    const Kel32f* withNull[3] = {a, nullptr, f};
    Kel32f out = 3;
    EXPECT_EQ(keliDotProdCol_32f_L2(nullptr, ones, 1, &out, 1), kelStatusNullPtr);
    EXPECT_EQ(keliDotProdCol_32f_L2(ptrs, nullptr, 1, &out, 1), kelStatusNullPtr);
    EXPECT_EQ(keliDotProdCol_32f_L2(ptrs, ones, 1, nullptr, 1), kelStatusNullPtr);
    EXPECT_EQ(keliDotProdCol_32f_L2(withNull, ones, 3, &out, 0), kelStatusNullPtr);
    EXPECT_EQ(keliDotProdCol_32f_L2(ptrs, ones, 0, &out, 1), kelStatusBadSize);
    EXPECT_EQ(keliDotProdCol_32f_L2(ptrs, ones, 2, &out, 0), kelStatusBadSize);
    EXPECT_EQ(out, 3.0f);
}

}  // namespace
