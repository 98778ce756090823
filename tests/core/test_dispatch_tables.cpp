// The dispatch tables behind the exported stubs, and the version records.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "pvxi_paths.h"

extern "C" int pvx_path_selector;

namespace {

using AnyFn = void (*)(void);
struct Slots {
    std::string name;
    AnyFn slot[2];
};


#define PVX_SLOTS(sig, S, D, desc, name) out.push_back({#name, {pvx_tbl_##name[0], pvx_tbl_##name[1]}});

std::vector<Slots> perPathExports()
{
    std::vector<Slots> out;
    PVX_EXPORTS_PER_PATH(PVX_SLOTS)
    return out;
}

std::vector<Slots> sharedExports()
{
    std::vector<Slots> out;
    PVX_EXPORTS_SHARED(PVX_SLOTS)
    return out;
}

void expectRecord(const PvxLibraryVersion* v, const char* code, const char* name)
{
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(v->major, 8);
    EXPECT_EQ(v->minor, 2);
    EXPECT_EQ(v->update, 3);
    EXPECT_EQ(v->revision, 48108);
    EXPECT_EQ(std::memcmp(v->targetCode, code, 4), 0) << "targetCode is zero-padded to 4 bytes";
    EXPECT_STREQ(v->name, name);
    EXPECT_STREQ(v->versionText, "8.2.3 (r48108)");
    EXPECT_STREQ(v->buildDate, "Jul 23 2015");
}

}  // namespace

TEST(DispatchTables, PerPathFamiliesHaveTwoImplementations)
{
    for (const auto& e : perPathExports()) {
        EXPECT_NE(e.slot[0], nullptr) << e.name;
        EXPECT_NE(e.slot[1], nullptr) << e.name;
        EXPECT_NE(e.slot[0], e.slot[1]) << e.name << ": both paths share one implementation";
    }
}

TEST(DispatchTables, SharedFamiliesUseOneImplementation)
{
    for (const auto& e : sharedExports()) {
        EXPECT_NE(e.slot[0], nullptr) << e.name;
        EXPECT_EQ(e.slot[0], e.slot[1]) << e.name;
    }
}

TEST(DispatchTables, EachPathReportsItsOwnVersionRecord)
{
    const PvxLibraryVersion* v8 = PVX_PATH_FN(pvxiGetLibVersion, 0)();
    const PvxLibraryVersion* s8 = PVX_PATH_FN(pvxiGetLibVersion, 1)();
    expectRecord(v8, "v8\0\0", "pvxIP SSSE3 (v8)");
    expectRecord(s8, "s8\0\0", "pvxIP Ovon (s8)");
    EXPECT_EQ(v8, PVX_PATH_FN(pvxiGetLibVersion, 0)()) << "a constant record";
    // The exported entry goes to the selected path's slot.
    ASSERT_TRUE(pvx_path_selector == 0 || pvx_path_selector == 1);
    EXPECT_EQ(pvxiGetLibVersion(), pvx_path_selector == 0 ? v8 : s8);
    EXPECT_EQ(pvxiGetLibVersion(), pvxiGetLibVersion());
}
