// keliCrossCorrNorm and keliSqrDistanceNorm: a template compared with every position of an
// image, through the frequency domain, tile by tile (template_plan.hpp chooses the tiles).
//
// Per call: the template goes to the top-left corner of a zero tile (mean removed for the
// centred correlation) and is transformed once. Per tile of the source, row-major: the tile is
// filled from the window origin of its first output (zeros beyond the image), transformed,
// multiplied by the conjugate of the template's spectrum and transformed back; its wrap-free
// corner is the correlation C of the tile's positions. Window energies come from f64 column
// sums moved down one row at a time, and a running sum along the row.
//
//   correlation, none:      C * s
//   correlation, 0x100:     C / (sqrt(Ew) * |T|)
//   correlation, 0x200:     C / sqrt(Ew' * e), Ew' the window energy less N mean^2,
//                           e that of the template
//   squared distance:       Ew - 2C + |T|^2, and with 0x100 divided by sqrt(Ew) * |T|
//
// s = 2^-scaleFactor enters once, at the 8u output: 8u = sat(rndNear(s * the f32 value)). s is
// built in the exponent field, 127 - scaleFactor clamped to 0..254, so a large factor gives 0
// and never an infinity.
//
// A window whose energy is at or below the floor (2^-23, or N * 2^-46 centred) outputs 0 in the
// correlation: its exact correlation is 0 (or 0/0), and what the transform leaves there is
// rounding noise that no floor could make small. The centred energy sum(x^2) - N mean^2 is itself
// only known to a few units of 2^-52 of sum(x^2), so that bound counts as the floor too: a
// constant window then gives 0 whatever its size.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "frame/check.hpp"
#include "frame/fp_guard.hpp"
#include "frame/spec_buffer.hpp"
#include "frequency/fft.hpp"
#include "match/rows/template.hpp"
#include "match/template_plan.hpp"

