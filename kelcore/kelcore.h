/* kelcore: the companion core library of keli. Aligned allocation and what keli needs to know
 * about the processor: cache sizes and instruction-set features. */
#ifndef KELCORE_H
#define KELCORE_H

#include "keli_types.h"

#if defined(__GNUC__)
#define KELCORE_API __attribute__((visibility("default")))
#else
#define KELCORE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Processor features, one bit each, as tested by ownGetFeature. */
#define kelCpuMMX UINT64_C(0x1)
#define kelCpuSSE UINT64_C(0x2)
#define kelCpuSSE2 UINT64_C(0x4)
#define kelCpuSSE3 UINT64_C(0x8)
#define kelCpuSSSE3 UINT64_C(0x10)
#define kelCpuMOVBE UINT64_C(0x20)
#define kelCpuSSE41 UINT64_C(0x40)
#define kelCpuSSE42 UINT64_C(0x80)
#define kelCpuAVX UINT64_C(0x100)          /* with the operating system saving the wide registers */
#define kelCpuAES UINT64_C(0x200)
#define kelCpuCLMUL UINT64_C(0x400)
#define kelCpuRDRAND UINT64_C(0x800)
#define kelCpuF16C UINT64_C(0x1000)
#define kelCpuAVX2 UINT64_C(0x2000)
#define kelCpuBMI1 UINT64_C(0x4000)
#define kelCpuBMI2 UINT64_C(0x8000)
#define kelCpuLZCNT UINT64_C(0x10000)
#define kelCpuADX UINT64_C(0x20000)
#define kelCpuRDSEED UINT64_C(0x40000)
#define kelCpuSHA UINT64_C(0x80000)
#define kelCpuFMA UINT64_C(0x100000)
#define kelCpuPOPCNT UINT64_C(0x200000)
#define kelCpuAVX512F UINT64_C(0x8000000)  /* with the operating system saving the 512-bit state */
#define kelCpuAVX512CD UINT64_C(0x10000000)
#define kelCpuAVX512BW UINT64_C(0x20000000)
#define kelCpuAVX512DQ UINT64_C(0x40000000)
#define kelCpuAVX512VL UINT64_C(0x80000000)

/* 64-byte aligned memory, or null for a size below 1 or when the system has none. */
KELCORE_API void* kelMalloc(int32_t length);
KELCORE_API void* kelMalloc_L(int64_t length);
/* Frees memory of either allocator; null is accepted. */
KELCORE_API void kelFree(void* ptr);

/* Size in bytes of the largest cache of the processor, read from CPUID on Intel and AMD
 * processors. kelStatusNullPtr for a null pointer; kelStatusUnsupportedMode, with *pSize
 * untouched, when the processor does not describe its caches in a way known here. */
KELCORE_API KelStatus kelGetMaxCacheSizeB(int32_t* pSizeBytes);
/* Cache line size in bytes, a power of two; statuses as above. */
KELCORE_API KelStatus kel_get_cache_line_size(int32_t* pSizeBytes);
/* Non-zero when the processor has every feature of the mask. */
KELCORE_API int ownGetFeature(uint64_t featureMask);

#ifdef __cplusplus
}
#endif

#endif /* KELCORE_H */
