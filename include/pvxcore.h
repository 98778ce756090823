/*
 * pvxcore — the companion core library: aligned allocation, the processor
 * feature mask that selects pvxi's code path, the largest cache size, and
 * status names for messages.
 */
#ifndef PVXCORE_H
#define PVXCORE_H

#include "pvxtypes.h"

/* Feature bits of pvxGetEnabledCpuFeatures / pvxSetCpuFeatures. */
#define PVX_CPU_MMX       0x1ULL
#define PVX_CPU_SSE       0x2ULL
#define PVX_CPU_SSE2      0x4ULL
#define PVX_CPU_SSE3      0x8ULL
#define PVX_CPU_SSSE3     0x10ULL
#define PVX_CPU_MOVBE     0x20ULL
#define PVX_CPU_SSE41     0x40ULL
#define PVX_CPU_SSE42     0x80ULL
#define PVX_CPU_AVX       0x100ULL
#define PVX_CPU_AES       0x200ULL
#define PVX_CPU_CLMUL     0x400ULL
#define PVX_CPU_RDRAND    0x800ULL
#define PVX_CPU_F16C      0x1000ULL
#define PVX_CPU_AVX2      0x2000ULL
#define PVX_CPU_ADCX      0x4000ULL
#define PVX_CPU_ADOX      0x8000ULL
#define PVX_CPU_RDSEED    0x10000ULL
#define PVX_CPU_PREFETCHW 0x20000ULL
#define PVX_CPU_SHA       0x40000ULL
#define PVX_CPU_AVX512F   0x80000ULL

/* The core library exports exactly the functions below. */
#if defined(__GNUC__)
#  define PVX_CORE_API __attribute__((visibility("default")))
#else
#  define PVX_CORE_API
#endif

PVX_EXTERN_C_BEGIN

/* Allocates length bytes aligned to 64 bytes; null for length below 1 or when
 * memory is exhausted. Release with pvxFree. */
PVX_CORE_API void* PVX_CALL pvxMalloc(int length);
/* Releases a block from pvxMalloc; null is ignored. */
PVX_CORE_API void PVX_CALL pvxFree(void* ptr);

/* The enabled feature mask: what the processor reports (and the operating
 * system has enabled), unless pvxSetCpuFeatures chose another mask. */
PVX_CORE_API Pvx64u PVX_CALL pvxGetEnabledCpuFeatures(void);
/* Replaces the enabled feature mask for this process. A pvxi library loaded
 * afterwards selects its code path by this mask. Always pvxStsOk. */
PVX_CORE_API PvxStatus PVX_CALL pvxSetCpuFeatures(Pvx64u features);

/* Size in bytes of the processor's largest cache. pvxStsNullPtrErr for a null
 * pointer; pvxStsNotSupportedModeErr when the processor reports no cache
 * descriptors (the size is then left unwritten). */
PVX_CORE_API PvxStatus PVX_CALL pvxGetMaxCacheSizeB(int* pSizeBytes);

/* The name of a status code, e.g. "pvxStsSizeErr"; "pvxStsUnknown" for a
 * value no function returns. */
PVX_CORE_API const char* PVX_CALL pvxGetStatusString(PvxStatus status);

PVX_EXTERN_C_END

#endif /* PVXCORE_H */
