// Compiled with -pedantic -Werror: the public headers are clean C++ as well.
#include "keli.h"
#include "kelcore.h"

int keli_header_check_cxx();
int keli_header_check_cxx()
{
    KeliSize size{1, 1};
    return static_cast<int>(sizeof size) + kelStatusOk;
}
