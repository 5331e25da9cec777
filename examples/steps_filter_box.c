/* Box filter: the checkerboard blurred by a 15x15 mean with a mirrored border, and in place by
 * a 5x5 mean; the window sums of the rings feed a local-contrast picture: each pixel against
 * the mean of its 31x31 neighbourhood. */
#include <stdlib.h>

#include "demo.h"

typedef struct {
    const Kel8u* src;
    int srcStep;
    Kel8u* dst;
    int dstStep;
    KeliSize roi, mask;
    Kel8u* buffer;
} BoxArgs;

static void run_box(void* p)
{
    BoxArgs* a = (BoxArgs*)p;
    keliFilterBoxBorder_8u_C1R(a->src, a->srcStep, a->dst, a->dstStep, a->roi, a->mask, kelBorderMirror, NULL,
                               a->buffer);
}

void demo_filter_box(Demo* d)
{
    int stepChecker, stepRings, stepBlur, stepMean, size = 0, x, y;
    const KeliSize roi = {d->width, d->height}, mask15 = {15, 15}, mask5 = {5, 5}, mask31 = {31, 31};
    Kel8u* checker = demo_scene(d, SCENE_CHECKER, &stepChecker);
    Kel8u* rings = demo_scene(d, SCENE_RINGS, &stepRings);
    Kel8u* blur = keliMalloc_8u_C1(d->width, d->height, &stepBlur);
    Kel8u* mean = keliMalloc_8u_C1(d->width, d->height, &stepMean);
    Kel8u* buffer;
    BoxArgs args;
    KelStatus st;

    keliFilterBoxBorderGetBufferSize(roi, mask31, kel8u, 1, &size);
    buffer = (Kel8u*)malloc((size_t)size);
    args.src = checker, args.srcStep = stepChecker, args.dst = blur, args.dstStep = stepBlur;
    args.roi = roi, args.mask = mask15, args.buffer = buffer;
    st = keliFilterBoxBorder_8u_C1R(checker, stepChecker, blur, stepBlur, roi, mask15, kelBorderMirror, NULL, buffer);
    demo_report(d, "keliFilterBoxBorder_8u_C1R 15x15", st, demo_speed(run_box, &args, (double)roi.width * roi.height));
    demo_write_png(d, "filter_box_15x15", blur, stepBlur, d->width, d->height, 1);

    st = keliFilterBoxBorder_8u_C1R(checker, stepChecker, checker, stepChecker, roi, mask5, kelBorderRepl, NULL, buffer);
    demo_report(d, "keliFilterBoxBorder_8u_C1R in place", st, -1);
    demo_write_png(d, "filter_box_5x5_in_place", checker, stepChecker, d->width, d->height, 1);

    /* Local contrast: 128 plus the distance from the neighbourhood's mean, doubled. */
    st = keliFilterBoxBorder_8u_C1R(rings, stepRings, mean, stepMean, roi, mask31, kelBorderMirror, NULL, buffer);
    demo_report(d, "keliFilterBoxBorder_8u_C1R 31x31", st, -1);
    for (y = 0; y < d->height; ++y)
        for (x = 0; x < d->width; ++x) {
            int v = 128 + 2 * ((int)rings[y * stepRings + x] - (int)mean[y * stepMean + x]);
            mean[y * stepMean + x] = (Kel8u)(v < 0 ? 0 : v > 255 ? 255 : v);
        }
    demo_write_png(d, "filter_box_local_contrast", mean, stepMean, d->width, d->height, 1);

    free(buffer);
    keliFree(checker);
    keliFree(rings);
    keliFree(blur);
    keliFree(mean);
}
