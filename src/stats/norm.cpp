// Sum, Mean, Norm, NormDiff, NormRel: reductions of an image ROI (or of the
// difference of two images) to one double per channel.
//
// Every exported form checks its arguments in its family's order, then runs
// one reduction kernel over the rows and turns the kernel's raw per-channel
// values (sums, sums of squares or maxima) into the result.
//
// Kernels work on 16-byte vectors. A block is the smallest run of vectors
// that starts on a pixel boundary (one vector for C1 and C4, three for C3), so
// lane i of vector k of every block always holds the same channel:
// element (k * elements-per-vector + i) mod elements-per-pixel. Integer data is
// summed exactly: narrow vector lanes are widened before they could overflow
// and end in 128-bit totals, so no ROI that the size arguments admit can
// overflow. Row tails are finished by scalar code.
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <type_traits>

#include "core/checks.h"
#include "core/image.h"
#include "core/simd.h"
#include "pvxi.h"

PVX_BEGIN

namespace {

enum class NormKind { Inf, L1, L2 };

// ---------------------------------------------------------------- exact totals

// A signed 128-bit integer total: the sum of at most 2^62 pixels of 32-bit
// squares still fits.
class WideSum {
public:
    void add(std::int64_t v)
    {
        const std::uint64_t lo = lo_ + static_cast<std::uint64_t>(v);
        hi_ += (lo < lo_ ? 1u : 0u) + (v < 0 ? ~std::uint64_t{0} : 0u);
        lo_ = lo;
    }
    void addUnsigned(std::uint64_t v)
    {
        const std::uint64_t lo = lo_ + v;
        hi_ += lo < lo_ ? 1u : 0u;
        lo_ = lo;
    }
    // The total rounded once to the nearest double (ties to even).
    double toDouble() const
    {
        const bool negative = static_cast<std::int64_t>(hi_) < 0;
        std::uint64_t lo = lo_, hi = hi_;
        if (negative) {
            lo = ~lo + 1;
            hi = ~hi + (lo == 0 ? 1u : 0u);
        }
        double magnitude;
        if (hi == 0) {
            magnitude = static_cast<double>(lo);
        } else {
            // The top 64 bits, with any lower non-zero bit folded into the
            // last one so that the conversion still rounds correctly.
            const int shift = 64 - __builtin_clzll(hi);  // 1..63 for any reachable total
            std::uint64_t top = (hi << (64 - shift)) | (lo >> shift);
            if ((lo << (64 - shift)) != 0)
                top |= 1;
            magnitude = std::ldexp(static_cast<double>(top), shift);
        }
        return negative ? -magnitude : magnitude;
    }

private:
    std::uint64_t lo_ = 0, hi_ = 0;
};

// Adds the lanes of a vector of 32-bit (Lane = std::uint32_t or std::int32_t)
// or unsigned 64-bit lanes to the totals of their channels. Lane i holds
// element first + i * stride of a block.
template <class Lane, int Pixel>
void addLanes(WideSum* totals, __m128i v, int first, int stride)
{
    constexpr int kLanes = 16 / sizeof(Lane);
    alignas(16) Lane lane[kLanes];
    storea(lane, v);
    for (int i = 0; i < kLanes; ++i) {
        WideSum& t = totals[(first + i * stride) % Pixel];
        if constexpr (std::is_same_v<Lane, std::uint64_t>)
            t.addUnsigned(lane[i]);
        else
            t.add(lane[i]);
    }
}

// ---------------------------------------------------------------- values

inline __m128i absDiffU8(__m128i x, __m128i y)
{
    return _mm_or_si128(_mm_subs_epu8(x, y), _mm_subs_epu8(y, x));
}

inline __m128i absDiffU16(__m128i x, __m128i y)
{
    return _mm_or_si128(_mm_subs_epu16(x, y), _mm_subs_epu16(y, x));
}

// 16 bytes of two floats' worth of lanes widened: the low two and high two.
inline void widen(__m128 f, __m128d& low, __m128d& high)
{
    low = _mm_cvtps_pd(f);
    high = _mm_cvtps_pd(_mm_movehl_ps(f, f));
}

inline __m128 loadTwoFloats(const float* p)
{
    return _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));
}

// What a kernel reduces, read from image a (and b): vec() gives the 16 bytes
// at a (and b), one() the element at a (and b).
//
// Magnitude: |x|, or |x - y| with Diff. Integer magnitudes are unsigned lanes
// of the element's width: |x| of 16s and |x - y| of 16s fit 16 unsigned bits,
// |x| of 32s fits 32.
template <class T, bool Diff>
struct Magnitude;

template <bool Diff>
struct Magnitude<Pvx8u, Diff> {
    using T = Pvx8u;
    static constexpr bool kTwo = Diff;
    static __m128i vec(const T* a, const T* b)
    {
        if constexpr (Diff)
            return absDiffU8(loadu(a), loadu(b));
        else
            return loadu(a);
    }
    static std::int64_t one(const T* a, const T* b)
    {
        if constexpr (Diff)
            return std::abs(int{*a} - int{*b});
        else
            return *a;
    }
};

template <bool Diff>
struct Magnitude<Pvx16u, Diff> {
    using T = Pvx16u;
    static constexpr bool kTwo = Diff;
    static __m128i vec(const T* a, const T* b)
    {
        if constexpr (Diff)
            return absDiffU16(loadu(a), loadu(b));
        else
            return loadu(a);
    }
    static std::int64_t one(const T* a, const T* b)
    {
        if constexpr (Diff)
            return std::abs(int{*a} - int{*b});
        else
            return *a;
    }
};

