// Small SSE2/SSSE3 helpers shared by the kernels.
#pragma once

#include <emmintrin.h>
#include <tmmintrin.h>

#include <cstddef>
#include <cstdint>

#include "core/path.h"

PVX_BEGIN

inline __m128i loadu(const void* p)
{
    return _mm_loadu_si128(static_cast<const __m128i*>(p));
}

inline void storea(void* p, __m128i v)
{
    _mm_store_si128(static_cast<__m128i*>(p), v);
}

inline void storeStream(void* p, __m128i v)
{
    _mm_stream_si128(static_cast<__m128i*>(p), v);
}

// Bytes from p up to the next multiple of `alignment` (a power of two).
inline std::size_t bytesToAlignment(const void* p, std::size_t alignment)
{
    return (alignment - (reinterpret_cast<std::uintptr_t>(p) & (alignment - 1))) & (alignment - 1);
}

// 16-byte mask that selects the fourth element of every four-element pixel of
// ElemSize-byte elements (the alpha of AC4 data); 16 bytes hold whole pixels.
template <std::size_t ElemSize>
inline __m128i alphaLanes()
{
    alignas(16) unsigned char m[16];
    for (std::size_t i = 0; i < 16; ++i)
        m[i] = (i % (4 * ElemSize)) >= 3 * ElemSize ? 0xff : 0;
    return _mm_load_si128(reinterpret_cast<const __m128i*>(m));
}

// Lanes of `keep` where `sel` is set, lanes of `take` elsewhere.
inline __m128i select(__m128i sel, __m128i keep, __m128i take)
{
    return _mm_or_si128(_mm_and_si128(sel, keep), _mm_andnot_si128(sel, take));
}

// Spreads the 16 bytes of a mask row over the bytes of the 16 pixels they
// select (PixelBytes bytes each, so PixelBytes vectors). Vector k of a block
// takes mask byte (16k + i) / PixelBytes into its byte i.
template <int PixelBytes>
class MaskSpread {
public:
    MaskSpread()
    {
        for (int k = 0; k < PixelBytes; ++k) {
            alignas(16) unsigned char c[16];
            for (int i = 0; i < 16; ++i)
                c[i] = static_cast<unsigned char>((16 * k + i) / PixelBytes);
            control_[k] = _mm_load_si128(reinterpret_cast<const __m128i*>(c));
        }
    }

    // Per-byte lanes of vector k from per-pixel lanes (one byte per pixel).
    __m128i spread(__m128i perPixel, int k) const
    {
        return _mm_shuffle_epi8(perPixel, control_[k]);
    }

private:
    __m128i control_[PixelBytes];
};

// Which of 16 mask bytes are zero (0xff lanes), and whether all are.
struct MaskBlock {
    __m128i isZero;
    int zeroBits;  // bit i set: mask byte i is zero

    explicit MaskBlock(const void* mask)
        : isZero(_mm_cmpeq_epi8(loadu(mask), _mm_setzero_si128())), zeroBits(_mm_movemask_epi8(isZero))
    {
    }
    bool selectsNone() const { return zeroBits == 0xffff; }
};

PVX_END
