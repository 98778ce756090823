// Row kernels shared by the lookup-table families (LUT and LUTPalette): 8u
// data through one 256-entry table per channel, tab[c][x].
//
// Large whole-pixel images go through pair tables: 65536 16-bit entries per
// channel pair, built from the byte tables, so that one load, one lookup and
// one store serve two bytes. Byte lookups are bound by the stores (one per
// byte), pair lookups halve them; the tables (128 KiB each) stay in the second
// level cache. Smaller images, AC4 and any allocation failure use the byte
// rows, which give the same results.
#pragma once

#include <cstdint>
#include <cstring>

#include "core/image.h"
#include "core/path.h"
#include "core/simd.h"
#include "pvxcore.h"
#include "pvxtypes.h"

PVX_BEGIN

namespace {

// Lookups at scattered table addresses keep the hardware prefetcher from
// following the source row (16-bit tables at 3840x2160 ran at a third of the
// speed): the rows prefetch the source 1 KiB ahead, one line per 64 bytes of
// the block starting at p. Prefetches never fault, past the row included.
inline void prefetchAhead(const void* p, int bytes)
{
    const std::uintptr_t a = reinterpret_cast<std::uintptr_t>(p) + 1024;
    for (int o = 0; o < bytes; o += 64)
        _mm_prefetch(reinterpret_cast<const char*>(a + static_cast<std::uintptr_t>(o)), _MM_HINT_T0);
}

// Images of at least this many bytes build pair tables (building costs about
// as much as mapping 256 KiB bytewise would save).
constexpr std::int64_t kPairMinBytes = 1 << 20;

// One row of n bytes (n a multiple of Pixel), four bytes per 32-bit store:
// blocks of whole pixels and whole words (4 bytes, 12 for three channels),
// every byte read before the word is written (in place is safe). Alpha bytes
// of AC4 (channel 3) keep the destination's value, written back unchanged.
template <int Pixel, int Used>
void lutRow8u(const Pvx8u (*tab)[256], const Pvx8u* s, Pvx8u* d, std::int64_t n)
{
    constexpr int kBlock = Pixel == 3 ? 12 : 4;
    std::int64_t i = 0;
    for (; i + kBlock <= n; i += kBlock) {
#pragma GCC unroll 3
        for (int w = 0; w < kBlock; w += 4) {
            std::uint32_t r = 0;
#pragma GCC unroll 4
            for (int b = 0; b < 4; ++b) {
                const int c = (w + b) % Pixel;
                r |= std::uint32_t{c < Used ? tab[c][s[i + w + b]] : d[i + w + b]} << (8 * b);
            }
            std::memcpy(d + i + w, &r, 4);
        }
    }
    for (; i < n; ++i)
        if (Used == Pixel || i % Pixel < Used)
            d[i] = tab[i % Pixel][s[i]];
}

// pair[c]: entry k = tab[c][k & 255] | tab[c + 1][k >> 8] << 8, the two bytes
// at channels c, c + 1 (mod Pixel) read as one little-endian 16-bit value.
template <int Pixel>
void buildPairs(std::uint16_t* pair, const Pvx8u (*tab)[256], int c)
{
    const Pvx8u* lo = tab[c];
    const Pvx8u* hi = tab[(c + 1) % Pixel];
    for (int h = 0; h < 256; ++h) {
        const __m128i hv = _mm_set1_epi8(static_cast<char>(hi[h]));
        for (int v = 0; v < 256; v += 16) {
            const __m128i l = loadu(lo + v);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(pair + 256 * h + v), _mm_unpacklo_epi8(l, hv));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(pair + 256 * h + v + 8), _mm_unpackhi_epi8(l, hv));
        }
    }
}

// One row through pair tables: blocks of 8 bytes (24 for three channels, whose
// pairs start at channels 0, 2, 1 in turn), all loads of a block before its
// store; the tail bytewise.
template <int Pixel>
void lutRowPairs(const std::uint16_t* const* pair, const Pvx8u (*tab)[256], const Pvx8u* s, Pvx8u* d,
                 std::int64_t n)
{
    constexpr int kBlock = Pixel == 3 ? 24 : 8;
    const auto mapBlock = [&](std::int64_t at) {
        std::uint16_t r[kBlock / 2];
#pragma GCC unroll 12
        for (int j = 0; j < kBlock / 2; ++j) {
            std::uint16_t k;
            std::memcpy(&k, s + at + 2 * j, 2);
            r[j] = pair[(2 * j) % Pixel][k];
        }
        std::memcpy(d + at, r, kBlock);
    };
    std::int64_t i = 0;
    for (; i + 8 * kBlock <= n; i += 8 * kBlock) {
        prefetchAhead(s + i, 8 * kBlock);
        for (int q = 0; q < 8 * kBlock; q += kBlock)
            mapBlock(i + q);
    }
    for (; i + kBlock <= n; i += kBlock)
        mapBlock(i);
    for (; i < n; ++i)
        d[i] = tab[i % Pixel][s[i]];
}

// Maps the ROI through the byte tables: as one row when both images are
// contiguous, through pair tables when the image is large enough.
template <int Pixel, int Used>
void mapRows8u(const Pvx8u (*tab)[256], const Pvx8u* pSrc, int srcStep, Pvx8u* pDst, int dstStep, PvxiSize roi)
{
    const std::int64_t row = rowBytes<Pvx8u>(roi.width, Pixel);
    const bool large = row * roi.height >= kPairMinBytes;
    roi = mergeContiguousRows(roi, row, srcStep, row, dstStep);
    const std::int64_t n = static_cast<std::int64_t>(roi.width) * Pixel;
    if constexpr (Used == Pixel) {
        // Pair tables start at channels 0 (C1), 0 and 2 (C4), 0, 1 and 2 (C3).
        constexpr int kTables = Pixel == 4 ? 2 : Pixel;
        void* buffer = large ? pvxMalloc(kTables * 65536 * 2) : nullptr;
        if (buffer != nullptr) {
            std::uint16_t* pair[4] = {};
            for (int t = 0; t < kTables; ++t) {
                const int c = Pixel == 4 ? 2 * t : t;
                pair[c] = static_cast<std::uint16_t*>(buffer) + 65536 * t;
                buildPairs<Pixel>(pair[c], tab, c);
            }
            for (int y = 0; y < roi.height; ++y)
                lutRowPairs<Pixel>(pair, tab, rowAt(pSrc, srcStep, y), rowAt(pDst, dstStep, y), n);
            pvxFree(buffer);
            return;
        }
    }
    for (int y = 0; y < roi.height; ++y)
        lutRow8u<Pixel, Used>(tab, rowAt(pSrc, srcStep, y), rowAt(pDst, dstStep, y), n);
}

}  // namespace

PVX_END
