/* Minimum and maximum filters. The noisy checkerboard is eroded (a 5x5 minimum: dark squares
 * grow, the noise's bright specks vanish) and dilated (a 5x5 maximum); their difference is the
 * morphological gradient, bright only along the squares' edges. */
#include <stdlib.h>

#include "demo.h"

typedef struct {
    const Kel8u* src;
    Kel8u* dst;
    int srcStep, dstStep;
    KeliSize size, mask;
    Kel8u* buffer;
} MinMaxArgs;

static void run_min(void* p)
{
    MinMaxArgs* a = (MinMaxArgs*)p;
    keliFilterMinBorder_8u_C1R(a->src, a->srcStep, a->dst, a->dstStep, a->size, a->mask, kelBorderRepl, 0, a->buffer);
}

void demo_filter_min_max(Demo* d)
{
    int stepChecker, stepMin, stepMax, stepGrad, size = 0, x, y;
    KeliSize roi = {d->width, d->height}, mask = {5, 5};
    Kel8u* checker = demo_scene(d, SCENE_CHECKER, &stepChecker);
    Kel8u* lo = keliMalloc_8u_C1(d->width, d->height, &stepMin);
    Kel8u* hi = keliMalloc_8u_C1(d->width, d->height, &stepMax);
    Kel8u* grad = keliMalloc_8u_C1(d->width, d->height, &stepGrad);
    Kel8u* buffer = NULL;
    MinMaxArgs args;
    KelStatus s = keliFilterMinBorderGetBufferSize(roi, mask, kel8u, 1, &size);
    demo_report(d, "keliFilterMinBorderGetBufferSize", s, -1);
    if (s == kelStatusOk) buffer = (Kel8u*)malloc((size_t)size);
    if (!checker || !lo || !hi || !grad || !buffer) {
        demo_report(d, "keliMalloc_8u_C1 / malloc", kelStatusNoMemory, -1);
        goto done;
    }
    args.src = checker, args.srcStep = stepChecker, args.dst = lo, args.dstStep = stepMin;
    args.size = roi, args.mask = mask, args.buffer = buffer;
    s = keliFilterMinBorder_8u_C1R(checker, stepChecker, lo, stepMin, roi, mask, kelBorderRepl, 0, buffer);
    demo_report(d, "keliFilterMinBorder_8u_C1R", s, demo_speed(run_min, &args, (double)d->width * d->height));
    s = keliFilterMaxBorder_8u_C1R(checker, stepChecker, hi, stepMax, roi, mask, kelBorderMirror, 0, buffer);
    demo_report(d, "keliFilterMaxBorder_8u_C1R", s, -1);
    for (y = 0; y < d->height; ++y)
        for (x = 0; x < d->width; ++x) grad[y * stepGrad + x] = (Kel8u)(hi[y * stepMax + x] - lo[y * stepMin + x]);
    demo_write_png(d, "min_max_source", checker, stepChecker, d->width, d->height, 1);
    demo_write_png(d, "min_max_erode", lo, stepMin, d->width, d->height, 1);
    demo_write_png(d, "min_max_dilate", hi, stepMax, d->width, d->height, 1);
    demo_write_png(d, "min_max_gradient", grad, stepGrad, d->width, d->height, 1);
done:
    free(buffer);
    keliFree(checker);
    keliFree(lo);
    keliFree(hi);
    keliFree(grad);
}
