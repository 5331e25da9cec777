// keliMoments64f against cv::moments on the same single-channel image. Both compute the ten
// raw sums; OpenCV goes on to its central and normalised moments, a fixed handful of
// operations a call. OpenCV sums 8-bit images in integers, keli in doubles throughout.
#include <opencv2/imgproc.hpp>

#include "common/bench.hpp"

namespace {

template <class T> using MomentFn = KelStatus (*)(const T*, int, KeliSize, Kel8u*);

template <class T> void moment_rows(const char* name, MomentFn<T> fn)
{
    bench::keli(name, int(sizeof(T)), [fn](bench::Size s) {
        const auto& src = bench::images<T>(s, 1, 1);
        return bench::Call([&src, fn, s] {
            alignas(8) Kel8u state[400];
            keliMomentInit_64f(state, kelAlgHintNone);
            return fn(bench::data<T>(src[0]), src[0].step, bench::roi(s), state);
        });
    });
    bench::peer("opencv:moments", name, int(sizeof(T)), [](bench::Size s) {
        const auto& src = bench::images<T>(s, 1, 1);
        return bench::Call([a = src[0].mat()] {
            bench::keep(cv::moments(a, false));
            return 0;
        });
    });
    bench::memchr_peer(name, int(sizeof(T)));
}

const bench::Rows rows([] {
    moment_rows<Kel8u>("keliMoments64f_8u_C1R", keliMoments64f_8u_C1R);
    moment_rows<Kel32f>("keliMoments64f_32f_C1R", keliMoments64f_32f_C1R);
});

}  // namespace
