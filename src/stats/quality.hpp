// keliQualityIndex: one global index per colour channel that weighs the correlation of two
// images against their contrasts and mean brightness,
//
//     Q = 4 * sxy * mean1 * mean2 / ((sq1 + sq2) * (mean1^2 + mean2^2)),
//
// where sxy, sq1 and sq2 are the sums of the products and squares of the centred elements.
// The means come from the mean of each image (32f with the fast sums); then each row of each
// image is turned into 32-bit floats with the mean taken off, one plane per channel, in the
// caller's scratch, and reduced in 32-bit floats. A row's sum of squares is taken as its norm,
// a square root rounded to 32 bits, squared again: this rounding is part of the result.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "frame/check.hpp"
#include "frame/layout.hpp"
#include "keli_types.h"
#include "stats/rows/quality.hpp"
#include "stats/sums_extrema.hpp"

namespace keli {

namespace quality_detail {

// Floats per row plane: the width rounded up to 16.
inline std::int64_t plane_floats(std::int32_t width) { return (std::int64_t(width) + 15) & 0x7FFFFFF0; }

template <class T> inline const T* row_at(const T* base, int step, std::int64_t y)
{
    return reinterpret_cast<const T*>(reinterpret_cast<const char*>(base) + y * step);
}

// The per-channel means, in 64-bit floats: AC4 takes the first three of the four-channel means.
template <class T, Layout L> inline void means(const T* src, int step, KeliSize roi, double* out)
{
    constexpr Layout M = has_alpha<L> ? Layout::C4 : L;
    if constexpr (std::is_same_v<T, Kel32f>) {
        const KelHintAlgorithm fast = kelAlgHintFast;
        mean_image_32f<M>(src, step, roi, out, fast);
    } else {
        mean_image<T, M>(src, step, roi, out);
    }
}

// Centres a row into its planes, copying when the mean is zero.
template <class T, int C, int Planes>
inline void centre(const T* src, std::size_t width, const Kel32f* mean, Kel32f* const* planes)
{
    bool zero = true;
    for (int c = 0; c < Planes; ++c) zero = zero && mean[c] == 0.0f;
    if (zero) rows::centre_planes<false, T, C, Planes>(src, width, mean, planes);
    else rows::centre_planes<true, T, C, Planes>(src, width, mean, planes);
}

// The square of a row's norm: the root of its sum of squares rounded to a 32-bit float, squared.
inline Kel32f squared_norm(double sumSq)
{
    const Kel32f n = static_cast<Kel32f>(std::sqrt(sumSq));
    return n * n;
}

}  // namespace quality_detail

template <class T, Layout L>
KelStatus quality_index(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, KeliSize roi, Kel32f* pQualityIndex,
                        Kel8u* pBuffer)
{
    if (KelStatus s = check::first({check::pointers(pSrc1, pSrc2, pQualityIndex, pBuffer), check::size(roi),
                                    check::steps(src1Step, src2Step)}))
        return s;
    constexpr int C = int(channels<L>), P = has_alpha<L> ? 3 : C;
    double mean1[4] = {}, mean2[4] = {};
    quality_detail::means<T, L>(pSrc1, src1Step, roi, mean1);
    quality_detail::means<T, L>(pSrc2, src2Step, roi, mean2);
    Kel32f m1[P], m2[P];
    for (int c = 0; c < P; ++c) {
        m1[c] = static_cast<Kel32f>(mean1[c]);
        m2[c] = static_cast<Kel32f>(mean2[c]);
    }

    // Planes of image 1, then of image 2, from the first 64-byte boundary of the scratch.
    const std::size_t w = static_cast<std::size_t>(roi.width);
    const std::size_t pitch = static_cast<std::size_t>(quality_detail::plane_floats(roi.width));
    Kel8u* base = pBuffer + ((0 - reinterpret_cast<std::uintptr_t>(pBuffer)) & 63);
    Kel32f* first = reinterpret_cast<Kel32f*>(base);
    Kel32f* planes1[P];
    Kel32f* planes2[P];
    for (int c = 0; c < P; ++c) {
        planes1[c] = first + c * pitch;
        planes2[c] = first + (P + c) * pitch;
    }

    Kel32f sxy[P] = {}, sq1[P] = {}, sq2[P] = {};
    for (int y = 0; y < roi.height; ++y) {
        quality_detail::centre<T, C, P>(quality_detail::row_at(pSrc1, src1Step, y), w, m1, planes1);
        quality_detail::centre<T, C, P>(quality_detail::row_at(pSrc2, src2Step, y), w, m2, planes2);
        for (int c = 0; c < P; ++c) {
            sxy[c] += static_cast<Kel32f>(rows::plane_dot(planes1[c], planes2[c], w));
            sq1[c] += quality_detail::squared_norm(rows::plane_sum_sq(planes1[c], w));
            sq2[c] += quality_detail::squared_norm(rows::plane_sum_sq(planes2[c], w));
        }
    }

    KelStatus status = kelStatusOk;
    for (int c = 0; c < P; ++c) {
        const double den = (mean2[c] * mean2[c] + mean1[c] * mean1[c]) * (double(sq1[c]) + double(sq2[c]));
        if (den >= 1.1920928955078125e-7) {
            const Kel32f s4 = 4.0f * sxy[c];
            pQualityIndex[c] = static_cast<Kel32f>(mean1[c] * mean2[c] * double(s4) / den);
        } else {
            // Flat or black images have no index: the negative quiet not-a-number.
            const std::uint32_t bits = 0xFFC00000u;
            std::memcpy(&pQualityIndex[c], &bits, sizeof bits);
            status = kelStatusZeroDenominator;
        }
    }
    return status;
}

// Bytes of scratch for a call: the planes of both images (three per image for three channels
// and for four with alpha, whose type selector is 9) and 64 bytes for the alignment.
inline KelStatus quality_index_buffer_size(KelDataType srcType, int channels, KeliSize roi, int* pBufferSize)
{
    if (KelStatus s = check::first({check::pointers(pBufferSize), check::size(roi)})) return s;
    std::int32_t type;
    static_assert(sizeof type == sizeof srcType);
    std::memcpy(&type, &srcType, sizeof type);
    if (type != kel8u && type != kel16u && type != kel32f) return kelStatusBadDataType;
    if (channels != 1 && channels != 3 && channels != 9) return kelStatusBadChannel;
    const std::int64_t w = quality_detail::plane_floats(roi.width);
    std::int64_t bytes;
    if (channels == 1) bytes = ((std::int64_t(roi.width) * 8 + 120) & ~std::int64_t(127)) + 64;
    else bytes = (type == kel8u ? 27 : type == kel16u ? 30 : 24) * w + 64;
    if (bytes > std::numeric_limits<int>::max()) return kelStatusSizeOverflow;
    *pBufferSize = static_cast<int>(bytes);
    return kelStatusOk;
}

}  // namespace keli
