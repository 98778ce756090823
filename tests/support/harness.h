// Shared helpers for the kernel tests: deterministic random data, images in
// guarded memory with canary bytes around the ROI, export descriptors parsed
// into channel layouts, and parameterised cases that pair each family member
// with each code path.
#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "pvxi_paths.h"

namespace pvxtest {

using Bytes = std::vector<unsigned char>;

inline const char* pathName(int path)
{
    static const char* const names[] = PVX_PATH_NAMES;
    return names[path];
}

// splitmix64: small, fast and identical on every platform.
class Rng {
public:
    explicit Rng(std::uint64_t seed) : state_(seed) {}
    std::uint64_t next()
    {
        std::uint64_t z = (state_ += 0x9e3779b97f4a7c15ull);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
        return z ^ (z >> 31);
    }
    unsigned below(unsigned n) { return static_cast<unsigned>(next() % n); }
    void fill(unsigned char* p, std::size_t n)
    {
        for (std::size_t i = 0; i < n; ++i)
            p[i] = static_cast<unsigned char>(next() >> 56);
    }

private:
    std::uint64_t state_;
};

// 32-bit patterns that a float copy must keep bit for bit: signalling and
// quiet NaNs with payloads, -0.0, infinities and denormals.
inline const std::vector<std::uint32_t>& floatEdgeCases()
{
    static const std::vector<std::uint32_t> v = {0x7f800001u, 0x7fc12345u, 0xffa00001u, 0xffffffffu, 0x80000000u,
                                                 0x7f800000u, 0xff800000u, 0x00000001u, 0x807fffffu, 0x3f800000u};
    return v;
}

// An image of `height` rows of `rowBytes` bytes whose row y starts at
// origin() + y * step (step may be zero or negative), in its own mapping
// filled with random bytes and followed by an inaccessible page. Every byte
// outside the ROI is a canary: tests build the whole expected block and
// compare it byte for byte. The origin is `misalign` bytes past a 64-byte
// boundary; with `flush` the image instead ends right at the guard page, so
// that any access past its last row faults.
class TestImage {
public:
    TestImage(std::size_t rowBytes, int height, int step, unsigned misalign, bool flush, Rng& rng) : step_(step)
    {
        const std::size_t rows = static_cast<std::size_t>(height - 1);
        const std::size_t stepAbs = static_cast<std::size_t>(std::llabs(step));
        const std::size_t below = step < 0 ? rows * stepAbs : 0, above = step > 0 ? rows * stepAbs : 0;
        // 64 canary bytes before the image, and (unless flush) at least 64
        // after it, as many as put the origin at the requested offset.
        const std::size_t tail = flush ? 0 : 64 + (64 - (misalign + above + rowBytes) % 64) % 64;
        size_ = 64 + below + above + rowBytes + tail;
        const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        mapped_ = (size_ + page - 1) / page * page + page;
        void* p = mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (p == MAP_FAILED)
            throw std::bad_alloc();
        map_ = static_cast<unsigned char*>(p);
        mprotect(map_ + mapped_ - page, page, PROT_NONE);
        data_ = map_ + mapped_ - page - size_;
        origin_ = 64 + below;
        rng.fill(data_, size_);
    }
    ~TestImage() { munmap(map_, mapped_); }
    TestImage(const TestImage&) = delete;
    TestImage& operator=(const TestImage&) = delete;

    unsigned char* origin() const { return data_ + origin_; }
    int step() const { return step_; }
    // Index in the block of byte `b` of row y.
    std::size_t indexOf(int y, std::size_t b) const
    {
        return static_cast<std::size_t>(static_cast<std::ptrdiff_t>(origin_) + std::ptrdiff_t{step_} * y) + b;
    }
    unsigned char* at(int y, std::size_t b) const { return data_ + indexOf(y, b); }
    Bytes contents() const { return Bytes(data_, data_ + size_); }

