// keliAnd, keliOr, keliXor (and C), keliNot, keliLShiftC, keliRShiftC, keliComplement, keliMaxEvery,
// keliMinEvery: every member against the plain model over the geometry sweep, out of place and in
// place with guard bytes and untouched alpha; counts that differ per channel and those at and past
// the element's width; the copy and fill short cuts; not-a-number in Max and Min; check orders.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "arith_sweep.hpp"
#include "keli.h"
#include "kit/arith.hpp"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "kit/unary.hpp"
#include "reference/elementary.hpp"

namespace {

using arith_sweep::Layout;
using arith_sweep::Step;
using kit::arith::edgy;

template <class T> using Bin = KelStatus (*)(const T*, int, const T*, int, T*, int, KeliSize);
template <class T> using BinI = KelStatus (*)(const T*, int, T*, int, KeliSize);
template <class T> using Con = KelStatus (*)(const T*, int, const T*, T*, int, KeliSize);
template <class T> using ConI = KelStatus (*)(const T*, T*, int, KeliSize);
template <class T> using Sh = KelStatus (*)(const T*, int, const Kel32u*, T*, int, KeliSize);
template <class T> using ShI = KelStatus (*)(const Kel32u*, T*, int, KeliSize);
template <class T> using Un = KelStatus (*)(const T*, int, T*, int, KeliSize);
template <class T> using UnI = KelStatus (*)(T*, int, KeliSize);

// The C1 forms take their constant or count by value.
template <class T, auto F> KelStatus con1(const T* s, int ss, const T* v, T* d, int ds, KeliSize z) { return F(s, ss, *v, d, ds, z); }
template <class T, auto F> KelStatus conI1(const T* v, T* d, int ds, KeliSize z) { return F(*v, d, ds, z); }
template <class T, auto F> KelStatus sh1(const T* s, int ss, const Kel32u* c, T* d, int ds, KeliSize z) { return F(s, ss, *c, d, ds, z); }
template <class T, auto F> KelStatus shI1(const Kel32u* c, T* d, int ds, KeliSize z) { return F(*c, d, ds, z); }

enum class Op { And, Or, Xor, Max, Min };

template <class T> T model(Op op, T a, T b)
{
    switch (op) {
    case Op::And: return T(a & b);
    case Op::Or: return T(a | b);
    case Op::Xor: return T(a ^ b);
    case Op::Max: return reference::max_every(a, b);
    case Op::Min: return reference::min_every(a, b);
    }
    return T(0);
}
inline float model(Op op, float a, float b)
{
    return op == Op::Max ? reference::max_every(a, b) : reference::min_every(a, b);
}

template <class T> struct BinMember {
    const char* name;
    Op op;
    Layout layout;
    Bin<T> r;  // null where the family has only in-place forms
    BinI<T> ir;
    Con<T> cr;  // null for Max and Min
    ConI<T> cir;
};

#define KELI_BIT(F, T, L, C, A)                                                                                     \
    BinMember<Kel##T>{#F "_" #T "_" #L, Op::F, {C, A}, keli##F##_##T##_##L##R, keli##F##_##T##_##L##IR,             \
                      keli##F##C_##T##_##L##R, keli##F##C_##T##_##L##IR}
#define KELI_BIT1(F, T)                                                                                             \
    BinMember<Kel##T>{#F "_" #T "_C1", Op::F, {1, false}, keli##F##_##T##_C1R, keli##F##_##T##_C1IR,                \
                      con1<Kel##T, keli##F##C_##T##_C1R>, conI1<Kel##T, keli##F##C_##T##_C1IR>}
#define KELI_BITS(F, T) KELI_BIT1(F, T), KELI_BIT(F, T, C3, 3, false), KELI_BIT(F, T, C4, 4, false), KELI_BIT(F, T, AC4, 4, true)
#define KELI_ALL_BITS(T) KELI_BITS(And, T), KELI_BITS(Or, T), KELI_BITS(Xor, T)
#define KELI_EXT(F, K, T, L, C, A) BinMember<Kel##T>{#F "_" #T "_" #L, Op::K, {C, A}, nullptr, keli##F##_##T##_##L##IR, nullptr, nullptr}
#define KELI_EXTS(F, K, T)                                                                                          \
    KELI_EXT(F, K, T, C1, 1, false), KELI_EXT(F, K, T, C3, 3, false), KELI_EXT(F, K, T, C4, 4, false),              \
        KELI_EXT(F, K, T, AC4, 4, true)
#define KELI_EXT_R(F, K, T) BinMember<Kel##T>{#F "_" #T "_C1R", Op::K, {1, false}, keli##F##_##T##_C1R, keli##F##_##T##_C1IR, nullptr, nullptr}

template <class T> std::vector<BinMember<T>> bin_members();
template <> std::vector<BinMember<Kel8u>> bin_members()
{
    return {KELI_ALL_BITS(8u), KELI_EXTS(MaxEvery, Max, 8u), KELI_EXTS(MinEvery, Min, 8u),
            KELI_EXT_R(MaxEvery, Max, 8u), KELI_EXT_R(MinEvery, Min, 8u)};
}
template <> std::vector<BinMember<Kel16u>> bin_members()
{
    return {KELI_ALL_BITS(16u), KELI_EXTS(MaxEvery, Max, 16u), KELI_EXTS(MinEvery, Min, 16u),
            KELI_EXT_R(MaxEvery, Max, 16u), KELI_EXT_R(MinEvery, Min, 16u)};
}
template <> std::vector<BinMember<Kel16s>> bin_members() { return {KELI_EXTS(MaxEvery, Max, 16s), KELI_EXTS(MinEvery, Min, 16s)}; }
template <> std::vector<BinMember<Kel32s>> bin_members() { return {KELI_ALL_BITS(32s)}; }
template <> std::vector<BinMember<Kel32f>> bin_members()
{
    return {KELI_EXTS(MaxEvery, Max, 32f), KELI_EXTS(MinEvery, Min, 32f), KELI_EXT_R(MaxEvery, Max, 32f),
            KELI_EXT_R(MinEvery, Min, 32f)};
}

template <class T> T draw(kit::Rng& rng)
{
    if constexpr (std::is_same_v<T, Kel32s>) return rng.below(3) == 0 ? T(rng.below(5) - 2) : T(rng.any<std::uint32_t>());
    else return edgy<T>(rng);
}

// Two images (in place: the second is the destination), then an image and a constant.
template <class T> void sweep_bin(const BinMember<T>& m, kit::Rng& rng)
{
    const Layout l = m.layout;
    arith_sweep::each_step(m.name, {0}, l.channels == 1 ? 100 : 36, 0, true, [&](const Step& s, int) {
        auto a = s.image<T>(l.channels, 0), b = s.image<T>(l.channels, 1), d = s.image<T>(l.channels, 2);
        a.fill([&] { return draw<T>(rng); });
        b.fill([&] { return draw<T>(rng); });
        d.fill([&] { return draw<T>(rng); });
        if (s.width % 5 == 0) b = a;  // equal operands, and for floats not-a-number on both sides
        kit::Image<T> io = b;
        const auto want = [&](int x, int y, int c) { return model(m.op, a.at(x, y, c), b.at(x, y, c)); };
        if (m.r) {
            arith_sweep::check_forms<T>(
                l, {&a, &b}, d, io, kelStatusOk,
                [&] { return m.r(a.data(), a.step(), b.data(), b.step(), d.data(), d.step(), a.size()); },
                [&] { return m.ir(a.data(), a.step(), io.data(), io.step(), a.size()); }, want);
        } else {  // in place only: two calls, each into its own copy of the second image
            kit::Image<T> io2 = b;
            arith_sweep::check_forms<T>(
                l, {&a}, io2, io, kelStatusOk,
                [&] { return m.ir(a.data(), a.step(), io2.data(), io2.step(), a.size()); },
                [&] { return m.ir(a.data(), a.step(), io.data(), io.step(), a.size()); }, want);
        }
        if (!m.cr) return;
        T v[4];
        for (T& e : v) e = draw<T>(rng);
        kit::Image<T> ioc = a;
        arith_sweep::check_forms<T>(
            l, {&a}, d, ioc, kelStatusOk, [&] { return m.cr(a.data(), a.step(), v, d.data(), d.step(), a.size()); },
            [&] { return m.cir(v, ioc.data(), ioc.step(), a.size()); },
            [&](int x, int y, int c) { return model(m.op, a.at(x, y, c), v[c]); });
    });
}

TEST(Logic, BitsMaxAndMinMatchTheModelOverTheSweep)
{
    const auto table = [](auto type) { return bin_members<decltype(type)>(); };
    arith_sweep::each_member<Kel8u, Kel16u, Kel16s, Kel32s, Kel32f>(
        table, [](auto, const auto& m, kit::Rng& rng) { sweep_bin(m, rng); });
}

// ---- shifts ------------------------------------------------------------------------------------

template <class T> struct ShiftMember {
    const char* name;
    bool left;
    Layout layout;
    Sh<T> r;
    ShI<T> ir;
};

#define KELI_SH(F, LEFT, T, L, C, A) ShiftMember<Kel##T>{#F "_" #T "_" #L, LEFT, {C, A}, keli##F##_##T##_##L##R, keli##F##_##T##_##L##IR}
#define KELI_SHS(F, LEFT, T)                                                                                        \
    ShiftMember<Kel##T>{#F "_" #T "_C1", LEFT, {1, false}, sh1<Kel##T, keli##F##_##T##_C1R>,                        \
                        shI1<Kel##T, keli##F##_##T##_C1IR>},                                                        \
        KELI_SH(F, LEFT, T, C3, 3, false), KELI_SH(F, LEFT, T, C4, 4, false), KELI_SH(F, LEFT, T, AC4, 4, true)

template <class T> std::vector<ShiftMember<T>> shift_members();
template <> std::vector<ShiftMember<Kel8u>> shift_members() { return {KELI_SHS(LShiftC, true, 8u), KELI_SHS(RShiftC, false, 8u)}; }
template <> std::vector<ShiftMember<Kel16u>> shift_members() { return {KELI_SHS(LShiftC, true, 16u), KELI_SHS(RShiftC, false, 16u)}; }
template <> std::vector<ShiftMember<Kel16s>> shift_members() { return {KELI_SHS(RShiftC, false, 16s)}; }
template <> std::vector<ShiftMember<Kel32s>> shift_members() { return {KELI_SHS(LShiftC, true, 32s), KELI_SHS(RShiftC, false, 32s)}; }

template <class T> T shift_model(bool left, T x, Kel32u c) { return left ? reference::shift_left(x, c) : reference::shift_right(x, c); }

// Counts of every kind: 0 (a copy), inside the width, at and past it, and the largest uint32
// (minus one in the caller's sense). Every fourth step gives each channel its own count.
TEST(Logic, ShiftsMatchTheModelForEveryKindOfCount)
{
    const auto table = [](auto type) { return shift_members<decltype(type)>(); };
    arith_sweep::each_member<Kel8u, Kel16u, Kel16s, Kel32s>(table, [](auto type, const auto& m, kit::Rng& rng) {
        using T = decltype(type);
        const Layout l = m.layout;
        const Kel32u kinds[] = {0, 1, 3, 7, 8, 9, 15, 16, 17, 31, 32, 33, 40, 0xFFFFFFFFu};
        std::vector<int> counts(std::size(kinds));
        for (std::size_t i = 0; i < counts.size(); ++i) counts[i] = int(i);
        arith_sweep::each_step(m.name, counts, l.channels == 1 ? 70 : 24, 0, true, [&](const Step& s, int k) {
            Kel32u c[4];
            for (int i = 0; i < 4; ++i)
                c[i] = s.width % 4 == 1 ? kinds[rng.below(int(std::size(kinds)))] : kinds[k];
            auto a = s.image<T>(l.channels, 0), d = s.image<T>(l.channels, 2);
            a.fill([&] { return draw<T>(rng); });
            d.fill([&] { return draw<T>(rng); });
            kit::Image<T> io = a;
            arith_sweep::check_forms<T>(
                l, {&a}, d, io, kelStatusOk, [&] { return m.r(a.data(), a.step(), c, d.data(), d.step(), a.size()); },
                [&] { return m.ir(c, io.data(), io.step(), a.size()); },
                [&](int x, int y, int ch) { return shift_model(m.left, a.at(x, y, ch), c[ch]); });
        });
    });
}

// A count that pushes every bit out, the same in every channel, fills without reading the source;
// a signed right shift keeps the sign instead, so -1 shifted by 40 stays -1.
TEST(Logic, ShiftsPastTheWidthFillWithoutReading)
{
    const Layout c3{3, false}, ac4{4, true};
    arith_sweep::check_fills_unread<Kel8u>(c3, {8, 9, -1}, Kel8u(0), [](const Kel8u* src, kit::Image<Kel8u>& d, int n) {
        const Kel32u c[3] = {Kel32u(n), Kel32u(n), Kel32u(n)};
        ASSERT_EQ(keliLShiftC_8u_C3R(src, 64, c, d.data(), d.step(), d.size()), kelStatusOk);
        ASSERT_EQ(keliRShiftC_8u_C3R(src, 64, c, d.data(), d.step(), d.size()), kelStatusOk);
    });
    arith_sweep::check_fills_unread<Kel32s>(ac4, {32, 1000}, 0, [](const Kel32s* src, kit::Image<Kel32s>& d, int n) {
        const Kel32u c[3] = {Kel32u(n), Kel32u(n), Kel32u(n)};
        ASSERT_EQ(keliLShiftC_32s_AC4R(src, 64, c, d.data(), d.step(), d.size()), kelStatusOk);
    });
    Kel16s v[3] = {-1, -32768, 5}, out[3] = {};
    ASSERT_EQ(keliRShiftC_16s_C1R(v, 6, 40u, out, 6, {3, 1}), kelStatusOk);
    EXPECT_EQ(out[0], -1);
    EXPECT_EQ(out[1], -1);
    EXPECT_EQ(out[2], 0);
    Kel32s w[2] = {INT32_MIN, 7}, wo[2] = {};
    ASSERT_EQ(keliRShiftC_32s_C1R(w, 8, 32u, wo, 8, {2, 1}), kelStatusOk);
    EXPECT_EQ(wo[0], -1);
    EXPECT_EQ(wo[1], 0);
    Kel8u b = 0x81, bo = 0;
    ASSERT_EQ(keliLShiftC_8u_C1R(&b, 1, 0u, &bo, 1, {1, 1}), kelStatusOk);
    EXPECT_EQ(bo, 0x81) << "a count of 0 copies";
}

// ---- Complement and Not ------------------------------------------------------------------------

template <class T> struct UnaryMember {
    const char* name;
    kit::UnaryLayout layout;
    Un<T> r;
    UnI<T> ir;
};
#define KELI_UN(F, T, L, C, A) UnaryMember<Kel##T>{#F "_" #T "_" #L, {C, A}, keli##F##_##T##_##L##R, keli##F##_##T##_##L##IR}
#define KELI_UNS(F, T) KELI_UN(F, T, C1, 1, false), KELI_UN(F, T, C3, 3, false), KELI_UN(F, T, C4, 4, false), KELI_UN(F, T, AC4, 4, true)

template <class T, class Model> void sweep_unary(const std::vector<UnaryMember<T>>& members, Model model)
{
    kit::Rng rng;
    for (const auto& m : members) {
        SCOPED_TRACE(m.name);
        kit::unary_sweep<T>(m.layout, m.r, m.ir, model, [&] { return draw<T>(rng); }, {40});
    }
}

TEST(Logic, ComplementAndNotMatchTheModel)
{
    sweep_unary<Kel8s>({KELI_UNS(Complement, 8s)}, [](Kel8s x) { return reference::complement(x); });
    sweep_unary<Kel16s>({KELI_UNS(Complement, 16s)}, [](Kel16s x) { return reference::complement(x); });
    sweep_unary<Kel32s>({KELI_UNS(Complement, 32s)}, [](Kel32s x) { return reference::complement(x); });
    sweep_unary<Kel8u>({KELI_UNS(Not, 8u)}, [](Kel8u x) { return Kel8u(~x); });
    Kel16s v = -1;
    ASSERT_EQ(keliComplement_16s_C1IR(&v, 2, {1, 1}), kelStatusOk);
    EXPECT_EQ(Kel16u(v), 0x8001);
    v = -32768;
    ASSERT_EQ(keliComplement_16s_C1IR(&v, 2, {1, 1}), kelStatusOk);
    EXPECT_EQ(Kel16u(v), 0x8000);
    Kel8u n = 0x0F, o = 0;
    ASSERT_EQ(keliNot_8u_C1R(&n, 1, &o, 1, {1, 1}), kelStatusOk);
    EXPECT_EQ(o, 0xF0);
}

// ---- not-a-number in Max and Min ---------------------------------------------------------------

// With one not-a-number operand the result is the second operand: src2, or srcDst in place.
TEST(Logic, MaxAndMinGiveTheSecondOperandBesideNotANumber)
{
    std::vector<float> a(64), b(64), d(64);
    for (int i = 0; i < 64; ++i) {
        a[i] = i % 2 ? NAN : float(i);
        b[i] = i % 2 ? float(-i) : (i % 4 ? NAN : -1.0f);
    }
    for (auto f : {keliMaxEvery_32f_C1R, keliMinEvery_32f_C1R}) {
        ASSERT_EQ(f(a.data(), 256, b.data(), 256, d.data(), 256, {64, 1}), kelStatusOk);
        for (int i = 0; i < 64; ++i)
            if (std::isnan(a[i]) || std::isnan(b[i])) ASSERT_TRUE(kit::arith::same(d[i], b[i])) << i;
    }
    std::vector<float> io = b;
    ASSERT_EQ(keliMaxEvery_32f_C1IR(a.data(), 256, io.data(), 256, {64, 1}), kelStatusOk);
    for (int i = 0; i < 64; ++i)
        if (std::isnan(a[i]) || std::isnan(b[i])) ASSERT_TRUE(kit::arith::same(io[i], b[i])) << i;
}

// ---- check orders ------------------------------------------------------------------------------

// Bits, shifts, Not and Complement test pointers, steps, then the size; Max and Min pointers, the
// size, then steps. Nothing is written on a failure.
TEST(Logic, ChecksComeInTheirOrderAndWriteNothing)
{
    Kel8u s[64] = {}, d[64];
    std::memset(d, 0xA5, sizeof d);
    const Kel8u value[3] = {1, 2, 3};
    const Kel32u count[3] = {1, 2, 3};
    const KeliSize ok{4, 2}, bad{0, 2};
    struct Case {
        const Kel8u* s;
        Kel8u* d;
        int step;
        KeliSize size;
        KelStatus logic, extremum;
    } cases[] = {
        {nullptr, d, 0, bad, kelStatusNullPtr, kelStatusNullPtr},
        {s, nullptr, -4, bad, kelStatusNullPtr, kelStatusNullPtr},
        {s, d, 0, bad, kelStatusBadStep, kelStatusBadSize},
        {s, d, -16, {2, -1}, kelStatusBadStep, kelStatusBadSize},
        {s, d, 0, ok, kelStatusBadStep, kelStatusBadStep},
        {s, d, 16, bad, kelStatusBadSize, kelStatusBadSize},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(int(&c - cases));
        EXPECT_EQ(keliAnd_8u_C1R(c.s, 16, s, c.step, c.d, 16, c.size), c.logic);
        EXPECT_EQ(keliXorC_8u_C3R(c.s, c.step, value, c.d, 16, c.size), c.logic);
        EXPECT_EQ(keliOrC_8u_C1IR(1, c.s ? c.d : nullptr, c.step, c.size), c.logic);
        EXPECT_EQ(keliNot_8u_AC4R(c.s, 16, c.d, c.step, c.size), c.logic);
        EXPECT_EQ(keliLShiftC_8u_C3R(c.s, c.step, count, c.d, 16, c.size), c.logic);
        EXPECT_EQ(keliRShiftC_8u_C1IR(0, c.s ? c.d : nullptr, c.step, c.size), c.logic);
        EXPECT_EQ(keliComplement_8s_C4R(reinterpret_cast<const Kel8s*>(c.s), c.step, reinterpret_cast<Kel8s*>(c.d), 16, c.size), c.logic);
        EXPECT_EQ(keliMaxEvery_8u_C1R(c.s, 16, s, 16, c.d, c.step, c.size), c.extremum);
        EXPECT_EQ(keliMinEvery_8u_AC4IR(c.s, c.step, c.d, 16, c.size), c.extremum);
        for (Kel8u v : d) ASSERT_EQ(v, 0xA5);
    }
    EXPECT_EQ(keliAndC_8u_C3R(s, 16, nullptr, d, 16, ok), kelStatusNullPtr);
    EXPECT_EQ(keliLShiftC_8u_C3R(s, 16, nullptr, d, 16, ok), kelStatusNullPtr);
}

}  // namespace
