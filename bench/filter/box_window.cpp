// keliFilterBoxBorder and keliSumWindow against cv::blur and cv::boxFilter (normalize=false)
// with the same mask, the same anchor and a replicated border, and memcpy of the same bytes.
// Every keli row brings its scratch buffer, allocated outside the timed loop.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <memory>

#include "common/bench.hpp"

namespace {

struct Scratch {
    std::unique_ptr<Kel8u[]> bytes;
    explicit Scratch(int n) : bytes(new Kel8u[n]) {}
};

template <class T, class D, class Fn>
void keli_row(const std::string& name, int channels, KeliSize mask, KelDataType type, Fn fn)
{
    const int traffic = channels * int(sizeof(T) + sizeof(D));
    bench::keli(name, traffic, [channels, mask, type, fn](bench::Size s) {
        const auto& src = bench::images<T>(s, channels, 1);
        const auto& dst = bench::images<D>(s, channels, 1);
        int size = 0;
        keliFilterBoxBorderGetBufferSize(bench::roi(s), mask, type, channels, &size);
        auto scratch = std::make_shared<Scratch>(size);
        return bench::Call([&src, &dst, s, mask, fn, scratch] {
            return fn(bench::data<T>(src[0]), src[0].step, bench::data<D>(dst[0]), dst[0].step, bench::roi(s), mask,
                      kelBorderRepl, nullptr, scratch->bytes.get());
        });
    });
}

// cv::blur or, with normalize false, cv::boxFilter into `ddepth`.
template <class T, class D>
void cv_row(const std::string& name, int channels, KeliSize mask, bool normalize, int ddepth)
{
    const int traffic = channels * int(sizeof(T) + sizeof(D));
    bench::peer(normalize ? "opencv:blur" : "opencv:boxFilter", name, traffic,
                [channels, mask, normalize, ddepth](bench::Size s) {
                    const auto& src = bench::images<T>(s, channels, 1);
                    const auto& dst = bench::images<D>(s, channels, 1);
                    return bench::Call([a = src[0].mat(), b = dst[0].mat(), mask, normalize, ddepth]() mutable {
                        const cv::Size k(mask.width, mask.height);
                        const cv::Point anchor((mask.width - 1) / 2, (mask.height - 1) / 2);
                        cv::boxFilter(a, b, ddepth, k, anchor, normalize, cv::BORDER_REPLICATE);
                        return 0;
                    });
                });
}

template <class T> void box(const char* name, int channels, KeliSize mask, KelDataType type,
                            KelStatus (*fn)(const T*, int, T*, int, KeliSize, KeliSize, KeliBorderType, const T*, Kel8u*))
{
    keli_row<T, T>(name, channels, mask, type, fn);
    cv_row<T, T>(name, channels, mask, true, -1);
    bench::memcpy_peer<T>(name, channels);
}

const bench::Rows rows([] {
    box<Kel8u>("keliFilterBoxBorder_8u_C1R@3x3", 1, {3, 3}, kel8u, keliFilterBoxBorder_8u_C1R);
    box<Kel8u>("keliFilterBoxBorder_8u_C1R@5x5", 1, {5, 5}, kel8u, keliFilterBoxBorder_8u_C1R);
    box<Kel8u>("keliFilterBoxBorder_8u_C1R@7x7", 1, {7, 7}, kel8u, keliFilterBoxBorder_8u_C1R);
    box<Kel8u>("keliFilterBoxBorder_8u_C1R@15x15", 1, {15, 15}, kel8u, keliFilterBoxBorder_8u_C1R);
    box<Kel8u>("keliFilterBoxBorder_8u_C3R@5x5", 3, {5, 5}, kel8u, keliFilterBoxBorder_8u_C3R);
    box<Kel16u>("keliFilterBoxBorder_16u_C1R@5x5", 1, {5, 5}, kel16u, keliFilterBoxBorder_16u_C1R);
    box<Kel32f>("keliFilterBoxBorder_32f_C1R@5x5", 1, {5, 5}, kel32f, keliFilterBoxBorder_32f_C1R);
    box<Kel32f>("keliFilterBoxBorder_32f_C1R@31x31", 1, {31, 31}, kel32f, keliFilterBoxBorder_32f_C1R);
    {
        const char* name = "keliSumWindow_8u32s_C1R@7x7";
        keli_row<Kel8u, Kel32s>(name, 1, {7, 7}, kel8u, keliSumWindow_8u32s_C1R);
        cv_row<Kel8u, Kel32s>(name, 1, {7, 7}, false, CV_32S);
    }
    {
        const char* name = "keliSumWindow_32f_C1R@7x7";
        keli_row<Kel32f, Kel32f>(name, 1, {7, 7}, kel32f, keliSumWindow_32f_C1R);
        cv_row<Kel32f, Kel32f>(name, 1, {7, 7}, false, CV_32F);
    }
    {
        const char* name = "keliSumWindowRow_8u32f_C1R@15";
        bench::keli(name, 5, [](bench::Size s) {
            const auto& src = bench::images<Kel8u>(bench::Size{s.width + 16, s.height}, 1, 1);
            const auto& dst = bench::images<Kel32f>(s, 1, 1);
            return bench::Call([&src, &dst, s] {
                return keliSumWindowRow_8u32f_C1R(bench::data<Kel8u>(src[0]) + 7, src[0].step,
                                                  bench::data<Kel32f>(dst[0]), dst[0].step, bench::roi(s), 15, 7);
            });
        });
        cv_row<Kel8u, Kel32f>(name, 1, {15, 1}, false, CV_32F);
    }
    {
        const char* name = "keliSumWindowColumn_8u32f_C1R@15";
        bench::keli(name, 5, [](bench::Size s) {
            const auto& src = bench::images<Kel8u>(bench::Size{s.width, s.height + 16}, 1, 1);
            const auto& dst = bench::images<Kel32f>(s, 1, 1);
            return bench::Call([&src, &dst, s] {
                return keliSumWindowColumn_8u32f_C1R(bench::data<Kel8u>(src[0]) + 7 * std::ptrdiff_t(src[0].step),
                                                     src[0].step, bench::data<Kel32f>(dst[0]), dst[0].step,
                                                     bench::roi(s), 15, 7);
            });
        });
        cv_row<Kel8u, Kel32f>(name, 1, {1, 15}, false, CV_32F);
    }
});

}  // namespace
