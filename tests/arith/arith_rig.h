// Shared rig of the arithmetic tests: one record per export (whatever its
// argument list), random operands with type limits, zeros and float specials,
// a plain scalar reference computed in long double or float, and the
// comparison of whole guarded images.
#pragma once

#include <climits>
#include <cmath>
#include <limits>
#include <type_traits>

#include "support/harness.h"

namespace arithtest {

using namespace pvxtest;

enum class Op { Add, AddC, Sub, SubC, Mul, MulC, Div, DivRound, DivC, MulScale, MulCScale };

inline bool isConstantOp(Op op)
{
    return op == Op::AddC || op == Op::SubC || op == Op::MulC || op == Op::DivC || op == Op::MulCScale;
}

// Every argument any form takes; in-place forms use src1 and dst (dst being
// also the second operand).
struct ArithCall {
    const void* src1 = nullptr;
    int src1Step = 0;
    const void* src2 = nullptr;
    int src2Step = 0;
    const void* values = nullptr;  // the constant (C1: its first element)
    void* dst = nullptr;
    int dstStep = 0;
    PvxiSize roi{};
    int rnd = 1;
    int scale = 0;
};

// Calls one export with the arguments of its own form.
template <class T, class F>
PvxStatus invoke(F f, const ArithCall& c)
{
    const T* s1 = static_cast<const T*>(c.src1);
    const T* s2 = static_cast<const T*>(c.src2);
    const T* v = static_cast<const T*>(c.values);
    T* d = static_cast<T*>(c.dst);
    const PvxRoundMode rnd = static_cast<PvxRoundMode>(c.rnd);
    using P = PvxiSize;
    if constexpr (std::is_invocable_v<F, const T*, int, const T*, int, T*, int, P, PvxRoundMode, int>)
        return f(s1, c.src1Step, s2, c.src2Step, d, c.dstStep, c.roi, rnd, c.scale);
    else if constexpr (std::is_invocable_v<F, const T*, int, T*, int, P, PvxRoundMode, int>)
        return f(s1, c.src1Step, d, c.dstStep, c.roi, rnd, c.scale);
    else if constexpr (std::is_invocable_v<F, const T*, int, const T*, int, T*, int, P, int>)
        return f(s1, c.src1Step, s2, c.src2Step, d, c.dstStep, c.roi, c.scale);
    else if constexpr (std::is_invocable_v<F, const T*, int, const T*, int, T*, int, P>)
        return f(s1, c.src1Step, s2, c.src2Step, d, c.dstStep, c.roi);
    else if constexpr (std::is_invocable_v<F, const T*, int, T*, int, P, int>)
        return f(s1, c.src1Step, d, c.dstStep, c.roi, c.scale);
    else if constexpr (std::is_invocable_v<F, const T*, int, T*, int, P>)
        return f(s1, c.src1Step, d, c.dstStep, c.roi);
    else if constexpr (std::is_invocable_v<F, const T*, int, T, T*, int, P, int>)
        return f(s1, c.src1Step, v ? *v : T{}, d, c.dstStep, c.roi, c.scale);
    else if constexpr (std::is_invocable_v<F, const T*, int, const T*, T*, int, P, int>)
        return f(s1, c.src1Step, v, d, c.dstStep, c.roi, c.scale);
    else if constexpr (std::is_invocable_v<F, const T*, int, T, T*, int, P>)
        return f(s1, c.src1Step, v ? *v : T{}, d, c.dstStep, c.roi);
    else if constexpr (std::is_invocable_v<F, const T*, int, const T*, T*, int, P>)
        return f(s1, c.src1Step, v, d, c.dstStep, c.roi);
    else if constexpr (std::is_invocable_v<F, T, T*, int, P, int>)
        return f(v ? *v : T{}, d, c.dstStep, c.roi, c.scale);
    else if constexpr (std::is_invocable_v<F, const T*, T*, int, P, int>)
        return f(v, d, c.dstStep, c.roi, c.scale);
    else if constexpr (std::is_invocable_v<F, T, T*, int, P>)
        return f(v ? *v : T{}, d, c.dstStep, c.roi);
    else
        return f(v, d, c.dstStep, c.roi);
}

// ---------------------------------------------------------------- reference

template <class T>
struct PartOf {
    using type = T;
};
#define PVX_ARITH_PART(C, P) \
    template <>              \
    struct PartOf<C> {       \
        using type = P;      \
    };
PVX_ARITH_PART(Pvx16sc, Pvx16s)
PVX_ARITH_PART(Pvx32sc, Pvx32s)
PVX_ARITH_PART(Pvx32fc, Pvx32f)
#undef PVX_ARITH_PART
template <class T>
constexpr bool kComplex = !std::is_same_v<typename PartOf<T>::type, T>;

template <class P>
P saturate(long double v)
{
    const long double lo = std::numeric_limits<P>::min(), hi = std::numeric_limits<P>::max();
    return static_cast<P>(v < lo ? lo : v > hi ? hi : v);
}

// The Sfs rule on an exact value: scaled by 2^-s, halves to even, saturated.
template <class P>
P sfs(long double exact, int s)
{
    return saturate<P>(std::nearbyint(std::ldexp(exact, -s)));
}

// Integer zero divisor: 0, or the type's limit by the dividend's sign.
template <class P>
P byDividendSign(long double n)
{
    return n == 0 ? P(0) : n > 0 ? std::numeric_limits<P>::max() : std::numeric_limits<P>::min();
}

struct Params {
    int scale = 0, rnd = 1;
};

// x op y for one channel value (x, y in formula order); sets `zero` when a
// divisor is 0.
template <class T>
T reference(Op op, T x, T y, const Params& p, bool& zero)
{
    using P = typename PartOf<T>::type;
    const int s = p.scale;
    if constexpr (kComplex<T>) {
        const long double a = x.re, b = x.im, c = y.re, d = y.im;
        if constexpr (std::is_floating_point_v<P>) {
            switch (op) {
            case Op::Add: case Op::AddC: return T{x.re + y.re, x.im + y.im};
            case Op::Sub: case Op::SubC: return T{x.re - y.re, x.im - y.im};
            case Op::Mul: case Op::MulC: return T{x.re * y.re - x.im * y.im, x.re * y.im + x.im * y.re};
            default: {
                zero = zero || (y.re == 0 && y.im == 0);
                const float den = y.re * y.re + y.im * y.im;
                return T{(x.re * y.re + x.im * y.im) / den, (x.im * y.re - x.re * y.im) / den};
            }
            }
        } else {
            switch (op) {
            case Op::Add: case Op::AddC: return T{sfs<P>(a + c, s), sfs<P>(b + d, s)};
            case Op::Sub: case Op::SubC: return T{sfs<P>(a - c, s), sfs<P>(b - d, s)};
            case Op::Mul: case Op::MulC: return T{sfs<P>(a * c - b * d, s), sfs<P>(a * d + b * c, s)};
            default:
                if (c == 0 && d == 0) {
                    zero = true;
                    return T{byDividendSign<P>(a), byDividendSign<P>(b)};
                }
                return T{sfs<P>((a * c + b * d) / (c * c + d * d), s), sfs<P>((b * c - a * d) / (c * c + d * d), s)};
            }
        }
    } else if constexpr (std::is_floating_point_v<T>) {
        switch (op) {
        case Op::Add: case Op::AddC: return x + y;
        case Op::Sub: case Op::SubC: return x - y;
        case Op::Mul: case Op::MulC: return x * y;
        case Op::DivC: return x * (1.0f / y);
        default: zero = zero || y == 0; return x / y;
        }
    } else {
        const long double a = x, b = y;
        constexpr long double kMax = std::numeric_limits<T>::max();
        switch (op) {
        case Op::Add: case Op::AddC: return sfs<T>(a + b, s);
        case Op::Sub: case Op::SubC: return sfs<T>(a - b, s);
        case Op::Mul: case Op::MulC: return sfs<T>(a * b, s);
        case Op::MulScale: case Op::MulCScale: return static_cast<T>(std::floor(a * b / kMax));
        case Op::DivC: return saturate<T>(std::nearbyint(std::ldexp(a, -s) / b));
        default: {
            if (y == 0) {
                zero = true;
                return byDividendSign<T>(a);
            }
            // The quotient in single precision within each type's range of
            // scale factors, the limits by sign beyond it.
            const int lo = sizeof(T) == 1 ? -15 : std::is_signed_v<T> ? -30 : -31;
            const int hi = sizeof(T) == 1 ? 8 : std::is_signed_v<T> ? 15 : 16;
            if (s > hi)
                return 0;
            if (s < lo)
                return x == 0 ? T(0) : (x > 0) == (y > 0) ? std::numeric_limits<T>::max() : std::numeric_limits<T>::min();
            const float q = static_cast<float>(x) / static_cast<float>(y) * std::ldexp(1.0f, -s);
            const int mode = op == Op::DivRound ? p.rnd : 1;  // Div: halves to even
            const long double r = mode == 0 ? std::trunc(q) : mode == 2 ? std::round(q) : std::nearbyint(q);
            return saturate<T>(r);
        }
        }
    }
}

// Bit patterns equal, or both NaN (NaN payloads are not part of the results).
template <class T>
bool sameValue(const T& a, const T& b)
{
    if constexpr (std::is_same_v<typename PartOf<T>::type, float>) {
        const float* fa = reinterpret_cast<const float*>(&a);
        const float* fb = reinterpret_cast<const float*>(&b);
        for (std::size_t k = 0; k < sizeof(T) / 4; ++k)
            if (!(std::isnan(fa[k]) && std::isnan(fb[k])) && std::memcmp(fa + k, fb + k, 4) != 0)
                return false;
        return true;
    } else {
        return std::memcmp(&a, &b, sizeof(T)) == 0;
    }
}

// ---------------------------------------------------------------- operands

// Random channel values: type limits, zeros and small values often; for
// floats also NaN, infinities, -0 and denormals.
template <class T>
T randomValue(Rng& rng, bool allowZero = true)
{
    using P = typename PartOf<T>::type;
    const auto part = [&rng]() -> P {
        const unsigned pick = rng.below(16);
        if constexpr (std::is_floating_point_v<P>) {
            const float special[] = {0.0f, -0.0f, INFINITY, -INFINITY, NAN, 1e-40f, -3.0f, 65504.0f};
            if (pick < 2)
                return special[rng.below(8)];
            return static_cast<float>(static_cast<std::int64_t>(rng.next() % 2000001) - 1000000) / 997.0f;
        } else {
            const P limits[] = {0, 1, std::numeric_limits<P>::max(), std::numeric_limits<P>::min(), P(-1), 2};
            if (pick < 3)
                return limits[rng.below(6)];
            if (pick < 6)  // small values, where scaled results do not all saturate
                return static_cast<P>(static_cast<int>(rng.below(64)) - (std::is_signed_v<P> ? 32 : 0));
            P v;
            const std::uint64_t bits = rng.next();
            std::memcpy(&v, &bits, sizeof(P));
            return v;
        }
    };
    for (;;) {
        T v;
        if constexpr (kComplex<T>)
            v = T{part(), part()};
        else
            v = part();
        const P* parts = reinterpret_cast<const P*>(&v);
        bool isZero = true;
        for (std::size_t k = 0; k < sizeof(T) / sizeof(P); ++k)
            isZero = isZero && parts[k] == 0;
        if (allowZero || !isZero)
            return v;
    }
}

template <class T>
void fillRandom(TestImage& img, const Shape& s, int pixel, Rng& rng)
{
    for (int y = 0; y < s.height; ++y)
        for (int i = 0; i < s.width * pixel; ++i) {
            const T v = randomValue<T>(rng);
            std::memcpy(img.at(y, static_cast<std::size_t>(i) * sizeof(T)), &v, sizeof(T));
        }
}

// ---------------------------------------------------------------- one call

struct ArithMember {
    const char* name;
    const char* descriptor;
    Op op;
    std::size_t elem;
    bool narrow;  // 8u, 16u or 16s
    // Runs the member on `path` against the reference for one shape.
    void (*check)(const ArithMember&, int path, const Shape&, const Params&, int constants, std::uint64_t seed);
    void (*checkArguments)(const ArithMember&, int path);
    PvxStatus (*call)(int path, const ArithCall&);
};

// The images and constants of one call, and what a correct call leaves.
template <class T>
struct Rig {
    Descriptor d;
    Op op;
    std::vector<std::unique_ptr<TestImage>> src1, src2, dst;
    T values[4];
    ArithCall call;

