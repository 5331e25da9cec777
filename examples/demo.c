/* keli demonstration: builds synthetic images in memory, runs every family of the library on
 * them as an application would, writes the results as PNG files and prints what ran. */
#include <stdio.h>
#include <sys/stat.h>

#include "demo.h"

int main(int argc, char** argv)
{
    Demo d = {argc > 1 ? argv[1] : "demo-output", 512, 384, 0};
    const KelLibraryVersion* v = keliGetLibVersion();
    mkdir(d.outDir, 0755);
    printf("%s %s, images %dx%d, output in %s/\n\n", v->Name, v->Version, d.width, d.height, d.outDir);
    printf("  %-34s %6s   %9s\n", "function", "status", "Mpixel/s");
    demo_frame(&d);
    demo_arith_add_sub(&d);
    demo_arith_mul_div(&d);
    demo_arith_elementary(&d);
    demo_arith_alpha(&d);
    demo_move_copy(&d);
    demo_move_border(&d);
    demo_move_convert(&d);
    demo_move_mirror(&d);
    demo_threshold(&d);
    demo_threshold_compare(&d);
    demo_threshold_adaptive(&d);
    demo_stats_sums(&d);
    demo_stats_hist(&d);
    demo_stats_norms(&d);
    demo_stats_products(&d);
    demo_stats_sad(&d);
    demo_geometry_remap(&d);
    demo_geometry_resize(&d);
    demo_geometry_warp(&d);
    demo_filter_box(&d);
    demo_filter_general(&d);
    demo_frequency_fft(&d);
    demo_filter_min_max(&d);
    demo_match_template(&d);
    demo_match_hog(&d);
    demo_filter_sharpen(&d);
    demo_filter_derivative(&d);
    demo_filter_median(&d);
    printf("\n%s\n", d.failures ? "some calls failed" : "all calls succeeded");
    return d.failures ? 1 : 0;
}
