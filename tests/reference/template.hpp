// Plain f64 model of template matching: direct sums over each window, pixels beyond the source
// counting as 0, the energies computed afresh per window (mean removed in a second pass).
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace ref {

struct MatchModel {
    int width = 0, height = 0;
    std::vector<double> value;   // the f32 forms' value, in f64
    std::vector<double> energy;  // the window's energy (mean removed when centred)
};

// `src` and `tpl` row-major, w x h each. measure: 0 correlation, 1 squared distance; norm 0,
// 1 (0x100) or 2 (0x200); shape 0 full, 1 valid, 2 same.
inline MatchModel match_template(int measure, const std::vector<double>& src, int W, int H, const std::vector<double>& tpl,
                                 int w, int h, int norm, int shape)
{
    const double tiny = std::ldexp(1.0, -23), tinySq = std::ldexp(1.0, -46);
    const int offX = shape == 0 ? w - 1 : shape == 2 ? w / 2 : 0, offY = shape == 0 ? h - 1 : shape == 2 ? h / 2 : 0;
    MatchModel m;
    m.width = shape == 0 ? W + w - 1 : shape == 2 ? W : W - w + 1;
    m.height = shape == 0 ? H + h - 1 : shape == 2 ? H : H - h + 1;
    const double N = double(w) * h;
    double tSum = 0, tSq = 0;
    for (double t : tpl) tSum += t, tSq += t * t;
    const double tMean = tSum / N, tNorm = std::sqrt(tSq), tNormFloor = std::max(tNorm, tiny);
    double tCentredSq = 0;
    for (double t : tpl) tCentredSq += (t - tMean) * (t - tMean);
    const bool centred = measure == 0 && norm == 2;
    auto pixel = [&](int x, int y) { return x < 0 || y < 0 || x >= W || y >= H ? 0.0 : src[std::size_t(y) * W + x]; };
    for (int oy = 0; oy < m.height; ++oy)
        for (int ox = 0; ox < m.width; ++ox) {
            const int x0 = ox - offX, y0 = oy - offY;
            double corr = 0, sq = 0, sum = 0, dist = 0;
            for (int j = 0; j < h; ++j)
                for (int i = 0; i < w; ++i) {
                    const double p = pixel(x0 + i, y0 + j), t = tpl[std::size_t(j) * w + i];
                    corr += p * (centred ? t - tMean : t);
                    sq += p * p;
                    sum += p;
                    dist += (p - t) * (p - t);
                }
            double e = sq;
            if (centred) {
                const double mean = sum / N;
                e = 0;
                for (int j = 0; j < h; ++j)
                    for (int i = 0; i < w; ++i) e += (pixel(x0 + i, y0 + j) - mean) * (pixel(x0 + i, y0 + j) - mean);
            }
            double v;
            if (measure == 1) {
                v = dist;
                if (norm == 1) {
                    const double d = std::max(std::sqrt(sq < tiny ? 0.0 : sq) * tNormFloor, tiny);
                    v = dist / d;
                }
            } else if (norm == 0) {
                v = corr;
            } else if (norm == 1) {
                v = e <= tiny ? 0.0 : corr / (std::sqrt(e) * tNormFloor);
            } else {
                const double fe = N * tinySq, fd = std::max(tinySq, tCentredSq);
                v = e <= fe ? 0.0 : corr / std::sqrt(std::max(e * tCentredSq, fd * fe));
            }
            m.value.push_back(v);
            m.energy.push_back(e);
        }
    return m;
}

// The 8u forms: saturate(round-half-even(2^-scaleFactor * v)).
inline double to_8u(double v, int scaleFactor)
{
    const double r = std::nearbyint(std::ldexp(v, -scaleFactor));
    return std::min(255.0, std::max(0.0, r));
}

}  // namespace ref
