// Otsu's threshold. The histogram keeps two sets of 32-bit counters, one for even and one for
// odd columns, so that a run of equal pixels does not serialise on one counter; the sets are
// added at the end. The search then walks the levels in double precision with the levels'
// centres (i + 0.5) as abscissae.
#include "threshold/otsu.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "frame/check.hpp"

namespace keli {

namespace {

constexpr double kEps = 1.1920928955078125e-7;          // the single-precision epsilon
constexpr double kAlmostOne = 0.9999998807907104;       // 1 minus that epsilon, as a float

void histogram(const Kel8u* src, int step, KeliSize roi, std::uint32_t (&h)[256])
{
    std::uint32_t even[256] = {}, odd[256] = {};
    const std::size_t width = static_cast<std::size_t>(roi.width);
    const Kel8u* row = src;
    if (width == 1) {
        // One column: eight rows at a time into the even set.
        int y = 0;
        for (; y + 8 <= roi.height; y += 8, row += 8 * static_cast<std::ptrdiff_t>(step))
            for (int k = 0; k < 8; ++k) ++even[row[k * static_cast<std::ptrdiff_t>(step)]];
        for (; y < roi.height; ++y, row += step) ++even[row[0]];
    } else {
        for (int y = 0; y < roi.height; ++y, row += step) {
            std::size_t x = 0;
            for (; x + 8 <= width; x += 8) {
                std::uint64_t eight;
                std::memcpy(&eight, row + x, 8);
                for (int k = 0; k < 8; k += 2) {
                    ++even[(eight >> (8 * k)) & 0xFF];
                    ++odd[(eight >> (8 * k + 8)) & 0xFF];
                }
            }
            for (; x + 2 <= width; x += 2) {
                ++even[row[x]];
                ++odd[row[x + 1]];
            }
            if (x < width) ++even[row[x]];
        }
    }
    for (int i = 0; i < 256; ++i) h[i] = even[i] + odd[i];
}

}  // namespace

KelStatus otsu_threshold(const Kel8u* pSrc, int srcStep, KeliSize roi, Kel8u* pThreshold)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pThreshold), check::size(roi)})) return s;
    if (srcStep < roi.width) return kelStatusBadStep;

    std::uint32_t h[256];
    histogram(pSrc, srcStep, roi, h);

    double n = 0, sum = 0;
    for (int i = 0; i < 256; ++i) {
        n += h[i];
        sum += (i + 0.5) * h[i];
    }
    const double invN = std::fabs(n) > kEps ? 1.0 / n : 0.0;
    const double mu = sum * invN;

    // A level at which either class is (nearly) empty is passed over entirely: its share
    // counts in the weight w0 but is never added to the lower class's moment m.
    double w0 = 0, m = 0, best = 0, t = 0;
    for (int i = 0; i < 256; ++i) {
        const double p = h[i] * invN;
        w0 = w0 + p;
        const double w1 = 1 - w0;
        if (std::min(w0, w1) < kEps || std::max(w0, w1) > kAlmostOne) continue;
        m = m + p * (i + 0.5);
        const double d = m * w1 + (m - mu) * w0;
        const double q = d * d / (w1 * w0);
        // Strictly greater: among equal maxima the lowest level stands.
        if (q > best) {
            best = q;
            t = i + 0.5;
        }
    }
    *pThreshold = static_cast<Kel8u>(t);
    return kelStatusOk;
}

}  // namespace keli
