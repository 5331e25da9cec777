/* Shared pieces of the demonstration: the synthetic images, PNG output, timing and the
 * table of what ran. Each family's step lives in a steps_<subsystem>.c file. */
#ifndef KELI_DEMO_H
#define KELI_DEMO_H

#include <keli.h>

typedef struct {
    const char* outDir;
    int width, height; /* size of the synthetic images */
    int failures;
} Demo;

/* Synthetic 8u test scenes, width x height, one channel: a diagonal ramp, concentric rings,
 * and a checkerboard with soft noise. The caller frees them with keliFree. */
Kel8u* demo_scene(const Demo* d, int kind, int* step);
enum { SCENE_RAMP, SCENE_RINGS, SCENE_CHECKER };

/* Writes an 8u image with 1, 3 or 4 channels as <outDir>/<name>.png. */
void demo_write_png(const Demo* d, const char* name, const Kel8u* pixels, int step, int width, int height,
                    int channels);

/* Seconds of a monotonic clock. */
double demo_now(void);

/* One line of the table: function, status and megapixels a second (negative: not timed). */
void demo_report(Demo* d, const char* function, KelStatus status, double megapixelsPerSecond);

/* Runs fn(arg) repeatedly for about a tenth of a second; megapixels a second for `pixels`. */
double demo_speed(void (*fn)(void*), void* arg, double pixels);

/* The steps, one per subsystem that exists. */
void demo_frame(Demo* d);
void demo_arith_add_sub(Demo* d);
void demo_arith_mul_div(Demo* d);
void demo_arith_elementary(Demo* d);
void demo_arith_alpha(Demo* d);
void demo_move_copy(Demo* d);
void demo_move_border(Demo* d);
void demo_move_convert(Demo* d);
void demo_move_mirror(Demo* d);
void demo_threshold(Demo* d);
void demo_threshold_compare(Demo* d);
void demo_threshold_adaptive(Demo* d);
void demo_stats_sums(Demo* d);
void demo_stats_hist(Demo* d);
void demo_stats_norms(Demo* d);
void demo_stats_products(Demo* d);
void demo_stats_sad(Demo* d);
void demo_geometry_remap(Demo* d);
void demo_geometry_resize(Demo* d);
void demo_geometry_warp(Demo* d);
void demo_filter_box(Demo* d);
void demo_filter_general(Demo* d);
void demo_frequency_fft(Demo* d);
void demo_filter_min_max(Demo* d);
void demo_match_template(Demo* d);
void demo_match_hog(Demo* d);
void demo_filter_sharpen(Demo* d);
void demo_filter_derivative(Demo* d);
void demo_filter_median(Demo* d);

#endif