namespace keli::match {

namespace detail {

template <class T> const T* row_of(const T* base, int step, std::int64_t y)
{
    return reinterpret_cast<const T*>(reinterpret_cast<const char*>(base) + static_cast<std::ptrdiff_t>(step) * y);
}
template <class T> T* row_of(T* base, int step, std::int64_t y)
{
    return reinterpret_cast<T*>(reinterpret_cast<char*>(base) + static_cast<std::ptrdiff_t>(step) * y);
}

inline unsigned char* align64(unsigned char* p) { return keli::spec::aligned(p); }

// 2^-sf as a float from its exponent field.
inline float scale_of(int scaleFactor)
{
    const int field = std::clamp(127 - scaleFactor, 0, 254);
    const std::uint32_t bits = static_cast<std::uint32_t>(field) << 23;
    float s;
    std::memcpy(&s, &bits, sizeof s);
    return s;
}

constexpr double kTiny = 1.1920928955078125e-7;      // 2^-23
constexpr double kTinySq = 1.4210854715202004e-14;   // 2^-46
constexpr double kCancellation = 3.552713678800501e-15;  // 2^-48: rounding bound of sum(x^2) - N mean^2

// The caller's buffer, carved in the order of the size formula.
struct Carved {
    Kel8u* spec;
    Kel8u* init;
    Kel8u* work;
    float* tplSpectrum;
    float* tile;
    double* colSq;
    double* colSum;
    float* rowOut;  // the energy area: a row of denominators or energies
};

inline Carved carve(Kel8u* buffer, const Plan& p)
{
    Carved c;
    unsigned char* at = buffer;
    c.spec = at;
    at += p.fft.spec;
    c.init = p.fft.init ? at : nullptr;
    at += p.fft.init;
    c.work = at;
    // The column sums use the transform's work room once the tile's transforms are done; the
    // room holds 16 * fx bytes past its alignment, two arrays of fx columns.
    c.colSq = keli::spec::aligned<double>(at);
    c.colSum = c.colSq + p.fx();
    at += p.fft.buffer;
    at = align64(at);
    c.tplSpectrum = reinterpret_cast<float*>(at);
    c.tile = c.tplSpectrum + p.fx() * p.fy();
    at += p.tileBytes;
    c.rowOut = reinterpret_cast<float*>(at);
    return c;
}

// Fills a tile fx x fy of f32 from the source window at (x0, y0), zeros beyond the image.
template <class T>
void fill_tile(const T* src, int srcStep, KeliSize roi, std::int64_t x0, std::int64_t y0, float* tile, std::int64_t fx,
               std::int64_t fy)
{
    const std::int64_t a = std::clamp<std::int64_t>(-x0, 0, fx), b = std::clamp<std::int64_t>(roi.width - x0, a, fx);
    for (std::int64_t r = 0; r < fy; ++r) {
        float* out = tile + r * fx;
        const std::int64_t y = y0 + r;
        if (y < 0 || y >= roi.height) {
            rows::zero_f32(out, fx);
            continue;
        }
        rows::zero_f32(out, a);
        rows::to_f32(row_of(src, srcStep, y) + x0 + a, out + a, b - a);
        rows::zero_f32(out + b, fx - b);
    }
}

// Window energies of one tile's positions, row by row: the column sums over the window's rows
// (clipped to the image) move down one row at a time, and a running sum takes one column in
// and one out along the row. Calls position(i, sq, sum) for each position of a row, then row(j).
template <bool Sums, class T, class Position, class Row>
void walk_energies(const T* src, int srcStep, KeliSize roi, KeliSize tpl, std::int64_t x0, std::int64_t y0,
                   std::int64_t px, std::int64_t py, double* colSq, double* colSum, Position&& position, Row&& row)
{
    const std::int64_t cs = std::max<std::int64_t>(x0, 0), ce = std::min<std::int64_t>(x0 + px + tpl.width - 1, roi.width);
    const std::size_t n = static_cast<std::size_t>(ce - cs);
    std::fill(colSq, colSq + n, 0.0);
    if (Sums) std::fill(colSum, colSum + n, 0.0);
    auto rowAt = [&](std::int64_t y) { return row_of(src, srcStep, y) + cs; };
    for (std::int64_t y = std::max<std::int64_t>(y0, 0); y < std::min<std::int64_t>(y0 + tpl.height, roi.height); ++y)
        rows::add_row<1, Sums>(colSq, colSum, rowAt(y), n);
    for (std::int64_t j = 0; j < py; ++j) {
        if (j > 0) {
            const std::int64_t leave = y0 + j - 1, enter = y0 + j + tpl.height - 1;
            if (leave >= 0 && leave < roi.height) rows::add_row<-1, Sums>(colSq, colSum, rowAt(leave), n);
            if (enter >= 0 && enter < roi.height) rows::add_row<1, Sums>(colSq, colSum, rowAt(enter), n);
        }
        double sq = 0, sum = 0;
        for (std::int64_t c = std::max(x0, cs); c < std::min(x0 + tpl.width, ce); ++c) {
            sq += colSq[c - cs];
            if (Sums) sum += colSum[c - cs];
        }
        position(0, sq, sum);
        for (std::int64_t i = 1; i < px; ++i) {
            const std::int64_t out = x0 + i - 1, in = x0 + i + tpl.width - 1;
            if (out >= cs && out < ce) {
                sq -= colSq[out - cs];
                if (Sums) sum -= colSum[out - cs];
            }
            if (in >= cs && in < ce) {
                sq += colSq[in - cs];
                if (Sums) sum += colSum[in - cs];
            }
            position(i, sq, sum);
        }
        row(j);
    }
}

}  // namespace detail

template <Measure M, class T, class D>
KelStatus match_template(const T* pSrc, int srcStep, KeliSize srcRoi, const T* pTpl, int tplStep, KeliSize tplRoi, D* pDst,
                         int dstStep, int scaleFactor, int algType, Kel8u* pBuffer)
{
    using namespace detail;
    if (KelStatus s = check::first({check::pointers(pSrc, pTpl, pDst), check_sizes(srcRoi, tplRoi),
                                    check::steps(srcStep, tplStep, dstStep), check::pointers(pBuffer),
                                    check_alg_type(M, algType)}))
        return s;
    Plan p;
    if (KelStatus s = make_plan(M, srcRoi, tplRoi, algType, p)) return s;
    FpControlGuard guard;
    guard.set_rounding(0);
    const AlgType alg = decode(algType);
    const std::int64_t fx = p.fx(), fy = p.fy();
    const int tileStep = static_cast<int>(fx * sizeof(float));
    const Carved c = carve(pBuffer, p);
    if (KelStatus s = fft::init(true, p.orderX, p.orderY, 2, 0, c.spec, c.init)) return s;

    // The template's tile, its figures, and its spectrum.
    const std::int64_t N = std::int64_t(tplRoi.width) * tplRoi.height;
    fill_tile(pTpl, tplStep, tplRoi, 0, 0, c.tplSpectrum, fx, fy);
    double sum = 0, sumSq = 0;
    for (int y = 0; y < tplRoi.height; ++y)
        for (int x = 0; x < tplRoi.width; ++x) {
            const double v = c.tplSpectrum[y * fx + x];
            sum += v;
            sumSq += v * v;
        }
    const double n = std::sqrt(sumSq), nFloor = std::max(n, kTiny);
    const double mean = sum / static_cast<double>(N);
    const bool centred = M == Measure::CrossCorr && alg.norm == Norm::Centered;
    if (centred)
        for (int y = 0; y < tplRoi.height; ++y)
            for (int x = 0; x < tplRoi.width; ++x) {
                float& v = c.tplSpectrum[y * fx + x];
                v = static_cast<float>(static_cast<double>(v) - mean);
            }
    if (KelStatus s = fft::real_transform<false, Layout::C1>(c.tplSpectrum, tileStep, c.tplSpectrum, tileStep, c.spec, c.work))
        return s;

    const double invN = 1.0 / static_cast<double>(N);
    const double resid = n * n - static_cast<double>(N) * mean * mean;        // centred template energy
    const double fe = centred ? static_cast<double>(N) * kTinySq : kTiny;      // window energy floor
    const double fd = centred ? std::max(kTinySq, resid) : n * n;              // template energy floor
    const double fs = static_cast<float>(nFloor);
    const float s = std::is_same_v<D, Kel8u> ? scale_of(scaleFactor) : 1.0f;

    // Output row j of a tile: the f32 row `v` goes out as f32, or scaled to 8u.
    auto store = [&](float* v, D* out, std::size_t count) {
        if constexpr (std::is_same_v<D, Kel8u>)
            rows::scale_to_8u(v, s, out, count);
        else
            std::memcpy(out, v, count * sizeof(float));
    };

    const bool energy = M == Measure::SqrDistance || alg.norm != Norm::None;
    for (std::int64_t ty = 0; ty < p.out.height; ty += p.posY) {
        for (std::int64_t tx = 0; tx < p.out.width; tx += p.posX) {
            const std::int64_t x0 = tx - p.out.offX, y0 = ty - p.out.offY;
            const std::int64_t px = std::min(p.posX, p.out.width - tx), py = std::min(p.posY, p.out.height - ty);
            fill_tile(pSrc, srcStep, srcRoi, x0, y0, c.tile, fx, fy);
            if (KelStatus st = fft::real_transform<false, Layout::C1>(c.tile, tileStep, c.tile, tileStep, c.spec, c.work))
                return st;
            rows::multiply_conj_packed(c.tile, c.tplSpectrum, static_cast<std::size_t>(fx), static_cast<std::size_t>(fy));
            fft::real_transform<true, Layout::C1>(c.tile, tileStep, c.tile, tileStep, c.spec, c.work);
            auto outRow = [&](std::int64_t j) { return row_of(pDst, dstStep, ty + j) + tx; };
            auto corrRow = [&](std::int64_t j) { return c.tile + j * fx; };
            const std::size_t count = static_cast<std::size_t>(px);
            if (!energy) {
                for (std::int64_t j = 0; j < py; ++j) store(corrRow(j), outRow(j), count);
                continue;
            }
            if constexpr (M == Measure::SqrDistance) {
                // A row of window energies in f64 fills the energy area.
                double* energies = reinterpret_cast<double*>(c.rowOut);
                walk_energies<false>(
                    pSrc, srcStep, srcRoi, tplRoi, x0, y0, px, py, c.colSq, c.colSum,
                    [&](std::int64_t i, double sq, double) { energies[i] = sq; },
                    [&](std::int64_t j) {
                        float* v = corrRow(j);
                        if (alg.norm == Norm::Energy)
                            rows::sqr_distance<true>(v, energies, n * n, nFloor, v, count);
                        else
                            rows::sqr_distance<false>(v, energies, n * n, nFloor, v, count);
                        store(v, outRow(j), count);
                    });
            } else {
                // A row of denominators in f32 fills the energy area; 0 marks a window at the floor.
                float* den = c.rowOut;
                auto divideRow = [&](std::int64_t j) {
                    float* v = corrRow(j);
                    rows::divide(v, den, v, count);
                    store(v, outRow(j), count);
                };
                if (centred)
                    walk_energies<true>(
                        pSrc, srcStep, srcRoi, tplRoi, x0, y0, px, py, c.colSq, c.colSum,
                        [&](std::int64_t i, double sq, double sm) {
                            const double m = sm * invN, ew = sq - static_cast<double>(N) * m * m;
                            den[i] = ew <= std::max(fe, sq * kCancellation)
                                         ? 0.0f
                                         : static_cast<float>(std::sqrt(std::max(ew * resid, fd * fe)));
                        },
                        divideRow);
                else
                    walk_energies<false>(
                        pSrc, srcStep, srcRoi, tplRoi, x0, y0, px, py, c.colSq, c.colSum,
                        [&](std::int64_t i, double sq, double) {
                            den[i] = sq <= fe ? 0.0f : static_cast<float>(std::sqrt(sq) * fs);
                        },
                        divideRow);
            }
        }
    }
    return kelStatusOk;
}

}  // namespace keli::match
