/* General kernel filter. The checkerboard is blurred by a 5x5 binomial kernel (divisor 256)
 * with a mirrored border, and the rings are sharpened by a 3x3 kernel with a replicated one;
 * the blur is timed. */
#include <stdlib.h>

#include "demo.h"

typedef struct {
    const Kel8u* src;
    int srcStep;
    Kel8u* dst;
    int dstStep;
    KeliSize size;
    const KeliFilterBorderSpec* spec;
    Kel8u* buffer;
} FilterArgs;

static void run_blur(void* p)
{
    FilterArgs* a = (FilterArgs*)p;
    keliFilterBorder_8u_C1R(a->src, a->srcStep, a->dst, a->dstStep, a->size, kelBorderMirror, NULL, a->spec, a->buffer);
}

/* Prepares a spec and scratch for a 16-bit kernel on 8u data; both freed by the caller. */
static KelStatus prepare(const Kel16s* kernel, KeliSize ks, int divisor, KeliSize roi, KeliFilterBorderSpec** spec,
                         Kel8u** buffer)
{
    int specSize = 0, bufferSize = 0;
    KelStatus s = keliFilterBorderGetSize(ks, roi, kel8u, kel16s, 1, &specSize, &bufferSize);
    *spec = NULL, *buffer = NULL;
    if (s != kelStatusOk) return s;
    *spec = (KeliFilterBorderSpec*)malloc((size_t)specSize);
    *buffer = (Kel8u*)malloc((size_t)bufferSize);
    if (!*spec || !*buffer) return kelStatusNoMemory;
    return keliFilterBorderInit_16s(kernel, ks, divisor, kel8u, 1, kelRndNear, *spec);
}

void demo_filter_general(Demo* d)
{
    static const Kel16s binomial[25] = {1, 4, 6, 4, 1, 4, 16, 24, 16, 4, 6, 24, 36, 24, 6, 4, 16, 24, 16, 4, 1, 4, 6, 4, 1};
    static const Kel16s sharpen[9] = {0, -1, 0, -1, 5, -1, 0, -1, 0};
    int stepChecker, stepRings, stepOut;
    KeliSize size = {d->width, d->height};
    Kel8u* checker = demo_scene(d, SCENE_CHECKER, &stepChecker);
    Kel8u* rings = demo_scene(d, SCENE_RINGS, &stepRings);
    Kel8u* out = keliMalloc_8u_C1(d->width, d->height, &stepOut);
    KeliFilterBorderSpec* spec = NULL;
    Kel8u* buffer = NULL;
    FilterArgs args;
    KelStatus s;
    if (!checker || !rings || !out) {
        demo_report(d, "keliMalloc for the filter step", kelStatusNoMemory, -1);
        goto done;
    }

    s = prepare(binomial, (KeliSize){5, 5}, 256, size, &spec, &buffer);
    if (s == kelStatusOk) s = keliFilterBorder_8u_C1R(checker, stepChecker, out, stepOut, size, kelBorderMirror, NULL, spec, buffer);
    args.src = checker, args.srcStep = stepChecker, args.dst = out, args.dstStep = stepOut;
    args.size = size, args.spec = spec, args.buffer = buffer;
    demo_report(d, "keliFilterBorder_8u_C1R 5x5", s,
                s == kelStatusOk ? demo_speed(run_blur, &args, (double)size.width * size.height) : -1);
    if (s == kelStatusOk) demo_write_png(d, "filter_blur_checker", out, stepOut, size.width, size.height, 1);
    free(spec), free(buffer);

    s = prepare(sharpen, (KeliSize){3, 3}, 1, size, &spec, &buffer);
    if (s == kelStatusOk) s = keliFilterBorder_8u_C1R(rings, stepRings, out, stepOut, size, kelBorderRepl, NULL, spec, buffer);
    demo_report(d, "keliFilterBorder_8u_C1R 3x3", s, -1);
    if (s == kelStatusOk) demo_write_png(d, "filter_sharpen_rings", out, stepOut, size.width, size.height, 1);
    free(spec), free(buffer);

done:
    keliFree(checker);
    keliFree(rings);
    keliFree(out);
}
