// Adaptive thresholds of 8-bit one-channel images: each pixel against the mean of the square
// neighbourhood around it (box, or Gaussian weighted) minus delta, written as valGT where it lies
// above and valLE elsewhere. The size queries, the Gaussian spec's init and the two filters.
#pragma once

#include "keli_types.h"

namespace keli {

KelStatus threshold_adaptive_box_buffer_size(KeliSize roi, KeliSize mask, KelDataType dataType, int numChannels,
                                             int* pBufferSize);
KelStatus threshold_adaptive_gauss_buffer_size(KeliSize roi, KeliSize mask, KelDataType dataType, int numChannels,
                                               int* pSpecSize, int* pBufferSize);
KelStatus threshold_adaptive_gauss_init(KeliSize roi, KeliSize mask, KelDataType dataType, int numChannels, Kel32f sigma,
                                        Kel8u* pSpec);

KelStatus threshold_adaptive_box(const Kel8u* pSrc, int srcStep, Kel8u* pDst, int dstStep, KeliSize roi, KeliSize mask,
                                 Kel32f delta, Kel8u valGT, Kel8u valLE, int border, Kel8u borderValue, Kel8u* pBuffer);
KelStatus threshold_adaptive_gauss(const Kel8u* pSrc, int srcStep, Kel8u* pDst, int dstStep, KeliSize roi, Kel32f delta,
                                   Kel8u valGT, Kel8u valLE, int border, Kel8u borderValue, const Kel8u* pSpec,
                                   Kel8u* pBuffer);

}  // namespace keli
