// SPDX-License-Identifier: MIT
// The canvas in tiles: what they cover, what they take, and that nobody sees them in the panorama.
#include "cli/stitch/canvas_pages.h"
#include "cli/stitch/canvas_tiles.h"
#include "cli/stitch/panorama_blender.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <utility>

namespace panoval::cli::test
{

namespace
{

PanoramaPlan canvas(std::int32_t width, std::int32_t height, int channels)
{
    PanoramaPlan plan;
    plan.width = width;
    plan.height = height;
    plan.channels = channels;
    plan.bits = 8;
    return plan;
}

void add_layer(PanoramaPlan& plan, Point corner, std::int32_t width, std::int32_t height)
{
    PlacedLayer layer;
    layer.corner = corner;
    layer.info.width = width;
    layer.info.height = height;
    layer.info.channels = plan.channels;
    layer.info.bits = 8;
    plan.layers.push_back(layer);
}

class Layouts
{
public:
    explicit Layouts(unsigned seed) : random_(seed) {}

    std::int32_t number(std::int32_t least, std::int32_t most)
    {
        return std::uniform_int_distribution<std::int32_t>(least, most)(random_);
    }

    // Pictures of any size from one pixel on, anywhere, but often with an edge near a border between tiles, and often
    // up to the end of the canvas.
    PanoramaPlan plan(std::int32_t width, std::int32_t height, int channels, int bands, std::size_t most)
    {
        PanoramaPlan plan = canvas(width, height, channels);
        const CanvasGrid grid = cut_canvas(plan, bands, most, most);
        for (std::int32_t i = number(1, 5); i > 0; --i) {
            const auto [left, right] = interval(width, grid.columns, 4 << bands);
            const auto [top, bottom] = interval(height, grid.rows, 4 << bands);
            add_layer(plan, {left, top}, right - left, bottom - top);
        }
        return plan;
    }

    std::pair<std::int32_t, std::int32_t> interval(std::int32_t length, const std::vector<CanvasSpan>& spans,
                                                   std::int32_t reach)
    {
        const std::int32_t border =
            spans[static_cast<std::size_t>(number(0, static_cast<std::int32_t>(spans.size()) - 1))].first_kept;
        const std::int32_t near = std::clamp(border + number(-reach, reach), 1, length - 1);
        const std::int32_t first = number(0, length - 1);
        switch (number(0, 3)) {
        case 0:
            return {near, number(near + 1, length)};
        case 1:
            return {number(0, near - 1), near};
        case 2:
            return {first, length};
        default:
            return {first, number(first + 1, length)};
        }
    }

    // Noise, with parts of the mask empty, full and grey.
    Image picture(const PlacedLayer& layer)
    {
        Image image = make_image(layer.info.width, layer.info.height, layer.info.channels, 8, "test");
        ensure_mask(image, "test");
        for (std::size_t i = 0; i < image.bytes(); ++i)
            image.data[i] = static_cast<std::uint8_t>(number(0, 255));
        const std::int32_t kind = number(0, 3);
        for (std::size_t i = 0; kind != 0 && i < image.pixels(); ++i)
            image.mask[i] = static_cast<std::uint8_t>(kind == 1 ? number(0, 255) : number(0, 3) == 0 ? 0 : 255);
        return image;
    }

private:
    std::mt19937 random_;
};

Image blend_tile(const PanoramaPlan& plan, const CanvasTile& tile, int bands, const std::vector<Image>& images)
{
    const auto blender = make_multi_band_blender(plan, tile, bands, "test");
    for (std::size_t i = 0; i < images.size(); ++i)
        blender->feed(plan.layers[i], images[i]);
    return blender->blend(8);
}

// The library's blender of a tile after all pictures. Its sums show what rounding hides in the panorama.
class Sums
{
public:
    Sums(const PanoramaPlan& plan, const CanvasTile& tile, int bands, const std::vector<Image>& images) : tile_(tile)
    {
        Roi canvas = {tile.columns.first, tile.rows.first, tile.columns.length(), tile.rows.length()};
        multi_band_blender_setbands(&blender_, bands);
        multi_band_blender_prepare(&blender_, plan.channels, &canvas);
        for (std::size_t i = 0; i < images.size(); ++i) {
            const Mat mat = borrow_mat(images[i]);
            const Matb mask = borrow_mask(images[i]);
            multi_band_blender_feed(&blender_, &mat, &mask, plan.layers[i].corner);
        }
    }
    Sums(const Sums&) = delete;
    Sums& operator=(const Sums&) = delete;
    ~Sums() { multi_band_blender_blend(&blender_, nullptr, 0); }

