// Shared pieces of the benchmark binaries: image buffers at the two standard sizes, the
// naming convention that bench/report.py parses, and registration helpers that turn one
// call into a timed row with pixels-per-second and bytes-per-second counters.
//
// Names:
//   keli's own row       "<export>/<W>x<H>"            keliAbs_16s_C1R/256x256
//   a peer of an export  "<peer>/<export>/<W>x<H>"     opencv:absdiff/keliAbs_16s_C1R/256x256
// where <peer> is "opencv:<function>", "memcpy", "memset" or "libc:<function>". An export timed
// with several argument sets names each after an @: keliFilterBoxBorder_8u_C1R@5x5.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>

#include "keli.h"

namespace bench {

struct Size {
    int width;
    int height;
};

// One size that stays in the caches and one video frame that is timed out of cache.
inline constexpr Size kSizes[] = {{256, 256}, {3840, 2160}};

// Rows of a megapixel and more are timed from memory: each timed call works on its own copy of
// the row's images, from a pool of copies that holds twice the largest cache, so the images it
// reads and writes have left the caches since their last use. A frame that fits a large
// last-level cache would otherwise be timed at that cache's speed.
inline bool out_of_cache(Size s) { return std::int64_t(s.width) * s.height >= (1 << 20); }

inline KeliSize roi(Size s) { return {s.width, s.height}; }
inline std::string size_name(Size s) { return std::to_string(s.width) + "x" + std::to_string(s.height); }

// One image: 64-byte aligned base, rows rounded up to 64 bytes.
struct Image {
    void* data = nullptr;
    int step = 0;
    Size size{};
    int channels = 0;
    int elementBytes = 0;
    int cvDepth = 0;

