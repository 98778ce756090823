// Addressing of caller images: a pointer to the first ROI pixel plus a row
// step in bytes, which may be zero or negative.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "pvxtypes.h"
#include "core/path.h"

PVX_BEGIN

// p moved by a signed byte count; keeps p's constness.
template <class T>
inline T* byteOffset(T* p, std::intptr_t bytes)
{
    using Byte = std::conditional_t<std::is_const_v<T>, const unsigned char, unsigned char>;
    return reinterpret_cast<T*>(reinterpret_cast<Byte*>(p) + bytes);
}

// Start of row y of an image with the given step.
template <class T>
inline T* rowAt(T* first, int step, int y)
{
    return byteOffset(first, static_cast<std::intptr_t>(step) * y);
}

// Bytes in one row of `width` pixels of `channels` elements of T.
template <class T>
inline std::int64_t rowBytes(int width, int channels)
{
    return static_cast<std::int64_t>(width) * channels * static_cast<std::int64_t>(sizeof(T));
}

// When rows lie back to back in both images (each step equal to its row's
// bytes), an image can be processed as a single row. Returns the ROI to use:
// {width * height, 1} when merging applies and the merged row's element count
// still fits in 32 bits, otherwise the ROI unchanged.
inline PvxiSize mergeContiguousRows(PvxiSize roi, std::int64_t srcRowBytes, int srcStep,
                                    std::int64_t dstRowBytes, int dstStep)
{
    if (roi.height > 1 && srcStep == srcRowBytes && dstStep == dstRowBytes) {
        const std::int64_t wide = static_cast<std::int64_t>(roi.width) * roi.height;
        const std::int64_t longest = srcRowBytes > dstRowBytes ? srcRowBytes : dstRowBytes;
        if (longest * roi.height <= INT32_MAX && wide <= INT32_MAX)
            return PvxiSize{static_cast<int>(wide), 1};
    }
    return roi;
}

PVX_END
