// Rows of Mirror (flips 0 to 3 of 8u C1 and C4 images) and SwapChannels (8u
// C3 and C4 reorderings), against cv::flip, cv::transpose and cv::mixChannels.
#include "harness.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace pvxbench;

constexpr PvxiSize kSizes[] = {{1920, 1080}, {3840, 2160}};

template <int C>
std::int64_t imageBytes(PvxiSize size)
{
    return std::int64_t(size.width) * size.height * C;
}

using MirrorFunction = PvxStatus(PVX_CALL*)(const Pvx8u*, int, Pvx8u*, int, PvxiSize, int);

// Mirror reads and writes the image once; flip 3 writes an H x W image.
template <int C>
void addMirror(const char* op, MirrorFunction mirror, int flip, PvxiSize size)
{
    Row row;
    row.op = op;
    row.detail = "flip" + std::to_string(flip);
    row.size = size;
    row.bytesRead = row.bytesWritten = imageBytes<C>(size);
    row.limit = Limit::Copy;
    row.setup = [mirror, flip, size] {
        const PvxiSize dstSize = flip == 3 ? PvxiSize{size.height, size.width} : size;
        const ImagePtr src = newImage<Pvx8u, C>(size);
        const ImagePtr dst = newImage<Pvx8u, C>(dstSize);
        Calls calls;
        calls.pvx = [mirror, flip, src, dst, size] {
            return mirror(src->ptr<Pvx8u>(), src->step, dst->ptr<Pvx8u>(), dst->step, size, flip);
        };
#ifdef PVX_BENCH_HAVE_OPENCV
        // cv::flip codes: 0 about the horizontal axis, 1 the vertical, -1 both.
        const int code = flip == 0 ? 0 : flip == 1 ? 1 : -1;
        calls.peer = [src, dst, flip, code, s = asMat(*src), d = asMat(*dst)]() mutable {
            if (flip == 3)
                cv::transpose(s, d);
            else
                cv::flip(s, d, code);
        };
#endif
        return calls;
    };
    addRow(std::move(row));
}

using SwapFunction = PvxStatus(PVX_CALL*)(const Pvx8u*, int, Pvx8u*, int, PvxiSize, const int*);

// SwapChannels of C-channel pixels by `order` (C entries).
template <int C>
void addSwap(const char* op, SwapFunction swap, const int (&order)[C], PvxiSize size)
{
    Row row;
    row.op = op;
    for (int k = 0; k < C; ++k)
        row.detail += (k ? "," : "") + std::to_string(order[k]);
    row.size = size;
    row.bytesRead = row.bytesWritten = imageBytes<C>(size);
    row.limit = Limit::Copy;
    std::vector<int> ord(order, order + C);
    row.setup = [swap, ord, size] {
        const ImagePtr src = newImage<Pvx8u, C>(size);
        const ImagePtr dst = newImage<Pvx8u, C>(size);
        Calls calls;
        calls.pvx = [swap, ord, src, dst, size] {
            return swap(src->ptr<Pvx8u>(), src->step, dst->ptr<Pvx8u>(), dst->step, size, ord.data());
        };
#ifdef PVX_BENCH_HAVE_OPENCV
        std::vector<int> fromTo;
        for (int k = 0; k < C; ++k)
            fromTo.insert(fromTo.end(), {ord[std::size_t(k)], k});
        calls.peer = [src, dst, fromTo, s = asMat(*src), d = asMat(*dst)]() mutable {
            cv::mixChannels(&s, 1, &d, 1, fromTo.data(), fromTo.size() / 2);
        };
#endif
        return calls;
    };
    addRow(std::move(row));
}

}  // namespace

PVX_BENCH_FAMILY(mirror)
{
    for (int flip = 0; flip <= 3; ++flip)
        for (PvxiSize size : kSizes)
            addMirror<1>("Mirror_8u_C1R", pvxiMirror_8u_C1R, flip, size);
    for (int flip = 0; flip <= 3; ++flip)
        for (PvxiSize size : kSizes)
            addMirror<4>("Mirror_8u_C4R", pvxiMirror_8u_C4R, flip, size);

    const int bgr[3] = {2, 1, 0}, bgra[4] = {2, 1, 0, 3};
    for (PvxiSize size : kSizes)
        addSwap<3>("SwapChannels_8u_C3R", pvxiSwapChannels_8u_C3R, bgr, size);
    for (PvxiSize size : kSizes)
        addSwap<4>("SwapChannels_8u_C4R", pvxiSwapChannels_8u_C4R, bgra, size);
}
