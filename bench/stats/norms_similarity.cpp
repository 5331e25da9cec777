// Norms against OpenCV's cv::norm, and against the memory's read bandwidth: glibc's memchr
// scanning as many bytes as the export reads, for a byte that is not there.

#include <opencv2/core.hpp>

#include "common/bench.hpp"

namespace {

template <class T> void norm_rows(const char* name, KelStatus (*fn)(const T*, int, KeliSize, Kel64f*), int cvType)
{
    bench::keli(name, int(sizeof(T)), [fn](bench::Size s) {
        const auto& im = bench::images<T>(s, 1, 1);
        return bench::Call([&im, fn, s] {
            Kel64f out;
            const KelStatus st = fn(bench::data<T>(im[0]), im[0].step, bench::roi(s), &out);
            bench::keep(out);
            return st;
        });
    });
    bench::peer("opencv:norm", name, int(sizeof(T)), [cvType](bench::Size s) {
        const auto& im = bench::images<T>(s, 1, 1);
        return bench::Call([src = im[0].mat(), cvType] {
            bench::keep(cv::norm(src, cvType));
            return 0;
        });
    });
    bench::memchr_peer(name, int(sizeof(T)));
}

template <class T>
void norm_diff_rows(const char* name, KelStatus (*fn)(const T*, int, const T*, int, KeliSize, Kel64f*), int cvType)
{
    bench::keli(name, 2 * int(sizeof(T)), [fn](bench::Size s) {
        const auto& im = bench::images<T>(s, 1, 2);
        return bench::Call([&im, fn, s] {
            Kel64f out;
            const KelStatus st = fn(bench::data<T>(im[0]), im[0].step, bench::data<T>(im[1]), im[1].step, bench::roi(s), &out);
            bench::keep(out);
            return st;
        });
    });
    bench::peer("opencv:norm", name, 2 * int(sizeof(T)), [cvType](bench::Size s) {
        const auto& im = bench::images<T>(s, 1, 2);
        return bench::Call([a = im[0].mat(), b = im[1].mat(), cvType] {
            bench::keep(cv::norm(a, b, cvType));
            return 0;
        });
    });
    bench::memchr_peer(name, 2 * int(sizeof(T)));
}

const bench::Rows rows([] {
    norm_rows<Kel8u>("keliNorm_L2_8u_C1R", keliNorm_L2_8u_C1R, cv::NORM_L2);
    norm_diff_rows<Kel16s>("keliNormDiff_L1_16s_C1R", keliNormDiff_L1_16s_C1R, cv::NORM_L1);
});

}  // namespace

// The dot product of two 32f images against Mat::dot, and against the read bandwidth of the
// eight bytes a pixel it reads.
namespace {

const bench::Rows dot_rows([] {
    const char* name = "keliDotProd_32f64f_C1R";
    bench::keli(name, 8, [](bench::Size s) {
        const auto& im = bench::images<Kel32f>(s, 1, 2);
        return bench::Call([&im, s] {
            Kel64f out;
            const KelStatus st = keliDotProd_32f64f_C1R(bench::data<Kel32f>(im[0]), im[0].step, bench::data<Kel32f>(im[1]),
                                                        im[1].step, bench::roi(s), &out);
            bench::keep(out);
            return st;
        });
    });
    bench::peer("opencv:dot", name, 8, [](bench::Size s) {
        const auto& im = bench::images<Kel32f>(s, 1, 2);
        return bench::Call([a = im[0].mat(), b = im[1].mat()] {
            bench::keep(a.dot(b));
            return 0;
        });
    });
    bench::memchr_peer(name, 8);
});

}  // namespace
