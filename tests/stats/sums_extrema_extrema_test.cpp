// keliMin, keliMax, keliMinMax, keliMinIndx, keliMaxIndx and keliBlockMinMax: every member
// against the models over the sweep, the float lane rules (not-a-number, infinities, signed
// zeros), first positions and their tie rules, the early stop of the integer index searches,
// and the check orders.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <vector>

#include "stats/sums_extrema_sweep.hpp"

namespace {

using reference::View;
using sums_test::kForms;
using sums_test::reduction_sweep;
using sums_test::same_bits;

template <class T> using ExtFn = KelStatus (*)(const T*, int, KeliSize, T*);
template <class T> using MinMaxFn = KelStatus (*)(const T*, int, KeliSize, T*, T*);
template <class T> using IndxFn = KelStatus (*)(const T*, int, KeliSize, T*, int*, int*);

template <class T> struct Members {
    ExtFn<T> min[4], max[4];
    MinMaxFn<T> minmax[4];
    IndxFn<T> minIndx[4], maxIndx[4];
};

#define KELI_FOUR(F, T) {F##_##T##_C1R, F##_##T##_C3R, F##_##T##_C4R, F##_##T##_AC4R}
#define KELI_MEMBERS(T) \
    Members<Kel##T> { KELI_FOUR(keliMin, T), KELI_FOUR(keliMax, T), KELI_FOUR(keliMinMax, T), KELI_FOUR(keliMinIndx, T), KELI_FOUR(keliMaxIndx, T) }

// Output arrays with one slot behind the last colour that must keep its canary (AC4 has three).
template <class T> struct Out {
    T v[5];
    int x[5], y[5];
    Out()
    {
        std::memset(v, 0x5A, sizeof v);
        for (int i = 0; i < 5; ++i) x[i] = y[i] = -77;
    }
    bool untouched() const
    {
        const Out fresh;
        return std::memcmp(v, fresh.v, sizeof v) == 0 && std::memcmp(x, fresh.x, sizeof x) == 0 &&
               std::memcmp(y, fresh.y, sizeof y) == 0;
    }
};

template <class T> void expect_values(const Out<T>& o, const T* want, int n, const char* what)
{
    for (int c = 0; c < n; ++c) ASSERT_TRUE(same_bits(o.v[c], want[c])) << what << " channel " << c << ": " << +o.v[c] << " want " << +want[c];
    ASSERT_TRUE(same_bits(o.v[n], Out<T>().v[n])) << what << " wrote past its channels";
}

template <class T> void expect_positions(const Out<T>& o, const T* want, const int* x, const int* y, int n, const char* what)
{
    expect_values(o, want, n, what);
    for (int c = 0; c < n; ++c) ASSERT_EQ(std::make_pair(o.x[c], o.y[c]), std::make_pair(x[c], y[c])) << what << " channel " << c;
    ASSERT_EQ(std::make_pair(o.x[n], o.y[n]), std::make_pair(-77, -77)) << what << " wrote past its channels";
}

template <class T> void check_members(const Members<T>& m, int k, View<T> v)
{
    using namespace reference;
    const int n = kForms[k].colours;
    const KeliSize size{v.width, v.height};
    T mn[4], mx[4];
    extreme(v, n, true, rule_min<T>, mn);
    extreme(v, n, false, rule_max<T>, mx);
    Out<T> a, b, c, d;
    ASSERT_EQ(m.min[k](v.base, v.step, size, a.v), kelStatusOk);
    expect_values(a, mn, n, "min");
    ASSERT_EQ(m.max[k](v.base, v.step, size, b.v), kelStatusOk);
    expect_values(b, mx, n, "max");
    ASSERT_EQ(m.minmax[k](v.base, v.step, size, c.v, d.v), kelStatusOk);
    expect_values(c, mn, n, "minmax min");
    expect_values(d, mx, n, "minmax max");

    T val[4];
    int x[4], y[4];
    Out<T> e, f;
    if constexpr (std::is_same_v<T, Kel32f>) float_index(v, n, true, rule_min<T>, val, x, y);
    else first_extreme(v, n, true, val, x, y);
    ASSERT_EQ(m.minIndx[k](v.base, v.step, size, e.v, e.x, e.y), kelStatusOk);
    expect_positions(e, val, x, y, n, "min index");
    if constexpr (std::is_same_v<T, Kel32f>) {
        if (k == 0) max_index_32f_c1(v, val, x, y);
        else float_index(v, n, false, rule_max<T>, val, x, y);
    } else {
        first_extreme(v, n, false, val, x, y);
    }
    ASSERT_EQ(m.maxIndx[k](v.base, v.step, size, f.v, f.x, f.y), kelStatusOk);
    expect_positions(f, val, x, y, n, "max index");
}

// Integers: mostly four neighbouring values, so that ties are everywhere, and now and then the
// type's extremes, which end the index searches early.
template <class T> T tie_heavy(kit::Rng& rng)
{
    const int r = rng.below(64);
    if (r == 0) return std::numeric_limits<T>::min();
    if (r == 1) return std::numeric_limits<T>::max();
    return static_cast<T>(100 + rng.below(4));
}

// Floats: ties, signed zeros, infinities, the largest finite values and not-a-number.
Kel32f float_specials(kit::Rng& rng)
{
    static const Kel32f values[] = {-1.0f, 0.0f, -0.0f, 1.0f, 2.0f, INFINITY, -INFINITY, NAN, FLT_MAX, -FLT_MAX};
    const int r = rng.below(20);
    return r < 10 ? values[r] : static_cast<Kel32f>(rng.below(7) - 3);
}

template <class T, class Gen> void sweep_members(const Members<T>& m, Gen gen)
{
    for (int k = 0; k < 4; ++k) {
        SCOPED_TRACE("form " + std::to_string(k));
        reduction_sweep<T>(kForms[k].channels, gen, [&](View<T> v) { check_members(m, k, v); }, 72);
    }
}

TEST(Extrema, EveryMemberMatchesTheModelOverTheSweep)
{
    kit::Rng rng;
    sweep_members(KELI_MEMBERS(8u), [&] { return tie_heavy<Kel8u>(rng); });
    sweep_members(KELI_MEMBERS(16u), [&] { return tie_heavy<Kel16u>(rng); });
    sweep_members(KELI_MEMBERS(16s), [&] { return tie_heavy<Kel16s>(rng); });
    sweep_members(KELI_MEMBERS(32f), [&] { return float_specials(rng); });
    // Plain random values, where the extremes are unique.
    sweep_members(KELI_MEMBERS(16s), [&] { return rng.any<Kel16s>(); });
    sweep_members(KELI_MEMBERS(32f), [&] { return rng.any<Kel32f>(); });
}

TEST(Extrema, FloatLaneRules)
{
    // Eight lanes, element k of a 32-byte aligned row in lane k % 8, folded in lane order.
    alignas(32) Kel32f row[16];
    for (Kel32f& v : row) v = 5.0f;
    Kel32f mn = 0, mx = 0;
    row[7] = NAN;  // replaced by row[15] in its lane
    ASSERT_EQ(keliMinMax_32f_C1R(row, sizeof row, {16, 1}, &mn, &mx), kelStatusOk);
    EXPECT_EQ(mn, 5.0f);
    EXPECT_EQ(mx, 5.0f);
    row[15] = NAN;  // now the last of the last lane: it decides
    ASSERT_EQ(keliMin_32f_C1R(row, sizeof row, {16, 1}, &mn), kelStatusOk);
    EXPECT_TRUE(std::isnan(mn));

    // Only +inf gives the largest finite value as minimum, only -inf its negative as maximum;
    // the index search of the one-channel maximum is seeded from the data and keeps -inf.
    for (Kel32f& v : row) v = INFINITY;
    ASSERT_EQ(keliMin_32f_C1R(row, sizeof row, {16, 1}, &mn), kelStatusOk);
    EXPECT_EQ(mn, FLT_MAX);
    int x = -1, y = -1;
    ASSERT_EQ(keliMinIndx_32f_C1R(row, sizeof row / 2, {8, 2}, &mn, &x, &y), kelStatusOk);
    EXPECT_EQ(mn, FLT_MAX);
    EXPECT_EQ(std::make_pair(x, y), std::make_pair(0, 0));
    for (Kel32f& v : row) v = -INFINITY;
    ASSERT_EQ(keliMax_32f_C1R(row, sizeof row, {16, 1}, &mx), kelStatusOk);
    EXPECT_EQ(mx, -FLT_MAX);
    ASSERT_EQ(keliMaxIndx_32f_C1R(row, sizeof row / 2, {8, 2}, &mx, &x, &y), kelStatusOk);
    EXPECT_EQ(mx, -INFINITY);

    // A not-a-number seed stays the result of the index searches that start from the first pixel.
    for (Kel32f& v : row) v = 1.0f;
    row[0] = NAN;
    ASSERT_EQ(keliMaxIndx_32f_C1R(row, sizeof row / 2, {8, 2}, &mx, &x, &y), kelStatusOk);
    EXPECT_TRUE(std::isnan(mx));
    EXPECT_EQ(std::make_pair(x, y), std::make_pair(0, 0));
    Kel32f c4[4];
    int xs[4], ys[4];
    ASSERT_EQ(keliMinIndx_32f_C4R(row, sizeof row / 2, {2, 2}, c4, xs, ys), kelStatusOk);
    EXPECT_TRUE(std::isnan(c4[0]));
    EXPECT_EQ(c4[1], 1.0f);
    EXPECT_EQ(std::make_pair(xs[0], ys[0]), std::make_pair(0, 0));
}

TEST(Extrema, FirstPositionsAndTies)
{
    // Two minima in one row: the lower column; in two rows: the lower row.
    Kel8u img[3][8] = {{9, 9, 9, 9, 9, 9, 9, 9}, {9, 9, 9, 1, 9, 1, 9, 9}, {9, 1, 9, 9, 9, 9, 9, 9}};
    Kel8u v = 0;
    int x = -1, y = -1;
    ASSERT_EQ(keliMinIndx_8u_C1R(&img[0][0], 8, {8, 3}, &v, &x, &y), kelStatusOk);
    EXPECT_EQ(v, 1);
    EXPECT_EQ(std::make_pair(x, y), std::make_pair(3, 1));

    // All pixels equal: (0, 0) in every channel; a 1 x 1 image is its own everything.
    std::vector<Kel16u> flat(4 * 20 * 5, 321);
    Kel16u vals[4];
    int xs[4], ys[4];
    ASSERT_EQ(keliMaxIndx_16u_C4R(flat.data(), 4 * 20 * 2, {20, 5}, vals, xs, ys), kelStatusOk);
    for (int c = 0; c < 4; ++c) EXPECT_EQ(std::make_tuple(vals[c], xs[c], ys[c]), std::make_tuple(321, 0, 0));
    const Kel32f one[3] = {-2.5f, 7.0f, 0.25f};
    Kel32f fv[3];
    ASSERT_EQ(keliMinIndx_32f_C3R(one, 12, {1, 1}, fv, xs, ys), kelStatusOk);
    for (int c = 0; c < 3; ++c) EXPECT_EQ(std::make_tuple(fv[c], xs[c], ys[c]), std::make_tuple(one[c], 0, 0));

    // Channels keep their own positions.
    Kel16s px[2][3][4] = {};
    px[0][2][0] = -5;  // channel 0 at (2, 0)
    px[1][1][1] = -5;  // channel 1 at (1, 1)
    px[1][0][2] = -5;  // channel 2 at (0, 1); channel 3 is alpha
    px[0][0][3] = -9;
    Kel16s sv[3];
    ASSERT_EQ(keliMinIndx_16s_AC4R(&px[0][0][0], 24, {3, 2}, sv, xs, ys), kelStatusOk);
    EXPECT_EQ(std::make_tuple(sv[0], xs[0], ys[0]), std::make_tuple(-5, 2, 0));
    EXPECT_EQ(std::make_tuple(sv[1], xs[1], ys[1]), std::make_tuple(-5, 1, 1));
    EXPECT_EQ(std::make_tuple(sv[2], xs[2], ys[2]), std::make_tuple(-5, 0, 1));
}

TEST(Extrema, FloatMaxIndexOverSeveralBlocks)
{
    // Rows longer than one block of 2048 elements, with not-a-number hiding some block maxima.
    kit::Rng rng;
    for (int offset = 0; offset < 4; ++offset) {
        kit::Image<Kel32f> img(4500, 3, 1, kit::Shape{offset, 12, false});
        img.fill([&] { return rng.below(50) == 0 ? NAN : static_cast<Kel32f>(rng.below(1000)); });
        img.at(4100, 1) = 5000.0f;  // the best element, in the third block of row 1
        img.at(4101, 1) = 5000.0f;
        const View<Kel32f> v{img.data(), img.step(), 4500, 3, 1};
        Kel32f want;
        int wx, wy;
        reference::max_index_32f_c1(v, &want, &wx, &wy);
        Kel32f got;
        int gx, gy;
        ASSERT_EQ(keliMaxIndx_32f_C1R(img.data(), img.step(), img.size(), &got, &gx, &gy), kelStatusOk);
        EXPECT_TRUE(same_bits(got, want)) << offset;
        EXPECT_EQ(std::make_pair(gx, gy), std::make_pair(wx, wy)) << offset;
    }
}

// An image whose rows past `readable` lie on a page that cannot be read: the search must stop.
class GuardedRows {
public:
    GuardedRows(int rowBytes, int readable) : page_(sysconf(_SC_PAGESIZE))
    {
        map_ = static_cast<unsigned char*>(mmap(nullptr, 2 * page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        mprotect(map_ + page_, page_, PROT_NONE);
        first_ = map_ + page_ - std::size_t(rowBytes) * readable;
        std::memset(map_, 100, page_);
    }
    ~GuardedRows() { munmap(map_, 2 * page_); }
    unsigned char* first() { return first_; }

private:
    std::size_t page_;
    unsigned char* map_;
    unsigned char* first_;
};

TEST(Extrema, IntegerIndexSearchesStopAtTheTypeExtreme)
{
    // 8u C3, rows of 4 pixels: channels 0 and 1 reach 0 in row 0, channel 2 in row 1; rows 2
    // and on are unreadable.
    GuardedRows g(12, 2);
    Kel8u* p = g.first();
    p[3 * 1 + 0] = 0;
    p[3 * 2 + 1] = 0;
    p[12 + 3 * 3 + 2] = 0;
    Kel8u v[3];
    int x[3], y[3];
    ASSERT_EQ(keliMinIndx_8u_C3R(p, 12, {4, 1000}, v, x, y), kelStatusOk);
    EXPECT_EQ(std::make_tuple(v[0], x[0], y[0]), std::make_tuple(0, 1, 0));
    EXPECT_EQ(std::make_tuple(v[1], x[1], y[1]), std::make_tuple(0, 2, 0));
    EXPECT_EQ(std::make_tuple(v[2], x[2], y[2]), std::make_tuple(0, 3, 1));

    // 16s C1: 32767 in the one readable row ends the maximum search.
    GuardedRows h(40, 1);
    Kel16s* q = reinterpret_cast<Kel16s*>(h.first());
    q[13] = 32767;
    Kel16s s;
    int sx, sy;
    ASSERT_EQ(keliMaxIndx_16s_C1R(q, 40, {20, 50}, &s, &sx, &sy), kelStatusOk);
    EXPECT_EQ(std::make_tuple(s, sx, sy), std::make_tuple(32767, 13, 0));
}

TEST(Extrema, ChecksRunInOrderAndWriteNothing)
{
    alignas(16) const Kel8u img[64] = {};
    struct Case {
        bool src, out, xs, ys;
        KeliSize size;
        KelStatus want;
    } cases[] = {
        {false, true, true, true, {0, 0}, kelStatusNullPtr},  // pointers before size
        {true, false, true, true, {0, 0}, kelStatusNullPtr},
        {true, true, false, true, {1, 1}, kelStatusNullPtr},
        {true, true, true, false, {1, 1}, kelStatusNullPtr},
        {true, true, true, true, {0, 1}, kelStatusBadSize},
        {true, true, true, true, {1, -1}, kelStatusBadSize},
    };
    for (const Case& c : cases) {
        Out<Kel8u> o, o2;
        const Kel8u* s = c.src ? img : nullptr;
        Kel8u* out = c.out ? o.v : nullptr;
        int* xs = c.xs ? o.x : nullptr;
        int* ys = c.ys ? o.y : nullptr;
        EXPECT_EQ(keliMinIndx_8u_C3R(s, -3, c.size, out, xs, ys), c.want);
        EXPECT_EQ(keliMaxIndx_32f_C1R(reinterpret_cast<const Kel32f*>(s), 0, c.size, reinterpret_cast<Kel32f*>(out), xs, ys), c.want);
        if (c.xs && c.ys) {
            EXPECT_EQ(keliMin_16s_AC4R(reinterpret_cast<const Kel16s*>(s), 8, c.size, reinterpret_cast<Kel16s*>(out)), c.want);
            EXPECT_EQ(keliMax_32f_C4R(reinterpret_cast<const Kel32f*>(s), 8, c.size, reinterpret_cast<Kel32f*>(out)), c.want);
            EXPECT_EQ(keliMinMax_16u_C1R(reinterpret_cast<const Kel16u*>(s), 8, c.size, reinterpret_cast<Kel16u*>(out),
                                         reinterpret_cast<Kel16u*>(o2.v)),
                      c.want);
        }
        EXPECT_TRUE(o.untouched());
        EXPECT_TRUE(o2.untouched());
    }
    Out<Kel8u> o;
    EXPECT_EQ(keliMinMax_8u_C1R(img, 1, {1, 1}, o.v, nullptr), kelStatusNullPtr);
    EXPECT_TRUE(o.untouched());
}

// ---- BlockMinMax ------------------------------------------------------------------------------

template <class T> using BlockFn = KelStatus (*)(const T*, int, KeliSize, T*, int, T*, int, KeliSize, T*, T*);

template <class T, class Gen> void block_sweep(BlockFn<T> fn, Gen gen)
{
    const KeliSize images[] = {{1, 1}, {17, 17}, {16, 16}, {33, 35}, {48, 32}, {70, 3}, {5, 40}};
    const KeliSize blocks[] = {{1, 1}, {16, 16}, {3, 2}, {7, 5}, {16, 3}, {40, 40}, {17, 16}, {2, 9}};
    int round = 0;
    for (KeliSize is : images)
        for (KeliSize bs : blocks) {
            ++round;
            SCOPED_TRACE("image " + std::to_string(is.width) + "x" + std::to_string(is.height) + " block " + std::to_string(bs.width) + "x" + std::to_string(bs.height));
            kit::Image<T> src(is.width, is.height, 1, kit::Shape{round % (16 / int(sizeof(T))), 4 * (round % 3), false});
            src.fill(gen);
            const auto t = reference::block_minmax(View<T>{src.data(), src.step(), is.width, is.height, 1}, bs.width, bs.height);
            kit::Image<T> tmin(t.nx, t.ny, 1, kit::Shape{0, 8, false}), tmax(t.nx, t.ny, 1, kit::Shape{1, 0, false});
            const auto minBefore = tmin.snapshot(), maxBefore = tmax.snapshot();
            T g[2], h[2];
            std::memset(g, 0x5A, sizeof g);
            std::memset(h, 0x5A, sizeof h);
            // Every other round leaves one table or a global value out.
            const bool noMin = round % 4 == 1, noMax = round % 4 == 3, noGlobal = round % 3 == 0;
            ASSERT_EQ(fn(src.data(), src.step(), is, noMin ? nullptr : tmin.data(), tmin.step(), noMax ? nullptr : tmax.data(),
                         tmax.step(), bs, noGlobal ? nullptr : &g[0], &h[0]),
                      kelStatusOk);
            EXPECT_EQ(kit::first_stray_write(tmin, minBefore, [&](int, int, int) { return !noMin; }), -1);
            EXPECT_EQ(kit::first_stray_write(tmax, maxBefore, [&](int, int, int) { return !noMax; }), -1);
            for (int j = 0; j < t.ny; ++j)
                for (int i = 0; i < t.nx; ++i) {
                    if (!noMin) {
                        ASSERT_TRUE(same_bits(tmin.at(i, j), t.mn[j * t.nx + i])) << i << "," << j;
                    }
                    if (!noMax) {
                        ASSERT_TRUE(same_bits(tmax.at(i, j), t.mx[j * t.nx + i])) << i << "," << j;
                    }
                }
            if (!noGlobal) {
                EXPECT_TRUE(same_bits(g[0], t.gmin));
            }
            EXPECT_TRUE(same_bits(h[0], t.gmax));
            EXPECT_EQ(g[1], h[1]);  // nothing past the one value
        }
}

TEST(BlockMinMax, EveryMemberMatchesTheModel)
{
    kit::Rng rng;
    block_sweep<Kel8u>(keliBlockMinMax_8u_C1R, [&] { return rng.any<Kel8u>(); });
    block_sweep<Kel16u>(keliBlockMinMax_16u_C1R, [&] { return rng.any<Kel16u>(); });
    block_sweep<Kel16s>(keliBlockMinMax_16s_C1R, [&] { return rng.any<Kel16s>(); });
    block_sweep<Kel32f>(keliBlockMinMax_32f_C1R, [&] { return rng.any<Kel32f>(); });
    // Signed zeros: on ties the later element wins, so the sign of a zero extreme is that of
    // the block's last zero.
    static const Kel32f zeros[] = {0.0f, -0.0f, 1.0f, -1.0f, 0.0f, -0.0f};
    block_sweep<Kel32f>(keliBlockMinMax_32f_C1R, [&] { return zeros[rng.below(6)]; });
    block_sweep<Kel32f>(keliBlockMinMax_32f_C1R, [&] { return zeros[rng.below(2)]; });
}

TEST(BlockMinMax, PartialBlocksAtTheEdges)
{
    // 17 x 17 in blocks of 16 x 16: a 2 x 2 table whose last entries cover 1 x 16, 16 x 1 and
    // 1 x 1 elements. Without a maximum table the minimum table is still filled.
    Kel8u img[17][17];
    for (int y = 0; y < 17; ++y)
        for (int x = 0; x < 17; ++x) img[y][x] = static_cast<Kel8u>(100 + x + y);
    img[16][16] = 7;
    img[3][16] = 250;
    Kel8u table[2][2] = {}, gmin = 0, gmax = 0;
    ASSERT_EQ(keliBlockMinMax_8u_C1R(&img[0][0], 17, {17, 17}, &table[0][0], 2, nullptr, 0, {16, 16}, &gmin, &gmax), kelStatusOk);
    EXPECT_EQ(table[0][0], 100);
    EXPECT_EQ(table[0][1], 116);  // column 16, rows 0 to 15
    EXPECT_EQ(table[1][0], 116);  // row 16, columns 0 to 15
    EXPECT_EQ(table[1][1], 7);
    EXPECT_EQ(gmin, 7);
    EXPECT_EQ(gmax, 250);
}

TEST(BlockMinMax, ChecksRunInOrderAndWriteNothing)
{
    alignas(16) const Kel16s img[64] = {};
    Kel16s tmin[8], tmax[8], g = 99, h = 99;
    struct Case {
        const Kel16s* src;
        bool mn, mx;
        KeliSize size, block;
        int srcStep, minStep, maxStep;
        KelStatus want;
    } cases[] = {
        {nullptr, true, true, {0, 0}, {0, 0}, 0, 0, 0, kelStatusNullPtr},  // pointers first
        {img, false, false, {0, 0}, {0, 0}, 0, 0, 0, kelStatusNullPtr},
        {img, true, false, {0, 1}, {1, 1}, 0, 0, 0, kelStatusBadSize},     // then sizes
        {img, false, true, {4, 0}, {1, 1}, 0, 0, 0, kelStatusBadSize},
        {img, true, true, {4, 4}, {0, 1}, 0, 0, 0, kelStatusBadSize},
        {img, true, true, {4, 4}, {1, -2}, 0, 0, 0, kelStatusBadSize},
        {img, true, true, {4, 4}, {3, 3}, 7, 0, 0, kelStatusBadStep},      // then the source step
        {img, true, true, {4, 4}, {3, 3}, 8, 3, 4, kelStatusBadStep},      // two blocks across
        {img, false, true, {4, 4}, {3, 3}, 8, 3, 3, kelStatusBadStep},
        {img, false, true, {4, 4}, {3, 3}, 8, 3, 4, kelStatusOk},          // an absent table is not tested
    };
    for (const Case& c : cases) {
        std::memset(tmin, 0x5A, sizeof tmin);
        std::memset(tmax, 0x5A, sizeof tmax);
        const KelStatus s = keliBlockMinMax_16s_C1R(c.src, c.srcStep, c.size, c.mn ? tmin : nullptr, c.minStep,
                                                    c.mx ? tmax : nullptr, c.maxStep, c.block, &g, &h);
        EXPECT_EQ(s, c.want);
        if (s != kelStatusOk) {
            EXPECT_EQ(g, 99);
            EXPECT_EQ(h, 99);
            for (int i = 0; i < 8; ++i) ASSERT_EQ(tmin[i], 0x5A5A);
            for (int i = 0; i < 8; ++i) ASSERT_EQ(tmax[i], 0x5A5A);
        }
    }
}

}  // namespace
