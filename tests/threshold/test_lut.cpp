// LUT, LUT_Linear, LUT_Cubic, LUTPalette, LUTPaletteSwap: every member on
// every code path against a scalar reference written from the mapping rules,
// on random functions (unordered levels, levels and values beyond the type,
// one-entry intervals) and random palettes; the check orders.
#include <algorithm>

#include "threshold/threshold_rig.h"

namespace {

using namespace pvxtest;

// ---------------------------------------------------------------- reference

// Determinant by cofactors of the first row (n x n, rows in order).
double det(const std::vector<double>& m, int n)
{
    if (n == 1)
        return m[0];
    double r = 0;
    for (int c = 0; c < n; ++c) {
        std::vector<double> minor;
        for (int i = n; i < n * n; ++i)
            if (i % n != c)
                minor.push_back(m[i]);
        r += (c % 2 ? -m[c] : m[c]) * det(minor, n - 1);
    }
    return r;
}

// Interval k as ((a t + b) t + c) t + d in t = x - origin: the line, or (kind
// 2, four levels or more) the cubic through points j..j+3, j = k - 1 kept
// within 0..n-4, by Cramer's rule in t = x - level j+1 (four points with a
// repeated level give the line). `half` is the 0.5 of the integer rule,
// whose line is x * slope + offset; 32f lines are value k + t * slope.
struct Poly {
    double origin, a, b, c, d;
    double at(double x) const { return ((a * (x - origin) + b) * (x - origin) + c) * (x - origin) + d; }
};

template <class V>
Poly curve(const std::vector<V>& l, const std::vector<V>& v, int kind, int k, double half)
{
    const int n = static_cast<int>(l.size()), j = std::min(std::max(k - 1, 0), n - 4);
    std::vector<double> m(16);
    for (int i = 0; i < 16 && kind == 2 && n >= 4; ++i)
        m[i] = std::pow(double(l[j + i / 4]) - double(l[j + 1]), 3 - i % 4);
    const double dm = det(m, 4);
    if (kind == 2 && n >= 4 && dm != 0) {
        double c[4];
        for (int col = 0; col < 4; ++col) {
            std::vector<double> mc = m;
            for (int i = 0; i < 4; ++i)
                mc[i * 4 + col] = v[j + i];
            c[col] = det(mc, 4) / dm;
        }
        return {double(l[j + 1]), c[0], c[1], c[2], half != 0 ? c[3] + half : c[3]};
    }
    const double slope = (double(v[k + 1]) - double(v[k])) / (double(l[k + 1]) - double(l[k]));
    return half != 0 ? Poly{0, 0, 0, slope, double(v[k]) + half - double(l[k]) * slope} : Poly{double(l[k]), 0, 0, slope, double(v[k])};
}

// A random function: 2..8 levels (2..10 cubic) from below the range, mostly
// rising with one-entry steps, sometimes unordered; values beyond the range.
// 32f levels are shifted by a quarter on odd k. With every interval's
// polynomial for the integer and for the 32f rule.
struct Function {
    int kind;
    std::vector<int> li, vi;
    std::vector<float> lf, vf;
    std::vector<Poly> pi, pf;
    Function(int k, long long lo, long long hi, Rng& rng) : kind(k)
    {
        const int n = 2 + int(rng.below(kind == 2 ? 9 : 7));
        const long long span = hi - lo + 1, from = lo - span / 8;
        const bool unordered = rng.below(4) == 0;
        for (long long i = 0, l = from + rng.below(unsigned(span / 4)); i < n; ++i) {
            li.push_back(int(l)), lf.push_back(float(l) + (i % 2 ? 0.25f : 0.0f));
            vi.push_back(int(from + rng.below(unsigned(span + span / 4)))), vf.push_back(float(vi.back()) * 0.75f);
            l = unordered ? from + rng.below(unsigned(span + span / 4)) : l + 1 + (rng.below(3) ? rng.below(unsigned(span * 2 / n)) : 0);
        }
        for (int i = 0; i + 1 < n && kind; ++i)
            pi.push_back(curve(li, vi, kind, i, 0.5)), pf.push_back(curve(lf, vf, kind, i, 0.0));
    }
};

// Integer types, the table's entry x: the identity; every interval with
// level k < level k+1, in increasing k, over its entries (bounds clamped to
// the type, the upper one to its maximum + 1): value k (clamped) when
// constant or one entry long, else the polynomial truncated and clamped;
// the identity from the last level up.
long long mapInt(const Function& f, Type type, long long x)
{
    const long long lo = static_cast<long long>(lowest(type)), hi = static_cast<long long>(highest(type));
    const auto clamp = [](double y, long long a, long long b) { return !(y > a) ? a : y > b ? b : static_cast<long long>(y); };
    long long e = x;
    for (std::size_t k = 0; k + 1 < f.li.size(); ++k) {
        const long long a = clamp(f.li[k], lo, hi), b = clamp(f.li[k + 1], lo, hi + 1);
        if (f.li[k] < f.li[k + 1] && x >= a && x < b)
            e = f.kind == 0 || b - a == 1 ? clamp(f.vi[k], lo, hi) : clamp(std::trunc(f.pi[k].at(double(x))), lo, hi);
    }
    return x >= f.li.back() ? x : e;
}

// 32f: the first interval holding x, in double, rounded once; below level 0,
// from the last level up, NaN: x itself.
float mapFloat(const Function& f, float x)
{
    for (std::size_t k = 0; x >= f.lf[0] && x < f.lf.back() && k + 1 < f.lf.size(); ++k)
        if (x >= f.lf[k] && x < f.lf[k + 1])
            return f.kind == 0 ? f.vf[k] : static_cast<float>(f.pf[k].at(x));
    return x;
}

// ---------------------------------------------------------------- LUT

class LutTest : public MemberTest {
protected:
    const int kind = std::strstr(m.name, "_Cubic_") ? 2 : std::strstr(m.name, "_Linear_") ? 1 : 0;
    const int size = m.srcSize;
    const void* values[4] = {};  // unmapped channels: null and no count
    const void* levels[4] = {};
    int counts[4] = {};

