// Alpha composition, premultiplication and colour keys against the plain models: every member
// and operation over widths that reach every vector body and tail, on shifted, padded and (where
// steps are not checked) bottom-up images, in place and out of place, with guard bytes; the
// values where the rules bite; the argument checks in order with nothing written.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "keli.h"
#include "kit/arith.hpp"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "reference/alpha.hpp"

namespace {

using kit::Image;
namespace model = ref::alpha;

constexpr int kMaxWidth = 37;  // past two vectors of the narrowest lanes plus every tail
constexpr int kOps = 12;

template <class T> bool same(T a, T b)
{
    if constexpr (std::is_floating_point_v<T>) return (std::isnan(a) && std::isnan(b)) || kit::arith::same(a, b);
    else return a == b;
}

// Elements where the rules bite: the type's edges, and for 32f alphas in [0, 1] with some
// outside it.
template <class T> T draw(kit::Rng& rng)
{
    if constexpr (std::is_floating_point_v<T>) {
        static const float edges[] = {0.0f, 1.0f, 0.5f, -0.25f, 1.5f, 1000.0f, -0.0f, INFINITY};
        return rng.below(4) == 0 ? edges[rng.below(8)] : float(rng.below(1 << 20)) / float(1 << 20);
    } else {
        return kit::arith::edgy<T>(rng);
    }
}

template <class T> Image<T> image(kit::Rng& rng, int width, int height, int channels, int salt, bool upright)
{
    kit::Shape s = kit::arith::shape(width, salt, 16 / int(sizeof(T)), int(sizeof(T)));
    if (upright) s.flipped = false;
    Image<T> im(width, height, channels, s);
    im.fill([&] { return draw<T>(rng); });
    return im;
}

// Four planes of one shape (so one step) and their pointer array.
template <class T> struct Planes {
    std::vector<Image<T>> p;
    Planes(kit::Rng& rng, int width, int height, int salt)
    {
        for (int c = 0; c < 4; ++c) p.push_back(image<T>(rng, width, height, 1, salt, true));
    }
    T* const* ptr()
    {
        for (int c = 0; c < 4; ++c) ptrs[c] = p[c].data();
        return ptrs;
    }
    const T* const* cptr() { return ptr(); }
    int step() const { return p[0].step(); }
    T* ptrs[4];
};

// Every element of `got` equals want(x, y, c), and no byte outside the image's elements changed.
template <class T, class Want>
void expect_image(const Image<T>& got, const std::vector<std::uint8_t>& before, Want want, const std::string& what)
{
    ASSERT_EQ(kit::first_stray_write(got, before, kit::any_element), -1) << what;
    for (int y = 0; y < got.height(); ++y)
        for (int x = 0; x < got.width(); ++x)
            for (int c = 0; c < got.channels(); ++c) {
                const T w = want(x, y, c), g = got.at(x, y, c);
                ASSERT_TRUE(same(g, w)) << what << " x " << x << " y " << y << " c " << c << ": " << +g << " not " << +w;
            }
}

template <class T, class Out, class InPlace, class Want>
void check_planes(Planes<T>& d, Planes<T>& io, const Planes<T>& io0, Out out, InPlace inPlace, Want want)
{
    std::vector<std::vector<std::uint8_t>> before;
    for (int c = 0; c < 4; ++c) before.push_back(d.p[c].snapshot());
    ASSERT_EQ(out(), kelStatusOk);
    ASSERT_EQ(inPlace(), kelStatusOk) << "in place";
    for (int c = 0; c < 4; ++c) {
        const auto plane = [&](int x, int y, int) { return want(c, x, y); };
        expect_image(d.p[c], before[c], plane, "plane " + std::to_string(c));
        expect_image(io.p[c], io0.p[c].snapshot(), plane, "in place, plane " + std::to_string(c));
    }
}

// Runs call() on dst (expected status Ok) and checks it against want.
template <class T, class Call, class Want> void check(Image<T>& dst, Call call, Want want, const std::string& what)
{
    const auto before = dst.snapshot();
    ASSERT_EQ(call(), kelStatusOk) << what;
    expect_image(dst, before, want, what);
}

// Each (operation, width) of a member; stops at the member's first failure.
template <class F> void each_op_width(const std::string& member, int ops, F f)
{
    SCOPED_TRACE(member);
    const int before = ::testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
    for (int op = 0; op < ops; ++op)
        for (int w = 1; w <= kMaxWidth; ++w) {
            SCOPED_TRACE("op " + std::to_string(op) + " width " + std::to_string(w));
            f(op, w, w % 4 == 0 ? 1 : 2);
            if (::testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count() != before) return;
        }
}

template <class T> using Comp = KelStatus (*)(const T*, int, const T*, int, T*, int, KeliSize, KeliAlphaType);
template <class T> using CompI = KelStatus (*)(const T*, int, T*, int, KeliSize, KeliAlphaType);
template <class T>
using CompP = KelStatus (*)(const T* const[4], int, const T* const[4], int, T* const[4], int, KeliSize, KeliAlphaType);
template <class T> using CompPI = KelStatus (*)(const T* const[4], int, T* const[4], int, KeliSize, KeliAlphaType);

template <class T> struct CompForms {
    Comp<T> ac1, ac4;
    CompI<T> ac4i;
    CompP<T> ap4;
    CompPI<T> ap4i;
};

template <class T> void sweep_comp(const char* name, const CompForms<T>& f)
{
    kit::Rng rng;
    SCOPED_TRACE("seed " + std::to_string(rng.seed_value()));
    const auto op_of = [](int op) { return static_cast<KeliAlphaType>(op); };
    each_op_width(std::string(name) + " AC1", kOps, [&](int op, int w, int h) {
        auto a = image<T>(rng, w, h, 1, op, false), b = image<T>(rng, w, h, 1, op + 1, false);
        auto d = image<T>(rng, w, h, 1, op + 2, false);
        check(d, [&] { return f.ac1(a.data(), a.step(), b.data(), b.step(), d.data(), d.step(), a.size(), op_of(op)); },
              [&](int x, int y, int) { return model::alpha<T>(op, a.at(x, y), b.at(x, y)); }, "AC1R");
    });
    each_op_width(std::string(name) + " AC4", kOps, [&](int op, int w, int h) {
        auto a = image<T>(rng, w, h, 4, op, false), b = image<T>(rng, w, h, 4, op + 1, false);
        auto d = image<T>(rng, w, h, 4, op + 2, false);
        const auto want = [&](int x, int y, int c) {
            const T al = a.at(x, y, 3), bl = b.at(x, y, 3);
            return c == 3 ? model::alpha<T>(op, al, bl) : model::colour<T>(op, a.at(x, y, c), al, b.at(x, y, c), bl);
        };
        check(d, [&] { return f.ac4(a.data(), a.step(), b.data(), b.step(), d.data(), d.step(), a.size(), op_of(op)); },
              want, "AC4R");
        Image<T> io = b;
        const Image<T> b0 = b;
        check(io, [&] { return f.ac4i(a.data(), a.step(), io.data(), io.step(), a.size(), op_of(op)); },
              [&](int x, int y, int c) {
                  const T al = a.at(x, y, 3), bl = b0.at(x, y, 3);
                  return c == 3 ? model::alpha<T>(op, al, bl)
                                : model::colour<T>(op, a.at(x, y, c), al, b0.at(x, y, c), bl);
              },
              "AC4IR");
    });
    if (!f.ap4) return;
    each_op_width(std::string(name) + " AP4", kOps, [&](int op, int w, int h) {
        Planes<T> a(rng, w, h, op), b(rng, w, h, op + 1), d(rng, w, h, op + 2);
        Planes<T> io = b;
        const Planes<T> b0 = b;
        check_planes(
            d, io, b0,
            [&] { return f.ap4(a.cptr(), a.step(), b.cptr(), b.step(), d.ptr(), d.step(), a.p[0].size(), op_of(op)); },
            [&] { return f.ap4i(a.cptr(), a.step(), io.ptr(), io.step(), a.p[0].size(), op_of(op)); },
            [&](int c, int x, int y) {
                const T al = a.p[3].at(x, y), bl = b0.p[3].at(x, y);
                return c == 3 ? model::alpha<T>(op, al, bl)
                              : model::colour<T>(op, a.p[c].at(x, y), al, b0.p[c].at(x, y), bl);
            });
    });
}

TEST(AlphaComp, EveryMemberAndOperationMatchesTheModel)
{
    sweep_comp<Kel8u>("8u", {keliAlphaComp_8u_AC1R, keliAlphaComp_8u_AC4R, keliAlphaComp_8u_AC4IR,
                             keliAlphaComp_8u_AP4R, keliAlphaComp_8u_AP4IR});
    sweep_comp<Kel16u>("16u", {keliAlphaComp_16u_AC1R, keliAlphaComp_16u_AC4R, keliAlphaComp_16u_AC4IR,
                               keliAlphaComp_16u_AP4R, keliAlphaComp_16u_AP4IR});
    sweep_comp<Kel16s>("16s", {keliAlphaComp_16s_AC1R, keliAlphaComp_16s_AC4R, keliAlphaComp_16s_AC4IR, nullptr, nullptr});
    sweep_comp<Kel32u>("32u", {keliAlphaComp_32u_AC1R, keliAlphaComp_32u_AC4R, keliAlphaComp_32u_AC4IR, nullptr, nullptr});
    sweep_comp<Kel32s>("32s", {keliAlphaComp_32s_AC1R, keliAlphaComp_32s_AC4R, keliAlphaComp_32s_AC4IR, nullptr, nullptr});
    sweep_comp<Kel32f>("32f", {keliAlphaComp_32f_AC1R, keliAlphaComp_32f_AC4R, keliAlphaComp_32f_AC4IR, nullptr, nullptr});
}

template <class T>
using CompC = KelStatus (*)(const T*, int, T, const T*, int, T, T*, int, KeliSize, KeliAlphaType);
template <class T> using CompCI = KelStatus (*)(const T*, int, T, T*, int, T, KeliSize, KeliAlphaType);
template <class T>
using CompCP = KelStatus (*)(const T* const[4], int, T, const T* const[4], int, T, T* const[4], int, KeliSize,
                             KeliAlphaType);
template <class T>
using CompCPI = KelStatus (*)(const T* const[4], int, T, T* const[4], int, T, KeliSize, KeliAlphaType);

template <class T> struct CompCForm {
    const char* name;
    int channels;
    bool alpha;  // AC4: the fourth element gets the alpha rule of the constants
    CompC<T> r;
    CompCI<T> ir;
};

template <class T>
void sweep_comp_c(std::initializer_list<CompCForm<T>> forms, CompCP<T> ap4 = nullptr, CompCPI<T> ap4i = nullptr)
{
    kit::Rng rng;
    SCOPED_TRACE("seed " + std::to_string(rng.seed_value()));
    for (const auto& f : forms)
        each_op_width(f.name, kOps, [&](int op, int w, int h) {
            auto a = image<T>(rng, w, h, f.channels, op, true), b = image<T>(rng, w, h, f.channels, op + 1, true);
            auto d = image<T>(rng, w, h, f.channels, op + 2, true);
            const T a1 = draw<T>(rng), a2 = draw<T>(rng);
            const auto want = [&](const Image<T>& x, const Image<T>& y) {
                return [&](int i, int j, int c) {
                    return f.alpha && c == 3 ? model::alpha<T>(op, a1, a2)
                                             : model::colour<T>(op, x.at(i, j, c), a1, y.at(i, j, c), a2);
                };
            };
            const auto type = static_cast<KeliAlphaType>(op);
            check(d, [&] { return f.r(a.data(), a.step(), a1, b.data(), b.step(), a2, d.data(), d.step(), a.size(), type); },
                  want(a, b), "R");
            Image<T> io = b;
            check(io, [&] { return f.ir(a.data(), a.step(), a1, io.data(), io.step(), a2, a.size(), type); }, want(a, b),
                  "IR");
        });
    if (!ap4) return;
    each_op_width("AP4", kOps, [&](int op, int w, int h) {
        Planes<T> a(rng, w, h, op), b(rng, w, h, op + 1), d(rng, w, h, op + 2);
        Planes<T> io = b;
        const T a1 = draw<T>(rng), a2 = draw<T>(rng);
        const auto type = static_cast<KeliAlphaType>(op);
        check_planes(
            d, io, b, [&] { return ap4(a.cptr(), a.step(), a1, b.cptr(), b.step(), a2, d.ptr(), d.step(), a.p[0].size(), type); },
            [&] { return ap4i(a.cptr(), a.step(), a1, io.ptr(), io.step(), a2, a.p[0].size(), type); },
            [&](int c, int x, int y) {
                return c == 3 ? model::alpha<T>(op, a1, a2) : model::colour<T>(op, a.p[c].at(x, y), a1, b.p[c].at(x, y), a2);
            });
    });
}

TEST(AlphaCompC, EveryMemberAndOperationMatchesTheModel)
{
    sweep_comp_c<Kel8u>({{"8u C1", 1, false, keliAlphaCompC_8u_C1R, keliAlphaCompC_8u_C1IR},
                         {"8u C3", 3, false, keliAlphaCompC_8u_C3R, keliAlphaCompC_8u_C3IR},
                         {"8u C4", 4, false, keliAlphaCompC_8u_C4R, keliAlphaCompC_8u_C4IR},
                         {"8u AC4", 4, true, keliAlphaCompC_8u_AC4R, keliAlphaCompC_8u_AC4IR}},
                        keliAlphaCompC_8u_AP4R, keliAlphaCompC_8u_AP4IR);
    sweep_comp_c<Kel16u>({{"16u C1", 1, false, keliAlphaCompC_16u_C1R, keliAlphaCompC_16u_C1IR},
                          {"16u C3", 3, false, keliAlphaCompC_16u_C3R, keliAlphaCompC_16u_C3IR},
                          {"16u C4", 4, false, keliAlphaCompC_16u_C4R, keliAlphaCompC_16u_C4IR},
                          {"16u AC4", 4, true, keliAlphaCompC_16u_AC4R, keliAlphaCompC_16u_AC4IR}},
                         keliAlphaCompC_16u_AP4R, keliAlphaCompC_16u_AP4IR);
    sweep_comp_c<Kel16s>({{"16s C1", 1, false, keliAlphaCompC_16s_C1R, keliAlphaCompC_16s_C1IR}});
    sweep_comp_c<Kel32u>({{"32u C1", 1, false, keliAlphaCompC_32u_C1R, keliAlphaCompC_32u_C1IR}});
    sweep_comp_c<Kel32s>({{"32s C1", 1, false, keliAlphaCompC_32s_C1R, keliAlphaCompC_32s_C1IR}});
    sweep_comp_c<Kel32f>({{"32f C1", 1, false, keliAlphaCompC_32f_C1R, keliAlphaCompC_32f_C1IR}});
}

template <class T> struct PremulForms {
    KelStatus (*ac4)(const T*, int, T*, int, KeliSize);
    KelStatus (*ac4i)(T*, int, KeliSize);
    KelStatus (*ap4)(const T* const[4], int, T* const[4], int, KeliSize);
    KelStatus (*ap4i)(T* const[4], int, KeliSize);
};

template <class T> void sweep_premul(const char* name, const PremulForms<T>& f)
{
    kit::Rng rng;
    each_op_width(name, 1, [&](int, int w, int h) {
        auto s = image<T>(rng, w, h, 4, w, true), d = image<T>(rng, w, h, 4, w + 1, true);
        const auto want = [&](int x, int y, int c) {
            return c == 3 ? s.at(x, y, 3) : model::premul<T>(s.at(x, y, c), s.at(x, y, 3));
        };
        check(d, [&] { return f.ac4(s.data(), s.step(), d.data(), d.step(), s.size()); }, want, "AC4R");
        Image<T> io = s;
        check(io, [&] { return f.ac4i(io.data(), io.step(), s.size()); }, want, "AC4IR");
        Planes<T> p(rng, w, h, w), q(rng, w, h, w + 2);
        Planes<T> pio = p;
        check_planes(
            q, pio, p, [&] { return f.ap4(p.cptr(), p.step(), q.ptr(), q.step(), s.size()); },
            [&] { return f.ap4i(pio.ptr(), pio.step(), s.size()); },
            [&](int c, int x, int y) {
                return c == 3 ? p.p[3].at(x, y) : model::premul<T>(p.p[c].at(x, y), p.p[3].at(x, y));
            });
    });
}

TEST(AlphaPremul, EveryMemberMatchesTheModelAndKeepsAlpha)
{
    sweep_premul<Kel8u>("8u", {keliAlphaPremul_8u_AC4R, keliAlphaPremul_8u_AC4IR, keliAlphaPremul_8u_AP4R,
                               keliAlphaPremul_8u_AP4IR});
    sweep_premul<Kel16u>("16u", {keliAlphaPremul_16u_AC4R, keliAlphaPremul_16u_AC4IR, keliAlphaPremul_16u_AP4R,
                                 keliAlphaPremul_16u_AP4IR});
}

template <class T> struct PremulCForm {
    const char* name;
    int channels;
    bool alpha;
    KelStatus (*r)(const T*, int, T, T*, int, KeliSize);
    KelStatus (*ir)(T, T*, int, KeliSize);
};

template <class T>
void sweep_premul_c(std::initializer_list<PremulCForm<T>> forms,
                    KelStatus (*ap4)(const T* const[4], int, T, T* const[4], int, KeliSize),
                    KelStatus (*ap4i)(T, T* const[4], int, KeliSize))
{
    kit::Rng rng;
    for (const auto& f : forms)
        each_op_width(f.name, 1, [&](int, int w, int h) {
            auto s = image<T>(rng, w, h, f.channels, w, true), d = image<T>(rng, w, h, f.channels, w + 1, true);
            const T alpha = draw<T>(rng);
            const auto want = [&](int x, int y, int c) {
                return f.alpha && c == 3 ? s.at(x, y, 3) : model::premul<T>(s.at(x, y, c), alpha);
            };
            check(d, [&] { return f.r(s.data(), s.step(), alpha, d.data(), d.step(), s.size()); }, want, "R");
            Image<T> io = s;
            check(io, [&] { return f.ir(alpha, io.data(), io.step(), s.size()); }, want, "IR");
        });
    each_op_width("AP4", 1, [&](int, int w, int h) {
        Planes<T> p(rng, w, h, w), q(rng, w, h, w + 2);
        Planes<T> pio = p;
        const T alpha = draw<T>(rng);
        check_planes(
            q, pio, p, [&] { return ap4(p.cptr(), p.step(), alpha, q.ptr(), q.step(), p.p[0].size()); },
            [&] { return ap4i(alpha, pio.ptr(), pio.step(), p.p[0].size()); },
            [&](int c, int x, int y) { return c == 3 ? p.p[3].at(x, y) : model::premul<T>(p.p[c].at(x, y), alpha); });
    });
}

TEST(AlphaPremulC, EveryMemberMatchesTheModel)
{
    sweep_premul_c<Kel8u>({{"8u C1", 1, false, keliAlphaPremulC_8u_C1R, keliAlphaPremulC_8u_C1IR},
                           {"8u C3", 3, false, keliAlphaPremulC_8u_C3R, keliAlphaPremulC_8u_C3IR},
                           {"8u C4", 4, false, keliAlphaPremulC_8u_C4R, keliAlphaPremulC_8u_C4IR},
                           {"8u AC4", 4, true, keliAlphaPremulC_8u_AC4R, keliAlphaPremulC_8u_AC4IR}},
                          keliAlphaPremulC_8u_AP4R, keliAlphaPremulC_8u_AP4IR);
    sweep_premul_c<Kel16u>({{"16u C1", 1, false, keliAlphaPremulC_16u_C1R, keliAlphaPremulC_16u_C1IR},
                            {"16u C3", 3, false, keliAlphaPremulC_16u_C3R, keliAlphaPremulC_16u_C3IR},
                            {"16u C4", 4, false, keliAlphaPremulC_16u_C4R, keliAlphaPremulC_16u_C4IR},
                            {"16u AC4", 4, true, keliAlphaPremulC_16u_AC4R, keliAlphaPremulC_16u_AC4IR}},
                           keliAlphaPremulC_16u_AP4R, keliAlphaPremulC_16u_AP4IR);
}

template <class T> struct KeyForms {
    KelStatus (*c1)(const T*, int, const T*, int, T*, int, KeliSize, T);
    KelStatus (*c3)(const T*, int, const T*, int, T*, int, KeliSize, const T[3]);
    KelStatus (*c4)(const T*, int, const T*, int, T*, int, KeliSize, const T[4]);
};

// src1 pixels are the key, the key with one element changed, or random.
template <class T> void sweep_color_key(const char* name, const KeyForms<T>& f)
{
    kit::Rng rng;
    for (int ch : {1, 3, 4})
        each_op_width(std::string(name) + " C" + std::to_string(ch), 1, [&](int, int w, int h) {
            auto a = image<T>(rng, w, h, ch, w, true), b = image<T>(rng, w, h, ch, w + 1, true);
            auto d = image<T>(rng, w, h, ch, w + 2, true);
            T key[4];
            for (T& k : key) k = draw<T>(rng);
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x) {
                    const int kind = rng.below(3);
                    if (kind == 2) continue;
                    for (int c = 0; c < ch; ++c) a.at(x, y, c) = key[c];
                    if (kind == 1) a.at(x, y, rng.below(ch)) ^= T(1 << rng.below(8));
                }
            const auto want = [&](int x, int y, int c) {
                bool hit = true;
                for (int k = 0; k < ch; ++k) hit &= a.at(x, y, k) == key[k];
                return hit ? b.at(x, y, c) : a.at(x, y, c);
            };
            check(d, [&] {
                const KeliSize s = a.size();
                return ch == 1 ? f.c1(a.data(), a.step(), b.data(), b.step(), d.data(), d.step(), s, key[0])
                       : ch == 3 ? f.c3(a.data(), a.step(), b.data(), b.step(), d.data(), d.step(), s, key)
                                 : f.c4(a.data(), a.step(), b.data(), b.step(), d.data(), d.step(), s, key);
            }, want, "R");
        });
}

