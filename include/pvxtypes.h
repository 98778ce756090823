/*
 * pvx — shared public types: scalar types per element suffix, the ROI and
 * geometry records, enumerations and the status codes every function returns.
 *
 * Plain C99; usable from C and C++.
 */
#ifndef PVXTYPES_H
#define PVXTYPES_H

#include <stdint.h>

/* Every export uses the platform's system calling convention. On 32-bit x86
 * that is callee-pops (stdcall); on x86-64 there is only one convention. */
#if defined(__i386__) || defined(_M_IX86)
#  if defined(_MSC_VER)
#    define PVX_CALL __stdcall
#  else
#    define PVX_CALL __attribute__((stdcall))
#  endif
#else
#  define PVX_CALL
#endif

#ifdef __cplusplus
#  define PVX_EXTERN_C_BEGIN extern "C" {
#  define PVX_EXTERN_C_END }
#else
#  define PVX_EXTERN_C_BEGIN
#  define PVX_EXTERN_C_END
#endif

/* The enumerations are plain 32-bit ints at the interface. C++ sees them with
 * int as their underlying type, so that every int a C caller may pass (an
 * unsupported operator, say) is a valid value there too. */
#ifdef __cplusplus
#  define PVX_ENUM_INT : int
#else
#  define PVX_ENUM_INT
#endif

/* Scalar types, one per element-type suffix of the exported names. */
typedef uint8_t  Pvx8u;
typedef int8_t   Pvx8s;
typedef uint16_t Pvx16u;
typedef int16_t  Pvx16s;
typedef uint32_t Pvx32u;
typedef int32_t  Pvx32s;
typedef int64_t  Pvx64s;
typedef uint64_t Pvx64u;
typedef float    Pvx32f;
typedef double   Pvx64f;

/* 24u: an unsigned value stored as three little-endian bytes. */
typedef struct { Pvx8u b[3]; } Pvx24u;

/* Complex types: real part first, then imaginary part. */
typedef struct { Pvx16s re; Pvx16s im; } Pvx16sc;
typedef struct { Pvx16u re; Pvx16u im; } Pvx16uc;
typedef struct { Pvx32s re; Pvx32s im; } Pvx32sc;
typedef struct { Pvx32f re; Pvx32f im; } Pvx32fc;

/* Region-of-interest size, always passed by value. */
typedef struct { int width; int height; } PvxiSize;
typedef struct { int x; int y; int width; int height; } PvxiRect;
typedef struct { int x; int y; } PvxiPoint;
/* Pixels outside the ROI that a call reads on each side. */
typedef struct { Pvx32u borderLeft; Pvx32u borderTop; Pvx32u borderRight; Pvx32u borderBottom; } PvxiBorderSize;

/* Element-type codes taken by size queries and initialisers. */
typedef enum PVX_ENUM_INT {
    pvx8u = 1,
    pvx16u = 5,
    pvx16s = 7,
    pvx32f = 13,
    pvx64f = 19
} PvxDataType;

typedef enum PVX_ENUM_INT {
    pvxRndZero = 0,      /* toward zero */
    pvxRndNear = 1,      /* nearest, halves to even */
    pvxRndFinancial = 2  /* nearest, halves away from zero */
} PvxRoundMode;

/* Accuracy hint of the floating-point statistics: only Accurate selects
 * double-precision accumulation. */
typedef enum PVX_ENUM_INT {
    pvxAlgHintNone = 0,
    pvxAlgHintFast = 1,
    pvxAlgHintAccurate = 2
} PvxHintAlgorithm;

typedef enum PVX_ENUM_INT {
    pvxCmpLess = 0,
    pvxCmpLessEq = 1,
    pvxCmpEq = 2,
    pvxCmpGreaterEq = 3,
    pvxCmpGreater = 4
} PvxCmpOp;

/* Border kind in the low four bits, plus side flags for in-memory borders. */
typedef enum PVX_ENUM_INT {
    pvxBorderConst = 0,
    pvxBorderRepl = 1,
    pvxBorderInMem = 6,
    pvxBorderTransp = 7,
    pvxBorderInMemTop = 0x10,
    pvxBorderInMemBottom = 0x20,
    pvxBorderInMemLeft = 0x40,
    pvxBorderInMemRight = 0x80
} PvxiBorderType;

