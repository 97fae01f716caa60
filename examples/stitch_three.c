/* SPDX-License-Identifier: MIT */
/* Three overlapping pictures become one by multi-band blending. */
#include "panoval.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { W = 300, H = 200, STEP = 150, COUNT = 3 };

int main(void)
{
    const int levels[COUNT] = {60, 130, 200};
    MultiBandBlender blender;
    Roi canvas = {0, 0, W + (COUNT - 1) * STEP, H};
    Mat picture, panorama;
    Matb mask = {0, 0, 0, NULL};
    int32_t i, x, sharpest = 0;

    MatInit(&picture);
    MatInit(&panorama);
    memset(&blender, 0, sizeof blender);
    multi_band_blender_setbands(&blender, 5);
    multi_band_blender_prepare(&blender, 1, &canvas);
    for (i = 0; i < COUNT; ++i) {
        const Point corner = {i * STEP, 0};
        MatReset(&picture, W, H, 1, 1); /* one channel of one byte */
        MatbReset(&mask, W, H, 1);
        memset(picture.data, levels[i], (size_t)picture.size);
        memset(mask.data, 255, (size_t)W * H); /* covered everywhere */
        multi_band_blender_feed(&blender, &picture, &mask, corner);
    }
    multi_band_blender_blend(&blender, &panorama, 1);

    for (x = 1; x < panorama.width; ++x)
        if (abs(panorama.data[x] - panorama.data[x - 1]) > sharpest)
            sharpest = abs(panorama.data[x] - panorama.data[x - 1]);
    printf("%d x %d: %d %d %d, no seam sharper than %d levels\n", panorama.width, panorama.height, panorama.data[20],
           panorama.data[300], panorama.data[580], sharpest);
    write_pgm(panorama.data, panorama.width, panorama.height, "three.pgm");
    MatDestroy(&picture);
    MatDestroy(&panorama);
    free(mask.data);
    return 0;
}