    // Values, levels and counts: arrays of one entry per channel, or (C1)
    // channel 0's own.
    Call call(const Frame& f) const
    {
        Call c = f.call();
        const bool one = d.src.pixel == 1;
        c.arg[0] = one ? values[0] : values;
        c.arg[1] = one ? levels[0] : levels;
        c.arg[2] = counts;
        c.num = counts[0];
        return c;
    }
};

// Odd widths, padded steps, misaligned destinations, guard pages; both sides
// of the 16-bit table's 4096 pixels; 8u images of 1 MiB and more (pair
// tables); one image passed twice.
TEST_P(LutTest, MatchesReference)
{
    std::vector<Shape> shapes = rigShapes();
    shapes.insert(shapes.end(), {{64, 64, 0, 8, 1, 1, 3}, {65, 64, 0, 0, 1, 1, 0}, {130, 33, 6, 2, 1, 1, 7}});
    if (m.type == Type::U8)
        shapes.insert(shapes.end(), {{1031, 1020, 5, 3, 1, 1, 9}, {1024, 1025, 0, 0, 1, 1, 0, true}});
    const long long lo = m.type == Type::F32 ? -40 : static_cast<long long>(lowest(m.type));
    const long long hi = m.type == Type::F32 ? 300 : static_cast<long long>(highest(m.type));
    for (unsigned i = 0; i < shapes.size(); ++i) {
        const Shape& s = shapes[i];
        const bool twice = i % 5 == 4 && !d.inPlace;
        SCOPED_TRACE(describe(s) + (twice ? " one image twice" : ""));
        Rng rng(1000 + i * 31 + path);
        const Frame f = frame(s, rng);
        TestImage& in = twice ? f.dst() : *f.img[0];
        for (int y = 0; y < s.height; ++y)  // 32f: mostly within the levels
            for (int x = 0; x < s.width * d.src.pixel && m.type == Type::F32; ++x)
                rng.below(8) ? put(m.type, in.at(y, std::size_t(x) * 4), double(lo) + rng.below(3400) * 0.1)
                             : randomElement(m.type, in.at(y, std::size_t(x) * 4), rng);
        std::vector<Function> fn;
        std::vector<std::vector<long long>> table(4);
        for (int c = 0; c < d.src.used; ++c) {
            fn.emplace_back(kind, lo, hi, rng);
            values[c] = m.type == Type::F32 ? static_cast<const void*>(fn[c].vf.data()) : fn[c].vi.data();
            levels[c] = m.type == Type::F32 ? static_cast<const void*>(fn[c].lf.data()) : fn[c].li.data();
            counts[c] = static_cast<int>(fn[c].li.size());
            for (int x = 0; x < 256 && m.type == Type::U8; ++x)  // 8u: the reference tabulated
                table[c].push_back(mapInt(fn[c], m.type, x));
        }
        Call c = call(f);
        if (twice)
            c.img[0] = f.dst().origin(), c.step[0] = f.dst().step();
        expectReference(m, path, f, c, d.src.pixel * size, [&](int y, int x, unsigned char* want) {
            for (int ch = 0; ch < d.src.used; ++ch) {
                const unsigned char* p = in.at(y, std::size_t(x * d.src.pixel + ch) * size);
                float r;
                if (m.type == Type::F32)  // bit for bit: NaN payloads too
                    std::memcpy(&r, p, 4), r = mapFloat(fn[ch], r), std::memcpy(want + ch * 4, &r, 4);
                else
                    put(m.type, want + ch * size,
                        m.type == Type::U8 ? table[ch][*p] : mapInt(fn[ch], m.type, static_cast<long long>(get(m.type, p))));
            }
        });
    }
}

// Pointers (arrays, their mapped entries, the counts), size, steps, then a
// mapped channel's count below 2.
TEST_P(LutTest, CheckOrder)
{
    Rng rng(5);
    const Frame f = frame(Shape{3, 2, 4, 4, 1, 1, 1}, rng);
    const int li[2] = {0, 1};
    const float lf[2] = {0, 1};
    for (int c = 0; c < d.src.used; ++c) {
        values[c] = levels[c] = m.type == Type::F32 ? static_cast<const void*>(lf) : li;
        counts[c] = 2;
    }
    const void* holes[4];
    int fewer[4];
    const Fault nullPointer{pvxStsNullPtrErr, [&](Call& c, unsigned p) {
                                if (p % 3 == 0)
                                    return nullImage.apply(c, p / 3);
                                if (d.src.pixel == 1 || p % 3 == 1)
                                    return void(c.arg[p / 3 % (d.src.pixel == 1 ? 2 : 3)] = nullptr);
                                std::memcpy(holes, p / 3 % 2 ? values : levels, sizeof holes);
                                holes[p / 6 % d.src.used] = nullptr;
                                c.arg[p / 3 % 2 ? 0 : 1] = holes;
                            }};
    const Fault fewLevels{pvxStsLUTNofLevelsErr, [&](Call& c, unsigned p) {
                              std::copy(counts, counts + 4, fewer);
                              fewer[p % d.src.used] = p / 4 % 2 ? 1 : -5;
                              c.arg[2] = fewer, c.num = fewer[0];
                          }};
    expectCheckOrder(m, path, f, call(f), {nullPointer, badSize, stepBelowOne, fewLevels});
}

INSTANTIATE_TEST_SUITE_P(Threshold, LutTest, ::testing::ValuesIn(casesOf({PVX_MEMBERS_LUT(PVX_RIG_MEMBER)})), CaseName());

// ---------------------------------------------------------------- palettes

class PaletteTest : public MemberTest {
protected:
    const bool swap = std::strstr(m.name, "Swap") != nullptr;
    const int srcRow = d.src.pixel * m.srcSize, dstRow = d.dst.pixel * m.dstSize;  // bytes per pixel
    const int maxBits = 8 * m.srcSize;
    std::vector<Bytes> palettes = std::vector<Bytes>(4, Bytes(std::size_t(65536) * m.dstSize));
    const void* tables[4] = {palettes[0].data(), palettes[1].data(), palettes[2].data(), palettes[3].data()};

