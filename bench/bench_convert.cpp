// Rows of Convert: 8u to 32f, 32f to 8u rounding to nearest, and 16s to 8u
// with saturation, whole images; the peer is cv::Mat::convertTo.
#include "harness.h"

#include <cstdint>
#include <functional>
#include <utility>

namespace {

using namespace pvxbench;

constexpr PvxiSize kSizes[] = {{1920, 1080}, {3840, 2160}};

// Reads the source and writes the destination once. `convert` calls the pvx
// function; the peer converts to the destination's OpenCV type.
template <typename S, typename D>
void addConvert(const char* op, const char* detail, PvxiSize size,
                std::function<PvxStatus(const S*, int, D*, int, PvxiSize)> convert)
{
    Row row;
    row.op = op;
    row.detail = detail;
    row.size = size;
    row.bytesRead = std::int64_t(size.width) * size.height * std::int64_t(sizeof(S));
    row.bytesWritten = std::int64_t(size.width) * size.height * std::int64_t(sizeof(D));
    row.limit = Limit::Copy;
    row.setup = [convert, size] {
        const ImagePtr src = newImage<S, 1>(size);
        const ImagePtr dst = newImage<D, 1>(size);
        if constexpr (std::is_same_v<S, Pvx32f>)  // [0, 1) from the harness; spread over the 8u range and beyond
            for (int y = 0; y < size.height; ++y)
                for (int x = 0; x < size.width; ++x)
                    src->row<Pvx32f>(y)[x] = src->row<Pvx32f>(y)[x] * 300.0f - 20.0f;
        Calls calls;
        calls.pvx = [convert, src, dst, size] {
            return convert(src->ptr<S>(), src->step, dst->ptr<D>(), dst->step, size);
        };
#ifdef PVX_BENCH_HAVE_OPENCV
        calls.peer = [src, dst, s = asMat(*src), d = asMat(*dst)]() mutable { s.convertTo(d, d.type()); };
#endif
        return calls;
    };
    addRow(std::move(row));
}

}  // namespace

PVX_BENCH_FAMILY(convert)
{
    for (PvxiSize size : kSizes)
        addConvert<Pvx8u, Pvx32f>("Convert_8u32f_C1R", "", size, pvxiConvert_8u32f_C1R);
    for (PvxiSize size : kSizes)
        addConvert<Pvx32f, Pvx8u>("Convert_32f8u_C1R", "rndNear", size,
                                  [](const Pvx32f* s, int ss, Pvx8u* d, int ds, PvxiSize r) {
                                      return pvxiConvert_32f8u_C1R(s, ss, d, ds, r, pvxRndNear);
                                  });
    for (PvxiSize size : kSizes)
        addConvert<Pvx16s, Pvx8u>("Convert_16s8u_C1R", "", size, pvxiConvert_16s8u_C1R);
}
