// The members of keliAdd, keliSub, keliAddC and keliSubC as the tests list them: one table for the
// 32-bit entry points and one for the wide ones, built by the same macros.
#pragma once

#include <cstdint>
#include <vector>

#include "arith/rows/add_sub.hpp"
#include "keli.h"
#include "kit/arith.hpp"
#include "reference/add_sub.hpp"

namespace add_sub_members {

using keli::rows::AddSub;
using I64 = std::int64_t;

// S: the step type (int or int64), Z: the size type (KeliSize or KeliSizeL).
template <class T, class S, class Z> struct Member {
    const char* name;
    AddSub kind;
    int channels;
    bool alpha;
    kit::arith::BinFn<T, S, Z> r;
    kit::arith::BinIFn<T, S, Z> ir;
    kit::arith::ConFn<T, S, Z> cr;
    kit::arith::ConIFn<T, S, Z> cir;
};

template <class T, class S, class Z> std::vector<Member<T, S, Z>> members();

// X is the suffix of the entry points: empty for the 32-bit ones, _L for the wide ones.
#define KELI_AS(K, T, L, C, A, X, S, Z)                                                                                \
    Member<Kel##T, S, Z>{#K "_" #T "_" #L, AddSub::K, C, A, keli##K##_##T##_##L##RSfs##X,                              \
                         keli##K##_##T##_##L##IRSfs##X, keli##K##C_##T##_##L##RSfs##X, keli##K##C_##T##_##L##IRSfs##X}
#define KELI_AS_C1(K, T, X, S, Z)                                                                                      \
    Member<Kel##T, S, Z>{#K "_" #T "_C1", AddSub::K, 1, false, keli##K##_##T##_C1RSfs##X, keli##K##_##T##_C1IRSfs##X,  \
                         kit::arith::conC1<Kel##T, keli##K##C_##T##_C1RSfs##X, S, Z>,                                  \
                         kit::arith::conIC1<Kel##T, keli##K##C_##T##_C1IRSfs##X, S, Z>}
#define KELI_AS_ALL(K, T, X, S, Z)                                                                                     \
    KELI_AS_C1(K, T, X, S, Z), KELI_AS(K, T, C3, 3, false, X, S, Z), KELI_AS(K, T, C4, 4, false, X, S, Z),             \
        KELI_AS(K, T, AC4, 4, true, X, S, Z)
#define KELI_AS_F(K, L, C, A, X, S, Z)                                                                                 \
    Member<Kel32f, S, Z>{#K "_32f_" #L, AddSub::K, C, A, kit::arith::bin32f<keli##K##_32f_##L##R##X, S, Z>,            \
                         kit::arith::binI32f<keli##K##_32f_##L##IR##X, S, Z>,                                          \
                         kit::arith::con32f<keli##K##C_32f_##L##R##X, S, Z>,                                           \
                         kit::arith::conI32f<keli##K##C_32f_##L##IR##X, S, Z>}
#define KELI_AS_F_C1(K, X, S, Z)                                                                                       \
    Member<Kel32f, S, Z>{#K "_32f_C1", AddSub::K, 1, false, kit::arith::bin32f<keli##K##_32f_C1R##X, S, Z>,            \
                         kit::arith::binI32f<keli##K##_32f_C1IR##X, S, Z>,                                             \
                         kit::arith::conC1<Kel32f, keli##K##C_32f_C1R##X, S, Z>,                                       \
                         kit::arith::conIC1<Kel32f, keli##K##C_32f_C1IR##X, S, Z>}
#define KELI_AS_F_ALL(K, T, X, S, Z)                                                                                   \
    KELI_AS_F_C1(K, X, S, Z), KELI_AS_F(K, C3, 3, false, X, S, Z), KELI_AS_F(K, C4, 4, false, X, S, Z),                \
        KELI_AS_F(K, AC4, 4, true, X, S, Z)
#define KELI_AS_TABLE(T, ALL, X, S, Z)                                                                                 \
    template <> inline std::vector<Member<Kel##T, S, Z>> members()                                                     \
    {                                                                                                                  \
        return {ALL(Add, T, X, S, Z), ALL(Sub, T, X, S, Z)};                                                           \
    }
#define KELI_AS_TABLES(X, S, Z)                                                                                        \
    KELI_AS_TABLE(8u, KELI_AS_ALL, X, S, Z)                                                                            \
    KELI_AS_TABLE(16u, KELI_AS_ALL, X, S, Z)                                                                           \
    KELI_AS_TABLE(16s, KELI_AS_ALL, X, S, Z)                                                                           \
    KELI_AS_TABLE(32f, KELI_AS_F_ALL, X, S, Z)

KELI_AS_TABLES(, int, KeliSize)
KELI_AS_TABLES(_L, I64, KeliSizeL)

// keliSub takes its first operand from its second.
template <class T> T model(AddSub k, T minuendOrFirst, T second, int n)
{
    return k == AddSub::Add ? reference::add(minuendOrFirst, second, n) : reference::sub(minuendOrFirst, second, n);
}

// The result of a member on two image elements s1 (first source) and s2 (second source).
template <class T> T images_model(AddSub k, T s1, T s2, int n)
{
    return k == AddSub::Add ? model(k, s1, s2, n) : model(k, s2, s1, n);
}

}  // namespace add_sub_members
