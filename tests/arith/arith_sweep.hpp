// The sweep pieces that the two-operand arithmetic tests share, each taking the member's calls as
// callables: the widths and image shapes of a member's sweep, one out-of-place and one in-place
// call checked against a model with guard bytes and untouched alpha, the rows too far apart for
// 32-bit steps, the check order of the scaled families, and one element through a member.
#pragma once

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "keli.h"
#include "kit/arith.hpp"
#include "kit/image.hpp"
#include "kit/random.hpp"

namespace arith_sweep {

using I64 = std::int64_t;

// Which elements a call writes: every channel but the alpha of AC4.
struct Layout {
    int channels;
    bool alpha;
    bool colour(int c) const { return !(alpha && c == 3); }
    int processed() const { return alpha ? 3 : channels; }
};

// visit(type, member, rng) for every member that table(type) lists, for each element type in
// `Ts` in turn, all drawing from one generator whose seed a failure shows.
template <class... Ts, class Table, class Visit> void each_member(Table table, Visit visit)
{
    kit::Rng rng;
    SCOPED_TRACE("seed " + std::to_string(rng.seed_value()));
    auto members = [&](auto type) {
        for (const auto& m : table(type)) visit(type, m, rng);
    };
    (members(Ts{}), ...);
}

// Whether the running test has recorded a failure since this was made: a failure ends the sweep
// of its own member (or the rest of its step), not that of the members after it.
class NewFailures {
public:
    NewFailures()
        : result_(*::testing::UnitTest::GetInstance()->current_test_info()->result()),
          before_(result_.total_part_count())
    {
    }
    bool any() const { return result_.total_part_count() != before_; }

private:
    const ::testing::TestResult& result_;
    int before_;
};

// One step of a member's sweep: a width, one row at every fourth width and three otherwise, and
// a salt that moves the offsets and padding of the images from one scale factor (or mode) to the
// next.
struct Step {
    int width, height, salt;
    bool upright;  // members that refuse steps below one get no bottom-up images

