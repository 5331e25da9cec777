// keliHistogram: every member against the plain model over the geometry sweep and the spec
// kinds that choose its paths, the values where the level rules bite, the spec layout that
// callers read, and the check order of every entry.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <vector>

#include "keli.h"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "kit/sweep.hpp"
#include "reference/histogram.hpp"

namespace {

constexpr std::uint32_t kHistCanary = 0xA5A5A5A5u;
constexpr int kGuardBins = 8;

template <class T> constexpr KelDataType type_of()
{
    if constexpr (std::is_same_v<T, Kel8u>) return kel8u;
    else if constexpr (std::is_same_v<T, Kel16u>) return kel16u;
    else if constexpr (std::is_same_v<T, Kel16s>) return kel16s;
    else return kel32f;
}

// A spec made through the library, with the levels it must hold computed here independently.
struct Spec {
    std::vector<Kel8u> mem;
    std::vector<std::vector<double>> levels;  // as stored: integers or floats
    std::vector<float> step;
    bool uniform = false;
    int bufferBytes = 0;
    Kel8u* data() { return mem.data(); }
};

Spec make_spec(KelDataType type, const std::vector<std::vector<float>>& levels)
{
    Spec s;
    const int channels = int(levels.size());
    std::vector<int> n;
    std::vector<const Kel32f*> p;
    for (const auto& l : levels) {
        n.push_back(int(l.size()));
        p.push_back(l.data());
        std::vector<double> stored;
        for (float v : l) stored.push_back(type == kel32f ? double(v) : std::ceil(double(v)));
        s.levels.push_back(stored);
    }
    int specBytes = 0;
    EXPECT_EQ(keliHistogramGetBufferSize(type, {1, 1}, n.data(), channels, 0, &specBytes, &s.bufferBytes), kelStatusOk);
    s.mem.assign(specBytes, 0xEE);
    EXPECT_EQ(keliHistogramInit(type, p.data(), n.data(), channels, s.data()), kelStatusOk);
    return s;
}

Spec make_uniform(KelDataType type, const std::vector<float>& lower, const std::vector<float>& upper,
                  const std::vector<int>& n)
{
    Spec s;
    s.uniform = true;
    const int channels = int(n.size());
    for (int c = 0; c < channels; ++c) {
        const double step = (double(upper[c]) - double(lower[c])) / (n[c] - 1);
        s.step.push_back(float(step));
        std::vector<double> stored;
        for (int i = 0; i < n[c]; ++i) {
            const double v = i == n[c] - 1 ? double(upper[c]) : double(lower[c]) + i * step;
            stored.push_back(type == kel32f ? double(float(v)) : std::trunc(v));
        }
        s.levels.push_back(stored);
    }
    int specBytes = 0;
    EXPECT_EQ(keliHistogramGetBufferSize(type, {1, 1}, n.data(), channels, 1, &specBytes, &s.bufferBytes), kelStatusOk);
    s.mem.assign(specBytes, 0xEE);
    EXPECT_EQ(keliHistogramUniformInit(type, lower.data(), upper.data(), n.data(), channels, s.data()), kelStatusOk);
    return s;
}

// The model of one call, choosing the path by the same rules as the library.
template <class T>
std::vector<std::vector<std::uint32_t>> model(const kit::Image<T>& im, const Spec& s, int srcStep)
{
    const int C = im.channels();
    std::vector<std::vector<std::uint32_t>> hist;
    for (const auto& l : s.levels) hist.emplace_back(l.size() - 1, 0u);
    const std::int64_t pixels = std::int64_t(im.width()) * im.height();
    if constexpr (std::is_same_v<T, Kel32f>) {
        std::vector<float> L(s.levels[0].begin(), s.levels[0].end());
        if (C == 1 && s.uniform && L.size() >= 4) {
            // A step whose sixteenth equals the width reads width * height floats in a row.
            const bool oneRun = (srcStep >> 4) == im.width();
            for (std::int64_t k = 0; k < pixels; ++k) {
                const float v = oneRun ? (&im.at(0, 0))[k] : im.at(int(k % im.width()), int(k / im.width()));
                const int b = reference::uniform_bin(L, s.step[0], v);
                if (b >= 0) ++hist[0][b];
            }
            return hist;
        }
        for (int c = 0; c < C; ++c) {
            std::vector<float> Lc(s.levels[c].begin(), s.levels[c].end());
            for (int y = 0; y < im.height(); ++y)
                for (int x = 0; x < im.width(); ++x) {
                    const int b = reference::float_bin(Lc, im.at(x, y, c));
                    if (b >= 0) ++hist[c][b];
                }
        }
        return hist;
    } else {
        std::vector<std::vector<std::int64_t>> L;
        bool direct = !std::is_same_v<T, Kel8u> && s.uniform && pixels < 0x10000;
        for (const auto& l : s.levels) {
            L.emplace_back(l.begin(), l.end());
            const std::int64_t span = L.back().back() - L.back().front(), bins = std::int64_t(l.size()) - 1;
            direct = direct && span > 0 && span % bins == 0;
        }
        for (int c = 0; c < C; ++c)
            for (int y = 0; y < im.height(); ++y)
                for (int x = 0; x < im.width(); ++x) {
                    const std::int64_t v = im.at(x, y, c);
                    if (direct) {
                        const int b = reference::direct_bin(L[c], v);
                        if (b >= 0) ++hist[c][b];
                    } else {
                        reference::count_exact(hist[c], L[c], v);
                    }
                }
        return hist;
    }
}

template <class T> using HistCall = std::function<KelStatus(const T*, int, KeliSize, Kel32u* const*, const Kel8u*, Kel8u*)>;

template <class T> HistCall<T> member(int channels)
{
    if constexpr (std::is_same_v<T, Kel8u>) {
        if (channels == 1) return [](auto s, int st, KeliSize r, Kel32u* const* h, auto sp, auto b) { return keliHistogram_8u_C1R(s, st, r, h[0], sp, b); };
        if (channels == 3) return keliHistogram_8u_C3R;
        return keliHistogram_8u_C4R;
    } else if constexpr (std::is_same_v<T, Kel16u>) {
        if (channels == 1) return [](auto s, int st, KeliSize r, Kel32u* const* h, auto sp, auto b) { return keliHistogram_16u_C1R(s, st, r, h[0], sp, b); };
        if (channels == 3) return keliHistogram_16u_C3R;
        return keliHistogram_16u_C4R;
    } else if constexpr (std::is_same_v<T, Kel16s>) {
        if (channels == 1) return [](auto s, int st, KeliSize r, Kel32u* const* h, auto sp, auto b) { return keliHistogram_16s_C1R(s, st, r, h[0], sp, b); };
        if (channels == 3) return keliHistogram_16s_C3R;
        return keliHistogram_16s_C4R;
    } else {
        if (channels == 1) return [](auto s, int st, KeliSize r, Kel32u* const* h, auto sp, auto) { return keliHistogram_32f_C1R(s, st, r, h[0], sp); };
        if (channels == 3) return [](auto s, int st, KeliSize r, Kel32u* const* h, auto sp, auto) { return keliHistogram_32f_C3R(s, st, r, h, sp); };
        return [](auto s, int st, KeliSize r, Kel32u* const* h, auto sp, auto) { return keliHistogram_32f_C4R(s, st, r, h, sp); };
    }
}

// Runs one call on `im` with guard bins behind every histogram and guard bytes behind the
// work buffer, and compares with the model.
template <class T> void check_call(const kit::Image<T>& im, Spec& spec, int srcStep = 0)
{
    const int C = im.channels();
    if (srcStep == 0) srcStep = im.step();
    std::vector<std::vector<Kel32u>> hist;
    std::vector<Kel32u*> ptrs;
    for (int c = 0; c < C; ++c) hist.emplace_back(spec.levels[c].size() - 1 + kGuardBins, kHistCanary);
    for (auto& h : hist) ptrs.push_back(h.data());
    std::vector<Kel8u> buffer(spec.bufferBytes + 64, 0x5A);
    const auto specBefore = spec.mem;
    const auto srcBefore = im.snapshot();
    ASSERT_EQ(member<T>(C)(im.data(), srcStep, im.size(), ptrs.data(), spec.data(), buffer.data()), kelStatusOk);
    EXPECT_EQ(im.bytes(), srcBefore) << "source changed";
    EXPECT_EQ(spec.mem, specBefore) << "spec changed";
    for (std::size_t i = spec.bufferBytes; i < buffer.size(); ++i) ASSERT_EQ(buffer[i], 0x5A) << "past the work buffer";
    const auto want = model(im, spec, srcStep);
    for (int c = 0; c < C; ++c) {
        const std::size_t bins = want[c].size();
        for (std::size_t i = 0; i < bins; ++i) ASSERT_EQ(hist[c][i], want[c][i]) << "channel " << c << " bin " << i;
        for (std::size_t i = bins; i < hist[c].size(); ++i) ASSERT_EQ(hist[c][i], kHistCanary) << "past the bins";
    }
}

// Specs hold pointers into themselves: they are moved, never copied.
template <class T, class Gen> void sweep_spec(int channels, Spec&& spec, Gen gen, int maxWidth = 40)
{
    kit::SweepOptions o;
    o.maxWidth = maxWidth;
    o.elementBytes = sizeof(T);
    kit::sweep(o, [&](const kit::Geometry& g) {
        SCOPED_TRACE(g.describe());
        kit::Image<T> im(g.width, g.height, channels, g.src);
        im.fill(gen);
        check_call(im, spec);
    });
}

// Levels, ascending, spread over [lo, hi).
std::vector<float> spread(kit::Rng& rng, int n, double lo, double hi, bool integral)
{
    std::vector<float> l(n);
    for (int i = 0; i < n; ++i) {
        double v = lo + (hi - lo) * i / (n - 1);
        if (i > 0 && i < n - 1) v += (rng.below(1000) / 1000.0 - 0.5) * (hi - lo) / (n - 1) * 0.8;
        l[i] = float(integral ? std::floor(v) + 0.5 * rng.below(2) : v);
    }
    return l;
}

TEST(Histogram, IntegerMembersMatchTheModelOverTheSweep)
{
    kit::Rng rng;
    for (int C : {1, 3, 4}) {
        SCOPED_TRACE("channels " + std::to_string(C));
        // 8u: levels beyond both ends of the type, and fractional levels that round up.
        std::vector<std::vector<float>> l8;
        for (int c = 0; c < C; ++c) l8.push_back(spread(rng, 5 + 7 * c, -20, 300, true));
        sweep_spec<Kel8u>(C, make_spec(kel8u, l8), [&] { return Kel8u(rng.any<Kel8u>()); });
        sweep_spec<Kel8u>(C, make_uniform(kel8u, std::vector<float>(C, 0.f), std::vector<float>(C, 256.f), std::vector<int>(C, 257)),
                          [&] { return Kel8u(rng.any<Kel8u>()); });

        // 16-bit: uniform evenly spaced levels take the direct path on these small images,
        // explicit and unevenly spaced ones the counters.
        std::vector<std::vector<float>> l16u, l16s;
        for (int c = 0; c < C; ++c) {
            l16u.push_back(spread(rng, 4 + 5 * c, -100, 70000, true));
            l16s.push_back(spread(rng, 4 + 5 * c, -40000, 40000, true));
        }
        // Values on and beside the levels, where an off-by-one shows, and anywhere else.
        auto near = [&](const Spec& spec, auto lo, auto hi) {
            using V = decltype(lo);
            return [&rng, &spec, lo, hi] {
                const auto& l = spec.levels[rng.below(int(spec.levels.size()))];
                const double v = rng.below(2) ? l[rng.below(int(l.size()))] + rng.below(5) - 2 : lo + double(hi - lo) * rng.below(1001) / 1000.0;
                return V(std::clamp(v, double(lo), double(hi)));
            };
        };
        std::vector<Spec> u, v;
        u.push_back(make_spec(kel16u, l16u));
        u.push_back(make_uniform(kel16u, std::vector<float>(C, 100.f), std::vector<float>(C, 60100.f), std::vector<int>(C, 7)));
        v.push_back(make_spec(kel16s, l16s));
        v.push_back(make_uniform(kel16s, std::vector<float>(C, -30000.f), std::vector<float>(C, 29999.f), std::vector<int>(C, 4)));
        for (Spec& spec : u) sweep_spec<Kel16u>(C, std::move(spec), near(spec, Kel16u(0), Kel16u(65535)));
        for (Spec& spec : v) sweep_spec<Kel16s>(C, std::move(spec), near(spec, Kel16s(-32768), Kel16s(32767)));
        // Uniform but unevenly spaced after truncation: the counters again.
        sweep_spec<Kel16s>(C, make_uniform(kel16s, std::vector<float>(C, -7.5f), std::vector<float>(C, 30.f), std::vector<int>(C, 4)),
                           [&] { return Kel16s(rng.below(50) - 10); });
    }
}

TEST(Histogram, FloatMembersMatchTheModelOverTheSweep)
{
    kit::Rng rng;
    auto gen = [&](const std::vector<float>& L) {
        return [&rng, L] {
            switch (rng.below(6)) {
            case 0: return L[rng.below(int(L.size()))];
            case 1: return std::nextafter(L[rng.below(int(L.size()))], -INFINITY);
            case 2: { const float s[] = {NAN, INFINITY, -INFINITY, -0.0f}; return s[rng.below(4)]; }
            default: return float(L.front() - 1 + (L.back() - L.front() + 2) * rng.below(100001) / 100000.0);
            }
        };
    };
    // C1: the uniform fast path, a uniform spec too small for it, the walk and the halving search.
    std::vector<float> few = spread(rng, 9, -3, 5, false), many = spread(rng, 150, -3, 5, false);
    sweep_spec<Kel32f>(1, make_uniform(kel32f, {-2.5f}, {7.25f}, {40}), gen({-2.5f, 0.f, 7.25f}));
    sweep_spec<Kel32f>(1, make_uniform(kel32f, {0.1f}, {0.7f}, {7}), gen({0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.7f}));
    sweep_spec<Kel32f>(1, make_uniform(kel32f, {-1.f}, {1.f}, {3}), gen({-1.f, 0.f, 1.f}));
    sweep_spec<Kel32f>(1, make_spec(kel32f, {few}), gen(few));
    sweep_spec<Kel32f>(1, make_spec(kel32f, {many}), gen(many));
    // C3 and C4 below and above their search thresholds (321 and 427 levels in all).
    for (int C : {3, 4}) {
        for (int total : {C == 3 ? 321 : 427, C == 3 ? 322 : 428}) {
            std::vector<std::vector<float>> l;
            int left = total;
            for (int c = 0; c < C; ++c) {
                const int n = c == C - 1 ? left : total / C;
                l.push_back(spread(rng, n, -2 - c, 3 + c, false));
                left -= n;
            }
            sweep_spec<Kel32f>(C, make_spec(kel32f, l), gen(l[0]), 20);
        }
        sweep_spec<Kel32f>(C, make_uniform(kel32f, std::vector<float>(C, -1.f), std::vector<float>(C, 1.f), std::vector<int>(C, 9)),
                           gen({-1.f, -0.25f, 0.f, 0.75f, 1.f}), 20);
    }
}

TEST(Histogram, LargeImagesCountThroughTheCounters)
{
    // 65536 pixels and more leave the direct path even for evenly spaced uniform levels.
    kit::Rng rng;
    for (KeliSize size : {KeliSize{256, 255}, KeliSize{256, 256}, KeliSize{300, 301}}) {
        kit::Image<Kel16u> im(size.width, size.height, 1);
        im.fill([&] { return rng.any<Kel16u>(); });
        Spec spec = make_uniform(kel16u, {-0.5f}, {65535.5f}, {9});
        check_call(im, spec);
        kit::Image<Kel16s> im3(size.width / 4, size.height, 3);
        im3.fill([&] { return rng.any<Kel16s>(); });
        Spec spec3 = make_uniform(kel16s, {-32768.f, -32768.f, -1000.f}, {32768.f, 32767.f, 1000.f}, {257, 5, 11});
        check_call(im3, spec3);
    }
}

TEST(Histogram, LevelRulesBite)
{
    Kel32u hist[300];
    std::vector<Kel8u> buffer(4096);
    // 8u: a pixel on the first level counts in bin 0, on the last not at all; a last level
    // of 256 or more takes in 255, clamped; a negative first level takes in 0.
    {
        Spec s = make_spec(kel8u, {{-5.f, 10.f, 256.f}});
        const Kel8u px[] = {0, 9, 10, 255, 255};
        ASSERT_EQ(keliHistogram_8u_C1R(px, 5, {5, 1}, hist, s.data(), buffer.data()), kelStatusOk);
        EXPECT_EQ(hist[0], 2u);
        EXPECT_EQ(hist[1], 3u);
        Spec t = make_spec(kel8u, {{10.f, 20.5f, 255.f}});  // 20.5 is stored as 21
        const Kel8u qx[] = {10, 20, 21, 254, 255};
        ASSERT_EQ(keliHistogram_8u_C1R(qx, 5, {5, 1}, hist, t.data(), buffer.data()), kelStatusOk);
        EXPECT_EQ(hist[0], 2u);
        EXPECT_EQ(hist[1], 2u);
    }
    // 32f uniform: a pixel exactly on an interior level counts in the upper bin, even where
    // the multiply lands a hair below the integer; the last level counts nowhere.
    {
        Spec s = make_uniform(kel32f, {0.f}, {1.f}, {11});
        std::vector<float> px;
        for (double l : s.levels[0]) px.push_back(float(l));
        ASSERT_EQ(keliHistogram_32f_C1R(px.data(), int(4 * px.size()), {int(px.size()), 1}, hist, s.data()), kelStatusOk);
        for (int i = 0; i < 10; ++i) EXPECT_EQ(hist[i], 1u) << i;
    }
    // Far from zero the multiply drifts: level 1 of 37.5 ... 38.5 in 100 bins gives
    // t = 0.99976, inside the band below 1, and the exact test puts it in bin 1.
    {
        Spec s = make_uniform(kel32f, {37.5f}, {38.5f}, {101});
        const float px = float(s.levels[0][1]);
        ASSERT_EQ(keliHistogram_32f_C1R(&px, 4, {1, 1}, hist, s.data()), kelStatusOk);
        EXPECT_EQ(hist[0], 0u);
        EXPECT_EQ(hist[1], 1u);
    }
    // 32f: a step whose sixteenth equals the width reads width * height consecutive floats.
    {
        Spec s = make_uniform(kel32f, {0.f}, {8.f}, {9});
        std::vector<float> mem(4 * 4 * 3, 100.f);  // 3 rows of 4 pixels, step 64 bytes
        for (int k = 0; k < 12; ++k) mem[k] = float(k % 8);
        ASSERT_EQ(keliHistogram_32f_C1R(mem.data(), 64, {4, 3}, hist, s.data()), kelStatusOk);
        const Kel32u want[8] = {2, 2, 2, 2, 1, 1, 1, 1};
        for (int i = 0; i < 8; ++i) EXPECT_EQ(hist[i], want[i]) << i;
        // Another step and the rows are walked: only row 0 lies in the levels' range.
        ASSERT_EQ(keliHistogram_32f_C1R(mem.data(), 60, {4, 3}, hist, s.data()), kelStatusOk);
        Kel32u total = 0;
        for (int i = 0; i < 8; ++i) total += hist[i];
        EXPECT_EQ(total, 4u);
    }
    // Small 16-bit images with a uniform, evenly divisible span take their bin from the
    // division alone. Levels -1.5, 0.75, 3 truncate to -1, 0, 3: the division puts 0 in bin 0
    // while the levels say bin 1. From 65536 pixels on, the counters follow the levels.
    {
        Spec s = make_uniform(kel16s, {-1.5f}, {3.f}, {3});
        std::vector<Kel16s> zeros(256 * 257, 0);
        std::vector<Kel8u> work(s.bufferBytes);
        ASSERT_EQ(keliHistogram_16s_C1R(zeros.data(), 512, {255, 257}, hist, s.data(), work.data()), kelStatusOk);
        EXPECT_EQ(hist[0], 255u * 257u);
        EXPECT_EQ(hist[1], 0u);
        ASSERT_EQ(keliHistogram_16s_C1R(zeros.data(), 512, {256, 256}, hist, s.data(), work.data()), kelStatusOk);
        EXPECT_EQ(hist[0], 0u);
        EXPECT_EQ(hist[1], 65536u);
    }
    // Uniform integer levels truncate; explicit ones round up; both read back as floats.
    {
        Spec u = make_uniform(kel16s, {-2.5f}, {2.5f}, {6});
        float got[6];
        float* pp[] = {got};
        ASSERT_EQ(keliHistogramGetLevels(u.data(), pp), kelStatusOk);
        const float want[6] = {-2, -1, 0, 0, 1, 2};
        for (int i = 0; i < 6; ++i) EXPECT_EQ(got[i], want[i]) << i;
        Spec e = make_spec(kel16u, {{-2.5f, 0.25f, 7.f}});
        ASSERT_EQ(keliHistogramGetLevels(e.data(), pp), kelStatusOk);
        EXPECT_EQ(got[0], -2.f);
        EXPECT_EQ(got[1], 1.f);
        EXPECT_EQ(got[2], 7.f);
    }
}

TEST(Histogram, SpecLayoutAndSizesAreWhatCallersSee)
{
    const int n[4] = {5, 3, 17, 2};
    int spec = 0, buffer = 0;
    const struct { KelDataType type; int channels, spec, buffer; } cases[] = {
        {kel8u, 1, 80 + 20, 1024}, {kel8u, 3, 80 + 100, 3072}, {kel8u, 4, 80 + 108, 4096},
        {kel16u, 1, 100, 0x40000}, {kel16s, 3, 180, 0xC0000}, {kel16u, 4, 188, 0x100000},
        {kel32f, 1, 100, 0}, {kel32f, 4, 188, 0},
    };
    for (const auto& c : cases) {
        ASSERT_EQ(keliHistogramGetBufferSize(c.type, {7, 7}, n, c.channels, 1, &spec, &buffer), kelStatusOk);
        EXPECT_EQ(spec, c.spec);
        EXPECT_EQ(buffer, c.buffer);
    }
    // The header: type, channels, uniform flag, "hist", level counts, pointers to the levels
    // inside the block, and the stored steps; then the levels.
    Spec s = make_uniform(kel32f, {0.f, -1.f, 2.f}, {1.f, 1.f, 3.f}, {5, 3, 2});
    std::int32_t words[8];
    std::memcpy(words, s.data(), sizeof words);
    EXPECT_EQ(words[0], kel32f);
    EXPECT_EQ(words[1], 3);
    EXPECT_EQ(words[2], 1);
    EXPECT_EQ(std::memcmp(s.data() + 12, "hist", 4), 0);
    EXPECT_EQ(words[4], 5);
    EXPECT_EQ(words[5], 3);
    EXPECT_EQ(words[6], 2);
    EXPECT_EQ(words[7], 0);
    const Kel8u* ptrs[4];
    std::memcpy(ptrs, s.data() + 32, sizeof ptrs);
    EXPECT_EQ(ptrs[0], s.data() + 80);
    EXPECT_EQ(ptrs[1], s.data() + 100);
    EXPECT_EQ(ptrs[2], s.data() + 112);
    float steps[3], level;
    std::memcpy(steps, s.data() + 64, sizeof steps);
    EXPECT_EQ(steps[0], 0.25f);
    EXPECT_EQ(steps[1], 1.f);
    EXPECT_EQ(steps[2], 1.f);
    std::memcpy(&level, s.data() + 80 + 4 * 3, 4);
    EXPECT_EQ(level, 0.75f);
    EXPECT_EQ(int(s.mem.size()), 80 + 4 * 10);
}

TEST(Histogram, ChecksRunInOrderAndWriteNothing)
{
    int n[3] = {4, 4, 4}, spec = -1, buffer = -1;
    // Size query: pointers, size, channels, level counts, type.
    EXPECT_EQ(keliHistogramGetBufferSize(KelDataType(2), {0, 0}, nullptr, 9, 0, &spec, &buffer), kelStatusNullPtr);
    EXPECT_EQ(keliHistogramGetBufferSize(kel8u, {1, 1}, n, 1, 0, nullptr, &buffer), kelStatusNullPtr);
    EXPECT_EQ(keliHistogramGetBufferSize(KelDataType(2), {0, 1}, n, 9, 0, &spec, &buffer), kelStatusBadSize);
    EXPECT_EQ(keliHistogramGetBufferSize(KelDataType(2), {1, 1}, n, 2, 0, &spec, &buffer), kelStatusBadChannelCount);
    n[2] = 1;
    EXPECT_EQ(keliHistogramGetBufferSize(KelDataType(2), {1, 1}, n, 3, 0, &spec, &buffer), kelStatusBadHistLevels);
    EXPECT_EQ(keliHistogramGetBufferSize(kel8u, {1, 1}, n, 3, 0, &spec, &buffer), kelStatusBadHistLevels);
    n[2] = 4;
    EXPECT_EQ(keliHistogramGetBufferSize(kel8s, {1, 1}, n, 3, 0, &spec, &buffer), kelStatusBadDataType);
    // Any 32-bit value may arrive as the type (the fuzzer's 0x80000000 among them): a status,
    // never undefined behaviour under the sanitizers.
    for (std::int32_t raw : {INT32_MIN, -1, 32, INT32_MAX})
        EXPECT_EQ(keliHistogramGetBufferSize(KelDataType(raw), {1, 1}, n, 3, 0, &spec, &buffer), kelStatusBadDataType);
    EXPECT_EQ(spec, -1);
    EXPECT_EQ(buffer, -1);

    // Inits: type, pointers, channels, each channel's pointer, counts, increase / bounds.
    std::vector<Kel8u> mem(200, 0xEE);
    const std::vector<Kel8u> fresh = mem;
    const float a[4] = {0, 1, 2, 3}, bad[4] = {0, 2, 2, 3}, nan[4] = {0, NAN, 2, 3};
    const Kel32f* lv[3] = {a, a, nullptr};
    EXPECT_EQ(keliHistogramInit(kel64f, nullptr, n, 5, mem.data()), kelStatusBadDataType);
    EXPECT_EQ(keliHistogramInit(kel8u, lv, n, 5, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliHistogramInit(kel8u, lv, n, 5, mem.data()), kelStatusBadChannelCount);
    EXPECT_EQ(keliHistogramInit(kel8u, lv, n, 3, mem.data()), kelStatusNullPtr);
    lv[2] = bad;
    n[1] = 1;
    EXPECT_EQ(keliHistogramInit(kel8u, lv, n, 3, mem.data()), kelStatusBadHistLevels);
    n[1] = 4;
    EXPECT_EQ(keliHistogramInit(kel8u, lv, n, 3, mem.data()), kelStatusBadRange);
    lv[2] = nan;
    EXPECT_EQ(keliHistogramInit(kel32f, lv, n, 3, mem.data()), kelStatusBadRange);
    const float lo[3] = {0, 0, 5}, hi[3] = {1, 1, 5};
    EXPECT_EQ(keliHistogramUniformInit(kel16u, lo, nullptr, n, 3, mem.data()), kelStatusNullPtr);
    EXPECT_EQ(keliHistogramUniformInit(kel16u, lo, hi, n, 0, mem.data()), kelStatusBadChannelCount);
    n[0] = 0;
    EXPECT_EQ(keliHistogramUniformInit(kel16u, lo, hi, n, 3, mem.data()), kelStatusBadHistLevels);
    n[0] = 4;
    EXPECT_EQ(keliHistogramUniformInit(kel16u, lo, hi, n, 3, mem.data()), kelStatusBadRange);
    EXPECT_EQ(mem, fresh);

    // Levels read back: pointers, identifier, then each channel's array.
    Spec s = make_spec(kel8u, {{0, 100, 200}, {0, 50, 256}, {1, 2, 3}});
    float out[3] = {-1, -1, -1};
    float* outs[3] = {out, out, nullptr};
    EXPECT_EQ(keliHistogramGetLevels(nullptr, outs), kelStatusNullPtr);
    EXPECT_EQ(keliHistogramGetLevels(mem.data(), outs), kelStatusBadArg);
    EXPECT_EQ(keliHistogramGetLevels(s.data(), outs), kelStatusNullPtr);
    EXPECT_EQ(out[0], -1.f);

    // Counting: pointers (the channel arrays too), size, step, spec.
    Kel8u px[64] = {};
    Kel32u h0[2], h1[2], h2[2];
    for (Kel32u* h : {h0, h1, h2}) h[0] = h[1] = kHistCanary;
    Kel32u* hs[3] = {h0, h1, nullptr};
    std::vector<Kel8u> buf(4096);
    EXPECT_EQ(keliHistogram_8u_C3R(px, 0, {0, 0}, hs, s.data(), buf.data()), kelStatusNullPtr);
    hs[2] = h2;
    EXPECT_EQ(keliHistogram_8u_C3R(px, 0, {0, 0}, hs, s.data(), nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliHistogram_8u_C3R(px, 0, {4, 0}, hs, s.data(), buf.data()), kelStatusBadSize);
    EXPECT_EQ(keliHistogram_8u_C3R(px, 11, {4, 2}, hs, mem.data(), buf.data()), kelStatusBadStep);
    EXPECT_EQ(keliHistogram_8u_C3R(px, 12, {4, 2}, hs, mem.data(), buf.data()), kelStatusBadArg);
    EXPECT_EQ(keliHistogram_8u_C1R(px, 12, {4, 2}, h0, s.data(), buf.data()), kelStatusBadArg);   // made for C3
    EXPECT_EQ(keliHistogram_16u_C3R(reinterpret_cast<Kel16u*>(px), 24, {4, 2}, hs, s.data(), buf.data()), kelStatusBadArg);
    Spec f = make_spec(kel32f, {{0, 1, 2}});
    EXPECT_EQ(keliHistogram_32f_C1R(reinterpret_cast<Kel32f*>(px), -16, {4, 2}, h0, f.data()), kelStatusBadStep);
    EXPECT_EQ(keliHistogram_32f_C1R(reinterpret_cast<Kel32f*>(px), 15, {4, 2}, h0, f.data()), kelStatusBadStep);
    for (Kel32u* h : {h0, h1, h2}) EXPECT_TRUE(h[0] == kHistCanary && h[1] == kHistCanary);
}

}  // namespace
