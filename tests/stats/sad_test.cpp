// keliSAD: every member against the model over templates and images reaching every run and piece
// length of the kernels, rows on any byte and steps beyond the row; the scale's ties and its
// 32-bit wrap, the 16s fold, not-a-number; the check order with nothing written; the size query.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include "keli.h"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "reference/sad.hpp"

namespace {

using reference::SadView;

constexpr int kShape = 0x10000;

template <class T> using Out = std::conditional_t<std::is_same_v<T, Kel32f>, Kel32f, Kel32s>;
template <class T>
using IntFn = KelStatus (*)(const T*, int, KeliSize, const T*, int, KeliSize, Kel32s*, int, int, int, Kel8u*);
using F32Fn = KelStatus (*)(const Kel32f*, int, KeliSize, const Kel32f*, int, KeliSize, Kel32f*, int, int, Kel8u*);

// One call shape for all members; the 32f form has no scale factor.
template <class T>
KelStatus call(IntFn<T> f, const T* s, int ss, KeliSize sz, const T* t, int ts, KeliSize tz, Kel32s* d, int ds,
               int shape, int scale)
{
    return f(s, ss, sz, t, ts, tz, d, ds, shape, scale, nullptr);
}
KelStatus call(F32Fn f, const Kel32f* s, int ss, KeliSize sz, const Kel32f* t, int ts, KeliSize tz, Kel32f* d, int ds,
               int shape, int)
{
    return f(s, ss, sz, t, ts, tz, d, ds, shape, nullptr);
}

// An image of T kept as bytes, so that its rows may start on any byte and its step be odd.
template <class T> struct Bytes {
    kit::Image<Kel8u> img;
    Bytes(int w, int h, int offsetBytes, int padBytes)
        : img(int(w * sizeof(T)), h, 1, kit::Shape{offsetBytes, padBytes, false})
    {
    }
    const T* ptr() const { return reinterpret_cast<const T*>(img.data()); }
    int step() const { return img.step(); }
    KeliSize size() const { return {int(img.width() / sizeof(T)), img.height()}; }
    void set(int x, int y, T v) { std::memcpy(&img.at(int(x * sizeof(T)), y), &v, sizeof v); }
    SadView<T> view() const { return {img.data(), img.step(), size().width, size().height}; }
    template <class Gen> void fill(Gen&& gen)
    {
        for (int y = 0; y < size().height; ++y)
            for (int x = 0; x < size().width; ++x) set(x, y, gen());
    }
};

template <class T> Out<T> expected(const SadView<T>& s, const SadView<T>& t, int x, int y, int scale)
{
    if constexpr (std::is_same_v<T, Kel32f>) return reference::sad_32f(s, t, x, y);
    else return reference::sad_scaled(reference::sad_sum(s, t, x, y), scale);
}

template <class V> bool same(V a, V b)
{
    if constexpr (std::is_floating_point_v<V>) return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b));
    else return a == b;
}

// Runs a member on src and tpl into a fresh destination with guard bytes; checks every output
// against the model and that nothing around the outputs changed. Returns false on the first fault.
template <class T, class Fn>
bool run_and_compare(Fn fn, const Bytes<T>& src, const Bytes<T>& tpl, int dstOffset, int dstPad, int scale,
                     const std::string& what)
{
    const KeliSize sz = src.size(), tz = tpl.size();
    const int dw = sz.width - tz.width + 1, dh = sz.height - tz.height + 1;
    kit::Image<Out<T>> dst(dw, dh, 1, kit::Shape{dstOffset, dstPad, false});
    const auto before = dst.snapshot();
    const KelStatus st = call(fn, src.ptr(), src.step(), sz, tpl.ptr(), tpl.step(), tz, dst.data(), dst.step(), kShape, scale);
    EXPECT_EQ(st, kelStatusOk) << what;
    if (st != kelStatusOk) return false;
    for (int y = 0; y < dh; ++y)
        for (int x = 0; x < dw; ++x) {
            const Out<T> want = expected(src.view(), tpl.view(), x, y, scale);
            if (!same(dst.at(x, y), want)) {
                ADD_FAILURE() << what << " output (" << x << ", " << y << ") is " << dst.at(x, y) << ", model " << want;
                return false;
            }
        }
    const long stray = kit::first_stray_write(dst, before, kit::any_element);
    EXPECT_EQ(stray, -1) << what;
    return stray == -1;
}

