// The scratch sizes of the box filter and the window sums. The formula is the interface: four
// parts (edge strips, column sums, delay rows or the single temporary image, row pointers),
// computed in 64 bits, with a total past 2^31 - 1 reported as an overflow.
#pragma once

#include <algorithm>
#include <cstdint>

#include "keli_types.h"

namespace keli {

inline std::int64_t box_buffer_bytes(KeliSize roi, KeliSize mask, std::int64_t e, std::int64_t C)
{
    // In 128 bits: sides near 2^31 make products past 2^63, and any total past 2^31 - 1 is
    // an overflow for the caller, so the result saturates.
    using Wide = __int128;
    const Wide w = roi.width, h = roi.height, kw = mask.width, kh = mask.height;
    const Wide ay = (kh - 1) >> 1, rx = kw - 1 - ((kw - 1) >> 1), ry = kh - 1 - ay;
    const auto align32 = [](Wide v) { return (v + 31) & ~Wide(31); };
    const Wide R = align32(C * w * e) * (ay + 1) + 64;
    const Wide hw = h + kh - 1, ww = w + kw - 1, iw = w - (kw - 1), ih = h - ay - ry;
    const bool f32 = e == 4, roomy = iw > kw && ih > kh;

    const Wide t = (kw == 2 ? hw : 0) + (kh == 2 ? ww : 0) + 2 * ((kw + rx - 1) * hw + (kh + ry - 1) * ww);
    const Wide strips = std::max(C * t * 4, t);

    Wide columns;
    if (C > 1)
        columns = (w + kw + 3) * 16;
    else if (e != 2)
        columns = (w + kw + 3) * 4;
    else if (kw == 5 && kh == 5)
        columns = ((w * 16 + 124) & ~Wide(127)) | 64;
    else if (kw == 3 && kh == 3)
        columns = ((w * 8 + 62) & ~Wide(63)) + 64;
    else
        columns = 2 * (w + kw + 3) * 4 + 128;

    const Wide delay = roomy ? (f32 && C == 1 ? kh * ((w + 3) & ~Wide(3)) * 4 + 64 : R)
                             : std::max(R, e * hw * ww * C);
    const Wide pointers = roomy && f32 && C == 1 && iw > kw ? 0 : ay * 8 + 8;
    const Wide total = strips + columns + delay + pointers;
    return total > INT64_MAX ? INT64_MAX : static_cast<std::int64_t>(total);
}

// Checks: the output pointer, the region, the mask, the type, then the channel count (two
// channels have no member).
inline KelStatus box_buffer_size(KeliSize roi, KeliSize mask, KelDataType dataType, int numChannels, int* pBufferSize)
{
    if (!pBufferSize) return kelStatusNullPtr;
    if (roi.width < 1 || roi.height < 1) return kelStatusBadSize;
    if (mask.width < 1 || mask.height < 1) return kelStatusBadMaskSize;
    std::int64_t e;
    switch (dataType) {
    case kel8u: e = 1; break;
    case kel16u:
    case kel16s: e = 2; break;
    case kel32f: e = 4; break;
    default: return kelStatusBadDataType;
    }
    if (numChannels != 1 && numChannels != 3 && numChannels != 4) return kelStatusBadChannelCount;
    const std::int64_t bytes = box_buffer_bytes(roi, mask, e, numChannels);
    if (bytes > 0x7FFFFFFF) {
        *pBufferSize = 0;
        return kelStatusSizeOverflow;
    }
    *pBufferSize = static_cast<int>(bytes);
    return kelStatusOk;
}

}  // namespace keli
