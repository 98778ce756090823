#include "core/cpuid.h"

#include <cpuid.h>

#include "pvxcore.h"

namespace pvx {
namespace {

struct Regs {
    unsigned a = 0, b = 0, c = 0, d = 0;
};

Regs cpuid(unsigned leaf, unsigned sub = 0)
{
    Regs r;
    __cpuid_count(leaf, sub, r.a, r.b, r.c, r.d);
    return r;
}

unsigned maxLeaf(unsigned base)
{
    return __get_cpuid_max(base, nullptr);
}

// XCR0: which register states the operating system saves.
std::uint64_t enabledXState()
{
    unsigned lo, hi;
    __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
    return (static_cast<std::uint64_t>(hi) << 32) | lo;
}

// Largest cache among the subleaves of a deterministic-cache-parameters leaf.
std::int64_t largestFromDescriptors(unsigned leaf)
{
    std::int64_t largest = 0;
    for (unsigned sub = 0; sub < 64; ++sub) {
        const Regs r = cpuid(leaf, sub);
        if ((r.a & 0x1f) == 0)  // no more caches
            break;
        const std::int64_t ways = ((r.b >> 22) & 0x3ff) + 1;
        const std::int64_t partitions = ((r.b >> 12) & 0x3ff) + 1;
        const std::int64_t line = (r.b & 0xfff) + 1;
        const std::int64_t sets = static_cast<std::int64_t>(r.c) + 1;
        const std::int64_t size = ways * partitions * line * sets;
        if (size > largest)
            largest = size;
    }
    return largest;
}

}  // namespace

std::uint64_t detectCpuFeatures()
{
    if (maxLeaf(0) < 1)
        return 0;
    const Regs l1 = cpuid(1);
    std::uint64_t m = 0;
    auto set = [&m](bool present, std::uint64_t bit) {
        if (present)
            m |= bit;
    };
    set(l1.d & (1u << 23), PVX_CPU_MMX);
    set(l1.d & (1u << 25), PVX_CPU_SSE);
    set(l1.d & (1u << 26), PVX_CPU_SSE2);
    set(l1.c & (1u << 0), PVX_CPU_SSE3);
    set(l1.c & (1u << 9), PVX_CPU_SSSE3);
    set(l1.c & (1u << 22), PVX_CPU_MOVBE);
    set(l1.c & (1u << 19), PVX_CPU_SSE41);
    set(l1.c & (1u << 20), PVX_CPU_SSE42);
    set(l1.c & (1u << 25), PVX_CPU_AES);
    set(l1.c & (1u << 1), PVX_CPU_CLMUL);
    set(l1.c & (1u << 30), PVX_CPU_RDRAND);
    set(l1.c & (1u << 29), PVX_CPU_F16C);

    // AVX-class features count only when the OS saves the wide registers.
    const bool osxsave = l1.c & (1u << 27);
    const std::uint64_t xcr0 = osxsave ? enabledXState() : 0;
    const bool ymmSaved = (xcr0 & 0x6) == 0x6;
    const bool zmmSaved = ymmSaved && (xcr0 & 0xe0) == 0xe0;
    set(ymmSaved && (l1.c & (1u << 28)), PVX_CPU_AVX);

    if (maxLeaf(0) >= 7) {
        const Regs l7 = cpuid(7, 0);
        set(ymmSaved && (l7.b & (1u << 5)), PVX_CPU_AVX2);
        set(l7.b & (1u << 19), PVX_CPU_ADCX);
        set(l7.b & (1u << 19), PVX_CPU_ADOX);  // ADX covers both instructions
        set(l7.b & (1u << 18), PVX_CPU_RDSEED);
        set(l7.b & (1u << 29), PVX_CPU_SHA);
        set(zmmSaved && (l7.b & (1u << 16)), PVX_CPU_AVX512F);
    }
    if (maxLeaf(0x80000000) >= 0x80000001) {
        const Regs e1 = cpuid(0x80000001);
        set(e1.c & (1u << 8), PVX_CPU_PREFETCHW);
    }
    return m;
}

namespace {

std::int64_t detectLargestCacheBytes()
{
    const Regs vendor = cpuid(0);
    const bool amd = vendor.b == 0x68747541;  // "Auth"enticAMD
    if (!amd && maxLeaf(0) >= 4)
        return largestFromDescriptors(4);
    if (amd && maxLeaf(0x80000000) >= 0x8000001d && (cpuid(0x80000001).c & (1u << 22)))
        return largestFromDescriptors(0x8000001d);
    if (amd && maxLeaf(0x80000000) >= 0x80000006) {
        const Regs r = cpuid(0x80000006);
        const std::int64_t l2 = static_cast<std::int64_t>(r.c >> 16) * 1024;
        const std::int64_t l3 = static_cast<std::int64_t>(r.d >> 18) * 512 * 1024;
        return l3 > l2 ? l3 : l2;
    }
    return 0;
}

}  // namespace

std::int64_t largestCacheBytes()
{
    static const std::int64_t bytes = detectLargestCacheBytes();
    return bytes;
}

}  // namespace pvx
