// The adaptive thresholds: checks, the shortcuts that need no neighbourhood, the scratch layout
// and the Gaussian spec. The edge driver of the neighbourhood filters walks the region and makes
// the pixels beyond it; the kernels of rows/adaptive.hpp decide each pixel.
#include "threshold/adaptive.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "filter/edge_driver.hpp"
#include "frame/check.hpp"
#include "frame/fp_guard.hpp"
#include "move/border.hpp"
#include "threshold/rows/adaptive.hpp"

namespace keli {

namespace {

constexpr std::uint32_t kGaussSpecId = 0x4B61738E;

// The Gaussian spec: the block's first byte holds the distance (1 to 8) to this header at the
// next 8-byte boundary; the weights follow the header. The weights are read at their fixed place
// behind the header rather than through the stored pointer, so a spec copied as bytes still works.
struct GaussHeader {
    std::uint32_t id;
    std::int32_t dataType, channels, maskWidth;
    float sigma;
    std::uint32_t spare;
    const float* weights;
};
static_assert(sizeof(GaussHeader) == 32, "the weights follow at +32");

std::int64_t gauss_spec_bytes(std::int64_t m) { return 4 * m + 40; }

// The border word: a replicated or constant border, each with any in-memory flags, or exactly
// all four sides in memory. Mirroring has no kernel here.
bool accepts(int border)
{
    if (border < 0 || border > 255) return false;
    const int k = border::base_kind(border);
    return border == kelBorderInMem || k == kelBorderRepl || k == kelBorderConst;
}

bool bad_mask(KeliSize mask) { return mask.width != mask.height || mask.width < 1 || mask.width % 2 == 0; }

KelStatus check_query(KeliSize roi, KeliSize mask, KelDataType dataType, int numChannels)
{
    if (roi.width < 1 || roi.height < 1) return kelStatusBadSize;
    if (bad_mask(mask)) return kelStatusBadMaskSize;
    if (dataType != kel8u) return kelStatusBadDataType;
    if (numChannels != 1) return kelStatusBadChannelCount;
    return kelStatusOk;
}

// The buffer size is the interface; the filters use no more than it (edge strips or the
// bordered copy, the in-place ring, the column sums or filtered rows).
std::int64_t buffer_bytes(KeliSize roi, std::int64_t m)
{
    const std::int64_t w = roi.width, h = roi.height, e = m & ~std::int64_t(1);
    const std::int64_t head =
        (((((w + m + 30) & 0x7FFFFFE0) | 8) * m + (m + 1) * ((4 * w + 31) & ~std::int64_t(31)) + 31) & ~std::int64_t(31));
    const std::int64_t tail = m > w || m > h ? (((m + h - 1) * (m + w - 1) + 31) & ~std::int64_t(31))
                                             : ((h * e + 62) & ~std::int64_t(63)) + ((w * e + 62) & ~std::int64_t(63)) +
                                                   (((e + (m >> 1)) * (std::max(w, h) + e) + 31) & ~std::int64_t(31));
    return head + tail;
}

KelStatus store_size(std::int64_t bytes, int* to)
{
    if (bytes > 0x7FFFFFFF) {
        *to = 0;
        return kelStatusSizeOverflow;
    }
    *to = static_cast<int>(bytes);
    return kelStatusOk;
}

unsigned char* align_up(unsigned char* p, std::uintptr_t a)
{
    const auto v = reinterpret_cast<std::uintptr_t>(p);
    return p + ((a - v % a) % a);
}

void fill(Kel8u* dst, int dstStep, KeliSize roi, Kel8u v)
{
    for (int y = 0; y < roi.height; ++y) std::memset(dst + std::int64_t(y) * dstStep, v, std::size_t(roi.width));
}

// The outcomes that need no neighbourhood: a delta past the whole pixel range leaves every pixel
// on one side; a one-pixel mask makes the mean the pixel itself; a not-a-number delta makes
// every comparison false. Returns true when the destination is filled.
bool shortcut(Kel8u* dst, int dstStep, KeliSize roi, int m, float delta, Kel8u gt, Kel8u le)
{
    if (delta > 255.0f) fill(dst, dstStep, roi, gt);
    else if (delta <= -255.0f) fill(dst, dstStep, roi, le);
    else if (m == 1) fill(dst, dstStep, roi, delta > 0.0f ? gt : le);
    else if (std::isnan(delta)) fill(dst, dstStep, roi, le);
    else return false;
    return true;
}

// Where the driver's scratch ends and the kernel's begins, and the driver's job.
struct Run {
    filter::EdgeJob<Kel8u, Kel8u> job;
    bool inPlace;
    unsigned char* kernelScratch;
};

Run prepare(const Kel8u* src, int srcStep, Kel8u* dst, int dstStep, KeliSize roi, int m, int border,
            const Kel8u* value, Kel8u* buffer)
{
    using Driver = filter::EdgeDriver<Kel8u, Layout::C1, Kel8u>;
    const filter::Footprint fp = filter::centred(m, m);
    const bool inPlace = src == dst && srcStep == dstStep;
    const std::size_t driverBytes =
        inPlace ? Driver::scratch_bytes_in_place(roi.width, fp) : Driver::scratch_bytes(roi.width, roi.height, fp, border);
    unsigned char* scratch = align_up(buffer, 8);
    unsigned char* table = scratch + driverBytes;
    unsigned char* rest = align_up(table + (m > filter::kStackRows ? std::size_t(m) * sizeof(void*) : 0), 16);
    filter::EdgeJob<Kel8u, Kel8u> job{src,   srcStep, dst,     dstStep, roi.width,
                                      roi.height, fp,  border, value,   scratch,
                                      m > filter::kStackRows ? reinterpret_cast<const void**>(table) : nullptr};
    return {job, inPlace, rest};
}

template <class K> void drive(const Run& run, const K& kernel)
{
    filter::EdgeDriver<Kel8u, Layout::C1, Kel8u> driver(run.job);
    if (run.inPlace)
        driver.run_in_place(kernel);
    else
        driver.run(kernel);
}

}  // namespace

KelStatus threshold_adaptive_box_buffer_size(KeliSize roi, KeliSize mask, KelDataType dataType, int numChannels,
                                             int* pBufferSize)
{
    if (!pBufferSize) return kelStatusNullPtr;
    if (KelStatus s = check_query(roi, mask, dataType, numChannels)) return s;
    return store_size(buffer_bytes(roi, mask.width), pBufferSize);
}

KelStatus threshold_adaptive_gauss_buffer_size(KeliSize roi, KeliSize mask, KelDataType dataType, int numChannels,
                                               int* pSpecSize, int* pBufferSize)
{
    if (!pSpecSize || !pBufferSize) return kelStatusNullPtr;
    if (KelStatus s = check_query(roi, mask, dataType, numChannels)) return s;
    if (KelStatus s = store_size(gauss_spec_bytes(mask.width), pSpecSize)) return s;
    return store_size(buffer_bytes(roi, mask.width), pBufferSize);
}

KelStatus threshold_adaptive_gauss_init(KeliSize roi, KeliSize mask, KelDataType dataType, int numChannels, Kel32f sigma,
                                        Kel8u* pSpec)
{
    if (!pSpec) return kelStatusNullPtr;
    if (KelStatus s = check_query(roi, mask, dataType, numChannels)) return s;
    FpControlGuard guard;
    guard.set_rounding(0);
    guard.set_flush_to_zero(false);
    const int m = mask.width;
    // A sigma that is not above 0 (not-a-number included) takes the mask's natural width.
    if (!(sigma > 0.0f)) sigma = static_cast<float>((m - 1) * 0.15 + 0.5);
    const int distance = 8 - int(reinterpret_cast<std::uintptr_t>(pSpec) & 7);
    unsigned char* at = pSpec + distance;
    float* weights = reinterpret_cast<float*>(at + sizeof(GaussHeader));
    // Each weight's exponential in f64, rounded once to f32; the sum in index order in f32; then
    // every weight times the sum's reciprocal.
    float sum = 0.0f;
    const double s2 = double(sigma) * double(sigma);
    for (int i = 0; i < m; ++i) {
        const double d = double(i - m / 2);
        const float w = static_cast<float>(std::exp(-0.5 * d * d / s2));
        std::memcpy(weights + i, &w, 4);
        sum = i == 0 ? w : sum + w;
    }
    const float inv = 1.0f / sum;
    for (int i = 0; i < m; ++i) {
        float w;
        std::memcpy(&w, weights + i, 4);
        w *= inv;
        std::memcpy(weights + i, &w, 4);
    }
    const GaussHeader header{kGaussSpecId, kel8u, 1, m, sigma, 0, weights};
    pSpec[0] = static_cast<Kel8u>(distance);
    std::memcpy(at, &header, sizeof header);
    return kelStatusOk;
}

KelStatus threshold_adaptive_box(const Kel8u* pSrc, int srcStep, Kel8u* pDst, int dstStep, KeliSize roi, KeliSize mask,
                                 Kel32f delta, Kel8u valGT, Kel8u valLE, int border, Kel8u borderValue, Kel8u* pBuffer)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pDst, pBuffer), check::size(roi),
                                    bad_mask(mask) ? kelStatusBadMaskSize : kelStatusOk,
                                    accepts(border) ? kelStatusOk : kelStatusBadBorder}))
        return s;
    FpControlGuard guard;
    guard.set_rounding(0);
    const int m = mask.width;
    if (shortcut(pDst, dstStep, roi, m, delta, valGT, valLE)) return kelStatusOk;
    const std::int64_t area = std::int64_t(m) * m;
    // floor(-area * delta), held where it changes no outcome: a * src - S lies in [-255 a, 255 a].
    const double limit = 255.0 * double(area);
    const double offset = std::clamp(std::floor(-double(area) * double(delta)), -limit - 1, limit);
    const Run run = prepare(pSrc, srcStep, pDst, dstStep, roi, m, border, &borderValue, pBuffer);
    auto* col = reinterpret_cast<std::uint32_t*>(run.kernelScratch);
    std::uint32_t* prefix = col + (roi.width + m - 1);
    drive(run, rows::adaptive::BoxKernel(m, dstStep, col, prefix, static_cast<std::int64_t>(offset), valGT, valLE));
    return kelStatusOk;
}

