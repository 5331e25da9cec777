// keliMul, keliMulC: every member against the scalar model over a geometry sweep for every kind
// of scale factor, the values where rounding and saturation bite, the short cuts that leave the
// sources unread, the check order, and the wide members' own chunked path.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <array>
#include <climits>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "arith/rows/mul.hpp"
#include "keli.h"
#include "kit/arith.hpp"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "reference/mul_div.hpp"

namespace {

using namespace kit::arith;

#define KELI_SFS(T, L, C, A)                                                                                           \
    Member<Kel##T>{"Mul_" #T "_" #L, C, A, keliMul_##T##_##L##RSfs, keliMul_##T##_##L##IRSfs,                          \
                   keliMulC_##T##_##L##RSfs, keliMulC_##T##_##L##IRSfs, keliMul_##T##_##L##RSfs_L,                     \
                   keliMul_##T##_##L##IRSfs_L, keliMulC_##T##_##L##RSfs_L, keliMulC_##T##_##L##IRSfs_L}
#define KELI_SFS_C1(T)                                                                                                 \
    Member<Kel##T>{"Mul_" #T "_C1", 1, false, keliMul_##T##_C1RSfs, keliMul_##T##_C1IRSfs,                             \
                   conC1<Kel##T, keliMulC_##T##_C1RSfs, int, KeliSize>,                                                \
                   conIC1<Kel##T, keliMulC_##T##_C1IRSfs, int, KeliSize>, keliMul_##T##_C1RSfs_L,                      \
                   keliMul_##T##_C1IRSfs_L, conC1<Kel##T, keliMulC_##T##_C1RSfs_L, I64, KeliSizeL>,                    \
                   conIC1<Kel##T, keliMulC_##T##_C1IRSfs_L, I64, KeliSizeL>}
#define KELI_SFS_ALL(T) KELI_SFS_C1(T), KELI_SFS(T, C3, 3, false), KELI_SFS(T, C4, 4, false), KELI_SFS(T, AC4, 4, true)
#define KELI_F(L, C, A, CON, CONI)                                                                                     \
    Member<Kel32f>{"Mul_32f_" #L, C, A, bin32f<keliMul_32f_##L##R, int, KeliSize>,                                     \
                   binI32f<keliMul_32f_##L##IR, int, KeliSize>, CON<keliMulC_32f_##L##R, int, KeliSize>,               \
                   CONI<keliMulC_32f_##L##IR, int, KeliSize>, bin32f<keliMul_32f_##L##R_L, I64, KeliSizeL>,             \
                   binI32f<keliMul_32f_##L##IR_L, I64, KeliSizeL>, CON<keliMulC_32f_##L##R_L, I64, KeliSizeL>,         \
                   CONI<keliMulC_32f_##L##IR_L, I64, KeliSizeL>}
template <auto F, class S, class Z> KelStatus conF1(const float* a, S as, const float* v, float* d, S ds, Z s, int n)
{
    return conC1<float, F, S, Z>(a, as, v, d, ds, s, n);
}
template <auto F, class S, class Z> KelStatus conIF1(const float* v, float* d, S ds, Z s, int n)
{
    return conIC1<float, F, S, Z>(v, d, ds, s, n);
}

template <class T> std::vector<Member<T>> members();
template <> std::vector<Member<Kel8u>> members() { return {KELI_SFS_ALL(8u)}; }
template <> std::vector<Member<Kel16u>> members() { return {KELI_SFS_ALL(16u)}; }
template <> std::vector<Member<Kel16s>> members() { return {KELI_SFS_ALL(16s)}; }
template <> std::vector<Member<Kel32f>> members()
{
    return {KELI_F(C1, 1, false, conF1, conIF1), KELI_F(C3, 3, false, con32f, conI32f),
            KELI_F(C4, 4, false, con32f, conI32f), KELI_F(AC4, 4, true, con32f, conI32f)};
}

// Scale factors of every kind: saturating, halving, general, the 16-bit high-half cases, at and
// past the zero bound, left shifts, at and past the pattern bound, and the extremes.
template <class T> std::vector<int> scale_factors()
{
    if constexpr (kFloat<T>) {
        return {0};
    } else {
        const auto b = keli::rows::kMulShortCuts<T>;
        return {0, 1, 2, 3, 7, 8, 15, 16, b.zeroFrom - 2, b.zeroFrom - 1, b.zeroFrom, INT_MAX, -1, -3,
                b.patternTo + 1, b.patternTo, INT_MIN};
    }
}

template <class T> void sweep_member(const Member<T>& m, kit::Rng& rng)
{
    const int positions = 16 / sizeof(T);
    const int maxWidth = m.channels == 1 ? 90 : 36;
    auto colour = [&](int, int, int c) { return !(m.alpha && c == 3); };
    const std::vector<int> factors = scale_factors<T>();
    for (std::size_t f = 0; f < factors.size(); ++f) {
        const int n = factors[f];
        for (int width = 1; width <= maxWidth; ++width) {
            const int height = width % 4 == 0 ? 1 : 3, salt = int(f);
            SCOPED_TRACE(std::string(m.name) + " n " + std::to_string(n) + " width " + std::to_string(width));
            kit::Image<T> a(width, height, m.channels, shape(width, salt, positions, sizeof(T)));
            kit::Image<T> b(width, height, m.channels, shape(width, salt + 1, positions, sizeof(T)));
            kit::Image<T> d(width, height, m.channels, shape(width, salt + 2, positions, sizeof(T)));
            a.fill([&] { return edgy<T>(rng); });
            b.fill([&] { return edgy<T>(rng); });
            d.fill([&] { return edgy<T>(rng); });
            T value[4];
            for (T& v : value) v = width % 7 == 0 ? T(0) : width % 11 == 0 ? T(1) : edgy<T>(rng);
            const auto aBefore = a.snapshot(), bBefore = b.snapshot(), dBefore = d.snapshot();

            ASSERT_EQ(m.r(a.data(), a.step(), b.data(), b.step(), d.data(), d.step(), a.size(), n), kelStatusOk);
            kit::Image<T> io = b;
            ASSERT_EQ(m.ir(a.data(), a.step(), io.data(), io.step(), a.size(), n), kelStatusOk);
            EXPECT_EQ(a.bytes(), aBefore);
            EXPECT_EQ(b.bytes(), bBefore);
            ASSERT_EQ(kit::first_stray_write(d, dBefore, colour), -1);
            ASSERT_EQ(kit::first_stray_write(io, bBefore, colour), -1);
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x)
                    for (int c = 0; c < (m.alpha ? 3 : m.channels); ++c) {
                        const T want = reference::mul(a.at(x, y, c), b.at(x, y, c), n);
                        ASSERT_TRUE(same(d.at(x, y, c), want)) << "x " << x << " y " << y << " c " << c;
                        ASSERT_TRUE(same(io.at(x, y, c), want)) << "in place x " << x << " y " << y << " c " << c;
                    }

            kit::Image<T> dc(width, height, m.channels, shape(width, salt + 3, positions, sizeof(T)));
            dc.fill([&] { return edgy<T>(rng); });
            const auto dcBefore = dc.snapshot();
            ASSERT_EQ(m.cr(a.data(), a.step(), value, dc.data(), dc.step(), a.size(), n), kelStatusOk);
            kit::Image<T> ioc = a;
            ASSERT_EQ(m.cir(value, ioc.data(), ioc.step(), a.size(), n), kelStatusOk);
            EXPECT_EQ(a.bytes(), aBefore);
            ASSERT_EQ(kit::first_stray_write(dc, dcBefore, colour), -1);
            ASSERT_EQ(kit::first_stray_write(ioc, aBefore, colour), -1);
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x)
                    for (int c = 0; c < (m.alpha ? 3 : m.channels); ++c) {
                        const T want = reference::mul(a.at(x, y, c), value[c], n);
                        ASSERT_TRUE(same(dc.at(x, y, c), want)) << "constant x " << x << " y " << y << " c " << c;
                        ASSERT_TRUE(same(ioc.at(x, y, c), want)) << "constant in place x " << x << " c " << c;
                    }
        }
    }
}

