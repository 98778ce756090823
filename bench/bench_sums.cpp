// Rows of the sums-and-norms families: Sum, Mean and the three norms of 8u
// images, and one row for each other kind of kernel (three-channel bytes,
// 16-bit sums and squares, single-precision sums and maxima). They only
// read: the limit is a memcpy of half the image (its reads plus its writes
// equal the image's bytes).
#include "harness.h"

#include <cstdint>
#include <type_traits>
#include <utility>

namespace {

using namespace pvxbench;

constexpr PvxiSize kSizes[] = {{1920, 1080}, {3840, 2160}};

// `cvNorm` is the OpenCV norm type, or -1 for cv::sum and -2 for cv::mean.
// F takes the 32f forms' hint too (the default, single precision).
template <int C, typename T = Pvx8u, typename F>
void addReduce(const char* op, F f, int cvNorm, PvxiSize size)
{
    Row row;
    row.op = op;
    row.size = size;
    row.bytesRead = std::int64_t(size.width) * size.height * C * std::int64_t(sizeof(T));
    row.limit = Limit::Copy;
    row.setup = [f, cvNorm, size] {
        const ImagePtr src = newImage<T, C>(size);
        Calls calls;
        calls.pvx = [f, src, size] {
            Pvx64f result[4];
            if constexpr (std::is_invocable_v<F, const T*, int, PvxiSize, Pvx64f*>)
                return f(src->ptr<T>(), src->step, size, result);
            else
                return f(src->ptr<T>(), src->step, size, result, pvxAlgHintNone);
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
    const PvxiSize hd = kSizes[0];
    addReduce<3>("Sum_8u_C3R", pvxiSum_8u_C3R, -1, hd);
    addReduce<4, Pvx16s>("Sum_16s_C4R", pvxiSum_16s_C4R, -1, hd);
    addReduce<1, Pvx16u>("Norm_L2_16u_C1R", pvxiNorm_L2_16u_C1R, kL2, hd);
    addReduce<1, Pvx32f>("Sum_32f_C1R", pvxiSum_32f_C1R, -1, hd);
    addReduce<4, Pvx32f>("Norm_Inf_32f_C4R", pvxiNorm_Inf_32f_C4R, kInf, hd);
}
