// Tile geometry of the resize family and the queries built on it: the work-buffer size, the
// border widths, the source point a tile's source pointer refers to and the source rectangle a
// tile reads.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "geometry/resize_spec.hpp"

namespace keli::resize {

// The source point that the caller's source pointer refers to for a tile starting at o:
// floor(o srcReduced / dstReduced), product then quotient in double.
inline std::int64_t source_offset(const Axis& a, std::int64_t o)
{
    return static_cast<std::int64_t>(std::floor(static_cast<double>(o) * a.srcReduced / a.dstReduced));
}

inline bool offset_outside(const Record& r, std::int64_t ox, std::int64_t oy)
{
    return ox < 0 || oy < 0 || ox >= r.dstWidth || oy >= r.dstHeight;
}

// A tile larger than the whole destination is trimmed with a warning; one that only runs past
// the image's end behind its offset is clipped silently.
inline bool larger_than_image(const Record& r, std::int64_t w, std::int64_t h) { return w > r.dstWidth || h > r.dstHeight; }

// Sizes of the work buffer for a tile of w x h and C channels.
inline std::int64_t buffer_bytes(const Record& r, std::int64_t tw, std::int64_t th, std::int64_t C)
{
    const std::int64_t w = std::min(tw, r.dstWidth), h = std::min(th, r.dstHeight);
    const std::int64_t A = a32(4 * h) + a32(4 * w);
    if (r.interpolation == kNearest) return A + 64;
    if (r.path == kDouble) {
        const std::int64_t taps = 2 * r.lobesY + 1;
        return a32(8 * taps) + A + taps * a32(8 * C * w) + 64;
    }
    return A + 2 * r.lobesY * a32(4 * C * w) + 64;
}

inline KelStatus buffer_size(const void* spec, std::int64_t tw, std::int64_t th, int channels, Form form, std::int64_t& out)
{
    if (tw == 0 || th == 0) return kelStatusNoOperation;
    const Record& r = *record(spec);
    if (!query_accepts(r, form)) return kelStatusSpecMismatch;
    if (channels != 1 && channels != 3 && channels != 4) return kelStatusBadChannelCount;
    if (tw < 1 || th < 1) return kelStatusBadSize;
    out = buffer_bytes(r, tw, th, channels);
    if (form != Form::Wide && out > kPlainSizeLimit) return kelStatusSizeOverflow;
    return larger_than_image(r, tw, th) ? kelStatusRoiTrimmed : kelStatusOk;
}

template <class SizeT, class Out>
KelStatus get_buffer_size(const KeliResizeSpec* spec, SizeT dstSize, int channels, Out* pSize, Form form)
{
    if (spec == nullptr || pSize == nullptr) return kelStatusNullPtr;
    std::int64_t bytes = 0;
    const KelStatus s = buffer_size(spec, dstSize.width, dstSize.height, channels, form, bytes);
    if (s < 0 || s == kelStatusNoOperation) return s;
    *pSize = static_cast<Out>(bytes);
    return s;
}

inline KelStatus get_border_size(const KeliResizeSpec* spec, KeliBorderSize* pSize, Form form)
{
    if (spec == nullptr || pSize == nullptr) return kelStatusNullPtr;
    const Record& r = *record(spec);
    if (!query_accepts(r, form)) return kelStatusSpecMismatch;
    *pSize = KeliBorderSize{r.borderSize[0], r.borderSize[1], r.borderSize[2], r.borderSize[3]};
    return kelStatusOk;
}

template <class PointT>
KelStatus get_src_offset(const KeliResizeSpec* spec, PointT dstOffset, PointT* pSrcOffset, Form form)
{
    if (spec == nullptr || pSrcOffset == nullptr) return kelStatusNullPtr;
    const Record& r = *record(spec);
    if (!query_accepts(r, form)) return kelStatusSpecMismatch;
    if (offset_outside(r, dstOffset.x, dstOffset.y)) return kelStatusOutOfRange;
    pSrcOffset->x = static_cast<decltype(pSrcOffset->x)>(source_offset(r.columns, dstOffset.x));
    pSrcOffset->y = static_cast<decltype(pSrcOffset->y)>(source_offset(r.rows, dstOffset.y));
    return kelStatusOk;
}

// The source rectangle a tile reads, without the far linear tap except at the image's far edge:
// the caller adds the border widths.
template <class PointT, class SizeT>
KelStatus get_src_roi(const KeliResizeSpec* spec, PointT dstOffset, SizeT dstSize, PointT* pSrcOffset, SizeT* pSrcSize,
                      Form form)
{
    if (spec == nullptr || pSrcOffset == nullptr || pSrcSize == nullptr) return kelStatusNullPtr;
    const Record& r = *record(spec);
    if (!query_accepts(r, form)) return kelStatusSpecMismatch;
    if (dstSize.width < 1 || dstSize.height < 1) return kelStatusBadSize;
    if (offset_outside(r, dstOffset.x, dstOffset.y)) return kelStatusOutOfRange;
    const auto extent = [](const Axis& a, std::int64_t o, std::int64_t len, std::int64_t srcLen, std::int64_t& start) {
        start = source_offset(a, o);
        const std::int64_t n = std::min<std::int64_t>(len, a.dstLen - o);
        return o + n == a.dstLen ? srcLen - start : a.index[o + n - 1] - start + 1;
    };
    std::int64_t sx = 0, sy = 0;
    const std::int64_t w = extent(r.columns, dstOffset.x, dstSize.width, r.srcWidth, sx);
    const std::int64_t h = extent(r.rows, dstOffset.y, dstSize.height, r.srcHeight, sy);
    pSrcOffset->x = static_cast<decltype(pSrcOffset->x)>(sx);
    pSrcOffset->y = static_cast<decltype(pSrcOffset->y)>(sy);
    pSrcSize->width = static_cast<decltype(pSrcSize->width)>(w);
    pSrcSize->height = static_cast<decltype(pSrcSize->height)>(h);
    return larger_than_image(r, dstSize.width, dstSize.height) ? kelStatusRoiTrimmed : kelStatusOk;
}

}  // namespace keli::resize
