// keliConvert and keliScale against OpenCV's convertTo into a preallocated matrix of the
// destination type (with its scale and shift where keli stretches a range), and memcpy of the
// same bytes read and written.
#include <opencv2/core.hpp>

#include "common/bench.hpp"

namespace {

template <class S, class D> using ConvertFn = KelStatus (*)(const S*, int, D*, int, KeliSize);

template <class D> constexpr int cv_depth();
template <> constexpr int cv_depth<Kel8u>() { return CV_8U; }
template <> constexpr int cv_depth<Kel16s>() { return CV_16S; }
template <> constexpr int cv_depth<Kel32s>() { return CV_32S; }
template <> constexpr int cv_depth<Kel32f>() { return CV_32F; }

template <class S, class D, int C> void convert_rows(const char* name, ConvertFn<S, D> fn)
{
    const int traffic = int(sizeof(S) + sizeof(D)) * C;
    bench::keli(name, traffic, [fn](bench::Size s) {
        const auto& src = bench::images<S>(s, C, 1);
        const auto& dst = bench::images<D>(s, C, 1);
        return bench::Call([&src, &dst, fn, s] {
            return fn(bench::data<S>(src[0]), src[0].step, bench::data<D>(dst[0]), dst[0].step, bench::roi(s));
        });
    });
    bench::peer("opencv:convertTo", name, traffic, [](bench::Size s) {
        const auto& src = bench::images<S>(s, C, 1);
        const auto& dst = bench::images<D>(s, C, 1);
        return bench::Call([in = src[0].mat(), out = dst[0].mat()]() mutable {
            in.convertTo(out, cv_depth<D>());
            return 0;
        });
    });
    // Streaming bound: the larger of the two images copied.
    if constexpr (sizeof(D) >= sizeof(S)) bench::memcpy_peer<D>(name, C);
    else bench::memcpy_peer<S>(name, C);
}

// A member called as `call(src, srcStep, dst, dstStep, roi)`, against convertTo(alpha, beta).
template <class S, class D, class Call> void scaled_rows(const char* name, Call call, double alpha, double beta)
{
    const int traffic = int(sizeof(S) + sizeof(D));
    bench::keli(name, traffic, [call](bench::Size s) {
        const auto& src = bench::images<S>(s, 1, 1);
        const auto& dst = bench::images<D>(s, 1, 1);
        return bench::Call([&src, &dst, call, s] {
            return call(bench::data<S>(src[0]), src[0].step, bench::data<D>(dst[0]), dst[0].step, bench::roi(s));
        });
    });
    bench::peer("opencv:convertTo", name, traffic, [alpha, beta](bench::Size s) {
        const auto& src = bench::images<S>(s, 1, 1);
        const auto& dst = bench::images<D>(s, 1, 1);
        return bench::Call([in = src[0].mat(), out = dst[0].mat(), alpha, beta]() mutable {
            in.convertTo(out, cv_depth<D>(), alpha, beta);
            return 0;
        });
    });
    if constexpr (sizeof(D) >= sizeof(S)) bench::memcpy_peer<D>(name, 1);
    else bench::memcpy_peer<S>(name, 1);
}

const bench::Rows rows([] {
    convert_rows<Kel8u, Kel32f, 1>("keliConvert_8u32f_C1R", keliConvert_8u32f_C1R);
    convert_rows<Kel16s, Kel32f, 1>("keliConvert_16s32f_C1R", keliConvert_16s32f_C1R);
    convert_rows<Kel16u, Kel8u, 1>("keliConvert_16u8u_C1R", keliConvert_16u8u_C1R);
    convert_rows<Kel8u, Kel16s, 1>("keliConvert_8u16s_C1R", keliConvert_8u16s_C1R);
    convert_rows<Kel32s, Kel8u, 1>("keliConvert_32s8u_C1R", keliConvert_32s8u_C1R);
    convert_rows<Kel8u, Kel32f, 3>("keliConvert_8u32f_C3R", keliConvert_8u32f_C3R);
    scaled_rows<Kel32f, Kel8u>(
        "keliConvert_32f8u_C1R",
        [](const Kel32f* s, int ss, Kel8u* d, int ds, KeliSize r) { return keliConvert_32f8u_C1R(s, ss, d, ds, r, kelRndNear); },
        1.0, 0.0);
    scaled_rows<Kel8u, Kel32f>(
        "keliScale_8u32f_C1R",
        [](const Kel8u* s, int ss, Kel32f* d, int ds, KeliSize r) { return keliScale_8u32f_C1R(s, ss, d, ds, r, -1.0f, 1.0f); },
        2.0 / 255.0, -1.0);
});

}  // namespace
