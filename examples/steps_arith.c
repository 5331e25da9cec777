/* Saturating add and subtract. The ramp and the rings are averaged with a scale factor of 1
 * (a blend that rounds ties to even), the rings are subtracted from the ramp (what falls below
 * zero stays black), a constant lifts the checkerboard into saturation, and a colour image made
 * of the three scenes is tinted through its colour channels while its alpha stays untouched. */
#include <stdlib.h>

#include "demo.h"

typedef struct {
    const Kel8u *a, *b;
    Kel8u* dst;
    int aStep, bStep, dstStep;
    KeliSize size;
} AddSubArgs;

static void run_blend(void* p)
{
    AddSubArgs* a = (AddSubArgs*)p;
    keliAdd_8u_C1RSfs(a->a, a->aStep, a->b, a->bStep, a->dst, a->dstStep, a->size, 1);
}

static void run_difference(void* p)
{
    AddSubArgs* a = (AddSubArgs*)p;
    keliSub_8u_C1RSfs(a->a, a->aStep, a->b, a->bStep, a->dst, a->dstStep, a->size, 0);
}

static void run_tint(void* p)
{
    static const Kel8u warm[3] = {60, 20, 0};
    AddSubArgs* a = (AddSubArgs*)p;
    keliAddC_8u_AC4IRSfs(warm, a->dst, a->dstStep, a->size, 0);
}

void demo_arith_add_sub(Demo* d)
{
    int stepRamp, stepRings, stepChecker, stepOut, stepRgba, x, y;
    KeliSize size = {d->width, d->height};
    Kel8u* ramp = demo_scene(d, SCENE_RAMP, &stepRamp);
    Kel8u* rings = demo_scene(d, SCENE_RINGS, &stepRings);
    Kel8u* checker = demo_scene(d, SCENE_CHECKER, &stepChecker);
    Kel8u* out = keliMalloc_8u_C1(d->width, d->height, &stepOut);
    Kel8u* rgba = keliMalloc_8u_C4(d->width, d->height, &stepRgba);
    AddSubArgs args;
    KelStatus s;
    double pixels = (double)d->width * d->height;
    if (!ramp || !rings || !checker || !out || !rgba) {
        demo_report(d, "keliMalloc for the add/sub step", kelStatusNoMemory, -1);
        goto done;
    }
    args.size = size;

    /* (ramp + rings) / 2, ties to even. */
    args.a = ramp, args.aStep = stepRamp, args.b = rings, args.bStep = stepRings;
    args.dst = out, args.dstStep = stepOut;
    s = keliAdd_8u_C1RSfs(ramp, stepRamp, rings, stepRings, out, stepOut, size, 1);
    demo_report(d, "keliAdd_8u_C1RSfs (n = 1)", s, demo_speed(run_blend, &args, pixels));
    demo_write_png(d, "arith_add_blend", out, stepOut, d->width, d->height, 1);

    /* ramp - rings: keliSub subtracts its first image from its second. */
    args.a = rings, args.aStep = stepRings, args.b = ramp, args.bStep = stepRamp;
    s = keliSub_8u_C1RSfs(rings, stepRings, ramp, stepRamp, out, stepOut, size, 0);
    demo_report(d, "keliSub_8u_C1RSfs", s, demo_speed(run_difference, &args, pixels));
    demo_write_png(d, "arith_sub_difference", out, stepOut, d->width, d->height, 1);

    /* checker + 80, with the bright squares clipped at white. */
    s = keliAddC_8u_C1IRSfs(80, checker, stepChecker, size, 0);
    demo_report(d, "keliAddC_8u_C1IRSfs", s, -1);
    demo_write_png(d, "arith_addc_lifted", checker, stepChecker, d->width, d->height, 1);

    /* A colour image of the three scenes with the rings as alpha; the tint leaves the alpha. */
    for (y = 0; y < d->height; ++y)
        for (x = 0; x < d->width; ++x) {
            Kel8u* px = rgba + (long)y * stepRgba + 4 * x;
            px[0] = ramp[(long)y * stepRamp + x];
            px[1] = rings[(long)y * stepRings + x];
            px[2] = checker[(long)y * stepChecker + x];
            px[3] = rings[(long)y * stepRings + x];
        }
    args.dst = rgba, args.dstStep = stepRgba;
    run_tint(&args);
    demo_write_png(d, "arith_addc_tinted", rgba, stepRgba, d->width, d->height, 4);
    /* Timed afterwards: each repetition tints the image once more. */
    s = keliAddC_8u_AC4IRSfs((const Kel8u[3]){0, 0, 0}, rgba, stepRgba, size, 0);
    demo_report(d, "keliAddC_8u_AC4IRSfs", s, demo_speed(run_tint, &args, pixels));

done:
    keliFree(ramp);
    keliFree(rings);
    keliFree(checker);
    keliFree(out);
    keliFree(rgba);
}
