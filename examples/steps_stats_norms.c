/* Norms. The rings scene is compared with the ramp and with itself: the norms of the rings, the
 * norms of the difference and the relative norms, in 8u and as 32f with the fast and accurate
 * hints; a relative norm against a black image shows the warning of a zero divisor. The picture
 * is the absolute difference of the two scenes, whose sum and maximum the L1 and Inf norms of
 * the difference report. */
#include <stdio.h>

#include "demo.h"

typedef struct {
    const Kel8u* a;
    const Kel8u* b;
    int stepA, stepB;
    KeliSize size;
} NormsArgs;

static void run_norm_l2(void* p)
{
    NormsArgs* n = (NormsArgs*)p;
    Kel64f v;
    keliNorm_L2_8u_C1R(n->a, n->stepA, n->size, &v);
}

static void run_diff_l1(void* p)
{
    NormsArgs* n = (NormsArgs*)p;
    Kel64f v;
    keliNormDiff_L1_8u_C1R(n->a, n->stepA, n->b, n->stepB, n->size, &v);
}

void demo_stats_norms(Demo* d)
{
    int stepRings, stepRamp, stepBlack, stepDiff, stepF, stepG, x, y;
    KeliSize size = {d->width, d->height};
    Kel8u* rings = demo_scene(d, SCENE_RINGS, &stepRings);
    Kel8u* ramp = demo_scene(d, SCENE_RAMP, &stepRamp);
    Kel8u* black = keliMalloc_8u_C1(d->width, d->height, &stepBlack);
    Kel8u* diff = keliMalloc_8u_C1(d->width, d->height, &stepDiff);
    Kel32f* ringsF = keliMalloc_32f_C1(d->width, d->height, &stepF);
    Kel32f* rampF = keliMalloc_32f_C1(d->width, d->height, &stepG);
    Kel64f inf, l1, l2, dInf, dL1, dL2, rel, self, fast, accurate;
    NormsArgs args;
    KelStatus s;
    if (!rings || !ramp || !black || !diff || !ringsF || !rampF) {
        demo_report(d, "keliMalloc (norms step)", kelStatusNoMemory, -1);
        return;
    }
    for (y = 0; y < d->height; ++y)
        for (x = 0; x < d->width; ++x) {
            const int a = rings[(long)y * stepRings + x], b = ramp[(long)y * stepRamp + x];
            black[(long)y * stepBlack + x] = 0;
            diff[(long)y * stepDiff + x] = (Kel8u)(a > b ? a - b : b - a);
            ringsF[(long)y * (stepF / 4) + x] = a / 255.0f;
            rampF[(long)y * (stepG / 4) + x] = b / 255.0f;
        }
    args.a = rings;
    args.b = ramp;
    args.stepA = stepRings;
    args.stepB = stepRamp;
    args.size = size;

    s = keliNorm_Inf_8u_C1R(rings, stepRings, size, &inf);
    demo_report(d, "keliNorm_Inf_8u_C1R", s, -1);
    s = keliNorm_L1_8u_C1R(rings, stepRings, size, &l1);
    demo_report(d, "keliNorm_L1_8u_C1R", s, -1);
    s = keliNorm_L2_8u_C1R(rings, stepRings, size, &l2);
    demo_report(d, "keliNorm_L2_8u_C1R", s, demo_speed(run_norm_l2, &args, (double)d->width * d->height));
    printf("      rings: largest %.0f, sum %.0f, root of the sum of squares %.3f\n", inf, l1, l2);

    s = keliNormDiff_Inf_8u_C1R(rings, stepRings, ramp, stepRamp, size, &dInf);
    demo_report(d, "keliNormDiff_Inf_8u_C1R", s, -1);
    s = keliNormDiff_L1_8u_C1R(rings, stepRings, ramp, stepRamp, size, &dL1);
    demo_report(d, "keliNormDiff_L1_8u_C1R", s, demo_speed(run_diff_l1, &args, (double)d->width * d->height));
    s = keliNormDiff_L2_8u_C1R(rings, stepRings, ramp, stepRamp, size, &dL2);
    demo_report(d, "keliNormDiff_L2_8u_C1R", s, -1);
    s = keliNormRel_L2_8u_C1R(rings, stepRings, ramp, stepRamp, size, &rel);
    demo_report(d, "keliNormRel_L2_8u_C1R", s, -1);
    printf("      rings - ramp: largest %.0f, mean absolute difference %.3f, L2 %.3f, relative L2 %.6f\n", dInf,
           dL1 / ((double)d->width * d->height), dL2, rel);
    s = keliNormRel_L1_8u_C1R(rings, stepRings, black, stepBlack, size, &self);
    demo_report(d, "keliNormRel_L1_8u_C1R (black divisor)", s, -1);
    printf("      relative to a black image: %g with status %d (a warning)\n", self, (int)s);

    s = keliNormDiff_L2_32f_C1R(ringsF, stepF, rampF, stepG, size, &fast, kelAlgHintFast);
    demo_report(d, "keliNormDiff_L2_32f_C1R (fast)", s, -1);
    s = keliNormDiff_L2_32f_C1R(ringsF, stepF, rampF, stepG, size, &accurate, kelAlgHintAccurate);
    demo_report(d, "keliNormDiff_L2_32f_C1R (accurate)", s, -1);
    printf("      as 32f: fast %.9g, accurate %.9g, 8u result scaled %.9g\n", fast, accurate, dL2 / 255.0);

    demo_write_png(d, "stats_norms_difference", diff, stepDiff, d->width, d->height, 1);
    keliFree(rings);
    keliFree(ramp);
    keliFree(black);
    keliFree(diff);
    keliFree(ringsF);
    keliFree(rampF);
}

