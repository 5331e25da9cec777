/* keli: element types, records, enumerations and status codes.
 *
 * Every numeric value in this file is part of the binary interface: callers may pass
 * and compare them as plain integers. The file compiles as C99 and as C++. */
#ifndef KELI_TYPES_H
#define KELI_TYPES_H

#include <stdint.h>

/* Marks the library's exported functions. */
#ifndef KELI_API
#if defined(__GNUC__)
#define KELI_API __attribute__((visibility("default")))
#else
#define KELI_API
#endif
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Element types ------------------------------------------------------------------------- */

typedef uint8_t  Kel8u;
typedef int8_t   Kel8s;
typedef uint16_t Kel16u;
typedef int16_t  Kel16s;
typedef uint32_t Kel32u;
typedef int32_t  Kel32s;
typedef float    Kel32f;
typedef int64_t  Kel64s;
typedef uint64_t Kel64u;
typedef double   Kel64f;

/* Complex elements: real part first. */
typedef struct { Kel16s re; Kel16s im; } Kel16sc;
typedef struct { Kel32s re; Kel32s im; } Kel32sc;
typedef struct { Kel32f re; Kel32f im; } Kel32fc;
typedef struct { Kel64f re; Kel64f im; } Kel64fc;

/* ---- Records --------------------------------------------------------------------------------- */

typedef struct { int32_t width; int32_t height; } KeliSize;
typedef struct { int32_t x; int32_t y; } KeliPoint;
typedef struct { int32_t x; int32_t y; int32_t width; int32_t height; } KeliRect;
typedef struct { int64_t width; int64_t height; } KeliSizeL;
typedef struct { int64_t x; int64_t y; } KeliPointL;
typedef struct { int64_t x; int64_t y; int64_t width; int64_t height; } KeliRectL;
typedef int64_t KelSizeL; /* a scalar byte or element count */
typedef struct { int32_t width; int32_t height; int32_t depth; } KeliVolume;
typedef struct { int32_t x; int32_t y; int32_t z; int32_t width; int32_t height; int32_t depth; } KeliCuboid;

/* Widths of the four borders around an image: top, left, bottom, right. */
typedef struct { int32_t borderTop; int32_t borderLeft; int32_t borderBottom; int32_t borderRight; } KeliBorderSize;

/* The constant record returned by keliGetLibVersion. */
typedef struct {
    int32_t major;
    int32_t minor;
    int32_t majorBuild;
    int32_t build;
    char targetCpu[4];
    const char* Name;
    const char* Version;
    const char* BuildDate;
} KelLibraryVersion;

/* ---- Enumerations ---------------------------------------------------------------------------- */

/* Callers may pass any 32-bit value where an enumeration is expected, and the library answers an
 * unknown one with a status. In C++ the enumerations are therefore 32-bit integers in full (a
 * fixed underlying type), so that reading an out-of-range argument is defined. */
#ifndef KELI_ENUM_BASE
#ifdef __cplusplus
#define KELI_ENUM_BASE : int32_t
#else
#define KELI_ENUM_BASE
#endif
#endif

typedef enum KELI_ENUM_BASE {
    kel8u = 1,
    kel8s = 3,
    kel16u = 5,
    kel16s = 7,
    kel32u = 9,
    kel32s = 11,
    kel32f = 13,
    kel64f = 19
} KelDataType;

typedef enum KELI_ENUM_BASE {
    kelRndZero = 0,      /* truncate toward zero */
    kelRndNear = 1,      /* nearest, ties to even */
    kelRndFinancial = 2  /* nearest, ties away from zero */
} KelRoundMode;

typedef enum KELI_ENUM_BASE {
    kelAlgHintNone = 0,
    kelAlgHintFast = 1,
    kelAlgHintAccurate = 2 /* the only value a kernel tests: selects the wider accumulator */
} KelHintAlgorithm;

/* Base kind in the low four bits, in-memory flags in the next four. */
typedef enum KELI_ENUM_BASE {
    kelBorderRepl = 1,
    kelBorderWrap = 2,
    kelBorderMirror = 3,
    kelBorderMirrorR = 4,
    kelBorderDefault = 5,
    kelBorderConst = 6,
    kelBorderTransp = 7,
    kelBorderInMemTop = 16,
    kelBorderInMemBottom = 32,
    kelBorderInMemLeft = 64,
    kelBorderInMemRight = 128,
    kelBorderInMem = 240
} KeliBorderType;

/* The general kernel filter's spec: a block the caller allocates at the size its query gives. */
typedef struct KeliFilterBorderSpec KeliFilterBorderSpec;

/* Parameters of the histogram of oriented gradients, filled in by the caller. */
typedef struct {
    int32_t blockOrderColumnMajor; /* non-zero: a window's blocks are stored column by column */
    int32_t cellSize;
    int32_t blockSize;
    int32_t blockStride;
    int32_t nbins;
    float sigma;
    float l2Threshold;
    int32_t winWidth;
    int32_t winHeight;
} KeliHOGConfig;

/* The histogram of oriented gradients' spec: a block the caller allocates at the size its query gives. */
typedef struct KeliHOGSpec KeliHOGSpec;

/* The resize families' spec: a block the caller allocates at the size keliResizeGetSize gives and
 * keeps at one address between Init and the last call that uses it. */
typedef struct KeliResizeSpec KeliResizeSpec;

