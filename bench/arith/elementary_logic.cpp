// Elementary functions and logic against OpenCV: keliSqrt, keliLn, keliExp 32f against cv::sqrt,
// cv::log, cv::exp; the 8u members against cv::LUT with the table of the same function (a table is
// how both do it); keliSqr against multiply of an image by itself; keliAnd against bitwise_and;
// keliMaxEvery against cv::max; and memcpy for the streaming members (logic, shifts, Complement,
// Max, 32f Sqrt), which move two or three streams where memcpy moves two.
#include <opencv2/core.hpp>

#include <cmath>
#include <string>

#include "common/bench.hpp"

namespace {

template <class T> using Unary = KelStatus (*)(const T*, int, T*, int, KeliSize);
template <class T> using UnarySfs = KelStatus (*)(const T*, int, T*, int, KeliSize, int);
template <class T> using Binary = KelStatus (*)(const T*, int, const T*, int, T*, int, KeliSize);

template <class T> const std::vector<bench::Image>& sources(bench::Size s, int channels, bench::Fill fill)
{
    return bench::images(s, channels, int(sizeof(T)), cv::DataType<T>::depth, fill, 2);
}

// One source, one destination; the source filled as `fill` says.
template <class T, int C, class F> void unary_row(const std::string& name, F call, bench::Fill fill = bench::fill_of<T>())
{
    bench::keli(name, 2 * int(sizeof(T)) * C, [call, fill](bench::Size s) {
        const auto& im = sources<T>(s, C, fill);
        return bench::Call([&im, call, s] {
            return call(bench::data<T>(im[0]), im[0].step, bench::data<T>(im[1]), im[1].step, bench::roi(s));
        });
    });
    bench::memcpy_peer<T>(name, C);
}

template <class T> void binary_row(const std::string& name, Binary<T> fn)
{
    bench::keli(name, 3 * int(sizeof(T)), [fn](bench::Size s) {
        const auto& im = bench::images<T>(s, 1, 3);
        return bench::Call([&im, fn, s] {
            return fn(bench::data<T>(im[0]), im[0].step, bench::data<T>(im[1]), im[1].step, bench::data<T>(im[2]),
                      im[2].step, bench::roi(s));
        });
    });
    bench::memcpy_peer<T>(name, 1);
}

// A peer with one source, `work(src, dst)` on OpenCV headers over the same images.
template <class T, class Work>
void unary_peer(const std::string& peer, const std::string& name, Work work, bench::Fill fill = bench::fill_of<T>())
{
    bench::peer(peer, name, 2 * int(sizeof(T)), [work, fill](bench::Size s) {
        const auto& im = sources<T>(s, 1, fill);
        return bench::Call([a = im[0].mat(), d = im[1].mat(), work]() mutable {
            work(a, d);
            return 0;
        });
    });
}

template <class T, class Work> void binary_peer(const std::string& peer, const std::string& name, Work work)
{
    bench::peer(peer, name, 3 * int(sizeof(T)), [work](bench::Size s) {
        const auto& im = bench::images<T>(s, 1, 3);
        return bench::Call([a = im[0].mat(), b = im[1].mat(), d = im[2].mat(), work]() mutable {
            work(a, b, d);
            return 0;
        });
    });
}

// The 8u member with scale factor n against cv::LUT with the table of f(a) 2^-n as keli rounds it.
template <class Fn> void lut_row(const std::string& name, UnarySfs<Kel8u> keli, int n, Fn f)
{
    unary_row<Kel8u, 1>(name, [keli, n](auto... a) { return keli(a..., n); });
    cv::Mat table(1, 256, CV_8U);
    for (int i = 0; i < 256; ++i) table.at<Kel8u>(i) = cv::saturate_cast<Kel8u>(f(i) * std::ldexp(1.0, -n));
    unary_peer<Kel8u>("opencv:LUT", name, [table](cv::Mat& a, cv::Mat& d) { cv::LUT(a, table, d); });
}

const bench::Rows rows([] {
    unary_row<Kel32f, 1>("keliSqrt_32f_C1R", Unary<Kel32f>(keliSqrt_32f_C1R));
    unary_peer<Kel32f>("opencv:sqrt", "keliSqrt_32f_C1R", [](cv::Mat& a, cv::Mat& d) { cv::sqrt(a, d); });
    // The logarithm and the exponential are timed on arguments in their domains: a negative
    // argument is the warning path, and most of (-1000, 1000) overflows the exponential.
    const auto positive = bench::Fill::Float32Positive, moderate = bench::Fill::Float32Moderate;
    unary_row<Kel32f, 1>("keliLn_32f_C1R", Unary<Kel32f>(keliLn_32f_C1R), positive);
    unary_peer<Kel32f>("opencv:log", "keliLn_32f_C1R", [](cv::Mat& a, cv::Mat& d) { cv::log(a, d); }, positive);
    unary_row<Kel32f, 1>("keliExp_32f_C1R", Unary<Kel32f>(keliExp_32f_C1R), moderate);
    unary_peer<Kel32f>("opencv:exp", "keliExp_32f_C1R", [](cv::Mat& a, cv::Mat& d) { cv::exp(a, d); }, moderate);

    lut_row("keliSqrt_8u_C1RSfs", keliSqrt_8u_C1RSfs, -3, [](int a) { return std::sqrt(double(a)); });
    lut_row("keliLn_8u_C1RSfs", keliLn_8u_C1RSfs, -4, [](int a) { return a ? std::log(double(a)) : 0.0; });
    lut_row("keliExp_8u_C1RSfs", keliExp_8u_C1RSfs, 0, [](int a) { return std::exp(double(a)); });

    unary_row<Kel8u, 1>("keliSqr_8u_C1RSfs", [](auto... a) { return keliSqr_8u_C1RSfs(a..., 0); });
    unary_peer<Kel8u>("opencv:multiply", "keliSqr_8u_C1RSfs", [](cv::Mat& a, cv::Mat& d) { cv::multiply(a, a, d); });

    binary_row<Kel8u>("keliAnd_8u_C1R", keliAnd_8u_C1R);
    binary_peer<Kel8u>("opencv:bitwise_and", "keliAnd_8u_C1R",
                       [](cv::Mat& a, cv::Mat& b, cv::Mat& d) { cv::bitwise_and(a, b, d); });
    binary_row<Kel8u>("keliMaxEvery_8u_C1R", keliMaxEvery_8u_C1R);
    binary_peer<Kel8u>("opencv:max", "keliMaxEvery_8u_C1R", [](cv::Mat& a, cv::Mat& b, cv::Mat& d) { cv::max(a, b, d); });
    binary_row<Kel32f>("keliMaxEvery_32f_C1R", keliMaxEvery_32f_C1R);
    binary_peer<Kel32f>("opencv:max", "keliMaxEvery_32f_C1R",
                        [](cv::Mat& a, cv::Mat& b, cv::Mat& d) { cv::max(a, b, d); });

    unary_row<Kel8u, 1>("keliNot_8u_C1R", Unary<Kel8u>(keliNot_8u_C1R));
    unary_peer<Kel8u>("opencv:bitwise_not", "keliNot_8u_C1R", [](cv::Mat& a, cv::Mat& d) { cv::bitwise_not(a, d); });
    unary_row<Kel16u, 1>("keliLShiftC_16u_C1R", [](auto s, int ss, auto d, int ds, KeliSize z) {
        return keliLShiftC_16u_C1R(s, ss, 3u, d, ds, z);
    });
    unary_row<Kel16s, 1>("keliComplement_16s_C1R", Unary<Kel16s>(keliComplement_16s_C1R));
});

}  // namespace
