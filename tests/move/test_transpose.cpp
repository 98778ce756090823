// Transpose: every member on every code path against a plain scalar
// reference, with canaries around both images, cut tiles and blocks, padded,
// misaligned, zero and negative steps, images ending at guard pages, the
// large-image path taken and refused, one image passed twice, and the checks.
#include <dlfcn.h>

#include <climits>
#include <type_traits>

#include "support/harness.h"

// The library asks pvxcore for the largest cache size only for an image that
// qualifies for its large-image path. This definition stands in for
// pvxcore's in the test program: while a test holds a CacheAnswer it counts
// the questions and gives that answer (a 1-byte cache selects the large
// kernel); otherwise it forwards to pvxcore.
namespace {
struct CacheAnswer {
    PvxStatus status;
    int bytes, queries = 0;
    static inline CacheAnswer* current = nullptr;
    CacheAnswer(PvxStatus s, int b) : status(s), bytes(b) { current = this; }
    ~CacheAnswer() { current = nullptr; }
};
}  // namespace

extern "C" PvxStatus PVX_CALL pvxGetMaxCacheSizeB(int* pSizeBytes)
{
    if (CacheAnswer* a = CacheAnswer::current) {
        ++a->queries;
        if (a->status == pvxStsOk)
            *pSizeBytes = a->bytes;
        return a->status;
    }
    using Fn = PvxStatus(PVX_CALL*)(int*);
    static const Fn core = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "pvxGetMaxCacheSizeB"));
    return core ? core(pSizeBytes) : pvxStsNotSupportedModeErr;
}

namespace {

using namespace pvxtest;

struct TransposeMember {
    const char* name;
    std::size_t elem, pixel;
    bool inPlace;  // takes (dst, dstStep, roi); the source arguments are ignored
    PvxStatus (*call)(int path, const void* src, int srcStep, void* dst, int dstStep, PvxiSize roi);
};

template <class T, class F>
PvxStatus invoke(F f, const void* s, int ss, void* d, int ds, PvxiSize roi)
{
    if constexpr (std::is_invocable_v<F, T*, int, PvxiSize>)
        return f(static_cast<T*>(d), ds, roi);
    else
        return f(static_cast<const T*>(s), ss, static_cast<T*>(d), ds, roi);
}

#define PVX_TRANSPOSE_MEMBER(sig, S, D, desc, exportName)                                                           \
    TransposeMember{#exportName, sizeof(S), sizeof(S) * parseDescriptor(#desc).src.pixel,                           \
                    parseDescriptor(#desc).inPlace, [](int path, const void* s, int ss, void* d, int ds, PvxiSize r) { \
                        return invoke<S>(PVX_PATH_FN(exportName, path), s, ss, d, ds, r);                           \
                    }},
#define PVX_NAME_OF(sig, S, D, desc, exportName) #exportName,

const std::vector<TransposeMember>& members()
{
    static const std::vector<TransposeMember> v = {PVX_MEMBERS_Transpose(PVX_TRANSPOSE_MEMBER)};
    return v;
}

// A W x H source; pads and origin offsets (from a 64-byte boundary) in bytes,
// rounded down to whole elements. Sign 0 gives a source step of 0; `same`
// passes the source as the destination too, with its step.
struct Geometry {
    int width, height, srcPad = 0, dstPad = 0, srcSign = 1, dstSign = 1;
    unsigned srcOffset = 0, dstOffset = 0;
    bool flush = false, same = false;

    std::string str() const
    {
        std::ostringstream os;
        os << width << "x" << height << " pads " << srcPad << "/" << dstPad << " signs " << srcSign << "/" << dstSign
           << " offsets " << srcOffset << "/" << dstOffset << (flush ? " flush" : "") << (same ? " same" : "");
        return os.str();
    }
};

// The images of one call: the source and, out of place, the H x W destination.
struct Rig {
    const TransposeMember& m;
    Geometry g;
    std::unique_ptr<TestImage> src, dst;

