// Compare, CompareC, CompareEqualEps, CompareEqualEpsC: pixel-wise tests of
// two images, or of an image and a constant per channel, written as a
// one-channel 8u mask (255 where the test holds in every compared channel,
// 0 elsewhere) that the masked forms of Copy and Set take directly.
//
// A row kernel handles 16 pixels per step: the per-element tests give lanes
// of all ones or zeros as wide as the element, signed packs narrow them to
// one byte per element (all ones stays all ones), and the bytes of each pixel
// are then combined into one: a 32-bit compare for four-channel pixels (alpha
// forced to "true" for AC4), byte shuffles for three-channel pixels. Row
// heads (when streaming) and tails are finished pixel by pixel.
#include <pmmintrin.h>

#include <cmath>
#include <cstdint>
#include <iterator>
#include <limits>
#include <type_traits>

#include "core/checks.h"
#include "core/image.h"
#include "core/simd.h"
#include "core/streaming.h"
#include "pvxcore.h"
#include "pvxi.h"
#include "pvxi_impl.h"

PVX_BEGIN

namespace {

// ---------------------------------------------------------------- element tests

enum class Cmp { Less, LessEq, Eq, GreaterEq, Greater };

// One operator on one element type: operator() for single values, vec() for
// 16 bytes of elements (lanes of all ones where the test holds). Unsigned
// "less" compares signed after flipping the top bit; unsigned "less or
// equal" asks whether the saturating difference a - b is zero. 32f tests are
// the ordered IEEE ones: any NaN operand makes every operator false, and
// -0.0 equals +0.0.
template <class T, Cmp C>
struct Test {
    bool operator()(T a, T b) const
    {
        switch (C) {
        case Cmp::Less: return a < b;
        case Cmp::LessEq: return a <= b;
        case Cmp::Eq: return a == b;
        case Cmp::GreaterEq: return a >= b;
        default: return a > b;
        }
    }

    __m128i vec(__m128i a, __m128i b) const
    {
        const __m128i zero = _mm_setzero_si128();
        if constexpr (std::is_same_v<T, Pvx8u>) {
            const __m128i bias = _mm_set1_epi8(static_cast<char>(0x80));
            switch (C) {
            case Cmp::Less: return _mm_cmplt_epi8(_mm_xor_si128(a, bias), _mm_xor_si128(b, bias));
            case Cmp::LessEq: return _mm_cmpeq_epi8(_mm_subs_epu8(a, b), zero);
            case Cmp::Eq: return _mm_cmpeq_epi8(a, b);
            case Cmp::GreaterEq: return _mm_cmpeq_epi8(_mm_subs_epu8(b, a), zero);
            default: return _mm_cmpgt_epi8(_mm_xor_si128(a, bias), _mm_xor_si128(b, bias));
            }
        } else if constexpr (std::is_same_v<T, Pvx16u>) {
            const __m128i bias = _mm_set1_epi16(static_cast<short>(0x8000));
            switch (C) {
            case Cmp::Less: return _mm_cmplt_epi16(_mm_xor_si128(a, bias), _mm_xor_si128(b, bias));
            case Cmp::LessEq: return _mm_cmpeq_epi16(_mm_subs_epu16(a, b), zero);
            case Cmp::Eq: return _mm_cmpeq_epi16(a, b);
            case Cmp::GreaterEq: return _mm_cmpeq_epi16(_mm_subs_epu16(b, a), zero);
            default: return _mm_cmpgt_epi16(_mm_xor_si128(a, bias), _mm_xor_si128(b, bias));
            }
        } else if constexpr (std::is_same_v<T, Pvx16s>) {
            const __m128i ones = _mm_cmpeq_epi16(zero, zero);
            switch (C) {
            case Cmp::Less: return _mm_cmplt_epi16(a, b);
            case Cmp::LessEq: return _mm_xor_si128(_mm_cmpgt_epi16(a, b), ones);
            case Cmp::Eq: return _mm_cmpeq_epi16(a, b);
            case Cmp::GreaterEq: return _mm_xor_si128(_mm_cmplt_epi16(a, b), ones);
            default: return _mm_cmpgt_epi16(a, b);
            }
        } else {
            static_assert(std::is_same_v<T, Pvx32f>, "8u, 16u, 16s or 32f");
            const __m128 x = _mm_castsi128_ps(a), y = _mm_castsi128_ps(b);
            switch (C) {
            case Cmp::Less: return _mm_castps_si128(_mm_cmplt_ps(x, y));
            case Cmp::LessEq: return _mm_castps_si128(_mm_cmple_ps(x, y));
            case Cmp::Eq: return _mm_castps_si128(_mm_cmpeq_ps(x, y));
            case Cmp::GreaterEq: return _mm_castps_si128(_mm_cmpge_ps(x, y));
            default: return _mm_castps_si128(_mm_cmpgt_ps(x, y));
            }
        }
    }
};

// |a - b| <= eps in single precision: the difference with its sign bit
// cleared, tested with the ordered less-or-equal (NaN anywhere gives false).
struct NearTest {
    float eps;
    __m128 epsVec, magnitude;

