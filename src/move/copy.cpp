// Copy: moves pixels unchanged between images of one element type, whole
// pixels, selected channels, planar to interleaved and back, or under a mask.
#include <cstdint>
#include <cstring>

#include "core/checks.h"
#include "core/cpuid.h"
#include "core/image.h"
#include "core/simd.h"
#include "core/string_ops.h"
#include "pvxi.h"

PVX_BEGIN

namespace {

using Byte = unsigned char;

// Whole copies above this size may bypass the cache...
constexpr std::int64_t kStreamMinTotalBytes = 131072;
// ...but only rows at least this long are streamed.
constexpr std::int64_t kStreamMinRowBytes = 64;

// Copies n bytes. Ordinary stores: a string move for long rows; otherwise
// bytewise up to a 16-byte-aligned destination, then 64- and 16-byte blocks,
// then the tail. Streaming stores: the destination is first brought to a
// cache-line boundary so that every line is written whole.
template <bool Stream>
void copyRowBytes(Byte* d, const Byte* s, std::size_t n)
{
    if (!Stream && n >= kStringOpMinBytes) {
        moveBytesForward(d, s, n);
        return;
    }
    std::size_t head = bytesToAlignment(d, Stream ? 64 : 16);
    if (head > n)
        head = n;
    for (std::size_t i = 0; i < head; ++i)
        d[i] = s[i];
    d += head;
    s += head;
    n -= head;
    const auto put = [](Byte* p, __m128i v) { Stream ? storeStream(p, v) : storea(p, v); };
    for (; n >= 64; n -= 64, s += 64, d += 64) {
        const __m128i a = loadu(s), b = loadu(s + 16), c = loadu(s + 32), e = loadu(s + 48);
        put(d, a);
        put(d + 16, b);
        put(d + 32, c);
        put(d + 48, e);
    }
    for (; n >= 16; n -= 16, s += 16, d += 16)
        put(d, loadu(s));
    if (n >= 8) {
        std::memcpy(d, s, 8);
        d += 8, s += 8, n -= 8;
    }
    if (n >= 4) {
        std::memcpy(d, s, 4);
        d += 4, s += 4, n -= 4;
    }
    for (std::size_t i = 0; i < n; ++i)
        d[i] = s[i];
}

template <bool Stream>
void copyRowsBytes(const Byte* s, int srcStep, Byte* d, int dstStep, std::int64_t row, int height)
{
    for (int y = 0; y < height; ++y)
        copyRowBytes<Stream>(rowAt(d, dstStep, y), rowAt(s, srcStep, y), static_cast<std::size_t>(row));
    if (Stream)
        _mm_sfence();  // streamed lines are visible before we return
}

// Row merging shared by the whole-pixel copies: contiguous images whose total
// byte count fits in 32 bits are copied as one row.
void mergeWholeRows(std::int64_t& row, int& height, int srcStep, int dstStep)
{
    if (srcStep == row && dstStep == row && row * height <= INT32_MAX) {
        row *= height;
        height = 1;
    }
}

// The byte copy behind every whole-pixel copy. Large copies bypass the cache
// when they would not fit in half of the processor's largest cache anyway.
void copyBytesImage(const Byte* s, int srcStep, Byte* d, int dstStep, std::int64_t row, int height)
{
    mergeWholeRows(row, height, srcStep, dstStep);
    const std::int64_t total = row * height;
    bool stream = false;
    if (row >= kStreamMinRowBytes && total > kStreamMinTotalBytes) {
        const std::int64_t cache = largestCacheBytes();
        stream = cache > 0 && total > cache / 2;
    }
    if (stream)
        copyRowsBytes<true>(s, srcStep, d, dstStep, row, height);
    else
        copyRowsBytes<false>(s, srcStep, d, dstStep, row, height);
}

template <class T, int Channels>
PvxStatus copyWholePixels(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roiSize)
{
    if (anyNull(pSrc, pDst))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    copyBytesImage(reinterpret_cast<const Byte*>(pSrc), srcStep, reinterpret_cast<Byte*>(pDst), dstStep,
                   rowBytes<T>(roiSize.width, Channels), roiSize.height);
    return pvxStsOk;
}

PvxStatus copyManaged(const Pvx8u* pSrc, int srcStep, Pvx8u* pDst, int dstStep, PvxiSize roiSize, int flags)
{
    if (anyNull(pSrc, pDst))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    constexpr int kNonTemporal = 1;
    std::int64_t row = roiSize.width;
    int height = roiSize.height;
    mergeWholeRows(row, height, srcStep, dstStep);
    if ((flags & kNonTemporal) && row >= kStreamMinRowBytes)
        copyRowsBytes<true>(pSrc, srcStep, pDst, dstStep, row, height);
    else
        copyRowsBytes<false>(pSrc, srcStep, pDst, dstStep, row, height);
    return pvxStsOk;
}

// Copies the first Count elements of each SrcPixel-element source pixel to the
// first Count elements of the DstPixel-element destination pixel; the other
// destination elements keep their values.
template <class T, int SrcPixel, int DstPixel, int Count>
void copyChannelsRow(const T* s, T* d, int width)
{
    int x = 0;
    if constexpr (SrcPixel == 4 && DstPixel == 4 && Count == 3) {
        // Colour channels of four-channel pixels: blend 16 bytes at a time,
        // writing each alpha back unchanged.
        constexpr int kPerVector = 16 / (4 * static_cast<int>(sizeof(T)));
        const __m128i alpha = alphaLanes<sizeof(T)>();
        for (; x + kPerVector <= width; x += kPerVector) {
            Byte* dp = reinterpret_cast<Byte*>(d + 4 * x);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dp),
                             select(alpha, loadu(dp), loadu(s + 4 * x)));
        }
    }
    for (; x < width; ++x)
        for (int c = 0; c < Count; ++c)
            d[x * DstPixel + c] = s[x * SrcPixel + c];
}

