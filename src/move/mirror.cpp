// Mirror: reflects an image about the horizontal axis (flip 0), the vertical
// axis (flip 1), both (flip 2), the main diagonal (flip 3, a transpose) or the
// anti-diagonal (flip 4), out of place or, for flips 0 to 2, in place.
#include <climits>
#include <cstdint>
#include <cstring>

#include "core/checks.h"
#include "core/image.h"
#include "core/simd.h"
#include "pvxi.h"
#include "pvxi_impl.h"

PVX_BEGIN

namespace {

using Byte = unsigned char;

// Flip 0 writes its destination with cache-bypassing stores when the ROI holds
// more pixels than this, whatever the element type and layout.
constexpr std::int64_t kStreamMinPixels = 2097152;

// ---------------------------------------------------------------- row reversal

// Reverses the pixel order of a block of whole pixels of P bytes with pshufb.
// A block is one vector when P divides 16 and three otherwise (every pixel
// size used here divides 48). Output byte o of the block takes input byte
// P * (pixels - 1 - o / P) + o % P; output vector k therefore combines the
// input vectors m that `uses[k][m]` marks, each through its own mask.
template <int P>
struct ReverseTable {
    static constexpr int kVectors = 16 % P == 0 ? 1 : 3;
    static constexpr int kBytes = 16 * kVectors;
    static_assert(kBytes % P == 0, "blocks hold whole pixels");

    Byte mask[kVectors][kVectors][16] = {};
    bool uses[kVectors][kVectors] = {};

    constexpr ReverseTable()
    {
        for (int k = 0; k < kVectors; ++k)
            for (int m = 0; m < kVectors; ++m)
                for (int i = 0; i < 16; ++i)
                    mask[k][m][i] = 0x80;  // pshufb writes zero
        for (int o = 0; o < kBytes; ++o) {
            const int from = P * (kBytes / P - 1 - o / P) + o % P;
            mask[o / 16][from / 16][o % 16] = static_cast<Byte>(from % 16);
            uses[o / 16][from / 16] = true;
        }
    }
};

template <int P>
constexpr ReverseTable<P> kReverseTable{};

// The masks of ReverseTable<P> in registers, and the alpha lanes for AC4.
template <class T, int Pixel, int Count>
class PixelReverser {
public:
    static constexpr int kPixelBytes = Pixel * static_cast<int>(sizeof(T));
    static constexpr int V = ReverseTable<kPixelBytes>::kVectors;
    static constexpr int kBlockBytes = 16 * V;
    static constexpr bool kKeepAlpha = Count < Pixel;  // AC4: pixels divide 16, so V == 1

    PixelReverser() : alpha_(kKeepAlpha ? alphaLanes<sizeof(T)>() : _mm_setzero_si128())
    {
        for (int k = 0; k < V; ++k)
            for (int m = 0; m < V; ++m)
                mask_[k][m] = loadu(kReverseTable<kPixelBytes>.mask[k][m]);
    }

    // out = the block `in` with its pixels in reverse order.
    void reverse(const __m128i (&in)[V], __m128i (&out)[V]) const
    {
        for (int k = 0; k < V; ++k) {
            __m128i r = _mm_setzero_si128();
            for (int m = 0; m < V; ++m)
                if (kReverseTable<kPixelBytes>.uses[k][m])
                    r = _mm_or_si128(r, _mm_shuffle_epi8(in[m], mask_[k][m]));
            out[k] = r;
        }
    }

