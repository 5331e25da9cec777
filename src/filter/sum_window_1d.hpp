// keliSumWindowRow and keliSumWindowColumn: one-dimensional window sums in f32, and
// keliFilterBox_64f_C1R, the border-less mean in f64. None handles borders: the caller's
// image holds every pixel a window reaches.
//
// Row form: dst(x, y) = sum of src(x - anchor + i, y), i = 0 .. mask - 1, added left to right;
// the column form adds top to bottom. Every output is summed on its own in that order (vector
// lanes hold neighbouring outputs, never partial sums of one), so no value depends on where a
// row starts. Checks: src, dst null; mask below 1 (kelStatusBadMaskSize); the anchor, taken as
// unsigned, at or past the mask (kelStatusBadAnchor). Sizes and steps are not checked: an empty
// region writes nothing.
#pragma once

#include <smmintrin.h>

#include <cstdint>
#include <type_traits>

#include "frame/check.hpp"
#include "frame/layout.hpp"
#include "keli_types.h"

namespace keli {

namespace sum1d_detail {

template <class T> inline __m128 load4(const T* p);
template <> inline __m128 load4(const Kel8u* p)
{
    std::int32_t v;
    __builtin_memcpy(&v, p, 4);
    return _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_cvtsi32_si128(v)));
}
template <> inline __m128 load4(const Kel16u* p)
{
    return _mm_cvtepi32_ps(_mm_cvtepu16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))));
}
template <> inline __m128 load4(const Kel16s* p)
{
    return _mm_cvtepi32_ps(_mm_cvtepi16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))));
}

inline KelStatus check(const void* src, const void* dst, int mask, int anchor)
{
    if (!src || !dst) return kelStatusNullPtr;
    if (mask < 1) return kelStatusBadMaskSize;
    if (static_cast<unsigned>(anchor) >= static_cast<unsigned>(mask)) return kelStatusBadAnchor;
    return kelStatusOk;
}

template <class T> inline __m128i widen4(const T* p)
{
    if constexpr (sizeof(T) == 1) {
        std::int32_t v;
        __builtin_memcpy(&v, p, 4);
        return _mm_cvtepu8_epi32(_mm_cvtsi32_si128(v));
    } else {
        const __m128i w = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
        return std::is_signed_v<T> ? _mm_cvtepi16_epi32(w) : _mm_cvtepu16_epi32(w);
    }
}

// Eight bytes in 16-bit lanes.
inline __m128i widen8(const Kel8u* p) { return _mm_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))); }

// While every partial sum is an integer below 2^24 in magnitude, each f32 addition is exact and
// the ordered f32 sum is the integer sum: it may then be formed in integer lanes and converted
// once, which gives the same bits.
template <class T> constexpr bool exact_in_f32(int mask)
{
    const std::int64_t largest = sizeof(T) == 1 ? 255 : std::is_signed_v<T> ? 32768 : 65535;
    return largest * mask < (std::int64_t(1) << 24);
}

// Masks from which a row of one channel is summed as a running sum: below, the direct sums of
// the few taps cost no more.
constexpr int kRunningFrom = 7;

// Whether a mask is summed as a running sum: long enough, and with sums exact in f32 (then exact
// in 32-bit lanes too). Byte rows also need the sums to fit their 16-bit lanes.
template <class T> constexpr bool runs(int mask)
{
    return mask >= kRunningFrom && exact_in_f32<T>(mask);
}
template <class T> constexpr bool runs_along_row(int mask) { return runs<T>(mask) && (sizeof(T) > 1 || mask <= 257); }