    std::uint8_t* row(int y) const { return static_cast<std::uint8_t*>(data) + static_cast<std::ptrdiff_t>(y) * step; }
    int row_bytes() const { return size.width * channels * elementBytes; }
    // An OpenCV header over the same memory: no copy, and OpenCV never reallocates it
    // because the destination already has the size and type it asks for.
    cv::Mat mat() const { return cv::Mat(size.height, size.width, CV_MAKETYPE(cvDepth, channels), data, step); }
};

// The first element of an image, typed (a free function so that template code needs no
// `.template` keyword).
template <class T> T* data(const Image& im) { return static_cast<T*>(im.data); }

// Kind of content written into a new image, so that every element is an ordinary value of
// its type (finite floats away from denormals, the full range for integers).
// Zero: every byte 0 (the buffer that memchr_peer scans). Float32Positive and Float32Moderate
// keep floats inside a function's domain: (0, 1000] for a logarithm, (-84, 84) for an
// exponential, whose results then neither warn nor overflow.
enum class Fill { Int8u, Int8s, Int16u, Int16s, Int32s, Float32, Float64, Zero, Float32Positive, Float32Moderate };

template <class T> constexpr Fill fill_of();
template <> constexpr Fill fill_of<std::uint8_t>() { return Fill::Int8u; }
template <> constexpr Fill fill_of<std::int8_t>() { return Fill::Int8s; }
template <> constexpr Fill fill_of<std::uint16_t>() { return Fill::Int16u; }
template <> constexpr Fill fill_of<std::int16_t>() { return Fill::Int16s; }
template <> constexpr Fill fill_of<std::int32_t>() { return Fill::Int32s; }
template <> constexpr Fill fill_of<float>() { return Fill::Float32; }
template <> constexpr Fill fill_of<double>() { return Fill::Float64; }

// `count` images of one size and layout, each filled with seeded random elements (the
// destinations too, so that their pages are mapped before timing starts). Ask for them in a
// setup: the rows of one export and its peers run one after another and share the set, a
// setup may ask for several sets (a source of one type, a destination of another), and sets
// that the current row does not use are freed when a new one is made. References stay valid
// for the whole row. An out-of-cache row runs its setup once a copy, and each run gets sets of
// its own.
const std::vector<Image>& images(Size s, int channels, int elementBytes, int cvDepth, Fill fill, int count);

template <class T> const std::vector<Image>& images(Size s, int channels, int count)
{
    return images(s, channels, int(sizeof(T)), cv::DataType<T>::depth, fill_of<T>(), count);
}

// Counts memory a setup's call touches besides its images (an output array the setup owns), so
// that an out-of-cache row makes no more copies than the caches need.
void touches(std::int64_t bytes);

// Makes a value observable, so that work whose result is otherwise unused (an allocation
// released at once) is not optimised away. Through a const reference on purpose: GCC has been
// seen to miscompile the read-write form of DoNotOptimize under the sanitizers.
template <class T> void keep(const T& value) { benchmark::DoNotOptimize(value); }

// One timed call; returns a KelStatus (0 for peers). A negative status skips the row with an
// error in the output instead of reporting a time for work that was not done.
using Call = std::function<int()>;
// Builds the call for one size, outside the timed loop.
using Setup = std::function<Call(Size)>;

// Registers keli's row of `exportName` at every standard size. `bytesPerPixel` is the memory
// traffic of one pixel, read and written (4 for 16s C1 -> 16s C1); 0 for no bytes counter.
void keli(const std::string& exportName, int bytesPerPixel, Setup setup);
// Registers a peer doing the same job as `exportName` at every standard size.
void peer(const std::string& peerName, const std::string& exportName, int bytesPerPixel, Setup setup);

// The same two at the sizes given instead of the standard ones, for an export whose work is
// measured on another image size (a template slid over a 640x480 frame).
void keli(const std::string& exportName, int bytesPerPixel, Setup setup, const std::vector<Size>& sizes);
void peer(const std::string& peerName, const std::string& exportName, int bytesPerPixel, Setup setup,
          const std::vector<Size>& sizes);

// The streaming limits for an export that reads `reads` images and writes one, all of
// element T with `channels` channels: memcpy of one row per row (same bytes read and
// written as a one-source export), and memset of the destination rows.
template <class T> void memcpy_peer(const std::string& exportName, int channels)
{
    const int pixelBytes = int(sizeof(T)) * channels;
    peer("memcpy", exportName, 2 * pixelBytes, [channels](Size s) {
        const auto& im = images<T>(s, channels, 2);
        return Call([&im] {
            for (int y = 0; y < im[0].size.height; ++y) std::memcpy(im[1].row(y), im[0].row(y), im[0].row_bytes());
            return 0;
        });
    });
}

template <class T> void memset_peer(const std::string& exportName, int channels)
{
    const int pixelBytes = int(sizeof(T)) * channels;
    peer("memset", exportName, pixelBytes, [channels](Size s) {
        const auto& im = images<T>(s, channels, 1);
        return Call([&im] {
            for (int y = 0; y < im[0].size.height; ++y) std::memset(im[0].row(y), 0x5A, im[0].row_bytes());
            return 0;
        });
    });
}

// The read limit of a reduction that reads `bytesPerPixel` bytes a pixel and writes nothing:
// glibc's memchr scanning as many bytes for a byte that is not there reads each once and does
// nothing else.
inline void memchr_peer(const std::string& exportName, int bytesPerPixel)
{
    peer("libc:memchr", exportName, bytesPerPixel, [bytesPerPixel](Size s) {
        const Image& zeros = images(Size{s.width * bytesPerPixel, s.height}, 1, 1, CV_8U, Fill::Zero, 1)[0];
        return Call([&zeros] {
            keep(std::memchr(zeros.data, 1, std::size_t(zeros.step) * zeros.size.height));
            return 0;
        });
    });
}

// A family file registers its rows in the constructor of one namespace-scope object:
//   namespace { const bench::Rows rows([] { ...; }); }
// It runs before main, like the registrations of Google Benchmark's own macros.
struct Rows {
    explicit Rows(void (*registerRows)()) { registerRows(); }
};

}  // namespace bench
