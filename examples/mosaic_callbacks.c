/* SPDX-License-Identifier: MIT */
/* The panorama engine asks for rows and gives rows: no picture is ever whole in memory. */
#include "panoval_mosaic.h"

#include <math.h>
#include <stdio.h>
#include <string.h>

enum { W = 500, H = 300, STEP = 400, COUNT = 4 };

/* A scene seen by four cameras of different exposure. */
static int32_t read_rows(void* user, const PanovalMosaicRows* rows)
{
    int32_t row, x;
    (void)user;
    for (row = 0; row < rows->row_count; ++row)
        for (x = 0; x < W; ++x) {
            const int32_t y = rows->first_row + row, scene_x = x + rows->picture * STEP;
            const double level = 100 + 40 * ((scene_x / 50 + y / 50) % 2) + 0.02 * scene_x;
            ((uint8_t*)rows->samples)[(size_t)row * rows->samples_stride + (size_t)x] =
                (uint8_t)(level * (1 + 0.1 * rows->picture));
        }
    return 0;
}

static int32_t take_rows(void* user, const PanovalMosaicRect* rect, const void* samples, size_t samples_stride,
                         const uint8_t* coverage, size_t coverage_stride, char* message)
{
    (void)samples, (void)samples_stride, (void)coverage, (void)coverage_stride, (void)message;
    *(int64_t*)user += rect->height; /* here a host writes rect->height rows to its file */
    return 0;
}

int main(void)
{
    PanovalMosaicPicture picture = {.width = W, .height = H, .channels = 1, .bits = 8, .random_access = 1};
    const PanovalMosaicHost host = {.read_rows = read_rows};
    int64_t rows = 0;
    const PanovalMosaicSink sink = {.user = &rows, .write = take_rows};
    PanovalMosaicLayout layout;
    PanovalMosaic* mosaic = NULL;
    char text[512];

    int32_t code = panoval_mosaic_create(&mosaic);
    code = code != 0 ? code : panoval_mosaic_set_host(mosaic, &host);
    for (; picture.x < COUNT * STEP && code == 0; picture.x += STEP)
        code = panoval_mosaic_add_picture(mosaic, &picture);
    code = code != 0 ? code : panoval_mosaic_run(mosaic, &sink);
    code = code != 0 ? code : panoval_mosaic_layout(mosaic, &layout);
    panoval_mosaic_error(mosaic, text, sizeof text);
    if (code == 0)
        printf("%d x %d, %d rows\n", (int)layout.width, (int)layout.height, (int)rows);
    else
        fprintf(stderr, "%s\n", text);
    panoval_mosaic_destroy(mosaic);
    return code;
}
