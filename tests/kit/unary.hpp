// One sweep for element-wise operations with one source: the export against a plain scalar
// model, out of place and in place, over the geometry sweep, with guard bytes, untouched
// padding and (for AC4) untouched alpha.
#pragma once

#include <gtest/gtest.h>

#include <cstring>

#include "kit/image.hpp"
#include "kit/random.hpp"
#include "kit/sweep.hpp"

namespace kit {

template <class T> bool same_bits(T a, T b) { return std::memcmp(&a, &b, sizeof(T)) == 0; }

struct UnaryLayout {
    int channels;
    bool alpha;  // AC4: the fourth element of each pixel is never written
};

// call(src, srcStep, dst, dstStep, size) and callInPlace(srcDst, step, size) are the exports;
// model(T) -> T is the rule; gen() -> T draws inputs.
template <class T, class Call, class CallInPlace, class Model, class Gen>
void unary_sweep(UnaryLayout layout, Call call, CallInPlace callInPlace, Model model, Gen gen, SweepOptions o = {})
{
    o.elementBytes = sizeof(T);
    Rng fill;
    auto colour = [&](int, int, int c) { return !(layout.alpha && c == 3); };
    sweep(o, [&](const Geometry& g) {
        SCOPED_TRACE(g.describe() + " seed " + std::to_string(seed()));
        Image<T> src(g.width, g.height, layout.channels, g.src);
        Image<T> dst(g.width, g.height, layout.channels, g.dst);
        src.fill(gen);
        dst.fill([&] { return fill.any<T>(); });
        const auto srcBefore = src.snapshot();
        const auto dstBefore = dst.snapshot();
        Image<T> expected = dst;
        for (int y = 0; y < g.height; ++y)
            for (int x = 0; x < g.width; ++x)
                for (int c = 0; c < layout.channels; ++c)
                    if (colour(x, y, c)) expected.at(x, y, c) = model(src.at(x, y, c));

        ASSERT_EQ(call(src.data(), src.step(), dst.data(), dst.step(), src.size()), kelStatusOk);
        EXPECT_EQ(src.bytes(), srcBefore) << "source changed";
        EXPECT_EQ(first_stray_write(dst, dstBefore, colour), -1) << "write outside the colour elements";
        for (int y = 0; y < g.height; ++y)
            for (int x = 0; x < g.width; ++x)
                for (int c = 0; c < layout.channels; ++c)
                    ASSERT_TRUE(same_bits(dst.at(x, y, c), expected.at(x, y, c)))
                        << "at x " << x << " y " << y << " c " << c;

        // In place: the source becomes the destination.
        Image<T> inout(g.width, g.height, layout.channels, g.dst);
        for (int y = 0; y < g.height; ++y)
            for (int x = 0; x < g.width * layout.channels; ++x) inout.at(0, y, x) = src.at(0, y, x);
        const auto inoutBefore = inout.snapshot();
        ASSERT_EQ(callInPlace(inout.data(), inout.step(), inout.size()), kelStatusOk);
        EXPECT_EQ(first_stray_write(inout, inoutBefore, colour), -1) << "in place: write outside the colour";
        for (int y = 0; y < g.height; ++y)
            for (int x = 0; x < g.width; ++x)
                for (int c = 0; c < layout.channels; ++c) {
                    const T want = colour(x, y, c) ? model(src.at(x, y, c)) : src.at(x, y, c);
                    ASSERT_TRUE(same_bits(inout.at(x, y, c), want)) << "in place at x " << x << " y " << y;
                }
    });
}

}  // namespace kit
