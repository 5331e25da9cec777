// keliWarpAffine against cv::warpAffine with WARP_INVERSE_MAP (the matrix maps destination to
// source, keli's direction 1), the same interpolation and a constant border, single thread. The
// matrix turns the image by 30 degrees about its centre, so about a fifth of the destination is
// border. Also a scale-only matrix (1.5x, the per-axis table route) and a whole-pixel shift,
// which copies and is measured against memcpy. Rows are named <export> or <export>:<case>.
#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "common/bench.hpp"

namespace {

template <class T> using WarpFn = KelStatus (*)(const T*, int, T*, int, KeliPoint, KeliSize, const KeliWarpSpec*, Kel8u*);

template <class T> KelDataType type_of();
template <> KelDataType type_of<Kel8u>() { return kel8u; }
template <> KelDataType type_of<Kel16u>() { return kel16u; }
template <> KelDataType type_of<Kel32f>() { return kel32f; }

struct Matrix {
    double m[6];
};

Matrix turn30(bench::Size s)
{
    Matrix r;
    double xs, ys;
    keliGetRotateShift(0.5 * (s.width - 1), 0.5 * (s.height - 1), 30, &xs, &ys);
    keliGetRotateTransform(30, xs, ys, r.m);
    return r;
}

Matrix scale15(bench::Size) { return Matrix{{1 / 1.5, 0, 0, 0, 1 / 1.5, 0}}; }
Matrix shift(bench::Size) { return Matrix{{1, 0, 3, 0, 1, 2}}; }

// The spec and buffer of one size, built outside the timed loop.
struct Prepared {
    std::vector<unsigned char> spec;
    std::vector<Kel8u> buffer;
};

template <class T>
std::shared_ptr<Prepared> prepare(bench::Size s, int channels, int kind, const Matrix& mx)
{
    auto p = std::make_shared<Prepared>();
    int specSize = 0, initSize = 0, bufSize = 0;
    keliWarpAffineGetSize(bench::roi(s), bench::roi(s), type_of<T>(), mx.m, kind, 1, kelBorderConst, &specSize, &initSize);
    p->spec.resize(std::size_t(specSize));
    auto* spec = reinterpret_cast<KeliWarpSpec*>(p->spec.data());
    const double zero[4] = {0, 0, 0, 0};
    if (kind == kelCubic) {
        std::vector<Kel8u> initBuf(std::size_t(std::max(initSize, 1)));
        keliWarpAffineCubicInit(bench::roi(s), bench::roi(s), type_of<T>(), mx.m, 1, channels, 0, 0.5, kelBorderConst,
                                zero, 0, spec, initBuf.data());
    } else {
        (kind == kelNearest ? keliWarpAffineNearestInit : keliWarpAffineLinearInit)(
            bench::roi(s), bench::roi(s), type_of<T>(), mx.m, 1, channels, kelBorderConst, zero, 0, spec);
    }
    keliWarpGetBufferSize(spec, bench::roi(s), &bufSize);
    p->buffer.resize(std::size_t(bufSize));
    return p;
}

template <class T, int C>
void warp_rows(const std::string& row, WarpFn<T> fn, int kind, int cvKind, Matrix (*matrix)(bench::Size), bool copy)
{
    const int traffic = 2 * C * int(sizeof(T));
    bench::keli(row, traffic, [fn, kind, matrix](bench::Size s) {
        const auto& im = bench::images<T>(s, C, 2);
        auto p = prepare<T>(s, C, kind, matrix(s));
        return bench::Call([&im, p, fn, s] {
            return fn(bench::data<T>(im[0]), im[0].step, bench::data<T>(im[1]), im[1].step, KeliPoint{0, 0},
                      bench::roi(s), reinterpret_cast<const KeliWarpSpec*>(p->spec.data()), p->buffer.data());
        });
    });
    if (copy) {
        bench::memcpy_peer<T>(row, C);
        return;
    }
    bench::peer("opencv:warpAffine", row, traffic, [cvKind, matrix](bench::Size s) {
        const auto& im = bench::images<T>(s, C, 2);
        const Matrix mx = matrix(s);
        cv::Mat m(2, 3, CV_64F);
        for (int i = 0; i < 6; ++i) m.at<double>(i / 3, i % 3) = mx.m[i];
        return bench::Call([src = im[0].mat(), dst = im[1].mat(), m, cvKind]() mutable {
            cv::warpAffine(src, dst, m, dst.size(), cvKind | cv::WARP_INVERSE_MAP, cv::BORDER_CONSTANT);
            return 0;
        });
    });
}

const bench::Rows rows([] {
    warp_rows<Kel8u, 1>("keliWarpAffineLinear_8u_C1R", keliWarpAffineLinear_8u_C1R, kelLinear, cv::INTER_LINEAR, turn30, false);
    warp_rows<Kel8u, 4>("keliWarpAffineLinear_8u_C4R", keliWarpAffineLinear_8u_C4R, kelLinear, cv::INTER_LINEAR, turn30, false);
    warp_rows<Kel8u, 1>("keliWarpAffineNearest_8u_C1R", keliWarpAffineNearest_8u_C1R, kelNearest, cv::INTER_NEAREST, turn30,
                        false);
    warp_rows<Kel32f, 1>("keliWarpAffineLinear_32f_C1R", keliWarpAffineLinear_32f_C1R, kelLinear, cv::INTER_LINEAR, turn30,
                         false);
    warp_rows<Kel8u, 1>("keliWarpAffineCubic_8u_C1R", keliWarpAffineCubic_8u_C1R, kelCubic, cv::INTER_CUBIC, turn30, false);
    warp_rows<Kel16u, 1>("keliWarpAffineLinear_16u_C1R:scale", keliWarpAffineLinear_16u_C1R, kelLinear, cv::INTER_LINEAR,
                         scale15, false);
    warp_rows<Kel8u, 1>("keliWarpAffineNearest_8u_C1R:shift", keliWarpAffineNearest_8u_C1R, kelNearest, cv::INTER_NEAREST,
                        shift, true);
});

}  // namespace
