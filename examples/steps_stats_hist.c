/* Histograms, lookup tables and palettes. The rings scene is counted into 256 bins and the
 * counts drawn as a bar chart; a tone curve with a cubic per colour channel turns the grey
 * ramp into a warm gradient; a 24-bit palette paints the rings as a heat map. */
#include <stdlib.h>
#include <string.h>

#include "demo.h"

typedef struct {
    const Kel8u* src;
    int srcStep;
    KeliSize size;
    Kel32u* hist;
    const Kel8u* spec;
    Kel8u* buffer;
} HistArgs;

static void run_hist(void* p)
{
    HistArgs* a = (HistArgs*)p;
    keliHistogram_8u_C1R(a->src, a->srcStep, a->size, a->hist, a->spec, a->buffer);
}

typedef struct {
    const Kel8u* src;
    Kel8u* dst;
    int srcStep, dstStep;
    KeliSize size;
    const Kel8u* spec;
    const Kel8u* table;
} LookArgs;

static void run_lut(void* p)
{
    LookArgs* a = (LookArgs*)p;
    keliLUT_8u_C3R(a->src, a->srcStep, a->dst, a->dstStep, a->size, a->spec);
}

static void run_palette(void* p)
{
    LookArgs* a = (LookArgs*)p;
    keliLUTPalette_8u24u_C1R(a->src, a->srcStep, a->dst, a->dstStep, a->size, a->table, 8);
}

/* The histogram as white bars on black, tallest bar at the top of the chart. */
static void draw_histogram(Demo* d, const Kel32u* hist)
{
    enum { W = 512, H = 200 };
    Kel8u* chart = (Kel8u*)calloc(W * H, 1);
    Kel32u peak = 1;
    int x, y;
    if (!chart) return;
    for (x = 0; x < 256; ++x)
        if (hist[x] > peak) peak = hist[x];
    for (x = 0; x < W; ++x) {
        int bar = (int)((double)hist[x / 2] * (H - 1) / peak);
        for (y = H - 1; y >= H - 1 - bar; --y) chart[y * W + x] = 255;
    }
    demo_write_png(d, "stats_hist_rings_histogram", chart, W, W, H, 1);
    free(chart);
}

static void histogram_step(Demo* d, const Kel8u* rings, int step)
{
    KeliSize size = {d->width, d->height};
    int levels = 257, specSize = 0, bufferSize = 0;
    Kel32f lower = 0.0f, upper = 256.0f;
    Kel32u hist[256];
    Kel8u *spec, *buffer;
    HistArgs args;
    KelStatus s = keliHistogramGetBufferSize(kel8u, size, &levels, 1, 1, &specSize, &bufferSize);
    demo_report(d, "keliHistogramGetBufferSize", s, -1);
    spec = (Kel8u*)malloc((size_t)specSize);
    buffer = (Kel8u*)malloc((size_t)bufferSize);
    if (s < 0 || !spec || !buffer) {
        free(spec);
        free(buffer);
        return;
    }
    s = keliHistogramUniformInit(kel8u, &lower, &upper, &levels, 1, spec);
    demo_report(d, "keliHistogramUniformInit", s, -1);
    s = keliHistogram_8u_C1R(rings, step, size, hist, spec, buffer);
    args.src = rings;
    args.srcStep = step;
    args.size = size;
    args.hist = hist;
    args.spec = spec;
    args.buffer = buffer;
    demo_report(d, "keliHistogram_8u_C1R", s, s < 0 ? -1 : demo_speed(run_hist, &args, (double)d->width * d->height));
    if (s >= 0) draw_histogram(d, hist);
    free(spec);
    free(buffer);
}

