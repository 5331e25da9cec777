// An image with memory around its region, which filters read through the in-memory border
// flags; a test fills the margin too and checks that nothing there is written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <vector>

namespace kit {

constexpr int kMargin = 9;  // memory around the region, read through the flags

template <class T> struct Framed {
    int width, height, channels, margin, pitch, shift;  // pitch and shift in elements
    std::vector<T> data;
    // `pad` elements beyond each row's margin; `shift` moves the whole image off alignment.
    Framed(int w, int h, int c, int pad = 5, int shift = 0)
        : width(w), height(h), channels(c), margin(kMargin), pitch((w + 2 * kMargin) * c + pad), shift(shift),
          data(static_cast<std::size_t>(pitch) * (h + 2 * kMargin) + shift)
    {
    }
    T* region() { return data.data() + shift + kMargin * pitch + kMargin * channels; }
    T& at(std::int64_t x, std::int64_t y, int c) { return region()[y * pitch + x * channels + c]; }
    bool inside(std::int64_t x, std::int64_t y) const { return x >= 0 && y >= 0 && x < width && y < height; }
    std::int64_t step() const { return std::int64_t(pitch) * sizeof(T); }
};

// The value a filter test puts where nothing may be written, and a comparison that tells a
// not-a-number and a signed zero apart.
template <class T> T canary()
{
    if constexpr (std::is_floating_point_v<T>) return T(-12345.5);
    return T(0x5A);
}

template <class T> bool same_bits(T a, T b) { return std::memcmp(&a, &b, sizeof(T)) == 0; }

}  // namespace kit
