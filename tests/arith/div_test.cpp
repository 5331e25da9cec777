// keliDiv, keliDivC: every member against the scalar model over a geometry sweep for every kind
// of scale factor with the zero-divisor warning, the quotients where rounding and saturation
// bite, the zero constant as an error after the other checks, the check order, and the wide
// members' own chunked path.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <string>
#include <vector>
#include <xmmintrin.h>

#include "arith_sweep.hpp"
#include "keli.h"
#include "kit/arith.hpp"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "mul_div_members.hpp"
#include "reference/mul_div.hpp"

namespace {

using namespace kit::arith;

template <class T> std::vector<Member<T>> members() { return mul_div_members::div<T>(); }

// The members of one element type, for the walks over every type.
constexpr auto kMembers = [](auto type) { return members<decltype(type)>(); };

// Scale factors of every kind: plain, right shifts up to and past the last one that leaves a
// quotient (8 for 8u, 16 for the 16-bit types), left shifts up to and past the last one that
// leaves a quotient unsaturated (-15, -29, -31), and the extremes.
template <class T> std::vector<int> scale_factors()
{
    if constexpr (kFloat<T>) return {0};
    else return {0, 1, 2, 5, 8, 9, 15, 16, 17, INT_MAX, -1, -3, -8, -15, -16, -29, -30, -31, -32, INT_MIN};
}

// Divisor elements: zero drawn often, but some rows free of zeros so that both statuses occur.
template <class T> T divisor(kit::Rng& rng, bool zeros)
{
    for (;;) {
        const T v = edgy<T>(rng);
        if (zeros || v != T(0)) return v;
    }
}

template <class T> void sweep_member(const Member<T>& m, kit::Rng& rng)
{
    const arith_sweep::Layout l{m.channels, m.alpha};
    // Top down only: a step below 1 is an error here.
    const auto check = [&](const arith_sweep::Step& s, int n) {
        const arith_sweep::NewFailures failures;
        auto a = s.image<T>(l.channels, 0), b = s.image<T>(l.channels, 1);
        auto d = s.image<T>(l.channels, 2);
        // a divides b. Zero divisors in some sweeps only; alpha zeros never warn.
        const bool zeros = (s.width + s.salt) % 3 != 0;
        a.fill([&] { return divisor<T>(rng, zeros); });
        if (m.alpha)
            for (int y = 0; y < s.height; ++y)
                for (int x = 0; x < s.width; ++x) a.at(x, y, 3) = T(0);
        arith_sweep::fill_edgy(rng, b, d);
        bool anyZero = false;
        for (int y = 0; y < s.height; ++y)
            for (int x = 0; x < s.width; ++x)
                for (int c = 0; c < l.processed(); ++c) anyZero = anyZero || a.at(x, y, c) == T(0);
        const KelStatus status = anyZero ? kelStatusDivByZeroWarn : kelStatusOk;

        kit::Image<T> io = b;
        arith_sweep::check_scaled_images(l, m, n, a, b, d, io, status, [&](int x, int y, int c) {
            return reference::div(b.at(x, y, c), a.at(x, y, c), n);
        });
        if (failures.any()) return;

        // The constant: never zero here (a zero is an error, tested on its own).
        T value[4];
        for (T& v : value) v = divisor<T>(rng, false);
        auto dc = s.image<T>(l.channels, 3);
        arith_sweep::fill_edgy(rng, dc);
        kit::Image<T> ioc = b;
        arith_sweep::check_scaled_constant<T>(l, m, n, b, value, dc, ioc, [&](int x, int y, int c) {
            return reference::div_const(b.at(x, y, c), value[c], n);
        });
        if (failures.any()) return;

        // The wide members on a size that fits: the 32-bit body with its status.
        if (s.width % 8 == 1) {
            kit::Image<T> w = b;
            const KeliSizeL sizeL{s.width, s.height};
            ASSERT_EQ(m.irL(a.data(), a.step(), w.data(), w.step(), sizeL, n), status);
            ASSERT_EQ(w.bytes(), io.bytes());
            kit::Image<T> wc = b;
            ASSERT_EQ(m.cirL(value, wc.data(), wc.step(), sizeL, n), kelStatusOk);
            ASSERT_EQ(wc.bytes(), ioc.bytes());
        }
    };
    arith_sweep::each_step(m.name, scale_factors<T>(), m.channels == 1 ? 80 : 30, 0, true, check);
}

TEST(Div, EveryMemberMatchesTheModelOverTheSweep)
{
    const auto sweep = [](auto, const auto& m, kit::Rng& rng) { sweep_member(m, rng); };
    arith_sweep::each_member<Kel8u, Kel16u, Kel16s, Kel32f>(kMembers, sweep);
}

// Every pair of 8u operands: against the model, and against the true quotient wherever that
// lies clear of a rounding boundary (the refined reciprocal is within 2^-21 of the quotient).
TEST(Div, ExhaustiveBytesAgreeWithTheTrueQuotientAwayFromTies)
{
    std::vector<Kel8u> dividend(65536), divisor(65536), d(65536), c(256);
    for (int i = 0; i < 65536; ++i) dividend[i] = Kel8u(i & 255), divisor[i] = Kel8u(i >> 8);
    for (int n : {0, 1, 3, 8, 9, -1, -4, -8, -15, -16}) {
        ASSERT_EQ(keliDiv_8u_C1RSfs(divisor.data(), 65536, dividend.data(), 65536, d.data(), 65536, {65536, 1}, n),
                  kelStatusDivByZeroWarn);
        for (int i = 0; i < 65536; ++i) {
            const int a = dividend[i], b = divisor[i];
            ASSERT_EQ(d[i], reference::div<Kel8u>(Kel8u(a), Kel8u(b), n)) << a << " / " << b << " n " << n;
            if (b == 0) {
                ASSERT_EQ(d[i], a > 0 ? 255 : 0);
                continue;
            }
            const double q = std::ldexp(double(a) / b, -n), frac = q - std::floor(q);
            if (std::fabs(frac - 0.5) > 1e-6 * (q + 1)) {
                ASSERT_EQ(d[i], std::min(255.0, std::round(q))) << a << " / " << b;
            }
        }
        // keliDivC is exact: every dividend by every non-zero constant.
        for (int v = 1; v < 256; v += 7) {
            ASSERT_EQ(keliDivC_8u_C1RSfs(dividend.data(), 256, Kel8u(v), c.data(), 256, {256, 1}, n), kelStatusOk);
            for (int a = 0; a < 256; ++a) ASSERT_EQ(c[a], reference::div_const<Kel8u>(Kel8u(a), Kel8u(v), n));
        }
    }
}

// The quotients run with the rounding set for the call: a caller rounding toward zero (or down)
// gets the same bits, and gets its own mode back.
TEST(Div, TheCallersRoundingModeChangesNoBit)
{
    std::vector<Kel16s> dividend(65536), divisor(65536), want(65536), got(65536);
    for (int i = 0; i < 65536; ++i) dividend[i] = Kel16s(i * 37 - 30000), divisor[i] = Kel16s((i % 509) - 254);
    const unsigned saved = _mm_getcsr();
    for (int n : {0, 2, -3}) {
        ASSERT_EQ(keliDiv_16s_C1RSfs(divisor.data(), 131072, dividend.data(), 131072, want.data(), 131072,
                                     {65536, 1}, n),
                  kelStatusDivByZeroWarn);
        for (unsigned mode : {0x6000u, 0x2000u}) {
            _mm_setcsr((saved & ~0x6000u) | mode);
            const KelStatus s = keliDiv_16s_C1RSfs(divisor.data(), 131072, dividend.data(), 131072, got.data(),
                                                   131072, {65536, 1}, n);
            const unsigned after = _mm_getcsr();
            _mm_setcsr(saved);
            ASSERT_EQ(s, kelStatusDivByZeroWarn);
            ASSERT_EQ(after & 0xE000u, mode);
            ASSERT_EQ(got, want) << "n " << n << " mode " << mode;
        }
    }
}

template <class T, class F> T one(F f, T divisor, T dividend, int n, KelStatus want = kelStatusOk)
{
    return arith_sweep::one_element<T>(want, f, divisor, dividend, n);
}

TEST(Div, QuotientsWhereTheRulesBite)
{
    const KelStatus warn = kelStatusDivByZeroWarn;
    EXPECT_EQ(one<Kel8u>(keliDiv_8u_C1RSfs, 0, 5, 0, warn), 255);
    EXPECT_EQ(one<Kel8u>(keliDiv_8u_C1RSfs, 0, 0, 0, warn), 0);
    EXPECT_EQ(one<Kel8u>(keliDiv_8u_C1RSfs, 2, 5, 0), 2);     // 2.5 to even
    EXPECT_EQ(one<Kel8u>(keliDiv_8u_C1RSfs, 3, 255, 0), 85);  // exact
    EXPECT_EQ(one<Kel8u>(keliDiv_8u_C1RSfs, 1, 255, 8), 1);   // 0.996
    EXPECT_EQ(one<Kel8u>(keliDiv_8u_C1RSfs, 1, 255, 9), 0);   // 0.498
    EXPECT_EQ(one<Kel8u>(keliDiv_8u_C1RSfs, 0, 1, 9, warn), 255);
    EXPECT_EQ(one<Kel8u>(keliDiv_8u_C1RSfs, 255, 1, -15), 129);  // 128.502
    EXPECT_EQ(one<Kel8u>(keliDiv_8u_C1RSfs, 255, 1, -16), 255);
    EXPECT_EQ(one<Kel8u>(keliDiv_8u_C1RSfs, 0, 1, -16, warn), 255);
    EXPECT_EQ(one<Kel8u>(keliDiv_8u_C1RSfs, 0, 0, -30, warn), 0);
    EXPECT_EQ(one<Kel16u>(keliDiv_16u_C1RSfs, 1, 65535, 16), 1);
    EXPECT_EQ(one<Kel16u>(keliDiv_16u_C1RSfs, 1, 65535, 17), 0);
    EXPECT_EQ(one<Kel16u>(keliDiv_16u_C1RSfs, 65535, 1, -32), 65535);
    EXPECT_EQ(one<Kel16u>(keliDiv_16u_C1RSfs, 0, 9, 3, warn), 65535);
    EXPECT_EQ(one<Kel16s>(keliDiv_16s_C1RSfs, 0, -9, 0, warn), -32768);
    EXPECT_EQ(one<Kel16s>(keliDiv_16s_C1RSfs, 0, -9, 20, warn), -32768);
    EXPECT_EQ(one<Kel16s>(keliDiv_16s_C1RSfs, -1, -32768, 0), 32767);
    EXPECT_EQ(one<Kel16s>(keliDiv_16s_C1RSfs, -3, 7, 0), -2);
    EXPECT_EQ(one<Kel16s>(keliDiv_16s_C1RSfs, -1, -32768, -40), 32767);
    EXPECT_EQ(one<Kel16s>(keliDiv_16s_C1RSfs, 1, -32768, -40), -32768);
    EXPECT_EQ(one<Kel16s>(keliDiv_16s_C1RSfs, -5, 3, -40), -32768);
    EXPECT_EQ(one<Kel16s>(keliDiv_16s_C1RSfs, -5, 0, -40), 0);
    EXPECT_EQ(one<Kel16s>(keliDiv_16s_C1RSfs, -1, -32768, 16), 0);
    const float inf = INFINITY;
    EXPECT_EQ(one<Kel32f>(bin32f<keliDiv_32f_C1R>, 0.0f, 1.0f, 0, warn), inf);
    EXPECT_EQ(one<Kel32f>(bin32f<keliDiv_32f_C1R>, -0.0f, 1.0f, 0, warn), -inf);
    EXPECT_TRUE(std::isnan(one<Kel32f>(bin32f<keliDiv_32f_C1R>, 0.0f, 0.0f, 0, warn)));
    EXPECT_EQ(one<Kel32f>(bin32f<keliDiv_32f_C1R>, 3.0f, 1.0f, 0), 1.0f / 3.0f);

    // keliDivC rounds the exact quotient: 7 / 2 is 3.5, to even 4; 5 / 2 to even 2.
    Kel8u a[2] = {7, 5}, d[2];
    ASSERT_EQ(keliDivC_8u_C1RSfs(a, 2, 2, d, 2, {2, 1}, 0), kelStatusOk);
    EXPECT_EQ(d[0], 4);
    EXPECT_EQ(d[1], 2);
    ASSERT_EQ(keliDivC_8u_C1RSfs(a, 2, 1, d, 2, {2, 1}, -16), kelStatusOk);
    EXPECT_EQ(d[0], 255);
    Kel16s s[2] = {-7, 7}, r[2];
    ASSERT_EQ(keliDivC_16s_C1RSfs(s, 4, -2, r, 4, {2, 1}, 0), kelStatusOk);
    EXPECT_EQ(r[0], 4);
    EXPECT_EQ(r[1], -4);
    ASSERT_EQ(keliDivC_16s_C1RSfs(s, 4, -1, r, 4, {2, 1}, -30), kelStatusOk);
    EXPECT_EQ(r[0], 32767);
    EXPECT_EQ(r[1], -32768);
    // keliDivC_32f multiplies by the reciprocal of the value.
    float f[2] = {1.0f, 0.3f}, g[2];
    ASSERT_EQ(keliDivC_32f_C1R(f, 8, 3.0f, g, 8, {2, 1}), kelStatusOk);
    EXPECT_EQ(g[0], 1.0f * (1.0f / 3.0f));
    EXPECT_EQ(g[1], 0.3f * (1.0f / 3.0f));
}

// A warning from the first row is kept to the end even though later rows have none, and the
// rows after it are computed in full.
TEST(Div, TheWarningOfAnEarlyRowIsKeptAndEveryRowIsComputed)
{
    Kel16u divisor[3][20], dividend[3][20], d[3][20];
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 20; ++x) divisor[y][x] = Kel16u(x + 1), dividend[y][x] = Kel16u(1000 * (y + 1) + x);
    divisor[0][17] = 0;
    ASSERT_EQ(keliDiv_16u_C1RSfs(&divisor[0][0], 40, &dividend[0][0], 40, &d[0][0], 40, {20, 3}, 0),
              kelStatusDivByZeroWarn);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 20; ++x)
            ASSERT_EQ(d[y][x], reference::div(dividend[y][x], divisor[y][x], 0)) << x << " " << y;
    EXPECT_EQ(d[0][17], 65535);
    // The same with the zero in the last row only, and in the 32f member.
    divisor[0][17] = 18;
    divisor[2][0] = 0;
    ASSERT_EQ(keliDiv_16u_C1RSfs(&divisor[0][0], 40, &dividend[0][0], 40, &d[0][0], 40, {20, 3}, 0),
              kelStatusDivByZeroWarn);
    ASSERT_EQ(keliDiv_16u_C1RSfs(&divisor[0][0], 40, &dividend[0][0], 40, &d[0][0], 40, {20, 2}, 0), kelStatusOk);
}

