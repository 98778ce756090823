// Copy and CopyManaged: every member on every code path against a plain
// scalar reference, with canaries around the ROI, in alpha channels and in
// masked-out pixels, zero and negative steps, guard pages after the last row,
// and the argument checks.
#include <climits>
#include <type_traits>

#include "support/harness.h"

namespace {

using namespace pvxtest;

// The arguments of any Copy form; planar sides use every entry of src/dst.
struct CopyCall {
    const void* src[4] = {};
    int srcStep = 0;
    void* dst[4] = {};
    int dstStep = 0;
    PvxiSize roi{};
    const Pvx8u* mask = nullptr;
    int maskStep = 0;
    int flags = 0;
    bool nullSrcArray = false, nullDstArray = false;
};

// Calls one Copy form, whichever of the signatures it has.
template <class T, class F>
PvxStatus invoke(F f, const CopyCall& c)
{
    const T* s = static_cast<const T*>(c.src[0]);
    T* d = static_cast<T*>(c.dst[0]);
    if constexpr (std::is_invocable_v<F, const T*, int, T*, int, PvxiSize>) {
        return f(s, c.srcStep, d, c.dstStep, c.roi);
    } else if constexpr (std::is_invocable_v<F, const T*, int, T*, int, PvxiSize, const Pvx8u*, int>) {
        return f(s, c.srcStep, d, c.dstStep, c.roi, c.mask, c.maskStep);
    } else if constexpr (std::is_invocable_v<F, const T*, int, T*, int, PvxiSize, int>) {
        return f(s, c.srcStep, d, c.dstStep, c.roi, c.flags);
    } else if constexpr (std::is_invocable_v<F, const T*, int, T* const*, int, PvxiSize>) {
        T* const planes[4] = {d, static_cast<T*>(c.dst[1]), static_cast<T*>(c.dst[2]), static_cast<T*>(c.dst[3])};
        return f(s, c.srcStep, c.nullDstArray ? nullptr : planes, c.dstStep, c.roi);
    } else {
        const T* const planes[4] = {s, static_cast<const T*>(c.src[1]), static_cast<const T*>(c.src[2]),
                                    static_cast<const T*>(c.src[3])};
        return f(c.nullSrcArray ? nullptr : planes, c.srcStep, d, c.dstStep, c.roi);
    }
}

struct CopyMember {
    const char* name;
    const char* descriptor;
    std::size_t elem;
    bool managed;
    PvxStatus (*call)(int path, const CopyCall&);
};

#define PVX_COPY_MEMBER(sig, S, D, desc, exportName)                              \
    CopyMember{#exportName, #desc, sizeof(S), std::string(#sig) == "copy_managed", \
               [](int path, const CopyCall& c) { return invoke<S>(PVX_PATH_FN(exportName, path), c); }},
#define PVX_NAME_OF(sig, S, D, desc, exportName) #exportName,

const std::vector<CopyMember>& copyMembers()
{
    static const std::vector<CopyMember> members = {PVX_MEMBERS_Copy(PVX_COPY_MEMBER)
                                                        PVX_MEMBERS_CopyManaged(PVX_COPY_MEMBER)};
    return members;
}

// Flags that must all give the plain copy: bit 0 asks for streaming stores.
const int kManagedFlags[] = {0, 1, 0x7ffffffe, -1, 3, INT_MIN};

// The images of one call, and the destination a correct copy leaves.
struct CopyRig {
    Descriptor d;
    std::size_t es;
    std::vector<std::unique_ptr<TestImage>> src, dst;
    std::unique_ptr<TestImage> mask;
    CopyCall call;
    int srcChannel, dstChannel;

