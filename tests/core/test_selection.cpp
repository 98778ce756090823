// Path selection at load time. Each case runs in a fresh child process that
// sets the feature mask through pvxcore before loading the shared library, as
// a user forcing a path would.
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include <gtest/gtest.h>

#include "pvxcore.h"
#include "pvxi.h"

namespace {

// Child: 0 when the loaded library runs the expected path and its Copy works.
int childSelects(Pvx64u mask, const char* expectedCode, const char* expectedName)
{
    if (pvxSetCpuFeatures(mask) != pvxStsOk)
        return 10;
    void* lib = dlopen(PVXI_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
    if (lib == nullptr)
        return 11;
    auto version = reinterpret_cast<decltype(&pvxiGetLibVersion)>(dlsym(lib, "pvxiGetLibVersion"));
    auto copy = reinterpret_cast<decltype(&pvxiCopy_8u_C1R)>(dlsym(lib, "pvxiCopy_8u_C1R"));
    if (version == nullptr || copy == nullptr)
        return 12;
    const PvxLibraryVersion* v = version();
    if (std::memcmp(v->targetCode, expectedCode, 4) != 0)
        return 13;
    if (std::strcmp(v->name, expectedName) != 0)
        return 14;
    if (version() != v)
        return 15;
    const Pvx8u src[3] = {1, 2, 3};
    Pvx8u dst[3] = {};
    if (copy(src, 3, dst, 3, PvxiSize{3, 1}) != pvxStsOk || std::memcmp(src, dst, 3) != 0)
        return 16;
    return 0;
}

int runInChild(Pvx64u mask, const char* expectedCode, const char* expectedName)
{
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0)
        _exit(childSelects(mask, expectedCode, expectedName));
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status);
}

const char kV8[4] = {'v', '8', 0, 0};
const char kS8[4] = {'s', '8', 0, 0};

}  // namespace

TEST(PathSelection, LowPowerPathNeedsBothSsse3AndMovbe)
{
    EXPECT_EQ(runInChild(0x10, kV8, "pvxIP SSSE3 (v8)"), 0) << "SSSE3 only";
    EXPECT_EQ(runInChild(0x20, kV8, "pvxIP SSSE3 (v8)"), 0) << "MOVBE only";
    EXPECT_EQ(runInChild(0x30, kS8, "pvxIP Ovon (s8)"), 0) << "SSSE3 and MOVBE";
    EXPECT_EQ(runInChild(0, kV8, "pvxIP SSSE3 (v8)"), 0) << "no features";
    EXPECT_EQ(runInChild(0xfffff, kS8, "pvxIP Ovon (s8)"), 0) << "every feature";
}

TEST(PathSelection, OnlyTheLow32BitsOfTheMaskCount)
{
    EXPECT_EQ(runInChild(Pvx64u{0x30} << 32, kV8, "pvxIP SSSE3 (v8)"), 0);
    EXPECT_EQ(runInChild((Pvx64u{0x30} << 32) | 0x30, kS8, "pvxIP Ovon (s8)"), 0);
}
