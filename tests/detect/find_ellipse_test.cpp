// SPDX-License-Identifier: MIT
#include "panoval.h"
#include "tests/reference/find_ellipse.h"
#include "tests/support/buffers.h"
#include "tests/support/failing_heap.h"
#include "tests/support/found_ellipses.h"
#include "tests/support/noise.h"
#include "tests/support/scene.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

namespace
{

using namespace panoval;
using namespace panoval::test;

struct Image {
    int width;
    int height;
    std::vector<std::uint8_t> pixels;
};

Image rendered(const Scene& scene)
{
    return {scene.width, scene.height, render(scene)};
}

Found find(const Image& image, int min_pixels, int max_rms, int divisions)
{
    return find_and_capture(image.pixels, image.width, image.height, min_pixels, max_rms, divisions);
}

testing::AssertionResult equals_twin(const Image& image, int min_pixels, int max_rms, int divisions)
{
    const Found found = find(image, min_pixels, max_rms, divisions);
    const auto twin = reference::find_ellipse(image.pixels, image.width, image.height, min_pixels, max_rms, divisions);
    if (found.printed != twin.printed)
        return testing::AssertionFailure() << "printed\n" << found.printed << "instead of\n" << twin.printed;
    if (found.array_is_null != twin.array_is_null)
        return testing::AssertionFailure() << "one of the two arrays is null";
    if (found.points != twin.points)
        return testing::AssertionFailure()
               << found.points.size() << " outlines, or others than the twin's " << twin.points.size();
    for (std::size_t i = 0; i < found.records.size(); ++i) {
        const auto same = same_bits(fields_of(found.records[i]), fields_of(twin.records[i]));
        if (!same)
            return testing::AssertionFailure() << "record " << i << ", " << same.message();
    }
    return testing::AssertionSuccess();
}

Scene one_disc(double cx, double cy, double radius)
{
    return {.width = 64, .height = 48, .ellipses = {{cx, cy, radius, radius}}};
}

// A white picture.
Image blank(int width, int height, std::uint8_t grey = 255)
{
    return {width, height,
            std::vector<std::uint8_t>(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), grey)};
}

std::uint8_t& pixel(Image& image, int x, int y)
{
    return image
        .pixels[static_cast<std::size_t>(y) * static_cast<std::size_t>(image.width) + static_cast<std::size_t>(x)];
}

// A grey area along the left border, so wide that the threshold takes a small dark shape without its blurred edge.
Image beside_a_grey_area(std::uint8_t grey)
{
    Image image = blank(40, 30);
    for (int y = 0; y < 30; ++y)
        for (int x = 0; x < 14; ++x)
            pixel(image, x, y) = grey;
    return image;
}

TEST(FindEllipse, MeasuresADiscToASixthOfAPixel)
{
    const Found found = find(rendered(one_disc(30.3, 22.6, 12)), 10, 2, 1);
    ASSERT_EQ(found.records.size(), 1u);
    const EllipseRegion& region = found.records[0];
    EXPECT_NEAR(region.cx, 30.3, 1 / 6.0);
    EXPECT_NEAR(region.cy, 22.6, 1 / 6.0);
    EXPECT_NEAR(region.major, 12, 0.5);
    EXPECT_NEAR(region.minor, 12, 0.5);
    EXPECT_GE(region.major, region.minor);
    EXPECT_EQ(region.reserved[0], 0);
    EXPECT_EQ(region.reserved[1], 0);
    EXPECT_EQ(region.pixel_count, region.point_count);
}

TEST(FindEllipse, GivesTheDirectionOfTheMajorAxisFromXTowardsY)
{
    // 3-4-5: 36.87 degrees below the x axis
    const Scene scene{.width = 90, .height = 80, .ellipses = {{44, 40, 30, 15, 4, 3}}};
    const Found found = find(rendered(scene), 10, 2, 1);
    ASSERT_EQ(found.records.size(), 1u);
    EXPECT_NEAR(found.records[0].angle, 0.6435, 0.02);
    EXPECT_NEAR(found.records[0].major, 30, 0.6);
    EXPECT_NEAR(found.records[0].minor, 15, 0.6);
}

TEST(FindEllipse, PointsAreTheOutlineFromItsTopLeftPixelOnClockwise)
{
    const Image image = rendered(one_disc(30, 22, 9));
    const Found found = find(image, 10, 2, 1);
    ASSERT_EQ(found.records.size(), 1u);
    const auto& points = found.points[0];
    EXPECT_EQ(points[0], *std::min_element(points.begin(), points.end()));
    EXPECT_EQ(points[1], points[0] + 1) << "along the top to the right";
    for (std::size_t i = 0; i < points.size(); ++i) {
        const int a = points[i];
        const int b = points[(i + 1) % points.size()];
        EXPECT_LE(std::abs(a % 64 - b % 64), 1);
        EXPECT_LE(std::abs(a / 64 - b / 64), 1);
    }
}

