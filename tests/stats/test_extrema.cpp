// Min, Max, MinMax, MinIndx and MaxIndx: every member on every code path
// against a plain scalar reference, on random data, on data with planted
// extremes and ties (type bounds included, so that the early exits run), on
// constant images and, for 32f, with NaN, infinities and signed zeros; sources
// must stay untouched, rows may end at guard pages, and only the reported
// channels of the outputs are written.
#include <climits>
#include <cmath>
#include <limits>
#include <type_traits>

#include "stats/stats_rig.h"

namespace {

using namespace statstest;

enum Kind { kMin, kMax, kMinMax, kMinIndx, kMaxIndx };

// Outputs of one call, canary-filled beforehand.
struct Out {
    unsigned char a[16], b[16];  // minimum or maximum; MinMax's maximum
    int x[4], y[4];
};

// Calls one member with the outputs in `out`; argument `nullArg` (0 the
// source, then the outputs in order) is passed as null.
template <class T, class F>
PvxStatus invoke(F f, const void* src, int step, PvxiSize roi, Out* out, int nullArg)
{
    const auto ptr = [nullArg](int i, auto* p) { return nullArg == i ? nullptr : p; };
    const T* s = ptr(0, static_cast<const T*>(src));
    T* a = ptr(1, reinterpret_cast<T*>(out->a));
    if constexpr (std::is_invocable_v<F, const T*, int, PvxiSize, T*>)
        return f(s, step, roi, a);
    else if constexpr (std::is_invocable_v<F, const T*, int, PvxiSize, T*, T*>)
        return f(s, step, roi, a, ptr(2, reinterpret_cast<T*>(out->b)));
    else
        return f(s, step, roi, a, ptr(2, out->x), ptr(3, out->y));
}

struct Member : MemberId<Kind> {
    bool isFloat;
    double lo, hi;  // range of the type (finite)
    double (*read)(const unsigned char*);
    void (*write)(unsigned char*, double);
    PvxStatus (*call)(int path, const void* src, int step, PvxiSize roi, Out* out, int nullArg);
};

#define PVX_EXTREMA_MEMBER(kind, S, desc, exportName)                                                              \
    Member{{#exportName, #desc, kind, sizeof(S)}, std::is_floating_point_v<S>,                                     \
           double(std::numeric_limits<S>::lowest()), double(std::numeric_limits<S>::max()), readAs<S>, writeAs<S>, \
           [](int path, const void* s, int step, PvxiSize roi, Out* out, int nullArg) {                            \
               return invoke<S>(PVX_PATH_FN(exportName, path), s, step, roi, out, nullArg);                        \
           }},
#define PVX_MIN(sig, S, D, desc, n) PVX_EXTREMA_MEMBER(kMin, S, desc, n)
#define PVX_MAX(sig, S, D, desc, n) PVX_EXTREMA_MEMBER(kMax, S, desc, n)
#define PVX_MINMAX(sig, S, D, desc, n) PVX_EXTREMA_MEMBER(kMinMax, S, desc, n)
#define PVX_MININDX(sig, S, D, desc, n) PVX_EXTREMA_MEMBER(kMinIndx, S, desc, n)
#define PVX_MAXINDX(sig, S, D, desc, n) PVX_EXTREMA_MEMBER(kMaxIndx, S, desc, n)

const std::vector<Member>& members()
{
    static const std::vector<Member> v = {PVX_MEMBERS_Min(PVX_MIN) PVX_MEMBERS_Max(PVX_MAX)
                                              PVX_MEMBERS_MinMax(PVX_MINMAX) PVX_MEMBERS_MinIndx(PVX_MININDX)
                                                  PVX_MEMBERS_MaxIndx(PVX_MAXINDX)};
    return v;
}

enum class Fill { Random, Planted, Constant, NaNs };

// A source image of the member's layout and its reference results.
struct Rig {
    const Member& m;
    Descriptor d;
    PvxiSize roi;
    TestImage img;
    Rng& rng;

    Rig(const Member& member, const Shape& s, Rng& r)
        : m(member), d(parseDescriptor(member.descriptor)), roi{s.width, s.height},
          img(std::size_t(s.width) * std::size_t(d.src.pixel) * member.elem, s.height,
              s.srcSign * int(std::size_t(s.width) * std::size_t(d.src.pixel) * member.elem + s.srcPad * member.elem),
              unsigned(s.misalign * member.elem % 16), s.flush, r),
          rng(r)
    {
    }

    unsigned char* at(int x, int y, int c) { return img.at(y, (std::size_t(x) * d.src.pixel + c) * m.elem); }
    double get(int x, int y, int c) { return m.read(at(x, y, c)); }
    void put(int x, int y, int c, double v) { m.write(at(x, y, c), v); }
    double uniform(double a, double b) { return a + (b - a) * double(rng.next() >> 11) / double(1ull << 53); }
    double integer(double a, double b) { return a + double(rng.next() % std::uint64_t(b - a + 1)); }
    // An outlier below (sign -1) or above (+1) the planted background: the
    // type's bound, a value beyond the background, or a zero of either sign
    // (below the float background). Planted at a random pixel, once more in
    // the same row and once in the same or a later row.
    void plant(int c, int sign)
    {
        const int y = int(rng.below(unsigned(roi.height))), y2 = y + int(rng.below(unsigned(roi.height - y)));
        const double q = (m.hi - m.lo) / 4, bound = m.isFloat ? sign * double(INFINITY) : sign < 0 ? m.lo : m.hi;
        const unsigned pick = rng.below(m.isFloat ? 3 : 2);
        const double v = pick == 0 ? bound
                         : pick == 2 ? (sign < 0 ? 0.0 : 1e30)
                         : m.isFloat ? (sign < 0 ? uniform(-1000, 0.5) : uniform(1001, 1e6))
                                     : (sign < 0 ? integer(m.lo + 1, m.lo + q - 1) : integer(m.hi - q + 1, m.hi - 1));
        for (int k = 0; k < 3; ++k)
            put(int(rng.below(unsigned(roi.width))), k < 2 ? y : y2, c, v == 0 && rng.below(2) ? -v : v);
    }

    void fill(Fill f, int variant)
    {
        const double q = (m.hi - m.lo) / 4, nan = std::numeric_limits<double>::quiet_NaN();
        // NaN fills: sprinkled NaN, pixel (0, 0) NaN, and perhaps one channel
        // of nothing but NaN, or of NaN and +inf.
        const int nanChannel = f == Fill::NaNs ? variant / 2 % (d.src.used + 1) : -1;
        double constant[4];
        for (double& v : constant)
            v = m.isFloat ? uniform(-50, 50) : rng.below(3) ? integer(m.lo, m.hi) : rng.below(2) ? m.lo : m.hi;
        for (int y = 0; y < roi.height; ++y)
            for (int x = 0; x < roi.width; ++x)
                for (int c = 0; c < d.src.pixel; ++c) {
                    double v = f == Fill::Constant ? constant[c]
                               : f == Fill::Random ? (m.isFloat ? uniform(-1000, 1000) : integer(m.lo, m.hi))
                                                   : (m.isFloat ? uniform(1, 1000) : integer(m.lo + q, m.hi - q));
                    if (c >= d.src.used)  // alpha values that would win if they took part
                        v = m.isFloat && rng.below(3) == 0 ? nan : rng.below(2) ? m.lo : m.hi;
                    else if (c == nanChannel)
                        v = variant % 2 && rng.below(16) == 0 ? double(INFINITY) : nan;
                    else if (f == Fill::NaNs && (x + y == 0 || rng.below(8) == 0))
                        v = nan;
                    put(x, y, c, v);
                }
        for (int c = 0; c < d.src.used && (f == Fill::Planted || f == Fill::NaNs); ++c)
            if (c != nanChannel) {
                plant(c, -1);
                plant(c, +1);
            }
    }

    // First minimum (sign -1) or maximum (+1) of channel c in row-major
    // order, NaN skipped; (0, 0) for a channel of nothing but NaN.
    void reference(int c, int sign, int& bx, int& by)
    {
        bool found = false;
        bx = by = 0;
        for (int y = 0; y < roi.height; ++y)
            for (int x = 0; x < roi.width; ++x) {
                const double v = get(x, y, c);
                if (!std::isnan(v) && (!found || sign * v > sign * get(bx, by, c))) {
                    bx = x, by = y;
                    found = true;
                }
            }
    }

    // Runs the member and compares every output with the reference.
    void check(int path)
    {
        Out out;
        std::memset(&out, 0xa5, sizeof out);
        const Out before = out;
        const Bytes srcBefore = img.contents();
        ASSERT_EQ(m.call(path, img.origin(), img.step(), roi, &out, -1), pvxStsOk);
        EXPECT_TRUE(img.matches(srcBefore, "source (must not be written)"));
        const std::size_t es = m.elem;
        for (int c = 0; c < d.src.used; ++c) {
            SCOPED_TRACE("channel " + std::to_string(c));
            int x, y;
            const auto expectValue = [&](const unsigned char* got, int sign) {
                reference(c, sign, x, y);
                if (m.kind >= kMinIndx || std::isnan(get(x, y, c)))  // the pixel itself, bit for bit
                    EXPECT_EQ(0, std::memcmp(got, at(x, y, c), es)) << m.read(got) << " vs " << get(x, y, c);
                else  // a zero of either sign
                    EXPECT_EQ(m.read(got), get(x, y, c));
            };
            expectValue(out.a + c * es, m.kind == kMax || m.kind == kMaxIndx ? 1 : -1);
            if (m.kind == kMinMax)
                expectValue(out.b + c * es, 1);
            if (m.kind >= kMinIndx) {
                EXPECT_EQ(out.x[c], x);
                EXPECT_EQ(out.y[c], y);
            }
        }
        // Nothing past the reported channels is written.
        Out want = before;
        const std::size_t used = std::size_t(d.src.used);
        std::memcpy(want.a, out.a, used * es);
        if (m.kind == kMinMax)
            std::memcpy(want.b, out.b, used * es);
        if (m.kind >= kMinIndx) {
            std::memcpy(want.x, out.x, used * sizeof(int));
            std::memcpy(want.y, out.y, used * sizeof(int));
        }
        EXPECT_EQ(0, std::memcmp(&want, &out, sizeof out)) << "outputs written past the reported channels";
    }
};

// Odd widths around the vector and accumulator blocks, one to nine rows,
// padded steps and misaligned origins; a long and a contiguous image;
// bottom-up and zero steps; and rows that end at a guard page.
std::vector<Shape> shapes()
{
    std::vector<Shape> v;
    for (int w : {1, 3, 15, 17, 65, 130})
        for (int h : {1, 2, 9})
            v.push_back({w, h, w * 3 % 13, 0, 1, 1, unsigned(w + h) % 16});
    v.push_back({515, 37, 8, 0, 1, 1, 1});
    v.push_back({33, 5, 0, 0, 1, 1, 0});
    v.push_back({19, 4, 4, 0, -1, 1, 5});
    v.push_back({17, 4, 4, 0, 0, 1, 3});
    for (Shape s : std::vector<Shape>{{17, 3, 8}, {16, 3, 0}, {67, 2, 4}, {1, 1}}) {
        s.flush = true;
        v.push_back(s);
    }
    return v;
}

class ExtremaTest : public MemberTest<Member> {};

TEST_P(ExtremaTest, MatchesReference)
{
    const std::vector<Shape> all = shapes();
    for (std::size_t i = 0; i < all.size(); ++i)
        for (Fill f : {Fill::Random, Fill::Planted, Fill::Constant, Fill::NaNs}) {
            if (f == Fill::NaNs && !member().isFloat)
                continue;
            for (int variant = 0; variant < (f == Fill::Planted ? 4 : f == Fill::NaNs ? 2 : 1); ++variant) {
                SCOPED_TRACE(describe(all[i]) + " fill " + std::to_string(int(f)) + "." + std::to_string(variant));
                Rng rng(i * 7919 + int(f) * 131 + variant);
                Rig rig(member(), all[i], rng);
                rig.fill(f, variant + int(i));
                rig.check(path());
            }
        }
}

// A null pointer is reported before a bad size, and no failing call writes.
TEST_P(ExtremaTest, ArgumentChecks)
{
    Rng rng(5);
    Rig rig(member(), Shape{5, 2, 4}, rng);
    rig.fill(Fill::Random, 0);
    const int pointers = member().kind == kMinMax ? 3 : member().kind >= kMinIndx ? 4 : 2;
    const PvxiSize bad[] = {{0, 2}, {5, 0}, {0, 0}, {-1, 2}, {5, -3}, {INT_MIN, INT_MIN}};
    const auto expectFails = [&](int nullArg, PvxiSize roi, PvxStatus want) {
        SCOPED_TRACE("null " + std::to_string(nullArg) + " roi " + std::to_string(roi.width) + "x" +
                     std::to_string(roi.height));
        Out out;
        std::memset(&out, 0xa5, sizeof out);
        const Out before = out;
        EXPECT_EQ(member().call(path(), rig.img.origin(), rig.img.step(), roi, &out, nullArg), want);
        EXPECT_EQ(0, std::memcmp(&out, &before, sizeof out));
    };
    for (int p = 0; p < pointers; ++p)
        for (PvxiSize roi : {PvxiSize{5, 2}, bad[0], bad[4]})
            expectFails(p, roi, pvxStsNullPtrErr);
    for (PvxiSize roi : bad)
        expectFails(-1, roi, pvxStsSizeErr);
}

INSTANTIATE_TEST_SUITE_P(Stats, ExtremaTest, ::testing::ValuesIn(onEveryPath(members())), CaseName());

TEST(ExtremaRegistration, EveryMemberOnEveryPath)
{
    const std::vector<std::string> names = namesOf(members());
    EXPECT_EQ(names.size(), 5u * 4u * 4u);  // five families, four types, four layouts
    expectEveryCaseRegistered("Stats/ExtremaTest", {"MatchesReference", "ArgumentChecks"}, names);
}

}  // namespace
