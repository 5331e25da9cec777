/* Compiled with -std=c99 -pedantic -Werror: the public headers are plain C. */
#include "keli.h"
#include "kelcore.h"

int keli_header_check_c(void);
int keli_header_check_c(void)
{
    KeliSize size = {1, 1};
    return (int)sizeof size + kelStatusOk;
}
