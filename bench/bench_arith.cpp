// Rows of the arithmetic families: Add, AddC, Sub, Mul, MulC (8u at scale
// factor 0, and 32f) and DivC 32f on one-channel images.
#include "harness.h"

namespace {

using namespace pvxbench;

using U = Pvx8u;
using F = Pvx32f;

// A two-image Sfs form at scale factor 0, in the argument order of
// addImageRows.
template <PvxStatus(PVX_CALL* Sfs)(const U*, int, const U*, int, U*, int, PvxiSize, int)>
PvxStatus atScale0(const U* a, int aStep, const U* b, int bStep, U* d, int dStep, PvxiSize size)
{
    return Sfs(a, aStep, b, bStep, d, dStep, size, 0);
}

}  // namespace

PVX_BENCH_FAMILY(arith)
{
    // Add, Sub and Mul read two sources (a, b) and write d; pvx subtracts
    // source 1 from source 2. AddC, MulC and DivC read one source and a
    // constant.
    const auto add = PVX_BENCH_PEER((auto& a, auto& b, auto& d), cv::add(a, b, d));
    const auto subtract = PVX_BENCH_PEER((auto& a, auto& b, auto& d), cv::subtract(b, a, d));
    const auto multiply = PVX_BENCH_PEER((auto& a, auto& b, auto& d), cv::multiply(a, b, d));
    addImageRows<U, 1, U, 2>("Add_8u_C1RSfs", "", atScale0<pvxiAdd_8u_C1RSfs>, add);
    addImageRows<F, 1, F, 2>("Add_32f_C1R", "", pvxiAdd_32f_C1R, add);
    addImageRows<U, 1>(
        "AddC_8u_C1RSfs", "",
        [](const U* a, int as, U* d, int ds, PvxiSize s) { return pvxiAddC_8u_C1RSfs(a, as, 37, d, ds, s, 0); },
        PVX_BENCH_PEER((auto& a, auto& d), cv::add(a, cv::Scalar(37), d)));
    addImageRows<F, 1>(
        "AddC_32f_C1R", "",
        [](const F* a, int as, F* d, int ds, PvxiSize s) { return pvxiAddC_32f_C1R(a, as, 0.375f, d, ds, s); },
        PVX_BENCH_PEER((auto& a, auto& d), cv::add(a, cv::Scalar(0.375), d)));
    addImageRows<U, 1, U, 2>("Sub_8u_C1RSfs", "", atScale0<pvxiSub_8u_C1RSfs>, subtract);
    addImageRows<F, 1, F, 2>("Sub_32f_C1R", "", pvxiSub_32f_C1R, subtract);
    addImageRows<U, 1, U, 2>("Mul_8u_C1RSfs", "", atScale0<pvxiMul_8u_C1RSfs>, multiply);
    addImageRows<F, 1, F, 2>("Mul_32f_C1R", "", pvxiMul_32f_C1R, multiply);
    addImageRows<U, 1>(
        "MulC_8u_C1RSfs", "",
        [](const U* a, int as, U* d, int ds, PvxiSize s) { return pvxiMulC_8u_C1RSfs(a, as, 3, d, ds, s, 0); },
        PVX_BENCH_PEER((auto& a, auto& d), cv::multiply(a, cv::Scalar(3), d)));
    addImageRows<F, 1>(
        "MulC_32f_C1R", "",
        [](const F* a, int as, F* d, int ds, PvxiSize s) { return pvxiMulC_32f_C1R(a, as, 1.625f, d, ds, s); },
        PVX_BENCH_PEER((auto& a, auto& d), cv::multiply(a, cv::Scalar(1.625), d)));
    addImageRows<F, 1>(
        "DivC_32f_C1R", "",
        [](const F* a, int as, F* d, int ds, PvxiSize s) { return pvxiDivC_32f_C1R(a, as, 3.0f, d, ds, s); },
        PVX_BENCH_PEER((auto& a, auto& d), cv::divide(a, cv::Scalar(3.0), d)));
}
