// keliResizeNearest* and keliResizeLinear*: every path and channel count against the plain
// model over the ratios where the rules bite, with every border word (in-memory sides read a
// margin the model reads too); random tilings against the whole-image call; the plain and wide
// forms against each other; then the size formulas, the queries and every check order with
// nothing written.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "keli.h"
#include "kit/framed.hpp"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "reference/resize.hpp"

namespace {

using ref::resize::Arith;

// A spec and the buffers of one source/destination pair, as a caller sets them up. The blocks
// start off 64-byte alignment so that the alignment of both buffers is exercised.
struct Prepared {
    std::vector<Kel8u> specBlock, bufferBlock;
    KeliResizeSpec* spec() { return reinterpret_cast<KeliResizeSpec*>(specBlock.data() + 5); }
    Kel8u* buffer() { return bufferBlock.data() + 3; }
};

enum class Type { U8Fixed, U8Float, U16, S16, F32, F64 };

template <class T> struct Members {
    using Linear = KelStatus (*)(const T*, int, T*, int, KeliPoint, KeliSize, KeliBorderType, const T*,
                                 const KeliResizeSpec*, Kel8u*);
    using LinearL = KelStatus (*)(const T*, int64_t, T*, int64_t, KeliPointL, KeliSizeL, KeliBorderType, const T*,
                                  const KeliResizeSpec*, Kel8u*);
    using Nearest = KelStatus (*)(const T*, int, T*, int, KeliPoint, KeliSize, const KeliResizeSpec*, Kel8u*);
    using NearestL = KelStatus (*)(const T*, int64_t, T*, int64_t, KeliPointL, KeliSizeL, const KeliResizeSpec*, Kel8u*);
    Linear linear[5];
    LinearL linearL[5];
    Nearest nearest[5];
    NearestL nearestL[5];
};

#define KELI_RESIZE_LINEAR(T)                                                                              \
    {nullptr, keliResizeLinear_##T##_C1R, nullptr, keliResizeLinear_##T##_C3R, keliResizeLinear_##T##_C4R}, \
    {                                                                                                       \
        nullptr, keliResizeLinear_##T##_C1R_L, nullptr, keliResizeLinear_##T##_C3R_L, keliResizeLinear_##T##_C4R_L \
    }
#define KELI_RESIZE_NEAREST(T)                                                                                \
    {nullptr, keliResizeNearest_##T##_C1R, nullptr, keliResizeNearest_##T##_C3R, keliResizeNearest_##T##_C4R}, \
    {                                                                                                          \
        nullptr, keliResizeNearest_##T##_C1R_L, nullptr, keliResizeNearest_##T##_C3R_L,                       \
            keliResizeNearest_##T##_C4R_L                                                                      \
    }

template <class T> Members<T> members();
template <> Members<Kel8u> members() { return {KELI_RESIZE_LINEAR(8u), KELI_RESIZE_NEAREST(8u)}; }
template <> Members<Kel16u> members() { return {KELI_RESIZE_LINEAR(16u), KELI_RESIZE_NEAREST(16u)}; }
template <> Members<Kel16s> members() { return {KELI_RESIZE_LINEAR(16s), KELI_RESIZE_NEAREST(16s)}; }
template <> Members<Kel32f> members() { return {KELI_RESIZE_LINEAR(32f), KELI_RESIZE_NEAREST(32f)}; }
template <> Members<Kel64f> members()
{
    return {{nullptr, keliResizeLinear_64f_C1R, nullptr, keliResizeLinear_64f_C3R, keliResizeLinear_64f_C4R},
            {nullptr, keliResizeLinear_64f_C1R_L, nullptr, keliResizeLinear_64f_C3R_L, keliResizeLinear_64f_C4R_L},
            {},
            {}};
}

// Linear or Nearest spec of a type through the plain Inits (8u in float: switched by SetMode).
Prepared prepare(Type type, bool nearest, KeliSize src, KeliSize dst, int channels, bool wide = false)
{
    Prepared p;
    int specSize = 0, initSize = 0;
    const auto kind = nearest ? kelNearest : kelLinear;
    const KelStatus s = type == Type::F64 ? keliResizeGetSize_64f(src, dst, kind, 0, &specSize, &initSize)
                                          : keliResizeGetSize_8u(src, dst, kind, 0, &specSize, &initSize);
    EXPECT_EQ(s, kelStatusOk);
    p.specBlock.assign(static_cast<std::size_t>(specSize) + 5, 0xCD);
    const KeliSizeL srcL{src.width, src.height}, dstL{dst.width, dst.height};
    KelStatus i = kelStatusOk;
    if (nearest) {
        i = wide ? keliResizeNearestInit_L(srcL, dstL, kel8u, p.spec()) : keliResizeNearestInit_8u(src, dst, p.spec());
    } else if (wide) {
        const KelDataType t = type == Type::U8Fixed ? kel8u
                              : type == Type::F64   ? kel64f
                              : type == Type::S16   ? kel16s
                              : type == Type::U16   ? kel16u
                                                    : kel32f;
        i = type == Type::U8Float ? keliResizeLinearInit_8u_L(srcL, dstL, 2, p.spec()) : keliResizeLinearInit_L(srcL, dstL, t, p.spec());
    } else {
        switch (type) {
        case Type::U8Fixed: i = keliResizeLinearInit_8u(src, dst, p.spec()); break;
        case Type::U8Float:
            i = keliResizeLinearInit_8u(src, dst, p.spec());
            EXPECT_EQ(keliResizeSetMode(2, p.spec()), kelStatusOk);
            break;
        case Type::U16: i = keliResizeLinearInit_16u(src, dst, p.spec()); break;
        case Type::S16: i = keliResizeLinearInit_16s(src, dst, p.spec()); break;
        case Type::F32: i = keliResizeLinearInit_32f(src, dst, p.spec()); break;
        case Type::F64: i = keliResizeLinearInit_64f(src, dst, p.spec()); break;
        }
    }
    EXPECT_EQ(i, kelStatusOk);
    int bufSize = 0;
    KelSizeL bufSizeL = 0;
    const KelStatus b = wide ? keliResizeGetBufferSize_L(p.spec(), dstL, channels, &bufSizeL)
                        : type == Type::F64 ? keliResizeGetBufferSize_64f(p.spec(), dst, channels, &bufSize)
                                            : keliResizeGetBufferSize_8u(p.spec(), dst, channels, &bufSize);
    EXPECT_EQ(b, kelStatusOk);
    if (wide) bufSize = static_cast<int>(bufSizeL);
    p.bufferBlock.assign(static_cast<std::size_t>(bufSize) + 3, 0xEE);
    return p;
}

template <class T> T draw(kit::Rng& rng)
{
    if constexpr (std::is_floating_point_v<T>) {
        // Small integers and halves make ties and exact blends; the rest are arbitrary.
        return rng.below(3) == 0 ? static_cast<T>(rng.below(16)) * T(0.5) : rng.any<T>();
    } else {
        const int pick = rng.below(6);
        if (pick == 0) return std::numeric_limits<T>::max();
        if (pick == 1) return std::numeric_limits<T>::min();
        return rng.any<T>();
    }
}

Arith arith_of(Type t) { return t == Type::U8Fixed ? Arith::Q14 : t == Type::F64 ? Arith::F64 : Arith::F32; }

std::string label(KeliSize s, KeliSize d, int c, std::uint32_t border)
{
    return std::to_string(s.width) + "x" + std::to_string(s.height) + "->" + std::to_string(d.width) + "x" +
           std::to_string(d.height) + " C" + std::to_string(c) + " border " + std::to_string(border);
}

// Ratios that reach every rule: 2:1, 1:2, 3:2, 2:3, 37->111, 41->17, 1:1, 2x2->1x1, source
// length 2, and lengths that leave vector tails.
const KeliSize kPairs[][2] = {
    {{16, 8}, {8, 4}},    {{8, 6}, {16, 12}},  {{21, 9}, {14, 6}},  {{14, 6}, {21, 9}},  {{37, 5}, {111, 7}},
    {{41, 17}, {17, 41}}, {{19, 7}, {19, 7}},  {{2, 2}, {1, 1}},    {{2, 2}, {7, 5}},    {{2, 9}, {35, 3}},
    {{53, 4}, {50, 3}},   {{3, 31}, {38, 2}},  {{38, 6}, {19, 3}},
};
const std::uint32_t kBorders[] = {kelBorderRepl, kelBorderMirror, kelBorderMirrorR, kelBorderInMem,
                                  kelBorderRepl | kelBorderInMemTop | kelBorderInMemRight,
                                  kelBorderMirror | kelBorderInMemLeft | kelBorderInMemBottom,
                                  kelBorderRepl | kelBorderInMem};

// The model reads the framed source anywhere its margin reaches.
template <class T> ref::resize::Source<T> reader(kit::Framed<T>& src)
{
    return [&src](std::int64_t x, std::int64_t y, int k) { return src.at(x, y, k); };
}

template <class T> void check_linear_against_model(Type type)
{
    kit::Rng rng;
    const auto m = members<T>();
    for (const auto& pair : kPairs) {
        const KeliSize s = pair[0], d = pair[1];
        for (int C : {1, 3, 4}) {
            kit::Framed<T> src(s.width, s.height, C, 3, C);
            for (auto& v : src.data) v = draw<T>(rng);
            Prepared p = prepare(type, false, s, d, C);
            for (std::uint32_t border : kBorders) {
                const bool flipped = border == kelBorderRepl;
                kit::Image<T> dst(d.width, d.height, C, {rng.below(4), 2 * C * static_cast<int>(sizeof(T)), flipped});
                const auto before = dst.snapshot();
                const KelStatus st = m.linear[C](src.region(), static_cast<int>(src.step()), dst.data(), dst.step(), {0, 0}, d,
                                                 static_cast<KeliBorderType>(border), nullptr, p.spec(), p.buffer());
                ASSERT_EQ(st, kelStatusOk) << label(s, d, C, border);
                const std::uint32_t folded = (border & 15u) == kelBorderMirrorR ? (border & 0xF0u) | 1u : border;
                const auto want = ref::resize::linear<T>(reader(src), s.width, s.height, d.width, d.height, C, folded, arith_of(type));
                for (int y = 0; y < d.height; ++y)
                    for (int x = 0; x < d.width; ++x)
                        for (int k = 0; k < C; ++k)
                            ASSERT_TRUE(kit::same_bits(dst.at(x, y, k), want[(static_cast<std::size_t>(y) * d.width + x) * C + k]))
                                << label(s, d, C, border) << " at " << x << "," << y << "," << k << ": " << +dst.at(x, y, k)
                                << " want " << +want[(static_cast<std::size_t>(y) * d.width + x) * C + k];
                ASSERT_EQ(kit::first_stray_write(dst, before, kit::any_element), -1) << label(s, d, C, border);
            }
        }
    }
}

TEST(ResizeLinear, Fixed8uMatchesModel) { check_linear_against_model<Kel8u>(Type::U8Fixed); }
TEST(ResizeLinear, Float8uMatchesModel) { check_linear_against_model<Kel8u>(Type::U8Float); }
TEST(ResizeLinear, Unsigned16MatchesModel) { check_linear_against_model<Kel16u>(Type::U16); }
TEST(ResizeLinear, Signed16MatchesModel) { check_linear_against_model<Kel16s>(Type::S16); }
TEST(ResizeLinear, Float32MatchesModel) { check_linear_against_model<Kel32f>(Type::F32); }
TEST(ResizeLinear, Float64MatchesModel) { check_linear_against_model<Kel64f>(Type::F64); }

template <class T> void check_nearest_against_model()
{
    kit::Rng rng;
    const auto m = members<T>();
    for (const auto& pair : kPairs) {
        const KeliSize s = pair[0], d = pair[1];
        for (int C : {1, 3, 4}) {
            kit::Framed<T> src(s.width, s.height, C, 1, 1);
            for (auto& v : src.data) v = draw<T>(rng);
            Prepared p = prepare(Type::F32, true, s, d, C);
            kit::Image<T> dst(d.width, d.height, C, {rng.below(4), C * static_cast<int>(sizeof(T)), rng.below(2) == 1});
            const auto before = dst.snapshot();
            ASSERT_EQ(m.nearest[C](src.region(), static_cast<int>(src.step()), dst.data(), dst.step(), {0, 0}, d, p.spec(), p.buffer()),
                      kelStatusOk);
            const auto want = ref::resize::nearest<T>(reader(src), s.width, s.height, d.width, d.height, C);
            for (int y = 0; y < d.height; ++y)
                for (int x = 0; x < d.width; ++x)
                    for (int k = 0; k < C; ++k)
                        ASSERT_TRUE(kit::same_bits(dst.at(x, y, k), want[(static_cast<std::size_t>(y) * d.width + x) * C + k]))
                            << label(s, d, C, 0) << " at " << x << "," << y;
            ASSERT_EQ(kit::first_stray_write(dst, before, kit::any_element), -1);
        }
    }
}

TEST(ResizeNearest, EveryTypeMatchesModel)
{
    check_nearest_against_model<Kel8u>();
    check_nearest_against_model<Kel16u>();
    check_nearest_against_model<Kel16s>();
    check_nearest_against_model<Kel32f>();
}

// Random tilings (single pixels, tiles overrunning the image, wide members) give the bits of
// the whole-image call for every path and border word.
template <class T> void check_tiling(Type type, bool nearest)
{
    kit::Rng rng;
    const auto m = members<T>();
    const KeliSize pairs[][2] = {{{23, 17}, {51, 38}}, {{51, 38}, {23, 17}}, {{9, 9}, {9, 9}}, {{40, 30}, {20, 15}}};
    for (const auto& pair : pairs) {
        const KeliSize s = pair[0], d = pair[1];
        for (int C : {1, 3}) {
            kit::Framed<T> src(s.width, s.height, C);
            for (auto& v : src.data) v = draw<T>(rng);
            for (std::uint32_t border : nearest ? std::vector<std::uint32_t>{0} : std::vector<std::uint32_t>(std::begin(kBorders), std::end(kBorders))) {
                Prepared whole = prepare(type, nearest, s, d, C);
                const bool wideBorder = nearest || (border & 15u) == kelBorderRepl || border == kelBorderInMem;
                const bool wideForm = wideBorder && rng.below(2) == 1;
                Prepared tiled = prepare(type, nearest, s, d, C, wideForm);
                kit::Image<T> a(d.width, d.height, C), b(d.width, d.height, C);
                const auto call = [&](Prepared& p, kit::Image<T>& dst, int ox, int oy, int tw, int th, bool wide) {
                    KeliPoint so{};
                    KeliPointL soL{};
                    const KelStatus q = wide                ? keliResizeGetSrcOffset_L(p.spec(), {ox, oy}, &soL)
                                        : type == Type::F64 ? keliResizeGetSrcOffset_64f(p.spec(), {ox, oy}, &so)
                                                            : keliResizeGetSrcOffset_8u(p.spec(), {ox, oy}, &so);
                    EXPECT_EQ(q, kelStatusOk);
                    if (wide) so = {static_cast<int>(soL.x), static_cast<int>(soL.y)};
                    const T* sp = &src.at(so.x, so.y, 0);
                    T* dp = &dst.at(ox, oy, 0);
                    if (nearest)
                        return wide ? m.nearestL[C](sp, src.step(), dp, dst.step(), {ox, oy}, {tw, th}, p.spec(), p.buffer())
                                    : m.nearest[C](sp, static_cast<int>(src.step()), dp, dst.step(), {ox, oy}, {tw, th}, p.spec(), p.buffer());
                    const auto bw = static_cast<KeliBorderType>(border);
                    return wide ? m.linearL[C](sp, src.step(), dp, dst.step(), {ox, oy}, {tw, th}, bw, nullptr, p.spec(), p.buffer())
                                : m.linear[C](sp, static_cast<int>(src.step()), dp, dst.step(), {ox, oy}, {tw, th}, bw, nullptr, p.spec(), p.buffer());
                };
                ASSERT_EQ(call(whole, a, 0, 0, d.width, d.height, false), kelStatusOk);
                // Rows of tiles of random heights, each row cut into random widths; some tiles
                // ask for more than is left of the image and are clipped.
                for (int oy = 0; oy < d.height;) {
                    const int th = 1 + rng.below(7);
                    for (int ox = 0; ox < d.width;) {
                        const int tw = 1 + rng.below(9);
                        const int ask = rng.below(4) == 0 ? std::min(tw + 5, d.width) : tw;
                        ASSERT_EQ(call(tiled, b, ox, oy, ask, th, wideForm), kelStatusOk);
                        ox += tw;
                    }
                    oy += th;
                }
                for (int y = 0; y < d.height; ++y)
                    for (int x = 0; x < d.width; ++x)
                        for (int k = 0; k < C; ++k)
                            ASSERT_TRUE(kit::same_bits(a.at(x, y, k), b.at(x, y, k)))
                                << label(s, d, C, border) << " wide " << wideForm << " at " << x << "," << y;
            }
        }
    }
}

TEST(ResizeLinear, TilesEqualWholeImage)
{
    check_tiling<Kel8u>(Type::U8Fixed, false);
    check_tiling<Kel8u>(Type::U8Float, false);
    check_tiling<Kel16u>(Type::U16, false);
    check_tiling<Kel16s>(Type::S16, false);
    check_tiling<Kel32f>(Type::F32, false);
    check_tiling<Kel64f>(Type::F64, false);
}

TEST(ResizeNearest, TilesEqualWholeImage)
{
    check_tiling<Kel8u>(Type::F32, true);
    check_tiling<Kel16s>(Type::F32, true);
    check_tiling<Kel32f>(Type::F32, true);
}

// ---- Where the rules bite ------------------------------------------------------------------------

TEST(ResizeNearest, HalvingTakesEvenPixelsAndDoublingRepeats)
{
    const Kel8u row[8] = {10, 11, 12, 13, 14, 15, 16, 17};
    Prepared p = prepare(Type::F32, true, {8, 1}, {4, 1}, 1);
    Kel8u out[8] = {};
    ASSERT_EQ(keliResizeNearest_8u_C1R(row, 8, out, 8, {0, 0}, {4, 1}, p.spec(), p.buffer()), kelStatusOk);
    EXPECT_EQ(std::vector<Kel8u>(out, out + 4), (std::vector<Kel8u>{10, 12, 14, 16}));
    Prepared q = prepare(Type::F32, true, {4, 1}, {8, 1}, 1);
    ASSERT_EQ(keliResizeNearest_8u_C1R(row, 8, out, 8, {0, 0}, {8, 1}, q.spec(), q.buffer()), kelStatusOk);
    EXPECT_EQ(std::vector<Kel8u>(out, out + 8), (std::vector<Kel8u>{10, 10, 11, 11, 12, 12, 13, 13}));
}

// The table is the double-precision formula as written: from a source length of about 2^21 the
// -1e-10 no longer moves a position that falls on an integer, and 2:1 takes some odd pixels.
TEST(ResizeNearest, LongAxesFollowTheDoubleFormula)
{
    const int src = 1 << 22, dst = 1 << 21;
    std::vector<Kel8u> row(src);
    for (int x = 0; x < src; ++x) row[x] = static_cast<Kel8u>(x & 1);
    Prepared p = prepare(Type::F32, true, {src, 1}, {dst, 1}, 1);
    std::vector<Kel8u> out(dst);
    ASSERT_EQ(keliResizeNearest_8u_C1R(row.data(), src, out.data(), dst, {0, 0}, {dst, 1}, p.spec(), p.buffer()), kelStatusOk);
    const auto want = ref::resize::nearest_axis(src, dst);
    long odd = 0;
    for (int i = 0; i < dst; ++i) {
        ASSERT_EQ(out[i], want[i] & 1) << i;
        odd += out[i];
    }
    EXPECT_GT(odd, 0);
}

TEST(ResizeLinear, EqualSizesReproduceTheSourceAndMirrorRIsRepl)
{
    kit::Rng rng;
    kit::Framed<Kel8u> src(13, 6, 1);
    for (auto& v : src.data) v = rng.any<Kel8u>();
    Prepared p = prepare(Type::U8Fixed, false, {13, 6}, {13, 6}, 1);
    for (std::uint32_t border : {kelBorderRepl, kelBorderMirror, kelBorderMirrorR}) {
        kit::Image<Kel8u> dst(13, 6, 1);
        ASSERT_EQ(keliResizeLinear_8u_C1R(src.region(), static_cast<int>(src.step()), dst.data(), dst.step(), {0, 0}, {13, 6},
                                          static_cast<KeliBorderType>(border), nullptr, p.spec(), p.buffer()),
                  kelStatusOk);
        for (int y = 0; y < 6; ++y)
            for (int x = 0; x < 13; ++x) ASSERT_EQ(dst.at(x, y), src.at(x, y, 0)) << border;
    }
}

// Border strips round (s + 8192 + ((s >> 14) & 1)) >> 14: a fraction of 8191/16384 over an odd
// integer part rounds up. The left strip of a 2 -> 3 column resize blends column 0 of two rows
// by the row's Q14 fraction F; a row step d with d F = 8191 (mod 16384) lands on that fraction.
TEST(ResizeLinear, StripRoundingAddsTheParityBit)
{
    for (int sh = 2; sh < 12; ++sh)
        for (int dh = 2; dh < 64; ++dh) {
            const auto ay = ref::resize::linear_axis(sh, dh);
            for (int y = 0; y < dh; ++y) {
                if (ay.pos[y] < 0 || ay.pos[y] >= sh - 1) continue;
                const std::int64_t F = static_cast<std::int64_t>(ay.f[y] * 16384 + 1e-7);
                for (int d = -255; d <= 255; ++d) {
                    const std::int64_t dF = d * F;
                    if (((dF % 16384) + 16384) % 16384 != 8191) continue;
                    const std::int64_t k = (dF - 8191) / 16384;
                    for (int a = 0; a < 256; ++a) {
                        if (a + d < 0 || a + d > 255 || ((a + k) & 1) == 0) continue;
                        std::vector<Kel8u> src(2 * static_cast<std::size_t>(sh), 0);
                        src[2 * ay.idx[y]] = static_cast<Kel8u>(a);
                        src[2 * (ay.idx[y] + 1)] = static_cast<Kel8u>(a + d);
                        Prepared p = prepare(Type::U8Fixed, false, {2, sh}, {3, dh}, 1);
                        std::vector<Kel8u> out(3 * static_cast<std::size_t>(dh));
                        ASSERT_EQ(keliResizeLinear_8u_C1R(src.data(), 2, out.data(), 3, {0, 0}, {3, dh}, kelBorderRepl, nullptr,
                                                          p.spec(), p.buffer()),
                                  kelStatusOk);
                        EXPECT_EQ(out[3 * y], a + k + 1) << sh << "->" << dh << " row " << y << " a " << a << " d " << d;
                        return;
                    }
                }
            }
        }
    FAIL() << "no row fraction reaches 8191/16384";
}

// ---- Sizes ----------------------------------------------------------------------------------------

TEST(ResizeGetSize, FormulasOfEveryKind)
{
    int spec = 0, init = 0;
    const KeliSize s{100, 50}, d{70, 33};  // a32: 96 and 64 -> S = 160
    ASSERT_EQ(keliResizeGetSize_8u(s, d, kelNearest, 0, &spec, &init), kelStatusOk);
    EXPECT_EQ(spec, 4 * 160 + 400);
    EXPECT_EQ(init, 64);
    ASSERT_EQ(keliResizeGetSize_16s(s, d, kelLinear, 0, &spec, &init), kelStatusOk);
    EXPECT_EQ(spec, 8 * 160 + 400);
    ASSERT_EQ(keliResizeGetSize_64f(s, d, kelLinear, 0, &spec, &init), kelStatusOk);
    EXPECT_EQ(spec, 12 * 160 + 384);
    ASSERT_EQ(keliResizeGetSize_32f(s, d, kelCubic, 0, &spec, &init), kelStatusOk);
    EXPECT_EQ(spec, ((16 * 33 + 508) & ~127) + ((16 * 70 + 508) & ~127) + 4 * 160 + 400);
    EXPECT_EQ(init, 4 * 160 + 64);
    ASSERT_EQ(keliResizeGetSize_32f(s, d, kelLanczos, 0, &spec, &init), kelStatusOk);
    EXPECT_EQ(spec, ((24 * 33 + 764) & ~127) + ((24 * 70 + 764) & ~127) + 4 * 160 + 400);
    // Super 100 -> 70: reduced 10/7, q 1 rem 3 -> P = (1 + 2 + 1) 7 = 28; 50 -> 33: q 1 rem 17 -> Q = 4 * 33.
    ASSERT_EQ(keliResizeGetSize_8u(s, d, kelSuper, 0, &spec, &init), kelStatusOk);
    EXPECT_EQ(spec, ((4 * 132 + 124) & ~127) + ((4 * 28 + 124) & ~127) + 4 * (28 + 132) + 400);
    // Antialiasing Linear: sX = 100/70 -> cols 2 ceil(2.857) = 6; sY = 50/33 -> rows 2 ceil(3.03) = 8.
    ASSERT_EQ(keliResizeGetSize_8u(s, d, kelLinear, 1, &spec, &init), kelStatusOk);
    EXPECT_EQ(spec, 4 * 6 * 70 + 32 - (4 * 6 * 70) % 32 + ((4 * 8 * 33 + 31) & ~31) + 4 * 160 + 400);
    EXPECT_EQ(init, 8 * 160 + 64);
    // Nearest and Super ignore antialiasing with a warning and their plain sizes.
    ASSERT_EQ(keliResizeGetSize_8u(s, d, kelNearest, 1, &spec, &init), kelStatusNoAntialiasing);
    EXPECT_EQ(spec, 4 * 160 + 400);
}

TEST(ResizeGetSize, ChecksInOrder)
{
    const auto kind = [](int k) { return static_cast<KeliInterpolationType>(k); };
    int spec = -1, init = -1;
    const KeliSize ok{8, 8};
    EXPECT_EQ(keliResizeGetSize_8u(ok, ok, kelLinear, 0, nullptr, &init), kelStatusNullPtr);
    EXPECT_EQ(keliResizeGetSize_8u({0, 8}, {-1, 8}, kind(99), 0, &spec, &init), kelStatusNoOperation);
    EXPECT_EQ(keliResizeGetSize_8u({-1, 8}, ok, kind(99), 0, &spec, &init), kelStatusBadSize);
    EXPECT_EQ(keliResizeGetSize_8u(ok, ok, kind(3), 0, &spec, &init), kelStatusBadInterpolation);
    EXPECT_EQ(keliResizeGetSize_8u(ok, ok, kind(0), 0, &spec, &init), kelStatusUnsupportedMode);
    EXPECT_EQ(keliResizeGetSize_64f(ok, ok, kelCubic, 0, &spec, &init), kelStatusUnsupportedMode);
    EXPECT_EQ(keliResizeGetSize_64f(ok, ok, kind(3), 0, &spec, &init), kelStatusBadInterpolation);
    EXPECT_EQ(keliResizeGetSize_8u({1, 8}, ok, kelLinear, 0, &spec, &init), kelStatusBadSize);
    EXPECT_EQ(keliResizeGetSize_8u({3, 8}, ok, kelCubic, 0, &spec, &init), kelStatusBadSize);
    EXPECT_EQ(keliResizeGetSize_8u({7, 8}, ok, kelSuper, 0, &spec, &init), kelStatusBadSize);
    EXPECT_EQ(keliResizeGetSize_8u({4, 4}, {0x7FFFFFF, 0x7FFFFFF}, kelLinear, 0, &spec, &init), kelStatusSizeOverflow);
    EXPECT_EQ(spec, -1);
    EXPECT_EQ(init, -1);

    KelSizeL specL = -1, initL = -1;
    const KeliSizeL okL{8, 8};
    EXPECT_EQ(keliResizeGetSize_L(okL, okL, kel8s, kind(3), 0, &specL, &initL), kelStatusBadInterpolation);
    EXPECT_EQ(keliResizeGetSize_L(okL, okL, kel8s, kelLinear, 0, &specL, &initL), kelStatusBadDataType);
    EXPECT_EQ(keliResizeGetSize_L(okL, okL, kel64f, kelNearest, 0, &specL, &initL), kelStatusBadDataType);
    EXPECT_EQ(keliResizeGetSize_L(okL, okL, kel64f, kelLinear, 1, &specL, &initL), kelStatusUnsupportedMode);
    EXPECT_EQ(keliResizeGetSize_L(okL, {0x2000000, 8}, kel8u, kelLinear, 0, &specL, &initL), kelStatusSizeOverflow);
    EXPECT_EQ(specL, -1);
    ASSERT_EQ(keliResizeGetSize_L(okL, {0x1FFFFFF, 0x1FFFFFF}, kel64f, kelLinear, 0, &specL, &initL), kelStatusOk);
    EXPECT_EQ(specL, 12 * 2 * std::int64_t{0x2000000} + 384);
}

TEST(ResizeQueries, BufferBorderOffsetAndRoi)
{
    Prepared p = prepare(Type::U8Fixed, false, {10, 10}, {25, 20}, 3);
    int size = 0;
    // w = 25, h = 20: A = a32(80) + a32(100) = 96 + 128; two rows of a32(4 * 3 * 25) = 320.
    ASSERT_EQ(keliResizeGetBufferSize_8u(p.spec(), {25, 20}, 3, &size), kelStatusOk);
    EXPECT_EQ(size, 96 + 128 + 2 * 320 + 64);
    EXPECT_EQ(keliResizeGetBufferSize_8u(p.spec(), {26, 20}, 3, &size), kelStatusRoiTrimmed);
    EXPECT_EQ(size, 96 + 128 + 2 * 320 + 64);
    EXPECT_EQ(keliResizeGetBufferSize_8u(p.spec(), {5, 0}, 2, &size), kelStatusNoOperation);
    EXPECT_EQ(keliResizeGetBufferSize_8u(p.spec(), {5, 5}, 2, &size), kelStatusBadChannelCount);
    EXPECT_EQ(keliResizeGetBufferSize_8u(p.spec(), {-5, 5}, 2, &size), kelStatusBadChannelCount);
    EXPECT_EQ(keliResizeGetBufferSize_8u(p.spec(), {-5, 5}, 1, &size), kelStatusBadSize);
    EXPECT_EQ(keliResizeGetBufferSize_64f(p.spec(), {5, 5}, 1, &size), kelStatusSpecMismatch);
    EXPECT_EQ(keliResizeGetBufferSize_L(p.spec(), {5, 5}, 1, nullptr), kelStatusNullPtr);

    KeliBorderSize b{};
    ASSERT_EQ(keliResizeGetBorderSize_16u(p.spec(), &b), kelStatusOk);
    EXPECT_EQ(b.borderTop + b.borderLeft + b.borderBottom + b.borderRight, 4);
    EXPECT_EQ(keliResizeGetBorderSize_L(p.spec(), &b), kelStatusSpecMismatch);

    // 10 -> 25: reduced 2/5; offset floor(7 * 2 / 5) = 2.
    KeliPoint so{};
    KeliSize ss{};
    ASSERT_EQ(keliResizeGetSrcOffset_8u(p.spec(), {7, 12}, &so), kelStatusOk);
    EXPECT_EQ(so.x, 2);
    EXPECT_EQ(so.y, 6);
    EXPECT_EQ(keliResizeGetSrcOffset_8u(p.spec(), {25, 0}, &so), kelStatusOutOfRange);
    EXPECT_EQ(keliResizeGetSrcOffset_8u(p.spec(), {0, -1}, &so), kelStatusOutOfRange);
    // Tile 7..11: last position (11 + 0.5) 0.4 - 0.5 = 4.1 -> index 4: width 4 - 2 + 1 = 3.
    ASSERT_EQ(keliResizeGetSrcRoi_8u(p.spec(), {7, 12}, {5, 8}, &so, &ss), kelStatusOk);
    EXPECT_EQ(ss.width, 3);
    EXPECT_EQ(ss.height, 10 - 6);  // the tile reaches the bottom edge
    EXPECT_EQ(keliResizeGetSrcRoi_8u(p.spec(), {7, 12}, {5, 0}, &so, &ss), kelStatusBadSize);
    EXPECT_EQ(keliResizeGetSrcRoi_8u(p.spec(), {0, 0}, {26, 1}, &so, &ss), kelStatusRoiTrimmed);
    EXPECT_EQ(ss.width, 10);
}

// ---- Init and mode ------------------------------------------------------------------------------

TEST(ResizeInit, ChecksInOrder)
{
    std::vector<Kel8u> block(4096, 0x77);
    auto* spec = reinterpret_cast<KeliResizeSpec*>(block.data());
    const auto untouched = [&] { return std::all_of(block.begin(), block.end(), [](Kel8u v) { return v == 0x77; }); };
    EXPECT_EQ(keliResizeLinearInit_8u({8, 8}, {8, 8}, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliResizeLinearInit_8u({0, 8}, {-1, 8}, spec), kelStatusNoOperation);
    EXPECT_EQ(keliResizeLinearInit_16u({-1, 8}, {8, 8}, spec), kelStatusBadSize);
    EXPECT_EQ(keliResizeLinearInit_32f({8, 1}, {8, 8}, spec), kelStatusBadSize);
    EXPECT_EQ(keliResizeLinearInit_L({1, 8}, {8, 8}, kel8s, spec), kelStatusBadSize);  // before the type
    EXPECT_EQ(keliResizeLinearInit_L({8, 8}, {8, 8}, kel8s, spec), kelStatusBadDataType);
    EXPECT_EQ(keliResizeNearestInit_L({8, 8}, {8, 8}, kel64f, spec), kelStatusBadDataType);
    EXPECT_EQ(keliResizeNearestInit_L({8, 8}, {0x2000000, 8}, kel8u, spec), kelStatusSizeOverflow);
    EXPECT_EQ(keliResizeLinearInit_8u_L({8, 8}, {8, 0x2000000}, 1, spec), kelStatusSizeOverflow);
    EXPECT_TRUE(untouched());
    EXPECT_EQ(keliResizeNearestInit_16s({1, 1}, {8, 8}, spec), kelStatusOk);  // Nearest takes one pixel
}

TEST(ResizeInit, SetModeSwitchesTheEightBitArithmetic)
{
    kit::Rng rng;
    kit::Framed<Kel8u> src(9, 7, 1);
    for (auto& v : src.data) v = rng.any<Kel8u>();
    Prepared p = prepare(Type::U8Fixed, false, {9, 7}, {20, 13}, 1);
    Kel8u fixedOut[20 * 13], floatOut[20 * 13], again[20 * 13];
    const auto run = [&](Kel8u* out) {
        return keliResizeLinear_8u_C1R(src.region(), static_cast<int>(src.step()), out, 20, {0, 0}, {20, 13}, kelBorderRepl,
                                       nullptr, p.spec(), p.buffer());
    };
    ASSERT_EQ(run(fixedOut), kelStatusOk);
    EXPECT_EQ(keliResizeSetMode(3, nullptr), kelStatusUnsupportedMode);
    EXPECT_EQ(keliResizeSetMode(2, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliResizeSetMode(1, p.spec()), kelStatusOk);  // already fixed: nothing happens
    ASSERT_EQ(keliResizeSetMode(2, p.spec()), kelStatusOk);
    ASSERT_EQ(run(floatOut), kelStatusOk);
    const auto model = ref::resize::linear<Kel8u>(reader(src), 9, 7, 20, 13, 1, kelBorderRepl, Arith::F32);
    EXPECT_TRUE(std::equal(floatOut, floatOut + 20 * 13, model.begin()));
    // The two arithmetics differ by rounding only.
    for (int i = 0; i < 20 * 13; ++i) EXPECT_LE(std::abs(fixedOut[i] - floatOut[i]), 1);
    ASSERT_EQ(keliResizeSetMode(1, p.spec()), kelStatusOk);
    ASSERT_EQ(run(again), kelStatusOk);
    EXPECT_TRUE(std::equal(fixedOut, fixedOut + 20 * 13, again));

    // Fixed point needs a spec made for 8u; a 16u spec stays in float.
    Prepared q = prepare(Type::U16, false, {9, 7}, {20, 13}, 1);
    EXPECT_EQ(keliResizeSetMode(1, q.spec()), kelStatusUnsupportedMode);
    Prepared n = prepare(Type::F32, true, {9, 7}, {20, 13}, 1);
    EXPECT_EQ(keliResizeSetMode(1, n.spec()), kelStatusUnsupportedMode);
}

// ---- Work checks -----------------------------------------------------------------------------------

TEST(ResizeLinear, ChecksInOrderWriteNothing)
{
    Prepared p = prepare(Type::U16, false, {8, 8}, {12, 12}, 1);
    Prepared fixed8 = prepare(Type::U8Fixed, false, {8, 8}, {12, 12}, 1);
    Prepared near = prepare(Type::F32, true, {8, 8}, {12, 12}, 1);
    Prepared wide = prepare(Type::U16, false, {8, 8}, {12, 12}, 1, true);
    std::vector<Kel16u> src(16 * 16, 7), dst(12 * 12, 0x5A5A);
    const auto call = [&](KeliBorderType border, const Kel16u* s, int ss, int ds, KeliPoint o, KeliSize z, Prepared& sp,
                          Kel8u* buffer) {
        return keliResizeLinear_16u_C1R(s, ss, dst.data(), ds, o, z, border, nullptr, sp.spec(), buffer);
    };
    const Kel16u* s = src.data() + 17;
    Kel8u* buf = p.buffer();
    EXPECT_EQ(call(kelBorderConst, nullptr, 1, 1, {-1, -1}, {0, 0}, p, nullptr), kelStatusBadBorder);
    EXPECT_EQ(call(static_cast<KeliBorderType>(0x10), s, 32, 24, {0, 0}, {12, 12}, p, buf), kelStatusBadBorder);
    EXPECT_EQ(call(static_cast<KeliBorderType>(0x1F1), s, 32, 24, {0, 0}, {12, 12}, p, buf), kelStatusBadBorder);
    EXPECT_EQ(call(kelBorderRepl, nullptr, 1, 1, {-1, -1}, {0, 0}, p, buf), kelStatusNullPtr);
    EXPECT_EQ(call(kelBorderRepl, s, 1, 1, {-1, -1}, {0, -3}, wide, buf), kelStatusNoOperation);
    EXPECT_EQ(call(kelBorderRepl, s, 1, 1, {-1, -1}, {-3, 4}, wide, buf), kelStatusSpecMismatch);
    EXPECT_EQ(call(kelBorderRepl, s, 1, 1, {-1, -1}, {-3, 4}, p, buf), kelStatusBadSize);
    EXPECT_EQ(call(kelBorderRepl, s, 33, 24, {-1, -1}, {12, 12}, p, buf), kelStatusBadStep);
    EXPECT_EQ(call(kelBorderRepl, s, 32, 24, {12, 0}, {12, 12}, p, buf), kelStatusOutOfRange);
    EXPECT_EQ(call(kelBorderRepl, s, 32, 24, {0, 0}, {12, 12}, near, buf), kelStatusSpecMismatch);
    // A spec made for 8u in fixed point passes the identifier test but has no f32 tables.
    EXPECT_EQ(call(kelBorderRepl, s, 32, 24, {0, 0}, {12, 12}, fixed8, buf), kelStatusSpecMismatch);
    EXPECT_TRUE(std::all_of(dst.begin(), dst.end(), [](Kel16u v) { return v == 0x5A5A; }));
    // Wide members refuse the mirror words; negative steps run.
    EXPECT_EQ(keliResizeLinear_16u_C1R_L(s, 32, dst.data(), 24, {0, 0}, {12, 12}, kelBorderMirror, nullptr, wide.spec(), buf),
              kelStatusBadBorder);
    EXPECT_EQ(keliResizeLinear_16u_C1R_L(s, 32, dst.data(), 24, {0, 0}, {12, 12}, kelBorderRepl, nullptr, p.spec(), buf),
              kelStatusSpecMismatch);
    EXPECT_EQ(keliResizeLinear_64f_C1R(reinterpret_cast<const Kel64f*>(s), 64, reinterpret_cast<Kel64f*>(dst.data()), 96,
                                       {0, 0}, {3, 3}, kelBorderRepl, nullptr, p.spec(), buf),
              kelStatusSpecMismatch);
    EXPECT_TRUE(std::all_of(dst.begin(), dst.end(), [](Kel16u v) { return v == 0x5A5A; }));
    EXPECT_EQ(call(kelBorderRepl, s + 16 * 7, -32, 24, {0, 0}, {12, 12}, p, buf), kelStatusOk);
    EXPECT_EQ(call(kelBorderRepl, s, 32, 24, {0, 0}, {13, 12}, p, buf), kelStatusRoiTrimmed);
    EXPECT_EQ(call(kelBorderRepl, s, 32, 24, {3, 0}, {12, 12}, p, buf), kelStatusOk);  // only overruns: clipped
}

TEST(ResizeNearest, ChecksInOrderWriteNothing)
{
    Prepared p = prepare(Type::F32, true, {8, 8}, {4, 4}, 1);
    Prepared lin = prepare(Type::F32, false, {8, 8}, {4, 4}, 1);
    std::vector<Kel32f> src(64, 1.0f), dst(16, -3.0f);
    const Kel32f* s = src.data();
    Kel32f* d = dst.data();
    EXPECT_EQ(keliResizeNearest_32f_C1R(s, 32, d, 16, {0, 0}, {4, 4}, p.spec(), nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliResizeNearest_32f_C1R(s, 32, d, 16, {0, 0}, {0, 4}, lin.spec(), p.buffer()), kelStatusNoOperation);
    EXPECT_EQ(keliResizeNearest_32f_C1R_L(s, 32, d, 16, {0, 0}, {4, 4}, p.spec(), p.buffer()), kelStatusSpecMismatch);
    EXPECT_EQ(keliResizeNearest_32f_C1R(s, 30, d, 16, {0, 0}, {4, 4}, p.spec(), p.buffer()), kelStatusBadStep);
    EXPECT_EQ(keliResizeNearest_32f_C1R(s, 32, d, 16, {0, 4}, {4, 4}, p.spec(), p.buffer()), kelStatusOutOfRange);
    EXPECT_EQ(keliResizeNearest_32f_C1R(s, 32, d, 16, {0, 0}, {4, 4}, lin.spec(), p.buffer()), kelStatusSpecMismatch);
    EXPECT_TRUE(std::all_of(dst.begin(), dst.end(), [](Kel32f v) { return v == -3.0f; }));
}

}  // namespace
