// LUT, LUT_Linear, LUT_Cubic, LUTPalette, LUTPaletteSwap: every member on
// every code path against a scalar reference written from the mapping rules,
// on random functions (unordered levels, levels and values beyond the type,
// one-entry intervals) and random data, with padded steps, odd widths,
// misaligned destinations, canaries and guard pages; the argument checks.
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

#include "support/harness.h"

namespace {

using namespace pvxtest;

// ---------------------------------------------------------------- reference

// Interval k of an integer function, from the table rules: entries lo..hi-1,
// either value k or trunc(poly(x - origin)) clamped (d holds the 0.5).
struct RefInterval {
    long long lo, hi;
    bool direct, line;
    long long value;
    double origin, a, b, c, d;
};

double det3(const double m[3][3])
{
    return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) - m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
           m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
}

double det4(const double m[4][4])
{
    double r = 0;
    for (int c = 0; c < 4; ++c) {
        double s[3][3];
        for (int i = 1; i < 4; ++i)
            for (int j = 0, k = 0; j < 4; ++j)
                if (j != c)
                    s[i - 1][k++] = m[i][j];
        r += (c % 2 ? -1 : 1) * m[0][c] * det3(s);
    }
    return r;
}

// Cubic a t^3 + b t^2 + c t + d through 4 points by Cramer's rule.
bool cramer(const double* t, const double* v, double* coef)
{
    double m[4][4];
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            m[i][j] = std::pow(t[i], 3 - j);
    const double det = det4(m);
    for (int c = 0; c < 4 && det != 0; ++c) {
        double mc[4][4];
        std::memcpy(mc, m, sizeof m);
        for (int i = 0; i < 4; ++i)
            mc[i][c] = v[i];
        coef[c] = det4(mc) / det;
    }
    return det != 0;
}

// Interval k's polynomial (kind 1 linear, 2 cubic), in t = x - origin.
template <class V>
void refPoly(const std::vector<V>& lv, const std::vector<V>& vv, int kind, int k, double add, RefInterval& r)
{
    const int n = static_cast<int>(lv.size());
    if (kind == 2 && n >= 4) {
        const int j = std::min(std::max(k - 1, 0), n - 4);
        double t[4], v[4], coef[4];
        for (int i = 0; i < 4; ++i)
            t[i] = double(lv[j + i]) - double(lv[j + 1]), v[i] = vv[j + i];
        if (cramer(t, v, coef)) {
            r.origin = lv[j + 1], r.a = coef[0], r.b = coef[1], r.c = coef[2], r.d = coef[3] + add;
            r.line = false;
            return;
        }
    }
    r.line = true, r.origin = 0, r.a = 0, r.b = 0;
    r.c = (double(vv[k + 1]) - double(vv[k])) / (double(lv[k + 1]) - double(lv[k]));
    r.d = double(vv[k]) + add - double(lv[k]) * r.c;
}

// One channel's integer function as the dense table of the rules describes
// it, evaluated at single values (the type's range is lo..hi).
struct RefIntFn {
    long long lo, hi, last;
    std::vector<RefInterval> iv;

    RefIntFn(const std::vector<int>& lv, const std::vector<int>& vv, int kind, long long lo_, long long hi_)
        : lo(lo_), hi(hi_), last(lv.back())
    {
        for (std::size_t k = 0; k + 1 < lv.size(); ++k) {
            if (lv[k] >= lv[k + 1])
                continue;
            RefInterval r{};
            r.lo = std::min(std::max<long long>(lv[k], lo), hi);
            r.hi = std::min(std::max<long long>(lv[k + 1], lo), hi + 1);
            r.value = std::min(std::max<long long>(vv[k], lo), hi);
            r.direct = kind == 0 || r.hi - r.lo == 1;
            if (!r.direct)
                refPoly(lv, vv, kind, int(k), 0.5, r);
            iv.push_back(r);
        }
    }
    long long operator()(long long x) const
    {
        long long e = x;  // identity below level 0
        for (const RefInterval& r : iv)
            if (x >= r.lo && x < r.hi) {
                const double t = double(x) - r.origin;
                const double y = std::trunc(((r.a * t + r.b) * t + r.c) * t + r.d);
                e = r.direct ? r.value : y < lo ? lo : y > hi ? hi : static_cast<long long>(y);
            }
        return x >= last ? x : e;
    }
};

