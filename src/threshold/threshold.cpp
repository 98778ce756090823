// Threshold: values strictly below (or above) a per-channel threshold become
// the threshold (plain, _LT, _GT), a given value (_Val, _LTVal, _GTVal), or
// one of two values on either side of a band (_LTValGTVal); all other values
// pass unchanged. Every form is a per-value selection: no arithmetic, no
// rounding, no saturation.
//
// 32f and NaN: every comparison with a NaN is false, so a NaN source value
// passes unchanged in every form and a NaN threshold replaces nothing. The
// vector kernels agree: MAXPS/MINPS return their second operand when the
// comparison fails (unordered or equal), so they take the threshold first and
// the data second, which also keeps -0.0 and +0.0 as they were when the
// threshold is the other zero.
#include "arith/arith.h"

PVX_BEGIN

namespace {

// ---------------------------------------------------------------- lanes per element type

// Vector primitives on 16 bytes of T. Comparisons work on "ordered" lanes:
// unsigned data is moved into signed range by flipping its top bit, so that
// the signed compares of SSE2 order it; thresholds are flipped once per call.
template <class T>
struct Lanes;

template <>
struct Lanes<Pvx8u> {
    static Pvx8u flip(Pvx8u v) { return static_cast<Pvx8u>(v ^ 0x80u); }
    static __m128i flip(__m128i v) { return _mm_xor_si128(v, _mm_set1_epi8(static_cast<char>(0x80))); }
    static __m128i lt(__m128i a, __m128i b) { return _mm_cmplt_epi8(a, b); }  // ordered lanes
    static __m128i gt(__m128i a, __m128i b) { return _mm_cmpgt_epi8(a, b); }
    static __m128i raise(__m128i x, __m128i t) { return _mm_max_epu8(x, t); }
    static __m128i lower(__m128i x, __m128i t) { return _mm_min_epu8(x, t); }
};

template <>
struct Lanes<Pvx16u> {
    static Pvx16u flip(Pvx16u v) { return static_cast<Pvx16u>(v ^ 0x8000u); }
    static __m128i flip(__m128i v) { return _mm_xor_si128(v, _mm_set1_epi16(static_cast<short>(0x8000))); }
    static __m128i lt(__m128i a, __m128i b) { return _mm_cmplt_epi16(a, b); }
    static __m128i gt(__m128i a, __m128i b) { return _mm_cmpgt_epi16(a, b); }
    // No unsigned 16-bit max/min before SSE4.1: max(x, t) = (x -sat t) + t,
    // min(x, t) = x - (x -sat t).
    static __m128i raise(__m128i x, __m128i t) { return _mm_add_epi16(_mm_subs_epu16(x, t), t); }
    static __m128i lower(__m128i x, __m128i t) { return _mm_sub_epi16(x, _mm_subs_epu16(x, t)); }
};

template <>
struct Lanes<Pvx16s> {
    static Pvx16s flip(Pvx16s v) { return v; }
    static __m128i flip(__m128i v) { return v; }
    static __m128i lt(__m128i a, __m128i b) { return _mm_cmplt_epi16(a, b); }
    static __m128i gt(__m128i a, __m128i b) { return _mm_cmpgt_epi16(a, b); }
    static __m128i raise(__m128i x, __m128i t) { return _mm_max_epi16(x, t); }
    static __m128i lower(__m128i x, __m128i t) { return _mm_min_epi16(x, t); }
};

template <>
struct Lanes<Pvx32f> {
    static Pvx32f flip(Pvx32f v) { return v; }
    static __m128i flip(__m128i v) { return v; }
    static __m128i lt(__m128i a, __m128i b) { return asSi(_mm_cmplt_ps(asPs(a), asPs(b))); }  // false on NaN
    static __m128i gt(__m128i a, __m128i b) { return asSi(_mm_cmplt_ps(asPs(b), asPs(a))); }
    // t > x ? t : x and t < x ? t : x: the data is the operand returned when
    // the comparison fails (NaN, equal zeros).
    static __m128i raise(__m128i x, __m128i t) { return asSi(_mm_max_ps(asPs(t), asPs(x))); }
    static __m128i lower(__m128i x, __m128i t) { return asSi(_mm_min_ps(asPs(t), asPs(x))); }
};

// Per-channel constants: scalars for the tails and repeating 48-byte
// patterns for the vectors (ConstOperand of the arithmetic families).
template <class T, int Pixel, int Used>
struct Constant {
    T c[4];
    ConstOperand<T> pattern;
    Constant(const T* values, bool flipped)
        : c{values[0], values[Used > 1 ? 1 : 0], values[Used > 2 ? 2 : 0], values[Used > 3 ? 3 : 0]},
          pattern(flippedCopy(values, flipped).data, Pixel, Used)
    {
    }
    struct Four {
        T data[4];
    };
    static Four flippedCopy(const T* values, bool flipped)
    {
        Four f{};
        for (int k = 0; k < Used; ++k)
            f.data[k] = flipped ? Lanes<T>::flip(values[k]) : values[k];
        return f;
    }
};

// ---------------------------------------------------------------- the three selections

// x below t becomes t (Less), or x above t becomes t.
template <class T, int Pixel, int Used, bool Less>
struct ClampOp {
    Constant<T, Pixel, Used> t;
    explicit ClampOp(const T* thresholds) : t(thresholds, false) {}

