// SPDX-License-Identifier: MIT
// The verdict, and whole panoramas of pictures in memory through the C interface, on one thread.
#include "bench/support/routine.h"
#include "mosaic/seams/seam_find.h"
#include "mosaic/verdict/verdict.h"
#include "panoval_mosaic.h"
#include "tests/support/noise.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace panoval::bench
{
namespace
{

using namespace mosaic;

constexpr std::int64_t kWidth = 1500;
constexpr std::int64_t kHeight = 1000;
constexpr std::int64_t kOverlap = 375;

// A grid of pictures cut from one scene, each a little brighter or darker than its neighbours.
class Grid : public PictureReader
{
public:
    Layout layout;

    Grid(std::int64_t columns, std::int64_t rows)
    {
        layout.width = columns * (kWidth - kOverlap) + kOverlap;
        layout.height = rows * (kHeight - kOverlap) + kOverlap;
        layout.channels = 3;
        layout.bits = 8;
        const auto scene = panoval::test::picture(
            panoval::test::Content::Photograph, static_cast<int>(3 * layout.width), static_cast<int>(layout.height), 1);
        for (std::int64_t j = 0; j < rows; ++j)
            for (std::int64_t i = 0; i < columns; ++i) {
                const Rect rect{i * (kWidth - kOverlap), j * (kHeight - kOverlap), kWidth, kHeight};
                layout.pictures.push_back({rect, false, ""});
                std::vector<std::uint8_t>& samples = samples_.emplace_back();
                const int darker = static_cast<int>((i + j) % 3);
                for (std::int64_t y = 0; y < kHeight; ++y)
                    for (std::int64_t x = 0; x < 3 * kWidth; ++x)
                        samples.push_back(static_cast<std::uint8_t>(
                            scene[static_cast<std::size_t>(3 * ((rect.y + y) * layout.width + rect.x) + x)] *
                            (100 - darker) / 100));
            }
    }

    void read(std::size_t picture, const Rect& rect, PixelBlock& block) override
    {
        block.reset(rect, 3, 1);
        for (std::int64_t y = 0; y < rect.height; ++y) {
            std::memcpy(block.row(y), row(picture, rect.y + y) + 3 * rect.x, block.row_bytes());
            std::memset(block.mask_row(y), 255, static_cast<std::size_t>(rect.width));
        }
    }

    const std::uint8_t* row(std::size_t picture, std::int64_t y) const
    {
        return samples_[picture].data() + 3 * kWidth * y;
    }

private:
    std::vector<std::vector<std::uint8_t>> samples_;
};

Case verdict_case(std::int64_t columns, std::int64_t rows)
{
    const auto grid = std::make_shared<Grid>(columns, rows);
    const auto overlaps = std::make_shared<std::vector<Overlap>>(find_overlaps(grid->layout));
    const auto corrections = std::make_shared<Corrections>(Corrections::none(grid->layout));
    NoProgress progress;
    const auto seams =
        std::make_shared<SeamMap>(find_seams(grid->layout, *overlaps, *corrections, *grid, {}, progress));
    double pixels = 0;
    for (const Overlap& overlap : *overlaps)
        pixels += static_cast<double>(overlap.region.pixels());
    return {std::to_string(overlaps->size()) + " overlaps",
            "photo",
            pixels,
            static_cast<std::size_t>(6 * pixels),
            [=] {
                NoProgress none;
                OverlapLooks looks(grid->layout, *overlaps, *corrections, *grid, {});
                (void)judge(looks, *seams, none);
            },
            {}};
}

void require_ok(std::int32_t code)
{
    if (code != PANOVAL_MOSAIC_OK) {
        std::fprintf(stderr, "the panorama fails with code %d\n", code);
        std::exit(1);
    }
}

std::int32_t give_rows(void* user, const PanovalMosaicRows* rows)
{
    const auto* const grid = static_cast<const Grid*>(user);
    for (std::int32_t y = 0; y < rows->row_count; ++y)
        std::memcpy(static_cast<std::uint8_t*>(rows->samples) + static_cast<std::size_t>(y) * rows->samples_stride,
                    grid->row(static_cast<std::size_t>(rows->picture), rows->first_row + y), 3 * kWidth);
    return 0;
}

std::int32_t take_rows(void*, const PanovalMosaicRect*, const void*, std::size_t, const std::uint8_t*, std::size_t,
                       char*)
{
    return 0;
}

void make_panorama(const Grid& grid, bool is_plain)
{
    PanovalMosaic* mosaic = nullptr;
    require_ok(panoval_mosaic_create(&mosaic));
    PanovalMosaicOptions options{};
    options.threads = 1;
    options.seams = is_plain ? PANOVAL_MOSAIC_SEAMS_NONE : PANOVAL_MOSAIC_SEAMS_OPTIMAL;
    options.gains = is_plain ? PANOVAL_MOSAIC_GAINS_OFF : PANOVAL_MOSAIC_GAINS_AUTOMATIC;
    require_ok(panoval_mosaic_set_options(mosaic, &options));
    const PanovalMosaicHost host{const_cast<Grid*>(&grid), give_rows, nullptr, nullptr};
    require_ok(panoval_mosaic_set_host(mosaic, &host));
    for (const PlacedPicture& placed : grid.layout.pictures) {
        PanovalMosaicPicture picture{};
        picture.x = placed.rect.x;
        picture.y = placed.rect.y;
        picture.width = kWidth;
        picture.height = kHeight;
        picture.channels = 3;
        picture.bits = 8;
        picture.random_access = 1;
        require_ok(panoval_mosaic_add_picture(mosaic, &picture));
    }
    if (!is_plain)
        require_ok(panoval_mosaic_measure(mosaic, PANOVAL_MOSAIC_MEASURE_ALL));
    PanovalMosaicSink sink{};
    sink.write = take_rows;
    require_ok(panoval_mosaic_run(mosaic, &sink));
    panoval_mosaic_destroy(mosaic);
}

Case panorama_case(std::int64_t columns, std::int64_t rows, bool is_plain)
{
    const auto grid = std::make_shared<Grid>(columns, rows);
    const double pixels = static_cast<double>(grid->layout.width * grid->layout.height);
    return {std::to_string(columns) + "x" + std::to_string(rows) + " of 1500x1000",
            is_plain ? "whole masks" : "with all",
            pixels,
            static_cast<std::size_t>(3 * pixels),
            [=] { make_panorama(*grid, is_plain); },
            {}};
}

const Registration registration([] {
    add_case("judge", [] { return verdict_case(2, 1); });
    add_case("judge", [] { return verdict_case(4, 3); });
    add_case("panorama", [] { return panorama_case(2, 1, false); });
    add_case("panorama", [] { return panorama_case(2, 1, true); });
    add_case("panorama", [] { return panorama_case(4, 3, false); });
    add_case("panorama", [] { return panorama_case(4, 3, true); });
});

} // namespace
} // namespace panoval::bench