    // constants: 0 random, 1 all zero, 2 all one, 3 random in the lower half
    // of the type's range (constant forms).
    Rig(const ArithMember& m, const Shape& s, const Params& p, int constants, Rng& rng)
        : d(parseDescriptor(m.descriptor)), op(m.op)
    {
        src1 = makeImages(d.src, sizeof(T), s, true, rng);
        fillRandom<T>(*src1[0], s, d.src.pixel, rng);
        if (!d.inPlace && !isConstantOp(op)) {
            src2 = makeImages(d.src, sizeof(T), s, true, rng);
            fillRandom<T>(*src2[0], s, d.src.pixel, rng);
        }
        dst = makeImages(d.dst, sizeof(T), s, false, rng);
        fillRandom<T>(*dst[0], s, d.dst.pixel, rng);
        for (T& v : values) {
            v = randomValue<T>(rng, op != Op::DivC);
            using P = typename PartOf<T>::type;
            const P k = static_cast<P>(constants == 1 ? 0 : 1);
            if constexpr (kComplex<T>) {
                if (constants != 0)
                    v = T{k, P(0)};
            } else if (constants == 3) {
                v = static_cast<T>(v / 2);
            } else if (constants != 0) {
                v = k;
            }
        }
        if (isConstantOp(op) && d.inPlace) {
            call.src1 = dst[0]->origin();
            call.src1Step = dst[0]->step();
        } else {
            call.src1 = src1[0]->origin();
            call.src1Step = src1[0]->step();
        }
        const TestImage& second = src2.empty() ? *dst[0] : *src2[0];
        call.src2 = second.origin();
        call.src2Step = second.step();
        call.values = values;
        call.dst = dst[0]->origin();
        call.dstStep = dst[0]->step();
        call.roi = {s.width, s.height};
        call.scale = p.scale;
        call.rnd = p.rnd;
    }