TEST(FindEllipse, ReturnsRecordsInRasterOrderOfTheirFirstPixels)
{
    const Scene scene{
        .width = 120, .height = 90, .ellipses = {{25, 60, 12, 12}, {90, 30, 14, 10}, {60, 62, 9, 9}, {30, 22, 10, 10}}};
    const Found found = find(rendered(scene), 10, 2, 1);
    ASSERT_EQ(found.points.size(), 4u);
    for (std::size_t i = 1; i < 4; ++i)
        EXPECT_LT(found.points[i - 1][0], found.points[i][0]);
}

TEST(FindEllipse, IgnoresOutlinesWithFewerThanMinPixels)
{
    const Image image = rendered(one_disc(30, 22, 9));
    const int count = find(image, 1, 2, 1).records.at(0).pixel_count;
    EXPECT_EQ(find(image, count, 2, 1).records.size(), 1u);
    EXPECT_EQ(find(image, count + 1, 2, 1).records.size(), 0u);
    EXPECT_EQ(find(image, -5, 2, 1).records.size(), 1u);
}

TEST(FindEllipse, CountsAbandonedPixelsOfTheSameLabel)
{
    // In the outer two rows nothing is smoothed, so that a lone dark pixel stays alone.
    Image image = rendered(one_disc(30, 22, 9));
    const EllipseRegion before = find(image, 1, 2, 1).records.at(0);
    pixel(image, 10, 1) = 0;
    pixel(image, 20, 1) = 0;
    const EllipseRegion after = find(image, 1, 2, 1).records.at(0);
    EXPECT_EQ(after.point_count, before.point_count);
    EXPECT_EQ(after.pixel_count, before.pixel_count + 2);
    EXPECT_TRUE(equals_twin(image, before.pixel_count + 2, 2, 1));
}

TEST(FindEllipse, IgnoresAbandonedPixelsAfterTheLastOutline)
{
    Image image = rendered(one_disc(30, 22, 9));
    const EllipseRegion before = find(image, 1, 2, 1).records.at(0);
    pixel(image, 10, 46) = 0;
    const EllipseRegion after = find(image, 1, 2, 1).records.at(0);
    EXPECT_EQ(after.pixel_count, before.pixel_count);
    EXPECT_TRUE(equals_twin(image, 1, 2, 1));
}

TEST(FindEllipse, WithAMaxRmsOf0KeepsNothingAndPrintsEveryResidual)
{
    const Image image = rendered(target_board(320, 240, 4, 3, 5));
    const Found good = find(image, 10, 5, 2);
    ASSERT_EQ(good.records.size(), 12u);
    EXPECT_EQ(good.printed, "");
    std::string lines;
    for (const EllipseRegion& region : good.records) {
        char line[64];
        std::snprintf(line, sizeof line, "rms=%.2f\n", region.rms);
        lines += line;
    }
    const Found none = find(image, 10, 0, 2);
    EXPECT_EQ(none.records.size(), 0u);
    EXPECT_FALSE(none.array_is_null);
    EXPECT_EQ(none.printed, lines);
    EXPECT_EQ(find(image, 10, -3, 2).printed, lines);
}

TEST(FindEllipse, RejectsAndPrintsAResidualThatIsNotANumber)
{
    const Image image{200, 150, picture(Content::Noise, 200, 150, 25000075)};
    const Found found = find(image, 5, 1, 6);
    EXPECT_EQ(std::count(found.printed.begin(), found.printed.end(), '\n'), 1);
    EXPECT_NE(found.printed.find("nan"), std::string::npos) << found.printed;
    for (const EllipseRegion& region : found.records)
        EXPECT_FALSE(std::isnan(region.rms));
    EXPECT_TRUE(equals_twin(image, 5, 1, 6));
}

// The outline of a bar two pixels wide is two lines; the ellipse through both is millions of pixels long, and its
// residuals vanish beside its length.
TEST(FindEllipse, RejectsAndPrintsAResidualThatEqualsMaxRms)
{
    int equal = 0;
    for (int length = 6; length < 16; ++length) {
        Image image = beside_a_grey_area(170);
        for (int y = 6; y < 6 + length; ++y)
            pixel(image, 26, y) = pixel(image, 27, y) = 180;
        const Found kept = find(image, 1, 1, 1);
        if (kept.records.size() != 1 || kept.records[0].rms != 0)
            continue;
        ++equal;
        const Found rejected = find(image, 1, 0, 1);
        EXPECT_EQ(rejected.records.size(), 0u) << length;
        EXPECT_EQ(rejected.printed, "rms=0.00\n") << length;
        EXPECT_TRUE(equals_twin(image, 1, 0, 1)) << length;
    }
    EXPECT_GT(equal, 0);
}