TEST(CompColorKey, EveryMemberTakesSrc2WhereTheWholePixelIsTheKey)
{
    sweep_color_key<Kel8u>("8u", {keliCompColorKey_8u_C1R, keliCompColorKey_8u_C3R, keliCompColorKey_8u_C4R});
    sweep_color_key<Kel16u>("16u", {keliCompColorKey_16u_C1R, keliCompColorKey_16u_C3R, keliCompColorKey_16u_C4R});
    sweep_color_key<Kel16s>("16s", {keliCompColorKey_16s_C1R, keliCompColorKey_16s_C3R, keliCompColorKey_16s_C4R});
}

TEST(AlphaCompColorKey, ComposesIn32fAndKeepsTheDestinationAlpha)
{
    kit::Rng rng;
    each_op_width("8u AC4", 6, [&](int op, int w, int h) {
        auto a = image<Kel8u>(rng, w, h, 4, op, true), b = image<Kel8u>(rng, w, h, 4, op + 1, true);
        auto d = image<Kel8u>(rng, w, h, 4, op + 2, true);
        const Kel8u key[4] = {draw<Kel8u>(rng), draw<Kel8u>(rng), draw<Kel8u>(rng), draw<Kel8u>(rng)};
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                if (rng.below(2)) {
                    for (int c = 0; c < 4; ++c) a.at(x, y, c) = key[c];
                    if (rng.below(2)) a.at(x, y, rng.below(4)) ^= 1;  // the alpha takes part in the test
                }
        const Kel8u a1 = draw<Kel8u>(rng), a2 = draw<Kel8u>(rng);
        const Image<Kel8u> d0 = d;
        check(d, [&] {
            return keliAlphaCompColorKey_8u_AC4R(a.data(), a.step(), a1, b.data(), b.step(), a2, d.data(), d.step(),
                                                 a.size(), key, static_cast<KeliAlphaType>(op));
        }, [&](int x, int y, int c) {
            if (c == 3) return d0.at(x, y, 3);
            if (std::memcmp(&a.at(x, y, 0), key, 4) == 0) return b.at(x, y, c);
            return model::key_compose(op, a.at(x, y, c), a1, b.at(x, y, c), a2);
        }, "AC4R");
    });
}

