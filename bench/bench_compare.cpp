// Rows of the comparison family: Compare of two images (8u, 32f) and CompareC
// (8u) into one-channel 8u masks, beside cv::compare.
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
std::int64_t pixels(PvxiSize size)
{
    return std::int64_t(size.width) * size.height;
}

// Two sources of T, one 8u mask; operator "less or equal".
template <typename T>
void addCompare(const char* op, PvxStatus(PVX_CALL* compare)(const T*, int, const T*, int, Pvx8u*, int, PvxiSize, PvxCmpOp),
                PvxiSize size)
{
    Row row;
    row.op = op;
    row.detail = "le";
    row.size = size;
    row.bytesRead = 2 * pixels<T>(size) * std::int64_t(sizeof(T));
    row.bytesWritten = pixels<T>(size);
    row.limit = Limit::Copy;
    row.setup = [compare, size] {
        const ImagePtr a = newImage<T, 1>(size), b = newImage<T, 1>(size), d = newImage<Pvx8u, 1>(size);
        Calls calls;
        calls.pvx = [compare, a, b, d, size] {
            return compare(a->ptr<T>(), a->step, b->ptr<T>(), b->step, d->ptr<Pvx8u>(), d->step, size, pvxCmpLessEq);
        };
#ifdef PVX_BENCH_HAVE_OPENCV
        calls.peer = [a, b, d, ma = asMat(*a), mb = asMat(*b), md = asMat(*d)]() mutable {
            cv::compare(ma, mb, md, cv::CMP_LE);
        };
#endif
        return calls;
    };
    addRow(std::move(row));
}

// One source against a constant in its middle range.
void addCompareC8u(PvxiSize size)
{
    Row row;
    row.op = "CompareC_8u_C1R";
    row.detail = "gt";
    row.size = size;
    row.bytesRead = pixels<Pvx8u>(size);
    row.bytesWritten = pixels<Pvx8u>(size);
    row.limit = Limit::Copy;
    row.setup = [size] {
        const ImagePtr a = newImage<Pvx8u, 1>(size), d = newImage<Pvx8u, 1>(size);
        Calls calls;
        calls.pvx = [a, d, size] {
            return pvxiCompareC_8u_C1R(a->ptr<Pvx8u>(), a->step, 100, d->ptr<Pvx8u>(), d->step, size, pvxCmpGreater);
        };
#ifdef PVX_BENCH_HAVE_OPENCV
        calls.peer = [a, d, ma = asMat(*a), md = asMat(*d)]() mutable { cv::compare(ma, 100.0, md, cv::CMP_GT); };
#endif
        return calls;
    };
    addRow(std::move(row));
}

}  // namespace

PVX_BENCH_FAMILY(compare)
{
    for (PvxiSize size : kSizes)
        addCompare<Pvx8u>("Compare_8u_C1R", pvxiCompare_8u_C1R, size);
    for (PvxiSize size : kSizes)
        addCompare<Pvx32f>("Compare_32f_C1R", pvxiCompare_32f_C1R, size);
    for (PvxiSize size : kSizes)
        addCompareC8u(size);
}