template <bool Diff>
struct Magnitude<Pvx16s, Diff> {
    using T = Pvx16s;
    static constexpr bool kTwo = Diff;
    static __m128i vec(const T* a, const T* b)
    {
        if constexpr (Diff) {
            // max - min lies in 0..65535: exact as an unsigned 16-bit lane.
            const __m128i x = loadu(a), y = loadu(b);
            return _mm_sub_epi16(_mm_max_epi16(x, y), _mm_min_epi16(x, y));
        } else {
            return _mm_abs_epi16(loadu(a));  // |-32768| is 0x8000: right as unsigned
        }
    }
    static std::int64_t one(const T* a, const T* b)
    {
        if constexpr (Diff)
            return std::abs(int{*a} - int{*b});
        else
            return std::abs(int{*a});
    }
};

template <>
struct Magnitude<Pvx32s, false> {
    using T = Pvx32s;
    static constexpr bool kTwo = false;
    static __m128i vec(const T* a, const T*) { return _mm_abs_epi32(loadu(a)); }
    static std::int64_t one(const T* a, const T*) { return std::llabs(std::int64_t{*a}); }
};

// Float policies also give the values in double precision: wide() for one
// element, wide4() for four and wide2() for two.
template <bool Diff>
struct Magnitude<Pvx32f, Diff> {
    using T = Pvx32f;
    static constexpr bool kTwo = Diff;
    static __m128 absMask() { return _mm_castsi128_ps(_mm_set1_epi32(0x7fffffff)); }
    static __m128d absMaskD() { return _mm_castsi128_pd(_mm_set1_epi64x(0x7fffffffffffffffLL)); }
    static __m128 vecf(const T* a, const T* b)
    {
        const __m128 x = _mm_loadu_ps(a);
        return _mm_and_ps(absMask(), Diff ? _mm_sub_ps(x, _mm_loadu_ps(b)) : x);
    }
    static float onef(const T* a, const T* b) { return std::fabs(Diff ? *a - *b : *a); }
    static double wide(const T* a, const T* b)
    {
        return std::fabs(Diff ? double{*a} - double{*b} : double{*a});
    }
    static void wide4(const T* a, const T* b, __m128d& low, __m128d& high)
    {
        widen(_mm_loadu_ps(a), low, high);
        if constexpr (Diff) {
            __m128d bl, bh;
            widen(_mm_loadu_ps(b), bl, bh);
            low = _mm_sub_pd(low, bl);
            high = _mm_sub_pd(high, bh);
        }
        low = _mm_and_pd(absMaskD(), low);
        high = _mm_and_pd(absMaskD(), high);
    }
    static __m128d wide2(const T* a, const T* b)
    {
        __m128d v = _mm_cvtps_pd(loadTwoFloats(a));
        if constexpr (Diff)
            v = _mm_sub_pd(v, _mm_cvtps_pd(loadTwoFloats(b)));
        return _mm_and_pd(absMaskD(), v);
    }
};

// Signed: the values themselves (the sums of 16s and 32f).
template <class T>
struct Signed;

template <>
struct Signed<Pvx16s> {
    using T = Pvx16s;
    static constexpr bool kTwo = false;
    static __m128i vec(const T* a, const T*) { return loadu(a); }
    static std::int64_t one(const T* a, const T*) { return *a; }
};

template <>
struct Signed<Pvx32f> {
    using T = Pvx32f;
    static constexpr bool kTwo = false;
    static __m128 vecf(const T* a, const T*) { return _mm_loadu_ps(a); }
    static float onef(const T* a, const T*) { return *a; }
    static double wide(const T* a, const T*) { return *a; }
    static void wide4(const T* a, const T*, __m128d& low, __m128d& high) { widen(_mm_loadu_ps(a), low, high); }
    static __m128d wide2(const T* a, const T*) { return _mm_cvtps_pd(loadTwoFloats(a)); }
};

// ---------------------------------------------------------------- row driver

// Software prefetch: with 16-byte loads the hardware prefetchers alone leave
// reads from L2 and beyond well below their bandwidth, so every cache line
// read also requests the line 2 KiB ahead (past the image too: a prefetch
// never faults).
constexpr std::uintptr_t kPrefetchDistance = 2048;

template <bool Two, class T>
inline void prefetchAhead(const T* a, const T* b)
{
    _mm_prefetch(reinterpret_cast<const char*>(reinterpret_cast<std::uintptr_t>(a) + kPrefetchDistance), _MM_HINT_T0);
    if constexpr (Two)
        _mm_prefetch(reinterpret_cast<const char*>(reinterpret_cast<std::uintptr_t>(b) + kPrefetchDistance),
                     _MM_HINT_T0);
}

// A block is the shortest run of whole 16-byte vectors that starts and ends
// on pixel boundaries: three vectors for C3 (48 bytes), one for C1 and C4.
template <int Pixel>
constexpr int kBlockVectors = Pixel == 3 ? 3 : 1;

// Calls f(slot, offset) for each vector of n blocks, offset in elements from
// a and b (Elements per vector). For C3 the slot is the vector's place in its
// block (0..2). C1 and C4 vectors all hold the same channels in the same
// lanes; they are run a cache line (four vectors, slots 0..3) at a time, the
// rest as slot 0, so a kernel may keep up to four accumulators to break its
// chains of dependent additions.
template <int Pixel, int Elements, bool Two, class T, class F>
inline void eachVector(const T* a, const T* b, int n, F&& f)
{
    std::ptrdiff_t o = 0;
    int i = 0;
    if constexpr (Pixel == 3) {
        for (; i < n; ++i, o += 3 * Elements) {
            prefetchAhead<Two>(a + o, b + o);
            f(0, o);
            f(1, o + Elements);
            f(2, o + 2 * Elements);
        }
    } else {
        for (; i + 4 <= n; i += 4, o += 4 * Elements) {
            prefetchAhead<Two>(a + o, b + o);
            f(0, o);
            f(1, o + Elements);
            f(2, o + 2 * Elements);
            f(3, o + 3 * Elements);
        }
        for (; i < n; ++i, o += Elements)
            f(0, o);
    }
}