// One channel, n >= 1: out[0] directly, then out[e] = out[e - 1] + first[e - 1 + mask] -
// first[e - 1], a vector at a time: the differences' prefix sums over the lanes plus the last
// sum before them. Bytes run eight 16-bit lanes: every sum lies in [0, 255 mask], below 2^16,
// so lanes that wrap on the way still end on it. The sums are integers below 2^24, and so the
// ordered f32 sums.
template <class T> void running_sums(const T* first, int mask, Kel32f* out, std::int64_t n)
{
    constexpr bool bytes = sizeof(T) == 1;
    constexpr int L = bytes ? 8 : 4;
    std::int32_t total = 0;
    for (int i = 0; i < mask; ++i) total += first[i];
    out[0] = static_cast<float>(total);
    std::int64_t e = 1;
    __m128i carry = bytes ? _mm_set1_epi16(static_cast<short>(total)) : _mm_set1_epi32(total);
    for (; e + L <= n; e += L) {
        const T* gone = first + e - 1;
        if constexpr (bytes) {
            __m128i v = _mm_sub_epi16(widen8(gone + mask), widen8(gone));
            v = _mm_add_epi16(v, _mm_slli_si128(v, 2));
            v = _mm_add_epi16(v, _mm_slli_si128(v, 4));
            v = _mm_add_epi16(_mm_add_epi16(v, _mm_slli_si128(v, 8)), carry);
            carry = _mm_shuffle_epi8(v, _mm_set1_epi16(0x0F0E));
            _mm_storeu_ps(out + e, _mm_cvtepi32_ps(_mm_cvtepu16_epi32(v)));
            _mm_storeu_ps(out + e + 4, _mm_cvtepi32_ps(_mm_unpackhi_epi16(v, _mm_setzero_si128())));
        } else {
            __m128i v = _mm_sub_epi32(widen4(gone + mask), widen4(gone));
            v = _mm_add_epi32(v, _mm_slli_si128(v, 4));
            v = _mm_add_epi32(_mm_add_epi32(v, _mm_slli_si128(v, 8)), carry);
            carry = _mm_shuffle_epi32(v, 0xFF);
            _mm_storeu_ps(out + e, _mm_cvtepi32_ps(v));
        }
    }
    total = bytes ? static_cast<std::uint16_t>(_mm_extract_epi16(carry, 0)) : _mm_cvtsi128_si32(carry);
    for (; e < n; ++e) {
        total += first[e - 1 + mask] - first[e - 1];
        out[e] = static_cast<float>(total);
    }
}

// out[e] = above[e] + entering[e] - leaving[e]: the window sum one row further down. The sums
// are integers below 2^24, so they pass through 32-bit integers exactly, and no rounding mode
// can turn a zero into -0 as a float addition might.
template <class T>
void slide_down(const Kel32f* above, const T* leaving, const T* entering, Kel32f* out, std::int64_t n)
{
    std::int64_t e = 0;
    for (; e + 4 <= n; e += 4) {
        const __m128i was = _mm_cvttps_epi32(_mm_loadu_ps(above + e));
        const __m128i step = _mm_sub_epi32(widen4(entering + e), widen4(leaving + e));
        _mm_storeu_ps(out + e, _mm_cvtepi32_ps(_mm_add_epi32(was, step)));
    }
    for (; e < n; ++e)
        out[e] = static_cast<float>(static_cast<std::int32_t>(above[e]) + std::int32_t(entering[e]) - std::int32_t(leaving[e]));
}

// out[e] = sum of first[e + i * stride] for i < mask, in order, for e < n. `stride` is in
// elements: the channel count along a row, the row step down a column.
template <class T> void sums(const T* first, std::int64_t stride, int mask, Kel32f* out, std::int64_t n)
{
    std::int64_t e = 0;
    if (stride == 1 && runs_along_row<T>(mask) && n >= 1) return running_sums(first, mask, out, n);
    if (exact_in_f32<T>(mask)) {
        if constexpr (sizeof(T) == 1) {
            // Bytes: eight sums a turn in 16-bit lanes while 255 * mask fits them.
            if (mask <= 257)
                for (; e + 8 <= n; e += 8) {
                    __m128i s = _mm_setzero_si128();
                    for (int i = 0; i < mask; ++i)
                        s = _mm_add_epi16(s, widen8(first + e + i * stride));
                    _mm_storeu_ps(out + e, _mm_cvtepi32_ps(_mm_cvtepu16_epi32(s)));
                    _mm_storeu_ps(out + e + 4, _mm_cvtepi32_ps(_mm_cvtepu16_epi32(_mm_srli_si128(s, 8))));
                }
        }
        for (; e + 4 <= n; e += 4) {
            __m128i s = widen4(first + e);
            for (int i = 1; i < mask; ++i) s = _mm_add_epi32(s, widen4(first + e + i * stride));
            _mm_storeu_ps(out + e, _mm_cvtepi32_ps(s));
        }
        for (; e < n; ++e) {
            std::int32_t s = first[e];
            for (int i = 1; i < mask; ++i) s += first[e + i * stride];
            out[e] = static_cast<float>(s);
        }
        return;
    }
    for (; e + 4 <= n; e += 4) {
        __m128 s = load4(first + e);
        for (int i = 1; i < mask; ++i) s = _mm_add_ps(s, load4(first + e + i * stride));
        _mm_storeu_ps(out + e, s);
    }
    for (; e < n; ++e) {
        float s = static_cast<float>(first[e]);
        for (int i = 1; i < mask; ++i) s += static_cast<float>(first[e + i * stride]);
        out[e] = s;
    }
}

}  // namespace sum1d_detail

