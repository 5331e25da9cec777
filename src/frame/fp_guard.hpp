// Restores the SSE control and status register (rounding mode, flush-to-zero, denormals-are-
// zero) when a scope ends, on every return path. All floating-point arithmetic of the library
// runs on SSE registers, so this register is the whole floating-point control state it touches.
#pragma once

#include <xmmintrin.h>

namespace keli {

class FpControlGuard {
public:
    FpControlGuard() : saved_(_mm_getcsr()) {}
    ~FpControlGuard() { _mm_setcsr(saved_); }
    FpControlGuard(const FpControlGuard&) = delete;
    FpControlGuard& operator=(const FpControlGuard&) = delete;

    // Rounding field of the register: 0 nearest-even, 1 down, 2 up, 3 toward zero.
    void set_rounding(unsigned mode) { _mm_setcsr((_mm_getcsr() & ~0x6000u) | ((mode & 3u) << 13)); }
    void set_flush_to_zero(bool on) { _mm_setcsr((_mm_getcsr() & ~0x8040u) | (on ? 0x8040u : 0u)); }
    unsigned saved() const { return saved_; }

private:
    unsigned saved_;
};

}  // namespace keli
