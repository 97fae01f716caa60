// SPDX-License-Identifier: MIT
// Seams of pictures in memory, the cut that finds them, and the sums that pictures are reduced with.
#include "bench/support/routine.h"
#include "mosaic/seams/seam_cut.h"
#include "mosaic/seams/seam_find.h"
#include "mosaic/seams/seam_rows.h"
#include "tests/mosaic/memory_reader.h"
#include "tests/reference/seam_rows.h"
#include "tests/support/noise.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace
{

using namespace panoval::mosaic;
using panoval::test::noise;

// A grid of pictures that overlap by a quarter of their sides and differ by their noise.
class GridReader : public PictureReader
{
public:
    Layout layout;

    GridReader(std::int64_t columns, std::int64_t rows, std::int64_t width, std::int64_t height)
    {
        layout.width = columns * (width - width / 4) + width / 4;
        layout.height = rows * (height - height / 4) + height / 4;
        layout.channels = 3;
        layout.bits = 8;
        for (std::int64_t j = 0; j < rows; ++j)
            for (std::int64_t i = 0; i < columns; ++i)
                layout.pictures.push_back(
                    {{i * (width - width / 4), j * (height - height / 4), width, height}, false, ""});
        samples_ = noise<std::uint8_t>(static_cast<std::size_t>(3 * layout.width * (height + 61)), 90, 110, 1);
    }

    void read(std::size_t picture, const Rect& rect, PixelBlock& block) override
    {
        block.reset(rect, 3, 1);
        const Rect& place = layout.pictures[picture].rect;
        for (std::int64_t y = 0; y < rect.height; ++y) {
            // Other rows for every picture, so that none agrees with its neighbours.
            const std::int64_t row = rect.y + y + static_cast<std::int64_t>(picture % 61);
            const std::uint8_t* const from = samples_.data() + 3 * (row * layout.width + place.x + rect.x);
            std::memcpy(block.row(y), from, block.row_bytes());
            std::memset(block.mask_row(y), 255, static_cast<std::size_t>(rect.width));
        }
    }

private:
    std::vector<std::uint8_t> samples_;
};

panoval::bench::Case find_case(std::int64_t columns, std::int64_t rows, SeamMode mode)
{
    const auto reader = std::make_shared<GridReader>(columns, rows, 1500, 1000);
    const std::string size = std::to_string(columns) + "x" + std::to_string(rows) + " of 1500x1000";
    std::size_t bytes = 0;
    for (const PlacedPicture& picture : reader->layout.pictures)
        bytes += 3 * static_cast<std::size_t>(picture.rect.pixels());
    return {size,
            mode == SeamMode::Nearest ? "nearest" : "optimal",
            static_cast<double>(reader->layout.width * reader->layout.height),
            bytes,
            [reader, mode] {
                NoProgress progress;
                SeamOptions options;
                options.mode = mode;
                find_seams(reader->layout, find_overlaps(reader->layout), Corrections::none(reader->layout), *reader,
                           options, progress);
            },
            {}};
}

// A grid of nodes whose links cost something at random, drawn to either side.
panoval::bench::Case cut_case(std::size_t width, std::size_t height)
{
    const auto costs = std::make_shared<std::vector<std::int32_t>>();
    for (const std::uint8_t value : noise<std::uint8_t>(width * height, 16, 48, 3))
        costs->push_back(value);
    const auto cut = std::make_shared<MinimumCut>();
    return {std::to_string(width) + "x" + std::to_string(height),
            "noise",
            static_cast<double>(width * height),
            0,
            [=] {
                cut->reset(width * height);
                for (std::size_t y = 0; y < height; ++y) {
                    cut->draw_to_first(y * width, kUncuttable);
                    cut->draw_to_first(y * width + width - 1, -kUncuttable);
                }
                for (std::size_t y = 0; y < height; ++y)
                    for (std::size_t x = 0; x < width; ++x) {
                        const std::size_t p = y * width + x;
                        if (x + 1 < width)
                            cut->link(p, p + 1, (*costs)[p] + (*costs)[p + 1]);
                        if (y + 1 < height)
                            cut->link(p, p + width, (*costs)[p] + (*costs)[p + width]);
                    }
                cut->solve();
            },
            {}};
}

panoval::bench::Case sums_case(std::size_t width)
{
    struct Data {
        std::vector<std::uint8_t> rows;
        std::vector<std::uint16_t> sums[2], rough[2];
    };
    const auto d = std::make_shared<Data>();
    const std::size_t count = 3 * width;
    d->rows = noise<std::uint8_t>(9 * count, 0, 255, 2);
    const auto run = [d, count](auto sum, int which) {
        d->sums[which].assign(count, 0);
        d->rough[which].assign(count, 0);
        for (std::size_t y = 0; y < 8; ++y)
            sum(d->rows.data() + y * count, d->rows.data() + (y + 1) * count, count, 3, d->sums[which].data(),
                d->rough[which].data());
    };
    return {std::to_string(width) + "x8",
            "noise",
            static_cast<double>(width * 8),
            8 * count,
            [run] { run(sum_row, 0); },
            [run] { run(panoval::reference::sum_row, 1); },
            [d] { return d->sums[0] == d->sums[1] && d->rough[0] == d->rough[1]; }};
}

const panoval::bench::Registration registration([] {
    panoval::bench::add_case("find_seams", [] { return find_case(2, 1, SeamMode::Nearest); });
    panoval::bench::add_case("find_seams", [] { return find_case(2, 1, SeamMode::Optimal); });
    panoval::bench::add_case("find_seams", [] { return find_case(5, 4, SeamMode::Nearest); });
    panoval::bench::add_case("find_seams", [] { return find_case(5, 4, SeamMode::Optimal); });
    panoval::bench::add_case("minimum_cut", [] { return cut_case(20, 128); });
    panoval::bench::add_case("minimum_cut", [] { return cut_case(100, 250); });
    panoval::bench::add_case("sum_row", [] { return sums_case(3000); });
});

} // namespace
