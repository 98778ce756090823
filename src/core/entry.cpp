// The load-time entry routine and the path selector that every exported stub
// reads.
#include <cstdint>

#include "pvxcore.h"

// 0: ordinary SSSE3 path (v8); 1: low-power SSSE3 + MOVBE path (s8). Written
// once, by the entry routine, while the loader serialises initialisation;
// only read afterwards.
extern "C" {
__attribute__((visibility("hidden"))) int pvx_path_selector = 0;
}

namespace {

constexpr unsigned kProcessAttach = 1;

// Entry routine with the operating system's shape (module, reason, reserved).
// Loading never fails because of the processor: it always answers 1.
int pvxEntry(void* /*module*/, unsigned reason, void* /*reserved*/)
{
    if (reason == kProcessAttach) {
        // Only the low 32 bits of the mask take part in the choice.
        const auto features = static_cast<std::uint32_t>(pvxGetEnabledCpuFeatures());
        constexpr std::uint32_t lowPower = PVX_CPU_SSSE3 | PVX_CPU_MOVBE;
        pvx_path_selector = (features & lowPower) == lowPower ? 1 : 0;
    }
    return 1;
}

// On ELF systems the loader runs constructors on load: that is process attach.
__attribute__((constructor)) void pvxOnLoad()
{
    pvxEntry(nullptr, kProcessAttach, nullptr);
}

}  // namespace
