// Rows of Transpose: whole images out of place; the destination of a W x H
// source is H x W.
#include "harness.h"

#include <cstdint>
#include <utility>

#ifdef PVX_BENCH_HAVE_OPENCV
#include <opencv2/core.hpp>
#endif

namespace {

using namespace pvxbench;

constexpr PvxiSize kSizes[] = {{1920, 1080}, {3840, 2160}};

template <typename T>
using TransposeFunction = PvxStatus(PVX_CALL*)(const T*, int, T*, int, PvxiSize);

// Reads and writes the image once.
template <typename T, int C>
void addTranspose(const char* op, TransposeFunction<T> transpose, PvxiSize size)
{
    Row row;
    row.op = op;
    row.size = size;
    row.bytesRead = row.bytesWritten = std::int64_t(size.width) * size.height * C * std::int64_t(sizeof(T));
    row.limit = Limit::Copy;
    row.setup = [transpose, size] {
        const ImagePtr src = newImage<T, C>(size);
        const ImagePtr dst = newImage<T, C>({size.height, size.width});
        Calls calls;
        calls.pvx = [transpose, src, dst, size] {
            return transpose(src->ptr<T>(), src->step, dst->ptr<T>(), dst->step, size);
        };
#ifdef PVX_BENCH_HAVE_OPENCV
        calls.peer = [src, dst, s = asMat(*src), d = asMat(*dst)]() mutable { cv::transpose(s, d); };
#endif
        return calls;
    };
    addRow(std::move(row));
}

}  // namespace

PVX_BENCH_FAMILY(transpose)
{
    for (PvxiSize size : kSizes)
        addTranspose<Pvx8u, 1>("Transpose_8u_C1R", pvxiTranspose_8u_C1R, size);
    for (PvxiSize size : kSizes)
        addTranspose<Pvx8u, 4>("Transpose_8u_C4R", pvxiTranspose_8u_C4R, size);
    for (PvxiSize size : kSizes)
        addTranspose<Pvx32f, 1>("Transpose_32f_C1R", pvxiTranspose_32f_C1R, size);
}
