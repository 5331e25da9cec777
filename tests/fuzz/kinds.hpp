// Argument kinds: how the fuzz input becomes one argument, chosen by the parameter's C type and
// name alone. Each kind mostly yields values a caller would pass (small regions, listed enum
// members) and sometimes the values where checks bite (0, 1, negative, huge, out of range).
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

#include "table.hpp"

namespace keli_fuzz {

// The fuzz input, read front to back; past its end every read gives zeros.
class Input {
public:
    Input(const uint8_t* data, size_t size) : p_(data), n_(size) {}
    uint8_t u8() { return at_ < n_ ? p_[at_++] : 0; }
    uint16_t u16() { return static_cast<uint16_t>(u8() | (u8() << 8)); }
    uint32_t u32() { return u16() | (static_cast<uint32_t>(u16()) << 16); }
    uint64_t u64() { return u32() | (static_cast<uint64_t>(u32()) << 32); }
    size_t used() const { return at_; }

private:
    const uint8_t* p_;
    size_t n_;
    size_t at_ = 0;
};

// Bulk pixel data comes from a generator seeded by the input, so inputs stay short.
class Noise {
public:
    explicit Noise(uint64_t seed) : s_(seed * 0x9E3779B97F4A7C15ull + 0x2545F4914F6CDD1Dull) {}
    uint64_t next()
    {
        s_ ^= s_ << 13;
        s_ ^= s_ >> 7;
        s_ ^= s_ << 17;
        return s_;
    }
    void fill(unsigned char* p, size_t n)
    {
        for (size_t i = 0; i < n; i += 8) {
            uint64_t v = next();
            std::memcpy(p + i, &v, n - i < 8 ? n - i : 8);
        }
    }

private:
    uint64_t s_;
};

inline bool has(const std::string& s, const char* part) { return s.find(part) != std::string::npos; }
inline bool ends_with(const std::string& s, const char* tail)
{
    size_t n = std::strlen(tail);
    return s.size() >= n && s.compare(s.size() - n, n, tail) == 0;
}

// A region side: mostly 1..16, sometimes 0, a little wider, negative or huge.
inline int64_t side(Input& in, bool wide)
{
    uint8_t b = in.u8();
    if (b < 200) return 1 + b % 16;
    if (b < 210) return 0;
    if (b < 222) return 17 + in.u8() % 64;
    if (b < 232) return -1 - static_cast<int64_t>(in.u8() % 3 == 0 ? in.u32() % 0x7FFFFFFF : in.u8());
    if (b < 240) return (int64_t{1} << 20) + in.u8();
    if (b < 248) return b & 1 ? std::numeric_limits<int32_t>::max() : std::numeric_limits<int32_t>::min();
    if (!wide) return 65536 + in.u8();
    static const int64_t huge[] = {int64_t{1} << 31, 3000000000ll, int64_t{1} << 40, std::numeric_limits<int64_t>::max()};
    return huge[b & 3];
}

// A mask side: mostly 1..7.
inline int64_t mask_side(Input& in, bool wide)
{
    uint8_t b = in.u8();
    if (b < 216) return 1 + b % 7;
    return side(in, wide);
}

// An offset or anchor coordinate: mostly -2..9.
inline int64_t coordinate(Input& in, bool wide)
{
    uint8_t b = in.u8();
    if (b < 216) return static_cast<int64_t>(b % 12) - 2;
    return side(in, wide);
}

// A plain int argument (counts, shapes, modes): mostly -2..21, sometimes extreme.
inline int64_t small_int(Input& in)
{
    uint8_t b = in.u8();
    if (b < 216) return static_cast<int64_t>(b % 24) - 2;
    static const int64_t odd[] = {-1000, 1000, 31, 32, 33, 64, 255, 256, 65535, 65536, 1 << 24,
                                  std::numeric_limits<int32_t>::max(), std::numeric_limits<int32_t>::min(),
                                  -65536, 4096, 30};
    return odd[b & 15];
}

// A channel count: mostly 0..5.
inline int64_t channel_count(Input& in)
{
    uint8_t b = in.u8();
    return b < 224 ? b % 6 : small_int(in);
}

// A scale factor: mostly -8..31, sometimes far out.
inline int64_t scale_factor(Input& in)
{
    uint8_t b = in.u8();
    if (b < 216) return static_cast<int64_t>(b % 40) - 8;
    static const int64_t odd[] = {-1000, 1000, -31, -32, 32, 33, std::numeric_limits<int32_t>::max(),
                                  std::numeric_limits<int32_t>::min()};
    return odd[b & 7];
}

// An FFT order: mostly 0..9.
inline int64_t fft_order(Input& in)
{
    uint8_t b = in.u8();
    if (b < 224) return b % 10;
    static const int64_t odd[] = {-1, 10, 27, 28, 29, 30, 31, std::numeric_limits<int32_t>::min()};
    return odd[b & 7];
}

// An unsigned mode word (interpolation, direction, smoothEdge...): small, with the top bit at times.
inline int64_t mode_word(Input& in)
{
    uint8_t b = in.u8();
    if (b < 200) return b % 20;
    if (b < 228) return static_cast<int64_t>((b % 20) | 0x80000000u);
    return in.u32();
}

inline double interesting_double(Input& in)
{
    static const double values[] = {0, 1, -1, 0.5, 2, 255, -0.5, 3, 90, 180, 45, 1.0 / 3, 65535, -32768,
                                    1e-300, 1e300, std::nan(""), INFINITY, -INFINITY, 4.9e-324, 0.25, 1e-7,
                                    -2, 10, 127.5, 1e10, -1e10, 270, 0.999999, 1.000001, 16, 100};
    uint8_t b = in.u8();
    if (b < 192) return values[b % 32];
    return static_cast<double>(static_cast<int16_t>(in.u16())) / (1 + in.u8() % 16);
}

// A value of an element type passed by value (thresholds, constants, border values).
inline void element_value(Input& in, const std::string& type, Slot& s)
{
    if (type == "Kel32f" || type == "float" || type == "Kel64f" || type == "double") {
        s.f = interesting_double(in);
        return;
    }
    uint8_t b = in.u8();
    uint64_t v = b < 64 ? 0 : b < 96 ? ~uint64_t{0} : b < 128 ? b % 8 : in.u64();
    if (type == "Kel8u" || type == "uint8_t") s.i = static_cast<uint8_t>(v);
    else if (type == "Kel8s" || type == "int8_t") s.i = static_cast<int8_t>(v);
    else if (type == "Kel16u" || type == "uint16_t") s.i = static_cast<uint16_t>(v);
    else if (type == "Kel16s" || type == "int16_t") s.i = static_cast<int16_t>(v);
    else if (type == "Kel32u" || type == "uint32_t" || type == "unsigned") s.i = static_cast<uint32_t>(v);
    else if (type == "Kel32s" || type == "int32_t" || type == "int") s.i = static_cast<int32_t>(v);
    else s.i = static_cast<int64_t>(v);
}

// The data type a name token spells (the "8u" of keliAdd_8u_C1RSfs), 0 when none.
inline int data_type_of(const std::string& token)
{
    static const struct { const char* t; int v; } map[] = {
        {"8u", kel8u}, {"8s", kel8s}, {"16u", kel16u}, {"16s", kel16s}, {"32u", kel32u},
        {"32s", kel32s}, {"32fc", kel32f}, {"32f", kel32f}, {"64f", kel64f}};
    for (auto& m : map)
        if (token.compare(0, std::strlen(m.t), m.t) == 0) return m.v;
    return 0;
}

}  // namespace keli_fuzz
