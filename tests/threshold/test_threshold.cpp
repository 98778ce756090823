// Threshold: every member on every code path against a scalar reference
// (random data with the type limits and, for 32f, NaN, infinities and -0.0;
// thresholds drawn from the data so that equal values occur; padded steps,
// odd widths, misaligned destinations, guard frames and pages; in place and
// one buffer passed twice), and each form's order of argument checks.
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

#include "support/harness.h"

namespace {

using namespace pvxtest;

enum class Form { Plain, LT, GT, Val, LTVal, GTVal, Band };

// Every argument any form takes; in-place forms use dst only. Constants are
// arrays (C1 forms pass element 0).
struct ThrCall {
    const void* src = nullptr;
    int srcStep = 0;
    void* dst = nullptr;
    int dstStep = 0;
    PvxiSize roi{};
    const void* k[4] = {};  // threshold, value (Band: tL, vL, tU, vU)
    int op = 0;
};

// A constant argument: the element for C1 forms, the array for the others.
template <class T>
struct Konst {
    const T* p;
    operator T() const { return p ? *p : T{}; }
    operator const T*() const { return p; }
};

// Calls one export with the arguments of its own form. A (T, T) form is
// tried before the (T, PvxCmpOp) one, since an operator converts to T.
template <class T, class F>
PvxStatus invoke(F f, const ThrCall& c)
{
    using A = const T*;
    using K = Konst<T>;
    using P = PvxiSize;
    using O = PvxCmpOp;
    const A s = static_cast<A>(c.src);
    T* d = static_cast<T*>(c.dst);
    const K k0{static_cast<A>(c.k[0])}, k1{static_cast<A>(c.k[1])}, k2{static_cast<A>(c.k[2])}, k3{static_cast<A>(c.k[3])};
    const O op = static_cast<O>(c.op);
    if constexpr (std::is_invocable_v<F, A, int, T*, int, P, K, K, K, K>)
        return f(s, c.srcStep, d, c.dstStep, c.roi, k0, k1, k2, k3);
    else if constexpr (std::is_invocable_v<F, T*, int, P, K, K, K, K>)
        return f(d, c.dstStep, c.roi, k0, k1, k2, k3);
    else if constexpr (std::is_invocable_v<F, A, int, T*, int, P, K, K, O>)
        return f(s, c.srcStep, d, c.dstStep, c.roi, k0, k1, op);
    else if constexpr (std::is_invocable_v<F, T*, int, P, K, K, O>)
        return f(d, c.dstStep, c.roi, k0, k1, op);
    else if constexpr (std::is_invocable_v<F, A, int, T*, int, P, K, K>)
        return f(s, c.srcStep, d, c.dstStep, c.roi, k0, k1);
    else if constexpr (std::is_invocable_v<F, T*, int, P, K, K>)
        return f(d, c.dstStep, c.roi, k0, k1);
    else if constexpr (std::is_invocable_v<F, A, int, T*, int, P, K, O>)
        return f(s, c.srcStep, d, c.dstStep, c.roi, k0, op);
    else if constexpr (std::is_invocable_v<F, T*, int, P, K, O>)
        return f(d, c.dstStep, c.roi, k0, op);
    else if constexpr (std::is_invocable_v<F, A, int, T*, int, P, K>)
        return f(s, c.srcStep, d, c.dstStep, c.roi, k0);
    else
        return f(d, c.dstStep, c.roi, k0);
}

struct Member {
    const char* name;
    const char* descriptor;
    void (*reference)(const Member&, int path, const Shape&, int variant, std::uint64_t seed);
    void (*checks)(const Member&, int path);
    PvxStatus (*call)(int path, const ThrCall&);
};

// The form from the export name: pvxiThreshold[_Variant]_type_descriptor.
Form formOf(const std::string& name)
{
    const std::string rest = name.substr(std::strlen("pvxiThreshold_"));
    const std::string word = rest.substr(0, rest.find('_'));
    if (word == "LT") return Form::LT;
    if (word == "GT") return Form::GT;
    if (word == "Val") return Form::Val;
    if (word == "LTVal") return Form::LTVal;
    if (word == "GTVal") return Form::GTVal;
    if (word == "LTValGTVal") return Form::Band;
    return Form::Plain;
}

int constantsOf(Form f)
{
    return f == Form::Band ? 4 : f == Form::Plain || f == Form::LT || f == Form::GT ? 1 : 2;
}

bool hasOperator(Form f)
{
    return f == Form::Plain || f == Form::Val;
}

// ---------------------------------------------------------------- reference

// Which operand a channel value becomes: -1 the value itself, else the index
// of the constant (threshold or value) that replaces it. Comparisons strict;
// any comparison with NaN is false.
template <class T>
int chosen(Form f, int op, T x, const T* k)
{
    const bool less = f == Form::LT || f == Form::LTVal || ((f == Form::Plain || f == Form::Val) && op == 0);
    switch (f) {
    case Form::Band: return x < k[0] ? 1 : k[2] < x ? 3 : -1;
    case Form::Val: case Form::LTVal: case Form::GTVal: return (less ? x < k[0] : k[0] < x) ? 1 : -1;
    default: return (less ? x < k[0] : k[0] < x) ? 0 : -1;
    }
}

template <class T>
T randomValue(Rng& rng)
{
    if constexpr (std::is_floating_point_v<T>) {
        const float special[] = {0.0f, -0.0f, INFINITY, -INFINITY, NAN, -NAN, 1e-40f, 3.0f};
        if (rng.below(6) == 0)
            return special[rng.below(8)];
        return static_cast<float>(static_cast<int>(rng.below(2001)) - 1000) / 8.0f;
    } else {
        const T limits[] = {std::numeric_limits<T>::min(), std::numeric_limits<T>::max(), 0, 1};
        if (rng.below(6) == 0)
            return limits[rng.below(4)];
        T v;
        const std::uint64_t bits = rng.next();
        std::memcpy(&v, &bits, sizeof(T));
        return v;
    }
}

struct Images {
    std::vector<std::unique_ptr<TestImage>> src, dst;
};

// Random channel values everywhere in the ROI of an image.
template <class T>
void fill(TestImage& img, const Shape& s, int pixel, Rng& rng)
{
    for (int y = 0; y < s.height; ++y)
        for (int i = 0; i < s.width * pixel; ++i) {
            const T v = randomValue<T>(rng);
            std::memcpy(img.at(y, static_cast<std::size_t>(i) * sizeof(T)), &v, sizeof(T));
        }
}

// variant: 0 out of place (or in place), 1 one buffer passed as source and
// destination of an out-of-place form, 2 lower and upper thresholds equal.
template <class T>
void checkReference(const Member& m, int path, const Shape& s, int variant, std::uint64_t seed)
{
    Rng rng(seed);
    const Descriptor d = parseDescriptor(m.descriptor);
    const Form form = formOf(m.name);
    const bool sameBuffer = d.inPlace || variant == 1;
    auto src = makeImages(d.src, sizeof(T), s, true, rng);
    auto dst = makeImages(d.dst, sizeof(T), s, false, rng);
    fill<T>(*src[0], s, d.src.pixel, rng);
    fill<T>(*dst[0], s, d.dst.pixel, rng);
    const TestImage& in = sameBuffer ? *dst[0] : *src[0];
    const auto at = [&](const TestImage& img, int y, int x, int c) {
        T v;
        std::memcpy(&v, img.at(y, static_cast<std::size_t>(x * d.src.pixel + c) * sizeof(T)), sizeof(T));
        return v;
    };
    // Constants per channel: thresholds are values of the image.
    T k[4][4];
    for (int c = 0; c < 4; ++c) {
        const int cc = c < d.dst.used ? c : 0;
        for (int j = 0; j < 4; ++j)
            k[j][c] = at(in, static_cast<int>(rng.below(s.height)), static_cast<int>(rng.below(s.width)), cc);
        if (form == Form::Band && (k[2][c] < k[0][c] || variant == 2))
            std::swap(k[0][c], k[2][c]);
        if (form == Form::Band && variant == 2)
            k[2][c] = k[0][c];
    }
    ThrCall call;
    call.src = in.origin();
    call.srcStep = in.step();
    call.dst = dst[0]->origin();
    call.dstStep = dst[0]->step();
    call.roi = {s.width, s.height};
    // Operators 0 and 4 alternate over the shapes (forms that take one).
    call.op = ((seed >> 2) ^ seed) & 1 ? 4 : 0;
    for (int j = 0; j < 4; ++j)
        call.k[j] = k[j];
    const Bytes srcBefore = src[0]->contents();
    Bytes want = dst[0]->contents();
    for (int y = 0; y < s.height; ++y)
        for (int x = 0; x < s.width; ++x)
            for (int c = 0; c < d.dst.used; ++c) {
                const T v = at(in, y, x, c);
                const T kc[4] = {k[0][c], k[1][c], k[2][c], k[3][c]};
                const int which = chosen(form, call.op, v, kc);
                const T r = which < 0 ? v : kc[which];
                std::memcpy(&want[dst[0]->indexOf(y, static_cast<std::size_t>(x * d.dst.pixel + c) * sizeof(T))], &r,
                            sizeof(T));
            }
    ASSERT_EQ(m.call(path, call), pvxStsOk);
    EXPECT_TRUE(dst[0]->matches(want, "destination"));
    if (!sameBuffer) {
        EXPECT_TRUE(src[0]->matches(srcBefore, "source (must not be written)"));
    }
}

// Widths 1, 3, 15, 17, 65, 130 with padded steps and destination
// misalignment, a contiguous image, images flush against guard pages.
std::vector<Shape> shapes()
{
    std::vector<Shape> v;
    unsigned a = 0;
    for (int w : {1, 3, 15, 17, 65, 130})
        for (int k = 0; k < 2; ++k, ++a)
            v.push_back({w, 3, int(a * 5 % 13), int(a * 3 % 11), 1, 1, a * 7 % 16});
    v.push_back({33, 4, 0, 0, 1, 1, 0});
    for (int w : {1, 17, 64})
        v.push_back({w, 2, 4, 0, 1, 1, 0, true});
    return v;
}

void runReference(const Member& m, int path)
{
    const Descriptor d = parseDescriptor(m.descriptor);
    const std::vector<Shape> all = shapes();
    for (std::size_t i = 0; i < all.size(); ++i)
        for (int variant = 0; variant < 3; ++variant) {
            if ((variant == 1 && d.inPlace) || (variant == 2 && formOf(m.name) != Form::Band))
                continue;
            SCOPED_TRACE(describe(all[i]) + " variant " + std::to_string(variant));
            m.reference(m, path, all[i], variant, i * 4 + static_cast<unsigned>(variant));
        }
}

// ---------------------------------------------------------------- argument checks

// The faults a caller can make, one kind per check.
enum Fault { NullImage, BadSize, BadStep, NullArray, BadOperator, Inverted, kFaults };

// The form's order of checks, first to last.
std::vector<Fault> checkOrder(Form f, const Descriptor& d)
{
    const bool arrays = d.dst.pixel > 1;
    std::vector<Fault> v;
    if (f == Form::Val || ((f == Form::LTVal || f == Form::GTVal) && d.dst.used < 4))
        v.push_back(BadOperator);  // the _Val routine's first check (not reachable with a fixed operator)
    v.insert(v.end(), {NullImage, BadSize, BadStep});
    if (arrays)
        v.push_back(NullArray);
    if (f == Form::Plain || f == Form::LT || f == Form::GT)
        v.push_back(BadOperator);
    if (f == Form::Band)
        v.push_back(Inverted);
    return v;
}

PvxStatus statusOf(Fault f)
{
    switch (f) {
    case NullImage: case NullArray: return pvxStsNullPtrErr;
    case BadSize: return pvxStsSizeErr;
    case BadStep: return pvxStsStepErr;
    case BadOperator: return pvxStsNotSupportedModeErr;
    default: return pvxStsThresholdErr;
    }
}

// Every combination of the faults this member can be given returns the code
// of the first one in the form's order, and writes nothing.
template <class T>
void checkArguments(const Member& m, int path)
{
    const Descriptor d = parseDescriptor(m.descriptor);
    const Form form = formOf(m.name);
    Rng rng(3);
    const Shape s{5, 2, 4, 4};
    auto src = makeImages(d.src, sizeof(T), s, true, rng);
    auto dst = makeImages(d.dst, sizeof(T), s, false, rng);
    const Bytes srcBefore = src[0]->contents(), dstBefore = dst[0]->contents();
    const std::vector<Fault> order = checkOrder(form, d);
    std::vector<Fault> possible;
    for (Fault f : order)
        if (f != BadOperator || hasOperator(form))
            possible.push_back(f);
    T ok[4][4];
    for (int j = 0; j < 4; ++j)
        for (int c = 0; c < 4; ++c)
            ok[j][c] = static_cast<T>(j < 2 ? 10 : 20);
    const int kinds = static_cast<int>(possible.size());
    // Every set of faults, each in four realisations (which pointer, step,
    // array or channel fails, and how).
    for (unsigned run = 4; run < (4u << kinds); ++run) {
        const unsigned set = run / 4;
        ThrCall c;
        c.src = src[0]->origin();
        c.srcStep = src[0]->step();
        c.dst = dst[0]->origin();
        c.dstStep = dst[0]->step();
        c.roi = {s.width, s.height};
        c.op = 4;
        T k[4][4];
        std::memcpy(k, ok, sizeof(k));
        for (int j = 0; j < 4; ++j)
            c.k[j] = k[j];
        const unsigned pick = (set * 2654435761u >> 7) + run % 4;
        for (int f = 0; f < kinds; ++f) {
            if (!(set >> f & 1))
                continue;
            switch (possible[f]) {
            case NullImage:
                if (pick % 2 && !d.inPlace)
                    c.src = nullptr;
                else
                    c.dst = nullptr;
                break;
            case BadSize: c.roi = pick % 3 == 0 ? PvxiSize{0, 2} : pick % 3 == 1 ? PvxiSize{5, -1} : PvxiSize{INT_MIN, 0}; break;
            case BadStep: (pick % 2 && !d.inPlace ? c.srcStep : c.dstStep) = pick % 4 < 2 ? 0 : -s.width; break;
            case NullArray: c.k[pick % constantsOf(form)] = nullptr; break;
            case BadOperator: c.op = static_cast<int>(pick % 4 == 3 ? 100 : pick % 4 == 2 ? -1 : 1 + pick % 3); break;
            default: {  // lower threshold above the upper one in one channel
                const int ch = static_cast<int>(pick % static_cast<unsigned>(d.dst.used));
                k[0][ch] = static_cast<T>(21);
                break;
            }
            }
        }
        Fault first = kFaults;
        for (Fault f : order)
            for (int i = 0; i < kinds && first == kFaults; ++i)
                if (possible[i] == f && (set >> i & 1))
                    first = f;
        SCOPED_TRACE("faults " + std::to_string(set) + " realisation " + std::to_string(run % 4));
        EXPECT_EQ(m.call(path, c), statusOf(first));
        EXPECT_TRUE(src[0]->matches(srcBefore, "source"));
        EXPECT_TRUE(dst[0]->matches(dstBefore, "destination"));
    }
}

#define PVX_THR_ENTRY(sig, S, D, desc, exportName)                     \
    Member{#exportName, #desc, &checkReference<S>, &checkArguments<S>, \
           [](int path, const ThrCall& c) { return invoke<S>(PVX_PATH_FN(exportName, path), c); }},
#define PVX_THR_NAME(sig, S, D, desc, exportName) #exportName,

const std::vector<Member>& members()
{
    static const std::vector<Member> v = {PVX_MEMBERS_Threshold(PVX_THR_ENTRY)};
    return v;
}

class ThresholdTest : public ::testing::TestWithParam<PathCase<Member>> {};

TEST_P(ThresholdTest, MatchesReference)
{
    runReference(*GetParam().member, GetParam().path);
}

TEST_P(ThresholdTest, CheckOrder)
{
    GetParam().member->checks(*GetParam().member, GetParam().path);
}

INSTANTIATE_TEST_SUITE_P(Threshold, ThresholdTest, ::testing::ValuesIn(onEveryPath(members())), CaseName());

TEST(ThresholdRegistration, EveryMemberOnEveryPath)
{
    const std::vector<std::string> names = {PVX_MEMBERS_Threshold(PVX_THR_NAME)};
    EXPECT_EQ(names.size(), 184u);
    expectEveryCaseRegistered("Threshold/ThresholdTest", {"MatchesReference", "CheckOrder"}, names);
}

// The worked examples: strictness at the threshold for the plain and the
// replacing forms, and equal band thresholds.
TEST(ThresholdExamples, StrictComparisons)
{
    for (int p = 0; p < PVX_PATH_COUNT; ++p) {
        const Pvx8u src[5] = {99, 100, 101, 200, 201};
        Pvx8u dst[5];
        const PvxiSize roi{5, 1};
        ASSERT_EQ(PVX_PATH_FN(pvxiThreshold_8u_C1R, p)(src, 5, dst, 5, roi, 100, pvxCmpLess), pvxStsOk);
        EXPECT_EQ(std::vector<int>(dst, dst + 5), (std::vector<int>{100, 100, 101, 200, 201}));
        ASSERT_EQ(PVX_PATH_FN(pvxiThreshold_8u_C1R, p)(src, 5, dst, 5, roi, 100, pvxCmpGreater), pvxStsOk);
        EXPECT_EQ(std::vector<int>(dst, dst + 5), (std::vector<int>{99, 100, 100, 100, 100}));
        ASSERT_EQ(PVX_PATH_FN(pvxiThreshold_GTVal_8u_C1R, p)(src, 5, dst, 5, roi, 200, 0), pvxStsOk);
        EXPECT_EQ(std::vector<int>(dst, dst + 5), (std::vector<int>{99, 100, 101, 200, 0}));
        const Pvx8u band[3] = {9, 10, 11};
        ASSERT_EQ(PVX_PATH_FN(pvxiThreshold_LTValGTVal_8u_C1R, p)(band, 3, dst, 3, {3, 1}, 10, 0, 10, 255), pvxStsOk);
        EXPECT_EQ(std::vector<int>(dst, dst + 3), (std::vector<int>{0, 10, 255}));
    }
}

}  // namespace