// 32f: the first interval holding x, no 0.5, no clamping, one rounding.
float ref32f(const std::vector<float>& lv, const std::vector<float>& vv, int kind, float x)
{
    const int n = static_cast<int>(lv.size());
    if (!(x >= lv[0]) || x >= lv[n - 1])
        return x;
    for (int k = 0; k + 1 < n; ++k)
        if (x >= lv[k] && x < lv[k + 1]) {
            if (kind == 0)
                return vv[k];
            RefInterval r{};
            refPoly(lv, vv, kind, k, 0.0, r);
            if (r.line)  // value k + (x - level k) * slope: exactly value k at level k
                return static_cast<float>(double(vv[k]) + (double(x) - double(lv[k])) * r.c);
            const double t = double(x) - r.origin;
            return static_cast<float>(((r.a * t + r.b) * t + r.c) * t + r.d);
        }
    return x;
}

// ---------------------------------------------------------------- members

template <class T>
using Lev = std::conditional_t<std::is_same_v<T, Pvx32f>, Pvx32f, Pvx32s>;

struct LutCall {
    const void* src = nullptr;
    int srcStep = 0;
    void* dst = nullptr;
    int dstStep = 0;
    PvxiSize roi{};
    const void* values[4] = {};
    const void* levels[4] = {};
    int n[4] = {};
    bool nullValuesArray = false, nullLevelsArray = false, nullCounts = false;
};

template <class T, class F>
PvxStatus invokeLut(F f, const LutCall& c)
{
    using V = Lev<T>;
    const V* vals[4] = {static_cast<const V*>(c.values[0]), static_cast<const V*>(c.values[1]),
                        static_cast<const V*>(c.values[2]), static_cast<const V*>(c.values[3])};
    const V* levs[4] = {static_cast<const V*>(c.levels[0]), static_cast<const V*>(c.levels[1]),
                        static_cast<const V*>(c.levels[2]), static_cast<const V*>(c.levels[3])};
    const V* const* va = c.nullValuesArray ? nullptr : vals;
    const V* const* la = c.nullLevelsArray ? nullptr : levs;
    const int* na = c.nullCounts ? nullptr : c.n;
    const T* s = static_cast<const T*>(c.src);
    T* d = static_cast<T*>(c.dst);
    if constexpr (std::is_invocable_v<F, const T*, int, T*, int, PvxiSize, const V*, const V*, int>)
        return f(s, c.srcStep, d, c.dstStep, c.roi, vals[0], levs[0], c.n[0]);
    else if constexpr (std::is_invocable_v<F, T*, int, PvxiSize, const V*, const V*, int>)
        return f(d, c.dstStep, c.roi, vals[0], levs[0], c.n[0]);
    else if constexpr (std::is_invocable_v<F, const T*, int, T*, int, PvxiSize, const V* const*, const V* const*,
                                           const int*>)
        return f(s, c.srcStep, d, c.dstStep, c.roi, va, la, na);
    else
        return f(d, c.dstStep, c.roi, va, la, na);
}

struct LutMember {
    const char* name;
    const char* descriptor;
    std::size_t elem;
    bool isFloat, isSigned;
    PvxStatus (*call)(int path, const LutCall&);
    int kind() const { return std::strstr(name, "_Cubic_") ? 2 : std::strstr(name, "_Linear_") ? 1 : 0; }
};

#define PVX_LUT_MEMBER(sig, S, D, desc, exportName)                                                          \
    LutMember{#exportName, #desc, sizeof(S), std::is_same_v<S, Pvx32f>, std::is_same_v<S, Pvx16s>,           \
              [](int path, const LutCall& c) { return invokeLut<S>(PVX_PATH_FN(exportName, path), c); }},
#define PVX_NAME_OF(sig, S, D, desc, exportName) #exportName,

const std::vector<LutMember>& lutMembers()
{
    static const std::vector<LutMember> m = {PVX_MEMBERS_LUT(PVX_LUT_MEMBER)};
    return m;
}

// Element i of the bytes at p, as a value of the member's type.
double getElem(const LutMember& m, const unsigned char* p)
{
    if (m.isFloat) {
        float f;
        std::memcpy(&f, p, 4);
        return f;
    }
    if (m.elem == 1)
        return *p;
    std::uint16_t u;
    std::memcpy(&u, p, 2);
    return m.isSigned ? double(std::int16_t(u)) : double(u);
}

