// Sum, Mean, Norm, NormDiff, NormRel: every member on every code path against
// a plain scalar reference (random data, odd widths, padded steps holding
// canaries that would change any result they leaked into, misaligned
// sources, last rows against guard pages), integer extremes that overflow any
// accumulator widened too late, the documented examples, and the argument
// checks (nothing written on failure, nothing past the results ever).
#include <cfloat>
#include <climits>
#include <cmath>
#include <type_traits>

#include "stats/stats_rig.h"

namespace {

using namespace statstest;

enum class Family { Sum, Mean, Norm, NormDiff, NormRel };
enum class Kind { None, Inf, L1, L2 };

struct Call {
    const void* src1 = nullptr;
    int step1 = 0;
    const void* src2 = nullptr;
    int step2 = 0;
    PvxiSize roi{};
    double* out = nullptr;
    int hint = 0;
};

template <class T, class F>
PvxStatus invoke(F f, const Call& c)
{
    const T *a = static_cast<const T*>(c.src1), *b = static_cast<const T*>(c.src2);
    if constexpr (std::is_invocable_v<F, const T*, int, PvxiSize, double*>)
        return f(a, c.step1, c.roi, c.out);
    else if constexpr (std::is_invocable_v<F, const T*, int, PvxiSize, double*, int>)
        return f(a, c.step1, c.roi, c.out, c.hint);
    else if constexpr (std::is_invocable_v<F, const T*, int, const T*, int, PvxiSize, double*>)
        return f(a, c.step1, b, c.step2, c.roi, c.out);
    else
        return f(a, c.step1, b, c.step2, c.roi, c.out, c.hint);
}

struct Member {
    std::string name;
    Family family;
    Kind kind;
    Descriptor d;
    std::size_t elem;
    bool isFloat;
    double extreme1, extreme2;  // largest-magnitude values of src1, and src2 farthest from them
    double (*get)(const unsigned char*);
    void (*put)(unsigned char*, double);
    PvxStatus (*call)(int path, const Call&);

