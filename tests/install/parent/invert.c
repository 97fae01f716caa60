/* SPDX-License-Identifier: MIT */
/* The smallest of the libraries, from the tree of the project around it. */
#include <libmath/libmath.h>

#include <stdio.h>

int main(void)
{
    double a[4] = {2, 0, 0, 4};
    const int32_t result = matrix_invert(a, 2, NULL, NULL);
    printf("%d: %g %g %g %g\n", (int)result, a[0], a[1], a[2], a[3]);
    return 0;
}
