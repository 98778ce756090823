// The integer scale-factor rule of the Sfs functions: the exact result v is
// divided by 2^scaleFactor, rounded to nearest with halves to even (or
// multiplied by 2^-scaleFactor for a negative factor), then saturated to the
// destination type.
#pragma once

#include <cstdint>
#include <limits>

#include "core/path.h"

PVX_BEGIN

// v scaled by 2^-s with round-half-even; exact in 64 bits for |v| < 2^62.
inline std::int64_t scaleRoundHalfEven(std::int64_t v, int s)
{
    if (s == 0)
        return v;
    if (s > 0) {
        if (s > 62)  // every representable v rounds to 0
            return 0;
        return (v - 1 + (std::int64_t{1} << (s - 1)) + ((v >> s) & 1)) >> s;
    }
    const int k = -s;
    const std::int64_t maxV = std::numeric_limits<std::int64_t>::max();
    const std::int64_t minV = std::numeric_limits<std::int64_t>::min();
    if (v == 0)
        return 0;
    if (k > 62)
        return v > 0 ? maxV : minV;
    if (v > (maxV >> k))
        return maxV;
    if (v < (minV >> k))
        return minV;
    return v * (std::int64_t{1} << k);
}

// v clamped to the range of the integer type D.
template <class D>
inline D saturateTo(std::int64_t v)
{
    const std::int64_t lo = std::numeric_limits<D>::min();
    const std::int64_t hi = std::numeric_limits<D>::max();
    return static_cast<D>(v < lo ? lo : (v > hi ? hi : v));
}

template <class D>
inline D scaleSaturate(std::int64_t v, int scaleFactor)
{
    return saturateTo<D>(scaleRoundHalfEven(v, scaleFactor));
}

PVX_END
