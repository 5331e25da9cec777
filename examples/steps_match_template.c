/* Template matching: a 48x48 patch cut from the rings scene searched over the whole scene by
 * the centred normalised correlation; the score map (-1 black, +1 white) peaks where the patch
 * came from and wherever the rings repeat it. */
#include <stdlib.h>

#include "demo.h"

typedef struct {
    const Kel8u* src;
    int srcStep;
    KeliSize roi, tplRoi;
    const Kel8u* tpl;
    Kel32f* scores;
    int scoreStep;
    Kel8u* buffer;
} MatchArgs;

enum { kSame = 0x20000, kCentred = 0x200 };

static void run_match(void* p)
{
    MatchArgs* a = (MatchArgs*)p;
    keliCrossCorrNorm_8u32f_C1R(a->src, a->srcStep, a->roi, a->tpl, a->srcStep, a->tplRoi, a->scores, a->scoreStep,
                                kCentred | kSame, a->buffer);
}

void demo_match_template(Demo* d)
{
    int stepRings, stepScores, stepPicture, size = 0, x, y;
    const KeliSize roi = {d->width, d->height}, tplRoi = {48, 48};
    Kel8u* rings = demo_scene(d, SCENE_RINGS, &stepRings);
    Kel32f* scores = keliMalloc_32f_C1(d->width, d->height, &stepScores);
    Kel8u* picture = keliMalloc_8u_C1(d->width, d->height, &stepPicture);
    const Kel8u* patch = rings + (d->height / 3) * stepRings + d->width / 5;
    Kel8u* buffer;
    MatchArgs args;
    KelStatus st;

    keliCrossCorrNormGetBufferSize(roi, tplRoi, kCentred | kSame, &size);
    buffer = (Kel8u*)malloc((size_t)size);
    args.src = rings, args.srcStep = stepRings, args.roi = roi, args.tplRoi = tplRoi, args.tpl = patch;
    args.scores = scores, args.scoreStep = stepScores, args.buffer = buffer;
    st = keliCrossCorrNorm_8u32f_C1R(rings, stepRings, roi, patch, stepRings, tplRoi, scores, stepScores,
                                     kCentred | kSame, buffer);
    demo_report(d, "keliCrossCorrNorm_8u32f_C1R", st, demo_speed(run_match, &args, (double)roi.width * roi.height));
    for (y = 0; y < d->height; ++y) {
        const Kel32f* row = (const Kel32f*)((const Kel8u*)scores + (size_t)y * stepScores);
        for (x = 0; x < d->width; ++x) {
            const float v = 127.5f + 127.5f * row[x];
            picture[y * stepPicture + x] = (Kel8u)(v < 0 ? 0 : v > 255 ? 255 : v);
        }
    }
    demo_write_png(d, "match_template_scores", picture, stepPicture, d->width, d->height, 1);

    free(buffer);
    keliFree(rings);
    keliFree(scores);
    keliFree(picture);
}
