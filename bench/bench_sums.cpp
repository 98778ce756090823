// Rows of the sums-and-norms families: Sum, Mean and the three norms of 8u
// images, which only read: the limit is a memcpy of half the image (its reads
// plus its writes equal the image's bytes).
#include "harness.h"

#include <cstdint>
#include <utility>

namespace {

using namespace pvxbench;

constexpr PvxiSize kSizes[] = {{1920, 1080}, {3840, 2160}};

using Reduce8u = PvxStatus(PVX_CALL*)(const Pvx8u*, int, PvxiSize, Pvx64f*);

// `cvNorm` is the OpenCV norm type, or -1 for cv::sum and -2 for cv::mean.
template <int C>
void addReduce(const char* op, Reduce8u f, int cvNorm, PvxiSize size)
{
    Row row;
    row.op = op;
    row.size = size;
    row.bytesRead = std::int64_t(size.width) * size.height * C;
    row.limit = Limit::Copy;
    row.setup = [f, cvNorm, size] {
        const ImagePtr src = newImage<Pvx8u, C>(size);
        Calls calls;
        calls.pvx = [f, src, size] {
            Pvx64f result[4];
            return f(src->ptr<Pvx8u>(), src->step, size, result);
        };
#ifdef PVX_BENCH_HAVE_OPENCV
        calls.peer = [src, cvNorm, s = asMat(*src)] {
            volatile double sink = cvNorm == -1 ? cv::sum(s)[0] : cvNorm == -2 ? cv::mean(s)[0] : cv::norm(s, cvNorm);
            (void)sink;
        };
#else
        (void)cvNorm;
#endif
        return calls;
    };
    addRow(std::move(row));
}

#ifdef PVX_BENCH_HAVE_OPENCV
constexpr int kInf = cv::NORM_INF, kL1 = cv::NORM_L1, kL2 = cv::NORM_L2;
#else
constexpr int kInf = 0, kL1 = 0, kL2 = 0;
#endif

}  // namespace

PVX_BENCH_FAMILY(sums)
{
    for (PvxiSize size : kSizes)
        addReduce<1>("Sum_8u_C1R", pvxiSum_8u_C1R, -1, size);
    for (PvxiSize size : kSizes)
        addReduce<4>("Sum_8u_C4R", pvxiSum_8u_C4R, -1, size);
    for (PvxiSize size : kSizes)
        addReduce<1>("Mean_8u_C1R", pvxiMean_8u_C1R, -2, size);
    for (PvxiSize size : kSizes)
        addReduce<1>("Norm_Inf_8u_C1R", pvxiNorm_Inf_8u_C1R, kInf, size);
    for (PvxiSize size : kSizes)
        addReduce<1>("Norm_L1_8u_C1R", pvxiNorm_L1_8u_C1R, kL1, size);
    for (PvxiSize size : kSizes)
        addReduce<1>("Norm_L2_8u_C1R", pvxiNorm_L2_8u_C1R, kL2, size);
}