    // The vectors a reversed block writes over `old`: all of it, or for AC4
    // everything but the alpha that `old` holds.
    __m128i merge(__m128i old, __m128i fresh) const { return kKeepAlpha ? select(alpha_, old, fresh) : fresh; }

private:
    __m128i mask_[V][V];
    __m128i alpha_;
};

template <int V>
void loadBlock(const Byte* p, __m128i (&v)[V])
{
    for (int k = 0; k < V; ++k)
        v[k] = loadu(p + 16 * k);
}

template <class T, int Count>
void copyPixel(T* d, const T* s)
{
    for (int c = 0; c < Count; ++c)
        d[c] = s[c];
}

template <class T, int Count>
void swapPixels(T* a, T* b)
{
    for (int c = 0; c < Count; ++c) {
        const T t = a[c];
        a[c] = b[c];
        b[c] = t;
    }
}

// d gets the pixels of s in reverse order (separate rows): blocks from the end
// of s go to the start of d; pixels left over go one by one.
template <class T, int Pixel, int Count>
void reverseRow(const T* s, T* d, int width, const PixelReverser<T, Pixel, Count>& rev)
{
    using R = PixelReverser<T, Pixel, Count>;
    constexpr int B = R::kBlockBytes;
    const std::int64_t n = static_cast<std::int64_t>(width) * R::kPixelBytes;
    const Byte* sb = reinterpret_cast<const Byte*>(s);
    Byte* db = reinterpret_cast<Byte*>(d);
    std::int64_t o = 0;
    for (; o + B <= n; o += B) {
        __m128i in[R::V], out[R::V];
        loadBlock(sb + n - o - B, in);
        rev.reverse(in, out);
        for (int k = 0; k < R::V; ++k)
            _mm_storeu_si128(reinterpret_cast<__m128i*>(db + o + 16 * k),
                             rev.merge(R::kKeepAlpha ? loadu(db + o + 16 * k) : out[k], out[k]));
    }
    for (int x = static_cast<int>(o / R::kPixelBytes); x < width; ++x)
        copyPixel<T, Count>(d + x * Pixel, s + (width - 1 - x) * Pixel);
}

// Row a gets the reverse of row b and row b the reverse of row a. With a == b
// the row is reversed in place: blocks from both ends trade places until they
// would meet, and the pixels between them go one by one.
template <class T, int Pixel, int Count>
void reverseSwapRows(T* a, T* b, int width, const PixelReverser<T, Pixel, Count>& rev)
{
    using R = PixelReverser<T, Pixel, Count>;
    constexpr int B = R::kBlockBytes;
    const std::int64_t n = static_cast<std::int64_t>(width) * R::kPixelBytes;
    Byte* ab = reinterpret_cast<Byte*>(a);
    Byte* bb = reinterpret_cast<Byte*>(b);
    // The block at a + lo and the block that ends at b + hi trade places.
    const auto trade = [&](std::int64_t lo, std::int64_t hi) {
        __m128i left[R::V], right[R::V], revLeft[R::V], revRight[R::V];
        loadBlock(ab + lo, left);
        loadBlock(bb + hi - B, right);
        rev.reverse(left, revLeft);
        rev.reverse(right, revRight);
        for (int k = 0; k < R::V; ++k) {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(ab + lo + 16 * k), rev.merge(left[k], revRight[k]));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(bb + hi - B + 16 * k), rev.merge(right[k], revLeft[k]));
        }
    };
    std::int64_t lo = 0, hi = n;
    if (a == b) {
        for (; hi - lo >= 2 * B; lo += B, hi -= B)
            trade(lo, hi);
        for (int x = static_cast<int>(lo / R::kPixelBytes), y = static_cast<int>(hi / R::kPixelBytes) - 1; x < y;
             ++x, --y)
            swapPixels<T, Count>(a + x * Pixel, a + y * Pixel);
    } else {
        for (; lo + B <= n; lo += B, hi -= B)
            trade(lo, hi);
        for (int x = static_cast<int>(lo / R::kPixelBytes); x < width; ++x)
            swapPixels<T, Count>(a + x * Pixel, b + (width - 1 - x) * Pixel);
    }
}

// Exchanges two rows of `width` pixels (AC4: the colour channels only).
template <class T, int Pixel, int Count>
void swapRows(T* a, T* b, int width)
{
    constexpr bool kKeepAlpha = Count < Pixel;
    const std::int64_t n = rowBytes<T>(width, Pixel);
    Byte* ab = reinterpret_cast<Byte*>(a);
    Byte* bb = reinterpret_cast<Byte*>(b);
    const __m128i alpha = kKeepAlpha ? alphaLanes<sizeof(T)>() : _mm_setzero_si128();
    std::int64_t o = 0;
    for (; o + 16 <= n; o += 16) {
        const __m128i x = loadu(ab + o), y = loadu(bb + o);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(ab + o), kKeepAlpha ? select(alpha, x, y) : y);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(bb + o), kKeepAlpha ? select(alpha, y, x) : x);
    }
    if (kKeepAlpha) {
        for (int x = static_cast<int>(o / (Pixel * static_cast<int>(sizeof(T)))); x < width; ++x)
            swapPixels<T, Count>(a + x * Pixel, b + x * Pixel);
    } else {
        for (; o < n; ++o) {
            const Byte t = ab[o];
            ab[o] = bb[o];
            bb[o] = t;
        }
    }
}

