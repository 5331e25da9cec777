// Plain model of multiplication with a scale factor: the exact product in 64 bits through the
// long-hand scale rule.
#pragma once

#include <cstdint>

#include "reference/scale.hpp"

namespace reference {

template <class T> T mul(T a, T b, int n) { return scale<T>(std::int64_t(a) * std::int64_t(b), n); }
inline float mul(float a, float b, int) { return a * b; }

}  // namespace reference