/* The warp families' spec: a block the caller allocates at the size its query gives, used at
 * the address given (no alignment step). */
typedef struct KeliWarpSpec KeliWarpSpec;

typedef enum KELI_ENUM_BASE {
    kelNearest = 1,
    kelLinear = 2,
    kelCubicLagrange = 4,
    kelCubic = 6,
    kelSuper = 8,
    kelLanczos = 16
} KeliInterpolationType;

/* Decimal digits: mask width, then mask height. */
typedef enum KELI_ENUM_BASE {
    kelMaskSize1x3 = 13,
    kelMaskSize1x5 = 15,
    kelMaskSize3x1 = 31,
    kelMaskSize3x3 = 33,
    kelMaskSize5x1 = 51,
    kelMaskSize5x5 = 55
} KeliMaskSize;

typedef enum KELI_ENUM_BASE {
    kelAxisHorizontal = 0, /* the order of the rows is reversed */
    kelAxisVertical = 1,   /* each row is reversed */
    kelAxisBoth = 2,
    kelAxisDiag45 = 3,
    kelAxisDiag135 = 4
} KeliAxis;

typedef enum KELI_ENUM_BASE {
    kelCmpLess = 0,
    kelCmpLessEq = 1,
    kelCmpEq = 2,
    kelCmpGreaterEq = 3,
    kelCmpGreater = 4
} KelCmpOp;

typedef enum KELI_ENUM_BASE {
    kelNormInf = 1,
    kelNormL1 = 2,
    kelNormL2 = 4
} KelNormType;

/* Composition operations of keliAlphaComp*: colours taken plain (0-5) or premultiplied (6-11). */
typedef enum KELI_ENUM_BASE {
    kelAlphaOver = 0,
    kelAlphaIn = 1,
    kelAlphaOut = 2,
    kelAlphaATop = 3,
    kelAlphaXor = 4,
    kelAlphaPlus = 5,
    kelAlphaOverPremul = 6,
    kelAlphaInPremul = 7,
    kelAlphaOutPremul = 8,
    kelAlphaATopPremul = 9,
    kelAlphaXorPremul = 10,
    kelAlphaPlusPremul = 11
} KeliAlphaType;

/* Flags of keliCopyManaged_8u_C1R: how the copy uses the caches. */
typedef enum KELI_ENUM_BASE {
    kelCopyNonTemporalStore = 1, /* stores bypass the caches */
    kelCopyNonTemporalLoad = 2   /* streaming loads and non-temporal stores; wins over bit 1 */
} KelCopyManagedFlags;

/* ---- Status codes ---------------------------------------------------------------------------- */

/* Zero is success, a negative value an error (nothing written), a positive value a warning
 * (the work is done and the result stands). */
typedef int32_t KelStatus;

enum {
    kelStatusOk = 0,
    /* warnings */
    kelStatusNoOperation = 1,
    kelStatusDivByZeroWarn = 2,
    kelStatusSqrtNegArg = 3,
    kelStatusLnZeroArg = 7,
    kelStatusLnNegArg = 8,
    kelStatusNotParallelogram = 28,
    kelStatusRoiOutsideSrc = 29,
    kelStatusNoIntersection = 30,
    kelStatusEvenWeight = 39,
    kelStatusVolumeOutside = 40,
    kelStatusNoAntialiasing = 46,
    kelStatusRoiTrimmed = 48,
    kelStatusAccurateIgnored = 52,
    /* errors */
    kelStatusBadArg = -5,
    kelStatusBadSize = -6,
    kelStatusBadRange = -7,
    kelStatusNullPtr = -8,
    kelStatusNoMemory = -9,
    kelStatusDivByZero = -10,
    kelStatusOutOfRange = -11,
    kelStatusBadScaleRange = -12,
    kelStatusSpecMismatch = -13,
    kelStatusUnsupportedMode = -14,
    kelStatusBadStep = -16,
    kelStatusBadFftOrder = -17,
    kelStatusBadFftFlag = -18,
    kelStatusThresholdOrder = -19,
    kelStatusZeroMoment = -21,
    kelStatusBadAxis = -22,
    kelStatusBadInterpolation = -23,
    kelStatusBadResizeFactor = -24,
    kelStatusBadMaskSize = -33,
    kelStatusBadAnchor = -34,
    kelStatusNegativeEps = -36,
    kelStatusStepTooSmall = -37,
    kelStatusBadChannel = -47,
    kelStatusBadAlphaType = -50,
    kelStatusZeroDivisor = -51,
    kelStatusBadChannelCount = -53,
    kelStatusBadCoeffs = -56,
    kelStatusRectTooSmall = -57,
    kelStatusBadQuad = -58,
    kelStatusBadDataType = -59,
    kelStatusBadChannelOrder = -60,
    kelStatusBadLutLevels = -106,
    kelStatusBadHistLevels = -107,
    kelStatusOddStep = -108,
    kelStatusBadNoise = -125,
    kelStatusZeroDenominator = -210,
    kelStatusBadWeight = -211,
    kelStatusBadRoundMode = -213,
    kelStatusBadBorder = -225,
    kelStatusBadOffset = -227,
    kelStatusBadAlgorithm = -228,
    kelStatusBadDirection = -231,
    kelStatusSizeOverflow = -232,
    kelStatusBadTransformKind = -233
};

#ifdef __cplusplus
}
#endif

#endif /* KELI_TYPES_H */
