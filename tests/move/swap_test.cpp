// keliSwapChannels and keliDup: every form against the channel rule over the geometry sweep,
// orders with repeated channels, constants and kept channels, the in-place kernels, and the
// check orders, which differ from form to form.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "keli.h"
#include "reference/copy.hpp"

namespace {

using reference::Side;

template <class T> struct Swap;
#define KELI_SWAP_MEMBERS(t)                                                                                       \
    template <> struct Swap<Kel##t> {                                                                              \
        static constexpr auto c3 = keliSwapChannels_##t##_C3R;                                                    \
        static constexpr auto c4 = keliSwapChannels_##t##_C4R;                                                     \
        static constexpr auto ac4 = keliSwapChannels_##t##_AC4R;                                                   \
        static constexpr auto c4c3 = keliSwapChannels_##t##_C4C3R;                                                 \
        static constexpr auto c3c4 = keliSwapChannels_##t##_C3C4R;                                                 \
    }
KELI_SWAP_MEMBERS(8u);
KELI_SWAP_MEMBERS(16u);
KELI_SWAP_MEMBERS(16s);
KELI_SWAP_MEMBERS(32s);
KELI_SWAP_MEMBERS(32f);
#undef KELI_SWAP_MEMBERS

struct Order {
    int v[4];
};

kit::SweepOptions swap_sweep_options()
{
    kit::SweepOptions o;
    o.negativeSteps = true;
    o.maxWidth = 56;
    return o;
}

// Destination channel i of a form with `out` channels takes source channel order[i], the
// constant or its old value; AC4 keeps its alpha.
template <class T> void swap_sweep()
{
    kit::Rng rng;
    const T val = reference::any_bits<T>(rng);
    struct Form {
        int in, out, entries;
        bool threeToFour;
        std::vector<Order> orders;
    };
    const Form forms[] = {
        {3, 3, 3, false, {{{2, 1, 0}}, {{0, 0, 0}}, {{1, 2, 1}}, {{0, 1, 2}}}},
        {4, 4, 4, false, {{{3, 2, 1, 0}}, {{1, 1, 3, 0}}, {{0, 1, 2, 3}}, {{2, 2, 2, 2}}}},
        {4, 4, 3, false, {{{2, 0, 1}}, {{1, 1, 1}}}},
        {4, 3, 3, false, {{{3, 2, 1}}, {{0, 3, 3}}}},
        {3, 4, 4, true, {{{0, 1, 2, 3}}, {{2, 1, 0, 4}}, {{3, 3, 1, 7}}, {{5, 0, 3, 1}}, {{9, 9, 9, 9}}}},
    };
    for (int f = 0; f < 5; ++f)
        for (const Order& order : forms[f].orders) {
            const Form& form = forms[f];
            SCOPED_TRACE("form " + std::to_string(f) + " order " + std::to_string(order.v[0]) + std::to_string(order.v[1]) +
                         std::to_string(order.v[2]) + std::to_string(order.v[3]));
            reference::layout_sweep<T>({form.in, false}, {form.out, false}, [&](Side<T>& s, Side<T>& d, KeliSize size) {
                const T* a = s.data();
                T* b = d.data();
                switch (f) {
                case 0: return Swap<T>::c3(a, s.step(), b, d.step(), size, order.v);
                case 1: return Swap<T>::c4(a, s.step(), b, d.step(), size, order.v);
                case 2: return Swap<T>::ac4(a, s.step(), b, d.step(), size, order.v);
                case 3: return Swap<T>::c4c3(a, s.step(), b, d.step(), size, order.v);
                default: return Swap<T>::c3c4(a, s.step(), b, d.step(), size, order.v, val);
                }
            }, [&](const Side<T>& s, Side<T>& e, int x, int y) {
                for (int i = 0; i < form.entries; ++i) {
                    const int from = reference::swap_source(form.threeToFour, order.v[i]);
                    if (from >= 0) e.at(x, y, i) = s.at(x, y, from);
                    else if (from == reference::kConstant) e.at(x, y, i) = val;
                }
            }, swap_sweep_options());
        }
}

TEST(SwapChannels, EveryFormFollowsItsOrder)
{
    swap_sweep<Kel8u>();
    swap_sweep<Kel16u>();
    swap_sweep<Kel16s>();
    swap_sweep<Kel32s>();
    swap_sweep<Kel32f>();
}

