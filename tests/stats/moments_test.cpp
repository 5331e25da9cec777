// Moments: raw sums of every member against exact sums over the geometry sweep, shifted,
// central and normalised moments and Hu's invariants against their definitions, the
// zero-moment rules and the check orders.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include "keli.h"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "kit/sweep.hpp"
#include "reference/moments.hpp"

namespace {

using reference::Wide;

constexpr int kStateBytes = 400;
constexpr int kOrders[10][2] = {{0, 0}, {1, 0}, {0, 1}, {2, 0}, {1, 1}, {0, 2}, {3, 0}, {2, 1}, {1, 2}, {0, 3}};

// A state block at an odd address: the library must not rely on its alignment.
struct StateBlock {
    std::vector<Kel8u> bytes = std::vector<Kel8u>(kStateBytes + 1, 0xA5);
    Kel8u* p() { return bytes.data() + 1; }
    std::int32_t word(int k)
    {
        std::int32_t w;
        std::memcpy(&w, p() + 4 * k, 4);
        return w;
    }
};

template <class T> using MomentFn = KelStatus (*)(const T*, int, KeliSize, Kel8u*);

template <class T> struct Member {
    const char* name;
    MomentFn<T> fn;
    int channels, processed;
};

template <class T> std::vector<Member<T>> members()
{
    if constexpr (std::is_same_v<T, Kel8u>)
        return {{"8u_C1R", keliMoments64f_8u_C1R, 1, 1},
                {"8u_C3R", keliMoments64f_8u_C3R, 3, 3},
                {"8u_AC4R", keliMoments64f_8u_AC4R, 4, 3}};
    else if constexpr (std::is_same_v<T, Kel16u>)
        return {{"16u_C1R", keliMoments64f_16u_C1R, 1, 1},
                {"16u_C3R", keliMoments64f_16u_C3R, 3, 3},
                {"16u_AC4R", keliMoments64f_16u_AC4R, 4, 3}};
    else
        return {{"32f_C1R", keliMoments64f_32f_C1R, 1, 1},
                {"32f_C3R", keliMoments64f_32f_C3R, 3, 3},
                {"32f_AC4R", keliMoments64f_32f_AC4R, 4, 3}};
}

// Integer images: every partial sum is an integer below 2^53, so the sums are exact and must
// equal the exact model. Floats: within 1e-12 of the sum of absolute terms.
template <class T> void expect_close(double got, Wide want, Wide scale, const std::string& what)
{
    if constexpr (std::is_integral_v<T>) {
        ASSERT_EQ(Wide(got), want) << what;
    } else {
        ASSERT_LE(std::fabs(Wide(got) - want), 1e-12L * scale) << what << " got " << got << " want " << double(want);
    }
}

template <class T> void sweep_member(const Member<T>& m)
{
    kit::Rng rng;
    kit::SweepOptions o;
    o.elementBytes = sizeof(T);
    o.maxWidth = 40;  // the scalar path below 4 pixels, blocks of 16 and 48 elements, every tail
    StateBlock state;
    ASSERT_EQ(keliMomentInit_64f(state.p(), kelAlgHintNone), kelStatusOk);
    auto check = [&](const kit::Geometry& g) {
        SCOPED_TRACE(std::string(m.name) + " " + g.describe());
        kit::Image<T> src(g.width, g.height, m.channels, g.src);
        src.fill([&] {
            if constexpr (std::is_floating_point_v<T>) return T(rng.below(2001) - 1000) / T(8);
            else return rng.any<T>();
        });
        const auto before = src.snapshot();
        ASSERT_EQ(m.fn(src.data(), src.step(), src.size(), state.p()), kelStatusOk);
        EXPECT_EQ(src.bytes(), before);
        EXPECT_EQ(state.word(2), m.processed);
        for (int c = 0; c < m.processed; ++c) {
            auto v = [&](int x, int y) { return src.at(x, y, c); };
            for (auto& ord : kOrders) {
                double got = NAN;
                ASSERT_EQ(keliGetSpatialMoment_64f(state.p(), ord[0], ord[1], c, {0, 0}, &got), kelStatusOk);
                const Wide want = reference::raw_moment(g.width, g.height, v, ord[0], ord[1]);
                const Wide scale = reference::raw_moment(g.width, g.height, v, ord[0], ord[1], 0, 0, true);
                expect_close<T>(got, want, scale,
                                "channel " + std::to_string(c) + " order " + std::to_string(ord[0]) + std::to_string(ord[1]));
            }
        }
        double unused = 0;
        EXPECT_EQ(keliGetSpatialMoment_64f(state.p(), 0, 0, m.processed, {0, 0}, &unused), kelStatusBadChannel);
    };
    kit::sweep(o, check);
    // Rows of several chunks of the kernel; still exact for 16u, whose m30 stays below 2^53.
    check({600, 3, {1, 8, false}, {}});
}

TEST(Moments, RawSumsOfEveryMemberMatchTheModel8u)
{
    for (auto& m : members<Kel8u>()) sweep_member(m);
}
TEST(Moments, RawSumsOfEveryMemberMatchTheModel16u)
{
    for (auto& m : members<Kel16u>()) sweep_member(m);
}
TEST(Moments, RawSumsOfEveryMemberMatchTheModel32f)
{
    for (auto& m : members<Kel32f>()) sweep_member(m);
}

// A 97 x 131 image of bytes: the shifted moments stay integers below 2^53, so the binomial
// expansion is exact and must equal the moments of the region taken inside a larger image.
TEST(Moments, ShiftedOriginEqualsTheRegionInsideTheLargerImage)
{
    const int w = 97, h = 131;
    kit::Image<Kel8u> src(w, h, 3);
    kit::Rng rng;
    src.fill([&] { return rng.any<Kel8u>(); });
    StateBlock state;
    ASSERT_EQ(keliMomentInit_64f(state.p(), kelAlgHintAccurate), kelStatusOk);
    ASSERT_EQ(keliMoments64f_8u_C3R(src.data(), src.step(), src.size(), state.p()), kelStatusOk);
    for (KeliPoint off : {KeliPoint{0, 0}, KeliPoint{5, 0}, KeliPoint{0, 9}, KeliPoint{31, 17}, KeliPoint{-12, 40},
                          KeliPoint{-96, -130}})
        for (int c = 0; c < 3; ++c)
            for (auto& ord : kOrders) {
                double got = NAN;
                ASSERT_EQ(keliGetSpatialMoment_64f(state.p(), ord[0], ord[1], c, off, &got), kelStatusOk);
                const Wide want = reference::raw_moment(
                    w, h, [&](int x, int y) { return src.at(x, y, c); }, ord[0], ord[1], off.x, off.y);
                ASSERT_EQ(Wide(got), want) << "offset " << off.x << "," << off.y << " order " << ord[0] << ord[1];
            }
}

// Central and normalised moments and the Hu invariants of 16u and 32f images against their
// definitions, within 1e-12 of the largest term the formulas combine.
template <class T> void derived_against_definitions(int w, int h, int channels)
{
    // Mass leaning towards the right and the bottom, so that the third-order moments, and with
    // them every invariant, stand well clear of zero.
    kit::Image<T> src(w, h, channels);
    kit::Rng rng;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < channels; ++c)
                src.at(x, y, c) = T(x * x * (c + 1) + 3 * y + rng.below(50) + (std::is_floating_point_v<T> ? 0.375 : 0));
    StateBlock state;
    ASSERT_EQ(keliMomentInit_64f(state.p(), kelAlgHintFast), kelStatusOk);
    KelStatus computed;
    if constexpr (std::is_same_v<T, Kel16u>) computed = keliMoments64f_16u_C3R(src.data(), src.step(), src.size(), state.p());
    else computed = keliMoments64f_32f_C1R(src.data(), src.step(), src.size(), state.p());
    ASSERT_EQ(computed, kelStatusOk);
    for (int c = 0; c < channels; ++c) {
        auto v = [&](int x, int y) { return src.at(x, y, c); };
        const Wide m00 = reference::raw_moment(w, h, v, 0, 0);
        for (auto& ord : kOrders) {
            const int p = ord[0], q = ord[1];
            // The formulas work from raw sums about the first pixel: their size bounds the error.
            const Wide scale = 4 * reference::raw_moment(w, h, v, p, q, 0, 0, true);
            const Wide norm = std::pow(m00, Wide(p + q + 2) / 2);
            double central = NAN, normalized = NAN;
            ASSERT_EQ(keliGetCentralMoment_64f(state.p(), p, q, c, &central), kelStatusOk);
            ASSERT_EQ(keliGetNormalizedCentralMoment_64f(state.p(), p, q, c, &normalized), kelStatusOk);
            const std::string what = "channel " + std::to_string(c) + " order " + std::to_string(p) + std::to_string(q);
            EXPECT_LE(std::fabs(central - reference::central_moment(w, h, v, p, q)), 1e-12L * scale) << what;
            EXPECT_LE(std::fabs(normalized - reference::normalized_central_moment(w, h, v, p, q)), 1e-12L * scale / norm)
                << what;
            double spatial = NAN, normSpatial = NAN;
            const KeliPoint off{3, -2};
            ASSERT_EQ(keliGetSpatialMoment_64f(state.p(), p, q, c, off, &spatial), kelStatusOk);
            ASSERT_EQ(keliGetNormalizedSpatialMoment_64f(state.p(), p, q, c, off, &normSpatial), kelStatusOk);
            EXPECT_LE(std::fabs(normSpatial - spatial / norm), 1e-14L * std::fabs(spatial / norm)) << what;
        }
        double hu[7];
        Wide want[7];
        ASSERT_EQ(keliGetHuMoments_64f(state.p(), c, hu), kelStatusOk);
        reference::hu_moments(w, h, v, want);
        // Each invariant is measured against the sizes of the etas it multiplies: the sums of
        // absolute central terms of orders two and three, normalised.
        const Wide xb = reference::raw_moment(w, h, v, 1, 0) / m00, yb = reference::raw_moment(w, h, v, 0, 1) / m00;
        Wide eta2 = 0, eta3 = 0;
        for (auto& ord : kOrders) {
            const Wide a = reference::raw_moment(w, h, v, ord[0], ord[1], -xb, -yb, true);
            if (ord[0] + ord[1] == 2) eta2 += a / (m00 * m00);
            if (ord[0] + ord[1] == 3) eta3 += a / std::pow(m00, Wide(2.5));
        }
        const Wide tolerance[7] = {eta2, eta2 * eta2, eta3 * eta3, eta3 * eta3, eta3 * eta3 * eta3 * eta3,
                                   eta2 * eta3 * eta3, eta3 * eta3 * eta3 * eta3};
        for (int k = 0; k < 7; ++k)
            EXPECT_LE(std::fabs(hu[k] - want[k]), 1e-11L * tolerance[k]) << "channel " << c << " h" << k + 1;
    }
}

