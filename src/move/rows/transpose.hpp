// Square blocks transposed in registers: K rows of 16 bytes, each holding K pixels of P bytes
// (K = 16 / P), become K columns. log2(K) rounds of interleaving pairs of rows, each round at
// twice the width of the last, leave register i holding source column bitreverse(i).
//
// Pixels of 3, 6 and 12 bytes do not tile a register; those layouts move pixel by pixel with
// fixed-size moves, and so do the edges of every image that whole blocks do not cover.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "move/rows/mirror.hpp"
#include "simd/sse.hpp"

namespace keli::rows {

template <std::size_t P> struct TransposeBlock {
    static constexpr bool vector = 16 % P == 0;
    static constexpr std::size_t K = vector ? 16 / P : 1;

    static constexpr std::size_t bitreverse(std::size_t i)
    {
        std::size_t r = 0;
        for (std::size_t bit = 1; bit < K; bit <<= 1) r = (r << 1) | ((i & bit) ? 1 : 0);
        return r;
    }

    template <std::size_t W> static __m128i lo(__m128i a, __m128i b)
    {
        if constexpr (W == 1) return _mm_unpacklo_epi8(a, b);
        else if constexpr (W == 2) return _mm_unpacklo_epi16(a, b);
        else if constexpr (W == 4) return _mm_unpacklo_epi32(a, b);
        else return _mm_unpacklo_epi64(a, b);
    }
    template <std::size_t W> static __m128i hi(__m128i a, __m128i b)
    {
        if constexpr (W == 1) return _mm_unpackhi_epi8(a, b);
        else if constexpr (W == 2) return _mm_unpackhi_epi16(a, b);
        else if constexpr (W == 4) return _mm_unpackhi_epi32(a, b);
        else return _mm_unpackhi_epi64(a, b);
    }

    template <std::size_t W> static void round(__m128i r[K])
    {
        if constexpr (W < 16) {
            __m128i t[K];
            for (std::size_t i = 0; i < K / 2; ++i) {
                t[i] = lo<W>(r[2 * i], r[2 * i + 1]);
                t[i + K / 2] = hi<W>(r[2 * i], r[2 * i + 1]);
            }
            for (std::size_t i = 0; i < K; ++i) r[i] = t[i];
            round<2 * W>(r);
        }
    }

    static void load(const Byte* s, std::ptrdiff_t step, __m128i r[K])
    {
        for (std::size_t i = 0; i < K; ++i)
            r[i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + std::ptrdiff_t(i) * step));
    }

    // Stores the transposed block held in r (after transpose()) at d, row by row.
    template <class Store> static void store(Byte* d, std::ptrdiff_t step, const __m128i r[K], Store&& put)
    {
        for (std::size_t i = 0; i < K; ++i) put(d + std::ptrdiff_t(bitreverse(i)) * step, r[i]);
    }

    static void transpose(__m128i r[K]) { round<P>(r); }
};

// The K x K block of pixels at s goes transposed to d. `put(ptr, vector)` stores one row.
template <std::size_t P, class Store>
inline void transpose_block(const Byte* s, std::ptrdiff_t srcStep, Byte* d, std::ptrdiff_t dstStep, Store&& put)
{
    using B = TransposeBlock<P>;
    __m128i r[B::K];
    B::load(s, srcStep, r);
    B::transpose(r);
    B::store(d, dstStep, r, put);
}

// Asks for the source lines of the next tile a few at a time, spread over the blocks of the
// current one, so that its memory reads overlap the shuffles: without it every block of a tile
// waits on the lines of its rows, one row after another.
class TileLookahead {
public:
    TileLookahead(const Byte* src, std::ptrdiff_t srcStep, std::size_t pixelBytes, std::size_t blocksPerTile,
                  std::size_t x, std::size_t y, std::size_t width, std::size_t height)
        : row_(src + std::ptrdiff_t(y) * srcStep + x * pixelBytes), step_(srcStep),
          rows_(height), chunks_((width * pixelBytes + 63) / 64),
          perBlock_((rows_ * chunks_ + blocksPerTile - 1) / (blocksPerTile ? blocksPerTile : 1))
    {
    }

    // The look-ahead for the tile after (tx, ty) in tiles of at most `tile` pixels a side, walked
    // band by band over columns [x0, xEnd) and down to row yEnd; after the last, none.
    static TileLookahead after(const Byte* src, std::ptrdiff_t srcStep, std::size_t pixelBytes,
                               std::size_t blocksPerTile, std::size_t tx, std::size_t ty, std::size_t tile,
                               std::size_t x0, std::size_t xEnd, std::size_t yEnd)
    {
        std::size_t nx = tx + tile, ny = ty;
        if (nx >= xEnd) nx = x0, ny = ty + tile;
        if (ny >= yEnd) return TileLookahead(src, srcStep, pixelBytes, blocksPerTile, tx, ty, 0, 0);
        return TileLookahead(src, srcStep, pixelBytes, blocksPerTile, nx, ny, std::min(tile, xEnd - nx),
                             std::min(tile, yEnd - ny));
    }