// A dark stroke in white, part of an ellipse that goes on beyond the border.
struct Stroke {
    int width, height; // of the picture
    int left, top;     // of the stroke
    std::vector<std::string> rows;
    bool is_left, is_above; // where the ellipse's centre lies of the picture
};

TEST(FindEllipse, DropsFitsCentredLeftOfOrAboveTheImageWithoutALine)
{
    const std::vector<std::string> upright = {".x", "xx", "xx", "xx", "xx", "xx", "xx", "x."};
    const std::vector<std::string> level = {"xx....", "xxxx..", "..xxxx", "....xx"};
    const std::vector<std::string> slanted = {"xx...........", "..x..........", "...x.........", "....x........",
                                              ".....xx......", ".......x.....", "........x....", ".........x...",
                                              "..........xx.", "............x"};
    for (const Stroke& stroke : {Stroke{16, 15, 6, 4, upright, false, true}, Stroke{18, 22, 8, 15, level, true, false},
                                 Stroke{13, 11, 0, 0, slanted, true, true}}) {
        Image image = blank(stroke.width, stroke.height);
        for (std::size_t y = 0; y < stroke.rows.size(); ++y)
            for (std::size_t x = 0; x < stroke.rows[y].size(); ++x)
                if (stroke.rows[y][x] == 'x')
                    pixel(image, stroke.left + static_cast<int>(x), stroke.top + static_cast<int>(y)) = 0;
        const auto fits = reference::find_ellipse(image.pixels, image.width, image.height, 0, 1000, 3).fits;
        ASSERT_EQ(fits.size(), 1u);
        EXPECT_EQ(fits[0].x0 < 0, stroke.is_left);
        EXPECT_EQ(fits[0].y0 < 0, stroke.is_above);
        const Found found = find(image, 0, 0, 3);
        EXPECT_EQ(found.printed, "") << "no residual is looked at";
        EXPECT_EQ(find(image, 0, 1000, 3).records.size(), 0u);
        EXPECT_TRUE(equals_twin(image, 0, 1000, 3));
    }
}

TEST(FindEllipse, KeepsAFitCentredInTheFirstRow)
{
    const std::vector<std::string> stroke = {"xx.....", ".xx....", "..xx...", "...x...",
                                             "....xx.", ".....xx", ".....x."};
    Image image = blank(15, 16);
    for (std::size_t y = 0; y < stroke.size(); ++y)
        for (std::size_t x = 0; x < stroke[y].size(); ++x)
            if (stroke[y][x] == 'x')
                pixel(image, 4 + static_cast<int>(x), 4 + static_cast<int>(y)) = 0;
    const Found found = find(image, 0, 1000, 3);
    ASSERT_EQ(found.records.size(), 1u);
    EXPECT_GT(found.records[0].cy, 0);
    EXPECT_LT(found.records[0].cy, 1);
    EXPECT_TRUE(equals_twin(image, 0, 1000, 3));
}

TEST(FindEllipse, DropsAnOutlineOfOneRow)
{
    for (const bool is_transposed : {false, true}) {
        Image image = beside_a_grey_area(185);
        pixel(image, 26, 15) = 0;
        pixel(image, is_transposed ? 26 : 27, is_transposed ? 16 : 15) = 0;
        const auto traced = reference::find_ellipse(image.pixels, 40, 30, 1, 1000, 1).traced;
        const std::vector<std::int32_t> pair = {15 * 40 + 26, is_transposed ? 16 * 40 + 26 : 15 * 40 + 27};
        EXPECT_EQ(std::count(traced.begin(), traced.end(), pair), 1) << "there is such an outline";
        const Found found = find(image, 1, 1000, 1);
        EXPECT_EQ(found.records.size(), 0u);
        EXPECT_EQ(found.printed, "");
        EXPECT_FALSE(found.array_is_null);
        EXPECT_TRUE(equals_twin(image, 1, 1000, 1));
    }
}

