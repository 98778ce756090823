// Extrema: the smallest and largest value of an image per channel (Min, Max,
// MinMax) and the first position of the extreme in row-major order (MinIndx,
// MaxIndx).
//
// Every row is read with 16-byte vectors into a few lane-wise accumulators;
// lanes keep their channel because a vector always starts a whole number of
// pixels into the row for C1, C4 and AC4 (16 bytes hold whole pixels), and
// for C3 the channel of a lane repeats every three vectors (48 bytes), so the
// accumulators there come in groups of three. Lanes are reduced to channels
// only where a result is needed.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

#include "core/checks.h"
#include "core/image.h"
#include "core/simd.h"
#include "pvxi.h"

PVX_BEGIN

namespace {

// The smallest and largest value of T; for 32f the infinities, so that a
// running minimum that starts at +inf is still beaten by nothing but real
// data.
template <class T>
constexpr T lowestValue()
{
    if constexpr (std::numeric_limits<T>::has_infinity)
        return -std::numeric_limits<T>::infinity();
    else
        return std::numeric_limits<T>::lowest();
}

template <class T>
constexpr T highestValue()
{
    if constexpr (std::numeric_limits<T>::has_infinity)
        return std::numeric_limits<T>::infinity();
    else
        return std::numeric_limits<T>::max();
}

// Vector operations of one element type. min(x, acc) and max(x, acc) take the
// data first: for 32f, MINPS and MAXPS return their second operand when either
// is NaN, so NaN data leaves the accumulator as it was and takes no part.
template <class T>
struct Lanes;

template <>
struct Lanes<Pvx8u> {
    using V = __m128i;
    static V load(const void* p) { return loadu(p); }
    static V splat(Pvx8u v) { return _mm_set1_epi8(static_cast<char>(v)); }
    static V min(V x, V acc) { return _mm_min_epu8(x, acc); }
    static V max(V x, V acc) { return _mm_max_epu8(x, acc); }
    // Some lane of a below (above) the same lane of b.
    static bool anyBelow(V a, V b) { return _mm_movemask_epi8(_mm_cmpeq_epi8(_mm_min_epu8(a, b), b)) != 0xffff; }
    static bool anyAbove(V a, V b) { return _mm_movemask_epi8(_mm_cmpeq_epi8(_mm_max_epu8(a, b), b)) != 0xffff; }
    // One bit per byte: set where the lanes of a and b are equal.
    static int equalBytes(V a, V b) { return _mm_movemask_epi8(_mm_cmpeq_epi8(a, b)); }
    static void store(Pvx8u* out, V v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(out), v); }
};

template <>
struct Lanes<Pvx16s> {
    using V = __m128i;
    static V load(const void* p) { return loadu(p); }
    static V splat(Pvx16s v) { return _mm_set1_epi16(v); }
    static V min(V x, V acc) { return _mm_min_epi16(x, acc); }
    static V max(V x, V acc) { return _mm_max_epi16(x, acc); }
    static bool anyBelow(V a, V b) { return _mm_movemask_epi8(_mm_cmpgt_epi16(b, a)) != 0; }
    static bool anyAbove(V a, V b) { return _mm_movemask_epi8(_mm_cmpgt_epi16(a, b)) != 0; }
    static int equalBytes(V a, V b) { return _mm_movemask_epi8(_mm_cmpeq_epi16(a, b)); }
    static void store(Pvx16s* out, V v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(out), v); }
};

// SSE2 has no unsigned 16-bit minimum or maximum: lanes hold the values with
// their top bit flipped, which maps 0..65535 in order onto -32768..32767, so
// the signed instructions apply. load, splat and store convert.
template <>
struct Lanes<Pvx16u> {
    using V = __m128i;
    static V bias() { return _mm_set1_epi16(static_cast<short>(0x8000)); }
    static V load(const void* p) { return _mm_xor_si128(loadu(p), bias()); }
    static V splat(Pvx16u v) { return _mm_set1_epi16(static_cast<short>(v ^ 0x8000u)); }
    static V min(V x, V acc) { return _mm_min_epi16(x, acc); }
    static V max(V x, V acc) { return _mm_max_epi16(x, acc); }
    static bool anyBelow(V a, V b) { return _mm_movemask_epi8(_mm_cmpgt_epi16(b, a)) != 0; }
    static bool anyAbove(V a, V b) { return _mm_movemask_epi8(_mm_cmpgt_epi16(a, b)) != 0; }
    static int equalBytes(V a, V b) { return _mm_movemask_epi8(_mm_cmpeq_epi16(a, b)); }
    static void store(Pvx16u* out, V v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_xor_si128(v, bias())); }
};

