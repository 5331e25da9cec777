/* Remap. A colour image made of the three scenes is swirled about its centre (Linear, smooth
 * edges, so the source's border fades into the grey background), and the checkerboard is turned by
 * 30 degrees with each kind, from Nearest to Lanczos, onto a dark background. */
#include <math.h>
#include <stdio.h>
#include <string.h>

#include "demo.h"

typedef struct {
    const Kel8u* src;
    Kel8u* dst;
    int srcStep, dstStep, mapStep;
    const Kel32f *xMap, *yMap;
    KeliSize size;
    Kel32u kind;
} RemapArgs;

static void run_remap_c3(void* p)
{
    RemapArgs* a = (RemapArgs*)p;
    KeliRect roi = {0, 0, a->size.width, a->size.height};
    keliRemap_8u_C3R(a->src, a->size, a->srcStep, &roi, a->xMap, a->mapStep, a->yMap, a->mapStep, a->dst, a->dstStep,
                     a->size, a->kind);
}

/* Maps that turn the image by `angle` radians about its centre, plus `swirl` radians that fade
 * with the distance from the centre: a swirl is a rotation that grows towards the middle. */
static void make_maps(const Demo* d, Kel32f* xMap, Kel32f* yMap, int mapStep, double angle, double swirl)
{
    const double cx = 0.5 * (d->width - 1), cy = 0.5 * (d->height - 1), r0 = 0.5 * d->height;
    int x, y;
    for (y = 0; y < d->height; ++y)
        for (x = 0; x < d->width; ++x) {
            const double dx = x - cx, dy = y - cy, r = sqrt(dx * dx + dy * dy);
            const double a = angle + swirl * exp(-r / r0);
            Kel32f* mx = (Kel32f*)((char*)xMap + (long)y * mapStep) + x;
            Kel32f* my = (Kel32f*)((char*)yMap + (long)y * mapStep) + x;
            *mx = (Kel32f)(cx + dx * cos(a) - dy * sin(a));
            *my = (Kel32f)(cy + dx * sin(a) + dy * cos(a));
        }
}

void demo_geometry_remap(Demo* d)
{
    static const struct {
        Kel32u kind;
        const char *name, *file;
    } kinds[] = {{kelNearest, "keliRemap_8u_C1R (Nearest)", "remap_rotate_nearest"},
                 {kelLinear, "keliRemap_8u_C1R (Linear)", "remap_rotate_linear"},
                 {kelCubic, "keliRemap_8u_C1R (Cubic)", "remap_rotate_cubic"},
                 {kelCubicLagrange, "keliRemap_8u_C1R (Lagrange)", "remap_rotate_lagrange"},
                 {kelLanczos, "keliRemap_8u_C1R (Lanczos)", "remap_rotate_lanczos"}};
    int stepChecker, stepRamp, stepRings, stepColour, stepOut, stepGrey, xStep, yStep, y;
    unsigned k;
    KeliSize size = {d->width, d->height};
    KeliRect roi = {0, 0, d->width, d->height};
    Kel8u* checker = demo_scene(d, SCENE_CHECKER, &stepChecker);
    Kel8u* ramp = demo_scene(d, SCENE_RAMP, &stepRamp);
    Kel8u* rings = demo_scene(d, SCENE_RINGS, &stepRings);
    Kel8u* colour = keliMalloc_8u_C3(d->width, d->height, &stepColour);
    Kel8u* out = keliMalloc_8u_C3(d->width, d->height, &stepOut);
    Kel8u* grey = keliMalloc_8u_C1(d->width, d->height, &stepGrey);
    Kel32f* xMap = keliMalloc_32f_C1(d->width, d->height, &xStep);
    Kel32f* yMap = keliMalloc_32f_C1(d->width, d->height, &yStep);
    RemapArgs args;
    KelStatus s;
    if (!checker || !ramp || !rings || !colour || !out || !grey || !xMap || !yMap || xStep != yStep) {
        demo_report(d, "keliMalloc_8u_C1 / _C3 / _32f_C1", kelStatusNoMemory, -1);
        goto done;
    }
    /* Each scene into one channel: the copy writes the first element of each pixel. */
    keliCopy_8u_C1C3R(rings, stepRings, colour, stepColour, size);
    keliCopy_8u_C1C3R(ramp, stepRamp, colour + 1, stepColour, size);
    keliCopy_8u_C1C3R(checker, stepChecker, colour + 2, stepColour, size);

    /* The swirl, on a mid-grey background that the smooth edge blends into. */
    make_maps(d, xMap, yMap, xStep, 0.0, 2.5);
    for (y = 0; y < d->height; ++y) memset(out + (long)y * stepOut, 128, (size_t)d->width * 3);
    args.src = colour, args.dst = out, args.srcStep = stepColour, args.dstStep = stepOut, args.mapStep = xStep;
    args.xMap = xMap, args.yMap = yMap, args.size = size, args.kind = kelLinear | 0x80000000u;
    s = keliRemap_8u_C3R(colour, size, stepColour, &roi, xMap, xStep, yMap, yStep, out, stepOut, size,
                         kelLinear | 0x80000000u);
    demo_report(d, "keliRemap_8u_C3R (Linear, smooth)", s, -1);
    demo_write_png(d, "remap_swirl", out, stepOut, d->width, d->height, 3);
    args.kind = kelLinear;
    demo_report(d, "keliRemap_8u_C3R (Linear)", kelStatusOk,
                demo_speed(run_remap_c3, &args, (double)d->width * d->height));

    /* The checkerboard turned by 30 degrees with every kind. */
    make_maps(d, xMap, yMap, xStep, 30.0 * 3.14159265358979323846 / 180.0, 0.0);
    for (k = 0; k < sizeof kinds / sizeof kinds[0]; ++k) {
        for (y = 0; y < d->height; ++y) memset(grey + (long)y * stepGrey, 32, (size_t)d->width);
        s = keliRemap_8u_C1R(checker, size, stepChecker, &roi, xMap, xStep, yMap, yStep, grey, stepGrey, size, kinds[k].kind);
        demo_report(d, kinds[k].name, s, -1);
        demo_write_png(d, kinds[k].file, grey, stepGrey, d->width, d->height, 1);
    }

done:
    keliFree(checker);
    keliFree(ramp);
    keliFree(rings);
    keliFree(colour);
    keliFree(out);
    keliFree(grey);
    keliFree(xMap);
    keliFree(yMap);
}
