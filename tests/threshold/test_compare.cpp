// Compare, CompareC, CompareEqualEps, CompareEqualEpsC: every member on every
// code path and every operator against a plain scalar reference, on data
// with many equal pairs, type limits and float specials, with canaries around
// the 8u mask, guard pages after the last rows, and the argument checks.
#include <climits>
#include <cmath>
#include <limits>
#include <type_traits>

#include "support/harness.h"

namespace {

using namespace pvxtest;

enum class Kind { Images, Constant, Eps, EpsConstant };

// The arguments of any form; `values` holds the constant (C1: element 0).
struct CmpCall {
    const void* src1 = nullptr;
    int src1Step = 0;
    const void* src2 = nullptr;
    int src2Step = 0;
    const void* values = nullptr;
    Pvx8u* dst = nullptr;
    int dstStep = 0;
    PvxiSize roi{};
    int op = 0;
    float eps = 0;
};

template <class T, class F>
PvxStatus call_compare_images(F f, const CmpCall& c)
{
    return f(static_cast<const T*>(c.src1), c.src1Step, static_cast<const T*>(c.src2), c.src2Step, c.dst, c.dstStep,
             c.roi, static_cast<PvxCmpOp>(c.op));
}
template <class T, class F>
PvxStatus call_compare_eps(F f, const CmpCall& c)
{
    return f(static_cast<const T*>(c.src1), c.src1Step, static_cast<const T*>(c.src2), c.src2Step, c.dst, c.dstStep,
             c.roi, c.eps);
}
template <class T, class F>
PvxStatus call_compare_c(F f, const CmpCall& c)
{
    const T v = c.values ? *static_cast<const T*>(c.values) : T{};
    return f(static_cast<const T*>(c.src1), c.src1Step, v, c.dst, c.dstStep, c.roi, static_cast<PvxCmpOp>(c.op));
}
template <class T, class F>
PvxStatus call_compare_c3(F f, const CmpCall& c)
{
    return f(static_cast<const T*>(c.src1), c.src1Step, static_cast<const T*>(c.values), c.dst, c.dstStep, c.roi, static_cast<PvxCmpOp>(c.op));
}
template <class T, class F>
PvxStatus call_compare_eps_c(F f, const CmpCall& c)
{
    const T v = c.values ? *static_cast<const T*>(c.values) : T{};
    return f(static_cast<const T*>(c.src1), c.src1Step, v, c.dst, c.dstStep, c.roi, c.eps);
}
template <class T, class F>
PvxStatus call_compare_eps_c3(F f, const CmpCall& c)
{
    return f(static_cast<const T*>(c.src1), c.src1Step, static_cast<const T*>(c.values), c.dst, c.dstStep, c.roi,
             c.eps);
}
#define call_compare_c4 call_compare_c3
#define call_compare_eps_c4 call_compare_eps_c3

enum class Elem { U8, U16, S16, F32 };
template <class T>
constexpr Elem kElem = std::is_same_v<T, Pvx8u> ? Elem::U8 : std::is_same_v<T, Pvx16u> ? Elem::U16
                     : std::is_same_v<T, Pvx16s> ? Elem::S16 : Elem::F32;

struct CmpMember {
    const char* name;
    const char* descriptor;
    Kind kind;
    Elem elem;
    std::size_t size;
    PvxStatus (*call)(int path, const CmpCall&);
};

#define PVX_CMP_MEMBER(kind, sig, S, D, desc, exportName)                                   \
    CmpMember{#exportName, #desc, kind, kElem<S>, sizeof(S),                                 \
              [](int path, const CmpCall& c) { return call_##sig<S>(PVX_PATH_FN(exportName, path), c); }},
#define PVX_CMP_IMAGES(...) PVX_CMP_MEMBER(Kind::Images, __VA_ARGS__)
#define PVX_CMP_CONSTANT(...) PVX_CMP_MEMBER(Kind::Constant, __VA_ARGS__)
#define PVX_CMP_EPS(...) PVX_CMP_MEMBER(Kind::Eps, __VA_ARGS__)
#define PVX_CMP_EPS_CONSTANT(...) PVX_CMP_MEMBER(Kind::EpsConstant, __VA_ARGS__)
#define PVX_NAME_OF(sig, S, D, desc, exportName) #exportName,

const std::vector<CmpMember>& members()
{
    static const std::vector<CmpMember> m = {
        PVX_MEMBERS_Compare(PVX_CMP_IMAGES) PVX_MEMBERS_CompareC(PVX_CMP_CONSTANT)
            PVX_MEMBERS_CompareEqualEps(PVX_CMP_EPS) PVX_MEMBERS_CompareEqualEpsC(PVX_CMP_EPS_CONSTANT)};
    return m;
}

bool usesOperator(Kind k) { return k == Kind::Images || k == Kind::Constant; }
bool usesConstant(Kind k) { return k == Kind::Constant || k == Kind::EpsConstant; }

// ---------------------------------------------------------------- values and reference

// An element as a double (every 8u/16u/16s/32f value is exact) and back.
double get(Elem e, const unsigned char* p)
{
    switch (e) {
    case Elem::U8: return *p;
    case Elem::U16: { Pvx16u v; std::memcpy(&v, p, 2); return v; }
    case Elem::S16: { Pvx16s v; std::memcpy(&v, p, 2); return v; }
    default: { float v; std::memcpy(&v, p, 4); return v; }
    }
}
void put(Elem e, unsigned char* p, double x)
{
    switch (e) {
    case Elem::U8: *p = static_cast<Pvx8u>(x); break;
    case Elem::U16: { const Pvx16u v = static_cast<Pvx16u>(x); std::memcpy(p, &v, 2); break; }
    case Elem::S16: { const Pvx16s v = static_cast<Pvx16s>(x); std::memcpy(p, &v, 2); break; }
    default: { const float v = static_cast<float>(x); std::memcpy(p, &v, 4); break; }
    }
}

double lowest(Elem e)
{
    return e == Elem::U8 || e == Elem::U16 ? 0 : e == Elem::S16 ? -32768 : -HUGE_VAL;
}
double highest(Elem e)
{
    return e == Elem::U8 ? 255 : e == Elem::U16 ? 65535 : e == Elem::S16 ? 32767 : HUGE_VAL;
}

// A value with a bias toward limits, near-limits and (32f) special values;
// quarter steps keep 32f differences exact around a tolerance of 0.5.
double randomValue(Elem e, Rng& rng)
{
    const unsigned r = rng.below(16);
    if (e == Elem::F32) {
        static const double specials[] = {NAN, HUGE_VAL, -HUGE_VAL, 0.0, -0.0, 1e-45, -1e-45, 3.4028234663852886e38};
        if (r < 4)
            return specials[rng.below(8)];
        if (r < 6)
            return std::ldexp(static_cast<double>(rng.next() >> 40) - 8388608.0, -static_cast<int>(rng.below(30)));
        return (static_cast<int>(rng.below(41)) - 20) * 0.25;
    }
    if (r == 0)
        return lowest(e);
    if (r == 1)
        return highest(e);
    if (r == 2)
        return lowest(e) + 1;
    if (r == 3)
        return highest(e) - 1;
    if (r == 4 && e == Elem::S16)
        return static_cast<double>(rng.below(3)) - 1;  // sign changes
    return lowest(e) + static_cast<double>(rng.next() % static_cast<std::uint64_t>(highest(e) - lowest(e) + 1));
}

// A second operand: often equal to the first, often one step or one quarter
// away from it, otherwise independent.
double partner(Elem e, double a, Rng& rng)
{
    const unsigned r = rng.below(8);
    const double step = e == Elem::F32 ? 0.25 * (1 + rng.below(3)) : 1;
    if (r < 3)
        return a;
    if (r < 5 && !std::isnan(a)) {
        const double b = r == 3 ? a + step : a - step;
        return e == Elem::F32 || (b >= lowest(e) && b <= highest(e)) ? b : a;
    }
    return randomValue(e, rng);
}

bool holds(int op, double a, double b)
{
    switch (op) {
    case 0: return a < b;
    case 1: return a <= b;
    case 2: return a == b;
    case 3: return a >= b;
    default: return a > b;
    }
}

bool near(double a, double b, float eps)
{
    volatile float d = static_cast<float>(a) - static_cast<float>(b);  // the single-precision difference
    return std::fabs(static_cast<float>(d)) <= eps;
}

// ---------------------------------------------------------------- rig

struct CmpRig {
    const CmpMember& m;
    Descriptor d;
    std::unique_ptr<TestImage> src1, src2, dst;
    unsigned char values[16] = {};
    CmpCall call;

    CmpRig(const CmpMember& member, const Shape& s, Rng& rng) : m(member), d(parseDescriptor(member.descriptor))
    {
        Side dstSide;
        src1 = std::move(makeImages(d.src, m.size, s, true, rng)[0]);
        src2 = std::move(makeImages(d.src, m.size, s, true, rng)[0]);
        dst = std::move(makeImages(dstSide, 1, s, false, rng)[0]);
        for (int y = 0; y < s.height; ++y)
            for (std::size_t b = 0; b < static_cast<std::size_t>(s.width * d.src.pixel) * m.size; b += m.size) {
                const double a = randomValue(m.elem, rng);
                put(m.elem, src1->at(y, b), a);
                put(m.elem, src2->at(y, b), partner(m.elem, a, rng));
            }
        call.roi = {s.width, s.height};
        setConstantFromData();
        call.src1 = src1->origin();
        call.src1Step = src1->step();
        call.src2 = src2->origin();
        call.src2Step = src2->step();
        call.values = values;
        call.dst = dst->origin();
        call.dstStep = dst->step();
        call.roi = {s.width, s.height};
        call.eps = 0.5f;
    }

    // Constants equal to the first elements of the data, so that equal
    // pairs occur.
    double dataValue(int c) const
    {
        return get(m.elem, src1->at(0, static_cast<std::size_t>(c % (call.roi.width * d.src.pixel)) * m.size));
    }
    void setConstantFromData()
    {
        for (int c = 0; c < 4; ++c)
            put(m.elem, values + c * m.size, dataValue(c));
    }

    double operand(const TestImage& img, int y, int x, int c) const
    {
        return get(m.elem, img.at(y, (static_cast<std::size_t>(x) * d.src.pixel + c) * m.size));
    }

    // 255 where every compared channel passes.
    Bytes expected() const
    {
        Bytes want = dst->contents();
        for (int y = 0; y < call.roi.height; ++y)
            for (int x = 0; x < call.roi.width; ++x) {
                bool all = true;
                for (int c = 0; c < d.src.used; ++c) {
                    const double a = operand(*src1, y, x, c);
                    const double b = usesConstant(m.kind) ? get(m.elem, values + c * m.size) : operand(*src2, y, x, c);
                    all = all && (usesOperator(m.kind) ? holds(call.op, a, b) : near(a, b, call.eps));
                }
                want[dst->indexOf(y, static_cast<std::size_t>(x))] = all ? 255 : 0;
            }
        return want;
    }

    void expectUntouchedSources(const Bytes& s1, const Bytes& s2) const
    {
        EXPECT_TRUE(src1->matches(s1, "source 1 (must not be written)"));
        EXPECT_TRUE(src2->matches(s2, "source 2 (must not be written)"));
    }
};

// Odd widths around the 16-pixel blocks, every destination offset, padded
// steps, contiguous images (merged into one row) and images that end at a
// guard page.
std::vector<Shape> shapes()
{
    std::vector<Shape> v;
    const int widths[] = {1, 3, 15, 16, 17, 65, 130};
    for (unsigned i = 0; i < 21; ++i)
        v.push_back({widths[i % 7], 3, int(i * 4 % 11), int(i * 5 % 13), 1, 1, i * 3 % 16});
    v.push_back({33, 5, 0, 0, 1, 1, 0});
    for (int w : {17, 64, 130, 1})
        v.push_back({w, 2, w % 3 * 4, w % 5, 1, 1, 7, true});
    return v;
}

// Constants: pixel values of the data, the type's bounds (the short-cuts),
// and mixed ones.
enum class ConstantKind { Data, Lowest, Highest, OneLowest, OneHighest };

void setConstant(CmpRig& rig, ConstantKind k)
{
    for (int c = 0; c < 4; ++c) {
        double v = rig.dataValue(c);
        if (k == ConstantKind::Lowest || (k == ConstantKind::OneLowest && c == 1))
            v = lowest(rig.m.elem);
        if (k == ConstantKind::Highest || (k == ConstantKind::OneHighest && c == 2))
            v = highest(rig.m.elem);
        put(rig.m.elem, rig.values + c * rig.m.size, v);
    }
}

class CompareTest : public ::testing::TestWithParam<PathCase<CmpMember>> {
protected:
    const CmpMember& member() const { return *GetParam().member; }
    PvxStatus run(const CmpCall& c) const { return member().call(GetParam().path, c); }
};

// Every operator (or tolerance) on every shape; constant forms also with the
// constants that take the short-cuts.
TEST_P(CompareTest, MatchesReference)
{
    const std::vector<Shape> all = shapes();
    const Kind kind = member().kind;
    const std::vector<int> ops = usesOperator(kind) ? std::vector<int>{0, 1, 2, 3, 4} : std::vector<int>{0};
    const std::vector<float> tolerances = {0.5f, 0.0f, 0.25f, HUGE_VALF};
    for (std::size_t i = 0; i < all.size(); ++i) {
        Rng rng(i * 7919 + 3);
        CmpRig rig(member(), all[i], rng);
        const Bytes s1 = rig.src1->contents(), s2 = rig.src2->contents();
        const int kinds = usesConstant(kind) ? 5 : 1;
        for (int op : ops)
            for (int k = 0; k < kinds; ++k) {
                setConstant(rig, static_cast<ConstantKind>(k));
                rig.call.op = op;
                rig.call.eps = tolerances[(i + k) % tolerances.size()];
                SCOPED_TRACE(describe(all[i]) + " op " + std::to_string(op) + " constant kind " + std::to_string(k) +
                             " eps " + std::to_string(rig.call.eps));
                const Bytes want = rig.expected();
                ASSERT_EQ(run(rig.call), pvxStsOk);
                ASSERT_TRUE(rig.dst->matches(want, "mask"));
                rig.expectUntouchedSources(s1, s2);
            }
    }
}

// An image large enough for cache-bypassing stores gives the same mask.
TEST_P(CompareTest, LargeImage)
{
    Rng rng(5);
    const int pixelBytes = parseDescriptor(member().descriptor).src.pixel * static_cast<int>(member().size);
    CmpRig rig(member(), Shape{1203, (1 << 20) / (1203 * (pixelBytes + 1)) + 2, 5, 3, 1, 1, 9}, rng);
    const Bytes s1 = rig.src1->contents(), s2 = rig.src2->contents();
    rig.call.op = usesOperator(member().kind) ? 1 : 0;
    const Bytes want = rig.expected();
    EXPECT_EQ(run(rig.call), pvxStsOk);
    EXPECT_TRUE(rig.dst->matches(want, "mask"));
    rig.expectUntouchedSources(s1, s2);
}

// The order of the checks: pointers, steps (before the size), size, the
// tolerance; then an unknown operator, which is no error. Nothing is written
// by any of these calls.
TEST_P(CompareTest, ArgumentChecks)
{
    Rng rng(11);
    CmpRig rig(member(), Shape{20, 3, 4, 4, 1, 1, 1}, rng);
    const Bytes s1 = rig.src1->contents(), s2 = rig.src2->contents(), d0 = rig.dst->contents();
    const Kind kind = member().kind;
    const bool pointerConstant = usesConstant(kind) && rig.d.src.pixel > 1;
    struct Case {
        std::string what;
        CmpCall call;
        PvxStatus want;
    };
    std::vector<Case> cases;
    const auto add = [&](const std::string& what, PvxStatus want, auto edit) {
        cases.push_back({what, rig.call, want});
        edit(cases.back().call);
    };
    const auto bad = [](CmpCall& c) {
        c.src1Step = c.src2Step = c.dstStep = 0;
        c.roi = {0, -1};
        c.eps = -1;
        c.op = 7;
    };
    add("null source 1", pvxStsNullPtrErr, [&](CmpCall& c) { bad(c), c.src1 = nullptr; });
    if (!usesConstant(kind))
        add("null source 2", pvxStsNullPtrErr, [&](CmpCall& c) { bad(c), c.src2 = nullptr; });
    if (pointerConstant)
        add("null constant", pvxStsNullPtrErr, [&](CmpCall& c) { bad(c), c.values = nullptr; });
    add("null destination", pvxStsNullPtrErr, [&](CmpCall& c) { bad(c), c.dst = nullptr; });
    for (int step : {0, -1, INT_MIN}) {
        const std::string s = " step " + std::to_string(step) + " width 0";
        add("source 1" + s, pvxStsStepErr, [&](CmpCall& c) { c.src1Step = step, c.roi = {0, 3}, c.eps = -1; });
        if (!usesConstant(kind))
            add("source 2" + s, pvxStsStepErr, [&](CmpCall& c) { c.src2Step = step, c.roi = {0, 3}, c.eps = -1; });
        add("destination" + s, pvxStsStepErr, [&](CmpCall& c) { c.dstStep = step, c.roi = {0, 3}, c.eps = -1; });
    }
    for (PvxiSize roi : {PvxiSize{0, 3}, PvxiSize{20, 0}, PvxiSize{-1, 3}, PvxiSize{INT_MIN, INT_MIN}})
        add("size", pvxStsSizeErr, [&](CmpCall& c) { c.roi = roi, c.eps = -1, c.op = 5; });
    if (!usesOperator(kind))
        for (float eps : {-0.1f, -HUGE_VALF, -1e-30f})
            add("tolerance " + std::to_string(eps), pvxStsEpsValErr, [&](CmpCall& c) { c.eps = eps; });
    else
        for (int op : {5, -1, INT_MIN, INT_MAX})
            add("operator " + std::to_string(op), pvxStsOk, [&](CmpCall& c) { c.op = op; });
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(run(c.call), c.want);
        EXPECT_TRUE(rig.dst->matches(d0, "destination (must not be written)"));
        rig.expectUntouchedSources(s1, s2);
    }
}

INSTANTIATE_TEST_SUITE_P(Threshold, CompareTest, ::testing::ValuesIn(onEveryPath(members())), CaseName());

// The examples of the documentation, through the exports themselves.
TEST(CompareExamples, EightBitAndTolerance)
{
    const Pvx8u a[3] = {10, 20, 200}, b[3] = {20, 20, 100};
    const Pvx8u want[5][3] = {{255, 0, 0}, {255, 255, 0}, {0, 255, 0}, {0, 255, 255}, {0, 0, 255}};
    for (int op = 0; op < 5; ++op) {
        Pvx8u d[3] = {1, 1, 1};
        EXPECT_EQ(pvxiCompare_8u_C1R(a, 3, b, 3, d, 3, {3, 1}, static_cast<PvxCmpOp>(op)), pvxStsOk);
        EXPECT_EQ(Bytes(d, d + 3), Bytes(want[op], want[op] + 3)) << "operator " << op;
    }
    const float x[3] = {1.0f, NAN, 1.0f}, y[3] = {1.5f, 1.0f, NAN};
    Pvx8u d[3] = {};
    EXPECT_EQ(pvxiCompareEqualEps_32f_C1R(x, 12, y, 12, d, 3, {3, 1}, 0.5f), pvxStsOk);
    EXPECT_EQ(Bytes(d, d + 3), (Bytes{255, 0, 0}));
    EXPECT_EQ(pvxiCompareEqualEps_32f_C1R(x, 12, y, 12, d, 3, {3, 1}, -0.1f), pvxStsEpsValErr);
}

TEST(CompareRegistration, EveryMemberOnEveryPath)
{
    const std::vector<std::string> names = {PVX_MEMBERS_Compare(PVX_NAME_OF) PVX_MEMBERS_CompareC(PVX_NAME_OF)
                                                PVX_MEMBERS_CompareEqualEps(PVX_NAME_OF)
                                                    PVX_MEMBERS_CompareEqualEpsC(PVX_NAME_OF)};
    EXPECT_EQ(names.size(), 40u);
    expectEveryCaseRegistered("Threshold/CompareTest", {"MatchesReference", "LargeImage", "ArgumentChecks"}, names);
}

}  // namespace
