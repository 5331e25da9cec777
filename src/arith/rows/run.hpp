// Row loops of the two-operand arithmetic: one run of elements through an op, whose second
// operand is either a second image or a constant repeating with the pixel's channels.
//
// An op holds both meanings of the operation; unlike the frame's static ops it is an object,
// so that per-call parameters (shift counts, biases) are set up once and stay in registers:
//
//     struct SomeOp {
//         using T = Kel8u;
//         static constexpr std::size_t kVectorFrom = 47;    // shorter runs stay scalar
//         __m128i apply(__m128i x, __m128i y) const;         // 16 bytes at a time
//         T apply(T x, T y) const;                           // one element
//     };
//
// The loop handles the elements before the destination's 16-byte boundary with the scalar
// apply, runs the vector apply with aligned stores (separate loops for each combination of
// aligned sources), and ends with the scalar apply: head, body and tail agree element for
// element, and no element is written twice, so in-place runs stay correct.
//
// With `Alpha` set the run is made of AC4 pixels: the scalar parts skip every fourth element,
// and the vector body merges each result with the destination's old contents under an element
// mask, so an alpha element is written back with the value it had.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "simd/sse.hpp"

namespace keli::rows {

// Element mask of the alpha elements of a vector whose first element is channel `phase` of a
// four-channel pixel.
template <class T> inline __m128i alpha_mask(std::size_t phase)
{
    const unsigned slot = static_cast<unsigned>((3 - phase) & 3);  // element of the first pixel
    if constexpr (sizeof(T) == 1) return _mm_set1_epi32(static_cast<int>(0xFFu << (8 * slot)));
    else if constexpr (sizeof(T) == 2) return _mm_set1_epi64x(static_cast<long long>(0xFFFFull << (16 * slot)));
    else return _mm_cvtepi8_epi32(_mm_cvtsi32_si128(static_cast<int>(0xFFu << (8 * slot))));
}

template <bool Alpha> constexpr bool colour_element(std::size_t i) { return !Alpha || (i & 3) != 3; }

template <bool Alpha, bool Aligned, class T, class R> inline void put(T* d, R v, __m128i keep)
{
    if constexpr (Alpha) {
        const __m128i old = Aligned ? _mm_load_si128(reinterpret_cast<const __m128i*>(d))
                                    : _mm_loadu_si128(reinterpret_cast<const __m128i*>(d));
        v = _mm_blendv_epi8(v, old, keep);
    } else {
        (void)keep;
    }
    if constexpr (Aligned) simd::storea(d, v);
    else simd::storeu(d, v);
}

// Ops that divide and warn of a zero divisor set kWatchesZeros and describe a zero with
// zero_mask(y) and is_zero(y); the run then watches its right operand as it reads it.
template <class Op, class = void> struct WatchesZeros : std::false_type {};
template <class Op>
struct WatchesZeros<Op, std::void_t<decltype(Op::kWatchesZeros)>> : std::bool_constant<Op::kWatchesZeros> {};

// dst[i] = op(x[i], y[i]) for i < n. Returns whether a colour element of y was a zero divisor
// (always false for ops that do not watch for one). Each y element is looked at before any
// store, so an in-place run cannot change the answer.
template <bool Alpha = false, class Op, class T = typename Op::T>
inline bool binary_run(const Op& given, const T* x, const T* y, T* d, std::size_t n)
{
    // A local copy: the stores (through a byte pointer that may alias anything) cannot reach it,
    // so the op's parameters stay in registers instead of being reloaded every turn.
    const Op op = given;
    constexpr std::size_t L = simd::lanes<T>;
    constexpr bool Watch = WatchesZeros<Op>::value;
    bool zeroMet = false;
    __m128i zeros = _mm_setzero_si128();
    auto scalar = [&](std::size_t at) {
        if (!colour_element<Alpha>(at)) return;
        if constexpr (Watch) zeroMet |= Op::is_zero(y[at]);
        d[at] = op.apply(x[at], y[at]);
    };
    std::size_t i = 0;
    if (n >= Op::kVectorFrom) {
        std::size_t head = simd::head_to_align(d);
        const bool alignedDst = head != simd::npos;
        if (!alignedDst) head = 0;
        for (; i < head; ++i) scalar(i);
        const std::size_t body = head + (n - head) / L * L;
        const __m128i keep = Alpha ? alpha_mask<T>(head & 3) : _mm_setzero_si128();
        auto loop = [&](auto alignX, auto alignY, auto alignD) {
            constexpr bool AX = decltype(alignX)::value, AY = decltype(alignY)::value;
            constexpr bool AD = decltype(alignD)::value;
            auto one = [&](std::size_t at) {
                const auto vx = AX ? simd::loada(x + at) : simd::loadu(x + at);
                const auto vy = AY ? simd::loada(y + at) : simd::loadu(y + at);
                if constexpr (Watch) {
                    const __m128i z = Op::zero_mask(vy);
                    zeros = _mm_or_si128(zeros, Alpha ? _mm_andnot_si128(keep, z) : z);
                }
                put<Alpha, AD>(d + at, op.apply(vx, vy), keep);
            };
            // A cache line a turn, with the lines ahead asked for: the loop's own count and
            // branch would otherwise take a third of the issue slots of a one-instruction op,
            // and out of cache the prefetches keep all three streams in flight.
            for (; i + 4 * L <= body; i += 4 * L) {
                simd::prefetch_ahead(x + i);
                simd::prefetch_ahead(y + i);
                simd::prefetch_ahead(d + i);
                for (std::size_t k = 0; k < 4 * L; k += L) one(i + k);
            }
            for (; i < body; i += L) one(i);
        };
        using Yes = std::true_type;
        using No = std::false_type;
        const bool ax = simd::aligned16(x + i), ay = simd::aligned16(y + i);
        if (!alignedDst) loop(No{}, No{}, No{});
        else if (ax && ay) loop(Yes{}, Yes{}, Yes{});
        else if (ax) loop(Yes{}, No{}, Yes{});
        else if (ay) loop(No{}, Yes{}, Yes{});
        else loop(No{}, No{}, Yes{});
    }
    for (; i < n; ++i) scalar(i);
    return zeroMet || !_mm_testz_si128(zeros, zeros);
}

// dst[i] = op(x[i], value[i % C]) for i < n, C = 1, 3 or 4 channels (AC4: C = 4 with Alpha).
// The constant is laid out on the stack as P vectors that repeat on a vector boundary (three
// for three channels, one otherwise), starting at the channel of the first vector element.
template <std::size_t C, bool Alpha = false, class Op, class T = typename Op::T>
inline void constant_run(const Op& given, const T* x, const T* value, T* d, std::size_t n)
{
    const Op op = given;  // kept in registers, as in binary_run
    constexpr std::size_t L = simd::lanes<T>;
    constexpr std::size_t P = C == 3 ? 3 : 1;
    std::size_t i = 0, c = 0;  // c == i % C
    auto scalar = [&](std::size_t end) {
        for (; i < end; ++i) {
            if (colour_element<Alpha>(i)) d[i] = op.apply(x[i], value[c]);
            c = c + 1 == C ? 0 : c + 1;
        }
    };
    if (n >= Op::kVectorFrom) {
        std::size_t head = simd::head_to_align(d);
        const bool alignedDst = head != simd::npos;
        if (!alignedDst) head = 0;
        scalar(head);
        alignas(16) T lane[P * L];
        for (std::size_t e = 0; e < P * L; ++e) lane[e] = value[(c + e) % C];
        simd::reg_t<T> pattern[P];
        for (std::size_t p = 0; p < P; ++p) pattern[p] = simd::loada(lane + p * L);
        const __m128i keep = Alpha ? alpha_mask<T>(head & 3) : _mm_setzero_si128();
        const std::size_t body = head + (n - head) / L * L;
        auto loop = [&](auto alignX, auto alignD) {
            constexpr bool AX = decltype(alignX)::value, AD = decltype(alignD)::value;
            auto one = [&](std::size_t at, simd::reg_t<T> v) {
                put<Alpha, AD>(d + at, op.apply(AX ? simd::loada(x + at) : simd::loadu(x + at), v), keep);
            };
            for (; i + P * L <= body; i += P * L)
                for (std::size_t p = 0; p < P; ++p) one(i + p * L, pattern[p]);
            for (std::size_t p = 0; i < body; i += L, ++p) one(i, pattern[p]);
        };
        using Yes = std::true_type;
        using No = std::false_type;
        if (!alignedDst) loop(No{}, No{});
        else if (simd::aligned16(x + i)) loop(Yes{}, Yes{});
        else loop(No{}, Yes{});
        c = i % C;
    }
    scalar(n);
}

}  // namespace keli::rows
