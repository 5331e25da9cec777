// Entry of every benchmark binary: OpenCV on one thread and without any bundled vendor
// kernels, and the facts a reader of the results needs recorded in the output's context.
#include <cstdlib>
#include <string>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>

#include "kelcore.h"
#include "keli.h"

int main(int argc, char** argv)
{
    cv::setNumThreads(1);
    cv::ipp::setUseIPP(false);

    const char* disabled = std::getenv("OPENCV_CPU_DISABLE");
    benchmark::AddCustomContext("opencv_version", CV_VERSION);
    benchmark::AddCustomContext("opencv_cpu_disable", disabled ? disabled : "");
    benchmark::AddCustomContext("opencv_avx", cv::checkHardwareSupport(CV_CPU_AVX) ? "on" : "off");
    benchmark::AddCustomContext("opencv_avx2", cv::checkHardwareSupport(CV_CPU_AVX2) ? "on" : "off");
    benchmark::AddCustomContext("opencv_avx512_skx", cv::checkHardwareSupport(CV_CPU_AVX512_SKX) ? "on" : "off");
    benchmark::AddCustomContext("opencv_threads", std::to_string(cv::getNumThreads()));
    std::int32_t cache = 0;
    if (kelGetMaxCacheSizeB(&cache) == kelStatusOk) benchmark::AddCustomContext("kel_max_cache_bytes", std::to_string(cache));
    benchmark::AddCustomContext("keli_version", keliGetLibVersion()->Version);

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
