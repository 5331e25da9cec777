// Plain models of the flips and the transpose: which source pixel lands at destination (x, y).
#pragma once

#include <utility>

namespace reference {

// Source pixel of destination pixel (x, y) of a W x H destination under `flip` (0 rows
// reversed, 1 columns reversed, 2 both, 3 main diagonal, 4 other diagonal).
inline std::pair<int, int> mirror_source(int flip, int x, int y, int W, int H)
{
    switch (flip) {
    case 0: return {x, H - 1 - y};
    case 1: return {W - 1 - x, y};
    case 2: return {W - 1 - x, H - 1 - y};
    case 3: return {y, x};
    default: return {H - 1 - y, W - 1 - x};
    }
}

}  // namespace reference
