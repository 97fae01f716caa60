// SPDX-License-Identifier: MIT
// Holes that strokes enclose are no targets; targets with rings, frames, marks and neighbours around them are.
#include "measure/counters.h"

#include "measure/neighbours.h"
#include "panoval_measure.h"
#include "tests/measure/best_quality.h"
#include "tests/scenes/target_scene.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

namespace panoval::test
{

namespace
{

using panoval::measure::doubt_counters;
using panoval::measure::MeasuredTarget;
using panoval::measure::outline_of;

constexpr std::int32_t kSide = 100;
constexpr double kPaper = 200;
constexpr double kInk = 50;
constexpr double kX = 50.2;
constexpr double kY = 49.7;

Shape ellipse(double a, double b, double grey)
{
    return {Shape::Kind::Ellipse, kX, kY, a, b, 0.2, grey};
}

TargetScene scene_of(std::vector<Shape> shapes)
{
    TargetScene scene;
    scene.width = scene.height = kSide;
    scene.noise = 2;
    scene.shapes = std::move(shapes);
    return scene;
}

// A bowl around a hole with semi-axes a and b, thinner above and below, on a stem that is longer at one end.
TargetScene letter(double a, double b, double stroke, double ink = kInk, double paper = kPaper)
{
    Shape bowl = ellipse(a + 0.8 * stroke, b + 0.7 * stroke, ink);
    bowl.x += 0.3 * stroke;
    const Shape stem = {
        Shape::Kind::Rectangle, kX - a - 0.3 * stroke, kY - b, stroke / 2, 2.3 * b + 0.5 * stroke, 0, ink};
    TargetScene scene = scene_of({stem, bowl, ellipse(a, b, paper)});
    scene.background = paper;
    return scene;
}

// A dot, and twelve marks at once and a half to twice its radius of which some are missing.
TargetScene coded_target(double radius, int missing)
{
    TargetScene scene = scene_of({ellipse(2 * radius, 2 * radius, kInk), ellipse(1.5 * radius, 1.5 * radius, kPaper)});
    for (int i = 0; i < missing; ++i) {
        const double turn = 0.2 + 2 * 3.14159265358979 * (5 * i % 12) / 12;
        scene.shapes.push_back({Shape::Kind::Rectangle, kX + 1.8 * radius * std::cos(turn),
                                kY + 1.8 * radius * std::sin(turn), 0.3 * radius, 0.45 * radius, turn, kPaper});
    }
    scene.shapes.push_back(ellipse(radius, radius, kInk));
    return scene;
}

// A dot, and two rings around it, each of 16 segments of which some are missing.
TargetScene doubly_coded_target(double radius, int missing, double ink, double paper)
{
    TargetScene scene = scene_of({});
    scene.background = paper;
    constexpr int kSegments = 16;
    for (const double inner : {3.2, 1.8}) {
        scene.shapes.push_back(ellipse((inner + 0.8) * radius, (inner + 0.8) * radius, ink));
        scene.shapes.push_back(ellipse(inner * radius, inner * radius, paper));
        const int step = inner > 2 ? 5 : 3;
        for (int i = 0; i < missing; ++i) {
            const double turn = 0.2 + 2 * 3.14159265358979 * (step * i % kSegments) / kSegments;
            const double middle = (inner + 0.4) * radius;
            scene.shapes.push_back({Shape::Kind::Rectangle, kX + middle * std::cos(turn), kY + middle * std::sin(turn),
                                    0.5 * radius, middle * 3.14159265358979 / kSegments, turn, paper});
        }
    }
    scene.shapes.push_back(ellipse(radius, radius, ink));
    return scene;
}

// The quality of the ellipse about the middle whose smaller semi-axis is b; 0 if there is none.
double quality_in_the_middle(const TargetScene& scene, double b)
{
    return best_quality(render_8_bit(scene), kSide, [b](const PanovalMeasureEllipse& e) {
        return std::hypot(e.x - kX, e.y - kY) < 1 && std::fabs(e.semi_minor - b) < 0.5;
    });
}

// A hole as it is measured where nothing doubts it.
MeasuredTarget hole(double a, double b)
{
    MeasuredTarget one;
    one.target.ellipse = {kX, kY, a, b, 0.2};
    one.target.quality = 0.9;
    one.target.noise = 2;
    one.measured.model.outline = outline_of(one.target.ellipse);
    one.measured.model.inside.level = kPaper;
    one.measured.model.outside.level = kInk;
    one.measured.model.blur = 0.7;
    return one;
}

// Strokes of more than the radius are not told from plates with a hole.
TEST(Counters, AreNoTargets)
{
    for (const double b : {3.5, 5.0, 8.0})
        for (const double stroke : {0.6, 1.1}) {
            EXPECT_LT(quality_in_the_middle(letter(1.2 * b, b, stroke * b), b), 0.5) << b << ", stroke " << stroke;
            EXPECT_LT(quality_in_the_middle(letter(1.2 * b, b, stroke * b, kPaper, kInk), b), 0.5)
                << "bright, " << b << ", stroke " << stroke;
        }
}

TEST(Counters, AreNotHolesOfRings)
{
    for (const double b : {3.5, 5.0, 8.0})
        for (const double share : {1.4, 1.8, 2.3})
            EXPECT_GT(quality_in_the_middle(
                          scene_of({ellipse(share * 1.2 * b, share * b, kInk), ellipse(1.2 * b, b, kPaper)}), b),
                      0.5)
                << b << ", " << share;
}

TEST(Counters, AreNotDotsInFrames)
{
    for (const double b : {3.5, 5.0, 8.0})
        for (const double half : {1.5, 2.0, 2.6}) {
            const Shape frame = {Shape::Kind::Rectangle, kX, kY, half * b, half * b, 0.3, kInk};
            EXPECT_GT(quality_in_the_middle(scene_of({frame, ellipse(b, b, kPaper)}), b), 0.5) << b << ", " << half;
        }
}

TEST(Counters, AreNotDotsBesideTheMiddleOfFrames)
{
    for (const double b : {3.5, 5.0, 8.0, 16.0})
        for (const double turn : {0.0, 0.3}) {
            const double off = 0.3 * b;
            const double half = 1.5 * b + 1;
            const Shape plate = {Shape::Kind::Rectangle, kX + off, kY - off / 2, half, half, turn, kInk};
            EXPECT_GT(quality_in_the_middle(scene_of({plate, ellipse(b, b, kPaper)}), b), 0.5) << "plate, " << b;
            Shape frame = plate;
            frame.a += 2;
            frame.b += 2;
            frame.grey = kPaper;
            TargetScene scene = scene_of({frame, plate, ellipse(b, b, kPaper)});
            scene.background = kInk;
            EXPECT_GT(quality_in_the_middle(scene, b), 0.5) << "frame, " << b << ", turned by " << turn;
        }
}

// The far corners are out of the rays' reach, so that what encloses them looks askew; but strokes are thinner.
TEST(Counters, AreNotDotsFarFromTheMiddleOfPlates)
{
    for (const double b : {3.5, 5.0, 8.0, 16.0})
        for (const double off : {0.4, 0.7, 0.9}) {
            const double half = 2.2 * b + 1;
            const Shape plate = {Shape::Kind::Rectangle, kX + off * b, kY - 0.6 * off * b, half, half, 0, kInk};
            EXPECT_GT(quality_in_the_middle(scene_of({plate, ellipse(b, b, kPaper)}), b), 0.5) << b << ", off " << off;
        }
}

TEST(Counters, AreNotDotsWithMarksAround)
{
    for (const double radius : {4.5, 6.0, 8.0})
        for (const int missing : {1, 2, 3, 6})
            EXPECT_GT(quality_in_the_middle(coded_target(radius, missing), radius), 0.5)
                << radius << ", missing " << missing;
}

TEST(Counters, AreNotDotsWithTwoRingsOfMarksAround)
{
    for (const double radius : {4.5, 6.0, 8.0})
        for (const int missing : {2, 4, 7}) {
            EXPECT_GT(quality_in_the_middle(doubly_coded_target(radius, missing, kInk, kPaper), radius), 0.5)
                << radius << ", missing " << missing;
            EXPECT_GT(quality_in_the_middle(doubly_coded_target(radius, missing, kPaper, kInk), radius), 0.5)
                << "bright, " << radius << ", missing " << missing;
        }
}

// What surrounds the smallest spreads as much as a texture's grains do.
TEST(Grains, AreNotDotsOfCodes)
{
    for (const double blur : {0.9, 1.1})
        for (const int missing : {2, 3, 4}) {
            TargetScene scene = doubly_coded_target(3.4, missing, kInk, kPaper);
            scene.blur = blur;
            EXPECT_GT(quality_in_the_middle(scene, 3.4), 0.5) << blur << ", missing " << missing;
        }
}

TEST(Counters, AreNotWhatDenseBoardsLeaveBetweenDots)
{
    TargetScene scene = scene_of({});
    for (int row = 0; row < 7; ++row)
        for (int column = 0; column < 7; ++column)
            scene.shapes.push_back({Shape::Kind::Ellipse, kX + 12 * (column - 3.0) + (row % 2) * 6,
                                    kY + 10.4 * (row - 3.0), 5, 5, 0, kInk});
    for (Shape& shape : scene.shapes)
        shape.x -= 6; // the middle row is one of those that are moved
    EXPECT_GT(quality_in_the_middle(scene, 5), 0.5);
}

TEST(DoubtCounters, DoesNotDoubtWhatAFoundOutlineExplains)
{
    const std::vector<std::uint8_t> pixels = render_8_bit(letter(6, 5, 4));
    const PanovalMeasureImage image = {pixels.data(), kSide, kSide, kSide, PANOVAL_MEASURE_U8, 0};
    std::vector<MeasuredTarget> alone = {hole(6, 5)};
    doubt_counters(image, alone);
    EXPECT_LT(alone[0].target.quality, 0.2);
    MeasuredTarget bowl = hole(9.2, 7.8);
    bowl.measured.model.outline.x += 1.2;
    std::vector<MeasuredTarget> both = {hole(6, 5), bowl};
    doubt_counters(image, both);
    EXPECT_EQ(both[0].target.quality, 0.9);
    both[1].target.quality = 0.4;
    doubt_counters(image, both);
    EXPECT_LT(both[0].target.quality, 0.2) << "not found";
}

// What is right of it comes to lie below it.
std::vector<std::uint8_t> transposed(const std::vector<std::uint8_t>& pixels)
{
    std::vector<std::uint8_t> result;
    for (std::size_t y = 0; y < kSide; ++y)
        for (std::size_t x = 0; x < kSide; ++x)
            result.push_back(pixels[x * kSide + y]);
    return result;
}

double doubted_quality(const std::vector<std::uint8_t>& pixels, const MeasuredTarget& target)
{
    std::vector<MeasuredTarget> one = {target};
    doubt_counters({pixels.data(), kSide, kSide, kSide, PANOVAL_MEASURE_U8, 0}, one);
    return one[0].target.quality;
}

TEST(DoubtCounters, DoubtsTransposedAndMirroredHolesAsMuch)
{
    int partly = 0;
    for (int i = 0; i < 12; ++i) {
        const Shape stem = {Shape::Kind::Rectangle, kX - 7.5, kY - 4, 1.5, 3 + 0.5 * i, 0, kInk};
        const std::vector<std::uint8_t> pixels =
            render_8_bit(scene_of({stem, ellipse(9, 6.2, kInk), ellipse(6.5, 4, kPaper)}));
        const double quality = doubted_quality(pixels, hole(6.5, 4));
        MeasuredTarget turned = hole(6.5, 4);
        const PanovalMeasureEllipse& e = turned.target.ellipse;
        turned.target.ellipse = {e.y, e.x, e.semi_major, e.semi_minor, 3.14159265358979 / 2 - e.angle};
        turned.measured.model.outline = outline_of(turned.target.ellipse);
        EXPECT_NEAR(doubted_quality(transposed(pixels), turned), quality, 1e-6) << i;
        const std::vector<std::uint8_t> reversed(pixels.rbegin(), pixels.rend());
        MeasuredTarget mirrored = hole(6.5, 4);
        mirrored.measured.model.outline.x = kSide - 1 - kX;
        mirrored.measured.model.outline.y = kSide - 1 - kY;
        EXPECT_NEAR(doubted_quality(reversed, mirrored), quality, 1e-6) << i;
        partly += quality > 0.1 && quality < 0.89 ? 1 : 0;
    }
    EXPECT_GT(partly, 0) << "neither sound nor doubted in full";
}

// Of 48 rays some run into samples that are not numbers. Doubt begins with 78 % and is complete with 88 %.
TEST(DoubtCounters, DoubtsByTheShareOfRaysThatAreEnclosed)
{
    const std::vector<std::uint8_t> pixels = render_8_bit(letter(6, 5, 4));
    const std::vector<float> whole(pixels.begin(), pixels.end());
    // Sectors as wide as so many rays of a circle, and the rays of the ellipse that run into them.
    for (const auto& [open, hidden] : {std::pair{0.0, 0.0}, {5.0, 7.0}, {7.0, 9.0}, {9.0, 11.0}}) {
        std::vector<float> samples = whole;
        for (std::size_t y = 0; y < kSide; ++y)
            for (std::size_t x = 0; x < kSide; ++x) {
                const double dx = static_cast<double>(x) - kX;
                const double dy = static_cast<double>(y) - kY;
                const double ray = 24 * std::atan2(dy, dx) / 3.14159265358979 + 0.5 * open;
                if (std::hypot(dx, dy) > 9 && ray > 0 && ray < open)
                    samples[y * kSide + x] = NAN;
            }
        std::vector<MeasuredTarget> one = {hole(6, 5)};
        doubt_counters({samples.data(), kSide, kSide, 4 * kSide, PANOVAL_MEASURE_F32, 0}, one);
        const double enclosed = (48 - hidden) / 48;
        const double doubt = std::clamp((enclosed - 0.78) / (0.88 - 0.78), 0.0, 1.0);
        EXPECT_NEAR(one[0].target.quality, 0.9 * (1 - 0.9 * doubt), 1e-9) << hidden << " rays";
    }
}

// Near enough to be asked, too far for any end.
TEST(DoubtCounters, IsNotChangedByAnOutlineBeyondTheStrokes)
{
    const std::vector<std::uint8_t> pixels = render_8_bit(letter(6, 5, 4));
    const PanovalMeasureImage image = {pixels.data(), kSide, kSide, kSide, PANOVAL_MEASURE_U8, 0};
    std::vector<MeasuredTarget> alone = {hole(6, 5)};
    doubt_counters(image, alone);
    std::vector<MeasuredTarget> both = {hole(6, 5), hole(6, 5)};
    both[1].measured.model.outline.x -= 35;
    doubt_counters(image, both);
    EXPECT_EQ(both[0].target.quality, alone[0].target.quality);
}

TEST(DoubtCounters, LeavesRingsWithHandles)
{
    const Shape handle = {Shape::Kind::Rectangle, kX + 18, kY, 14, 1.5, 0, kInk};
    const std::vector<std::uint8_t> pixels =
        render_8_bit(scene_of({handle, ellipse(9, 8, kInk), ellipse(6, 5, kPaper)}));
    std::vector<MeasuredTarget> ring = {hole(6, 5)};
    doubt_counters({pixels.data(), kSide, kSide, kSide, PANOVAL_MEASURE_U8, 0}, ring);
    EXPECT_EQ(ring[0].target.quality, 0.9);
}

TEST(DoubtCounters, KnowsNothingOfWhatLiesOutsideThePicture)
{
    const TargetScene scene = letter(6, 5, 4);
    const std::vector<std::uint8_t> pixels = render_8_bit(scene);
    std::vector<MeasuredTarget> whole = {hole(6, 5)};
    doubt_counters({pixels.data(), kSide, kSide, kSide, PANOVAL_MEASURE_U8, 0}, whole);
    EXPECT_LT(whole[0].target.quality, 0.5);
    std::vector<MeasuredTarget> cut = {hole(6, 5)};
    doubt_counters({pixels.data(), 57, kSide, kSide, PANOVAL_MEASURE_U8, 0}, cut);
    EXPECT_EQ(cut[0].target.quality, 0.9);
    constexpr std::int32_t kCut = 44;
    std::vector<MeasuredTarget> left = {hole(6, 5)};
    left[0].measured.model.outline.x -= kCut;
    doubt_counters({pixels.data() + kCut, kSide - kCut, kSide, kSide, PANOVAL_MEASURE_U8, 0}, left);
    EXPECT_EQ(left[0].target.quality, 0.9);
    std::vector<MeasuredTarget> above = {hole(6, 5)};
    above[0].measured.model.outline.y -= kCut;
    doubt_counters({pixels.data() + kCut * kSide, kSide, kSide - kCut, kSide, PANOVAL_MEASURE_U8, 0}, above);
    EXPECT_EQ(above[0].target.quality, 0.9);
}

} // namespace

} // namespace panoval::test
