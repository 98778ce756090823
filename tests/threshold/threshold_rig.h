// The rig of the Threshold, Compare and lookup-table tests: one call
// description that reaches every export through its own signature, element
// values as doubles, random data with the type limits, the shapes, the images
// of a call, the reference run and the table-driven check order.
#pragma once

#include <climits>
#include <cmath>
#include <cstring>
#include <deque>
#include <functional>
#include <tuple>
#include <type_traits>
#include <utility>

#include "support/harness.h"

namespace pvxtest {

// ---------------------------------------------------------------- calls

// The arguments of one call. Pointers before the size that an int follows
// are the images (sources, then the destination; one image in place), each
// with its step; int and operator parameters after them take `num`; every
// other parameter takes the next `arg`: a pointer parameter the pointer, a
// value parameter the value it points to (element 0 of an array; zero if
// null). So one array of constants serves the C1 and the array forms.
struct Call {
    void* img[3] = {};
    int step[3] = {};
    int images = 0;
    PvxiSize roi{};
    const void* arg[5] = {};
    int num = 0;
};

struct Feeder {
    const Call& c;
    bool afterSize = false;
    int i = 0, s = 0, a = 0;
    template <class P, class Next>
    P next()
    {
        if constexpr (std::is_same_v<P, PvxiSize>)
            return afterSize = true, c.roi;
        else if constexpr (std::is_pointer_v<P>)
            return !afterSize && std::is_same_v<Next, int> ? static_cast<P>(c.img[i++])
                                                           : static_cast<P>(const_cast<void*>(c.arg[a++]));
        else if constexpr (std::is_same_v<P, int> || std::is_enum_v<P>)
            return static_cast<P>(afterSize ? c.num : c.step[s++]);
        P v{};
        if (const void* p = c.arg[a++])
            std::memcpy(&v, p, sizeof v);
        return v;
    }
};

template <class... P, std::size_t... I>
PvxStatus feed(PvxStatus(PVX_CALL* f)(P...), const Call& c, std::index_sequence<I...>)
{
    Feeder in{c};
    const std::tuple<P...> args{in.next<P, std::tuple_element_t<I + 1, std::tuple<P..., char>>>()...};  // in order
    return std::apply(f, args);
}

template <class... P>
PvxStatus callWith(PvxStatus(PVX_CALL* f)(P...), const Call& c)
{
    return feed(f, c, std::index_sequence_for<P...>{});
}

// ---------------------------------------------------------------- members and values

enum class Type { U8, U16, S16, F32, Other };
template <class T>
constexpr Type typeOf = std::is_same_v<T, Pvx8u> ? Type::U8 : std::is_same_v<T, Pvx16u> ? Type::U16
                      : std::is_same_v<T, Pvx16s> ? Type::S16 : std::is_same_v<T, Pvx32f> ? Type::F32 : Type::Other;

struct Member {
    const char* name;
    const char* descriptor;
    Type type;             // of the source elements
    int srcSize, dstSize;  // bytes per element
    PvxStatus (*call)(int path, const Call&);
};

#define PVX_RIG_MEMBER(sig, S, D, desc, exportName)                                           \
    pvxtest::Member{#exportName, #desc, pvxtest::typeOf<S>, sizeof(S), sizeof(D),             \
                    [](int path, const pvxtest::Call& c) {                                    \
                        return pvxtest::callWith(PVX_PATH_FN(exportName, path), c);           \
                    }},

inline int sizeOf(Type t) { return t == Type::U8 ? 1 : t == Type::F32 ? 4 : 2; }
inline double lowest(Type t) { return t == Type::S16 ? -32768 : t == Type::F32 ? -HUGE_VAL : 0; }
inline double highest(Type t) { return t == Type::U8 ? 255 : t == Type::U16 ? 65535 : t == Type::S16 ? 32767 : HUGE_VAL; }

// Every 8u, 16u, 16s and 32f value is exact as a double.
inline double get(Type t, const unsigned char* p)
{
    Pvx16u u;
    Pvx16s s;
    float f;
    return t == Type::U8 ? *p : t == Type::U16 ? (std::memcpy(&u, p, 2), u) : t == Type::S16 ? (std::memcpy(&s, p, 2), s)
                                                                                : (std::memcpy(&f, p, 4), f);
}
inline void put(Type t, unsigned char* p, double v)
{
    const auto u = static_cast<Pvx16u>(t == Type::U16 ? static_cast<Pvx16u>(v) : t == Type::S16 ? static_cast<Pvx16s>(v) : 0);
    const float f = static_cast<float>(v);
    const Pvx8u b = t == Type::U8 ? static_cast<Pvx8u>(v) : 0;
    std::memcpy(p, t == Type::F32 ? static_cast<const void*>(&f) : t == Type::U8 ? static_cast<const void*>(&b) : &u, sizeOf(t));
}

// A random element: often the type's bounds and their neighbours or, for
// 32f, NaNs with payloads, infinities, -0.0 and denormals; then small
// quarter steps (equal values and exact differences), then anything.
inline void randomElement(Type t, unsigned char* p, Rng& rng)
{
    const unsigned r = rng.below(8);
    const std::vector<std::uint32_t>& edge = floatEdgeCases();
    if (t == Type::F32 && r == 0)
        std::memcpy(p, &edge[rng.below(static_cast<unsigned>(edge.size()))], 4);
    else if (t == Type::F32)
        put(t, p, r == 1 ? std::ldexp(static_cast<double>(rng.next() >> 40) - 8388608.0, int(rng.below(60)) - 30)
                         : (static_cast<int>(rng.below(41)) - 20) * 0.25);
    else if (r == 0)
        put(t, p, rng.below(2) ? lowest(t) + rng.below(2) : highest(t) - rng.below(2));
    else
        put(t, p, lowest(t) + static_cast<double>(rng.next() % static_cast<std::uint64_t>(highest(t) - lowest(t) + 1)));
}

// Random elements over the ROI of an image of `pixel` elements per pixel.
inline void fillRandom(TestImage& img, Type t, int pixel, const Shape& s, Rng& rng)
{
    for (int y = 0; y < s.height; ++y)
        for (int i = 0; i < s.width * pixel; ++i)
            randomElement(t, img.at(y, static_cast<std::size_t>(i * sizeOf(t))), rng);
}

// ---------------------------------------------------------------- images

// Widths 1, 3, 15, 17, 65, 130 with padded steps and destination
// misalignments, a contiguous image, and images flush against guard pages.
inline std::vector<Shape> rigShapes()
{
    std::vector<Shape> v;
    unsigned a = 0;
    for (int w : {1, 3, 15, 17, 65, 130})
        for (int k = 0; k < 2; ++k, ++a)
            v.push_back({w, 3, int(a * 5 % 13), int(a * 3 % 11), 1, 1, a * 7 % 16});
    v.push_back({33, 4, 0, 0, 1, 1, 0});
    for (const Shape& g : guardShapes())
        v.push_back(g);
    return v;
}

// The images of a call in parameter order: sources (sides whose elements are
// given with `source` true), then the destination.
struct Frame {
    struct Part {
        Side side;
        int elem;
        bool source;
    };
    std::vector<std::unique_ptr<TestImage>> img;
    Shape shape;

