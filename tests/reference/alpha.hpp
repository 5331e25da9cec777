// Plain scalar models of alpha composition, premultiplication and the colour keys: 128-bit
// integers and explicit formulas, one element at a time, the operation a run-time value.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "keli_types.h"

namespace ref::alpha {

using I = __int128;

inline I floor_div(I x, I d) { return x >= 0 ? x / d : -((-x + d - 1) / d); }

template <class T> constexpr I one() { return std::numeric_limits<T>::max(); }

// Alpha as the integer rules read it: a negative alpha (signed types) is no alpha at all.
template <class T> I alpha_of(T a) { return a < 0 ? 0 : a; }

// x / one, and x / one^2 (a product of three factors).
template <class T> I over1(I x)
{
    if constexpr (std::is_same_v<T, Kel8u>) {
        const I t = x + 128;  // shifts of the signed term are arithmetic: floors
        return floor_div(t + floor_div(t, 256), 256);
    } else if constexpr (std::is_same_v<T, Kel16u>) {
        const I t = x + 32768;
        return floor_div(t + floor_div(t, 65536), 65536);
    } else {
        return floor_div(2 * x + one<T>(), 2 * one<T>());  // half up
    }
}

template <class T> I over2(I x)
{
    if constexpr (std::is_same_v<T, Kel8u>) {
        const I t = x + 32768;
        return (t / 128 + t - t / 65536) / 65536;
    } else {
        return floor_div(2 * x + one<T>() * one<T>(), 2 * one<T>() * one<T>());
    }
}

template <class T> T sat(I v)
{
    return static_cast<T>(std::min<I>(std::max<I>(v, std::numeric_limits<T>::min()), std::numeric_limits<T>::max()));
}

template <class T> T colour(int op, T c1_, T a_, T c2_, T b_)
{
    if constexpr (std::is_same_v<T, Kel32f>) {
        const float p1 = op >= 6 ? c1_ : c1_ * a_, p2 = op >= 6 ? c2_ : c2_ * b_;
        const float na = 1.0f - a_, nb = 1.0f - b_;
        switch (op % 6) {
        case 0: return p1 + na * p2;
        case 1: return p1 * b_;
        case 2: return p1 * nb;
        case 3: return p1 * b_ + p2 * na;
        case 4: return p1 * nb + p2 * na;
        default: return p1 + p2;
        }
    } else {
        const I c1 = c1_, c2 = c2_, a = alpha_of(a_), b = alpha_of(b_), na = one<T>() - a, nb = one<T>() - b;
        I r;
        if (op < 6) {
            // Colour premultiplied by its alpha: c1 a, c2 b; a further factor makes three.
            switch (op) {
            case 0: r = over1<T>(c1 * a) + over2<T>(c2 * b * na); break;
            case 1: r = over2<T>(c1 * a * b); break;
            case 2: r = over2<T>(c1 * a * nb); break;
            case 3: r = over2<T>(c1 * a * b) + over2<T>(c2 * b * na); break;
            case 4: r = over2<T>(c1 * a * nb) + over2<T>(c2 * b * na); break;
            default: r = over1<T>(c1 * a) + over1<T>(c2 * b); break;
            }
        } else {
            switch (op) {
            case 6: r = c1 + over1<T>(c2 * na); break;
            case 7: r = over1<T>(c1 * b); break;
            case 8: r = over1<T>(c1 * nb); break;
            case 9: r = over1<T>(c1 * b) + over1<T>(c2 * na); break;
            case 10: r = over1<T>(c1 * nb) + over1<T>(c2 * na); break;
            default: r = c1 + c2; break;
            }
        }
        return sat<T>(r);
    }
}

template <class T> T alpha(int op, T a_, T b_)
{
    if constexpr (std::is_same_v<T, Kel32f>) {
        switch (op % 6) {
        case 0: return (1.0f - a_) * b_ + a_;
        case 1: return a_ * b_;
        case 2: return (1.0f - b_) * a_;
        case 3: return b_;
        case 4: return (1.0f - 2.0f * a_) * b_ + a_;
        default: return a_ + b_;
        }
    } else {
        const I a = alpha_of(a_), b = alpha_of(b_), o = one<T>();
        switch (op % 6) {
        case 0: return sat<T>(over1<T>((o - a) * b) + a);
        case 1: return sat<T>(over1<T>(a * b));
        case 2: return sat<T>(over1<T>((o - b) * a));
        case 3: return sat<T>(b);
        case 4: return sat<T>(over1<T>((o - 2 * a) * b) + a);
        default: return sat<T>(a + b);
        }
    }
}

template <class T> T premul(T c, T a) { return sat<T>(over1<T>(I(c) * a)); }

// AlphaCompColorKey's composition of one colour element in 32f (operations 0-5), before the
// key test.
inline Kel8u key_compose(int op, int c1, int a1, int c2, int a2)
{
    const float k = 0.003921569f;
    long num;
    switch (op) {
    case 0: num = long(c1) * a1 * 255 + long(c2) * a2 * (255 - a1); break;
    case 1: num = long(c1) * a1 * a2; break;
    case 2: num = long(c1) * a1 * (255 - a2); break;
    case 3: num = long(c1) * a1 * a2 + long(c2) * a2 * (255 - a1); break;
    case 4: num = long(c1) * a1 * (255 - a2) + long(c2) * a2 * (255 - a1); break;
    default: return Kel8u(std::min(std::nearbyint(float(long(c2) * a2 + long(c1) * a1) * k), 255.0f));
    }
    return Kel8u(std::min(std::nearbyint(float(num) * k * k), 255.0f));
}

}  // namespace ref::alpha