    Rig(const TransposeMember& member, const Geometry& geo, Rng& rng) : m(member), g(geo)
    {
        const auto whole = [&](std::size_t b) { return static_cast<int>(b - b % m.elem); };
        const std::size_t srcRow = g.width * m.pixel, dstRow = g.height * m.pixel;
        src = std::make_unique<TestImage>(srcRow, g.height, g.srcSign * (int(srcRow) + whole(g.srcPad)),
                                          whole(g.srcOffset), g.flush, rng);
        if (!g.same && !m.inPlace)
            dst = std::make_unique<TestImage>(dstRow, g.width, g.dstSign * (int(dstRow) + whole(g.dstPad)),
                                              whole(g.dstOffset), g.flush, rng);
    }
    TestImage& out() const { return dst ? *dst : *src; }
    PvxStatus run(int path, PvxiSize roi) const
    {
        return m.call(path, src->origin(), src->step(), out().origin(), out().step(), roi);
    }
    // Destination row x is source column x, as read before the call.
    void expectTransposed(int path) const
    {
        const Bytes srcBefore = src->contents();
        Bytes want = out().contents();
        for (int y = 0; y < g.height; ++y)
            for (int x = 0; x < g.width; ++x)
                std::memcpy(&want[out().indexOf(x, y * m.pixel)], src->at(y, x * m.pixel), m.pixel);
        ASSERT_EQ(run(path, {g.width, g.height}), pvxStsOk);
        if (dst) {
            EXPECT_TRUE(src->matches(srcBefore, "source (must not be written)"));
        }
        EXPECT_TRUE(out().matches(want, "destination"));
    }
};

class TransposeTest : public ::testing::TestWithParam<PathCase<TransposeMember>> {
protected:
    const TransposeMember& member() const { return *GetParam().member; }
    void expectTransposed(const Geometry& g, std::uint64_t seed) const
    {
        SCOPED_TRACE(g.str());
        Rng rng(seed);
        Rig(member(), g, rng).expectTransposed(GetParam().path);
    }
};

// Sides around the 16/8/4/2-pixel blocks and the 64-pixel tiles, cut at both
// edges; pads, offsets and step signs vary, and some images end at guard
// pages. In place the ROI is square.
TEST_P(TransposeTest, MatchesReference)
{
    int i = 0;
    for (int w : {1, 2, 3, 15, 16, 17, 33, 64, 65, 130})
        for (int h : {1, 2, 3, 15, 16, 17, 33, 64, 65, 130}) {
            if (member().inPlace && w != h)
                continue;
            const bool zeroStep = i % 11 == 6 && !member().inPlace;
            expectTransposed({w, h, i * 5 % 13, i * 3 % 11, zeroStep ? 0 : i % 7 == 3 ? -1 : 1, i % 7 == 5 ? -1 : 1,
                              unsigned(i * 7 + 3) % 16, unsigned(i % 16), i % 5 == 4},
                             ++i);
        }
}

// A null pointer comes before a bad size; one image passed twice with one
// step goes to the in-place form, which wants a square. Nothing is written.
TEST_P(TransposeTest, ArgumentChecks)
{
    Rng rng(7);
    const Rig rig(member(), Geometry{5, 5, 4, 8}, rng);
    const Bytes srcBefore = rig.src->contents(), dstBefore = rig.out().contents();
    void *s = rig.src->origin(), *d = rig.out().origin();
    const int ss = rig.src->step(), ds = rig.out().step();
    struct Case {
        const void* s;
        int ss;
        void* d;
        int ds;
        PvxiSize roi;
        PvxStatus want;
    };
    std::vector<Case> cases = {{s, ss, nullptr, ds, {4, 4}, pvxStsNullPtrErr},
                               {s, ss, nullptr, ds, {0, 3}, pvxStsNullPtrErr},
                               {nullptr, ss, nullptr, ss, {3, 2}, pvxStsNullPtrErr}};
    if (!member().inPlace)
        cases.insert(cases.end(), {{nullptr, ss, d, ds, {4, 4}, pvxStsNullPtrErr},
                                   {nullptr, ss, d, ds, {-1, 4}, pvxStsNullPtrErr}});
    for (PvxiSize bad : {PvxiSize{0, 2}, {2, 0}, {-1, 2}, {2, -3}, {0, 0}, {INT_MIN, INT_MIN}})
        cases.push_back({s, ss, d, ds, bad, pvxStsSizeErr});
    for (PvxiSize oblong : {PvxiSize{3, 2}, {2, 3}, {4, 3}, {1, 5}})  // in place, or one image passed twice
        cases.push_back({s, ss, member().inPlace ? d : s, member().inPlace ? ds : ss, oblong, pvxStsSizeErr});
    for (const Case& c : cases) {
        SCOPED_TRACE("roi " + std::to_string(c.roi.width) + "x" + std::to_string(c.roi.height) +
                     (c.s ? "" : " null src") + (c.d ? "" : " null dst") + (c.s == c.d ? " same image" : ""));
        EXPECT_EQ(member().call(GetParam().path, c.s, c.ss, c.d, c.ds, c.roi), c.want);
        EXPECT_TRUE(rig.src->matches(srcBefore, "source"));
        EXPECT_TRUE(rig.out().matches(dstBefore, "destination"));
    }
}

INSTANTIATE_TEST_SUITE_P(Move, TransposeTest, ::testing::ValuesIn(onEveryPath(members())), CaseName());

class TransposeOutOfPlaceTest : public TransposeTest {};

// Out of place, one image passed twice with one step is transposed in place.
TEST_P(TransposeOutOfPlaceTest, SameImageTransposedInPlace)
{
    for (int n : {1, 4, 17, 33, 65})
        expectTransposed({n, n, 8, 0, n == 17 ? -1 : 1, 1, 4, 0, n == 33, true}, n);
}

// The large-image path: width above 1,024, width and height multiples of 64,
// source pointer and step multiples of 16, destination pointer and step
// multiples of 64. Only then is the cache size asked, once; a 1-byte cache
// selects the large kernel (unless the destination step is negative), a huge
// or unknown one the tiles. Breaking any one condition skips the question.
TEST_P(TransposeOutOfPlaceTest, LargeImagePath)
{
    const Geometry accepted[] = {{1088, 64}, {1152, 128, 48, 64}, {1088, 64, 16, 0, -1}, {1088, 64, 0, 64, 1, -1}};
    const Geometry refused[] = {{1024, 64},       {1100, 64},      {1088, 96},
                                {1088, 64, 8, 0}, {1088, 64, 0, 32}, {1088, 64, 0, 0, 1, 1, 4, 0},
                                {1088, 64, 0, 0, 1, 1, 0, 16}};
    const std::pair<PvxStatus, int> answers[] = {{pvxStsOk, 1}, {pvxStsOk, INT_MAX}, {pvxStsNotSupportedModeErr, 0}};
    std::uint64_t seed = 1;
    for (const Geometry& g : accepted)
        for (const auto& a : answers) {
            CacheAnswer answer(a.first, a.second);
            expectTransposed(g, ++seed);
            EXPECT_EQ(answer.queries, 1) << g.str() << " cache " << a.second;
            if (&g != accepted)
                break;  // the other geometries with the 1-byte cache only
        }
    for (const Geometry& g : refused) {
        CacheAnswer answer(pvxStsOk, 1);
        expectTransposed(g, ++seed);
        EXPECT_EQ(answer.queries, 0) << g.str();
    }
}

std::vector<PathCase<TransposeMember>> outOfPlaceCases()
{
    std::vector<PathCase<TransposeMember>> v;
    for (const PathCase<TransposeMember>& c : onEveryPath(members()))
        if (!c.member->inPlace)
            v.push_back(c);
    return v;
}

INSTANTIATE_TEST_SUITE_P(Move, TransposeOutOfPlaceTest, ::testing::ValuesIn(outOfPlaceCases()), CaseName());

TEST(TransposeRegistration, EveryMemberOnEveryPath)
{
    std::vector<std::string> all = {PVX_MEMBERS_Transpose(PVX_NAME_OF)}, outOfPlace;
    for (const std::string& n : all)
        if (n.compare(n.size() - 2, 2, "IR") != 0)
            outOfPlace.push_back(n);
    EXPECT_EQ(all.size(), 30u);  // C1, C3 and C4 of 5 types, in and out of place
    expectEveryCaseRegistered("Move/TransposeTest", {"MatchesReference", "ArgumentChecks"}, all);
    expectEveryCaseRegistered("Move/TransposeOutOfPlaceTest", {"SameImageTransposedInPlace", "LargeImagePath"},
                              outOfPlace);
}

}  // namespace
