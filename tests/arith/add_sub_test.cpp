// keliAdd, keliSub, keliAddC, keliSubC: every member against the scalar model over a geometry
// sweep for every kind of scale factor, the values where rounding and saturation bite, the short
// cuts that leave the sources unread, the check order, and the wide members' own paths.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "arith/rows/add_sub.hpp"
#include "keli.h"
#include "kit/arith.hpp"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "reference/add_sub.hpp"

namespace {

using keli::rows::AddSub;

using namespace kit::arith;

template <class T> using Bin = BinFn<T, int, KeliSize>;
template <class T> using BinI = BinIFn<T, int, KeliSize>;
template <class T> using Con = ConFn<T, int, KeliSize>;
template <class T> using ConI = ConIFn<T, int, KeliSize>;

template <class T> struct Member {
    const char* name;
    AddSub kind;
    int channels;
    bool alpha;
    Bin<T> r;
    BinI<T> ir;
    Con<T> cr;
    ConI<T> cir;
};

#define KELI_SFS(K, T, L, C, A)                                                                                        \
    Member<Kel##T>{#K "_" #T "_" #L, AddSub::K, C, A, keli##K##_##T##_##L##RSfs, keli##K##_##T##_##L##IRSfs,         \
                   keli##K##C_##T##_##L##RSfs, keli##K##C_##T##_##L##IRSfs}
#define KELI_SFS_C1(K, T)                                                                                              \
    Member<Kel##T>{#K "_" #T "_C1", AddSub::K, 1, false, keli##K##_##T##_C1RSfs, keli##K##_##T##_C1IRSfs,            \
                   conC1<Kel##T, keli##K##C_##T##_C1RSfs>, conIC1<Kel##T, keli##K##C_##T##_C1IRSfs>}
#define KELI_SFS_ALL(K, T)                                                                                             \
    KELI_SFS_C1(K, T), KELI_SFS(K, T, C3, 3, false), KELI_SFS(K, T, C4, 4, false), KELI_SFS(K, T, AC4, 4, true)
#define KELI_F(K, L, C, A)                                                                                             \
    Member<Kel32f>{#K "_32f_" #L, AddSub::K, C, A, bin32f<keli##K##_32f_##L##R>, binI32f<keli##K##_32f_##L##IR>,     \
                   con32f<keli##K##C_32f_##L##R>, conI32f<keli##K##C_32f_##L##IR>}

template <class T> std::vector<Member<T>> members();
template <> std::vector<Member<Kel8u>> members() { return {KELI_SFS_ALL(Add, 8u), KELI_SFS_ALL(Sub, 8u)}; }
template <> std::vector<Member<Kel16u>> members() { return {KELI_SFS_ALL(Add, 16u), KELI_SFS_ALL(Sub, 16u)}; }
template <> std::vector<Member<Kel16s>> members() { return {KELI_SFS_ALL(Add, 16s), KELI_SFS_ALL(Sub, 16s)}; }
template <> std::vector<Member<Kel32f>> members()
{
    return {Member<Kel32f>{"Add_32f_C1", AddSub::Add, 1, false, bin32f<keliAdd_32f_C1R>, binI32f<keliAdd_32f_C1IR>,
                           conC1<Kel32f, keliAddC_32f_C1R>, conIC1<Kel32f, keliAddC_32f_C1IR>},
            Member<Kel32f>{"Sub_32f_C1", AddSub::Sub, 1, false, bin32f<keliSub_32f_C1R>, binI32f<keliSub_32f_C1IR>,
                           conC1<Kel32f, keliSubC_32f_C1R>, conIC1<Kel32f, keliSubC_32f_C1IR>},
            KELI_F(Add, C3, 3, false), KELI_F(Add, C4, 4, false), KELI_F(Add, AC4, 4, true),
            KELI_F(Sub, C3, 3, false), KELI_F(Sub, C4, 4, false), KELI_F(Sub, AC4, 4, true)};
}

template <class T> T model(AddSub k, T minuendOrFirst, T second, int n)
{
    return k == AddSub::Add ? reference::add(minuendOrFirst, second, n) : reference::sub(minuendOrFirst, second, n);
}


// Scale factors of every kind: saturating, halving, general, at and past the zero bound, left
// shifts, at and past the pattern bound, and the extremes.
template <class T> std::vector<int> scale_factors(AddSub k)
{
    if constexpr (kFloat<T>) {
        return {0};
    } else {
        const auto b = k == AddSub::Add ? keli::rows::kAddSubShortCuts<AddSub::Add, T>
                                        : keli::rows::kAddSubShortCuts<AddSub::Sub, T>;
        return {0, 1, 2, 3, 5, b.zeroFrom - 1, b.zeroFrom, b.zeroFrom + 9, INT_MAX, -1, -3,
                b.patternTo + 1, b.patternTo, b.patternTo - 20, INT_MIN};
    }
}

template <class T> void sweep_member(const Member<T>& m, kit::Rng& rng)
{
    const int positions = 16 / sizeof(T);
    const int maxWidth = m.channels == 1 ? 100 : 40;
    auto colour = [&](int, int, int c) { return !(m.alpha && c == 3); };
    const std::vector<int> factors = scale_factors<T>(m.kind);
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
            for (T& v : value) v = width % 7 == 0 ? T(0) : edgy<T>(rng);
            const auto aBefore = a.snapshot(), bBefore = b.snapshot(), dBefore = d.snapshot();

            // Two images; the in-place form writes into a copy of the second.
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
                        const T s1 = a.at(x, y, c), s2 = b.at(x, y, c);
                        const T want = m.kind == AddSub::Add ? model(m.kind, s1, s2, n) : model(m.kind, s2, s1, n);
                        ASSERT_TRUE(same(d.at(x, y, c), want)) << "x " << x << " y " << y << " c " << c;
                        ASSERT_TRUE(same(io.at(x, y, c), want)) << "in place x " << x << " y " << y << " c " << c;
                    }

            // Image and constant, out of place and in place.
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
                        const T want = model(m.kind, a.at(x, y, c), value[c], n);
                        ASSERT_TRUE(same(dc.at(x, y, c), want)) << "constant x " << x << " y " << y << " c " << c;
                        ASSERT_TRUE(same(ioc.at(x, y, c), want)) << "constant in place x " << x << " c " << c;
                    }
        }
    }
}

