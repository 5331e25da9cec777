// The affine helpers: rotation matrices and shifts at the exact right angles and elsewhere, the
// rectangle <-> quadrangle <-> matrix round trips, the source window of a destination ROI, and
// every check in its order with the outputs left alone on errors.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "keli.h"

namespace {

const double kIdentity[6] = {1, 0, 0, 0, 1, 0};

TEST(WarpAffineHelpers, RotateTransformRightAnglesAreExact)
{
    struct Case { double angle, c, s; };
    const Case cases[] = {{0, 1, 0}, {90, 0, 1}, {180, -1, 0}, {270, 0, -1}, {360, 1, 0}, {-90, 0, -1},
                          {450, 0, 1}, {-720, 1, 0}, {-270, 0, 1}};
    for (const Case& k : cases) {
        double m[6];
        ASSERT_EQ(keliGetRotateTransform(k.angle, 2.5, -3, m), kelStatusOk) << k.angle;
        const double want[6] = {k.c, k.s, 2.5, -k.s, k.c, -3};
        for (int i = 0; i < 6; ++i) EXPECT_EQ(m[i], want[i] == 0 ? 0.0 : want[i]) << k.angle << " " << i;
    }
}

TEST(WarpAffineHelpers, RotateTransformOtherAnglesUseSineAndCosine)
{
    for (double angle : {30.0, 45.0, -30.0, 389.5, 1e6 + 0.25}) {
        double m[6];
        ASSERT_EQ(keliGetRotateTransform_L(angle, 0, 0, m), kelStatusOk);
        double a = angle - std::trunc(angle / 360) * 360;
        if (a < 0) a += 360;
        const double r = a * M_PI / 180;
        EXPECT_NEAR(m[0], std::cos(r), 4e-16) << angle;
        EXPECT_NEAR(m[1], std::sin(r), 4e-16) << angle;
        EXPECT_EQ(m[3], -m[1]);
        EXPECT_EQ(m[4], m[0]);
    }
}

TEST(WarpAffineHelpers, RotateTransformChecksTheAngleBeforeThePointer)
{
    double m[6] = {7, 7, 7, 7, 7, 7};
    EXPECT_EQ(keliGetRotateTransform(std::numeric_limits<double>::infinity(), 0, 0, nullptr), kelStatusOutOfRange);
    EXPECT_EQ(keliGetRotateTransform(std::nan(""), 0, 0, m), kelStatusOutOfRange);
    EXPECT_EQ(m[0], 7);
    EXPECT_EQ(keliGetRotateTransform(10, 0, 0, nullptr), kelStatusNullPtr);
}

TEST(WarpAffineHelpers, RotateShiftKeepsTheCentreInPlace)
{
    const double xc = 37.5, yc = -12.25;
    for (double angle : {0.0, 90.0, 180.0, 270.0, 30.0, 123.0, -45.0}) {
        double xs, ys, m[6];
        ASSERT_EQ(keliGetRotateShift(xc, yc, angle, &xs, &ys), kelStatusOk);
        ASSERT_EQ(keliGetRotateTransform(angle, xs, ys, m), kelStatusOk);
        EXPECT_NEAR(m[0] * xc + m[1] * yc + m[2], xc, 1e-12) << angle;
        EXPECT_NEAR(m[3] * xc + m[4] * yc + m[5], yc, 1e-12) << angle;
    }
    double xs, ys;
    ASSERT_EQ(keliGetRotateShift_L(3, 5, 90, &xs, &ys), kelStatusOk);
    EXPECT_EQ(xs, -2);
    EXPECT_EQ(ys, 8);
    EXPECT_EQ(keliGetRotateShift(1, 1, std::numeric_limits<double>::infinity(), &xs, &ys), kelStatusOk);  // no finiteness test
    EXPECT_EQ(keliGetRotateShift(1, 1, 0, nullptr, &ys), kelStatusNullPtr);
    EXPECT_EQ(keliGetRotateShift(1, 1, 0, &xs, nullptr), kelStatusNullPtr);
}

TEST(WarpAffineHelpers, QuadTransformAndBoundRoundTrip)
{
    const double m[6] = {0.75, -0.5, 10, 0.25, 1.5, -4};
    const KeliRect r{3, 5, 9, 17};
    double q[8], back[6], b[4];
    ASSERT_EQ(keliGetAffineQuad(r, q, m), kelStatusOk);
    const double corners[4][2] = {{3, 5}, {11, 5}, {11, 21}, {3, 21}};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(q[2 * i], m[0] * corners[i][0] + m[1] * corners[i][1] + m[2]);
        EXPECT_EQ(q[2 * i + 1], m[3] * corners[i][0] + m[4] * corners[i][1] + m[5]);
    }
    ASSERT_EQ(keliGetAffineTransform(r, q, back), kelStatusOk);
    for (int i = 0; i < 6; ++i) EXPECT_NEAR(back[i], m[i], 1e-13) << i;
    ASSERT_EQ(keliGetAffineBound(r, b, m), kelStatusOk);
    EXPECT_EQ(b[0], std::fmin(std::fmin(q[0], q[2]), std::fmin(q[4], q[6])));
    EXPECT_EQ(b[3], std::fmax(std::fmax(q[1], q[3]), std::fmax(q[5], q[7])));