// In place over the sweep: the image is its own source, every permutation and repeat works.
template <class T, class Call> void in_place_sweep(int channels, const int* order, Call call)
{
    kit::Rng rng;
    kit::SweepOptions o = swap_sweep_options();
    o.elementBytes = sizeof(T);
    kit::sweep(o, [&](const kit::Geometry& g) {
        SCOPED_TRACE(g.describe());
        kit::Image<T> image(g.width, g.height, channels, g.dst);
        image.fill([&] { return reference::any_bits<T>(rng); });
        kit::Image<T> expected = image;
        for (int y = 0; y < g.height; ++y)
            for (int x = 0; x < g.width; ++x)
                for (int c = 0; c < channels; ++c) expected.at(x, y, c) = image.at(x, y, order[c]);
        ASSERT_EQ(call(image.data(), image.step(), image.size()), kelStatusOk);
        ASSERT_EQ(image.bytes(), expected.bytes());
    });
}

TEST(SwapChannels, InPlaceWithAnyPermutationAndRepeats)
{
    for (const Order& order : {Order{{2, 1, 0}}, Order{{1, 1, 0}}, Order{{2, 0, 1}}, Order{{0, 0, 0}}}) {
        in_place_sweep<Kel8u>(3, order.v, [&](Kel8u* p, int step, KeliSize size) {
            return keliSwapChannels_8u_C3IR(p, step, size, order.v);
        });
        // The out-of-place form given the same image twice runs in place on the destination step;
        // the source step, here nonsense, is not used.
        in_place_sweep<Kel16s>(3, order.v, [&](Kel16s* p, int step, KeliSize size) {
            return keliSwapChannels_16s_C3R(p, 12345, p, step, size, order.v);
        });
        in_place_sweep<Kel32f>(3, order.v, [&](Kel32f* p, int step, KeliSize size) {
            return keliSwapChannels_32f_C3R(p, -7, p, step, size, order.v);
        });
    }
    for (const Order& order : {Order{{3, 2, 1, 0}}, Order{{3, 3, 0, 1}}, Order{{1, 2, 3, 0}}})
        in_place_sweep<Kel8u>(4, order.v, [&](Kel8u* p, int step, KeliSize size) {
            return keliSwapChannels_8u_C4IR(p, step, size, order.v);
        });
}