TEST(AddSub, EveryMemberMatchesTheModelOverTheSweep)
{
    kit::Rng rng;
    SCOPED_TRACE("seed " + std::to_string(rng.seed_value()));
    for (const auto& m : members<Kel8u>()) sweep_member(m, rng);
    for (const auto& m : members<Kel16u>()) sweep_member(m, rng);
    for (const auto& m : members<Kel16s>()) sweep_member(m, rng);
    for (const auto& m : members<Kel32f>()) sweep_member(m, rng);
}

// The short-cut bounds sit exactly where the rule turns constant: one step inside them some
// result still depends on the scale factor, at them and beyond none does.
template <class T> void check_bounds(AddSub k, keli::scale::ShortCuts b)
{
    const std::int64_t lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
    auto results = [&](int n, auto&& pred) {
        bool all = true;
        for (std::int64_t x = lo; x <= hi; x += (hi - lo) / 509 + 1)
            for (std::int64_t y : {lo, lo + 1, std::int64_t(0), std::int64_t(1), hi - 1, hi, x / 2, x - 1, x + 1}) {
                const T a = T(x), c = T(y);  // neighbours wrap around the range
                const T r = model(k, a, c, n);
                const std::int64_t exact = k == AddSub::Add ? std::int64_t(a) + c : std::int64_t(a) - c;
                all = all && pred(r, exact);
            }
        return all;
    };
    auto zero = [](T r, std::int64_t) { return r == 0; };
    auto sign = [&](T r, std::int64_t e) { return r == (e > 0 ? hi : e < 0 ? (lo < 0 ? lo : 0) : 0); };
    EXPECT_FALSE(results(b.zeroFrom - 1, zero)) << "zero bound too high";
    for (int n : {b.zeroFrom, b.zeroFrom + 1, 31, 64}) EXPECT_TRUE(results(n, zero)) << n;
    // (16s saturates every non-zero result from a shift of 15 on; its bound keeps the left shift
    // there all the same.)
    if (std::is_unsigned_v<T>) {
        EXPECT_FALSE(results(b.patternTo + 1, sign)) << "pattern bound too low";
    }
    for (int n : {b.patternTo, b.patternTo - 1, -31, -64}) EXPECT_TRUE(results(n, sign)) << n;
}

