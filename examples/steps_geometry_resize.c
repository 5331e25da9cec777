/* Resize. The rings scene shrunk to a quarter of its size and blown up again eight times over a
 * corner, with Nearest (blocks) and Linear (smooth), and the shrunk image resized back in tiles
 * of 37 x 23 pixels, each tile a separate call: the picture shows no seams. */
#include <stdlib.h>
#include <string.h>

#include "demo.h"

typedef struct {
    const Kel8u* src;
    Kel8u* dst;
    int srcStep, dstStep;
    KeliSize dstSize;
    const KeliResizeSpec* spec;
    Kel8u* buffer;
} ResizeArgs;

static void run_linear(void* p)
{
    ResizeArgs* a = (ResizeArgs*)p;
    KeliPoint origin = {0, 0};
    keliResizeLinear_8u_C1R(a->src, a->srcStep, a->dst, a->dstStep, origin, a->dstSize, kelBorderRepl, NULL, a->spec,
                            a->buffer);
}

/* Spec and buffer of one size pair for Nearest or Linear; NULL on failure. */
static KeliResizeSpec* make_spec(KeliSize src, KeliSize dst, int nearest, Kel8u** buffer)
{
    int specSize = 0, initSize = 0, bufSize = 0;
    KeliResizeSpec* spec;
    if (keliResizeGetSize_8u(src, dst, nearest ? kelNearest : kelLinear, 0, &specSize, &initSize) != kelStatusOk) return NULL;
    spec = (KeliResizeSpec*)malloc((size_t)specSize);
    if (!spec) return NULL;
    if ((nearest ? keliResizeNearestInit_8u(src, dst, spec) : keliResizeLinearInit_8u(src, dst, spec)) != kelStatusOk ||
        keliResizeGetBufferSize_8u(spec, dst, 1, &bufSize) != kelStatusOk || !(*buffer = (Kel8u*)malloc((size_t)bufSize))) {
        free(spec);
        return NULL;
    }
    return spec;
}

void demo_geometry_resize(Demo* d)
{
    int stepRings, stepSmall, stepOut;
    const KeliSize full = {d->width, d->height}, small = {d->width / 4, d->height / 4};
    const KeliSize corner = {d->width / 8, d->height / 8};
    const KeliPoint origin = {0, 0};
    Kel8u* rings = demo_scene(d, SCENE_RINGS, &stepRings);
    Kel8u* tiny = keliMalloc_8u_C1(small.width, small.height, &stepSmall);
    Kel8u* out = keliMalloc_8u_C1(d->width, d->height, &stepOut);
    Kel8u *bufDown = NULL, *bufNear = NULL, *bufLin = NULL, *bufUp = NULL;
    KeliResizeSpec* down = make_spec(full, small, 0, &bufDown);
    KeliResizeSpec* nearSpec = make_spec(corner, full, 1, &bufNear);
    KeliResizeSpec* linSpec = make_spec(corner, full, 0, &bufLin);
    KeliResizeSpec* up = make_spec(small, full, 0, &bufUp);
    ResizeArgs args;
    KelStatus s;
    int x, y;
    if (!rings || !tiny || !out || !down || !nearSpec || !linSpec || !up) {
        demo_report(d, "keliResizeGetSize_8u / Init / keliMalloc_8u_C1", kelStatusNoMemory, -1);
        goto done;
    }
    s = keliResizeLinear_8u_C1R(rings, stepRings, tiny, stepSmall, origin, small, kelBorderRepl, NULL, down, bufDown);
    demo_report(d, "keliResizeLinear_8u_C1R (1/4)", s, -1);

    /* A corner of the rings, eight times larger: Nearest shows the pixels as blocks. */
    s = keliResizeNearest_8u_C1R(rings, stepRings, out, stepOut, origin, full, nearSpec, bufNear);
    demo_report(d, "keliResizeNearest_8u_C1R (x8)", s, -1);
    demo_write_png(d, "resize_nearest_x8", out, stepOut, d->width, d->height, 1);
    s = keliResizeLinear_8u_C1R(rings, stepRings, out, stepOut, origin, full, kelBorderRepl, NULL, linSpec, bufLin);
    demo_report(d, "keliResizeLinear_8u_C1R (x8)", s, -1);
    demo_write_png(d, "resize_linear_x8", out, stepOut, d->width, d->height, 1);

    /* Back to full size in tiles: each tile finds its source through the source offset query. */
    s = kelStatusOk;
    for (y = 0; y < d->height && s >= 0; y += 23)
        for (x = 0; x < d->width && s >= 0; x += 37) {
            KeliPoint at = {x, y}, from;
            KeliSize tile = {37, 23};
            s = keliResizeGetSrcOffset_8u(up, at, &from);
            if (s == kelStatusOk)
                s = keliResizeLinear_8u_C1R(tiny + (long)from.y * stepSmall + from.x, stepSmall,
                                            out + (long)y * stepOut + x, stepOut, at, tile, kelBorderRepl, NULL, up, bufUp);
        }
    demo_report(d, "keliResizeLinear_8u_C1R (x4, tiled)", s, -1);
    demo_write_png(d, "resize_linear_tiled", out, stepOut, d->width, d->height, 1);
    args.src = tiny, args.dst = out, args.srcStep = stepSmall, args.dstStep = stepOut, args.dstSize = full;
    args.spec = up, args.buffer = bufUp;
    demo_report(d, "keliResizeLinear_8u_C1R (x4)", kelStatusOk, demo_speed(run_linear, &args, (double)d->width * d->height));

done:
    keliFree(rings);
    keliFree(tiny);
    keliFree(out);
    free(down);
    free(nearSpec);
    free(linSpec);
    free(up);
    free(bufDown);
    free(bufNear);
    free(bufLin);
    free(bufUp);
}
