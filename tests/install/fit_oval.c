/* SPDX-License-Identifier: MIT */
/* Fits an ellipse far from the origin, which needs every digit of libmath, and prints its axes and centre. */
#include "panoval.h"

#include <math.h>
#include <stdio.h>

enum { COUNT = 100 };

int main(void)
{
    double points[2 * COUNT];
    OvalFit fit;
    for (int i = 0; i < COUNT; ++i) {
        const double angle = i * 6.283185307179586 / COUNT, along = 30 * cos(angle), across = 12 * sin(angle);
        points[2 * i] = 2500.5 + 0.8 * along - 0.6 * across;
        points[2 * i + 1] = 1400.25 + 0.6 * along + 0.8 * across;
    }
    const int32_t result = oval_fit(COUNT, points, &fit);
    printf("%d: %.3f x %.3f at %.3f, %.3f\n", (int)result, fit.semi_major, fit.semi_minor, fit.x0, fit.y0);
    return 0;
}
