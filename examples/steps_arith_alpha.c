/* Alpha composition. A foreground of coloured rings whose alpha is the diagonal ramp (clear in
 * one corner, opaque in the other) is laid over a checkerboard background whose alpha is
 * opaque: Over gives the foreground's colour premultiplied, fading into the board. The
 * foreground is then premultiplied by its own alpha, and last a green-screened copy of the
 * rings (every light ring replaced by pure green) is keyed onto the board. */
#include <stdlib.h>

#include "demo.h"

typedef struct {
    const Kel8u *a, *b;
    Kel8u* dst;
    int aStep, bStep, dstStep;
    KeliSize size;
} AlphaArgs;

static void run_over(void* p)
{
    AlphaArgs* a = (AlphaArgs*)p;
    keliAlphaComp_8u_AC4R(a->a, a->aStep, a->b, a->bStep, a->dst, a->dstStep, a->size, kelAlphaOver);
}

static void run_premul(void* p)
{
    AlphaArgs* a = (AlphaArgs*)p;
    keliAlphaPremul_8u_AC4R(a->a, a->aStep, a->dst, a->dstStep, a->size);
}

static const Kel8u kGreen[4] = {0, 255, 0, 255};

static void run_key(void* p)
{
    AlphaArgs* a = (AlphaArgs*)p;
    keliCompColorKey_8u_C4R(a->a, a->aStep, a->b, a->bStep, a->dst, a->dstStep, a->size, kGreen);
}

void demo_arith_alpha(Demo* d)
{
    int stepRamp, stepRings, stepChecker, stepFg, stepBg, stepKeyed, stepOut;
    KeliSize size = {d->width, d->height};
    Kel8u* ramp = demo_scene(d, SCENE_RAMP, &stepRamp);
    Kel8u* rings = demo_scene(d, SCENE_RINGS, &stepRings);
    Kel8u* checker = demo_scene(d, SCENE_CHECKER, &stepChecker);
    Kel8u* fg = keliMalloc_8u_C4(d->width, d->height, &stepFg);
    Kel8u* bg = keliMalloc_8u_C4(d->width, d->height, &stepBg);
    Kel8u* keyed = keliMalloc_8u_C4(d->width, d->height, &stepKeyed);
    Kel8u* out = keliMalloc_8u_C4(d->width, d->height, &stepOut);
    AlphaArgs args;
    KelStatus s;
    double pixels = (double)d->width * d->height;
    int x, y;
    if (!ramp || !rings || !checker || !fg || !bg || !keyed || !out) {
        demo_report(d, "keliMalloc for the alpha step", kelStatusNoMemory, -1);
        goto done;
    }
    for (y = 0; y < d->height; ++y) {
        const Kel8u* r = ramp + (size_t)y * stepRamp;
        const Kel8u* g = rings + (size_t)y * stepRings;
        const Kel8u* c = checker + (size_t)y * stepChecker;
        Kel8u* f = fg + (size_t)y * stepFg;
        Kel8u* b = bg + (size_t)y * stepBg;
        Kel8u* k = keyed + (size_t)y * stepKeyed;
        for (x = 0; x < d->width; ++x) {
            f[4 * x] = g[x], f[4 * x + 1] = (Kel8u)(g[x] / 2), f[4 * x + 2] = (Kel8u)(255 - g[x]), f[4 * x + 3] = r[x];
            b[4 * x] = c[x], b[4 * x + 1] = c[x], b[4 * x + 2] = (Kel8u)(64 + c[x] / 2), b[4 * x + 3] = 255;
            k[4 * x] = f[4 * x], k[4 * x + 1] = f[4 * x + 1], k[4 * x + 2] = f[4 * x + 2], k[4 * x + 3] = 255;
            if (g[x] > 160) k[4 * x] = 0, k[4 * x + 1] = 255, k[4 * x + 2] = 0;
        }
    }
    args.size = size;
    args.dst = out, args.dstStep = stepOut;

    /* Rings over the board, faded by the ramp. */
    args.a = fg, args.aStep = stepFg, args.b = bg, args.bStep = stepBg;
    s = keliAlphaComp_8u_AC4R(fg, stepFg, bg, stepBg, out, stepOut, size, kelAlphaOver);
    demo_report(d, "keliAlphaComp_8u_AC4R (Over)", s, demo_speed(run_over, &args, pixels));
    demo_write_png(d, "arith_alpha_over", out, stepOut, d->width, d->height, 4);

    /* The rings premultiplied by the ramp; the alpha stays. */
    s = keliAlphaPremul_8u_AC4R(fg, stepFg, out, stepOut, size);
    demo_report(d, "keliAlphaPremul_8u_AC4R", s, demo_speed(run_premul, &args, pixels));
    demo_write_png(d, "arith_alpha_premul", out, stepOut, d->width, d->height, 4);

    /* Green-screened rings keyed onto the board. */
    args.a = keyed, args.aStep = stepKeyed;
    s = keliCompColorKey_8u_C4R(keyed, stepKeyed, bg, stepBg, out, stepOut, size, kGreen);
    demo_report(d, "keliCompColorKey_8u_C4R", s, demo_speed(run_key, &args, pixels));
    demo_write_png(d, "arith_color_key", out, stepOut, d->width, d->height, 4);

done:
    keliFree(ramp);
    keliFree(rings);
    keliFree(checker);
    keliFree(fg);
    keliFree(bg);
    keliFree(keyed);
    keliFree(out);
}