    ::testing::AssertionResult matches(const Bytes& expected, const char* what) const
    {
        std::size_t bad = 0, first = 0;
        for (std::size_t i = 0; i < size_; ++i)
            if (expected[i] != data_[i] && bad++ == 0)
                first = i;
        if (bad == 0)
            return ::testing::AssertionSuccess();
        const std::ptrdiff_t rel = static_cast<std::ptrdiff_t>(first) - static_cast<std::ptrdiff_t>(origin_);
        std::ostringstream os;
        os << what << ": " << bad << " byte(s) differ; first at origin" << (rel < 0 ? "" : "+") << rel << " (step "
           << step_ << "): expected 0x" << std::hex << int(expected[first]) << ", got 0x" << int(data_[first]);
        return ::testing::AssertionFailure() << os.str();
    }

private:
    unsigned char *map_, *data_;
    std::size_t mapped_, size_, origin_;
    int step_;
};

enum class MaskFill { Random, AllZero, AllSet };

// One side of an export's channel layout.
struct Side {
    int pixel = 1;        // elements per pixel (1 for each plane of a planar image)
    int used = 1;         // channels read or written (alpha excluded)
    bool planar = false;  // one plane per channel
    bool chosen = false;  // the pointer addresses one chosen channel of the pixel
};

// An export descriptor such as "C3C1R", "AC4MR", "C3P3R", "C4CR" or "C1IRSfs":
// layout tokens Cn, ACn (alpha untouched) and Pn (planar), a bare C for one
// channel of interest, then I (in place) and M (masked) flags, R and a suffix.
struct Descriptor {
    Side src, dst;
    int count = 0;  // channels moved per pixel
    bool masked = false, inPlace = false, valid = false;
    std::string suffix;
};

inline Descriptor parseDescriptor(const std::string& d)
{
    Descriptor r;
    std::vector<Side> sides;
    bool oneChannel = false;
    for (std::size_t i = 0;;) {
        const std::size_t k = i + (d.compare(i, 2, "AC") == 0 ? 1 : 0);
        if (k + 1 < d.size() && (d[k] == 'C' || d[k] == 'P') && d[k + 1] >= '1' && d[k + 1] <= '4') {
            const int n = d[k + 1] - '0';
            sides.push_back({d[k] == 'P' ? 1 : n, k > i ? n - 1 : n, d[k] == 'P', false});
            i = k + 2;
        } else if (k == i && i < d.size() && d[i] == 'C') {
            oneChannel = true;
            ++i;
        } else {
            for (; i < d.size() && (d[i] == 'I' || d[i] == 'M'); ++i)
                (d[i] == 'I' ? r.inPlace : r.masked) = true;
            if (i >= d.size() || d[i] != 'R' || sides.empty() || sides.size() > 2)
                return r;
            r.suffix = d.substr(i + 1);
            break;
        }
    }
    r.src = sides.front();
    r.dst = sides.back();
    r.count = oneChannel ? 1 : std::min(r.src.used, r.dst.used);
    r.src.chosen = r.count == 1 && r.src.pixel > 1;
    r.dst.chosen = r.count == 1 && r.dst.pixel > 1;
    r.valid = true;
    return r;
}

// The geometry of one run. Steps are sign * (row bytes + pad); sign 0 gives
// step 0. Source-like images (sources, masks) use srcPad and srcSign.
struct Shape {
    int width, height;
    int srcPad = 0, dstPad = 0;  // rounded down to whole elements
    int srcSign = 1, dstSign = 1;
    unsigned misalign = 0;  // destination origin past a 64-byte boundary (rounded likewise)
    bool flush = false;     // images end at a guard page
    MaskFill mask = MaskFill::Random;
    bool edgeFloats = false;  // sources hold floatEdgeCases() instead of random data
};

// Widths around the 16/48/64-byte block boundaries with every destination
// misalignment 0..15 and padded steps; contiguous and a few larger images;
// masks empty and full; float edge cases.
inline std::vector<Shape> referenceShapes()
{
    std::vector<Shape> v;
    for (int w : {1, 15, 17, 65})
        for (unsigned a = 0; a < 16; ++a)
            v.push_back({w, 3, int(a * 3 % 11), int(a * 5 % 13), 1, 1, a});
    v.push_back({100, 3, 4, 12, 1, 1, 7});
    v.push_back({33, 5, 0, 0, 1, 1, 0});     // contiguous
    v.push_back({64, 4, 0, 0, 1, 1, 9});     // contiguous
    v.push_back({515, 37, 8, 0, 1, 1, 1});
    v.push_back({17, 3, 2, 6, 1, 1, 3, false, MaskFill::AllZero});
    v.push_back({65, 2, 0, 0, 1, 1, 5, false, MaskFill::AllSet});
    v.push_back({21, 3, 4, 8, 1, 1, 0, false, MaskFill::Random, true});
    return v;
}

// Zero and negative (bottom-up) steps on either side.
inline std::vector<Shape> stepShapes()
{
    return {{17, 4, 4, 4, 0, 1, 0},  {17, 4, 4, 4, 1, 0, 3},   {19, 4, 4, 8, -1, -1, 5},
            {33, 3, 0, 0, -1, 1, 1}, {65, 3, 12, 0, 1, -1, 11}, {16, 3, 0, 0, 0, 0, 0}};
}

// Every image ends at a guard page: an odd width and widths whose rows are a
// multiple of 16 bytes, padded and contiguous.
inline std::vector<Shape> guardShapes()
{
    Shape s[] = {{17, 3, 8, 8}, {16, 3, 0, 0}, {67, 2, 4, 0}, {64, 2, 0, 4}, {1, 1}};
    for (Shape& x : s)
        x.flush = true;
    return std::vector<Shape>(std::begin(s), std::end(s));
}

// The images of one side of a call: one, or one per plane sharing the step.
// Sources of an `edgeFloats` shape hold floatEdgeCases() patterns.
inline std::vector<std::unique_ptr<TestImage>> makeImages(const Side& side, std::size_t elem, const Shape& s,
                                                          bool source, Rng& rng)
{
    // Offsets and pads are rounded down to whole elements: a misaligned
    // 16- or 32-bit pointer would be undefined behaviour.
    const auto whole = [elem](std::size_t bytes) { return static_cast<unsigned>(bytes - bytes % elem); };
    const std::size_t row = static_cast<std::size_t>(s.width) * static_cast<std::size_t>(side.pixel) * elem;
    const int pad = static_cast<int>(whole(static_cast<std::size_t>(source ? s.srcPad : s.dstPad)));
    const int step = (source ? s.srcSign : s.dstSign) * (static_cast<int>(row) + pad);
    const unsigned misalign = source ? (s.misalign * 7 + 3) % 16 : s.misalign;
    std::vector<std::unique_ptr<TestImage>> v;
    for (int k = 0; k < (side.planar ? side.used : 1); ++k) {
        v.push_back(std::make_unique<TestImage>(row, s.height, step, whole((misalign + 5u * k) % 64), s.flush, rng));
        const std::vector<std::uint32_t>& sp = floatEdgeCases();
        for (int y = 0; source && s.edgeFloats && y < s.height; ++y)
            for (std::size_t b = 0; b + 4 <= row; b += 4)
                std::memcpy(v.back()->at(y, b), &sp[(b / 4 + static_cast<std::size_t>(y)) % sp.size()], 4);
    }
    return v;
}

// The mask of a masked call, laid out like a source: zero and random
// non-zero bytes, in runs of 16 pixels that select none, all, or a random
// half of their pixels.
inline std::unique_ptr<TestImage> makeMask(const Shape& s, Rng& rng)
{
    const std::size_t row = static_cast<std::size_t>(s.width);
    auto m = std::make_unique<TestImage>(row, s.height, s.srcSign * (s.width + s.srcPad), rng.below(16), s.flush, rng);
    for (int y = 0; y < s.height; ++y)
        for (int x = 0, run = 0; x < s.width; ++x) {
            run = s.mask == MaskFill::AllZero ? 0 : s.mask == MaskFill::AllSet ? 1 : x % 16 ? run : rng.below(3);
            const bool on = run == 1 || (run == 2 && rng.below(2));
            *m->at(y, static_cast<std::size_t>(x)) = on ? static_cast<unsigned char>(1 + rng.below(255)) : 0;
        }
    return m;
}

inline std::string describe(const Shape& s)
{
    return "shape " + std::to_string(s.width) + "x" + std::to_string(s.height) + " pads " + std::to_string(s.srcPad) +
           "/" + std::to_string(s.dstPad) + " signs " + std::to_string(s.srcSign) + "/" + std::to_string(s.dstSign) +
           " misalign " + std::to_string(s.misalign) + (s.flush ? " flush" : "") +
           (s.mask == MaskFill::AllZero ? " mask-zero" : s.mask == MaskFill::AllSet ? " mask-set" : "") +
           (s.edgeFloats ? " edge-floats" : "");
}

// A parameterised case: one family member on one code path.
template <class Member>
struct PathCase {
    const Member* member;
    int path;
};

template <class Member>
std::vector<PathCase<Member>> onEveryPath(const std::vector<Member>& members)
{
    std::vector<PathCase<Member>> cases;
    for (const Member& m : members)
        for (int p = 0; p < PVX_PATH_COUNT; ++p)
            cases.push_back({&m, p});
    return cases;
}

template <class Member>
void PrintTo(const PathCase<Member>& c, std::ostream* os)
{
    *os << c.member->name << " on " << pathName(c.path);
}

// Test name suffix: export name and path, e.g. "pvxiCopy_8u_C1R_v8".
struct CaseName {
    template <class Param>
    std::string operator()(const ::testing::TestParamInfo<Param>& info) const
    {
        return std::string(info.param.member->name) + "_" + pathName(info.param.path);
    }
};

// Checks that each of `tests` of the parameterised suite `suite` (e.g.
// "Move/CopyTest") is registered exactly once for every export on every path.
inline void expectEveryCaseRegistered(const std::string& suite, const std::vector<std::string>& tests,
                                      const std::vector<std::string>& exports)
{
    std::multiset<std::string> want, got;
    for (const std::string& t : tests)
        for (const std::string& e : exports)
            for (int p = 0; p < PVX_PATH_COUNT; ++p)
                want.insert(t + "/" + e + "_" + pathName(p));
    const ::testing::UnitTest& u = *::testing::UnitTest::GetInstance();
    for (int i = 0; i < u.total_test_suite_count(); ++i)
        for (int j = 0; suite == u.GetTestSuite(i)->name() && j < u.GetTestSuite(i)->total_test_count(); ++j)
            got.insert(u.GetTestSuite(i)->GetTestInfo(j)->name());
    EXPECT_EQ(got, want) << suite;
}

}  // namespace pvxtest
