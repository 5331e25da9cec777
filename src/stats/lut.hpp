// keliLUT: size query, init per element type and the lookups; keliLUTPalette: lookups
// through a caller's plain table with a bit mask.
#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>

#include "frame/check.hpp"
#include "frame/layout.hpp"
#include "stats/lut_build.hpp"
#include "stats/lut_spec.hpp"
#include "stats/rows/lut.hpp"

namespace keli::lut {

inline KelStatus get_size(KeliInterpolationType interpolation, KelDataType dataType, int channels, KeliSize roi,
                          const int* nLevels, int* pSpecSize)
{
    if (!valid_interpolation(interpolation)) return kelStatusBadInterpolation;
    if (KelStatus s = check::first({check::pointers(nLevels, pSpecSize), check::size(roi)})) return s;
    if (!valid_channels(channels)) return kelStatusBadChannel;
    for (int c = 0; c < curves_of(channels); ++c)
        if (nLevels[c] < 2) return kelStatusBadLutLevels;
    if (dataType != kel8u && dataType != kel16u && dataType != kel16s && dataType != kel32f) return kelStatusBadDataType;
    const std::int64_t bytes = spec_bytes(interpolation, dataType, channels, nLevels);
    if (bytes > INT_MAX) return kelStatusSizeOverflow;
    *pSpecSize = static_cast<int>(bytes);
    return kelStatusOk;
}

template <class T> using level_arg_t = std::conditional_t<std::is_same_v<T, Kel32f>, Kel32f, Kel32s>;

template <class T>
KelStatus init(KeliInterpolationType interpolation, int channels, KeliSize roi, const level_arg_t<T>* const* pValues,
               const level_arg_t<T>* const* pLevels, const int* nLevels, Kel8u* pSpec)
{
    if (!valid_interpolation(interpolation)) return kelStatusBadInterpolation;
    if (KelStatus s = check::first({check::size(roi), check::pointers(pValues, pLevels, nLevels, pSpec)})) return s;
    if (!valid_channels(channels)) return kelStatusBadChannel;
    const int curves = curves_of(channels);
    for (int c = 0; c < curves; ++c)
        if (!pValues[c] || !pLevels[c]) return kelStatusNullPtr;
    for (int c = 0; c < curves; ++c)
        if (nLevels[c] < 2) return kelStatusBadLutLevels;

    Header* h = header(pSpec);
    Kel8u* at = body(pSpec);
    *h = Header{};
    h->id = identifier(type_code<T>(), channel_code(channels), interpolation);
    h->curves = curves;
    // A cubic needs four levels. Integer tables fall back to linear curve by curve; 32f keeps
    // one kind for all curves, since its room holds either all cubics or all slopes.
    bool allFour = true;
    for (int c = 0; c < curves; ++c) allFour = allFour && nLevels[c] >= 4;
    for (int c = 0; c < curves; ++c) {
        h->nLevels[c] = nLevels[c];
        h->kind[c] = interpolation == kelNearest ? Kind::Nearest
                     : interpolation == kelLinear ? Kind::Linear
                     : (std::is_same_v<T, Kel32f> ? allFour : nLevels[c] >= 4) ? Kind::Cubic
                                                                                 : Kind::Linear;
    }
    if constexpr (std::is_same_v<T, Kel32f>) {
        std::size_t N = 0;
        for (int c = 0; c < curves; ++c) N += std::size_t(nLevels[c]);
        float* levels = reinterpret_cast<float*>(at);
        float* values = levels + N;
        double* coeffs = reinterpret_cast<double*>(values + N);
        for (int c = 0; c < curves; ++c) {
            const int n = nLevels[c];
            for (int i = 0; i < n; ++i) {
                levels[i] = pLevels[c][i];
                values[i] = pValues[c][i];
            }
            h->levels[c] = levels;
            h->values[c] = values;
            h->coeffs[c] = coeffs;
            if (h->kind[c] != Kind::Nearest) {
                build_coeffs(coeffs, levels, values, n, h->kind[c]);
                coeffs += std::size_t(n - 1) * (h->kind[c] == Kind::Cubic ? kCubicCoeffs : 1);
            }
            levels += n;
            values += n;
        }
    } else {
        for (int c = 0; c < curves; ++c) {
            T* table = reinterpret_cast<T*>(at) + std::size_t(c) * (sizeof(T) == 1 ? 256 : 65536);
            h->table[c] = table;
            build_table<T>(table, pLevels[c], pValues[c], nLevels[c], h->kind[c]);
        }
    }
    return kelStatusOk;
}

template <class T, Layout L>
KelStatus lookup(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, const Kel8u* pSpec)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pDst, pSpec), check::steps(srcStep, dstStep), check::size(roi)}))
        return s;
    const Header* h = header(pSpec);
    constexpr int kChannelCode = L == Layout::C1 ? 0 : L == Layout::C3 ? 1 : L == Layout::C4 ? 2 : 3;
    // A spec of another type or layout answers with a plain argument error here.
    if (!identifier_matches(h->id, type_code<T>(), kChannelCode)) return kelStatusBadArg;

    constexpr int kMem = int(channels<L>);
    constexpr int kCurves = has_alpha<L> ? 3 : kMem;
    const std::size_t width = std::size_t(roi.width);
    auto srcRow = [&](int y) { return reinterpret_cast<const T*>(reinterpret_cast<const Kel8u*>(pSrc) + std::ptrdiff_t(y) * srcStep); };
    auto dstRow = [&](int y) { return reinterpret_cast<T*>(reinterpret_cast<Kel8u*>(pDst) + std::ptrdiff_t(y) * dstStep); };

    if constexpr (std::is_same_v<T, Kel32f>) {
        rows::Curve32f curve[kCurves];
        for (int c = 0; c < kCurves; ++c) curve[c] = {h->levels[c], h->values[c], h->coeffs[c], h->nLevels[c], h->kind[c]};
        for (int y = 0; y < roi.height; ++y) {
            const float* s = srcRow(y);
            float* d = dstRow(y);
            if constexpr (kMem == 1) {
                curve[0].run(s, d, width);
            } else {
                // Each channel goes through its curve as a plain run in stack scratch.
                constexpr std::size_t kChunk = 256;
                alignas(16) float run[kChunk];
                for (std::size_t x = 0; x < width; x += kChunk) {
                    const std::size_t m = width - x < kChunk ? width - x : kChunk;
                    for (int c = 0; c < kCurves; ++c) {
                        for (std::size_t p = 0; p < m; ++p) run[p] = s[kMem * (x + p) + c];
                        curve[c].run(run, run, m);
                        for (std::size_t p = 0; p < m; ++p) d[kMem * (x + p) + c] = run[p];
                    }
                }
            }
        }
    } else {
        const T* tables[kCurves];
        for (int c = 0; c < kCurves; ++c) tables[c] = static_cast<const T*>(h->table[c]);
        const rows::Index idx{std::is_same_v<T, Kel16s> ? 0x8000u : 0u, sizeof(T) == 1 ? 0xFFu : 0xFFFFu};
        for (int y = 0; y < roi.height; ++y) {
            if constexpr (std::is_same_v<T, Kel8u> && !has_alpha<L>)
                rows::Lookup8u<kMem>::run(srcRow(y), dstRow(y), width, tables, idx);
            else
                rows::lookup_scalar<T, T, 1, kMem, kCurves>(srcRow(y), dstRow(y), 0, width, tables, idx);
        }
    }
    return kelStatusOk;
}