// Runs a blocked kernel over one row: whole blocks, as far as the kernel's
// narrow accumulators have room at a time, then the remaining pixels one by
// one.
template <class K, class T>
void blockedRow(K& k, const T* a, const T* b, int width)
{
    constexpr int kPixel = K::kPixel, kBlock = K::kBlockPixels;
    const int blocks = width / kBlock;
    std::ptrdiff_t offset = 0;
    for (int done = 0; done < blocks;) {
        const int n = blocks - done < k.roomBlocks() ? blocks - done : k.roomBlocks();
        k.blocks(a + offset, b + offset, n);
        done += n;
        offset += static_cast<std::ptrdiff_t>(n) * kBlock * kPixel;
    }
    for (int x = blocks * kBlock; x < width; ++x, offset += kPixel)
        k.pixel(a + offset, b + offset);
}

// Reduces the ROI of a (and of b, for a difference; else b == a) with a new
// kernel K and writes its raw value for each of the Pixel elements. Integer
// kernels take images whose rows lie back to back as one row; the float
// kernels keep rows, which their order of accumulation follows.
template <class K, class T>
void reduce(const T* a, int stepA, const T* b, int stepB, PvxiSize roi, double* out)
{
    if constexpr (K::kMergeRows) {
        const std::int64_t row = rowBytes<T>(roi.width, K::kPixel);
        roi = mergeContiguousRows(roi, row, stepA, row, stepB);
    }
    K k;
    for (int y = 0; y < roi.height; ++y)
        k.row(rowAt(a, stepA, y), rowAt(b, stepB, y), roi.width);
    k.finish(out);
}

// In every kernel below, accumulator q (one per C3 slot, else one or more
// for all vectors) holds in lane i element (q * lanes-per-vector + i) of a
// block, after any even/odd split noted at the kernel; its channel is that
// element's index modulo Pixel.

// ---------------------------------------------------------------- integer sums

// Sums of unsigned 8-bit values. C1: psadbw adds each 8 bytes into a 64-bit
// lane. C3, C4: even and odd bytes are added into 16-bit lanes for 256 blocks
// at most (256 * 255 < 65536), then into 32-bit lanes, which reach the totals
// every 65536 blocks.
template <int Pixel, class P>
class SumU8 {
public:
    using T = Pvx8u;
    static constexpr int kPixel = Pixel, kSlots = Pixel == 3 ? 3 : 1;
    static constexpr int kBlockPixels = 16 * kBlockVectors<Pixel> / Pixel;
    static constexpr bool kMergeRows = true;

    SumU8()
    {
        for (int q = 0; q < kSlots; ++q)
            for (int e = 0; e < 2; ++e)
                acc16_.v[q][e] = acc32_[q][e][0] = acc32_[q][e][1] = _mm_setzero_si128();
        acc64_ = _mm_setzero_si128();
    }

    int roomBlocks() const { return kNarrowBlocks - pending_; }

    void blocks(const T* a, const T* b, int n)
    {
        const __m128i zero = _mm_setzero_si128();
        if constexpr (Pixel == 1) {
            __m128i s = acc64_;
            eachVector<1, 16, P::kTwo>(a, b, n, [&](int, std::ptrdiff_t o) {
                s = _mm_add_epi64(s, _mm_sad_epu8(P::vec(a + o, b + o), zero));
            });
            acc64_ = s;
        } else {
            const __m128i low = _mm_set1_epi16(0x00ff);
            auto acc = acc16_;
            eachVector<Pixel, 16, P::kTwo>(a, b, n, [&](int slot, std::ptrdiff_t o) {
                const __m128i v = P::vec(a + o, b + o);
                __m128i* q = acc.v[slot % kSlots];
                q[0] = _mm_add_epi16(q[0], _mm_and_si128(v, low));
                q[1] = _mm_add_epi16(q[1], _mm_srli_epi16(v, 8));
            });
            acc16_ = acc;
        }
        pending_ += n;
        if (pending_ == kNarrowBlocks)
            widen16();
    }

    void pixel(const T* a, const T* b)
    {
        for (int c = 0; c < Pixel; ++c)
            totals_[c].add(P::one(a + c, b + c));
    }

    void row(const T* a, const T* b, int width) { blockedRow(*this, a, b, width); }

    void finish(double* out)
    {
        widen16();
        flush();
        for (int c = 0; c < Pixel; ++c)
            out[c] = totals_[c].toDouble();
    }

private:
    static constexpr int kNarrowBlocks = Pixel == 1 ? 1 << 24 : 256;  // C1: 64-bit lanes of at most 2^35
    static constexpr int kWideRounds = 256;

    // 16-bit lane j of acc16_[q][e] holds element 16q + 2j + e; 32-bit lane i
    // of acc32_[q][e][h] holds element 16q + 8h + 2i + e.
    void widen16()
    {
        if constexpr (Pixel != 1) {
            const __m128i zero = _mm_setzero_si128();
            for (int q = 0; q < kSlots; ++q)
                for (int e = 0; e < 2; ++e) {
                    acc32_[q][e][0] = _mm_add_epi32(acc32_[q][e][0], _mm_unpacklo_epi16(acc16_.v[q][e], zero));
                    acc32_[q][e][1] = _mm_add_epi32(acc32_[q][e][1], _mm_unpackhi_epi16(acc16_.v[q][e], zero));
                    acc16_.v[q][e] = zero;
                }
        }
        pending_ = 0;
        if (++rounds_ == kWideRounds)
            flush();
    }

    void flush()
    {
        if constexpr (Pixel == 1) {
            addLanes<std::uint64_t, 1>(totals_, acc64_, 0, 0);
            acc64_ = _mm_setzero_si128();
        } else {
            for (int q = 0; q < kSlots; ++q)
                for (int e = 0; e < 2; ++e)
                    for (int h = 0; h < 2; ++h) {
                        addLanes<std::uint32_t, Pixel>(totals_, acc32_[q][e][h], 16 * q + 8 * h + e, 2);
                        acc32_[q][e][h] = _mm_setzero_si128();
                    }
        }
        rounds_ = 0;
    }

