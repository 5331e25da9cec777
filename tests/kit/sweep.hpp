// The geometry sweep shared by every family: widths that reach every head and tail length of a
// 16-byte kernel, one and several rows, destination and source offsets that cover every
// alignment an element can have, rows padded beyond their pixels, and bottom-up images.
#pragma once

#include <string>

#include "kit/image.hpp"

namespace kit {

struct Geometry {
    int width, height;
    Shape src, dst;
    std::string describe() const
    {
        return "width " + std::to_string(width) + " height " + std::to_string(height) + " src offset " +
               std::to_string(src.offsetElements) + (src.flipped ? " flipped" : "") + " dst offset " +
               std::to_string(dst.offsetElements) + " pad " + std::to_string(dst.padBytes) +
               (dst.flipped ? " flipped" : "");
    }
};

struct SweepOptions {
    int maxWidth = 80;            // past the scalar threshold by several vectors
    int elementBytes = 1;         // offsets run over every element position in 16 bytes
    bool negativeSteps = false;   // the family accepts steps below one
};

template <class F> void sweep(const SweepOptions& o, F&& f)
{
    const int positions = 16 / o.elementBytes;
    for (int width = 1; width <= o.maxWidth; ++width) {
        const int height = width % 3 == 0 ? 1 : 3;
        for (int off = 0; off < positions; ++off) {
            Geometry g{width, height, {}, {}};
            g.dst.offsetElements = off;
            g.src.offsetElements = (off * 5 + width) % positions;
            g.src.padBytes = (width % 4) * 16 + o.elementBytes * (off % 2) * 2;
            g.dst.padBytes = (width % 5) * 8;
            g.src.flipped = g.dst.flipped = o.negativeSteps && (width + off) % 4 == 0;
            f(g);
        }
    }
}

}  // namespace kit
