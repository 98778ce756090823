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


// ---------------------------------------------------------------- values

// |x| and |x - y| of 16 bytes of integers, as unsigned lanes of the
// element's width: |x| of 16s and |x - y| of 16s fit 16 unsigned bits, |x| of
// 32s fits 32.
inline __m128i absLanes(const Pvx8u* a) { return loadu(a); }
inline __m128i absLanes(const Pvx16u* a) { return loadu(a); }
inline __m128i absLanes(const Pvx16s* a) { return _mm_abs_epi16(loadu(a)); }  // |-32768| is 0x8000: right as unsigned
inline __m128i absLanes(const Pvx32s* a) { return _mm_abs_epi32(loadu(a)); }

inline __m128i absDiffLanes(const Pvx8u* a, const Pvx8u* b)
{
    const __m128i x = loadu(a), y = loadu(b);
    return _mm_or_si128(_mm_subs_epu8(x, y), _mm_subs_epu8(y, x));
}

inline __m128i absDiffLanes(const Pvx16u* a, const Pvx16u* b)
{
    const __m128i x = loadu(a), y = loadu(b);
    return _mm_or_si128(_mm_subs_epu16(x, y), _mm_subs_epu16(y, x));
}

inline __m128i absDiffLanes(const Pvx16s* a, const Pvx16s* b)
{
    // max - min lies in 0..65535: exact as an unsigned 16-bit lane.
    const __m128i x = loadu(a), y = loadu(b);
    return _mm_sub_epi16(_mm_max_epi16(x, y), _mm_min_epi16(x, y));
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
// at a (and b), one() the element at a (and b); Vec is the vector type.
//
// Magnitude: |x|, or |x - y| with Diff.
template <class Element, bool Diff>
struct Magnitude {
    using T = Element;
    using Vec = __m128i;
    static constexpr bool kTwo = Diff;
    static __m128i vec(const T* a, const T* b)
    {
        if constexpr (Diff)
            return absDiffLanes(a, b);
        else
            return absLanes(a);
    }
    static std::int64_t one(const T* a, const T* b)
    {
        return std::llabs(std::int64_t{*a} - (Diff ? std::int64_t{*b} : 0));
    }
};

// Float policies also give the values in double precision: wide() for one
// element, wide4() for four and wide2() for two.
template <bool Diff>
struct Magnitude<Pvx32f, Diff> {
    using T = Pvx32f;
    using Vec = __m128;
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
    using Vec = __m128i;
    static constexpr bool kTwo = false;
    static __m128i vec(const T* a, const T*) { return loadu(a); }
    static std::int64_t one(const T* a, const T*) { return *a; }
};

template <>
struct Signed<Pvx32f> {
    using T = Pvx32f;
    using Vec = __m128;
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

// Calls f(i, x) for each lane i of v, x its value as a Lane.
template <class Lane, class F>
void eachLane(__m128i v, F&& f)
{
    constexpr int kLanes = 16 / sizeof(Lane);
    alignas(16) Lane lane[kLanes];
    storea(lane, v);
    for (int i = 0; i < kLanes; ++i)
        f(i, lane[i]);
}

template <class Lane, class F>
void eachLane(__m128 v, F&& f)
{
    eachLane<Lane>(_mm_castps_si128(v), f);
}

// ---------------------------------------------------------------- blocked kernels

// The frame of a blocked kernel (CRTP): kSlots groups of Parts accumulators
// (of P's vector type), one group per C3 slot, else Chains groups taken
// in turn by the vectors of a cache line (see eachVector). The kernel gives
//   start()          the accumulators' first value,
//   add(q, a, b)     its vector arithmetic: the vector at a (and b) into
//                    the accumulators q[0..Parts) of its slot,
//   pixel(), finish() the scalar tail and the result;
// and may hide roomBlocks() and blocks() to bound its narrow lanes. Lane i of
// every accumulator of slot q holds element q * kLanes + i of a block, unless
// the kernel splits its lanes further (then it says how).
template <class Kernel, int Pixel, class P, int Parts, int Chains = 1>
class Blocked {
public:
    using T = typename P::T;
    using Vec = typename P::Vec;
    static constexpr int kPixel = Pixel, kSlots = Pixel == 3 ? 3 : Chains;
    static constexpr int kLanes = 16 / sizeof(T);  // elements per vector
    static constexpr int kBlockPixels = kLanes * kBlockVectors<Pixel> / Pixel;
    static constexpr bool kMergeRows = true;

    Blocked() { restart(); }

    int roomBlocks() const { return 1 << 24; }

    void blocks(const T* a, const T* b, int n)
    {
        auto acc = acc_;  // locals, so that they can live in registers
        eachVector<Pixel, kLanes, P::kTwo>(a, b, n, [&](int slot, std::ptrdiff_t o) {
            Kernel::add(acc.v[slot % kSlots], a + o, b + o);
        });
        acc_ = acc;
    }

    void row(const T* a, const T* b, int width) { blockedRow(static_cast<Kernel&>(*this), a, b, width); }

protected:
    void restart()
    {
        for (auto& q : acc_.v)
            for (Vec& v : q)
                v = Kernel::start();
    }

    struct {
        Vec v[kSlots][Parts];
    } acc_;
};

// ---------------------------------------------------------------- integer sums

// Exact sums of integer lanes. Step is what differs between them:
//   Lane, kParts      the lane type, and accumulators per slot;
//   add(q, v)         the vector arithmetic: vector v into q[0..kParts);
//   element(part, i)  the element of the slot's vector that lane i of
//                     accumulator `part` holds;
//   kNarrowBlocks     how many blocks the lanes take before they could
//                     overflow;
//   kSquare           whether the values are squared.
// Lanes that are full reach 128-bit totals. 16-bit lanes, which fill quickly,
// are widened into 32-bit lanes instead, which reach the totals every 256
// widenings (below 2^24 each).
template <int Pixel, class P, class Step>
class ExactSum : public Blocked<ExactSum<Pixel, P, Step>, Pixel, P, Step::kParts> {
    using Base = Blocked<ExactSum, Pixel, P, Step::kParts>;
    using Lane = typename Step::Lane;
    static constexpr bool kWidened = sizeof(Lane) == 2;

public:
    using T = typename P::T;

    static __m128i start() { return _mm_setzero_si128(); }
    static void add(__m128i* q, const T* a, const T* b) { Step::add(q, P::vec(a, b)); }

    int roomBlocks() const { return Step::kNarrowBlocks - pending_; }

    void blocks(const T* a, const T* b, int n)
    {
        Base::blocks(a, b, n);
        pending_ += n;
        if (pending_ == Step::kNarrowBlocks)
            settle();
    }

    void pixel(const T* a, const T* b)
    {
        for (int c = 0; c < Pixel; ++c) {
            const std::int64_t v = P::one(a + c, b + c);
            totals_[c].add(Step::kSquare ? v * v : v);
        }
    }

    void finish(double* out)
    {
        settle();
        if constexpr (kWidened)
            addWide();
        for (int c = 0; c < Pixel; ++c)
            out[c] = totals_[c].toDouble();
    }

private:
    static constexpr int kWideRounds = 256;

    // Adds the lanes of v, an accumulator of slot q, to their channels.
    template <class L, class Element>
    void addToTotals(int q, __m128i v, Element element)
    {
        eachLane<L>(v, [&](int i, L x) {
            WideSum& t = totals_[(q * Base::kLanes + element(i)) % Pixel];
            if constexpr (std::is_same_v<L, std::uint64_t>)
                t.addUnsigned(x);
            else
                t.add(x);
        });
    }

    // The narrow lanes are full, or the image is done.
    void settle()
    {
        auto& acc = this->acc_.v;
        const __m128i zero = _mm_setzero_si128();
        for (int q = 0; q < Base::kSlots; ++q)
            for (int p = 0; p < Step::kParts; ++p) {
                if constexpr (kWidened) {
                    wide_[q][2 * p] = _mm_add_epi32(wide_[q][2 * p], _mm_unpacklo_epi16(acc[q][p], zero));
                    wide_[q][2 * p + 1] = _mm_add_epi32(wide_[q][2 * p + 1], _mm_unpackhi_epi16(acc[q][p], zero));
                } else {
                    addToTotals<Lane>(q, acc[q][p], [p](int i) { return Step::element(p, i); });
                }
                acc[q][p] = zero;
            }
        pending_ = 0;
        if constexpr (kWidened)
            if (++rounds_ == kWideRounds)
                addWide();
    }

    // Lane i of wide_[q][2p + h] holds lane 4h + i of accumulator p.
    void addWide()
    {
        for (int q = 0; q < Base::kSlots; ++q)
            for (int w = 0; w < 2 * Step::kParts; ++w) {
                addToTotals<std::uint32_t>(q, wide_[q][w], [w](int i) { return Step::element(w / 2, 4 * (w % 2) + i); });
                wide_[q][w] = _mm_setzero_si128();
            }
        rounds_ = 0;
    }

    __m128i wide_[Base::kSlots][kWidened ? 2 * Step::kParts : 1] = {};  // used by 16-bit lanes only
    int pending_ = 0, rounds_ = 0;
    WideSum totals_[Pixel];
};

// Sums of unsigned 8-bit values. C1: psadbw adds each 8 bytes into a 64-bit
// lane (at most 2^35 in 2^24 blocks). C3, C4: even and odd bytes into 16-bit
// lanes, for 256 blocks at most (256 * 255 < 65536).
template <int Pixel>
struct SumU8 {
    using Lane = std::conditional_t<Pixel == 1, std::uint64_t, std::uint16_t>;
    static constexpr int kParts = Pixel == 1 ? 1 : 2;
    static constexpr int kNarrowBlocks = Pixel == 1 ? 1 << 24 : 256;
    static constexpr bool kSquare = false;

    static void add(__m128i* q, __m128i v)
    {
        if constexpr (Pixel == 1) {
            q[0] = _mm_add_epi64(q[0], _mm_sad_epu8(v, _mm_setzero_si128()));
        } else {
            q[0] = _mm_add_epi16(q[0], _mm_and_si128(v, _mm_set1_epi16(0x00ff)));
            q[1] = _mm_add_epi16(q[1], _mm_srli_epi16(v, 8));
        }
    }
    // C3, C4: lane i of part e holds element 2i + e.
    static constexpr int element(int part, int i) { return 2 * i + part; }
};

// Sums of 16-bit values, unsigned or signed: even and odd elements widened
// to 32-bit lanes, for 32768 blocks (each lane then holds at most 65536
// values: below 2^32 unsigned, within the signed 32-bit range for
// -32768..32767). C1 adds the pair of a lane at once.
template <int Pixel, bool IsSigned>
struct SumU16 {
    using Lane = std::conditional_t<IsSigned, std::int32_t, std::uint32_t>;
    static constexpr int kParts = Pixel == 1 ? 1 : 2;
    static constexpr int kNarrowBlocks = 32768;
    static constexpr bool kSquare = false;

    static void add(__m128i* q, __m128i v)
    {
        if constexpr (Pixel == 1 && IsSigned) {
            q[0] = _mm_add_epi32(q[0], _mm_madd_epi16(v, _mm_set1_epi16(1)));
            return;
        }
        const __m128i even =
            IsSigned ? _mm_srai_epi32(_mm_slli_epi32(v, 16), 16) : _mm_and_si128(v, _mm_set1_epi32(0xffff));
        const __m128i odd = IsSigned ? _mm_srai_epi32(v, 16) : _mm_srli_epi32(v, 16);
        if constexpr (Pixel == 1) {
            q[0] = _mm_add_epi32(q[0], _mm_add_epi32(even, odd));
        } else {
            q[0] = _mm_add_epi32(q[0], even);
            q[1] = _mm_add_epi32(q[1], odd);
        }
    }
    // C3, C4: lane i of part e holds element 2i + e.
    static constexpr int element(int part, int i) { return 2 * i + part; }
};

// Sums of squares of unsigned 8-bit values. The 32-bit lanes take at most
// 32768 pixels (one piece: at most 32768 * 255^2 < 2^31 per lane). C1:
// pmaddwd of the low and of the high eight bytes widened to 16 bits. C3, C4:
// the 16-bit squares (255^2 < 2^16) of even and odd bytes, split again into
// even and odd 32-bit lanes.
template <int Pixel>
struct SqU8 {
    using Lane = std::uint32_t;
    static constexpr int kParts = Pixel == 1 ? 2 : 4;
    static constexpr int kNarrowBlocks = 32768 / (16 * kBlockVectors<Pixel> / Pixel);
    static constexpr bool kSquare = true;

    static void add(__m128i* q, __m128i v)
    {
        if constexpr (Pixel == 1) {
            // Widening by shuffles keeps the multiply ports free for pmaddwd.
            const __m128i zero = _mm_setzero_si128();
            const __m128i lo = _mm_unpacklo_epi8(v, zero), hi = _mm_unpackhi_epi8(v, zero);
            q[0] = _mm_add_epi32(q[0], _mm_madd_epi16(lo, lo));
            q[1] = _mm_add_epi32(q[1], _mm_madd_epi16(hi, hi));
        } else {
            const __m128i even = _mm_and_si128(v, _mm_set1_epi16(0x00ff)), odd = _mm_srli_epi16(v, 8);
            const __m128i sq[2] = {_mm_mullo_epi16(even, even), _mm_mullo_epi16(odd, odd)};
            for (int e = 0; e < 2; ++e) {
                q[2 * e] = _mm_add_epi32(q[2 * e], _mm_and_si128(sq[e], _mm_set1_epi32(0xffff)));
                q[2 * e + 1] = _mm_add_epi32(q[2 * e + 1], _mm_srli_epi32(sq[e], 16));
            }
        }
    }
    // C3, C4: lane i of part 2e + h holds element 4i + 2h + e.
    static constexpr int element(int part, int i) { return 4 * i + 2 * (part % 2) + part / 2; }
};

// Sums of squares of unsigned 16-bit values: the 32-bit squares (below 2^32)
// from pmullw and pmulhuw, split into even and odd 64-bit lanes, for 2^20
// blocks (at most 2^22 squares each).
template <int Pixel>
struct SqU16 {
    using Lane = std::uint64_t;
    static constexpr int kParts = Pixel == 1 ? 1 : 4;
    static constexpr int kNarrowBlocks = 1 << 20;
    static constexpr bool kSquare = true;

    static void add(__m128i* q, __m128i v)
    {
        const __m128i low32 = _mm_set_epi32(0, -1, 0, -1);
        const __m128i lo = _mm_mullo_epi16(v, v), hi = _mm_mulhi_epu16(v, v);
        const __m128i sq[2] = {_mm_unpacklo_epi16(lo, hi), _mm_unpackhi_epi16(lo, hi)};
        if constexpr (Pixel == 1) {
            const __m128i s0 = _mm_add_epi64(_mm_and_si128(sq[0], low32), _mm_srli_epi64(sq[0], 32));
            const __m128i s1 = _mm_add_epi64(_mm_and_si128(sq[1], low32), _mm_srli_epi64(sq[1], 32));
            q[0] = _mm_add_epi64(q[0], _mm_add_epi64(s0, s1));
        } else {
            for (int h = 0; h < 2; ++h) {
                q[2 * h] = _mm_add_epi64(q[2 * h], _mm_and_si128(sq[h], low32));
                q[2 * h + 1] = _mm_add_epi64(q[2 * h + 1], _mm_srli_epi64(sq[h], 32));
            }
        }
    }
    // C3, C4: lane i of part 2h + e holds element 4h + 2i + e.
    static constexpr int element(int part, int i) { return 4 * (part / 2) + 2 * i + part % 2; }
};

// ---------------------------------------------------------------- integer maxima

// Maxima of unsigned magnitudes of 1, 2 or 4 bytes. SSSE3 compares 16- and
// 32-bit lanes only as signed numbers, so those lanes are biased by the sign
// bit first.
template <int Pixel, class P>
class MaxInt : public Blocked<MaxInt<Pixel, P>, Pixel, P, 1> {
    using Base = Blocked<MaxInt, Pixel, P, 1>;

public:
    using T = typename P::T;
    using Lane = std::conditional_t<sizeof(T) == 1, std::uint8_t,
                                    std::conditional_t<sizeof(T) == 2, std::uint16_t, std::uint32_t>>;

    // Xor-ed into every lane so that signed compares order unsigned values;
    // 8-bit lanes have an unsigned maximum and stay as they are.
    static __m128i start()
    {
        if constexpr (sizeof(T) == 1)
            return _mm_setzero_si128();
        else if constexpr (sizeof(T) == 2)
            return _mm_set1_epi16(static_cast<short>(0x8000));
        else
            return _mm_set1_epi32(static_cast<int>(0x80000000u));
    }

    static void add(__m128i* m, const T* a, const T* b)
    {
        const __m128i v = _mm_xor_si128(P::vec(a, b), start());
        if constexpr (sizeof(T) == 1)
            m[0] = _mm_max_epu8(m[0], v);
        else if constexpr (sizeof(T) == 2)
            m[0] = _mm_max_epi16(m[0], v);
        else
            m[0] = select(_mm_cmpgt_epi32(v, m[0]), v, m[0]);
    }

    void pixel(const T* a, const T* b)
    {
        for (int c = 0; c < Pixel; ++c) {
            const std::int64_t v = P::one(a + c, b + c);
            if (v > best_[c])
                best_[c] = v;
        }
    }

    void finish(double* out)
    {
        for (int q = 0; q < Base::kSlots; ++q)
            eachLane<Lane>(_mm_xor_si128(this->acc_.v[q][0], start()), [&](int i, Lane x) {
                std::int64_t& m = best_[(q * Base::kLanes + i) % Pixel];
                if (x > m)
                    m = x;
            });
        for (int c = 0; c < Pixel; ++c)
            out[c] = static_cast<double>(best_[c]);
    }

private:
    std::int64_t best_[Pixel] = {};  // of the scalar tails until finish()
};

// ---------------------------------------------------------------- float kernels

// Single-precision sums (of squares with Square) in 16 interleaved partial
// sums (four vectors; C3: twelve in three vectors). At the end of each row
// the partial sums are combined and added to per-channel double totals, so
// rounding errors grow with the row length, not with the image.
template <int Pixel, class P, bool Square>
class SumF : public Blocked<SumF<Pixel, P, Square>, Pixel, P, 1, 4> {
    using Base = Blocked<SumF, Pixel, P, 1, 4>;

public:
    using T = Pvx32f;
    static constexpr bool kMergeRows = false;

    static __m128 start() { return _mm_setzero_ps(); }

    static void add(__m128* q, const T* a, const T* b)
    {
        __m128 v = P::vecf(a, b);
        if constexpr (Square)
            v = _mm_mul_ps(v, v);
        q[0] = _mm_add_ps(q[0], v);
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
        Base::row(a, b, width);
        double row[Pixel];
        for (int c = 0; c < Pixel; ++c)
            row[c] = tail_[c];
        const auto& acc = this->acc_.v;
        const auto addLanes = [&row](int q, __m128 v) {
            eachLane<float>(v, [&](int i, float x) { row[(4 * q + i) % Pixel] += x; });
        };
        if constexpr (Pixel != 3) {
            addLanes(0, _mm_add_ps(_mm_add_ps(acc[0][0], acc[1][0]), _mm_add_ps(acc[2][0], acc[3][0])));
        } else {
            for (int q = 0; q < 3; ++q)
                addLanes(q, acc[q][0]);
        }
        for (int c = 0; c < Pixel; ++c)
            totals_[c] += row[c];
        this->restart();
        for (float& t : tail_)
            t = 0;
    }

    void finish(double* out)
    {
        for (int c = 0; c < Pixel; ++c)
            out[c] = totals_[c];
    }

private:
    float tail_[Pixel] = {};
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
class MaxF : public Blocked<MaxF<Pixel, P>, Pixel, P, 2, 4> {
public:
    using T = Pvx32f;

    static __m128 start() { return _mm_setzero_ps(); }

    // q[0] is the running maximum, q[1] marks the lanes that met NaN.
    static void add(__m128* q, const T* a, const T* b)
    {
        const __m128 v = P::vecf(a, b);
        q[0] = _mm_max_ps(v, q[0]);
        q[1] = _mm_or_ps(q[1], _mm_cmpunord_ps(v, v));
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

    void finish(double* out)
    {
        for (int c = 0; c < Pixel; ++c)
            out[c] = tailNan_[c] ? NAN : tail_[c];
        for (int q = 0; q < this->kSlots; ++q) {
            // A marked lane reads as NaN (all bits set).
            const __m128 lanes = _mm_or_ps(this->acc_.v[q][0], this->acc_.v[q][1]);
            eachLane<float>(lanes, [&](int i, float x) {
                double& m = out[(4 * q + i) % Pixel];
                if (x != x)
                    m = NAN;
                else if (x > m)  // false once m is NaN
                    m = x;
            });
        }
    }

private:
    float tail_[Pixel] = {};
    bool tailNan_[Pixel] = {};
};

// ---------------------------------------------------------------- families

// 32f sums (of squares with Square) in the precision the hint asks for.
template <class P, bool Square, int Pixel>
void floatSums(const Pvx32f* a, int stepA, const Pvx32f* b, int stepB, PvxiSize roi, int hint, double* out)
{
    if (hint == pvxAlgHintAccurate)
        reduce<SumD<Pixel, P, Square>>(a, stepA, b, stepB, roi, out);
    else
        reduce<SumF<Pixel, P, Square>>(a, stepA, b, stepB, roi, out);
}

// Raw norm values per element of the pixel: the maximum magnitude (Inf), the
// sum of magnitudes (L1) or the sum of squares (L2), of a or, with Diff, of
// a - b.
template <NormKind Kind, bool Diff, class T, int Pixel>
void normValues(const T* a, int stepA, const T* b, int stepB, PvxiSize roi, int hint, double* out)
{
    using M = Magnitude<T, Diff>;
    constexpr bool kFloat = std::is_same_v<T, Pvx32f>, kByte = sizeof(T) == 1;
    if constexpr (Kind == NormKind::Inf) {
        reduce<std::conditional_t<kFloat, MaxF<Pixel, M>, MaxInt<Pixel, M>>>(a, stepA, b, stepB, roi, out);
    } else if constexpr (kFloat) {
        floatSums<M, Kind == NormKind::L2, Pixel>(a, stepA, b, stepB, roi, hint, out);
    } else {
        using Step = std::conditional_t<Kind == NormKind::L1,
                                        std::conditional_t<kByte, SumU8<Pixel>, SumU16<Pixel, false>>,
                                        std::conditional_t<kByte, SqU8<Pixel>, SqU16<Pixel>>>;
        reduce<ExactSum<Pixel, M, Step>>(a, stepA, b, stepB, roi, out);
    }
}

// Raw sums per element of the pixel; those of unsigned data are their L1
// norms.
template <class T, int Pixel>
void sumValues(const T* pSrc, int srcStep, PvxiSize roi, int hint, double* out)
{
    if constexpr (std::is_same_v<T, Pvx16s>)
        reduce<ExactSum<Pixel, Signed<T>, SumU16<Pixel, true>>>(pSrc, srcStep, pSrc, srcStep, roi, out);
    else if constexpr (std::is_same_v<T, Pvx32f>)
        floatSums<Signed<T>, false, Pixel>(pSrc, srcStep, pSrc, srcStep, roi, hint, out);
    else
        normValues<NormKind::L1, false, T, Pixel>(pSrc, srcStep, pSrc, srcStep, roi, hint, out);
}

template <NormKind Kind>
double finalNorm(double raw)
{
    return Kind == NormKind::L2 ? std::sqrt(raw) : raw;
}

// The norms of the reported channels, of a or (Diff) of a - b.
template <NormKind Kind, bool Diff, class T, int Pixel, int Channels>
void norms(const T* a, int stepA, const T* b, int stepB, PvxiSize roi, int hint, Pvx64f* pNorm)
{
    double raw[Pixel];
    normValues<Kind, Diff, T, Pixel>(a, stepA, b, stepB, roi, hint, raw);
    for (int c = 0; c < Channels; ++c)
        pNorm[c] = finalNorm<Kind>(raw[c]);
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
    norms<Kind, false, T, Pixel, Channels>(pSrc, srcStep, pSrc, srcStep, roiSize, hint, pNorm);
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
    norms<Kind, true, T, Pixel, Channels>(pSrc1, src1Step, pSrc2, src2Step, roiSize, hint, pNorm);
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
