// Row kernels of the adaptive thresholds, as edge-driver kernels: each call gets the mask's m
// rows for one output segment and writes valGT where the centre pixel lies above the
// neighbourhood's mean minus delta, valLE elsewhere.
//
// Box: the window sum S is exact (integer column sums kept up to date down the segment, as the
// box filter keeps them), and the test needs no division: with a = m * m,
//     src > S / a - delta  <=>  a * src - S > -a * delta  <=>  a * src - S > floor(-a * delta),
// the last because the left side is an integer. The floor is taken once per call in f64, where
// a * delta is exact, so every delta is honoured exactly and every route (interior, edge strips,
// in place, vector or not) gives the same pixels.
//
// Gauss: each row is filtered along x first (taps in index order), then the filtered rows are
// combined down the column (taps in index order), all in f32 with a multiply and an add per tap
// and no fused operation, then src > M - delta in f32. The filtered rows stay in a ring, so a
// segment below the last one filters only its entering row.
#pragma once

#include <smmintrin.h>

#include <cstdint>
#include <cstring>

#include "filter/rows/box.hpp"
#include "keli_types.h"

namespace keli::rows::adaptive {

// 16 mask bytes (all ones where the test holds) to valGT / valLE.
inline void store_choice16(Kel8u* out, __m128i yes, __m128i gt, __m128i le)
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_blendv_epi8(le, gt, yes));
}

inline __m128i load4u8(const Kel8u* p)
{
    std::int32_t v;
    std::memcpy(&v, p, 4);
    return _mm_cvtepu8_epi32(_mm_cvtsi32_si128(v));
}

class BoxKernel {
public:
    // `offset` is floor(-a * delta) held inside [-255 a - 1, 255 a], which changes no outcome.
    // Scratch: `col` (n + m - 1 entries) and, for wide masks, `prefix` (n + m entries).
    BoxKernel(int m, std::int64_t dstStep, std::uint32_t* col, std::uint32_t* prefix, std::int64_t offset, Kel8u gt,
              Kel8u le)
        : m_(m), area_(std::int64_t(m) * m), offset_(offset), gt_(gt), le_(le), columns_(m, dstStep, col), col_(col),
          prefix_(prefix), fits32_(255 * area_ + 1 < (std::int64_t(1) << 31))
    {
    }

    void operator()(const Kel8u* const* rows, Kel8u* out, std::int64_t n) const
    {
        columns_(rows, out, n, n + m_ - 1);
        const Kel8u* centre = rows[m_ >> 1] + (m_ >> 1);
        if (!fits32_) return wide(centre, out, n);
        const bool direct = m_ <= kDirectWidth;
        if (!direct) prefix_sums(n + m_ - 1);
        const __m128i area = _mm_set1_epi32(static_cast<std::int32_t>(area_));
        const __m128i offset = _mm_set1_epi32(static_cast<std::int32_t>(offset_));
        const __m128i gt = _mm_set1_epi8(static_cast<char>(gt_)), le = _mm_set1_epi8(static_cast<char>(le_));
        std::int64_t x = 0;
        for (; x + 16 <= n; x += 16) {
            __m128i yes[4];
            for (int g = 0; g < 4; ++g) {
                const std::int64_t k = x + 4 * g;
                const __m128i s = direct ? direct_sum(k) : prefix_sum(k);
                const __m128i t = _mm_sub_epi32(_mm_mullo_epi32(load4u8(centre + k), area), s);
                yes[g] = _mm_cmpgt_epi32(t, offset);
            }
            const __m128i mask = _mm_packs_epi16(_mm_packs_epi32(yes[0], yes[1]), _mm_packs_epi32(yes[2], yes[3]));
            store_choice16(out + x, mask, gt, le);
        }
        for (; x < n; ++x) {
            std::int64_t s = 0;
            for (int i = 0; i < m_; ++i) s += col_[x + i];
            out[x] = area_ * centre[x] - s > offset_ ? gt_ : le_;
        }
    }

private:
    // Narrow masks add their column sums directly, four outputs a vector; from 9 columns on,
    // the prefix sums' fixed cost (a scan and one difference) is the cheaper.
    static constexpr int kDirectWidth = 7;

    __m128i direct_sum(std::int64_t k) const
    {
        __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(col_ + k));
        for (int i = 1; i < m_; ++i) s = _mm_add_epi32(s, _mm_loadu_si128(reinterpret_cast<const __m128i*>(col_ + k + i)));
        return s;
    }

    // Wide masks: prefix[k] = col[0] + ... + col[k - 1] modulo 2^32, so a window sum is one
    // difference, exact because the true sum fits 31 bits.
    void prefix_sums(std::int64_t cols) const
    {
        prefix_[0] = 0;
        __m128i carry = _mm_setzero_si128();
        std::int64_t k = 0;
        for (; k + 4 <= cols; k += 4) {
            __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(col_ + k));
            v = _mm_add_epi32(v, _mm_slli_si128(v, 4));
            v = _mm_add_epi32(v, _mm_slli_si128(v, 8));
            v = _mm_add_epi32(v, carry);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(prefix_ + k + 1), v);
            carry = _mm_shuffle_epi32(v, 0xFF);
        }
        for (; k < cols; ++k) prefix_[k + 1] = prefix_[k] + col_[k];
    }

    __m128i prefix_sum(std::int64_t k) const
    {
        return _mm_sub_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(prefix_ + k + m_)),
                             _mm_loadu_si128(reinterpret_cast<const __m128i*>(prefix_ + k)));
    }

    // Masks past 2902 pixels a side: a * src - S leaves 32 bits, so the window slides in 64.
    void wide(const Kel8u* centre, Kel8u* out, std::int64_t n) const
    {
        std::int64_t s = 0;
        for (int i = 0; i < m_; ++i) s += col_[i];
        for (std::int64_t x = 0; x < n; ++x) {
            out[x] = area_ * centre[x] - s > offset_ ? gt_ : le_;
            if (x + 1 < n) s += std::int64_t(col_[x + m_]) - col_[x];
        }
    }

    int m_;
    std::int64_t area_, offset_;
    Kel8u gt_, le_;
    box::RunningColumns<Kel8u> columns_;
    std::uint32_t* col_;
    std::uint32_t* prefix_;
    bool fits32_;
};