// ---------------------------------------------------------------- flip 0 out of place

// Copy's own AC4 routines of this path: the colour channels, alpha kept.
PvxStatus copyColours(const Pvx8u* s, int ss, Pvx8u* d, int ds, PvxiSize r)
{
    return PVX_IMPL(pvxiCopy_8u_AC4R)(s, ss, d, ds, r);
}
PvxStatus copyColours(const Pvx16u* s, int ss, Pvx16u* d, int ds, PvxiSize r)
{
    return PVX_IMPL(pvxiCopy_16u_AC4R)(s, ss, d, ds, r);
}
PvxStatus copyColours(const Pvx16s* s, int ss, Pvx16s* d, int ds, PvxiSize r)
{
    return PVX_IMPL(pvxiCopy_16s_AC4R)(s, ss, d, ds, r);
}
PvxStatus copyColours(const Pvx32s* s, int ss, Pvx32s* d, int ds, PvxiSize r)
{
    return PVX_IMPL(pvxiCopy_32s_AC4R)(s, ss, d, ds, r);
}
PvxStatus copyColours(const Pvx32f* s, int ss, Pvx32f* d, int ds, PvxiSize r)
{
    return PVX_IMPL(pvxiCopy_32f_AC4R)(s, ss, d, ds, r);
}

// Source row y goes to destination row H - 1 - y: the copy is handed the
// destination's last row and the negated step, so that it writes the
// destination from its last row upward with the library's row copy (string
// moves for long rows, cache-bypassing stores on request). A step of INT_MIN
// has no negation: such rows go one call each.
template <class T, int Pixel, int Count>
void copyRowsUpward(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roi)
{
    const int height = roi.height;
    if (dstStep == INT_MIN && height > 1) {
        for (int y = 0; y < height; ++y)
            copyRowsUpward<T, Pixel, Count>(rowAt(pSrc, srcStep, y), srcStep, rowAt(pDst, dstStep, height - 1 - y),
                                            0, PvxiSize{roi.width, 1});
        return;
    }
    T* last = rowAt(pDst, dstStep, height - 1);
    const int upward = height > 1 ? -dstStep : 0;
    if constexpr (Count < Pixel) {
        // AC4 blends each pixel with the alpha it reads from the destination,
        // so the lines are in the cache anyway: no cache-bypassing stores.
        copyColours(pSrc, srcStep, last, upward, roi);
    } else {
        const int flags = static_cast<std::int64_t>(roi.width) * height > kStreamMinPixels ? 1 : 0;
        const std::int64_t row = rowBytes<T>(roi.width, Pixel);
        // The copy takes an int width in bytes: longer rows go in slices.
        constexpr std::int64_t kSlice = std::int64_t{1} << 30;
        for (std::int64_t done = 0; done < row; done += kSlice) {
            const int bytes = static_cast<int>(row - done < kSlice ? row - done : kSlice);
            PVX_IMPL(pvxiCopyManaged_8u_C1R)(reinterpret_cast<const Byte*>(pSrc) + done, srcStep,
                                             reinterpret_cast<Byte*>(last) + done, upward, PvxiSize{bytes, height},
                                             flags);
        }
    }
}

// ---------------------------------------------------------------- diagonals

// Transposes an N x N tile of P-byte pixels whose rows are N pixels at s + r *
// sStep: destination row i (at d + i * dStep), column j receives tile row j,
// column i. With Reverse each tile row has its pixels reversed first (the
// anti-diagonal reads the source from its right end). Tiles exist for pixels
// of 1, 2, 4 and 8 bytes (4 and 8 also for AC4, blending the destination's
// alpha back); other pixels are moved one at a time (N = 1).
template <int P, bool Reverse, bool KeepAlpha>
struct Tile {
    static constexpr int N = 1;
};

