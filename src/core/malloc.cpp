// Image allocation: rows padded to a multiple of 64 bytes, one block from
// pvxMalloc.
#include <cstdint>

#include "core/path.h"
#include "pvxcore.h"

PVX_BEGIN

namespace {

// The step and the block size are computed in 32-bit arithmetic on purpose:
// sizes that overflow wrap rather than fail, as documented.
template <class T, int Channels>
T* allocateImage(int widthPixels, int heightPixels, int* pStepBytes)
{
    if (pStepBytes == nullptr)
        return nullptr;
    if (widthPixels < 1 || heightPixels < 1) {
        *pStepBytes = 0;
        return nullptr;
    }
    const std::uint32_t rowBytes = static_cast<std::uint32_t>(widthPixels) * (sizeof(T) * Channels);
    const std::uint32_t step = (rowBytes + 63u) & ~63u;
    *pStepBytes = static_cast<int>(step);
    return static_cast<T*>(pvxMalloc(static_cast<int>(step * static_cast<std::uint32_t>(heightPixels))));
}

void freeImage(void* ptr)
{
    pvxFree(ptr);
}

}  // namespace

PVX_END

#include "core/malloc.inc"
