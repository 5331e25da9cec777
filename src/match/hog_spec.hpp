// The histogram of oriented gradients' spec record and the size queries around it.
//
// The record may be copied by the caller, so it is read where the caller's pointer points, with
// no rounding up to a 64-byte boundary: every field goes through memcpy and the block weights
// through unaligned loads at a fixed offset.
#pragma once

#include <cstdint>
#include <cstring>

#include "keli_types.h"

namespace keli::hog {

constexpr std::uint32_t kSpecId = 0x4B61738F;

// The header of the record: the identifier, the nine configuration fields in their order, then
// the derived counts.
struct Header {
    std::uint32_t id;
    KeliHOGConfig config;
    std::int32_t cellsPerBlockX, cellsPerBlockY;
    std::int32_t blockHistogramLength;
    std::int32_t descriptorLength;
};
static_assert(sizeof(Header) == 56, "the header is 14 words");

// The block weights follow at a fixed offset: for each block pixel, row by row, four f32.
constexpr int kWeightsOffset = 64;

inline Header read_header(const void* spec)
{
    Header h;
    std::memcpy(&h, spec, sizeof h);
    return h;
}

inline const float* block_weights(const void* spec)
{
    return reinterpret_cast<const float*>(static_cast<const unsigned char*>(spec) + kWeightsOffset);
}

// Blocks along one side of a window. A stride of 0 is accepted only when the window is one
// block (the window test insists), so it gives one block and divides nothing.
inline int blocks_along(int window, int block, int stride) { return stride == 0 ? 1 : (window - block) / stride + 1; }

// The configuration checks, field by field.
KelStatus check_config(const KeliHOGConfig& c);

// The four f32 weights of each pixel of a B x B block, B = blockSize, for cells c x c, written
// at any alignment.
void fill_block_weights(int blockSize, int cellSize, float sigma, unsigned char* weights);

KelStatus get_size(const KeliHOGConfig* config, int* specSize);
KelStatus init(const KeliHOGConfig* config, KeliHOGSpec* spec);
KelStatus get_buffer_size(const KeliHOGSpec* spec, KeliSize roiSize, int* bufferSize);
KelStatus get_descriptor_size(const KeliHOGSpec* spec, int* descriptorSize);

}  // namespace keli::hog
