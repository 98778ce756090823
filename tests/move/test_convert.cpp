// Convert: every member on every code path against an exact reference in long
// double, with canaries around the ROI and in alpha channels, guard pages
// after the last row, zero and negative steps where they are not checked, the
// caller's floating-point state varied and required back unchanged, and the
// argument checks.
#include <cfenv>
#include <climits>
#include <cmath>
#include <limits>
#include <type_traits>
#include <xmmintrin.h>

#include "support/harness.h"

namespace {

using namespace pvxtest;
using Ld = long double;

struct Call {
    const void* src;
    int srcStep, bitOffset;
    void* dst;
    int dstStep;
    PvxiSize roi;
    int mode, scale;
};

template <class S, class D, class F>
PvxStatus invoke(F f, const Call& c)
{
    const S* s = static_cast<const S*>(c.src);
    D* d = static_cast<D*>(c.dst);
    if constexpr (std::is_invocable_v<F, const S*, int, D*, int, PvxiSize>)
        return f(s, c.srcStep, d, c.dstStep, c.roi);
    else if constexpr (std::is_invocable_v<F, const S*, int, D*, int, PvxiSize, int>)
        return f(s, c.srcStep, d, c.dstStep, c.roi, c.mode);
    else if constexpr (std::is_invocable_v<F, const S*, int, D*, int, PvxiSize, int, int>)
        return f(s, c.srcStep, d, c.dstStep, c.roi, c.mode, c.scale);
    else if constexpr (std::is_invocable_v<F, D*, int, PvxiSize, int, int>)
        return f(d, c.dstStep, c.roi, c.mode, c.scale);
    else
        return f(s, c.srcStep, c.bitOffset, d, c.dstStep, c.roi);
}

// An element type: size, range, and its elements read and written as values
// (written: floats to the nearest, integers already in range).
struct Type {
    std::size_t size;
    bool isFloat;
    Ld lo, hi;
    Ld (*read)(const unsigned char*);
    void (*write)(unsigned char*, Ld);
};

template <class T, class L = std::numeric_limits<T>>
Type typeOf()
{
    const bool i = L::is_integer;
    return {sizeof(T), !i, i ? L::min() : -L::infinity(), i ? L::max() : L::infinity(),
            [](const unsigned char* p) { T v; std::memcpy(&v, p, sizeof v); return Ld(v); },
            [](unsigned char* p, Ld v) { const T t = static_cast<T>(v); std::memcpy(p, &t, sizeof t); }};
}

struct Member {
    const char* name;
    Descriptor d;  // suffix "Sfs": scale factor; "" (plain forms, 1u8u): steps checked
    bool bits;     // 1u8u
    Type src, dst;
    PvxStatus (*call)(int path, const Call&);
};

#define PVX_CONVERT_MEMBER(sig, S, D, desc, exportName)                                                   \
    Member{#exportName, parseDescriptor(#desc), std::string(#sig) == "convert_bits", typeOf<S>(), typeOf<D>(), \
           [](int path, const Call& c) { return invoke<S, D>(PVX_PATH_FN(exportName, path), c); }},
#define PVX_NAME_OF(sig, S, D, desc, exportName) #exportName,

const std::vector<Member> kMembers = {PVX_MEMBERS_Convert(PVX_CONVERT_MEMBER)};

// The exact result of source value v: v * 2^-scale rounded by the mode (0
// toward zero, 1 half to even; any other: float sources q + 1/2 as a float sum
// rounded toward zero, then truncated, integer sources half away from zero),
// saturated; NaN like minus infinity. To 32f: the nearest float.
Ld reference(const Member& m, Ld v, int mode, int scale)
{
    if (m.dst.isFloat)
        return static_cast<float>(static_cast<double>(v));
    const Ld exact = std::isnan(v) ? -INFINITY : std::ldexp(v, -std::max(-100000, std::min(100000, scale)));
    const Ld q = std::max(-1.0e30L, std::min(1.0e30L, exact));  // beyond saturates anyway
    const float sum = static_cast<float>(q + 0.5L);
    Ld r = m.src.isFloat ? std::trunc(std::fabs(Ld(sum)) > std::fabs(q + 0.5L) ? std::nextafter(sum, 0.0f) : sum)
                         : std::copysign(std::floor(std::fabs(q) + 0.5L), q);
    if (mode == 0 || mode == 1)  // (computed in the default state: nearbyint halves to even)
        r = mode == 0 ? std::trunc(q) : std::nearbyint(q);
    return std::max(m.dst.lo, std::min(m.dst.hi, r));
}

float asFloat(std::uint32_t bits)
{
    float f;
    std::memcpy(&f, &bits, 4);
    return f;
}

// The images of one call (one image in place).
struct Rig {
    const Member& m;
    std::unique_ptr<TestImage> src, dst;
    Call call;

