/* Copy, set and channel shuffles. The three scenes become the red, green and blue planes of
 * one colour image; its channels are swapped, one is taken out again, the gray ramp is spread
 * over three channels, the bright squares of the checkerboard are painted orange through a
 * mask, and the image gets an alpha channel shaped like the rings. */
#include <stdlib.h>

#include "demo.h"

typedef struct {
    const Kel8u* planes[3];
    Kel8u* rgb;
    Kel8u* other;
    int planeStep, rgbStep, otherStep;
    KeliSize size;
    const Kel8u* mask;
    int maskStep;
} MoveArgs;

static void run_merge(void* p)
{
    MoveArgs* a = (MoveArgs*)p;
    keliCopy_8u_P3C3R(a->planes, a->planeStep, a->rgb, a->rgbStep, a->size);
}

static void run_swap(void* p)
{
    static const int order[3] = {2, 1, 0};
    MoveArgs* a = (MoveArgs*)p;
    keliSwapChannels_8u_C3R(a->rgb, a->rgbStep, a->other, a->otherStep, a->size, order);
}

static void run_masked_set(void* p)
{
    static const Kel8u orange[3] = {255, 140, 0};
    MoveArgs* a = (MoveArgs*)p;
    keliSet_8u_C3MR(orange, a->other, a->otherStep, a->size, a->mask, a->maskStep);
}

void demo_move_copy(Demo* d)
{
    int stepRamp, stepRings, stepChecker, stepRgb, stepOther, stepGray, stepMask, stepRgba, x, y;
    KeliSize size = {d->width, d->height};
    Kel8u* ramp = demo_scene(d, SCENE_RAMP, &stepRamp);
    Kel8u* rings = demo_scene(d, SCENE_RINGS, &stepRings);
    Kel8u* checker = demo_scene(d, SCENE_CHECKER, &stepChecker);
    Kel8u* rgb = keliMalloc_8u_C3(d->width, d->height, &stepRgb);
    Kel8u* other = keliMalloc_8u_C3(d->width, d->height, &stepOther);
    Kel8u* gray = keliMalloc_8u_C1(d->width, d->height, &stepGray);
    Kel8u* mask = keliMalloc_8u_C1(d->width, d->height, &stepMask);
    Kel8u* rgba = keliMalloc_8u_C4(d->width, d->height, &stepRgba);
    MoveArgs args;
    KelStatus s;
    double pixels = (double)d->width * d->height;
    if (!ramp || !rings || !checker || !rgb || !other || !gray || !mask || !rgba || stepRamp != stepRings ||
        stepRamp != stepChecker) {
        demo_report(d, "keliMalloc for the copy step", kelStatusNoMemory, -1);
        goto done;
    }

    /* The planes share one step, as the planar forms take one step for all of them. */
    args.planes[0] = ramp;
    args.planes[1] = rings;
    args.planes[2] = checker;
    args.planeStep = stepRamp;
    args.rgb = rgb;
    args.rgbStep = stepRgb;
    args.other = other;
    args.otherStep = stepOther;
    args.size = size;
    s = keliCopy_8u_P3C3R(args.planes, stepRamp, rgb, stepRgb, size);
    demo_report(d, "keliCopy_8u_P3C3R", s, demo_speed(run_merge, &args, pixels));
    demo_write_png(d, "move_merged", rgb, stepRgb, d->width, d->height, 3);

    {
        static const int order[3] = {2, 1, 0};
        s = keliSwapChannels_8u_C3R(rgb, stepRgb, other, stepOther, size, order);
        demo_report(d, "keliSwapChannels_8u_C3R", s, demo_speed(run_swap, &args, pixels));
        demo_write_png(d, "move_swapped", other, stepOther, d->width, d->height, 3);
    }

    /* Green alone: the source pointer addresses channel 1 of the first pixel. */
    s = keliCopy_8u_C3C1R(rgb + 1, stepRgb, gray, stepGray, size);
    demo_report(d, "keliCopy_8u_C3C1R", s, -1);
    demo_write_png(d, "move_green", gray, stepGray, d->width, d->height, 1);

    s = keliDup_8u_C1C3R(ramp, stepRamp, other, stepOther, size);
    demo_report(d, "keliDup_8u_C1C3R", s, -1);

    /* The mask: bright squares of the checkerboard. */
    for (y = 0; y < d->height; ++y)
        for (x = 0; x < d->width; ++x) mask[y * stepMask + x] = checker[y * stepChecker + x] > 128 ? 255 : 0;
    args.mask = mask;
    args.maskStep = stepMask;
    {
        static const Kel8u orange[3] = {255, 140, 0};
        s = keliSet_8u_C3MR(orange, other, stepOther, size, mask, stepMask);
        demo_report(d, "keliSet_8u_C3MR", s, demo_speed(run_masked_set, &args, pixels));
        demo_write_png(d, "move_masked_set", other, stepOther, d->width, d->height, 3);
    }

    /* Alpha from the rings, colour from the merged image: AC4 copies leave alpha alone. */
    s = keliCopy_8u_C1C4R(rings, stepRings, rgba + 3, stepRgba, size);
    demo_report(d, "keliCopy_8u_C1C4R", s, -1);
    s = keliCopy_8u_C3AC4R(rgb, stepRgb, rgba, stepRgba, size);
    demo_report(d, "keliCopy_8u_C3AC4R", s, -1);
    demo_write_png(d, "move_alpha", rgba, stepRgba, d->width, d->height, 4);

done:
    keliFree(ramp);
    keliFree(rings);
    keliFree(checker);
    keliFree(rgb);
    keliFree(other);
    keliFree(gray);
    keliFree(mask);
    keliFree(rgba);
}