// A random function: 2..9 levels (more with cubic), mostly increasing with
// one-entry steps, sometimes unordered; levels and values beyond the range.
struct RandomFn {
    std::vector<int> li, vi;
    std::vector<float> lf, vf;
    RandomFn(const LutMember& m, Rng& rng, long long lo, long long hi)
    {
        const int n = 2 + int(rng.below(m.kind() == 2 ? 9 : 7));
        const long long span = hi - lo + 1, from = lo - span / 8;
        long long l = from + rng.below(unsigned(span / 4));
        const bool unordered = rng.below(4) == 0;
        for (int k = 0; k < n; ++k) {
            li.push_back(int(l));
            vi.push_back(int(lo - span / 8 + static_cast<long long>(rng.below(unsigned(span + span / 4)))));
            l = unordered ? from + rng.below(unsigned(span + span / 4))
                          : l + (rng.below(3) == 0 ? 1 : 1 + rng.below(unsigned(span * 2 / n)));
        }
        for (int k = 0; k < n; ++k)
            lf.push_back(float(li[k]) + (k % 2 ? 0.25f : 0.0f)), vf.push_back(float(vi[k]) * 0.75f);
    }
};

struct Range {
    long long lo, hi;
};
Range rangeOf(const LutMember& m)
{
    if (m.isFloat)
        return {-40, 300};  // where random float data and levels are drawn
    return m.elem == 1 ? Range{0, 255} : m.isSigned ? Range{-32768, 32767} : Range{0, 65535};
}

class LutTest : public ::testing::TestWithParam<PathCase<LutMember>> {
protected:
    const LutMember& member() const { return *GetParam().member; }

    // Runs one shape; nothing outside the ROI's mapped channels may change.
    void runShape(const Shape& s, std::uint64_t seed)
    {
        const LutMember& m = member();
        const Descriptor d = parseDescriptor(m.descriptor);
        Rng rng(seed);
        const Range rg = rangeOf(m);
        auto src = makeImages(d.src, m.elem, s, true, rng);
        auto dst = makeImages(d.dst, m.elem, s, false, rng);
        TestImage& in = d.inPlace ? *dst[0] : *src[0];
        for (int y = 0; m.isFloat && y < s.height; ++y)  // floats in the levels' range, a few NaN
            for (int x = 0; x < s.width * d.src.pixel; ++x) {
                const float f = rng.below(40) == 0 ? NAN : float(rg.lo) + float(rng.below(3400)) * 0.1f;
                std::memcpy(in.at(y, std::size_t(x) * 4), &f, 4);
            }
        std::vector<RandomFn> fns;
        LutCall call;
        for (int c = 0; c < d.src.used; ++c) {
            fns.emplace_back(m, rng, rg.lo, rg.hi);
            call.values[c] = m.isFloat ? static_cast<const void*>(fns[c].vf.data()) : fns[c].vi.data();
            call.levels[c] = m.isFloat ? static_cast<const void*>(fns[c].lf.data()) : fns[c].li.data();
            call.n[c] = int(fns[c].li.size());
        }
        const Bytes srcBefore = src[0]->contents();
        Bytes want = dst[0]->contents();
        for (int c = 0; c < d.src.used; ++c) {
            const RefIntFn slow(fns[c].li, fns[c].vi, m.kind(), rg.lo, rg.hi);
            std::vector<long long> tab8(256);  // 8u: the same reference, tabulated
            for (int x = 0; m.elem == 1 && x < 256; ++x)
                tab8[x] = slow(x);
            const auto ref = [&](long long x) { return m.elem == 1 ? tab8[x] : slow(x); };
            for (int y = 0; y < s.height; ++y)
                for (int x = 0; x < s.width; ++x) {
                    const std::size_t b = (std::size_t(x) * d.src.pixel + c) * m.elem;
                    const double v = getElem(m, in.at(y, b));
                    unsigned char* out = &want[dst[0]->indexOf(y, b)];
                    if (m.isFloat) {
                        float f = v;
                        std::memcpy(&f, in.at(y, b), 4);  // NaN payloads too
                        f = ref32f(fns[c].lf, fns[c].vf, m.kind(), f);
                        std::memcpy(out, &f, 4);
                    } else {
                        const long long r = ref(static_cast<long long>(v));
                        if (m.elem == 1)
                            *out = static_cast<unsigned char>(r);
                        else {
                            const std::uint16_t u = static_cast<std::uint16_t>(r);
                            std::memcpy(out, &u, 2);
                        }
                    }
                }
        }
        call.src = src[0]->origin();
        call.srcStep = src[0]->step();
        call.dst = dst[0]->origin();
        call.dstStep = dst[0]->step();
        call.roi = {s.width, s.height};
        ASSERT_EQ(m.call(GetParam().path, call), pvxStsOk) << describe(s);
        EXPECT_TRUE(dst[0]->matches(want, "destination")) << describe(s);
        if (!d.inPlace) {
            EXPECT_TRUE(src[0]->matches(srcBefore, "source")) << describe(s);
        }
    }
};