    // The sums and weights from which the pixels that the tile keeps are made, in all levels: those of each level less
    // than two of its pixels away. Returns how many pixels were the same in the whole canvas, or less than 0.
    int count_same(const Sums& whole) const
    {
        int same = 0;
        for (std::int32_t level = 0; level <= blender_.numBands; ++level) {
            const auto [top, bottom] = seen(tile_.rows, level, whole.blender_.dstRoi.height);
            const auto [left, right] = seen(tile_.columns, level, whole.blender_.dstRoi.width);
            for (std::int32_t y = top; y < bottom; ++y)
                for (std::int32_t x = left; x < right; ++x, ++same)
                    if (!is_same(blender_.dstPyrLaplace[level], whole.blender_.dstPyrLaplace[level], level, x, y) ||
                        !is_same(blender_.dstBandWeights[level], whole.blender_.dstBandWeights[level], level, x, y))
                        return -1;
        }
        return same;
    }

private:
    static std::pair<std::int32_t, std::int32_t> seen(const CanvasSpan& span, std::int32_t level, std::int32_t length)
    {
        const std::int32_t first = (span.first_kept >> level) - 1;
        const std::int32_t end = ((span.end_kept - 1) >> level) + 3;
        return {std::max(first, 0), std::min(end, length >> level)};
    }

    bool is_same(const Matf& part, const Matf& whole, std::int32_t level, std::int32_t x, std::int32_t y) const
    {
        const std::int32_t part_x = x - (tile_.columns.first >> level);
        const std::int32_t part_y = y - (tile_.rows.first >> level);
        const float* const pixel = part.data + (part_y * part.width + part_x) * part.channels;
        return std::equal(pixel, pixel + part.channels, whole.data + (y * whole.width + x) * whole.channels);
    }

