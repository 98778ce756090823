// LUT, LUT_Linear, LUT_Cubic: every channel value goes through a function
// given by levels and values. Level k and level k+1 bound interval k, the
// values x with level k <= x < level k+1; an interval whose lower level is not
// below its upper one maps nothing. Values below level 0 and from the last
// level up pass unchanged. The kinds:
//   0  constant: interval k gives value k;
//   1  linear:   the line through (level k, value k) and (level k+1, value k+1);
//   2  cubic:    the cubic through four neighbouring points (Cramer's rule),
//                the linear function with fewer than four levels.
// 8u, 16u and 16s expand the function into a dense table over the type's
// range (8u: 256 entries on the stack, every call; 16-bit: 65536 entries per
// channel from pvxMalloc above 4096 pixels, otherwise each pixel is mapped by
// the same per-entry rule, so both give identical results). 32f searches the
// intervals per pixel.
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "core/checks.h"
#include "core/image.h"
#include "threshold/lut_rows.h"
#include "pvxcore.h"
#include "pvxi.h"

PVX_BEGIN

namespace {

constexpr int kConstant = 0, kLinear = 1, kCubic = 2;

// ROIs of at most this many pixels map 16-bit pixels one by one instead of
// building a 65536-entry table.
constexpr std::int64_t kDirectMaxPixels = 4096;

template <class T>
using LevelOf = std::conditional_t<std::is_same_v<T, Pvx32f>, Pvx32f, Pvx32s>;

// One channel's function.
template <class V>
struct Fn {
    const V* values;
    const V* levels;
    int n;
};

// ---------------------------------------------------------------- integer rule

template <class T>
struct IntRange {
    static constexpr std::int32_t lo = std::numeric_limits<T>::min();
    static constexpr std::int32_t hi = std::numeric_limits<T>::max();
};

template <class T>
T clampInt(std::int64_t v)
{
    return static_cast<T>(v < IntRange<T>::lo ? IntRange<T>::lo : v > IntRange<T>::hi ? IntRange<T>::hi : v);
}

// y truncated toward zero and clamped to T (a NaN, which finite coefficients
// cannot produce, gives the minimum rather than undefined behaviour).
template <class T>
T truncClamp(double y)
{
    if (!(y > IntRange<T>::lo))
        return static_cast<T>(IntRange<T>::lo);
    if (y >= IntRange<T>::hi)
        return static_cast<T>(IntRange<T>::hi);
    return static_cast<T>(static_cast<std::int32_t>(y));
}

double det3(double a, double b, double c, double d, double e, double f, double g, double h, double i)
{
    return a * (e * i - f * h) - b * (d * i - f * g) + c * (d * h - e * g);
}

// Determinant of a 4x4 matrix (rows), by cofactors of the first row.
double det4(const double m[4][4])
{
    double r = 0, sign = 1;
    for (int c = 0; c < 4; ++c, sign = -sign) {
        double s[9];
        for (int row = 1, k = 0; row < 4; ++row)
            for (int col = 0; col < 4; ++col)
                if (col != c)
                    s[k++] = m[row][col];
        r += sign * m[0][c] * det3(s[0], s[1], s[2], s[3], s[4], s[5], s[6], s[7], s[8]);
    }
    return r;
}

// The cubic p(t) = a t^3 + b t^2 + c t + d through (x[i], y[i]), i = 0..3,
// by Cramer's rule. False when two abscissae coincide (zero determinant).
bool cubicThrough(const double x[4], const double y[4], double coef[4])
{
    double m[4][4];
    for (int i = 0; i < 4; ++i) {
        m[i][0] = x[i] * x[i] * x[i];
        m[i][1] = x[i] * x[i];
        m[i][2] = x[i];
        m[i][3] = 1;
    }
    const double det = det4(m);
    if (det == 0)
        return false;
    for (int c = 0; c < 4; ++c) {
        double mc[4][4];
        std::memcpy(mc, m, sizeof m);
        for (int i = 0; i < 4; ++i)
            mc[i][c] = y[i];
        coef[c] = det4(mc) / det;
    }
    return true;
}

// The mapping of interval k of an integer function over T's range: entries
// lo .. hi - 1 (level k clamped to the range, level k+1 to the range's end
// plus one) take either one value or poly(x - origin) truncated and clamped.
// The dense table and the per-pixel path both evaluate entries through this
// one routine, so they agree bit for bit.
template <class T>
struct IntervalRule {
    std::int32_t lo, hi;
    bool constant;
    T value;
    double origin, a, b, c, d;  // d includes the rounding 0.5