TEST(AddSub, ShortCutBoundsAreWhereTheRuleTurnsConstant)
{
    using keli::rows::kAddSubShortCuts;
    check_bounds<Kel8u>(AddSub::Add, kAddSubShortCuts<AddSub::Add, Kel8u>);
    check_bounds<Kel8u>(AddSub::Sub, kAddSubShortCuts<AddSub::Sub, Kel8u>);
    check_bounds<Kel16u>(AddSub::Add, kAddSubShortCuts<AddSub::Add, Kel16u>);
    check_bounds<Kel16u>(AddSub::Sub, kAddSubShortCuts<AddSub::Sub, Kel16u>);
    check_bounds<Kel16s>(AddSub::Add, kAddSubShortCuts<AddSub::Add, Kel16s>);
    check_bounds<Kel16s>(AddSub::Sub, kAddSubShortCuts<AddSub::Sub, Kel16s>);
}

// One element through a C1 member.
template <class T, class F> T one(F f, T a, T b, int n)
{
    T d = 77;
    EXPECT_EQ(f(&a, 16, &b, 16, &d, 16, KeliSize{1, 1}, n), kelStatusOk);
    return d;
}

TEST(AddSub, RoundingAndSaturationWhereTheyBite)
{
    EXPECT_EQ(one<Kel8u>(keliAdd_8u_C1RSfs, 200, 100, 0), 255);
    EXPECT_EQ(one<Kel8u>(keliAdd_8u_C1RSfs, 3, 0, 1), 2);  // 1.5 to even
    EXPECT_EQ(one<Kel8u>(keliAdd_8u_C1RSfs, 1, 0, 1), 0);  // 0.5 to even
    EXPECT_EQ(one<Kel8u>(keliAdd_8u_C1RSfs, 5, 0, 1), 2);  // 2.5 to even
    EXPECT_EQ(one<Kel8u>(keliAdd_8u_C1RSfs, 7, 5, 3), 2);  // 1.5 to even with a general shift
    EXPECT_EQ(one<Kel8u>(keliAdd_8u_C1RSfs, 255, 255, 9), 1);
    EXPECT_EQ(one<Kel8u>(keliAdd_8u_C1RSfs, 255, 255, 10), 0);
    EXPECT_EQ(one<Kel8u>(keliSub_8u_C1RSfs, 10, 3, 0), 0);  // src2 - src1 below zero
    EXPECT_EQ(one<Kel8u>(keliSub_8u_C1RSfs, 3, 10, 0), 7);
    EXPECT_EQ(one<Kel8u>(keliSub_8u_C1RSfs, 10, 3, -8), 0);  // clamped before scaling
    EXPECT_EQ(one<Kel8u>(keliAdd_8u_C1RSfs, 1, 0, -8), 255);
    EXPECT_EQ(one<Kel8u>(keliAdd_8u_C1RSfs, 0, 0, -8), 0);
    EXPECT_EQ(one<Kel8u>(keliAdd_8u_C1RSfs, 1, 0, -3), 8);
    EXPECT_EQ(one<Kel8u>(keliAdd_8u_C1RSfs, 16, 15, -3), 248);
    EXPECT_EQ(one<Kel8u>(keliAdd_8u_C1RSfs, 16, 16, -3), 255);
    EXPECT_EQ(one<Kel16s>(keliAdd_16s_C1RSfs, -32768, -32768, 1), -32768);
    EXPECT_EQ(one<Kel16s>(keliAdd_16s_C1RSfs, -32768, -32768, 16), -1);
    EXPECT_EQ(one<Kel16s>(keliAdd_16s_C1RSfs, -32768, -32768, 17), 0);
    EXPECT_EQ(one<Kel16s>(keliSub_16s_C1RSfs, -32768, 32767, 1), 32767);  // 32767.5 rounds up, saturates
    EXPECT_EQ(one<Kel16s>(keliSub_16s_C1RSfs, 1, 0, -15), -32768);
    EXPECT_EQ(one<Kel16s>(keliSub_16s_C1RSfs, 0, 1, -15), 32767);
    EXPECT_EQ(one<Kel16s>(keliAdd_16s_C1RSfs, -1, 0, -40), -32768);
    EXPECT_EQ(one<Kel16u>(keliAdd_16u_C1RSfs, 65535, 65535, 17), 1);
    EXPECT_EQ(one<Kel16u>(keliAdd_16u_C1RSfs, 65535, 65534, 1), 65534);  // 65534.5 to even
    EXPECT_EQ(one<Kel16u>(keliAdd_16u_C1RSfs, 1, 0, -15), 32768);
    EXPECT_TRUE(std::isnan(one<Kel32f>(bin32f<keliAdd_32f_C1R>, INFINITY, -INFINITY, 0)));
}

