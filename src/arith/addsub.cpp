// Add, AddC, Sub, SubC: sums and differences of two images or of an image and
// a constant, with the integer scale factor (Sfs) for the integer types.
#include "arith/arith.h"

PVX_BEGIN

namespace {

// x + y or x - y; integer channels (and each part of a complex value) follow
// the Sfs rule: exact result, scaled by 2^-s with halves to even, saturated.
// SIMD for 8u, 16u, 16s at scale factors 0..15 and for 32f.
template <class T, bool Subtract>
struct AddSubOp {
    static constexpr bool kVector = kNarrowInt<T> || std::is_same_v<T, Pvx32f>;
    int s;
    bool vectorOk;
    LaneRound round;

    explicit AddSubOp(int scaleFactor) : s(scaleFactor), vectorOk(scaleFactor >= 0 && scaleFactor <= 15), round(scaleFactor)
    {
    }

    template <class P>
    P part(P x, P y) const
    {
        if constexpr (std::is_floating_point_v<P>)
            return Subtract ? x - y : x + y;
        else
            return scaleSat<P>(Subtract ? std::int64_t{x} - y : std::int64_t{x} + y, s);
    }

    T operator()(T x, T y) const
    {
        if constexpr (kComplex<T>)
            return T{part(x.re, y.re), part(x.im, y.im)};
        else
            return part(x, y);
    }

