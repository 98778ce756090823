// pvxcore: aligned allocation, feature mask, cache size and status names.
#include <cstdint>
#include <cstring>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "pvxcore.h"

TEST(CoreLibrary, MallocAlignsTo64AndRefusesEmptySizes)
{
    for (int length : {1, 63, 64, 65, 1000, 1 << 20}) {
        void* p = pvxMalloc(length);
        ASSERT_NE(p, nullptr) << length;
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 64, 0u) << length;
        std::memset(p, 0xab, static_cast<std::size_t>(length));  // the whole block is usable
        pvxFree(p);
    }
    EXPECT_EQ(pvxMalloc(0), nullptr);
    EXPECT_EQ(pvxMalloc(-1), nullptr);
    pvxFree(nullptr);
}

TEST(CoreLibrary, FeatureMaskCanBeReplaced)
{
    const Pvx64u detected = pvxGetEnabledCpuFeatures();
    // This library is built for SSSE3 machines; x86-64 always has SSE2.
    EXPECT_EQ(detected & (PVX_CPU_SSE | PVX_CPU_SSE2), PVX_CPU_SSE | PVX_CPU_SSE2);
    EXPECT_EQ(detected >> 20, 0u) << "only the documented bits are used";

    for (Pvx64u mask : {Pvx64u{0}, Pvx64u{0x30}, ~Pvx64u{0}, detected}) {
        EXPECT_EQ(pvxSetCpuFeatures(mask), pvxStsOk);
        EXPECT_EQ(pvxGetEnabledCpuFeatures(), mask);
    }
}

TEST(CoreLibrary, LargestCacheSize)
{
    EXPECT_EQ(pvxGetMaxCacheSizeB(nullptr), pvxStsNullPtrErr);
    int size = -1;
    const PvxStatus st = pvxGetMaxCacheSizeB(&size);
    if (st == pvxStsOk)
        EXPECT_GE(size, 16 * 1024);  // no x86 processor has a largest cache below L1 size
    else
        EXPECT_EQ(st, pvxStsNotSupportedModeErr);
}

TEST(CoreLibrary, StatusNamesAreDistinctAndMatchTheirCodes)
{
    std::set<std::string> names;
#define PVX_CHECK_NAME(name, value)                           \
    EXPECT_STREQ(pvxGetStatusString(value), #name);           \
    EXPECT_TRUE(names.insert(pvxGetStatusString(value)).second);
    PVX_STATUS_LIST(PVX_CHECK_NAME)
#undef PVX_CHECK_NAME
    EXPECT_EQ(names.size(), 51u);
    EXPECT_STREQ(pvxGetStatusString(pvxStsSizeErr), "pvxStsSizeErr");
    EXPECT_STREQ(pvxGetStatusString(-6), "pvxStsSizeErr");
    EXPECT_STREQ(pvxGetStatusString(12345), "pvxStsUnknown");
}

TEST(CoreLibrary, StatusValuesKeepTheSignRule)
{
    EXPECT_EQ(pvxStsOk, 0);
    EXPECT_EQ(pvxStsNoOperationWrn, 1);
    EXPECT_EQ(pvxStsDivByZeroWrn, 6);
    EXPECT_EQ(pvxStsNoRoiIntersectionWrn, 29);
    EXPECT_EQ(pvxStsNoIntersectionWrn, 30);
    EXPECT_EQ(pvxStsSizeWrn, 48);
    EXPECT_EQ(pvxStsRoundHintWrn, 52);
    EXPECT_EQ(pvxStsNullPtrErr, -8);
    EXPECT_EQ(pvxStsZeroMaskValuesErr, -59);
    EXPECT_EQ(pvxStsBufferSizeErr, -232);
    EXPECT_EQ(pvxStsNotSupportedModeErr, -9999);
#define PVX_CHECK_SIGN(name, value)                                                        \
    {                                                                                      \
        const std::string n = #name;                                                       \
        const std::string kind = n.substr(n.size() - 3);                                   \
        EXPECT_TRUE(kind == "Err" ? (value) < 0 : kind == "Wrn" ? (value) > 0 : (value) == 0) << n; \
    }
    PVX_STATUS_LIST(PVX_CHECK_SIGN)
#undef PVX_CHECK_SIGN
}
