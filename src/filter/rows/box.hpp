// Row kernels of the box filter and the window sums, as edge-driver kernels: each call gets the
// mask's rows for one output segment and writes its sums, finished by the member's rule.
//
// Integer sources keep every sum exact: column sums (mask height of pixels, one a column and
// channel) in 32-bit lanes with wrap-around, which is exact while a column's true sum fits, and
// window sums (mask width of column sums) in 64 bits. Walking down a segment, the column sums
// are updated by the entering row minus the leaving one (RunningColumns). Exact sums make
// every route (interior, strips, ring, in place) give the same pixels.
//
// 32f sums do not run: a running float sum would depend on where its run began. Each window is
// summed the same way everywhere: column sums of the mask's rows top to bottom, then the mask's
// column sums left to right.
#pragma once

#include <smmintrin.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

#include "frame/layout.hpp"
#include "keli_types.h"

namespace keli::rows::box {

// ---- column sums ------------------------------------------------------------------------------

// Widened loads of four elements into 32-bit lanes.
inline __m128i widen4(const Kel8u* p)
{
    std::int32_t v;
    std::memcpy(&v, p, 4);
    return _mm_cvtepu8_epi32(_mm_cvtsi32_si128(v));
}
inline __m128i widen4(const Kel16u* p) { return _mm_cvtepu16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))); }
inline __m128i widen4(const Kel16s* p) { return _mm_cvtepi16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))); }

template <class T> inline std::uint32_t widen1(T v) { return static_cast<std::uint32_t>(static_cast<std::int32_t>(v)); }

// col[k] = sum of rows[j][k], j = 0 .. kh - 1, for k < n.
template <class T> void column_sums(const T* const* rows, int kh, std::uint32_t* col, std::int64_t n)
{
    std::int64_t k = 0;
    for (; k + 4 <= n; k += 4) {
        __m128i s = widen4(rows[0] + k);
        for (int j = 1; j < kh; ++j) s = _mm_add_epi32(s, widen4(rows[j] + k));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(col + k), s);
    }
    for (; k < n; ++k) {
        std::uint32_t s = widen1(rows[0][k]);
        for (int j = 1; j < kh; ++j) s += widen1(rows[j][k]);
        col[k] = s;
    }
}

// col[k] += enter[k] - leave[k], for k < n.
template <class T> void update_column_sums(const T* enter, const T* leave, std::uint32_t* col, std::int64_t n)
{
    std::int64_t k = 0;
    for (; k + 4 <= n; k += 4) {
        __m128i* c = reinterpret_cast<__m128i*>(col + k);
        const __m128i d = _mm_sub_epi32(widen4(enter + k), widen4(leave + k));
        _mm_storeu_si128(c, _mm_add_epi32(_mm_loadu_si128(c), d));
    }
    for (; k < n; ++k) col[k] += widen1(enter[k]) - widen1(leave[k]);
}

// The column sums of a kernel's segments, kept up to date as the driver walks down: a segment
// directly below the last one (same width, next output row, window one row lower) updates the
// sums by the entering row minus the leaving one, so the cost per pixel does not grow with the
// mask height; any other segment recounts them.
template <class T> class RunningColumns {
public:
    RunningColumns(int kh, std::int64_t dstStep, std::uint32_t* col) : kh_(kh), dstStep_(dstStep), col_(col) {}

    // Brings col[0 .. cols) up to the segment whose rows are `rows` and whose output is `out`.
    void operator()(const T* const* rows, const void* out, std::int64_t n, std::int64_t cols) const
    {
        const bool below = kh_ > 1 && n == lastN_ && rows[0] == lastSecond_ &&
                           static_cast<const unsigned char*>(out) == lastOut_ + dstStep_;
        if (below)
            update_column_sums(rows[kh_ - 1], lastFirst_, col_, cols);
        else
            column_sums(rows, kh_, col_, cols);
        lastN_ = n, lastFirst_ = rows[0], lastSecond_ = kh_ > 1 ? rows[1] : nullptr;
        lastOut_ = static_cast<const unsigned char*>(out);
    }

private:
    int kh_;
    std::int64_t dstStep_;
    std::uint32_t* col_;
    mutable std::int64_t lastN_ = -1;
    mutable const T* lastFirst_ = nullptr;
    mutable const T* lastSecond_ = nullptr;
    mutable const unsigned char* lastOut_ = nullptr;
};

// ---- finishing a sum ----------------------------------------------------------------------------

inline void pack4(Kel8u* d, __m128i v)
{
    const __m128i p = _mm_packus_epi16(_mm_packs_epi32(v, v), v);
    const std::int32_t w = _mm_cvtsi128_si32(p);
    std::memcpy(d, &w, 4);
}
inline void pack4(Kel16u* d, __m128i v) { _mm_storel_epi64(reinterpret_cast<__m128i*>(d), _mm_packus_epi32(v, v)); }
inline void pack4(Kel16s* d, __m128i v) { _mm_storel_epi64(reinterpret_cast<__m128i*>(d), _mm_packs_epi32(v, v)); }

