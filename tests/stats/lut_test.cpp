// keliLUT and keliLUTPalette: every member against the plain curve model over the geometry
// sweep, out of place and in place, with guard bytes and untouched alpha; specs that fit the
// sizes the size query gives at every alignment; the values where the curve rules bite; and
// the check order of every entry.
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
#include "reference/lut.hpp"

namespace {

using reference::Curve;

template <class T> using Lv = std::conditional_t<std::is_same_v<T, Kel32f>, Kel32f, Kel32s>;
template <class T> using Curves = std::vector<std::vector<Lv<T>>>;

template <class T> constexpr KelDataType type_of()
{
    if constexpr (std::is_same_v<T, Kel8u>) return kel8u;
    else if constexpr (std::is_same_v<T, Kel16u>) return kel16u;
    else if constexpr (std::is_same_v<T, Kel16s>) return kel16s;
    else return kel32f;
}

KeliInterpolationType interp_of(Curve k) { return k == Curve::Nearest ? kelNearest : k == Curve::Linear ? kelLinear : kelCubic; }

template <class T>
KelStatus init(KeliInterpolationType k, int channels, const Lv<T>* const* v, const Lv<T>* const* l, const int* n, Kel8u* spec)
{
    if constexpr (std::is_same_v<T, Kel8u>) return keliLUT_Init_8u(k, channels, {4, 4}, v, l, n, spec);
    else if constexpr (std::is_same_v<T, Kel16u>) return keliLUT_Init_16u(k, channels, {4, 4}, v, l, n, spec);
    else if constexpr (std::is_same_v<T, Kel16s>) return keliLUT_Init_16s(k, channels, {4, 4}, v, l, n, spec);
    else return keliLUT_Init_32f(k, channels, {4, 4}, v, l, n, spec);
}

// A spec in a block of exactly the queried size, placed `offset` bytes past a 64-byte
// boundary, with guard bytes behind it.
struct Spec {
    std::vector<Kel8u> mem;
    int offset = 0, size = 0;
    Kel8u* data() { return first() + offset; }
    Kel8u* first()
    {
        const auto a = reinterpret_cast<std::uintptr_t>(mem.data());
        return mem.data() + ((0 - a) & 63);
    }
    bool guard_intact()
    {
        for (int i = offset + size; i < offset + size + 64; ++i)
            if (first()[i] != 0xC3) return false;
        return true;
    }
};

template <class T> Spec make_spec(Curve kind, int channels, const Curves<T>& L, const Curves<T>& V, int offset = 0)
{
    Spec s;
    s.offset = offset;
    std::vector<int> n;
    std::vector<const Lv<T>*> pl, pv;
    for (std::size_t c = 0; c < L.size(); ++c) {
        n.push_back(int(L[c].size()));
        pl.push_back(L[c].data());
        pv.push_back(V[c].data());
    }
    EXPECT_EQ(keliLUT_GetSize(interp_of(kind), type_of<T>(), channels, {4, 4}, n.data(), &s.size), kelStatusOk);
    s.mem.assign(s.size + offset + 128 + 64, 0xC3);
    EXPECT_EQ(init<T>(interp_of(kind), channels, pv.data(), pl.data(), n.data(), s.data()), kelStatusOk);
    EXPECT_TRUE(s.guard_intact()) << "init wrote past the queried size";
    return s;
}

// The model of a spec's curve c for element v.
template <class T> struct Model {
    Curves<T> L, V;
    Curve kind;
    std::vector<std::vector<T>> table;  // integer types: the model evaluated once for every value

    Model(Curve k, const Curves<T>& l, const Curves<T>& v) : L(l), V(v), kind(k)
    {
        if constexpr (std::is_same_v<T, Kel32f>) {
            // A 32f cubic needs four levels on every curve; otherwise all curves are linear.
            for (const auto& c : L)
                if (kind == Curve::Cubic && c.size() < 4) kind = Curve::Linear;
        } else {
            for (std::size_t c = 0; c < L.size(); ++c) {
                table.emplace_back();
                for (std::int64_t x = std::numeric_limits<T>::min(); x <= std::numeric_limits<T>::max(); ++x)
                    table.back().push_back(reference::lut_integer<T>(x, L[c], V[c], kind));
            }
        }
    }
    T operator()(T v, int c) const
    {
        if constexpr (std::is_same_v<T, Kel32f>) return reference::lut_float(v, L[c], V[c], kind);
        else return table[c][std::int64_t(v) - std::numeric_limits<T>::min()];
    }
};

template <class T> using LutCall = KelStatus (*)(const T*, int, T*, int, KeliSize, const Kel8u*);
template <class T> using LutCallI = KelStatus (*)(T*, int, KeliSize, const Kel8u*);

// Layout index: 0 C1, 1 C3, 2 C4, 3 AC4.
template <class T> std::pair<LutCall<T>, LutCallI<T>> member(int layout)
{
    if constexpr (std::is_same_v<T, Kel8u>) {
        const LutCall<T> f[] = {keliLUT_8u_C1R, keliLUT_8u_C3R, keliLUT_8u_C4R, keliLUT_8u_AC4R};
        const LutCallI<T> g[] = {keliLUT_8u_C1IR, keliLUT_8u_C3IR, keliLUT_8u_C4IR, keliLUT_8u_AC4IR};
        return {f[layout], g[layout]};
    } else if constexpr (std::is_same_v<T, Kel16u>) {
        const LutCall<T> f[] = {keliLUT_16u_C1R, keliLUT_16u_C3R, keliLUT_16u_C4R, keliLUT_16u_AC4R};
        const LutCallI<T> g[] = {keliLUT_16u_C1IR, keliLUT_16u_C3IR, keliLUT_16u_C4IR, keliLUT_16u_AC4IR};
        return {f[layout], g[layout]};
    } else if constexpr (std::is_same_v<T, Kel16s>) {
        const LutCall<T> f[] = {keliLUT_16s_C1R, keliLUT_16s_C3R, keliLUT_16s_C4R, keliLUT_16s_AC4R};
        const LutCallI<T> g[] = {keliLUT_16s_C1IR, keliLUT_16s_C3IR, keliLUT_16s_C4IR, keliLUT_16s_AC4IR};
        return {f[layout], g[layout]};
    } else {
        const LutCall<T> f[] = {keliLUT_32f_C1R, keliLUT_32f_C3R, keliLUT_32f_C4R, keliLUT_32f_AC4R};
        const LutCallI<T> g[] = {keliLUT_32f_C1IR, keliLUT_32f_C3IR, keliLUT_32f_C4IR, keliLUT_32f_AC4IR};
        return {f[layout], g[layout]};
    }
}

template <class T> bool same_bits(T a, T b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// One layout over the sweep: `apply(v, c)` is the rule for element v of channel c, `gen`
// draws source elements, `call` and `callInPlace` run the member.
template <class T, class Apply, class Gen, class Call, class CallI>
void sweep_layout(int mem, bool alpha, Apply apply, Gen gen, Call call, CallI callInPlace, int maxWidth)
{
    kit::SweepOptions o;
    o.maxWidth = maxWidth;
    o.elementBytes = sizeof(T);
    kit::Rng fill(7);
    auto colour = [&](int, int, int c) { return !(alpha && c == 3); };
    kit::sweep(o, [&](const kit::Geometry& g) {
        SCOPED_TRACE(g.describe());
        kit::Image<T> src(g.width, g.height, mem, g.src), dst(g.width, g.height, mem, g.dst);
        src.fill(gen);
        dst.fill(gen);
        const auto srcBefore = src.snapshot(), dstBefore = dst.snapshot();
        ASSERT_EQ(call(src.data(), src.step(), dst.data(), dst.step(), src.size()), kelStatusOk);
        EXPECT_EQ(src.bytes(), srcBefore) << "source changed";
        ASSERT_EQ(kit::first_stray_write(dst, dstBefore, colour), -1) << "write outside the colour elements";
        for (int y = 0; y < g.height; ++y)
            for (int x = 0; x < g.width; ++x)
                for (int c = 0; c < (alpha ? 3 : mem); ++c)
                    ASSERT_TRUE(same_bits(dst.at(x, y, c), apply(src.at(x, y, c), c)))
                        << "x " << x << " y " << y << " c " << c << " src " << double(src.at(x, y, c));
        // In place, on the destination's geometry.
        kit::Image<T> io(g.width, g.height, mem, g.dst);
        for (int y = 0; y < g.height; ++y)
            for (int k = 0; k < g.width * mem; ++k) io.at(0, y, k) = src.at(0, y, k);
        const auto ioBefore = io.snapshot();
        ASSERT_EQ(callInPlace(io.data(), io.step(), io.size()), kelStatusOk);
        ASSERT_EQ(kit::first_stray_write(io, ioBefore, colour), -1) << "in place: write outside the colour";
        for (int y = 0; y < g.height; ++y)
            for (int x = 0; x < g.width; ++x)
                for (int c = 0; c < mem; ++c) {
                    const T want = colour(x, y, c) ? apply(src.at(x, y, c), c) : src.at(x, y, c);
                    ASSERT_TRUE(same_bits(io.at(x, y, c), want)) << "in place x " << x << " c " << c;
                }
    });
}

// Random curves: `n` levels per curve, ascending with gaps, reaching past the type's ends;
// values anywhere, beyond the type too.
template <class T> Curves<T> random_levels(kit::Rng& rng, const std::vector<int>& n, double lo, double hi)
{
    Curves<T> out;
    for (int k : n) {
        std::vector<Lv<T>> l;
        double at = lo + (hi - lo) * rng.below(100) / 1000.0;
        for (int i = 0; i < k; ++i) {
            l.push_back(Lv<T>(at));
            at += (hi - lo) / k * (0.2 + rng.below(1000) / 600.0);
            if constexpr (!std::is_same_v<T, Kel32f>) at = std::max(at, double(l.back()) + 1);
        }
        out.push_back(l);
    }
    return out;
}

template <class T> Curves<T> random_values(kit::Rng& rng, const std::vector<int>& n, double lo, double hi)
{
    Curves<T> out;
    for (int k : n) {
        std::vector<Lv<T>> v;
        for (int i = 0; i < k; ++i) v.push_back(Lv<T>(lo + (hi - lo) * rng.below(10001) / 10000.0));
        out.push_back(v);
    }
    return out;
}

template <class T> void sweep_type(double lo, double hi, int maxWidth)
{
    kit::Rng rng;
    const int layouts[] = {1, 3, 4, 9};
    for (int li = 0; li < 4; ++li) {
        const int mem = li == 0 ? 1 : li == 1 ? 3 : 4, curves = li == 0 ? 1 : li == 2 ? 4 : 3;
        for (Curve kind : {Curve::Nearest, Curve::Linear, Curve::Cubic}) {
            SCOPED_TRACE("layout " + std::to_string(layouts[li]) + " kind " + std::to_string(int(kind)));
            std::vector<int> n;
            for (int c = 0; c < curves; ++c) n.push_back(c == 1 ? 3 : 4 + 3 * c);  // curve 1 too short for a cubic
            const Curves<T> L = random_levels<T>(rng, n, lo, hi);
            const Curves<T> V = random_values<T>(rng, n, lo - 0.1 * (hi - lo), hi + 0.1 * (hi - lo));
            Spec spec = make_spec<T>(kind, layouts[li], L, V, rng.below(64));
            const Model<T> model(kind, L, V);
            auto gen = [&]() -> T {
                if constexpr (std::is_same_v<T, Kel32f>) {
                    const int c = rng.below(curves), r = rng.below(8);
                    if (r == 0) return L[c][rng.below(int(L[c].size()))];
                    if (r == 1) return std::nextafter(L[c][rng.below(int(L[c].size()))], -INFINITY);
                    if (r == 2) return rng.below(2) ? NAN : -INFINITY;
                    return float(lo - 0.2 * (hi - lo) + 1.4 * (hi - lo) * rng.below(100001) / 100000.0);
                } else {
                    return rng.any<T>();
                }
            };
            auto [call, callI] = member<T>(li);
            auto callSpec = [&, call = call](const T* s, int ss, T* d, int ds, KeliSize r) { return call(s, ss, d, ds, r, spec.data()); };
            auto callSpecI = [&, callI = callI](T* p, int st, KeliSize r) { return callI(p, st, r, spec.data()); };
            sweep_layout<T>(mem, li == 3, [&](T v, int c) { return model(v, c); }, gen, callSpec, callSpecI, maxWidth);
        }
    }
}

TEST(Lut, Members8uMatchTheModelOverTheSweep) { sweep_type<Kel8u>(-40, 300, 56); }
TEST(Lut, Members16uMatchTheModelOverTheSweep) { sweep_type<Kel16u>(-3000, 70000, 24); }
TEST(Lut, Members16sMatchTheModelOverTheSweep) { sweep_type<Kel16s>(-35000, 35000, 24); }
TEST(Lut, Members32fMatchTheModelOverTheSweep) { sweep_type<Kel32f>(-2, 3, 24); }

// ---- palettes ----------------------------------------------------------------------------------

template <class S, class D, int Wide, class Call>
void palette_sweep(int mem, bool alpha, int maxBits, Call call)
{
    kit::Rng rng;
    const int curves = alpha ? 3 : mem;
    for (int bits : {1, maxBits / 2 + 1, maxBits}) {
        SCOPED_TRACE("channels " + std::to_string(mem) + " bits " + std::to_string(bits));
        std::vector<std::vector<D>> tables(curves, std::vector<D>(std::size_t(Wide) << bits));
        for (auto& t : tables)
            for (D& e : t) e = rng.any<D>();
        std::vector<const D*> ptrs;
        for (auto& t : tables) ptrs.push_back(t.data());
        kit::SweepOptions o;
        o.maxWidth = 40;
        o.elementBytes = sizeof(D) < sizeof(S) ? sizeof(D) : sizeof(S);
        kit::sweep(o, [&](const kit::Geometry& g) {
            SCOPED_TRACE(g.describe());
            kit::Image<S> src(g.width, g.height, mem, g.src);
            kit::Image<D> dst(g.width, g.height, mem * Wide, g.dst);
            src.fill([&] { return rng.any<S>(); });
            dst.fill([&] { return rng.any<D>(); });
            const auto before = dst.snapshot();
            auto colour = [&](int, int, int k) { return !(alpha && k / Wide == 3); };
            ASSERT_EQ(call(src.data(), src.step(), dst.data(), dst.step(), src.size(), ptrs.data(), bits), kelStatusOk);
            ASSERT_EQ(kit::first_stray_write(dst, before, colour), -1);
            const std::uint32_t mask = (1u << bits) - 1;
            for (int y = 0; y < g.height; ++y)
                for (int x = 0; x < g.width; ++x)
                    for (int c = 0; c < curves; ++c)
                        for (int w = 0; w < Wide; ++w)
                            ASSERT_EQ(dst.at(x, y, c * Wide + w), tables[c][Wide * (src.at(x, y, c) & mask) + w])
                                << "x " << x << " c " << c;
        });
    }
}

template <class S, class D> auto one(KelStatus (*f)(const S*, int, D*, int, KeliSize, const D*, int))
{
    return [f](const S* s, int ss, D* d, int ds, KeliSize r, const D* const* t, int b) { return f(s, ss, d, ds, r, t[0], b); };
}

TEST(LutPalette, EveryMemberMatchesTheTableOverTheSweep)
{
    palette_sweep<Kel8u, Kel8u, 1>(1, false, 8, one(keliLUTPalette_8u_C1R));
    palette_sweep<Kel8u, Kel8u, 1>(3, false, 8, keliLUTPalette_8u_C3R);
    palette_sweep<Kel8u, Kel8u, 1>(4, false, 8, keliLUTPalette_8u_C4R);
    palette_sweep<Kel8u, Kel8u, 1>(4, true, 8, keliLUTPalette_8u_AC4R);
    palette_sweep<Kel16u, Kel16u, 1>(1, false, 16, one(keliLUTPalette_16u_C1R));
    palette_sweep<Kel16u, Kel16u, 1>(3, false, 16, keliLUTPalette_16u_C3R);
    palette_sweep<Kel16u, Kel16u, 1>(4, false, 16, keliLUTPalette_16u_C4R);
    palette_sweep<Kel16u, Kel16u, 1>(4, true, 16, keliLUTPalette_16u_AC4R);
    palette_sweep<Kel8u, Kel8u, 3>(1, false, 8, one(keliLUTPalette_8u24u_C1R));
    palette_sweep<Kel8u, Kel32u, 1>(1, false, 8, one(keliLUTPalette_8u32u_C1R));
    palette_sweep<Kel16u, Kel8u, 1>(1, false, 16, one(keliLUTPalette_16u8u_C1R));
    palette_sweep<Kel16u, Kel8u, 3>(1, false, 16, one(keliLUTPalette_16u24u_C1R));
    palette_sweep<Kel16u, Kel32u, 1>(1, false, 16, one(keliLUTPalette_16u32u_C1R));
}

// ---- specs -------------------------------------------------------------------------------------

TEST(Lut, SpecsFitTheQueriedSizeAtEveryAlignment)
{
    kit::Rng rng;
    for (int channels : {1, 3, 4, 9})
        for (Curve kind : {Curve::Nearest, Curve::Linear, Curve::Cubic})
            for (int shape = 0; shape < 4; ++shape) {
                // Level counts from the smallest to many, with and without a short curve.
                std::vector<int> n;
                for (int c = 0; c < (channels == 1 ? 1 : channels == 4 ? 4 : 3); ++c)
                    n.push_back(shape == 0 ? 2 : shape == 1 ? 3 + c : shape == 2 ? 4 + 9 * c : 7 + 8 * c);
                for (int offset = 0; offset < 64; offset += 9) {
                    SCOPED_TRACE("channels " + std::to_string(channels) + " kind " + std::to_string(int(kind)) +
                                 " shape " + std::to_string(shape) + " offset " + std::to_string(offset));
                    make_spec<Kel32f>(kind, channels, random_levels<Kel32f>(rng, n, -1, 1), random_values<Kel32f>(rng, n, -1, 1), offset);
                    if (offset % 27 == 0) {
                        make_spec<Kel8u>(kind, channels, random_levels<Kel8u>(rng, n, 0, 255), random_values<Kel8u>(rng, n, 0, 255), offset);
                        make_spec<Kel16s>(kind, channels, random_levels<Kel16s>(rng, n, -9, 9), random_values<Kel16s>(rng, n, 0, 9), offset);
                    }
                }
            }
    // The sizes callers allocate, and the identifier at the first 64-byte boundary.
    const int n[4] = {5, 3, 9, 4};
    const struct { KeliInterpolationType k; KelDataType t; int ch, size; } cases[] = {
        {kelNearest, kel8u, 1, 544}, {kelCubic, kel8u, 9, 1056}, {kelLinear, kel8u, 4, 1312},
        {kelNearest, kel16u, 1, 288 + 40 + 0x20000}, {kelNearest, kel16s, 3, 288 + 192 + 0x60000},
        {kelNearest, kel16u, 4, 288 + 0x80000}, {kelNearest, kel16s, 9, 288 + 0x60000}, {kelLinear, kel16u, 3, 288 + 0x60000},
        {kelNearest, kel32f, 1, 328}, {kelNearest, kel32f, 4, 288 + 192}, {kelLinear, kel32f, 1, 280 + 64 + 40},
        {kelLinear, kel32f, 3, 264 + 192 + 136}, {kelLinear, kel32f, 4, 256 + 192 + 168},
        {kelCubic, kel32f, 1, 64 + 120 + 264}, {kelCubic, kel32f, 3, 264 + 192 + 136}, {kelCubic, kel32f, 4, 192 + 160 + 264},
    };
    for (const auto& c : cases) {
        int size = 0;
        ASSERT_EQ(keliLUT_GetSize(c.k, c.t, c.ch, {1, 1}, n, &size), kelStatusOk);
        EXPECT_EQ(size, c.size) << c.k << " " << c.t << " " << c.ch;
    }
    const int cubic4[3] = {4, 5, 6};
    int size = 0;
    ASSERT_EQ(keliLUT_GetSize(kelCubic, kel32f, 3, {1, 1}, cubic4, &size), kelStatusOk);
    EXPECT_EQ(size, 216 + 128 + 24 * 15);
    ASSERT_EQ(keliLUT_GetSize(kelCubic, kel32f, 1, {1, 1}, cubic4, &size), kelStatusOk);
    EXPECT_EQ(size, 64 + 24 * 4 + 264);
    Spec s = make_spec<Kel32f>(Curve::Linear, 1, {{0.f, 1.f}}, {{0.f, 1.f}}, 13);
    std::uint32_t id;
    std::memcpy(&id, s.data() + 51, 4);
    EXPECT_EQ(id, 0x1234583u);
    Spec t = make_spec<Kel16s>(Curve::Cubic, 9, {{0, 1}, {0, 1}, {0, 1}}, {{0, 1}, {0, 1}, {0, 1}}, 0);
    std::memcpy(&id, t.data(), 4);
    EXPECT_EQ(id, 0x1234567u + 4 * 2 + 3 + 32);
}

TEST(Lut, CurveRulesBite)
{
    // 0 and 256 mapped to 0 and 255, linear: trunc(x * 255 / 256 + 0.5) for every x.
    Spec s = make_spec<Kel8u>(Curve::Linear, 1, {{0, 256}}, {{0, 255}});
    Kel8u px[256], out[256];
    for (int i = 0; i < 256; ++i) px[i] = Kel8u(i);
    ASSERT_EQ(keliLUT_8u_C1R(px, 256, out, 256, {256, 1}, s.data()), kelStatusOk);
    for (int i = 0; i < 256; ++i) ASSERT_EQ(out[i], int(std::trunc(i * 255.0 / 256 + 0.5))) << i;
    // Values beyond the type clamp; elements outside the levels stay.
    Spec n = make_spec<Kel8u>(Curve::Nearest, 1, {{10, 20, 30}}, {{-7, 900, 5}});
    ASSERT_EQ(keliLUT_8u_C1R(px, 256, out, 256, {256, 1}, n.data()), kelStatusOk);
    EXPECT_EQ(out[9], 9);
    EXPECT_EQ(out[10], 0);
    EXPECT_EQ(out[19], 0);
    EXPECT_EQ(out[20], 255);
    EXPECT_EQ(out[30], 30);
    // A cubic with three levels is the linear curve.
    const Curves<Kel16s> L = {{-30000, 100, 20000}}, V = {{500, -900, 31000}};
    Spec c = make_spec<Kel16s>(Curve::Cubic, 1, L, V), l = make_spec<Kel16s>(Curve::Linear, 1, L, V);
    std::vector<Kel16s> all(65536), a(65536), b(65536);
    for (int i = 0; i < 65536; ++i) all[i] = Kel16s(i - 32768);
    ASSERT_EQ(keliLUT_16s_C1R(all.data(), 512, a.data(), 512, {256, 256}, c.data()), kelStatusOk);
    ASSERT_EQ(keliLUT_16s_C1R(all.data(), 512, b.data(), 512, {256, 256}, l.data()), kelStatusOk);
    EXPECT_EQ(a, b);
    // Adding 0.5 and truncating rounds toward zero below zero: on the level whose value is
    // -900 the curve gives -899, and -899.45 just before it gives -899 too.
    EXPECT_EQ(a[32768 + 100], -899);
    EXPECT_EQ(a[32768 + 99], -899);
    EXPECT_EQ(a[32768 + 20000], 20000);  // from the last level on, elements stay
    // A segment of one element, or one clamped to one element, takes its value as it stands:
    // the 0.5 and truncation of the linear rule would move a negative value.
    Spec one = make_spec<Kel16s>(Curve::Linear, 1, {{-40000, -32767, -5, -4, 10}}, {{-300, 7, -100, 50, 60}});
    Kel16s e[3] = {-32768, -5, -4};
    ASSERT_EQ(keliLUT_16s_C1IR(e, 6, {3, 1}, one.data()), kelStatusOk);
    EXPECT_EQ(e[0], -300);
    EXPECT_EQ(e[1], -100);
    EXPECT_EQ(e[2], 50);
    // A cubic through points of a cubic reproduces it: y = x^3 / 1000 over 0 ... 40.
    Spec q = make_spec<Kel8u>(Curve::Cubic, 1, {{0, 10, 20, 30, 40}}, {{0, 1, 8, 27, 64}});
    ASSERT_EQ(keliLUT_8u_C1IR(px, 256, {256, 1}, q.data()), kelStatusOk);
    for (int i = 0; i < 40; ++i) EXPECT_EQ(px[i], int(std::trunc(i * i * i / 1000.0 + 0.5 + 1e-9))) << i;
    EXPECT_EQ(px[40], 40);
    // Two equal levels leave the cubics around them without a solution: those segments
    // are linear, in the tables and in 32f alike.
    Spec r8 = make_spec<Kel8u>(Curve::Cubic, 1, {{0, 10, 10, 20, 30}}, {{0, 10, 20, 40, 80}});
    Kel8u rx[3] = {5, 15, 25};
    ASSERT_EQ(keliLUT_8u_C1IR(rx, 3, {3, 1}, r8.data()), kelStatusOk);
    EXPECT_EQ(rx[0], 5);
    EXPECT_EQ(rx[1], 30);
    EXPECT_EQ(rx[2], 60);
    Spec r32 = make_spec<Kel32f>(Curve::Cubic, 1, {{0.f, 1.f, 1.f, 2.f, 3.f}}, {{0.f, 10.f, 20.f, 40.f, 80.f}});
    float rv[3] = {0.5f, 1.5f, 2.5f};
    ASSERT_EQ(keliLUT_32f_C1IR(rv, 12, {3, 1}, r32.data()), kelStatusOk);
    EXPECT_EQ(rv[0], 5.f);
    EXPECT_EQ(rv[1], 30.f);
    EXPECT_EQ(rv[2], 60.f);
    // 32f: outside values and not-a-number stay, bit for bit.
    Spec f = make_spec<Kel32f>(Curve::Linear, 1, {{0.f, 1.f}}, {{10.f, 20.f}});
    const std::uint32_t nanBits = 0x7FC0BEEFu;
    float v[4] = {-0.5f, 0.5f, 1.0f, 0};
    std::memcpy(&v[3], &nanBits, 4);
    ASSERT_EQ(keliLUT_32f_C1IR(v, 16, {4, 1}, f.data()), kelStatusOk);
    EXPECT_EQ(v[0], -0.5f);
    EXPECT_EQ(v[1], 15.f);
    EXPECT_EQ(v[2], 1.0f);
    std::uint32_t bits;
    std::memcpy(&bits, &v[3], 4);
    EXPECT_EQ(bits, nanBits);
    // A palette of one bit reads the low bit alone.
    const Kel8u table[2] = {11, 22};
    Kel8u src[4] = {0, 1, 254, 255}, dst[4];
    ASSERT_EQ(keliLUTPalette_8u_C1R(src, 4, dst, 4, {4, 1}, table, 1), kelStatusOk);
    EXPECT_EQ(dst[0], 11);
    EXPECT_EQ(dst[1], 22);
    EXPECT_EQ(dst[2], 11);
    EXPECT_EQ(dst[3], 22);
}

TEST(Lut, ChecksRunInOrderAndWriteNothing)
{
    int n[4] = {3, 3, 3, 3}, size = -1;
    // Size query: interpolation, pointers, size, channels, levels, type.
    EXPECT_EQ(keliLUT_GetSize(KeliInterpolationType(8), KelDataType(0), 2, {0, 0}, nullptr, nullptr), kelStatusBadInterpolation);
    EXPECT_EQ(keliLUT_GetSize(kelLinear, KelDataType(0), 2, {0, 0}, n, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliLUT_GetSize(kelLinear, KelDataType(0), 2, {5, 0}, n, &size), kelStatusBadSize);
    EXPECT_EQ(keliLUT_GetSize(kelLinear, KelDataType(0), 2, {5, 5}, n, &size), kelStatusBadChannel);
    n[2] = 1;
    EXPECT_EQ(keliLUT_GetSize(kelLinear, KelDataType(0), 9, {5, 5}, n, &size), kelStatusBadLutLevels);
    EXPECT_EQ(keliLUT_GetSize(kelLinear, KelDataType(0), 1, {5, 5}, n, &size), kelStatusBadDataType);
    EXPECT_EQ(size, -1);

    // Init: interpolation, size, pointers, channels, each curve's pointers, levels.
    std::vector<Kel8u> mem(4096, 0xC3);
    const std::vector<Kel8u> fresh = mem;
    const Kel32s lv[3] = {0, 1, 2};
    const Kel32s* p[3] = {lv, lv, nullptr};
    EXPECT_EQ(keliLUT_Init_8u(KeliInterpolationType(0), 7, {0, 0}, nullptr, p, n, nullptr), kelStatusBadInterpolation);
    EXPECT_EQ(keliLUT_Init_8u(kelNearest, 7, {0, 1}, nullptr, p, n, nullptr), kelStatusBadSize);
    EXPECT_EQ(keliLUT_Init_8u(kelNearest, 7, {1, 1}, p, p, n, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliLUT_Init_8u(kelNearest, 7, {1, 1}, p, p, n, mem.data()), kelStatusBadChannel);
    EXPECT_EQ(keliLUT_Init_8u(kelNearest, 3, {1, 1}, p, p, n, mem.data()), kelStatusNullPtr);
    p[2] = lv;
    EXPECT_EQ(keliLUT_Init_8u(kelNearest, 3, {1, 1}, p, p, n, mem.data()), kelStatusBadLutLevels);
    EXPECT_EQ(mem, fresh);

    // Lookups: pointers, steps, size, identifier (a plain argument error).
    n[2] = 3;
    Spec s8 = make_spec<Kel8u>(Curve::Nearest, 3, {{0, 1, 2}, {0, 1, 2}, {0, 1, 2}}, {{5, 5, 5}, {5, 5, 5}, {5, 5, 5}});
    Kel8u src[24] = {}, dst[24];
    std::memset(dst, 0x77, sizeof dst);
    EXPECT_EQ(keliLUT_8u_C3R(src, 0, nullptr, 0, {0, 0}, s8.data()), kelStatusNullPtr);
    EXPECT_EQ(keliLUT_8u_C3R(src, 0, dst, 12, {0, 0}, s8.data()), kelStatusBadStep);
    EXPECT_EQ(keliLUT_8u_C3R(src, 12, dst, -12, {4, 2}, s8.data()), kelStatusBadStep);
    EXPECT_EQ(keliLUT_8u_C3R(src, 1, dst, 1, {0, 2}, s8.data()), kelStatusBadSize);
    EXPECT_EQ(keliLUT_8u_C1R(src, 12, dst, 12, {4, 2}, s8.data()), kelStatusBadArg);
    EXPECT_EQ(keliLUT_8u_AC4R(src, 12, dst, 12, {3, 2}, s8.data()), kelStatusBadArg);
    EXPECT_EQ(keliLUT_16u_C3R(reinterpret_cast<Kel16u*>(src), 12, reinterpret_cast<Kel16u*>(dst), 12, {2, 2}, s8.data()), kelStatusBadArg);
    EXPECT_EQ(keliLUT_8u_C3IR(dst, 12, {4, 2}, mem.data()), kelStatusBadArg);
    for (Kel8u d : dst) ASSERT_EQ(d, 0x77);
    EXPECT_EQ(keliLUT_8u_C3R(src, 1, dst, 1, {1, 1}, s8.data()), kelStatusOk);  // any positive step
    EXPECT_EQ(dst[0], 5);

    // Palettes: pointers (each channel's table too), size, bit size, steps below a row.
    std::memset(dst, 0x77, sizeof dst);
    const Kel8u table[256] = {};
    const Kel8u* t3[3] = {table, table, nullptr};
    EXPECT_EQ(keliLUTPalette_8u_C3R(src, 0, dst, 0, {0, 0}, t3, 0), kelStatusNullPtr);
    t3[2] = table;
    EXPECT_EQ(keliLUTPalette_8u_C3R(src, 0, dst, 0, {0, 1}, t3, 0), kelStatusBadSize);
    EXPECT_EQ(keliLUTPalette_8u_C3R(src, 0, dst, 0, {2, 1}, t3, 0), kelStatusOutOfRange);
    EXPECT_EQ(keliLUTPalette_8u_C3R(src, 0, dst, 0, {2, 1}, t3, 9), kelStatusOutOfRange);
    EXPECT_EQ(keliLUTPalette_8u_C3R(src, 6, dst, 5, {2, 1}, t3, 8), kelStatusBadStep);
    EXPECT_EQ(keliLUTPalette_8u24u_C1R(src, 2, dst, 5, {2, 1}, table, 8), kelStatusBadStep);
    EXPECT_EQ(keliLUTPalette_16u_C1R(reinterpret_cast<Kel16u*>(src), 4, reinterpret_cast<Kel16u*>(dst), 4, {2, 1},
                                     reinterpret_cast<const Kel16u*>(table), 17), kelStatusOutOfRange);
    for (Kel8u d : dst) ASSERT_EQ(d, 0x77);
    EXPECT_EQ(keliLUTPalette_16u8u_C1R(reinterpret_cast<Kel16u*>(src), 4, dst, 2, {2, 1}, table, 16), kelStatusOk);
}

}  // namespace