// Odd widths with misaligned destinations and padded steps, contiguous
// images, both sides of the 4096-pixel table threshold, guard pages.
TEST_P(LutTest, MatchesReference)
{
    std::vector<Shape> shapes;
    for (int w : {1, 3, 15, 17, 65, 130})
        for (unsigned a : {0u, 5u, 11u})
            shapes.push_back({w, 3, int(a * 3 % 11), int(a * 5 % 13), 1, 1, a});
    shapes.push_back({33, 5, 0, 0, 1, 1, 0});
    shapes.push_back({64, 64, 0, 8, 1, 1, 3});   // 4096 pixels: mapped one by one (16-bit)
    shapes.push_back({65, 64, 0, 0, 1, 1, 0});   // 4160 pixels: through the table
    shapes.push_back({130, 33, 6, 2, 1, 1, 7});  // the table, padded
    for (Shape g : guardShapes())
        shapes.push_back(g);
    if (member().elem == 1) {  // 8u images of 1 MiB and more use pair tables
        shapes.push_back({1031, 1020, 5, 3, 1, 1, 9});
        shapes.push_back({1024, 1025, 0, 0, 1, 1, 0, true});
    }
    for (std::size_t i = 0; i < shapes.size(); ++i)
        runShape(shapes[i], 1000 + i * 31 + std::hash<std::string>()(member().name) % 1000);
}

// Pointers, then size, then steps, then the level count; nothing written.
TEST_P(LutTest, ArgumentChecks)
{
    const LutMember& m = member();
    const Descriptor d = parseDescriptor(m.descriptor);
    Rng rng(5);
    TestImage src(64, 2, 64, 0, false, rng), dst(64, 2, 64, 0, false, rng);
    const Bytes before = dst.contents();
    const float lf[2] = {0, 1};
    const int li[2] = {0, 1};
    LutCall good;
    good.src = src.origin(), good.srcStep = 64, good.dst = dst.origin(), good.dstStep = 64, good.roi = {3, 2};
    for (int c = 0; c < 4; ++c) {
        good.values[c] = good.levels[c] = m.isFloat ? static_cast<const void*>(lf) : li;
        good.n[c] = 2;
    }
    const int last = d.src.used - 1;
    struct Case {
        const char* what;
        void (*edit)(LutCall&, int);
        PvxStatus want;
    };
    const Case cases[] = {
        {"null source (with bad size)", [](LutCall& c, int) { c.src = nullptr, c.roi.width = 0; }, pvxStsNullPtrErr},
        {"null destination", [](LutCall& c, int) { c.dst = nullptr, c.n[0] = 1; }, pvxStsNullPtrErr},
        {"null values", [](LutCall& c, int l) { c.values[l] = nullptr, c.roi.height = 0; }, pvxStsNullPtrErr},
        {"null levels", [](LutCall& c, int l) { c.levels[l] = nullptr, c.dstStep = 0; }, pvxStsNullPtrErr},
        {"size (with bad step)", [](LutCall& c, int) { c.roi.height = 0, c.srcStep = c.dstStep = 0; }, pvxStsSizeErr},
        {"negative width", [](LutCall& c, int) { c.roi.width = -1; }, pvxStsSizeErr},
        {"step (with one level)", [](LutCall& c, int l) { c.dstStep = 0, c.srcStep = 0, c.n[l] = 1; },
         pvxStsStepErr},
        {"negative step", [](LutCall& c, int) { c.dstStep = -64, c.srcStep = -64; }, pvxStsStepErr},
        {"one level", [](LutCall& c, int l) { c.n[l] = 1; }, pvxStsLUTNofLevelsErr},
        {"no levels", [](LutCall& c, int) { c.n[0] = -5; }, pvxStsLUTNofLevelsErr},
        {"null arrays", [](LutCall& c, int) { c.nullValuesArray = c.nullLevelsArray = c.nullCounts = true; },
         pvxStsNullPtrErr},
    };
    for (const Case& k : cases) {
        if (d.src.used == 1 && std::strcmp(k.what, "null arrays") == 0)
            continue;
        LutCall c = good;
        k.edit(c, last);
        if (d.inPlace && std::strstr(k.what, "source"))
            continue;  // one pointer: covered by the destination case
        EXPECT_EQ(m.call(GetParam().path, c), k.want) << k.what;
        EXPECT_TRUE(dst.matches(before, k.what));
    }
    EXPECT_EQ(m.call(GetParam().path, good), pvxStsOk) << "two levels are enough";
}