template <>
struct Lanes<Pvx32f> {
    using V = __m128;
    static V load(const void* p) { return _mm_loadu_ps(static_cast<const float*>(p)); }
    static V splat(Pvx32f v) { return _mm_set1_ps(v); }
    static V min(V x, V acc) { return _mm_min_ps(x, acc); }
    static V max(V x, V acc) { return _mm_max_ps(x, acc); }
    static bool anyBelow(V a, V b) { return _mm_movemask_ps(_mm_cmplt_ps(a, b)) != 0; }
    static bool anyAbove(V a, V b) { return _mm_movemask_ps(_mm_cmpgt_ps(a, b)) != 0; }
    static int equalBytes(V a, V b) { return _mm_movemask_epi8(_mm_castps_si128(_mm_cmpeq_ps(a, b))); }
    static void store(Pvx32f* out, V v) { _mm_storeu_ps(out, v); }
};

// Where the channels of an interleaved row of T lie in its vectors.
template <class T, int Channels>
struct Layout {
    static constexpr int kLanes = 16 / static_cast<int>(sizeof(T));  // elements per vector
    static constexpr int kPeriod = Channels == 3 ? 3 : 1;             // vectors until lane channels repeat
    // Accumulators: a multiple of the period, enough independent chains to
    // hide the latency of the float minimum (4 cycles) as well as the integer.
    static constexpr int kAcc = Channels == 3 ? (sizeof(T) == 4 ? 6 : 3) : 4;

    // Bytes (one bit each) of vector `phase` of a period that hold channel c.
    static constexpr int channelBytes(int phase, int c)
    {
        int bits = 0;
        for (int b = 0; b < 16; ++b)
            if ((phase * kLanes + b / static_cast<int>(sizeof(T))) % Channels == c)
                bits |= 1 << b;
        return bits;
    }
};

// Lane-wise running minima and/or maxima: accumulator k takes vectors k,
// k + kAcc, k + 2 kAcc, ... of a row, so its lanes have the channels of
// period vector k % kPeriod.
template <class T, int Channels, bool DoMin, bool DoMax>
struct Accumulators {
    using L = Lanes<T>;
    using V = typename L::V;
    using Lay = Layout<T, Channels>;
    static constexpr int kAcc = Lay::kAcc, kPeriod = Lay::kPeriod;

    V mn[kAcc], mx[kAcc];

    void reset()
    {
        for (int k = 0; k < kAcc; ++k) {
            if constexpr (DoMin)
                mn[k] = L::splat(highestValue<T>());
            if constexpr (DoMax)
                mx[k] = L::splat(lowestValue<T>());
        }
    }

    void add(int k, V x)
    {
        if constexpr (DoMin)
            mn[k] = L::min(x, mn[k]);
        if constexpr (DoMax)
            mx[k] = L::max(x, mx[k]);
    }

    // Folds every accumulator into the one of its period vector: afterwards
    // the first kPeriod entries hold the results.
    void fold()
    {
        for (int k = kPeriod; k < kAcc; ++k) {
            if constexpr (DoMin)
                mn[k % kPeriod] = L::min(mn[k], mn[k % kPeriod]);
            if constexpr (DoMax)
                mx[k % kPeriod] = L::max(mx[k], mx[k % kPeriod]);
        }
    }

    // True when every one of the first Used channels has a lane equal to
    // `bound` in one of `v`.
    template <int Used>
    static bool reaches(const V (&v)[kAcc], T bound)
    {
        const V b = L::splat(bound);
        int bits[kPeriod] = {};
        for (int k = 0; k < kAcc; ++k)
            bits[k % kPeriod] |= L::equalBytes(v[k], b);
        for (int c = 0; c < Used; ++c) {
            int any = 0;
            for (int p = 0; p < kPeriod; ++p)
                any |= bits[p] & Lay::channelBytes(p, c);
            if (any == 0)
                return false;
        }
        return true;
    }

    // Every tracked extreme of the first Used channels is at the type's
    // bound, so no further pixel can change a result.
    template <int Used>
    bool atBounds() const
    {
        if constexpr (DoMin)
            if (!reaches<Used>(mn, lowestValue<T>()))
                return false;
        if constexpr (DoMax)
            if (!reaches<Used>(mx, highestValue<T>()))
                return false;
        return true;
    }
};

