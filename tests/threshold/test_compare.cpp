// Compare, CompareC, CompareEqualEps, CompareEqualEpsC: every member on every
// code path, every operator or several tolerances, against a scalar
// reference on data with many equal pairs; the constants that take the
// short-cuts; cache-bypassing mask stores; the check order.
#include <dlfcn.h>

#include "threshold/threshold_rig.h"

// While `answer` is set, the largest cache is that many bytes (so that a
// 1 MiB image bypasses the cache); otherwise pvxcore answers.
namespace {
int answer = 0;
}
extern "C" PvxStatus PVX_CALL pvxGetMaxCacheSizeB(int* pSizeBytes)
{
    using Fn = PvxStatus(PVX_CALL*)(int*);
    static const Fn core = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "pvxGetMaxCacheSizeB"));
    if (answer == 0)
        return core ? core(pSizeBytes) : pvxStsNotSupportedModeErr;
    *pSizeBytes = answer;
    return pvxStsOk;
}

namespace {

using namespace pvxtest;

class CompareTest : public MemberTest {
protected:
    const bool eps = std::strstr(m.name, "EqualEps") != nullptr, constant = std::strstr(m.name, "C_") != nullptr;
    const int size = m.srcSize;
    unsigned char values[16] = {};
    float tolerance = 0;

    // Source 1, source 2 (two-image forms) and the 8u mask. Source 2 is often
    // equal to source 1, or a step or a quarter away.
    Frame frame(const Shape& s, Rng& rng) const
    {
        Frame f(constant ? std::vector<Frame::Part>{{d.src, size, true}, {Side{}, 1, false}}
                         : std::vector<Frame::Part>{{d.src, size, true}, {d.src, size, true}, {Side{}, 1, false}},
                s, rng);
        fillRandom(*f.img[0], m.type, d.src.pixel, s, rng);
        for (int y = 0; y < s.height && !constant; ++y)
            for (int i = 0; i < s.width * d.src.pixel; ++i) {
                unsigned char *p = f.img[0]->at(y, std::size_t(i * size)), *q = f.img[1]->at(y, std::size_t(i * size));
                const double near = get(m.type, p) + (m.type == Type::F32 ? 0.25 * (1 + rng.below(3)) : 1) * (rng.below(2) ? 1 : -1);
                const unsigned r = rng.below(8);
                randomElement(m.type, q, rng);
                if (r < 3)
                    std::memcpy(q, p, size);  // bit for bit: NaN payloads, -0.0
                else if (r < 5 && std::isfinite(near) && near >= lowest(m.type) && near <= highest(m.type))
                    put(m.type, q, near);
            }
        return f;
    }
    Call call(const Frame& f, int op) const
    {
        Call c = f.call();
        c.arg[0] = constant ? static_cast<const void*>(values) : &tolerance;
        c.arg[1] = &tolerance;
        c.num = op;
        return c;
    }
    // 255 where the test holds in every compared channel.
    void run(const Frame& f, const Call& c)
    {
        const TestImage *a = f.img[0].get(), *b = f.img[1].get();
        expectReference(m, path, f, c, 1, [&](int y, int x, unsigned char* want) {
            bool all = true;
            for (int ch = 0; ch < d.src.used; ++ch) {
                const std::size_t at = static_cast<std::size_t>((x * d.src.pixel + ch) * size);
                const double u = get(m.type, a->at(y, at)), v = get(m.type, constant ? values + ch * size : b->at(y, at));
                volatile float diff = static_cast<float>(u) - static_cast<float>(v);  // in single precision
                const bool ops[] = {u < v, u <= v, u == v, u >= v, u > v};
                all = all && (eps ? std::fabs(diff) <= tolerance : ops[c.num]);
            }
            *want = all ? 255 : 0;
        });
    }
};

// Constant forms also with the type's bounds in every or in one channel,
// which take the short-cuts through Set (or must not).
TEST_P(CompareTest, MatchesReference)
{
    const std::vector<Shape> shapes = rigShapes();
    const float tolerances[] = {0.5f, 0.0f, 0.25f, HUGE_VALF};
    for (unsigned i = 0; i < shapes.size(); ++i) {
        Rng rng(i * 7919 + 3);
        const Frame f = frame(shapes[i], rng);
        for (int op = 0; op < (eps ? 1 : 5); ++op)
            for (int bounds = 0; bounds < (constant ? 5 : 1); ++bounds) {
                for (int ch = 0; ch < 4; ++ch) {  // the first pixel's values, so that equal values occur
                    const double v = get(m.type, f.img[0]->at(0, static_cast<std::size_t>(ch % (shapes[i].width * d.src.pixel) * size)));
                    const bool low = bounds == 1 || (bounds == 3 && ch == 1), high = bounds == 2 || (bounds == 4 && ch == 2);
                    put(m.type, values + ch * size, low ? lowest(m.type) : high ? highest(m.type) : v);
                }
                tolerance = tolerances[(i + op + bounds) % 4];
                SCOPED_TRACE(describe(shapes[i]) + " op " + std::to_string(op) + " bounds " + std::to_string(bounds) +
                             " eps " + std::to_string(tolerance));
                run(f, call(f, op));
            }
    }
}

// Above 1 MiB and at least the largest cache the mask stores bypass the cache
// (from a 16-byte aligned pixel: the destination is misaligned).
TEST_P(CompareTest, LargeImage)
{
    Rng rng(5);
    const Frame f = frame(Shape{1203, (1 << 20) / (1203 * (d.src.pixel * size + 1)) + 2, 5, 3, 1, 1, 9}, rng);
    std::memcpy(values, f.img[0]->at(0, 0), 16 < size * d.src.pixel ? 16 : size * d.src.pixel);
    tolerance = 0.5f;
    answer = 1 << 20;
    run(f, call(f, 1));
    answer = 0;
}

// Pointers (the constant array with them), steps (before the size), size,
// then a negative tolerance; an unknown operator is no error, but nothing is
// written either.
TEST_P(CompareTest, CheckOrder)
{
    Rng rng(11);
    const Frame f = frame(Shape{20, 3, 4, 4, 1, 1, 1}, rng);
    std::vector<Fault> order = {nullImage, stepBelowOne, badSize};
    if (constant && d.src.pixel > 1)
        order[0].apply = [](Call& c, unsigned p) { p % 3 == 2 ? void(c.arg[0] = nullptr) : void(c.img[p % 2] = nullptr); };
    if (eps)
        order.push_back({pvxStsEpsValErr, [this](Call& c, unsigned p) {
                             static const float bad[] = {-0.1f, -HUGE_VALF, -1e-30f};
                             c.arg[constant ? 1 : 0] = &bad[p % 3];
                         }});
    else
        order.push_back({pvxStsOk, [](Call& c, unsigned p) {
                             const int bad[] = {5, -1, INT_MIN, INT_MAX};
                             c.num = bad[p % 4];
                         }});
    tolerance = 0.5f;
    expectCheckOrder(m, path, f, call(f, 2), order);
}

INSTANTIATE_TEST_SUITE_P(Threshold, CompareTest, ::testing::ValuesIn(casesOf({PVX_MEMBERS_Compare(PVX_RIG_MEMBER) PVX_MEMBERS_CompareC(PVX_RIG_MEMBER)
                                                      PVX_MEMBERS_CompareEqualEps(PVX_RIG_MEMBER)
                                                          PVX_MEMBERS_CompareEqualEpsC(PVX_RIG_MEMBER)})),
                         CaseName());

}  // namespace
