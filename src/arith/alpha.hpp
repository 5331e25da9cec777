// keliAlphaComp, keliAlphaCompC, keliAlphaPremul, keliAlphaPremulC: composition of two images
// by the twelve operations, with alpha from the images or from constants, and multiplication of
// colour by alpha.
//
// Forms:
//   AC1  alpha planes alone: src1, src2 and dst hold alpha, and dst gets the alpha rule. An
//        image of this form has no colour to compose, so the plane is read as what the
//        composition produces for it.
//   AC4  interleaved pixels; the fourth element of dst gets the alpha rule (composition) or keeps
//        the source's alpha (premultiplication, where the alpha lane is multiplied by one).
//   AP4  four planes of one step each, the fourth alpha, handled like AC4.
//   C1, C3, C4 (constant forms) every element is colour.
// In place, the second image of the composition is the one written.
//
// Checks: keliAlphaComp tests pointers, the size, then the operation, and never the steps;
// the others test pointers, size, steps (below 1), then the operation where they take one.
#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>

#include "arith/rows/alpha.hpp"
#include "frame/check.hpp"
#include "frame/driver.hpp"
#include "move/rows/copy_run.hpp"

namespace keli {

namespace alpha_detail {

enum class Form { C1, C3, C4, AC1, AC4, AP4 };
template <Form F> constexpr std::size_t kElements = F == Form::C3 ? 3 : F == Form::C4 || F == Form::AC4 ? 4 : 1;

// An operation outside 0-11 (a negative one included) is refused.
inline KelStatus operation(int op, int most = rows::alpha::kOperations - 1)
{
    return static_cast<unsigned>(op) > static_cast<unsigned>(most) ? kelStatusBadAlphaType : kelStatusOk;
}

// The plane arrays of AP4 forms: the array and each of its four planes.
template <class... P> inline KelStatus planes(P... arrays)
{
    auto bad = [](auto a) { return !a || !a[0] || !a[1] || !a[2] || !a[3]; };
    return (bad(arrays) || ...) ? kelStatusNullPtr : kelStatusOk;
}

template <class F, int... K> inline void with_op(int op, F& f, std::integer_sequence<int, K...>)
{
    ((op == K ? (f(std::integral_constant<int, K>{}), 0) : 0), ...);
}

// f(std::integral_constant<int, op>) with the call's operation as a constant.
template <class F> inline void with_op(int op, F&& f)
{
    with_op(op, f, std::make_integer_sequence<int, rows::alpha::kOperations>{});
}

template <class T> inline T* row_at(T* base, std::ptrdiff_t step, std::int64_t y)
{
    using Byte = std::conditional_t<std::is_const_v<T>, const char, char>;
    return reinterpret_cast<T*>(reinterpret_cast<Byte*>(base) + y * step);
}

}  // namespace alpha_detail

// AC1 and AC4.
template <class T, alpha_detail::Form F>
KelStatus alpha_comp_image(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst, int dstStep,
                           KeliSize roi, int alphaType)
{
    using namespace alpha_detail;
    if (KelStatus s = check::first({check::pointers(pSrc1, pSrc2, pDst), check::size(roi), operation(alphaType)}))
        return s;
    const std::size_t width = static_cast<std::size_t>(roi.width);
    with_op(alphaType, [&](auto op) {
        // The alpha rule is the same for plain and premultiplied colour.
        constexpr int Op = decltype(op)::value;
        walk_rows(
            roi.height,
            [width](const T* a, const T* b, T* d) {
                if constexpr (F == Form::AC1) rows::alpha::alpha_run<T, rows::alpha::base_op(Op)>(a, b, d, width);
                else rows::alpha::comp_pixels<T, Op>(a, b, d, width);
            },
            row_ptr(pSrc1, src1Step), row_ptr(pSrc2, src2Step), row_ptr(pDst, dstStep));
    });
    return kelStatusOk;
}

// AP4: the alpha plane is written last, so that an in-place call reads the old one for colour.
template <class T>
KelStatus alpha_comp_planes(const T* const pSrc1[4], int src1Step, const T* const pSrc2[4], int src2Step,
                            T* const pDst[4], int dstStep, KeliSize roi, int alphaType)
{
    using namespace alpha_detail;
    if (KelStatus s = check::first({planes(pSrc1, pSrc2, pDst), check::size(roi), operation(alphaType)})) return s;
    const std::size_t width = static_cast<std::size_t>(roi.width);
    with_op(alphaType, [&](auto op) {
        constexpr int Op = decltype(op)::value;
        for (std::int64_t y = 0; y < roi.height; ++y) {
            const T* a = row_at(pSrc1[3], src1Step, y);
            const T* b = row_at(pSrc2[3], src2Step, y);
            for (int c = 0; c < 3; ++c)
                rows::alpha::comp_plane<T, Op>(row_at(pSrc1[c], src1Step, y), a, row_at(pSrc2[c], src2Step, y), b,
                                               row_at(pDst[c], dstStep, y), width);
            rows::alpha::alpha_run<T, Op>(a, b, row_at(pDst[3], dstStep, y), width);
        }
    });
    return kelStatusOk;
}

// Constant alphas: C1, C3, C4 and AC4.
template <class T, alpha_detail::Form F>
KelStatus alpha_comp_const_image(const T* pSrc1, int src1Step, T alpha1, const T* pSrc2, int src2Step, T alpha2,
                                 T* pDst, int dstStep, KeliSize roi, int alphaType)
{
    using namespace alpha_detail;
    if (KelStatus s = check::first({check::pointers(pSrc1, pSrc2, pDst), check::size(roi),
                                    check::steps(src1Step, src2Step, dstStep), operation(alphaType)}))
        return s;
    const std::size_t width = static_cast<std::size_t>(roi.width);
    with_op(alphaType, [&](auto op) {
        constexpr int Op = decltype(op)::value;
        walk_rows(
            roi.height,
            [&](const T* x, const T* y, T* d) {
                if constexpr (F == Form::AC4) rows::alpha::comp_const_pixels<T, Op>(x, y, d, width, alpha1, alpha2);
                else rows::alpha::comp_const<T, Op>(x, y, d, width * kElements<F>, alpha1, alpha2);
            },
            row_ptr(pSrc1, src1Step), row_ptr(pSrc2, src2Step), row_ptr(pDst, dstStep));
    });
    return kelStatusOk;
}

template <class T>
KelStatus alpha_comp_const_planes(const T* const pSrc1[4], int src1Step, T alpha1, const T* const pSrc2[4],
                                  int src2Step, T alpha2, T* const pDst[4], int dstStep, KeliSize roi, int alphaType)
{
    using namespace alpha_detail;
    if (KelStatus s = check::first({planes(pSrc1, pSrc2, pDst), check::size(roi),
                                    check::steps(src1Step, src2Step, dstStep), operation(alphaType)}))
        return s;
    const std::size_t width = static_cast<std::size_t>(roi.width);
    with_op(alphaType, [&](auto op) {
        constexpr int Op = decltype(op)::value;
        const T alpha = rows::alpha::Rule<T>::template alpha<Op>(alpha1, alpha2);
        for (std::int64_t y = 0; y < roi.height; ++y) {
            for (int c = 0; c < 3; ++c)
                rows::alpha::comp_const<T, Op>(row_at(pSrc1[c], src1Step, y), row_at(pSrc2[c], src2Step, y),
                                               row_at(pDst[c], dstStep, y), width, alpha1, alpha2);
            T* d = row_at(pDst[3], dstStep, y);
            for (std::size_t x = 0; x < width; ++x) d[x] = alpha;
        }
    });
    return kelStatusOk;
}

// Premultiplication by each pixel's own alpha (AC4): the alpha element keeps its value.
template <class T> KelStatus alpha_premul_image(const T* pSrc, int srcStep, T* pDst, int dstStep, KeliSize roi)
{
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::size(roi), check::steps(srcStep, dstStep)}))
        return s;
    const std::size_t width = static_cast<std::size_t>(roi.width);
    walk_rows(
        roi.height, [width](const T* s, T* d) { rows::alpha::premul_pixels(s, d, width); }, row_ptr(pSrc, srcStep),
        row_ptr(pDst, dstStep));
    return kelStatusOk;
}

