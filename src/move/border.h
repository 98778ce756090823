// Border geometry, written once: which source row or column stands for an
// index outside the image, and a builder that writes one widened row (left
// part, the source row, right part). Border construction builds its
// destination rows with it; the filters build their widened work rows with
// it.
//
// Rows are arrays of pixels of Pixel elements of T. With Count < Pixel (four
// elements of which three are colour) only the first Count elements of every
// written pixel are stored; the fourth keeps its value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/image.h"
#include "core/simd.h"
#include "pvxi_impl.h"

PVX_BEGIN

enum class BorderKind {
    Const,      // a constant pixel
    Replicate,  // the nearest edge pixel
    Wrap,       // the periodic continuation of the source
    InMemory,   // the caller's memory around the source, read as it is
};

// The source index (row or column) that index i of an n-pixel source stands
// for; i may lie outside 0..n-1. Replicate clamps to the nearest edge, Wrap
// continues periodically, InMemory gives i itself (the caller's memory
// reaches that far) and Const gives -1 outside the source: the constant.
inline int borderSourceIndex(BorderKind kind, int i, int n)
{
    if (i >= 0 && i < n)
        return i;
    switch (kind) {
    case BorderKind::Replicate:
        return i < 0 ? 0 : n - 1;
    case BorderKind::Wrap: {
        const int r = i % n;
        return r < 0 ? r + n : r;
    }
    case BorderKind::InMemory:
        return i;
    default:
        return -1;
    }
}

// The two sides of one widened row.
struct RowBorder {
    BorderKind leftKind, rightKind;
    int left, right;               // pixels
    const void* value = nullptr;   // Const: one pixel of the row's type
};

// The colour channels of four-element pixels, moved by the same path's Copy.
#define PVX_BORDER_COPY_COLOUR(T, t)                                           \
    inline PvxStatus copyColour(const T* s, int ss, T* d, int ds, PvxiSize r) \
    {                                                                          \
        return PVX_IMPL(pvxiCopy_##t##_AC4R)(s, ss, d, ds, r);                 \
    }
PVX_BORDER_COPY_COLOUR(Pvx8u, 8u)
PVX_BORDER_COPY_COLOUR(Pvx16u, 16u)
PVX_BORDER_COPY_COLOUR(Pvx16s, 16s)
PVX_BORDER_COPY_COLOUR(Pvx32s, 32s)
PVX_BORDER_COPY_COLOUR(Pvx32f, 32f)
#undef PVX_BORDER_COPY_COLOUR

// Copies `rows` rows of n pixels with the same path's Copy (string moves for
// long rows). A source step of 0 repeats one row. Source and destination
// rows must not overlap.
template <class T, int Pixel, int Count>
inline void copyPixelRows(const T* s, int srcStep, T* d, int dstStep, int n, int rows)
{
    if (n <= 0 || rows <= 0)
        return;
    if constexpr (Count == Pixel) {
        // Whole pixels are bytes; a row longer than Copy's int width goes in pieces.
        constexpr std::int64_t kPiece = std::int64_t{1} << 30;
        const std::int64_t bytes = rowBytes<T>(n, Pixel);
        const auto* sb = reinterpret_cast<const Pvx8u*>(s);
        auto* db = reinterpret_cast<Pvx8u*>(d);
        for (std::int64_t at = 0; at < bytes; at += kPiece) {
            const int len = static_cast<int>(bytes - at < kPiece ? bytes - at : kPiece);
            PVX_IMPL(pvxiCopy_8u_C1R)(sb + at, srcStep, db + at, dstStep, PvxiSize{len, rows});
        }
    } else {
        static_assert(Pixel == 4 && Count == 3, "only the colour channels of four-element pixels");
        copyColour(s, srcStep, d, dstStep, PvxiSize{n, rows});
    }
}

// Shuffle controls that repeat the first PB bytes of a vector over 48 bytes;
// every pixel size (1, 2, 3, 4, 6, 8, 12 or 16 bytes) divides 48.
template <int PB>
struct RepeatControl {
    struct Table {
        alignas(16) unsigned char c[48];
    };
    static constexpr Table make()
    {
        Table t{};
        for (int i = 0; i < 48; ++i)
            t.c[i] = static_cast<unsigned char>(i % PB);
        return t;
    }
    static constexpr Table table = make();
};

// Writes n copies of `pixel`: 48-byte blocks of three vectors, then single
// vectors, then the last bytes through a small temporary. With Count < Pixel
// each vector is blended so that the fourth element keeps its value, and the
// last pixels are written one at a time.
template <class T, int Pixel, int Count>
inline void fillPixels(T* d, int n, const T* pixel)
{
    if (n <= 0)
        return;
    constexpr int kPB = Pixel * static_cast<int>(sizeof(T));
    static_assert(48 % kPB == 0, "pixel sizes divide 48");
    alignas(16) unsigned char first[16] = {};
    std::memcpy(first, pixel, kPB);
    const __m128i p = _mm_load_si128(reinterpret_cast<const __m128i*>(first));
    const auto* ctrl = RepeatControl<kPB>::table.c;
    __m128i v[3];
    for (int k = 0; k < 3; ++k)
        v[k] = _mm_shuffle_epi8(p, _mm_load_si128(reinterpret_cast<const __m128i*>(ctrl + 16 * k)));
    auto* q = reinterpret_cast<unsigned char*>(d);
    std::size_t bytes = static_cast<std::size_t>(n) * kPB;
    if constexpr (Count == Pixel) {
        for (; bytes >= 48; bytes -= 48, q += 48) {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(q), v[0]);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(q + 16), v[1]);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(q + 32), v[2]);
        }
        int k = 0;
        for (; bytes >= 16; bytes -= 16, q += 16, ++k)
            _mm_storeu_si128(reinterpret_cast<__m128i*>(q), v[k]);
        if (bytes > 0) {
            alignas(16) unsigned char tail[16];
            _mm_store_si128(reinterpret_cast<__m128i*>(tail), v[k]);
            std::memcpy(q, tail, bytes);
        }
    } else {
        static_assert(Pixel == 4 && Count == 3, "only the colour channels of four-element pixels");
        const __m128i alpha = alphaLanes<sizeof(T)>();  // 16 bytes hold whole pixels
        for (; bytes >= 16; bytes -= 16, q += 16)
            _mm_storeu_si128(reinterpret_cast<__m128i*>(q), select(alpha, loadu(q), v[0]));
        for (; bytes > 0; bytes -= kPB, q += kPB)  // bytes, so that float payloads stay exact
            std::memcpy(q, pixel, Count * sizeof(T));
    }
}