TEST(FindEllipse, DropsShapesWithin3PixelsOfTheBorder)
{
    // A dark rectangle: whether it is kept depends on its place alone.
    for (const auto& [width, height] : {std::pair{40, 30}, {41, 33}}) {
        for (int left = 0; left < 8; ++left)
            for (int side = 0; side < 4; ++side) {
                Image image = blank(width, height);
                const int x0 = side == 0 ? left : side == 1 ? width - 12 - left : 14;
                const int y0 = side == 2 ? left : side == 3 ? height - 12 - left : 9;
                for (int y = 0; y < 12; ++y)
                    for (int x = 0; x < 12; ++x)
                        pixel(image, x0 + x, y0 + y) = 20;
                const Found found = find(image, 1, 1000, 1);
                EXPECT_EQ(found.records.size(), left >= 3 ? 1u : 0u) << "side " << side << ", " << left;
                EXPECT_EQ(found.printed, "");
            }
    }
}

TEST(FindEllipse, DropsShapesTenTimesLongerThanWide)
{
    const auto count_of = [](int width, int height) {
        Image image = blank(120, 120);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                pixel(image, 10 + x, 10 + y) = 20;
        const Found found = find(image, 1, 1000, 1);
        EXPECT_TRUE(equals_twin(image, 1, 1000, 1));
        return found.records.size() + found.printed.size();
    };
    EXPECT_GT(count_of(60, 7), 0u); // 59 / 6
    EXPECT_GT(count_of(7, 60), 0u);
    EXPECT_EQ(count_of(61, 7), 0u); // 60 / 6: exactly ten
    EXPECT_EQ(count_of(7, 61), 0u); // exactly a tenth
    EXPECT_EQ(count_of(80, 7), 0u);
}

TEST(FindEllipse, FindsNothingInEvenPictures)
{
    for (const int grey : {0, 1, 128, 185, 254, 255}) {
        const Image image = blank(50, 40, static_cast<std::uint8_t>(grey));
        const Found found = find(image, 1, 1000, 3);
        EXPECT_EQ(found.records.size(), 0u);
        EXPECT_TRUE(equals_twin(image, 1, 1000, 3)) << "grey " << grey;
    }
    EXPECT_TRUE(find(blank(50, 40), 1, 1000, 1).array_is_null);
}

TEST(FindEllipse, ReturnsAnArrayWithoutRecordsWhenEveryOutlineIsAbandoned)
{
    Image image = blank(30, 20);
    pixel(image, 1, 1) = 0;
    const Found found = find(image, 0, 1000, 1);
    EXPECT_EQ(found.records.size(), 0u);
    EXPECT_FALSE(found.array_is_null);
}

TEST(FindEllipse, FindsNothingInAnImageWithoutInterior)
{
    for (const auto& [width, height] : {std::pair{1, 1}, {2, 2}, {2, 9}, {9, 2}, {1, 9}, {9, 1}}) {
        const auto pixels = noise<std::uint8_t>(static_cast<std::size_t>(width * height), 0, 255, 3);
        const Found found = find({width, height, pixels}, 0, 1000, 1);
        EXPECT_EQ(found.records.size(), 0u);
        EXPECT_TRUE(found.array_is_null);
    }
}

TEST(FindEllipse, FindsTheHoleOfARingAsAnOutlineOfItsOwn)
{
    const Scene scene{.width = 80, .height = 80, .ellipses = {{40, 40, 25, 25}, {40, 40, 12, 12, 1, 0, 200}}};
    const Found found = find(rendered(scene), 10, 2, 1);
    ASSERT_EQ(found.records.size(), 2u);
    EXPECT_NEAR(found.records[0].major, 25, 1);
    EXPECT_NEAR(found.records[1].major, 12, 1.5);
}

TEST(FindEllipse, IgnoresBrightShapes)
{
    const Scene scene{.width = 80, .height = 80, .ellipses = {{40, 40, 25, 25, 1, 0, 250}}, .background = 30};
    for (const EllipseRegion& region : find(rendered(scene), 10, 2, 1).records)
        EXPECT_LT(region.major, 27) << "only the hole in the dark";
    EXPECT_TRUE(equals_twin(rendered(scene), 10, 2, 1));
}

TEST(FindEllipse, EqualsItsTwinOnBoards)
{
    for_each_target([] {
        for (int seed = 0; seed < 6; ++seed) {
            const auto board =
                target_board(260 + seed, 190 - seed, 2 + seed, 2 + seed % 3, static_cast<std::uint64_t>(seed));
            ASSERT_TRUE(equals_twin(rendered(board), 8, 2, 1 + seed * 2)) << "seed " << seed;
        }
    });
}

