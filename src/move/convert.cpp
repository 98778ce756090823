// Convert: changes the element type of an image. Integers widen exactly or
// narrow with saturation, signed values lose their negatives (Rs), floats
// become integers under a caller-chosen rounding mode and, in the Sfs forms,
// a power-of-two scale factor, and one-bit-per-pixel rows unpack into bytes.
//
// Every form goes through one row driver: a row kernel turns N source
// elements into whole 16-byte destination vectors, and the driver decides how
// they are stored (see convertRow). Row tails run the same kernel on a small
// zero-padded copy of the remaining elements, so that tails, heads and bodies
// give bit-identical results and nothing outside the ROI is read or written.
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "core/checks.h"
#include "core/image.h"
#include "core/scale.h"
#include "core/simd.h"
#include "core/streaming.h"
#include "pvxcore.h"
#include "pvxi.h"
#include "pvxi_impl.h"

PVX_BEGIN

namespace {

using Byte = unsigned char;

template <class T>
constexpr bool kIsFloat = std::is_same_v<T, Pvx32f>;

// ---------------------------------------------------------------- floating-point state

// While alive, MXCSR holds a fixed state: every exception masked, no
// flush-to-zero, no denormals-are-zero, and the given rounding control. The
// results therefore depend on the arguments only, never on the caller's
// settings (a caller's unmasked invalid-operation trap is not raised by a
// NaN source either). The caller's MXCSR, flags included, is written back on
// destruction. Only SSE instructions do float arithmetic here (32-bit builds
// use -mfpmath=sse), so the x87 control word is never involved.
class FloatControl {
public:
    static constexpr unsigned kNearest = 0x0000;
    static constexpr unsigned kTowardZero = 0x6000;

    explicit FloatControl(unsigned rounding)
    {
        const unsigned state = 0x1f80u | rounding;
        __asm__ volatile("stmxcsr %0" : "=m"(saved_) : : "memory");
        __asm__ volatile("ldmxcsr %0" : : "m"(state) : "memory");
    }
    ~FloatControl() { __asm__ volatile("ldmxcsr %0" : : "m"(saved_) : "memory"); }
    FloatControl(const FloatControl&) = delete;
    FloatControl& operator=(const FloatControl&) = delete;

private:
    unsigned saved_;
};

// ---------------------------------------------------------------- element kernels
//
// A kernel converts N consecutive source elements into kOut destination
// vectors (N * sizeof(Dst) == 16 * kOut) and reads exactly those N elements.

// All ones in the lanes of Bytes-wide elements that are negative.
template <int Bytes>
inline __m128i negativeLanes(__m128i v)
{
    if constexpr (Bytes == 1)
        return _mm_cmplt_epi8(v, _mm_setzero_si128());
    else if constexpr (Bytes == 2)
        return _mm_srai_epi16(v, 15);
    else
        return _mm_srai_epi32(v, 31);
}

// The Bytes-wide lanes of v at twice the width: low half, high half.
template <int Bytes, bool Signed>
inline void widenLanes(__m128i v, __m128i& lo, __m128i& hi)
{
    const __m128i ext = Signed ? negativeLanes<Bytes>(v) : _mm_setzero_si128();
    if constexpr (Bytes == 1) {
        lo = _mm_unpacklo_epi8(v, ext);
        hi = _mm_unpackhi_epi8(v, ext);
    } else {
        lo = _mm_unpacklo_epi16(v, ext);
        hi = _mm_unpackhi_epi16(v, ext);
    }
}

// 32-bit integer lanes as floats, rounded by MXCSR where inexact. Unsigned
// lanes go in two exact halves so that the one rounding is in the final add.
template <class S>
inline __m128i toFloatLanes(__m128i v)
{
    if constexpr (std::is_same_v<S, Pvx32u>) {
        const __m128 high = _mm_mul_ps(_mm_cvtepi32_ps(_mm_srli_epi32(v, 16)), _mm_set1_ps(65536.0f));
        const __m128 low = _mm_cvtepi32_ps(_mm_and_si128(v, _mm_set1_epi32(0xffff)));
        return _mm_castps_si128(_mm_add_ps(high, low));
    } else {
        return _mm_castps_si128(_mm_cvtepi32_ps(v));
    }
}

// Widening, exact (and to the nearest float for 32-bit sources). With
// ClampNegative (the Rs forms) negative sources become 0 first.
template <class S, class D, bool ClampNegative>
struct Extend {
    using Src = S;
    using Dst = D;
    static constexpr int N = 16 / sizeof(S);
    static constexpr int kOut = sizeof(D) / sizeof(S);
    static constexpr bool kSigned = std::is_signed_v<S> && !ClampNegative;