// The alpha plane of an AP4 premultiplication is carried over unchanged.
template <class T> inline void copy_alpha_plane(const T* src, int srcStep, T* dst, int dstStep, KeliSize roi)
{
    if (src == dst && srcStep == dstStep) return;
    for (std::int64_t y = 0; y < roi.height; ++y)
        rows::copy_bytes(alpha_detail::row_at(src, srcStep, y), alpha_detail::row_at(dst, dstStep, y),
                         static_cast<std::size_t>(roi.width) * sizeof(T));
}

template <class T>
KelStatus alpha_premul_planes(const T* const pSrc[4], int srcStep, T* const pDst[4], int dstStep, KeliSize roi)
{
    using namespace alpha_detail;
    if (KelStatus s = check::first({planes(pSrc, pDst), check::size(roi), check::steps(srcStep, dstStep)})) return s;
    const std::size_t width = static_cast<std::size_t>(roi.width);
    for (std::int64_t y = 0; y < roi.height; ++y)
        for (int c = 0; c < 3; ++c)
            rows::alpha::scale_plane(row_at(pSrc[c], srcStep, y), row_at(pSrc[3], srcStep, y),
                                     row_at(pDst[c], dstStep, y), width);
    copy_alpha_plane(pSrc[3], srcStep, pDst[3], dstStep, roi);
    return kelStatusOk;
}

