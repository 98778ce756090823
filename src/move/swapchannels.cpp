// SwapChannels: destination channel k of every pixel takes source channel
// order[k]. Channels may be repeated or left out, a fourth channel dropped
// (C4C3R) or added (C3C4R); equal source and destination pointers reorder in
// place.
#include <cstdint>
#include <cstring>

#include "core/checks.h"
#include "core/image.h"
#include "core/simd.h"
#include "pvxi.h"

PVX_BEGIN

namespace {

using Byte = unsigned char;

// The vector plan of one layout: a block of kPixels pixels fills whole 16-byte
// vectors on both sides (kIn source vectors, kOut destination vectors), and
// destination vector k draws only on source vectors firstIn(k)..lastIn(k).
// The masks depend on the order and are built once per call: byte i of
// destination vector k is byte mask[k][m][i] of source vector firstIn(k) + m,
// or zero (0x80) when another source vector or no source channel supplies it.
// With four-channel destinations every vector holds whole pixels, so one
// `fill` vector (the C3C4R fill value where the order says 3) and one `keep`
// vector (lanes that keep the destination's value: AC4 alpha, C3C4R indices
// above 3) serve every destination vector.
template <class T, int SrcPixel, int DstPixel, int Written>
class ChannelShuffle {
public:
    static constexpr int E = static_cast<int>(sizeof(T));
    static constexpr int kSrcBytes = SrcPixel * E, kDstBytes = DstPixel * E;
    static constexpr int pixelsPerBlock()
    {
        int n = 1;
        while ((n * kSrcBytes) % 16 != 0 || (n * kDstBytes) % 16 != 0)
            ++n;
        return n;
    }
    static constexpr int kPixels = pixelsPerBlock();
    static constexpr int kIn = kPixels * kSrcBytes / 16, kOut = kPixels * kDstBytes / 16;
    static constexpr int firstIn(int k) { return (16 * k / kDstBytes) * kSrcBytes / 16; }
    static constexpr int lastIn(int k) { return ((16 * k + 15) / kDstBytes * kSrcBytes + kSrcBytes - 1) / 16; }
    static constexpr int widestSpan()
    {
        int widest = 0;
        for (int k = 0; k < kOut; ++k)
            widest = lastIn(k) - firstIn(k) + 1 > widest ? lastIn(k) - firstIn(k) + 1 : widest;
        return widest;
    }
    static constexpr int kSpan = 3;  // source vectors one destination vector can draw on
    static_assert(kIn <= 4 && kOut <= 4 && widestSpan() <= kSpan, "blocks of at most four vectors");
    // Lanes outside the order's reach: AC4 alpha, and C3C4R's fill and kept channels.
    static constexpr bool kMayFill = SrcPixel == 3 && DstPixel == 4;
    static constexpr bool kMayKeep = Written < DstPixel || kMayFill;

    // `order` holds Written valid indices; index SrcPixel stands for `fill`
    // and larger ones keep the destination channel (C3C4R only).
    ChannelShuffle(const int* order, T fill)
    {
        alignas(16) Byte m[kOut][kSpan][16];
        alignas(16) Byte f[16] = {}, keep[16] = {};
        Byte fillBytes[sizeof(T)];
        std::memcpy(fillBytes, &fill, sizeof(T));
        std::memset(m, 0x80, sizeof m);
        for (int o = 0; o < 16 * kOut; ++o) {
            const int k = o / 16, pixel = o / kDstBytes, channel = o % kDstBytes / E, b = o % E;
            const int from = channel < Written ? order[channel] : SrcPixel + 1;
            if (from < SrcPixel) {
                const int s = pixel * kSrcBytes + from * E + b;
                m[k][s / 16 - firstIn(k)][o % 16] = static_cast<Byte>(s % 16);
            } else if (k == 0 && from == SrcPixel) {
                f[o] = fillBytes[b];
            } else if (k == 0) {
                keep[o] = 0xff;
            }
        }
        for (int k = 0; k < kOut; ++k)
            for (int s = 0; s < kSpan; ++s)
                mask_[k][s] = _mm_load_si128(reinterpret_cast<const __m128i*>(m[k][s]));
        fill_ = _mm_load_si128(reinterpret_cast<const __m128i*>(f));
        keep_ = _mm_load_si128(reinterpret_cast<const __m128i*>(keep));
        hasKeep_ = _mm_movemask_epi8(keep_) != 0;
    }

    // One block: every source vector is read before any destination vector
    // is written, so a block may be reordered in place.
    void block(const Byte* s, Byte* d) const
    {
        __m128i in[kIn];
        for (int m = 0; m < kIn; ++m)
            in[m] = loadu(s + 16 * m);
        for (int k = 0; k < kOut; ++k) {
            __m128i r = _mm_setzero_si128();
            for (int m = firstIn(k); m <= lastIn(k); ++m)
                r = _mm_or_si128(r, _mm_shuffle_epi8(in[m], mask_[k][m - firstIn(k)]));
            if (kMayFill)
                r = _mm_or_si128(r, fill_);
            if (kMayKeep && hasKeep_)
                r = select(keep_, loadu(d + 16 * k), r);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 16 * k), r);
        }
    }

private:
    __m128i mask_[kOut][kSpan];
    __m128i fill_, keep_;
    bool hasKeep_;
};

