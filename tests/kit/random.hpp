// Random fills with a seed that a failing test prints: KELI_SEED in the environment
// replays a run, otherwise every run uses the same fixed seed.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <type_traits>

namespace kit {

inline std::uint64_t seed()
{
    const char* env = std::getenv("KELI_SEED");
    return env ? std::strtoull(env, nullptr, 0) : 20261121u;
}

class Rng {
public:
    explicit Rng(std::uint64_t s = seed()) : engine_(s), seed_(s) {}
    std::uint64_t seed_value() const { return seed_; }

    // Any value of T's range; floats are drawn from [-lo, hi] with occasional specials
    // mixed in by the tests that want them.
    template <class T> T any()
    {
        if constexpr (std::is_floating_point_v<T>) {
            return std::uniform_real_distribution<T>(-1000, 1000)(engine_);
        } else {
            using Wide = std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>;
            return static_cast<T>(std::uniform_int_distribution<Wide>(std::numeric_limits<T>::min(),
                                                                      std::numeric_limits<T>::max())(engine_));
        }
    }

    int below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(engine_); }

private:
    std::mt19937_64 engine_;
    std::uint64_t seed_;
};

}  // namespace kit
