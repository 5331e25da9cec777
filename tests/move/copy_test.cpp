// keliCopy and keliCopyManaged_8u_C1R: the run kernels against plain loops, every member against
// its model over the geometry sweep (negative steps included, guard bytes and untouched
// channels checked), the cache descriptor table, the wide path, overlap in the channel copy,
// and the check order.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "keli.h"
#include "move/rows/cache_descriptors.hpp"
#include "move/rows/copy_run.hpp"
#include "move/rows/shuffle.hpp"
#include "move/shuffle_image.hpp"
#include "reference/copy.hpp"

namespace {

using reference::Side;

template <class T> struct Copy;
#define KELI_COPY_MEMBERS(t)                                                                                       \
    template <> struct Copy<Kel##t> {                                                                              \
        static constexpr decltype(&keliCopy_##t##_C1R) whole[] = {keliCopy_##t##_C1R, keliCopy_##t##_C3R,         \
                                                                  keliCopy_##t##_C4R, keliCopy_##t##_AC4R};        \
        static constexpr decltype(&keliCopy_##t##_C1R_L) wide[] = {keliCopy_##t##_C1R_L, keliCopy_##t##_C3R_L,     \
                                                                   keliCopy_##t##_C4R_L, keliCopy_##t##_AC4R_L};   \
        static constexpr decltype(&keliCopy_##t##_C1MR) masked[] = {keliCopy_##t##_C1MR, keliCopy_##t##_C3MR,      \
                                                                    keliCopy_##t##_C4MR, keliCopy_##t##_AC4MR};    \
        /* C3C1 C4C1 C1C3 C1C4 C3CR C4CR C3AC4 AC4C3 */                                                          \
        static constexpr decltype(&keliCopy_##t##_C1R) channel[] = {                                               \
            keliCopy_##t##_C3C1R, keliCopy_##t##_C4C1R, keliCopy_##t##_C1C3R, keliCopy_##t##_C1C4R,                \
            keliCopy_##t##_C3CR,  keliCopy_##t##_C4CR,  keliCopy_##t##_C3AC4R, keliCopy_##t##_AC4C3R};             \
        static constexpr auto c3p3 = keliCopy_##t##_C3P3R;                                                         \
        static constexpr auto c4p4 = keliCopy_##t##_C4P4R;                                                         \
        static constexpr auto p3c3 = keliCopy_##t##_P3C3R;                                                         \
        static constexpr auto p4c4 = keliCopy_##t##_P4C4R;                                                         \
    }
KELI_COPY_MEMBERS(8u);
KELI_COPY_MEMBERS(16u);
KELI_COPY_MEMBERS(16s);
KELI_COPY_MEMBERS(32s);
KELI_COPY_MEMBERS(32f);
#undef KELI_COPY_MEMBERS

// Widths that take every run kernel through its vector loops: at least 400 bytes a row.
kit::SweepOptions sweep_for(int pixelBytes, bool negative = true)
{
    kit::SweepOptions o;
    o.maxWidth = std::max(80, 400 / pixelBytes);
    o.negativeSteps = negative;
    return o;
}

const int kChannels[] = {1, 3, 4, 4};

// A plain byte copy is the model of every run kernel: lengths past several 128-byte turns and
// the start of the prefetching body, every source and destination offset in a cache line, guard
// bytes on both sides.
template <class Copy> void check_run_kernel(Copy copy, const char* name)
{
    kit::Rng rng;
    std::vector<unsigned char> src(4096 + 256), dst(4096 + 256), want;
    for (auto& b : src) b = static_cast<unsigned char>(rng.below(256));
    std::vector<std::size_t> lengths;
    for (std::size_t n = 0; n <= 72; ++n) lengths.push_back(n);  // every short form and overlap
    for (std::size_t n : {80, 100, 127, 128, 129, 191, 255, 256, 300, 383, 511, 512, 527, 528, 777, 1024, 2047, 2048,
                          2049, 2063, 2064, 2100, 3001, 4000})
        lengths.push_back(n);
    for (std::size_t n : lengths)
        for (int so = 0; so < 64; so += (n > 300 ? 7 : n <= 72 ? 5 : 1))
            for (int dof = 0; dof < 64; dof += (n > 300 ? 5 : 3)) {
                std::fill(dst.begin(), dst.end(), kit::kCanary);
                unsigned char* base = dst.data() + 64;
                base += (0 - reinterpret_cast<std::uintptr_t>(base)) & 63;
                const unsigned char* from = src.data() + 64 + so;
                copy(from, base + dof, n);
                want.assign(dst.size(), kit::kCanary);
                std::memcpy(want.data() + (base + dof - dst.data()), from, n);
                if (dst == want) continue;
                const std::size_t i = std::size_t(std::mismatch(dst.begin(), dst.end(), want.begin()).first - dst.begin());
                FAIL() << name << " length " << n << " src offset " << so << " dst offset " << dof << " byte " << i;
            }
}

TEST(CopyRuns, EveryKindMatchesAByteLoop)
{
    using namespace keli::rows;
    check_run_kernel([](const void* s, void* d, std::size_t n) { copy_bytes(s, d, n); }, "ordinary");
    check_run_kernel([](const void* s, void* d, std::size_t n) { copy_bytes_nt(s, d, n), _mm_sfence(); },
                     "non-temporal");
    check_run_kernel(copy_bytes_managed<ManagedCopy::Ordinary>, "managed ordinary");
    check_run_kernel([](const void* s, void* d, std::size_t n) {
        copy_bytes_managed<ManagedCopy::NonTemporalStore>(s, d, n), _mm_sfence();
    }, "managed store");
    check_run_kernel([](const void* s, void* d, std::size_t n) {
        copy_bytes_managed<ManagedCopy::NonTemporalLoad>(s, d, n), _mm_sfence();
    }, "managed load");
}

TEST(CopyRuns, CacheDescriptorsDecodeToTheLargestListedSize)
{
    using keli::rows::cache_bytes_from_descriptors;
    auto decode = [](std::uint32_t a, std::uint32_t b, std::uint32_t c, std::uint32_t d) {
        const std::uint32_t words[4] = {a, b, c, d};
        return cache_bytes_from_descriptors(words);
    };
    // 0x43 (512 KB) comes first among the bytes, but 0xEC (24 MB) stands higher in the table.
    EXPECT_EQ(decode(0x00EC4301u, 0, 0, 0), 24ll << 20);
    EXPECT_EQ(decode(0x00000001u, 0x4D000000u, 0, 0), 16ll << 20);
    EXPECT_EQ(decode(0x00000001u, 0, 0x00480000u, 0), 3ll << 20);
    EXPECT_EQ(decode(0x00000001u, 0, 0, 0x000000E2u), 2ll << 20);
    EXPECT_EQ(decode(0x00002201u, 0, 0, 0), 512ll << 10);
    // A word with bit 31 set holds nothing: its 0xEC is not seen.
    EXPECT_EQ(decode(0x00004301u, 0x800000ECu, 0, 0), 512ll << 10);
    // The low byte is the call count, not a descriptor, and must be 1.
    EXPECT_EQ(decode(0x0000EC02u, 0, 0, 0), 0);
    EXPECT_EQ(decode(0x00FEFF01u, 0xF0u, 0, 0), 0);  // "see leaf 4" and a prefetch descriptor only
    EXPECT_EQ(decode(0x000000ECu, 0, 0, 0), 0);
}

template <class T> void whole_pixel_sweep()
{
    for (int f = 0; f < 4; ++f) {
        SCOPED_TRACE("layout " + std::to_string(f) + " element bytes " + std::to_string(sizeof(T)));
        const int C = kChannels[f];
        const int colour = f == 3 ? 3 : C;
        auto model = [&](const Side<T>& s, Side<T>& e, int x, int y) {
            for (int c = 0; c < colour; ++c) e.at(x, y, c) = s.at(x, y, c);
        };
        reference::layout_sweep<T>({C, false}, {C, false}, [&](Side<T>& s, Side<T>& d, KeliSize size) {
            return Copy<T>::whole[f](s.data(), s.step(), d.data(), d.step(), size);
        }, model, sweep_for(C * sizeof(T)));
        kit::SweepOptions few = sweep_for(C * sizeof(T));
        few.maxWidth = 40;
        reference::layout_sweep<T>({C, false}, {C, false}, [&](Side<T>& s, Side<T>& d, KeliSize size) {
            return Copy<T>::wide[f](s.data(), s.step(), d.data(), d.step(), KeliSizeL{size.width, size.height});
        }, model, few);
    }
}

TEST(Copy, WholePixelsAndWideMembersMatchTheModel)
{
    whole_pixel_sweep<Kel8u>();
    whole_pixel_sweep<Kel16u>();
    whole_pixel_sweep<Kel16s>();
    whole_pixel_sweep<Kel32s>();
    whole_pixel_sweep<Kel32f>();
}

TEST(Copy, ManagedCopyGivesTheSameBytesUnderEveryFlag)
{
    for (int flags : {0, 1, 2, 3, -1, 0x100}) {
        SCOPED_TRACE("flags " + std::to_string(flags));
        reference::layout_sweep<Kel8u>({1, false}, {1, false}, [&](Side<Kel8u>& s, Side<Kel8u>& d, KeliSize size) {
            return keliCopyManaged_8u_C1R(s.data(), s.step(), d.data(), d.step(), size, flags);
        }, [](const Side<Kel8u>& s, Side<Kel8u>& e, int x, int y) { e.at(x, y, 0) = s.at(x, y, 0); }, sweep_for(1));
    }
}

TEST(Copy, ZeroStepsRepeatOneRow)
{
    // A source step of 0 reads row 0 for every row; a destination step of 0 leaves the last row.
    Kel8u src[3][70], dst[3][70] = {};
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 70; ++x) src[y][x] = static_cast<Kel8u>(y * 70 + x);
    ASSERT_EQ(keliCopy_8u_C1R(src[0], 0, dst[0], 70, {70, 3}), kelStatusOk);
    for (int y = 0; y < 3; ++y) EXPECT_EQ(std::memcmp(dst[y], src[0], 70), 0) << y;
    std::memset(dst, 0, sizeof dst);
    ASSERT_EQ(keliCopyManaged_8u_C1R(src[0], 70, dst[0], 0, {70, 3}, 2), kelStatusOk);
    EXPECT_EQ(std::memcmp(dst[0], src[2], 70), 0);
    EXPECT_EQ(dst[1][0], 0);
    Kel16s s4[8] = {1, 2, 3, 4, 5, 6, 7, 8}, d4[16] = {};
    ASSERT_EQ(keliCopy_16s_AC4R(s4, 0, d4, 16, {2, 2}), kelStatusOk);
    const Kel16s want[16] = {1, 2, 3, 0, 5, 6, 7, 0, 1, 2, 3, 0, 5, 6, 7, 0};
    EXPECT_EQ(std::memcmp(d4, want, sizeof want), 0);
}

// A reservation of address space that the system backs only where it is touched: steps above
// 2^31 without gigabytes of memory.
struct Reserve {
    std::size_t bytes;
    unsigned char* p;
    explicit Reserve(std::size_t n) : bytes(n)
    {
        void* m = mmap(nullptr, n, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        p = m == MAP_FAILED ? nullptr : static_cast<unsigned char*>(m);
    }
    ~Reserve()
    {
        if (p) munmap(p, bytes);
    }
};

TEST(Copy, WideStepsWalkRowsWithSixtyFourBitSteps)
{
    const std::int64_t step = (std::int64_t(1) << 32) + 64;
    Reserve space(std::size_t(2 * step + 4096));
    if (!space.p) GTEST_SKIP() << "no address space for a wide step";
    Kel16u src[3][40];
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 40; ++x) src[y][x] = static_cast<Kel16u>(1000 * y + x);
    // Rows at +step and, with a negative step, back toward the start of the reservation.
    auto* first = reinterpret_cast<Kel16u*>(space.p + 32);
    ASSERT_EQ(keliCopy_16u_C4R_L(src[0], 80, first, step, KeliSizeL{10, 3}), kelStatusOk);
    for (int y = 0; y < 3; ++y) {
        const auto* row = reinterpret_cast<const Kel16u*>(space.p + 32 + y * step);
        EXPECT_EQ(std::memcmp(row, src[y], 80), 0) << y;
        EXPECT_EQ(row[40], 0) << "past the row";
        EXPECT_EQ(row[-1], 0) << "before the row";
    }
    auto* last = reinterpret_cast<Kel16u*>(space.p + 32 + 2 * step);
    Kel16u back[3][40] = {};
    ASSERT_EQ(keliCopy_16u_AC4R_L(last, -step, back[0], 80, KeliSizeL{10, 3}), kelStatusOk);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 40; ++x) ASSERT_EQ(back[y][x], x % 4 == 3 ? 0 : src[2 - y][x]) << y << " " << x;
    // The wide members check their 64-bit size themselves, before anything else happens.
    EXPECT_EQ(keliCopy_8u_C1R_L(space.p, step, space.p, step, KeliSizeL{-1, 3}), kelStatusBadSize);
    EXPECT_EQ(keliCopy_8u_C1R_L(space.p, step, space.p, step, KeliSizeL{5, 0}), kelStatusBadSize);
    EXPECT_EQ(keliCopy_8u_C1R_L(nullptr, step, space.p, step, KeliSizeL{-1, 3}), kelStatusNullPtr);
}

// Channel forms: pointers address channel c of the pixel; the model is a loop over elements.
template <class T> void channel_sweep()
{
    kit::SweepOptions o = sweep_for(4 * sizeof(T));
    o.maxWidth = 72;
    struct Form {
        int in, out;
        int picked;  // channel the pointers address, swept; -1 for whole-pixel forms
    };
    const Form forms[] = {{3, 1, 0}, {4, 1, 0}, {1, 3, 0}, {1, 4, 0}, {3, 3, 0}, {4, 4, 0}, {3, 4, -1}, {4, 3, -1}};
    for (int f = 0; f < 8; ++f) {
        const Form form = forms[f];
        const int wider = std::max(form.in, form.out);
        for (int c = 0; c < (form.picked < 0 ? 1 : wider); ++c) {
            SCOPED_TRACE("form " + std::to_string(f) + " channel " + std::to_string(c));
            const int cs = form.in > 1 ? c : 0, cd = form.out > 1 ? c : 0;
            reference::layout_sweep<T>({form.in, false}, {form.out, false}, [&](Side<T>& s, Side<T>& d, KeliSize size) {
                return Copy<T>::channel[f](&s.at(0, 0, form.picked < 0 ? 0 : cs), s.step(),
                                           &d.at(0, 0, form.picked < 0 ? 0 : cd), d.step(), size);
            }, [&](const Side<T>& s, Side<T>& e, int x, int y) {
                if (form.picked >= 0) e.at(x, y, cd) = s.at(x, y, cs);
                else
                    for (int k = 0; k < 3; ++k) e.at(x, y, k) = s.at(x, y, k);
            }, o);
        }
    }
}

TEST(Copy, ChannelFormsMatchTheModelForEveryChannel)
{
    channel_sweep<Kel8u>();
    channel_sweep<Kel16u>();
    channel_sweep<Kel16s>();
    channel_sweep<Kel32s>();
    channel_sweep<Kel32f>();
}

template <class T> void planar_sweep()
{
    auto o = sweep_for(3 * sizeof(T));
    o.maxWidth = 72;
    auto same = [](int C) {
        return [C](const Side<T>& s, Side<T>& e, int x, int y) {
            for (int c = 0; c < C; ++c) e.at(x, y, c) = s.at(x, y, c);
        };
    };
    reference::layout_sweep<T>({3, false}, {3, true}, [](Side<T>& s, Side<T>& d, KeliSize size) {
        T* const planes[3] = {d.data(0), d.data(1), d.data(2)};
        return Copy<T>::c3p3(s.data(), s.step(), planes, d.step(), size);
    }, same(3), o);
    reference::layout_sweep<T>({4, false}, {4, true}, [](Side<T>& s, Side<T>& d, KeliSize size) {
        T* const planes[4] = {d.data(0), d.data(1), d.data(2), d.data(3)};
        return Copy<T>::c4p4(s.data(), s.step(), planes, d.step(), size);
    }, same(4), o);
    reference::layout_sweep<T>({3, true}, {3, false}, [](Side<T>& s, Side<T>& d, KeliSize size) {
        const T* const planes[3] = {s.data(0), s.data(1), s.data(2)};
        return Copy<T>::p3c3(planes, s.step(), d.data(), d.step(), size);
    }, same(3), o);
    reference::layout_sweep<T>({4, true}, {4, false}, [](Side<T>& s, Side<T>& d, KeliSize size) {
        const T* const planes[4] = {s.data(0), s.data(1), s.data(2), s.data(3)};
        return Copy<T>::p4c4(planes, s.step(), d.data(), d.step(), size);
    }, same(4), o);
}

TEST(Copy, PlanarFormsMatchTheModel)
{
    planar_sweep<Kel8u>();
    planar_sweep<Kel16u>();
    planar_sweep<Kel16s>();
    planar_sweep<Kel32s>();
    planar_sweep<Kel32f>();
}

TEST(Copy, NonTemporalShufflesGiveTheSameBytes)
{
    // The streaming stores of the 32f planar copies run only above the largest cache; the
    // kernel is held to the model here directly, with planes both equally and unequally aligned.
    for (int unequal = 0; unequal < 2; ++unequal) {
        kit::Shape second;
        second.offsetElements = unequal;
        kit::Rng rng;
        for (int width : {1, 5, 13, 64, 67}) {
            Side<Kel32f> src(width, 3, 3, false, {});
            src.fill([&] { return reference::any_bits<Kel32f>(rng); });
            std::vector<kit::Image<Kel32f>> planes;
            planes.emplace_back(width, 3, 1, kit::Shape{});
            planes.emplace_back(width, 3, 1, second);
            planes.emplace_back(width, 3, 1, kit::Shape{});
            const int identity[] = {0, 1, 2};
            keli::rows::PixelMap m = keli::rows::channel_map<Kel32f>(3, 3, identity);
            m.outPlanar = true;
            const void* in[] = {src.data()};
            void* out[] = {planes[0].data(), planes[1].data(), planes[2].data()};
            keli::shuffle_image<3, 3, false, true>(keli::rows::make_plan(m), in, src.step(), out, planes[0].step(),
                                                   {width, 3}, true);
            for (int y = 0; y < 3; ++y)
                for (int x = 0; x < width; ++x)
                    for (int c = 0; c < 3; ++c)
                        ASSERT_EQ(std::memcmp(&planes[c].at(x, y), &src.at(x, y, c), 4), 0) << width << " " << x;
        }
    }
}

// The mask of a test image: groups of 16 pixels all off, all on (any non-zero value counts) or
// mixed, varying with the row and the width.
Kel8u mask_value(int x, int y, int width)
{
    const int kind = (x / 16 + y + width) % 3;
    if (kind == 0) return 0;
    if (kind == 1) return Kel8u(1 + (x * 37 + y * 11 + width) % 255);
    return (x * 7 + y * 3 + width) % 3 == 0 ? 0 : 128;
}

kit::Image<Kel8u> make_mask(KeliSize size)
{
    kit::Shape shape;
    shape.offsetElements = size.width % 16;
    shape.padBytes = size.width % 5;
    shape.flipped = size.width % 4 == 1;
    kit::Image<Kel8u> mask(size.width, size.height, 1, shape);
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x) mask.at(x, y) = mask_value(x, y, size.width);
    return mask;
}

template <class T> void masked_sweep()
{
    for (int f = 0; f < 4; ++f) {
        const int C = kChannels[f];
        const int colour = f == 3 ? 3 : C;
        SCOPED_TRACE("layout " + std::to_string(f));
        kit::SweepOptions o = sweep_for(C * sizeof(T));
        o.maxWidth = 70;
        reference::layout_sweep<T>({C, false}, {C, false}, [&](Side<T>& s, Side<T>& d, KeliSize size) {
            kit::Image<Kel8u> mask = make_mask(size);
            const auto before = mask.snapshot();
            const KelStatus status = Copy<T>::masked[f](s.data(), s.step(), d.data(), d.step(), size, mask.data(), mask.step());
            EXPECT_EQ(mask.bytes(), before) << "mask changed";
            return status;
        }, [&](const Side<T>& s, Side<T>& e, int x, int y) {
            if (mask_value(x, y, s.images[0].width()))
                for (int c = 0; c < colour; ++c) e.at(x, y, c) = s.at(x, y, c);
        }, o);
    }
}

TEST(Copy, MaskedFormsCopyWhereTheMaskIsSet)
{
    masked_sweep<Kel8u>();
    masked_sweep<Kel16u>();
    masked_sweep<Kel16s>();
    masked_sweep<Kel32s>();
    masked_sweep<Kel32f>();
}

TEST(Copy, MaskedCopyOfAnUnpaddedImageRunsAsOneRow)
{
    // Steps equal to the width on all three images: the whole region is one run, which must
    // give what the rows give.
    kit::Rng rng;
    for (int width : {5, 16, 33, 47}) {
        std::vector<Kel8u> src(width * 5), dst(width * 5), mask(width * 5), want;
        for (auto& v : src) v = Kel8u(rng.below(256));
        for (auto& v : dst) v = Kel8u(rng.below(256));
        for (auto& v : mask) v = Kel8u(rng.below(3) == 0 ? 0 : rng.below(256));
        want = dst;
        for (std::size_t i = 0; i < want.size(); ++i)
            if (mask[i]) want[i] = src[i];
        ASSERT_EQ(keliCopy_8u_C1MR(src.data(), width, dst.data(), width, {width, 5}, mask.data(), width), kelStatusOk);
        EXPECT_EQ(dst, want) << width;
    }
}

TEST(Copy, ChannelOfInterestInOneBufferFollowsAForwardLoop)
{
    // Source one or two pixels ahead of or behind the destination, or on it, in one buffer.
    kit::Rng rng;
    for (int shift : {-6, -3, 3, 6, 0, -2, 2}) {
        for (int width : {7, 40, 100}) {
            std::vector<Kel8u> buffer(3 * 2 * width + 64);
            for (auto& v : buffer) v = Kel8u(rng.below(256));
            std::vector<Kel8u> want = buffer;
            const int dstAt = 16, srcAt = 16 + shift, step = 3 * width + 7;
            for (int y = 0; y < 2; ++y)
                for (int x = 0; x < width; ++x) want[dstAt + y * step + 3 * x] = want[srcAt + y * step + 3 * x];
            ASSERT_EQ(keliCopy_8u_C3CR(buffer.data() + srcAt, step, buffer.data() + dstAt, step, {width, 2}),
                      kelStatusOk);
            EXPECT_EQ(buffer, want) << "shift " << shift << " width " << width;
        }
    }
    std::vector<Kel32f> floats(4 * 50);
    for (std::size_t i = 0; i < floats.size(); ++i) floats[i] = float(i);
    std::vector<Kel32f> want = floats;
    for (int x = 0; x < 49; ++x) want[4 * x + 4 + 1] = want[4 * x + 1];
    ASSERT_EQ(keliCopy_32f_C4CR(&floats[1], 200 * 4, &floats[5], 200 * 4, {49, 1}), kelStatusOk);
    EXPECT_EQ(floats, want);
}

TEST(Copy, ChecksRunInOrderAndWriteNothing)
{
    Kel8u src[64] = {1, 2, 3}, dst[64];
    Kel8u mask[16] = {1};
    std::memset(dst, kit::kCanary, sizeof dst);
    Kel8u* planes[4] = {dst, dst + 16, dst + 32, dst + 48};
    Kel8u* holed[4] = {dst, nullptr, dst + 32, dst + 48};
    const Kel8u* cplanes[4] = {src, src + 16, src + 32, src + 48};
    const Kel8u* choled[4] = {src, src + 16, nullptr, src + 48};
    const KeliSize ok{2, 2}, zero{0, 2}, negative{2, -1};
    // Pointers before size; size before anything else; steps are never checked.
    EXPECT_EQ(keliCopy_8u_C1R(nullptr, 4, dst, 4, zero), kelStatusNullPtr);
    EXPECT_EQ(keliCopy_8u_C1R(src, 4, nullptr, 4, zero), kelStatusNullPtr);
    EXPECT_EQ(keliCopy_8u_C3R(src, 4, dst, 4, zero), kelStatusBadSize);
    EXPECT_EQ(keliCopy_16s_AC4R(reinterpret_cast<Kel16s*>(src), 4, reinterpret_cast<Kel16s*>(dst), 4, negative),
              kelStatusBadSize);
    EXPECT_EQ(keliCopy_8u_C4C1R(src, -4, dst, 0, {0, 0}), kelStatusBadSize);
    EXPECT_EQ(keliCopy_8u_C1R(src, -4, dst, 0, {5, 0}), kelStatusBadSize);
    EXPECT_EQ(keliCopyManaged_8u_C1R(nullptr, 4, dst, 4, ok, 1), kelStatusNullPtr);
    EXPECT_EQ(keliCopyManaged_8u_C1R(src, 4, dst, 4, {1, 0}, 1), kelStatusBadSize);
    EXPECT_EQ(keliCopy_8u_C1MR(src, 4, dst, 4, zero, nullptr, 4), kelStatusNullPtr);
    EXPECT_EQ(keliCopy_8u_AC4MR(src, 4, dst, 4, zero, mask, 4), kelStatusBadSize);
    // Planar: the array, then each plane, then the other side, then the size.
    EXPECT_EQ(keliCopy_8u_C3P3R(nullptr, 4, planes, 4, zero), kelStatusNullPtr);
    EXPECT_EQ(keliCopy_8u_C3P3R(src, 4, nullptr, 4, zero), kelStatusNullPtr);
    EXPECT_EQ(keliCopy_8u_C4P4R(src, 4, holed, 4, zero), kelStatusNullPtr);
    EXPECT_EQ(keliCopy_8u_C4P4R(src, 4, planes, 4, zero), kelStatusBadSize);
    EXPECT_EQ(keliCopy_8u_P3C3R(nullptr, 4, dst, 4, zero), kelStatusNullPtr);
    EXPECT_EQ(keliCopy_8u_P4C4R(choled, 4, dst, 4, zero), kelStatusNullPtr);
    EXPECT_EQ(keliCopy_8u_P4C4R(cplanes, 4, nullptr, 4, zero), kelStatusNullPtr);
    EXPECT_EQ(keliCopy_8u_P3C3R(cplanes, 4, dst, 4, negative), kelStatusBadSize);
    EXPECT_EQ(keliCopy_32f_C1R_L(nullptr, 4, reinterpret_cast<Kel32f*>(dst), 4, KeliSizeL{0, 0}), kelStatusNullPtr);
    for (Kel8u v : dst) ASSERT_EQ(v, kit::kCanary);
    // A zero or negative step is taken as it stands.
    EXPECT_EQ(keliCopy_8u_C1C3R(src, 0, dst, -3, {1, 1}), kelStatusOk);
    EXPECT_EQ(dst[0], 1);
}

}  // namespace
