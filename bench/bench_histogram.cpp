// Rows of the histogram family: HistogramEven of 8-bit images into 256 and
// 16 bins. The operation only reads the image (the bins are negligible), so
// the limit is a memcpy of half the image.
#include "harness.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#ifdef PVX_BENCH_HAVE_OPENCV
#include <dlfcn.h>
#include <link.h>

#include <cstring>
#endif

namespace {

using namespace pvxbench;

constexpr PvxiSize kSizes[] = {{1920, 1080}, {3840, 2160}};

#ifdef PVX_BENCH_HAVE_OPENCV
// cv::calcHist belongs to OpenCV's imgproc module, which pvx_bench does not
// link: it is loaded from beside the core module that is linked.
using CalcHist = void (*)(const cv::Mat*, int, const int*, cv::InputArray, cv::OutputArray, int, const int*,
                          const float**, bool, bool);

CalcHist calcHist()
{
    static const CalcHist fn = [] {
        std::string path;
        dl_iterate_phdr(
            [](dl_phdr_info* info, std::size_t, void* out) {
                if (std::strstr(info->dlpi_name, "libopencv_core.so") == nullptr)
                    return 0;
                *static_cast<std::string*>(out) = info->dlpi_name;
                return 1;
            },
            &path);
        const std::size_t at = path.rfind("opencv_core");
        if (at == std::string::npos)
            return CalcHist(nullptr);
        path.replace(at, 11, "opencv_imgproc");
        void* lib = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        // cv::calcHist(const Mat*, int, const int*, InputArray, OutputArray, int, const int*, const float**, bool, bool)
        return lib ? reinterpret_cast<CalcHist>(
                         dlsym(lib, "_ZN2cv8calcHistEPKNS_3MatEiPKiRKNS_11_InputArrayERKNS_12_OutputArrayEiS4_PPKfbb"))
                   : CalcHist(nullptr);
    }();
    return fn;
}
#endif

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
#ifdef PVX_BENCH_HAVE_OPENCV
    row.peer = calcHist() != nullptr;
#endif
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
        if (calcHist() != nullptr)
            calls.peer = [src, bins, s = asMat(*src), h = cv::Mat()]() mutable {
                const int channel = 0;
                const float range[2] = {0, 256};
                const float* ranges[1] = {range};
                calcHist()(&s, 1, &channel, cv::noArray(), h, 1, &bins, ranges, true, false);
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