    explicit NearTest(float e)
        : eps(e), epsVec(_mm_set1_ps(e)), magnitude(_mm_castsi128_ps(_mm_set1_epi32(0x7fffffff)))
    {
    }
    bool operator()(float a, float b) const
    {
        const float d = a - b;
        return std::fabs(d) <= eps;
    }
    __m128i vec(__m128i a, __m128i b) const
    {
        const __m128 d = _mm_sub_ps(_mm_castsi128_ps(a), _mm_castsi128_ps(b));
        return _mm_castps_si128(_mm_cmple_ps(_mm_and_ps(d, magnitude), epsVec));
    }
};

// ---------------------------------------------------------------- operands

constexpr int kPrefetchAhead = 1024;

// Vector k of the 16-pixel block that starts at pixel x is the 16 bytes from
// byte 16k of pixel x; element c of pixel x is at(x, c).
template <class T, int Pixel>
struct ImageRow {
    const T* p;
    __m128i vec(std::intptr_t x, int k) const
    {
        return loadu(reinterpret_cast<const unsigned char*>(p + x * Pixel) + 16 * k);
    }
    T at(std::intptr_t x, int c) const { return p[x * Pixel + c]; }
    // Requests the cache lines 1 KiB past the block from x: beyond the outer
    // caches the hardware prefetchers alone leave bandwidth unused.
    void prefetch(std::intptr_t x) const
    {
        const char* q = reinterpret_cast<const char*>(p + x * Pixel) + kPrefetchAhead;
        for (int i = 0; i < 16 * Pixel * static_cast<int>(sizeof(T)); i += 64)
            _mm_prefetch(q + i, _MM_HINT_T0);
    }
};

template <class T, int Pixel>
struct ImageRows {
    const T* p;
    int step;
    ImageRow<T, Pixel> row(int y) const { return {rowAt(p, step, y)}; }
};

// A constant per channel. Every block starts at channel 0 of a pixel, and
// 16 bytes hold whole pixels for one and four channels, so one vector serves
// every k; three-channel pixels repeat every 48 bytes (three vectors). The
// alpha lanes of AC4 hold channel 0's value: any value will do, their results
// are discarded.
template <class T, int Pixel>
struct ConstantRow {
    static constexpr int kVectors = Pixel == 3 ? 3 : 1;
    __m128i v[kVectors];
    T values[4];