// Reorders `width` pixels: whole blocks through the vector plan, the rest one
// pixel at a time (each pixel read completely before it is written).
template <class T, int SrcPixel, int DstPixel, int Written>
void swapRow(const T* s, T* d, int width, const int* order, T fill,
             const ChannelShuffle<T, SrcPixel, DstPixel, Written>& plan)
{
    using Plan = ChannelShuffle<T, SrcPixel, DstPixel, Written>;
    int x = 0;
    for (; x + Plan::kPixels <= width; x += Plan::kPixels)
        plan.block(reinterpret_cast<const Byte*>(s + x * SrcPixel), reinterpret_cast<Byte*>(d + x * DstPixel));
    for (; x < width; ++x) {
        T v[SrcPixel + 1];
        for (int c = 0; c < SrcPixel; ++c)
            v[c] = s[x * SrcPixel + c];
        v[SrcPixel] = fill;
        for (int k = 0; k < Written; ++k)
            if (order[k] <= SrcPixel)
                d[x * DstPixel + k] = v[order[k]];
    }
}

// Rows may run in either direction (any non-zero step); equal pointers and
// steps reorder in place.
template <class T, int SrcPixel, int DstPixel, int Written>
void swapImage(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roi, const int* dstOrder, T fill = T{})
{
    int order[Written];
    for (int k = 0; k < Written; ++k)
        order[k] = dstOrder[k];
    const ChannelShuffle<T, SrcPixel, DstPixel, Written> plan(order, fill);
    for (int y = 0; y < roi.height; ++y)
        swapRow(rowAt(pSrc, srcStep, y), rowAt(pDst, dstStep, y), roi.width, order, fill, plan);
}

// True when an index is not below `limit`; negative indices compare as large
// unsigned values and fail too.
template <int Count>
bool orderOutOfRange(const int* order, unsigned limit)
{
    for (int k = 0; k < Count; ++k)
        if (static_cast<unsigned>(order[k]) >= limit)
            return true;
    return false;
}

// C3R, AC4R and C4C3R: pointers (order included), size, steps, indices. The
// index limit is the number of source channels that can be read: 3 for C3R,
// 4 for C4R's sibling C4C3R, and 3 for AC4R, whose alpha is neither read nor
// written (decided: an AC4 pixel has three channels to pick from).
template <class T, int SrcPixel, int DstPixel, int Written>
PvxStatus swapColourOrder(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roiSize, const int dstOrder[3])
{
    constexpr unsigned kLimit = SrcPixel == 4 && DstPixel == 4 ? 3 : SrcPixel;
    if (anyNull(pSrc, pDst, dstOrder))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (srcStep == 0 || dstStep == 0)  // only zero: negative steps run bottom-up
        return pvxStsStepErr;
    if (orderOutOfRange<Written>(dstOrder, kLimit))
        return pvxStsChannelOrderErr;
    // With pSrc == pDst (and equal steps) the blocks and pixels are reordered
    // in place: each is read whole before it is written.
    swapImage<T, SrcPixel, DstPixel, Written>(pSrc, srcStep, pDst, dstStep, roiSize, dstOrder);
    return pvxStsOk;
}

// C4R checks the steps before the size and the order pointer after both.
template <class T>
PvxStatus swapFourOrder(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roiSize, const int dstOrder[4])
{
    if (anyNull(pSrc, pDst))
        return pvxStsNullPtrErr;
    if (srcStep == 0 || dstStep == 0)
        return pvxStsStepErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (dstOrder == nullptr)
        return pvxStsNullPtrErr;
    if (orderOutOfRange<4>(dstOrder, 4))
        return pvxStsChannelOrderErr;
    swapImage<T, 4, 4, 4>(pSrc, srcStep, pDst, dstStep, roiSize, dstOrder);
    return pvxStsOk;
}

// C3C4R: indices 0 to 2 pick a source channel, 3 writes `val`, and 4 or more
// leave that destination channel as it was (decided: the one index beyond the
// source's channels names the fill value, anything further names nothing and
// writes nothing). Only negative indices are refused.
template <class T>
PvxStatus swapAddChannel(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roiSize, const int dstOrder[4],
                         T val)
{
    if (anyNull(pSrc, pDst, dstOrder))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (srcStep == 0 || dstStep == 0)
        return pvxStsStepErr;
    int order[4];
    for (int k = 0; k < 4; ++k) {
        if (dstOrder[k] < 0)
            return pvxStsChannelOrderErr;
        order[k] = dstOrder[k] > 4 ? 4 : dstOrder[k];  // 4: keep
    }
    swapImage<T, 3, 4, 4>(pSrc, srcStep, pDst, dstStep, roiSize, order, val);
    return pvxStsOk;
}

// The in-place forms check like their out-of-place siblings (decided for
// C4IR: as C4R, so that C4R with equal pointers and C4IR answer alike).
template <class T>
PvxStatus swapColourOrderInPlace(T* pSrcDst, int srcDstStep, PvxiSize roiSize, const int dstOrder[3])
{
    return swapColourOrder<T, 3, 3, 3>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize, dstOrder);
}

template <class T>
PvxStatus swapFourOrderInPlace(T* pSrcDst, int srcDstStep, PvxiSize roiSize, const int dstOrder[4])
{
    return swapFourOrder<T>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize, dstOrder);
}

}  // namespace

PVX_END

#include "move/swapchannels.inc"
