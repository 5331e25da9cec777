/* Multiplication and division. The ramp modulates the rings (their product brought back to 8
 * bits by a scale factor of 8, ties to even), and the checkerboard is brightened by a constant of
 * 3 with a scale factor of 1, so that its light squares saturate. Then the rings are divided by
 * the ramp shifted up by a scale factor of -5 (a quotient that saturates where the ramp is dark,
 * and a zero divisor in the ramp's dark corner, reported as a warning), and the ramp is halved
 * by a constant divisor of 2. Last, the ramp masks the rings with 255 standing for 1.0, so that
 * the rings keep their full brightness where the ramp is white; the rings are dimmed by a 64f
 * factor of 0.75 with halves rounded away from zero, and divided by the ramp again, this time in
 * 64f with the same rounding. */
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

static void run_divide(void* p)
{
    MulArgs* a = (MulArgs*)p;
    keliDiv_8u_C1RSfs(a->a, a->aStep, a->b, a->bStep, a->dst, a->dstStep, a->size, -5);
}

static void run_halve(void* p)
{
    MulArgs* a = (MulArgs*)p;
    keliDivC_8u_C1RSfs(a->a, a->aStep, 2, a->dst, a->dstStep, a->size, 0);
}

static void run_mask(void* p)
{
    MulArgs* a = (MulArgs*)p;
    keliMulScale_8u_C1R(a->a, a->aStep, a->b, a->bStep, a->dst, a->dstStep, a->size);
}

static void run_dim(void* p)
{
    MulArgs* a = (MulArgs*)p;
    const Kel64f factor = 0.75;
    keliMulC64f_8u_C1R(a->a, a->aStep, &factor, a->dst, a->dstStep, a->size, kelAlgHintNone, kelRndFinancial);
}

static void run_divide_round(void* p)
{
    MulArgs* a = (MulArgs*)p;
    keliDiv_Round_8u_C1RSfs(a->a, a->aStep, a->b, a->bStep, a->dst, a->dstStep, a->size, kelRndFinancial, -5);
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

    /* rings * 32 / ramp: the ramp divides; its zero in the corner gives a warning. */
    args.a = ramp, args.aStep = stepRamp, args.b = rings, args.bStep = stepRings;
    s = keliDiv_8u_C1RSfs(ramp, stepRamp, rings, stepRings, out, stepOut, size, -5);
    demo_report(d, "keliDiv_8u_C1RSfs (n = -5)", s, demo_speed(run_divide, &args, pixels));
    demo_write_png(d, "arith_div_rings_by_ramp", out, stepOut, d->width, d->height, 1);

    /* ramp / 2, ties to even. */
    s = keliDivC_8u_C1RSfs(ramp, stepRamp, 2, out, stepOut, size, 0);
    demo_report(d, "keliDivC_8u_C1RSfs (2)", s, demo_speed(run_halve, &args, pixels));
    demo_write_png(d, "arith_div_halve", out, stepOut, d->width, d->height, 1);

    /* ramp * rings / 255: white in the ramp lets the rings through unchanged. */
    args.a = ramp, args.aStep = stepRamp, args.b = rings, args.bStep = stepRings;
    s = keliMulScale_8u_C1R(ramp, stepRamp, rings, stepRings, out, stepOut, size);
    demo_report(d, "keliMulScale_8u_C1R", s, demo_speed(run_mask, &args, pixels));
    demo_write_png(d, "arith_mulscale_mask", out, stepOut, d->width, d->height, 1);

    /* rings * 0.75, halves away from zero. */
    {
        const Kel64f factor = 0.75;
        args.a = rings, args.aStep = stepRings;
        s = keliMulC64f_8u_C1R(rings, stepRings, &factor, out, stepOut, size, kelAlgHintNone, kelRndFinancial);
        demo_report(d, "keliMulC64f_8u_C1R (0.75)", s, demo_speed(run_dim, &args, pixels));
        demo_write_png(d, "arith_mulc64f_dim", out, stepOut, d->width, d->height, 1);
    }

    /* rings * 32 / ramp in 64f, halves away from zero; the ramp's zero gives the warning again. */
    args.a = ramp, args.aStep = stepRamp, args.b = rings, args.bStep = stepRings;
    s = keliDiv_Round_8u_C1RSfs(ramp, stepRamp, rings, stepRings, out, stepOut, size, kelRndFinancial, -5);
    demo_report(d, "keliDiv_Round_8u_C1RSfs (n = -5)", s, demo_speed(run_divide_round, &args, pixels));
    demo_write_png(d, "arith_div_round_rings_by_ramp", out, stepOut, d->width, d->height, 1);

done:
    keliFree(ramp);
    keliFree(rings);
    keliFree(checker);
    keliFree(out);
}
