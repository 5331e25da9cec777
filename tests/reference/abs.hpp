// Plain model of the absolute value: widen, negate, saturate; for floats clear the sign bit.
#pragma once

#include <cstdint>
#include <cstring>

#include "keli_types.h"

namespace reference {

inline Kel16s abs(Kel16s v)
{
    const std::int32_t wide = v < 0 ? -std::int32_t(v) : v;
    return static_cast<Kel16s>(wide > 32767 ? 32767 : wide);
}

inline Kel32f abs(Kel32f v)
{
    std::uint32_t bits;
    std::memcpy(&bits, &v, 4);
    bits &= ~(1u << 31);
    std::memcpy(&v, &bits, 4);
    return v;
}

}  // namespace reference
