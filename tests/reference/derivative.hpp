// Plain model of the derivative masks: the masks written out as the tables of coefficients,
// the window read pixel by pixel through the edge model, integer sums in 64 bits over the whole
// table, f32 sums in their fixed order (each column's weighted sum top to bottom, then the
// column sums left to right, zero weights skipped).
#pragma once

#include <cstdint>

#include "reference/filter.hpp"

namespace reference {

// A mask by filter code: the 3x3 table as written, and the 5x5 one as column weights (down)
// times row weights (along). Roberts is the 3x3 table with its two taps.
struct DerivativeMask {
    int table3[3][3];
    int col3[3], row3[3];  // the same 3x3 mask split, used for the f32 order
    int col5[5], row5[5];
};

inline DerivativeMask derivative_mask(int code)
{
    switch (code) {
    case 0: return {{{1, 0, -1}, {2, 0, -2}, {1, 0, -1}}, {1, 2, 1}, {1, 0, -1}, {1, 4, 6, 4, 1}, {1, 2, 0, -2, -1}};
    case 1: return {{{-1, -2, -1}, {0, 0, 0}, {1, 2, 1}}, {-1, 0, 1}, {1, 2, 1}, {-1, -2, 0, 2, 1}, {1, 4, 6, 4, 1}};
    case 2: return {{{-3, 0, 3}, {-10, 0, 10}, {-3, 0, 3}}, {3, 10, 3}, {-1, 0, 1}, {}, {}};
    case 3: return {{{-3, -10, -3}, {0, 0, 0}, {3, 10, 3}}, {-1, 0, 1}, {3, 10, 3}, {}, {}};
    case 4: return {{{1, 0, -1}, {1, 0, -1}, {1, 0, -1}}, {1, 1, 1}, {1, 0, -1}, {}, {}};
    case 5: return {{{-1, -1, -1}, {0, 0, 0}, {1, 1, 1}}, {-1, 0, 1}, {1, 1, 1}, {}, {}};
    case 6: return {{{-1, 0, 0}, {0, 1, 0}, {0, 0, 0}}, {}, {}, {}, {}};
    case 7: return {{{0, 0, -1}, {0, 1, 0}, {0, 0, 0}}, {}, {}, {}, {}};
    case 8: return {{{1, -2, 1}, {2, -4, 2}, {1, -2, 1}}, {1, 2, 1}, {1, -2, 1}, {1, 4, 6, 4, 1}, {1, 0, -2, 0, 1}};
    case 9: return {{{1, 2, 1}, {-2, -4, -2}, {1, 2, 1}}, {1, -2, 1}, {1, 2, 1}, {1, 0, -2, 0, 1}, {1, 4, 6, 4, 1}};
    default: return {{{-1, 0, 1}, {-2, 0, 2}, {-1, 0, 1}}, {1, 2, 1}, {-1, 0, 1}, {1, 4, 6, 4, 1}, {-1, -2, 0, 2, 1}};
    }
}

inline int derivative_coefficient(const DerivativeMask& m, int k, int j, int i)
{
    return k == 3 ? m.table3[j][i] : m.col5[j] * m.row5[i];
}

// Output (x, y) of mask `code` of size k (3 or 5); `get(x, y)` reads the image, margin included.
// Integer sources give the exact sum; the caller saturates where the member does.
template <class T, class Get>
std::int64_t derivative_sum(Get get, int code, int k, int border, int width, int height, T value, int x, int y)
{
    const DerivativeMask m = derivative_mask(code);
    const Window w{k, k, k >> 1, k >> 1};
    std::int64_t s = 0;
    for (int j = 0; j < k; ++j)
        for (int i = 0; i < k; ++i) {
            const auto at = edge_source(border, w, width, height, x - w.ax + i, y - w.ay + j);
            s += std::int64_t(derivative_coefficient(m, k, j, i)) * (at.inside ? get(at.x, at.y) : value);
        }
    return s;
}

template <class Get>
float derivative_sum_f32(Get get, int code, int k, int border, int width, int height, float value, int x, int y)
{
    const DerivativeMask m = derivative_mask(code);
    const Window w{k, k, k >> 1, k >> 1};
    const auto pixel = [&](int i, int j) {
        const auto at = edge_source(border, w, width, height, x - w.ax + i, y - w.ay + j);
        return at.inside ? get(at.x, at.y) : value;
    };
    if (code == 6 || code == 7) return pixel(1, 1) - pixel(code == 6 ? 0 : 2, 0);
    const int* col = k == 3 ? m.col3 : m.col5;
    const int* row = k == 3 ? m.row3 : m.row5;
    float s = 0;
    bool firstColumn = true;
    for (int i = 0; i < k; ++i) {
        if (row[i] == 0) continue;
        float c = 0;
        bool first = true;
        for (int j = 0; j < k; ++j) {
            if (col[j] == 0) continue;
            const float t = float(col[j]) * pixel(i, j);
            c = first ? t : c + t;
            first = false;
        }
        const float t = float(row[i]) * c;
        s = firstColumn ? t : s + t;
        firstColumn = false;
    }
    return s;
}

}  // namespace reference
