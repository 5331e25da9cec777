// Sums, means and extrema against OpenCV's sum, mean and minMaxLoc, and against the memory's
// read bandwidth: glibc's memchr scanning the same number of bytes for a byte that is not
// there reads everything once and does nothing else, so it stands for the streaming limit of
// a reduction (which reads and writes nothing else either).
#include <memory>
#include <vector>

#include <opencv2/core.hpp>

#include "common/bench.hpp"

namespace {

template <class T, int C> void sum_rows(const char* name, KelStatus (*fn)(const T*, int, KeliSize, Kel64f*))
{
    bench::keli(name, int(sizeof(T)) * C, [fn](bench::Size s) {
        const auto& im = bench::images<T>(s, C, 1);
        return bench::Call([&im, fn, s] {
            Kel64f out[4];
            const KelStatus st = fn(bench::data<T>(im[0]), im[0].step, bench::roi(s), out);
            bench::keep(out[0]);
            return st;
        });
    });
    bench::peer("opencv:sum", name, int(sizeof(T)) * C, [](bench::Size s) {
        const auto& im = bench::images<T>(s, C, 1);
        return bench::Call([src = im[0].mat()] {
            bench::keep(cv::sum(src));
            return 0;
        });
    });
    bench::memchr_peer(name, int(sizeof(T)) * C);
}

void sum_32f_rows(const char* name, KelHintAlgorithm hint)
{
    bench::keli(name, 4, [hint](bench::Size s) {
        const auto& im = bench::images<Kel32f>(s, 1, 1);
        return bench::Call([&im, s, hint] {
            Kel64f out;
            const KelStatus st = keliSum_32f_C1R(bench::data<Kel32f>(im[0]), im[0].step, bench::roi(s), &out, hint);
            bench::keep(out);
            return st;
        });
    });
    bench::peer("opencv:sum", name, 4, [](bench::Size s) {
        const auto& im = bench::images<Kel32f>(s, 1, 1);
        return bench::Call([src = im[0].mat()] {
            bench::keep(cv::sum(src));
            return 0;
        });
    });
    bench::memchr_peer(name, 4);
}

void mean_rows()
{
    bench::keli("keliMean_8u_C3R", 3, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 3, 1);
        return bench::Call([&im, s] {
            Kel64f out[3];
            const KelStatus st = keliMean_8u_C3R(bench::data<Kel8u>(im[0]), im[0].step, bench::roi(s), out);
            bench::keep(out[0]);
            return st;
        });
    });
    bench::peer("opencv:mean", "keliMean_8u_C3R", 3, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 3, 1);
        return bench::Call([src = im[0].mat()] {
            bench::keep(cv::mean(src));
            return 0;
        });
    });
}

// keliMinMax against minMaxLoc without positions asked for.
template <class T> void minmax_rows(const char* name, KelStatus (*fn)(const T*, int, KeliSize, T*, T*))
{
    bench::keli(name, int(sizeof(T)), [fn](bench::Size s) {
        const auto& im = bench::images<T>(s, 1, 1);
        return bench::Call([&im, fn, s] {
            T lo, hi;
            const KelStatus st = fn(bench::data<T>(im[0]), im[0].step, bench::roi(s), &lo, &hi);
            bench::keep(lo);
            bench::keep(hi);
            return st;
        });
    });
    bench::peer("opencv:minMaxLoc", name, int(sizeof(T)), [](bench::Size s) {
        const auto& im = bench::images<T>(s, 1, 1);
        return bench::Call([src = im[0].mat()] {
            double lo, hi;
            cv::minMaxLoc(src, &lo, &hi);
            bench::keep(lo);
            bench::keep(hi);
            return 0;
        });
    });
    bench::memchr_peer(name, int(sizeof(T)));
}

// keliMaxIndx / keliMinIndx against minMaxLoc asked for the one value and position.
template <class T, bool Max> void index_rows(const char* name, KelStatus (*fn)(const T*, int, KeliSize, T*, int*, int*))
{
    bench::keli(name, int(sizeof(T)), [fn](bench::Size s) {
        const auto& im = bench::images<T>(s, 1, 1);
        return bench::Call([&im, fn, s] {
            T v;
            int x, y;
            const KelStatus st = fn(bench::data<T>(im[0]), im[0].step, bench::roi(s), &v, &x, &y);
            bench::keep(x);
            return st;
        });
    });
    bench::peer("opencv:minMaxLoc", name, int(sizeof(T)), [](bench::Size s) {
        const auto& im = bench::images<T>(s, 1, 1);
        return bench::Call([src = im[0].mat()] {
            double v;
            cv::Point at;
            if (Max) cv::minMaxLoc(src, nullptr, &v, nullptr, &at);
            else cv::minMaxLoc(src, &v, nullptr, &at, nullptr);
            bench::keep(at.x);
            return 0;
        });
    });
    bench::memchr_peer(name, int(sizeof(T)));
}

void block_rows()
{
    bench::keli("keliBlockMinMax_8u_C1R", 1, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 1, 1);
        const int nx = (s.width + 15) / 16, ny = (s.height + 15) / 16;
        auto tables = std::make_shared<std::vector<Kel8u>>(std::size_t(2) * nx * ny);
        return bench::Call([&im, s, nx, ny, tables] {
            Kel8u* t = tables->data();
            return keliBlockMinMax_8u_C1R(bench::data<Kel8u>(im[0]), im[0].step, bench::roi(s), t, nx, t + nx * ny, nx,
                                          {16, 16}, nullptr, nullptr);
        });
    });
    bench::memchr_peer("keliBlockMinMax_8u_C1R", 1);
}

const bench::Rows rows([] {
    sum_rows<Kel8u, 1>("keliSum_8u_C1R", keliSum_8u_C1R);
    sum_rows<Kel8u, 4>("keliSum_8u_C4R", keliSum_8u_C4R);
    sum_rows<Kel16s, 1>("keliSum_16s_C1R", keliSum_16s_C1R);
    sum_32f_rows("keliSum_32f_C1R", kelAlgHintFast);
    mean_rows();
    minmax_rows<Kel8u>("keliMinMax_8u_C1R", keliMinMax_8u_C1R);
    minmax_rows<Kel32f>("keliMinMax_32f_C1R", keliMinMax_32f_C1R);
    index_rows<Kel32f, true>("keliMaxIndx_32f_C1R", keliMaxIndx_32f_C1R);
    index_rows<Kel8u, false>("keliMinIndx_8u_C1R", keliMinIndx_8u_C1R);
    block_rows();
});

}  // namespace
