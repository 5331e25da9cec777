// The scaled sums and differences for every scale factor at which the result still depends on
// it: every pair of 8u operands, and for 16u and 16s the range ends, the values around every
// rounding tie and random pairs, all through the vector body.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "arith/rows/add_sub.hpp"
#include "keli.h"
#include "kit/random.hpp"
#include "reference/add_sub.hpp"

namespace {

using keli::rows::AddSub;

template <class T> using Fn = KelStatus (*)(const T*, int, const T*, int, T*, int, KeliSize, int);

// Operand pairs laid out as two images of `width` columns.
template <class T> struct Pairs {
    std::vector<T> a, b;
    int width = 256;
    int height() const { return static_cast<int>(a.size()) / width; }
};

Pairs<Kel8u> every_8u_pair()
{
    Pairs<Kel8u> p;
    for (int y = 0; y < 256; ++y)
        for (int x = 0; x < 256; ++x) p.a.push_back(Kel8u(x)), p.b.push_back(Kel8u(y));
    return p;
}

// The ends of the range, and for each power of two k the multiples of 2^k and their
// neighbours, paired against a spread of partners, then random pairs.
template <class T> Pairs<T> pairs_16(kit::Rng& rng)
{
    constexpr std::int64_t lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
    std::vector<T> values;
    for (std::int64_t v : {lo, lo + 1, lo + 2, std::int64_t(-1), std::int64_t(0), std::int64_t(1), hi - 1, hi})
        if (v >= lo && v <= hi) values.push_back(T(v));
    for (int k = 1; k < 16; ++k)
        for (std::int64_t m : {std::int64_t(1) << k, 3 * (std::int64_t(1) << k), hi - (std::int64_t(1) << k) + 1})
            for (std::int64_t v : {m - 1, m, m + 1, -m - 1, -m, -m + 1})
                if (v >= lo && v <= hi) values.push_back(T(v));
    Pairs<T> p;
    for (T x : values)
        for (T y : values) p.a.push_back(x), p.b.push_back(y);
    while (p.a.size() % p.width != 0 || p.a.size() < 128 * 256)
        p.a.push_back(rng.any<T>()), p.b.push_back(rng.any<T>());
    return p;
}

template <class T> void check_every_factor(const Pairs<T>& p, AddSub kind, Fn<T> fn, const char* name)
{
    const auto bounds = kind == AddSub::Add ? keli::rows::kAddSubShortCuts<AddSub::Add, T>
                                            : keli::rows::kAddSubShortCuts<AddSub::Sub, T>;
    const int step = p.width * int(sizeof(T));
    std::vector<T> d(p.a.size());
    for (int n = 2; n < bounds.zeroFrom; ++n) {
        SCOPED_TRACE(std::string(name) + " n " + std::to_string(n));
        ASSERT_EQ(fn(p.a.data(), step, p.b.data(), step, d.data(), step, KeliSize{p.width, p.height()}, n),
                  kelStatusOk);
        for (std::size_t i = 0; i < d.size(); ++i) {
            // keliSub subtracts its first operand from its second.
            const T want = kind == AddSub::Add ? reference::add(p.a[i], p.b[i], n) : reference::sub(p.b[i], p.a[i], n);
            ASSERT_EQ(std::int64_t(d[i]), std::int64_t(want)) << "a " << +p.a[i] << " b " << +p.b[i];
        }
    }
}

TEST(AddSubScale, EveryFactorRoundsEveryPairToEven)
{
    kit::Rng rng;
    SCOPED_TRACE("seed " + std::to_string(rng.seed_value()));
    const auto p8 = every_8u_pair();
    check_every_factor(p8, AddSub::Add, keliAdd_8u_C1RSfs, "keliAdd_8u_C1RSfs");
    check_every_factor(p8, AddSub::Sub, keliSub_8u_C1RSfs, "keliSub_8u_C1RSfs");
    const auto p16u = pairs_16<Kel16u>(rng);
    check_every_factor(p16u, AddSub::Add, keliAdd_16u_C1RSfs, "keliAdd_16u_C1RSfs");
    check_every_factor(p16u, AddSub::Sub, keliSub_16u_C1RSfs, "keliSub_16u_C1RSfs");
    const auto p16s = pairs_16<Kel16s>(rng);
    check_every_factor(p16s, AddSub::Add, keliAdd_16s_C1RSfs, "keliAdd_16s_C1RSfs");
    check_every_factor(p16s, AddSub::Sub, keliSub_16s_C1RSfs, "keliSub_16s_C1RSfs");
}

}  // namespace
