// Mirror: every member on every code path and every flip against a plain
// scalar reference, with canaries around the ROI and in alpha channels,
// negative and zero steps, guard pages after the last row, equal source and
// destination handed to the in-place form, overlapping images under the
// diagonal flips, and the argument checks of both forms.
#include <climits>
#include <type_traits>

#include "support/harness.h"

namespace {

using namespace pvxtest;

struct MirrorCall {
    const void* src = nullptr;
    int srcStep = 0;
    void* dst = nullptr;
    int dstStep = 0;
    PvxiSize roi{};
    int flip = 0;
};

template <class T, class F>
PvxStatus invoke(F f, const MirrorCall& c)
{
    if constexpr (std::is_invocable_v<F, const T*, int, T*, int, PvxiSize, int>)
        return f(static_cast<const T*>(c.src), c.srcStep, static_cast<T*>(c.dst), c.dstStep, c.roi, c.flip);
    else
        return f(static_cast<T*>(c.dst), c.dstStep, c.roi, c.flip);
}

struct MirrorMember {
    const char* name;
    const char* descriptor;
    std::size_t elem;
    PvxStatus (*call)(int path, const MirrorCall&);
};

#define PVX_MIRROR_MEMBER(sig, S, D, desc, exportName) \
    MirrorMember{#exportName, #desc, sizeof(S),         \
                 [](int path, const MirrorCall& c) { return invoke<S>(PVX_PATH_FN(exportName, path), c); }},
#define PVX_NAME_OF(sig, S, D, desc, exportName) #exportName,

const std::vector<MirrorMember>& mirrorMembers()
{
    static const std::vector<MirrorMember> members = {PVX_MEMBERS_Mirror(PVX_MIRROR_MEMBER)};
    return members;
}

// A source (absent for in-place calls, or when the out-of-place form gets one
// image twice) and a destination, W x H (H x W for diagonal flips).
struct MirrorRig {
    Descriptor d;
    std::size_t es, pixelBytes;
    std::unique_ptr<TestImage> src, dst;
    MirrorCall call;

    MirrorRig(const MirrorMember& m, const Shape& s, int flip, bool oneImage, Rng& rng)
        : d(parseDescriptor(m.descriptor)), es(m.elem), pixelBytes(d.dst.pixel * m.elem)
    {
        Shape ds = s;
        if (flip >= 3)
            std::swap(ds.width, ds.height);
        if (!oneImage && !d.inPlace)
            src = std::move(makeImages(d.src, es, s, true, rng).front());
        dst = std::move(makeImages(d.dst, es, ds, false, rng).front());
        const TestImage& from = src ? *src : *dst;
        call = {from.origin(), from.step(), dst->origin(), dst->step(), {s.width, s.height}, flip};
    }

    // The reference: destination pixel (column c, row r) receives the moved
    // channels of source pixel (x, y) as the flip defines; diagonal flips
    // write W rows of H pixels.
    Bytes expected() const
    {
        const Bytes before = dst->contents();
        Bytes want = before;
        const int w = call.roi.width, h = call.roi.height, flip = call.flip;
        for (int r = 0; r < (flip >= 3 ? w : h); ++r)
            for (int c = 0; c < (flip >= 3 ? h : w); ++c) {
                const int x = flip == 0 ? c : flip == 3 ? r : flip == 4 ? w - 1 - r : w - 1 - c;
                const int y = flip == 1 ? r : flip == 3 ? c : h - 1 - (flip == 4 ? c : r);
                const unsigned char* from = src ? src->at(y, x * pixelBytes) : &before[dst->indexOf(y, x * pixelBytes)];
                std::memcpy(&want[dst->indexOf(r, c * pixelBytes)], from, d.count * es);
            }
        return want;
    }

    ::testing::AssertionResult sourceKept(const Bytes& before) const
    {
        return src ? src->matches(before, "source (must not be written)") : ::testing::AssertionSuccess();
    }
};

class MirrorTest : public ::testing::TestWithParam<PathCase<MirrorMember>> {
protected:
    const MirrorMember& member() const { return *GetParam().member; }
    bool inPlace() const { return parseDescriptor(member().descriptor).inPlace; }

