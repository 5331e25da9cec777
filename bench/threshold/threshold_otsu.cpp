// keliThreshold* and Otsu against OpenCV's cv::threshold and memcpy of the same bytes.
//
// The pairs: greater-side keliThreshold is THRESH_TRUNC; keliThreshold_GTVal with value 0 is
// THRESH_TOZERO_INV; the two-sided C3 form is set against THRESH_TOZERO on the same C3 image
// (one pass of one compare-and-select per element; OpenCV has no two-sided form). OpenCV's
// Otsu also binarises the image after finding the level, so its row does more work than
// keli's, which only computes the level.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "common/bench.hpp"

namespace {

template <class T> void cv_threshold_peer(const char* name, int channels, double thresh, int type)
{
    const int traffic = 2 * int(sizeof(T)) * channels;
    bench::peer("opencv:threshold", name, traffic, [channels, thresh, type](bench::Size s) {
        const auto& im = bench::images<T>(s, channels, 2);
        return bench::Call([src = im[0].mat(), dst = im[1].mat(), thresh, type]() mutable {
            cv::threshold(src, dst, thresh, 0, type);
            return 0;
        });
    });
}

const bench::Rows rows([] {
    {
        const char* name = "keliThreshold_8u_C1R";
        bench::keli(name, 2, [](bench::Size s) {
            const auto& im = bench::images<Kel8u>(s, 1, 2);
            return bench::Call([&im, s] {
                return keliThreshold_8u_C1R(bench::data<Kel8u>(im[0]), im[0].step, bench::data<Kel8u>(im[1]),
                                            im[1].step, bench::roi(s), 128, kelCmpGreater);
            });
        });
        cv_threshold_peer<Kel8u>(name, 1, 128, cv::THRESH_TRUNC);
        bench::memcpy_peer<Kel8u>(name, 1);
    }
    {
        const char* name = "keliThreshold_LTValGTVal_8u_C3R";
        bench::keli(name, 6, [](bench::Size s) {
            const auto& im = bench::images<Kel8u>(s, 3, 2);
            return bench::Call([&im, s] {
                const Kel8u tl[3] = {60, 70, 80}, vl[3] = {0, 0, 0}, tg[3] = {180, 190, 200}, vg[3] = {255, 255, 255};
                return keliThreshold_LTValGTVal_8u_C3R(bench::data<Kel8u>(im[0]), im[0].step,
                                                       bench::data<Kel8u>(im[1]), im[1].step, bench::roi(s), tl, vl,
                                                       tg, vg);
            });
        });
        cv_threshold_peer<Kel8u>(name, 3, 128, cv::THRESH_TOZERO);
        bench::memcpy_peer<Kel8u>(name, 3);
    }
    {
        const char* name = "keliThreshold_GTVal_32f_C1R";
        bench::keli(name, 8, [](bench::Size s) {
            const auto& im = bench::images<Kel32f>(s, 1, 2);
            return bench::Call([&im, s] {
                return keliThreshold_GTVal_32f_C1R(bench::data<Kel32f>(im[0]), im[0].step, bench::data<Kel32f>(im[1]),
                                                   im[1].step, bench::roi(s), 0.25f, 0.0f);
            });
        });
        cv_threshold_peer<Kel32f>(name, 1, 0.25, cv::THRESH_TOZERO_INV);
        bench::memcpy_peer<Kel32f>(name, 1);
    }
    {
        const char* name = "keliComputeThreshold_Otsu_8u_C1R";
        bench::keli(name, 1, [](bench::Size s) {
            const auto& im = bench::images<Kel8u>(s, 1, 1);
            return bench::Call([&im, s] {
                Kel8u level = 0;
                return keliComputeThreshold_Otsu_8u_C1R(bench::data<Kel8u>(im[0]), im[0].step, bench::roi(s), &level);
            });
        });
        bench::peer("opencv:threshold", name, 1, [](bench::Size s) {
            const auto& im = bench::images<Kel8u>(s, 1, 2);
            return bench::Call([src = im[0].mat(), dst = im[1].mat()]() mutable {
                cv::threshold(src, dst, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU);
                return 0;
            });
        });
    }
    // The 16u members that stream their stores past the cache on large images.
    {
        const char* name = "keliThreshold_GT_16u_C1R";
        bench::keli(name, 4, [](bench::Size s) {
            const auto& im = bench::images<Kel16u>(s, 1, 2);
            return bench::Call([&im, s] {
                return keliThreshold_GT_16u_C1R(bench::data<Kel16u>(im[0]), im[0].step, bench::data<Kel16u>(im[1]),
                                                im[1].step, bench::roi(s), 40000);
            });
        });
        cv_threshold_peer<Kel16u>(name, 1, 40000, cv::THRESH_TRUNC);
        bench::memcpy_peer<Kel16u>(name, 1);
    }
    {
        const char* name = "keliThreshold_LTVal_16u_C3R";
        bench::keli(name, 12, [](bench::Size s) {
            const auto& im = bench::images<Kel16u>(s, 3, 2);
            return bench::Call([&im, s] {
                const Kel16u t[3] = {1000, 20000, 40000}, v[3] = {0, 1, 2};
                return keliThreshold_LTVal_16u_C3R(bench::data<Kel16u>(im[0]), im[0].step, bench::data<Kel16u>(im[1]),
                                                   im[1].step, bench::roi(s), t, v);
            });
        });
        bench::memcpy_peer<Kel16u>(name, 3);
    }
    {
        const char* name = "keliThreshold_16s_C1R";
        bench::keli(name, 4, [](bench::Size s) {
            const auto& im = bench::images<Kel16s>(s, 1, 2);
            return bench::Call([&im, s] {
                return keliThreshold_16s_C1R(bench::data<Kel16s>(im[0]), im[0].step, bench::data<Kel16s>(im[1]),
                                             im[1].step, bench::roi(s), 1000, kelCmpGreater);
            });
        });
        cv_threshold_peer<Kel16s>(name, 1, 1000, cv::THRESH_TRUNC);
        bench::memcpy_peer<Kel16s>(name, 1);
    }
});

}  // namespace