template <class T, int SrcPixel, int DstPixel, int Count>
PvxStatus copyChannels(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roiSize)
{
    if (anyNull(pSrc, pDst))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    const PvxiSize roi = mergeContiguousRows(roiSize, rowBytes<T>(roiSize.width, SrcPixel), srcStep,
                                             rowBytes<T>(roiSize.width, DstPixel), dstStep);
    for (int y = 0; y < roi.height; ++y)
        copyChannelsRow<T, SrcPixel, DstPixel, Count>(rowAt(pSrc, srcStep, y), rowAt(pDst, dstStep, y),
                                                      roi.width);
    return pvxStsOk;
}

template <class T, int Planes>
PvxStatus copyToPlanes(const T* pSrc, int srcStep, T* const pDst[Planes], int dstStep, PvxiSize roiSize)
{
    if (pSrc == nullptr || pDst == nullptr)
        return pvxStsNullPtrErr;
    for (int k = 0; k < Planes; ++k)
        if (pDst[k] == nullptr)
            return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    const PvxiSize roi = mergeContiguousRows(roiSize, rowBytes<T>(roiSize.width, Planes), srcStep,
                                             rowBytes<T>(roiSize.width, 1), dstStep);
    for (int y = 0; y < roi.height; ++y) {
        const T* s = rowAt(pSrc, srcStep, y);
        for (int k = 0; k < Planes; ++k) {
            T* d = rowAt(pDst[k], dstStep, y);
            for (int x = 0; x < roi.width; ++x)
                d[x] = s[x * Planes + k];
        }
    }
    return pvxStsOk;
}

template <class T, int Planes>
PvxStatus copyFromPlanes(const T* const pSrc[Planes], int srcStep, T* pDst, int dstStep, PvxiSize roiSize)
{
    if (pSrc == nullptr)
        return pvxStsNullPtrErr;
    for (int k = 0; k < Planes; ++k)
        if (pSrc[k] == nullptr)
            return pvxStsNullPtrErr;
    if (pDst == nullptr)
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    const PvxiSize roi = mergeContiguousRows(roiSize, rowBytes<T>(roiSize.width, 1), srcStep,
                                             rowBytes<T>(roiSize.width, Planes), dstStep);
    for (int y = 0; y < roi.height; ++y) {
        T* d = rowAt(pDst, dstStep, y);
        for (int k = 0; k < Planes; ++k) {
            const T* s = rowAt(pSrc[k], srcStep, y);
            for (int x = 0; x < roi.width; ++x)
                d[x * Planes + k] = s[x];
        }
    }
    return pvxStsOk;
}

// Copies the first Count elements of each pixel whose mask byte is non-zero,
// 16 pixels at a time: blocks the mask leaves out are skipped, and in the
// others every byte a pixel keeps is written back with the value read.
template <class T, int Pixel, int Count>
void copyMaskedRow(const T* s, T* d, const Pvx8u* m, int width, const MaskSpread<Pixel * sizeof(T)>& spread)
{
    constexpr int kPixelBytes = Pixel * sizeof(T);
    const __m128i alwaysKeep = Count < Pixel ? alphaLanes<sizeof(T)>() : _mm_setzero_si128();
    int x = 0;
    for (; x + 16 <= width; x += 16) {
        const MaskBlock block(m + x);
        if (block.selectsNone())
            continue;
        const Byte* sp = reinterpret_cast<const Byte*>(s + x * Pixel);
        Byte* dp = reinterpret_cast<Byte*>(d + x * Pixel);
        for (int k = 0; k < kPixelBytes; ++k) {
            const __m128i keep = _mm_or_si128(spread.spread(block.isZero, k), alwaysKeep);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dp + 16 * k),
                             select(keep, loadu(dp + 16 * k), loadu(sp + 16 * k)));
        }
    }
    for (; x < width; ++x)
        if (m[x] != 0)
            for (int c = 0; c < Count; ++c)
                d[x * Pixel + c] = s[x * Pixel + c];
}

template <class T, int Pixel, int Count>
PvxStatus copyMasked(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roiSize, const Pvx8u* pMask,
                     int maskStep)
{
    if (anyNull(pSrc, pDst, pMask))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    const MaskSpread<Pixel * sizeof(T)> spread;
    for (int y = 0; y < roiSize.height; ++y)
        copyMaskedRow<T, Pixel, Count>(rowAt(pSrc, srcStep, y), rowAt(pDst, dstStep, y), rowAt(pMask, maskStep, y),
                                       roiSize.width, spread);
    return pvxStsOk;
}

}  // namespace

PVX_END

#include "move/copy.inc"
