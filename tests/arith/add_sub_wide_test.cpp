// The wide members of keliAdd, keliSub, keliAddC, keliSubC on their own 64-bit path: rows a
// step of more than 2^32 bytes apart (a sparse mapping holds them), the chunk's pointer test,
// and a row of three billion pixels.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "arith/rows/add_sub.hpp"
#include "keli.h"
#include "kit/arith.hpp"
#include "kit/random.hpp"
#include "reference/add_sub.hpp"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KELI_TEST_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define KELI_TEST_SANITIZED 1
#endif

namespace {

using keli::rows::AddSub;
using I64 = std::int64_t;

using namespace kit::arith;

template <class T> using Bin = BinFn<T, I64, KeliSizeL>;
template <class T> using BinI = BinIFn<T, I64, KeliSizeL>;
template <class T> using Con = ConFn<T, I64, KeliSizeL>;
template <class T> using ConI = ConIFn<T, I64, KeliSizeL>;

template <class T> struct Member {
    const char* name;
    AddSub kind;
    int channels;
    bool alpha;
    Bin<T> r;
    BinI<T> ir;
    Con<T> cr;
    ConI<T> cir;
};

#define KELI_L(K, T, L, C, A)                                                                                          \
    Member<Kel##T>{#K "_" #T "_" #L, AddSub::K, C, A, keli##K##_##T##_##L##RSfs_L, keli##K##_##T##_##L##IRSfs_L,     \
                   keli##K##C_##T##_##L##RSfs_L, keli##K##C_##T##_##L##IRSfs_L}
#define KELI_L_C1(K, T)                                                                                                \
    Member<Kel##T>{#K "_" #T "_C1", AddSub::K, 1, false, keli##K##_##T##_C1RSfs_L, keli##K##_##T##_C1IRSfs_L,        \
                   conC1<Kel##T, keli##K##C_##T##_C1RSfs_L, I64, KeliSizeL>,                                           \
                   conIC1<Kel##T, keli##K##C_##T##_C1IRSfs_L, I64, KeliSizeL>}
#define KELI_L_ALL(K, T) KELI_L_C1(K, T), KELI_L(K, T, C3, 3, false), KELI_L(K, T, C4, 4, false), KELI_L(K, T, AC4, 4, true)
#define KELI_LF(K, L, C, A)                                                                                            \
    Member<Kel32f>{#K "_32f_" #L, AddSub::K, C, A, bin32f<keli##K##_32f_##L##R_L, I64, KeliSizeL>,                    \
                   binI32f<keli##K##_32f_##L##IR_L, I64, KeliSizeL>, con32f<keli##K##C_32f_##L##R_L, I64, KeliSizeL>, \
                   conI32f<keli##K##C_32f_##L##IR_L, I64, KeliSizeL>}
#define KELI_LF_C1(K)                                                                                                  \
    Member<Kel32f>{#K "_32f_C1", AddSub::K, 1, false, bin32f<keli##K##_32f_C1R_L, I64, KeliSizeL>,                    \
                   binI32f<keli##K##_32f_C1IR_L, I64, KeliSizeL>, conC1<Kel32f, keli##K##C_32f_C1R_L, I64, KeliSizeL>, \
                   conIC1<Kel32f, keli##K##C_32f_C1IR_L, I64, KeliSizeL>}

template <class T> std::vector<Member<T>> members();
template <> std::vector<Member<Kel8u>> members() { return {KELI_L_ALL(Add, 8u), KELI_L_ALL(Sub, 8u)}; }
template <> std::vector<Member<Kel16u>> members() { return {KELI_L_ALL(Add, 16u), KELI_L_ALL(Sub, 16u)}; }
template <> std::vector<Member<Kel16s>> members() { return {KELI_L_ALL(Add, 16s), KELI_L_ALL(Sub, 16s)}; }
template <> std::vector<Member<Kel32f>> members()
{
    return {KELI_LF_C1(Add), KELI_LF(Add, C3, 3, false), KELI_LF(Add, C4, 4, false), KELI_LF(Add, AC4, 4, true),
            KELI_LF_C1(Sub), KELI_LF(Sub, C3, 3, false), KELI_LF(Sub, C4, 4, false), KELI_LF(Sub, AC4, 4, true)};
}

template <class T> T draw(kit::Rng& rng)
{
    const T edges[] = {std::numeric_limits<T>::lowest(), T(0), T(1), std::numeric_limits<T>::max()};
    return rng.below(4) == 0 ? edges[rng.below(4)] : rng.any<T>();
}

template <class T> T model(AddSub k, T a, T b, int n)
{
    return k == AddSub::Add ? reference::add(a, b, n) : reference::sub(a, b, n);
}


template <class T> void far_rows_member(const FarRows& mem, const Member<T>& m, kit::Rng& rng)
{
    constexpr int W = 37;
    const int E = W * m.channels;
    T* a = mem.image<T>(0);
    T* b = mem.image<T>(1);
    T* d = mem.image<T>(2);
    T* io = mem.image<T>(3);
    const std::vector<int> factors = std::is_same_v<T, float> ? std::vector<int>{0}
                                                              : std::vector<int>{0, 1, 3, -2, 40, -40};
    for (int n : factors) {
        SCOPED_TRACE(std::string(m.name) + " n " + std::to_string(n));
        T value[4], old[FarRows::kRows][W * 4];
        for (T& v : value) v = draw<T>(rng);
        for (int y = 0; y < FarRows::kRows; ++y)
            for (int e = 0; e < E; ++e) {
                FarRows::at(a, y, e) = draw<T>(rng);
                FarRows::at(b, y, e) = FarRows::at(io, y, e) = draw<T>(rng);
                FarRows::at(d, y, e) = old[y][e] = draw<T>(rng);
            }
        const KeliSizeL size{W, FarRows::kRows};
        const I64 s = FarRows::kStep;
        ASSERT_EQ(m.r(a, s, b, s, d, s, size, n), kelStatusOk);
        ASSERT_EQ(m.ir(a, s, io, s, size, n), kelStatusOk);
        for (int y = 0; y < FarRows::kRows; ++y)
            for (int e = 0; e < E; ++e) {
                const T s1 = FarRows::at(a, y, e), s2 = FarRows::at(b, y, e);
                const bool alpha = m.alpha && e % 4 == 3;
                const T want = alpha ? old[y][e] : m.kind == AddSub::Add ? model(m.kind, s1, s2, n)
                                                                         : model(m.kind, s2, s1, n);
                ASSERT_TRUE(same(FarRows::at(d, y, e), want)) << "y " << y << " e " << e;
                ASSERT_TRUE(same(FarRows::at(io, y, e), alpha ? s2 : want)) << "in place y " << y << " e " << e;
            }
        T kept[FarRows::kRows][W * 4];
        for (int y = 0; y < FarRows::kRows; ++y)
            for (int e = 0; e < E; ++e) kept[y][e] = FarRows::at(b, y, e);
        ASSERT_EQ(m.cr(a, s, value, d, s, size, n), kelStatusOk);
        ASSERT_EQ(m.cir(value, b, s, size, n), kelStatusOk);
        for (int y = 0; y < FarRows::kRows; ++y)
            for (int e = 0; e < E; ++e) {
                const bool alpha = m.alpha && e % 4 == 3;
                const T v = value[e % m.channels];
                const T want = alpha ? old[y][e] : model(m.kind, FarRows::at(a, y, e), v, n);
                const T wantIn = alpha ? kept[y][e] : model(m.kind, kept[y][e], v, n);
                ASSERT_TRUE(same(FarRows::at(d, y, e), want)) << "constant y " << y << " e " << e;
                ASSERT_TRUE(same(FarRows::at(b, y, e), wantIn)) << "constant in place y " << y << " e " << e;
            }
        // A null pointer is found by the first chunk, before anything is written.
        EXPECT_EQ(m.r(a, s, nullptr, s, d, s, size, n), kelStatusNullPtr);
        if (m.channels > 1) {
            EXPECT_EQ(m.cr(a, s, nullptr, d, s, size, n), kelStatusNullPtr);
        }
        EXPECT_EQ(m.cir(value, nullptr, s, size, n), kelStatusNullPtr);
    }
}

TEST(AddSubWide, RowsBeyondThe32BitStepsWalkInChunks)
{
    const FarRows mem;
    if (!mem.ok()) GTEST_SKIP() << "no address space for a sparse mapping";
    kit::Rng rng;
    for (const auto& m : members<Kel8u>()) far_rows_member(mem, m, rng);
    for (const auto& m : members<Kel16u>()) far_rows_member(mem, m, rng);
    for (const auto& m : members<Kel16s>()) far_rows_member(mem, m, rng);
    for (const auto& m : members<Kel32f>()) far_rows_member(mem, m, rng);
}

TEST(AddSubWide, ThreeBillionPixelsInOneRow)
{
#ifdef KELI_TEST_SANITIZED
    GTEST_SKIP() << "three gigabytes are too much under the sanitizers";
#else
    const I64 width = 3000000000ll;
    void* p = mmap(nullptr, width, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (p == MAP_FAILED) GTEST_SKIP() << "no 3 GB mapping";
    madvise(p, width, MADV_HUGEPAGE);  // fewer page faults; a hint only
    auto* buf = static_cast<Kel8u*>(p);
    std::memset(buf, 3, width);
    // All three pointers on the one buffer: each element becomes (3 + 3) * 2, in three chunks.
    ASSERT_EQ(keliAdd_8u_C1RSfs_L(buf, width, buf, width, buf, width, {width, 1}, -1), kelStatusOk);
    std::vector<Kel8u> twelve(1 << 20, 12);
    bool all = true;
    for (I64 at = 0; at < width; at += I64(twelve.size())) {
        const std::size_t n = std::size_t(std::min<I64>(I64(twelve.size()), width - at));
        all = all && std::memcmp(buf + at, twelve.data(), n) == 0;
    }
    EXPECT_TRUE(all);
    // The zero short cut over the same row: a fill, the source never read.
    ASSERT_EQ(keliAdd_8u_C1RSfs_L(buf, width, buf, width, buf, width, {width, 1}, 10), kelStatusOk);
    EXPECT_EQ(buf[0], 0);
    EXPECT_EQ(buf[0x3FFFFFFF], 0);
    EXPECT_EQ(buf[width - 1], 0);
    munmap(p, width);
#endif
}

}  // namespace