template <class T> void check_unread_sources(const Member<T>& m, int zeroFrom, int patternTo)
{
    SCOPED_TRACE(m.name);
    const Unreadable page;
    const T* src = page.template as<T>();
    const KeliSize size{37, 3};
    kit::Image<T> d(37, 3, m.channels);
    const T hi = std::numeric_limits<T>::max();
    for (int n : {zeroFrom, zeroFrom + 100, INT_MAX}) {
        d.fill([] { return T(9); });
        ASSERT_EQ(m.r(src, 0, src, -64, d.data(), d.step(), size, n), kelStatusOk);
        ASSERT_EQ(m.ir(src, 0, d.data(), d.step(), size, n), kelStatusOk);
        const T values[4] = {1, 2, 3, 4};
        ASSERT_EQ(m.cr(src, 0, values, d.data(), d.step(), size, n), kelStatusOk);
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 37; ++x)
                for (int c = 0; c < m.channels; ++c) ASSERT_EQ(d.at(x, y, c), m.alpha && c == 3 ? T(9) : T(0));
    }
    if (m.kind == AddSub::Add && std::is_unsigned_v<T>) {
        // A non-zero addend with a shift out of reach: the largest value, the source unread.
        const T values[4] = {1, 1, 1, T(m.alpha ? 0 : 1)};  // AC4 ignores the fourth value
        for (int n : {patternTo, INT_MIN}) {
            d.fill([] { return T(9); });
            ASSERT_EQ(m.cr(src, 64, values, d.data(), d.step(), size, n), kelStatusOk);
            for (int y = 0; y < 3; ++y)
                for (int x = 0; x < 37; ++x)
                    for (int c = 0; c < m.channels; ++c) ASSERT_EQ(d.at(x, y, c), m.alpha && c == 3 ? T(9) : hi);
        }
    }
}

TEST(AddSub, ShortCutsLeaveTheSourcesUnread)
{
    using keli::rows::kAddSubShortCuts;
    for (const auto& m : members<Kel8u>())
        check_unread_sources(m, m.kind == AddSub::Add ? 10 : 9, -8);
    for (const auto& m : members<Kel16u>())
        check_unread_sources(m, m.kind == AddSub::Add ? 18 : 17, -16);
    for (const auto& m : members<Kel16s>()) check_unread_sources(m, 17, -16);

    // Adding zero in place without a scale factor touches nothing at all.
    const Unreadable page;
    EXPECT_EQ(keliAddC_8u_C1IRSfs(0, page.as<Kel8u>(), 64, {16, 4}, 0), kelStatusOk);
    EXPECT_EQ(keliSubC_16s_C1IRSfs(0, page.as<Kel16s>(), 64, {16, 4}, 0), kelStatusOk);
    EXPECT_EQ(keliAddC_16u_C1IRSfs_L(0, page.as<Kel16u>(), 64, {16, 4}, 0), kelStatusOk);
}

TEST(AddSub, ZeroOperandCopiesAndAlphaStaysOverWideRows)
{
    // keliAddC with 0 and no scale copies the source; keliSubC the same.
    kit::Image<Kel16s> src(300, 2, 1), dst(300, 2, 1);
    kit::Rng rng;
    src.fill([&] { return rng.any<Kel16s>(); });
    ASSERT_EQ(keliSubC_16s_C1RSfs(src.data(), src.step(), 0, dst.data(), dst.step(), src.size(), 0), kelStatusOk);
    for (int x = 0; x < 300; ++x) ASSERT_EQ(dst.at(x, 1), src.at(x, 1));

    // 300 AC4 pixels: every destination alpha stays, with both image and constant operands.
    kit::Image<Kel8u> a(300, 2, 4), b(300, 2, 4), d(300, 2, 4);
    a.fill([&] { return rng.any<Kel8u>(); });
    b.fill([&] { return rng.any<Kel8u>(); });
    d.fill([&] { return rng.any<Kel8u>(); });
    const kit::Image<Kel8u> before = d;
    const Kel8u values[3] = {10, 20, 30};
    for (int n : {0, 1, 4, -2, -9}) {
        ASSERT_EQ(keliAdd_8u_AC4RSfs(a.data(), a.step(), b.data(), b.step(), d.data(), d.step(), a.size(), n), 0);
        for (int y = 0; y < 2; ++y)
            for (int x = 0; x < 300; ++x) ASSERT_EQ(d.at(x, y, 3), before.at(x, y, 3)) << n;
        ASSERT_EQ(keliSubC_8u_AC4IRSfs(values, d.data(), d.step(), d.size(), n), 0);
        for (int y = 0; y < 2; ++y)
            for (int x = 0; x < 300; ++x) ASSERT_EQ(d.at(x, y, 3), before.at(x, y, 3)) << n;
    }
}

