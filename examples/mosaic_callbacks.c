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
    PanovalMosaic* mosaic = NULL;
    PanovalMosaicPicture picture = {0};
    PanovalMosaicHost host = {0};
    PanovalMosaicSink sink = {0};
    PanovalMosaicLayout layout;
    int64_t rows = 0;
    int32_t i, code;
    char text[512];

    host.read_rows = read_rows;
    sink.user = &rows;
    sink.write = take_rows;
    code = panoval_mosaic_create(&mosaic);
    if (code == 0)
        code = panoval_mosaic_set_host(mosaic, &host);
    for (i = 0; i < COUNT && code == 0; ++i) {
        picture.x = i * STEP, picture.width = W, picture.height = H;
        picture.channels = 1, picture.bits = 8, picture.random_access = 1;
        code = panoval_mosaic_add_picture(mosaic, &picture);
    }
    if (code == 0)
        code = panoval_mosaic_run(mosaic, &sink);
    if (code == 0)
        code = panoval_mosaic_layout(mosaic, &layout);
    panoval_mosaic_error(mosaic, text, sizeof text);
    if (code == 0)
        printf("%d x %d, %d rows\n", (int)layout.width, (int)layout.height, (int)rows);
    else
        fprintf(stderr, "%s\n", text);
    panoval_mosaic_destroy(mosaic);
    return code;
}
