// Image allocation: 64-byte step rule, null cases, 32-bit wrap-around.
#include <climits>
#include <cstdint>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "pvxi_paths.h"

namespace {

// Bytes per pixel from an allocator's name: element size times channels.
int bytesPerPixel(const std::string& name)
{
    const std::string type = name.substr(name.find('_') + 1, name.rfind('_') - name.find('_') - 1);
    const std::string layout = name.substr(name.rfind('_') + 1);
    const int elem = type == "8u" ? 1 : (type == "16u" || type == "16s") ? 2 : (type == "32s" || type == "32f") ? 4 : 8;
    const int channels = layout == "C1" ? 1 : layout == "C2" ? 2 : layout == "C3" ? 3 : 4;
    return elem * channels;
}

struct Allocator {
    std::string name;
    void* (*allocate)(int, int, int*);
};

std::vector<Allocator> allAllocators()
{
    std::vector<Allocator> all;
#define PVX_ADD_ALLOCATOR(sig, S, D, desc, name)                                               \
    all.push_back({#name, [](int w, int h, int* step) -> void* { return name(w, h, step); }});
    PVX_MEMBERS_Malloc(PVX_ADD_ALLOCATOR)
#undef PVX_ADD_ALLOCATOR
    return all;
}

}  // namespace

TEST(Malloc, EveryAllocatorRoundsTheRowUpTo64Bytes)
{
    const auto all = allAllocators();
    ASSERT_EQ(all.size(), 35u);
    for (const auto& a : all) {
        const int bpp = bytesPerPixel(a.name);
        for (int width : {1, 2, 7, 22, 64, 65, 333}) {
            int step = -1;
            const int height = 3;
            auto* p = static_cast<unsigned char*>(a.allocate(width, height, &step));
            ASSERT_NE(p, nullptr) << a.name << " width " << width;
            EXPECT_EQ(step, (width * bpp + 63) / 64 * 64) << a.name << " width " << width;
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 64, 0u) << a.name;
            std::memset(p, 0x5a, static_cast<std::size_t>(step) * height);  // every row is ours
            pvxiFree(p);
        }
    }
}

TEST(Malloc, KnownSteps)
{
    int step = 0;
    void* p = pvxiMalloc_8u_C1(1, 1, &step);
    EXPECT_EQ(step, 64);
    pvxiFree(p);
    p = pvxiMalloc_8u_C1(64, 1, &step);
    EXPECT_EQ(step, 64);
    pvxiFree(p);
    p = pvxiMalloc_8u_C1(65, 1, &step);
    EXPECT_EQ(step, 128);
    pvxiFree(p);
    p = pvxiMalloc_8u_C3(22, 1, &step);  // 66 bytes
    EXPECT_EQ(step, 128);
    pvxiFree(p);
    p = pvxiMalloc_32fc_C4(2, 1, &step);  // 64 bytes
    EXPECT_EQ(step, 64);
    pvxiFree(p);
    p = pvxiMalloc_16s_AC4(3, 1, &step);  // AC4 allocates four full channels: 24 bytes
    EXPECT_EQ(step, 64);
    pvxiFree(p);
}

TEST(Malloc, NullCases)
{
    for (const auto& a : allAllocators()) {
        EXPECT_EQ(a.allocate(10, 10, nullptr), nullptr) << a.name;
        for (auto [w, h] : {std::pair{0, 5}, {5, 0}, {-1, 5}, {5, -3}, {INT_MIN, INT_MIN}}) {
            int step = 777;
            EXPECT_EQ(a.allocate(w, h, &step), nullptr) << a.name;
            EXPECT_EQ(step, 0) << a.name << " " << w << "x" << h;
        }
    }
    pvxiFree(nullptr);
}

TEST(Malloc, SizesWrapInThirtyTwoBits)
{
    // 2^27 pixels of 32 bytes: the step wraps to 0, is written, and nothing is
    // allocated.
    int step = -1;
    EXPECT_EQ(pvxiMalloc_32fc_C4(1 << 27, 1, &step), nullptr);
    EXPECT_EQ(step, 0);
    // A 64-byte step times 2^26 rows wraps to an empty block.
    EXPECT_EQ(pvxiMalloc_8u_C1(1, 1 << 26, &step), nullptr);
    EXPECT_EQ(step, 64);
    // INT_MAX bytes round up to 2^31: the step reads as negative and the
    // block size as well, so nothing is allocated.
    EXPECT_EQ(pvxiMalloc_8u_C1(INT_MAX, 1, &step), nullptr);
    EXPECT_EQ(step, INT_MIN);
}
