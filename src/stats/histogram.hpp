// keliHistogram: size query, the two spec inits, reading levels back, and the counting calls.
#pragma once

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "frame/check.hpp"
#include "stats/histogram_spec.hpp"
#include "stats/rows/histogram.hpp"

namespace keli::hist {

// Bytes of counters the integer forms need per channel: one 32-bit counter per value.
inline std::int64_t counter_bytes(int dataType)
{
    return dataType == kel8u ? 1024 : dataType == kel32f ? 0 : 0x40000;
}

inline KelStatus get_buffer_size(KelDataType dataType, KeliSize roi, const int* nLevels, int numChannels,
                                 int /*uniform: both kinds of spec need the same room*/, int* pSpecSize,
                                 int* pBufferSize)
{
    if (KelStatus s = check::first({check::pointers(nLevels, pSpecSize, pBufferSize), check::size(roi)})) return s;
    if (!valid_channels(numChannels)) return kelStatusBadChannelCount;
    std::int64_t levels = 0;
    for (int c = 0; c < numChannels; ++c) {
        if (nLevels[c] < 2) return kelStatusBadHistLevels;
        levels += nLevels[c];
    }
    if (!valid_type(dataType)) return kelStatusBadDataType;
    const std::int64_t specBytes = kHeaderBytes + 4 * levels;
    if (specBytes > INT_MAX) return kelStatusSizeOverflow;
    *pSpecSize = static_cast<int>(specBytes);
    *pBufferSize = static_cast<int>(counter_bytes(dataType) * numChannels);
    return kelStatusOk;
}

// Integer levels saturate to the 32-bit range: a level beyond it lies beyond every pixel anyway.
inline std::int32_t saturate_level(double v)
{
    if (!(v > INT_MIN)) return INT_MIN;
    if (v >= 2147483647.0) return INT_MAX;
    return static_cast<std::int32_t>(v);
}

// Fills the header and places the levels of each channel, `level(c, i)` giving level i of
// channel c already in the spec's level type.
template <class Level>
inline void write_spec(Kel8u* spec, int dataType, int numChannels, bool uniform, const int* nLevels,
                       const float* steps, Level&& level)
{
    Header h{};
    h.dataType = dataType;
    h.numChannels = numChannels;
    h.uniform = uniform ? 1 : 0;
    h.id = kId;
    Kel8u* at = spec + kHeaderBytes;
    for (int c = 0; c < numChannels; ++c) {
        h.nLevels[c] = nLevels[c];
        h.pLevels[c] = at;
        h.step[c] = steps ? steps[c] : 0.0f;
        for (int i = 0; i < nLevels[c]; ++i, at += 4) {
            const auto v = level(c, i);
            std::memcpy(at, &v, 4);
        }
    }
    write_header(spec, h);
}

inline KelStatus init(KelDataType dataType, const Kel32f* const* pLevels, const int* nLevels, int numChannels,
                      Kel8u* pSpec)
{
    if (!valid_type(dataType)) return kelStatusBadDataType;
    if (KelStatus s = check::pointers(pLevels, nLevels, pSpec)) return s;
    if (!valid_channels(numChannels)) return kelStatusBadChannelCount;
    for (int c = 0; c < numChannels; ++c)
        if (!pLevels[c]) return kelStatusNullPtr;
    for (int c = 0; c < numChannels; ++c)
        if (nLevels[c] < 2) return kelStatusBadHistLevels;
    // Written as "not below" so that a not-a-number level fails as well.
    for (int c = 0; c < numChannels; ++c)
        for (int i = 0; i + 1 < nLevels[c]; ++i)
            if (!(pLevels[c][i] < pLevels[c][i + 1])) return kelStatusBadRange;

    if (dataType == kel32f) {
        write_spec(pSpec, dataType, numChannels, false, nLevels, nullptr,
                   [&](int c, int i) { return pLevels[c][i]; });
    } else {
        // An integer level is the smallest integer not below the given one: the bin then
        // holds exactly the integers its float bounds hold.
        write_spec(pSpec, dataType, numChannels, false, nLevels, nullptr,
                   [&](int c, int i) { return saturate_level(std::ceil(double(pLevels[c][i]))); });
    }
    return kelStatusOk;
}

inline KelStatus uniform_init(KelDataType dataType, const Kel32f* lower, const Kel32f* upper, const int* nLevels,
                              int numChannels, Kel8u* pSpec)
{
    if (!valid_type(dataType)) return kelStatusBadDataType;
    if (KelStatus s = check::pointers(lower, upper, nLevels, pSpec)) return s;
    if (!valid_channels(numChannels)) return kelStatusBadChannelCount;
    for (int c = 0; c < numChannels; ++c)
        if (nLevels[c] < 2) return kelStatusBadHistLevels;
    for (int c = 0; c < numChannels; ++c)
        if (!(lower[c] < upper[c])) return kelStatusBadRange;

    double step[kMaxChannels];
    float stepStored[kMaxChannels];
    for (int c = 0; c < numChannels; ++c) {
        step[c] = (double(upper[c]) - double(lower[c])) / (nLevels[c] - 1);
        stepStored[c] = static_cast<float>(step[c]);
    }
    // Level i is lower + i * step; the last is the upper bound itself, untouched by rounding.
    auto level = [&](int c, int i) {
        return i == nLevels[c] - 1 ? double(upper[c]) : double(lower[c]) + i * step[c];
    };
    if (dataType == kel32f) {
        write_spec(pSpec, dataType, numChannels, true, nLevels, stepStored,
                   [&](int c, int i) { return static_cast<float>(level(c, i)); });
    } else {
        write_spec(pSpec, dataType, numChannels, true, nLevels, stepStored,
                   [&](int c, int i) { return saturate_level(std::trunc(level(c, i))); });
    }
    return kelStatusOk;
}

inline KelStatus get_levels(const Kel8u* pSpec, Kel32f* const* ppLevels)
{
    if (KelStatus s = check::pointers(pSpec, ppLevels)) return s;
    const Header h = read_header(pSpec);
    if (h.id != kId || !valid_channels(h.numChannels) || !valid_type(h.dataType)) return kelStatusBadArg;
    for (int c = 0; c < h.numChannels; ++c)
        if (!ppLevels[c]) return kelStatusNullPtr;
    for (int c = 0; c < h.numChannels; ++c)
        for (int i = 0; i < h.nLevels[c]; ++i)
            ppLevels[c][i] = h.dataType == kel32f ? float_levels(h, c)[i] : static_cast<float>(int_levels(h, c)[i]);
    return kelStatusOk;
}

// ---- counting ----------------------------------------------------------------------------------

template <int C> inline void hist_8u(const Kel8u* src, int srcStep, KeliSize roi, Kel32u* const* hist,
                                     const Header& h, Kel8u* buffer)
{
    constexpr int kSets = C == 1 ? 4 : 2;
    u32_any* counters = reinterpret_cast<u32_any*>(buffer);
    alignas(16) std::uint32_t extra[kSets - 1][256 * C];
    u32_any* sets[kSets];
    sets[0] = counters;
    for (int k = 1; k < kSets; ++k) sets[k] = extra[k - 1];
    std::fill(counters, counters + 256 * C, 0u);
    std::memset(extra, 0, sizeof extra);
    for (int y = 0; y < roi.height; ++y)
        rows::Count8u<C, kSets>::run(src + std::ptrdiff_t(y) * srcStep, std::size_t(roi.width), sets);
    for (int k = 1; k < kSets; ++k)
        for (int i = 0; i < 256 * C; ++i) counters[i] += extra[k - 1][i];
    for (int c = 0; c < C; ++c)
        rows::sum_ranges(counters + 256 * c, 256, 0, int_levels(h, c), h.nLevels[c], hist[c]);
}

// The direct bins of a channel, when its spec is uniform and its integer levels are evenly
// spaced (their span divides by the bin count).
inline bool direct_bins(const Header& h, int c, rows::DirectBins* out)
{
    const i32_any* L = int_levels(h, c);
    const int bins = h.nLevels[c] - 1;
    const std::int64_t span = std::int64_t(L[bins]) - L[0];
    if (!h.uniform || span <= 0 || span % bins != 0) return false;
    *out = {L[0], L[bins], static_cast<float>(span / bins), static_cast<std::uint32_t>(bins - 1)};
    return true;
}

template <class T, int C> inline void hist_16(const T* src, int srcStep, KeliSize roi, Kel32u* const* hist,
                                              const Header& h, Kel8u* buffer)
{
    // Small uniform images: every channel's bin follows from one division, without counters.
    rows::DirectBins bins[C] = {};
    bool direct = std::int64_t(roi.width) * roi.height < 0x10000;
    for (int c = 0; c < C && direct; ++c) direct = direct_bins(h, c, &bins[c]);
    if (direct) {
        for (int c = 0; c < C; ++c) std::fill(hist[c], hist[c] + h.nLevels[c] - 1, 0u);
        for (int y = 0; y < roi.height; ++y)
            rows::direct16<T, C>(reinterpret_cast<const T*>(reinterpret_cast<const Kel8u*>(src) + std::ptrdiff_t(y) * srcStep),
                                 std::size_t(roi.width), bins, hist);
        return;
    }
    u32_any* counters = reinterpret_cast<u32_any*>(buffer);
    std::fill(counters, counters + 65536 * C, 0u);
    for (int y = 0; y < roi.height; ++y)
        rows::count16<T, C>(reinterpret_cast<const T*>(reinterpret_cast<const Kel8u*>(src) + std::ptrdiff_t(y) * srcStep),
                            std::size_t(roi.width), counters);
    const std::int64_t offset = std::is_same_v<T, Kel16s> ? 32768 : 0;
    for (int c = 0; c < C; ++c)
        rows::sum_ranges(counters + 65536 * c, 65536, offset, int_levels(h, c), h.nLevels[c], hist[c]);
}

template <int C> inline void hist_32f(const Kel32f* src, int srcStep, KeliSize roi, Kel32u* const* hist, const Header& h)
{
    for (int c = 0; c < C; ++c) std::fill(hist[c], hist[c] + h.nLevels[c] - 1, 0u);
    auto row = [&](int y) {
        return reinterpret_cast<const Kel32f*>(reinterpret_cast<const Kel8u*>(src) + std::ptrdiff_t(y) * srcStep);
    };
    if constexpr (C == 1) {
        const f32_any* L = float_levels(h, 0);
        const int n = h.nLevels[0];
        if (h.uniform && n >= 4) {
            const rows::UniformBins u(L, n, h.step[0]);
            // A step whose sixteenth equals the width takes the image as one run of
            // width * height elements from the first pixel on; callers have come to rely on it.
            if ((srcStep >> 4) == roi.width) {
                rows::uniform32f(src, std::size_t(roi.width) * std::size_t(roi.height), u, hist[0]);
            } else {
                for (int y = 0; y < roi.height; ++y) rows::uniform32f(row(y), std::size_t(roi.width), u, hist[0]);
            }
            return;
        }
    }
    // Few levels: a walk from the first bin is cheapest; many: halving.
    int total = 0;
    for (int c = 0; c < C; ++c) total += h.nLevels[c];
    const int limit = C == 1 ? 102 : C == 3 ? 321 : 427;
    const bool halving = total > limit;
    for (int y = 0; y < roi.height; ++y) {
        const Kel32f* s = row(y);
        for (int x = 0; x < roi.width; ++x)
            for (int c = 0; c < C; ++c) {
                const f32_any* L = float_levels(h, c);
                const float v = s[C * x + c];
                const int b = halving ? rows::halving_bin(L, h.nLevels[c], v) : rows::walk_bin(L, h.nLevels[c], v);
                if (b >= 0) ++hist[c][b];
            }
    }
}

template <class T, int C>
KelStatus histogram(const T* pSrc, int srcStep, KeliSize roi, Kel32u* const* pHist, const Kel8u* pSpec, Kel8u* pBuffer)
{
    constexpr bool kFloat = std::is_same_v<T, Kel32f>;
    if (!pSrc || !pHist) return kelStatusNullPtr;
    for (int c = 0; c < C; ++c)
        if (!pHist[c]) return kelStatusNullPtr;
    if (!pSpec || (!kFloat && !pBuffer)) return kelStatusNullPtr;
    if (KelStatus s = check::size(roi)) return s;
    if (srcStep < 1 || std::int64_t(srcStep) < std::int64_t(roi.width) * C * std::int64_t(sizeof(T))) return kelStatusBadStep;
    // A spec from another family, or made for another type or channel count, is refused.
    const Header h = read_header(pSpec);
    if (h.id != kId || h.dataType != data_type_of<T>() || h.numChannels != C) return kelStatusBadArg;

    if constexpr (std::is_same_v<T, Kel8u>) hist_8u<C>(pSrc, srcStep, roi, pHist, h, pBuffer);
    else if constexpr (kFloat) hist_32f<C>(pSrc, srcStep, roi, pHist, h);
    else hist_16<T, C>(pSrc, srcStep, roi, pHist, h, pBuffer);
    return kelStatusOk;
}

}  // namespace keli::hist
