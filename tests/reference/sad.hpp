// Plain model of the sum of absolute differences of a template over an image, one output at a
// time, element by element, in wide integers and in the fixed order of the float sums.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace reference {

// An image as bytes: elements are read through memcpy, so that rows may start on any byte.
template <class T> struct SadView {
    const std::uint8_t* base;
    std::ptrdiff_t step;
    int width, height;
    T at(int x, int y) const
    {
        T v;
        std::memcpy(&v, base + y * step + std::ptrdiff_t(x) * sizeof(T), sizeof v);
        return v;
    }
};

// |a - b| as the family counts it. 16s: the difference taken modulo 2^16 as a signed 16-bit
// number, then its magnitude, so differences beyond 32767 fold and -32768 counts 32768.
template <class T> inline std::uint64_t sad_term(T a, T b)
{
    if constexpr (std::is_same_v<T, std::int16_t>) {
        std::int64_t d = std::int64_t(a) - std::int64_t(b);
        if (d > 32767) d -= 65536;
        if (d < -32768) d += 65536;
        return static_cast<std::uint64_t>(d < 0 ? -d : d);
    } else {
        const std::int64_t d = std::int64_t(a) - std::int64_t(b);
        return static_cast<std::uint64_t>(d < 0 ? -d : d);
    }
}

// The exact integer sum of one output, not yet reduced to 32 bits.
template <class T> inline std::uint64_t sad_sum(const SadView<T>& src, const SadView<T>& tpl, int x, int y)
{
    std::uint64_t sum = 0;
    for (int j = 0; j < tpl.height; ++j)
        for (int i = 0; i < tpl.width; ++i) sum += sad_term(src.at(x + i, y + j), tpl.at(i, j));
    return sum;
}

// The stored integer: the sum modulo 2^32, divided by 2^s (s = scaleFactor & 31) and rounded to
// nearest with ties to even. The rounding addition happens in 32 bits too: when the sum plus the
// rounding term passes 2^32 the stored value is the rounded quotient less 2^(32 - s).
inline std::int32_t sad_scaled(std::uint64_t exactSum, int scaleFactor)
{
    const std::uint64_t sum = exactSum & 0xFFFFFFFFu;
    const int s = scaleFactor & 31;
    std::uint64_t q = sum;
    if (s > 0) {
        q = sum >> s;
        const std::uint64_t rem = sum & ((std::uint64_t(1) << s) - 1), half = std::uint64_t(1) << (s - 1);
        const bool up = rem > half || (rem == half && (q & 1));
        if (up) q += 1;
        const std::uint64_t added = half - 1 + ((sum >> s) & 1);
        if (sum + added >= (std::uint64_t(1) << 32)) q -= std::uint64_t(1) << (32 - s);
    }
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(q));
}

// The 32f output: per template row four partial sums over the columns taken in fours, folded as
// (p0 + p2) + (p1 + p3) into the running sum, then the other columns one by one.
inline float sad_32f(const SadView<float>& src, const SadView<float>& tpl, int x, int y)
{
    float total = 0.0f;
    const int groups = tpl.width / 4 * 4;
    for (int j = 0; j < tpl.height; ++j) {
        float p[4] = {0.0f, 0.0f, 0.0f, 0.0f};
        for (int i = 0; i < groups; ++i) p[i % 4] = p[i % 4] + std::fabs(src.at(x + i, y + j) - tpl.at(i, j));
        total = total + ((p[0] + p[2]) + (p[1] + p[3]));
        for (int i = groups; i < tpl.width; ++i) total = total + std::fabs(src.at(x + i, y + j) - tpl.at(i, j));
    }
    return total;
}

}  // namespace reference