// The values where each rule bites.
TEST(AlphaComp, EdgeValues)
{
    const float a[1] = {0.5f}, b[1] = {0.5f};
    const float want[6] = {0.75f, 0.25f, 0.25f, 0.5f, 0.5f, 1.0f};
    for (int op = 0; op < 12; ++op) {
        float d = -1;
        ASSERT_EQ(keliAlphaComp_32f_AC1R(a, 4, b, 4, &d, 4, {1, 1}, KeliAlphaType(op)), kelStatusOk);
        EXPECT_EQ(d, want[op % 6]) << op;
    }
    // Xor's alpha in 8u: (255 - 2a) b is negative past a = 127 and rounds by arithmetic shifts.
    const Kel8u x1[4] = {0, 0, 0, 255}, x2[4] = {0, 0, 0, 255};
    Kel8u out[4];
    ASSERT_EQ(keliAlphaComp_8u_AC4R(x1, 4, x2, 4, out, 4, {1, 1}, kelAlphaXor), kelStatusOk);
    EXPECT_EQ(out[3], 0);
    // Three 8-bit factors are divided once by the shift form, which is neither exact rounding
    // (1 * 162 * 200 / 255^2 = 0.498 gives 1) nor two roundings by 255 (1 * 128 * 200 gives 0
    // where 1 * 128 / 255 rounds to 1 first and then 1 * 200 / 255 to 1).
    const struct {
        Kel8u c, a, b, want;
    } three[] = {{1, 162, 200, 1}, {1, 128, 200, 0}, {255, 255, 128, 128}};
    for (const auto& t : three) {
        const Kel8u c1[1] = {t.c}, c2[1] = {0};
        Kel8u r = 77;
        ASSERT_EQ(keliAlphaCompC_8u_C1R(c1, 1, t.a, c2, 1, t.b, &r, 1, {1, 1}, kelAlphaIn), kelStatusOk);
        EXPECT_EQ(r, t.want) << +t.c << " " << +t.a << " " << +t.b;
    }
    // 32f Plus is not clamped.
    const float p[1] = {0.75f};
    float sum = 0;
    ASSERT_EQ(keliAlphaComp_32f_AC1R(p, 4, p, 4, &sum, 4, {1, 1}, kelAlphaPlus), kelStatusOk);
    EXPECT_EQ(sum, 1.5f);
}

