// Vector alpha composition of 32f elements: the scalar rule's single-precision steps in the
// same order, four lanes at a time. A register holds one interleaved pixel.
#pragma once

#include "arith/rows/alpha_lanes.hpp"
#include "arith/rows/alpha_rule.hpp"
#include "simd/sse.hpp"

namespace keli::rows::alpha {

template <> struct Lanes<Kel32f> {
    static constexpr bool kVector = true;
    using V = __m128;

    template <int Op> static V colour(V c1, V a, V c2, V b)
    {
        const V one = _mm_set1_ps(1.0f);
        const V p1 = premultiplied(Op) ? c1 : _mm_mul_ps(c1, a);
        const V p2 = premultiplied(Op) ? c2 : _mm_mul_ps(c2, b);
        switch (base_op(Op)) {
        case kOver: return _mm_add_ps(p1, _mm_mul_ps(_mm_sub_ps(one, a), p2));
        case kIn: return _mm_mul_ps(p1, b);
        case kOut: return _mm_mul_ps(p1, _mm_sub_ps(one, b));
        case kATop: return _mm_add_ps(_mm_mul_ps(p1, b), _mm_mul_ps(p2, _mm_sub_ps(one, a)));
        case kXor: return _mm_add_ps(_mm_mul_ps(p1, _mm_sub_ps(one, b)), _mm_mul_ps(p2, _mm_sub_ps(one, a)));
        default: return _mm_add_ps(p1, p2);
        }
    }

    template <int Op> static V alpha(V a, V b)
    {
        const V one = _mm_set1_ps(1.0f);
        switch (base_op(Op)) {
        case kOver: return _mm_add_ps(_mm_mul_ps(_mm_sub_ps(one, a), b), a);
        case kIn: return _mm_mul_ps(a, b);
        case kOut: return _mm_mul_ps(_mm_sub_ps(one, b), a);
        case kATop: return b;
        case kXor: return _mm_add_ps(_mm_mul_ps(_mm_sub_ps(one, _mm_mul_ps(_mm_set1_ps(2.0f), a)), b), a);
        default: return _mm_add_ps(a, b);
        }
    }

    template <int Op> static V pixels(V s1, V s2)
    {
        const V a = _mm_shuffle_ps(s1, s1, 0xFF), b = _mm_shuffle_ps(s2, s2, 0xFF);
        return _mm_blend_ps(colour<Op>(s1, a, s2, b), alpha<Op>(a, b), 0x8);
    }

    static V merge_alpha(V colour, V alpha) { return _mm_blend_ps(colour, alpha, 0x8); }
};

}  // namespace keli::rows::alpha
