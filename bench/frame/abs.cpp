// keliAbs against OpenCV's absdiff with a zero scalar (the same result for every element
// but 16s -32768, which OpenCV also saturates), and memcpy of the same bytes.
#include <opencv2/core.hpp>

#include "common/bench.hpp"

namespace {

template <class T>
using AbsFn = KelStatus (*)(const T*, int, T*, int, KeliSize);

template <class T, int C> void abs_rows(const char* name, AbsFn<T> fn)
{
    const int traffic = 2 * int(sizeof(T)) * C;
    bench::keli(name, traffic, [fn](bench::Size s) {
        const auto& im = bench::images<T>(s, C, 2);
        return bench::Call([&im, fn, s] { return fn(bench::data<T>(im[0]), im[0].step, bench::data<T>(im[1]), im[1].step, bench::roi(s)); });
    });
    bench::peer("opencv:absdiff", name, traffic, [](bench::Size s) {
        const auto& im = bench::images<T>(s, C, 2);
        return bench::Call([src = im[0].mat(), dst = im[1].mat()]() mutable {
            cv::absdiff(src, cv::Scalar::all(0), dst);
            return 0;
        });
    });
    bench::memcpy_peer<T>(name, C);
}

const bench::Rows rows([] {
    abs_rows<Kel16s, 1>("keliAbs_16s_C1R", keliAbs_16s_C1R);
    abs_rows<Kel32f, 1>("keliAbs_32f_C1R", keliAbs_32f_C1R);
    abs_rows<Kel16s, 3>("keliAbs_16s_C3R", keliAbs_16s_C3R);
    abs_rows<Kel32f, 3>("keliAbs_32f_C3R", keliAbs_32f_C3R);
});

}  // namespace
