// Rows of the histogram family: HistogramEven of 8-bit images into 256 and
// 16 bins. The operation only reads the image (the bins are negligible), so
// the limit is a memcpy of half the image.
#include "harness.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#ifdef PVX_BENCH_HAVE_OPENCV
#include <opencv2/imgproc.hpp>
#endif

namespace {

using namespace pvxbench;

constexpr PvxiSize kSizes[] = {{1920, 1080}, {3840, 2160}};

// HistogramEven_8u_C1R over 0..256 in `bins` bins; the peer is calcHist with
// the same uniform range. The harness fills images with hashed, noise-like
// values; `runs` rows hold runs of 64 equal pixels instead, as flat regions
// of photographs do, where counting into one table stalls on every repeat.
void addEven8u(int bins, PvxiSize size, bool runs)
{
    Row row;
    row.op = "HistogramEven_8u_C1R";
    row.detail = std::to_string(bins) + "bins" + (runs ? "_runs" : "");
    row.size = size;
    row.bytesRead = std::int64_t(size.width) * size.height;
    row.limit = Limit::Copy;
    row.setup = [bins, size, runs] {
        const ImagePtr src = newImage<Pvx8u, 1>(size);
        for (int y = 0; runs && y < size.height; ++y)
            for (int x = 0; x < size.width; ++x)
                src->row<Pvx8u>(y)[x] = static_cast<Pvx8u>(x / 64 + y / 64);
        auto hist = std::make_shared<std::vector<Pvx32s>>(bins);
        auto levels = std::make_shared<std::vector<Pvx32s>>(bins + 1);
        Calls calls;
        calls.pvx = [src, hist, levels, bins, size] {
            return pvxiHistogramEven_8u_C1R(src->ptr<Pvx8u>(), src->step, size, hist->data(), levels->data(), bins + 1,
                                            0, 256);
        };
#ifdef PVX_BENCH_HAVE_OPENCV
        calls.peer = [src, bins, s = asMat(*src), h = cv::Mat()]() mutable {
            const int channel = 0;
            const float range[2] = {0, 256};
            const float* ranges[1] = {range};
            cv::calcHist(&s, 1, &channel, cv::noArray(), h, 1, &bins, ranges, true, false);
        };
#endif
        return calls;
    };
    addRow(std::move(row));
}

}  // namespace

PVX_BENCH_FAMILY(histogram)
{
    for (int bins : {256, 16})
        for (PvxiSize size : kSizes)
            addEven8u(bins, size, false);
    for (PvxiSize size : kSizes)
        addEven8u(256, size, true);
}