TEST(AddSub, StepsAreTakenAsTheyStand)
{
    // A zero step reads (or writes) one row over and over; a negative one walks upwards.
    Kel8u a[3][40], b[3][40], d[3][40];
    kit::Rng rng;
    for (auto* img : {a, b})
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 40; ++x) img[y][x] = rng.any<Kel8u>();
    std::memset(d, 0, sizeof d);
    ASSERT_EQ(keliSub_8u_C1RSfs(a[0], 0, b[2], -40, d[0], 40, {40, 3}, 1), kelStatusOk);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 40; ++x) ASSERT_EQ(d[y][x], reference::sub<Kel8u>(b[2 - y][x], a[0][x], 1));
    ASSERT_EQ(keliAdd_8u_C1RSfs(a[0], 40, b[0], 40, d[0], 0, {40, 3}, 2), kelStatusOk);
    for (int x = 0; x < 40; ++x) ASSERT_EQ(d[0][x], reference::add<Kel8u>(a[2][x], b[2][x], 2));
}

TEST(AddSub, ChecksRunInOrderAndWriteNothing)
{
    Kel16u src[32] = {}, dst[32];
    std::memset(dst, 0xA5, sizeof dst);
    const Kel16u values[3] = {1, 2, 3};
    struct Case {
        const Kel16u *s1, *s2, *v;
        Kel16u* d;
        KeliSize size;
        KelStatus want;
    } cases[] = {
        {nullptr, src, values, dst, {0, 0}, kelStatusNullPtr},  // pointers before the size
        {src, nullptr, values, dst, {-1, 1}, kelStatusNullPtr},
        {src, src, nullptr, dst, {0, 1}, kelStatusNullPtr},
        {src, src, values, nullptr, {4, 0}, kelStatusNullPtr},
        {src, src, values, dst, {0, 4}, kelStatusBadSize},
        {src, src, values, dst, {4, -2}, kelStatusBadSize},
    };
    for (const Case& c : cases) {
        const bool noSecond = c.s2 == nullptr, noValue = c.v == nullptr;
        if (!noValue) {
            EXPECT_EQ(keliSub_16u_C4RSfs(c.s1, 0, c.s2, -8, c.d, 8, c.size, 3), c.want);
            EXPECT_EQ(keliAdd_16u_AC4IRSfs(c.s1, 8, noSecond ? nullptr : c.d, 0, c.size, 99), c.want);
            EXPECT_EQ(keliAdd_16u_C1RSfs_L(c.s1, 8, c.s2, 8, c.d, 8, {c.size.width, c.size.height}, 0), c.want);
        }
        if (!noSecond) {
            EXPECT_EQ(keliAddC_16u_C3RSfs(c.s1, 8, c.v, c.d, -8, c.size, -20), c.want);
            EXPECT_EQ(keliSubC_16u_AC4IRSfs_L(c.v, c.s1 ? c.d : nullptr, 8, {c.size.width, c.size.height}, 0),
                      c.want);
            EXPECT_EQ(keliAddC_16u_C1RSfs(c.s1, 8, 0, noValue ? nullptr : c.d, 8, c.size, 0),
                      noValue ? kelStatusNullPtr : c.want);
        }
        for (Kel16u v : dst) ASSERT_EQ(v, 0xA5A5);
    }
    // The wide members' own rule for sizes that do not fit the 32-bit members: accepted, no work.
    const std::int64_t huge = std::int64_t(1) << 32;
    EXPECT_EQ(keliAdd_8u_C1RSfs_L(nullptr, huge, nullptr, huge, nullptr, huge, {5, -1}, 0), kelStatusOk);
    EXPECT_EQ(keliAdd_8u_C1RSfs_L(reinterpret_cast<Kel8u*>(src), 64, reinterpret_cast<Kel8u*>(src), 64,
                                  reinterpret_cast<Kel8u*>(dst), 64, {5, -1}, 0),
              kelStatusBadSize);
    for (Kel16u v : dst) ASSERT_EQ(v, 0xA5A5);
}

}  // namespace
