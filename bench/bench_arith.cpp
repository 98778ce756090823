// Rows of the arithmetic families: Add, AddC, Sub, Mul, MulC (8u at scale
// factor 0, and 32f) and DivC 32f on one-channel images.
#include "harness.h"

#include <cstdint>
#include <utility>

namespace {

using namespace pvxbench;

constexpr PvxiSize kSizes[] = {{1920, 1080}, {3840, 2160}};

template <typename T>
std::int64_t imageBytes(PvxiSize size)
{
    return std::int64_t(size.width) * size.height * std::int64_t(sizeof(T));
}

// Two sources, one destination: reads both, writes one. `peer` names the
// OpenCV operation on (source 1, source 2, destination) matching pvx's
// operand order.
template <typename T, typename PvxCall, typename PeerCall>
void addImages(const char* op, PvxCall call, PeerCall peer, PvxiSize size)
{
    Row row;
    row.op = op;
    row.size = size;
    row.bytesRead = 2 * imageBytes<T>(size);
    row.bytesWritten = imageBytes<T>(size);
    row.setup = [call, peer, size] {
        const ImagePtr a = newImage<T, 1>(size), b = newImage<T, 1>(size), d = newImage<T, 1>(size);
        Calls calls;
        calls.pvx = [call, a, b, d, size] { return call(a->ptr<T>(), a->step, b->ptr<T>(), b->step, d->ptr<T>(), d->step, size); };
#ifdef PVX_BENCH_HAVE_OPENCV
        calls.peer = [peer, a, b, d, ma = asMat(*a), mb = asMat(*b), md = asMat(*d)]() mutable { peer(ma, mb, md); };
#else
        (void)peer;
#endif
        return calls;
    };
    addRow(std::move(row));
}

// One source and a constant: reads and writes one image each.
template <typename T, typename PvxCall, typename PeerCall>
void addConstant(const char* op, PvxCall call, PeerCall peer, PvxiSize size)
{
    Row row;
    row.op = op;
    row.size = size;
    row.bytesRead = row.bytesWritten = imageBytes<T>(size);
    row.setup = [call, peer, size] {
        const ImagePtr a = newImage<T, 1>(size), d = newImage<T, 1>(size);
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
#define PVX_PEER2(expr) [](cv::Mat & a, cv::Mat & b, cv::Mat & d) { expr; }
#define PVX_PEER1(expr) [](cv::Mat & a, cv::Mat & d) { expr; }
#else
#define PVX_PEER2(expr) 0
#define PVX_PEER1(expr) 0
#endif

}  // namespace

PVX_BENCH_FAMILY(arith)
{
    using U = Pvx8u;
    using F = Pvx32f;
    for (PvxiSize size : kSizes) {
        addImages<U>(
            "Add_8u_C1RSfs",
            [](const U* a, int as, const U* b, int bs, U* d, int ds, PvxiSize s) { return pvxiAdd_8u_C1RSfs(a, as, b, bs, d, ds, s, 0); },
            PVX_PEER2(cv::add(a, b, d)), size);
        addImages<F>("Add_32f_C1R", pvxiAdd_32f_C1R, PVX_PEER2(cv::add(a, b, d)), size);
        addConstant<U>(
            "AddC_8u_C1RSfs", [](const U* a, int as, U* d, int ds, PvxiSize s) { return pvxiAddC_8u_C1RSfs(a, as, 37, d, ds, s, 0); },
            PVX_PEER1(cv::add(a, cv::Scalar(37), d)), size);
        addConstant<F>(
            "AddC_32f_C1R", [](const F* a, int as, F* d, int ds, PvxiSize s) { return pvxiAddC_32f_C1R(a, as, 0.375f, d, ds, s); },
            PVX_PEER1(cv::add(a, cv::Scalar(0.375), d)), size);
        // pvx subtracts source 1 from source 2.
        addImages<U>(
            "Sub_8u_C1RSfs",
            [](const U* a, int as, const U* b, int bs, U* d, int ds, PvxiSize s) { return pvxiSub_8u_C1RSfs(a, as, b, bs, d, ds, s, 0); },
            PVX_PEER2(cv::subtract(b, a, d)), size);
        addImages<F>("Sub_32f_C1R", pvxiSub_32f_C1R, PVX_PEER2(cv::subtract(b, a, d)), size);
        addImages<U>(
            "Mul_8u_C1RSfs",
            [](const U* a, int as, const U* b, int bs, U* d, int ds, PvxiSize s) { return pvxiMul_8u_C1RSfs(a, as, b, bs, d, ds, s, 0); },
            PVX_PEER2(cv::multiply(a, b, d)), size);
        addImages<F>("Mul_32f_C1R", pvxiMul_32f_C1R, PVX_PEER2(cv::multiply(a, b, d)), size);
        addConstant<U>(
            "MulC_8u_C1RSfs", [](const U* a, int as, U* d, int ds, PvxiSize s) { return pvxiMulC_8u_C1RSfs(a, as, 3, d, ds, s, 0); },
            PVX_PEER1(cv::multiply(a, cv::Scalar(3), d)), size);
        addConstant<F>(
            "MulC_32f_C1R", [](const F* a, int as, F* d, int ds, PvxiSize s) { return pvxiMulC_32f_C1R(a, as, 1.625f, d, ds, s); },
            PVX_PEER1(cv::multiply(a, cv::Scalar(1.625), d)), size);
        addConstant<F>(
            "DivC_32f_C1R", [](const F* a, int as, F* d, int ds, PvxiSize s) { return pvxiDivC_32f_C1R(a, as, 3.0f, d, ds, s); },
            PVX_PEER1(cv::divide(a, cv::Scalar(3.0), d)), size);
    }
}
