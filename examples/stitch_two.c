/* SPDX-License-Identifier: MIT */
/* Blends two overlapping pictures into one: a dark one and a bright one that share half of their width. */
#include "panoval.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { W = 300, H = 200, STEP = 150 };

int main(void)
{
    FeatherBlender blender;
    Roi canvas = {0, 0, W + STEP, H};
    Mat picture, panorama;
    Matb mask = {0, 0, 0, NULL};
    int32_t i, y;

    MatInit(&picture);
    MatInit(&panorama);
    memset(&blender, 0, sizeof blender);
    feather_blender_prepare(&blender, 1, &canvas);
    for (i = 0; i < 2; ++i) {
        const Point corner = {i * STEP, 0};
        MatReset(&picture, W, H, 1, 1); /* one channel of one byte */
        MatbReset(&mask, W, H, 1);
        memset(picture.data, i == 0 ? 60 : 200, (size_t)picture.size);
        for (y = 0; y < H; ++y) /* covered but for the first and last column, so that the seam fades */
            memset(mask.data + (size_t)y * W + 1, 255, W - 2);
        feather_blender_feed(&blender, &picture, &mask, corner);
    }
    feather_blender_blend(&blender, &panorama, 1);

    write_pgm(panorama.data, panorama.width, panorama.height, "two.pgm");
    printf("%d x %d, dark %d, middle %d, bright %d\n", panorama.width, panorama.height, panorama.data[100],
           panorama.data[W / 2 + STEP / 2], panorama.data[W + 50]);
    MatDestroy(&picture);
    MatDestroy(&panorama);
    free(mask.data);
    return 0;
}