// Premultiplication by a constant: every processed element times alpha / one. AC4 multiplies
// its alpha element by one, so it keeps the source's alpha, as the premultiplication by the
// pixel's own alpha does.
template <class T, alpha_detail::Form F>
KelStatus alpha_premul_const_image(const T* pSrc, int srcStep, T alpha, T* pDst, int dstStep, KeliSize roi)
{
    using namespace alpha_detail;
    if (KelStatus s = check::first({check::pointers(pSrc, pDst), check::size(roi), check::steps(srcStep, dstStep)}))
        return s;
    const T one = static_cast<T>(rows::alpha::IntRule<T>::one);
    const T m[4] = {alpha, alpha, alpha, F == Form::AC4 ? one : alpha};
    const std::size_t n = static_cast<std::size_t>(roi.width) * kElements<F>;
    walk_rows(
        roi.height, [&](const T* s, T* d) { rows::alpha::scale_run(s, d, n, m); }, row_ptr(pSrc, srcStep),
        row_ptr(pDst, dstStep));
    return kelStatusOk;
}

template <class T>
KelStatus alpha_premul_const_planes(const T* const pSrc[4], int srcStep, T alpha, T* const pDst[4], int dstStep,
                                    KeliSize roi)
{
    using namespace alpha_detail;
    if (KelStatus s = check::first({planes(pSrc, pDst), check::size(roi), check::steps(srcStep, dstStep)})) return s;
    const T m[4] = {alpha, alpha, alpha, alpha};
    const std::size_t width = static_cast<std::size_t>(roi.width);
    for (std::int64_t y = 0; y < roi.height; ++y)
        for (int c = 0; c < 3; ++c)
            rows::alpha::scale_run(row_at(pSrc[c], srcStep, y), row_at(pDst[c], dstStep, y), width, m);
    copy_alpha_plane(pSrc[3], srcStep, pDst[3], dstStep, roi);
    return kelStatusOk;
}

}  // namespace keli