    // The k-th image of the step, on its own offset and padding.
    template <class T> kit::Image<T> image(int channels, int k) const
    {
        kit::Shape s = kit::arith::shape(width, salt + k, 16 / int(sizeof(T)), int(sizeof(T)));
        if (upright) s.flipped = false;
        return kit::Image<T>(width, height, channels, s);
    }
};

// check(step, n) for every scale factor n (the i-th adds i to the salt) and every width from 1 to
// maxWidth, which reaches every head and tail length of the vector body; `what` names the member
// in a failure. Stops at the member's first failure, as one failing element says enough.
template <class Check>
void each_step(const std::string& what, const std::vector<int>& factors, int maxWidth, int salt, bool upright,
               Check check)
{
    SCOPED_TRACE(what);
    const NewFailures failures;
    for (std::size_t f = 0; f < factors.size(); ++f)
        for (int width = 1; width <= maxWidth; ++width) {
            SCOPED_TRACE("n " + std::to_string(factors[f]) + " width " + std::to_string(width));
            check(Step{width, width % 4 == 0 ? 1 : 3, salt + int(f), upright}, factors[f]);
            if (failures.any()) return;
        }
}

// Fills the images in order with elements where the rules bite drawn often.
template <class T, class... More> void fill_edgy(kit::Rng& rng, kit::Image<T>& image, More&... more)
{
    image.fill([&] { return kit::arith::edgy<T>(rng); });
    (more.fill([&] { return kit::arith::edgy<T>(rng); }), ...);
}

// Bit equality, so that not-a-number results compare too.
struct SameBits {
    template <class T> bool operator()(T a, T b) const { return kit::arith::same(a, b); }
};

// out() writes dst, inPlace() writes inout: both give `status`, leave the `sources` as they were,
// write no byte outside the colour elements (guard bytes, row padding, alpha), and give
// want(x, y, c) in every colour element.
template <class T, class Out, class InPlace, class Want, class Same = SameBits>
void check_forms(Layout l, std::initializer_list<const kit::Image<T>*> sources, kit::Image<T>& dst,
                 kit::Image<T>& inout, KelStatus status, Out out, InPlace inPlace, Want want, Same same = {})
{
    std::vector<std::vector<std::uint8_t>> before;
    for (const kit::Image<T>* s : sources) before.push_back(s->snapshot());
    const auto dstBefore = dst.snapshot(), inoutBefore = inout.snapshot();
    ASSERT_EQ(out(), status);
    ASSERT_EQ(inPlace(), status) << "in place";
    std::size_t i = 0;
    for (const kit::Image<T>* s : sources) {
        EXPECT_EQ(s->bytes(), before[i]) << "source " << i << " changed";
        ++i;
    }
    auto colour = [&](int, int, int c) { return l.colour(c); };
    ASSERT_EQ(kit::first_stray_write(dst, dstBefore, colour), -1);
    ASSERT_EQ(kit::first_stray_write(inout, inoutBefore, colour), -1) << "in place";
    for (int y = 0; y < dst.height(); ++y)
        for (int x = 0; x < dst.width(); ++x)
            for (int c = 0; c < l.processed(); ++c) {
                const T w = want(x, y, c), got = dst.at(x, y, c), gotIn = inout.at(x, y, c);
                ASSERT_TRUE(same(got, w)) << "x " << x << " y " << y << " c " << c << ": " << +got << " not " << +w;
                ASSERT_TRUE(same(gotIn, w))
                    << "in place x " << x << " y " << y << " c " << c << ": " << +gotIn << " not " << +w;
            }
}

// Images a and b into d, and in place into io (a copy of b), for a member with a scale factor.
template <class T, class M, class Want>
void check_scaled_images(Layout l, const M& m, int n, const kit::Image<T>& a, const kit::Image<T>& b,
                         kit::Image<T>& d, kit::Image<T>& io, KelStatus status, Want want)
{
    check_forms<T>(
        l, {&a, &b}, d, io, status,
        [&] { return m.r(a.data(), a.step(), b.data(), b.step(), d.data(), d.step(), a.size(), n); },
        [&] { return m.ir(a.data(), a.step(), io.data(), io.step(), a.size(), n); }, want);
}

// src and a constant into d, and in place into io (a copy of src), for a member with a scale
// factor.
template <class T, class M, class Want>
void check_scaled_constant(Layout l, const M& m, int n, const kit::Image<T>& src, const T* value, kit::Image<T>& d,
                           kit::Image<T>& io, Want want)
{
    check_forms<T>(
        l, {&src}, d, io, kelStatusOk,
        [&] { return m.cr(src.data(), src.step(), value, d.data(), d.step(), src.size(), n); },
        [&] { return m.cir(value, io.data(), io.step(), src.size(), n); }, want);
}

// The sweep of a member with a scale factor whose operands are all drawn where the rules bite:
// images a and b into d (and in place into a copy of b), then a and a constant into a fourth
// image (and in place into a copy of a). value(step) draws each element of the constant;
// images(s1, s2, n) and constant(s, v, n) are the rules.
template <class T, class M, class Value, class Images, class Constant>
void sweep_scaled(const M& m, kit::Rng& rng, const std::vector<int>& factors, int maxWidth, Value value,
                  Images images, Constant constant)
{
    const Layout l{m.channels, m.alpha};
    const auto check = [&](const Step& s, int n) {
        const NewFailures failures;
        auto a = s.image<T>(l.channels, 0), b = s.image<T>(l.channels, 1), d = s.image<T>(l.channels, 2);
        fill_edgy(rng, a, b, d);
        T v[4];
        for (T& e : v) e = value(s);
        kit::Image<T> io = b;
        check_scaled_images(l, m, n, a, b, d, io, kelStatusOk,
                            [&](int x, int y, int c) { return images(a.at(x, y, c), b.at(x, y, c), n); });
        if (failures.any()) return;
        auto dc = s.image<T>(l.channels, 3);
        fill_edgy(rng, dc);
        kit::Image<T> ioc = a;
        check_scaled_constant<T>(l, m, n, a, v, dc, ioc,
                                 [&](int x, int y, int c) { return constant(a.at(x, y, c), v[c], n); });
    };
    each_step(m.name, factors, maxWidth, 0, false, check);
}

// fill(src, d, n) must set every colour element of d (37 x 3, each element 9 before) to `want`
// for each scale factor n, leave alpha, and read nothing: src lies on a page that can be neither
// read nor written.
template <class T, class Fill> void check_fills_unread(Layout l, std::initializer_list<int> factors, T want, Fill fill)
{
    const kit::arith::Unreadable page;
    kit::Image<T> d(37, 3, l.channels);
    for (int n : factors) {
        SCOPED_TRACE("n " + std::to_string(n));
        d.fill([] { return T(9); });
        ASSERT_NO_FATAL_FAILURE(fill(page.template as<T>(), d, n));
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 37; ++x)
                for (int c = 0; c < l.channels; ++c) ASSERT_EQ(d.at(x, y, c), l.colour(c) ? want : T(9));
    }
}

