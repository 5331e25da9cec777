// keliCopy, keliSet, keliDup and keliSwapChannels against the OpenCV calls that do the same job
// (copyTo, setTo, split, merge, mixChannels, copyTo with a mask, cvtColor gray to BGR) and
// against memcpy and memset of the same bytes.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vector>

#include "common/bench.hpp"

namespace {

void copy_rows()
{
    const char* name = "keliCopy_8u_C1R";
    bench::keli(name, 2, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 1, 2);
        return bench::Call([&im, s] { return keliCopy_8u_C1R(bench::data<Kel8u>(im[0]), im[0].step, bench::data<Kel8u>(im[1]), im[1].step, bench::roi(s)); });
    });
    bench::peer("opencv:copyTo", name, 2, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 1, 2);
        return bench::Call([src = im[0].mat(), dst = im[1].mat()]() mutable {
            src.copyTo(dst);
            return 0;
        });
    });
    bench::memcpy_peer<Kel8u>(name, 1);

    const char* name32 = "keliCopy_32f_C3R";
    bench::keli(name32, 24, [](bench::Size s) {
        const auto& im = bench::images<Kel32f>(s, 3, 2);
        return bench::Call([&im, s] { return keliCopy_32f_C3R(bench::data<Kel32f>(im[0]), im[0].step, bench::data<Kel32f>(im[1]), im[1].step, bench::roi(s)); });
    });
    bench::memcpy_peer<Kel32f>(name32, 3);
}

void set_rows()
{
    const char* name = "keliSet_8u_C1R";
    bench::keli(name, 1, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 1, 1);
        return bench::Call([&im, s] { return keliSet_8u_C1R(0x5A, bench::data<Kel8u>(im[0]), im[0].step, bench::roi(s)); });
    });
    bench::peer("opencv:setTo", name, 1, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 1, 1);
        return bench::Call([dst = im[0].mat()]() mutable {
            dst.setTo(cv::Scalar::all(0x5A));
            return 0;
        });
    });
    bench::memset_peer<Kel8u>(name, 1);

    const char* name3 = "keliSet_8u_C3R";
    bench::keli(name3, 3, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 3, 1);
        return bench::Call([&im, s] {
            const Kel8u value[3] = {1, 2, 3};
            return keliSet_8u_C3R(value, bench::data<Kel8u>(im[0]), im[0].step, bench::roi(s));
        });
    });
    bench::peer("opencv:setTo", name3, 3, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 3, 1);
        return bench::Call([dst = im[0].mat()]() mutable {
            dst.setTo(cv::Scalar(1, 2, 3));
            return 0;
        });
    });
    bench::memset_peer<Kel8u>(name3, 3);
}

template <class T, int C>
void split_merge_rows(const char* splitName, KelStatus (*split)(const T*, int, T* const*, int, KeliSize),
                      const char* mergeName, KelStatus (*merge)(const T* const*, int, T*, int, KeliSize))
{
    const int traffic = 2 * C * int(sizeof(T));
    bench::keli(splitName, traffic, [split](bench::Size s) {
        const auto& src = bench::images<T>(s, C, 1);
        const auto& planes = bench::images<T>(s, 1, C);
        return bench::Call([&src, &planes, split, s] {
            T* dst[4];
            for (int k = 0; k < C; ++k) dst[k] = bench::data<T>(planes[k]);
            return split(bench::data<T>(src[0]), src[0].step, dst, planes[0].step, bench::roi(s));
        });
    });
    bench::peer("opencv:split", splitName, traffic, [](bench::Size s) {
        const auto& src = bench::images<T>(s, C, 1);
        const auto& planes = bench::images<T>(s, 1, C);
        std::vector<cv::Mat> mv;
        for (int k = 0; k < C; ++k) mv.push_back(planes[k].mat());
        return bench::Call([src = src[0].mat(), mv]() mutable {
            cv::split(src, mv.data());
            return 0;
        });
    });
    bench::memcpy_peer<T>(splitName, C);
    bench::keli(mergeName, traffic, [merge](bench::Size s) {
        const auto& planes = bench::images<T>(s, 1, C);
        const auto& dst = bench::images<T>(s, C, 1);
        return bench::Call([&planes, &dst, merge, s] {
            const T* src[4];
            for (int k = 0; k < C; ++k) src[k] = bench::data<T>(planes[k]);
            return merge(src, planes[0].step, bench::data<T>(dst[0]), dst[0].step, bench::roi(s));
        });
    });
    bench::peer("opencv:merge", mergeName, traffic, [](bench::Size s) {
        const auto& planes = bench::images<T>(s, 1, C);
        const auto& dst = bench::images<T>(s, C, 1);
        std::vector<cv::Mat> mv;
        for (int k = 0; k < C; ++k) mv.push_back(planes[k].mat());
        return bench::Call([mv, out = dst[0].mat()]() mutable {
            cv::merge(mv.data(), mv.size(), out);
            return 0;
        });
    });
    bench::memcpy_peer<T>(mergeName, C);
}

