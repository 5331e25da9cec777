// Alpha composition, premultiplication and colour keys against the nearest OpenCV chains, with
// every helper image of the chains (alpha spread over four channels, the weight of image 2)
// made before timing, and memcpy of one image's bytes (composition moves three streams where
// memcpy moves two).
//   keliAlphaPremul_8u_AC4R     cv::multiply(img, alpha spread to 4 channels, dst, 1/255)
//   keliAlphaPremulC_8u_C4R     cv::multiply(img, Scalar, dst, 1/255)
//   keliCompColorKey_8u_C3R     src1 copied to dst, cv::inRange(src1, key, key, m), src2.copyTo(dst, m)
//   keliAlphaComp_*_AC4R Over   cv::multiply(src1, a, t1, 1/max), cv::multiply(src2, b (1 - a), t2,
//                               1/max), cv::add(t1, t2, dst)
#include <opencv2/core.hpp>

#include <string>
#include <vector>

#include "common/bench.hpp"

namespace {

// Each pixel's alpha in all four channels (colour) and the largest value in the alpha channel.
cv::Mat spread_alpha(const cv::Mat& img, double top)
{
    std::vector<cv::Mat> ch;
    cv::split(img, ch);
    cv::Mat one(img.size(), ch[3].type(), cv::Scalar(top));
    cv::Mat out;
    cv::merge(std::vector<cv::Mat>{ch[3], ch[3], ch[3], one}, out);
    return out;
}

void premul_rows()
{
    const std::string name = "keliAlphaPremul_8u_AC4R";
    bench::keli(name, 8, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 4, 2);
        return bench::Call([&im, s] {
            return keliAlphaPremul_8u_AC4R(bench::data<Kel8u>(im[0]), im[0].step, bench::data<Kel8u>(im[1]), im[1].step,
                                           bench::roi(s));
        });
    });
    bench::peer("opencv:multiply", name, 8, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 4, 2);
        return bench::Call([src = im[0].mat(), a = spread_alpha(im[0].mat(), 255), dst = im[1].mat()]() mutable {
            cv::multiply(src, a, dst, 1.0 / 255);
            return 0;
        });
    });
    bench::memcpy_peer<Kel8u>(name, 4);

    const std::string c4 = "keliAlphaPremulC_8u_C4R";
    bench::keli(c4, 8, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 4, 2);
        return bench::Call([&im, s] {
            return keliAlphaPremulC_8u_C4R(bench::data<Kel8u>(im[0]), im[0].step, 77, bench::data<Kel8u>(im[1]),
                                           im[1].step, bench::roi(s));
        });
    });
    bench::peer("opencv:multiply", c4, 8, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 4, 2);
        return bench::Call([src = im[0].mat(), dst = im[1].mat()]() mutable {
            cv::multiply(src, cv::Scalar::all(77), dst, 1.0 / 255);
            return 0;
        });
    });
    bench::memcpy_peer<Kel8u>(c4, 4);
}

void color_key_rows()
{
    const std::string name = "keliCompColorKey_8u_C3R";
    bench::keli(name, 9, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 3, 3);
        // Random pixels seldom match the key; both sides do the same work either way.
        return bench::Call([&im, s] {
            const Kel8u key[3] = {7, 7, 7};
            return keliCompColorKey_8u_C3R(bench::data<Kel8u>(im[0]), im[0].step, bench::data<Kel8u>(im[1]),
                                           im[1].step, bench::data<Kel8u>(im[2]), im[2].step, bench::roi(s), key);
        });
    });
    bench::peer("opencv:inRange", name, 9, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 3, 3);
        return bench::Call([a = im[0].mat(), b = im[1].mat(), d = im[2].mat(), m = cv::Mat(im[0].mat().size(), CV_8U)]() mutable {
            a.copyTo(d);
            cv::inRange(a, cv::Scalar(7, 7, 7), cv::Scalar(7, 7, 7), m);
            b.copyTo(d, m);
            return 0;
        });
    });
    bench::memcpy_peer<Kel8u>(name, 3);
}

template <class T>
void comp_rows(const std::string& name, KelStatus (*fn)(const T*, int, const T*, int, T*, int, KeliSize, KeliAlphaType))
{
    const int traffic = 3 * 4 * int(sizeof(T));
    const double top = std::is_same_v<T, Kel8u> ? 255.0 : 65535.0;
    bench::keli(name, traffic, [fn](bench::Size s) {
        const auto& im = bench::images<T>(s, 4, 3);
        return bench::Call([&im, fn, s] {
            return fn(bench::data<T>(im[0]), im[0].step, bench::data<T>(im[1]), im[1].step, bench::data<T>(im[2]),
                      im[2].step, bench::roi(s), kelAlphaOver);
        });
    });
    bench::peer("opencv:multiply", name, traffic, [top](bench::Size s) {
        const auto& im = bench::images<T>(s, 4, 3);
        cv::Mat a = spread_alpha(im[0].mat(), top), w;
        // The weight of image 2: its alpha times (1 - a), over the largest value.
        cv::Mat notA;
        cv::subtract(cv::Scalar::all(top), a, notA);
        cv::multiply(spread_alpha(im[1].mat(), top), notA, w, 1.0 / top);
        return bench::Call([x = im[0].mat(), y = im[1].mat(), d = im[2].mat(), a, w, t1 = cv::Mat(),
                            t2 = cv::Mat(), top]() mutable {
            cv::multiply(x, a, t1, 1.0 / top);
            cv::multiply(y, w, t2, 1.0 / top);
            cv::add(t1, t2, d);
            return 0;
        });
    });
    bench::memcpy_peer<T>(name, 4);
}

const bench::Rows rows([] {
    premul_rows();
    color_key_rows();
    comp_rows<Kel8u>("keliAlphaComp_8u_AC4R", keliAlphaComp_8u_AC4R);
    comp_rows<Kel16u>("keliAlphaComp_16u_AC4R", keliAlphaComp_16u_AC4R);
});

}  // namespace