// Pointers, size, steps, then (keliDivC) each channel's value in channel order; nothing written.
TEST(Div, ChecksRunInOrderAndWriteNothing)
{
    Kel8u src[64] = {1}, dst[64];
    for (Kel8u& v : dst) v = 0x5A;
    const Kel8u zeroSecond[3] = {1, 0, 3};
    const KeliSize size{4, 2};
    EXPECT_EQ(keliDiv_8u_C1RSfs(nullptr, 0, src, 0, dst, 0, {0, 0}, 0), kelStatusNullPtr);
    EXPECT_EQ(keliDiv_8u_C3RSfs(src, 16, src, 16, nullptr, 16, size, 0), kelStatusNullPtr);
    EXPECT_EQ(keliDiv_8u_C1RSfs(src, 0, src, 0, dst, 0, {0, 2}, 0), kelStatusBadSize);
    EXPECT_EQ(keliDiv_8u_C1RSfs(src, 16, src, 16, dst, 16, {4, -1}, 0), kelStatusBadSize);
    EXPECT_EQ(keliDiv_8u_C1RSfs(src, 16, src, 0, dst, 16, size, 0), kelStatusBadStep);
    EXPECT_EQ(keliDiv_8u_C1RSfs(src, 16, src, 16, dst, -16, size, 0), kelStatusBadStep);
    EXPECT_EQ(keliDiv_16s_AC4IRSfs(reinterpret_cast<Kel16s*>(src), 0, reinterpret_cast<Kel16s*>(dst), 32, {1, 1}, 0),
              kelStatusBadStep);
    EXPECT_EQ(keliDiv_32f_C1R(reinterpret_cast<float*>(src), 16, reinterpret_cast<float*>(src), 16, nullptr, 16,
                              {1, 1}),
              kelStatusNullPtr);
    EXPECT_EQ(keliDiv_8u_C1RSfs_L(src, 16, src, 16, dst, 0, {4, 2}, 0), kelStatusBadStep);

    EXPECT_EQ(keliDivC_8u_C3RSfs(src, 16, nullptr, dst, 16, {0, 0}, 0), kelStatusNullPtr);
    EXPECT_EQ(keliDivC_8u_C3RSfs(src, 16, zeroSecond, dst, 16, {0, 1}, 0), kelStatusBadSize);
    EXPECT_EQ(keliDivC_8u_C3RSfs(src, 0, zeroSecond, dst, 16, {1, 1}, 0), kelStatusBadStep);
    EXPECT_EQ(keliDivC_8u_C3RSfs(src, 16, zeroSecond, dst, 16, {1, 1}, 0), kelStatusDivByZero);
    EXPECT_EQ(keliDivC_8u_AC4IRSfs(zeroSecond, dst, 16, {1, 1}, 0), kelStatusDivByZero);
    EXPECT_EQ(keliDivC_8u_C1RSfs(src, 16, 0, dst, 16, size, 30), kelStatusDivByZero);
    EXPECT_EQ(keliDivC_8u_C1IRSfs_L(0, dst, 16, {4, 2}, 0), kelStatusDivByZero);
    EXPECT_EQ(keliDivC_32f_C1R(reinterpret_cast<float*>(src), 16, -0.0f, reinterpret_cast<float*>(dst), 16, {1, 1}),
              kelStatusDivByZero);
    const float fz[4] = {1.0f, 2.0f, 3.0f, 0.0f};
    EXPECT_EQ(keliDivC_32f_C4IR(fz, reinterpret_cast<float*>(dst), 16, {1, 1}), kelStatusDivByZero);
    for (Kel8u v : dst) ASSERT_EQ(v, 0x5A);
    // AC4 reads three values: a fourth never counts.
    const Kel16s three[4] = {1, 2, 3, 0};
    Kel16s px[4] = {6, 6, 6, 9};
    EXPECT_EQ(keliDivC_16s_AC4IRSfs(three, px, 8, {1, 1}, 0), kelStatusOk);
    EXPECT_EQ(px[0], 6);
    EXPECT_EQ(px[1], 3);
    EXPECT_EQ(px[2], 2);
    EXPECT_EQ(px[3], 9);
}

