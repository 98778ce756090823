// SwapChannels: every member on every code path against a plain scalar
// reference over random orders (repeated and dropped channels, C3C4R's fill
// and kept channels), in place and out of place, with canaries around the ROI
// and in alpha channels, negative steps, guard pages after the last row, and
// the check order of each form.
#include <climits>
#include <type_traits>

#include "support/harness.h"

namespace {

using namespace pvxtest;

struct SwapCall {
    const void* src = nullptr;
    int srcStep = 0;
    void* dst = nullptr;
    int dstStep = 0;
    PvxiSize roi{};
    const int* order = nullptr;
    unsigned char fill[4] = {};
};

template <class T, class F>
PvxStatus invoke(F f, const SwapCall& c)
{
    const T* s = static_cast<const T*>(c.src);
    T* d = static_cast<T*>(c.dst);
    T fill;
    std::memcpy(&fill, c.fill, sizeof fill);
    if constexpr (std::is_invocable_v<F, const T*, int, T*, int, PvxiSize, const int*, T>)
        return f(s, c.srcStep, d, c.dstStep, c.roi, c.order, fill);
    else if constexpr (std::is_invocable_v<F, const T*, int, T*, int, PvxiSize, const int*>)
        return f(s, c.srcStep, d, c.dstStep, c.roi, c.order);
    else
        return f(d, c.dstStep, c.roi, c.order);
}

struct SwapMember {
    const char* name;
    const char* descriptor;
    std::size_t elem;
    PvxStatus (*call)(int path, const SwapCall&);
};

#define PVX_SWAP_MEMBER(sig, S, D, desc, exportName) \
    SwapMember{#exportName, #desc, sizeof(S),         \
               [](int path, const SwapCall& c) { return invoke<S>(PVX_PATH_FN(exportName, path), c); }},
#define PVX_NAME_OF(sig, S, D, desc, exportName) #exportName,

const std::vector<SwapMember>& swapMembers()
{
    static const std::vector<SwapMember> members = {PVX_MEMBERS_SwapChannels(PVX_SWAP_MEMBER)};
    return members;
}

// What a member's order means: `written` destination channels, indices below
// `limit` accepted (C3C4R: any index from 0; 3 is the fill value, more keeps).
struct Form {
    Descriptor d;
    int written, limit;
    bool addsChannel;  // C3C4R
    explicit Form(const char* desc) : d(parseDescriptor(desc))
    {
        written = d.dst.used;
        limit = d.src.used;
        addsChannel = d.src.pixel == 3 && d.dst.pixel == 4;
    }
};

struct SwapRig {
    Form f;
    std::size_t es;
    std::unique_ptr<TestImage> src, dst;
    int order[4] = {};
    SwapCall call;

    SwapRig(const SwapMember& m, const Shape& s, bool oneImage, Rng& rng) : f(m.descriptor), es(m.elem)
    {
        oneImage = oneImage || f.d.inPlace;
        if (!oneImage)
            src = std::move(makeImages(f.d.src, es, s, true, rng).front());
        dst = std::move(makeImages(f.d.dst, es, s, false, rng).front());
        // Random orders repeat and leave out channels; C3C4R also gets the
        // fill index 3 and indices that keep the destination channel.
        for (int k = 0; k < f.written; ++k) {
            const unsigned r = rng.below(f.addsChannel ? 7 : f.limit);
            order[k] = r < 5 ? int(r) : r == 5 ? 1000 : INT_MAX;
        }
        const TestImage& from = oneImage ? *dst : *src;
        call = {from.origin(), from.step(), dst->origin(), dst->step(), {s.width, s.height}, order, {}};
        rng.fill(call.fill, sizeof call.fill);
    }

    Bytes expected() const
    {
        const Bytes before = dst->contents();
        Bytes want = before;
        const std::size_t sp = f.d.src.pixel * es, dp = f.d.dst.pixel * es;
        for (int y = 0; y < call.roi.height; ++y)
            for (int x = 0; x < call.roi.width; ++x)
                for (int k = 0; k < f.written; ++k) {
                    const int c = order[k];
                    const unsigned char* from = c > 3 ? nullptr
                                                : c == 3 && f.addsChannel ? call.fill
                                                : src ? src->at(y, x * sp + c * es)
                                                      : &before[dst->indexOf(y, x * sp + c * es)];
                    if (from)
                        std::memcpy(&want[dst->indexOf(y, x * dp + k * es)], from, es);
                }
        return want;
    }

    ::testing::AssertionResult sourceKept(const Bytes& before) const
    {
        return src ? src->matches(before, "source (must not be written)") : ::testing::AssertionSuccess();
    }
};

class SwapChannelsTest : public ::testing::TestWithParam<PathCase<SwapMember>> {
protected:
    const SwapMember& member() const { return *GetParam().member; }

