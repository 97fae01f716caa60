/* SPDX-License-Identifier: MIT */
/* Gains of a row of ten pictures of which only two are in memory at a time. */
#include "panoval.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { W = 64, H = 48, STEP = 40, COUNT = 10 };

/* Stands for a file that is read: one scene, every picture 2 percent darker than the one before. */
static void load(int32_t i, Mat* picture, Matb* mask)
{
    int32_t x, y;
    MatReset(picture, W, H, 1, 1);
    MatbReset(mask, W, H, 1);
    memset(mask->data, 255, (size_t)W * H);
    for (y = 0; y < H; ++y)
        for (x = 0; x < W; ++x)
            picture->data[y * W + x] = (uint8_t)((150 + (x + i * STEP) % 50) * (100 - 2 * i) / 100);
}

int main(void)
{
    GainCompensator gains;
    Mat pictures[2];
    Matb masks[2] = {{0, 0, 0, NULL}, {0, 0, 0, NULL}};
    int32_t i, least = 255, most = 0;

    memset(&gains, 0, sizeof gains);
    MatInit(&pictures[0]);
    MatInit(&pictures[1]);
    gain_compensator_init_start(&gains, COUNT);
    for (i = 0; i < COUNT; ++i) {
        const int32_t now = i % 2, before = 1 - now;
        const Point here = {i * STEP, 0}, there = {(i - 1) * STEP, 0};
        load(i, &pictures[now], &masks[now]); /* in the place of the one before the last */
        gain_compensator_init_step(&gains, i, i, here, &pictures[now], &masks[now], here, &pictures[now], &masks[now]);
        if (i > 0)
            gain_compensator_init_step(&gains, i - 1, i, there, &pictures[before], &masks[before], here, &pictures[now],
                                       &masks[now]);
    }
    gain_compensator_init_end(&gains);

    for (i = 0; i < COUNT; ++i) { /* one point of the scene that repeats in every picture */
        const int32_t x = (150 - i * STEP % 50) % 50;
        load(i, &pictures[0], &masks[0]);
        gain_compensator_apply(&gains, i, &pictures[0]);
        least = pictures[0].data[x] < least ? pictures[0].data[x] : least;
        most = pictures[0].data[x] > most ? pictures[0].data[x] : most;
    }
    printf("levels of one point: %d to %d after gains of %.2f to %.2f\n", least, most, gains.gains.data[0],
           gains.gains.data[COUNT - 1]);
    gain_compensator_free(&gains);
    for (i = 0; i < 2; ++i) {
        MatDestroy(&pictures[i]);
        free(masks[i].data);
    }
    return 0;
}
