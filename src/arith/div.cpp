// Div, Div_Round, DivC: quotients of two images (the first image is the
// divisor) or of an image and a constant, with the integer scale factor.
#include "arith/arith.h"

PVX_BEGIN

namespace {

// Range of scale factors over which a narrow-integer quotient is computed;
// beyond it every quotient with a non-zero divisor is 0 (above) or saturates
// by the operands' signs (below), which is also what the rule gives there.
// 16u reaches one step further each way than 16s: 65535 * 2^-16 still rounds
// to 1, and 1/65535 * 2^31 does not saturate yet.
template <class T>
constexpr int kDivScaleMax = std::is_same_v<T, Pvx8u> ? 8 : std::is_same_v<T, Pvx16u> ? 16 : 15;
template <class T>
constexpr int kDivScaleMin = std::is_same_v<T, Pvx8u> ? -15 : std::is_same_v<T, Pvx16u> ? -31 : -30;

// Result of an integer division by zero: 0, or the limit by the dividend's
// sign (unsigned: the maximum for every non-zero dividend).
template <class P>
P byDividendSign(P n)
{
    return n == 0 ? P(0) : n > 0 ? std::numeric_limits<P>::max() : std::numeric_limits<P>::min();
}

// Rounds a single-precision value to an integer by a PvxRoundMode and
// saturates it to T. Halves to even through the processor's conversion in
// its default rounding mode; the financial rule from the exact fraction.
template <class T>
T roundSaturate(float q, int mode)
{
    const float lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
    q = q < lo - 1.0f ? lo - 1.0f : q > hi + 1.0f ? hi + 1.0f : q;
    int r;
    if (mode == pvxRndZero) {
        r = _mm_cvttss_si32(_mm_set_ss(q));
    } else if (mode == pvxRndNear) {
        r = _mm_cvtss_si32(_mm_set_ss(q));
    } else {
        r = _mm_cvttss_si32(_mm_set_ss(q));
        const float frac = q - static_cast<float>(r);  // exact
        r += frac >= 0.5f ? 1 : frac <= -0.5f ? -1 : 0;
    }
    return saturateTo<T>(r);
}

// Extended-precision Sfs rule for the complex quotients: the parts of
// s2 * conj(s1) / |s1|^2 are exact in a 64-bit mantissa, the quotient is
// rounded once.
template <class P>
P scaleSatLong(long double q, int s)
{
    s = s < -200 ? -200 : s > 200 ? 200 : s;  // the same results, and -s stays defined
    q = std::nearbyint(std::ldexp(q, -s));
    const long double lo = std::numeric_limits<P>::min(), hi = std::numeric_limits<P>::max();
    return static_cast<P>(q < lo ? lo : q > hi ? hi : q);
}

// x / y, x the dividend. Narrow integers: the single-precision quotient,
// scaled, rounded by the mode and saturated. The quotient is an exact IEEE
// single-precision division rather than a refined reciprocal estimate: the
// two differ only where the scaled quotient lies within single-precision
// error of a half-integer, and the division is the one a caller can redo; complex integers in extended
// precision; floats by IEEE division (32fc: x * conj(y) / |y|^2). Every zero
// divisor is counted (for a warning); SIMD for 32f.
template <class T, bool Alpha>
struct DivOp {
    static constexpr bool kVector = std::is_same_v<T, Pvx32f>;
    int s, mode;
    float scale;
    bool vectorOk = true;
    mutable bool zero = false;
    mutable __m128i zeroLanes = _mm_setzero_si128();

    DivOp(int scaleFactor, int roundMode)
        : s(scaleFactor), mode(roundMode), scale(std::ldexp(1.0f, scaleFactor < -40 || scaleFactor > 40 ? 0 : -scaleFactor))
    {
    }

    bool sawZero() const { return zero || _mm_movemask_epi8(zeroLanes) != 0; }

