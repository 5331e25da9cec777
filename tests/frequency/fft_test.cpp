// Two-dimensional FFT: size formulas, accuracy against the f64 model, round trips, the bit
// identities the library keeps (lane widths, in place, channels), and the failure table.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "frequency/fft.hpp"
#include "keli.h"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "reference/dft.hpp"

namespace {

using ref::cd;

// Spec, init scratch and work buffer of one transform, sized by the size query.
struct Plans {
    std::vector<Kel8u> spec, init, buffer;
    KelStatus status = kelStatusOk;

    Plans(bool real, int ox, int oy, int flag)
    {
        int s = 0, i = 0, b = 0;
        status = real ? keliFFTGetSize_R_32f(ox, oy, flag, kelAlgHintNone, &s, &i, &b)
                      : keliFFTGetSize_C_32fc(ox, oy, flag, kelAlgHintNone, &s, &i, &b);
        if (status) return;
        spec.assign(s, 0);
        init.assign(i, 0);
        buffer.assign(b, 0);
        status = real ? keliFFTInit_R_32f(ox, oy, flag, kelAlgHintNone, spec.data(), i ? init.data() : nullptr)
                      : keliFFTInit_C_32fc(ox, oy, flag, kelAlgHintNone, spec.data(), i ? init.data() : nullptr);
        // Init copies what it needs: the scratch may be overwritten at once.
        std::fill(init.begin(), init.end(), Kel8u(0xEE));
    }
    const Kel8u* s() const { return spec.data(); }
    Kel8u* b() { return buffer.empty() ? nullptr : buffer.data(); }
};

std::vector<float> random_floats(std::size_t n, kit::Rng& rng)
{
    std::vector<float> v(n);
    for (auto& x : v) x = static_cast<float>(rng.any<float>() / 1000.0f);
    return v;
}

// Error of `got` against the f64 model, as the bound checks it: relative L2 error, and the
// largest element error in units of sum|x|.
struct Error {
    double relL2 = 0, maxAbs = 0;
};

template <class Got> Error error_of(const Got& got, const std::vector<double>& want, double sumAbs)
{
    double e2 = 0, w2 = 0, m = 0;
    for (std::size_t i = 0; i < want.size(); ++i) {
        const double d = static_cast<double>(got[i]) - want[i];
        e2 += d * d;
        w2 += want[i] * want[i];
        m = std::max(m, std::fabs(d));
    }
    return {w2 > 0 ? std::sqrt(e2 / w2) : std::sqrt(e2), sumAbs > 0 ? m / sumAbs : m};
}

// Single-precision rounding along log2(W*H) stages: 2^-24 per stage.
double bound(int ox, int oy) { return std::ldexp(1.0, -24) * (ox + oy); }

void expect_within(const Error& e, int ox, int oy, const char* what)
{
    EXPECT_LE(e.relL2, bound(ox, oy)) << what << " " << ox << "x" << oy << " relative L2";
    EXPECT_LE(e.maxAbs, bound(ox, oy)) << what << " " << ox << "x" << oy << " element";
}

// ---- Size formulas

// The size model written out once more, straight from the formulas, for every order.
struct Model {
    static long long al(long long x) { return (x + 63) & ~63LL; }
    static long long qw(int o) { return (((1LL << o) & ~3LL) + 67) & ~63LL; }
    static void pq(int o, long long& p, long long& q)
    {
        const int a = o <= 19 ? 4 : 8, m = o - a;
        if (m < 18) p = ((8LL << m) + 71) & ~63LL, q = al(8LL << m);
        else pq(m, p, q);
        p += 8LL << (o - 1);
        q = std::max(q, 8LL << (o <= 19 ? 10 : 14));
    }
    static void complex1(int o, long long& s, long long& i, long long& b)
    {
        if (o <= 5) { s = 208, i = 0, b = 0; return; }
        if (o <= 17) {
            s = (((8LL << o) + 71) & ~63LL) + qw(o) + 256;
            i = o <= 10 ? 0 : qw(o) + 64;
            b = al(8LL << o) + 64;
            return;
        }
        long long p, q;
        pq(o, p, q);
        const long long d = o == 18 ? p + qw(18) : p + (4LL << (o - 12)) + 4160;
        s = d + 256, i = qw(o) + 64, b = (o == 18 ? q : std::max(q, 0x10000LL)) + 64;
    }
    static void real1(int o, long long& s, long long& i, long long& b)
    {
        if (o <= 4) { s = 208, i = 0, b = 0; return; }
        const long long t = o < 21 ? al((2LL << o) & ~7LL) : ((8LL << (o - 12)) + 8255) & ~63LL;
        if (o <= 6) { s = 256 + 2 * t, i = 0, b = 0; return; }
        long long cs, ci, cb;
        complex1(o - 1, cs, ci, cb);
        s = cs + 2 * t, i = o <= 10 ? 0 : qw(o) + 64, b = cb;
    }
};

TEST(FFTSizes, MatchTheFormulasForAllOrders)
{
    for (int ox = 0; ox <= 29; ++ox)
        for (int oy = 0; oy <= 29; ++oy)
            for (bool real : {true, false}) {
                long long sx, ix, bx, sy, iy, by, sc = 0, ic = 0, bc = 0, spec, init, buf;
                if (!real && (ox > 28 || oy > 28)) continue;
                if (real && oy > 28) continue;
                (real ? Model::real1 : Model::complex1)(ox, sx, ix, bx);
                (real ? Model::real1 : Model::complex1)(oy, sy, iy, by);
                if (ox == oy) sy = 0, iy = 0, by = bx;
                if (real) {
                    Model::complex1(oy, sc, ic, bc);
                    spec = Model::al(sc) + Model::al(sy) + Model::al(sx) + 192;
                    init = Model::al(ic) + Model::al(iy) + Model::al(ix);
                    buf = std::max({bc + 4 * (16LL << oy), by + 4 * (4LL << oy), bx + 4 * (4LL << ox)}) + 64;
                } else {
                    spec = Model::al(sx) + Model::al(sy) + 192;
                    init = Model::al(ix) + Model::al(iy);
                    buf = Model::al(std::max((64LL << oy) + by, bx)) + 64;
                }
                if (init) init += 64;
                int s = -1, i = -1, b = -1;
                const KelStatus st = real ? keliFFTGetSize_R_32f(ox, oy, 8, kelAlgHintNone, &s, &i, &b)
                                          : keliFFTGetSize_C_32fc(ox, oy, 8, kelAlgHintNone, &s, &i, &b);
                const bool over = std::max({spec, init, buf}) > 0x7FFFFFFF;
                ASSERT_EQ(st, over ? kelStatusSizeOverflow : kelStatusOk) << real << " " << ox << "x" << oy;
                if (!over) {
                    EXPECT_EQ(s, spec) << real << " " << ox << "x" << oy;
                    EXPECT_EQ(i, init) << real << " " << ox << "x" << oy;
                    EXPECT_EQ(b, buf) << real << " " << ox << "x" << oy;
                }
            }
}

TEST(FFTSizes, KnownValues)
{
    struct Case {
        int ox, oy, spec, init, buf;
    };
    for (const Case& c : {Case{8, 8, 5440, 0, 18560}, Case{11, 11, 36800, 4416, 147584}}) {
        int s, i, b;
        ASSERT_EQ(keliFFTGetSize_R_32f(c.ox, c.oy, 2, kelAlgHintNone, &s, &i, &b), kelStatusOk);
        EXPECT_EQ(s, c.spec);
        EXPECT_EQ(i, c.init);
        EXPECT_EQ(b, c.buf);
    }
    // A real 25 x 25 image needs a work buffer of 2,148,532,352 bytes: beyond the 32-bit result.
    int s, i, b;
    EXPECT_EQ(keliFFTGetSize_R_32f(25, 25, 2, kelAlgHintNone, &s, &i, &b), kelStatusSizeOverflow);
    EXPECT_EQ(keli::fft::real_2d_sizes(25, 25).buffer, 2148532352LL);
}

// ---- Accuracy against the f64 model

struct Real2D {
    int ox, oy;
};

// Forward real transform against the packed f64 spectrum, and forward complex transform against
// the f64 spectrum; both with flag 8 (no scaling).
TEST(FFTAccuracy, RealAndComplexAgainstModel)
{
    kit::Rng rng;
    std::vector<Real2D> cases = {{9, 9}, {7, 3}, {3, 7}, {5, 5}, {6, 1}, {1, 6}, {2, 2}, {4, 10}, {10, 2}};
    for (int k = 0; k <= 11; ++k) cases.push_back({k, 0}), cases.push_back({0, k});
    for (const Real2D& c : cases) {
        const std::size_t w = std::size_t(1) << c.ox, h = std::size_t(1) << c.oy;
        const auto x = random_floats(w * h, rng);
        std::vector<cd> xc(w * h);
        double sumAbs = 0;
        for (std::size_t i = 0; i < w * h; ++i) xc[i] = x[i], sumAbs += std::fabs(x[i]);
        const auto X = ref::dft_2d(xc, w, h, -1);

        Plans real(true, c.ox, c.oy, 8);
        ASSERT_EQ(real.status, kelStatusOk);
        std::vector<float> packed(w * h);
        const int step = static_cast<int>(w * 4);
        ASSERT_EQ(keliFFTFwd_RToPack_32f_C1R(x.data(), step, packed.data(), step, real.s(), real.b()), kelStatusOk);
        expect_within(error_of(packed, ref::pack(X, w, h), sumAbs), c.ox, c.oy, "real forward");

        if (c.ox + c.oy > 14) continue;  // the f64 model's time grows with (W + H) * W * H
        // The complex transform of a complex image: real part x, imaginary part x reversed.
        std::vector<Kel32fc> z(w * h);
        double sumC = 0;
        for (std::size_t i = 0; i < w * h; ++i) {
            z[i] = {x[i], x[w * h - 1 - i]};
            xc[i] = cd(x[i], x[w * h - 1 - i]);
            sumC += std::abs(xc[i]);
        }
        const auto Z = ref::dft_2d(xc, w, h, -1);
        Plans cplx(false, c.ox, c.oy, 8);
        ASSERT_EQ(cplx.status, kelStatusOk);
        std::vector<Kel32fc> out(w * h);
        const int cstep = static_cast<int>(w * 8);
        ASSERT_EQ(keliFFTFwd_CToC_32fc_C1R(z.data(), cstep, out.data(), cstep, cplx.s(), cplx.b()), kelStatusOk);
        std::vector<double> want(2 * w * h), got(2 * w * h);
        for (std::size_t i = 0; i < w * h; ++i) {
            want[2 * i] = Z[i].real(), want[2 * i + 1] = Z[i].imag();
            got[2 * i] = out[i].re, got[2 * i + 1] = out[i].im;
        }
        expect_within(error_of(got, want, sumC), c.ox, c.oy, "complex forward");
        // The inverse against the model's inverse of the same data.
        const auto zi = ref::dft_2d(std::vector<cd>(xc), w, h, +1);
        ASSERT_EQ(keliFFTInv_CToC_32fc_C1R(z.data(), cstep, out.data(), cstep, cplx.s(), cplx.b()), kelStatusOk);
        for (std::size_t i = 0; i < w * h; ++i) {
            want[2 * i] = zi[i].real(), want[2 * i + 1] = zi[i].imag();
            got[2 * i] = out[i].re, got[2 * i + 1] = out[i].im;
        }
        expect_within(error_of(got, want, sumC), c.ox, c.oy, "complex inverse");
    }
}

// The packed layout of the small cases, value by value: a 2 x 2 image has four real positions.
TEST(FFTAccuracy, TwoByTwoIsAllReal)
{
    Plans s(true, 1, 1, 8);
    const float x[4] = {1, 2, 3, 5};
    float out[4];
    ASSERT_EQ(keliFFTFwd_RToPack_32f_C1R(x, 8, out, 8, s.s(), s.b()), kelStatusOk);
    // [X(0,0), X(1,0); X(0,1), X(1,1)]
    EXPECT_EQ(out[0], 11.0f);
    EXPECT_EQ(out[1], -3.0f);
    EXPECT_EQ(out[2], -5.0f);
    EXPECT_EQ(out[3], 1.0f);
}

// ---- Round trips

TEST(FFTRoundTrip, EveryFlagRestoresTheImage)
{
    kit::Rng rng;
    std::vector<Real2D> cases = {{8, 9}, {9, 9}};
    for (int k = 0; k <= 12; ++k) cases.push_back({k, 0}), cases.push_back({0, k});
    for (const Real2D& c : cases)
        for (int flag : {1, 2, 4, 8}) {
            const std::size_t w = std::size_t(1) << c.ox, h = std::size_t(1) << c.oy;
            const double gain = flag == 8 ? static_cast<double>(w * h) : 1.0;
            const auto x = random_floats(w * h, rng);
            double sumAbs = 0;
            std::vector<double> want(w * h), want2(2 * w * h);
            for (std::size_t i = 0; i < w * h; ++i) {
                want[i] = x[i] * gain, sumAbs += std::fabs(x[i]) * gain;
                want2[2 * i] = x[i] * gain, want2[2 * i + 1] = -x[i] * gain;
            }
            Plans real(true, c.ox, c.oy, flag);
            ASSERT_EQ(real.status, kelStatusOk);
            std::vector<float> a(w * h), b(w * h);
            const int step = static_cast<int>(w * 4);
            ASSERT_EQ(keliFFTFwd_RToPack_32f_C1R(x.data(), step, a.data(), step, real.s(), real.b()), kelStatusOk);
            ASSERT_EQ(keliFFTInv_PackToR_32f_C1R(a.data(), step, b.data(), step, real.s(), real.b()), kelStatusOk);
            const Error e = error_of(b, want, sumAbs);
            // Forward and inverse each round once per stage.
            EXPECT_LE(e.relL2, 2 * bound(c.ox, c.oy) + 1e-30) << c.ox << "x" << c.oy << " flag " << flag;

            Plans cplx(false, c.ox, c.oy, flag);
            ASSERT_EQ(cplx.status, kelStatusOk);
            std::vector<Kel32fc> z(w * h);
            for (std::size_t i = 0; i < w * h; ++i) z[i] = {x[i], -x[i]};
            const int cstep = static_cast<int>(w * 8);
            ASSERT_EQ(keliFFTFwd_CToC_32fc_C1IR(z.data(), cstep, cplx.s(), cplx.b()), kelStatusOk);
            ASSERT_EQ(keliFFTInv_CToC_32fc_C1IR(z.data(), cstep, cplx.s(), cplx.b()), kelStatusOk);
            std::vector<double> got(2 * w * h);
            for (std::size_t i = 0; i < w * h; ++i) got[2 * i] = z[i].re, got[2 * i + 1] = z[i].im;
            EXPECT_LE(error_of(got, want2, 2 * sumAbs).relL2, 2 * bound(c.ox, c.oy) + 1e-30)
                << "complex " << c.ox << "x" << c.oy << " flag " << flag;
        }
}

// Long rows: real rows of order 20 and 21 (whose split factors come in two levels from 21 on)
// and complex rows of order 18 and 19, which run in place past the work buffer's size.
TEST(FFTRoundTrip, LongRows)
{
    kit::Rng rng;
    for (const auto& [real, o] : {std::pair{true, 20}, std::pair{true, 21}, std::pair{false, 18}, std::pair{false, 19}}) {
        const std::size_t n = std::size_t(1) << o;
        const auto x = random_floats(real ? n : 2 * n, rng);
        Plans s(real, o, 0, 2);
        ASSERT_EQ(s.status, kelStatusOk);
        std::vector<float> spec(x.size()), back(x.size());
        const int step = static_cast<int>(x.size() * 4);
        if (real) {
            ASSERT_EQ(keliFFTFwd_RToPack_32f_C1R(x.data(), step, spec.data(), step, s.s(), s.b()), kelStatusOk);
            ASSERT_EQ(keliFFTInv_PackToR_32f_C1R(spec.data(), step, back.data(), step, s.s(), s.b()), kelStatusOk);
        } else {
            auto* in = reinterpret_cast<const Kel32fc*>(x.data());
            ASSERT_EQ(keliFFTFwd_CToC_32fc_C1R(in, step, reinterpret_cast<Kel32fc*>(spec.data()), step, s.s(), s.b()), kelStatusOk);
            ASSERT_EQ(keliFFTInv_CToC_32fc_C1R(reinterpret_cast<Kel32fc*>(spec.data()), step,
                                               reinterpret_cast<Kel32fc*>(back.data()), step, s.s(), s.b()), kelStatusOk);
        }
        std::vector<double> want(x.begin(), x.end());
        EXPECT_LE(error_of(back, want, 1).relL2, 2 * bound(o, 0)) << o;
        // Sampled bins against direct f64 sums.
        std::vector<cd> xc(n);
        double sumAbs = 0;
        for (std::size_t i = 0; i < n; ++i) {
            xc[i] = real ? cd(x[i]) : cd(x[2 * i], x[2 * i + 1]);
            sumAbs += std::abs(xc[i]);
        }
        for (int t = 0; t < 4; ++t) {
            const std::size_t k = real ? 1 + rng.below(static_cast<int>(n / 2 - 1)) : rng.below(static_cast<int>(n));
            const cd want_k = ref::dft_bin(xc, static_cast<long long>(k), -1);
            const cd got_k = real ? cd(spec[2 * k - 1], spec[2 * k]) : cd(spec[2 * k], spec[2 * k + 1]);
            EXPECT_LE(std::abs(got_k - want_k) / sumAbs, bound(o, 0)) << o << " bin " << k;
        }
    }
}

// ---- Bit identities

// A column gets the same bits by the 8-, 4- and 1-lane routes, scaled or not, either way.
TEST(FFTBits, ColumnRoutesAgree)
{
    using namespace keli::fft;
    kit::Rng rng;
    for (int n : {0, 1, 2, 3, 4, 5, 6, 9, 11}) {
        Plans s(false, 0, n, 1);
        const auto* spec = keli::spec::aligned<Spec2D>(s.spec.data());
        const Plan& p = spec->plan[1] ? *spec->plan[1] : *spec->plan[0];
        const std::size_t h = std::size_t(1) << n, cols = 8;
        const auto x = random_floats(h * cols * 2, rng);
        const std::ptrdiff_t step = cols * 2 * 4;
        std::vector<Cx<F8>> w8(h);
        std::vector<Cx<F4>> w4(h);
        std::vector<Cx<float>> w1(h);
        for (bool inv : {false, true})
            for (float scale : {1.0f, p.scale}) {
                std::vector<float> a(x.size()), b(x.size()), c(x.size());
                const Columns all{0, 2, 1};
                auto run = [&](auto& work, std::vector<float>& out, int lanes) {
                    for (std::size_t c0 = 0; c0 < cols; c0 += lanes)
                        inv ? column_group<std::remove_reference_t<decltype(work[0].re)>, true>(
                                  x.data(), step, out.data(), step, all, c0, lanes, n, p.cplx, scale, work.data())
                            : column_group<std::remove_reference_t<decltype(work[0].re)>, false>(
                                  x.data(), step, out.data(), step, all, c0, lanes, n, p.cplx, scale, work.data());
                };
                run(w8, a, 8);
                run(w4, b, 4);
                run(w1, c, 1);
                EXPECT_EQ(0, std::memcmp(a.data(), b.data(), a.size() * 4)) << n << " 8 vs 4";
                EXPECT_EQ(0, std::memcmp(a.data(), c.data(), a.size() * 4)) << n << " 8 vs 1";
                // A partial group of four gives its live columns the same bits too.
                std::vector<float> d(x.size(), 0.0f);
                inv ? column_group<F4, true>(x.data(), step, d.data(), step, all, 1, 3, n, p.cplx, scale, w4.data())
                    : column_group<F4, false>(x.data(), step, d.data(), step, all, 1, 3, n, p.cplx, scale, w4.data());
                for (std::size_t y = 0; y < h; ++y)
                    EXPECT_EQ(0, std::memcmp(&d[y * 16 + 2], &a[y * 16 + 2], 6 * 4)) << n << " partial";
            }
    }
}

// In place equals out of place, and each channel of C3, C4, AC4 equals C1 on its plane; rows
// padded, guard bytes and alpha untouched.
TEST(FFTBits, InPlaceAndChannelsMatchOnePlane)
{
    kit::Rng rng;
    for (const Real2D c : {Real2D{9, 9}, Real2D{5, 3}, Real2D{0, 4}, Real2D{4, 0}, Real2D{1, 1}, Real2D{10, 2}})
        for (bool inverse : {false, true}) {
            const int w = 1 << c.ox, h = 1 << c.oy;
            Plans s(true, c.ox, c.oy, 4);
            ASSERT_EQ(s.status, kelStatusOk);
            auto fwd = [&](auto f1, const kit::Image<float>& src, kit::Image<float>& dst) {
                return f1(src.data(), src.step(), dst.data(), dst.step(), s.s(), s.b());
            };
            kit::Image<float> plane[4] = {{w, h, 1, {1, 12}}, {w, h, 1, {1, 12}}, {w, h, 1, {1, 12}}, {w, h, 1, {1, 12}}};
            kit::Image<float> out1[4] = {{w, h, 1, {3, 4}}, {w, h, 1, {3, 4}}, {w, h, 1, {3, 4}}, {w, h, 1, {3, 4}}};
            for (int ch = 0; ch < 4; ++ch) {
                plane[ch].fill([&] { return rng.any<float>() / 1000.0f; });
                const auto guards = out1[ch].snapshot();
                ASSERT_EQ(inverse ? fwd(keliFFTInv_PackToR_32f_C1R, plane[ch], out1[ch]) : fwd(keliFFTFwd_RToPack_32f_C1R, plane[ch], out1[ch]),
                          kelStatusOk);
                EXPECT_EQ(kit::first_stray_write(out1[ch], guards, kit::any_element), -1);
            }
            // In place, C1.
            kit::Image<float> inPlace = plane[0];
            ASSERT_EQ(inverse ? keliFFTInv_PackToR_32f_C1IR(inPlace.data(), inPlace.step(), s.s(), s.b())
                              : keliFFTFwd_RToPack_32f_C1IR(inPlace.data(), inPlace.step(), s.s(), s.b()),
                      kelStatusOk);
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x) ASSERT_EQ(inPlace.at(x, y), out1[0].at(x, y)) << "in place " << x << "," << y;

            for (int channels : {3, 4, 5}) {  // 5 stands for AC4
                const int stored = channels == 5 ? 4 : channels, processed = channels == 5 ? 3 : channels;
                kit::Image<float> src(w, h, stored, {1, 8}), dst(w, h, stored, {2, 20});
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < w; ++x)
                        for (int ch = 0; ch < stored; ++ch) src.at(x, y, ch) = plane[ch].at(x, y);
                dst.fill([] { return -7.5f; });
                const auto before = dst.snapshot();
                kit::Image<float> inPl = src;
                KelStatus st, sti;
                if (channels == 3) {
                    st = inverse ? fwd(keliFFTInv_PackToR_32f_C3R, src, dst) : fwd(keliFFTFwd_RToPack_32f_C3R, src, dst);
                    sti = inverse ? keliFFTInv_PackToR_32f_C3IR(inPl.data(), inPl.step(), s.s(), s.b())
                                  : keliFFTFwd_RToPack_32f_C3IR(inPl.data(), inPl.step(), s.s(), s.b());
                } else if (channels == 4) {
                    st = inverse ? fwd(keliFFTInv_PackToR_32f_C4R, src, dst) : fwd(keliFFTFwd_RToPack_32f_C4R, src, dst);
                    sti = inverse ? keliFFTInv_PackToR_32f_C4IR(inPl.data(), inPl.step(), s.s(), s.b())
                                  : keliFFTFwd_RToPack_32f_C4IR(inPl.data(), inPl.step(), s.s(), s.b());
                } else {
                    st = inverse ? fwd(keliFFTInv_PackToR_32f_AC4R, src, dst) : fwd(keliFFTFwd_RToPack_32f_AC4R, src, dst);
                    sti = inverse ? keliFFTInv_PackToR_32f_AC4IR(inPl.data(), inPl.step(), s.s(), s.b())
                                  : keliFFTFwd_RToPack_32f_AC4IR(inPl.data(), inPl.step(), s.s(), s.b());
                }
                ASSERT_EQ(st, kelStatusOk);
                ASSERT_EQ(sti, kelStatusOk);
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < w; ++x)
                        for (int ch = 0; ch < stored; ++ch) {
                            const float want = ch < processed ? out1[ch].at(x, y) : -7.5f;
                            ASSERT_EQ(dst.at(x, y, ch), want) << channels << " ch " << ch << " at " << x << "," << y;
                            ASSERT_EQ(inPl.at(x, y, ch), ch < processed ? want : plane[ch].at(x, y)) << x << "," << y
                                << channels << " in place ch " << ch << " " << c.ox << "x" << c.oy << " inverse " << inverse;
                        }
                EXPECT_EQ(kit::first_stray_write(dst, before, [&](int, int, int ch) { return ch < processed; }), -1);
            }
        }
}