// Writes the widened row `out`: b.left pixels, the `width` pixels of `src`,
// b.right pixels. When the middle of `out` is `src` itself (border
// construction in place) the source pixels are not rewritten. Wrap parts are
// copied from the pixels of `out` already complete: all of them, which until
// the last piece are a whole number of periods, so the pieces double in
// length and never overlap what they read. Sides wider than the source
// continue periodically, and nothing outside the source row is read. `width`
// is at least 1.
template <class T, int Pixel, int Count = Pixel>
inline void buildBorderedRow(const T* src, int width, T* out, const RowBorder& b)
{
    constexpr std::ptrdiff_t P = Pixel;
    T* mid = out + b.left * P;
    T* right = mid + width * P;
    if (mid != src)
        copyPixelRows<T, Pixel, Count>(src, 0, mid, 0, width, 1);

    switch (b.leftKind) {
    case BorderKind::Const:
        fillPixels<T, Pixel, Count>(out, b.left, static_cast<const T*>(b.value));
        break;
    case BorderKind::Replicate:
        fillPixels<T, Pixel, Count>(out, b.left, src);
        break;
    case BorderKind::Wrap:  // right to left; pixels [x, left + width) are complete
        for (int x = b.left; x > 0;) {
            const int period = b.left - x + width;
            const int n = x < period ? x : period;
            x -= n;
            copyPixelRows<T, Pixel, Count>(out + (x + period) * P, 0, out + x * P, 0, n, 1);
        }
        break;
    case BorderKind::InMemory:
        if (out != src - b.left * P)
            copyPixelRows<T, Pixel, Count>(src - b.left * P, 0, out, 0, b.left, 1);
        break;
    }

    switch (b.rightKind) {
    case BorderKind::Const:
        fillPixels<T, Pixel, Count>(right, b.right, static_cast<const T*>(b.value));
        break;
    case BorderKind::Replicate:
        fillPixels<T, Pixel, Count>(right, b.right, src + (width - 1) * P);
        break;
    case BorderKind::Wrap:  // left to right; the width + x pixels before right + x are complete
        for (int x = 0; x < b.right;) {
            const int period = width + x;
            const int n = b.right - x < period ? b.right - x : period;
            copyPixelRows<T, Pixel, Count>(right + (x - period) * P, 0, right + x * P, 0, n, 1);
            x += n;
        }
        break;
    case BorderKind::InMemory:
        if (right != src + width * P)
            copyPixelRows<T, Pixel, Count>(src + width * P, 0, right, 0, b.right, 1);
        break;
    }
}

PVX_END
