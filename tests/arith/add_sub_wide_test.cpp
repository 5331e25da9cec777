// The wide members of keliAdd, keliSub, keliAddC, keliSubC on their own 64-bit path: rows a
// step of more than 2^32 bytes apart (a sparse mapping holds them), the chunk's pointer test,
// and a row of three billion pixels.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "add_sub_members.hpp"
#include "arith/rows/add_sub.hpp"
#include "arith_sweep.hpp"
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

template <class T> T draw(kit::Rng& rng)
{
    const T edges[] = {std::numeric_limits<T>::lowest(), T(0), T(1), std::numeric_limits<T>::max()};
    return rng.below(4) == 0 ? edges[rng.below(4)] : rng.any<T>();
}

TEST(AddSubWide, RowsBeyondThe32BitStepsWalkInChunks)
{
    const FarRows mem;
    if (!mem.ok()) GTEST_SKIP() << "no address space for a sparse mapping";
    const auto wide = [](auto type) { return add_sub_members::members<decltype(type), I64, KeliSizeL>(); };
    const auto check = [&](auto type, const auto& m, kit::Rng& rng) {
        using T = decltype(type);
        const std::vector<int> factors = kFloat<T> ? std::vector<int>{0} : std::vector<int>{0, 1, 3, -2, 40, -40};
        const AddSub k = m.kind;
        arith_sweep::check_far_rows<T>(
            mem, {m.name, {m.channels, m.alpha}, m.r, m.ir, m.cr, m.cir}, factors, [&] { return draw<T>(rng); },
            [k](T a, T b, int n) { return add_sub_members::images_model(k, a, b, n); },
            [k](T a, T v, int n) { return add_sub_members::model(k, a, v, n); });
    };
    arith_sweep::each_member<Kel8u, Kel16u, Kel16s, Kel32f>(wide, check);
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

// Sides near 2^63 (a fuzzing finding): deciding between the 32-bit and the wide path must not
// overflow; with null images the answer is the null status.
TEST(AddSubWide, SidesNearTheTopOfTheRangeGiveAStatus)
{
    const Kel16u value[4] = {1, 2, 3, 4};
    const KeliSizeL huge{INT64_MAX, INT64_MAX};
    EXPECT_EQ(keliSubC_16u_C4RSfs_L(nullptr, 6, value, nullptr, 8, huge, INT32_MIN), kelStatusNullPtr);
}

// A negative side with a step past 32 bits takes the wide path, which does nothing; the
// scale factor that zeroes every result must not size a fill from the negative area first
// (a fuzzing finding: a negative double converted to an unsigned count).
TEST(AddSubWide, NegativeSideOnTheWidePathDoesNothing)
{
    Kel16u src[3] = {1, 2, 3}, dst[3] = {7, 8, 9};
    EXPECT_EQ(keliSub_16u_C3IRSfs_L(src, int64_t{1} << 40, dst, 0, KeliSizeL{75, -32765}, 26), kelStatusOk);
    EXPECT_EQ(dst[0], 7);
    EXPECT_EQ(dst[2], 9);
}
