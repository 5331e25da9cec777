// Moments: the raw spatial moments of each channel up to order 3, kept in a caller's state
// block, and the shifted, central and normalised moments and Hu's invariants derived from them
// when asked for.
//
// The state is a plain 400-byte record at the caller's address (no alignment slack): the
// identifier, the hint given to init, the channel count, four spare bytes that put the sums on
// an 8-byte boundary, and m[c][q][p], the sum of x^p y^q v over the region. The record is read
// and written whole through memcpy, so the caller's block needs no particular alignment.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "frame/check.hpp"
#include "frame/driver.hpp"
#include "frame/layout.hpp"
#include "frame/spec_buffer.hpp"
#include "stats/rows/moments.hpp"

namespace keli {

namespace moments_detail {

constexpr std::uint32_t kStateId = 35;

struct State {
    std::int32_t id;
    std::int32_t hint;      // kept as given; nothing reads it
    std::int32_t channels;  // -1 until moments have been computed
    std::int32_t spare;
    double m[3][4][4];  // [channel][y order][x order]; orders above 3 stay zero
};
static_assert(sizeof(State) == 400, "the state block is 400 bytes");
static_assert(offsetof(State, m) == 16, "the sums start at byte 16");

inline State load(const Kel8u* p)
{
    State s;
    std::memcpy(&s, p, sizeof s);
    return s;
}

// A moment denominator must stand clear of zero by the double epsilon.
constexpr double kZeroLimit = 2.220446049250313e-16;
inline bool usable(double m00) { return std::fabs(m00) > kZeroLimit; }

// The orders compare as unsigned and add in 64 bits, so a negative order is too large rather
// than an index below the table.
inline KelStatus orders(int mOrd, int nOrd)
{
    const std::uint64_t sum = std::uint64_t(std::uint32_t(mOrd)) + std::uint64_t(std::uint32_t(nOrd));
    return sum > 3 ? kelStatusBadSize : kelStatusOk;
}

// The checks every reader of the state shares, in their order.
inline KelStatus read_checks(const Kel8u* pState, const void* pOut, const State& s, int mOrd, int nOrd, int channel)
{
    if (!pState || !pOut) return kelStatusNullPtr;
    if (s.id != std::int32_t(kStateId)) return kelStatusSpecMismatch;
    if (KelStatus st = orders(mOrd, nOrd)) return st;
    if (channel < 0 || channel >= s.channels) return kelStatusBadChannel;
    return kelStatusOk;
}

inline double power(double base, int n)
{
    double r = 1;
    for (int k = 0; k < n; ++k) r *= base;
    return r;
}

constexpr double kBinomial[4][4] = {{1, 0, 0, 0}, {1, 1, 0, 0}, {1, 2, 1, 0}, {1, 3, 3, 1}};

// The moment of order (p, q) about the origin moved by (ox, oy): the raw sums expanded by the
// binomial rule in x + ox and y + oy. Orders (1, 1) and (3, 0) keep their own short forms; the
// others sum the terms in one fixed order, y powers outside, x powers inside, ascending.
inline double spatial(const double (&m)[4][4], int p, int q, double ox, double oy)
{
    if (p == 1 && q == 1) return m[1][1] + oy * m[0][1] + ox * (oy * m[0][0] + m[1][0]);
    if (p == 3 && q == 0) return ox * ox * ox * m[0][0] + 3 * (ox * ox) * m[0][1] + 3 * ox * m[0][2] + m[0][3];
    double sum = 0;
    for (int j = 0; j <= q; ++j) {
        const double fy = kBinomial[q][j] * power(oy, q - j);
        for (int i = 0; i <= p; ++i) sum += kBinomial[p][i] * power(ox, p - i) * fy * m[j][i];
    }
    return sum;
}

// The central moment of order (p, q); m00 has been found usable. The centre is formed with one
// reciprocal of m00.
inline double central(const double (&m)[4][4], int p, int q)
{
    const double m00 = m[0][0], m10 = m[0][1], m01 = m[1][0], m20 = m[0][2], m02 = m[2][0], m11 = m[1][1];
    const double inv = 1 / m00;
    const double xb = m10 * inv, yb = m01 * inv;
    switch (p * 4 + q) {
    case 0: return m00;
    case 4:
    case 1: return 0;
    case 8: return m20 - xb * m10;
    case 2: return m02 - yb * m01;
    case 5: return m11 - xb * m01;
    case 12: return m[0][3] + (2 * m10 * xb - 3 * m20) * xb;
    case 3: return m[3][0] + (2 * m01 * yb - 3 * m02) * yb;
    case 9: return m[1][2] + 2 * m01 * xb * xb - (yb * m20 + 2 * xb * m11);
    default: return m[2][1] + 2 * m10 * yb * yb - (xb * m02 + 2 * yb * m11);  // (1, 2)
    }
}

// The exponent is real, so odd total orders take the half power.
inline double normaliser(double m00, int p, int q) { return std::pow(m00, -(p + q + 2) / 2.0); }

}  // namespace moments_detail

inline KelStatus moment_state_size(int* pSize)
{
    if (!pSize) return kelStatusNullPtr;
    *pSize = static_cast<int>(sizeof(moments_detail::State));
    return kelStatusOk;
}

// The whole block is written: a fresh state reads as zero sums with no valid channel.
inline KelStatus moment_init(Kel8u* pState, int hint)
{
    if (!pState) return kelStatusNullPtr;
    moments_detail::State s{};
    s.id = moments_detail::kStateId;
    s.hint = hint;
    s.channels = -1;
    std::memcpy(pState, &s, sizeof s);
    return kelStatusOk;
}

// The identifier is tested before the step and the size, and the step against one row's
// bytes last.
template <class T, Layout L> KelStatus moments(const T* pSrc, int srcStep, KeliSize roi, Kel8u* pState)
{
    using namespace moments_detail;
    constexpr std::size_t C = channels<L>;
    constexpr std::size_t processed = L == Layout::AC4 ? 3 : C;
    if (!pSrc || !pState) return kelStatusNullPtr;
    if (!spec::has_identifier(pState, kStateId)) return kelStatusSpecMismatch;
    if (KelStatus s = check::first({check::steps(srcStep), check::size(roi)})) return s;
    if (std::int64_t(srcStep) < std::int64_t(roi.width) * std::int64_t(C * sizeof(T))) return kelStatusStepTooSmall;

    State s = load(pState);
    std::memset(s.m, 0, sizeof s.m);
    s.channels = static_cast<std::int32_t>(processed);
    std::int64_t y = 0;
    walk_rows(
        roi.height,
        [&](const T* row) {
            double sums[3][4];
            rows::moment_row<C, processed>(row, static_cast<std::size_t>(roi.width), sums);
            const double yd = double(y++);
            const double yq[4] = {1, yd, yd * yd, yd * yd * yd};
            for (std::size_t c = 0; c < processed; ++c)
                for (int q = 0; q < 4; ++q)
                    for (int p = 0; p + q < 4; ++p) s.m[c][q][p] += yq[q] * sums[c][p];
        },
        row_ptr(pSrc, srcStep));
    std::memcpy(pState, &s, sizeof s);
    return kelStatusOk;
}

inline KelStatus spatial_moment(const Kel8u* pState, int mOrd, int nOrd, int nChannel, KeliPoint roiOffset,
                                Kel64f* pValue)
{
    using namespace moments_detail;
    if (!pState || !pValue) return kelStatusNullPtr;
    const State s = load(pState);
    if (KelStatus st = read_checks(pState, pValue, s, mOrd, nOrd, nChannel)) return st;
    *pValue = spatial(s.m[nChannel], mOrd, nOrd, roiOffset.x, roiOffset.y);
    return kelStatusOk;
}

inline KelStatus central_moment(const Kel8u* pState, int mOrd, int nOrd, int nChannel, Kel64f* pValue)
{
    using namespace moments_detail;
    if (!pState || !pValue) return kelStatusNullPtr;
    const State s = load(pState);
    if (KelStatus st = read_checks(pState, pValue, s, mOrd, nOrd, nChannel)) return st;
    if (!usable(s.m[nChannel][0][0])) return kelStatusZeroMoment;
    *pValue = central(s.m[nChannel], mOrd, nOrd);
    return kelStatusOk;
}

// The plain spatial value is written before m00 is tested: a caller that gets ZeroMoment
// still finds the unnormalised moment in *pValue.
inline KelStatus normalized_spatial_moment(const Kel8u* pState, int mOrd, int nOrd, int nChannel,
                                           KeliPoint roiOffset, Kel64f* pValue)
{
    using namespace moments_detail;
    if (KelStatus st = spatial_moment(pState, mOrd, nOrd, nChannel, roiOffset, pValue)) return st;
    const double m00 = load(pState).m[nChannel][0][0];
    if (!usable(m00)) return kelStatusZeroMoment;
    *pValue *= normaliser(m00, mOrd, nOrd);
    return kelStatusOk;
}

// The central step tests m00 first and writes nothing when it fails.
inline KelStatus normalized_central_moment(const Kel8u* pState, int mOrd, int nOrd, int nChannel, Kel64f* pValue)
{
    using namespace moments_detail;
    if (KelStatus st = central_moment(pState, mOrd, nOrd, nChannel, pValue)) return st;
    *pValue *= normaliser(load(pState).m[nChannel][0][0], mOrd, nOrd);
    return kelStatusOk;
}

inline KelStatus hu_moments(const Kel8u* pState, int nChannel, Kel64f* pHm)
{
    using namespace moments_detail;
    if (!pState || !pHm) return kelStatusNullPtr;
    const State s = load(pState);
    if (KelStatus st = read_checks(pState, pHm, s, 0, 0, nChannel)) return st;
    const auto& m = s.m[nChannel];
    if (!usable(m[0][0])) return kelStatusZeroMoment;
    auto eta = [&](int p, int q) { return central(m, p, q) * normaliser(m[0][0], p, q); };
    const double n20 = eta(2, 0), n02 = eta(0, 2), n11 = eta(1, 1);
    const double n30 = eta(3, 0), n21 = eta(2, 1), n12 = eta(1, 2), n03 = eta(0, 3);
    const double a = n30 + n12, b = n21 + n03;
    const double u = 3 * n21 - n03, w = n30 - 3 * n12;
    pHm[0] = n20 + n02;
    pHm[1] = (n20 - n02) * (n20 - n02) + 4 * n11 * n11;
    pHm[2] = u * u + w * w;
    pHm[3] = a * a + b * b;
    pHm[4] = u * b * (3 * a * a - b * b) + w * a * (a * a - 3 * b * b);
    pHm[5] = 4 * n11 * a * b + (a * a - b * b) * (n20 - n02);
    pHm[6] = u * a * (a * a - 3 * b * b) - w * b * (3 * a * a - b * b);
    return kelStatusOk;
}

}  // namespace keli
