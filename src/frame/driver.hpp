// Row drivers: walk a region from its first row to its last and hand each row to a kernel.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "keli_types.h"

namespace keli {

// How a row pointer advances by its step.
//  Bytes:    by the step in bytes, as it stands.
//  Elements: by `step / sizeof(T)` elements, the shift dropping the low bits, so that a
//            16-bit image with an odd step advances by `step - 1` bytes. Some families have
//            always walked this way and callers may depend on it.
enum class StepRule { Bytes, Elements };

template <class T, StepRule R = StepRule::Bytes> struct RowPtr {
    T* p;
    std::ptrdiff_t step;

    void next()
    {
        if constexpr (R == StepRule::Bytes || sizeof(T) == 1) {
            using Byte = std::conditional_t<std::is_const_v<T>, const char, char>;
            p = reinterpret_cast<T*>(reinterpret_cast<Byte*>(p) + step);
        } else {
            constexpr int shift = sizeof(T) == 2 ? 1 : sizeof(T) == 4 ? 2 : 3;
            p += step >> shift;
        }
    }
};

template <StepRule R = StepRule::Bytes, class T> inline RowPtr<T, R> row_ptr(T* p, std::ptrdiff_t step)
{
    return {p, step};
}

// Calls `row(p...)` for each of `height` rows. A row that returns a status takes part in the
// warning rule: the first non-zero status met in row order is the result, and the walk goes
// on over all remaining rows regardless.
template <class Row, class... Ptr> inline KelStatus walk_rows(std::int64_t height, Row&& row, Ptr... ptrs)
{
    KelStatus first = kelStatusOk;
    for (std::int64_t y = 0; y < height; ++y) {
        if constexpr (std::is_void_v<decltype(row(ptrs.p...))>) {
            row(ptrs.p...);
        } else {
            KelStatus s = row(ptrs.p...);
            if (first == kelStatusOk) first = s;
        }
        (ptrs.next(), ...);
    }
    return first;
}

}  // namespace keli
