// The wide-size layer of the arithmetic and copy families (`_L` members).
//
// A wide call whose steps and total size fit the 32-bit members is handed to the 32-bit body
// with every check and behaviour of it. Only what does not fit walks the rows with 64-bit
// steps, cutting each row into chunks that a 32-bit row kernel can take.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <type_traits>

#include "keli_types.h"

namespace keli::wide {

constexpr std::int64_t kNarrowStepMax = 0x7FFFFFFE;
constexpr std::int64_t kNarrowBytesLimit = 0x7FFFFFFF;
constexpr std::int64_t kChunkBytes = 0x3FFFFFFF;

// True when every step and |width * height| * pixelBytes fit the 32-bit members.
inline bool fits_narrow(std::initializer_list<std::int64_t> steps, KeliSizeL size, std::int64_t pixelBytes)
{
    for (std::int64_t s : steps)
        if (s > kNarrowStepMax || s < -kNarrowStepMax) return false;
    __int128 bytes = static_cast<__int128>(size.width) * size.height;
    if (bytes < 0) bytes = -bytes;
    // Past the limit in pixels already: no product, which for sides near 2^63 would overflow
    // even 128 bits.
    if (bytes >= kNarrowBytesLimit) return false;
    return bytes * pixelBytes < kNarrowBytesLimit;
}

// Largest number of pixels handed to a row kernel at once.
constexpr std::int64_t chunk_pixels(std::int64_t pixelBytes) { return kChunkBytes / pixelBytes; }

// Runs a wide call.
//   narrow(KeliSize)                     the 32-bit body, for calls that fit it;
//   chunk(y, x, pixels) -> KelStatus     the row kernel on pixels [x, x + pixels) of row y.
// A non-positive size that does not fit the narrow path is accepted and does nothing. A
// chunk's error ends the walk and is the result; warnings do not stop it, and the result is
// then the status of the last chunk alone.
template <class Narrow, class Chunk>
inline KelStatus run(std::initializer_list<std::int64_t> steps, KeliSizeL size, std::int64_t pixelBytes,
                     Narrow&& narrow, Chunk&& chunk)
{
    if (fits_narrow(steps, size, pixelBytes))
        return narrow(KeliSize{static_cast<std::int32_t>(size.width), static_cast<std::int32_t>(size.height)});
    if (size.height < 1 || size.width < 1) return kelStatusOk;
    const std::int64_t most = chunk_pixels(pixelBytes);
    KelStatus last = kelStatusOk;
    for (std::int64_t y = 0; y < size.height; ++y) {
        for (std::int64_t x = 0; x < size.width; x += most) {
            const std::int64_t n = size.width - x < most ? size.width - x : most;
            last = chunk(y, x, n);
            if (last < 0) return last;
        }
    }
    return last;
}

// Byte address of pixel (x, y) of a wide image.
template <class T> inline T* at(T* base, std::int64_t step, std::int64_t y, std::int64_t x, std::int64_t pixelBytes)
{
    using Byte = std::conditional_t<std::is_const_v<T>, const char, char>;
    return reinterpret_cast<T*>(reinterpret_cast<Byte*>(base) + y * step + x * pixelBytes);
}

}  // namespace keli::wide
