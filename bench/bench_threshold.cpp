// Rows of the Threshold family: _LT and _GT for 8u and 32f, _Val for 8u on
// one and three channels. Peers with the same results: _LT is cv::max with a
// scalar (OpenCV has no threshold type that raises values), _GT is
// cv::threshold THRESH_TRUNC (min(x, t)), and _Val with pvxCmpGreater and the
// value 0 is THRESH_TOZERO_INV (x above t becomes 0).
#include "harness.h"

#include <cstdint>
#include <utility>

#ifdef PVX_BENCH_HAVE_OPENCV
#include <opencv2/imgproc.hpp>
#endif

namespace {

using namespace pvxbench;

constexpr PvxiSize kSizes[] = {{1920, 1080}, {3840, 2160}};

// One source, one destination of C channels: reads and writes the image once.
// `call` runs the pvx function, `peer` the OpenCV equivalent (source, destination).
template <typename T, int C, typename PvxCall, typename PeerCall>
void addThreshold(const char* op, PvxCall call, PeerCall peer, PvxiSize size)
{
    Row row;
    row.op = op;
    row.size = size;
    row.bytesRead = row.bytesWritten = std::int64_t(size.width) * size.height * C * std::int64_t(sizeof(T));
    row.setup = [call, peer, size] {
        const ImagePtr a = newImage<T, C>(size), d = newImage<T, C>(size);
        Calls calls;
        calls.pvx = [call, a, d, size] { return call(a->ptr<T>(), a->step, d->ptr<T>(), d->step, size); };
#ifdef PVX_BENCH_HAVE_OPENCV
        calls.peer = [peer, a, d, ma = asMat(*a), md = asMat(*d)]() mutable { peer(ma, md); };
#else
        (void)peer;
#endif
        return calls;
    };
    addRow(std::move(row));
}

#ifdef PVX_BENCH_HAVE_OPENCV
constexpr int kTrunc = cv::THRESH_TRUNC, kToZeroInv = cv::THRESH_TOZERO_INV;
#define PVX_PEER(expr) [](cv::Mat & a, cv::Mat & d) { expr; }
#else
#define PVX_PEER(expr) 0
#endif

}  // namespace

PVX_BENCH_FAMILY(threshold)
{
    using U = Pvx8u;
    using F = Pvx32f;
    for (PvxiSize size : kSizes) {
        addThreshold<U, 1>(
            "Threshold_LT_8u_C1R",
            [](const U* a, int as, U* d, int ds, PvxiSize s) { return pvxiThreshold_LT_8u_C1R(a, as, d, ds, s, 128); },
            PVX_PEER(cv::max(a, 128.0, d)), size);
        addThreshold<U, 1>(
            "Threshold_GT_8u_C1R",
            [](const U* a, int as, U* d, int ds, PvxiSize s) { return pvxiThreshold_GT_8u_C1R(a, as, d, ds, s, 128); },
            PVX_PEER(cv::threshold(a, d, 128, 0, kTrunc)), size);
        addThreshold<F, 1>(
            "Threshold_LT_32f_C1R",
            [](const F* a, int as, F* d, int ds, PvxiSize s) { return pvxiThreshold_LT_32f_C1R(a, as, d, ds, s, 0.5f); },
            PVX_PEER(cv::max(a, 0.5, d)), size);
        addThreshold<F, 1>(
            "Threshold_GT_32f_C1R",
            [](const F* a, int as, F* d, int ds, PvxiSize s) { return pvxiThreshold_GT_32f_C1R(a, as, d, ds, s, 0.5f); },
            PVX_PEER(cv::threshold(a, d, 0.5, 0, kTrunc)), size);
        addThreshold<U, 1>(
            "Threshold_Val_8u_C1R",
            [](const U* a, int as, U* d, int ds, PvxiSize s) {
                return pvxiThreshold_Val_8u_C1R(a, as, d, ds, s, 128, 0, pvxCmpGreater);
            },
            PVX_PEER(cv::threshold(a, d, 128, 0, kToZeroInv)), size);
        addThreshold<U, 3>(
            "Threshold_Val_8u_C3R",
            [](const U* a, int as, U* d, int ds, PvxiSize s) {
                const U t[3] = {128, 128, 128}, v[3] = {0, 0, 0};
                return pvxiThreshold_Val_8u_C3R(a, as, d, ds, s, t, v, pvxCmpGreater);
            },
            PVX_PEER(cv::threshold(a, d, 128, 0, kToZeroInv)), size);
    }
}