    T at(std::int32_t x) const
    {
        if (constant)
            return value;
        const double t = static_cast<double>(x) - origin;
        return truncClamp<T>(((a * t + b) * t + c) * t + d);
    }
};

template <class T>
bool intervalRule(const Fn<Pvx32s>& f, int kind, int k, IntervalRule<T>& r)
{
    const std::int64_t l0 = f.levels[k], l1 = f.levels[k + 1];
    if (l0 >= l1)
        return false;
    r.lo = static_cast<std::int32_t>(l0 < IntRange<T>::lo ? IntRange<T>::lo : l0 > IntRange<T>::hi ? IntRange<T>::hi : l0);
    const std::int64_t end = std::int64_t{IntRange<T>::hi} + 1;
    r.hi = static_cast<std::int32_t>(l1 < IntRange<T>::lo ? IntRange<T>::lo : l1 > end ? end : l1);
    // A one-entry interval takes value k itself, also where clamping cut it.
    r.constant = kind == kConstant || r.hi - r.lo == 1;
    r.value = clampInt<T>(f.values[k]);
    if (r.constant)
        return true;
    // (A channel with fewer than four levels is linear; C1 calls never get
    // here with them, they are handed to the Linear routine.)
    if (kind == kCubic && f.n >= 4) {
        const int j = k - 1 < 0 ? 0 : k - 1 > f.n - 4 ? f.n - 4 : k - 1;
        double x[4], y[4], coef[4];
        for (int i = 0; i < 4; ++i) {
            x[i] = static_cast<double>(f.levels[j + i]) - static_cast<double>(f.levels[j + 1]);
            y[i] = f.values[j + i];
        }
        // Four points with a repeated level (possible only with unordered
        // levels) define no cubic: the interval then falls back to its line.
        if (cubicThrough(x, y, coef)) {
            r.origin = static_cast<double>(f.levels[j + 1]);
            r.a = coef[0], r.b = coef[1], r.c = coef[2], r.d = coef[3] + 0.5;
            return true;
        }
    }
    // Linear: x * slope + offset with offset = value k + 0.5 - level k * slope.
    const double slope = (static_cast<double>(f.values[k + 1]) - f.values[k]) / (static_cast<double>(l1) - l0);
    r.origin = 0, r.a = 0, r.b = 0, r.c = slope;
    r.d = static_cast<double>(f.values[k]) + 0.5 - static_cast<double>(l0) * slope;
    return true;
}

// Fills table[(unsigned bits of x)] for every x of T: identity, then the
// intervals in increasing k (a later interval overwrites an earlier one),
// then the identity again from the last level up.
template <class T>
void buildTable(T* table, const Fn<Pvx32s>& f, int kind)
{
    using U = std::make_unsigned_t<T>;
    for (std::int32_t x = IntRange<T>::lo; x <= IntRange<T>::hi; ++x)
        table[static_cast<U>(x)] = static_cast<T>(x);
    for (int k = 0; k + 1 < f.n; ++k) {
        IntervalRule<T> r;
        if (intervalRule(f, kind, k, r))
            for (std::int32_t x = r.lo; x < r.hi; ++x)
                table[static_cast<U>(x)] = r.at(x);
    }
    for (std::int64_t x = f.levels[f.n - 1] < IntRange<T>::lo ? IntRange<T>::lo : f.levels[f.n - 1];
         x <= IntRange<T>::hi; ++x)
        table[static_cast<U>(x)] = static_cast<T>(x);
}

// The table entry of x without the table: the identity tail, else the last
// interval that holds x, else the identity.
template <class T>
T mapDirect(const Fn<Pvx32s>& f, int kind, T x)
{
    if (x >= f.levels[f.n - 1])
        return x;
    for (int k = f.n - 2; k >= 0; --k) {
        IntervalRule<T> r;
        if (f.levels[k] < f.levels[k + 1] && intervalRule(f, kind, k, r) && x >= r.lo && x < r.hi)
            return r.at(x);
    }
    return x;
}

// ---------------------------------------------------------------- 32f rule

// 32f: the first interval (increasing k) holding x; x itself below level 0,
// from the last level up, in no interval, or NaN. Linear and cubic values are
// computed in double and rounded once to float, with neither the 0.5 nor
// clamping: linear value k + (x - level k) * slope; cubic the polynomial of
// the integer rule in x - level j+1. Coefficients of the last interval used
// are kept, since neighbouring pixels mostly share an interval.
class FloatMapper {
public:
    FloatMapper(const Fn<Pvx32f>& f, int kind) : f_(f), kind_(kind == kCubic && f.n < 4 ? kLinear : kind) {}

