// Rows of border construction: CopyReplicateBorder with a 16-pixel frame on
// every side, beside OpenCV's copyMakeBorder(BORDER_REPLICATE).
#include "harness.h"

#include <cstdint>
#include <utility>

#ifdef PVX_BENCH_HAVE_OPENCV
#include <opencv2/core.hpp>
#endif

namespace {

using namespace pvxbench;

constexpr PvxiSize kSizes[] = {{1920, 1080}, {3840, 2160}};
constexpr int kBorder = 16;

template <typename T>
using ReplicateFunction = PvxStatus(PVX_CALL*)(const T*, int, PvxiSize, T*, int, PvxiSize, int, int);

// Reads the source once and writes the larger destination once; `size` is
// the source size.
template <typename T, int C>
void addReplicate(const char* op, ReplicateFunction<T> replicate, PvxiSize size)
{
    const PvxiSize dstSize{size.width + 2 * kBorder, size.height + 2 * kBorder};
    Row row;
    row.op = op;
    row.detail = "b16";
    row.size = size;
    row.bytesRead = std::int64_t(size.width) * size.height * C * std::int64_t(sizeof(T));
    row.bytesWritten = std::int64_t(dstSize.width) * dstSize.height * C * std::int64_t(sizeof(T));
    row.limit = Limit::Copy;
    row.setup = [replicate, size, dstSize] {
        const ImagePtr src = newImage<T, C>(size);
        const ImagePtr dst = newImage<T, C>(dstSize);
        Calls calls;
        calls.pvx = [replicate, src, dst, size, dstSize] {
            return replicate(src->ptr<T>(), src->step, size, dst->ptr<T>(), dst->step, dstSize, kBorder, kBorder);
        };
#ifdef PVX_BENCH_HAVE_OPENCV
        calls.peer = [src, dst, s = asMat(*src), d = asMat(*dst)]() mutable {
            cv::copyMakeBorder(s, d, kBorder, kBorder, kBorder, kBorder, cv::BORDER_REPLICATE);
        };
#endif
        return calls;
    };
    addRow(std::move(row));
}

}  // namespace

PVX_BENCH_FAMILY(border)
{
    for (PvxiSize size : kSizes)
        addReplicate<Pvx8u, 1>("CopyReplicateBorder_8u_C1R", pvxiCopyReplicateBorder_8u_C1R, size);
    for (PvxiSize size : kSizes)
        addReplicate<Pvx8u, 4>("CopyReplicateBorder_8u_C4R", pvxiCopyReplicateBorder_8u_C4R, size);
}
