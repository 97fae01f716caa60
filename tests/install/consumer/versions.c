/* SPDX-License-Identifier: MIT */
/* The versions of the headers and of the libraries are one, and libmath is there by its own name. */
#include <libmath/libmath.h>
#include <panoval_measure.h>
#include <panoval_mosaic.h>
#include <panoval_version.h>

#include <stdio.h>

int main(void)
{
    const int mosaic = panoval_mosaic_version(), measure = panoval_measure_version();
    double half = 2;
    matrix_invert(&half, 1, NULL, NULL);
    printf("headers %d, mosaic %d, measure %d\n", PANOVAL_VERSION_NUMBER, mosaic, measure);
    return mosaic != PANOVAL_VERSION_NUMBER || measure != PANOVAL_VERSION_NUMBER ||
           panoval_version() != PANOVAL_VERSION_NUMBER || half != 0.5;
}
