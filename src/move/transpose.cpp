// Transpose: exchanges rows and columns, moving whole pixels. Out of place in
// square tiles, or with a streaming kernel for large aligned images that do
// not fit in the cache; in place by swapping blocks across the diagonal.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/checks.h"
#include "core/image.h"
#include "core/simd.h"
#include "pvxcore.h"
#include "pvxi.h"

PVX_BEGIN

namespace {

using Byte = unsigned char;
using std::ptrdiff_t;

constexpr int minOf(int a, int b)
{
    return a < b ? a : b;
}

// ---------------------------------------------------------------- blocks
//
// Pixels of 1, 2, 4 or 8 bytes are lanes of a vector: K = 16 / P pixels fill
// one 16-byte row of a block, and a K x K block is transposed in registers by
// log2(K) rounds of interleaves. Each round pairs register i with register
// i + K/2, so that the bits of (register, lane) rotate by one place; after
// log2(K) rounds register and lane have traded places. Three-channel pixels
// (3, 6 or 12 bytes) do not divide a vector and 16-byte pixels are a vector
// each: those move one pixel at a time (kBlock == 1).

template <int P>
constexpr int kBlock = (P == 1 || P == 2 || P == 4 || P == 8) ? 16 / P : 1;

// The low (or high) halves of a and b, interleaved in P-byte lanes.
template <int P, bool High>
inline __m128i interleave(__m128i a, __m128i b)
{
    if constexpr (P == 1)
        return High ? _mm_unpackhi_epi8(a, b) : _mm_unpacklo_epi8(a, b);
    else if constexpr (P == 2)
        return High ? _mm_unpackhi_epi16(a, b) : _mm_unpacklo_epi16(a, b);
    else if constexpr (P == 4)
        return High ? _mm_unpackhi_epi32(a, b) : _mm_unpacklo_epi32(a, b);
    else
        return High ? _mm_unpackhi_epi64(a, b) : _mm_unpacklo_epi64(a, b);
}

// A K x K block of P-byte pixels held in K registers, one row each.
template <int P>
struct Block {
    static constexpr int K = kBlock<P>;
    __m128i row[K];

    void load(const Byte* s, ptrdiff_t step)
    {
#pragma GCC unroll 16
        for (int i = 0; i < K; ++i)
            row[i] = loadu(s + i * step);
    }

    void store(Byte* d, ptrdiff_t step) const
    {
#pragma GCC unroll 16
        for (int i = 0; i < K; ++i)
            _mm_storeu_si128(reinterpret_cast<__m128i*>(d + i * step), row[i]);
    }

    void transpose()
    {
        for (int n = K; n > 1; n /= 2) {  // log2(K) rounds
            __m128i t[K];
#pragma GCC unroll 8
            for (int i = 0; i < K / 2; ++i) {
                t[2 * i] = interleave<P, false>(row[i], row[i + K / 2]);
                t[2 * i + 1] = interleave<P, true>(row[i], row[i + K / 2]);
            }
#pragma GCC unroll 16
            for (int i = 0; i < K; ++i)
                row[i] = t[i];
        }
    }
};

template <int P>
inline void movePixel(Byte* d, const Byte* s)
{
    std::memcpy(d, s, P);
}

template <int P>
inline void swapPixels(Byte* a, Byte* b)
{
    Byte t[P];
    std::memcpy(t, a, P);
    std::memcpy(a, b, P);
    std::memcpy(b, t, P);
}

// Calls f(c, r) for each pixel of a rows x cols rectangle that whole blocks
// (fullRows x fullCols) leave out: the columns at the right (all rows), then
// the rows at the bottom.
template <class F>
inline void forEachLeftover(int rows, int cols, int fullRows, int fullCols, F f)
{
    for (int c = fullCols; c < cols; ++c)
        for (int r = 0; r < rows; ++r)
            f(c, r);
    for (int c = 0; c < fullCols; ++c)
        for (int r = fullRows; r < rows; ++r)
            f(c, r);
}

// ---------------------------------------------------------------- out of place

// The source lines of the tile that comes next, fetched while the current
// tile is transposed: its rows lie in as many pages as it has rows, too many
// streams for the hardware prefetchers to follow.
struct NextTile {
    const Byte* src = nullptr;  // null: nothing to fetch
    ptrdiff_t step = 0;
    int rows = 0, rowBytes = 0;

