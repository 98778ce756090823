// Histograms: for each channel, the number of pixels in each half-open
// interval [level k, level k+1) of a list of levels. HistogramRange takes the
// levels from the caller, HistogramEven spaces integer levels evenly first,
// and Histogram reads them from a specification structure built once by
// HistogramInit or HistogramUniformInit.
//
// How pixels are counted:
// - 8u: one pass counts every value (256 counters per channel, in interleaved
//   copies), or, for one channel with at most 16 distinct levels inside
//   1..255, vector comparisons count the pixels below each level; bin k then
//   holds the values in [level k, level k+1), whatever the order of the
//   levels.
// - 16u, 16s, 32f with levels that never decrease: each pixel's bin is the
//   number of levels at or below it, minus one; 16-bit data look up a table of
//   256 value blocks first and search only blocks that hold levels, 32f scans
//   the levels (up to 102, four pixels at a time) or searches them.
// - 16u, 16s, 32f with levels that decrease somewhere (or NaN levels): the
//   general path sorts the levels of up to 128 bins at a time, counts against
//   the sorted list and gives every bin the pixels of its own interval.
#include <climits>
#include <cstddef>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "core/checks.h"
#include "core/image.h"
#include "core/simd.h"
#include "pvxi.h"

PVX_BEGIN

namespace {

using Byte = unsigned char;
// Counters wrap modulo 2^32, as the caller's 32-bit bins would.
using Count = std::uint32_t;

// Levels are 32-bit integers for integer data and floats for 32f data.
template <class T>
using Level = std::conditional_t<std::is_same_v<T, Pvx32f>, Pvx32f, Pvx32s>;

// One channel to count: its element within the pixel, its levels and bins.
template <class T>
struct Channel {
    int element;
    const Level<T>* levels;
    int nLevels;
    Pvx32s* hist;
};

// The source image: rows of `width` pixels of `pixel` elements.
template <class T>
struct Source {
    const T* first;
    int step;
    PvxiSize roi;
    int pixel;