    const KeliRectL rl{3, 5, 9, 17};
    double ql[8], bl[4], backl[6];
    ASSERT_EQ(keliGetAffineQuad_L(rl, ql, m), kelStatusOk);
    ASSERT_EQ(keliGetAffineBound_L(rl, bl, m), kelStatusOk);
    ASSERT_EQ(keliGetAffineTransform_L(rl, ql, backl), kelStatusOk);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(ql[i], q[i]);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(bl[i], b[i]);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(backl[i], back[i]);
}

TEST(WarpAffineHelpers, QuadOfASingularMatrixIsWrittenAndRefused)
{
    const double flat[6] = {1, 2, 0, 2, 4, 0};  // every point onto one line
    double q[8] = {}, b[4] = {};
    EXPECT_EQ(keliGetAffineQuad(KeliRect{0, 0, 4, 4}, q, flat), kelStatusBadCoeffs);
    EXPECT_EQ(q[4], 3 + 2 * 3);
    EXPECT_EQ(keliGetAffineBound(KeliRect{0, 0, 4, 4}, b, flat), kelStatusBadCoeffs);
    EXPECT_EQ(b[2], 9);
    EXPECT_EQ(b[3], 18);
    EXPECT_EQ(keliGetAffineQuad(KeliRect{0, 0, 1, 4}, q, kIdentity), kelStatusBadCoeffs);  // one column: no area
    EXPECT_EQ(keliGetAffineQuad(KeliRect{0, 0, 4, 4}, nullptr, kIdentity), kelStatusNullPtr);
    EXPECT_EQ(keliGetAffineBound(KeliRect{0, 0, 4, 4}, b, nullptr), kelStatusNullPtr);
}