    // Fetches share `part` of `parts` of the rows.
    void fetch(int part, int parts) const
    {
        for (int r = rows * part / parts; r < rows * (part + 1) / parts; ++r)
            for (int b = 0; b < rowBytes; b += 64)
                _mm_prefetch(reinterpret_cast<const char*>(src + r * step + b), _MM_HINT_T0);
    }
};

// Transposes the rows x cols source rectangle at s (at most 64 x 64) to the
// cols x rows rectangle at d: whole K x K blocks in registers, the strips
// narrower than a block at the right and bottom pixel by pixel. The blocks go
// down strips of K source columns, so the K destination rows of a strip are
// written front to back and each of their cache lines is complete after a
// few blocks, whatever the destination step. (Going along source rows instead
// would keep all 64 destination lines of the tile half written; with a step
// near a multiple of 4 KiB they share a few cache sets and evict one another,
// twice as slow.) Each strip also fetches its share of the next tile's
// source and, unless it writes a staging block, the destination rows four
// strips ahead in this tile (none for 8-bit pixels, whose tiles have four
// strips): near enough to stay in the first-level cache, early enough to hide
// the time it takes to own the lines. Fetching further ahead measured slower.
template <int P, bool ToStage = false>
void transposeRect(const Byte* s, ptrdiff_t ss, Byte* d, ptrdiff_t ds, int rows, int cols, const NextTile& next)
{
    constexpr int K = kBlock<P>;
    const int fullRows = rows - rows % K, fullCols = cols - cols % K;
    for (int c = 0; c < fullCols; c += K) {
        if (next.src)
            next.fetch(c / K, fullCols / K);
        for (int i = c + 4 * K; !ToStage && i < minOf(c + 5 * K, cols); ++i)
            for (int b = 0; b < rows * P; b += 64)
                _mm_prefetch(reinterpret_cast<const char*>(d + i * ds + b), _MM_HINT_T0);
        if constexpr (K > 1) {
            for (int r = 0; r < fullRows; r += K) {
                Block<P> b;
                b.load(s + r * ss + c * P, ss);
                b.transpose();
                b.store(d + c * ds + r * P, ds);
            }
        } else {
            for (int r = 0; r < rows; ++r)
                movePixel<P>(d + c * ds + r * P, s + r * ss + c * P);
        }
    }
    if (next.src && fullCols == 0)
        next.fetch(0, 1);
    forEachLeftover(rows, cols, fullRows, fullCols,
                    [=](int c, int r) { movePixel<P>(d + c * ds + r * P, s + r * ss + c * P); });
}

// The large-image kernel's tile of 64 x 64 pixels: transposed into a staging
// block (at most 16 KiB, in the first-level cache) in strips of kStageCols
// source columns, whose destination rows then go out one after the other
// with stores that bypass the cache. Every destination row of the tile,
// 64 * P bytes, covers whole cache lines (the caller guarantees a destination
// pointer and step that are multiples of 64, a height that is a multiple of
// 64), and its lines are written whole by consecutive stores: what streaming
// stores need to avoid reading the lines first.
constexpr int kStageBytes = 16384;
template <int P>
constexpr int kStageCols = minOf(64, kStageBytes / (64 * P));  // a multiple of K: 64 / P against 16 / P

template <int P>
void streamTile(const Byte* s, ptrdiff_t ss, Byte* d, ptrdiff_t ds, const NextTile& next)
{
    constexpr int kRowBytes = 64 * P;
    alignas(64) Byte stage[kStageCols<P> * kRowBytes];
    for (int c0 = 0; c0 < 64; c0 += kStageCols<P>) {
        const int n = minOf(kStageCols<P>, 64 - c0);
        transposeRect<P, true>(s + c0 * P, ss, stage, kRowBytes, 64, n, c0 == 0 ? next : NextTile{});
        for (int c = 0; c < n; ++c)
            for (int i = 0; i < kRowBytes; i += 16)
                storeStream(d + (c0 + c) * ds + i, loadu(stage + c * kRowBytes + i));
    }
}

// The image in tiles of t x t pixels, band by band of t source rows, the last
// band and the last tile of each band cut to what remains; each tile fetches
// the source of the next.
template <int P, bool Stream>
void transposeBands(const Byte* s, int srcStep, Byte* d, int dstStep, PvxiSize roi, int t)
{
    for (int y = 0; y < roi.height; y += t) {
        const int rows = minOf(t, roi.height - y);
        for (int x = 0; x < roi.width; x += t) {
            NextTile next;
            const int nx = x + t < roi.width ? x + t : 0, ny = x + t < roi.width ? y : y + t;
            if (ny < roi.height)
                next = {rowAt(s, srcStep, ny) + ptrdiff_t{nx} * P, srcStep, minOf(t, roi.height - ny),
                        minOf(t, roi.width - nx) * P};
            const Byte* tileSrc = rowAt(s, srcStep, y) + ptrdiff_t{x} * P;
            Byte* tileDst = rowAt(d, dstStep, x) + ptrdiff_t{y} * P;
            if (Stream)
                streamTile<P>(tileSrc, srcStep, tileDst, dstStep, next);
            else
                transposeRect<P>(tileSrc, srcStep, tileDst, dstStep, rows, minOf(t, roi.width - x), next);
        }
    }
}

// Tiles of T = min(64, width, height) pixels.
template <int P>
void transposeTiles(const Byte* s, int srcStep, Byte* d, int dstStep, PvxiSize roi)
{
    transposeBands<P, false>(s, srcStep, d, dstStep, roi, minOf(64, minOf(roi.width, roi.height)));
}

// Large images: whole 64 x 64 tiles, streamed.
template <int P>
void transposeStreaming(const Byte* s, int srcStep, Byte* d, int dstStep, PvxiSize roi)
{
    transposeBands<P, true>(s, srcStep, d, dstStep, roi, 64);
    _mm_sfence();  // streamed lines are visible before we return
}

// Whether the large-image kernel runs: a width above 1,024 pixels, width and
// height multiples of 64, source pointer and step multiples of 16, destination
// pointer and step multiples of 64, and then the cache test. The footprint,
// twice the destination's bytes, stands for source and destination together;
// when it exceeds the largest cache, the destination would leave the cache
// before anyone read it again, so writing it past the cache saves the reads
// of its lines. The same measure as Copy (streams above half the cache per
// image). Without a reported cache size the tiles are used. A negative or
// zero destination step gives no positive footprint and never streams.
bool streamsLargeImage(const void* pSrc, int srcStep, const void* pDst, int dstStep, PvxiSize roi)
{
    const auto address = [](const void* p) { return reinterpret_cast<std::uintptr_t>(p); };
    if (roi.width <= 1024 || roi.width % 64 != 0 || roi.height % 64 != 0)
        return false;
    if (address(pSrc) % 16 != 0 || srcStep % 16 != 0 || address(pDst) % 64 != 0 || dstStep % 64 != 0)
        return false;
    int cacheBytes = 0;
    if (pvxGetMaxCacheSizeB(&cacheBytes) != pvxStsOk)
        return false;
    const std::int64_t footprint = 2 * std::int64_t{dstStep} * roi.width;
    return footprint > cacheBytes;
}

// ---------------------------------------------------------------- in place

// Exchanges the rows x cols rectangle at a with the cols x rows rectangle at
// b across the diagonal: a(i, j) with b(j, i). The rectangles do not overlap.
template <int P>
void swapRects(Byte* a, Byte* b, ptrdiff_t step, int rows, int cols)
{
    constexpr int K = kBlock<P>;
    int fullRows = 0, fullCols = 0;
    if constexpr (K > 1) {
        fullRows = rows - rows % K;
        fullCols = cols - cols % K;
        for (int c = 0; c < fullCols; c += K)
            for (int r = 0; r < fullRows; r += K) {
                Byte* pa = a + r * step + c * P;
                Byte* pb = b + c * step + r * P;
                Block<P> x, y;
                x.load(pa, step);
                y.load(pb, step);
                x.transpose();
                y.transpose();
                x.store(pb, step);
                y.store(pa, step);
            }
    }
    forEachLeftover(rows, cols, fullRows, fullCols,
                    [=](int c, int r) { swapPixels<P>(a + r * step + c * P, b + c * step + r * P); });
}

// Transposes the n x n square at a, which lies on the image's diagonal.
template <int P>
void transposeDiagonalSquare(Byte* a, ptrdiff_t step, int n)
{
    constexpr int K = kBlock<P>;
    int full = 0;
    if constexpr (K > 1) {
        full = n - n % K;
        for (int i = 0; i < full; i += K) {
            Block<P> x;
            x.load(a + i * step + i * P, step);
            x.transpose();
            x.store(a + i * step + i * P, step);
            for (int j = i + K; j < full; j += K)
                swapRects<P>(a + i * step + j * P, a + j * step + i * P, step, K, K);
        }
    }
    // The pairs whose larger index lies beyond the whole blocks.
    for (int j = full; j < n; ++j)
        for (int i = 0; i < j; ++i)
            swapPixels<P>(a + i * step + j * P, a + j * step + i * P);
}

// The square in blocks of B = min(32, n) pixels: each diagonal block is
// transposed within itself, each block above the diagonal is exchanged with
// its mirror image below it; the last row and column of blocks are cut.
template <int P>
void transposeSquareInPlace(Byte* p, int step, int n)
{
    const int b = minOf(32, n);
    for (int i = 0; i < n; i += b) {
        const int rows = minOf(b, n - i);
        transposeDiagonalSquare<P>(rowAt(p, step, i) + ptrdiff_t{i} * P, step, rows);
        for (int j = i + b; j < n; j += b)
            swapRects<P>(rowAt(p, step, i) + ptrdiff_t{j} * P, rowAt(p, step, j) + ptrdiff_t{i} * P, step, rows,
                         minOf(b, n - j));
    }
}

// ---------------------------------------------------------------- entries

template <class T, int Channels>
PvxStatus transposeInPlace(T* pSrcDst, int srcDstStep, PvxiSize roiSize)
{
    if (pSrcDst == nullptr)
        return pvxStsNullPtrErr;
    // Only a square can be transposed within its own rows.
    if (roiEmpty(roiSize) || roiSize.width != roiSize.height)
        return pvxStsSizeErr;
    transposeSquareInPlace<sizeof(T) * Channels>(reinterpret_cast<Byte*>(pSrcDst), srcDstStep, roiSize.width);
    return pvxStsOk;
}

template <class T, int Channels>
PvxStatus transposeImage(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roiSize)
{
    // One image passed twice is transposed in place, before any other check.
    if (pSrc == pDst && srcStep == dstStep)
        return transposeInPlace<T, Channels>(pDst, dstStep, roiSize);
    if (anyNull(pSrc, pDst))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    constexpr int kPixel = sizeof(T) * Channels;
    const Byte* s = reinterpret_cast<const Byte*>(pSrc);
    Byte* d = reinterpret_cast<Byte*>(pDst);
    if (streamsLargeImage(pSrc, srcStep, pDst, dstStep, roiSize))
        transposeStreaming<kPixel>(s, srcStep, d, dstStep, roiSize);
    else
        transposeTiles<kPixel>(s, srcStep, d, dstStep, roiSize);
    return pvxStsOk;
}

}  // namespace

PVX_END

#include "move/transpose.inc"