// Per-channel extreme (minimum when IsMin) of the lanes of the first kPeriod
// vectors of v, for every channel of the layout.
template <class T, int Channels, bool IsMin, class V>
void laneExtremes(const V* v, T (&out)[4])
{
    using Lay = Layout<T, Channels>;
    alignas(16) T lanes[Lay::kPeriod * Lay::kLanes];
    for (int p = 0; p < Lay::kPeriod; ++p)
        Lanes<T>::store(lanes + p * Lay::kLanes, v[p]);
    for (int c = 0; c < 4; ++c)
        out[c] = IsMin ? highestValue<T>() : lowestValue<T>();
    // Accumulator lanes are never NaN: they start at an infinity and NaN data
    // leaves them unchanged.
    for (int i = 0; i < Lay::kPeriod * Lay::kLanes; ++i) {
        T& o = out[i % Channels];
        if (IsMin ? lanes[i] < o : lanes[i] > o)
            o = lanes[i];
    }
}

// On images larger than the outer caches, a read-only scan that relies on
// the hardware prefetcher alone reached about two thirds of the bandwidth it
// reaches when every 64 bytes read also ask for the line 1 KiB ahead (the
// hardware streams restart at every 4 KiB page). A prefetch never faults, so
// running past the image is harmless.
constexpr std::ptrdiff_t kPrefetchBytes = 1024;

inline void prefetchAhead(const void* p)
{
    _mm_prefetch(static_cast<const char*>(p) + kPrefetchBytes, _MM_HINT_T0);
}

// Adds one row of `elements` interleaved elements to the accumulators. The
// last partial vector goes through a small buffer whose lanes past the row
// repeat the same channel of the row's first pixel, which changes no
// extreme; nothing past the row is read.
template <class T, int Channels, class Acc>
inline void scanRow(const T* row, std::ptrdiff_t elements, Acc& a)
{
    using L = Lanes<T>;
    constexpr int kLanes = Layout<T, Channels>::kLanes, kAcc = Acc::kAcc;
    const std::ptrdiff_t vectors = elements / kLanes;
    std::ptrdiff_t j = 0;
    for (; j + kAcc <= vectors; j += kAcc)
        for (int k = 0; k < kAcc; ++k) {
            if (k % 4 == 0)
                prefetchAhead(row + (j + k) * kLanes);
            a.add(k, L::load(row + (j + k) * kLanes));
        }
    // Accumulator indices stay compile-time constants (the loops unroll), so
    // the accumulators can live in registers.
    for (int k = 0; k + 1 < kAcc; ++k)
        if (j + k < vectors)
            a.add(k, L::load(row + (j + k) * kLanes));
    const std::ptrdiff_t done = vectors * kLanes;
    if (done < elements) {
        alignas(16) T tail[kLanes];
        for (std::ptrdiff_t i = 0; i < kLanes; ++i)
            tail[i] = done + i < elements ? row[done + i] : row[(done + i) % Channels];
        const int phase = static_cast<int>(vectors % Acc::kPeriod);
        for (int p = 0; p < Acc::kPeriod; ++p)
            if (p == phase)
                a.add(p, L::load(tail));
    }
}

// Column of the first pixel in `row` whose channel c equals v, or -1: a
// vector compare over the row, then the elements after the last whole
// vector one by one.
template <class T, int Channels>
int firstColumn(const T* row, int width, int c, T v)
{
    using L = Lanes<T>;
    using Lay = Layout<T, Channels>;
    constexpr int kLanes = Lay::kLanes;
    const std::ptrdiff_t elements = static_cast<std::ptrdiff_t>(width) * Channels;
    const std::ptrdiff_t vectors = elements / kLanes;
    const auto want = L::splat(v);
    for (std::ptrdiff_t j = 0; j < vectors; ++j) {
        const int hits =
            L::equalBytes(L::load(row + j * kLanes), want) & Lay::channelBytes(static_cast<int>(j % Lay::kPeriod), c);
        if (hits != 0) {
            // A loop rather than a bit-scan builtin: compilers may emit it as
            // TZCNT, which the v8 path must not contain. It runs once.
            int byte = 0;
            while (((hits >> byte) & 1) == 0)
                ++byte;
            return static_cast<int>((j * kLanes + byte / static_cast<int>(sizeof(T))) / Channels);
        }
    }
    for (std::ptrdiff_t e = vectors * kLanes; e < elements; ++e)
        if (e % Channels == c && row[e] == v)
            return static_cast<int>(e / Channels);
    return -1;
}