    T scalar(T x, int ch) const
    {
        const T th = t.c[ch];
        return Less ? (x < th ? th : x) : (th < x ? th : x);
    }
    struct Regs {
        __m128i t;
    };
    Regs regs(std::int64_t phase) const { return {t.pattern.vec(phase)}; }
    static __m128i vec(__m128i x, const Regs& r) { return Less ? Lanes<T>::raise(x, r.t) : Lanes<T>::lower(x, r.t); }
};

// x below t (Less) or above t becomes v.
template <class T, int Pixel, int Used, bool Less>
struct ReplaceOp {
    Constant<T, Pixel, Used> t, v;
    ReplaceOp(const T* thresholds, const T* values) : t(thresholds, true), v(values, false) {}

    T scalar(T x, int ch) const
    {
        const T th = t.c[ch];
        return (Less ? x < th : th < x) ? v.c[ch] : x;
    }
    struct Regs {
        __m128i t, v;
    };
    Regs regs(std::int64_t phase) const { return {t.pattern.vec(phase), v.pattern.vec(phase)}; }
    static __m128i vec(__m128i x, const Regs& r)
    {
        const __m128i o = Lanes<T>::flip(x);
        return select(Less ? Lanes<T>::lt(o, r.t) : Lanes<T>::gt(o, r.t), r.v, x);
    }
};

// x below tL becomes vL; else x above tU becomes vU.
template <class T, int Pixel, int Used>
struct BandOp {
    Constant<T, Pixel, Used> tl, vl, tu, vu;
    BandOp(const T* tL, const T* vL, const T* tU, const T* vU) : tl(tL, true), vl(vL, false), tu(tU, true), vu(vU, false)
    {
    }

