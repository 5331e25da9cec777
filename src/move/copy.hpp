// keliCopy in every arrangement, and keliCopyManaged_8u_C1R.
//
// Checks: pointers in argument order (a planar side tests its array pointer, then each plane),
// the mask pointer of the masked forms, then the size. Steps are never checked: zero and
// negative steps are taken as they stand.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "frame/check.hpp"
#include "frame/layout.hpp"
#include "frame/store_choice.hpp"
#include "frame/wide.hpp"
#include "move/rows/cache_descriptors.hpp"
#include "move/rows/copy_ac4.hpp"
#include "move/rows/copy_run.hpp"
#include "move/rows/masked.hpp"
#include "move/rows/shuffle.hpp"
#include "move/shuffle_image.hpp"

namespace keli {

namespace copy_detail {

template <class T> inline const unsigned char* bytes(const T* p) { return reinterpret_cast<const unsigned char*>(p); }
template <class T> inline unsigned char* bytes(T* p) { return reinterpret_cast<unsigned char*>(p); }

// Copies below this many bytes in all never ask about the caches.
constexpr std::int64_t kCachedCopyBytes = 131072;

// Whether a copy of `total` bytes in runs of `run` bytes streams past the caches: only when the
// processor names its largest cache and the copy is above half of it.
inline bool stream_copy(std::int64_t run, double total)
{
    if (run < static_cast<std::int64_t>(rows::kShortRunBytes) || total <= kCachedCopyBytes) return false;
    const std::int64_t cache = rows::largest_cache_bytes();
    return cache > 0 && total > static_cast<double>(cache / 2);
}

// The byte-run copy of `height` rows of `rowBytes` each; rows that follow each other without a
// gap on both sides run as one.
inline void copy_rows(const unsigned char* s, std::int64_t srcStep, unsigned char* d, std::int64_t dstStep,
                      std::int64_t rowBytes, std::int64_t height)
{
    if (srcStep == rowBytes && dstStep == rowBytes) rowBytes *= height, height = 1;
    const bool nt = stream_copy(rowBytes, static_cast<double>(rowBytes) * static_cast<double>(height));
    for (std::int64_t y = 0; y < height; ++y, s += srcStep, d += dstStep) {
        if (nt) rows::copy_bytes_nt(s, d, static_cast<std::size_t>(rowBytes));
        else rows::copy_bytes(s, d, static_cast<std::size_t>(rowBytes));
    }
    if (nt) simd::fence();
}

template <class T>
inline void copy_ac4_rows(const T* s, std::int64_t srcStep, T* d, std::int64_t dstStep, std::int64_t width,
                          std::int64_t height)
{
    const std::int64_t rowBytes = width * 4 * static_cast<std::int64_t>(sizeof(T));
    if (srcStep == rowBytes && dstStep == rowBytes) width *= height, height = 1;
    for (std::int64_t y = 0; y < height; ++y) {
        rows::copy_ac4_row(s, d, static_cast<std::size_t>(width));
        s = reinterpret_cast<const T*>(bytes(s) + srcStep);
        d = reinterpret_cast<T*>(bytes(d) + dstStep);
    }
}

}  // namespace copy_detail

// C1R, C3R, C4R: one byte-run copy; AC4R: the colour of each pixel, alpha kept.
template <class T, Layout L> KelStatus copy_image(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::size(roi)})) return s;
    if constexpr (has_alpha<L>) {
        copy_detail::copy_ac4_rows(pSrc, srcStep, pDst, dstStep, roi.width, roi.height);
    } else {
        const std::int64_t rowBytes = std::int64_t(roi.width) * std::int64_t(channels<L> * sizeof(T));
        copy_detail::copy_rows(copy_detail::bytes(pSrc), srcStep, copy_detail::bytes(pDst), dstStep, rowBytes,
                               roi.height);
    }
    return kelStatusOk;
}

