// The edge driver of the neighbourhood filters: it walks a region, hands each output row
// segment to a row kernel with the kh source rows its window covers, and makes the pixels
// beyond the region's edges out of the border rule, so that no row kernel ever tests a border.
//
// A row kernel is any callable
//
//     void kernel(const T* const* rows, D* out, std::int64_t n) const;
//
// that writes n output pixels (n * C elements) at `out`. rows[j], j = 0 .. kh - 1, points at
// the first element of window row j for the segment's first output pixel, that is at the source
// pixel (x - ax, y - ay + j); the kernel reads rows[j][0 .. (n + kw - 1) * C). It knows nothing
// of images, borders or steps, and may keep state between calls: the driver visits segments in
// a fixed order (below) and always passes the rows top to bottom. The rows never overlap `out`,
// so a kernel may compute an output twice (a last vector block that overlaps the one before).
//
// Where the window reaches past the region, the pixel comes from the border rule, axis by axis:
// a side whose in-memory flag is set grows the image by the window's reach on that side (those
// pixels are read from the caller's memory, nothing else beyond the region ever is), and a
// coordinate outside that grown image maps back into it by the base kind (replicated, mirrored,
// or the constant value). A corner thus reads the caller's memory along a flagged axis and the
// border rule along the other.
//
// Two modes, with the same pixels:
//
// * run(): for a destination apart from the source. The interior columns [xl, xr) of every row
//   are filtered straight from the caller's image; rows above and below the region are pointers
//   to the rows the border rule names (a constant border points at one row of the value). Then
//   the left columns [0, xl) and the right columns [xr, W) are filtered from tall strips of the
//   extended image in the scratch buffer (the Extender builds the wide ones). Segment order: interior rows top to bottom, left strip rows, right strip rows. When
//   the window is wider than the region there is no interior: one strip covers everything.
// * run_in_place(): for a destination that is the source. Each source row enters a ring of kh + 1
//   extended rows (the row with its left and right border) before any output overwrites it, and
//   every output row is one full-width segment from the ring, top to bottom. A row the border
//   rule takes from a part of the region already overwritten is copied from its ring entry,
//   which is still there: the ring holds the kh + 1 most recent rows.
//
// The scratch bytes each mode needs are given by scratch_bytes() and scratch_bytes_in_place().
// Nothing here checks arguments or allocates: the kernel's row table lives on the stack for
// windows up to kStackRows rows, and in the caller's `rowTable` (kh pointers) beyond that.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

#include "frame/layout.hpp"
#include "move/border.hpp"

namespace keli::filter {

// A window of kw x kh pixels whose output pixel lies at column ax and row ay inside it.
struct Footprint {
    int kw, kh, ax, ay;
    int rx() const { return kw - 1 - ax; }
    int ry() const { return kh - 1 - ay; }
};

// The anchor of the border filters: the middle, or for even sizes the pixel just left of and
// above the middle, so that an even window reaches one pixel further right and down.
constexpr Footprint centred(int kw, int kh) { return {kw, kh, (kw - 1) >> 1, (kh - 1) >> 1}; }

// The sides whose pixels beyond the region are the caller's memory.
struct Sides {
    bool top, bottom, left, right;
};

inline Sides sides(int border)
{
    return {border::in_memory(border, kelBorderInMemTop), border::in_memory(border, kelBorderInMemBottom),
            border::in_memory(border, kelBorderInMemLeft), border::in_memory(border, kelBorderInMemRight)};
}

// The base kind of an accepted filter border. With all four flags no pixel is ever synthesised
// and the base kind is never looked at.
inline border::Kind kind_of(int border)
{
    const int k = border::base_kind(border);
    return k == kelBorderConst ? border::Kind::Const : k == kelBorderMirror ? border::Kind::Mirror : border::Kind::Repl;
}

// How a window reaches past a region of W x H pixels: the base kind, the flagged sides, the
// image the border rule extends (the region grown by the window's reach on every flagged side,
// its first pixel at (bx0, by0) relative to the region's), and the outputs [xl, xr) of a row
// whose taps all lie inside that image's rows.
struct Grown {
    border::Kind kind;
    Sides flags;
    std::int64_t bx0, by0, bw, bh;
    std::int64_t xl, xr;