TEST(Moments, DerivedMomentsFollowTheirDefinitions)
{
    derived_against_definitions<Kel16u>(61, 45, 3);
    derived_against_definitions<Kel32f>(120, 77, 1);
}

TEST(Moments, HuInvariantsSurviveAQuarterTurn)
{
    // The image turned by 90 degrees has the same seven invariants: an identity the formulas
    // must keep whatever their rounding.
    const int w = 53, h = 38;
    kit::Image<Kel8u> src(w, h, 1), turned(h, w, 1);
    kit::Rng rng;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) src.at(x, y) = turned.at(h - 1 - y, x) = Kel8u(rng.below(200) * (x < 20 ? 1 : 0));
    double a[7], b[7];
    StateBlock s1, s2;
    ASSERT_EQ(keliMomentInit_64f(s1.p(), kelAlgHintNone), kelStatusOk);
    ASSERT_EQ(keliMomentInit_64f(s2.p(), kelAlgHintNone), kelStatusOk);
    ASSERT_EQ(keliMoments64f_8u_C1R(src.data(), src.step(), src.size(), s1.p()), kelStatusOk);
    ASSERT_EQ(keliMoments64f_8u_C1R(turned.data(), turned.step(), turned.size(), s2.p()), kelStatusOk);
    ASSERT_EQ(keliGetHuMoments_64f(s1.p(), 0, a), kelStatusOk);
    ASSERT_EQ(keliGetHuMoments_64f(s2.p(), 0, b), kelStatusOk);
    for (int k = 0; k < 7; ++k) EXPECT_NEAR(a[k], b[k], 1e-9 * std::fabs(a[k]) + 1e-18) << "h" << k + 1;
}

