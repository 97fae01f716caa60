/* SPDX-License-Identifier: MIT */
/* A white scratch across a ramp of grey is filled from what is around it. */
#include "panoval.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { W = 120, H = 80 };

int main(void)
{
    Mat picture, mask;
    int32_t x, y, c, worst = 0;

    MatInit(&picture);
    MatInit(&mask);
    MatReset(&picture, W, H, 3, 1);
    MatReset(&mask, W, H, 1, 1);
    memset(mask.data, 0, (size_t)mask.size);
    for (y = 0; y < H; ++y)
        for (x = 0; x < W; ++x) {
            const int is_scratch = x >= 20 && x < 100 && y >= 39 && y <= 41;
            for (c = 0; c < 3; ++c)
                picture.data[(y * W + x) * 3 + c] = (uint8_t)(is_scratch ? 255 : 50 + x);
            mask.data[y * W + x] = is_scratch ? 255 : 0;
        }
    inpaint(&picture, &mask, 5);
    for (x = 20; x < 100; ++x)
        if (abs(picture.data[(40 * W + x) * 3] - (50 + x)) > worst)
            worst = abs(picture.data[(40 * W + x) * 3] - (50 + x));
    printf("the scratch is gone: %s\n", worst <= 5 ? "yes" : "no");
    MatDestroy(&picture);
    MatDestroy(&mask);
    return 0;
}