INSTANTIATE_TEST_SUITE_P(Threshold, LutTest, ::testing::ValuesIn(onEveryPath(lutMembers())), CaseName());

// ---------------------------------------------------------------- palettes

struct PalMember {
    const char* name;
    const char* descriptor;
    std::size_t srcElem, dstElem;
    PvxStatus (*call)(int path, const void* s, int ss, void* d, int ds, PvxiSize roi, const void* const* tabs,
                      bool single, int bits);
};

template <class S, class D, class F>
PvxStatus invokePal(F f, const void* s, int ss, void* d, int ds, PvxiSize roi, const void* const* tabs, bool single,
                    int bits)
{
    const D* t[4] = {static_cast<const D*>(tabs[0]), static_cast<const D*>(tabs[1]), static_cast<const D*>(tabs[2]),
                     static_cast<const D*>(tabs[3])};
    if constexpr (std::is_invocable_v<F, const S*, int, D*, int, PvxiSize, const D*, int>)
        return f(static_cast<const S*>(s), ss, static_cast<D*>(d), ds, roi, t[0], bits);
    else
        return f(static_cast<const S*>(s), ss, static_cast<D*>(d), ds, roi, single ? nullptr : t, bits);
}

#define PVX_PAL_MEMBER(sig, S, D, desc, exportName)                                                       \
    PalMember{#exportName, #desc, sizeof(S), sizeof(D),                                                   \
              [](int path, const void* s, int ss, void* d, int ds, PvxiSize roi, const void* const* tabs, \
                 bool single, int bits) {                                                                 \
                  return invokePal<S, D>(PVX_PATH_FN(exportName, path), s, ss, d, ds, roi, tabs, single, bits); \
              }},

const std::vector<PalMember>& palMembers()
{
    static const std::vector<PalMember> m = {PVX_MEMBERS_LUTPalette(PVX_PAL_MEMBER)
                                                 PVX_MEMBERS_LUTPaletteSwap(PVX_PAL_MEMBER)};
    return m;
}

// Source and destination pixel elements, channels mapped, reversed order.
struct PalLayout {
    int sp, dp, used;
    bool swap;
};
PalLayout palLayout(const PalMember& m)
{
    const std::string d = m.descriptor;
    const bool swap = std::strstr(m.name, "Swap") != nullptr;
    if (d == "C3A0C4R")
        return {3, 4, 3, swap};
    return d == "C1R" ? PalLayout{1, 1, 1, false} : d == "C3R" ? PalLayout{3, 3, 3, false}
                      : d == "C4R" ? PalLayout{4, 4, 4, false} : PalLayout{4, 4, 3, false};
}

class PaletteTest : public ::testing::TestWithParam<PathCase<PalMember>> {};