    Pvx32f operator()(Pvx32f x)
    {
        const Pvx32f* l = f_.levels;
        if (!(x >= l[0]) || x >= l[f_.n - 1])
            return x;
        int k = 0;
        for (; k + 1 < f_.n; ++k)
            if (x >= l[k] && x < l[k + 1])
                break;
        if (k + 1 == f_.n)
            return x;
        if (kind_ == kConstant)
            return f_.values[k];
        if (k != cached_)
            prepare(k);
        const double t = static_cast<double>(x) - origin_;
        return static_cast<Pvx32f>(((a_ * t + b_) * t + c_) * t + d_);
    }

private:
    void prepare(int k)
    {
        cached_ = k;
        const Pvx32f* l = f_.levels;
        const Pvx32f* v = f_.values;
        if (kind_ == kCubic) {
            const int j = k - 1 < 0 ? 0 : k - 1 > f_.n - 4 ? f_.n - 4 : k - 1;
            double x[4], y[4], coef[4];
            for (int i = 0; i < 4; ++i) {
                x[i] = static_cast<double>(l[j + i]) - static_cast<double>(l[j + 1]);
                y[i] = v[j + i];
            }
            if (cubicThrough(x, y, coef)) {
                origin_ = l[j + 1], a_ = coef[0], b_ = coef[1], c_ = coef[2], d_ = coef[3];
                return;
            }
        }
        origin_ = l[k], a_ = 0, b_ = 0;
        c_ = (static_cast<double>(v[k + 1]) - v[k]) / (static_cast<double>(l[k + 1]) - l[k]);
        d_ = v[k];
    }

    Fn<Pvx32f> f_;
    int kind_;
    int cached_ = -1;
    double origin_ = 0, a_ = 0, b_ = 0, c_ = 0, d_ = 0;
};

// ---------------------------------------------------------------- row kernels

// 16-bit through tables of 65536 entries per channel, indexed by the
// element's unsigned bits.
template <class T, int Pixel, int Used>
void lutRow16(T* const* tab, const T* s, T* d, std::int64_t n)
{
    using U = std::make_unsigned_t<T>;
    // Blocks of 8 pixels, every lookup before the block's store (stores can
    // then not hold back the following loads; in place is safe); AC4 writes
    // the alpha it read back. Prefetch per 32 pixels.
    constexpr int kBlock = 8 * Pixel;
    std::int64_t i = 0;
    for (; i + 4 * kBlock <= n; i += 4 * kBlock) {
        prefetchAhead(s + i, static_cast<int>(4 * kBlock * sizeof(T)));
        for (int q = 0; q < 4 * kBlock; q += kBlock) {
            T r[kBlock];
#pragma GCC unroll 32
            for (int j = 0; j < kBlock; ++j)
                r[j] = j % Pixel < Used ? tab[j % Pixel][static_cast<U>(s[i + q + j])] : d[i + q + j];
            std::memcpy(d + i + q, r, sizeof r);
        }
    }
    for (; i < n; i += Pixel)
        for (int c = 0; c < Used; ++c)
            d[i + c] = tab[c][static_cast<U>(s[i + c])];
}

// ---------------------------------------------------------------- drivers

// Runs rowFn(src row, dst row, elements) over the ROI, as one row when both
// images are contiguous.
template <class T, int Pixel, class RowFn>
void forRows(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roi, RowFn rowFn)
{
    const std::int64_t row = rowBytes<T>(roi.width, Pixel);
    roi = mergeContiguousRows(roi, row, srcStep, row, dstStep);
    const std::int64_t n = static_cast<std::int64_t>(roi.width) * Pixel;
    for (int y = 0; y < roi.height; ++y)
        rowFn(rowAt(pSrc, srcStep, y), rowAt(pDst, dstStep, y), n);
}

// The mapping, after the checks. Only the 16-bit tables can fail
// (pvxStsNoMemErr, before anything is written).
template <class T, int Pixel, int Used, int Kind>
PvxStatus mapImage(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roi, const Fn<LevelOf<T>>* fn)
{
    if constexpr (std::is_same_v<T, Pvx8u>) {
        alignas(64) Pvx8u tab[Pixel][256];
        for (int c = 0; c < Pixel; ++c)
            if (c < Used)
                buildTable<Pvx8u>(tab[c], fn[c], Kind);
            else
                for (int x = 0; x < 256; ++x)
                    tab[c][x] = static_cast<Pvx8u>(x);
        mapRows8u<Pixel, Used>(tab, pSrc, srcStep, pDst, dstStep, roi);
    } else if constexpr (std::is_same_v<T, Pvx32f>) {
        for (int c = 0; c < Used; ++c) {
            FloatMapper map(fn[c], Kind);
            forRows<T, Pixel>(pSrc, srcStep, pDst, dstStep, roi, [&map, c](const T* s, T* d, std::int64_t n) {
                for (std::int64_t i = c; i < n; i += Pixel)
                    d[i] = map(s[i]);
            });
        }
    } else if (static_cast<std::int64_t>(roi.width) * roi.height <= kDirectMaxPixels) {
        forRows<T, Pixel>(pSrc, srcStep, pDst, dstStep, roi, [fn](const T* s, T* d, std::int64_t n) {
            for (std::int64_t i = 0; i < n; i += Pixel)
                for (int c = 0; c < Used; ++c)
                    d[i + c] = mapDirect<T>(fn[c], Kind, s[i + c]);
        });
    } else {
        T* buffer = static_cast<T*>(pvxMalloc(65536 * Used * static_cast<int>(sizeof(T))));
        if (buffer == nullptr)
            return pvxStsNoMemErr;
        T* tab[4];
        for (int c = 0; c < Used; ++c) {
            tab[c] = buffer + 65536 * c;
            buildTable<T>(tab[c], fn[c], Kind);
        }
        forRows<T, Pixel>(pSrc, srcStep, pDst, dstStep, roi, [&tab](const T* s, T* d, std::int64_t n) {
            lutRow16<T, Pixel, Used>(tab, s, d, n);
        });
        pvxFree(buffer);
    }
    return pvxStsOk;
}

// The checks shared by all forms, in order, after the pointers: size, steps
// below 1, a count below 2 for any mapped channel.
template <class T, int Pixel, int Used, int Kind>
PvxStatus checkAndMap(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roi,
                      const LevelOf<T>* const* values, const LevelOf<T>* const* levels, const int* nLevels)
{
    if (roiEmpty(roi))
        return pvxStsSizeErr;
    if (srcStep < 1 || dstStep < 1)
        return pvxStsStepErr;
    Fn<LevelOf<T>> fn[4];
    for (int c = 0; c < Used; ++c) {
        if (nLevels[c] < 2)
            return pvxStsLUTNofLevelsErr;
        fn[c] = {values[c], levels[c], nLevels[c]};
    }
    return mapImage<T, Pixel, Used, Kind>(pSrc, srcStep, pDst, dstStep, roi, fn);
}

// A per-channel argument is bad when its array or any mapped entry is null;
// a null count array is reported with the pointers as well.
template <int Used, class V>
bool anyNullEntry(const V* const* array)
{
    if (array == nullptr)
        return true;
    for (int c = 0; c < Used; ++c)
        if (array[c] == nullptr)
            return true;
    return false;
}

// ---------------------------------------------------------------- exports

template <class T, int Pixel, int Used, int Kind>
PvxStatus lut(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roiSize, const LevelOf<T>* const* pValues,
              const LevelOf<T>* const* pLevels, const int* nLevels)
{
    if (anyNull(pSrc, pDst) || anyNullEntry<Used>(pValues) || anyNullEntry<Used>(pLevels) || nLevels == nullptr)
        return pvxStsNullPtrErr;
    return checkAndMap<T, Pixel, Used, Kind>(pSrc, srcStep, pDst, dstStep, roiSize, pValues, pLevels, nLevels);
}

template <class T, int Pixel, int Used, int Kind>
PvxStatus lutI(T* pSrcDst, int srcDstStep, PvxiSize roiSize, const LevelOf<T>* const* pValues,
               const LevelOf<T>* const* pLevels, const int* nLevels)
{
    if (anyNull(pSrcDst) || anyNullEntry<Used>(pValues) || anyNullEntry<Used>(pLevels) || nLevels == nullptr)
        return pvxStsNullPtrErr;
    return checkAndMap<T, Pixel, Used, Kind>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize, pValues, pLevels,
                                             nLevels);
}

