// Template matching against the direct f64 model over types, shapes, normalisations and tilings;
// the check order, algType fields and size-query values; buffer and image guard bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "keli.h"
#include "match/rows/template.hpp"
#include "kit/image.hpp"
#include "kit/random.hpp"
#include "reference/template.hpp"

namespace {

constexpr int kFull = 0, kValid = 0x10000, kSame = 0x20000;

// One member of the family: measure and element types.
template <class T, class D> KelStatus call(int measure, const T* s, int ss, KeliSize sr, const T* t, int ts, KeliSize tr,
                                           D* d, int ds, int sf, int alg, Kel8u* b)
{
    if constexpr (std::is_same_v<D, Kel8u>)
        return measure ? keliSqrDistanceNorm_8u_C1RSfs(s, ss, sr, t, ts, tr, d, ds, sf, alg, b)
                       : keliCrossCorrNorm_8u_C1RSfs(s, ss, sr, t, ts, tr, d, ds, sf, alg, b);
    else if constexpr (std::is_same_v<T, Kel8u>)
        return measure ? keliSqrDistanceNorm_8u32f_C1R(s, ss, sr, t, ts, tr, d, ds, alg, b)
                       : keliCrossCorrNorm_8u32f_C1R(s, ss, sr, t, ts, tr, d, ds, alg, b);
    else if constexpr (std::is_same_v<T, Kel16u>)
        return measure ? keliSqrDistanceNorm_16u32f_C1R(s, ss, sr, t, ts, tr, d, ds, alg, b)
                       : keliCrossCorrNorm_16u32f_C1R(s, ss, sr, t, ts, tr, d, ds, alg, b);
    else
        return measure ? keliSqrDistanceNorm_32f_C1R(s, ss, sr, t, ts, tr, d, ds, alg, b)
                       : keliCrossCorrNorm_32f_C1R(s, ss, sr, t, ts, tr, d, ds, alg, b);
}

KelStatus size_query(int measure, KeliSize sr, KeliSize tr, int alg, int* size)
{
    return measure ? keliSqrDistanceNormGetBufferSize(sr, tr, alg, size) : keliCrossCorrNormGetBufferSize(sr, tr, alg, size);
}

// A buffer of exactly the queried size, placed `offset` bytes past a 64-byte boundary, with a
// guard band behind it that the call must leave alone.
struct Buffer {
    std::vector<Kel8u> bytes;
    int size = 0, offset = 0;
    static constexpr int kGuard = 256;
    Buffer(int measure, KeliSize sr, KeliSize tr, int alg, int off) : offset(off)
    {
        EXPECT_EQ(size_query(measure, sr, tr, alg, &size), kelStatusOk);
        bytes.assign(size + kGuard + 128, 0x5A);
    }
    Kel8u* data()
    {
        auto a = reinterpret_cast<std::uintptr_t>(bytes.data());
        return bytes.data() + ((64 - a % 64) % 64) + offset;
    }
    bool guard_intact()
    {
        const Kel8u* end = data() + size;
        return std::all_of(end, end + kGuard, [](Kel8u b) { return b == 0x5A; });
    }
};

template <class T> std::vector<double> values_of(const kit::Image<T>& im)
{
    std::vector<double> v;
    for (int y = 0; y < im.height(); ++y)
        for (int x = 0; x < im.width(); ++x) v.push_back(static_cast<double>(im.at(x, y)));
    return v;
}

template <class T> void fill_random(kit::Image<T>& im, kit::Rng& rng)
{
    im.fill([&] {
        if constexpr (std::is_same_v<T, Kel32f>) return static_cast<float>(rng.below(20001) - 10000) / 64.0f;
        else if constexpr (std::is_same_v<T, Kel16u>) return static_cast<T>(rng.below(65536));
        else return static_cast<T>(rng.below(256));
    });
}

const char* name_of(int measure, int norm) { return measure ? (norm ? "SqrDistance 0x100" : "SqrDistance") : norm == 2 ? "CrossCorr 0x200" : norm ? "CrossCorr 0x100" : "CrossCorr"; }

// Runs one member on random images and compares with the model: normalised outputs within
// 1e-5 on windows of at least a quarter of the mean window energy, plain outputs within
// 1e-6 * |T| * sqrt(image energy), 8u within 1.
template <class T, class D>
void expect_matches_model(int measure, int norm, int shape, KeliSize sr, KeliSize tr, int sf, kit::Rng& rng)
{
    SCOPED_TRACE(testing::Message() << name_of(measure, norm) << " shape " << (shape >> 16) << " src " << sr.width << "x"
                                    << sr.height << " tpl " << tr.width << "x" << tr.height << " sf " << sf);
    kit::Image<T> src(sr.width, sr.height, 1, {1, 12}), tpl(tr.width, tr.height, 1, {3, 4});
    fill_random(src, rng);
    fill_random(tpl, rng);
    const ref::MatchModel m = ref::match_template(measure, values_of(src), sr.width, sr.height, values_of(tpl), tr.width,
                                                  tr.height, norm, shape >> 16);
    kit::Image<D> dst(m.width, m.height, 1, {2, 8});
    const int alg = shape | (norm << 8);
    Buffer buf(measure, sr, tr, alg, 17);
    const auto before = dst.snapshot();
    ASSERT_EQ((call<T, D>(measure, src.data(), src.step(), sr, tpl.data(), tpl.step(), tr, dst.data(), dst.step(), sf, alg,
                          buf.data())),
              kelStatusOk);
    EXPECT_EQ(kit::first_stray_write(dst, before, kit::any_element), -1);
    EXPECT_TRUE(buf.guard_intact());
    double meanEnergy = 0, imageEnergy = 0, tplEnergy = 0;
    for (double e : m.energy) meanEnergy += e / m.energy.size();
    for (double v : values_of(src)) imageEnergy += v * v;
    for (double v : values_of(tpl)) tplEnergy += v * v;
    const double plainTol = 1e-6 * std::sqrt(tplEnergy * imageEnergy) * (measure ? 2 : 1) + 1e-9;
    int checked = 0;
    for (int y = 0; y < m.height; ++y)
        for (int x = 0; x < m.width; ++x) {
            const std::size_t i = std::size_t(y) * m.width + x;
            const double want = m.value[i], got = dst.at(x, y);
            // Normalised values of weak windows carry the rounding of the whole tile.
            if (norm && m.energy[i] < 0.25 * meanEnergy) {
                if constexpr (!std::is_same_v<D, Kel8u>) {
                    ASSERT_TRUE(std::isfinite(got)) << x << "," << y;
                }
                continue;
            }
            if constexpr (std::is_same_v<D, Kel8u>) {
                // Rounding can only move by one where the f32 value lies near a half.
                const double lo = ref::to_8u(want - (norm ? 1e-5 : plainTol), sf), hi = ref::to_8u(want + (norm ? 1e-5 : plainTol), sf);
                ASSERT_TRUE(got >= lo - 1 && got <= hi + 1) << x << "," << y << " want " << want << " got " << got;
            } else if (norm) {
                ASSERT_NEAR(got, want, 1e-5 * std::max(1.0, std::fabs(want))) << x << "," << y;
            } else {
                ASSERT_NEAR(got, want, plainTol) << x << "," << y;
            }
            ++checked;
        }
    EXPECT_GT(checked, m.width * m.height / 2);
}

struct Case {
    KeliSize src, tpl;
};

// Whole-image tiles, one tile, several tiles and ragged last tiles.
const Case kCases[] = {{{61, 47}, {1, 1}}, {{61, 47}, {3, 5}}, {{61, 47}, {16, 16}}, {{61, 47}, {40, 40}}, {{300, 200}, {16, 16}}};

template <class T, class D> void sweep(int measure, int sfPlain, int sfNorm)
{
    kit::Rng rng;
    const int norms = measure ? 2 : 3;
    for (const Case& c : kCases)
        for (int shape : {kFull, kValid, kSame})
            for (int norm = 0; norm < norms; ++norm)
                expect_matches_model<T, D>(measure, norm, shape, c.src, c.tpl, norm ? sfNorm : sfPlain, rng);
}

TEST(TemplateMatchCrossCorr, MatchesModel8u32f) { sweep<Kel8u, Kel32f>(0, 0, 0); }
TEST(TemplateMatchCrossCorr, MatchesModel16u32f) { sweep<Kel16u, Kel32f>(0, 0, 0); }
TEST(TemplateMatchCrossCorr, MatchesModel32f) { sweep<Kel32f, Kel32f>(0, 0, 0); }
TEST(TemplateMatchCrossCorr, MatchesModel8uSfs) { sweep<Kel8u, Kel8u>(0, 16, -7); }
TEST(TemplateMatchSqrDistance, MatchesModel8u32f) { sweep<Kel8u, Kel32f>(1, 0, 0); }
TEST(TemplateMatchSqrDistance, MatchesModel16u32f) { sweep<Kel16u, Kel32f>(1, 0, 0); }
TEST(TemplateMatchSqrDistance, MatchesModel32f) { sweep<Kel32f, Kel32f>(1, 0, 0); }
TEST(TemplateMatchSqrDistance, MatchesModel8uSfs) { sweep<Kel8u, Kel8u>(1, 16, -4); }

TEST(TemplateMatchCrossCorr, LargeTemplateOnLargeImage)
{
    kit::Rng rng;
    expect_matches_model<Kel8u, Kel32f>(0, 2, kValid, {300, 200}, {40, 40}, 0, rng);
    expect_matches_model<Kel32f, Kel32f>(1, 1, kValid, {300, 200}, {40, 40}, 0, rng);
}

// A constant window under 0x200 and a zero window under 0x100 give 0; a zero template under
// 0x100 gives 0; the squared distance of a zero window under 0x100 is large and finite.
TEST(TemplateMatchCrossCorr, FlatWindowsGiveZero)
{
    kit::Rng rng;
    for (KeliSize tr : {KeliSize{16, 16}, KeliSize{3, 5}, KeliSize{15, 13}}) {
        SCOPED_TRACE(tr.width);
        const KeliSize sr{70, 50};
        kit::Image<Kel8u> src(sr.width, sr.height, 1), tpl(tr.width, tr.height, 1);
        src.fill([] { return Kel8u(200); });
        for (int x = 0; x < 20; ++x) src.at(x + 30, 20) = 0;  // one row of energy to make noise
        fill_random(tpl, rng);
        const int alg = 0x200 | kValid;
        Buffer buf(0, sr, tr, alg, 0);
        std::vector<float> out((sr.width - tr.width + 1) * (sr.height - tr.height + 1), -9.0f);
        const int ow = sr.width - tr.width + 1;
        ASSERT_EQ(keliCrossCorrNorm_8u32f_C1R(src.data(), src.step(), sr, tpl.data(), tpl.step(), tr, out.data(), ow * 4,
                                              alg, buf.data()),
                  kelStatusOk);
        // Windows above the dark row are constant.
        for (int y = 0; y + tr.height <= 20; ++y)
            for (int x = 0; x < ow; ++x) ASSERT_EQ(out[y * ow + x], 0.0f) << x << "," << y;
    }
    // Zero image, 0x100: both measures.
    const KeliSize sr{40, 30}, tr{8, 8};
    std::vector<Kel32f> zero(40 * 30, 0.0f), tpl(64, 2.0f), out(33 * 23, -9.0f);
    Buffer cc(0, sr, tr, 0x100 | kValid, 0), sd(1, sr, tr, 0x100 | kValid, 0);
    ASSERT_EQ(keliCrossCorrNorm_32f_C1R(zero.data(), 160, sr, tpl.data(), 32, tr, out.data(), 33 * 4, 0x100 | kValid, cc.data()), 0);
    for (float v : out) ASSERT_EQ(v, 0.0f);
    ASSERT_EQ(keliSqrDistanceNorm_32f_C1R(zero.data(), 160, sr, tpl.data(), 32, tr, out.data(), 33 * 4, 0x100 | kValid, sd.data()), 0);
    // 256 / (2^-23) for |T|^2 = 256.
    for (float v : out) ASSERT_NEAR(v, 256.0 * 8388608.0, 256.0 * 8388608.0 * 1e-5);
    // A zero template under 0x100 has norm 2^-23 and correlation 0.
    std::fill(tpl.begin(), tpl.end(), 0.0f);
    std::vector<Kel32f> img(40 * 30, 3.0f);
    ASSERT_EQ(keliCrossCorrNorm_32f_C1R(img.data(), 160, sr, tpl.data(), 32, tr, out.data(), 33 * 4, 0x100 | kValid, cc.data()), 0);
    for (float v : out) ASSERT_EQ(v, 0.0f);
}

TEST(TemplateMatchCrossCorr, EdgeIdentities)
{
    kit::Rng rng;
    // A 1x1 template in the same shape scales the image.
    const KeliSize sr{37, 29}, one{1, 1};
    kit::Image<Kel32f> src(sr.width, sr.height, 1);
    fill_random(src, rng);
    const float t = 3.0f;
    std::vector<Kel32f> out(37 * 29);
    Buffer b1(0, sr, one, kSame, 0);
    ASSERT_EQ(keliCrossCorrNorm_32f_C1R(src.data(), src.step(), sr, &t, 4, one, out.data(), 37 * 4, kSame, b1.data()), 0);
    for (int y = 0; y < sr.height; ++y)
        for (int x = 0; x < sr.width; ++x) ASSERT_NEAR(out[y * 37 + x], 3.0 * src.at(x, y), 1e-4 * std::fabs(src.at(x, y)) + 1e-4);
    // A template of the image's size gives one output in the valid shape.
    float single = -1;
    Buffer b2(0, sr, sr, 0x100 | kValid, 0);
    ASSERT_EQ(keliCrossCorrNorm_32f_C1R(src.data(), src.step(), sr, src.data(), src.step(), sr, &single, 4, 0x100 | kValid, b2.data()), 0);
    EXPECT_NEAR(single, 1.0f, 1e-5);
    // Full and valid agree on the common positions.
    kit::Image<Kel8u> im(80, 60, 1), tp(12, 9, 1);
    fill_random(im, rng);
    fill_random(tp, rng);
    const KeliSize ir = im.size(), tr = tp.size();
    std::vector<Kel32f> full((80 + 11) * (60 + 8)), valid(69 * 52);
    Buffer bf(0, ir, tr, 0x200 | kFull, 0), bv(0, ir, tr, 0x200 | kValid, 0);
    ASSERT_EQ(keliCrossCorrNorm_8u32f_C1R(im.data(), im.step(), ir, tp.data(), tp.step(), tr, full.data(), 91 * 4, 0x200 | kFull, bf.data()), 0);
    ASSERT_EQ(keliCrossCorrNorm_8u32f_C1R(im.data(), im.step(), ir, tp.data(), tp.step(), tr, valid.data(), 69 * 4, 0x200 | kValid, bv.data()), 0);
    for (int y = 0; y < 52; ++y)
        for (int x = 0; x < 69; ++x) ASSERT_NEAR(full[(y + 8) * 91 + x + 11], valid[y * 69 + x], 1e-5);
    // On the 8u form a scale factor of 8 divides by 256 before rounding.
    std::vector<Kel32f> plain(69 * 52);
    std::vector<Kel8u> scaled(69 * 52);
    Buffer bp(0, ir, tr, kValid, 0);
    ASSERT_EQ(keliCrossCorrNorm_8u32f_C1R(im.data(), im.step(), ir, tp.data(), tp.step(), tr, plain.data(), 69 * 4, kValid, bp.data()), 0);
    ASSERT_EQ(keliCrossCorrNorm_8u_C1RSfs(im.data(), im.step(), ir, tp.data(), tp.step(), tr, scaled.data(), 69, 18, kValid, bp.data()), 0);
    for (std::size_t i = 0; i < plain.size(); ++i)
        ASSERT_EQ(scaled[i], static_cast<Kel8u>(std::min(255.0f, std::nearbyint(plain[i] * (1.0f / 262144.0f))))) << i;
}

// ---- Checks

TEST(TemplateMatchChecks, OrderAndNothingWritten)
{
    Kel8u src[64] = {}, tpl[4] = {}, buf[1] = {};
    Kel32f dst[64];
    const KeliSize s{8, 8}, t{2, 2};
    struct Row {
        const Kel8u *src, *tpl;
        Kel32f* dst;
        KeliSize sr, tr;
        int ss, ts, ds, alg;
        Kel8u* buf;
        KelStatus want;
    };
    const Row rows[] = {
        {nullptr, tpl, dst, {0, 8}, t, 0, 2, 32, 3, nullptr, kelStatusNullPtr},
        {src, nullptr, dst, s, t, 8, 2, 32, 0, buf, kelStatusNullPtr},
        {src, tpl, nullptr, s, t, 8, 2, 32, 0, buf, kelStatusNullPtr},
        {src, tpl, dst, {0, 8}, t, 0, 2, 32, 3, nullptr, kelStatusBadSize},
        {src, tpl, dst, s, {2, 0}, 8, 2, 32, 0, buf, kelStatusBadSize},
        {src, tpl, dst, s, {9, 2}, 8, 2, 32, 0, buf, kelStatusBadSize},
        {src, tpl, dst, s, {2, 9}, 8, 2, 32, 0, buf, kelStatusBadSize},
        {src, tpl, dst, s, t, 0, 2, 32, 3, nullptr, kelStatusBadStep},
        {src, tpl, dst, s, t, 8, -2, 32, 3, nullptr, kelStatusBadStep},
        {src, tpl, dst, s, t, 8, 2, 0, 3, nullptr, kelStatusBadStep},
        {src, tpl, dst, s, t, 8, 2, 32, 3, nullptr, kelStatusNullPtr},
        {src, tpl, dst, s, t, 8, 2, 32, 3, buf, kelStatusBadAlgorithm},
        {src, tpl, dst, s, t, 8, 2, 32, 0x30000, buf, kelStatusBadAlgorithm},
        {src, tpl, dst, s, t, 8, 2, 32, 0x300, buf, kelStatusBadAlgorithm},
    };
    for (int measure : {0, 1})
        for (const Row& r : rows) {
            std::fill(std::begin(dst), std::end(dst), 7.0f);
            EXPECT_EQ((call<Kel8u, Kel32f>(measure, r.src, r.ss, r.sr, r.tpl, r.ts, r.tr, r.dst, r.ds, 0, r.alg, r.buf)), r.want)
                << name_of(measure, 0) << " alg " << r.alg;
            for (float v : dst) ASSERT_EQ(v, 7.0f);
        }
}

TEST(TemplateMatchChecks, AlgTypeFields)
{
    const KeliSize s{8, 8}, t{2, 2};
    int size = 0;
    struct Row {
        int alg;
        KelStatus crossCorr, sqrDistance;
    };
    const Row rows[] = {{0, 0, 0},         {1, 0, 0},          {2, 0, 0},          {3, -228, -228},     {0x100, 0, 0},
                        {0x200, 0, -228},  {0x300, -228, -228}, {0x400, -228, -228}, {0x10000, 0, 0},   {0x20202, 0, -228},
                        {0x30000, -228, -228}, {0x1000000, 0, 0}, {0x8000, -228, -228}};
    for (const Row& r : rows) {
        EXPECT_EQ(keliCrossCorrNormGetBufferSize(s, t, r.alg, &size), r.crossCorr) << r.alg;
        EXPECT_EQ(keliSqrDistanceNormGetBufferSize(s, t, r.alg, &size), r.sqrDistance) << r.alg;
    }
    // The size queries test the pointer first, then the sizes.
    EXPECT_EQ(keliCrossCorrNormGetBufferSize({0, 0}, t, 3, nullptr), kelStatusNullPtr);
    EXPECT_EQ(keliSqrDistanceNormGetBufferSize({0, 0}, t, 3, &size), kelStatusBadSize);
    EXPECT_EQ(keliSqrDistanceNormGetBufferSize(s, {9, 1}, 3, &size), kelStatusBadSize);
}

// The size formula written out from the tile orders, which the table states by hand.
int expected_size(int ox, int oy, long long posX, long long posY, int perColumn, bool energy)
{
    int spec = 0, init = 0, work = 0;
    EXPECT_EQ(keliFFTGetSize_R_32f(ox, oy, 2, kelAlgHintNone, &spec, &init, &work), kelStatusOk);
    const long long raised = std::max<long long>(work, posX * perColumn);
    const long long tiles = ((8LL << (ox + oy)) + 126) & ~127LL;
    const long long area = energy ? (posX * posY * 4 + 63) & ~63LL : 0;
    return static_cast<int>(spec + init + raised + tiles + area + 64);
}

TEST(TemplateMatchChecks, SizeQueryValues)
{
    struct Row {
        int measure;
        KeliSize src, tpl;
        int alg, ox, oy;
        long long posX, posY;
    };
    const Row rows[] = {
        // 61x47 against 16x16: tiles twice the template, once more where that stays below the output.
        {0, {61, 47}, {16, 16}, 0x200 | kValid, 6, 5, 49, 17},
        {0, {61, 47}, {16, 16}, kValid, 6, 5, 49, 17},
        {0, {61, 47}, {16, 16}, 0x100 | kSame, 6, 6, 49, 49},
        {1, {61, 47}, {16, 16}, kValid, 6, 5, 49, 17},
        {1, {61, 47}, {16, 16}, 0x100 | kFull, 6, 6, 49, 49},
        // The whole image in one tile: valid 61x47 against 40x40 (2867 <= 12800).
        {0, {61, 47}, {40, 40}, 0x200 | kValid, 6, 6, 25, 25},
        // Full: the tile covers (W+w-1) x (H+h-1) and gives all of it.
        {0, {61, 47}, {40, 40}, 0x100 | kFull, 7, 7, 100, 86},
        // The squared distance never takes the whole image.
        {1, {61, 47}, {40, 40}, 0x100 | kValid, 7, 7, 89, 89},
        // Large templates stop at order k: 2^7 reaches 128 already.
        {0, {300, 200}, {64, 64}, 0x200 | kValid, 7, 7, 65, 65},
        {0, {300, 200}, {16, 16}, 0x200 | kValid, 6, 6, 49, 49},
        {0, {300, 200}, {3, 5}, 0x100 | kValid, 4, 5, 14, 28},
    };
    for (const Row& r : rows) {
        const int norm = (r.alg >> 8) & 0xFF;
        const int perColumn = r.measure || norm == 1 ? 8 : norm == 2 ? 16 : 0;
        int size = -1;
        ASSERT_EQ(size_query(r.measure, r.src, r.tpl, r.alg, &size), kelStatusOk);
        EXPECT_EQ(size, expected_size(r.ox, r.oy, r.posX, r.posY, perColumn, r.measure || norm))
            << r.measure << " " << r.src.width << "x" << r.src.height << " tpl " << r.tpl.width << " alg " << r.alg;
    }
    // A total past 2^31 - 1 is stored with the overflow status.
    int size = 0;
    EXPECT_EQ(keliCrossCorrNormGetBufferSize({30000, 30000}, {10000, 10000}, kFull, &size), kelStatusSizeOverflow);
    EXPECT_NE(size, 0);
}

// ---- Row kernels against plain scalar loops, every head and tail length, shifted starts

namespace rows = keli::match::rows;

bool same_bits(float a, float b) { return std::memcmp(&a, &b, sizeof a) == 0; }

template <class T> void expect_to_f32(kit::Rng& rng)
{
    std::vector<T> in(40);
    for (auto& v : in) v = rng.any<T>();
    for (int off = 0; off < 4; ++off)
        for (std::size_t n = 0; n < 20; ++n) {
            std::vector<float> out(n + 8, -1.0f);
            rows::to_f32(in.data() + off, out.data() + 1, n);
            for (std::size_t i = 0; i < n; ++i) ASSERT_EQ(out[i + 1], static_cast<float>(in[off + i])) << n;
            ASSERT_EQ(out[n + 1], -1.0f);
        }
}

TEST(TemplateMatchRows, ToF32) {
    kit::Rng rng;
    expect_to_f32<Kel8u>(rng);
    expect_to_f32<Kel16u>(rng);
    expect_to_f32<Kel32f>(rng);
}

TEST(TemplateMatchRows, ConjugateProductAndDivide)
{
    kit::Rng rng;
    std::vector<float> a(48), b(48), den(48);
    for (std::size_t i = 0; i < a.size(); ++i) {
        a[i] = rng.any<float>(), b[i] = rng.any<float>();
        den[i] = i % 5 == 0 ? 0.0f : rng.any<float>();  // zero divisors give 0
    }
    for (int off = 0; off < 4; ++off)
        for (std::size_t n = 0; n < 20; ++n) {
            std::vector<float> s(a.begin() + off, a.begin() + off + 2 * n + 2);
            rows::multiply_conj_pairs(s.data(), b.data() + off, n);
            for (std::size_t k = 0; k < n; ++k) {
                const float p = a[off + 2 * k], q = a[off + 2 * k + 1], c = b[off + 2 * k], d = b[off + 2 * k + 1];
                ASSERT_TRUE(same_bits(s[2 * k], p * c + q * d)) << n << " " << k;
                ASSERT_TRUE(same_bits(s[2 * k + 1], q * c - p * d)) << n << " " << k;
            }
            ASSERT_EQ(s[2 * n], a[off + 2 * n]);
            std::vector<float> q(n + 1, 9.0f);
            rows::divide(a.data() + off, den.data() + off, q.data(), n);
            for (std::size_t i = 0; i < n; ++i)
                ASSERT_TRUE(same_bits(q[i], den[off + i] == 0.0f ? 0.0f : a[off + i] / den[off + i])) << n << " " << i;
            ASSERT_EQ(q[n], 9.0f);
        }
}

TEST(TemplateMatchRows, ScaleTo8uRoundsHalfEvenAndSaturates)
{
    const float values[] = {0.5f, 1.5f, 2.5f, -0.5f, 254.5f, 255.5f, 1e12f, -1e12f, NAN, -0.0f, 3.49999f, 127.5f,
                            100.25f, 7.0f, 0.49999997f, 253.5f, 2.0f, 9.5f, 10.5f, 300.0f};
    struct Scale {
        float s;
        int sf;
    };
    for (Scale sc : {Scale{1.0f, 0}, Scale{0.125f, 3}, Scale{4.0f, -2}})
        for (std::size_t n = 0; n <= 20; ++n) {
            std::vector<Kel8u> out(n + 1, 77);
            rows::scale_to_8u(values, sc.s, out.data(), n);
            for (std::size_t i = 0; i < n; ++i) {
                const double want = std::isnan(values[i]) ? 0.0 : ref::to_8u(static_cast<double>(values[i] * sc.s), 0);
                ASSERT_EQ(out[i], want) << values[i] << " scale " << sc.s;
            }
            ASSERT_EQ(out[n], 77);
        }
}

TEST(TemplateMatchRows, SqrDistanceRow)
{
    kit::Rng rng;
    const double tiny = std::ldexp(1.0, -23);
    std::vector<float> corr(24);
    std::vector<double> energy(24);
    for (std::size_t i = 0; i < corr.size(); ++i) {
        corr[i] = rng.any<float>();
        energy[i] = i % 4 == 0 ? 0.0 : i % 4 == 1 ? tiny / 2 : std::fabs(rng.any<float>()) * 1000.0;
    }
    for (double tplNorm : {tiny, 3.0, 1234.5})
        for (std::size_t n = 0; n < 20; ++n) {
            std::vector<float> plain(n + 1, 5.0f), normed(n + 1, 5.0f);
            rows::sqr_distance<false>(corr.data(), energy.data(), tplNorm * tplNorm, tplNorm, plain.data(), n);
            rows::sqr_distance<true>(corr.data(), energy.data(), tplNorm * tplNorm, tplNorm, normed.data(), n);
            for (std::size_t i = 0; i < n; ++i) {
                const double num = (corr[i] * -2.0 + energy[i]) + tplNorm * tplNorm;
                const double d = std::max(std::sqrt(energy[i] < tiny ? 0.0 : energy[i]) * tplNorm, tiny);
                ASSERT_TRUE(same_bits(plain[i], static_cast<float>(num))) << i;
                ASSERT_TRUE(same_bits(normed[i], static_cast<float>(num / d))) << i;
            }
            ASSERT_EQ(plain[n], 5.0f);
            ASSERT_EQ(normed[n], 5.0f);
        }
}

template <class T> void expect_column_sums(kit::Rng& rng)
{
    std::vector<T> in(40), out(40);
    for (auto& v : in) v = rng.any<T>();
    for (auto& v : out) v = rng.any<T>();
    for (int off = 0; off < 3; ++off)
        for (std::size_t n = 0; n < 20; ++n) {
            std::vector<double> sq(n + 1, 0.25), sum(n + 1, 0.5);
            rows::add_row<1, true>(sq.data(), sum.data(), in.data() + off, n);
            rows::add_row<-1, true>(sq.data(), sum.data(), out.data() + off, n);
            rows::add_row<1, false>(sq.data(), nullptr, in.data() + off, n);
            for (std::size_t i = 0; i < n; ++i) {
                const double a = static_cast<double>(in[off + i]), b = static_cast<double>(out[off + i]);
                ASSERT_EQ(sq[i], ((0.25 + a * a) - b * b) + a * a) << n << " " << i;
                ASSERT_EQ(sum[i], (0.5 + a) - b) << n << " " << i;
            }
            ASSERT_EQ(sq[n], 0.25);
            ASSERT_EQ(sum[n], 0.5);
        }
}

TEST(TemplateMatchRows, ColumnSums)
{
    kit::Rng rng;
    expect_column_sums<Kel8u>(rng);
    expect_column_sums<Kel16u>(rng);
    expect_column_sums<Kel32f>(rng);
}

}  // namespace