    void run(const S* s, __m128i* out) const
    {
        __m128i v = loadu(s);
        if constexpr (ClampNegative)
            v = _mm_andnot_si128(negativeLanes<sizeof(S)>(v), v);
        if constexpr (kOut == 1) {
            out[0] = v;
        } else if constexpr (kOut == 2) {
            widenLanes<sizeof(S), kSigned>(v, out[0], out[1]);
        } else {
            __m128i lo, hi;
            widenLanes<1, kSigned>(v, lo, hi);
            widenLanes<2, kSigned>(lo, out[0], out[1]);
            widenLanes<2, kSigned>(hi, out[2], out[3]);
        }
        if constexpr (kIsFloat<D>)
            for (int k = 0; k < kOut; ++k)
                out[k] = toFloatLanes<S>(out[k]);
    }
};

// Integer narrowing to 8 bits with saturation, 16 elements at a time.
template <class S, class D>
struct Narrow {
    static_assert(sizeof(D) == 1 && (sizeof(S) == 4 || std::is_same_v<D, Pvx8u>), "16s, 16u, 32s to 8u; 32s to 8s");
    using Src = S;
    using Dst = D;
    static constexpr int N = 16;
    static constexpr int kOut = 1;

    void run(const S* s, __m128i* out) const
    {
        if constexpr (sizeof(S) == 2) {
            __m128i a = loadu(s), b = loadu(s + 8);
            if constexpr (std::is_unsigned_v<S>) {  // min(x, 255) before the signed pack
                const __m128i top = _mm_set1_epi16(255);
                a = _mm_sub_epi16(a, _mm_subs_epu16(a, top));
                b = _mm_sub_epi16(b, _mm_subs_epu16(b, top));
            }
            out[0] = _mm_packus_epi16(a, b);
        } else {
            const __m128i a = _mm_packs_epi32(loadu(s), loadu(s + 4));
            const __m128i b = _mm_packs_epi32(loadu(s + 8), loadu(s + 12));
            out[0] = std::is_signed_v<D> ? _mm_packs_epi16(a, b) : _mm_packus_epi16(a, b);
        }
    }
};

// 2^e as a float, for e in [-126, 127].
inline float powerOfTwo(int e)
{
    const std::uint32_t bits = static_cast<std::uint32_t>(127 + e) << 23;
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
}

// Float to integer under the MXCSR rounding control (set by the caller of the
// kernel: toward zero for modes 0 and "other", nearest-even for mode 1).
// Scaled multiplies by 2^-scaleFactor first. AddHalf (any mode but 0 and 1)
// adds one half, the float sum rounded toward zero, and truncates: positive
// halves go up (2.5 gives 3), negative values move up by one half before
// truncation (-2.5 and -3.0 both give -2). Below -2^24, where floats lie more
// than 1 apart, the sum rounds to the next float toward zero (-2^31 gives
// -2^31 + 128); only the 32s destination is wide enough to show it. Values
// beyond the destination's range saturate. NaN becomes the integer
// indefinite value 0x80000000 in the conversion, which saturates like any
// large negative number: every destination type's minimum (0 for unsigned).
template <class D, bool AddHalf, bool Scaled>
struct FloatToInt {
    using Src = Pvx32f;
    using Dst = D;
    static constexpr int N = sizeof(D) == 4 ? 4 : 16 / sizeof(D);
    static constexpr int kOut = 1;