    struct {
        __m128i v[kSlots][2];
    } acc16_;
    __m128i acc32_[kSlots][2][2];
    __m128i acc64_;
    int pending_ = 0, rounds_ = 0;
    WideSum totals_[Pixel];
};

// Sums of 16-bit values, unsigned or (Signed) signed: even and odd elements
// widened to 32-bit lanes, which reach the totals every 32768 blocks (each
// lane then holds at most 65536 values: below 2^32 unsigned, within the
// signed 32-bit range for -32768..32767). C1 adds the pair of a lane at once.
template <int Pixel, class P, bool Signed>
class SumU16 {
public:
    using T = typename P::T;
    static constexpr int kPixel = Pixel, kSlots = Pixel == 3 ? 3 : 1;
    static constexpr int kBlockPixels = 8 * kBlockVectors<Pixel> / Pixel;
    static constexpr bool kMergeRows = true;

    SumU16()
    {
        for (auto& q : acc_.v)
            q[0] = q[1] = _mm_setzero_si128();
    }

    int roomBlocks() const { return kNarrowBlocks - pending_; }

    void blocks(const T* a, const T* b, int n)
    {
        const __m128i low = _mm_set1_epi32(0xffff), ones = _mm_set1_epi16(1);
        auto acc = acc_;
        eachVector<Pixel, 8, P::kTwo>(a, b, n, [&](int slot, std::ptrdiff_t o) {
            const __m128i v = P::vec(a + o, b + o);
            __m128i* q = acc.v[slot % kSlots];
            if constexpr (Pixel == 1 && Signed) {
                q[0] = _mm_add_epi32(q[0], _mm_madd_epi16(v, ones));
                return;
            }
            const __m128i even = Signed ? _mm_srai_epi32(_mm_slli_epi32(v, 16), 16) : _mm_and_si128(v, low);
            const __m128i odd = Signed ? _mm_srai_epi32(v, 16) : _mm_srli_epi32(v, 16);
            if constexpr (Pixel == 1) {
                q[0] = _mm_add_epi32(q[0], _mm_add_epi32(even, odd));
            } else {
                q[0] = _mm_add_epi32(q[0], even);
                q[1] = _mm_add_epi32(q[1], odd);
            }
        });
        acc_ = acc;
        pending_ += n;
        if (pending_ == kNarrowBlocks)
            flush();
    }

    void pixel(const T* a, const T* b)
    {
        for (int c = 0; c < Pixel; ++c)
            totals_[c].add(P::one(a + c, b + c));
    }

    void row(const T* a, const T* b, int width) { blockedRow(*this, a, b, width); }

    void finish(double* out)
    {
        flush();
        for (int c = 0; c < Pixel; ++c)
            out[c] = totals_[c].toDouble();
    }

private:
    static constexpr int kNarrowBlocks = 32768;
    using Lane = std::conditional_t<Signed, std::int32_t, std::uint32_t>;

    // Lane i of acc_[q][e] holds element 8q + 2i + e.
    void flush()
    {
        for (int q = 0; q < kSlots; ++q)
            for (int e = 0; e < 2; ++e) {
                addLanes<Lane, Pixel>(totals_, acc_.v[q][e], 8 * q + e, 2);
                acc_.v[q][e] = _mm_setzero_si128();
            }
        pending_ = 0;
    }

    struct {
        __m128i v[kSlots][2];
    } acc_;
    int pending_ = 0;
    WideSum totals_[Pixel];
};

// Sums of squares of unsigned 8-bit values. The 32-bit lanes take at most
// 32768 pixels (one piece: at most 32768 * 255^2 < 2^31 per lane) before
// they reach the totals. C1: pmaddwd of the low and of the high eight bytes
// widened to 16 bits. C3, C4: the 16-bit squares (255^2 < 2^16) of even and
// odd bytes, split again into even and odd 32-bit lanes.
template <int Pixel, class P>
class SqU8 {
public:
    using T = Pvx8u;
    static constexpr int kPixel = Pixel, kSlots = Pixel == 3 ? 3 : 1;
    static constexpr int kBlockPixels = 16 * kBlockVectors<Pixel> / Pixel;
    static constexpr bool kMergeRows = true;

    SqU8()
    {
        for (auto& q : acc_.v)
            q[0][0] = q[0][1] = q[1][0] = q[1][1] = _mm_setzero_si128();
    }

    int roomBlocks() const { return kPieceBlocks - pending_; }

    void blocks(const T* a, const T* b, int n)
    {
        auto acc = acc_;
        if constexpr (Pixel == 1) {
            // Widening by shuffles keeps the multiply ports free for pmaddwd.
            const __m128i zero = _mm_setzero_si128();
            __m128i s = acc.v[0][0][0], t = acc.v[0][0][1];
            eachVector<1, 16, P::kTwo>(a, b, n, [&](int, std::ptrdiff_t o) {
                const __m128i v = P::vec(a + o, b + o);
                const __m128i lo = _mm_unpacklo_epi8(v, zero), hi = _mm_unpackhi_epi8(v, zero);
                s = _mm_add_epi32(s, _mm_madd_epi16(lo, lo));
                t = _mm_add_epi32(t, _mm_madd_epi16(hi, hi));
            });
            acc.v[0][0][0] = s;
            acc.v[0][0][1] = t;
        } else {
            const __m128i low8 = _mm_set1_epi16(0x00ff), low16 = _mm_set1_epi32(0xffff);
            eachVector<Pixel, 16, P::kTwo>(a, b, n, [&](int slot, std::ptrdiff_t o) {
                const __m128i v = P::vec(a + o, b + o);
                const __m128i even = _mm_and_si128(v, low8), odd = _mm_srli_epi16(v, 8);
                const __m128i sq[2] = {_mm_mullo_epi16(even, even), _mm_mullo_epi16(odd, odd)};
                auto& q = acc.v[slot % kSlots];
                for (int e = 0; e < 2; ++e) {
                    q[e][0] = _mm_add_epi32(q[e][0], _mm_and_si128(sq[e], low16));
                    q[e][1] = _mm_add_epi32(q[e][1], _mm_srli_epi32(sq[e], 16));
                }
            });
        }
        acc_ = acc;
        pending_ += n;
        if (pending_ == kPieceBlocks)
            flush();
    }

