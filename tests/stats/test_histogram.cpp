// Histograms: every HistogramRange, HistogramEven and Histogram member on
// every code path against a plain interval-by-interval count, with levels in
// every order; the level rules; the specification protocol; argument checks.
#include <climits>
#include <cmath>
#include <functional>
#include <type_traits>

#include "stats/stats_rig.h"

namespace {

using namespace statstest;

enum class Kind { Range, Even, Spec };

// The arguments of any histogram form; levels[c] holds Pvx32s or Pvx32f.
struct HistCall {
    const void* src = nullptr;
    int step = 0;
    PvxiSize roi{};
    Pvx32s* hist[4] = {};
    void* levels[4] = {};
    int nLevels[4] = {};
    Pvx32s lower[4] = {}, upper[4] = {};
    const Pvx8u* spec = nullptr;
    unsigned nullArrays = 0;  // bits 1, 2, 4, 8, 16: hist, levels, nLevels, lower, upper arrays null
};

template <class T, class F>
PvxStatus invoke(F f, const HistCall& c)
{
    using L = std::conditional_t<std::is_same_v<T, Pvx32f>, Pvx32f, Pvx32s>;
    const T* s = static_cast<const T*>(c.src);
    const auto nullIf = [&c](unsigned bit, auto p) { return c.nullArrays & bit ? nullptr : p; };
    L* const lv[4] = {static_cast<L*>(c.levels[0]), static_cast<L*>(c.levels[1]), static_cast<L*>(c.levels[2]),
                      static_cast<L*>(c.levels[3])};
    Pvx32s* const* hist = nullIf(1, c.hist);
    if constexpr (std::is_invocable_v<F, const T*, int, PvxiSize, Pvx32s*, const L*, int>)
        return f(s, c.step, c.roi, c.hist[0], lv[0], c.nLevels[0]);
    else if constexpr (std::is_invocable_v<F, const T*, int, PvxiSize, Pvx32s* const*, const L* const*, const int*>)
        return f(s, c.step, c.roi, hist, nullIf(2, lv), nullIf(4, c.nLevels));
    else if constexpr (std::is_invocable_v<F, const T*, int, PvxiSize, Pvx32s*, Pvx32s*, int, Pvx32s, Pvx32s>)
        return f(s, c.step, c.roi, c.hist[0], lv[0], c.nLevels[0], c.lower[0], c.upper[0]);
    else if constexpr (std::is_invocable_v<F, const T*, int, PvxiSize, Pvx32s*, const Pvx8u*, Pvx8u*>)
        return f(s, c.step, c.roi, c.hist[0], c.spec, nullptr);
    else if constexpr (std::is_invocable_v<F, const T*, int, PvxiSize, Pvx32s* const*, const Pvx8u*, Pvx8u*>)
        return f(s, c.step, c.roi, hist, c.spec, nullptr);
    else
        return f(s, c.step, c.roi, hist, nullIf(2, lv), nullIf(4, c.nLevels), nullIf(8, c.lower), nullIf(16, c.upper));
}

struct HistMember : MemberId<Kind> {
    int type;
    PvxStatus (*call)(int path, const HistCall&);
};

template <class T>
constexpr int kTypeCode = std::is_same_v<T, Pvx8u> ? pvx8u : std::is_same_v<T, Pvx16u> ? pvx16u
                          : std::is_same_v<T, Pvx16s> ? pvx16s : pvx32f;

Kind kindOf(const std::string& sig)
{
    return sig.find("range") != sig.npos ? Kind::Range : sig.find("even") != sig.npos ? Kind::Even : Kind::Spec;
}

#define PVX_HIST_MEMBER(sig, S, D, desc, exportName)                                 \
    HistMember{{#exportName, #desc, kindOf(#sig), sizeof(S)}, kTypeCode<S>,          \
               [](int path, const HistCall& c) { return invoke<S>(PVX_PATH_FN(exportName, path), c); }},

const std::vector<HistMember>& histMembers()
{
    static const std::vector<HistMember> members = {PVX_MEMBERS_HistogramRange(PVX_HIST_MEMBER)
                                                        PVX_MEMBERS_HistogramEven(PVX_HIST_MEMBER)
                                                            PVX_MEMBERS_Histogram(PVX_HIST_MEMBER)};
    return members;
}

// Range of the data (32f: of most values and levels).
std::pair<double, double> valueRange(int type)
{
    return {type == pvx16s ? -32768 : type == pvx32f ? -1000 : 0,
            type == pvx8u ? 255 : type == pvx16u ? 65535 : type == pvx16s ? 32767 : 1000};
}

// Levels of HistogramEven in closed form.
std::vector<double> evenLevels(int nLevels, std::int64_t lower, std::int64_t upper)
{
    const std::int64_t n = nLevels - 1, d = upper - lower, q = d / n, r = d % n;
    std::vector<double> v;
    for (std::int64_t k = 0; k <= n; ++k)
        v.push_back(double(lower + k * q + (q >= 0 && r > 0 ? std::min(k, r) : 0) - (q < 0 ? std::min(k, -r) : 0)));
    return v;
}

// Levels for `mode`: 0 a few increasing, 1 many increasing (each 8u value
// its own bin; over 102 for 32f), 2 with repeats, 3 in any order (sometimes
// over 128 bins; NaN for 32f), reaching beyond the data range; fractional
// for 32f and for specifications.
std::vector<double> makeLevels(int type, bool fractional, int mode, Rng& rng)
{
    const auto [lo, hi] = valueRange(type);
    std::vector<double> v;
    for (int k = 0; mode == 1 && type == pvx8u && !fractional && k <= 256; ++k)
        v.push_back(k);
    const int count = mode == 1 ? 150 + rng.below(150) : mode == 3 && rng.below(2) ? 200 : 2 + rng.below(14);
    while (int(v.size()) < count) {
        const double x = lo + (hi - lo) * (rng.below(9000) / 8000.0 - 1 / 16.0);
        v.push_back(fractional ? std::floor(x * 8) / 8 : std::floor(x));
    }
    if (mode == 3) {
        v[rng.below(unsigned(v.size()))] = type == pvx32f && rng.below(2) ? NAN : v[0];
        std::swap(v[0], v[1]);
        return v;
    }
    std::sort(v.begin(), v.end());
    v.erase(std::unique(v.begin(), v.end()), v.end());
    if (v.size() < 2)
        v.push_back(v[0] + 1);
    for (std::size_t k = 1; mode == 2 && k + 1 < v.size(); k += 3)
        v[k] = v[k - 1];
    return v;
}

// HistogramEven bounds for `mode`: 0 upward, 1 the data range in 256 bins,
// 2 downward, 3 fewer steps than intervals (q = 0, r of either sign).
void evenBounds(int type, int mode, Rng& rng, int& n, Pvx32s& lower, Pvx32s& upper)
{
    const auto [lo, hi] = valueRange(type);
    const unsigned half = unsigned(hi - lo) / 2;
    const int a = int(lo) - 20 + int(rng.below(half)), b = int(hi) + 20 - int(rng.below(half));
    n = mode == 1 ? 257 : 2 + int(rng.below(20));
    lower = mode == 1 ? int(lo) : mode == 2 ? b : a;
    upper = mode == 1 ? int(hi) + 1 : mode == 2 ? a : mode == 3 ? a + int(rng.below(2u * unsigned(n))) - n + 1 : b;
}

std::vector<Pvx8u> initSpec(int path, int type, int channels, const float* const* levels, const int* n)
{
    int size = 0, buffer = 0;
    EXPECT_EQ(PVX_PATH_FN(pvxiHistogramGetBufferSize, path)(PvxDataType(type), {1, 1}, n, channels, 0, &size, &buffer),
              pvxStsOk);
    std::vector<Pvx8u> spec(static_cast<std::size_t>(size));
    EXPECT_EQ(PVX_PATH_FN(pvxiHistogramInit, path)(PvxDataType(type), levels, n, channels, spec.data()), pvxStsOk);
    return spec;
}

// A source image, levels and bins per channel (each array between
// canaries), and for Histogram members the specification.
struct HistRig {
    static constexpr Pvx32s kCanary = 0x5a5a5a5a;
    const HistMember& m;
    Descriptor d;
    int channels;
    std::unique_ptr<TestImage> src;
    std::vector<double> want[4], values[4];  // levels counted with; the pixels
    std::vector<Pvx32s> hist[4], ilev[4];
    std::vector<Pvx32f> flev[4];
    std::vector<Pvx8u> spec;
    HistCall call;

    HistRig(const HistMember& member, int path, const Shape& s, int mode, Rng& rng)
        : m(member), d(parseDescriptor(member.descriptor)), channels(d.src.used)
    {
        const float* init[4] = {};
        for (int c = 0; c < channels; ++c) {
            if (m.kind == Kind::Even) {
                evenBounds(m.type, (mode + c) % 4, rng, call.nLevels[c], call.lower[c], call.upper[c]);
                want[c] = evenLevels(call.nLevels[c], call.lower[c], call.upper[c]);
            } else {
                const bool spec = m.kind == Kind::Spec;
                want[c] = makeLevels(m.type, spec || m.type == pvx32f, (mode + c) % (spec ? 2 : 4), rng);
                call.nLevels[c] = int(want[c].size());
            }
            const std::size_t n = want[c].size();
            hist[c].assign(n + 1, kCanary);  // n - 1 bins between two canaries
            ilev[c].assign(n + 2, kCanary);
            flev[c].assign(n + 2, Pvx32f(kCanary));
            for (std::size_t k = 0; k < n && m.kind != Kind::Even; ++k)
                ilev[c][k + 1] = Pvx32s(want[c][k]), flev[c][k + 1] = Pvx32f(want[c][k]);
            call.hist[c] = &hist[c][1];
            call.levels[c] = m.type == pvx32f ? static_cast<void*>(&flev[c][1]) : &ilev[c][1];
            init[c] = &flev[c][1];
        }
        if (m.kind == Kind::Spec) {
            spec = initSpec(path, m.type, channels, init, call.nLevels);
            call.spec = spec.data();
            for (int c = 0; c < channels && m.type != pvx32f; ++c)
                for (double& v : want[c])
                    v = std::trunc(v);
        }
        src = std::move(makeImages(d.src, m.elem, s, true, rng)[0]);
        call.src = src->origin();
        call.step = src->step();
        call.roi = {s.width, s.height};
        fillSource(rng);
    }

    // Values: random, at or next to a level of their channel, or (32f) NaN,
    // infinities and zeros of either sign; very long rows repeat one value.
    void fillSource(Rng& rng)
    {
        const auto [lo, hi] = valueRange(m.type);
        const double specials[] = {NAN, INFINITY, -INFINITY, -0.0, 0.0};
        for (int y = 0; y < call.roi.height; ++y)
            for (int x = 0; x < call.roi.width; ++x)
                for (int c = 0; c < channels; ++c) {
                    const unsigned pick = rng.below(8);
                    const double level = want[c][rng.below(unsigned(want[c].size()))];
                    double v = lo + std::floor((hi - lo + 1) * (rng.below(1u << 20) / double(1u << 20)));
                    if (call.roi.width >= 4096)  // wraps lane counters that keep no more than 255
                        v = std::isfinite(want[c][0]) ? std::min(std::max(want[c][0], lo), hi) : lo;
                    else if (m.type == pvx32f && pick == 3)
                        v = specials[rng.below(5)];
                    else if (m.type == pvx32f && pick < 3 && std::isfinite(level))
                        v = pick == 1 ? float(level) : std::nextafter(float(level), pick ? INFINITY : -INFINITY);
                    else if (pick < 3 && level + pick - 1 >= lo && level + pick - 1 <= hi)
                        v = level + pick - 1;
                    const float f = float(v);
                    const std::int32_t i = std::int32_t(std::isfinite(v) ? v : 0);
                    unsigned char* p = src->at(y, (std::size_t(x) * std::size_t(d.src.pixel) + std::size_t(c)) * m.elem);
                    std::memcpy(p, m.type == pvx32f ? static_cast<const void*>(&f) : &i, m.elem);  // low bytes
                    values[c].push_back(m.type == pvx32f ? f : v);
                }
    }

    // Every bin counts the pixels of its own interval [level k, level k+1).
    void expectResult() const
    {
        for (int c = 0; c < channels; ++c) {
            std::vector<Pvx32s> h(hist[c].size(), kCanary), lv(ilev[c]);
            for (std::size_t k = 0; k + 1 < want[c].size(); ++k) {
                h[k + 1] = 0;
                for (double v : values[c])
                    h[k + 1] += want[c][k] <= v && v < want[c][k + 1];
            }
            for (std::size_t k = 0; m.kind == Kind::Even && k < want[c].size(); ++k)
                lv[k + 1] = Pvx32s(want[c][k]);
            EXPECT_EQ(hist[c], h) << "channel " << c;
            EXPECT_EQ(ilev[c], lv) << "levels of channel " << c;
        }
    }
};

class HistogramTest : public MemberTest<HistMember> {
protected:
    PvxStatus call(const HistCall& c) const { return member().call(path(), c); }
};

// Odd widths, padded and contiguous rows, every level mode on each; long
// rows of one value; last rows against a guard page.
TEST_P(HistogramTest, MatchesReference)
{
    std::vector<Shape> shapes;
    for (int w : {1, 3, 15, 17, 65, 130})
        for (int k = 0; k < 4; ++k)
            shapes.push_back({w, 1 + k, k == 3 ? 0 : 4 * k + 2, 0, 1, 1, unsigned(5 * k + w) % 16});
    shapes.push_back({4096, 2, 0, 0, 1, 1, 0});
    for (const Shape& s : guardShapes())
        shapes.push_back(s);
    for (std::size_t i = 0; i < shapes.size(); ++i) {
        SCOPED_TRACE(describe(shapes[i]) + " mode " + std::to_string(i % 4));
        Rng rng(i * 7919 + 17);
        HistRig rig(member(), path(), shapes[i], int(i % 4), rng);
        const Bytes before = rig.src->contents();
        EXPECT_EQ(call(rig.call), pvxStsOk);
        rig.expectResult();
        EXPECT_TRUE(rig.src->matches(before, "source (must not be written)"));
    }
}

// Each case applies its edits to a valid call: the first failing check in
// the family's order gives the status, and a failing call writes nothing.
TEST_P(HistogramTest, ArgumentChecks)
{
    Rng rng(5);
    HistRig rig(member(), path(), Shape{5, 2, 4, 4}, 0, rng);
    const int last = rig.channels - 1, type = member().type;
    const bool multi = rig.d.src.pixel > 1;
    using Edit = std::function<void(HistCall&)>;
    const Edit nullSrc = [](HistCall& c) { c.src = nullptr; }, badSize = [](HistCall& c) { c.roi.height = 0; },
               badStep = [](HistCall& c) { c.step = 0; }, nullHist = [=](HistCall& c) { c.hist[last] = nullptr; },
               oneLevel = [=](HistCall& c) { c.nLevels[last] = 1; };
    std::vector<std::pair<PvxStatus, std::vector<Edit>>> cases = {
        {pvxStsNullPtrErr, {nullSrc, badSize}}, {pvxStsNullPtrErr, {nullHist, badSize, badStep}},
        {multi ? pvxStsNullPtrErr : pvxStsSizeErr, {[](HistCall& c) { c.nullArrays = 1; }, badSize}},
        {pvxStsSizeErr, {badSize, badStep}}};
    const float lv[2] = {0, 1}, *lvs[4] = {lv, lv, lv, lv};
    const int n[4] = {2, 2, 2, 2};
    const std::vector<Pvx8u> blank(4096, 0),
        otherType = initSpec(path(), type == pvx8u ? pvx16u : pvx8u, rig.channels, lvs, n),
        otherChannels = initSpec(path(), type, rig.channels == 1 ? 3 : 1, lvs, n);
    if (member().kind != Kind::Spec) {
        cases.push_back({pvxStsNullPtrErr, {[=](HistCall& c) { c.levels[last] = nullptr; }, badSize}});
        cases.push_back({multi ? pvxStsHistoNofLevelsErr : pvxStsSizeErr, {oneLevel, badSize}});
        cases.push_back({multi ? pvxStsHistoNofLevelsErr : pvxStsStepErr, {oneLevel, badStep}});
        cases.push_back({pvxStsStepErr, {badStep}});
        cases.push_back({pvxStsHistoNofLevelsErr, {oneLevel}});
        if (multi)  // channel by channel: the count of channel 0 before the pointers of the last
            cases.push_back({pvxStsHistoNofLevelsErr, {[](HistCall& c) { c.nLevels[0] = -1; }, nullHist}});
        for (unsigned bit = 2; multi && bit <= (member().kind == Kind::Even ? 16u : 4u); bit *= 2)
            cases.push_back({pvxStsNullPtrErr, {[bit](HistCall& c) { c.nullArrays = bit; }, badSize}});
    } else {
        const auto use = [](const std::vector<Pvx8u>& s) { return [p = s.data()](HistCall& c) { c.spec = p; }; };
        const int rowBytes = 5 * rig.d.src.pixel * int(member().elem);
        const Edit shortStep = [rowBytes](HistCall& c) { c.step = rowBytes - 1; };
        cases.push_back({pvxStsNullPtrErr, {[](HistCall& c) { c.spec = nullptr; }, badSize}});
        cases.push_back({pvxStsStepErr, {use(blank), shortStep}});
        cases.push_back({pvxStsBadArgErr, {use(blank)}});
        cases.push_back({pvxStsBadArgErr, {use(otherType)}});
        cases.push_back({pvxStsBadArgErr, {use(otherChannels)}});
    }
    const auto hist = rig.hist, ilev = rig.ilev;
    for (std::size_t i = 0; i < cases.size(); ++i) {
        HistCall c = rig.call;
        for (const Edit& e : cases[i].second)
            e(c);
        EXPECT_EQ(call(c), cases[i].first) << "case " << i;
    }
    for (int k = 0; k < 4; ++k)
        EXPECT_TRUE(rig.hist[k] == hist[k] && rig.ilev[k] == ilev[k]) << "written by a failing call";
}

INSTANTIATE_TEST_SUITE_P(Stats, HistogramTest, ::testing::ValuesIn(onEveryPath(histMembers())), CaseName());

TEST(HistogramRegistration, EveryMemberOnEveryPath)
{
    const std::vector<std::string> names = namesOf(histMembers());
    EXPECT_EQ(names.size(), 16u + 12u + 12u);
    expectEveryCaseRegistered("Stats/HistogramTest", {"MatchesReference", "ArgumentChecks"}, names);
}

// The documented HistogramEven levels; HistogramUniformInit spacing integer
// levels like HistogramEven and float levels evenly.
TEST(HistogramLevels, EvenExamplesAndUniformInit)
{
    struct Example {
        int n;
        Pvx32s lower, upper;
        std::vector<Pvx32s> levels, hist;  // hist of the pixels below, if given
    };
    const Example examples[] = {{5, 0, 10, {0, 3, 6, 8, 10}, {}},
                                {5, 0, 256, {0, 64, 128, 192, 256}, {5, 0, 0, 1}},  // 255 in the last bin
                                {5, 10, 8, {10, 10, 10, 10, 10}, {0, 0, 0, 0}},
                                {5, 10, -1, {10, 7, 4, 1, -1}, {}},
                                {3, INT_MIN, INT_MAX, {INT_MIN, 0, INT_MAX}, {}}};
    const Pvx8u pixels[] = {0, 255, 8, 9, 10, 3};
    const auto uniform = [](int path, int type, float lower, float upper, int n) {
        std::vector<Pvx8u> spec(4096);
        std::vector<float> levels(std::size_t(n) + 1, -7.0f);
        float* const dst[1] = {levels.data()};
        EXPECT_EQ(PVX_PATH_FN(pvxiHistogramUniformInit, path)(PvxDataType(type), &lower, &upper, &n, 1, spec.data()),
                  pvxStsOk);
        EXPECT_EQ(PVX_PATH_FN(pvxiHistogramGetLevels, path)(spec.data(), dst), pvxStsOk);
        EXPECT_EQ(levels.back(), -7.0f) << "written past the levels";
        levels.pop_back();
        return levels;
    };
    for (int path = 0; path < PVX_PATH_COUNT; ++path) {
        for (const Example& e : examples) {
            std::vector<Pvx32s> levels(std::size_t(e.n)), hist(std::size_t(e.n - 1));
            ASSERT_EQ(PVX_PATH_FN(pvxiHistogramEven_8u_C1R, path)(pixels, 6, {6, 1}, hist.data(), levels.data(), e.n,
                                                                  e.lower, e.upper), pvxStsOk);
            EXPECT_EQ(levels, e.levels) << e.lower << ".." << e.upper;
            EXPECT_TRUE(e.hist.empty() || hist == e.hist) << e.lower << ".." << e.upper;
        }
        for (int type : {pvx8u, pvx16u, pvx16s})
            for (const Example& e : {examples[0], examples[1]})
                EXPECT_EQ(uniform(path, type, float(e.lower) + 0.75f, float(e.upper) + 0.5f, e.n),
                          std::vector<float>(e.levels.begin(), e.levels.end()));
        EXPECT_EQ(uniform(path, pvx32f, -1, 2, 4), (std::vector<float>{-1, 0, 1, 2}));
        const std::vector<float> tenths = uniform(path, pvx32f, 0, 1, 11);
        for (int k = 0; k <= 10; ++k)
            EXPECT_EQ(tenths[std::size_t(k)], float(k / 10.0));
    }
}

// The layout from the first 64-byte-aligned address, nothing written
// outside the size GetBufferSize returns, and levels round trip.
TEST(HistogramSpecification, LayoutAndRoundTrip)
{
    Rng rng(3);
    for (int path = 0; path < PVX_PATH_COUNT; ++path)
        for (int type : {pvx8u, pvx16u, pvx16s, pvx32f})
            for (int channels : {1, 3, 4}) {
                SCOPED_TRACE("path " + std::to_string(path) + " type " + std::to_string(type) + " channels " +
                             std::to_string(channels));
                std::vector<float> levels[4], back[4];
                const float* lv[4] = {};
                float* dst[4] = {};
                int n[4] = {}, size = 0, buffer = 0;
                for (int c = 0; c < channels; ++c) {
                    for (int k = 0; k < 2 + 3 * c; ++k)
                        levels[c].push_back(-3.75f + 2.5f * float(k * (c + 1)));
                    lv[c] = levels[c].data();
                    n[c] = int(levels[c].size());
                    back[c].assign(levels[c].size() + 1, 99.0f);
                    dst[c] = back[c].data();
                }
                ASSERT_EQ(PVX_PATH_FN(pvxiHistogramGetBufferSize, path)(PvxDataType(type), {9, 9}, n, channels, 1,
                                                                        &size, &buffer), pvxStsOk);
                const unsigned offset = rng.below(64);
                TestImage img(std::size_t(size), 1, size, offset, false, rng);
                Bytes want = img.contents();
                ASSERT_EQ(PVX_PATH_FN(pvxiHistogramInit, path)(PvxDataType(type), lv, n, channels, img.origin()),
                          pvxStsOk);
                std::memcpy(&want[img.indexOf(0, 0)], img.origin(), std::size_t(size));
                EXPECT_TRUE(img.matches(want, "around the specification"));
                const unsigned char* a = img.origin() + (64 - offset) % 64;
                std::int32_t w[8];
                const unsigned char* lists[4];
                std::memcpy(w, a, sizeof w);
                std::memcpy(lists, a + 32, sizeof lists);
                EXPECT_EQ(std::vector<std::int32_t>(w, w + 4), (std::vector<std::int32_t>{type, channels, 0, 0x74736968}));
                for (int c = 0; c < 4; ++c) {
                    EXPECT_EQ(w[4 + c], n[c]);
                    EXPECT_TRUE(c < channels ? lists[c] == (c ? lists[c - 1] + 4 * n[c - 1] : a + 32 + sizeof lists)
                                             : lists[c] == nullptr);
                }
                ASSERT_EQ(PVX_PATH_FN(pvxiHistogramGetLevels, path)(img.origin(), dst), pvxStsOk);
                for (int c = 0; c < channels; ++c) {
                    std::vector<float> expect(lv[c], lv[c] + n[c]);
                    for (float& v : expect)
                        v = type == pvx32f ? v : std::trunc(v);
                    expect.push_back(99.0f);
                    EXPECT_EQ(back[c], expect);
                    std::int32_t i;
                    std::memcpy(&i, lists[c], 4);  // integer levels are stored as integers
                    EXPECT_TRUE(type == pvx32f || i == std::int32_t(expect[0]));
                }
            }
}

// The size query, the initialisers and GetLevels check in their orders (the
// initialisers look at the data type before the pointers; a missing tag is
// a bad argument) and write nothing when they fail.
TEST(HistogramSpecification, ChecksInOrder)
{
    const float lv[3] = {0, 1, 2}, flat[3] = {0, 1, 1}, nanLv[3] = {0, NAN, 2}, lo[4] = {0, 0, 0, 0},
                hi[4] = {1, 1, 1, 1}, inf[4] = {INFINITY, 1, 1, 1};
    const float *lvs[4] = {lv, lv, lv, lv}, *flats[4] = {lv, flat, lv, lv}, *nans[4] = {lv, nanLv, lv, lv},
                *holes[4] = {lv, lv, nullptr, lv};
    const int n[4] = {3, 3, 3, 3}, n1[4] = {3, 3, 1, 3}, huge[4] = {INT_MAX / 4, INT_MAX / 4, 3, 3};
    for (int path = 0; path < PVX_PATH_COUNT; ++path) {
        const auto size = PVX_PATH_FN(pvxiHistogramGetBufferSize, path);
        const auto init = PVX_PATH_FN(pvxiHistogramInit, path);
        const auto uniform = PVX_PATH_FN(pvxiHistogramUniformInit, path);
        const auto get = PVX_PATH_FN(pvxiHistogramGetLevels, path);
        std::vector<Pvx8u> spec(4096, 0x77);
        Pvx8u* s = spec.data();
        int a = -1, b = -1;
        const PvxDataType t8 = pvx8u, bad = PvxDataType(2);
        const std::pair<PvxStatus, PvxStatus> cases[] = {
            {size(t8, {0, 1}, nullptr, 5, 0, &a, &b), pvxStsNullPtrErr},
            {size(t8, {0, 1}, n, 5, 0, &a, nullptr), pvxStsNullPtrErr},
            {size(t8, {0, 1}, n1, 5, 0, &a, &b), pvxStsSizeErr},
            {size(t8, {1, 1}, n1, 2, 0, &a, &b), pvxStsNumChannelsErr},
            {size(t8, {1, 1}, n1, 3, 0, &a, &b), pvxStsHistoNofLevelsErr},
            {size(t8, {1, 1}, huge, 4, 0, &a, &b), pvxStsSizeErr},
            {init(bad, nullptr, nullptr, 5, nullptr), pvxStsDataTypeErr},
            {init(PvxDataType(pvx64f), lvs, n, 1, s), pvxStsDataTypeErr},
            {init(t8, lvs, n, 2, nullptr), pvxStsNullPtrErr},
            {init(t8, lvs, n, 2, s), pvxStsNumChannelsErr},
            {init(t8, holes, n1, 3, s), pvxStsNullPtrErr},
            {init(t8, lvs, n1, 4, s), pvxStsHistoNofLevelsErr},
            {init(pvx32f, flats, n, 3, s), pvxStsRangeErr},
            {init(pvx32f, nans, n, 4, s), pvxStsRangeErr},
            {uniform(bad, nullptr, hi, n, 1, s), pvxStsDataTypeErr},
            {uniform(t8, lo, nullptr, n, 0, s), pvxStsNullPtrErr},
            {uniform(t8, lo, hi, n, 0, s), pvxStsNumChannelsErr},
            {uniform(t8, hi, lo, n1, 3, s), pvxStsRangeErr},
            {uniform(t8, lo, hi, n1, 3, s), pvxStsHistoNofLevelsErr},
            {uniform(pvx32f, lo, inf, n, 1, s), pvxStsRangeErr},
            {uniform(pvx32f, lo, lo, n, 1, s), pvxStsRangeErr},
            {get(nullptr, nullptr), pvxStsNullPtrErr},
            {get(s, nullptr), pvxStsNullPtrErr},
        };
        for (std::size_t i = 0; i < std::size(cases); ++i)
            EXPECT_EQ(cases[i].first, cases[i].second) << "case " << i << " path " << path;
        EXPECT_TRUE(a == -1 && b == -1 && spec == std::vector<Pvx8u>(4096, 0x77)) << "written by a failing call";
        float out[3][3] = {};
        float* dst[3] = {out[0], out[1], out[2]};
        EXPECT_EQ(get(s, dst), pvxStsBadArgErr) << "no tag";
        ASSERT_EQ(init(pvx16s, lvs, n, 3, s), pvxStsOk);
        dst[2] = nullptr;
        EXPECT_EQ(get(s, dst), pvxStsNullPtrErr) << "a channel's destination, after the tag";
        EXPECT_EQ(out[0][2], 0.0f) << "written by a failing call";
    }
}

}  // namespace