// First pixel, in row-major order from row `fromRow`, whose channel c equals
// v; false when there is none (only possible for a 32f infinity that no pixel
// holds: a channel of nothing but NaN).
template <class T, int Channels>
bool locate(const T* src, int step, PvxiSize roi, int c, T v, int fromRow, int& x, int& y)
{
    for (int r = fromRow; r < roi.height; ++r) {
        const int col = firstColumn<T, Channels>(rowAt(src, step, r), roi.width, c, v);
        if (col >= 0) {
            x = col;
            y = r;
            return true;
        }
    }
    return false;
}

// Min, Max and MinMax: lane-wise extremes over every row, reduced to
// channels once. The scan stops when every reported channel has met the
// type's bound (for 32f, an infinity): no later pixel could change a result.
template <class T, int Channels, int Used, bool DoMin, bool DoMax>
void extremes(const T* src, int step, PvxiSize roi, T (&mn)[4], T (&mx)[4])
{
    Accumulators<T, Channels, DoMin, DoMax> a;
    a.reset();
    const std::ptrdiff_t elements = static_cast<std::ptrdiff_t>(roi.width) * Channels;
    for (int y = 0; y < roi.height; ++y) {
        scanRow<T, Channels>(rowAt(src, step, y), elements, a);
        if (a.template atBounds<Used>())
            break;
    }
    a.fold();
    if constexpr (DoMin)
        laneExtremes<T, Channels, true>(a.mn, mn);
    if constexpr (DoMax)
        laneExtremes<T, Channels, false>(a.mx, mx);
    if constexpr (std::numeric_limits<T>::has_infinity) {
        // NaN takes no part. A minimum still at +inf (a maximum at -inf) is
        // either a true infinity or a channel of nothing but NaN, which then
        // reports its first pixel.
        for (int c = 0; c < Used; ++c) {
            int x, y;
            bool onlyNaN = false;
            if (DoMin && DoMax)
                onlyNaN = mn[c] > mx[c];
            else if (DoMin && mn[c] == highestValue<T>())
                onlyNaN = !locate<T, Channels>(src, step, roi, c, mn[c], 0, x, y);
            else if (DoMax && mx[c] == lowestValue<T>())
                onlyNaN = !locate<T, Channels>(src, step, roi, c, mx[c], 0, x, y);
            if (onlyNaN) {
                std::memcpy(&mn[c], src + c, sizeof(T));
                std::memcpy(&mx[c], src + c, sizeof(T));
            }
        }
    }
}

