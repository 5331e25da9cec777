// Several threads run different families at once, each with its own rounding mode in MXCSR:
// every result equals the one computed beforehand on one thread in the same mode, and each
// thread finds its own mode unchanged after every call (the library keeps no shared state and
// leaves the caller's floating-point control as it found it). The same mode, because f32
// arithmetic and integer-to-float conversions run in the caller's rounding mode: the integer
// and explicitly rounded families give the same bits in every mode, the f32 ones need not.
#include <gtest/gtest.h>
#include <xmmintrin.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "keli.h"

namespace {

constexpr int kW = 96, kH = 64;

template <class T> std::vector<T> pattern(size_t n, unsigned seed)
{
    std::vector<T> v(n);
    unsigned s = seed;
    for (auto& x : v) {
        s = s * 1103515245u + 12345u;
        x = static_cast<T>((s >> 16) % 251);
        if constexpr (std::is_floating_point_v<T>) x = static_cast<T>((s >> 8) % 100000) / 391.0f - 100.5f;
    }
    return v;
}

// One family's work on fixed inputs; returns its output bytes.
using Job = std::function<std::vector<unsigned char>()>;

template <class T> std::vector<unsigned char> bytes(const std::vector<T>& v)
{
    auto p = reinterpret_cast<const unsigned char*>(v.data());
    return {p, p + v.size() * sizeof(T)};
}

std::vector<Job> jobs()
{
    const KeliSize roi{kW, kH};
    std::vector<Job> out;
    out.push_back([roi] {  // saturating add, scaled with ties to even
        auto a = pattern<Kel8u>(kW * kH, 1), b = pattern<Kel8u>(kW * kH, 2);
        std::vector<Kel8u> d(kW * kH);
        EXPECT_EQ(kelStatusOk, keliAdd_8u_C1RSfs(a.data(), kW, b.data(), kW, d.data(), kW, roi, 1));
        return bytes(d);
    });
    out.push_back([roi] {  // conversion with its own rounding mode, never the register's
        auto a = pattern<Kel32f>(kW * kH, 3);
        std::vector<Kel8u> d(kW * kH);
        EXPECT_EQ(kelStatusOk, keliConvert_32f8u_C1RSfs(a.data(), kW * 4, d.data(), kW, roi, kelRndNear, -1));
        return bytes(d);
    });
    out.push_back([roi] {  // f64 constants, rounded to nearest even
        auto a = pattern<Kel8u>(kW * kH, 4);
        const Kel64f c = 0.7;
        std::vector<Kel8u> d(kW * kH);
        EXPECT_EQ(kelStatusOk, keliMulC64f_8u_C1R(a.data(), kW, &c, d.data(), kW, roi, kelAlgHintNone, kelRndNear));
        return bytes(d);
    });
    out.push_back([roi] {  // a box filter with a replicated border
        auto a = pattern<Kel32f>(kW * kH, 5);
        std::vector<Kel32f> d(kW * kH);
        const KeliSize mask{5, 3};
        int size = 0;
        EXPECT_EQ(kelStatusOk, keliFilterBoxBorderGetBufferSize(roi, mask, kel32f, 1, &size));
        std::vector<Kel8u> buffer(size);
        EXPECT_EQ(kelStatusOk, keliFilterBoxBorder_32f_C1R(a.data(), kW * 4, d.data(), kW * 4, roi, mask,
                                                         kelBorderRepl, nullptr, buffer.data()));
        return bytes(d);
    });
    out.push_back([] {  // a linear resize 96x64 -> 61x37
        auto a = pattern<Kel32f>(kW * kH, 6);
        const KeliSize from{kW, kH}, to{61, 37};
        int spec_size = 0, init_size = 0, buffer_size = 0;
        EXPECT_EQ(kelStatusOk, keliResizeGetSize_32f(from, to, kelLinear, 0, &spec_size, &init_size));
        std::vector<Kel8u> spec(spec_size);
        auto* s = reinterpret_cast<KeliResizeSpec*>(spec.data());
        EXPECT_EQ(kelStatusOk, keliResizeLinearInit_32f(from, to, s));
        EXPECT_EQ(kelStatusOk, keliResizeGetBufferSize_32f(s, to, 1, &buffer_size));
        std::vector<Kel8u> buffer(buffer_size);
        std::vector<Kel32f> d(61 * 37);
        EXPECT_EQ(kelStatusOk, keliResizeLinear_32f_C1R(a.data(), kW * 4, d.data(), 61 * 4, KeliPoint{0, 0}, to,
                                                      kelBorderRepl, nullptr, s, buffer.data()));
        return bytes(d);
    });
    out.push_back([] {  // a 64x32 real FFT
        auto a = pattern<Kel32f>(64 * 32, 7);
        int spec_size = 0, init_size = 0, buffer_size = 0;
        EXPECT_EQ(kelStatusOk, keliFFTGetSize_R_32f(6, 5, 1, kelAlgHintNone, &spec_size, &init_size, &buffer_size));
        std::vector<Kel8u> spec(spec_size), init(init_size + 1), buffer(buffer_size + 1);
        EXPECT_EQ(kelStatusOk, keliFFTInit_R_32f(6, 5, 1, kelAlgHintNone, spec.data(), init.data()));
        std::vector<Kel32f> d(64 * 32);
        EXPECT_EQ(kelStatusOk, keliFFTFwd_RToPack_32f_C1R(a.data(), 64 * 4, d.data(), 64 * 4, spec.data(), buffer.data()));
        return bytes(d);
    });
    return out;
}

TEST(Threads, FamiliesAtOnceEachWithItsRoundingModeGiveTheSingleThreadedBits)
{
    const auto work = jobs();
    constexpr int kThreads = 6, kRounds = 400;
    // Rounding field: nearest, down, up, toward zero; odd threads also flush denormals.
    auto mode_of = [](int t) { return 0x1F80u | ((t & 3u) << 13) | (t & 1 ? 0x8040u : 0u); };
    std::vector<std::vector<std::vector<unsigned char>>> expected(kThreads);
    for (int t = 0; t < kThreads; ++t) {
        _mm_setcsr(mode_of(t));
        for (auto& job : work) expected[t].push_back(job());
    }
    _mm_setcsr(0x1F80u);
    for (size_t j = 0; j < work.size(); ++j)
        if (j < 3) {  // jobs 0-2 are integer or explicitly rounded: the same in every mode
            for (int t = 1; t < kThreads; ++t) EXPECT_EQ(expected[0][j], expected[t][j]) << "job " << j;
        }

    std::atomic<int> mismatches{0}, mode_changes{0}, calls{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            const unsigned mode = mode_of(t);
            _mm_setcsr(mode);
            for (int r = 0; r < kRounds; ++r) {
                size_t j = static_cast<size_t>(t + r) % work.size();  // each thread its own order
                if (work[j]() != expected[t][j]) ++mismatches;
                if ((_mm_getcsr() & ~0x3Fu) != mode) {  // the control bits; the flags are the thread's own
                    ++mode_changes;
                    _mm_setcsr(mode);
                }
                ++calls;
            }
            _mm_setcsr(0x1F80u);
        });
    }
    for (auto& th : threads) th.join();
    EXPECT_EQ(kThreads * kRounds, calls.load());
    EXPECT_EQ(0, mismatches.load());
    EXPECT_EQ(0, mode_changes.load());
}

}  // namespace
