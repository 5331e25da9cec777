// keliMalloc + keliFree of one 8u image against OpenCV's fastMalloc/fastFree and the C
// library's aligned_alloc/free of the same bytes (row rounded up to 64 bytes).
#include <cstdlib>

#include <opencv2/core.hpp>

#include "common/bench.hpp"

namespace {

std::size_t image_bytes(bench::Size s) { return std::size_t((s.width + 63) & ~63) * s.height; }

const bench::Rows rows([] {
    bench::keli("keliMalloc_8u_C1", 0, [](bench::Size s) {
        return bench::Call([s] {
            int step = 0;
            Kel8u* p = keliMalloc_8u_C1(s.width, s.height, &step);
            bench::keep(p);
            keliFree(p);
            return p ? 0 : -9;
        });
    });
    bench::peer("opencv:fastMalloc", "keliMalloc_8u_C1", 0, [](bench::Size s) {
        return bench::Call([bytes = image_bytes(s)] {
            void* p = cv::fastMalloc(bytes);
            bench::keep(p);
            cv::fastFree(p);
            return 0;
        });
    });
    bench::peer("libc:aligned_alloc", "keliMalloc_8u_C1", 0, [](bench::Size s) {
        return bench::Call([bytes = image_bytes(s)] {
            void* p = std::aligned_alloc(64, bytes);
            bench::keep(p);
            std::free(p);
            return p ? 0 : -9;
        });
    });
});

}  // namespace
