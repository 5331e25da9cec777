// keliSum and keliMean: every member against the models over the sweep, the places where the
// integer block and wrap rules and the float summation order show, and the check order.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "stats/sums_extrema_sweep.hpp"

namespace {

using reference::View;
using sums_test::reduction_sweep;
using sums_test::same_bits;

constexpr double kCanary = -12345.678;

template <class T> using SumFn = KelStatus (*)(const T*, int, KeliSize, Kel64f*);
using Sum32fFn = KelStatus (*)(const Kel32f*, int, KeliSize, Kel64f*, KelHintAlgorithm);

// A C caller may pass any int as the hint; the enumeration has a full 32-bit base, so every
// such value converts to it.
KelStatus call_with_hint(Sum32fFn fn, const Kel32f* src, int step, KeliSize size, Kel64f* out, int hint)
{
    return fn(src, step, size, out, static_cast<KelHintAlgorithm>(hint));
}

// The mean from the sums: one channel divides, several multiply by the reciprocal.
void mean_model(const double* sums, int channels, int w, int h, double* out)
{
    const std::int32_t count = std::int32_t(std::uint32_t(w) * std::uint32_t(h));
    const double r = 1.0 / count;
    for (int c = 0; c < channels; ++c) out[c] = channels == 1 ? sums[c] / count : sums[c] * r;
}

// Calls f(out) and compares out[0..n-1] with want bit for bit; out[n] keeps its canary.
template <class F> void expect_doubles(F&& f, const double* want, int n, const char* what)
{
    double out[5] = {kCanary, kCanary, kCanary, kCanary, kCanary};
    ASSERT_EQ(f(out), kelStatusOk) << what;
    for (int c = 0; c < n; ++c) ASSERT_TRUE(same_bits(out[c], want[c])) << what << " channel " << c << ": " << out[c] << " want " << want[c];
    ASSERT_EQ(out[n], kCanary) << what << " wrote past its channels";
}

template <class T> void integer_members(const SumFn<T> (&sum)[3], const SumFn<T> (&mean)[3], kit::Rng& rng, bool edges)
{
    const int channels[3] = {1, 3, 4};
    for (int k = 0; k < 3; ++k) {
        auto gen = [&] { return edges && rng.below(2) ? std::numeric_limits<T>::max() : rng.any<T>(); };
        reduction_sweep<T>(channels[k], gen, [&](View<T> v) {
            double want[4], wantMean[4];
            reference::sum_int(v, want);
            mean_model(want, v.channels, v.width, v.height, wantMean);
            const KeliSize size{v.width, v.height};
            expect_doubles([&](double* o) { return sum[k](v.base, v.step, size, o); }, want, v.channels, "sum");
            expect_doubles([&](double* o) { return mean[k](v.base, v.step, size, o); }, wantMean, v.channels, "mean");
        });
    }
}

TEST(Sum, IntegerMembersMatchTheModelOverTheSweep)
{
    kit::Rng rng;
    integer_members<Kel8u>({keliSum_8u_C1R, keliSum_8u_C3R, keliSum_8u_C4R}, {keliMean_8u_C1R, keliMean_8u_C3R, keliMean_8u_C4R}, rng, true);
    integer_members<Kel16u>({keliSum_16u_C1R, keliSum_16u_C3R, keliSum_16u_C4R}, {keliMean_16u_C1R, keliMean_16u_C3R, keliMean_16u_C4R}, rng, true);
    integer_members<Kel16s>({keliSum_16s_C1R, keliSum_16s_C3R, keliSum_16s_C4R}, {keliMean_16s_C1R, keliMean_16s_C3R, keliMean_16s_C4R}, rng, false);
}

// Floats with a wide spread of magnitudes, so that the order of the additions shows in the bits.
Kel32f spread(kit::Rng& rng)
{
    const float mantissa = rng.any<float>();
    return std::ldexp(mantissa, rng.below(40) - 20);
}

TEST(Sum, FloatMembersMatchTheModelForEveryHint)
{
    const Sum32fFn sum[3] = {keliSum_32f_C1R, keliSum_32f_C3R, keliSum_32f_C4R};
    const Sum32fFn mean[3] = {keliMean_32f_C1R, keliMean_32f_C3R, keliMean_32f_C4R};
    const int channels[3] = {1, 3, 4};
    const int hints[] = {kelAlgHintNone, kelAlgHintFast, kelAlgHintAccurate, 7, -1};
    kit::Rng rng;
    for (int k = 0; k < 3; ++k)
        reduction_sweep<Kel32f>(channels[k], [&] { return spread(rng); }, [&](View<Kel32f> v) {
            const KeliSize size{v.width, v.height};
            for (int hint : hints) {
                SCOPED_TRACE("hint " + std::to_string(hint));
                double want[4], wantMean[4];
                reference::sum_32f(v, hint, want);
                mean_model(want, v.channels, v.width, v.height, wantMean);
                expect_doubles([&](double* o) { return call_with_hint(sum[k], v.base, v.step, size, o, hint); }, want, v.channels, "sum");
                expect_doubles([&](double* o) { return call_with_hint(mean[k], v.base, v.step, size, o, hint); }, wantMean, v.channels, "mean");
            }
        }, 72);
}

TEST(Sum, FloatRowsAtAddressesThatAreNoMultipleOfFour)
{
    // A 32f image whose rows start one byte past a float boundary: no alignment head.
    kit::Rng rng;
    for (int width : {1, 3, 17, 34, 61}) {
        std::vector<unsigned char> bytes(4 * (width + 1) * 3 + 64);
        for (auto& b : bytes) b = static_cast<unsigned char>(rng.any<Kel8u>() & 0x3F);  // finite values
        const Kel32f* base = reinterpret_cast<const Kel32f*>(bytes.data() + 1);
        const View<Kel32f> v{base, 4 * width + 5, width, 3, 1};
        for (KelHintAlgorithm hint : {kelAlgHintFast, kelAlgHintAccurate}) {
            double want;
            reference::sum_32f(v, hint, &want);
            expect_doubles([&](double* o) { return keliSum_32f_C1R(v.base, v.step, {width, 3}, o, hint); }, &want, 1, "sum");
        }
    }
}

TEST(Sum, FastAndAccurateDifferInRoundingOnly)
{
    // 2^24 in lane 0 of A, then 1 in the same lane: 2^24 + 1 rounds to even in 32-bit floats.
    alignas(16) Kel32f row[32] = {};
    row[0] = 16777216.0f;
    row[16] = 1.0f;
    double fast = 0, accurate = 0, seven = 0;
    ASSERT_EQ(keliSum_32f_C1R(row, sizeof row, {32, 1}, &fast, kelAlgHintFast), kelStatusOk);
    ASSERT_EQ(keliSum_32f_C1R(row, sizeof row, {32, 1}, &accurate, kelAlgHintAccurate), kelStatusOk);
    ASSERT_EQ(call_with_hint(keliSum_32f_C1R, row, sizeof row, {32, 1}, &seven, 7), kelStatusOk);
    EXPECT_EQ(fast, 16777216.0);
    EXPECT_EQ(accurate, 16777217.0);
    EXPECT_EQ(seven, fast);

    // Not-a-number and infinities pass through both paths.
    row[5] = INFINITY;
    ASSERT_EQ(keliSum_32f_C1R(row, sizeof row, {32, 1}, &fast, kelAlgHintFast), kelStatusOk);
    EXPECT_EQ(fast, INFINITY);
    row[6] = -INFINITY;
    ASSERT_EQ(keliSum_32f_C1R(row, sizeof row, {32, 1}, &accurate, kelAlgHintAccurate), kelStatusOk);
    EXPECT_TRUE(std::isnan(accurate));
}

TEST(Sum, SixteenBitTotalsStayExactAcrossTheirPaths)
{
    // 65535 pixels take the 32-bit path, 65536 the piece path; both exact at the extremes.
    for (int pixels : {65535, 65536, 3 * 0x8000 + 5}) {
        std::vector<Kel16s> s(pixels * 4, -32768);
        std::vector<Kel16u> u(pixels * 4, 65535);
        double sum[4], mean[4];
        ASSERT_EQ(keliSum_16s_C1R(s.data(), pixels * 2, {pixels, 1}, sum), kelStatusOk);
        EXPECT_EQ(sum[0], -32768.0 * pixels);
        ASSERT_EQ(keliSum_16s_C4R(s.data(), 2 * 4, {1, pixels}, sum), kelStatusOk);
        for (int c = 0; c < 4; ++c) EXPECT_EQ(sum[c], -32768.0 * pixels);
        ASSERT_EQ(keliSum_16u_C3R(u.data(), pixels * 6, {pixels, 1}, sum), kelStatusOk);
        for (int c = 0; c < 3; ++c) EXPECT_EQ(sum[c], 65535.0 * pixels);
        ASSERT_EQ(keliMean_16u_C1R(u.data(), pixels * 8, {pixels, 1}, mean), kelStatusOk);
        EXPECT_EQ(mean[0], 65535.0);
    }
}

TEST(Sum, EightBitWrapRules)
{
    // One channel: the head and tail bytes of rows keep only their low 32 bits. Rows of 15
    // bytes at a 16-byte step are all tail; a step equal to the width makes one long run.
    const int rows = 1200000;
    std::vector<Kel8u> img(std::size_t(rows) * 16 + 64, 255);
    Kel8u* base = img.data() + ((0 - reinterpret_cast<std::uintptr_t>(img.data())) & 15);
    const std::uint64_t exact = 255ull * 15 * rows;
    double sum = 0;
    ASSERT_EQ(keliSum_8u_C1R(base, 16, {15, rows}, &sum), kelStatusOk);
    EXPECT_EQ(sum, double(exact & 0xFFFFFFFFu));
    ASSERT_EQ(keliSum_8u_C1R(base, 15, {15, rows}, &sum), kelStatusOk);
    EXPECT_EQ(sum, double(exact));

    // Several channels: above 0x808080 pixels each row's total is a signed 32-bit value, so one
    // row of 0x808081 pixels wraps, while two rows of half of that stay exact.
    const int longRow = 0x808081;
    std::vector<Kel8u> wide(std::size_t(longRow + 1) * 4, 255);
    double c3[3], c4[4];
    const double wrapped = double(std::int32_t(std::uint32_t(255ull * longRow)));
    ASSERT_EQ(keliSum_8u_C3R(wide.data(), longRow * 3, {longRow, 1}, c3), kelStatusOk);
    ASSERT_EQ(keliSum_8u_C4R(wide.data(), longRow * 4, {longRow, 1}, c4), kelStatusOk);
    EXPECT_LT(wrapped, 0);
    for (int c = 0; c < 3; ++c) EXPECT_EQ(c3[c], wrapped);
    for (int c = 0; c < 4; ++c) EXPECT_EQ(c4[c], wrapped);
    const int half = 0x404041;
    ASSERT_EQ(keliSum_8u_C4R(wide.data(), half * 4, {half, 2}, c4), kelStatusOk);
    for (int c = 0; c < 4; ++c) EXPECT_EQ(c4[c], 255.0 * 2 * half);
    ASSERT_EQ(keliMean_8u_C3R(wide.data(), half * 3, {half, 2}, c3), kelStatusOk);
    for (int c = 0; c < 3; ++c) EXPECT_EQ(c3[c], 255.0 * 2 * half * (1.0 / (2 * half)));
}

TEST(Sum, OnePixelAndTheMeanDivisionRules)
{
    const Kel16s px[4] = {-7, 3, 32767, -32768};
    double out[4];
    ASSERT_EQ(keliSum_16s_C4R(px, 8, {1, 1}, out), kelStatusOk);
    for (int c = 0; c < 4; ++c) EXPECT_EQ(out[c], px[c]);
    ASSERT_EQ(keliMean_16s_C4R(px, 8, {1, 1}, out), kelStatusOk);
    for (int c = 0; c < 4; ++c) EXPECT_EQ(out[c], px[c]);

    // Three pixels summing to 5: 5 / 3 and 5 * (1 / 3) differ in the last bit, and each
    // layout keeps its own rule.
    const Kel8u one[3] = {2, 2, 1};
    const Kel8u three[9] = {2, 2, 2, 2, 2, 2, 1, 1, 1};
    double m1, m3[3];
    ASSERT_EQ(keliMean_8u_C1R(one, 3, {3, 1}, &m1), kelStatusOk);
    ASSERT_EQ(keliMean_8u_C3R(three, 9, {3, 1}, m3), kelStatusOk);
    EXPECT_EQ(m1, 5.0 / 3);
    EXPECT_EQ(m3[0], 5.0 * (1.0 / 3));
    EXPECT_NE(m1, m3[0]);
}

TEST(Sum, ChecksRunInOrderAndWriteNothing)
{
    alignas(16) const Kel8u img[64] = {1, 2, 3, 4};
    alignas(16) const Kel32f fimg[16] = {1, 2, 3, 4};
    struct Case {
        const Kel8u* src;
        bool out;
        KeliSize size;
        KelStatus want;
    } cases[] = {
        {nullptr, true, {0, 0}, kelStatusNullPtr},  // pointers before size
        {img, false, {0, 1}, kelStatusNullPtr},
        {img, true, {0, 1}, kelStatusBadSize},
        {img, true, {1, 0}, kelStatusBadSize},
        {img, true, {-1, 1}, kelStatusBadSize},
        {img, true, {2, 1}, kelStatusOk},  // no step test: a negative step is taken as it stands
    };
    for (const Case& c : cases) {
        double out[4] = {kCanary, kCanary, kCanary, kCanary};
        double* o = c.out ? out : nullptr;
        const KelHintAlgorithm h = kelAlgHintAccurate;
        const Kel32f* f = c.src ? fimg : nullptr;
        EXPECT_EQ(keliSum_8u_C1R(c.src, -7, c.size, o), c.want);
        EXPECT_EQ(keliSum_16u_C3R(reinterpret_cast<const Kel16u*>(c.src), -7, c.size, o), c.want);
        EXPECT_EQ(keliSum_32f_C4R(f, -7, c.size, o, h), c.want);
        EXPECT_EQ(keliMean_16s_C1R(reinterpret_cast<const Kel16s*>(c.src), -7, c.size, o), c.want);
        EXPECT_EQ(keliMean_32f_C3R(f, -7, c.size, o, h), c.want);
        if (c.want != kelStatusOk) {
            for (double v : out) ASSERT_EQ(v, kCanary);
        }
    }
    // The mean tests its own pointer first; a failing sum leaves it unwritten.
    double m = kCanary;
    EXPECT_EQ(keliMean_8u_C1R(nullptr, 1, {0, 0}, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliMean_8u_C4R(img, 4, {1, -3}, &m), kelStatusBadSize);
    EXPECT_EQ(m, kCanary);
}

}  // namespace