template <class T> T draw(kit::Rng& rng)
{
    if constexpr (std::is_same_v<T, Kel32f>) {
        // Magnitudes far apart, so that any other order of the float additions shows.
        const float v = rng.any<float>();
        return rng.below(4) == 0 ? v * 65536.0f : v / 1024.0f;
    } else {
        return rng.any<T>();
    }
}

// Template widths through every piece of the kernels (16- and 8-byte pieces, the masked rest,
// the narrow path), destination widths through every run length and leftover, source rows on
// every byte (on every element for 32f), steps beyond the row (odd ones for the 16-bit types).
template <class T, class Fn> void sweep(Fn fn)
{
    constexpr int es = sizeof(T);
    const bool f32 = std::is_same_v<T, Kel32f>;
    kit::Rng rng;
    int round = 0;
    for (int tw = 1; tw <= 35; ++tw)
        for (int dw = 1; dw <= 18; ++dw, ++round) {
            const int th = 1 + round % 3, dh = 1 + (round / 3) % 3;
            const int srcOff = f32 ? (round % 4) * 4 : round % 16, tplOff = f32 ? (round % 3) * 4 : (round * 7) % 16;
            const int srcPad = f32 ? (round % 5) * 4 : round % 7, tplPad = f32 ? (round % 2) * 4 : (round * 3) % 5;
            Bytes<T> src(tw + dw - 1, th + dh - 1, srcOff, srcPad), tpl(tw, th, tplOff, tplPad);
            src.fill([&] { return draw<T>(rng); });
            tpl.fill([&] { return draw<T>(rng); });
            const int scale = f32 ? 0 : round % 6;
            const std::string what = "template " + std::to_string(tw) + "x" + std::to_string(th) + " outputs " +
                                     std::to_string(dw) + "x" + std::to_string(dh) + " src offset " +
                                     std::to_string(srcOff) + " step " + std::to_string(src.step()) + " scale " +
                                     std::to_string(scale) + " element bytes " + std::to_string(es) + " seed " +
                                     std::to_string(rng.seed_value());
            if (!run_and_compare<T>(fn, src, tpl, round % 4, (round % 3) * 4, scale, what)) return;
        }
}

TEST(Sad, EveryMemberMatchesTheModelOverTheSweep)
{
    sweep<Kel8u>(keliSAD_8u32s_C1RSfs);
    sweep<Kel16u>(keliSAD_16u32s_C1RSfs);
    sweep<Kel16s>(keliSAD_16s32s_C1RSfs);
    sweep<Kel32f>(keliSAD_32f_C1R);
}

// Larger templates and images: many runs a row, template rows of several 16-byte pieces, and a
// template as large as the image, which leaves one output.
TEST(Sad, LargeTemplatesAndTheSingleOutput)
{
    kit::Rng rng;
    auto both = [&](auto fn, auto tag, int sw, int sh, int tw, int th, int scale) {
        using T = decltype(tag);
        Bytes<T> src(sw, sh, sizeof(T) == 4 ? 12 : 1, 8), tpl(tw, th, 0, 4);
        src.fill([&] { return draw<T>(rng); });
        tpl.fill([&] { return draw<T>(rng); });
        run_and_compare<T>(fn, src, tpl, 1, 0, scale, "image " + std::to_string(sw) + "x" + std::to_string(sh) +
                                                          " template " + std::to_string(tw) + "x" + std::to_string(th));
    };
    for (int scale : {0, 3, 8}) {
        both(keliSAD_8u32s_C1RSfs, Kel8u{}, 77, 21, 40, 17, scale);
        both(keliSAD_8u32s_C1RSfs, Kel8u{}, 33, 9, 33, 9, scale);
        both(keliSAD_16u32s_C1RSfs, Kel16u{}, 50, 12, 19, 11, scale);
        both(keliSAD_16s32s_C1RSfs, Kel16s{}, 50, 12, 50, 12, scale);
    }
    both(keliSAD_32f_C1R, Kel32f{}, 45, 13, 23, 7, 0);
    both(keliSAD_32f_C1R, Kel32f{}, 9, 6, 9, 6, 0);
}

