// keliMirror and keliTranspose against cv::flip and cv::transpose, and memcpy of the same bytes.
#include <opencv2/core.hpp>

#include <string>

#include "common/bench.hpp"

namespace {

template <class T> using MirrorFn = KelStatus (*)(const T*, int, T*, int, KeliSize, KeliAxis);
template <class T> using TransposeFn = KelStatus (*)(const T*, int, T*, int, KeliSize);

// OpenCV's flip codes of the three axes: 0 rows, 1 columns, -1 both.
constexpr int kCvFlip[] = {0, 1, -1};

template <class T, int C> void mirror_rows(const std::string& base, MirrorFn<T> fn)
{
    const int traffic = 2 * C * int(sizeof(T));
    for (int axis = 0; axis < 3; ++axis) {
        // One row name per axis: <export>/<axis> would break the name pattern, so the axis
        // goes into the export part as the flag value the caller passes.
        const std::string name = base + "@flip" + std::to_string(axis);
        bench::keli(name, traffic, [fn, axis](bench::Size s) {
            const auto& im = bench::images<T>(s, C, 2);
            return bench::Call([&im, fn, axis, s] {
                return fn(bench::data<T>(im[0]), im[0].step, bench::data<T>(im[1]), im[1].step, bench::roi(s), KeliAxis(axis));
            });
        });
        bench::peer("opencv:flip", name, traffic, [axis](bench::Size s) {
            const auto& im = bench::images<T>(s, C, 2);
            return bench::Call([src = im[0].mat(), dst = im[1].mat(), axis]() mutable {
                cv::flip(src, dst, kCvFlip[axis]);
                return 0;
            });
        });
        bench::memcpy_peer<T>(name, C);
    }
}

template <class T> void transpose_rows(const std::string& name, TransposeFn<T> fn)
{
    const int traffic = 2 * int(sizeof(T));
    // The destination is as wide as the source is high: its images come transposed.
    bench::keli(name, traffic, [fn](bench::Size s) {
        const auto& src = bench::images<T>(s, 1, 1);
        const auto& dst = bench::images<T>({s.height, s.width}, 1, 1);
        return bench::Call([&src, &dst, fn, s] {
            return fn(bench::data<T>(src[0]), src[0].step, bench::data<T>(dst[0]), dst[0].step, bench::roi(s));
        });
    });
    bench::peer("opencv:transpose", name, traffic, [](bench::Size s) {
        const auto& src = bench::images<T>(s, 1, 1);
        const auto& dst = bench::images<T>({s.height, s.width}, 1, 1);
        return bench::Call([in = src[0].mat(), out = dst[0].mat()]() mutable {
            cv::transpose(in, out);
            return 0;
        });
    });
    bench::memcpy_peer<T>(name, 1);
}

const bench::Rows rows([] {
    mirror_rows<Kel8u, 1>("keliMirror_8u_C1R", keliMirror_8u_C1R);
    mirror_rows<Kel8u, 4>("keliMirror_8u_C4R", keliMirror_8u_C4R);
    transpose_rows<Kel8u>("keliTranspose_8u_C1R", keliTranspose_8u_C1R);
    transpose_rows<Kel32f>("keliTranspose_32f_C1R", keliTranspose_32f_C1R);
});

}  // namespace
