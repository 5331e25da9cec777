// keliResizeNearest* and keliResizeLinear*: one destination tile from the spec's global tables.
//
// A tile rebases its slice of both index tables into the work buffer, then runs the border
// strips (where the image's true edges need them) and the interior. The border widths come from
// the spec's whole-image counts, never from the tile's own edges, so any tiling of the
// destination gives the bits of one whole-image call.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "frame/fp_guard.hpp"
#include "geometry/resize_spec.hpp"
#include "geometry/resize_tile.hpp"
#include "geometry/rows/resize.hpp"

namespace keli::resize {

template <class T> constexpr bool kIs64f = std::is_same_v<T, Kel64f>;

// Plain specs: the 8u and single paths, or the double path for 64f. Wide specs name the paths
// each element type must not meet.
template <class T> bool work_accepts(const Record& r, bool wide)
{
    if (!wide) return r.id == kPlainId && (kIs64f<T> ? r.path == kDouble : (r.path == kFixed || r.path == kSingle));
    if (r.id != kWideId) return false;
    if constexpr (std::is_same_v<T, Kel8u>) return r.path != kDouble;
    else if constexpr (kIs64f<T>) return r.path != kFixed && r.path != kSingle;
    else return r.path != kFixed && r.path != kDouble;
}

// Linear reaches one pixel beyond an edge, where mirroring the reversed edge (MirrorR) repeats
// the edge pixel: that is replication, so plain forms run it as Repl. Wide forms know only the
// in-memory word and Repl.
inline bool accept_border(std::uint32_t border, bool wide, std::uint32_t& normalized)
{
    normalized = border;
    if (border > 255) return false;
    if (border == kelBorderInMem) return true;
    switch (border & 15u) {
    case kelBorderRepl: return true;
    case kelBorderMirror: return !wide;
    case kelBorderMirrorR:
        normalized = (border & 0xF0u) | kelBorderRepl;
        return !wide;
    default: return false;
    }
}

// A tile clipped to the image, its source offset and its rebased index slices.
struct Tile {
    std::int64_t ox, oy;
    int w, h;
    std::int64_t sx, sy;
    std::int32_t* cols;
    std::int32_t* rows;
    unsigned char* scratch;
};

inline Tile rebase(const Record& r, std::int64_t ox, std::int64_t oy, std::int64_t tw, std::int64_t th, Kel8u* buffer)
{
    Tile t{};
    t.ox = ox;
    t.oy = oy;
    t.w = static_cast<int>(std::min(tw, r.dstWidth - ox));
    t.h = static_cast<int>(std::min(th, r.dstHeight - oy));
    t.sx = source_offset(r.columns, ox);
    t.sy = source_offset(r.rows, oy);
    auto* base = spec::aligned<unsigned char>(buffer);
    t.cols = reinterpret_cast<std::int32_t*>(base);
    t.rows = reinterpret_cast<std::int32_t*>(base + a32(4 * t.w));
    t.scratch = base + a32(4 * t.w) + a32(4 * t.h);
    for (int x = 0; x < t.w; ++x) t.cols[x] = static_cast<std::int32_t>(r.columns.index[ox + x] - t.sx);
    for (int y = 0; y < t.h; ++y) t.rows[y] = static_cast<std::int32_t>(r.rows.index[oy + y] - t.sy);
    return t;
}

template <class T> inline const T* row_at(const T* base, std::int64_t step, std::int64_t y)
{
    return reinterpret_cast<const T*>(reinterpret_cast<const unsigned char*>(base) + step * y);
}
template <class T> inline T* row_at(T* base, std::int64_t step, std::int64_t y)
{
    return reinterpret_cast<T*>(reinterpret_cast<unsigned char*>(base) + step * y);
}

// Checks shared by both kinds after the border word, in the family's order.
template <class T>
KelStatus work_checks(const void* pSrc, std::int64_t srcStep, const void* pDst, std::int64_t dstStep, std::int64_t ox,
                      std::int64_t oy, std::int64_t tw, std::int64_t th, const void* pSpec, const void* pBuffer, bool wide,
                      Kind kind)
{
    if (pSrc == nullptr || pDst == nullptr || pSpec == nullptr || pBuffer == nullptr) return kelStatusNullPtr;
    if (tw == 0 || th == 0) return kelStatusNoOperation;
    const Record& r = *record(pSpec);
    if (!work_accepts<T>(r, wide)) return kelStatusSpecMismatch;
    if (tw < 1 || th < 1) return kelStatusBadSize;
    // Steps must address whole elements; their sign is free, so bottom-up images run.
    if (srcStep % static_cast<std::int64_t>(sizeof(T)) != 0 || dstStep % static_cast<std::int64_t>(sizeof(T)) != 0)
        return kelStatusBadStep;
    if (offset_outside(r, ox, oy)) return kelStatusOutOfRange;
    if (r.antialiasing != 0) return kelStatusUnsupportedMode;
    if (r.interpolation != kind) return kelStatusSpecMismatch;
    return kelStatusOk;
}

// ---- Nearest -------------------------------------------------------------------------------------

template <class T, int C>
void nearest_tile(const Tile& t, const T* src, std::int64_t srcStep, T* dst, std::int64_t dstStep)
{
    for (int y = 0; y < t.h; ++y) {
        T* out = row_at(dst, dstStep, y);
        // An enlargement repeats rows: copy the row just made instead of gathering it again.
        if (y > 0 && t.rows[y] == t.rows[y - 1])
            std::memmove(out, row_at(dst, dstStep, y - 1), sizeof(T) * C * static_cast<std::size_t>(t.w));
        else
            rows::nearest<T, C>(row_at(src, srcStep, t.rows[y]), t.cols, t.w, out);
    }
}

template <class T, int C, class PointT, class SizeT, class StepT>
KelStatus nearest(const T* pSrc, StepT srcStep, T* pDst, StepT dstStep, PointT dstOffset, SizeT dstSize,
                  const KeliResizeSpec* pSpec, Kel8u* pBuffer)
{
    constexpr bool wide = std::is_same_v<SizeT, KeliSizeL>;
    if (KelStatus s = work_checks<T>(pSrc, srcStep, pDst, dstStep, dstOffset.x, dstOffset.y, dstSize.width,
                                     dstSize.height, pSpec, pBuffer, wide, kNearest))
        return s;
    const Record& r = *record(pSpec);
    const Tile t = rebase(r, dstOffset.x, dstOffset.y, dstSize.width, dstSize.height, pBuffer);
    nearest_tile<T, C>(t, pSrc, srcStep, pDst, dstStep);
    return larger_than_image(r, dstSize.width, dstSize.height) ? kelStatusRoiTrimmed : kelStatusOk;
}

// ---- Linear --------------------------------------------------------------------------------------

enum class Arith { Q14, F32, F64 };

template <Arith A> using Intermediate = std::conditional_t<A == Arith::Q14, std::int16_t, std::conditional_t<A == Arith::F32, float, double>>;

template <class T, int C, Arith A> class LinearTile {
public:
    LinearTile(const Record& r, const Tile& t, const T* src, std::int64_t srcStep, T* dst, std::int64_t dstStep,
               std::uint32_t border)
        : r_(r), t_(t), src_(src), srcStep_(srcStep), dst_(dst), dstStep_(dstStep),
          mirror_((border & 15u) == kelBorderMirror), memTop_(border & kelBorderInMemTop),
          memBottom_(border & kelBorderInMemBottom), memLeft_(border & kelBorderInMemLeft),
          memRight_(border & kelBorderInMemRight)
    {
    }

    void run()
    {
        const auto clip = [](std::int64_t n, int len) { return static_cast<int>(std::clamp<std::int64_t>(n, 0, len)); };
        const int top = memTop_ ? 0 : clip(r_.rows.lowCount - t_.oy, t_.h);
        const int bottom = memBottom_ ? 0 : clip(r_.rows.highCount - (r_.dstHeight - (t_.oy + t_.h)), t_.h);
        const int left = memLeft_ ? 0 : clip(r_.columns.lowCount - t_.ox, t_.w);
        const int right = memRight_ ? 0 : clip(r_.columns.highCount - (r_.dstWidth - (t_.ox + t_.w)), t_.w);
        for (int y = 0; y < top; ++y) strip(y, 0, t_.w);
        for (int y = t_.h - bottom; y < t_.h; ++y) strip(y, 0, t_.w);
        for (int y = top; y < t_.h - bottom; ++y) {
            strip(y, 0, left);
            strip(y, t_.w - right, t_.w);
        }
        if (t_.w - left - right > 0 && t_.h - top - bottom > 0) interior(top, t_.h - bottom, left, t_.w - right);
    }

private:
    using H = Intermediate<A>;

    // Taps past an edge without an in-memory flag are replicated or mirrored into the image;
    // with the flag they read the caller's memory, in the strips as in the interior.
    std::int64_t tap(std::int64_t i, std::int64_t len, bool memLow, bool memHigh) const
    {
        if (i < 0 && !memLow) return mirror_ ? -i : 0;
        if (i > len - 1 && !memHigh) return mirror_ ? 2 * (len - 1) - i : len - 1;
        return i;
    }

    T at(std::int64_t y, std::int64_t x, int k) const { return row_at(src_, srcStep_, y)[x * C + k]; }

    // One pixel of a border strip. Fixed point rounds each row to an integer first, then the
    // blend of the two rows: with replication one of the two stages has equal taps and is exact,
    // so a strip costs one rounding; a mirrored strip rounds twice.
    void strip(int y, int x0, int x1)
    {
        if (x0 >= x1) return;
        const std::int64_t gy = t_.oy + y;
        const std::int64_t iy = t_.rows[y] + t_.sy;
        const std::int64_t ya = tap(iy, r_.srcHeight, memTop_, memBottom_) - t_.sy;
        const std::int64_t yb = tap(iy + 1, r_.srcHeight, memTop_, memBottom_) - t_.sy;
        T* out = row_at(dst_, dstStep_, y);
        for (int x = x0; x < x1; ++x) {
            const std::int64_t gx = t_.ox + x;
            const std::int64_t ix = t_.cols[x] + t_.sx;
            const std::int64_t xa = tap(ix, r_.srcWidth, memLeft_, memRight_) - t_.sx;
            const std::int64_t xb = tap(ix + 1, r_.srcWidth, memLeft_, memRight_) - t_.sx;
            for (int k = 0; k < C; ++k) {
                if constexpr (A == Arith::Q14) {
                    const auto round14 = [](std::int32_t s) { return (s + 8192 + ((s >> 14) & 1)) >> 14; };
                    const int c0 = r_.columns.coefQ14[2 * gx], c1 = r_.columns.coefQ14[2 * gx + 1];
                    const int F = r_.rows.coefQ14[gy];
                    const std::int32_t r0 = round14(c0 * at(ya, xa, k) + c1 * at(ya, xb, k));
                    const std::int32_t r1 = round14(c0 * at(yb, xa, k) + c1 * at(yb, xb, k));
                    out[x * C + k] = static_cast<T>(std::clamp(round14((r0 << 14) + (r1 - r0) * F), 0, 255));
                } else {
                    using F = H;
                    const F fx = A == Arith::F32 ? r_.columns.coefF32[gx] : static_cast<F>(r_.columns.coefF64[gx]);
                    const F fy = A == Arith::F32 ? r_.rows.coefF32[gy] : static_cast<F>(r_.rows.coefF64[gy]);
                    const auto lerp = [](F a, F b, F f) { return a + (b - a) * f; };
                    const auto v = [&](std::int64_t yy, std::int64_t xx) { return static_cast<F>(at(yy, xx, k)); };
                    F value;
                    if (ya == yb) value = lerp(v(ya, xa), v(ya, xb), fx);        // a top or bottom strip
                    else if (xa == xb) value = lerp(v(ya, xa), v(yb, xa), fy);   // a left or right strip
                    else value = lerp(lerp(v(ya, xa), v(ya, xb), fx), lerp(v(yb, xa), v(yb, xb), fx), fy);
                    if constexpr (A == Arith::F64) out[x * C + k] = value;
                    else out[x * C + k] = rows::saturate_rounded<T>(value);
                }
            }
        }
    }

    void horizontal(std::int64_t sourceRow, int x0, int n, H* out) const
    {
        const T* row = row_at(src_, srcStep_, sourceRow);
        const std::int32_t* idx = t_.cols + x0;
        const std::int64_t g = t_.ox + x0;
        if constexpr (A == Arith::Q14) rows::horizontal_q14<C>(row, idx, r_.columns.coefQ14 + 2 * g, n, out);
        else if constexpr (A == Arith::F32) rows::horizontal_f32<T, C>(row, idx, r_.columns.coefF32 + g, n, out);
        else rows::horizontal_f64<C>(row, idx, r_.columns.coefF64 + g, n, out);
    }

    // Two row buffers: each destination row needs source rows idx and idx + 1, and a row already
    // filtered horizontally is kept until the index moves past it.
    void interior(int y0, int y1, int x0, int x1)
    {
        const int n = x1 - x0;
        const std::int64_t bytes = A == Arith::F64 ? a32(8 * C * static_cast<std::int64_t>(t_.w))
                                                   : a32(4 * C * static_cast<std::int64_t>(t_.w));
        unsigned char* first = t_.scratch + (A == Arith::F64 ? a32(8 * 3) : 0);
        H* buf[2] = {reinterpret_cast<H*>(first), reinterpret_cast<H*>(first + bytes)};
        std::int64_t held[2] = {std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::min()};
        for (int y = y0; y < y1; ++y) {
            const std::int64_t r = t_.rows[y];
            int s0 = held[0] == r ? 0 : held[1] == r ? 1 : -1;
            if (s0 < 0) {
                s0 = held[0] == r + 1 ? 1 : 0;
                horizontal(r, x0, n, buf[s0]);
                held[s0] = r;
            }
            const int s1 = 1 - s0;
            if (held[s1] != r + 1) {
                horizontal(r + 1, x0, n, buf[s1]);
                held[s1] = r + 1;
            }
            T* out = row_at(dst_, dstStep_, y) + static_cast<std::ptrdiff_t>(x0) * C;
            const std::int64_t gy = t_.oy + y;
            if constexpr (A == Arith::Q14) rows::vertical_q14(buf[s0], buf[s1], r_.rows.coefQ14[gy], out, n * C);
            else if constexpr (A == Arith::F32) rows::vertical_f32<T>(buf[s0], buf[s1], r_.rows.coefF32[gy], out, n * C);
            else rows::vertical_f64(buf[s0], buf[s1], r_.rows.coefF64[gy], out, n * C);
        }
    }

    const Record& r_;
    const Tile& t_;
    const T* src_;
    std::int64_t srcStep_;
    T* dst_;
    std::int64_t dstStep_;
    bool mirror_, memTop_, memBottom_, memLeft_, memRight_;
};

template <class T, int C, class PointT, class SizeT, class StepT>
KelStatus linear(const T* pSrc, StepT srcStep, T* pDst, StepT dstStep, PointT dstOffset, SizeT dstSize, KeliBorderType border,
                 const T* /*pBorderValue: never read, no constant border here*/, const KeliResizeSpec* pSpec, Kel8u* pBuffer)
{
    constexpr bool wide = std::is_same_v<SizeT, KeliSizeL>;
    std::uint32_t word = 0;
    if (!accept_border(static_cast<std::uint32_t>(border), wide, word)) return kelStatusBadBorder;
    if (KelStatus s = work_checks<T>(pSrc, srcStep, pDst, dstStep, dstOffset.x, dstOffset.y, dstSize.width,
                                     dstSize.height, pSpec, pBuffer, wide, kLinear))
        return s;
    const Record& r = *record(pSpec);
    // 8u follows the spec's mode; the other types need the tables of their own arithmetic, which
    // a spec made for 8u in fixed point lacks.
    const Arith arith = kIs64f<T> ? Arith::F64
                        : std::is_same_v<T, Kel8u> && r.mode == kModeFixed ? Arith::Q14
                                                                            : Arith::F32;
    const bool tables = arith == Arith::Q14   ? r.rows.coefQ14 != nullptr
                        : arith == Arith::F32 ? r.rows.coefF32 != nullptr
                                              : r.rows.coefF64 != nullptr;
    if (!tables) return kelStatusSpecMismatch;

    // Integer results round to nearest even, and denormals stay themselves, whatever mode the
    // caller left set.
    FpControlGuard guard;
    guard.set_rounding(0);
    guard.set_flush_to_zero(false);
    const Tile t = rebase(r, dstOffset.x, dstOffset.y, dstSize.width, dstSize.height, pBuffer);
    // 16-bit halving in both axes needs no tables and no border: every position lies half way
    // between two source pixels inside the image. The mirror words keep the general path.
    if constexpr (std::is_same_v<T, Kel16u> || std::is_same_v<T, Kel16s>) {
        const std::uint32_t base = static_cast<std::uint32_t>(border) & 15u;
        if (r.columns.srcReduced == 2 * r.columns.dstReduced && r.rows.srcReduced == 2 * r.rows.dstReduced &&
            base != kelBorderMirror && base != kelBorderMirrorR) {
            for (int y = 0; y < t.h; ++y)
                rows::halve<T, C>(row_at(pSrc, srcStep, t.rows[y]) + std::ptrdiff_t{t.cols[0]} * C,
                                  row_at(pSrc, srcStep, t.rows[y] + 1) + std::ptrdiff_t{t.cols[0]} * C,
                                  row_at(pDst, dstStep, y), t.w);
            return larger_than_image(r, dstSize.width, dstSize.height) ? kelStatusRoiTrimmed : kelStatusOk;
        }
    }
    if constexpr (kIs64f<T>) {
        LinearTile<T, C, Arith::F64>(r, t, pSrc, srcStep, pDst, dstStep, word).run();
    } else if (arith == Arith::Q14) {
        if constexpr (std::is_same_v<T, Kel8u>) LinearTile<T, C, Arith::Q14>(r, t, pSrc, srcStep, pDst, dstStep, word).run();
    } else {
        LinearTile<T, C, Arith::F32>(r, t, pSrc, srcStep, pDst, dstStep, word).run();
    }
    return larger_than_image(r, dstSize.width, dstSize.height) ? kelStatusRoiTrimmed : kelStatusOk;
}

}  // namespace keli::resize
