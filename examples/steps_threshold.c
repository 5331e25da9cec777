/* Thresholds and Otsu. The noisy checkerboard is split into black and white at the level Otsu
 * finds between its two modes; the ramp is clipped from above (a truncating threshold); and
 * a colour image made of the three scenes is posterised channel by channel with two-sided
 * thresholds. */
#include <stdio.h>

#include "demo.h"

typedef struct {
    const Kel8u* src;
    Kel8u* dst;
    int srcStep, dstStep;
    KeliSize size;
    Kel8u level;
} ThresholdArgs;

static void run_otsu(void* p)
{
    ThresholdArgs* a = (ThresholdArgs*)p;
    keliComputeThreshold_Otsu_8u_C1R(a->src, a->srcStep, a->size, &a->level);
}

static void run_truncate(void* p)
{
    ThresholdArgs* a = (ThresholdArgs*)p;
    keliThreshold_GT_8u_C1R(a->src, a->srcStep, a->dst, a->dstStep, a->size, a->level);
}

static const Kel8u kLowT[3] = {85, 85, 100}, kLowV[3] = {0, 40, 0}, kHighT[3] = {170, 170, 150},
                   kHighV[3] = {255, 220, 255};

static void run_posterise(void* p)
{
    ThresholdArgs* a = (ThresholdArgs*)p;
    keliThreshold_LTValGTVal_8u_C3R(a->src, a->srcStep, a->dst, a->dstStep, a->size, kLowT, kLowV, kHighT, kHighV);
}

void demo_threshold(Demo* d)
{
    int stepChecker, stepRamp, stepRings, stepOut, stepColour, stepPoster, x, y;
    KeliSize size = {d->width, d->height};
    Kel8u* checker = demo_scene(d, SCENE_CHECKER, &stepChecker);
    Kel8u* ramp = demo_scene(d, SCENE_RAMP, &stepRamp);
    Kel8u* rings = demo_scene(d, SCENE_RINGS, &stepRings);
    Kel8u* out = keliMalloc_8u_C1(d->width, d->height, &stepOut);
    Kel8u* colour = keliMalloc_8u_C3(d->width, d->height, &stepColour);
    Kel8u* poster = keliMalloc_8u_C3(d->width, d->height, &stepPoster);
    ThresholdArgs args;
    KelStatus s;
    if (!checker || !ramp || !rings || !out || !colour || !poster) {
        demo_report(d, "keliMalloc_8u_C1 / _C3", kelStatusNoMemory, -1);
        goto done;
    }

    /* Otsu's level, then everything up to it to black and everything above to white. */
    args.src = checker;
    args.srcStep = stepChecker;
    args.size = size;
    s = keliComputeThreshold_Otsu_8u_C1R(checker, stepChecker, size, &args.level);
    demo_report(d, "keliComputeThreshold_Otsu_8u_C1R", s, demo_speed(run_otsu, &args, (double)d->width * d->height));
    printf("    Otsu's level of the checkerboard: %d\n", args.level);
    s = keliThreshold_LTVal_8u_C1R(checker, stepChecker, out, stepOut, size, (Kel8u)(args.level + 1), 0);
    demo_report(d, "keliThreshold_LTVal_8u_C1R", s, -1);
    s = keliThreshold_GTVal_8u_C1IR(out, stepOut, size, args.level, 255);
    demo_report(d, "keliThreshold_GTVal_8u_C1IR", s, -1);
    demo_write_png(d, "threshold_checker", checker, stepChecker, d->width, d->height, 1);
    demo_write_png(d, "threshold_otsu", out, stepOut, d->width, d->height, 1);

    /* The ramp clipped at mid grey. */
    args.src = ramp;
    args.srcStep = stepRamp;
    args.dst = out;
    args.dstStep = stepOut;
    args.level = 128;
    s = keliThreshold_GT_8u_C1R(ramp, stepRamp, out, stepOut, size, 128);
    demo_report(d, "keliThreshold_GT_8u_C1R", s, demo_speed(run_truncate, &args, (double)d->width * d->height));
    demo_write_png(d, "threshold_truncated_ramp", out, stepOut, d->width, d->height, 1);

    /* Rings, ramp and checkerboard as the three channels, posterised to three levels each. */
    for (y = 0; y < d->height; ++y)
        for (x = 0; x < d->width; ++x) {
            Kel8u* px = colour + (long)y * stepColour + 3 * x;
            px[0] = rings[(long)y * stepRings + x];
            px[1] = ramp[(long)y * stepRamp + x];
            px[2] = checker[(long)y * stepChecker + x];
        }
    args.src = colour;
    args.srcStep = stepColour;
    args.dst = poster;
    args.dstStep = stepPoster;
    s = keliThreshold_LTValGTVal_8u_C3R(colour, stepColour, poster, stepPoster, size, kLowT, kLowV, kHighT, kHighV);
    demo_report(d, "keliThreshold_LTValGTVal_8u_C3R", s,
                demo_speed(run_posterise, &args, (double)d->width * d->height));
    demo_write_png(d, "threshold_colour", colour, stepColour, d->width, d->height, 3);
    demo_write_png(d, "threshold_posterised", poster, stepPoster, d->width, d->height, 3);

done:
    keliFree(checker);
    keliFree(ramp);
    keliFree(rings);
    keliFree(out);
    keliFree(colour);
    keliFree(poster);
}
