// Minimum and maximum filters and the 64f 3x3 pair against OpenCV's erode and dilate with a
// rectangle of the same size, the same anchor ((mw - 1) / 2, (mh - 1) / 2) and a replicated
// border: the same separable job, with OpenCV's destination preallocated. keli's scratch is
// allocated once, outside the timed loop. The 64f pair reads one pixel around the region; its
// peer runs on the same interior view, with the border pixels taken from the image around it.
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "common/bench.hpp"

namespace {

template <class T>
using MinMaxFn = KelStatus (*)(const T*, int, T*, int, KeliSize, KeliSize, KeliBorderType, T, Kel8u*);
template <class T>
using MinMaxFnC = KelStatus (*)(const T*, int, T*, int, KeliSize, KeliSize, KeliBorderType, const T*, Kel8u*);

std::string row_name(const char* exportName, KeliSize mask)
{
    return std::string(exportName) + "[" + std::to_string(mask.width) + "x" + std::to_string(mask.height) + "]";
}

template <class T, class Fn>
void rows_of(const char* exportName, Fn fn, int channels, KeliSize mask, bool max, KelDataType type)
{
    const std::string name = row_name(exportName, mask);
    const int pixelBytes = 2 * channels * int(sizeof(T));
    bench::keli(name, pixelBytes, [=](bench::Size s) {
        const auto& im = bench::images<T>(s, channels, 2);
        int size = 0;
        const KelStatus st = (max ? keliFilterMaxBorderGetBufferSize : keliFilterMinBorderGetBufferSize)(
            bench::roi(s), mask, type, channels, &size);
        auto buffer = std::make_shared<std::vector<Kel8u>>(st == kelStatusOk ? size : 0);
        return bench::Call([&im, s, mask, fn, buffer] {
            const T value[4] = {};
            if constexpr (std::is_same_v<Fn, MinMaxFn<T>>)
                return int(fn(bench::data<T>(im[0]), im[0].step, bench::data<T>(im[1]), im[1].step, bench::roi(s), mask,
                              kelBorderRepl, value[0], buffer->data()));
            else
                return int(fn(bench::data<T>(im[0]), im[0].step, bench::data<T>(im[1]), im[1].step, bench::roi(s), mask,
                              kelBorderRepl, value, buffer->data()));
        });
    });
    bench::peer(std::string("opencv:") + (max ? "dilate" : "erode"), name, pixelBytes, [=](bench::Size s) {
        const auto& im = bench::images<T>(s, channels, 2);
        const cv::Mat kernel = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(mask.width, mask.height));
        const cv::Point anchor((mask.width - 1) / 2, (mask.height - 1) / 2);
        return bench::Call([a = im[0].mat(), d = im[1].mat(), kernel, anchor, max]() mutable {
            if (max) cv::dilate(a, d, kernel, anchor, 1, cv::BORDER_REPLICATE);
            else cv::erode(a, d, kernel, anchor, 1, cv::BORDER_REPLICATE);
            bench::keep(d.data);
            return 0;
        });
    });
}

void morphology_64f(const char* exportName, bool max)
{
    using Fn = KelStatus (*)(const Kel64f*, int, Kel64f*, int, KeliSize);
    const Fn fn = max ? keliDilate3x3_64f_C1R : keliErode3x3_64f_C1R;
    bench::keli(exportName, 16, [fn](bench::Size s) {
        // The source is one pixel larger on every side; the region is its interior.
        const auto& src = bench::images<Kel64f>({s.width + 2, s.height + 2}, 1, 1)[0];
        const auto& dst = bench::images<Kel64f>(s, 1, 1)[0];
        return bench::Call([&src, &dst, s, fn] {
            return int(fn(reinterpret_cast<const Kel64f*>(src.row(1)) + 1, src.step, bench::data<Kel64f>(dst), dst.step,
                          bench::roi(s)));
        });
    });
    bench::peer(std::string("opencv:") + (max ? "dilate" : "erode"), exportName, 16, [max](bench::Size s) {
        const auto& src = bench::images<Kel64f>({s.width + 2, s.height + 2}, 1, 1)[0];
        const auto& dst = bench::images<Kel64f>(s, 1, 1)[0];
        const cv::Mat kernel = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(3, 3));
        return bench::Call([a = src.mat()(cv::Rect(1, 1, s.width, s.height)), d = dst.mat(), kernel, max]() mutable {
            if (max) cv::dilate(a, d, kernel, cv::Point(1, 1), 1, cv::BORDER_REPLICATE);
            else cv::erode(a, d, kernel, cv::Point(1, 1), 1, cv::BORDER_REPLICATE);
            bench::keep(d.data);
            return 0;
        });
    });
}

const bench::Rows rows([] {
    rows_of<Kel8u>("keliFilterMinBorder_8u_C1R", MinMaxFn<Kel8u>(keliFilterMinBorder_8u_C1R), 1, {3, 3}, false, kel8u);
    rows_of<Kel8u>("keliFilterMinBorder_8u_C1R", MinMaxFn<Kel8u>(keliFilterMinBorder_8u_C1R), 1, {5, 5}, false, kel8u);
    rows_of<Kel8u>("keliFilterMaxBorder_8u_C1R", MinMaxFn<Kel8u>(keliFilterMaxBorder_8u_C1R), 1, {3, 3}, true, kel8u);
    rows_of<Kel8u>("keliFilterMaxBorder_8u_C1R", MinMaxFn<Kel8u>(keliFilterMaxBorder_8u_C1R), 1, {5, 5}, true, kel8u);
    rows_of<Kel8u>("keliFilterMaxBorder_8u_C4R", MinMaxFnC<Kel8u>(keliFilterMaxBorder_8u_C4R), 4, {5, 5}, true, kel8u);
    rows_of<Kel16u>("keliFilterMinBorder_16u_C1R", MinMaxFn<Kel16u>(keliFilterMinBorder_16u_C1R), 1, {5, 5}, false, kel16u);
    rows_of<Kel32f>("keliFilterMinBorder_32f_C1R", MinMaxFn<Kel32f>(keliFilterMinBorder_32f_C1R), 1, {3, 3}, false, kel32f);
    rows_of<Kel32f>("keliFilterMinBorder_32f_C1R", MinMaxFn<Kel32f>(keliFilterMinBorder_32f_C1R), 1, {15, 15}, false, kel32f);
    morphology_64f("keliErode3x3_64f_C1R", false);
    morphology_64f("keliDilate3x3_64f_C1R", true);
});

}  // namespace
