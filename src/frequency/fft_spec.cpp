// Plans and twiddle tables of the FFT.
#include "frequency/fft_spec.hpp"

#include <array>
#include <cmath>
#include <cstring>

#include "frequency/sine_1024.hpp"

namespace keli::fft {
namespace {

// sin(2*pi*k/N) for a length N = 2^order, from a quarter wave of order qOrder >= order by
// symmetry alone: each value is an exact copy of a table entry, or its negation. `quarterTurns`
// adds a quarter period first, which turns the sine into the cosine.
constexpr float sine_at(const float* quarter, int qOrder, std::uint32_t k, int order, std::uint32_t quarterTurns = 0)
{
    const std::uint32_t n = 1u << qOrder, q = n / 4;
    k = ((k << (qOrder - order)) + quarterTurns * q) & (n - 1);
    if (k <= q) return quarter[k];
    if (k <= 2 * q) return quarter[2 * q - k];
    if (k <= 3 * q) return -quarter[k - 2 * q];
    return -quarter[n - k];
}

constexpr float cosine_at(const float* quarter, int qOrder, std::uint32_t k, int order)
{
    return sine_at(quarter, qOrder, k, order, 1);
}

struct FullCircle {
    std::array<float, 1024> cos{}, msin{};
};

constexpr FullCircle full_circle_1024()
{
    FullCircle t;
    for (std::uint32_t k = 0; k < 1024; ++k) {
        t.cos[k] = cosine_at(kSine1024, kBuiltinOrder, k, kBuiltinOrder);
        t.msin[k] = -sine_at(kSine1024, kBuiltinOrder, k, kBuiltinOrder);
    }
    return t;
}

// Whole-circle factors of order 10, expanded from the quarter wave when the library is built.
constexpr FullCircle kCircle = full_circle_1024();

// The quarter wave of order o (o >= 11): T[k] = sin(k*theta) up to N/8 and cos((N/4-k)*theta)
// beyond, theta = 2*pi/N in f64 and each angle rounded to f32 before its sine or cosine. The
// function of the rounded angle is evaluated in f64 and rounded once, so each entry is the f32
// nearest to the sine of its f32 angle.
void fill_quarter_wave(float* t, int o)
{
    const std::int64_t n = std::int64_t(1) << o;
    const double theta = 6.283185307179586 / static_cast<double>(n);
    for (std::int64_t k = 0; k <= n / 4; ++k) {
        if (k <= n / 8) {
            const float angle = static_cast<float>(static_cast<double>(k) * theta);
            t[k] = static_cast<float>(std::sin(static_cast<double>(angle)));
        } else {
            const float angle = static_cast<float>(static_cast<double>(n / 4 - k) * theta);
            t[k] = static_cast<float>(std::cos(static_cast<double>(angle)));
        }
    }
}

struct QuarterWave {
    const float* t;
    int order;
};

QuarterWave quarter_for(int o, float* scratch)
{
    if (o <= kBuiltinOrder) return {kSine1024, kBuiltinOrder};
    fill_quarter_wave(scratch, o);
    return {scratch, o};
}

// Writes w_N^k for k < count, N = 2^order, into cos/msin.
void fill_factors(float* cos, float* msin, std::uint32_t count, int order, QuarterWave q)
{
    for (std::uint32_t k = 0; k < count; ++k) {
        cos[k] = cosine_at(q.t, q.order, k, order);
        msin[k] = -sine_at(q.t, q.order, k, order);
    }
}

// The complex engine's twiddles of order o; tables start at `room`, which the size formula of
// the plan leaves free.
Twiddles make_twiddles(int o, unsigned char* room, QuarterWave q)
{
    Twiddles t{};
    t.order = o;
    const std::uint32_t n = 1u << o;
    t.half = n;
    if (o <= kBuiltinOrder) {
        t.cos = kCircle.cos.data();
        t.msin = kCircle.msin.data();
        t.shift = kBuiltinOrder - o;
        return t;
    }
    const std::uint32_t kept = o < kFirstHalfTableOrder ? n : n / 2;
    auto* cos = reinterpret_cast<float*>(room);
    auto* msin = cos + kept;
    fill_factors(cos, msin, kept, o, q);
    t.cos = cos;
    t.msin = msin;
    t.shift = 0;
    t.half = kept;
    return t;
}

void fill_header(Plan* p, std::uint32_t id, int o, int flag, int hint, std::int64_t bufferSize)
{
    std::memset(p, 0, sizeof *p);
    p->id = id;
    p->order = o;
    p->scaleFwd = flag == 1 || flag == 4;
    p->scaleInv = flag == 2 || flag == 4;
    // Each pass scales by its own length: 1/N, or for the symmetric flag 1/sqrt(N) computed in
    // f64 and rounded once to f32.
    const double n = std::ldexp(1.0, o);
    p->scale = flag == 4 ? static_cast<float>(1.0 / std::sqrt(n)) : flag == 8 ? 1.0f : static_cast<float>(1.0 / n);
    p->hint = hint;
    p->bufferSize = static_cast<std::int32_t>(bufferSize);
}

}  // namespace

Plan* init_complex_plan(void* room, int o, int flag, int hint, float* quarter)
{
    auto* p = static_cast<Plan*>(room);
    fill_header(p, kComplexPlanId, o, flag, hint, complex_sizes(o).buffer);
    auto* tables = static_cast<unsigned char*>(room) + kPlanHeaderBytes;
    p->cplx = make_twiddles(o, tables, quarter_for(o, quarter));
    return p;
}

Plan* init_real_plan(void* room, int o, int flag, int hint, float* quarter)
{
    auto* p = static_cast<Plan*>(room);
    fill_header(p, kRealPlanId, o, flag, hint, real_sizes(o).buffer);
    const QuarterWave q = quarter_for(o, quarter);
    auto* tables = static_cast<unsigned char*>(room) + kPlanHeaderBytes;
    const int c = o > 0 ? o - 1 : 0;
    p->cplx = make_twiddles(c, tables, q);
    SplitTwiddles& s = p->split;
    if (o <= kBuiltinOrder) {
        s.cos = kCircle.cos.data();
        s.msin = kCircle.msin.data();
        s.shift = kBuiltinOrder - o;
        return p;
    }
    // The split tables follow the complex engine's, whose room is its spec size without 256.
    auto* split = reinterpret_cast<float*>(tables + complex_sizes(c).spec - 256);
    const std::uint32_t w = 1u << o;
    if (o < kFirstTwoLevelSplitOrder) {
        const std::uint32_t count = w / 4 + 1;
        s.cos = split;
        s.msin = split + align64(count * 4) / 4;
        fill_factors(const_cast<float*>(s.cos), const_cast<float*>(s.msin), count, o, q);
        return p;
    }
    const std::uint32_t fine = 1u << kFineSplitBits, coarse = (w / 4 >> kFineSplitBits) + 1;
    float* f = split;
    fill_factors(f, f + fine, fine, o, q);
    float* cc = f + 2 * fine;
    for (std::uint32_t i = 0; i < coarse; ++i) {
        cc[i] = cosine_at(q.t, q.order, i << kFineSplitBits, o);
        cc[coarse + i] = -sine_at(q.t, q.order, i << kFineSplitBits, o);
    }
    s.cos = f;
    s.msin = f + fine;
    s.coarseCos = cc;
    s.coarseMsin = cc + coarse;
    s.twoLevel = 1;
    return p;
}

}  // namespace keli::fft
