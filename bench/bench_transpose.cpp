// Rows of Transpose: whole images out of place; the destination of a W x H
// source is H x W.
#include "harness.h"

namespace {

using namespace pvxbench;

PvxiSize transposed(PvxiSize size)
{
    return {size.height, size.width};
}

}  // namespace

PVX_BENCH_FAMILY(transpose)
{
    const auto peer = PVX_BENCH_PEER((auto& s, auto& d), cv::transpose(s, d));
    addImageRows<Pvx8u, 1>("Transpose_8u_C1R", "", pvxiTranspose_8u_C1R, peer, transposed);
    addImageRows<Pvx8u, 4>("Transpose_8u_C4R", "", pvxiTranspose_8u_C4R, peer, transposed);
    addImageRows<Pvx32f, 1>("Transpose_32f_C1R", "", pvxiTranspose_32f_C1R, peer, transposed);
}