TEST(Mul, EveryMemberMatchesTheModelOverTheSweep)
{
    kit::Rng rng;
    SCOPED_TRACE("seed " + std::to_string(rng.seed_value()));
    for (const auto& m : members<Kel8u>()) sweep_member(m, rng);
    for (const auto& m : members<Kel16u>()) sweep_member(m, rng);
    for (const auto& m : members<Kel16s>()) sweep_member(m, rng);
    for (const auto& m : members<Kel32f>()) sweep_member(m, rng);
}

// Every pair of 8u operands and every 16-bit rounding case near the high-half boundaries.
TEST(Mul, ExhaustiveBytesAndHighHalfTies)
{
    std::vector<Kel8u> a(65536), b(65536), d(65536);
    for (int i = 0; i < 65536; ++i) a[i] = Kel8u(i & 255), b[i] = Kel8u(i >> 8);
    for (int n : {0, 1, 4, 8, 15, 16, 17, -1, -7, -8}) {
        ASSERT_EQ(keliMul_8u_C1RSfs(a.data(), 0, b.data(), 0, d.data(), 0, {65536, 1}, n), kelStatusOk);
        for (int i = 0; i < 65536; ++i) ASSERT_EQ(d[i], reference::mul(a[i], b[i], n)) << i << " n " << n;
    }
    // 16u products just around 2^31 + k 2^16 and their neighbours for the 16 and 32 cases.
    std::vector<Kel16u> x, y;
    for (Kel16u p : {Kel16u(32768), Kel16u(65535), Kel16u(46341), Kel16u(256), Kel16u(255), Kel16u(257)})
        for (int q = 0; q < 65536; q += 97) x.push_back(p), y.push_back(Kel16u(q));
    for (int q = 32760; q < 32780; ++q)
        for (Kel16u p : {Kel16u(65535), Kel16u(65534), Kel16u(2), Kel16u(1)}) x.push_back(p), y.push_back(Kel16u(q));
    std::vector<Kel16u> r(x.size());
    const int w = int(x.size());
    for (int n : {15, 16, 17, 31, 32, 33}) {
        ASSERT_EQ(keliMul_16u_C1RSfs(x.data(), 0, y.data(), 0, r.data(), 0, {w, 1}, n), kelStatusOk);
        for (int i = 0; i < w; ++i) ASSERT_EQ(r[i], reference::mul(x[i], y[i], n)) << x[i] << " * " << y[i] << " n " << n;
    }
}