    T scalar(T x, int ch) const { return x < tl.c[ch] ? vl.c[ch] : tu.c[ch] < x ? vu.c[ch] : x; }
    struct Regs {
        __m128i tl, vl, tu, vu;
    };
    Regs regs(std::int64_t phase) const
    {
        return {tl.pattern.vec(phase), vl.pattern.vec(phase), tu.pattern.vec(phase), vu.pattern.vec(phase)};
    }
    static __m128i vec(__m128i x, const Regs& r)
    {
        const __m128i o = Lanes<T>::flip(x);
        const __m128i upper = select(Lanes<T>::gt(o, r.tu), r.vu, x);
        return select(Lanes<T>::lt(o, r.tl), r.vl, upper);
    }
};

// ---------------------------------------------------------------- row and image drivers

// One row of n elements starting on a pixel. The constants repeat every
// vector (C1, C4, AC4) or every three vectors (C3: 48 bytes hold whole
// pixels of every type), so their registers are loaded once per row and
// rotate over blocks of kBlock vectors (3 for C3, 4 otherwise). AC4 vectors
// write each alpha back with the value read. Whole vectors left over use the
// registers that follow in the rotation; the last elements are finished one
// by one, so nothing is read or written twice (in place stays exact).
template <class T, int Pixel, int Used, class Op>
void thresholdRow(const Op& op, const T* s, T* d, std::int64_t n)
{
    constexpr int kPer = 16 / sizeof(T);
    constexpr int kPeriod = Pixel == 3 ? 3 : 1;
    constexpr int kBlock = Pixel == 3 ? 3 : 4;
    typename Op::Regs r[kPeriod];
    for (int k = 0; k < kPeriod; ++k)
        r[k] = op.regs(k * kPer);
    const __m128i alpha = alphaLanes<sizeof(T)>();
    const auto one = [&](std::int64_t i, const typename Op::Regs& regs) {
        __m128i v = Op::vec(loadu(s + i), regs);
        if constexpr (Used < Pixel)
            v = select(alpha, loadu(d + i), v);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d + i), v);
    };
    std::int64_t i = 0;
    for (; i + kBlock * kPer <= n; i += kBlock * kPer)
        for (int k = 0; k < kBlock; ++k)
            one(i + k * kPer, r[k % kPeriod]);
    for (int k = 0; i + kPer <= n; i += kPer, ++k)
        one(i, r[k % kPeriod]);
    for (; i < n; ++i) {
        const int ch = static_cast<int>(i % Pixel);
        if (Used == Pixel || ch < Used)
            d[i] = op.scalar(s[i], ch);
    }
}

// The ROI row by row; images whose rows lie back to back are one row.
template <class T, int Pixel, int Used, class Op>
PvxStatus thresholdImage(const Op& opArgument, const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roiSize)
{
    const Op op = opArgument;  // a local copy: stores through pDst cannot alias it
    const std::int64_t row = rowBytes<T>(roiSize.width, Pixel);
    const PvxiSize roi = mergeContiguousRows(roiSize, row, srcStep, row, dstStep);
    const std::int64_t n = static_cast<std::int64_t>(roi.width) * Pixel;
    for (int y = 0; y < roi.height; ++y)
        thresholdRow<T, Pixel, Used>(op, rowAt(pSrc, srcStep, y), rowAt(pDst, dstStep, y), n);
    return pvxStsOk;
}

inline bool badOperator(int cmpOp)
{
    return cmpOp != pvxCmpLess && cmpOp != pvxCmpGreater;
}

// Runs the clamp selected by an operator already checked.
template <class T, int Pixel, int Used>
PvxStatus clampImage(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roi, const T* t, int cmpOp)
{
    if (cmpOp == pvxCmpLess)
        return thresholdImage<T, Pixel, Used>(ClampOp<T, Pixel, Used, true>(t), pSrc, srcStep, pDst, dstStep, roi);
    return thresholdImage<T, Pixel, Used>(ClampOp<T, Pixel, Used, false>(t), pSrc, srcStep, pDst, dstStep, roi);
}

template <class T, int Pixel, int Used>
PvxStatus replaceImage(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roi, const T* t, const T* v,
                       int cmpOp)
{
    if (cmpOp == pvxCmpLess)
        return thresholdImage<T, Pixel, Used>(ReplaceOp<T, Pixel, Used, true>(t, v), pSrc, srcStep, pDst, dstStep,
                                              roi);
    return thresholdImage<T, Pixel, Used>(ReplaceOp<T, Pixel, Used, false>(t, v), pSrc, srcStep, pDst, dstStep, roi);
}

// ---------------------------------------------------------------- plain, _LT, _GT

