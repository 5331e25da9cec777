// The row loop of the elementary functions: one source run through an op that may flag some of
// its inputs (a zero or a negative argument), returning which flags the colour elements raised.
//
//     struct SomeOp {
//         using T = ...;
//         static constexpr std::size_t kVectorFrom = ...;
//         simd::reg_t<T> apply(simd::reg_t<T> x) const;   T apply(T x) const;
//         __m128i zero(simd::reg_t<T> x) const;           bool zero(T x) const;      // flagged inputs
//         __m128i negative(simd::reg_t<T> x) const;       bool negative(T x) const;
//         // optional: one test that no lane is flagged or special, and the result then
//         bool plain(simd::reg_t<T> x) const;             simd::reg_t<T> apply_plain(simd::reg_t<T> x) const;
//     };
//
// As in the arithmetic's loops the elements before the destination's 16-byte boundary and after
// the last whole vector go through the scalar apply, no element is written twice, and with
// `Alpha` the run is made of AC4 pixels whose fourth elements are neither written nor flagged.
#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>

#include "arith/rows/run.hpp"
#include "simd/sse.hpp"

namespace keli::rows {

struct Flags {
    bool zero = false, negative = false;
};

template <class Op, class = void> struct HasPlain : std::false_type {};
template <class Op>
struct HasPlain<Op, std::void_t<decltype(std::declval<const Op&>().plain(std::declval<simd::reg_t<typename Op::T>>()))>>
    : std::true_type {};

template <bool Alpha, class Op, class T = typename Op::T>
inline Flags flagged_run(const Op& given, const T* s, T* d, std::size_t n)
{
    const Op op = given;
    constexpr std::size_t L = simd::lanes<T>;
    Flags f;
    __m128i zeros = _mm_setzero_si128(), negatives = _mm_setzero_si128();
    auto scalar = [&](std::size_t at) {
        if (!colour_element<Alpha>(at)) return;
        const T x = s[at];
        f.zero |= op.zero(x);
        f.negative |= op.negative(x);
        d[at] = op.apply(x);
    };
    std::size_t i = 0;
    if (n >= Op::kVectorFrom) {
        std::size_t head = simd::head_to_align(d);
        const bool alignedDst = head != simd::npos;
        if (!alignedDst) head = 0;
        for (; i < head; ++i) scalar(i);
        const std::size_t body = head + (n - head) / L * L;
        const __m128i keep = Alpha ? alpha_mask<T>(head & 3) : _mm_setzero_si128();
        auto loop = [&](auto alignS, auto alignD) {
            constexpr bool AS = decltype(alignS)::value, AD = decltype(alignD)::value;
            auto one = [&](std::size_t at) {
                const auto x = AS ? simd::loada(s + at) : simd::loadu(s + at);
                auto store = [&](auto r) {
                    if constexpr (std::is_same_v<T, Kel32f>)
                        put<Alpha, AD>(reinterpret_cast<Kel32s*>(d + at), _mm_castps_si128(r), keep);
                    else put<Alpha, AD>(d + at, r, keep);
                };
                if constexpr (HasPlain<Op>::value) {
                    if (op.plain(x)) return store(op.apply_plain(x));
                }
                zeros = _mm_or_si128(zeros, _mm_andnot_si128(keep, op.zero(x)));
                negatives = _mm_or_si128(negatives, _mm_andnot_si128(keep, op.negative(x)));
                store(op.apply(x));
            };
            // A cache line a turn with the lines ahead asked for, which keeps the cheap ops at
            // memory speed out of cache.
            for (; i + 4 * L <= body; i += 4 * L) {
                simd::prefetch_ahead(s + i);
                simd::prefetch_ahead(d + i);
                for (std::size_t k = 0; k < 4 * L; k += L) one(i + k);
            }
            for (; i < body; i += L) one(i);
        };
        using Yes = std::true_type;
        using No = std::false_type;
        if (!alignedDst) loop(No{}, No{});
        else if (simd::aligned16(s + i)) loop(Yes{}, Yes{});
        else loop(No{}, Yes{});
    }
    for (; i < n; ++i) scalar(i);
    f.zero |= !_mm_testz_si128(zeros, zeros);
    f.negative |= !_mm_testz_si128(negatives, negatives);
    return f;
}

// A table of the 256 results for 8u sources, of a function whose only flagged input is 0 (the
// logarithm's). Lookups are scalar: a load of the element, one of its result and a store, no
// more than the plainest table loop; the flag comes from a vector scan for zeros beforehand
// (beforehand since in place the lookups overwrite the source).
struct ByteTable {
    Kel8u entry[256];
};

// Whether a colour element of the run is 0.
template <bool Alpha> inline bool has_zero_element(const Kel8u* s, std::size_t n)
{
    const __m128i keep = Alpha ? alpha_mask<Kel8u>(0) : _mm_setzero_si128();
    __m128i zeros = _mm_setzero_si128();
    std::size_t i = 0;
    for (; i + 16 <= n; i += 16)
        zeros = _mm_or_si128(zeros, _mm_andnot_si128(keep, _mm_cmpeq_epi8(simd::loadu(s + i), _mm_setzero_si128())));
    bool zero = !_mm_testz_si128(zeros, zeros);
    for (; i < n; ++i) zero |= colour_element<Alpha>(i) && s[i] == 0;
    return zero;
}

template <bool Alpha> inline Flags table_run(const ByteTable& t, const Kel8u* s, Kel8u* d, std::size_t n)
{
    Flags f;
    f.zero = has_zero_element<Alpha>(s, n);
    std::size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        const Kel8u a = t.entry[s[i]], b = t.entry[s[i + 1]], c = t.entry[s[i + 2]];
        d[i] = a, d[i + 1] = b, d[i + 2] = c;
        if constexpr (!Alpha) d[i + 3] = t.entry[s[i + 3]];
    }
    for (; i < n; ++i)
        if (colour_element<Alpha>(i)) d[i] = t.entry[s[i]];
    return f;
}

}  // namespace keli::rows