template <class T, class F> T one(F f, T a, T b, int n)
{
    T d = 77;
    EXPECT_EQ(f(&a, 16, &b, 16, &d, 16, KeliSize{1, 1}, n), kelStatusOk);
    return d;
}

TEST(Mul, RoundingAndSaturationWhereTheyBite)
{
    EXPECT_EQ(one<Kel8u>(keliMul_8u_C1RSfs, 16, 16, 0), 255);
    EXPECT_EQ(one<Kel8u>(keliMul_8u_C1RSfs, 16, 16, 8), 1);
    EXPECT_EQ(one<Kel8u>(keliMul_8u_C1RSfs, 3, 1, 1), 2);    // 1.5 to even
    EXPECT_EQ(one<Kel8u>(keliMul_8u_C1RSfs, 5, 1, 1), 2);    // 2.5 to even
    EXPECT_EQ(one<Kel8u>(keliMul_8u_C1RSfs, 128, 1, 8), 0);  // 0.5 to even
    EXPECT_EQ(one<Kel8u>(keliMul_8u_C1RSfs, 128, 3, 8), 2);  // 1.5 to even
    EXPECT_EQ(one<Kel8u>(keliMul_8u_C1RSfs, 255, 255, 16), 1);
    EXPECT_EQ(one<Kel8u>(keliMul_8u_C1RSfs, 128, 128, 15), 0);  // 16384 / 32768, a half, to even
    EXPECT_EQ(one<Kel8u>(keliMul_8u_C1RSfs, 2, 3, -8), 255);
    EXPECT_EQ(one<Kel8u>(keliMul_8u_C1RSfs, 0, 3, -8), 0);
    EXPECT_EQ(one<Kel8u>(keliMul_8u_C1RSfs, 2, 3, -5), 192);
    EXPECT_EQ(one<Kel8u>(keliMul_8u_C1RSfs, 2, 4, -5), 255);
    EXPECT_EQ(one<Kel16s>(keliMul_16s_C1RSfs, -32768, -32768, 30), 1);
    EXPECT_EQ(one<Kel16s>(keliMul_16s_C1RSfs, -32768, 32767, 0), -32768);
    EXPECT_EQ(one<Kel16s>(keliMul_16s_C1RSfs, -32768, -32768, 15), 32767);
    EXPECT_EQ(one<Kel16s>(keliMul_16s_C1RSfs, -3, 1, 1), -2);  // -1.5 to even
    EXPECT_EQ(one<Kel16s>(keliMul_16s_C1RSfs, -1, 5, -15), -32768);
    EXPECT_EQ(one<Kel16s>(keliMul_16s_C1RSfs, -1, -5, -40), 32767);
    EXPECT_EQ(one<Kel16s>(keliMul_16s_C1RSfs, 0, -5, -40), 0);
    EXPECT_EQ(one<Kel16u>(keliMul_16u_C1RSfs, 65535, 65535, 32), 1);
    EXPECT_EQ(one<Kel16u>(keliMul_16u_C1RSfs, 32768, 65535, 32), 0);  // just below a half
    EXPECT_EQ(one<Kel16u>(keliMul_16u_C1RSfs, 32768, 1, 16), 0);      // a half, to even
    EXPECT_EQ(one<Kel16u>(keliMul_16u_C1RSfs, 32768, 3, 16), 2);      // 1.5 to even
    EXPECT_EQ(one<Kel16u>(keliMul_16u_C1RSfs, 65535, 65535, 16), 65534);
    EXPECT_EQ(one<Kel16u>(keliMul_16u_C1RSfs, 65535, 65535, 0), 65535);
    EXPECT_EQ(one<Kel16u>(keliMul_16u_C1RSfs, 3, 1, -15), 65535);
    EXPECT_EQ(one<Kel16u>(keliMul_16u_C1RSfs, 1, 1, -15), 32768);
    EXPECT_TRUE(std::isnan(one<Kel32f>(bin32f<keliMul_32f_C1R, int, KeliSize>, INFINITY, 0.0f, 0)));
    // A 32f constant of 0 is multiplied like any other.
    float inf = INFINITY, out = 1;
    ASSERT_EQ(keliMulC_32f_C1R(&inf, 4, 0.0f, &out, 4, {1, 1}), kelStatusOk);
    EXPECT_TRUE(std::isnan(out));
}