// From the zero bound on every result is zero: the image, in-place and constant forms fill
// without reading a source. more(src, d, n) adds the member's further forms.
template <class T, class M, class More> void check_zero_bound_unread(const M& m, int zeroFrom, More more)
{
    const KeliSize size{37, 3};
    check_fills_unread<T>({m.channels, m.alpha}, {zeroFrom, zeroFrom + 100, INT_MAX}, T(0),
                          [&](const T* src, kit::Image<T>& d, int n) {
                              ASSERT_EQ(m.r(src, 0, src, -64, d.data(), d.step(), size, n), kelStatusOk);
                              ASSERT_EQ(m.ir(src, 0, d.data(), d.step(), size, n), kelStatusOk);
                              const T values[4] = {1, 2, 3, 4};
                              ASSERT_EQ(m.cr(src, 0, values, d.data(), d.step(), size, n), kelStatusOk);
                              more(src, d, n);
                          });
}

// The wide entry points of one member, with a scale factor (ignored by 32f).
template <class T> struct WideForms {
    const char* name;
    Layout layout;
    kit::arith::BinFn<T, I64, KeliSizeL> r;
    kit::arith::BinIFn<T, I64, KeliSizeL> ir;
    kit::arith::ConFn<T, I64, KeliSizeL> cr;
    kit::arith::ConIFn<T, I64, KeliSizeL> cir;
};

// The wide forms on two rows FarRows::kStep bytes apart, too far for 32-bit steps, so that the
// calls walk in chunks: images a and b into d and in place into a copy of b, then a and a
// constant into d and in place into b, against pair(a, b, n) and constant(s, v, n); then a null
// pointer, which the first chunk must find.
template <class T, class Draw, class Pair, class Constant>
void check_far_rows(const kit::arith::FarRows& mem, const WideForms<T>& m, const std::vector<int>& factors, Draw draw,
                    Pair pair, Constant constant)
{
    using kit::arith::FarRows;
    using kit::arith::same;
    constexpr int W = 37, H = FarRows::kRows;
    const int E = W * m.layout.channels;
    T* a = mem.image<T>(0);
    T* b = mem.image<T>(1);
    T* d = mem.image<T>(2);
    T* io = mem.image<T>(3);
    const I64 s = FarRows::kStep;
    const KeliSizeL size{W, H};
    for (int n : factors) {
        SCOPED_TRACE(std::string(m.name) + " n " + std::to_string(n));
        T value[4], old[H][W * 4];
        for (T& v : value) v = draw();
        for (int y = 0; y < H; ++y)
            for (int e = 0; e < E; ++e) {
                FarRows::at(a, y, e) = draw();
                FarRows::at(b, y, e) = FarRows::at(io, y, e) = draw();
                FarRows::at(d, y, e) = old[y][e] = draw();
            }
        ASSERT_EQ(m.r(a, s, b, s, d, s, size, n), kelStatusOk);
        ASSERT_EQ(m.ir(a, s, io, s, size, n), kelStatusOk);
        for (int y = 0; y < H; ++y)
            for (int e = 0; e < E; ++e) {
                const T s2 = FarRows::at(b, y, e);
                const bool alpha = !m.layout.colour(e % 4);
                const T want = alpha ? old[y][e] : pair(FarRows::at(a, y, e), s2, n);
                ASSERT_TRUE(same(FarRows::at(d, y, e), want)) << "y " << y << " e " << e;
                ASSERT_TRUE(same(FarRows::at(io, y, e), alpha ? s2 : want)) << "in place y " << y << " e " << e;
            }
        T kept[H][W * 4];
        for (int y = 0; y < H; ++y)
            for (int e = 0; e < E; ++e) kept[y][e] = FarRows::at(b, y, e);
        ASSERT_EQ(m.cr(a, s, value, d, s, size, n), kelStatusOk);
        ASSERT_EQ(m.cir(value, b, s, size, n), kelStatusOk);
        for (int y = 0; y < H; ++y)
            for (int e = 0; e < E; ++e) {
                const bool alpha = !m.layout.colour(e % 4);
                const T v = value[e % m.layout.channels];
                const T want = alpha ? old[y][e] : constant(FarRows::at(a, y, e), v, n);
                const T wantIn = alpha ? kept[y][e] : constant(kept[y][e], v, n);
                ASSERT_TRUE(same(FarRows::at(d, y, e), want)) << "constant y " << y << " e " << e;
                ASSERT_TRUE(same(FarRows::at(b, y, e), wantIn)) << "constant in place y " << y << " e " << e;
            }
        EXPECT_EQ(m.r(a, s, nullptr, s, d, s, size, n), kelStatusNullPtr);
        if (m.layout.channels > 1) {  // the C1 adapters take the constant by value
            EXPECT_EQ(m.cr(a, s, nullptr, d, s, size, n), kelStatusNullPtr);
        }
        EXPECT_EQ(m.cir(value, nullptr, s, size, n), kelStatusNullPtr);
    }
}

