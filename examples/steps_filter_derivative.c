/* Derivative masks: the rings' edges by the Sobel gradient (5x5, L2 magnitude), their
 * direction as a grey level where the edge is strong, and the Scharr vertical derivative
 * centred on grey (dark where the image brightens to the left, light where to the right). */
#include <stdlib.h>

#include "demo.h"

typedef struct {
    const Kel8u* src;
    int srcStep;
    Kel16s* mag;
    int magStep;
    Kel32f* angle;
    int angleStep;
    KeliSize roi;
    Kel8u* buffer;
} GradientArgs;

static void run_gradient(void* p)
{
    GradientArgs* a = (GradientArgs*)p;
    keliGradientVectorSobel_8u16s_C1R(a->src, a->srcStep, NULL, 0, NULL, 0, a->mag, a->magStep, a->angle, a->angleStep,
                                      a->roi, kelMaskSize5x5, kelNormL2, kelBorderMirror, 0, a->buffer);
}

static Kel8u clamp8(double v) { return (Kel8u)(v < 0 ? 0 : v > 255 ? 255 : v + 0.5); }

void demo_filter_derivative(Demo* d)
{
    int stepRings, stepMag, stepAngle, stepScharr, stepOut, gradientSize = 0, scharrSize = 0, x, y;
    const KeliSize roi = {d->width, d->height};
    Kel8u* rings = demo_scene(d, SCENE_RINGS, &stepRings);
    Kel16s* mag = keliMalloc_16s_C1(d->width, d->height, &stepMag);
    Kel32f* angle = keliMalloc_32f_C1(d->width, d->height, &stepAngle);
    Kel16s* scharr = keliMalloc_16s_C1(d->width, d->height, &stepScharr);
    Kel8u* out = keliMalloc_8u_C1(d->width, d->height, &stepOut);
    Kel8u* buffer;
    GradientArgs args;
    KelStatus st;

    keliGradientVectorGetBufferSize(roi, kelMaskSize5x5, kel8u, 1, &gradientSize);
    keliFilterScharrVertMaskBorderGetBufferSize(roi, kelMaskSize3x3, kel8u, kel16s, 1, &scharrSize);
    buffer = (Kel8u*)malloc((size_t)(gradientSize > scharrSize ? gradientSize : scharrSize));
    args.src = rings, args.srcStep = stepRings, args.mag = mag, args.magStep = stepMag;
    args.angle = angle, args.angleStep = stepAngle, args.roi = roi, args.buffer = buffer;
    st = keliGradientVectorSobel_8u16s_C1R(rings, stepRings, NULL, 0, NULL, 0, mag, stepMag, angle, stepAngle, roi,
                                           kelMaskSize5x5, kelNormL2, kelBorderMirror, 0, buffer);
    demo_report(d, "keliGradientVectorSobel_8u16s_C1R 5x5", st,
                demo_speed(run_gradient, &args, (double)roi.width * roi.height));

    /* A sixteenth of the magnitude, saturated, makes a byte. */
    for (y = 0; y < d->height; ++y)
        for (x = 0; x < d->width; ++x)
            out[y * stepOut + x] = clamp8(mag[y * (stepMag / 2) + x] / 16.0);
    demo_write_png(d, "filter_derivative_sobel_magnitude", out, stepOut, d->width, d->height, 1);

    /* Direction from -pi to pi as 0 to 255, black where the edge is faint. */
    for (y = 0; y < d->height; ++y)
        for (x = 0; x < d->width; ++x) {
            const int strong = mag[y * (stepMag / 2) + x] > 256;
            const double a = angle[y * (stepAngle / 4) + x];
            out[y * stepOut + x] = strong ? clamp8((a + 3.14159265358979) * (255.0 / 6.28318530717959)) : 0;
        }
    demo_write_png(d, "filter_derivative_angle", out, stepOut, d->width, d->height, 1);

    st = keliFilterScharrVertMaskBorder_8u16s_C1R(rings, stepRings, scharr, stepScharr, roi, kelMaskSize3x3,
                                                  kelBorderRepl, 0, buffer);
    demo_report(d, "keliFilterScharrVertMaskBorder_8u16s_C1R", st, -1);
    for (y = 0; y < d->height; ++y)
        for (x = 0; x < d->width; ++x) out[y * stepOut + x] = clamp8(128 + scharr[y * (stepScharr / 2) + x] / 32.0);
    demo_write_png(d, "filter_derivative_scharr_vertical", out, stepOut, d->width, d->height, 1);

    free(buffer);
    keliFree(rings);
    keliFree(mag);
    keliFree(angle);
    keliFree(scharr);
    keliFree(out);
}
