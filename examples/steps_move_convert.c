/* Type conversion. The rings scene widens to 32f and 16s and comes back to 8u through a
 * saturating 32s narrowing: the round trip is exact, so the written picture equals the scene.
 * A 16s image made of the rings shifted down by 128 then narrows to 8u, and everything below
 * zero saturates to black: only the bright half of each ring survives. The rings are then
 * stretched over [-1, 1] in 32f, halved and brought back to 8u with ties going away from zero,
 * which gives a dimmed copy; and they pass through one bit per pixel (brighter than 127 or not)
 * and back to gray as a two-tone picture. */
#include <stdio.h>
#include <stdlib.h>

#include "demo.h"

typedef struct {
    const Kel8u* src8;
    Kel32f* f32;
    Kel16s* s16;
    Kel8u* out;
    int srcStep, fStep, sStep, outStep;
    KeliSize size;
} ConvertArgs;

static void run_8u32f(void* p)
{
    ConvertArgs* a = (ConvertArgs*)p;
    keliConvert_8u32f_C1R(a->src8, a->srcStep, a->f32, a->fStep, a->size);
}

static void run_scale_8u32f(void* p)
{
    ConvertArgs* a = (ConvertArgs*)p;
    keliScale_8u32f_C1R(a->src8, a->srcStep, a->f32, a->fStep, a->size, -1.0f, 1.0f);
}

static void run_32f8u(void* p)
{
    ConvertArgs* a = (ConvertArgs*)p;
    keliConvert_32f8u_C1R(a->f32, a->fStep, a->out, a->outStep, a->size, kelRndFinancial);
}

static void run_16s8u(void* p)
{
    ConvertArgs* a = (ConvertArgs*)p;
    keliConvert_16s8u_C1R(a->s16, a->sStep, a->out, a->outStep, a->size);
}

void demo_move_convert(Demo* d)
{
    int stepRings, x, y, same = 1;
    KeliSize size = {d->width, d->height};
    Kel8u* rings = demo_scene(d, SCENE_RINGS, &stepRings);
    ConvertArgs a;
    Kel32s* s32 = NULL;
    int s32Step = 0;
    KelStatus s;
    a.f32 = keliMalloc_32f_C1(d->width, d->height, &a.fStep);
    a.s16 = keliMalloc_16s_C1(d->width, d->height, &a.sStep);
    a.out = keliMalloc_8u_C1(d->width, d->height, &a.outStep);
    s32 = keliMalloc_32s_C1(d->width, d->height, &s32Step);
    if (!rings || !a.f32 || !a.s16 || !a.out || !s32) {
        demo_report(d, "keliMalloc_32f_C1 / _16s / _8u / _32s", kelStatusNoMemory, -1);
        goto done;
    }
    a.src8 = rings;
    a.srcStep = stepRings;
    a.size = size;
    double pixels = (double)d->width * d->height;

    s = keliConvert_8u32f_C1R(rings, stepRings, a.f32, a.fStep, size);
    demo_report(d, "keliConvert_8u32f_C1R", s, demo_speed(run_8u32f, &a, pixels));
    s = keliConvert_8u32s_C1R(rings, stepRings, s32, s32Step, size);
    demo_report(d, "keliConvert_8u32s_C1R", s, -1);
    s = keliConvert_32s8u_C1R(s32, s32Step, a.out, a.outStep, size);
    demo_report(d, "keliConvert_32s8u_C1R", s, -1);
    for (y = 0; y < d->height; ++y)
        for (x = 0; x < d->width; ++x)
            if (a.out[y * a.outStep + x] != rings[y * stepRings + x] ||
                ((const Kel32f*)((const char*)a.f32 + y * a.fStep))[x] != rings[y * stepRings + x])
                same = 0;
    if (!same) {
        printf("  round trip through 32f and 32s changed the image\n");
        d->failures++;
    }
    demo_write_png(d, "convert_round_trip", a.out, a.outStep, d->width, d->height, 1);

    s = keliConvert_8u16s_C1R(rings, stepRings, a.s16, a.sStep, size);
    demo_report(d, "keliConvert_8u16s_C1R", s, -1);
    for (y = 0; y < d->height; ++y)
        for (x = 0; x < d->width; ++x) {
            Kel16s* row = (Kel16s*)((char*)a.s16 + y * a.sStep);
            row[x] = (Kel16s)(2 * (row[x] - 128));
        }
    s = keliConvert_16s8u_C1R(a.s16, a.sStep, a.out, a.outStep, size);
    demo_report(d, "keliConvert_16s8u_C1R", s, demo_speed(run_16s8u, &a, pixels));
    demo_write_png(d, "convert_saturated_rings", a.out, a.outStep, d->width, d->height, 1);

    s = keliScale_8u32f_C1R(rings, stepRings, a.f32, a.fStep, size, -1.0f, 1.0f);
    demo_report(d, "keliScale_8u32f_C1R", s, demo_speed(run_scale_8u32f, &a, pixels));
    s = keliScaleC_32f_C1IR(a.f32, a.fStep, 63.75, 64.0, size, kelAlgHintFast);
    demo_report(d, "keliScaleC_32f_C1IR", s, -1);
    s = keliConvert_32f8u_C1R(a.f32, a.fStep, a.out, a.outStep, size, kelRndFinancial);
    demo_report(d, "keliConvert_32f8u_C1R", s, demo_speed(run_32f8u, &a, pixels));
    demo_write_png(d, "convert_dimmed_rings", a.out, a.outStep, d->width, d->height, 1);

    /* One bit a pixel, packed into the 32s buffer's rows, and back to two gray levels. */
    s = keliGrayToBin_8u1u_C1R(rings, stepRings, (Kel8u*)s32, s32Step, 0, size, 127);
    demo_report(d, "keliGrayToBin_8u1u_C1R", s, -1);
    s = keliBinToGray_1u8u_C1R((const Kel8u*)s32, s32Step, 0, a.out, a.outStep, size, 40, 220);
    demo_report(d, "keliBinToGray_1u8u_C1R", s, -1);
    demo_write_png(d, "convert_two_tone_rings", a.out, a.outStep, d->width, d->height, 1);

done:
    keliFree(rings);
    keliFree(a.f32);
    keliFree(a.s16);
    keliFree(a.out);
    keliFree(s32);
}
