// keliAdd and keliSub against OpenCV's add and subtract (saturating, no scale), with the
// destination preallocated, and memcpy of one source's bytes: an add moves three streams where
// memcpy moves two, so at the memory bound it takes 1.5 times memcpy's time. Rows named
// "<export>@n<k>" time the same export with scale factor k, for comparison with its own row.
#include <opencv2/core.hpp>

#include <string>

#include "common/bench.hpp"

namespace {

template <class T> using SfsFn = KelStatus (*)(const T*, int, const T*, int, T*, int, KeliSize, int);
using FloatFn = KelStatus (*)(const Kel32f*, int, const Kel32f*, int, Kel32f*, int, KeliSize);

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

template <class T, int C> void peers(const std::string& name, bool add)
{
    bench::peer(add ? "opencv:add" : "opencv:subtract", name, 3 * int(sizeof(T)) * C, [add](bench::Size s) {
        const auto& im = bench::images<T>(s, C, 3);
        return bench::Call([a = im[0].mat(), b = im[1].mat(), d = im[2].mat(), add]() mutable {
            if (add) cv::add(a, b, d);
            else cv::subtract(b, a, d);  // keliSub subtracts the first image from the second
            return 0;
        });
    });
    bench::memcpy_peer<T>(name, C);
}

template <class T, int C> void sfs_rows(const std::string& add, SfsFn<T> addFn, const std::string& sub, SfsFn<T> subFn)
{
    keli_row<T, C>(add, [addFn](auto... a) { return addFn(a..., 0); });
    peers<T, C>(add, true);
    keli_row<T, C>(sub, [subFn](auto... a) { return subFn(a..., 0); });
    peers<T, C>(sub, false);
    if (C == 1) {
        for (int n : {1, 3}) {
            keli_row<T, C>(add + "@n" + std::to_string(n), [addFn, n](auto... a) { return addFn(a..., n); });
            keli_row<T, C>(sub + "@n" + std::to_string(n), [subFn, n](auto... a) { return subFn(a..., n); });
        }
    }
}

template <int C> void float_rows(const std::string& add, FloatFn addFn, const std::string& sub, FloatFn subFn)
{
    keli_row<Kel32f, C>(add, addFn);
    peers<Kel32f, C>(add, true);
    keli_row<Kel32f, C>(sub, subFn);
    peers<Kel32f, C>(sub, false);
}

const bench::Rows rows([] {
    sfs_rows<Kel8u, 1>("keliAdd_8u_C1RSfs", keliAdd_8u_C1RSfs, "keliSub_8u_C1RSfs", keliSub_8u_C1RSfs);
    sfs_rows<Kel8u, 3>("keliAdd_8u_C3RSfs", keliAdd_8u_C3RSfs, "keliSub_8u_C3RSfs", keliSub_8u_C3RSfs);
    sfs_rows<Kel8u, 4>("keliAdd_8u_C4RSfs", keliAdd_8u_C4RSfs, "keliSub_8u_C4RSfs", keliSub_8u_C4RSfs);
    sfs_rows<Kel16s, 1>("keliAdd_16s_C1RSfs", keliAdd_16s_C1RSfs, "keliSub_16s_C1RSfs", keliSub_16s_C1RSfs);
    sfs_rows<Kel16s, 3>("keliAdd_16s_C3RSfs", keliAdd_16s_C3RSfs, "keliSub_16s_C3RSfs", keliSub_16s_C3RSfs);
    sfs_rows<Kel16s, 4>("keliAdd_16s_C4RSfs", keliAdd_16s_C4RSfs, "keliSub_16s_C4RSfs", keliSub_16s_C4RSfs);
    float_rows<1>("keliAdd_32f_C1R", keliAdd_32f_C1R, "keliSub_32f_C1R", keliSub_32f_C1R);
    float_rows<3>("keliAdd_32f_C3R", keliAdd_32f_C3R, "keliSub_32f_C3R", keliSub_32f_C3R);
    float_rows<4>("keliAdd_32f_C4R", keliAdd_32f_C4R, "keliSub_32f_C4R", keliSub_32f_C4R);
});

}  // namespace
