// An image with a margin of readable pixels around its region, the memory a filter reads through
// the in-memory border flags; a test fills the margin too and checks it is never written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kit {

template <class T> struct Framed {
    int width, height, channels, margin, pitch;  // pitch in elements
    std::vector<T> data;
    Framed(int w, int h, int c, int m = 9)
        : width(w), height(h), channels(c), margin(m), pitch((w + 2 * m) * c + 5),
          data(static_cast<std::size_t>(pitch) * (h + 2 * m))
    {
    }
    T* region() { return data.data() + margin * pitch + margin * channels; }
    T& at(std::int64_t x, std::int64_t y, int c) { return region()[y * pitch + x * channels + c]; }
    bool inside(std::int64_t x, std::int64_t y) const { return x >= 0 && y >= 0 && x < width && y < height; }
    int step() const { return pitch * int(sizeof(T)); }
};

}  // namespace kit
