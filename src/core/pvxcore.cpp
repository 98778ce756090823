// pvxcore: aligned allocation, the enabled feature mask, the largest cache
// size, and status names.
#include "pvxcore.h"

#include <atomic>
#include <climits>
#include <cstdlib>

#include "core/cpuid.h"

namespace {

// The mask pvxSetCpuFeatures chose, once it has been called.
std::atomic<bool> featuresChosen{false};
std::atomic<std::uint64_t> chosenFeatures{0};

}  // namespace

extern "C" {

void* PVX_CALL pvxMalloc(int length)
{
    if (length < 1)
        return nullptr;
    // aligned_alloc wants a multiple of the alignment.
    const std::size_t rounded = (static_cast<std::size_t>(length) + 63) & ~std::size_t{63};
    return std::aligned_alloc(64, rounded);
}

void PVX_CALL pvxFree(void* ptr)
{
    std::free(ptr);
}

Pvx64u PVX_CALL pvxGetEnabledCpuFeatures(void)
{
    if (featuresChosen.load(std::memory_order_acquire))
        return chosenFeatures.load(std::memory_order_relaxed);
    return pvx::detectCpuFeatures();
}

PvxStatus PVX_CALL pvxSetCpuFeatures(Pvx64u features)
{
    chosenFeatures.store(features, std::memory_order_relaxed);
    featuresChosen.store(true, std::memory_order_release);
    return pvxStsOk;
}

PvxStatus PVX_CALL pvxGetMaxCacheSizeB(int* pSizeBytes)
{
    if (pSizeBytes == nullptr)
        return pvxStsNullPtrErr;
    const std::int64_t bytes = pvx::largestCacheBytes();
    if (bytes <= 0)
        return pvxStsNotSupportedModeErr;
    *pSizeBytes = bytes > INT_MAX ? INT_MAX : static_cast<int>(bytes);
    return pvxStsOk;
}

const char* PVX_CALL pvxGetStatusString(PvxStatus status)
{
    switch (status) {
#define PVX_STATUS_NAME(name, value) \
    case value:                      \
        return #name;
        PVX_STATUS_LIST(PVX_STATUS_NAME)
#undef PVX_STATUS_NAME
    }
    return "pvxStsUnknown";
}

}  // extern "C"
