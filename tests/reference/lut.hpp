// Plain models of lookup curves, element by element, with no tables.
//
// Integer types: each segment [L[i], L[i + 1]), its ends clamped to the type's range plus one,
// maps its elements to V[i] (nearest, or a segment of one element), to the linear rule
// trunc(((x - L[i]) * (V[i + 1] - V[i])) * (1 / (L[i + 1] - L[i])) + V[i] + 0.5), or to the
// cubic through four neighbouring levels solved by Cramer's rule; results saturate. Elements
// outside every segment keep their value.
//
// 32f: the first segment in level order that holds v, by exact comparison; nearest V[i],
// linear and cubic evaluated in doubles; outside values and not-a-number stay.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

namespace reference {

enum class Curve { Nearest, Linear, Cubic };

template <class T> T saturate_trunc(double y)
{
    const double t = std::trunc(y);
    if (t < double(std::numeric_limits<T>::min())) return std::numeric_limits<T>::min();
    if (t > double(std::numeric_limits<T>::max())) return std::numeric_limits<T>::max();
    return T(t);
}

inline double det(const double m[3][3])
{
    return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) - m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
           m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
}

// Cramer's rule for the cubic through the origin and the three points (X[k], Y[k]):
// coefficients of t^3, t^2, t as numerator determinants, d = 1 / determinant.
struct CubicFit {
    double a, b, c, d;
    bool ok;
};

inline CubicFit fit_cubic(const double X[3], const double Y[3])
{
    double m[3][3];
    for (int k = 0; k < 3; ++k) {
        m[k][0] = X[k] * X[k] * X[k];
        m[k][1] = X[k] * X[k];
        m[k][2] = X[k];
    }
    CubicFit f;
    const double D = det(m);
    double col[3];
    for (int j = 0; j < 3; ++j) {
        double r[3][3];
        for (int k = 0; k < 3; ++k)
            for (int q = 0; q < 3; ++q) r[k][q] = q == j ? Y[k] : m[k][q];
        col[j] = det(r);
    }
    f.a = col[0];
    f.b = col[1];
    f.c = col[2];
    f.d = 1.0 / D;
    f.ok = D != 0 && std::isfinite(f.d) && std::isfinite(f.a) && std::isfinite(f.b) && std::isfinite(f.c);
    return f;
}

template <class Lv> CubicFit segment_fit(const std::vector<Lv>& L, const std::vector<Lv>& V, int i, int* base)
{
    const int n = int(L.size());
    int j = i - 1;
    if (j > n - 4) j = n - 4;
    if (j < 0) j = 0;
    *base = j + 1;
    double X[3], Y[3];
    const int pts[3] = {j, j + 2, j + 3};
    for (int k = 0; k < 3; ++k) {
        X[k] = double(L[pts[k]]) - double(L[j + 1]);
        Y[k] = double(V[pts[k]]) - double(V[j + 1]);
    }
    return fit_cubic(X, Y);
}

template <class T>
T lut_integer(std::int64_t x, const std::vector<std::int32_t>& L, const std::vector<std::int32_t>& V, Curve kind)
{
    const std::int64_t lo = std::numeric_limits<T>::min(), end = std::int64_t(std::numeric_limits<T>::max()) + 1;
    const int n = int(L.size());
    if (kind == Curve::Cubic && n < 4) kind = Curve::Linear;
    auto clamp = [&](std::int64_t v) { return v < lo ? lo : v > end ? end : v; };
    T out = T(x);
    for (int i = 0; i + 1 < n; ++i) {
        const std::int64_t a = clamp(L[i]), b = clamp(L[i + 1]);
        if (b <= a || x < a || x >= b) continue;
        if (kind == Curve::Nearest || b - a == 1) {
            out = saturate_trunc<T>(V[i]);
            continue;
        }
        int base = 0;
        const CubicFit f = kind == Curve::Cubic ? segment_fit(L, V, i, &base) : CubicFit{0, 0, 0, 0, false};
        if (f.ok) {
            const double t = double(x) - double(L[base]);
            out = saturate_trunc<T>(((f.a * t + f.b) * t * t + f.c * t) * f.d + double(V[base]) + 0.5);
        } else {
            const double r = 1.0 / (double(L[i + 1]) - double(L[i]));
            out = saturate_trunc<T>((double(x) - double(L[i])) * (double(V[i + 1]) - double(V[i])) * r + double(V[i]) + 0.5);
        }
    }
    return out;
}

// `kind` is the kind the curve was built as: the caller resolves the fall-back of a cubic
// with too few levels.
inline float lut_float(float v, const std::vector<float>& L, const std::vector<float>& V, Curve kind)
{
    const int n = int(L.size());
    for (int i = 0; i + 1 < n; ++i) {
        if (!(v >= L[i] && L[i + 1] > v)) continue;
        if (kind == Curve::Nearest) return V[i];
        const double slope = (double(V[i + 1]) - double(V[i])) * (1.0 / (double(L[i + 1]) - double(L[i])));
        int base = 0;
        const CubicFit f = kind == Curve::Cubic ? segment_fit(L, V, i, &base) : CubicFit{0, 0, 0, 0, false};
        if (!f.ok) return float((double(v) - double(L[i])) * slope + double(V[i]));
        const double t = double(v) - double(L[base]);
        return float(((f.a * f.d * t + f.b * f.d) * t * t + f.c * f.d * t) + double(V[base]));
    }
    return v;
}

}  // namespace reference
