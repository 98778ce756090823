// Set: writes a constant (one value, or one per channel) into every pixel of
// the ROI, into selected channels, or into the pixels a mask selects.
#include <cstdint>
#include <cstring>

#include "core/checks.h"
#include "core/image.h"
#include "core/simd.h"
#include "core/string_ops.h"
#include "core/streaming.h"
#include "pvxcore.h"
#include "pvxi.h"

PVX_BEGIN

namespace {

using Byte = unsigned char;

// A pixel value repeated over 96 bytes. Every pixel size used here (1, 2, 3,
// 4, 6, 8, 12 or 16 bytes) divides 48, so any 48-byte window starting below
// byte 48 is a whole number of periods: three 16-byte vectors that repeat.
struct FillPattern {
    alignas(16) Byte bytes[96];
    int period;

    template <class T>
    FillPattern(const T* pixel, int elements) : period(elements * static_cast<int>(sizeof(T)))
    {
        for (int i = 0; i < 96; i += period)
            std::memcpy(bytes + i, pixel, static_cast<std::size_t>(period));
    }
};

// Fills n bytes with the pattern, starting at its phase 0, with vector
// stores: bytewise up to an aligned destination (16 bytes, or a cache line
// when streaming), then 48-byte blocks of three vectors, then the tail.
template <bool Stream>
void fillRowVectors(Byte* d, std::size_t n, const FillPattern& p)
{
    std::size_t head = bytesToAlignment(d, Stream ? 64 : 16);
    if (head > n)
        head = n;
    for (std::size_t i = 0; i < head; ++i)
        d[i] = p.bytes[i % p.period];
    d += head;
    n -= head;
    const std::size_t phase = head % p.period;
    const __m128i v0 = loadu(p.bytes + phase), v1 = loadu(p.bytes + phase + 16), v2 = loadu(p.bytes + phase + 32);
    const auto put = [](Byte* q, __m128i v) { Stream ? storeStream(q, v) : storea(q, v); };
    for (; n >= 48; n -= 48, d += 48) {
        put(d, v0);
        put(d + 16, v1);
        put(d + 32, v2);
    }
    // Fewer than 48 bytes remain, starting again at `phase`.
    const Byte* tail = p.bytes + phase;
    if (n >= 16) {
        put(d, v0);
        d += 16, n -= 16, tail += 16;
    }
    if (n >= 16) {
        put(d, v1);
        d += 16, n -= 16, tail += 16;
    }
    for (std::size_t i = 0; i < n; ++i)
        d[i] = tail[i];
}

// The first bytes of a long row are filled with vector stores and then
// repeated over the rest with a forward string move: a multiple of every
// pattern period (48 bytes) and of the cache line.
constexpr std::size_t kSeedBytes = 3072;

// Fills n bytes with the pattern from its phase 0. Long rows with ordinary
// stores go through string instructions (see core/string_ops.h): a byte or
// dword fill for patterns that repeat every 4 bytes, otherwise a seed that a
// forward move replicates.
template <bool Stream>
void fillRowBytes(Byte* d, std::size_t n, const FillPattern& p)
{
    if (!Stream && n >= kStringOpMinBytes && 4 % p.period == 0) {
        std::uint32_t dword;
        std::memcpy(&dword, p.bytes, 4);
        if (dword == p.bytes[0] * 0x01010101u) {
            fillBytes(d, p.bytes[0], n);
        } else {
            fillDwords(d, dword, n / 4);
            for (std::size_t i = n & ~std::size_t{3}; i < n; ++i)
                d[i] = p.bytes[i % 4];
        }
    } else if (!Stream && n >= 2 * kSeedBytes) {
        fillRowVectors<false>(d, kSeedBytes, p);
        moveBytesForward(d + kSeedBytes, d, n - kSeedBytes);
    } else {
        fillRowVectors<Stream>(d, n, p);
    }
}

// Fills below this size stay in the cache; the three-channel pattern is
// cheaper to stream, so its threshold is deliberately lower.
constexpr std::int64_t streamThresholdBytes(int channels)
{
    return channels == 3 ? 524288 : 1048576;
}

template <class T, int Channels>
void fillImage(const T* pixel, T* pDst, int dstStep, PvxiSize roi)
{
    const FillPattern pattern(pixel, Channels);
    std::int64_t row = rowBytes<T>(roi.width, Channels);
    int height = roi.height;
    if (dstStep == row && row * height <= INT32_MAX) {
        row *= height;
        height = 1;
    }
    const std::int64_t total = row * height;
    const bool stream = bypassesCache(total, streamThresholdBytes(Channels));
    Byte* d = reinterpret_cast<Byte*>(pDst);
    for (int y = 0; y < height; ++y) {
        if (stream)
            fillRowBytes<true>(rowAt(d, dstStep, y), static_cast<std::size_t>(row), pattern);
        else
            fillRowBytes<false>(rowAt(d, dstStep, y), static_cast<std::size_t>(row), pattern);
    }
    if (stream)
        _mm_sfence();
}

// Each form takes its values by pointer (checked after the destination) or,
// for one channel, one value by value: that form is the pointer form with a
// pointer that cannot be null.

template <class T, int Channels>
PvxStatus setWholePixels(const T* values, T* pDst, int dstStep, PvxiSize roiSize)
{
    if (pDst == nullptr || values == nullptr)  // destination first
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    fillImage<T, Channels>(values, pDst, dstStep, roiSize);
    return pvxStsOk;
}

template <class T, int Channels>
PvxStatus setWholePixels(T value, T* pDst, int dstStep, PvxiSize roiSize)
{
    static_assert(Channels == 1, "one value fills one channel");
    return setWholePixels<T, 1>(&value, pDst, dstStep, roiSize);
}

// Writes values[0..Count) into the first Count elements of each Pixel-element
// pixel; the pixel's other elements keep their values.
template <class T, int Pixel, int Count>
void setChannelsRow(const T* values, T* d, int width)
{
    int x = 0;
    if constexpr (Pixel == 4 && Count == 3) {
        // Colour channels of four-channel pixels: blend a 16-byte pattern,
        // writing each alpha back unchanged.
        constexpr int kPerVector = 16 / (4 * static_cast<int>(sizeof(T)));
        T pixel[4] = {values[0], values[1], values[2], T{}};
        const FillPattern pattern(pixel, 4);
        const __m128i colour = loadu(pattern.bytes), alpha = alphaLanes<sizeof(T)>();
        for (; x + kPerVector <= width; x += kPerVector) {
            Byte* dp = reinterpret_cast<Byte*>(d + 4 * x);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dp), select(alpha, loadu(dp), colour));
        }
    }
    for (; x < width; ++x)
        for (int c = 0; c < Count; ++c)
            d[x * Pixel + c] = values[c];
}