TEST(Moments, ZeroMassAndSinglePixels)
{
    StateBlock state;
    ASSERT_EQ(keliMomentInit_64f(state.p(), kelAlgHintNone), kelStatusOk);
    double value = 0;
    // Nothing computed yet: no channel is valid.
    EXPECT_EQ(keliGetSpatialMoment_64f(state.p(), 0, 0, 0, {0, 0}, &value), kelStatusBadChannel);

    // All zeros: the sums are fine, the central forms have no centre.
    const Kel8u zeros[64] = {};
    ASSERT_EQ(keliMoments64f_8u_C1R(zeros, 8, {8, 8}, state.p()), kelStatusOk);
    value = 7;
    EXPECT_EQ(keliGetSpatialMoment_64f(state.p(), 2, 1, 0, {3, 4}, &value), kelStatusOk);
    EXPECT_EQ(value, 0);
    value = 7;
    EXPECT_EQ(keliGetCentralMoment_64f(state.p(), 2, 0, 0, &value), kelStatusZeroMoment);
    EXPECT_EQ(value, 7);

    // Mass that cancels: the normalised spatial form leaves the plain value behind, the
    // normalised central form fails in its central step and writes nothing.
    const float pair[2] = {-1.0f, 1.0f};
    ASSERT_EQ(keliMoments64f_32f_C1R(pair, 8, {2, 1}, state.p()), kelStatusOk);
    EXPECT_EQ(keliGetNormalizedSpatialMoment_64f(state.p(), 1, 0, 0, {10, 0}, &value), kelStatusZeroMoment);
    EXPECT_EQ(value, 1.0);  // (10 + 1) * 1 + 10 * -1
    value = 7;
    EXPECT_EQ(keliGetNormalizedCentralMoment_64f(state.p(), 1, 0, 0, &value), kelStatusZeroMoment);
    EXPECT_EQ(value, 7);
    double hu[7] = {7, 7, 7, 7, 7, 7, 7};
    EXPECT_EQ(keliGetHuMoments_64f(state.p(), 0, hu), kelStatusZeroMoment);
    for (double e : hu) EXPECT_EQ(e, 7);

    // One pixel at the origin: m00 is its value, every other moment 0.
    const Kel16u one[4] = {1234, 5, 6, 999};
    ASSERT_EQ(keliMoments64f_16u_AC4R(one, 8, {1, 1}, state.p()), kelStatusOk);
    for (auto& ord : kOrders) {
        ASSERT_EQ(keliGetSpatialMoment_64f(state.p(), ord[0], ord[1], 0, {0, 0}, &value), kelStatusOk);
        EXPECT_EQ(value, ord[0] + ord[1] == 0 ? 1234.0 : 0.0);
    }
    ASSERT_EQ(keliGetSpatialMoment_64f(state.p(), 0, 0, 2, {0, 0}, &value), kelStatusOk);
    EXPECT_EQ(value, 6.0);
    EXPECT_EQ(keliGetSpatialMoment_64f(state.p(), 0, 0, 3, {0, 0}, &value), kelStatusBadChannel);  // alpha
}

