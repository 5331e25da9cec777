// Plain models of image moments, straight from their definitions in long double: raw moments
// about any origin, central moments about the centroid, their normalised forms and Hu's
// invariants. `value(x, y)` gives the element of one channel.
#pragma once

#include <cmath>

namespace reference {

using Wide = long double;

// sum over the region of (x + ox)^p (y + oy)^q v; with `magnitude` the same sum of absolute
// terms, the scale against which a rounding error is measured.
template <class Value>
Wide raw_moment(int width, int height, Value value, int p, int q, Wide ox = 0, Wide oy = 0, bool magnitude = false)
{
    Wide sum = 0;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const Wide term = std::pow(x + ox, Wide(p)) * std::pow(y + oy, Wide(q)) * Wide(value(x, y));
            sum += magnitude ? std::fabs(term) : term;
        }
    return sum;
}

template <class Value> Wide central_moment(int width, int height, Value value, int p, int q)
{
    const Wide m00 = raw_moment(width, height, value, 0, 0);
    const Wide xb = raw_moment(width, height, value, 1, 0) / m00, yb = raw_moment(width, height, value, 0, 1) / m00;
    return raw_moment(width, height, value, p, q, -xb, -yb);
}

template <class Value> Wide normalized_central_moment(int width, int height, Value value, int p, int q)
{
    return central_moment(width, height, value, p, q) /
           std::pow(raw_moment(width, height, value, 0, 0), Wide(p + q + 2) / 2);
}

template <class Value> void hu_moments(int width, int height, Value value, Wide (&h)[7])
{
    auto eta = [&](int p, int q) { return normalized_central_moment(width, height, value, p, q); };
    const Wide n20 = eta(2, 0), n02 = eta(0, 2), n11 = eta(1, 1);
    const Wide n30 = eta(3, 0), n21 = eta(2, 1), n12 = eta(1, 2), n03 = eta(0, 3);
    h[0] = n20 + n02;
    h[1] = (n20 - n02) * (n20 - n02) + 4 * n11 * n11;
    h[2] = (3 * n21 - n03) * (3 * n21 - n03) + (n30 - 3 * n12) * (n30 - 3 * n12);
    h[3] = (n30 + n12) * (n30 + n12) + (n21 + n03) * (n21 + n03);
    const Wide a = n30 + n12, b = n21 + n03;
    h[4] = (3 * n21 - n03) * b * (3 * a * a - b * b) + (n30 - 3 * n12) * a * (a * a - 3 * b * b);
    h[5] = 4 * n11 * a * b + (a * a - b * b) * (n20 - n02);
    h[6] = (3 * n21 - n03) * a * (a * a - 3 * b * b) - (n30 - 3 * n12) * b * (3 * a * a - b * b);
}

}  // namespace reference
