// Rows of the extrema families: Min, Max, MinMax and MinIndx over whole
// images. They only read, so the limit is a memcpy of half the image.
//
// The data keeps away from the type's bounds (8u values 2..254, 32f values in
// [0, 1)), so no early exit cuts a scan short, and the minimum is planted in
// the last row, so MinIndx records a new row at the very end.
#include "harness.h"

#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>

namespace {

using namespace pvxbench;

constexpr PvxiSize kSizes[] = {{1920, 1080}, {3840, 2160}};

enum class Op { Min, Max, MinMax, MinIndx };

template <typename T>
void prepare(Image& img)
{
    for (int y = 0; y < img.size.height; ++y) {
        T* row = img.row<T>(y);
        if constexpr (std::is_same_v<T, Pvx8u>)
            for (int x = 0; x < img.size.width; ++x)
                row[x] = static_cast<Pvx8u>(2 + (row[x] % 253));
    }
    img.row<T>(img.size.height - 1)[img.size.width / 2] = static_cast<T>(std::is_same_v<T, Pvx8u> ? 1 : -1);
}

template <typename T>
struct Functions {
    PvxStatus(PVX_CALL* min)(const T*, int, PvxiSize, T*);
    PvxStatus(PVX_CALL* max)(const T*, int, PvxiSize, T*);
    PvxStatus(PVX_CALL* minMax)(const T*, int, PvxiSize, T*, T*);
    PvxStatus(PVX_CALL* minIndx)(const T*, int, PvxiSize, T*, int*, int*);
};

template <typename T>
void addExtrema(const std::string& op, Op kind, const Functions<T>& f, PvxiSize size)
{
    Row row;
    row.op = op;
    row.size = size;
    row.bytesRead = std::int64_t(size.width) * size.height * std::int64_t(sizeof(T));
    row.limit = Limit::Copy;
    row.setup = [kind, f, size] {
        const ImagePtr src = newImage<T, 1>(size);
        prepare<T>(*src);
        Calls calls;
        calls.pvx = [kind, f, src, size] {
            T a, b;
            int x, y;
            const T* s = src->ptr<T>();
            switch (kind) {
            case Op::Min: return f.min(s, src->step, size, &a);
            case Op::Max: return f.max(s, src->step, size, &a);
            case Op::MinMax: return f.minMax(s, src->step, size, &a, &b);
            default: return f.minIndx(s, src->step, size, &a, &x, &y);
            }
        };
#ifdef PVX_BENCH_HAVE_OPENCV
        // OpenCV finds both extremes in every call; minMaxLoc also returns
        // their positions.
        calls.peer = [kind, src, m = asMat(*src)] {
            double lo, hi;
            cv::Point at;
            if (kind == Op::MinIndx)
                cv::minMaxLoc(m, &lo, nullptr, &at, nullptr);
            else
                cv::minMaxIdx(m, &lo, &hi);
        };
#else
        (void)kind;
#endif
        return calls;
    };
    addRow(std::move(row));
}

}  // namespace

PVX_BENCH_FAMILY(extrema)
{
    const Functions<Pvx8u> f8u{pvxiMin_8u_C1R, pvxiMax_8u_C1R, pvxiMinMax_8u_C1R, pvxiMinIndx_8u_C1R};
    const Functions<Pvx32f> f32f{pvxiMin_32f_C1R, pvxiMax_32f_C1R, pvxiMinMax_32f_C1R, pvxiMinIndx_32f_C1R};
    const std::pair<const char*, Op> ops[] = {
        {"Min", Op::Min}, {"Max", Op::Max}, {"MinMax", Op::MinMax}, {"MinIndx", Op::MinIndx}};
    for (const auto& [name, kind] : ops)
        for (PvxiSize size : kSizes)
            addExtrema<Pvx8u>(std::string(name) + "_8u_C1R", kind, f8u, size);
    for (const auto& [name, kind] : ops)
        for (PvxiSize size : kSizes)
            addExtrema<Pvx32f>(std::string(name) + "_32f_C1R", kind, f32f, size);
}
