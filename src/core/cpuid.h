// Processor facts read through CPUID. Built once with baseline flags and
// linked into both pvxcore and pvxi.
#pragma once

#include <cstdint>

namespace pvx {

// Feature mask in pvxcore's bit layout (PVX_CPU_* in pvxcore.h): what the
// processor reports and the operating system has enabled.
std::uint64_t detectCpuFeatures();

// Total size in bytes of the processor's largest cache, from the deterministic
// cache descriptors (leaf 4 on Intel, 0x8000001D on AMD, then the older AMD
// leaf 0x80000006); 0 when the processor reports none. Read once per process
// and remembered: under a hypervisor every CPUID traps and costs microseconds,
// as much as copying a 100 KB image.
std::int64_t largestCacheBytes();

}  // namespace pvx
