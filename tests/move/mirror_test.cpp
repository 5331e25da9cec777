// keliMirror and keliTranspose: every member against the plain model over the geometry sweep
// (every head and tail length, misaligned and bottom-up images, guard bytes), in place against
// out of place on every axis, the square in-place transposes across their tile edges, the
// blocked transpose path, and the checks in their order with nothing written.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "keli.h"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "kit/sweep.hpp"
#include "move/transpose.hpp"
#include "reference/copy.hpp"
#include "reference/mirror.hpp"

namespace {

template <class T> using MirrorFn = KelStatus (*)(const T*, int, T*, int, KeliSize, KeliAxis);
template <class T> using MirrorIFn = KelStatus (*)(T*, int, KeliSize, KeliAxis);
template <class T> using TransposeFn = KelStatus (*)(const T*, int, T*, int, KeliSize);
template <class T> using TransposeIFn = KelStatus (*)(T*, int, KeliSize);

template <class T> struct Members {
    int channels;
    bool alpha;
    MirrorFn<T> mirror;
    MirrorIFn<T> mirrorI;
    TransposeFn<T> transpose;   // null for AC4
    TransposeIFn<T> transposeI;
};

#define KELI_MIRROR_MEMBERS(t)                                                                                    \
    std::vector<Members<Kel##t>> members_##t()                                                                    \
    {                                                                                                             \
        return {{1, false, keliMirror_##t##_C1R, keliMirror_##t##_C1IR, keliTranspose_##t##_C1R,                  \
                 keliTranspose_##t##_C1IR},                                                                       \
                {3, false, keliMirror_##t##_C3R, keliMirror_##t##_C3IR, keliTranspose_##t##_C3R,                  \
                 keliTranspose_##t##_C3IR},                                                                       \
                {4, false, keliMirror_##t##_C4R, keliMirror_##t##_C4IR, keliTranspose_##t##_C4R,                  \
                 keliTranspose_##t##_C4IR},                                                                       \
                {4, true, keliMirror_##t##_AC4R, keliMirror_##t##_AC4IR, nullptr, nullptr}};                      \
    }
KELI_MIRROR_MEMBERS(8u)
KELI_MIRROR_MEMBERS(16u)
KELI_MIRROR_MEMBERS(16s)
KELI_MIRROR_MEMBERS(32s)
KELI_MIRROR_MEMBERS(32f)
#undef KELI_MIRROR_MEMBERS

using reference::any_bits;

// The expected destination buffer: the old one with the model written into the region.
// (sx, sy) = source(x, y); AC4 keeps the destination's alpha.
template <class T, class Source>
kit::Image<T> expected_of(const kit::Image<T>& src, const kit::Image<T>& dst, bool alpha, Source&& source)
{
    kit::Image<T> e = dst;
    for (int y = 0; y < dst.height(); ++y)
        for (int x = 0; x < dst.width(); ++x) {
            const auto [sx, sy] = source(x, y);
            for (int c = 0; c < dst.channels() - (alpha ? 1 : 0); ++c) e.at(x, y, c) = src.at(sx, sy, c);
        }
    return e;
}

template <class T> void fill_random(kit::Image<T>& im, kit::Rng& rng)
{
    im.fill([&] { return any_bits<T>(rng); });
}

template <class T> void mirror_sweep(const std::vector<Members<T>>& members)
{
    kit::Rng rng;
    kit::SweepOptions o;
    o.elementBytes = sizeof(T);
    o.negativeSteps = true;
    for (const auto& m : members) {
        o.maxWidth = std::max(40, int(200 / (m.channels * sizeof(T))));
        kit::sweep(o, [&](const kit::Geometry& g) {
            for (int flip = 0; flip < 5; ++flip) {
                SCOPED_TRACE(g.describe() + " channels " + std::to_string(m.channels) + (m.alpha ? " alpha" : "") +
                             " flip " + std::to_string(flip));
                const bool diagonal = flip >= 3;
                // The diagonals read a source as wide as the destination is high, with positive steps.
                kit::Shape srcShape = g.src, dstShape = g.dst;
                if (diagonal) srcShape.flipped = dstShape.flipped = false;
                kit::Image<T> src(diagonal ? g.height : g.width, diagonal ? g.width : g.height, m.channels, srcShape);
                kit::Image<T> dst(g.width, g.height, m.channels, dstShape);
                fill_random(src, rng), fill_random(dst, rng);
                const auto expected = expected_of(src, dst, m.alpha, [&](int x, int y) {
                    return reference::mirror_source(flip, x, y, g.width, g.height);
                });
                const auto srcBefore = src.snapshot();
                ASSERT_EQ(m.mirror(src.data(), src.step(), dst.data(), dst.step(), dst.size(), KeliAxis(flip)),
                          kelStatusOk);
                ASSERT_EQ(src.bytes(), srcBefore) << "source changed";
                ASSERT_EQ(dst.bytes(), expected.bytes()) << "destination differs from the model";
                if (diagonal) continue;
                // In place, and out of place onto itself, equal the out-of-place result.
                for (int viaCopy = 0; viaCopy < 2; ++viaCopy) {
                    kit::Image<T> inplace = src;
                    const auto want = expected_of(src, src, m.alpha, [&](int x, int y) {
                        return reference::mirror_source(flip, x, y, g.width, g.height);
                    });
                    const KelStatus s = viaCopy ? m.mirror(inplace.data(), inplace.step(), inplace.data(),
                                                           inplace.step(), inplace.size(), KeliAxis(flip))
                                                : m.mirrorI(inplace.data(), inplace.step(), inplace.size(), KeliAxis(flip));
                    ASSERT_EQ(s, kelStatusOk);
                    ASSERT_EQ(inplace.bytes(), want.bytes()) << "in place " << viaCopy;
                }
            }
        });
    }
}

TEST(Mirror, EveryMemberEveryAxisMatchesTheModel)
{
    mirror_sweep(members_8u());
    mirror_sweep(members_16u());
    mirror_sweep(members_16s());
    mirror_sweep(members_32s());
    mirror_sweep(members_32f());
}

TEST(Mirror, ThinImagesAndLongRows)
{
    // Width or height 1, and rows long enough to reach the vector bodies from both ends.
    kit::Rng rng;
    for (const auto& m : members_8u())
        for (KeliSize size : {KeliSize{1, 1}, KeliSize{1, 7}, KeliSize{7, 1}, KeliSize{1000, 3}, KeliSize{3, 1000}})
            for (int flip = 0; flip < 3; ++flip) {
                kit::Image<Kel8u> src(size.width, size.height, m.channels), dst(size.width, size.height, m.channels);
                fill_random(src, rng), fill_random(dst, rng);
                auto source = [&](int x, int y) { return reference::mirror_source(flip, x, y, size.width, size.height); };
                const auto expected = expected_of(src, dst, m.alpha, source);
                ASSERT_EQ(m.mirror(src.data(), src.step(), dst.data(), dst.step(), size, KeliAxis(flip)), kelStatusOk);
                ASSERT_EQ(dst.bytes(), expected.bytes()) << size.width << "x" << size.height << " flip " << flip;
                ASSERT_EQ(m.mirrorI(src.data(), src.step(), size, KeliAxis(flip)), kelStatusOk);
                for (int y = 0; y < size.height; ++y)
                    for (int x = 0; x < size.width; ++x)
                        for (int c = 0; c < m.channels - m.alpha; ++c)
                            ASSERT_EQ(src.at(x, y, c), dst.at(x, y, c)) << "in place differs";
            }
}

TEST(Mirror, LargeFlipsPastTheStreamingGates)
{
    // 1,200 x 1,000 pixels of 8u C1 and C4: past both non-temporal gates of the row copy.
    kit::Rng rng;
    for (int f : {0, 2}) {
        const auto m = members_8u()[f];
        kit::Image<Kel8u> src(1200, 1000, m.channels), dst(1200, 1000, m.channels);
        fill_random(src, rng);
        for (int flip = 0; flip < 3; ++flip) {
            const auto expected = expected_of(src, dst, false, [&](int x, int y) {
                return reference::mirror_source(flip, x, y, 1200, 1000);
            });
            ASSERT_EQ(m.mirror(src.data(), src.step(), dst.data(), dst.step(), dst.size(), KeliAxis(flip)), kelStatusOk);
            ASSERT_EQ(dst.bytes(), expected.bytes()) << "channels " << m.channels << " flip " << flip;
        }
    }
}

TEST(Mirror, ChecksInOrderWriteNothing)
{
    kit::Image<Kel16u> src(8, 6, 1), dst(6, 8, 1);
    src.fill([] { return Kel16u(7); });
    const auto before = dst.snapshot();
    const KeliSize ok{6, 8}, bad{0, 8};
    auto mirror = [&](const Kel16u* s, int ss, Kel16u* d, int ds, KeliSize r, int flip) {
        return keliMirror_16u_C1R(s, ss, d, ds, r, KeliAxis(flip));
    };
    const int ss = src.step(), ds = dst.step();
    struct Case {
        const char* what;
        KelStatus got, want;
    } cases[] = {
        {"null source", mirror(nullptr, ss, dst.data(), ds, bad, 9), kelStatusNullPtr},
        {"null destination", mirror(src.data(), ss, nullptr, ds, bad, 9), kelStatusNullPtr},
        {"size before axis", mirror(src.data(), ss, dst.data(), ds, bad, 9), kelStatusBadSize},
        {"axis 5", mirror(src.data(), ss, dst.data(), ds, ok, 5), kelStatusBadAxis},
        {"axis -1 is large unsigned", mirror(src.data(), ss, dst.data(), ds, ok, -1), kelStatusBadAxis},
        {"diagonal odd step", mirror(src.data(), ss + 1, dst.data(), ds, bad, 3), kelStatusBadStep},
        {"diagonal zero step", mirror(src.data(), ss, dst.data(), 0, bad, 4), kelStatusBadStep},
        {"diagonal negative step", mirror(src.data(), -ss, dst.data(), ds, ok, 3), kelStatusBadStep},
        {"diagonal size after steps", mirror(src.data(), ss, dst.data(), ds, bad, 3), kelStatusBadSize},
        {"diagonal overlap", mirror(src.data(), ss, src.data() + 1, ss, KeliSize{3, 3}, 3),
         kelStatusUnsupportedMode},
        {"diagonal overlap, other diagonal", mirror(src.data() + 2 * ss / 2, ss, src.data(), ss, KeliSize{3, 3}, 4),
         kelStatusUnsupportedMode},
        {"onto itself is in place: no diagonal", mirror(dst.data(), ds, dst.data(), ds, ok, 3), kelStatusBadAxis},
        {"onto itself is in place: null", mirror(nullptr, ds, nullptr, ds, ok, 0), kelStatusNullPtr},
        {"in place null", keliMirror_16u_C1IR(nullptr, ds, bad, KeliAxis(7)), kelStatusNullPtr},
        {"in place size", keliMirror_16u_C1IR(dst.data(), ds, bad, KeliAxis(7)), kelStatusBadSize},
        {"in place axis 3", keliMirror_16u_C1IR(dst.data(), ds, ok, kelAxisDiag45), kelStatusBadAxis},
    };
    for (const auto& c : cases) EXPECT_EQ(c.got, c.want) << c.what;
    EXPECT_EQ(dst.bytes(), before) << "a refused call wrote";
    // Steps of the row-order axes are never checked: zero and negative steps run.
    EXPECT_EQ(mirror(src.data(), 0, dst.data(), ds, ok, 1), kelStatusOk);
    EXPECT_EQ(mirror(src.data(), ss, dst.data() + 7 * ds / 2, -ds, ok, 0), kelStatusOk);
}

// A step below the row's length makes the destination's rows overlap: steps are the caller's,
// so such calls run, and must stay within the span the region and step give. Pixels that two
// rows share are swapped through copies (read both, then write), which the sanitizer build
// checks for overlapping copies.
TEST(Mirror, OverlappingRowsStayWithinTheirSpan)
{
    constexpr int P = 12, guard = 64;  // 32s C3 pixels
    auto run = [&](int width, int height, int step, auto&& call) {
        std::vector<Kel8u> buffer(guard + std::size_t(height - 1) * step + width * P + guard, 0xA5);
        Kel8u* first = buffer.data() + guard;
        for (int y = 0; y < height; ++y)
            for (int b = 0; b < width * P; ++b) first[y * step + b] = Kel8u(31 * y + b);
        ASSERT_EQ(call(first), kelStatusOk);
        for (int k = 0; k < guard; ++k) {
            ASSERT_EQ(buffer[k], 0xA5) << "before the span";
            ASSERT_EQ(buffer[buffer.size() - 1 - k], 0xA5) << "after the span";
        }
    };
    std::vector<Kel32s> src(13 * 4 * 3, 5);
    for (int flip = 3; flip <= 4; ++flip)
        run(13, 4, 152, [&](Kel8u* d) {
            return keliMirror_32s_C3R(src.data(), 4 * P, reinterpret_cast<Kel32s*>(d), 152, KeliSize{13, 4}, KeliAxis(flip));
        });
    for (int flip = 0; flip <= 2; ++flip)
        run(13, 4, 152, [&](Kel8u* d) {
            return keliMirror_32s_C3IR(reinterpret_cast<Kel32s*>(d), 152, KeliSize{13, 4}, KeliAxis(flip));
        });
    run(5, 5, 40, [&](Kel8u* d) { return keliTranspose_32s_C3IR(reinterpret_cast<Kel32s*>(d), 40, KeliSize{5, 5}); });
}

template <class T> void transpose_sweep(const std::vector<Members<T>>& members)
{
    kit::Rng rng;
    kit::SweepOptions o;
    o.elementBytes = sizeof(T);
    o.negativeSteps = true;
    for (const auto& m : members) {
        if (!m.transpose) continue;
        o.maxWidth = 40;
        kit::sweep(o, [&](const kit::Geometry& g) {
            for (int tall = 0; tall < 2; ++tall) {
                const int w = g.width, h = tall ? g.width + 17 : g.height;
                SCOPED_TRACE(g.describe() + " height " + std::to_string(h) + " channels " + std::to_string(m.channels));
                kit::Image<T> src(w, h, m.channels, g.src), dst(h, w, m.channels, g.dst);
                fill_random(src, rng), fill_random(dst, rng);
                const auto expected = expected_of(src, dst, false, [](int x, int y) { return std::pair<int, int>{y, x}; });
                ASSERT_EQ(m.transpose(src.data(), src.step(), dst.data(), dst.step(), src.size()), kelStatusOk);
                ASSERT_EQ(dst.bytes(), expected.bytes());
            }
        });
        // Square in place, across the edges of blocks and tiles.
        for (int n = 1; n <= 130; n += (n < 40 ? 1 : 7)) {
            kit::Image<T> im(n, n, m.channels, {n % 3, 16 * (n % 2), n % 4 == 0});
            fill_random(im, rng);
            const auto expected = expected_of(im, im, false, [](int x, int y) { return std::pair<int, int>{y, x}; });
            ASSERT_EQ(m.transposeI(im.data(), im.step(), im.size()), kelStatusOk);
            ASSERT_EQ(im.bytes(), expected.bytes()) << "in place " << n << " channels " << m.channels;
        }
    }
}

TEST(Transpose, EveryMemberMatchesTheModel)
{
    transpose_sweep(members_8u());
    transpose_sweep(members_16u());
    transpose_sweep(members_16s());
    transpose_sweep(members_32s());
    transpose_sweep(members_32f());
}

TEST(Transpose, ComplexElementsAndLargeRegions)
{
    kit::Rng rng;
    for (KeliSize size : {KeliSize{1, 1}, KeliSize{3, 5}, KeliSize{67, 130}, KeliSize{300, 2}}) {
        kit::Image<Kel32f> src(size.width, size.height, 2), dst(size.height, size.width, 2);
        fill_random(src, rng);
        const auto expected = expected_of(src, dst, false, [](int x, int y) { return std::pair<int, int>{y, x}; });
        ASSERT_EQ(keliTranspose_32fc_C1R(reinterpret_cast<const Kel32fc*>(src.data()), src.step(),
                                         reinterpret_cast<Kel32fc*>(dst.data()), dst.step(), size),
                  kelStatusOk);
        ASSERT_EQ(dst.bytes(), expected.bytes()) << size.width << "x" << size.height;
    }
}

// The blocked path with its tile buffer and non-temporal stores against the model, for the
// sizes and alignments it takes (8u and 16u), whatever the machine's cache size makes of an
// exported call.
template <class T> void blocked_equals_general(int width, int height)
{
    kit::Rng rng;
    kit::Image<T> src(width, height, 1), blocked(height, width, 1), general(height, width, 1);
    fill_random(src, rng);
    keli::transpose_blocked(src.data(), src.step(), blocked.data(), blocked.step(), width, height);
    const auto expected = expected_of(src, general, false, [](int x, int y) { return std::pair<int, int>{y, x}; });
    for (int y = 0; y < blocked.height(); ++y)
        for (int x = 0; x < blocked.width(); ++x) ASSERT_EQ(blocked.at(x, y), expected.at(x, y)) << x << "," << y;
}

TEST(Transpose, BlockedPathEqualsTheModel)
{
    blocked_equals_general<Kel8u>(1088, 576);
    blocked_equals_general<Kel16u>(1024 + 64, 640);
    // Sides that whole tiles do not cover, and more than one block each way (destination
    // rows stay on 16 bytes, as the path requires).
    blocked_equals_general<Kel8u>(1100, 592);
    blocked_equals_general<Kel16u>(1090, 648);
    blocked_equals_general<Kel8u>(70, 1040);
    // Through the export: a size that qualifies, checked against the model whichever path ran.
    kit::Rng rng;
    kit::Image<Kel8u> src(1088, 128, 1), dst(128, 1088, 1);
    fill_random(src, rng);
    const auto expected = expected_of(src, dst, false, [](int x, int y) { return std::pair<int, int>{y, x}; });
    ASSERT_EQ(keliTranspose_8u_C1R(src.data(), src.step(), dst.data(), dst.step(), src.size()), kelStatusOk);
    ASSERT_EQ(dst.bytes(), expected.bytes());
}

TEST(Transpose, ChecksInOrderWriteNothing)
{
    kit::Image<Kel8u> src(4, 3, 1), dst(3, 4, 1);
    const auto before = dst.snapshot();
    EXPECT_EQ(keliTranspose_8u_C1R(nullptr, 4, dst.data(), 3, KeliSize{0, 0}), kelStatusNullPtr);
    EXPECT_EQ(keliTranspose_8u_C1R(src.data(), 4, nullptr, 3, KeliSize{0, 0}), kelStatusNullPtr);
    EXPECT_EQ(keliTranspose_8u_C1R(src.data(), 4, dst.data(), 3, KeliSize{4, 0}), kelStatusBadSize);
    EXPECT_EQ(keliTranspose_8u_C1IR(nullptr, 4, KeliSize{0, 0}), kelStatusNullPtr);
    EXPECT_EQ(keliTranspose_8u_C1IR(dst.data(), 4, KeliSize{-1, -1}), kelStatusBadSize);
    EXPECT_EQ(keliTranspose_8u_C1IR(dst.data(), dst.step(), KeliSize{3, 4}), kelStatusBadSize);
    // Onto itself with equal steps is the in-place form: a region that is not square is refused.
    EXPECT_EQ(keliTranspose_8u_C1R(dst.data(), dst.step(), dst.data(), dst.step(), KeliSize{3, 4}), kelStatusBadSize);
    EXPECT_EQ(dst.bytes(), before);
    // One pixel is copied; steps are not looked at.
    src.at(0, 0) = 42;
    EXPECT_EQ(keliTranspose_8u_C1R(src.data(), 0, dst.data(), -5, KeliSize{1, 1}), kelStatusOk);
    EXPECT_EQ(dst.at(0, 0), 42);
}

}  // namespace
