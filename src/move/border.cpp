// Border construction: CopyConstBorder, CopyReplicateBorder and
// CopyWrapBorder copy a source image into a larger destination at an offset
// and fill the frame around it with a constant, the nearest edge pixel, or the
// periodic continuation of the source. The in-place forms build the frame
// around a source that already lies inside the larger buffer.
//
// Every destination row that holds source pixels is built by
// buildBorderedRow (move/border.h); the rows above and below are constant
// fills (Set) or copies of complete destination rows (Copy), both through the
// same path's routines.
#include <cstdint>
#include <cstring>

#include "core/checks.h"
#include "core/image.h"
#include "move/border.h"
#include "pvxi.h"
#include "pvxi_impl.h"

PVX_BEGIN

namespace {

// The size check shared by the three families: both ROIs non-empty, border
// widths not negative, and the source rectangle inside the destination.
bool frameSizesBad(PvxiSize src, PvxiSize dst, int top, int left)
{
    return roiEmpty(src) || roiEmpty(dst) || top < 0 || left < 0 ||
           std::int64_t{src.width} + left > dst.width || std::int64_t{src.height} + top > dst.height;
}

// First pixel of the destination of an in-place form: `top` rows above and
// `left` pixels left of the source's first pixel, in the same buffer.
template <class T, int Pixel>
T* frameOrigin(T* src, int step, int top, int left)
{
    return byteOffset(src, -static_cast<std::intptr_t>(step) * top -
                               static_cast<std::intptr_t>(left) * Pixel * static_cast<std::intptr_t>(sizeof(T)));
}

// The destination rows that hold source pixels, from row `top` down: each
// built by buildBorderedRow with the same sides.
template <class T, int Pixel, int Count>
void buildSourceRows(const T* src, int srcStep, PvxiSize srcRoi, T* dst, int dstStep, int top, const RowBorder& border)
{
    for (int y = 0; y < srcRoi.height; ++y)
        buildBorderedRow<T, Pixel, Count>(rowAt(src, srcStep, y), srcRoi.width, rowAt(dst, dstStep, top + y), border);
}

// Constant rows through the same path's Set: C1 takes its value by value,
// AC4 writes three values and keeps the fourth channel.
#define PVX_BORDER_SET_ROWS(T, t)                                                \
    template <int Pixel, int Count>                                              \
    void setRows(const T* v, T* d, int step, PvxiSize roi)                       \
    {                                                                            \
        if (roi.height < 1)                                                      \
            return;                                                              \
        if constexpr (Pixel == 1)                                                \
            PVX_IMPL(pvxiSet_##t##_C1R)(*v, d, step, roi);                       \
        else if constexpr (Pixel == 3)                                           \
            PVX_IMPL(pvxiSet_##t##_C3R)(v, d, step, roi);                        \
        else if constexpr (Count == 4)                                           \
            PVX_IMPL(pvxiSet_##t##_C4R)(v, d, step, roi);                        \
        else                                                                     \
            PVX_IMPL(pvxiSet_##t##_AC4R)(v, d, step, roi);                       \
    }
PVX_BORDER_SET_ROWS(Pvx8u, 8u)
PVX_BORDER_SET_ROWS(Pvx16u, 16u)
PVX_BORDER_SET_ROWS(Pvx16s, 16s)
PVX_BORDER_SET_ROWS(Pvx32s, 32s)
PVX_BORDER_SET_ROWS(Pvx32f, 32f)
#undef PVX_BORDER_SET_ROWS

// ---------------------------------------------------------------- CopyConstBorder

// AC4: neither the copied pixels nor the frame have their fourth channel
// written, so the caller's alpha plane survives; three values are read.
template <class T, int Pixel, int Count>
PvxStatus copyConstBorder(const T* pSrc, int srcStep, PvxiSize srcRoiSize, T* pDst, int dstStep,
                          PvxiSize dstRoiSize, int topBorderHeight, int leftBorderWidth, const T* value)
{
    if (pSrc == nullptr || pDst == nullptr)
        return pvxStsNullPtrErr;
    if (srcStep < 1 || dstStep < 1)  // steps before sizes
        return pvxStsStepErr;
    if (frameSizesBad(srcRoiSize, dstRoiSize, topBorderHeight, leftBorderWidth))
        return pvxStsSizeErr;
    if (value == nullptr)  // the values come last, after the sizes
        return pvxStsNullPtrErr;

    T pixel[Pixel] = {};
    std::memcpy(pixel, value, Count * sizeof(T));
    const int below = dstRoiSize.height - topBorderHeight - srcRoiSize.height;
    const RowBorder border{BorderKind::Const, BorderKind::Const, leftBorderWidth,
                           dstRoiSize.width - leftBorderWidth - srcRoiSize.width, pixel};
    setRows<Pixel, Count>(pixel, pDst, dstStep, PvxiSize{dstRoiSize.width, topBorderHeight});
    buildSourceRows<T, Pixel, Count>(pSrc, srcStep, srcRoiSize, pDst, dstStep, topBorderHeight, border);
    setRows<Pixel, Count>(pixel, rowAt(pDst, dstStep, topBorderHeight + srcRoiSize.height), dstStep,
                          PvxiSize{dstRoiSize.width, below});
    return pvxStsOk;
}

template <class T, int Pixel, int Count>
PvxStatus copyConstBorder(const T* pSrc, int srcStep, PvxiSize srcRoiSize, T* pDst, int dstStep,
                          PvxiSize dstRoiSize, int topBorderHeight, int leftBorderWidth, T value)
{
    static_assert(Pixel == 1, "one value fills one channel");
    return copyConstBorder<T, 1, 1>(pSrc, srcStep, srcRoiSize, pDst, dstStep, dstRoiSize, topBorderHeight,
                                    leftBorderWidth, &value);
}

// ---------------------------------------------------------------- CopyReplicateBorder

// Builds every source row's destination row; then the first one is copied
// into the rows above and the last one into the rows below (a Copy whose
// source step is 0). `src` may be the middle of the destination (in place):
// building a row writes only that row. As in Const, AC4 leaves the fourth
// channel of every pixel unwritten.
template <class T, int Pixel, int Count>
void replicateFrame(const T* src, int srcStep, PvxiSize srcRoi, T* dst, int dstStep, PvxiSize dstRoi, int top,
                    int left)
{
    const RowBorder border{BorderKind::Replicate, BorderKind::Replicate, left, dstRoi.width - left - srcRoi.width};
    buildSourceRows<T, Pixel, Count>(src, srcStep, srcRoi, dst, dstStep, top, border);
    copyPixelRows<T, Pixel, Count>(rowAt(dst, dstStep, top), 0, dst, dstStep, dstRoi.width, top);
    const int last = top + srcRoi.height - 1;
    copyPixelRows<T, Pixel, Count>(rowAt(dst, dstStep, last), 0, rowAt(dst, dstStep, last + 1), dstStep,
                                   dstRoi.width, dstRoi.height - last - 1);
}

template <class T, int Pixel, int Count>
PvxStatus copyReplicateBorderInPlace(T* pSrcDst, int srcDstStep, PvxiSize srcRoiSize, PvxiSize dstRoiSize,
                                     int topBorderHeight, int leftBorderWidth)
{
    if (pSrcDst == nullptr)
        return pvxStsNullPtrErr;
    if (srcDstStep < 1)
        return pvxStsStepErr;
    if (frameSizesBad(srcRoiSize, dstRoiSize, topBorderHeight, leftBorderWidth))
        return pvxStsSizeErr;
    T* dst = frameOrigin<T, Pixel>(pSrcDst, srcDstStep, topBorderHeight, leftBorderWidth);
    replicateFrame<T, Pixel, Count>(pSrcDst, srcDstStep, srcRoiSize, dst, srcDstStep, dstRoiSize, topBorderHeight,
                                    leftBorderWidth);
    return pvxStsOk;
}

// Equal pointers say that the source already lies in the destination buffer:
// before any check the call becomes the in-place form, with the source step
// (the step that goes with the pointer the in-place form receives).
template <class T, int Pixel, int Count>
PvxStatus copyReplicateBorder(const T* pSrc, int srcStep, PvxiSize srcRoiSize, T* pDst, int dstStep,
                              PvxiSize dstRoiSize, int topBorderHeight, int leftBorderWidth)
{
    if (pSrc == pDst)
        return copyReplicateBorderInPlace<T, Pixel, Count>(pDst, srcStep, srcRoiSize, dstRoiSize, topBorderHeight,
                                                           leftBorderWidth);
    if (pSrc == nullptr || pDst == nullptr)
        return pvxStsNullPtrErr;
    if (srcStep < 1 || dstStep < 1)
        return pvxStsStepErr;
    if (frameSizesBad(srcRoiSize, dstRoiSize, topBorderHeight, leftBorderWidth))
        return pvxStsSizeErr;
    replicateFrame<T, Pixel, Count>(pSrc, srcStep, srcRoiSize, pDst, dstStep, dstRoiSize, topBorderHeight,
                                    leftBorderWidth);
    return pvxStsOk;
}

// ---------------------------------------------------------------- CopyWrapBorder

// The source rows first (their left and right parts continue the row
// periodically, read from the row's own complete pixels), then the rows
// below, then the rows above from the nearest outward, each block a copy of
// all the complete rows next to it: until the last block they are a whole
// number of periods, so blocks double in height, never read a row they write,
// and frames taller than the source continue it periodically.
//
// Left parts wider than the source are periodic in both forms: the pixels
// further left repeat frame pixels already written, never memory before the
// source row.
template <class T>
void wrapFrame(const T* src, int srcStep, PvxiSize srcRoi, T* dst, int dstStep, PvxiSize dstRoi, int top, int left)
{
    const int h = srcRoi.height, last = top + h;
    const RowBorder border{BorderKind::Wrap, BorderKind::Wrap, left, dstRoi.width - left - srcRoi.width};
    buildSourceRows<T, 1, 1>(src, srcStep, srcRoi, dst, dstStep, top, border);
    for (int y = last; y < dstRoi.height;) {  // rows [top, y) are complete
        const int period = y - top;
        const int n = dstRoi.height - y < period ? dstRoi.height - y : period;
        copyPixelRows<T, 1, 1>(rowAt(dst, dstStep, y - period), dstStep, rowAt(dst, dstStep, y), dstStep,
                               dstRoi.width, n);
        y += n;
    }
    for (int y = top; y > 0;) {  // rows [y, last) are complete
        const int period = last - y;
        const int n = y < period ? y : period;
        y -= n;
        copyPixelRows<T, 1, 1>(rowAt(dst, dstStep, y + period), dstStep, rowAt(dst, dstStep, y), dstStep,
                               dstRoi.width, n);
    }
}

template <class T>
PvxStatus copyWrapBorderInPlace(T* pSrcDst, int srcDstStep, PvxiSize srcRoiSize, PvxiSize dstRoiSize,
                                int topBorderHeight, int leftBorderWidth)
{
    if (pSrcDst == nullptr)
        return pvxStsNullPtrErr;
    if (srcDstStep < 1)
        return pvxStsStepErr;
    if (frameSizesBad(srcRoiSize, dstRoiSize, topBorderHeight, leftBorderWidth))
        return pvxStsSizeErr;
    T* dst = frameOrigin<T, 1>(pSrcDst, srcDstStep, topBorderHeight, leftBorderWidth);
    wrapFrame<T>(pSrcDst, srcDstStep, srcRoiSize, dst, srcDstStep, dstRoiSize, topBorderHeight, leftBorderWidth);
    return pvxStsOk;
}

// Unlike Replicate, the pointers are compared after the checks; equal ones
// hand the call to the in-place form with the source step.
template <class T>
PvxStatus copyWrapBorder(const T* pSrc, int srcStep, PvxiSize srcRoiSize, T* pDst, int dstStep, PvxiSize dstRoiSize,
                         int topBorderHeight, int leftBorderWidth)
{
    if (pSrc == nullptr || pDst == nullptr)
        return pvxStsNullPtrErr;
    if (srcStep < 1 || dstStep < 1)
        return pvxStsStepErr;
    if (frameSizesBad(srcRoiSize, dstRoiSize, topBorderHeight, leftBorderWidth))
        return pvxStsSizeErr;
    if (pSrc == pDst)
        return copyWrapBorderInPlace<T>(pDst, srcStep, srcRoiSize, dstRoiSize, topBorderHeight, leftBorderWidth);
    wrapFrame<T>(pSrc, srcStep, srcRoiSize, pDst, dstStep, dstRoiSize, topBorderHeight, leftBorderWidth);
    return pvxStsOk;
}

}  // namespace

PVX_END

#include "move/border.inc"
