// Aligned allocation. 64-byte alignment suits both the 16-byte vector kernels and the cache
// line, and matches the 64-byte row rounding of image allocation.
#include <cstdint>
#include <cstdlib>

#include "kelcore.h"

namespace {

constexpr std::size_t kAlignment = 64;

void* aligned(std::int64_t length)
{
    if (length < 1) return nullptr;
    void* p = nullptr;
    return posix_memalign(&p, kAlignment, static_cast<std::size_t>(length)) == 0 ? p : nullptr;
}

}  // namespace

extern "C" {

KELCORE_API void* kelMalloc(int32_t length) { return aligned(length); }
KELCORE_API void* kelMalloc_L(int64_t length) { return aligned(length); }
KELCORE_API void kelFree(void* ptr) { std::free(ptr); }

}  // extern "C"
