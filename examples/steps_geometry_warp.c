/* Affine warp. The rings scene is turned by 30 degrees about its centre and shrunk to three
 * quarters: once with Linear onto a constant dark border, once transparent with smooth edges over
 * a mid-grey background, and the checkerboard with Nearest and a replicated border. */
#include <stdlib.h>
#include <string.h>

#include "demo.h"

typedef struct {
    const Kel8u* src;
    Kel8u* dst;
    int srcStep, dstStep;
    KeliSize size;
    const KeliWarpSpec* spec;
    Kel8u* buffer;
} WarpArgs;

static void run_warp(void* p)
{
    WarpArgs* a = (WarpArgs*)p;
    KeliPoint at = {0, 0};
    keliWarpAffineLinear_8u_C1R(a->src, a->srcStep, a->dst, a->dstStep, at, a->size, a->spec, a->buffer);
}

/* Warps src into dst (same size) with the given kind and border; returns the status. */
static KelStatus warp(Demo* d, const Kel8u* src, int srcStep, Kel8u* dst, int dstStep, const double m[6], int kind,
                      KeliBorderType border, Kel32u smooth, double speedOf)
{
    KeliSize size = {d->width, d->height};
    KeliPoint at = {0, 0};
    int specSize = 0, initSize = 0, bufSize = 0;
    double value = 16;
    KelStatus s = keliWarpAffineGetSize(size, size, kel8u, m, kind, 0, border, &specSize, &initSize);
    KeliWarpSpec* spec;
    Kel8u* buffer;
    if (s < 0) return s;
    spec = (KeliWarpSpec*)malloc((size_t)specSize);
    if (!spec) return kelStatusNoMemory;
    s = (kind == kelNearest ? keliWarpAffineNearestInit : keliWarpAffineLinearInit)(size, size, kel8u, m, 0, 1, border,
                                                                                     &value, smooth, spec);
    if (s >= 0) s = keliWarpGetBufferSize(spec, size, &bufSize);
    buffer = (Kel8u*)malloc((size_t)(bufSize > 0 ? bufSize : 1));
    if (s >= 0 && buffer) {
        s = (kind == kelNearest ? keliWarpAffineNearest_8u_C1R : keliWarpAffineLinear_8u_C1R)(src, srcStep, dst, dstStep,
                                                                                             at, size, spec, buffer);
        if (speedOf > 0) {
            WarpArgs args;
            args.src = src, args.dst = dst, args.srcStep = srcStep, args.dstStep = dstStep, args.size = size;
            args.spec = spec, args.buffer = buffer;
            demo_report(d, "keliWarpAffineLinear_8u_C1R (timed)", kelStatusOk, demo_speed(run_warp, &args, speedOf));
        }
    }
    free(buffer);
    free(spec);
    return s;
}

void demo_geometry_warp(Demo* d)
{
    int stepRings, stepChecker, stepOut, y;
    double m[6], xs, ys;
    Kel8u* rings = demo_scene(d, SCENE_RINGS, &stepRings);
    Kel8u* checker = demo_scene(d, SCENE_CHECKER, &stepChecker);
    Kel8u* out = keliMalloc_8u_C1(d->width, d->height, &stepOut);
    KelStatus s;
    if (!rings || !checker || !out) {
        demo_report(d, "keliMalloc_8u_C1", kelStatusNoMemory, -1);
        goto done;
    }
    /* Turn about the centre, then shrink about it: the shift of the turn scaled, plus the
     * shift that keeps the centre in place under the scaling. */
    keliGetRotateShift(0.5 * (d->width - 1), 0.5 * (d->height - 1), 30, &xs, &ys);
    keliGetRotateTransform(30, xs, ys, m);
    for (y = 0; y < 6; ++y) m[y] *= 0.75;
    m[2] += 0.125 * (d->width - 1);
    m[5] += 0.125 * (d->height - 1);

    s = warp(d, rings, stepRings, out, stepOut, m, kelLinear, kelBorderConst, 0, (double)d->width * d->height);
    demo_report(d, "keliWarpAffineLinear_8u_C1R (Const)", s, -1);
    demo_write_png(d, "warp_turn_linear", out, stepOut, d->width, d->height, 1);

    for (y = 0; y < d->height; ++y) memset(out + (long)y * stepOut, 128, (size_t)d->width);
    s = warp(d, rings, stepRings, out, stepOut, m, kelLinear, kelBorderTransp, 1, 0);
    demo_report(d, "keliWarpAffineLinear_8u_C1R (Transp, smooth)", s, -1);
    demo_write_png(d, "warp_turn_smooth", out, stepOut, d->width, d->height, 1);

    s = warp(d, checker, stepChecker, out, stepOut, m, kelNearest, kelBorderRepl, 0, 0);
    demo_report(d, "keliWarpAffineNearest_8u_C1R (Repl)", s, -1);
    demo_write_png(d, "warp_turn_nearest", out, stepOut, d->width, d->height, 1);

done:
    keliFree(rings);
    keliFree(checker);
    keliFree(out);
}
