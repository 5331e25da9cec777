// The general kernel filter against cv::filter2D with the same kernel (as floats k / divisor)
// and the replicated border; 8u rows also against cv::sepFilter2D with the kernel's factors, in
// a column of its own ("separable") so that the filter2D ratio stays like for like.
// Rows are "<export>@<kernel>": 3x3d16 is a 3x3 integer kernel with divisor 16.
#include <opencv2/imgproc.hpp>

#include <memory>
#include <string>
#include <vector>

#include "common/bench.hpp"

namespace {

struct KernelRow {
    std::string tag;
    int kw, kh;
    std::vector<float> x, y;  // separable factors: the kernel is y * x^T ...
    int divisor;              // ... times divisor for an integer kernel (1 for float kernels)
};

std::vector<float> binomial(int n)
{
    std::vector<float> v(1, 1.0f);
    for (int i = 1; i < n; ++i) {
        std::vector<float> w(v.size() + 1, 0.0f);
        for (std::size_t j = 0; j < v.size(); ++j) w[j] += v[j], w[j + 1] += v[j];
        v = w;
    }
    return v;
}

// Decimal-looking float taps, so that 32f kernels are not dyadic.
std::vector<float> tapered(int n)
{
    std::vector<float> v(n);
    for (int i = 0; i < n; ++i) v[i] = 0.1f + 0.07f * float(i < n / 2 ? i : n - 1 - i);
    return v;
}

template <class T> constexpr KelDataType type_of = std::is_same_v<T, Kel8u> ? kel8u
                                                   : std::is_same_v<T, Kel16s> ? kel16s
                                                   : std::is_same_v<T, Kel32f> ? kel32f
                                                                               : kel64f;

struct Prepared {
    std::vector<unsigned char> spec, buffer;
};

template <class T> std::shared_ptr<Prepared> prepare(const KernelRow& k, int C, bench::Size s)
{
    auto p = std::make_shared<Prepared>();
    const KeliSize ks{k.kw, k.kh};
    const KelDataType kernelType = k.divisor > 1 ? kel16s : std::is_same_v<T, double> ? kel64f : kel32f;
    int specSize = 0, bufferSize = 0;
    keliFilterBorderGetSize(ks, bench::roi(s), type_of<T>, kernelType, C, &specSize, &bufferSize);
    p->spec.resize(specSize);
    p->buffer.resize(bufferSize);
    auto* spec = reinterpret_cast<KeliFilterBorderSpec*>(p->spec.data());
    std::vector<Kel16s> ints;
    std::vector<Kel32f> floats;
    std::vector<Kel64f> doubles;
    for (int j = 0; j < k.kh; ++j)
        for (int i = 0; i < k.kw; ++i) {
            ints.push_back(Kel16s(k.y[j] * k.x[i]));
            floats.push_back(k.y[j] * k.x[i]);
            doubles.push_back(double(k.y[j]) * k.x[i]);
        }
    if (kernelType == kel16s) keliFilterBorderInit_16s(ints.data(), ks, k.divisor, type_of<T>, C, kelRndNear, spec);
    else if (kernelType == kel32f) keliFilterBorderInit_32f(floats.data(), ks, type_of<T>, C, kelRndNear, spec);
    else keliFilterBorderInit_64f(doubles.data(), ks, kel64f, 1, kelRndNear, spec);
    return p;
}

template <class T, int C, class Fn> void rows_for(const std::string& name, const KernelRow& k, Fn fn, bool separable)
{
    const std::string row = name + "@" + k.tag;
    const int traffic = 2 * int(sizeof(T)) * C;
    bench::keli(row, traffic, [k, fn](bench::Size s) {
        const auto& im = bench::images<T>(s, C, 2);
        auto p = prepare<T>(k, C, s);
        return bench::Call([&im, p, fn, s] {
            return fn(bench::data<T>(im[0]), im[0].step, bench::data<T>(im[1]), im[1].step, bench::roi(s), kelBorderRepl,
                      nullptr, reinterpret_cast<const KeliFilterBorderSpec*>(p->spec.data()), p->buffer.data());
        });
    });
    bench::peer("opencv:filter2D", row, traffic, [k](bench::Size s) {
        const auto& im = bench::images<T>(s, C, 2);
        cv::Mat kernel(k.kh, k.kw, CV_32F);
        for (int j = 0; j < k.kh; ++j)
            for (int i = 0; i < k.kw; ++i) kernel.at<float>(j, i) = k.y[j] * k.x[i] / float(k.divisor);
        return bench::Call([in = im[0].mat(), out = im[1].mat(), kernel, k]() mutable {
            cv::filter2D(in, out, -1, kernel, cv::Point((k.kw - 1) / 2, (k.kh - 1) / 2), 0, cv::BORDER_REPLICATE);
            return 0;
        });
    });
    if (!separable) return;
    bench::peer("separable:sepFilter2D", row, traffic, [k](bench::Size s) {
        const auto& im = bench::images<T>(s, C, 2);
        cv::Mat kx(1, k.kw, CV_32F), ky(k.kh, 1, CV_32F);
        for (int i = 0; i < k.kw; ++i) kx.at<float>(0, i) = k.x[i];
        for (int j = 0; j < k.kh; ++j) ky.at<float>(j, 0) = k.y[j] / float(k.divisor);
        return bench::Call([in = im[0].mat(), out = im[1].mat(), kx, ky, k]() mutable {
            cv::sepFilter2D(in, out, -1, kx, ky, cv::Point((k.kw - 1) / 2, (k.kh - 1) / 2), 0, cv::BORDER_REPLICATE);
            return 0;
        });
    });
}

const bench::Rows rows([] {
    const KernelRow b3{"3x3d16", 3, 3, binomial(3), binomial(3), 16};
    const KernelRow b5{"5x5d256", 5, 5, binomial(5), binomial(5), 256};
    const KernelRow box3{"3x3d9", 3, 3, {1, 1, 1}, {1, 1, 1}, 9};
    rows_for<Kel8u, 1>("keliFilterBorder_8u_C1R", b3, keliFilterBorder_8u_C1R, true);
    rows_for<Kel8u, 1>("keliFilterBorder_8u_C1R", b5, keliFilterBorder_8u_C1R, true);
    rows_for<Kel8u, 1>("keliFilterBorder_8u_C1R", box3, keliFilterBorder_8u_C1R, true);
    rows_for<Kel8u, 3>("keliFilterBorder_8u_C3R", b3, keliFilterBorder_8u_C3R, true);
    rows_for<Kel16s, 1>("keliFilterBorder_16s_C1R", b5, keliFilterBorder_16s_C1R, false);
    for (int n : {3, 5, 11}) {
        const KernelRow f{std::to_string(n) + "x" + std::to_string(n), n, n, tapered(n), tapered(n), 1};
        rows_for<Kel32f, 1>("keliFilterBorder_32f_C1R", f, keliFilterBorder_32f_C1R, false);
    }
    rows_for<Kel64f, 1>("keliFilterBorder_64f_C1R", KernelRow{"5x5", 5, 5, tapered(5), tapered(5), 1},
                        keliFilterBorder_64f_C1R, false);
});

}  // namespace
