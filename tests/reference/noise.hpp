// Plain models of the noise: the generator word by word, the uniform value, and the Gaussian
// pairs written as one round of two coupled chains, each as the rule states it.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace reference {

struct Generator {
    std::uint32_t x0, x1, x2, u;
    std::int32_t borrow = -1;
    explicit Generator(std::uint32_t s) : x0(s), x1(s * 69069u + 1013904243u), x2(s * 475559465u + 924302730u), u(1131199209u) {}

    std::int32_t step()
    {
        const std::uint32_t u2 = u * 69069u;
        const std::int32_t d = static_cast<std::int32_t>(x1 - x2 + static_cast<std::uint32_t>(borrow));
        borrow = d < 0 ? -1 : 0;
        const std::uint32_t r = static_cast<std::uint32_t>(d) - (d < 0 ? 18u : 0u);
        const std::int32_t out = static_cast<std::int32_t>(r + u2 + 1013904243u);
        x2 = x1, x1 = x0, x0 = r, u = u2 + 1013904243u;
        return out;
    }

    // One Gaussian round: a0 from the x1 chain, b0 from the x0 chain.
    void round(std::int32_t& a0, std::int32_t& b0)
    {
        const std::int32_t d1 = static_cast<std::int32_t>(x1 - x2 + static_cast<std::uint32_t>(borrow));
        x2 = x0;
        const std::int32_t d2 = static_cast<std::int32_t>(x0 - x1 - (d1 < 0 ? 1u : 0u));
        x1 = static_cast<std::uint32_t>(d1) - (d1 < 0 ? 18u : 0u);
        borrow = d2 < 0 ? -1 : 0;
        x0 = static_cast<std::uint32_t>(d2) - (d2 < 0 ? 18u : 0u);
        a0 = static_cast<std::int32_t>(x1 + u * 69069u + 1013904243u);
        b0 = static_cast<std::int32_t>(x0 + u * 475559465u + 924302730u);
        u = u * 475559465u + 924302730u;
    }
};

template <class T> T noise_sum(T element, double value)
{
    if constexpr (std::is_same_v<T, float>) {
        return element + static_cast<float>(value);
    } else {
        const double sum = static_cast<double>(element) + std::nearbyint(value);
        const double lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
        return static_cast<T>(std::fmin(std::fmax(sum, lo), hi));
    }
}

struct GaussModel {
    Generator gen;
    double mean, stDev;
    bool pending = false;
    double b = 0, f = 0;

    double next()
    {
        if (pending) {
            pending = false;
            return b * stDev * f + mean;
        }
        for (;;) {
            std::int32_t a0, b0;
            gen.round(a0, b0);
            const double a = a0 * 4.656612873077e-10;
            b = b0 * 4.656612873077e-10;
            const double w = a * a + b * b;
            if (w >= 1.0 || w == 0.0) continue;
            f = std::sqrt(std::log(w) * -2.0 / w);
            pending = true;
            return a * stDev * f + mean;
        }
    }
};

}  // namespace reference
