// Plans of the two-dimensional FFT: the size formulas of the size queries, the records kept in
// the caller's spec block, and the twiddle tables Init builds there.
//
// A two-dimensional spec is a 128-byte header followed by its one-dimensional plans, each in a
// 64-rounded room of the size its formula gives. A plan holds the twiddles of one length:
//   - w_N^k = (cos, -sin)(2*pi*k/N) for the complex engine, read as `cos[k << shift]`. Orders up
//     to 10 read the compiled-in table by index shift; orders 11 to 17 keep a whole table of N
//     entries; from order 18 the plan keeps half of it and w^(k + N/2) = -w^k gives the rest.
//   - for a real plan of length W, the split factors w_W^k for k up to W/4, whole up to order 20
//     and as coarse and fine factors from order 21, which keeps the table small.
// The layout is shared by every family that transforms through these plans.
#pragma once

#include <algorithm>
#include <cstdint>

#include "frame/spec_buffer.hpp"
#include "keli_types.h"

namespace keli::fft {

constexpr std::uint32_t kRealSpecId = 28, kComplexSpecId = 27;  // two-dimensional specs
constexpr std::uint32_t kComplexPlanId = 5, kRealPlanId = 7;     // one-dimensional plans
constexpr int kComplexMaxOrder = 28, kRealMaxOrder = 29;
constexpr int kFirstTabledOrder = 11;  // from here Init computes the sine table in pMemInit
constexpr int kFirstHalfTableOrder = 18;
constexpr int kFirstTwoLevelSplitOrder = 21;
constexpr int kFineSplitBits = 10;
constexpr int kHeaderBytes = 128;      // two-dimensional header
constexpr int kPlanHeaderBytes = 256;  // room before a plan's tables

// Twiddles w_N^k of a complex length N = 2^order.
struct Twiddles {
    const float* cos;
    const float* msin;  // minus the sine: the forward factor's imaginary part
    std::int32_t order;
    std::int32_t shift;     // table index of k is k << shift
    std::uint32_t half;     // first index kept only by its negated half (N when the table is whole)
    std::int32_t reserved;

    void at(std::uint32_t k, float& c, float& s) const
    {
        if (k >= half) {
            k -= half;
            c = -cos[k << shift];
            s = -msin[k << shift];
        } else {
            c = cos[k << shift];
            s = msin[k << shift];
        }
    }
};

// Split factors w_W^k, k = 0..W/4, of a real length W: `fine` read by shift, or the product
// coarse[k >> 10] * fine[k & 1023] when `twoLevel`.
struct SplitTwiddles {
    const float* cos;
    const float* msin;
    const float* coarseCos;
    const float* coarseMsin;
    std::int32_t shift;
    std::int32_t twoLevel;

    void at(std::uint32_t k, float& c, float& s) const
    {
        if (!twoLevel) {
            c = cos[k << shift];
            s = msin[k << shift];
            return;
        }
        const std::uint32_t hi = k >> kFineSplitBits, lo = k & ((1u << kFineSplitBits) - 1);
        const float ac = coarseCos[hi], as = coarseMsin[hi], bc = cos[lo], bs = msin[lo];
        c = ac * bc - as * bs;
        s = ac * bs + as * bc;
    }
};

// A one-dimensional plan.
struct Plan {
    std::uint32_t id;
    std::int32_t order;
    std::int32_t scaleFwd, scaleInv;
    float scale;
    std::int32_t hint;
    std::int32_t bufferSize;
    std::int32_t reserved;
    Twiddles cplx;        // the complex engine: length 2^order, or 2^(order-1) in a real plan
    SplitTwiddles split;  // real plans only

