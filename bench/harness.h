// pvx_bench harness: every benchmark is a "row", an operation on one element
// type, layout and image size, measured in up to three variants in the same
// process:
//
//   pvx    the pvx function;
//   limit  memcpy (or memset) moving the same number of bytes: for an
//          operation that reads R bytes and writes W bytes, a memcpy of
//          (R + W) / 2 bytes (Limit::Copy) or a memset of R + W bytes
//          (Limit::Fill, for operations that only write);
//   peer   the OpenCV equivalent, single-threaded (only when the benchmark is
//          built with OpenCV).
//
// Every variant reports R + W bytes per call, so the three throughputs of a
// row compare directly. After Google Benchmark's own output, pvx_bench prints
// one summary line per row: the three throughputs and the time ratios
// pvx/limit (1.00 = as fast as memcpy) and pvx/peer (below 1 = faster than
// OpenCV).
//
// Adding rows for a new family
// ----------------------------
// 1. Create bench/bench_<family>.cpp (CMake picks up every bench_*.cpp).
// 2. In it, write PVX_BENCH_FAMILY(<family>) { ... } and call addRow() once
//    per row. A Row names the operation (the pvx function without the "pvxi"
//    prefix), an optional detail (a parameter such as a kernel size, no
//    spaces), the image size, the bytes read and written per call, the kind
//    of limit, and a setup function.
// 3. setup() runs just before the row is first measured (and again only if
//    its buffers were released to stay within the buffer budget). It
//    allocates the buffers with newImage<T, C>() (pvxiMalloc rows and steps,
//    every page already written), fills them as the operation needs, and
//    returns the calls: pvx() runs the pvx function once and returns its
//    status; peer() runs the OpenCV equivalent once, built only under
//    #ifdef PVX_BENCH_HAVE_OPENCV (asMat() wraps an Image without copying;
//    set Row::peer = false when OpenCV has no equivalent). Capture the image
//    pointers in the lambdas: the buffers live as long as the calls do.
//    Source and destination must be separate images.
//
// Most rows read whole images and write one: addImageRows() makes such rows
// for the usual sizes, and bench_move.cpp is the pattern to follow.
#ifndef PVX_BENCH_HARNESS_H
#define PVX_BENCH_HARNESS_H

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include "pvxcore.h"
#include "pvxi.h"

#ifdef PVX_BENCH_HAVE_OPENCV
#include <opencv2/core.hpp>
#endif

namespace pvxbench {

// ---------------------------------------------------------------- images

// An image from a pvxiMalloc function, released with pvxiFree.
struct Image {
    void* data = nullptr;
    int step = 0;           // bytes between rows, a multiple of 64
    PvxiSize size = {0, 0};
    int channels = 0;
    int elementBytes = 0;   // bytes of one channel value
    int cvDepth = -1;       // OpenCV depth code of the element type, -1 if none

    Image() = default;
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;
    ~Image();

