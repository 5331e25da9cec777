// The general kernel filter against its scalar model: every member over widths that reach each
// vector kernel's head and tail, misaligned images, every border kind with in-memory flags, the
// divisor kinds and rounding modes at their ties, and the size queries, inits and checks.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>
#include <xmmintrin.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>
#include <vector>

#include "kit/framed.hpp"
#include "filter/general_spec.hpp"
#include "kelcore.h"
#include "keli.h"
#include "kit/random.hpp"
#include "reference/filter.hpp"

namespace {

using kit::Framed;

template <class T> constexpr KelDataType type_of = std::is_same_v<T, Kel8u>    ? kel8u
                                                   : std::is_same_v<T, Kel16s> ? kel16s
                                                   : std::is_same_v<T, Kel16u> ? kel16u
                                                   : std::is_same_v<T, Kel32f> ? kel32f
                                                                               : kel64f;

template <class T, int C>
KelStatus call(const T* s, int ss, T* d, int ds, KeliSize roi, int border, const T* v, const KeliFilterBorderSpec* spec,
               Kel8u* buf)
{
    const auto b = static_cast<KeliBorderType>(border);
#define KELI_MEMBER(TY, CH, FN) \
    if constexpr (std::is_same_v<T, TY> && C == CH) return FN(s, ss, d, ds, roi, b, v, spec, buf);
    KELI_MEMBER(Kel8u, 1, keliFilterBorder_8u_C1R)
    KELI_MEMBER(Kel8u, 3, keliFilterBorder_8u_C3R)
    KELI_MEMBER(Kel8u, 4, keliFilterBorder_8u_C4R)
    KELI_MEMBER(Kel16s, 1, keliFilterBorder_16s_C1R)
    KELI_MEMBER(Kel16s, 3, keliFilterBorder_16s_C3R)
    KELI_MEMBER(Kel16s, 4, keliFilterBorder_16s_C4R)
    KELI_MEMBER(Kel16u, 1, keliFilterBorder_16u_C1R)
    KELI_MEMBER(Kel16u, 3, keliFilterBorder_16u_C3R)
    KELI_MEMBER(Kel16u, 4, keliFilterBorder_16u_C4R)
    KELI_MEMBER(Kel32f, 1, keliFilterBorder_32f_C1R)
    KELI_MEMBER(Kel32f, 3, keliFilterBorder_32f_C3R)
    KELI_MEMBER(Kel32f, 4, keliFilterBorder_32f_C4R)
    KELI_MEMBER(Kel64f, 1, keliFilterBorder_64f_C1R)
#undef KELI_MEMBER
    return kelStatusBadArg;
}

// A kernel as a caller hands it over: 16-bit with a divisor, f32 or f64.
struct Kernel {
    KeliSize size;
    std::vector<Kel16s> ints;
    int divisor = 1;
    std::vector<Kel32f> floats;
    std::vector<Kel64f> doubles;
    int mode = kelRndNear;
    int offset = 0;
};

KelDataType kernel_type(const Kernel& k) { return !k.ints.empty() ? kel16s : !k.floats.empty() ? kel32f : kel64f; }

// Spec and scratch, each at `shift` bytes past a 64-byte boundary.
struct Prepared {
    std::vector<unsigned char> specBytes, bufferBytes;
    int shift;
    KeliFilterBorderSpec* spec() { return reinterpret_cast<KeliFilterBorderSpec*>(aligned(specBytes) + shift); }
    Kel8u* buffer() { return aligned(bufferBytes) + shift; }
    static unsigned char* aligned(std::vector<unsigned char>& v)
    {
        const auto a = reinterpret_cast<std::uintptr_t>(v.data());
        return v.data() + ((0 - a) & 63);
    }
};

template <class T> Prepared prepare(const Kernel& k, int C, KeliSize roi, int shift = 0)
{
    int specSize = 0, bufferSize = 0;
    EXPECT_EQ(keliFilterBorderGetSize(k.size, roi, type_of<T>, kernel_type(k), C, &specSize, &bufferSize), kelStatusOk);
    Prepared p{std::vector<unsigned char>(specSize + 64 + shift), std::vector<unsigned char>(bufferSize + 64 + shift), shift};
    // The queried sizes, exactly: the caller's memory ends there.
    p.specBytes.resize(specSize + ((0 - reinterpret_cast<std::uintptr_t>(p.specBytes.data())) & 63) + shift);
    const auto round = static_cast<KelRoundMode>(k.mode);
    KelStatus s;
    if (!k.ints.empty()) s = keliFilterBorderInit_16s(k.ints.data(), k.size, k.divisor, type_of<T>, C, round, p.spec());
    else if (!k.floats.empty()) s = keliFilterBorderInit_32f(k.floats.data(), k.size, type_of<T>, C, round, p.spec());
    else s = keliFilterBorderInit_64f(k.doubles.data(), k.size, type_of<T>, C, round, p.spec());
    EXPECT_GE(s, 0);
    if (k.offset) {
        EXPECT_EQ(keliFilterBorderSetMode(kelAlgHintNone, k.offset, p.spec()), kelStatusOk);
    }
    return p;
}

template <class T> bool integer_path(const Kernel& k, int C)
{
    const int kw = k.size.width, kh = k.size.height;
    return !k.ints.empty() &&
           (std::is_same_v<T, Kel8u> || (std::is_same_v<T, Kel16s> && kw > 1 && kh > 1 && C <= 2 && !(C == 1 && kw < 3)));
}

// One output element by the rules: the window through the border model, then the arithmetic.
template <class T> T model(const Kernel& k, Framed<T>& img, int border, const T* value, int x, int y, int c)
{
    const int kw = k.size.width, kh = k.size.height;
    const reference::Window w{kw, kh, (kw - 1) >> 1, (kh - 1) >> 1};
    const auto pixel = [&](int i, int j) {
        const auto at = reference::edge_source(border, w, img.width, img.height, x - w.ax + i, y - w.ay + j);
        return at.inside ? img.at(at.x, at.y, c) : value[c];
    };
    constexpr std::int64_t lo = std::is_floating_point_v<T> ? 0 : std::numeric_limits<T>::min();
    constexpr std::int64_t hi = std::is_floating_point_v<T> ? 0 : std::numeric_limits<T>::max();
    if (integer_path<T>(k, img.channels)) {
        std::int64_t sum = 0;
        for (int j = 0; j < kh; ++j)
            for (int i = 0; i < kw; ++i) sum += std::int64_t(k.ints[j * kw + i]) * pixel(i, j);
        const float offset = static_cast<float>(std::int64_t(k.offset) * k.divisor);
        return static_cast<T>(reference::integer_result(sum, offset, k.divisor, k.mode, lo, hi));
    }
    if constexpr (std::is_same_v<T, Kel64f>) {
        double s = k.doubles[0] * pixel(0, 0);
        for (int j = 0; j < kh; ++j)
            for (int i = j == 0; i < kw; ++i) s = s + k.doubles[j * kw + i] * pixel(i, j);
        return s;
    } else {
        std::vector<float> f(k.floats);
        if (!k.ints.empty())
            for (Kel16s v : k.ints) f.push_back(static_cast<float>(double(v) * (1.0 / k.divisor)));
        float s = f[0] * float(pixel(0, 0));
        for (int j = 0; j < kh; ++j)
            for (int i = j == 0; i < kw; ++i) s = s + f[j * kw + i] * float(pixel(i, j));
        if constexpr (std::is_same_v<T, Kel32f>) return s;
        else return static_cast<T>(reference::float_result(s, float(k.offset), k.mode, lo, hi));
    }
}

template <class T> T random_pixel(kit::Rng& rng, int range)
{
    if constexpr (std::is_floating_point_v<T>) return static_cast<T>(rng.below(2001) - 1000) / T(8);
    else if constexpr (std::is_same_v<T, Kel16s>) return static_cast<T>(rng.below(2 * range + 1) - range);
    else return static_cast<T>(rng.below(range + 1));
}

constexpr int kCanaryValue = 77;

// Filters a random image with `k` and compares every element with the model and every element
// around the region with the canary. Returns false after reporting the first difference.
template <class T, int C>
bool matches_model(const Kernel& k, int width, int height, int border, kit::Rng& rng, int range, int shift = 0)
{
    Framed<T> src(width, height, C, width % 3, shift), dst(width, height, C, width % 5 + 1, (shift * 3) % 7);
    for (auto& v : src.data) v = random_pixel<T>(rng, range);
    for (auto& v : dst.data) v = T(kCanaryValue);
    const T value[4] = {random_pixel<T>(rng, range), random_pixel<T>(rng, range), random_pixel<T>(rng, range),
                        random_pixel<T>(rng, range)};
    Prepared p = prepare<T>(k, C, {width, height}, shift % 64);
    const KelStatus s = call<T, C>(src.region(), int(src.step()), dst.region(), int(dst.step()), {width, height},
                                   border, value, p.spec(), p.buffer());
    EXPECT_EQ(s, kelStatusOk);
    for (int y = -kit::kMargin; y < height + kit::kMargin; ++y)
        for (int x = -kit::kMargin; x < width + kit::kMargin; ++x)
            for (int c = 0; c < C; ++c) {
                const bool inside = x >= 0 && y >= 0 && x < width && y < height;
                const T want = inside ? model(k, src, border, value, x, y, c) : T(kCanaryValue);
                const T got = dst.at(x, y, c);
                if (std::memcmp(&want, &got, sizeof(T)) != 0) {
                    ADD_FAILURE() << "kernel " << k.size.width << "x" << k.size.height << " divisor " << k.divisor
                                  << " mode " << k.mode << " region " << width << "x" << height << " border "
                                  << border << " at " << x << "," << y << "," << c << ": got " << double(got)
                                  << " want " << double(want);
                    return false;
                }
            }
    return true;
}

std::vector<Kel16s> ints(kit::Rng& rng, KeliSize s, int range)
{
    std::vector<Kel16s> v(std::size_t(s.width) * s.height);
    for (auto& e : v) e = static_cast<Kel16s>(rng.below(2 * range + 1) - range);
    return v;
}

std::vector<Kel32f> floats(kit::Rng& rng, KeliSize s)
{
    std::vector<Kel32f> v(std::size_t(s.width) * s.height);
    for (auto& e : v) e = static_cast<Kel32f>(rng.below(2001) - 1000) / 777.0f;
    return v;
}

Kernel int_kernel(kit::Rng& rng, KeliSize s, int divisor, int mode, int range = 40, int offset = 0)
{
    return {s, ints(rng, s, range), divisor, {}, {}, mode, offset};
}

Kernel float_kernel(kit::Rng& rng, KeliSize s, int mode, int offset = 0)
{
    return {s, {}, 1, floats(rng, s), {}, mode, offset};
}

const int kBorders[] = {1, 3, 6, 240, 1 | 16 | 64, 3 | 32 | 128, 6 | 16 | 128, 3 | 64, 1 | 32, 6 | 64 | 32, 3 | 16};

// Widths 1 to 40 cross every head and tail of the 16-element and 4-element vector blocks.
template <class T, int C> void sweep(const std::vector<Kernel>& kernels, int range, int widths = 40)
{
    kit::Rng rng;
    int n = 0;
    for (const Kernel& k : kernels)
        for (int width = 1; width <= widths; ++width, ++n) {
            const int border = kBorders[n % (sizeof kBorders / sizeof kBorders[0])];
            if (!matches_model<T, C>(k, width, 1 + width % 4, border, rng, range, n % 13)) return;
        }
}

TEST(FilterGeneral, EightBitMembersMatchTheModel)
{
    kit::Rng rng;
    const std::vector<Kernel> one = {
        int_kernel(rng, {3, 3}, 16, kelRndNear),       int_kernel(rng, {5, 5}, 9, kelRndFinancial),
        int_kernel(rng, {2, 2}, 1, kelRndZero),        int_kernel(rng, {1, 1}, 2, kelRndNear, 3),
        int_kernel(rng, {4, 3}, -3, kelRndNear, 40, 5), int_kernel(rng, {7, 1}, 41, kelRndZero),
        int_kernel(rng, {1, 5}, 30, kelRndNear),       float_kernel(rng, {3, 3}, kelRndNear),
        float_kernel(rng, {5, 2}, kelRndFinancial, -3), float_kernel(rng, {1, 4}, kelRndZero)};
    sweep<Kel8u, 1>(one, 255);
    const std::vector<Kernel> several = {int_kernel(rng, {3, 3}, 16, kelRndNear), int_kernel(rng, {3, 2}, 7, kelRndZero),
                                         float_kernel(rng, {2, 3}, kelRndFinancial)};
    sweep<Kel8u, 3>(several, 255, 24);
    sweep<Kel8u, 4>(several, 255, 24);
}

TEST(FilterGeneral, SixteenBitMembersMatchTheModel)
{
    kit::Rng rng;
    const std::vector<Kernel> one = {
        int_kernel(rng, {3, 3}, 16, kelRndNear),    int_kernel(rng, {5, 5}, 7, kelRndFinancial, 300),
        int_kernel(rng, {3, 2}, -1, kelRndZero),    int_kernel(rng, {1, 3}, 4, kelRndNear),
        int_kernel(rng, {2, 2}, 3, kelRndFinancial), float_kernel(rng, {3, 3}, kelRndZero)};
    sweep<Kel16s, 1>(one, 3000);
    sweep<Kel16s, 1>({int_kernel(rng, {3, 3}, 1, kelRndNear, 40)}, 32768, 20);
    const std::vector<Kernel> several = {int_kernel(rng, {3, 3}, 5, kelRndNear), float_kernel(rng, {2, 3}, kelRndFinancial)};
    sweep<Kel16s, 3>(several, 3000, 20);
    sweep<Kel16s, 4>(several, 3000, 20);
    const std::vector<Kernel> unsignedOnes = {int_kernel(rng, {3, 3}, 5, kelRndNear),
                                              float_kernel(rng, {4, 4}, kelRndFinancial, 100),
                                              float_kernel(rng, {1, 2}, kelRndZero)};
    sweep<Kel16u, 1>(unsignedOnes, 65535);
    sweep<Kel16u, 3>(unsignedOnes, 65535, 20);
    sweep<Kel16u, 4>(unsignedOnes, 65535, 20);
}

TEST(FilterGeneral, FloatMembersMatchTheModel)
{
    kit::Rng rng;
    const std::vector<Kernel> singles = {float_kernel(rng, {3, 3}, kelRndNear), float_kernel(rng, {5, 5}, kelRndNear),
                                         float_kernel(rng, {2, 3}, kelRndNear), float_kernel(rng, {1, 1}, kelRndNear),
                                         float_kernel(rng, {11, 1}, kelRndNear)};
    sweep<Kel32f, 1>(singles, 0);
    sweep<Kel32f, 3>({singles[0], singles[2]}, 0, 20);
    sweep<Kel32f, 4>({singles[0], singles[2]}, 0, 20);
    std::vector<Kernel> doubles;
    for (KeliSize s : {KeliSize{3, 3}, KeliSize{5, 5}, KeliSize{1, 4}, KeliSize{4, 1}}) {
        Kernel k{s, {}, 1, {}, {}, kelRndNear, 0};
        for (float f : floats(rng, s)) k.doubles.push_back(double(f) * 1.000001);
        doubles.push_back(k);
    }
    sweep<Kel64f, 1>(doubles, 0);
}

// Every divisor kind under every mode, at the ties: a 1x1 kernel of 1 makes the dividend the
// pixel itself, so all 256 (or a sweep of 16-bit) dividends, negative ones included, meet each
// divisor. 41/41 and 75/30 are where a reciprocal's estimate goes wrong.
TEST(FilterGeneral, DivisorKindsRoundExactlyAtTheTies)
{
    kit::Rng rng;
    for (int mode : {kelRndZero, kelRndNear, kelRndFinancial})
        for (int divisor : {1, 2, 4, 64, 3, 9, 30, 41, 6, -1, -4, 255, 1000}) {
            Kernel k{{1, 1}, {1}, divisor, {}, {}, mode, 0};
            EXPECT_TRUE((matches_model<Kel8u, 1>(k, 37, 7, 1, rng, 255)));
            // 16s takes the integer path from 3 columns and 2 rows: a single 1 among zeros.
            Kernel w{{3, 2}, {0, 0, 0, 0, 1, 0}, divisor, {}, {}, mode, 0};
            EXPECT_TRUE((matches_model<Kel16s, 1>(w, 37, 7, 3, rng, 32768)));
        }
    const auto one = [](int pixel, int divisor, int mode) {
        Kel8u src = Kel8u(pixel), dst = 0;
        Kernel k{{1, 1}, {1}, divisor, {}, {}, mode, 0};
        Prepared p = prepare<Kel8u>(k, 1, {1, 1});
        keliFilterBorder_8u_C1R(&src, 1, &dst, 1, {1, 1}, kelBorderRepl, nullptr, p.spec(), p.buffer());
        return int(dst);
    };
    EXPECT_EQ(one(41, 41, kelRndZero), 1);
    EXPECT_EQ(one(75, 30, kelRndNear), 2);
    EXPECT_EQ(one(75, 30, kelRndFinancial), 3);
    EXPECT_EQ(one(45, 30, kelRndNear), 2);
}

// Sums past 2^24 lose their low bits in f32 before the division; negative 16s dividends round
// by the mode's meaning for their sign; coefficients of 32767 and -32768 leave the pair tables
// for the scalar loop and give the same rule's results.
TEST(FilterGeneral, LargeSumsAndExtremeCoefficients)
{
    kit::Rng rng;
    Kernel big{{3, 3}, std::vector<Kel16s>(9, 1000), 9001, {}, {}, kelRndNear, 0};
    EXPECT_TRUE((matches_model<Kel16s, 1>(big, 40, 4, 1, rng, 32768)));
    for (int mode : {kelRndZero, kelRndNear, kelRndFinancial}) {
        Kernel neg = int_kernel(rng, {3, 3}, 2, mode, 40);
        EXPECT_TRUE((matches_model<Kel16s, 1>(neg, 33, 3, 3, rng, 300)));
    }
    for (Kel16s extreme : {Kel16s(32767), Kel16s(-32768)}) {
        Kernel k = int_kernel(rng, {3, 3}, 1000, kelRndNear, 3);
        k.ints[4] = extreme;
        EXPECT_TRUE((matches_model<Kel16s, 1>(k, 35, 3, 1, rng, 32768)));
        EXPECT_TRUE((matches_model<Kel8u, 1>(k, 35, 3, 6, rng, 255)));
    }
}

// The five pieces (a kernel one smaller than the region), the single temporary (a kernel as
// large as the region, and larger), under every kind and every set of flags.
TEST(FilterGeneral, PiecesAndSingleTemporaryUnderEveryFlagSet)
{
    kit::Rng rng;
    for (KeliSize ks : {KeliSize{5, 4}, KeliSize{6, 5}, KeliSize{8, 7}, KeliSize{2, 2}, KeliSize{2, 5}})
        for (int base : {1, 3, 6})
            for (int flags = 0; flags < 16; ++flags) {
                const Kernel k = int_kernel(rng, ks, 13, kelRndNear);
                if (!matches_model<Kel8u, 1>(k, 6, 5, base | flags << 4, rng, 255)) return;
                if (!matches_model<Kel32f, 3>(float_kernel(rng, ks, kelRndNear), 6, 5, base | flags << 4, rng, 0)) return;
            }
}

// A region filling whole pages between two inaccessible ones: no unflagged side reads outside.
TEST(FilterGeneral, UnflaggedSidesNeverReadOutsideTheRegion)
{
    const long page = sysconf(_SC_PAGESIZE);
    auto* map = static_cast<unsigned char*>(mmap(nullptr, 3 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(map, MAP_FAILED);
    ASSERT_EQ(mprotect(map, page, PROT_NONE), 0);
    ASSERT_EQ(mprotect(map + 2 * page, page, PROT_NONE), 0);
    Kel8u* src = map + page;
    const int width = 64, height = int(page / 64);
    for (long i = 0; i < page; ++i) src[i] = Kel8u(i * 7);
    std::vector<Kel8u> dst(page);
    kit::Rng rng;
    for (KeliSize ks : {KeliSize{3, 3}, KeliSize{7, 5}, KeliSize{2, 2}, KeliSize{64, 3}})
        for (int border : {1, 3, 6}) {
            const Kernel k = int_kernel(rng, ks, 16, kelRndNear);
            Prepared p = prepare<Kel8u>(k, 1, {width, height});
            const Kel8u value = 9;
            EXPECT_EQ(keliFilterBorder_8u_C1R(src, width, dst.data(), width, {width, height},
                                              static_cast<KeliBorderType>(border), &value, p.spec(), p.buffer()),
                      kelStatusOk);
        }
    munmap(map, 3 * page);
}

// The caller's rounding control (upward here) never shows, and comes back as it was.
TEST(FilterGeneral, CallerRoundingModeIsRestoredAndIgnored)
{
    const unsigned before = _mm_getcsr();
    _mm_setcsr((before & ~0x6000u) | 0x4000u);
    const unsigned upward = _mm_getcsr();
    kit::Rng rng;
    const Kernel k8 = int_kernel(rng, {3, 3}, 9, kelRndNear), kf = float_kernel(rng, {3, 3}, kelRndNear);
    Framed<Kel8u> src8(37, 4, 1), dst8(37, 4, 1);
    for (auto& v : src8.data) v = random_pixel<Kel8u>(rng, 255);
    Prepared p = prepare<Kel8u>(k8, 1, {37, 4});
    keliFilterBorder_8u_C1R(src8.region(), int(src8.step()), dst8.region(), int(dst8.step()), {37, 4}, kelBorderRepl,
                            nullptr, p.spec(), p.buffer());
    EXPECT_EQ(_mm_getcsr(), upward);
    Framed<Kel32f> srcf(37, 4, 1), dstf(37, 4, 1);
    for (auto& v : srcf.data) v = random_pixel<Kel32f>(rng, 0);
    Prepared q = prepare<Kel32f>(kf, 1, {37, 4});
    keliFilterBorder_32f_C1R(srcf.region(), int(srcf.step()), dstf.region(), int(dstf.step()), {37, 4}, kelBorderMirror,
                             nullptr, q.spec(), q.buffer());
    EXPECT_EQ(_mm_getcsr(), upward);
    _mm_setcsr(before);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 37; ++x) {
            EXPECT_EQ(dst8.at(x, y, 0), model(k8, src8, kelBorderRepl, (Kel8u*)nullptr, x, y, 0));
            EXPECT_EQ(dstf.at(x, y, 0), model(kf, srcf, kelBorderMirror, (Kel32f*)nullptr, x, y, 0));
        }
}

// The spec is found at the first 64-byte boundary whatever the block's address; code 2 reads
// as the 16u float path; the filter never writes to the spec.
TEST(FilterGeneral, SpecPlacementAndPathCodes)
{
    kit::Rng rng;
    const Kernel k = int_kernel(rng, {3, 3}, 5, kelRndNear);
    for (int shift : {0, 1, 17, 63}) EXPECT_TRUE((matches_model<Kel16u, 1>(k, 21, 3, 3, rng, 65535, shift)));
    const Kernel ones{{3, 3}, std::vector<Kel16s>(9, 1), 5, {}, {}, kelRndNear, 0};
    Prepared p = prepare<Kel16u>(ones, 1, {8, 2});
    auto* record = keli::filter::spec_record(p.spec());
    EXPECT_EQ(record->pathCode, keli::filter::kPath16uFloat);
    Kel16u src[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}, five[16] = {}, two[16] = {};
    EXPECT_EQ(keliFilterBorder_16u_C1R(src, 16, five, 16, {8, 2}, kelBorderRepl, nullptr, p.spec(), p.buffer()), kelStatusOk);
    record->pathCode = keli::filter::kPath16uIntUnused;
    const std::vector<unsigned char> before = p.specBytes;
    EXPECT_EQ(keliFilterBorder_16u_C1R(src, 16, two, 16, {8, 2}, kelBorderRepl, nullptr, p.spec(), p.buffer()), kelStatusOk);
    EXPECT_EQ(std::vector<Kel16u>(five, five + 16), std::vector<Kel16u>(two, two + 16));
    EXPECT_EQ(five[0], 7);  // ((1 + 1 + 2) * 2 + 9 + 9 + 10) / 5 = 7.2
    EXPECT_EQ(p.specBytes, before);
}

TEST(FilterGeneral, InitsAndSetModeFollowTheirRules)
{
    std::vector<unsigned char> block(4096);
    auto* spec = reinterpret_cast<KeliFilterBorderSpec*>(block.data() + 5);
    const Kel16s k16[9] = {1, 2, 1, 2, 4, 2, 1, 2, 1};
    const Kel32f k32[9] = {};
    const Kel64f k64[9] = {};
    const KeliSize s3{3, 3};
    const auto near = kelRndNear;
    // Init_16s: pointers, size, data type, channels, rounding mode, then the divisor.
    EXPECT_EQ(keliFilterBorderInit_16s(nullptr, s3, 0, kel64f, 9, near, spec), kelStatusNullPtr);
    EXPECT_EQ(keliFilterBorderInit_16s(k16, {0, 3}, 0, kel64f, 9, near, spec), kelStatusBadSize);
    EXPECT_EQ(keliFilterBorderInit_16s(k16, s3, 0, kel32f, 9, near, spec), kelStatusBadDataType);
    EXPECT_EQ(keliFilterBorderInit_16s(k16, s3, 0, kel8u, 5, near, spec), kelStatusBadChannel);
    EXPECT_EQ(keliFilterBorderInit_16s(k16, s3, 0, kel8u, 1, KelRoundMode(3), spec), kelStatusBadRoundMode);
    // Any 32-bit rounding code is a status, never undefined behaviour (found by fuzzing).
    EXPECT_EQ(keliFilterBorderInit_32f(k32, s3, kel32f, 1, KelRoundMode(30), spec), kelStatusBadRoundMode);
    EXPECT_EQ(keliFilterBorderInit_32f(k32, s3, kel32f, 1, KelRoundMode(-1), spec), kelStatusBadRoundMode);
    EXPECT_EQ(keliFilterBorderInit_16s(k16, s3, 0, kel8u, 1, near, spec), kelStatusZeroDivisor);
    // The accurate flag: honoured on 8u and on 16s one-channel integer kernels, a warning elsewhere.
    const auto accurate = KelRoundMode(kelRndNear | 16);
    EXPECT_EQ(keliFilterBorderInit_16s(k16, s3, 16, kel8u, 3, accurate, spec), kelStatusOk);
    EXPECT_EQ(keliFilterBorderInit_16s(k16, s3, 16, kel16s, 1, accurate, spec), kelStatusOk);
    EXPECT_EQ(keliFilterBorderInit_16s(k16, s3, 16, kel16s, 2, accurate, spec), kelStatusAccurateIgnored);
    EXPECT_EQ(keliFilterBorderInit_16s(k16, s3, 16, kel16u, 1, accurate, spec), kelStatusAccurateIgnored);
    EXPECT_EQ(keliFilterBorderInit_16s(k16, {1, 3}, 16, kel16s, 1, accurate, spec), kelStatusAccurateIgnored);
    EXPECT_EQ(keliFilterBorderInit_32f(k32, s3, kel32f, 1, accurate, spec), kelStatusAccurateIgnored);
    EXPECT_EQ(keliFilterBorderInit_32f(k32, s3, kel64f, 1, near, spec), kelStatusBadDataType);
    EXPECT_EQ(keliFilterBorderInit_32f(k32, s3, kel8u, 0, near, spec), kelStatusBadChannel);
    EXPECT_EQ(keliFilterBorderInit_64f(k64, s3, kel64f, 1, kelRndZero, spec), kelStatusBadRoundMode);
    EXPECT_EQ(keliFilterBorderInit_64f(k64, s3, kel32f, 1, near, spec), kelStatusBadDataType);
    EXPECT_EQ(keliFilterBorderInit_64f(k64, s3, kel64f, 3, near, spec), kelStatusBadChannel);
    EXPECT_EQ(keliFilterBorderInit_64f(k64, s3, kel64f, 1, accurate, spec), kelStatusOk);
    // The record: reversed table, pairs four times over, divisor fields.
    ASSERT_EQ(keliFilterBorderInit_16s(k16, s3, 16, kel16s, 1, near, spec), kelStatusOk);
    const auto* r = keli::filter::spec_record(spec);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(r) % 64, 0u);
    EXPECT_EQ(r->pathCode, keli::filter::kPath16sInt);
    EXPECT_EQ(r->divisorKind, keli::filter::kDivShift);
    EXPECT_EQ(r->divisorShift, 4u);
    EXPECT_EQ(r->divisorHalf, 8u);
    EXPECT_EQ(r->divisorMask, 15u);
    EXPECT_EQ(r->reversed16s[0], 1);
    EXPECT_EQ(r->reversed16s[1], 2);
    EXPECT_EQ(r->pairs[0], 1);
    EXPECT_EQ(r->pairs[1], 2);
    EXPECT_EQ(r->pairs[6], 1);
    EXPECT_EQ(r->pairs[8], 1);  // the odd last coefficient with 0
    EXPECT_EQ(r->pairs[9], 0);
    EXPECT_EQ(r->pairTableUsable, 1);
    // SetMode: offsets refused on the paths that take none; 64f with no offset returns at once.
    EXPECT_EQ(keliFilterBorderSetMode(kelAlgHintNone, 0, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliFilterBorderSetMode(kelAlgHintNone, 3, spec), kelStatusUnsupportedMode);
    EXPECT_EQ(keliFilterBorderSetMode(kelAlgHintAccurate, 0, spec), kelStatusOk);
    EXPECT_EQ(r->roundMode, unsigned(kelRndNear | 16));
    EXPECT_EQ(keliFilterBorderSetMode(kelAlgHintFast, 0, spec), kelStatusOk);
    EXPECT_EQ(r->roundMode, unsigned(kelRndNear));
    ASSERT_EQ(keliFilterBorderInit_16s(k16, s3, 6, kel8u, 1, near, spec), kelStatusOk);
    EXPECT_EQ(keliFilterBorderSetMode(kelAlgHintNone, 7, spec), kelStatusOk);
    EXPECT_EQ(r->offsetF32, 42.0f);
    ASSERT_EQ(keliFilterBorderInit_64f(k64, s3, kel64f, 1, near, spec), kelStatusOk);
    EXPECT_EQ(keliFilterBorderSetMode(kelAlgHintAccurate, 0, spec), kelStatusOk);
    EXPECT_EQ(r->hint, 0);
    EXPECT_EQ(keliFilterBorderSetMode(kelAlgHintNone, 1, spec), kelStatusUnsupportedMode);
}

// An 8u offset is added before the division, as offset * divisor; 16u adds it as it is.
TEST(FilterGeneral, OffsetsFromSetMode)
{
    kit::Rng rng;
    EXPECT_TRUE((matches_model<Kel8u, 1>(int_kernel(rng, {3, 3}, 7, kelRndNear, 40, -11), 30, 3, 1, rng, 255)));
    EXPECT_TRUE((matches_model<Kel8u, 3>(float_kernel(rng, {3, 3}, kelRndZero, 20), 30, 3, 1, rng, 255)));
    EXPECT_TRUE((matches_model<Kel16u, 1>(int_kernel(rng, {3, 3}, 3, kelRndFinancial, 40, 500), 30, 3, 1, rng, 65535)));
}

TEST(FilterGeneral, SizeQueries)
{
    int spec = -1, buffer = -1;
    const KeliSize k3{3, 3}, roi{100, 50};
    EXPECT_EQ(keliFilterBorderGetSize({0, 3}, roi, kel8u, kel16s, 1, &spec, &buffer), kelStatusBadSize);
    EXPECT_EQ(keliFilterBorderGetSize(k3, {100, 0}, kel8u, kel16s, 1, &spec, &buffer), kelStatusBadSize);
    EXPECT_EQ(keliFilterBorderGetSize(k3, roi, kel8u, kel64f, 9, nullptr, &buffer), kelStatusBadDataType);
    EXPECT_EQ(keliFilterBorderGetSize(k3, roi, kel8u, kel16s, 9, nullptr, &buffer), kelStatusBadChannel);
    EXPECT_EQ(keliFilterBorderGetSize(k3, roi, kel8u, kel16s, 1, nullptr, &buffer), kelStatusNullPtr);
    EXPECT_EQ(keliFilterBorderGetSize(k3, roi, kel64f, kel32f, 1, &spec, &buffer), kelStatusBadDataType);
    EXPECT_EQ(keliFilterBorderGetSize(k3, roi, kel64f, kel64f, 3, &spec, &buffer), kelStatusBadChannel);
    EXPECT_EQ(keliFilterBorderGetSize(k3, roi, kel8s, kel16s, 1, &spec, &buffer), kelStatusBadDataType);
    // 8u, 16-bit kernel, one channel: spec 64*... + 64 + 191; border (2*102 + ...) and the
    // working space, which depends on the processor's 512-bit feature.
    ASSERT_EQ(keliFilterBorderGetSize(k3, roi, kel8u, kel16s, 1, &spec, &buffer), kelStatusOk);
    EXPECT_EQ(spec, 3 * 4 * 80 + 64 + 191);
    const int border = ((3 - 1 + 1) * (2 + 100) + 31) / 32 * 32 + 32;  // max(3*102, 3*52) bytes
    int work = ((((3 * 8 + 8) & 0x3FFFFFF0) * 3 + 100) * 4 + 28) & ~31;
    if (ownGetFeature(kelCpuAVX512F)) work = std::max(3 * 1 * 64, work);
    EXPECT_EQ(buffer, border + ((work + 191) & ~63) + 63);
    // 16-bit kernels on 16u data are sized as float kernels.
    int spec16 = 0, spec32 = 0;
    ASSERT_EQ(keliFilterBorderGetSize(k3, roi, kel16u, kel16s, 1, &spec16, &buffer), kelStatusOk);
    ASSERT_EQ(keliFilterBorderGetSize(k3, roi, kel16u, kel32f, 1, &spec32, &buffer), kelStatusOk);
    EXPECT_EQ(spec16, spec32);
    EXPECT_EQ(spec32, 3 * 4 * 80 + 64 + 191 + 192);
    ASSERT_EQ(keliFilterBorderGetSize(k3, roi, kel64f, kel64f, 1, &spec, &buffer), kelStatusOk);
    EXPECT_EQ(spec, 128 + 191);
    EXPECT_EQ(buffer, ((3 * 102 * 8 + 31) / 32 * 32 + 32) + (3 * (((3 * 16 + 32) & ~31) + 12) + 15) + 126);
    EXPECT_EQ(keliFilterBorderGetSize({30000, 30000}, {30000, 30000}, kel32f, kel32f, 4, &spec, &buffer),
              kelStatusSizeOverflow);
    EXPECT_EQ(buffer, 0);
    // Sides near 2^31 multiply past 64 bits on the way to the sizes.
    const KeliSize huge{0x7FFFFFFF, 0x7FFFFFFF};
    for (KelDataType t : {kel8u, kel16s, kel32f})
        EXPECT_EQ(keliFilterBorderGetSize(huge, huge, t, t == kel8u ? kel16s : t, 4, &spec, &buffer), kelStatusSizeOverflow);
    EXPECT_EQ(keliFilterBorderGetSize(huge, huge, kel64f, kel64f, 1, &spec, &buffer), kelStatusSizeOverflow);
    EXPECT_EQ(keliFilterGetBufSize_64f_C1R(huge, 0x7FFFFFFF, &buffer), kelStatusSizeOverflow);
    EXPECT_EQ(keliFilterGetBufSize_64f_C1R(k3, 10, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliFilterGetBufSize_64f_C1R({1, 0}, 10, &buffer), kelStatusBadSize);
    ASSERT_EQ(keliFilterGetBufSize_64f_C1R({1, 5}, 15, &buffer), kelStatusOk);
    EXPECT_EQ(buffer, 0);
    ASSERT_EQ(keliFilterGetBufSize_64f_C1R({1, 5}, 16, &buffer), kelStatusOk);
    EXPECT_EQ(buffer, 160);
}

// Checks in order, nothing written: src, dst, spec, buffer; the constant's value; the region;
// the steps (the destination against one channel's row); the border.
TEST(FilterGeneral, FilterChecksInOrderAndWritesNothing)
{
    kit::Rng rng;
    const Kernel k = int_kernel(rng, {3, 3}, 9, kelRndNear);
    Prepared p = prepare<Kel8u>(k, 3, {8, 4});
    std::vector<Kel8u> src(200, 1), dst(200, kCanaryValue);
    const Kel8u v[3] = {1, 2, 3};
    auto* s = src.data();
    auto* d = dst.data();
    const struct {
        const Kel8u* src;
        Kel8u* dst;
        const KeliFilterBorderSpec* spec;
        Kel8u* buffer;
        int srcStep, dstStep;
        KeliSize roi;
        int border;
        const Kel8u* value;
        KelStatus want;
    } cases[] = {
        {nullptr, d, p.spec(), p.buffer(), 24, 24, {8, 4}, 6, nullptr, kelStatusNullPtr},
        {s, nullptr, p.spec(), p.buffer(), 24, 24, {8, 4}, 999, nullptr, kelStatusNullPtr},
        {s, d, nullptr, p.buffer(), 24, 24, {0, 4}, 1, v, kelStatusNullPtr},
        {s, d, p.spec(), nullptr, 24, 24, {8, 4}, 1, v, kelStatusNullPtr},
        {s, d, p.spec(), p.buffer(), 0, 0, {0, 4}, 6, nullptr, kelStatusNullPtr},
        {s, d, p.spec(), p.buffer(), 0, 0, {8, 0}, 999, v, kelStatusBadSize},
        {s, d, p.spec(), p.buffer(), 0, 24, {8, 4}, 999, v, kelStatusBadStep},
        {s, d, p.spec(), p.buffer(), 24, 7, {8, 4}, 999, v, kelStatusBadStep},
        {s, d, p.spec(), p.buffer(), 24, 8, {8, 4}, 256, v, kelStatusBadBorder},
        {s, d, p.spec(), p.buffer(), 24, 8, {8, 4}, 2, v, kelStatusBadBorder},
        {s, d, p.spec(), p.buffer(), 24, 8, {8, 4}, 16 | 7, v, kelStatusBadBorder},
        {s, d, p.spec(), p.buffer(), 24, 8, {8, 4}, 0, v, kelStatusBadBorder},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(keliFilterBorder_8u_C3R(c.src, c.srcStep, c.dst, c.dstStep, c.roi, KeliBorderType(c.border), c.value,
                                          c.spec, c.buffer),
                  c.want)
            << "border " << c.border;
        EXPECT_EQ(dst, std::vector<Kel8u>(200, kCanaryValue));
    }
    // The destination step counts one channel: 8 bytes pass for an 8-pixel C3 row. The region
    // starts a row and a pixel into the source, whose memory holds the window all round.
    EXPECT_EQ(keliFilterBorder_8u_C3R(s + 27, 24, d, 8, {8, 1}, kelBorderInMem, nullptr, p.spec(), p.buffer()),
              kelStatusOk);
}

// keliFilter_64f_C1R: a true convolution with the caller's anchor over memory around the region.
TEST(FilterGeneral, Filter64fIsATrueConvolution)
{
    kit::Rng rng;
    for (KeliSize ks : {KeliSize{3, 3}, KeliSize{4, 2}, KeliSize{1, 5}, KeliSize{6, 1}})
        for (int width : {1, 2, 7, 9, 16}) {
            const KeliPoint anchor{ks.width - 1, ks.height / 2};
            std::vector<Kel64f> kernel;
            for (float f : floats(rng, ks)) kernel.push_back(f);
            Framed<Kel64f> src(width, 3, 1), dst(width, 3, 1);
            for (auto& v : src.data) v = random_pixel<Kel64f>(rng, 0);
            int bufferSize = 0;
            ASSERT_EQ(keliFilterGetBufSize_64f_C1R(ks, width, &bufferSize), kelStatusOk);
            std::vector<Kel8u> buffer(bufferSize + 1);
            ASSERT_EQ(keliFilter_64f_C1R(src.region(), int(src.step()), dst.region(), int(dst.step()), {width, 3},
                                         kernel.data(), ks, anchor, buffer.data()),
                      kelStatusOk);
            for (int y = 0; y < 3; ++y)
                for (int x = 0; x < width; ++x) {
                    // Window walked down and right, the kernel met from its last coefficient.
                    const int x0 = x + anchor.x - (ks.width - 1), y0 = y + anchor.y - (ks.height - 1);
                    double s = 0;
                    bool first = true;
                    for (int j = 0; j < ks.height; ++j)
                        for (int i = 0; i < ks.width; ++i) {
                            const double term = kernel[(ks.height - 1 - j) * ks.width + (ks.width - 1 - i)] *
                                                src.at(x0 + i, y0 + j, 0);
                            s = first ? term : s + term;
                            first = false;
                        }
                    ASSERT_EQ(dst.at(x, y, 0), s) << "kernel " << ks.width << "x" << ks.height << " at " << x << "," << y;
                }
        }
    Kel64f one = 1, out = 0;
    std::vector<Kel8u> buffer(64);
    EXPECT_EQ(keliFilter_64f_C1R(&one, 8, &out, 8, {1, 1}, nullptr, {1, 1}, {0, 0}, buffer.data()), kelStatusNullPtr);
    EXPECT_EQ(keliFilter_64f_C1R(&one, 8, &out, 8, {1, 1}, &one, {1, 1}, {0, 0}, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliFilter_64f_C1R(&one, 8, &out, 8, {1, 1}, &one, {0, 1}, {0, 0}, buffer.data()), kelStatusBadSize);
    EXPECT_EQ(keliFilter_64f_C1R(&one, 0, &out, 8, {1, 1}, &one, {1, 1}, {0, 0}, buffer.data()), kelStatusBadStep);
    EXPECT_EQ(keliFilter_64f_C1R(&one, 8, &out, 8, {1, 1}, &one, {1, 1}, {1, 0}, buffer.data()), kelStatusBadAnchor);
    EXPECT_EQ(out, 0);
}

}  // namespace
