// Rows of the data-movement family: Copy and Set of whole images.
#include "harness.h"

namespace {

using namespace pvxbench;

// Set values: different per channel, so that the multi-channel rows cannot
// become a byte fill.
constexpr Pvx8u kValue8u[4] = {17, 117, 217, 255};
constexpr Pvx32f kValue32f = 0.625f;

}  // namespace

PVX_BENCH_FAMILY(move)
{
    const auto copyPeer = PVX_BENCH_PEER((auto& s, auto& d), s.copyTo(d));
    addImageRows<Pvx8u, 1>("Copy_8u_C1R", "", pvxiCopy_8u_C1R, copyPeer);
    addImageRows<Pvx8u, 3>("Copy_8u_C3R", "", pvxiCopy_8u_C3R, copyPeer);
    addImageRows<Pvx8u, 4>("Copy_8u_C4R", "", pvxiCopy_8u_C4R, copyPeer);
    addImageRows<Pvx32f, 1>("Copy_32f_C1R", "", pvxiCopy_32f_C1R, copyPeer);

    // Set writes only (no sources); the peer sets the same value per channel.
    const auto set8uPeer =
        PVX_BENCH_PEER((auto& d), d.setTo(cv::Scalar(kValue8u[0], kValue8u[1], kValue8u[2], kValue8u[3])));
    addImageRows<Pvx8u, 1, Pvx8u, 0>(
        "Set_8u_C1R", "", [](Pvx8u* d, int step, PvxiSize s) { return pvxiSet_8u_C1R(kValue8u[0], d, step, s); },
        set8uPeer);
    addImageRows<Pvx8u, 3, Pvx8u, 0>(
        "Set_8u_C3R", "", [](Pvx8u* d, int step, PvxiSize s) { return pvxiSet_8u_C3R(kValue8u, d, step, s); },
        set8uPeer);
    addImageRows<Pvx8u, 4, Pvx8u, 0>(
        "Set_8u_C4R", "", [](Pvx8u* d, int step, PvxiSize s) { return pvxiSet_8u_C4R(kValue8u, d, step, s); },
        set8uPeer);
    addImageRows<Pvx32f, 1, Pvx32f, 0>(
        "Set_32f_C1R", "", [](Pvx32f* d, int step, PvxiSize s) { return pvxiSet_32f_C1R(kValue32f, d, step, s); },
        PVX_BENCH_PEER((auto& d), d.setTo(cv::Scalar(kValue32f))));
}