    template <typename T>
    T* ptr() const { return static_cast<T*>(data); }
    template <typename T>
    T* row(int y) const { return reinterpret_cast<T*>(static_cast<char*>(data) + std::int64_t(step) * y); }
    std::int64_t rowBytes() const { return std::int64_t(size.width) * channels * elementBytes; }
    // Bytes of pixel data (padding excluded).
    std::int64_t bytes() const { return rowBytes() * size.height; }
};

using ImagePtr = std::shared_ptr<Image>;

namespace detail {

// Allocates with the pvxiMalloc function of element type T and C channels.
template <typename T, int C>
T* mallocImage(int w, int h, int* step)
{
    static_assert(C >= 1 && C <= 4, "1 to 4 channels");
#define PVX_BENCH_MALLOC(type, suffix)                                         \
    if constexpr (std::is_same_v<T, type>) {                                   \
        if constexpr (C == 1) return pvxiMalloc_##suffix##_C1(w, h, step);     \
        else if constexpr (C == 2) return pvxiMalloc_##suffix##_C2(w, h, step); \
        else if constexpr (C == 3) return pvxiMalloc_##suffix##_C3(w, h, step); \
        else return pvxiMalloc_##suffix##_C4(w, h, step);                      \
    } else
    PVX_BENCH_MALLOC(Pvx8u, 8u)
    PVX_BENCH_MALLOC(Pvx16u, 16u)
    PVX_BENCH_MALLOC(Pvx16s, 16s)
    PVX_BENCH_MALLOC(Pvx32s, 32s)
    PVX_BENCH_MALLOC(Pvx32f, 32f)
    PVX_BENCH_MALLOC(Pvx32sc, 32sc)
    PVX_BENCH_MALLOC(Pvx32fc, 32fc)
    {
        static_assert(sizeof(T) == 0, "no pvxiMalloc function for this element type");
        return nullptr;
    }
#undef PVX_BENCH_MALLOC
}

// OpenCV depth codes (the values of CV_8U ... CV_32F); complex elements are
// wrapped as two channels of their component type.
template <typename T> constexpr int cvDepthOf = -1;
template <> constexpr int cvDepthOf<Pvx8u> = 0;
template <> constexpr int cvDepthOf<Pvx16u> = 2;
template <> constexpr int cvDepthOf<Pvx16s> = 3;
template <> constexpr int cvDepthOf<Pvx32s> = 4;
template <> constexpr int cvDepthOf<Pvx32f> = 5;
template <> constexpr int cvDepthOf<Pvx32sc> = 4;
template <> constexpr int cvDepthOf<Pvx32fc> = 5;
template <typename T> constexpr int cvChannelsPerElement = 1;
template <> constexpr int cvChannelsPerElement<Pvx32sc> = 2;
template <> constexpr int cvChannelsPerElement<Pvx32fc> = 2;

// Aborts with a message when allocation failed; otherwise counts the image's
// bytes towards the harness's buffer budget.
void allocated(const Image& img, int channels, int elementBytes);
// Writes every byte of the image, padding included, so that no page fault is
// left for the timed loop: floats get values in [0, 1), integers a pattern.
void fillFloat(Image& img);
void fillInteger(Image& img);

}  // namespace detail

// A new image of C channels of T, every page written (see detail::fill*).
template <typename T, int C>
ImagePtr newImage(PvxiSize size)
{
    auto img = std::make_shared<Image>();
    img->size = size;
    img->data = detail::mallocImage<T, C>(size.width, size.height, &img->step);
    detail::allocated(*img, C, int(sizeof(T)));
    img->channels = C * detail::cvChannelsPerElement<T>;
    img->elementBytes = int(sizeof(T)) / detail::cvChannelsPerElement<T>;
    img->cvDepth = detail::cvDepthOf<T>;
    if constexpr (std::is_same_v<T, Pvx32f> || std::is_same_v<T, Pvx32fc>)
        detail::fillFloat(*img);
    else
        detail::fillInteger(*img);
    return img;
}

#ifdef PVX_BENCH_HAVE_OPENCV
// A Mat header over the image's pixels and step (no copy).
cv::Mat asMat(const Image& img);
#endif

// ---------------------------------------------------------------- rows

enum class Limit {
    Copy,  // memcpy of (read + written) / 2 bytes
    Fill,  // memset of read + written bytes
};

// The calls a row measures, made by Row::setup.
struct Calls {
    std::function<PvxStatus()> pvx;  // one call of the pvx function
    std::function<void()> peer;      // one call of the OpenCV equivalent; empty: none
};

struct Row {
    std::string op;      // pvx function without "pvxi", e.g. "Copy_8u_C3R"
    std::string detail;  // optional parameter, e.g. "k5x5"; no spaces
    PvxiSize size = {0, 0};
    std::int64_t bytesRead = 0;     // per call
    std::int64_t bytesWritten = 0;  // per call
    Limit limit = Limit::Copy;
    bool peer = true;  // has an OpenCV equivalent (used only when built with OpenCV)
    std::function<Calls()> setup;
};

void addRow(Row row);

// Registers a family's rows; called from the static initialiser that
// PVX_BENCH_FAMILY expands to.
bool addFamily(const char* name, void (*addRows)());

// ---------------------------------------------------------------- rows over whole images

// The sizes of addImageRows: full HD and 4K UHD.
constexpr PvxiSize kImageSizes[] = {{1920, 1080}, {3840, 2160}};

// Adds one row per size of kImageSizes for an operation that reads Sources
// (0 to 2) whole images of S and writes one of D, all of C channels. The
// sources have the row's size, the destination dstSizeOf(size) (by default
// the same). `pvx` is called as (src1, src1Step, [src2, src2Step,] dst,
// dstStep, size), the argument order of most pvx functions; `peer`, made by
// PVX_BENCH_PEER, gets the images' Mats in the same order. `prepare`, when
// given, rewrites each source's values once. A row without sources only
// writes: its limit is a memset.
template <typename S, int C, typename D = S, int Sources = 1, typename PvxCall, typename PeerCall>
void addImageRows(const char* op, const char* detail, PvxCall pvx, [[maybe_unused]] PeerCall peer,
                  PvxiSize (*dstSizeOf)(PvxiSize) = nullptr, void (*prepare)(Image&) = nullptr)
{
    static_assert(Sources >= 0 && Sources <= 2, "up to two sources");
    for (const PvxiSize size : kImageSizes) {
        const PvxiSize dstSize = dstSizeOf ? dstSizeOf(size) : size;
        Row row;
        row.op = op;
        row.detail = detail;
        row.size = size;
        row.bytesRead = Sources * std::int64_t(size.width) * size.height * C * std::int64_t(sizeof(S));
        row.bytesWritten = std::int64_t(dstSize.width) * dstSize.height * C * std::int64_t(sizeof(D));
        row.limit = Sources == 0 ? Limit::Fill : Limit::Copy;
        row.setup = [pvx, peer, size, dstSize, prepare] {
            std::array<ImagePtr, Sources> src;
            for (ImagePtr& img : src) {
                img = newImage<S, C>(size);
                if (prepare)
                    prepare(*img);
            }
            const ImagePtr dst = newImage<D, C>(dstSize);
            Calls calls;
            calls.pvx = [pvx, src, dst, size]() -> PvxStatus {
                if constexpr (Sources == 0)
                    return pvx(dst->ptr<D>(), dst->step, size);
                else if constexpr (Sources == 1)
                    return pvx(src[0]->template ptr<S>(), src[0]->step, dst->ptr<D>(), dst->step, size);
                else
                    return pvx(src[0]->template ptr<S>(), src[0]->step, src[1]->template ptr<S>(), src[1]->step,
                               dst->ptr<D>(), dst->step, size);
            };
#ifdef PVX_BENCH_HAVE_OPENCV
            std::array<cv::Mat, Sources + 1> mats;
            for (int i = 0; i < Sources; ++i)
                mats[i] = asMat(*src[i]);
            mats[Sources] = asMat(*dst);
            calls.peer = [peer, src, dst, mats]() mutable { std::apply(peer, mats); };
#endif
            return calls;
        };
        addRow(std::move(row));
    }
}

}  // namespace pvxbench

// The OpenCV call of addImageRows: a lambda over the images' Mats, e.g.
// PVX_BENCH_PEER((auto& s, auto& d), s.copyTo(d)); nothing in builds without
// OpenCV.
#ifdef PVX_BENCH_HAVE_OPENCV
#define PVX_BENCH_PEER(mats, ...) [] mats { __VA_ARGS__; }
#else
#define PVX_BENCH_PEER(mats, ...) nullptr
#endif

// PVX_BENCH_FAMILY(name) { addRow(...); ... } defines the function that adds
// the rows of family `name`.
#define PVX_BENCH_FAMILY(name)                                                           \
    static void pvxBenchAddRows_##name();                                                \
    [[maybe_unused]] static const bool pvxBenchFamily_##name =                           \
        ::pvxbench::addFamily(#name, &pvxBenchAddRows_##name);                           \
    static void pvxBenchAddRows_##name()

#endif  // PVX_BENCH_HARNESS_H
