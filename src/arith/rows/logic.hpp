// Ops of the bit operations, the constant shifts, the sign-and-magnitude conversion and the
// element-wise maximum and minimum. All work in the element's own width without widening.
//
// The two-operand ops (BitOp, ExtremumOp) run through the arithmetic's binary and constant row
// loops; a shift is a constant op whose second operand is the channel index of the element, so
// that each channel of a pixel can have its own count. Complement has one operand and runs
// through the frame's unary loop.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "arith/rows/add_sub.hpp"
#include "simd/sse.hpp"

namespace keli::rows {

enum class Bit { And, Or, Xor };

template <Bit K, class E> struct BitOp {
    using T = E;
    static constexpr std::size_t kVectorFrom = rows::kVectorFrom<T, false>;
    __m128i apply(__m128i x, __m128i y) const
    {
        if constexpr (K == Bit::And) return _mm_and_si128(x, y);
        else if constexpr (K == Bit::Or) return _mm_or_si128(x, y);
        else return _mm_xor_si128(x, y);
    }
    T apply(T x, T y) const
    {
        if constexpr (K == Bit::And) return static_cast<T>(x & y);
        else if constexpr (K == Bit::Or) return static_cast<T>(x | y);
        else return static_cast<T>(x ^ y);
    }
};

enum class Extremum { Max, Min };

// The instructions return their second operand when either operand is not-a-number, and so does
// `x > y ? x : y`: the scalar form is written that way, never through std::max, so that head,
// body and tail agree on every input.
template <Extremum K, class E> struct ExtremumOp {
    using T = E;
    static constexpr std::size_t kVectorFrom = std::is_same_v<T, Kel32f> ? 12 : rows::kVectorFrom<T, false>;
    simd::reg_t<T> apply(simd::reg_t<T> x, simd::reg_t<T> y) const
    {
        constexpr bool Max = K == Extremum::Max;
        if constexpr (std::is_same_v<T, Kel8u>) return Max ? _mm_max_epu8(x, y) : _mm_min_epu8(x, y);
        else if constexpr (std::is_same_v<T, Kel16u>) return Max ? _mm_max_epu16(x, y) : _mm_min_epu16(x, y);
        else if constexpr (std::is_same_v<T, Kel16s>) return Max ? _mm_max_epi16(x, y) : _mm_min_epi16(x, y);
        else return Max ? _mm_max_ps(x, y) : _mm_min_ps(x, y);
    }
    T apply(T x, T y) const
    {
        if constexpr (K == Extremum::Max) return x > y ? x : y;
        else return x < y ? x : y;
    }
};

// ---- shifts ------------------------------------------------------------------------------------

enum class Shift { Left, Right };

template <class T> constexpr std::uint32_t kBits = 8 * sizeof(T);

// One element shifted by `count`, any uint32. Bits fall off the end; a right shift of a signed
// element is arithmetic, so from the element's width on it leaves the sign in every bit.
template <Shift K, class T> constexpr T shift_element(T x, std::uint32_t count)
{
    using U = std::make_unsigned_t<T>;
    if constexpr (K == Shift::Left) {
        return count >= kBits<T> ? T(0) : static_cast<T>(static_cast<U>(static_cast<U>(x) << count));
    } else if constexpr (std::is_signed_v<T>) {
        return static_cast<T>(x >> std::min(count, kBits<T> - 1));
    } else {
        return count >= kBits<T> ? T(0) : static_cast<T>(x >> count);
    }
}

// A whole register shifted by one count. Bytes shift inside 16-bit lanes and the bits that cross
// into the neighbouring byte are masked off; the hardware shifts give 0 (or the sign) for counts
// at or above the lane's width, and the count is held below 64 so that it never wraps.
template <Shift K, class T> class ShiftRegister {
public:
    ShiftRegister() = default;
    explicit ShiftRegister(std::uint32_t count) : count_(_mm_cvtsi32_si128(static_cast<int>(std::min(count, 63u))))
    {
        if constexpr (sizeof(T) == 1) {
            const unsigned c = std::min(count, 8u);
            const unsigned keep = K == Shift::Left ? (0xFFu << c) & 0xFFu : 0xFFu >> c;
            mask_ = _mm_set1_epi8(static_cast<char>(keep));
        }
    }
    __m128i apply(__m128i x) const
    {
        if constexpr (sizeof(T) == 1) {
            const __m128i s = K == Shift::Left ? _mm_sll_epi16(x, count_) : _mm_srl_epi16(x, count_);
            return _mm_and_si128(s, mask_);
        } else if constexpr (sizeof(T) == 2) {
            if constexpr (K == Shift::Left) return _mm_sll_epi16(x, count_);
            else if constexpr (std::is_signed_v<T>) return _mm_sra_epi16(x, count_);
            else return _mm_srl_epi16(x, count_);
        } else {
            if constexpr (K == Shift::Left) return _mm_sll_epi32(x, count_);
            else return _mm_sra_epi32(x, count_);  // 32s only
        }
    }

private:
    __m128i count_{}, mask_{};
};

// All channels shifted by the same count; the second operand is ignored.
template <Shift K, class E> struct UniformShiftOp {
    using T = E;
    static constexpr std::size_t kVectorFrom = rows::kVectorFrom<T, false>;
    explicit UniformShiftOp(std::uint32_t count) : count_(count), reg_(count) {}
    __m128i apply(__m128i x, __m128i) const { return reg_.apply(x); }
    T apply(T x, T) const { return shift_element<K>(x, count_); }

private:
    std::uint32_t count_;
    ShiftRegister<K, T> reg_;
};

// Each channel by its own count: the second operand holds the channel index of each element, and
// the vector form shifts by every count and keeps, in each lane, the one of its channel.
template <Shift K, class E> struct ChannelShiftOp {
    using T = E;
    static constexpr std::size_t kVectorFrom = rows::kVectorFrom<T, false>;
    explicit ChannelShiftOp(const std::uint32_t* counts, std::size_t channels) : channels_(channels)
    {
        for (std::size_t c = 0; c < 4; ++c) {
            counts_[c] = counts[c < channels ? c : 0];
            regs_[c] = ShiftRegister<K, T>(counts_[c]);
        }
    }
    __m128i apply(__m128i x, __m128i channel) const
    {
        __m128i r = regs_[0].apply(x);
        for (std::size_t c = 1; c < channels_; ++c) r = _mm_blendv_epi8(r, regs_[c].apply(x), is(channel, c));
        return r;
    }
    T apply(T x, T channel) const { return shift_element<K>(x, counts_[static_cast<std::size_t>(channel)]); }

private:
    static __m128i is(__m128i channel, std::size_t c)
    {
        if constexpr (sizeof(T) == 1) return _mm_cmpeq_epi8(channel, _mm_set1_epi8(static_cast<char>(c)));
        else if constexpr (sizeof(T) == 2) return _mm_cmpeq_epi16(channel, _mm_set1_epi16(static_cast<short>(c)));
        else return _mm_cmpeq_epi32(channel, _mm_set1_epi32(static_cast<int>(c)));
    }
    std::size_t channels_;
    std::uint32_t counts_[4];
    ShiftRegister<K, T> regs_[4];
};

// ---- sign and magnitude ------------------------------------------------------------------------

// Two's complement to sign and magnitude: the sign bit stays and the other bits take the absolute
// value. The smallest value has only its sign bit as magnitude and stays as it is.
template <class E> struct ComplementOp {
    using T = E;
    static __m128i apply(__m128i x)
    {
        if constexpr (sizeof(T) == 1) return _mm_or_si128(_mm_and_si128(x, _mm_set1_epi8(-128)), _mm_abs_epi8(x));
        else if constexpr (sizeof(T) == 2)
            return _mm_or_si128(_mm_and_si128(x, _mm_set1_epi16(-32768)), _mm_abs_epi16(x));
        else return _mm_or_si128(_mm_and_si128(x, _mm_set1_epi32(INT32_MIN)), _mm_abs_epi32(x));
    }
    static T apply(T x)
    {
        using U = std::make_unsigned_t<T>;
        const U u = static_cast<U>(x);
        const U sign = static_cast<U>(U(1) << (kBits<T> - 1));
        const U magnitude = x < 0 ? static_cast<U>(U(0) - u) : u;
        return static_cast<T>(static_cast<U>((u & sign) | magnitude));
    }
};

}  // namespace keli::rows
