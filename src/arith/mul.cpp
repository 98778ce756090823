// Mul, MulC, MulScale, MulCScale: products of two images or of an image and a
// constant, with the integer scale factor (Sfs), and the normalised products
// that divide by the type's maximum.
#include "arith/arith.h"

PVX_BEGIN

namespace {

// x * y; integer channels follow the Sfs rule on the exact product. Complex
// values: (ac - bd) + (ad + bc)i, the parts exact in 64 bits (32sc: ad + bc
// reaches 2^63 only as the single sum 2^62 + 2^62, handled apart). SIMD for
// 8u at scale factors 0..8, 16u and 16s at 0..16, and 32f.
template <class T>
struct MulOp {
    static constexpr bool kVector = kNarrowInt<T> || std::is_same_v<T, Pvx32f>;
    int s;
    bool vectorOk;
    LaneRound round;

    explicit MulOp(int scaleFactor)
        : s(scaleFactor),
          vectorOk(scaleFactor >= 0 && scaleFactor <= (std::is_same_v<T, Pvx8u> ? 8 : 16)),
          round(scaleFactor)
    {
    }

    // The Sfs rule on p + q, exact even where the sum leaves 64 bits.
    template <class P>
    P sum(std::int64_t p, std::int64_t q) const
    {
        std::int64_t v;
        if (!__builtin_add_overflow(p, q, &v))
            return scaleSat<P>(v, s);
        // Only 2^62 + 2^62 overflows: 2^63 scaled.
        if (s <= 0)
            return std::numeric_limits<P>::max();
        return s >= 64 ? P(0) : saturateTo<P>(std::int64_t{1} << (63 - s));
    }

    T operator()(T x, T y) const
    {
        if constexpr (std::is_same_v<T, Pvx32fc>) {
            return T{x.re * y.re - x.im * y.im, x.re * y.im + x.im * y.re};
        } else if constexpr (kComplex<T>) {
            using P = Part<T>;
            const std::int64_t a = x.re, b = x.im, c = y.re, d = y.im;
            return T{sum<P>(a * c, -(b * d)), sum<P>(a * d, b * c)};
        } else if constexpr (std::is_floating_point_v<T>) {
            return x * y;
        } else {
            return scaleSat<T>(std::int64_t{x} * y, s);
        }
    }

    __m128i vec(__m128i x, __m128i y) const
    {
        if constexpr (std::is_same_v<T, Pvx8u>) {
            // Products of widened bytes are exact unsigned 16-bit lanes.
            const __m128i z = _mm_setzero_si128();
            __m128i lo = _mm_mullo_epi16(_mm_unpacklo_epi8(x, z), _mm_unpacklo_epi8(y, z));
            __m128i hi = _mm_mullo_epi16(_mm_unpackhi_epi8(x, z), _mm_unpackhi_epi8(y, z));
            if (s == 0) {
                lo = min255u16(lo);
                hi = min255u16(hi);
            } else {  // s <= 8: the rounding bias cannot carry out of 16 bits
                lo = round.srl16(lo);
                hi = round.srl16(hi);
            }
            return _mm_packus_epi16(lo, hi);
        } else if constexpr (std::is_same_v<T, Pvx16u>) {
            const __m128i lo = _mm_mullo_epi16(x, y), hi = _mm_mulhi_epu16(x, y);
            if (s == 0)  // any high half saturates
                return _mm_or_si128(lo, _mm_xor_si128(_mm_cmpeq_epi16(hi, _mm_setzero_si128()), _mm_set1_epi16(-1)));
            // Unsigned 32-bit products; with s <= 16 the bias cannot carry
            // out and the results stay below 2^31.
            return packU16(round.srl32(_mm_unpacklo_epi16(lo, hi)), round.srl32(_mm_unpackhi_epi16(lo, hi)));
        } else if constexpr (std::is_same_v<T, Pvx16s>) {
            const __m128i lo = _mm_mullo_epi16(x, y), hi = _mm_mulhi_epi16(x, y);
            __m128i p0 = _mm_unpacklo_epi16(lo, hi), p1 = _mm_unpackhi_epi16(lo, hi);
            if (s != 0) {
                p0 = round.sra32(p0);
                p1 = round.sra32(p1);
            }
            return _mm_packs_epi32(p0, p1);
        } else {
            return asSi(_mm_mul_ps(asPs(x), asPs(y)));
        }
    }
};

// floor(x * y / max): (p + 1 + (p >> 8)) >> 8 for 8u, the same with 16 for
// 16u, p being the exact product. The result is truncated, not rounded.
template <class T>
struct MulScaleOp {
    static constexpr bool kVector = true;
    bool vectorOk = true;