// C3, AC4: pointers, ROI size, steps, the threshold array, then the operator.
template <class T, int Pixel, int Used>
PvxStatus thresholdPlain(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roiSize, const T* threshold, int cmpOp)
{
    if (anyNull(pSrc, pDst))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (srcStep < 1 || dstStep < 1)
        return pvxStsStepErr;
    if (anyNull(threshold))
        return pvxStsNullPtrErr;
    if (badOperator(cmpOp))
        return pvxStsNotSupportedModeErr;
    return clampImage<T, Pixel, Used>(pSrc, srcStep, pDst, dstStep, roiSize, threshold, cmpOp);
}

// C1: the same order without the array: pointers, ROI size, steps, then the
// operator (the threshold's address is never null).
template <class T, int Pixel, int Used>
PvxStatus thresholdPlain(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roiSize, T threshold, int cmpOp)
{
    return thresholdPlain<T, Pixel, Used>(pSrc, srcStep, pDst, dstStep, roiSize, &threshold, cmpOp);
}

// In place: the out-of-place form on one image. Th is T (C1) or const T*.
template <class T, int Pixel, int Used, class Th>
PvxStatus thresholdPlainI(T* pSrcDst, int srcDstStep, PvxiSize roiSize, Th threshold, int cmpOp)
{
    return thresholdPlain<T, Pixel, Used>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize, threshold,
                                                    cmpOp);
}

// The fixed-operator forms: the plain routine with its checks and order.
template <class T, int Pixel, int Used, class Th>
PvxStatus thresholdLess(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roiSize, Th threshold)
{
    return thresholdPlain<T, Pixel, Used>(pSrc, srcStep, pDst, dstStep, roiSize, threshold, pvxCmpLess);
}

template <class T, int Pixel, int Used, class Th>
PvxStatus thresholdLessI(T* pSrcDst, int srcDstStep, PvxiSize roiSize, Th threshold)
{
    return thresholdPlainI<T, Pixel, Used>(pSrcDst, srcDstStep, roiSize, threshold, pvxCmpLess);
}

template <class T, int Pixel, int Used, class Th>
PvxStatus thresholdGreater(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roiSize, Th threshold)
{
    return thresholdPlain<T, Pixel, Used>(pSrc, srcStep, pDst, dstStep, roiSize, threshold, pvxCmpGreater);
}

template <class T, int Pixel, int Used, class Th>
PvxStatus thresholdGreaterI(T* pSrcDst, int srcDstStep, PvxiSize roiSize, Th threshold)
{
    return thresholdPlainI<T, Pixel, Used>(pSrcDst, srcDstStep, roiSize, threshold, pvxCmpGreater);
}

// ---------------------------------------------------------------- _Val, _LTVal, _GTVal

// Pointers, ROI size, steps, then the two arrays: the whole order of the C4
// forms, which exist only with a fixed operator; _Val checks its operator
// before these.
template <class T, int Pixel, int Used>
PvxStatus thresholdValues(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roiSize, const T* threshold,
                          const T* value, int cmpOp)
{
    if (anyNull(pSrc, pDst))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (srcStep < 1 || dstStep < 1)
        return pvxStsStepErr;
    if (anyNull(threshold, value))
        return pvxStsNullPtrErr;
    return replaceImage<T, Pixel, Used>(pSrc, srcStep, pDst, dstStep, roiSize, threshold, value, cmpOp);
}

// C3, AC4: the operator before anything else, then pointers, ROI size,
// steps, the two arrays.
template <class T, int Pixel, int Used>
PvxStatus thresholdVal(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roiSize, const T* threshold,
                       const T* value, int cmpOp)
{
    if (badOperator(cmpOp))
        return pvxStsNotSupportedModeErr;
    return thresholdValues<T, Pixel, Used>(pSrc, srcStep, pDst, dstStep, roiSize, threshold, value, cmpOp);
}

// C1: the same order without the arrays (their addresses are never null).
template <class T, int Pixel, int Used>
PvxStatus thresholdVal(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roiSize, T threshold, T value,
                       int cmpOp)
{
    return thresholdVal<T, Pixel, Used>(pSrc, srcStep, pDst, dstStep, roiSize, &threshold, &value, cmpOp);
}

