// Rows of the lookup-table families: LUT 8u (C1, C4) and 16u (C1), and
// LUTPalette 8u C1, beside memcpy of the same traffic and cv::LUT.
#include "harness.h"

#include <cstdint>
#include <utility>

#ifdef PVX_BENCH_HAVE_OPENCV
#include <opencv2/core.hpp>
#endif

namespace {

using namespace pvxbench;

constexpr PvxiSize kSizes[] = {{1920, 1080}, {3840, 2160}};

// A five-level staircase over the 8u range, and its 16u counterpart.
const Pvx32s kLevels8u[5] = {16, 64, 128, 192, 256};
const Pvx32s kValues8u[5] = {200, 150, 100, 50, 0};
const Pvx32s kLevels16u[5] = {4096, 16384, 32768, 49152, 65536};
const Pvx32s kValues16u[5] = {51200, 38400, 25600, 12800, 0};

template <typename T, int C>
std::int64_t imageBytes(PvxiSize size)
{
    return std::int64_t(size.width) * size.height * C * std::int64_t(sizeof(T));
}

#ifdef PVX_BENCH_HAVE_OPENCV
// The 256-entry table pvxiLUT_8u builds for the staircase, for cv::LUT.
cv::Mat staircase8u(int channels)
{
    cv::Mat t(1, 256, CV_8UC(channels));
    for (int x = 0; x < 256; ++x) {
        int v = x;
        for (int k = 0; k < 4; ++k)
            if (x >= kLevels8u[k] && x < kLevels8u[k + 1])
                v = kValues8u[k];
        for (int c = 0; c < channels; ++c)
            t.ptr<Pvx8u>()[x * channels + c] = Pvx8u(v);
    }
    return t;
}
#endif

template <typename T, int C, typename Call>
void addLut(const char* op, Call call, PvxiSize size, bool peer)
{
    Row row;
    row.op = op;
    row.size = size;
    row.bytesRead = row.bytesWritten = imageBytes<T, C>(size);
    row.limit = Limit::Copy;
    row.peer = peer;
    row.setup = [call, size] {
        const ImagePtr src = newImage<T, C>(size);
        const ImagePtr dst = newImage<T, C>(size);
        Calls calls;
        calls.pvx = [call, src, dst, size] { return call(src->ptr<T>(), src->step, dst->ptr<T>(), dst->step, size); };
#ifdef PVX_BENCH_HAVE_OPENCV
        if constexpr (sizeof(T) == 1)
            calls.peer = [src, dst, s = asMat(*src), d = asMat(*dst), t = staircase8u(C)]() mutable { cv::LUT(s, t, d); };
#endif
        return calls;
    };
    addRow(std::move(row));
}

}  // namespace

PVX_BENCH_FAMILY(lut)
{
    for (PvxiSize size : kSizes)
        addLut<Pvx8u, 1>(
            "LUT_8u_C1R",
            [](const Pvx8u* s, int ss, Pvx8u* d, int ds, PvxiSize r) {
                return pvxiLUT_8u_C1R(s, ss, d, ds, r, kValues8u, kLevels8u, 5);
            },
            size, true);
    for (PvxiSize size : kSizes)
        addLut<Pvx8u, 4>(
            "LUT_8u_C4R",
            [](const Pvx8u* s, int ss, Pvx8u* d, int ds, PvxiSize r) {
                const Pvx32s* v[4] = {kValues8u, kValues8u, kValues8u, kValues8u};
                const Pvx32s* l[4] = {kLevels8u, kLevels8u, kLevels8u, kLevels8u};
                const int n[4] = {5, 5, 5, 5};
                return pvxiLUT_8u_C4R(s, ss, d, ds, r, v, l, n);
            },
            size, true);
    for (PvxiSize size : kSizes)
        addLut<Pvx16u, 1>(
            "LUT_16u_C1R",
            [](const Pvx16u* s, int ss, Pvx16u* d, int ds, PvxiSize r) {
                return pvxiLUT_16u_C1R(s, ss, d, ds, r, kValues16u, kLevels16u, 5);
            },
            size, false);  // cv::LUT maps 8-bit sources only
    for (PvxiSize size : kSizes)
        addLut<Pvx8u, 1>(
            "LUTPalette_8u_C1R",
            [](const Pvx8u* s, int ss, Pvx8u* d, int ds, PvxiSize r) {
                static const struct Palette {
                    Pvx8u e[256];
                    Palette()
                    {
                        for (int x = 0; x < 256; ++x) {
                            int v = x;
                            for (int k = 0; k < 4; ++k)
                                if (x >= kLevels8u[k] && x < kLevels8u[k + 1])
                                    v = kValues8u[k];
                            e[x] = Pvx8u(v);
                        }
                    }
                } palette;
                return pvxiLUTPalette_8u_C1R(s, ss, d, ds, r, palette.e, 8);
            },
            size, true);
}