// Masks that reverse the pixels of a loaded tile row.
template <int P>
__m128i tileReverseMask()
{
    alignas(16) Byte m[16];
    const int n = P == 1 ? 8 : 16;  // bytes of one tile row
    for (int i = 0; i < 16; ++i)
        m[i] = i < n ? static_cast<Byte>(P * ((n - 1 - i) / P) + i % P) : 0x80;
    return _mm_load_si128(reinterpret_cast<const __m128i*>(m));
}

template <bool Reverse>
struct Tile<1, Reverse, false> {
    static constexpr int N = 8;
    __m128i rev = tileReverseMask<1>();

    void load(const Byte* s, int sStep, __m128i (&r)[8]) const
    {
        for (int i = 0; i < 8; ++i) {
            r[i] = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(rowAt(s, sStep, i)));
            if (Reverse)
                r[i] = _mm_shuffle_epi8(r[i], rev);
        }
    }
    // out[k] holds destination rows 2k (low half) and 2k + 1 (high half).
    static void transpose(const __m128i (&r)[8], __m128i (&out)[4])
    {
        const __m128i a = _mm_unpacklo_epi8(r[0], r[1]), b = _mm_unpacklo_epi8(r[2], r[3]);
        const __m128i c = _mm_unpacklo_epi8(r[4], r[5]), d = _mm_unpacklo_epi8(r[6], r[7]);
        const __m128i e = _mm_unpacklo_epi16(a, b), f = _mm_unpackhi_epi16(a, b);
        const __m128i g = _mm_unpacklo_epi16(c, d), h = _mm_unpackhi_epi16(c, d);
        out[0] = _mm_unpacklo_epi32(e, g);
        out[1] = _mm_unpackhi_epi32(e, g);
        out[2] = _mm_unpacklo_epi32(f, h);
        out[3] = _mm_unpackhi_epi32(f, h);
    }
    void run(const Byte* s, int sStep, Byte* d, int dStep) const
    {
        __m128i r[8], out[4];
        load(s, sStep, r);
        transpose(r, out);
        for (int k = 0; k < 4; ++k) {
            _mm_storel_epi64(reinterpret_cast<__m128i*>(rowAt(d, dStep, 2 * k)), out[k]);
            _mm_storel_epi64(reinterpret_cast<__m128i*>(rowAt(d, dStep, 2 * k + 1)), _mm_unpackhi_epi64(out[k], out[k]));
        }
    }
};

template <bool Reverse>
struct Tile<2, Reverse, false> {
    static constexpr int N = 8;
    __m128i rev = tileReverseMask<2>();

    void run(const Byte* s, int sStep, Byte* d, int dStep) const
    {
        __m128i r[8];
        for (int i = 0; i < 8; ++i) {
            r[i] = loadu(rowAt(s, sStep, i));
            if (Reverse)
                r[i] = _mm_shuffle_epi8(r[i], rev);
        }
        __m128i a[8], e[8];
        for (int i = 0; i < 4; ++i) {
            a[2 * i] = _mm_unpacklo_epi16(r[2 * i], r[2 * i + 1]);      // columns 0-3 of rows 2i, 2i+1
            a[2 * i + 1] = _mm_unpackhi_epi16(r[2 * i], r[2 * i + 1]);  // columns 4-7
        }
        for (int h = 0; h < 2; ++h)      // rows 0-3, rows 4-7
            for (int q = 0; q < 2; ++q) {  // columns 0-3, columns 4-7
                e[4 * h + 2 * q] = _mm_unpacklo_epi32(a[4 * h + q], a[4 * h + 2 + q]);
                e[4 * h + 2 * q + 1] = _mm_unpackhi_epi32(a[4 * h + q], a[4 * h + 2 + q]);
            }
        // e[4h + c / 2] holds columns c (low) and c + 1 (high) of four rows.
        for (int c = 0; c < 8; c += 2) {
            const __m128i top = e[c / 2], bottom = e[4 + c / 2];
            _mm_storeu_si128(reinterpret_cast<__m128i*>(rowAt(d, dStep, c)), _mm_unpacklo_epi64(top, bottom));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(rowAt(d, dStep, c + 1)), _mm_unpackhi_epi64(top, bottom));
        }
    }
};

