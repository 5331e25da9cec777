// Plain model of the border kinds: the source column (or row) that an outside coordinate reads,
// written from the rule with a loop rather than a remainder, so that it cannot share a mistake
// with the library's phase arithmetic.
#pragma once

#include <cstdint>

namespace reference {

enum class BorderKind { Repl, Wrap, Mirror, Const };

// Index that coordinate x reads along an axis of n pixels; -1 for the constant kind outside.
inline std::int64_t border_source(BorderKind kind, std::int64_t x, std::int64_t n)
{
    if (x >= 0 && x < n) return x;
    switch (kind) {
    case BorderKind::Const: return -1;
    case BorderKind::Repl: return x < 0 ? 0 : n - 1;
    case BorderKind::Wrap:
        while (x < 0) x += n;
        while (x >= n) x -= n;
        return x;
    case BorderKind::Mirror: {
        if (n == 1) return 0;
        // Walk out from the image, bouncing off each edge pixel without repeating it.
        std::int64_t at = x < 0 ? 0 : n - 1, dir = x < 0 ? -1 : 1;
        for (std::int64_t steps = x < 0 ? -x : x - (n - 1); steps > 0; --steps) {
            if (at + dir < 0 || at + dir >= n) dir = -dir;
            at += dir;
        }
        return at;
    }
    }
    return -1;
}

}  // namespace reference