template <class T, int Pixel, int Count>
void setChannelsImage(const T* values, T* pDst, int dstStep, PvxiSize roiSize)
{
    for (int y = 0; y < roiSize.height; ++y)
        setChannelsRow<T, Pixel, Count>(values, rowAt(pDst, dstStep, y), roiSize.width);
}

template <class T, int Pixel, int Count>
PvxStatus setChannels(const T* values, T* pDst, int dstStep, PvxiSize roiSize)
{
    if (pDst == nullptr || values == nullptr)  // destination first
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    setChannelsImage<T, Pixel, Count>(values, pDst, dstStep, roiSize);
    return pvxStsOk;
}

template <class T, int Pixel, int Count>
PvxStatus setChannels(T value, T* pDst, int dstStep, PvxiSize roiSize)
{
    static_assert(Count == 1, "one value fills one channel");
    return setChannels<T, Pixel, 1>(&value, pDst, dstStep, roiSize);
}

// Writes values[0..Count) into each pixel whose mask byte is non-zero, 16
// pixels at a time (see copyMaskedRow): blocks the mask leaves out are
// skipped, kept bytes are written back with the value read.
template <class T, int Pixel, int Count>
void setMaskedImage(const T* values, T* pDst, int dstStep, PvxiSize roiSize, const Pvx8u* pMask, int maskStep)
{
    constexpr int kPixelBytes = Pixel * sizeof(T);
    T pixel[Pixel] = {};
    for (int c = 0; c < Count; ++c)
        pixel[c] = values[c];
    const FillPattern pattern(pixel, Pixel);
    const MaskSpread<kPixelBytes> spread;
    const __m128i alwaysKeep = Count < Pixel ? alphaLanes<sizeof(T)>() : _mm_setzero_si128();
    for (int y = 0; y < roiSize.height; ++y) {
        T* d = rowAt(pDst, dstStep, y);
        const Pvx8u* m = rowAt(pMask, maskStep, y);
        int x = 0;
        for (; x + 16 <= roiSize.width; x += 16) {
            const MaskBlock block(m + x);
            if (block.selectsNone())
                continue;
            Byte* dp = reinterpret_cast<Byte*>(d + x * Pixel);
            for (int k = 0; k < kPixelBytes; ++k) {
                // 16 pixels start on a pixel boundary and 48 bytes hold whole
                // pattern periods, so vector k repeats every three.
                const __m128i take = loadu(pattern.bytes + (16 * k) % 48);
                const __m128i keep = _mm_or_si128(spread.spread(block.isZero, k), alwaysKeep);
                _mm_storeu_si128(reinterpret_cast<__m128i*>(dp + 16 * k), select(keep, loadu(dp + 16 * k), take));
            }
        }
        for (; x < roiSize.width; ++x)
            if (m[x] != 0)
                for (int c = 0; c < Count; ++c)
                    d[x * Pixel + c] = values[c];
    }
}

template <class T, int Pixel, int Count>
PvxStatus setMasked(const T* values, T* pDst, int dstStep, PvxiSize roiSize, const Pvx8u* pMask, int maskStep)
{
    if (anyNull(pDst, values, pMask))  // destination before the values
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    setMaskedImage<T, Pixel, Count>(values, pDst, dstStep, roiSize, pMask, maskStep);
    return pvxStsOk;
}

template <class T, int Pixel, int Count>
PvxStatus setMasked(T value, T* pDst, int dstStep, PvxiSize roiSize, const Pvx8u* pMask, int maskStep)
{
    static_assert(Count == 1, "one value fills one channel");
    return setMasked<T, Pixel, 1>(&value, pDst, dstStep, roiSize, pMask, maskStep);
}

}  // namespace

PVX_END

#include "move/set.inc"
