/* SPDX-License-Identifier: MIT */
/* Two targets of a rendered picture, each with the uncertainty of its centre. */
#include "panoval_measure.h"

#include <math.h>
#include <stdio.h>

enum { W = 200, H = 120, SAMPLES = 4 };

static const double centres[2][2] = {{55.3, 60.6}, {140.25, 57.5}};

/* A dark disc of radius 20 on a bright ground, with some noise. */
static uint8_t level(int32_t x, int32_t y, uint32_t* noise)
{
    int32_t i, k, inside = 0;
    for (i = 0; i < SAMPLES * SAMPLES; ++i)
        for (k = 0; k < 2; ++k) {
            const int32_t column = i % SAMPLES, row = i / SAMPLES;
            const double dx = x + (column + 0.5) / SAMPLES - 0.5 - centres[k][0];
            const double dy = y + (row + 0.5) / SAMPLES - 0.5 - centres[k][1];
            inside += dx * dx + dy * dy < 20 * 20;
        }
    *noise = *noise * 1664525u + 1013904223u;
    return (uint8_t)(200 - 150 * inside / (SAMPLES * SAMPLES) + (int32_t)(*noise >> 30));
}

int main(void)
{
    static uint8_t pixels[W * H];
    PanovalMeasureImage image = {pixels, W, H, W, PANOVAL_MEASURE_U8, 0};
    PanovalMeasureDetection found = {0};
    uint32_t noise = 1;
    int32_t i, code;

    for (i = 0; i < W * H; ++i)
        pixels[i] = level(i % W, i / W, &noise);
    code = panoval_measure_detect(&image, NULL, &found);
    if (code != PANOVAL_MEASURE_OK) {
        fprintf(stderr, "%s\n", panoval_measure_error_text(code));
        return 1;
    }
    for (i = 0; i < found.count; ++i) {
        const PanovalMeasureTarget* t = &found.targets[i];
        const double* true_centre = centres[2 * t->ellipse.x > W];
        printf("target %d at %.2f, %.2f +- %.3f, radius %.2f, error within 4 sigma: %s\n", i + 1, t->ellipse.x,
               t->ellipse.y, t->sigma_x, t->ellipse.semi_major,
               fabs(t->ellipse.x - true_centre[0]) < 4 * t->sigma_x ? "yes" : "no");
    }
    panoval_measure_free(&found);
    return 0;
}
