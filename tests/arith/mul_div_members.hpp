// The members of keliMul/keliMulC and of keliDiv/keliDivC as the tests list them: the eight entry
// points of each (images and constant, out of place and in place, 32-bit and wide), built by the
// same macros for both families.
#pragma once

#include <cstdint>
#include <vector>

#include "keli.h"
#include "kit/arith.hpp"

namespace mul_div_members {

using kit::arith::Member;
using I64 = std::int64_t;

// OP is Mul or Div; its constant form is OP##C.
#define KELI_MD(OP, T, L, C, A)                                                                                        \
    Member<Kel##T>{#OP "_" #T "_" #L, C, A, keli##OP##_##T##_##L##RSfs, keli##OP##_##T##_##L##IRSfs,                   \
                   keli##OP##C_##T##_##L##RSfs, keli##OP##C_##T##_##L##IRSfs, keli##OP##_##T##_##L##RSfs_L,            \
                   keli##OP##_##T##_##L##IRSfs_L, keli##OP##C_##T##_##L##RSfs_L, keli##OP##C_##T##_##L##IRSfs_L}
#define KELI_MD_C1(OP, T)                                                                                              \
    Member<Kel##T>{#OP "_" #T "_C1", 1, false, keli##OP##_##T##_C1RSfs, keli##OP##_##T##_C1IRSfs,                      \
                   kit::arith::conC1<Kel##T, keli##OP##C_##T##_C1RSfs>,                                                \
                   kit::arith::conIC1<Kel##T, keli##OP##C_##T##_C1IRSfs>, keli##OP##_##T##_C1RSfs_L,                   \
                   keli##OP##_##T##_C1IRSfs_L, kit::arith::conC1<Kel##T, keli##OP##C_##T##_C1RSfs_L, I64, KeliSizeL>,  \
                   kit::arith::conIC1<Kel##T, keli##OP##C_##T##_C1IRSfs_L, I64, KeliSizeL>}
#define KELI_MD_ALL(OP, T)                                                                                             \
    KELI_MD_C1(OP, T), KELI_MD(OP, T, C3, 3, false), KELI_MD(OP, T, C4, 4, false), KELI_MD(OP, T, AC4, 4, true)
// 32f: no scale factor; C1 constants by value (CON, CONI) or by pointer.
#define KELI_MD_F(OP, L, C, A, CON, CONI)                                                                              \
    Member<Kel32f>{#OP "_32f_" #L, C, A, kit::arith::bin32f<keli##OP##_32f_##L##R>,                                    \
                   kit::arith::binI32f<keli##OP##_32f_##L##IR>, CON<keli##OP##C_32f_##L##R, int, KeliSize>,            \
                   CONI<keli##OP##C_32f_##L##IR, int, KeliSize>,                                                       \
                   kit::arith::bin32f<keli##OP##_32f_##L##R_L, I64, KeliSizeL>,                                        \
                   kit::arith::binI32f<keli##OP##_32f_##L##IR_L, I64, KeliSizeL>,                                      \
                   CON<keli##OP##C_32f_##L##R_L, I64, KeliSizeL>, CONI<keli##OP##C_32f_##L##IR_L, I64, KeliSizeL>}
#define KELI_MD_F_ALL(OP)                                                                                              \
    KELI_MD_F(OP, C1, 1, false, conF1, conIF1), KELI_MD_F(OP, C3, 3, false, kit::arith::con32f, kit::arith::conI32f),  \
        KELI_MD_F(OP, C4, 4, false, kit::arith::con32f, kit::arith::conI32f),                                          \
        KELI_MD_F(OP, AC4, 4, true, kit::arith::con32f, kit::arith::conI32f)

// The by-value C1 adapters with the template parameters of the by-pointer ones.
template <auto F, class S, class Z> KelStatus conF1(const float* a, S as, const float* v, float* d, S ds, Z s, int n)
{
    return kit::arith::conC1<float, F, S, Z>(a, as, v, d, ds, s, n);
}
template <auto F, class S, class Z> KelStatus conIF1(const float* v, float* d, S ds, Z s, int n)
{
    return kit::arith::conIC1<float, F, S, Z>(v, d, ds, s, n);
}

template <class T> std::vector<Member<T>> mul();
template <class T> std::vector<Member<T>> div();

#define KELI_MD_TABLES(OP, NAME)                                                                                       \
    template <> inline std::vector<Member<Kel8u>> NAME() { return {KELI_MD_ALL(OP, 8u)}; }                             \
    template <> inline std::vector<Member<Kel16u>> NAME() { return {KELI_MD_ALL(OP, 16u)}; }                           \
    template <> inline std::vector<Member<Kel16s>> NAME() { return {KELI_MD_ALL(OP, 16s)}; }                           \
    template <> inline std::vector<Member<Kel32f>> NAME() { return {KELI_MD_F_ALL(OP)}; }

KELI_MD_TABLES(Mul, mul)
KELI_MD_TABLES(Div, div)

}  // namespace mul_div_members
