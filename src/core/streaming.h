// When stores should bypass the cache.
#pragma once

#include <cstdint>

#include "core/path.h"
#include "pvxcore.h"

PVX_BEGIN

// True when the bytes an operation moves exceed `minBytes` and are at least
// the largest cache: its destination would leave the cache before anyone read
// it again, so writing past the cache saves reading its lines first. Without
// a reported cache size the stores stay ordinary.
inline bool bypassesCache(std::int64_t bytes, std::int64_t minBytes = std::int64_t{1} << 20)
{
    if (bytes <= minBytes)
        return false;
    int cache = 0;
    return pvxGetMaxCacheSizeB(&cache) == pvxStsOk && bytes >= cache;
}

PVX_END
