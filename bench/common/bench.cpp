#include "common/bench.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <list>

#include "kelcore.h"

namespace bench {
namespace {

struct ImageSet {
    long long lastUse = 0;
    int slot = 0;
    Size size{};
    int channels = 0, elementBytes = 0, cvDepth = 0, count = 0;
    Fill fill{};
    std::vector<Image> images;

    bool matches(Size s, int c, int e, int d, Fill f, int n) const
    {
        return size.width == s.width && size.height == s.height && channels == c && elementBytes == e &&
               cvDepth == d && fill == f && count == n;
    }
    void release()
    {
        for (Image& im : images) std::free(im.data);
        images.clear();
    }
    ImageSet() = default;
    ImageSet(const ImageSet&) = delete;
    ImageSet& operator=(const ImageSet&) = delete;
    ~ImageSet() { release(); }
};

// xorshift64*: fast enough to fill a few hundred megabytes without slowing the run down.
struct Random {
    std::uint64_t state;
    std::uint64_t next()
    {
        state ^= state >> 12;
        state ^= state << 25;
        state ^= state >> 27;
        return state * 0x2545F4914F6CDD1Dull;
    }
};

template <class T> void fill_ints(Image& im, Random& r)
{
    for (int y = 0; y < im.size.height; ++y) {
        T* p = reinterpret_cast<T*>(im.row(y));
        for (int i = 0; i < im.size.width * im.channels; ++i) p[i] = static_cast<T>(r.next() >> 17);
    }
}

// Values in (-1000, 1000) with a non-zero integer part now and then: finite, normal, both signs.
template <class T> void fill_floats(Image& im, Random& r)
{
    for (int y = 0; y < im.size.height; ++y) {
        T* p = reinterpret_cast<T*>(im.row(y));
        for (int i = 0; i < im.size.width * im.channels; ++i)
            p[i] = static_cast<T>((static_cast<double>(r.next() >> 11) / 9007199254740992.0 - 0.5) * 2000.0 + 0.25);
    }
}

// The float fill mapped into a function's domain: |v| + 1/1024, or v / 12.
void fill_domain(Image& im, Fill f, Random& r)
{
    fill_floats<float>(im, r);
    for (int y = 0; y < im.size.height; ++y) {
        float* p = reinterpret_cast<float*>(im.row(y));
        for (int i = 0; i < im.size.width * im.channels; ++i)
            p[i] = f == Fill::Float32Positive ? std::fabs(p[i]) + 0.0009765625f : p[i] / 12.0f;
    }
}

void fill_image(Image& im, Fill f, Random& r)
{
    switch (f) {
    case Fill::Int8u: fill_ints<std::uint8_t>(im, r); break;
    case Fill::Int8s: fill_ints<std::int8_t>(im, r); break;
    case Fill::Int16u: fill_ints<std::uint16_t>(im, r); break;
    case Fill::Int16s: fill_ints<std::int16_t>(im, r); break;
    case Fill::Int32s: fill_ints<std::int32_t>(im, r); break;
    case Fill::Float32: fill_floats<float>(im, r); break;
    case Fill::Float64: fill_floats<double>(im, r); break;
    case Fill::Zero: std::memset(im.data, 0, std::size_t(im.step) * im.size.height); break;
    case Fill::Float32Positive:
    case Fill::Float32Moderate: fill_domain(im, f, r); break;
    }
}

// The sets alive, and the number of the benchmark run now being set up. A list keeps the
// references handed out valid while other sets come and go.
std::list<ImageSet>& sets()
{
    static std::list<ImageSet> all;
    return all;
}
long long generation = 0;
// The copy of a row's images that images() hands out now, and the bytes it has handed out for
// the setup being run.
int currentSlot = 0;
std::int64_t slotBytes = 0;

// Copies of a row's images that an out-of-cache row cycles through: enough that together they
// hold twice the largest cache, so that every call finds its images evicted since their last
// use, and at least two; one when a call alone touches that much and so evicts its own data.
int slots_for(std::int64_t bytesPerSlot)
{
    std::int32_t cache = 0;
    const std::int64_t pool = 2 * (kelGetMaxCacheSizeB(&cache) == kelStatusOk && cache > 0 ? std::int64_t(cache) : 256 << 20);
    const std::int64_t n = bytesPerSlot > 0 ? (pool + bytesPerSlot - 1) / bytesPerSlot : 2;
    return int(std::clamp<std::int64_t>(n, bytesPerSlot >= pool ? 1 : 2, 64));
}

void run(benchmark::State& state, const Setup& setup, Size s, int bytesPerPixel)
{
    ++generation;
    currentSlot = 0;
    slotBytes = 0;
    std::vector<Call> calls{setup(s)};
    if (out_of_cache(s)) {
        const int n = slots_for(slotBytes);
        for (currentSlot = 1; currentSlot < n; ++currentSlot) calls.push_back(setup(s));
        currentSlot = 0;
    }
    // One untimed call of each copy: it checks the status, and in cache it warms the caches
    // like the calls that follow.
    for (const Call& call : calls)
        if (int status = call(); status < 0) {
            state.SkipWithError(("status " + std::to_string(status)).c_str());
            return;
        }
    std::size_t next = 0;
    for (auto _ : state) {
        keep(calls[next]());
        next = next + 1 == calls.size() ? 0 : next + 1;
        benchmark::ClobberMemory();
    }
    const std::int64_t pixels = std::int64_t(s.width) * s.height;
    state.SetItemsProcessed(state.iterations() * pixels);
    if (bytesPerPixel > 0) state.SetBytesProcessed(state.iterations() * pixels * bytesPerPixel);
    // Plain per-call figures, so that the report derives rates from whichever time it picks.
    state.counters["pixels"] = benchmark::Counter(double(pixels));
    state.counters["bytes_per_pixel"] = benchmark::Counter(double(bytesPerPixel));
}

// Other work on the machine only ever adds time, so the fastest repetition is the best
// estimate of the cost of a call; report.py reads this statistic (of the CPU time, which
// leaves out the time the process spent preempted on a busy machine).
double fastest(const std::vector<double>& v) { return v.empty() ? 0.0 : *std::min_element(v.begin(), v.end()); }

void add(const std::string& prefix, int bytesPerPixel, const Setup& setup, const std::vector<Size>& sizes)
{
    for (Size s : sizes)
        benchmark::RegisterBenchmark((prefix + "/" + size_name(s)).c_str(),
                                     [setup, s, bytesPerPixel](benchmark::State& st) { run(st, setup, s, bytesPerPixel); })
            ->ComputeStatistics("min", fastest);
}

}  // namespace

void touches(std::int64_t bytes) { slotBytes += bytes; }

const std::vector<Image>& images(Size s, int channels, int elementBytes, int cvDepth, Fill fill, int count)
{
    std::list<ImageSet>& all = sets();
    const int step = (s.width * channels * elementBytes + 63) & ~63;
    slotBytes += std::int64_t(step) * s.height * count;
    const ImageSet* original = nullptr;
    for (ImageSet& set : all)
        if (set.matches(s, channels, elementBytes, cvDepth, fill, count)) {
            if (set.slot == currentSlot) {
                set.lastUse = generation;
                return set.images;
            }
            if (set.slot == 0) original = &set;
        }
    // Sets that the benchmark being set up has not asked for belong to earlier rows: drop them
    // before allocating, so that only one row's images are held at a time.
    all.remove_if([](const ImageSet& set) { return set.lastUse != generation; });
    ImageSet& set = all.emplace_back();
    set.lastUse = generation;
    set.slot = currentSlot;
    set.size = s;
    set.channels = channels;
    set.elementBytes = elementBytes;
    set.cvDepth = cvDepth;
    set.fill = fill;
    set.count = count;
    Random r{0x9E3779B97F4A7C15ull};
    for (int i = 0; i < count; ++i) {
        Image im;
        im.data = std::aligned_alloc(64, std::size_t(step) * s.height);
        if (!im.data) std::abort();
        im.step = step;
        im.size = s;
        im.channels = channels;
        im.elementBytes = elementBytes;
        im.cvDepth = cvDepth;
        // A further copy of a row's images gets the same content, copied: faster than drawing it.
        if (original) std::memcpy(im.data, original->images[std::size_t(i)].data, std::size_t(step) * s.height);
        else fill_image(im, fill, r);
        set.images.push_back(im);
    }
    return set.images;
}

// Built on each call: the family files register their rows before main, when a vector at
// namespace scope in this file might not be constructed yet.
std::vector<Size> standard_sizes() { return std::vector<Size>(std::begin(kSizes), std::end(kSizes)); }

void keli(const std::string& exportName, int bytesPerPixel, Setup setup)
{
    add(exportName, bytesPerPixel, setup, standard_sizes());
}

void peer(const std::string& peerName, const std::string& exportName, int bytesPerPixel, Setup setup)
{
    add(peerName + "/" + exportName, bytesPerPixel, setup, standard_sizes());
}

void keli(const std::string& exportName, int bytesPerPixel, Setup setup, const std::vector<Size>& sizes)
{
    add(exportName, bytesPerPixel, setup, sizes);
}

void peer(const std::string& peerName, const std::string& exportName, int bytesPerPixel, Setup setup,
          const std::vector<Size>& sizes)
{
    add(peerName + "/" + exportName, bytesPerPixel, setup, sizes);
}

}  // namespace bench
