/* Allocation, version and absolute value. The ramp is re-centred around zero as 16s, and
 * the absolute value folds it into a V: dark in the middle diagonal, bright at both corners. */
#include <stdlib.h>

#include "demo.h"

typedef struct {
    const Kel16s* src;
    Kel16s* dst;
    int srcStep, dstStep;
    KeliSize size;
} AbsArgs;

static void run_abs(void* p)
{
    AbsArgs* a = (AbsArgs*)p;
    keliAbs_16s_C1R(a->src, a->srcStep, a->dst, a->dstStep, a->size);
}

void demo_frame(Demo* d)
{
    int step8, stepView, step16, stepAbs, x, y;
    KeliSize size = {d->width, d->height};
    Kel8u* ramp = demo_scene(d, SCENE_RAMP, &step8);
    Kel16s* signedRamp = keliMalloc_16s_C1(d->width, d->height, &step16);
    Kel16s* folded = keliMalloc_16s_C1(d->width, d->height, &stepAbs);
    Kel8u* view = keliMalloc_8u_C1(d->width, d->height, &stepView);
    AbsArgs args;
    KelStatus s;
    demo_report(d, "keliMalloc_8u_C1 / _16s_C1", ramp && signedRamp && folded && view ? 0 : kelStatusNoMemory, -1);
    if (!ramp || !signedRamp || !folded || !view) return;

    for (y = 0; y < d->height; ++y)
        for (x = 0; x < d->width; ++x)
            signedRamp[y * (step16 / 2) + x] = (Kel16s)((ramp[y * step8 + x] - 128) * 256);
    demo_write_png(d, "frame_ramp", ramp, step8, d->width, d->height, 1);

    args.src = signedRamp;
    args.dst = folded;
    args.srcStep = step16;
    args.dstStep = stepAbs;
    args.size = size;
    s = keliAbs_16s_C1R(signedRamp, step16, folded, stepAbs, size);
    demo_report(d, "keliAbs_16s_C1R", s, demo_speed(run_abs, &args, (double)d->width * d->height));
    for (y = 0; y < d->height; ++y)
        for (x = 0; x < d->width; ++x) view[y * stepView + x] = (Kel8u)(folded[y * (stepAbs / 2) + x] >> 7);
    demo_write_png(d, "frame_abs", view, stepView, d->width, d->height, 1);

    keliFree(ramp);
    keliFree(signedRamp);
    keliFree(folded);
    keliFree(view);
}