// Bytes that end right before a page the process may not touch: a load past the last row of an
// image placed here faults, so the kernels' vector loads are seen to stay inside the rows.
class AtPageEnd {
public:
    explicit AtPageEnd(std::size_t bytes)
        : page_(std::size_t(sysconf(_SC_PAGESIZE))), length_((bytes + page_ - 1) / page_ * page_ + page_)
    {
        map_ = mmap(nullptr, length_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (map_ == MAP_FAILED || mprotect(static_cast<char*>(map_) + length_ - page_, page_, PROT_NONE) != 0) std::abort();
        base_ = static_cast<std::uint8_t*>(map_) + length_ - page_ - bytes;
    }
    ~AtPageEnd() { munmap(map_, length_); }
    AtPageEnd(const AtPageEnd&) = delete;
    AtPageEnd& operator=(const AtPageEnd&) = delete;
    std::uint8_t* data() const { return base_; }

private:
    std::size_t page_, length_;
    void* map_;
    std::uint8_t* base_;
};

template <class T, class Fn> void reads_stay_inside(Fn fn)
{
    constexpr int es = sizeof(T);
    kit::Rng rng;
    for (int tw = 1; tw <= 34; tw += (tw < 18 ? 1 : 5))
        for (int dw = 1; dw <= 9; ++dw) {
            const int sw = tw + dw - 1, th = 2, sh = 3, srcStep = sw * es + 4, tplStep = tw * es;
            AtPageEnd src(std::size_t(sh - 1) * srcStep + std::size_t(sw) * es), tpl(std::size_t(th) * tplStep);
            for (std::size_t i = 0; i < std::size_t(sh - 1) * srcStep + std::size_t(sw) * es; i += es) {
                const T v = draw<T>(rng);
                std::memcpy(src.data() + i, &v, sizeof v);
            }
            for (std::size_t i = 0; i < std::size_t(th) * tplStep; i += es) {
                const T v = draw<T>(rng);
                std::memcpy(tpl.data() + i, &v, sizeof v);
            }
            const SadView<T> sv{src.data(), srcStep, sw, sh}, tv{tpl.data(), tplStep, tw, th};
            std::vector<Out<T>> out(std::size_t(dw) * 2);
            ASSERT_EQ(call(fn, reinterpret_cast<const T*>(src.data()), srcStep, {sw, sh}, reinterpret_cast<const T*>(tpl.data()),
                           tplStep, {tw, th}, out.data(), dw * 4, kShape, 1),
                      kelStatusOk);
            for (int y = 0; y < 2; ++y)
                for (int x = 0; x < dw; ++x)
                    ASSERT_TRUE(same(out[std::size_t(y) * dw + x], expected(sv, tv, x, y, 1)))
                        << "template width " << tw << ", outputs " << dw << ", element bytes " << es;
        }
}

TEST(Sad, ReadsStayInsideTheLastRow)
{
    reads_stay_inside<Kel8u>(keliSAD_8u32s_C1RSfs);
    reads_stay_inside<Kel16u>(keliSAD_16u32s_C1RSfs);
    reads_stay_inside<Kel16s>(keliSAD_16s32s_C1RSfs);
    reads_stay_inside<Kel32f>(keliSAD_32f_C1R);
}

// A one-row template of zeros over a row of chosen values: every output is |value|, so the
// scale's rounding shows directly, on the vector runs and on the outputs left over.
template <class T, class Fn> std::vector<Kel32s> over_zero_template(Fn fn, const std::vector<T>& values, int scale)
{
    Bytes<T> src(int(values.size()), 1, 1, 0), tpl(1, 1, 0, 0);
    for (std::size_t i = 0; i < values.size(); ++i) src.set(int(i), 0, values[i]);
    tpl.set(0, 0, T(0));
    std::vector<Kel32s> out(values.size(), -7);
    EXPECT_EQ(call(fn, src.ptr(), src.step(), src.size(), tpl.ptr(), tpl.step(), tpl.size(), out.data(),
                   int(out.size() * 4), kShape, scale),
              kelStatusOk);
    return out;
}

TEST(Sad, ScaleRoundsTiesToEvenAndUsesFiveBits)
{
    const std::vector<Kel8u> v{1, 3, 5, 7, 2, 6, 10, 14, 255};
    using V = std::vector<Kel32s>;
    EXPECT_EQ(over_zero_template(keliSAD_8u32s_C1RSfs, v, 0), (V{1, 3, 5, 7, 2, 6, 10, 14, 255}));
    EXPECT_EQ(over_zero_template(keliSAD_8u32s_C1RSfs, v, 1), (V{0, 2, 2, 4, 1, 3, 5, 7, 128}));
    EXPECT_EQ(over_zero_template(keliSAD_8u32s_C1RSfs, v, 2), (V{0, 1, 1, 2, 0, 2, 2, 4, 64}));
    EXPECT_EQ(over_zero_template(keliSAD_8u32s_C1RSfs, v, 33), over_zero_template(keliSAD_8u32s_C1RSfs, v, 1));
    EXPECT_EQ(over_zero_template(keliSAD_8u32s_C1RSfs, v, 32), over_zero_template(keliSAD_8u32s_C1RSfs, v, 0));
    EXPECT_EQ(over_zero_template(keliSAD_8u32s_C1RSfs, v, 31), V(v.size(), 0));
}

TEST(Sad, SixteenBitDifferencesFoldOnlyInTheSignedForm)
{
    // 30000 against -30000 wraps to -5536 in 16 bits; -32768 counts 32768; 32767 against -32768
    // wraps to -1.
    const std::vector<Kel16s> s{30000, -32768, 32767, -32768, -30000, 0, 1, -1, 12345};
    const std::vector<Kel16s> t{-30000, 0, -32768, 32767, 30000, 0, -1, 1, -12345};
    // A one-element template against the row: output i is the pair (s[i], t) for the template t
    // of the call, so call k checks the pair (s[k], t[k]).
    Bytes<Kel16s> src(9, 1, 1, 0), tpl(1, 1, 0, 0);
    for (int i = 0; i < 9; ++i) src.set(i, 0, s[i]);
    const Kel32s want[9] = {5536, 32768, 1, 1, 5536, 0, 2, 2, 24690};
    std::vector<Kel32s> out(9);
    for (int k = 0; k < 9; ++k) {
        tpl.set(0, 0, t[k]);
        ASSERT_EQ(keliSAD_16s32s_C1RSfs(src.ptr(), src.step(), src.size(), tpl.ptr(), tpl.step(), tpl.size(), out.data(),
                                        36, kShape, 0, nullptr),
                  kelStatusOk);
        EXPECT_EQ(out[k], want[k]) << s[k] << " against " << t[k];
    }
    const std::vector<Kel16u> u{65535, 0, 40000};
    EXPECT_EQ(over_zero_template(keliSAD_16u32s_C1RSfs, u, 0), (std::vector<Kel32s>{65535, 0, 40000}));
}

// Sums past 2^31 and 2^32: the lanes wrap and never saturate, and the scale treats the sum as
// unsigned, its rounding addition wrapping in 32 bits as well.
TEST(Sad, SumsWrapInThirtyTwoBitsAndScaleUnsigned)
{
    for (int n : {32769, 65537, 65538}) {
        Bytes<Kel16u> src(n + 4, 1, 2, 0), tpl(n, 1, 0, 0);
        src.fill([] { return Kel16u(0); });
        tpl.fill([] { return Kel16u(65535); });
        if (n == 65538) tpl.set(n - 1, 0, 1);
        const std::uint64_t exact = std::uint64_t(n - (n == 65538)) * 65535 + (n == 65538);
        for (int scale : {0, 1, 2, 17}) {
            std::vector<Kel32s> out(5, -7);
            ASSERT_EQ(keliSAD_16u32s_C1RSfs(src.ptr(), src.step(), src.size(), tpl.ptr(), tpl.step(), tpl.size(),
                                            out.data(), 20, kShape, scale, nullptr),
                      kelStatusOk);
            for (Kel32s v : out) EXPECT_EQ(v, reference::sad_scaled(exact, scale)) << n << " elements, scale " << scale;
        }
    }
    // The values the model gives there, spelled out.
    EXPECT_EQ(reference::sad_scaled(2147516415u, 0), -2147450881);
    EXPECT_EQ(reference::sad_scaled(2147516415u, 1), 1073758208);
    EXPECT_EQ(reference::sad_scaled(0xFFFFFFFFu, 0), -1);
    EXPECT_EQ(reference::sad_scaled(0xFFFFFFFFu, 1), 0);
    EXPECT_EQ(reference::sad_scaled(0x100000000u, 0), 0);
}

TEST(Sad, NotANumberReachesEveryOutputThatSeesIt)
{
    Bytes<Kel32f> src(14, 5, 0, 4), tpl(6, 2, 0, 0);
    kit::Rng rng;
    src.fill([&] { return draw<Kel32f>(rng); });
    tpl.fill([&] { return draw<Kel32f>(rng); });
    src.set(8, 3, std::numeric_limits<float>::quiet_NaN());
    src.set(0, 0, std::numeric_limits<float>::infinity());
    std::vector<Kel32f> out(9 * 4);
    ASSERT_EQ(keliSAD_32f_C1R(src.ptr(), src.step(), src.size(), tpl.ptr(), tpl.step(), tpl.size(), out.data(), 36,
                              kShape, nullptr),
              kelStatusOk);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 9; ++x) {
            const bool sees = x >= 3 && x <= 8 && y >= 2 && y <= 3;
            EXPECT_EQ(std::isnan(out[y * 9 + x]), sees) << x << ", " << y;
            if (!sees) {
                EXPECT_TRUE(same(out[y * 9 + x], reference::sad_32f(src.view(), tpl.view(), x, y)));
            }
        }
}