TEST_P(PaletteTest, MatchesReference)
{
    const PalMember& m = *GetParam().member;
    const PalLayout l = palLayout(m);
    std::vector<Shape> shapes;
    for (int w : {1, 3, 15, 17, 65, 130})
        shapes.push_back({w, 3, w % 7, w % 5 * 3, 1, 1, unsigned(w % 16)});
    shapes.push_back({40, 4, 0, 0, 1, 1, 0});
    if (m.srcElem == 1 && m.dstElem == 1)
        shapes.push_back({1031, 1020, 5, 3, 1, 1, 9});  // pair tables
    for (Shape g : guardShapes())
        shapes.push_back(g);
    for (std::size_t i = 0; i < shapes.size(); ++i) {
        const Shape& s = shapes[i];
        Rng rng(77 + i);
        const int maxBits = 8 * int(m.srcElem), bits = i == 0 ? maxBits : 1 + int(rng.below(unsigned(maxBits)));
        std::vector<Bytes> pal(4, Bytes((std::size_t(1) << bits) * m.dstElem));
        const void* tabs[4];
        for (int c = 0; c < 4; ++c)
            rng.fill(pal[c].data(), pal[c].size()), tabs[c] = pal[c].data();
        auto src = makeImages({l.sp, l.sp}, m.srcElem, s, true, rng);
        auto dst = makeImages({l.dp, l.used}, m.dstElem, s, false, rng);
        Bytes want = dst[0]->contents();
        for (int y = 0; y < s.height; ++y)
            for (int x = 0; x < s.width; ++x) {
                for (int c = 0; c < l.used; ++c) {
                    unsigned v = 0;
                    std::memcpy(&v, src[0]->at(y, (std::size_t(x) * l.sp + c) * m.srcElem), m.srcElem);  // little endian
                    const int oc = l.swap ? l.used - 1 - c : c;
                    std::memcpy(&want[dst[0]->indexOf(y, (std::size_t(x) * l.dp + oc) * m.dstElem)],
                                &pal[c][(v & ((1u << bits) - 1)) * m.dstElem], m.dstElem);
                }
                if (l.sp == 3 && l.dp == 4)
                    std::memset(&want[dst[0]->indexOf(y, (std::size_t(x) * 4 + 3) * m.dstElem)], 0, m.dstElem);
            }
        const Bytes srcBefore = src[0]->contents();
        ASSERT_EQ(m.call(GetParam().path, src[0]->origin(), src[0]->step(), dst[0]->origin(), dst[0]->step(),
                         {s.width, s.height}, tabs, false, bits),
                  pvxStsOk)
            << describe(s);
        EXPECT_TRUE(dst[0]->matches(want, "destination")) << describe(s) << " bits " << bits;
        EXPECT_TRUE(src[0]->matches(srcBefore, "source")) << describe(s);
    }
}

// Pointers, size, bit size, then a step shorter than the row; nothing written.
TEST_P(PaletteTest, ArgumentChecks)
{
    const PalMember& m = *GetParam().member;
    const PalLayout l = palLayout(m);
    Rng rng(3);
    TestImage src(256, 2, 256, 0, false, rng), dst(256, 2, 256, 0, false, rng);
    const Bytes before = dst.contents();
    const Bytes pal(65536 * 4);
    const void* tabs[4] = {pal.data(), pal.data(), pal.data(), pal.data()};
    const void* nullLast[4] = {pal.data(), pal.data(), pal.data(), pal.data()};
    nullLast[l.used - 1] = nullptr;
    const int maxBits = 8 * int(m.srcElem);
    const int srcRow = 5 * l.sp * int(m.srcElem), dstRow = 5 * l.dp * int(m.dstElem);
    const auto call = [&](const void* s, int ss, void* d, int ds, PvxiSize roi, const void* const* t, bool single,
                          int bits) { return m.call(GetParam().path, s, ss, d, ds, roi, t, single, bits); };
    void* D = dst.origin();
    const void* S = src.origin();
    EXPECT_EQ(call(nullptr, 256, D, 256, {0, 1}, tabs, false, 0), pvxStsNullPtrErr);
    EXPECT_EQ(call(S, 256, nullptr, 256, {5, 1}, tabs, false, 0), pvxStsNullPtrErr);
    EXPECT_EQ(call(S, 256, D, 256, {5, 1}, nullLast, false, 1), pvxStsNullPtrErr);
    if (l.used > 1) {
        EXPECT_EQ(call(S, 256, D, 256, {5, 1}, tabs, true, 1), pvxStsNullPtrErr) << "null palette array";
    }
    EXPECT_EQ(call(S, 0, D, 0, {5, 0}, tabs, false, 0), pvxStsSizeErr);
    EXPECT_EQ(call(S, 0, D, 0, {5, 2}, tabs, false, 0), pvxStsOutOfRangeErr);
    EXPECT_EQ(call(S, 256, D, 256, {5, 2}, tabs, false, maxBits + 1), pvxStsOutOfRangeErr);
    EXPECT_EQ(call(S, srcRow - 1, D, 256, {5, 2}, tabs, false, maxBits), pvxStsStepErr);
    EXPECT_EQ(call(S, 256, D, dstRow - 1, {5, 2}, tabs, false, maxBits), pvxStsStepErr);
    EXPECT_EQ(call(S, 256, D, -256, {5, 2}, tabs, false, 1), pvxStsStepErr);
    EXPECT_TRUE(dst.matches(before, "destination"));
    EXPECT_EQ(call(S, srcRow, D, dstRow, {5, 2}, tabs, false, maxBits), pvxStsOk) << "rows equal to the steps";
}

