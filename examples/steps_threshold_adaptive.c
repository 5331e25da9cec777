/* Adaptive thresholds: the rings under a left-to-right shading, which no single level can
 * separate, binarised against the mean of each pixel's 15x15 neighbourhood (box) and against
 * a Gaussian weighted 11x11 neighbourhood, in place. */
#include <stdlib.h>

#include "demo.h"

typedef struct {
    const Kel8u* src;
    int srcStep;
    Kel8u* dst;
    int dstStep;
    KeliSize roi, mask;
    Kel8u* buffer;
} AdaptiveArgs;

static void run_box(void* p)
{
    AdaptiveArgs* a = (AdaptiveArgs*)p;
    keliThresholdAdaptiveBox_8u_C1R(a->src, a->srcStep, a->dst, a->dstStep, a->roi, a->mask, 2.0f, 255, 0,
                                    kelBorderRepl, 0, a->buffer);
}

void demo_threshold_adaptive(Demo* d)
{
    int stepRings, stepOut, size = 0, specSize = 0, x, y;
    const KeliSize roi = {d->width, d->height}, mask15 = {15, 15}, mask11 = {11, 11};
    Kel8u* rings = demo_scene(d, SCENE_RINGS, &stepRings);
    Kel8u* out = keliMalloc_8u_C1(d->width, d->height, &stepOut);
    Kel8u *buffer, *spec;
    AdaptiveArgs args;
    KelStatus st;

    /* Shade the rings: darker to the left, so one global level fails. */
    for (y = 0; y < d->height; ++y)
        for (x = 0; x < d->width; ++x)
            rings[y * stepRings + x] = (Kel8u)(rings[y * stepRings + x] * (x + d->width / 4) / (d->width + d->width / 4));
    demo_write_png(d, "threshold_adaptive_source", rings, stepRings, d->width, d->height, 1);

    keliThresholdAdaptiveBoxGetBufferSize(roi, mask15, kel8u, 1, &size);
    buffer = (Kel8u*)malloc((size_t)size);
    args.src = rings, args.srcStep = stepRings, args.dst = out, args.dstStep = stepOut;
    args.roi = roi, args.mask = mask15, args.buffer = buffer;
    st = keliThresholdAdaptiveBox_8u_C1R(rings, stepRings, out, stepOut, roi, mask15, 2.0f, 255, 0, kelBorderRepl, 0,
                                         buffer);
    demo_report(d, "keliThresholdAdaptiveBox_8u_C1R 15x15", st,
                demo_speed(run_box, &args, (double)roi.width * roi.height));
    demo_write_png(d, "threshold_adaptive_box_15x15", out, stepOut, d->width, d->height, 1);
    free(buffer);

    keliThresholdAdaptiveGaussGetBufferSize(roi, mask11, kel8u, 1, &specSize, &size);
    buffer = (Kel8u*)malloc((size_t)size);
    spec = (Kel8u*)malloc((size_t)specSize);
    st = keliThresholdAdaptiveGaussInit(roi, mask11, kel8u, 1, 0.0f, spec);
    if (st == kelStatusOk)
        st = keliThresholdAdaptiveGauss_8u_C1IR(rings, stepRings, roi, 2.0f, 255, 0, kelBorderRepl, 0, spec, buffer);
    demo_report(d, "keliThresholdAdaptiveGauss_8u_C1IR 11x11", st, -1);
    demo_write_png(d, "threshold_adaptive_gauss_11x11", rings, stepRings, d->width, d->height, 1);

    free(spec);
    free(buffer);
    keliFree(out);
    keliFree(rings);
}