    // The destination block a correct call leaves (computed before the
    // call: in-place forms overwrite an operand), and whether a divisor
    // was 0.
    Bytes expected(const Params& p, bool& zero) const
    {
        Bytes want = dst[0]->contents();
        zero = false;
        forEachChannel([&](int y, std::size_t at) {
            T a, b;
            std::memcpy(&a, rowAt(call.src1, call.src1Step, y) + at, sizeof(T));
            if (isConstantOp(op))
                b = values[(at / sizeof(T)) % d.dst.pixel];
            else
                std::memcpy(&b, rowAt(call.src2, call.src2Step, y) + at, sizeof(T));
            // Sub and Div take the first image as subtrahend / divisor.
            if (op == Op::Sub || op == Op::Div || op == Op::DivRound)
                std::swap(a, b);
            const T r = reference<T>(op, a, b, p, zero);
            std::memcpy(&want[dst[0]->indexOf(y, at)], &r, sizeof(T));
        });
        return want;
    }

    // Takes the written NaNs where the reference has NaN too.
    void acceptNaNPayloads(Bytes& want) const
    {
        forEachChannel([&](int y, std::size_t at) {
            T r, got;
            std::memcpy(&r, &want[dst[0]->indexOf(y, at)], sizeof(T));
            std::memcpy(&got, dst[0]->at(y, at), sizeof(T));
            if (sameValue(r, got))
                std::memcpy(&want[dst[0]->indexOf(y, at)], &got, sizeof(T));
        });
    }