// Every product of three 8-bit factors through the vector kernels: a row of all 256 colours
// for every alpha 1 and a quarter of the alphas 2 (the edges among them), In (c a b) and Out
// (c a (255 - b)), with image 2 zero.
TEST(AlphaCompC, ThreeFactorProductsOf8u)
{
    Kel8u c[256], zero[256] = {}, in[256], out[256];
    for (int i = 0; i < 256; ++i) c[i] = Kel8u(i);
    for (int a = 0; a < 256; ++a)
        for (int b = 0; b < 256; b += b < 2 || b > 252 ? 1 : 4) {
            ASSERT_EQ(keliAlphaCompC_8u_C1R(c, 256, Kel8u(a), zero, 256, Kel8u(b), in, 256, {256, 1}, kelAlphaIn), 0);
            ASSERT_EQ(keliAlphaCompC_8u_C1R(c, 256, Kel8u(a), zero, 256, Kel8u(b), out, 256, {256, 1}, kelAlphaOut), 0);
            for (int i = 0; i < 256; ++i) {
                ASSERT_EQ(in[i], model::colour<Kel8u>(kelAlphaIn, Kel8u(i), Kel8u(a), 0, Kel8u(b))) << i << " " << a << " " << b;
                ASSERT_EQ(out[i], model::colour<Kel8u>(kelAlphaOut, Kel8u(i), Kel8u(a), 0, Kel8u(b))) << i << " " << a << " " << b;
            }
        }
}

