// Border copies: every member against the plain model over a sweep of sizes, offsets and frames
// (mirror and wrap frames many source widths wide, one-pixel sources), in place and with
// pSrc == pDst, guard bytes and untouched alpha; the reversing row kernel against a byte loop;
// the documented values; the check order with nothing written; the kind and flag helpers.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "keli.h"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "move/border.hpp"
#include "move/rows/border.hpp"
#include "reference/border.hpp"

namespace {

using reference::BorderKind;
using I64 = std::int64_t;

// Every member behind one signature. In-place members take the source pointer and step as
// their image and ignore the destination arguments.
template <class T>
using Call = std::function<KelStatus(const T* src, I64 srcStep, KeliSizeL s, T* dst, I64 dstStep, KeliSizeL d, I64 top,
                                     I64 left, const T* value)>;

template <class T> struct Member {
    std::string name;
    BorderKind kind;
    int channels;
    bool alpha, inPlace, wide;
    Call<T> call;
};

KeliSize narrow(KeliSizeL s) { return {int(s.width), int(s.height)}; }

// Wrappers for the four shapes of argument list: not in place / in place, 32-bit / wide.
#define KELI_COPY_FORMS(NAME, KIND, T, L, CH, ALPHA, EXTRA, PASS)                                                    \
    out.push_back({#NAME "_" #T "_" #L "R", KIND, CH, ALPHA, false, false,                                           \
                   [](const Kel##T* s, I64 ss, KeliSizeL sr, Kel##T* d, I64 ds, KeliSizeL dr, I64 t, I64 l,          \
                      const Kel##T* v) {                                                                              \
                       (void)v;                                                                                      \
                       return NAME##_##T##_##L##R(s, int(ss), narrow(sr), d, int(ds), narrow(dr), int(t),            \
                                                  int(l) EXTRA PASS);                                                \
                   }});                                                                                              \
    out.push_back({#NAME "_" #T "_" #L "IR", KIND, CH, ALPHA, true, false,                                           \
                   [](const Kel##T* s, I64 ss, KeliSizeL sr, Kel##T*, I64, KeliSizeL dr, I64 t, I64 l,               \
                      const Kel##T* v) {                                                                              \
                       (void)v;                                                                                      \
                       return NAME##_##T##_##L##IR(const_cast<Kel##T*>(s), int(ss), narrow(sr), narrow(dr), int(t),  \
                                                   int(l) EXTRA PASS);                                               \
                   }});                                                                                              \
    out.push_back({#NAME "_" #T "_" #L "R_L", KIND, CH, ALPHA, false, true,                                          \
                   [](const Kel##T* s, I64 ss, KeliSizeL sr, Kel##T* d, I64 ds, KeliSizeL dr, I64 t, I64 l,          \
                      const Kel##T* v) {                                                                              \
                       (void)v;                                                                                      \
                       return NAME##_##T##_##L##R_L(s, ss, sr, d, ds, dr, t, l EXTRA PASS);                          \
                   }});                                                                                              \
    out.push_back({#NAME "_" #T "_" #L "IR_L", KIND, CH, ALPHA, true, true,                                          \
                   [](const Kel##T* s, I64 ss, KeliSizeL sr, Kel##T*, I64, KeliSizeL dr, I64 t, I64 l,               \
                      const Kel##T* v) {                                                                              \
                       (void)v;                                                                                      \
                       return NAME##_##T##_##L##IR_L(const_cast<Kel##T*>(s), ss, sr, dr, t, l EXTRA PASS);           \
                   }})

#define KELI_COMMA ,
#define KELI_NONE

template <class T> std::vector<Member<T>> members();