// The wide members test their own pointers and 64-bit size, hand whatever fits to the 32-bit
// body, and walk anything larger with 64-bit steps, rows cut into chunks of 2^30 bytes.
template <class T, Layout L>
KelStatus copy_image_L(const T* pSrc, std::int64_t srcStep, T* pDst, std::int64_t dstStep, KeliSizeL roi)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::size(roi)})) return s;
    constexpr std::int64_t P = channels<L> * sizeof(T);
    if (wide::fits_narrow({srcStep, dstStep}, roi, P))
        return copy_image<T, L>(pSrc, static_cast<int>(srcStep), pDst, static_cast<int>(dstStep),
                                KeliSize{static_cast<std::int32_t>(roi.width), static_cast<std::int32_t>(roi.height)});
    constexpr std::int64_t kChunkBytes = 0x40000000;
    const std::int64_t rowBytes = roi.width * P;
    const bool nt = !has_alpha<L> && copy_detail::stream_copy(rowBytes, double(rowBytes) * double(roi.height));
    for (std::int64_t y = 0; y < roi.height; ++y) {
        const unsigned char* s = copy_detail::bytes(pSrc) + y * srcStep;
        unsigned char* d = copy_detail::bytes(pDst) + y * dstStep;
        for (std::int64_t x = 0; x < rowBytes; x += kChunkBytes) {
            const std::size_t n = static_cast<std::size_t>(rowBytes - x < kChunkBytes ? rowBytes - x : kChunkBytes);
            if constexpr (has_alpha<L>)
                rows::copy_ac4_row(reinterpret_cast<const T*>(s + x), reinterpret_cast<T*>(d + x), n / P);
            else if (nt)
                rows::copy_bytes_nt(s + x, d + x, n);
            else
                rows::copy_bytes(s + x, d + x, n);
        }
    }
    if (nt) simd::fence();
    return kelStatusOk;
}

// keliCopyManaged_8u_C1R: the caller picks the kind of stores (and loads). Flags are not
// checked; the streaming-load bit wins over the non-temporal-store bit.
inline KelStatus copy_managed(const Kel8u* pSrc, int srcStep, Kel8u* pDst, int dstStep, KeliSize roi, int flags)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::size(roi)})) return s;
    std::int64_t rowBytes = roi.width, height = roi.height;
    if (srcStep == rowBytes && dstStep == rowBytes) rowBytes *= height, height = 1;
    auto row = flags & kelCopyNonTemporalLoad    ? rows::copy_bytes_managed<rows::ManagedCopy::NonTemporalLoad>
               : flags & kelCopyNonTemporalStore ? rows::copy_bytes_managed<rows::ManagedCopy::NonTemporalStore>
                                               : rows::copy_bytes_managed<rows::ManagedCopy::Ordinary>;
    const Kel8u* s = pSrc;
    Kel8u* d = pDst;
    for (std::int64_t y = 0; y < height; ++y, s += srcStep, d += dstStep) row(s, d, static_cast<std::size_t>(rowBytes));
    if (flags & (kelCopyNonTemporalLoad | kelCopyNonTemporalStore)) simd::fence();
    return kelStatusOk;
}

// The channel forms, each a byte map of one pixel.
enum class ChannelCopy { C3C1, C4C1, C1C3, C1C4, C3CR, C4CR, C3AC4, AC4C3 };

constexpr int channels_in(ChannelCopy f)
{
    constexpr int n[] = {3, 4, 1, 1, 3, 4, 3, 4};
    return n[static_cast<int>(f)];
}

constexpr int channels_out(ChannelCopy f)
{
    constexpr int n[] = {1, 1, 3, 4, 3, 4, 4, 3};
    return n[static_cast<int>(f)];
}

// Every form but C3AC4 and AC4C3 addresses one channel inside its pixels.
template <class T, ChannelCopy F> inline rows::PixelMap channel_copy_map()
{
    constexpr int K = rows::kKeepByte;
    static const int kSource[][4] = {{0}, {0}, {0, K, K}, {0, K, K, K}, {0, K, K}, {0, K, K, K}, {0, 1, 2, K}, {0, 1, 2}};
    rows::PixelMap m = rows::channel_map<T>(channels_in(F), channels_out(F), kSource[static_cast<int>(F)]);
    m.channelPointers = F != ChannelCopy::C3AC4 && F != ChannelCopy::AC4C3;
    return m;
}

