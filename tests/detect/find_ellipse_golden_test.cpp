// SPDX-License-Identifier: MIT
// Whole scenes with every record pinned to the last bit. Axes, angle and rms pass through the arctangent, sine and
// cosine of the C runtime, whose last bit differs between systems: there they are pinned with glibc, and elsewhere to a
// millionth of a millionth.
#include "tests/support/found_ellipses.h"
#include "tests/support/golden.h"
#include "tests/support/scene.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace
{

using namespace panoval::test;

#ifdef __GLIBC__
constexpr double kRuntimeTolerance = 0;
#else
constexpr double kRuntimeTolerance = 1e-12;
#endif

testing::AssertionResult equals(const char* name, const std::string& text)
{
    return equals_golden(name, text, {{"major", "minor", "angle", "rms"}, kRuntimeTolerance});
}

std::string hash_of(const void* bytes, std::size_t count)
{
    std::uint64_t hash = 0xCBF29CE484222325u; // FNV-1a
    for (std::size_t i = 0; i < count; ++i)
        hash = (hash ^ static_cast<const std::uint8_t*>(bytes)[i]) * 0x100000001B3u;
    char text[20];
    std::snprintf(text, sizeof text, "%08x%08x", static_cast<unsigned>(hash >> 32),
                  static_cast<unsigned>(hash & 0xFFFFFFFFu));
    return text;
}

// All bits, and what they mean.
std::string text_of(const char* name, double value)
{
    char text[100];
    std::snprintf(text, sizeof text, "  %-5s %.6f = %a\n", name, value, value);
    return text;
}

// Everything that find_ellipse gives for a picture, one value on each line.
std::string report(const std::vector<std::uint8_t>& pixels, int width, int height, int min_pixels, int max_rms,
                   int divisions)
{
    const Found found = find_and_capture(pixels, width, height, min_pixels, max_rms, divisions);
    std::string text = "picture " + hash_of(pixels.data(), pixels.size()) + "\n";
    for (std::size_t i = 0; i < found.records.size(); ++i) {
        const EllipseRegion& r = found.records[i];
        const auto& points = found.points[i];
        text += "record " + std::to_string(i) + "\n";
        text += text_of("cx", r.cx) + text_of("cy", r.cy) + text_of("major", r.major) + text_of("minor", r.minor) +
                text_of("angle", r.angle) + text_of("rms", r.rms);
        text += "  " + std::to_string(r.pixel_count) + " pixels, " + std::to_string(r.point_count) + " points from " +
                std::to_string(points[0]) + " on, " + hash_of(points.data(), points.size() * sizeof(std::int32_t)) +
                "\n";
    }
    return text + "printed\n" + found.printed;
}

std::string report(const Scene& scene, int min_pixels, int max_rms, int divisions)
{
    return report(render(scene), scene.width, scene.height, min_pixels, max_rms, divisions);
}

TEST(FindEllipseGolden, BoardOfTwelveTargets)
{
    EXPECT_TRUE(equals("find_ellipse_board.txt", report(target_board(400, 300, 4, 3, 20), 10, 2, 3)));
}

// A ring, touching shapes, a faint one, a sliver, one across the border and small ones, in uneven light.
TEST(FindEllipseGolden, ClutterInUnevenLight)
{
    const Scene scene{.width = 200,
                      .height = 160,
                      .ellipses = {{40.25, 38.5, 24, 15, 3, 4},
                                   {40.25, 38.5, 10, 6, 3, 4, 210},
                                   {110, 30, 14, 14},
                                   {133, 34, 12, 9, 5, 12},
                                   {176.5, 28, 6, 6, 1, 0, 120},
                                   {60, 110, 30, 3.5, 12, -5},
                                   {130.6, 100.4, 22, 16, -8, 15, 70},
                                   {198, 100, 12, 12},
                                   {176, 60, 3, 3},
                                   {100, 140, 5, 4, 1, 1}},
                      .blur_passes = 2,
                      .light_x = -0.15,
                      .light_y = 0.1,
                      .noise_sigma = 2,
                      .seed = 9};
    EXPECT_TRUE(equals("find_ellipse_clutter.txt", report(scene, 6, 1, 2)));
    EXPECT_TRUE(equals("find_ellipse_clutter_max_rms_0.txt", report(scene, 6, 0, 2)));
}

// Sharp edges, and axes along the pixel grid and its diagonals.
TEST(FindEllipseGolden, MirrorSymmetricShapes)
{
    const Scene scene{.width = 240,
                      .height = 120,
                      .ellipses = {{30, 30, 20, 20},
                                   {90, 30, 20, 10},
                                   {150, 30, 20, 10, 0, 1},
                                   {210, 30, 20, 10, 1, 1},
                                   {30, 90, 20, 10, -1, 1},
                                   {90.5, 90.5, 20, 20},
                                   {150.5, 90, 20, 10},
                                   {210.5, 90.5, 20, 10, 1, 1}}};
    EXPECT_TRUE(equals("find_ellipse_symmetric.txt", report(scene, 10, 2, 1)));
}

// Outlines of every shape; some fits are rejected.
TEST(FindEllipseGolden, Noise)
{
    const auto pixels = picture(Content::Noise, 200, 150, 213000639);
    EXPECT_TRUE(equals("find_ellipse_noise.txt", report(pixels, 200, 150, 5, 1, 14)));
}

TEST(FindEllipseGolden, LargeShapeWithBlurredEdge)
{
    const Scene scene{.width = 360,
                      .height = 300,
                      .ellipses = {{181.37, 148.21, 160, 120, 24, 7}, {181.37, 148.21, 90.5, 50.25, 7, -24, 190}},
                      .blur_passes = 8};
    EXPECT_TRUE(equals("find_ellipse_large.txt", report(scene, 10, 2, 4)));
}

} // namespace
