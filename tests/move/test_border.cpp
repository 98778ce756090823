// CopyConstBorder, CopyReplicateBorder and CopyWrapBorder: every member on
// every code path against a scalar reference of the frame geometry, with
// canaries around the destination ROI and in the AC4 fourth channel, images
// ending at guard pages, in-place forms and equal pointers, and check order.
#include <climits>
#include <cstring>
#include <type_traits>

#include "support/harness.h"

namespace {

using namespace pvxtest;

// The arguments of every form; the in-place forms use src and srcStep.
struct BorderCall {
    const void* src;
    int srcStep;
    PvxiSize srcRoi;
    void* dst;
    int dstStep;
    PvxiSize dstRoi;
    int top, left;
    const void* value;
};

// Calls one form, whichever of the signatures it has.
template <class T, class F>
PvxStatus invoke(F f, const BorderCall& c)
{
    const T* s = static_cast<const T*>(c.src);
    T* d = static_cast<T*>(c.dst);
    if constexpr (std::is_invocable_v<F, T*, int, PvxiSize, PvxiSize, int, int>)
        return f(const_cast<T*>(s), c.srcStep, c.srcRoi, c.dstRoi, c.top, c.left);
    else if constexpr (std::is_invocable_v<F, const T*, int, PvxiSize, T*, int, PvxiSize, int, int>)
        return f(s, c.srcStep, c.srcRoi, d, c.dstStep, c.dstRoi, c.top, c.left);
    else if constexpr (std::is_invocable_v<F, const T*, int, PvxiSize, T*, int, PvxiSize, int, int, T>)
        return f(s, c.srcStep, c.srcRoi, d, c.dstStep, c.dstRoi, c.top, c.left, *static_cast<const T*>(c.value));
    else
        return f(s, c.srcStep, c.srcRoi, d, c.dstStep, c.dstRoi, c.top, c.left, static_cast<const T*>(c.value));
}

enum Kind { Const, Replicate, Wrap };

struct BorderMember {
    const char* name;
    const char* descriptor;
    std::size_t elem;
    PvxStatus (*call)(int path, const BorderCall&);
    Kind kind() const { return std::strstr(name, "Const") ? Const : std::strstr(name, "Wrap") ? Wrap : Replicate; }
};

#define PVX_BORDER_MEMBER(sig, S, D, desc, name) \
    BorderMember{#name, #desc, sizeof(S),         \
                 [](int p, const BorderCall& c) { return invoke<S>(PVX_PATH_FN(name, p), c); }},
#define PVX_NAME_OF(sig, S, D, desc, name) #name,

const std::vector<BorderMember> kMembers = {PVX_MEMBERS_CopyConstBorder(PVX_BORDER_MEMBER)
                                                PVX_MEMBERS_CopyReplicateBorder(PVX_BORDER_MEMBER)
                                                    PVX_MEMBERS_CopyWrapBorder(PVX_BORDER_MEMBER)};

struct Frame {
    int srcW, srcH, dstW, dstH, top, left;
};

// Separate images; the source inside the destination buffer (IR); or an R
// form given equal pointers, which acts as IR with the source step.
enum Mode { Separate, InPlace, SamePointer };

// The images of one call and the destination the frame geometry predicts.
struct BorderRig {
    const BorderMember& m;
    Descriptor d;
    std::size_t px;  // pixel bytes
    std::unique_ptr<TestImage> src, dst;
    alignas(16) unsigned char value[16];
    BorderCall call;