template <class T, Layout L>
KelStatus sum_window_row(const T* pSrc, int srcStep, Kel32f* pDst, int dstStep, KeliSize roi, int maskSize, int anchor)
{
    if (KelStatus s = sum1d_detail::check(pSrc, pDst, maskSize, anchor)) return s;
    constexpr std::int64_t C = channels<L>;
    for (std::int64_t y = 0; y < roi.height; ++y) {
        const T* row = reinterpret_cast<const T*>(reinterpret_cast<const unsigned char*>(pSrc) + y * srcStep);
        Kel32f* out = reinterpret_cast<Kel32f*>(reinterpret_cast<unsigned char*>(pDst) + y * dstStep);
        sum1d_detail::sums(row - anchor * C, C, maskSize, out, roi.width * C);
    }
    return kelStatusOk;
}

template <class T, Layout L>
KelStatus sum_window_column(const T* pSrc, int srcStep, Kel32f* pDst, int dstStep, KeliSize roi, int maskSize,
                            int anchor)
{
    if (KelStatus s = sum1d_detail::check(pSrc, pDst, maskSize, anchor)) return s;
    constexpr std::int64_t C = channels<L>;
    // Column steps count in elements; a step that is not a multiple of the element size would
    // put the rows off the element grid, which no image has.
    const std::int64_t stride = srcStep / std::int64_t(sizeof(T));
    const std::int64_t n = std::int64_t(roi.width) * C;
    // From the second row on, a long mask moves down as a running sum from the row above, while
    // the destination rows lie apart (the sum is read back from there).
    const bool running = sum1d_detail::runs<T>(maskSize) && (dstStep >= 4 * n || dstStep <= -4 * n);
    for (std::int64_t y = 0; y < roi.height; ++y) {
        const T* top = reinterpret_cast<const T*>(reinterpret_cast<const unsigned char*>(pSrc) +
                                                  (y - anchor) * std::int64_t(srcStep));
        Kel32f* out = reinterpret_cast<Kel32f*>(reinterpret_cast<unsigned char*>(pDst) + y * dstStep);
        if (running && y > 0)
            sum1d_detail::slide_down(reinterpret_cast<const Kel32f*>(reinterpret_cast<const unsigned char*>(out) - dstStep),
                                     top - stride, top + (maskSize - 1) * stride, out, n);
        else sum1d_detail::sums(top, stride, maskSize, out, n);
    }
    return kelStatusOk;
}

// The mean of the window at (x - anchor.x, y - anchor.y) over the mask, in f64: column sums of
// the mask's rows top to bottom, then the mask's column sums left to right, times the
// reciprocal of the area. The anchor is not checked. Scratch: none (two outputs at a time are
// summed straight from the rows).
inline KelStatus filter_box_64f(const Kel64f* pSrc, int srcStep, Kel64f* pDst, int dstStep, KeliSize roi,
                                KeliSize mask, KeliPoint anchor)
{
    if (KelStatus s = check::pointers(pSrc, pDst)) return s;
    if (roi.width < 1 || roi.height < 1 || mask.width < 1 || mask.height < 1) return kelStatusBadSize;
    if (srcStep < (std::int64_t(roi.width) + mask.width - 1) * 8 || dstStep < std::int64_t(roi.width) * 8)
        return kelStatusBadStep;
    const double inv = 1.0 / (double(mask.width) * double(mask.height));
    const std::int64_t W = roi.width, kw = mask.width, kh = mask.height;
    for (std::int64_t y = 0; y < roi.height; ++y) {
        const auto* top = reinterpret_cast<const unsigned char*>(pSrc) + (y - anchor.y) * std::int64_t(srcStep);
        Kel64f* out = reinterpret_cast<Kel64f*>(reinterpret_cast<unsigned char*>(pDst) + y * dstStep);
        const auto row = [&](std::int64_t j) { return reinterpret_cast<const Kel64f*>(top + j * srcStep) - anchor.x; };
        std::int64_t x = 0;
        for (; x + 2 <= W; x += 2) {
            __m128d s = _mm_setzero_pd();
            for (std::int64_t i = 0; i < kw; ++i) {
                __m128d c = _mm_loadu_pd(row(0) + x + i);
                for (std::int64_t j = 1; j < kh; ++j) c = _mm_add_pd(c, _mm_loadu_pd(row(j) + x + i));
                s = i == 0 ? c : _mm_add_pd(s, c);
            }
            _mm_storeu_pd(out + x, _mm_mul_pd(s, _mm_set1_pd(inv)));
        }
        for (; x < W; ++x) {
            double s = 0;
            for (std::int64_t i = 0; i < kw; ++i) {
                double c = row(0)[x + i];
                for (std::int64_t j = 1; j < kh; ++j) c += row(j)[x + i];
                s = i == 0 ? c : s + c;
            }
            out[x] = s * inv;
        }
    }
    return kelStatusOk;
}

}  // namespace keli
