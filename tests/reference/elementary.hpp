// Plain models of the elementary functions and the logic, in wide integers and long double.
//
// Sqrt: sqrt(a) 2^-n rounded to nearest with ties to even, saturated; 16s negatives give 0.
// Ln:   ln(a) 2^-n plus a half, truncated, at most the largest value; a <= 0 gives 0.
// Exp:  exp(a) 2^-n plus a half, truncated, at most the largest value.
// Long double carries 11 bits more than the kernels' doubles and an exponent range that no
// argument here leaves, for scale factors within +-1000.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace reference {

template <class T> long double largest() { return static_cast<long double>(std::numeric_limits<T>::max()); }

template <class T> T sqrt_scaled(T a, int n)
{
    if (a <= 0) return T(0);
    const long double v = std::nearbyint(std::sqrt(static_cast<long double>(a)) * std::ldexp(1.0L, -n));
    return static_cast<T>(v > largest<T>() ? largest<T>() : v);
}

template <class T> T ln_scaled(T a, int n)
{
    if (a <= 0) return T(0);
    const long double v = std::log(static_cast<long double>(a)) * std::ldexp(1.0L, -n) + 0.5L;
    return static_cast<T>(std::trunc(v > largest<T>() ? largest<T>() : v));
}

template <class T> T exp_scaled(T a, int n)
{
    const long double v = std::exp(static_cast<long double>(a)) * std::ldexp(1.0L, -n) + 0.5L;
    return static_cast<T>(std::trunc(v > largest<T>() ? largest<T>() : v));
}

// Shifts by any uint32 count: bits fall off the end; a signed right shift keeps the sign.
template <class T> T shift_left(T x, std::uint32_t count)
{
    const std::uint64_t bits = 8 * sizeof(T);
    if (count >= bits) return T(0);
    return static_cast<T>(static_cast<std::uint64_t>(static_cast<std::make_unsigned_t<T>>(x)) << count);
}

template <class T> T shift_right(T x, std::uint32_t count)
{
    const std::uint32_t bits = 8 * sizeof(T);
    if constexpr (std::is_signed_v<T>) {
        const std::int64_t v = x;
        return static_cast<T>(count >= bits ? (v < 0 ? -1 : 0) : v / (std::int64_t(1) << count) - (v < 0 && v % (std::int64_t(1) << count) != 0));
    } else {
        return count >= bits ? T(0) : static_cast<T>(x >> count);
    }
}

// Two's complement to sign and magnitude.
template <class T> T complement(T x)
{
    using U = std::make_unsigned_t<T>;
    if (x >= 0) return x;
    const std::int64_t magnitude = -static_cast<std::int64_t>(x);
    const std::uint64_t sign = std::uint64_t(1) << (8 * sizeof(T) - 1);
    return static_cast<T>(static_cast<U>(sign | (static_cast<std::uint64_t>(magnitude) & (sign | (sign - 1)))));
}

// The maximum and minimum as the instructions take them: the second operand unless the first
// is strictly beyond it.
template <class T> T max_every(T a, T b) { return a > b ? a : b; }
template <class T> T min_every(T a, T b) { return a < b ? a : b; }

}  // namespace reference