KelStatus threshold_adaptive_gauss(const Kel8u* pSrc, int srcStep, Kel8u* pDst, int dstStep, KeliSize roi, Kel32f delta,
                                   Kel8u valGT, Kel8u valLE, int border, Kel8u borderValue, const Kel8u* pSpec,
                                   Kel8u* pBuffer)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pDst, pBuffer, pSpec), check::size(roi),
                                    accepts(border) ? kelStatusOk : kelStatusBadBorder}))
        return s;
    if (pSpec[0] < 1 || pSpec[0] > 8) return kelStatusSpecMismatch;
    GaussHeader header;
    std::memcpy(&header, pSpec + pSpec[0], sizeof header);
    if (header.id != kGaussSpecId || header.dataType != kel8u || header.channels != 1 || header.maskWidth < 1 ||
        header.maskWidth % 2 == 0)
        return kelStatusSpecMismatch;
    FpControlGuard guard;
    guard.set_rounding(0);
    guard.set_flush_to_zero(false);
    const int m = header.maskWidth;
    if (shortcut(pDst, dstStep, roi, m, delta, valGT, valLE)) return kelStatusOk;
    const Run run = prepare(pSrc, srcStep, pDst, dstStep, roi, m, border, &borderValue, pBuffer);
    // The weights, then the ring of filtered rows, the converted line and the ring's row order.
    auto* weights = reinterpret_cast<float*>(run.kernelScratch);
    std::memcpy(weights, pSpec + pSpec[0] + sizeof(GaussHeader), std::size_t(m) * 4);
    float* ring = weights + ((m + 3) & ~3);
    float* line = ring + std::int64_t(m) * roi.width;
    auto* order = reinterpret_cast<const float**>(align_up(reinterpret_cast<unsigned char*>(line + roi.width + m - 1), 8));
    drive(run, rows::adaptive::GaussKernel(m, weights, dstStep, roi.width, ring, line, order, delta, valGT, valLE));
    return kelStatusOk;
}

}  // namespace keli
