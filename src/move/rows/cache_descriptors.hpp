// The size of the largest cache as the byte-run copy sees it, read from the processor's cache
// descriptors (CPUID leaf 2). The copy asks the processor itself rather than kelcore, so that
// the copy's choice of stores depends on this one table and nothing else.
//
// This build targets GenuineIntel processors: leaf 2 descriptors are Intel's encoding, and on
// a processor of another vendor the size is unknown and the copy keeps its ordinary stores.
#pragma once

#include <cpuid.h>

#include <cstdint>
#include <cstring>

namespace keli::rows {

// (descriptor byte, packed size): size = (packed >> 4) << ((packed & 15) + 18) bytes. The rows
// run from the largest cache down, so the first row whose byte occurs wins.
struct CacheDescriptor {
    std::uint8_t code, packed;
};
inline constexpr CacheDescriptor kCacheDescriptors[] = {
    {0xEC, 0xC3}, {0xEB, 0x93}, {0x4D, 0x16}, {0xEA, 0x34}, {0x4C, 0x34}, {0xE4, 0x15}, {0xDE, 0x15},
    {0x4B, 0x15}, {0x47, 0x15}, {0x4E, 0x33}, {0x4A, 0x33}, {0xE3, 0x14}, {0xDD, 0x14}, {0xD8, 0x14},
    {0x49, 0x14}, {0x29, 0x14}, {0x46, 0x14}, {0x48, 0x32}, {0xE2, 0x13}, {0xDC, 0x13}, {0xD7, 0x13},
    {0xD2, 0x13}, {0x25, 0x13}, {0x7D, 0x13}, {0x85, 0x13}, {0x45, 0x13}, {0xD6, 0x12}, {0xD1, 0x12},
    {0x23, 0x12}, {0x87, 0x12}, {0x7C, 0x12}, {0x78, 0x12}, {0x84, 0x12}, {0x44, 0x12}, {0xD0, 0x11},
    {0x22, 0x11}, {0x7B, 0x11}, {0x80, 0x11}, {0x86, 0x11}, {0x3E, 0x11}, {0x7F, 0x11}, {0x83, 0x11},
    {0x43, 0x11},
};

// Decodes the four output words of leaf 2 (eax, ebx, ecx, edx). Zero when the size is unknown:
// the low byte of eax must be 1 (one call describes everything), a word with bit 31 set holds
// no descriptors, and the low byte of eax is the call count, not a descriptor.
inline std::int64_t cache_bytes_from_descriptors(const std::uint32_t words[4])
{
    if ((words[0] & 0xFF) != 1) return 0;
    std::uint8_t bytes[16];
    int count = 0;
    for (int w = 0; w < 4; ++w) {
        if (words[w] & 0x80000000u) continue;
        for (int b = w == 0 ? 1 : 0; b < 4; ++b) bytes[count++] = static_cast<std::uint8_t>(words[w] >> (8 * b));
    }
    for (const CacheDescriptor& row : kCacheDescriptors)
        for (int i = 0; i < count; ++i)
            if (bytes[i] == row.code) return std::int64_t(row.packed >> 4) << ((row.packed & 15) + 18);
    return 0;
}

// The largest cache of this processor in bytes, or zero when unknown.
inline std::int64_t largest_cache_bytes()
{
    unsigned a, b, c, d;
    __cpuid(0, a, b, c, d);
    char vendor[12];
    std::memcpy(vendor, &b, 4);
    std::memcpy(vendor + 4, &d, 4);
    std::memcpy(vendor + 8, &c, 4);
    if (std::memcmp(vendor, "GenuineIntel", 12) != 0 || a < 2) return 0;
    __cpuid(2, a, b, c, d);
    const std::uint32_t words[4] = {a, b, c, d};
    return cache_bytes_from_descriptors(words);
}

}  // namespace keli::rows
