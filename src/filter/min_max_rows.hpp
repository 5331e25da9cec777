// The route of the minimum and maximum filters for windows more than one pixel wide.
//
// The extremum of a rectangle is separable: every row of the extended image is folded along x
// once, into a ring of kh rows of W pixels, and each output row folds its kh ring rows top to
// bottom. The border then touches the row pass alone: a row beyond the region is the row the
// border rule names (or a row of the constant, whose every fold is the constant), and the few
// outputs whose taps leave the row fold a short piece of the extended row, assembled pixel by
// pixel. The general edge driver would filter tall strips at the left and right instead, one
// call a row with a pixel or two each, which at 256 pixels a row costs as much as the interior.
//
// Both routes fold the same taps in the same order (left to right, then top to bottom), so the
// pixels do not depend on the route.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "filter/edge_driver.hpp"
#include "filter/rows/min_max.hpp"
#include "frame/layout.hpp"
#include "move/border.hpp"

namespace keli::filter {

template <class T, Layout L, bool Max> class FoldRows {
public:
    static constexpr std::int64_t C = channels<L>;
    static constexpr std::int64_t P = C * std::int64_t(sizeof(T));
    static constexpr bool kAlpha = has_alpha<L>;

    // `piece` holds the longest piece: W + kw - 1 pixels when no output is interior, else the
    // wider of the left and right edge pieces (the edge driver's strip scratch is larger still).
    // `ring` holds kh rows of `stride` elements; windows up to kStackRows rows high.
    FoldRows(const EdgeJob<T, T>& job, T* piece, T* ring, std::int64_t stride)
        : job_(job), fp_(job.fp), W_(job.width), H_(job.height), g_(job.border, job.fp, job.width, job.height),
          xl_(g_.xl), xr_(g_.xr), piece_(piece), ring_(ring), stride_(stride)
    {
        // The constant pixel: the caller's values hold the processed channels only (three for AC4).
        if (g_.kind == border::Kind::Const)
            for (std::int64_t c = 0; c < (kAlpha ? 3 : C); ++c) constant_[c] = job.value[c];
        if (xl_ < xr_) {
            left_ = make_table(leftTable_, -fp_.ax, xl_ + fp_.kw - 1);
            right_ = make_table(rightTable_, xr_ - fp_.ax, W_ - xr_ + fp_.kw - 1);
        }
    }

    void run() const
    {
        using rows::min_max::column_pass;
        const int kh = fp_.kh;
        if (kh == 1) {
            for (std::int64_t y = 0; y < H_; ++y) fold_row<kAlpha>(y, out_row(y));
            return;
        }
        // Slot j of the ring holds extended row -ay + j, then every kh-th row after it: the
        // window's top row sits in slot `top`, and the row entering for output y replaces the
        // one above the window. From four rows on, two outputs share the fold of their kh - 1
        // common rows (pair_pass), where that keeps the left fold's bits.
        for (int j = 0; j + 1 < kh; ++j) enter(j - fp_.ay, j);
        const auto next = [kh](int s) { return s + 1 == kh ? 0 : s + 1; };
        const T* order[kStackRows];
        int top = 0;
        for (std::int64_t y = 0; y < H_;) {
            enter(y + fp_.ry(), top == 0 ? kh - 1 : top - 1);
            bool shared = kh >= kPairRows && y + 1 < H_;
            for (int j = 0, s = top; j < kh; ++j, s = next(s)) {
                order[j] = ring_ + s * stride_;
                if (j > 0) shared = shared && !nan_[s];
            }
            if (shared) {
                rows::min_max::pair_pass<T, Max, kAlpha>(order, kh, out_row(y), out_row(y + 1), W_ * C);
                enter(y + 1 + fp_.ry(), top);
                rows::min_max::close_pass<T, Max, kAlpha>(out_row(y + 1), ring_ + top * stride_, W_ * C);
                top = next(next(top));
                y += 2;
            } else {
                column_pass<T, Max, kAlpha>(order, kh, out_row(y), W_ * C);
                top = next(top);
                y += 1;
            }
        }
    }

private:
    static constexpr int kPairRows = 4;

    // Extended row r's fold along x into ring slot s, noting whether it holds a NaN.
    void enter(std::int64_t r, int s) const
    {
        T* to = ring_ + s * stride_;
        fold_row<false>(r, to);
        if (std::is_floating_point_v<T> && fp_.kh >= kPairRows) nan_[s] = rows::min_max::has_nan(to, W_ * C);
    }

    T* out_row(std::int64_t y) const
    {
        return reinterpret_cast<T*>(reinterpret_cast<unsigned char*>(job_.dst) + y * job_.dstStep);
    }

    // Column 0 of the source row that extended row r reads, or null for a row of the constant.
    // Rows inside the grown image are the caller's; the others map back by the base kind.
    const unsigned char* source_row(std::int64_t r) const
    {
        const std::int64_t s = g_.source_row(r);
        return s == Grown::kConstant ? nullptr : reinterpret_cast<const unsigned char*>(job_.src) + s * job_.srcStep;
    }

    // The byte offset in its row of the pixel extended column c reads, or kConstant.
    std::int64_t source_column(std::int64_t c) const
    {
        const std::int64_t s = g_.source_column(c);
        return s == Grown::kConstant ? kConstant : s * P;
    }

    // Extended columns [c0, c0 + n) of the row at `row` into the piece. The two edge pieces are
    // the same columns on every row, so short ones read their offsets from a table made once.
    void assemble(const unsigned char* row, std::int64_t c0, std::int64_t n, const std::int64_t* table) const
    {
        auto* to = reinterpret_cast<unsigned char*>(piece_);
        for (std::int64_t i = 0; i < n; ++i) {
            const std::int64_t at = table ? table[i] : source_column(c0 + i);
            const void* from = at == kConstant ? static_cast<const void*>(constant_) : row + at;
            std::memcpy(to + i * P, from, static_cast<std::size_t>(P));
        }
    }

    // The table of an edge piece of n pixels from column c0, or null for a long piece.
    const std::int64_t* make_table(std::int64_t* table, std::int64_t c0, std::int64_t n) const
    {
        if (n > kTabled) return nullptr;
        for (std::int64_t i = 0; i < n; ++i) table[i] = source_column(c0 + i);
        return table;
    }

    // The fold along x of extended row r, W pixels, at `to`.
    template <bool KeepAlpha> void fold_row(std::int64_t r, T* to) const
    {
        using rows::min_max::row_pass;
        const int kw = fp_.kw;
        const unsigned char* s = source_row(r);
        if (!s) {
            for (std::int64_t x = 0; x < W_; ++x) std::memcpy(to + x * C, constant_, static_cast<std::size_t>(P));
            return;
        }
        if (xl_ >= xr_) {
            assemble(s, -fp_.ax, W_ + kw - 1, nullptr);
            return row_pass<T, Max, int(C), KeepAlpha>(piece_, kw, to, W_ * C);
        }
        row_pass<T, Max, int(C), KeepAlpha>(reinterpret_cast<const T*>(s + (xl_ - fp_.ax) * P), kw, to + xl_ * C,
                                            (xr_ - xl_) * C);
        if (xl_ > 0) {
            assemble(s, -fp_.ax, xl_ + kw - 1, left_);
            row_pass<T, Max, int(C), KeepAlpha>(piece_, kw, to, xl_ * C);
        }
        if (xr_ < W_) {
            assemble(s, xr_ - fp_.ax, W_ - xr_ + kw - 1, right_);
            row_pass<T, Max, int(C), KeepAlpha>(piece_, kw, to + xr_ * C, (W_ - xr_) * C);
        }
    }

    EdgeJob<T, T> job_;
    Footprint fp_;
    std::int64_t W_, H_;
    Grown g_;
    std::int64_t xl_, xr_;  // the outputs whose taps stay inside the grown image's row
    T* piece_;
    T* ring_;
    std::int64_t stride_;
    T constant_[C] = {};
    mutable bool nan_[kStackRows] = {};  // ring slots holding a NaN (floats only)
    static constexpr std::int64_t kConstant = Grown::kConstant, kTabled = 64;
    std::int64_t leftTable_[kTabled], rightTable_[kTabled];
    const std::int64_t* left_ = nullptr;
    const std::int64_t* right_ = nullptr;
};

}  // namespace keli::filter
