/* Laplace, high-pass and sharpen: the rings softened by a 5x5 mean and sharpened back (with a
 * constant border of mid-grey), the bright side of the checkerboard's 3x3 Laplace edges, and
 * the rings' 5x5 high-pass filtered in place. */
#include <stdlib.h>

#include "demo.h"

typedef struct {
    const Kel8u* src;
    int srcStep;
    Kel8u* dst;
    int dstStep;
    KeliSize roi;
    Kel8u* buffer;
} SharpenArgs;

static void run_sharpen(void* p)
{
    SharpenArgs* a = (SharpenArgs*)p;
    keliFilterSharpenBorder_8u_C1R(a->src, a->srcStep, a->dst, a->dstStep, a->roi, kelMaskSize3x3, kelBorderConst, 128,
                                   a->buffer);
}

void demo_filter_sharpen(Demo* d)
{
    int stepRings, stepChecker, stepSoft, stepOut, size = 0, boxSize = 0;
    const KeliSize roi = {d->width, d->height}, mask5 = {5, 5};
    Kel8u* rings = demo_scene(d, SCENE_RINGS, &stepRings);
    Kel8u* checker = demo_scene(d, SCENE_CHECKER, &stepChecker);
    Kel8u* soft = keliMalloc_8u_C1(d->width, d->height, &stepSoft);
    Kel8u* out = keliMalloc_8u_C1(d->width, d->height, &stepOut);
    Kel8u* buffer;
    SharpenArgs args;
    KelStatus st;

    keliFilterHipassBorderGetBufferSize(roi, kelMaskSize5x5, kel8u, kel8u, 1, &size);
    keliFilterBoxBorderGetBufferSize(roi, mask5, kel8u, 1, &boxSize);
    buffer = (Kel8u*)malloc((size_t)(size > boxSize ? size : boxSize));

    keliFilterBoxBorder_8u_C1R(rings, stepRings, soft, stepSoft, roi, mask5, kelBorderRepl, NULL, buffer);
    args.src = soft, args.srcStep = stepSoft, args.dst = out, args.dstStep = stepOut, args.roi = roi;
    args.buffer = buffer;
    st = keliFilterSharpenBorder_8u_C1R(soft, stepSoft, out, stepOut, roi, kelMaskSize3x3, kelBorderConst, 128, buffer);
    demo_report(d, "keliFilterSharpenBorder_8u_C1R", st, demo_speed(run_sharpen, &args, (double)roi.width * roi.height));
    demo_write_png(d, "filter_sharpen_soft_rings", out, stepOut, d->width, d->height, 1);

    st = keliFilterLaplaceBorder_8u_C1R(checker, stepChecker, out, stepOut, roi, kelMaskSize3x3, kelBorderRepl, 0,
                                        buffer);
    demo_report(d, "keliFilterLaplaceBorder_8u_C1R 3x3", st, -1);
    demo_write_png(d, "filter_laplace_checker_edges", out, stepOut, d->width, d->height, 1);

    st = keliFilterHipassBorder_8u_C1R(rings, stepRings, rings, stepRings, roi, kelMaskSize5x5, kelBorderRepl, 0,
                                       buffer);
    demo_report(d, "keliFilterHipassBorder_8u_C1R 5x5 in place", st, -1);
    demo_write_png(d, "filter_hipass_rings_in_place", rings, stepRings, d->width, d->height, 1);

    free(buffer);
    keliFree(rings);
    keliFree(checker);
    keliFree(soft);
    keliFree(out);
}
