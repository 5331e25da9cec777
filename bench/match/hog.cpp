// The histogram of oriented gradients against cv::HOGDescriptor::compute with the same explicit
// location list: the common detector shape (window 64x128, cells 8, blocks 16, stride 8, 9
// bins), a window every 8 pixels, on a VGA and an HD frame.
#include <opencv2/objdetect.hpp>

#include <memory>
#include <vector>

#include "common/bench.hpp"

namespace {

const std::vector<bench::Size> kFrames = {{640, 480}, {1920, 1080}};
const KeliHOGConfig kConfig = {0, 8, 16, 8, 9, 4.0f, 0.2f, 64, 128};

std::vector<KeliPoint> every_8_pixels(bench::Size s)
{
    std::vector<KeliPoint> at;
    for (int y = 0; y + kConfig.winHeight <= s.height; y += 8)
        for (int x = 0; x + kConfig.winWidth <= s.width; x += 8) at.push_back({x, y});
    return at;
}

struct Prepared {
    std::vector<unsigned char> spec, buffer;
    std::vector<float> out;
    std::vector<KeliPoint> at;
};

template <int C, class Fn> void rows_for(const std::string& name, Fn fn)
{
    bench::keli(name, 0, [fn](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, C, 1);
        auto p = std::make_shared<Prepared>();
        int specSize = 0, bufferSize = 0, descriptorBytes = 0;
        keliHOGGetSize(&kConfig, &specSize);
        p->spec.resize(specSize);
        auto* spec = reinterpret_cast<KeliHOGSpec*>(p->spec.data());
        keliHOGInit(&kConfig, spec);
        keliHOGGetBufferSize(spec, bench::roi(s), &bufferSize);
        keliHOGGetDescriptorSize(spec, &descriptorBytes);
        p->buffer.resize(bufferSize);
        p->at = every_8_pixels(s);
        p->out.resize(p->at.size() * descriptorBytes / 4);
        bench::touches(std::int64_t(p->out.size()) * 4);
        return bench::Call([&im, p, fn, s] {
            const Kel8u value[3] = {0, 0, 0};
            if constexpr (C == 1)
                return fn(bench::data<Kel8u>(im[0]), im[0].step, bench::roi(s), p->at.data(), int(p->at.size()),
                          p->out.data(), reinterpret_cast<const KeliHOGSpec*>(p->spec.data()), kelBorderMirror, 0,
                          p->buffer.data());
            else
                return fn(bench::data<Kel8u>(im[0]), im[0].step, bench::roi(s), p->at.data(), int(p->at.size()),
                          p->out.data(), reinterpret_cast<const KeliHOGSpec*>(p->spec.data()), kelBorderMirror, value,
                          p->buffer.data());
        });
    }, kFrames);
    bench::peer("opencv:HOGDescriptor", name, 0, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, C, 1);
        auto hog = std::make_shared<cv::HOGDescriptor>(cv::Size(64, 128), cv::Size(16, 16), cv::Size(8, 8),
                                                       cv::Size(8, 8), 9);
        hog->gammaCorrection = false;
        std::vector<cv::Point> at;
        for (const KeliPoint& p : every_8_pixels(s)) at.emplace_back(p.x, p.y);
        auto out = std::make_shared<std::vector<float>>();
        bench::touches(std::int64_t(at.size()) * hog->getDescriptorSize() * 4);
        return bench::Call([in = im[0].mat(), hog, at, out] {
            hog->compute(in, *out, cv::Size(8, 8), cv::Size(0, 0), at);
            return 0;
        });
    }, kFrames);
}

const bench::Rows rows([] {
    rows_for<1>("keliHOG_8u32f_C1R", keliHOG_8u32f_C1R);
    rows_for<3>("keliHOG_8u32f_C3R", keliHOG_8u32f_C3R);
});

}  // namespace