    // Rows that lie back to back are read as one long row.
    Source(const T* p, int s, PvxiSize r, int px) : first(p), step(s), roi(r), pixel(px)
    {
        const std::int64_t bytes = rowBytes<T>(r.width, px);
        roi = mergeContiguousRows(r, bytes, s, bytes, s);
    }
    const T* row(int y) const { return rowAt(first, step, y); }
};

// Elements are read through memcpy: steps need not be multiples of the
// element size.
template <class T>
inline T load(const T* p)
{
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

inline Count* counters(Pvx32s* hist)
{
    return reinterpret_cast<Count*>(hist);
}

// ---------------------------------------------------------------- 8u

// Value counts of 8-bit data. Counting one pixel after the other into a
// single table makes each increment wait for the previous one to reach the
// cache whenever neighbouring pixels are equal, as they are in flat image
// regions; copies of the table that neighbouring pixels take in turn break
// that chain: eight for one channel, four per channel for interleaved
// channels (at most 16 KiB). Pixels are read byte by byte, which measured
// faster than extracting them from wider loads.
template <int Used>
struct ValueCounts {
    static constexpr int kCopies = Used == 1 ? 8 : 4;
    alignas(16) Count t[Used][kCopies][256];
};

template <int Pixel, int Used>
void countValues(const Source<Pvx8u>& src, ValueCounts<Used>& vc)
{
    constexpr int kCopies = ValueCounts<Used>::kCopies;
    std::memset(&vc, 0, sizeof vc);
    for (int y = 0; y < src.roi.height; ++y) {
        const Byte* p = src.row(y);
        const int width = src.roi.width;
        int x = 0;
        for (; x + kCopies <= width; x += kCopies, p += kCopies * Pixel)
            for (int k = 0; k < kCopies; ++k)
                for (int c = 0; c < Used; ++c)
                    ++vc.t[c][k][p[k * Pixel + c]];
        for (int k = 0; x < width; ++x, ++k, p += Pixel)
            for (int c = 0; c < Used; ++c)
                ++vc.t[c][k][p[c]];
    }
}

// below[v] = the pixels of one channel under v, for v = 0..256, from its
// value counts.
template <int Copies>
void belowFromValues(const Count (&t)[Copies][256], Count (&below)[257])
{
    below[0] = 0;
    for (int v = 0; v < 256; ++v) {
        Count n = 0;
        for (int k = 0; k < Copies; ++k)
            n += t[k][v];
        below[v + 1] = below[v] + n;
    }
}

// Bins from below[]: [a, b) holds below[b] - below[a] pixels once a and b are
// clamped to 0..256, and an interval whose upper level is not above its
// lower one holds none; so levels may come in any order. Only the entries at
// clamped levels are read.
void binsFromBelow(const Count (&below)[257], const Channel<Pvx8u>& ch)
{
    const auto at = [&below](Pvx32s level) { return below[level < 0 ? 0 : level > 256 ? 256 : level]; };
    Count* hist = counters(ch.hist);
    for (int k = 0; k + 1 < ch.nLevels; ++k) {
        const Pvx32s a = ch.levels[k], b = ch.levels[k + 1];
        hist[k] = a < b ? at(b) - at(a) : 0;
    }
}

// One channel with few distinct levels inside 1..255 (levels outside need
// no counting): comparisons of 16 pixels at a time count the pixels below
// each such level, at two or three instructions per level and vector
// against the table's one store per pixel; with up to 16 levels that is
// faster. Levels are padded to 4, 8 or 16 with 256 (counts not used). Rows
// go by in blocks of up to 255 vectors, so that the 8-bit lane counters
// cannot wrap. The last pixels of a row go through a small temporary filled
// with 255, which is below no level up to 255.
constexpr int kCompareMaxLevels = 16;

template <int N>
void countBelow(const Source<Pvx8u>& src, const int* t, Count* below)
{
    const __m128i bias = _mm_set1_epi8(-128);  // unsigned order as signed order
    __m128i thresholds[N];
    for (int j = 0; j < N; ++j) {
        thresholds[j] = _mm_set1_epi8(static_cast<char>(t[j] ^ 0x80));
        below[j] = 0;
    }
    for (int y = 0; y < src.roi.height; ++y) {
        const Byte* p = src.row(y);
        const int width = src.roi.width;
        for (int x = 0; x < width;) {
            __m128i acc[N];
            for (int j = 0; j < N; ++j)
                acc[j] = _mm_setzero_si128();
            const int end = width - x > 255 * 16 ? x + 255 * 16 : width;
            for (; x < end; x += 16) {
                __m128i v;
                if (end - x >= 16) {
                    v = loadu(p + x);
                } else {
                    alignas(16) Byte tail[16];
                    std::memset(tail, 255, sizeof tail);
                    std::memcpy(tail, p + x, static_cast<std::size_t>(end - x));
                    v = _mm_load_si128(reinterpret_cast<const __m128i*>(tail));
                }
                v = _mm_xor_si128(v, bias);
                for (int j = 0; j < N; ++j)
                    acc[j] = _mm_sub_epi8(acc[j], _mm_cmpgt_epi8(thresholds[j], v));
            }
            for (int j = 0; j < N; ++j) {
                const __m128i sums = _mm_sad_epu8(acc[j], _mm_setzero_si128());
                below[j] += static_cast<Count>(_mm_cvtsi128_si32(sums) + _mm_cvtsi128_si32(_mm_srli_si128(sums, 8)));
            }
        }
    }
}

// below[] at 0, at 256 and at the distinct levels inside 1..255 of one
// channel, if there are at most kCompareMaxLevels of them.
bool countFewLevels(const Source<Pvx8u>& src, const Channel<Pvx8u>& ch, Count (&below)[257])
{
    bool seen[256] = {};
    int t[kCompareMaxLevels], n = 0;
    for (int k = 0; k < ch.nLevels; ++k) {
        const Pvx32s v = ch.levels[k];
        if (v >= 1 && v <= 255 && !seen[v]) {
            if (n == kCompareMaxLevels)
                return false;
            seen[v] = true;
            t[n++] = v;
        }
    }
    for (int j = n; j < kCompareMaxLevels; ++j)
        t[j] = 256;
    Count counts[kCompareMaxLevels];
    if (n <= 4)
        countBelow<4>(src, t, counts);
    else if (n <= 8)
        countBelow<8>(src, t, counts);
    else
        countBelow<16>(src, t, counts);
    below[0] = 0;
    below[256] = static_cast<Count>(std::uint64_t(src.roi.width) * std::uint64_t(src.roi.height));
    for (int j = 0; j < n; ++j)
        below[t[j]] = counts[j];
    return true;
}

// ---------------------------------------------------------------- sorted levels
//
// With thresholds s[0] <= ... <= s[m-1], a value x has rank i = the number
// of thresholds at or below it, and s[i-1] <= x < s[i]: the pixel belongs to
// interval i - 1. countSorted adds one to out[i - 1] for ranks 1 .. m-1 and
// leaves out the pixels below s[0] or at and above s[m-1]. Equal thresholds
// make empty intervals.

// Rank of v among s[lo..hi), plus lo: the first index in [lo, hi) whose
// threshold is above v (hi when there is none). Branch-free halving.
template <class L, class V>
inline int firstAbove(const L* s, int lo, int hi, V v)
{
    int n = hi - lo;
    if (n <= 0)
        return lo;
    const L* base = s + lo;
    while (n > 1) {
        const int half = n / 2;
        base = base[half] <= v ? base + half : base;
        n -= half;
    }
    return static_cast<int>(base - s) + (*base <= v ? 1 : 0);
}

// 16-bit data: the values fall into 256 blocks of 256. first[h] and last[h]
// are the ranks of the smallest and the largest value of block h; where they
// are equal the whole block has one rank, otherwise only the thresholds
// s[first[h] .. last[h]) lie inside it and are searched.
template <class T>
void countSorted16(const Source<T>& src, int element, const Pvx32s* s, int m, Count* out)
{
    constexpr int kBase = std::is_signed_v<T> ? -32768 : 0;
    int first[256], last[256];
    for (int h = 0, i = 0, j = 0; h < 256; ++h) {
        const int lo = kBase + 256 * h, hi = lo + 255;
        while (i < m && s[i] <= lo)
            ++i;
        first[h] = i;
        j = j > i ? j : i;
        while (j < m && s[j] <= hi)
            ++j;
        last[h] = j;
    }
    const unsigned bins = static_cast<unsigned>(m - 1);
    for (int y = 0; y < src.roi.height; ++y) {
        const T* p = src.row(y) + element;
        for (int x = 0; x < src.roi.width; ++x, p += src.pixel) {
            const int v = load(p);
            const int h = (v - kBase) >> 8;
            int rank = first[h];
            if (rank != last[h])
                rank = firstAbove(s, rank, last[h], v);
            if (static_cast<unsigned>(rank - 1) < bins)
                ++out[rank - 1];
        }
    }
}

// Up to this many 32f levels are scanned; more are searched. Both give the
// same rank.
constexpr int kLinearScanMaxLevels = 102;

// 32f, few levels: the rank of four pixels at once, from one comparison per
// threshold. NaN pixels are below every threshold (rank 0); the last pixels
// of a row go through a small temporary padded with NaN.
void countLinear32f(const Source<Pvx32f>& src, int element, const Pvx32f* s, int m, Count* out)
{
    __m128 thresholds[kLinearScanMaxLevels];
    for (int j = 0; j < m; ++j)
        thresholds[j] = _mm_set1_ps(s[j]);
    Count byRank[kLinearScanMaxLevels + 1] = {};
    const auto add = [&](__m128 v) {
        __m128i rank = _mm_setzero_si128();
        for (int j = 0; j < m; ++j)
            rank = _mm_sub_epi32(rank, _mm_castps_si128(_mm_cmple_ps(thresholds[j], v)));
        alignas(16) Pvx32s r[4];
        _mm_store_si128(reinterpret_cast<__m128i*>(r), rank);
        ++byRank[r[0]];
        ++byRank[r[1]];
        ++byRank[r[2]];
        ++byRank[r[3]];
    };
    const int px = src.pixel;
    for (int y = 0; y < src.roi.height; ++y) {
        const Pvx32f* p = src.row(y) + element;
        const int width = src.roi.width;
        int x = 0;
        for (; x + 4 <= width; x += 4, p += 4 * px) {
            if (px == 1)
                add(_mm_loadu_ps(p));
            else
                add(_mm_setr_ps(load(p), load(p + px), load(p + 2 * px), load(p + 3 * px)));
        }
        if (x < width) {
            alignas(16) Pvx32f tail[4];
            for (int k = 0; k < 4; ++k)
                tail[k] = x + k < width ? load(p + k * px) : std::numeric_limits<Pvx32f>::quiet_NaN();
            add(_mm_load_ps(tail));
        }
    }
    for (int i = 1; i < m; ++i)
        out[i - 1] += byRank[i];
}

void countSearch32f(const Source<Pvx32f>& src, int element, const Pvx32f* s, int m, Count* out)
{
    const unsigned bins = static_cast<unsigned>(m - 1);
    for (int y = 0; y < src.roi.height; ++y) {
        const Pvx32f* p = src.row(y) + element;
        for (int x = 0; x < src.roi.width; ++x, p += src.pixel) {
            const int rank = firstAbove(s, 0, m, load(p));
            if (static_cast<unsigned>(rank - 1) < bins)
                ++out[rank - 1];
        }
    }
}

template <class T>
void countSorted(const Source<T>& src, int element, const Level<T>* s, int m, Count* out)
{
    if constexpr (std::is_same_v<T, Pvx32f>) {
        if (m <= kLinearScanMaxLevels)
            countLinear32f(src, element, s, m, out);
        else
            countSearch32f(src, element, s, m, out);
    } else {
        countSorted16(src, element, s, m, out);
    }
}

// ---------------------------------------------------------------- general path

// Bins per pass of the general path.
constexpr int kGeneralBins = 128;

// Levels that decrease somewhere, or NaN levels (32f). Every bin counts the
// pixels of its own interval [a, b), independently of the other bins: a
// pixel inside several overlapping intervals counts in each, an interval
// with b not above a (or a NaN bound) counts nothing. For up to 128 bins at a
// time, the bounds other than NaN are sorted into thresholds; one counting
// pass gives below[i] = the pixels in [s[0], s[i]) for the first i of each
// run of equal thresholds, and [a, b) holds below[index of b] - below[index
// of a].
template <class T>
void countGeneral(const Source<T>& src, const Channel<T>& ch)
{
    using L = Level<T>;
    for (int k0 = 0; k0 + 1 < ch.nLevels; k0 += kGeneralBins) {
        const int bins = ch.nLevels - 1 - k0 < kGeneralBins ? ch.nLevels - 1 - k0 : kGeneralBins;
        L s[kGeneralBins + 1];
        int m = 0;
        for (int i = 0; i <= bins; ++i) {
            const L v = ch.levels[k0 + i];
            if (!(v != v)) {  // NaN bounds make their bins empty
                int j = m++;
                for (; j > 0 && s[j - 1] > v; --j)
                    s[j] = s[j - 1];
                s[j] = v;
            }
        }
        Count out[kGeneralBins] = {};
        if (m >= 2)
            countSorted<T>(src, ch.element, s, m, out);
        Count below[kGeneralBins + 1];
        below[0] = 0;
        for (int i = 1; i < m; ++i)
            below[i] = below[i - 1] + out[i - 1];
        const auto at = [&](L v) {  // v is one of s; its first index
            int lo = 0, hi = m;
            while (lo < hi) {
                const int mid = (lo + hi) / 2;
                if (s[mid] < v)
                    lo = mid + 1;
                else
                    hi = mid;
            }
            return below[lo];
        };
        Count* hist = counters(ch.hist) + k0;
        for (int i = 0; i < bins; ++i) {
            const L a = ch.levels[k0 + i], b = ch.levels[k0 + i + 1];
            hist[i] = a < b ? at(b) - at(a) : 0;
        }
    }
}

// ---------------------------------------------------------------- driver

template <class L>
bool neverDecreasing(const L* levels, int n)
{
    for (int i = 0; i + 1 < n; ++i)
        if (!(levels[i] <= levels[i + 1]))
            return false;
    return true;
}

// Counts every channel of the image into its bins (all of them written).
template <class T, int Pixel, int Used>
void countImage(const T* pSrc, int srcStep, PvxiSize roi, const Channel<T> (&ch)[Used])
{
    const Source<T> src(pSrc, srcStep, roi, Pixel);
    if constexpr (std::is_same_v<T, Pvx8u>) {
        Count below[257];
        if (Pixel == 1 && countFewLevels(src, ch[0], below)) {
            binsFromBelow(below, ch[0]);
            return;
        }
        ValueCounts<Used> vc;
        countValues<Pixel, Used>(src, vc);
        for (int c = 0; c < Used; ++c) {
            belowFromValues(vc.t[c], below);
            binsFromBelow(below, ch[c]);
        }
    } else {
        for (int c = 0; c < Used; ++c) {
            if (neverDecreasing(ch[c].levels, ch[c].nLevels)) {
                std::memset(ch[c].hist, 0, static_cast<std::size_t>(ch[c].nLevels - 1) * sizeof(Pvx32s));
                countSorted<T>(src, ch[c].element, ch[c].levels, ch[c].nLevels, counters(ch[c].hist));
            } else {
                countGeneral<T>(src, ch[c]);
            }
        }
    }
}

// ---------------------------------------------------------------- HistogramRange

template <class T>
PvxStatus rangeC1(const T* pSrc, int srcStep, PvxiSize roiSize, Pvx32s* pHist, const Level<T>* pLevels, int nLevels)
{
    if (anyNull(pSrc, pHist, pLevels))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (srcStep < 1)
        return pvxStsStepErr;
    if (nLevels < 2)
        return pvxStsHistoNofLevelsErr;
    const Channel<T> ch[1] = {{0, pLevels, nLevels, pHist}};
    countImage<T, 1, 1>(pSrc, srcStep, roiSize, ch);
    return pvxStsOk;
}

// The per-channel checks come before the size check, as callers of the
// multi-channel forms have always seen them.
template <class T, int Pixel, int Used>
PvxStatus rangeMulti(const T* pSrc, int srcStep, PvxiSize roiSize, Pvx32s* const pHist[Used],
                     const Level<T>* const pLevels[Used], const int nLevels[Used])
{
    if (pSrc == nullptr || pHist == nullptr || pLevels == nullptr || nLevels == nullptr)
        return pvxStsNullPtrErr;
    for (int c = 0; c < Used; ++c) {
        if (pHist[c] == nullptr || pLevels[c] == nullptr)
            return pvxStsNullPtrErr;
        if (nLevels[c] < 2)
            return pvxStsHistoNofLevelsErr;
    }
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (srcStep < 1)
        return pvxStsStepErr;
    Channel<T> ch[Used];
    for (int c = 0; c < Used; ++c)
        ch[c] = {c, pLevels[c], nLevels[c], pHist[c]};
    countImage<T, Pixel, Used>(pSrc, srcStep, roiSize, ch);
    return pvxStsOk;
}

// ---------------------------------------------------------------- HistogramEven

// n + 1 levels from lower to upper: with d = upper - lower, q = d / n and
// r = d % n (truncating, so r has the sign of d), each step is q, and the
// first |r| steps one more in the direction of d; then the last level is
// upper. When upper lies below lower by less than n (q = 0, r < 0) no step
// is adjusted and every level equals lower, so every bin stays empty.
void evenLevels(Pvx32s* levels, int nLevels, Pvx32s lower, Pvx32s upper)
{
    const std::int64_t n = nLevels - 1;
    const std::int64_t d = std::int64_t{upper} - lower;
    const std::int64_t q = d / n, r = d % n;
    std::int64_t level = lower;
    levels[0] = lower;
    for (std::int64_t k = 1; k <= n; ++k) {
        level += q;
        if (q >= 0 && k <= r)
            level += 1;
        else if (q < 0 && k <= -r)
            level -= 1;
        levels[k] = static_cast<Pvx32s>(level);
    }
}

template <class T>
PvxStatus evenC1(const T* pSrc, int srcStep, PvxiSize roiSize, Pvx32s* pHist, Pvx32s* pLevels, int nLevels,
                 Pvx32s lowerLevel, Pvx32s upperLevel)
{
    if (anyNull(pSrc, pHist, pLevels))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (srcStep < 1)
        return pvxStsStepErr;
    if (nLevels < 2)
        return pvxStsHistoNofLevelsErr;
    evenLevels(pLevels, nLevels, lowerLevel, upperLevel);
    const Channel<T> ch[1] = {{0, pLevels, nLevels, pHist}};
    countImage<T, 1, 1>(pSrc, srcStep, roiSize, ch);
    return pvxStsOk;
}

template <class T, int Pixel, int Used>
PvxStatus evenMulti(const T* pSrc, int srcStep, PvxiSize roiSize, Pvx32s* const pHist[Used],
                    Pvx32s* const pLevels[Used], const int nLevels[Used], const Pvx32s lowerLevel[Used],
                    const Pvx32s upperLevel[Used])
{
    if (pSrc == nullptr || pHist == nullptr || pLevels == nullptr || nLevels == nullptr || lowerLevel == nullptr ||
        upperLevel == nullptr)
        return pvxStsNullPtrErr;
    for (int c = 0; c < Used; ++c) {
        if (pHist[c] == nullptr || pLevels[c] == nullptr)
            return pvxStsNullPtrErr;
        if (nLevels[c] < 2)
            return pvxStsHistoNofLevelsErr;
    }
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (srcStep < 1)
        return pvxStsStepErr;
    Channel<T> ch[Used];
    for (int c = 0; c < Used; ++c) {
        evenLevels(pLevels[c], nLevels[c], lowerLevel[c], upperLevel[c]);
        ch[c] = {c, pLevels[c], nLevels[c], pHist[c]};
    }
    countImage<T, Pixel, Used>(pSrc, srcStep, roiSize, ch);
    return pvxStsOk;
}

// ---------------------------------------------------------------- specification
//
// The specification, from its first 64-byte-aligned address: 32-bit words
// data type, channels, 0, the tag "hist"; four level counts (0 for unused
// channel slots); four pointers to the channels' level lists inside the
// structure (null for unused slots); the level lists, channel after channel:
// floats for 32f data, 32-bit integers for the other types.

constexpr Pvx32u kHistogramTag = 0x74736968u;  // "hist" read as a little-endian word

struct SpecHeader {
    Pvx32s dataType;
    Pvx32s channels;
    Pvx32s zero;
    Pvx32u tag;
    Pvx32s nLevels[4];
    const void* levels[4];
};

// The work buffer is not used: counting needs at most about 16 KiB of stack
// (the value counters of four 8-bit channels). Its size is still reported as
// 64 bytes, not 0, so that callers that allocate it and check the result
// keep working.
constexpr int kWorkBufferBytes = 64;

bool validChannels(int channels)
{
    return channels == 1 || channels == 3 || channels == 4;
}

bool validDataType(int type)
{
    return type == pvx8u || type == pvx16u || type == pvx16s || type == pvx32f;
}

template <class T>
constexpr int dataTypeOf()
{
    return std::is_same_v<T, Pvx8u> ? pvx8u : std::is_same_v<T, Pvx16u> ? pvx16u : std::is_same_v<T, Pvx16s> ? pvx16s : pvx32f;
}

template <class P>
P* specStart(P* spec)
{
    return spec + bytesToAlignment(spec, 64);
}

// The header of an initialised specification; false without the tag (or
// with a header no initialiser writes).
bool readSpec(const Pvx8u* spec, SpecHeader& h)
{
    std::memcpy(&h, specStart(spec), sizeof h);
    return h.tag == kHistogramTag && validDataType(h.dataType) && validChannels(h.channels);
}

// A level toward zero as a 32-bit integer, saturated (never called with NaN).
Pvx32s toLevel32s(double v)
{
    if (v >= 2147483647.0)
        return INT32_MAX;
    if (v <= -2147483648.0)
        return INT32_MIN;
    return static_cast<Pvx32s>(v);
}

// Writes a specification whose level k of channel c is levelOf(c, k), a
// double that is a float for 32f data and becomes a 32-bit integer toward
// zero otherwise. The tag word is cleared first and written last, once
// everything else stands.
template <class LevelOf>
void writeSpec(int dataType, int channels, const int nLevels[], Pvx8u* spec, LevelOf levelOf)
{
    Pvx8u* start = specStart(spec);
    SpecHeader h{};
    h.dataType = dataType;
    h.channels = channels;
    std::memcpy(start, &h, sizeof h);
    Pvx8u* list = start + sizeof h;
    for (int c = 0; c < channels; ++c) {
        h.nLevels[c] = nLevels[c];
        h.levels[c] = list;
        for (int k = 0; k < nLevels[c]; ++k, list += 4) {
            if (dataType == pvx32f) {
                const Pvx32f v = static_cast<Pvx32f>(levelOf(c, k));
                std::memcpy(list, &v, 4);
            } else {
                const Pvx32s v = toLevel32s(levelOf(c, k));
                std::memcpy(list, &v, 4);
            }
        }
    }
    std::memcpy(start, &h, sizeof h);  // still without the tag
    const Pvx32u tag = kHistogramTag;
    std::memcpy(start + offsetof(SpecHeader, tag), &tag, sizeof tag);
}

// Every level count and result pointer is checked; the data type does not
// change the sizes (every level takes 4 bytes) and is not checked, nor is
// the uniform flag (uniform levels are stored like any others).
PvxStatus histogramGetBufferSize(PvxDataType dataType, PvxiSize roiSize, const int nLevels[], int numChannels,
                                 int uniform, int* pSpecSize, int* pBufferSize)
{
    (void)dataType;
    (void)uniform;
    if (anyNull(nLevels, pSpecSize, pBufferSize))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (!validChannels(numChannels))
        return pvxStsNumChannelsErr;
    std::int64_t levels = 0;
    for (int c = 0; c < numChannels; ++c) {
        if (nLevels[c] < 2)
            return pvxStsHistoNofLevelsErr;
        levels += nLevels[c];
    }
    // 63 bytes of slack for the alignment, the header, 4 bytes per level.
    const std::int64_t size = 63 + static_cast<std::int64_t>(sizeof(SpecHeader)) + 4 * levels;
    if (size > INT_MAX)
        return pvxStsSizeErr;
    *pSpecSize = static_cast<int>(size);
    *pBufferSize = kWorkBufferBytes;
    return pvxStsOk;
}

// The data type is checked first, before the pointers.
PvxStatus histogramInit(PvxDataType dataType, const Pvx32f* const pLevels[], const int nLevels[], int numChannels,
                        Pvx8u* pSpec)
{
    const int type = dataType;
    if (!validDataType(type))
        return pvxStsDataTypeErr;
    if (anyNull(pLevels, nLevels, pSpec))
        return pvxStsNullPtrErr;
    if (!validChannels(numChannels))
        return pvxStsNumChannelsErr;
    for (int c = 0; c < numChannels; ++c) {
        if (pLevels[c] == nullptr)
            return pvxStsNullPtrErr;
        if (nLevels[c] < 2)
            return pvxStsHistoNofLevelsErr;
        for (int k = 0; k + 1 < nLevels[c]; ++k)
            if (!(pLevels[c][k] < pLevels[c][k + 1]))
                return pvxStsRangeErr;
    }
    writeSpec(type, numChannels, nLevels, pSpec, [pLevels](int c, int k) { return double{pLevels[c][k]}; });
    return pvxStsOk;
}

// Evenly spaced levels. 32f: lower + k (upper - lower) / (nLevels - 1),
// computed in double and rounded to float, the last level exactly upper
// (very narrow ranges may round neighbours to the same float: such bins stay
// empty). Integer data: both bounds toward zero, then the steps of
// HistogramEven, so that an 8u specification from 0 to 256 with 257 levels
// bins exactly like HistogramEven. Bounds must be finite with lower below
// upper.
PvxStatus histogramUniformInit(PvxDataType dataType, const Pvx32f lowerLevel[], const Pvx32f upperLevel[],
                               const int nLevels[], int numChannels, Pvx8u* pSpec)
{
    const int type = dataType;
    if (!validDataType(type))
        return pvxStsDataTypeErr;
    if (anyNull(lowerLevel, upperLevel, nLevels, pSpec))
        return pvxStsNullPtrErr;
    if (!validChannels(numChannels))
        return pvxStsNumChannelsErr;
    for (int c = 0; c < numChannels; ++c) {
        if (nLevels[c] < 2)
            return pvxStsHistoNofLevelsErr;
        if (!(lowerLevel[c] < upperLevel[c]) || !std::isfinite(lowerLevel[c]) || !std::isfinite(upperLevel[c]))
            return pvxStsRangeErr;
    }
    if (type == pvx32f) {
        writeSpec(type, numChannels, nLevels, pSpec, [=](int c, int k) {
            const double lo = lowerLevel[c], hi = upperLevel[c], n = nLevels[c] - 1;
            return double{k == nLevels[c] - 1 ? upperLevel[c] : static_cast<Pvx32f>(lo + (hi - lo) * k / n)};
        });
    } else {
        writeSpec(type, numChannels, nLevels, pSpec, [=](int c, int k) {
            // Level k of HistogramEven in closed form (lo <= hi, so q and r
            // are not negative); exact as a double.
            const std::int64_t lo = toLevel32s(lowerLevel[c]), hi = toLevel32s(upperLevel[c]);
            const std::int64_t n = nLevels[c] - 1, q = (hi - lo) / n, r = (hi - lo) % n;
            return static_cast<double>(lo + k * q + (k < r ? k : r));
        });
    }
    return pvxStsOk;
}

PvxStatus histogramGetLevels(const Pvx8u* pSpec, Pvx32f* const pLevels[])
{
    if (anyNull(pSpec, pLevels))
        return pvxStsNullPtrErr;
    SpecHeader h;
    if (!readSpec(pSpec, h))
        return pvxStsBadArgErr;
    for (int c = 0; c < h.channels; ++c)
        if (pLevels[c] == nullptr)
            return pvxStsNullPtrErr;
    for (int c = 0; c < h.channels; ++c) {
        const Byte* list = static_cast<const Byte*>(h.levels[c]);
        for (int k = 0; k < h.nLevels[c]; ++k) {
            if (h.dataType == pvx32f) {
                std::memcpy(&pLevels[c][k], list + 4 * k, 4);
            } else {
                Pvx32s v;
                std::memcpy(&v, list + 4 * k, 4);
                pLevels[c][k] = static_cast<Pvx32f>(v);
            }
        }
    }
    return pvxStsOk;
}

// The processing functions check the step against the row (the source is
// read row by row with the caller's step), then the specification: without
// the tag, or built for another data type or channel count, it is refused
// with pvxStsBadArgErr.
template <class T, int Channels>
PvxStatus countWithSpec(const T* pSrc, int srcStep, PvxiSize roiSize, Pvx32s* const pHist[Channels],
                        const Pvx8u* pSpec)
{
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (srcStep < rowBytes<T>(roiSize.width, Channels))
        return pvxStsStepErr;
    SpecHeader h;
    if (!readSpec(pSpec, h) || h.dataType != dataTypeOf<T>() || h.channels != Channels)
        return pvxStsBadArgErr;
    Channel<T> ch[Channels];
    for (int c = 0; c < Channels; ++c)
        ch[c] = {c, static_cast<const Level<T>*>(h.levels[c]), h.nLevels[c], pHist[c]};
    countImage<T, Channels, Channels>(pSrc, srcStep, roiSize, ch);
    return pvxStsOk;
}

template <class T>
PvxStatus specC1(const T* pSrc, int srcStep, PvxiSize roiSize, Pvx32s* pHist, const Pvx8u* pSpec, Pvx8u* pBuffer)
{
    (void)pBuffer;
    if (anyNull(pSrc, pHist, pSpec))
        return pvxStsNullPtrErr;
    Pvx32s* const hist[1] = {pHist};
    return countWithSpec<T, 1>(pSrc, srcStep, roiSize, hist, pSpec);
}

template <class T, int Channels>
PvxStatus specMulti(const T* pSrc, int srcStep, PvxiSize roiSize, Pvx32s* const pHist[Channels], const Pvx8u* pSpec,
                    Pvx8u* pBuffer)
{
    (void)pBuffer;
    if (anyNull(pSrc, pHist, pSpec))
        return pvxStsNullPtrErr;
    for (int c = 0; c < Channels; ++c)
        if (pHist[c] == nullptr)
            return pvxStsNullPtrErr;
    return countWithSpec<T, Channels>(pSrc, srcStep, roiSize, pHist, pSpec);
}

}  // namespace

PVX_END

#include "stats/histogram.inc"
