// The scalar meaning of alpha composition and premultiplication, one element at a time. The
// vector kernels reach the same bits; the scalar heads and tails and the types without a vector
// kernel use these directly.
//
// Integer types read alpha as a fraction of the type's largest value `one`. A product of two
// factors over `one` is `m1`, a product of three factors over `one^2` is `m2`; each term of a
// result is rounded on its own, then the terms are summed and the sum saturated.
//
//   colour, operations 0-5 (p1 = c1 a, p2 = c2 b)      operations 6-11 (p1 = c1, p2 = c2)
//   Over   m1(c1 a) + m2(c2 b (1-a))                   c1 + m1(c2 (1-a))
//   In     m2(c1 a b)                                  m1(c1 b)
//   Out    m2(c1 a (1-b))                              m1(c1 (1-b))
//   ATop   m2(c1 a b) + m2(c2 b (1-a))                 m1(c1 b) + m1(c2 (1-a))
//   Xor    m2(c1 a (1-b)) + m2(c2 b (1-a))             m1(c1 (1-b)) + m1(c2 (1-a))
//   Plus   m1(c1 a) + m1(c2 b)                         c1 + c2
//
//   alpha (both halves)  Over m1((1-a) b) + a, In m1(a b), Out m1((1-b) a), ATop b,
//                        Xor m1((1-2a) b) + a, Plus a + b
//
// A colour term with three factors is divided once by one^2 rather than twice by one: the
// result then depends on the product alone, whichever pair of factors the caller thinks of as
// premultiplied.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "keli_types.h"