    CanvasTile tile_;
    MultiBandBlender blender_{};
};

// One after the other they are the whole length, and each sees so much of its neighbours.
void expect_to_overlap(const std::vector<CanvasSpan>& spans, std::int32_t length, std::int32_t before,
                       std::int32_t after)
{
    std::int32_t next = 0;
    for (const CanvasSpan& span : spans) {
        EXPECT_EQ(span.first_kept, next);
        EXPECT_EQ(span.first, std::max(span.first_kept - before, 0));
        EXPECT_EQ(span.end, std::min(span.end_kept + after, length));
        EXPECT_EQ(span.first % 8, 0);
        next = span.end_kept;
    }
    EXPECT_EQ(next, length);
}

TEST(CanvasTiles, AreTheCanvasOnceAndOverlap)
{
    const PanoramaPlan plan = canvas(700, 1001, 3);
    const CanvasGrid grid = cut_canvas(plan, 3, 3, 4);
    ASSERT_EQ(grid.columns.size(), 3u);
    ASSERT_EQ(grid.rows.size(), 4u);
    EXPECT_EQ(grid.size(), 12u);
    expect_to_overlap(grid.columns, 700, 32, 40);
    expect_to_overlap(grid.rows, 1001, 32, 32);
    for (const CanvasSpan& rows : grid.rows)
        EXPECT_NEAR(rows.length(), 298, 8);
    for (const CanvasSpan& columns : grid.columns)
        EXPECT_NEAR(columns.length(), 276, 16);
    EXPECT_EQ(grid.tile(5).columns.first_kept, grid.columns[2].first_kept);
    EXPECT_EQ(grid.tile(5).rows.first_kept, grid.rows[1].first_kept);
}

TEST(CanvasTiles, OverlapByMoreWhereAPictureBeginsOrEnds)
{
    PanoramaPlan plan = canvas(300, 1000, 3);
    const auto rows = [&] { return cut_canvas(plan, 3, 1, 2).rows; };
    ASSERT_EQ(rows()[0].end_kept, 504);
    add_layer(plan, {0, 536}, 300, 464);
    EXPECT_EQ(rows()[0].end, 504 + 64);
    EXPECT_EQ(rows()[1].first, 504 - 32);
    plan.layers.clear();
    add_layer(plan, {0, 0}, 300, 480);
    EXPECT_EQ(rows()[0].end, 504 + 32);
    EXPECT_EQ(rows()[1].first, 504 - 64);
}

// Rows are summed four samples at a time, and what remains of them at a picture's end in another order.
TEST(CanvasTiles, BeginWhereRowsThatEndInThemGoOnInFours)
{
    PanoramaPlan plan = canvas(1001, 300, 3);
    const auto columns = [&] { return cut_canvas(plan, 3, 2, 1).columns; };
    add_layer(plan, {101, 0}, 900, 300); // with its margin from 72 on
    ASSERT_EQ(columns().size(), 2u);
    EXPECT_EQ((columns()[1].first - 72) % 32, 0);
    EXPECT_NEAR(columns()[1].first_kept, 501, 20);
    add_layer(plan, {0, 0}, 500, 300); // ends before the tile does, too
    ASSERT_EQ(columns().size(), 2u);
    const std::int32_t begin_before_it = columns()[1].first;
    EXPECT_GE(begin_before_it, 500) << "where it plays no part";
    add_layer(plan, {0, 0}, 900, 300);
    EXPECT_EQ(columns().size(), 1u) << "72 and 0 cannot go together";
}

TEST(CanvasTiles, AreFewerWhereTheCanvasIsSmall)
{
    const auto rows = [](std::int32_t width, std::int32_t height, int bands) {
        return cut_canvas(canvas(width, height, 3), bands, 9, 9).rows.size();
    };
    const auto columns = [](std::int32_t width, std::int32_t height, int bands) {
        return cut_canvas(canvas(width, height, 3), bands, 9, 9).columns.size();
    };
    EXPECT_EQ(rows(300, 191, 3), 1u);
    EXPECT_EQ(rows(300, 192, 3), 2u);
    EXPECT_EQ(columns(191, 191, 3), 1u);
    EXPECT_EQ(columns(192, 191, 3), 2u);
    EXPECT_EQ(rows(9000, 1, 1), 1u);
    EXPECT_EQ(columns(9000, 1, 1), 9u);
    EXPECT_EQ(columns(1, 9000, 1), 1u);
    EXPECT_EQ(rows(5000, 5000, 40) * columns(5000, 5000, 40), 1u);
}

TEST(CanvasTiles, AllKeepSomethingHoweverManyThereAre)
{
    for (std::int32_t length = 1; length < 1500; ++length) {
        const PanoramaPlan plan = canvas(length, length, 1);
        const CanvasGrid grid = cut_canvas(plan, 2, 16, 16);
        for (const auto& spans : {grid.columns, grid.rows})
            for (const CanvasSpan& span : spans) {
                ASSERT_GT(span.kept(), 0) << length;
                ASSERT_LE(span.first, span.first_kept);
                ASSERT_GE(span.end, span.end_kept);
                ASSERT_LE(span.end, length);
            }
    }
}

TEST(CanvasTiles, FitTheBudget)
{
    const PanoramaPlan plan = canvas(4500, 2000, 3);
    const std::uint64_t pixels = 4500 * 2000;
    EXPECT_LE(memory_budget(plan), 24 * pixels);
    EXPECT_FALSE(grid_within_budget(plan, 5, 8, 30 * pixels, 1));
    std::uint64_t most_before = pixels;
    for (const std::uint64_t other : {5 * pixels, 12 * pixels, 17 * pixels}) {
        const auto grid = grid_within_budget(plan, 5, 8, other, 2);
        ASSERT_TRUE(grid);
        EXPECT_LE(2 * multi_band_bytes(plan, grid->most_pixels()) + other, memory_budget(plan));
        EXPECT_LE(grid->most_pixels(), most_before) << "smaller tiles where more is taken";
        most_before = grid->most_pixels();
    }
}

TEST(CanvasTiles, AreSmallAndFew)
{
    const PanoramaPlan plan = canvas(4500, 2000, 3);
    const auto grid = grid_within_budget(plan, 5, 8, 45000000, 2);
    ASSERT_TRUE(grid);
    EXPECT_EQ(grid->size() % 2, 0u) << "the last one would be blended while nothing else is";
    EXPECT_LE(2 * grid->most_pixels(), 4500u * 2000u / 3) << "at work at once";
    std::uint64_t blended = 0;
    for (std::size_t i = 0; i < grid->size(); ++i)
        blended += grid->tile(i).pixels();
    EXPECT_LE(blended, 4500u * 2000u * 3 / 2) << "overlaps included";
}

TEST(CanvasTiles, BlendToTheSamePanorama)
{
    Layouts layouts(1);
    std::size_t most_columns = 1;
    for (int round = 0; round < 150; ++round) {
        const int bands = layouts.number(1, 3);
        const std::int32_t width = layouts.number(10 << bands, 90 << bands);
        const std::int32_t height = layouts.number(24 << bands, 60 << bands);
        const auto most = static_cast<std::size_t>(layouts.number(2, 6));
        const PanoramaPlan plan = layouts.plan(width, height, round % 3 == 0 ? 1 : 3, bands, most);
        std::vector<Image> images;
        for (const PlacedLayer& layer : plan.layers)
            images.push_back(layouts.picture(layer));
        const Image whole = blend_tile(plan, cut_canvas(plan, bands, 1, 1).tile(0), bands, images);
        const CanvasGrid grid = cut_canvas(plan, bands, most, most);
        ASSERT_GT(grid.size(), 1u);
        most_columns = std::max(most_columns, grid.columns.size());
        for (std::size_t i = 0; i < grid.size(); ++i) {
            const CanvasTile tile = grid.tile(i);
            const Image part = blend_tile(plan, tile, bands, images);
            const auto pixel_bytes = static_cast<std::size_t>(plan.channels);
            for (std::int32_t y = tile.rows.first_kept; y < tile.rows.end_kept; ++y)
                ASSERT_EQ(std::memcmp(part.row(y - tile.rows.first) +
                                          static_cast<std::size_t>(tile.columns.first_kept - tile.columns.first) *
                                              pixel_bytes,
                                      whole.row(y) + static_cast<std::size_t>(tile.columns.first_kept) * pixel_bytes,
                                      static_cast<std::size_t>(tile.columns.kept()) * pixel_bytes),
                          0)
                    << "round " << round << ", " << bands << " bands, tile " << i << ", row " << y;
        }
    }
    EXPECT_GE(most_columns, 4u);
}

TEST(CanvasTiles, HoldTheSameSums)
{
    Layouts layouts(2);
    int same = 0;
    for (int round = 0; round < 100; ++round) {
        const int bands = layouts.number(1, 3);
        const std::int32_t width = layouts.number(30 << bands, 90 << bands);
        const std::int32_t height = layouts.number(12 << bands, 40 << bands);
        const PanoramaPlan plan = layouts.plan(width, height, round % 4 == 0 ? 1 : 3, bands, 4);
        std::vector<Image> images;
        for (const PlacedLayer& layer : plan.layers)
            images.push_back(layouts.picture(layer));
        const Sums whole(plan, cut_canvas(plan, bands, 1, 1).tile(0), bands, images);
        const CanvasGrid grid = cut_canvas(plan, bands, 4, 3);
        for (std::size_t i = 0; i < grid.size(); ++i) {
            const int count = Sums(plan, grid.tile(i), bands, images).count_same(whole);
            ASSERT_GT(count, 0) << "round " << round << ", tile " << i;
            same += grid.columns.size() > 1 ? count : 0;
        }
    }
    EXPECT_GT(same, 1000000);
}

TEST(PanoramaBlender, TakesPicturesThatCoverNothing)
{
    PanoramaPlan plan = canvas(100, 70, 3);
    add_layer(plan, {0, 0}, 100, 70);
    std::vector<Image> images;
    images.push_back(make_image(100, 70, 3, 8, "test"));
    std::memset(images[0].data.get(), 100, images[0].bytes());
    ensure_mask(images[0], "test");
    const auto brightest = [&] {
        const Image blended = blend_tile(plan, cut_canvas(plan, 3, 1, 1).tile(0), 3, images);
        return *std::max_element(blended.data.get(), blended.data.get() + blended.bytes());
    };
    EXPECT_NEAR(brightest(), 100, 1);
    std::memset(images[0].mask.get(), 0, images[0].pixels());
    EXPECT_EQ(brightest(), 0);
}

TEST(CanvasPages, AreLeftAloneWhereTheCanvasIsEmpty)
{
    PanoramaPlan plan = canvas(1000, 500, 3);
    const auto covered = [&plan](std::int64_t first, std::int64_t end) {
        return covered_columns(plan, {0, 1000, 0, 1000}, first, end);
    };
    EXPECT_EQ(covered(0, 500), 0);
    add_layer(plan, {600, 0}, 300, 100);
    add_layer(plan, {0, 50}, 400, 450);
    add_layer(plan, {300, 90}, 350, 10);
    add_layer(plan, {310, 90}, 20, 10);
    EXPECT_EQ(covered(0, 50), 300);
    EXPECT_EQ(covered(0, 51), 700);
    EXPECT_EQ(covered(80, 95), 900);
    EXPECT_EQ(covered(100, 110), 400);
    EXPECT_EQ(covered(500, 510), 0);
    EXPECT_EQ(covered_columns(plan, {350, 620, 350, 620}, 80, 95), 270);
    EXPECT_EQ(covered_columns(plan, {350, 620, 350, 620}, 0, 51), 70);
}

} // namespace

} // namespace panoval::cli::test