// 16u three-factor quotients next to a half: c a b / 65535^2 within one step of k + 1/2, where
// the 64f division must not round across the tie.
TEST(AlphaCompC, ThreeFactor16uQuotientsNextToAHalf)
{
    kit::Rng rng;
    const double d = 65535.0 * 65535.0;
    for (int trial = 0; trial < 2000; ++trial) {
        const Kel16u a = Kel16u(1 + rng.below(65535)), b = Kel16u(1 + rng.below(65535));
        Kel16u c[48], zero[48] = {}, got[48];
        for (int i = 0; i < 48; ++i) {
            const double k = rng.below(65535) + 0.5;
            const double ci = std::floor(k * d / (double(a) * b)) + (i % 3) - 1;
            c[i] = Kel16u(std::min(std::max(ci, 0.0), 65535.0));
        }
        ASSERT_EQ(keliAlphaCompC_16u_C1R(c, 96, a, zero, 96, b, got, 96, {48, 1}, kelAlphaIn), 0);
        for (int i = 0; i < 48; ++i)
            ASSERT_EQ(got[i], model::colour<Kel16u>(kelAlphaIn, c[i], a, 0, b)) << c[i] << " " << a << " " << b;
    }
}

TEST(AlphaPremul, EdgeValues)
{
    const Kel8u src[8] = {255, 255, 255, 128, 255, 9, 200, 0};
    Kel8u dst[8];
    ASSERT_EQ(keliAlphaPremul_8u_AC4R(src, 8, dst, 8, {2, 1}), kelStatusOk);
    const Kel8u want[8] = {128, 128, 128, 128, 0, 0, 0, 0};
    for (int i = 0; i < 8; ++i) EXPECT_EQ(dst[i], want[i]) << i;
    const Kel16u s16[4] = {65535, 1, 32768, 32768};
    Kel16u d16[4];
    ASSERT_EQ(keliAlphaPremul_16u_AC4R(s16, 8, d16, 8, {1, 1}), kelStatusOk);
    EXPECT_EQ(d16[0], 32768);
    EXPECT_EQ(d16[1], 1);  // 0.50000763 rounds up
    EXPECT_EQ(d16[3], 32768);
}