// A finisher turns an exact window sum into an output: one at a time from 64 bits, or four at a
// time from sums known to fit 32 bits; both give the same values.

// The mean of an integer box: floor(S * (1/area) + 0.5) in f32 with the reciprocal rounded once.
// The floor (rather than truncation) rounds a negative mean half up like a positive one, so a
// 1x1 mask gives every pixel back; for 8u and 16u the two are the same. For every 8u sum this
// also equals the 3x3, 5x5 and 7x7 fixed-point constants (S * 29128 + 2^17) >> 18 and kin.
template <class T> struct MeanOf {
    using Out = T;
    float inv;
    Out operator()(std::int64_t s) const
    {
        const float m = std::floor(static_cast<float>(s) * inv + 0.5f);
        const float lo = float(std::numeric_limits<T>::min()), hi = float(std::numeric_limits<T>::max());
        return static_cast<Out>(m < lo ? lo : m > hi ? hi : m);
    }
    void four(Out* d, __m128i s) const
    {
        const __m128 m = _mm_floor_ps(_mm_add_ps(_mm_mul_ps(_mm_cvtepi32_ps(s), _mm_set1_ps(inv)), _mm_set1_ps(0.5f)));
        pack4(d, _mm_cvttps_epi32(m));
    }
};

// Window sums: the exact integer (8u32s, which wraps past 32 bits) or that integer rounded once
// to f32.
struct SumAs32s {
    using Out = Kel32s;
    Out operator()(std::int64_t s) const { return static_cast<Out>(static_cast<std::uint32_t>(s)); }
    void four(Out* d, __m128i s) const { _mm_storeu_si128(reinterpret_cast<__m128i*>(d), s); }
};
struct SumAs32f {
    using Out = Kel32f;
    Out operator()(std::int64_t s) const { return static_cast<Out>(s); }
    void four(Out* d, __m128i s) const { _mm_storeu_ps(d, _mm_cvtepi32_ps(s)); }
};

// ---- the integer kernel ---------------------------------------------------------------------

// Largest magnitude a window sum of this type and area can reach.
template <class T> constexpr std::uint64_t max_magnitude() { return std::numeric_limits<T>::is_signed ? 32768u : std::numeric_limits<T>::max(); }