TEST(Moments, StateQueriesAndInit)
{
    int size = 0;
    EXPECT_EQ(keliMomentGetStateSize_64f(kelAlgHintAccurate, &size), kelStatusOk);
    EXPECT_EQ(size, kStateBytes);
    EXPECT_EQ(keliMomentGetStateSize_64f(kelAlgHintNone, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliMomentInit_64f(nullptr, kelAlgHintNone), kelStatusNullPtr);
    // Any 32-bit hint is accepted as a value, never undefined behaviour (found by fuzzing).
    for (std::int32_t raw : {30, -1, INT32_MIN}) {
        StateBlock any;
        EXPECT_EQ(keliMomentInit_64f(any.p(), KelHintAlgorithm(raw)), kelStatusOk);
    }
    StateBlock state;
    ASSERT_EQ(keliMomentInit_64f(state.p(), kelAlgHintAccurate), kelStatusOk);
    EXPECT_EQ(state.word(0), 35);
    EXPECT_EQ(state.word(1), int(kelAlgHintAccurate));
    EXPECT_EQ(state.word(2), -1);
    EXPECT_EQ(state.bytes[0], 0xA5) << "written before the block";
    // The sums start at byte 16: m00 of channel 0, then m10.
    const Kel8u px[2] = {3, 4};
    ASSERT_EQ(keliMoments64f_8u_C1R(px, 2, {2, 1}, state.p()), kelStatusOk);
    double m00, m10;
    std::memcpy(&m00, state.p() + 16, 8);
    std::memcpy(&m10, state.p() + 24, 8);
    EXPECT_EQ(m00, 7.0);
    EXPECT_EQ(m10, 4.0);
}

// Each case breaks the checks up to one, in order; the status must be that check's, and
// neither the state nor the output may change.
TEST(Moments, ChecksRunInOrderAndWriteNothing)
{
    const Kel8u src[64] = {1, 2, 3};
    StateBlock state, foreign;
    ASSERT_EQ(keliMomentInit_64f(state.p(), kelAlgHintNone), kelStatusOk);
    ASSERT_EQ(keliMoments64f_8u_C3R(src, 12, {2, 2}, state.p()), kelStatusOk);
    const auto stateBefore = state.bytes;
    const KeliSize ok{4, 2}, bad{0, 2}, neg{4, -1};
    struct Case {
        KelStatus got, want;
    };
    const Case computing[] = {
        {keliMoments64f_8u_C1R(nullptr, 0, bad, foreign.p()), kelStatusNullPtr},
        {keliMoments64f_16u_C3R(reinterpret_cast<const Kel16u*>(src), 0, bad, nullptr), kelStatusNullPtr},
        {keliMoments64f_8u_C1R(src, 0, bad, foreign.p()), kelStatusSpecMismatch},
        {keliMoments64f_8u_C3R(src, 0, bad, state.p()), kelStatusBadStep},
        {keliMoments64f_32f_AC4R(reinterpret_cast<const Kel32f*>(src), -64, ok, state.p()), kelStatusBadStep},
        {keliMoments64f_8u_C3R(src, 1, neg, state.p()), kelStatusBadSize},
        {keliMoments64f_8u_C3R(src, 11, ok, state.p()), kelStatusStepTooSmall},
        {keliMoments64f_16u_C1R(reinterpret_cast<const Kel16u*>(src), 7, ok, state.p()), kelStatusStepTooSmall},
        {keliMoments64f_32f_AC4R(reinterpret_cast<const Kel32f*>(src), 63, ok, state.p()), kelStatusStepTooSmall},
    };
    for (std::size_t i = 0; i < sizeof computing / sizeof computing[0]; ++i) {
        EXPECT_EQ(computing[i].got, computing[i].want) << "computing case " << i;
        EXPECT_EQ(state.bytes, stateBefore) << "computing case " << i;
    }

    double value = 7;
    double hu[7] = {7, 7, 7, 7, 7, 7, 7};
    const Case reading[] = {
        {keliGetSpatialMoment_64f(nullptr, 9, 9, 9, {0, 0}, &value), kelStatusNullPtr},
        {keliGetCentralMoment_64f(state.p(), 9, 9, 9, nullptr), kelStatusNullPtr},
        {keliGetNormalizedSpatialMoment_64f(foreign.p(), 9, 9, 9, {0, 0}, &value), kelStatusSpecMismatch},
        {keliGetNormalizedCentralMoment_64f(state.p(), 2, 2, 9, &value), kelStatusBadSize},
        {keliGetSpatialMoment_64f(state.p(), -1, 1, 0, {0, 0}, &value), kelStatusBadSize},
        {keliGetCentralMoment_64f(state.p(), 0, -2147483647 - 1, 0, &value), kelStatusBadSize},
        {keliGetCentralMoment_64f(state.p(), 4, 0, 0, &value), kelStatusBadSize},
        {keliGetSpatialMoment_64f(state.p(), 1, 2, 3, {0, 0}, &value), kelStatusBadChannel},
        {keliGetNormalizedCentralMoment_64f(state.p(), 0, 3, -1, &value), kelStatusBadChannel},
        {keliGetHuMoments_64f(nullptr, 0, hu), kelStatusNullPtr},
        {keliGetHuMoments_64f(state.p(), 0, nullptr), kelStatusNullPtr},
        {keliGetHuMoments_64f(foreign.p(), 5, hu), kelStatusSpecMismatch},
        {keliGetHuMoments_64f(state.p(), 3, hu), kelStatusBadChannel},
    };
    for (std::size_t i = 0; i < sizeof reading / sizeof reading[0]; ++i) {
        EXPECT_EQ(reading[i].got, reading[i].want) << "reading case " << i;
        EXPECT_EQ(value, 7) << "reading case " << i;
        for (double e : hu) EXPECT_EQ(e, 7) << "reading case " << i;
        EXPECT_EQ(state.bytes, stateBefore) << "reading case " << i;
    }
}

}  // namespace