// The 16u entry points of a scaled two-operand family whose argument checks are tested.
struct CheckedForms {
    KelStatus (*c4)(const Kel16u*, int, const Kel16u*, int, Kel16u*, int, KeliSize, int);
    int c4Factor;
    KelStatus (*ac4InPlace)(const Kel16u*, int, Kel16u*, int, KeliSize, int);
    KelStatus (*c1Wide)(const Kel16u*, I64, const Kel16u*, I64, Kel16u*, I64, KeliSizeL, int);
    KelStatus (*c3Constant)(const Kel16u*, int, const Kel16u*, Kel16u*, int, KeliSize, int);
    KelStatus (*ac4ConstantInPlaceWide)(const Kel16u*, Kel16u*, I64, KeliSizeL, int);
    KelStatus (*c1Constant)(const Kel16u*, int, Kel16u, Kel16u*, int, KeliSize, int);
    KelStatus (*c1ConstantInPlace)(Kel16u, Kel16u*, int, KeliSize, int);
};

// Every pointer (the sources, the constant, the destination) is checked before the size, whatever
// the size and the steps, and nothing is written. A C1 constant comes by value, so it is zero
// there: the zero short cut must wait for the checks too.
inline void check_pointers_before_size(const Kel16u (&values)[3], const CheckedForms& f)
{
    Kel16u src[32] = {}, dst[32];
    std::memset(dst, 0xA5, sizeof dst);
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
        SCOPED_TRACE(int(&c - cases));
        const KeliSizeL sizeL{c.size.width, c.size.height};
        if (c.v) {  // the image forms, which take no constant
            EXPECT_EQ(f.c4(c.s1, 0, c.s2, -8, c.d, 8, c.size, f.c4Factor), c.want);
            EXPECT_EQ(f.ac4InPlace(c.s1, 8, c.s2 ? c.d : nullptr, 0, c.size, 99), c.want);
            EXPECT_EQ(f.c1Wide(c.s1, 8, c.s2, 8, c.d, 8, sizeL, 0), c.want);
        }
        if (c.s2) {  // the constant forms, which take no second source
            EXPECT_EQ(f.c3Constant(c.s1, 8, c.v, c.d, -8, c.size, -20), c.want);
            EXPECT_EQ(f.ac4ConstantInPlaceWide(c.v, c.s1 ? c.d : nullptr, 8, sizeL, 0), c.want);
            EXPECT_EQ(f.c1Constant(c.s1, 8, 0, c.v ? c.d : nullptr, 8, c.size, 0), c.v ? c.want : kelStatusNullPtr);
            const bool badSize = c.size.width < 1 || c.size.height < 1;
            EXPECT_EQ(f.c1ConstantInPlace(1, c.d, 8, c.size, 0),
                      !c.d ? kelStatusNullPtr : badSize ? kelStatusBadSize : kelStatusOk);
        }
        for (Kel16u v : dst) ASSERT_EQ(v, 0xA5A5);
    }
}

// Steps as the caller gives them, on 40 x 3 images of random elements: a zero step reads one
// source row over and over and a negative one walks the other upwards (first), and a zero
// destination step writes one row over and over, the last row's result staying (second).
// model(s1, s2, n) is each C1 member's rule on its first and second source.
template <class T, class First, class FirstModel, class Second, class SecondModel>
void check_steps_as_given(First first, int n1, FirstModel model1, Second second, int n2, SecondModel model2)
{
    T a[3][40], b[3][40], d[3][40];
    kit::Rng rng;
    for (auto* img : {a, b})
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 40; ++x) img[y][x] = rng.any<T>();
    std::memset(d, 0, sizeof d);
    const int row = 40 * int(sizeof(T));
    ASSERT_EQ(first(a[0], 0, b[2], -row, d[0], row, KeliSize{40, 3}, n1), kelStatusOk);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 40; ++x) ASSERT_EQ(d[y][x], model1(a[0][x], b[2 - y][x], n1)) << "x " << x << " y " << y;
    ASSERT_EQ(second(a[0], row, b[0], row, d[0], 0, KeliSize{40, 3}, n2), kelStatusOk);
    for (int x = 0; x < 40; ++x) ASSERT_EQ(d[0][x], model2(a[2][x], b[2][x], n2)) << "x " << x;
}

// One element through a C1 member: f(&a, 16, &b, 16, &d, 16, {1, 1}, tail...) must give `want`.
// The destination starts at 77, so that a missing write shows.
template <class T, class F, class... Tail> T one_element(KelStatus want, F f, T a, T b, Tail... tail)
{
    T d = 77;
    EXPECT_EQ(f(&a, 16, &b, 16, &d, 16, KeliSize{1, 1}, tail...), want);
    return d;
}

}  // namespace arith_sweep