#define KELI_BORDER_MEMBERS(T)                                                                                       \
    template <> std::vector<Member<Kel##T>> members<Kel##T>()                                                        \
    {                                                                                                                \
        std::vector<Member<Kel##T>> out;                                                                             \
        KELI_COPY_FORMS(keliCopyConstBorder, BorderKind::Const, T, C1, 1, false, KELI_COMMA, v ? *v : Kel##T{});     \
        KELI_COPY_FORMS(keliCopyConstBorder, BorderKind::Const, T, C3, 3, false, KELI_COMMA, v);                     \
        KELI_COPY_FORMS(keliCopyConstBorder, BorderKind::Const, T, C4, 4, false, KELI_COMMA, v);                     \
        KELI_COPY_FORMS(keliCopyConstBorder, BorderKind::Const, T, AC4, 4, true, KELI_COMMA, v);                     \
        KELI_COPY_FORMS(keliCopyReplicateBorder, BorderKind::Repl, T, C1, 1, false, KELI_NONE, KELI_NONE);           \
        KELI_COPY_FORMS(keliCopyReplicateBorder, BorderKind::Repl, T, C3, 3, false, KELI_NONE, KELI_NONE);           \
        KELI_COPY_FORMS(keliCopyReplicateBorder, BorderKind::Repl, T, C4, 4, false, KELI_NONE, KELI_NONE);           \
        KELI_COPY_FORMS(keliCopyReplicateBorder, BorderKind::Repl, T, AC4, 4, true, KELI_NONE, KELI_NONE);          \
        KELI_COPY_FORMS(keliCopyMirrorBorder, BorderKind::Mirror, T, C1, 1, false, KELI_NONE, KELI_NONE);            \
        KELI_COPY_FORMS(keliCopyMirrorBorder, BorderKind::Mirror, T, C3, 3, false, KELI_NONE, KELI_NONE);            \
        KELI_COPY_FORMS(keliCopyMirrorBorder, BorderKind::Mirror, T, C4, 4, false, KELI_NONE, KELI_NONE);            \
        add_wrap(out);                                                                                               \
        return out;                                                                                                  \
    }

template <class T> void add_wrap(std::vector<Member<T>>&) {}
template <> void add_wrap<Kel32s>(std::vector<Member<Kel32s>>& out)
{
    KELI_COPY_FORMS(keliCopyWrapBorder, BorderKind::Wrap, 32s, C1, 1, false, KELI_NONE, KELI_NONE);
}
template <> void add_wrap<Kel32f>(std::vector<Member<Kel32f>>& out)
{
    KELI_COPY_FORMS(keliCopyWrapBorder, BorderKind::Wrap, 32f, C1, 1, false, KELI_NONE, KELI_NONE);
}

KELI_BORDER_MEMBERS(8u)
KELI_BORDER_MEMBERS(16u)
KELI_BORDER_MEMBERS(16s)
KELI_BORDER_MEMBERS(32s)
KELI_BORDER_MEMBERS(32f)

template <class T> T any_bits(kit::Rng& rng)
{
    std::uint64_t bits = static_cast<std::uint64_t>(rng.any<std::int64_t>());
    T v;
    std::memcpy(&v, &bits, sizeof v);
    return v;
}

struct Frame {
    int W, H, top, left, bottom, right;
    int dstW() const { return left + W + right; }
    int dstH() const { return top + H + bottom; }
    std::string describe() const
    {
        return "source " + std::to_string(W) + "x" + std::to_string(H) + " top " + std::to_string(top) + " left " +
               std::to_string(left) + " bottom " + std::to_string(bottom) + " right " + std::to_string(right);
    }
};

// One call against the model. The destination holds random bytes beforehand (its alpha and,
// in place, its interior must survive); the whole buffer, guards included, is compared.
template <class T> void check_call(const Member<T>& m, const Frame& f, int offset, int pad, kit::Rng& rng)
{
    const int C = m.channels;
    kit::Image<T> dst(f.dstW(), f.dstH(), C, {offset, pad * int(sizeof(T)), false});
    kit::Image<T> src(f.W, f.H, C, {(offset * 7 + 3) % (16 / int(sizeof(T))), (pad % 3) * 16, false});
    dst.fill([&] { return any_bits<T>(rng); });
    src.fill([&] { return any_bits<T>(rng); });
    T value[4];
    for (T& v : value) v = any_bits<T>(rng);
    const T* from = src.data();
    I64 fromStep = src.step();
    kit::Image<T> plain = src;  // the pixels the frame takes, wherever the source lives
    if (m.inPlace) {
        for (int y = 0; y < f.H; ++y)
            for (int x = 0; x < f.W; ++x)
                for (int c = 0; c < C; ++c) plain.at(x, y, c) = dst.at(f.left + x, f.top + y, c);
        from = &dst.at(f.left, f.top);
        fromStep = dst.step();
    }
    std::vector<std::uint8_t> expected = dst.snapshot();
    auto put = [&](int x, int y, int c, T v) { std::memcpy(&expected[dst.index_of(x, y, c)], &v, sizeof v); };
    for (int y = 0; y < f.dstH(); ++y)
        for (int x = 0; x < f.dstW(); ++x) {
            const I64 sx = reference::border_source(m.kind, x - f.left, f.W);
            const I64 sy = reference::border_source(m.kind, y - f.top, f.H);
            for (int c = 0; c < (m.alpha ? 3 : C); ++c)
                put(x, y, c, sx < 0 || sy < 0 ? value[c] : plain.at(int(sx), int(sy), c));
        }
    const std::vector<std::uint8_t> srcBefore = src.snapshot();
    const KelStatus s = m.call(from, fromStep, {f.W, f.H}, dst.data(), dst.step(), {f.dstW(), f.dstH()}, f.top, f.left,
                               value);
    ASSERT_EQ(s, kelStatusOk) << m.name << " " << f.describe();
    for (std::size_t i = 0; i < expected.size(); ++i)
        ASSERT_EQ(dst.bytes()[i], expected[i]) << m.name << " " << f.describe() << " offset " << offset << " byte " << i;
    ASSERT_TRUE(src.snapshot() == srcBefore) << m.name << " wrote its source";
}

template <class T> void sweep_members()
{
    kit::Rng rng;
    for (const Member<T>& m : members<T>()) {
        const int P = m.channels * int(sizeof(T));
        const int maxW = std::max(8, 80 / P);  // rows that reach several 16-byte groups
        const bool periodic = m.kind == BorderKind::Mirror || m.kind == BorderKind::Wrap;
        for (int W = 1; W <= maxW; W += (m.wide ? 3 : 1)) {
            Frame f{W, 1 + W % 4, 0, 0, 0, 0};
            const int reach = periodic ? 3 * W + 20 : 20;  // frames many times the source wide
            f.left = rng.below(reach + 1);
            f.right = rng.below(reach + 1);
            f.top = rng.below(periodic ? 2 * f.H + 4 : 4);
            f.bottom = rng.below(periodic ? 2 * f.H + 4 : 4);
            if (W % 7 == 0) f.left = f.top = 0;
            if (W % 5 == 0) f.right = f.bottom = 0;
            check_call(m, f, W % (16 / int(sizeof(T))), W % 3, rng);
            if (::testing::Test::HasFatalFailure()) return;
        }
    }
}

// Frames of up to three vectors a side, around sources just narrower and wider than a vector:
// thin frames are written by whole-vector stores that reach into the interior, which the
// interior copy then overwrites.
template <class T> void sweep_thin_frames()
{
    kit::Rng rng;
    for (const Member<T>& m : members<T>()) {
        if (m.kind == BorderKind::Wrap || m.wide) continue;
        const int P = m.channels * int(sizeof(T));
        const int N = std::max(1, 16 / P);
        const int sides[] = {0, 1, 2, N - 1, N, N + 1, 48 / P, 48 / P + 1};
        for (int W : {1, N - 1, N, N + 1, 2 * N + 3})
            for (int left : sides)
                for (int right : sides) {
                    if (W < 1 || left < 0 || right < 0) continue;
                    check_call(m, Frame{W, 2, 1, left, 1, right}, (left + W) % (16 / int(sizeof(T))), 1, rng);
                    if (::testing::Test::HasFatalFailure()) return;
                }
    }
}

TEST(Border, ThinFramesMatchTheModel)
{
    sweep_thin_frames<Kel8u>();
    sweep_thin_frames<Kel16u>();
    sweep_thin_frames<Kel32f>();
}

TEST(Border, EveryMemberMatchesTheModel8u) { sweep_members<Kel8u>(); }
TEST(Border, EveryMemberMatchesTheModel16u) { sweep_members<Kel16u>(); }
TEST(Border, EveryMemberMatchesTheModel16s) { sweep_members<Kel16s>(); }
TEST(Border, EveryMemberMatchesTheModel32s) { sweep_members<Kel32s>(); }
TEST(Border, EveryMemberMatchesTheModel32f) { sweep_members<Kel32f>(); }

// pSrc == pDst in a not-in-place form is the in-place form with dstStep: srcStep is not
// looked at, only the frame changes. The constant family makes no such test.
TEST(Border, SamePointerIsInPlace)
{
    const int W = 5, H = 3, top = 2, left = 3, dstW = 12, dstH = 7;
    kit::Image<Kel8u> img(dstW, dstH, 1, {1, 8, false});
    kit::Rng rng;
    img.fill([&] { return Kel8u(rng.below(256)); });
    kit::Image<Kel8u> ref = img;
    Kel8u* at = &img.at(left, top);
    ASSERT_EQ(keliCopyMirrorBorder_8u_C1R(at, -999, {W, H}, at, img.step(), {dstW, dstH}, top, left), kelStatusOk);
    ASSERT_EQ(keliCopyMirrorBorder_8u_C1IR(&ref.at(left, top), ref.step(), {W, H}, {dstW, dstH}, top, left),
              kelStatusOk);
    EXPECT_TRUE(img.bytes() == ref.bytes());
    Kel8u* wat = &img.at(left, top);
    EXPECT_EQ(keliCopyWrapBorder_32s_C1R(nullptr, 0, {W, H}, nullptr, 0, {dstW, dstH}, top, left), kelStatusNullPtr);
    EXPECT_EQ(keliCopyReplicateBorder_8u_C1R(wat, 0, {W, H}, wat, 0, {dstW, dstH}, top, left), kelStatusBadStep);
    // Constant: pSrc == pDst is an ordinary copy from a region that overlaps its destination;
    // with top = left = 0 and equal sizes it leaves the image as it was.
    const std::vector<std::uint8_t> before = img.snapshot();
    ASSERT_EQ(keliCopyConstBorder_8u_C1R(img.data(), img.step(), {dstW, dstH}, img.data(), img.step(), {dstW, dstH}, 0,
                                         0, 7),
              kelStatusOk);
    EXPECT_TRUE(img.bytes() == before);
}

TEST(Border, DocumentedRows)
{
    {  // folding at both ends of a three-pixel row
        const Kel8u src[] = {1, 2, 3};
        Kel8u dst[8];
        ASSERT_EQ(keliCopyMirrorBorder_8u_C1R(src, 3, {3, 1}, dst, 8, {8, 1}, 0, 5), kelStatusOk);
        const Kel8u want[] = {2, 1, 2, 3, 2, 1, 2, 3};
        EXPECT_EQ(0, std::memcmp(dst, want, sizeof want));
    }
    {  // one pixel fills the whole frame
        const Kel8u src[] = {9};
        Kel8u dst[5 * 4];
        ASSERT_EQ(keliCopyMirrorBorder_8u_C1R(src, 1, {1, 1}, dst, 5, {5, 4}, 2, 3), kelStatusOk);
        for (Kel8u v : dst) EXPECT_EQ(v, 9);
    }
    {  // whole tiles to the left
        const Kel32s src[] = {10, 11, 12};
        Kel32s dst[7];
        ASSERT_EQ(keliCopyWrapBorder_32s_C1R(src, 12, {3, 1}, dst, 28, {7, 1}, 0, 4), kelStatusOk);
        const Kel32s want[] = {12, 10, 11, 12, 10, 11, 12};
        EXPECT_EQ(0, std::memcmp(dst, want, sizeof want));
    }
    {  // a frame of nothing is a copy
        Kel8u src[4 * 3 * 2], dst[4 * 3 * 2] = {};
        for (int i = 0; i < 24; ++i) src[i] = Kel8u(i * 7);
        ASSERT_EQ(keliCopyReplicateBorder_8u_C3R(src, 12, {4, 2}, dst, 12, {4, 2}, 0, 0), kelStatusOk);
        EXPECT_EQ(0, std::memcmp(src, dst, sizeof src));
    }
    {  // the mirror of a two-pixel row alternates, never repeating an edge
        const Kel16s src[] = {-5, 6};
        Kel16s dst[9];
        ASSERT_EQ(keliCopyMirrorBorder_16s_C1R(src, 4, {2, 1}, dst, 18, {9, 1}, 0, 4), kelStatusOk);
        const Kel16s want[] = {-5, 6, -5, 6, -5, 6, -5, 6, -5};
        EXPECT_EQ(0, std::memcmp(dst, want, sizeof want));
    }
}

// Each check broken in its turn, earlier ones passing: the status, and not a byte written.
TEST(Border, ChecksInOrderWriteNothing)
{
    kit::Image<Kel8u> src(4, 3, 4), dst(10, 8, 4);
    src.fill([] { return Kel8u(1); });
    const Kel8u value[4] = {1, 2, 3, 4};
    struct Case {
        const Kel8u* s;
        I64 ss;
        KeliSizeL sr;
        Kel8u* d;
        I64 ds;
        KeliSizeL dr;
        I64 top, left;
        const Kel8u* v;
        KelStatus want;
    };
    const Kel8u* S = src.data();
    Kel8u* D = dst.data();
    const I64 ss = src.step(), ds = dst.step();
    const Case cases[] = {
        {nullptr, 0, {0, 0}, D, 0, {0, 0}, -1, -1, nullptr, kelStatusNullPtr},  // pointer before steps and size
        {S, ss, {4, 3}, nullptr, ds, {10, 8}, 1, 1, value, kelStatusNullPtr},
        {S, 0, {0, 3}, D, ds, {10, 8}, 1, 1, nullptr, kelStatusBadStep},  // step before size and value
        {S, ss, {0, 3}, D, -4, {10, 8}, 1, 1, value, kelStatusBadStep},
        {S, ss, {0, 3}, D, ds, {10, 8}, 1, 1, nullptr, kelStatusBadSize},  // size before value
        {S, ss, {4, 0}, D, ds, {10, 8}, 1, 1, value, kelStatusBadSize},
        {S, ss, {4, 3}, D, ds, {0, 8}, 0, 0, value, kelStatusBadSize},
        {S, ss, {4, 3}, D, ds, {10, -1}, 0, 0, value, kelStatusBadSize},
        {S, ss, {4, 3}, D, ds, {10, 8}, -1, 1, value, kelStatusBadSize},
        {S, ss, {4, 3}, D, ds, {10, 8}, 1, -1, value, kelStatusBadSize},
        {S, ss, {4, 3}, D, ds, {10, 8}, 1, 7, value, kelStatusBadSize},  // left + W > dstW
        {S, ss, {4, 3}, D, ds, {10, 8}, 6, 1, value, kelStatusBadSize},  // top + H > dstH
        {S, ss, {11, 3}, D, ds, {10, 8}, 0, 0, value, kelStatusBadSize},
        {S, ss, {4, 3}, D, ds, {10, 8}, 1, 1, nullptr, kelStatusNullPtr},  // value last
    };
    for (const Member<Kel8u>& m : members<Kel8u>()) {
        if (m.channels != 4 && m.channels != 3) continue;
        for (const Case& c : cases) {
            if (c.want == kelStatusNullPtr && !c.v && c.s && c.d && m.kind != BorderKind::Const) continue;
            if (m.inPlace && c.s == S && !c.d) continue;  // an in-place form has no destination pointer
            // In place the source pointer sits inside the destination and steps are shared.
            const Kel8u* s = m.inPlace && c.s ? &dst.at(1, 1) : c.s;
            const I64 step = m.inPlace ? (c.ds < 1 || c.ss < 1 ? std::min(c.ds, c.ss) : ds) : c.ss;
            const std::vector<std::uint8_t> before = dst.snapshot();
            EXPECT_EQ(m.call(s, step, c.sr, c.d, c.ds, c.dr, c.top, c.left, c.v), c.want)
                << m.name << " case " << (&c - cases);
            EXPECT_TRUE(dst.bytes() == before) << m.name << " wrote on failure, case " << (&c - cases);
        }
    }
    // Sums that would overflow 64 bits are still sizes that do not fit.
    const I64 huge = INT64_MAX - 2;
    EXPECT_EQ(keliCopyReplicateBorder_8u_C1R_L(S, ss, {4, 3}, D, ds, {huge, 8}, 0, huge), kelStatusBadSize);
    EXPECT_EQ(keliCopyMirrorBorder_8u_C1R_L(S, ss, {4, 3}, D, ds, {10, huge}, huge, 0), kelStatusBadSize);
    EXPECT_EQ(keliCopyWrapBorder_32f_C1IR_L(reinterpret_cast<Kel32f*>(D), ds, {4, 3}, {10, 8}, 1, huge),
              kelStatusBadSize);
}

// The backward run against a plain pixel loop: every length through two vector groups and
// every destination phase, for each pixel size the families use.
template <std::size_t P> void check_reverse()
{
    kit::Rng rng;
    std::vector<unsigned char> src(64 * P + 64), dst(64 * P + 96), want;
    for (auto& b : src) b = static_cast<unsigned char>(rng.below(256));
    for (std::size_t n = 0; n <= 40; ++n)
        for (std::size_t off = 0; off < 16; ++off) {
            std::fill(dst.begin(), dst.end(), kit::kCanary);
            want = dst;
            const unsigned char* last = src.data() + 48 * P;
            for (std::size_t i = 0; i < n; ++i) std::memcpy(&want[32 + off + i * P], last - i * P, P);
            keli::rows::reverse_run<P>(last, dst.data() + 32 + off, n);
            ASSERT_TRUE(dst == want) << "pixel bytes " << P << " length " << n << " offset " << off;
        }
}

TEST(Border, ReverseRunMatchesPixelLoop)
{
    check_reverse<1>(), check_reverse<2>(), check_reverse<3>(), check_reverse<4>(), check_reverse<6>();
    check_reverse<8>(), check_reverse<12>(), check_reverse<16>();
}

// The internal mapping agrees with the model far outside the image, and the acceptance helpers
// follow the flag rules.
TEST(Border, KindsAndFlags)
{
    using keli::border::Kind;
    const std::pair<Kind, BorderKind> kinds[] = {{Kind::Repl, BorderKind::Repl},
                                                 {Kind::Wrap, BorderKind::Wrap},
                                                 {Kind::Mirror, BorderKind::Mirror},
                                                 {Kind::Const, BorderKind::Const}};
    for (auto [k, r] : kinds)
        for (I64 n = 1; n <= 6; ++n)
            for (I64 x = -40; x <= 40; ++x)
                ASSERT_EQ(keli::border::source_index(k, x, n), reference::border_source(r, x, n))
                    << "kind " << int(k) << " n " << n << " x " << x;
    EXPECT_EQ(keli::border::source_index(Kind::Mirror, -(I64(1) << 40) - 1, 3), 1);
    EXPECT_TRUE(keli::border::filter_accepts(kelBorderRepl | kelBorderInMemTop));
    EXPECT_TRUE(keli::border::filter_accepts(kelBorderInMem));
    EXPECT_TRUE(keli::border::filter_accepts(kelBorderConst | kelBorderInMemLeft | kelBorderInMemRight));
    EXPECT_FALSE(keli::border::filter_accepts(kelBorderWrap));
    EXPECT_FALSE(keli::border::filter_accepts(kelBorderDefault));
    EXPECT_FALSE(keli::border::filter_accepts(kelBorderInMemTop));  // flags without a kind
    EXPECT_FALSE(keli::border::filter_accepts(256 + kelBorderRepl));
    EXPECT_TRUE(keli::border::no_border(kelBorderInMem | kelBorderMirror));
    EXPECT_FALSE(keli::border::no_border(kelBorderInMem - kelBorderInMemLeft + kelBorderRepl));
    EXPECT_TRUE(keli::border::in_memory(kelBorderRepl | kelBorderInMemLeft, kelBorderInMemLeft));
    EXPECT_FALSE(keli::border::in_memory(kelBorderRepl | kelBorderInMemLeft, kelBorderInMemRight));
}

}  // namespace
