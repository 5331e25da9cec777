/* Sums, means and extrema. The rings scene is summed and averaged, in 8u and as 32f with the
 * fast and the accurate hint; its darkest and brightest first pixels are found and marked with
 * a cross; and the noisy checkerboard is reduced to a table of 16 x 16 block minima and maxima,
 * drawn back at full size. */
#include <stdio.h>

#include "demo.h"

typedef struct {
    const void* src;
    int srcStep;
    KeliSize size;
    Kel8u* tmin;
    Kel8u* tmax;
    int tableStep;
} SumsArgs;

static void run_sum(void* p)
{
    SumsArgs* a = (SumsArgs*)p;
    Kel64f sum;
    keliSum_8u_C1R((const Kel8u*)a->src, a->srcStep, a->size, &sum);
}

static void run_sum_32f(void* p)
{
    SumsArgs* a = (SumsArgs*)p;
    Kel64f sum;
    keliSum_32f_C1R((const Kel32f*)a->src, a->srcStep, a->size, &sum, kelAlgHintFast);
}

static void run_minmax(void* p)
{
    SumsArgs* a = (SumsArgs*)p;
    Kel8u lo, hi;
    keliMinMax_8u_C1R((const Kel8u*)a->src, a->srcStep, a->size, &lo, &hi);
}

static void run_max_index_32f(void* p)
{
    SumsArgs* a = (SumsArgs*)p;
    Kel32f hi;
    int x, y;
    keliMaxIndx_32f_C1R((const Kel32f*)a->src, a->srcStep, a->size, &hi, &x, &y);
}

static void run_blocks(void* p)
{
    SumsArgs* a = (SumsArgs*)p;
    KeliSize block = {16, 16};
    keliBlockMinMax_8u_C1R((const Kel8u*)a->src, a->srcStep, a->size, a->tmin, a->tableStep, a->tmax, a->tableStep,
                           block, NULL, NULL);
}

static void cross(Kel8u* img, int step, int width, int height, int cx, int cy, Kel8u value)
{
    int k;
    for (k = -6; k <= 6; ++k) {
        if (cx + k >= 0 && cx + k < width) img[(long)cy * step + cx + k] = value;
        if (cy + k >= 0 && cy + k < height) img[(long)(cy + k) * step + cx] = value;
    }
}

void demo_stats_sums(Demo* d)
{
    int stepRings, stepChecker, stepF, stepMark, stepView, x, y, minX, minY, maxX, maxY;
    KeliSize size = {d->width, d->height};
    const int nx = (d->width + 15) / 16, ny = (d->height + 15) / 16;
    Kel8u* rings = demo_scene(d, SCENE_RINGS, &stepRings);
    Kel8u* checker = demo_scene(d, SCENE_CHECKER, &stepChecker);
    Kel32f* ringsF = keliMalloc_32f_C1(d->width, d->height, &stepF);
    Kel8u* marked = keliMalloc_8u_C1(d->width, d->height, &stepMark);
    Kel8u* view = keliMalloc_8u_C1(2 * d->width, d->height, &stepView);
    Kel8u tmin[64 * 64], tmax[64 * 64];
    Kel64f sum, mean, fast, accurate;
    Kel8u lo, hi, gmin, gmax;
    Kel32f fhi;
    SumsArgs args;
    KelStatus s;
    if (!rings || !checker || !ringsF || !marked || !view || nx > 64 || ny > 64) {
        demo_report(d, "keliMalloc (sums step)", kelStatusNoMemory, -1);
        return;
    }
    for (y = 0; y < d->height; ++y)
        for (x = 0; x < d->width; ++x) {
            ringsF[(long)y * (stepF / 4) + x] = rings[(long)y * stepRings + x] / 255.0f;
            marked[(long)y * stepMark + x] = rings[(long)y * stepRings + x] / 2 + 64;
        }

    args.src = rings;
    args.srcStep = stepRings;
    args.size = size;
    s = keliSum_8u_C1R(rings, stepRings, size, &sum);
    demo_report(d, "keliSum_8u_C1R", s, demo_speed(run_sum, &args, (double)d->width * d->height));
    s = keliMean_8u_C1R(rings, stepRings, size, &mean);
    demo_report(d, "keliMean_8u_C1R", s, -1);
    s = keliMinMax_8u_C1R(rings, stepRings, size, &lo, &hi);
    demo_report(d, "keliMinMax_8u_C1R", s, demo_speed(run_minmax, &args, (double)d->width * d->height));
    s = keliMinIndx_8u_C1R(rings, stepRings, size, &lo, &minX, &minY);
    demo_report(d, "keliMinIndx_8u_C1R", s, -1);
    s = keliMaxIndx_8u_C1R(rings, stepRings, size, &hi, &maxX, &maxY);
    demo_report(d, "keliMaxIndx_8u_C1R", s, -1);
    printf("      rings: sum %.0f, mean %.3f, darkest %d first at (%d, %d), brightest %d first at (%d, %d)\n", sum,
           mean, lo, minX, minY, hi, maxX, maxY);
    cross(marked, stepMark, d->width, d->height, minX, minY, 255);
    cross(marked, stepMark, d->width, d->height, maxX, maxY, 0);
    demo_write_png(d, "stats_extrema_marked", marked, stepMark, d->width, d->height, 1);

    args.src = ringsF;
    args.srcStep = stepF;
    s = keliSum_32f_C1R(ringsF, stepF, size, &fast, kelAlgHintFast);
    demo_report(d, "keliSum_32f_C1R (fast)", s, demo_speed(run_sum_32f, &args, (double)d->width * d->height));
    s = keliSum_32f_C1R(ringsF, stepF, size, &accurate, kelAlgHintAccurate);
    demo_report(d, "keliSum_32f_C1R (accurate)", s, -1);
    s = keliMaxIndx_32f_C1R(ringsF, stepF, size, &fhi, &maxX, &maxY);
    demo_report(d, "keliMaxIndx_32f_C1R", s, demo_speed(run_max_index_32f, &args, (double)d->width * d->height));
    printf("      rings as 32f: fast sum %.9g, accurate sum %.9g, maximum %g first at (%d, %d)\n", fast, accurate, fhi,
           maxX, maxY);

    /* Block extrema of the checkerboard: minima on the left half of the picture, maxima on
     * the right, each block drawn at its full 16 x 16 size. */
    args.src = checker;
    args.srcStep = stepChecker;
    args.tmin = tmin;
    args.tmax = tmax;
    args.tableStep = 64;
    s = keliBlockMinMax_8u_C1R(checker, stepChecker, size, tmin, 64, tmax, 64, (KeliSize){16, 16}, &gmin, &gmax);
    demo_report(d, "keliBlockMinMax_8u_C1R", s, demo_speed(run_blocks, &args, (double)d->width * d->height));
    printf("      checker: %d x %d blocks, global minimum %d, maximum %d\n", nx, ny, gmin, gmax);
    for (y = 0; y < d->height; ++y)
        for (x = 0; x < d->width; ++x) {
            view[(long)y * stepView + x] = tmin[(y / 16) * 64 + x / 16];
            view[(long)y * stepView + d->width + x] = tmax[(y / 16) * 64 + x / 16];
        }
    demo_write_png(d, "stats_block_minmax", view, stepView, 2 * d->width, d->height, 1);

    keliFree(rings);
    keliFree(checker);
    keliFree(ringsF);
    keliFree(marked);
    keliFree(view);
}