// Each check broken together with every later one: the status is that of the earliest, and the
// destination keeps its canary.
template <class T, class Fn> void check_order(Fn fn)
{
    constexpr bool f32 = std::is_same_v<T, Kel32f>;
    constexpr int es = sizeof(T);
    std::vector<std::uint8_t> mem(4096, 0x11);
    struct Args {
        const T* src;
        int srcStep;
        KeliSize srcSize;
        const T* tpl;
        int tplStep;
        KeliSize tplSize;
        Out<T>* dst;
        int dstStep;
        int shape, scale;
    };
    auto* base = mem.data() + 64;
    const Args good{reinterpret_cast<const T*>(base), 16 * es, {12, 6}, reinterpret_cast<const T*>(base + 1024),
                    8 * es, {4, 3}, reinterpret_cast<Out<T>*>(base + 2048), 40, kShape, 2};
    struct Break {
        KelStatus status;
        void (*apply)(Args&, std::uint8_t*);
    };
    std::vector<Break> breaks{
        {kelStatusNullPtr, [](Args& a, std::uint8_t*) { a.src = nullptr; }},
        {kelStatusNullPtr, [](Args& a, std::uint8_t*) { a.tpl = nullptr; }},
        {kelStatusNullPtr, [](Args& a, std::uint8_t*) { a.dst = nullptr; }},
        {kelStatusBadStep, [](Args& a, std::uint8_t*) { a.srcStep = 0; }},
        {kelStatusBadStep, [](Args& a, std::uint8_t*) { a.tplStep = -8; }},
        {kelStatusBadStep, [](Args& a, std::uint8_t*) { a.dstStep = 42; }},
        {kelStatusBadSize, [](Args& a, std::uint8_t*) { a.srcSize.height = 0; }},
        {kelStatusBadSize, [](Args& a, std::uint8_t*) { a.tplSize.width = -1; }},
        {kelStatusBadSize, [](Args& a, std::uint8_t*) { a.tplSize = {4, 7}; }},
        {kelStatusUnsupportedMode, [](Args& a, std::uint8_t*) { a.shape = 0x10001; }},
        {kelStatusUnsupportedMode, [](Args& a, std::uint8_t* b) { a.dst = reinterpret_cast<Out<T>*>(b + 1024 - 36); }},
    };
    if constexpr (!f32) breaks.push_back({kelStatusBadArg, [](Args& a, std::uint8_t*) { a.scale = -1; }});
    else breaks.insert(breaks.begin() + 5, {kelStatusBadStep, [](Args& a, std::uint8_t*) { a.tplStep = 30; }});
    for (std::size_t k = breaks.size(); k-- > 0;) {
        // Later breaks first, so that the earlier one of this round decides.
        Args a = good;
        for (std::size_t j = breaks.size(); j-- > k;) breaks[j].apply(a, base);
        std::vector<std::uint8_t> before = mem;
        const KelStatus st = call(fn, a.src, a.srcStep, a.srcSize, a.tpl, a.tplStep, a.tplSize, a.dst, a.dstStep, a.shape, a.scale);
        EXPECT_EQ(st, breaks[k].status) << "break " << k << ", element bytes " << es;
        EXPECT_TRUE(mem == before) << "break " << k << " wrote, element bytes " << es;
    }
    {
        Args a = good;
        EXPECT_EQ(call(fn, a.src, a.srcStep, a.srcSize, a.tpl, a.tplStep, a.tplSize, a.dst, a.dstStep, a.shape, a.scale),
                  kelStatusOk);
    }
}