// MinIndx and MaxIndx. Each row's extreme is computed lane-wise and compared
// with the running extremes spread over the same lanes; only a row that beats
// some channel strictly is reduced, and for each channel it beats it becomes
// the recorded row. So the recorded row holds the first row with the final
// extreme, and one scan of it gives the first column. The rows stop once every
// reported channel is at the type's bound (0 or 255 for 8u; the 16-bit
// limits; an infinity for 32f): a later row could only tie, and a tie never
// replaces the recorded row, so stopping gives the same position.
template <class T, int Channels, int Used, bool IsMin>
void extremeIndex(const T* src, int step, PvxiSize roi, T* value, int* indexX, int* indexY)
{
    using L = Lanes<T>;
    using Acc = Accumulators<T, Channels, IsMin, !IsMin>;
    using Lay = Layout<T, Channels>;
    constexpr T kStart = IsMin ? highestValue<T>() : lowestValue<T>();
    constexpr T kBound = IsMin ? lowestValue<T>() : highestValue<T>();

    // Channels that are not reported (the alpha of AC4) sit at the bound in
    // the running lanes, where no value can beat them.
    T run[4];
    int recorded[4] = {0, 0, 0, 0};
    for (int c = 0; c < 4; ++c)
        run[c] = c < Used ? kStart : kBound;
    typename L::V runLanes[Lay::kPeriod];
    const auto spread = [&] {
        alignas(16) T lanes[Lay::kPeriod * Lay::kLanes];
        for (int i = 0; i < Lay::kPeriod * Lay::kLanes; ++i)
            lanes[i] = run[i % Channels];
        for (int p = 0; p < Lay::kPeriod; ++p)
            runLanes[p] = L::load(lanes + p * Lay::kLanes);
    };
    spread();

    Acc a;
    const std::ptrdiff_t elements = static_cast<std::ptrdiff_t>(roi.width) * Channels;
    for (int y = 0; y < roi.height; ++y) {
        a.reset();
        scanRow<T, Channels>(rowAt(src, step, y), elements, a);
        a.fold();
        typename L::V rowLanes[Lay::kPeriod];
        for (int p = 0; p < Lay::kPeriod; ++p)
            rowLanes[p] = IsMin ? a.mn[p] : a.mx[p];
        bool beats = false;
        for (int p = 0; p < Lay::kPeriod; ++p)
            beats |= IsMin ? L::anyBelow(rowLanes[p], runLanes[p]) : L::anyAbove(rowLanes[p], runLanes[p]);
        if (!beats)
            continue;
        T rowExtreme[4];
        laneExtremes<T, Channels, IsMin>(rowLanes, rowExtreme);
        bool done = true;
        for (int c = 0; c < Used; ++c) {
            if (IsMin ? rowExtreme[c] < run[c] : rowExtreme[c] > run[c]) {
                run[c] = rowExtreme[c];
                recorded[c] = y;
            }
            done = done && run[c] == kBound;
        }
        if (done)
            break;
        spread();
    }

    for (int c = 0; c < Used; ++c) {
        int x = 0, y = 0;
        // The extreme always lies in the recorded row, except for 32f when
        // no row beat the starting infinity: then the first pixel holding
        // that infinity may lie further down, or (nothing but NaN) nowhere,
        // and the first pixel is reported.
        if (locate<T, Channels>(src, step, roi, c, run[c], recorded[c], x, y))
            std::memcpy(&value[c], rowAt(src, step, y) + static_cast<std::ptrdiff_t>(x) * Channels + c, sizeof(T));
        else
            std::memcpy(&value[c], src + c, sizeof(T));
        indexX[c] = x;
        indexY[c] = y;
    }
}

template <class T, int Channels, int Used>
PvxStatus minImage(const T* pSrc, int srcStep, PvxiSize roiSize, T* pMin)
{
    if (anyNull(pSrc, pMin))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    T mn[4], mx[4];
    extremes<T, Channels, Used, true, false>(pSrc, srcStep, roiSize, mn, mx);
    std::memcpy(pMin, mn, Used * sizeof(T));
    return pvxStsOk;
}

template <class T, int Channels, int Used>
PvxStatus maxImage(const T* pSrc, int srcStep, PvxiSize roiSize, T* pMax)
{
    if (anyNull(pSrc, pMax))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    T mn[4], mx[4];
    extremes<T, Channels, Used, false, true>(pSrc, srcStep, roiSize, mn, mx);
    std::memcpy(pMax, mx, Used * sizeof(T));
    return pvxStsOk;
}

template <class T, int Channels, int Used>
PvxStatus minMaxImage(const T* pSrc, int srcStep, PvxiSize roiSize, T* pMin, T* pMax)
{
    if (anyNull(pSrc, pMin, pMax))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    T mn[4], mx[4];
    extremes<T, Channels, Used, true, true>(pSrc, srcStep, roiSize, mn, mx);
    std::memcpy(pMin, mn, Used * sizeof(T));
    std::memcpy(pMax, mx, Used * sizeof(T));
    return pvxStsOk;
}

template <class T, int Channels, int Used>
PvxStatus minIndex(const T* pSrc, int srcStep, PvxiSize roiSize, T* pMin, int* pIndexX, int* pIndexY)
{
    if (anyNull(pSrc, pMin, pIndexX, pIndexY))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    extremeIndex<T, Channels, Used, true>(pSrc, srcStep, roiSize, pMin, pIndexX, pIndexY);
    return pvxStsOk;
}

template <class T, int Channels, int Used>
PvxStatus maxIndex(const T* pSrc, int srcStep, PvxiSize roiSize, T* pMax, int* pIndexX, int* pIndexY)
{
    if (anyNull(pSrc, pMax, pIndexX, pIndexY))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    extremeIndex<T, Channels, Used, false>(pSrc, srcStep, roiSize, pMax, pIndexX, pIndexY);
    return pvxStsOk;
}

}  // namespace

PVX_END

#include "stats/extrema.inc"