    // Runs each flip the shape allows (flips 1 and 2 need two columns; in
    // place, flips 0 and 2 need two rows and there are no diagonals; the
    // diagonals need positive steps). An out-of-place member also gets each
    // in-place flip with one image passed twice, which must match the
    // in-place result.
    void runShapes(const std::vector<Shape>& shapes)
    {
        for (std::size_t i = 0; i < shapes.size(); ++i) {
            const Shape& s = shapes[i];
            for (int flip = 0; flip <= 4; ++flip)
                for (int oneImage = inPlace() ? 1 : 0; oneImage <= 1; ++oneImage) {
                    if (((flip == 1 || flip == 2) && s.width < 2) ||
                        (flip >= 3 && (oneImage || s.srcSign < 1 || s.dstSign < 1)) ||
                        (oneImage && ((flip != 1 && s.height < 2) || s.dstSign == 0)))
                        continue;
                    SCOPED_TRACE(describe(s) + " flip " + std::to_string(flip) + (oneImage ? " one image" : ""));
                    Rng rng(i * 131 + static_cast<unsigned>(flip));
                    MirrorRig rig(member(), s, flip, oneImage, rng);
                    const Bytes srcBefore = rig.src ? rig.src->contents() : Bytes(), want = rig.expected();
                    EXPECT_EQ(member().call(GetParam().path, rig.call), pvxStsOk);
                    EXPECT_TRUE(rig.dst->matches(want, "destination"));
                    EXPECT_TRUE(rig.sourceKept(srcBefore));
                }
        }
    }
};

// Odd sizes around the 16- and 48-byte blocks and the 8-pixel tiles, every
// destination misalignment, padded steps, and images larger than a tile block.
TEST_P(MirrorTest, MatchesReference)
{
    std::vector<Shape> shapes;
    unsigned a = 0;
    for (int w : {1, 2, 3, 15, 17, 65, 130})
        for (int h : {1, 2, 3, 9}) {
            shapes.push_back({w, h, int(a * 3 % 11), int(a * 5 % 13), 1, 1, a % 16});
            ++a;
        }
    shapes.push_back({33, 5, 0, 0, 1, 1, 0});  // contiguous
    shapes.push_back({200, 137, 8, 4, 1, 1, 3});
    runShapes(shapes);
}

// Negative steps everywhere, a zero source step out of place, and images
// that end at a guard page.
TEST_P(MirrorTest, StepsAndGuardPages)
{
    std::vector<Shape> shapes = {{19, 4, 4, 8, -1, -1, 5}, {33, 3, 0, 0, -1, 1, 1}, {65, 3, 12, 0, 1, -1, 11}};
    if (!inPlace())
        shapes.push_back({17, 4, 4, 4, 0, 1, 0});
    for (const Shape& s : guardShapes())
        shapes.push_back(s);
    runShapes(shapes);
}

// A null pointer comes before a bad size, the size before the flip, the flip
// before the minimum sizes; flips 3 and 4 check pointers, steps, size and
// overlap in that order; one image passed twice gets the in-place checks.
// Nothing is written by a failing call.
TEST_P(MirrorTest, ArgumentChecks)
{
    constexpr unsigned kNullSrc = 1, kNullDst = 2, kOneImage = 4;
    struct Case {
        int flip;
        PvxiSize roi;
        unsigned flags;
        int srcStep, dstStep;  // 1: the image's own step
        PvxStatus outOfPlace, inPlace;
    };
    const PvxStatus kNull = pvxStsNullPtrErr, kSize = pvxStsSizeErr, kStep = pvxStsStepErr,
                    kFlip = pvxStsMirrorFlipErr, kMode = pvxStsNotSupportedModeErr;
    const Case cases[] = {
        {3, {0, 0}, kNullSrc | kNullDst, 0, 0, kNull, kNull},
        {4, {0, 3}, kNullDst, -1, -1, kNull, kNull},
        {3, {0, 0}, 0, 0, 1, kStep, kSize},
        {4, {5, 0}, 0, 1, -8, kStep, kSize},
        {3, {0, 3}, kOneImage, 1, 1, kSize, kSize},
        {3, {5, 3}, kOneImage, 1, 1, kMode, kFlip},
        {4, {5, 3}, kOneImage, 1, 1, kMode, kFlip},
        {3, {5, 1}, 0, 1, 1, pvxStsOk, kFlip},
        {5, {0, 3}, kNullSrc | kNullDst, 1, 1, kNull, kNull},
        {5, {0, 3}, 0, 1, 1, kSize, kSize},
        {5, {1, 1}, 0, 1, 1, kFlip, kFlip},
        {-1, {5, 3}, 0, 1, 1, kFlip, kFlip},
        {INT_MIN, {5, 3}, 0, 1, 1, kFlip, kFlip},
        {INT_MAX, {5, 3}, 0, 1, 1, kFlip, kFlip},
        {1, {1, 3}, kNullSrc, 1, 1, kNull, kNull},
        {1, {1, 3}, 0, 1, 1, kSize, kSize},
        {2, {1, 3}, 0, 1, 1, kSize, kSize},
        {0, {5, 1}, kOneImage, 1, 1, kSize, kSize},
        {2, {5, 1}, kOneImage, 1, 1, kSize, kSize},
        {2, {5, 1}, 0, 1, 1, pvxStsOk, kSize},
        {1, {5, 1}, kOneImage, 1, 1, pvxStsOk, pvxStsOk},
        {0, {5, 3}, 0, 0, 0, pvxStsOk, pvxStsOk},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE("flip " + std::to_string(k.flip) + " roi " + std::to_string(k.roi.width) + "x" +
                     std::to_string(k.roi.height) + " flags " + std::to_string(k.flags));
        Rng rng(7);
        MirrorRig rig(member(), Shape{5, 5, 4, 4}, 0, k.flags & kOneImage, rng);
        const bool one = rig.d.inPlace;  // the in-place form has one pointer and one step
        MirrorCall c = {k.flags & kNullSrc ? nullptr : rig.call.src, k.srcStep == 1 ? rig.call.srcStep : k.srcStep,
                        k.flags & (kNullDst | (one ? kNullSrc : 0)) ? nullptr : rig.call.dst,
                        k.dstStep == 1 ? rig.call.dstStep : k.dstStep, k.roi, k.flip};
        const Bytes srcBefore = rig.src ? rig.src->contents() : Bytes(), dstBefore = rig.dst->contents();
        const PvxStatus want = one ? k.inPlace : k.outOfPlace;
        EXPECT_EQ(member().call(GetParam().path, c), want);
        if (want != pvxStsOk) {
            EXPECT_TRUE(rig.dst->matches(dstBefore, "destination"));
            EXPECT_TRUE(rig.sourceKept(srcBefore));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Move, MirrorTest, ::testing::ValuesIn(onEveryPath(mirrorMembers())), CaseName());

std::vector<PathCase<MirrorMember>> outOfPlaceCases()
{
    std::vector<PathCase<MirrorMember>> v;
    for (const PathCase<MirrorMember>& c : onEveryPath(mirrorMembers()))
        if (!parseDescriptor(c.member->descriptor).inPlace)
            v.push_back(c);
    return v;
}

class MirrorOutOfPlaceTest : public MirrorTest {};

// Flip 0 on more than 2,097,152 pixels writes with cache-bypassing stores
// (rows of at least 64 bytes); the result is the same.
TEST_P(MirrorOutOfPlaceTest, LargeFlip0)
{
    Rng rng(5);
    MirrorRig rig(member(), Shape{64, 32769, 0, 16, 1, 1, 5}, 0, false, rng);
    const Bytes want = rig.expected();
    EXPECT_EQ(member().call(GetParam().path, rig.call), pvxStsOk);
    EXPECT_TRUE(rig.dst->matches(want, "destination"));
}

// Diagonal flips refuse images that share a byte, in either order in memory
// (and then write nothing), and accept images that only touch.
TEST_P(MirrorOutOfPlaceTest, DiagonalOverlap)
{
    const std::ptrdiff_t es = std::ptrdiff_t(member().elem), px = parseDescriptor(member().descriptor).src.pixel * es;
    const int srcStep = int(5 * px + 3 * es), dstStep = int(3 * px + 5 * es);  // a 5 x 3 ROI
    const std::ptrdiff_t srcSpan = 2 * srcStep + 5 * px, dstSpan = 4 * dstStep + 3 * px;
    const std::pair<std::ptrdiff_t, PvxStatus> cases[] = {  // destination minus source, result
        {0, pvxStsNotSupportedModeErr},      {srcSpan - es, pvxStsNotSupportedModeErr}, {srcSpan, pvxStsOk},
        {es - dstSpan, pvxStsNotSupportedModeErr}, {-dstSpan, pvxStsOk}};
    for (int flip : {3, 4})
        for (const auto& [shift, want] : cases) {
            SCOPED_TRACE("flip " + std::to_string(flip) + " destination at source" + std::to_string(shift));
            Rng rng(11);
            TestImage arena(std::size_t(2 * (srcSpan + dstSpan)), 1, 1, 0, false, rng);
            unsigned char* src = arena.at(0, std::size_t(dstSpan));
            const Bytes before = arena.contents();
            EXPECT_EQ(member().call(GetParam().path, {src, srcStep, src + shift, dstStep, {5, 3}, flip}), want);
            if (want != pvxStsOk) {
                EXPECT_TRUE(arena.matches(before, "arena"));
            }
        }
}

INSTANTIATE_TEST_SUITE_P(Move, MirrorOutOfPlaceTest, ::testing::ValuesIn(outOfPlaceCases()), CaseName());

TEST(MirrorRegistration, EveryMemberOnEveryPath)
{
    const std::vector<std::string> names = {PVX_MEMBERS_Mirror(PVX_NAME_OF)};
    std::vector<std::string> outOfPlace;
    for (const std::string& n : names)
        if (!parseDescriptor(n.substr(n.rfind('_') + 1)).inPlace)
            outOfPlace.push_back(n);
    EXPECT_EQ(names.size(), 40u);  // C1, C3, C4, AC4, out of place and in place, of 5 types
    expectEveryCaseRegistered("Move/MirrorTest", {"MatchesReference", "StepsAndGuardPages", "ArgumentChecks"}, names);
    expectEveryCaseRegistered("Move/MirrorOutOfPlaceTest", {"LargeFlip0", "DiagonalOverlap"}, outOfPlace);
}

}  // namespace