    CopyRig(const CopyMember& m, const Shape& s, int channel, int flags, Rng& rng)
        : d(parseDescriptor(m.descriptor)), es(m.elem)
    {
        src = makeImages(d.src, es, s, true, rng);
        dst = makeImages(d.dst, es, s, false, rng);
        // The chosen channel; -1 picks the last one.
        srcChannel = !d.src.chosen ? 0 : channel < 0 ? d.src.pixel - 1 : channel % d.src.pixel;
        dstChannel = !d.dst.chosen ? 0 : channel < 0 ? d.dst.pixel - 1 : channel % d.dst.pixel;
        for (std::size_t k = 0; k < src.size(); ++k)
            call.src[k] = src[k]->origin() + static_cast<std::size_t>(srcChannel) * es;
        for (std::size_t k = 0; k < dst.size(); ++k)
            call.dst[k] = dst[k]->origin() + static_cast<std::size_t>(dstChannel) * es;
        call.srcStep = src[0]->step();
        call.dstStep = dst[0]->step();
        call.roi = {s.width, s.height};
        if (d.masked) {
            mask = makeMask(s, rng);
            call.mask = mask->origin();
            call.maskStep = mask->step();
        }
        call.flags = flags;
    }

    static std::vector<Bytes> snapshot(const std::vector<std::unique_ptr<TestImage>>& images)
    {
        std::vector<Bytes> v;
        for (const auto& i : images)
            v.push_back(i->contents());
        return v;
    }

    // Reference: channel k of pixel x is element x * pixel + chosen channel
    // + k of an interleaved row, or element x of plane k.
    std::vector<Bytes> expected() const
    {
        std::vector<Bytes> want = snapshot(dst);
        const auto byteOf = [this](const Side& side, int channel, int x, int k) {
            return static_cast<std::size_t>(x * side.pixel + (side.planar ? 0 : channel + k)) * es;
        };
        for (int y = 0; y < call.roi.height; ++y)
            for (int x = 0; x < call.roi.width; ++x)
                for (int k = 0; k < d.count; ++k)
                    if (!mask || *mask->at(y, static_cast<std::size_t>(x)) != 0) {
                        const std::size_t si = d.src.planar ? k : 0, di = d.dst.planar ? k : 0;
                        std::memcpy(&want[di][dst[di]->indexOf(y, byteOf(d.dst, dstChannel, x, k))],
                                    src[si]->at(y, byteOf(d.src, srcChannel, x, k)), es);
                    }
        return want;
    }

    void expectContents(const std::vector<Bytes>& srcWant, const std::vector<Bytes>& dstWant) const
    {
        for (std::size_t k = 0; k < src.size(); ++k)
            EXPECT_TRUE(src[k]->matches(srcWant[k], "source (must not be written)"));
        for (std::size_t k = 0; k < dst.size(); ++k)
            EXPECT_TRUE(dst[k]->matches(dstWant[k], "destination"));
    }
};

class CopyTest : public ::testing::TestWithParam<PathCase<CopyMember>> {
protected:
    const CopyMember& member() const { return *GetParam().member; }

