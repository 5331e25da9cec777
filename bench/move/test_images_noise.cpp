// keliAddRandUniform and keliAddRandGauss against OpenCV's random fills followed by an add of
// the noise (cv::randu into 16s and cv::randn into 16s, then cv::add with saturation to 8u),
// and keliImageRamp against memset of the same bytes.
#include <opencv2/core.hpp>

#include "common/bench.hpp"

namespace {

void noise_rows()
{
    const char* uniform = "keliAddRandUniform_8u_C1IR";
    bench::keli(uniform, 2, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 1, 1);
        return bench::Call([&im, s, seed = Kel32u(1)]() mutable {
            return keliAddRandUniform_8u_C1IR(bench::data<Kel8u>(im[0]), im[0].step, bench::roi(s), 0, 20, &seed);
        });
    });
    bench::peer("opencv:randu+add", uniform, 2, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 1, 1);
        const auto& noise = bench::images<Kel16s>(s, 1, 1);
        return bench::Call([img = im[0].mat(), n = noise[0].mat()]() mutable {
            cv::randu(n, cv::Scalar(0), cv::Scalar(20));
            cv::add(img, n, img, cv::noArray(), CV_8U);
            return 0;
        });
    });
    const char* gauss = "keliAddRandGauss_8u_C1IR";
    bench::keli(gauss, 2, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 1, 1);
        return bench::Call([&im, s, seed = Kel32u(1)]() mutable {
            return keliAddRandGauss_8u_C1IR(bench::data<Kel8u>(im[0]), im[0].step, bench::roi(s), 0, 10, &seed);
        });
    });
    bench::peer("opencv:randn+add", gauss, 2, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 1, 1);
        const auto& noise = bench::images<Kel16s>(s, 1, 1);
        return bench::Call([img = im[0].mat(), n = noise[0].mat()]() mutable {
            cv::randn(n, cv::Scalar(0), cv::Scalar(10));
            cv::add(img, n, img, cv::noArray(), CV_8U);
            return 0;
        });
    });
}

void image_rows()
{
    const char* ramp = "keliImageRamp_8u_C1R";
    bench::keli(ramp, 1, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 1, 1);
        return bench::Call([&im, s] {
            return keliImageRamp_8u_C1R(bench::data<Kel8u>(im[0]), im[0].step, bench::roi(s), 0.0f, 0.0625f, kelAxisHorizontal);
        });
    });
    bench::memset_peer<Kel8u>(ramp, 1);
    const char* jaehne = "keliImageJaehne_8u_C1R";
    bench::keli(jaehne, 1, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 1, 1);
        return bench::Call([&im, s] { return keliImageJaehne_8u_C1R(bench::data<Kel8u>(im[0]), im[0].step, bench::roi(s)); });
    });
    bench::memset_peer<Kel8u>(jaehne, 1);
}

const bench::Rows rows([] {
    noise_rows();
    image_rows();
});

}  // namespace
