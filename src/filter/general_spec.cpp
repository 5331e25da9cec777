// Size queries, inits and the mode setter of the general kernel filter.
#include "filter/general_spec.hpp"

#include <algorithm>
#include <cstring>

#include "kelcore.h"

namespace keli::filter {
namespace {

// Sizes are worked out in 128 bits: kernel and region sides up to 2^31 multiply past 64 bits
// before the result is compared with the largest size an int can report.
using Wide = __int128;

template <class I> constexpr I align(I v, int a) { return (v + a - 1) / a * a; }

// The working space of the row kernels, finished: v rounded to whole lines plus a line of room.
constexpr Wide finish(Wide v) { return v == 0 ? 0 : (v + 191) & ~Wide(63); }

constexpr bool supported_data(KelDataType t) { return t == kel8u || t == kel16u || t == kel16s || t == kel32f; }

int element_bytes(KelDataType t) { return t == kel8u ? 1 : t == kel32f ? 4 : t == kel64f ? 8 : 2; }

// The border temporary: the widest piece the edges need, in elements of the data.
Wide border_bytes(Wide kw, Wide kh, Wide W, Wide H, int elementBytes, int C)
{
    const Wide a = kh == 2 ? 2 : kh - ((kh - 1) >> 1) - 1, b = kw == 2 ? 2 : kw - ((kw - 1) >> 1) - 1;
    Wide count;
    if (kw < W && kh < H) {
        const Wide t = a > 0 ? (kh - 1 + a) * (kw - 1 + W) : 0;
        count = b > 0 ? std::max(t, (kw - 1 + b) * (kh - 1 + H)) : t;
    } else {
        count = (kw - 1 + W) * (kh - 1 + H);
    }
    return align(count * elementBytes * C, 32) + 32;
}

Wide work_bytes(KelDataType data, KelDataType kernel, Wide kw, Wide kh, Wide W, int C)
{
    const Wide N = kw * kh;
    const auto sized = [](Wide v) { return v < 16 ? Wide(0) : finish(v & ~Wide(15)); };
    if (C == 2) return 0;
    if (kernel == kel32f) {
        if (data == kel32f) return C == 1 ? finish(N * 32) : finish(N * 16);
        if (C == 1) {
            if (data == kel16s && kw == 1) return sized(W * 4 + 28);
            return finish(((W * 8 + 24) & ~31) + ((N * 16 + W * 8 + 40) & ~15));
        }
        if (C == 3) return finish(((W * 24 + 24) & ~31) + (((N * 4 + W * 6) * 4 + 40) & ~15));
        return finish(W * 64 + N * 16);
    }
    if (data == kel16s) {
        if (C == 1) return sized((W + N * 8) * 4 + 12);
        if (C == 3) return sized((W * 3 + N * 4) * 4 + 124);
        return sized((W + N) * 16 + 124);
    }
    if (data != kel8u) return 0;
    Wide v;
    if (C == 1) {
        if (kw == 1) v = ((W * 8 + 24) & ~31) + kh * 80;
        else if (kh == 1) v = (kw * 16 + W * 4 + 12) & ~15;
        else v = ((((kw * 8 + 8) & 0x3FFFFFF0) * kh + W) * 4 + 28) & ~31;
    } else if (C == 3) {
        v = kw == 1 ? (((W * 8 + 24) & ~31) + kh * 80) * 3 : ((W * 3 + N * 4) * 4 + 12) & ~15;
    } else {
        v = kw == 1 ? ((W * 32 + 96) & ~127) + kh * 320 : (W + N) * 16;
    }
    // Processors with the 512-bit registers lay the kernel rows out wider.
    if (ownGetFeature(kelCpuAVX512F)) v = std::max(kh * ((kw + 3) >> 2) * 64, v);
    return finish(v);
}

Wide buf_size_64f(Wide kw, Wide kh, Wide W)
{
    if (kw == 1) return kh < 3 || W < 16 ? 0 : kh * 32;
    return kh * (((kw * 16 + 32) & ~31) + kw * 4) + 15;
}

constexpr bool bad_round_mode(int roundMode) { return static_cast<unsigned>(roundMode & ~int(kAccurateFlag)) > 2; }

// The parts of the block behind the record: the reversed table, the pair table, the expanded
// table, each starting on a 64-byte boundary.
struct Tables {
    unsigned char* reversed;
    unsigned char* pairs;
    unsigned char* expanded;
};

Tables tables(GeneralSpec* s, std::int64_t N, std::int64_t kw, std::int64_t kh, int reversedBytes)
{
    unsigned char* base = reinterpret_cast<unsigned char*>(s) + kHeaderBytes;
    unsigned char* pairs = base + align(N * reversedBytes, 64);
    unsigned char* expanded = pairs + align(kh * ((kw + 1) & ~1) * 80, 64);
    return {base, pairs, expanded};
}

// Fields every init writes: sizes, a divisor of 1, no offset, no hint, no tables yet.
GeneralSpec* start(Kel8u* block, KeliSize kernelSize, int channels, int roundMode)
{
    GeneralSpec* s = spec_record(block);
    *s = GeneralSpec{};
    s->kernelWidth = kernelSize.width;
    s->kernelHeight = kernelSize.height;
    s->divisorKind = kDivOne;
    s->divisorReciprocal = s->divisorScale = s->divisorF32 = 1.0f;
    s->divisor = 1;
    s->divisorF64 = 1.0;
    s->roundMode = static_cast<std::uint32_t>(roundMode);
    s->channels = channels;
    return s;
}

void set_divisor(GeneralSpec* s, int divisor)
{
    s->divisor = divisor;
    s->divisorF32 = static_cast<float>(divisor);
    s->divisorF64 = divisor;
    s->divisorScale = static_cast<float>(divisor);
    s->divisorShift = s->divisorHalf = s->divisorMask = 0;
    if (divisor == 1) {
        s->divisorKind = kDivOne;
        s->divisorReciprocal = 1.0f;
    } else if (divisor > 1 && (divisor & (divisor - 1)) == 0) {
        s->divisorKind = kDivShift;
        s->divisorShift = static_cast<std::uint32_t>(__builtin_ctz(static_cast<unsigned>(divisor)));
        s->divisorHalf = 1u << (s->divisorShift - 1);
        s->divisorMask = (1u << s->divisorShift) - 1;
        s->divisorReciprocal = s->divisorScale = 1.0f / static_cast<float>(divisor);
        s->divisorF64 = 1.0 / divisor;
    } else {
        s->divisorKind = kDivExact;
        s->divisorReciprocal = 1.0f / static_cast<float>(divisor);
    }
}

// The float kernel of integer or 32f data: the reversed f32 table, and for integer data on 1, 3
// or 4 channels the expanded table (16s coefficients pre-scaled by 2^-16 for pixels held in the
// high halves of 32-bit lanes).
void fill_float(GeneralSpec* s, const Kel32f* kernel, KeliSize k, KelDataType data, int channels)
{
    const std::int64_t N = std::int64_t(k.width) * k.height;
    const Tables t = tables(s, N, k.width, k.height, 4);
    auto* reversed = reinterpret_cast<Kel32f*>(t.reversed);
    if (kernel == reversed) std::reverse(reversed, reversed + N);
    else
        for (std::int64_t i = 0; i < N; ++i) reversed[i] = kernel[N - 1 - i];
    s->reversed32f = reversed;
    s->pathCode = data == kel8u ? kPath8uFloat : data == kel16s ? kPath16sFloat : data == kel16u ? kPath16uFloat : kPath32f;
    if (data != kel32f && channels != 2) {
        auto* expanded = reinterpret_cast<Kel32f*>(t.expanded);
        const float scale = data == kel16s ? 1.5258789e-5f : 1.0f;
        for (std::int64_t i = 0; i < N; ++i)
            for (int r = 0; r < 4; ++r) expanded[4 * i + r] = reversed[N - 1 - i] * scale;
        s->expanded = expanded;
    }
}

}  // namespace

KelStatus general_get_size(KeliSize kernelSize, KeliSize roi, KelDataType dataType, KelDataType kernelType,
                           int numChannels, int* specSize, int* bufferSize)
{
    const Wide kw = kernelSize.width, kh = kernelSize.height, W = roi.width, H = roi.height, N = kw * kh;
    if (kw < 1 || kh < 1 || W < 1 || H < 1) return kelStatusBadSize;
    Wide spec, buffer;
    if (supported_data(dataType)) {
        if (kernelType != kel16s && kernelType != kel32f) return kelStatusBadDataType;
        if (numChannels < 1 || numChannels > 4) return kelStatusBadChannel;
        if (!specSize || !bufferSize) return kelStatusNullPtr;
        // 16-bit kernels that run as float kernels are sized as float kernels.
        KelDataType effective = kernelType;
        if (kernelType == kel16s &&
            (dataType == kel16u || (dataType == kel16s && !integer_path(dataType, int(kw), int(kh), numChannels))))
            effective = kel32f;
        const int e = effective == kel16s && (dataType == kel16s || dataType == kel8u) ? 2 : 4;
        spec = align(kh * ((kw + 1) & ~1) * 80, 64) + align(N * e, 64) + 191;
        if (effective == kel32f && numChannels != 2) spec += align(N * 16, 64);
        buffer = border_bytes(kw, kh, W, H, element_bytes(dataType), numChannels) +
                 work_bytes(dataType, effective, kw, kh, W, numChannels) + 63;
    } else if (dataType == kel64f) {
        if (kernelType != kel64f) return kelStatusBadDataType;
        if (numChannels != 1) return kelStatusBadChannel;
        if (!specSize || !bufferSize) return kelStatusNullPtr;
        spec = align(N * 8, 64) + 191;
        buffer = border_bytes(kw, kh, W, H, 8, 1) + buf_size_64f(kw, kh, W) + 126;
    } else {
        return kelStatusBadDataType;
    }
    if (spec > 0x7FFFFFFF || buffer > 0x7FFFFFFF) {
        *specSize = spec > 0x7FFFFFFF ? 0 : int(spec);
        *bufferSize = 0;
        return kelStatusSizeOverflow;
    }
    *specSize = int(spec);
    *bufferSize = int(buffer);
    return kelStatusOk;
}

KelStatus general_get_buf_size_64f(KeliSize kernelSize, int dstRoiWidth, int* bufferSize)
{
    if (!bufferSize) return kelStatusNullPtr;
    if (kernelSize.width < 1 || kernelSize.height < 1 || dstRoiWidth < 1) return kelStatusBadSize;
    const Wide v = buf_size_64f(kernelSize.width, kernelSize.height, dstRoiWidth);
    if (v > 0x7FFFFFFF) return kelStatusSizeOverflow;
    *bufferSize = int(v);
    return kelStatusOk;
}

KelStatus general_init_16s(const Kel16s* kernel, KeliSize k, int divisor, KelDataType dataType, int numChannels,
                           int roundMode, Kel8u* block)
{
    if (!kernel || !block) return kelStatusNullPtr;
    if (k.width < 1 || k.height < 1) return kelStatusBadSize;
    if (dataType != kel8u && dataType != kel16u && dataType != kel16s) return kelStatusBadDataType;
    if (numChannels < 1 || numChannels > 4) return kelStatusBadChannel;
    if (bad_round_mode(roundMode)) return kelStatusBadRoundMode;
    if (divisor == 0) return kelStatusZeroDivisor;
    const std::int64_t N = std::int64_t(k.width) * k.height;
    const bool integer = integer_path(dataType, k.width, k.height, numChannels);
    // The accurate flag is honoured where an exact integer quotient is formed per pixel: 8u,
    // and 16s on one channel.
    const bool accurateIgnored = (roundMode & kAccurateFlag) && dataType != kel8u &&
                                 !(integer && dataType == kel16s && numChannels == 1);
    GeneralSpec* s = start(block, k, numChannels, roundMode);
    set_divisor(s, divisor);
    if (integer) {
        const Tables t = tables(s, N, k.width, k.height, 2);
        auto* reversed = reinterpret_cast<Kel16s*>(t.reversed);
        for (std::int64_t i = 0; i < N; ++i) reversed[i] = kernel[N - 1 - i];
        auto* pairs = reinterpret_cast<Kel16s*>(t.pairs);
        Kel16s* p = pairs;
        bool usable = true;
        for (int j = 0; j < k.height; ++j)
            for (int i = 0; i < k.width; i += 2) {
                const Kel16s k0 = kernel[j * k.width + i], k1 = i + 1 < k.width ? kernel[j * k.width + i + 1] : 0;
                for (int r = 0; r < 4; ++r) *p++ = k0, *p++ = k1;
            }
        for (std::int64_t i = 0; i < N; ++i)
            usable = usable && kernel[i] != -32768 && (dataType == kel8u || kernel[i] != 32767);
        const std::int64_t pairEntries = p - pairs;
        if (dataType == kel16s && numChannels == 1) std::memcpy(p, pairs, std::size_t(pairEntries) * sizeof(Kel16s));
        s->reversed16s = reversed;
        s->pairs = pairs;
        s->pairTableUsable = usable;
        s->pathCode = dataType == kel8u ? kPath8uInt : kPath16sInt;
    } else {
        // The divisor goes into the coefficients once, in f64, so no division follows.
        const Tables t = tables(s, N, k.width, k.height, 4);
        auto* scaled = reinterpret_cast<Kel32f*>(t.reversed);
        const double reciprocal = 1.0 / divisor;
        for (std::int64_t i = 0; i < N; ++i) scaled[i] = static_cast<float>(double(kernel[i]) * reciprocal);
        fill_float(s, scaled, k, dataType, numChannels);
        s->roundMode = static_cast<std::uint32_t>(roundMode & ~int(kAccurateFlag));
    }
    return accurateIgnored ? kelStatusAccurateIgnored : kelStatusOk;
}

KelStatus general_init_32f(const Kel32f* kernel, KeliSize k, KelDataType dataType, int numChannels, int roundMode,
                           Kel8u* block)
{
    if (!kernel || !block) return kelStatusNullPtr;
    if (k.width < 1 || k.height < 1) return kelStatusBadSize;
    if (!supported_data(dataType)) return kelStatusBadDataType;
    if (numChannels < 1 || numChannels > 4) return kelStatusBadChannel;
    if (bad_round_mode(roundMode)) return kelStatusBadRoundMode;
    GeneralSpec* s = start(block, k, numChannels, roundMode & ~int(kAccurateFlag));
    fill_float(s, kernel, k, dataType, numChannels);
    return roundMode & kAccurateFlag ? kelStatusAccurateIgnored : kelStatusOk;
}

KelStatus general_init_64f(const Kel64f* kernel, KeliSize k, KelDataType dataType, int numChannels, int roundMode,
                           Kel8u* block)
{
    if (!kernel || !block) return kelStatusNullPtr;
    if (k.width < 1 || k.height < 1) return kelStatusBadSize;
    if (dataType != kel64f) return kelStatusBadDataType;
    if (numChannels != 1) return kelStatusBadChannel;
    // f64 sums are not rounded; only the nearest mode is a truthful description of them.
    if ((roundMode & ~int(kAccurateFlag)) != kelRndNear) return kelStatusBadRoundMode;
    const std::int64_t N = std::int64_t(k.width) * k.height;
    GeneralSpec* s = start(block, k, numChannels, roundMode & ~int(kAccurateFlag));
    auto* reversed = reinterpret_cast<Kel64f*>(reinterpret_cast<unsigned char*>(s) + kHeaderBytes);
    for (std::int64_t i = 0; i < N; ++i) reversed[i] = kernel[N - 1 - i];
    s->reversed64f = reversed;
    s->pathCode = kPath64f;
    return kelStatusOk;
}

KelStatus general_set_mode(KelHintAlgorithm hint, int offset, Kel8u* block)
{
    if (!block) return kelStatusNullPtr;
    GeneralSpec* s = spec_record(block);
    const std::uint32_t path = s->pathCode;
    // Paths whose sums leave the kernel as they are (16s integer, 16s float, 32f, 64f) take no offset.
    if ((path == kPath16sInt || path == kPath16sFloat || path == kPath32f || path == kPath64f) && offset != 0)
        return kelStatusUnsupportedMode;
    if (path == kPath64f) return kelStatusOk;
    if (hint == kelAlgHintAccurate) {
        if (path == kPath8uInt || (path == kPath16sInt && s->channels == 1)) s->roundMode |= kAccurateFlag;
    } else {
        s->roundMode &= 3;
    }
    s->offset = offset;
    s->hint = hint;
    // An integer path adds the offset before its division, so it is scaled by the divisor there.
    s->offsetF32 = path <= kPath16uIntUnused ? static_cast<float>(std::int64_t(offset) * s->divisor)
                                             : static_cast<float>(offset);
    return kelStatusOk;
}

ScratchLayout general_scratch(void* buffer, KeliSize k, KeliSize roi, int elementBytes, int channels)
{
    const auto at = reinterpret_cast<std::uintptr_t>(buffer);
    unsigned char* border = static_cast<unsigned char*>(buffer) + ((0 - at) & 31);
    const auto bytes = static_cast<std::int64_t>(border_bytes(k.width, k.height, roi.width, roi.height, elementBytes, channels));
    const auto end = reinterpret_cast<std::uintptr_t>(border) + std::uintptr_t(bytes);
    unsigned char* work = border + bytes + ((0 - end) & 63);
    return {border, work};
}

}  // namespace keli::filter