    T operator()(T x, T y) const
    {
        constexpr int kBits = 8 * sizeof(T);
        const std::uint32_t p = static_cast<std::uint32_t>(x) * y;
        return static_cast<T>((p + 1 + (p >> kBits)) >> kBits);
    }

    __m128i vec(__m128i x, __m128i y) const
    {
        if constexpr (std::is_same_v<T, Pvx8u>) {
            const __m128i z = _mm_setzero_si128(), one = _mm_set1_epi16(1);
            const auto norm = [one](__m128i p) {
                return _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(p, one), _mm_srli_epi16(p, 8)), 8);
            };
            const __m128i lo = norm(_mm_mullo_epi16(_mm_unpacklo_epi8(x, z), _mm_unpacklo_epi8(y, z)));
            const __m128i hi = norm(_mm_mullo_epi16(_mm_unpackhi_epi8(x, z), _mm_unpackhi_epi8(y, z)));
            return _mm_packus_epi16(lo, hi);
        } else {
            // p = hi:lo; the result is hi plus the carry of lo + hi + 1.
            const __m128i lo = _mm_mullo_epi16(x, y), hi = _mm_mulhi_epu16(x, y), one = _mm_set1_epi32(1);
            const __m128i c0 = _mm_srli_epi32(_mm_add_epi32(_mm_add_epi32(widenLo16u(lo), widenLo16u(hi)), one), 16);
            const __m128i c1 = _mm_srli_epi32(_mm_add_epi32(_mm_add_epi32(widenHi16u(lo), widenHi16u(hi)), one), 16);
            return _mm_add_epi16(hi, _mm_packs_epi32(c0, c1));
        }
    }
};

// Largest magnitude of an exact product of two narrow integers.
template <class T>
constexpr std::int64_t maxProduct()
{
    constexpr std::int64_t lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
    return lo * lo > hi * hi ? lo * lo : hi * hi;
}

// ---------------------------------------------------------------- Mul, MulC

// Mul: pointers, ROI size; only types other than 8u, 16u and 16s check
// steps. A scale factor that rounds every product to 0 sets 0.
struct MulImages {
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
            if (scaleFactor >= zeroFrom(maxProduct<T>()))
                return setImage<T, Pixel, Used>(0, pDst, dstStep, roiSize);
        runImages<T, Pixel, Used>(MulOp<T>(scaleFactor), pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize);
        return pvxStsOk;
    }
};

template <class T, int Pixel, int Used>
constexpr ImageForms<MulImages, T, Pixel, Used> mul{};
template <class T, int Pixel, int Used>
constexpr ImageForms<MulImages, T, Pixel, Used> mulI{};

// x * c saturated to 255, for 8u at scale factor 0 with every constant at most
// 127: PMADDUBSW multiplies the even and the odd bytes by their constants
// (the other byte of each pair by 0) into 16-bit products of at most
// 255 * 127, which PACKUSWB saturates exactly; the two halves are then
// interleaved back. About half the instructions of the widening multiply.
struct MulSmallConstant8u {
    static constexpr bool kVector = true;
    bool vectorOk = true;

    Pvx8u operator()(Pvx8u x, Pvx8u c) const
    {
        const unsigned p = unsigned{x} * c;
        return static_cast<Pvx8u>(p > 255 ? 255 : p);
    }

    __m128i vec(__m128i x, __m128i c) const
    {
        const __m128i lowBytes = _mm_set1_epi16(0x00ff);
        const __m128i even = _mm_maddubs_epi16(x, _mm_and_si128(c, lowBytes));
        const __m128i odd = _mm_maddubs_epi16(x, _mm_andnot_si128(lowBytes, c));
        const __m128i packed = _mm_packus_epi16(even, odd);  // even results, then odd ones
        return _mm_unpacklo_epi8(packed, _mm_srli_si128(packed, 8));
    }
};

