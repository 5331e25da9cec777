/* Border extension. The rings get a mirrored frame a third of their size on each side, the
 * ramp a replicated one, a small corner of the checkerboard is wrapped into a wall of whole
 * tiles, and a colour version of the rings is framed in a constant blue. */
#include <stdlib.h>

#include "demo.h"

typedef struct {
    const Kel8u* src;
    int srcStep;
    Kel8u* dst;
    int dstStep;
    KeliSize srcSize, dstSize;
    int top, left;
} BorderArgs;

static void run_mirror(void* p)
{
    BorderArgs* a = (BorderArgs*)p;
    keliCopyMirrorBorder_8u_C1R(a->src, a->srcStep, a->srcSize, a->dst, a->dstStep, a->dstSize, a->top, a->left);
}

static void run_replicate(void* p)
{
    BorderArgs* a = (BorderArgs*)p;
    keliCopyReplicateBorder_8u_C1R(a->src, a->srcStep, a->srcSize, a->dst, a->dstStep, a->dstSize, a->top, a->left);
}

static void run_const_c3(void* p)
{
    static const Kel8u blue[3] = {30, 60, 200};
    BorderArgs* a = (BorderArgs*)p;
    keliCopyConstBorder_8u_C3R(a->src, a->srcStep, a->srcSize, a->dst, a->dstStep, a->dstSize, a->top, a->left, blue);
}

void demo_move_border(Demo* d)
{
    static const Kel8u blue[3] = {30, 60, 200};
    int stepRings, stepRamp, stepChecker, stepBig, stepTile, stepWall, stepGray, stepRgb, stepRgbBig, x, y;
    const int top = d->height / 3, left = d->width / 3;
    KeliSize size = {d->width, d->height};
    KeliSize big = {d->width + 2 * left, d->height + 2 * top};
    KeliSize tileSize = {d->width / 5 > 0 ? d->width / 5 : 1, d->height / 5 > 0 ? d->height / 5 : 1};
    Kel8u* rings = demo_scene(d, SCENE_RINGS, &stepRings);
    Kel8u* ramp = demo_scene(d, SCENE_RAMP, &stepRamp);
    Kel8u* checker = demo_scene(d, SCENE_CHECKER, &stepChecker);
    Kel8u* framed = keliMalloc_8u_C1(big.width, big.height, &stepBig);
    Kel32f* tile = keliMalloc_32f_C1(tileSize.width, tileSize.height, &stepTile);
    Kel32f* wall = keliMalloc_32f_C1(d->width, d->height, &stepWall);
    Kel8u* gray = keliMalloc_8u_C1(d->width, d->height, &stepGray);
    Kel8u* rgb = keliMalloc_8u_C3(d->width, d->height, &stepRgb);
    Kel8u* rgbBig = keliMalloc_8u_C3(big.width, big.height, &stepRgbBig);
    BorderArgs args;
    KelStatus s;
    const double pixels = (double)big.width * big.height;
    if (!rings || !ramp || !checker || !framed || !tile || !wall || !gray || !rgb || !rgbBig) {
        demo_report(d, "keliMalloc for the border step", kelStatusNoMemory, -1);
        goto done;
    }

    args.src = rings, args.srcStep = stepRings, args.dst = framed, args.dstStep = stepBig;
    args.srcSize = size, args.dstSize = big, args.top = top, args.left = left;
    s = keliCopyMirrorBorder_8u_C1R(rings, stepRings, size, framed, stepBig, big, top, left);
    demo_report(d, "keliCopyMirrorBorder_8u_C1R", s, s == kelStatusOk ? demo_speed(run_mirror, &args, pixels) : -1);
    if (s == kelStatusOk) demo_write_png(d, "border_mirror_rings", framed, stepBig, big.width, big.height, 1);

    args.src = ramp, args.srcStep = stepRamp;
    s = keliCopyReplicateBorder_8u_C1R(ramp, stepRamp, size, framed, stepBig, big, top, left);
    demo_report(d, "keliCopyReplicateBorder_8u_C1R", s,
                s == kelStatusOk ? demo_speed(run_replicate, &args, pixels) : -1);
    if (s == kelStatusOk) demo_write_png(d, "border_replicate_ramp", framed, stepBig, big.width, big.height, 1);

    /* A corner of the checkerboard as floats, tiled over the whole image from its middle. */
    for (y = 0; y < tileSize.height; ++y)
        for (x = 0; x < tileSize.width; ++x)
            ((Kel32f*)((char*)tile + (size_t)y * stepTile))[x] = (Kel32f)checker[(size_t)y * stepChecker + x] / 255.0f;
    s = keliCopyWrapBorder_32f_C1R(tile, stepTile, tileSize, wall, stepWall, size, size.height / 2, size.width / 2);
    demo_report(d, "keliCopyWrapBorder_32f_C1R", s, -1);
    if (s == kelStatusOk) {
        for (y = 0; y < size.height; ++y)
            for (x = 0; x < size.width; ++x)
                gray[(size_t)y * stepGray + x] =
                    (Kel8u)(((const Kel32f*)((const char*)wall + (size_t)y * stepWall))[x] * 255.0f + 0.5f);
        demo_write_png(d, "border_wrap_tiles", gray, stepGray, size.width, size.height, 1);
    }

    /* Rings in red, ramp in green, checkerboard in blue, framed in a constant blue. */
    for (y = 0; y < size.height; ++y)
        for (x = 0; x < size.width; ++x) {
            Kel8u* px = rgb + (size_t)y * stepRgb + 3 * (size_t)x;
            px[0] = rings[(size_t)y * stepRings + x];
            px[1] = ramp[(size_t)y * stepRamp + x];
            px[2] = checker[(size_t)y * stepChecker + x];
        }
    args.src = rgb, args.srcStep = stepRgb, args.dst = rgbBig, args.dstStep = stepRgbBig;
    s = keliCopyConstBorder_8u_C3R(rgb, stepRgb, size, rgbBig, stepRgbBig, big, top, left, blue);
    demo_report(d, "keliCopyConstBorder_8u_C3R", s, s == kelStatusOk ? demo_speed(run_const_c3, &args, pixels) : -1);
    if (s == kelStatusOk) demo_write_png(d, "border_const_colour", rgbBig, stepRgbBig, big.width, big.height, 3);
done:
    keliFree(rings), keliFree(ramp), keliFree(checker), keliFree(framed), keliFree(tile), keliFree(wall);
    keliFree(gray), keliFree(rgb), keliFree(rgbBig);
}
