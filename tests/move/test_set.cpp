// Set: every member on every code path against a plain scalar reference, with
// canaries around the ROI, in alpha channels, in unchosen channels and in
// masked-out pixels, zero and negative steps, guard pages after the last row,
// float values kept bit for bit, and the argument checks.
#include <climits>
#include <type_traits>

#include "support/harness.h"

namespace {

using namespace pvxtest;

// The arguments of any Set form: the value bytes of up to four elements.
struct SetCall {
    unsigned char value[16] = {};
    bool nullValue = false;
    void* dst = nullptr;
    int dstStep = 0;
    PvxiSize roi{};
    const Pvx8u* mask = nullptr;
    int maskStep = 0;
};

// Calls one Set form, whichever of the signatures it has.
template <class T, class F>
PvxStatus invoke(F f, const SetCall& c)
{
    T v[4];
    std::memcpy(v, c.value, sizeof v);
    const T* values = c.nullValue ? nullptr : v;
    T* d = static_cast<T*>(c.dst);
    if constexpr (std::is_invocable_v<F, T, T*, int, PvxiSize>)
        return f(v[0], d, c.dstStep, c.roi);
    else if constexpr (std::is_invocable_v<F, T, T*, int, PvxiSize, const Pvx8u*, int>)
        return f(v[0], d, c.dstStep, c.roi, c.mask, c.maskStep);
    else if constexpr (std::is_invocable_v<F, const T*, T*, int, PvxiSize>)
        return f(values, d, c.dstStep, c.roi);
    else
        return f(values, d, c.dstStep, c.roi, c.mask, c.maskStep);
}

struct SetMember {
    const char* name;
    const char* descriptor;
    std::size_t elem;
    bool valueArray;  // takes `const T value[]` (may be null)
    PvxStatus (*call)(int path, const SetCall&);
};

#define PVX_SET_MEMBER(sig, S, D, desc, exportName)                                                      \
    SetMember{#exportName, #desc, sizeof(S), std::string(#sig) != "set" && std::string(#sig) != "set_masked", \
              [](int path, const SetCall& c) { return invoke<S>(PVX_PATH_FN(exportName, path), c); }},
#define PVX_NAME_OF(sig, S, D, desc, exportName) #exportName,

const std::vector<SetMember>& setMembers()
{
    static const std::vector<SetMember> members = {PVX_MEMBERS_Set(PVX_SET_MEMBER)};
    return members;
}

// The destination (and mask) of one call, and what a correct fill leaves.
struct SetRig {
    Descriptor d;
    std::size_t es;
    std::unique_ptr<TestImage> dst, mask;
    int channel;
    SetCall call;

    SetRig(const SetMember& m, const Shape& s, int chosen, Rng& rng) : d(parseDescriptor(m.descriptor)), es(m.elem)
    {
        dst = std::move(makeImages(d.dst, es, s, false, rng).front());
        channel = !d.dst.chosen ? 0 : chosen < 0 ? d.dst.pixel - 1 : chosen % d.dst.pixel;
        rng.fill(call.value, sizeof call.value);
        call.dst = dst->origin() + static_cast<std::size_t>(channel) * es;
        call.dstStep = dst->step();
        call.roi = {s.width, s.height};
        if (d.masked) {
            mask = makeMask(s, rng);
            call.mask = mask->origin();
            call.maskStep = mask->step();
        }
    }

    // Reference: value k goes to element x * pixel + chosen channel + k.
    Bytes expected() const
    {
        Bytes want = dst->contents();
        for (int y = 0; y < call.roi.height; ++y)
            for (int x = 0; x < call.roi.width; ++x)
                for (int k = 0; k < d.count; ++k)
                    if (!mask || *mask->at(y, static_cast<std::size_t>(x)) != 0) {
                        const std::size_t element = static_cast<std::size_t>(x * d.dst.pixel + channel + k);
                        std::memcpy(&want[dst->indexOf(y, element * es)], call.value + k * es, es);
                    }
        return want;
    }
};

class SetTest : public ::testing::TestWithParam<PathCase<SetMember>> {
protected:
    const SetMember& member() const { return *GetParam().member; }