template <class T, int Pixel, int Used, class Th>
PvxStatus thresholdValI(T* pSrcDst, int srcDstStep, PvxiSize roiSize, Th threshold, Th value, int cmpOp)
{
    return thresholdVal<T, Pixel, Used>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize, threshold, value, cmpOp);
}

// _LTVal and _GTVal: _Val with the fixed operator (C1, C3, AC4); C4 has no
// operator to check.
template <class T, int Pixel, int Used, class Th>
PvxStatus thresholdFixedVal(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roiSize, Th threshold, Th value,
                            int cmpOp)
{
    if constexpr (Used == 4)
        return thresholdValues<T, Pixel, Used>(pSrc, srcStep, pDst, dstStep, roiSize, threshold, value, cmpOp);
    else
        return thresholdVal<T, Pixel, Used>(pSrc, srcStep, pDst, dstStep, roiSize, threshold, value, cmpOp);
}

template <class T, int Pixel, int Used, class Th>
PvxStatus thresholdLessVal(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roiSize, Th threshold, Th value)
{
    return thresholdFixedVal<T, Pixel, Used>(pSrc, srcStep, pDst, dstStep, roiSize, threshold, value, pvxCmpLess);
}

template <class T, int Pixel, int Used, class Th>
PvxStatus thresholdLessValI(T* pSrcDst, int srcDstStep, PvxiSize roiSize, Th threshold, Th value)
{
    return thresholdFixedVal<T, Pixel, Used>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize, threshold, value,
                                             pvxCmpLess);
}

template <class T, int Pixel, int Used, class Th>
PvxStatus thresholdGreaterVal(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roiSize, Th threshold, Th value)
{
    return thresholdFixedVal<T, Pixel, Used>(pSrc, srcStep, pDst, dstStep, roiSize, threshold, value, pvxCmpGreater);
}

template <class T, int Pixel, int Used, class Th>
PvxStatus thresholdGreaterValI(T* pSrcDst, int srcDstStep, PvxiSize roiSize, Th threshold, Th value)
{
    return thresholdFixedVal<T, Pixel, Used>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize, threshold, value,
                                             pvxCmpGreater);
}

// ---------------------------------------------------------------- _LTValGTVal

// C3, AC4: pointers, ROI size, steps, the four arrays, then every channel's
// thresholds (equal accepted; a NaN threshold compares false and is
// accepted).
template <class T, int Pixel, int Used>
PvxStatus thresholdBand(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roiSize,
                              const T* thresholdLT, const T* valueLT, const T* thresholdGT, const T* valueGT)
{
    if (anyNull(pSrc, pDst))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (srcStep < 1 || dstStep < 1)
        return pvxStsStepErr;
    if (anyNull(thresholdLT, valueLT, thresholdGT, valueGT))
        return pvxStsNullPtrErr;
    for (int c = 0; c < Used; ++c)
        if (thresholdGT[c] < thresholdLT[c])
            return pvxStsThresholdErr;
    return thresholdImage<T, Pixel, Used>(BandOp<T, Pixel, Used>(thresholdLT, valueLT, thresholdGT, valueGT), pSrc,
                                          srcStep, pDst, dstStep, roiSize);
}

// C1: the same order without the arrays (their addresses are never null).
template <class T, int Pixel, int Used>
PvxStatus thresholdBand(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roiSize, T thresholdLT,
                        T valueLT, T thresholdGT, T valueGT)
{
    return thresholdBand<T, Pixel, Used>(pSrc, srcStep, pDst, dstStep, roiSize, &thresholdLT, &valueLT, &thresholdGT,
                                         &valueGT);
}

template <class T, int Pixel, int Used, class Th>
PvxStatus thresholdBandI(T* pSrcDst, int srcDstStep, PvxiSize roiSize, Th thresholdLT, Th valueLT,
                               Th thresholdGT, Th valueGT)
{
    return thresholdBand<T, Pixel, Used>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize, thresholdLT,
                                               valueLT, thresholdGT, valueGT);
}

}  // namespace

PVX_END

#include "threshold/threshold.inc"
