// Channel shuffles: every copy that rearranges the bytes of a pixel without computing on them
// (gather and scatter of one channel, three to four channels and back, interleaved to planar
// and back, duplication, channel swaps with constants and kept channels) is one byte map,
// applied by one kernel.
//
// A PixelMap says, for each byte of an output pixel, which byte of the input pixel it takes,
// or that it keeps the destination's old byte, or that it takes a constant. A ShufflePlan
// turns the map into pshufb patterns for a group of 16 / elementBytes pixels: the group's input
// is Cin vectors (Cin interleaved channels, or one vector per plane) and its output Cout
// vectors. Each output vector is the OR of the input vectors shuffled by its patterns, the
// constant bytes ORed in and the kept bytes merged back from the old destination.
//
// The scalar path walks the same map byte by byte, so head, body and tail agree by
// construction. Both paths read every input byte of a group or pixel before they store any
// output byte, which makes in-place shuffles correct for any map, repeats included.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "simd/sse.hpp"

namespace keli::rows {

constexpr signed char kKeepByte = -1;   // the destination's byte stays as it was
constexpr signed char kConstByte = -2;  // the byte comes from PixelMap::constant

struct PixelMap {
    int elementBytes = 1;
    int inChannels = 1, outChannels = 1;  // elements a pixel on each side
    bool inPlanar = false, outPlanar = false;
    // The pointers address one channel inside a wider pixel (C3C1, C1C3, C3CR ...): the last
    // pixel then ends before its full width, and vector groups stop one pixel early so that no
    // byte past the region is read or rewritten.
    bool channelPointers = false;
    signed char from[16] = {};
    unsigned char constant[16] = {};

