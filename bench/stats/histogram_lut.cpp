// Histograms and lookups against OpenCV: calcHist with 256 uniform bins over [0, 256) (and
// over a float range for 32f), LUT with a three-channel table for the C3 lookup and a plain
// table for the palette, and memcpy of the same bytes for the lookups, which stream.
#include <memory>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "common/bench.hpp"

namespace {

// A uniform histogram spec with `bins` bins over [lower, upper), and its work buffer.
struct HistSpec {
    std::vector<Kel8u> spec, buffer;
    std::vector<Kel32u> hist;
    HistSpec(KelDataType type, float lower, float upper, int bins)
    {
        int n = bins + 1, specSize = 0, bufferSize = 0;
        keliHistogramGetBufferSize(type, {1, 1}, &n, 1, 1, &specSize, &bufferSize);
        spec.resize(specSize);
        buffer.resize(bufferSize + 1);
        hist.resize(bins);
        keliHistogramUniformInit(type, &lower, &upper, &n, 1, spec.data());
    }
};

void calc_hist_peer(const std::string& name, int depth, float lower, float upper, int bytesPerPixel)
{
    bench::peer("opencv:calcHist", name, bytesPerPixel, [=](bench::Size s) {
        const auto& im = depth == CV_8U ? bench::images<Kel8u>(s, 1, 1) : bench::images<Kel32f>(s, 1, 1);
        auto hist = std::make_shared<cv::Mat>(256, 1, CV_32F);
        return bench::Call([src = im[0].mat(), hist, lower, upper] {
            const int channels[] = {0}, sizes[] = {256};
            const float range[] = {lower, upper};
            const float* ranges[] = {range};
            cv::calcHist(&src, 1, channels, cv::noArray(), *hist, 1, sizes, ranges, true, false);
            return 0;
        });
    });
}

void histogram_rows()
{
    bench::keli("keliHistogram_8u_C1R", 1, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 1, 1);
        auto h = std::make_shared<HistSpec>(kel8u, 0.f, 256.f, 256);
        return bench::Call([&im, h, s] {
            return keliHistogram_8u_C1R(bench::data<Kel8u>(im[0]), im[0].step, bench::roi(s), h->hist.data(),
                                        h->spec.data(), h->buffer.data());
        });
    });
    calc_hist_peer("keliHistogram_8u_C1R", CV_8U, 0.f, 256.f, 1);

    // The benchmark images hold floats over a wide range: 256 bins across it.
    bench::keli("keliHistogram_32f_C1R", 4, [](bench::Size s) {
        const auto& im = bench::images<Kel32f>(s, 1, 1);
        double lo = 0, hi = 0;
        cv::minMaxLoc(im[0].mat(), &lo, &hi);
        auto h = std::make_shared<HistSpec>(kel32f, float(lo), float(hi) * 1.0001f + 1e-3f, 256);
        return bench::Call([&im, h, s] {
            return keliHistogram_32f_C1R(bench::data<Kel32f>(im[0]), im[0].step, bench::roi(s), h->hist.data(), h->spec.data());
        });
    });
    bench::peer("opencv:calcHist", "keliHistogram_32f_C1R", 4, [](bench::Size s) {
        const auto& im = bench::images<Kel32f>(s, 1, 1);
        double lo = 0, hi = 0;
        cv::minMaxLoc(im[0].mat(), &lo, &hi);
        auto hist = std::make_shared<cv::Mat>(256, 1, CV_32F);
        return bench::Call([src = im[0].mat(), hist, lo = float(lo), hi = float(hi) * 1.0001f + 1e-3f] {
            const int channels[] = {0}, sizes[] = {256};
            const float range[] = {lo, hi};
            const float* ranges[] = {range};
            cv::calcHist(&src, 1, channels, cv::noArray(), *hist, 1, sizes, ranges, true, false);
            return 0;
        });
    });
}

// One curve per channel: an S-shaped cubic, its mirror, and a straight ramp.
std::shared_ptr<std::vector<Kel8u>> lut_spec_8u(int channels)
{
    static const Kel32s levels[5] = {0, 64, 128, 192, 256};
    static const Kel32s s[5] = {0, 30, 128, 225, 255}, m[5] = {255, 225, 128, 30, 0}, r[5] = {0, 64, 128, 192, 256};
    const Kel32s* values[4] = {s, m, r, s};
    const Kel32s* lv[4] = {levels, levels, levels, levels};
    int n[4] = {5, 5, 5, 5}, size = 0;
    keliLUT_GetSize(kelCubic, kel8u, channels, {1, 1}, n, &size);
    auto spec = std::make_shared<std::vector<Kel8u>>(size);
    keliLUT_Init_8u(kelCubic, channels, {1, 1}, values, lv, n, spec->data());
    return spec;
}

void lut_rows()
{
    bench::keli("keliLUT_8u_C3R", 6, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 3, 2);
        auto spec = lut_spec_8u(3);
        return bench::Call([&im, spec, s] {
            return keliLUT_8u_C3R(bench::data<Kel8u>(im[0]), im[0].step, bench::data<Kel8u>(im[1]), im[1].step,
                                  bench::roi(s), spec->data());
        });
    });
    bench::peer("opencv:LUT", "keliLUT_8u_C3R", 6, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 3, 2);
        cv::Mat table(1, 256, CV_8UC3);
        for (int i = 0; i < 256; ++i) table.at<cv::Vec3b>(i) = cv::Vec3b(Kel8u(i), Kel8u(255 - i), Kel8u(i / 2));
        return bench::Call([src = im[0].mat(), dst = im[1].mat(), table]() mutable {
            cv::LUT(src, table, dst);
            return 0;
        });
    });
    bench::memcpy_peer<Kel8u>("keliLUT_8u_C3R", 3);

    bench::keli("keliLUT_8u_C1R", 2, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 1, 2);
        auto spec = lut_spec_8u(1);
        return bench::Call([&im, spec, s] {
            return keliLUT_8u_C1R(bench::data<Kel8u>(im[0]), im[0].step, bench::data<Kel8u>(im[1]), im[1].step,
                                  bench::roi(s), spec->data());
        });
    });
    bench::memcpy_peer<Kel8u>("keliLUT_8u_C1R", 1);

    bench::keli("keliLUTPalette_8u_C1R", 2, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 1, 2);
        auto table = std::make_shared<std::vector<Kel8u>>(256);
        for (int i = 0; i < 256; ++i) (*table)[i] = Kel8u(255 - i);
        return bench::Call([&im, table, s] {
            return keliLUTPalette_8u_C1R(bench::data<Kel8u>(im[0]), im[0].step, bench::data<Kel8u>(im[1]), im[1].step,
                                         bench::roi(s), table->data(), 8);
        });
    });
    bench::peer("opencv:LUT", "keliLUTPalette_8u_C1R", 2, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 1, 2);
        cv::Mat table(1, 256, CV_8U);
        for (int i = 0; i < 256; ++i) table.at<Kel8u>(i) = Kel8u(255 - i);
        return bench::Call([src = im[0].mat(), dst = im[1].mat(), table]() mutable {
            cv::LUT(src, table, dst);
            return 0;
        });
    });
    bench::memcpy_peer<Kel8u>("keliLUTPalette_8u_C1R", 1);
}

const bench::Rows rows([] {
    histogram_rows();
    lut_rows();
});

}  // namespace
