/* Comparison, range counting and moments. The rings are compared with the ramp (white where
 * the rings are darker), the checkerboard with a constant, the ramp's mid-grey band is
 * counted, and the moments of the first mask give its centroid and first Hu invariant. */
#include <stdio.h>

#include "demo.h"

typedef struct {
    const Kel8u *a, *b;
    int aStep, bStep;
    Kel8u* dst;
    int dstStep;
    KeliSize size;
} CompareArgs;

static void run_compare(void* p)
{
    CompareArgs* c = (CompareArgs*)p;
    keliCompare_8u_C1R(c->a, c->aStep, c->b, c->bStep, c->dst, c->dstStep, c->size, kelCmpLess);
}

void demo_threshold_compare(Demo* d)
{
    int stepRings, stepRamp, stepChecker, stepMask, stepMaskC, count = 0, stateSize = 0;
    KeliSize size = {d->width, d->height};
    Kel8u* rings = demo_scene(d, SCENE_RINGS, &stepRings);
    Kel8u* ramp = demo_scene(d, SCENE_RAMP, &stepRamp);
    Kel8u* checker = demo_scene(d, SCENE_CHECKER, &stepChecker);
    Kel8u* mask = keliMalloc_8u_C1(d->width, d->height, &stepMask);
    Kel8u* maskC = keliMalloc_8u_C1(d->width, d->height, &stepMaskC);
    Kel8u state[400];
    Kel64f m00 = 0, m10 = 0, m01 = 0, hu[7] = {0};
    CompareArgs args;
    KelStatus s;
    if (!rings || !ramp || !checker || !mask || !maskC) {
        demo_report(d, "keliMalloc_8u_C1", kelStatusNoMemory, -1);
        goto done;
    }

    args.a = rings;
    args.aStep = stepRings;
    args.b = ramp;
    args.bStep = stepRamp;
    args.dst = mask;
    args.dstStep = stepMask;
    args.size = size;
    s = keliCompare_8u_C1R(rings, stepRings, ramp, stepRamp, mask, stepMask, size, kelCmpLess);
    demo_report(d, "keliCompare_8u_C1R", s, demo_speed(run_compare, &args, (double)d->width * d->height));
    demo_write_png(d, "compare_rings_below_ramp", mask, stepMask, d->width, d->height, 1);

    s = keliCompareC_8u_C1R(checker, stepChecker, 128, maskC, stepMaskC, size, kelCmpGreaterEq);
    demo_report(d, "keliCompareC_8u_C1R", s, -1);
    demo_write_png(d, "compare_checker_bright", maskC, stepMaskC, d->width, d->height, 1);

    s = keliCountInRange_8u_C1R(ramp, stepRamp, size, &count, 96, 159);
    demo_report(d, "keliCountInRange_8u_C1R", s, -1);
    printf("    ramp pixels in [96, 159]: %d of %d\n", count, d->width * d->height);

    s = keliMomentGetStateSize_64f(kelAlgHintNone, &stateSize);
    if (s == kelStatusOk && stateSize <= (int)sizeof state) s = keliMomentInit_64f(state, kelAlgHintNone);
    if (s == kelStatusOk) s = keliMoments64f_8u_C1R(mask, stepMask, size, state);
    demo_report(d, "keliMoments64f_8u_C1R", s, -1);
    if (s == kelStatusOk) {
        KeliPoint origin = {0, 0};
        keliGetSpatialMoment_64f(state, 0, 0, 0, origin, &m00);
        keliGetSpatialMoment_64f(state, 1, 0, 0, origin, &m10);
        keliGetSpatialMoment_64f(state, 0, 1, 0, origin, &m01);
        s = keliGetHuMoments_64f(state, 0, hu);
        demo_report(d, "keliGetHuMoments_64f", s, -1);
        if (m00 > 0) printf("    mask centroid (%.1f, %.1f), first Hu invariant %.6f\n", m10 / m00, m01 / m00, hu[0]);
    }

done:
    keliFree(rings);
    keliFree(ramp);
    keliFree(checker);
    keliFree(mask);
    keliFree(maskC);
}
