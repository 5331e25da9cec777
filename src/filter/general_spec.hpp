// The general kernel filter's spec record, its size queries, inits and mode setter.
//
// The record lies at the first 64-byte boundary of the caller's block; its coefficient tables
// follow at the next 64-byte boundary behind it, and the record points at them. The record
// carries no identifier: the path code alone says what wrote it.
#pragma once

#include <cstdint>

#include "frame/spec_buffer.hpp"
#include "keli_types.h"

namespace keli::filter {

// Which row kernels a spec feeds: data type and kernel kind. 2 is never written and reads as 5.
enum PathCode : std::uint32_t {
    kPath8uInt = 0,
    kPath16sInt = 1,
    kPath16uIntUnused = 2,
    kPath8uFloat = 3,
    kPath16sFloat = 4,
    kPath16uFloat = 5,
    kPath32f = 6,
    kPath64f = 7,
};

// 0: divisor 1; 1: a power of two above 1; 2: any other divisor (negative ones included).
enum DivisorKind : std::uint32_t { kDivOne = 0, kDivShift = 1, kDivExact = 2 };

constexpr std::uint32_t kAccurateFlag = 16;  // beside the rounding mode

struct GeneralSpec {
    std::uint32_t pathCode;
    std::int32_t kernelWidth, kernelHeight;
    std::uint32_t divisorKind, divisorShift, divisorHalf;
    float divisorReciprocal, divisorScale;
    std::int32_t divisor;
    double divisorF64;
    std::uint32_t divisorMask;
    float divisorF32;
    std::uint32_t roundMode;
    std::int32_t offset;
    float offsetF32;
    std::int32_t hint;
    const Kel16s* reversed16s;  // the kernel reversed as a whole: entry i = kernel[N - 1 - i]
    const Kel32f* reversed32f;
    const Kel64f* reversed64f;
    const Kel16s* pairs;        // per kernel row, coefficient pairs (k0, k1) four times over
    const void* expanded;       // float kernels of integer data: each coefficient four times
    std::int32_t pairTableUsable;
    std::int32_t channels;
};

constexpr int kHeaderBytes = 128;  // the record, rounded up to the tables' 64-byte boundary
static_assert(sizeof(GeneralSpec) <= kHeaderBytes, "the tables start behind the record");

inline GeneralSpec* spec_record(void* block) { return spec::aligned<GeneralSpec>(block); }
inline const GeneralSpec* spec_record(const void* block) { return spec::aligned<GeneralSpec>(block); }

// The integer path: 8u data, and 16s data on one or two channels with a kernel at least 2 high
// and wide (3 wide on one channel). Other integer kernels are divided into float kernels.
constexpr bool integer_path(KelDataType data, int kw, int kh, int channels)
{
    return data == kel8u || (data == kel16s && kw > 1 && kh > 1 && channels <= 2 && !(channels == 1 && kw < 3));
}

KelStatus general_get_size(KeliSize kernelSize, KeliSize dstRoiSize, KelDataType dataType, KelDataType kernelType,
                           int numChannels, int* specSize, int* bufferSize);
KelStatus general_init_16s(const Kel16s* kernel, KeliSize kernelSize, int divisor, KelDataType dataType,
                           int numChannels, int roundMode, Kel8u* spec);
KelStatus general_init_32f(const Kel32f* kernel, KeliSize kernelSize, KelDataType dataType, int numChannels,
                           int roundMode, Kel8u* spec);
KelStatus general_init_64f(const Kel64f* kernel, KeliSize kernelSize, KelDataType dataType, int numChannels,
                           int roundMode, Kel8u* spec);
KelStatus general_set_mode(KelHintAlgorithm hint, int offset, Kel8u* spec);
KelStatus general_get_buf_size_64f(KeliSize kernelSize, int dstRoiWidth, int* bufferSize);

// Where a filter call's scratch parts start: the border temporary at the buffer's first 32-byte
// boundary, the working space at the first 64-byte boundary behind the border bytes.
struct ScratchLayout {
    unsigned char* border;
    unsigned char* work;
};
ScratchLayout general_scratch(void* buffer, KeliSize kernelSize, KeliSize roi, int elementBytes, int channels);

}  // namespace keli::filter
