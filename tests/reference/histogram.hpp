// Plain models of histogram counting: a pixel counts in bin i when level[i] <= v < level[i + 1],
// by exact comparison, except on the two paths whose rule is a formula: the direct division of
// small evenly spaced 16-bit images and the multiply-and-truncate of uniform 32f images.
#pragma once

#include <climits>
#include <cmath>
#include <cstdint>
#include <vector>

namespace reference {

// Integer levels: every bin whose half-open range holds v.
inline void count_exact(std::vector<std::uint32_t>& hist, const std::vector<std::int64_t>& L, std::int64_t v)
{
    for (std::size_t i = 0; i + 1 < L.size(); ++i)
        if (L[i] <= v && v < L[i + 1]) ++hist[i];
}

// Float levels: the first bin that holds v; nothing for a not-a-number.
inline int float_bin(const std::vector<float>& L, float v)
{
    for (std::size_t i = 0; i + 1 < L.size(); ++i)
        if (L[i] <= v && v < L[i + 1]) return int(i);
    return -1;
}

// Direct path: bin = trunc(float(v - first) / float(step)), kept below the bin count.
inline int direct_bin(const std::vector<std::int64_t>& L, std::int64_t v)
{
    const std::int64_t bins = std::int64_t(L.size()) - 1;
    const std::int64_t step = (L.back() - L.front()) / bins;
    if (!(L.front() <= v && v < L.back())) return -1;
    const float q = float(std::uint32_t(v - L.front())) / float(step);
    return q >= float(bins - 1) ? int(bins - 1) : int(q);
}

// Uniform 32f path: t = v * inv - inv * first in float; bin trunc(t) unless t lies within 0.001
// of an integer, where the bins trunc(t) - 1 ... trunc(t) + 1 are tried exactly.
inline int uniform_bin(const std::vector<float>& L, float step, float v)
{
    const int bins = int(L.size()) - 1;
    if (!(v >= L.front() && v < L.back())) return -1;
    const float inv = 1.0f / step;
    const float off = inv * L.front();
    const float t = v * inv - off;
    const std::int32_t i = (t > -2147483648.0f && t < 2147483648.0f) ? std::int32_t(t) : INT_MIN;
    const float frac = t - std::trunc(t);
    const bool nearLevel = frac < 0.001f || frac > 0.999f;
    if (!nearLevel && i >= 0 && i < bins) return i;
    for (std::int64_t b = std::int64_t(i) - 1; b <= std::int64_t(i) + 1; ++b)
        if (b >= 0 && b < bins && L[b] <= v && v < L[b + 1]) return int(b);
    return -1;
}

}  // namespace reference