class GaussKernel {
public:
    // Scratch: `ring` of m filtered rows of `width` floats each, `line` of width + m - 1 floats,
    // `order` of m row pointers.
    GaussKernel(int m, const float* weights, std::int64_t dstStep, std::int64_t width, float* ring, float* line,
                const float** order, float delta, Kel8u gt, Kel8u le)
        : m_(m), w_(weights), dstStep_(dstStep), width_(width), ring_(ring), line_(line), order_(order), delta_(delta),
          gt_(gt), le_(le)
    {
    }

    void operator()(const Kel8u* const* rows, Kel8u* out, std::int64_t n) const
    {
        const bool below = m_ > 1 && n == lastN_ && rows[0] == lastSecond_ &&
                           reinterpret_cast<const unsigned char*>(out) == lastOut_ + dstStep_;
        if (below) {
            first_ = (first_ + 1) % m_;
            filter_row(rows[m_ - 1], slot(m_ - 1), n);
        } else {
            first_ = 0;
            for (int j = 0; j < m_; ++j) filter_row(rows[j], slot(j), n);
        }
        lastN_ = n, lastSecond_ = m_ > 1 ? rows[1] : nullptr, lastOut_ = reinterpret_cast<const unsigned char*>(out);
        for (int j = 0; j < m_; ++j) order_[j] = slot(j);
        decide(rows[m_ >> 1] + (m_ >> 1), out, n);
    }

private:
    float* slot(int j) const { return ring_ + ((first_ + j) % m_) * width_; }

    // to[x] = w0 * row[x] + w1 * row[x + 1] + ..., added in that order.
    void filter_row(const Kel8u* row, float* to, std::int64_t n) const
    {
        const std::int64_t cols = n + m_ - 1;
        std::int64_t k = 0;
        for (; k + 4 <= cols; k += 4) _mm_storeu_ps(line_ + k, _mm_cvtepi32_ps(load4u8(row + k)));
        for (; k < cols; ++k) line_[k] = row[k];
        std::int64_t x = 0;
        for (; x + 4 <= n; x += 4) {
            __m128 s = _mm_mul_ps(_mm_set1_ps(w_[0]), _mm_loadu_ps(line_ + x));
            for (int i = 1; i < m_; ++i) s = _mm_add_ps(s, _mm_mul_ps(_mm_set1_ps(w_[i]), _mm_loadu_ps(line_ + x + i)));
            _mm_storeu_ps(to + x, s);
        }
        for (; x < n; ++x) {
            float s = w_[0] * line_[x];
            for (int i = 1; i < m_; ++i) s = s + w_[i] * line_[x + i];
            to[x] = s;
        }
    }

    // The column pass and the test, src > M - delta.
    void decide(const Kel8u* centre, Kel8u* out, std::int64_t n) const
    {
        const __m128 delta = _mm_set1_ps(delta_);
        const __m128i gt = _mm_set1_epi8(static_cast<char>(gt_)), le = _mm_set1_epi8(static_cast<char>(le_));
        std::int64_t x = 0;
        for (; x + 16 <= n; x += 16) {
            __m128i yes[4];
            for (int g = 0; g < 4; ++g) {
                const std::int64_t k = x + 4 * g;
                __m128 s = _mm_mul_ps(_mm_set1_ps(w_[0]), _mm_loadu_ps(order_[0] + k));
                for (int j = 1; j < m_; ++j) s = _mm_add_ps(s, _mm_mul_ps(_mm_set1_ps(w_[j]), _mm_loadu_ps(order_[j] + k)));
                const __m128 src = _mm_cvtepi32_ps(load4u8(centre + k));
                yes[g] = _mm_castps_si128(_mm_cmpgt_ps(src, _mm_sub_ps(s, delta)));
            }
            const __m128i mask = _mm_packs_epi16(_mm_packs_epi32(yes[0], yes[1]), _mm_packs_epi32(yes[2], yes[3]));
            store_choice16(out + x, mask, gt, le);
        }
        for (; x < n; ++x) {
            float s = w_[0] * order_[0][x];
            for (int j = 1; j < m_; ++j) s = s + w_[j] * order_[j][x];
            out[x] = static_cast<float>(centre[x]) > s - delta_ ? gt_ : le_;
        }
    }

    int m_;
    const float* w_;
    std::int64_t dstStep_, width_;
    float* ring_;
    float* line_;
    const float** order_;
    float delta_;
    Kel8u gt_, le_;
    mutable int first_ = 0;
    mutable std::int64_t lastN_ = -1;
    mutable const Kel8u* lastSecond_ = nullptr;
    mutable const unsigned char* lastOut_ = nullptr;
};

}  // namespace keli::rows::adaptive