namespace keli::rows::alpha {

enum Operation : int { kOver = 0, kIn, kOut, kATop, kXor, kPlus };
constexpr int kOperations = 12;
constexpr bool premultiplied(int op) { return op >= 6; }
constexpr int base_op(int op) { return op % 6; }

// Floor division for a positive divisor, whatever the sign of the dividend.
template <class W> constexpr W floor_div(W x, W d) { return x >= 0 ? x / d : -((-x + d - 1) / d); }

// The rule of each integer type: its wide type, its `one`, the reading of an alpha element,
// and the two divisions.
template <class T> struct IntRule;

// 8u: 255 is 1.0. Both divisions are shift-and-add forms on the exact product. m1 is exact
// rounding half up for x >= 0; m2 is close to it but not equal, and is the rule as written.
// Shifts are arithmetic, so the signed term (1 - 2a) b of Xor's alpha goes through m1 too.
template <> struct IntRule<Kel8u> {
    using W = std::int32_t;
    static constexpr W one = 255;
    static constexpr W alpha(Kel8u a) { return a; }
    static constexpr W m1(W x)
    {
        const W t = x + 128;
        return (t + (t >> 8)) >> 8;
    }
    static constexpr W m2(W x)
    {
        const W t = x + 32768;
        return ((t >> 7) + t - (t >> 16)) >> 16;
    }
};

// 16u: 65535 is 1.0. m1 is the 8u form widened (exact half-up rounding for x >= 0, in 64 bits
// for the signed Xor term); m2 has no shift form and is x / 65535^2 rounded half up, exactly.
template <> struct IntRule<Kel16u> {
    using W = std::int64_t;
    static constexpr W one = 65535;
    static constexpr W alpha(Kel16u a) { return a; }
    static constexpr W m1(W x)
    {
        const W t = x + 32768;
        return (t + (t >> 16)) >> 16;
    }
    static constexpr W m2(W x) { return floor_div(2 * x + one * one, 2 * one * one); }
};

// 16s, 32s and 32u: the type's largest value is 1.0, a negative alpha counts as 0, and every
// product is divided exactly, rounding half up (128 bits hold the three-factor products of the
// 32-bit types).
template <class T, class Wide> struct ExactRule {
    using W = Wide;
    static constexpr W one = std::numeric_limits<T>::max();
    static constexpr W alpha(T a) { return a < 0 ? 0 : a; }
    static constexpr W m1(W x) { return floor_div(2 * x + one, 2 * one); }
    static constexpr W m2(W x) { return floor_div(2 * x + one * one, 2 * one * one); }
};
template <> struct IntRule<Kel16s> : ExactRule<Kel16s, std::int64_t> {};
template <> struct IntRule<Kel32s> : ExactRule<Kel32s, __int128> {};
template <> struct IntRule<Kel32u> : ExactRule<Kel32u, __int128> {};

template <class T, class W> constexpr T saturate(W v)
{
    return static_cast<T>(std::clamp<W>(v, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
}

template <class T> struct Rule {
    using R = IntRule<T>;
    using W = typename R::W;

    template <int Op> static T colour(T c1, T a_, T c2, T b_)
    {
        const W a = R::alpha(a_), b = R::alpha(b_), na = R::one - a, nb = R::one - b;
        const W x = c1, y = c2;
        W r = 0;
        switch (Op) {
        case 0: r = R::m1(x * a) + R::m2(y * (b * na)); break;
        case 1: r = R::m2(x * (a * b)); break;
        case 2: r = R::m2(x * (a * nb)); break;
        case 3: r = R::m2(x * (a * b)) + R::m2(y * (b * na)); break;
        case 4: r = R::m2(x * (a * nb)) + R::m2(y * (b * na)); break;
        case 5: r = R::m1(x * a) + R::m1(y * b); break;
        case 6: r = x + R::m1(y * na); break;
        case 7: r = R::m1(x * b); break;
        case 8: r = R::m1(x * nb); break;
        case 9: r = R::m1(x * b) + R::m1(y * na); break;
        case 10: r = R::m1(x * nb) + R::m1(y * na); break;
        default: r = x + y; break;
        }
        return saturate<T>(r);
    }

    template <int Op> static T alpha(T a_, T b_)
    {
        const W a = R::alpha(a_), b = R::alpha(b_);
        W r = 0;
        switch (base_op(Op)) {
        case kOver: r = R::m1((R::one - a) * b) + a; break;
        case kIn: r = R::m1(a * b); break;
        case kOut: r = R::m1((R::one - b) * a); break;
        case kATop: r = b; break;
        case kXor: r = R::m1((R::one - 2 * a) * b) + a; break;
        default: r = a + b; break;
        }
        return saturate<T>(r);
    }

    // c * a / one: premultiplication.
    static T scale(T c, T a) { return saturate<T>(R::m1(W(c) * R::alpha(a))); }
};

// 32f: alpha in [0, 1], every operation one IEEE single-precision step in the order written,
// nothing clamped (Plus may exceed 1).
template <> struct Rule<Kel32f> {
    using T = Kel32f;
    template <int Op> static T colour(T c1, T a, T c2, T b)
    {
        const T p1 = premultiplied(Op) ? c1 : c1 * a;
        const T p2 = premultiplied(Op) ? c2 : c2 * b;
        switch (base_op(Op)) {
        case kOver: return p1 + (1.0f - a) * p2;
        case kIn: return p1 * b;
        case kOut: return p1 * (1.0f - b);
        case kATop: return p1 * b + p2 * (1.0f - a);
        case kXor: return p1 * (1.0f - b) + p2 * (1.0f - a);
        default: return p1 + p2;
        }
    }
    // The scalar code keeps the products in 32f like the vector code: a 64f product in the
    // tail alone would make a value depend on its column.
    template <int Op> static T alpha(T a, T b)
    {
        switch (base_op(Op)) {
        case kOver: return (1.0f - a) * b + a;
        case kIn: return a * b;
        case kOut: return (1.0f - b) * a;
        case kATop: return b;
        case kXor: return (1.0f - 2.0f * a) * b + a;
        default: return a + b;
        }
    }
};

}  // namespace keli::rows::alpha
