// Shared machinery of the arithmetic families (Add, Sub, Mul, Div and their
// constant and scaled forms): element traits, the Sfs rule for every integer
// width, the row and image drivers that run one element operation over any
// layout, the hand-over to Set and Copy, and small SSE2/SSSE3 lane helpers.
//
// An operation is a functor with
//   T operator()(T x, T y) const        one channel value (x op y);
//   static constexpr bool kVector       whether vec() exists;
//   bool vectorOk                       whether vec() serves this call;
//   __m128i vec(__m128i x, __m128i y)   16 bytes of elements at once.
// The drivers apply it to every computed channel of the ROI; the second
// operand is either a second image or a constant repeated per pixel.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "core/checks.h"
#include "core/image.h"
#include "core/scale.h"
#include "core/simd.h"
#include "pvxi.h"
#include "pvxi_impl.h"

PVX_BEGIN

namespace {

// ---------------------------------------------------------------- element traits

template <class T>
constexpr bool kComplex = std::is_same_v<T, Pvx16sc> || std::is_same_v<T, Pvx32sc> || std::is_same_v<T, Pvx32fc>;

// 8u, 16u and 16s: the element types with SIMD kernels, short-cuts to Set
// and Copy, and no step checks in the two-image forms.
template <class T>
constexpr bool kNarrowInt = std::is_same_v<T, Pvx8u> || std::is_same_v<T, Pvx16u> || std::is_same_v<T, Pvx16s>;

template <class T>
struct PartOf {
    using type = T;
};
template <>
struct PartOf<Pvx16sc> {
    using type = Pvx16s;
};
template <>
struct PartOf<Pvx32sc> {
    using type = Pvx32s;
};
template <>
struct PartOf<Pvx32fc> {
    using type = Pvx32f;
};
template <class T>
using Part = typename PartOf<T>::type;

// ---------------------------------------------------------------- the Sfs rule

// v scaled by 2^-s, rounded half to even and saturated to D, for any 64-bit v
// (the complex 32-bit products reach 2^63, beyond the shared helper's exact
// range; those are rounded here from quotient and remainder).
template <class D>
D scaleSat(std::int64_t v, int s)
{
    // Beyond +-100 every |v| < 2^63 gives the same result as at +-100; the
    // clamp also keeps -s defined for the most negative factor.
    s = s < -100 ? -100 : s > 100 ? 100 : s;
    constexpr std::int64_t kExact = std::int64_t{1} << 62;
    if (v > -kExact && v < kExact)
        return scaleSaturate<D>(v, s);
    if (s <= 0)  // |v| >= 2^62 saturates every destination type
        return saturateTo<D>(v);
    if (s >= 64)  // |v| / 2^s <= 1/2, which rounds to 0
        return 0;
    const std::int64_t q = v >> s;  // floor
    const std::uint64_t r = static_cast<std::uint64_t>(v) & ((std::uint64_t{1} << s) - 1);
    const std::uint64_t half = std::uint64_t{1} << (s - 1);
    return saturateTo<D>(q + ((r > half || (r == half && (q & 1))) ? 1 : 0));
}

// Smallest scale factor from which every |v| <= maxMagnitude rounds to 0:
// 2^(s-1) >= maxMagnitude.
constexpr int zeroFrom(std::int64_t maxMagnitude)
{
    int s = 1;
    while ((std::int64_t{1} << (s - 1)) < maxMagnitude)
        ++s;
    return s;
}

// ---------------------------------------------------------------- operands

// Elements of a constant operand repeated to a whole number of 16-byte
// vectors for every layout (1, 3 or 4 elements per pixel).
template <class T>
constexpr int kPatternElems = 48 / sizeof(T) > 12 ? 48 / sizeof(T) : 12;

template <class T>
struct ImageOperand {
    const T* p;
    T at(std::int64_t i) const { return p[i]; }
    __m128i vec(std::int64_t i) const { return loadu(p + i); }
};

// A constant per channel: element i of a row is channel i % Pixel. Vector
// loads start at multiples of 16 bytes, which the pattern length divides.
template <class T>
struct ConstOperand {
    alignas(16) T pattern[kPatternElems<T>];
    ConstOperand(const T* values, int pixel, int used)
    {
        for (int i = 0; i < kPatternElems<T>; ++i)
            pattern[i] = (i % pixel) < used ? values[i % pixel] : values[0];  // alpha lanes: any valid value
    }
    T at(std::int64_t i) const { return pattern[i % kPatternElems<T>]; }
    __m128i vec(std::int64_t i) const { return _mm_load_si128(reinterpret_cast<const __m128i*>(pattern + i % kPatternElems<T>)); }
};

// ---------------------------------------------------------------- drivers

// One row of n elements: d[i] = op(x[i], y[i]) for the computed channels.
// Four-channel layouts with alpha compute whole vectors and write each alpha
// back with the value read; tails are finished element by element. The
// operation works on a local copy (stores through the destination could
// otherwise alias its parameters and force reloads per vector) whose state,
// such as a zero-divisor flag, goes back to the caller's.
template <class T, int Pixel, int Used, class Op, class X, class Y>
void runRow(Op& state, const X& x, const Y& y, T* d, std::int64_t n)
{
    const Op op = state;
    std::int64_t i = 0;
    if constexpr (Op::kVector) {
        if (op.vectorOk) {
            constexpr int kPerVector = 16 / sizeof(T);
            const __m128i alpha = alphaLanes<sizeof(T)>();
            for (; i + kPerVector <= n; i += kPerVector) {
                __m128i r = op.vec(x.vec(i), y.vec(i));
                if constexpr (Used < Pixel)
                    r = select(alpha, loadu(d + i), r);
                _mm_storeu_si128(reinterpret_cast<__m128i*>(d + i), r);
            }
        }
    }
    for (; i < n; ++i)
        if (Used == Pixel || i % Pixel < Used)
            d[i] = op(x.at(i), y.at(i));
    state = op;
}

// Whole-pixel layouts whose images all lie row after row are one long row.
template <class T, int Pixel, int Used>
bool mergeRows(PvxiSize& roi, int step1, int step2, int dstStep)
{
    const std::int64_t row = rowBytes<T>(roi.width, Pixel);
    if (Used < Pixel || roi.height < 2 || step1 != row || step2 != row || dstStep != row)
        return false;
    if (row * roi.height > INT32_MAX)
        return false;
    roi = PvxiSize{static_cast<int>(static_cast<std::int64_t>(roi.width) * roi.height), 1};
    return true;
}

// x op y over the ROI, both operands images (x, y in operation order).
// Returns the operation's final state.
template <class T, int Pixel, int Used, class Op>
Op runImages(Op op, const T* x, int xStep, const T* y, int yStep, T* d, int dStep, PvxiSize roi)
{
    mergeRows<T, Pixel, Used>(roi, xStep, yStep, dStep);
    const std::int64_t n = static_cast<std::int64_t>(roi.width) * Pixel;
    for (int r = 0; r < roi.height; ++r)
        runRow<T, Pixel, Used>(op, ImageOperand<T>{rowAt(x, xStep, r)}, ImageOperand<T>{rowAt(y, yStep, r)},
                               rowAt(d, dStep, r), n);
    return op;
}

// x op constant over the ROI; values holds one constant per computed channel.
template <class T, int Pixel, int Used, class Op>
Op runConstant(Op op, const T* x, int xStep, const T* values, T* d, int dStep, PvxiSize roi)
{
    const ConstOperand<T> c(values, Pixel, Used);
    mergeRows<T, Pixel, Used>(roi, xStep, xStep, dStep);
    const std::int64_t n = static_cast<std::int64_t>(roi.width) * Pixel;
    for (int r = 0; r < roi.height; ++r)
        runRow<T, Pixel, Used>(op, ImageOperand<T>{rowAt(x, xStep, r)}, c, rowAt(d, dStep, r), n);
    return op;
}

// ---------------------------------------------------------------- hand-over to Set and Copy

// The same path's Set or Copy of the layout (8u, 16u, 16s only): `one` are
// the arguments of the C1 form, `many` those of the others.
#define PVX_ARITH_BY_LAYOUT(op, suffix, one, many)                 \
    if constexpr (Pixel == 1)                                      \
        return PVX_IMPL(pvxi##op##_##suffix##_C1R) one;            \
    else if constexpr (Pixel == 3)                                 \
        return PVX_IMPL(pvxi##op##_##suffix##_C3R) many;           \
    else if constexpr (Used == 4)                                  \
        return PVX_IMPL(pvxi##op##_##suffix##_C4R) many;           \
    else                                                           \
        return PVX_IMPL(pvxi##op##_##suffix##_AC4R) many;

// Fills the computed channels of the ROI with `value`.
template <class T, int Pixel, int Used>
PvxStatus setImage(T value, T* pDst, int dstStep, PvxiSize roi)
{
    const T values[4] = {value, value, value, value};
    if constexpr (std::is_same_v<T, Pvx8u>) {
        PVX_ARITH_BY_LAYOUT(Set, 8u, (value, pDst, dstStep, roi), (values, pDst, dstStep, roi))
    } else if constexpr (std::is_same_v<T, Pvx16u>) {
        PVX_ARITH_BY_LAYOUT(Set, 16u, (value, pDst, dstStep, roi), (values, pDst, dstStep, roi))
    } else {
        static_assert(std::is_same_v<T, Pvx16s>, "Set hand-over for 8u, 16u and 16s");
        PVX_ARITH_BY_LAYOUT(Set, 16s, (value, pDst, dstStep, roi), (values, pDst, dstStep, roi))
    }
}

// Copies the computed channels of the ROI; nothing to do in place.
template <class T, int Pixel, int Used>
PvxStatus copyImage(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roi)
{
    if (pSrc == pDst && srcStep == dstStep)
        return pvxStsOk;
#define PVX_ARITH_COPY_ARGS (pSrc, srcStep, pDst, dstStep, roi)
    if constexpr (std::is_same_v<T, Pvx8u>) {
        PVX_ARITH_BY_LAYOUT(Copy, 8u, PVX_ARITH_COPY_ARGS, PVX_ARITH_COPY_ARGS)
    } else if constexpr (std::is_same_v<T, Pvx16u>) {
        PVX_ARITH_BY_LAYOUT(Copy, 16u, PVX_ARITH_COPY_ARGS, PVX_ARITH_COPY_ARGS)
    } else {
        static_assert(std::is_same_v<T, Pvx16s>, "Copy hand-over for 8u, 16u and 16s");
        PVX_ARITH_BY_LAYOUT(Copy, 16s, PVX_ARITH_COPY_ARGS, PVX_ARITH_COPY_ARGS)
    }
#undef PVX_ARITH_COPY_ARGS
}

#undef PVX_ARITH_BY_LAYOUT

// Whether every computed channel's constant equals v.
template <class T, int Used>
bool allEqual(const T* values, T v)
{
    for (int c = 0; c < Used; ++c)
        if (!(values[c] == v))
            return false;
    return true;
}

// ---------------------------------------------------------------- exported forms

// A family writes its argument checks and its work once, as the static
// template run<T, Pixel, Used> of a driver class taking the out-of-place
// arguments; the manifest binds every form of the family to an object of
// the classes below, whose arguments pick the out-of-place or in-place form.
// Trailing arguments (scale factor, rounding mode) pass through as given, so
// the forms without a scale factor take the driver's default.

// The driver of one layout, out of line: its forms share one copy (a member
// function defined in its class counts as inline, and would be copied into
// every form).
template <class Driver, class T, int Pixel, int Used, class... Args>
[[gnu::noinline]] PvxStatus runDriver(Args... args)
{
    return Driver::template run<T, Pixel, Used>(args...);
}

// The constants of a call: the array, or the address of C1's one value.
template <class T>
const T* constantsOf(const T* values)
{
    return values;
}
template <class T>
const T* constantsOf(const T& value)
{
    return &value;
}

// Two images; in place, the source-and-destination image is source 2 and
// the destination (typed as source 2 is, so both forms run the same copy).
template <class Driver, class T, int Pixel, int Used>
struct ImageForms {
    template <class... Extra>
    PvxStatus operator()(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst, int dstStep,
                         PvxiSize roiSize, Extra... extra) const
    {
        return runDriver<Driver, T, Pixel, Used>(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize, extra...);
    }

    template <class... Extra>
    PvxStatus operator()(const T* pSrc, int srcStep, T* pSrcDst, int srcDstStep, PvxiSize roiSize,
                         Extra... extra) const
    {
        const T* pSrc2 = pSrcDst;
        return runDriver<Driver, T, Pixel, Used>(pSrc, srcStep, pSrc2, srcDstStep, pSrcDst, srcDstStep, roiSize,
                                                 extra...);
    }
};

// An image and a constant (an array, or C1's one value); in place, the
// source-and-destination image is the source and the destination.
template <class Driver, class T, int Pixel, int Used>
struct ConstantForms {
    template <class Values, class... Extra>
    PvxStatus operator()(const T* pSrc, int srcStep, Values values, T* pDst, int dstStep, PvxiSize roiSize,
                         Extra... extra) const
    {
        return runDriver<Driver, T, Pixel, Used>(pSrc, srcStep, constantsOf<T>(values), pDst, dstStep, roiSize,
                                                 extra...);
    }

    template <class Values, class... Extra>
    PvxStatus operator()(Values values, T* pSrcDst, int srcDstStep, PvxiSize roiSize, Extra... extra) const
    {
        const T* pSrc = pSrcDst;
        return runDriver<Driver, T, Pixel, Used>(pSrc, srcDstStep, constantsOf<T>(values), pSrcDst, srcDstStep,
                                                 roiSize, extra...);
    }
};

// ---------------------------------------------------------------- SIMD lane helpers

// Halves-to-even division by 2^s (s >= 1) of 16- or 32-bit lanes, with an
// arithmetic (signed lanes) or logical (unsigned lanes) shift:
// (v + 2^(s-1) - 1 + ((v >> s) & 1)) >> s.
struct LaneRound {
    __m128i count, bias16, bias32, one16, one32;
    explicit LaneRound(int s)
        : count(_mm_cvtsi32_si128(s)),
          bias16(_mm_set1_epi16(static_cast<short>(s >= 1 && s <= 16 ? (1 << (s - 1)) - 1 : 0))),
          bias32(_mm_set1_epi32(s >= 1 && s <= 31 ? (1 << (s - 1)) - 1 : 0)),
          one16(_mm_set1_epi16(1)),
          one32(_mm_set1_epi32(1))
    {
    }
    __m128i sra16(__m128i v) const { return divide<16, true>(v); }
    __m128i srl16(__m128i v) const { return divide<16, false>(v); }
    __m128i sra32(__m128i v) const { return divide<32, true>(v); }
    __m128i srl32(__m128i v) const { return divide<32, false>(v); }

private:
    template <int Bits, bool Signed>
    __m128i shift(__m128i v) const
    {
        if constexpr (Bits == 16)
            return Signed ? _mm_sra_epi16(v, count) : _mm_srl_epi16(v, count);
        else
            return Signed ? _mm_sra_epi32(v, count) : _mm_srl_epi32(v, count);
    }

    template <int Bits, bool Signed>
    __m128i divide(__m128i v) const
    {
        const auto add = [](__m128i a, __m128i b) { return Bits == 16 ? _mm_add_epi16(a, b) : _mm_add_epi32(a, b); };
        const __m128i odd = _mm_and_si128(shift<Bits, Signed>(v), Bits == 16 ? one16 : one32);
        return shift<Bits, Signed>(add(add(v, Bits == 16 ? bias16 : bias32), odd));
    }
};

// Unsigned 16-bit lanes limited to 255 (no unsigned 16-bit minimum before
// SSE4.1: a saturating add pushes every value above 255 to 0xffff).
inline __m128i min255u16(__m128i v)
{
    const __m128i k = _mm_set1_epi16(static_cast<short>(0xff00));
    return _mm_subs_epu16(_mm_adds_epu16(v, k), k);
}

// Signed 32-bit lanes saturated to 0..65535 and packed to 16 bits (there is
// no unsigned 32-to-16 pack before SSE4.1: pack signed around 32768).
inline __m128i packU16(__m128i lo, __m128i hi)
{
    const __m128i bias = _mm_set1_epi32(32768);
    lo = _mm_andnot_si128(_mm_srai_epi32(lo, 31), lo);
    hi = _mm_andnot_si128(_mm_srai_epi32(hi, 31), hi);
    const __m128i packed = _mm_packs_epi32(_mm_sub_epi32(lo, bias), _mm_sub_epi32(hi, bias));
    return _mm_xor_si128(packed, _mm_set1_epi16(static_cast<short>(0x8000)));
}

// Lanes of 16-bit elements widened to 32 bits.
inline __m128i widenLo16u(__m128i v) { return _mm_unpacklo_epi16(v, _mm_setzero_si128()); }
inline __m128i widenHi16u(__m128i v) { return _mm_unpackhi_epi16(v, _mm_setzero_si128()); }
inline __m128i widenLo16s(__m128i v) { return _mm_srai_epi32(_mm_unpacklo_epi16(v, v), 16); }
inline __m128i widenHi16s(__m128i v) { return _mm_srai_epi32(_mm_unpackhi_epi16(v, v), 16); }

inline __m128 asPs(__m128i v) { return _mm_castsi128_ps(v); }
inline __m128i asSi(__m128 v) { return _mm_castps_si128(v); }

}  // namespace

PVX_END