typedef enum PVX_ENUM_INT {
    pvxInterNearest = 1,
    pvxInterLinear = 2,
    pvxInterCubic = 6,
    pvxInterSuper = 8,
    pvxInterLanczos = 16
} PvxiInterpolationType;

/* The version record of the active code path (see pvxiGetLibVersion). */
typedef struct {
    int major;
    int minor;
    int update;
    int revision;
    char targetCode[4];      /* "v8" or "s8", zero-padded */
    const char* name;
    const char* versionText;
    const char* buildDate;
} PvxLibraryVersion;

/*
 * Status codes. Zero is success, negative values are errors (nothing was
 * written), positive values are warnings (the work was done and a special case
 * is reported). The list is kept once, here, and also yields the names that
 * pvxGetStatusString returns.
 */
#define PVX_STATUS_LIST(X)                 \
    X(pvxStsOk, 0)                         \
    X(pvxStsNoOperationWrn, 1)             \
    X(pvxStsDivByZeroWrn, 6)               \
    X(pvxStsNoRoiIntersectionWrn, 29)      \
    X(pvxStsNoIntersectionWrn, 30)         \
    X(pvxStsSizeWrn, 48)                   \
    X(pvxStsRoundHintWrn, 52)              \
    X(pvxStsBadArgErr, -5)                 \
    X(pvxStsSizeErr, -6)                   \
    X(pvxStsRangeErr, -7)                  \
    X(pvxStsNullPtrErr, -8)                \
    X(pvxStsNoMemErr, -9)                  \
    X(pvxStsDivByZeroErr, -10)             \
    X(pvxStsOutOfRangeErr, -11)            \
    X(pvxStsDataTypeErr, -12)              \
    X(pvxStsScaleRangeErr, -13)            \
    X(pvxStsStepErr, -14)                  \
    X(pvxStsFftOrderErr, -15)              \
    X(pvxStsContextMatchErr, -17)          \
    X(pvxStsThresholdErr, -18)             \
    X(pvxStsMoment00ZeroErr, -20)          \
    X(pvxStsMirrorFlipErr, -21)            \
    X(pvxStsInterpolationErr, -22)         \
    X(pvxStsResizeFactorErr, -23)          \
    X(pvxStsMaskSizeErr, -33)              \
    X(pvxStsAnchorErr, -34)                \
    X(pvxStsEpsValErr, -36)                \
    X(pvxStsStrideErr, -37)                \
    X(pvxStsChannelErr, -47)               \
    X(pvxStsAlphaTypeErr, -50)             \
    X(pvxStsDivisorErr, -51)               \
    X(pvxStsNumChannelsErr, -53)           \
    X(pvxStsCoeffErr, -56)                 \
    X(pvxStsRectErr, -57)                  \
    X(pvxStsQuadErr, -58)                  \
    X(pvxStsZeroMaskValuesErr, -59)        \
    X(pvxStsChannelOrderErr, -60)          \
    X(pvxStsLUTNofLevelsErr, -106)         \
    X(pvxStsHistoNofLevelsErr, -107)       \
    X(pvxStsNotEvenStepErr, -108)          \
    X(pvxStsNoiseValErr, -125)             \
    X(pvxStsResizeNoOperationErr, -201)    \
    X(pvxStsWeightErr, -211)               \
    X(pvxStsDecimateFractionErr, -212)     \
    X(pvxStsRoundModeErr, -213)            \
    X(pvxStsBorderErr, -225)               \
    X(pvxStsSizeNotEvenErr, -227)          \
    X(pvxStsAlgTypeErr, -228)              \
    X(pvxStsWarpDirectionErr, -231)        \
    X(pvxStsBufferSizeErr, -232)           \
    X(pvxStsNotSupportedModeErr, -9999)

#define PVX_STATUS_ENUMERATOR(name, value) name = value,
typedef enum PVX_ENUM_INT { PVX_STATUS_LIST(PVX_STATUS_ENUMERATOR) } PvxStatusCode;
#undef PVX_STATUS_ENUMERATOR

/* The result of every exported function: a signed 32-bit status. */
typedef int32_t PvxStatus;

#endif /* PVXTYPES_H */
