// What each border kind means, in one place, and the builder that makes a border explicit.
//
// Every family that looks outside an image (the border copies, filters, resize, warps) maps
// an outside coordinate with source_index() and builds its edge strips with Extender: given a
// source image and a window of coordinates relative to its first pixel (the window may start
// left of or above the image and reach past it), the window is filled with the extension of
// the image. The exported keliCopy*Border functions are one window each; a filter builds one
// window a strip. Nothing here checks arguments.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/layout.hpp"
#include "frame/store_choice.hpp"
#include "keli_types.h"
#include "move/rows/border.hpp"

namespace keli::border {

// Base kinds (the low four bits of a border value).
enum class Kind { Repl = kelBorderRepl, Wrap = kelBorderWrap, Mirror = kelBorderMirror, Const = kelBorderConst };

constexpr int kInMemFlags = kelBorderInMem;  // top, bottom, left and right together

constexpr int base_kind(int border) { return border & 15; }

// The side's pixels exist in the caller's memory: read them, synthesise nothing.
constexpr bool in_memory(int border, int sideFlag) { return (border & sideFlag) != 0; }

// All four sides in memory: no border handling at all, whatever base kind stands beside them.
constexpr bool no_border(int border) { return (border & kInMemFlags) >= kInMemFlags; }

// The set every filter accepts: no handling, or a constant, replicated or mirrored border,
// each with any in-memory flags. Values above 255 (and negative ones) are never valid.
constexpr bool filter_accepts(int border)
{
    if (border < 0 || border > 255) return false;
    const int k = base_kind(border);
    return border == kInMemFlags || k == kelBorderConst || k == kelBorderRepl || k == kelBorderMirror;
}

// Non-negative remainder of x by n (n >= 1).
constexpr std::int64_t wrap_mod(std::int64_t x, std::int64_t n)
{
    const std::int64_t r = x % n;
    return r < 0 ? r + n : r;
}

// The source index that coordinate x (relative to the first pixel, any value) reads along an
// axis of n pixels, or -1 for a constant border outside the image.
constexpr std::int64_t source_index(Kind kind, std::int64_t x, std::int64_t n)
{
    if (x >= 0 && x < n) return x;
    switch (kind) {
    case Kind::Repl: return x < 0 ? 0 : n - 1;
    case Kind::Wrap: return wrap_mod(x, n);
    case Kind::Mirror: {
        // Reflection about the edge pixel, which is not repeated: period 2n - 2.
        if (n == 1) return 0;
        const std::int64_t t = wrap_mod(x, 2 * n - 2);
        return t < n ? t : 2 * n - 2 - t;
    }
    case Kind::Const: return -1;
    }
    return -1;
}

// Builds windows of the extension of one source image of W x H pixels of layout L.
// AC4 windows write only colour elements; alpha stays as it stood.
template <class T, Layout L> class Extender {
public:
    static constexpr std::size_t C = channels<L>;
    static constexpr std::size_t P = C * sizeof(T);
    static constexpr bool kAlpha = has_alpha<L>;

    // `value` (C elements, three used for AC4) is read only by the constant kind.
    Extender(Kind kind, const T* src, std::int64_t srcStep, std::int64_t W, std::int64_t H, const T* value = nullptr)
        : kind_(kind), src_(bytes(src)), srcStep_(srcStep), W_(W), H_(H)
    {
        if (kind == Kind::Const) {
            T pixel[4] = {};
            for (std::size_t c = 0; c < (kAlpha ? 3 : C); ++c) pixel[c] = value[c];
            constant_ = rows::pixel_pattern<P>(pixel);
        }
    }

    // Non-temporal stores for the long runs (the interior copies); ends with a store fence.
    void set_streaming(bool on) { stream_ = on && !kAlpha; }

    // Fills the w x h window at `dst` with the pixels of coordinates (x0 + i, y0 + j). With
    // `keepInterior` the pixels whose coordinates lie inside the image are not written: the
    // in-place form, where they are the source itself.
    void window(T* dst, std::int64_t dstStep, std::int64_t x0, std::int64_t y0, std::int64_t w, std::int64_t h,
                bool keepInterior) const
    {
        unsigned char* d = bytes(dst);
        // The rows inside the image first: the rows outside are copies of them.
        const std::int64_t j0 = clamp(-y0, 0, h), j1 = clamp(H_ - y0, j0, h);
        if (!edge_rows(d, dstStep, x0, y0, w, j0, j1, keepInterior))
            for (std::int64_t j = j0; j < j1; ++j)
                row(src_ + (y0 + j) * srcStep_, d + j * dstStep, x0, w, keepInterior);
        for (std::int64_t j = 0; j < h; ++j) {
            if (j == j0) j = j1;
            if (j >= h) break;
            unsigned char* to = d + j * dstStep;
            if (kind_ == Kind::Const) {
                fill(to, w, constant_);
                continue;
            }
            const std::int64_t sy = source_index(kind_, y0 + j, H_);
            const std::int64_t built = sy - y0;
            if (built >= j0 && built < j1) copy(d + built * dstStep, to, w);
            else row(src_ + sy * srcStep_, to, x0, w, false);
        }
        if (stream_) simd::fence();
    }

    // One row: the pixels of coordinates x0 .. x0 + n - 1 of source row `s`.
    void row(const unsigned char* s, unsigned char* d, std::int64_t x0, std::int64_t n, bool keepInterior) const
    {
        const std::int64_t left = clamp(-x0, 0, n);
        outside(s, d, x0, left);
        const std::int64_t inside = clamp(W_ - x0, left, n) - left;
        if (!keepInterior) copy(s + (x0 + left) * std::int64_t(P), d + left * std::int64_t(P), inside);
        const std::int64_t done = left + inside;
        outside(s, d + done * std::int64_t(P), x0 + done, n - done);
    }

private:
    // Rows j0 .. j1 - 1 of a replicated, constant or mirrored frame: the split of a row into
    // frame, interior and frame is the same for every row. Thin frames go to narrow_rows();
    // otherwise, for pixels that tile 16 bytes, replicated and constant pieces are written from
    // a register and mirrored pieces narrower than the image are one backward run each. Returns
    // false for what it leaves to row().
    bool edge_rows(unsigned char* d, std::int64_t dstStep, std::int64_t x0, std::int64_t y0, std::int64_t w,
                   std::int64_t j0, std::int64_t j1, bool keepInterior) const
    {
        if constexpr (kAlpha) {
            return false;
        } else {
            const std::int64_t left = clamp(-x0, 0, w), inside = clamp(W_ - x0, left, w) - left;
            const std::int64_t right = w - left - inside;
            const bool mirror = kind_ == Kind::Mirror;
            // A mirrored piece is one backward run while it does not fold: x in [-(W-1), -1]
            // reads column -x, x in [W, 2W - 2] reads column 2W - 2 - x.
            if (mirror ? (x0 < -(W_ - 1) || x0 + w > 2 * W_ - 1) : kind_ != Kind::Repl && kind_ != Kind::Const)
                return false;
            const std::int64_t P64 = static_cast<std::int64_t>(P);
            const std::size_t leftBytes = static_cast<std::size_t>(left) * P;
            const std::size_t rightBytes = static_cast<std::size_t>(right) * P;
            if (!keepInterior && !stream_ && narrow_rows(d, dstStep, x0, y0, w, j0, j1, leftBytes, rightBytes))
                return true;
            if constexpr (16 % P != 0) {
                return false;
            } else {
                const std::int64_t rightAt = left + inside;
                const bool repl = kind_ == Kind::Repl;
                const __m128i fill = _mm_load_si128(reinterpret_cast<const __m128i*>(constant_.bytes));
                for (std::int64_t j = j0; j < j1; ++j) {
                    const unsigned char* s = src_ + (y0 + j) * srcStep_;
                    unsigned char* to = d + j * dstStep;
                    if (leftBytes) {
                        if (mirror) rows::reverse_run<P>(s + -x0 * P64, to, static_cast<std::size_t>(left));
                        else rows::repeat_run<P>(to, leftBytes, repl ? rows::pixel_vector<P>(s) : fill);
                    }
                    if (!keepInterior) copy(s + (x0 + left) * P64, to + leftBytes, inside);
                    if (rightBytes) {
                        unsigned char* at = to + rightAt * P64;
                        if (mirror)
                            rows::reverse_run<P>(s + (2 * W_ - 2 - (x0 + rightAt)) * P64, at, static_cast<std::size_t>(right));
                        else rows::repeat_run<P>(at, rightBytes, repl ? rows::pixel_vector<P>(s + (W_ - 1) * P64) : fill);
                    }
                }
                return true;
            }
        }
    }

    // Thin frames: each frame piece of a row is written by up to three whole vector stores, the
    // left ones from the row's first byte, the right ones ending at its last, and then the
    // interior is copied over whatever part of them lies inside. A row is a few moves and the
    // byte-run copy, with no branch on the frame's width: what rows of a small image with a
    // frame of a few pixels need. Constant frames of any pixel take their vectors from the fill
    // pattern at the phase of each store; replicated ones broadcast the edge pixel (pixels that
    // tile 16 bytes); mirrored ones, up to a vector less a pixel a side, shuffle the source's
    // first or last 16 bytes. Returns false, having written nothing, where that does not fit.
    bool narrow_rows(unsigned char* d, std::int64_t dstStep, std::int64_t x0, std::int64_t y0, std::int64_t w,
                     std::int64_t j0, std::int64_t j1, std::size_t leftBytes, std::size_t rightBytes) const
    {
        if (kind_ == Kind::Const) return narrow_rows_of<Kind::Const>(d, dstStep, x0, y0, w, j0, j1, leftBytes, rightBytes);
        if constexpr (16 % P != 0) {
            return false;
        } else {
            if (kind_ == Kind::Repl) return narrow_rows_of<Kind::Repl>(d, dstStep, x0, y0, w, j0, j1, leftBytes, rightBytes);
            return narrow_rows_of<Kind::Mirror>(d, dstStep, x0, y0, w, j0, j1, leftBytes, rightBytes);
        }
    }

    // One kind at a time, with everything it calls inlined: the row loop is a handful of moves
    // and the interior copy, with nothing decided per row.
    template <Kind K>
    [[gnu::flatten]] bool narrow_rows_of(unsigned char* d, std::int64_t dstStep, std::int64_t x0, std::int64_t y0,
                                         std::int64_t w, std::int64_t j0, std::int64_t j1, std::size_t leftBytes,
                                         std::size_t rightBytes) const
    {
        constexpr bool mirror = K == Kind::Mirror, constant = K == Kind::Const;
        const std::size_t most = mirror ? 16 - P : 48;
        const std::size_t rowBytes = static_cast<std::size_t>(w) * P;
        const std::size_t nl = (leftBytes + 15) / 16, nr = (rightBytes + 15) / 16;
        // The right stores must not reach the left piece (the interior copy does not mend it).
        if (leftBytes > most || rightBytes > most || rowBytes < 16 * nl || rowBytes < leftBytes + 16 * nr ||
            (mirror && W_ * std::int64_t(P) < 16))
            return false;
        const std::size_t insideBytes = rowBytes - leftBytes - rightBytes;
        const std::int64_t interiorFrom = x0 * std::int64_t(P) + static_cast<std::int64_t>(leftBytes);
        const std::int64_t lastVector = W_ * std::int64_t(P) - 16;
        // Constant pieces: the right store k starts 16 (k + 1) bytes before the row's end, that
        // is at phase rightBytes - 16 (k + 1) of the pattern that starts with the right piece.
        __m128i constLeft[3] = {}, constRight[3] = {};
        const auto phase = [this](std::int64_t at) {
            const std::int64_t n = static_cast<std::int64_t>(constant_.length);
            return _mm_loadu_si128(reinterpret_cast<const __m128i*>(constant_.bytes + ((at % n) + n) % n));
        };
        for (std::size_t k = 0; constant && k < 3; ++k) {
            constLeft[k] = phase(16 * std::int64_t(k));
            constRight[k] = phase(std::int64_t(rightBytes) - 16 * std::int64_t(k + 1));
        }
        // Mirrored pieces, for pixels that tile 16 bytes (N of them a vector): destination pixel
        // i of the left store is source pixel left - i; of the right store, which covers the
        // last N pixels of the row, source pixel 2N - 2 - right - i of the source's last vector.
        alignas(16) signed char leftOrder[16] = {}, rightOrder[16] = {};
        if constexpr (16 % P == 0) {
            constexpr int N = 16 / P;
            const int left = int(leftBytes / P), right = int(rightBytes / P);
            for (int i = 0; i < N; ++i)
                for (int b = 0; b < int(P); ++b) {
                    const int from = 2 * N - 2 - right - i;
                    leftOrder[i * P + b] = static_cast<signed char>(i < left ? (left - i) * int(P) + b : -128);
                    rightOrder[i * P + b] = static_cast<signed char>(i >= N - right ? from * int(P) + b : -128);
                }
        }
        const __m128i lo = _mm_load_si128(reinterpret_cast<const __m128i*>(leftOrder));
        const __m128i ro = _mm_load_si128(reinterpret_cast<const __m128i*>(rightOrder));
        // Locals, so that the row loop does not reload them after every byte store.
        const unsigned char* const src = src_;
        const std::int64_t srcStep = srcStep_, lastPixel = (W_ - 1) * std::int64_t(P);
        const bool ahead = rowBytes < 2048 && 2 * rowBytes * static_cast<std::size_t>(j1 - j0) > (std::size_t(64) << 10);
        for (std::int64_t j = j0; j < j1; ++j) {
            const unsigned char* s = src + (y0 + j) * srcStep;
            unsigned char* to = d + j * dstStep;
            if constexpr (constant) {
                for (std::size_t k = 0; k < nl; ++k) simd::storeu(to + 16 * k, constLeft[k]);
                for (std::size_t k = 0; k < nr; ++k) simd::storeu(to + rowBytes - 16 * (k + 1), constRight[k]);
            } else {
                __m128i l, r;
                if constexpr (mirror)
                    l = _mm_shuffle_epi8(simd::loadu(s), lo), r = _mm_shuffle_epi8(simd::loadu(s + lastVector), ro);
                else
                    l = rows::pixel_vector<P>(s), r = rows::pixel_vector<P>(s + lastPixel);
                for (std::size_t k = 0; k < nl; ++k) simd::storeu(to + 16 * k, l);
                for (std::size_t k = 0; k < nr; ++k) simd::storeu(to + rowBytes - 16 * (k + 1), r);
            }
            // The next row's lines are asked for while this one is copied: once source and
            // destination outgrow the first-level cache, that hides the wait for them; inside
            // it the requests would only take load slots. Longer rows prefetch in the copy.
            for (std::size_t k = 0; ahead && k < rowBytes; k += 64) {
                _mm_prefetch(reinterpret_cast<const char*>(s + srcStep + interiorFrom) + k, _MM_HINT_T0);
                _mm_prefetch(reinterpret_cast<const char*>(to + dstStep) + k, _MM_HINT_T0);
            }
            rows::copy_bytes(s + interiorFrom, to + leftBytes, insideBytes);
        }
        return true;
    }

    static unsigned char* bytes(T* p) { return reinterpret_cast<unsigned char*>(p); }
    static const unsigned char* bytes(const T* p) { return reinterpret_cast<const unsigned char*>(p); }
    static std::int64_t clamp(std::int64_t v, std::int64_t lo, std::int64_t hi) { return v < lo ? lo : v > hi ? hi : v; }

    // Forward copy of n whole pixels (colour only for AC4).
    void copy(const unsigned char* s, unsigned char* d, std::int64_t n) const
    {
        if (n <= 0) return;
        if constexpr (kAlpha)
            rows::copy_ac4_row(reinterpret_cast<const T*>(s), reinterpret_cast<T*>(d), static_cast<std::size_t>(n));
        else if (stream_)
            rows::copy_bytes_nt(s, d, static_cast<std::size_t>(n) * P);
        else
            rows::copy_bytes(s, d, static_cast<std::size_t>(n) * P);
    }

    void fill(unsigned char* d, std::int64_t n, const rows::FillPattern& p) const
    {
        if (n <= 0) return;
        if constexpr (kAlpha) rows::fill_ac4_run(reinterpret_cast<T*>(d), p, static_cast<std::size_t>(n));
        else rows::fill_run(d, static_cast<std::size_t>(n) * P, p, false);
    }

    // n pixels of coordinates x .. x + n - 1, all on one side outside [0, W).
    void outside(const unsigned char* s, unsigned char* d, std::int64_t x, std::int64_t n) const
    {
        if (n <= 0) return;
        switch (kind_) {
        case Kind::Const: return fill(d, n, constant_);
        case Kind::Repl: {
            const unsigned char* edge = s + (x < 0 ? 0 : (W_ - 1) * std::int64_t(P));
            // Pixels that tile 16 bytes are written from a register, with no pattern to build.
            if constexpr (16 % P == 0 && !kAlpha)
                return rows::repeat_run<P>(d, static_cast<std::size_t>(n) * P, rows::pixel_vector<P>(edge));
            else return fill(d, n, rows::pixel_pattern<P>(edge));
        }
        case Kind::Wrap: {
            // Tiles of the whole row, the first cut at x's phase.
            std::int64_t t = wrap_mod(x, W_);
            while (n > 0) {
                const std::int64_t run = W_ - t < n ? W_ - t : n;
                copy(s + t * std::int64_t(P), d, run);
                d += run * std::int64_t(P), n -= run, t = 0;
            }
            return;
        }
        case Kind::Mirror: {
            if (W_ == 1) return fill(d, n, rows::pixel_pattern<P>(s));
            // Phase t in the period 2W - 2: [0, W) walks forward from column t to the right edge,
            // [W, 2W - 2) walks backward from column 2W - 2 - t down to column 1.
            const std::int64_t period = 2 * W_ - 2;
            std::int64_t t = wrap_mod(x, period);
            while (n > 0) {
                if (t < W_) {
                    const std::int64_t run = W_ - t < n ? W_ - t : n;
                    copy(s + t * std::int64_t(P), d, run);
                    d += run * std::int64_t(P), n -= run, t += run;
                    if (t == period) t = 0;  // W == 2: no backward stretch
                } else {
                    const std::int64_t col = period - t;
                    const std::int64_t run = col < n ? col : n;
                    backward(s + col * std::int64_t(P), d, run);
                    d += run * std::int64_t(P), n -= run, t = 0;
                }
            }
            return;
        }
        }
    }

    // n pixels walking the source backwards from `last` (colour only for AC4).
    void backward(const unsigned char* last, unsigned char* d, std::int64_t n) const
    {
        if constexpr (kAlpha) {
            const T* s = reinterpret_cast<const T*>(last);
            T* o = reinterpret_cast<T*>(d);
            for (std::int64_t i = 0; i < n; ++i)
                o[4 * i] = s[-4 * i], o[4 * i + 1] = s[-4 * i + 1], o[4 * i + 2] = s[-4 * i + 2];
        } else {
            rows::reverse_run<P>(last, d, static_cast<std::size_t>(n));
        }
    }

    Kind kind_;
    const unsigned char* src_;
    std::int64_t srcStep_, W_, H_;
    rows::FillPattern constant_{};
    bool stream_ = false;
};

// Whether a window of `dstBytes` in total is better written past the caches.
inline bool stream_window(std::int64_t dstBytes, std::int64_t rowBytes)
{
    return rowBytes >= 1024 && use_nontemporal(static_cast<std::uint64_t>(dstBytes) * 2);
}

}  // namespace keli::border
