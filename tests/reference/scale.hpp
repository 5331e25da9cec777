// Plain model of the integer scale-factor rule: the exact result r in 64 bits, divided by 2^n
// with the remainder compared against a half (ties to the even quotient), or multiplied by 2^-n,
// then clamped to the element's range. No shift of the kernels' formula, no short cuts: every
// scale factor is computed the long way.
#pragma once

#include <cstdint>
#include <limits>

namespace reference {

inline std::int64_t clamp(std::int64_t v, std::int64_t lo, std::int64_t hi) { return v < lo ? lo : v > hi ? hi : v; }

// r / 2^n rounded to nearest, ties to even, for any n (|r| < 2^40).
inline std::int64_t divide_pow2_even(std::int64_t r, int n)
{
    if (n > 45) return 0;  // |r| / 2^n < 1/2: rounds to 0
    const std::int64_t d = std::int64_t(1) << n;
    std::int64_t q = r / d, rem = r % d;
    if (rem < 0) q -= 1, rem += d;  // floor division
    if (2 * rem > d || (2 * rem == d && (q & 1))) q += 1;
    return q;
}

// The rule applied to an exact result, saturated to T.
template <class T> T scale(std::int64_t r, int n)
{
    const std::int64_t lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
    if (n >= 0) return static_cast<T>(clamp(n == 0 ? r : divide_pow2_even(r, n), lo, hi));
    if (r == 0) return 0;
    if (n < -40) return static_cast<T>(r > 0 ? hi : lo);
    return static_cast<T>(clamp(r * (std::int64_t(1) << -n), lo, hi));
}

}  // namespace reference