    // The scale 2^-scaleFactor as two normal floats whose product it is, so
    // that factors beyond a float's exponent range need no special case.
    // Beyond +-252 every finite result is already 0 or saturated.
    __m128 factor1 = _mm_set1_ps(1.0f), factor2 = _mm_set1_ps(1.0f);

    explicit FloatToInt(int scaleFactor = 0)
    {
        const int s = scaleFactor < -252 ? -252 : scaleFactor > 252 ? 252 : scaleFactor;
        factor1 = _mm_set1_ps(powerOfTwo(-(s / 2)));
        factor2 = _mm_set1_ps(powerOfTwo(-(s - s / 2)));
    }

    // Four values as 32-bit lanes ready for packing to D.
    __m128i lanes(const float* s) const
    {
        __m128 x = _mm_loadu_ps(s);
        if constexpr (Scaled)  // exact unless it under- or overflows, where the result is 0 or saturated anyway
            x = _mm_mul_ps(_mm_mul_ps(x, factor1), factor2);
        if constexpr (AddHalf)
            x = _mm_add_ps(x, _mm_set1_ps(0.5f));
        if constexpr (std::is_same_v<D, Pvx32s>) {
            // 2^31 and above convert to 0x80000000: flip those to 0x7fffffff.
            const __m128i over = _mm_castps_si128(_mm_cmpge_ps(x, _mm_set1_ps(2147483648.0f)));
            return _mm_xor_si128(_mm_cvtps_epi32(x), over);
        } else if constexpr (std::is_same_v<D, Pvx32u>) {
            x = _mm_max_ps(x, _mm_setzero_ps());  // NaN gives the second operand, 0
            const __m128 two31 = _mm_set1_ps(2147483648.0f);
            const __m128 high = _mm_cmpge_ps(x, two31);  // [2^31, 2^32) holds only integers
            const __m128i r = _mm_cvtps_epi32(_mm_sub_ps(x, _mm_and_ps(high, two31)));
            const __m128i over = _mm_castps_si128(_mm_cmpge_ps(x, _mm_set1_ps(4294967296.0f)));
            return _mm_or_si128(_mm_xor_si128(r, _mm_slli_epi32(_mm_castps_si128(high), 31)), over);
        } else if constexpr (std::is_same_v<D, Pvx16u>) {
            // Clamped to [0, 65535] (NaN to 0), then offset for the signed pack.
            x = _mm_min_ps(_mm_set1_ps(65535.0f), _mm_max_ps(x, _mm_setzero_ps()));
            return _mm_sub_epi32(_mm_cvtps_epi32(x), _mm_set1_epi32(32768));
        } else {
            // Clamped above (min keeps a NaN second operand), saturated below
            // by the signed packs.
            constexpr float top = std::is_same_v<D, Pvx8u> ? 255.0f : std::is_same_v<D, Pvx8s> ? 127.0f : 32767.0f;
            return _mm_cvtps_epi32(_mm_min_ps(_mm_set1_ps(top), x));
        }
    }

    void run(const float* s, __m128i* out) const
    {
        if constexpr (sizeof(D) == 4) {
            out[0] = lanes(s);
        } else if constexpr (std::is_same_v<D, Pvx16u>) {
            out[0] = _mm_xor_si128(_mm_packs_epi32(lanes(s), lanes(s + 4)), _mm_set1_epi16(-32768));
        } else if constexpr (std::is_same_v<D, Pvx16s>) {
            out[0] = _mm_packs_epi32(lanes(s), lanes(s + 4));
        } else {
            const __m128i a = _mm_packs_epi32(lanes(s), lanes(s + 4));
            const __m128i b = _mm_packs_epi32(lanes(s + 8), lanes(s + 12));
            out[0] = std::is_same_v<D, Pvx8u> ? _mm_packus_epi16(a, b) : _mm_packs_epi16(a, b);
        }
    }
};

// Rounding of the integer Sfs forms, applied to the exact quotient
// q = v / 2^scaleFactor: toward zero, to nearest with halves to even (the
// library's scale-factor rule), or, for any other mode, to nearest with
// halves away from zero (pvxRndFinancial). The float forms' "add one half,
// then truncate" is not carried over: it would move exact negative results
// up by one (-3 would give -2), which an integer conversion must not do.
enum IntRounding { kIntTowardZero, kIntHalfEven, kIntHalfAway };

// v * 2^-shift rounded by the mode; shift >= -31 and |v| <= 2^32 keep it exact.
template <int Mode>
inline std::int64_t scaleRound(std::int64_t v, int shift)
{
    if (shift <= 0)
        return v * (std::int64_t{1} << -shift);
    if constexpr (Mode == kIntHalfEven)
        return scaleRoundHalfEven(v, shift);
    const std::int64_t magnitude = v < 0 ? -v : v;
    const std::int64_t r = (magnitude + (Mode == kIntHalfAway ? std::int64_t{1} << (shift - 1) : 0)) >> shift;
    return v < 0 ? -r : r;
}

// Integer to narrower integer with a scale factor, element by element.
template <class S, class D, int Mode>
struct ScaledInteger {
    using Src = S;
    using Dst = D;
    static constexpr int N = 16 / sizeof(D);
    static constexpr int kOut = 1;
    int shift;

