// Matrices with infinite coefficients reach the scan conversion as not-a-number corners: the
// size query answers with a status and no arithmetic overflows (a fuzzing finding; the
// sanitizer build turns any overflow into a failure).
#include <gtest/gtest.h>

#include <cmath>

#include "keli.h"

TEST(WarpAffineEdges, InfiniteCoefficientsGiveAStatus)
{
    const double inf = INFINITY;
    const double coeffs[][6] = {{-1, 2, 1, inf, 2, 2}, {inf, 0, 0, 0, 1, 0}, {1, 0, -inf, 0, 1, 0}};
    for (const auto& c : coeffs)
        for (Kel32u direction : {0u, 1u}) {
            KelSizeL spec = -1, init = -1;
            const KelStatus st = keliWarpAffineGetSize_L(KeliSizeL{2, 4}, KeliSizeL{2, 16}, kel64f, c, kelNearest,
                                                         direction, kelBorderRepl, &spec, &init);
            EXPECT_TRUE(st == kelStatusOk || st == kelStatusBadCoeffs) << st;
        }
}
