// Plain models of the data-movement rules and the sweep that holds the kernels to them.
//
// A Side is one interleaved image or a set of one-channel planes that share a shape (and so a
// step). layout_sweep runs an export over the geometry sweep: the expected destination is a
// copy of the whole destination buffer, guard bands included, on which the model writes
// element by element; after the call the buffers must be equal byte for byte, and the source
// must not have changed.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "kit/image.hpp"
#include "kit/random.hpp"
#include "kit/sweep.hpp"

namespace reference {

// Any bit pattern of T (not-a-number payloads included for floats): a copy must move them all.
template <class T> T any_bits(kit::Rng& rng)
{
    std::uint64_t bits = static_cast<std::uint64_t>(rng.any<std::int64_t>());
    T v;
    std::memcpy(&v, &bits, sizeof v);
    return v;
}

template <class T> struct Side {
    std::vector<kit::Image<T>> images;
    bool planar;

    Side(int width, int height, int channels, bool planar_, kit::Shape shape) : planar(planar_)
    {
        for (int k = 0; k < (planar ? channels : 1); ++k) images.emplace_back(width, height, planar ? 1 : channels, shape);
    }
    T& at(int x, int y, int c) { return planar ? images[c].at(x, y) : images[0].at(x, y, c); }
    const T& at(int x, int y, int c) const { return planar ? images[c].at(x, y) : images[0].at(x, y, c); }
    int step() const { return images[0].step(); }
    T* data(int plane = 0) { return images[plane].data(); }
    const T* data(int plane = 0) const { return const_cast<Side*>(this)->data(plane); }
    template <class Gen> void fill(Gen&& gen)
    {
        for (auto& image : images) image.fill(gen);
    }
    std::vector<std::vector<std::uint8_t>> bytes() const
    {
        std::vector<std::vector<std::uint8_t>> all;
        for (const auto& image : images) all.push_back(image.bytes());
        return all;
    }
};

// Index of the first differing byte as "plane:byte", or "" when equal.
inline std::string first_difference(const std::vector<std::vector<std::uint8_t>>& a,
                                    const std::vector<std::vector<std::uint8_t>>& b)
{
    for (std::size_t k = 0; k < a.size(); ++k)
        for (std::size_t i = 0; i < a[k].size(); ++i)
            if (a[k][i] != b[k][i]) return std::to_string(k) + ":" + std::to_string(i);
    return "";
}

struct SideLayout {
    int channels;
    bool planar;
};

// call(src, dst, size) -> status runs the export; model(src, expected, x, y) writes the expected
// destination pixel (x, y) from the source and the old destination.
template <class T, class Call, class Model>
void layout_sweep(SideLayout in, SideLayout out, Call&& call, Model&& model, kit::SweepOptions o = {})
{
    o.elementBytes = sizeof(T);
    kit::Rng rng;
    kit::sweep(o, [&](const kit::Geometry& g) {
        SCOPED_TRACE(g.describe() + " seed " + std::to_string(rng.seed_value()));
        Side<T> src(g.width, g.height, in.channels, in.planar, g.src);
        Side<T> dst(g.width, g.height, out.channels, out.planar, g.dst);
        src.fill([&] { return any_bits<T>(rng); });
        dst.fill([&] { return any_bits<T>(rng); });
        Side<T> expected = dst;
        for (int y = 0; y < g.height; ++y)
            for (int x = 0; x < g.width; ++x) model(static_cast<const Side<T>&>(src), expected, x, y);
        const auto srcBefore = src.bytes();
        ASSERT_EQ(call(src, dst, KeliSize{g.width, g.height}), kelStatusOk);
        ASSERT_EQ(first_difference(src.bytes(), srcBefore), "") << "source changed";
        ASSERT_EQ(first_difference(dst.bytes(), expected.bytes()), "") << "destination differs from the model";
    });
}

// The channel-swap rule of one destination channel: a source channel (>= 0), the constant
// (kConstant) or the old value (kKeep). Only the three-to-four form has the last two.
constexpr int kKeep = -1, kConstant = -2;
inline int swap_source(bool threeToFour, int entry)
{
    if (!threeToFour) return entry;
    return entry < 3 ? entry : entry == 3 ? kConstant : kKeep;
}

}  // namespace reference