// ---- palettes ----------------------------------------------------------------------------------

// Source element, destination element, destination elements per entry, and the widest mask.
template <class S, class D, int Wide, int Bits> struct Palette {
    using Src = S;
    using Dst = D;
    static constexpr int kWide = Wide;
    static constexpr int kMaxBits = Bits;
};
using Palette_8u = Palette<Kel8u, Kel8u, 1, 8>;
using Palette_8u24u = Palette<Kel8u, Kel8u, 3, 8>;
using Palette_8u32u = Palette<Kel8u, Kel32u, 1, 8>;
using Palette_16u = Palette<Kel16u, Kel16u, 1, 16>;
using Palette_16u8u = Palette<Kel16u, Kel8u, 1, 16>;
using Palette_16u24u = Palette<Kel16u, Kel8u, 3, 16>;
using Palette_16u32u = Palette<Kel16u, Kel32u, 1, 16>;

template <class P, Layout L>
KelStatus palette(const typename P::Src* pSrc, int srcStep, typename P::Dst* pDst, int dstStep, KeliSize roi,
                  const typename P::Dst* const* pTable, int nBitSize)
{
    using S = typename P::Src;
    using D = typename P::Dst;
    constexpr int kMem = int(channels<L>);
    constexpr int kCurves = has_alpha<L> ? 3 : kMem;
    if (KelStatus s = check::pointers(pSrc, pDst, pTable)) return s;
    for (int c = 0; c < kCurves; ++c)
        if (!pTable[c]) return kelStatusNullPtr;
    if (KelStatus s = check::size(roi)) return s;
    if (nBitSize < 1 || nBitSize > P::kMaxBits) return kelStatusOutOfRange;
    const std::int64_t srcRowBytes = std::int64_t(roi.width) * kMem * std::int64_t(sizeof(S));
    const std::int64_t dstRowBytes = std::int64_t(roi.width) * kMem * P::kWide * std::int64_t(sizeof(D));
    if (srcStep < srcRowBytes || dstStep < dstRowBytes) return kelStatusBadStep;

    const rows::Index idx{0, (1u << nBitSize) - 1};
    const std::size_t width = std::size_t(roi.width);
    for (int y = 0; y < roi.height; ++y) {
        const S* s = reinterpret_cast<const S*>(reinterpret_cast<const Kel8u*>(pSrc) + std::ptrdiff_t(y) * srcStep);
        D* d = reinterpret_cast<D*>(reinterpret_cast<Kel8u*>(pDst) + std::ptrdiff_t(y) * dstStep);
        if constexpr (std::is_same_v<P, Palette_8u> && !has_alpha<L>)
            rows::Lookup8u<kMem>::run(s, d, width, pTable, idx);
        else
            rows::lookup_scalar<S, D, P::kWide, kMem, kCurves>(s, d, 0, width, pTable, idx);
    }
    return kelStatusOk;
}

}  // namespace keli::lut
