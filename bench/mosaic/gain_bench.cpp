// SPDX-License-Identifier: MIT
// Sums of two pictures' common samples, and gains of a whole grid from pictures in memory.
#include "bench/support/routine.h"
#include "mosaic/gains/gain_measure.h"
#include "mosaic/gains/gain_sums.h"
#include "tests/reference/gain_sums.h"
#include "tests/support/noise.h"

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace
{

using namespace panoval::mosaic;
using panoval::test::noise;

template <class Sample, class Sums>
panoval::bench::Case sums_case(std::size_t count)
{
    struct Data {
        std::vector<Sample> first, second, mask;
        Sums sums[2];
        GainRow<Sample> row{};
        std::size_t rows = 64;
        void fast()
        {
            sums[0].clear(row.count);
            for (std::size_t y = 0; y < rows; ++y)
                add_gain_row(row, sums[0]);
        }
        void twin()
        {
            sums[1].clear(row.count);
            for (std::size_t y = 0; y < rows; ++y)
                panoval::reference::add_gain_row(row, sums[1]);
        }
        bool same()
        {
            fast();
            twin();
            return sums[0].first == sums[1].first && sums[0].second == sums[1].second && sums[0].used == sums[1].used;
        }
    };
    const auto d = std::make_shared<Data>();
    const auto largest = static_cast<Sample>(sizeof(Sample) == 1 ? 255 : 65535);
    d->first = noise<Sample>(count, 0, largest, 1);
    d->second = noise<Sample>(count, 0, largest, 2);
    d->mask.assign(count, 1);
    d->row = {d->first.data(), d->second.data(), d->mask.data(), count, static_cast<Sample>(largest - largest / 50)};
    return {std::to_string(count) + "x" + std::to_string(d->rows),
            sizeof(Sample) == 1 ? "noise, 8 bit" : "noise, 16 bit",
            static_cast<double>(count * d->rows),
            2 * count * d->rows * sizeof(Sample),
            [d] { d->fast(); },
            [d] { d->twin(); },
            [d] { return d->same(); }};
}

// All pictures of the grid show the same samples.
class GridReader : public PictureReader
{
public:
    Layout layout;
    std::vector<std::uint8_t> samples;

    GridReader(std::int64_t columns, std::int64_t rows, std::int64_t width, std::int64_t height, std::int64_t overlap)
    {
        layout.width = columns * (width - overlap) + overlap;
        layout.height = rows * (height - overlap) + overlap;
        layout.channels = 3;
        layout.bits = 8;
        for (std::int64_t j = 0; j < rows; ++j)
            for (std::int64_t i = 0; i < columns; ++i)
                layout.pictures.push_back({{i * (width - overlap), j * (height - overlap), width, height}, false, ""});
        samples = noise<std::uint8_t>(static_cast<std::size_t>(3 * width * height), 20, 220, 1);
    }

    void read(std::size_t picture, const Rect& rect, PixelBlock& block) override
    {
        block.reset(rect, 3, 1);
        const std::int64_t width = layout.pictures[picture].rect.width;
        for (std::int64_t y = 0; y < rect.height; ++y) {
            std::memcpy(block.row(y), samples.data() + 3 * ((rect.y + y) * width + rect.x), block.row_bytes());
            std::memset(block.mask_row(y), 255, static_cast<std::size_t>(rect.width));
        }
    }
};

// Sixty pictures of 3.7 MP, that is 221 MP.
panoval::bench::Case grid_case(bool vignetting)
{
    const auto reader = std::make_shared<GridReader>(10, 6, 2350, 1567, 450);
    const auto overlaps = std::make_shared<std::vector<Overlap>>(find_overlaps(reader->layout));
    double pixels = 0;
    for (const Overlap& overlap : *overlaps)
        pixels += static_cast<double>(2 * overlap.region.pixels());
    return {"60 of 2350x1567",
            vignetting ? "grid, vignetting" : "grid",
            pixels,
            static_cast<std::size_t>(3 * pixels),
            [reader, overlaps, vignetting] {
                NoProgress progress;
                const GainOptions options{.vignetting = vignetting};
                solve_gains(reader->layout, *overlaps,
                            measure_overlaps(reader->layout, *overlaps, *reader, options, progress), options);
            },
            {}};
}

const panoval::bench::Registration registration([] {
    panoval::bench::add_case("add_gain_row", [] { return sums_case<std::uint8_t, ColumnSums8>(3 * 1000); });
    panoval::bench::add_case("add_gain_row", [] { return sums_case<std::uint16_t, ColumnSums16>(3 * 1000); });
    for (const bool vignetting : {false, true})
        panoval::bench::add_case("measure_gains", [=] { return grid_case(vignetting); });
});

} // namespace
