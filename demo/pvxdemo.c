/* pvxdemo: shows which code path pvx selected on this machine, runs a small
 * pipeline on a synthetic full-HD picture (what each step computed), and
 * times each step beside memcpy moving the same bytes. */
#define _POSIX_C_SOURCE 199309L
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "pvxcore.h"
#include "pvxi.h"

enum { kWidth = 1920, kHeight = 1080, kReps = 20 };

static double nowSeconds(void)
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (double)ts.tv_sec + 1e-9 * (double)ts.tv_nsec;
}

/* Fastest of kReps runs of stmt, in seconds, into `best`. */
#define FASTEST(best, stmt)                               \
    do {                                                  \
        best = 1e30;                                      \
        for (int r_ = 0; r_ < kReps; ++r_) {              \
            double t0_ = nowSeconds();                    \
            stmt;                                         \
            double dt_ = nowSeconds() - t0_;              \
            if (dt_ < best) best = dt_;                   \
        }                                                 \
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

/* memcpy of `bytes` between two scratch buffers: the limit a step that moves
 * that much traffic is measured against. */
static char* scratchA;
static char* scratchB;

static void report(const char* step, double seconds, size_t traffic, PvxStatus status)
{
    double limit;
    FASTEST(limit, memcpy(scratchB, scratchA, traffic));
    printf("%-34s %8.3f ms %8.2f GB/s %6.2f   %s\n", step, 1e3 * seconds, (double)traffic / seconds / 1e9,
           seconds / limit, pvxGetStatusString(status));
}

int main(void)
{
    const PvxLibraryVersion* v = pvxiGetLibVersion();
    printf("pvx %s, built %s\n", v->versionText, v->buildDate);
    printf("selected code path: %s — %s\n", v->targetCode, v->name);
    printFeatures(pvxGetEnabledCpuFeatures());
    int cache = 0;
    if (pvxGetMaxCacheSizeB(&cache) == pvxStsOk)
        printf("largest cache: %d KiB\n", cache / 1024);

    const PvxiSize roi = {kWidth, kHeight};
    int grayStep = 0, workStep = 0, floatStep = 0, rgbaStep = 0, rgbaOutStep = 0;
    Pvx8u* gray = pvxiMalloc_8u_C1(kWidth, kHeight, &grayStep);
    Pvx8u* work = pvxiMalloc_8u_C1(kWidth, kHeight, &workStep);
    Pvx32f* floats = pvxiMalloc_32f_C1(kWidth, kHeight, &floatStep);
    Pvx8u* rgba = pvxiMalloc_8u_C4(kWidth, kHeight, &rgbaStep);
    Pvx8u* rgbaOut = pvxiMalloc_8u_C4(kWidth, kHeight, &rgbaOutStep);
    const size_t largest = (size_t)floatStep * kHeight;
    scratchA = malloc(largest);
    scratchB = malloc(largest);
    if (!gray || !work || !floats || !rgba || !rgbaOut || !scratchA || !scratchB) {
        fprintf(stderr, "out of memory\n");
        return 1;
    }
    memset(scratchA, 1, largest);
    memset(scratchB, 2, largest);

    /* A synthetic picture: a diagonal ramp with a bright disc. */
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const int dx = x - kWidth / 2, dy = y - kHeight / 2;
            const int ramp = (x + y) * 200 / (kWidth + kHeight);
            gray[(size_t)y * grayStep + x] = (Pvx8u)(dx * dx + dy * dy < 300 * 300 ? 240 : ramp);
        }
    const Pvx8u colour[4] = {10, 20, 30, 255};
    pvxiSet_8u_C4R(colour, rgba, rgbaStep, roi);

    const size_t grayBytes = (size_t)kWidth * kHeight, floatBytes = 4 * grayBytes, rgbaBytes = 4 * grayBytes;
    PvxStatus st;
    double t;

    printf("\nsteps on a %dx%d picture; ratio = time / memcpy of the same traffic "
           "((read + written) / 2)\n",
           kWidth, kHeight);
    printf("%-34s %11s %13s %6s   %s\n", "step", "time", "throughput", "ratio", "status");

    FASTEST(t, st = pvxiCopy_8u_C4R(rgba, rgbaStep, rgbaOut, rgbaOutStep, roi));
    report("pvxiCopy_8u_C4R", t, rgbaBytes, st);
    FASTEST(t, st = pvxiSet_8u_C4R(colour, rgbaOut, rgbaOutStep, roi));
    report("pvxiSet_8u_C4R", t, rgbaBytes / 2, st);
    FASTEST(t, st = pvxiMirror_8u_C4R(rgba, rgbaStep, rgbaOut, rgbaOutStep, roi, 1));
    report("pvxiMirror_8u_C4R (left-right)", t, rgbaBytes, st);
    FASTEST(t, st = pvxiConvert_8u32f_C1R(gray, grayStep, floats, floatStep, roi));
    report("pvxiConvert_8u32f_C1R", t, (grayBytes + floatBytes) / 2, st);
    FASTEST(t, st = pvxiAddC_8u_C1RSfs(gray, grayStep, 20, work, workStep, roi, 1));
    report("pvxiAddC_8u_C1RSfs (+20, /2)", t, grayBytes, st);

    Pvx64f mean = 0.0, norm = 0.0;
    FASTEST(t, st = pvxiMean_8u_C1R(gray, grayStep, roi, &mean));
    report("pvxiMean_8u_C1R", t, grayBytes / 2, st);
    FASTEST(t, st = pvxiNorm_L2_8u_C1R(gray, grayStep, roi, &norm));
    report("pvxiNorm_L2_8u_C1R", t, grayBytes / 2, st);
    Pvx8u lo = 0, hi = 0;
    FASTEST(t, st = pvxiMinMax_8u_C1R(gray, grayStep, roi, &lo, &hi));
    report("pvxiMinMax_8u_C1R", t, grayBytes / 2, st);
    Pvx32s hist[4], levels[5];
    FASTEST(t, st = pvxiHistogramEven_8u_C1R(gray, grayStep, roi, hist, levels, 5, 0, 256));
    report("pvxiHistogramEven_8u_C1R (4 bins)", t, grayBytes / 2, st);

    printf("\nmean %.3f, L2 norm %.1f, min %d, max %d\n", mean, norm, lo, hi);
    printf("histogram:");
    for (int k = 0; k < 4; ++k)
        printf(" [%d, %d): %d", levels[k], levels[k + 1], hist[k]);
    printf("\n");

    printf("\nan empty ROI: %s\n",
           pvxGetStatusString(pvxiCopy_8u_C4R(rgba, rgbaStep, rgbaOut, rgbaOutStep, (PvxiSize){0, 1})));
    free(scratchA);
    free(scratchB);
    pvxiFree(gray);
    pvxiFree(work);
    pvxiFree(floats);
    pvxiFree(rgba);
    pvxiFree(rgbaOut);
    return 0;
}