// keliDivC from the zero bound on fills without reading the source.
TEST(Div, ConstantOutOfReachFillsWithoutReading)
{
    const Unreadable page;
    Kel8u d8[40];
    EXPECT_EQ(keliDivC_8u_C1RSfs(page.as<Kel8u>(), 40, 3, d8, 40, {40, 1}, 9), kelStatusOk);
    for (Kel8u v : d8) ASSERT_EQ(v, 0);
    Kel16u d16[12];
    const Kel16u v3[3] = {1, 2, 3};
    EXPECT_EQ(keliDivC_16u_C3RSfs(page.as<Kel16u>(), 24, v3, d16, 24, {4, 1}, 17), kelStatusOk);
    for (Kel16u v : d16) ASSERT_EQ(v, 0);
}

// Rows too far apart for 32-bit steps: the chunked path with its own status rule (the last
// chunk's status is the result).
template <class T> void far_rows_member(const FarRows& mem, const Member<T>& m, kit::Rng& rng)
{
    constexpr int W = 37;
    const int E = W * m.channels;
    T* a = mem.image<T>(0);
    T* b = mem.image<T>(1);
    T* d = mem.image<T>(2);
    const I64 s = FarRows::kStep;
    for (int n : kFloat<T> ? std::vector<int>{0} : std::vector<int>{0, 3, 20, -5, -40}) {
        SCOPED_TRACE(std::string(m.name) + " n " + std::to_string(n));
        T old[2][W * 4];
        for (int y = 0; y < 2; ++y)
            for (int e = 0; e < E; ++e) {
                FarRows::at(a, y, e) = divisor<T>(rng, false);
                FarRows::at(b, y, e) = edgy<T>(rng);
                FarRows::at(d, y, e) = old[y][e] = edgy<T>(rng);
            }
        // A zero in the first row only: the last row has none, so the wide result is Ok.
        FarRows::at(a, 0, 0) = T(0);
        ASSERT_EQ(m.rL(a, s, b, s, d, s, {W, 2}, n), kelStatusOk);
        for (int y = 0; y < 2; ++y)
            for (int e = 0; e < E; ++e) {
                const bool alpha = m.alpha && e % 4 == 3;
                const T want = alpha ? old[y][e] : reference::div(FarRows::at(b, y, e), FarRows::at(a, y, e), n);
                ASSERT_TRUE(same(FarRows::at(d, y, e), want)) << "y " << y << " e " << e;
            }
        FarRows::at(a, 1, 0) = T(0);
        ASSERT_EQ(m.rL(a, s, b, s, d, s, {W, 2}, n), kelStatusDivByZeroWarn);
        T value[4];
        for (T& v : value) v = divisor<T>(rng, false);
        ASSERT_EQ(m.crL(b, s, value, d, s, {W, 2}, n), kelStatusOk);
        for (int y = 0; y < 2; ++y)
            for (int e = 0; e < E; ++e) {
                if (m.alpha && e % 4 == 3) continue;
                const T want = reference::div_const(FarRows::at(b, y, e), value[e % m.channels], n);
                ASSERT_TRUE(same(FarRows::at(d, y, e), want)) << "constant y " << y << " e " << e;
            }
        EXPECT_EQ(m.rL(a, s, nullptr, s, d, s, {W, 2}, n), kelStatusNullPtr);
        value[0] = T(0);
        EXPECT_EQ(m.cirL(value, d, s, {W, 2}, n), kelStatusDivByZero);
    }
}

TEST(DivWide, RowsBeyondThe32BitStepsWalkInChunks)
{
    const FarRows mem;
    if (!mem.ok()) GTEST_SKIP() << "no address space for a sparse mapping";
    const auto check = [&](auto, const auto& m, kit::Rng& rng) { far_rows_member(mem, m, rng); };
    arith_sweep::each_member<Kel8u, Kel16u, Kel16s, Kel32f>(kMembers, check);
}

}  // namespace
