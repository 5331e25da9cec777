// Plain model of the rounding conversions: the exact value x * 2^-n in extended precision, rounded
// by the mode (0 toward zero, 1 nearest with ties to even, others nearest with ties away from
// zero), then clamped to the destination; not-a-number gives the destination's largest value.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

namespace reference {

inline long double round_by(long double v, int mode)
{
    if (mode == 0) return std::trunc(v);
    if (mode == 1) {
        const long double f = std::floor(v), r = v - f;
        if (r > 0.5L) return f + 1;
        if (r < 0.5L) return f;
        return std::fmod(f, 2.0L) == 0 ? f : f + 1;
    }
    return v < 0 ? -std::floor(-v + 0.5L) : std::floor(v + 0.5L);
}

template <class D> D clamp_round(long double v)
{
    const long double lo = std::numeric_limits<D>::min(), hi = std::numeric_limits<D>::max();
    return static_cast<D>(v < lo ? lo : v > hi ? hi : v);
}

// Float (or integer) x scaled by 2^-n, rounded and saturated. 64f sources take n from -1008 up.
template <class D, class S> D round_convert(S x, int n, int mode)
{
    const long double v = static_cast<long double>(x);
    if (std::isnan(v)) return std::numeric_limits<D>::max();
    if (std::is_same_v<S, double> && n < -1008) n = -1008;
    return clamp_round<D>(round_by(std::ldexp(v, -n), mode));
}

// Signed to unsigned with negative values at 0.
template <class D, class S> D clamp_sign(S x) { return static_cast<D>(x < 0 ? 0 : x); }

}  // namespace reference
