// Rows of Convert: 8u to 32f, 32f to 8u rounding to nearest, and 16s to 8u
// with saturation, whole images; the peer is cv::Mat::convertTo.
#include "harness.h"

namespace {

using namespace pvxbench;

// The harness's floats lie in [0, 1); spread them over the 8u range and
// beyond, so that rounding and saturation both occur.
void spreadFloats(Image& img)
{
    for (int y = 0; y < img.size.height; ++y)
        for (int x = 0; x < img.size.width * img.channels; ++x)
            img.row<Pvx32f>(y)[x] = img.row<Pvx32f>(y)[x] * 300.0f - 20.0f;
}

}  // namespace

PVX_BENCH_FAMILY(convert)
{
    const auto peer = PVX_BENCH_PEER((auto& s, auto& d), s.convertTo(d, d.type()));
    addImageRows<Pvx8u, 1, Pvx32f>("Convert_8u32f_C1R", "", pvxiConvert_8u32f_C1R, peer);
    addImageRows<Pvx32f, 1, Pvx8u>(
        "Convert_32f8u_C1R", "rndNear",
        [](const Pvx32f* s, int ss, Pvx8u* d, int ds, PvxiSize r) {
            return pvxiConvert_32f8u_C1R(s, ss, d, ds, r, pvxRndNear);
        },
        peer, nullptr, spreadFloats);
    addImageRows<Pvx16s, 1, Pvx8u>("Convert_16s8u_C1R", "", pvxiConvert_16s8u_C1R, peer);
}
