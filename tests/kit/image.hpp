// Test images with guard bytes. The buffer holds a guard band, the rows (each possibly padded
// beyond its pixels, and the first possibly shifted off alignment) and another guard band; a
// test snapshots the whole buffer, calls the function, and compares: everything outside the
// region must be as it was, byte for byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "keli_types.h"

namespace kit {

constexpr int kGuardBytes = 64;
constexpr std::uint8_t kCanary = 0xA5;

struct Shape {
    int offsetElements = 0;  // shift of the first pixel from a 64-byte boundary
    int padBytes = 0;        // bytes beyond the pixels of each row
    bool flipped = false;    // rows stored bottom up: the first row is the last in memory
};

template <class T> class Image {
public:
    Image(int width, int height, int channels, Shape shape = {})
        : width_(width), height_(height), channels_(channels), shape_(shape),
          rowBytes_(static_cast<std::ptrdiff_t>(width) * channels * sizeof(T)),
          pitch_(rowBytes_ + shape.padBytes),
          buffer_(2 * kGuardBytes + shape.offsetElements * sizeof(T) + pitch_ * height + 64, kCanary)
    {
        // Place the rows right after a 64-byte boundary inside the buffer.
        auto start = reinterpret_cast<std::uintptr_t>(buffer_.data()) + kGuardBytes;
        start = (start + 63) & ~std::uintptr_t(63);
        first_ = start - reinterpret_cast<std::uintptr_t>(buffer_.data()) + shape.offsetElements * sizeof(T);
    }

    int width() const { return width_; }
    int height() const { return height_; }
    int channels() const { return channels_; }
    KeliSize size() const { return {width_, height_}; }

    // Base pointer and step as a caller passes them: the step is negative for flipped images.
    T* data() { return reinterpret_cast<T*>(row_bytes(0)); }
    const T* data() const { return reinterpret_cast<const T*>(const_cast<Image*>(this)->row_bytes(0)); }
    int step() const { return static_cast<int>(shape_.flipped ? -pitch_ : pitch_); }

    T& at(int x, int y, int c = 0) { return reinterpret_cast<T*>(row_bytes(y))[x * channels_ + c]; }
    const T& at(int x, int y, int c = 0) const { return const_cast<Image*>(this)->at(x, y, c); }

    template <class Gen> void fill(Gen&& gen)
    {
        for (int y = 0; y < height_; ++y)
            for (int x = 0; x < width_ * channels_; ++x) at(0, y, x) = gen();
    }

    std::vector<std::uint8_t> snapshot() const { return buffer_; }
    const std::vector<std::uint8_t>& bytes() const { return buffer_; }

    // Byte index in the buffer of element (x, y, c).
    std::size_t index_of(int x, int y, int c) const
    {
        return reinterpret_cast<const std::uint8_t*>(&at(x, y, c)) - buffer_.data();
    }

private:
    std::uint8_t* row_bytes(int y)
    {
        const int memoryRow = shape_.flipped ? height_ - 1 - y : y;
        return buffer_.data() + first_ + pitch_ * memoryRow;
    }

    int width_, height_, channels_;
    Shape shape_;
    std::ptrdiff_t rowBytes_, pitch_;
    std::vector<std::uint8_t> buffer_;
    std::size_t first_;  // index of the first pixel: copies of an image stay valid
};

// Bytes of the buffer that differ from `before` although they lie outside the elements that
// `written(x, y, c)` allows. Returns the first such byte index, or -1.
template <class T, class Allowed>
long first_stray_write(const Image<T>& image, const std::vector<std::uint8_t>& before, Allowed&& written)
{
    std::vector<bool> allowed(before.size(), false);
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            for (int c = 0; c < image.channels(); ++c)
                if (written(x, y, c)) {
                    const std::size_t at = image.index_of(x, y, c);
                    for (std::size_t b = 0; b < sizeof(T); ++b) allowed[at + b] = true;
                }
    for (std::size_t i = 0; i < before.size(); ++i)
        if (!allowed[i] && image.bytes()[i] != before[i]) return static_cast<long>(i);
    return -1;
}

inline bool any_element(int, int, int) { return true; }

}  // namespace kit
