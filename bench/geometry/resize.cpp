// keliResizeLinear and keliResizeNearest against cv::resize, single thread, the destination at
// 256x256 and 3840x2160 and the source 1.5 times larger (:down) or smaller (:up); one 2:1 row
// (:half) for 16u. keli runs the whole destination as one tile with a spec made in the setup.
// Rows are named <export>:<direction>.
#include <memory>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "common/bench.hpp"

namespace {

template <class T> using LinearFn = KelStatus (*)(const T*, int, T*, int, KeliPoint, KeliSize, KeliBorderType, const T*,
                                                  const KeliResizeSpec*, Kel8u*);
template <class T> using NearestFn = KelStatus (*)(const T*, int, T*, int, KeliPoint, KeliSize, const KeliResizeSpec*, Kel8u*);

struct Direction {
    const char* name;
    int num, den;  // source = destination * num / den
};
const Direction kDown{"down", 3, 2}, kUp{"up", 2, 3}, kHalf{"half", 2, 1};

bench::Size source_of(bench::Size s, Direction d) { return {s.width * d.num / d.den, s.height * d.num / d.den}; }

// The spec and work buffer of one size pair, made by the Init the kind and type call for.
struct Prepared {
    std::vector<Kel8u> spec, buffer;
};

template <class T> std::shared_ptr<Prepared> prepare(bench::Size src, bench::Size dst, int channels, bool nearest)
{
    auto p = std::make_shared<Prepared>();
    const KeliSize s{src.width, src.height}, d{dst.width, dst.height};
    int specSize = 0, initSize = 0, bufSize = 0;
    keliResizeGetSize_8u(s, d, nearest ? kelNearest : kelLinear, 0, &specSize, &initSize);
    p->spec.resize(specSize);
    auto* spec = reinterpret_cast<KeliResizeSpec*>(p->spec.data());
    if (nearest) keliResizeNearestInit_8u(s, d, spec);
    else if (std::is_same_v<T, Kel8u>) keliResizeLinearInit_8u(s, d, spec);
    else keliResizeLinearInit_32f(s, d, spec);
    keliResizeGetBufferSize_8u(spec, d, channels, &bufSize);
    p->buffer.resize(bufSize);
    return p;
}

template <class T, int C> void linear_rows(const std::string& name, LinearFn<T> fn, Direction dir, bool exactPeer)
{
    const std::string row = name + ":" + dir.name;
    const int traffic = 2 * C * int(sizeof(T));
    bench::keli(row, traffic, [fn, dir](bench::Size s) {
        const auto& src = bench::images<T>(source_of(s, dir), C, 1);
        const auto& dst = bench::images<T>(s, C, 1);
        auto p = prepare<T>(source_of(s, dir), s, C, false);
        return bench::Call([&src, &dst, p, fn, s] {
            return fn(bench::data<T>(src[0]), src[0].step, bench::data<T>(dst[0]), dst[0].step, {0, 0}, bench::roi(s),
                      kelBorderRepl, nullptr, reinterpret_cast<const KeliResizeSpec*>(p->spec.data()), p->buffer.data());
        });
    });
    for (int kind : exactPeer ? std::vector<int>{cv::INTER_LINEAR, cv::INTER_LINEAR_EXACT} : std::vector<int>{cv::INTER_LINEAR}) {
        bench::peer(kind == cv::INTER_LINEAR ? "opencv:resize" : "opencv:resize_exact", row, traffic, [dir, kind](bench::Size s) {
            const auto& src = bench::images<T>(source_of(s, dir), C, 1);
            const auto& dst = bench::images<T>(s, C, 1);
            return bench::Call([a = src[0].mat(), b = dst[0].mat(), s, kind]() mutable {
                cv::resize(a, b, cv::Size(s.width, s.height), 0, 0, kind);
                return 0;
            });
        });
    }
}

template <class T, int C> void nearest_rows(const std::string& name, NearestFn<T> fn, Direction dir)
{
    const std::string row = name + ":" + dir.name;
    const int traffic = 2 * C * int(sizeof(T));
    bench::keli(row, traffic, [fn, dir](bench::Size s) {
        const auto& src = bench::images<T>(source_of(s, dir), C, 1);
        const auto& dst = bench::images<T>(s, C, 1);
        auto p = prepare<T>(source_of(s, dir), s, C, true);
        return bench::Call([&src, &dst, p, fn, s] {
            return fn(bench::data<T>(src[0]), src[0].step, bench::data<T>(dst[0]), dst[0].step, {0, 0}, bench::roi(s),
                      reinterpret_cast<const KeliResizeSpec*>(p->spec.data()), p->buffer.data());
        });
    });
    bench::peer("opencv:resize", row, traffic, [dir](bench::Size s) {
        const auto& src = bench::images<T>(source_of(s, dir), C, 1);
        const auto& dst = bench::images<T>(s, C, 1);
        return bench::Call([a = src[0].mat(), b = dst[0].mat(), s]() mutable {
            cv::resize(a, b, cv::Size(s.width, s.height), 0, 0, cv::INTER_NEAREST);
            return 0;
        });
    });
}

const bench::Rows rows([] {
    for (Direction d : {kDown, kUp}) {
        linear_rows<Kel8u, 1>("keliResizeLinear_8u_C1R", keliResizeLinear_8u_C1R, d, true);
        linear_rows<Kel8u, 4>("keliResizeLinear_8u_C4R", keliResizeLinear_8u_C4R, d, true);
        linear_rows<Kel16u, 1>("keliResizeLinear_16u_C1R", keliResizeLinear_16u_C1R, d, false);
        linear_rows<Kel32f, 1>("keliResizeLinear_32f_C1R", keliResizeLinear_32f_C1R, d, false);
        nearest_rows<Kel8u, 1>("keliResizeNearest_8u_C1R", keliResizeNearest_8u_C1R, d);
        nearest_rows<Kel8u, 3>("keliResizeNearest_8u_C3R", keliResizeNearest_8u_C3R, d);
    }
    linear_rows<Kel16u, 1>("keliResizeLinear_16u_C1R", keliResizeLinear_16u_C1R, kHalf, false);
});

}  // namespace