// Complex images: in place equals out of place, padded rows and guard bytes untouched.
TEST(FFTBits, ComplexInPlaceAndGuards)
{
    kit::Rng rng;
    for (const Real2D c : {Real2D{9, 9}, Real2D{5, 3}, Real2D{4, 0}, Real2D{0, 4}, Real2D{6, 6}})
        for (bool inverse : {false, true}) {
            const int w = 1 << c.ox, h = 1 << c.oy;
            Plans s(false, c.ox, c.oy, 1);
            kit::Image<Kel32fc> src(w, h, 1, {1, 24}), dst(w, h, 1, {3, 8});
            src.fill([&] { return Kel32fc{rng.any<float>() / 1000.0f, rng.any<float>() / 1000.0f}; });
            const auto guards = dst.snapshot();
            kit::Image<Kel32fc> inPlace = src;
            auto run = inverse ? keliFFTInv_CToC_32fc_C1R : keliFFTFwd_CToC_32fc_C1R;
            auto runI = inverse ? keliFFTInv_CToC_32fc_C1IR : keliFFTFwd_CToC_32fc_C1IR;
            ASSERT_EQ(run(src.data(), src.step(), dst.data(), dst.step(), s.s(), s.b()), kelStatusOk);
            ASSERT_EQ(runI(inPlace.data(), inPlace.step(), s.s(), s.b()), kelStatusOk);
            EXPECT_EQ(kit::first_stray_write(dst, guards, kit::any_element), -1);
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x)
                    ASSERT_TRUE(std::memcmp(&dst.at(x, y), &inPlace.at(x, y), sizeof(Kel32fc)) == 0) << x << "," << y;
        }
}

