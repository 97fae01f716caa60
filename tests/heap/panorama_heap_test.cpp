// SPDX-License-Identifier: MIT
// Panoramas with a heap that gives out: once at any one allocation, C++ ones included, and once for good from any one
// on. Each call is done, or answers that there is no memory; nothing leaks. Left out are the routines for verdicts and
// plans as text, whose JSON library may end the process then.
#include "panoval_mosaic.h"
#include "tests/support/failing_heap.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

namespace
{

using panoval::test::FailingHeap;
using panoval::test::for_each_exhaustion;

constexpr std::int32_t kSide = 24;

std::int32_t read_rows(void*, const PanovalMosaicRows* rows)
{
    for (std::int32_t i = 0; i < rows->row_count; ++i) {
        auto* const row =
            static_cast<std::uint8_t*>(rows->samples) + static_cast<std::size_t>(i) * rows->samples_stride;
        for (std::int32_t x = 0; x < kSide; ++x) {
            const std::int32_t place = (14 * rows->picture + x) / 3 * 31 + (rows->first_row + i) / 4 * 17;
            row[x] = static_cast<std::uint8_t>(60 + place % 90 + 9 * rows->picture);
        }
    }
    return 0;
}

struct Panorama {
    std::uint8_t samples[kSide][14 + kSide] = {};
    friend bool operator==(const Panorama&, const Panorama&) = default;
};

std::int32_t take_rows(void* user, const PanovalMosaicRect* rect, const void* samples, std::size_t stride,
                       const std::uint8_t*, std::size_t, char*)
{
    for (std::int64_t y = 0; y < rect->height; ++y)
        std::memcpy(static_cast<Panorama*>(user)->samples[rect->y + y],
                    static_cast<const std::uint8_t*>(samples) + static_cast<std::size_t>(y) * stride,
                    static_cast<std::size_t>(rect->width));
    return 0;
}

// Everything from nothing to the last row. The first code that is not OK.
std::int32_t make(const PanovalMosaicOptions& options, Panorama& panorama)
{
    PanovalMosaic* mosaic = nullptr;
    std::int32_t code = panoval_mosaic_create(&mosaic);
    const PanovalMosaicHost host = {nullptr, read_rows, nullptr, nullptr};
    PanovalMosaicPicture picture = {};
    picture.width = picture.height = kSide;
    picture.channels = 1;
    picture.bits = 8;
    const PanovalMosaicSink sink = {&panorama, take_rows, 0, 0, {}};
    code = code != 0 ? code : panoval_mosaic_set_options(mosaic, &options);
    code = code != 0 ? code : panoval_mosaic_set_host(mosaic, &host);
    code = code != 0 ? code : panoval_mosaic_add_picture(mosaic, &picture);
    picture.x = 14;
    code = code != 0 ? code : panoval_mosaic_add_picture(mosaic, &picture);
    PanovalMosaicNeeds needs = {};
    PanovalMosaicEstimate estimate = {};
    code = code != 0 ? code : panoval_mosaic_needs(mosaic, &needs);
    code = code != 0 ? code : panoval_mosaic_estimate(mosaic, &estimate);
    code = code != 0 ? code : panoval_mosaic_measure(mosaic, PANOVAL_MOSAIC_MEASURE_ALL);
    code = code != 0 ? code : panoval_mosaic_run(mosaic, &sink);
    panoval_mosaic_destroy(mosaic);
    return code;
}

class PanoramaHeap : public testing::TestWithParam<std::int32_t>
{
};

TEST_P(PanoramaHeap, AreCompleteOrSaySo)
{
    PanovalMosaicOptions options = {};
    options.threads = 1;
    options.seams = GetParam();
    Panorama complete;
    ASSERT_EQ(make(options, complete), PANOVAL_MOSAIC_OK);
    for_each_exhaustion(
        [&](const FailingHeap& heap) {
            Panorama panorama;
            const std::int32_t code = make(options, panorama);
            EXPECT_TRUE(code == PANOVAL_MOSAIC_OK ? panorama == complete
                                                  : code == PANOVAL_MOSAIC_MEMORY && heap.has_failed())
                << "code " << code;
        },
        true);
}

INSTANTIATE_TEST_SUITE_P(OfEachKindOfSeam, PanoramaHeap,
                         testing::Values(PANOVAL_MOSAIC_SEAMS_OPTIMAL, PANOVAL_MOSAIC_SEAMS_NEAREST,
                                         PANOVAL_MOSAIC_SEAMS_NONE));

} // namespace