    Frame(const std::vector<Part>& parts, const Shape& s, Rng& rng) : shape(s)
    {
        for (const Part& p : parts)
            img.push_back(std::move(makeImages(p.side, static_cast<std::size_t>(p.elem), s, p.source, rng)[0]));
    }
    TestImage& dst() const { return *img.back(); }
    Call call() const
    {
        Call c;
        for (const auto& i : img)
            c.img[c.images] = i->origin(), c.step[c.images++] = i->step();
        c.roi = {shape.width, shape.height};
        return c;
    }
    std::vector<Bytes> contents() const
    {
        std::vector<Bytes> v;
        for (const auto& i : img)
            v.push_back(i->contents());
        return v;
    }
    void expectUnchanged(const std::vector<Bytes>& before, std::size_t count) const
    {
        for (std::size_t i = 0; i < count; ++i)
            EXPECT_TRUE(img[i]->matches(before[i], "image (must not be written)")) << "image " << i;
    }
};

// Runs `c` and compares the destination byte for byte, canaries included,
// with the reference: pixel(y, x, want) writes the expected bytes of
// destination pixel (y, x) (pixelBytes long) into `want`. Sources must not
// change.
template <class PixelFn>
void expectReference(const Member& m, int path, const Frame& f, const Call& c, int pixelBytes, PixelFn pixel)
{
    const std::vector<Bytes> before = f.contents();
    Bytes want = before.back();
    for (int y = 0; y < f.shape.height; ++y)
        for (int x = 0; x < f.shape.width; ++x)
            pixel(y, x, &want[f.dst().indexOf(y, static_cast<std::size_t>(x) * pixelBytes)]);
    ASSERT_EQ(m.call(path, c), pvxStsOk);
    EXPECT_TRUE(f.dst().matches(want, "destination"));
    f.expectUnchanged(before, f.img.size() - 1);
}

// A parameterised test of one member on one path. frame() gives a source
// and a destination of the member's layout, or the one image in place.
class MemberTest : public ::testing::TestWithParam<PathCase<Member>> {
protected:
    const Member& m = *GetParam().member;
    const int path = GetParam().path;
    // parseDescriptor does not know C3A0C4 (three channels into four).
    const Descriptor d = std::strcmp(m.descriptor, "C3A0C4R") ? parseDescriptor(m.descriptor) : Descriptor{{3, 3}, {4, 3}};

