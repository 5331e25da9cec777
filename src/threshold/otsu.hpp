// keliComputeThreshold_Otsu_8u_C1R: the global threshold that best separates an 8-bit image
// into two classes, from its histogram.
#pragma once

#include "keli_types.h"

namespace keli {

KelStatus otsu_threshold(const Kel8u* pSrc, int srcStep, KeliSize roi, Kel8u* pThreshold);

}  // namespace keli