    void pixel(const T* a, const T* b)
    {
        for (int c = 0; c < Pixel; ++c) {
            const std::int64_t v = P::one(a + c, b + c);
            totals_[c].add(v * v);
        }
    }

    void row(const T* a, const T* b, int width) { blockedRow(*this, a, b, width); }

    void finish(double* out)
    {
        flush();
        for (int c = 0; c < Pixel; ++c)
            out[c] = totals_[c].toDouble();
    }

private:
    static constexpr int kPieceBlocks = 32768 / kBlockPixels;

    // C3, C4: lane i of acc_[q][e][h] holds element 16q + 4i + 2h + e.
    void flush()
    {
        for (int q = 0; q < kSlots; ++q)
            for (int e = 0; e < 2; ++e)
                for (int h = 0; h < 2; ++h) {
                    addLanes<std::uint32_t, Pixel>(totals_, acc_.v[q][e][h], 16 * q + 2 * h + e, 4);
                    acc_.v[q][e][h] = _mm_setzero_si128();
                }
        pending_ = 0;
    }

    struct {
        __m128i v[kSlots][2][2];
    } acc_;
    int pending_ = 0;
    WideSum totals_[Pixel];
};

// Sums of squares of unsigned 16-bit values: the 32-bit squares (below 2^32)
// from pmullw and pmulhuw, split into even and odd 64-bit lanes. The lanes
// reach the totals every 2^20 blocks (at most 2^22 squares each).
template <int Pixel, class P>
class SqU16 {
public:
    using T = typename P::T;
    static constexpr int kPixel = Pixel, kSlots = Pixel == 3 ? 3 : 1;
    static constexpr int kBlockPixels = 8 * kBlockVectors<Pixel> / Pixel;
    static constexpr bool kMergeRows = true;

    SqU16()
    {
        for (auto& q : acc_.v)
            q[0][0] = q[0][1] = q[1][0] = q[1][1] = _mm_setzero_si128();
    }

    int roomBlocks() const { return kNarrowBlocks - pending_; }

    void blocks(const T* a, const T* b, int n)
    {
        const __m128i low32 = _mm_set_epi32(0, -1, 0, -1);
        auto acc = acc_;
        eachVector<Pixel, 8, P::kTwo>(a, b, n, [&](int slot, std::ptrdiff_t o) {
            const __m128i v = P::vec(a + o, b + o);
            const __m128i lo = _mm_mullo_epi16(v, v), hi = _mm_mulhi_epu16(v, v);
            const __m128i sq[2] = {_mm_unpacklo_epi16(lo, hi), _mm_unpackhi_epi16(lo, hi)};
            auto& q = acc.v[slot % kSlots];
            if constexpr (Pixel == 1) {
                const __m128i s0 = _mm_add_epi64(_mm_and_si128(sq[0], low32), _mm_srli_epi64(sq[0], 32));
                const __m128i s1 = _mm_add_epi64(_mm_and_si128(sq[1], low32), _mm_srli_epi64(sq[1], 32));
                q[0][0] = _mm_add_epi64(q[0][0], _mm_add_epi64(s0, s1));
            } else {
                for (int h = 0; h < 2; ++h) {
                    q[h][0] = _mm_add_epi64(q[h][0], _mm_and_si128(sq[h], low32));
                    q[h][1] = _mm_add_epi64(q[h][1], _mm_srli_epi64(sq[h], 32));
                }
            }
        });
        acc_ = acc;
        pending_ += n;
        if (pending_ == kNarrowBlocks)
            flush();
    }

    void pixel(const T* a, const T* b)
    {
        for (int c = 0; c < Pixel; ++c) {
            const std::int64_t v = P::one(a + c, b + c);
            totals_[c].add(v * v);
        }
    }

    void row(const T* a, const T* b, int width) { blockedRow(*this, a, b, width); }

    void finish(double* out)
    {
        flush();
        for (int c = 0; c < Pixel; ++c)
            out[c] = totals_[c].toDouble();
    }

private:
    static constexpr int kNarrowBlocks = 1 << 20;

    // Lane l of acc_[q][h][e] holds element 8q + 4h + 2l + e.
    void flush()
    {
        for (int q = 0; q < kSlots; ++q)
            for (int h = 0; h < 2; ++h)
                for (int e = 0; e < 2; ++e) {
                    addLanes<std::uint64_t, Pixel>(totals_, acc_.v[q][h][e], 8 * q + 4 * h + e, 2);
                    acc_.v[q][h][e] = _mm_setzero_si128();
                }
        pending_ = 0;
    }

    struct {
        __m128i v[kSlots][2][2];
    } acc_;
    int pending_ = 0;
    WideSum totals_[Pixel];
};

// ---------------------------------------------------------------- integer maxima

// Maxima of unsigned magnitudes of 1, 2 or 4 bytes. SSSE3 compares 16- and
// 32-bit lanes only as signed numbers, so those lanes are biased by the sign
// bit first.
template <int Pixel, class P>
class MaxInt {
public:
    using T = typename P::T;
    static constexpr int kLaneBytes = sizeof(T), kLanes = 16 / kLaneBytes;
    static constexpr int kPixel = Pixel, kSlots = Pixel == 3 ? 3 : 1;
    static constexpr int kBlockPixels = kLanes * kBlockVectors<Pixel> / Pixel;
    static constexpr bool kMergeRows = true;
    using Lane = std::conditional_t<kLaneBytes == 1, std::uint8_t,
                                    std::conditional_t<kLaneBytes == 2, std::uint16_t, std::uint32_t>>;

    MaxInt()
    {
        for (__m128i& v : acc_.v)
            v = bias();
    }

    int roomBlocks() const { return 1 << 24; }

