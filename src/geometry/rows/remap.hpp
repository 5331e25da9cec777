// keliRemap's row kernel: one destination row from its two map rows.
#pragma once

#include "geometry/remap_pixel.hpp"

namespace keli::remap::rows {

template <class T, Layout L, class M>
inline void remap_row(Kind kind, bool smooth, const Source<T, L>& s, const Window& w, const M* xm, const M* ym, T* d,
                      int width)
{
    scalar_row(kind, smooth, s, w, xm, ym, d, 0, width);
}

}  // namespace keli::remap::rows
