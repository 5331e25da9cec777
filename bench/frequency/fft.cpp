// keliFFT against cv::dft (CV_32F gives the same packed layout; CV_32FC2 the complex spectrum)
// and against FFTW's single-precision planner with FFTW_MEASURE. FFTW's real transform writes
// W/2+1 complex values a row instead of the packed layout; it is timed as it stands, without
// a repack. Its multi-dimensional inverse real plan may overwrite its input, so its inverse row
// is timed on whatever the previous call left there (arithmetic on any values runs at the same
// speed, denormals aside, and the data grows far from them).
#include <fftw3.h>

#include <memory>
#include <opencv2/core.hpp>

#include "common/bench.hpp"

namespace {

const std::vector<bench::Size> kFftSizes = {{256, 256}, {512, 512}, {1024, 1024}};

int order_of(int n)
{
    int o = 0;
    while ((1 << o) < n) ++o;
    return o;
}

// Spec and work buffer of one size, kept alive by the timed call.
struct KeliPlan {
    std::vector<Kel8u> spec, buffer;
    KeliPlan(bool real, bench::Size s)
    {
        int sp = 0, in = 0, bu = 0;
        const int ox = order_of(s.width), oy = order_of(s.height);
        (real ? keliFFTGetSize_R_32f : keliFFTGetSize_C_32fc)(ox, oy, 8, kelAlgHintNone, &sp, &in, &bu);
        spec.resize(sp);
        buffer.resize(bu);
        std::vector<Kel8u> init(in);
        (real ? keliFFTInit_R_32f : keliFFTInit_C_32fc)(ox, oy, 8, kelAlgHintNone, spec.data(), in ? init.data() : nullptr);
    }
};

struct FftwPlan {
    fftwf_plan plan = nullptr;
    float* in = nullptr;
    float* out = nullptr;
    ~FftwPlan()
    {
        fftwf_destroy_plan(plan);
        fftwf_free(in);
        fftwf_free(out);
    }
};

enum class Kind { RealForward, RealInverse, ComplexForward };

std::shared_ptr<FftwPlan> fftw_plan(Kind kind, bench::Size s)
{
    auto p = std::make_shared<FftwPlan>();
    const std::size_t w = s.width, h = s.height, half = w / 2 + 1;
    const std::size_t inFloats = kind == Kind::RealForward ? w * h : kind == Kind::RealInverse ? 2 * half * h : 2 * w * h;
    const std::size_t outFloats = kind == Kind::RealForward ? 2 * half * h : kind == Kind::RealInverse ? w * h : 2 * w * h;
    p->in = fftwf_alloc_real(inFloats);
    p->out = fftwf_alloc_real(outFloats);
    auto* cin = reinterpret_cast<fftwf_complex*>(p->in);
    auto* cout = reinterpret_cast<fftwf_complex*>(p->out);
    if (kind == Kind::RealForward) p->plan = fftwf_plan_dft_r2c_2d(s.height, s.width, p->in, cout, FFTW_MEASURE);
    if (kind == Kind::RealInverse) p->plan = fftwf_plan_dft_c2r_2d(s.height, s.width, cin, p->out, FFTW_MEASURE);
    if (kind == Kind::ComplexForward) p->plan = fftwf_plan_dft_2d(s.height, s.width, cin, cout, FFTW_FORWARD, FFTW_MEASURE);
    for (std::size_t i = 0; i < inFloats; ++i) p->in[i] = static_cast<float>((i * 7919) % 1000) / 1000.0f - 0.5f;
    return p;
}

using RealFn = KelStatus (*)(const Kel32f*, int, Kel32f*, int, const Kel8u*, Kel8u*);

void real_rows(const char* name, RealFn fn, Kind kind)
{
    const int traffic = 8;
    bench::keli(name, traffic, [fn](bench::Size s) {
        const auto& im = bench::images<float>(s, 1, 2);
        auto plan = std::make_shared<KeliPlan>(true, s);
        return bench::Call([&im, fn, plan] {
            return fn(bench::data<float>(im[0]), im[0].step, bench::data<float>(im[1]), im[1].step, plan->spec.data(),
                      plan->buffer.data());
        });
    }, kFftSizes);
    bench::peer("opencv:dft", name, traffic, [kind](bench::Size s) {
        const auto& im = bench::images<float>(s, 1, 2);
        const int flags = kind == Kind::RealForward ? 0 : cv::DFT_INVERSE | cv::DFT_REAL_OUTPUT;
        return bench::Call([src = im[0].mat(), dst = im[1].mat(), flags]() mutable {
            cv::dft(src, dst, flags);
            return 0;
        });
    }, kFftSizes);
    bench::peer("fftw:fftwf_execute", name, traffic, [kind](bench::Size s) {
        auto plan = fftw_plan(kind, s);
        return bench::Call([plan] {
            fftwf_execute(plan->plan);
            return 0;
        });
    }, kFftSizes);
}

void complex_rows(const char* name)
{
    const std::vector<bench::Size> sizes = {{512, 512}};
    const int traffic = 16;
    bench::keli(name, traffic, [](bench::Size s) {
        const auto& im = bench::images<float>(s, 2, 2);
        auto plan = std::make_shared<KeliPlan>(false, s);
        return bench::Call([&im, plan] {
            return keliFFTFwd_CToC_32fc_C1R(bench::data<Kel32fc>(im[0]), im[0].step, bench::data<Kel32fc>(im[1]),
                                            im[1].step, plan->spec.data(), plan->buffer.data());
        });
    }, sizes);
    bench::peer("opencv:dft", name, traffic, [](bench::Size s) {
        const auto& im = bench::images<float>(s, 2, 2);
        return bench::Call([src = im[0].mat(), dst = im[1].mat()]() mutable {
            cv::dft(src, dst);
            return 0;
        });
    }, sizes);
    bench::peer("fftw:fftwf_execute", name, traffic, [](bench::Size s) {
        auto plan = fftw_plan(Kind::ComplexForward, s);
        return bench::Call([plan] {
            fftwf_execute(plan->plan);
            return 0;
        });
    }, sizes);
}

const bench::Rows rows([] {
    real_rows("keliFFTFwd_RToPack_32f_C1R", keliFFTFwd_RToPack_32f_C1R, Kind::RealForward);
    real_rows("keliFFTInv_PackToR_32f_C1R", keliFFTInv_PackToR_32f_C1R, Kind::RealInverse);
    complex_rows("keliFFTFwd_CToC_32fc_C1R");
});

}  // namespace
