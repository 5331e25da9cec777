// keliCompare*, keliCompareC and keliCountInRange against OpenCV and memcpy.
//
// cv::compare writes a mask of as many channels as its sources, so on C3 it writes three times
// keli's one-byte-a-pixel mask; the rows still do the same comparisons. OpenCV has no direct
// range count: its row is inRange into a mask and countNonZero over it.
#include <opencv2/core.hpp>

#include "common/bench.hpp"

namespace {

template <class T> using CompareFn = KelStatus (*)(const T*, int, const T*, int, Kel8u*, int, KeliSize, KelCmpOp);

template <class T, int C> void compare_rows(const char* name, CompareFn<T> fn)
{
    const int traffic = 2 * int(sizeof(T)) * C + 1;
    bench::keli(name, traffic, [fn](bench::Size s) {
        const auto& src = bench::images<T>(s, C, 2);
        const auto& dst = bench::images<Kel8u>(s, 1, 1);
        return bench::Call([&src, &dst, fn, s] {
            return fn(bench::data<T>(src[0]), src[0].step, bench::data<T>(src[1]), src[1].step,
                      bench::data<Kel8u>(dst[0]), dst[0].step, bench::roi(s), kelCmpLess);
        });
    });
    bench::peer("opencv:compare", name, 2 * int(sizeof(T)) * C + C, [](bench::Size s) {
        const auto& src = bench::images<T>(s, C, 2);
        const auto& dst = bench::images<Kel8u>(s, C, 1);
        return bench::Call([a = src[0].mat(), b = src[1].mat(), d = dst[0].mat()]() mutable {
            cv::compare(a, b, d, cv::CMP_LT);
            return 0;
        });
    });
    bench::memcpy_peer<T>(name, C);
}

const bench::Rows rows([] {
    compare_rows<Kel8u, 1>("keliCompare_8u_C1R", keliCompare_8u_C1R);
    compare_rows<Kel32f, 1>("keliCompare_32f_C1R", keliCompare_32f_C1R);
    compare_rows<Kel8u, 3>("keliCompare_8u_C3R", keliCompare_8u_C3R);
    {
        const char* name = "keliCompareC_8u_C1R";
        bench::keli(name, 2, [](bench::Size s) {
            const auto& src = bench::images<Kel8u>(s, 1, 1);
            const auto& dst = bench::images<Kel8u>(s, 1, 1);
            return bench::Call([&src, &dst, s] {
                return keliCompareC_8u_C1R(bench::data<Kel8u>(src[0]), src[0].step, 100, bench::data<Kel8u>(dst[0]),
                                           dst[0].step, bench::roi(s), kelCmpGreaterEq);
            });
        });
        bench::peer("opencv:compare", name, 2, [](bench::Size s) {
            const auto& src = bench::images<Kel8u>(s, 1, 1);
            const auto& dst = bench::images<Kel8u>(s, 1, 1);
            return bench::Call([a = src[0].mat(), d = dst[0].mat()]() mutable {
                cv::compare(a, cv::Scalar(100), d, cv::CMP_GE);
                return 0;
            });
        });
        bench::memcpy_peer<Kel8u>(name, 1);
    }
    {
        const char* name = "keliCountInRange_8u_C1R";
        bench::keli(name, 1, [](bench::Size s) {
            const auto& src = bench::images<Kel8u>(s, 1, 1);
            return bench::Call([&src, s] {
                int count = 0;
                const KelStatus st =
                    keliCountInRange_8u_C1R(bench::data<Kel8u>(src[0]), src[0].step, bench::roi(s), &count, 60, 190);
                bench::keep(count);
                return st;
            });
        });
        bench::peer("opencv:inRange+countNonZero", name, 1, [](bench::Size s) {
            const auto& src = bench::images<Kel8u>(s, 1, 1);
            const auto& mask = bench::images<Kel8u>(s, 1, 1);
            return bench::Call([a = src[0].mat(), m = mask[0].mat()]() mutable {
                cv::inRange(a, cv::Scalar(60), cv::Scalar(190), m);
                bench::keep(cv::countNonZero(m));
                return 0;
            });
        });
        bench::memchr_peer(name, 1);
    }
});

}  // namespace