static void lut_step(Demo* d, const Kel8u* ramp, int step)
{
    /* Red rises early, green follows, blue stays low: a warm cubic curve per channel. */
    static const Kel32s levels[5] = {0, 64, 128, 192, 256};
    static const Kel32s red[5] = {0, 150, 220, 250, 255};
    static const Kel32s green[5] = {0, 40, 120, 210, 255};
    static const Kel32s blue[5] = {0, 10, 40, 100, 200};
    const Kel32s* values[3] = {red, green, blue};
    const Kel32s* lv[3] = {levels, levels, levels};
    int n[3] = {5, 5, 5}, specSize = 0, colourStep = 0, outStep = 0, x, y;
    KeliSize size = {d->width, d->height};
    Kel8u* grey3 = keliMalloc_8u_C3(d->width, d->height, &colourStep);
    Kel8u* warm = keliMalloc_8u_C3(d->width, d->height, &outStep);
    Kel8u* spec = NULL;
    LookArgs args;
    KelStatus s = keliLUT_GetSize(kelCubic, kel8u, 3, size, n, &specSize);
    demo_report(d, "keliLUT_GetSize", s, -1);
    if (s >= 0) spec = (Kel8u*)malloc((size_t)specSize);
    if (!grey3 || !warm || !spec) goto done;
    for (y = 0; y < d->height; ++y)
        for (x = 0; x < d->width; ++x)
            memset(grey3 + (long)y * colourStep + 3 * x, ramp[(long)y * step + x], 3);
    s = keliLUT_Init_8u(kelCubic, 3, size, values, lv, n, spec);
    demo_report(d, "keliLUT_Init_8u", s, -1);
    if (s < 0) goto done;
    s = keliLUT_8u_C3R(grey3, colourStep, warm, outStep, size, spec);
    args.src = grey3;
    args.srcStep = colourStep;
    args.dst = warm;
    args.dstStep = outStep;
    args.size = size;
    args.spec = spec;
    demo_report(d, "keliLUT_8u_C3R", s, s < 0 ? -1 : demo_speed(run_lut, &args, (double)d->width * d->height));
    if (s >= 0) demo_write_png(d, "stats_hist_ramp_warm_curve", warm, outStep, d->width, d->height, 3);
done:
    keliFree(grey3);
    keliFree(warm);
    free(spec);
}

static void palette_step(Demo* d, const Kel8u* rings, int step)
{
    Kel8u heat[3 * 256];
    int outStep = 0, i;
    KeliSize size = {d->width, d->height};
    Kel8u* out = keliMalloc_8u_C3(d->width, d->height, &outStep);
    LookArgs args;
    KelStatus s;
    if (!out) return;
    /* Black through red and yellow to white. */
    for (i = 0; i < 256; ++i) {
        heat[3 * i + 0] = (Kel8u)(i < 96 ? i * 255 / 96 : 255);
        heat[3 * i + 1] = (Kel8u)(i < 96 ? 0 : i < 192 ? (i - 96) * 255 / 96 : 255);
        heat[3 * i + 2] = (Kel8u)(i < 192 ? 0 : (i - 192) * 255 / 63);
    }
    s = keliLUTPalette_8u24u_C1R(rings, step, out, outStep, size, heat, 8);
    args.src = rings;
    args.srcStep = step;
    args.dst = out;
    args.dstStep = outStep;
    args.size = size;
    args.table = heat;
    demo_report(d, "keliLUTPalette_8u24u_C1R", s, s < 0 ? -1 : demo_speed(run_palette, &args, (double)d->width * d->height));
    if (s >= 0) demo_write_png(d, "stats_hist_rings_heat_palette", out, outStep, d->width, d->height, 3);
    keliFree(out);
}

void demo_stats_hist(Demo* d)
{
    int ringsStep = 0, rampStep = 0;
    Kel8u* rings = demo_scene(d, SCENE_RINGS, &ringsStep);
    Kel8u* ramp = demo_scene(d, SCENE_RAMP, &rampStep);
    if (rings && ramp) {
        histogram_step(d, rings, ringsStep);
        lut_step(d, ramp, rampStep);
        palette_step(d, rings, ringsStep);
    }
    keliFree(rings);
    keliFree(ramp);
}
