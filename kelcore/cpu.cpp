// What the processor says about itself through CPUID. Nothing is cached between calls: the
// library holds no mutable state, and these queries are cheap next to the work they steer.
#include <cpuid.h>

#include <cstring>

#include "kelcore.h"

namespace {

struct Regs {
    unsigned a = 0, b = 0, c = 0, d = 0;
};

Regs cpuid(unsigned leaf, unsigned subleaf = 0)
{
    Regs r;
    __cpuid_count(leaf, subleaf, r.a, r.b, r.c, r.d);
    return r;
}

enum class Vendor { Intel, Amd, Other };

Vendor vendor()
{
    Regs r = cpuid(0);
    char name[13];
    std::memcpy(name, &r.b, 4);
    std::memcpy(name + 4, &r.d, 4);
    std::memcpy(name + 8, &r.c, 4);
    name[12] = 0;
    if (!std::strcmp(name, "GenuineIntel")) return Vendor::Intel;
    if (!std::strcmp(name, "AuthenticAMD") || !std::strcmp(name, "HygonGenuine")) return Vendor::Amd;
    return Vendor::Other;
}

unsigned max_leaf() { return cpuid(0).a; }
unsigned max_extended_leaf() { return cpuid(0x80000000u).a; }

// Leaves 4 (Intel) and 0x8000001D (AMD) list the caches one subleaf each, in one format:
// ways, partitions, line size and sets, each stored minus one.
long long largest_listed_cache(unsigned leaf)
{
    long long largest = 0;
    for (unsigned i = 0; i < 16; ++i) {
        Regs r = cpuid(leaf, i);
        if ((r.a & 31) == 0) break;  // no more caches
        const long long ways = ((r.b >> 22) & 0x3FF) + 1;
        const long long partitions = ((r.b >> 12) & 0x3FF) + 1;
        const long long line = (r.b & 0xFFF) + 1;
        const long long sets = static_cast<long long>(r.c) + 1;
        const long long bytes = ways * partitions * line * sets;
        if (bytes > largest) largest = bytes;
    }
    return largest;
}

long long largest_cache()
{
    switch (vendor()) {
    case Vendor::Intel:
        return max_leaf() >= 4 ? largest_listed_cache(4) : 0;
    case Vendor::Amd: {
        const unsigned ext = max_extended_leaf();
        const bool topology = ext >= 0x80000001u && (cpuid(0x80000001u).c & (1u << 22));
        if (ext >= 0x8000001Du && topology) return largest_listed_cache(0x8000001Du);
        if (ext < 0x80000006u) return 0;
        Regs r = cpuid(0x80000006u);
        const long long l2 = static_cast<long long>(r.c >> 16) * 1024;
        const long long l3 = static_cast<long long>(r.d >> 18) * 512 * 1024;
        return l3 > l2 ? l3 : l2;
    }
    case Vendor::Other:
        break;
    }
    return 0;
}

bool os_saves(unsigned long long stateMask)
{
    if (!(cpuid(1).c & (1u << 27))) return false;  // OSXSAVE
    unsigned lo, hi;
    __asm__("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
    const unsigned long long xcr0 = (static_cast<unsigned long long>(hi) << 32) | lo;
    return (xcr0 & stateMask) == stateMask;
}

uint64_t features()
{
    const Regs l1 = cpuid(1);
    const Regs l7 = max_leaf() >= 7 ? cpuid(7) : Regs{};
    const Regs e1 = max_extended_leaf() >= 0x80000001u ? cpuid(0x80000001u) : Regs{};
    const bool avxState = os_saves(0x6);
    const bool avx512State = avxState && os_saves(0xE6);
    uint64_t f = 0;
    auto set = [&f](bool on, uint64_t bit) { if (on) f |= bit; };
    set(l1.d & (1u << 23), kelCpuMMX);
    set(l1.d & (1u << 25), kelCpuSSE);
    set(l1.d & (1u << 26), kelCpuSSE2);
    set(l1.c & (1u << 0), kelCpuSSE3);
    set(l1.c & (1u << 9), kelCpuSSSE3);
    set(l1.c & (1u << 22), kelCpuMOVBE);
    set(l1.c & (1u << 19), kelCpuSSE41);
    set(l1.c & (1u << 20), kelCpuSSE42);
    set((l1.c & (1u << 28)) && avxState, kelCpuAVX);
    set(l1.c & (1u << 25), kelCpuAES);
    set(l1.c & (1u << 1), kelCpuCLMUL);
    set(l1.c & (1u << 30), kelCpuRDRAND);
    set(l1.c & (1u << 29), kelCpuF16C);
    set((l7.b & (1u << 5)) && avxState, kelCpuAVX2);
    set(l7.b & (1u << 3), kelCpuBMI1);
    set(l7.b & (1u << 8), kelCpuBMI2);
    set(e1.c & (1u << 5), kelCpuLZCNT);
    set(l7.b & (1u << 19), kelCpuADX);
    set(l7.b & (1u << 18), kelCpuRDSEED);
    set(l7.b & (1u << 29), kelCpuSHA);
    set((l1.c & (1u << 12)) && avxState, kelCpuFMA);
    set(l1.c & (1u << 23), kelCpuPOPCNT);
    set((l7.b & (1u << 16)) && avx512State, kelCpuAVX512F);
    set((l7.b & (1u << 28)) && avx512State, kelCpuAVX512CD);
    set((l7.b & (1u << 30)) && avx512State, kelCpuAVX512BW);
    set((l7.b & (1u << 17)) && avx512State, kelCpuAVX512DQ);
    set((l7.b & (1u << 31)) && avx512State, kelCpuAVX512VL);
    return f;
}

}  // namespace

extern "C" {

KELCORE_API KelStatus kelGetMaxCacheSizeB(int32_t* pSizeBytes)
{
    if (!pSizeBytes) return kelStatusNullPtr;
    const long long bytes = largest_cache();
    if (bytes <= 0) return kelStatusUnsupportedMode;
    *pSizeBytes = bytes > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<int32_t>(bytes);
    return kelStatusOk;
}

KELCORE_API KelStatus kel_get_cache_line_size(int32_t* pSizeBytes)
{
    if (!pSizeBytes) return kelStatusNullPtr;
    int32_t line = static_cast<int32_t>((cpuid(1).b >> 8) & 0xFF) * 8;  // CLFLUSH line size
    if (line == 0 && max_extended_leaf() >= 0x80000006u) line = static_cast<int32_t>(cpuid(0x80000006u).c & 0xFF);
    if (line <= 0 || (line & (line - 1))) return kelStatusUnsupportedMode;
    *pSizeBytes = line;
    return kelStatusOk;
}

KELCORE_API int ownGetFeature(uint64_t featureMask)
{
    return featureMask != 0 && (features() & featureMask) == featureMask;
}

}  // extern "C"
