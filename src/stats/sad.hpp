// keliSAD: the sum of absolute differences between a template and the image under it, for every
// position where the template lies wholly inside the image. The destination has
// (srcWidth - tplWidth + 1) by (srcHeight - tplHeight + 1) elements, 32-bit integers scaled down
// by a power of two with ties to even, or 32-bit floats.
//
// The family needs no scratch: the size query answers 0 and the buffer argument is never read.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "frame/check.hpp"
#include "keli_types.h"
#include "stats/rows/sad.hpp"

namespace keli {

namespace sad_detail {

// The only shape offered: every position of the template wholly inside the image.
constexpr int kShapeValid = 0x10000;

// The bytes from an image's first element to its last, both included (steps are positive here).
struct Span {
    std::uintptr_t first, last;
};

inline Span span_of(const void* base, int step, std::int64_t rowBytes, int height)
{
    const auto first = reinterpret_cast<std::uintptr_t>(base);
    return {first, first + static_cast<std::uintptr_t>(std::int64_t(height - 1) * step + rowBytes - 1)};
}

inline bool meets(std::uintptr_t first, std::uintptr_t last, Span area)
{
    return first <= area.last && last >= area.first;
}

// A destination row whose bytes meet the source's or the template's span would be read after it
// is written, or written while it is read: such calls are refused.
inline bool overlaps(const void* dst, int dstStep, std::int64_t dstRowBytes, int dstHeight, Span a, Span b)
{
    const auto base = reinterpret_cast<std::uintptr_t>(dst);
    for (int y = 0; y < dstHeight; ++y) {
        const std::uintptr_t first = base + static_cast<std::uintptr_t>(std::int64_t(y) * dstStep);
        const std::uintptr_t last = first + static_cast<std::uintptr_t>(dstRowBytes - 1);
        if (meets(first, last, a) || meets(first, last, b)) return true;
    }
    return false;
}

inline std::int32_t enum_value(const KelDataType& type)
{
    static_assert(sizeof(KelDataType) == sizeof(std::int32_t));
    std::int32_t v;
    std::memcpy(&v, &type, sizeof v);
    return v;
}

template <class T> struct OpOf;
template <> struct OpOf<Kel8u> { using type = rows::Sad8u; };
template <> struct OpOf<Kel16u> { using type = rows::Sad16<false>; };
template <> struct OpOf<Kel16s> { using type = rows::Sad16<true>; };

// Checks in the family's order: pointers; steps (the destination's a whole number of 32-bit
// elements, and in the 32f form every step); sizes, the template no larger than the image; the
// shape and the overlap of the destination with either input; last, the scale factor.
template <class T, class D>
inline KelStatus check_sad(const T* pSrc, int srcStep, KeliSize srcSize, const T* pTpl, int tplStep, KeliSize tplSize,
                           const D* pDst, int dstStep, int shape, int scaleFactor)
{
    constexpr bool f32 = std::is_same_v<T, Kel32f>;
    const bool badStep = srcStep < 1 || tplStep < 1 || dstStep < 1 || dstStep % 4 != 0 ||
                         (f32 && (srcStep % 4 != 0 || tplStep % 4 != 0));
    if (KelStatus s = check::first({check::pointers(pSrc, pTpl, pDst), badStep ? kelStatusBadStep : kelStatusOk,
                                    check::size(srcSize), check::size(tplSize)}))
        return s;
    if (tplSize.width > srcSize.width || tplSize.height > srcSize.height) return kelStatusBadSize;
    if (shape != kShapeValid) return kelStatusUnsupportedMode;
    const int dstWidth = srcSize.width - tplSize.width + 1, dstHeight = srcSize.height - tplSize.height + 1;
    const Span src = span_of(pSrc, srcStep, std::int64_t(srcSize.width) * sizeof(T), srcSize.height);
    const Span tpl = span_of(pTpl, tplStep, std::int64_t(tplSize.width) * sizeof(T), tplSize.height);
    if (overlaps(pDst, dstStep, std::int64_t(dstWidth) * 4, dstHeight, src, tpl)) return kelStatusUnsupportedMode;
    if (scaleFactor < 0) return kelStatusBadArg;
    return kelStatusOk;
}

}  // namespace sad_detail

// Integer forms: sums in 32-bit lanes that wrap, scaled by 2^-(scaleFactor & 31) with ties to even.
template <class T>
KelStatus sad_int(const T* pSrc, int srcStep, KeliSize srcSize, const T* pTpl, int tplStep, KeliSize tplSize,
                  Kel32s* pDst, int dstStep, int shape, int scaleFactor, const Kel8u* /*pBuffer*/)
{
    if (KelStatus s = sad_detail::check_sad(pSrc, srcStep, srcSize, pTpl, tplStep, tplSize, pDst, dstStep, shape,
                                            scaleFactor))
        return s;
    using Op = typename sad_detail::OpOf<T>::type;
    const rows::SadWindow w{reinterpret_cast<const std::uint8_t*>(pTpl), tplStep, srcStep, tplSize.width,
                            tplSize.height};
    const rows::SadScale scale{scaleFactor & 31};
    const int dstWidth = srcSize.width - tplSize.width + 1, dstHeight = srcSize.height - tplSize.height + 1;
    const auto* src = reinterpret_cast<const std::uint8_t*>(pSrc);
    auto* dst = reinterpret_cast<std::uint8_t*>(pDst);
    for (int y = 0; y < dstHeight; ++y)
        rows::sad_row_int<Op>(w, src + std::ptrdiff_t(y) * srcStep, dstWidth, scale,
                              reinterpret_cast<Kel32s*>(dst + std::ptrdiff_t(y) * dstStep));
    return kelStatusOk;
}

// 32f form: no scale; the sums follow the fixed order of the float kernel.
inline KelStatus sad_32f(const Kel32f* pSrc, int srcStep, KeliSize srcSize, const Kel32f* pTpl, int tplStep,
                         KeliSize tplSize, Kel32f* pDst, int dstStep, int shape, const Kel8u* /*pBuffer*/)
{
    if (KelStatus s =
            sad_detail::check_sad(pSrc, srcStep, srcSize, pTpl, tplStep, tplSize, pDst, dstStep, shape, 0))
        return s;
    const rows::SadWindow w{reinterpret_cast<const std::uint8_t*>(pTpl), tplStep, srcStep, tplSize.width,
                            tplSize.height};
    const int dstWidth = srcSize.width - tplSize.width + 1, dstHeight = srcSize.height - tplSize.height + 1;
    const auto* src = reinterpret_cast<const std::uint8_t*>(pSrc);
    auto* dst = reinterpret_cast<std::uint8_t*>(pDst);
    for (int y = 0; y < dstHeight; ++y)
        rows::sad_row_32f(w, src + std::ptrdiff_t(y) * srcStep, dstWidth,
                          reinterpret_cast<Kel32f*>(dst + std::ptrdiff_t(y) * dstStep));
    return kelStatusOk;
}

// The family keeps nothing between calls and needs no scratch: the size is always 0.
inline KelStatus sad_buffer_size(KeliSize srcSize, KeliSize tplSize, const KelDataType& dataType, int numChannels,
                                 int shape, int* pBufferSize)
{
    if (pBufferSize == nullptr) return kelStatusNullPtr;
    if (check::first({check::size(srcSize), check::size(tplSize)})) return kelStatusBadSize;
    const std::int32_t type = sad_detail::enum_value(dataType);
    if (type != kel8u && type != kel16u && type != kel16s && type != kel32f) return kelStatusBadDataType;
    if (numChannels != 1 || shape != sad_detail::kShapeValid) return kelStatusUnsupportedMode;
    *pBufferSize = 0;
    return kelStatusOk;
}

}  // namespace keli
