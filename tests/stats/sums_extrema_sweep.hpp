// The reduction sweep of the sums and extrema: a source image over the geometry sweep (every
// head and tail length, every element offset in 16 bytes, padded rows, bottom-up rows), again
// with a zero step (every row is the first), and a check that the source is left as it was.
// Results go to arrays with a spare slot behind the last channel that must keep its canary.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "keli.h"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "kit/sweep.hpp"
#include "reference/sums_extrema.hpp"

namespace sums_test {

template <class T> bool same_bits(T a, T b) { return std::memcmp(&a, &b, sizeof(T)) == 0; }

// check(view) runs the members and compares them with the models.
template <class T, class Gen, class Check> void reduction_sweep(int channels, Gen&& gen, Check&& check, int maxWidth = 80)
{
    kit::SweepOptions o;
    o.maxWidth = maxWidth;
    o.elementBytes = sizeof(T);
    o.negativeSteps = true;
    kit::sweep(o, [&](const kit::Geometry& g) {
        SCOPED_TRACE(g.describe() + " channels " + std::to_string(channels) + " seed " + std::to_string(kit::seed()));
        kit::Image<T> src(g.width, g.height, channels, g.src);
        src.fill(gen);
        const auto before = src.snapshot();
        check(reference::View<T>{src.data(), src.step(), g.width, g.height, channels});
        if (g.src.offsetElements == 1) {
            SCOPED_TRACE("zero step");
            check(reference::View<T>{src.data(), 0, g.width, g.height, channels});
        }
        ASSERT_EQ(src.bytes(), before) << "source changed";
    });
}

// Layouts of the extrema members, in table order C1, C3, C4, AC4.
struct Form {
    int channels, colours;
};
constexpr Form kForms[4] = {{1, 1}, {3, 3}, {4, 4}, {4, 3}};

}  // namespace sums_test