    int in_bytes() const { return inChannels * elementBytes; }
    int out_bytes() const { return outChannels * elementBytes; }
};

// Map of a plain channel rearrangement: output channel c takes input channel source[c], or
// keeps (kKeepByte) or takes the constant element `value` (kConstByte).
template <class T>
inline PixelMap channel_map(int inChannels, int outChannels, const int* source, const T* value = nullptr)
{
    PixelMap m;
    m.elementBytes = sizeof(T);
    m.inChannels = inChannels;
    m.outChannels = outChannels;
    for (int c = 0; c < outChannels; ++c)
        for (int b = 0; b < int(sizeof(T)); ++b) {
            const int at = c * int(sizeof(T)) + b;
            if (source[c] >= 0) {
                m.from[at] = static_cast<signed char>(source[c] * int(sizeof(T)) + b);
            } else {
                m.from[at] = static_cast<signed char>(source[c]);
                if (source[c] == kConstByte && value)
                    m.constant[at] = reinterpret_cast<const unsigned char*>(value)[b];
            }
        }
    return m;
}

struct ShufflePlan {
    PixelMap map;
    std::size_t group;  // pixels a vector group
    __m128i pick[4][4];  // [output vector][input vector]
    __m128i constant[4];
    __m128i keep[4];
    unsigned used[4];  // bit k: input vector k feeds the output vector
    bool keeps[4];
    unsigned inUsed;   // bit b: input byte b of a pixel is read
};

inline ShufflePlan make_plan(const PixelMap& m)
{
    ShufflePlan p{};
    p.map = m;
    const int E = m.elementBytes;
    p.group = static_cast<std::size_t>(16 / E);
    alignas(16) unsigned char pick[4][4][16], constant[4][16], keep[4][16];
    std::memset(pick, 0x80, sizeof pick);
    std::memset(constant, 0, sizeof constant);
    std::memset(keep, 0, sizeof keep);
    for (int v = 0; v < m.outChannels; ++v) {
        for (int lane = 0; lane < 16; ++lane) {
            int pixel, byte;
            if (m.outPlanar) {
                pixel = lane / E, byte = v * E + lane % E;
            } else {
                pixel = (16 * v + lane) / m.out_bytes(), byte = (16 * v + lane) % m.out_bytes();
            }
            const int f = m.from[byte];
            if (f >= 0) {
                int k, at;
                if (m.inPlanar) {
                    k = f / E, at = pixel * E + f % E;
                } else {
                    k = (pixel * m.in_bytes() + f) / 16, at = (pixel * m.in_bytes() + f) % 16;
                }
                pick[v][k][lane] = static_cast<unsigned char>(at);
                p.used[v] |= 1u << k;
            } else if (f == kKeepByte) {
                keep[v][lane] = 0xFF;
                p.keeps[v] = true;
            } else {
                constant[v][lane] = m.constant[byte];
            }
        }
        for (int k = 0; k < 4; ++k) p.pick[v][k] = _mm_load_si128(reinterpret_cast<const __m128i*>(pick[v][k]));
        p.constant[v] = _mm_load_si128(reinterpret_cast<const __m128i*>(constant[v]));
        p.keep[v] = _mm_load_si128(reinterpret_cast<const __m128i*>(keep[v]));
    }
    for (int b = 0; b < m.out_bytes(); ++b)
        if (m.from[b] >= 0) p.inUsed |= 1u << m.from[b];
    return p;
}

using Byte = unsigned char;

// One pixel by the map: the input bytes it uses are read first, then the output written.
inline void shuffle_pixel(const PixelMap& m, unsigned inUsed, const Byte* const* in, Byte* const* out, std::size_t i)
{
    const std::size_t E = static_cast<std::size_t>(m.elementBytes);
    Byte px[16];
    for (int b = 0; b < m.in_bytes(); ++b)
        if (inUsed >> b & 1)
            px[b] = m.inPlanar ? in[b / E][i * E + b % E] : in[0][i * m.in_bytes() + b];
    for (int b = 0; b < m.out_bytes(); ++b) {
        const int f = m.from[b];
        if (f == kKeepByte) continue;
        const Byte v = f >= 0 ? px[f] : m.constant[b];
        (m.outPlanar ? out[b / E][i * E + b % E] : out[0][i * m.out_bytes() + b]) = v;
    }
}

// Runs n pixels. `in` and `out` hold one pointer (interleaved) or one a plane. The destination
// (its first plane) is brought to a 16-byte boundary by whole pixels where that is possible.
// With Stream the aligned group stores bypass the caches when every output stream can be
// aligned together; otherwise they fall back to ordinary stores. The caller fences.
template <int Cin, int Cout, bool InPlanar, bool OutPlanar, bool Stream = false>
inline void shuffle_row(const ShufflePlan& p, const Byte* const* in, Byte* const* out, std::size_t n)
{
    const PixelMap& m = p.map;
    const std::size_t E = static_cast<std::size_t>(m.elementBytes);
    const std::size_t G = p.group;
    const std::size_t inPix = InPlanar ? E : static_cast<std::size_t>(m.in_bytes());
    const std::size_t outPix = OutPlanar ? E : static_cast<std::size_t>(m.out_bytes());
    const std::size_t early = m.channelPointers ? 1 : 0;

    std::size_t head = 0;
    bool aligned = false;
    for (std::size_t h = 0; h < G; ++h)
        if (simd::aligned16(out[0] + h * outPix)) {
            head = h, aligned = true;
            break;
        }
    if constexpr (OutPlanar)
        for (int k = 1; k < Cout; ++k)
            aligned = aligned && ((reinterpret_cast<std::uintptr_t>(out[k]) ^ reinterpret_cast<std::uintptr_t>(out[0])) & 15) == 0;

    std::size_t i = 0;
    if (n >= head + G + early) {
        for (; i < head; ++i) shuffle_pixel(m, p.inUsed, in, out, i);
        // The patterns are copied to locals before the loop: the byte stores could alias the
        // plan, which would force every pattern to be reloaded after each store, while these
        // copies never have their address taken and stay in registers.
        __m128i pick[Cout][Cin], constant[Cout], keep[Cout];
        for (int o = 0; o < Cout; ++o) {
            for (int k = 0; k < Cin; ++k) pick[o][k] = p.pick[o][k];
            constant[o] = p.constant[o], keep[o] = p.keep[o];
        }
        unsigned used[Cout];
        bool keeps[Cout];
        // A plain map (no kept bytes, no constant other than 0) needs no branch in the loop: a
        // pattern for an input that feeds nothing selects zeros, and ORing them costs less than
        // testing for them.
        bool plain = true;
        for (int o = 0; o < Cout; ++o) {
            used[o] = p.used[o], keeps[o] = p.keeps[o];
            plain = plain && !keeps[o] && _mm_testz_si128(constant[o], constant[o]);
        }
        const Byte* from[InPlanar ? Cin : 1];
        Byte* to[OutPlanar ? Cout : 1];
        for (int k = 0; k < (InPlanar ? Cin : 1); ++k) from[k] = in[k];
        for (int k = 0; k < (OutPlanar ? Cout : 1); ++k) to[k] = out[k];
        auto groups = [&](auto store, auto plainMap) {
            constexpr bool Plain = decltype(plainMap)::value;
            for (unsigned turn = 0; i + G + early <= n; i += G, ++turn) {
                // The lines ahead of every stream are asked for: those of a plane once every
                // four groups (a line is 64 bytes, a group reads or writes 16 of a plane), those
                // of an interleaved side once a group.
                for (int k = 0; k < (InPlanar ? Cin : 1); ++k)
                    if (!InPlanar || turn % 4 == 0) simd::prefetch_ahead(from[k] + i * inPix);
                for (int k = 0; k < (OutPlanar ? Cout : 1); ++k)
                    if (!OutPlanar || turn % 4 == 0) simd::prefetch_ahead(to[k] + i * outPix);
                __m128i v[Cin];
                for (int k = 0; k < Cin; ++k)
                    v[k] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(InPlanar ? from[k] + i * inPix
                                                                                    : from[0] + i * inPix + 16 * k));
                for (int o = 0; o < Cout; ++o) {
                    Byte* d = OutPlanar ? to[o] + i * outPix : to[0] + i * outPix + 16 * o;
                    __m128i r = Plain ? _mm_shuffle_epi8(v[0], pick[o][0]) : constant[o];
                    for (int k = Plain ? 1 : 0; k < Cin; ++k)
                        if (Plain || (used[o] >> k & 1)) r = _mm_or_si128(r, _mm_shuffle_epi8(v[k], pick[o][k]));
                    if (!Plain && keeps[o])
                        r = _mm_blendv_epi8(r, _mm_loadu_si128(reinterpret_cast<const __m128i*>(d)), keep[o]);
                    store(d, r);
                }
            }
        };
        auto stream = [](Byte* d, __m128i r) { _mm_stream_si128(reinterpret_cast<__m128i*>(d), r); };
        auto ordinary = [](Byte* d, __m128i r) { _mm_storeu_si128(reinterpret_cast<__m128i*>(d), r); };
        if (Stream && aligned) plain ? groups(stream, std::true_type{}) : groups(stream, std::false_type{});
        else plain ? groups(ordinary, std::true_type{}) : groups(ordinary, std::false_type{});
    }
    for (; i < n; ++i) shuffle_pixel(m, p.inUsed, in, out, i);
}

}  // namespace keli::rows
