// Building the curves of a lookup table, once, at init. Integer types get finished tables;
// 32f gets per-segment coefficients that the lookup evaluates.
//
// Curve rules, per segment [L[i], L[i + 1]):
//  - nearest: every element of the segment maps to V[i];
//  - linear: (x - L[i]) * (V[i + 1] - V[i]) / (L[i + 1] - L[i]) + V[i], the division done
//    once as a reciprocal, plus 0.5 and truncated for the integer types;
//  - cubic: the cubic through the four levels around the segment, solved by Cramer's rule;
//    with fewer than four levels there is no such cubic, and the curve is linear.
// Elements below the first level and from the last level on map to themselves.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

#include "keli_types.h"
#include "stats/lut_spec.hpp"

namespace keli::lut {

// Truncates toward zero, then clamps to T's range.
template <class T> inline T saturate(double y)
{
    constexpr double lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
    const double t = std::trunc(y);
    return static_cast<T>(t < lo ? lo : t > hi ? hi : t);
}

// The cubic through (X[k], Y[k]), k = 0, 1, 2, with abscissae and ordinates relative to a
// fourth point at the origin: y(t) = ((a * t + b) * t * t + c * t) * d, d = 1 / determinant.
struct Cubic {
    double a, b, c, d;
    bool solvable;  // false when two of the four levels coincide
};

inline double det3(double m00, double m01, double m02, double m10, double m11, double m12, double m20, double m21,
                   double m22)
{
    return m00 * (m11 * m22 - m12 * m21) - m01 * (m10 * m22 - m12 * m20) + m02 * (m10 * m21 - m11 * m20);
}

inline Cubic solve_cubic(const double X[3], const double Y[3])
{
    double p3[3], p2[3];
    for (int k = 0; k < 3; ++k) {
        p2[k] = X[k] * X[k];
        p3[k] = p2[k] * X[k];
    }
    const double det = det3(p3[0], p2[0], X[0], p3[1], p2[1], X[1], p3[2], p2[2], X[2]);
    Cubic q;
    q.a = det3(Y[0], p2[0], X[0], Y[1], p2[1], X[1], Y[2], p2[2], X[2]);
    q.b = det3(p3[0], Y[0], X[0], p3[1], Y[1], X[1], p3[2], Y[2], X[2]);
    q.c = det3(p3[0], p2[0], Y[0], p3[1], p2[1], Y[1], p3[2], p2[2], Y[2]);
    q.d = 1.0 / det;
    q.solvable = det != 0 && std::isfinite(q.d) && std::isfinite(q.a) && std::isfinite(q.b) && std::isfinite(q.c);
    return q;
}

// First of the four levels that carry segment i's cubic: the segment's own neighbours, moved
// inwards at both ends of the curve.
inline int cubic_window(int i, int n)
{
    const int j = i - 1;
    return j < 0 ? 0 : j > n - 4 ? n - 4 : j;
}

// The cubic of segment i: points j, j + 2, j + 3 relative to point j + 1.
template <class Lv> inline Cubic segment_cubic(const Lv* L, const Lv* V, int i, int n)
{
    const int j = cubic_window(i, n);
    const double x0 = double(L[j + 1]), y0 = double(V[j + 1]);
    const double X[3] = {double(L[j]) - x0, double(L[j + 2]) - x0, double(L[j + 3]) - x0};
    const double Y[3] = {double(V[j]) - y0, double(V[j + 2]) - y0, double(V[j + 3]) - y0};
    return solve_cubic(X, Y);
}

// ---- integer tables ----------------------------------------------------------------------------

// Table entries: index 0 is the type's smallest value.
template <class T> inline void build_table(T* table, const Kel32s* L, const Kel32s* V, int n, Kind kind)
{
    constexpr std::int64_t lo = std::numeric_limits<T>::min();
    constexpr std::int64_t end = std::int64_t(std::numeric_limits<T>::max()) + 1;
    for (std::int64_t x = lo; x < end; ++x) table[x - lo] = static_cast<T>(x);
    auto clamp = [](std::int64_t v) { return v < lo ? lo : v > end ? end : v; };
    for (int i = 0; i + 1 < n; ++i) {
        const std::int64_t a = clamp(L[i]), b = clamp(L[i + 1]);
        if (b <= a) continue;
        if (kind == Kind::Nearest || b - a == 1) {
            const T v = saturate<T>(double(V[i]));
            for (std::int64_t x = a; x < b; ++x) table[x - lo] = v;
            continue;
        }
        Cubic q{};
        if (kind == Kind::Cubic) q = segment_cubic(L, V, i, n);
        if (kind == Kind::Cubic && q.solvable) {
            const int j = cubic_window(i, n);
            const double base = double(L[j + 1]), v0 = double(V[j + 1]);
            for (std::int64_t x = a; x < b; ++x) {
                const double t = double(x) - base;
                table[x - lo] = saturate<T>(((q.a * t + q.b) * t * t + q.c * t) * q.d + v0 + 0.5);
            }
        } else {
            const double r = 1.0 / (double(L[i + 1]) - double(L[i]));
            const double dv = double(V[i + 1]) - double(V[i]), v0 = double(V[i]), l0 = double(L[i]);
            for (std::int64_t x = a; x < b; ++x) table[x - lo] = saturate<T>((double(x) - l0) * dv * r + v0 + 0.5);
        }
    }
}

// ---- 32f coefficients --------------------------------------------------------------------------

// A cubic segment whose levels coincide is marked by a not-a-number first coefficient and
// keeps its linear slope in the third.
inline void build_coeffs(double* k, const float* L, const float* V, int n, Kind kind)
{
    auto slope = [&](int i) {
        if (!(L[i + 1] > L[i])) return 0.0;  // never looked up: no value lies inside
        return (double(V[i + 1]) - double(V[i])) * (1.0 / (double(L[i + 1]) - double(L[i])));
    };
    for (int i = 0; i + 1 < n; ++i) {
        if (kind == Kind::Linear) {
            k[i] = slope(i);
            continue;
        }
        double* s = k + kCubicCoeffs * i;
        const Cubic q = segment_cubic(L, V, i, n);
        if (q.solvable) {
            s[0] = q.a * q.d;
            s[1] = q.b * q.d;
            s[2] = q.c * q.d;
        } else {
            s[0] = std::numeric_limits<double>::quiet_NaN();
            s[1] = 0;
            s[2] = slope(i);
        }
    }
}

}  // namespace keli::lut