    void next_block()
    {
        for (std::size_t k = 0; k < perBlock_ && line_ < rows_; ++k) {
            _mm_prefetch(reinterpret_cast<const char*>(row_ + std::ptrdiff_t(line_) * step_ + chunk_ * 64), _MM_HINT_T0);
            if (++chunk_ == chunks_) chunk_ = 0, ++line_;
        }
    }

private:
    const Byte* row_;
    std::ptrdiff_t step_;
    std::size_t rows_, chunks_, perBlock_, line_ = 0, chunk_ = 0;
};

// Transposes a region of `width` x `height` source pixels (the destination is height wide):
// whole blocks in tiles of 64 x 64 pixels that the first-level cache holds on both sides, the
// pixels outside whole blocks one by one. The policy decides which bytes of a pixel are written.
template <class Policy, class Store>
inline void transpose_region(const Byte* src, std::ptrdiff_t srcStep, Byte* dst, std::ptrdiff_t dstStep,
                             std::size_t width, std::size_t height, Store&& put, std::size_t tile = 64)
{
    constexpr std::size_t P = Policy::pixelBytes;
    using B = TransposeBlock<P>;
    const std::size_t fullW = width / B::K * B::K, fullH = height / B::K * B::K;
    for (std::size_t ty = 0; ty < fullH; ty += tile)
        for (std::size_t tx = 0; tx < fullW; tx += tile) {
            const std::size_t yEnd = ty + tile < fullH ? ty + tile : fullH;
            const std::size_t xEnd = tx + tile < fullW ? tx + tile : fullW;
            auto ahead = TileLookahead::after(src, srcStep, P, ((yEnd - ty) / B::K) * ((xEnd - tx) / B::K), tx, ty,
                                              tile, 0, fullW, fullH);
            for (std::size_t y = ty; y < yEnd; y += B::K)
                for (std::size_t x = tx; x < xEnd; x += B::K) {
                    ahead.next_block();
                    if constexpr (B::vector) {
                        transpose_block<P>(src + std::ptrdiff_t(y) * srcStep + x * P, srcStep,
                                           dst + std::ptrdiff_t(x) * dstStep + y * P, dstStep, put);
                    } else {
                        std::memcpy(dst + std::ptrdiff_t(x) * dstStep + y * P, src + std::ptrdiff_t(y) * srcStep + x * P,
                                    Policy::movedBytes);
                    }
                }
        }
    // The right columns and the bottom rows that whole blocks leave.
    for (std::size_t y = 0; y < height; ++y) {
        const Byte* s = src + std::ptrdiff_t(y) * srcStep;
        for (std::size_t x = y < fullH ? fullW : 0; x < width; ++x)
            std::memcpy(dst + std::ptrdiff_t(x) * dstStep + y * P, s + x * P, Policy::movedBytes);
    }
}

// In-place transpose of an n x n region: blocks mirrored about the diagonal are loaded both,
// transposed and stored each in the other's place; diagonal blocks are transposed in
// themselves; the pixels outside whole blocks change places with their mirror one pair at a
// time. Work goes in tiles of 32 x 32 pixels.
template <std::size_t P> inline void transpose_square_inplace(Byte* p, std::ptrdiff_t step, std::size_t n)
{
    using B = TransposeBlock<P>;
    auto put = [](Byte* d, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(d), v); };
    auto at = [p, step](std::size_t x, std::size_t y) { return p + std::ptrdiff_t(y) * step + x * P; };
    const std::size_t full = n / B::K * B::K;
    constexpr std::size_t tile = 32;
    if constexpr (B::vector) {
        for (std::size_t ty = 0; ty < full; ty += tile)
            for (std::size_t tx = ty; tx < full; tx += tile) {
                const std::size_t yEnd = ty + tile < full ? ty + tile : full;
                const std::size_t xEnd = tx + tile < full ? tx + tile : full;
                for (std::size_t y = ty; y < yEnd; y += B::K)
                    for (std::size_t x = tx == ty ? y : tx; x < xEnd; x += B::K) {
                        __m128i a[B::K], b[B::K];
                        B::load(at(x, y), step, a);
                        B::transpose(a);
                        if (x == y) {
                            B::store(at(x, y), step, a, put);
                            continue;
                        }
                        B::load(at(y, x), step, b);
                        B::transpose(b);
                        B::store(at(y, x), step, a, put);
                        B::store(at(x, y), step, b, put);
                    }
            }
    }
    const std::size_t done = B::vector ? full : 0;
    for (std::size_t y = 0; y < n; ++y)
        for (std::size_t x = (y < done ? done : y + 1); x < n; ++x) mirror_detail::swap_bytes<P>(at(x, y), at(y, x));
}

}  // namespace keli::rows
