/* Median filters. The rings get salt-and-pepper noise (one pixel in eight set to black or
 * white); a 5x5 median removes every speck and keeps the rings' edges sharp, where a mean would
 * smear both. The weighted-centre median (centre counted three times) removes fewer specks and
 * keeps finer detail. The median runs in place on its own copy of the noisy image. */
#include <stdlib.h>
#include <string.h>

#include "demo.h"

typedef struct {
    const Kel8u* src;
    Kel8u* dst;
    int srcStep, dstStep;
    KeliSize size, mask;
    Kel8u* buffer;
} MedianArgs;

static void run_median(void* p)
{
    MedianArgs* a = (MedianArgs*)p;
    keliFilterMedianBorder_8u_C1R(a->src, a->srcStep, a->dst, a->dstStep, a->size, a->mask, kelBorderRepl, 0, a->buffer);
}

void demo_filter_median(Demo* d)
{
    int stepRings, stepMed, stepWeighted, size = 0, x, y;
    unsigned seed = 12345u;
    KeliSize roi = {d->width, d->height}, inner = {d->width - 2, d->height - 2}, mask = {5, 5};
    Kel8u* rings = demo_scene(d, SCENE_RINGS, &stepRings);
    Kel8u* med = keliMalloc_8u_C1(d->width, d->height, &stepMed);
    Kel8u* weighted = keliMalloc_8u_C1(d->width, d->height, &stepWeighted);
    Kel8u* buffer = NULL;
    MedianArgs args;
    KelStatus s = keliFilterMedianBorderGetBufferSize(roi, mask, kel8u, 1, &size);
    demo_report(d, "keliFilterMedianBorderGetBufferSize", s, -1);
    if (s == kelStatusOk) buffer = (Kel8u*)malloc((size_t)size);
    if (!rings || !med || !weighted || !buffer) {
        demo_report(d, "keliMalloc_8u_C1 / malloc", kelStatusNoMemory, -1);
        goto done;
    }
    for (y = 0; y < d->height; ++y)
        for (x = 0; x < d->width; ++x) {
            seed = seed * 1103515245u + 12345u;
            if ((seed >> 16) % 8 == 0) rings[y * stepRings + x] = (seed >> 20) & 1 ? 255 : 0;
        }
    for (y = 0; y < d->height; ++y) memcpy(med + y * stepMed, rings + y * stepRings, (size_t)d->width);
    args.src = rings, args.srcStep = stepRings, args.dst = weighted, args.dstStep = stepWeighted;
    args.size = roi, args.mask = mask, args.buffer = buffer;
    s = keliFilterMedianBorder_8u_C1R(med, stepMed, med, stepMed, roi, mask, kelBorderRepl, 0, buffer);
    demo_report(d, "keliFilterMedianBorder_8u_C1R", s, demo_speed(run_median, &args, (double)d->width * d->height));
    for (y = 0; y < d->height; ++y) memcpy(weighted + y * stepWeighted, rings + y * stepRings, (size_t)d->width);
    s = keliFilterMedianWeightedCenter3x3_8u_C1R(rings + stepRings + 1, stepRings, weighted + stepWeighted + 1,
                                                 stepWeighted, inner, 3);
    demo_report(d, "keliFilterMedianWeightedCenter3x3_8u_C1R", s, -1);
    demo_write_png(d, "median_noisy", rings, stepRings, d->width, d->height, 1);
    demo_write_png(d, "median_5x5", med, stepMed, d->width, d->height, 1);
    demo_write_png(d, "median_weighted_centre", weighted, stepWeighted, d->width, d->height, 1);
done:
    free(buffer);
    keliFree(rings);
    keliFree(med);
    keliFree(weighted);
}
