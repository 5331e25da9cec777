/* Multiplication. The ramp modulates the rings (their product brought back to 8 bits by a scale
 * factor of 8, ties to even), and the checkerboard is brightened by a constant of 3 with a scale
 * factor of 1, so that its light squares saturate. */
#include "demo.h"

typedef struct {
    const Kel8u *a, *b;
    Kel8u* dst;
    int aStep, bStep, dstStep;
    KeliSize size;
} MulArgs;

static void run_modulate(void* p)
{
    MulArgs* a = (MulArgs*)p;
    keliMul_8u_C1RSfs(a->a, a->aStep, a->b, a->bStep, a->dst, a->dstStep, a->size, 8);
}

static void run_brighten(void* p)
{
    MulArgs* a = (MulArgs*)p;
    keliMulC_8u_C1RSfs(a->a, a->aStep, 3, a->dst, a->dstStep, a->size, 1);
}

void demo_arith_mul_div(Demo* d)
{
    int stepRamp, stepRings, stepChecker, stepOut;
    KeliSize size = {d->width, d->height};
    Kel8u* ramp = demo_scene(d, SCENE_RAMP, &stepRamp);
    Kel8u* rings = demo_scene(d, SCENE_RINGS, &stepRings);
    Kel8u* checker = demo_scene(d, SCENE_CHECKER, &stepChecker);
    Kel8u* out = keliMalloc_8u_C1(d->width, d->height, &stepOut);
    MulArgs args;
    KelStatus s;
    double pixels = (double)d->width * d->height;
    if (!ramp || !rings || !checker || !out) {
        demo_report(d, "keliMalloc for the multiply step", kelStatusNoMemory, -1);
        goto done;
    }
    args.size = size;
    args.dst = out, args.dstStep = stepOut;

    /* ramp * rings / 256. */
    args.a = ramp, args.aStep = stepRamp, args.b = rings, args.bStep = stepRings;
    s = keliMul_8u_C1RSfs(ramp, stepRamp, rings, stepRings, out, stepOut, size, 8);
    demo_report(d, "keliMul_8u_C1RSfs (n = 8)", s, demo_speed(run_modulate, &args, pixels));
    demo_write_png(d, "arith_mul_modulate", out, stepOut, d->width, d->height, 1);

    /* checker * 3 / 2, saturated. */
    args.a = checker, args.aStep = stepChecker;
    s = keliMulC_8u_C1RSfs(checker, stepChecker, 3, out, stepOut, size, 1);
    demo_report(d, "keliMulC_8u_C1RSfs (3, n = 1)", s, demo_speed(run_brighten, &args, pixels));
    demo_write_png(d, "arith_mul_brighten", out, stepOut, d->width, d->height, 1);

done:
    keliFree(ramp);
    keliFree(rings);
    keliFree(checker);
    keliFree(out);
}
