// SPDX-License-Identifier: MIT
// The canvas in strips: what they cover, what they take, and that nobody sees them in the panorama.
#include "cli/canvas_pages.h"
#include "cli/canvas_strips.h"
#include "cli/panorama_blender.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <tuple>
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

    // Pictures of any size from one pixel on, anywhere, but often with an edge near one of the strips' borders.
    PanoramaPlan plan(std::int32_t width, std::int32_t height, int channels, int bands, std::size_t strips)
    {
        PanoramaPlan plan = canvas(width, height, channels);
        const auto borders = cut_canvas(plan, bands, strips);
        for (std::int32_t i = number(1, 5); i > 0; --i) {
            const std::int32_t border = borders[static_cast<std::size_t>(i) % borders.size()].first_kept;
            const std::int32_t near = std::clamp(border + number(-(4 << bands), 4 << bands), 1, height - 1);
            std::int32_t top = number(0, height - 1);
            std::int32_t end = number(top + 1, height);
            if (i % 3 == 0)
                std::tie(top, end) = std::pair(near, number(near + 1, height));
            else if (i % 3 == 1)
                std::tie(top, end) = std::pair(number(0, near - 1), near);
            const std::int32_t left = number(0, width - 1);
            add_layer(plan, {left, top}, number(1, width - left), end - top);
        }
        return plan;
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

Image blend_strip(const PanoramaPlan& plan, const CanvasStrip& strip, int bands, const std::vector<Image>& images)
{
    const auto blender = make_multi_band_blender(plan, strip, bands, "test");
    for (std::size_t i = 0; i < images.size(); ++i)
        blender->feed(plan.layers[i], images[i]);
    return blender->blend(8);
}

TEST(CanvasStrips, AreTheCanvasOnceAndOverlap)
{
    const PanoramaPlan plan = canvas(300, 1001, 3);
    const auto strips = cut_canvas(plan, 3, 4);
    ASSERT_EQ(strips.size(), 4u);
    std::int32_t next = 0;
    for (const CanvasStrip& strip : strips) {
        EXPECT_EQ(strip.first_kept, next);
        EXPECT_EQ(strip.rows(), next < 700 ? 304 : 281) << "the last one may have fewer rows, never more";
        EXPECT_EQ(strip.first, std::max(strip.first_kept - 32, 0));
        EXPECT_EQ(strip.end, std::min(strip.end_kept + 32, 1001));
        EXPECT_EQ(strip.first % 8, 0);
        next = strip.end_kept;
    }
    EXPECT_EQ(next, 1001);
}

TEST(CanvasStrips, OverlapByMoreWhereAPictureBeginsOrEnds)
{
    PanoramaPlan plan = canvas(300, 1000, 3);
    ASSERT_EQ(cut_canvas(plan, 3, 2)[0].end_kept, 504);
    add_layer(plan, {0, 536}, 300, 464);
    EXPECT_EQ(cut_canvas(plan, 3, 2)[0].end, 504 + 64);
    EXPECT_EQ(cut_canvas(plan, 3, 2)[1].first, 504 - 32);
    plan.layers.clear();
    add_layer(plan, {0, 0}, 300, 480);
    EXPECT_EQ(cut_canvas(plan, 3, 2)[0].end, 504 + 32);
    EXPECT_EQ(cut_canvas(plan, 3, 2)[1].first, 504 - 64);
}

TEST(CanvasStrips, AreFewerWhereTheCanvasIsLow)
{
    EXPECT_EQ(cut_canvas(canvas(300, 191, 3), 3, 9).size(), 1u);
    EXPECT_EQ(cut_canvas(canvas(300, 192, 3), 3, 9).size(), 2u);
    EXPECT_EQ(cut_canvas(canvas(9000, 1, 3), 1, 9).size(), 1u);
    EXPECT_EQ(cut_canvas(canvas(300, 5000, 3), 40, 9).size(), 1u);
}

TEST(CanvasStrips, AreAsFewAsTheBudgetAllows)
{
    const PanoramaPlan plan = canvas(4500, 2000, 3);
    const std::uint64_t pixels = 4500 * 2000;
    EXPECT_EQ(strips_within_budget(plan, 5, 8, 0, 1).size(), 2u) << "what it gives does not fit beside all of it";
    EXPECT_GT(strips_within_budget(plan, 5, 8, 13 * pixels, 1).size(), 2u);
    EXPECT_TRUE(strips_within_budget(plan, 5, 8, 30 * pixels, 1).empty());
    const auto strips = strips_within_budget(plan, 5, 8, 5 * pixels, 2);
    EXPECT_EQ(strips.size(), 4u);
    EXPECT_LE(2 * multi_band_bytes(plan, strips[1].rows()) + 5 * pixels, memory_budget(plan));
    EXPECT_LE(memory_budget(plan), 24 * pixels);
}

TEST(CanvasStrips, AreAsManyAsAreBlendedAtOnceWhereTheCanvasIsHighEnough)
{
    const PanoramaPlan grey = canvas(4500, 2000, 1);
    EXPECT_EQ(strips_within_budget(grey, 3, 8, 0, 1).size(), 2u);
    EXPECT_EQ(strips_within_budget(grey, 3, 8, 0, 2).size(), 3u) << "two of two would take more than the whole";
}

TEST(CanvasStrips, BlendToTheSamePanorama)
{
    Layouts layouts(1);
    for (int round = 0; round < 100; ++round) {
        const int bands = layouts.number(1, 3);
        const std::int32_t height = layouts.number(24 << bands, 90 << bands);
        const auto most = static_cast<std::size_t>(layouts.number(2, 7));
        const PanoramaPlan plan = layouts.plan(layouts.number(20, 70), height, round % 3 == 0 ? 1 : 3, bands, most);
        std::vector<Image> images;
        for (const PlacedLayer& layer : plan.layers)
            images.push_back(layouts.picture(layer));
        const Image whole = blend_strip(plan, cut_canvas(plan, bands, 1)[0], bands, images);
        const auto strips = cut_canvas(plan, bands, most);
        ASSERT_GT(strips.size(), 1u);
        for (const CanvasStrip& strip : strips) {
            const Image part = blend_strip(plan, strip, bands, images);
            for (std::int32_t y = strip.first_kept; y < strip.end_kept; ++y)
                ASSERT_EQ(std::memcmp(part.row(y - strip.first), whole.row(y), whole.row_bytes()), 0)
                    << "round " << round << ", " << bands << " bands, row " << y;
        }
    }
}

TEST(CanvasPages, AreLeftAloneWhereTheCanvasIsEmpty)
{
    PanoramaPlan plan = canvas(1000, 500, 3);
    EXPECT_EQ(covered_columns(plan, 0, 500), 0);
    add_layer(plan, {600, 0}, 300, 100);
    add_layer(plan, {0, 50}, 400, 450);
    add_layer(plan, {300, 90}, 350, 10);
    add_layer(plan, {310, 90}, 20, 10);
    EXPECT_EQ(covered_columns(plan, 0, 50), 300);
    EXPECT_EQ(covered_columns(plan, 0, 51), 700);
    EXPECT_EQ(covered_columns(plan, 80, 95), 900);
    EXPECT_EQ(covered_columns(plan, 100, 110), 400);
    EXPECT_EQ(covered_columns(plan, 500, 510), 0);
}

} // namespace

} // namespace panoval::cli::test