    void run(const Shape& s, int chosen, std::uint64_t seed, const std::uint32_t* floatValues = nullptr)
    {
        SCOPED_TRACE(describe(s) + " channel " + std::to_string(chosen));
        Rng rng(seed);
        SetRig rig(member(), s, chosen, rng);
        for (int k = 0; floatValues && k < 4; ++k)
            std::memcpy(rig.call.value + 4 * k, &floatValues[k], 4);
        const Bytes want = rig.expected();
        EXPECT_EQ(member().call(GetParam().path, rig.call), pvxStsOk);
        EXPECT_TRUE(rig.dst->matches(want, "destination"));
    }
    void runShapes(const std::vector<Shape>& shapes, bool lastChannel = false)
    {
        ASSERT_TRUE(parseDescriptor(member().descriptor).valid) << member().descriptor;
        for (std::size_t i = 0; i < shapes.size(); ++i)
            run(shapes[i], lastChannel ? -1 : static_cast<int>(i), i * 104729 + 5);
    }
};

TEST_P(SetTest, MatchesReference)
{
    runShapes(referenceShapes());
}

// Rows of 2 KiB and more, where fills may take a string store (1-, 2- and
// 4-byte patterns) or replicate a vector-filled seed (other patterns, rows
// from 6 KiB), at several destination offsets and odd tails.
TEST_P(SetTest, LongRows)
{
    const int pixelBytes = static_cast<int>(member().elem) * parseDescriptor(member().descriptor).dst.pixel;
    std::vector<Shape> shapes;
    for (int bytes : {2047, 2048, 2050, 2051, 4099, 6143, 6145, 9001})
        for (unsigned a : {0u, 1u, 2u, 3u, 4u, 13u})
            shapes.push_back({(bytes + pixelBytes - 1) / pixelBytes, 2, 0, int(a * 4 + 1), 1, 1, a});
    shapes.push_back({700, 4, 0, 0, 1, 1, 6});  // contiguous: one long row
    runShapes(shapes);
}

TEST_P(SetTest, ZeroAndNegativeSteps)
{
    runShapes(stepShapes());
}

// The last row (and the last chosen channel) and the mask touch guard pages.
TEST_P(SetTest, NoAccessPastLastRow)
{
    runShapes(guardShapes(), true);
}

// Values are stored bit for bit: for 32f, NaN payloads (signalling too),
// -0.0, infinities and denormals, passed by value or in the value array.
TEST_P(SetTest, ValuesKeptBitForBit)
{
    const std::vector<std::uint32_t>& sp = floatEdgeCases();
    for (std::size_t i = 0; i < sp.size(); ++i) {
        const std::uint32_t values[4] = {sp[i], sp[(i + 3) % sp.size()], sp[(i + 5) % sp.size()],
                                         sp[(i + 7) % sp.size()]};
        run(Shape{19, 2, 4, 4, 1, 1, static_cast<unsigned>(i)}, static_cast<int>(i), i, values);
    }
}

// A null pointer is reported before a bad size, and no failing call writes.
TEST_P(SetTest, ArgumentChecks)
{
    Rng rng(7);
    SetRig rig(member(), Shape{5, 2, 4, 4}, 1, rng);
    const Bytes before = rig.dst->contents();
    const PvxiSize rois[] = {{5, 2}, {0, 2}, {5, 0}, {0, 0}, {-1, 2}, {5, -3}, {INT_MIN, INT_MIN}};
    for (int nulls = 0; nulls < 8; ++nulls) {  // bits: destination, value array, mask
        if (((nulls & 2) && !member().valueArray) || ((nulls & 4) && !rig.d.masked))
            continue;
        SetCall c = rig.call;
        c.dst = nulls & 1 ? nullptr : c.dst;
        c.nullValue = nulls & 2;
        c.mask = nulls & 4 ? nullptr : c.mask;
        for (std::size_t i = nulls ? 0 : 1; i < std::size(rois); ++i) {
            SCOPED_TRACE("null pointers " + std::to_string(nulls) + " roi " + std::to_string(rois[i].width) + "x" +
                         std::to_string(rois[i].height));
            c.roi = rois[i];
            EXPECT_EQ(member().call(GetParam().path, c), nulls ? pvxStsNullPtrErr : pvxStsSizeErr);
            EXPECT_TRUE(rig.dst->matches(before, "destination"));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Move, SetTest, ::testing::ValuesIn(onEveryPath(setMembers())), CaseName());

TEST(SetRegistration, EveryMemberOnEveryPath)
{
    const std::vector<std::string> names = {PVX_MEMBERS_Set(PVX_NAME_OF)};
    EXPECT_EQ(names.size(), 5u * 10u);  // 10 forms of 5 types
    expectEveryCaseRegistered("Move/SetTest",
                              {"MatchesReference", "LongRows", "ZeroAndNegativeSteps", "NoAccessPastLastRow",
                               "ValuesKeptBitForBit", "ArgumentChecks"},
                              names);
}

}  // namespace