    bool twoSources() const { return family == Family::NormDiff || family == Family::NormRel; }
    bool checksSteps() const { return family != Family::Sum && family != Family::Mean; }
};

template <class T>
Member makeMember(const std::string& name, const char* desc, PvxStatus (*call)(int, const Call&))
{
    const std::string op = name.substr(4, name.find('_') - 4);
    const Family f = op == "Sum" ? Family::Sum : op == "Mean" ? Family::Mean : op == "Norm" ? Family::Norm
                   : op == "NormDiff" ? Family::NormDiff : Family::NormRel;
    const Kind k = name.find("_Inf_") != std::string::npos  ? Kind::Inf
                   : name.find("_L1_") != std::string::npos ? Kind::L1
                   : name.find("_L2_") != std::string::npos ? Kind::L2 : Kind::None;
    const double lo = std::numeric_limits<T>::lowest(), hi = std::numeric_limits<T>::max();
    const bool negativeBigger = -lo > hi;
    return {name,  f,  k,  parseDescriptor(desc), sizeof(T), std::is_floating_point_v<T>, negativeBigger ? lo : hi,
            negativeBigger ? hi : lo, readAs<T>, writeAs<T>, call};
}

#define PVX_SUMS_MEMBER(sig, S, D, desc, exportName) \
    makeMember<S>(#exportName, #desc, [](int path, const Call& c) { return invoke<S>(PVX_PATH_FN(exportName, path), c); }),

const std::vector<Member>& members()
{
    static const std::vector<Member> v = {PVX_MEMBERS_Sum(PVX_SUMS_MEMBER) PVX_MEMBERS_Mean(PVX_SUMS_MEMBER)
                                              PVX_MEMBERS_Norm(PVX_SUMS_MEMBER) PVX_MEMBERS_NormDiff(PVX_SUMS_MEMBER)
                                                  PVX_MEMBERS_NormRel(PVX_SUMS_MEMBER)};
    return v;
}

enum class Fill { Random, ZeroReference, NaN };

constexpr std::uint64_t kSentinel = 0x7ff4dead5a5a5a5aull;  // a NaN no result can be

// The sources of one call and the result buffer, two doubles longer than any
// result, prefilled with a sentinel.
struct Rig {
    const Member& m;
    std::unique_ptr<TestImage> a, b;
    Call call;
    double out[6];

    Rig(const Member& member, const Shape& s, Rng& rng, Fill fill, int hint) : m(member)
    {
        a = std::move(makeImages(m.d.src, m.elem, s, true, rng).front());
        Shape s2 = s;
        s2.misalign += 5;
        if (m.twoSources())
            b = std::move(makeImages(m.d.src, m.elem, s2, true, rng).front());
        for (int y = 0; y < s.height; ++y)
            for (int x = 0; x < s.width; ++x)
                for (int c = 0; c < m.d.src.pixel; ++c) {
                    // Floats: a quarter of large values (1 to 3 times 2^40) that cancel
                    // one another, among small ones, so that double sums round and
                    // their order shows; integers keep random bytes.
                    for (TestImage* im : {a.get(), b.get()})
                        if (m.isFloat && im) {
                            const double v = int(rng.below(2000001)) - 1000000;
                            const bool large = rng.below(4) == 0;
                            m.put(at(*im, y, x, c), large ? std::copysign(std::ldexp(1.0 + rng.below(3), 40), v)
                                                                : std::ldexp(v, int(rng.below(21)) - 40));
                        }
                    if (fill == Fill::ZeroReference && c == 0)
                        m.put(at(*b, y, x, c), 0);
                }
        if (fill == Fill::NaN)  // in the last element: AC4 must ignore it
            m.put(at(*a, s.height / 2, s.width / 2, m.d.src.pixel - 1), NAN);
        call.src1 = a->origin();
        call.step1 = a->step();
        call.src2 = m.twoSources() ? b->origin() : nullptr;
        call.step2 = m.twoSources() ? b->step() : 0;
        call.roi = {s.width, s.height};
        call.hint = hint;
        for (double& d : out)
            std::memcpy(&d, &kSentinel, sizeof d);
        call.out = out;
    }

    unsigned char* at(const TestImage& im, int y, int x, int c) const
    {
        return im.at(y, (static_cast<std::size_t>(x) * m.d.src.pixel + c) * m.elem);
    }

    bool untouchedFrom(int first) const
    {
        for (int i = first; i < 6; ++i)
            if (std::memcmp(&out[i], &kSentinel, sizeof kSentinel) != 0)
                return false;
        return true;
    }
};

struct Expected {
    double value[4], tol[4];
    PvxStatus status = pvxStsOk;
};

// Plain per-channel reduction in double: exact for the integer data of these
// tests (every sum stays below 2^53). 32f sums with the accurate hint follow
// the library's documented order (s0..s3); other float sums get a tolerance
// for single-precision accumulation.
Expected reference(const Rig& r)
{
    const Member& m = r.m;
    const bool accurate = r.call.hint == pvxAlgHintAccurate;
    const double rel = !m.isFloat ? 0 : accurate ? 1e-12 : 1e-5;
    const int w = r.call.roi.width, h = r.call.roi.height;
    Expected e;
    for (int c = 0; c < m.d.src.used; ++c) {
        double sum = 0, magnitude = 0, squares = 0, max = 0, refSum = 0, refSquares = 0, refMax = 0;
        double s0 = 0, s1 = 0;  // the accurate order for 32f sums
        for (int y = 0; y < h; ++y) {
            for (int x = 0; x < w; ++x) {
                const double x1 = m.get(r.at(*r.a, y, x, c));
                const double x2 = m.twoSources() ? m.get(r.at(*r.b, y, x, c)) : 0;
                const double v = m.twoSources() ? x1 - x2 : x1;
                // Infinity norms of float differences are formed in single precision.
                const double vInf = m.twoSources() && m.isFloat ? double(float(x1) - float(x2)) : v;
                sum += v, magnitude += std::fabs(v), squares += v * v;
                max = std::isnan(vInf) || std::isnan(max) ? NAN : std::max(max, std::fabs(vInf));
                refSum += std::fabs(x2), refSquares += x2 * x2, refMax = std::max(refMax, std::fabs(x2));
            }
            const auto val = [&](int x) { return m.get(r.at(*r.a, y, x, c)); };
            double s2 = 0, s3 = 0;
            int x = 0;
            for (; x + 4 <= w; x += 4)
                s0 += val(x), s1 += val(x + 1), s2 += val(x + 2), s3 += val(x + 3);
            if (w - x >= 2)
                s0 += val(x), s1 += val(x + 1), x += 2;
            s0 += s2, s1 += s3;
            if (x < w)
                s0 += val(x);
        }
        const double n = double(w) * h;
        double value = 0, scale = 0;
        switch (m.family) {
        case Family::Sum:
        case Family::Mean:
            value = m.isFloat && accurate ? s1 + s0 : sum;
            scale = magnitude;
            if (m.family == Family::Mean)
                value /= n, scale /= n;
            break;
        default: {
            const double diff = m.kind == Kind::Inf ? max : m.kind == Kind::L1 ? magnitude : squares;
            const double ref = m.kind == Kind::Inf ? refMax : m.kind == Kind::L1 ? refSum : refSquares;
            const bool relative = m.family == Family::NormRel;
            const bool zeroRef = relative && ref < DBL_MIN;
            if (zeroRef)
                e.status = pvxStsDivByZeroWrn;
            value = relative && !zeroRef ? diff / ref : diff;
            if (m.kind == Kind::L2)
                value = std::sqrt(value);
            scale = std::fabs(value) * (relative ? 2 : 1);
        }
        }
        e.value[c] = value;
        // Maxima are exact; so are the accurate sums, whose order is fixed.
        const bool exact = !m.isFloat || m.kind == Kind::Inf || (accurate && m.kind == Kind::None);
        e.tol[c] = exact ? 0 : rel * scale + 1e-300;
    }
    return e;
}

void expectResults(const Rig& r, const Expected& e, PvxStatus got)
{
    EXPECT_EQ(got, e.status);
    for (int c = 0; c < r.m.d.src.used; ++c) {
        SCOPED_TRACE("channel " + std::to_string(c));
        if (std::isnan(e.value[c]))
            EXPECT_TRUE(std::isnan(r.out[c])) << r.out[c];
        else if (e.tol[c] == 0)
            EXPECT_EQ(r.out[c], e.value[c]);
        else
            EXPECT_NEAR(r.out[c], e.value[c], e.tol[c]);
    }
    EXPECT_TRUE(r.untouchedFrom(r.m.d.src.used)) << "written past the results";
}

class SumsTest : public MemberTest<Member> {
protected:
    // Runs each shape (float members twice: with the accurate hint and with
    // one of the others); sources must be left as they were.
    void runShapes(const std::vector<Shape>& shapes, Fill fill = Fill::Random)
    {
        static const int kHints[] = {pvxAlgHintNone, pvxAlgHintFast, 7, -1};
        for (std::size_t i = 0; i < shapes.size() * (member().isFloat ? 2 : 1); ++i) {
            const int hint = i < shapes.size() ? pvxAlgHintAccurate : kHints[i % std::size(kHints)];
            const Shape& shape = shapes[i % shapes.size()];
            SCOPED_TRACE(describe(shape) + " hint " + std::to_string(hint));
            Rng rng(i * 7919 + 5);
            Rig rig(member(), shape, rng, fill, hint);
            const Bytes before1 = rig.a->contents(), before2 = !rig.b ? Bytes() : rig.b->contents();
            const PvxStatus st = member().call(path(), rig.call);
            if (member().checksSteps() && (rig.call.step1 < 1 || (member().twoSources() && rig.call.step2 < 1))) {
                EXPECT_EQ(st, pvxStsStepErr);
                EXPECT_TRUE(rig.untouchedFrom(0));
            } else {
                expectResults(rig, reference(rig), st);
            }
            EXPECT_TRUE(rig.a->matches(before1, "source 1"));
            if (rig.b) {
                EXPECT_TRUE(rig.b->matches(before2, "source 2"));
            }
        }
    }
};

// Odd widths around the block sizes, one to forty rows, padded steps and every
// source misalignment; contiguous images (taken as one row); a ROI large
// enough to widen every narrow accumulator at least once; last rows flush
// against guard pages.
std::vector<Shape> shapes()
{
    std::vector<Shape> v;
    unsigned i = 0;
    for (int w : {1, 3, 15, 17, 65, 130})
        for (int h : {1, 3}) {
            v.push_back({w, h, int(i * 3 % 11 + 1), 0, 1, 1, i});
            ++i;
        }
    v.push_back({33, 5, 0, 0, 1, 1, 0});
    v.push_back({130, 40, 0, 0, 1, 1, 3});
    v.push_back({515, 37, 8, 0, 1, 1, 1});
    for (Shape s : guardShapes()) {
        s.srcPad += 2;
        v.push_back(s);
    }
    return v;
}

TEST_P(SumsTest, MatchesReference)
{
    runShapes(shapes());
}

// Sum and Mean take a zero or negative step as given; the norms refuse it.
TEST_P(SumsTest, ZeroAndNegativeSteps)
{
    runShapes({{17, 4, 4, 4, 0, 1, 0}, {19, 4, 4, 8, -1, -1, 5}, {33, 3, 0, 0, -1, 1, 1}, {65, 3, 12, 0, 1, 0, 11}});
}

// NormRel: a zero reference channel gives the difference norm and a warning.
// Float data: a NaN gives NaN in its channel only (AC4 ignores it in alpha).
TEST_P(SumsTest, ZeroReferenceAndNaN)
{
    if (member().family == Family::NormRel)
        runShapes({{17, 3, 2, 0, 1, 1, 1}, {65, 2, 0, 0, 1, 1, 4}}, Fill::ZeroReference);
    if (member().isFloat)
        runShapes({{17, 3, 2, 0, 1, 1, 1}, {66, 2, 0, 0, 1, 1, 4}}, Fill::NaN);
}

// Integer data at its largest magnitudes over 640000 pixels: every lane of
// every narrow accumulator overflows unless widened in time. Rows overlap
// (the step is one pixel), which all families accept.
class SumsExtremesTest : public SumsTest {};

TEST_P(SumsExtremesTest, NoAccumulatorOverflows)
{
    const Member& m = member();
    Rng rng(3);
    Rig rig(m, Shape{1, 1}, rng, Fill::Random, 0);
    const int w = 40000, h = 16, pixelBytes = int(m.elem) * m.d.src.pixel;
    for (auto* image : {&rig.a, &rig.b}) {
        if (image == &rig.b && !m.twoSources())
            break;
        *image = std::make_unique<TestImage>(std::size_t(w) * pixelBytes, h, pixelBytes, 0, true, rng);
        for (int e = 0; e < (w + h - 1) * m.d.src.pixel; ++e)
            m.put((*image)->at(0, std::size_t(e) * m.elem), image == &rig.a ? m.extreme1 : m.extreme2);
    }
    rig.call = {rig.a->origin(), pixelBytes, m.twoSources() ? rig.b->origin() : nullptr, pixelBytes,
                {w, h}, rig.out, 0};
    expectResults(rig, reference(rig), m.call(path(), rig.call));
}

// Pointers (any of them) before the size, the size before the steps; no
// failing call writes anything.
TEST_P(SumsTest, ArgumentChecks)
{
    const Member& m = member();
    Rng rng(11);
    Rig rig(m, Shape{5, 2, 4}, rng, Fill::Random, 0);
    const PvxiSize bad[] = {{0, 2}, {5, 0}, {-1, 2}, {INT_MIN, INT_MIN}};
    const auto check = [&](const char* what, Call c, PvxStatus want) {
        SCOPED_TRACE(std::string(what) + " roi " + std::to_string(c.roi.width) + "x" + std::to_string(c.roi.height) +
                     " steps " + std::to_string(c.step1) + "/" + std::to_string(c.step2));
        EXPECT_EQ(m.call(path(), c), want);
        EXPECT_TRUE(rig.untouchedFrom(0));
    };
    for (PvxiSize roi : {rig.call.roi, bad[0], bad[2]})
        for (int step : {rig.call.step1, 0, -3}) {
            Call c = rig.call;
            c.roi = roi;
            c.step1 = c.step2 = step;
            Call n1 = c, n2 = c, n3 = c, all = c;
            n1.src1 = all.src1 = nullptr;
            n2.src2 = all.src2 = nullptr;
            n3.out = all.out = nullptr;
            check("null source", n1, pvxStsNullPtrErr);
            if (m.twoSources())
                check("null second source", n2, pvxStsNullPtrErr);
            check("null result", n3, pvxStsNullPtrErr);
            check("all null", all, pvxStsNullPtrErr);
        }
    for (PvxiSize roi : bad)
        for (int step : {0, -1}) {
            Call c = rig.call;
            c.roi = roi;
            c.step1 = step;
            check("bad size", c, pvxStsSizeErr);
        }
    if (m.checksSteps())
        for (const auto& steps : {std::pair{0, 64}, {-64, 64}, {64, 0}, {64, INT_MIN}}) {
            Call c = rig.call;
            c.step1 = steps.first;
            if (m.twoSources())
                c.step2 = steps.second;
            if (m.twoSources() || steps.first < 1)
                check("bad step", c, pvxStsStepErr);
        }
}

INSTANTIATE_TEST_SUITE_P(Stats, SumsTest, ::testing::ValuesIn(onEveryPath(members())), CaseName());

std::vector<PathCase<Member>> integerCases()
{
    std::vector<PathCase<Member>> v;
    for (const PathCase<Member>& c : onEveryPath(members()))
        if (!c.member->isFloat)
            v.push_back(c);
    return v;
}

INSTANTIATE_TEST_SUITE_P(Stats, SumsExtremesTest, ::testing::ValuesIn(integerCases()), CaseName());

// The documented examples, on both paths.
TEST(SumsExamples, DocumentedValues)
{
    for (int p = 0; p < PVX_PATH_COUNT; ++p) {
        SCOPED_TRACE(pathName(p));
        double r[2] = {};
        // 10000 x 10000 pixels of 255: one row read 10000 times (step 0).
        std::vector<Pvx8u> row(10000, 255);
        EXPECT_EQ(PVX_PATH_FN(pvxiSum_8u_C1R, p)(row.data(), 0, {10000, 10000}, r), pvxStsOk);
        EXPECT_EQ(r[0], 25500000000.0);
        EXPECT_EQ(PVX_PATH_FN(pvxiMean_8u_C1R, p)(row.data(), 0, {10000, 10000}, r), pvxStsOk);
        EXPECT_EQ(r[0], 255.0);
        EXPECT_EQ(PVX_PATH_FN(pvxiSum_8u_C1R, p)(row.data(), 0, {1, 1}, r), pvxStsOk);
        EXPECT_EQ(r[0], 255.0);
        // A row longer than one 32768-column piece of squares.
        std::vector<Pvx8u> longRow(40000, 255);
        EXPECT_EQ(PVX_PATH_FN(pvxiNorm_L2_8u_C1R, p)(longRow.data(), 40000, {40000, 1}, r), pvxStsOk);
        EXPECT_EQ(r[0], 51000.0);
        // Accurate float sums cancel exactly; single precision loses the ones.
        const Pvx32f f[4] = {1e8f, 1, -1e8f, 1};
        EXPECT_EQ(PVX_PATH_FN(pvxiSum_32f_C1R, p)(f, 16, {4, 1}, r, pvxAlgHintAccurate), pvxStsOk);
        EXPECT_EQ(r[0], 2.0);
        EXPECT_EQ(PVX_PATH_FN(pvxiSum_32f_C1R, p)(f, 16, {4, 1}, r, pvxAlgHintNone), pvxStsOk);
        EXPECT_NEAR(r[0], 2.0, 16.0);
        const Pvx8u threes[4] = {3, 3, 3, 3}, zeros[4] = {};
        EXPECT_EQ(PVX_PATH_FN(pvxiNormRel_L2_8u_C1R, p)(threes, 4, zeros, 4, {4, 1}, r), pvxStsDivByZeroWrn);
        EXPECT_EQ(r[0], 6.0);
    }
}

TEST(SumsRegistration, EveryMemberOnEveryPath)
{
    const std::vector<std::string> names = namesOf(members());
    EXPECT_EQ(names.size(), 16u + 16u + 49u + 48u + 48u);
    expectEveryCaseRegistered("Stats/SumsTest",
                              {"MatchesReference", "ZeroAndNegativeSteps", "ZeroReferenceAndNaN", "ArgumentChecks"}, names);
    std::vector<std::string> integers;
    for (const Member& m : members())
        if (!m.isFloat)
            integers.push_back(m.name);
    EXPECT_EQ(integers.size(), 177u - 44u);  // 44 members take 32f
    expectEveryCaseRegistered("Stats/SumsExtremesTest", {"NoAccumulatorOverflows"}, integers);
}

}  // namespace
