/* A user's program: allocate an image, take absolute values, report. */
#include <stdio.h>

#include <keli.h>

int main(void)
{
    int step = 0;
    Kel16s* image = keliMalloc_16s_C1(5, 2, &step);
    KeliSize size = {5, 2};
    KelStatus status;
    int x;
    if (!image) return 2;
    for (x = 0; x < 5; ++x) image[x] = (Kel16s)(x == 0 ? -32768 : -x);
    status = keliAbs_16s_C1IR(image, step, size);
    printf("%s: status %d, |-32768| = %d\n", keliGetLibVersion()->Version, (int)status, image[0]);
    x = status == kelStatusOk && image[0] == 32767 && image[4] == 4 ? 0 : 1;
    keliFree(image);
    return x;
}