template <class T> void check_unread_sources(const Member<T>& m, int zeroFrom)
{
    SCOPED_TRACE(m.name);
    const Unreadable page;
    const T* src = page.template as<T>();
    const KeliSize size{37, 3};
    kit::Image<T> d(37, 3, m.channels);
    for (int n : {zeroFrom, zeroFrom + 100, INT_MAX}) {
        d.fill([] { return T(9); });
        ASSERT_EQ(m.r(src, 0, src, -64, d.data(), d.step(), size, n), kelStatusOk);
        ASSERT_EQ(m.ir(src, 0, d.data(), d.step(), size, n), kelStatusOk);
        const T values[4] = {1, 2, 3, 4};
        ASSERT_EQ(m.cr(src, 0, values, d.data(), d.step(), size, n), kelStatusOk);
        ASSERT_EQ(m.rL(src, 0, src, -64, d.data(), d.step(), {37, 3}, n), kelStatusOk);
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 37; ++x)
                for (int c = 0; c < m.channels; ++c) ASSERT_EQ(d.at(x, y, c), m.alpha && c == 3 ? T(9) : T(0));
    }
    if (m.channels == 1) {
        // A C1 constant of 0 fills whatever the scale factor; 1 without a shift copies, and in
        // place does nothing at all.
        for (int n : {0, -30, 3, INT_MIN}) {
            d.fill([] { return T(9); });
            ASSERT_EQ(m.cr(src, 64, std::array<T, 1>{0}.data(), d.data(), d.step(), size, n), kelStatusOk);
            for (int y = 0; y < 3; ++y)
                for (int x = 0; x < 37; ++x) ASSERT_EQ(d.at(x, y), T(0));
        }
        const T oneValue = 1;
        ASSERT_EQ(m.cir(&oneValue, page.template as<T>(), 64, size, 0), kelStatusOk);
        ASSERT_EQ(m.cirL(&oneValue, page.template as<T>(), 64, {37, 3}, 0), kelStatusOk);
        kit::Image<T> s(37, 3, 1), c(37, 3, 1);
        kit::Rng rng;
        s.fill([&] { return rng.any<T>(); });
        ASSERT_EQ(m.cr(s.data(), s.step(), &oneValue, c.data(), c.step(), size, 0), kelStatusOk);
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 37; ++x) ASSERT_EQ(c.at(x, y), s.at(x, y));
    }
}