    float forward_scale() const { return scaleFwd ? scale : 1.0f; }
    float inverse_scale() const { return scaleInv ? scale : 1.0f; }
};
static_assert(sizeof(Plan) <= 208, "a plan of a short length lives in 208 bytes");

// The two-dimensional header. Real: complex plan along Y, real plan along X, real plan along Y
// (null when the orders are equal: the X plan serves). Complex: plan along X, plan along Y (null
// when equal).
struct Spec2D {
    std::uint32_t id;
    std::int32_t orderX, orderY;
    std::int32_t hint;
    std::int32_t bufferSize;
    std::int32_t reserved;
    Plan* plan[3];
};
static_assert(sizeof(Spec2D) <= kHeaderBytes, "the header has a fixed room");

// ---- Size formulas (64-bit; the caller's limit is checked by the size query)

struct Sizes {
    std::int64_t spec = 0, init = 0, buffer = 0;
};

inline std::int64_t align64(std::int64_t x) { return (x + 63) & ~std::int64_t(63); }

// The room of a quarter-wave table of order o, 2^(o-2) + 1 floats.
inline std::int64_t quarter_wave_bytes(int o)
{
    return (((std::int64_t(1) << o) & ~std::int64_t(3)) + 67) & ~std::int64_t(63);
}

// Decomposition room of the long lengths: twiddle part P and work part Q.
struct LongRoom {
    std::int64_t p, q;
};

inline LongRoom long_room(int o)
{
    const int a = o < 20 ? 4 : 8, m = o - a, b = o < 20 ? 10 : 14;
    LongRoom inner;
    if (m < 18)
        inner = {((std::int64_t(8) << m) + 71) & ~std::int64_t(63), align64(std::int64_t(8) << m)};
    else
        inner = long_room(m);
    return {inner.p + (std::int64_t(8) << (o - 1)), std::max(inner.q, std::int64_t(8) << b)};
}

inline Sizes complex_sizes(int o)
{
    if (o <= 5) return {208, 0, 0};
    const std::int64_t n8 = std::int64_t(8) << o;
    if (o <= 17)
        return {((n8 + 71) & ~std::int64_t(63)) + quarter_wave_bytes(o) + 256,
                o <= 10 ? 0 : quarter_wave_bytes(o) + 64, align64(n8) + 64};
    const LongRoom r = long_room(o);
    if (o == 18) return {r.p + quarter_wave_bytes(18) + 256, quarter_wave_bytes(o) + 64, r.q + 64};
    return {r.p + (std::int64_t(4) << (o - 12)) + 4160 + 256, quarter_wave_bytes(o) + 64,
            std::max(r.q, std::int64_t(0x10000)) + 64};
}

inline std::int64_t split_table_bytes(int o)
{
    if (o < kFirstTwoLevelSplitOrder) return align64((std::int64_t(2) << o) & ~std::int64_t(7));
    return ((std::int64_t(8) << (o - 12)) + 8255) & ~std::int64_t(63);
}

inline Sizes real_sizes(int o)
{
    if (o <= 4) return {208, 0, 0};
    if (o <= 6) return {256 + 2 * split_table_bytes(o), 0, 0};
    const Sizes c = complex_sizes(o - 1);
    return {c.spec - 256 + 256 + 2 * split_table_bytes(o), o <= 10 ? 0 : quarter_wave_bytes(o) + 64, c.buffer};
}

inline Sizes real_2d_sizes(int ox, int oy)
{
    const Sizes x = real_sizes(ox), c = complex_sizes(oy);
    const Sizes y = ox == oy ? Sizes{0, 0, x.buffer} : real_sizes(oy);
    Sizes s;
    s.spec = align64(c.spec) + align64(y.spec) + align64(x.spec) + kHeaderBytes + 64;
    s.init = align64(c.init) + align64(y.init) + align64(x.init);
    if (s.init > 0) s.init += 64;
    s.buffer = std::max({c.buffer + 4 * (std::int64_t(16) << oy), y.buffer + 4 * (std::int64_t(4) << oy),
                         x.buffer + 4 * (std::int64_t(4) << ox)}) + 64;
    return s;
}

inline Sizes complex_2d_sizes(int ox, int oy)
{
    const Sizes x = complex_sizes(ox);
    const Sizes y = ox == oy ? Sizes{0, 0, x.buffer} : complex_sizes(oy);
    Sizes s;
    s.spec = align64(x.spec) + align64(y.spec) + kHeaderBytes + 64;
    s.init = align64(x.init) + align64(y.init);
    if (s.init > 0) s.init += 64;
    s.buffer = align64(std::max((std::int64_t(64) << oy) + y.buffer, x.buffer));
    if (s.buffer > 0) s.buffer += 64;
    return s;
}

// ---- Init

// Fills a plan in its room; `quarter` is scratch for a quarter-wave table of order `o` (orders
// from 11 on). Returns the plan.
Plan* init_complex_plan(void* room, int o, int flag, int hint, float* quarter);
Plan* init_real_plan(void* room, int o, int flag, int hint, float* quarter);

}  // namespace keli::fft