/* SAD. A 16x16 patch cut from the rings scene is slid over the whole scene: the sums of absolute
 * differences form a map whose zero marks where the patch came from. The picture is that map,
 * brightest where the match is best: the patch's own ring and the rings of like brightness light
 * up, the place it came from most of all. */
typedef struct {
    const Kel8u* src;
    const Kel8u* tpl;
    Kel32s* dst;
    int srcStep, tplStep, dstStep;
    KeliSize srcSize, tplSize;
} SadArgs;

static void run_sad(void* p)
{
    SadArgs* a = (SadArgs*)p;
    keliSAD_8u32s_C1RSfs(a->src, a->srcStep, a->srcSize, a->tpl, a->tplStep, a->tplSize, a->dst, a->dstStep, 0x10000, 0,
                         NULL);
}

void demo_stats_sad(Demo* d)
{
    int stepRings, stepMap, stepPic, bufferSize = -1, x, y, bestX = 0, bestY = 0;
    const int px = d->width / 3, py = d->height / 4;
    Kel8u* rings = demo_scene(d, SCENE_RINGS, &stepRings);
    KeliSize size = {d->width, d->height}, tplSize = {16, 16};
    KeliSize mapSize = {d->width - 15, d->height - 15};
    Kel32s* map = keliMalloc_32s_C1(mapSize.width, mapSize.height, &stepMap);
    Kel8u* pic = keliMalloc_8u_C1(mapSize.width, mapSize.height, &stepPic);
    Kel32s best, worst;
    SadArgs args;
    KelStatus s;
    if (!rings || !map || !pic) {
        demo_report(d, "keliMalloc (SAD step)", kelStatusNoMemory, -1);
        return;
    }
    s = keliSADGetBufferSize(size, tplSize, kel8u, 1, 0x10000, &bufferSize);
    demo_report(d, "keliSADGetBufferSize", s, -1);
    args.src = rings;
    args.srcStep = stepRings;
    args.srcSize = size;
    args.tpl = rings + (long)py * stepRings + px;
    args.tplStep = stepRings;
    args.tplSize = tplSize;
    args.dst = map;
    args.dstStep = stepMap;
    s = keliSAD_8u32s_C1RSfs(args.src, args.srcStep, size, args.tpl, args.tplStep, tplSize, map, stepMap, 0x10000, 0,
                             NULL);
    demo_report(d, "keliSAD_8u32s_C1RSfs", s, demo_speed(run_sad, &args, (double)mapSize.width * mapSize.height));
    best = worst = map[0];
    for (y = 0; y < mapSize.height; ++y)
        for (x = 0; x < mapSize.width; ++x) {
            const Kel32s v = map[(long)y * (stepMap / 4) + x];
            if (v < best) {
                best = v;
                bestX = x;
                bestY = y;
            }
            if (v > worst) worst = v;
        }
    printf("      patch from (%d, %d): best match %d at (%d, %d), worst %d, scratch %d bytes\n", px, py, (int)best,
           bestX, bestY, (int)worst, bufferSize);
    for (y = 0; y < mapSize.height; ++y)
        for (x = 0; x < mapSize.width; ++x) {
            const double v = map[(long)y * (stepMap / 4) + x];
            pic[(long)y * stepPic + x] = (Kel8u)(255.0 - 255.0 * (v - best) / (worst > best ? worst - best : 1));
        }
    demo_write_png(d, "stats_sad_map", pic, stepPic, mapSize.width, mapSize.height, 1);
    keliFree(rings);
    keliFree(map);
    keliFree(pic);
}

/* Products and quality. The rings scene is multiplied with the ramp as bytes and as floats, and
 * compared with a copy of itself washed out by the ramp (three parts rings, one part ramp) by the
 * quality index, over the whole image and block by block. The picture is the map of the blocks'
 * indices: bright where the washed copy keeps the rings' structure, dark where the ramp takes
 * over or a block is flat. */
typedef struct {
    const Kel32f* a;
    const Kel32f* b;
    int stepA, stepB;
    KeliSize size;
} DotArgs;