    T operator()(T x, T y) const
    {
        if constexpr (std::is_same_v<T, Pvx32fc>) {
            zero = zero || (y.re == 0 && y.im == 0);
            const float den = y.re * y.re + y.im * y.im;
            return T{(x.re * y.re + x.im * y.im) / den, (x.im * y.re - x.re * y.im) / den};
        } else if constexpr (kComplex<T>) {
            using P = Part<T>;
            if (y.re == 0 && y.im == 0) {
                zero = true;
                return T{byDividendSign<P>(x.re), byDividendSign<P>(x.im)};
            }
            const long double a = x.re, b = x.im, c = y.re, d = y.im, den = c * c + d * d;
            return T{scaleSatLong<P>((a * c + b * d) / den, s), scaleSatLong<P>((b * c - a * d) / den, s)};
        } else if constexpr (std::is_floating_point_v<T>) {
            zero = zero || y == 0;
            return x / y;
        } else {
            if (y == 0) {
                zero = true;
                return byDividendSign<T>(x);
            }
            if (s > kDivScaleMax<T>)
                return 0;
            if (s < kDivScaleMin<T>)
                return x == 0 ? T(0) : (x > 0) == (y > 0) ? std::numeric_limits<T>::max() : std::numeric_limits<T>::min();
            return roundSaturate<T>(static_cast<float>(x) / static_cast<float>(y) * scale, mode);
        }
    }

    __m128i vec(__m128i x, __m128i y) const
    {
        __m128i isZero = asSi(_mm_cmpeq_ps(asPs(y), _mm_setzero_ps()));
        if constexpr (Alpha)  // the alpha lanes divide nothing
            isZero = _mm_andnot_si128(alphaLanes<4>(), isZero);
        zeroLanes = _mm_or_si128(zeroLanes, isZero);
        return asSi(_mm_div_ps(asPs(x), asPs(y)));
    }
};

// x / c with c != 0 for the narrow integers: the exact quotient, scaled by
// 2^-s and rounded half to even, from integer quotient and remainder.
template <class T>
struct DivConstOp {
    static constexpr bool kVector = false;
    static constexpr bool vectorOk = false;
    int s;

    __m128i vec(__m128i, __m128i) const { return _mm_setzero_si128(); }

    T operator()(T x, T c) const
    {
        if (x == 0)
            return 0;
        std::int64_t num = x, den = c;
        if (s >= 18)  // |x| / (|c| 2^s) < 1/2
            return 0;
        if (s >= 0) {
            den *= std::int64_t{1} << s;
        } else {
            if (s <= -32)  // |x| 2^32 / |c| exceeds every limit
                return (x > 0) == (c > 0) ? std::numeric_limits<T>::max() : std::numeric_limits<T>::min();
            num *= std::int64_t{1} << -s;
        }
        std::int64_t q = num / den;
        const std::int64_t r = num % den, twice = 2 * (r < 0 ? -r : r), mag = den < 0 ? -den : den;
        if (twice > mag || (twice == mag && (q & 1)))
            q += (num < 0) == (den < 0) ? 1 : -1;
        return saturateTo<T>(q);
    }
};

// x * r for DivC 32f, r the reciprocal of the constant.
struct MulReciprocalOp {
    static constexpr bool kVector = true;
    bool vectorOk = true;
    Pvx32f operator()(Pvx32f x, Pvx32f r) const { return x * r; }
    __m128i vec(__m128i x, __m128i r) const { return asSi(_mm_mul_ps(asPs(x), asPs(r))); }
};

// ---------------------------------------------------------------- Div, Div_Round

// Div and Div_Round: pointers, ROI size, steps, then (Div_Round) the
// rounding mode. A zero divisor is not an error: its pixels take the
// values above and the call returns pvxStsDivByZeroWrn, for 32f and 32fc too
// (whose destinations hold the IEEE infinities and NaNs).
struct DivImages {
    template <class T, int Pixel, int Used>
    static PvxStatus run(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst, int dstStep,
                         PvxiSize roiSize, PvxRoundMode rndMode, int scaleFactor)
    {
        if (anyNull(pSrc1, pSrc2, pDst))
            return pvxStsNullPtrErr;
        if (roiEmpty(roiSize))
            return pvxStsSizeErr;
        if (src1Step < 1 || src2Step < 1 || dstStep < 1)
            return pvxStsStepErr;
        if (rndMode != pvxRndZero && rndMode != pvxRndNear && rndMode != pvxRndFinancial)
            return pvxStsRoundModeErr;
        const auto done = runImages<T, Pixel, Used>(DivOp<T, (Used < Pixel)>(scaleFactor, rndMode), pSrc2, src2Step,
                                                    pSrc1, src1Step, pDst, dstStep, roiSize);  // source 2 / source 1
        return done.sawZero() ? pvxStsDivByZeroWrn : pvxStsOk;
    }

