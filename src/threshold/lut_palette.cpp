// LUTPalette, LUTPaletteSwap: every channel value indexes a palette of
// 2^nBitSize entries with its low nBitSize bits.
//
// Layouts. C1: one palette of destination elements; the 24u forms write
// 3-byte pixels (Pvx24u) from 3-byte entries, the 32u forms 32-bit pixels
// from 32-bit entries. C3, C4, AC4: pTable[c] is channel c's palette; AC4
// leaves the destination's alpha as it was. C3A0C4: a three-channel source,
// pTable[c] fills destination channel c and channel 3 is set to 0.
// LUTPaletteSwap (C3A0C4): the same three results in reversed order,
// destination channel 2 - c from source channel c through pTable[c]; channel
// 3 is set to 0. This turns an RGB source and RGB palettes into BGRA-ordered
// pixels (or the reverse) in one pass.
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "core/checks.h"
#include "core/image.h"
#include "pvxi.h"
#include "threshold/lut_rows.h"

PVX_BEGIN

namespace {

// The palette argument of a form: one table (C1) or one per mapped channel.
template <class D>
const D* paletteOf(const D* table, int)
{
    return table;
}
template <class D>
const D* paletteOf(const D* const* tables, int c)
{
    return tables[c];
}

template <class D>
bool paletteNull(const D* table, int)
{
    return table == nullptr;
}
template <class D>
bool paletteNull(const D* const* tables, int used)
{
    if (tables == nullptr)
        return true;
    for (int c = 0; c < used; ++c)
        if (tables[c] == nullptr)
            return true;
    return false;
}

// Destination channel of mapped channel c.
template <int Used, int Swap>
constexpr int outChannel(int c)
{
    return Swap ? Used - 1 - c : c;
}

// 8u sources into 8u elements: the palettes expanded to full 256-entry
// tables (entry x = palette[x & mask]) and the table rows of LUT.
template <int SrcPixel, int DstPixel, int Used, int Swap, class Tab>
void palette8u(const Pvx8u* pSrc, int srcStep, Pvx8u* pDst, int dstStep, PvxiSize roi, Tab pTable, unsigned mask)
{
    alignas(64) Pvx8u tab[DstPixel][256];
    for (int c = 0; c < DstPixel; ++c)
        for (unsigned x = 0; x < 256; ++x)
            tab[c][x] = c < Used ? paletteOf(pTable, c)[x & mask] : static_cast<Pvx8u>(x);
    if constexpr (SrcPixel == DstPixel) {
        mapRows8u<SrcPixel, Used>(tab, pSrc, srcStep, pDst, dstStep, roi);
    } else {
        // Three channels into four: one 32-bit store per pixel, channel 3 zero.
        for (int y = 0; y < roi.height; ++y) {
            const Pvx8u* s = rowAt(pSrc, srcStep, y);
            Pvx8u* d = rowAt(pDst, dstStep, y);
            for (int x = 0; x < roi.width; ++x, s += 3, d += 4) {
                const std::uint32_t p = std::uint32_t{tab[0][s[0]]} << (8 * outChannel<Used, Swap>(0)) |
                                        std::uint32_t{tab[1][s[1]]} << (8 * outChannel<Used, Swap>(1)) |
                                        std::uint32_t{tab[2][s[2]]} << (8 * outChannel<Used, Swap>(2));
                std::memcpy(d, &p, 4);
            }
        }
    }
}

// Any other source and destination elements, element by element.
template <class S, class D, int SrcPixel, int DstPixel, int Used, int Swap, class Tab>
void paletteAny(const S* pSrc, int srcStep, D* pDst, int dstStep, PvxiSize roi, Tab pTable, unsigned mask)
{
    const D* pal[4] = {};
    for (int c = 0; c < Used; ++c)
        pal[c] = paletteOf(pTable, c);
    for (int y = 0; y < roi.height; ++y) {
        const S* s = rowAt(pSrc, srcStep, y);
        D* d = rowAt(pDst, dstStep, y);
        for (int x = 0; x < roi.width; ++x, s += SrcPixel, d += DstPixel) {
            for (int c = 0; c < Used; ++c)
                d[outChannel<Used, Swap>(c)] = pal[c][s[c] & mask];
            if constexpr (DstPixel == 4 && SrcPixel == 3)
                d[3] = D{};
        }
    }
}

template <class S, class D, int SrcPixel, int DstPixel, int Used, int Swap, class Tab>
PvxStatus palette(const S* pSrc, int srcStep, D* pDst, int dstStep, PvxiSize roiSize, Tab pTable, int nBitSize)
{
    if (anyNull(pSrc, pDst) || paletteNull(pTable, Used))
        return pvxStsNullPtrErr;
    if (roiEmpty(roiSize))
        return pvxStsSizeErr;
    if (nBitSize < 1 || nBitSize > 8 * static_cast<int>(sizeof(S)))
        return pvxStsOutOfRangeErr;
    // A step shorter than the ROI's row (in bytes; zero and negative steps
    // included) is refused.
    if (rowBytes<S>(roiSize.width, SrcPixel) > srcStep || rowBytes<D>(roiSize.width, DstPixel) > dstStep)
        return pvxStsStepErr;
    const unsigned mask = (1u << nBitSize) - 1;
    if constexpr (std::is_same_v<S, Pvx8u> && std::is_same_v<D, Pvx8u>)
        palette8u<SrcPixel, DstPixel, Used, Swap>(pSrc, srcStep, pDst, dstStep, roiSize, pTable, mask);
    else
        paletteAny<S, D, SrcPixel, DstPixel, Used, Swap>(pSrc, srcStep, pDst, dstStep, roiSize, pTable, mask);
    return pvxStsOk;
}

}  // namespace

PVX_END

#include "threshold/lut_palette.inc"