TEST(Sad, ChecksRunInOrderAndWriteNothing)
{
    check_order<Kel8u>(keliSAD_8u32s_C1RSfs);
    check_order<Kel16u>(keliSAD_16u32s_C1RSfs);
    check_order<Kel16s>(keliSAD_16s32s_C1RSfs);
    check_order<Kel32f>(keliSAD_32f_C1R);
}

// The destination may end right before either input or start right after it; one shared byte
// is an overlap.
TEST(Sad, OverlapIsTestedByteExactAgainstBothInputs)
{
    std::vector<std::uint8_t> mem(2048, 0);
    std::uint8_t* src = mem.data() + 512;  // 10x4 bytes, step 16: bytes 0 .. 57
    std::uint8_t* tpl = mem.data() + 1024;  // 3x2 bytes, step 5: bytes 0 .. 7
    const KeliSize sz{10, 4}, tz{3, 2};     // outputs 8x3, rows of 32 bytes at step 32
    const int srcLast = 3 * 16 + 9, tplLast = 5 + 2, dstBytes = 2 * 32 + 32;
    auto run = [&](std::uint8_t* dst) {
        return keliSAD_8u32s_C1RSfs(src, 16, sz, tpl, 5, tz, reinterpret_cast<Kel32s*>(dst), 32, kShape, 0, nullptr);
    };
    EXPECT_EQ(run(src + srcLast + 1), kelStatusOk);
    EXPECT_EQ(run(src + srcLast), kelStatusUnsupportedMode);
    EXPECT_EQ(run(src - dstBytes), kelStatusOk);
    EXPECT_EQ(run(src - dstBytes + 1), kelStatusUnsupportedMode);
    EXPECT_EQ(run(tpl + tplLast + 1), kelStatusOk);
    EXPECT_EQ(run(tpl + tplLast), kelStatusUnsupportedMode);
    EXPECT_EQ(run(tpl - dstBytes + 1), kelStatusUnsupportedMode);
}

