// The vector side of alpha composition for one element type: Lanes<T>. A type with vector
// kernels specialises it (8u, 16u, 32f) with, on 16-byte registers of elements:
//
//   colour<Op>(c1, a, c2, b)   the colour rule element by element, alphas given per element
//   alpha<Op>(a, b)            the alpha rule element by element
//   pixels<Op>(s1, s2)         whole interleaved pixels: colour, and the alpha rule in the fourth
//   merge_alpha(colour, alpha) the colour elements of the first, the alpha elements of the second
//   scale(c, m)                c * m / one
//   premul_factors(s)          each pixel's alpha for its colour elements and one for its alpha
//
// The others (16s, 32s, 32u, whose exact divisions need 64- and 128-bit products that no SSE
// lane forms) run the scalar rule alone.
#pragma once

namespace keli::rows::alpha {

template <class T> struct Lanes {
    static constexpr bool kVector = false;
};

}  // namespace keli::rows::alpha