    Rig(const Member& member, const Shape& s, int bitOffset, Rng& rng) : m(member)
    {
        const int bitRow = (bitOffset + s.width + 7) / 8;
        src = m.bits ? std::make_unique<TestImage>(bitRow, s.height, bitRow + s.srcPad, s.misalign % 5, s.flush, rng)
                     : std::move(makeImages(m.d.src, m.src.size, s, true, rng).front());
        if (!m.d.inPlace)
            dst = std::move(makeImages(m.d.dst, m.dst.size, s, false, rng).front());
        call = {src->origin(), src->step(), bitOffset, out().origin(), out().step(), {s.width, s.height}, 1, 0};
    }
    TestImage& out() const { return dst ? *dst : *src; }

    template <class F>  // element e of source row y becomes value(e, y)
    void setSource(F value)
    {
        for (int y = 0; y < call.roi.height; ++y)
            for (int e = 0; e < call.roi.width * m.d.src.pixel; ++e)
                m.src.write(src->at(y, e * m.src.size), value(e, y));
    }

    // Rows in order: in place with step 0, a row converts again what the row before left.
    Bytes expected() const
    {
        Bytes want = out().contents();
        for (int y = 0; y < call.roi.height; ++y)
            for (int x = 0, bit = call.bitOffset; x < call.roi.width; ++x, ++bit) {
                if (m.bits)
                    want[dst->indexOf(y, x)] = (*src->at(y, bit / 8) >> (7 - bit % 8)) & 1 ? 255 : 0;
                for (int c = 0; !m.bits && c < m.d.count; ++c) {
                    const std::size_t e = std::size_t(x) * m.d.src.pixel + c;
                    const unsigned char* s = dst ? src->at(y, e * m.src.size) : &want[src->indexOf(y, e * 4)];
                    const Ld r = reference(m, m.src.read(s), call.mode, call.scale);
                    m.dst.write(&want[out().indexOf(y, e * m.dst.size)], r);
                }
            }
        return want;
    }
};

const int kModes[] = {0, 1, 2, 7, -1};

class ConvertTest : public ::testing::TestWithParam<PathCase<Member>> {
protected:
    const Member& member() const { return *GetParam().member; }

