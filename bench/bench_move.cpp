// Rows of the data-movement family: Copy and Set of whole images.
#include "harness.h"

#include <cstdint>
#include <utility>

namespace {

using namespace pvxbench;

constexpr PvxiSize kSizes[] = {{1920, 1080}, {3840, 2160}};

// Set values: different per channel, so that the multi-channel rows cannot
// become a byte fill.
constexpr Pvx8u kValue8u[4] = {17, 117, 217, 255};
constexpr Pvx32f kValue32f = 0.625f;

template <typename T, int C>
std::int64_t imageBytes(PvxiSize size)
{
    return std::int64_t(size.width) * size.height * C * std::int64_t(sizeof(T));
}

template <typename T>
using CopyFunction = PvxStatus(PVX_CALL*)(const T*, int, T*, int, PvxiSize);

// Copy: reads and writes the image once.
template <typename T, int C>
void addCopy(const char* op, CopyFunction<T> copy, PvxiSize size)
{
    Row row;
    row.op = op;
    row.size = size;
    row.bytesRead = row.bytesWritten = imageBytes<T, C>(size);
    row.limit = Limit::Copy;
    row.setup = [copy, size] {
        const ImagePtr src = newImage<T, C>(size);
        const ImagePtr dst = newImage<T, C>(size);
        Calls calls;
        calls.pvx = [copy, src, dst, size] { return copy(src->ptr<T>(), src->step, dst->ptr<T>(), dst->step, size); };
#ifdef PVX_BENCH_HAVE_OPENCV
        calls.peer = [src, dst, s = asMat(*src), d = asMat(*dst)]() mutable { s.copyTo(d); };
#endif
        return calls;
    };
    addRow(std::move(row));
}

// Set: writes the image once. `set` calls the pvx function with the value,
// `value` holds the same value per channel for the peer.
template <typename T, int C, typename SetCall>
void addSet(const char* op, SetCall set, const double (&value)[4], PvxiSize size)
{
    Row row;
    row.op = op;
    row.size = size;
    row.bytesWritten = imageBytes<T, C>(size);
    row.limit = Limit::Fill;
    row.setup = [set, size, v0 = value[0], v1 = value[1], v2 = value[2], v3 = value[3]] {
        const ImagePtr dst = newImage<T, C>(size);
        Calls calls;
        calls.pvx = [set, dst, size] { return set(dst->ptr<T>(), dst->step, size); };
#ifdef PVX_BENCH_HAVE_OPENCV
        calls.peer = [dst, d = asMat(*dst), scalar = cv::Scalar(v0, v1, v2, v3)]() mutable { d.setTo(scalar); };
#else
        (void)v0, (void)v1, (void)v2, (void)v3;
#endif
        return calls;
    };
    addRow(std::move(row));
}

}  // namespace

PVX_BENCH_FAMILY(move)
{
    for (PvxiSize size : kSizes)
        addCopy<Pvx8u, 1>("Copy_8u_C1R", pvxiCopy_8u_C1R, size);
    for (PvxiSize size : kSizes)
        addCopy<Pvx8u, 3>("Copy_8u_C3R", pvxiCopy_8u_C3R, size);
    for (PvxiSize size : kSizes)
        addCopy<Pvx8u, 4>("Copy_8u_C4R", pvxiCopy_8u_C4R, size);
    for (PvxiSize size : kSizes)
        addCopy<Pvx32f, 1>("Copy_32f_C1R", pvxiCopy_32f_C1R, size);

    const double value8u[4] = {kValue8u[0], kValue8u[1], kValue8u[2], kValue8u[3]};
    const double value32f[4] = {kValue32f, 0, 0, 0};
    for (PvxiSize size : kSizes)
        addSet<Pvx8u, 1>(
            "Set_8u_C1R", [](Pvx8u* d, int step, PvxiSize s) { return pvxiSet_8u_C1R(kValue8u[0], d, step, s); },
            value8u, size);
    for (PvxiSize size : kSizes)
        addSet<Pvx8u, 3>(
            "Set_8u_C3R", [](Pvx8u* d, int step, PvxiSize s) { return pvxiSet_8u_C3R(kValue8u, d, step, s); },
            value8u, size);
    for (PvxiSize size : kSizes)
        addSet<Pvx8u, 4>(
            "Set_8u_C4R", [](Pvx8u* d, int step, PvxiSize s) { return pvxiSet_8u_C4R(kValue8u, d, step, s); },
            value8u, size);
    for (PvxiSize size : kSizes)
        addSet<Pvx32f, 1>(
            "Set_32f_C1R", [](Pvx32f* d, int step, PvxiSize s) { return pvxiSet_32f_C1R(kValue32f, d, step, s); },
            value32f, size);
}
