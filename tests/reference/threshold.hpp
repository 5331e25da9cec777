// Plain models of the threshold rules and of Otsu's threshold.
#pragma once

#include <cmath>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "keli_types.h"

namespace reference {

enum class ThresholdRule { Lt, Gt, LtVal, GtVal, LtGt };

// One element. Integers compare as the wide values they are. For floats a not-a-number source
// is spelled out case by case: every rule replaces it except GtVal, which keeps it.
template <class T>
T threshold(ThresholdRule rule, T s, T t, T v = T(), T t2 = T(), T v2 = T())
{
    if constexpr (std::is_floating_point_v<T>) {
        if (std::isnan(s)) {
            switch (rule) {
            case ThresholdRule::Lt:
            case ThresholdRule::Gt: return t;
            case ThresholdRule::LtVal:
            case ThresholdRule::LtGt: return v;
            case ThresholdRule::GtVal: return s;
            }
        }
        // A not-a-number threshold: the plain forms hand it on, the less-value forms replace
        // everything, and a greater side matches nothing.
        if (std::isnan(t) && (rule == ThresholdRule::LtVal || rule == ThresholdRule::LtGt)) return v;
    }
    const double ws = s, wt = t, wt2 = t2;
    switch (rule) {
    // The plain forms return the threshold unless s lies strictly beyond it; on equal values
    // that is the same value (for floats with the threshold's sign of zero).
    case ThresholdRule::Lt: return ws > wt ? s : t;
    case ThresholdRule::Gt: return ws < wt ? s : t;
    case ThresholdRule::LtVal: return ws < wt ? v : s;
    case ThresholdRule::GtVal: return ws > wt ? v : s;
    case ThresholdRule::LtGt: return ws < wt ? v : ws > wt2 ? v2 : s;
    }
    return s;
}

// Otsu's threshold over a histogram of 256 levels, level centres as abscissae; levels where
// a class weight is within single-precision epsilon of 0 or 1 are skipped and leave the class
// moment alone. `skipKeepsMoment = false` gives the textbook variant that accumulates the
// moment on every level, which tests use to show that an input tells the two apart.
inline int otsu(const std::vector<std::uint64_t>& h, bool skipKeepsMoment = true)
{
    const double eps = 1.1920928955078125e-7;
    double n = 0, sum = 0;
    for (int i = 0; i < 256; ++i) {
        n += double(h[i]);
        sum += (i + 0.5) * double(h[i]);
    }
    const double inv = n > eps ? 1 / n : 0;
    const double mu = sum * inv;
    double w0 = 0, m = 0, best = 0;
    int level = 0;
    for (int i = 0; i < 256; ++i) {
        const double p = double(h[i]) * inv;
        w0 += p;
        const double w1 = 1 - w0;
        const bool skip = w0 < eps || w1 < eps || w0 > 0.9999998807907104 || w1 > 0.9999998807907104;
        if (skip && skipKeepsMoment) continue;
        m += p * (i + 0.5);
        if (skip) continue;
        const double d = m * w1 + (m - mu) * w0;
        const double q = d * d / (w1 * w0);
        if (q > best) {
            best = q;
            level = i;
        }
    }
    return level;
}

}  // namespace reference
