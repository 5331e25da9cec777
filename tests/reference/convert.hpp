// Plain scalar model of the element conversions without rounding: the value is kept when it
// fits and clipped to the destination's range when it does not. A float destination takes the
// integer through one conversion from 64 bits, rounded in the processor's current mode.
#pragma once

#include <cstdint>
#include <limits>
#include <type_traits>

namespace reference {

template <class D, class S> D convert(S s)
{
    if constexpr (std::is_floating_point_v<D>) {
        volatile std::int64_t wide = static_cast<std::int64_t>(s);  // kept out of constant folding
        return static_cast<D>(wide);
    } else {
        const std::int64_t v = s, lo = std::numeric_limits<D>::min(), hi = std::numeric_limits<D>::max();
        return static_cast<D>(v < lo ? lo : v > hi ? hi : v);
    }
}

}  // namespace reference