// AC4 pixels of 4 bytes (8u) and 8 bytes (16-bit) keep the destination's
// alpha lanes by a blend.
template <int P, bool KeepAlpha>
__m128i tileAlpha()
{
    return KeepAlpha ? alphaLanes<P / 4>() : _mm_setzero_si128();
}

template <bool Reverse, bool KeepAlpha>
struct Tile<4, Reverse, KeepAlpha> {
    static constexpr int N = 4;
    __m128i alpha = tileAlpha<4, KeepAlpha>();

    void run(const Byte* s, int sStep, Byte* d, int dStep) const
    {
        __m128i r[4];
        for (int i = 0; i < 4; ++i) {
            r[i] = loadu(rowAt(s, sStep, i));
            if (Reverse)
                r[i] = _mm_shuffle_epi32(r[i], 0x1b);
        }
        const __m128i a0 = _mm_unpacklo_epi32(r[0], r[1]), a1 = _mm_unpackhi_epi32(r[0], r[1]);
        const __m128i b0 = _mm_unpacklo_epi32(r[2], r[3]), b1 = _mm_unpackhi_epi32(r[2], r[3]);
        const __m128i out[4] = {_mm_unpacklo_epi64(a0, b0), _mm_unpackhi_epi64(a0, b0), _mm_unpacklo_epi64(a1, b1),
                                _mm_unpackhi_epi64(a1, b1)};
        for (int i = 0; i < 4; ++i) {
            Byte* p = rowAt(d, dStep, i);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(p), KeepAlpha ? select(alpha, loadu(p), out[i]) : out[i]);
        }
    }
};

template <bool Reverse, bool KeepAlpha>
struct Tile<8, Reverse, KeepAlpha> {
    static constexpr int N = 2;
    __m128i alpha = tileAlpha<8, KeepAlpha>();

    void run(const Byte* s, int sStep, Byte* d, int dStep) const
    {
        __m128i r0 = loadu(s), r1 = loadu(rowAt(s, sStep, 1));
        if (Reverse) {
            r0 = _mm_shuffle_epi32(r0, 0x4e);
            r1 = _mm_shuffle_epi32(r1, 0x4e);
        }
        const __m128i out[2] = {_mm_unpacklo_epi64(r0, r1), _mm_unpackhi_epi64(r0, r1)};
        for (int i = 0; i < 2; ++i) {
            Byte* p = rowAt(d, dStep, i);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(p), KeepAlpha ? select(alpha, loadu(p), out[i]) : out[i]);
        }
    }
};

