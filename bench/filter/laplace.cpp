// Laplace, high-pass and sharpen filters against cv::filter2D with the same mask (sharpen's
// divided by 8), the same type in and out, the centred anchor and a replicated border: the same
// job, with OpenCV's destination preallocated. keli's scratch is allocated once, outside the
// timed loop.
//
// Before its first timing each keli row checks itself against filter2D on a copy of its image
// with small integer values (so that OpenCV's f32 sums are exact, and its rounding of sharpen's
// eighths, ties to even, is keli's): any differing byte turns the row into an error. One more
// row times cv::Laplacian (ksize 3, another mask) as a reference beside the 8u 3x3 Laplace.
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "common/bench.hpp"

namespace {

template <class T> using Fn = KelStatus (*)(const T*, int, T*, int, KeliSize, KeliMaskSize, KeliBorderType, T, Kel8u*);
template <class T>
using FnC = KelStatus (*)(const T*, int, T*, int, KeliSize, KeliMaskSize, KeliBorderType, const T*, Kel8u*);
using Query = KelStatus (*)(KeliSize, KeliMaskSize, KelDataType, KelDataType, int, int*);

enum class Mask { Laplace3, Laplace5, Hipass5, Sharpen3 };

cv::Mat kernel_of(Mask m)
{
    switch (m) {
    case Mask::Laplace3: {
        cv::Mat k(3, 3, CV_32F, cv::Scalar(-1));
        k.at<float>(1, 1) = 8;
        return k;
    }
    case Mask::Sharpen3: {
        cv::Mat k(3, 3, CV_32F, cv::Scalar(-0.125));
        k.at<float>(1, 1) = 2;
        return k;
    }
    case Mask::Hipass5: {
        cv::Mat k(5, 5, CV_32F, cv::Scalar(-1));
        k.at<float>(2, 2) = 24;
        return k;
    }
    case Mask::Laplace5: break;
    }
    const float l5[25] = {-1, -3, -4, -3, -1, -3, 0, 6, 0, -3, -4, 6, 20, 6, -4, -3, 0, 6, 0, -3, -1, -3, -4, -3, -1};
    return cv::Mat(5, 5, CV_32F, const_cast<float*>(l5)).clone();
}

template <class T> constexpr int cv_depth() { return std::is_same_v<T, Kel8u> ? CV_8U : std::is_same_v<T, Kel16s> ? CV_16S : CV_32F; }
template <class T> constexpr KelDataType kel_type() { return std::is_same_v<T, Kel8u> ? kel8u : std::is_same_v<T, Kel16s> ? kel16s : kel32f; }

template <class T, class F>
KelStatus call(F fn, const T* src, int srcStep, T* dst, int dstStep, KeliSize roi, KeliMaskSize mask, Kel8u* buffer)
{
    const T value[4] = {};
    if constexpr (std::is_same_v<F, Fn<T>>)
        return fn(src, srcStep, dst, dstStep, roi, mask, kelBorderRepl, value[0], buffer);
    else
        return fn(src, srcStep, dst, dstStep, roi, mask, kelBorderRepl, value, buffer);
}

// keli against filter2D on small integer values over the whole image: the status, or
// kelStatusBadArg where a byte differs.
template <class T, class F>
KelStatus agrees_with_filter2d(F fn, Mask m, KeliMaskSize mask, int channels, bench::Size s, Kel8u* buffer)
{
    cv::Mat values(s.height, s.width, CV_MAKETYPE(CV_32S, channels)), src, theirs;
    cv::randu(values, cv::Scalar::all(std::is_signed_v<T> ? -64 : 0), cv::Scalar::all(64));
    values.convertTo(src, CV_MAKETYPE(cv_depth<T>(), channels));
    cv::Mat ours(src.size(), src.type());
    const KelStatus st = call<T>(fn, src.ptr<T>(), int(src.step), ours.ptr<T>(), int(ours.step),
                                 bench::roi(s), mask, buffer);
    if (st != kelStatusOk) return st;
    cv::filter2D(src, theirs, -1, kernel_of(m), cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
    for (int y = 0; y < s.height; ++y)
        if (std::memcmp(ours.ptr(y), theirs.ptr(y), ours.cols * ours.elemSize()) != 0) return kelStatusBadArg;
    return kelStatusOk;
}

std::string row_name(const char* exportName, KeliMaskSize mask)
{
    return std::string(exportName) + (mask == kelMaskSize3x3 ? "[3x3]" : "[5x5]");
}

template <class T, class F> void keli_row(const std::string& name, F fn, Query query, Mask m, KeliMaskSize mask, int channels)
{
    const int pixelBytes = 2 * channels * int(sizeof(T));
    bench::keli(name, pixelBytes, [=](bench::Size s) {
        const auto& im = bench::images<T>(s, channels, 2);
        int size = 0;
        query(bench::roi(s), mask, kel_type<T>(), kel_type<T>(), channels, &size);
        auto buffer = std::make_shared<std::vector<Kel8u>>(size);
        const KelStatus agreed = agrees_with_filter2d<T>(fn, m, mask, channels, s, buffer->data());
        return bench::Call([&im, s, mask, fn, buffer, agreed] {
            if (agreed != kelStatusOk) return int(agreed);
            return int(call<T>(fn, bench::data<T>(im[0]), im[0].step, bench::data<T>(im[1]), im[1].step,
                               bench::roi(s), mask, buffer->data()));
        });
    });
}

template <class T, class F>
void rows_of(const char* exportName, F fn, Query query, Mask m, KeliMaskSize mask, int channels)
{
    const std::string name = row_name(exportName, mask);
    keli_row<T>(name, fn, query, m, mask, channels);
    bench::peer("opencv:filter2D", name, 2 * channels * int(sizeof(T)), [=](bench::Size s) {
        const auto& im = bench::images<T>(s, channels, 2);
        return bench::Call([a = im[0].mat(), d = im[1].mat(), k = kernel_of(m)]() mutable {
            cv::filter2D(a, d, -1, k, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
            bench::keep(d.data);
            return 0;
        });
    });
}

const bench::Rows rows([] {
    rows_of<Kel8u>("keliFilterLaplaceBorder_8u_C1R", Fn<Kel8u>(keliFilterLaplaceBorder_8u_C1R),
                   keliFilterLaplaceBorderGetBufferSize, Mask::Laplace3, kelMaskSize3x3, 1);
    rows_of<Kel8u>("keliFilterLaplaceBorder_8u_C1R", Fn<Kel8u>(keliFilterLaplaceBorder_8u_C1R),
                   keliFilterLaplaceBorderGetBufferSize, Mask::Laplace5, kelMaskSize5x5, 1);
    rows_of<Kel8u>("keliFilterHipassBorder_8u_C1R", Fn<Kel8u>(keliFilterHipassBorder_8u_C1R),
                   keliFilterHipassBorderGetBufferSize, Mask::Hipass5, kelMaskSize5x5, 1);
    rows_of<Kel8u>("keliFilterSharpenBorder_8u_C3R", FnC<Kel8u>(keliFilterSharpenBorder_8u_C3R),
                   keliFilterSharpenBorderGetBufferSize, Mask::Sharpen3, kelMaskSize3x3, 3);
    rows_of<Kel16s>("keliFilterLaplaceBorder_16s_C1R", Fn<Kel16s>(keliFilterLaplaceBorder_16s_C1R),
                    keliFilterLaplaceBorderGetBufferSize, Mask::Laplace3, kelMaskSize3x3, 1);
    rows_of<Kel32f>("keliFilterLaplaceBorder_32f_C4R", FnC<Kel32f>(keliFilterLaplaceBorder_32f_C4R),
                    keliFilterLaplaceBorderGetBufferSize, Mask::Laplace3, kelMaskSize3x3, 4);
    {
        // A reference beside the 8u 3x3 Laplace, not the same job: cv::Laplacian's own mask.
        const std::string name = "keliFilterLaplaceBorder_8u_C1R[3x3,Laplacian]";
        keli_row<Kel8u>(name, Fn<Kel8u>(keliFilterLaplaceBorder_8u_C1R), keliFilterLaplaceBorderGetBufferSize,
                        Mask::Laplace3, kelMaskSize3x3, 1);
        bench::peer("opencv:Laplacian", name, 2, [](bench::Size s) {
            const auto& im = bench::images<Kel8u>(s, 1, 2);
            return bench::Call([a = im[0].mat(), d = im[1].mat()]() mutable {
                cv::Laplacian(a, d, -1, 3, 1, 0, cv::BORDER_REPLICATE);
                bench::keep(d.data);
                return 0;
            });
        });
    }
});

}  // namespace
