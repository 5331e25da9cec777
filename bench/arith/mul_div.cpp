// keliMul and keliMulC against OpenCV's multiply (saturating; scale 1/2^n where keli has a scale
// factor), keliDiv against OpenCV's divide (the first keli image is the divisor), with the
// destination preallocated, and memcpy of one source's bytes: a multiply or divide moves three
// streams (two for the constant form) where memcpy moves two.
#include <opencv2/core.hpp>

#include <functional>
#include <string>

#include "common/bench.hpp"

namespace {

template <class T> using SfsFn = KelStatus (*)(const T*, int, const T*, int, T*, int, KeliSize, int);
template <class T> using SfsCFn = KelStatus (*)(const T*, int, T, T*, int, KeliSize, int);
using FloatFn = KelStatus (*)(const Kel32f*, int, const Kel32f*, int, Kel32f*, int, KeliSize);
// The call of a row: a 32f member as it is, an Sfs member with scale factor 0.
template <class T>
using FloatOrSfs = std::function<KelStatus(const T*, int, const T*, int, T*, int, KeliSize)>;

template <class T, int C, class F> void keli_row(const std::string& name, F call)
{
    bench::keli(name, 3 * int(sizeof(T)) * C, [call](bench::Size s) {
        const auto& im = bench::images<T>(s, C, 3);
        return bench::Call([&im, call, s] {
            return call(bench::data<T>(im[0]), im[0].step, bench::data<T>(im[1]), im[1].step, bench::data<T>(im[2]),
                        im[2].step, bench::roi(s));
        });
    });
}

template <class T, int C> void peers(const std::string& name, int n)
{
    bench::peer("opencv:multiply", name, 3 * int(sizeof(T)) * C, [n](bench::Size s) {
        const auto& im = bench::images<T>(s, C, 3);
        return bench::Call([a = im[0].mat(), b = im[1].mat(), d = im[2].mat(), n]() mutable {
            cv::multiply(a, b, d, 1.0 / double(1 << n));
            return 0;
        });
    });
    bench::memcpy_peer<T>(name, C);
}

template <class T, int C> void sfs_rows(const std::string& name, SfsFn<T> fn)
{
    for (int n : {0, 8}) {
        const std::string row = n == 0 ? name : name + "@n" + std::to_string(n);
        keli_row<T, C>(row, [fn, n](auto... a) { return fn(a..., n); });
        if (n == 0) peers<T, C>(name, n);
    }
}

template <class T> void constant_rows(const std::string& name, SfsCFn<T> fn, T value, int n)
{
    bench::keli(name, 2 * int(sizeof(T)), [fn, value, n](bench::Size s) {
        const auto& im = bench::images<T>(s, 1, 2);
        return bench::Call([&im, fn, value, n, s] {
            return fn(bench::data<T>(im[0]), im[0].step, value, bench::data<T>(im[1]), im[1].step, bench::roi(s), n);
        });
    });
    bench::peer("opencv:multiply", name, 2 * int(sizeof(T)), [value, n](bench::Size s) {
        const auto& im = bench::images<T>(s, 1, 2);
        return bench::Call([a = im[0].mat(), d = im[1].mat(), value, n]() mutable {
            cv::multiply(a, cv::Scalar(double(value)), d, 1.0 / double(1 << n));
            return 0;
        });
    });
    bench::memcpy_peer<T>(name, 1);
}

template <class T> void div_rows(const std::string& name, FloatOrSfs<T> fn)
{
    keli_row<T, 1>(name, fn);
    bench::peer("opencv:divide", name, 3 * int(sizeof(T)), [](bench::Size s) {
        const auto& im = bench::images<T>(s, 1, 3);
        return bench::Call([a = im[0].mat(), b = im[1].mat(), d = im[2].mat()]() mutable {
            cv::divide(b, a, d);
            return 0;
        });
    });
    bench::memcpy_peer<T>(name, 1);
}

// keliMulScale against multiply with a scale of 1/255: the same product read with 255 as 1.0
// (OpenCV rounds the quotient to nearest where keli truncates it; the work is the same).
void norm_rows(const std::string& name)
{
    keli_row<Kel8u, 1>(name, [](auto... a) { return keliMulScale_8u_C1R(a...); });
    bench::peer("opencv:multiply", name, 3, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 1, 3);
        return bench::Call([a = im[0].mat(), b = im[1].mat(), d = im[2].mat()]() mutable {
            cv::multiply(a, b, d, 1.0 / 255.0);
            return 0;
        });
    });
    bench::memcpy_peer<Kel8u>(name, 1);
}

const bench::Rows rows([] {
    sfs_rows<Kel8u, 1>("keliMul_8u_C1RSfs", keliMul_8u_C1RSfs);
    sfs_rows<Kel8u, 3>("keliMul_8u_C3RSfs", keliMul_8u_C3RSfs);
    sfs_rows<Kel16s, 1>("keliMul_16s_C1RSfs", keliMul_16s_C1RSfs);
    sfs_rows<Kel16u, 1>("keliMul_16u_C1RSfs", keliMul_16u_C1RSfs);
    constant_rows<Kel16s>("keliMulC_16s_C1RSfs", keliMulC_16s_C1RSfs, Kel16s(-7), 2);
    constant_rows<Kel8u>("keliMulC_8u_C1RSfs", keliMulC_8u_C1RSfs, Kel8u(3), 1);
    keli_row<Kel32f, 1>("keliMul_32f_C1R", FloatFn(keliMul_32f_C1R));
    peers<Kel32f, 1>("keliMul_32f_C1R", 0);
    div_rows<Kel8u>("keliDiv_8u_C1RSfs", [](auto... a) { return keliDiv_8u_C1RSfs(a..., 0); });
    div_rows<Kel16s>("keliDiv_16s_C1RSfs", [](auto... a) { return keliDiv_16s_C1RSfs(a..., 0); });
    div_rows<Kel32f>("keliDiv_32f_C1R", keliDiv_32f_C1R);
    norm_rows("keliMulScale_8u_C1R");
});

}  // namespace