// Scratch: the column sums, (segment width + kw - 1) * C of them.
template <class T, Layout L, class Finish> class IntegerKernel {
public:
    static constexpr int C = int(channels<L>);
    static constexpr int kWritten = has_alpha<L> ? 3 : C;
    using D = typename Finish::Out;

    IntegerKernel(int kw, int kh, std::int64_t dstStep, std::uint32_t* col, Finish finish)
        : kw_(kw), columns_(kh, dstStep, col), col_(col), finish_(finish),
          fits32_(max_magnitude<T>() * std::uint64_t(kw) * std::uint64_t(kh) < (std::uint64_t(1) << 31))
    {
    }

    void operator()(const T* const* rows, D* out, std::int64_t n) const
    {
        columns_(rows, out, n, (n + kw_ - 1) * C);
        if (!fits32_)
            for (int c = 0; c < kWritten; ++c) slide(c, out, n);
        else if (kw_ <= (C == 1 ? kDirectWidth1 : kDirectWidthN))
            direct(out, n);
        else if (C == 1)
            running(out, n);
        else
            running_pixels(out, n);
    }

private:
    // Masks of one or two columns add their column sums in vector lanes. Wider ones slide: a
    // window sum is the one before it plus the column entering minus the one leaving, exact in
    // wrapping 32-bit lanes since the true sums fit; measured, sliding wins from three columns
    // on (it has no loop over the mask).
    static constexpr int kDirectWidth1 = 2, kDirectWidthN = 2;

    void emit(D* out, __m128i s) const
    {
        if constexpr (C == 4 && !has_alpha<L>) {
            finish_.four(out, s);
        } else {
            D res[4];
            finish_.four(res, s);
            for (int c = 0; c < kWritten; ++c) out[c] = res[c];
        }
    }

    void direct(D* out, std::int64_t n) const
    {
        const std::int64_t outs = n * C;
        std::int64_t e = 0;
        for (; e + 4 <= outs; e += 4) {
            __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(col_ + e));
            for (int i = 1; i < kw_; ++i)
                s = _mm_add_epi32(s, _mm_loadu_si128(reinterpret_cast<const __m128i*>(col_ + e + i * C)));
            if constexpr (has_alpha<L>)
                emit(out + e, s);
            else
                finish_.four(out + e, s);
        }
        for (; e < outs; ++e) {
            if (has_alpha<L> && e % 4 == 3) continue;
            std::int64_t s = 0;
            for (int i = 0; i < kw_; ++i) s += signed_col(e + i * C);
            out[e] = finish_(s);
        }
    }

    // One channel: four sums a step. With d[i] = col[x - 1 + i + kw] - col[x - 1 + i], the sums
    // x .. x + 3 are the last sum before them plus the running totals of d, a scan in register.
    void running(D* out, std::int64_t n) const
    {
        if (n < 4) return direct(out, n);
        __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(col_));
        for (int i = 1; i < kw_; ++i) s = _mm_add_epi32(s, _mm_loadu_si128(reinterpret_cast<const __m128i*>(col_ + i)));
        finish_.four(out, s);
        std::int64_t x = 4;
        for (; x + 4 <= n; x += 4) {
            __m128i d = _mm_sub_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(col_ + x - 1 + kw_)),
                                      _mm_loadu_si128(reinterpret_cast<const __m128i*>(col_ + x - 1)));
            d = _mm_add_epi32(d, _mm_slli_si128(d, 4));
            d = _mm_add_epi32(d, _mm_slli_si128(d, 8));
            s = _mm_add_epi32(_mm_shuffle_epi32(s, 0xFF), d);
            finish_.four(out + x, s);
        }
        std::int64_t last = static_cast<std::int32_t>(_mm_extract_epi32(s, 3));
        for (; x < n; ++x) {
            last += signed_col(x - 1 + kw_) - signed_col(x - 1);
            out[x] = finish_(last);
        }
    }

    // Three or four channels: a pixel's sums in one vector, slid a pixel a step. Three-channel
    // loads take one lane beyond the pixel, which is left unwritten (the scratch holds one
    // column sum of slack for the last).
    void running_pixels(D* out, std::int64_t n) const
    {
        const auto at = [this](std::int64_t x) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(col_ + x * C)); };
        __m128i s = at(0);
        for (int i = 1; i < kw_; ++i) s = _mm_add_epi32(s, at(i));
        emit(out, s);
        for (std::int64_t x = 1; x < n; ++x) {
            s = _mm_add_epi32(s, _mm_sub_epi32(at(x - 1 + kw_), at(x - 1)));
            emit(out + x * C, s);
        }
    }

    // Sums past 31 bits: channel c along the segment in 64 bits, one column in, one out.
    void slide(int c, D* out, std::int64_t n) const
    {
        std::int64_t s = 0;
        for (int i = 0; i < kw_; ++i) s += signed_col(c + i * C);
        for (std::int64_t x = 0; x < n; ++x) {
            out[x * C + c] = finish_(s);
            if (x + 1 < n) s += signed_col(c + (x + kw_) * C) - signed_col(c + x * C);
        }
    }

    // A column sum as the signed value it stands for (16s columns may be negative).
    std::int64_t signed_col(std::int64_t k) const
    {
        if constexpr (std::numeric_limits<T>::is_signed) return static_cast<std::int32_t>(col_[k]);
        return col_[k];
    }

    int kw_;
    RunningColumns<T> columns_;
    std::uint32_t* col_;
    Finish finish_;
    bool fits32_;
};

// ---- the 32f kernel -------------------------------------------------------------------------

// Scratch: the column sums, (segment width + kw - 1) * C floats. `scale` multiplies the window
// sum (the reciprocal of the area for the mean); with `plain` the sum is stored as it is.
template <Layout L> class FloatKernel {
public:
    static constexpr int C = int(channels<L>);

    FloatKernel(int kw, int kh, float* col, float scale, bool plain)
        : kw_(kw), kh_(kh), col_(col), scale_(scale), plain_(plain)
    {
    }

    void operator()(const Kel32f* const* rows, Kel32f* out, std::int64_t n) const
    {
        const std::int64_t cols = (n + kw_ - 1) * C, outs = n * C;
        std::int64_t k = 0;
        for (; k + 4 <= cols; k += 4) {
            __m128 s = _mm_loadu_ps(rows[0] + k);
            for (int j = 1; j < kh_; ++j) s = _mm_add_ps(s, _mm_loadu_ps(rows[j] + k));
            _mm_storeu_ps(col_ + k, s);
        }
        for (; k < cols; ++k) {
            float s = rows[0][k];
            for (int j = 1; j < kh_; ++j) s += rows[j][k];
            col_[k] = s;
        }
        const __m128 scale = _mm_set1_ps(scale_);
        std::int64_t e = 0;
        for (; e + 4 <= outs; e += 4) {
            __m128 s = _mm_loadu_ps(col_ + e);
            for (int i = 1; i < kw_; ++i) s = _mm_add_ps(s, _mm_loadu_ps(col_ + e + i * C));
            if (!plain_) s = _mm_mul_ps(s, scale);
            if constexpr (has_alpha<L>) s = _mm_blend_ps(s, _mm_loadu_ps(out + e), 8);
            _mm_storeu_ps(out + e, s);
        }
        for (; e < outs; ++e) {
            if (has_alpha<L> && e % 4 == 3) continue;
            float s = col_[e];
            for (int i = 1; i < kw_; ++i) s += col_[e + i * C];
            out[e] = plain_ ? s : s * scale_;
        }
    }

private:
    int kw_, kh_;
    float* col_;
    float scale_;
    bool plain_;
};

}  // namespace keli::rows::box