    Call call(const Frame& f, int bits) const
    {
        Call c = f.call();
        c.arg[0] = d.src.pixel == 1 ? tables[0] : static_cast<const void*>(tables);
        c.num = bits;
        return c;
    }
};

// Source channel c through palette c (its low bits) to destination channel
// c, or 2 - c (Swap); C3A0C4 sets channel 3 to 0, AC4 keeps alpha.
TEST_P(PaletteTest, MatchesReference)
{
    std::vector<Shape> shapes = rigShapes();
    if (m.srcSize == 1 && m.dstSize == 1)
        shapes.push_back({1031, 1020, 5, 3, 1, 1, 9});  // pair tables
    for (unsigned i = 0; i < shapes.size(); ++i) {
        Rng rng(77 + i);
        const int bits = i == 0 ? maxBits : 1 + int(rng.below(unsigned(maxBits)));
        for (Bytes& p : palettes)
            rng.fill(p.data(), (std::size_t(1) << bits) * m.dstSize);
        const Frame f = frame(shapes[i], rng);
        SCOPED_TRACE(describe(shapes[i]) + " bits " + std::to_string(bits));
        expectReference(m, path, f, call(f, bits), dstRow, [&](int y, int x, unsigned char* want) {
            for (int c = 0; c < d.src.used; ++c) {
                unsigned v = 0;
                std::memcpy(&v, f.img[0]->at(y, std::size_t(x * srcRow + c * m.srcSize)), m.srcSize);  // little endian
                std::memcpy(want + (swap ? 2 - c : c) * m.dstSize, &palettes[c][(v & ((1u << bits) - 1)) * m.dstSize], m.dstSize);
            }
            if (d.src.pixel == 3 && d.dst.pixel == 4)
                std::memset(want + 3 * m.dstSize, 0, m.dstSize);
        });
    }
}

// Pointers (the palette array and its mapped entries), size, bit size, then a
// step shorter than the row (zero and negative included).
TEST_P(PaletteTest, CheckOrder)
{
    Rng rng(3);
    const Frame f = frame(Shape{5, 2, 8, 8}, rng);
    const void* holes[4];
    const Fault nullPointer{pvxStsNullPtrErr, [&](Call& c, unsigned p) {
                                if (p % 3 == 0 || d.src.pixel == 1)
                                    return p % 3 ? void(c.arg[0] = nullptr) : nullImage.apply(c, p / 3);
                                std::copy(tables, tables + 4, holes);
                                holes[p / 3 % d.src.used] = nullptr;
                                c.arg[0] = p % 3 == 1 ? nullptr : holes;
                            }};
    const Fault badBits{pvxStsOutOfRangeErr, [&](Call& c, unsigned p) { c.num = p % 3 == 0 ? 0 : p % 3 == 1 ? -1 : maxBits + 1; }};
    const Fault shortStep{pvxStsStepErr, [&](Call& c, unsigned p) {
                              const int row = 5 * (p % 2 ? srcRow : dstRow);
                              c.step[p % 2 ? 0 : 1] = p / 2 % 3 == 0 ? row - 1 : p / 2 % 3 == 1 ? 0 : -row;
                          }};
    expectCheckOrder(m, path, f, call(f, maxBits), {nullPointer, badSize, badBits, shortStep});
}

INSTANTIATE_TEST_SUITE_P(Threshold, PaletteTest,
                         ::testing::ValuesIn(casesOf({PVX_MEMBERS_LUTPalette(PVX_RIG_MEMBER)
                                                          PVX_MEMBERS_LUTPaletteSwap(PVX_RIG_MEMBER)})),
                         CaseName());

}  // namespace
