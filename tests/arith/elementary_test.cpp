// keliSqr, keliSqrt, keliLn, keliExp: every member against the plain model over the geometry sweep
// for scale factors of every kind; the integer functions exhaustively for 8u, 16u and 16s and every
// scale factor from -20 to 20; the 32f logarithm and exponential against long double within a few
// units in the last place and element by element equal to themselves on single elements; the
// warnings and their order; the short cuts that read nothing; extreme scale factors; check order.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "arith_sweep.hpp"
#include "keli.h"
#include "kit/arith.hpp"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "kit/unary.hpp"
#include "reference/elementary.hpp"
#include "reference/mul_div.hpp"

namespace {

template <class T> using Scaled = KelStatus (*)(const T*, int, T*, int, KeliSize, int);
template <class T> using ScaledI = KelStatus (*)(T*, int, KeliSize, int);
using Plain = KelStatus (*)(const float*, int, float*, int, KeliSize);
using PlainI = KelStatus (*)(float*, int, KeliSize);

enum class Fn { Sqr, Sqrt, Ln, Exp };

template <class T> T model(Fn fn, T a, int n)
{
    switch (fn) {
    case Fn::Sqr: return reference::mul(a, a, n);
    case Fn::Sqrt: return reference::sqrt_scaled(a, n);
    case Fn::Ln: return reference::ln_scaled(a, n);
    case Fn::Exp: return reference::exp_scaled(a, n);
    }
    return T(0);
}

template <class T> struct Member {
    const char* name;
    Fn fn;
    kit::UnaryLayout layout;
    Scaled<T> r;
    ScaledI<T> ir;
};
#define KELI_EL(F, T, L, C, A) Member<Kel##T>{#F "_" #T "_" #L, Fn::F, {C, A}, keli##F##_##T##_##L##RSfs, keli##F##_##T##_##L##IRSfs}
#define KELI_EL4(F, T) KELI_EL(F, T, C1, 1, false), KELI_EL(F, T, C3, 3, false), KELI_EL(F, T, C4, 4, false), KELI_EL(F, T, AC4, 4, true)
#define KELI_EL3(F, T) KELI_EL(F, T, C1, 1, false), KELI_EL(F, T, C3, 3, false), KELI_EL(F, T, AC4, 4, true)
#define KELI_EL2(F, T) KELI_EL(F, T, C1, 1, false), KELI_EL(F, T, C3, 3, false)
#define KELI_ELS(T) KELI_EL4(Sqr, T), KELI_EL3(Sqrt, T), KELI_EL2(Ln, T), KELI_EL2(Exp, T)

template <class T> std::vector<Member<T>> members();
template <> std::vector<Member<Kel8u>> members() { return {KELI_ELS(8u)}; }
template <> std::vector<Member<Kel16u>> members() { return {KELI_ELS(16u)}; }
template <> std::vector<Member<Kel16s>> members() { return {KELI_ELS(16s)}; }

// Inputs that raise no warning: Sqrt takes no negative, Ln neither a negative nor a zero.
template <class T> T draw(Fn fn, kit::Rng& rng)
{
    T v = kit::arith::edgy<T>(rng);
    if (fn == Fn::Sqrt && v < 0) v = T(-(v + 1));
    if (fn == Fn::Ln && v <= 0) {
        v = T(-(v + 1));
        if (v <= 0) v = 1;
    }
    if (fn == Fn::Exp && std::is_signed_v<T> && rng.below(2)) v = T(rng.below(40) - 20);  // where exp is not saturated
    return v;
}

TEST(Elementary, IntegerMembersMatchTheModelOverTheSweep)
{
    kit::Rng rng;
    auto run = [&](auto type) {
        using T = decltype(type);
        for (const Member<T>& m : members<T>())
            for (int n : {0, 1, 8, 17, -1, -4, -16, INT_MIN, INT_MAX}) {
                SCOPED_TRACE(std::string(m.name) + " n " + std::to_string(n));
                // The extreme factors of Sqrt and Ln through the model's own clamp: beyond +-64
                // nothing changes. Exp has its own test of them.
                if (m.fn == Fn::Exp && (n == INT_MIN || n == INT_MAX)) continue;
                const int mn = n == INT_MIN ? -70 : n == INT_MAX ? 70 : n;
                kit::unary_sweep<T>(
                    m.layout, [&](const T* s, int ss, T* d, int ds, KeliSize z) { return m.r(s, ss, d, ds, z, n); },
                    [&](T* d, int ds, KeliSize z) { return m.ir(d, ds, z, n); },
                    [&](T a) { return model(m.fn, a, m.fn == Fn::Sqr ? n : mn); }, [&] { return draw<T>(m.fn, rng); },
                    {m.layout.channels == 1 ? 36 : 16});
                if (HasFailure()) return;
            }
    };
    run(Kel8u{});
    run(Kel16u{});
    run(Kel16s{});
}

// Every input of each integer type through C1 and, shifted by one element, through the in-place
// form, for each scale factor from -20 to 20, against long double; with the status each must give.
template <class T> void exhaustive(Scaled<T> f, ScaledI<T> fi, Fn fn)
{
    const int count = 1 << (8 * sizeof(T));
    std::vector<T> src(count + 1), dst(count + 1), io(count + 1);
    for (int i = 0; i < count; ++i) src[i] = static_cast<T>(std::numeric_limits<T>::min() + i);
    const bool negatives = std::is_signed_v<T>;
    const KelStatus want = fn == Fn::Sqrt ? (negatives ? kelStatusSqrtNegArg : kelStatusOk)
                           : fn == Fn::Ln ? kelStatusLnZeroArg
                                          : kelStatusOk;
    for (int n = -20; n <= 20; ++n) {
        SCOPED_TRACE("n " + std::to_string(n));
        ASSERT_EQ(f(src.data(), 1, dst.data(), 1, {count, 1}, n), want);
        for (int i = 0; i < count; ++i) io[i + 1] = src[i];
        ASSERT_EQ(fi(io.data() + 1, 1, {count, 1}, n), want);
        for (int i = 0; i < count; ++i) {
            const T w = model(fn, src[i], n);
            ASSERT_EQ(dst[i], w) << "a " << +src[i];
            ASSERT_EQ(io[i + 1], w) << "in place, a " << +src[i];
        }
    }
}

TEST(Elementary, IntegerSqrtLnExpExhaustive)
{
    exhaustive<Kel8u>(keliSqrt_8u_C1RSfs, keliSqrt_8u_C1IRSfs, Fn::Sqrt);
    exhaustive<Kel16u>(keliSqrt_16u_C1RSfs, keliSqrt_16u_C1IRSfs, Fn::Sqrt);
    exhaustive<Kel16s>(keliSqrt_16s_C1RSfs, keliSqrt_16s_C1IRSfs, Fn::Sqrt);
    exhaustive<Kel8u>(keliLn_8u_C1RSfs, keliLn_8u_C1IRSfs, Fn::Ln);
    exhaustive<Kel16u>(keliLn_16u_C1RSfs, keliLn_16u_C1IRSfs, Fn::Ln);
    exhaustive<Kel16s>(keliLn_16s_C1RSfs, keliLn_16s_C1IRSfs, Fn::Ln);
    exhaustive<Kel8u>(keliExp_8u_C1RSfs, keliExp_8u_C1IRSfs, Fn::Exp);
    exhaustive<Kel16u>(keliExp_16u_C1RSfs, keliExp_16u_C1IRSfs, Fn::Exp);
    exhaustive<Kel16s>(keliExp_16s_C1RSfs, keliExp_16s_C1IRSfs, Fn::Exp);
}

// Extreme scale factors, where the double formula would meet 0 times infinity: the results of the
// exact values.
TEST(Elementary, ExtremeScaleFactorsGiveTheExactValuesResults)
{
    Kel16s a[6] = {-32768, -1, 0, 1, 2, 32767}, d[6];
    const KeliSize z{6, 1};
    struct Case {
        KelStatus (*f)(const Kel16s*, int, Kel16s*, int, KeliSize, int);
        int n;
        KelStatus status;
        Kel16s want[6];
    } cases[] = {
        {keliExp_16s_C1RSfs, INT_MIN, kelStatusOk, {32767, 32767, 32767, 32767, 32767, 32767}},
        {keliExp_16s_C1RSfs, -1100, kelStatusOk, {0, 32767, 32767, 32767, 32767, 32767}},
        {keliExp_16s_C1RSfs, 1100, kelStatusOk, {0, 0, 0, 0, 0, 32767}},
        {keliExp_16s_C1RSfs, INT_MAX, kelStatusOk, {0, 0, 0, 0, 0, 0}},
        {keliLn_16s_C1RSfs, INT_MIN, kelStatusLnZeroArg, {0, 0, 0, 0, 32767, 32767}},
        {keliLn_16s_C1RSfs, -1100, kelStatusLnZeroArg, {0, 0, 0, 0, 32767, 32767}},
        {keliLn_16s_C1RSfs, INT_MAX, kelStatusLnZeroArg, {0, 0, 0, 0, 0, 0}},
        {keliSqrt_16s_C1RSfs, INT_MIN, kelStatusSqrtNegArg, {0, 0, 0, 32767, 32767, 32767}},
        {keliSqrt_16s_C1RSfs, INT_MAX, kelStatusSqrtNegArg, {0, 0, 0, 0, 0, 0}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.n);
        EXPECT_EQ(c.f(a, 12, d, 12, z, c.n), c.status);
        for (int i = 0; i < 6; ++i) EXPECT_EQ(d[i], c.want[i]) << "a " << a[i];
    }
    Kel8u b[3] = {0, 1, 255}, e[3];
    ASSERT_EQ(keliExp_8u_C1RSfs(b, 3, e, 3, {3, 1}, 12), kelStatusOk);
    EXPECT_EQ(e[2], 255) << "exp(255) / 2^12 still saturates";
    ASSERT_EQ(keliExp_8u_C1RSfs(b, 3, e, 3, {3, 1}, -7), kelStatusOk);
    EXPECT_EQ(e[0], 128);
    EXPECT_EQ(e[1], 255);
}

// ---- 32f ---------------------------------------------------------------------------------------

struct FloatMember {
    const char* name;
    kit::UnaryLayout layout;
    Plain r;  // null where only the in-place form exists
    PlainI ir;
};

// Sqr and Sqrt against their exact models; Ln and Exp against themselves on single elements, that
// is through the one-lane path, so that any difference of head, body and tail shows.
TEST(Elementary, FloatMembersMatchOverTheSweep)
{
    kit::Rng rng;
    const auto positive = [&] {
        const float v = kit::arith::edgy<float>(rng);
        return v == 0 ? 0.5f : std::signbit(v) ? -v : v;  // no argument that warns
    };
    const auto one = [](Plain f, float x) {
        float d = 0;
        f(&x, 4, &d, 4, {1, 1});
        return d;
    };
    const auto oneI = [](PlainI f, float x) {
        f(&x, 4, {1, 1});
        return x;
    };
    const FloatMember sqr[] = {{"Sqr C1", {1, false}, keliSqr_32f_C1R, keliSqr_32f_C1IR},
                               {"Sqr C3", {3, false}, keliSqr_32f_C3R, keliSqr_32f_C3IR},
                               {"Sqr C4", {4, false}, keliSqr_32f_C4R, keliSqr_32f_C4IR},
                               {"Sqr AC4", {4, true}, keliSqr_32f_AC4R, keliSqr_32f_AC4IR}};
    for (const auto& m : sqr) {
        SCOPED_TRACE(m.name);
        kit::unary_sweep<float>(m.layout, m.r, m.ir, [](float x) { return x * x; }, [&] { return kit::arith::edgy<float>(rng); }, {40});
    }
    const FloatMember sqrtm[] = {{"Sqrt C1", {1, false}, keliSqrt_32f_C1R, keliSqrt_32f_C1IR},
                                 {"Sqrt C3", {3, false}, keliSqrt_32f_C3R, keliSqrt_32f_C3IR},
                                 {"Sqrt C4", {4, false}, nullptr, keliSqrt_32f_C4IR},
                                 {"Sqrt AC4", {4, true}, keliSqrt_32f_AC4R, keliSqrt_32f_AC4IR}};
    for (const auto& m : sqrtm) {
        SCOPED_TRACE(m.name);
        const auto model = [](float x) { return std::sqrt(x); };
        if (m.r) kit::unary_sweep<float>(m.layout, m.r, m.ir, model, positive, {40});
        else
            kit::unary_sweep<float>(
                m.layout, [&](const float* s, int ss, float* d, int ds, KeliSize z) {
                    // In place only: the source copied into the destination first.
                    for (int y = 0; y < z.height; ++y)
                        std::memcpy(reinterpret_cast<char*>(d) + std::ptrdiff_t(y) * ds,
                                    reinterpret_cast<const char*>(s) + std::ptrdiff_t(y) * ss, std::size_t(z.width) * 16);
                    return m.ir(d, ds, z);
                }, m.ir, model, positive, {40});
    }
    const FloatMember lnexp[] = {{"Ln C1", {1, false}, keliLn_32f_C1R, keliLn_32f_C1IR},
                                 {"Ln C3", {3, false}, keliLn_32f_C3R, keliLn_32f_C3IR},
                                 {"Exp C1", {1, false}, keliExp_32f_C1R, keliExp_32f_C1IR},
                                 {"Exp C3", {3, false}, keliExp_32f_C3R, keliExp_32f_C3IR}};
    for (const auto& m : lnexp) {
        SCOPED_TRACE(m.name);
        const bool ln = m.name[0] == 'L';
        kit::unary_sweep<float>(
            m.layout, m.r, m.ir, [&](float x) { return one(ln ? keliLn_32f_C1R : keliExp_32f_C1R, x); },
            [&] {
                // The exponential's arguments include the ends of its fast range, so that lanes
                // on both sides of them share vectors.
                static const float ends[] = {88.0f, 88.5f, 88.72f, -87.0f, -87.5f, -95.0f, -103.9f};
                if (ln) return positive();
                if (rng.below(4) == 0) return ends[rng.below(7)];
                return rng.below(2) ? kit::arith::edgy<float>(rng) : float(rng.below(200) - 100) / 3.0f;
            },
            {40});
        if (m.layout.channels == 1) {
            for (float x : {1.5f, 0.25f, 80.0f, 1e-40f}) ASSERT_TRUE(kit::arith::same(one(m.r, x), oneI(m.ir, x)));
        }
    }
}

// Units in the last place between a float and the long double value.
double ulps(float got, long double want)
{
    if (std::isnan(want)) return std::isnan(got) ? 0 : 1e9;
    if (std::isinf(float(want)) || want == 0) return got == float(want) ? 0 : 1e9;
    const float w = float(want);
    const double unit = std::nextafter(std::fabs(w), INFINITY) - std::fabs(w);
    return double(std::fabs(static_cast<long double>(got) - want) / unit);
}

// The logarithm and the exponential within 3 units of the long double values over every binade and
// the range of the exponential, with the special values as the functions define them.
TEST(Elementary, FloatLnAndExpAreAccurate)
{
    std::vector<float> x, d;
    kit::Rng rng;
    for (int i = 0; i < 200000; ++i) {
        std::uint32_t bits = rng.any<std::uint32_t>() & 0x7FFFFFFFu;
        float v;
        std::memcpy(&v, &bits, 4);
        if (std::isfinite(v)) x.push_back(v);
    }
    d.resize(x.size());
    const int w = int(x.size());
    const bool zero = std::count(x.begin(), x.end(), 0.0f) > 0;
    ASSERT_EQ(keliLn_32f_C1R(x.data(), 4, d.data(), 4, {w, 1}), zero ? kelStatusLnZeroArg : kelStatusOk);
    for (int i = 0; i < w; ++i) ASSERT_LE(ulps(d[i], std::log(static_cast<long double>(x[i]))), 3.0) << x[i] << " gave " << d[i];
    for (int i = 0; i < w; ++i) x[i] = float(rng.below(2000001) - 1000000) * 1.05e-4f;
    ASSERT_EQ(keliExp_32f_C1R(x.data(), 4, d.data(), 4, {w, 1}), kelStatusOk);
    for (int i = 0; i < w; ++i) {
        const long double want = std::exp(static_cast<long double>(x[i]));
        if (want < FLT_MIN) ASSERT_LE(std::fabs(static_cast<long double>(d[i]) - want), 2.0L * 1.4e-45L) << x[i];
        else ASSERT_LE(ulps(d[i], want), 3.0) << x[i] << " gave " << d[i];
    }
    // Each special value alone and at every lane of a vector among ordinary arguments, which
    // the vector body must send to the special path.
    const float negativeNan = -std::numeric_limits<float>::quiet_NaN();
    const float special[] = {0.0f, -0.0f, -1.0f, INFINITY, -INFINITY, NAN, negativeNan, 89.0f, -104.0f, 1e-40f, -1e-40f};
    const auto ln_of = [](float x) -> long double { return x < 0 ? NAN : std::log(static_cast<long double>(x)); };
    const auto exp_of = [](float x) -> long double {
        return x > 88.8f ? INFINITY : x < -104.0f ? 0.0L : std::exp(static_cast<long double>(x));
    };
    for (float v : special)
        for (int at = 0; at < 17; ++at) {
            const int width = at == 16 ? 1 : 16;
            float row[16], out[16];
            std::fill(row, row + 16, 2.5f);
            row[at % 16] = v;
            ASSERT_EQ(keliLn_32f_C1R(row, 64, out, 64, {width, 1}),
                      v == 0 ? kelStatusLnZeroArg : v < 0 ? kelStatusLnNegArg : kelStatusOk) << v;
            for (int i = 0; i < width; ++i) ASSERT_LE(ulps(out[i], ln_of(row[i])), 3.0) << v << " at " << at;
            ASSERT_EQ(keliExp_32f_C1R(row, 64, out, 64, {width, 1}), kelStatusOk);
            for (int i = 0; i < width; ++i) {
                if (row[i] == -104.0f) ASSERT_LE(std::fabs(out[i] - float(exp_of(row[i]))), 1.5e-45f);
                else if (row[i] != 1e-40f && row[i] != -1e-40f) ASSERT_LE(ulps(out[i], exp_of(row[i])), 3.0) << v << " at " << at;
                else ASSERT_EQ(out[i], 1.0f);
            }
        }
}

// ---- warnings ----------------------------------------------------------------------------------

// The first row that warns sets the status; within a row a zero outranks a negative. -0.0 is a
// zero for Ln and not negative for Sqrt; not-a-number warns nowhere; alpha elements never warn.
TEST(Elementary, WarningsAndTheirOrder)
{
    // Row 0 negative only, row 1 a zero: the first row's status stays.
    float rows[2][40];
    for (auto& r : rows)
        for (float& v : r) v = 2.0f;
    rows[0][33] = -1.0f;
    rows[1][3] = 0.0f;
    float out[2][40];
    EXPECT_EQ(keliLn_32f_C1R(rows[0], 160, out[0], 160, {40, 2}), kelStatusLnNegArg);
    rows[0][20] = -0.0f;  // now row 0 holds a zero and a negative
    EXPECT_EQ(keliLn_32f_C1R(rows[0], 160, out[0], 160, {40, 2}), kelStatusLnZeroArg);
    EXPECT_EQ(keliSqrt_32f_C1R(rows[0], 160, out[0], 160, {40, 2}), kelStatusSqrtNegArg);
    EXPECT_TRUE(std::isnan(out[0][33]));
    EXPECT_EQ(out[0][0], std::sqrt(2.0f));
    rows[0][33] = NAN;
    EXPECT_EQ(keliSqrt_32f_C1R(rows[0], 160, out[0], 160, {40, 2}), kelStatusOk) << "-0.0 and not-a-number";
    EXPECT_TRUE(std::signbit(out[0][20]));
    // Integer Ln and Sqrt: 16s with zero and negatives in one row, then apart.
    Kel16s s[2][20] = {}, d[2][20];
    for (auto& r : s)
        for (Kel16s& v : r) v = 7;
    s[0][17] = -3;
    s[1][2] = 0;
    EXPECT_EQ(keliLn_16s_C1RSfs(s[0], 40, d[0], 40, {20, 2}, 0), kelStatusLnNegArg);
    EXPECT_EQ(keliSqrt_16s_C1RSfs(s[0], 40, d[0], 40, {20, 2}, 0), kelStatusSqrtNegArg);
    EXPECT_EQ(d[0][17], 0);
    s[0][1] = 0;
    EXPECT_EQ(keliLn_16s_C3RSfs(s[0], 40, d[0], 40, {6, 2}, -3), kelStatusLnZeroArg);
    EXPECT_EQ(keliSqrt_16s_C1RSfs(s[0], 40, d[0], 40, {20, 2}, 20), kelStatusSqrtNegArg) << "beyond every result";
    // Alpha elements are not arguments.
    float px[8] = {1, 4, 9, -1, 16, 25, 36, -5};
    float po[8] = {};
    EXPECT_EQ(keliSqrt_32f_AC4R(px, 32, po, 32, {2, 1}), kelStatusOk);
    EXPECT_EQ(po[3], 0.0f);
    Kel8u z[4] = {0, 1, 255, 3}, zo[4];
    EXPECT_EQ(keliLn_8u_C1RSfs(z, 4, zo, 4, {4, 1}, 0), kelStatusLnZeroArg);
    EXPECT_EQ(zo[0], 0);
    EXPECT_EQ(zo[1], 0);
    EXPECT_EQ(zo[2], 6);
}

// From the bound on every result is 0 and no source is read: Sqr like Mul, Sqrt 8u from 5, 16u from 9.
TEST(Elementary, ShortCutsReadNothing)
{
    const arith_sweep::Layout c3{3, false};
    arith_sweep::check_fills_unread<Kel8u>(c3, {5, 6, INT_MAX}, Kel8u(0), [](const Kel8u* src, kit::Image<Kel8u>& d, int n) {
        ASSERT_EQ(keliSqrt_8u_C3RSfs(src, 64, d.data(), d.step(), d.size(), n), kelStatusOk);
        ASSERT_EQ(keliSqr_8u_C3RSfs(src, 64, d.data(), d.step(), d.size(), n == INT_MAX ? n : n + 12), kelStatusOk);
    });
    arith_sweep::check_fills_unread<Kel16u>({4, true}, {9, 100}, Kel16u(0), [](const Kel16u* src, kit::Image<Kel16u>& d, int n) {
        ASSERT_EQ(keliSqrt_16u_AC4RSfs(src, 64, d.data(), d.step(), d.size(), n), kelStatusOk);
    });
    Kel8u a[3] = {16, 16, 255}, o[3];
    ASSERT_EQ(keliSqr_8u_C1RSfs(a, 3, o, 3, {3, 1}, 0), kelStatusOk);
    EXPECT_EQ(o[0], 255);
    ASSERT_EQ(keliSqr_8u_C1RSfs(a, 3, o, 3, {3, 1}, 8), kelStatusOk);
    EXPECT_EQ(o[0], 1);
    Kel8u e[2] = {0, 6};
    ASSERT_EQ(keliExp_8u_C1RSfs(e, 2, o, 2, {2, 1}, 0), kelStatusOk);
    EXPECT_EQ(o[0], 1);
    EXPECT_EQ(o[1], 255);
}

// Pointers, the size, then the steps; nothing written.
TEST(Elementary, ChecksComeInTheirOrderAndWriteNothing)
{
    Kel16s s[32] = {}, d[32];
    std::memset(d, 0xA5, sizeof d);
    struct Case {
        const Kel16s* s;
        Kel16s* d;
        int step;
        KeliSize size;
        KelStatus want;
    } cases[] = {
        {nullptr, d, 0, {0, 1}, kelStatusNullPtr}, {s, nullptr, 0, {0, 1}, kelStatusNullPtr},
        {s, d, 0, {0, 1}, kelStatusBadSize},       {s, d, 0, {1, -1}, kelStatusBadSize},
        {s, d, 0, {4, 1}, kelStatusBadStep},       {s, d, -8, {4, 1}, kelStatusBadStep},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(int(&c - cases));
        EXPECT_EQ(keliSqr_16s_C3RSfs(c.s, 8, c.d, c.step, c.size, 40), c.want);
        EXPECT_EQ(keliSqrt_16s_AC4RSfs(c.s, c.step, c.d, 8, c.size, 0), c.want);
        EXPECT_EQ(keliLn_16s_C1IRSfs(c.s ? c.d : nullptr, c.step, c.size, 0), c.want);
        EXPECT_EQ(keliExp_16s_C3RSfs(c.s, c.step, c.d, 8, c.size, -3), c.want);
        const float* fs = reinterpret_cast<const float*>(c.s);
        float* fd = reinterpret_cast<float*>(c.d);
        EXPECT_EQ(keliSqrt_32f_C4IR(c.s ? fd : nullptr, c.step, c.size), c.want);
        EXPECT_EQ(keliLn_32f_C3R(fs, c.step, fd, 8, c.size), c.want);
        for (Kel16s v : d) ASSERT_EQ(Kel16u(v), 0xA5A5);
    }
}

}  // namespace
