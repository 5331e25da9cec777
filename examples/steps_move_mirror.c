/* Mirror, transpose, test images and noise. Rings of rising frequency are drawn, grainy with
 * Gaussian noise on one side; a ramp is laid over them in a second channel; the picture is
 * flipped about both axes and turned on its diagonal. */
#include "demo.h"

typedef struct {
    const Kel8u* src;
    int srcStep;
    Kel8u* dst;
    int dstStep;
    KeliSize size;
} MirrorArgs;

static void run_flip(void* p)
{
    MirrorArgs* a = (MirrorArgs*)p;
    keliMirror_8u_C1R(a->src, a->srcStep, a->dst, a->dstStep, a->size, kelAxisBoth);
}

static void run_transpose(void* p)
{
    MirrorArgs* a = (MirrorArgs*)p;
    keliTranspose_8u_C1R(a->src, a->srcStep, a->dst, a->dstStep, a->size);
}

void demo_move_mirror(Demo* d)
{
    int stepRings, stepRamp, stepOut, stepTurned, stepRgba, stepRgb;
    KeliSize size = {d->width, d->height}, left = {d->width / 2, d->height};
    Kel8u* rings = keliMalloc_8u_C1(d->width, d->height, &stepRings);
    Kel8u* ramp = keliMalloc_8u_C1(d->width, d->height, &stepRamp);
    Kel8u* out = keliMalloc_8u_C1(d->width, d->height, &stepOut);
    Kel8u* turned = keliMalloc_8u_C1(d->height, d->width, &stepTurned);
    Kel8u* rgba = keliMalloc_8u_C4(d->width, d->height, &stepRgba);
    Kel32u seed = 2026;
    MirrorArgs args;
    KelStatus s;
    const double pixels = (double)d->width * d->height;
    if (!rings || !ramp || !out || !turned || !rgba) {
        demo_report(d, "keliMalloc for the mirror step", kelStatusNoMemory, -1);
        goto done;
    }

    s = keliImageJaehne_8u_C1R(rings, stepRings, size);
    demo_report(d, "keliImageJaehne_8u_C1R", s, -1);
    if (s == kelStatusOk && left.width > 0) s = keliAddRandGauss_8u_C1IR(rings, stepRings, left, 0, 24, &seed);
    demo_report(d, "keliAddRandGauss_8u_C1IR", s, -1);
    if (s == kelStatusOk) demo_write_png(d, "jaehne_noise", rings, stepRings, d->width, d->height, 1);

    s = keliImageRamp_8u_C1R(ramp, stepRamp, size, 0.0f, 255.0f / (float)(d->width > 1 ? d->width - 1 : 1),
                             kelAxisHorizontal);
    demo_report(d, "keliImageRamp_8u_C1R", s, -1);
    if (s == kelStatusOk) s = keliAddRandUniform_8u_C1IR(ramp, stepRamp, size, 0, 16, &seed);
    demo_report(d, "keliAddRandUniform_8u_C1IR", s, -1);

    args.src = rings, args.srcStep = stepRings, args.dst = out, args.dstStep = stepOut, args.size = size;
    s = keliMirror_8u_C1R(rings, stepRings, out, stepOut, size, kelAxisBoth);
    demo_report(d, "keliMirror_8u_C1R", s, s == kelStatusOk ? demo_speed(run_flip, &args, pixels) : -1);
    if (s == kelStatusOk) demo_write_png(d, "mirror_both", out, stepOut, d->width, d->height, 1);

    args.dst = turned, args.dstStep = stepTurned;
    s = keliTranspose_8u_C1R(rings, stepRings, turned, stepTurned, size);
    demo_report(d, "keliTranspose_8u_C1R", s, s == kelStatusOk ? demo_speed(run_transpose, &args, pixels) : -1);
    if (s == kelStatusOk) demo_write_png(d, "transpose", turned, stepTurned, d->height, d->width, 1);

    /* Rings in red, the noisy ramp in green, the flipped rings in blue, opaque; then the colour
     * mirrored about the vertical axis in place, the alpha staying where it was. */
    {
        const Kel8u* planes[3] = {rings, ramp, out};
        Kel8u* rgb = keliMalloc_8u_C3(d->width, d->height, &stepRgb);
        if (rgb) {
            keliCopy_8u_P3C3R(planes, stepRings, rgb, stepRgb, size);
            keliSet_8u_C1R(255, rgba, stepRgba, (KeliSize){4 * d->width, d->height});
            keliCopy_8u_C3AC4R(rgb, stepRgb, rgba, stepRgba, size);
            s = keliMirror_8u_AC4IR(rgba, stepRgba, size, kelAxisVertical);
            demo_report(d, "keliMirror_8u_AC4IR", s, -1);
            if (s == kelStatusOk) demo_write_png(d, "mirror_colour", rgba, stepRgba, d->width, d->height, 4);
            keliFree(rgb);
        }
    }

done:
    keliFree(rings);
    keliFree(ramp);
    keliFree(out);
    keliFree(turned);
    keliFree(rgba);
}