    // Each shape out of place and, where the layouts match, with one image
    // passed twice (the in-place forms always), against the reference.
    void runShapes(const std::vector<Shape>& shapes)
    {
        const Form f(member().descriptor);
        for (std::size_t i = 0; i < shapes.size(); ++i)
            for (int oneImage = 0; oneImage <= (f.d.src.pixel == f.d.dst.pixel ? 1 : 0); ++oneImage) {
                Rng rng(i * 977 + static_cast<unsigned>(oneImage));
                SwapRig rig(member(), shapes[i], oneImage, rng);
                SCOPED_TRACE(describe(shapes[i]) + (oneImage ? " one image" : "") + " order " +
                             std::to_string(rig.order[0]) + "," + std::to_string(rig.order[1]) + "," +
                             std::to_string(rig.order[2]) + "," + std::to_string(rig.order[3]));
                const Bytes srcBefore = rig.src ? rig.src->contents() : Bytes(), want = rig.expected();
                EXPECT_EQ(member().call(GetParam().path, rig.call), pvxStsOk);
                EXPECT_TRUE(rig.dst->matches(want, "destination"));
                EXPECT_TRUE(rig.sourceKept(srcBefore));
            }
    }
};

// Widths around the vector blocks (4 to 16 pixels) with every misalignment
// and padded steps, each with its own random order.
TEST_P(SwapChannelsTest, MatchesReference)
{
    std::vector<Shape> shapes;
    unsigned a = 0;
    for (int w : {1, 3, 15, 17, 65, 130})
        for (int rep = 0; rep < 6; ++rep, ++a)
            shapes.push_back({w, 1 + rep % 3, int(a * 3 % 11), int(a * 5 % 13), 1, 1, a % 16});
    shapes.push_back({33, 5, 0, 0, 1, 1, 0});  // contiguous
    runShapes(shapes);
}

// Negative steps are accepted; images ending at a guard page.
TEST_P(SwapChannelsTest, NegativeStepsAndGuardPages)
{
    std::vector<Shape> shapes = {{19, 4, 4, 8, -1, -1, 5}, {33, 3, 0, 0, -1, 1, 1}, {65, 3, 12, 0, 1, -1, 11}};
    for (const Shape& s : guardShapes())
        shapes.push_back(s);
    runShapes(shapes);
}

// Every combination of failures; the first in the form's check order decides.
// C3R, AC4R, C4C3R, C3C4R and C3IR check pointers (the order's included),
// size, zero steps, indices; C4R and C4IR the image pointers, zero steps, size,
// the order pointer, indices. Failing calls write nothing.
TEST_P(SwapChannelsTest, ArgumentChecks)
{
    constexpr unsigned kNullSrc = 1, kNullDst = 2, kNullOrder = 4, kBadSize = 8, kZeroStep = 16, kBadIndex = 32;
    using Checks = std::vector<std::pair<unsigned, PvxStatus>>;
    const Form f(member().descriptor);
    const Checks checks = f.written == 4 && !f.addsChannel
                              ? Checks{{kNullSrc | kNullDst, pvxStsNullPtrErr}, {kZeroStep, pvxStsStepErr},
                                       {kBadSize, pvxStsSizeErr}, {kNullOrder, pvxStsNullPtrErr},
                                       {kBadIndex, pvxStsChannelOrderErr}}
                              : Checks{{kNullSrc | kNullDst | kNullOrder, pvxStsNullPtrErr}, {kBadSize, pvxStsSizeErr},
                                       {kZeroStep, pvxStsStepErr}, {kBadIndex, pvxStsChannelOrderErr}};
    std::vector<int> badIndices = {-1, INT_MIN};  // C3C4R accepts every other index
    if (!f.addsChannel)
        badIndices.insert(badIndices.end(), {f.limit, INT_MAX});
    for (unsigned flags = 1; flags < 64; ++flags) {
        PvxStatus want = pvxStsOk;
        for (auto check = checks.rbegin(); check != checks.rend(); ++check)  // the first failing check wins
            want = flags & check->first ? check->second : want;
        Rng rng(flags);
        SwapRig rig(member(), Shape{5, 2, 4, 4}, false, rng);
        const int bad = badIndices[flags % badIndices.size()];
        SCOPED_TRACE("flags " + std::to_string(flags) + " bad index " + std::to_string(bad));
        if (flags & kBadIndex)
            rig.order[flags % f.written] = bad;
        // The in-place forms take one pointer and one step.
        const bool srcSide = f.d.inPlace || flags % 3 == 0, dstSide = f.d.inPlace || flags % 3 != 0;
        SwapCall c = rig.call;
        c.src = flags & (kNullSrc | (f.d.inPlace ? kNullDst : 0)) ? nullptr : c.src;
        c.dst = flags & (kNullDst | (f.d.inPlace ? kNullSrc : 0)) ? nullptr : c.dst;
        c.order = flags & kNullOrder ? nullptr : c.order;
        c.roi = flags & kBadSize ? (flags % 2 ? PvxiSize{0, 2} : PvxiSize{5, -1}) : c.roi;
        c.srcStep = flags & kZeroStep && srcSide ? 0 : c.srcStep;
        c.dstStep = flags & kZeroStep && dstSide ? 0 : c.dstStep;
        const Bytes srcBefore = rig.src ? rig.src->contents() : Bytes(), dstBefore = rig.dst->contents();
        EXPECT_EQ(member().call(GetParam().path, c), want);
        EXPECT_TRUE(rig.dst->matches(dstBefore, "destination"));
        EXPECT_TRUE(rig.sourceKept(srcBefore));
    }
}

INSTANTIATE_TEST_SUITE_P(Move, SwapChannelsTest, ::testing::ValuesIn(onEveryPath(swapMembers())), CaseName());

TEST(SwapChannelsRegistration, EveryMemberOnEveryPath)
{
    const std::vector<std::string> names = {PVX_MEMBERS_SwapChannels(PVX_NAME_OF)};
    EXPECT_EQ(names.size(), 27u);  // C3R, AC4R, C4R, C4C3R, C3C4R of 5 types, 8u C3IR and C4IR
    expectEveryCaseRegistered("Move/SwapChannelsTest",
                              {"MatchesReference", "NegativeStepsAndGuardPages", "ArgumentChecks"}, names);
}

}  // namespace