TEST(Sad, BufferSizeIsZeroAfterItsChecks)
{
    const KeliSize s{64, 48}, t{8, 8};
    int size = -1;
    EXPECT_EQ(keliSADGetBufferSize(s, t, kel8u, 1, kShape, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliSADGetBufferSize({0, 48}, {8, -8}, kel64f, 3, 0, &size), kelStatusBadSize);
    EXPECT_EQ(keliSADGetBufferSize(s, {8, 0}, kel64f, 3, 0, &size), kelStatusBadSize);
    EXPECT_EQ(keliSADGetBufferSize(s, t, kel8s, 3, 0, &size), kelStatusBadDataType);
    EXPECT_EQ(keliSADGetBufferSize(s, t, kel64f, 1, kShape, &size), kelStatusBadDataType);
    EXPECT_EQ(keliSADGetBufferSize(s, t, kel16s, 3, kShape, &size), kelStatusUnsupportedMode);
    EXPECT_EQ(keliSADGetBufferSize(s, t, kel16s, 1, 0x10001, &size), kelStatusUnsupportedMode);
    EXPECT_EQ(size, -1);
    for (KelDataType type : {kel8u, kel16u, kel16s, kel32f}) {
        size = -1;
        EXPECT_EQ(keliSADGetBufferSize(s, t, type, 1, kShape, &size), kelStatusOk);
        EXPECT_EQ(size, 0);
    }
}

}  // namespace