    void blocks(const T* a, const T* b, int n)
    {
        auto acc = acc_;
        eachVector<Pixel, kLanes, P::kTwo>(a, b, n, [&](int slot, std::ptrdiff_t o) {
            const __m128i v = _mm_xor_si128(P::vec(a + o, b + o), bias());
            __m128i& m = acc.v[slot % kSlots];
            if constexpr (kLaneBytes == 1)
                m = _mm_max_epu8(m, v);
            else if constexpr (kLaneBytes == 2)
                m = _mm_max_epi16(m, v);
            else
                m = select(_mm_cmpgt_epi32(v, m), v, m);
        });
        acc_ = acc;
    }

    void pixel(const T* a, const T* b)
    {
        for (int c = 0; c < Pixel; ++c) {
            const std::int64_t v = P::one(a + c, b + c);
            if (v > tail_[c])
                tail_[c] = v;
        }
    }

    void row(const T* a, const T* b, int width) { blockedRow(*this, a, b, width); }

    void finish(double* out)
    {
        std::int64_t best[Pixel];
        for (int c = 0; c < Pixel; ++c)
            best[c] = tail_[c];
        for (int q = 0; q < kSlots; ++q) {
            alignas(16) Lane lane[kLanes];
            storea(lane, _mm_xor_si128(acc_.v[q], bias()));
            for (int i = 0; i < kLanes; ++i) {
                std::int64_t& m = best[(kLanes * q + i) % Pixel];
                if (lane[i] > m)
                    m = lane[i];
            }
        }
        for (int c = 0; c < Pixel; ++c)
            out[c] = static_cast<double>(best[c]);
    }

private:
    // Xor-ed into every lane so that signed compares order unsigned values;
    // 8-bit lanes have an unsigned maximum and stay as they are.
    static __m128i bias()
    {
        if constexpr (kLaneBytes == 1)
            return _mm_setzero_si128();
        else if constexpr (kLaneBytes == 2)
            return _mm_set1_epi16(static_cast<short>(0x8000));
        else
            return _mm_set1_epi32(static_cast<int>(0x80000000u));
    }

    struct {
        __m128i v[kSlots];
    } acc_;
    std::int64_t tail_[Pixel] = {};
};

// ---------------------------------------------------------------- float kernels

// Single-precision sums (of squares with Square) in 16 interleaved partial
// sums (four vectors; C3: twelve in three vectors). At the end of each row
// the partial sums are combined and added to per-channel double totals, so
// rounding errors grow with the row length, not with the image.
template <int Pixel, class P, bool Square>
class SumF {
public:
    using T = Pvx32f;
    static constexpr int kPixel = Pixel, kSlots = Pixel == 3 ? 3 : 4;
    static constexpr int kBlockPixels = 4 * kBlockVectors<Pixel> / Pixel;
    static constexpr bool kMergeRows = false;

    SumF() { clearRow(); }

    int roomBlocks() const { return 1 << 24; }

    void blocks(const T* a, const T* b, int n)
    {
        auto acc = acc_;
        eachVector<Pixel, 4, P::kTwo>(a, b, n, [&](int slot, std::ptrdiff_t o) {
            __m128 v = P::vecf(a + o, b + o);
            if constexpr (Square)
                v = _mm_mul_ps(v, v);
            acc.v[slot % kSlots] = _mm_add_ps(acc.v[slot % kSlots], v);
        });
        acc_ = acc;
    }

    void pixel(const T* a, const T* b)
    {
        for (int c = 0; c < Pixel; ++c) {
            const float v = P::onef(a + c, b + c);
            tail_[c] += Square ? v * v : v;
        }
    }

    void row(const T* a, const T* b, int width)
    {
        blockedRow(*this, a, b, width);
        double row[Pixel];
        for (int c = 0; c < Pixel; ++c)
            row[c] = tail_[c];
        if constexpr (Pixel != 3) {
            // Lane i of every accumulator is channel i mod Pixel.
            alignas(16) float lane[4];
            _mm_store_ps(lane, _mm_add_ps(_mm_add_ps(acc_.v[0], acc_.v[1]), _mm_add_ps(acc_.v[2], acc_.v[3])));
            for (int i = 0; i < 4; ++i)
                row[i % Pixel] += lane[i];
        } else {
            for (int q = 0; q < kSlots; ++q) {
                alignas(16) float lane[4];
                _mm_store_ps(lane, acc_.v[q]);
                for (int i = 0; i < 4; ++i)
                    row[(4 * q + i) % 3] += lane[i];
            }
        }
        for (int c = 0; c < Pixel; ++c)
            totals_[c] += row[c];
        clearRow();
    }

    void finish(double* out)
    {
        for (int c = 0; c < Pixel; ++c)
            out[c] = totals_[c];
    }

private:
    void clearRow()
    {
        for (__m128& v : acc_.v)
            v = _mm_setzero_ps();
        for (float& t : tail_)
            t = 0;
    }

    struct {
        __m128 v[kSlots];
    } acc_;
    float tail_[Pixel];
    double totals_[Pixel] = {};
};

// Double-precision sums (of squares with Square) in a fixed order. Per
// channel two sums s0 and s1 run over the whole image; within a row the
// values of columns 0, 1, 2, 3 mod 4 go to s0, s1 and to two row sums s2, s3
// (a last pair of columns to s0 and s1); at the end of the row s2 joins s0
// and s3 joins s1, and then the last column of an odd width joins s0. The
// result is s1 + s0. C1 runs s0 and s1 (and s2, s3) as lanes of one vector.
template <int Pixel, class P, bool Square>
class SumD {
public:
    using T = Pvx32f;
    static constexpr int kPixel = Pixel;
    static constexpr bool kMergeRows = false;

