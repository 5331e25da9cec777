/* Histogram of oriented gradients: one window over the rings, cells of 8 pixels; each cell is
 * drawn as a star of its nine bins, a line a bin across the cell, along the edges (at right
 * angles to the gradient), as bright as the bin's share of its normalised block. */
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include "demo.h"

typedef struct {
    const Kel8u* src;
    int srcStep;
    KeliSize roi;
    Kel32f* out;
    const KeliHOGSpec* spec;
    Kel8u* buffer;
} HogArgs;

static void run_hog(void* p)
{
    HogArgs* a = (HogArgs*)p;
    keliHOG_8u32f_C1R(a->src, a->srcStep, a->roi, NULL, 1, a->out, a->spec, kelBorderMirror, 0, a->buffer);
}

/* A line of `value` through the centre of the cell at (x0, y0), `size` pixels, at angle `t`. */
static void draw_line(Kel8u* img, int step, int x0, int y0, int size, double t, int value)
{
    int i;
    for (i = -size * 4; i <= size * 4; ++i) {
        const double r = i / 8.0;
        const int x = x0 + size / 2 + (int)floor(r * cos(t) + 0.5), y = y0 + size / 2 + (int)floor(r * sin(t) + 0.5);
        if (x >= x0 && x < x0 + size && y >= y0 && y < y0 + size && img[y * step + x] < value)
            img[y * step + x] = (Kel8u)value;
    }
}

void demo_match_hog(Demo* d)
{
    const int cell = 8, bins = 9;
    int step, specSize = 0, bufferSize = 0, descriptorBytes = 0, bx, by, j;
    Kel8u* rings = demo_scene(d, SCENE_RINGS, &step);
    KeliHOGConfig cfg;
    KeliSize roi = {d->width, d->height};
    Kel8u *spec, *buffer, *picture;
    Kel32f* out;
    HogArgs args;
    KelStatus st;

    cfg.blockOrderColumnMajor = 0, cfg.cellSize = cell, cfg.blockSize = 2 * cell, cfg.blockStride = cell;
    cfg.nbins = bins, cfg.sigma = (float)cell, cfg.l2Threshold = 0.2f;
    cfg.winWidth = d->width - (d->width - 2 * cell) % cell, cfg.winHeight = d->height - (d->height - 2 * cell) % cell;
    keliHOGGetSize(&cfg, &specSize);
    spec = (Kel8u*)malloc((size_t)specSize);
    keliHOGInit(&cfg, (KeliHOGSpec*)spec);
    keliHOGGetBufferSize((const KeliHOGSpec*)spec, roi, &bufferSize);
    keliHOGGetDescriptorSize((const KeliHOGSpec*)spec, &descriptorBytes);
    buffer = (Kel8u*)malloc((size_t)bufferSize);
    out = (Kel32f*)malloc((size_t)descriptorBytes);
    st = keliHOG_8u32f_C1R(rings, step, roi, NULL, 1, out, (const KeliHOGSpec*)spec, kelBorderMirror, 0, buffer);
    args.src = rings, args.srcStep = step, args.roi = roi, args.out = out;
    args.spec = (const KeliHOGSpec*)spec, args.buffer = buffer;
    demo_report(d, "keliHOG_8u32f_C1R 8x8 cells", st, demo_speed(run_hog, &args, (double)roi.width * roi.height));

    /* The top-left cell of each block is drawn: blocks step by one cell. */
    picture = (Kel8u*)calloc((size_t)d->width * d->height, 1);
    {
        const int blocksX = (cfg.winWidth - cfg.blockSize) / cell + 1, blocksY = (cfg.winHeight - cfg.blockSize) / cell + 1;
        for (by = 0; by < blocksY; ++by)
            for (bx = 0; bx < blocksX; ++bx) {
                const Kel32f* h = out + (by * blocksX + bx) * 4 * bins;
                for (j = 0; j < bins; ++j) {
                    const double edge = (j + 0.5) * 3.14159265358979 / bins + 3.14159265358979 / 2;
                    const int v = (int)(h[j] * 2 * 255);
                    draw_line(picture, d->width, bx * cell, by * cell, cell, edge, v > 255 ? 255 : v);
                }
            }
    }
    demo_write_png(d, "match_hog_cells", picture, d->width, d->width, d->height, 1);

    free(picture);
    free(out);
    free(buffer);
    free(spec);
    keliFree(rings);
}
