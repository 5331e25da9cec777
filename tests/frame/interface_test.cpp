// The binary interface: record layouts and the numeric values callers pass as plain integers.
#include <gtest/gtest.h>

#include <cstddef>
#include <utility>

#include "keli.h"

namespace {

TEST(Interface, RecordsHaveTheirFieldsInOrder)
{
    EXPECT_EQ(sizeof(KeliSize), 8u);
    EXPECT_EQ(offsetof(KeliSize, height), 4u);
    EXPECT_EQ(sizeof(KeliRect), 16u);
    EXPECT_EQ(offsetof(KeliRect, width), 8u);
    EXPECT_EQ(sizeof(KeliSizeL), 16u);
    EXPECT_EQ(offsetof(KeliSizeL, height), 8u);
    EXPECT_EQ(sizeof(KeliRectL), 32u);
    EXPECT_EQ(offsetof(KeliRectL, height), 24u);
    EXPECT_EQ(sizeof(KeliPointL), 16u);
    EXPECT_EQ(sizeof(KelSizeL), 8u);
    EXPECT_EQ(sizeof(KeliVolume), 12u);
    EXPECT_EQ(sizeof(KeliCuboid), 24u);
    EXPECT_EQ(offsetof(KeliCuboid, depth), 20u);
    EXPECT_EQ(sizeof(KeliBorderSize), 16u);
    EXPECT_EQ(sizeof(Kel16sc), 4u);
    EXPECT_EQ(sizeof(Kel32fc), 8u);
    EXPECT_EQ(offsetof(Kel64fc, im), 8u);
    EXPECT_EQ(offsetof(KelLibraryVersion, targetCpu), 16u);
    EXPECT_EQ(offsetof(KelLibraryVersion, Name), 24u);
    EXPECT_EQ(sizeof(KelStatus), 4u);
    EXPECT_EQ(sizeof(KelDataType), 4u);
}

TEST(Interface, EnumerationValues)
{
    const std::pair<int, int> values[] = {
        {kel8u, 1}, {kel8s, 3}, {kel16u, 5}, {kel16s, 7}, {kel32u, 9}, {kel32s, 11}, {kel32f, 13}, {kel64f, 19},
        {kelRndZero, 0}, {kelRndNear, 1}, {kelRndFinancial, 2},
        {kelAlgHintNone, 0}, {kelAlgHintFast, 1}, {kelAlgHintAccurate, 2},
        {kelBorderRepl, 1}, {kelBorderWrap, 2}, {kelBorderMirror, 3}, {kelBorderMirrorR, 4},
        {kelBorderDefault, 5}, {kelBorderConst, 6}, {kelBorderTransp, 7}, {kelBorderInMemTop, 16},
        {kelBorderInMemBottom, 32}, {kelBorderInMemLeft, 64}, {kelBorderInMemRight, 128}, {kelBorderInMem, 240},
        {kelNearest, 1}, {kelLinear, 2}, {kelCubicLagrange, 4}, {kelCubic, 6}, {kelSuper, 8}, {kelLanczos, 16},
        {kelMaskSize1x3, 13}, {kelMaskSize1x5, 15}, {kelMaskSize3x1, 31}, {kelMaskSize3x3, 33},
        {kelMaskSize5x1, 51}, {kelMaskSize5x5, 55},
        {kelAxisHorizontal, 0}, {kelAxisVertical, 1}, {kelAxisBoth, 2}, {kelAxisDiag45, 3}, {kelAxisDiag135, 4},
        {kelCmpLess, 0}, {kelCmpLessEq, 1}, {kelCmpEq, 2}, {kelCmpGreaterEq, 3}, {kelCmpGreater, 4},
        {kelNormInf, 1}, {kelNormL1, 2}, {kelNormL2, 4},
    };
    for (auto [have, want] : values) EXPECT_EQ(have, want);
}

TEST(Interface, StatusValues)
{
    const std::pair<int, int> values[] = {
        {kelStatusOk, 0}, {kelStatusNoOperation, 1}, {kelStatusDivByZeroWarn, 2}, {kelStatusSqrtNegArg, 3},
        {kelStatusLnZeroArg, 7}, {kelStatusLnNegArg, 8}, {kelStatusNotParallelogram, 28},
        {kelStatusRoiOutsideSrc, 29}, {kelStatusNoIntersection, 30}, {kelStatusEvenWeight, 39},
        {kelStatusVolumeOutside, 40}, {kelStatusNoAntialiasing, 46}, {kelStatusRoiTrimmed, 48},
        {kelStatusAccurateIgnored, 52}, {kelStatusBadArg, -5}, {kelStatusBadSize, -6}, {kelStatusBadRange, -7},
        {kelStatusNullPtr, -8}, {kelStatusNoMemory, -9}, {kelStatusDivByZero, -10}, {kelStatusOutOfRange, -11},
        {kelStatusBadScaleRange, -12}, {kelStatusSpecMismatch, -13}, {kelStatusUnsupportedMode, -14},
        {kelStatusBadStep, -16}, {kelStatusBadFftOrder, -17}, {kelStatusBadFftFlag, -18},
        {kelStatusThresholdOrder, -19}, {kelStatusZeroMoment, -21}, {kelStatusBadAxis, -22},
        {kelStatusBadInterpolation, -23}, {kelStatusBadResizeFactor, -24}, {kelStatusBadMaskSize, -33},
        {kelStatusBadAnchor, -34}, {kelStatusNegativeEps, -36}, {kelStatusStepTooSmall, -37},
        {kelStatusBadChannel, -47}, {kelStatusBadAlphaType, -50}, {kelStatusZeroDivisor, -51},
        {kelStatusBadChannelCount, -53}, {kelStatusBadCoeffs, -56}, {kelStatusRectTooSmall, -57},
        {kelStatusBadQuad, -58}, {kelStatusBadDataType, -59}, {kelStatusBadChannelOrder, -60},
        {kelStatusBadLutLevels, -106}, {kelStatusBadHistLevels, -107}, {kelStatusOddStep, -108},
        {kelStatusBadNoise, -125}, {kelStatusZeroDenominator, -210}, {kelStatusBadWeight, -211},
        {kelStatusBadRoundMode, -213}, {kelStatusBadBorder, -225}, {kelStatusBadOffset, -227},
        {kelStatusBadAlgorithm, -228}, {kelStatusBadDirection, -231}, {kelStatusSizeOverflow, -232},
        {kelStatusBadTransformKind, -233},
    };
    for (auto [have, want] : values) EXPECT_EQ(have, want);
}

}  // namespace