    void run(const S* s, __m128i* out) const
    {
        alignas(16) D r[N];
        for (int i = 0; i < N; ++i)
            r[i] = saturateTo<D>(scaleRound<Mode>(s[i], shift));
        out[0] = _mm_load_si128(reinterpret_cast<const __m128i*>(r));
    }
};

// ---------------------------------------------------------------- row kernels
//
// A row kernel yields the destination vectors of elements x .. x+N-1 of one
// row (block), or of its last `count` < N elements (partial, lanes past
// `count` unspecified), reading only the source those elements come from.

template <class Core>
struct ElementRow {
    using Dst = typename Core::Dst;
    using Src = typename Core::Src;
    static constexpr int N = Core::N;
    static constexpr int kOut = Core::kOut;
    const Core& core;
    const Src* s;

    // The source is prefetched 1 KiB ahead (harmless past the row's end:
    // prefetches never fault); large float sources read a few percent faster.
    void block(std::ptrdiff_t x, __m128i* out) const
    {
        _mm_prefetch(reinterpret_cast<const char*>(s + x) + 1024, _MM_HINT_T0);
        core.run(s + x, out);
    }
    void partial(std::ptrdiff_t x, int count, __m128i* out) const
    {
        alignas(16) Src tail[N] = {};
        std::memcpy(tail, s + x, static_cast<std::size_t>(count) * sizeof(Src));
        core.run(tail, out);
    }
};

// One row of a bit-packed image: pixel x is bit (phase + x) counted from the
// most significant bit of `bits[0]`; a set bit gives 255, a clear one 0.
struct BitRow {
    using Dst = Pvx8u;
    static constexpr int N = 16;
    static constexpr int kOut = 1;
    const Byte* bits;
    int phase;

