// The choice between ordinary and non-temporal stores for large streaming kernels. It changes
// speed only, never a result: a call whose memory traffic exceeds the largest cache would
// evict everything else for data nobody reads soon, so such calls bypass the cache.
#pragma once

#include <cstdint>

#include "kelcore.h"

namespace keli {

// Calls up to this much traffic (bytes read plus bytes written) never ask for the cache size.
constexpr std::uint64_t kNonTemporalGate = 0x80000;

inline bool use_nontemporal(std::uint64_t trafficBytes, std::uint64_t gate = kNonTemporalGate)
{
    if (trafficBytes <= gate) return false;
    int cacheBytes = 0;
    if (kelGetMaxCacheSizeB(&cacheBytes) != kelStatusOk) return false;
    return trafficBytes >= static_cast<std::uint64_t>(cacheBytes);
}

}  // namespace keli