TEST(FindEllipse, EqualsItsTwinOnOverlappingShapesOfEveryPlaceAndKind)
{
    for (int seed = 0; seed < 60; ++seed) {
        Random random(static_cast<std::uint64_t>(seed));
        Scene scene{.width = static_cast<int>(random.integer(20, 120)),
                    .height = static_cast<int>(random.integer(20, 120)),
                    .ellipses = {},
                    .samples = 2,
                    .blur_passes = seed % 3,
                    .light_x = random.real(-0.5, 0.5),
                    .noise_sigma = random.real(0, 12),
                    .seed = static_cast<std::uint64_t>(seed)};
        for (int n = 0; n < 12; ++n) {
            const double major = random.real(1, 20);
            scene.ellipses.push_back({.cx = random.real(-5, scene.width + 5),
                                      .cy = random.real(-5, scene.height + 5),
                                      .semi_major = major,
                                      .semi_minor = major * random.real(0.1, 1),
                                      .ux = random.real(-1, 1),
                                      .uy = random.real(-1, 1),
                                      .grey = random.real(0, 230)});
        }
        ASSERT_TRUE(equals_twin(rendered(scene), 5, 3, 1 + seed % 9)) << "seed " << seed;
    }
}

TEST(FindEllipse, EqualsItsTwinOnAllContentsAndDivisions)
{
    for (const Content content : kAllContents)
        for (const int divisions : {1, 2, 7, 19}) {
            const Image image{83, 61, picture(content, 83, 61, 11)};
            ASSERT_TRUE(equals_twin(image, 1, 1, divisions)) << name_of(content) << ", " << divisions;
        }
}

TEST(FindEllipse, EqualsItsTwinOnSmallNoise)
{
    for (int width = 3; width < 24; ++width)
        for (int height = 3; height < 24; height += 2) {
            const auto seed = static_cast<std::uint64_t>(width * 100 + height);
            const Image image{width, height, picture(Content::Noise, width, height, seed)};
            ASSERT_TRUE(equals_twin(image, 0, 100, 1 + width % 3)) << width << " x " << height;
        }
}

TEST(FindEllipse, FindsTheSameOutlineInAMirroredPicture)
{
    // Left and right change places; tracing starts elsewhere, but the outline's pixels are the same.
    const Image image = rendered(one_disc(30, 22, 9));
    Image mirrored = image;
    for (int y = 0; y < image.height; ++y)
        std::reverse(mirrored.pixels.begin() + y * 64, mirrored.pixels.begin() + (y + 1) * 64);
    auto points = find(image, 1, 2, 1).points.at(0);
    auto others = find(mirrored, 1, 2, 1).points.at(0);
    for (std::int32_t& point : others)
        point = point / 64 * 64 + 63 - point % 64;
    std::sort(points.begin(), points.end());
    std::sort(others.begin(), others.end());
    EXPECT_EQ(points, others);
}

TEST(FindEllipse, WithoutMemoryReturns0AndLeavesNothingBehind)
{
    const Image image = rendered(target_board(320, 240, 5, 4, 2));
    std::size_t most = 0;
    for_each_failing_allocation([&](const FailingHeap& heap) {
        EllipseRegion* regions = reinterpret_cast<EllipseRegion*>(std::uintptr_t{16});
        const int count = find_ellipse(image.pixels.data(), image.width, image.height, &regions, 5, 1000, 3);
        if (heap.has_failed()) {
            EXPECT_EQ(count, 0);
            EXPECT_EQ(regions, nullptr);
        } else {
            EXPECT_EQ(count, 20);
        }
        for (int i = 0; i < count; ++i)
            std::free(regions[i].points);
        std::free(regions);
        EXPECT_EQ(heap.live_blocks(), 0);
        most = std::max(most, heap.allocations());
    });
    EXPECT_GT(most, 20u); // a block of points for each record, at least
}

TEST(FindEllipse, NeedsAtMostEightBytesAPixelBesidesItsResults)
{
    for (const Content content : {Content::Flat, Content::Photograph, Content::Noise}) {
        const int width = 1000;
        const int height = 750;
        const Image image = content == Content::Flat ? rendered(target_board(width, height, 10, 6, 1))
                                                     : Image{width, height, picture(content, width, height, 1)};
        const FailingHeap heap;
        EllipseRegion* regions = nullptr;
        const int count = find_ellipse(image.pixels.data(), width, height, &regions, 20, 1000, 4);
        std::size_t results = static_cast<std::size_t>(count) * sizeof(EllipseRegion);
        for (int i = 0; i < count; ++i) {
            results += static_cast<std::size_t>(regions[i].point_count) * sizeof(std::int32_t);
            std::free(regions[i].points);
        }
        std::free(regions);
        EXPECT_TRUE(count > 0 || content != Content::Flat) << "the board";
        EXPECT_LE(heap.peak_bytes(), results + std::size_t{8} * 1000 * 750) << name_of(content);
    }
}

} // namespace