    // Calls in caller state i: each rounding direction, every third time also
    // flush-to-zero, denormals-are-zero and an unmasked invalid trap. That
    // state comes back, the destination matches, the source stays.
    void run(Rig& rig, int i)
    {
        const Bytes srcBefore = rig.src->contents(), want = rig.expected();
        const int directions[] = {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO};
        std::fesetround(directions[i % 4]);
        _mm_setcsr(i % 3 == 2 ? (_mm_getcsr() | 0x8040u) & ~0x80u : _mm_getcsr());
        const unsigned mxcsr = _mm_getcsr();
        const PvxStatus st = member().call(GetParam().path, rig.call);
        const unsigned mxcsrAfter = _mm_getcsr();
        const int directionAfter = std::fegetround();
        _mm_setcsr(0x1f80);
        std::fesetround(FE_TONEAREST);
        EXPECT_EQ(mxcsrAfter, mxcsr);
        EXPECT_EQ(directionAfter, directions[i % 4]);
        EXPECT_EQ(st, pvxStsOk);
        EXPECT_TRUE(rig.out().matches(want, "destination"));
        EXPECT_TRUE(!rig.dst || rig.src->matches(srcBefore, "source (must not be written)"));
    }
};

// Integer sources hold random bytes, float sources values around the
// destination's range times 2^scale (integers, halves, quarters, any
// fraction), one in 16 any bit pattern. Sfs factors reach 3 past the
// source's bits.
TEST_P(ConvertTest, MatchesReference)
{
    const Member& m = member();
    std::vector<Shape> shapes = guardShapes(), steps = stepShapes();
    const int widths[] = {1, 3, 15, 17, 65, 130};
    for (unsigned a = 0; a < 24; ++a)
        shapes.push_back({widths[a / 4], 3, int(a * 3 % 11), int(a * 5 % 13), 1, 1, a % 16});
    // contiguous (one row, one long row), long rows
    shapes.insert(shapes.end(), {{33, 5, 0, 0}, {130, 40, 0, 0, 1, 1, 4}, {2100, 2, 4, 12, 1, 1, 7}, {9001, 2, 0, 8}});
    shapes.insert(shapes.end(), steps.begin(), m.d.suffix == "" ? steps.begin() : steps.end());
    const Ld span = std::max(-m.dst.lo, m.dst.hi) * 1.25L + 4;
    for (std::size_t i = 0; i < shapes.size(); ++i) {
        Rng rng(i * 7919 + 17);
        Rig rig(m, shapes[i], int(i % 8), rng);
        rig.call.mode = kModes[i % 5];
        rig.call.scale = m.d.suffix == "Sfs" ? int(rng.below(m.src.isFloat ? 16 : 8 * m.src.size + 8)) - 4 : 0;
        if (m.src.isFloat)
            rig.setSource([&](int, int) {
                const Ld whole = std::floor(Ld(rng.below(1000001)) / 1000000 * 2 * span - span);
                const Ld frac[] = {0, 0.5L, 0.25L, 0.75L, Ld(rng.below(1000)) / 1000};
                const float any = asFloat(std::uint32_t(rng.next()));
                return rng.below(16) ? std::ldexp(whole + frac[rng.below(5)], rig.call.scale) : Ld(any);
            });
        SCOPED_TRACE(describe(shapes[i]) + " mode " + std::to_string(rig.call.mode) + " scale " +
                     std::to_string(rig.call.scale));
        run(rig, int(i));
    }
}

// Limits, NaN, infinities, halves and powers of two in every mode and, for
// the Sfs forms, every scale factor from -40 to 40 and some far beyond. For
// 1u8u: every bit offset 0..20 with widths 1..40.
TEST_P(ConvertTest, EdgeCases)
{
    const Member& m = member();
    for (int offset = 0; m.bits && offset <= 20; ++offset)
        for (int w = 1; w <= 40; ++w) {
            SCOPED_TRACE("offset " + std::to_string(offset) + " width " + std::to_string(w));
            Rng rng(offset * 41 + w);
            Rig rig(m, Shape{w, 2, offset % 3, w % 5, 1, 1, unsigned(w % 16), w % 2 == 0}, offset, rng);
            run(rig, w);
        }
    std::vector<int> scales = {0};
    for (int s = -40; m.d.suffix == "Sfs" && s <= 40; ++s)
        scales.push_back(s);
    scales.insert(scales.end(), {INT_MIN, -300, -160, 130, 300, INT_MAX});
    for (int i = 0; !m.bits && i < int(m.d.suffix == "Sfs" ? scales.size() : 1) * 5; ++i) {
        const int mode = kModes[i % 5], scale = scales[i / 5];
        const Ld f = std::ldexp(1.0L, std::max(-40, std::min(40, scale)));
        std::vector<Ld> v;
        for (std::uint32_t bits : floatEdgeCases())
            v.push_back(asFloat(bits));
        for (Ld h : {0.5L, 1.5L, 2.5L, 3.5L, 0.7L, 0.49999997L, 8388609.0L, 1.0e25L})
            v.insert(v.end(), {h * f, -h * f});
        for (Ld limit : {m.dst.lo, m.dst.hi, 2147483520.0L, 2147483648.0L, 4294967040.0L, 4294967296.0L})
            for (Ld delta : {-1.0L, -0.5L, -0.25L, 0.0L, 0.25L, 0.5L, 1.0L})
                v.push_back((limit + delta) * f);
        for (int k = 0; k < 33; ++k)
            v.insert(v.end(), {std::ldexp(1.0L, k) - 1, std::ldexp(1.0L, k), -std::ldexp(1.0L, k) - 1});
        for (Ld& x : v)  // integer sources: whole values in range (NaN: 0)
            x = m.src.isFloat ? x : std::isnan(x) ? 0 : std::max(m.src.lo, std::min(m.src.hi, std::trunc(x)));
        SCOPED_TRACE("mode " + std::to_string(mode) + " scale " + std::to_string(scale));
        Rng rng(i);
        Rig rig(m, Shape{int(v.size()), 2, 4, 8, 1, 1, unsigned(i % 16)}, 0, rng);
        rig.call.mode = mode;
        rig.call.scale = scale;
        rig.setSource([&](int e, int y) { return v[(e + 7 * y) % v.size()]; });
        run(rig, i);
    }
}

// Pointers, then the size, then (plain forms, 1u8u) the steps, then (1u8u)
// the bit offset; a failing call writes nothing.
TEST_P(ConvertTest, ArgumentChecks)
{
    const Member& m = member();
    Rng rng(5);
    Rig rig(m, Shape{5, 2, 4, 4}, 3, rng);
    const Bytes srcBefore = rig.src->contents(), dstBefore = rig.out().contents();
    // nulls: bit 0 the source, bit 1 the destination (in place, either: the image)
    const auto expect = [&](int nulls, PvxiSize roi, int srcStep, int dstStep, int offset, PvxStatus want) {
        SCOPED_TRACE("nulls " + std::to_string(nulls) + " roi " + std::to_string(roi.width) + "x" +
                     std::to_string(roi.height) + " steps " + std::to_string(srcStep) + "/" + std::to_string(dstStep));
        void* dst = nulls & (m.d.inPlace ? 3 : 2) ? nullptr : rig.call.dst;
        const void* src = nulls & 1 ? nullptr : rig.call.src;
        const Call c = {src, srcStep, offset, dst, m.d.inPlace ? srcStep : dstStep, roi, 7, 0};
        EXPECT_EQ(m.call(GetParam().path, c), want);
        EXPECT_TRUE(rig.src->matches(srcBefore, "source"));
        EXPECT_TRUE(rig.out().matches(dstBefore, "destination"));
    };
    const int s = rig.call.srcStep, d = rig.call.dstStep, steps = m.d.suffix == "";
    expect(1, {5, 2}, s, d, 3, pvxStsNullPtrErr);
    expect(2, {0, 2}, 0, -1, -1, pvxStsNullPtrErr);
    expect(3, {INT_MIN, INT_MIN}, s, d, 3, pvxStsNullPtrErr);
    for (PvxiSize roi : {PvxiSize{0, 2}, PvxiSize{5, 0}, PvxiSize{-1, 2}, PvxiSize{INT_MIN, INT_MIN}})
        expect(0, roi, steps ? 0 : s, -d, -1, pvxStsSizeErr);
    for (int k = 0; steps && k < 2; ++k)  // steps before the offset
        expect(0, {5, 2}, k ? s : 0, k ? -d : d, -1, pvxStsStepErr);
    for (int offset : {-1, INT_MIN})
        if (m.bits)
            expect(0, {5, 2}, s, d, offset, pvxStsSizeErr);
}

INSTANTIATE_TEST_SUITE_P(Move, ConvertTest, ::testing::ValuesIn(onEveryPath(kMembers)), CaseName());

TEST(ConvertRegistration, EveryMemberOnEveryPath)
{
    const std::vector<std::string> names = {PVX_MEMBERS_Convert(PVX_NAME_OF)};
    EXPECT_EQ(names.size(), 101u);
    expectEveryCaseRegistered("Move/ConvertTest", {"MatchesReference", "EdgeCases", "ArgumentChecks"}, names);
}

}  // namespace
