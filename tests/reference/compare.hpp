// Plain models of comparison and range counting, element by element.
#pragma once

#include <cmath>
#include <cstdint>

#include "keli_types.h"

namespace reference {

// The relation a op b, integers as wide values; any not-a-number makes every relation false.
template <class T> bool relation(int cmpOp, T a, T b)
{
    if constexpr (std::is_floating_point_v<T>)
        if (std::isnan(a) || std::isnan(b)) return false;
    const double x = a, y = b;
    switch (cmpOp) {
    case kelCmpLess: return x < y;
    case kelCmpLessEq: return x <= y;
    case kelCmpEq: return x == y;
    case kelCmpGreaterEq: return x >= y;
    case kelCmpGreater: return x > y;
    default: return false;
    }
}

// |a - b| <= eps with the difference rounded to 32f, as the rule states.
inline bool equal_eps(float a, float b, float eps)
{
    const float d = a - b;
    if (std::isnan(d) || std::isnan(eps)) return false;
    return std::fabs(d) <= eps;
}

template <class T> bool in_range(T v, T lower, T upper)
{
    if constexpr (std::is_floating_point_v<T>)
        if (std::isnan(v) || std::isnan(lower) || std::isnan(upper)) return false;
    return double(lower) <= double(v) && double(v) <= double(upper);
}

}  // namespace reference
