// Derivative masks and gradient vectors against the OpenCV calls that compute the same numbers
// with a replicated border: cv::Sobel (dx = 1 with scale -1 is Sobel vertical, dy = 1 Sobel
// horizontal), cv::Scharr, cv::filter2D with the Prewitt and Roberts masks, cv::spatialGradient
// (-gx, gy), and two cv::Sobel calls followed by cv::cartToPolar or cv::magnitude. Every keli
// row brings its scratch buffer, allocated outside the timed loop, and every OpenCV row writes
// into preallocated images.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <memory>
#include <vector>

#include "common/bench.hpp"

namespace {

using Buffer = std::shared_ptr<std::vector<Kel8u>>;

template <class S, class D>
using Derivative = KelStatus (*)(const S*, int, D*, int, KeliSize, KeliMaskSize, KeliBorderType, S, Kel8u*);

template <class S, class D>
void derivative_row(const std::string& name, KeliMaskSize mask, KelStatus (*query)(KeliSize, KeliMaskSize, KelDataType, KelDataType, int, int*),
                    KelDataType st, KelDataType dt, Derivative<S, D> fn)
{
    bench::keli(name, int(sizeof(S) + sizeof(D)), [=](bench::Size s) {
        const auto& src = bench::images<S>(s, 1, 1);
        const auto& dst = bench::images<D>(s, 1, 1);
        int size = 0;
        query(bench::roi(s), mask, st, dt, 1, &size);
        auto buffer = std::make_shared<std::vector<Kel8u>>(size);
        return bench::Call([&src, &dst, s, mask, fn, buffer] {
            return fn(bench::data<S>(src[0]), src[0].step, bench::data<D>(dst[0]), dst[0].step, bench::roi(s), mask,
                      kelBorderRepl, 0, buffer->data());
        });
    });
}

// An OpenCV peer of one input and one preallocated output.
template <class S, class D, class Op> void cv_row(const char* peer, const std::string& name, Op op)
{
    bench::peer(peer, name, int(sizeof(S) + sizeof(D)), [op](bench::Size s) {
        const auto& src = bench::images<S>(s, 1, 1);
        const auto& dst = bench::images<D>(s, 1, 1);
        return bench::Call([a = src[0].mat(), b = dst[0].mat(), op]() mutable {
            op(a, b);
            return 0;
        });
    });
}

void gradient_rows()
{
    // Sobel gx, gy of 8u against cv::spatialGradient (replicated border, 3x3).
    const char* name = "keliGradientVectorSobel_8u16s_C1R@gxgy";
    bench::keli(name, 5, [](bench::Size s) {
        const auto& src = bench::images<Kel8u>(s, 1, 1);
        const auto& gx = bench::images<Kel16s>(s, 1, 1);
        const auto& gy = bench::images<Kel16s>(s, 1, 2);
        int size = 0;
        keliGradientVectorGetBufferSize(bench::roi(s), kelMaskSize3x3, kel8u, 1, &size);
        auto buffer = std::make_shared<std::vector<Kel8u>>(size);
        return bench::Call([&, s, buffer] {
            return keliGradientVectorSobel_8u16s_C1R(bench::data<Kel8u>(src[0]), src[0].step, bench::data<Kel16s>(gx[0]),
                                                     gx[0].step, bench::data<Kel16s>(gy[1]), gy[1].step, nullptr, 0,
                                                     nullptr, 0, bench::roi(s), kelMaskSize3x3, kelNormL2, kelBorderRepl,
                                                     0, buffer->data());
        });
    });
    bench::peer("opencv:spatialGradient", name, 5, [](bench::Size s) {
        const auto& src = bench::images<Kel8u>(s, 1, 1);
        const auto& g = bench::images<Kel16s>(s, 1, 2);
        return bench::Call([a = src[0].mat(), x = g[0].mat(), y = g[1].mat()]() mutable {
            cv::spatialGradient(a, x, y, 3, cv::BORDER_REPLICATE);
            return 0;
        });
    });

    // Sobel 32f, all four outputs, against two cv::Sobel and cv::cartToPolar.
    const char* four = "keliGradientVectorSobel_32f_C1R@four";
    bench::keli(four, 20, [](bench::Size s) {
        const auto& src = bench::images<Kel32f>(s, 1, 1);
        const auto& out = bench::images<Kel32f>(s, 1, 4);
        int size = 0;
        keliGradientVectorGetBufferSize(bench::roi(s), kelMaskSize3x3, kel32f, 1, &size);
        auto buffer = std::make_shared<std::vector<Kel8u>>(size);
        return bench::Call([&, s, buffer] {
            return keliGradientVectorSobel_32f_C1R(
                bench::data<Kel32f>(src[0]), src[0].step, bench::data<Kel32f>(out[0]), out[0].step,
                bench::data<Kel32f>(out[1]), out[1].step, bench::data<Kel32f>(out[2]), out[2].step,
                bench::data<Kel32f>(out[3]), out[3].step, bench::roi(s), kelMaskSize3x3, kelNormL2, kelBorderRepl, 0,
                buffer->data());
        });
    });
    bench::peer("opencv:Sobel+cartToPolar", four, 20, [](bench::Size s) {
        const auto& src = bench::images<Kel32f>(s, 1, 1);
        const auto& out = bench::images<Kel32f>(s, 1, 4);
        return bench::Call([a = src[0].mat(), x = out[0].mat(), y = out[1].mat(), m = out[2].mat(),
                            t = out[3].mat()]() mutable {
            cv::Sobel(a, x, CV_32F, 1, 0, 3, -1, 0, cv::BORDER_REPLICATE);
            cv::Sobel(a, y, CV_32F, 0, 1, 3, 1, 0, cv::BORDER_REPLICATE);
            cv::cartToPolar(x, y, m, t, false);
            return 0;
        });
    });

    // The Sobel magnitude alone against two cv::Sobel and cv::magnitude.
    const char* magnitude = "keliFilterSobel_32f_C1R@L2";
    bench::keli(magnitude, 8, [](bench::Size s) {
        const auto& src = bench::images<Kel32f>(s, 1, 1);
        const auto& out = bench::images<Kel32f>(s, 1, 1);
        int size = 0;
        keliFilterSobelGetBufferSize(bench::roi(s), kelMaskSize3x3, kelNormL2, kel32f, kel32f, 1, &size);
        auto buffer = std::make_shared<std::vector<Kel8u>>(size);
        return bench::Call([&, s, buffer] {
            return keliFilterSobel_32f_C1R(bench::data<Kel32f>(src[0]), src[0].step, bench::data<Kel32f>(out[0]),
                                           out[0].step, bench::roi(s), kelMaskSize3x3, kelNormL2, kelBorderRepl, 0,
                                           buffer->data());
        });
    });
    bench::peer("opencv:Sobel+magnitude", magnitude, 8, [](bench::Size s) {
        const auto& src = bench::images<Kel32f>(s, 1, 1);
        const auto& out = bench::images<Kel32f>(s, 1, 3);
        return bench::Call([a = src[0].mat(), x = out[0].mat(), y = out[1].mat(), m = out[2].mat()]() mutable {
            cv::Sobel(a, x, CV_32F, 1, 0, 3, -1, 0, cv::BORDER_REPLICATE);
            cv::Sobel(a, y, CV_32F, 0, 1, 3, 1, 0, cv::BORDER_REPLICATE);
            cv::magnitude(x, y, m);
            return 0;
        });
    });
}

const bench::Rows rows([] {
    const auto sobel = [](const char* name, KeliMaskSize mask, auto fn, auto query, int dx, int dy, double scale,
                          int ddepth, auto s, auto d, KelDataType st, KelDataType dt) {
        using S = decltype(s);
        using D = decltype(d);
        derivative_row<S, D>(name, mask, query, st, dt, fn);
        const int k = mask == kelMaskSize5x5 ? 5 : 3;
        cv_row<S, D>("opencv:Sobel", name, [=](cv::Mat& a, cv::Mat& b) {
            cv::Sobel(a, b, ddepth, dx, dy, k, scale, 0, cv::BORDER_REPLICATE);
        });
    };
    const Kel8u u8 = 0;
    const Kel16s s16 = 0;
    const Kel32f f32 = 0;
    sobel("keliFilterSobelVertBorder_8u16s_C1R@3x3", kelMaskSize3x3, keliFilterSobelVertBorder_8u16s_C1R,
          keliFilterSobelVertBorderGetBufferSize, 1, 0, -1.0, CV_16S, u8, s16, kel8u, kel16s);
    sobel("keliFilterSobelVertBorder_8u16s_C1R@5x5", kelMaskSize5x5, keliFilterSobelVertBorder_8u16s_C1R,
          keliFilterSobelVertBorderGetBufferSize, 1, 0, -1.0, CV_16S, u8, s16, kel8u, kel16s);
    sobel("keliFilterSobelHorizBorder_8u16s_C1R@3x3", kelMaskSize3x3, keliFilterSobelHorizBorder_8u16s_C1R,
          keliFilterSobelHorizBorderGetBufferSize, 0, 1, 1.0, CV_16S, u8, s16, kel8u, kel16s);
    sobel("keliFilterSobelHorizBorder_8u16s_C1R@5x5", kelMaskSize5x5, keliFilterSobelHorizBorder_8u16s_C1R,
          keliFilterSobelHorizBorderGetBufferSize, 0, 1, 1.0, CV_16S, u8, s16, kel8u, kel16s);
    sobel("keliFilterSobelHorizBorder_32f_C1R@3x3", kelMaskSize3x3, keliFilterSobelHorizBorder_32f_C1R,
          keliFilterSobelHorizBorderGetBufferSize, 0, 1, 1.0, CV_32F, f32, f32, kel32f, kel32f);
    {
        const char* name = "keliFilterScharrVertMaskBorder_8u16s_C1R";
        derivative_row<Kel8u, Kel16s>(name, kelMaskSize3x3, keliFilterScharrVertMaskBorderGetBufferSize, kel8u, kel16s,
                                      keliFilterScharrVertMaskBorder_8u16s_C1R);
        cv_row<Kel8u, Kel16s>("opencv:Scharr", name, [](cv::Mat& a, cv::Mat& b) {
            cv::Scharr(a, b, CV_16S, 1, 0, 1, 0, cv::BORDER_REPLICATE);
        });
    }
    const auto masked = [](const char* name, auto fn, auto query, cv::Mat kernel) {
        derivative_row<Kel8u, Kel16s>(name, kelMaskSize3x3, query, kel8u, kel16s, fn);
        cv_row<Kel8u, Kel16s>("opencv:filter2D", name, [kernel](cv::Mat& a, cv::Mat& b) {
            cv::filter2D(a, b, CV_16S, kernel, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
        });
    };
    masked("keliFilterPrewittVertBorder_8u16s_C1R", keliFilterPrewittVertBorder_8u16s_C1R,
           keliFilterPrewittVertBorderGetBufferSize, (cv::Mat_<float>(3, 3) << 1, 0, -1, 1, 0, -1, 1, 0, -1));
    masked("keliFilterRobertsDownBorder_8u16s_C1R", keliFilterRobertsDownBorder_8u16s_C1R,
           keliFilterRobertsDownBorderGetBufferSize, (cv::Mat_<float>(3, 3) << -1, 0, 0, 0, 1, 0, 0, 0, 0));
    gradient_rows();
});

}  // namespace