    Grown(int border, Footprint fp, std::int64_t W, std::int64_t H)
        : kind(kind_of(border)), flags(sides(border)), bx0(flags.left ? -fp.ax : 0), by0(flags.top ? -fp.ay : 0),
          bw(W + (flags.right ? fp.rx() : 0) - bx0), bh(H + (flags.bottom ? fp.ry() : 0) - by0),
          xl(flags.left ? 0 : std::min<std::int64_t>(fp.ax, W)), xr(flags.right ? W : W - fp.rx())
    {
    }

    // What a coordinate outside the grown image reads under the constant kind. Other answers
    // are coordinates relative to the region, negative ones too on a flagged side.
    static constexpr std::int64_t kConstant = std::numeric_limits<std::int64_t>::min();

    // The source column that column c reads.
    std::int64_t source_column(std::int64_t c) const
    {
        const std::int64_t bc = c - bx0;
        const std::int64_t sc = bc >= 0 && bc < bw ? bc : border::source_index(kind, bc, bw);
        return sc < 0 ? kConstant : sc + bx0;
    }

    // The source row that row r reads.
    std::int64_t source_row(std::int64_t r) const
    {
        const std::int64_t br = r - by0;
        if (br >= 0 && br < bh) return r;
        if (kind == border::Kind::Const) return kConstant;
        return border::source_index(kind, br, bh) + by0;
    }
};

template <class T, class D> struct EdgeJob {
    const T* src;             // first pixel of the region
    std::int64_t srcStep;     // bytes
    D* dst;                   // first output pixel
    std::int64_t dstStep;     // bytes
    std::int64_t width, height;
    Footprint fp;
    int border;               // an accepted filter border value
    const T* value;           // one element per channel, read for the constant kind only
    unsigned char* scratch;   // scratch_bytes() (or _in_place()) bytes, any alignment
    const void** rowTable = nullptr;  // kh pointers, needed only when kh > kStackRows
};

constexpr int kStackRows = 2048;

template <class T, Layout L, class D = T> class EdgeDriver {
public:
    static constexpr std::size_t C = channels<L>;
    static constexpr std::int64_t P = static_cast<std::int64_t>(C * sizeof(T));

    explicit EdgeDriver(const EdgeJob<T, D>& job)
        : job_(job), fp_(job.fp), W_(job.width), H_(job.height), g_(job.border, job.fp, job.width, job.height),
          ext_(g_.kind, at(job.src, job.srcStep, g_.bx0, g_.by0), job.srcStep, g_.bw, g_.bh, job.value)
    {
    }

    // Scratch of run(): the tallest strip, or one row of the constant.
    static std::size_t scratch_bytes(std::int64_t width, std::int64_t height, Footprint fp, int border)
    {
        const Grown g(border, fp, width, height);
        const std::int64_t rows = height + fp.kh - 1, ww = width + fp.kw - 1, xl = g.xl, xr = g.xr;
        std::int64_t pixels = 0;
        if (xl >= xr) return static_cast<std::size_t>(ww * rows * P);
        if (g.kind == border::Kind::Const && fp.kh > 1) pixels = ww;
        if (xl > 0) pixels = std::max(pixels, (xl + fp.kw - 1) * rows);
        if (xr < width) pixels = std::max(pixels, (width - xr + fp.kw - 1) * rows);
        return static_cast<std::size_t>(pixels * P);
    }

    // Scratch of run_in_place(): the ring.
    static std::size_t scratch_bytes_in_place(std::int64_t width, Footprint fp)
    {
        return static_cast<std::size_t>((fp.kh + 1) * (width + fp.kw - 1) * P);
    }

    template <class K> void run(const K& kernel) const
    {
        RowTable table(fp_.kh, job_.rowTable);
        if (g_.xl >= g_.xr) return strip(kernel, table, 0, W_);
        if (g_.kind == border::Kind::Const && fp_.kh > 1 && !(g_.flags.top && g_.flags.bottom))
            ext_.window(reinterpret_cast<T*>(job_.scratch), 0, -fp_.ax - g_.bx0, g_.bh, W_ + fp_.kw - 1, 1, false);
        const std::int64_t shift = (g_.xl - fp_.ax) * P;
        for (std::int64_t y = 0; y < H_; ++y) {
            for (int j = 0; j < fp_.kh; ++j) table[j] = reinterpret_cast<const T*>(row_at(y - fp_.ay + j) + shift);
            kernel(table.get(), out_row(y) + g_.xl * std::int64_t(C), g_.xr - g_.xl);
        }
        if (g_.xl > 0) strip(kernel, table, 0, g_.xl);
        if (g_.xr < W_) strip(kernel, table, g_.xr, W_);
    }

    // run_banded(): for a destination apart from the source, when every output row should be
    // one full-width segment. Extended rows enter a ring of `slots` rows (at least kh) several
    // at a time, as many as are free up to the ring's end, so that the border rule's setup is
    // paid once a batch rather than once a row; no row is ever overwritten, so nothing is kept
    // back as run_in_place() must. The scratch is slots * (width + kw - 1) pixels.
    template <class K> void run_banded(const K& kernel, std::int64_t slots) const
    {
        RowTable table(fp_.kh, job_.rowTable);
        const std::int64_t ww = W_ + fp_.kw - 1, slotBytes = ww * P, end = H_ + fp_.ry();
        unsigned char* ring = job_.scratch;
        // Extended row r lives in slot (r + ay) mod slots; `next` is the first row not entered.
        std::int64_t next = -fp_.ay, first = 0;
        for (std::int64_t y = 0; y < H_; ++y) {
            const std::int64_t top = y - fp_.ay;
            while (next < top + fp_.kh) {
                const std::int64_t at = (next + fp_.ay) % slots;
                const std::int64_t count = std::min(std::min(slots - (next - top), slots - at), end - next);
                ext_.window(reinterpret_cast<T*>(ring + at * slotBytes), slotBytes, -fp_.ax - g_.bx0, next - g_.by0, ww,
                            count, false);
                next += count;
            }
            for (std::int64_t j = 0, s = first; j < fp_.kh; ++j, s = s + 1 == slots ? 0 : s + 1)
                table[int(j)] = reinterpret_cast<const T*>(ring + s * slotBytes);
            kernel(table.get(), out_row(y), W_);
            first = first + 1 == slots ? 0 : first + 1;
        }
    }

    template <class K> void run_in_place(const K& kernel) const
    {
        RowTable table(fp_.kh, job_.rowTable);
        const std::int64_t ww = W_ + fp_.kw - 1, slotBytes = ww * P, slots = fp_.kh + 1;
        unsigned char* ring = job_.scratch;
        const auto slot = [&](std::int64_t r) { return ring + border::wrap_mod(r, slots) * slotBytes; };
        // Region row y is overwritten once output row y is written; `written` counts those.
        const auto enter = [&](std::int64_t r, std::int64_t written) {
            T* to = reinterpret_cast<T*>(slot(r));
            const std::int64_t br = r - g_.by0;
            if (br < 0 || br >= g_.bh) {
                const std::int64_t s = border::source_index(g_.kind, br, g_.bh) + g_.by0;
                if (g_.kind != border::Kind::Const && s >= 0 && s < written) {
                    std::memcpy(to, slot(s), static_cast<std::size_t>(slotBytes));
                    return;
                }
            }
            ext_.window(to, slotBytes, -fp_.ax - g_.bx0, br, ww, 1, false);
        };
        for (std::int64_t r = -fp_.ay; r < fp_.ry(); ++r) enter(r, 0);
        // The slot of window row 0, stepped along rather than divided out for every row.
        std::int64_t first = border::wrap_mod(-fp_.ay, slots);
        for (std::int64_t y = 0; y < H_; ++y) {
            enter(y + fp_.ry(), y);
            for (std::int64_t j = 0, s = first; j < fp_.kh; ++j, s = s + 1 == slots ? 0 : s + 1)
                table[int(j)] = reinterpret_cast<const T*>(ring + s * slotBytes);
            kernel(table.get(), out_row(y), W_);
            first = first + 1 == slots ? 0 : first + 1;
        }
    }

private:
    class RowTable {
    public:
        RowTable(int kh, const void** caller) : rows_(kh <= kStackRows ? stack_ : reinterpret_cast<const T**>(caller)) {}
        const T*& operator[](int j) { return rows_[j]; }
        const T* const* get() const { return rows_; }

    private:
        const T* stack_[kStackRows];
        const T** rows_;
    };

    static const T* at(const T* p, std::int64_t step, std::int64_t x, std::int64_t y)
    {
        return reinterpret_cast<const T*>(reinterpret_cast<const unsigned char*>(p) + y * step + x * P);
    }

    D* out_row(std::int64_t y) const { return reinterpret_cast<D*>(reinterpret_cast<unsigned char*>(job_.dst) + y * job_.dstStep); }

    // Column 0 of extended row r (r relative to the region's first row): a row of the caller's
    // memory, the row the border rule names, or the row of the constant.
    const unsigned char* row_at(std::int64_t r) const
    {
        const auto* src = reinterpret_cast<const unsigned char*>(job_.src);
        const std::int64_t br = r - g_.by0;
        if (br >= 0 && br < g_.bh) return src + r * job_.srcStep;
        if (g_.kind == border::Kind::Const) return job_.scratch + fp_.ax * P;
        return src + (border::source_index(g_.kind, br, g_.bh) + g_.by0) * job_.srcStep;
    }

    // Output columns [x0, x1) of every row, from a strip of the extended image built in scratch.
    template <class K> void strip(const K& kernel, RowTable& table, std::int64_t x0, std::int64_t x1) const
    {
        const std::int64_t w = x1 - x0 + fp_.kw - 1, rows = H_ + fp_.kh - 1, step = w * P;
        if (w <= kNarrowColumns) narrow_strip(job_.scratch, step, x0 - fp_.ax, w);
        else ext_.window(reinterpret_cast<T*>(job_.scratch), step, x0 - fp_.ax - g_.bx0, -fp_.ay - g_.by0, w, rows, false);
        for (std::int64_t y = 0; y < H_; ++y) {
            for (int j = 0; j < fp_.kh; ++j) table[j] = reinterpret_cast<const T*>(job_.scratch + (y + j) * step);
            kernel(table.get(), out_row(y) + x0 * std::int64_t(C), x1 - x0);
        }
    }

    // A strip a few pixels wide and as tall as the region with its border: the general window
    // would spend its setup on every row, so the strip is assembled pixel by pixel instead, from
    // the rows row_at() names and a table of source columns that the border rule gives once.
    static constexpr std::int64_t kNarrowColumns = 64;

    void narrow_strip(unsigned char* to, std::int64_t step, std::int64_t c0, std::int64_t w) const
    {
        constexpr std::int64_t kConstant = Grown::kConstant;
        std::int64_t from[kNarrowColumns];  // byte offset of each column's source pixel in its row
        for (std::int64_t i = 0; i < w; ++i) {
            const std::int64_t sc = g_.source_column(c0 + i);
            from[i] = sc == kConstant ? kConstant : sc * P;
        }
        // The constant pixel: the caller's values hold the processed channels only (three for
        // AC4), so the pixel is assembled rather than read whole from them.
        T pixel[C] = {};
        if (g_.kind == border::Kind::Const)
            for (std::size_t c = 0; c < (has_alpha<L> ? 3 : C); ++c) pixel[c] = job_.value[c];
        const auto* value = reinterpret_cast<const unsigned char*>(pixel);
        for (std::int64_t r = -fp_.ay; r < H_ + fp_.ry(); ++r, to += step) {
            const std::int64_t br = r - g_.by0;
            const bool constant = g_.kind == border::Kind::Const && (br < 0 || br >= g_.bh);
            const unsigned char* s = constant ? nullptr : row_at(r);
            for (std::int64_t i = 0; i < w; ++i)
                std::memcpy(to + i * P, constant || from[i] == kConstant ? value : s + from[i], static_cast<std::size_t>(P));
        }
    }

    EdgeJob<T, D> job_;
    Footprint fp_;
    std::int64_t W_, H_;
    Grown g_;  // its [xl, xr) are the interior columns, filtered straight from the source
    border::Extender<T, L> ext_;
};

}  // namespace keli::filter