    void row(const T* a, const T* b, int width)
    {
        if constexpr (Pixel == 1) {
            __m128d s23 = _mm_setzero_pd();
            int x = 0;
            for (; x + 4 <= width; x += 4) {
                __m128d v01, v23;
                P::wide4(a + x, b + x, v01, v23);
                s01_ = _mm_add_pd(s01_, square(v01));
                s23 = _mm_add_pd(s23, square(v23));
            }
            if (width - x >= 2) {
                s01_ = _mm_add_pd(s01_, square(P::wide2(a + x, b + x)));
                x += 2;
            }
            s01_ = _mm_add_pd(s01_, s23);
            if (x < width)
                s01_ = _mm_add_sd(s01_, _mm_set_sd(value(a + x, b + x)));
        } else {
            double s2[Pixel] = {}, s3[Pixel] = {};
            int x = 0;
            for (; x + 4 <= width; x += 4)
                for (int c = 0; c < Pixel; ++c) {
                    const std::ptrdiff_t o = static_cast<std::ptrdiff_t>(x) * Pixel + c;
                    s0_[c] += value(a + o, b + o);
                    s1_[c] += value(a + o + Pixel, b + o + Pixel);
                    s2[c] += value(a + o + 2 * Pixel, b + o + 2 * Pixel);
                    s3[c] += value(a + o + 3 * Pixel, b + o + 3 * Pixel);
                }
            if (width - x >= 2) {
                for (int c = 0; c < Pixel; ++c) {
                    const std::ptrdiff_t o = static_cast<std::ptrdiff_t>(x) * Pixel + c;
                    s0_[c] += value(a + o, b + o);
                    s1_[c] += value(a + o + Pixel, b + o + Pixel);
                }
                x += 2;
            }
            for (int c = 0; c < Pixel; ++c) {
                s0_[c] += s2[c];
                s1_[c] += s3[c];
            }
            if (x < width)
                for (int c = 0; c < Pixel; ++c) {
                    const std::ptrdiff_t o = static_cast<std::ptrdiff_t>(x) * Pixel + c;
                    s0_[c] += value(a + o, b + o);
                }
        }
    }

    void finish(double* out)
    {
        if constexpr (Pixel == 1) {
            alignas(16) double s[2];
            _mm_store_pd(s, s01_);
            out[0] = s[1] + s[0];
        } else {
            for (int c = 0; c < Pixel; ++c)
                out[c] = s1_[c] + s0_[c];
        }
    }

private:
    static __m128d square(__m128d v) { return Square ? _mm_mul_pd(v, v) : v; }
    static double value(const T* a, const T* b)
    {
        const double v = P::wide(a, b);
        return Square ? v * v : v;
    }

    __m128d s01_ = _mm_setzero_pd();
    double s0_[Pixel] = {}, s1_[Pixel] = {};
};

// Maxima of float magnitudes. maxps returns its second operand when either is
// NaN, so the running maximum stays a number and NaN lanes are recorded
// apart: a channel holding any NaN has the norm NaN.
template <int Pixel, class P>
class MaxF {
public:
    using T = Pvx32f;
    static constexpr int kPixel = Pixel, kSlots = Pixel == 3 ? 3 : 4;
    static constexpr int kBlockPixels = 4 * kBlockVectors<Pixel> / Pixel;
    static constexpr bool kMergeRows = true;

    MaxF()
    {
        for (int q = 0; q < kSlots; ++q)
            acc_.v[q] = nan_.v[q] = _mm_setzero_ps();
    }

    int roomBlocks() const { return 1 << 24; }

    void blocks(const T* a, const T* b, int n)
    {
        auto acc = acc_;
        auto nan = nan_;
        eachVector<Pixel, 4, P::kTwo>(a, b, n, [&](int slot, std::ptrdiff_t o) {
            const __m128 v = P::vecf(a + o, b + o);
            acc.v[slot % kSlots] = _mm_max_ps(v, acc.v[slot % kSlots]);
            nan.v[slot % kSlots] = _mm_or_ps(nan.v[slot % kSlots], _mm_cmpunord_ps(v, v));
        });
        acc_ = acc;
        nan_ = nan;
    }

    void pixel(const T* a, const T* b)
    {
        for (int c = 0; c < Pixel; ++c) {
            const float v = P::onef(a + c, b + c);
            if (v != v)
                tailNan_[c] = true;
            else if (v > tail_[c])
                tail_[c] = v;
        }
    }

    void row(const T* a, const T* b, int width) { blockedRow(*this, a, b, width); }

    void finish(double* out)
    {
        for (int c = 0; c < Pixel; ++c)
            out[c] = tailNan_[c] ? NAN : tail_[c];
        for (int q = 0; q < kSlots; ++q) {
            alignas(16) float lane[4];
            _mm_store_ps(lane, acc_.v[q]);
            const int isNan = _mm_movemask_ps(nan_.v[q]);
            for (int i = 0; i < 4; ++i) {
                double& m = out[(4 * q + i) % Pixel];
                if ((isNan >> i) & 1)
                    m = NAN;
                else if (lane[i] > m)  // false once m is NaN
                    m = lane[i];
            }
        }
    }

private:
    struct {
        __m128 v[kSlots];
    } acc_, nan_;
    float tail_[Pixel] = {};
    bool tailNan_[Pixel] = {};
};

// ---------------------------------------------------------------- families

// Raw sums per element of the pixel.
template <class T, int Pixel>
void sumValues(const T* pSrc, int srcStep, PvxiSize roi, int hint, double* out)
{
    if constexpr (std::is_same_v<T, Pvx8u>) {
        reduce<SumU8<Pixel, Magnitude<T, false>>>(pSrc, srcStep, pSrc, srcStep, roi, out);
    } else if constexpr (std::is_same_v<T, Pvx16u>) {
        reduce<SumU16<Pixel, Magnitude<T, false>, false>>(pSrc, srcStep, pSrc, srcStep, roi, out);
    } else if constexpr (std::is_same_v<T, Pvx16s>) {
        reduce<SumU16<Pixel, Signed<T>, true>>(pSrc, srcStep, pSrc, srcStep, roi, out);
    } else {
        if (hint == pvxAlgHintAccurate)
            reduce<SumD<Pixel, Signed<T>, false>>(pSrc, srcStep, pSrc, srcStep, roi, out);
        else
            reduce<SumF<Pixel, Signed<T>, false>>(pSrc, srcStep, pSrc, srcStep, roi, out);
    }
}