// ---- Failure table

TEST(FFTChecks, SizeQueryAndInit)
{
    int s, i, b;
    struct Case {
        bool real;
        int ox, oy, flag;
        bool nullPtr;
        KelStatus want;
    };
    const Case sizeCases[] = {
        {true, 3, 3, 1, true, kelStatusNullPtr},
        {true, 30, 3, 3, false, kelStatusBadFftFlag},    // complex Y is checked first, then the flag
        {true, 30, 3, 2, false, kelStatusBadFftOrder},   // real X above 29
        {true, 3, 29, 2, false, kelStatusBadFftOrder},   // complex Y above 28
        {true, -1, 3, 2, false, kelStatusBadFftOrder},   // negative orders are out of range
        {false, 29, 3, 2, false, kelStatusBadFftOrder},
        {false, 3, 3, 0, false, kelStatusBadFftFlag},
        {false, 28, 28, 2, false, kelStatusSizeOverflow},
        {true, 20, 0, 8, false, kelStatusOk},
    };
    for (const Case& c : sizeCases) {
        s = i = b = -3;
        const KelStatus st = c.real ? keliFFTGetSize_R_32f(c.ox, c.oy, c.flag, kelAlgHintNone, c.nullPtr ? nullptr : &s, &i, &b)
                                    : keliFFTGetSize_C_32fc(c.ox, c.oy, c.flag, kelAlgHintNone, &s, c.nullPtr ? nullptr : &i, &b);
        EXPECT_EQ(st, c.want) << c.real << " " << c.ox << "x" << c.oy << " flag " << c.flag;
        if (st != kelStatusOk) {
            EXPECT_TRUE(s == -3 && i == -3 && b == -3);
        }
    }
    std::vector<Kel8u> spec(4096, 0x5A), mem(1024, 0);
    const std::vector<Kel8u> canary = spec;
    const Case initCases[] = {
        {true, 31, 3, 2, false, kelStatusBadFftOrder},
        {true, 3, 31, 2, true, kelStatusBadFftOrder},  // before the null spec
        {true, 3, 3, 2, true, kelStatusNullPtr},
        {true, 30, 3, 2, false, kelStatusBadFftOrder},  // passes the first test, fails the plan's
        {true, 3, 3, 3, false, kelStatusBadFftFlag},
        {false, 11, 3, 2, false, kelStatusNullPtr},  // pMemInit needed from order 11 (null below)
        {true, 11, 3, 2, false, kelStatusNullPtr},
        {true, 3, 5, 2, false, kelStatusOk},
    };
    for (const Case& c : initCases) {
        Kel8u* p = c.nullPtr ? nullptr : spec.data();
        const KelStatus st = c.real ? keliFFTInit_R_32f(c.ox, c.oy, c.flag, kelAlgHintNone, p, nullptr)
                                    : keliFFTInit_C_32fc(c.ox, c.oy, c.flag, kelAlgHintNone, p, nullptr);
        EXPECT_EQ(st, c.want) << c.real << " " << c.ox << "x" << c.oy;
        if (st != kelStatusOk) {
            EXPECT_EQ(spec, canary);
        }
    }
}