    // Div rounds to nearest, a mode the check above always accepts.
    template <class T, int Pixel, int Used>
    static PvxStatus run(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst, int dstStep,
                         PvxiSize roiSize, int scaleFactor = 0)
    {
        return run<T, Pixel, Used>(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize, pvxRndNear, scaleFactor);
    }
};

template <class T, int Pixel, int Used>
constexpr ImageForms<DivImages, T, Pixel, Used> div{};
template <class T, int Pixel, int Used>
constexpr ImageForms<DivImages, T, Pixel, Used> divI{};
template <class T, int Pixel, int Used>
constexpr ImageForms<DivImages, T, Pixel, Used> divRound{};
template <class T, int Pixel, int Used>
constexpr ImageForms<DivImages, T, Pixel, Used> divRoundI{};

// ---------------------------------------------------------------- DivC

template <class T>
bool isZero(const T& v)
{
    if constexpr (kComplex<T>)
        return v.re == 0 && v.im == 0;
    else
        return v == 0;  // -0.0 too
}

// DivC: pointers, ROI size, steps, then a zero constant in any channel
// (an error here). 32f multiplies by the reciprocals, each formed once in
// single precision; 32fc divides like Div.
struct DivConstant {
    template <class T, int Pixel, int Used>
    static PvxStatus run(const T* pSrc, int srcStep, const T* values, T* pDst, int dstStep, PvxiSize roiSize,
                         int scaleFactor = 0)
    {
        if (anyNull(pSrc, values, pDst))
            return pvxStsNullPtrErr;
        if (roiEmpty(roiSize))
            return pvxStsSizeErr;
        if (srcStep < 1 || dstStep < 1)
            return pvxStsStepErr;
        for (int c = 0; c < Used; ++c)
            if (isZero(values[c]))
                return pvxStsDivByZeroErr;
        if constexpr (std::is_same_v<T, Pvx32f>) {
            T reciprocals[Used];
            for (int c = 0; c < Used; ++c)
                reciprocals[c] = 1.0f / values[c];
            runConstant<T, Pixel, Used>(MulReciprocalOp(), pSrc, srcStep, reciprocals, pDst, dstStep, roiSize);
        } else if constexpr (kNarrowInt<T>) {
            runConstant<T, Pixel, Used>(DivConstOp<T>{scaleFactor}, pSrc, srcStep, values, pDst, dstStep, roiSize);
        } else {
            runConstant<T, Pixel, Used>(DivOp<T, false>(scaleFactor, pvxRndNear), pSrc, srcStep, values, pDst,
                                        dstStep, roiSize);
        }
        return pvxStsOk;
    }
};

template <class T, int Pixel, int Used>
constexpr ConstantForms<DivConstant, T, Pixel, Used> divC{};
template <class T, int Pixel, int Used>
constexpr ConstantForms<DivConstant, T, Pixel, Used> divCI{};

}  // namespace

PVX_END

#include "arith/div.inc"
