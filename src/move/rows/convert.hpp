// Conversion ops between element types: exact widening and saturating narrowing.
//
// An op converts a block of kBlock elements at a time, where kBlock fills one 16-byte register
// of the narrower type, so each block reads and writes whole registers on both sides:
//
//     struct SomeConvertOp {
//         using S = ...; using D = ...;
//         static constexpr std::size_t kBlock = 16 / min(sizeof(S), sizeof(D));
//         template <class Load, class Store> static void block(const S*, D*, Load, Store);
//         static D apply(S);                       // one element, the same meaning
//     };
//
// Integer to 32f follows the processor's current rounding mode on both paths: the vector
// conversions and the scalar casts round in the same place, so they agree in every mode.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "simd/sse.hpp"

namespace keli::rows {

namespace cvt {

// The four groups of four bytes of a register, each moved to the low end.
inline __m128i quarter1(__m128i v) { return _mm_srli_si128(v, 4); }
inline __m128i quarter2(__m128i v) { return _mm_srli_si128(v, 8); }
inline __m128i quarter3(__m128i v) { return _mm_srli_si128(v, 12); }

// 32-bit lanes unsigned to 32f with a single rounding: the high and low halves convert
// exactly, and their sum is the one rounded operation.
inline __m128 u32_to_ps(__m128i v)
{
    const __m128 hi = _mm_cvtepi32_ps(_mm_srli_epi32(v, 16));
    const __m128 lo = _mm_cvtepi32_ps(_mm_and_si128(v, _mm_set1_epi32(0xFFFF)));
    return _mm_add_ps(_mm_mul_ps(hi, _mm_set1_ps(65536.0f)), lo);
}

}  // namespace cvt

template <class S, class D> struct ConvertOp;

// ---- widening from 8 bits ----------------------------------------------------------------------

template <class D> struct WidenFrom8u {
    using S = Kel8u;
    static constexpr std::size_t kBlock = 16;
    template <class Load, class Store> static void block(const S* s, D* d, Load load, Store store)
    {
        const __m128i v = load(s);
        if constexpr (sizeof(D) == 2) {
            store(d, _mm_unpacklo_epi8(v, _mm_setzero_si128()));
            store(d + 8, _mm_unpackhi_epi8(v, _mm_setzero_si128()));
        } else {
            const __m128i q[4] = {_mm_cvtepu8_epi32(v), _mm_cvtepu8_epi32(cvt::quarter1(v)),
                                  _mm_cvtepu8_epi32(cvt::quarter2(v)), _mm_cvtepu8_epi32(cvt::quarter3(v))};
            for (int k = 0; k < 4; ++k) {
                if constexpr (std::is_same_v<D, Kel32f>) store(d + 4 * k, _mm_cvtepi32_ps(q[k]));
                else store(d + 4 * k, q[k]);
            }
        }
    }
    static D apply(S a) { return static_cast<D>(a); }
};

template <> struct ConvertOp<Kel8u, Kel16u> : WidenFrom8u<Kel16u> {};
template <> struct ConvertOp<Kel8u, Kel16s> : WidenFrom8u<Kel16s> {};
template <> struct ConvertOp<Kel8u, Kel32s> : WidenFrom8u<Kel32s> {};
template <> struct ConvertOp<Kel8u, Kel32f> : WidenFrom8u<Kel32f> {};

template <class D> struct WidenFrom8s {
    using S = Kel8s;
    static constexpr std::size_t kBlock = 16;
    template <class Load, class Store> static void block(const S* s, D* d, Load load, Store store)
    {
        const __m128i v = load(s);
        if constexpr (sizeof(D) == 2) {
            store(d, _mm_cvtepi8_epi16(v));
            store(d + 8, _mm_cvtepi8_epi16(cvt::quarter2(v)));
        } else {
            const __m128i q[4] = {_mm_cvtepi8_epi32(v), _mm_cvtepi8_epi32(cvt::quarter1(v)),
                                  _mm_cvtepi8_epi32(cvt::quarter2(v)), _mm_cvtepi8_epi32(cvt::quarter3(v))};
            for (int k = 0; k < 4; ++k) {
                if constexpr (std::is_same_v<D, Kel32f>) {
                    store(d + 4 * k, _mm_cvtepi32_ps(q[k]));
                } else if constexpr (std::is_same_v<D, Kel64f>) {
                    store(d + 4 * k, _mm_cvtepi32_pd(q[k]));
                    store(d + 4 * k + 2, _mm_cvtepi32_pd(_mm_srli_si128(q[k], 8)));
                } else {
                    store(d + 4 * k, q[k]);
                }
            }
        }
    }
    static D apply(S a) { return static_cast<D>(a); }
};

template <> struct ConvertOp<Kel8s, Kel16s> : WidenFrom8s<Kel16s> {};
template <> struct ConvertOp<Kel8s, Kel32s> : WidenFrom8s<Kel32s> {};
template <> struct ConvertOp<Kel8s, Kel32f> : WidenFrom8s<Kel32f> {};
template <> struct ConvertOp<Kel8s, Kel64f> : WidenFrom8s<Kel64f> {};

// ---- widening from 16 bits ---------------------------------------------------------------------

template <class S_, class D> struct WidenFrom16 {
    using S = S_;
    static constexpr std::size_t kBlock = 8;
    static __m128i extend(__m128i v)
    {
        if constexpr (std::is_signed_v<S>) return _mm_cvtepi16_epi32(v);
        else return _mm_cvtepu16_epi32(v);
    }
    template <class Load, class Store> static void block(const S* s, D* d, Load load, Store store)
    {
        const __m128i v = load(s);
        const __m128i lo = extend(v), hi = extend(cvt::quarter2(v));
        if constexpr (std::is_same_v<D, Kel32f>) {
            store(d, _mm_cvtepi32_ps(lo));
            store(d + 4, _mm_cvtepi32_ps(hi));
        } else {
            store(d, lo);
            store(d + 4, hi);
        }
    }
    static D apply(S a) { return static_cast<D>(a); }
};

template <> struct ConvertOp<Kel16u, Kel32s> : WidenFrom16<Kel16u, Kel32s> {};
template <> struct ConvertOp<Kel16u, Kel32u> : WidenFrom16<Kel16u, Kel32u> {};
template <> struct ConvertOp<Kel16u, Kel32f> : WidenFrom16<Kel16u, Kel32f> {};
template <> struct ConvertOp<Kel16s, Kel32s> : WidenFrom16<Kel16s, Kel32s> {};
template <> struct ConvertOp<Kel16s, Kel32f> : WidenFrom16<Kel16s, Kel32f> {};

// ---- 32-bit integers to 32f ----------------------------------------------------------------------

template <> struct ConvertOp<Kel32s, Kel32f> {
    using S = Kel32s;
    using D = Kel32f;
    static constexpr std::size_t kBlock = 4;
    template <class Load, class Store> static void block(const S* s, D* d, Load load, Store store)
    {
        store(d, _mm_cvtepi32_ps(load(s)));
    }
    static D apply(S a) { return static_cast<D>(a); }
};

template <> struct ConvertOp<Kel32u, Kel32f> {
    using S = Kel32u;
    using D = Kel32f;
    static constexpr std::size_t kBlock = 4;
    template <class Load, class Store> static void block(const S* s, D* d, Load load, Store store)
    {
        store(d, cvt::u32_to_ps(load(s)));
    }
    // Through a 64-bit signed integer: one conversion, one rounding.
    static D apply(S a) { return static_cast<D>(static_cast<std::int64_t>(a)); }
};

// ---- saturating narrowing to 8 bits ------------------------------------------------------------

template <> struct ConvertOp<Kel16u, Kel8u> {
    using S = Kel16u;
    using D = Kel8u;
    static constexpr std::size_t kBlock = 16;
    template <class Load, class Store> static void block(const S* s, D* d, Load load, Store store)
    {
        // The pack reads its lanes as signed: values from 32768 up are cut to 255 beforehand.
        const __m128i top = _mm_set1_epi16(255);
        store(d, _mm_packus_epi16(_mm_min_epu16(load(s), top), _mm_min_epu16(load(s + 8), top)));
    }
    static D apply(S a) { return static_cast<D>(a > 255 ? 255 : a); }
};

template <> struct ConvertOp<Kel16s, Kel8u> {
    using S = Kel16s;
    using D = Kel8u;
    static constexpr std::size_t kBlock = 16;
    template <class Load, class Store> static void block(const S* s, D* d, Load load, Store store)
    {
        store(d, _mm_packus_epi16(load(s), load(s + 8)));
    }
    static D apply(S a) { return static_cast<D>(a < 0 ? 0 : a > 255 ? 255 : a); }
};

template <class D_> struct NarrowFrom32s {
    using S = Kel32s;
    using D = D_;
    static constexpr std::size_t kBlock = 16;
    template <class Load, class Store> static void block(const S* s, D* d, Load load, Store store)
    {
        // Saturating to 16s first keeps every value's side of the 8-bit range.
        const __m128i a = _mm_packs_epi32(load(s), load(s + 4));
        const __m128i b = _mm_packs_epi32(load(s + 8), load(s + 12));
        if constexpr (std::is_signed_v<D>) store(d, _mm_packs_epi16(a, b));
        else store(d, _mm_packus_epi16(a, b));
    }
    static D apply(S a)
    {
        constexpr S lo = std::is_signed_v<D> ? -128 : 0, hi = std::is_signed_v<D> ? 127 : 255;
        return static_cast<D>(a < lo ? lo : a > hi ? hi : a);
    }
};

template <> struct ConvertOp<Kel32s, Kel8u> : NarrowFrom32s<Kel8u> {};
template <> struct ConvertOp<Kel32s, Kel8s> : NarrowFrom32s<Kel8s> {};

// ---- the row loop ------------------------------------------------------------------------------

// Converts n elements: scalar head up to the destination's 16-byte boundary, whole blocks with
// aligned (or non-temporal) stores, scalar tail, all through the same op.
template <class Op, class S, class D>
inline void convert_run(const S* src, D* dst, std::size_t n, bool nontemporal = false)
{
    constexpr std::size_t B = Op::kBlock;
    std::size_t i = 0;
    const std::size_t head = simd::head_to_align(dst);
    auto body = [&](auto load, auto store) {
        const std::size_t end = i + (n - i) / B * B;
        for (; i < end; i += B) {
            simd::prefetch_ahead(src + i);
            Op::block(src + i, dst + i, load, store);
        }
    };
    auto loadu = [](const auto* p) { return simd::loadu(p); };
    auto loada = [](const auto* p) { return simd::loada(p); };
    auto storea = [](auto* p, auto v) { simd::storea(p, v); };
    auto storeu = [](auto* p, auto v) { simd::storeu(p, v); };
    auto stream = [](auto* p, auto v) { simd::stream(p, v); };
    if (head != simd::npos && n >= head + 2 * B) {
        for (; i < head; ++i) dst[i] = Op::apply(src[i]);
        const bool srcAligned = simd::aligned16(src + i);
        if (nontemporal) {
            if (srcAligned) body(loada, stream);
            else body(loadu, stream);
            simd::fence();
        } else if (srcAligned) {
            body(loada, storea);
        } else {
            body(loadu, storea);
        }
    } else if (head == simd::npos && n >= 2 * B) {
        // A destination off its element grid never aligns: unaligned stores all along.
        body(loadu, storeu);
    }
    for (; i < n; ++i) dst[i] = Op::apply(src[i]);
}

}  // namespace keli::rows
