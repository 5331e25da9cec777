// keliWarpAffine Nearest and Linear: every member against the plain model over turns, shears,
// half-pixel shifts, scale-only and whole-pixel matrices, in both directions, with each border,
// whole destinations and tiles (misaligned, padded and bottom-up rows, ROIs past the end, spans
// that cross the kernels' chunks); tiles against whole runs; sizes against the formulas; and
// the checks of the size query, Init and the work functions in order, with nothing written.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "keli.h"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "reference/warp_affine.hpp"

namespace {

template <class T> using WorkFn = KelStatus (*)(const T*, int, T*, int, KeliPoint, KeliSize, const KeliWarpSpec*, Kel8u*);
template <class T>
using WorkFnL = KelStatus (*)(const T*, int64_t, T*, int64_t, KeliPointL, KeliSizeL, const KeliWarpSpec*, Kel8u*);

template <class T> struct Member {
    std::string name;
    int kind, channels;
    WorkFn<T> fn;
    WorkFnL<T> fnL;
};

#define KELI_WARP_MEMBER(K, k, T, L, n) \
    Member<Kel##T>{"keliWarpAffine" #K "_" #T "_" #L "R", k, n, keliWarpAffine##K##_##T##_##L##R, keliWarpAffine##K##_##T##_##L##R_L}
#define KELI_WARP_MEMBERS(T)                                                                                \
    std::vector<Member<Kel##T>>                                                                             \
    {                                                                                                       \
        KELI_WARP_MEMBER(Nearest, 1, T, C1, 1), KELI_WARP_MEMBER(Nearest, 1, T, C3, 3),                     \
            KELI_WARP_MEMBER(Nearest, 1, T, C4, 4), KELI_WARP_MEMBER(Linear, 2, T, C1, 1),                  \
            KELI_WARP_MEMBER(Linear, 2, T, C3, 3), KELI_WARP_MEMBER(Linear, 2, T, C4, 4),                   \
            KELI_WARP_MEMBER(Cubic, 6, T, C1, 1), KELI_WARP_MEMBER(Cubic, 6, T, C3, 3),                     \
            KELI_WARP_MEMBER(Cubic, 6, T, C4, 4),                                                           \
    }

template <class T> std::vector<Member<T>> members();
template <> std::vector<Member<Kel8u>> members() { return KELI_WARP_MEMBERS(8u); }
template <> std::vector<Member<Kel16u>> members() { return KELI_WARP_MEMBERS(16u); }
template <> std::vector<Member<Kel16s>> members() { return KELI_WARP_MEMBERS(16s); }
template <> std::vector<Member<Kel32f>> members() { return KELI_WARP_MEMBERS(32f); }
template <> std::vector<Member<Kel64f>> members() { return KELI_WARP_MEMBERS(64f); }

template <class T> KelDataType type_of();
template <> KelDataType type_of<Kel8u>() { return kel8u; }
template <> KelDataType type_of<Kel16u>() { return kel16u; }
template <> KelDataType type_of<Kel16s>() { return kel16s; }
template <> KelDataType type_of<Kel32f>() { return kel32f; }
template <> KelDataType type_of<Kel64f>() { return kel64f; }

struct Matrix {
    const char* name;
    double m[6];
    int direction;
};

// 30 degrees about the centre of a 23 x 17 source into 31 x 21, forward.
Matrix turn30()
{
    Matrix t{"turn 30", {}, 0};
    double xs, ys;
    keliGetRotateShift(11, 8, 30, &xs, &ys);
    keliGetRotateTransform(30, xs + 4, ys + 2, t.m);
    return t;
}

std::vector<Matrix> matrices()
{
    return {
        turn30(),
        {"turn 90", {0, 1, 2, -1, 0, 20}, 0},
        {"scale 1.5", {1.5, 0, 0.25, 0, 1.5, -0.5}, 0},
        {"mirror scale", {-1.25, 0, 27.5, 0, 0.75, 1}, 0},
        {"half shift", {1, 0, 1.5, 0, 1, 0}, 0},
        {"quarter shifts", {1, 0, -0.25, 0, 1, 0.75}, 1},
        {"whole shift", {1, 0, -3, 0, 1, 2}, 1},
        {"whole shift out", {1, 0, 40, 0, 1, 0}, 0},
        {"shear", {0.9, 0.2, -3, -0.15, 1.1, 2.5}, 1},
        {"shrink", {0.4, 0.05, 3, -0.05, 0.45, 6}, 0},
        {"miss", {1.1, 0, 60, 0, 1, 0}, 0},
    };
}

const std::uint32_t kBorders[] = {kelBorderRepl, kelBorderConst, kelBorderTransp, kelBorderInMem,
                                  kelBorderTransp | kelBorderInMemLeft};

template <class T> T random_element(kit::Rng& rng)
{
    if constexpr (std::is_floating_point_v<T>) return T(rng.below(2001) - 1000) / T(8);
    else return rng.any<T>();
}

struct Roi {
    int x, y, w, h;
};

// One call of a member against the model; returns the library's status.
template <class T>
KelStatus check_one(const Member<T>& mb, const Matrix& mx, std::uint32_t border, int sw, int sh, int dw, int dh,
                    Roi roi, kit::Shape srcShape, kit::Shape dstShape, bool wide, kit::Rng& rng, KelStatus* initStatus,
                    Kel32u smooth = 0)
{
    const int C = mb.channels;
    const double bv[4] = {-7.5, 300.25, 77.5, 1e6};
    int specSize = 0, initSize = 0;
    const KelStatus gs = keliWarpAffineGetSize(KeliSize{sw, sh}, KeliSize{dw, dh}, type_of<T>(), mx.m, mb.kind,
                                               mx.direction, KeliBorderType(border), &specSize, &initSize);
    EXPECT_GE(gs, 0) << mb.name << " " << mx.name;
    std::vector<unsigned char> spec(std::size_t(specSize) + 16, 0xCD);
    auto* sp = reinterpret_cast<KeliWarpSpec*>(spec.data());
    KelStatus is;
    // Cubic with B, C of the family's common kinds, chosen by the matrix's first entry.
    const double B = std::fabs(mx.m[0]) > 1 ? 1.0 / 3 : 0, Cc = std::fabs(mx.m[0]) > 1 ? 1.0 / 3 : 0.5;
    std::vector<Kel8u> initBuf(std::size_t(std::max(initSize, 1)));
    if (mb.kind == kelCubic)
        is = wide ? keliWarpAffineCubicInit_L(KeliSizeL{sw, sh}, KeliSizeL{dw, dh}, type_of<T>(), mx.m, mx.direction, C, B,
                                              Cc, KeliBorderType(border), bv, smooth, sp, initBuf.data())
                  : keliWarpAffineCubicInit(KeliSize{sw, sh}, KeliSize{dw, dh}, type_of<T>(), mx.m, mx.direction, C, B, Cc,
                                            KeliBorderType(border), bv, smooth, sp, initBuf.data());
    else if (wide)
        is = (mb.kind == 1 ? keliWarpAffineNearestInit_L : keliWarpAffineLinearInit_L)(
            KeliSizeL{sw, sh}, KeliSizeL{dw, dh}, type_of<T>(), mx.m, mx.direction, C, KeliBorderType(border), bv, smooth, sp);
    else
        is = (mb.kind == 1 ? keliWarpAffineNearestInit : keliWarpAffineLinearInit)(
            KeliSize{sw, sh}, KeliSize{dw, dh}, type_of<T>(), mx.m, mx.direction, C, KeliBorderType(border), bv, smooth, sp);
    *initStatus = is;
    EXPECT_GE(is, 0) << mb.name << " " << mx.name;
    for (std::size_t i = std::size_t(specSize); i < spec.size(); ++i) EXPECT_EQ(spec[i], 0xCD) << "spec overrun";
    KelSizeL bufSize = 0;
    int bufSize32 = 0;
    if (wide) EXPECT_GE(keliWarpGetBufferSize_L(sp, KeliSizeL{roi.w, roi.h}, &bufSize), 0);
    else EXPECT_GE(keliWarpGetBufferSize(sp, KeliSize{roi.w, roi.h}, &bufSize32), 0), bufSize = bufSize32;
    std::vector<Kel8u> buffer(std::size_t(std::max<KelSizeL>(bufSize, 1)));

    // The source lies inside a frame of two pixels, which the in-memory borders may read.
    kit::Image<T> frame(sw + 4, sh + 4, C, srcShape), dst(dw, dh, C, dstShape);
    frame.fill([&] { return random_element<T>(rng); });
    dst.fill([&] { return random_element<T>(rng); });
    const T* srcData = &frame.at(2, 2);
    const int srcStep = frame.step();
    std::vector<T> want(std::size_t(dw * dh * C));
    for (int y = 0; y < dh; ++y)
        for (int e = 0; e < dw * C; ++e) want[std::size_t(y * dw * C + e)] = dst.at(0, y, e);
    const auto before = dst.snapshot();

    const KelStatus st =
        wide ? mb.fnL(srcData, srcStep, &dst.at(roi.x, roi.y), dst.step(), KeliPointL{roi.x, roi.y},
                      KeliSizeL{roi.w, roi.h}, sp, buffer.data())
             : mb.fn(srcData, srcStep, &dst.at(roi.x, roi.y), dst.step(), KeliPoint{roi.x, roi.y},
                     KeliSize{roi.w, roi.h}, sp, buffer.data());
    if (is == kelStatusNoIntersection) {
        EXPECT_EQ(st, kelStatusNoIntersection) << mb.name << " " << mx.name;
        EXPECT_EQ(kit::first_stray_write(dst, before, [](int, int, int) { return false; }), -1);
        return st;
    }
    const int w = std::min(roi.w, dw - roi.x), h = std::min(roi.h, dh - roi.y);
    reference::WarpCase k{sw, sh, dw, dh, C, mb.kind, border, {}, mx.direction, {bv[0], bv[1], bv[2], bv[3]}};
    std::copy(mx.m, mx.m + 6, k.coeffs);
    k.smooth = smooth != 0;
    k.B = B, k.C = Cc;
    if (st != kelStatusNoIntersection)
        reference::warp_model<T>(k, srcData, srcStep / long(sizeof(T)), want.data() + (roi.y * dw + roi.x) * C, dw * C, roi.x, roi.y, w, h);
    int bad = 0;
    for (int y = 0; y < dh && bad < 5; ++y)
        for (int e = 0; e < dw * C && bad < 5; ++e) {
            const T got = dst.at(0, y, e), exp = want[std::size_t(y * dw * C + e)];
            const bool same = std::memcmp(&got, &exp, sizeof(T)) == 0;
            if (!same) {
                ++bad;
                ADD_FAILURE() << mb.name << (wide ? "_L " : " ") << mx.name << " border " << border << " roi " << roi.x
                              << "," << roi.y << " " << roi.w << "x" << roi.h << ": (" << e / C << ", " << y << ") ch "
                              << e % C << " got " << double(got) << " want " << double(exp);
            }
        }
    EXPECT_EQ(kit::first_stray_write(dst, before,
                                     [&](int x, int y, int) {
                                         return x >= roi.x && x < roi.x + w && y >= roi.y && y < roi.y + h;
                                     }),
              -1)
        << mb.name << " " << mx.name;
    return st;
}

template <class T> void sweep_members()
{
    kit::Rng rng;
    const int sw = 23, sh = 17, dw = 31, dh = 21;
    const Roi rois[] = {{0, 0, dw, dh}, {5, 3, 20, 9}, {29, 19, 5, 4}, {0, 11, 1, 1}, {12, 0, 7, 21}};
    int calls = 0;
    for (const Member<T>& mb : members<T>())
        for (const Matrix& mx : matrices())
            for (std::uint32_t border : kBorders) {
                const Roi roi = rois[calls % 5];
                const kit::Shape srcShape{calls % 3, (calls % 4) * int(sizeof(T)), calls % 5 == 2};
                const kit::Shape dstShape{(calls + 1) % 3, 3 * int(sizeof(T)), calls % 7 == 3};
                KelStatus is;
                const KelStatus st = check_one<T>(mb, mx, border, sw, sh, dw, dh, roi, srcShape, dstShape,
                                                  calls % 2 == 1, rng, &is);
                const bool trimmed = roi.x + roi.w > dw || roi.y + roi.h > dh;
                if (is != kelStatusNoIntersection && st != kelStatusNoIntersection) {
                    EXPECT_EQ(st, trimmed ? kelStatusRoiTrimmed : kelStatusOk) << mb.name << " " << mx.name;
                }
                if (border == kelBorderConst || border == kelBorderRepl) {
                    EXPECT_NE(st, kelStatusNoIntersection) << mb.name << " " << mx.name;
                }
                ++calls;
            }
}

TEST(WarpAffine, Members8uAgainstModel) { sweep_members<Kel8u>(); }
TEST(WarpAffine, Members16uAgainstModel) { sweep_members<Kel16u>(); }
TEST(WarpAffine, Members16sAgainstModel) { sweep_members<Kel16s>(); }
TEST(WarpAffine, Members32fAgainstModel) { sweep_members<Kel32f>(); }
TEST(WarpAffine, Members64fAgainstModel) { sweep_members<Kel64f>(); }

// Spans long enough to cross the kernels' chunks, each ROI width from 1 up to past two chunks.
template <class T> void wide_spans()
{
    kit::Rng rng;
    const Matrix mx{"slow turn", {0.97, 0.12, 1.5, -0.11, 0.98, 3.25}, 1};
    for (const Member<T>& mb : members<T>())
        for (int w = 1; w <= 140; w += (w < 8 ? 1 : 13)) {
            KelStatus is;
            check_one<T>(mb, mx, w % 2 ? kelBorderConst : kelBorderRepl, 150, 12, 150, 10, Roi{w % 5, 1, w, 3},
                         kit::Shape{1, 0, false}, kit::Shape{w % 3, 0, false}, false, rng, &is);
        }
}

// The Cubic scale-only route: its tables serve ROIs that cover at least 32 x 32 of their
// rectangle; smaller ones take the general route.
template <class T> void cubic_tables()
{
    kit::Rng rng;
    const Matrix cases[] = {{"grow", {1.75, 0, 0.3, 0, 2.25, -0.6}, 0}, {"mirror", {-0.8, 0, 33.5, 0, 0.9, 1.25}, 0}};
    for (const Member<T>& mb : members<T>()) {
        if (mb.kind != kelCubic) continue;
        for (const Matrix& mx : cases)
            for (std::uint32_t border : {kelBorderRepl, kelBorderConst, kelBorderTransp, kelBorderInMem})
                for (Roi roi : {Roi{0, 0, 45, 40}, Roi{2, 3, 35, 33}, Roi{5, 5, 20, 30}}) {
                    KelStatus is;
                    check_one<T>(mb, mx, border, 22, 18, 45, 40, roi, kit::Shape{1, 0, false}, kit::Shape{}, roi.x == 2,
                                 rng, &is);
                }
    }
}

TEST(WarpAffine, CubicTables)
{
    cubic_tables<Kel8u>();
    cubic_tables<Kel16u>();
    cubic_tables<Kel32f>();
}

TEST(WarpAffine, SpansAcrossChunks)
{
    wide_spans<Kel8u>();
    wide_spans<Kel16s>();
    wide_spans<Kel32f>();
    wide_spans<Kel64f>();
}

// The whole-pixel route with a constant border: strips of every width beside the copy (none,
// narrower than a vector, wider), on either side, for pixels of 1 to 32 bytes.
template <class T> void whole_shift_strips()
{
    kit::Rng rng;
    int calls = 0;
    for (const Member<T>& mb : members<T>()) {
        if (mb.kind == kelCubic) continue;
        for (double tx : {-21.0, -3.0, -1.0, 0.0, 2.0, 5.0, 17.0})
            for (double ty : {-2.0, 3.0}) {
                const Matrix mx{"whole shift", {1, 0, tx, 0, 1, ty}, calls % 2};
                const Roi roi = calls % 3 ? Roi{calls % 4, 1, 37 - calls % 5, 20} : Roi{0, 0, 40, 24};
                KelStatus is;
                check_one<T>(mb, mx, kelBorderConst, 40, 22, 40, 24, roi, kit::Shape{calls % 3, 0, false},
                             kit::Shape{(calls + 1) % 3, 0, calls % 4 == 1}, false, rng, &is);
                ++calls;
            }
    }
}

TEST(WarpAffine, WholeShiftStrips)
{
    whole_shift_strips<Kel8u>();
    whole_shift_strips<Kel16s>();
    whole_shift_strips<Kel64f>();
}

// A tiled run equals the whole run where the additions are exact (dyadic matrices), on the
// whole-pixel route, and on the scale-only route.
// Smooth edges blend the pixels just outside each edge; only with the transparent borders.
template <class T> void smooth_members()
{
    kit::Rng rng;
    const Matrix turn = turn30();
    const Matrix cases[] = {turn, {"shear", {0.9, 0.2, -3, -0.15, 1.1, 2.5}, 1}, {"scale", {1.25, 0, 3.3, 0, 0.8, 2.6}, 0}};
    for (const Member<T>& mb : members<T>())
        for (const Matrix& mx : cases)
            for (std::uint32_t border : {std::uint32_t(kelBorderTransp), std::uint32_t(kelBorderInMem)})
                for (Roi roi : {Roi{0, 0, 31, 21}, Roi{3, 2, 17, 15}}) {
                    KelStatus is;
                    check_one<T>(mb, mx, border, 23, 17, 31, 21, roi, kit::Shape{}, kit::Shape{1, 0, false},
                                 roi.x == 3, rng, &is, 1);
                }
}

TEST(WarpAffine, SmoothEdges)
{
    smooth_members<Kel8u>();
    smooth_members<Kel16s>();
    smooth_members<Kel32f>();
    smooth_members<Kel64f>();
}

TEST(WarpAffine, TilesEqualTheWholeRun)
{
    const Matrix cases[] = {{"dyadic", {0.5, 0.25, 1.5, -0.25, 0.75, 2}, 1},
                            {"shift", {1, 0, 3, 0, 1, -2}, 0},
                            {"scale", {1.5, 0, 0.3, 0, 0.7, 0.1}, 0}};
    const int sw = 40, sh = 30, dw = 45, dh = 33;
    kit::Rng rng;
    std::vector<Kel16u> src(std::size_t(sw * sh));
    for (auto& v : src) v = rng.any<Kel16u>();
    for (const Matrix& mx : cases)
        for (std::uint32_t border : {kelBorderRepl, kelBorderConst, kelBorderTransp}) {
            int specSize, initSize;
            ASSERT_GE(keliWarpAffineGetSize(KeliSize{sw, sh}, KeliSize{dw, dh}, kel16u, mx.m, kelLinear, mx.direction,
                                            KeliBorderType(border), &specSize, &initSize),
                      0);
            std::vector<unsigned char> spec(static_cast<std::size_t>(specSize));
            auto* sp = reinterpret_cast<KeliWarpSpec*>(spec.data());
            const double bv = 1234;
            ASSERT_GE(keliWarpAffineLinearInit(KeliSize{sw, sh}, KeliSize{dw, dh}, kel16u, mx.m, mx.direction, 1,
                                               KeliBorderType(border), &bv, 0, sp),
                      0);
            std::vector<Kel8u> buffer(4096);
            std::vector<Kel16u> whole(std::size_t(dw * dh), 7), tiled(std::size_t(dw * dh), 7);
            keliWarpAffineLinear_16u_C1R(src.data(), sw * 2, whole.data(), dw * 2, KeliPoint{0, 0}, KeliSize{dw, dh}, sp,
                                         buffer.data());
            for (int ty = 0; ty < dh; ty += 8)
                for (int tx = 0; tx < dw; tx += 13)
                    keliWarpAffineLinear_16u_C1R(src.data(), sw * 2, tiled.data() + ty * dw + tx, dw * 2,
                                                 KeliPoint{tx, ty}, KeliSize{13, 8}, sp, buffer.data());
            EXPECT_EQ(whole, tiled) << mx.name << " border " << border;
        }
}

// Just below a half, 0.49999999999999994 rounds down, though adding 0.5 would give exactly 1;
// the next position, 1.5 after the addition's rounding, is a tie and goes up. Eight columns
// so that the vector path takes them.
TEST(WarpAffine, NearestJustBelowAHalfRoundsDown)
{
    Kel8u src[12];
    for (int i = 0; i < 12; ++i) src[i] = Kel8u(10 * i + 1);
    const double shift[6] = {1, 0, 0.49999999999999994, 0, 1, 0};
    int specSize, initSize;
    ASSERT_EQ(keliWarpAffineGetSize(KeliSize{12, 2}, KeliSize{8, 1}, kel8u, shift, kelNearest, 1, kelBorderTransp,
                                    &specSize, &initSize),
              kelStatusOk);
    std::vector<unsigned char> spec(static_cast<std::size_t>(specSize));
    auto* sp = reinterpret_cast<KeliWarpSpec*>(spec.data());
    Kel8u two[24];
    std::memcpy(two, src, 12), std::memcpy(two + 12, src, 12);
    ASSERT_EQ(keliWarpAffineNearestInit(KeliSize{12, 2}, KeliSize{8, 1}, kel8u, shift, 1, 1, kelBorderTransp, nullptr, 0, sp),
              kelStatusOk);
    Kel8u dst[8], buffer[128];
    ASSERT_EQ(keliWarpAffineNearest_8u_C1R(two, 12, dst, 8, KeliPoint{0, 0}, KeliSize{8, 1}, sp, buffer), kelStatusOk);
    const Kel8u want[8] = {1, 21, 31, 41, 51, 61, 71, 81};
    EXPECT_EQ(0, std::memcmp(dst, want, 8));
}

TEST(WarpAffine, HalfShiftAveragesAndNearestRoundsUp)
{
    const Kel8u src[2 * 4] = {10, 21, 40, 255, 0, 3, 100, 101};
    const double shift[6] = {1, 0, 1.5, 0, 1, 0};  // destination to source: x + 1.5
    int specSize, initSize;
    for (int kind : {kelNearest, kelLinear}) {
        ASSERT_EQ(keliWarpAffineGetSize(KeliSize{4, 2}, KeliSize{4, 2}, kel8u, shift, kind, 1, kelBorderTransp, &specSize,
                                        &initSize),
                  kelStatusOk);
        std::vector<unsigned char> spec(static_cast<std::size_t>(specSize));
        auto* sp = reinterpret_cast<KeliWarpSpec*>(spec.data());
        ASSERT_EQ((kind == kelNearest ? keliWarpAffineNearestInit : keliWarpAffineLinearInit)(
                      KeliSize{4, 2}, KeliSize{4, 2}, kel8u, shift, 1, 1, kelBorderTransp, nullptr, 0, sp),
                  kelStatusOk);
        Kel8u dst[8];
        std::memset(dst, 9, sizeof dst);
        Kel8u buffer[128];
        ASSERT_EQ((kind == kelNearest ? keliWarpAffineNearest_8u_C1R : keliWarpAffineLinear_8u_C1R)(
                      src, 4, dst, 4, KeliPoint{0, 0}, KeliSize{4, 2}, sp, buffer),
                  kelStatusOk);
        // Columns 0 and 1 read 1.5 and 2.5; 2 and 3 lie past the source and keep their bytes.
        const Kel8u nearest[8] = {40, 255, 9, 9, 100, 101, 9, 9};
        const Kel8u linear[8] = {30, 148, 9, 9, 52, 100, 9, 9};  // 30.5, 147.5, 51.5, 100.5: halves to even
        EXPECT_EQ(0, std::memcmp(dst, kind == kelNearest ? nearest : linear, 8)) << kind;
    }
}

TEST(WarpAffine, MissesPerBorder)
{
    const double far[6] = {1, 0, 0.5, 0, 1, 500};  // forward: the image lands far below
    const Kel16s src[4 * 3] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    Kel8u buffer[128];
    for (std::uint32_t border : {kelBorderTransp, kelBorderInMem, kelBorderConst, kelBorderRepl}) {
        int specSize, initSize;
        ASSERT_EQ(keliWarpAffineGetSize(KeliSize{4, 3}, KeliSize{5, 2}, kel16s, far, kelLinear, 0,
                                        KeliBorderType(border), &specSize, &initSize),
                  kelStatusOk);
        std::vector<unsigned char> spec(static_cast<std::size_t>(specSize));
        auto* sp = reinterpret_cast<KeliWarpSpec*>(spec.data());
        const double bv = -3.5;  // to nearest even: -4
        const KelStatus is = keliWarpAffineLinearInit(KeliSize{4, 3}, KeliSize{5, 2}, kel16s, far, 0, 1,
                                                      KeliBorderType(border), &bv, 0, sp);
        Kel16s dst[10];
        std::fill(dst, dst + 10, Kel16s(77));
        const KelStatus st = keliWarpAffineLinear_16s_C1R(src, 8, dst, 10, KeliPoint{0, 0}, KeliSize{5, 2}, sp, buffer);
        if (border == kelBorderConst) {
            EXPECT_EQ(is, kelStatusOk);
            EXPECT_EQ(st, kelStatusOk);
            for (Kel16s v : dst) EXPECT_EQ(v, -4);
        } else if (border == kelBorderRepl) {
            EXPECT_EQ(is, kelStatusOk);
            EXPECT_EQ(st, kelStatusOk);
            // Row 0 maps to source row -500: the top row at x - 0.5, halves to even.
            const Kel16s want[5] = {1, 2, 2, 4, 4};
            for (int x = 0; x < 5; ++x) EXPECT_EQ(dst[x], want[x]) << x;
        } else {
            EXPECT_EQ(is, kelStatusNoIntersection);
            EXPECT_EQ(st, kelStatusNoIntersection);
            for (Kel16s v : dst) EXPECT_EQ(v, 77);
        }
    }
}

// Spec sizes: the fixed 416 of the whole-pixel route, 360 + 8 per row beyond the first, the
// Const band's 24 + 8 per row, and the scale-only tables.
TEST(WarpAffine, SpecSizesFollowTheScanConversion)
{
    const double identity[6] = {1, 0, 0, 0, 1, 0};
    int specSize = 0, initSize = 0;
    ASSERT_EQ(keliWarpAffineGetSize(KeliSize{20, 10}, KeliSize{30, 40}, kel8u, identity, kelLinear, 0, kelBorderRepl,
                                    &specSize, &initSize),
              kelStatusOk);
    EXPECT_EQ(specSize, 416);
    EXPECT_EQ(initSize, 64);
    const double out[6] = {1, 0, 100, 0, 1, 0};
    EXPECT_EQ(keliWarpAffineGetSize(KeliSize{20, 10}, KeliSize{30, 40}, kel8u, out, kelNearest, 0, kelBorderTransp,
                                    &specSize, &initSize),
              kelStatusNoIntersection);
    EXPECT_EQ(specSize, 416);

    const Matrix cases[] = {turn30(), {"shear", {0.9, 0.2, -3, -0.15, 1.1, 2.5}, 1},
                            {"scale", {1.5, 0, 0.25, 0, 1.5, -0.5}, 0}, {"shrink", {0.4, 0.05, 3, -0.05, 0.45, 6}, 0}};
    for (const Matrix& mx : cases)
        for (int kind : {kelNearest, kelLinear})
            for (KelDataType t : {kel8u, kel16u, kel64f})
                for (std::uint32_t border : {kelBorderConst, kelBorderTransp}) {
                    ASSERT_EQ(keliWarpAffineGetSize(KeliSize{23, 17}, KeliSize{31, 21}, t, mx.m, kind, mx.direction,
                                                    KeliBorderType(border), &specSize, &initSize),
                              kelStatusOk);
                    const auto g = reference::warp_geometry(mx.m, mx.direction);
                    const auto core = reference::warp_rows(g.toDest, 0, 0, 22, 16, 31, 21);
                    long want = 360 + 8 * reference::warp_reach(core);
                    if (border == kelBorderConst) {
                        const auto ext = kind == kelNearest ? reference::warp_rows(g.toDest, -0.5, -0.5, 22.5, 16.5, 31, 21)
                                                            : reference::warp_rows(g.toDest, -1, -1, 23, 17, 31, 21);
                        want += 24 + 8 * reference::warp_reach(ext);
                    }
                    if (kind == kelLinear && t == kel16u && g.toDest[1] == 0 && g.toDest[3] == 0) {
                        int first = 99, last = -1, rows = 0;
                        for (const auto& r : core)
                            if (r.first <= r.last) first = std::min(first, r.first), last = std::max(last, r.last), ++rows;
                        const long w = last - first + 1, h = rows;
                        const long s = ((w - 1) / 32 * 32 + 32) + ((h - 1) / 32 * 32 + 32);
                        want += 8 * s + 304;
                    }
                    EXPECT_EQ(specSize, want) << mx.name << " kind " << kind << " type " << t << " border " << border;
                    EXPECT_EQ(initSize, 64);
                }
    // The wide query gives the same numbers.
    KelSizeL specL = 0, initL = 0;
    ASSERT_EQ(keliWarpAffineGetSize_L(KeliSizeL{23, 17}, KeliSizeL{31, 21}, kel8u, cases[0].m, kelLinear, 0,
                                      kelBorderConst, &specL, &initL),
              kelStatusOk);
    ASSERT_EQ(keliWarpAffineGetSize(KeliSize{23, 17}, KeliSize{31, 21}, kel8u, cases[0].m, kelLinear, 0,
                                    kelBorderConst, &specSize, &initSize),
              kelStatusOk);
    EXPECT_EQ(specL, specSize);
    // Cubic sizes: the scale-only tables of the 2/3 threshold.
    const double grow[6] = {2, 0, 0, 0, 2, 0};
    ASSERT_EQ(keliWarpAffineGetSize(KeliSize{10, 10}, KeliSize{100, 100}, kel8u, grow, kelCubic, 0, kelBorderRepl,
                                    &specSize, &initSize),
              kelStatusOk);
    // The interval rectangle (1, 1, 8, 8) maps to columns and rows 2..16: 15 x 15.
    const long s = 32 + 32;
    EXPECT_EQ(specSize, 360 + 8 * 14 + ((16 * 15 + 508) & ~127) + ((16 * 15 + 508) & ~127) + 4 * s + 304);
    EXPECT_EQ(initSize, 4 * s + 64);
}

TEST(WarpAffine, GetSizeChecksInOrder)
{
    const double m[6] = {1, 0.5, 0, 0, 1, 0}, singular[6] = {1, 2, 0, 2, 4, 0};
    int a, b;
    const KeliSize s{10, 10};
    auto q = [&](KeliSize src, KeliSize dst, int type, const double* c, int kind, Kel32u dir, int border, int* pa) {
        return keliWarpAffineGetSize(src, dst, KelDataType(type), c, kind, dir, KeliBorderType(border), pa, &b);
    };
    EXPECT_EQ(q(s, s, 2, singular, 9, 5, 256, nullptr), kelStatusBadBorder);
    EXPECT_EQ(q(s, s, 2, singular, 9, 5, 2, nullptr), kelStatusBadBorder);  // the one border step tests the base too
    EXPECT_EQ(q(s, s, 2, singular, 9, 5, kelBorderRepl, nullptr), kelStatusNullPtr);
    EXPECT_EQ(q(s, s, 2, nullptr, 9, 5, kelBorderRepl, &a), kelStatusNullPtr);
    EXPECT_EQ(q(KeliSize{0, 10}, s, 2, singular, 9, 5, kelBorderRepl, &a), kelStatusBadSize);
    EXPECT_EQ(q(KeliSize{0x2000000, 10}, s, 2, singular, 9, 5, kelBorderRepl, &a), kelStatusSizeOverflow);
    EXPECT_EQ(q(s, s, 2, singular, 9, 5, kelBorderRepl, &a), kelStatusBadDataType);
    EXPECT_EQ(q(s, s, kel8u, singular, 9, 5, kelBorderRepl, &a), kelStatusBadInterpolation);
    EXPECT_EQ(q(s, s, kel8u, singular, kelLinear, 5, kelBorderRepl, &a), kelStatusBadDirection);
    EXPECT_EQ(q(KeliSize{1, 10}, s, kel8u, singular, kelLinear, 1, kelBorderRepl, &a), kelStatusBadCoeffs);
    EXPECT_EQ(q(KeliSize{1, 10}, s, kel8u, m, kelLinear, 1, kelBorderRepl, &a), kelStatusBadSize);
    EXPECT_EQ(q(s, s, kel8u, m, kelLinear, 1, kelBorderInMem | kelBorderTransp, &a), kelStatusOk);
}

TEST(WarpAffine, InitChecksInOrderAndWritesNothing)
{
    const double m[6] = {1, 0.5, 0, 0, 1, 0}, singular[6] = {1, 2, 0, 2, 4, 0};
    const double bv[4] = {0, 0, 0, 0};
    std::vector<unsigned char> spec(4096, 0xEE);
    auto* sp = reinterpret_cast<KeliWarpSpec*>(spec.data());
    const KeliSize s{10, 10};
    auto init = [&](KeliSize src, int type, const double* c, Kel32u dir, int n, int border, const double* v,
                    Kel32u smooth, KeliWarpSpec* p) {
        return keliWarpAffineLinearInit(src, s, KelDataType(type), c, dir, n, KeliBorderType(border), v, smooth, p);
    };
    EXPECT_EQ(init(s, 2, singular, 5, 2, 256, nullptr, 1, nullptr), kelStatusBadBorder);
    EXPECT_EQ(init(s, 2, singular, 5, 2, 2, nullptr, 1, nullptr), kelStatusNullPtr);  // a bad base waits
    EXPECT_EQ(init(s, 2, nullptr, 5, 2, 2, nullptr, 1, sp), kelStatusNullPtr);
    EXPECT_EQ(init(KeliSize{10, -1}, 2, singular, 5, 2, 2, nullptr, 1, sp), kelStatusBadSize);
    EXPECT_EQ(init(s, 2, singular, 5, 2, 2, nullptr, 1, sp), kelStatusBadDataType);
    EXPECT_EQ(init(s, kel16u, singular, 5, 2, 2, nullptr, 1, sp), kelStatusBadDirection);
    EXPECT_EQ(init(s, kel16u, singular, 1, 2, 2, nullptr, 1, sp), kelStatusBadCoeffs);
    EXPECT_EQ(init(s, kel16u, m, 1, 2, 2, nullptr, 1, sp), kelStatusBadBorder);
    EXPECT_EQ(init(s, kel16u, m, 1, 2, kelBorderConst, nullptr, 1, sp), kelStatusNullPtr);
    EXPECT_EQ(init(s, kel16u, m, 1, 2, kelBorderConst, bv, 1, sp), kelStatusBadChannelCount);
    EXPECT_EQ(init(s, kel16u, m, 1, 3, kelBorderConst, bv, 1, sp), kelStatusUnsupportedMode);
    EXPECT_EQ(init(s, kel16u, m, 1, 3, kelBorderRepl, bv, 1, sp), kelStatusUnsupportedMode);
    EXPECT_EQ(init(KeliSize{1, 10}, kel16u, m, 1, 3, kelBorderRepl, bv, 0, sp), kelStatusBadSize);
    EXPECT_EQ(init(KeliSize{0x2000000, 10}, kel16u, m, 1, 3, kelBorderRepl, bv, 0, sp), kelStatusSizeOverflow);
    for (unsigned char c : spec) ASSERT_EQ(c, 0xEE);
    // The inverse of a tiny but regular matrix does not exist: its quadrangle is refused.
    const double tiny[6] = {1e-9, 0, 0, 0, 1e-9, 0};
    EXPECT_EQ(init(s, kel16u, tiny, 1, 3, kelBorderRepl, bv, 0, sp), kelStatusBadCoeffs);
    EXPECT_EQ(init(s, kel16u, m, 1, 3, kelBorderRepl, bv, 0, sp), kelStatusOk);
}

TEST(WarpAffine, WorkChecksInOrderAndWritesNothing)
{
    const double m[6] = {1, 0.5, 0, 0, 1, 0};
    int specSize, initSize;
    ASSERT_EQ(keliWarpAffineGetSize(KeliSize{8, 8}, KeliSize{8, 8}, kel8u, m, kelNearest, 1, kelBorderConst, &specSize,
                                    &initSize),
              kelStatusOk);
    std::vector<unsigned char> spec(static_cast<std::size_t>(specSize));
    auto* sp = reinterpret_cast<KeliWarpSpec*>(spec.data());
    const double bv[3] = {1, 2, 3};
    ASSERT_EQ(keliWarpAffineNearestInit(KeliSize{8, 8}, KeliSize{8, 8}, kel8u, m, 1, 3, kelBorderConst, bv, 0, sp),
              kelStatusOk);
    Kel8u src[8 * 24] = {}, dst[8 * 24];
    std::memset(dst, 0x5A, sizeof dst);
    Kel8u buffer[128];
    auto w = [&](const Kel8u* s, Kel8u* d, KeliPoint o, KeliSize z, const KeliWarpSpec* p, Kel8u* b) {
        return keliWarpAffineNearest_8u_C3R(s, 24, d, 24, o, z, p, b);
    };
    EXPECT_EQ(w(nullptr, dst, {0, 0}, {0, 0}, sp, buffer), kelStatusNullPtr);
    EXPECT_EQ(w(src, dst, {0, 0}, {0, 0}, sp, nullptr), kelStatusNullPtr);
    EXPECT_EQ(w(src, dst, {-1, 0}, {0, 3}, sp, buffer), kelStatusNoOperation);
    EXPECT_EQ(keliWarpAffineNearest_8u_C4R(src, 32, dst, 32, {0, 0}, {-1, 3}, sp, buffer), kelStatusSpecMismatch);
    EXPECT_EQ(keliWarpAffineLinear_8u_C3R(src, 24, dst, 24, {0, 0}, {-1, 3}, sp, buffer), kelStatusSpecMismatch);
    EXPECT_EQ(keliWarpAffineNearest_16u_C3R(reinterpret_cast<Kel16u*>(src), 48, reinterpret_cast<Kel16u*>(dst), 48,
                                            {0, 0}, {-1, 3}, sp, buffer),
              kelStatusSpecMismatch);
    EXPECT_EQ(keliWarpAffineNearest_8u_C3R_L(src, 24, dst, 24, {0, 0}, {-1, 3}, sp, buffer), kelStatusSpecMismatch);
    EXPECT_EQ(w(src, dst, {-1, 0}, {-1, 3}, sp, buffer), kelStatusBadSize);
    EXPECT_EQ(w(src, dst, {-1, 0}, {1, 3}, sp, buffer), kelStatusOutOfRange);
    EXPECT_EQ(w(src, dst, {0, 8}, {1, 3}, sp, buffer), kelStatusOutOfRange);
    for (Kel8u v : dst) ASSERT_EQ(v, 0x5A);
    // Steps are not checked: a negative one walks upward.
    EXPECT_EQ(keliWarpAffineNearest_8u_C3R(src + 7 * 24, -24, dst + 7 * 24, -24, {0, 0}, {8, 8}, sp, buffer),
              kelStatusOk);
    EXPECT_EQ(keliWarpAffineNearest_8u_C3R(src, 24, dst + 7 * 24, -24, {0, 0}, {8, 9}, sp, buffer),
              kelStatusRoiTrimmed);
}

TEST(WarpAffine, BufferSizes)
{
    const double scale[6] = {1.5, 0, 0, 0, 2, 0};
    int specSize, initSize, size = 0;
    ASSERT_EQ(keliWarpAffineGetSize(KeliSize{10, 10}, KeliSize{30, 30}, kel32f, scale, kelLinear, 0, kelBorderRepl,
                                    &specSize, &initSize),
              kelStatusOk);
    std::vector<unsigned char> spec(static_cast<std::size_t>(specSize));
    auto* sp = reinterpret_cast<KeliWarpSpec*>(spec.data());
    ASSERT_EQ(keliWarpAffineLinearInit(KeliSize{10, 10}, KeliSize{30, 30}, kel32f, scale, 0, 3, kelBorderRepl, nullptr,
                                       0, sp),
              kelStatusOk);
    ASSERT_EQ(keliWarpGetBufferSize(sp, KeliSize{21, 5}, &size), kelStatusOk);
    auto a32 = [](int v) { return (v + 31) & ~31; };
    EXPECT_EQ(size, a32(3 * 21 * 4) * 2 + a32(4 * 5) + a32(4 * 21) + 128);
    EXPECT_EQ(keliWarpGetBufferSize(sp, KeliSize{31, 5}, &size), kelStatusRoiTrimmed);
    EXPECT_EQ(keliWarpGetBufferSize(sp, KeliSize{0, 5}, &size), kelStatusNoOperation);
    EXPECT_EQ(keliWarpGetBufferSize(sp, KeliSize{-1, 0}, &size), kelStatusBadSize);
    EXPECT_EQ(keliWarpGetBufferSize(nullptr, KeliSize{1, 1}, &size), kelStatusNullPtr);
    EXPECT_EQ(keliWarpGetBufferSize(sp, KeliSize{1, 1}, nullptr), kelStatusNullPtr);
    KelSizeL sizeL;
    EXPECT_EQ(keliWarpGetBufferSize_L(sp, KeliSizeL{1, 1}, &sizeL), kelStatusSpecMismatch);
    const double turn[6] = {0.8, 0.6, 0, -0.6, 0.8, 0};
    ASSERT_EQ(keliWarpAffineNearestInit_L(KeliSizeL{10, 10}, KeliSizeL{30, 30}, kel32f, turn, 0, 3, kelBorderTransp,
                                          nullptr, 0, sp),
              kelStatusOk);
    EXPECT_EQ(keliWarpGetBufferSize_L(sp, KeliSizeL{1, 1}, &sizeL), kelStatusOk);
    EXPECT_EQ(sizeL, 128);
    EXPECT_EQ(keliWarpGetBufferSize(sp, KeliSize{1, 1}, &size), kelStatusSpecMismatch);
}

}  // namespace
