// Plain model of the histogram of oriented gradients: one pixel, one block, one window at a
// time, in f32 with the same order of operations as the rule states, with no vectors. The
// pixel source is a callback, so that tests choose the border and memory around the region.
#pragma once

#include <cmath>
#include <cstdint>
#include <functional>
#include <vector>

#include "keli_types.h"
#include "reference/border.hpp"

namespace reference {

struct HogConfig {
    int columnMajor, cell, block, stride, nbins;
    float sigma, threshold;
    int winW, winH;
};

inline int hog_blocks(int win, int block, int stride) { return stride == 0 ? 1 : (win - block) / stride + 1; }
inline int hog_length(const HogConfig& c)
{
    return hog_blocks(c.winW, c.block, c.stride) * hog_blocks(c.winH, c.block, c.stride) * 4 * c.nbins;
}

// The four cell weights of block pixel (x, y), in f64, each rounded once to f32.
inline void hog_weights(const HogConfig& c, int x, int y, float out[4])
{
    const int B = c.block;
    const auto first = [&](int px, int py) {
        if (px >= B - c.cell / 2 || py >= B - c.cell / 2) return 0.0;
        const double fx = (px + 0.5) / c.cell - 0.5, fy = (py + 0.5) / c.cell - 0.5;
        const double gx = px - B / 2 + 0.5, gy = py - B / 2 + 0.5;
        const double sigma = c.sigma;
        return (1 - std::fabs(fy)) * (1 - std::fabs(fx)) * std::exp(-(gy * gy + gx * gx) * (1 / (2 * sigma * sigma)));
    };
    out[0] = float(first(x, y));
    out[1] = float(first(x, B - 1 - y));
    out[2] = float(first(B - 1 - x, y));
    out[3] = float(first(B - 1 - x, B - 1 - y));
}

struct HogVote {
    int lo, hi;
    float first, second;
};

// Bin pair and votes of one gradient.
inline HogVote hog_vote(float dx, float dy, int nbins)
{
    const float eps = 2.220446e-16f;
    float a;
    if (dy * dy <= dx * dx) {
        a = dx * dy / (dx * dx + 0.28f * dy * dy + eps);
        if (dx < 0) a += 3.1415927f;
        else if (dy < 0) a += 6.2831855f;
    } else {
        a = -dx * dy / (dy * dy + 0.28f * dx * dx + eps);
        a += dy >= 0 ? 1.5707964f : 4.712389f;
    }
    const float s = float(nbins * 0.3183098861837907);
    const float b = a * s - 0.5f;
    const float fl = std::floor(b);
    int lo = fl >= -1e9f && fl <= 1e9f ? int(fl) : INT32_MIN;
    if (lo > nbins - 1) lo -= nbins;
    if (lo < 0) lo += nbins;
    if (lo < 0 || lo >= nbins) lo = 0;  // no angle: a not-a-number gradient
    const int hi = lo + 1 == nbins ? 0 : lo + 1;
    const float f = b - fl;
    const float m = std::sqrt(dx * dx + dy * dy);
    return {lo, hi, m * (1.0f - f), m * f};
}

// Pixel (x, y, channel) of the source as f32, for x in -1 .. w and y in -1 .. h of the region.
using HogPixel = std::function<float(int x, int y, int c)>;

// Votes of every pixel of the cut region w x h: `pixel` answers for every position the
// gradient reads, borders included.
inline std::vector<HogVote> hog_votes(const HogPixel& pixel, int w, int h, int channels, int nbins)
{
    std::vector<HogVote> votes(std::size_t(w) * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            float dx = 0, dy = 0, best = 0;
            for (int c = 0; c < channels; ++c) {
                const float cx = pixel(x + 1, y, c) - pixel(x - 1, y, c);
                const float cy = pixel(x, y + 1, c) - pixel(x, y - 1, c);
                const float m = cx * cx + cy * cy;
                if (c == 0 || m > best) dx = cx, dy = cy, best = m;
            }
            votes[std::size_t(y) * w + x] = hog_vote(dx, dy, nbins);
        }
    return votes;
}

// The normalised block whose top-left pixel is (bx, by), cell by cell.
inline std::vector<float> hog_block(const HogConfig& c, const std::vector<HogVote>& votes, int w, int bx, int by)
{
    float hist[16][4] = {};
    for (int y = 0; y < c.block; ++y)
        for (int x = 0; x < c.block; ++x) {
            float wt[4];
            hog_weights(c, x, y, wt);
            const HogVote& v = votes[std::size_t(by + y) * w + bx + x];
            for (int k = 0; k < 4; ++k) hist[v.lo][k] += v.first * wt[k];
            for (int k = 0; k < 4; ++k) hist[v.hi][k] += v.second * wt[k];
        }
    const auto norm = [&] {
        float lane[4] = {};
        for (int j = 0; j < c.nbins; ++j)
            for (int k = 0; k < 4; ++k) lane[k] += hist[j][k] * hist[j][k];
        const float q = (lane[0] + lane[1]) + (lane[2] + lane[3]);
        const float eps = 1.1920929e-7f;
        return 1.0f / std::sqrt(q + eps + eps);
    };
    const float i1 = norm();
    for (int j = 0; j < c.nbins; ++j)
        for (int k = 0; k < 4; ++k) {
            const float v = hist[j][k] * i1;
            hist[j][k] = v < c.threshold ? v : c.threshold;
        }
    const float i2 = norm();
    std::vector<float> out(4 * c.nbins);
    for (int k = 0; k < 4; ++k)
        for (int j = 0; j < c.nbins; ++j) out[k * c.nbins + j] = hist[j][k] * i2;
    return out;
}

// The whole output for a list of locations (an empty list stands for a null pointer with one
// location) on a region of roiW x roiH.
inline std::vector<float> hog_descriptors(const HogConfig& c, const HogPixel& pixel, int roiW, int roiH, int channels,
                                          const std::vector<KeliPoint>& locations)
{
    const auto cut = [&](int size) { return c.stride == 0 ? size : size - (size - c.block) % c.stride; };
    const int w = cut(roiW), h = cut(roiH);
    const std::vector<HogVote> votes = hog_votes(pixel, w, h, channels, c.nbins);
    const int bx = hog_blocks(c.winW, c.block, c.stride), by = hog_blocks(c.winH, c.block, c.stride);
    std::vector<float> out;
    const std::vector<KeliPoint> list = locations.empty() ? std::vector<KeliPoint>{{0, 0}} : locations;
    for (const KeliPoint& p : list) {
        if (p.x < 0 || p.y < 0 || std::int64_t(p.x) + c.winW > w || std::int64_t(p.y) + c.winH > h) continue;
        std::vector<float> window(hog_length(c));
        for (int j = 0; j < by; ++j)
            for (int i = 0; i < bx; ++i) {
                const std::vector<float> block = hog_block(c, votes, w, p.x + i * c.stride, p.y + j * c.stride);
                const int index = c.columnMajor ? i * by + j : j * bx + i;
                std::copy(block.begin(), block.end(), window.begin() + index * 4 * c.nbins);
            }
        out.insert(out.end(), window.begin(), window.end());
    }
    return out;
}

}  // namespace reference
