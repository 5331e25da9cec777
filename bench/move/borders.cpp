// Border copies against cv::copyMakeBorder (replicate, reflect-101, constant) with a frame of
// 16 pixels on every side, and memcpy of the source rows (the streaming bound).
#include <opencv2/core.hpp>

#include "common/bench.hpp"

namespace {

constexpr int kFrame = 16;

bench::Size framed(bench::Size s) { return {s.width + 2 * kFrame, s.height + 2 * kFrame}; }

template <class T, int C, class Fn>
void border_rows(const char* name, const char* peerName, int cvBorder, Fn fn)
{
    const int traffic = 2 * int(sizeof(T)) * C;
    bench::keli(name, traffic, [fn](bench::Size s) {
        const auto& src = bench::images<T>(s, C, 1);
        const auto& dst = bench::images<T>(framed(s), C, 1);
        return bench::Call([&src, &dst, fn, s] {
            const KeliSize big = bench::roi(framed(s));
            return fn(bench::data<T>(src[0]), src[0].step, bench::roi(s), bench::data<T>(dst[0]), dst[0].step, big,
                      kFrame, kFrame);
        });
    });
    bench::peer(peerName, name, traffic, [cvBorder](bench::Size s) {
        const auto& src = bench::images<T>(s, C, 1);
        const auto& dst = bench::images<T>(framed(s), C, 1);
        return bench::Call([in = src[0].mat(), out = dst[0].mat(), cvBorder]() mutable {
            cv::copyMakeBorder(in, out, kFrame, kFrame, kFrame, kFrame, cvBorder, cv::Scalar(30, 60, 200));
            return 0;
        });
    });
    bench::memcpy_peer<T>(name, C);
}

const bench::Rows rows([] {
    border_rows<Kel8u, 1>("keliCopyReplicateBorder_8u_C1R", "opencv:copyMakeBorder", cv::BORDER_REPLICATE,
                          keliCopyReplicateBorder_8u_C1R);
    border_rows<Kel8u, 1>("keliCopyMirrorBorder_8u_C1R", "opencv:copyMakeBorder", cv::BORDER_REFLECT_101,
                          keliCopyMirrorBorder_8u_C1R);
    border_rows<Kel8u, 3>("keliCopyConstBorder_8u_C3R", "opencv:copyMakeBorder", cv::BORDER_CONSTANT,
                          [](const Kel8u* s, int ss, KeliSize sr, Kel8u* d, int ds, KeliSize dr, int t, int l) {
                              static const Kel8u blue[3] = {30, 60, 200};
                              return keliCopyConstBorder_8u_C3R(s, ss, sr, d, ds, dr, t, l, blue);
                          });
});

}  // namespace