    // 16 pixels, first in bit 15 of w, as 16 bytes.
    static __m128i expand(std::uint32_t w)
    {
        const __m128i both = _mm_cvtsi32_si128(static_cast<int>(((w >> 8) & 0xff) | ((w & 0xff) << 8)));
        const __m128i spread = _mm_shuffle_epi8(both, _mm_setr_epi8(0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1));
        const __m128i bit = _mm_setr_epi8(-128, 64, 32, 16, 8, 4, 2, 1, -128, 64, 32, 16, 8, 4, 2, 1);
        return _mm_cmpeq_epi8(_mm_and_si128(spread, bit), bit);
    }
    // 16 pixels span two bytes, or three when they do not start on a byte.
    void block(std::ptrdiff_t x, __m128i* out) const
    {
        const std::ptrdiff_t p = phase + x;
        const Byte* b = bits + (p >> 3);
        const int shift = static_cast<int>(p & 7);
        const std::uint32_t w = (std::uint32_t{b[0]} << 16) | (std::uint32_t{b[1]} << 8) | (shift ? b[2] : 0u);
        out[0] = expand(w >> (8 - shift));
    }
    void partial(std::ptrdiff_t x, int count, __m128i* out) const
    {
        std::uint32_t w = 0;
        for (int i = 0; i < count; ++i) {
            const std::ptrdiff_t p = phase + x + i;
            w |= ((bits[p >> 3] >> (7 - (p & 7))) & 1u) << (15 - i);
        }
        out[0] = expand(w);
    }
};

// ---------------------------------------------------------------- row and image drivers

enum class Put { Unaligned, Stream, KeepAlpha };

template <Put P>
inline void put(void* d, __m128i v, __m128i alpha)
{
    __m128i* p = static_cast<__m128i*>(d);
    if constexpr (P == Put::Stream)
        _mm_stream_si128(p, v);
    else if constexpr (P == Put::KeepAlpha)  // the alpha element is written back as read
        _mm_storeu_si128(p, select(alpha, _mm_loadu_si128(p), v));
    else
        _mm_storeu_si128(p, v);
}

// Elements x0 .. x0+n-1 of a row into d[0 .. n-1]: whole blocks, then the
// rest through a small buffer. KeepAlpha needs blocks that start on a pixel
// (x0 = 0; N is a multiple of 4).
template <Put P, class R>
void produce(const R& rowArgument, std::ptrdiff_t x0, std::ptrdiff_t n, typename R::Dst* d)
{
    using Dst = typename R::Dst;
    const R row = rowArgument;  // a local copy: the stores below cannot change it
    constexpr int kPerVector = 16 / sizeof(Dst);
    const __m128i alpha = P == Put::KeepAlpha ? alphaLanes<sizeof(Dst)>() : _mm_setzero_si128();
    __m128i v[R::kOut];
    std::ptrdiff_t i = 0;
    for (; i + R::N <= n; i += R::N) {
        row.block(x0 + i, v);
        for (int k = 0; k < R::kOut; ++k)
            put<P>(d + i + k * kPerVector, v[k], alpha);
    }
    if (i < n) {
        const std::size_t rest = static_cast<std::size_t>(n - i) * sizeof(Dst);
        alignas(16) Dst tail[R::N] = {};
        row.partial(x0 + i, static_cast<int>(n - i), v);
        if (P == Put::KeepAlpha)
            std::memcpy(tail, d + i, rest);
        for (int k = 0; k < R::kOut; ++k)
            put<P == Put::KeepAlpha ? P : Put::Unaligned>(tail + k * kPerVector, v[k], alpha);
        std::memcpy(d + i, tail, rest);
    }
}

// How the rows of one image are stored.
enum class Rows { Cached, Streamed, KeepAlpha };

// Streamed rows first bring the destination to a 16-byte boundary (when its
// elements are aligned at all; otherwise they are stored as cached rows).
template <class R>
void convertRow(const R& row, typename R::Dst* d, std::ptrdiff_t n, Rows how)
{
    using Dst = typename R::Dst;
    if (how == Rows::KeepAlpha) {
        produce<Put::KeepAlpha>(row, 0, n, d);
    } else if (how == Rows::Streamed && reinterpret_cast<std::uintptr_t>(d) % sizeof(Dst) == 0) {
        std::ptrdiff_t head = static_cast<std::ptrdiff_t>(bytesToAlignment(d, 16) / sizeof(Dst));
        head = head < n ? head : n;
        produce<Put::Unaligned>(row, 0, head, d);
        produce<Put::Stream>(row, head, n - head, d + head);
    } else {
        produce<Put::Unaligned>(row, 0, n, d);
    }
}

// Cache-bypassing stores by Set's rule, on the bytes read and written.
Rows storesFor(std::int64_t bytesMoved)
{
    return bypassesCache(bytesMoved) ? Rows::Streamed : Rows::Cached;
}

// Converts the ROI with an element kernel. Contiguous images are one row.
// AC4 images are not streamed: their stores read the destination anyway.
template <class Core>
void convertImage(const Core& core, const typename Core::Src* pSrc, int srcStep, typename Core::Dst* pDst,
                  int dstStep, PvxiSize roiSize, int channels, bool keepAlpha)
{
    using Src = typename Core::Src;
    using Dst = typename Core::Dst;
    const PvxiSize roi = mergeContiguousRows(roiSize, rowBytes<Src>(roiSize.width, channels), srcStep,
                                             rowBytes<Dst>(roiSize.width, channels), dstStep);
    const std::ptrdiff_t n = static_cast<std::ptrdiff_t>(roi.width) * channels;
    const Rows how = keepAlpha ? Rows::KeepAlpha
                               : storesFor(static_cast<std::int64_t>(n) * roi.height * (sizeof(Src) + sizeof(Dst)));
    for (int y = 0; y < roi.height; ++y)
        convertRow(ElementRow<Core>{core, rowAt(pSrc, srcStep, y)}, rowAt(pDst, dstStep, y), n, how);
    if (how == Rows::Streamed)
        _mm_sfence();
}

// Float to integer by the rounding mode: 0 toward zero, 1 nearest-even, any
// other value adds one half under truncation (not checked: deliberately
// accepted). The rounding control is the processor's, set for the call.
template <class D, bool Scaled>
void floatToIntImage(const Pvx32f* pSrc, int srcStep, D* pDst, int dstStep, PvxiSize roi, int channels,
                     bool keepAlpha, int roundMode, int scaleFactor)
{
    const FloatControl control(roundMode == 1 ? FloatControl::kNearest : FloatControl::kTowardZero);
    if (roundMode == 0 || roundMode == 1)
        convertImage(FloatToInt<D, false, Scaled>(scaleFactor), pSrc, srcStep, pDst, dstStep, roi, channels,
                     keepAlpha);
    else
        convertImage(FloatToInt<D, true, Scaled>(scaleFactor), pSrc, srcStep, pDst, dstStep, roi, channels,
                     keepAlpha);
}

// ---------------------------------------------------------------- exported forms

// Widening and integer narrowing (C1R, C3R, C4R; AC4R keeps the alpha).
template <class S, class D, int Channels, bool KeepAlpha>
PvxStatus convertPixels(const S* pSrc, int srcStep, D* pDst, int dstStep, PvxiSize roiSize)
{
    if (anyNull(pSrc, pDst))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (srcStep < 1 || dstStep < 1)
        return pvxStsStepErr;
    using Core = std::conditional_t<(kIsFloat<D> || sizeof(D) > sizeof(S)), Extend<S, D, false>, Narrow<S, D>>;
    if constexpr (kIsFloat<D> && sizeof(S) == 4) {
        // 32-bit integers above 2^24 round to the nearest float, whatever
        // the caller's rounding control.
        const FloatControl control(FloatControl::kNearest);
        convertImage(Core{}, pSrc, srcStep, pDst, dstStep, roiSize, Channels, KeepAlpha);
    } else {
        convertImage(Core{}, pSrc, srcStep, pDst, dstStep, roiSize, Channels, KeepAlpha);
    }
    return pvxStsOk;
}

template <class D, int Channels, bool KeepAlpha>
PvxStatus convertFloat(const Pvx32f* pSrc, int srcStep, D* pDst, int dstStep, PvxiSize roiSize, int roundMode)
{
    if (anyNull(pSrc, pDst))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (srcStep < 1 || dstStep < 1)
        return pvxStsStepErr;
    floatToIntImage<D, false>(pSrc, srcStep, pDst, dstStep, roiSize, Channels, KeepAlpha, roundMode, 0);
    return pvxStsOk;
}

// Rs: negative values become 0. Steps are not checked.
template <class S, class D>
PvxStatus convertNonNegative(const S* pSrc, int srcStep, D* pDst, int dstStep, PvxiSize roiSize)
{
    if (anyNull(pSrc, pDst))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    convertImage(Extend<S, D, true>{}, pSrc, srcStep, pDst, dstStep, roiSize, 1, false);
    return pvxStsOk;
}

// Float Sfs: the value times 2^-scaleFactor (exact in single precision up to
// under- and overflow, which cannot change the result), rounded by the mode,
// saturated. Steps are not checked.
template <class D>
PvxStatus convertFloatScaled(const Pvx32f* pSrc, int srcStep, D* pDst, int dstStep, PvxiSize roiSize, int roundMode,
                             int scaleFactor)
{
    if (anyNull(pSrc, pDst))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    floatToIntImage<D, true>(pSrc, srcStep, pDst, dstStep, roiSize, 1, false, roundMode, scaleFactor);
    return pvxStsOk;
}

// The same over the source's own memory: each block is read before it is
// written, and the rows go in order.
PvxStatus convertFloatScaledInPlace(Pvx32u* pSrcDst, int srcDstStep, PvxiSize roiSize, int roundMode, int scaleFactor)
{
    return convertFloatScaled<Pvx32u>(reinterpret_cast<const Pvx32f*>(pSrcDst), srcDstStep, pSrcDst, srcDstStep,
                                      roiSize, roundMode, scaleFactor);
}

// Fills the destination with 0 through the same path's Set.
template <class D>
PvxStatus setZero(D* pDst, int dstStep, PvxiSize roi)
{
    if constexpr (sizeof(D) == 1)
        return PVX_IMPL(pvxiSet_8u_C1R)(0, reinterpret_cast<Pvx8u*>(pDst), dstStep, roi);
    else if constexpr (std::is_same_v<D, Pvx16u>)
        return PVX_IMPL(pvxiSet_16u_C1R)(0, pDst, dstStep, roi);
    else if constexpr (std::is_same_v<D, Pvx16s>)
        return PVX_IMPL(pvxiSet_16s_C1R)(0, pDst, dstStep, roi);
    else
        return PVX_IMPL(pvxiSet_32s_C1R)(0, pDst, dstStep, roi);
}

// Integer Sfs: v / 2^scaleFactor rounded by the mode (see IntRounding),
// saturated. A factor above the source's width in bits makes every result 0
// (|v| / 2^scaleFactor < 1/2), which Set writes. Below -31 every non-zero
// result saturates already, so the factor is clamped there. Steps are not
// checked.
template <class S, class D>
PvxStatus convertIntegerScaled(const S* pSrc, int srcStep, D* pDst, int dstStep, PvxiSize roiSize, int roundMode,
                               int scaleFactor)
{
    if (anyNull(pSrc, pDst))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (scaleFactor > static_cast<int>(8 * sizeof(S)))
        return setZero(pDst, dstStep, roiSize);
    const int shift = scaleFactor < -31 ? -31 : scaleFactor;
    if (roundMode == 0)
        convertImage(ScaledInteger<S, D, kIntTowardZero>{shift}, pSrc, srcStep, pDst, dstStep, roiSize, 1, false);
    else if (roundMode == 1)
        convertImage(ScaledInteger<S, D, kIntHalfEven>{shift}, pSrc, srcStep, pDst, dstStep, roiSize, 1, false);
    else
        convertImage(ScaledInteger<S, D, kIntHalfAway>{shift}, pSrc, srcStep, pDst, dstStep, roiSize, 1, false);
    return pvxStsOk;
}

// 1u to 8u. An offset of 8 or more counts on into the following bytes:
// offset 10 is bit 2 (value 0x20) of the second byte.
PvxStatus unpackBits(const Pvx8u* pSrc, int srcStep, int srcBitOffset, Pvx8u* pDst, int dstStep, PvxiSize roiSize)
{
    if (anyNull(pSrc, pDst))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (srcStep < 1 || dstStep < 1)
        return pvxStsStepErr;
    if (srcBitOffset < 0)  // the offset counts as a size
        return pvxStsSizeErr;
    const Pvx8u* first = pSrc + srcBitOffset / 8;
    const std::int64_t width = roiSize.width;
    const Rows how = storesFor((width + (width + 7) / 8) * roiSize.height);
    for (int y = 0; y < roiSize.height; ++y)
        convertRow(BitRow{rowAt(first, srcStep, y), srcBitOffset % 8}, rowAt(pDst, dstStep, y), width, how);
    if (how == Rows::Streamed)
        _mm_sfence();
    return pvxStsOk;
}

}  // namespace

PVX_END

#include "move/convert.inc"