INSTANTIATE_TEST_SUITE_P(Threshold, PaletteTest, ::testing::ValuesIn(onEveryPath(palMembers())), CaseName());

// Examples worth keeping, on every path.
TEST(LutExamples, DocumentedCases)
{
    for (int p = 0; p < PVX_PATH_COUNT; ++p) {
        SCOPED_TRACE(pathName(p));
        Pvx8u px[256], out[256];
        for (int i = 0; i < 256; ++i)
            px[i] = Pvx8u(i);
        const PvxiSize roi{256, 1};
        const int l1[] = {10, 20, 30}, v1[] = {100, 200, 0};
        ASSERT_EQ(PVX_PATH_FN(pvxiLUT_8u_C1R, p)(px, 256, out, 256, roi, v1, l1, 3), pvxStsOk);
        EXPECT_EQ(out[9], 9);
        EXPECT_EQ(out[10], 100);
        EXPECT_EQ(out[19], 100);
        EXPECT_EQ(out[20], 200);
        EXPECT_EQ(out[30], 30);
        const int l2[] = {0, 255}, v2[] = {0, 127};
        ASSERT_EQ(PVX_PATH_FN(pvxiLUT_Linear_8u_C1R, p)(px, 256, out, 256, roi, v2, l2, 2), pvxStsOk);
        EXPECT_EQ(out[1], 0);
        EXPECT_EQ(out[2], 1);
        const int l3[] = {-10, 1, 200}, v3[] = {77, 5, 9};
        Pvx8u lin[256];
        ASSERT_EQ(PVX_PATH_FN(pvxiLUT_Linear_8u_C1R, p)(px, 256, lin, 256, roi, v3, l3, 3), pvxStsOk);
        EXPECT_EQ(lin[0], 77) << "a one-entry interval cut by clamping takes its value";
        ASSERT_EQ(PVX_PATH_FN(pvxiLUT_Cubic_8u_C1R, p)(px, 256, out, 256, roi, v3, l3, 3), pvxStsOk);
        EXPECT_EQ(0, std::memcmp(out, lin, 256)) << "three levels: cubic is linear";
        const float lf[] = {0, 1}, vf[] = {5, 0};
        float f[3] = {0.5f, 1.0f, NAN};
        ASSERT_EQ(PVX_PATH_FN(pvxiLUT_32f_C1IR, p)(f, 12, {3, 1}, vf, lf, 2), pvxStsOk);
        EXPECT_EQ(f[0], 5.0f);
        EXPECT_EQ(f[1], 1.0f);
        EXPECT_TRUE(std::isnan(f[2]));
        Pvx8u pal[16] = {}, s = 0x35, d = 0;
        pal[5] = 42;
        ASSERT_EQ(PVX_PATH_FN(pvxiLUTPalette_8u_C1R, p)(&s, 1, &d, 1, {1, 1}, pal, 4), pvxStsOk);
        EXPECT_EQ(d, 42);
    }
}

TEST(LutExamples, EveryMemberTested)
{
    std::vector<std::string> lut = {PVX_MEMBERS_LUT(PVX_NAME_OF)};
    std::vector<std::string> pal = {PVX_MEMBERS_LUTPalette(PVX_NAME_OF) PVX_MEMBERS_LUTPaletteSwap(PVX_NAME_OF)};
    EXPECT_EQ(lut.size() + pal.size(), 113u);
    expectEveryCaseRegistered("Threshold/LutTest", {"MatchesReference", "ArgumentChecks"}, lut);
    expectEveryCaseRegistered("Threshold/PaletteTest", {"MatchesReference", "ArgumentChecks"}, pal);
}

}  // namespace