TEST(Mul, ShortCutsLeaveTheSourcesUnread)
{
    for (const auto& m : members<Kel8u>()) check_unread_sources(m, 17);
    for (const auto& m : members<Kel16u>()) check_unread_sources(m, 33);
    for (const auto& m : members<Kel16s>()) check_unread_sources(m, 31);
}

TEST(Mul, StepsAreTakenAsTheyStand)
{
    Kel16s a[3][40], b[3][40], d[3][40];
    kit::Rng rng;
    for (auto* img : {a, b})
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 40; ++x) img[y][x] = rng.any<Kel16s>();
    std::memset(d, 0, sizeof d);
    ASSERT_EQ(keliMul_16s_C1RSfs(a[0], 0, b[2], -80, d[0], 80, {40, 3}, 9), kelStatusOk);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 40; ++x) ASSERT_EQ(d[y][x], reference::mul<Kel16s>(a[0][x], b[2 - y][x], 9));
    ASSERT_EQ(keliMul_16s_C1RSfs(a[0], 80, b[0], 80, d[0], 0, {40, 3}, 2), kelStatusOk);
    for (int x = 0; x < 40; ++x) ASSERT_EQ(d[0][x], reference::mul<Kel16s>(a[2][x], b[2][x], 2));
}

TEST(Mul, ChecksRunInOrderAndWriteNothing)
{
    Kel16u src[32] = {}, dst[32];
    std::memset(dst, 0xA5, sizeof dst);
    const Kel16u values[3] = {0, 2, 3};
    struct Case {
        const Kel16u *s1, *s2, *v;
        Kel16u* d;
        KeliSize size;
        KelStatus want;
    } cases[] = {
        {nullptr, src, values, dst, {0, 0}, kelStatusNullPtr},
        {src, nullptr, values, dst, {-1, 1}, kelStatusNullPtr},
        {src, src, nullptr, dst, {0, 1}, kelStatusNullPtr},
        {src, src, values, nullptr, {4, 0}, kelStatusNullPtr},
        {src, src, values, dst, {0, 4}, kelStatusBadSize},
        {src, src, values, dst, {4, -2}, kelStatusBadSize},
    };
    for (const Case& c : cases) {
        const bool noSecond = c.s2 == nullptr, noValue = c.v == nullptr;
        if (!noValue) {
            EXPECT_EQ(keliMul_16u_C4RSfs(c.s1, 0, c.s2, -8, c.d, 8, c.size, 40), c.want);
            EXPECT_EQ(keliMul_16u_AC4IRSfs(c.s1, 8, noSecond ? nullptr : c.d, 0, c.size, 99), c.want);
            EXPECT_EQ(keliMul_16u_C1RSfs_L(c.s1, 8, c.s2, 8, c.d, 8, {c.size.width, c.size.height}, 0), c.want);
        }
        if (!noSecond) {
            EXPECT_EQ(keliMulC_16u_C3RSfs(c.s1, 8, c.v, c.d, -8, c.size, -20), c.want);
            EXPECT_EQ(keliMulC_16u_AC4IRSfs_L(c.v, c.s1 ? c.d : nullptr, 8, {c.size.width, c.size.height}, 0),
                      c.want);
            // A zero constant is a short cut only after the checks.
            EXPECT_EQ(keliMulC_16u_C1RSfs(c.s1, 8, 0, noValue ? nullptr : c.d, 8, c.size, 0),
                      noValue ? kelStatusNullPtr : c.want);
            const bool badSize = c.size.width < 1 || c.size.height < 1;
            EXPECT_EQ(keliMulC_16u_C1IRSfs(1, c.d, 8, c.size, 0),
                      !c.d ? kelStatusNullPtr : badSize ? kelStatusBadSize : kelStatusOk);
        }
        for (Kel16u v : dst) ASSERT_EQ(v, 0xA5A5);
    }
}

