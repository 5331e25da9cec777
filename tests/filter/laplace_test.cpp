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

}  // namespace