TEST(FFTChecks, Transforms)
{
    Plans real(true, 3, 2, 2), cplx(false, 3, 2, 2);
    std::vector<float> src(8 * 4, 1.0f), dst(8 * 4, 9.0f);
    std::vector<Kel32fc> csrc(8 * 4, {1, 1}), cdst(8 * 4, {9, 9});
    const auto canary = dst;
    Kel8u* b = real.b();
    struct Case {
        const Kel8u* spec;
        const float* s;
        int ss;
        float* d;
        int ds;
        Kel8u* buf;
        KelStatus want;
    };
    const Case cases[] = {
        {nullptr, nullptr, 0, nullptr, 0, nullptr, kelStatusNullPtr},  // the spec first
        {cplx.s(), nullptr, 0, nullptr, 0, nullptr, kelStatusSpecMismatch},
        {real.s(), nullptr, 32, dst.data(), 32, b, kelStatusNullPtr},
        {real.s(), src.data(), 32, nullptr, 32, b, kelStatusNullPtr},
        {real.s(), src.data(), 0, dst.data(), 32, b, kelStatusBadStep},
        {real.s(), src.data(), 32, dst.data(), -32, b, kelStatusBadStep},
        {real.s(), src.data(), 32, dst.data(), 32, nullptr, kelStatusNullPtr},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(keliFFTFwd_RToPack_32f_C1R(c.s, c.ss, c.d, c.ds, c.spec, c.buf), c.want);
        EXPECT_EQ(keliFFTInv_PackToR_32f_C3R(c.s, c.ss, c.d, c.ds, c.spec, c.buf), c.want);
        EXPECT_EQ(dst, canary);
    }
    // A real spec refused by the complex transform, and the other way round; nothing written.
    EXPECT_EQ(keliFFTFwd_CToC_32fc_C1R(csrc.data(), 64, cdst.data(), 64, real.s(), cplx.b()), kelStatusSpecMismatch);
    EXPECT_EQ(keliFFTInv_CToC_32fc_C1IR(cdst.data(), 64, real.s(), cplx.b()), kelStatusSpecMismatch);
    EXPECT_EQ(keliFFTFwd_RToPack_32f_C1IR(dst.data(), 32, cplx.s(), real.b()), kelStatusSpecMismatch);
    EXPECT_EQ(keliFFTFwd_CToC_32fc_C1R(csrc.data(), 64, cdst.data(), 64, cplx.s(), nullptr), kelStatusNullPtr);
    EXPECT_EQ(dst, canary);
    for (const auto& v : cdst) EXPECT_TRUE(v.re == 9 && v.im == 9);
}

}  // namespace
