#define _POSIX_C_SOURCE 199309L
#include <math.h>
#include <png.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include "demo.h"

Kel8u* demo_scene(const Demo* d, int kind, int* step)
{
    Kel8u* image = keliMalloc_8u_C1(d->width, d->height, step);
    unsigned noise = 12345u;
    int x, y;
    if (!image) return NULL;
    for (y = 0; y < d->height; ++y) {
        Kel8u* row = image + (long)y * *step;
        for (x = 0; x < d->width; ++x) {
            double v;
            if (kind == SCENE_RAMP) {
                v = 255.0 * (x + y) / (d->width + d->height - 2);
            } else if (kind == SCENE_RINGS) {
                double dx = x - d->width / 2.0, dy = y - d->height / 2.0;
                v = 127.5 + 127.5 * cos(sqrt(dx * dx + dy * dy) / 6.0);
            } else {
                noise = noise * 1103515245u + 12345u;
                v = (((x / 32) + (y / 32)) % 2 ? 200.0 : 50.0) + (double)((noise >> 16) % 41) - 20.0;
            }
            row[x] = (Kel8u)(v < 0 ? 0 : v > 255 ? 255 : v + 0.5);
        }
    }
    return image;
}

void demo_write_png(const Demo* d, const char* name, const Kel8u* pixels, int step, int width, int height,
                    int channels)
{
    char path[512];
    FILE* f;
    png_structp png;
    png_infop info;
    int y;
    const int colour = channels == 1 ? PNG_COLOR_TYPE_GRAY : channels == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_RGBA;
    snprintf(path, sizeof path, "%s/%s.png", d->outDir, name);
    f = fopen(path, "wb");
    if (!f) {
        fprintf(stderr, "cannot write %s\n", path);
        return;
    }
    png = png_create_write_struct(PNG_LIBPNG_VER_STRING, NULL, NULL, NULL);
    info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        fclose(f);
        return;
    }
    png_init_io(png, f);
    png_set_IHDR(png, info, (png_uint_32)width, (png_uint_32)height, 8, colour, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (y = 0; y < height; ++y) png_write_row(png, (png_const_bytep)(pixels + (long)y * step));
    png_write_end(png, NULL);
    png_destroy_write_struct(&png, &info);
    fclose(f);
}

double demo_now(void)
{
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (double)t.tv_sec + 1e-9 * (double)t.tv_nsec;
}

double demo_speed(void (*fn)(void*), void* arg, double pixels)
{
    double start = demo_now(), elapsed;
    long runs = 0;
    do {
        fn(arg);
        ++runs;
        elapsed = demo_now() - start;
    } while (elapsed < 0.1);
    return pixels * (double)runs / elapsed / 1e6;
}

void demo_report(Demo* d, const char* function, KelStatus status, double megapixelsPerSecond)
{
    if (status < 0) ++d->failures;
    if (megapixelsPerSecond >= 0)
        printf("  %-34s %6d   %9.1f\n", function, (int)status, megapixelsPerSecond);
    else
        printf("  %-34s %6d   %9s\n", function, (int)status, "-");
}