    ConstantRow(const T* constant, int used)
    {
        for (int c = 0; c < 4; ++c)
            values[c] = constant[c < used ? c : 0];
        alignas(16) T pattern[kVectors * 16 / sizeof(T)];
        for (std::size_t i = 0; i < std::size(pattern); ++i)
            pattern[i] = values[i % Pixel];
        for (int k = 0; k < kVectors; ++k)
            v[k] = _mm_load_si128(reinterpret_cast<const __m128i*>(pattern) + k);
    }
    __m128i vec(std::intptr_t, int k) const { return v[kVectors == 1 ? 0 : k % kVectors]; }
    void prefetch(std::intptr_t) const {}
    T at(std::intptr_t, int c) const { return values[c]; }
    const ConstantRow& row(int) const { return *this; }
};

// ---------------------------------------------------------------- mask bytes

// Element lanes of all ones or zeros (Size bytes each) narrowed to bytes.
template <int Size>
__m128i narrowMasks(const __m128i* m)
{
    if constexpr (Size == 1)
        return m[0];
    else if constexpr (Size == 2)
        return _mm_packs_epi16(m[0], m[1]);
    else
        return _mm_packs_epi16(_mm_packs_epi32(m[0], m[1]), _mm_packs_epi32(m[2], m[3]));
}

// The per-element bytes of 16 pixels (Pixel vectors) combined into one byte
// per pixel: all ones when every compared channel's byte is.
template <int Pixel, int Used>
struct PixelMerge;

template <int Used>
struct PixelMerge<1, Used> {
    __m128i operator()(const __m128i* b) const { return b[0]; }
};

template <int Used>
struct PixelMerge<4, Used> {
    __m128i alpha = Used == 3 ? alphaLanes<1>() : _mm_setzero_si128();
    __m128i operator()(const __m128i* b) const
    {
        const __m128i ones = _mm_cmpeq_epi32(alpha, alpha);
        __m128i r[4];
        for (int j = 0; j < 4; ++j)
            r[j] = _mm_cmpeq_epi32(Used == 3 ? _mm_or_si128(b[j], alpha) : b[j], ones);
        return _mm_packs_epi16(_mm_packs_epi32(r[0], r[1]), _mm_packs_epi32(r[2], r[3]));
    }
};

// Byte c of pixel p is byte 3p + c of the 48; shuffle control [c][j] gathers
// from vector j those of channel c that it holds (0x80 zeroes the rest).
template <int Used>
struct PixelMerge<3, Used> {
    __m128i control[3][3];
    PixelMerge()
    {
        for (int c = 0; c < 3; ++c)
            for (int j = 0; j < 3; ++j) {
                alignas(16) unsigned char s[16];
                for (int p = 0; p < 16; ++p)
                    s[p] = (3 * p + c) / 16 == j ? static_cast<unsigned char>((3 * p + c) % 16) : 0x80;
                control[c][j] = _mm_load_si128(reinterpret_cast<const __m128i*>(s));
            }
    }
    __m128i operator()(const __m128i* b) const
    {
        __m128i r[3];
        for (int c = 0; c < 3; ++c)
            r[c] = _mm_or_si128(_mm_or_si128(_mm_shuffle_epi8(b[0], control[c][0]), _mm_shuffle_epi8(b[1], control[c][1])),
                                _mm_shuffle_epi8(b[2], control[c][2]));
        return _mm_and_si128(_mm_and_si128(r[0], r[1]), r[2]);
    }
};

// ---------------------------------------------------------------- kernels

template <class T, int Pixel, int Used, class TestOp>
struct MaskKernel {
    TestOp test;
    PixelMerge<Pixel, Used> merge;

    explicit MaskKernel(const TestOp& t) : test(t) {}

    // Mask bytes of the 16 pixels from x.
    template <class A, class B>
    __m128i block(const A& a, const B& b, std::intptr_t x) const
    {
        constexpr int kSize = sizeof(T);
        __m128i bytes[Pixel];
        for (int j = 0; j < Pixel; ++j) {
            __m128i m[kSize];
            for (int i = 0; i < kSize; ++i)
                m[i] = test.vec(a.vec(x, j * kSize + i), b.vec(x, j * kSize + i));
            bytes[j] = narrowMasks<kSize>(m);
        }
        return merge(bytes);
    }

