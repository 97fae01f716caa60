// SPDX-License-Identifier: MIT
// Letters and their holes are no targets, and targets with labels beside them are.
#include "measure/text_lines.h"

#include "measure/neighbours.h"
#include "measure/silhouette.h"
#include "panoval_measure.h"
#include "tests/measure/best_quality.h"
#include "tests/scenes/target_scene.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace panoval::test
{

namespace
{

constexpr std::int32_t kWidth = 240;
constexpr std::int32_t kHeight = 120;
constexpr double kPaper = 200;
constexpr double kInk = 50;

// A line of letters of some height about the picture's middle, turned about it.
class Writer
{
public:
    Writer(double height, double turn) : height_(height), cosine_(std::cos(turn)), sine_(std::sin(turn)), turn_(turn)
    {
        scene_.width = kWidth;
        scene_.height = kHeight;
        scene_.background = kPaper;
        scene_.noise = 2;
    }

    // x and y from the picture's middle along and across the line, in heights.
    void disc(double x, double y, double a, double b, double grey)
    {
        add({Shape::Kind::Ellipse, x, y, a * height_, b * height_, turn_, grey});
    }
    void bar(double x, double y, double half_width, double half_height)
    {
        add({Shape::Kind::Rectangle, x, y, half_width * height_, half_height * height_, turn_, kInk});
    }

    // Stands on y = 0.5. Returns how wide it is.
    double letter(char which, double x)
    {
        switch (which) {
        case 'o':
            disc(x + 0.4, 0, 0.4, 0.5, kInk);
            disc(x + 0.4, 0, 0.24, 0.34, kPaper);
            return 0.8;
        case 'E':
            bar(x + 0.3, -0.42, 0.3, 0.08);
            bar(x + 0.25, 0, 0.25, 0.08);
            bar(x + 0.3, 0.42, 0.3, 0.08);
            bar(x + 0.08, 0, 0.08, 0.5);
            return 0.6;
        case 'T':
            bar(x + 0.35, -0.42, 0.35, 0.08);
            bar(x + 0.35, 0, 0.08, 0.5);
            return 0.7;
        case 'L':
            bar(x + 0.3, 0.42, 0.3, 0.08);
            bar(x + 0.08, 0, 0.08, 0.5);
            return 0.6;
        case 'H':
            bar(x + 0.08, 0, 0.08, 0.5);
            bar(x + 0.35, 0, 0.35, 0.08);
            bar(x + 0.62, 0, 0.08, 0.5);
            return 0.7;
        default: // '.'
            disc(x + 0.11, 0.39, 0.11, 0.11, kInk);
            return 0.22;
        }
    }

    void write(const std::string& text, double x)
    {
        for (const char one : text)
            x += one == ' ' ? 0.3 : letter(one, x) + 0.16;
    }

    // The best quality of an outline about a place.
    double quality_at(double x, double y) const
    {
        return best_quality(render_8_bit(scene_), kWidth, [&](const PanovalMeasureEllipse& e) {
            return std::hypot(e.x - x_at(x, y), e.y - y_at(x, y)) < 1.5;
        });
    }

private:
    double x_at(double x, double y) const { return kWidth / 2.0 + height_ * (x * cosine_ - y * sine_); }
    double y_at(double x, double y) const { return kHeight / 2.0 + height_ * (x * sine_ + y * cosine_); }
    void add(Shape shape)
    {
        const double x = shape.x;
        shape.x = x_at(x, shape.y);
        shape.y = y_at(x, shape.y);
        scene_.shapes.push_back(shape);
    }

    TargetScene scene_;
    double height_;
    double cosine_;
    double sine_;
    double turn_;
};

TEST(TextLines, HaveLettersThatAreNoTargets)
{
    for (const double height : {18.0, 26.0, 34.0})
        for (const double turn : {0.0, 0.25, -0.6}) {
            Writer writer(height, turn);
            writer.write("HLoTE", -1.9); // 'o' from -0.3 to 0.5
            EXPECT_LT(writer.quality_at(-0.18 + 0.4 - 0.08, 0), 0.5) << height << " high, turned by " << turn;
        }
}

TEST(TextLines, AreWhatTellsALetterFromARing)
{
    for (const double height : {18.0, 26.0, 34.0}) {
        Writer writer(height, 0.25);
        writer.letter('o', -0.4);
        EXPECT_GT(writer.quality_at(0, 0), 0.5) << height;
    }
}

TEST(TextLines, HaveFullStopsThatAreNoTargets)
{
    for (const double height : {30.0, 38.0}) {
        Writer writer(height, 0.1);
        writer.write("HTLE.", -2.5); // ends at 0.74
        EXPECT_LT(writer.quality_at(-2.5 + 0.7 + 0.7 + 0.6 + 0.6 + 4 * 0.16 + 0.11, 0.39), 0.5) << height;
    }
}

TEST(TextLines, AreBesideTargetsThatAreLabelled)
{
    for (const double height : {12.0, 18.0, 26.0})
        for (const double radius : {0.25, 0.5, 0.9})
            for (const char* label : {"L", "TE", "HTL", "ETHL"}) {
                Writer writer(height, 0.15);
                writer.disc(-1, 0, radius, radius * 0.9, kInk);
                writer.write(label, -1 + radius + 0.3);
                EXPECT_GT(writer.quality_at(-1, 0), 0.5) << height << " high, radius " << radius << ", " << label;
            }
}

TEST(TextLines, AreAboveTargetsThatAreLabelledThere)
{
    for (const double radius : {0.25, 0.5, 0.9}) {
        Writer writer(22, 0.15);
        writer.disc(0, 0.5 + 0.35 + radius, radius, radius * 0.9, kInk);
        writer.write("ETHL", -1.5);
        EXPECT_GT(writer.quality_at(0, 0.5 + 0.35 + radius), 0.5) << radius;
    }
}

TEST(TextLines, HaveDotsOnTheirLineOrOverALetter)
{
    for (const double height : {30.0, 38.0}) {
        Writer writer(height, 0.1);
        writer.write("HTL  ELHT", -2.9);
        const double gap = -2.9 + 0.7 + 0.7 + 0.6 + 3 * 0.16 + 0.2; // 0.6 wide between L and E
        writer.disc(gap, -0.1, 0.12, 0.12, kInk);
        EXPECT_GT(writer.quality_at(gap, -0.1), 0.5) << height << " high: between two words";
    }
}

TEST(TextLines, AreOfDifferentForms)
{
    Writer writer(26, 0.1);
    writer.write("LLLoLLL", -2.7); // a ring in a scale with marks that are all alike
    EXPECT_GT(writer.quality_at(-2.7 + 3 * 0.76 + 0.4, 0), 0.5);
}

} // namespace

} // namespace panoval::test