// Raw norm values per element of the pixel: the maximum magnitude (Inf), the
// sum of magnitudes (L1) or the sum of squares (L2), of a or, with Diff, of
// a - b.
template <NormKind Kind, bool Diff, class T, int Pixel>
void normValues(const T* a, int stepA, const T* b, int stepB, PvxiSize roi, int hint, double* out)
{
    using M = Magnitude<T, Diff>;
    constexpr bool kFloat = std::is_same_v<T, Pvx32f>;
    if constexpr (Kind == NormKind::Inf) {
        if constexpr (kFloat)
            reduce<MaxF<Pixel, M>>(a, stepA, b, stepB, roi, out);
        else
            reduce<MaxInt<Pixel, M>>(a, stepA, b, stepB, roi, out);
    } else if constexpr (kFloat) {
        constexpr bool kSquare = Kind == NormKind::L2;
        if (hint == pvxAlgHintAccurate)
            reduce<SumD<Pixel, M, kSquare>>(a, stepA, b, stepB, roi, out);
        else
            reduce<SumF<Pixel, M, kSquare>>(a, stepA, b, stepB, roi, out);
    } else if constexpr (Kind == NormKind::L1) {
        if constexpr (sizeof(T) == 1)
            reduce<SumU8<Pixel, M>>(a, stepA, b, stepB, roi, out);
        else
            reduce<SumU16<Pixel, M, false>>(a, stepA, b, stepB, roi, out);
    } else {
        if constexpr (sizeof(T) == 1)
            reduce<SqU8<Pixel, M>>(a, stepA, b, stepB, roi, out);
        else
            reduce<SqU16<Pixel, M>>(a, stepA, b, stepB, roi, out);
    }
}

template <NormKind Kind>
double finalNorm(double raw)
{
    return Kind == NormKind::L2 ? std::sqrt(raw) : raw;
}

// The hint matters only for 32f; every value other than pvxAlgHintAccurate
// selects single precision, and none is refused.
template <class T, int Pixel, int Channels>
PvxStatus sumImage(const T* pSrc, int srcStep, PvxiSize roiSize, Pvx64f* pSum, int hint = pvxAlgHintNone)
{
    if (anyNull(pSrc, pSum))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    double raw[Pixel];
    sumValues<T, Pixel>(pSrc, srcStep, roiSize, hint, raw);
    for (int c = 0; c < Channels; ++c)
        pSum[c] = raw[c];
    return pvxStsOk;
}

// The mean is the Sum of the same arguments divided by the pixel count.
template <class T, int Pixel, int Channels>
PvxStatus meanImage(const T* pSrc, int srcStep, PvxiSize roiSize, Pvx64f* pMean, int hint = pvxAlgHintNone)
{
    if (pMean == nullptr)
        return pvxStsNullPtrErr;
    const PvxStatus status = sumImage<T, Pixel, Channels>(pSrc, srcStep, roiSize, pMean, hint);
    if (status != pvxStsOk)
        return status;
    const double count = static_cast<double>(roiSize.width) * static_cast<double>(roiSize.height);
    for (int c = 0; c < Channels; ++c)
        pMean[c] /= count;
    return pvxStsOk;
}

template <NormKind Kind, class T, int Pixel, int Channels>
PvxStatus normImage(const T* pSrc, int srcStep, PvxiSize roiSize, Pvx64f* pNorm, int hint = pvxAlgHintNone)
{
    if (anyNull(pSrc, pNorm))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (srcStep < 1)
        return pvxStsStepErr;
    double raw[Pixel];
    normValues<Kind, false, T, Pixel>(pSrc, srcStep, pSrc, srcStep, roiSize, hint, raw);
    for (int c = 0; c < Channels; ++c)
        pNorm[c] = finalNorm<Kind>(raw[c]);
    return pvxStsOk;
}

template <NormKind Kind, class T, int Pixel, int Channels>
PvxStatus normDiffImage(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, PvxiSize roiSize,
                        Pvx64f* pNorm, int hint = pvxAlgHintNone)
{
    if (anyNull(pSrc1, pSrc2, pNorm))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (src1Step < 1 || src2Step < 1)
        return pvxStsStepErr;
    double raw[Pixel];
    normValues<Kind, true, T, Pixel>(pSrc1, src1Step, pSrc2, src2Step, roiSize, hint, raw);
    for (int c = 0; c < Channels; ++c)
        pNorm[c] = finalNorm<Kind>(raw[c]);
    return pvxStsOk;
}

// A channel whose reference (its norm; for L2 its sum of squares) is below
// the smallest normal double gets the plain difference norm instead of a
// quotient, and the call reports pvxStsDivByZeroWrn: the caller still gets a
// usable absolute value. The other channels keep their quotients.
template <NormKind Kind, class T, int Pixel, int Channels>
PvxStatus normRelImage(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, PvxiSize roiSize,
                       Pvx64f* pNorm, int hint = pvxAlgHintNone)
{
    if (anyNull(pSrc1, pSrc2, pNorm))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (src1Step < 1 || src2Step < 1)
        return pvxStsStepErr;
    double diff[Pixel], ref[Pixel];
    normValues<Kind, true, T, Pixel>(pSrc1, src1Step, pSrc2, src2Step, roiSize, hint, diff);
    normValues<Kind, false, T, Pixel>(pSrc2, src2Step, pSrc2, src2Step, roiSize, hint, ref);
    PvxStatus status = pvxStsOk;
    for (int c = 0; c < Channels; ++c) {
        if (ref[c] < DBL_MIN) {
            pNorm[c] = finalNorm<Kind>(diff[c]);
            status = pvxStsDivByZeroWrn;
        } else {
            pNorm[c] = finalNorm<Kind>(diff[c] / ref[c]);
        }
    }
    return status;
}

}  // namespace

PVX_END

#include "stats/norm.inc"
