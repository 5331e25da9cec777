/* Elementary functions and logic. The rings are brightened by their square root (times 8, a scale
 * factor of -3); the ramp is bent by its logarithm (times 32), its zero in the corner making the
 * logarithm warn, and raised through the exponential of a 32nd of it (a right shift by 5),
 * halved; the checkerboard keeps the bits it shares with the rings (And) and is inverted (Not);
 * last, the brighter of the rings and the ramp at each pixel (MaxEvery). */
#include "demo.h"

typedef struct {
    const Kel8u *a, *b;
    Kel8u* dst;
    int aStep, bStep, dstStep;
    KeliSize size;
} ElemArgs;

static void run_sqrt(void* p)
{
    ElemArgs* a = (ElemArgs*)p;
    keliSqrt_8u_C1RSfs(a->a, a->aStep, a->dst, a->dstStep, a->size, -3);
}

static void run_ln(void* p)
{
    ElemArgs* a = (ElemArgs*)p;
    keliLn_8u_C1RSfs(a->a, a->aStep, a->dst, a->dstStep, a->size, -5);
}

static void run_and(void* p)
{
    ElemArgs* a = (ElemArgs*)p;
    keliAnd_8u_C1R(a->a, a->aStep, a->b, a->bStep, a->dst, a->dstStep, a->size);
}

static void run_max(void* p)
{
    ElemArgs* a = (ElemArgs*)p;
    keliMaxEvery_8u_C1R(a->a, a->aStep, a->b, a->bStep, a->dst, a->dstStep, a->size);
}

void demo_arith_elementary(Demo* d)
{
    int stepRamp, stepRings, stepChecker, stepOut;
    KeliSize size = {d->width, d->height};
    Kel8u* ramp = demo_scene(d, SCENE_RAMP, &stepRamp);
    Kel8u* rings = demo_scene(d, SCENE_RINGS, &stepRings);
    Kel8u* checker = demo_scene(d, SCENE_CHECKER, &stepChecker);
    Kel8u* out = keliMalloc_8u_C1(d->width, d->height, &stepOut);
    ElemArgs args;
    KelStatus s;
    double pixels = (double)d->width * d->height;
    if (!ramp || !rings || !checker || !out) {
        demo_report(d, "keliMalloc for the elementary step", kelStatusNoMemory, -1);
        goto done;
    }
    args.size = size;
    args.dst = out, args.dstStep = stepOut;

    /* 8 sqrt(rings), ties to even. */
    args.a = rings, args.aStep = stepRings;
    s = keliSqrt_8u_C1RSfs(rings, stepRings, out, stepOut, size, -3);
    demo_report(d, "keliSqrt_8u_C1RSfs (n = -3)", s, demo_speed(run_sqrt, &args, pixels));
    demo_write_png(d, "arith_sqrt_rings", out, stepOut, d->width, d->height, 1);

    /* 32 ln(ramp): the ramp's zero warns. */
    args.a = ramp, args.aStep = stepRamp;
    s = keliLn_8u_C1RSfs(ramp, stepRamp, out, stepOut, size, -5);
    demo_report(d, "keliLn_8u_C1RSfs (n = -5)", s, demo_speed(run_ln, &args, pixels));
    demo_write_png(d, "arith_ln_ramp", out, stepOut, d->width, d->height, 1);

    /* exp(ramp >> 5) / 2, rounded half up. */
    {
        const Kel32u count = 5;
        s = keliRShiftC_8u_C1R(ramp, stepRamp, count, out, stepOut, size);
        if (s == kelStatusOk) s = keliExp_8u_C1IRSfs(out, stepOut, size, 1);
        demo_report(d, "keliExp_8u_C1IRSfs (n = 1)", s, -1);
        demo_write_png(d, "arith_exp_ramp", out, stepOut, d->width, d->height, 1);
    }

    /* checker AND rings, then NOT. */
    args.a = checker, args.aStep = stepChecker, args.b = rings, args.bStep = stepRings;
    s = keliAnd_8u_C1R(checker, stepChecker, rings, stepRings, out, stepOut, size);
    demo_report(d, "keliAnd_8u_C1R", s, demo_speed(run_and, &args, pixels));
    s = keliNot_8u_C1IR(out, stepOut, size);
    demo_report(d, "keliNot_8u_C1IR", s, -1);
    demo_write_png(d, "arith_and_not", out, stepOut, d->width, d->height, 1);

    /* max(rings, ramp). */
    args.a = rings, args.aStep = stepRings, args.b = ramp, args.bStep = stepRamp;
    s = keliMaxEvery_8u_C1R(rings, stepRings, ramp, stepRamp, out, stepOut, size);
    demo_report(d, "keliMaxEvery_8u_C1R", s, demo_speed(run_max, &args, pixels));
    demo_write_png(d, "arith_max_rings_ramp", out, stepOut, d->width, d->height, 1);

done:
    keliFree(ramp);
    keliFree(rings);
    keliFree(checker);
    keliFree(out);
}