static void run_dot_32f(void* p)
{
    DotArgs* a = (DotArgs*)p;
    Kel64f v;
    keliDotProd_32f64f_C1R(a->a, a->stepA, a->b, a->stepB, a->size, &v);
}

void demo_stats_products(Demo* d)
{
    int stepRings, stepRamp, stepWash, stepF, stepG, stepMap, bufferSize = -1, x, y;
    const int bw = 16, bh = 16, mw = d->width / 16, mh = d->height / 16;
    KeliSize size = {d->width, d->height}, block = {16, 16};
    Kel8u* rings = demo_scene(d, SCENE_RINGS, &stepRings);
    Kel8u* ramp = demo_scene(d, SCENE_RAMP, &stepRamp);
    Kel8u* wash = keliMalloc_8u_C1(d->width, d->height, &stepWash);
    Kel32f* ringsF = keliMalloc_32f_C1(d->width, d->height, &stepF);
    Kel32f* rampF = keliMalloc_32f_C1(d->width, d->height, &stepG);
    Kel8u* map = keliMalloc_8u_C1(mw > 0 ? mw : 1, mh > 0 ? mh : 1, &stepMap);
    Kel8u* buffer;
    Kel64f dot8, dot32;
    Kel32f self, washed, vsRamp;
    DotArgs args;
    KelStatus s;
    if (!rings || !ramp || !wash || !ringsF || !rampF || !map) {
        demo_report(d, "keliMalloc (products step)", kelStatusNoMemory, -1);
        return;
    }
    for (y = 0; y < d->height; ++y)
        for (x = 0; x < d->width; ++x) {
            const int a = rings[(long)y * stepRings + x], b = ramp[(long)y * stepRamp + x];
            wash[(long)y * stepWash + x] = (Kel8u)((3 * a + b + 2) / 4);
            ringsF[(long)y * (stepF / 4) + x] = a / 255.0f;
            rampF[(long)y * (stepG / 4) + x] = b / 255.0f;
        }

    s = keliDotProd_8u64f_C1R(rings, stepRings, ramp, stepRamp, size, &dot8);
    demo_report(d, "keliDotProd_8u64f_C1R", s, -1);
    args.a = ringsF;
    args.b = rampF;
    args.stepA = stepF;
    args.stepB = stepG;
    args.size = size;
    s = keliDotProd_32f64f_C1R(ringsF, stepF, rampF, stepG, size, &dot32);
    demo_report(d, "keliDotProd_32f64f_C1R", s, demo_speed(run_dot_32f, &args, (double)d->width * d->height));
    printf("      rings . ramp: %.0f as bytes, %.6f as floats in [0, 1] (bytes / 255^2: %.6f)\n", dot8, dot32,
           dot8 / (255.0 * 255.0));

    s = keliQualityIndexGetBufferSize(kel8u, 1, size, &bufferSize);
    demo_report(d, "keliQualityIndexGetBufferSize", s, -1);
    buffer = (Kel8u*)keliMalloc_8u_C1(bufferSize > 0 ? bufferSize : 1, 1, &x);
    if (!buffer) {
        demo_report(d, "keliMalloc (quality scratch)", kelStatusNoMemory, -1);
        return;
    }
    s = keliQualityIndex_8u32f_C1R(rings, stepRings, rings, stepRings, size, &self, buffer);
    demo_report(d, "keliQualityIndex_8u32f_C1R (itself)", s, -1);
    s = keliQualityIndex_8u32f_C1R(rings, stepRings, wash, stepWash, size, &washed, buffer);
    demo_report(d, "keliQualityIndex_8u32f_C1R (washed)", s, -1);
    s = keliQualityIndex_8u32f_C1R(rings, stepRings, ramp, stepRamp, size, &vsRamp, buffer);
    demo_report(d, "keliQualityIndex_8u32f_C1R (ramp)", s, -1);
    printf("      quality of the rings against themselves %.6f, the washed copy %.6f, the ramp %.6f\n", self, washed,
           vsRamp);

    /* Block by block; a flat block has no index and shows black. */
    for (y = 0; y < mh; ++y)
        for (x = 0; x < mw; ++x) {
            Kel32f q;
            const Kel8u* a = rings + (long)y * bh * stepRings + x * bw;
            const Kel8u* b = wash + (long)y * bh * stepWash + x * bw;
            s = keliQualityIndex_8u32f_C1R(a, stepRings, b, stepWash, block, &q, buffer);
            map[(long)y * stepMap + x] = (Kel8u)(s == kelStatusOk && q > 0 ? (q < 1 ? q * 255.0f + 0.5f : 255) : 0);
        }
    if (mw > 0 && mh > 0) demo_write_png(d, "stats_quality_blocks", map, stepMap, mw, mh, 1);
    keliFree(rings);
    keliFree(ramp);
    keliFree(wash);
    keliFree(ringsF);
    keliFree(rampF);
    keliFree(map);
    keliFree(buffer);
}