template <class T> void far_rows_member(const FarRows& mem, const Member<T>& m, kit::Rng& rng)
{
    constexpr int W = 37;
    const int E = W * m.channels;
    T* a = mem.image<T>(0);
    T* b = mem.image<T>(1);
    T* d = mem.image<T>(2);
    T* io = mem.image<T>(3);
    const std::vector<int> factors = kFloat<T> ? std::vector<int>{0} : std::vector<int>{0, 5, 16, -2, 40, -20};
    for (int n : factors) {
        SCOPED_TRACE(std::string(m.name) + " n " + std::to_string(n));
        T value[4], old[2][W * 4];
        for (T& v : value) v = edgy<T>(rng);
        for (int y = 0; y < 2; ++y)
            for (int e = 0; e < E; ++e) {
                FarRows::at(a, y, e) = edgy<T>(rng);
                FarRows::at(b, y, e) = FarRows::at(io, y, e) = edgy<T>(rng);
                FarRows::at(d, y, e) = old[y][e] = edgy<T>(rng);
            }
        const I64 s = FarRows::kStep;
        ASSERT_EQ(m.rL(a, s, b, s, d, s, {W, 2}, n), kelStatusOk);
        ASSERT_EQ(m.irL(a, s, io, s, {W, 2}, n), kelStatusOk);
        for (int y = 0; y < 2; ++y)
            for (int e = 0; e < E; ++e) {
                const bool alpha = m.alpha && e % 4 == 3;
                const T s2 = FarRows::at(b, y, e);
                const T want = alpha ? old[y][e] : reference::mul(FarRows::at(a, y, e), s2, n);
                ASSERT_TRUE(same(FarRows::at(d, y, e), want)) << "y " << y << " e " << e;
                ASSERT_TRUE(same(FarRows::at(io, y, e), alpha ? s2 : want)) << "in place y " << y << " e " << e;
            }
        T kept[2][W * 4];
        for (int y = 0; y < 2; ++y)
            for (int e = 0; e < E; ++e) kept[y][e] = FarRows::at(b, y, e);
        ASSERT_EQ(m.crL(a, s, value, d, s, {W, 2}, n), kelStatusOk);
        ASSERT_EQ(m.cirL(value, b, s, {W, 2}, n), kelStatusOk);
        for (int y = 0; y < 2; ++y)
            for (int e = 0; e < E; ++e) {
                const bool alpha = m.alpha && e % 4 == 3;
                const T v = value[e % m.channels];
                const T want = alpha ? old[y][e] : reference::mul(FarRows::at(a, y, e), v, n);
                const T wantIn = alpha ? kept[y][e] : reference::mul(kept[y][e], v, n);
                ASSERT_TRUE(same(FarRows::at(d, y, e), want)) << "constant y " << y << " e " << e;
                ASSERT_TRUE(same(FarRows::at(b, y, e), wantIn)) << "constant in place y " << y << " e " << e;
            }
        EXPECT_EQ(m.rL(a, s, nullptr, s, d, s, {W, 2}, n), kelStatusNullPtr);
        EXPECT_EQ(m.cirL(value, nullptr, s, {W, 2}, n), kelStatusNullPtr);
    }
}

TEST(MulWide, RowsBeyondThe32BitStepsWalkInChunks)
{
    const FarRows mem;
    if (!mem.ok()) GTEST_SKIP() << "no address space for a sparse mapping";
    kit::Rng rng;
    for (const auto& m : members<Kel8u>()) far_rows_member(mem, m, rng);
    for (const auto& m : members<Kel16u>()) far_rows_member(mem, m, rng);
    for (const auto& m : members<Kel16s>()) far_rows_member(mem, m, rng);
    for (const auto& m : members<Kel32f>()) far_rows_member(mem, m, rng);
}

}  // namespace
