// Border copies against cv::copyMakeBorder (replicate, reflect-101, constant) with a frame of
// 16 pixels on every side, and memcpy of the source rows (the streaming bound); rows named
// "<export>@f<k>" do the same with a frame of k pixels, where a row's fixed costs show most.
#include <opencv2/core.hpp>

#include <string>

#include "common/bench.hpp"

namespace {

bench::Size framed(bench::Size s, int frame) { return {s.width + 2 * frame, s.height + 2 * frame}; }

template <class T, int C, class Fn>
void border_rows(const std::string& name, const char* peerName, int cvBorder, int frame, Fn fn)
{
    const int traffic = 2 * int(sizeof(T)) * C;
    bench::keli(name, traffic, [fn, frame](bench::Size s) {
        const auto& src = bench::images<T>(s, C, 1);
        const auto& dst = bench::images<T>(framed(s, frame), C, 1);
        return bench::Call([&src, &dst, fn, s, frame] {
            const KeliSize big = bench::roi(framed(s, frame));
            return fn(bench::data<T>(src[0]), src[0].step, bench::roi(s), bench::data<T>(dst[0]), dst[0].step, big,
                      frame, frame);
        });
    });
    bench::peer(peerName, name, traffic, [cvBorder, frame](bench::Size s) {
        const auto& src = bench::images<T>(s, C, 1);
        const auto& dst = bench::images<T>(framed(s, frame), C, 1);
        return bench::Call([in = src[0].mat(), out = dst[0].mat(), cvBorder, frame]() mutable {
            cv::copyMakeBorder(in, out, frame, frame, frame, frame, cvBorder, cv::Scalar(30, 60, 200));
            return 0;
        });
    });
    bench::memcpy_peer<T>(name, C);
}

const bench::Rows rows([] {
    for (int frame : {16, 1, 4}) {
        const std::string suffix = frame == 16 ? "" : "@f" + std::to_string(frame);
        border_rows<Kel8u, 1>("keliCopyReplicateBorder_8u_C1R" + suffix, "opencv:copyMakeBorder", cv::BORDER_REPLICATE,
                              frame, keliCopyReplicateBorder_8u_C1R);
        border_rows<Kel8u, 1>("keliCopyMirrorBorder_8u_C1R" + suffix, "opencv:copyMakeBorder", cv::BORDER_REFLECT_101,
                              frame, keliCopyMirrorBorder_8u_C1R);
        border_rows<Kel8u, 3>("keliCopyConstBorder_8u_C3R" + suffix, "opencv:copyMakeBorder", cv::BORDER_CONSTANT, frame,
                              [](const Kel8u* s, int ss, KeliSize sr, Kel8u* d, int ds, KeliSize dr, int t, int l) {
                                  static const Kel8u blue[3] = {30, 60, 200};
                                  return keliCopyConstBorder_8u_C3R(s, ss, sr, d, ds, dr, t, l, blue);
                              });
    }
});

}  // namespace