    BorderRig(const BorderMember& member, Mode mode, const Frame& f, int pad, unsigned misalign, bool flush, Rng& rng)
        : m(member), d(parseDescriptor(member.descriptor)), px(d.dst.pixel * member.elem)
    {
        const auto image = [&](int w, int h, unsigned mis) {
            const std::size_t row = static_cast<std::size_t>(w) * px;
            return std::make_unique<TestImage>(row, h, int(row + pad * m.elem), mis / m.elem * m.elem, flush, rng);
        };
        dst = image(f.dstW, f.dstH, misalign);
        rng.fill(value, sizeof value);
        call = {nullptr, 0, {f.srcW, f.srcH}, dst->origin(), dst->step(), {f.dstW, f.dstH}, f.top, f.left, value};
        if (mode == Separate) {
            src = image(f.srcW, f.srcH, (misalign * 7 + 3) % 16);
            call.src = src->origin(), call.srcStep = src->step();
        } else {  // a same-pointer call gets a destination step that must be ignored
            call.src = call.dst = dst->at(f.top, f.left * px);
            call.srcStep = dst->step(), call.dstStep = mode == SamePointer && m.kind() == Replicate ? 0 : 1;
        }
    }

    // Destination pixel (x, y) takes source pixel (x - left, y - top) mapped
    // into the source by the member's kind; Const outside takes the value.
    Bytes expected() const
    {
        Bytes want = dst->contents();
        const Bytes before = want;
        const auto map = [this](int v, int n) {
            return m.kind() == Wrap ? (v % n + n) % n : m.kind() == Replicate ? std::clamp(v, 0, n - 1) : v;
        };
        for (int y = 0; y < call.dstRoi.height; ++y)
            for (int x = 0; x < call.dstRoi.width; ++x) {
                const int sx = map(x - call.left, call.srcRoi.width), sy = map(y - call.top, call.srcRoi.height);
                const bool inside = sx >= 0 && sx < call.srcRoi.width && sy >= 0 && sy < call.srcRoi.height;
                for (std::size_t c = 0; c < d.count * m.elem; ++c)
                    want[dst->indexOf(y, x * px + c)] =
                        !inside ? value[c]
                        : src   ? *src->at(sy, sx * px + c)
                                : before[dst->indexOf(sy + call.top, (call.left + sx) * px + c)];
            }
        return want;
    }

