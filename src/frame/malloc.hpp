// Image allocation: rows rounded up to a multiple of 64 bytes, the step reported to the caller.
#pragma once

#include <cstdint>

#include "frame/layout.hpp"
#include "kelcore.h"

namespace keli {

// The 32-bit form. *pStep is cleared first and set as soon as the step is known, so a call
// that fails on the size of the whole image still reports the step it computed.
template <class T, Layout L> T* image_malloc(int width, int height, int* pStep)
{
    constexpr std::int64_t P = sizeof(T) * channels<L>;
    if (!pStep) return nullptr;
    *pStep = 0;
    if (width < 1 || static_cast<std::int64_t>(width) * P > 0x7FFFFFFF) return nullptr;
    if (height < 1) return nullptr;
    // Rounding in 32 bits: near the top of the range it wraps, and the wrapped step, smaller
    // than the width, is refused below.
    const auto step = static_cast<std::int32_t>((static_cast<std::uint32_t>(width) * P + 63) & ~63u);
    if (step < width) return nullptr;
    *pStep = step;
    if (static_cast<std::int64_t>(step) * height > 0x7FFFFFFF) return nullptr;
    return static_cast<T*>(kelMalloc(step * height));
}

// The wide form. The size of the whole image is tested in 32-bit halves of the row bytes and
// the height, so that no product is formed that could overflow 64 bits unnoticed.
template <class T, Layout L> T* image_malloc(std::int64_t width, std::int64_t height, std::int64_t* pStep)
{
    constexpr std::uint64_t P = sizeof(T) * channels<L>;
    if (!pStep) return nullptr;
    *pStep = 0;
    const std::uint64_t rowRounded = static_cast<std::uint64_t>(width) * P + 63;
    const auto step = static_cast<std::int64_t>(rowRounded & 0x7FFFFFFFFFFFFFC0ull);
    if (width < 1 || height < 1 || step < width) return nullptr;
    *pStep = step;
    const std::uint64_t wH = rowRounded >> 32;
    const std::uint64_t hH = static_cast<std::uint64_t>(height) >> 32;
    const std::int64_t hL = static_cast<std::int32_t>(static_cast<std::uint32_t>(height));
    const std::int64_t sL = static_cast<std::int32_t>(static_cast<std::uint32_t>(step));
    if (wH * hH > 0xFFFFFFFFull) return nullptr;
    if (hL * static_cast<std::int64_t>(wH) > 0xFFFFFFFFll) return nullptr;
    if (sL * static_cast<std::int64_t>(hH) > 0xFFFFFFFFll) return nullptr;
    return static_cast<T*>(kelMalloc_L(step * height));
}

}  // namespace keli