void swap_rows()
{
    const char* name = "keliSwapChannels_8u_C3R";
    bench::keli(name, 6, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 3, 2);
        return bench::Call([&im, s] {
            const int order[3] = {2, 1, 0};
            return keliSwapChannels_8u_C3R(bench::data<Kel8u>(im[0]), im[0].step, bench::data<Kel8u>(im[1]), im[1].step, bench::roi(s), order);
        });
    });
    bench::peer("opencv:mixChannels", name, 6, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 3, 2);
        return bench::Call([src = im[0].mat(), dst = im[1].mat()]() mutable {
            const int fromTo[] = {0, 2, 1, 1, 2, 0};
            cv::mixChannels(&src, 1, &dst, 1, fromTo, 3);
            return 0;
        });
    });
    bench::memcpy_peer<Kel8u>(name, 3);

    const char* name4 = "keliSwapChannels_8u_C4R";
    bench::keli(name4, 8, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 4, 2);
        return bench::Call([&im, s] {
            const int order[4] = {2, 1, 0, 3};
            return keliSwapChannels_8u_C4R(bench::data<Kel8u>(im[0]), im[0].step, bench::data<Kel8u>(im[1]), im[1].step, bench::roi(s), order);
        });
    });
    bench::peer("opencv:mixChannels", name4, 8, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 4, 2);
        return bench::Call([src = im[0].mat(), dst = im[1].mat()]() mutable {
            const int fromTo[] = {0, 2, 1, 1, 2, 0, 3, 3};
            cv::mixChannels(&src, 1, &dst, 1, fromTo, 4);
            return 0;
        });
    });

    const char* dup = "keliDup_8u_C1C3R";
    bench::keli(dup, 4, [](bench::Size s) {
        const auto& src = bench::images<Kel8u>(s, 1, 1);
        const auto& dst = bench::images<Kel8u>(s, 3, 1);
        return bench::Call([&src, &dst, s] { return keliDup_8u_C1C3R(bench::data<Kel8u>(src[0]), src[0].step, bench::data<Kel8u>(dst[0]), dst[0].step, bench::roi(s)); });
    });
    bench::peer("opencv:cvtColor", dup, 4, [](bench::Size s) {
        const auto& src = bench::images<Kel8u>(s, 1, 1);
        const auto& dst = bench::images<Kel8u>(s, 3, 1);
        return bench::Call([src = src[0].mat(), dst = dst[0].mat()]() mutable {
            cv::cvtColor(src, dst, cv::COLOR_GRAY2BGR);
            return 0;
        });
    });
}

// A mask of runs of set and clear pixels of irregular lengths, so that groups of 16 are all
// clear, all set and mixed in about equal shares.
void mask_pattern(const bench::Image& mask)
{
    unsigned state = 12345;
    for (int y = 0; y < mask.size.height; ++y)
        for (int x = 0; x < mask.size.width; ++x) {
            state = state * 1103515245u + 12345u;
            mask.row(y)[x] = ((x + (state >> 28)) / 24 + y) % 2 ? 255 : 0;
        }
}

void masked_rows()
{
    const char* name = "keliCopy_8u_C1MR";
    bench::keli(name, 4, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 1, 3);
        mask_pattern(im[2]);
        return bench::Call([&im, s] {
            return keliCopy_8u_C1MR(bench::data<Kel8u>(im[0]), im[0].step, bench::data<Kel8u>(im[1]), im[1].step, bench::roi(s),
                                    bench::data<Kel8u>(im[2]), im[2].step);
        });
    });
    bench::peer("opencv:copyTo", name, 4, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 1, 3);
        mask_pattern(im[2]);
        return bench::Call([src = im[0].mat(), dst = im[1].mat(), mask = im[2].mat()]() mutable {
            src.copyTo(dst, mask);
            return 0;
        });
    });
    const char* name3 = "keliCopy_8u_C3MR";
    bench::keli(name3, 7, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 3, 2);
        const auto& mask = bench::images<Kel8u>(s, 1, 1);
        mask_pattern(mask[0]);
        return bench::Call([&im, &mask, s] {
            return keliCopy_8u_C3MR(bench::data<Kel8u>(im[0]), im[0].step, bench::data<Kel8u>(im[1]), im[1].step, bench::roi(s),
                                    bench::data<Kel8u>(mask[0]), mask[0].step);
        });
    });
    bench::peer("opencv:copyTo", name3, 7, [](bench::Size s) {
        const auto& im = bench::images<Kel8u>(s, 3, 2);
        const auto& mask = bench::images<Kel8u>(s, 1, 1);
        mask_pattern(mask[0]);
        return bench::Call([src = im[0].mat(), dst = im[1].mat(), m = mask[0].mat()]() mutable {
            src.copyTo(dst, m);
            return 0;
        });
    });
}

const bench::Rows rows([] {
    copy_rows();
    set_rows();
    split_merge_rows<Kel8u, 3>("keliCopy_8u_C3P3R", keliCopy_8u_C3P3R, "keliCopy_8u_P3C3R", keliCopy_8u_P3C3R);
    split_merge_rows<Kel8u, 4>("keliCopy_8u_C4P4R", keliCopy_8u_C4P4R, "keliCopy_8u_P4C4R", keliCopy_8u_P4C4R);
    split_merge_rows<Kel32f, 3>("keliCopy_32f_C3P3R", keliCopy_32f_C3P3R, "keliCopy_32f_P3C3R", keliCopy_32f_P3C3R);
    swap_rows();
    masked_rows();
});

}  // namespace
