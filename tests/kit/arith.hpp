// Shared pieces of the two-operand arithmetic tests: uniform signatures for the members of a
// family (32f members have no scale factor, C1 constants come by value), the value and shape
// draws of the sweeps, and a sparse mapping whose rows lie too far apart for 32-bit steps.
#pragma once

#include <sys/mman.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "keli.h"
#include "kit/image.hpp"
#include "kit/random.hpp"

namespace kit::arith {

using I64 = std::int64_t;

// S: the step type (int or int64), Z: the size type (KeliSize or KeliSizeL).
template <class T, class S, class Z> using BinFn = KelStatus (*)(const T*, S, const T*, S, T*, S, Z, int);
template <class T, class S, class Z> using BinIFn = KelStatus (*)(const T*, S, T*, S, Z, int);
template <class T, class S, class Z> using ConFn = KelStatus (*)(const T*, S, const T*, T*, S, Z, int);
template <class T, class S, class Z> using ConIFn = KelStatus (*)(const T*, T*, S, Z, int);

template <auto F, class S = int, class Z = KeliSize>
KelStatus bin32f(const float* a, S as, const float* b, S bs, float* d, S ds, Z s, int)
{
    return F(a, as, b, bs, d, ds, s);
}
template <auto F, class S = int, class Z = KeliSize> KelStatus binI32f(const float* a, S as, float* d, S ds, Z s, int)
{
    return F(a, as, d, ds, s);
}
template <class T, auto F, class S = int, class Z = KeliSize>
KelStatus conC1(const T* a, S as, const T* v, T* d, S ds, Z s, int n)
{
    if constexpr (std::is_same_v<T, float>) return F(a, as, *v, d, ds, s);
    else return F(a, as, *v, d, ds, s, n);
}
template <class T, auto F, class S = int, class Z = KeliSize> KelStatus conIC1(const T* v, T* d, S ds, Z s, int n)
{
    if constexpr (std::is_same_v<T, float>) return F(*v, d, ds, s);
    else return F(*v, d, ds, s, n);
}
template <auto F, class S = int, class Z = KeliSize>
KelStatus con32f(const float* a, S as, const float* v, float* d, S ds, Z s, int)
{
    return F(a, as, v, d, ds, s);
}
template <auto F, class S = int, class Z = KeliSize> KelStatus conI32f(const float* v, float* d, S ds, Z s, int)
{
    return F(v, d, ds, s);
}

template <class T> constexpr bool kFloat = std::is_same_v<T, float>;

// Random elements, the values where the rules bite drawn often.
template <class T> T edgy(Rng& rng)
{
    if constexpr (kFloat<T>) {
        static const float edges[] = {0.0f, -0.0f, INFINITY, -INFINITY, NAN, 1e30f, -1e-40f, 0.5f};
        return rng.below(5) == 0 ? edges[rng.below(8)] : rng.any<T>();
    } else {
        const T lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
        const T edges[] = {lo, T(lo + 1), T(0), T(1), T(2), T(3), T(16), T(hi / 2), T(hi / 2 + 1), T(hi - 1), hi};
        return rng.below(3) == 0 ? edges[rng.below(11)] : rng.any<T>();
    }
}

// Bit equality, so that not-a-number results compare too.
template <class T> bool same(T a, T b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// Shapes for the i-th width of a sweep: offsets over every element position, padded rows and
// bottom-up (negative-step) images.
inline Shape shape(int width, int salt, int positions, int elementBytes)
{
    Shape s;
    s.offsetElements = (width * 7 + salt * 5) % positions;
    s.padBytes = ((width + salt) % 4) * 16 + elementBytes * ((width + salt) % 3);
    s.flipped = (width + salt) % 5 == 0;
    return s;
}

// Rows 2^32 + 64 bytes apart: too far for the 32-bit members, so the wide members walk them in
// chunks. Only the touched pages of the sparse mapping take memory.
class FarRows {
public:
    static constexpr I64 kStep = (I64(1) << 32) + 64;
    static constexpr int kRows = 2;
    FarRows() : size_(kStep * (kRows - 1) + 8192)
    {
        void* p = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        base_ = p == MAP_FAILED ? nullptr : static_cast<unsigned char*>(p);
    }
    ~FarRows()
    {
        if (base_) munmap(base_, size_);
    }
    FarRows(const FarRows&) = delete;
    FarRows& operator=(const FarRows&) = delete;
    bool ok() const { return base_ != nullptr; }
    // Image k (0 to 3) of row 0, each on its own element offset; row y lies kStep further on.
    template <class T> T* image(int k) const { return reinterpret_cast<T*>(base_ + 1032 * k); }
    template <class T> static T& at(T* img, int y, int e)
    {
        return reinterpret_cast<T*>(reinterpret_cast<unsigned char*>(img) + y * kStep)[e];
    }

private:
    I64 size_;
    unsigned char* base_;
};

// One page that can be neither read nor written: sources that a short cut must leave alone.
class Unreadable {
public:
    Unreadable() : p_(mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {}
    ~Unreadable() { munmap(p_, 4096); }
    Unreadable(const Unreadable&) = delete;
    Unreadable& operator=(const Unreadable&) = delete;
    template <class T> T* as() const { return static_cast<T*>(p_); }

private:
    void* p_;
};

// The eight entry points of a multiplicative member (images and constant, out of place and in
// place, 32-bit and wide), as the test tables list them.
template <class T> struct Member {
    const char* name;
    int channels;
    bool alpha;
    BinFn<T, int, KeliSize> r;
    BinIFn<T, int, KeliSize> ir;
    ConFn<T, int, KeliSize> cr;
    ConIFn<T, int, KeliSize> cir;
    BinFn<T, I64, KeliSizeL> rL;
    BinIFn<T, I64, KeliSizeL> irL;
    ConFn<T, I64, KeliSizeL> crL;
    ConIFn<T, I64, KeliSizeL> cirL;
};

}  // namespace kit::arith
