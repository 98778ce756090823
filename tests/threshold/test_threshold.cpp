// Threshold: every member on every code path against a scalar reference
// (thresholds drawn from the data, so that equal values occur; in place, one
// image passed twice, equal band thresholds), and each form's check order.
#include <algorithm>

#include "threshold/threshold_rig.h"

namespace {

using namespace pvxtest;

enum class Form { Plain, LT, GT, Val, LTVal, GTVal, Band };

class ThresholdTest : public MemberTest {
protected:
    const Form form = formOf(m.name);
    // Constants in parameter order: threshold (plain, _LT, _GT); threshold and
    // value; lower threshold, value, upper threshold, value (band).
    const int constants = form == Form::Band ? 4 : form == Form::Plain || form == Form::LT || form == Form::GT ? 1 : 2;
    unsigned char k[4][16] = {};  // per channel, for every form

    static Form formOf(const std::string& name)  // the word after "pvxiThreshold_", if not the type
    {
        const std::vector<std::string> words = {"", "LT", "GT", "Val", "LTVal", "GTVal", "LTValGTVal"};
        const auto i = std::find(words.begin(), words.end(), name.substr(14, name.find('_', 14) - 14)) - words.begin();
        return static_cast<Form>(i % 7);
    }
    Call withConstants(Call c, int op) const
    {
        for (int j = 0; j < constants; ++j)
            c.arg[j] = k[j];
        c.num = op;
        return c;
    }
};

// The reference: comparisons strict, any comparison with NaN false; the
// value itself or the constant that replaces it, bit for bit.
TEST_P(ThresholdTest, MatchesReference)
{
    const int size = m.srcSize, pixelBytes = d.dst.pixel * size;
    const std::vector<Shape> shapes = rigShapes();
    for (unsigned i = 0; i < shapes.size(); ++i)
        for (int variant = 0; variant < 3; ++variant) {  // 1: one image passed twice, 2: equal band thresholds
            if ((variant == 1 && d.inPlace) || (variant == 2 && form != Form::Band))
                continue;
            const Shape& s = shapes[i];
            SCOPED_TRACE(describe(s) + " variant " + std::to_string(variant));
            Rng rng(i * 3 + variant);
            const Frame f = frame(s, rng);
            TestImage& in = variant == 1 ? f.dst() : *f.img[0];
            fillRandom(in, m.type, d.src.pixel, s, rng);
            for (int c = 0; c < d.dst.used; ++c) {
                for (int j = 0; j < 4; ++j)
                    std::memcpy(k[j] + c * size, in.at(rng.below(s.height), (rng.below(s.width) * d.src.pixel + c) * size), size);
                if (form == Form::Band && (get(m.type, k[2] + c * size) < get(m.type, k[0] + c * size) || variant == 2))
                    std::memcpy(k[2] + c * size, k[0] + c * size, size);
            }
            const int op = i % 2 ? 4 : 0;  // every width with both operators
            const bool less = form == Form::LT || form == Form::LTVal || ((form == Form::Plain || form == Form::Val) && op == 0);
            Call c = withConstants(f.call(), op);
            if (variant == 1)
                c.img[0] = f.dst().origin(), c.step[0] = f.dst().step();
            expectReference(m, path, f, c, pixelBytes, [&](int y, int x, unsigned char* want) {
                for (int ch = 0; ch < d.dst.used; ++ch) {
                    const unsigned char* v = in.at(y, static_cast<std::size_t>((x * d.src.pixel + ch) * size));
                    const auto K = [&](int j) { return get(m.type, k[j] + ch * size); };
                    const double a = get(m.type, v);
                    int by = -1;  // the constant that replaces the value
                    if (form == Form::Band)
                        by = a < K(0) ? 1 : K(2) < a ? 3 : -1;
                    else if (less ? a < K(0) : K(0) < a)
                        by = constants - 1;
                    std::memcpy(want + ch * size, by < 0 ? v : k[by] + ch * size, size);
                }
            });
        }
}

// Plain, _LT, _GT: pointers, size, steps, the array, then the operator; _Val
// the operator first (its fixed-operator forms cannot fail it); the band's
// order of thresholds after everything else.
TEST_P(ThresholdTest, CheckOrder)
{
    Rng rng(3);
    const Frame f = frame(Shape{5, 2, 4, 4}, rng);
    for (int c = 0; c < 4; ++c)
        for (int j = 0; j < 4; ++j)
            put(m.type, k[j] + c * m.srcSize, j < 2 ? 10 : 20);
    unsigned char inverted[16];
    const Fault badOperator{pvxStsNotSupportedModeErr, [](Call& c, unsigned p) {
                                const int bad[] = {1, 2, 3, 5, -1, INT_MIN};
                                c.num = bad[p % 6];
                            }};
    std::vector<Fault> order;
    if (form == Form::Val)
        order.push_back(badOperator);
    order.insert(order.end(), {nullImage, badSize, stepBelowOne});
    if (d.dst.pixel > 1)
        order.push_back({pvxStsNullPtrErr, [this](Call& c, unsigned p) { c.arg[p % constants] = nullptr; }});
    if (form == Form::Plain)
        order.push_back(badOperator);
    if (form == Form::Band)  // the lower threshold above the upper one in one channel
        order.push_back({pvxStsThresholdErr, [&](Call& c, unsigned p) {
                             std::memcpy(inverted, k[0], sizeof inverted);
                             put(m.type, inverted + p % d.dst.used * m.srcSize, 21);
                             c.arg[0] = inverted;
                         }});
    expectCheckOrder(m, path, f, withConstants(f.call(), 4), order);
}

INSTANTIATE_TEST_SUITE_P(Threshold, ThresholdTest, ::testing::ValuesIn(casesOf({PVX_MEMBERS_Threshold(PVX_RIG_MEMBER)})), CaseName());

}  // namespace