// Writes the reflection about a diagonal: with V(j, i) the source pixel (j, i)
// (flip 3) or (H - 1 - j, W - 1 - i) (flip 4), destination row i, column j
// receives V(j, i). Full tiles go through Tile, in blocks; the columns and
// rows that do not fill a tile go pixel by pixel.
template <class T, int Pixel, int Count, bool Anti>
void reflectDiagonal(const T* pSrc, int srcStep, T* pDst, int dstStep, int width, int height)
{
    constexpr int P = Pixel * static_cast<int>(sizeof(T));
    constexpr bool kKeepAlpha = Count < Pixel;
    // Pixels that tiles move with whole vectors (AC4 pixels are 4 bytes or
    // more and keep their alpha by a blend); the others go one by one.
    constexpr int kTileBytes = P == 1 || P == 2 || P == 4 || P == 8 ? P : 0;
    using TileT = Tile<kTileBytes, Anti, kKeepAlpha>;
    constexpr int N = TileT::N;
    const TileT tile;

    // V(j, i) as an address: rows of V run up the source for flip 4.
    const Byte* v0 = reinterpret_cast<const Byte*>(Anti ? rowAt(pSrc, srcStep, height - 1) : pSrc);
    const int vStep = Anti ? -srcStep : srcStep;
    const auto vAt = [&](int j, int i) {
        return reinterpret_cast<const T*>(rowAt(v0, vStep, j) + static_cast<std::intptr_t>(Anti ? width - 1 - i : i) * P);
    };
    const auto dAt = [&](int i, int j) { return rowAt(pDst, dstStep, i) + static_cast<std::intptr_t>(j) * Pixel; };

    const int fullW = N > 1 ? width - width % N : 0;
    const int fullH = N > 1 ? height - height % N : 0;
    // Blocks of kBlockRows V rows (128 bytes of each destination row) by
    // kBlockCols V columns (destination rows), in panels of kPanel V columns
    // swept from the top of the source to its bottom, so that the lines a
    // panel is writing (128 KiB) stay in the second-level cache. Before each
    // block the destination lines of the next one are requested: a transpose
    // writes a few bytes to many lines, which no hardware prefetcher foresees.
    constexpr int kBlockRows = 128 / P > N ? 128 / P : N;
    constexpr int kBlockCols = 32;
    constexpr int kPanel = 1024;
    for (int pb = 0; pb < fullW; pb += kPanel) {
        const int pEnd = pb + kPanel < fullW ? pb + kPanel : fullW;
        for (int jb = 0; jb < fullH; jb += kBlockRows) {
            const int jEnd = jb + kBlockRows < fullH ? jb + kBlockRows : fullH;
            for (int ib = pb; ib < pEnd; ib += kBlockCols) {
                const int iEnd = ib + kBlockCols < pEnd ? ib + kBlockCols : pEnd;
                // The next block: the one to the right, or the first of the
                // next row of blocks.
                const int nextJ = iEnd < pEnd ? jb : jEnd, nextI = iEnd < pEnd ? iEnd : pb;
                for (int i = nextI; nextJ < fullH && i < nextI + kBlockCols && i < pEnd; ++i) {
                    const char* line = reinterpret_cast<const char*>(dAt(i, nextJ));
                    _mm_prefetch(line, _MM_HINT_T0);
                    if (nextJ + 64 / P < fullH)
                        _mm_prefetch(line + 64, _MM_HINT_T0);
                }
                for (int j = jb; j < jEnd; j += N)
                    for (int i = ib; i < iEnd; i += N) {
                        // The tile's first row starts at its lowest address:
                        // with flip 4, at column W - i - N.
                        const Byte* s = rowAt(v0, vStep, j) + static_cast<std::intptr_t>(Anti ? width - i - N : i) * P;
                        if constexpr (N > 1)
                            tile.run(s, vStep, reinterpret_cast<Byte*>(dAt(i, j)), dstStep);
                    }
            }
        }
    }
    // What the tiles leave, pixel by pixel in blocks: the V columns from
    // fullW on (all of them when N == 1), then the V rows from fullH on.
    const auto pixels = [&](int j0, int j1, int i0, int i1) {
        constexpr int kBlock = 32;
        for (int jb = j0; jb < j1; jb += kBlock)
            for (int ib = i0; ib < i1; ib += kBlock)
                for (int j = jb; j < j1 && j < jb + kBlock; ++j)
                    for (int i = ib; i < i1 && i < ib + kBlock; ++i)
                        copyPixel<T, Count>(dAt(i, j), vAt(j, i));
    };
    pixels(0, height, fullW, width);
    pixels(fullH, height, 0, fullW);
}

// True when the H rows of W pixels of the source and the W rows of H pixels
// of the destination share a byte (both steps are at least 1 here).
bool diagonalOverlap(const void* pSrc, int srcStep, const void* pDst, int dstStep, PvxiSize roi, int pixelBytes)
{
    const std::uint64_t s = reinterpret_cast<std::uintptr_t>(pSrc), d = reinterpret_cast<std::uintptr_t>(pDst);
    const std::uint64_t srcSpan = static_cast<std::uint64_t>(roi.height - 1) * static_cast<std::uint64_t>(srcStep) +
                                  static_cast<std::uint64_t>(roi.width) * static_cast<std::uint64_t>(pixelBytes);
    const std::uint64_t dstSpan = static_cast<std::uint64_t>(roi.width - 1) * static_cast<std::uint64_t>(dstStep) +
                                  static_cast<std::uint64_t>(roi.height) * static_cast<std::uint64_t>(pixelBytes);
    return (d >= s && d - s < srcSpan) || (s >= d && s - d < dstSpan);
}

