// The edge driver against the pixel model: every border kind with every set of in-memory flags,
// regions smaller and larger than the window, centred and off-centre anchors, all three modes. The
// test kernel sums the window with a distinct weight per position, so a pixel read from the
// wrong place, a missing segment or a segment written twice shows in the output.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "filter/edge_driver.hpp"
#include "kit/framed.hpp"
#include "kit/random.hpp"
#include "reference/filter.hpp"

namespace {

using kit::Framed;
using kit::kMargin;
using keli::filter::EdgeDriver;
using keli::filter::EdgeJob;
using keli::filter::Footprint;

inline std::uint32_t weight(int j, int i) { return std::uint32_t(j * 31 + i) * 2654435761u + 1; }

template <class T> struct WeightedSum {
    Footprint fp;
    int C;
    void operator()(const T* const* rows, Kel32s* out, std::int64_t n) const
    {
        for (std::int64_t x = 0; x < n * C; ++x) {
            std::uint32_t s = 0;
            for (int j = 0; j < fp.kh; ++j)
                for (int i = 0; i < fp.kw; ++i) s += weight(j, i) * std::uint32_t(rows[j][x + i * C]);
            out[x] = static_cast<Kel32s>(s);
        }
    }
};

template <class T>
Kel32s model(Framed<T>& img, int border, Footprint fp, const T* value, std::int64_t x, std::int64_t y, int c)
{
    const reference::Window w{fp.kw, fp.kh, fp.ax, fp.ay};
    std::uint32_t s = 0;
    for (int j = 0; j < fp.kh; ++j)
        for (int i = 0; i < fp.kw; ++i) {
            const auto at = reference::edge_source(border, w, img.width, img.height, x - fp.ax + i, y - fp.ay + j);
            const T p = at.inside ? img.at(at.x, at.y, c) : value[c];
            s += weight(j, i) * std::uint32_t(p);
        }
    return static_cast<Kel32s>(s);
}

template <class T, keli::Layout L> void check_all(int C)
{
    kit::Rng random;
    const T value[4] = {T(7), T(250), T(3), T(9)};
    const Footprint prints[] = {{1, 1, 0, 0}, {2, 2, 0, 0}, {3, 3, 1, 1}, {5, 3, 2, 1}, {4, 2, 1, 0},
                                {2, 5, 0, 2}, {7, 7, 3, 3}, {3, 4, 0, 3}, {6, 1, 5, 0}};
    const int borders[] = {1, 3, 6, 240};
    for (int w : {1, 2, 3, 5, 9})
        for (int h : {1, 2, 4, 7})
            for (const Footprint& fp : prints)
                for (int base : borders)
                    for (int flags = 0; flags < 16; ++flags) {
                        const int border = base == 240 ? 240 : base | flags << 4;
                        if (base == 240 && flags) continue;
                        Framed<T> img(w, h, C);
                        for (auto& v : img.data) v = T(random.below(256));
                        Framed<Kel32s> out(w, h, C);
                        using Driver = EdgeDriver<T, L, Kel32s>;
                        // Scratch off 16-byte alignment, as a caller's buffer may be.
                        std::vector<unsigned char> scratch(Driver::scratch_bytes(w, h, fp, border) + 4);
                        EdgeJob<T, Kel32s> job{img.region(), img.step(), out.region(), out.step(), w, h, fp,
                                               border, value, scratch.data() + 4};
                        Driver(job).run(WeightedSum<T>{fp, C});
                        for (int y = 0; y < h; ++y)
                            for (int x = 0; x < w; ++x)
                                for (int c = 0; c < C; ++c)
                                    ASSERT_EQ(out.at(x, y, c), model(img, border, fp, value, x, y, c))
                                        << "w " << w << " h " << h << " kw " << fp.kw << " kh " << fp.kh << " ax "
                                        << fp.ax << " ay " << fp.ay << " border " << border << " at " << x << ","
                                        << y << "," << c;
                        for (int y = -kMargin; y < h + kMargin; ++y)
                            for (int x = -kMargin; x < w + kMargin; ++x)
                                if (x < 0 || y < 0 || x >= w || y >= h) {
                                    ASSERT_EQ(out.at(x, y, 0), 0);
                                }
                        // Banded: the same pixels from rings of the window's height and a few
                        // rows more, which wrap at every offset and enter rows in batches.
                        for (int extra : {0, 1, 3}) {
                            const std::int64_t slots = fp.kh + extra;
                            std::vector<unsigned char> band(std::size_t(slots * (w + fp.kw - 1) * C) * sizeof(T));
                            Framed<Kel32s> banded(w, h, C);
                            EdgeJob<T, Kel32s> bandJob{img.region(), img.step(), banded.region(), banded.step(), w,
                                                       h, fp, border, value, band.data()};
                            Driver(bandJob).run_banded(WeightedSum<T>{fp, C}, slots);
                            ASSERT_EQ(banded.data, out.data) << "banded, slots " << slots << " w " << w << " h " << h
                                                             << " kw " << fp.kw << " kh " << fp.kh << " border "
                                                             << border;
                        }
                        if constexpr (sizeof(T) == sizeof(Kel32s)) {
                            // In place: the same pixels, the memory around the region untouched.
                            Framed<T> same = img;
                            std::vector<unsigned char> ring(Driver::scratch_bytes_in_place(w, fp));
                            EdgeJob<T, Kel32s> inPlace{same.region(), same.step(), same.region(), same.step(), w,
                                                       h, fp, border, value, ring.data()};
                            Driver(inPlace).run_in_place(WeightedSum<T>{fp, C});
                            for (int y = -kMargin; y < h + kMargin; ++y)
                                for (int x = -kMargin; x < w + kMargin; ++x)
                                    for (int c = 0; c < C; ++c) {
                                        const bool in = x >= 0 && y >= 0 && x < w && y < h;
                                        ASSERT_EQ(same.at(x, y, c), in ? out.at(x, y, c) : img.at(x, y, c))
                                            << "in place, w " << w << " h " << h << " kw " << fp.kw << " kh "
                                            << fp.kh << " border " << border << " at " << x << "," << y;
                                    }
                        }
                    }
}

TEST(FilterEdgeDriver, EveryBorderAndFlagSetMatchesThePixelModel)
{
    check_all<Kel8u, keli::Layout::C1>(1);
    check_all<Kel32s, keli::Layout::C1>(1);
    check_all<Kel32s, keli::Layout::C3>(3);
}

// Mirrored windows far wider and taller than the region fold to and fro.
TEST(FilterEdgeDriver, WideMirrorFoldsRepeatedly)
{
    Framed<Kel32s> img(3, 2, 1);
    for (std::size_t i = 0; i < img.data.size(); ++i) img.data[i] = Kel32s(i * 7 + 1);
    const Footprint fp = keli::filter::centred(11, 9);
    for (int border : {3, 3 | 16, 3 | 64 | 32}) {
        Framed<Kel32s> out(3, 2, 1);
        using Driver = EdgeDriver<Kel32s, keli::Layout::C1, Kel32s>;
        std::vector<unsigned char> scratch(Driver::scratch_bytes(3, 2, fp, border));
        Driver({img.region(), img.step(), out.region(), out.step(), 3, 2, fp, border, nullptr, scratch.data()})
            .run(WeightedSum<Kel32s>{fp, 1});
        for (int y = 0; y < 2; ++y)
            for (int x = 0; x < 3; ++x) EXPECT_EQ(out.at(x, y, 0), model(img, border, fp, (Kel32s*)nullptr, x, y, 0));
    }
}

}  // namespace