    Frame frame(const Shape& s, Rng& rng) const
    {
        if (d.inPlace)
            return Frame({{d.dst, m.srcSize, false}}, s, rng);
        return Frame({{d.src, m.srcSize, true}, {d.dst, m.dstSize, false}}, s, rng);
    }
};

// The cases of a family: every member on every path.
inline std::vector<PathCase<Member>> casesOf(std::vector<Member> members)
{
    static std::deque<std::vector<Member>> kept;  // the cases point into these
    kept.push_back(std::move(members));
    return onEveryPath(kept.back());
}

// ---------------------------------------------------------------- check order

// One way to get an argument wrong and the status that reports it; `pick`
// chooses which argument and which bad value.
struct Fault {
    PvxStatus status;
    std::function<void(Call&, unsigned pick)> apply;
};

inline const Fault nullImage{pvxStsNullPtrErr, [](Call& c, unsigned p) { c.img[p % c.images] = nullptr; }};
inline const Fault badSize{pvxStsSizeErr, [](Call& c, unsigned p) {
                               const PvxiSize bad[] = {{0, c.roi.height}, {c.roi.width, 0}, {-1, 3}, {INT_MIN, INT_MIN}};
                               c.roi = bad[p % 4];
                           }};
inline const Fault stepBelowOne{pvxStsStepErr, [](Call& c, unsigned p) {
                                    c.step[p % c.images] = p / 4 % 3 == 0 ? 0 : p / 4 % 3 == 1 ? -1 : INT_MIN;
                                }};

// Each form checks its arguments in its own order (`order`, first to last):
// every non-empty set of those faults, each realised several ways, returns
// the status of the first of them, and no image changes.
inline void expectCheckOrder(const Member& m, int path, const Frame& f, const Call& good, const std::vector<Fault>& order)
{
    const std::vector<Bytes> before = f.contents();
    for (unsigned set = 1; set < (1u << order.size()); ++set)
        for (unsigned r = 0; r < 4; ++r) {
            Call c = good;
            for (std::size_t i = order.size(); i-- > 0;)
                if (set >> i & 1)
                    order[i].apply(c, (set * 2654435761u >> 9) + r * 5 + static_cast<unsigned>(i));
            const int first = __builtin_ctz(set);
            SCOPED_TRACE("faults " + std::to_string(set) + " realisation " + std::to_string(r));
            EXPECT_EQ(m.call(path, c), order[first].status);
            f.expectUnchanged(before, f.img.size());
        }
}

}  // namespace pvxtest
