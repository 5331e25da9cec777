#include "match/hog_spec.hpp"

#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "frame/fp_guard.hpp"

namespace keli::hog {

namespace {

bool above_zero(float x) { return x > 0.0f; }  // false for not-a-number too

// (size - block) a multiple of the stride; a stride of 0 reaches no division: it then takes a
// window of exactly one block.
bool window_fits(int size, int block, int stride)
{
    if (size < block) return false;
    return stride == 0 ? size == block : (size - block) % stride == 0;
}

}  // namespace

KelStatus check_config(const KeliHOGConfig& c)
{
    if (c.cellSize < 2 || c.cellSize > 16) return kelStatusUnsupportedMode;
    // A block is 2 x 2 cells; the ratio is taken on the low bytes of both sizes.
    const unsigned block8 = static_cast<std::uint8_t>(c.blockSize), cell8 = static_cast<std::uint8_t>(c.cellSize);
    if (c.blockSize < c.cellSize || c.blockSize > 64 || block8 / cell8 != 2 || block8 % cell8 != 0)
        return kelStatusUnsupportedMode;
    // A negative stride would walk blocks out of the window: only 0 and positive multiples of a cell.
    if (c.blockStride < 0 || c.blockStride % c.cellSize != 0) return kelStatusUnsupportedMode;
    if (c.nbins < 2 || c.nbins > 16) return kelStatusUnsupportedMode;
    if (!above_zero(c.sigma) || !above_zero(c.l2Threshold)) return kelStatusUnsupportedMode;
    if (!window_fits(c.winWidth, c.blockSize, c.blockStride) || !window_fits(c.winHeight, c.blockSize, c.blockStride))
        return kelStatusBadSize;
    return kelStatusOk;
}

// The weight of a block pixel for its top-left cell, in f64 from the f32 sigma, rounded once:
// a bilinear share of the cell times a Gaussian about the block's centre, and nothing past
// half a cell before the block's far edges. The other three cells take this weight mirrored.
static double first_weight(int x, int y, int B, int c, double sigma)
{
    if (x >= B - c / 2 || y >= B - c / 2) return 0.0;
    const double fx = (x + 0.5) / c - 0.5, fy = (y + 0.5) / c - 0.5;
    const double bilinear = (1.0 - std::fabs(fy)) * (1.0 - std::fabs(fx));
    const double gx = x - B / 2 + 0.5, gy = y - B / 2 + 0.5;
    return bilinear * std::exp(-(gy * gy + gx * gx) * (1.0 / (2.0 * sigma * sigma)));
}

void fill_block_weights(int B, int c, float sigma, unsigned char* weights)
{
    const double s = sigma;
    for (int y = 0; y < B; ++y)
        for (int x = 0; x < B; ++x) {
            // Top left, bottom left, top right, bottom right.
            const float w[4] = {static_cast<float>(first_weight(x, y, B, c, s)),
                                static_cast<float>(first_weight(x, B - 1 - y, B, c, s)),
                                static_cast<float>(first_weight(B - 1 - x, y, B, c, s)),
                                static_cast<float>(first_weight(B - 1 - x, B - 1 - y, B, c, s))};
            std::memcpy(weights + sizeof w * (y * B + x), w, sizeof w);
        }
}

KelStatus get_size(const KeliHOGConfig* config, int* specSize)
{
    if (!specSize || !config) return kelStatusNullPtr;
    if (KelStatus s = check_config(*config)) return s;
    // The header, padding to the weights' offset, the weights, and 8 bytes of slack.
    *specSize = config->blockSize * config->blockSize * 16 + 72;
    return kelStatusOk;
}

KelStatus init(const KeliHOGConfig* config, KeliHOGSpec* spec)
{
    if (!config || !spec) return kelStatusNullPtr;
    const KeliHOGConfig c = *config;
    if (KelStatus s = check_config(c)) return s;
    FpControlGuard guard;  // the weights do not depend on the caller's rounding or flush modes
    guard.set_rounding(0);
    guard.set_flush_to_zero(false);
    Header h{};
    h.id = kSpecId;
    h.config = c;
    h.cellsPerBlockX = h.cellsPerBlockY = c.blockSize / c.cellSize;
    h.blockHistogramLength = h.cellsPerBlockX * h.cellsPerBlockY * c.nbins;
    h.descriptorLength = blocks_along(c.winWidth, c.blockSize, c.blockStride) *
                         blocks_along(c.winHeight, c.blockSize, c.blockStride) * h.blockHistogramLength;
    unsigned char* out = reinterpret_cast<unsigned char*>(spec);
    std::memset(out, 0, kWeightsOffset);
    std::memcpy(out, &h, sizeof h);
    fill_block_weights(c.blockSize, c.cellSize, c.sigma, out + kWeightsOffset);
    return kelStatusOk;
}

KelStatus get_buffer_size(const KeliHOGSpec* spec, KeliSize roiSize, int* bufferSize)
{
    if (!spec || !bufferSize) return kelStatusNullPtr;
    const Header h = read_header(spec);
    if (h.id != kSpecId) return kelStatusSpecMismatch;
    if (h.config.winWidth > roiSize.width || h.config.winHeight > roiSize.height) return kelStatusBadSize;
    // Three planes of 4-byte elements: bin pairs, first votes, second votes.
    const std::int64_t bytes = std::int64_t(roiSize.width) * roiSize.height * 12;
    if (bytes > 0x7FFFFFFF) return kelStatusSizeOverflow;
    *bufferSize = static_cast<int>(bytes);
    return kelStatusOk;
}

KelStatus get_descriptor_size(const KeliHOGSpec* spec, int* descriptorSize)
{
    if (!spec || !descriptorSize) return kelStatusNullPtr;
    const Header h = read_header(spec);
    if (h.id != kSpecId) return kelStatusSpecMismatch;
    *descriptorSize = h.descriptorLength * 4;
    return kelStatusOk;
}

}  // namespace keli::hog