TEST(WarpAffineHelpers, TransformChecksInOrder)
{
    double q[8] = {0, 0, 10, 0, 10, 10, 0, 10}, m[6] = {9, 9, 9, 9, 9, 9};
    EXPECT_EQ(keliGetAffineTransform(KeliRect{0, 0, 11, 11}, nullptr, m), kelStatusNullPtr);
    EXPECT_EQ(keliGetAffineTransform(KeliRect{0, 0, 11, 11}, q, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliGetAffineTransform(KeliRect{-1, 0, 11, 11}, q, m), kelStatusBadSize);
    EXPECT_EQ(keliGetAffineTransform(KeliRect{0, 0, 0, 11}, q, m), kelStatusBadSize);
    double concave[8] = {0, 0, 10, 0, 2, 2, 0, 10};
    EXPECT_EQ(keliGetAffineTransform(KeliRect{0, 0, 1, 11}, concave, m), kelStatusBadQuad);  // the quad before the width
    double line[8] = {0, 0, 10, 0, 20, 0, 0, 10};
    EXPECT_EQ(keliGetAffineTransform(KeliRect{0, 0, 11, 11}, line, m), kelStatusBadQuad);
    EXPECT_EQ(keliGetAffineTransform(KeliRect{0, 0, 1, 11}, q, m), kelStatusRectTooSmall);
    EXPECT_EQ(keliGetAffineTransform(KeliRect{0, 0, 11, 1}, q, m), kelStatusRectTooSmall);
    EXPECT_EQ(m[0], 9);  // errors write nothing

    double trapezoid[8] = {0, 0, 10, 0, 8, 10, 2, 10};
    EXPECT_EQ(keliGetAffineTransform(KeliRect{0, 0, 11, 11}, trapezoid, m), kelStatusNotParallelogram);
    EXPECT_EQ(m[0], 1);  // the warning comes with the matrix of the first three corners
    EXPECT_EQ(m[1], -0.2);
    EXPECT_EQ(m[4], 1);
    // Clockwise or counter-clockwise both pass.
    double mirrored[8] = {0, 10, 10, 10, 10, 0, 0, 0};
    EXPECT_EQ(keliGetAffineTransform(KeliRect{0, 0, 11, 11}, mirrored, m), kelStatusOk);
    EXPECT_EQ(m[4], -1);
    EXPECT_EQ(m[5], 10);
}

TEST(WarpAffineHelpers, SrcRoiOfShiftsScalesAndTurns)
{
    KeliRect r;
    // Identity: one pixel of margin each side, held inside the image.
    ASSERT_EQ(keliGetAffineSrcRoi(KeliSize{100, 80}, kIdentity, 1, KeliPoint{10, 20}, KeliSize{30, 40}, &r), kelStatusOk);
    EXPECT_EQ(r.x, 9);
    EXPECT_EQ(r.y, 19);
    EXPECT_EQ(r.width, 32);
    EXPECT_EQ(r.height, 42);
    ASSERT_EQ(keliGetAffineSrcRoi(KeliSize{100, 80}, kIdentity, 0, KeliPoint{0, 0}, KeliSize{100, 80}, &r), kelStatusOk);
    EXPECT_EQ(r.x, 0);
    EXPECT_EQ(r.width, 100);
    EXPECT_EQ(r.height, 80);
    // Forward halving: destination (0..9) reads source 0..18.
    const double half[6] = {0.5, 0, 0, 0, 0.5, 0};
    ASSERT_EQ(keliGetAffineSrcRoi(KeliSize{100, 100}, half, 0, KeliPoint{0, 0}, KeliSize{10, 10}, &r), kelStatusOk);
    EXPECT_EQ(r.x, 0);
    EXPECT_EQ(r.width, 20);
    // A one-column ROI is widened to the image of a 2x2 block (4 wide for the identity).
    ASSERT_EQ(keliGetAffineSrcRoi(KeliSize{100, 100}, kIdentity, 1, KeliPoint{50, 10}, KeliSize{1, 40}, &r), kelStatusOk);
    EXPECT_EQ(r.x, 48);
    EXPECT_EQ(r.width, 4);
    EXPECT_EQ(r.height, 42);
    // At the right edge the window is pushed back inside.
    ASSERT_EQ(keliGetAffineSrcRoi(KeliSize{100, 100}, kIdentity, 1, KeliPoint{99, 10}, KeliSize{1, 40}, &r), kelStatusOk);
    EXPECT_EQ(r.x, 96);
    EXPECT_EQ(r.width, 4);
    // The ROI beyond the source: the window is the minimal block at the far edge.
    const double shift[6] = {1, 0, 500, 0, 1, 0};
    ASSERT_EQ(keliGetAffineSrcRoi(KeliSize{100, 100}, shift, 1, KeliPoint{0, 0}, KeliSize{10, 10}, &r), kelStatusOk);
    EXPECT_EQ(r.x, 96);
    EXPECT_EQ(r.width, 4);
    KeliRectL rl;
    ASSERT_EQ(keliGetAffineSrcRoi_L(KeliSizeL{100, 80}, kIdentity, 1, KeliPointL{10, 20}, KeliSizeL{30, 40}, &rl), kelStatusOk);
    EXPECT_EQ(rl.x, 9);
    EXPECT_EQ(rl.height, 42);
    ASSERT_EQ(keliGetAffineSrcRoi_L(KeliSizeL{100, 80}, kIdentity, 1, KeliPointL{10, 20}, KeliSizeL{0x2000000, 40}, &rl), kelStatusOk);
    EXPECT_EQ(rl.width, 91);
}

TEST(WarpAffineHelpers, SrcRoiChecksInOrder)
{
    KeliRect r{7, 7, 7, 7};
    const double singular[6] = {1, 1, 0, 1, 1, 0};
    const KeliSize s{10, 10};
    EXPECT_EQ(keliGetAffineSrcRoi(s, nullptr, 0, KeliPoint{0, 0}, s, &r), kelStatusNullPtr);
    EXPECT_EQ(keliGetAffineSrcRoi(s, kIdentity, 0, KeliPoint{0, 0}, s, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliGetAffineSrcRoi(KeliSize{0, 10}, kIdentity, 9, KeliPoint{-1, 0}, s, &r), kelStatusOutOfRange);
    EXPECT_EQ(keliGetAffineSrcRoi(KeliSize{0, 10}, kIdentity, 9, KeliPoint{0, 0}, s, &r), kelStatusBadSize);
    EXPECT_EQ(keliGetAffineSrcRoi(s, kIdentity, 9, KeliPoint{0, 0}, KeliSize{10, 0}, &r), kelStatusBadSize);
    EXPECT_EQ(keliGetAffineSrcRoi(s, singular, 2, KeliPoint{0, 0}, s, &r), kelStatusBadDirection);
    EXPECT_EQ(keliGetAffineSrcRoi(s, singular, 0, KeliPoint{0, 0}, KeliSize{0x2000000, 1}, &r), kelStatusSizeOverflow);
    EXPECT_EQ(keliGetAffineSrcRoi(s, singular, 0, KeliPoint{0, 0}, s, &r), kelStatusBadCoeffs);
    EXPECT_EQ(keliGetAffineSrcRoi(s, singular, 1, KeliPoint{0, 0}, s, &r), kelStatusBadCoeffs);
    EXPECT_EQ(r.x, 7);
    EXPECT_EQ(r.width, 7);
}

TEST(WarpAffineHelpers, RectInfinite)
{
    const KeliRect r = keliWarpGetRectInfinite();
    EXPECT_EQ(r.x, -1073741824);
    EXPECT_EQ(r.y, -1073741824);
    EXPECT_EQ(r.width, 2147483647);
    EXPECT_EQ(r.height, 2147483647);
}

}  // namespace
