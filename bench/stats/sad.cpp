// Sum of absolute differences of a 16x16 template at every position of a 640x480 frame, against
// OpenCV's template matching with squared differences on the same sizes: the same sliding-window
// job, with the 32-bit float result of OpenCV preallocated so that it does not allocate.
#include <vector>

#include <opencv2/imgproc.hpp>

#include "common/bench.hpp"

namespace {

constexpr bench::Size kFrame{640, 480}, kTemplate{16, 16};

bench::Size outputs(bench::Size s) { return {s.width - kTemplate.width + 1, s.height - kTemplate.height + 1}; }

const bench::Rows rows([] {
    const char* name = "keliSAD_8u32s_C1RSfs";
    bench::keli(
        name, 0,
        [](bench::Size s) {
            const bench::Image& src = bench::images<Kel8u>(s, 1, 1)[0];
            const bench::Image& tpl = bench::images<Kel8u>(kTemplate, 1, 1)[0];
            const bench::Image& dst = bench::images<Kel32s>(outputs(s), 1, 1)[0];
            return bench::Call([&src, &tpl, &dst, s] {
                return keliSAD_8u32s_C1RSfs(bench::data<Kel8u>(src), src.step, bench::roi(s), bench::data<Kel8u>(tpl),
                                            tpl.step, bench::roi(kTemplate), bench::data<Kel32s>(dst), dst.step,
                                            0x10000, 0, nullptr);
            });
        },
        {kFrame});
    bench::peer(
        "opencv:matchTemplate", name, 0,
        [](bench::Size s) {
            const bench::Image& src = bench::images<Kel8u>(s, 1, 1)[0];
            const bench::Image& tpl = bench::images<Kel8u>(kTemplate, 1, 1)[0];
            const bench::Image& dst = bench::images<float>(outputs(s), 1, 1)[0];
            return bench::Call([a = src.mat(), t = tpl.mat(), d = dst.mat()]() mutable {
                cv::matchTemplate(a, t, d, cv::TM_SQDIFF);
                bench::keep(d.data);
                return 0;
            });
        },
        {kFrame});
});

}  // namespace
