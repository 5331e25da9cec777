// Plain models of the sums and extrema: element by element, lanes as plain arrays, wide
// integers, no intrinsics. An image is (base, step in bytes, width, height, channels).
#pragma once

#include <algorithm>
#include <cfloat>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>
#include <vector>

#include "keli_types.h"

namespace reference {

template <class T> struct View {
    const T* base;
    int step, width, height, channels;
    const T* row(int y) const
    {
        return reinterpret_cast<const T*>(reinterpret_cast<const char*>(base) + std::int64_t(y) * step);
    }
    T at(int x, int y, int c) const
    {
        T v;
        std::memcpy(&v, row(y) + std::size_t(x) * channels + c, sizeof v);
        return v;
    }
};

template <class T> inline T get(const T* p)
{
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

inline std::size_t head_bytes(const void* p) { return (0 - reinterpret_cast<std::uintptr_t>(p)) & 15; }

// ---- Sums --------------------------------------------------------------------------------------

// 8u one channel: the elements before a row's first 16-byte boundary and after its last whole
// 16-byte group are added in an accumulator of which only the low 32 bits count. A step equal
// to the width makes the image one row.
inline double sum_8u_c1(View<Kel8u> v)
{
    std::uint64_t vec = 0, scalar = 0;
    auto run = [&](const Kel8u* p, std::size_t n) {
        std::size_t head = std::min(n, head_bytes(p)), body = (n - head) / 16 * 16;
        for (std::size_t i = 0; i < n; ++i) (i >= head && i < head + body ? vec : scalar) += p[i];
    };
    if (v.step == v.width) run(v.base, std::size_t(v.width) * v.height);
    else
        for (int y = 0; y < v.height; ++y) run(v.row(y), v.width);
    return double(std::int64_t(vec + std::uint32_t(scalar)));
}

inline double wrap32(std::int64_t t) { return double(std::int32_t(std::uint32_t(t))); }

// Integer channels: exact, except that 8u with several channels keeps totals as signed 32-bit
// values: of the whole image up to 0x808080 pixels, of each row above.
template <class T> inline void sum_int(View<T> v, double* out)
{
    if (sizeof(T) == 1 && v.channels == 1) {
        out[0] = sum_8u_c1(View<Kel8u>{reinterpret_cast<const Kel8u*>(v.base), v.step, v.width, v.height, 1});
        return;
    }
    const bool small = std::int64_t(v.width) * v.height <= 0x808080;
    for (int c = 0; c < v.channels; ++c) {
        std::int64_t total = 0;
        double rows = 0;
        for (int y = 0; y < v.height; ++y) {
            std::int64_t row = 0;
            for (int x = 0; x < v.width; ++x) row += v.at(x, y, c);
            total += row;
            rows += wrap32(row);
        }
        out[c] = sizeof(T) > 1 ? double(total) : small ? wrap32(total) : rows;
    }
}

// 32f, fast, one channel: lanes A, B, C, D of four floats each.
inline double sum_32f_c1_fast(View<Kel32f> v)
{
    double acc[2] = {0, 0};
    for (int y = 0; y < v.height; ++y) {
        const Kel32f* p = v.row(y);
        const std::size_t n = std::size_t(v.width);
        float L[4][4] = {};  // A, B, C, D
        enum { A, B, C, D };
        std::size_t i = 0;
        const std::uintptr_t addr = reinterpret_cast<std::uintptr_t>(p);
        if (addr % 4 == 0) {
            std::size_t h = std::min(n, head_bytes(p) / 4);
            if (h & 2) {
                L[A][0] += get(p);
                L[A][1] += get(p + 1);
                i = 2;
            }
            if (h & 1) L[B][0] += get(p + i++);
        }
        for (; n - i >= 16; i += 16)
            for (int k = 0; k < 16; ++k) L[k / 4][k % 4] += get(p + i + k);
        const std::size_t r = n - i;
        if (r & 8) {
            for (int k = 0; k < 8; ++k) L[k / 4][k % 4] += get(p + i + k);
            i += 8;
        }
        if (r & 4) {
            for (int k = 0; k < 4; ++k) L[C][k] += get(p + i + k);
            i += 4;
        }
        if (r & 2) {
            L[D][0] += get(p + i);
            L[D][1] += get(p + i + 1);
            i += 2;
        }
        if (r & 1) L[C][0] += get(p + i);
        float s[4];
        for (int k = 0; k < 4; ++k) s[k] = (L[A][k] + L[B][k]) + (L[C][k] + L[D][k]);
        acc[0] += double(s[0] + s[2]);
        acc[1] += double(s[1] + s[3]);
    }
    return acc[0] + acc[1];
}

// 32f, fast, three channels: groups of four pixels in twelve lanes; channel c folds lanes
// c, c + 3, c + 6, c + 9, then takes the remaining pixels.
inline void sum_32f_c3_fast(View<Kel32f> v, double* out)
{
    double acc[3] = {0, 0, 0};
    for (int y = 0; y < v.height; ++y) {
        float lanes[12] = {};
        int x = 0;
        for (; x + 4 <= v.width; x += 4)
            for (int k = 0; k < 12; ++k) lanes[k] += get(v.row(y) + 3 * x + k);
        for (int c = 0; c < 3; ++c) {
            float s = ((lanes[c] + lanes[c + 3]) + lanes[c + 6]) + lanes[c + 9];
            for (int k = x; k < v.width; ++k) s += v.at(k, y, c);
            acc[c] += double(s);
        }
    }
    for (int c = 0; c < 3; ++c) out[c] = acc[c];
}

// 32f, fast, four channels: even and odd pixels apart, added at the row's end.
inline void sum_32f_c4_fast(View<Kel32f> v, double* out)
{
    double acc[4] = {0, 0, 0, 0};
    for (int y = 0; y < v.height; ++y)
        for (int c = 0; c < 4; ++c) {
            float even = 0, odd = 0;
            for (int x = 0; x < v.width; ++x) (x % 2 ? odd : even) += v.at(x, y, c);
            acc[c] += double(even + odd);
        }
    for (int c = 0; c < 4; ++c) out[c] = acc[c];
}

// 32f, accurate: one channel in two double lanes (even and odd elements of each row), several
// channels one double each.
inline void sum_32f_accurate(View<Kel32f> v, double* out)
{
    if (v.channels == 1) {
        double lane[2] = {0, 0};
        for (int y = 0; y < v.height; ++y)
            for (int x = 0; x < v.width; ++x) lane[x % 2] += double(v.at(x, y, 0));
        out[0] = lane[0] + lane[1];
        return;
    }
    for (int c = 0; c < v.channels; ++c) {
        double acc = 0;
        for (int y = 0; y < v.height; ++y)
            for (int x = 0; x < v.width; ++x) acc += double(v.at(x, y, c));
        out[c] = acc;
    }
}

inline void sum_32f(View<Kel32f> v, int hint, double* out)
{
    if (hint == 2) sum_32f_accurate(v, out);
    else if (v.channels == 1) out[0] = sum_32f_c1_fast(v);
    else if (v.channels == 3) sum_32f_c3_fast(v, out);
    else sum_32f_c4_fast(v, out);
}

// ---- Extrema -------------------------------------------------------------------------------------

template <class T> inline T rule_min(T acc, T x) { return acc < x ? acc : x; }
template <class T> inline T rule_max(T acc, T x) { return acc > x ? acc : x; }

template <class T> constexpr T seed_min()
{
    if constexpr (std::is_same_v<T, float>) return FLT_MAX;
    else return std::numeric_limits<T>::max();
}
template <class T> constexpr T seed_max()
{
    if constexpr (std::is_same_v<T, float>) return -FLT_MAX;
    else return std::numeric_limits<T>::min();
}

// The lane walk: n lanes (two vectors, three for three channels); element i of a row's run goes
// to lane (q0 + i) % n, where q0 is the element address of a one-channel row, else 0.
template <class T> struct LaneWalk {
    std::vector<T> lanes;
    LaneWalk(int channels, T seed) : lanes((channels == 3 ? 3 : 2) * 16 / sizeof(T), seed) {}

    template <class Rule> void row(const T* p, std::size_t n, bool oneChannel, Rule rule)
    {
        const std::uintptr_t addr = reinterpret_cast<std::uintptr_t>(p);
        const std::size_t q0 = oneChannel && addr % sizeof(T) == 0 ? addr / sizeof(T) % lanes.size() : 0;
        for (std::size_t i = 0; i < n; ++i) {
            T& l = lanes[(q0 + i) % lanes.size()];
            l = rule(l, get(p + i));
        }
    }
    template <class Rule> T fold(int c, int channels, Rule rule) const
    {
        T r = lanes[c];
        for (std::size_t j = c + channels; j < lanes.size(); j += channels) r = rule(r, lanes[j]);
        return r;
    }
};

// Whole-image extreme per colour channel.
template <class T, class Rule> inline void extreme(View<T> v, int colours, bool isMin, Rule rule, T* out)
{
    LaneWalk<T> w(v.channels, isMin ? seed_min<T>() : seed_max<T>());
    for (int y = 0; y < v.height; ++y) w.row(v.row(y), std::size_t(v.width) * v.channels, v.channels == 1, rule);
    for (int c = 0; c < colours; ++c) out[c] = w.fold(c, v.channels, rule);
}

// First occurrence of the extreme in row-major order, the plain way: for integer images.
template <class T> inline void first_extreme(View<T> v, int colours, bool isMin, T* val, int* px, int* py)
{
    for (int c = 0; c < colours; ++c) {
        val[c] = v.at(0, 0, c);
        px[c] = py[c] = 0;
        for (int y = 0; y < v.height; ++y)
            for (int x = 0; x < v.width; ++x) {
                const T e = v.at(x, y, c);
                if (isMin ? e < val[c] : e > val[c]) {
                    val[c] = e;
                    px[c] = x;
                    py[c] = y;
                }
            }
    }
}

// 32f index search through row extremes: each row's extreme from a fresh lane walk, compared
// strictly with the best, then the first column equal to it (0 when there is none). The one-
// channel minimum starts from FLT_MAX, the others from the first pixel.
template <class Rule>
inline void float_index(View<Kel32f> v, int colours, bool isMin, Rule rule, Kel32f* val, int* px, int* py)
{
    for (int c = 0; c < colours; ++c) {
        Kel32f best = v.channels == 1 ? FLT_MAX : v.at(0, 0, c);
        int row = 0;
        for (int y = 0; y < v.height; ++y) {
            LaneWalk<Kel32f> w(v.channels, isMin ? FLT_MAX : -FLT_MAX);
            w.row(v.row(y), std::size_t(v.width) * v.channels, v.channels == 1, rule);
            const Kel32f r = w.fold(c, v.channels, rule);
            if (isMin ? r < best : r > best) {
                best = r;
                row = y;
            }
        }
        int col = 0;
        for (int x = v.width - 1; x >= 0; --x)
            if (v.at(x, row, c) == best) col = x;
        val[c] = best;
        px[c] = col;
        py[c] = row;
    }
}

// keliMaxIndx_32f_C1R: the running maximum from (0, 0) through rows; short rows, heads up to
// the 16-byte boundary and remainders below 8 one by one; blocks of up to 2048 elements by
// their eight-lane maximum, searched only when it beats the running maximum.
inline void max_index_32f_c1(View<Kel32f> v, Kel32f* val, int* px, int* py)
{
    Kel32f m = v.at(0, 0, 0);
    int bx = 0, by = 0;
    for (int y = 0; y < v.height; ++y) {
        const Kel32f* p = v.row(y);
        const std::size_t n = std::size_t(v.width);
        auto single = [&](std::size_t i) {
            if (get(p + i) > m) {
                m = get(p + i);
                bx = int(i);
                by = y;
            }
        };
        std::size_t i = 0;
        if (n < 34) {
            for (; i < n; ++i) single(i);
            continue;
        }
        if (reinterpret_cast<std::uintptr_t>(p) % 4 == 0)
            for (; i < head_bytes(p) / 4; ++i) single(i);
        const std::size_t body = i + (n - i) / 8 * 8;
        for (; i < body;) {
            const std::size_t len = std::min<std::size_t>(body - i, 2048);
            Kel32f lanes[8];
            for (int k = 0; k < 8; ++k) lanes[k] = get(p + i + k);
            for (std::size_t k = 8; k < len; ++k) lanes[k % 8] = rule_max(lanes[k % 8], get(p + i + k));
            Kel32f b = lanes[0];
            for (int k = 1; k < 8; ++k) b = rule_max(b, lanes[k]);
            if (b > m) {
                m = b;
                std::size_t j = 0;
                while (!(get(p + i + j) == b)) ++j;
                bx = int(i + j);
                by = y;
            }
            i += len;
        }
        for (; i < n; ++i) single(i);
    }
    *val = m;
    *px = bx;
    *py = by;
}

// ---- Blocks --------------------------------------------------------------------------------------

template <class T> struct BlockTables {
    int nx, ny;
    std::vector<T> mn, mx;  // ny rows of nx
    T gmin, gmax;
};

// Every block from its first element with x <= m (minimum) and m <= x (maximum); the global
// values from the image's first element over the blocks in order with the same rule.
template <class T> inline BlockTables<T> block_minmax(View<T> v, int bw, int bh)
{
    BlockTables<T> t;
    t.nx = (v.width + bw - 1) / bw;
    t.ny = (v.height + bh - 1) / bh;
    t.gmin = t.gmax = v.at(0, 0, 0);
    for (int j = 0; j < t.ny; ++j)
        for (int i = 0; i < t.nx; ++i) {
            T mn = v.at(i * bw, j * bh, 0), mx = mn;
            for (int y = j * bh; y < std::min(v.height, (j + 1) * bh); ++y)
                for (int x = i * bw; x < std::min(v.width, (i + 1) * bw); ++x) {
                    const T e = v.at(x, y, 0);
                    if (e <= mn) mn = e;
                    if (mx <= e) mx = e;
                }
            t.mn.push_back(mn);
            t.mx.push_back(mx);
            if (mn <= t.gmin) t.gmin = mn;
            if (t.gmax <= mx) t.gmax = mx;
        }
    return t;
}

}  // namespace reference
