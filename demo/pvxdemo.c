/* pvxdemo: shows which code path pvx selected on this machine and how Copy and
 * Set compare with memcpy and memset on a full-HD four-channel image. */
#define _POSIX_C_SOURCE 199309L
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "pvxcore.h"
#include "pvxi.h"

static double nowSeconds(void)
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (double)ts.tv_sec + 1e-9 * (double)ts.tv_nsec;
}

/* Best of `reps` runs, in GB/s of bytes written. */
#define BEST_RATE(bytes, reps, stmt)                      \
    do {                                                  \
        double best_ = 1e30;                              \
        for (int r_ = 0; r_ < (reps); ++r_) {             \
            double t0_ = nowSeconds();                    \
            stmt;                                         \
            double dt_ = nowSeconds() - t0_;              \
            if (dt_ < best_) best_ = dt_;                 \
        }                                                 \
        rate = (double)(bytes) / best_ / 1e9;             \
    } while (0)

static void printFeatures(Pvx64u mask)
{
    static const char* const names[] = {"MMX", "SSE", "SSE2", "SSE3", "SSSE3", "MOVBE", "SSE4.1",
                                        "SSE4.2", "AVX", "AES", "CLMUL", "RDRAND", "F16C", "AVX2",
                                        "ADCX", "ADOX", "RDSEED", "PREFETCHW", "SHA", "AVX512F"};
    printf("enabled CPU features: 0x%llx (", (unsigned long long)mask);
    int first = 1;
    for (unsigned i = 0; i < sizeof names / sizeof names[0]; ++i)
        if (mask & (1ULL << i)) {
            printf("%s%s", first ? "" : " ", names[i]);
            first = 0;
        }
    printf(")\n");
}

int main(void)
{
    const PvxLibraryVersion* v = pvxiGetLibVersion();
    printf("pvx %s, built %s\n", v->versionText, v->buildDate);
    printf("version record: major %d minor %d update %d revision %d\n", v->major, v->minor, v->update,
           v->revision);
    printf("selected code path: %s — %s\n", v->targetCode, v->name);
    printFeatures(pvxGetEnabledCpuFeatures());
    int cache = 0;
    if (pvxGetMaxCacheSizeB(&cache) == pvxStsOk)
        printf("largest cache: %d KiB\n", cache / 1024);

    const PvxiSize roi = {1920, 1080};
    int srcStep = 0, dstStep = 0;
    Pvx8u* src = pvxiMalloc_8u_C4(roi.width, roi.height, &srcStep);
    Pvx8u* dst = pvxiMalloc_8u_C4(roi.width, roi.height, &dstStep);
    if (src == NULL || dst == NULL) {
        fprintf(stderr, "out of memory\n");
        return 1;
    }
    const size_t bytes = (size_t)srcStep * (size_t)roi.height;
    memset(src, 7, bytes);
    memset(dst, 0, bytes);

    const Pvx8u colour[4] = {10, 20, 30, 255};
    double rate, limit;
    printf("\n%-28s %10s %10s %8s\n", "1920x1080 8u C4", "GB/s", "limit", "ratio");
    BEST_RATE(bytes, 30, memcpy(dst, src, bytes));
    limit = rate;
    BEST_RATE(bytes, 30, pvxiCopy_8u_C4R(src, srcStep, dst, dstStep, roi));
    printf("%-28s %10.2f %10.2f %8.2f   (limit: memcpy)\n", "pvxiCopy_8u_C4R", rate, limit, limit / rate);
    BEST_RATE(bytes, 30, memset(dst, 3, bytes));
    limit = rate;
    BEST_RATE(bytes, 30, pvxiSet_8u_C4R(colour, dst, dstStep, roi));
    printf("%-28s %10.2f %10.2f %8.2f   (limit: memset)\n", "pvxiSet_8u_C4R", rate, limit, limit / rate);

    PvxStatus st = pvxiCopy_8u_C4R(src, srcStep, dst, dstStep, roi);
    printf("\npvxiCopy_8u_C4R: %s; with an empty ROI: %s\n", pvxGetStatusString(st),
           pvxGetStatusString(pvxiCopy_8u_C4R(src, srcStep, dst, dstStep, (PvxiSize){0, 1})));
    pvxiFree(src);
    pvxiFree(dst);
    return 0;
}