    // Runs every shape (with the chosen channel and flags varying per shape)
    // and compares sources and destinations with the reference.
    void runShapes(const std::vector<Shape>& shapes, bool lastChannel = false)
    {
        ASSERT_TRUE(parseDescriptor(member().descriptor).valid) << member().descriptor;
        for (std::size_t i = 0; i < shapes.size(); ++i) {
            const int flags = member().managed ? kManagedFlags[i % std::size(kManagedFlags)] : 0;
            const int channel = lastChannel ? -1 : static_cast<int>(i);
            SCOPED_TRACE(describe(shapes[i]) + " channel " + std::to_string(channel) + " flags " +
                         std::to_string(flags));
            Rng rng(i * 7919 + 17);
            CopyRig rig(member(), shapes[i], channel, flags, rng);
            const std::vector<Bytes> srcBefore = CopyRig::snapshot(rig.src), want = rig.expected();
            EXPECT_EQ(member().call(GetParam().path, rig.call), pvxStsOk);
            rig.expectContents(srcBefore, want);
        }
    }
};

TEST_P(CopyTest, MatchesReference)
{
    runShapes(referenceShapes());
}

TEST_P(CopyTest, ZeroAndNegativeSteps)
{
    runShapes(stepShapes());
}

// Last rows (and with them the last chosen channel) touch guard pages, so any
// read or write past the image faults.
TEST_P(CopyTest, NoAccessPastLastRow)
{
    runShapes(guardShapes(), true);
}

// A null pointer is reported before a bad size, and no failing call writes.
TEST_P(CopyTest, ArgumentChecks)
{
    Rng rng(99);
    CopyRig rig(member(), Shape{5, 2, 4, 4}, 1, 1, rng);
    const std::vector<Bytes> srcBefore = CopyRig::snapshot(rig.src), dstBefore = CopyRig::snapshot(rig.dst);
    // Calls with one pointer null, and one with all of them.
    std::vector<std::pair<std::string, CopyCall>> nulls;
    CopyCall all = rig.call;
    const auto add = [&](const std::string& what, auto edit) {
        nulls.push_back({what, rig.call});
        edit(nulls.back().second);
        edit(all);
    };
    for (std::size_t k = 0; k < rig.src.size(); ++k)
        add("pSrc[" + std::to_string(k) + "]", [k](CopyCall& c) { c.src[k] = nullptr; });
    for (std::size_t k = 0; k < rig.dst.size(); ++k)
        add("pDst[" + std::to_string(k) + "]", [k](CopyCall& c) { c.dst[k] = nullptr; });
    if (rig.d.src.planar)
        add("pSrc array", [](CopyCall& c) { c.nullSrcArray = true; });
    if (rig.d.dst.planar)
        add("pDst array", [](CopyCall& c) { c.nullDstArray = true; });
    if (rig.d.masked)
        add("pMask", [](CopyCall& c) { c.mask = nullptr; });
    nulls.push_back({"every pointer", all});
    const PvxiSize valid{5, 2};
    const PvxiSize bad[] = {{0, 2}, {5, 0}, {0, 0}, {-1, 2}, {5, -3}, {INT_MIN, INT_MIN}};
    auto check = [&](const std::string& what, PvxiSize roi, PvxStatus want, CopyCall c) {
        SCOPED_TRACE(what + " roi " + std::to_string(roi.width) + "x" + std::to_string(roi.height));
        c.roi = roi;
        EXPECT_EQ(member().call(GetParam().path, c), want);
        rig.expectContents(srcBefore, dstBefore);
    };
    for (const auto& n : nulls)
        for (PvxiSize roi : {valid, bad[0], bad[3], bad[4]})
            check("null " + n.first, roi, pvxStsNullPtrErr, n.second);
    for (PvxiSize roi : bad)
        check("valid pointers", roi, pvxStsSizeErr, rig.call);
}

INSTANTIATE_TEST_SUITE_P(Move, CopyTest, ::testing::ValuesIn(onEveryPath(copyMembers())), CaseName());

// CopyManaged with streaming stores: rows of at least 64 bytes, destinations
// at every offset from a cache line, so that the line-aligned head, the
// streamed body and the tail all vary; every flag value gives the plain copy.
class CopyManagedTest : public CopyTest {};

TEST_P(CopyManagedTest, AnyFlagsGivePlainCopy)
{
    std::vector<Shape> shapes;
    for (int w : {63, 64, 65, 100, 127, 200, 1000, 4099})
        for (unsigned a = 0; a < 64; ++a)
            shapes.push_back({w, 3, int(a % 7), int(a * 3 % 17), 1, 1, a});
    shapes.push_back({300, 5, 0, 0, 1, 1, 33});  // contiguous: one long row
    runShapes(shapes);
}

std::vector<PathCase<CopyMember>> managedCases()
{
    std::vector<PathCase<CopyMember>> v;
    for (const PathCase<CopyMember>& c : onEveryPath(copyMembers()))
        if (c.member->managed)
            v.push_back(c);
    return v;
}

INSTANTIATE_TEST_SUITE_P(Move, CopyManagedTest, ::testing::ValuesIn(managedCases()), CaseName());

TEST(CopyRegistration, EveryMemberOnEveryPath)
{
    const std::vector<std::string> names = {PVX_MEMBERS_Copy(PVX_NAME_OF) PVX_MEMBERS_CopyManaged(PVX_NAME_OF)};
    EXPECT_EQ(names.size(), 5u * 20u + 1u);  // 20 forms of 5 types, and CopyManaged
    expectEveryCaseRegistered("Move/CopyTest",
                              {"MatchesReference", "ZeroAndNegativeSteps", "NoAccessPastLastRow", "ArgumentChecks"},
                              names);
    expectEveryCaseRegistered("Move/CopyManagedTest", {"AnyFlagsGivePlainCopy"}, {"pvxiCopyManaged_8u_C1R"});
}

}  // namespace
