// Pixel layouts and their channel counts.
#pragma once

#include <cstddef>

namespace keli {

enum class Layout { C1, C2, C3, C4, AC4 };

// Elements a pixel occupies in memory (AC4 holds four, of which three are processed).
template <Layout L> constexpr std::size_t channels = L == Layout::C1 ? 1
                                                    : L == Layout::C2 ? 2
                                                    : L == Layout::C3 ? 3
                                                                      : 4;

template <Layout L> constexpr bool has_alpha = L == Layout::AC4;

}  // namespace keli
