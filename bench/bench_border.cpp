// Rows of border construction: CopyReplicateBorder with a 16-pixel frame on
// every side, beside OpenCV's copyMakeBorder(BORDER_REPLICATE). A row's size
// is the source's.
#include "harness.h"

namespace {

using namespace pvxbench;

constexpr int kBorder = 16;

PvxiSize framed(PvxiSize size)
{
    return {size.width + 2 * kBorder, size.height + 2 * kBorder};
}

// The pvx call in the argument order of addImageRows.
template <typename T, PvxStatus(PVX_CALL* Replicate)(const T*, int, PvxiSize, T*, int, PvxiSize, int, int)>
PvxStatus replicate(const T* src, int srcStep, T* dst, int dstStep, PvxiSize size)
{
    return Replicate(src, srcStep, size, dst, dstStep, framed(size), kBorder, kBorder);
}

}  // namespace

PVX_BENCH_FAMILY(border)
{
    const auto peer = PVX_BENCH_PEER(
        (auto& s, auto& d), cv::copyMakeBorder(s, d, kBorder, kBorder, kBorder, kBorder, cv::BORDER_REPLICATE));
    addImageRows<Pvx8u, 1>("CopyReplicateBorder_8u_C1R", "b16", replicate<Pvx8u, pvxiCopyReplicateBorder_8u_C1R>,
                           peer, framed);
    addImageRows<Pvx8u, 4>("CopyReplicateBorder_8u_C4R", "b16", replicate<Pvx8u, pvxiCopyReplicateBorder_8u_C4R>,
                           peer, framed);
}
