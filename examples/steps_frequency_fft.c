/* Two-dimensional FFT. A 256 x 256 crop of the rings scene goes to its packed real
 * spectrum; the log magnitude, with the zero frequency moved to the centre, is drawn; then the
 * spectrum is cut to its low frequencies and transformed back, which keeps the wide rings and smooths away the fine ones. */
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include "demo.h"

enum { ORDER = 8, N = 1 << ORDER };

typedef struct {
    const Kel32f* src;
    Kel32f* dst;
    const Kel8u* spec;
    Kel8u* buffer;
} FftArgs;

static void run_forward(void* p)
{
    FftArgs* a = (FftArgs*)p;
    keliFFTFwd_RToPack_32f_C1R(a->src, N * 4, a->dst, N * 4, a->spec, a->buffer);
}

/* X(u, v) of the full spectrum, read from the packed layout (Hermitian symmetry gives the
 * columns past N/2). */
static void spectrum_at(const Kel32f* p, int u, int v, double* re, double* im)
{
    double sign = 1.0;
    if (u > N / 2) u = N - u, v = (N - v) % N, sign = -1.0;
    if (u == 0 || u == N / 2) {
        const int col = u == 0 ? 0 : N - 1;
        int k = v <= N / 2 ? v : N - v;
        double s = v <= N / 2 ? 1.0 : -1.0;
        *re = k == 0 ? p[col] : k == N / 2 ? p[(N - 1) * N + col] : p[(2 * k - 1) * N + col];
        *im = k == 0 || k == N / 2 ? 0.0 : s * p[2 * k * N + col];
    } else {
        *re = p[v * N + 2 * u - 1];
        *im = p[v * N + 2 * u];
    }
    *im *= sign;
}

static void write_float_png(Demo* d, const char* name, const Kel32f* f, double lo, double hi)
{
    Kel8u* out = (Kel8u*)malloc(N * N);
    int i;
    if (!out) return;
    for (i = 0; i < N * N; ++i) {
        double t = (f[i] - lo) / (hi - lo) * 255.0;
        out[i] = (Kel8u)(t < 0 ? 0 : t > 255 ? 255 : t + 0.5);
    }
    demo_write_png(d, name, out, N, N, N, 1);
    free(out);
}

void demo_frequency_fft(Demo* d)
{
    int step, sizeSpec = 0, sizeInit = 0, sizeBuf = 0, x, y;
    Kel8u* scene = demo_scene(d, SCENE_RINGS, &step);
    Kel32f *image = (Kel32f*)malloc(N * N * 4), *packed = (Kel32f*)malloc(N * N * 4), *view = (Kel32f*)malloc(N * N * 4);
    Kel8u *spec = NULL, *init = NULL, *buffer = NULL;
    KelStatus s = keliFFTGetSize_R_32f(ORDER, ORDER, 2, kelAlgHintNone, &sizeSpec, &sizeInit, &sizeBuf);
    FftArgs args;
    double peak = 0.0;
    demo_report(d, "keliFFTGetSize_R_32f", s, -1);
    if (s < 0 || !scene || !image || !packed || !view) goto done;
    spec = (Kel8u*)malloc((size_t)sizeSpec);
    init = (Kel8u*)malloc((size_t)(sizeInit ? sizeInit : 1));
    buffer = (Kel8u*)malloc((size_t)sizeBuf);
    if (!spec || !init || !buffer) goto done;
    s = keliFFTInit_R_32f(ORDER, ORDER, 2, kelAlgHintNone, spec, init);
    demo_report(d, "keliFFTInit_R_32f", s, -1);
    if (s < 0) goto done;
    for (y = 0; y < N; ++y)
        for (x = 0; x < N; ++x) image[y * N + x] = scene[y * step + x];

    args.src = image, args.dst = packed, args.spec = spec, args.buffer = buffer;
    s = keliFFTFwd_RToPack_32f_C1R(image, N * 4, packed, N * 4, spec, buffer);
    demo_report(d, "keliFFTFwd_RToPack_32f_C1R", s, s < 0 ? -1 : demo_speed(run_forward, &args, N * N));
    if (s < 0) goto done;
    for (y = 0; y < N; ++y)
        for (x = 0; x < N; ++x) {
            double re, im, m;
            spectrum_at(packed, (x + N / 2) % N, (y + N / 2) % N, &re, &im);
            m = log1p(sqrt(re * re + im * im));
            view[y * N + x] = (Kel32f)m;
            if (m > peak) peak = m;
        }
    write_float_png(d, "frequency_fft_spectrum", view, 0.35 * peak, peak);

    /* Low pass: keep frequencies below N/16 on both axes. Packed position (x, y) holds
     * frequency (x+1)/2 along u and (y+1)/2 along v in the packed columns. */
    for (y = 0; y < N; ++y)
        for (x = 0; x < N; ++x) {
            int fu = (x + 1) / 2, fv = (x == 0 || x == N - 1) ? (y + 1) / 2 : (y <= N / 2 ? y : N - y);
            if (fu > N / 16 || fv > N / 16) packed[y * N + x] = 0.0f;
        }
    s = keliFFTInv_PackToR_32f_C1IR(packed, N * 4, spec, buffer);
    demo_report(d, "keliFFTInv_PackToR_32f_C1IR", s, -1);
    if (s >= 0) write_float_png(d, "frequency_fft_lowpass", packed, 0.0, 255.0);

done:
    keliFree(scene);
    free(image);
    free(packed);
    free(view);
    free(spec);
    free(init);
    free(buffer);
}