template <class T, ChannelCopy F>
KelStatus copy_channels(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::size(roi)})) return s;
    const rows::ShufflePlan plan = rows::make_plan(channel_copy_map<T, F>());
    const void* in[] = {pSrc};
    void* out[] = {pDst};
    constexpr int Cin = channels_in(F), Cout = channels_out(F);
    if constexpr (F == ChannelCopy::C3CR || F == ChannelCopy::C4CR) {
        // One channel copied within one buffer: where a row's source and destination overlap, the
        // result is that of a forward element-by-element loop, which only a scalar loop gives.
        constexpr std::int64_t C = Cin;
        const std::int64_t span = (std::int64_t(roi.width) - 1) * C * std::int64_t(sizeof(T)) + std::int64_t(sizeof(T));
        bool overlap = false;
        const auto* s = copy_detail::bytes(pSrc);
        const auto* d = copy_detail::bytes(pDst);
        for (std::int64_t y = 0; y < roi.height && !overlap; ++y, s += srcStep, d += dstStep)
            overlap = s < d + span && d < s + span;
        if (overlap) {
            for (std::int64_t y = 0; y < roi.height; ++y) {
                for (std::int64_t x = 0; x < roi.width; ++x) pDst[x * C] = pSrc[x * C];
                pSrc = reinterpret_cast<const T*>(copy_detail::bytes(pSrc) + srcStep);
                pDst = reinterpret_cast<T*>(copy_detail::bytes(pDst) + dstStep);
            }
            return kelStatusOk;
        }
    }
    shuffle_image<Cin, Cout, false, false>(plan, in, srcStep, out, dstStep, roi);
    return kelStatusOk;
}

// Interleaved to planar and back. Only the 32f members consider non-temporal stores: their
// traffic (every byte read and written) is 24 or 32 bytes a pixel.
template <class T, int C> inline bool planar_stream(KeliSize roi)
{
    if constexpr (!std::is_same_v<T, Kel32f>) return false;
    return use_nontemporal(std::uint64_t(roi.width) * std::uint64_t(roi.height) * (2 * C * sizeof(T)));
}

template <class T, int C>
KelStatus copy_to_planes(const T* pSrc, int srcStep, T* const* pDst, int dstStep, KeliSize roi)
{
    if (KelStatus s = check::pointers(pSrc, pDst)) return s;
    for (int k = 0; k < C; ++k)
        if (!pDst[k]) return kelStatusNullPtr;
    if (KelStatus s = check::size(roi)) return s;
    const int identity[] = {0, 1, 2, 3};
    rows::PixelMap m = rows::channel_map<T>(C, C, identity);
    m.outPlanar = true;
    const void* in[] = {pSrc};
    void* out[C];
    for (int k = 0; k < C; ++k) out[k] = pDst[k];
    shuffle_image<C, C, false, true>(rows::make_plan(m), in, srcStep, out, dstStep, roi, planar_stream<T, C>(roi));
    return kelStatusOk;
}

template <class T, int C>
KelStatus copy_from_planes(const T* const* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi)
{
    if (!pSrc) return kelStatusNullPtr;
    for (int k = 0; k < C; ++k)
        if (!pSrc[k]) return kelStatusNullPtr;
    if (KelStatus s = check::first({check::pointers(pDst), check::size(roi)})) return s;
    const int identity[] = {0, 1, 2, 3};
    rows::PixelMap m = rows::channel_map<T>(C, C, identity);
    m.inPlanar = true;
    const void* in[C];
    for (int k = 0; k < C; ++k) in[k] = pSrc[k];
    void* out[] = {pDst};
    shuffle_image<C, C, true, false>(rows::make_plan(m), in, srcStep, out, dstStep, roi, planar_stream<T, C>(roi));
    return kelStatusOk;
}

// Masked copy: C1, C3, C4 copy whole pixels, AC4 the colour.
template <class T, Layout L>
KelStatus copy_masked(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi, const Kel8u* pMask,
                      int maskStep)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pDst, pMask), check::size(roi)})) return s;
    constexpr std::size_t P = channels<L> * sizeof(T);
    constexpr std::size_t Colour = (has_alpha<L> ? 3 : channels<L>) * sizeof(T);
    const rows::MaskSpread<P> spread;
    std::size_t width = static_cast<std::size_t>(roi.width);
    std::int64_t height = roi.height;
    // The one-channel 8u copy runs an unpadded region as one run.
    if constexpr (P == 1)
        if (srcStep == roi.width && dstStep == roi.width && maskStep == roi.width && roi.width < 32768 &&
            roi.height < 32768)
            width *= static_cast<std::size_t>(height), height = 1;
    const unsigned char* s = copy_detail::bytes(pSrc);
    unsigned char* d = copy_detail::bytes(pDst);
    for (std::int64_t y = 0; y < height; ++y, s += srcStep, d += dstStep, pMask += maskStep)
        rows::masked_row<P, Colour>(rows::MaskedFromImage{s, P}, d, pMask, width, spread);
    return kelStatusOk;
}

}  // namespace keli