    // f(row, byte offset in the row) for every computed channel of the ROI.
    template <class F>
    void forEachChannel(F f) const
    {
        for (int y = 0; y < call.roi.height; ++y)
            for (int x = 0; x < call.roi.width; ++x)
                for (int c = 0; c < d.dst.used; ++c)
                    f(y, static_cast<std::size_t>(x * d.dst.pixel + c) * sizeof(T));
    }

    static const unsigned char* rowAt(const void* p, int step, int y)
    {
        return static_cast<const unsigned char*>(p) + static_cast<std::ptrdiff_t>(step) * y;
    }
};

// Expected status of a successful call: Div and Div_Round warn on a zero
// divisor (every element type).
inline PvxStatus okStatus(Op op, bool zero)
{
    return (op == Op::Div || op == Op::DivRound) && zero ? pvxStsDivByZeroWrn : pvxStsOk;
}

template <class T>
void checkMember(const ArithMember& m, int path, const Shape& s, const Params& p, int constants, std::uint64_t seed)
{
    Rng rng(seed);
    Rig<T> rig(m, s, p, constants, rng);
    std::vector<Bytes> before;
    for (const auto* side : {&rig.src1, &rig.src2})
        for (const auto& img : *side)
            before.push_back(img->contents());
    bool zero = false;
    Bytes want = rig.expected(p, zero);
    EXPECT_EQ(m.call(path, rig.call), okStatus(m.op, zero));
    rig.acceptNaNPayloads(want);
    EXPECT_TRUE(rig.dst[0]->matches(want, "destination"));
    std::size_t k = 0;
    for (const auto* side : {&rig.src1, &rig.src2})
        for (const auto& img : *side)
            EXPECT_TRUE(img->matches(before[k++], "source (must not be written)"));
}

// The operation of an export, read from its name (Div_Round before Div).
inline Op opOfName(const std::string& name)
{
    static const std::pair<const char*, Op> prefixes[] = {
        {"pvxiAdd_", Op::Add},           {"pvxiAddC_", Op::AddC},           {"pvxiSub_", Op::Sub},
        {"pvxiSubC_", Op::SubC},         {"pvxiMul_", Op::Mul},             {"pvxiMulC_", Op::MulC},
        {"pvxiDiv_Round_", Op::DivRound}, {"pvxiDiv_", Op::Div},             {"pvxiDivC_", Op::DivC},
        {"pvxiMulScale_", Op::MulScale}, {"pvxiMulCScale_", Op::MulCScale}};
    for (const auto& [prefix, op] : prefixes)
        if (name.rfind(prefix, 0) == 0)
            return op;
    ADD_FAILURE() << "no operation for " << name;
    return Op::Add;
}

// X-macro body: one ArithMember per export of a family.
#define PVX_ARITH_ENTRY(sig, S, D, desc, exportName)                                                        \
    ArithMember{#exportName, #desc, opOfName(#exportName), sizeof(S),                                       \
                std::is_same_v<S, Pvx8u> || std::is_same_v<S, Pvx16u> || std::is_same_v<S, Pvx16s>,        \
                &checkMember<S>, &runArgumentChecks<S>,                                                     \
                [](int path, const ArithCall& c) { return invoke<S>(PVX_PATH_FN(exportName, path), c); }},

// The test suite <Name>Test over the members listed after `count` (PVX_ARITH_ENTRY
// lists): each member on every path against the reference and through the
// argument checks, and a test that all `count` of them were registered so.
#define PVX_ARITH_SUITE(Name, count, ...)                                                                  \
    const std::vector<ArithMember>& Name##Members()                                                        \
    {                                                                                                      \
        static const std::vector<ArithMember> members = {__VA_ARGS__};                                     \
        return members;                                                                                    \
    }                                                                                                      \
    class Name##Test : public ::testing::TestWithParam<PathCase<ArithMember>> {};                          \
    TEST_P(Name##Test, MatchesReference) { runReference(*GetParam().member, GetParam().path); }           \
    TEST_P(Name##Test, ArgumentChecks) { GetParam().member->checkArguments(*GetParam().member, GetParam().path); } \
    INSTANTIATE_TEST_SUITE_P(Arith, Name##Test, ::testing::ValuesIn(onEveryPath(Name##Members())), CaseName()); \
    TEST(Name##Registration, EveryMemberOnEveryPath)                                                       \
    {                                                                                                      \
        std::vector<std::string> names;                                                                    \
        for (const ArithMember& m : Name##Members())                                                       \
            names.push_back(m.name);                                                                       \
        EXPECT_EQ(names.size(), count);                                                                    \
        expectEveryCaseRegistered("Arith/" #Name "Test", {"MatchesReference", "ArgumentChecks"}, names);   \
    }

// Shapes: widths 1, 3, 15, 17, 65, 130 with padded steps and destination
// misalignment, a contiguous image, and images ending at guard pages.
inline std::vector<Shape> arithShapes()
{
    std::vector<Shape> v;
    unsigned a = 0;
    for (int w : {1, 3, 15, 17, 65, 130})
        for (int k = 0; k < 2; ++k, ++a)
            v.push_back({w, 3, int(a * 5 % 13), int(a * 3 % 11), 1, 1, a * 7 % 16});
    v.push_back({33, 4, 0, 0, 1, 1, 0});  // contiguous: one long row
    for (int w : {1, 17, 64})
        v.push_back({w, 2, 4, 0, 1, 1, 0, true});
    return v;
}

// Every shape at a scale factor (and rounding mode, and constant kind)
// varying per shape, then every scale factor -40..40 on one image that has
// vector blocks and a tail, each against the reference.
inline void runReference(const ArithMember& m, int path)
{
    const Descriptor d = parseDescriptor(m.descriptor);
    ASSERT_TRUE(d.valid) << m.descriptor;
    const bool sfs = d.suffix == "Sfs";
    const int scales[] = {0, 1, 3, 8, 15, 16, -1, 9, 2, 5, 0, 12};
    const std::vector<Shape> shapes = arithShapes();
    const int constantKinds = m.op == Op::DivC ? 1 : 3;  // DivC: no zero constants
    for (std::size_t i = 0; i < shapes.size(); ++i) {
        Params p;
        p.scale = sfs ? scales[i % std::size(scales)] : 0;
        p.rnd = static_cast<int>(i % 3);
        const int constants = static_cast<int>(i % constantKinds) * (m.op == Op::DivC ? 2 : 1);
        SCOPED_TRACE(describe(shapes[i]) + " scale " + std::to_string(p.scale) + " rnd " + std::to_string(p.rnd) +
                     " constants " + std::to_string(constants));
        m.check(m, path, shapes[i], p, constants, i * 7919 + 11);
    }
    // Scale factor 0 with small constants: the kernels that hold only while
    // every product fits (MulC 8u below 128).
    for (std::size_t i = 0; isConstantOp(m.op) && m.op != Op::DivC && i < shapes.size(); ++i) {
        SCOPED_TRACE(describe(shapes[i]) + " scale 0, constants in the lower half");
        m.check(m, path, shapes[i], Params{}, 3, i * 104729 + 7);
    }
    for (int s = -40; sfs && s <= 40; ++s) {
        Params p;
        p.scale = s;
        p.rnd = (s + 40) % 3;
        const int constants = m.op == Op::DivC ? 0 : (s + 40) % 3;
        SCOPED_TRACE("scale " + std::to_string(s) + " rnd " + std::to_string(p.rnd) + " constants " +
                     std::to_string(constants));
        m.check(m, path, Shape{37, 2, 3, 5, 1, 1, static_cast<unsigned>(s & 15)}, p, constants,
                static_cast<std::uint64_t>(s + 1000));
    }
}

// Whether the member rejects steps below 1.
inline bool checksSteps(const ArithMember& m)
{
    switch (m.op) {
    case Op::Add: case Op::Sub: case Op::Mul: return !m.narrow;
    case Op::Div: case Op::DivRound: case Op::DivC: case Op::MulScale: return true;
    default: return false;
    }
}

// Null pointers come first, then the ROI size, then (where checked) steps,
// MulScale checking steps before the size, then the family's own parameter;
// no failing call writes anything.
template <class T>
void runArgumentChecks(const ArithMember& m, int path)
{
    Rng rng(5);
    Shape shape{5, 2, 4, 4};
    Rig<T> rig(m, shape, Params{}, 2, rng);
    const bool twoImages = !isConstantOp(m.op), inPlace = rig.d.inPlace;
    const bool arrayConstant = isConstantOp(m.op) && rig.d.dst.pixel > 1;
    std::vector<Bytes> before;
    for (const auto* side : {&rig.src1, &rig.src2, &rig.dst})
        for (const auto& img : *side)
            before.push_back(img->contents());
    const auto expectUnwritten = [&] {
        std::size_t k = 0;
        for (const auto* side : {&rig.src1, &rig.src2, &rig.dst})
            for (const auto& img : *side)
                EXPECT_TRUE(img->matches(before[k++], "image (must not be written)"));
    };
    const auto run = [&](const std::string& what, ArithCall c, PvxStatus want) {
        SCOPED_TRACE(what);
        EXPECT_EQ(m.call(path, c), want);
        expectUnwritten();
    };
    const PvxiSize badRois[] = {{0, 2}, {5, 0}, {-1, 2}, {5, -3}, {INT_MIN, INT_MIN}};
    // The pointers of this form, one at a time.
    std::vector<std::pair<std::string, void (*)(ArithCall&)>> nulls = {{"pDst", [](ArithCall& c) { c.dst = nullptr; }}};
    if (!(isConstantOp(m.op) && inPlace))
        nulls.push_back({"pSrc1", [](ArithCall& c) { c.src1 = nullptr; }});
    if (twoImages && !inPlace)
        nulls.push_back({"pSrc2", [](ArithCall& c) { c.src2 = nullptr; }});
    if (arrayConstant)
        nulls.push_back({"constant array", [](ArithCall& c) { c.values = nullptr; }});
    for (const auto& n : nulls)
        for (PvxiSize roi : {PvxiSize{5, 2}, badRois[0], badRois[3]}) {
            ArithCall c = rig.call;
            n.second(c);
            c.roi = roi;
            c.src1Step = c.dstStep = 0;
            c.rnd = 7;
            run("null " + n.first + " roi " + std::to_string(roi.width), c, pvxStsNullPtrErr);
        }
    // The steps of this form, each set to 0 and to -1.
    std::vector<std::pair<std::string, int ArithCall::*>> steps = {{"dstStep", &ArithCall::dstStep}};
    if (!(isConstantOp(m.op) && inPlace))
        steps.push_back({"src1Step", &ArithCall::src1Step});
    if (twoImages && !inPlace)
        steps.push_back({"src2Step", &ArithCall::src2Step});
    const bool stepChecked = checksSteps(m);
    for (PvxiSize roi : badRois) {
        ArithCall c = rig.call;
        c.roi = roi;
        run("roi " + std::to_string(roi.width) + "x" + std::to_string(roi.height), c, pvxStsSizeErr);
        c.*steps.back().second = 0;
        run("roi and step", c, stepChecked && m.op == Op::MulScale ? pvxStsStepErr : pvxStsSizeErr);
    }
    for (const auto& st : steps)
        for (int bad : {0, -1}) {
            ArithCall c = rig.call;
            c.*st.second = bad;
            c.rnd = 3;
            if (stepChecked) {
                run(st.first + " " + std::to_string(bad), c, pvxStsStepErr);
            } else {  // accepted as given: a step of 0 reads or writes one row again
                SCOPED_TRACE(st.first + " " + std::to_string(bad) + " is not checked");
                c.roi.height = 1;
                EXPECT_GE(m.call(path, c), pvxStsOk);
                for (auto& img : rig.dst)  // the call wrote: take its result as the new baseline
                    before.back() = img->contents();
            }
        }
    if (m.op == Op::DivRound)
        for (int mode : {3, -1, 100}) {
            ArithCall c = rig.call;
            c.rnd = mode;
            run("rounding mode " + std::to_string(mode), c, pvxStsRoundModeErr);
        }
    if (m.op == Op::DivC) {
        using P = typename PartOf<T>::type;
        for (int ch = 0; ch < rig.d.dst.used; ++ch) {
            T zeros[4];
            std::memcpy(zeros, rig.values, sizeof(zeros));
            std::memset(&zeros[ch], 0, sizeof(T));
            if constexpr (std::is_floating_point_v<P>)  // -0.0 is zero too
                reinterpret_cast<P*>(&zeros[ch])[0] = -0.0f;
            ArithCall c = rig.call;
            c.values = zeros;
            run("zero constant in channel " + std::to_string(ch), c, pvxStsDivByZeroErr);
            c.dstStep = 0;
            run("zero constant and step 0", c, pvxStsStepErr);
        }
    }
}

}  // namespace arithtest
