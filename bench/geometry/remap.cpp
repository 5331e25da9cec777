// keliRemap against cv::remap with the same interpolation, f32 maps and a transparent border
// (positions outside the source leave the destination as it was), single thread. The maps
// rotate the image by 30 degrees about its centre, so about a fifth of the destination falls
// outside the source and is passed over by both. Rows are named <export>:<kind>.
#include <cmath>

#include <opencv2/imgproc.hpp>

#include "common/bench.hpp"

namespace {

template <class T> using RemapFn = KelStatus (*)(const T*, KeliSize, int, KeliRect*, const Kel32f*, int, const Kel32f*,
                                                 int, T*, int, KeliSize, Kel32u);

// Two f32 maps of the rotation, made once per image set.
const std::vector<bench::Image>& rotation_maps(bench::Size s)
{
    const auto& maps = bench::images(s, 1, 4, CV_32F, bench::Fill::Zero, 2);
    const double a = 30.0 * 3.14159265358979323846 / 180.0, c = std::cos(a), n = std::sin(a);
    const double cx = 0.5 * (s.width - 1), cy = 0.5 * (s.height - 1);
    for (int y = 0; y < s.height; ++y) {
        auto* mx = reinterpret_cast<float*>(maps[0].row(y));
        auto* my = reinterpret_cast<float*>(maps[1].row(y));
        for (int x = 0; x < s.width; ++x) {
            mx[x] = float(cx + (x - cx) * c - (y - cy) * n);
            my[x] = float(cy + (x - cx) * n + (y - cy) * c);
        }
    }
    return maps;
}

template <class T, int C>
void remap_rows(const std::string& name, RemapFn<T> fn, const char* kindName, Kel32u kind, int cvKind)
{
    const std::string row = name + ":" + kindName;
    const int traffic = 8 + 2 * C * int(sizeof(T));  // two map values, a source and a destination pixel
    bench::keli(row, traffic, [fn, kind](bench::Size s) {
        const auto& im = bench::images<T>(s, C, 2);
        const auto& maps = rotation_maps(s);
        return bench::Call([&im, &maps, fn, kind, s] {
            KeliRect roi{0, 0, s.width, s.height};
            return fn(bench::data<T>(im[0]), bench::roi(s), im[0].step, &roi, bench::data<Kel32f>(maps[0]), maps[0].step,
                      bench::data<Kel32f>(maps[1]), maps[1].step, bench::data<T>(im[1]), im[1].step, bench::roi(s), kind);
        });
    });
    bench::peer("opencv:remap", row, traffic, [cvKind](bench::Size s) {
        const auto& im = bench::images<T>(s, C, 2);
        const auto& maps = rotation_maps(s);
        return bench::Call([src = im[0].mat(), dst = im[1].mat(), mx = maps[0].mat(), my = maps[1].mat(), cvKind]() mutable {
            cv::remap(src, dst, mx, my, cvKind, cv::BORDER_TRANSPARENT);
            return 0;
        });
    });
}

const bench::Rows rows([] {
    remap_rows<Kel8u, 1>("keliRemap_8u_C1R", keliRemap_8u_C1R, "Linear", kelLinear, cv::INTER_LINEAR);
    remap_rows<Kel8u, 1>("keliRemap_8u_C1R", keliRemap_8u_C1R, "Nearest", kelNearest, cv::INTER_NEAREST);
    remap_rows<Kel8u, 3>("keliRemap_8u_C3R", keliRemap_8u_C3R, "Linear", kelLinear, cv::INTER_LINEAR);
    remap_rows<Kel8u, 3>("keliRemap_8u_C3R", keliRemap_8u_C3R, "Nearest", kelNearest, cv::INTER_NEAREST);
    remap_rows<Kel32f, 1>("keliRemap_32f_C1R", keliRemap_32f_C1R, "Linear", kelLinear, cv::INTER_LINEAR);
    remap_rows<Kel8u, 1>("keliRemap_8u_C1R", keliRemap_8u_C1R, "Cubic", kelCubic, cv::INTER_CUBIC);
});

}  // namespace
