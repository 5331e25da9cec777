// Plain models of the synthetic images, pixel by pixel, in the order of operations the rules
// state. The sine is a parameter: the images are held to the library's own 64f sine, which is
// in turn held to the sine of the C library.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace reference {

template <class T> T round_saturate(float v)
{
    if constexpr (std::is_same_v<T, float>) {
        return v;
    } else {
        const float lo = float(std::numeric_limits<T>::min()), hi = float(std::numeric_limits<T>::max());
        if (!(v > lo)) return std::numeric_limits<T>::min();
        if (!(v < hi)) return std::numeric_limits<T>::max();
        return static_cast<T>(std::nearbyint(v));
    }
}

// The argument of the ring sine at (x, y) of a W x H image.
inline float jaehne_argument(int x, int y, int W, int H)
{
    const float xc = float(x) - float(W - 1) * 0.5f;
    const float yc = float(y) - float(H - 1) * 0.5f;
    return ((xc * xc + yc * yc) * 1.5707964f) * (1.0f / float(H));
}

template <class T> float jaehne_scale()
{
    if constexpr (std::is_same_v<T, float>) return 0.5f;
    else if constexpr (std::is_same_v<T, std::uint8_t>) return 128.0f;
    else if constexpr (std::is_same_v<T, std::int16_t>) return 16384.0f;
    else return 32768.0f;
}

template <class T, class Sine> T jaehne(int x, int y, int W, int H, Sine&& sine)
{
    const float v = static_cast<float>(sine(double(jaehne_argument(x, y, W, H))));
    return round_saturate<T>(v * jaehne_scale<T>() + jaehne_scale<T>());
}

template <class T> T ramp(int x, int y, float offset, float slope, int axis)
{
    const std::int64_t k = axis == 0 ? x : axis == 1 ? y : std::int64_t(x) * y;
    return round_saturate<T>(float(k) * slope + offset);
}

}  // namespace reference