    // Runs the call and compares both images with what they must hold.
    void check(int path, const BorderCall& c, PvxStatus status, const Bytes& dstWant) const
    {
        const Bytes srcBefore = src ? src->contents() : Bytes();
        EXPECT_EQ(m.call(path, c), status);
        EXPECT_TRUE(dst->matches(dstWant, "destination"));
        if (src) {
            EXPECT_TRUE(src->matches(srcBefore, "source"));
        }
    }
};

class BorderTest : public ::testing::TestWithParam<PathCase<BorderMember>> {};

// 1x1 sources, equal sizes, each side 0 in turn, frames wider and taller than
// the source, widths around the vector sizes and random frames; padded steps,
// misaligned destinations, and again ending at guard pages.
TEST_P(BorderTest, MatchesReference)
{
    const BorderMember& m = *GetParam().member;
    const Descriptor d = parseDescriptor(m.descriptor);
    ASSERT_TRUE(d.valid);
    std::vector<Frame> frames = {{1, 1, 1, 1, 0, 0},  {1, 1, 9, 7, 3, 4},       {17, 5, 17, 5, 0, 0},
                                 {3, 2, 20, 9, 5, 7}, {15, 3, 16, 4, 1, 0},     {65, 4, 130, 7, 0, 65},
                                 {2, 3, 37, 8, 1, 20}, {130, 3, 163, 22, 16, 17}, {17, 6, 50, 13, 0, 33}};
    Rng shapes(1);
    for (int i = 0; i < 4; ++i) {
        const int w = 1 + shapes.below(40), h = 1 + shapes.below(6), top = shapes.below(9), left = shapes.below(50);
        frames.push_back({w, h, w + left + int(shapes.below(40)), h + top + int(shapes.below(9)), top, left});
    }
    std::vector<Mode> modes = {d.inPlace ? InPlace : Separate};
    if (!d.inPlace && m.kind() != Const)
        modes.push_back(SamePointer);
    int run = 0;
    for (Mode mode : modes)
        for (const Frame& f : frames)
            for (bool flush : {false, true}) {
                SCOPED_TRACE(::testing::Message() << "src " << f.srcW << "x" << f.srcH << " dst " << f.dstW << "x"
                                                  << f.dstH << " top " << f.top << " left " << f.left << " mode "
                                                  << mode << (flush ? " flush" : ""));
                Rng rng(++run);
                BorderRig rig(m, mode, f, run * 3 % 11, run * 5 % 16, flush, rng);
                rig.check(GetParam().path, rig.call, pvxStsOk, rig.expected());
            }
}

// Pointers, then steps, then sizes, then the values of the multi-channel
// Const forms; Wrap compares equal pointers only after its checks. A failing
// call writes nothing.
TEST_P(BorderTest, ArgumentChecks)
{
    const BorderMember& m = *GetParam().member;
    const Descriptor d = parseDescriptor(m.descriptor);
    const bool sep = !d.inPlace, values = m.kind() == Const && d.dst.pixel > 1;
    const struct {
        void (*edit)(BorderCall&);
        PvxStatus want;
        bool applies;
    } cases[] = {
        {[](BorderCall& c) { c.src = nullptr, c.srcStep = 0, c.top = -1; }, pvxStsNullPtrErr, true},
        {[](BorderCall& c) { c.dst = nullptr, c.srcStep = 0; }, pvxStsNullPtrErr, sep},
        {[](BorderCall& c) { c.srcStep = 0, c.top = -1; }, pvxStsStepErr, true},
        {[](BorderCall& c) { c.srcStep = -8; }, pvxStsStepErr, true},
        {[](BorderCall& c) { c.dstStep = 0, c.srcRoi.width = 0; }, pvxStsStepErr, sep},
        {[](BorderCall& c) { c.top = -1; }, pvxStsSizeErr, true},
        {[](BorderCall& c) { c.left = -1; }, pvxStsSizeErr, true},
        {[](BorderCall& c) { c.left = INT_MAX; }, pvxStsSizeErr, true},
        {[](BorderCall& c) { c.left = 5; }, pvxStsSizeErr, true},  // source sticks out on the right
        {[](BorderCall& c) { c.top = 4; }, pvxStsSizeErr, true},   // ... and at the bottom
        {[](BorderCall& c) { c.srcRoi.height = 0; }, pvxStsSizeErr, true},
        {[](BorderCall& c) { c.dstRoi.width = -1; }, pvxStsSizeErr, true},
        {[](BorderCall& c) { c.value = nullptr, c.srcRoi.width = 9; }, pvxStsSizeErr, values},
        {[](BorderCall& c) { c.value = nullptr, c.dstStep = 0; }, pvxStsStepErr, values},
        {[](BorderCall& c) { c.value = nullptr; }, pvxStsNullPtrErr, values},
        {[](BorderCall& c) { c.dst = const_cast<void*>(c.src), c.dstStep = 0; }, pvxStsStepErr,
         sep && m.kind() == Wrap},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        if (!cases[i].applies)
            continue;
        SCOPED_TRACE("case " + std::to_string(i));
        Rng rng(5);
        BorderRig rig(m, sep ? Separate : InPlace, Frame{4, 3, 8, 6, 1, 2}, 4, 3, false, rng);
        BorderCall c = rig.call;
        cases[i].edit(c);
        rig.check(GetParam().path, c, cases[i].want, rig.dst->contents());
    }
}

INSTANTIATE_TEST_SUITE_P(Move, BorderTest, ::testing::ValuesIn(onEveryPath(kMembers)), CaseName());

TEST(BorderRegistration, EveryMemberOnEveryPath)
{
    const std::vector<std::string> names = {PVX_MEMBERS_CopyConstBorder(PVX_NAME_OF) PVX_MEMBERS_CopyReplicateBorder(
        PVX_NAME_OF) PVX_MEMBERS_CopyWrapBorder(PVX_NAME_OF)};
    EXPECT_EQ(names.size(), 20u + 40u + 4u);
    expectEveryCaseRegistered("Move/BorderTest", {"MatchesReference", "ArgumentChecks"}, names);
}

}  // namespace