// MulC: pointers (the constant array too), ROI size; no steps. Short-cuts
// for 8u, 16u, 16s, each the Sfs rule's result: constants 0 set 0 at any
// scale factor; constants 1 at scale 0 copy (in place: nothing to do); a
// scale factor that rounds every product to 0 sets 0.
struct MulConstant {
    template <class T, int Pixel, int Used>
    static PvxStatus run(const T* pSrc, int srcStep, const T* values, T* pDst, int dstStep, PvxiSize roiSize,
                         int scaleFactor = 0)
    {
        if (anyNull(pSrc, values, pDst))
            return pvxStsNullPtrErr;
        if (roiEmpty(roiSize))
            return pvxStsSizeErr;
        if constexpr (kNarrowInt<T>) {
            if (allEqual<T, Used>(values, 0) || scaleFactor >= zeroFrom(maxProduct<T>()))
                return setImage<T, Pixel, Used>(0, pDst, dstStep, roiSize);
            if (scaleFactor == 0 && allEqual<T, Used>(values, 1))
                return copyImage<T, Pixel, Used>(pSrc, srcStep, pDst, dstStep, roiSize);
        }
        if constexpr (std::is_same_v<T, Pvx8u>) {
            bool small = true;
            for (int c = 0; c < Used; ++c)
                small &= values[c] <= 127;
            if (scaleFactor == 0 && small) {
                runConstant<T, Pixel, Used>(MulSmallConstant8u{}, pSrc, srcStep, values, pDst, dstStep, roiSize);
                return pvxStsOk;
            }
        }
        runConstant<T, Pixel, Used>(MulOp<T>(scaleFactor), pSrc, srcStep, values, pDst, dstStep, roiSize);
        return pvxStsOk;
    }
};

template <class T, int Pixel, int Used>
constexpr ConstantForms<MulConstant, T, Pixel, Used> mulC{};
template <class T, int Pixel, int Used>
constexpr ConstantForms<MulConstant, T, Pixel, Used> mulCI{};

// ---------------------------------------------------------------- MulScale, MulCScale

// MulScale: pointers, then steps, then the ROI size (steps before the size).
struct MulScaleImages {
    template <class T, int Pixel, int Used>
    static PvxStatus run(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst, int dstStep,
                         PvxiSize roiSize)
    {
        if (anyNull(pSrc1, pSrc2, pDst))
            return pvxStsNullPtrErr;
        if (src1Step < 1 || src2Step < 1 || dstStep < 1)
            return pvxStsStepErr;
        if (roiEmpty(roiSize))
            return pvxStsSizeErr;
        runImages<T, Pixel, Used>(MulScaleOp<T>(), pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize);
        return pvxStsOk;
    }
};

template <class T, int Pixel, int Used>
constexpr ImageForms<MulScaleImages, T, Pixel, Used> mulScale{};
template <class T, int Pixel, int Used>
constexpr ImageForms<MulScaleImages, T, Pixel, Used> mulScaleI{};

// MulCScale: like MulC, pointers then ROI size, no steps.
struct MulScaleConstant {
    template <class T, int Pixel, int Used>
    static PvxStatus run(const T* pSrc, int srcStep, const T* values, T* pDst, int dstStep, PvxiSize roiSize)
    {
        if (anyNull(pSrc, values, pDst))
            return pvxStsNullPtrErr;
        if (roiEmpty(roiSize))
            return pvxStsSizeErr;
        runConstant<T, Pixel, Used>(MulScaleOp<T>(), pSrc, srcStep, values, pDst, dstStep, roiSize);
        return pvxStsOk;
    }
};

template <class T, int Pixel, int Used>
constexpr ConstantForms<MulScaleConstant, T, Pixel, Used> mulCScale{};
template <class T, int Pixel, int Used>
constexpr ConstantForms<MulScaleConstant, T, Pixel, Used> mulCScaleI{};

}  // namespace

PVX_END

#include "arith/mul.inc"
