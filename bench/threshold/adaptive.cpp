// keliThresholdAdaptiveBox and keliThresholdAdaptiveGauss against cv::adaptiveThreshold with the
// same mask and a replicated border, and memcpy of the same bytes. OpenCV rounds its mean to 8
// bits before comparing, so the two differ on some pixels: the rows compare speed only. Every keli
// row brings its scratch (and spec), allocated outside the timed loop.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <memory>
#include <string>
#include <vector>

#include "common/bench.hpp"

namespace {

struct Bytes {
    std::vector<Kel8u> v;
};

void rows_for(int m, bool gauss)
{
    const std::string name = std::string(gauss ? "keliThresholdAdaptiveGauss_8u_C1R@" : "keliThresholdAdaptiveBox_8u_C1R@") +
                             std::to_string(m) + "x" + std::to_string(m);
    const KeliSize mask{m, m};
    bench::keli(name, 2, [mask, gauss](bench::Size s) {
        const auto& src = bench::images<Kel8u>(s, 1, 1);
        const auto& dst = bench::images<Kel8u>(s, 1, 1);
        int specSize = 0, size = 0;
        auto spec = std::make_shared<Bytes>(), buffer = std::make_shared<Bytes>();
        if (gauss) {
            keliThresholdAdaptiveGaussGetBufferSize(bench::roi(s), mask, kel8u, 1, &specSize, &size);
            spec->v.resize(specSize);
            keliThresholdAdaptiveGaussInit(bench::roi(s), mask, kel8u, 1, 0.0f, spec->v.data());
        } else {
            keliThresholdAdaptiveBoxGetBufferSize(bench::roi(s), mask, kel8u, 1, &size);
        }
        buffer->v.resize(size);
        return bench::Call([&src, &dst, s, mask, gauss, spec, buffer] {
            const Kel8u* a = bench::data<Kel8u>(src[0]);
            Kel8u* b = bench::data<Kel8u>(dst[0]);
            return gauss ? keliThresholdAdaptiveGauss_8u_C1R(a, src[0].step, b, dst[0].step, bench::roi(s), 5.0f, 255, 0,
                                                             kelBorderRepl, 0, spec->v.data(), buffer->v.data())
                         : keliThresholdAdaptiveBox_8u_C1R(a, src[0].step, b, dst[0].step, bench::roi(s), mask, 5.0f, 255,
                                                           0, kelBorderRepl, 0, buffer->v.data());
        });
    });
    bench::peer("opencv:adaptiveThreshold", name, 2, [m, gauss](bench::Size s) {
        const auto& src = bench::images<Kel8u>(s, 1, 1);
        const auto& dst = bench::images<Kel8u>(s, 1, 1);
        return bench::Call([a = src[0].mat(), b = dst[0].mat(), m, gauss]() mutable {
            cv::adaptiveThreshold(a, b, 255, gauss ? cv::ADAPTIVE_THRESH_GAUSSIAN_C : cv::ADAPTIVE_THRESH_MEAN_C,
                                  cv::THRESH_BINARY, m, 5.0);
            return 0;
        });
    });
    bench::memcpy_peer<Kel8u>(name, 1);
}

const bench::Rows rows([] {
    for (int m : {3, 5, 15}) rows_for(m, false);
    rows_for(5, true);
});

}  // namespace