// ---------------------------------------------------------------- entries

template <class T, int Pixel, int Count>
PvxStatus mirrorInPlace(T* pSrcDst, int srcDstStep, PvxiSize roiSize, int flip)
{
    if (pSrcDst == nullptr)
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (flip < 0 || flip > 2)  // no diagonal in place
        return pvxStsMirrorFlipErr;
    if ((flip == 0 || flip == 2) && roiSize.height < 2)
        return pvxStsSizeErr;
    if ((flip == 1 || flip == 2) && roiSize.width < 2)
        return pvxStsSizeErr;
    const int w = roiSize.width, h = roiSize.height;
    if (flip == 0) {
        for (int y = 0; y < h / 2; ++y)
            swapRows<T, Pixel, Count>(rowAt(pSrcDst, srcDstStep, y), rowAt(pSrcDst, srcDstStep, h - 1 - y), w);
        return pvxStsOk;
    }
    const PixelReverser<T, Pixel, Count> rev;
    if (flip == 1) {
        for (int y = 0; y < h; ++y)
            reverseSwapRows(rowAt(pSrcDst, srcDstStep, y), rowAt(pSrcDst, srcDstStep, y), w, rev);
    } else {
        // Rows y and H - 1 - y trade places reversed; a middle row is reversed.
        for (int y = 0; y < (h + 1) / 2; ++y)
            reverseSwapRows(rowAt(pSrcDst, srcDstStep, y), rowAt(pSrcDst, srcDstStep, h - 1 - y), w, rev);
    }
    return pvxStsOk;
}

// Flips 0 and 2 with a height of 1 are accepted out of place: flip 0 copies
// the row and flip 2 reverses it like flip 1 (only the in-place form refuses).
template <class T, int Pixel, int Count>
PvxStatus mirror(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roiSize, int flip)
{
    if (flip == 3 || flip == 4) {
        if (pSrc == nullptr)
            return pvxStsNullPtrErr;
        if (pDst == nullptr)
            return pvxStsNullPtrErr;
        if (srcStep < 1 || dstStep < 1)
            return pvxStsStepErr;
        if (roiEmpty(roiSize))
            return pvxStsSizeErr;
        // A reflection about a diagonal cannot run in place.
        if (diagonalOverlap(pSrc, srcStep, pDst, dstStep, roiSize, Pixel * static_cast<int>(sizeof(T))))
            return pvxStsNotSupportedModeErr;
        if (flip == 3)
            reflectDiagonal<T, Pixel, Count, false>(pSrc, srcStep, pDst, dstStep, roiSize.width, roiSize.height);
        else
            reflectDiagonal<T, Pixel, Count, true>(pSrc, srcStep, pDst, dstStep, roiSize.width, roiSize.height);
        return pvxStsOk;
    }
    // One image: the in-place form, with its own checks.
    if (pSrc == pDst && srcStep == dstStep)
        return mirrorInPlace<T, Pixel, Count>(pDst, dstStep, roiSize, flip);
    if (anyNull(pSrc, pDst))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (flip < 0 || flip > 2)
        return pvxStsMirrorFlipErr;
    if (flip != 0 && roiSize.width < 2)  // a single column is refused, not copied
        return pvxStsSizeErr;
    if (flip == 0) {
        copyRowsUpward<T, Pixel, Count>(pSrc, srcStep, pDst, dstStep, roiSize);
        return pvxStsOk;
    }
    const PixelReverser<T, Pixel, Count> rev;
    const int h = roiSize.height;
    for (int y = 0; y < h; ++y)
        reverseRow(rowAt(pSrc, srcStep, flip == 2 ? h - 1 - y : y), rowAt(pDst, dstStep, y), roiSize.width, rev);
    return pvxStsOk;
}

}  // namespace

PVX_END

#include "move/mirror.inc"
