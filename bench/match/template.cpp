// Template matching against cv::matchTemplate, valid shape: keliCrossCorrNorm_8u32f_C1R with
// the centred normalisation against TM_CCOEFF_NORMED, keliSqrDistanceNorm_8u32f_C1R with 0x100
// against TM_SQDIFF_NORMED, on 8u images with 16x16 and 64x64 templates (rows named
// `<export>[16x16]`, `<export>[64x64]`). Both write a preallocated f32 result.
#include <memory>
#include <opencv2/imgproc.hpp>
#include <string>

#include "common/bench.hpp"

namespace {

const std::vector<bench::Size> kSizes = {{256, 256}, {1920, 1080}};
constexpr int kValid = 0x10000;

using MatchFn = KelStatus (*)(const Kel8u*, int, KeliSize, const Kel8u*, int, KeliSize, Kel32f*, int, int, Kel8u*);
using SizeFn = KelStatus (*)(KeliSize, KeliSize, int, int*);

void rows_of(const std::string& name, MatchFn fn, SizeFn sizeFn, int norm, int cvMethod, int side)
{
    const int alg = kValid | norm;
    const int traffic = 5;  // 8u read, f32 written
    bench::keli(name, traffic, [=](bench::Size s) {
        const auto& src = bench::images<Kel8u>(s, 1, 1);
        const auto& tpl = bench::images<Kel8u>({side, side}, 1, 1);
        const auto& dst = bench::images<float>({s.width - side + 1, s.height - side + 1}, 1, 1);
        int size = 0;
        sizeFn(bench::roi(s), {side, side}, alg, &size);
        auto buffer = std::make_shared<std::vector<Kel8u>>(size);
        return bench::Call([&src, &tpl, &dst, fn, s, side, alg, buffer] {
            return fn(bench::data<Kel8u>(src[0]), src[0].step, bench::roi(s), bench::data<Kel8u>(tpl[0]), tpl[0].step,
                      {side, side}, bench::data<float>(dst[0]), dst[0].step, alg, buffer->data());
        });
    }, kSizes);
    bench::peer("opencv:matchTemplate", name, traffic, [=](bench::Size s) {
        const auto& src = bench::images<Kel8u>(s, 1, 1);
        const auto& tpl = bench::images<Kel8u>({side, side}, 1, 1);
        const auto& dst = bench::images<float>({s.width - side + 1, s.height - side + 1}, 1, 1);
        return bench::Call([in = src[0].mat(), t = tpl[0].mat(), out = dst[0].mat(), cvMethod]() mutable {
            cv::matchTemplate(in, t, out, cvMethod);
            return 0;
        });
    }, kSizes);
}

const bench::Rows rows([] {
    for (int side : {16, 64}) {
        const std::string suffix = "[" + std::to_string(side) + "x" + std::to_string(side) + "]";
        rows_of("keliCrossCorrNorm_8u32f_C1R" + suffix, keliCrossCorrNorm_8u32f_C1R, keliCrossCorrNormGetBufferSize, 0x200,
                cv::TM_CCOEFF_NORMED, side);
        rows_of("keliSqrDistanceNorm_8u32f_C1R" + suffix, keliSqrDistanceNorm_8u32f_C1R, keliSqrDistanceNormGetBufferSize,
                0x100, cv::TM_SQDIFF_NORMED, side);
    }
});

}  // namespace