TEST(CompColorKey, OneDifferingChannelKeepsSrc1)
{
    const Kel8u key[3] = {10, 20, 30};
    const Kel8u a[6] = {10, 20, 30, 10, 21, 30}, b[6] = {1, 2, 3, 4, 5, 6};
    Kel8u d[6];
    ASSERT_EQ(keliCompColorKey_8u_C3R(a, 6, b, 6, d, 6, {2, 1}, key), kelStatusOk);
    const Kel8u want[6] = {1, 2, 3, 10, 21, 30};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(d[i], want[i]) << i;
}

// Pointers, size, steps (all but keliAlphaComp), then the operation: the first failure is the
// result and nothing is written.
TEST(AlphaComp, ArgumentChecksInOrderWriteNothing)
{
    Kel8u s[64] = {}, d[64];
    Kel16u s16[64] = {}, d16[64];
    const Kel8u* sp[4] = {s, s, s, s};
    const Kel8u* sHole[4] = {s, s, nullptr, s};
    Kel8u* dp[4] = {d, d, d, d};
    const Kel16u* sp16[4] = {s16, s16, s16, s16};
    Kel16u* dp16[4] = {d16, d16, d16, d16};
    Kel16u* dHole16[4] = {d16, d16, d16, nullptr};
    const Kel8u key[4] = {1, 2, 3, 4};
    const KeliSize ok{2, 2}, empty{0, 2}, negative{2, -1};
    const auto bad = static_cast<KeliAlphaType>(12), below = static_cast<KeliAlphaType>(-1);
    const auto plus = kelAlphaPlus, premul = kelAlphaOverPremul;
    struct Case {
        const char* what;
        KelStatus want;
        std::function<KelStatus()> call;
    } cases[] = {
        {"comp null src1", kelStatusNullPtr, [&] { return keliAlphaComp_8u_AC4R(nullptr, 8, s, 8, d, 8, empty, bad); }},
        {"comp null dst", kelStatusNullPtr, [&] { return keliAlphaComp_8u_AC4R(s, 8, s, 8, nullptr, 8, ok, bad); }},
        {"comp size", kelStatusBadSize, [&] { return keliAlphaComp_8u_AC4R(s, 8, s, 8, d, 8, empty, bad); }},
        {"comp size", kelStatusBadSize, [&] { return keliAlphaComp_32f_AC1R((float*)s, 0, (float*)s, 0, (float*)d, 0, negative, bad); }},
        {"comp op 12", kelStatusBadAlphaType, [&] { return keliAlphaComp_8u_AC4R(s, 0, s, -8, d, 0, ok, bad); }},
        {"comp op -1", kelStatusBadAlphaType, [&] { return keliAlphaComp_16s_AC4IR((Kel16s*)s, 8, (Kel16s*)d, 8, ok, below); }},
        {"comp planes null array", kelStatusNullPtr, [&] { return keliAlphaComp_8u_AP4R(nullptr, 8, sp, 8, dp, 8, empty, bad); }},
        {"comp planes null plane", kelStatusNullPtr, [&] { return keliAlphaComp_8u_AP4R(sp, 8, sHole, 8, dp, 8, empty, bad); }},
        {"comp planes op", kelStatusBadAlphaType, [&] { return keliAlphaComp_16u_AP4IR(sp16, 0, dp16, 0, ok, bad); }},
        {"compC null", kelStatusNullPtr, [&] { return keliAlphaCompC_8u_C3R(s, 0, 1, nullptr, 0, 1, d, 0, empty, bad); }},
        {"compC size", kelStatusBadSize, [&] { return keliAlphaCompC_8u_C3R(s, 0, 1, s, 0, 1, d, 0, negative, bad); }},
        {"compC step", kelStatusBadStep, [&] { return keliAlphaCompC_8u_C3R(s, 8, 1, s, 0, 1, d, 8, ok, bad); }},
        {"compC step", kelStatusBadStep, [&] { return keliAlphaCompC_32s_C1IR((Kel32s*)s, 8, 1, (Kel32s*)d, -8, 1, ok, bad); }},
        {"compC op", kelStatusBadAlphaType, [&] { return keliAlphaCompC_8u_C3R(s, 8, 1, s, 8, 1, d, 8, ok, bad); }},
        {"compC planes null plane", kelStatusNullPtr, [&] { return keliAlphaCompC_16u_AP4IR(sp16, 0, 1, dHole16, 0, 1, empty, bad); }},
        {"compC planes step", kelStatusBadStep, [&] { return keliAlphaCompC_16u_AP4R(sp16, 8, 1, sp16, 8, 1, dp16, 0, ok, bad); }},
        {"premul null", kelStatusNullPtr, [&] { return keliAlphaPremul_8u_AC4R(nullptr, 0, d, 0, empty); }},
        {"premul size", kelStatusBadSize, [&] { return keliAlphaPremul_16u_AC4IR(d16, 0, empty); }},
        {"premul step", kelStatusBadStep, [&] { return keliAlphaPremul_8u_AC4R(s, 0, d, 8, ok); }},
        {"premul planes null plane", kelStatusNullPtr, [&] { return keliAlphaPremul_16u_AP4IR(dHole16, 0, empty); }},
        {"premul planes step", kelStatusBadStep, [&] { return keliAlphaPremul_8u_AP4R(sp, 8, dp, -8, ok); }},
        {"premulC null", kelStatusNullPtr, [&] { return keliAlphaPremulC_8u_C3IR(1, nullptr, 0, empty); }},
        {"premulC size", kelStatusBadSize, [&] { return keliAlphaPremulC_16u_AC4R(s16, 0, 1, d16, 0, negative); }},
        {"premulC step", kelStatusBadStep, [&] { return keliAlphaPremulC_8u_AP4R(sp, 0, 1, dp, 8, ok); }},
        {"key null key", kelStatusNullPtr, [&] { return keliCompColorKey_8u_C3R(s, 0, s, 0, d, 0, empty, nullptr); }},
        {"key size", kelStatusBadSize, [&] { return keliCompColorKey_16s_C1R((Kel16s*)s, 0, (Kel16s*)s, 0, (Kel16s*)d, 0, empty, 0); }},
        {"key step", kelStatusBadStep, [&] { return keliCompColorKey_8u_C4R(s, 8, s, 8, d, 0, ok, key); }},
        {"alpha key null", kelStatusNullPtr, [&] { return keliAlphaCompColorKey_8u_AC4R(s, 0, 1, s, 0, 1, d, 0, empty, nullptr, premul); }},
        {"alpha key size", kelStatusBadSize, [&] { return keliAlphaCompColorKey_8u_AC4R(s, 0, 1, s, 0, 1, d, 0, empty, key, premul); }},
        {"alpha key step", kelStatusBadStep, [&] { return keliAlphaCompColorKey_8u_AC4R(s, 8, 1, s, -8, 1, d, 8, ok, key, premul); }},
        {"alpha key premultiplied op", kelStatusBadAlphaType, [&] { return keliAlphaCompColorKey_8u_AC4R(s, 8, 1, s, 8, 1, d, 8, ok, key, premul); }},
    };
    std::memset(d, 0xA5, sizeof d);
    std::memset(d16, 0xA5, sizeof d16);
    for (const Case& c : cases) {
        EXPECT_EQ(c.call(), c.want) << c.what;
        for (Kel8u v : d) ASSERT_EQ(v, 0xA5) << c.what;
        for (Kel16u v : d16) ASSERT_EQ(v, 0xA5A5) << c.what;
    }
    // keliAlphaComp takes its steps as given, and keliAlphaCompColorKey takes Plus.
    EXPECT_EQ(keliAlphaComp_8u_AC4R(s, 0, s + 32, -8, d + 32, 0, ok, plus), kelStatusOk);
    EXPECT_EQ(keliAlphaCompColorKey_8u_AC4R(s, 8, 1, s, 8, 1, d, 8, ok, key, plus), kelStatusOk);
}

}  // namespace
