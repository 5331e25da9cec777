// Plain model of saturating addition and subtraction with a scale factor. Subtraction in the
// unsigned types stops at 0 before the scale factor applies.
#pragma once

#include <cstdint>
#include <type_traits>

#include "reference/scale.hpp"

namespace reference {

template <class T> T add(T a, T b, int n) { return scale<T>(std::int64_t(a) + b, n); }

// a - b
template <class T> T sub(T a, T b, int n)
{
    std::int64_t r = std::int64_t(a) - b;
    if (std::is_unsigned_v<T> && r < 0) r = 0;
    return scale<T>(r, n);
}

inline float add(float a, float b, int) { return a + b; }
inline float sub(float a, float b, int) { return a - b; }

}  // namespace reference
