// Median filters against cv::medianBlur, which always replicates the border and takes square
// masks: the same job as keliFilterMedianBorder with kelBorderRepl, with OpenCV's destination
// preallocated. keli's scratch is allocated once, outside the timed loop. The cross, colour and
// weighted-centre medians have no peer: each is timed against memcpy of the bytes it moves,
// reading the interior of an image one larger by two pixels on every side.
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "common/bench.hpp"

namespace {

template <class T> using MedianFn = KelStatus (*)(const T*, int, T*, int, KeliSize, KeliSize, KeliBorderType, T, Kel8u*);
template <class T>
using MedianFnC = KelStatus (*)(const T*, int, T*, int, KeliSize, KeliSize, KeliBorderType, const T*, Kel8u*);

template <class T, class Fn> void border_rows(const char* exportName, Fn fn, int channels, int side, KelDataType type)
{
    const std::string name = std::string(exportName) + "[" + std::to_string(side) + "x" + std::to_string(side) + "]";
    const int pixelBytes = 2 * channels * int(sizeof(T));
    const KeliSize mask{side, side};
    bench::keli(name, pixelBytes, [=](bench::Size s) {
        const auto& im = bench::images<T>(s, channels, 2);
        int size = 0;
        const KelStatus st = keliFilterMedianBorderGetBufferSize(bench::roi(s), mask, type, channels, &size);
        auto buffer = std::make_shared<std::vector<Kel8u>>(st == kelStatusOk ? size : 0);
        return bench::Call([&im, s, mask, fn, buffer] {
            const T value[4] = {};
            if constexpr (std::is_same_v<Fn, MedianFn<T>>)
                return int(fn(bench::data<T>(im[0]), im[0].step, bench::data<T>(im[1]), im[1].step, bench::roi(s), mask,
                              kelBorderRepl, value[0], buffer->data()));
            else
                return int(fn(bench::data<T>(im[0]), im[0].step, bench::data<T>(im[1]), im[1].step, bench::roi(s), mask,
                              kelBorderRepl, value, buffer->data()));
        });
    });
    bench::peer("opencv:medianBlur", name, pixelBytes, [=](bench::Size s) {
        const auto& im = bench::images<T>(s, channels, 2);
        return bench::Call([a = im[0].mat(), d = im[1].mat(), side]() mutable {
            cv::medianBlur(a, d, side);
            bench::keep(d.data);
            return 0;
        });
    });
}

// A fixed-mask member on the interior of an image two pixels larger on every side.
template <class T, class Call> void fixed_rows(const char* exportName, int channels, Call call)
{
    bench::keli(exportName, 2 * channels * int(sizeof(T)), [=](bench::Size s) {
        const auto& src = bench::images<T>({s.width + 4, s.height + 4}, channels, 1)[0];
        const auto& dst = bench::images<T>(s, channels, 1)[0];
        return bench::Call([&src, &dst, s, channels, call] {
            return int(call(reinterpret_cast<const T*>(src.row(2)) + 2 * channels, src.step, bench::data<T>(dst), dst.step,
                            bench::roi(s)));
        });
    });
    bench::memcpy_peer<T>(exportName, channels);
}

const bench::Rows rows([] {
    for (int side : {3, 5, 7, 15})
        border_rows<Kel8u>("keliFilterMedianBorder_8u_C1R", MedianFn<Kel8u>(keliFilterMedianBorder_8u_C1R), 1, side, kel8u);
    border_rows<Kel8u>("keliFilterMedianBorder_8u_C3R", MedianFnC<Kel8u>(keliFilterMedianBorder_8u_C3R), 3, 5, kel8u);
    border_rows<Kel16u>("keliFilterMedianBorder_16u_C1R", MedianFn<Kel16u>(keliFilterMedianBorder_16u_C1R), 1, 5, kel16u);
    border_rows<Kel16s>("keliFilterMedianBorder_16s_C1R", MedianFn<Kel16s>(keliFilterMedianBorder_16s_C1R), 1, 5, kel16s);
    for (int side : {3, 5})
        border_rows<Kel32f>("keliFilterMedianBorder_32f_C1R", MedianFn<Kel32f>(keliFilterMedianBorder_32f_C1R), 1, side, kel32f);
    fixed_rows<Kel8u>("keliFilterMedianCross_8u_C1R", 1, [](const Kel8u* s, int ss, Kel8u* d, int ds, KeliSize r) {
        return keliFilterMedianCross_8u_C1R(s, ss, d, ds, r, kelMaskSize5x5);
    });
    fixed_rows<Kel8u>("keliFilterMedianColor_8u_C3R", 3, [](const Kel8u* s, int ss, Kel8u* d, int ds, KeliSize r) {
        return keliFilterMedianColor_8u_C3R(s, ss, d, ds, r, kelMaskSize3x3);
    });
    fixed_rows<Kel8u>("keliFilterMedianWeightedCenter3x3_8u_C1R", 1, [](const Kel8u* s, int ss, Kel8u* d, int ds, KeliSize r) {
        return keliFilterMedianWeightedCenter3x3_8u_C1R(s, ss, d, ds, r, 3);
    });
});

}  // namespace