template <class T, int Kind>
PvxStatus lutC1(const T* pSrc, int srcStep, T* pDst, int dstStep, PvxiSize roiSize, const LevelOf<T>* pValues,
                const LevelOf<T>* pLevels, int nLevels)
{
    // Cubic with fewer than four levels is the linear function: the same
    // arguments go to this path's Linear routine, whose checks are the same.
    if constexpr (Kind == kCubic)
        if (nLevels < 4)
            return lutC1<T, kLinear>(pSrc, srcStep, pDst, dstStep, roiSize, pValues, pLevels, nLevels);
    if (anyNull(pSrc, pDst, pValues, pLevels))
        return pvxStsNullPtrErr;
    return checkAndMap<T, 1, 1, Kind>(pSrc, srcStep, pDst, dstStep, roiSize, &pValues, &pLevels, &nLevels);
}

template <class T, int Kind>
PvxStatus lutC1I(T* pSrcDst, int srcDstStep, PvxiSize roiSize, const LevelOf<T>* pValues, const LevelOf<T>* pLevels,
                 int nLevels)
{
    if constexpr (Kind == kCubic)
        if (nLevels < 4)
            return lutC1I<T, kLinear>(pSrcDst, srcDstStep, roiSize, pValues, pLevels, nLevels);
    if (anyNull(pSrcDst, pValues, pLevels))
        return pvxStsNullPtrErr;
    return checkAndMap<T, 1, 1, Kind>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize, &pValues, &pLevels,
                                      &nLevels);
}

}  // namespace

PVX_END

#include "threshold/lut.inc"