TEST(SwapChannels, ThreeToFourWithConstantAndKeptChannel)
{
    const Kel16s src[6] = {10, 20, 30, -1, -2, -3};
    Kel16s dst[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    const int fill[4] = {0, 1, 2, 3}, keep[4] = {0, 1, 2, 4};
    ASSERT_EQ(keliSwapChannels_16s_C3C4R(src, 12, dst, 16, {2, 1}, fill, 7), kelStatusOk);
    const Kel16s filled[8] = {10, 20, 30, 7, -1, -2, -3, 7};
    EXPECT_EQ(std::memcmp(dst, filled, sizeof dst), 0);
    Kel16s kept[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    ASSERT_EQ(keliSwapChannels_16s_C3C4R(src, 12, kept, 16, {2, 1}, keep, 7), kelStatusOk);
    const Kel16s want[8] = {10, 20, 30, 4, -1, -2, -3, 8};
    EXPECT_EQ(std::memcmp(kept, want, sizeof kept), 0);
}

TEST(Dup, EveryChannelTakesTheSourceValue)
{
    for (int channels : {3, 4}) {
        kit::SweepOptions o = swap_sweep_options();
        o.maxWidth = 80;
        reference::layout_sweep<Kel8u>({1, false}, {channels, false}, [&](Side<Kel8u>& s, Side<Kel8u>& d, KeliSize size) {
            return (channels == 3 ? keliDup_8u_C1C3R : keliDup_8u_C1C4R)(s.data(), s.step(), d.data(), d.step(), size);
        }, [&](const Side<Kel8u>& s, Side<Kel8u>& e, int x, int y) {
            for (int c = 0; c < channels; ++c) e.at(x, y, c) = s.at(x, y, 0);
        }, o);
    }
}

TEST(SwapChannels, ChecksRunInTheOrderOfEachForm)
{
    Kel8u src[64] = {1, 2, 3, 4}, dst[64];
    std::memset(dst, kit::kCanary, sizeof dst);
    const int order3[3] = {2, 1, 0}, order4[4] = {3, 2, 1, 0};
    const KeliSize ok{2, 2}, zero{0, 2};
    const int bad3[][3] = {{3, 0, 1}, {0, -1, 1}, {0, 1, 7}};
    // C3R, C3C4R, C4C3R: pointers, size, steps (zero only), order.
    EXPECT_EQ(keliSwapChannels_8u_C3R(src, 0, dst, 0, {0, 0}, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliSwapChannels_8u_C3R(src, 0, dst, 12, zero, order3), kelStatusBadSize);
    EXPECT_EQ(keliSwapChannels_8u_C3R(src, 0, dst, 12, ok, order3), kelStatusBadStep);
    EXPECT_EQ(keliSwapChannels_8u_C3R(src, 12, dst, 0, ok, order3), kelStatusBadStep);
    for (const auto& bad : bad3) EXPECT_EQ(keliSwapChannels_8u_C3R(src, 12, dst, 12, ok, bad), kelStatusBadChannelOrder);
    EXPECT_EQ(keliSwapChannels_8u_C3C4R(src, 0, dst, 16, {2, -1}, order4, 0), kelStatusBadSize);
    const int negative4[4] = {0, 1, -1, 2};
    EXPECT_EQ(keliSwapChannels_8u_C3C4R(src, 12, dst, 0, ok, negative4, 0), kelStatusBadStep);
    EXPECT_EQ(keliSwapChannels_8u_C3C4R(src, 12, dst, 16, ok, negative4, 0), kelStatusBadChannelOrder);
    EXPECT_EQ(keliSwapChannels_32f_C4C3R(reinterpret_cast<Kel32f*>(src), 0, reinterpret_cast<Kel32f*>(dst), 0,
                                         zero, order3),
              kelStatusBadSize);
    const int four3[3] = {0, 4, 1};
    EXPECT_EQ(keliSwapChannels_8u_C4C3R(src, 16, dst, 12, ok, four3), kelStatusBadChannelOrder);
    // AC4R, C4R, C3IR, C4IR: steps before size.
    EXPECT_EQ(keliSwapChannels_8u_AC4R(src, 0, dst, 16, zero, order3), kelStatusBadStep);
    EXPECT_EQ(keliSwapChannels_8u_AC4R(src, 16, dst, 16, zero, order3), kelStatusBadSize);
    EXPECT_EQ(keliSwapChannels_8u_AC4R(src, 16, dst, 16, ok, four3), kelStatusBadChannelOrder);
    const int five4[4] = {0, 1, 2, 4};
    EXPECT_EQ(keliSwapChannels_16u_C4R(reinterpret_cast<Kel16u*>(src), 32, reinterpret_cast<Kel16u*>(dst), 0, zero,
                                       order4),
              kelStatusBadStep);
    EXPECT_EQ(keliSwapChannels_8u_C4R(src, 16, dst, 16, ok, five4), kelStatusBadChannelOrder);
    // C3IR tests its order pointer after the size; C4IR with the other pointers.
    EXPECT_EQ(keliSwapChannels_8u_C3IR(nullptr, 0, zero, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliSwapChannels_8u_C3IR(dst, 0, zero, nullptr), kelStatusBadStep);
    EXPECT_EQ(keliSwapChannels_8u_C3IR(dst, 12, zero, nullptr), kelStatusBadSize);
    EXPECT_EQ(keliSwapChannels_8u_C3IR(dst, 12, ok, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliSwapChannels_8u_C3IR(dst, 12, ok, bad3[1]), kelStatusBadChannelOrder);
    EXPECT_EQ(keliSwapChannels_8u_C4IR(dst, 0, zero, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliSwapChannels_8u_C4IR(dst, 0, zero, order4), kelStatusBadStep);
    EXPECT_EQ(keliSwapChannels_8u_C4IR(dst, 16, ok, five4), kelStatusBadChannelOrder);
    EXPECT_EQ(keliDup_8u_C1C3R(nullptr, 1, dst, 3, ok), kelStatusNullPtr);
    EXPECT_EQ(keliDup_8u_C1C4R(src, 1, dst, 4, zero), kelStatusBadSize);
    for (Kel8u v : dst) ASSERT_EQ(v, kit::kCanary);
    // A negative step is a step like any other.
    ASSERT_EQ(keliSwapChannels_8u_C3R(src + 12, -12, dst, 12, {1, 2}, order3), kelStatusOk);
    const Kel8u want[15] = {0, 0, 0, kit::kCanary, kit::kCanary, kit::kCanary, kit::kCanary, kit::kCanary,
                            kit::kCanary, kit::kCanary, kit::kCanary, kit::kCanary, 3, 2, 1};
    EXPECT_EQ(std::memcmp(dst, want, 15), 0);
}

}  // namespace

namespace {

// Each form's order table at its edges: the largest legal entry works, the next one is refused
// with nothing written, in every element type and in every entry position.
template <class T> void order_table_edges()
{
    using S = Swap<T>;
    T src[16], dst[16];
    for (int i = 0; i < 16; ++i) src[i] = static_cast<T>(i + 1);
    const KeliSize one{1, 1};
    auto refused = [&](auto call) -> KelStatus {
        std::memset(dst, kit::kCanary, sizeof dst);
        const KelStatus s = call();
        for (std::size_t i = 0; i < sizeof dst; ++i)
            if (reinterpret_cast<const Kel8u*>(dst)[i] != kit::kCanary) return kelStatusOk;
        return s;
    };
    const int b = static_cast<int>(sizeof(T));
    for (int pos = 0; pos < 3; ++pos) {
        int ok3[3] = {0, 1, 2}, bad3[3] = {0, 1, 2}, ok4c3[3] = {0, 1, 2}, bad4c3[3] = {0, 1, 2};
        ok3[pos] = 2, bad3[pos] = 3, ok4c3[pos] = 3, bad4c3[pos] = 4;
        EXPECT_EQ(S::c3(src, 3 * b, dst, 3 * b, one, ok3), kelStatusOk);
        EXPECT_EQ(refused([&] { return S::c3(src, 3 * b, dst, 3 * b, one, bad3); }), kelStatusBadChannelOrder);
        EXPECT_EQ(S::ac4(src, 4 * b, dst, 4 * b, one, ok3), kelStatusOk);
        EXPECT_EQ(refused([&] { return S::ac4(src, 4 * b, dst, 4 * b, one, bad3); }), kelStatusBadChannelOrder);
        EXPECT_EQ(S::c4c3(src, 4 * b, dst, 3 * b, one, ok4c3), kelStatusOk);
        EXPECT_EQ(refused([&] { return S::c4c3(src, 4 * b, dst, 3 * b, one, bad4c3); }), kelStatusBadChannelOrder);
    }
    for (int pos = 0; pos < 4; ++pos) {
        int ok4[4] = {0, 1, 2, 3}, bad4[4] = {0, 1, 2, 3}, keep[4] = {0, 1, 2, 3}, negative[4] = {0, 1, 2, 3};
        ok4[pos] = 3, bad4[pos] = 4, keep[pos] = 0, negative[pos] = -1;
        EXPECT_EQ(S::c4(src, 4 * b, dst, 4 * b, one, ok4), kelStatusOk);
        EXPECT_EQ(refused([&] { return S::c4(src, 4 * b, dst, 4 * b, one, bad4); }), kelStatusBadChannelOrder);
        EXPECT_EQ(S::c3c4(src, 3 * b, dst, 4 * b, one, keep, T()), kelStatusOk);
        EXPECT_EQ(refused([&] { return S::c3c4(src, 3 * b, dst, 4 * b, one, negative, T()); }),
                  kelStatusBadChannelOrder);
    }
}

TEST(SwapChannels, OrderTablesHoldAtTheirEdgesInEveryType)
{
    order_table_edges<Kel8u>();
    order_table_edges<Kel16u>();
    order_table_edges<Kel16s>();
    order_table_edges<Kel32s>();
    order_table_edges<Kel32f>();
    Kel8u pixels[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    const int ok3[3] = {2, 2, 2}, bad3[3] = {0, 3, 1}, ok4[4] = {3, 3, 3, 3}, bad4[4] = {4, 0, 1, 2};
    EXPECT_EQ(keliSwapChannels_8u_C3IR(pixels, 3, {1, 1}, ok3), kelStatusOk);
    EXPECT_EQ(keliSwapChannels_8u_C3IR(pixels, 3, {1, 1}, bad3), kelStatusBadChannelOrder);
    EXPECT_EQ(keliSwapChannels_8u_C4IR(pixels + 4, 4, {1, 1}, ok4), kelStatusOk);
    EXPECT_EQ(keliSwapChannels_8u_C4IR(pixels + 4, 4, {1, 1}, bad4), kelStatusBadChannelOrder);
    const Kel8u want[8] = {3, 3, 3, 4, 8, 8, 8, 8};
    EXPECT_EQ(std::memcmp(pixels, want, 8), 0);
}

}  // namespace