    __m128i vec(__m128i x, __m128i y) const
    {
        const auto combine32 = [](__m128i a, __m128i b) { return Subtract ? _mm_sub_epi32(a, b) : _mm_add_epi32(a, b); };
        if constexpr (std::is_same_v<T, Pvx8u>) {
            if (s == 0)
                return Subtract ? _mm_subs_epu8(x, y) : _mm_adds_epu8(x, y);
            // Widened to 16 bits: -255..510 and the rounding bias fit.
            const __m128i z = _mm_setzero_si128();
            const auto combine = [](__m128i a, __m128i b) { return Subtract ? _mm_sub_epi16(a, b) : _mm_add_epi16(a, b); };
            const __m128i lo = round.sra16(combine(_mm_unpacklo_epi8(x, z), _mm_unpacklo_epi8(y, z)));
            const __m128i hi = round.sra16(combine(_mm_unpackhi_epi8(x, z), _mm_unpackhi_epi8(y, z)));
            return _mm_packus_epi16(lo, hi);
        } else if constexpr (std::is_same_v<T, Pvx16u>) {
            if (s == 0)
                return Subtract ? _mm_subs_epu16(x, y) : _mm_adds_epu16(x, y);
            const __m128i lo = round.sra32(combine32(widenLo16u(x), widenLo16u(y)));
            const __m128i hi = round.sra32(combine32(widenHi16u(x), widenHi16u(y)));
            return packU16(lo, hi);
        } else if constexpr (std::is_same_v<T, Pvx16s>) {
            if (s == 0)
                return Subtract ? _mm_subs_epi16(x, y) : _mm_adds_epi16(x, y);
            const __m128i lo = round.sra32(combine32(widenLo16s(x), widenLo16s(y)));
            const __m128i hi = round.sra32(combine32(widenHi16s(x), widenHi16s(y)));
            return _mm_packs_epi32(lo, hi);
        } else {
            return asSi(Subtract ? _mm_sub_ps(asPs(x), asPs(y)) : _mm_add_ps(asPs(x), asPs(y)));
        }
    }
};

// Largest magnitude of an exact sum or difference of two narrow integers;
// from zeroFrom() of it on, every result is 0.
template <class T, bool Subtract>
constexpr std::int64_t maxMagnitude()
{
    constexpr std::int64_t lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
    if constexpr (Subtract)
        return hi - lo;
    else
        return -2 * lo > 2 * hi ? -2 * lo : 2 * hi;
}

// ---------------------------------------------------------------- two images

// Add and Sub: pointers, ROI size; only types other than 8u, 16u and 16s
// check steps. A scale factor that rounds every result to 0 fills the
// destination through Set.
template <bool Subtract>
struct AddSubImages {
    template <class T, int Pixel, int Used>
    static PvxStatus run(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst, int dstStep,
                         PvxiSize roiSize, int scaleFactor = 0)
    {
        if (anyNull(pSrc1, pSrc2, pDst))
            return pvxStsNullPtrErr;
        if (roiEmpty(roiSize))
            return pvxStsSizeErr;
        if constexpr (!kNarrowInt<T>)
            if (src1Step < 1 || src2Step < 1 || dstStep < 1)
                return pvxStsStepErr;
        if constexpr (kNarrowInt<T>)
            if (scaleFactor >= zeroFrom(maxMagnitude<T, Subtract>()))
                return setImage<T, Pixel, Used>(0, pDst, dstStep, roiSize);
        const AddSubOp<T, Subtract> op(scaleFactor);
        if (Subtract)  // source 2 - source 1
            runImages<T, Pixel, Used>(op, pSrc2, src2Step, pSrc1, src1Step, pDst, dstStep, roiSize);
        else
            runImages<T, Pixel, Used>(op, pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize);
        return pvxStsOk;
    }
};

template <class T, int Pixel, int Used>
constexpr ImageForms<AddSubImages<false>, T, Pixel, Used> add{};
template <class T, int Pixel, int Used>
constexpr ImageForms<AddSubImages<false>, T, Pixel, Used> addI{};
template <class T, int Pixel, int Used>
constexpr ImageForms<AddSubImages<true>, T, Pixel, Used> sub{};
template <class T, int Pixel, int Used>
constexpr ImageForms<AddSubImages<true>, T, Pixel, Used> subI{};

// ---------------------------------------------------------------- image and constant

// AddC and SubC: pointers (the constant array too), ROI size; no steps.
// Short-cuts for 8u, 16u, 16s, each giving the Sfs rule's result: constants
// 0 at scale 0 copy the source (in place: nothing to do); a scale factor that
// rounds every result to 0 sets 0; adding non-zero constants to unsigned data
// at a scale factor below -(bits - 1) saturates every result, so sets the
// maximum.
template <bool Subtract>
struct AddSubConstant {
    template <class T, int Pixel, int Used>
    static PvxStatus run(const T* pSrc, int srcStep, const T* values, T* pDst, int dstStep, PvxiSize roiSize,
                         int scaleFactor = 0)
    {
        if (anyNull(pSrc, values, pDst))
            return pvxStsNullPtrErr;
        if (roiEmpty(roiSize))
            return pvxStsSizeErr;
        if constexpr (kNarrowInt<T>) {
            if (scaleFactor == 0 && allEqual<T, Used>(values, 0))
                return copyImage<T, Pixel, Used>(pSrc, srcStep, pDst, dstStep, roiSize);
            if (scaleFactor >= zeroFrom(maxMagnitude<T, Subtract>()))
                return setImage<T, Pixel, Used>(0, pDst, dstStep, roiSize);
            if constexpr (!Subtract && std::is_unsigned_v<T>) {
                bool noneZero = true;
                for (int c = 0; c < Used; ++c)
                    noneZero = noneZero && values[c] != 0;
                if (noneZero && scaleFactor < 1 - 8 * static_cast<int>(sizeof(T)))
                    return setImage<T, Pixel, Used>(std::numeric_limits<T>::max(), pDst, dstStep, roiSize);
            }
        }
        runConstant<T, Pixel, Used>(AddSubOp<T, Subtract>(scaleFactor), pSrc, srcStep, values, pDst, dstStep,
                                    roiSize);
        return pvxStsOk;
    }
};

template <class T, int Pixel, int Used>
constexpr ConstantForms<AddSubConstant<false>, T, Pixel, Used> addC{};
template <class T, int Pixel, int Used>
constexpr ConstantForms<AddSubConstant<false>, T, Pixel, Used> addCI{};
template <class T, int Pixel, int Used>
constexpr ConstantForms<AddSubConstant<true>, T, Pixel, Used> subC{};
template <class T, int Pixel, int Used>
constexpr ConstantForms<AddSubConstant<true>, T, Pixel, Used> subCI{};

}  // namespace

PVX_END

#include "arith/addsub.inc"