    template <class A, class B>
    Pvx8u pixel(const A& a, const B& b, std::intptr_t x) const
    {
        bool all = true;
        for (int c = 0; c < Used; ++c)
            all &= test(a.at(x, c), b.at(x, c));
        return all ? 255 : 0;
    }
};

// One mask row of n pixels. With streaming stores the pixels up to a 16-byte
// aligned destination come first, one by one; tails always go pixel by
// pixel, so nothing outside the row is read or written.
template <bool Stream, class K, class A, class B>
void maskRow(const K& k, const A& a, const B& b, Pvx8u* d, std::intptr_t n)
{
    std::intptr_t x = 0;
    if constexpr (Stream) {
        const std::intptr_t head = static_cast<std::intptr_t>(bytesToAlignment(d, 16));
        for (; x < head && x < n; ++x)
            d[x] = k.pixel(a, b, x);
    }
    for (; x + 16 <= n; x += 16) {
        a.prefetch(x);
        b.prefetch(x);
        const __m128i r = k.block(a, b, x);
        if constexpr (Stream)
            storeStream(d + x, r);
        else
            _mm_storeu_si128(reinterpret_cast<__m128i*>(d + x), r);
    }
    for (; x < n; ++x)
        d[x] = k.pixel(a, b, x);
}

template <class T, int Pixel, int Used, class TestOp, class A, class B>
void maskImage(const TestOp& test, const A& a, const B& b, Pvx8u* d, int dStep, PvxiSize roi, bool stream)
{
    const MaskKernel<T, Pixel, Used, TestOp> k(test);
    for (int y = 0; y < roi.height; ++y) {
        if (stream)
            maskRow<true>(k, a.row(y), b.row(y), rowAt(d, dStep, y), roi.width);
        else
            maskRow<false>(k, a.row(y), b.row(y), rowAt(d, dStep, y), roi.width);
    }
    if (stream)
        _mm_sfence();
}

// Images whose rows lie back to back (every step equal to its row's bytes)
// are one long row; the result is the same.
template <class T, int Pixel>
PvxiSize mergedRoi(PvxiSize roi, int srcStep1, int srcStep2, int dstStep)
{
    const std::int64_t row = rowBytes<T>(roi.width, Pixel);
    if (roi.height < 2 || srcStep1 != row || srcStep2 != row || dstStep != roi.width || row * roi.height > INT32_MAX)
        return roi;
    return PvxiSize{roi.width * roi.height, 1};
}

// Every compared channel's result is forced: the destination ROI gets v
// through the same path's Set.
PvxStatus fillMask(Pvx8u v, Pvx8u* pDst, int dstStep, PvxiSize roi)
{
    return PVX_IMPL(pvxiSet_8u_C1R)(v, pDst, dstStep, roi);
}

// ---------------------------------------------------------------- Compare

// Checks: pointers, steps below 1 (before the size, deliberately), size; an
// operator outside 0..4 does nothing and is not an error. Three kernels serve
// the five operators: greater is less and greater-or-equal is
// less-or-equal with the sources exchanged.
template <class T, int Pixel, int Used>
PvxStatus compareImages(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, Pvx8u* pDst, int dstStep,
                        PvxiSize roiSize, int cmpOp)
{
    if (anyNull(pSrc1, pSrc2, pDst))
        return pvxStsNullPtrErr;
    if (src1Step < 1 || src2Step < 1 || dstStep < 1)
        return pvxStsStepErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (cmpOp < pvxCmpLess || cmpOp > pvxCmpGreater)
        return pvxStsOk;
    const bool stream = bypassesCache((std::int64_t{src1Step} + src2Step + dstStep) * roiSize.height);
    const PvxiSize roi = mergedRoi<T, Pixel>(roiSize, src1Step, src2Step, dstStep);
    const ImageRows<T, Pixel> a{pSrc1, src1Step}, b{pSrc2, src2Step};
    switch (cmpOp) {
    case pvxCmpLess:
        maskImage<T, Pixel, Used>(Test<T, Cmp::Less>(), a, b, pDst, dstStep, roi, stream);
        break;
    case pvxCmpLessEq:
        maskImage<T, Pixel, Used>(Test<T, Cmp::LessEq>(), a, b, pDst, dstStep, roi, stream);
        break;
    case pvxCmpEq:
        maskImage<T, Pixel, Used>(Test<T, Cmp::Eq>(), a, b, pDst, dstStep, roi, stream);
        break;
    case pvxCmpGreaterEq:
        maskImage<T, Pixel, Used>(Test<T, Cmp::LessEq>(), b, a, pDst, dstStep, roi, stream);
        break;
    default:
        maskImage<T, Pixel, Used>(Test<T, Cmp::Less>(), b, a, pDst, dstStep, roi, stream);
        break;
    }
    return pvxStsOk;
}

// ---------------------------------------------------------------- CompareC

// Bounds of the element type: no value lies below the first or above the
// second (for 32f the infinities; NaN compares false anyway).
template <class T>
constexpr T lowestValue()
{
    return std::numeric_limits<T>::has_infinity ? -std::numeric_limits<T>::infinity() : std::numeric_limits<T>::lowest();
}
template <class T>
constexpr T highestValue()
{
    return std::numeric_limits<T>::has_infinity ? std::numeric_limits<T>::infinity() : std::numeric_limits<T>::max();
}

// Checks like Compare; the constant array (multi-channel forms) is checked
// with the image pointers. Short-cuts through Set, each giving what the
// kernels would: "less" than the type's lowest value or "greater" than its
// highest in any compared channel is never true (0); for the integer types
// "less or equal" the highest and "greater or equal" the lowest in every
// channel is always true (255).
template <class T, int Pixel, int Used>
PvxStatus compareConstant(const T* pSrc, int srcStep, const T* values, Pvx8u* pDst, int dstStep, PvxiSize roiSize,
                          int cmpOp)
{
    if (anyNull(pSrc, values, pDst))
        return pvxStsNullPtrErr;
    if (srcStep < 1 || dstStep < 1)
        return pvxStsStepErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (cmpOp < pvxCmpLess || cmpOp > pvxCmpGreater)
        return pvxStsOk;
    bool anyLowest = false, anyHighest = false, allLowest = true, allHighest = true;
    for (int c = 0; c < Used; ++c) {
        anyLowest |= values[c] == lowestValue<T>();
        anyHighest |= values[c] == highestValue<T>();
        allLowest &= values[c] == lowestValue<T>();
        allHighest &= values[c] == highestValue<T>();
    }
    if ((cmpOp == pvxCmpLess && anyLowest) || (cmpOp == pvxCmpGreater && anyHighest))
        return fillMask(0, pDst, dstStep, roiSize);
    if constexpr (std::is_integral_v<T>)
        if ((cmpOp == pvxCmpLessEq && allHighest) || (cmpOp == pvxCmpGreaterEq && allLowest))
            return fillMask(255, pDst, dstStep, roiSize);
    const bool stream = bypassesCache((std::int64_t{srcStep} + dstStep) * roiSize.height);
    const PvxiSize roi = mergedRoi<T, Pixel>(roiSize, srcStep, srcStep, dstStep);
    const ImageRows<T, Pixel> a{pSrc, srcStep};
    const ConstantRow<T, Pixel> b(values, Used);
    switch (cmpOp) {
    case pvxCmpLess:
        maskImage<T, Pixel, Used>(Test<T, Cmp::Less>(), a, b, pDst, dstStep, roi, stream);
        break;
    case pvxCmpLessEq:
        maskImage<T, Pixel, Used>(Test<T, Cmp::LessEq>(), a, b, pDst, dstStep, roi, stream);
        break;
    case pvxCmpEq:
        maskImage<T, Pixel, Used>(Test<T, Cmp::Eq>(), a, b, pDst, dstStep, roi, stream);
        break;
    case pvxCmpGreaterEq:
        maskImage<T, Pixel, Used>(Test<T, Cmp::GreaterEq>(), a, b, pDst, dstStep, roi, stream);
        break;
    default:
        maskImage<T, Pixel, Used>(Test<T, Cmp::Greater>(), a, b, pDst, dstStep, roi, stream);
        break;
    }
    return pvxStsOk;
}

template <class T, int Pixel, int Used>
PvxStatus compareConstant(const T* pSrc, int srcStep, T value, Pvx8u* pDst, int dstStep, PvxiSize roiSize, int cmpOp)
{
    return compareConstant<T, Pixel, Used>(pSrc, srcStep, &value, pDst, dstStep, roiSize, cmpOp);
}

// ---------------------------------------------------------------- CompareEqualEps, CompareEqualEpsC

// Checks: pointers (the constant array too), steps, size, then eps below 0.
// A NaN tolerance is not below 0: it is accepted and no pixel passes.
template <class T, int Pixel, int Used>
PvxStatus compareEqualEps(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, Pvx8u* pDst, int dstStep,
                          PvxiSize roiSize, Pvx32f eps)
{
    if (anyNull(pSrc1, pSrc2, pDst))
        return pvxStsNullPtrErr;
    if (src1Step < 1 || src2Step < 1 || dstStep < 1)
        return pvxStsStepErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (eps < 0)
        return pvxStsEpsValErr;
    const bool stream = bypassesCache((std::int64_t{src1Step} + src2Step + dstStep) * roiSize.height);
    const PvxiSize roi = mergedRoi<T, Pixel>(roiSize, src1Step, src2Step, dstStep);
    maskImage<T, Pixel, Used>(NearTest(eps), ImageRows<T, Pixel>{pSrc1, src1Step}, ImageRows<T, Pixel>{pSrc2, src2Step},
                              pDst, dstStep, roi, stream);
    return pvxStsOk;
}

template <class T, int Pixel, int Used>
PvxStatus compareEqualEpsConstant(const T* pSrc, int srcStep, const T* values, Pvx8u* pDst, int dstStep,
                                  PvxiSize roiSize, Pvx32f eps)
{
    if (anyNull(pSrc, values, pDst))
        return pvxStsNullPtrErr;
    if (srcStep < 1 || dstStep < 1)
        return pvxStsStepErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (eps < 0)
        return pvxStsEpsValErr;
    const bool stream = bypassesCache((std::int64_t{srcStep} + dstStep) * roiSize.height);
    const PvxiSize roi = mergedRoi<T, Pixel>(roiSize, srcStep, srcStep, dstStep);
    maskImage<T, Pixel, Used>(NearTest(eps), ImageRows<T, Pixel>{pSrc, srcStep}, ConstantRow<T, Pixel>(values, Used),
                              pDst, dstStep, roi, stream);
    return pvxStsOk;
}

template <class T, int Pixel, int Used>
PvxStatus compareEqualEpsConstant(const T* pSrc, int srcStep, T value, Pvx8u* pDst, int dstStep, PvxiSize roiSize,
                                  Pvx32f eps)
{
    return compareEqualEpsConstant<T, Pixel, Used>(pSrc, srcStep, &value, pDst, dstStep, roiSize, eps);
}

}  // namespace

PVX_END

#include "threshold/compare.inc"
