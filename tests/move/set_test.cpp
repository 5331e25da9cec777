// keliSet: the pattern fill against a byte loop, every member against its model over the
// geometry sweep, masks, the step of zero, fills past the non-temporal gate, and the checks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "keli.h"
#include "move/rows/fill.hpp"
#include "reference/copy.hpp"

namespace {

using reference::Side;

template <class T> struct Set;
#define KELI_SET_MEMBERS(t)                                                                                        \
    template <> struct Set<Kel##t> {                                                                               \
        static constexpr auto c1 = keliSet_##t##_C1R;                                                              \
        static constexpr auto c1m = keliSet_##t##_C1MR;                                                            \
        static constexpr decltype(&keliSet_##t##_C3R) pixel[] = {keliSet_##t##_C3R, keliSet_##t##_C4R,             \
                                                                 keliSet_##t##_AC4R};                              \
        static constexpr decltype(&keliSet_##t##_C3MR) pixelMasked[] = {keliSet_##t##_C3MR, keliSet_##t##_C4MR,    \
                                                                        keliSet_##t##_AC4MR};                      \
        static constexpr decltype(&keliSet_##t##_C3CR) channel[] = {keliSet_##t##_C3CR, keliSet_##t##_C4CR};       \
    }
KELI_SET_MEMBERS(8u);
KELI_SET_MEMBERS(16u);
KELI_SET_MEMBERS(16s);
KELI_SET_MEMBERS(32s);
KELI_SET_MEMBERS(32f);
#undef KELI_SET_MEMBERS

TEST(FillRun, MatchesAByteLoopAtEveryPhase)
{
    kit::Rng rng;
    for (int channels : {1, 3, 4}) {
        unsigned char pixel[16];
        for (auto& b : pixel) b = static_cast<unsigned char>(rng.below(256));
        // 4-byte elements: patterns of 16 (one and four channels) and 48 bytes (three).
        const keli::rows::FillPattern p = keli::rows::make_fill_pattern(reinterpret_cast<const Kel32s*>(pixel), channels);
        ASSERT_EQ(p.length, channels == 3 ? 48u : 16u);
        std::vector<unsigned char> buffer(700);
        for (bool nt : {false, true})
            for (std::size_t n : {0, 1, 15, 16, 31, 32, 33, 47, 63, 64, 65, 100, 127, 128, 129, 200, 333, 512})
                for (int offset = 0; offset < 64; ++offset) {
                    std::fill(buffer.begin(), buffer.end(), kit::kCanary);
                    unsigned char* base = buffer.data() + 64;
                    base += (0 - reinterpret_cast<std::uintptr_t>(base)) & 63;
                    keli::rows::fill_run(base + offset, n, p, nt);
                    for (std::size_t i = 0; i < buffer.size(); ++i) {
                        const long at = static_cast<long>(buffer.data() + i - base) - offset;
                        const unsigned char want = at >= 0 && at < long(n) ? pixel[(at % p.length) % (4 * channels)]
                                                                           : kit::kCanary;
                        ASSERT_EQ(buffer[i], want) << "channels " << channels << " nt " << nt << " length " << n
                                                   << " offset " << offset << " byte " << at;
                    }
                }
    }
}

template <class T> void set_sweep()
{
    kit::Rng rng;
    T value[4];
    for (auto& v : value) v = reference::any_bits<T>(rng);
    const int C[] = {3, 4, 4};
    kit::SweepOptions o;
    o.negativeSteps = true;
    o.maxWidth = std::max(80, int(300 / sizeof(T)));
    reference::layout_sweep<T>({1, false}, {1, false}, [&](Side<T>&, Side<T>& d, KeliSize size) {
        return Set<T>::c1(value[0], d.data(), d.step(), size);
    }, [&](const Side<T>&, Side<T>& e, int x, int y) { e.at(x, y, 0) = value[0]; }, o);
    o.maxWidth = std::max(80, int(300 / (4 * sizeof(T))));
    for (int f = 0; f < 3; ++f) {
        SCOPED_TRACE("layout " + std::to_string(f));
        const int colour = f == 2 ? 3 : C[f];
        reference::layout_sweep<T>({1, false}, {C[f], false}, [&](Side<T>&, Side<T>& d, KeliSize size) {
            return Set<T>::pixel[f](value, d.data(), d.step(), size);
        }, [&](const Side<T>&, Side<T>& e, int x, int y) {
            for (int c = 0; c < colour; ++c) e.at(x, y, c) = value[c];
        }, o);
    }
    o.maxWidth = 40;
    for (int f = 0; f < 2; ++f)
        for (int c = 0; c < 3 + f; ++c) {
            SCOPED_TRACE("channel of interest " + std::to_string(c));
            reference::layout_sweep<T>({1, false}, {3 + f, false}, [&](Side<T>&, Side<T>& d, KeliSize size) {
                return Set<T>::channel[f](value[1], &d.at(0, 0, c), d.step(), size);
            }, [&](const Side<T>&, Side<T>& e, int x, int y) { e.at(x, y, c) = value[1]; }, o);
        }
}

TEST(Set, EveryLayoutMatchesTheModel)
{
    set_sweep<Kel8u>();
    set_sweep<Kel16u>();
    set_sweep<Kel16s>();
    set_sweep<Kel32s>();
    set_sweep<Kel32f>();
}

// Groups of 16 pixels all off, all on with any non-zero value, or mixed.
Kel8u mask_value(int x, int y, int width)
{
    const int kind = (x / 16 + y + width) % 3;
    if (kind == 0) return 0;
    if (kind == 1) return Kel8u(1 + (x * 13 + y * 5 + width) % 255);
    return (x * 5 + y + width) % 3 == 0 ? 0 : 128;
}

template <class T> void masked_sweep()
{
    kit::Rng rng;
    T value[4];
    for (auto& v : value) v = reference::any_bits<T>(rng);
    kit::SweepOptions o;
    o.negativeSteps = true;
    o.maxWidth = 70;
    const int C[] = {1, 3, 4, 4};
    for (int f = 0; f < 4; ++f) {
        SCOPED_TRACE("layout " + std::to_string(f));
        const int colour = f == 3 ? 3 : C[f];
        reference::layout_sweep<T>({1, false}, {C[f], false}, [&](Side<T>&, Side<T>& d, KeliSize size) {
            kit::Shape shape;
            shape.offsetElements = size.width % 16;
            shape.flipped = size.width % 3 == 0;
            kit::Image<Kel8u> mask(size.width, size.height, 1, shape);
            for (int y = 0; y < size.height; ++y)
                for (int x = 0; x < size.width; ++x) mask.at(x, y) = mask_value(x, y, size.width);
            return f == 0 ? Set<T>::c1m(value[0], d.data(), d.step(), size, mask.data(), mask.step())
                          : Set<T>::pixelMasked[f - 1](value, d.data(), d.step(), size, mask.data(), mask.step());
        }, [&](const Side<T>&, Side<T>& e, int x, int y) {
            if (mask_value(x, y, e.images[0].width()))
                for (int c = 0; c < colour; ++c) e.at(x, y, c) = value[c];
        }, o);
    }
}

TEST(Set, MaskedFormsSetWhereTheMaskIsSet)
{
    masked_sweep<Kel8u>();
    masked_sweep<Kel16u>();
    masked_sweep<Kel16s>();
    masked_sweep<Kel32s>();
    masked_sweep<Kel32f>();
}

TEST(Set, StepOfZeroWritesOneRowOverAndOver)
{
    std::vector<Kel16s> image(3 * 50, 7);
    ASSERT_EQ(keliSet_16s_C1R(-2, image.data(), 0, {50, 3}), kelStatusOk);
    for (int i = 0; i < 150; ++i) ASSERT_EQ(image[i], i < 50 ? -2 : 7) << i;
    const Kel8u rgb[3] = {1, 2, 3};
    std::vector<Kel8u> small(4 * 8, 9);
    ASSERT_EQ(keliSet_8u_AC4R(rgb, small.data() + 16, -16, {4, 2}), kelStatusOk);
    for (int i = 0; i < 32; ++i) EXPECT_EQ(small[i], i % 4 == 3 ? 9 : i % 4 + 1) << i;
}

TEST(Set, LargeImagesPastTheStreamingGate)
{
    // Above 512 KB the fill may stream past the caches; the bytes must be the same either way.
    const int width = 1283, height = 700;
    std::vector<Kel8u> image(std::size_t(width) * 3 * height + 32, 0);
    const Kel8u rgb[3] = {10, 20, 30};
    ASSERT_EQ(keliSet_8u_C3R(rgb, image.data() + 5, width * 3, {width, height}), kelStatusOk);
    for (std::size_t i = 0; i < image.size(); ++i) {
        const bool inside = i >= 5 && i < 5 + std::size_t(width) * 3 * height;
        ASSERT_EQ(image[i], inside ? rgb[(i - 5) % 3] : 0) << i;
    }
    std::vector<Kel32f> floats(std::size_t(1024) * 600 + 1, 1.0f);
    ASSERT_EQ(keliSet_32f_C1R(-0.0f, floats.data() + 1, 4096, {1024, 600}), kelStatusOk);
    EXPECT_EQ(floats[0], 1.0f);
    for (std::size_t i = 1; i < floats.size(); ++i) ASSERT_TRUE(std::signbit(floats[i]) && floats[i] == 0) << i;
}

TEST(Set, ChecksRunInOrderAndWriteNothing)
{
    Kel8u dst[64];
    std::memset(dst, kit::kCanary, sizeof dst);
    const Kel8u value[4] = {1, 2, 3, 4};
    const Kel8u mask[16] = {1};
    const KeliSize zero{0, 1}, negative{3, -2};
    EXPECT_EQ(keliSet_8u_C1R(1, nullptr, 8, zero), kelStatusNullPtr);
    EXPECT_EQ(keliSet_8u_C1R(1, dst, 8, zero), kelStatusBadSize);
    EXPECT_EQ(keliSet_8u_C3R(nullptr, dst, 8, zero), kelStatusNullPtr);
    EXPECT_EQ(keliSet_8u_C4R(value, nullptr, 8, zero), kelStatusNullPtr);
    EXPECT_EQ(keliSet_8u_AC4R(value, dst, 8, negative), kelStatusBadSize);
    EXPECT_EQ(keliSet_8u_C3CR(1, nullptr, 8, zero), kelStatusNullPtr);
    EXPECT_EQ(keliSet_8u_C4CR(1, dst, 8, negative), kelStatusBadSize);
    EXPECT_EQ(keliSet_8u_C1MR(1, nullptr, 8, zero, nullptr, 8), kelStatusNullPtr);
    EXPECT_EQ(keliSet_8u_C1MR(1, dst, 8, zero, nullptr, 8), kelStatusNullPtr);
    EXPECT_EQ(keliSet_8u_C1MR(1, dst, 8, zero, mask, 8), kelStatusBadSize);
    EXPECT_EQ(keliSet_8u_C3MR(nullptr, dst, 8, zero, mask, 8), kelStatusNullPtr);
    EXPECT_EQ(keliSet_8u_AC4MR(value, dst, 8, {2, 2}, nullptr, 8), kelStatusNullPtr);
    EXPECT_EQ(keliSet_8u_C4MR(value, dst, 8, negative, mask, 8), kelStatusBadSize);
    for (Kel8u v : dst) ASSERT_EQ(v, kit::kCanary);
    // Steps are never checked: a negative step walks upward.
    EXPECT_EQ(keliSet_8u_C1R(5, dst + 32, -16, {1, 3}), kelStatusOk);
    EXPECT_EQ(dst[0], 5);
    EXPECT_EQ(dst[16], 5);
    EXPECT_EQ(dst[32], 5);
    EXPECT_EQ(dst[1], kit::kCanary);
}

}  // namespace
